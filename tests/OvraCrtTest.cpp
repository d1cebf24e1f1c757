// Tests of the 16-bit character runtime: classes, case folding, string
// routines, the text-to-integer conversions and the narrow strlcpy/strlcat.
#include "OvraCrt.h"

#include <ctype.h>
#if !defined(_WIN32)
#include <dlfcn.h>
#endif
#include <errno.h>
#include <gtest/gtest.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <map>
#include <random>
#include <string>

#include "TestPlatform.h"
#include "OvraFormat.h"
#include "TestPeFile.h"
#include "TestWide.h"

namespace {

using ovra_test::ToU16;
using ovra_test::Widen;
using ovra_test::WideText;

// The classes each ASCII unit must have, derived from the ASCII chart itself.
unsigned ExpectedClasses(unsigned c) {
  unsigned bits = 0;
  if (c >= 'A' && c <= 'Z') bits |= 0x0001;
  if (c >= 'a' && c <= 'z') bits |= 0x0002;
  if (c >= '0' && c <= '9') bits |= 0x0004;
  if (c == ' ') bits |= 0x0008;
  if ((c >= 0x21 && c <= 0x2F) || (c >= 0x3A && c <= 0x40) || (c >= 0x5B && c <= 0x60) ||
      (c >= 0x7B && c <= 0x7E))
    bits |= 0x0010;
  if (c <= 0x1F || c == 0x7F) bits |= 0x0020;
  if ((c >= '0' && c <= '9') || (c >= 'A' && c <= 'F') || (c >= 'a' && c <= 'f')) bits |= 0x0080;
  return bits;
}

// ---------------------------------------------------------------------------
// Character classes and case
// ---------------------------------------------------------------------------

TEST(CharacterClassTest, TableMatchesTheAsciiChartForEveryUnitBelow128) {
  for (unsigned c = 0; c < 128; ++c)
    EXPECT_EQ(uctype_map[c], ExpectedClasses(c)) << "unit " << c;
}

TEST(CharacterClassTest, ThirtyTwoPunctuationCharactersAndNoBits0x40Or0x100) {
  int punct = 0;
  for (unsigned c = 0; c < 128; ++c) {
    if (uctype_map[c] & 0x0010) ++punct;
    EXPECT_EQ(uctype_map[c] & 0x0140, 0) << "unit " << c;
  }
  EXPECT_EQ(punct, 32);
}

TEST(CharacterClassTest, IsuctypeIsTheTableEntryAndedWithTheMask) {
  for (unsigned c = 0; c < 128; ++c) {
    for (int mask : {0x0001, 0x0002, 0x0004, 0x0008, 0x0010, 0x0020, 0x0080, 0x0107, 0x0103,
                     0xFFFF, 0}) {
      EXPECT_EQ(isuctype(static_cast<unsigned short>(c), mask),
                static_cast<int>(ExpectedClasses(c) & static_cast<unsigned>(mask)))
          << "unit " << c << " mask " << mask;
    }
  }
}

TEST(CharacterClassTest, UnitsOf128AndAboveAreInNoClass) {
  for (unsigned c = 128; c <= 0xFFFF; ++c) {
    ASSERT_EQ(isuctype(static_cast<unsigned short>(c), 0xFFFF), 0) << "unit " << c;
    ASSERT_EQ(ovra_isualnum(static_cast<unsigned short>(c)), 0) << "unit " << c;
    ASSERT_EQ(ovra_isudigit(static_cast<unsigned short>(c)), 0) << "unit " << c;
  }
}

TEST(CharacterClassTest, OnlyTheBlankIsSpaceNotTabOrOtherWhiteSpace) {
  EXPECT_NE(isuctype(' ', kUctypeSpace), 0);
  for (unsigned short c : {0x09, 0x0A, 0x0B, 0x0C, 0x0D, 0xA0, 0x3000}) {
    EXPECT_EQ(isuctype(c, kUctypeSpace), 0) << "unit " << c;
  }
  EXPECT_NE(isuctype('\t', kUctypeControl), 0);
}

TEST(CharacterClassTest, AlnumAndDigitHelpersUseTheirMasks) {
  for (unsigned c = 0; c < 128; ++c) {
    const bool alnum = (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
    EXPECT_EQ(ovra_isualnum(static_cast<unsigned short>(c)) != 0, alnum) << "unit " << c;
    EXPECT_EQ(ovra_isudigit(static_cast<unsigned short>(c)) != 0, c >= '0' && c <= '9')
        << "unit " << c;
  }
  EXPECT_EQ(kUctypeAlnum, 0x0107);
  EXPECT_EQ(kUctypeAlpha, 0x0103);
}

TEST(CaseTest, TouupperChangesOnlyAsciiLowerCaseLetters) {
  for (unsigned c = 0; c <= 0xFFFF; ++c) {
    const unsigned expected = (c >= 'a' && c <= 'z') ? c - 32 : c;
    ASSERT_EQ(touupper(static_cast<unsigned short>(c)), expected) << "unit " << c;
  }
  EXPECT_EQ(touupper(0x00E9), 0x00E9);  // e acute stays as it is
  EXPECT_EQ(touupper(0x00FF), 0x00FF);
}

TEST(CaseTest, ToulowerChangesOnlyAsciiUpperCaseLetters) {
  for (unsigned c = 0; c <= 0xFFFF; ++c) {
    const unsigned expected = (c >= 'A' && c <= 'Z') ? c + 32 : c;
    ASSERT_EQ(toulower(static_cast<unsigned short>(c)), expected) << "unit " << c;
  }
  EXPECT_EQ(toulower(0x00C9), 0x00C9);  // E acute stays as it is
}

// ---------------------------------------------------------------------------
// Length, copy and concatenation
// ---------------------------------------------------------------------------

TEST(UcsLenTest, CountsUnitsBeforeTheTerminator) {
  EXPECT_EQ(ucslen(WideText(u"")), 0u);
  EXPECT_EQ(ucslen(WideText(u"a")), 1u);
  EXPECT_EQ(ucslen(WideText(u"hello, \u00E9\uFFFF")), 9u);
  WideText t(u"abc");
  t[1] = 0;
  EXPECT_EQ(ucslen(t), 1u);
}

TEST(UcsCpyTest, CopiesTheTerminatorAndReturnsDst) {
  WideText dst(u"xxxxxxxx");
  WideText src(u"ab\uFFFFc");
  EXPECT_EQ(ucscpy(dst, src), dst.get());
  EXPECT_EQ(ToU16(dst.get(), 6), std::u16string(u"ab\uFFFFc\0x", 6));
  EXPECT_EQ(ucscpy(dst, WideText(u"")), dst.get());
  EXPECT_EQ(dst[0], 0);
  EXPECT_EQ(dst[1], u'b');
}

TEST(UcsNCpyTest, ShortSourceFillsTheRestOfNWithZeros) {
  WideText dst(u"xxxxxxxxxx");
  EXPECT_EQ(ucsncpy(dst, WideText(u"ab"), 6), dst.get());
  EXPECT_EQ(ToU16(dst.get(), 8), std::u16string(u"ab\0\0\0\0xx", 8));
}

TEST(UcsNCpyTest, LongSourceLeavesDstUnterminated) {
  WideText dst(u"xxxxxxxx");
  EXPECT_EQ(ucsncpy(dst, WideText(u"abcdef"), 3), dst.get());
  EXPECT_EQ(ToU16(dst.get(), 5), u"abcxx");
  // Exactly n units in src: still no terminator.
  WideText dst2(u"xxxxxxxx");
  ucsncpy(dst2, WideText(u"abc"), 3);
  EXPECT_EQ(ToU16(dst2.get(), 5), u"abcxx");
}

TEST(UcsNCpyTest, ZeroCountWritesNothing) {
  WideText dst(u"xyz");
  EXPECT_EQ(ucsncpy(dst, WideText(u"abc"), 0), dst.get());
  EXPECT_EQ(ToU16(dst), u"xyz");
}

TEST(UcsCatTest, ReturnsTheOldTerminatorOfDst) {
  WideText dst(u"abc", 10);
  unsigned short* r = ucscat(dst, WideText(u"de"));
  EXPECT_EQ(r, dst.get() + 3);
  EXPECT_EQ(ToU16(dst), u"abcde");
  EXPECT_EQ(ToU16(r), u"de");
}

TEST(UcsCatTest, EmptyPartsStillReturnTheOldTerminator) {
  WideText dst(u"", 10);
  EXPECT_EQ(ucscat(dst, WideText(u"")), dst.get());
  EXPECT_EQ(ucscat(dst, WideText(u"xy")), dst.get());
  EXPECT_EQ(ucscat(dst, WideText(u"")), dst.get() + 2);
  EXPECT_EQ(ToU16(dst), u"xy");
}

// ---------------------------------------------------------------------------
// Comparisons
// ---------------------------------------------------------------------------

TEST(UcsCmpTest, ReturnsTheDifferenceOfTheFirstDifferingUnits) {
  EXPECT_EQ(ucscmp(WideText(u"abc"), WideText(u"abc")), 0);
  EXPECT_EQ(ucscmp(WideText(u""), WideText(u"")), 0);
  EXPECT_EQ(ucscmp(WideText(u"abd"), WideText(u"abb")), 2);
  EXPECT_EQ(ucscmp(WideText(u"abb"), WideText(u"abd")), -2);
  EXPECT_EQ(ucscmp(WideText(u"ab"), WideText(u"abc")), -'c');
  EXPECT_EQ(ucscmp(WideText(u"abc"), WideText(u"ab")), 'c');
}

TEST(UcsCmpTest, ComparesUnitsAsUnsignedValues) {
  EXPECT_EQ(ucscmp(WideText(u"\uFFFF"), WideText(u"\u0001")), 0xFFFE);
  EXPECT_EQ(ucscmp(WideText(u"\u8000"), WideText(u"\u7FFF")), 1);
  EXPECT_EQ(ucscmp(WideText(u"a"), WideText(u"\uFFFF")), 'a' - 0xFFFF);
}

TEST(UcsNCmpTest, ComparesAtMostNUnits) {
  EXPECT_EQ(ucsncmp(WideText(u"abcX"), WideText(u"abcY"), 3), 0);
  EXPECT_EQ(ucsncmp(WideText(u"abcX"), WideText(u"abcY"), 4), 'X' - 'Y');
  EXPECT_EQ(ucsncmp(WideText(u"x"), WideText(u"y"), 0), 0);
  EXPECT_EQ(ucsncmp(WideText(u"ab"), WideText(u"ab"), 100), 0);
  EXPECT_EQ(ucsncmp(WideText(u"ab"), WideText(u"abc"), 100), -'c');
  EXPECT_EQ(ucsncmp(WideText(u"\uFFFF"), WideText(u"\u0001"), 1), 0xFFFE);
}

TEST(UcsICmpTest, FoldsOnlyAsciiLettersAndReturnsTheFoldedDifference) {
  EXPECT_EQ(ucsicmp(WideText(u"HeLLo"), WideText(u"hEllO")), 0);
  EXPECT_EQ(ucsicmp(WideText(u"a"), WideText(u"B")), 'A' - 'B');
  // Folded to upper case: "_" (0x5F) lies between "Z" and "a".
  EXPECT_EQ(ucsicmp(WideText(u"a"), WideText(u"_")), 'A' - '_');
  EXPECT_EQ(ucsicmp(WideText(u"\u00E9"), WideText(u"\u00C9")), 0xE9 - 0xC9);
  EXPECT_EQ(ucsicmp(WideText(u"ab"), WideText(u"AbC")), -'C');
  EXPECT_EQ(ucsicmp(WideText(u""), WideText(u"")), 0);
}

TEST(UcsNICmpTest, FoldsAndComparesAtMostNUnits) {
  EXPECT_EQ(ucsnicmp(WideText(u"ABCx"), WideText(u"abcY"), 3), 0);
  EXPECT_EQ(ucsnicmp(WideText(u"ABCx"), WideText(u"abcY"), 4), 'X' - 'Y');
  EXPECT_EQ(ucsnicmp(WideText(u"x"), WideText(u"y"), 0), 0);
  EXPECT_EQ(ucsnicmp(WideText(u"ab"), WideText(u"AB"), 50), 0);
  EXPECT_EQ(ucsnicmp(WideText(u"\u00E9"), WideText(u"\u00C9"), 1), 0xE9 - 0xC9);
}

// ---------------------------------------------------------------------------
// Searches
// ---------------------------------------------------------------------------

TEST(UcsChrTest, FindsTheFirstUnitOrTheTerminatorForZero) {
  WideText s(u"abcabc");
  EXPECT_EQ(ucschr(s, 'b'), s.get() + 1);
  EXPECT_EQ(ucschr(s, 'z'), nullptr);
  EXPECT_EQ(ucschr(s, 0), s.get() + 6);
  WideText w(u"x\uFFFFy");
  EXPECT_EQ(ucschr(w, 0xFFFF), w.get() + 1);
}

TEST(UcsRChrTest, FindsTheLastUnitOrTheTerminatorForZero) {
  WideText s(u"abcabc");
  EXPECT_EQ(ucsrchr(s, 'b'), s.get() + 4);
  EXPECT_EQ(ucsrchr(s, 'z'), nullptr);
  EXPECT_EQ(ucsrchr(s, 0), s.get() + 6);
  WideText e(u"");
  EXPECT_EQ(ucsrchr(e, 0), e.get());
  EXPECT_EQ(ucsrchr(e, 'a'), nullptr);
}

TEST(UcsPBrkTest, FindsTheFirstUnitOfTheSet) {
  WideText s(u"hello, world");
  EXPECT_EQ(ucspbrk(s, WideText(u"ow")), s.get() + 4);
  EXPECT_EQ(ucspbrk(s, WideText(u",d")), s.get() + 5);
  EXPECT_EQ(ucspbrk(s, WideText(u"xyz")), nullptr);
}

TEST(UcsPBrkTest, EmptyStringOrEmptySetGivesNull) {
  WideText s(u"abc");
  EXPECT_EQ(ucspbrk(s, WideText(u"")), nullptr);
  EXPECT_EQ(ucspbrk(WideText(u""), WideText(u"abc")), nullptr);
  EXPECT_EQ(ucspbrk(WideText(u""), WideText(u"")), nullptr);
}

TEST(UcsStrTest, FindsTheFirstOccurrence) {
  WideText s(u"abababc");
  EXPECT_EQ(ucsstr(s, WideText(u"abc")), s.get() + 4);
  EXPECT_EQ(ucsstr(s, WideText(u"bab")), s.get() + 1);
  EXPECT_EQ(ucsstr(s, WideText(u"abababc")), s.get());
  EXPECT_EQ(ucsstr(s, WideText(u"abababcd")), nullptr);
  EXPECT_EQ(ucsstr(s, WideText(u"c")), s.get() + 6);
  EXPECT_EQ(ucsstr(s, WideText(u"x")), nullptr);
  EXPECT_EQ(ucsstr(s, WideText(u"bcx")), nullptr);
}

TEST(UcsStrTest, EmptySubInNonEmptyStringGivesTheString) {
  WideText s(u"abc");
  EXPECT_EQ(ucsstr(s, WideText(u"")), s.get());
}

TEST(UcsStrTest, EmptyStringGivesNullEvenForAnEmptySub) {
  EXPECT_EQ(ucsstr(WideText(u""), WideText(u"")), nullptr);
  EXPECT_EQ(ucsstr(WideText(u""), WideText(u"a")), nullptr);
}

TEST(UcsStrTest, AgreesWithNarrowStrstrOnRandomTexts) {
  std::mt19937 rng(20240501);
  for (int i = 0; i < 3000; ++i) {
    std::string hay(rng() % 20, 'a'), needle(rng() % 5, 'a');
    for (char& c : hay) c = static_cast<char>('a' + rng() % 3);
    for (char& c : needle) c = static_cast<char>('a' + rng() % 3);
    WideText h(Widen(hay)), n(Widen(needle));
    const char* ref = strstr(hay.c_str(), needle.c_str());
    unsigned short* got = ucsstr(h, n);
    if (hay.empty()) {
      EXPECT_EQ(got, nullptr);
    } else if (!ref) {
      EXPECT_EQ(got, nullptr) << hay << " / " << needle;
    } else {
      EXPECT_EQ(got, h.get() + (ref - hay.c_str())) << hay << " / " << needle;
    }
  }
}

// ---------------------------------------------------------------------------
// In-place case change and reversal
// ---------------------------------------------------------------------------

TEST(UcsUprLwrTest, ChangeAsciiLettersInPlaceAndReturnTheString) {
  WideText s(u"Hello, W\u00F6rld \u00E9!");
  EXPECT_EQ(ucsupr(s), s.get());
  EXPECT_EQ(ToU16(s), u"HELLO, W\u00F6RLD \u00E9!");
  EXPECT_EQ(ucslwr(s), s.get());
  EXPECT_EQ(ToU16(s), u"hello, w\u00F6rld \u00E9!");
  WideText e(u"");
  EXPECT_EQ(ucsupr(e), e.get());
  EXPECT_EQ(ucslwr(e), e.get());
}

TEST(UcsRevTest, ReversesUnitsAndKeepsTheTerminator) {
  WideText odd(u"abcde");
  EXPECT_EQ(ucsrev(odd), odd.get());
  EXPECT_EQ(ToU16(odd.get(), 6), std::u16string(u"edcba\0", 6));
  WideText even(u"ab\uFFFFc");
  ucsrev(even);
  EXPECT_EQ(ToU16(even), u"c\uFFFFba");
  WideText one(u"x");
  ucsrev(one);
  EXPECT_EQ(ToU16(one), u"x");
  WideText empty(u"");
  EXPECT_EQ(ucsrev(empty), empty.get());
  EXPECT_EQ(empty[0], 0);
}

// ---------------------------------------------------------------------------
// Bounded copy and concatenation
// ---------------------------------------------------------------------------

TEST(UcsLCpyTest, SizeZeroWritesNothingAndReturnsTheSourceLength) {
  WideText dst(u"xyz");
  EXPECT_EQ(ucslcpy(dst, WideText(u"hello"), 0), 5u);
  EXPECT_EQ(ToU16(dst), u"xyz");
}

TEST(UcsLCpyTest, CopiesAtMostSizeMinusOneAndTerminates) {
  WideText dst(u"xxxxxxxx");
  EXPECT_EQ(ucslcpy(dst, WideText(u"hello"), 1), 5u);
  EXPECT_EQ(ToU16(dst.get(), 2), std::u16string(u"\0x", 2));
  EXPECT_EQ(ucslcpy(dst, WideText(u"hello"), 3), 5u);
  EXPECT_EQ(ToU16(dst.get(), 4), std::u16string(u"he\0x", 4));
  EXPECT_EQ(ucslcpy(dst, WideText(u"hello"), 6), 5u);
  EXPECT_EQ(ToU16(dst.get(), 7), std::u16string(u"hello\0x", 7));
  EXPECT_EQ(ucslcpy(dst, WideText(u"hi"), 8), 2u);
  EXPECT_EQ(ToU16(dst.get(), 4), std::u16string(u"hi\0l", 4));
}

TEST(UcsLCatTest, AppendsWithinSizeAndReturnsTheFullLength) {
  WideText dst(u"ab", 10);
  EXPECT_EQ(ucslcat(dst, WideText(u"cd"), 10), 4u);
  EXPECT_EQ(ToU16(dst), u"abcd");
  EXPECT_EQ(ucslcat(dst, WideText(u"efgh"), 6), 8u);
  EXPECT_EQ(ToU16(dst), u"abcde");
}

TEST(UcsLCatTest, DstFillingSizeExactlyWritesNothing) {
  WideText dst(u"abcd", 4);
  EXPECT_EQ(ucslcat(dst, WideText(u"xy"), 4), 6u);
  EXPECT_EQ(ToU16(dst.get(), 6), std::u16string(u"abcd\0\0", 6));
}

TEST(UcsLCatTest, SearchForTheEndOfDstIsUnbounded) {
  // dst is already longer than size: size - len wraps, so the copy is not
  // bounded at all (the classic strlcat would write nothing and return 6).
  WideText dst(u"abcdef", 10);
  EXPECT_EQ(ucslcat(dst, WideText(u"xy"), 4), 8u);
  EXPECT_EQ(ToU16(dst), u"abcdefxy");
}

TEST(StrLCpyTest, BehavesAsUcslcpyOnBytes) {
  char dst[8];
  memset(dst, 'x', sizeof dst);
  EXPECT_EQ(strlcpy(dst, "hello", 0), 5u);
  EXPECT_EQ(dst[0], 'x');
  EXPECT_EQ(strlcpy(dst, "hello", 3), 5u);
  EXPECT_EQ(std::string(dst, 4), std::string("he\0x", 4));
  EXPECT_EQ(strlcpy(dst, "hello", 8), 5u);
  EXPECT_STREQ(dst, "hello");
  EXPECT_EQ(strlcpy(dst, "", 8), 0u);
  EXPECT_STREQ(dst, "");
}

TEST(StrLCatTest, AppendsWithinSizeAndReturnsTheFullLength) {
  char dst[16] = "ab";
  EXPECT_EQ(strlcat(dst, "cd", sizeof dst), 4u);
  EXPECT_STREQ(dst, "abcd");
  EXPECT_EQ(strlcat(dst, "efgh", 6), 8u);
  EXPECT_STREQ(dst, "abcde");
  EXPECT_EQ(strlcat(dst, "zz", 5), 7u);
  EXPECT_STREQ(dst, "abcde");
}

TEST(StrLCatTest, SearchForTheEndOfDstIsUnbounded) {
  char dst[16] = "abcdef";
  EXPECT_EQ(strlcat(dst, "xy", 4), 8u);
  EXPECT_STREQ(dst, "abcdefxy");
}

// ---------------------------------------------------------------------------
// Text to integer
// ---------------------------------------------------------------------------

struct Parsed {
  long value;
  ptrdiff_t end;  // units consumed, measured from the start of the text
};

Parsed Signed(const std::u16string& text, int base) {
  WideText t(text);
  unsigned short* end = nullptr;
  const long v = ucstol(t, &end, base);
  return {v, end - t.get()};
}

struct UParsed {
  unsigned long value;
  ptrdiff_t end;
};

UParsed Unsigned(const std::u16string& text, int base) {
  WideText t(text);
  unsigned short* end = nullptr;
  const unsigned long v = ucstoul(t, &end, base);
  return {v, end - t.get()};
}

TEST(UcsToLTest, SkipsOnlyBlanksBeforeTheNumber) {
  Parsed p = Signed(u"   42x", 10);
  EXPECT_EQ(p.value, 42);
  EXPECT_EQ(p.end, 5);
}

TEST(UcsToLTest, TabBeforeDigitsStopsAtOnceWithEndAtTheStart) {
  Parsed p = Signed(u"\t12", 10);
  EXPECT_EQ(p.value, 0);
  EXPECT_EQ(p.end, 0);
  for (const char16_t* t : {u"\n5", u"\r5", u"\v5", u"\f5", u"\u00A05"}) {
    p = Signed(t, 10);
    EXPECT_EQ(p.value, 0);
    EXPECT_EQ(p.end, 0);
  }
}

TEST(UcsToLTest, TakesOneOptionalSign) {
  EXPECT_EQ(Signed(u"-17", 10).value, -17);
  EXPECT_EQ(Signed(u"+17", 10).value, 17);
  EXPECT_EQ(Signed(u"  -17", 10).end, 5);
  const Parsed twice = Signed(u"+-5", 10);
  EXPECT_EQ(twice.value, 0);
  EXPECT_EQ(twice.end, 0);
  const Parsed blankAfterSign = Signed(u"- 5", 10);
  EXPECT_EQ(blankAfterSign.value, 0);
  EXPECT_EQ(blankAfterSign.end, 0);
}

TEST(UcsToLTest, BadBasesReturnZeroAndStoreTheTextAsPassed) {
  for (int base : {-1, -36, 1, 37, 100, -2147483647 - 1}) {
    Parsed p = Signed(u"  -123", base);
    EXPECT_EQ(p.value, 0) << "base " << base;
    EXPECT_EQ(p.end, 0) << "base " << base;
    UParsed u = Unsigned(u"  +7", base);
    EXPECT_EQ(u.value, 0u) << "base " << base;
    EXPECT_EQ(u.end, 0) << "base " << base;
  }
  EXPECT_EQ(Signed(u"z", 36).value, 35);  // 36 itself is fine
  EXPECT_EQ(Signed(u"12", 2).value, 1);   // and so is 2
}

TEST(UcsToLTest, BaseZeroDetectsHexOctalAndDecimal) {
  Parsed p = Signed(u"0x1A", 0);
  EXPECT_EQ(p.value, 26);
  EXPECT_EQ(p.end, 4);
  EXPECT_EQ(Signed(u"0X1a", 0).value, 26);
  p = Signed(u"017", 0);
  EXPECT_EQ(p.value, 15);
  EXPECT_EQ(p.end, 3);
  p = Signed(u"019", 0);  // octal: the 9 ends it
  EXPECT_EQ(p.value, 1);
  EXPECT_EQ(p.end, 2);
  p = Signed(u"0", 0);
  EXPECT_EQ(p.value, 0);
  EXPECT_EQ(p.end, 1);
  p = Signed(u"  -0x10", 0);
  EXPECT_EQ(p.value, -16);
  EXPECT_EQ(p.end, 7);
  EXPECT_EQ(Signed(u"190", 0).value, 190);
}

TEST(UcsToLTest, HexWithBase16SkipsThePrefixAndBase10StopsAtX) {
  Parsed p = Signed(u"0x1A", 16);
  EXPECT_EQ(p.value, 26);
  EXPECT_EQ(p.end, 4);
  p = Signed(u"1A", 16);
  EXPECT_EQ(p.value, 26);
  p = Signed(u"0x1A", 10);
  EXPECT_EQ(p.value, 0);
  EXPECT_EQ(p.end, 1);  // stopped at the "x"
}

TEST(UcsToLTest, PrefixWithoutDigitsGivesZeroWithEndAtTheStart) {
  Parsed p = Signed(u"0xg", 16);
  EXPECT_EQ(p.value, 0);
  EXPECT_EQ(p.end, 0);
  p = Signed(u" 0x", 0);
  EXPECT_EQ(p.value, 0);
  EXPECT_EQ(p.end, 0);
  for (const char16_t* t : {u"", u"   ", u"-", u"+", u"abc"}) {
    p = Signed(t, 10);
    EXPECT_EQ(p.value, 0);
    EXPECT_EQ(p.end, 0);
  }
}

TEST(UcsToLTest, LettersOfBothCasesAreDigitsUpToTheBase) {
  EXPECT_EQ(Signed(u"zZ", 36).value, 35 * 36 + 35);
  EXPECT_EQ(Signed(u"aA", 11).value, 10 * 11 + 10);
  Parsed p = Signed(u"129", 2);
  EXPECT_EQ(p.value, 1);
  EXPECT_EQ(p.end, 1);
  p = Signed(u"7g", 16);
  EXPECT_EQ(p.value, 7);
  EXPECT_EQ(p.end, 1);
}

TEST(UcsToLTest, DigitsOutsideAsciiEndTheNumber) {
  // Arabic-Indic and full-width digits are not digits here.
  Parsed p = Signed(u"1\u06612", 10);
  EXPECT_EQ(p.value, 1);
  EXPECT_EQ(p.end, 1);
  p = Signed(u"\uFF11", 10);
  EXPECT_EQ(p.value, 0);
  EXPECT_EQ(p.end, 0);
  // Units whose low byte is a digit are no digits either.
  p = Signed(u"\u01315", 10);
  EXPECT_EQ(p.value, 0);
  EXPECT_EQ(p.end, 0);
}

TEST(UcsToLTest, ClampsAboveTheSignedLimitWithEndAfterTheDigits) {
  Parsed p = Signed(u"2147483647", 10);
  EXPECT_EQ(p.value, 2147483647L);
  p = Signed(u"2147483648", 10);
  EXPECT_EQ(p.value, 2147483647L);
  EXPECT_EQ(p.end, 10);
  p = Signed(u"99999999999999999999x", 10);
  EXPECT_EQ(p.value, 2147483647L);
  EXPECT_EQ(p.end, 20);
  EXPECT_EQ(Signed(u"FFFFFFFF", 16).value, 2147483647L);
}

TEST(UcsToLTest, ClampHappensBeforeNegation) {
  EXPECT_EQ(Signed(u"-2147483647", 10).value, -2147483647L);
  EXPECT_EQ(Signed(u"-2147483648", 10).value, -2147483647L);
  EXPECT_EQ(Signed(u"-99999999999", 10).value, -2147483647L);
}

TEST(UcsToLTest, EndPointerMayBeNull) {
  WideText t(u"123");
  EXPECT_EQ(ucstol(t, nullptr, 10), 123);
  EXPECT_EQ(ucstol(t, nullptr, 1), 0);
  EXPECT_EQ(ucstol(WideText(u"x"), nullptr, 10), 0);
  EXPECT_EQ(ucstoul(t, nullptr, 0), 123u);
}

TEST(UcsToULTest, KeepsTheFull32BitRange) {
  UParsed u = Unsigned(u"4294967295", 10);
  EXPECT_EQ(u.value, 4294967295UL);
  EXPECT_EQ(u.end, 10);
  EXPECT_EQ(Unsigned(u"FFFFFFFF", 16).value, 4294967295UL);
  EXPECT_EQ(Unsigned(u"37777777777", 8).value, 4294967295UL);
  EXPECT_EQ(Unsigned(u"1z141z3", 36).value, 4294967295UL);
}

TEST(UcsToULTest, OverflowClampsAndKeepsConsumingDigits) {
  // 4294967295 = 429496729 * 10 + 5: the last digit decides at the limit.
  UParsed u = Unsigned(u"4294967296", 10);
  EXPECT_EQ(u.value, 4294967295UL);
  EXPECT_EQ(u.end, 10);
  u = Unsigned(u"42949672950", 10);
  EXPECT_EQ(u.value, 4294967295UL);
  EXPECT_EQ(u.end, 11);
  u = Unsigned(u"100000000 ", 16);
  EXPECT_EQ(u.value, 4294967295UL);
  EXPECT_EQ(u.end, 9);
  EXPECT_EQ(Unsigned(u"1z141z4", 36).value, 4294967295UL);
}

TEST(UcsToULTest, NegativeTextsWrapModulo2To32AfterTheClamp) {
  EXPECT_EQ(Unsigned(u"-5", 10).value, 4294967291UL);
  EXPECT_EQ(Unsigned(u"-99999999999", 10).value, 1UL);
  EXPECT_EQ(Unsigned(u"-4294967295", 10).value, 1UL);
  EXPECT_EQ(Unsigned(u"-0", 10).value, 0UL);
  // The signed limit does not apply to unsigned conversions.
  EXPECT_EQ(Unsigned(u"-2147483648", 10).value, 2147483648UL);
}

// A model of the 32-bit rules, built on the platform's 64-bit strtoull, for
// plain digit strings without prefix.
TEST(UcsToXlTest, AgreesWithA32BitModelOfStrtoullOnRandomTexts) {
  std::mt19937 rng(7);
  const char digits[] = "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
  for (int i = 0; i < 20000; ++i) {
    const int base = 2 + static_cast<int>(rng() % 35);
    std::string text;
    if (rng() % 3 == 0) text += (rng() % 2) ? '-' : '+';
    const int n = 1 + static_cast<int>(rng() % 12);
    for (int k = 0; k < n; ++k) text += digits[rng() % (sizeof digits - 1)];

    // Where the digits valid in this base end.
    size_t end = (text[0] == '-' || text[0] == '+') ? 1 : 0;
    const size_t first = end;
    auto val = [](char c) {
      if (c >= '0' && c <= '9') return c - '0';
      if (c >= 'a' && c <= 'z') return c - 'a' + 10;
      return c - 'A' + 10;
    };
    while (end < text.size() && val(text[end]) < base) ++end;
    if (end == first) continue;  // covered by the no-digit tests
    if (base == 16 && text.size() > first + 1 && text[first] == '0' &&
        (text[first + 1] == 'x' || text[first + 1] == 'X'))
      continue;  // the prefix rule is covered by its own tests
    errno = 0;
    unsigned long long ref = strtoull(text.substr(first, end - first).c_str(), nullptr, base);
    const bool overflow = errno == ERANGE || ref > 0xFFFFFFFFull;
    const bool negative = text[0] == '-';
    uint32_t u = overflow ? 0xFFFFFFFFu : static_cast<uint32_t>(ref);
    uint32_t s = (overflow || u > 0x7FFFFFFFu) ? 0x7FFFFFFFu : u;
    if (negative) {
      u = 0u - u;
      s = 0u - s;
    }
    const UParsed gu = Unsigned(Widen(text), base);
    const Parsed gs = Signed(Widen(text), base);
    ASSERT_EQ(gu.value, static_cast<unsigned long>(u)) << text << " base " << base;
    ASSERT_EQ(gs.value, static_cast<long>(static_cast<int32_t>(s))) << text << " base " << base;
    ASSERT_EQ(gu.end, static_cast<ptrdiff_t>(end)) << text << " base " << base;
    ASSERT_EQ(gs.end, static_cast<ptrdiff_t>(end)) << text << " base " << base;
  }
}

// ---------------------------------------------------------------------------
// The ovra_* table
// ---------------------------------------------------------------------------

namespace table {

// The 37 objects in their documented order, each with its initial target.
#define OVRA_TABLE(X)                  \
  X(ovra_time, time)                   \
  X(ovra_rand, rand)                   \
  X(ovra_abs, abs)                     \
  X(ovra_touupper, touupper)           \
  X(ovra_toulower, toulower)           \
  X(ovra_snuprintf, snuprintf)         \
  X(ovra_ucslcat, ucslcat)             \
  X(ovra_ucslcpy, ucslcpy)             \
  X(ovra_ucstoul, ucstoul)             \
  X(ovra_ucstol, ucstol)               \
  X(ovra_ucsrchr, ucsrchr)             \
  X(ovra_ucschr, ucschr)               \
  X(ovra_ucscmp, ucscmp)               \
  X(ovra_ucscat, ucscat)               \
  X(ovra_ucsncpy, ucsncpy)             \
  X(ovra_ucscpy, ucscpy)               \
  X(ovra_ucslen, ucslen)               \
  X(ovra_strlcat, strlcat)             \
  X(ovra_strlcpy, strlcpy)             \
  X(ovra_toupper, toupper)             \
  X(ovra_tolower, tolower)             \
  X(ovra_strtoul, strtoul)             \
  X(ovra_strtol, strtol)               \
  X(ovra_strrchr, x_strrchr)           \
  X(ovra_strchr, x_strchr)             \
  X(ovra_strcmp, strcmp)               \
  X(ovra_strcat, strcat)               \
  X(ovra_strncpy, strncpy)             \
  X(ovra_strcpy, strcpy)               \
  X(ovra_strlen, strlen)               \
  X(ovra_sprintf, sprintf)             \
  X(ovra_snprintf, snprintf)           \
  X(ovra_memchr, x_memchr)             \
  X(ovra_memcmp, memcmp)               \
  X(ovra_memmove, memmove)             \
  X(ovra_memcpy, memcpy)               \
  X(ovra_memset, memset)

struct Entry {
  const char* name;
  void* object;  // the address the application sees
};

#define OVRA_ENTRY(name, target) {#name, reinterpret_cast<void*>(&name)},
const Entry kEntries[] = {OVRA_TABLE(OVRA_ENTRY)};
#undef OVRA_ENTRY

struct NmSymbol {
  char type;
  unsigned long long address;
  unsigned long long size;
};

#if defined(_WIN32)
// The library's exports, with their section's kind as nm would give it
// (T code, D initialised writable data, B other writable data, R read-only
// data) and their address relative to the image. The export directory has no
// sizes: size is 0.
std::map<std::string, NmSymbol> LibrarySymbols() {
  std::map<std::string, NmSymbol> out;
  std::string error;
  for (const ovra_test::PeExport& e : ovra_test::PeFile(OVRA_LIBRARY_FILE).Exports(error)) {
    char type = 'R';
    if (e.section & (ovra_test::kPeSectionCode | ovra_test::kPeSectionExecutable))
      type = 'T';
    else if (e.section & ovra_test::kPeSectionWritable)
      type = e.section & ovra_test::kPeSectionInitializedData ? 'D' : 'B';
    out[e.name] = {type, e.rva, 0};
  }
  EXPECT_EQ(error, "") << OVRA_LIBRARY_FILE;
  return out;
}
#else
// The library's own dynamic symbols, with type, address and size.
std::map<std::string, NmSymbol> LibrarySymbols() {
  std::map<std::string, NmSymbol> out;
  const std::string cmd = std::string("nm -D -S --defined-only '") + OVRA_LIBRARY_FILE + "'";
  FILE* p = popen(cmd.c_str(), "r");
  if (!p) return out;
  char line[1024];
  while (fgets(line, sizeof line, p)) {
    char address[64], size[64], type[8], name[512];
    if (sscanf(line, "%63s %63s %7s %511s", address, size, type, name) == 4)
      out[name] = {type[0], strtoull(address, nullptr, 16), strtoull(size, nullptr, 16)};
  }
  pclose(p);
  return out;
}
#endif

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kGlobalsPadded = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr bool kGlobalsPadded = true;
#else
constexpr bool kGlobalsPadded = false;
#endif
#else
constexpr bool kGlobalsPadded = false;
#endif

TEST(OvraTableTest, HasThirtySevenEntries) {
  EXPECT_EQ(sizeof kEntries / sizeof kEntries[0], 37u);
}

TEST(OvraTableTest, EveryEntryIsAnExportedWritablePointerObjectInTableOrder) {
  const std::map<std::string, NmSymbol> symbols = LibrarySymbols();
  ASSERT_FALSE(symbols.empty());
  unsigned long long nextFree = 0;  // just past the previous object
  for (const Entry& e : kEntries) {
    auto it = symbols.find(e.name);
    ASSERT_NE(it, symbols.end()) << e.name << " is not exported";
    EXPECT_EQ(it->second.type, 'D') << e.name << " is not in writable initialised data";
    EXPECT_GE(it->second.address, nextFree) << e.name << " is out of table order";
#if defined(_WIN32)
    // No sizes in a DLL's export directory: each object must leave a
    // pointer's room before the next.
    nextFree = it->second.address + sizeof(void*);
#else
    // AddressSanitizer pads every global with a red zone, which counts in its size.
    if (kGlobalsPadded)
      EXPECT_GE(it->second.size, sizeof(void*)) << e.name;
    else
      EXPECT_EQ(it->second.size, sizeof(void*)) << e.name;
    nextFree = it->second.address + it->second.size;
#endif
  }
}

TEST(OvraTableTest, EveryEntryResolvesByNameToTheObjectCallersUse) {
#if defined(_WIN32)
  // A name is looked up in one module there: the library's own file.
  const std::string file = OVRA_LIBRARY_FILE;
  const std::string module = file.substr(file.find_last_of("/\\") + 1);
#endif
  for (const Entry& e : kEntries) {
#if defined(_WIN32)
    EXPECT_EQ(ovra_test::win::ModuleSymbol(module, e.name), e.object) << e.name;
#else
    EXPECT_EQ(dlsym(RTLD_DEFAULT, e.name), e.object) << e.name;
#endif
  }
}

#if defined(_WIN32)
// Where a call through f lands: an import jump (jmp *disp32(%rip), the
// bytes FF 25) goes on to the address in its slot.
const void* FinalCode(const void* f) {
  const unsigned char* code = static_cast<const unsigned char*>(f);
  for (int hops = 0; code && hops < 4 && code[0] == 0xFF && code[1] == 0x25; ++hops) {
    int32_t disp = 0;
    memcpy(&disp, code + 2, sizeof disp);
    const void* slot = nullptr;
    memcpy(&slot, code + 6 + disp, sizeof slot);
    code = static_cast<const unsigned char*>(slot);
  }
  return code;
}
#endif

TEST(OvraTableTest, EveryEntryStartsAtItsTarget) {
#if defined(_WIN32)
  // A function of another module is reached through an import jump in each
  // module that takes its address: compared are the jumps' ends. The C
  // headers of MinGW-w64 define some functions inline (time, sprintf,
  // snprintf), and every module that takes the address of one has a copy of
  // its own: where this program's target is such a copy, the entry must be
  // the library's copy (what it does is checked by EveryEntryCallsItsTarget).
  const std::string self =
      ovra_test::win::ModuleFileOf(reinterpret_cast<const void*>(&FinalCode));
  const std::string library = ovra_test::win::ModuleFileOf(reinterpret_cast<const void*>(
      &ucslen));
  ASSERT_FALSE(self.empty());
  ASSERT_FALSE(library.empty());
  ASSERT_NE(self, library);
#define OVRA_CHECK_TARGET(name, target)                                                 \
  {                                                                                     \
    const void* entry = FinalCode(reinterpret_cast<const void*>(name));                 \
    const void* mine = FinalCode(reinterpret_cast<const void*>(                         \
        static_cast<decltype(name)>(target)));                                          \
    if (entry != mine) {                                                                \
      EXPECT_EQ(ovra_test::win::ModuleFileOf(mine), self) << #name << " leads elsewhere";  \
      EXPECT_EQ(ovra_test::win::ModuleFileOf(entry), library) << #name;                  \
    }                                                                                   \
  }
#else
#define OVRA_CHECK_TARGET(name, target) \
  EXPECT_EQ(name, static_cast<decltype(name)>(target)) << #name;
#endif
  OVRA_TABLE(OVRA_CHECK_TARGET)
#undef OVRA_CHECK_TARGET
}

TEST(OvraTableTest, EveryEntryIsWritable) {
#define OVRA_CHECK_WRITABLE(name, target) \
  {                                       \
    const auto saved = name;              \
    name = nullptr;                       \
    EXPECT_EQ(name, nullptr) << #name;    \
    name = saved;                         \
    EXPECT_EQ(name, saved) << #name;      \
  }
  OVRA_TABLE(OVRA_CHECK_WRITABLE)
#undef OVRA_CHECK_WRITABLE
}

int s_replacementCalls = 0;
size_t CountingUcslen(const unsigned short* s) {
  ++s_replacementCalls;
  return ucslen(s) + 100;
}

TEST(OvraTableTest, AReplacedEntryIsCalledByCallersButNotByTheLibrary) {
  const auto saved = ovra_ucslen;
  ovra_ucslen = CountingUcslen;
  s_replacementCalls = 0;
  WideText s(u"abc");
  EXPECT_EQ(ovra_ucslen(s), 103u);
  EXPECT_EQ(s_replacementCalls, 1);
  // The library calls its routines directly.
  unsigned short buf[8];
  EXPECT_EQ(ovra_snuprintf(buf, 8, WideText(u"%s"), s.get()), 3);
  EXPECT_EQ(ucslcpy(buf, s, 8), 3u);
  EXPECT_EQ(s_replacementCalls, 1);
  ovra_ucslen = saved;
  EXPECT_EQ(ovra_ucslen(s), 3u);
}

TEST(OvraTableTest, EveryEntryCallsItsTarget) {
  time_t now = 0;
  const time_t t = ovra_time(&now);
  EXPECT_EQ(t, now);
  EXPECT_GT(t, static_cast<time_t>(1500000000));

  srand(99);
  const int r1 = rand();
  srand(99);
  EXPECT_EQ(ovra_rand(), r1);

  EXPECT_EQ(ovra_abs(-17), 17);
  EXPECT_EQ(ovra_touupper('q'), 'Q');
  EXPECT_EQ(ovra_touupper(0xE9), 0xE9);
  EXPECT_EQ(ovra_toulower('Q'), 'q');

  unsigned short w[16];
  EXPECT_EQ(ovra_snuprintf(w, 16, WideText(u"%d-%x"), -5, 255), 5);
  EXPECT_EQ(ToU16(w), u"-5-ff");

  WideText dst(u"ab", 10);
  EXPECT_EQ(ovra_ucslcat(dst, WideText(u"cd"), 10), 4u);
  EXPECT_EQ(ToU16(dst), u"abcd");
  EXPECT_EQ(ovra_ucslcpy(dst, WideText(u"xyz"), 3), 3u);
  EXPECT_EQ(ToU16(dst), u"xy");

  WideText num(u"-5");
  EXPECT_EQ(ovra_ucstoul(num, nullptr, 10), 4294967291UL);
  EXPECT_EQ(ovra_ucstol(num, nullptr, 10), -5L);

  WideText abca(u"abca");
  EXPECT_EQ(ovra_ucsrchr(abca, 'a'), abca.get() + 3);
  EXPECT_EQ(ovra_ucschr(abca, 'a'), abca.get());
  EXPECT_EQ(ovra_ucscmp(WideText(u"b"), WideText(u"a")), 1);

  WideText cat(u"ab", 10);
  EXPECT_EQ(ovra_ucscat(cat, WideText(u"c")), cat.get() + 2);
  WideText n(u"xxxx");
  ovra_ucsncpy(n, WideText(u"a"), 3);
  EXPECT_EQ(ToU16(n.get(), 4), std::u16string(u"a\0\0x", 4));
  WideText c(u"xxxx");
  EXPECT_EQ(ovra_ucscpy(c, WideText(u"hi")), c.get());
  EXPECT_EQ(ToU16(c), u"hi");
  EXPECT_EQ(ovra_ucslen(WideText(u"four")), 4u);

  char nb[16] = "ab";
  EXPECT_EQ(ovra_strlcat(nb, "cdef", 5), 6u);
  EXPECT_STREQ(nb, "abcd");
  EXPECT_EQ(ovra_strlcpy(nb, "hello", 3), 5u);
  EXPECT_STREQ(nb, "he");
  EXPECT_EQ(ovra_toupper('a'), 'A');
  EXPECT_EQ(ovra_tolower('A'), 'a');

  char* end = nullptr;
  const char* hex = "ff!";
  EXPECT_EQ(ovra_strtoul(hex, &end, 16), 255UL);
  EXPECT_EQ(end, hex + 2);
  EXPECT_EQ(ovra_strtol("-12", nullptr, 10), -12L);

  const char* s = "abcabc";
  EXPECT_EQ(ovra_strrchr(s, 'b'), s + 4);
  EXPECT_EQ(ovra_strchr(s, 'b'), s + 1);
  EXPECT_LT(ovra_strcmp("a", "b"), 0);
  EXPECT_GT(ovra_strcmp("b", "a"), 0);

  char sb[32] = "ab";
  EXPECT_EQ(ovra_strcat(sb, "cd"), sb);
  EXPECT_STREQ(sb, "abcd");
  EXPECT_EQ(ovra_strncpy(sb, "xy", 4), sb);
  EXPECT_EQ(std::string(sb, 5), std::string("xy\0\0\0", 5));
  EXPECT_EQ(ovra_strcpy(sb, "copy"), sb);
  EXPECT_STREQ(sb, "copy");
  EXPECT_EQ(ovra_strlen("seven.."), 7u);
  EXPECT_EQ(ovra_sprintf(sb, "%d/%s", 12, "x"), 4);
  EXPECT_STREQ(sb, "12/x");
  EXPECT_EQ(ovra_snprintf(sb, 3, "%d", 12345), 5);
  EXPECT_STREQ(sb, "12");

  const char bytes[] = "abc\0def";
  EXPECT_EQ(ovra_memchr(bytes, 'e', sizeof bytes), bytes + 5);
  EXPECT_EQ(ovra_memcmp("ab\0x", "ab\0y", 4) < 0, true);
  char mb[8] = "abcdef";
  EXPECT_EQ(ovra_memmove(mb + 1, mb, 4), mb + 1);
  EXPECT_STREQ(mb, "aabcdf");
  EXPECT_EQ(ovra_memcpy(mb, "xyz", 3), mb);
  EXPECT_STREQ(mb, "xyzcdf");
  EXPECT_EQ(ovra_memset(mb, '-', 2), mb);
  EXPECT_STREQ(mb, "--zcdf");
}

}  // namespace table

}  // namespace
