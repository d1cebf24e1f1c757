// Tests of the platform half of the character runtime: the narrow character
// classes and the search forwarders.
#include "OvraCrt.h"

#include <ctype.h>
#include <gtest/gtest.h>
#include <string.h>

namespace {

TEST(PlatformClassTest, NarrowClassesAgreeWithThePlatformForEofAndEveryByte) {
  for (int c = -1; c <= 255; ++c) {
    EXPECT_EQ(ovra_isalnum(c) != 0, isalnum(c) != 0) << c;
    EXPECT_EQ(ovra_isdigit(c) != 0, isdigit(c) != 0) << c;
    EXPECT_EQ(ovra_isspace(c) != 0, isspace(c) != 0) << c;
  }
}

TEST(PlatformClassTest, NarrowSpaceCountsTabAndLineEndsUnlikeTheWideTable) {
  for (int c : {'\t', '\n', '\v', '\f', '\r', ' '}) {
    EXPECT_NE(ovra_isspace(c), 0) << c;
  }
  EXPECT_EQ(isuctype('\t', kUctypeSpace), 0);
  EXPECT_NE(ovra_isalnum('q'), 0);
  EXPECT_NE(ovra_isdigit('7'), 0);
  EXPECT_EQ(ovra_isdigit('a'), 0);
}

TEST(PlatformClassTest, ValuesOutsideTheByteRangeAreInNoClass) {
  for (int c : {-2, -129, 256, 0x130, 0x10030, -2147483647 - 1, 2147483647}) {
    EXPECT_EQ(ovra_isalnum(c), 0) << c;
    EXPECT_EQ(ovra_isdigit(c), 0) << c;
    EXPECT_EQ(ovra_isspace(c), 0) << c;
  }
}

TEST(ForwarderTest, MemchrStrchrAndStrrchrGiveThePlatformResults) {
  const char text[] = "abcabc\0xyz";
  EXPECT_EQ(x_memchr(text, 'c', 6), text + 2);
  EXPECT_EQ(x_memchr(text, 'x', 6), nullptr);
  EXPECT_EQ(x_memchr(text, 'x', sizeof text), text + 7);
  EXPECT_EQ(x_memchr(text, 'a' + 256, 6), text);  // converted to unsigned char
  EXPECT_EQ(x_strchr(text, 'b'), text + 1);
  EXPECT_EQ(x_strchr(text, 'x'), nullptr);
  EXPECT_EQ(x_strchr(text, 0), text + 6);
  EXPECT_EQ(x_strrchr(text, 'b'), text + 4);
  EXPECT_EQ(x_strrchr(text, 'z'), nullptr);
  EXPECT_EQ(x_strrchr(text, 0), text + 6);
}

}  // namespace
