// Tests of the 16-bit formatter: every conversion with flags and widths, the
// state table cell by cell, truncation, the deliberate quirks, and a random
// comparison of the integer conversions with the platform's snprintf.
#include "OvraFormat.h"

#include <gtest/gtest.h>
#include <limits.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include <random>
#include <string>
#include <vector>

#include "TestWide.h"

namespace {

using ovra_test::ToU16;
using ovra_test::Widen;
using ovra_test::WideText;

struct Result {
  std::u16string text;  // the stored characters, without the terminator
  int count;            // what the call returned
};

// Formats into a roomy buffer and checks the terminator after the stored text.
template <typename... A>
Result Fmt(const std::u16string& format, A... args) {
  WideText f(format);
  std::vector<unsigned short> buf(4096, 0xBEEF);
  const int n = snuprintf(buf.data(), buf.size(), f, args...);
  const size_t stored = n < 0 ? 0 : (static_cast<size_t>(n) < buf.size() ? n : buf.size() - 1);
  EXPECT_EQ(buf[stored], 0) << "no terminator after the stored text";
  return {ToU16(buf.data(), stored), n};
}

// Just the text, for short expectations; the count must equal its length.
template <typename... A>
std::u16string F(const std::u16string& format, A... args) {
  Result r = Fmt(format, args...);
  EXPECT_EQ(static_cast<size_t>(r.count), r.text.size());
  return r.text;
}

const unsigned short* W(const WideText& t) { return const_cast<WideText&>(t).get(); }

std::u16string Blanks(size_t n) { return std::u16string(n, u' '); }
std::u16string Zeros(size_t n) { return std::u16string(n, u'0'); }

// ---------------------------------------------------------------------------
// Output, size and truncation
// ---------------------------------------------------------------------------

TEST(FormatOutputTest, PlainTextIsCopiedAndCounted) {
  EXPECT_EQ(F(u"hello, world"), u"hello, world");
  EXPECT_EQ(F(u""), u"");
  EXPECT_EQ(F(u"\u00E9\u4E2D\uFFFF"), u"\u00E9\u4E2D\uFFFF");
}

TEST(FormatOutputTest, SizeZeroWritesNothingAndReturnsTheFullLength) {
  unsigned short buf[4] = {0xAAAA, 0xAAAA, 0xAAAA, 0xAAAA};
  WideText f(u"%d-%s");
  WideText s(u"abc");
  EXPECT_EQ(snuprintf(buf, 0, f, 12345, s.get()), 9);
  for (unsigned short u : buf) EXPECT_EQ(u, 0xAAAA);
  // Even a null buffer is safe with size 0.
  EXPECT_EQ(snuprintf(nullptr, 0, f, 1, s.get()), 5);
}

TEST(FormatOutputTest, FiveCharactersIntoSizeThreeStoreTwoAndATerminator) {
  unsigned short buf[5] = {0xAAAA, 0xAAAA, 0xAAAA, 0xAAAA, 0xAAAA};
  EXPECT_EQ(snuprintf(buf, 3, W(WideText(u"abcde"))), 5);
  EXPECT_EQ(ToU16(buf, 4), std::u16string(u"ab\0\uAAAA", 4));
}

TEST(FormatOutputTest, SizeOneStoresOnlyTheTerminator) {
  unsigned short buf[2] = {0xAAAA, 0xAAAA};
  EXPECT_EQ(snuprintf(buf, 1, W(WideText(u"%5d")), 42), 5);
  EXPECT_EQ(buf[0], 0);
  EXPECT_EQ(buf[1], 0xAAAA);
}

TEST(FormatOutputTest, TruncationInsidePaddingPrefixAndDigitsStopsExactly) {
  const WideText f(u"[%+08d|%-6s|%6c]");
  const WideText s(u"ab");
  const std::u16string full = u"[-0000042|ab    |     Z]";
  for (size_t size = 1; size <= full.size() + 2; ++size) {
    std::vector<unsigned short> buf(full.size() + 4, 0xAAAA);
    EXPECT_EQ(snuprintf(buf.data(), size, W(f), -42, W(s), 'Z'), static_cast<int>(full.size()));
    const size_t stored = std::min(size - 1, full.size());
    EXPECT_EQ(ToU16(buf.data(), stored), full.substr(0, stored)) << "size " << size;
    EXPECT_EQ(buf[stored], 0) << "size " << size;
    for (size_t i = stored + 1; i < buf.size(); ++i) EXPECT_EQ(buf[i], 0xAAAA) << "size " << size;
  }
}

TEST(FormatOutputTest, HugeSizeIsBoundedByTheOutputNotTheSize) {
  unsigned short buf[8];
  EXPECT_EQ(snuprintf(buf, static_cast<size_t>(-1), W(WideText(u"a%dc")), 7), 3);
  EXPECT_EQ(ToU16(buf, 4), std::u16string(u"a7c\0", 4));
  EXPECT_EQ(snuprintf(buf, static_cast<size_t>(INT_MAX) + 1u, W(WideText(u"xy"))), 2);
  EXPECT_EQ(ToU16(buf, 3), std::u16string(u"xy\0", 3));
}

TEST(FormatOutputTest, VsnuprintfTakesAnArgumentList) {
  struct Local {
    static int Call(unsigned short* buf, size_t size, const unsigned short* f, ...) {
      va_list args;
      va_start(args, f);
      const int n = vsnuprintf(buf, size, f, args);
      va_end(args);
      return n;
    }
  };
  unsigned short buf[32];
  const WideText s(u"xyz");
  EXPECT_EQ(Local::Call(buf, 32, W(WideText(u"%d:%s:%c")), -5, W(s), 'q'), 8);
  EXPECT_EQ(ToU16(buf), u"-5:xyz:q");
}

// ---------------------------------------------------------------------------
// Percent handling and characters without a conversion
// ---------------------------------------------------------------------------

TEST(FormatPercentTest, TwoPercentSignsGiveOne) {
  EXPECT_EQ(F(u"100%%"), u"100%");
  EXPECT_EQ(F(u"%%%%"), u"%%");
  EXPECT_EQ(F(u"a%%d"), u"a%d");
}

TEST(FormatPercentTest, UnknownCharacterAfterPercentIsWrittenAndThePercentDropped) {
  EXPECT_EQ(F(u"%y"), u"y");
  EXPECT_EQ(F(u"a%yb"), u"ayb");
  EXPECT_EQ(F(u"%5y|%d", 3), u"y|3");  // width read, then dropped; no argument used
  EXPECT_EQ(F(u"%\u00E9"), u"\u00E9");
  EXPECT_EQ(F(u"%\t"), u"\t");
  EXPECT_EQ(F(u"%{"), u"{");
  EXPECT_EQ(F(u"%z"), u"z");
}

TEST(FormatPercentTest, PercentAtTheEndWritesNothing) {
  EXPECT_EQ(F(u"abc%"), u"abc");
  EXPECT_EQ(F(u"abc%-5"), u"abc");
  EXPECT_EQ(F(u"abc%.*", 3), u"abc");
}

TEST(FormatPercentTest, ConversionCharactersWithoutAConversionWriteOnlyThePadding) {
  for (char16_t c : std::u16string(u"BCEGSZefg")) {
    const std::u16string ch(1, c);
    EXPECT_EQ(F(u"[%" + ch + u"]"), u"[]") << static_cast<char>(c);
    EXPECT_EQ(F(u"[%5" + ch + u"]"), u"[     ]") << static_cast<char>(c);
    EXPECT_EQ(F(u"[%-4" + ch + u"]"), u"[    ]") << static_cast<char>(c);
    EXPECT_EQ(F(u"[%03" + ch + u"]"), u"[000]") << static_cast<char>(c);
    EXPECT_EQ(F(u"[%+3" + ch + u"]"), u"[   ]") << static_cast<char>(c);  // no sign
    // No argument is consumed: the next conversion gets the first one.
    EXPECT_EQ(F(u"%" + ch + u"%d", 77), u"77") << static_cast<char>(c);
    EXPECT_EQ(F(u"%*" + ch + u"%d", 3, 77), u"   77") << static_cast<char>(c);
  }
}

// ---------------------------------------------------------------------------
// c and s
// ---------------------------------------------------------------------------

TEST(FormatCharTest, WritesTheArgumentAsOneSixteenBitCharacter) {
  EXPECT_EQ(F(u"%c", 'A'), u"A");
  EXPECT_EQ(F(u"%c", 0x263A), u"\u263A");
  EXPECT_EQ(F(u"%c", 0x12345), u"\u2345");  // kept as 16 bits
  EXPECT_EQ(F(u"%c%c", 'o', 'k'), u"ok");
}

TEST(FormatCharTest, WidthFlagsAndTheZeroCharacter) {
  EXPECT_EQ(F(u"%3c|", 'x'), u"  x|");
  EXPECT_EQ(F(u"%-3c|", 'x'), u"x  |");
  EXPECT_EQ(F(u"%03c|", 'x'), u"00x|");
  EXPECT_EQ(F(u"%*c|", -3, 'x'), u"x  |");
  EXPECT_EQ(F(u"%+ c|", 'x'), u"x|");
  EXPECT_EQ(F(u"%.*c|", 0, 'x'), u"x|");  // precision does not cut a character
  const Result r = Fmt(u"a%cb", 0);
  EXPECT_EQ(r.count, 3);
  EXPECT_EQ(r.text, std::u16string(u"a\0b", 3));
}

TEST(FormatStringTest, WritesTheStringAndNullAsNull) {
  const WideText s(u"h\u00E9llo");
  EXPECT_EQ(F(u"<%s>", W(s)), u"<h\u00E9llo>");
  EXPECT_EQ(F(u"<%s>", W(WideText(u""))), u"<>");
  EXPECT_EQ(F(u"<%s>", static_cast<const unsigned short*>(nullptr)), u"<(null)>");
  EXPECT_EQ(F(u"<%8s>", static_cast<const unsigned short*>(nullptr)), u"<  (null)>");
}

TEST(FormatStringTest, WidthPadsBeforeAndMinusAfter) {
  const WideText s(u"ab");
  EXPECT_EQ(F(u"%5s", W(s)), u"   ab");
  EXPECT_EQ(F(u"%-5s", W(s)), u"ab   ");
  EXPECT_EQ(F(u"%05s", W(s)), u"000ab");
  EXPECT_EQ(F(u"%-05s", W(s)), u"ab   ");
  EXPECT_EQ(F(u"%1s", W(s)), u"ab");
  EXPECT_EQ(F(u"%*s", 4, W(s)), u"  ab");
  EXPECT_EQ(F(u"%*s", -4, W(s)), u"ab  ");
  EXPECT_EQ(F(u"% +5s", W(s)), u"   ab");  // sign flags do nothing for text
}

TEST(FormatStringTest, DecimalPrecisionNeverCutsButStarPrecisionDoes) {
  const WideText s(u"abcdef");
  EXPECT_EQ(F(u"%.2s", W(s)), u"abcdef");
  EXPECT_EQ(F(u"%.0s", W(s)), u"abcdef");
  EXPECT_EQ(F(u"%.12s", W(s)), u"abcdef");
  EXPECT_EQ(F(u"%.*s", 2, W(s)), u"ab");
  EXPECT_EQ(F(u"%.*s", 0, W(s)), u"");
  EXPECT_EQ(F(u"%.*s", 99, W(s)), u"abcdef");
  EXPECT_EQ(F(u"%.*s", -1, W(s)), u"abcdef");
  EXPECT_EQ(F(u"%.*s", -7, W(s)), u"abcdef");
  EXPECT_EQ(F(u"%5.*s|", 2, W(s)), u"   ab|");
  EXPECT_EQ(F(u"%-5.*s|", 2, W(s)), u"ab   |");
  EXPECT_EQ(F(u"%.*s", 3, static_cast<const unsigned short*>(nullptr)), u"(nu");
}

TEST(FormatStringTest, StarPrecisionReadsNoFurtherThanItAllows) {
  // Not terminated: only the first three units may be read.
  std::vector<unsigned short> unterminated = {'x', 'y', 'z'};
  EXPECT_EQ(F(u"%.*s", 3, unterminated.data()), u"xyz");
  EXPECT_EQ(F(u"%.*s", 2, unterminated.data()), u"xy");
}

// ---------------------------------------------------------------------------
// Integers
// ---------------------------------------------------------------------------

TEST(FormatIntegerTest, SignedDecimal) {
  EXPECT_EQ(F(u"%d", 0), u"0");
  EXPECT_EQ(F(u"%d", 42), u"42");
  EXPECT_EQ(F(u"%d", -42), u"-42");
  EXPECT_EQ(F(u"%i", 123456789), u"123456789");
  EXPECT_EQ(F(u"%d", INT_MAX), u"2147483647");
  EXPECT_EQ(F(u"%d", INT_MIN), u"-2147483648");
  EXPECT_EQ(F(u"%i", -1), u"-1");
}

TEST(FormatIntegerTest, UnsignedOctalAndHex) {
  EXPECT_EQ(F(u"%u", -1), u"4294967295");
  EXPECT_EQ(F(u"%u", 0), u"0");
  EXPECT_EQ(F(u"%o", 8), u"10");
  EXPECT_EQ(F(u"%o", -1), u"37777777777");
  EXPECT_EQ(F(u"%x", 255), u"ff");
  EXPECT_EQ(F(u"%X", 255), u"FF");
  EXPECT_EQ(F(u"%x", 0x1234ABCD), u"1234abcd");
  EXPECT_EQ(F(u"%X", INT_MIN), u"80000000");
  EXPECT_EQ(F(u"%x", 0), u"0");
}

TEST(FormatIntegerTest, WidthWithZeroPlusAndBlankFlags) {
  EXPECT_EQ(F(u"%05d", -42), u"-0042");
  EXPECT_EQ(F(u"%+d", 7), u"+7");
  EXPECT_EQ(F(u"% d", 7), u" 7");
  EXPECT_EQ(F(u"% d", -7), u"-7");
  EXPECT_EQ(F(u"%+ d", 7), u"+7");
  EXPECT_EQ(F(u"% +d", 7), u"+7");
  EXPECT_EQ(F(u"%+5d", 7), u"   +7");
  EXPECT_EQ(F(u"%-+5d|", 7), u"+7   |");
  EXPECT_EQ(F(u"%+05d", 7), u"+0007");
  EXPECT_EQ(F(u"% 05d", 7), u" 0007");
  EXPECT_EQ(F(u"%-05d|", -7), u"-7   |");
  EXPECT_EQ(F(u"%5d", -42), u"  -42");
  EXPECT_EQ(F(u"%2d", -42), u"-42");
  EXPECT_EQ(F(u"%08X", 0xBEEF), u"0000BEEF");
  EXPECT_EQ(F(u"%-6x|", 0xab), u"ab    |");
  EXPECT_EQ(F(u"%+u % u %+x % o", 5, 5, 5, 9), u"5 5 5 11");  // signs only for d and i
  EXPECT_EQ(F(u"%#x %#o %#X", 255, 8, 255), u"ff 10 FF");    // "#" does nothing
}

TEST(FormatIntegerTest, StarWidthAndStarPrecision) {
  EXPECT_EQ(F(u"%*d", 5, 42), u"   42");
  EXPECT_EQ(F(u"%*d|", -5, 42), u"42   |");
  EXPECT_EQ(F(u"%.*d", 5, 42), u"00042");
  EXPECT_EQ(F(u"%.*d", 5, -42), u"-00042");
  EXPECT_EQ(F(u"%8.*d", 5, -42), u"  -00042");
  EXPECT_EQ(F(u"%08.*d", 5, 42), u"   00042");  // a precision drops the zero flag
  EXPECT_EQ(F(u"%08.*d", -1, 42), u"00000042");  // a negative one keeps it
  EXPECT_EQ(F(u"%.*d", 0, 0), u"");
  EXPECT_EQ(F(u"%+.*d", 0, 0), u"+");
  EXPECT_EQ(F(u"%5.*x|", 0, 0), u"     |");
  EXPECT_EQ(F(u"%.*d", 1, 0), u"0");
  EXPECT_EQ(F(u"%*.*X", 6, 4, 0xA), u"  000A");
}

TEST(FormatIntegerTest, DecimalPrecisionIsNegativeAndNeverApplies) {
  EXPECT_EQ(F(u"%.5d", 42), u"42");
  EXPECT_EQ(F(u"%.12d", 42), u"42");
  EXPECT_EQ(F(u"%05.3d", 42), u"00042");  // the zero flag stays
  EXPECT_EQ(F(u"%.0d", 0), u"0");
  EXPECT_EQ(F(u"%.d", 0), u"0");
  EXPECT_EQ(F(u"%.99999999999d", 7), u"7");
}

TEST(FormatIntegerTest, StarPrecisionOf512OrMoreIsHonouredWithoutOverflow) {
  Result r = Fmt(u"%.*d", 512, 42);
  EXPECT_EQ(r.count, 512);
  EXPECT_EQ(r.text, Zeros(510) + u"42");
  r = Fmt(u"%.*x|", 600, 0xff);
  EXPECT_EQ(r.count, 601);
  EXPECT_EQ(r.text, Zeros(598) + u"ff|");
  r = Fmt(u"%-+700.*d|", 650, -1);
  EXPECT_EQ(r.text, u"-" + Zeros(649) + u"1" + Blanks(49) + u"|");
}

TEST(FormatIntegerTest, ShortSizeUsesTheLow16Bits) {
  EXPECT_EQ(F(u"%hd", 65535), u"-1");
  EXPECT_EQ(F(u"%hu", 65536), u"0");
  EXPECT_EQ(F(u"%hd", 32768), u"-32768");
  EXPECT_EQ(F(u"%hi", 0x18000), u"-32768");
  EXPECT_EQ(F(u"%hd", 32767), u"32767");
  EXPECT_EQ(F(u"%hu", -1), u"65535");
  EXPECT_EQ(F(u"%hx", 0x12345), u"2345");
  EXPECT_EQ(F(u"%hX", -1), u"FFFF");
  EXPECT_EQ(F(u"%ho", 65537), u"1");
  EXPECT_EQ(F(u"%+hd", 0x10005), u"+5");
}

TEST(FormatIntegerTest, OtherSizeCharactersAreIgnored) {
  for (const char16_t* s : {u"l", u"L", u"F", u"I", u"N", u"w", u"ll", u"lh"}) {
    const std::u16string size(s);
    const std::u16string expected = size.find(u'h') != std::u16string::npos ? u"-1" : u"65535";
    EXPECT_EQ(F(u"%" + size + u"d", 65535), expected);
  }
}

// ---------------------------------------------------------------------------
// p and n
// ---------------------------------------------------------------------------

TEST(FormatPointerTest, EightUpperCaseHexDigitsWithoutPrefix) {
  EXPECT_EQ(F(u"%p", reinterpret_cast<void*>(0xFF)), u"000000FF");
  EXPECT_EQ(F(u"%p", static_cast<void*>(nullptr)), u"00000000");
  EXPECT_EQ(F(u"%p", reinterpret_cast<void*>(static_cast<uintptr_t>(0xDEADBEEFu))), u"DEADBEEF");
}

TEST(FormatPointerTest, WiderPointersGetAllTheirDigits) {
  if (sizeof(void*) < 8) GTEST_SKIP() << "pointers are 32 bits here";
  const uintptr_t big = static_cast<uintptr_t>(0x7F12ull << 32 | 0xABCDEFull);
  EXPECT_EQ(F(u"%p", reinterpret_cast<void*>(big)), u"7F1200ABCDEF");
}

TEST(FormatPointerTest, WidthPadsWithBlanksEvenWithTheZeroFlag) {
  void* p = reinterpret_cast<void*>(0xAB);
  EXPECT_EQ(F(u"%12p", p), u"    000000AB");
  EXPECT_EQ(F(u"%012p", p), u"    000000AB");
  EXPECT_EQ(F(u"%-12p|", p), u"000000AB    |");
  EXPECT_EQ(F(u"%+ p", p), u"000000AB");
  EXPECT_EQ(F(u"%4p", p), u"000000AB");
  EXPECT_EQ(F(u"%.*p", 2, p), u"000000AB");  // precision does not apply
  EXPECT_EQ(F(u"%.*p", 12, p), u"000000AB");
}

TEST(FormatPointerTest, ReadsAPointerSizedArgument) {
  // A pointer followed by an int: both must be read at their own size.
  EXPECT_EQ(F(u"%p,%d", reinterpret_cast<void*>(0x1234), -9), u"00001234,-9");
}

TEST(FormatCountTest, StoresTheCountSoFarAndWritesNothing) {
  int n = -1;
  int m = -1;
  EXPECT_EQ(F(u"abc%n%5d%n|", &n, 7, &m), u"abc    7|");
  EXPECT_EQ(n, 3);
  EXPECT_EQ(m, 8);
  int z = -1;
  EXPECT_EQ(F(u"%-9n|", &z), u"|");  // no padding either
  EXPECT_EQ(z, 0);
}

TEST(FormatCountTest, ShortStoresSixteenBitsAndLeavesTheRestAlone) {
  short pair[2] = {-1, -1};
  EXPECT_EQ(F(u"xy%hn", &pair[0]), u"xy");
  EXPECT_EQ(pair[0], 2);
  EXPECT_EQ(pair[1], -1);
}

TEST(FormatCountTest, CountsCharactersThatDidNotFit) {
  unsigned short buf[4];
  int n = -1;
  EXPECT_EQ(snuprintf(buf, 4, W(WideText(u"abcdefg%nh")), &n), 8);
  EXPECT_EQ(n, 7);
  EXPECT_EQ(ToU16(buf, 4), std::u16string(u"abc\0", 4));
}

TEST(FormatCountTest, ShortStoreKeepsTheLow16BitsOfTheCount) {
  short s = 0;
  Result r = Fmt(u"%70000d%hn", 1, &s);
  EXPECT_EQ(r.count, 70000);
  EXPECT_EQ(s, static_cast<short>(70000 - 65536));
}

// ---------------------------------------------------------------------------
// Hostile widths and precisions
// ---------------------------------------------------------------------------

TEST(FormatHostileTest, HugeWidthsAreCountedNotWritten) {
  unsigned short buf[16];
  EXPECT_EQ(snuprintf(buf, 16, W(WideText(u"%2000000000d")), 5), 2000000000);
  EXPECT_EQ(ToU16(buf), Blanks(15));
  EXPECT_EQ(snuprintf(buf, 16, W(WideText(u"%-2000000000d")), 5), 2000000000);
  EXPECT_EQ(ToU16(buf), u"5" + Blanks(14));
  EXPECT_EQ(snuprintf(buf, 16, W(WideText(u"%*s")), INT_MAX, W(WideText(u"x"))), INT_MAX);
  EXPECT_EQ(snuprintf(buf, 16, W(WideText(u"%*c")), INT_MIN, 'q'), INT_MAX);
  EXPECT_EQ(ToU16(buf), u"q" + Blanks(14));
}

TEST(FormatHostileTest, WidthDigitsBeyondTheIntRangeSaturate) {
  unsigned short buf[8];
  EXPECT_EQ(snuprintf(buf, 8, W(WideText(u"%99999999999999999999d")), 1), INT_MAX);
  EXPECT_EQ(ToU16(buf), Blanks(7));
  EXPECT_EQ(snuprintf(buf, 8, W(WideText(u"%*99d")), INT_MAX, 1), INT_MAX);
}

TEST(FormatHostileTest, HugeStarPrecisionIsCountedNotWritten) {
  unsigned short buf[8];
  EXPECT_EQ(snuprintf(buf, 8, W(WideText(u"%.*d")), INT_MAX, 42), INT_MAX);
  EXPECT_EQ(ToU16(buf), Zeros(7));
  EXPECT_EQ(snuprintf(buf, 8, W(WideText(u"%.*d")), 2000000000, -42), 2000000001);
  EXPECT_EQ(ToU16(buf), u"-" + Zeros(6));
}

TEST(FormatHostileTest, TheTotalCountSaturatesAtIntMax) {
  unsigned short buf[8];
  EXPECT_EQ(snuprintf(buf, 8, W(WideText(u"%*d%*d%*dabc")), INT_MAX, 1, INT_MAX, 2, INT_MAX, 3),
            INT_MAX);
  EXPECT_EQ(ToU16(buf), Blanks(7));
  int n = 0;
  EXPECT_EQ(snuprintf(buf, 8, W(WideText(u"%*d%*d%n")), INT_MAX, 1, INT_MAX, 2, &n), INT_MAX);
  EXPECT_EQ(n, INT_MAX);
}

// ---------------------------------------------------------------------------
// The state table, cell by cell
// ---------------------------------------------------------------------------

// Each format is a prefix that puts the machine in one state, one character
// of one class, and the probe "3d]" whose effect shows the state reached.
// The arguments are always 5, 42, 7, 9.
struct Cell {
  const char16_t* format;
  std::u16string expected;
};

void CheckCells(const char* state, const std::vector<Cell>& cells) {
  static const char* const kClassNames[] = {"other", "percent", "dot",  "star", "zero",
                                            "digit", "flag",    "size", "type"};
  ASSERT_EQ(cells.size(), 9u);
  for (size_t i = 0; i < cells.size(); ++i) {
    EXPECT_EQ(F(cells[i].format, 5, 42, 7, 9), cells[i].expected)
        << "state " << state << ", class " << kClassNames[i];
  }
}

TEST(FormatStateTableTest, FromTheNormalState) {
  CheckCells("normal", {{u"Ay3d]", u"Ay3d]"},
                        {u"A%3d]", u"A  5]"},
                        {u"A.3d]", u"A.3d]"},
                        {u"A*3d]", u"A*3d]"},
                        {u"A03d]", u"A03d]"},
                        {u"A13d]", u"A13d]"},
                        {u"A-3d]", u"A-3d]"},
                        {u"Al3d]", u"Al3d]"},
                        {u"Ad3d]", u"Ad3d]"}});
}

TEST(FormatStateTableTest, FromThePercentState) {
  CheckCells("percent", {{u"%y3d]", u"y3d]"},
                         {u"%%3d]", u"%3d]"},
                         {u"%.3d]", u"5]"},
                         {u"%*3d]", Blanks(51) + u"42]"},
                         {u"%03d]", u"005]"},
                         {u"%13d]", Blanks(12) + u"5]"},
                         {u"%-3d]", u"5  ]"},
                         {u"%l3d]", u"3d]"},
                         {u"%d3d]", u"53d]"}});
}

TEST(FormatStateTableTest, FromTheFlagState) {
  CheckCells("flag", {{u"%+y3d]", u"y3d]"},
                      {u"%+%3d]", u"%3d]"},
                      {u"%+.3d]", u"+5]"},
                      {u"%+*3d]", Blanks(50) + u"+42]"},
                      {u"%+03d]", u"+05]"},
                      {u"%+13d]", Blanks(11) + u"+5]"},
                      {u"%+-3d]", u"+5 ]"},
                      {u"%+l3d]", u"3d]"},
                      {u"%+d3d]", u"+53d]"}});
}

TEST(FormatStateTableTest, FromTheWidthState) {
  CheckCells("width", {{u"%4y3d]", u"y3d]"},
                       {u"%4%3d]", u"%3d]"},
                       {u"%4.3d]", u"   5]"},
                       {u"%4*3d]", u"*3d]"},
                       {u"%403d]", Blanks(402) + u"5]"},
                       {u"%413d]", Blanks(412) + u"5]"},
                       {u"%4-3d]", u"-3d]"},
                       {u"%4l3d]", u"3d]"},
                       {u"%4d3d]", u"   53d]"}});
}

TEST(FormatStateTableTest, FromTheDotState) {
  CheckCells("dot", {{u"%.y3d]", u"y3d]"},
                     {u"%.%3d]", u"%3d]"},
                     {u"%..3d]", u".3d]"},
                     {u"%.*3d]", Zeros(51) + u"42]"},
                     {u"%.03d]", u"5]"},
                     {u"%.13d]", u"5]"},
                     {u"%.-3d]", u"-3d]"},
                     {u"%.l3d]", u"3d]"},
                     {u"%.d3d]", u"53d]"}});
}

TEST(FormatStateTableTest, FromThePrecisionState) {
  // "%.*" takes the 5 as the precision.
  CheckCells("precision", {{u"%.*y3d]", u"y3d]"},
                           {u"%.*%3d]", u"%3d]"},
                           {u"%.*.3d]", u".3d]"},
                           {u"%.**3d]", u"*3d]"},
                           {u"%.*03d]", Zeros(501) + u"42]"},
                           {u"%.*13d]", Zeros(511) + u"42]"},
                           {u"%.*-3d]", u"-3d]"},
                           {u"%.*l3d]", u"3d]"},
                           {u"%.*d3d]", u"000423d]"}});
}

TEST(FormatStateTableTest, FromTheSizeState) {
  CheckCells("size", {{u"%hy3d]", u"y3d]"},
                      {u"%h%3d]", u"%3d]"},
                      {u"%h.3d]", u".3d]"},
                      {u"%h*3d]", u"*3d]"},
                      {u"%h03d]", u"03d]"},
                      {u"%h13d]", u"13d]"},
                      {u"%h-3d]", u"-3d]"},
                      {u"%hl3d]", u"3d]"},
                      {u"%hd3d]", u"53d]"}});
}

TEST(FormatStateTableTest, FromTheTypeState) {
  // "%d" takes the 5.
  CheckCells("type", {{u"%dy3d]", u"5y3d]"},
                      {u"%d%3d]", u"5 42]"},
                      {u"%d.3d]", u"5.3d]"},
                      {u"%d*3d]", u"5*3d]"},
                      {u"%d03d]", u"503d]"},
                      {u"%d13d]", u"513d]"},
                      {u"%d-3d]", u"5-3d]"},
                      {u"%dl3d]", u"5l3d]"},
                      {u"%dd3d]", u"5d3d]"}});
}

TEST(FormatStateTableTest, DigitsContinueAStarWidthAndAStarPrecision) {
  EXPECT_EQ(F(u"%*5d|", 2, 1), Blanks(24) + u"1|");
  EXPECT_EQ(F(u"%.*5d|", 0, 1), Zeros(4) + u"1|");
  EXPECT_EQ(F(u"%*5d|", -2, 1), u"1" + Blanks(24) + u"|");
}

// Every character outside the conversion characters, right after "%": its
// class decides what the probe "3d]" prints.
TEST(FormatStateTableTest, EveryCharacterBehavesAsItsClassSays) {
  const std::u16string types = u"BCEGSXZcdefginopsux";
  for (unsigned c = 1; c <= 0xFFFF; ++c) {
    const char16_t ch = static_cast<char16_t>(c);
    if (types.find(ch) != std::u16string::npos) continue;
    std::u16string expected;
    if (c == '%') {
      expected = u"%3d]";
    } else if (c == '.') {
      expected = u"5]";
    } else if (c == '*') {
      expected = Blanks(51) + u"42]";
    } else if (c == '0') {
      expected = u"005]";
    } else if (c >= '1' && c <= '9') {
      expected = Blanks((c - '0') * 10 + 3 - 1) + u"5]";
    } else if (c == ' ' || c == '#') {
      expected = u"  5]";  // blank: padding then the blank sign; "#": padding only
    } else if (c == '+') {
      expected = u" +5]";
    } else if (c == '-') {
      expected = u"5  ]";
    } else if (std::u16string(u"FILNhlw").find(ch) != std::u16string::npos) {
      expected = u"3d]";
    } else {
      expected = std::u16string(1, ch) + u"3d]";  // other: written, "%" dropped
    }
    const std::u16string format = u"%" + std::u16string(1, ch) + u"3d]";
    ASSERT_EQ(F(format, 5, 42), expected) << "character " << c;
  }
}

TEST(FormatStateTableTest, EveryConversionCharacterConvertsRightAfterPercent) {
  const WideText s(u"str");
  int n = -1;
  EXPECT_EQ(F(u"%c]", 'k'), u"k]");
  EXPECT_EQ(F(u"%s]", W(s)), u"str]");
  EXPECT_EQ(F(u"%d]%i]%u]", -3, -4, 5), u"-3]-4]5]");
  EXPECT_EQ(F(u"%o]%x]%X]", 9, 0xab, 0xab), u"11]ab]AB]");
  EXPECT_EQ(F(u"%p]", reinterpret_cast<void*>(0x10)), u"00000010]");
  EXPECT_EQ(F(u"ab%n]", &n), u"ab]");
  EXPECT_EQ(n, 2);
  EXPECT_EQ(F(u"%B]%C]%E]%G]%S]%Z]%e]%f]%g]"), u"]]]]]]]]]");
}

// ---------------------------------------------------------------------------
// Random comparison with the platform's snprintf
// ---------------------------------------------------------------------------

int RandomValue(std::mt19937& rng) {
  static const int kEdges[] = {0,      1,     -1,    INT_MAX, INT_MIN, 0xFFFF, 0x8000,
                               0x7FFF, -32768, 65536, 10,      -10,     8,      16};
  switch (rng() % 4) {
    case 0:
      return kEdges[rng() % (sizeof kEdges / sizeof kEdges[0])];
    case 1: {
      const unsigned bits = 1 + rng() % 32;
      const uint32_t v = bits == 32 ? static_cast<uint32_t>(rng()) : rng() & ((1u << bits) - 1);
      return static_cast<int>(rng() % 2 ? v : 0u - v);
    }
    default:
      return static_cast<int>(static_cast<uint32_t>(rng()));
  }
}

// C's rules for the formats the differential test makes: text, and integer
// conversions %[-+ 0]*[width|*][.*][h](d|i|u|o|x|X) taking their int
// arguments in order. A blank or + applies to the signed conversions only; a
// negative star width is the - flag with its magnitude, a negative star
// precision is none; a precision, or -, turns 0 off; precision 0 prints no
// digits for 0.
std::string ReferenceFormat(const std::string& format, const std::vector<int>& args) {
  std::string out;
  size_t next = 0;
  for (size_t i = 0; i < format.size(); ++i) {
    if (format[i] != '%') {
      out += format[i];
      continue;
    }
    bool minus = false, plus = false, blank = false, zero = false;
    for (++i; format[i] && strchr("-+ 0", format[i]); ++i) {
      minus |= format[i] == '-';
      plus |= format[i] == '+';
      blank |= format[i] == ' ';
      zero |= format[i] == '0';
    }
    long width = 0;
    if (format[i] == '*') {
      width = args[next++];
      if (width < 0) {
        minus = true;
        width = -width;
      }
      ++i;
    } else {
      for (; format[i] >= '0' && format[i] <= '9'; ++i) width = width * 10 + (format[i] - '0');
    }
    long precision = -1;
    if (format[i] == '.') {
      precision = args[next++];  // always a star here
      if (precision < 0) precision = -1;
      i += 2;
    }
    const bool half = format[i] == 'h';
    if (half) ++i;
    const char conversion = format[i];
    const int value = args[next++];
    const bool isSigned = conversion == 'd' || conversion == 'i';
    std::string sign;
    unsigned long long magnitude;
    if (isSigned) {
      const long long v = half ? static_cast<short>(value) : value;
      magnitude = static_cast<unsigned long long>(v < 0 ? -v : v);
      sign = v < 0 ? "-" : plus ? "+" : blank ? " " : "";
    } else {
      magnitude = half ? static_cast<unsigned short>(value) : static_cast<unsigned>(value);
    }
    const unsigned base = conversion == 'o' ? 8 : (conversion == 'x' || conversion == 'X') ? 16 : 10;
    const char* digitSet = conversion == 'X' ? "0123456789ABCDEF" : "0123456789abcdef";
    std::string digits;
    for (; magnitude; magnitude /= base) digits.insert(digits.begin(), digitSet[magnitude % base]);
    if (precision < 0 && digits.empty()) digits = "0";
    if (precision > static_cast<long>(digits.size()))
      digits.insert(0, static_cast<size_t>(precision) - digits.size(), '0');
    const long length = static_cast<long>(sign.size() + digits.size());
    const size_t pad = width > length ? static_cast<size_t>(width - length) : 0;
    if (minus)
      out += sign + digits + std::string(pad, ' ');
    else if (zero && precision < 0)
      out += sign + std::string(pad, '0') + digits;
    else
      out += std::string(pad, ' ') + sign + digits;
  }
  return out;
}

// The integer conversions with the flags -, +, blank and 0, widths (digits or
// star) and star precisions agree with snprintf, truncation included. Left
// out are the documented differences: precisions written in digits and "#".
// On Windows the comparison is with the model above instead: MinGW-w64's
// snprintf, which libstdc++ puts in place of the C runtime's, writes a blank
// before an unsigned conversion (% u), which C does not allow. Elsewhere the
// model is checked against the C library's snprintf on every format as well.
TEST(FormatDifferentialTest, IntegerConversionsAgreeWithSnprintf) {
  std::mt19937 rng(0x5eed1234);
  const char kConversions[] = "diuoxX";
  const char kFlags[] = "-+ 0";
  for (int iter = 0; iter < 200000; ++iter) {
    std::string format = "<";
    std::vector<int> args;
    const int items = 1 + static_cast<int>(rng() % 2);
    for (int item = 0; item < items; ++item) {
      format += '%';
      const int nflags = static_cast<int>(rng() % 4);
      for (int k = 0; k < nflags; ++k) format += kFlags[rng() % 4];
      switch (rng() % 3) {
        case 0:
          break;
        case 1:
          format += std::to_string(1 + rng() % 25);
          break;
        default:
          format += '*';
          args.push_back(static_cast<int>(rng() % 51) - 25);
          break;
      }
      switch (rng() % 3) {
        case 0:
          break;
        case 1:
          format += ".*";
          args.push_back(static_cast<int>(rng() % 30) - 5);
          break;
        default:
          format += ".*";
          args.push_back(rng() % 8 == 0 ? 512 + static_cast<int>(rng() % 100)
                                        : static_cast<int>(rng() % 14));
          break;
      }
      if (rng() % 4 == 0) format += 'h';
      format += kConversions[rng() % 6];
      format += item + 1 < items ? "|" : ">";
      args.push_back(RandomValue(rng));
    }
    while (args.size() < 6) args.push_back(0);

    const std::string model = ReferenceFormat(format, args);
#if defined(_WIN32)
    std::vector<char> ref(model.begin(), model.end());
    const int refCount = static_cast<int>(model.size());
#else
    std::vector<char> ref(2048);
    const int refCount = snprintf(ref.data(), ref.size(), format.c_str(), args[0], args[1],
                                  args[2], args[3], args[4], args[5]);
    ASSERT_GE(refCount, 0);
    ASSERT_LT(refCount, static_cast<int>(ref.size()));
    ASSERT_EQ(model, std::string(ref.data(), static_cast<size_t>(refCount)))
        << "the model differs from snprintf: " << format;
#endif

    // Full buffer, then a random size that may cut the output.
    WideText f(Widen(format));
    const size_t sizes[2] = {2048, rng() % (static_cast<size_t>(refCount) + 3)};
    for (size_t size : sizes) {
      std::vector<unsigned short> buf(2049, 0xAAAA);
      const int count =
          snuprintf(buf.data(), size, f, args[0], args[1], args[2], args[3], args[4], args[5]);
      ASSERT_EQ(count, refCount) << format;
      if (size == 0) {
        ASSERT_EQ(buf[0], 0xAAAA) << format;
        continue;
      }
      const size_t stored = std::min(size - 1, static_cast<size_t>(refCount));
      ASSERT_EQ(ToU16(buf.data(), stored), Widen(std::string(ref.data(), stored)))
          << format << " size " << size;
      ASSERT_EQ(buf[stored], 0) << format << " size " << size;
      ASSERT_EQ(buf[stored + 1], 0xAAAA) << format << " size " << size;
    }
  }
}

}  // namespace
