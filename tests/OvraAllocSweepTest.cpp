// One inventory of the public operations that allocate: each is run with its
// 1st, 2nd, ... allocation failing (see AllocSweep.h) until it goes through,
// and every run must give the documented out-of-memory result, leave its
// object consistent and leak nothing. The N each sweep reaches is printed.
#include <gtest/gtest.h>
#include <stdarg.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "AllocSweep.h"
#include "Ovra.h"
#include "OvraBstr.h"
#include "OvraCollect.h"
#include "OvraCrypt.h"
#include "OvraCryptDes.h"
#include "OvraCryptDigest.h"
#include "OvraCryptHmac.h"
#include "OvraCryptRcX.h"
#include "OvraCryptRsa.h"
#include "OvraFile.h"
#include "OvraFileFinder.h"
#include "OvraInet.h"
#include "OvraLibrary.h"
#include "OvraMessage.h"
#include "OvraRand.h"
#include "OvraSystem.h"
#include "OvraThread.h"
#include "TestAllocator.h"
#include "TestBstr.h"
#include "TestFiles.h"
#include "TestPlugins.h"
#include "TestRsaKeys.h"

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

// ===========================================================================
// Collections
// ===========================================================================

void* P(intptr_t v) { return reinterpret_cast<void*>(v); }

// Everything observable of an array: elements, size, capacity and step.
struct ArrayState {
  std::vector<void*> elements;
  int maxSize;
  int growBy;
  bool operator==(const ArrayState& o) const {
    return elements == o.elements && maxSize == o.maxSize && growBy == o.growBy;
  }
};

ArrayState StateOf(const TPtrArray& a) {
  ArrayState state{{}, a.GetMaxSize(), a.GetGrowBy()};
  for (int i = 0; i < a.GetSize(); ++i) state.elements.push_back(a.GetAt(i));
  return state;
}

std::vector<void*> Elements(const TPtrList& list) {
  std::vector<void*> out;
  for (POSITION pos = list.GetHeadPosition(); pos;) out.push_back(list.GetNext(pos));
  return out;
}

// Every element, walked backwards too, so that a half-linked node shows.
std::vector<void*> ElementsBackwards(const TPtrList& list) {
  std::vector<void*> out;
  for (POSITION pos = list.GetTailPosition(); pos;) out.insert(out.begin(), list.GetPrev(pos));
  return out;
}

std::map<void*, void*> Contents(const TPtrFromPtrMap& map) {
  std::map<void*, void*> out;
  POSITION pos = map.GetStartPosition();
  while (pos) {
    void* key = nullptr;
    void* value = nullptr;
    map.GetNextAssoc(pos, key, value);
    out[key] = value;
  }
  return out;
}

std::map<std::u16string, void*> Contents(const TPtrFromBstrMap& map) {
  std::map<std::u16string, void*> out;
  POSITION pos = map.GetStartPosition();
  while (pos) {
    TBstr key;
    void* value = nullptr;
    map.GetNextAssoc(pos, key, value);
    out[Text(key)] = value;
  }
  return out;
}

// The 16 bytes of an identifier, as an ordered key for comparisons.
std::string GuidBytes(const _GUID& g) { return std::string(reinterpret_cast<const char*>(&g), sizeof g); }

std::map<std::string, void*> Contents(const TPtrFromGuidMap& map) {
  std::map<std::string, void*> out;
  POSITION pos = map.GetStartPosition();
  while (pos) {
    _GUID key{};
    void* value = nullptr;
    map.GetNextAssoc(pos, key, value);
    out[GuidBytes(key)] = value;
  }
  return out;
}

_GUID Guid(uint32_t first, unsigned char last) {
  _GUID g{};
  g.Data1 = first;
  g.Data4[7] = last;
  return g;
}

class AllocSweepCollect : public SweepTest {
 protected:
  // Sweeps an array operation on a fresh array made by prepare: while an
  // allocation fails the array must be exactly as before, otherwise equal
  // expected (elements, and the capacity when expectedMax is not -1).
  template <class Prepare, class Operation>
  long SweepArray(const std::string& what, Prepare prepare, Operation operation,
                  const std::vector<void*>& expected, int expectedMax = -1) {
    return SweepBothModes(what, [&](SweepRun& run) {
      TPtrArray a;
      prepare(a);
      const ArrayState before = StateOf(a);
      run.Arm();
      operation(a, run);
      if (run.Disarm()) {
        EXPECT_TRUE(StateOf(a) == before) << what << " changed the array at n=" << run.n();
      } else {
        EXPECT_EQ(StateOf(a).elements, expected) << what;
        if (expectedMax != -1) {
          EXPECT_EQ(a.GetMaxSize(), expectedMax) << what;
        }
      }
    });
  }

  // Sweeps a list operation: unchanged list on failure, expected otherwise.
  template <class Prepare, class Operation>
  long SweepList(const std::string& what, Prepare prepare, Operation operation,
                 const std::vector<void*>& expected) {
    return SweepBothModes(what, [&](SweepRun& run) {
      TPtrList list(2);
      prepare(list);
      const std::vector<void*> before = Elements(list);
      run.Arm();
      operation(list, run);
      const bool failed = run.Disarm();
      EXPECT_EQ(Elements(list), ElementsBackwards(list)) << what;
      EXPECT_EQ(list.GetCount(), static_cast<int>(Elements(list).size())) << what;
      EXPECT_EQ(Elements(list), failed ? before : expected) << what << " n=" << run.n();
      // The list still works: a node can be added and removed again.
      if (list.AddTail(P(99))) list.RemoveTail();
    });
  }
};

TEST_F(AllocSweepCollect, ArrayGrowingOperationsLeaveTheArrayUnchangedAtEveryFailure) {
  auto three = [](TPtrArray& a) {
    a.SetSize(3, 0);
    a.SetAt(0, P(1));
    a.SetAt(1, P(2));
    a.SetAt(2, P(3));
    a.FreeExtra();
  };
  SweepArray("TPtrArray::Add(empty)", [](TPtrArray&) {}, [](TPtrArray& a, SweepRun&) {
    const int index = a.Add(P(7));
    EXPECT_EQ(index, a.GetSize() == 0 ? -1 : 0);
  }, {P(7)});
  SweepArray("TPtrArray::Add(full)", three, [](TPtrArray& a, SweepRun&) {
    const int index = a.Add(P(4));
    EXPECT_EQ(index == -1, a.GetSize() == 3);
  }, {P(1), P(2), P(3), P(4)});
  SweepArray("TPtrArray::SetSize", three, [](TPtrArray& a, SweepRun&) { a.SetSize(6, 5); },
             {P(1), P(2), P(3), nullptr, nullptr, nullptr});
  SweepArray("TPtrArray::SetAtGrow", three, [](TPtrArray& a, SweepRun&) { a.SetAtGrow(5, P(6)); },
             {P(1), P(2), P(3), nullptr, nullptr, P(6)});
  SweepArray("TPtrArray::InsertAt(element)", three,
             [](TPtrArray& a, SweepRun&) { a.InsertAt(1, P(9), 2); },
             {P(1), P(9), P(9), P(2), P(3)});
  SweepArray("TPtrArray::InsertAt(itself)", three,
             [](TPtrArray& a, SweepRun&) { a.InsertAt(1, &a); },
             {P(1), P(1), P(2), P(3), P(2), P(3)});
  SweepArray("TPtrArray::FreeExtra", [](TPtrArray& a) {
    a.SetSize(10, 0);
    a.SetSize(2);
    a.SetAt(0, P(1));
    a.SetAt(1, P(2));
  }, [](TPtrArray& a, SweepRun&) { a.FreeExtra(); }, {P(1), P(2)}, 2);
  TPtrArray source;
  source.Add(P(5));
  source.Add(P(6));
  SweepArray("TPtrArray::Append", three, [&](TPtrArray& a, SweepRun&) {
    const int first = a.Append(source);
    EXPECT_EQ(first, a.GetSize() == 3 ? -1 : 3);
  }, {P(1), P(2), P(3), P(5), P(6)});
  SweepArray("TPtrArray::InsertAt(other array)", three,
             [&](TPtrArray& a, SweepRun&) { a.InsertAt(0, &source); },
             {P(5), P(6), P(1), P(2), P(3)});
  SweepArray("TPtrArray::Copy", [](TPtrArray& a) { a.Add(P(1)); },
             [&](TPtrArray& a, SweepRun&) { a.Copy(source); }, {P(5), P(6)});
}

TEST_F(AllocSweepCollect, ListInsertionsLeaveTheListUnchangedAtEveryFailure) {
  // Pools of two nodes, kept full, so that every insertion needs a new block.
  auto two = [](TPtrList& list) {
    list.AddTail(P(1));
    list.AddTail(P(2));
  };
  SweepList("TPtrList::AddHead(empty)", [](TPtrList&) {}, [](TPtrList& list, SweepRun&) {
    const POSITION pos = list.AddHead(P(7));
    EXPECT_EQ(pos == nullptr, list.IsEmpty());
  }, {P(7)});
  SweepList("TPtrList::AddHead", two, [](TPtrList& list, SweepRun&) {
    const POSITION pos = list.AddHead(P(0));
    if (pos) {
      EXPECT_EQ(list.GetAt(pos), P(0));
    }
  }, {P(0), P(1), P(2)});
  SweepList("TPtrList::AddTail", two, [](TPtrList& list, SweepRun&) {
    const POSITION pos = list.AddTail(P(3));
    if (pos) {
      EXPECT_EQ(list.GetAt(pos), P(3));
    }
  }, {P(1), P(2), P(3)});
  SweepList("TPtrList::InsertBefore", two, [](TPtrList& list, SweepRun&) {
    const POSITION pos = list.InsertBefore(list.GetTailPosition(), P(5));
    if (pos) {
      EXPECT_EQ(list.GetAt(pos), P(5));
    }
  }, {P(1), P(5), P(2)});
  SweepList("TPtrList::InsertAfter", two, [](TPtrList& list, SweepRun&) {
    const POSITION pos = list.InsertAfter(list.GetHeadPosition(), P(5));
    if (pos) {
      EXPECT_EQ(list.GetAt(pos), P(5));
    }
  }, {P(1), P(5), P(2)});
  TPtrList other;
  for (intptr_t v = 10; v < 15; ++v) other.AddTail(P(v));
  SweepList("TPtrList::AddTail(list)", two,
            [&](TPtrList& list, SweepRun&) { list.AddTail(other); },
            {P(1), P(2), P(10), P(11), P(12), P(13), P(14)});
  SweepList("TPtrList::AddHead(list)", two,
            [&](TPtrList& list, SweepRun&) { list.AddHead(other); },
            {P(10), P(11), P(12), P(13), P(14), P(1), P(2)});
  SweepList("TPtrList::AddTail(itself)", two,
            [](TPtrList& list, SweepRun&) { list.AddTail(list); }, {P(1), P(2), P(1), P(2)});
  SweepList("TPtrList::AddHead(itself)", two,
            [](TPtrList& list, SweepRun&) { list.AddHead(list); }, {P(1), P(2), P(1), P(2)});
}

TEST_F(AllocSweepCollect, PlexCreateLeavesTheChainUnchangedWhenItFails) {
  SweepBothModes("SPlex::Create", [](SweepRun& run) {
    SPlex* head = nullptr;
    SPlex* first = SPlex::Create(head, 4, 16);
    ASSERT_NE(first, nullptr);
    run.Arm();
    SPlex* second = SPlex::Create(head, 4, 16);
    if (run.Disarm()) {
      EXPECT_EQ(second, nullptr);
      EXPECT_EQ(head, first);
    } else {
      EXPECT_EQ(head, second);
      EXPECT_EQ(second->pNext, first);
    }
    SPlex::FreeChain(head);
  });
}

// The maps share one shape of sweep: insert a new key into a map made by
// prepare, by SetAt or by operator[]; on failure the map must hold exactly
// what it held, and the scratch slot operator[] returns must be writable.
// contentsKey turns a key into the key type of contents' result.
template <class Map, class Key, class Contents, class ContentsKey>
void SweepMapInsertions(const std::string& name, int blockSize, std::vector<Key> existing,
                        Key added, Contents contents, ContentsKey contentsKey) {
  for (size_t count : {size_t(0), existing.size()}) {
    const std::string what = name + (count ? "(full pool)" : "(empty)");
    auto prepare = [&](Map& map) {
      for (size_t i = 0; i < count; ++i) ASSERT_TRUE(map.SetAt(existing[i], P(100 + i)));
    };
    SweepBothModes(name + "::SetAt" + what.substr(name.size()), [&](SweepRun& run) {
      Map map(blockSize);
      prepare(map);
      const auto before = contents(map);
      run.Arm();
      const bool ok = map.SetAt(added, P(7));
      const bool failed = run.Disarm();
      EXPECT_EQ(ok, !failed) << what;
      auto expected = before;
      if (!failed) expected[contentsKey(added)] = P(7);
      EXPECT_EQ(contents(map), expected) << what << " n=" << run.n();
      EXPECT_EQ(map.GetCount(), static_cast<int>(expected.size()));
      void* value = nullptr;
      EXPECT_EQ(map.Lookup(added, value), !failed);
    });
    SweepBothModes(name + "::operator[]" + what.substr(name.size()), [&](SweepRun& run) {
      Map map(blockSize);
      prepare(map);
      const auto before = contents(map);
      run.Arm();
      void*& slot = map[added];
      const bool failed = run.Disarm();
      if (!failed) {
        EXPECT_EQ(slot, nullptr);
      }
      slot = P(8);  // lost when it is the scratch slot
      auto expected = before;
      if (!failed) expected[contentsKey(added)] = P(8);
      EXPECT_EQ(contents(map), expected) << what << " n=" << run.n();
    });
  }
  // Rehashing a non-empty map into a new bucket array.
  SweepBothModes(name + "::InitHashTable(non-empty)", [&](SweepRun& run) {
    Map map(blockSize);
    for (const Key& key : existing) ASSERT_TRUE(map.SetAt(key, P(1)));
    const auto before = contents(map);
    const unsigned int size = map.GetHashTableSize();
    run.Arm();
    map.InitHashTable(31);
    const bool failed = run.Disarm();
    EXPECT_EQ(map.GetHashTableSize(), failed ? size : 31u);
    EXPECT_EQ(contents(map), before);
    for (const Key& key : existing) {
      void* value = nullptr;
      EXPECT_TRUE(map.Lookup(key, value));
    }
  });
}

TEST_F(AllocSweepCollect, MapInsertionsLeaveTheMapUnchangedAtEveryFailure) {
  SweepMapInsertions<TPtrFromPtrMap>("TPtrFromPtrMap", 2, std::vector<void*>{P(16), P(32)}, P(48),
                                     [](const TPtrFromPtrMap& map) { return Contents(map); },
                                     [](void* k) { return k; });
  SweepMapInsertions<TPtrFromGuidMap>("TPtrFromGuidMap", 2,
                                      std::vector<_GUID>{Guid(1, 1), Guid(1, 2)}, Guid(18, 3),
                                      [](const TPtrFromGuidMap& map) { return Contents(map); },
                                      GuidBytes);
  // String keys: the pool block, the bucket array and the key's copy.
  const std::u16string a = u"alpha", b = u"beta", c = u"gamma";
  SweepMapInsertions<TPtrFromBstrMap>(
      "TPtrFromBstrMap", 2, std::vector<const unsigned short*>{U(a), U(b)}, U(c),
      [](const TPtrFromBstrMap& map) { return Contents(map); },
      [](const unsigned short* key) { return ovra_test::ToU16(key); });
}

TEST_F(AllocSweepCollect, BstrMapIterationLeavesAKeyEmptyWhenItsCopyFails) {
  SweepBothModes("TPtrFromBstrMap::GetNextAssoc", [](SweepRun& run) {
    TPtrFromBstrMap map;
    ASSERT_TRUE(map.SetAt(W(u"only key"), P(5)));
    TBstr key(W(u"longer previous key"));  // no buffer to reuse
    void* value = nullptr;
    POSITION pos = map.GetStartPosition();
    run.Arm();
    map.GetNextAssoc(pos, key, value);
    const bool failed = run.Disarm();
    EXPECT_EQ(pos, nullptr);
    EXPECT_EQ(value, P(5));
    EXPECT_EQ(Text(key), failed ? u"" : u"only key");
  });
}

TEST_F(AllocSweepCollect, FifoWriteChangesNothingWhenGrowingFails) {
  SweepBothModes("TFifoBuffer::Write", [](SweepRun& run) {
    TFifoBuffer fifo;
    const unsigned char first[] = {1, 2, 3};
    ASSERT_EQ(fifo.Write(first, 3), 3);
    const int capacity = fifo.GetCapacity();
    const unsigned char more[] = {4, 5, 6, 7};
    run.Arm();
    const int written = fifo.Write(more, 4);
    const bool failed = run.Disarm();
    EXPECT_EQ(written, failed ? 0 : 4);
    EXPECT_EQ(fifo.GetLength(), failed ? 3 : 7);
    if (failed) {
      EXPECT_EQ(fifo.GetCapacity(), capacity);
    }
    unsigned char out[8] = {};
    const int read = fifo.Read(out, 8);
    ASSERT_EQ(read, failed ? 3 : 7);
    for (int i = 0; i < read; ++i) EXPECT_EQ(out[i], i + 1);
  });
}

// ===========================================================================
// Thread-local data, messages and threads
// ===========================================================================

class AllocSweepThread : public SweepTest {};

bool AllZero(const void* block, size_t size) {
  const unsigned char* bytes = static_cast<const unsigned char*>(block);
  for (size_t i = 0; i < size; ++i) {
    if (bytes[i]) return false;
  }
  return true;
}

// Adds blocks under many keys, so that the thread's table grows too; every
// call either gives a zero-filled block found under its key or null with
// nothing stored. The nested start-up around it frees the table and blocks.
void SweepThreadLocalData(const std::string& what,
                          void* (*add)(void* key, unsigned int size)) {
  SweepBothModes(what, [&](SweepRun& run) {
    ASSERT_TRUE(OvraInitialize(nullptr));
    const intptr_t keys = 40;
    std::vector<void*> blocks;
    run.Arm();
    for (intptr_t k = 1; k <= keys; ++k) blocks.push_back(add(P(k), static_cast<unsigned>(8 * k)));
    const bool failed = run.Disarm();
    int missing = 0;
    for (intptr_t k = 1; k <= keys; ++k) {
      void* block = blocks[static_cast<size_t>(k - 1)];
      EXPECT_EQ(OvraTlsGetData(P(k)), block) << what << " key " << k << " n=" << run.n();
      if (block) {
        EXPECT_TRUE(AllZero(block, static_cast<size_t>(8 * k)));
      } else {
        ++missing;
      }
    }
    EXPECT_EQ(missing > 0, failed) << what << " n=" << run.n();
    OvraUninitialize();
  });
}

TEST_F(AllocSweepThread, ThreadLocalBlocksAreNullAndUnstoredWhenTheirAllocationFails) {
  SweepThreadLocalData("OvraTlsAddData x40", OvraTlsAddData);
  SweepThreadLocalData("OvraTlsGetAddData x40", OvraTlsGetAddData);
}

void RecordCall(unsigned int, void*, void*) {}

TEST_F(AllocSweepThread, CallbackRegistrationFailsWithoutAnEntryWhenMemoryRunsOut) {
  SweepBothModes("OvraRegisterMessageCallback x20", [](SweepRun& run) {
    std::vector<unsigned int> ids;
    for (int i = 0; i < 20; ++i) ids.push_back(OvraRequestMessageId());
    std::vector<bool> registered;
    run.Arm();
    for (unsigned int id : ids) registered.push_back(OvraRegisterMessageCallback(id, RecordCall));
    const bool failed = run.Disarm();
    int refused = 0;
    for (size_t i = 0; i < ids.size(); ++i) {
      EXPECT_EQ(OvraLookupMessageCallback(ids[i]), registered[i] ? &RecordCall : nullptr);
      if (!registered[i]) ++refused;
    }
    EXPECT_EQ(refused > 0, failed) << "n=" << run.n();
    for (unsigned int id : ids) OvraUnregisterMessageCallback(id);
  });
}

TEST_F(AllocSweepThread, PostingFailsWithoutQueueingWhenMemoryRunsOut) {
  // The queue holds some records of its own and allocates more in chunks:
  // 300 posts outgrow the first and need several. A drained queue may keep
  // chunks for the next burst until shut down, so every run starts and ends
  // with a fresh queue (a full restart with the counting allocator).
  SweepBothModes("OvraPostMessage x300 + OvraPostQuitMessage", [](SweepRun& run) {
    SAllocator counting = ovra_test::CountingAllocator();
    OvraUninitialize();
    ASSERT_TRUE(OvraInitialize(&counting));
    const unsigned int id = OvraRequestMessageId();
    std::vector<intptr_t> posted;
    run.Arm();
    for (intptr_t i = 1; i <= 300; ++i) {
      if (OvraPostMessage(id, P(i), P(-i))) posted.push_back(i);
    }
    const bool quitPosted = OvraPostQuitMessage(P(77));
    const bool failed = run.Disarm();
    EXPECT_EQ(posted.size() < 300 || !quitPosted, failed) << "n=" << run.n();
    // Exactly the accepted messages come out, whole and in order.
    unsigned int got = 0;
    void* p1 = nullptr;
    void* p2 = nullptr;
    for (intptr_t i : posted) {
      ASSERT_TRUE(OvraGetMessage(&got, &p1, &p2));
      EXPECT_EQ(got, id);
      EXPECT_EQ(p1, P(i));
      EXPECT_EQ(p2, P(-i));
    }
    if (quitPosted) {
      ASSERT_TRUE(OvraGetMessage(&got, &p1, &p2));
      EXPECT_EQ(got, kQuitMessageId);
      EXPECT_EQ(p1, P(77));
    }
    EXPECT_FALSE(OvraGetMessage(&got, &p1, &p2));
    OvraUninitialize();
    ASSERT_TRUE(OvraInitialize(&counting));
  });
}

int Return42(void*) { return 42; }

TEST_F(AllocSweepThread, ThreadCreationFailsCleanlyAndTheObjectStaysReusable) {
  SweepBothModes("TThread::Create", [](SweepRun& run) {
    TThread thread;
    run.Arm();
    const bool created = thread.Create(Return42, nullptr, false);
    const bool failed = run.Disarm();
    EXPECT_EQ(created, !failed) << "n=" << run.n();
    if (!created) {
      EXPECT_EQ(thread.GetHandle(), kInvalidHandleValue);
      EXPECT_FALSE(thread.WaitForExit(nullptr));
      ASSERT_TRUE(thread.Create(Return42, nullptr, false));  // reusable
    }
    int exitCode = 0;
    EXPECT_TRUE(thread.WaitForExit(&exitCode));
    EXPECT_EQ(exitCode, 42);
  });
  SweepBothModes("OvraCreateThread", [](SweepRun& run) {
    run.Arm();
    TThread* thread = OvraCreateThread(Return42, nullptr, false);
    const bool failed = run.Disarm();
    EXPECT_EQ(thread == nullptr, failed) << "n=" << run.n();
    if (thread) {
      int exitCode = 0;
      EXPECT_TRUE(thread->WaitForExit(&exitCode));
      EXPECT_EQ(exitCode, 42);
      delete thread;
    }
  });
}

// ===========================================================================
// Files, path text and the file finder
// ===========================================================================

using ovra_test::B;
using ovra_test::Exists;
using ovra_test::IsDirectory;
using ovra_test::Narrow;

// A fresh temporary folder (absolute path, not the current directory) that
// is removed with its contents after the test.
class AllocSweepFile : public SweepTest {
 protected:
  void SetUp() override {
    SweepTest::SetUp();
    char pattern[] = "/tmp/ovra-sweep-XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    m_folder = pattern;
  }
  void TearDown() override {
    if (!m_folder.empty()) ovra_test::RemoveTree(m_folder);
    SweepTest::TearDown();
  }
  std::string At(const std::string& name) const { return m_folder + "/" + name; }
  const std::string& Folder() const { return m_folder; }

 private:
  std::string m_folder;
};

TEST_F(AllocSweepFile, OpenFailsWithoutOpeningOrCreatingAnythingWhenMemoryRunsOut) {
  ASSERT_TRUE(ovra_test::WriteFile(At("existing"), "hello"));
  SweepBothModes("TFile::Open(existing, read-write)", [&](SweepRun& run) {
    const TBstr spec = B(At("existing"));
    TFile file;
    run.Arm();
    const bool opened = file.Open(spec, TFile::kOpenWrite, false);
    const bool failed = run.Disarm();
    EXPECT_EQ(opened, !failed) << "n=" << run.n();
    EXPECT_EQ(file.IsOpen(), opened);
    EXPECT_EQ(Narrow(file.GetFileSpec()), opened ? At("existing") : "");
    if (opened) {
      char text[8] = {};
      EXPECT_EQ(file.Read(text, 5), 5u);
      EXPECT_STREQ(text, "hello");
    }
    EXPECT_EQ(ovra_test::ReadFile(At("existing")), "hello");
  });
  SweepBothModes("TFile::Open(create)", [&](SweepRun& run) {
    const TBstr spec = B(At("created"));
    TFile file;
    run.Arm();
    const bool opened = file.Open(spec, TFile::kOpenWrite, true);
    const bool failed = run.Disarm();
    EXPECT_EQ(opened, !failed) << "n=" << run.n();
    EXPECT_EQ(file.IsOpen(), opened);
    EXPECT_EQ(Exists(At("created")), opened) << "n=" << run.n();
    if (opened) {
      EXPECT_EQ(file.Write("data", 4), 4u);
      EXPECT_TRUE(file.Close());
      EXPECT_EQ(ovra_test::ReadFile(At("created")), "data");
    }
    unlink(At("created").c_str());
  });
}

TEST_F(AllocSweepFile, OperationsOnNamesFailWithoutTouchingTheFileSystem) {
  ASSERT_TRUE(ovra_test::WriteFile(At("from"), "x"));
  SweepBothModes("TFile::Rename", [&](SweepRun& run) {
    const TBstr from = B(At("from")), to = B(At("to"));
    run.Arm();
    const bool renamed = TFile::Rename(from, to);
    const bool failed = run.Disarm();
    EXPECT_EQ(renamed, !failed);
    EXPECT_EQ(Exists(At("from")), !renamed);
    EXPECT_EQ(Exists(At("to")), renamed);
    if (renamed) {
      ASSERT_EQ(rename(At("to").c_str(), At("from").c_str()), 0);
    }
  });
  SweepBothModes("TFile::Remove", [&](SweepRun& run) {
    ASSERT_TRUE(ovra_test::WriteFile(At("victim"), "x"));
    const TBstr spec = B(At("victim"));
    run.Arm();
    const bool removed = TFile::Remove(spec);
    EXPECT_EQ(removed, !run.Disarm());
    EXPECT_EQ(Exists(At("victim")), !removed);
  });
  SweepBothModes("TFile::CreateDirectory", [&](SweepRun& run) {
    const TBstr spec = B(At("dir/"));
    run.Arm();
    const bool created = TFile::CreateDirectory(spec);
    EXPECT_EQ(created, !run.Disarm());
    EXPECT_EQ(IsDirectory(At("dir")), created);
    rmdir(At("dir").c_str());
  });
  SweepBothModes("TFile::RemoveDirectory", [&](SweepRun& run) {
    ASSERT_EQ(mkdir(At("gone").c_str(), 0700), 0);
    const TBstr spec = B(At("gone"));
    run.Arm();
    const bool removed = TFile::RemoveDirectory(spec);
    EXPECT_EQ(removed, !run.Disarm());
    EXPECT_EQ(Exists(At("gone")), !removed);
    rmdir(At("gone").c_str());
  });
  SweepBothModes("TFile::SetLastWriteTime", [&](SweepRun& run) {
    ASSERT_TRUE(ovra_test::WriteFile(At("stamped"), "x"));
    const TBstr spec = B(At("stamped"));
    run.Arm();
    const bool set = TFile::SetLastWriteTime(spec, 1000000000L);
    EXPECT_EQ(set, !run.Disarm());
    struct stat st;
    ASSERT_EQ(lstat(At("stamped").c_str(), &st), 0);
    EXPECT_EQ(st.st_mtime == 1000000000, set);
    unlink(At("stamped").c_str());
  });
  SweepBothModes("TFile::CreatePath", [&](SweepRun& run) {
    const TBstr spec = B(At("p/q/r"));
    run.Arm();
    const bool created = TFile::CreatePath(spec);
    const bool failed = run.Disarm();
    // One failing request may be absorbed by the retry one level up; only
    // a run where everything later fails too must report the failure.
    if (run.mode() == FailMode::kAllLater) {
      EXPECT_EQ(created, !failed) << "n=" << run.n();
    }
    EXPECT_EQ(IsDirectory(At("p/q/r")), created) << "n=" << run.n();
    ovra_test::RemoveTree(At("p"));
  });
}

TEST_F(AllocSweepFile, GetInfoFailsWithTheRecordUntouchedWhenMemoryRunsOut) {
  ASSERT_TRUE(ovra_test::WriteFile(At("info.txt"), "12345"));
  SweepBothModes("TFile::GetInfo", [&](SweepRun& run) {
    const TBstr spec = B(At("info.*"));
    TFileInfo info;
    info.name = B("untouched record");
    info.size = 77;
    run.Arm();
    const bool found = TFile::GetInfo(spec, info);
    EXPECT_EQ(found, !run.Disarm()) << "n=" << run.n();
    EXPECT_EQ(Narrow(info.name), found ? "info.txt" : "untouched record");
    EXPECT_EQ(info.size, found ? 5u : 77u);
  });
  SweepUntilSuccess("TFile::GetTempDirectory", [](SweepRun& run) {
    run.Arm();
    const TBstr temp = TFile::GetTempDirectory();
    EXPECT_EQ(Narrow(temp), run.Disarm() ? "" : "/tmp/");
  });
}

TEST_F(AllocSweepFile, PathTextUtilitiesGiveAnEmptyStringAtEveryFailure) {
  auto sweepPath = [](const std::string& what, auto utility, const std::string& argument,
                      const std::string& expected) {
    SweepBothModes(what, [&](SweepRun& run) {
      const TBstr spec = B(argument);
      run.Arm();
      const TBstr result = utility(spec);
      const bool failed = run.Disarm();
      EXPECT_EQ(Narrow(result), failed ? "" : expected) << what << " n=" << run.n();
      EXPECT_EQ(Narrow(spec), argument);
    });
  };
  sweepPath("TFile::AddTrailingSeparator", TFile::AddTrailingSeparator, "a/b", "a/b/");
  sweepPath("TFile::RemoveTrailingSeparator", TFile::RemoveTrailingSeparator, "a/b//", "a/b");
  sweepPath("TFile::DirSpecFromFullSpec", TFile::DirSpecFromFullSpec, "/a/b/c.txt", "/a/b/");
  sweepPath("TFile::FileNameFromFullSpec", TFile::FileNameFromFullSpec, "/a/b/c.txt", "c.txt");
  sweepPath("TFile::CanonicalizeSpec", TFile::CanonicalizeSpec, "/a/./b/../c/./d", "/a/c/d");
  SweepBothModes("TFile::AppendFileNameToSpec", [](SweepRun& run) {
    const TBstr dir = B("/a/b"), name = B("c.txt");
    run.Arm();
    const TBstr result = TFile::AppendFileNameToSpec(dir, name);
    EXPECT_EQ(Narrow(result), run.Disarm() ? "" : "/a/b/c.txt");
  });
}

// Every spec of the tree, as a recursive search for "*" must report them.
std::vector<std::string> TreeSpecs(const std::string& root) {
  return {root + "/a.txt",      root + "/d1",           root + "/d1/b.txt", root + "/d1/d2",
          root + "/d1/d2/c.txt", root + "/d1/d2/e.txt", root + "/d3",       root + "/d3/f.txt"};
}

TEST_F(AllocSweepFile, RecursiveFindReportsOnlyCorrectSpecsAtEveryFailure) {
  ASSERT_TRUE(ovra_test::WriteFile(At("a.txt"), "a"));
  ASSERT_EQ(mkdir(At("d1").c_str(), 0700), 0);
  ASSERT_TRUE(ovra_test::WriteFile(At("d1/b.txt"), "bb"));
  ASSERT_EQ(mkdir(At("d1/d2").c_str(), 0700), 0);
  ASSERT_TRUE(ovra_test::WriteFile(At("d1/d2/c.txt"), "ccc"));
  ASSERT_TRUE(ovra_test::WriteFile(At("d1/d2/e.txt"), "eeee"));
  ASSERT_EQ(mkdir(At("d3").c_str(), 0700), 0);
  ASSERT_TRUE(ovra_test::WriteFile(At("d3/f.txt"), "f"));
  // A directory whose name holds wildcards is entered through a quoted pattern.
  ASSERT_EQ(mkdir(At("d3/w[1]*").c_str(), 0700), 0);
  ASSERT_TRUE(ovra_test::WriteFile(At("d3/w[1]*/g.txt"), "g"));
  std::vector<std::string> all = TreeSpecs(Folder());
  all.push_back(At("d3/w[1]*"));
  all.push_back(At("d3/w[1]*/g.txt"));
  std::sort(all.begin(), all.end());
  const std::u16string pattern = ovra_test::Widen(Folder() + "/*");
  SweepBothModes("TFileFinder::Find + FindNext (recursive, 10 entries)", [&](SweepRun& run) {
    TFileFinder finder;
    std::vector<std::string> reported;  // GetFileSpec, empty when its copy failed
    std::vector<std::string> names;     // the record's own name (read without allocating)
    std::vector<bool> directories;
    run.Arm();
    for (bool more = finder.Find(U(pattern), true); more; more = finder.FindNext()) {
      const TBstr spec = finder.GetFileSpec();
      reported.push_back(Narrow(spec));
      names.push_back(Narrow(finder.name));
      directories.push_back(finder.isDirectory);
    }
    const bool failed = run.Disarm();
    std::vector<std::string> sorted = reported;
    std::sort(sorted.begin(), sorted.end());
    sorted.erase(std::remove(sorted.begin(), sorted.end(), std::string()), sorted.end());
    EXPECT_TRUE(std::adjacent_find(sorted.begin(), sorted.end()) == sorted.end())
        << "a spec was reported twice, n=" << run.n();
    for (size_t i = 0; i < reported.size(); ++i) {
      EXPECT_FALSE(names[i].empty()) << "n=" << run.n();
      // The spec may be lost itself (empty) but is never a wrong one.
      if (reported[i].empty()) continue;
      EXPECT_TRUE(std::binary_search(all.begin(), all.end(), reported[i]))
          << "wrong spec " << reported[i] << " n=" << run.n();
      EXPECT_EQ(reported[i].substr(reported[i].rfind('/') + 1), names[i]);
      EXPECT_EQ(IsDirectory(reported[i]), directories[i]) << reported[i];
      // Pre-order: a directory is reported before its contents (its own
      // spec may have been lost, but not its record).
      const std::string parent = reported[i].substr(0, reported[i].rfind('/'));
      if (parent == Folder()) continue;
      const std::string parentName = parent.substr(parent.rfind('/') + 1);
      bool seen = false;
      for (size_t j = 0; j < i; ++j) {
        seen = seen || reported[j] == parent ||
               (reported[j].empty() && names[j] == parentName && directories[j]);
      }
      EXPECT_TRUE(seen) << reported[i] << " before its directory, n=" << run.n();
    }
    if (!failed) {
      EXPECT_EQ(sorted, all);
    }
    // A closed finder is idle and can search again.
    finder.Close();
    EXPECT_TRUE(finder.name.IsEmpty());
    EXPECT_FALSE(finder.FindNext());
  });
}

// ===========================================================================
// Libraries, system information and addresses
// ===========================================================================

class AllocSweepLibrary : public SweepTest {
 protected:
  void SetUp() override {
    SweepTest::SetUp();
    ovra_test::PluginEvents().clear();
    ovra_test::FailingCloses() = 0;
    ASSERT_FALSE(ovra_test::PluginDir().empty()) << OVRA_TEST_PLUGIN_DIR;
  }
};

// How many events of the plugins end with suffix (":term") or hold it (":init:").
int CountEvents(const std::string& part) {
  int count = 0;
  for (const std::string& event : ovra_test::PluginEvents()) {
    if (event.find(part) != std::string::npos) ++count;
  }
  return count;
}

TEST_F(AllocSweepLibrary, LoadFailsWithNothingOpenAndEveryInitBalancedAtEveryFailure) {
  const std::string path = ovra_test::PluginPath(OVRA_TEST_PLUGIN_ACCEPT_NAME);
  SweepBothModes("TLibrary::Load + Free", [&](SweepRun& run) {
    ovra_test::PluginEvents().clear();
    const TBstr spec(path.c_str());
    TLibrary library;
    run.Arm();
    const bool loaded = library.Load(spec);
    const bool failed = run.Disarm();
    EXPECT_EQ(library.IsLoaded(), loaded);
    if (loaded) {
      EXPECT_EQ(Narrow(library.GetFileSpec()), path);
      EXPECT_EQ(CountEvents("accept:init:"), 1);
      EXPECT_TRUE(library.Free());
      EXPECT_EQ(CountEvents("accept:term"), 1);
    } else {
      EXPECT_TRUE(failed) << "Load failed without running out of memory";
      EXPECT_TRUE(library.GetFileSpec().IsEmpty()) << "n=" << run.n();
      EXPECT_FALSE(ovra_test::IsOpen(path)) << "n=" << run.n();
      // An init that ran was followed by its term.
      EXPECT_EQ(CountEvents("accept:init:"), CountEvents("accept:term")) << "n=" << run.n();
    }
    EXPECT_FALSE(ovra_test::IsOpen(path));
  });
  // The platform layer on its own.
  SweepBothModes("TLibrary::LibraryLoad", [&](SweepRun& run) {
    ovra_test::PluginEvents().clear();
    const TBstr spec(path.c_str());
    run.Arm();
    void* handle = TLibrary::LibraryLoad(spec);
    const bool failed = run.Disarm();
    if (handle != kInvalidHandleValue) {
      EXPECT_TRUE(TLibrary::LibraryFree(handle));
    } else {
      EXPECT_TRUE(failed);
      EXPECT_EQ(CountEvents("accept:init:"), CountEvents("accept:term")) << "n=" << run.n();
    }
    EXPECT_FALSE(ovra_test::IsOpen(path));
  });
}

TEST_F(AllocSweepLibrary, GetProcAddressIsNullWhenTheNameCannotBeCopied) {
  TLibrary library;
  ASSERT_TRUE(library.Load(TBstr(ovra_test::PluginPath(OVRA_TEST_PLUGIN_PLAIN_NAME).c_str())));
  SweepBothModes("TLibrary::GetProcAddress", [&](SweepRun& run) {
    const TBstr name("PluginPlainAnswer");
    run.Arm();
    const OvraProc proc = library.GetProcAddress(name);
    const bool failed = run.Disarm();
    EXPECT_EQ(proc == nullptr, failed);
    if (proc) {
      EXPECT_EQ(proc(), 42);
    }
  });
  EXPECT_TRUE(library.Free());
}

TEST_F(AllocSweepLibrary, SystemInfoLeavesTheNameEmptyWhenItCannotBeStored) {
  SSystemInfo expected;
  expected.revision = 0;
  OvraGetSystemInfo(&expected);
  ASSERT_FALSE(expected.osName.IsEmpty());
  SweepBothModes("OvraGetSystemInfo", [&](SweepRun& run) {
    SSystemInfo info;
    info.osName = TBstr(W(u"previous name, longer than any system's"));
    info.revision = 0;
    run.Arm();
    EXPECT_EQ(OvraGetSystemInfo(&info), 0u);
    const bool failed = run.Disarm();
    EXPECT_EQ(Text(info.osName), failed ? u"" : Text(expected.osName));
    EXPECT_EQ(info.majorVersion, expected.majorVersion);
    EXPECT_EQ(info.minorVersion, expected.minorVersion);
    EXPECT_EQ(info.revision, expected.revision);
  });
}

TEST_F(AllocSweepLibrary, AddressTextIsEmptyWhenItCannotBeFormatted) {
  SweepBothModes("OvraInetNtoA", [](SweepRun& run) {
    TBstr text(W(u"previous"));
    run.Arm();
    OvraInetNtoA(0xC0A80001u, text);
    EXPECT_EQ(Text(text), run.Disarm() ? u"" : u"192.168.0.1");
  });
  SweepBothModes("OvraInetNtoAEx", [](SweepRun& run) {
    TBstr text(W(u"previous"));
    run.Arm();
    OvraInetNtoAEx(0x7F000001u, 8080, text);
    EXPECT_EQ(Text(text), run.Disarm() ? u"" : u"127.0.0.1:8080");
  });
}

// ===========================================================================
// Ciphers, digests and encodings
// ===========================================================================

using ovra_test::Bytes;
using namespace ovra_test::rsa_keys;

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
  const Bytes n = FromHex(kN512);
  SweepBothModes("new TRsaPublicCipher(key)", [&](SweepRun& run) {
    run.Arm();
    TRsaPublicCipher* cipher = new TRsaPublicCipher(TCipher::eEncrypt, n.data(), 64, kE.data(), 3);
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

TEST_F(AllocSweepCrypt, RsaKeyLoadingLeavesNoKeyAtEveryFailure) {
  const Bytes n = FromHex(kN512);
  SweepBothModes("TRsaPublicCipher::Construct", [&](SweepRun& run) {
    TRsaPublicCipher cipher(TCipher::eEncrypt);
    run.Arm();
    const bool ok = cipher.Construct(n.data(), 64, kE.data(), 3);
    EXPECT_EQ(ok, !run.Disarm());
    EXPECT_EQ(cipher.GetModulusSize(), ok ? 64u : 0u);
    unsigned char buf[64] = {'x'};
    EXPECT_EQ(cipher.EncryptData(buf, 1, true) != 0, ok);
  });
  const Bytes blob = Spki(n, kE);
  SweepBothModes("TRsaPublicCipher::BerInit", [&](SweepRun& run) {
    TRsaPublicCipher cipher(TCipher::eDecrypt);
    // A key held before is replaced whatever the outcome.
    ASSERT_TRUE(cipher.Construct(n.data(), 32, kE.data(), 3));
    run.Arm();
    const unsigned accepted = cipher.BerInit(blob.data(), static_cast<unsigned>(blob.size()));
    const bool failed = run.Disarm();
    EXPECT_EQ(accepted, failed ? 0u : blob.size());
    EXPECT_EQ(cipher.GetModulusSize(), failed ? 0u : 64u);
  });
}

// Encrypts and recovers with one key: each call gives 0 with the buffer
// unchanged while an allocation fails, and its full result otherwise.
void SweepRsa(const std::string& bits, const char* modulusHex, const char* signedHex) {
  const Bytes n = FromHex(modulusHex);
  const unsigned k = static_cast<unsigned>(n.size());
  SweepBothModes("TRsaPublicCipher::EncryptData (" + bits + ")", [&](SweepRun& run) {
    TRsaPublicCipher cipher(TCipher::eEncrypt, n.data(), k, kE.data(), 3);
    ASSERT_EQ(cipher.GetModulusSize(), k);
    Bytes buf(k, 0);
    memcpy(buf.data(), "secret", 6);
    const Bytes before = buf;
    run.Arm();
    const unsigned written = cipher.EncryptData(buf.data(), 6, true);
    const bool failed = run.Disarm();
    EXPECT_EQ(written, failed ? 0u : k) << "n=" << run.n();
    if (failed) {
      EXPECT_EQ(buf, before);
    }
  });
  const Bytes signedBlock = FromHex(signedHex);
  SweepBothModes("TRsaPublicCipher::DecryptData (" + bits + ")", [&](SweepRun& run) {
    TRsaPublicCipher cipher(TCipher::eDecrypt, n.data(), k, kE.data(), 3);
    Bytes buf = signedBlock;
    run.Arm();
    const unsigned count = cipher.DecryptData(buf.data(), k, true);
    const bool failed = run.Disarm();
    if (failed) {
      EXPECT_EQ(count, 0u) << "n=" << run.n();
      EXPECT_EQ(buf, signedBlock);
    } else {
      ASSERT_EQ(count, strlen(kSignedMessage));
      EXPECT_EQ(memcmp(buf.data(), kSignedMessage, count), 0);
    }
  });
}

TEST_F(AllocSweepCrypt, RsaEncryptionAndRecoveryGiveZeroWithTheBufferUnchangedAtEveryFailure) {
  SweepRsa("512 bits", kN512, kSigned512);
  SweepRsa("2112 bits", kN2112, kSigned2112);
}

// ===========================================================================
// Big integers
// ===========================================================================

class AllocSweepBigInt : public SweepTest {};

// The value's big-endian bytes as TBigInt::Dump writes them (whole words).
Bytes DumpOf(const TBigInt& v) {
  Bytes out(4 * 64 + 4 * 8);
  out.resize(v.Dump(out.data(), static_cast<unsigned>(out.size())));
  return out;
}

// Hexadecimal text of the value, made without the library's allocator.
std::string HexOf(const TBigInt& v) {
  static const char kDigits[] = "0123456789ABCDEF";
  std::string out;
  for (unsigned char b : DumpOf(v)) {
    out.push_back(kDigits[b >> 4]);
    out.push_back(kDigits[b & 15]);
  }
  const size_t first = out.find_first_not_of('0');
  return first == std::string::npos ? "0" : out.substr(first);
}

// A value is consistent when its top word in use is not zero.
bool IsNormalised(const TBigInt& v) {
  const Bytes bytes = DumpOf(v);
  return bytes.size() < 4 || bytes[0] || bytes[1] || bytes[2] || bytes[3];
}

TBigInt Hex(const std::string& text) {
  return TBigInt(W(std::u16string(text.begin(), text.end()).c_str()));
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
  const Bytes bytes = FromHex(kB);
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
    EXPECT_EQ(Text(text), failed ? u"" : std::u16string(kA.begin(), kA.end()));
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

// ===========================================================================
// Start-up and the module's entry points
// ===========================================================================

// Uses the started library's services that start-up prepares: the message
// queue, thread-local data and the shared generator. Messages left in the
// queue before are taken out first.
void UseTheStartedLibrary() {
  const unsigned int id = OvraRequestMessageId();
  EXPECT_TRUE(OvraPostMessage(id, P(1), P(2)));
  unsigned int got = 0;
  void* p1 = nullptr;
  void* p2 = nullptr;
  while (OvraGetMessage(&got, &p1, &p2) && got != id) {
  }
  EXPECT_EQ(got, id);
  EXPECT_EQ(p1, P(1));
  void* block = OvraTlsAddData(P(7), 16);
  EXPECT_NE(block, nullptr);
  EXPECT_EQ(OvraTlsGetData(P(7)), block);
  unsigned char random[4] = {0, 0, 0, 0};
  OvraGenerateRandom(random, 4);
  EXPECT_NE(random[0] | random[1] | random[2] | random[3], 0);
}

// Not under SweepTest: the library must not be started when the sweep begins.
TEST(AllocSweepStartUp, AFailedStartUpIsCompletedByALaterOneAndTheLastShutdownFreesAll) {
  Stats().Reset();
  SweepBothModes("OvraInitialize + OvraUninitialize", [](SweepRun& run) {
    SAllocator allocator = ovra_test::CountingAllocator();
    run.Arm();
    const bool started = OvraInitialize(&allocator);
    const bool failed = run.Disarm();
    EXPECT_EQ(started, !failed) << "n=" << run.n();
    if (!started) {
      // Not rolled back: the facilities whose hooks ran stay usable, and
      // what is made with them now is released by the last shutdown below.
      (void)OvraPostMessage(1, P(3), nullptr);
      (void)OvraTlsAddData(P(8), 24);
      // Still not counted as started: this shutdown does nothing.
      OvraUninitialize();
      // The next start-up goes through, keeping what the failed one made.
      ASSERT_TRUE(OvraInitialize(&allocator)) << "n=" << run.n();
    }
    UseTheStartedLibrary();
    OvraUninitialize();
  });
  EXPECT_EQ(Stats().live.load(), 0);
}

class AllocSweepModule : public SweepTest {};

TEST_F(AllocSweepModule, NestedStartUpAllocatesNothingAndThreadDataFollowsLazily) {
  SweepUntilSuccess("OvraInitialize (nested)", [](SweepRun& run) {
    run.Arm();
    EXPECT_TRUE(OvraInitialize(nullptr));
    EXPECT_FALSE(run.Disarm());
    UseTheStartedLibrary();
    OvraUninitialize();  // frees this thread's table and blocks
  }, FailMode::kOne, true);
}

TEST_F(AllocSweepModule, ModuleFileSpecIsEmptyWhenItsCopyFails) {
  SweepBothModes("SharedLibInit + OvraGetModuleFileSpec", [](SweepRun& run) {
    const TBstr path(W(u"/opt/ovra/lib/libovra.so"));
    run.Arm();
    EXPECT_TRUE(SharedLibInit(path));  // accepts the load whatever happens
    const TBstr spec = OvraGetModuleFileSpec();
    const bool failed = run.Disarm();
    const std::u16string stored = Text(OvraGetModuleFileSpec());
    EXPECT_TRUE(stored.empty() || stored == u"/opt/ovra/lib/libovra.so");
    if (failed) {
      // Either the stored copy or the returned one was lost.
      EXPECT_TRUE(spec.IsEmpty() || stored.empty()) << "n=" << run.n();
    } else {
      EXPECT_EQ(Text(spec), u"/opt/ovra/lib/libovra.so");
    }
    SharedLibTerm();
  });
}

}  // namespace
