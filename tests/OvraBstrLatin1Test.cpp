// Tests of the single-byte text conversions (ISO-8859-1 widening and narrowing).
#include <gtest/gtest.h>

#include <string.h>

#include <string>
#include <vector>

#include "OvraBstr.h"
#include "TestWide.h"

using ovra_test::ToU16;

namespace {

const unsigned short* W(const char16_t* s) { return reinterpret_cast<const unsigned short*>(s); }

TEST(UnicodeToMultibyteTest, CharactersAbove255BecomeQuestionMarks) {
  char out[4] = {'x', 'x', 'x', 'x'};
  EXPECT_EQ(OvraUnicodeToMultibyte(W(u"\u0100"), 1, out, 4), 1);
  EXPECT_EQ(out[0], '?');
  EXPECT_EQ(OvraUnicodeToMultibyte(W(u"\u00FF"), 1, out, 4), 1);
  EXPECT_EQ(static_cast<unsigned char>(out[0]), 0xFF);
  EXPECT_EQ(OvraUnicodeToMultibyte(W(u"\u20AC\uFFFF\u0080"), 3, out, 4), 3);
  EXPECT_EQ(std::string(out, 3), "??\x80");
}

TEST(UnicodeToMultibyteTest, MinusOneConvertsTheTerminatorToo) {
  char out[8];
  memset(out, 'x', sizeof out);
  EXPECT_EQ(OvraUnicodeToMultibyte(W(u"ab\u00E9"), -1, out, 8), 4);
  EXPECT_EQ(std::string(out, 5), std::string("ab\xE9\0x", 5));
}

TEST(UnicodeToMultibyteTest, StopsWhenTheRoomIsFullWithoutTerminating) {
  char out[4] = {'x', 'x', 'x', 'x'};
  EXPECT_EQ(OvraUnicodeToMultibyte(W(u"abcdef"), -1, out, 3), 3);
  EXPECT_EQ(std::string(out, 4), "abcx");
  EXPECT_EQ(OvraUnicodeToMultibyte(W(u"abcdef"), 6, out, 0), 0);
}

TEST(UnicodeToMultibyteTest, CountsBelowOneAndNullPointersGiveZero) {
  char out[4] = {'x', 'x', 'x', 'x'};
  EXPECT_EQ(OvraUnicodeToMultibyte(W(u"abc"), 0, out, 4), 0);
  EXPECT_EQ(OvraUnicodeToMultibyte(W(u"abc"), -2, out, 4), 0);
  EXPECT_EQ(OvraUnicodeToMultibyte(nullptr, -1, out, 4), 0);
  EXPECT_EQ(OvraUnicodeToMultibyte(W(u"abc"), 3, nullptr, 4), 0);
  EXPECT_EQ(std::string(out, 4), "xxxx");
}

TEST(UnicodeToMultibyteTest, ZeroCharactersInsideTheCountAreConverted) {
  char out[4];
  EXPECT_EQ(OvraUnicodeToMultibyte(W(u"a\0b"), 3, out, 4), 3);
  EXPECT_EQ(std::string(out, 3), std::string("a\0b", 3));
}

TEST(MultibyteToUnicodeTest, BytesAreWidenedOneByOne) {
  unsigned short out[8];
  EXPECT_EQ(OvraMultibyteToUnicode("a\xE9\xC3\xA9\xFF", 5, out, 8), 5);
  EXPECT_EQ(ToU16(out, 5), u"a\u00E9\u00C3\u00A9\u00FF");
}

TEST(MultibyteToUnicodeTest, MinusOneConvertsTheTerminatorToo) {
  unsigned short out[8];
  for (unsigned short& c : out) c = 0x7777;
  EXPECT_EQ(OvraMultibyteToUnicode("xyz", -1, out, 8), 4);
  EXPECT_EQ(ToU16(out, 5), std::u16string(u"xyz\0\u7777", 5));
}

TEST(MultibyteToUnicodeTest, StopsWhenTheRoomIsFull) {
  unsigned short out[4] = {7, 7, 7, 7};
  EXPECT_EQ(OvraMultibyteToUnicode("abcdef", -1, out, 2), 2);
  EXPECT_EQ(ToU16(out, 3), u"ab\u0007");
  EXPECT_EQ(OvraMultibyteToUnicode("abcdef", 6, out, -1), 0);
}

TEST(MultibyteToUnicodeTest, CountsBelowOneAndNullPointersGiveZero) {
  unsigned short out[4] = {7, 7, 7, 7};
  EXPECT_EQ(OvraMultibyteToUnicode("abc", 0, out, 4), 0);
  EXPECT_EQ(OvraMultibyteToUnicode("abc", -5, out, 4), 0);
  EXPECT_EQ(OvraMultibyteToUnicode(nullptr, -1, out, 4), 0);
  EXPECT_EQ(OvraMultibyteToUnicode("abc", 3, nullptr, 4), 0);
  EXPECT_EQ(out[0], 7);
}

TEST(SingleByteRoundTripTest, EveryByteRoundTripsAndEveryUnitNarrowsAsLatin1) {
  std::vector<unsigned short> wide(256);
  std::string bytes(256, '\0');
  for (int i = 0; i < 256; ++i) bytes[static_cast<size_t>(i)] = static_cast<char>(i);
  ASSERT_EQ(OvraMultibyteToUnicode(bytes.data(), 256, wide.data(), 256), 256);
  for (int i = 0; i < 256; ++i) ASSERT_EQ(wide[static_cast<size_t>(i)], i);
  std::string back(256, 'x');
  ASSERT_EQ(OvraUnicodeToMultibyte(wide.data(), 256, &back[0], 256), 256);
  EXPECT_EQ(back, bytes);

  std::vector<unsigned short> all(0x10000);
  for (unsigned c = 0; c <= 0xFFFF; ++c) all[c] = static_cast<unsigned short>(c);
  std::string narrow(0x10000, 'x');
  ASSERT_EQ(OvraUnicodeToMultibyte(all.data(), 0x10000, &narrow[0], 0x10000), 0x10000);
  for (unsigned c = 0; c <= 0xFFFF; ++c) {
    ASSERT_EQ(static_cast<unsigned char>(narrow[c]), c < 256 ? c : '?') << c;
  }
}

}  // namespace
