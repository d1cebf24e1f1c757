// Tests of the text conversions kept with the string class: encoding and
// language codes, entity escaping and unescaping, plain text to HTML and back.
#include "OvraBstr.h"

#include <gtest/gtest.h>
#include <limits.h>

#include <functional>
#include <ostream>
#include <random>
#include <string>
#include <vector>

#include "TestBstr.h"

using namespace ovra_test;

namespace {

class TextTest : public StringTest {};

// --- encoding and language references ----------------------------------------

// The language tags by code, written out from the published list (codes not
// listed have no tag).
std::vector<std::string> ExpectedLanguages() {
  const struct {
    int code;
    const char* tag;
  } listed[] = {
      {0, "en"},    {1, "fr"},    {2, "de"},   {3, "it"},   {4, "nl"},   {5, "sv"},   {6, "es"},
      {7, "da"},    {8, "pt"},    {9, "no"},   {10, "iw"},  {11, "ja"},  {12, "ar"},  {13, "fi"},
      {14, "el"},   {15, "is"},   {16, "mt"},  {17, "tr"},  {18, "hr"},  {19, "zh-tw"}, {20, "ur"},
      {21, "hi"},   {22, "th"},   {23, "ko"},  {24, "lt"},  {25, "pl"},  {26, "hu"},  {27, "et"},
      {28, "lv"},   {30, "fo"},   {31, "fa"},  {32, "ru"},  {33, "zh-cn"}, {35, "ga"}, {36, "sq"},
      {37, "ro"},   {38, "cs"},   {39, "sk"},  {40, "sl"},  {41, "ji"},  {42, "sr"},  {43, "mk"},
      {44, "bg"},   {45, "uk"},   {46, "be"},  {47, "uz"},  {48, "kk"},  {49, "az"},  {50, "az"},
      {51, "hy"},   {52, "ka"},   {53, "mo"},  {54, "ky"},  {55, "tg"},  {56, "tk"},  {57, "mn"},
      {58, "mn"},   {59, "ps"},   {60, "ku"},  {61, "ks"},  {62, "sd"},  {63, "bo"},  {64, "ne"},
      {65, "sa"},   {66, "mr"},   {67, "bn"},  {68, "as"},  {69, "gu"},  {70, "pa"},  {71, "or"},
      {72, "ml"},   {73, "kn"},   {74, "ta"},  {75, "te"},  {76, "si"},  {77, "my"},  {78, "km"},
      {79, "lo"},   {80, "vi"},   {81, "in"},  {82, "tl"},  {83, "ms"},  {84, "ms"},  {85, "am"},
      {86, "ti"},   {87, "om"},   {88, "so"},  {89, "sw"},  {90, "rw"},  {91, "rn"},  {93, "mg"},
      {94, "el"},   {128, "cy"},  {129, "eu"}, {130, "ca"}, {131, "la"}, {132, "qu"}, {133, "gn"},
      {134, "ay"},  {135, "tt"},  {136, "ug"}, {137, "dz"}, {138, "jw"}, {139, "su"}, {140, "gd"},
      {141, "gv"},  {142, "br"},  {143, "iu"},
  };
  std::vector<std::string> table(144);
  for (const auto& row : listed) table[static_cast<size_t>(row.code)] = row.tag;
  return table;
}

// The reverse lookup written plainly: the first code whose tag is a prefix of
// tag lowered in ASCII (the tests run in the C locale).
int ReferenceLanguageCode(const std::u16string& tag) {
  if (tag.empty()) return 0;
  static const std::vector<std::string> table = ExpectedLanguages();
  for (size_t code = 0; code < table.size(); ++code) {
    const std::string& entry = table[code];
    if (entry.empty() || tag.size() < entry.size()) continue;
    bool match = true;
    for (size_t i = 0; i < entry.size() && match; ++i) {
      char16_t c = tag[i];
      if (c >= 'A' && c <= 'Z') c = static_cast<char16_t>(c + 32);
      match = c == static_cast<unsigned char>(entry[i]);
    }
    if (match) return static_cast<int>(code);
  }
  return -1;
}

int LanguageCode(const std::u16string& tag, bool* ok = nullptr) {
  int code = 12345;
  const bool result = OvraIsoToQelLang(W(tag.c_str()), code);
  if (ok) *ok = result;
  EXPECT_EQ(result, code >= 0) << "for the tag of length " << tag.size();
  return code;
}

int EncodingCode(const unsigned short* name, bool* ok = nullptr) {
  int code = 12345;
  const bool result = OvraIsoToQelEncoding(name, code);
  if (ok) *ok = result;
  EXPECT_EQ(result, code >= 0);
  return code;
}

// --- HTML and entity references ------------------------------------------------

const std::u16string kEntities[4] = {u"&amp;", u"&lt;", u"&gt;", u"&quot;"};
const char16_t kEntityChars[4] = {u'&', u'<', u'>', u'"'};

std::u16string ReplaceAll(std::u16string s, const std::u16string& from, const std::u16string& to) {
  for (size_t at = s.find(from); at != std::u16string::npos; at = s.find(from, at + to.size())) {
    s.replace(at, from.size(), to);
  }
  return s;
}

// Escaping as four replacements in turn, "&" first.
std::u16string ReferenceEscape(std::u16string s) {
  for (int row = 0; row < 4; ++row) s = ReplaceAll(s, std::u16string(1, kEntityChars[row]), kEntities[row]);
  return s;
}

std::u16string ReferencePlainToHtml(const std::u16string& s) {
  return u"<HTML><BODY>" + ReplaceAll(ReferenceEscape(s), u"\r\n", u"<BR>") + u"</BODY></HTML>";
}

// The entity scanner written plainly: an open entity is the text from its "&".
std::u16string ReferenceUnescape(const std::u16string& s) {
  std::u16string out;
  bool open = false;
  std::u16string entity;
  for (char16_t c : s) {
    if (c == u'&') {
      open = true;
      entity = u"&";
    } else if (!open) {
      out += c;
    } else {
      entity += c;
      if (c == u';') {
        for (int row = 0; row < 4; ++row) {
          if (entity == kEntities[row]) {
            out += kEntityChars[row];
            break;
          }
        }
        open = false;
      }
    }
  }
  return out;
}

// The tag scanner written plainly, before the entities are unescaped.
std::u16string ReferenceStripTags(const std::u16string& s) {
  std::u16string out;
  bool open = false;
  std::u16string tag;
  for (char16_t c : s) {
    if (c == u'<') {
      open = true;
      tag = u"<";
    } else if (!open) {
      out += c;
    } else {
      tag += c;
      if (c == u'>') {
        std::u16string upper = tag;
        for (char16_t& u : upper)
          if (u >= 'a' && u <= 'z') u = static_cast<char16_t>(u - 32);
        if (upper == u"<BR>") out += u"\r\n";
        open = false;
      }
    }
  }
  return out;
}

std::u16string ReferenceHtmlToPlain(const std::u16string& s) {
  return ReferenceUnescape(ReferenceStripTags(s));
}

// Random text of non-zero units, often one of the characters the conversions
// care about, otherwise anything from 1 to 0xFFFF.
std::u16string RandomText(std::mt19937& rng, size_t length) {
  static const char16_t kSpecial[] = u"&;<>\"\r\nabBrR/ ";
  const size_t specials = sizeof kSpecial / sizeof kSpecial[0] - 1;
  std::uniform_int_distribution<int> pick(0, 3);
  std::uniform_int_distribution<size_t> special(0, specials - 1);
  std::uniform_int_distribution<int> any(1, 0xFFFF);
  std::u16string s;
  for (size_t i = 0; i < length; ++i) {
    s += pick(rng) == 0 ? static_cast<char16_t>(any(rng)) : kSpecial[special(rng)];
  }
  return s;
}

// Runs a conversion on text held in a buffer of exactly its own size, so that a
// read past the terminator is caught by the address sanitizer.
template <class Convert>
std::u16string ConvertExact(Convert convert, const std::u16string& text) {
  std::vector<unsigned short> exact(text.begin(), text.end());
  exact.push_back(0);
  std::vector<unsigned short> owned(exact);  // what the conversion must not change
  TBstr out;
  convert(exact.data(), out);
  EXPECT_EQ(exact, owned) << "the input was written to";
  return Text(out);
}

// Text of n units, ending in one entity, so that the result has n - 3 units.
std::u16string TextWithEntity(size_t n) { return std::u16string(n - 4, u'a') + u"&lt;"; }

// Text of n units, ending in one dropped tag, so that the result has n - 3 units.
std::u16string TextWithTag(size_t n) { return std::u16string(n - 3, u'a') + u"<p>"; }

// Bytes of the counted buffer holding n units.
size_t BufferBytes(size_t n) { return 2 * n + 6; }

// ===========================================================================
// Encoding codes
// ===========================================================================

TEST_F(TextTest, MimeTypeConstantsHoldTheirNames) {
  EXPECT_EQ(ToU16(kTextMimeType), u"text");
  EXPECT_EQ(ToU16(kTextPlainMimeType), u"text/plain");
  EXPECT_EQ(ToU16(kTextQelRtfMimeType), u"text/x-qelrtf");
}

TEST_F(TextTest, KnownEncodingCodesGiveTheirCharsetNames) {
  const struct {
    int code;
    const char16_t* name;
  } known[] = {{0, u"us-ascii"}, {2, u"unicode-2-0"}, {3, u"iso-8859-1"}, {13, u"utf-8"}};
  for (const auto& row : known) {
    TBstr name(W(u"previous"));
    EXPECT_TRUE(OvraQelToIsoEncoding(row.code, name)) << row.code;
    EXPECT_EQ(Text(name), row.name) << row.code;
  }
}

TEST_F(TextTest, EveryOtherEncodingCodeGivesQuestionMarkAndFalse) {
  std::vector<int> codes = {INT_MIN, INT_MIN + 1, -13, -1, 1, 4, 12, 14, 255, 256, 65536, INT_MAX};
  for (int c = -20; c <= 300; ++c) {
    if (c != 0 && c != 2 && c != 3 && c != 13) codes.push_back(c);
  }
  for (int code : codes) {
    TBstr name(W(u"utf-8"));
    EXPECT_FALSE(OvraQelToIsoEncoding(code, name)) << code;
    EXPECT_EQ(Text(name), u"?") << code;
  }
}

TEST_F(TextTest, CharsetNamesGiveTheirCodesIgnoringAsciiCase) {
  EXPECT_EQ(EncodingCode(W(u"us-ascii")), 0);
  EXPECT_EQ(EncodingCode(W(u"US-ASCII")), 0);
  EXPECT_EQ(EncodingCode(W(u"unicode-2-0")), 2);
  EXPECT_EQ(EncodingCode(W(u"Unicode-2-0")), 2);
  EXPECT_EQ(EncodingCode(W(u"iso-8859-1")), 3);
  EXPECT_EQ(EncodingCode(W(u"ISO-8859-1")), 3);
  EXPECT_EQ(EncodingCode(W(u"utf-8")), 13);
  bool ok = false;
  EXPECT_EQ(EncodingCode(W(u"UTF-8"), &ok), 13);
  EXPECT_TRUE(ok);
}

TEST_F(TextTest, NullOrEmptyCharsetNameIsAscii) {
  bool ok = false;
  EXPECT_EQ(EncodingCode(nullptr, &ok), 0);
  EXPECT_TRUE(ok);
  ok = false;
  EXPECT_EQ(EncodingCode(W(u""), &ok), 0);
  EXPECT_TRUE(ok);
}

TEST_F(TextTest, UnknownCharsetNamesGiveMinusOneAndFalse) {
  const char16_t* unknown[] = {u"latin1", u"utf8",   u"utf",        u"utf-8 ",      u" utf-8",
                               u"utf-88", u"ascii",  u"us-ascii\u00e9", u"\u0130so-8859-1",
                               u"unicode", u"iso-8859-15", u"?"};
  for (const char16_t* name : unknown) {
    bool ok = true;
    EXPECT_EQ(EncodingCode(W(name), &ok), -1) << ToU16(W(name)).size();
    EXPECT_FALSE(ok);
  }
}

TEST_F(TextTest, EncodingCodesSurviveTheRoundTripThroughTheirNames) {
  for (int code : {0, 2, 3, 13}) {
    TBstr name;
    ASSERT_TRUE(OvraQelToIsoEncoding(code, name));
    EXPECT_EQ(EncodingCode(name.GetString()), code);
  }
  // The exported names are the very names of the table.
  EXPECT_EQ(EncodingCode(kAsciiEncoding), 0);
  EXPECT_EQ(EncodingCode(kUnicodeEncoding), 2);
  EXPECT_EQ(EncodingCode(kLatin1Encoding), 3);
  EXPECT_EQ(EncodingCode(kUtf8Encoding), 13);
}

TEST_F(TextTest, EncodingNameAllocationFailureIsNoSuccess) {
  for (int code : {13, 1}) {
    SweepAllocationFailures([code](FailurePoint& point) {
      TBstr name(W(u"previous text"));
      point.Arm();
      const bool ok = OvraQelToIsoEncoding(code, name);
      if (point.Disarm()) {
        EXPECT_FALSE(ok);
        EXPECT_TRUE(name.IsEmpty());
      } else {
        EXPECT_EQ(ok, code == 13);
        EXPECT_EQ(Text(name), code == 13 ? u"utf-8" : u"?");
      }
    });
  }
}

// ===========================================================================
// Language codes
// ===========================================================================

TEST_F(TextTest, LanguageTableHoldsEveryListedTagByCode) {
  const std::vector<std::string> expected = ExpectedLanguages();
  int tags = 0;
  for (int code = 0; code < 144; ++code) {
    TBstr tag(W(u"previous"));
    const bool ok = OvraQelToIsoLang(code, tag);
    const std::string& want = expected[static_cast<size_t>(code)];
    if (want.empty()) {
      EXPECT_FALSE(ok) << code;
      EXPECT_EQ(Text(tag), u"?") << code;
    } else {
      ++tags;
      EXPECT_TRUE(ok) << code;
      EXPECT_EQ(Text(tag), Widen(want)) << code;
    }
  }
  EXPECT_EQ(tags, 144 - 3 - 33);  // 29, 34, 92 and 95..127 have none
}

TEST_F(TextTest, LanguageCodesWithoutTagGiveQuestionMarkAndFalse) {
  for (int code : {29, 34, 92, 95, 100, 127, 144, 145, 1000, -1, -144, INT_MIN, INT_MAX}) {
    TBstr tag(W(u"en"));
    EXPECT_FALSE(OvraQelToIsoLang(code, tag)) << code;
    EXPECT_EQ(Text(tag), u"?") << code;
  }
}

TEST_F(TextTest, NullOrEmptyLanguageTagIsEnglish) {
  int code = 77;
  EXPECT_TRUE(OvraIsoToQelLang(nullptr, code));
  EXPECT_EQ(code, 0);
  code = 77;
  EXPECT_TRUE(OvraIsoToQelLang(W(u""), code));
  EXPECT_EQ(code, 0);
}

TEST_F(TextTest, DuplicateLanguageTagsGiveTheLowerCode) {
  EXPECT_EQ(LanguageCode(u"el"), 14);
  EXPECT_EQ(LanguageCode(u"az"), 49);
  EXPECT_EQ(LanguageCode(u"mn"), 57);
  EXPECT_EQ(LanguageCode(u"ms"), 83);
}

TEST_F(TextTest, OlderLanguageTagsAreKeptAsWritten) {
  EXPECT_EQ(LanguageCode(u"iw"), 10);
  EXPECT_EQ(LanguageCode(u"ji"), 41);
  EXPECT_EQ(LanguageCode(u"in"), 81);
  EXPECT_EQ(LanguageCode(u"mo"), 53);
  // Their current forms are not in the table.
  EXPECT_EQ(LanguageCode(u"he"), -1);
  EXPECT_EQ(LanguageCode(u"yi"), -1);
  EXPECT_EQ(LanguageCode(u"id"), -1);
}

TEST_F(TextTest, LanguageTagMatchesWhenAnEntryIsItsPrefixInAnyCase) {
  EXPECT_EQ(LanguageCode(u"en-US"), 0);
  EXPECT_EQ(LanguageCode(u"en_gb"), 0);
  EXPECT_EQ(LanguageCode(u"EN"), 0);
  EXPECT_EQ(LanguageCode(u"english"), 0);
  EXPECT_EQ(LanguageCode(u"en\u00e9\uffff"), 0);  // what follows the entry is not examined
  EXPECT_EQ(LanguageCode(u"zh-TW"), 19);
  EXPECT_EQ(LanguageCode(u"ZH-TW"), 19);
  EXPECT_EQ(LanguageCode(u"zh-cn"), 33);
  EXPECT_EQ(LanguageCode(u"Zh-Cn-Hans"), 33);
  EXPECT_EQ(LanguageCode(u"IU"), 143);
}

TEST_F(TextTest, ChineseWithoutRegionMatchesNoEntry) {
  bool ok = true;
  EXPECT_EQ(LanguageCode(u"zh", &ok), -1);
  EXPECT_FALSE(ok);
  EXPECT_EQ(LanguageCode(u"zh-"), -1);
  EXPECT_EQ(LanguageCode(u"zh-t"), -1);
  EXPECT_EQ(LanguageCode(u"zh_tw"), -1);
}

TEST_F(TextTest, TagShorterThanEveryEntryMatchesNothing) {
  EXPECT_EQ(LanguageCode(u"e"), -1);
  EXPECT_EQ(LanguageCode(u"-"), -1);
}

TEST_F(TextTest, UnitsBeyondEightBitsAreNotFoldedIntoTags) {
  // 'e' + 0x100 and a full-width 'E' would match "en" if units were cut to 8 bits.
  EXPECT_EQ(LanguageCode(u"\u0165n"), -1);
  EXPECT_EQ(LanguageCode(u"\uff25n"), -1);
  EXPECT_EQ(LanguageCode(u"\u00c9n"), -1);
  EXPECT_EQ(LanguageCode(u"e\u016e"), -1);
}

TEST_F(TextTest, EveryTagFindsTheFirstCodeHoldingIt) {
  const std::vector<std::string> table = ExpectedLanguages();
  for (int code = 0; code < 144; ++code) {
    TBstr tag;
    if (!OvraQelToIsoLang(code, tag)) continue;
    int first = code;
    for (int c = 0; c < code; ++c) {
      if (table[static_cast<size_t>(c)] == table[static_cast<size_t>(code)]) {
        first = c;
        break;
      }
    }
    EXPECT_EQ(LanguageCode(Text(tag)), first) << code;
    EXPECT_EQ(LanguageCode(Text(tag) + u"-XY"), first) << code;
    TBstr upper(tag);
    upper.MakeUpper();
    EXPECT_EQ(LanguageCode(Text(upper)), first) << code;
  }
}

TEST_F(TextTest, LanguageLookupAgreesWithThePlainPrefixRuleOnRandomTags) {
  std::mt19937 rng(9101);
  const char16_t alphabet[] = u"aAeEnNzZhHtTwWcCmMsSiIlLoO-_\u0100\u00e9";
  std::uniform_int_distribution<size_t> letter(0, sizeof alphabet / sizeof alphabet[0] - 2);
  std::uniform_int_distribution<size_t> length(0, 7);
  for (int i = 0; i < 20000; ++i) {
    std::u16string tag;
    for (size_t n = length(rng); n; --n) tag += alphabet[letter(rng)];
    EXPECT_EQ(LanguageCode(tag), ReferenceLanguageCode(tag)) << i;
  }
}

TEST_F(TextTest, LanguageTagAllocationFailureIsNoSuccess) {
  for (int code : {19, 29}) {
    SweepAllocationFailures([code](FailurePoint& point) {
      TBstr tag(W(u"previous text"));
      point.Arm();
      const bool ok = OvraQelToIsoLang(code, tag);
      if (point.Disarm()) {
        EXPECT_FALSE(ok);
        EXPECT_TRUE(tag.IsEmpty());
      } else {
        EXPECT_EQ(ok, code == 19);
        EXPECT_EQ(Text(tag), code == 19 ? u"zh-tw" : u"?");
      }
    });
  }
}

// ===========================================================================
// Entity escaping
// ===========================================================================

TEST_F(TextTest, EscapeWritesTheFourSpecialCharactersAsEntities) {
  TBstr out;
  OvraEntityEscape(W(u"a<b & \"c\">"), out);
  EXPECT_EQ(Text(out), u"a&lt;b &amp; &quot;c&quot;&gt;");
}

TEST_F(TextTest, EscapeHandlesTheAmpersandFirst) {
  TBstr out;
  OvraEntityEscape(W(u"<&>\""), out);
  EXPECT_EQ(Text(out), u"&lt;&amp;&gt;&quot;");
  OvraEntityEscape(W(u"&lt;"), out);  // an entity already there is escaped once more
  EXPECT_EQ(Text(out), u"&amp;lt;");
}

TEST_F(TextTest, EscapeLeavesEveryOtherUnitAlone) {
  std::u16string text = u"it's \r\n\t; \u00e9 \uffff#";
  text[9] = static_cast<char16_t>(0xD800);  // a lone surrogate is a unit like any other
  TBstr out;
  OvraEntityEscape(W(text.c_str()), out);
  EXPECT_EQ(Text(out), text);
}

TEST_F(TextTest, EscapeOfNullOrEmptyTextEmptiesOut) {
  TBstr out(W(u"previous"));
  OvraEntityEscape(nullptr, out);
  EXPECT_TRUE(out.IsEmpty());
  out = W(u"previous");
  OvraEntityEscape(W(u""), out);
  EXPECT_TRUE(out.IsEmpty());
}

TEST_F(TextTest, EscapeReadsTextLyingInOut) {
  TBstr out(W(u"x<y&z"));
  OvraEntityEscape(out.GetString(), out);
  EXPECT_EQ(Text(out), u"x&lt;y&amp;z");
  out = W(u"abc<");
  OvraEntityEscape(out.GetString() + 2, out);
  EXPECT_EQ(Text(out), u"c&lt;");
}

// ===========================================================================
// Entity unescaping
// ===========================================================================

TEST_F(TextTest, UnescapeTurnsTheFourEntitiesBack) {
  TBstr out;
  OvraEntityUnescape(W(u"a&lt;b &amp; &quot;c&quot;&gt;"), out);
  EXPECT_EQ(Text(out), u"a<b & \"c\">");
}

TEST_F(TextTest, UnescapeUndoesOneLevelOnly) {
  TBstr out;
  OvraEntityUnescape(W(u"&amp;lt;"), out);
  EXPECT_EQ(Text(out), u"&lt;");
}

TEST_F(TextTest, UnknownOrMiscasedEntitiesVanish) {
  const struct {
    const char16_t* in;
    const char16_t* out;
  } cases[] = {
      {u"x &copy; y", u"x  y"}, {u"&AMP;", u""},      {u"&#39;", u""},     {u"&nbsp;", u""},
      {u"a&Lt;b", u"ab"},       {u"&am;", u""},       {u"&ampx;", u""},   {u"&amp ;", u""},
      {u"&;", u""},             {u"&quot ;x", u"x"},  {u"&l\u0000", u""},
  };
  for (const auto& c : cases) {
    TBstr out(W(u"previous"));
    OvraEntityUnescape(W(c.in), out);
    EXPECT_EQ(Text(out), c.out) << ToU16(W(c.in)).size();
  }
}

TEST_F(TextTest, AnEntityLeftOpenDropsTheRestOfTheText) {
  TBstr out;
  OvraEntityUnescape(W(u"a & b"), out);
  EXPECT_EQ(Text(out), u"a ");
  OvraEntityUnescape(W(u"x&amp"), out);
  EXPECT_EQ(Text(out), u"x");
  OvraEntityUnescape(W(u"&"), out);
  EXPECT_TRUE(out.IsEmpty());
}

TEST_F(TextTest, ASecondAmpersandRestartsTheEntity) {
  TBstr out;
  OvraEntityUnescape(W(u"&&amp;"), out);
  EXPECT_EQ(Text(out), u"&");
  OvraEntityUnescape(W(u"a&junk&lt;b"), out);
  EXPECT_EQ(Text(out), u"a<b");
  OvraEntityUnescape(W(u"&amp&gt;"), out);
  EXPECT_EQ(Text(out), u">");
}

TEST_F(TextTest, SemicolonOutsideAnEntityIsCopied) {
  TBstr out;
  OvraEntityUnescape(W(u"a;b"), out);
  EXPECT_EQ(Text(out), u"a;b");
  OvraEntityUnescape(W(u"&amp;;"), out);
  EXPECT_EQ(Text(out), u"&;");
}

TEST_F(TextTest, UnescapeOfNullOrEmptyTextEmptiesOut) {
  TBstr out(W(u"previous"));
  OvraEntityUnescape(nullptr, out);
  EXPECT_TRUE(out.IsEmpty());
  out = W(u"previous");
  OvraEntityUnescape(W(u""), out);
  EXPECT_TRUE(out.IsEmpty());
  out = W(u"previous");
  OvraEntityUnescape(W(u"&nbsp;"), out);  // a result that is empty is no failure
  EXPECT_TRUE(out.IsEmpty());
}

TEST_F(TextTest, UnescapeReadsTextLyingInOut) {
  TBstr out(W(u"1 &lt; 2"));
  OvraEntityUnescape(out.GetString(), out);
  EXPECT_EQ(Text(out), u"1 < 2");
  const std::u16string longText = std::u16string(200, u'x') + u"&amp;";
  out = W(longText.c_str());
  OvraEntityUnescape(out.GetString(), out);
  EXPECT_EQ(Text(out), std::u16string(200, u'x') + u"&");
}

TEST_F(TextTest, UnescapeWorksOnTheStackUpTo127UnitsAndOnTheHeapBeyond) {
  for (size_t n : {5u, 126u, 127u, 128u, 129u, 1000u}) {
    const std::u16string text = TextWithEntity(n);
    TBstr out;
    Mark();
    OvraEntityUnescape(W(text.c_str()), out);
    const std::u16string expected = std::u16string(n - 4, u'a') + u"<";
    EXPECT_EQ(Text(out), expected) << n;
    std::vector<size_t> requests = {BufferBytes(n - 3)};
    // (n + 1) units do not fit in 128 from n = 128 on.
    if (n >= 128) requests.insert(requests.begin(), (n + 1) * 2);
    EXPECT_EQ(Requests(), requests) << n;
  }
}

TEST_F(TextTest, EscapeThenUnescapeGivesTheOriginalText) {
  std::mt19937 rng(9203);
  std::uniform_int_distribution<size_t> length(0, 300);
  for (int i = 0; i < 3000; ++i) {
    const std::u16string text = RandomText(rng, i < 300 ? static_cast<size_t>(i) : length(rng));
    TBstr escaped;
    OvraEntityEscape(W(text.c_str()), escaped);
    TBstr back;
    OvraEntityUnescape(escaped.GetString(), back);
    EXPECT_EQ(Text(back), text) << i;
  }
}

// ===========================================================================
// Plain text to HTML
// ===========================================================================

TEST_F(TextTest, PlainToHtmlTurnsLineBreakPairsIntoBreakTags) {
  TBstr out;
  OvraPlainToHtml(W(u"x\r\ny"), out);
  EXPECT_EQ(Text(out), u"<HTML><BODY>x<BR>y</BODY></HTML>");
}

TEST_F(TextTest, PlainToHtmlLeavesLoneLineEndsAlone) {
  const struct {
    const char16_t* in;
    const char16_t* body;
  } cases[] = {
      {u"x\ny", u"x\ny"},         {u"x\ry", u"x\ry"},        {u"\n\r", u"\n\r"},
      {u"\r\r\n", u"\r<BR>"},     {u"\r\n\n", u"<BR>\n"},    {u"\r\n\r\n", u"<BR><BR>"},
      {u"\r", u"\r"},             {u"a\r", u"a\r"},
  };
  for (const auto& c : cases) {
    TBstr out;
    OvraPlainToHtml(W(c.in), out);
    EXPECT_EQ(Text(out), u"<HTML><BODY>" + std::u16string(c.body) + u"</BODY></HTML>")
        << ToU16(W(c.in)).size();
  }
}

TEST_F(TextTest, PlainToHtmlEscapesBeforeItInsertsBreakTags) {
  TBstr out;
  OvraPlainToHtml(W(u"a<b\r\n\"&\""), out);
  EXPECT_EQ(Text(out), u"<HTML><BODY>a&lt;b<BR>&quot;&amp;&quot;</BODY></HTML>");
}

TEST_F(TextTest, PlainToHtmlTakesPercentSignsAsText) {
  TBstr out;
  OvraPlainToHtml(W(u"100%s %d %%"), out);
  EXPECT_EQ(Text(out), u"<HTML><BODY>100%s %d %%</BODY></HTML>");
}

TEST_F(TextTest, PlainToHtmlOfNullOrEmptyTextIsAnEmptyDocument) {
  TBstr out(W(u"previous"));
  OvraPlainToHtml(nullptr, out);
  EXPECT_EQ(Text(out), u"<HTML><BODY></BODY></HTML>");
  out = W(u"previous");
  OvraPlainToHtml(W(u""), out);
  EXPECT_EQ(Text(out), u"<HTML><BODY></BODY></HTML>");
}

TEST_F(TextTest, PlainToHtmlReadsTextLyingInOut) {
  TBstr out(W(u"a\r\n<b>"));
  OvraPlainToHtml(out.GetString(), out);
  EXPECT_EQ(Text(out), u"<HTML><BODY>a<BR>&lt;b&gt;</BODY></HTML>");
}

// ===========================================================================
// HTML to plain text
// ===========================================================================

TEST_F(TextTest, HtmlToPlainKeepsTextBreaksAndCharacters) {
  TBstr out;
  OvraHtmlToPlain(W(u"<HTML><BODY>a<br>b &amp; c</BODY></HTML>"), out);
  EXPECT_EQ(Text(out), u"a\r\nb & c");
}

TEST_F(TextTest, OnlyAFourUnitBreakTagBecomesALineBreak) {
  const struct {
    const char16_t* in;
    const char16_t* out;
  } cases[] = {
      {u"a<br/>b", u"ab"},  {u"a<BR clear>b", u"ab"}, {u"a<Br>b", u"a\r\nb"}, {u"a<bR>b", u"a\r\nb"},
      {u"a<BR>b", u"a\r\nb"}, {u"a<B>b", u"ab"},      {u"a<>b", u"ab"},       {u"a<BRR>b", u"ab"},
      {u"a<b r>b", u"ab"},  {u"a< br>b", u"ab"},      {u"<p>x</p>", u"x"},    {u"<\u0132R>", u""},
  };
  for (const auto& c : cases) {
    TBstr out(W(u"previous"));
    OvraHtmlToPlain(W(c.in), out);
    EXPECT_EQ(Text(out), c.out) << ToU16(W(c.in)).size();
  }
}

TEST_F(TextTest, ASecondLessThanRestartsTheTag) {
  TBstr out;
  OvraHtmlToPlain(W(u"<x<br>"), out);
  EXPECT_EQ(Text(out), u"\r\n");
  OvraHtmlToPlain(W(u"a<b<BR>c"), out);
  EXPECT_EQ(Text(out), u"a\r\nc");
}

TEST_F(TextTest, ATagLeftOpenIsDropped) {
  TBstr out;
  OvraHtmlToPlain(W(u"a<b"), out);
  EXPECT_EQ(Text(out), u"a");
  OvraHtmlToPlain(W(u"text<br"), out);
  EXPECT_EQ(Text(out), u"text");
}

TEST_F(TextTest, GreaterThanOutsideATagIsCopied) {
  TBstr out;
  OvraHtmlToPlain(W(u"a>b>"), out);
  EXPECT_EQ(Text(out), u"a>b>");
}

TEST_F(TextTest, HtmlToPlainDropsTagsBeforeItUnescapes) {
  TBstr out;
  OvraHtmlToPlain(W(u"&lt;br&gt;"), out);  // an escaped tag is text
  EXPECT_EQ(Text(out), u"<br>");
  OvraHtmlToPlain(W(u"&am<i>p;"), out);  // the tag goes first, the entity then closes
  EXPECT_EQ(Text(out), u"&");
  OvraHtmlToPlain(W(u"<a title=\"&amp;\">x</a>"), out);
  EXPECT_EQ(Text(out), u"x");
  OvraHtmlToPlain(W(u"a&b<br>c;d"), out);  // the break is inside the open entity
  EXPECT_EQ(Text(out), u"ad");
}

TEST_F(TextTest, HtmlToPlainOfNullOrEmptyTextEmptiesOut) {
  TBstr out(W(u"previous"));
  OvraHtmlToPlain(nullptr, out);
  EXPECT_TRUE(out.IsEmpty());
  out = W(u"previous");
  OvraHtmlToPlain(W(u""), out);
  EXPECT_TRUE(out.IsEmpty());
}

TEST_F(TextTest, HtmlToPlainReadsTextLyingInOut) {
  TBstr out(W(u"<b>x</b><br>&gt;"));
  OvraHtmlToPlain(out.GetString(), out);
  EXPECT_EQ(Text(out), u"x\r\n>");
}

TEST_F(TextTest, HtmlToPlainWorksOnTheStackUpTo127UnitsAndOnTheHeapBeyond) {
  for (size_t n : {5u, 126u, 127u, 128u, 129u, 1000u}) {
    const std::u16string text = TextWithTag(n);
    TBstr out;
    Mark();
    OvraHtmlToPlain(W(text.c_str()), out);
    EXPECT_EQ(Text(out), std::u16string(n - 3, u'a')) << n;
    // The tag-free text of n - 3 units goes on to the entity scanner, which
    // needs a heap buffer of its own from 128 units on.
    std::vector<size_t> requests;
    if (n >= 128) requests.push_back((n + 1) * 2);
    if (n - 3 >= 128) requests.push_back((n - 3 + 1) * 2);
    requests.push_back(BufferBytes(n - 3));
    EXPECT_EQ(Requests(), requests) << n;
  }
}

TEST_F(TextTest, PlainToHtmlThenHtmlToPlainGivesTheOriginalText) {
  std::mt19937 rng(9206);
  std::uniform_int_distribution<size_t> length(0, 300);
  for (int i = 0; i < 3000; ++i) {
    const std::u16string text = RandomText(rng, i < 300 ? static_cast<size_t>(i) : length(rng));
    TBstr html;
    OvraPlainToHtml(W(text.c_str()), html);
    TBstr back;
    OvraHtmlToPlain(html.GetString(), back);
    EXPECT_EQ(Text(back), text) << i;
  }
}

// ===========================================================================
// The four conversions against their plain models
// ===========================================================================

// One conversion with the plain model it must agree with, the random texts it
// is compared on, and the texts its allocation failures are swept on.
struct ConversionCase {
  const char* name;
  void (*convert)(const unsigned short* text, TBstr& out);
  std::function<std::u16string(const std::u16string&)> reference;
  unsigned seed;      // of the random texts
  int runs;           // random texts compared
  size_t maxLength;   // of a random text
  int lengthsInTurn;  // the first runs take the lengths 0, 1, 2 ... instead
  bool keepsOut;      // out is left unchanged (not emptied) when memory runs out
  std::vector<std::u16string> failureTexts;
};

// Prints the conversion's name in the messages of a failing test.
void PrintTo(const ConversionCase& c, std::ostream* out) { *out << c.name; }

class ConversionTest : public TextTest, public ::testing::WithParamInterface<ConversionCase> {};

TEST_P(ConversionTest, AgreesWithThePlainModelOnRandomText) {
  const ConversionCase& c = GetParam();
  std::mt19937 rng(c.seed);
  std::uniform_int_distribution<size_t> length(0, c.maxLength);
  for (int i = 0; i < c.runs; ++i) {
    const std::u16string text =
        RandomText(rng, i < c.lengthsInTurn ? static_cast<size_t>(i) : length(rng));
    EXPECT_EQ(ConvertExact(c.convert, text), c.reference(text)) << i;
  }
}

TEST_P(ConversionTest, AllocationFailureEmptiesOutOrLeavesItAsDocumented) {
  const ConversionCase& c = GetParam();
  for (const std::u16string& text : c.failureTexts) {
    SweepAllocationFailures([&c, &text](FailurePoint& point) {
      TBstr out(W(u"previous"));
      point.Arm();
      c.convert(W(text.c_str()), out);
      if (point.Disarm()) {
        if (c.keepsOut) {
          EXPECT_EQ(Text(out), u"previous");
        } else {
          EXPECT_TRUE(out.IsEmpty());
        }
      } else {
        EXPECT_EQ(Text(out), c.reference(text));
      }
    });
  }
}

// The texts of the sweeps: above 127 units the scanners take a heap buffer.
std::vector<std::u16string> TextsWithEntity() {
  std::vector<std::u16string> texts;
  for (size_t n : {20u, 127u, 128u, 300u}) texts.push_back(TextWithEntity(n));
  return texts;
}

std::vector<std::u16string> TextsWithTagAndEntity() {
  std::vector<std::u16string> texts;
  for (size_t n : {20u, 127u, 128u, 130u, 300u}) texts.push_back(TextWithTag(n - 5) + u"&lt;<br>");
  return texts;
}

INSTANTIATE_TEST_SUITE_P(
    Conversions, ConversionTest,
    ::testing::Values(
        // Escaping is compared with replacing the four characters in turn.
        ConversionCase{"EntityEscape", OvraEntityEscape, ReferenceEscape, 9201, 2000, 400, 0,
                       false, {u"\"quoted\" & <tagged> " + std::u16string(300, u'x')}},
        // Unescaping takes arbitrary units like the plain scanner.
        ConversionCase{"EntityUnescape", OvraEntityUnescape, ReferenceUnescape, 9202, 3000, 300,
                       300, true, TextsWithEntity()},
        // Plain text to HTML is compared with its steps done in turn.
        ConversionCase{"PlainToHtml", OvraPlainToHtml, ReferencePlainToHtml, 9204, 2000, 400, 0,
                       false, {u"one\r\ntwo & \"three\"" + std::u16string(200, u'<')}},
        // HTML to plain text takes arbitrary units like the plain scanners.
        ConversionCase{"HtmlToPlain", OvraHtmlToPlain, ReferenceHtmlToPlain, 9205, 3000, 300, 300,
                       true, TextsWithTagAndEntity()}),
    [](const ::testing::TestParamInfo<ConversionCase>& info) {
      return std::string(info.param.name);
    });

// --- Allocation failures ---------------------------------------------------
// Each operation runs with its 1st, 2nd, ... allocation failing, alone and
// with every later one (AllocSweep.h), until it goes through; every run must
// give the documented out-of-memory result and leak nothing. The N each sweep
// reaches is printed ("[ SWEEP    ]").

class AllocSweepBstr : public BstrSweepTest {};

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
