// Tests of counted string buffers, the UTF-8 conversions, TConvertBuffer and
// the construction, ownership, access, assignment, appending and comparison
// of TBstr. Editing, searching and formatting are in OvraBstrEditTest.cpp.
#include "OvraBstr.h"

#include <gtest/gtest.h>
#include <limits.h>
#include <stdint.h>
#include <string.h>
#if !defined(_WIN32)
#include <iconv.h>
#endif

#include <random>
#include <string>
#include <vector>

#include "OvraCrt.h"
#include "RepeatedMapping.h"
#include "TestBstr.h"

using namespace ovra_test;

namespace {

// The length field in front of a buffer's text.
uint32_t LengthField(const unsigned short* buffer) {
  uint32_t bytes;
  memcpy(&bytes, reinterpret_cast<const unsigned char*>(buffer) - 4, sizeof bytes);
  return bytes;
}

std::string Bytes(std::initializer_list<int> values) {
  std::string out;
  for (int v : values) out.push_back(static_cast<char>(v));
  return out;
}

// UTF-8 of one code unit as the encoding rules define it (at most 3 bytes,
// surrogates encoded on their own).
std::string EncodeUnit(unsigned c) {
  if (c < 0x80) return Bytes({static_cast<int>(c)});
  if (c < 0x800) return Bytes({static_cast<int>(0xC0 | (c >> 6)), static_cast<int>(0x80 | (c & 0x3F))});
  return Bytes({static_cast<int>(0xE0 | (c >> 12)), static_cast<int>(0x80 | ((c >> 6) & 0x3F)),
                static_cast<int>(0x80 | (c & 0x3F))});
}

// The encoder's rules written out plainly, one character and one room test at
// a time, for differential checks against the library's chunked code.
std::string ReferenceToUtf8(const std::vector<unsigned short>& in, int size) {
  std::string out;
  for (unsigned short c : in) {
    if (static_cast<int>(out.size()) >= size) break;
    out += EncodeUnit(c);
  }
  return out;
}

// The decoder's rules written out plainly.
std::vector<unsigned short> ReferenceFromUtf8(const std::string& in, int size) {
  std::vector<unsigned short> out;
  size_t i = 0;
  while (i < in.size()) {
    if (static_cast<int>(out.size()) >= size) break;
    const unsigned b = static_cast<unsigned char>(in[i++]);
    unsigned c = b;
    if (b & 0x80) {
      if (i >= in.size()) break;
      const unsigned second = static_cast<unsigned char>(in[i++]);
      if (b & 0x20) {
        if (i >= in.size()) break;
        const unsigned third = static_cast<unsigned char>(in[i++]);
        c = (((b & 0x1F) * 4096) | ((second & 0x3F) * 64) | (third & 0x3F)) & 0xFFFF;
      } else {
        c = ((b & 0x1F) * 64) | (second & 0x3F);
      }
    }
    out.push_back(static_cast<unsigned short>(c));
  }
  return out;
}

std::vector<unsigned short> Decode(const std::string& bytes, int size = 1000) {
  std::vector<unsigned short> out(static_cast<size_t>(size) + 8, 0xBEEF);
  const int n = OvraUtf8ToString(bytes.data(), static_cast<int>(bytes.size()), out.data(), size);
  for (size_t i = static_cast<size_t>(n); i < out.size(); ++i) {
    EXPECT_EQ(out[i], 0xBEEF) << "written past the characters reported, at " << i;
  }
  out.resize(static_cast<size_t>(n));
  return out;
}

std::string Encode(const std::vector<unsigned short>& units, int size = 1000) {
  std::string out(static_cast<size_t>(size) + 8, '\x5A');
  const int n = OvraStringToUtf8(units.data(), static_cast<int>(units.size()), &out[0], size);
  for (size_t i = static_cast<size_t>(n); i < out.size(); ++i) {
    EXPECT_EQ(out[i], '\x5A') << "written past the bytes reported, at " << i;
  }
  out.resize(static_cast<size_t>(n));
  return out;
}

using Units = std::vector<unsigned short>;

// ===========================================================================
// Counted string buffers
// ===========================================================================

using BufferTest = StringTest;

TEST_F(BufferTest, AllocStringLenOfZeroCharactersIsNullAndAllocatesNothing) {
  Mark();
  EXPECT_EQ(OvraAllocStringLen(W(u"abc"), 0), nullptr);
  EXPECT_EQ(OvraAllocStringLen(nullptr, 0), nullptr);
  EXPECT_TRUE(Requests().empty());
}

TEST_F(BufferTest, NullIsTheEmptyBufferForEveryQuery) {
  EXPECT_EQ(OvraStringLen(nullptr), 0u);
  EXPECT_EQ(OvraStringByteLen(nullptr), 0u);
  EXPECT_EQ(OvraStringUtf8ByteLen(nullptr), 0);
  OvraFreeString(nullptr);  // ignored
}

TEST_F(BufferTest, ThreeCharacterBufferHasLength3ByteLength6AndATwelveByteBlock) {
  Mark();
  unsigned short* b = OvraAllocStringLen(W(u"xyz"), 3);
  ASSERT_NE(b, nullptr);
  EXPECT_EQ(OvraStringLen(b), 3u);
  EXPECT_EQ(OvraStringByteLen(b), 6u);
  ASSERT_EQ(Requests().size(), 1u);
  EXPECT_EQ(Requests()[0], 12u);
  EXPECT_EQ(LengthField(b), 6u);
  EXPECT_EQ(b[3], 0);
  OvraFreeString(b);
}

TEST_F(BufferTest, AllocStringOfTwoCharactersStoresByteLengthFourAndATerminator) {
  unsigned short* b = OvraAllocString(W(u"hi"));
  ASSERT_NE(b, nullptr);
  EXPECT_EQ(LengthField(b), 4u);
  EXPECT_EQ(b[0], u'h');
  EXPECT_EQ(b[1], u'i');
  EXPECT_EQ(b[2], 0);
  OvraFreeString(b);
}

TEST_F(BufferTest, AllocStringOfNullOrEmptyTextIsNull) {
  Mark();
  EXPECT_EQ(OvraAllocString(nullptr), nullptr);
  EXPECT_EQ(OvraAllocString(W(u"")), nullptr);
  EXPECT_TRUE(Requests().empty());
}

TEST_F(BufferTest, AllocStringLenCopiesUnterminatedSourcesAndKeepsZeroCharacters) {
  const unsigned short source[] = {'a', 0, 'b', 'c'};  // no terminator
  unsigned short* b = OvraAllocStringLen(source, 4);
  ASSERT_NE(b, nullptr);
  EXPECT_EQ(OvraStringLen(b), 4u);
  EXPECT_EQ(ToU16(b, 5), std::u16string(u"a\0bc\0", 5));
  // The length field, not the terminator, gives the length.
  EXPECT_EQ(ucslen(b), 1u);
  OvraFreeString(b);
}

TEST_F(BufferTest, AllocStringLenWithNullSourceLeavesTheTextToTheCallerAndTerminatesIt) {
  Mark();
  unsigned short* b = OvraAllocStringLen(nullptr, 5);
  ASSERT_NE(b, nullptr);
  EXPECT_EQ(Requests(), std::vector<size_t>{16});
  EXPECT_EQ(OvraStringLen(b), 5u);
  EXPECT_EQ(b[5], 0);
  for (int i = 0; i < 5; ++i) b[i] = static_cast<unsigned short>('0' + i);
  EXPECT_EQ(ToU16(b), u"01234");
  OvraFreeString(b);
}

TEST_F(BufferTest, AllocStringLenRefusesCountsWhoseByteLengthCannotBeStored) {
  Mark();
  EXPECT_EQ(OvraAllocStringLen(nullptr, kMaxStringLength + 1), nullptr);
  EXPECT_EQ(OvraAllocStringLen(nullptr, 0x80000000u), nullptr);  // bytes would wrap to 0
  EXPECT_EQ(OvraAllocStringLen(nullptr, 0x80000001u), nullptr);  // bytes would wrap to 2
  EXPECT_EQ(OvraAllocStringLen(nullptr, 0xFFFFFFFFu), nullptr);
  EXPECT_TRUE(Requests().empty()) << "nothing may be requested for a count that cannot be held";
}

TEST_F(BufferTest, AllocationFailureGivesNull) {
  FailNthAllocation(1);
  EXPECT_EQ(OvraAllocStringLen(W(u"abc"), 3), nullptr);
  FailNthAllocation(1);
  EXPECT_EQ(OvraAllocString(W(u"abc")), nullptr);
}

TEST_F(BufferTest, FreeStringReleasesTheBlockThatStartsFourBytesEarlier) {
  unsigned short* b = OvraAllocString(W(u"abc"));
  ASSERT_NE(b, nullptr);
  Mark();
  OvraFreeString(b);
  EXPECT_TRUE(Freed(reinterpret_cast<unsigned char*>(b) - 4));
}

TEST_F(BufferTest, StringLenTakesTheLengthFieldShiftedRightByOne) {
  unsigned short* b = OvraAllocStringLen(W(u"abcd"), 4);
  ASSERT_NE(b, nullptr);
  // An odd byte count (never made by the library) loses its low bit.
  uint32_t odd = 7;
  memcpy(reinterpret_cast<unsigned char*>(b) - 4, &odd, 4);
  EXPECT_EQ(OvraStringLen(b), 3u);
  EXPECT_EQ(OvraStringByteLen(b), 6u);
  OvraFreeString(b);
}

// ===========================================================================
// UTF-8
// ===========================================================================

TEST(Utf8ByteLenTest, CountsOneTwoOrThreeBytesPerCharacter) {
  EXPECT_EQ(OvraStringUtf8ByteLen(W(u"")), 0);
  EXPECT_EQ(OvraStringUtf8ByteLen(W(u"\u007F")), 1);
  EXPECT_EQ(OvraStringUtf8ByteLen(W(u"\u0080")), 2);
  EXPECT_EQ(OvraStringUtf8ByteLen(W(u"\u07FF")), 2);
  EXPECT_EQ(OvraStringUtf8ByteLen(W(u"\u0800")), 3);
  EXPECT_EQ(OvraStringUtf8ByteLen(W(u"\uFFFF")), 3);
  EXPECT_EQ(OvraStringUtf8ByteLen(W(u"a\u00E9\u20AC")), 6);
  const unsigned short surrogates[] = {0xD83D, 0xDE00, 0};  // not paired: 3 + 3
  EXPECT_EQ(OvraStringUtf8ByteLen(surrogates), 6);
}

TEST(Utf8ByteLenTest, StopsAtTheFirstZeroCharacterWhateverTheLengthField) {
  const unsigned short text[] = {'a', 'b', 0, 0x20AC, 'c'};
  unsigned short* b = OvraAllocStringLen(text, 5);
  ASSERT_NE(b, nullptr);
  EXPECT_EQ(OvraStringUtf8ByteLen(b), 2);
  OvraFreeString(b);
}

// A text of 716 million three-byte characters needs more bytes than an int
// holds. It is built without that much memory: one block of characters mapped
// again and again, then a page with the terminator.
TEST(Utf8ByteLenTest, SaturatesAtIntMaxInsteadOfWrapping) {
  if (sizeof(void*) < 8) GTEST_SKIP() << "needs a 64-bit address space";
  OVRA_REQUIRE_REPEATED_MAPPING();
  const size_t block = 1 << 20;
  const size_t blocks = (static_cast<size_t>(INT_MAX) / 3 + 1) * 2 / block + 1;
  const size_t page = 4096;
  const unsigned short kThreeByte = 0x0800;
  const std::vector<unsigned short> terminators(page / 2, 0);
  RepeatedMapping source(&kThreeByte, 2, blocks * block + page, terminators.data(), page, false);
  ASSERT_NE(source.Data(), nullptr);
  const unsigned short* text = reinterpret_cast<const unsigned short*>(source.Data());
  EXPECT_GT(blocks * block / 2 * 3, static_cast<size_t>(INT_MAX));
  EXPECT_EQ(OvraStringUtf8ByteLen(text), INT_MAX);
  // A shorter text from the same mapping is still counted exactly.
  EXPECT_EQ(OvraStringUtf8ByteLen(text + blocks * block / 2 - 1000), 3000);
}

// 715,827,883 three-byte characters need 2,147,483,649 bytes: with a size of
// INT_MAX the last one would start below the size and end beyond INT_MAX.
// Source and destination are ranges of gigabytes backed by one megabyte.
TEST(Utf8EncodeTest, ResultNeverPassesIntMaxWhenTheSizeIsNearIt) {
  if (sizeof(void*) < 8) GTEST_SKIP() << "needs a 64-bit address space";
  if (kAddressSanitized) GTEST_SKIP() << "gigabytes of checked accesses: run uninstrumented";
  OVRA_REQUIRE_REPEATED_MAPPING();
  const unsigned short kThreeByte = 0x0800;
  const size_t count = static_cast<size_t>(INT_MAX) / 3 + 1;
  RepeatedMapping source(&kThreeByte, 2, count * 2, nullptr, 0, false);
  const unsigned char zero = 0;
  RepeatedMapping dest(&zero, 1, static_cast<size_t>(INT_MAX) + 3, nullptr, 0, true);
  ASSERT_NE(source.Data(), nullptr);
  ASSERT_NE(dest.Data(), nullptr);
  const unsigned short* text = reinterpret_cast<const unsigned short*>(source.Data());
  char* out = reinterpret_cast<char*>(dest.Data());
  // Whole characters only, and the count is what was written.
  EXPECT_EQ(OvraStringToUtf8(text, static_cast<int>(count), out, INT_MAX), INT_MAX - 1);
  EXPECT_EQ(std::string(out + INT_MAX - 4, 3), Bytes({0xE0, 0xA0, 0x80}));
}

// INT_MAX ASCII bytes decode to INT_MAX characters: the largest count the
// result carries, exactly.
TEST(Utf8DecodeTest, DecodesIntMaxBytesIntoIntMaxCharacters) {
  if (sizeof(void*) < 8) GTEST_SKIP() << "needs a 64-bit address space";
  if (kAddressSanitized) GTEST_SKIP() << "gigabytes of checked accesses: run uninstrumented";
  OVRA_REQUIRE_REPEATED_MAPPING();
  const char letter = 'q';
  const char tail[4] = {'q', 'q', 'q', 'z'};
  RepeatedMapping source(&letter, 1, static_cast<size_t>(INT_MAX) + 1, tail, 4, false);
  const unsigned short zero = 0;
  RepeatedMapping dest(&zero, 2, (static_cast<size_t>(INT_MAX) + 1) * 2, nullptr, 0, true);
  ASSERT_NE(source.Data(), nullptr);
  ASSERT_NE(dest.Data(), nullptr);
  const char* text = reinterpret_cast<const char*>(source.Data());
  unsigned short* out = reinterpret_cast<unsigned short*>(dest.Data());
  // The last byte of the range ("z") lies beyond the count and is not read.
  EXPECT_EQ(OvraUtf8ToString(text, INT_MAX, out, INT_MAX), INT_MAX);
  EXPECT_EQ(out[INT_MAX - 1], 'q');
}

TEST(Utf8EncodeTest, EuroSignWithRoomForOneByteIsWrittenWhole) {
  const unsigned short euro = 0x20AC;
  char out[8] = {0};
  EXPECT_EQ(OvraStringToUtf8(&euro, 1, out, 1), 3);
  EXPECT_EQ(std::string(out, 3), Bytes({0xE2, 0x82, 0xAC}));
}

TEST(Utf8EncodeTest, RoomIsTestedOnceBeforeEachCharacter) {
  const Units text = {'a', 0xE9, 0x20AC, 'b'};  // 1 + 2 + 3 + 1 bytes
  EXPECT_EQ(Encode(text, 0), "");
  EXPECT_EQ(Encode(text, 1), "a");
  EXPECT_EQ(Encode(text, 2), "a\xC3\xA9");            // started at 1 < 2
  EXPECT_EQ(Encode(text, 3), "a\xC3\xA9");  // 3 bytes written: not below 3
  EXPECT_EQ(Encode(text, 4), "a\xC3\xA9\xE2\x82\xAC");  // started at 3, ends at 6
  EXPECT_EQ(Encode(text, 6), "a\xC3\xA9\xE2\x82\xAC");
  EXPECT_EQ(Encode(text, 7), "a\xC3\xA9\xE2\x82\xAC" "b");
}

TEST(Utf8EncodeTest, CountBelowOneOrNullPointersWriteNothing) {
  const unsigned short text[] = {'a', 'b'};
  char out[4] = {'x', 'x', 'x', 'x'};
  EXPECT_EQ(OvraStringToUtf8(text, 0, out, 4), 0);
  EXPECT_EQ(OvraStringToUtf8(text, -1, out, 4), 0);  // -1 is not "up to the terminator" here
  EXPECT_EQ(OvraStringToUtf8(nullptr, 2, out, 4), 0);
  EXPECT_EQ(OvraStringToUtf8(text, 2, nullptr, 4), 0);
  EXPECT_EQ(OvraStringToUtf8(text, 2, out, -5), 0);
  EXPECT_EQ(std::string(out, 4), "xxxx");
}

TEST(Utf8EncodeTest, ZeroCharactersInsideTheCountBecomeZeroBytesAndNoTerminatorIsAdded) {
  EXPECT_EQ(Encode({'a', 0, 'b'}), std::string("a\0b", 3));
}

TEST(Utf8EncodeTest, SurrogatesAreNotPairedButEncodedOneByOne) {
  EXPECT_EQ(Encode({0xD83D, 0xDE00}), Bytes({0xED, 0xA0, 0xBD, 0xED, 0xB8, 0x80}));
}

TEST(Utf8DecodeTest, TwoByteSequenceGivesItsCharacter) {
  EXPECT_EQ(Decode("\xC3\xA9"), Units{0xE9});
}

TEST(Utf8DecodeTest, LoneLeadByteGivesNothing) {
  EXPECT_EQ(Decode("\xC3"), Units{});
  EXPECT_EQ(Decode("ab\xE2\x82"), (Units{'a', 'b'}));  // incomplete 3-byte sequence dropped
  EXPECT_EQ(Decode("ab\xE2"), (Units{'a', 'b'}));
}

TEST(Utf8DecodeTest, FourByteSequenceIsNotUnderstood) {
  // F0 is read as a 3-byte lead whose bit 4 falls outside 16 bits; the fourth
  // byte is then a lead with nothing after it.
  const Units got = Decode("\xF0\x9F\x98\x80");
  EXPECT_EQ(got, Units{0x07D8});
  EXPECT_EQ(Decode("\xF0\x9F\x98\x80z"), (Units{0x07D8, (0x00 << 6) | ('z' & 0x3F)}));
}

TEST(Utf8DecodeTest, ContinuationBytesAreNotChecked) {
  EXPECT_EQ(Decode("\xC3\x41"), Units{(3 << 6) | 0x01});
  EXPECT_EQ(Decode("\xE2\xC2\xFF"), Units{(2 << 12) | (2 << 6) | 0x3F});
}

TEST(Utf8DecodeTest, StrayContinuationBytesAreLeads) {
  // 0x80..0x9F: two-byte leads; 0xA0..0xBF: three-byte leads.
  EXPECT_EQ(Decode("\x85\x41"), Units{(5 << 6) | 0x01});
  EXPECT_EQ(Decode("\x9F\xBF"), Units{0x7FF});
  EXPECT_EQ(Decode("\xA1\x80\x80"), Units{0x1000});
  EXPECT_EQ(Decode("\xBF\xBF\xBF"), Units{0xFFFF});
}

TEST(Utf8DecodeTest, LeadsF0ToFFKeepTheLowSixteenBits) {
  EXPECT_EQ(Decode("\xF0\x90\x80"), Units{0x0400});  // 0x10400 cut to 16 bits
  EXPECT_EQ(Decode("\xF0\x80\x80"), Units{0x0000});
  EXPECT_EQ(Decode("\xFF\xBF\xBF"), Units{0xFFFF});
  EXPECT_EQ(Decode("\xF8\x81\x82"), Units{(8 << 12) | (1 << 6) | 2});
}

TEST(Utf8DecodeTest, OverlongFormsAreAccepted) {
  EXPECT_EQ(Decode("\xC0\x80"), Units{0});
  EXPECT_EQ(Decode("\xC1\xBF"), Units{0x7F});
  EXPECT_EQ(Decode("\xE0\x80\xAF"), Units{0x2F});
}

TEST(Utf8DecodeTest, StopsWhenTheRoomIsFull) {
  EXPECT_EQ(Decode("abc", 2), (Units{'a', 'b'}));
  EXPECT_EQ(Decode("\xC3\xA9\xC3\xA9\xC3\xA9", 1), Units{0xE9});
  EXPECT_EQ(Decode("abc", 0), Units{});
}

TEST(Utf8DecodeTest, CountBelowOneOrNullPointersWriteNothing) {
  unsigned short out[4] = {7, 7, 7, 7};
  EXPECT_EQ(OvraUtf8ToString("ab", 0, out, 4), 0);
  EXPECT_EQ(OvraUtf8ToString("ab", -1, out, 4), 0);
  EXPECT_EQ(OvraUtf8ToString(nullptr, 2, out, 4), 0);
  EXPECT_EQ(OvraUtf8ToString("ab", 2, nullptr, 4), 0);
  EXPECT_EQ(OvraUtf8ToString("ab", 2, out, -1), 0);
  EXPECT_EQ(out[0], 7);
}

TEST(Utf8DecodeTest, ZeroBytesBecomeZeroCharactersWithinTheCount) {
  EXPECT_EQ(Decode(std::string("a\0b", 3)), (Units{'a', 0, 'b'}));
}

TEST(Utf8RoundTripTest, EveryCodeUnitRoundTripsOnItsOwn) {
  for (unsigned c = 0; c <= 0xFFFF; ++c) {
    const unsigned short unit = static_cast<unsigned short>(c);
    char bytes[8];
    const int n = OvraStringToUtf8(&unit, 1, bytes, 3);
    const std::string expected = EncodeUnit(c);
    ASSERT_EQ(std::string(bytes, static_cast<size_t>(n)), expected) << "code unit " << c;
    ASSERT_EQ(n, c < 0x80 ? 1 : c < 0x800 ? 2 : 3);
    unsigned short back = 0;
    ASSERT_EQ(OvraUtf8ToString(bytes, n, &back, 1), 1) << "code unit " << c;
    ASSERT_EQ(back, unit);
    const unsigned short text[2] = {unit, 0};
    ASSERT_EQ(OvraStringUtf8ByteLen(text), c == 0 ? 0 : n);
  }
}

TEST(Utf8RoundTripTest, AllCodeUnitsInOneTextRoundTrip) {
  Units all(0x10000);
  for (unsigned c = 0; c <= 0xFFFF; ++c) all[c] = static_cast<unsigned short>(c);
  const int bytes = 0x80 + 2 * (0x800 - 0x80) + 3 * (0x10000 - 0x800);
  std::string utf8(static_cast<size_t>(bytes) + 2, '\0');
  ASSERT_EQ(OvraStringToUtf8(all.data(), 0x10000, &utf8[0], bytes), bytes);
  EXPECT_EQ(utf8.substr(0, 5), Bytes({0, 1, 2, 3, 4}));
  EXPECT_EQ(utf8.substr(utf8.size() - 5, 3), Bytes({0xEF, 0xBF, 0xBF}));
  Units back(0x10000 + 4, 0xBEEF);
  ASSERT_EQ(OvraUtf8ToString(utf8.data(), bytes, back.data(), 0x10000), 0x10000);
  back.resize(0x10000);
  EXPECT_TRUE(back == all);
  // Without the zero unit in front (and with a terminator) the UTF-8 length
  // is one byte less.
  Units terminated(all.begin() + 1, all.end());
  terminated.push_back(0);
  EXPECT_EQ(OvraStringUtf8ByteLen(terminated.data()), bytes - 1);
}

// The system's converter (the C library's iconv; on Windows, which has none,
// WideCharToMultiByte) is an independent reference for every code unit that
// is not a surrogate (which it rightly refuses to encode alone).
TEST(Utf8RoundTripTest, EveryNonSurrogateMatchesTheCLibraryConverter) {
#if defined(_WIN32)
  for (unsigned c = 1; c <= 0xFFFF; ++c) {
    if (c >= 0xD800 && c <= 0xDFFF) continue;
    const unsigned short unit = static_cast<unsigned short>(c);
    std::string reference;
    ASSERT_TRUE(win::SystemUtf16ToUtf8(&unit, 1, reference)) << c;
    char mine[8];
    const int n = OvraStringToUtf8(&unit, 1, mine, 8);
    ASSERT_EQ(std::string(mine, static_cast<size_t>(n)), reference) << "code unit " << c;
  }
#else
  iconv_t cd = iconv_open("UTF-8", "UTF-16LE");
  ASSERT_NE(cd, reinterpret_cast<iconv_t>(-1));
  for (unsigned c = 1; c <= 0xFFFF; ++c) {
    if (c >= 0xD800 && c <= 0xDFFF) continue;
    unsigned char in[2] = {static_cast<unsigned char>(c & 0xFF), static_cast<unsigned char>(c >> 8)};
    char out[8];
    char* inp = reinterpret_cast<char*>(in);
    char* outp = out;
    size_t inLeft = 2;
    size_t outLeft = sizeof out;
    ASSERT_NE(iconv(cd, &inp, &inLeft, &outp, &outLeft), static_cast<size_t>(-1)) << c;
    const std::string reference(out, sizeof out - outLeft);
    const unsigned short unit = static_cast<unsigned short>(c);
    char mine[8];
    const int n = OvraStringToUtf8(&unit, 1, mine, 8);
    ASSERT_EQ(std::string(mine, static_cast<size_t>(n)), reference) << "code unit " << c;
  }
  iconv_close(cd);
#endif
}

// Random text: runs of ASCII of every length (so that chunked copying meets
// every boundary) mixed with two- and three-byte characters and zero units.
Units RandomText(std::mt19937& rng, size_t length) {
  Units text;
  while (text.size() < length) {
    const unsigned kind = rng() % 8;
    if (kind < 4) {
      const size_t run = rng() % 40;
      for (size_t i = 0; i < run && text.size() < length; ++i) {
        text.push_back(static_cast<unsigned short>(rng() % 0x80));
      }
    } else if (kind < 6) {
      text.push_back(static_cast<unsigned short>(0x80 + rng() % (0x800 - 0x80)));
    } else {
      text.push_back(static_cast<unsigned short>(0x800 + rng() % (0x10000 - 0x800)));
    }
  }
  return text;
}

TEST(Utf8DifferentialTest, EncoderMatchesTheRulesOnRandomTextAndRoom) {
  std::mt19937 rng(20240601);
  for (int round = 0; round < 3000; ++round) {
    const Units text = RandomText(rng, rng() % 200);
    const int size = static_cast<int>(rng() % 500);
    ASSERT_EQ(Encode(text, size), ReferenceToUtf8(text, size)) << "round " << round;
  }
}

TEST(Utf8DifferentialTest, DecoderMatchesTheRulesOnRandomBytesAndRoom) {
  std::mt19937 rng(4711);
  for (int round = 0; round < 3000; ++round) {
    std::string bytes;
    const size_t length = rng() % 300;
    while (bytes.size() < length) {
      if (rng() % 3 == 0) {
        bytes.push_back(static_cast<char>(rng() & 0xFF));  // anything, malformed included
      } else {
        const size_t run = rng() % 40;
        for (size_t i = 0; i < run; ++i) bytes.push_back(static_cast<char>(rng() % 0x80));
      }
    }
    const int size = static_cast<int>(rng() % 300);
    ASSERT_EQ(Decode(bytes, size), ReferenceFromUtf8(bytes, size)) << "round " << round;
  }
}

TEST(Utf8DifferentialTest, RandomTextRoundTrips) {
  std::mt19937 rng(99);
  for (int round = 0; round < 500; ++round) {
    const Units text = RandomText(rng, rng() % 2000);
    const std::string utf8 = Encode(text, static_cast<int>(text.size()) * 3);
    EXPECT_EQ(Decode(utf8, static_cast<int>(text.size())), text) << "round " << round;
  }
}

// ===========================================================================
// TConvertBuffer
// ===========================================================================

using ConvertBufferTest = StringTest;

TEST_F(ConvertBufferTest, EmptyNarrowStringHoldsNoText) {
  Mark();
  const TConvertBuffer empty("", -1);
  EXPECT_EQ(empty.GetText(), nullptr);
  EXPECT_EQ(empty.GetLength(), 0);
  EXPECT_TRUE(Requests().empty());
}

TEST_F(ConvertBufferTest, NullTextOrANonPositiveLengthHoldsNoText) {
  Mark();
  const TConvertBuffer null(nullptr, 5);
  EXPECT_EQ(null.GetText(), nullptr);
  EXPECT_EQ(null.GetLength(), 0);
  const TConvertBuffer zero("abc", 0);
  EXPECT_EQ(zero.GetText(), nullptr);
  const TConvertBuffer negative("abc", -2);
  EXPECT_EQ(negative.GetText(), nullptr);
  EXPECT_EQ(negative.GetLength(), 0);
  EXPECT_TRUE(Requests().empty());
}

TEST_F(ConvertBufferTest, MinusOneWidensUpToTheTerminatingZeroByte) {
  Mark();
  const TConvertBuffer text("abc", -1);
  ASSERT_NE(text.GetText(), nullptr);
  EXPECT_EQ(text.GetLength(), 3);
  EXPECT_EQ(ToU16(text.GetText(), 4), std::u16string(u"abc\0", 4));
  EXPECT_EQ(Requests(), std::vector<size_t>{8});  // n + 1 characters
}

TEST_F(ConvertBufferTest, AGivenLengthWidensThatManyBytesZerosIncluded) {
  const TConvertBuffer text("a\0b\xE9xyz", 4);
  ASSERT_NE(text.GetText(), nullptr);
  EXPECT_EQ(text.GetLength(), 4);
  EXPECT_EQ(ToU16(text.GetText(), 5), std::u16string(u"a\0b\u00E9\0", 5));
}

TEST_F(ConvertBufferTest, BytesAreWidenedOneByOneNotDecodedAsUtf8) {
  const TConvertBuffer text("caf\xC3\xA9", -1);
  EXPECT_EQ(ToU16(text.GetText()), u"caf\u00C3\u00A9");
}

TEST_F(ConvertBufferTest, AllocationFailureHoldsNoText) {
  FailNthAllocation(1);
  const TConvertBuffer text("abc", -1);
  EXPECT_EQ(text.GetText(), nullptr);
  EXPECT_EQ(text.GetLength(), 0);
}

// ===========================================================================
// TBstr: construction and destruction
// ===========================================================================

using BstrTest = StringTest;

TEST_F(BstrTest, DefaultStringIsEmptyWithValidEmptyTexts) {
  Mark();
  const TBstr s;
  EXPECT_EQ(s.GetLength(), 0);
  EXPECT_TRUE(s.IsEmpty());
  ASSERT_NE(s.GetString(), nullptr);
  EXPECT_EQ(s.GetString()[0], 0);
  ASSERT_NE(s.GetMultibyteString(), nullptr);
  EXPECT_STREQ(s.GetMultibyteString(), "");
  EXPECT_TRUE(Requests().empty());
}

TEST_F(BstrTest, FromWideTextCopiesItAndNullGivesEmpty) {
  const unsigned short source[] = {'h', 'e', 'y', 0};
  const TBstr s(source);
  EXPECT_EQ(Text(s), u"hey");
  EXPECT_NE(s.GetString(), source);
  EXPECT_TRUE(TBstr(static_cast<const unsigned short*>(nullptr)).IsEmpty());
  EXPECT_TRUE(TBstr(W(u"")).IsEmpty());
}

TEST_F(BstrTest, FromWideTextAndLengthKeepsZeroCharacters) {
  const TBstr s(W(u"a\0b\0c"), 5);
  EXPECT_EQ(s.GetLength(), 5);
  EXPECT_EQ(Text(s), std::u16string(u"a\0b\0c", 5));
}

TEST_F(BstrTest, FromWideTextAndLengthIsEmptyForNullZeroOrNegativeLengths) {
  Mark();
  EXPECT_TRUE(TBstr(static_cast<const unsigned short*>(nullptr), 5).IsEmpty());
  EXPECT_TRUE(TBstr(W(u"abc"), 0).IsEmpty());
  EXPECT_TRUE(TBstr(W(u"abc"), -1).IsEmpty());
  EXPECT_TRUE(TBstr(W(u"abc"), -100).IsEmpty());
  EXPECT_TRUE(Requests().empty());
}

TEST_F(BstrTest, LengthsBeyondTheLimitGiveEmptyWithoutAskingForMemory) {
  Mark();
  EXPECT_TRUE(TBstr(W(u"abc"), 0x7FFFFFFD).IsEmpty());
  EXPECT_TRUE(TBstr(W(u"abc"), 0x7FFFFFFF).IsEmpty());
  EXPECT_TRUE(TBstr(u'x', 0x7FFFFFFF).IsEmpty());
  EXPECT_TRUE(Requests().empty());
}

TEST_F(BstrTest, FromNarrowTextWidensByteForByte) {
  const TBstr s("caf\xE9 \xC3\xA9");
  EXPECT_EQ(Text(s), u"caf\u00E9 \u00C3\u00A9");
  EXPECT_TRUE(TBstr(static_cast<const char*>(nullptr)).IsEmpty());
  EXPECT_TRUE(TBstr("").IsEmpty());
}

TEST_F(BstrTest, FromNarrowTextAndLength) {
  EXPECT_EQ(Text(TBstr("abcdef", 3)), u"abc");
  EXPECT_EQ(Text(TBstr("a\0b", 3)), std::u16string(u"a\0b", 3));
  EXPECT_EQ(Text(TBstr("abc", -1)), u"abc");
  EXPECT_TRUE(TBstr("abc", 0).IsEmpty());
  EXPECT_TRUE(TBstr("abc", -2).IsEmpty());
  EXPECT_TRUE(TBstr(static_cast<const char*>(nullptr), 3).IsEmpty());
}

TEST_F(BstrTest, FromNarrowTextReleasesItsConversionHolder) {
  Mark();
  {
    const TBstr s("narrow");
    EXPECT_EQ(Requests(), (std::vector<size_t>{14, 18}));  // holder of 7, buffer of 6
  }
}

TEST_F(BstrTest, RepeatedCharacterUpTo128UsesNoHeapWorkArea) {
  Mark();
  const TBstr s(u'x', 128);
  EXPECT_EQ(s.GetLength(), 128);
  EXPECT_EQ(Requests(), std::vector<size_t>{2 * 128 + 6});
  for (int i = 0; i < 128; ++i) ASSERT_EQ(s.GetAt(i), u'x');
}

TEST_F(BstrTest, RepeatedCharacterFrom129UsesAHeapWorkArea) {
  Mark();
  const TBstr s(u'y', 129);
  EXPECT_EQ(s.GetLength(), 129);
  EXPECT_EQ(Requests(), (std::vector<size_t>{2 * 129, 2 * 129 + 6}));
  for (int i = 0; i < 129; ++i) ASSERT_EQ(s.GetAt(i), u'y');
}

TEST_F(BstrTest, RepeatedZeroCharacterOrNonPositiveCountIsEmpty) {
  Mark();
  EXPECT_TRUE(TBstr(static_cast<unsigned short>(0), 5).IsEmpty());
  EXPECT_TRUE(TBstr(u'x', 0).IsEmpty());
  EXPECT_TRUE(TBstr(u'x', -3).IsEmpty());
  EXPECT_TRUE(Requests().empty());
}

TEST_F(BstrTest, RepeatedCharacterSurvivesEveryAllocationFailure) {
  for (int count : {1, 128, 129, 1000}) {
    SweepAllocationFailures([&](FailurePoint& point) {
      point.Arm();
      const TBstr s(u'z', count);
      if (point.Disarm()) {
        EXPECT_TRUE(s.IsEmpty());
      } else {
        EXPECT_EQ(Text(s), std::u16string(static_cast<size_t>(count), u'z'));
      }
    });
  }
}

TEST_F(BstrTest, CopyConstructionMakesAnIndependentCopy) {
  TBstr a(W(u"original"));
  const TBstr b(a);
  EXPECT_NE(a.GetString(), b.GetString());
  a.SetAt(0, u'O');
  EXPECT_EQ(Text(b), u"original");
  EXPECT_EQ(Text(a), u"Original");
  const TBstr empty;
  const TBstr copyOfEmpty(empty);
  EXPECT_TRUE(copyOfEmpty.IsEmpty());
}

TEST_F(BstrTest, CopyConstructionKeepsZeroCharacters) {
  const TBstr a(W(u"a\0b"), 3);
  const TBstr b(a);
  EXPECT_EQ(Text(b), std::u16string(u"a\0b", 3));
}

TEST_F(BstrTest, ConstructorsSurviveEveryAllocationFailure) {
  const TBstr source(W(u"source text"));
  SweepAllocationFailures([&](FailurePoint& point) {
    point.Arm();
    const TBstr copy(source);
    const bool failed = point.Disarm();
    EXPECT_EQ(Text(copy), failed ? u"" : u"source text");
  });
  SweepAllocationFailures([&](FailurePoint& point) {
    point.Arm();
    const TBstr wide(W(u"wide"));
    const bool failed = point.Disarm();
    EXPECT_EQ(Text(wide), failed ? u"" : u"wide");
  });
  SweepAllocationFailures([&](FailurePoint& point) {
    point.Arm();
    const TBstr narrow("narrow");
    const bool failed = point.Disarm();
    EXPECT_EQ(Text(narrow), failed ? u"" : u"narrow");
  });
  SweepAllocationFailures([&](FailurePoint& point) {
    point.Arm();
    const TBstr narrow("narrow", 3);
    const bool failed = point.Disarm();
    EXPECT_EQ(Text(narrow), failed ? u"" : u"nar");
  });
}

TEST_F(BstrTest, DestructionReleasesTheTextAndTheMultibyteCopy) {
  const long live = Stats().live;
  {
    const TBstr s(W(u"text"));
    EXPECT_STREQ(s.GetMultibyteString(), "text");
    EXPECT_EQ(Stats().live, live + 2);
  }
  EXPECT_EQ(Stats().live, live);
}

TEST_F(BstrTest, MoveConstructionTakesTheBufferAndEmptiesTheSource) {
  TBstr a(W(u"moved"));
  a.GetMultibyteString();
  const unsigned short* buffer = a.GetString();
  Mark();
  TBstr b(std::move(a));
  EXPECT_EQ(b.GetString(), buffer);
  EXPECT_EQ(Text(b), u"moved");
  EXPECT_TRUE(a.IsEmpty());  // NOLINT(bugprone-use-after-move): moved-from state is defined
  EXPECT_STREQ(a.GetMultibyteString(), "");
  EXPECT_TRUE(Requests().empty());
}

// ===========================================================================
// TBstr: assignment
// ===========================================================================

TEST_F(BstrTest, CopyAssignmentMakesAnIndependentCopy) {
  TBstr a(W(u"first"));
  TBstr b(W(u"second value"));
  b = a;
  EXPECT_EQ(Text(b), u"first");
  EXPECT_NE(a.GetString(), b.GetString());
  a.SetAt(0, u'F');
  EXPECT_EQ(Text(b), u"first");
  TBstr empty;
  b = empty;
  EXPECT_TRUE(b.IsEmpty());
}

TEST_F(BstrTest, SelfAssignmentChangesNothing) {
  TBstr a(W(u"self"));
  const char* cache = a.GetMultibyteString();
  const unsigned short* buffer = a.GetString();
  Mark();
  TBstr& alias = a;
  a = alias;
  a.Assign(alias);
  EXPECT_EQ(a.GetString(), buffer);
  EXPECT_EQ(Text(a), u"self");
  EXPECT_FALSE(Freed(cache));
  EXPECT_TRUE(Requests().empty());
}

TEST_F(BstrTest, MoveAssignmentTakesTheBufferAndReleasesTheOldOne) {
  TBstr a(W(u"new"));
  TBstr b(W(u"old"));
  const unsigned short* oldBuffer = b.GetString();
  const unsigned short* newBuffer = a.GetString();
  Mark();
  b = std::move(a);
  EXPECT_EQ(b.GetString(), newBuffer);
  EXPECT_TRUE(Freed(reinterpret_cast<const unsigned char*>(oldBuffer) - 4));
  EXPECT_TRUE(a.IsEmpty());  // NOLINT(bugprone-use-after-move)
  TBstr& alias = b;
  b = std::move(alias);
  EXPECT_EQ(Text(b), u"new");
}

TEST_F(BstrTest, AssignOfAZeroCharacterKeepsTheOldText) {
  TBstr s(W(u"kept"));
  s.Assign(static_cast<unsigned short>(0));
  EXPECT_EQ(Text(s), u"kept");
  TBstr empty;
  empty.Assign(static_cast<unsigned short>(0));
  EXPECT_TRUE(empty.IsEmpty());
  s.Assign(static_cast<unsigned short>(u'k'));
  EXPECT_EQ(Text(s), u"k");
}

TEST_F(BstrTest, AssignOfWideAndNarrowText) {
  TBstr s(W(u"before"));
  s.Assign(W(u"after"));
  EXPECT_EQ(Text(s), u"after");
  s.Assign("n\xE9rrow");
  EXPECT_EQ(Text(s), u"n\u00E9rrow");
  s.Assign(static_cast<const unsigned short*>(nullptr));
  EXPECT_TRUE(s.IsEmpty());
  s = W(u"again");
  s.Assign(static_cast<const char*>(nullptr));
  EXPECT_TRUE(s.IsEmpty());
  s = "again";
  EXPECT_EQ(Text(s), u"again");
  s.Assign("");
  EXPECT_TRUE(s.IsEmpty());
}

TEST_F(BstrTest, AssignOfAnEmptyStringEmptiesTheText) {
  TBstr s(W(u"text"));
  s.Assign(TBstr());
  EXPECT_TRUE(s.IsEmpty());
  s.Assign(W(u"text"));
  s.Assign(W(u""));
  EXPECT_TRUE(s.IsEmpty());
}

TEST_F(BstrTest, AssignOfTheSameLengthReusesTheBuffer) {
  TBstr s(W(u"abcd"));
  const unsigned short* buffer = s.GetString();
  Mark();
  s.Assign(W(u"wxyz"));
  EXPECT_EQ(Text(s), u"wxyz");
  EXPECT_EQ(s.GetString(), buffer);
  EXPECT_TRUE(Requests().empty());
}

TEST_F(BstrTest, AssignOfADifferentLengthAllocatesAnExactBuffer) {
  TBstr s(W(u"abcd"));
  Mark();
  s.Assign(W(u"abcdefg"));
  EXPECT_EQ(Requests(), std::vector<size_t>{2 * 7 + 6});
  Mark();
  s.Assign(W(u"ab"));
  EXPECT_EQ(Requests(), std::vector<size_t>{2 * 2 + 6});
  EXPECT_EQ(Text(s), u"ab");
}

TEST_F(BstrTest, AssignOfTextInsideTheStringItself) {
  TBstr s(W(u"0123456789"));
  s.Assign(s.GetString() + 4);
  EXPECT_EQ(Text(s), u"456789");
  TBstr t(W(u"abc"));
  t.Assign(t.GetString());  // same length: overwritten by itself
  EXPECT_EQ(Text(t), u"abc");
}

TEST_F(BstrTest, AssignFailureLeavesTheStringEmpty) {
  SweepAllocationFailures([&](FailurePoint& point) {
    TBstr s(W(u"old"));
    point.Arm();
    s.Assign(W(u"longer new text"));
    const bool failed = point.Disarm();
    EXPECT_EQ(Text(s), failed ? u"" : u"longer new text");
  });
  SweepAllocationFailures([&](FailurePoint& point) {
    TBstr s(W(u"old"));
    point.Arm();
    s.Assign("narrow text");
    const bool failed = point.Disarm();
    EXPECT_EQ(Text(s), failed ? u"" : u"narrow text");
  });
  SweepAllocationFailures([&](FailurePoint& point) {
    TBstr s(W(u"old"));
    const TBstr other(W(u"other"));
    point.Arm();
    s = other;
    const bool failed = point.Disarm();
    EXPECT_EQ(Text(s), failed ? u"" : u"other");
  });
}

// ===========================================================================
// TBstr: appending
// ===========================================================================

TEST_F(BstrTest, AppendVariantsAddAtTheEnd) {
  TBstr s;
  s.Append(W(u"ab"));
  s.Append(static_cast<unsigned short>(u'c'));
  s.Append("d\xE9");
  s.Append(TBstr(W(u"fg")));
  s += W(u"h");
  s += "i";
  s += static_cast<unsigned short>(u'j');
  s += TBstr(W(u"k"));
  EXPECT_EQ(Text(s), u"abcd\u00E9fghijk");
}

TEST_F(BstrTest, AppendOfNothingChangesNothingAndAllocatesNothing) {
  TBstr s(W(u"same"));
  const unsigned short* buffer = s.GetString();
  Mark();
  s.Append(static_cast<unsigned short>(0));
  s.Append(static_cast<const unsigned short*>(nullptr));
  s.Append(W(u""));
  s.Append(TBstr());
  s.Append(static_cast<const char*>(nullptr));
  s.Append("");
  EXPECT_EQ(Text(s), u"same");
  EXPECT_EQ(s.GetString(), buffer);
  EXPECT_TRUE(Requests().empty());
}

TEST_F(BstrTest, AppendAllocatesOneExactBufferPerCall) {
  TBstr s(W(u"abc"));
  Mark();
  s.Append(W(u"de"));
  EXPECT_EQ(Requests(), std::vector<size_t>{2 * 5 + 6});
}

TEST_F(BstrTest, AppendKeepsZeroCharactersOfBothSides) {
  TBstr s(W(u"a\0b"), 3);
  s.Append(TBstr(W(u"\0c"), 2));
  EXPECT_EQ(Text(s), std::u16string(u"a\0b\0c", 5));
}

TEST_F(BstrTest, AppendingAStringToItselfDoublesIt) {
  TBstr s(W(u"abc"));
  s.Append(s);
  EXPECT_EQ(Text(s), u"abcabc");
  s += s;
  EXPECT_EQ(Text(s), u"abcabcabcabc");
  s.Append(s.GetString() + 9);
  EXPECT_EQ(Text(s), u"abcabcabcabcabc");
  TBstr empty;
  empty.Append(empty);
  EXPECT_TRUE(empty.IsEmpty());
}

TEST_F(BstrTest, AppendFailureLeavesTheStringEmpty) {
  SweepAllocationFailures([&](FailurePoint& point) {
    TBstr s(W(u"abc"));
    point.Arm();
    s.Append(s);
    const bool failed = point.Disarm();
    EXPECT_EQ(Text(s), failed ? u"" : u"abcabc");
  });
  SweepAllocationFailures([&](FailurePoint& point) {
    TBstr s(W(u"abc"));
    point.Arm();
    s.Append("def");
    const bool failed = point.Disarm();
    EXPECT_EQ(Text(s), failed ? u"" : u"abcdef");
  });
  SweepAllocationFailures([&](FailurePoint& point) {
    TBstr s(W(u"abc"));
    point.Arm();
    s.Append(static_cast<unsigned short>(u'd'));
    const bool failed = point.Disarm();
    EXPECT_EQ(Text(s), failed ? u"" : u"abcd");
  });
}

// ===========================================================================
// TBstr: ownership transfer
// ===========================================================================

TEST_F(BstrTest, DetachHandsTheBufferOverAndEmptiesTheString) {
  TBstr s(W(u"owned"));
  const char* cache = s.GetMultibyteString();
  Mark();
  unsigned short* buffer = s.Detach();
  EXPECT_TRUE(Freed(cache));
  EXPECT_TRUE(s.IsEmpty());
  EXPECT_EQ(ToU16(buffer), u"owned");
  EXPECT_EQ(OvraStringLen(buffer), 5u);
  OvraFreeString(buffer);
  EXPECT_EQ(s.Detach(), nullptr);
  s.Assign(W(u"usable"));
  EXPECT_EQ(Text(s), u"usable");
}

TEST_F(BstrTest, AttachTakesTheBufferWithoutReleasingTheOldOne) {
  TBstr s(W(u"old"));
  const char* cache = s.GetMultibyteString();
  unsigned short* old = const_cast<unsigned short*>(s.GetString());
  unsigned short* fresh = OvraAllocString(W(u"attached"));
  Mark();
  s.Attach(fresh);
  EXPECT_TRUE(Freed(cache));
  EXPECT_FALSE(Freed(reinterpret_cast<unsigned char*>(old) - 4));
  EXPECT_EQ(s.GetString(), fresh);
  EXPECT_STREQ(s.GetMultibyteString(), "attached");
  OvraFreeString(old);  // the caller's to release
}

TEST_F(BstrTest, CopyMakesANewBufferForTheCaller) {
  const TBstr s(W(u"a\0copy"), 6);
  unsigned short* copy = s.Copy();
  ASSERT_NE(copy, nullptr);
  EXPECT_NE(copy, s.GetString());
  EXPECT_EQ(OvraStringLen(copy), 6u);
  EXPECT_EQ(ToU16(copy, 6), std::u16string(u"a\0copy", 6));
  OvraFreeString(copy);
  EXPECT_EQ(TBstr().Copy(), nullptr);
  FailNthAllocation(1);
  EXPECT_EQ(s.Copy(), nullptr);
}

TEST_F(BstrTest, GetBstrPtrFreesTheTextBeforeReturningTheAddress) {
  TBstr s(W(u"text"));
  const unsigned short* buffer = s.GetString();
  Mark();
  unsigned short** field = s.GetBstrPtr();
  EXPECT_TRUE(Freed(reinterpret_cast<const unsigned char*>(buffer) - 4));
  ASSERT_NE(field, nullptr);
  EXPECT_EQ(*field, nullptr);
  EXPECT_TRUE(s.IsEmpty());
  *field = OvraAllocString(W(u"stored by a callee"));
  EXPECT_EQ(Text(s), u"stored by a callee");
  TBstr empty;
  Mark();
  EXPECT_EQ(*empty.GetBstrPtr(), nullptr);
  EXPECT_TRUE(Requests().empty());
}

TEST_F(BstrTest, GetRawBstrPtrGivesTheFieldWithoutEmptying) {
  TBstr s(W(u"raw"));
  unsigned short** field = s.GetRawBstrPtr();
  EXPECT_EQ(*field, s.GetString());
  EXPECT_EQ(Text(s), u"raw");
  // A buffer stored through it replaces the text, and the narrow copy follows.
  EXPECT_STREQ(s.GetMultibyteString(), "raw");
  field = s.GetRawBstrPtr();
  OvraFreeString(*field);
  *field = OvraAllocString(W(u"swapped"));
  EXPECT_STREQ(s.GetMultibyteString(), "swapped");
}

// ===========================================================================
// TBstr: access
// ===========================================================================

TEST_F(BstrTest, GetAtGivesZeroOutsideTheText) {
  const TBstr s(W(u"abc"));
  EXPECT_EQ(s.GetAt(0), u'a');
  EXPECT_EQ(s.GetAt(2), u'c');
  EXPECT_EQ(s.GetAt(3), 0);
  EXPECT_EQ(s.GetAt(-1), 0);
  EXPECT_EQ(s.GetAt(1000), 0);
  EXPECT_EQ(TBstr().GetAt(0), 0);
}

TEST_F(BstrTest, SetAtStoresInsideTheTextOnly) {
  TBstr s(W(u"abc"));
  s.SetAt(1, u'X');
  EXPECT_EQ(Text(s), u"aXc");
  s.SetAt(3, u'Y');
  s.SetAt(-1, u'Y');
  s.SetAt(0, 0);  // refused: no inner terminator
  EXPECT_EQ(Text(s), u"aXc");
  TBstr empty;
  empty.SetAt(0, u'Z');
  EXPECT_TRUE(empty.IsEmpty());
}

TEST_F(BstrTest, SetAtDropsTheMultibyteCopyEvenWhenItChangesNothing) {
  TBstr s(W(u"abc"));
  for (int variant = 0; variant < 3; ++variant) {
    const char* cache = s.GetMultibyteString();
    Mark();
    if (variant == 0) s.SetAt(0, 0);
    if (variant == 1) s.SetAt(3, u'x');
    if (variant == 2) s.SetAt(-5, u'x');
    EXPECT_TRUE(Freed(cache)) << "variant " << variant;
  }
}

TEST_F(BstrTest, EmptyFreesTheText) {
  TBstr s(W(u"text"));
  const unsigned short* buffer = s.GetString();
  Mark();
  s.Empty();
  EXPECT_TRUE(s.IsEmpty());
  EXPECT_TRUE(Freed(reinterpret_cast<const unsigned char*>(buffer) - 4));
  s.Empty();
  EXPECT_TRUE(s.IsEmpty());
}

TEST_F(BstrTest, MultibyteStringNarrowsToLatin1WithQuestionMarks) {
  const TBstr s(W(u"a\u00E9\u00FF\u0100\u20ACz"));
  EXPECT_STREQ(s.GetMultibyteString(), "a\xE9\xFF??z");
}

TEST_F(BstrTest, MultibyteStringIsCachedUntilTheNextChange) {
  TBstr s(W(u"abc"));
  Mark();
  const char* first = s.GetMultibyteString();
  EXPECT_EQ(Requests(), std::vector<size_t>{2 * 3 + 1});
  Mark();
  EXPECT_EQ(s.GetMultibyteString(), first);
  EXPECT_TRUE(Requests().empty());
  s.Append(W(u"d"));
  EXPECT_TRUE(Freed(first));
  EXPECT_STREQ(s.GetMultibyteString(), "abcd");
}

TEST_F(BstrTest, MultibyteStringStopsAtAnInnerZeroCharacter) {
  const TBstr s(W(u"ab\0cd"), 5);
  EXPECT_STREQ(s.GetMultibyteString(), "ab");
}

TEST_F(BstrTest, MultibyteStringFailureGivesAnEmptyNarrowStringAndIsRetried) {
  const TBstr s(W(u"abc"));
  FailNthAllocation(1);
  const char* failed = s.GetMultibyteString();
  ASSERT_NE(failed, nullptr);
  EXPECT_STREQ(failed, "");
  StopFailing();
  EXPECT_STREQ(s.GetMultibyteString(), "abc");
}

// A zero character given to Assign or Append does nothing at all: the text
// and its narrow copy stay.
TEST_F(BstrTest, AssignAndAppendOfAZeroCharacterKeepTheMultibyteCopy) {
  TBstr s(W(u"text"));
  const char* cache = s.GetMultibyteString();
  Mark();
  s.Assign(static_cast<unsigned short>(0));
  s.Append(static_cast<unsigned short>(0));
  EXPECT_FALSE(Freed(cache));
  EXPECT_EQ(s.GetMultibyteString(), cache);
  EXPECT_TRUE(Requests().empty());
}

// Every operation that may change the text drops the narrow copy first,
// whether it then changes anything or not.
TEST_F(BstrTest, ChangingOperationsDropTheMultibyteCopyEvenWithoutAChange) {
  struct Case {
    const char* name;
    void (*op)(TBstr&);
  };
  const Case cases[] = {
      {"Append(empty)", [](TBstr& s) { s.Append(W(u"")); }},
      {"Append(null)", [](TBstr& s) { s.Append(static_cast<const char*>(nullptr)); }},
      {"Assign(same)", [](TBstr& s) { s.Assign(W(u"text")); }},
      {"Assign(narrow)", [](TBstr& s) { s.Assign("text"); }},
      {"Attach",
       [](TBstr& s) {
         unsigned short* old = const_cast<unsigned short*>(s.GetString());
         s.Attach(OvraAllocString(W(u"text")));
         OvraFreeString(old);
       }},
      {"GetBstrPtr", [](TBstr& s) { *s.GetBstrPtr() = OvraAllocString(W(u"text")); }},
      {"GetRawBstrPtr", [](TBstr& s) { s.GetRawBstrPtr(); }},
      {"Empty", [](TBstr& s) { s.Empty(); }},
      {"SetAt", [](TBstr& s) { s.SetAt(0, u't'); }},
  };
  for (const Case& c : cases) {
    TBstr s(W(u"text"));
    const char* cache = s.GetMultibyteString();
    Mark();
    c.op(s);
    EXPECT_TRUE(Freed(cache)) << c.name;
  }
}

// ===========================================================================
// TBstr: comparison
// ===========================================================================

TEST_F(BstrTest, CompareOrdersByUnsignedCharacters) {
  const TBstr s(W(u"abc"));
  EXPECT_EQ(s.Compare(W(u"abc")), 0);
  EXPECT_EQ(s.Compare(W(u"abd")), -1);
  EXPECT_GT(s.Compare(W(u"ab")), 0);
  EXPECT_LT(s.Compare(W(u"abcd")), 0);
  EXPECT_LT(s.Compare(W(u"ab\uFFFF")), 0);  // unsigned: 0xFFFF sorts last
  EXPECT_EQ(s.Compare(W(u"B")), 'a' - 'B');
  EXPECT_GT(s.Compare(W(u"ABC")), 0);  // case matters
}

TEST_F(BstrTest, CompareWithNullOrEmptyIsTheDifferenceOfLengths) {
  EXPECT_EQ(TBstr().Compare(nullptr), 0);
  EXPECT_EQ(TBstr(W(u"abc")).Compare(nullptr), 3);
  EXPECT_EQ(TBstr().Compare(W(u"ab")), -2);
  EXPECT_EQ(TBstr().Compare(W(u"")), 0);
  EXPECT_EQ(TBstr().CompareNoCase(nullptr), 0);
  EXPECT_EQ(TBstr(W(u"abcd")).CompareNoCase(nullptr), 4);
  EXPECT_EQ(TBstr().CompareNoCase(W(u"XYZ")), -3);
}

TEST_F(BstrTest, CompareNoCaseFoldsAsciiLettersOnly) {
  EXPECT_EQ(TBstr(W(u"HeLLo")).CompareNoCase(W(u"hello")), 0);
  EXPECT_NE(TBstr(W(u"\u00C9")).CompareNoCase(W(u"\u00E9")), 0);
  EXPECT_LT(TBstr(W(u"abc")).CompareNoCase(W(u"ABD")), 0);
  // Folding goes to capitals: "_" (0x5F) sorts after "A" but before "a".
  EXPECT_GT(TBstr(W(u"_")).CompareNoCase(W(u"a")), 0);
}

TEST_F(BstrTest, EqualityOperatorsCompareTheTexts) {
  EXPECT_TRUE(TBstr(W(u"same")) == TBstr("same"));
  EXPECT_TRUE(TBstr() == TBstr(W(u"")));
  EXPECT_TRUE(TBstr(W(u"a")) != TBstr(W(u"b")));
  EXPECT_TRUE(TBstr(W(u"a")) != TBstr());
}

TEST_F(BstrTest, CompareNormalIgnoresBlanksAndAsciiCase) {
  EXPECT_EQ(TBstr(W(u"Hello  World ")).CompareNormal(W(u"helloworld")), 0);
  EXPECT_EQ(TBstr(W(u"  a b c  ")).CompareNormal(W(u"ABC")), 0);
  EXPECT_EQ(TBstr(W(u"abc")).CompareNormal(W(u" a  B c ")), 0);
}

TEST_F(BstrTest, CompareNormalGivesTheDifferenceOfTheFirstDifferingFoldedCharacters) {
  EXPECT_EQ(TBstr(W(u"abc")).CompareNormal(W(u"ABD")), 'c' - 'd');
  EXPECT_EQ(TBstr(W(u"ab")).CompareNormal(W(u"abc")), -'c');
  EXPECT_EQ(TBstr(W(u"abc")).CompareNormal(W(u"ab")), 'c');
  EXPECT_EQ(TBstr(W(u"\uFFFF")).CompareNormal(W(u"a")), 0xFFFF - 'a');
}

TEST_F(BstrTest, CompareNormalDoesNoOtherNormalisation) {
  EXPECT_NE(TBstr(W(u"a\tb")).CompareNormal(W(u"ab")), 0);
  EXPECT_NE(TBstr(W(u"\u00C9")).CompareNormal(W(u"\u00E9")), 0);
}

TEST_F(BstrTest, CompareNormalWithAnEmptySideComparesLengthsWithoutTrailingBlanks) {
  EXPECT_EQ(TBstr().CompareNormal(nullptr), 0);
  EXPECT_EQ(TBstr().CompareNormal(W(u"   ")), 0);
  EXPECT_EQ(TBstr().CompareNormal(W(u" a  ")), -2);
  EXPECT_EQ(TBstr(W(u"ab  ")).CompareNormal(nullptr), 2);
  EXPECT_EQ(TBstr(W(u" x y ")).CompareNormal(nullptr), 4);
}

// ===========================================================================
// TBstr: encodings
// ===========================================================================

TEST_F(BstrTest, EncodingConstantsHoldTheirNames) {
  EXPECT_EQ(ToU16(kAsciiEncoding), u"us-ascii");
  EXPECT_EQ(ToU16(kLatin1Encoding), u"iso-8859-1");
  EXPECT_EQ(ToU16(kUtf8Encoding), u"utf-8");
  EXPECT_EQ(ToU16(kUnicodeEncoding), u"unicode-2-0");
  EXPECT_EQ(ToU16(kEnglishLanguage), u"en");
}

TEST_F(BstrTest, EncodedByteLengthOfOneLatin1Character) {
  const TBstr s(W(u"\u00E9"));
  EXPECT_EQ(s.GetEncodedByteLength(W(u"iso-8859-1")), 1);
  EXPECT_EQ(s.GetEncodedByteLength(W(u"utf-8")), 2);
  EXPECT_EQ(s.GetEncodedByteLength(W(u"unicode-2-0")), 2);
  EXPECT_EQ(s.GetEncodedByteLength(W(u"us-ascii")), 1);
  EXPECT_EQ(s.GetEncodedByteLength(nullptr), 1);
  EXPECT_EQ(s.GetEncodedByteLength(W(u"latin1")), 0);
  EXPECT_EQ(s.GetEncodedByteLength(W(u"utf-16")), 0);
  EXPECT_EQ(s.GetEncodedByteLength(W(u"")), 0);
}

TEST_F(BstrTest, EncodedByteLengthMatchesNamesIgnoringAsciiCase) {
  const TBstr s(W(u"a\u20AC"));
  EXPECT_EQ(s.GetEncodedByteLength(W(u"UTF-8")), 4);
  EXPECT_EQ(s.GetEncodedByteLength(W(u"Unicode-2-0")), 4);
  EXPECT_EQ(s.GetEncodedByteLength(W(u"US-ASCII")), 2);
  EXPECT_EQ(s.GetEncodedByteLength(W(u"ISO-8859-1")), 2);
}

TEST_F(BstrTest, EncodedByteLengthOfTheEmptyStringIsZero) {
  const TBstr s;
  for (const unsigned short* name :
       {kAsciiEncoding, kLatin1Encoding, kUtf8Encoding, kUnicodeEncoding,
        static_cast<const unsigned short*>(nullptr)}) {
    EXPECT_EQ(s.GetEncodedByteLength(name), 0);
  }
}

// A buffer header claiming the longest possible text, attached without any
// text behind it: only the length field may be read.
TEST_F(BstrTest, LengthArithmeticOnTheLongestTextDoesNotOverflow) {
  uint32_t fake[2] = {0xFFFFFFF8u, 0};
  TBstr s;
  s.Attach(reinterpret_cast<unsigned short*>(fake + 1));
  EXPECT_EQ(s.GetLength(), 0x7FFFFFFC);
  EXPECT_EQ(s.GetEncodedByteLength(kUnicodeEncoding), INT_MAX);
  EXPECT_EQ(s.GetEncodedByteLength(kLatin1Encoding), 0x7FFFFFFC);
  EXPECT_EQ(s.Compare(nullptr), 0x7FFFFFFC);
  EXPECT_TRUE(s.Mid(INT_MAX).IsEmpty());
  EXPECT_TRUE(s.Right(INT_MIN).IsEmpty());
  EXPECT_TRUE(s.Right(0).IsEmpty());
  s.Detach();
}

TEST_F(BstrTest, BestEncodingPicksTheNarrowestThatHoldsTheText) {
  EXPECT_EQ(Text(TBstr(W(u"plain")).GetBestEncoding()), u"us-ascii");
  EXPECT_EQ(Text(TBstr().GetBestEncoding()), u"us-ascii");
  EXPECT_EQ(Text(TBstr(W(u"caf\u00E9 au lait")).GetBestEncoding()), u"iso-8859-1");
  EXPECT_EQ(Text(TBstr(W(u"\u007F")).GetBestEncoding()), u"us-ascii");
  EXPECT_EQ(Text(TBstr(W(u"\u0080")).GetBestEncoding()), u"iso-8859-1");
  EXPECT_EQ(Text(TBstr(W(u"x\u0100y")).GetBestEncoding()), u"utf-8");
  EXPECT_EQ(Text(TBstr(W(u"\u00FF\uFFFF\u00E9")).GetBestEncoding()), u"utf-8");
}

TEST_F(BstrTest, BestEncodingStopsAtAnInnerZeroCharacter) {
  const TBstr s(W(u"ab\0\u0100"), 4);
  EXPECT_EQ(Text(s.GetBestEncoding()), u"us-ascii");
}

TEST_F(BstrTest, BestEncodingFailureGivesAnEmptyString) {
  const TBstr s(W(u"\u00E9"));
  SweepAllocationFailures([&](FailurePoint& point) {
    point.Arm();
    const TBstr name = s.GetBestEncoding();
    const bool failed = point.Disarm();
    EXPECT_EQ(Text(name), failed ? u"" : u"iso-8859-1");
  });
}

// --- Allocation failures ---------------------------------------------------
// Each operation runs with its 1st, 2nd, ... allocation failing, alone and
// with every later one (AllocSweep.h), until it goes through; every run must
// give the documented out-of-memory result and leak nothing. The N each sweep
// reaches is printed ("[ SWEEP    ]").

class AllocSweepBstr : public BstrSweepTest {};

TEST_F(AllocSweepBstr, CountedBuffersAreNullWhenTheirAllocationFails) {
  SweepBothModes("OvraAllocString", [](SweepRun& run) {
    run.Arm();
    unsigned short* b = OvraAllocString(W(u"buffer"));
    if (run.Disarm()) {
      EXPECT_EQ(b, nullptr);
    } else {
      ASSERT_NE(b, nullptr);
      EXPECT_EQ(OvraStringLen(b), 6u);
      EXPECT_EQ(ovra_test::ToU16(b), u"buffer");
    }
    OvraFreeString(b);
  });
  SweepBothModes("OvraAllocStringLen", [](SweepRun& run) {
    run.Arm();
    unsigned short* b = OvraAllocStringLen(W(u"ab\0cd"), 5);
    if (run.Disarm()) {
      EXPECT_EQ(b, nullptr);
    } else {
      ASSERT_NE(b, nullptr);
      EXPECT_EQ(ovra_test::ToU16(b, 5), std::u16string(u"ab\0cd", 5));
    }
    OvraFreeString(b);
  });
}

TEST_F(AllocSweepBstr, TextConversionsIntoCallerBuffersAllocateNothing) {
  SweepUntilSuccess("UTF-8 and single-byte conversions, encoded lengths", [](SweepRun& run) {
    const TBstr text(W(u"caf\u00E9 \u20AC"));
    char bytes[32];
    unsigned short units[32];
    run.Arm();
    EXPECT_EQ(OvraStringUtf8ByteLen(text.GetString()), 9);
    EXPECT_EQ(OvraStringToUtf8(text.GetString(), 6, bytes, 30), 9);
    EXPECT_EQ(OvraUtf8ToString(bytes, 9, units, 30), 6);
    EXPECT_EQ(OvraUnicodeToMultibyte(text.GetString(), -1, bytes, 30), 7);
    EXPECT_EQ(OvraMultibyteToUnicode(bytes, -1, units, 30), 7);
    EXPECT_EQ(text.GetEncodedByteLength(kUtf8Encoding), 9);
    EXPECT_EQ(text.GetEncodedByteLength(kUnicodeEncoding), 12);
    EXPECT_FALSE(run.Disarm());
  }, FailMode::kOne, true);
}

TEST_F(AllocSweepBstr, ConvertBufferHoldsNoTextWhenItsAllocationFails) {
  SweepBothModes("TConvertBuffer", [](SweepRun& run) {
    run.Arm();
    TConvertBuffer text("narrow \xE9", -1);
    if (run.Disarm()) {
      EXPECT_EQ(text.GetText(), nullptr);
      EXPECT_EQ(text.GetLength(), 0);
    } else {
      EXPECT_EQ(text.GetLength(), 8);
      EXPECT_EQ(ovra_test::ToU16(text.GetText()), u"narrow \u00E9");
    }
  });
}

TEST_F(AllocSweepBstr, ConstructorsGiveTheEmptyStringAtEveryFailure) {
  const std::u16string longText = LongText(u'a', 300);
  auto sweepCtor = [](const std::string& what, auto make, const std::u16string& expected) {
    SweepBothModes(what, [&](SweepRun& run) {
      run.Arm();
      TBstr s = make();
      if (run.Disarm()) {
        EXPECT_TRUE(s.IsEmpty()) << what << " n=" << run.n();
        EXPECT_STREQ(s.GetMultibyteString(), "");
      } else {
        EXPECT_EQ(Text(s), expected) << what;
      }
    });
  };
  const TBstr source(W(u"copied"));
  sweepCtor("TBstr(const TBstr&)", [&] { return TBstr(source); }, u"copied");
  sweepCtor("TBstr(ch, 5)", [] { return TBstr(u'x', 5); }, u"xxxxx");
  sweepCtor("TBstr(ch, 300)", [] { return TBstr(u'y', 300); }, std::u16string(300, u'y'));
  sweepCtor("TBstr(const unsigned short*)", [] { return TBstr(W(u"wide")); }, u"wide");
  sweepCtor("TBstr(const unsigned short*, 300)",
            [&] { return TBstr(U(longText), 300); }, longText);
  sweepCtor("TBstr(const char*)", [] { return TBstr("narrow"); }, u"narrow");
  sweepCtor("TBstr(const char*, 3)", [] { return TBstr("narrow", 3); }, u"nar");
  // A move takes the buffer: nothing to allocate, nothing to fail.
  SweepUntilSuccess("TBstr(TBstr&&)", [](SweepRun& run) {
    TBstr from(W(u"moved"));
    run.Arm();
    TBstr to(std::move(from));
    EXPECT_FALSE(run.Disarm());
    EXPECT_EQ(Text(to), u"moved");
  }, FailMode::kOne, true);
}

TEST_F(AllocSweepBstr, AssignAndAppendEmptyTheStringAtEveryFailure) {
  const std::u16string longText = LongText(u'A', 200);
  // Arguments are made before the sweep, so that only the operation allocates.
  const TBstr newText(W(u"new text"));  // longer: the buffer cannot be reused
  const TBstr longString(U(longText));
  const TBstr tail(W(u"-tail"));
  SweepEdit("TBstr::Assign(const TBstr&)", u"old", [&](TBstr& s) { s.Assign(newText); },
            u"new text");
  SweepEdit("TBstr::Assign(ch)", u"old", [](TBstr& s) { s.Assign(static_cast<unsigned short>(u'c')); },
            u"c");
  SweepEdit("TBstr::Assign(const unsigned short*)", u"old",
            [](TBstr& s) { s.Assign(W(u"wide text")); }, u"wide text");
  SweepEdit("TBstr::Assign(own tail)", u"0123456789",
            [](TBstr& s) { s.Assign(s.GetString() + 4); }, u"456789");
  SweepEdit("TBstr::Assign(const char*)", u"old", [](TBstr& s) { s.Assign("narrow"); },
            u"narrow");
  SweepEdit("TBstr::operator=(const TBstr&)", u"old",
            [&](TBstr& s) { s = longString; }, longText);
  SweepEdit("TBstr::Append(const TBstr&)", u"head",
            [&](TBstr& s) { s.Append(tail); }, u"head-tail");
  SweepEdit("TBstr::Append(itself)", u"twice", [](TBstr& s) { s.Append(s); }, u"twicetwice");
  SweepEdit("TBstr::Append(ch)", u"head", [](TBstr& s) { s.Append(static_cast<unsigned short>(u'!')); },
            u"head!");
  SweepEdit("TBstr::Append(const unsigned short*)", u"head",
            [&](TBstr& s) { s.Append(U(longText)); }, u"head" + longText);
  SweepEdit("TBstr::Append(own text)", u"abc", [](TBstr& s) { s.Append(s.GetString() + 1); },
            u"abcbc");
  SweepEdit("TBstr::Append(const char*)", u"head", [](TBstr& s) { s.Append("-narrow"); },
            u"head-narrow");
  SweepEdit("TBstr::operator+=(const char*)", u"", [](TBstr& s) { s += "first"; }, u"first");
}

TEST_F(AllocSweepBstr, CopiesAndNarrowTextFailWithoutChangingTheString) {
  SweepBothModes("TBstr::Copy", [](SweepRun& run) {
    const TBstr s(W(u"copy me"));
    run.Arm();
    unsigned short* copy = s.Copy();
    if (run.Disarm()) {
      EXPECT_EQ(copy, nullptr);
    } else {
      ASSERT_NE(copy, nullptr);
      EXPECT_EQ(ovra_test::ToU16(copy), u"copy me");
    }
    EXPECT_EQ(Text(s), u"copy me");
    OvraFreeString(copy);
  });
  SweepBothModes("TBstr::GetMultibyteString", [](SweepRun& run) {
    const TBstr s(W(u"caf\u00E9 \u20AC"));
    run.Arm();
    const char* narrow = s.GetMultibyteString();
    const bool failed = run.Disarm();
    ASSERT_NE(narrow, nullptr);
    if (failed) {
      EXPECT_STREQ(narrow, "");
      // The cache was not filled: a later call tries again.
      EXPECT_STREQ(s.GetMultibyteString(), "caf\xE9 ?");
    } else {
      EXPECT_STREQ(narrow, "caf\xE9 ?");
    }
    EXPECT_EQ(Text(s), u"caf\u00E9 \u20AC");
  });
}

}  // namespace
