// The command-line helpers of the ovra program: option parsing, hexadecimal
// text, numbers and chunked input.
#include <stdio.h>
#if !defined(_WIN32)
#include <stdlib.h>
#include <unistd.h>
#endif

#include <string>
#include <vector>

#include "TestPlatform.h"
#include "ToolCommon.h"
#include "gtest/gtest.h"

namespace {

using ovratool::OptionSpec;
using ovratool::ParsedArgs;

const OptionSpec kSpecs[] = {{"key", 'k', true},        {"decode", 'd', false},
                             {"ignore", 'i', false},     {"iv", 0, true, "iv"},
                             {"decimal", 0, false},      {nullptr, 0, false}};

// Parses the words as a subcommand's arguments (the first is its name).
bool Parse(std::vector<std::string> words, ParsedArgs& args) {
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(&word[0]);
  return ovratool::ParseArgs("test", static_cast<int>(argv.size()), argv.data(), kSpecs, args);
}

TEST(ToolCommonTest, ParsesLongShortAndInlineValues) {
  ParsedArgs args;
  ASSERT_TRUE(Parse({"cmd", "--key", "00ff", "-d", "file", "--key=abcd"}, args));
  ASSERT_NE(args.Value("key"), nullptr);
  EXPECT_EQ(*args.Value("key"), "abcd");  // the last occurrence wins
  EXPECT_TRUE(args.Has("decode"));
  EXPECT_FALSE(args.help);
  EXPECT_EQ(args.operands, std::vector<std::string>{"file"});
}

TEST(ToolCommonTest, DashIsAnOperandAndDoubleDashEndsOptions) {
  ParsedArgs args;
  ASSERT_TRUE(Parse({"cmd", "-", "--", "--key", "-d"}, args));
  EXPECT_EQ(args.operands, (std::vector<std::string>{"-", "--key", "-d"}));
  EXPECT_FALSE(args.Has("key"));
}

TEST(ToolCommonTest, HelpIsRecognisedEverywhere) {
  ParsedArgs args;
  ASSERT_TRUE(Parse({"cmd", "file", "-h"}, args));
  EXPECT_TRUE(args.help);
  ParsedArgs longForm;
  ASSERT_TRUE(Parse({"cmd", "--help"}, longForm));
  EXPECT_TRUE(longForm.help);
}

TEST(ToolCommonTest, GroupsShortOptionsAndTakesAttachedValues) {
  ParsedArgs args;
  ASSERT_TRUE(Parse({"cmd", "-di", "-k00ff", "-dik", "abcd", "f"}, args));
  EXPECT_EQ(args.names, (std::vector<std::string>{"decode", "ignore", "key", "decode", "ignore",
                                                  "key"}));
  EXPECT_EQ(args.values[2], "00ff");
  EXPECT_EQ(args.values[5], "abcd");
  EXPECT_EQ(args.operands, std::vector<std::string>{"f"});
  ParsedArgs bad;
  EXPECT_FALSE(Parse({"cmd", "-dx"}, bad));  // one unknown letter spoils the group
  ParsedArgs missing;
  EXPECT_FALSE(Parse({"cmd", "-dk"}, missing));  // the value is missing
}

TEST(ToolCommonTest, LongNamesMayBeShortenedToAnUnsharedPrefix) {
  ParsedArgs args;
  ASSERT_TRUE(Parse({"cmd", "--k=00", "--ig", "--deco", "--deci", "--he"}, args));
  EXPECT_EQ(args.names, (std::vector<std::string>{"key", "ignore", "decode", "decimal"}));
  EXPECT_TRUE(args.help);
  ParsedArgs ambiguous;
  EXPECT_FALSE(Parse({"cmd", "--de"}, ambiguous));  // decode or decimal
}

TEST(ToolCommonTest, AcceptsAWordAfterASingleDashWhereDeclared) {
  ParsedArgs args;
  ASSERT_TRUE(Parse({"cmd", "-iv", "0011", "--iv=22"}, args));
  EXPECT_EQ(args.names, (std::vector<std::string>{"iv", "iv"}));
  EXPECT_EQ(args.values[0], "0011");
  ParsedArgs missing;
  EXPECT_FALSE(Parse({"cmd", "-iv"}, missing));
}

TEST(ToolCommonTest, QuotesNamesAsTheUsualToolsDo) {
  EXPECT_EQ(ovratool::Quote("a/b-c_d.txt"), "a/b-c_d.txt");
  EXPECT_EQ(ovratool::Quote("a b"), "'a b'");
  EXPECT_EQ(ovratool::Quote("it's"), "'it'\\''s'");
  EXPECT_EQ(ovratool::Quote("n\nl"), "$'n\\nl'");
  EXPECT_EQ(ovratool::Quote(""), "''");
}

TEST(ToolCommonTest, ReadsCountsOfUpTo18Digits) {
  unsigned long long n = 7;
  EXPECT_TRUE(ovratool::ParseCount("0", n));
  EXPECT_EQ(n, 0u);
  EXPECT_TRUE(ovratool::ParseCount("999999999999999999", n));
  EXPECT_EQ(n, 999999999999999999ull);
  EXPECT_FALSE(ovratool::ParseCount("1000000000000000000", n));
  EXPECT_FALSE(ovratool::ParseCount("", n));
  EXPECT_FALSE(ovratool::ParseCount("-1", n));
  EXPECT_FALSE(ovratool::ParseCount("12x", n));
}

TEST(ToolCommonTest, RefusesUnknownOptionsAndMissingOrUnwantedValues) {
  ParsedArgs a, b, c, d;
  EXPECT_FALSE(Parse({"cmd", "--frob"}, a));
  EXPECT_FALSE(Parse({"cmd", "-x"}, b));
  EXPECT_FALSE(Parse({"cmd", "--key"}, c));          // value missing at the end
  EXPECT_FALSE(Parse({"cmd", "--decode=yes"}, d));   // a flag takes no value
}

TEST(ToolCommonTest, OperandCountIsChecked) {
  ParsedArgs args;
  ASSERT_TRUE(Parse({"cmd", "a", "b"}, args));
  EXPECT_TRUE(ovratool::CheckOperandCount("test", args, 2));
  EXPECT_FALSE(ovratool::CheckOperandCount("test", args, 1));
}

TEST(ToolCommonTest, HexTextRoundTrips) {
  std::vector<unsigned char> bytes;
  ASSERT_TRUE(ovratool::ParseHex("00FFa5", bytes));
  EXPECT_EQ(bytes, (std::vector<unsigned char>{0x00, 0xFF, 0xA5}));
  EXPECT_EQ(ovratool::ToHex(bytes.data(), bytes.size()), "00ffa5");
  ASSERT_TRUE(ovratool::ParseHex("", bytes));
  EXPECT_TRUE(bytes.empty());
}

TEST(ToolCommonTest, BadHexTextIsRefused) {
  std::vector<unsigned char> bytes;
  EXPECT_FALSE(ovratool::ParseHex("abc", bytes));    // odd count
  EXPECT_FALSE(ovratool::ParseHex("0g", bytes));
  EXPECT_FALSE(ovratool::ParseHex("00 11", bytes));
  EXPECT_FALSE(ovratool::ParseHex("0x00", bytes));
}

TEST(ToolCommonTest, NumbersMustBeDecimalAndInRange) {
  long value = -1;
  EXPECT_TRUE(ovratool::ParseNumber("1024", 1, 1024, value));
  EXPECT_EQ(value, 1024);
  EXPECT_FALSE(ovratool::ParseNumber("0", 1, 1024, value));
  EXPECT_FALSE(ovratool::ParseNumber("1025", 1, 1024, value));
  EXPECT_FALSE(ovratool::ParseNumber("-5", 1, 1024, value));
  EXPECT_FALSE(ovratool::ParseNumber("12a", 1, 1024, value));
  EXPECT_FALSE(ovratool::ParseNumber("", 1, 1024, value));
  EXPECT_FALSE(ovratool::ParseNumber("99999999999999999999", 1, 1024, value));
  EXPECT_EQ(value, 1024);  // untouched by the failures
}

TEST(ToolCommonTest, InputReadsWholeChunksAndReportsMissingFiles) {
#if defined(_WIN32)
  const std::string folder = ovra_test::win::MakeTempFolder("ovra-toolcommon");
  ASSERT_FALSE(folder.empty());
  const std::string name = folder + "/input";
#else
  char pattern[] = "/tmp/ovra-toolcommon-XXXXXX";
  const int fd = mkstemp(pattern);
  ASSERT_GE(fd, 0);
  close(fd);
  const std::string name = pattern;
#endif
  std::string contents(100000, '\0');
  for (size_t i = 0; i < contents.size(); ++i) contents[i] = static_cast<char>(i * 7);
  FILE* file = fopen(name.c_str(), "wb");
  ASSERT_NE(file, nullptr);
  ASSERT_EQ(fwrite(contents.data(), 1, contents.size(), file), contents.size());
  ASSERT_EQ(fclose(file), 0);

  std::string all;
  EXPECT_TRUE(ovratool::ReadAll("test", name, all));
  EXPECT_EQ(all, contents);

  {
    ovratool::Input input;
    ASSERT_TRUE(input.Open("test", name));
    std::vector<unsigned char> chunk(65536);
    EXPECT_EQ(input.Read(chunk.data(), chunk.size()), 65536u);
    EXPECT_EQ(input.Read(chunk.data(), chunk.size()), 100000u - 65536u);
    EXPECT_EQ(input.Read(chunk.data(), chunk.size()), 0u);
    EXPECT_FALSE(input.Failed());
  }  // closed first: Windows removes no file that is still open
  ASSERT_EQ(remove(name.c_str()), 0);

  ovratool::Input missing;
  EXPECT_FALSE(missing.Open("test", name));
  ovratool::Input directory;
  EXPECT_FALSE(directory.Open("test", "/"));
#if defined(_WIN32)
  ovra_test::win::RemoveTree(folder);
#endif
}

}  // namespace
