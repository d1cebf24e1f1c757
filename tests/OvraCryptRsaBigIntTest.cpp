// Tests of TBigInt: construction and conversion, buffer rules, every operation
// and its edge cases, known answers, random properties, a differential check
// against OpenSSL's BIGNUM and allocation failures.
#include "OvraCryptRsa.h"

#include <gtest/gtest.h>
#include <string.h>

#include <memory>
#include <random>
#include <string>
#include <vector>

#include "AllocSweep.h"
#include "OvraCryptRsaBigIntVectors.h"
#include "TestAllocator.h"
#include "TestBytes.h"
#include "TestWide.h"

#ifdef OVRA_HAVE_OPENSSL
#include <openssl/bn.h>
#endif

namespace {

using ovra_test::FailNthAllocation;
using ovra_test::ScopedCountingLibrary;
using ovra_test::Stats;
using ovra_test::StopFailing;
using ovra_test::SweepBothModes;
using ovra_test::SweepRun;
using ovra_test::SweepTest;

std::vector<unsigned short> Wide(const std::string& s) {
  std::vector<unsigned short> w(s.begin(), s.end());
  w.push_back(0);
  return w;
}

TBigInt Hex(const std::string& s) {
  const std::vector<unsigned short> w = Wide(s);
  return TBigInt(w.data());
}

// The bytes Dump writes, found by offering ever larger buffers.
std::vector<unsigned char> Bytes(const TBigInt& v) {
  for (size_t size = 64;; size *= 2) {
    if (size > 4 * static_cast<size_t>(TBigInt::kMaxWords)) size = 4 * TBigInt::kMaxWords;
    std::vector<unsigned char> out(size);
    const unsigned n = v.Dump(out.data(), static_cast<unsigned>(size));
    if (n || size == 4 * TBigInt::kMaxWords) {
      out.resize(n);
      return out;
    }
  }
}

// Number of words in use: Dump writes four bytes for each.
unsigned Words(const TBigInt& v) { return static_cast<unsigned>(Bytes(v).size() / 4); }

// Upper-case hexadecimal without leading zeros ("0" for zero), read through
// Dump so that it does not depend on the conversions under test.
std::string HexOf(const TBigInt& v) {
  static const char kDigits[] = "0123456789ABCDEF";
  std::string s;
  for (unsigned char b : Bytes(v)) {
    s += kDigits[b >> 4];
    s += kDigits[b & 15];
  }
  const size_t first = s.find_first_not_of('0');
  return first == std::string::npos ? "0" : s.substr(first);
}

bool IsZero(const TBigInt& v) { return Bytes(v).empty(); }

// Random values of a given word count in several shapes that reach the
// different paths of the word loops (all ones, a top word of 1 or of all ones,
// sparse bits, plain random).
TBigInt RandomValue(std::mt19937& rng, unsigned words) {
  if (words == 0) return TBigInt();
  std::vector<unsigned char> b(4 * words);
  const unsigned shape = rng() % 6;
  for (auto& c : b) c = static_cast<unsigned char>(rng());
  switch (shape) {
    case 0:
      memset(b.data(), 0xFF, b.size());
      break;
    case 1:
      b[0] = b[1] = b[2] = 0;
      b[3] = 1;
      break;
    case 2:
      b[0] = b[1] = b[2] = b[3] = 0xFF;
      break;
    case 3:
      memset(b.data(), 0, b.size());
      for (int i = 0; i < 3; ++i) b[rng() % b.size()] |= static_cast<unsigned char>(1u << (rng() % 8));
      b[rng() % 4] |= static_cast<unsigned char>(1u << (rng() % 8));
      break;
    default:
      if (b[0] == 0) b[0] = 1;
      break;
  }
  return TBigInt(b.data(), static_cast<unsigned>(b.size()));
}

const unsigned kSizes[] = {0, 1, 2, 3, 4, 5, 7, 8, 9, 15, 16, 17, 31, 32, 33, 48, 63, 64, 65, 96, 128};

// --- Construction and conversion -----------------------------------------------

TEST(BigIntConstructTest, DefaultValueIsZeroAndDumpsNothing) {
  TBigInt v;
  unsigned char out[8] = {7, 7, 7, 7, 7, 7, 7, 7};
  EXPECT_EQ(v.Dump(out, sizeof out), 0u);
  EXPECT_EQ(out[0], 7);
  EXPECT_EQ(v.ToInt(), 0);
}

TEST(BigIntConstructTest, IntZeroIsZeroAndOtherIntsAreOneWord) {
  EXPECT_TRUE(IsZero(TBigInt(0)));
  TBigInt v(0x1234);
  EXPECT_EQ(Words(v), 1u);
  EXPECT_EQ(HexOf(v), "1234");
  EXPECT_EQ(v.ToInt(), 0x1234);
}

TEST(BigIntConstructTest, NegativeIntIsItsThirtyTwoBitPattern) {
  TBigInt v(-1);
  EXPECT_EQ(HexOf(v), "FFFFFFFF");
  EXPECT_EQ(v.ToInt(), -1);
}

TEST(BigIntConstructTest, TextWithUpperOrLowerCaseDigitsAndSpacesGivesTheSameValue) {
  EXPECT_EQ(Hex("1F").ToInt(), 31);
  EXPECT_EQ(Hex("1 f").ToInt(), 31);
  EXPECT_EQ(HexOf(Hex("de:ad-BE EF")), "DEADBEEF");
  EXPECT_EQ(HexOf(Hex("  0x10")), "10");  // 'x' is not a digit: "0" "10"
}

TEST(BigIntConstructTest, TextWithoutDigitsOrNullOrEmptyGivesZero) {
  EXPECT_TRUE(IsZero(Hex("")));
  EXPECT_TRUE(IsZero(Hex("xyz-+!")));
  EXPECT_TRUE(IsZero(Hex("0000")));
  EXPECT_TRUE(IsZero(TBigInt(static_cast<const unsigned short*>(nullptr))));
}

TEST(BigIntConstructTest, NonAsciiUnitsInTextAreSkipped) {
  std::vector<unsigned short> w = {0x0031, 0xFF21, 0x0661, 0x0046, 0xFFFF, 0};
  EXPECT_EQ(TBigInt(w.data()).ToInt(), 0x1F);
}

TEST(BigIntConstructTest, TextLeadingZerosAddNoWords) {
  TBigInt v = Hex("0000000000000000000000001");
  EXPECT_EQ(Words(v), 1u);
  EXPECT_EQ(v.ToInt(), 1);
}

TEST(BigIntConstructTest, LongTextEqualsTheSameBytes) {
  std::mt19937 rng(11);
  std::vector<unsigned char> bytes = ovra_test::RandomBytes(rng, 517);
  bytes[0] |= 0x80;
  static const char kDigits[] = "0123456789abcdef";
  std::string text;
  for (unsigned char b : bytes) {
    text += kDigits[b >> 4];
    text += ' ';
    text += kDigits[b & 15];
  }
  TBigInt fromText = Hex(text);
  TBigInt fromBytes(bytes.data(), static_cast<unsigned>(bytes.size()));
  EXPECT_EQ(TBigInt::Cmp(fromText, fromBytes), 0);
  EXPECT_EQ(Words(fromText), (517u + 3) / 4);
}

TEST(BigIntConstructTest, TextOfTheLargestValueIsAcceptedAndOneDigitMoreIsRefused) {
  const size_t digits = 8 * static_cast<size_t>(TBigInt::kMaxWords);
  std::vector<unsigned short> w(digits + 2, 'F');
  w[digits] = 0;
  TBigInt largest(w.data());
  EXPECT_EQ(Words(largest), TBigInt::kMaxWords);
  w[digits] = '1';
  w[digits + 1] = 0;
  EXPECT_TRUE(IsZero(TBigInt(w.data())));
  // Leading zeros do not count against the limit.
  std::vector<unsigned short> z(digits + 100, '0');
  z[digits + 98] = '5';
  z[digits + 99] = 0;
  EXPECT_EQ(TBigInt(z.data()).ToInt(), 5);
}

TEST(BigIntConstructTest, ThreeBytesZeroZeroOneGiveOneWordOfValueOne) {
  const unsigned char in[] = {0x00, 0x00, 0x01};
  TBigInt v(in, 3);
  EXPECT_EQ(v.ToInt(), 1);
  unsigned char out[8];
  memset(out, 0xAA, sizeof out);
  EXPECT_EQ(v.Dump(out, 8), 4u);
  const unsigned char expected[8] = {0, 0, 0, 1, 0xAA, 0xAA, 0xAA, 0xAA};
  EXPECT_EQ(memcmp(out, expected, 8), 0);
}

TEST(BigIntConstructTest, BytesAreBigEndianAndDumpWritesWholeWords) {
  const unsigned char in[] = {0x01, 0x02, 0x03, 0x04, 0x05};
  TBigInt v(in, 5);
  EXPECT_EQ(v.ToInt(), 0x02030405);
  unsigned char out[8];
  ASSERT_EQ(v.Dump(out, 8), 8u);
  const unsigned char expected[8] = {0, 0, 0, 1, 2, 3, 4, 5};
  EXPECT_EQ(memcmp(out, expected, 8), 0);
}

TEST(BigIntConstructTest, NullOrEmptyOrAllZeroBytesGiveZero) {
  const unsigned char zeros[9] = {};
  EXPECT_TRUE(IsZero(TBigInt(nullptr, 16)));
  EXPECT_TRUE(IsZero(TBigInt(zeros, 0)));
  EXPECT_TRUE(IsZero(TBigInt(zeros, 9)));
}

TEST(BigIntConstructTest, BytesOfTheLargestValueAreAcceptedAndOneMoreIsRefused) {
  const size_t n = 4 * static_cast<size_t>(TBigInt::kMaxWords);
  std::vector<unsigned char> bytes(n + 1, 0x5A);
  EXPECT_EQ(Words(TBigInt(bytes.data(), static_cast<unsigned>(n))), TBigInt::kMaxWords);
  EXPECT_TRUE(IsZero(TBigInt(bytes.data(), static_cast<unsigned>(n + 1))));
  // Leading zero bytes do not count against the limit.
  std::vector<unsigned char> padded(n + 50, 0);
  padded.back() = 9;
  EXPECT_EQ(TBigInt(padded.data(), static_cast<unsigned>(padded.size())).ToInt(), 9);
}

TEST(BigIntConstructTest, CopyAndAssignmentAreDeep) {
  TBigInt a = Hex("123456789ABCDEF0123");
  TBigInt b(a);
  TBigInt c;
  c = a;
  EXPECT_EQ(TBigInt::Cmp(a, b), 0);
  EXPECT_EQ(TBigInt::Cmp(a, c), 0);
  ASSERT_TRUE(TBigInt::Add(a, a, TBigInt(1)));
  EXPECT_EQ(HexOf(b), "123456789ABCDEF0123");
  EXPECT_EQ(HexOf(c), "123456789ABCDEF0123");
  c = TBigInt();
  EXPECT_TRUE(IsZero(c));
}

TEST(BigIntConstructTest, SelfAssignmentKeepsTheValue) {
  TBigInt a = Hex("FEDCBA9876543210FEDCBA");
  TBigInt& alias = a;
  a = alias;
  EXPECT_EQ(HexOf(a), "FEDCBA9876543210FEDCBA");
}

TEST(BigIntConstructTest, ToIntReturnsTheLeastSignificantWord) {
  EXPECT_EQ(Hex("123456789").ToInt(), 0x23456789);
  EXPECT_EQ(Hex("80000000").ToInt(), static_cast<int>(0x80000000u));
}

// --- Hexadecimal text ----------------------------------------------------------

std::string Narrow(const TBstr& text) {
  std::string out;
  for (char16_t c : ovra_test::ToU16(text.GetString())) out += static_cast<char>(c);
  return out;
}

TEST(BigIntTextTest, ThirtyOneGivesOneF) {
  EXPECT_EQ(Narrow(Hex("1F").ToString()), "1F");
  EXPECT_EQ(Narrow(Hex("1 f").ToString()), "1F");
  EXPECT_EQ(Narrow(TBigInt(31).ToString()), "1F");
}

TEST(BigIntTextTest, ZeroGivesASingleZeroDigit) {
  EXPECT_EQ(Narrow(TBigInt().ToString()), "0");
  EXPECT_EQ(Narrow(Hex("0000").ToString()), "0");
}

TEST(BigIntTextTest, TextIsUpperCaseWithoutLeadingZeros) {
  EXPECT_EQ(Narrow(Hex("1 00000000").ToString()), "100000000");
  EXPECT_EQ(Narrow(Hex("00ab cdef 0123 4567 89").ToString()), "ABCDEF0123456789");
  EXPECT_EQ(Narrow(TBigInt(-1).ToString()), "FFFFFFFF");
  EXPECT_EQ(Narrow(Hex("80000000 00000000").ToString()), "8000000000000000");
}

TEST(BigIntTextTest, TextReadsBackToTheSameValue) {
  std::mt19937 rng(41);
  for (unsigned words : kSizes) {
    const TBigInt v = RandomValue(rng, words);
    const std::string text = Narrow(v.ToString());
    EXPECT_EQ(text, HexOf(v));
    EXPECT_EQ(TBigInt::Cmp(Hex(text), v), 0);
  }
}

TEST(BigIntTextTest, TextOfTheLargestValueHasEightDigitsPerWord) {
  std::vector<unsigned char> bytes(4 * static_cast<size_t>(TBigInt::kMaxWords), 0xC3);
  const TBigInt v(bytes.data(), static_cast<unsigned>(bytes.size()));
  const TBstr text = v.ToString();
  ASSERT_EQ(text.GetLength(), static_cast<int>(8 * TBigInt::kMaxWords));
  EXPECT_EQ(text.GetAt(0), 'C');
  EXPECT_EQ(text.GetAt(text.GetLength() - 1), '3');
}

TEST(BigIntTextTest, TextIsEmptyWhenItCannotBeAllocated) {
  ScopedCountingLibrary lib;
  ASSERT_TRUE(lib.started());
  const long baseline = Stats().live;  // what start-up itself keeps allocated
  {
    const TBigInt v = Hex("DEADBEEF");
    const TBigInt zero;
    FailNthAllocation(1, true);
    const TBstr text = v.ToString();
    const TBstr zeroText = zero.ToString();
    StopFailing();
    EXPECT_TRUE(text.IsEmpty());
    EXPECT_TRUE(zeroText.IsEmpty());
  }
  EXPECT_EQ(Stats().live, baseline);
}

// --- Dump ----------------------------------------------------------------------

TEST(BigIntDumpTest, TooSmallABufferReturnsZeroAndWritesNothing) {
  TBigInt v = Hex("1 00000000");  // two words
  unsigned char out[8];
  memset(out, 0xAA, sizeof out);
  EXPECT_EQ(v.Dump(out, 7), 0u);
  for (unsigned char c : out) EXPECT_EQ(c, 0xAA);
  EXPECT_EQ(v.Dump(out, 8), 8u);
  EXPECT_EQ(v.Dump(nullptr, 8), 0u);
}

TEST(BigIntDumpTest, DumpIsNotPaddedToTheBufferSize) {
  TBigInt v(0x0102);
  unsigned char out[16];
  memset(out, 0xAA, sizeof out);
  EXPECT_EQ(v.Dump(out, 16), 4u);
  EXPECT_EQ(out[2], 1);
  EXPECT_EQ(out[3], 2);
  EXPECT_EQ(out[4], 0xAA);
}

// --- Comparison ----------------------------------------------------------------

TEST(BigIntCmpTest, TwoWordValueAgainstOneWordValueReturnsOne) {
  EXPECT_EQ(TBigInt::Cmp(Hex("100000000"), Hex("FFFFFFFF")), 1);
  EXPECT_EQ(TBigInt::Cmp(Hex("FFFFFFFF"), Hex("100000000")), -1);
}

TEST(BigIntCmpTest, EqualValuesReturnZero) {
  EXPECT_EQ(TBigInt::Cmp(Hex("ABCDEF0123456789"), Hex("abcdef0123456789")), 0);
  EXPECT_EQ(TBigInt::Cmp(TBigInt(), TBigInt(0)), 0);
}

TEST(BigIntCmpTest, DifferentLengthsReturnTheLengthDifference) {
  EXPECT_EQ(TBigInt::Cmp(Hex("1 00000000 00000000"), TBigInt(5)), 2);
  EXPECT_EQ(TBigInt::Cmp(TBigInt(), Hex("1 00000000 00000000")), -3);
}

TEST(BigIntCmpTest, SameLengthComparesFromTheTopWordDown) {
  EXPECT_EQ(TBigInt::Cmp(Hex("2 00000000"), Hex("1 FFFFFFFF")), 1);
  EXPECT_EQ(TBigInt::Cmp(Hex("1 00000001"), Hex("1 00000002")), -1);
}

// --- Word functions ------------------------------------------------------------

TEST(BigIntWordTest, WordMulReturnsBothHalvesOfTheProduct) {
  unsigned high = 0;
  EXPECT_EQ(TBigInt::WordMul(high, 0xFFFFFFFFu, 0xFFFFFFFFu), 1u);
  EXPECT_EQ(high, 0xFFFFFFFEu);
  EXPECT_EQ(TBigInt::WordMul(high, 0x10000u, 0x10000u), 0u);
  EXPECT_EQ(high, 1u);
  EXPECT_EQ(TBigInt::WordMul(high, 3, 5), 15u);
  EXPECT_EQ(high, 0u);
}

TEST(BigIntWordTest, WordDivDividesTheDoubleWord) {
  EXPECT_EQ(TBigInt::WordDiv(0, 1, 2), 0x80000000u);
  EXPECT_EQ(TBigInt::WordDiv(0xFFFFFFFFu, 0xFFFFFFFEu, 0xFFFFFFFFu), 0xFFFFFFFFu);
  EXPECT_EQ(TBigInt::WordDiv(100, 0, 7), 14u);
  EXPECT_EQ(TBigInt::WordDiv(100, 0, 0), 0xFFFFFFFFu);
}

TEST(BigIntWordTest, WordBitsCountsSignificantBits) {
  EXPECT_EQ(TBigInt::WordBits(0), 0u);
  EXPECT_EQ(TBigInt::WordBits(1), 1u);
  EXPECT_EQ(TBigInt::WordBits(0xFFFF), 16u);
  EXPECT_EQ(TBigInt::WordBits(0x80000000u), 32u);
}

// --- Buffer management ---------------------------------------------------------

TEST(BigIntBufferTest, CapacityGrowsInStepsOfEightWords) {
  ScopedCountingLibrary lib;
  ASSERT_TRUE(lib.started());
  const long baseline = Stats().live;  // what start-up itself keeps allocated
  {
    TBigInt v;
    const long before = Stats().allocs;
    ASSERT_TRUE(v.AdjustBuffer(1, false));
    EXPECT_EQ(Stats().allocs - before, 1);
    ASSERT_TRUE(v.AdjustBuffer(8, false));
    EXPECT_EQ(Stats().allocs - before, 1);
    ASSERT_TRUE(v.AdjustBuffer(9, false));
    EXPECT_EQ(Stats().allocs - before, 2);
    ASSERT_TRUE(v.AdjustBuffer(16, true));
    ASSERT_TRUE(v.AdjustBuffer(2, false));
    EXPECT_EQ(Stats().allocs - before, 2);
    ASSERT_TRUE(v.AdjustBuffer(17, false));
    EXPECT_EQ(Stats().allocs - before, 3);
    const std::vector<unsigned char> bytes = Bytes(v);  // 17 words, all zeroed
    EXPECT_EQ(bytes.size(), 68u);
    for (unsigned char c : bytes) EXPECT_EQ(c, 0);
  }
  EXPECT_EQ(Stats().live, baseline);
}

TEST(BigIntBufferTest, AdjustBufferSetsTheLengthAndZeroesWithoutKeep) {
  TBigInt v = Hex("1234 00000000 00000005");
  ASSERT_TRUE(v.AdjustBuffer(2, false));
  unsigned char out[8];
  ASSERT_EQ(v.Dump(out, 8), 8u);
  for (unsigned char c : out) EXPECT_EQ(c, 0);
  v.FixLength();
  EXPECT_TRUE(IsZero(v));
}

TEST(BigIntBufferTest, KeepPreservesTheWordsAndAddsZeroWords) {
  TBigInt v = Hex("ABCDEF01 23456789");
  ASSERT_TRUE(v.AdjustBuffer(4, true));  // within the capacity
  EXPECT_EQ(HexOf(v), "ABCDEF0123456789");
  EXPECT_EQ(Words(v), 4u);
  ASSERT_TRUE(v.AdjustBuffer(20, true));  // reallocates
  EXPECT_EQ(Words(v), 20u);
  EXPECT_EQ(HexOf(v), "ABCDEF0123456789");
  v.FixLength();
  EXPECT_EQ(Words(v), 2u);
  ASSERT_TRUE(v.AdjustBuffer(1, true));
  EXPECT_EQ(HexOf(v), "23456789");
}

TEST(BigIntBufferTest, MoreThanTheLargestValueFailsAndChangesNothing) {
  TBigInt v = Hex("42");
  EXPECT_FALSE(v.AdjustBuffer(TBigInt::kMaxWords + 1, false));
  EXPECT_FALSE(v.AdjustBuffer(0xFFFFFFFFu, true));
  EXPECT_EQ(HexOf(v), "42");
}

TEST(BigIntBufferTest, FixLengthDropsZeroTopWordsOnly) {
  TBigInt v = Hex("5 00000000");
  ASSERT_TRUE(v.AdjustBuffer(5, true));
  EXPECT_EQ(Words(v), 5u);
  v.FixLength();
  EXPECT_EQ(Words(v), 2u);
  EXPECT_EQ(HexOf(v), "500000000");
}

// --- Arithmetic edge cases -----------------------------------------------------

TEST(BigIntArithmeticTest, DivisionOfTwoToThe64ByTwoToThe32MinusOne) {
  TBigInt q, r;
  ASSERT_TRUE(TBigInt::Div(q, r, Hex("1 00000000 00000000"), Hex("FFFFFFFF")));
  EXPECT_EQ(HexOf(q), "100000001");
  EXPECT_EQ(HexOf(r), "1");
}

TEST(BigIntArithmeticTest, FourToTheThirteenthModulo497Is445) {
  TBigInt r;
  EXPECT_TRUE(TBigInt::ExpMod(r, TBigInt(4), TBigInt(13), TBigInt(497)));
  EXPECT_EQ(r.ToInt(), 445);
  EXPECT_EQ(Words(r), 1u);
}

TEST(BigIntArithmeticTest, AddCarriesIntoANewTopWord) {
  TBigInt r;
  ASSERT_TRUE(TBigInt::Add(r, Hex("FFFFFFFF FFFFFFFF"), TBigInt(1)));
  EXPECT_EQ(HexOf(r), "10000000000000000");
  ASSERT_TRUE(TBigInt::Add(r, TBigInt(), TBigInt()));
  EXPECT_TRUE(IsZero(r));
}

TEST(BigIntArithmeticTest, SubBorrowsAcrossWordsAndNormalises) {
  TBigInt r;
  ASSERT_TRUE(TBigInt::Sub(r, Hex("1 00000000 00000000"), TBigInt(1)));
  EXPECT_EQ(HexOf(r), "FFFFFFFFFFFFFFFF");
  ASSERT_TRUE(TBigInt::Sub(r, Hex("1234 56789ABC"), Hex("1234 56789ABC")));
  EXPECT_TRUE(IsZero(r));
  EXPECT_EQ(Words(r), 0u);
}

TEST(BigIntArithmeticTest, SubWithANegativeResultGivesZero) {
  TBigInt r = Hex("777");
  EXPECT_TRUE(TBigInt::Sub(r, TBigInt(5), TBigInt(6)));
  EXPECT_TRUE(IsZero(r));
  EXPECT_TRUE(TBigInt::Sub(r, TBigInt(5), Hex("1 00000000")));
  EXPECT_TRUE(IsZero(r));
  EXPECT_TRUE(TBigInt::Sub(r, Hex("1 00000000"), Hex("1 00000001")));
  EXPECT_TRUE(IsZero(r));
  EXPECT_TRUE(TBigInt::Sub(r, TBigInt(), TBigInt(1)));
  EXPECT_TRUE(IsZero(r));
}

TEST(BigIntArithmeticTest, MulByZeroIsZero) {
  TBigInt r = Hex("99");
  ASSERT_TRUE(TBigInt::Mul(r, Hex("123456789ABCDEF"), TBigInt()));
  EXPECT_TRUE(IsZero(r));
  ASSERT_TRUE(TBigInt::Mul(r, TBigInt(), TBigInt(3)));
  EXPECT_TRUE(IsZero(r));
}

TEST(BigIntArithmeticTest, SquareOfAValueEqualsItsProductWithACopy) {
  std::mt19937 rng(5);
  for (unsigned words : kSizes) {
    TBigInt a = RandomValue(rng, words);
    TBigInt copy(a), sq, prod;
    ASSERT_TRUE(TBigInt::Mul(sq, a, a));
    ASSERT_TRUE(TBigInt::Mul(prod, a, copy));
    EXPECT_EQ(TBigInt::Cmp(sq, prod), 0) << words;
  }
}

TEST(BigIntArithmeticTest, ShrPastTheValueGivesZero) {
  TBigInt r = Hex("5");
  TBigInt a = Hex("FFFFFFFF FFFFFFFF");
  EXPECT_TRUE(TBigInt::Shr(r, a, 64));
  EXPECT_TRUE(IsZero(r));
  r = Hex("5");
  EXPECT_TRUE(TBigInt::Shr(r, a, 0xFFFFFFFFu));
  EXPECT_TRUE(IsZero(r));
  EXPECT_TRUE(TBigInt::Shr(r, TBigInt(1), 1));
  EXPECT_TRUE(IsZero(r));
  EXPECT_TRUE(TBigInt::Shr(r, a, 63));
  EXPECT_EQ(HexOf(r), "1");
  EXPECT_TRUE(TBigInt::Shr(r, TBigInt(), 3));
  EXPECT_TRUE(IsZero(r));
}

TEST(BigIntArithmeticTest, ShlOfZeroIsZeroAndShlBeyondTheLargestValueFails) {
  TBigInt r = Hex("5");
  EXPECT_TRUE(TBigInt::Shl(r, TBigInt(), 0xFFFFFFFFu));
  EXPECT_TRUE(IsZero(r));
  EXPECT_FALSE(TBigInt::Shl(r, TBigInt(1), 0xFFFFFFFFu));
  EXPECT_FALSE(TBigInt::Shl(r, TBigInt(1), 32 * TBigInt::kMaxWords));
  EXPECT_TRUE(TBigInt::Shl(r, TBigInt(1), 32 * (TBigInt::kMaxWords - 2)));
  EXPECT_EQ(Words(r), TBigInt::kMaxWords - 1);
}

TEST(BigIntArithmeticTest, ShiftsByZeroAndByWholeWords) {
  TBigInt r;
  ASSERT_TRUE(TBigInt::Shl(r, Hex("ABCDEF"), 0));
  EXPECT_EQ(HexOf(r), "ABCDEF");
  ASSERT_TRUE(TBigInt::Shl(r, Hex("ABCDEF"), 64));
  EXPECT_EQ(HexOf(r), "ABCDEF0000000000000000");
  ASSERT_TRUE(TBigInt::Shl(r, Hex("80000000"), 1));
  EXPECT_EQ(HexOf(r), "100000000");
  ASSERT_TRUE(TBigInt::Shr(r, Hex("ABCDEF0000000000000000"), 64));
  EXPECT_EQ(HexOf(r), "ABCDEF");
  ASSERT_TRUE(TBigInt::Shr(r, Hex("ABCDEF"), 0));
  EXPECT_EQ(HexOf(r), "ABCDEF");
}

TEST(BigIntArithmeticTest, DivByZeroFailsAndLeavesQuotientAndRemainderUntouched) {
  TBigInt q = Hex("11"), r = Hex("22");
  EXPECT_FALSE(TBigInt::Div(q, r, Hex("12345"), TBigInt()));
  EXPECT_EQ(HexOf(q), "11");
  EXPECT_EQ(HexOf(r), "22");
}

TEST(BigIntArithmeticTest, DivWithOneObjectForQuotientAndRemainderFails) {
  TBigInt qr = Hex("33");
  EXPECT_FALSE(TBigInt::Div(qr, qr, Hex("12345"), TBigInt(7)));
  EXPECT_EQ(HexOf(qr), "33");
}

TEST(BigIntArithmeticTest, DivOfASmallerValueGivesZeroQuotientAndTheDividend) {
  TBigInt q = Hex("11"), r;
  ASSERT_TRUE(TBigInt::Div(q, r, Hex("1234"), Hex("1 00000000 00000000")));
  EXPECT_TRUE(IsZero(q));
  EXPECT_EQ(HexOf(r), "1234");
  ASSERT_TRUE(TBigInt::Div(q, r, TBigInt(), TBigInt(3)));
  EXPECT_TRUE(IsZero(q));
  EXPECT_TRUE(IsZero(r));
  ASSERT_TRUE(TBigInt::Div(q, r, TBigInt(6), TBigInt(7)));
  EXPECT_TRUE(IsZero(q));
  EXPECT_EQ(HexOf(r), "6");
}

TEST(BigIntArithmeticTest, DivByADivisorWithAnAllOnesTopWord) {
  // The digit estimate then comes straight from the dividend's top word.
  TBigInt q, r;
  ASSERT_TRUE(TBigInt::Div(q, r, Hex("FFFFFFFF 00000000 00000000 00000007"), Hex("FFFFFFFF 00000001")));
  TBigInt back, sum;
  ASSERT_TRUE(TBigInt::Mul(back, q, Hex("FFFFFFFF 00000001")));
  ASSERT_TRUE(TBigInt::Add(sum, back, r));
  EXPECT_EQ(HexOf(sum), "FFFFFFFF000000000000000000000007");
  EXPECT_LT(TBigInt::Cmp(r, Hex("FFFFFFFF 00000001")), 0);
  EXPECT_EQ(HexOf(q), "FFFFFFFFFFFFFFFE");
  EXPECT_EQ(HexOf(r), "FFFFFFFE00000009");
}

TEST(BigIntArithmeticTest, DivOfEqualValuesAndByOne) {
  TBigInt q, r;
  ASSERT_TRUE(TBigInt::Div(q, r, Hex("DEADBEEF CAFEBABE"), Hex("DEADBEEF CAFEBABE")));
  EXPECT_EQ(HexOf(q), "1");
  EXPECT_TRUE(IsZero(r));
  ASSERT_TRUE(TBigInt::Div(q, r, Hex("DEADBEEF CAFEBABE"), TBigInt(1)));
  EXPECT_EQ(HexOf(q), "DEADBEEFCAFEBABE");
  EXPECT_TRUE(IsZero(r));
}

TEST(BigIntArithmeticTest, DivOfExactMultiplesGivesTheFactorAndNoRemainder) {
  // Quotients with zero digits after non-zero ones leave remainders whose top
  // words vanish (or are exactly zero), which the digit estimates must handle.
  const char* const kFactors[] = {"1 00000000", "1 00000000 00000000", "3 00000000 00000000",
                                  "1 00000005 00000000", "FFFFFFFF 00000000", "2 00000000 00000001",
                                  "7 00000000 00000000 00000000"};
  std::mt19937 rng(17);
  for (unsigned wb : {1u, 2u, 3u, 4u, 7u, 16u, 33u}) {
    for (int rep = 0; rep < 6; ++rep) {
      const TBigInt b = RandomValue(rng, wb);
      for (const char* factor : kFactors) {
        const TBigInt x = Hex(factor);
        TBigInt a, q, r;
        ASSERT_TRUE(TBigInt::Mul(a, b, x));
        ASSERT_TRUE(TBigInt::Div(q, r, a, b));
        EXPECT_EQ(TBigInt::Cmp(q, x), 0) << HexOf(a) << " / " << HexOf(b);
        EXPECT_TRUE(IsZero(r));
        // One less than the next multiple: the same quotient, remainder b - 1.
        TBigInt b1, a1;
        ASSERT_TRUE(TBigInt::Sub(b1, b, TBigInt(1)));
        ASSERT_TRUE(TBigInt::Add(a1, a, b1));
        ASSERT_TRUE(TBigInt::Div(q, r, a1, b));
        EXPECT_EQ(TBigInt::Cmp(q, x), 0);
        EXPECT_EQ(TBigInt::Cmp(r, b1), 0);
      }
    }
  }
}

TEST(BigIntArithmeticTest, DivWithATinyRemainderAfterAZeroDigit) {
  // A divisor whose lower words are all ones, and remainders barely large
  // enough for the first digit of a pair to be estimated exactly from the top
  // words: the second digit, 0, must come from the remainder's tiny top.
  const TBigInt b = Hex("80000000 FFFFFFFF FFFFFFFF FFFFFFFF FFFFFFFF");
  for (unsigned d = 1; d < 40; ++d) {
    for (unsigned e : {d, d + 1, 2 * d + 3, 1000u}) {
      // The quotient 5:d:0 (with the zero top digit every long division has
      // here) pairs its digits as (0, 5) and (d, 0).
      TBigInt x, a, tail, sum, q, r;
      ASSERT_TRUE(TBigInt::Shl(x, Hex("5"), 32));
      ASSERT_TRUE(TBigInt::Add(x, x, TBigInt(static_cast<int>(d))));
      ASSERT_TRUE(TBigInt::Shl(x, x, 32));
      ASSERT_TRUE(TBigInt::Mul(a, b, x));
      ASSERT_TRUE(TBigInt::Shl(tail, TBigInt(static_cast<int>(e)), 32));
      ASSERT_TRUE(TBigInt::Add(tail, tail, TBigInt(7)));
      ASSERT_TRUE(TBigInt::Add(sum, a, tail));
      ASSERT_TRUE(TBigInt::Div(q, r, sum, b));
      EXPECT_EQ(TBigInt::Cmp(q, x), 0) << d << " " << e;
      EXPECT_EQ(TBigInt::Cmp(r, tail), 0) << d << " " << e;
    }
  }
}

TEST(BigIntArithmeticTest, MulModWithZeroModulusFailsAndLeavesTheResultUntouched) {
  TBigInt r = Hex("44");
  EXPECT_FALSE(TBigInt::MulMod(r, TBigInt(3), TBigInt(5), TBigInt()));
  EXPECT_EQ(HexOf(r), "44");
}

TEST(BigIntArithmeticTest, MulModReducesTheProduct) {
  TBigInt r;
  ASSERT_TRUE(TBigInt::MulMod(r, Hex("FFFFFFFF FFFFFFFF"), Hex("FFFFFFFF FFFFFFFF"), TBigInt(1000)));
  // (2^64 - 1)^2 mod 1000 = 615^2 mod 1000 = 225
  EXPECT_EQ(r.ToInt(), 225);
}

TEST(BigIntArithmeticTest, ExpModWithZeroExponentGivesOneWhateverTheModulus) {
  TBigInt r;
  EXPECT_TRUE(TBigInt::ExpMod(r, TBigInt(12345), TBigInt(), TBigInt(7)));
  EXPECT_EQ(HexOf(r), "1");
  EXPECT_TRUE(TBigInt::ExpMod(r, TBigInt(12345), TBigInt(), TBigInt(1)));
  EXPECT_EQ(HexOf(r), "1");
  EXPECT_TRUE(TBigInt::ExpMod(r, TBigInt(), TBigInt(), TBigInt()));
  EXPECT_EQ(HexOf(r), "1");
}

TEST(BigIntArithmeticTest, ExpModWithZeroModulusGivesOneAndTrue) {
  TBigInt r = Hex("99");
  EXPECT_TRUE(TBigInt::ExpMod(r, TBigInt(3), TBigInt(5), TBigInt()));
  EXPECT_EQ(HexOf(r), "1");
}

TEST(BigIntArithmeticTest, ExpModWithModulusOneGivesZero) {
  TBigInt r;
  EXPECT_TRUE(TBigInt::ExpMod(r, TBigInt(3), TBigInt(5), TBigInt(1)));
  EXPECT_TRUE(IsZero(r));
}

TEST(BigIntArithmeticTest, ExpModOfZeroBaseIsZeroAndExponentOneReducesTheBase) {
  TBigInt r;
  EXPECT_TRUE(TBigInt::ExpMod(r, TBigInt(), Hex("10001"), Hex("FFFFFFFF FFFFFFFF FFFFFFFF")));
  EXPECT_TRUE(IsZero(r));
  // The base is larger than the modulus and is not reduced before the first
  // step; the result is still the reduced value.
  EXPECT_TRUE(TBigInt::ExpMod(r, Hex("1 00000000 00000005"), TBigInt(1), TBigInt(1000)));
  // 2^64 + 5 mod 1000 = 18446744073709551621 mod 1000 = 621
  EXPECT_EQ(r.ToInt(), 621);
}

TEST(BigIntArithmeticTest, ExpModAcceptsALargerBaseThanTheModulus) {
  TBigInt r;
  // (2^96 + 3)^3 mod 2^61 - 1: 2^96 = 2^35 (mod 2^61 - 1).
  EXPECT_TRUE(TBigInt::ExpMod(r, Hex("1 00000000 00000000 00000003"), TBigInt(3),
                              Hex("1FFFFFFF FFFFFFFF")));
  TBigInt expected;
  ASSERT_TRUE(TBigInt::ExpMod(expected, Hex("8 00000003"), TBigInt(3), Hex("1FFFFFFF FFFFFFFF")));
  EXPECT_EQ(TBigInt::Cmp(r, expected), 0);
  EXPECT_FALSE(IsZero(r));
}

TEST(BigIntArithmeticTest, AResultObjectMayAlsoBeAnOperand) {
  TBigInt a = Hex("FFFFFFFF FFFFFFFF 12345678"), b = Hex("9ABCDEF0 11111111");
  TBigInt expected;

  TBigInt x(a);
  ASSERT_TRUE(TBigInt::Add(expected, a, b));
  ASSERT_TRUE(TBigInt::Add(x, x, b));
  EXPECT_EQ(TBigInt::Cmp(x, expected), 0);

  x = b;
  ASSERT_TRUE(TBigInt::Sub(expected, a, b));
  ASSERT_TRUE(TBigInt::Sub(x, a, x));
  EXPECT_EQ(TBigInt::Cmp(x, expected), 0);

  x = a;
  ASSERT_TRUE(TBigInt::Mul(expected, a, a));
  ASSERT_TRUE(TBigInt::Mul(x, x, x));
  EXPECT_EQ(TBigInt::Cmp(x, expected), 0);

  TBigInt q, r, eq, er;
  ASSERT_TRUE(TBigInt::Div(eq, er, a, b));
  x = a;
  TBigInt y(b);
  ASSERT_TRUE(TBigInt::Div(x, y, x, y));
  EXPECT_EQ(TBigInt::Cmp(x, eq), 0);
  EXPECT_EQ(TBigInt::Cmp(y, er), 0);

  x = b;
  ASSERT_TRUE(TBigInt::MulMod(expected, a, a, b));
  ASSERT_TRUE(TBigInt::MulMod(x, a, a, x));
  EXPECT_EQ(TBigInt::Cmp(x, expected), 0);

  x = a;
  ASSERT_TRUE(TBigInt::ExpMod(expected, a, TBigInt(17), b));
  ASSERT_TRUE(TBigInt::ExpMod(x, x, TBigInt(17), b));
  EXPECT_EQ(TBigInt::Cmp(x, expected), 0);

  x = a;
  ASSERT_TRUE(TBigInt::Shl(x, x, 45));
  ASSERT_TRUE(TBigInt::Shr(x, x, 45));
  EXPECT_EQ(TBigInt::Cmp(x, a), 0);
}

// --- Known answers -------------------------------------------------------------

TEST(BigIntKnownAnswerTest, AddSubMulDivMatchTheVectors) {
  for (const SArithVector& v : kArithVectors) {
    SCOPED_TRACE(std::string(v.a) + " , " + v.b);
    const TBigInt a = Hex(v.a), b = Hex(v.b);
    TBigInt r, q;
    ASSERT_TRUE(TBigInt::Add(r, a, b));
    EXPECT_EQ(HexOf(r), v.sum);
    ASSERT_TRUE(TBigInt::Sub(r, a, b));
    EXPECT_EQ(HexOf(r), v.diff);
    ASSERT_TRUE(TBigInt::Mul(r, a, b));
    EXPECT_EQ(HexOf(r), v.product);
    ASSERT_TRUE(TBigInt::Div(q, r, a, b));
    EXPECT_EQ(HexOf(q), v.quotient);
    EXPECT_EQ(HexOf(r), v.remainder);
  }
}

TEST(BigIntKnownAnswerTest, ExpModMatchesTheVectors) {
  for (const SExpVector& v : kExpVectors) {
    SCOPED_TRACE(std::string(v.base) + " ^ " + v.e + " mod " + v.m);
    TBigInt r;
    EXPECT_TRUE(TBigInt::ExpMod(r, Hex(v.base), Hex(v.e), Hex(v.m)));
    EXPECT_EQ(HexOf(r), v.r);
  }
}

TEST(BigIntKnownAnswerTest, ShiftsMatchTheVectors) {
  for (const SShiftVector& v : kShiftVectors) {
    SCOPED_TRACE(std::string(v.a) + " by " + std::to_string(v.n));
    TBigInt r;
    ASSERT_TRUE(TBigInt::Shl(r, Hex(v.a), v.n));
    EXPECT_EQ(HexOf(r), v.shl);
    ASSERT_TRUE(TBigInt::Shr(r, Hex(v.a), v.n));
    EXPECT_EQ(HexOf(r), v.shr);
  }
}

// --- Random properties (run on every platform, with or without a reference) ----

TEST(BigIntPropertyTest, QuotientTimesDivisorPlusRemainderIsTheDividend) {
  std::mt19937 rng(101);
  for (int iter = 0; iter < 400; ++iter) {
    const TBigInt a = RandomValue(rng, kSizes[rng() % (sizeof kSizes / sizeof kSizes[0])]);
    TBigInt b = RandomValue(rng, 1 + rng() % 40);
    TBigInt q, r, back, sum;
    ASSERT_TRUE(TBigInt::Div(q, r, a, b));
    ASSERT_TRUE(TBigInt::Mul(back, q, b));
    ASSERT_TRUE(TBigInt::Add(sum, back, r));
    EXPECT_EQ(TBigInt::Cmp(sum, a), 0) << HexOf(a) << " / " << HexOf(b);
    EXPECT_LT(TBigInt::Cmp(r, b), 0);
  }
}

TEST(BigIntPropertyTest, AddThenSubAndShlThenShrGiveTheValueBack) {
  std::mt19937 rng(102);
  for (int iter = 0; iter < 400; ++iter) {
    const TBigInt a = RandomValue(rng, kSizes[rng() % (sizeof kSizes / sizeof kSizes[0])]);
    const TBigInt b = RandomValue(rng, kSizes[rng() % (sizeof kSizes / sizeof kSizes[0])]);
    TBigInt s, d, l, back;
    ASSERT_TRUE(TBigInt::Add(s, a, b));
    ASSERT_TRUE(TBigInt::Sub(d, s, b));
    EXPECT_EQ(TBigInt::Cmp(d, a), 0);
    const unsigned n = rng() % 300;
    ASSERT_TRUE(TBigInt::Shl(l, a, n));
    ASSERT_TRUE(TBigInt::Shr(back, l, n));
    EXPECT_EQ(TBigInt::Cmp(back, a), 0);
  }
}

TEST(BigIntPropertyTest, ExpModAgreesWithRepeatedMulMod) {
  std::mt19937 rng(103);
  for (int iter = 0; iter < 60; ++iter) {
    const TBigInt base = RandomValue(rng, rng() % 12);
    const TBigInt m = RandomValue(rng, 1 + rng() % 10);
    const unsigned e = rng() % 70;
    TBigInt expected(1), step;
    if (e) {
      // The first multiplication reduces; an exponent of zero keeps 1.
      for (unsigned i = 0; i < e; ++i) {
        ASSERT_TRUE(TBigInt::MulMod(step, expected, base, m));
        expected = step;
      }
    }
    TBigInt r;
    EXPECT_TRUE(TBigInt::ExpMod(r, base, TBigInt(static_cast<int>(e)), m));
    EXPECT_EQ(TBigInt::Cmp(r, expected), 0) << HexOf(base) << " ^ " << e << " mod " << HexOf(m);
  }
}

// --- Differential check against OpenSSL ----------------------------------------

#ifdef OVRA_HAVE_OPENSSL
struct BnFree {
  void operator()(BIGNUM* b) const { BN_free(b); }
};
using Bn = std::unique_ptr<BIGNUM, BnFree>;
struct CtxFree {
  void operator()(BN_CTX* c) const { BN_CTX_free(c); }
};

Bn ToBn(const TBigInt& v) {
  const std::vector<unsigned char> b = Bytes(v);
  return Bn(BN_bin2bn(b.data(), static_cast<int>(b.size()), nullptr));
}

std::string BnHex(const BIGNUM* b) {
  if (BN_is_zero(b)) return "0";
  char* s = BN_bn2hex(b);
  std::string out(s);
  OPENSSL_free(s);
  const size_t first = out.find_first_not_of('0');
  return out.substr(first);
}

class BigIntOpenSslTest : public ::testing::Test {
 protected:
  std::unique_ptr<BN_CTX, CtxFree> ctx{BN_CTX_new()};
  std::mt19937 rng{20240611};
};

TEST_F(BigIntOpenSslTest, AddSubMulMatchOnRandomOperandsOfManySizes) {
  for (unsigned wa : kSizes) {
    for (unsigned wb : kSizes) {
      for (int rep = 0; rep < 3; ++rep) {
        const TBigInt a = RandomValue(rng, wa), b = RandomValue(rng, wb);
        Bn ba = ToBn(a), bb = ToBn(b), br(BN_new());
        TBigInt r;
        ASSERT_TRUE(TBigInt::Add(r, a, b));
        BN_add(br.get(), ba.get(), bb.get());
        EXPECT_EQ(HexOf(r), BnHex(br.get()));
        const bool aBig = BN_cmp(ba.get(), bb.get()) >= 0;
        ASSERT_TRUE(TBigInt::Sub(r, aBig ? a : b, aBig ? b : a));
        BN_sub(br.get(), aBig ? ba.get() : bb.get(), aBig ? bb.get() : ba.get());
        EXPECT_EQ(HexOf(r), BnHex(br.get()));
        ASSERT_TRUE(TBigInt::Mul(r, a, b));
        BN_mul(br.get(), ba.get(), bb.get(), ctx.get());
        EXPECT_EQ(HexOf(r), BnHex(br.get()));
        ASSERT_TRUE(TBigInt::Mul(r, a, a));
        BN_sqr(br.get(), ba.get(), ctx.get());
        EXPECT_EQ(HexOf(r), BnHex(br.get()));
        EXPECT_EQ(TBigInt::Cmp(a, b) > 0, BN_cmp(ba.get(), bb.get()) > 0);
        EXPECT_EQ(TBigInt::Cmp(a, b) == 0, BN_cmp(ba.get(), bb.get()) == 0);
      }
    }
  }
}

TEST_F(BigIntOpenSslTest, DivAndMulModMatchOnRandomOperandsOfManySizes) {
  for (unsigned wa : kSizes) {
    for (unsigned wb : kSizes) {
      if (wb == 0) continue;
      for (int rep = 0; rep < 3; ++rep) {
        const TBigInt a = RandomValue(rng, wa), b = RandomValue(rng, wb);
        Bn ba = ToBn(a), bb = ToBn(b), bq(BN_new()), br(BN_new());
        TBigInt q, r;
        ASSERT_TRUE(TBigInt::Div(q, r, a, b));
        ASSERT_EQ(BN_div(bq.get(), br.get(), ba.get(), bb.get(), ctx.get()), 1);
        EXPECT_EQ(HexOf(q), BnHex(bq.get())) << HexOf(a) << " / " << HexOf(b);
        EXPECT_EQ(HexOf(r), BnHex(br.get())) << HexOf(a) << " % " << HexOf(b);
        const TBigInt c = RandomValue(rng, wa);
        Bn bc = ToBn(c);
        ASSERT_TRUE(TBigInt::MulMod(r, a, c, b));
        ASSERT_EQ(BN_mod_mul(br.get(), ba.get(), bc.get(), bb.get(), ctx.get()), 1);
        EXPECT_EQ(HexOf(r), BnHex(br.get()));
      }
    }
  }
}

TEST_F(BigIntOpenSslTest, ExpModMatchesWithFullSizeAndShortExponents) {
  const unsigned kModWords[] = {1, 2, 3, 5, 8, 16, 17, 32, 33, 64, 96, 128};
  for (unsigned wm : kModWords) {
    for (int rep = 0; rep < 4; ++rep) {
      const TBigInt m = RandomValue(rng, wm);
      // The base may be shorter or longer than the modulus: it is not reduced
      // before the first step.
      const TBigInt base = RandomValue(rng, rep == 3 ? wm + 3 : 1 + rng() % wm);
      const TBigInt e = rep == 0 ? TBigInt(65537) : RandomValue(rng, rep == 1 ? 1 : wm);
      Bn bm = ToBn(m), bbase = ToBn(base), be = ToBn(e), br(BN_new());
      TBigInt r;
      EXPECT_TRUE(TBigInt::ExpMod(r, base, e, m));
      ASSERT_EQ(BN_mod_exp(br.get(), bbase.get(), be.get(), bm.get(), ctx.get()), 1);
      EXPECT_EQ(HexOf(r), BnHex(br.get())) << wm << " words, rep " << rep;
    }
  }
}

TEST_F(BigIntOpenSslTest, ShiftsMatchForManyCounts) {
  for (unsigned wa : kSizes) {
    for (int rep = 0; rep < 8; ++rep) {
      const TBigInt a = RandomValue(rng, wa);
      const unsigned n = rep == 0 ? 32 * wa : rng() % (32 * wa + 70);
      Bn ba = ToBn(a), br(BN_new());
      TBigInt r;
      ASSERT_TRUE(TBigInt::Shl(r, a, n));
      BN_lshift(br.get(), ba.get(), static_cast<int>(n));
      EXPECT_EQ(HexOf(r), BnHex(br.get()));
      ASSERT_TRUE(TBigInt::Shr(r, a, n));
      BN_rshift(br.get(), ba.get(), static_cast<int>(n));
      EXPECT_EQ(HexOf(r), BnHex(br.get()));
    }
  }
}

TEST_F(BigIntOpenSslTest, BytesTextAndToStringAgreeWithOpenSsl) {
  for (int rep = 0; rep < 100; ++rep) {
    std::vector<unsigned char> bytes(rng() % 300);
    for (auto& b : bytes) b = static_cast<unsigned char>(rng() % 3 ? rng() : 0);
    Bn ref(BN_bin2bn(bytes.data(), static_cast<int>(bytes.size()), nullptr));
    const TBigInt v(bytes.data(), static_cast<unsigned>(bytes.size()));
    EXPECT_EQ(HexOf(v), BnHex(ref.get()));
    EXPECT_EQ(Narrow(v.ToString()), BnHex(ref.get()));
    EXPECT_EQ(HexOf(Hex(BnHex(ref.get()))), BnHex(ref.get()));
  }
}
#endif  // OVRA_HAVE_OPENSSL

// --- Allocation failures -------------------------------------------------------

// Runs op with the 1st, 2nd, ... allocation failing until it succeeds; every
// failing run must return false and leak nothing once the objects are gone.
template <typename Op>
int CountFailuresUntilSuccess(Op op) {
  for (int n = 1; n < 20; ++n) {
    const long live = Stats().live;
    bool ok;
    {
      FailNthAllocation(n);
      ok = op();
      StopFailing();
    }
    EXPECT_EQ(Stats().live, live) << "leak after failing allocation " << n;
    if (ok) return n - 1;
  }
  ADD_FAILURE() << "never succeeded";
  return -1;
}

TEST(BigIntAllocationTest, ConstructorsGiveZeroWhenTheWordsCannotBeAllocated) {
  ScopedCountingLibrary lib;
  ASSERT_TRUE(lib.started());
  const long baseline = Stats().live;  // what start-up itself keeps allocated
  {
    const unsigned char bytes[] = {1, 2, 3, 4, 5};
    const std::vector<unsigned short> text = Wide("ABCDEF0123");
    TBigInt source = Hex("123456789");
    FailNthAllocation(1, true);
    TBigInt fromInt(5);
    TBigInt fromText(text.data());
    TBigInt fromBytes(bytes, 5);
    TBigInt copy(source);
    TBigInt assigned;
    assigned = source;
    StopFailing();
    EXPECT_TRUE(IsZero(fromInt));
    EXPECT_TRUE(IsZero(fromText));
    EXPECT_TRUE(IsZero(fromBytes));
    EXPECT_TRUE(IsZero(copy));
    EXPECT_TRUE(IsZero(assigned));
    TBigInt v = Hex("1");
    FailNthAllocation(1);
    EXPECT_FALSE(v.AdjustBuffer(9, true));
    StopFailing();
    EXPECT_EQ(HexOf(v), "1");
  }
  EXPECT_EQ(Stats().live, baseline);
}

TEST(BigIntAllocationTest, EveryOperationFailsWithFalseAndLeaksNothing) {
  ScopedCountingLibrary lib;
  ASSERT_TRUE(lib.started());
  const long baseline = Stats().live;  // what start-up itself keeps allocated
  {
    const TBigInt a = Hex("FFFFFFFF 12345678 9ABCDEF0 0FEDCBA9 87654321");
    const TBigInt b = Hex("1 00000001 80000000");
    const TBigInt m = Hex("DEADBEEF 01234567");
    TBigInt expected;
    ASSERT_TRUE(TBigInt::MulMod(expected, a, b, m));

    EXPECT_EQ(CountFailuresUntilSuccess([&] { TBigInt r; return TBigInt::Add(r, a, b); }), 1);
    EXPECT_EQ(CountFailuresUntilSuccess([&] { TBigInt r; return TBigInt::Sub(r, a, b); }), 1);
    EXPECT_EQ(CountFailuresUntilSuccess([&] { TBigInt r; return TBigInt::Mul(r, a, b); }), 1);
    EXPECT_EQ(CountFailuresUntilSuccess([&] {
                TBigInt q, r;
                return TBigInt::Div(q, r, a, b);
              }),
              3);
    EXPECT_EQ(CountFailuresUntilSuccess([&] {
                TBigInt r;
                const bool ok = TBigInt::MulMod(r, a, b, m);
                EXPECT_TRUE(!ok || TBigInt::Cmp(r, expected) == 0);
                return ok;
              }),
              4);
    EXPECT_EQ(CountFailuresUntilSuccess([&] { TBigInt r; return TBigInt::Shl(r, a, 77); }), 1);
    EXPECT_EQ(CountFailuresUntilSuccess([&] { TBigInt r; return TBigInt::Shr(r, a, 33); }), 1);
    // An operand that is also the result goes through a temporary.
    TBigInt r(a);
    FailNthAllocation(1);
    EXPECT_FALSE(TBigInt::Add(r, r, b));
    StopFailing();
  }
  EXPECT_EQ(Stats().live, baseline);
}

TEST(BigIntAllocationTest, ExpModReturnsTrueWithAZeroResultWhenBuffersFail) {
  ScopedCountingLibrary lib;
  ASSERT_TRUE(lib.started());
  const long baseline = Stats().live;  // what start-up itself keeps allocated
  {
    const TBigInt base = Hex("123456789ABCDEF");
    const TBigInt e = Hex("10001");
    const TBigInt m = Hex("F123456789ABCDEF 0123456789ABCDEF");
    TBigInt expected;
    ASSERT_TRUE(TBigInt::ExpMod(expected, base, e, m));
    ASSERT_FALSE(IsZero(expected));
    for (int n = 1; n <= 2; ++n) {
      const long live = Stats().live;
      {
        TBigInt r;
        FailNthAllocation(n);
        EXPECT_TRUE(TBigInt::ExpMod(r, base, e, m));
        StopFailing();
        EXPECT_TRUE(IsZero(r)) << "failing allocation " << n;
      }
      EXPECT_EQ(Stats().live, live);
    }
    TBigInt r;
    FailNthAllocation(3, true);
    EXPECT_TRUE(TBigInt::ExpMod(r, base, e, m));
    StopFailing();
    EXPECT_EQ(TBigInt::Cmp(r, expected), 0);
  }
  EXPECT_EQ(Stats().live, baseline);
}

TEST(BigIntAllocationTest, ExpModMakesTwoAllocationsWhateverTheExponent) {
  // The work buffers are sized once, so a long exponent reallocates nothing.
  ScopedCountingLibrary lib;
  ASSERT_TRUE(lib.started());
  const long baseline = Stats().live;  // what start-up itself keeps allocated
  {
    std::mt19937 rng(7);
    const TBigInt m = RandomValue(rng, 64), base = RandomValue(rng, 63), e = RandomValue(rng, 64);
    TBigInt r;
    const long before = Stats().allocs + Stats().reallocs;
    EXPECT_TRUE(TBigInt::ExpMod(r, base, e, m));
    EXPECT_EQ(Stats().allocs + Stats().reallocs - before, 2);
  }
  EXPECT_EQ(Stats().live, baseline);
}

// --- Allocation failures ---------------------------------------------------
// Each operation runs with its 1st, 2nd, ... allocation failing, alone and
// with every later one (AllocSweep.h), until it goes through; every run must
// give the documented out-of-memory result and leak nothing. The N each sweep
// reaches is printed ("[ SWEEP    ]").

class AllocSweepBigInt : public SweepTest {};

// A value is consistent when its top word in use is not zero.
bool IsNormalised(const TBigInt& v) {
  const std::vector<unsigned char> bytes = Bytes(v);
  return bytes.size() < 4 || bytes[0] || bytes[1] || bytes[2] || bytes[3];
}

// 40 and 17 words, and a 16-word odd modulus.
const std::string kA =
    "F1E2D3C4B5A69788796A5B4C3D2E1F00112233445566778899AABBCCDDEEFF00"
    "0123456789ABCDEF0123456789ABCDEF0123456789ABCDEF0123456789ABCDEF"
    "FEDCBA9876543210FEDCBA9876543210FEDCBA9876543210FEDCBA9876543210"
    "8000000000000000000000000000000000000000000000000000000000000001"
    "13579BDF2468ACE013579BDF2468ACE013579BDF2468ACE013579BDF2468ACE0";
const std::string kB =
    "ABCDEF0123456789ABCDEF0123456789ABCDEF0123456789ABCDEF0123456789"
    "00000000FFFFFFFF00000000FFFFFFFF00000000FFFFFFFF00000000FFFFFFFF"
    "DEADBEEF";
const std::string kM =
    "C65510F78334AFC57230DFE102A95C65F0D66C1A214FDB3FF7D377C859F9DDD6"
    "4BCA15F8D7517C69502EF114B0D4B794EDAEC801BF3E01C50B020FEFEB3CF543";

TEST_F(AllocSweepBigInt, ConstructionAndTextGiveZeroOrEmptyAtEveryFailure) {
  const TBigInt a = Hex(kA);
  ASSERT_EQ(HexOf(a), kA);
  auto sweepValue = [](const std::string& what, auto make, const std::string& expected) {
    SweepBothModes(what, [&](SweepRun& run) {
      run.Arm();
      const TBigInt v = make();
      EXPECT_EQ(HexOf(v), run.Disarm() ? "0" : expected) << what << " n=" << run.n();
    });
  };
  sweepValue("TBigInt(const TBigInt&)", [&] { return TBigInt(a); }, kA);
  sweepValue("TBigInt(int)", [] { return TBigInt(-2); }, "FFFFFFFE");
  sweepValue("TBigInt(text)", [] { return Hex(kB); }, kB);
  const std::vector<unsigned char> bytes = ovra_test::FromHex(kB);
  sweepValue("TBigInt(bytes)",
             [&] { return TBigInt(bytes.data(), static_cast<unsigned>(bytes.size())); }, kB);
  SweepBothModes("TBigInt::operator=", [&](SweepRun& run) {
    TBigInt v(5);
    run.Arm();
    v = a;
    EXPECT_EQ(HexOf(v), run.Disarm() ? "0" : kA);
  });
  SweepBothModes("TBigInt::ToString", [&](SweepRun& run) {
    run.Arm();
    const TBstr text = a.ToString();
    const bool failed = run.Disarm();
    EXPECT_EQ(ovra_test::ToU16(text.GetString(), text.GetLength()), failed ? u"" : std::u16string(kA.begin(), kA.end()));
  });
  SweepBothModes("TBigInt::AdjustBuffer", [&](SweepRun& run) {
    TBigInt v(7);
    run.Arm();
    const bool grown = v.AdjustBuffer(20, true);
    const bool failed = run.Disarm();
    EXPECT_EQ(grown, !failed);
    v.FixLength();
    EXPECT_EQ(HexOf(v), "7");
  });
}

// Sweeps one arithmetic operation, result in a separate object and, where the
// operation allows it, in an operand. While an allocation fails the result
// is false and every object keeps its value, the result included.
template <class Operation>
void SweepArithmetic(const std::string& what, Operation operation, const std::string& expected) {
  SweepBothModes(what, [&](SweepRun& run) {
    const TBigInt a = Hex(kA), b = Hex(kB), m = Hex(kM);
    TBigInt r(3);
    run.Arm();
    const bool ok = operation(r, a, b, m);
    const bool failed = run.Disarm();
    EXPECT_EQ(ok, !failed) << what << " n=" << run.n();
    EXPECT_TRUE(IsNormalised(r)) << what << " n=" << run.n();
    if (failed) {
      EXPECT_EQ(HexOf(r), "3") << what << " n=" << run.n();
    } else {
      EXPECT_EQ(HexOf(r), expected) << what;
    }
    EXPECT_EQ(HexOf(a), kA);
    EXPECT_EQ(HexOf(b), kB);
  });
  SweepBothModes(what + " (in place)", [&](SweepRun& run) {
    TBigInt a = Hex(kA);
    const TBigInt b = Hex(kB), m = Hex(kM);
    run.Arm();
    const bool ok = operation(a, a, b, m);
    const bool failed = run.Disarm();
    EXPECT_EQ(ok, !failed) << what << " n=" << run.n();
    EXPECT_TRUE(IsNormalised(a)) << what << " n=" << run.n();
    if (failed) {
      EXPECT_EQ(HexOf(a), kA) << what << " n=" << run.n();
    } else {
      EXPECT_EQ(HexOf(a), expected) << what;
    }
  });
}

TEST_F(AllocSweepBigInt, ArithmeticReturnsFalseAndKeepsEveryValueAtEveryFailure) {
  // The expected values are worked out once, with nothing failing.
  const TBigInt a = Hex(kA), b = Hex(kB), m = Hex(kM);
  TBigInt sum, difference, product, quotient, remainder, productMod, left, right, power;
  ASSERT_TRUE(TBigInt::Add(sum, a, b));
  ASSERT_TRUE(TBigInt::Sub(difference, a, b));
  ASSERT_TRUE(TBigInt::Mul(product, a, b));
  ASSERT_TRUE(TBigInt::Div(quotient, remainder, a, b));
  ASSERT_TRUE(TBigInt::MulMod(productMod, a, b, m));
  ASSERT_TRUE(TBigInt::Shl(left, a, 77));
  ASSERT_TRUE(TBigInt::Shr(right, a, 77));
  ASSERT_TRUE(TBigInt::ExpMod(power, b, TBigInt(65537), m));
  // Cross-checks, so that the expectations are right in themselves.
  TBigInt check;
  ASSERT_TRUE(TBigInt::Sub(check, sum, b));
  EXPECT_EQ(HexOf(check), kA);
  ASSERT_TRUE(TBigInt::Mul(check, quotient, b));
  ASSERT_TRUE(TBigInt::Add(check, check, remainder));
  EXPECT_EQ(HexOf(check), kA);
  ASSERT_TRUE(TBigInt::Shr(check, left, 77));
  EXPECT_EQ(HexOf(check), kA);

  using B = const TBigInt&;
  SweepArithmetic("TBigInt::Add", [](TBigInt& r, B x, B y, B) { return TBigInt::Add(r, x, y); },
                  HexOf(sum));
  SweepArithmetic("TBigInt::Sub", [](TBigInt& r, B x, B y, B) { return TBigInt::Sub(r, x, y); },
                  HexOf(difference));
  SweepArithmetic("TBigInt::Mul", [](TBigInt& r, B x, B y, B) { return TBigInt::Mul(r, x, y); },
                  HexOf(product));
  SweepArithmetic("TBigInt::MulMod",
                  [](TBigInt& r, B x, B y, B z) { return TBigInt::MulMod(r, x, y, z); },
                  HexOf(productMod));
  SweepArithmetic("TBigInt::Shl", [](TBigInt& r, B x, B, B) { return TBigInt::Shl(r, x, 77); },
                  HexOf(left));
  SweepArithmetic("TBigInt::Shr", [](TBigInt& r, B x, B, B) { return TBigInt::Shr(r, x, 77); },
                  HexOf(right));
  // Div has two results, which may not be the same object.
  SweepBothModes("TBigInt::Div", [&](SweepRun& run) {
    const TBigInt x = Hex(kA), y = Hex(kB);
    TBigInt q(3), r(4);
    run.Arm();
    const bool ok = TBigInt::Div(q, r, x, y);
    const bool failed = run.Disarm();
    EXPECT_EQ(ok, !failed) << "n=" << run.n();
    EXPECT_TRUE(IsNormalised(q)) << "n=" << run.n();
    EXPECT_TRUE(IsNormalised(r)) << "n=" << run.n();
    if (failed) {
      EXPECT_EQ(HexOf(q), "3") << "n=" << run.n();
      EXPECT_EQ(HexOf(r), "4") << "n=" << run.n();
    } else {
      EXPECT_EQ(HexOf(q), HexOf(quotient));
      EXPECT_EQ(HexOf(r), HexOf(remainder));
    }
  });
  // One result with room already, the other one growing: neither changes
  // before both have room.
  for (bool roomyQuotient : {true, false}) {
    SweepBothModes(std::string("TBigInt::Div (") + (roomyQuotient ? "q" : "r") + " has room)",
                   [&](SweepRun& run) {
      const TBigInt x = Hex(kA), y = Hex(kB);
      TBigInt q(3), r(4);
      ASSERT_TRUE((roomyQuotient ? q : r).AdjustBuffer(64, false));
      (roomyQuotient ? q : r) = TBigInt(roomyQuotient ? 3 : 4);
      run.Arm();
      const bool ok = TBigInt::Div(q, r, x, y);
      const bool failed = run.Disarm();
      EXPECT_EQ(ok, !failed) << "n=" << run.n();
      EXPECT_EQ(HexOf(q), failed ? "3" : HexOf(quotient)) << "n=" << run.n();
      EXPECT_EQ(HexOf(r), failed ? "4" : HexOf(remainder)) << "n=" << run.n();
    });
  }
  SweepBothModes("TBigInt::Div (in place)", [&](SweepRun& run) {
    TBigInt x = Hex(kA), y = Hex(kB);
    run.Arm();
    const bool ok = TBigInt::Div(x, y, x, y);
    const bool failed = run.Disarm();
    EXPECT_EQ(ok, !failed) << "n=" << run.n();
    if (failed) {
      EXPECT_EQ(HexOf(x), kA);
      EXPECT_EQ(HexOf(y), kB);
    } else {
      EXPECT_EQ(HexOf(x), HexOf(quotient));
      EXPECT_EQ(HexOf(y), HexOf(remainder));
    }
  });
  // ExpMod reports true whatever happens; a failure shows as zero.
  SweepBothModes("TBigInt::ExpMod", [&](SweepRun& run) {
    const TBigInt base = Hex(kB), e(65537), mod = Hex(kM);
    TBigInt r(3);
    run.Arm();
    EXPECT_TRUE(TBigInt::ExpMod(r, base, e, mod));
    EXPECT_EQ(HexOf(r), run.Disarm() ? "0" : HexOf(power)) << "n=" << run.n();
  });
  SweepBothModes("TBigInt::ExpMod (in place)", [&](SweepRun& run) {
    TBigInt base = Hex(kB);
    const TBigInt e(65537), mod = Hex(kM);
    run.Arm();
    EXPECT_TRUE(TBigInt::ExpMod(base, base, e, mod));
    EXPECT_EQ(HexOf(base), run.Disarm() ? "0" : HexOf(power)) << "n=" << run.n();
  });
}

}  // namespace
