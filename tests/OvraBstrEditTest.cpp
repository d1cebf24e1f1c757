// Tests of TBstr's substrings, conversions, in-place edits, searches and
// formatting.
#include <gtest/gtest.h>
#include <limits.h>
#include <stdarg.h>

#include <random>
#include <string>
#include <vector>

#include "OvraBstr.h"
#include "OvraFormat.h"
#include "TestBstr.h"

using namespace ovra_test;

namespace {

using EditTest = StringTest;
using Sizes = std::vector<size_t>;

// Bytes of a buffer of n characters.
size_t Block(size_t n) { return 2 * n + 6; }

// ===========================================================================
// Substrings
// ===========================================================================

TEST_F(EditTest, MidClampsTheFirstIndexIntoTheText) {
  const TBstr s(W(u"abcde"));
  EXPECT_EQ(Text(s.Mid(-3, 2)), u"ab");
  EXPECT_EQ(Text(s.Mid(7, 2)), u"");
  EXPECT_EQ(Text(s.Mid(5, 2)), u"");
  EXPECT_EQ(Text(s.Mid(1, 2)), u"bc");
  EXPECT_EQ(Text(s.Mid(3, 100)), u"de");
  EXPECT_EQ(Text(s.Mid(INT_MIN, INT_MAX)), u"abcde");
}

TEST_F(EditTest, MidWithANonPositiveCountIsEmpty) {
  const TBstr s(W(u"abcde"));
  Mark();
  EXPECT_TRUE(s.Mid(2, 0).IsEmpty());
  EXPECT_TRUE(s.Mid(2, -1).IsEmpty());
  EXPECT_TRUE(s.Mid(0, INT_MIN).IsEmpty());
  EXPECT_TRUE(Requests().empty());
}

TEST_F(EditTest, MidFromAnIndexRunsToTheEnd) {
  const TBstr s(W(u"abcde"));
  EXPECT_EQ(Text(s.Mid(2)), u"cde");
  EXPECT_EQ(Text(s.Mid(-3)), u"abcde");  // a negative first gives the whole text
  EXPECT_EQ(Text(s.Mid(INT_MIN)), u"abcde");
  EXPECT_EQ(Text(s.Mid(5)), u"");
  EXPECT_EQ(Text(s.Mid(INT_MAX)), u"");
}

TEST_F(EditTest, LeftAndRight) {
  const TBstr s(W(u"abcde"));
  EXPECT_EQ(Text(s.Left(2)), u"ab");
  EXPECT_EQ(Text(s.Left(10)), u"abcde");
  EXPECT_EQ(Text(s.Left(-1)), u"");
  EXPECT_EQ(Text(s.Right(2)), u"de");
  EXPECT_EQ(Text(s.Right(10)), u"abcde");
  EXPECT_EQ(Text(s.Right(INT_MAX)), u"abcde");
  EXPECT_EQ(Text(s.Right(-1)), u"");
  EXPECT_EQ(Text(s.Right(INT_MIN)), u"");
  EXPECT_EQ(Text(s.Right(0)), u"");
}

TEST_F(EditTest, SubstringsOfTheEmptyStringAreEmpty) {
  const TBstr s;
  EXPECT_TRUE(s.Mid(0, 3).IsEmpty());
  EXPECT_TRUE(s.Mid(-1).IsEmpty());
  EXPECT_TRUE(s.Left(2).IsEmpty());
  EXPECT_TRUE(s.Right(2).IsEmpty());
}

TEST_F(EditTest, SubstringsKeepZeroCharacters) {
  const TBstr s(W(u"a\0b\0c"), 5);
  EXPECT_EQ(Text(s.Mid(1, 3)), std::u16string(u"\0b\0", 3));
  EXPECT_EQ(Text(s.Right(2)), std::u16string(u"\0c", 2));
}

TEST_F(EditTest, SubstringFailureGivesAnEmptyResultAndLeavesTheSource) {
  const TBstr s(W(u"abcdef"));
  SweepAllocationFailures([&](FailurePoint& point) {
    point.Arm();
    const TBstr part = s.Mid(1, 3);
    const bool failed = point.Disarm();
    EXPECT_EQ(Text(part), failed ? u"" : u"bcd");
  });
  EXPECT_EQ(Text(s), u"abcdef");
}

// ===========================================================================
// Conversion, case and order
// ===========================================================================

TEST_F(EditTest, ToLongReadsDecimalWithTheRuntimeRules) {
  EXPECT_EQ(TBstr().ToLong(), 0);
  EXPECT_EQ(TBstr(W(u"  42abc")).ToLong(), 42);
  EXPECT_EQ(TBstr(W(u"-17")).ToLong(), -17);
  EXPECT_EQ(TBstr(W(u"+8")).ToLong(), 8);
  EXPECT_EQ(TBstr(W(u"0x1A")).ToLong(), 0);
  EXPECT_EQ(TBstr(W(u"\t12")).ToLong(), 0);  // only blanks are skipped
  EXPECT_EQ(TBstr(W(u"99999999999")).ToLong(), 2147483647);
  EXPECT_EQ(TBstr(W(u"-2147483648")).ToLong(), -2147483647);
  EXPECT_EQ(TBstr(W(u"x1")).ToLong(), 0);
}

TEST_F(EditTest, MakeUpperAndLowerChangeAsciiLettersOnly) {
  TBstr s(W(u"aBz\u00E9\u00C9 1"));
  s.MakeUpper();
  EXPECT_EQ(Text(s), u"ABZ\u00E9\u00C9 1");
  s.MakeLower();
  EXPECT_EQ(Text(s), u"abz\u00E9\u00C9 1");
  TBstr empty;
  empty.MakeUpper();
  empty.MakeLower();
  EXPECT_TRUE(empty.IsEmpty());
}

TEST_F(EditTest, MakeReverseReversesTheCharacters) {
  TBstr s(W(u"abc\u20AC"));
  s.MakeReverse();
  EXPECT_EQ(Text(s), u"\u20ACcba");
  TBstr inner(W(u"ab\0cd"), 5);
  inner.MakeReverse();  // up to the first zero character
  EXPECT_EQ(Text(inner), std::u16string(u"ba\0cd", 5));
  TBstr empty;
  empty.MakeReverse();
  EXPECT_TRUE(empty.IsEmpty());
}

TEST_F(EditTest, MakeBigEndianSwapsTheBytesOfEveryCharacterAndTwiceRestores) {
  TBstr s(W(u"\u1234a\0\uFF00"), 4);
  s.MakeBigEndian();
  EXPECT_EQ(Text(s), std::u16string(u"\u3412\u6100\0\u00FF", 4));
  s.MakeBigEndian();
  EXPECT_EQ(Text(s), std::u16string(u"\u1234a\0\uFF00", 4));
  TBstr empty;
  empty.MakeBigEndian();
  EXPECT_TRUE(empty.IsEmpty());
}

// ===========================================================================
// Trimming and normalising
// ===========================================================================

TEST_F(EditTest, TrimLeftRemovesTheRunOfOneCharacterValue) {
  TBstr s(W(u"   x  "));
  s.TrimLeft(u' ');
  EXPECT_EQ(Text(s), u"x  ");
  TBstr t(W(u"xxxaxx"));
  t.TrimLeft(u'x');
  EXPECT_EQ(Text(t), u"axx");
  TBstr all(W(u"zzz"));
  all.TrimLeft(u'z');
  EXPECT_TRUE(all.IsEmpty());
  TBstr byDefault(W(u"  d"));
  byDefault.TrimLeft();
  EXPECT_EQ(Text(byDefault), u"d");
}

TEST_F(EditTest, TrimRightRemovesTheRunOfOneCharacterValue) {
  TBstr s(W(u"   x  "));
  s.TrimRight(u' ');
  EXPECT_EQ(Text(s), u"   x");
  TBstr t(W(u"a\t "));
  t.TrimRight();
  EXPECT_EQ(Text(t), u"a\t");
  TBstr all(W(u"zzz"));
  all.TrimRight(u'z');
  EXPECT_TRUE(all.IsEmpty());
}

TEST_F(EditTest, TrimOfAZeroCharacterOrAnEmptyStringChangesNothing) {
  TBstr s(W(u"\0\0a"), 3);
  const unsigned short* buffer = s.GetString();
  Mark();
  s.TrimLeft(0);
  s.TrimRight(0);
  EXPECT_EQ(Text(s), std::u16string(u"\0\0a", 3));
  EXPECT_EQ(s.GetString(), buffer);
  TBstr empty;
  empty.TrimLeft();
  empty.TrimRight();
  EXPECT_TRUE(empty.IsEmpty());
  EXPECT_TRUE(Requests().empty());
}

TEST_F(EditTest, TrimLeftOfABlankDoesNotRemoveTabs) {
  TBstr s(W(u"\t x"));
  s.TrimLeft(u' ');
  EXPECT_EQ(Text(s), u"\t x");
}

TEST_F(EditTest, TrimWithNothingToRemoveKeepsTheBuffer) {
  TBstr s(W(u"abc"));
  const unsigned short* buffer = s.GetString();
  Mark();
  s.TrimLeft();
  s.TrimRight();
  EXPECT_EQ(s.GetString(), buffer);
  EXPECT_TRUE(Requests().empty());
}

TEST_F(EditTest, TrimShrinksToAnExactBuffer) {
  TBstr s(W(u"  ab  "));
  Mark();
  s.TrimLeft();
  EXPECT_EQ(Requests(), Sizes{Block(4)});
  Mark();
  s.TrimRight();
  EXPECT_EQ(Requests(), Sizes{Block(2)});
  EXPECT_EQ(Text(s), u"ab");
}

TEST_F(EditTest, NormalizeRemovesBlanksAndFoldsAsciiCapitals) {
  TBstr s(W(u"A B"));
  s.Normalize();
  EXPECT_EQ(Text(s), u"ab");
  TBstr t(W(u"  Hello \tW\u00C9rld  "));
  t.Normalize();
  EXPECT_EQ(Text(t), u"hello\tw\u00C9rld");
  TBstr blanks(W(u"    "));
  blanks.Normalize();
  EXPECT_TRUE(blanks.IsEmpty());
  TBstr empty;
  empty.Normalize();
  EXPECT_TRUE(empty.IsEmpty());
}

// Normalize produces the form that CompareNormal treats as equal.
TEST_F(EditTest, NormalizedTextComparesNormallyEqualToTheOriginal) {
  std::mt19937 rng(31337);
  const char16_t alphabet[] = u"aAbBzZ  -_\u00E9\u00C9\t";
  for (int round = 0; round < 500; ++round) {
    std::u16string text;
    const size_t length = 1 + rng() % 20;
    for (size_t i = 0; i < length; ++i) text.push_back(alphabet[rng() % 13]);
    TBstr original(W(text.c_str()));
    TBstr normal(original);
    normal.Normalize();
    EXPECT_EQ(original.CompareNormal(normal.GetString()), 0) << round;
    EXPECT_EQ(normal.Find(u' '), -1);
  }
}

TEST_F(EditTest, TrimAndNormalizeFailureLeavesTheStringEmpty) {
  SweepAllocationFailures([&](FailurePoint& point) {
    TBstr s(W(u"  ab"));
    point.Arm();
    s.TrimLeft();
    const bool failed = point.Disarm();
    EXPECT_EQ(Text(s), failed ? u"" : u"ab");
  });
  SweepAllocationFailures([&](FailurePoint& point) {
    TBstr s(W(u"ab  "));
    point.Arm();
    s.TrimRight();
    const bool failed = point.Disarm();
    EXPECT_EQ(Text(s), failed ? u"" : u"ab");
  });
  SweepAllocationFailures([&](FailurePoint& point) {
    TBstr s(W(u"A b"));
    point.Arm();
    s.Normalize();
    const bool failed = point.Disarm();
    EXPECT_EQ(Text(s), failed ? u"" : u"ab");
  });
}

// ===========================================================================
// Replacing characters and texts
// ===========================================================================

TEST_F(EditTest, ReplaceCharacterReplacesEveryOneInPlace) {
  TBstr s(W(u"banana"));
  const unsigned short* buffer = s.GetString();
  EXPECT_EQ(s.Replace(u'a', u'o'), 3);
  EXPECT_EQ(Text(s), u"bonono");
  EXPECT_EQ(s.GetString(), buffer);
  EXPECT_EQ(s.Replace(u'x', u'y'), 0);
  EXPECT_EQ(TBstr().Replace(u'a', u'b'), 0);
}

TEST_F(EditTest, ReplaceCharacterStoresAZeroAsItIs) {
  TBstr s(W(u"a-b-c"));
  EXPECT_EQ(s.Replace(u'-', 0), 2);
  EXPECT_EQ(s.GetLength(), 5);
  EXPECT_EQ(Text(s), std::u16string(u"a\0b\0c", 5));
  // The whole length is walked, past inner zero characters.
  EXPECT_EQ(s.Replace(u'c', u'C'), 1);
  EXPECT_EQ(s.GetAt(4), u'C');
}

TEST_F(EditTest, ReplaceTextDoesNotRescanTheInsertedText) {
  TBstr s(W(u"a-a"));
  EXPECT_EQ(s.Replace(W(u"a"), W(u"aXa")), 2);
  EXPECT_EQ(Text(s), u"aXa-aXa");
}

TEST_F(EditTest, ReplacingATextByItselfTerminates) {
  TBstr s(W(u"abab"));
  EXPECT_EQ(s.Replace(W(u"ab"), W(u"ab")), 2);
  EXPECT_EQ(Text(s), u"abab");
}

TEST_F(EditTest, ReplaceWithAnEmptyOrNullFromChangesNothing) {
  TBstr s(W(u"abc"));
  const unsigned short* buffer = s.GetString();
  Mark();
  EXPECT_EQ(s.Replace(W(u""), W(u"x")), 0);
  EXPECT_EQ(s.Replace(nullptr, W(u"x")), 0);
  EXPECT_EQ(s.Replace(W(u"abcd"), W(u"x")), 0);  // longer than the text
  EXPECT_EQ(s.Replace(W(u"z"), W(u"x")), 0);     // not found
  EXPECT_EQ(Text(s), u"abc");
  EXPECT_EQ(s.GetString(), buffer);
  EXPECT_TRUE(Requests().empty());
  EXPECT_EQ(TBstr().Replace(W(u"a"), W(u"b")), 0);
}

TEST_F(EditTest, ReplaceWithAnEmptyOrNullToRemovesTheOccurrences) {
  TBstr s(W(u"a--b--c"));
  EXPECT_EQ(s.Replace(W(u"--"), nullptr), 2);
  EXPECT_EQ(Text(s), u"abc");
  TBstr t(W(u"xyxyx"));
  EXPECT_EQ(t.Replace(W(u"x"), W(u"")), 3);
  EXPECT_EQ(Text(t), u"yy");
  TBstr all(W(u"abab"));
  EXPECT_EQ(all.Replace(W(u"ab"), nullptr), 2);
  EXPECT_TRUE(all.IsEmpty());
}

TEST_F(EditTest, ReplaceByAShorterOrEqualText) {
  TBstr s(W(u"aXXbXX"));
  EXPECT_EQ(s.Replace(W(u"XX"), W(u"Y")), 2);
  EXPECT_EQ(Text(s), u"aYbY");
  TBstr t(W(u"one two one"));
  const unsigned short* buffer = t.GetString();
  Mark();
  EXPECT_EQ(t.Replace(W(u"one"), W(u"111")), 2);
  EXPECT_EQ(Text(t), u"111 two 111");
  EXPECT_EQ(t.GetString(), buffer);  // same length: no new buffer
  EXPECT_TRUE(Requests().empty());
}

TEST_F(EditTest, ReplaceTakesOccurrencesFromTheLeftWithoutOverlap) {
  TBstr s(W(u"aaaa"));
  EXPECT_EQ(s.Replace(W(u"aa"), W(u"b")), 2);
  EXPECT_EQ(Text(s), u"bb");
  TBstr t(W(u"aaa"));
  EXPECT_EQ(t.Replace(W(u"aa"), W(u"b")), 1);
  EXPECT_EQ(Text(t), u"ba");
}

TEST_F(EditTest, ReplaceReallocatesOncePerLengthChangingReplacement) {
  TBstr s(W(u"a.b.c"));
  Mark();
  EXPECT_EQ(s.Replace(W(u"."), W(u"...")), 2);
  EXPECT_EQ(Requests(), (Sizes{Block(7), Block(9)}));
  Mark();
  EXPECT_EQ(s.Replace(W(u"..."), W(u",")), 2);
  EXPECT_EQ(Requests(), (Sizes{Block(7), Block(5)}));
  EXPECT_EQ(Text(s), u"a,b,c");
}

TEST_F(EditTest, ReplaceMovesTheTailPastAnInnerZeroCharacter) {
  TBstr s(W(u"a\0a"), 3);
  EXPECT_EQ(s.Replace(W(u"a"), W(u"bb")), 1);  // the search stops at the zero
  EXPECT_EQ(Text(s), std::u16string(u"bb\0a", 4));
  TBstr t(W(u"xy\0z"), 4);
  EXPECT_EQ(t.Replace(W(u"xy"), W(u"q")), 1);
  EXPECT_EQ(Text(t), std::u16string(u"q\0z", 3));
}

TEST_F(EditTest, ReplaceWithTextsTakenFromTheStringItself) {
  TBstr s(W(u"abcabc"));
  EXPECT_EQ(s.Replace(s.GetString() + 3, W(u"x")), 2);  // from is "abc"
  EXPECT_EQ(Text(s), u"xx");
  TBstr t(W(u"ab"));
  EXPECT_EQ(t.Replace(W(u"b"), t.GetString()), 1);  // to is "ab"
  EXPECT_EQ(Text(t), u"aab");
}

TEST_F(EditTest, ReplaceFailureLeavesTheStringEmpty) {
  SweepAllocationFailures([&](FailurePoint& point) {
    TBstr s(W(u"a.b.c.d"));
    point.Arm();
    const int count = s.Replace(W(u"."), W(u"<>"));
    const bool failed = point.Disarm();
    if (failed) {
      EXPECT_TRUE(s.IsEmpty());
      EXPECT_EQ(count, point.n() - 1) << "replacements made before the failure";
    } else {
      EXPECT_EQ(count, 3);
      EXPECT_EQ(Text(s), u"a<>b<>c<>d");
    }
  });
  SweepAllocationFailures([&](FailurePoint& point) {
    TBstr s(W(u"a<>b<>c"));
    point.Arm();
    const int count = s.Replace(W(u"<>"), nullptr);
    const bool failed = point.Disarm();
    if (failed) {
      EXPECT_TRUE(s.IsEmpty());
      EXPECT_EQ(count, point.n() - 1);
    } else {
      EXPECT_EQ(Text(s), u"abc");
    }
  });
  SweepAllocationFailures([&](FailurePoint& point) {
    TBstr s(W(u"abab"));
    point.Arm();
    s.Replace(s.GetString() + 2, W(u"xyz"));
    const bool failed = point.Disarm();
    EXPECT_EQ(Text(s), failed ? u"" : u"xyzxyz");
  });
}

// ===========================================================================
// Remove, Insert, Delete
// ===========================================================================

TEST_F(EditTest, RemoveTakesOutEveryCharacterOfOneValue) {
  TBstr s(W(u"banana"));
  EXPECT_EQ(s.Remove(u'a'), 3);
  EXPECT_EQ(Text(s), u"bnn");
  TBstr all(W(u"aaa"));
  EXPECT_EQ(all.Remove(u'a'), 3);
  EXPECT_TRUE(all.IsEmpty());
  EXPECT_EQ(TBstr().Remove(u'a'), 0);
  TBstr zeros(W(u"a\0b\0"), 4);
  EXPECT_EQ(zeros.Remove(0), 2);
  EXPECT_EQ(Text(zeros), u"ab");
}

TEST_F(EditTest, RemoveOfAnAbsentCharacterKeepsTheBuffer) {
  TBstr s(W(u"abc"));
  const unsigned short* buffer = s.GetString();
  Mark();
  EXPECT_EQ(s.Remove(u'z'), 0);
  EXPECT_EQ(s.GetString(), buffer);
  EXPECT_TRUE(Requests().empty());
}

TEST_F(EditTest, InsertCharacter) {
  TBstr s(W(u"abcde"));
  EXPECT_EQ(s.Insert(100, u'!'), 6);
  EXPECT_EQ(Text(s), u"abcde!");
  EXPECT_EQ(s.Insert(0, u'>'), 7);
  EXPECT_EQ(s.Insert(3, u'|'), 8);
  EXPECT_EQ(Text(s), u">ab|cde!");
  TBstr empty;
  EXPECT_EQ(empty.Insert(3, u'x'), 1);
  EXPECT_EQ(Text(empty), u"x");
}

TEST_F(EditTest, InsertCharacterAtANegativeIndexOrOfZeroChangesNothing) {
  TBstr s(W(u"abcde"));
  const unsigned short* buffer = s.GetString();
  Mark();
  EXPECT_EQ(s.Insert(-1, u'x'), 5);
  EXPECT_EQ(s.Insert(2, static_cast<unsigned short>(0)), 5);
  EXPECT_EQ(Text(s), u"abcde");
  EXPECT_EQ(s.GetString(), buffer);
  EXPECT_TRUE(Requests().empty());
}

TEST_F(EditTest, InsertText) {
  TBstr s(W(u"abcde"));
  EXPECT_EQ(s.Insert(2, W(u"XY")), 7);
  EXPECT_EQ(Text(s), u"abXYcde");
  EXPECT_EQ(s.Insert(100, W(u"!")), 8);
  EXPECT_EQ(s.Insert(0, W(u"<")), 9);
  EXPECT_EQ(Text(s), u"<abXYcde!");
  EXPECT_EQ(s.Insert(-1, W(u"x")), 9);
  EXPECT_EQ(s.Insert(1, W(u"")), 9);
  EXPECT_EQ(s.Insert(1, static_cast<const unsigned short*>(nullptr)), 9);
  EXPECT_EQ(Text(s), u"<abXYcde!");
  TBstr empty;
  EXPECT_EQ(empty.Insert(0, W(u"new")), 3);
  EXPECT_EQ(Text(empty), u"new");
}

TEST_F(EditTest, InsertOfTheStringIntoItself) {
  TBstr s(W(u"abcde"));
  EXPECT_EQ(s.Insert(1, s.GetString()), 10);
  EXPECT_EQ(Text(s), u"aabcdebcde");
  TBstr t(W(u"xyz"));
  EXPECT_EQ(t.Insert(3, t.GetString() + 1), 5);
  EXPECT_EQ(Text(t), u"xyzyz");
}

TEST_F(EditTest, InsertAllocatesOneExactBuffer) {
  TBstr s(W(u"abc"));
  Mark();
  s.Insert(1, W(u"12"));
  EXPECT_EQ(Requests(), Sizes{Block(5)});
}

TEST_F(EditTest, DeleteRemovesUpToTheEnd) {
  TBstr s(W(u"abcde"));
  EXPECT_EQ(s.Delete(2, 100), 2);
  EXPECT_EQ(Text(s), u"ab");
  TBstr t(W(u"abcde"));
  EXPECT_EQ(t.Delete(1, 2), 3);
  EXPECT_EQ(Text(t), u"ade");
  EXPECT_EQ(t.Delete(0, 3), 0);
  EXPECT_TRUE(t.IsEmpty());
  TBstr u(W(u"abcde"));
  EXPECT_EQ(u.Delete(1, INT_MAX), 1);
  EXPECT_EQ(Text(u), u"a");
}

TEST_F(EditTest, DeleteOutOfRangeOrWithANonPositiveCountChangesNothing) {
  TBstr s(W(u"abcde"));
  const unsigned short* buffer = s.GetString();
  Mark();
  EXPECT_EQ(s.Delete(-1, 2), 5);
  EXPECT_EQ(s.Delete(5, 1), 5);
  EXPECT_EQ(s.Delete(100, 1), 5);
  EXPECT_EQ(s.Delete(1, -3), 5);
  EXPECT_EQ(s.Delete(1, INT_MIN), 5);
  EXPECT_EQ(s.Delete(2, 0), 5);
  EXPECT_EQ(Text(s), u"abcde");
  EXPECT_EQ(s.GetString(), buffer);
  EXPECT_TRUE(Requests().empty());
  EXPECT_EQ(TBstr().Delete(0, 1), 0);
}

TEST_F(EditTest, RemoveInsertAndDeleteFailureLeavesTheStringEmpty) {
  SweepAllocationFailures([&](FailurePoint& point) {
    TBstr s(W(u"banana"));
    point.Arm();
    const int removed = s.Remove(u'n');
    const bool failed = point.Disarm();
    EXPECT_EQ(removed, 2);
    EXPECT_EQ(Text(s), failed ? u"" : u"baaa");
  });
  SweepAllocationFailures([&](FailurePoint& point) {
    TBstr s(W(u"abc"));
    point.Arm();
    const int length = s.Insert(1, u'-');
    const bool failed = point.Disarm();
    EXPECT_EQ(length, failed ? 0 : 4);
    EXPECT_EQ(Text(s), failed ? u"" : u"a-bc");
  });
  SweepAllocationFailures([&](FailurePoint& point) {
    TBstr s(W(u"abc"));
    point.Arm();
    const int length = s.Insert(1, s.GetString());
    const bool failed = point.Disarm();
    EXPECT_EQ(length, failed ? 0 : 6);
    EXPECT_EQ(Text(s), failed ? u"" : u"aabcbc");
  });
  SweepAllocationFailures([&](FailurePoint& point) {
    TBstr s(W(u"abcde"));
    point.Arm();
    const int length = s.Delete(1, 3);
    const bool failed = point.Disarm();
    EXPECT_EQ(length, failed ? 0 : 2);
    EXPECT_EQ(Text(s), failed ? u"" : u"ae");
  });
}

// ===========================================================================
// Searching
// ===========================================================================

TEST_F(EditTest, FindCharacterFromAStart) {
  const TBstr s(W(u"abcabc"));
  EXPECT_EQ(s.Find(u'c'), 2);
  EXPECT_EQ(s.Find(u'c', 3), 5);
  EXPECT_EQ(s.Find(u'a', 1), 3);
  EXPECT_EQ(s.Find(u'z'), -1);
  EXPECT_EQ(s.Find(u'c', 6), -1);
  EXPECT_EQ(s.Find(u'c', -1), -1);
  EXPECT_EQ(TBstr().Find(u'a'), -1);
}

TEST_F(EditTest, FindOfZeroGivesTheLength) {
  EXPECT_EQ(TBstr(W(u"abcde")).Find(static_cast<unsigned short>(0), 0), 5);
  EXPECT_EQ(TBstr(W(u"abcde")).Find(static_cast<unsigned short>(0), 4), 5);
  EXPECT_EQ(TBstr().Find(static_cast<unsigned short>(0), 0), -1);
}

TEST_F(EditTest, ReverseFindGivesTheLastOccurrence) {
  const TBstr s(W(u"abcabc"));
  EXPECT_EQ(s.ReverseFind(u'b'), 4);
  EXPECT_EQ(s.ReverseFind(u'z'), -1);
  EXPECT_EQ(s.ReverseFind(0), 6);
  EXPECT_EQ(TBstr().ReverseFind(u'a'), -1);
  EXPECT_EQ(TBstr().ReverseFind(0), -1);
}

TEST_F(EditTest, FindOneOfGivesTheFirstCharacterOfTheSet) {
  const TBstr s(W(u"hello"));
  EXPECT_EQ(s.FindOneOf(W(u"ol")), 2);
  EXPECT_EQ(s.FindOneOf(W(u"xyz")), -1);
  EXPECT_EQ(s.FindOneOf(W(u"")), -1);
  EXPECT_EQ(s.FindOneOf(nullptr), -1);
  EXPECT_EQ(TBstr().FindOneOf(W(u"a")), -1);
}

TEST_F(EditTest, FindTextFromAStart) {
  const TBstr s(W(u"abcabc"));
  EXPECT_EQ(s.Find(W(u"bc")), 1);
  EXPECT_EQ(s.Find(W(u"bc"), 2), 4);
  EXPECT_EQ(s.Find(W(u"abcd")), -1);
  EXPECT_EQ(s.Find(W(u"bc"), -1), -1);
  EXPECT_EQ(s.Find(W(u"bc"), 6), -1);
  EXPECT_EQ(s.Find(static_cast<const unsigned short*>(nullptr)), -1);
  EXPECT_EQ(TBstr().Find(W(u"a")), -1);
}

TEST_F(EditTest, FindOfAnEmptyTextGivesTheStart) {
  const TBstr s(W(u"abcabc"));
  EXPECT_EQ(s.Find(W(u""), 0), 0);
  EXPECT_EQ(s.Find(W(u""), 3), 3);
  EXPECT_EQ(s.Find(W(u""), 6), -1);
  EXPECT_EQ(TBstr().Find(W(u""), 0), -1);
}

TEST_F(EditTest, SearchesStopAtAnInnerZeroCharacter) {
  const TBstr s(W(u"ab\0cd"), 5);
  EXPECT_EQ(s.Find(u'd'), -1);
  EXPECT_EQ(s.Find(u'd', 3), 4);
  EXPECT_EQ(s.ReverseFind(u'd'), -1);
  EXPECT_EQ(s.FindOneOf(W(u"dc")), -1);
  EXPECT_EQ(s.Find(W(u"cd")), -1);
  EXPECT_EQ(s.Find(static_cast<unsigned short>(0)), 2);
}

// ===========================================================================
// The narrow copy is dropped by every operation that may change the text
// ===========================================================================

TEST_F(EditTest, EditingOperationsDropTheMultibyteCopyEvenWithoutAChange) {
  struct Case {
    const char* name;
    void (*op)(TBstr&);
  };
  const Case cases[] = {
      {"MakeUpper", [](TBstr& s) { s.MakeUpper(); }},
      {"MakeLower", [](TBstr& s) { s.MakeLower(); }},
      {"MakeReverse", [](TBstr& s) { s.MakeReverse(); }},
      {"MakeBigEndian", [](TBstr& s) { s.MakeBigEndian(); }},
      {"TrimLeft(0)", [](TBstr& s) { s.TrimLeft(0); }},
      {"TrimRight(0)", [](TBstr& s) { s.TrimRight(0); }},
      {"TrimLeft(absent)", [](TBstr& s) { s.TrimLeft(u'z'); }},
      {"Normalize", [](TBstr& s) { s.Normalize(); }},
      {"Replace(char)", [](TBstr& s) { s.Replace(u'z', u'y'); }},
      {"Replace(text)", [](TBstr& s) { s.Replace(W(u"zz"), W(u"y")); }},
      {"Replace(null)", [](TBstr& s) { s.Replace(nullptr, nullptr); }},
      {"Remove", [](TBstr& s) { s.Remove(u'z'); }},
      {"Insert(-1, ch)", [](TBstr& s) { s.Insert(-1, u'x'); }},
      {"Insert(0, null)", [](TBstr& s) { s.Insert(0, static_cast<const unsigned short*>(nullptr)); }},
      {"Delete(-1, 1)", [](TBstr& s) { s.Delete(-1, 1); }},
      {"Delete(0, -1)", [](TBstr& s) { s.Delete(0, -1); }},
      {"Format", [](TBstr& s) { s.Format(W(u"text")); }},
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
// Formatting
// ===========================================================================

TEST_F(EditTest, FormatReplacesTheTextByTheFormattedOutput) {
  TBstr s(W(u"old text"));
  s.Format(W(u"%s=%d, %x%%"), W(u"answer"), 42, 255);
  EXPECT_EQ(Text(s), u"answer=42, ff%");
}

TEST_F(EditTest, FormatOfANullStringReservesSixAndWritesNull) {
  TBstr s;
  Mark();
  s.Format(W(u"%s"), static_cast<const unsigned short*>(nullptr));
  EXPECT_EQ(Text(s), u"(null)");
  EXPECT_EQ(Requests(), Sizes{Block(6)});
}

TEST_F(EditTest, FormatOfNothingOrANullFormatIsEmpty) {
  TBstr s(W(u"old"));
  s.Format(W(u""));
  EXPECT_TRUE(s.IsEmpty());
  s = W(u"old");
  s.Format(nullptr);
  EXPECT_TRUE(s.IsEmpty());
  int count = -1;
  s = W(u"old");
  s.Format(W(u"%n"), &count);
  EXPECT_TRUE(s.IsEmpty());
  EXPECT_EQ(count, 0);
}

// Estimate step 1: plain characters and "%%" count one each.
TEST_F(EditTest, FormatEstimateCountsPlainCharactersAndPercentPairs) {
  TBstr s;
  Mark();
  s.Format(W(u"ab%%c"));
  EXPECT_EQ(Text(s), u"ab%c");
  EXPECT_EQ(Requests(), Sizes{Block(4)});
}

// Estimate step 2: "#" adds 2, "*" takes the width, "-", "+", "0" and blank are skipped.
TEST_F(EditTest, FormatEstimateReadsFlagsAndAStarWidth) {
  TBstr s;
  Mark();
  s.Format(W(u"%#s"), W(u"ab"));
  EXPECT_EQ(Text(s), u"ab");
  EXPECT_EQ(Requests(), (Sizes{Block(4), Block(2)}));
  Mark();
  s.Format(W(u"%*s"), 10, W(u"ab"));
  EXPECT_EQ(Text(s), u"        ab");
  EXPECT_EQ(Requests(), Sizes{Block(10)});
  Mark();
  s.Format(W(u"%-+ 07s|"), W(u"ab"));
  EXPECT_EQ(Text(s), u"ab     |");
  EXPECT_EQ(Requests(), Sizes{Block(8)});
}

// Estimate step 3: a decimal width.
TEST_F(EditTest, FormatEstimateReadsADecimalWidth) {
  TBstr s;
  Mark();
  s.Format(W(u"%12s"), W(u"abc"));
  EXPECT_EQ(Text(s), u"         abc");
  EXPECT_EQ(Requests(), Sizes{Block(12)});
}

// Estimate step 4: a precision, from "*" or in decimal.
TEST_F(EditTest, FormatEstimateReadsAPrecision) {
  TBstr s;
  Mark();
  s.Format(W(u"%.*s"), 2, W(u"abcdef"));
  EXPECT_EQ(Text(s), u"ab");
  EXPECT_EQ(Requests(), Sizes{Block(2)});
  Mark();
  s.Format(W(u"%.*s"), -4, W(u"abcdef"));  // negative: no precision
  EXPECT_EQ(Text(s), u"abcdef");
  EXPECT_EQ(Requests(), Sizes{Block(6)});
}

// The estimate honours a decimal precision on "s", which the engine ignores:
// the text is formatted once more with the length the engine reported.
TEST_F(EditTest, FormatKeepsTheWholeTextWhenADecimalPrecisionMadeTheEstimateShort) {
  TBstr s;
  Mark();
  s.Format(W(u"%.2s"), W(u"abcdef"));
  EXPECT_EQ(Text(s), u"abcdef");
  EXPECT_EQ(Requests(), (Sizes{Block(2), Block(6)}));
}

// Estimate step 5: one size prefix is skipped.
TEST_F(EditTest, FormatEstimateSkipsASizePrefix) {
  TBstr s;
  Mark();
  s.Format(W(u"%ld|%hs"), 5, W(u"xy"));
  EXPECT_EQ(Text(s), u"5|xy");
  EXPECT_EQ(Requests(), (Sizes{Block(32 + 1 + 2), Block(4)}));
}

// Estimate step 6: "c" and "C" count one, whatever the width.
TEST_F(EditTest, FormatKeepsTheWholeTextWhenAWidthOnACharacterMadeTheEstimateShort) {
  TBstr s;
  Mark();
  s.Format(W(u"%5c|"), u'x');
  EXPECT_EQ(Text(s), u"    x|");
  EXPECT_EQ(Requests(), (Sizes{Block(2), Block(6)}));
}

// Estimate step 6: integers count width + precision, at least 32.
TEST_F(EditTest, FormatEstimateGivesIntegersAtLeast32) {
  TBstr s;
  Mark();
  s.Format(W(u"%d"), -7);
  EXPECT_EQ(Text(s), u"-7");
  EXPECT_EQ(Requests(), (Sizes{Block(32), Block(2)}));
  Mark();
  s.Format(W(u"%40u"), 7u);
  EXPECT_EQ(Text(s), std::u16string(39, u' ') + u"7");
  EXPECT_EQ(Requests(), Sizes{Block(40)});
  Mark();
  s.Format(W(u"%30.*X"), 10, 0xAB);
  EXPECT_EQ(Text(s), std::u16string(20, u' ') + u"00000000AB");
  EXPECT_EQ(Requests(), (Sizes{Block(40), Block(30)}));
  Mark();
  s.Format(W(u"%o%i%x%p"), 8, 1, 2, static_cast<void*>(nullptr));
  EXPECT_EQ(Text(s), u"101200000000");
  EXPECT_EQ(Requests(), (Sizes{Block(4 * 32), Block(12)}));
}

// Estimate step 6: a 16-bit string counts its length raised to the width, a
// narrow one ("S") its strlen, though the engine prints no text for "S".
TEST_F(EditTest, FormatEstimateCountsStringArguments) {
  TBstr s;
  Mark();
  s.Format(W(u"%3s|%s"), W(u"abcdef"), W(u"x"));
  EXPECT_EQ(Text(s), u"abcdef|x");
  EXPECT_EQ(Requests(), Sizes{Block(8)});
  Mark();
  s.Format(W(u"%S|"), "narrow");
  EXPECT_EQ(Text(s), u"|");
  EXPECT_EQ(Requests(), (Sizes{Block(7), Block(1)}));
  Mark();
  s.Format(W(u"%S|"), static_cast<const char*>(nullptr));
  EXPECT_EQ(Requests(), (Sizes{Block(7), Block(1)}));
}

// Estimate step 6: "n" counts nothing; other conversions take no argument and
// count nothing, so padding they print makes the estimate short.
TEST_F(EditTest, FormatEstimateCountsNothingForNAndUnknownConversions) {
  TBstr s;
  int count = 0;
  Mark();
  s.Format(W(u"ab%ncd"), &count);
  EXPECT_EQ(Text(s), u"abcd");
  EXPECT_EQ(count, 2);
  EXPECT_EQ(Requests(), Sizes{Block(4)});
  Mark();
  s.Format(W(u"%f%d"), 5);
  EXPECT_EQ(Text(s), u"5");
  EXPECT_EQ(Requests(), (Sizes{Block(32), Block(1)}));
  Mark();
  s.Format(W(u"%5f"));
  EXPECT_EQ(Text(s), u"     ");
  EXPECT_EQ(Requests(), Sizes{Block(5)});  // estimate 0: no first buffer
  Mark();
  s.Format(W(u"%5%"));
  EXPECT_EQ(Text(s), u"%");
  EXPECT_EQ(Requests(), Sizes{Block(1)});
}

TEST_F(EditTest, FormatWithAnAbsurdWidthLeavesTheStringEmpty) {
  TBstr s(W(u"old"));
  Mark();
  s.Format(W(u"%2000000000s"), W(u"x"));
  EXPECT_TRUE(s.IsEmpty());
  EXPECT_TRUE(Requests().empty());
  s = W(u"old");
  Mark();
  s.Format(W(u"%*d"), INT_MAX, 1);
  EXPECT_TRUE(s.IsEmpty());
  EXPECT_TRUE(Requests().empty());
  s = W(u"old");
  Mark();
  s.Format(W(u"%99999999999999d"), 1);
  EXPECT_TRUE(s.IsEmpty());
  EXPECT_TRUE(Requests().empty());
  // The estimate counts one for a character; the engine reports the full width.
  s = W(u"old");
  Mark();
  s.Format(W(u"%2000000000c"), u'x');
  EXPECT_TRUE(s.IsEmpty());
  EXPECT_EQ(Requests(), Sizes{Block(1)});
  // Many large items together.
  s = W(u"old");
  s.Format(W(u"%9000000s%9000000s"), W(u"a"), W(u"b"));
  EXPECT_TRUE(s.IsEmpty());
}

TEST_F(EditTest, FormatUpToTheLimitIsKept) {
  TBstr s;
  s.Format(W(u"%*c"), TBstr::kMaxFormatLength, u'x');
  EXPECT_EQ(s.GetLength(), TBstr::kMaxFormatLength);
  EXPECT_EQ(s.GetAt(TBstr::kMaxFormatLength - 1), u'x');
  s.Format(W(u"%*c"), TBstr::kMaxFormatLength + 1, u'x');
  EXPECT_TRUE(s.IsEmpty());
}

// The estimate reads "%**d" as two star widths and an int conversion, while
// the engine takes one width and prints "*d" as text: a huge second argument
// must not make the estimate refuse a short output.
TEST_F(EditTest, FormatKeepsAShortTextWhoseEstimateExceedsTheLimit) {
  TBstr s(W(u"old"));
  s.Format(W(u"%**d|"), 3, 0x7FFFFFFF, 0);
  EXPECT_EQ(Text(s), u"*d|");
  // Found by fuzzing: the estimate reads "+" after a star width as a flag and
  // counts the large width for "p"; the engine prints "+p" as text.
  s = W(u"old");
  s.Format(W(u"%*+p\x05%**`\xFF\x7F"), 0x7F000000, static_cast<int>(0xAA002500u));
  EXPECT_EQ(Text(s), u"+p\x05*`\xFF\x7F");
}

TEST_F(EditTest, FormatArgumentsAndFormatMayComeFromTheStringItself) {
  TBstr s(W(u"abc"));
  s.Format(W(u"<%s>"), s.GetString());
  EXPECT_EQ(Text(s), u"<abc>");
  s.Format(W(u"%s%s"), s.GetString(), s.GetString());
  EXPECT_EQ(Text(s), u"<abc><abc>");
  TBstr f(W(u"50%% of %d"));
  f.Format(f.GetString(), 8);
  EXPECT_EQ(Text(f), u"50% of 8");
  TBstr same(W(u"xyz"));  // output as long as the old text
  same.Format(W(u"%s"), same.GetString());
  EXPECT_EQ(Text(same), u"xyz");
}

void FormatTwice(TBstr& first, TBstr& second, const unsigned short* format, ...) {
  va_list args;
  va_start(args, format);
  first.FormatV(format, args);
  second.FormatV(format, args);  // FormatV works on copies of the list
  va_end(args);
}

TEST_F(EditTest, FormatVLeavesTheArgumentListUnconsumed) {
  TBstr a;
  TBstr b;
  FormatTwice(a, b, W(u"%d-%s-%c"), 12, W(u"mid"), u'z');
  EXPECT_EQ(Text(a), u"12-mid-z");
  EXPECT_EQ(Text(b), u"12-mid-z");
}

// Random formats, each reading either only ints or only 16-bit strings, so
// that one argument list suits all of them; the engine itself is the reference.
TEST_F(EditTest, FormatMatchesTheEngineOnRandomFormats) {
  std::mt19937 rng(2718);
  const char16_t* intPieces[] = {u"%d",  u"%5d", u"%-8x", u"%c",  u"%4c",  u"%%", u"%#o",
                                 u"%+i", u"ab",  u"%5f",  u"%*d", u" ",    u"%05u", u"%X",
                                 u"%hd", u"%Z",  u"%.*d", u"%-3c", u"%3%", u"%ly"};
  const char16_t* stringPieces[] = {u"%s", u"%10s", u"%.3s", u"%-7s", u"%%", u"text",
                                    u"%5f", u"%#s", u"%05s", u"%ls"};
  for (int round = 0; round < 1000; ++round) {
    const bool strings = rng() % 2 == 0;
    std::u16string format;
    const int items = 1 + static_cast<int>(rng() % 4);
    for (int i = 0; i < items; ++i) {
      format += strings ? stringPieces[rng() % 10] : intPieces[rng() % 20];
    }
    const unsigned short* f = W(format.c_str());
    TBstr s(W(u"previous"));
    unsigned short expected[512];
    int length;
    if (strings) {
      const unsigned short* a = W(u"alpha");
      const unsigned short* b = W(u"be");
      s.Format(f, a, b, a, b);
      length = snuprintf(expected, 512, f, a, b, a, b);
    } else {
      s.Format(f, 9, 2, 3, -45, 6789, 65, 7, 1);
      length = snuprintf(expected, 512, f, 9, 2, 3, -45, 6789, 65, 7, 1);
    }
    ASSERT_LT(length, 512);
    EXPECT_EQ(Text(s), ToU16(expected, static_cast<size_t>(length)))
        << std::string(format.begin(), format.end());
  }
}

TEST_F(EditTest, FormatFailureLeavesTheStringEmpty) {
  SweepAllocationFailures([&](FailurePoint& point) {
    TBstr s(W(u"old"));
    point.Arm();
    s.Format(W(u"%d apples"), 12);  // estimate, then shrink
    const bool failed = point.Disarm();
    EXPECT_EQ(Text(s), failed ? u"" : u"12 apples");
  });
  SweepAllocationFailures([&](FailurePoint& point) {
    TBstr s(W(u"old"));
    point.Arm();
    s.Format(W(u"%6c"), u'c');  // estimate short: formatted twice
    const bool failed = point.Disarm();
    EXPECT_EQ(Text(s), failed ? u"" : u"     c");
  });
  SweepAllocationFailures([&](FailurePoint& point) {
    TBstr s(W(u"old"));
    point.Arm();
    s.Format(W(u"<%s>"), s.GetString());
    const bool failed = point.Disarm();
    EXPECT_EQ(Text(s), failed ? u"" : u"<old>");
  });
}

// --- Allocation failures ---------------------------------------------------
// Each operation runs with its 1st, 2nd, ... allocation failing, alone and
// with every later one (AllocSweep.h), until it goes through; every run must
// give the documented out-of-memory result and leak nothing. The N each sweep
// reaches is printed ("[ SWEEP    ]").

class AllocSweepBstr : public BstrSweepTest {};

TEST_F(AllocSweepBstr, InsertDeleteAndReplaceEmptyTheStringAtEveryFailure) {
  SweepEdit("TBstr::Insert(ch)", u"abc", [](TBstr& s) {
    const int length = s.Insert(1, static_cast<unsigned short>(u'X'));
    EXPECT_EQ(length, s.GetLength());
  }, u"aXbc");
  SweepEdit("TBstr::Insert(text)", u"abc", [](TBstr& s) {
    const int length = s.Insert(3, W(u"def"));
    EXPECT_EQ(length, s.GetLength());
  }, u"abcdef");
  SweepEdit("TBstr::Insert(own text)", u"abc", [](TBstr& s) {
    const int length = s.Insert(1, s.GetString());
    EXPECT_EQ(length, s.GetLength());
  }, u"aabcbc");
  SweepEdit("TBstr::Delete", u"abcdef", [](TBstr& s) {
    const int length = s.Delete(1, 2);
    EXPECT_EQ(length, s.GetLength());
  }, u"adef");
  SweepEdit("TBstr::Replace(text, longer)", u"a.b.c", [](TBstr& s) {
    const int count = s.Replace(W(u"."), W(u"--"));
    if (s.IsEmpty()) {
      EXPECT_LE(count, 2);
    } else {
      EXPECT_EQ(count, 2);
    }
  }, u"a--b--c");
  SweepEdit("TBstr::Replace(text, shorter)", u"a..b..c", [](TBstr& s) {
    const int count = s.Replace(W(u".."), W(u"/"));
    EXPECT_LE(count, 2);
  }, u"a/b/c");
  SweepEdit("TBstr::Replace(text, removed)", u"xaxbx", [](TBstr& s) {
    EXPECT_LE(s.Replace(W(u"x"), nullptr), 3);
  }, u"ab");
}

TEST_F(AllocSweepBstr, InPlaceEditsEitherAllocateNothingOrEmptyTheString) {
  // These edits may shrink the buffer to the new length; whatever they do, a
  // failure may only leave the documented empty string.
  auto sweepInPlace = [&](const std::string& what, const std::u16string& initial, auto edit,
                          const std::u16string& expected) {
    SweepBothModes(what, [&](SweepRun& run) {
      TBstr s(U(initial));
      run.Arm();
      edit(s);
      if (run.Disarm()) {
        EXPECT_TRUE(s.IsEmpty()) << what << " n=" << run.n();
      } else {
        EXPECT_EQ(Text(s), expected) << what;
      }
    }, true);
  };
  sweepInPlace("TBstr::Remove", u"a-b-c", [](TBstr& s) { EXPECT_LE(s.Remove(u'-'), 2); }, u"abc");
  sweepInPlace("TBstr::TrimLeft", u"   abc", [](TBstr& s) { s.TrimLeft(); }, u"abc");
  sweepInPlace("TBstr::TrimRight", u"abc   ", [](TBstr& s) { s.TrimRight(); }, u"abc");
  sweepInPlace("TBstr::Normalize", u"A b C", [](TBstr& s) { s.Normalize(); }, u"abc");
  sweepInPlace("TBstr::MakeUpper", u"abc", [](TBstr& s) { s.MakeUpper(); }, u"ABC");
  sweepInPlace("TBstr::MakeReverse", u"abc", [](TBstr& s) { s.MakeReverse(); }, u"cba");
  sweepInPlace("TBstr::Replace(ch)", u"a.b", [](TBstr& s) { s.Replace(u'.', u'-'); }, u"a-b");
}

// FormatV through a variadic helper, so that its own argument list is swept.
void CallFormatV(TBstr& s, const unsigned short* format, ...) {
  va_list args;
  va_start(args, format);
  s.FormatV(format, args);
  va_end(args);
}

TEST_F(AllocSweepBstr, FormatEmptiesTheStringAtEveryFailure) {
  const std::u16string longText = LongText(u'a', 500);
  SweepEdit("TBstr::Format", u"old", [](TBstr& s) {
    s.Format(W(u"%s=%d"), W(u"answer"), 42);
  }, u"answer=42");
  SweepEdit("TBstr::Format(own text)", u"self", [](TBstr& s) {
    s.Format(W(u"<%s>"), s.GetString());
  }, u"<self>");
  SweepEdit("TBstr::Format(long)", u"old", [&](TBstr& s) {
    s.Format(W(u"%s|%s"), U(longText), U(longText));
  }, longText + u"|" + longText);
  SweepEdit("TBstr::FormatV", u"old", [](TBstr& s) {
    CallFormatV(s, W(u"%05d/%x"), 7, 255);
  }, u"00007/ff");
}

TEST_F(AllocSweepBstr, SubstringsAreEmptyAtEveryFailure) {
  SweepMake("TBstr::Mid(first, count)", u"0123456789", [](const TBstr& s) { return s.Mid(2, 3); },
            u"234");
  SweepMake("TBstr::Mid(first)", u"0123456789", [](const TBstr& s) { return s.Mid(7); }, u"789");
  SweepMake("TBstr::Left", u"0123456789", [](const TBstr& s) { return s.Left(4); }, u"0123");
  SweepMake("TBstr::Right", u"0123456789", [](const TBstr& s) { return s.Right(2); }, u"89");
  SweepMake("TBstr::GetBestEncoding", u"caf\u00E9", [](const TBstr& s) { return s.GetBestEncoding(); },
            u"iso-8859-1");
}

}  // namespace
