// One inventory of the public operations that allocate: each is run with its
// 1st, 2nd, ... allocation failing (see AllocSweep.h) until it goes through,
// and every run must give the documented out-of-memory result, leave its
// object consistent and leak nothing. The N each sweep reaches is printed.
#include <gtest/gtest.h>
#include <stdarg.h>
#include <string.h>

#include <memory>
#include <string>

#include "AllocSweep.h"
#include "Ovra.h"
#include "OvraBstr.h"
#include "TestAllocator.h"
#include "TestBstr.h"

namespace {

using ovra_test::FailMode;
using ovra_test::ScopedCountingLibrary;
using ovra_test::Stats;
using ovra_test::SweepBothModes;
using ovra_test::SweepRun;
using ovra_test::SweepUntilSuccess;
using ovra_test::Text;
using ovra_test::W;

// Starts the library with the counting allocator for every test and checks at
// the end that no block is left.
class SweepTest : public ::testing::Test {
 protected:
  void SetUp() override {
    m_library.reset(new ScopedCountingLibrary);
    ASSERT_TRUE(m_library->started());
  }
  void TearDown() override {
    ovra_test::StopFailing();
    EXPECT_EQ(Stats().live.load(), 0) << "blocks left at the end of the test";
    m_library.reset();
  }

 private:
  std::unique_ptr<ScopedCountingLibrary> m_library;
};

// A text longer than TBstr's 128-character stack work areas.
std::u16string LongText(char16_t first, size_t length) {
  std::u16string s;
  for (size_t i = 0; i < length; ++i) s.push_back(static_cast<char16_t>(first + i % 26));
  return s;
}

const unsigned short* U(const std::u16string& s) { return W(s.c_str()); }

// ===========================================================================
// Strings
// ===========================================================================

class AllocSweepBstr : public SweepTest {
 protected:
  // Sweeps an edit of a string that starts as `initial`: while an allocation
  // fails the string must be empty (and usable), otherwise equal `expected`.
  template <class Edit>
  long SweepEdit(const std::string& what, const std::u16string& initial, Edit edit,
                 const std::u16string& expected) {
    return SweepBothModes(what, [&](SweepRun& run) {
      TBstr s(U(initial));
      ASSERT_EQ(Text(s), initial);
      run.Arm();
      edit(s);
      if (run.Disarm()) {
        EXPECT_TRUE(s.IsEmpty()) << what << " n=" << run.n();
        EXPECT_EQ(s.GetLength(), 0);
        EXPECT_EQ(s.GetString()[0], 0);
        EXPECT_STREQ(s.GetMultibyteString(), "");
      } else {
        EXPECT_EQ(Text(s), expected) << what;
      }
    });
  }

  // Sweeps an operation producing a new string from `source`: a failure gives
  // the empty string and leaves the source alone.
  template <class Make>
  long SweepMake(const std::string& what, const std::u16string& source, Make make,
                 const std::u16string& expected) {
    return SweepBothModes(what, [&](SweepRun& run) {
      TBstr s(U(source));
      run.Arm();
      TBstr result = make(s);
      const bool failed = run.Disarm();
      EXPECT_EQ(Text(s), source) << what;
      if (failed) {
        EXPECT_TRUE(result.IsEmpty()) << what << " n=" << run.n();
      } else {
        EXPECT_EQ(Text(result), expected) << what;
      }
    });
  }
};

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

TEST_F(AllocSweepBstr, TextConversionsReportFailureAsDocumented) {
  SweepBothModes("OvraQelToIsoEncoding", [](SweepRun& run) {
    TBstr name(W(u"before"));
    run.Arm();
    const bool ok = OvraQelToIsoEncoding(13, name);
    if (run.Disarm()) {
      EXPECT_FALSE(ok);
      EXPECT_TRUE(name.IsEmpty());
    } else {
      EXPECT_TRUE(ok);
      EXPECT_EQ(Text(name), u"utf-8");
    }
  });
  SweepBothModes("OvraQelToIsoEncoding(unknown)", [](SweepRun& run) {
    TBstr name;
    run.Arm();
    EXPECT_FALSE(OvraQelToIsoEncoding(7, name));
    EXPECT_EQ(Text(name), run.Disarm() ? u"" : u"?");
  });
  SweepBothModes("OvraQelToIsoLang", [](SweepRun& run) {
    TBstr tag(W(u"before"));
    run.Arm();
    const bool ok = OvraQelToIsoLang(19, tag);
    if (run.Disarm()) {
      EXPECT_FALSE(ok);
      EXPECT_TRUE(tag.IsEmpty());
    } else {
      EXPECT_TRUE(ok);
      EXPECT_EQ(Text(tag), u"zh-tw");
    }
  });
}

TEST_F(AllocSweepBstr, HtmlAndEntityConversionsEmptyOrKeepTheirOutputAsDocumented) {
  const std::u16string longPlain = LongText(u'a', 150) + u"<&>\"" + LongText(u'k', 10);
  const std::u16string longEscaped =
      LongText(u'a', 150) + u"&lt;&amp;&gt;&quot;" + LongText(u'k', 10);
  // Escaping: out is empty after a failure.
  auto sweepEmptying = [&](const std::string& what, auto convert, const std::u16string& input,
                           const std::u16string& expected, bool inPlace) {
    SweepBothModes(what, [&](SweepRun& run) {
      TBstr out(W(u"previous"));
      TBstr in(U(input));
      if (inPlace) out = in;
      run.Arm();
      convert(inPlace ? out.GetString() : in.GetString(), out);
      if (run.Disarm()) {
        EXPECT_TRUE(out.IsEmpty()) << what << " n=" << run.n();
      } else {
        EXPECT_EQ(Text(out), expected) << what;
      }
    });
  };
  sweepEmptying("OvraEntityEscape", OvraEntityEscape, u"a<b>&\"c\"", u"a&lt;b&gt;&amp;&quot;c&quot;",
                false);
  sweepEmptying("OvraEntityEscape(in place, long)", OvraEntityEscape, longPlain, longEscaped, true);
  sweepEmptying("OvraPlainToHtml", OvraPlainToHtml, u"a<b\r\nc",
                u"<HTML><BODY>a&lt;b<BR>c</BODY></HTML>", false);
  sweepEmptying("OvraPlainToHtml(in place)", OvraPlainToHtml, u"x&y", u"<HTML><BODY>x&amp;y</BODY></HTML>",
                true);
  // Unescaping: out is left unchanged after a failure.
  auto sweepKeeping = [&](const std::string& what, auto convert, const std::u16string& input,
                          const std::u16string& expected, bool inPlace) {
    SweepBothModes(what, [&](SweepRun& run) {
      TBstr out(W(u"previous"));
      TBstr in(U(input));
      if (inPlace) out = in;
      const std::u16string before = Text(out);
      run.Arm();
      convert(inPlace ? out.GetString() : in.GetString(), out);
      if (run.Disarm()) {
        EXPECT_EQ(Text(out), before) << what << " n=" << run.n();
      } else {
        EXPECT_EQ(Text(out), expected) << what;
      }
    });
  };
  sweepKeeping("OvraEntityUnescape", OvraEntityUnescape, u"a&lt;b&amp;c", u"a<b&c", false);
  sweepKeeping("OvraEntityUnescape(in place, long)", OvraEntityUnescape, longEscaped, longPlain, true);
  sweepKeeping("OvraHtmlToPlain", OvraHtmlToPlain, u"<p>a<BR>b&gt;</p>", u"a\r\nb>", false);
  sweepKeeping("OvraHtmlToPlain(in place, long)", OvraHtmlToPlain, u"<b>" + longEscaped + u"</b>",
               longPlain, true);
}

}  // namespace
