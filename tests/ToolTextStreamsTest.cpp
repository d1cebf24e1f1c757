// The ovra program's streamed text conversions: cut anywhere, they give what
// the library's conversion of the whole text gives.
#include "TextStreams.h"

#include <random>
#include <string>
#include <vector>

#include "Ovra.h"
#include "OvraBstr.h"
#include "gtest/gtest.h"

namespace {

using ovratool::HtmlToPlainStream;
using ovratool::PlainToHtmlStream;
using ovratool::Utf8Decoder;
using Units = std::vector<unsigned short>;

Units FromAscii(const std::string& text) { return Units(text.begin(), text.end()); }

// The library's conversion of the whole zero-terminated text.
Units Whole(void (*convert)(const unsigned short*, TBstr&), Units text) {
  text.push_back(0);
  TBstr out;
  convert(text.data(), out);
  return Units(out.GetString(), out.GetString() + out.GetLength());
}

// The stream's output for text given in pieces cut at the cuts.
template <typename Stream>
Units Streamed(const Units& text, const std::vector<size_t>& cuts) {
  Units out;
  Stream stream([&](const unsigned short* units, size_t count) {
    out.insert(out.end(), units, units + count);
    return true;
  });
  size_t at = 0;
  for (size_t cut : cuts) {
    EXPECT_TRUE(stream.Add(text.data() + at, cut - at));
    at = cut;
  }
  EXPECT_TRUE(stream.Add(text.data() + at, text.size() - at));
  EXPECT_TRUE(stream.Finish());
  return out;
}

std::vector<size_t> RandomCuts(std::mt19937& rng, size_t size) {
  std::vector<size_t> cuts;
  size_t at = 0;
  while (size > 0 && at < size) {
    at += rng() % 9;
    if (at <= size) cuts.push_back(at);
  }
  return cuts;
}

// Random text over the characters that matter to the conversions.
Units RandomText(std::mt19937& rng, size_t size) {
  static const unsigned short kAlphabet[] = {'<', '>', '&', ';', 'b', 'B', 'r', 'R', 'a', 'm',
                                             'p', 'l', 't', 'q', 'u', 'o', 'g', '\r', '\n', 'x',
                                             0xE9, 0x20AC};
  Units text(size);
  for (unsigned short& c : text) c = kAlphabet[rng() % (sizeof kAlphabet / sizeof kAlphabet[0])];
  return text;
}

class TextStreamsTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(OvraInitialize(nullptr)); }
  void TearDown() override { OvraUninitialize(); }
};

TEST_F(TextStreamsTest, HtmlToPlainCutAnywhereMatchesTheWholeConversion) {
  std::mt19937 rng(20240611);
  for (int round = 0; round < 3000; ++round) {
    const Units text = RandomText(rng, rng() % 60);
    const std::vector<size_t> cuts = RandomCuts(rng, text.size());
    ASSERT_EQ(Streamed<HtmlToPlainStream>(text, cuts), Whole(OvraHtmlToPlain, text))
        << "round " << round;
  }
}

TEST_F(TextStreamsTest, PlainToHtmlCutAnywhereMatchesTheWholeConversion) {
  std::mt19937 rng(20240612);
  for (int round = 0; round < 2000; ++round) {
    const Units text = RandomText(rng, rng() % 60);
    const std::vector<size_t> cuts = RandomCuts(rng, text.size());
    ASSERT_EQ(Streamed<PlainToHtmlStream>(text, cuts), Whole(OvraPlainToHtml, text))
        << "round " << round;
  }
}

// Tags and entities longer than any that could still match are carried over
// shrunk: their fate is the same however far they run.
TEST_F(TextStreamsTest, LongOpenTagsAndEntitiesKeepTheirFateAcrossPieces) {
  const std::string cases[] = {
      "a<" + std::string(100000, 'x') + "<br>b",           // a "<" restarts the tag
      "a<" + std::string(100000, 'x') + ">b",              // a long tag vanishes
      "a&" + std::string(100000, 'x') + ";b",              // a long entity vanishes
      "a&" + std::string(100000, 'x') + "&amp;b",          // an "&" restarts it
      "a&am<" + std::string(100000, 'y') + ">p;b",         // a tag inside an entity
      "a&q<br>t;b&<br><br><br>;c",                         // "<BR>" inside an entity
      "a&" + std::string(100000, 'x'),                     // unclosed: the rest vanishes
      "a<" + std::string(100000, 'x'),
  };
  std::mt19937 rng(7);
  for (const std::string& c : cases) {
    const Units text = FromAscii(c);
    std::vector<size_t> cuts;
    for (size_t at = rng() % 5000; at < text.size(); at += 1 + rng() % 5000) cuts.push_back(at);
    EXPECT_EQ(Streamed<HtmlToPlainStream>(text, cuts), Whole(OvraHtmlToPlain, text))
        << c.substr(0, 12);
  }
}

// The library's conversions stop at a zero character; the streams pass one
// through as text. Inside a tag or an entity it vanishes with them.
TEST_F(TextStreamsTest, AZeroCharacterIsTextLikeAnyOther) {
  Units text = FromAscii("a?b\r?\nc");
  text[1] = 0;
  text[5] = 0;
  Units want = Whole(OvraPlainToHtml, FromAscii("a"));
  want.pop_back();
  EXPECT_EQ(Streamed<PlainToHtmlStream>(text, {}),
            ([] {
              Units page = FromAscii("<HTML><BODY>a?b\r?\nc</BODY></HTML>");
              page[13] = 0;
              page[17] = 0;
              return page;
            })());
  Units html = FromAscii("a?<b?r>&am?p;c");
  html[1] = 0;
  html[4] = 0;
  html[10] = 0;
  Units plain = FromAscii("a?c");
  plain[1] = 0;
  EXPECT_EQ(Streamed<HtmlToPlainStream>(html, {3, 9}), plain);
}

TEST_F(TextStreamsTest, Utf8DecoderCompletesSequencesSplitBetweenPieces) {
  const std::string text = "h\xC3\xA9llo w\xE2\x82\xAC!";
  for (size_t cut = 0; cut <= text.size(); ++cut) {
    Utf8Decoder decoder;
    Units out;
    decoder.Decode(reinterpret_cast<const unsigned char*>(text.data()), cut, out);
    decoder.Decode(reinterpret_cast<const unsigned char*>(text.data()) + cut, text.size() - cut,
                   out);
    EXPECT_EQ(out, (Units{'h', 0xE9, 'l', 'l', 'o', ' ', 'w', 0x20AC, '!'})) << cut;
    EXPECT_EQ(decoder.Held(), 0u);
  }
  Utf8Decoder decoder;
  Units out;
  decoder.Decode(reinterpret_cast<const unsigned char*>("a\xE2\x82"), 3, out);
  EXPECT_EQ(out, Units{'a'});
  EXPECT_EQ(decoder.Held(), 2u);  // an unfinished sequence waits
}

TEST_F(TextStreamsTest, EncodeUtf8HandsOnEveryCharacterInBlocks) {
  Units text(100000, 0x20AC);
  text.push_back('z');
  std::string out;
  EXPECT_TRUE(ovratool::EncodeUtf8(text.data(), text.size(), [&](const char* data, size_t size) {
    out.append(data, size);
    return true;
  }));
  ASSERT_EQ(out.size(), 300001u);
  EXPECT_EQ(out.substr(299997), "\xE2\x82\xAC" "z");
  int calls = 0;
  EXPECT_FALSE(ovratool::EncodeUtf8(text.data(), text.size(), [&](const char*, size_t) {
    ++calls;
    return false;
  }));
  EXPECT_EQ(calls, 1);  // a failing sink stops the encoding
}

}  // namespace
