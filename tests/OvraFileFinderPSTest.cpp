// Tests of the POSIX half of TFileFinder: one directory level expanded by the
// system and examined without following links - the record of each entry, the
// root pattern, the leading-dot rule, entries that vanish after the expansion,
// unreadable directories and sizes of 4 GiB and more. Every test runs in a
// fresh temporary folder.
#include "OvraFileFinder.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <set>
#include <string>

#include "TestBstr.h"
#include "TestFiles.h"

namespace {

using ovra_test::B;
using ovra_test::FileTest;
using ovra_test::MakeSparseFile;
using ovra_test::Narrow;
using ovra_test::RunUnprivileged;
using ovra_test::Unprivileged;
using ovra_test::WriteFile;

using FinderLevelTest = FileTest;

// The names of every entry of one level.
std::set<std::string> Level(const std::string& pattern) {
  std::set<std::string> names;
  TFileInfo info;
  void* handle = TFileFinder::FileFinderFind(B(pattern), info);
  if (handle == kInvalidHandleValue) return names;
  do names.insert(Narrow(info.name));
  while (TFileFinder::FileFinderFindNext(handle, info));
  TFileFinder::FileFinderClose(handle);
  return names;
}

TEST_F(FinderLevelTest, FirstEntryIsLoadedAndTheRestFollow) {
  ASSERT_TRUE(ovra_test::MakeDir("d"));
  ASSERT_TRUE(WriteFile("d/a", "1"));
  ASSERT_TRUE(WriteFile("d/b", "22"));
  ASSERT_TRUE(WriteFile("d/c", "333"));
  EXPECT_EQ(Level("d/*"), (std::set<std::string>{"a", "b", "c"}));
}

TEST_F(FinderLevelTest, RecordHoldsTheEntrysOwnData) {
  ASSERT_TRUE(ovra_test::MakeDir("d"));
  ASSERT_TRUE(WriteFile("d/file", "0123456789"));
  ASSERT_TRUE(TFile::SetLastWriteTime(B("d/file"), 987654321L));
  struct stat st;
  ASSERT_EQ(ovra_test::LStat("d/file", &st), 0);
  TFileInfo info;
  void* handle = TFileFinder::FileFinderFind(B("d/file"), info);
  ASSERT_NE(handle, kInvalidHandleValue);
  EXPECT_EQ(Narrow(info.name), "file");
  EXPECT_FALSE(info.isDirectory);
  EXPECT_EQ(info.size, 10u);
  EXPECT_EQ(info.lastWriteTime, 987654321);
  EXPECT_EQ(info.changeTime, st.st_ctime);
  EXPECT_FALSE(TFileFinder::FileFinderFindNext(handle, info));
  // Nothing more: the record still holds the last entry.
  EXPECT_EQ(Narrow(info.name), "file");
  TFileFinder::FileFinderClose(handle);
}

TEST_F(FinderLevelTest, LinksAreExaminedThemselves) {
  OVRA_REQUIRE_SYMLINKS();
  ASSERT_TRUE(ovra_test::MakeDir("d"));
  ASSERT_TRUE(ovra_test::MakeDir("target"));
  ASSERT_TRUE(ovra_test::MakeSymlink("../target", "d/dirlink"));
  ASSERT_TRUE(ovra_test::MakeSymlink("gone", "d/dangling"));
  TFileInfo info;
  void* handle = TFileFinder::FileFinderFind(B("d/*"), info);
  ASSERT_NE(handle, kInvalidHandleValue);
  int seen = 0;
  do {
    ++seen;
    EXPECT_FALSE(info.isDirectory) << Narrow(info.name);
    const std::string name = Narrow(info.name);
    EXPECT_EQ(info.size, name == "dirlink" ? 9u : 4u) << name;  // the link text's length
  } while (TFileFinder::FileFinderFindNext(handle, info));
  TFileFinder::FileFinderClose(handle);
  EXPECT_EQ(seen, 2);
}

TEST_F(FinderLevelTest, RootPatternReturnsTheRootItself) {
  // Under Wine "/" is the root of the POSIX file system (not of the current
  // drive), which Wine reports as a reparse point, that is as a link.
  OVRA_SKIP_UNDER_WINE("\"/\" is the POSIX root there, which Wine reports as a link");
  TFileInfo info;
  void* handle = TFileFinder::FileFinderFind(B("/"), info);
  ASSERT_NE(handle, kInvalidHandleValue);
  EXPECT_TRUE(info.name.IsEmpty());
  EXPECT_TRUE(info.isDirectory);
  EXPECT_FALSE(TFileFinder::FileFinderFindNext(handle, info));
  TFileFinder::FileFinderClose(handle);
}

TEST_F(FinderLevelTest, HiddenEntriesNeedAPatternBeginningWithADot) {
  ASSERT_TRUE(ovra_test::MakeDir("d"));
  ASSERT_TRUE(WriteFile("d/.hidden", "h"));
  ASSERT_TRUE(WriteFile("d/shown", "s"));
  EXPECT_EQ(Level("d/*"), (std::set<std::string>{"shown"}));
  EXPECT_EQ(Level("d/.*"), (std::set<std::string>{".", "..", ".hidden"}));
  EXPECT_EQ(Level("d/?hidden"), (std::set<std::string>{}));
}

TEST_F(FinderLevelTest, PatternCharactersAreTheSystems) {
  ASSERT_TRUE(ovra_test::MakeDir("d"));
  for (const char* name : {"a1", "a2", "b1", "a[1]"}) ASSERT_TRUE(WriteFile(std::string("d/") + name, "x"));
  EXPECT_EQ(Level("d/a?"), (std::set<std::string>{"a1", "a2"}));
  EXPECT_EQ(Level("d/[ab]1"), (std::set<std::string>{"a1", "b1"}));
  EXPECT_EQ(Level("d/a\\[1\\]"), (std::set<std::string>{"a[1]"}));
  if (ovra_test::kWindows) {
    // Windows takes no "*" in a name; a quoted one names nothing.
    EXPECT_EQ(Level("d/a\\*"), (std::set<std::string>{}));
  } else {
    ASSERT_TRUE(WriteFile("d/x*y", "x"));
    EXPECT_EQ(Level("d/x\\*y"), (std::set<std::string>{"x*y"}));
  }
}

TEST_F(FinderLevelTest, EntriesThatVanishAfterTheExpansionAreSkipped) {
  ASSERT_TRUE(ovra_test::MakeDir("d"));
  for (int i = 0; i < 10; ++i) ASSERT_TRUE(WriteFile("d/f" + std::to_string(i), "x"));
  TFileInfo info;
  void* handle = TFileFinder::FileFinderFind(B("d/*"), info);
  ASSERT_NE(handle, kInvalidHandleValue);
  const std::string first = Narrow(info.name);
  // Every other entry disappears before it is examined; one is replaced by a
  // directory of the same name, which must be examined as it is now.
  std::string replaced;
  for (int i = 0; i < 10; ++i) {
    const std::string name = "f" + std::to_string(i);
    if (name == first) continue;
    ASSERT_EQ(unlink(("d/" + name).c_str()), 0);
    if (replaced.empty()) {
      replaced = name;
      ASSERT_TRUE(ovra_test::MakeDir(("d/" + name).c_str()));
    }
  }
  ASSERT_TRUE(TFileFinder::FileFinderFindNext(handle, info));
  EXPECT_EQ(Narrow(info.name), replaced);
  EXPECT_TRUE(info.isDirectory);
  EXPECT_FALSE(TFileFinder::FileFinderFindNext(handle, info));
  TFileFinder::FileFinderClose(handle);
}

TEST_F(FinderLevelTest, LevelWhoseEntriesAllVanishedHasNoHandle) {
  TFileInfo info;
  info.name = B("untouched");
  EXPECT_EQ(TFileFinder::FileFinderFind(B("nothing-here-*"), info), kInvalidHandleValue);
  EXPECT_EQ(TFileFinder::FileFinderFind(B("missing/dir/*"), info), kInvalidHandleValue);
  EXPECT_EQ(TFileFinder::FileFinderFind(TBstr(), info), kInvalidHandleValue);
  const unsigned short wide[] = {'*', 0x100, 0};
  EXPECT_EQ(TFileFinder::FileFinderFind(TBstr(wide), info), kInvalidHandleValue);
  EXPECT_EQ(Narrow(info.name), "untouched");
}

TEST_F(FinderLevelTest, NullHandleIsIgnored) {
  TFileInfo info;
  TFileFinder::FileFinderClose(nullptr);
  EXPECT_FALSE(TFileFinder::FileFinderFindNext(nullptr, info));
}

TEST_F(FinderLevelTest, UnreadableDirectoryHasNoEntries) {
  OVRA_SKIP_PERMISSION_BITS();
  ASSERT_TRUE(ovra_test::MakeDir("locked"));
  ASSERT_TRUE(WriteFile("locked/inside", "x"));
  ASSERT_EQ(chmod("locked", 0), 0);
  const std::string pattern = At("locked/*");
  const std::string exact = At("locked/inside");
  const Unprivileged outcome = RunUnprivileged([pattern, exact] {
    TFileInfo info;
    return TFileFinder::FileFinderFind(B(pattern), info) == kInvalidHandleValue &&
           TFileFinder::FileFinderFind(B(exact), info) == kInvalidHandleValue;
  });
  if (outcome == Unprivileged::kUnavailable)
    GTEST_SKIP() << "running as root and cannot drop privileges to check permissions";
  EXPECT_EQ(outcome, Unprivileged::kPassed);
}

// A search-only directory (no permission to list it) can still be looked
// into by exact name: the entry is examined and reported.
TEST_F(FinderLevelTest, ExactNameInASearchOnlyDirectoryIsReported) {
  OVRA_SKIP_PERMISSION_BITS();
  ASSERT_TRUE(ovra_test::MakeDir("passage"));
  ASSERT_TRUE(WriteFile("passage/inside", "12345"));
  ASSERT_EQ(chmod("passage", 0111), 0);
  const std::string exact = At("passage/inside");
  const Unprivileged outcome = RunUnprivileged([exact] {
    TFileInfo info;
    void* handle = TFileFinder::FileFinderFind(B(exact), info);
    if (handle == kInvalidHandleValue) return false;
    const bool ok = Narrow(info.name) == "inside" && info.size == 5u && !info.isDirectory;
    TFileFinder::FileFinderClose(handle);
    return ok;
  });
  chmod("passage", 0755);
  if (outcome == Unprivileged::kUnavailable)
    GTEST_SKIP() << "running as root and cannot drop privileges to check permissions";
  EXPECT_EQ(outcome, Unprivileged::kPassed);
}

// Entries of one level that lie in different directories (a pattern with a
// wildcard in its directory part) are each examined in their own directory.
TEST_F(FinderLevelTest, EntriesOfDifferentDirectoriesAreEachExaminedInTheirOwn) {
  const char* const kDirectories[] = {"a1", "a2", "a3"};
  std::set<std::string> expected;
  for (int i = 0; i < 3; ++i) {
    ASSERT_TRUE(ovra_test::MakeDir(kDirectories[i]));
    // Same names everywhere, with sizes that tell the directories apart.
    for (int f = 0; f < 3; ++f) {
      const std::string name = std::string(kDirectories[i]) + "/f" + std::to_string(f);
      ASSERT_TRUE(WriteFile(name, std::string(static_cast<size_t>(10 * i + f + 1), 'x')));
      expected.insert("f" + std::to_string(f) + ":" + std::to_string(10 * i + f + 1));
    }
  }
  ASSERT_TRUE(ovra_test::MakeDir("a3/f3"));
  expected.insert("f3:dir");
  std::set<std::string> seen;
  TFileInfo info;
  void* handle = TFileFinder::FileFinderFind(B("a*/f*"), info);
  ASSERT_NE(handle, kInvalidHandleValue);
  do {
    seen.insert(Narrow(info.name) + ":" +
                (info.isDirectory ? std::string("dir") : std::to_string(info.size)));
  } while (TFileFinder::FileFinderFindNext(handle, info));
  TFileFinder::FileFinderClose(handle);
  EXPECT_EQ(seen, expected);
}

TEST_F(FinderLevelTest, SizeOfFourGiBAndMoreIsCappedNotWrapped) {
  if (!MakeSparseFile("big", 0x100000000LL + 3))
    GTEST_SKIP() << "the file system here does not allow a file of 4 GiB";
  TFileInfo info;
  void* handle = TFileFinder::FileFinderFind(B("big"), info);
  ASSERT_NE(handle, kInvalidHandleValue);
  EXPECT_EQ(info.size, kFileSizeCeiling);
  TFileFinder::FileFinderClose(handle);
}

TEST_F(FinderLevelTest, LongNamesAreWidenedWhole) {
  ASSERT_TRUE(ovra_test::MakeDir("d"));
  const std::string longName(255, 'n');  // beyond the stack work area
  const std::string shortName(200, 's');
  ASSERT_TRUE(WriteFile("d/" + longName, "x"));
  ASSERT_TRUE(WriteFile("d/" + shortName, "x"));
  EXPECT_EQ(Level("d/*"), (std::set<std::string>{longName, shortName}));
}

TEST_F(FinderLevelTest, AllocationFailuresGiveNoHandleOrSkipAndNeverLeak) {
  ASSERT_TRUE(ovra_test::MakeDir("d"));
  ASSERT_TRUE(WriteFile("d/only", "x"));
  ovra_test::SweepAllocationFailures([](ovra_test::FailurePoint& point) {
    const TBstr pattern = B("d/*");
    TFileInfo info;
    point.Arm();
    void* handle = TFileFinder::FileFinderFind(pattern, info);
    point.Disarm();
    if (handle != kInvalidHandleValue) {
      EXPECT_EQ(Narrow(info.name), "only");
      TFileFinder::FileFinderClose(handle);
    }
  });
}

}  // namespace
