// Tests of Base64, BER elements, the Internet checksum and the cipher
// framework (block chaining and padding, stream framing, the crypter).
#include "OvraCrypt.h"

#include <gtest/gtest.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>

#include <memory>
#include <random>
#include <string>
#include <vector>

#include "AllocSweep.h"
#include "OvraCryptDes.h"
#include "OvraCryptDigest.h"
#include "OvraCryptHmac.h"
#include "OvraCryptRcX.h"
#include "OvraCryptRsa.h"
#include "OvraRand.h"
#include "RepeatedMapping.h"
#include "TestAllocator.h"
#include "TestBytes.h"
#include "TestRsaKeys.h"

#ifdef OVRA_HAVE_OPENSSL
#include <openssl/evp.h>
#endif

namespace {

using ovra_test::Bytes;
using ovra_test::FailMode;
using ovra_test::FromHex;
using ovra_test::FromText;
using ovra_test::RandomBytes;
using ovra_test::SweepBothModes;
using ovra_test::SweepRun;
using ovra_test::SweepTest;
using ovra_test::SweepUntilSuccess;

// A heap copy of exactly n bytes, so that the address sanitizer catches any
// read or write past its end.
struct ExactBuffer {
  explicit ExactBuffer(size_t n) : size(n), p(static_cast<unsigned char*>(malloc(n ? n : 1))) {}
  ExactBuffer(const ExactBuffer&) = delete;
  ExactBuffer& operator=(const ExactBuffer&) = delete;
  ~ExactBuffer() { free(p); }
  size_t size;
  unsigned char* p;
};

// ===========================================================================
// Base64
// ===========================================================================

std::string Encode(const Bytes& data) {
  std::vector<char> text(4 * ((data.size() + 2) / 3) + 1, '#');
  const unsigned n = OvraBinToBase64(data.data(), static_cast<int>(data.size()), text.data());
  EXPECT_EQ(n, strlen(text.data()));
  return std::string(text.data());
}

// Decodes text; returns the result and fills `out` with the bytes written
// (up to the documented bound), whatever the result.
int Decode(const std::string& text, Bytes* out) {
  const size_t bound = 3 * (text.size() / 4);
  Bytes data(bound + 16, 0xEE);
  const int n = OvraBase64ToBin(text.c_str(), data.data());
  for (size_t i = bound; i < data.size(); ++i) {
    EXPECT_EQ(data[i], 0xEE) << "byte " << i << " written beyond the documented bound";
  }
  data.resize(bound);
  *out = data;
  return n;
}

TEST(Base64Test, EncodesOneTwoAndThreeBytesWithPadding) {
  EXPECT_EQ(Encode(FromText("M")), "TQ==");
  EXPECT_EQ(Encode(FromText("Ma")), "TWE=");
  EXPECT_EQ(Encode(FromText("Man")), "TWFu");
  char text[8];
  EXPECT_EQ(OvraBinToBase64(reinterpret_cast<const unsigned char*>("M"), 1, text), 4u);
  EXPECT_EQ(OvraBinToBase64(reinterpret_cast<const unsigned char*>("Ma"), 2, text), 4u);
  EXPECT_EQ(OvraBinToBase64(reinterpret_cast<const unsigned char*>("Man"), 3, text), 4u);
}

TEST(Base64Test, EncodesTheRfc4648Vectors) {
  EXPECT_EQ(Encode(FromText("f")), "Zg==");
  EXPECT_EQ(Encode(FromText("fo")), "Zm8=");
  EXPECT_EQ(Encode(FromText("foo")), "Zm9v");
  EXPECT_EQ(Encode(FromText("foob")), "Zm9vYg==");
  EXPECT_EQ(Encode(FromText("fooba")), "Zm9vYmE=");
  EXPECT_EQ(Encode(FromText("foobar")), "Zm9vYmFy");
  EXPECT_EQ(Encode(Bytes{0xFB, 0xFF, 0xBF}), "+/+/");
}

TEST(Base64Test, EncodingNothingWritesOnlyTheTerminator) {
  char text[4] = {'x', 'x', 'x', 'x'};
  EXPECT_EQ(OvraBinToBase64(reinterpret_cast<const unsigned char*>("abc"), 0, text), 0u);
  EXPECT_EQ(text[0], '\0');
  EXPECT_EQ(text[1], 'x');
}

TEST(Base64Test, NegativeLengthWritesOnlyTheTerminatorAndReadsNoData) {
  char text[2] = {'x', 'x'};
  EXPECT_EQ(OvraBinToBase64(nullptr, -5, text), 0u);
  EXPECT_EQ(text[0], '\0');
  EXPECT_EQ(text[1], 'x');
}

TEST(Base64Test, EncoderWritesExactlyFourCharactersPerGroupAndTheTerminator) {
  std::mt19937 rng(11);
  for (size_t len = 1; len < 70; ++len) {
    const Bytes data = RandomBytes(rng, len);
    const size_t need = 4 * ((len + 2) / 3) + 1;
    ExactBuffer text(need);
    ExactBuffer in(len);
    memcpy(in.p, data.data(), len);
    const unsigned n = OvraBinToBase64(in.p, static_cast<int>(len), reinterpret_cast<char*>(text.p));
    EXPECT_EQ(n, need - 1);
    EXPECT_EQ(text.p[need - 1], '\0');
  }
}

TEST(Base64Test, DecodesFullAndPaddedGroups) {
  Bytes out;
  EXPECT_EQ(Decode("TWFu", &out), 3);
  EXPECT_EQ(Bytes(out.begin(), out.begin() + 3), FromText("Man"));
  EXPECT_EQ(Decode("TWE=", &out), 2);
  EXPECT_EQ(Bytes(out.begin(), out.begin() + 2), FromText("Ma"));
  EXPECT_EQ(Decode("TQ==", &out), 1);
  EXPECT_EQ(out[0], 'M');
  EXPECT_EQ(Decode("Zm9vYmFy", &out), 6);
  EXPECT_EQ(Bytes(out.begin(), out.begin() + 6), FromText("foobar"));
}

TEST(Base64Test, DecodingALengthThatIsNotAMultipleOfFourFails) {
  Bytes out;
  EXPECT_EQ(Decode("TWF", &out), 0);
  EXPECT_EQ(Decode("T", &out), 0);
  EXPECT_EQ(Decode("TWFuT", &out), 0);
  EXPECT_EQ(Decode("TWFuTW", &out), 0);
}

TEST(Base64Test, PaddingInTheFirstOrSecondPlaceFails) {
  Bytes out;
  EXPECT_EQ(Decode("T===", &out), 0);
  EXPECT_EQ(Decode("=AAA", &out), 0);
  EXPECT_EQ(Decode("====", &out), 0);
  EXPECT_EQ(Decode("TWFu=QQQ", &out), 0);
}

TEST(Base64Test, LineBreaksWhitespaceAndOtherAlphabetsFail) {
  Bytes out;
  EXPECT_EQ(Decode("TWFu\nTWFu", &out), 0);
  EXPECT_EQ(Decode("TWFu\r\n", &out), 0);
  EXPECT_EQ(Decode(" TWF", &out), 0);
  EXPECT_EQ(Decode("TW u", &out), 0);
  EXPECT_EQ(Decode("TWFu\t", &out), 0);
  EXPECT_EQ(Decode("-_-_", &out), 0);  // the URL-safe alphabet
  EXPECT_EQ(Decode("TW.u", &out), 0);
}

TEST(Base64Test, EveryCharacterOutsideTheAlphabetFails) {
  const std::string alphabet =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  Bytes out;
  for (int c = 1; c < 256; ++c) {
    std::string text = "QUJD";
    text[2] = static_cast<char>(c);
    const bool valid = alphabet.find(static_cast<char>(c)) != std::string::npos || c == '=';
    if (valid) continue;
    EXPECT_EQ(Decode(text, &out), 0) << "character " << c;
  }
}

TEST(Base64Test, DecodingEmptyOrNullTextReturnsZero) {
  unsigned char data[4] = {1, 2, 3, 4};
  EXPECT_EQ(OvraBase64ToBin("", data), 0);
  EXPECT_EQ(OvraBase64ToBin(nullptr, data), 0);
  EXPECT_EQ(data[0], 1);
}

TEST(Base64Test, PaddingMayBeFollowedByALetterInItsGroup) {
  // "QQ" is 16, 16 -> 1040; "=" shifts right by 2 -> 260; "Q" is shifted in
  // -> 260 * 64 + 16 = 0x4110; two bytes remain counted.
  Bytes out;
  ASSERT_EQ(Decode("QQ=Q", &out), 2);
  EXPECT_EQ(out[0], 0x41);
  EXPECT_EQ(out[1], 0x10);
  // "TQ" -> 1232, ">> 2" -> 308, "A" -> 308 * 64 = 0x4D00.
  ASSERT_EQ(Decode("TQ=A", &out), 2);
  EXPECT_EQ(out[0], 0x4D);
  EXPECT_EQ(out[1], 0x00);
}

TEST(Base64Test, PaddingMayOccurInAnyGroup) {
  Bytes out;
  ASSERT_EQ(Decode("TQ==TWFuTWE=", &out), 6);
  EXPECT_EQ(Bytes(out.begin(), out.begin() + 6), FromText("MManMa"));
}

TEST(Base64Test, OnFailureEarlierGroupsAreWrittenButTheResultIsZero) {
  Bytes out;
  EXPECT_EQ(Decode("TWFuTWE=TW\nu", &out), 0);
  EXPECT_EQ(Bytes(out.begin(), out.begin() + 5), FromText("ManMa"));
}

TEST(Base64Test, DecoderReadsNothingBeyondTheTerminator) {
  // Exactly sized heap copies: a read past the zero would be caught.
  for (const char* s : {"T", "TW", "TWF", "TWFu", "TWFuT", "TW=", "TWE", "TQ=", "Q=", "="}) {
    const size_t len = strlen(s);
    ExactBuffer text(len + 1);
    memcpy(text.p, s, len + 1);
    ExactBuffer data(3 * (len / 4));
    const int n = OvraBase64ToBin(reinterpret_cast<const char*>(text.p), data.p);
    EXPECT_EQ(n, len == 4 ? 3 : 0) << s;
  }
}

// A literal model of the decoding steps, written independently of the
// library's table-driven decoder: per group, the value of each character by
// ranges, "=" shifting right by 2 at the third and fourth place only.
int ModelBase64ToBin(const std::string& text, Bytes* out) {
  out->clear();
  if (text.empty()) return 0;
  size_t pos = 0;
  for (;;) {
    unsigned long group = 0;
    int count = 3;
    for (int place = 0; place < 4; ++place) {
      if (pos + place >= text.size()) return 0;  // the terminator inside a group
      const char c = text[pos + place];
      int v;
      if (c >= 'A' && c <= 'Z') v = c - 'A';
      else if (c >= 'a' && c <= 'z') v = c - 'a' + 26;
      else if (c >= '0' && c <= '9') v = c - '0' + 52;
      else if (c == '+') v = 62;
      else if (c == '/') v = 63;
      else if (c == '=' && place >= 2) v = -1;
      else return 0;
      if (v < 0) {
        group >>= 2;
        --count;
      } else {
        group = group * 64 + static_cast<unsigned long>(v);
      }
    }
    if (count == 3) out->push_back(static_cast<unsigned char>(group >> 16));
    if (count >= 2) out->push_back(static_cast<unsigned char>(group >> 8));
    out->push_back(static_cast<unsigned char>(group));
    pos += 4;
    if (pos == text.size()) return static_cast<int>(out->size());
  }
}

TEST(Base64Test, DecoderMatchesALiteralModelOnRandomTextIncludingBytesWrittenBeforeAFailure) {
  std::mt19937 rng(12);
  const std::string pool =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/"
      "====== \n\r\t-_.*\x7f\x80\xff";
  for (int iter = 0; iter < 20000; ++iter) {
    const size_t groups = rng() % 6;
    size_t len = groups * 4;
    if (rng() % 8 == 0) len += 1 + rng() % 3;  // sometimes not a multiple of 4
    std::string text;
    const bool mostlyValid = rng() % 2 == 0;
    for (size_t i = 0; i < len; ++i) {
      const size_t limit = mostlyValid ? 64 : pool.size();
      char c = pool[rng() % limit];
      if (mostlyValid && rng() % 16 == 0) c = pool[rng() % pool.size()];
      text.push_back(c);
    }
    Bytes model;
    const int expected = ModelBase64ToBin(text, &model);
    Bytes out;
    const int got = Decode(text, &out);
    ASSERT_EQ(got, expected) << "text '" << text << "'";
    ASSERT_GE(out.size(), model.size());
    EXPECT_EQ(Bytes(out.begin(), out.begin() + model.size()), model) << "text '" << text << "'";
  }
}

TEST(Base64Test, ArbitraryBytesAreDecodedWithinTheDocumentedBuffers) {
  std::mt19937 rng(13);
  for (int iter = 0; iter < 20000; ++iter) {
    const size_t len = rng() % 40;
    ExactBuffer text(len + 1);
    for (size_t i = 0; i < len; ++i) {
      unsigned char c = static_cast<unsigned char>(rng());
      if (c == 0) c = 'A';
      text.p[i] = c;
    }
    text.p[len] = 0;
    ExactBuffer data(3 * (len / 4));
    const int n = OvraBase64ToBin(reinterpret_cast<const char*>(text.p), data.p);
    EXPECT_GE(n, 0);
    EXPECT_LE(static_cast<size_t>(n), data.size);
  }
}

// INT_MAX bytes encode to 2,863,311,532 characters: more than an int holds,
// which the unsigned result carries exactly. The data are zero bytes of a
// range backed by one megabyte; the text lands in another such range.
TEST(Base64Test, EncodesIntMaxBytesWithAnExactCount) {
  if (sizeof(void*) < 8) GTEST_SKIP() << "needs a 64-bit address space";
  if (ovra_test::kAddressSanitized) GTEST_SKIP() << "gigabytes of checked accesses: run uninstrumented";
  OVRA_REQUIRE_REPEATED_MAPPING();
  const unsigned char zero = 0;
  ovra_test::RepeatedMapping data(&zero, 1, static_cast<size_t>(INT_MAX) + 1, nullptr, 0, false);
  const size_t textSize = (static_cast<size_t>(INT_MAX) + 2) / 3 * 4 + 1;
  ovra_test::RepeatedMapping text(&zero, 1, textSize + 7, nullptr, 0, true);
  ASSERT_NE(data.Data(), nullptr);
  ASSERT_NE(text.Data(), nullptr);
  char* out = reinterpret_cast<char*>(text.Data());
  EXPECT_EQ(OvraBinToBase64(data.Data(), INT_MAX, out), 2863311532u);
  EXPECT_EQ(std::string(out + 2863311532u - 8, 9), std::string("AAAAAA==", 9));
}

// A text of 715,827,883 groups decodes to 2,147,483,649 bytes, beyond what
// the int result holds: the call fails instead of returning a wrapped count.
// One group fewer, padded to one byte, gives exactly INT_MAX bytes.
TEST(Base64Test, DecodingMoreThanIntMaxBytesFailsInsteadOfWrapping) {
  if (sizeof(void*) < 8) GTEST_SKIP() << "needs a 64-bit address space";
  if (ovra_test::kAddressSanitized) GTEST_SKIP() << "gigabytes of checked accesses: run uninstrumented";
  OVRA_REQUIRE_REPEATED_MAPPING();
  const size_t length = 2863311532u;  // 715,827,883 groups of four
  const char letter = 'A';
  const char overTail[5] = {'A', 'A', 'A', 'A', '\0'};
  const char exactTail[5] = {'Q', 'Q', '=', '=', '\0'};
  ovra_test::RepeatedMapping over(&letter, 1, length + 1, overTail, 5, false);
  ovra_test::RepeatedMapping exact(&letter, 1, length + 1, exactTail, 5, false);
  const unsigned char zero = 0;
  ovra_test::RepeatedMapping data(&zero, 1, length / 4 * 3 + 8, nullptr, 0, true);
  ASSERT_NE(over.Data(), nullptr);
  ASSERT_NE(exact.Data(), nullptr);
  ASSERT_NE(data.Data(), nullptr);
  EXPECT_EQ(OvraBase64ToBin(reinterpret_cast<const char*>(exact.Data()), data.Data()), INT_MAX);
  EXPECT_EQ(data.Data()[INT_MAX - 1], 'A');
  EXPECT_EQ(OvraBase64ToBin(reinterpret_cast<const char*>(over.Data()), data.Data()), 0);
}

TEST(Base64Test, RoundTripsEveryLengthUpTo300) {
  std::mt19937 rng(14);
  for (size_t len = 0; len <= 300; ++len) {
    const Bytes data = RandomBytes(rng, len);
    const std::string text = Encode(data);
    EXPECT_EQ(text.size(), 4 * ((len + 2) / 3));
    Bytes out;
    const int n = Decode(text, &out);
    ASSERT_EQ(static_cast<size_t>(n), len);
    EXPECT_EQ(Bytes(out.begin(), out.begin() + len), data);
  }
}

#ifdef OVRA_HAVE_OPENSSL
TEST(Base64Test, EncoderMatchesOpenSslOnRandomInputs) {
  std::mt19937 rng(15);
  for (int iter = 0; iter < 3000; ++iter) {
    size_t len = rng() % 200;
    if (iter % 100 == 0) len = 10000 + rng() % 5000;
    const Bytes data = RandomBytes(rng, len);
    std::vector<unsigned char> ref(4 * ((len + 2) / 3) + 1);
    const int refLen = EVP_EncodeBlock(ref.data(), data.data(), static_cast<int>(len));
    const std::string text = Encode(data);
    ASSERT_EQ(text.size(), static_cast<size_t>(refLen));
    EXPECT_EQ(text, std::string(reinterpret_cast<const char*>(ref.data()), refLen));
  }
}

TEST(Base64Test, DecoderMatchesOpenSslOnRandomCanonicalText) {
  std::mt19937 rng(16);
  for (int iter = 0; iter < 3000; ++iter) {
    size_t len = 1 + rng() % 200;
    if (iter % 100 == 0) len = 10000 + rng() % 5000;
    const Bytes data = RandomBytes(rng, len);
    std::vector<unsigned char> text(4 * ((len + 2) / 3) + 1);
    const int textLen = EVP_EncodeBlock(text.data(), data.data(), static_cast<int>(len));
    std::vector<unsigned char> ref(3 * (textLen / 4));
    const int refLen = EVP_DecodeBlock(ref.data(), text.data(), textLen);
    ASSERT_GE(refLen, 0);
    // OpenSSL counts the bytes of the padding characters too.
    const int pads = (text[textLen - 1] == '=') + (text[textLen - 2] == '=');
    Bytes out;
    const int n = Decode(std::string(reinterpret_cast<const char*>(text.data()), textLen), &out);
    ASSERT_EQ(n, refLen - pads);
    EXPECT_EQ(Bytes(out.begin(), out.begin() + n), Bytes(ref.begin(), ref.begin() + n));
    EXPECT_EQ(Bytes(out.begin(), out.begin() + n), data);
  }
}
#endif

// ===========================================================================
// BER
// ===========================================================================

TEST(BerTest, DecodesAShortFormElement) {
  const unsigned char buf[] = {0x30, 0x03, 0x01, 0x02, 0x03};
  SBerElement e;
  EXPECT_EQ(OvraBerDecode(buf, 5, &e), 5u);
  EXPECT_EQ(e.tag, 0x30u);
  EXPECT_EQ(e.length, 3u);
  EXPECT_EQ(e.data, buf + 2);
}

TEST(BerTest, ContentsBeyondTheSizeFailAndClearTheElement) {
  const unsigned char buf[] = {0x30, 0x03, 0x01, 0x02, 0x03};
  SBerElement e = {7, 7, buf};
  EXPECT_EQ(OvraBerDecode(buf, 4, &e), 0u);
  EXPECT_EQ(e.tag, 0u);
  EXPECT_EQ(e.length, 0u);
  EXPECT_EQ(e.data, nullptr);
}

TEST(BerTest, DecodesAOneByteLongFormLength) {
  Bytes buf = {0x04, 0x81, 0x80};
  buf.resize(3 + 128, 0x55);
  SBerElement e;
  EXPECT_EQ(OvraBerDecode(buf.data(), static_cast<unsigned>(buf.size()), &e), 131u);
  EXPECT_EQ(e.tag, 0x04u);
  EXPECT_EQ(e.length, 128u);
  EXPECT_EQ(e.data, buf.data() + 3);
  EXPECT_EQ(OvraBerDecode(buf.data(), 130, &e), 0u);
}

TEST(BerTest, DecodesAnIndefiniteLengthWithoutLookingAtTheContents) {
  const unsigned char buf[] = {0x30, 0x80};
  SBerElement e;
  EXPECT_EQ(OvraBerDecode(buf, 2, &e), 2u);
  EXPECT_EQ(e.tag, 0x30u);
  EXPECT_EQ(e.length, kBerIndefiniteLength);
  EXPECT_EQ(e.data, buf + 2);
}

TEST(BerTest, ASingleByteDecodesToZeroAndAClearedElement) {
  const unsigned char buf[] = {0x30};
  SBerElement e = {1, 2, buf};
  EXPECT_EQ(OvraBerDecode(buf, 1, &e), 0u);
  EXPECT_EQ(e.tag, 0u);
  EXPECT_EQ(e.length, 0u);
  EXPECT_EQ(e.data, nullptr);
  EXPECT_EQ(OvraBerDecode(buf, 0, &e), 0u);
  EXPECT_EQ(OvraBerDecode(nullptr, 10, &e), 0u);
  EXPECT_EQ(OvraBerDecode(buf, 1, nullptr), 0u);
}

TEST(BerTest, LongFormNeedsItsLengthBytesWithinTheSize) {
  const unsigned char buf[] = {0x04, 0x82, 0x00};
  SBerElement e;
  EXPECT_EQ(OvraBerDecode(buf, 3, &e), 0u);
  const unsigned char empty[] = {0x04, 0x82, 0x00, 0x00};
  EXPECT_EQ(OvraBerDecode(empty, 4, &e), 4u);
  EXPECT_EQ(e.length, 0u);
  EXPECT_EQ(e.data, empty + 4);
}

TEST(BerTest, MoreThanFourLengthBytesKeepOnlyTheLastFour) {
  Bytes buf = {0x04, 0x86, 0xAB, 0xCD, 0x00, 0x00, 0x00, 0x05, 1, 2, 3, 4, 5};
  SBerElement e;
  EXPECT_EQ(OvraBerDecode(buf.data(), static_cast<unsigned>(buf.size()), &e), 13u);
  EXPECT_EQ(e.length, 5u);
  EXPECT_EQ(e.data, buf.data() + 8);
  // The largest length byte: 127 length bytes follow the tag and 0xFF.
  Bytes big(2 + 127 + 3, 0);
  big[0] = 0x04;
  big[1] = 0xFF;
  big[2 + 126] = 3;
  EXPECT_EQ(OvraBerDecode(big.data(), static_cast<unsigned>(big.size()), &e), big.size());
  EXPECT_EQ(e.length, 3u);
  EXPECT_EQ(OvraBerDecode(big.data(), 128, &e), 0u);
}

TEST(BerTest, HugeLengthsDoNotWrapAroundTheSizeCheck) {
  // Header 6 + 0xFFFFFFFE would wrap to 4 in 32 bits.
  const unsigned char buf[] = {0x04, 0x84, 0xFF, 0xFF, 0xFF, 0xFE, 0, 0};
  SBerElement e;
  EXPECT_EQ(OvraBerDecode(buf, sizeof buf, &e), 0u);
  const unsigned char max[] = {0x04, 0x84, 0xFF, 0xFF, 0xFF, 0xFF};
  EXPECT_EQ(OvraBerDecode(max, sizeof max, &e), 0u);
}

TEST(BerTest, ArbitraryBytesDecodeWithinTheBuffer) {
  std::mt19937 rng(21);
  for (int iter = 0; iter < 50000; ++iter) {
    const size_t size = rng() % 12;
    ExactBuffer buf(size);
    for (size_t i = 0; i < size; ++i) buf.p[i] = static_cast<unsigned char>(rng());
    if (size >= 2 && rng() % 2) buf.p[1] = static_cast<unsigned char>(0x80 + rng() % 8);
    SBerElement e;
    const unsigned n = OvraBerDecode(buf.p, static_cast<unsigned>(size), &e);
    ASSERT_LE(n, size);
    if (n == 0) {
      EXPECT_EQ(e.data, nullptr);
      continue;
    }
    EXPECT_GE(e.data, buf.p + 2);
    EXPECT_LE(e.data, buf.p + size);
    if (e.length != kBerIndefiniteLength) {
      EXPECT_EQ(static_cast<size_t>(e.data - buf.p) + e.length, n);
    }
  }
}

TEST(BerTest, EncodesAShortElementIntoAnExactBuffer) {
  const unsigned char content = 0x05;
  const SBerElement e = {2, 1, &content};
  unsigned char buf[4] = {0xEE, 0xEE, 0xEE, 0xEE};
  EXPECT_EQ(OvraBerEncode(buf, 3, &e), 3u);
  EXPECT_EQ(buf[0], 0x02);
  EXPECT_EQ(buf[1], 0x01);
  EXPECT_EQ(buf[2], 0x05);
  EXPECT_EQ(buf[3], 0xEE);
}

TEST(BerTest, EncodingIntoTooSmallABufferWritesNothing) {
  const unsigned char content = 0x05;
  const SBerElement e = {2, 1, &content};
  unsigned char buf[3] = {0xEE, 0xEE, 0xEE};
  EXPECT_EQ(OvraBerEncode(buf, 2, &e), 0u);
  EXPECT_EQ(buf[0], 0xEE);
  EXPECT_EQ(buf[1], 0xEE);
  EXPECT_EQ(OvraBerEncode(buf, 0, &e), 0u);
  EXPECT_EQ(OvraBerEncode(nullptr, 3, &e), 0u);
  EXPECT_EQ(OvraBerEncode(buf, 3, nullptr), 0u);
  EXPECT_EQ(buf[0], 0xEE);
}

TEST(BerTest, EncodesTheIndefiniteForm) {
  const SBerElement e = {0x30, kBerIndefiniteLength, nullptr};
  unsigned char buf[4] = {0xEE, 0xEE, 0xEE, 0xEE};
  EXPECT_EQ(OvraBerEncode(buf, 4, &e), 2u);
  EXPECT_EQ(buf[0], 0x30);
  EXPECT_EQ(buf[1], 0x80);
  EXPECT_EQ(buf[2], 0xEE);
  const unsigned char junk[3] = {1, 2, 3};
  const SBerElement withData = {0x30, kBerIndefiniteLength, junk};
  EXPECT_EQ(OvraBerEncode(buf, 2, &withData), 2u);
  EXPECT_EQ(buf[2], 0xEE);
}

TEST(BerTest, TwoHundredContentBytesGetTheKeptLongForm) {
  Bytes content(200);
  for (size_t i = 0; i < content.size(); ++i) content[i] = static_cast<unsigned char>(i);
  const SBerElement e = {0x04, 200, content.data()};
  Bytes buf(203 + 1, 0xEE);
  EXPECT_EQ(OvraBerEncode(buf.data(), 203, &e), 203u);
  EXPECT_EQ(buf[0], 0x04);
  EXPECT_EQ(buf[1], 0x81);
  EXPECT_EQ(buf[2], 0x00);  // 200 >> 24, not 200
  EXPECT_EQ(Bytes(buf.begin() + 3, buf.begin() + 203), content);
  EXPECT_EQ(buf[203], 0xEE);
  EXPECT_EQ(OvraBerEncode(buf.data(), 202, &e), 0u);
}

TEST(BerTest, LongFormBytesAtTheRangeLimits) {
  struct Case {
    unsigned n;
    unsigned header;
    unsigned char lengthBytes[3];
  };
  const Case cases[] = {
      {0x80, 3, {0x81, 0x00}},
      {0xFFFF, 3, {0x81, 0x00}},
      {0x10000, 4, {0x82, 0x00, 0x00}},
      {0x12345, 4, {0x82, 0x00, 0x45}},
      {0xFFFFFF, 4, {0x82, 0x00, 0xFF}},
  };
  for (const Case& c : cases) {
    Bytes content(c.n, 0x3C);
    const SBerElement e = {0x104, c.n, content.data()};
    Bytes buf(c.header + c.n);
    ASSERT_EQ(OvraBerEncode(buf.data(), static_cast<unsigned>(buf.size()), &e), c.header + c.n)
        << c.n;
    EXPECT_EQ(buf[0], 0x04) << "only the tag's low byte is written";
    for (unsigned i = 0; i + 1 < c.header; ++i) EXPECT_EQ(buf[1 + i], c.lengthBytes[i]) << c.n;
    EXPECT_EQ(buf[c.header], 0x3C);
    EXPECT_EQ(buf.back(), 0x3C);
    EXPECT_EQ(OvraBerEncode(buf.data(), static_cast<unsigned>(buf.size()) - 1, &e), 0u);
  }
}

TEST(BerTest, ContentLengthsOf0x1000000OrMoreAreRejected) {
  unsigned char buf[8] = {0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE};
  for (unsigned n : {0x1000000u, 0x7FFFFFFFu, 0xFFFFFFFEu}) {
    const SBerElement e = {0x04, n, nullptr};
    EXPECT_EQ(OvraBerEncode(buf, 0xFFFFFFFFu, &e), 0u) << n;
  }
  for (unsigned char b : buf) EXPECT_EQ(b, 0xEE);
}

TEST(BerTest, NullContentWritesOnlyTheHeaderButNeedsRoomForTheContents) {
  const SBerElement e = {0x30, 19, nullptr};
  Bytes buf(21, 0xEE);
  EXPECT_EQ(OvraBerEncode(buf.data(), 21, &e), 2u);
  EXPECT_EQ(buf[0], 0x30);
  EXPECT_EQ(buf[1], 19);
  EXPECT_EQ(buf[2], 0xEE);
  EXPECT_EQ(OvraBerEncode(buf.data(), 20, &e), 0u);
  const SBerElement big = {0x04, 300, nullptr};
  Bytes bigBuf(303, 0xEE);
  EXPECT_EQ(OvraBerEncode(bigBuf.data(), 303, &big), 3u);
  EXPECT_EQ(bigBuf[1], 0x81);
  EXPECT_EQ(bigBuf[2], 0x00);
  EXPECT_EQ(bigBuf[3], 0xEE);
}

TEST(BerTest, EveryLengthBelow0x80RoundTrips) {
  std::mt19937 rng(22);
  for (unsigned len = 0; len < 0x80; ++len) {
    const Bytes content = RandomBytes(rng, len);
    const unsigned tag = rng() & 0xFF;
    const SBerElement e = {tag, len, content.data()};
    ExactBuffer buf(2 + len);
    ASSERT_EQ(OvraBerEncode(buf.p, 2 + len, &e), 2 + len);
    EXPECT_EQ(buf.p[1], len);
    SBerElement d;
    ASSERT_EQ(OvraBerDecode(buf.p, 2 + len, &d), 2 + len);
    EXPECT_EQ(d.tag, tag);
    EXPECT_EQ(d.length, len);
    EXPECT_EQ(d.data, buf.p + 2);
    EXPECT_EQ(Bytes(d.data, d.data + len), content);
  }
}

TEST(BerTest, NestedElementsDecodeOneLevelAtATime) {
  const unsigned char blob[] = {0x30, 0x08, 0x02, 0x01, 0x07, 0x04, 0x03, 0xAA, 0xBB, 0xCC};
  SBerElement outer, first, second;
  ASSERT_EQ(OvraBerDecode(blob, sizeof blob, &outer), sizeof blob);
  ASSERT_EQ(OvraBerDecode(outer.data, outer.length, &first), 3u);
  EXPECT_EQ(first.tag, 0x02u);
  EXPECT_EQ(first.data[0], 7);
  ASSERT_EQ(OvraBerDecode(outer.data + 3, outer.length - 3, &second), 5u);
  EXPECT_EQ(second.tag, 0x04u);
  EXPECT_EQ(second.length, 3u);
  EXPECT_EQ(second.data[2], 0xCC);
}

// ===========================================================================
// Internet checksum
// ===========================================================================

// The plain reference: big-endian words summed into 64 bits, folded at the
// end, an odd last byte padded with a zero on the right.
unsigned short ReferenceChecksum(const Bytes& d) {
  unsigned long long s = 0;
  size_t i = 0;
  for (; i + 1 < d.size(); i += 2) s += (static_cast<unsigned>(d[i]) << 8) | d[i + 1];
  if (i < d.size()) s += static_cast<unsigned>(d[i]) << 8;
  while (s >> 16) s = (s & 0xFFFF) + (s >> 16);
  return static_cast<unsigned short>(~s & 0xFFFF);
}

TEST(ChecksumTest, ReproducesTheRfc1071Example) {
  const unsigned char data[] = {0x00, 0x01, 0xF2, 0x03, 0xF4, 0xF5, 0xF6, 0xF7};
  EXPECT_EQ(OvraComputeChecksum(data, sizeof data), 0x220D);
}

TEST(ChecksumTest, EmptyInputGivesAllOnes) {
  EXPECT_EQ(OvraComputeChecksum(nullptr, 0), 0xFFFF);
  TInetChecksum c;
  EXPECT_EQ(c.GetCurrent(), 0xFFFF);
  EXPECT_EQ(c.Finish(), 0xFFFF);
}

TEST(ChecksumTest, AnOddByteIsTheHighHalfOfItsWord) {
  const unsigned char one = 0x01;
  EXPECT_EQ(OvraComputeChecksum(&one, 1), 0xFEFF);
}

TEST(ChecksumTest, ASumOfAllOnesGivesZero) {
  const unsigned char ff[] = {0xFF, 0xFF};
  EXPECT_EQ(OvraComputeChecksum(ff, 2), 0x0000);
  const unsigned char zeros[64] = {};
  EXPECT_EQ(OvraComputeChecksum(zeros, sizeof zeros), 0xFFFF);
}

TEST(ChecksumTest, SplittingAtAnyPointGivesTheSameResult) {
  const Bytes abc = FromText("abc");
  TInetChecksum c;
  c.Update(abc.data(), 2);
  c.Update(abc.data() + 2, 1);
  const unsigned short abThenC = c.Finish();
  c.Update(abc.data(), 1);
  c.Update(abc.data() + 1, 2);
  const unsigned short aThenBc = c.Finish();
  const unsigned short whole = OvraComputeChecksum(abc.data(), 3);
  EXPECT_EQ(abThenC, whole);
  EXPECT_EQ(aThenBc, whole);
  EXPECT_EQ(whole, ReferenceChecksum(abc));
}

TEST(ChecksumTest, UpdateWithLengthZeroReturnsAtOnceEvenWhenOdd) {
  const unsigned char a = 'a';
  TInetChecksum c;
  c.Update(&a, 1);
  const unsigned short before = c.GetCurrent();
  c.Update(nullptr, 0);  // would read a byte if it did not return at once
  EXPECT_EQ(c.GetCurrent(), before);
  const unsigned char b = 'b';
  c.Update(&b, 1);
  EXPECT_EQ(c.Finish(), ReferenceChecksum(FromText("ab")));
}

TEST(ChecksumTest, GetCurrentLeavesTheStateUnchanged) {
  const Bytes data = FromText("hello world");
  TInetChecksum c;
  c.Update(data.data(), 5);
  const unsigned short first = c.GetCurrent();
  EXPECT_EQ(c.GetCurrent(), first);
  c.Update(data.data() + 5, 6);
  EXPECT_EQ(c.GetCurrent(), ReferenceChecksum(data));
}

TEST(ChecksumTest, SetCurrentResumesFromAnEarlierResult) {
  std::mt19937 rng(31);
  for (int iter = 0; iter < 200; ++iter) {
    const Bytes data = RandomBytes(rng, 1 + rng() % 100);
    const unsigned cut = rng() % (data.size() + 1);
    TInetChecksum first;
    first.Update(data.data(), cut);
    const unsigned short partial = first.GetCurrent();
    TInetChecksum resumed;
    resumed.SetCurrent(partial, cut);
    resumed.Update(data.data() + cut, static_cast<unsigned>(data.size() - cut));
    first.Update(data.data() + cut, static_cast<unsigned>(data.size() - cut));
    EXPECT_EQ(resumed.GetCurrent(), first.GetCurrent());
    EXPECT_EQ(resumed.GetCurrent(), ReferenceChecksum(data));
  }
}

TEST(ChecksumTest, FinishLeavesTheObjectAsAfterReset) {
  const Bytes x = FromText("xyz");
  const Bytes y = FromText("0123");
  TInetChecksum c;
  c.Update(x.data(), 3);  // leaves an odd byte pending
  c.Finish();
  EXPECT_EQ(c.GetCurrent(), 0xFFFF);
  c.Update(y.data(), 4);
  EXPECT_EQ(c.Finish(), ReferenceChecksum(y));
  c.Update(x.data(), 3);
  c.Reset();
  c.Update(y.data(), 4);
  EXPECT_EQ(c.Finish(), ReferenceChecksum(y));
}

TEST(ChecksumTest, MatchesAPlainSumOverRandomInputsSplitAtRandomPoints) {
  std::mt19937 rng(32);
  for (int iter = 0; iter < 2000; ++iter) {
    size_t len = rng() % 300;
    if (iter % 50 == 0) len = 70000 + rng() % 70000;
    Bytes data = RandomBytes(rng, len);
    if (iter % 7 == 0) for (auto& b : data) b |= 0xF0;  // many carries
    const unsigned short expected = ReferenceChecksum(data);
    EXPECT_EQ(OvraComputeChecksum(data.data(), static_cast<unsigned>(len)), expected);
    TInetChecksum c;
    size_t pos = 0;
    while (pos < len) {
      const size_t run = std::min(len - pos, static_cast<size_t>(rng() % 70));
      c.Update(data.data() + pos, static_cast<unsigned>(run));
      pos += run;
    }
    EXPECT_EQ(c.Finish(), expected) << "iteration " << iter;
  }
}

TEST(ChecksumTest, LongRunsOfOnesDoNotLoseCarries) {
  // 300000 bytes of 0xFF: far more words than a 32-bit sum could take
  // without folding.
  Bytes ones(300000, 0xFF);
  EXPECT_EQ(OvraComputeChecksum(ones.data(), static_cast<unsigned>(ones.size())),
            ReferenceChecksum(ones));
  ones.push_back(0xFF);
  EXPECT_EQ(OvraComputeChecksum(ones.data(), static_cast<unsigned>(ones.size())),
            ReferenceChecksum(ones));
}

TEST(ChecksumTest, EveryAlignmentAndTailLengthMatchesThePlainSum) {
  std::mt19937 rng(33);
  const Bytes data = RandomBytes(rng, 200);
  for (size_t start = 0; start < 16; ++start) {
    for (size_t len = 0; len + start <= 100; ++len) {
      const Bytes part(data.begin() + start, data.begin() + start + len);
      EXPECT_EQ(OvraComputeChecksum(data.data() + start, static_cast<unsigned>(len)),
                ReferenceChecksum(part));
    }
  }
}

// ===========================================================================
// Cipher framework, exercised with small test ciphers
// ===========================================================================

// A block "cipher" whose block function is invertible and position dependent
// (or the identity, which shows the chaining and padding bytes directly).
// Counts its block calls.
class TTestBlockCipher : public TBlockCipher {
 public:
  TTestBlockCipher(ECipherOp op, unsigned blockSize = 8, bool identity = false)
      : TBlockCipher(op), m_blockSize(blockSize), m_identity(identity) {}
  unsigned BerInit(const unsigned char*, unsigned) override { return 0; }
  unsigned BerDump(unsigned char*, unsigned) override { return 0; }
  void ProcessBlock(unsigned char* block) const override {
    ++calls;
    if (m_identity) return;
    for (unsigned i = 0; i < m_blockSize; ++i) {
      if (m_op == eEncrypt) {
        block[i] = static_cast<unsigned char>((block[i] ^ 0x5A) + 13 * i + 1);
      } else {
        block[i] = static_cast<unsigned char>((block[i] - 13 * i - 1) ^ 0x5A);
      }
    }
  }
  unsigned GetBlockSize() const override { return m_blockSize; }
  const unsigned char* Chain() const { return m_chain; }
  const unsigned char* Iv() const { return m_iv; }
  mutable unsigned calls = 0;

 private:
  unsigned m_blockSize;
  bool m_identity;
};

class TTestStreamCipher : public TStreamCipher {
 public:
  explicit TTestStreamCipher(ECipherOp op) : TStreamCipher(op) {}
  unsigned BerInit(const unsigned char*, unsigned) override { return 0; }
  unsigned BerDump(unsigned char*, unsigned) override { return 0; }
  void ProcessStream(unsigned char* buf, unsigned len) override {
    for (unsigned i = 0; i < len; ++i) buf[i] ^= static_cast<unsigned char>(position++);
  }
  void Reset() override {
    ++resets;
    position = 0;
  }
  unsigned position = 0;
  unsigned resets = 0;
};

class TTestRsaCipher : public TRsaCipher {
 public:
  explicit TTestRsaCipher(ECipherOp op) : TRsaCipher(op) {}
  unsigned BerInit(const unsigned char*, unsigned) override { return 0; }
  unsigned BerDump(unsigned char*, unsigned) override { return 0; }
  unsigned ProcessData(unsigned char* buf, unsigned len, bool final) override {
    lastFinal = final;
    if (len) buf[0] ^= 1;
    return len + 1;
  }
  bool lastFinal = false;
};

Bytes EncryptAll(TBlockCipher& c, Bytes data, bool final, unsigned* result) {
  const unsigned len = static_cast<unsigned>(data.size());
  data.resize(len + 16, 0xEE);
  *result = c.EncryptData(data.data(), len, final);
  return data;
}

TEST(CipherFrameworkTest, EnumerationsHaveTheirFixedValues) {
  EXPECT_EQ(static_cast<int>(TCipher::eRsaCipher), 0);
  EXPECT_EQ(static_cast<int>(TCipher::eBlockCipher), 1);
  EXPECT_EQ(static_cast<int>(TCipher::eStreamCipher), 2);
  EXPECT_EQ(static_cast<int>(TCipher::eEncrypt), 0);
  EXPECT_EQ(static_cast<int>(TCipher::eDecrypt), 1);
  EXPECT_EQ(static_cast<int>(TBlockCipher::eCbc), 0);
  EXPECT_EQ(static_cast<int>(TBlockCipher::eEcb), 1);
  EXPECT_EQ(sizeof(TCipher::ECipherOp), 4u);
  EXPECT_EQ(sizeof(TBlockCipher::ECipherMode), 4u);
  EXPECT_EQ(sizeof(TCipher::ECipherType), 4u);
}

TEST(CipherFrameworkTest, EachFamilyReportsItsType) {
  TTestBlockCipher block(TCipher::eEncrypt);
  TTestStreamCipher stream(TCipher::eEncrypt);
  TTestRsaCipher rsa(TCipher::eEncrypt);
  TCipher* all[] = {&block, &stream, &rsa};
  EXPECT_EQ(all[0]->GetType(), TCipher::eBlockCipher);
  EXPECT_EQ(all[1]->GetType(), TCipher::eStreamCipher);
  EXPECT_EQ(all[2]->GetType(), TCipher::eRsaCipher);
}

TEST(CipherFrameworkTest, BlockCipherStartsInCbcMode) {
  TTestBlockCipher c(TCipher::eEncrypt);
  EXPECT_EQ(c.GetMode(), TBlockCipher::eCbc);
  c.SetMode(TBlockCipher::eEcb);
  EXPECT_EQ(c.GetMode(), TBlockCipher::eEcb);
}

TEST(CipherFrameworkTest, EncryptingNothingWithFinalYieldsOneBlockOfPadding) {
  TTestBlockCipher c(TCipher::eEncrypt, 8, true);
  c.SetMode(TBlockCipher::eEcb);
  unsigned result;
  const Bytes out = EncryptAll(c, Bytes(), true, &result);
  EXPECT_EQ(result, 8u);
  for (int i = 0; i < 8; ++i) EXPECT_EQ(out[i], 8);
  EXPECT_EQ(c.calls, 1u);
}

TEST(CipherFrameworkTest, PaddingFillsThePartialBlockWithItsLength) {
  for (unsigned r = 0; r < 8; ++r) {
    TTestBlockCipher c(TCipher::eEncrypt, 8, true);
    c.SetMode(TBlockCipher::eEcb);
    Bytes data(16 + r, 0x11);
    unsigned result;
    const Bytes out = EncryptAll(c, data, true, &result);
    EXPECT_EQ(result, 24u);
    for (unsigned i = 0; i < 16 + r; ++i) EXPECT_EQ(out[i], 0x11);
    for (unsigned i = 16 + r; i < 24; ++i) EXPECT_EQ(out[i], 8 - r);
    EXPECT_EQ(out[24], 0xEE) << "nothing is written past the padded block";
  }
}

TEST(CipherFrameworkTest, SixteenBytesEncryptToTwentyFourAndDecryptBackToSixteen) {
  TTestBlockCipher enc(TCipher::eEncrypt);
  TTestBlockCipher dec(TCipher::eDecrypt);
  const unsigned char iv[8] = {9, 8, 7, 6, 5, 4, 3, 2};
  enc.SetIv(iv);
  dec.SetIv(iv);
  Bytes data(24);
  for (int i = 0; i < 16; ++i) data[i] = static_cast<unsigned char>(i * 7);
  const Bytes plain(data.begin(), data.begin() + 16);
  EXPECT_EQ(enc.EncryptData(data.data(), 16, true), 24u);
  EXPECT_NE(Bytes(data.begin(), data.begin() + 16), plain);
  EXPECT_EQ(dec.DecryptData(data.data(), 24, true), 16u);
  EXPECT_EQ(Bytes(data.begin(), data.begin() + 16), plain);
  EXPECT_EQ(Bytes(data.begin() + 16, data.end()), Bytes(8, 8)) << "the pad stays behind the result";
}

TEST(CipherFrameworkTest, APartialBlockWithoutFinalIsRefusedOnEncryption) {
  TTestBlockCipher c(TCipher::eEncrypt);
  Bytes data(8, 0x33);
  EXPECT_EQ(c.EncryptData(data.data(), 5, false), 0u);
  EXPECT_EQ(data, Bytes(8, 0x33));
  EXPECT_EQ(c.calls, 0u);
  EXPECT_EQ(c.EncryptData(data.data(), 13, false), 0u);
}

TEST(CipherFrameworkTest, APartialBlockIsRefusedOnDecryptionEvenWithFinal) {
  TTestBlockCipher c(TCipher::eDecrypt);
  Bytes data(16, 0x33);
  EXPECT_EQ(c.DecryptData(data.data(), 5, true), 0u);
  EXPECT_EQ(c.DecryptData(data.data(), 12, false), 0u);
  EXPECT_EQ(data, Bytes(16, 0x33));
  EXPECT_EQ(c.calls, 0u);
}

TEST(CipherFrameworkTest, WholeBlocksWithoutFinalReturnTheirLengthAndAddNoPadding) {
  TTestBlockCipher c(TCipher::eEncrypt, 8, true);
  c.SetMode(TBlockCipher::eEcb);
  unsigned result;
  const Bytes out = EncryptAll(c, Bytes(16, 0x44), false, &result);
  EXPECT_EQ(result, 16u);
  EXPECT_EQ(out[16], 0xEE);
  EXPECT_EQ(c.calls, 2u);
}

TEST(CipherFrameworkTest, AForgedLastByteOfFFStripsOneBlock) {
  TTestBlockCipher c(TCipher::eDecrypt, 8, true);
  c.SetMode(TBlockCipher::eEcb);
  Bytes data(24, 0x01);
  data[23] = 0xFF;
  EXPECT_EQ(c.DecryptData(data.data(), 24, true), 16u);
}

TEST(CipherFrameworkTest, PaddingIsReadWithoutValidation) {
  TTestBlockCipher c(TCipher::eDecrypt, 8, true);
  c.SetMode(TBlockCipher::eEcb);
  Bytes data(16, 0x00);
  EXPECT_EQ(c.DecryptData(data.data(), 16, true), 16u) << "a last byte of 0 strips nothing";
  data[15] = 3;  // the other pad bytes are not 3: still accepted
  EXPECT_EQ(c.DecryptData(data.data(), 16, true), 13u);
  data[15] = 8;
  EXPECT_EQ(c.DecryptData(data.data(), 16, true), 8u);
  data[15] = 9;
  EXPECT_EQ(c.DecryptData(data.data(), 16, true), 8u);
  data[15] = 3;
  EXPECT_EQ(c.DecryptData(data.data(), 16, false), 16u) << "no pad without final";
}

TEST(CipherFrameworkTest, DecryptingNothingWithFinalReturnsZero) {
  TTestBlockCipher c(TCipher::eDecrypt);
  unsigned char guard[8] = {5, 5, 5, 5, 5, 5, 5, 5};
  EXPECT_EQ(c.DecryptData(guard + 8, 0, true), 0u);
  EXPECT_EQ(c.DecryptData(guard, 0, false), 0u);
  c.SetMode(TBlockCipher::eEcb);
  EXPECT_EQ(c.DecryptData(guard + 8, 0, true), 0u);
  EXPECT_EQ(c.calls, 0u);
}

TEST(CipherFrameworkTest, CbcWithTheIdentityBlockXorsEachBlockWithThePreviousCiphertext) {
  TTestBlockCipher c(TCipher::eEncrypt, 8, true);
  const unsigned char iv[8] = {1, 2, 3, 4, 5, 6, 7, 8};
  c.SetIv(iv);
  Bytes data(24);
  for (int i = 0; i < 16; ++i) data[i] = static_cast<unsigned char>(0x10 + i);
  ASSERT_EQ(c.EncryptData(data.data(), 16, true), 24u);
  for (int i = 0; i < 8; ++i) {
    const unsigned char c0 = static_cast<unsigned char>((0x10 + i) ^ iv[i]);
    EXPECT_EQ(data[i], c0);
    const unsigned char c1 = static_cast<unsigned char>((0x18 + i) ^ c0);
    EXPECT_EQ(data[8 + i], c1);
    EXPECT_EQ(data[16 + i], 8 ^ c1) << "the padding block is chained too";
  }
}

TEST(CipherFrameworkTest, SetIvWithNullGivesAZeroVector) {
  TTestBlockCipher c(TCipher::eEncrypt, 8, true);
  const unsigned char iv[8] = {1, 2, 3, 4, 5, 6, 7, 8};
  c.SetIv(iv);
  c.SetIv(nullptr);
  for (int i = 0; i < 8; ++i) {
    EXPECT_EQ(c.Iv()[i], 0);
    EXPECT_EQ(c.Chain()[i], 0);
  }
  Bytes data(16, 0x5C);
  ASSERT_EQ(c.EncryptData(data.data(), 8, false), 8u);
  EXPECT_EQ(Bytes(data.begin(), data.begin() + 8), Bytes(8, 0x5C));
}

TEST(CipherFrameworkTest, SetIvCopiesBlockSizeBytesIntoBothVectors) {
  TTestBlockCipher c(TCipher::eEncrypt, 4);
  const unsigned char iv[8] = {1, 2, 3, 4, 5, 6, 7, 8};
  c.SetIv(iv);
  for (int i = 0; i < 4; ++i) {
    EXPECT_EQ(c.Iv()[i], iv[i]);
    EXPECT_EQ(c.Chain()[i], iv[i]);
  }
}

TEST(CipherFrameworkTest, AfterAFinalCbcCallTheSamePlaintextGivesTheSameCiphertext) {
  TTestBlockCipher c(TCipher::eEncrypt);
  const unsigned char iv[8] = {3, 1, 4, 1, 5, 9, 2, 6};
  c.SetIv(iv);
  Bytes first(24, 0x21), second(24, 0x21);
  ASSERT_EQ(c.EncryptData(first.data(), 20, true), 24u);
  EXPECT_EQ(Bytes(c.Chain(), c.Chain() + 8), Bytes(iv, iv + 8));
  ASSERT_EQ(c.EncryptData(second.data(), 20, true), 24u);
  EXPECT_EQ(first, second);
}

TEST(CipherFrameworkTest, WithoutFinalTheChainCarriesIntoTheNextCall) {
  TTestBlockCipher c(TCipher::eEncrypt);
  const unsigned char iv[8] = {3, 1, 4, 1, 5, 9, 2, 6};
  c.SetIv(iv);
  Bytes first(8, 0x21), second(8, 0x21);
  ASSERT_EQ(c.EncryptData(first.data(), 8, false), 8u);
  EXPECT_EQ(Bytes(c.Chain(), c.Chain() + 8), first);
  ASSERT_EQ(c.EncryptData(second.data(), 8, false), 8u);
  EXPECT_NE(first, second);
}

TEST(CipherFrameworkTest, AMessageSplitIntoCallsEncryptsAsOneCall) {
  std::mt19937 rng(41);
  for (unsigned bs : {8u, 4u, 3u, 1u}) {
    for (int iter = 0; iter < 200; ++iter) {
      const size_t len = rng() % 100;
      Bytes plain = RandomBytes(rng, len);
      Bytes iv = RandomBytes(rng, 8);
      TTestBlockCipher whole(TCipher::eEncrypt, bs);
      TTestBlockCipher parts(TCipher::eEncrypt, bs);
      whole.SetIv(iv.data());
      parts.SetIv(iv.data());
      Bytes a = plain;
      a.resize(len + bs);
      const unsigned na = whole.EncryptData(a.data(), static_cast<unsigned>(len), true);
      ASSERT_EQ(na, (len / bs + 1) * bs);
      Bytes b = plain;
      b.resize(len + bs);
      size_t pos = 0;
      const size_t wholeBlocks = len / bs * bs;
      while (pos < wholeBlocks && rng() % 3) {
        const size_t run = std::min<size_t>(wholeBlocks - pos, (rng() % 4) * bs);
        ASSERT_EQ(parts.EncryptData(b.data() + pos, static_cast<unsigned>(run), false), run);
        pos += run;
      }
      ASSERT_EQ(pos + parts.EncryptData(b.data() + pos, static_cast<unsigned>(len - pos), true),
                na);
      EXPECT_EQ(Bytes(a.begin(), a.begin() + na), Bytes(b.begin(), b.begin() + na));

      // And back, in different pieces.
      TTestBlockCipher dec(TCipher::eDecrypt, bs);
      dec.SetIv(iv.data());
      size_t dpos = 0;
      while (dpos + bs < na && rng() % 2) {
        const size_t run = std::min(na - bs - dpos, (rng() % 3) * static_cast<size_t>(bs));
        ASSERT_EQ(dec.DecryptData(a.data() + dpos, static_cast<unsigned>(run), false), run);
        dpos += run;
      }
      ASSERT_EQ(dpos + dec.DecryptData(a.data() + dpos, static_cast<unsigned>(na - dpos), true),
                len);
      EXPECT_EQ(Bytes(a.begin(), a.begin() + len), plain);
    }
  }
}

TEST(CipherFrameworkTest, EcbEncryptsEveryBlockOnItsOwn) {
  TTestBlockCipher c(TCipher::eEncrypt);
  c.SetMode(TBlockCipher::eEcb);
  Bytes data(24, 0x61);
  ASSERT_EQ(c.EncryptData(data.data(), 16, false), 16u);
  EXPECT_EQ(Bytes(data.begin(), data.begin() + 8), Bytes(data.begin() + 8, data.begin() + 16));
}

TEST(CipherFrameworkTest, AnUnknownModeProcessesNothingButReportsTheBlockCounts) {
  TTestBlockCipher c(TCipher::eEncrypt);
  c.SetMode(static_cast<TBlockCipher::ECipherMode>(2));
  Bytes data(32, 0x77);
  EXPECT_EQ(c.EncryptData(data.data(), 13, true), 16u);
  EXPECT_EQ(c.EncryptData(data.data(), 16, true), 24u);
  EXPECT_EQ(c.EncryptData(data.data(), 16, false), 16u);
  EXPECT_EQ(c.EncryptData(data.data(), 13, false), 0u);
  EXPECT_EQ(data, Bytes(32, 0x77));
  TTestBlockCipher d(TCipher::eDecrypt);
  d.SetMode(static_cast<TBlockCipher::ECipherMode>(-1));
  data[15] = 4;
  EXPECT_EQ(d.DecryptData(data.data(), 16, true), 16u);
  EXPECT_EQ(d.DecryptData(data.data(), 12, true), 0u);
  EXPECT_EQ(c.calls + d.calls, 0u);
}

TEST(CipherFrameworkTest, ProcessDataDecryptsForEveryNonZeroOperation) {
  const unsigned char iv[8] = {};
  for (int op : {1, 2, -1, 77}) {
    TTestBlockCipher enc(TCipher::eEncrypt);
    TTestBlockCipher dec(static_cast<TCipher::ECipherOp>(op));
    enc.SetIv(iv);
    dec.SetIv(iv);
    Bytes data = FromText("0123456789");
    data.resize(16);
    TCipher& encoder = enc;
    TCipher& decoder = dec;
    ASSERT_EQ(encoder.ProcessData(data.data(), 10, true), 16u);
    ASSERT_EQ(decoder.ProcessData(data.data(), 16, true), 10u) << op;
    EXPECT_EQ(Bytes(data.begin(), data.begin() + 10), FromText("0123456789"));
  }
}

TEST(CipherFrameworkTest, BlockSizesOtherThanEightUseTheGeneralPath) {
  TTestBlockCipher c(TCipher::eEncrypt, 4, true);
  c.SetMode(TBlockCipher::eEcb);
  unsigned result;
  const Bytes out = EncryptAll(c, FromText("abcdef"), true, &result);
  EXPECT_EQ(result, 8u);
  EXPECT_EQ(out[6], 2);
  EXPECT_EQ(out[7], 2);
  EXPECT_EQ(out[8], 0xEE);
}

TEST(CipherFrameworkTest, BlockSizesOfZeroOrAboveEightProcessNothing) {
  for (unsigned bs : {0u, 9u, 16u}) {
    TTestBlockCipher c(TCipher::eEncrypt, bs);
    Bytes data(64, 0x12);
    EXPECT_EQ(c.EncryptData(data.data(), 32, true), 0u);
    EXPECT_EQ(c.DecryptData(data.data(), 32, true), 0u);
    EXPECT_EQ(c.ProcessData(data.data(), 32, true), 0u);
    c.SetIv(data.data());  // must not write past the 8-byte vectors
    EXPECT_EQ(data, Bytes(64, 0x12));
    EXPECT_EQ(c.calls, 0u);
  }
}

TEST(CipherFrameworkTest, XorBlockXorsTheFirstNBytes) {
  unsigned char dst[4] = {0xF0, 0x0F, 0xAA, 0x55};
  const unsigned char src[4] = {0xFF, 0xFF, 0xFF, 0xFF};
  TBlockCipher::XorBlock(dst, src, 3);
  EXPECT_EQ(dst[0], 0x0F);
  EXPECT_EQ(dst[1], 0xF0);
  EXPECT_EQ(dst[2], 0x55);
  EXPECT_EQ(dst[3], 0x55);
  TBlockCipher::XorBlock(dst, src, 0);
  EXPECT_EQ(dst[0], 0x0F);
}

TEST(CipherFrameworkTest, StreamProcessDataResetsOnFinalAndReturnsTheLength) {
  TTestStreamCipher s(TCipher::eEncrypt);
  Bytes a(5, 0), b(5, 0);
  TCipher& c = s;
  EXPECT_EQ(c.ProcessData(a.data(), 5, false), 5u);
  EXPECT_EQ(s.resets, 0u);
  EXPECT_EQ(c.ProcessData(b.data(), 5, true), 5u);
  EXPECT_EQ(s.resets, 1u);
  EXPECT_EQ(a, (Bytes{0, 1, 2, 3, 4}));
  EXPECT_EQ(b, (Bytes{5, 6, 7, 8, 9}));
  Bytes again(5, 0);
  c.ProcessData(again.data(), 5, true);
  EXPECT_EQ(again, a) << "the final call restarted the stream";
  EXPECT_EQ(c.ProcessData(nullptr, 0, false), 0u);
}

TEST(CrypterTest, BlockConstructorSetsTheModeAndTheIv) {
  TTestBlockCipher c(TCipher::eEncrypt, 8, true);
  const unsigned char iv[8] = {1, 1, 1, 1, 2, 2, 2, 2};
  TCrypter crypter(c, TBlockCipher::eEcb, iv);
  EXPECT_EQ(c.GetMode(), TBlockCipher::eEcb);
  EXPECT_EQ(Bytes(c.Iv(), c.Iv() + 8), Bytes(iv, iv + 8));
  EXPECT_EQ(Bytes(c.Chain(), c.Chain() + 8), Bytes(iv, iv + 8));
  TTestBlockCipher z(TCipher::eEncrypt, 8, true);
  z.SetIv(iv);
  TCrypter zero(z, TBlockCipher::eCbc, nullptr);
  EXPECT_EQ(z.GetMode(), TBlockCipher::eCbc);
  EXPECT_EQ(Bytes(z.Iv(), z.Iv() + 8), Bytes(8, 0));
}

TEST(CrypterTest, CryptDataForwardsToTheCipher) {
  TTestBlockCipher enc(TCipher::eEncrypt);
  TTestBlockCipher dec(TCipher::eDecrypt);
  const unsigned char iv[8] = {7, 7, 7, 7, 7, 7, 7, 7};
  TCrypter e(enc, TBlockCipher::eCbc, iv);
  TCrypter d(dec, TBlockCipher::eCbc, iv);
  const Bytes plain = FromText("attack at dawn!");
  Bytes out(plain.size() + 8, 0);
  const unsigned n = e.CryptData(plain.data(), static_cast<unsigned>(plain.size()), out.data(), true);
  EXPECT_EQ(n, 16u);
  Bytes inPlace = plain;
  inPlace.resize(16);
  EXPECT_EQ(e.CryptData(inPlace.data(), static_cast<unsigned>(plain.size()), true), 16u);
  EXPECT_EQ(Bytes(inPlace.begin(), inPlace.end()), Bytes(out.begin(), out.begin() + 16));
  EXPECT_EQ(d.CryptData(out.data(), 16, out.data(), true), plain.size());
  EXPECT_EQ(Bytes(out.begin(), out.begin() + plain.size()), plain);
}

TEST(CrypterTest, CryptDataCopiesOverlappingBuffers) {
  TTestStreamCipher s(TCipher::eEncrypt);
  TCrypter crypter(s);
  Bytes buf = {0, 0, 10, 20, 30, 40, 0, 0};
  EXPECT_EQ(crypter.CryptData(buf.data() + 2, 4, buf.data() + 1, false), 4u);
  EXPECT_EQ(buf[1], 10 ^ 0);
  EXPECT_EQ(buf[2], 20 ^ 1);
  EXPECT_EQ(buf[3], 30 ^ 2);
  EXPECT_EQ(buf[4], 40 ^ 3);
  EXPECT_EQ(crypter.CryptData(nullptr, 0, nullptr, true), 0u);
}

TEST(CrypterTest, StreamAndRsaConstructorsOnlyKeepTheReference) {
  TTestStreamCipher s(TCipher::eDecrypt);
  s.position = 3;
  TCrypter sc(s);
  EXPECT_EQ(s.position, 3u);
  EXPECT_EQ(s.resets, 0u);
  TTestRsaCipher r(TCipher::eEncrypt);
  TCrypter rc(r);
  Bytes data = {1, 2};
  EXPECT_EQ(rc.CryptData(data.data(), 2, true), 3u);
  EXPECT_TRUE(r.lastFinal);
  EXPECT_EQ(data[0], 0);
}

TEST(CipherFrameworkTest, CiphersAllocateNothing) {
  ovra_test::ScopedCountingLibrary library;
  ASSERT_TRUE(library.started());
  const long before = ovra_test::Stats().requests;
  {
    TTestBlockCipher c(TCipher::eEncrypt);
    TCrypter crypter(c, TBlockCipher::eCbc, nullptr);
    Bytes data(1 << 16, 0x42);
    crypter.CryptData(data.data(), static_cast<unsigned>(data.size() - 8), true);
    TInetChecksum sum;
    sum.Update(data.data(), 1000);
    char text[64];
    OvraBinToBase64(data.data(), 30, text);
    unsigned char bin[64];
    OvraBase64ToBin(text, bin);
    SBerElement e = {4, 10, data.data()};
    OvraBerEncode(bin, sizeof bin, &e);
    OvraBerDecode(bin, sizeof bin, &e);
  }
  EXPECT_EQ(ovra_test::Stats().requests, before);
}

// A cipher made with new in application code and deleted there is freed by
// the destructor inside the library: both ends must use the library's
// allocator, or an application allocator (or a checking one) sees a block it
// never handed out.
TEST(CipherFrameworkTest, NewAndDeleteOfACipherUseTheLibraryAllocator) {
  ovra_test::ScopedCountingLibrary library;
  ASSERT_TRUE(library.started());
  TCipher* cipher = new TTestBlockCipher(TCipher::eEncrypt);
  ASSERT_NE(cipher, nullptr);
  EXPECT_EQ(ovra_test::Stats().allocs, 1);
  EXPECT_EQ(ovra_test::Stats().live, 1);
  delete cipher;  // through the base: the virtual destructor frees it
  EXPECT_EQ(ovra_test::Stats().frees, 1);
  EXPECT_EQ(ovra_test::Stats().live, 0);

  TStreamCipher* stream = new (std::nothrow) TTestStreamCipher(TCipher::eDecrypt);
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(ovra_test::Stats().live, 1);
  delete stream;
  EXPECT_EQ(ovra_test::Stats().live, 0);

  // A cipher class of the library itself, whose deleting destructor is
  // compiled into the library.
  const unsigned char key[8] = {1, 2, 3, 4, 5, 6, 7, 8};
  TBlockCipher* des = new TDesCipher(TCipher::eDecrypt, key, 8);
  ASSERT_NE(des, nullptr);
  EXPECT_EQ(ovra_test::Stats().live, 1);
  delete des;
  EXPECT_EQ(ovra_test::Stats().live, 0);
}

// When the allocator fails, new gives null and constructs nothing.
TEST(CipherFrameworkTest, NewOfACipherGivesNullWhenTheAllocatorFails) {
  ovra_test::ScopedCountingLibrary library;
  ASSERT_TRUE(library.started());
  ovra_test::FailNthAllocation(1);
  TCipher* cipher = new TTestBlockCipher(TCipher::eEncrypt);
  EXPECT_EQ(cipher, nullptr);
  ovra_test::StopFailing();
  EXPECT_EQ(ovra_test::Stats().live, 0);
}

// --- Allocation failures ---------------------------------------------------
// Each operation runs with its 1st, 2nd, ... allocation failing, alone and
// with every later one (AllocSweep.h), until it goes through; every run must
// give the documented out-of-memory result and leak nothing. The N each sweep
// reaches is printed ("[ SWEEP    ]").

class AllocSweepCrypt : public SweepTest {};

// new of a block cipher gives null when its allocation fails; otherwise the
// object encrypts and decrypts a message back, and delete returns it.
template <class Make>
void SweepBlockCipher(const std::string& what, Make make) {
  SweepBothModes(what, [&](SweepRun& run) {
    run.Arm();
    TBlockCipher* encrypt = make(TCipher::eEncrypt);
    const bool failed = run.Disarm();
    EXPECT_EQ(encrypt == nullptr, failed) << what << " n=" << run.n();
    if (!encrypt) return;
    std::unique_ptr<TBlockCipher> decrypt(make(TCipher::eDecrypt));
    ASSERT_NE(decrypt, nullptr);
    const unsigned char iv[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    unsigned char buf[24] = "eleven byte";
    TCrypter(*encrypt, TBlockCipher::eCbc, iv).CryptData(buf, 11, true);
    EXPECT_EQ(TCrypter(*decrypt, TBlockCipher::eCbc, iv).CryptData(buf, 16, true), 11u);
    EXPECT_EQ(memcmp(buf, "eleven byte", 11), 0);
    delete encrypt;
  });
}

TEST_F(AllocSweepCrypt, NewOfEveryCipherGivesNullWhenItsAllocationFails) {
  static const unsigned char key[16] = {0x13, 0x34, 0x57, 0x79, 0x9B, 0xBC, 0xDF, 0xF1,
                                        0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08};
  SweepBlockCipher("new TDesCipher", [](TCipher::ECipherOp op) -> TBlockCipher* {
    return new TDesCipher(op, key, 8);
  });
  SweepBlockCipher("new TRc2Cipher", [](TCipher::ECipherOp op) -> TBlockCipher* {
    return new TRc2Cipher(op, key, 16, 128);
  });
  SweepBothModes("new TRc4Cipher", [](SweepRun& run) {
    run.Arm();
    TRc4Cipher* cipher = new TRc4Cipher(TCipher::eEncrypt, key, 16);
    EXPECT_EQ(cipher == nullptr, run.Disarm());
    if (!cipher) return;
    unsigned char buf[6] = "plain";
    EXPECT_EQ(cipher->ProcessData(buf, 5, true), 5u);  // the final call restarts the stream
    EXPECT_EQ(cipher->ProcessData(buf, 5, true), 5u);
    EXPECT_EQ(memcmp(buf, "plain", 5), 0);
    delete cipher;
  });
  const Bytes n = FromHex(ovra_test::rsa_keys::kN512);
  SweepBothModes("new TRsaPublicCipher(key)", [&](SweepRun& run) {
    run.Arm();
    TRsaPublicCipher* cipher = new TRsaPublicCipher(TCipher::eEncrypt, n.data(), 64, ovra_test::rsa_keys::kE.data(), 3);
    const bool failed = run.Disarm();
    // The object and both key arrays: a failure of an array leaves an
    // object without a key.
    if (cipher) {
      EXPECT_EQ(cipher->GetModulusSize(), failed ? 0u : 64u) << "n=" << run.n();
      delete cipher;
    } else {
      EXPECT_TRUE(failed);
    }
  });
}

TEST_F(AllocSweepCrypt, BlockAndStreamProcessingAllocatesNothing) {
  static const unsigned char key[16] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
  TDesCipher des(TCipher::eEncrypt, key, 8);
  TRc2Cipher rc2(TCipher::eEncrypt, key, 16, 128);
  TRc4Cipher rc4(TCipher::eEncrypt, key, 16);
  SweepUntilSuccess("DES, RC2, RC4 ProcessData and BerDump", [&](SweepRun& run) {
    unsigned char buf[40] = {};
    unsigned char ber[64];
    run.Arm();
    EXPECT_EQ(des.ProcessData(buf, 20, true), 24u);
    EXPECT_EQ(rc2.ProcessData(buf, 20, true), 24u);
    EXPECT_EQ(rc4.ProcessData(buf, 20, true), 20u);
    EXPECT_EQ(des.BerDump(ber, sizeof ber), 21u);
    EXPECT_EQ(rc2.BerDump(ber, sizeof ber), 27u);
    EXPECT_FALSE(run.Disarm());
  }, FailMode::kOne, true);
}

TEST_F(AllocSweepCrypt, DigestsHmacRandomAndEncodingsAllocateNothing) {
  SweepUntilSuccess("MD4, MD5, SHA-1, HMAC, generator, Base64, BER, checksum", [](SweepRun& run) {
    static const unsigned char longKey[100] = {7};
    unsigned char data[200] = {1, 2, 3};
    unsigned char out[64];
    char text[300];
    run.Arm();
    TMd4Digest md4;
    md4.Update(data, sizeof data);
    EXPECT_EQ(md4.Finish(out, sizeof out), 16u);
    TMd5Digest md5;
    md5.Update(data, sizeof data);
    EXPECT_EQ(md5.Finish(out, sizeof out), 16u);
    TShaDigest sha;
    THmac hmac(sha, longKey, sizeof longKey);
    hmac.Update(data, sizeof data);
    EXPECT_EQ(hmac.Finish(out, sizeof out), 20u);
    TMd5Prng prng;
    prng.Seed(data, 3);
    prng.Generate(out, 40);
    OvraSeedRandom(data, 3);
    OvraGenerateRandom(out, 40);
    EXPECT_EQ(OvraBinToBase64(data, 100, text), 136u);
    EXPECT_EQ(OvraBase64ToBin(text, data), 100);
    SBerElement element = {0x04, 3, data};
    EXPECT_EQ(OvraBerEncode(out, sizeof out, &element), 5u);
    EXPECT_EQ(OvraBerDecode(out, 5, &element), 5u);
    EXPECT_NE(OvraComputeChecksum(data, 7), 0);
    EXPECT_FALSE(run.Disarm());
  }, FailMode::kOne, true);
}

}  // namespace
