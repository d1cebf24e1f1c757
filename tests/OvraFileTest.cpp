// Tests of the portable half of TFile: the closed/open state and the checks
// made before the system is asked, the path text utilities (CanonicalizeSpec's
// single pass included, against a model written from its rules) and
// CreatePath's recursion. Every test runs in a fresh temporary folder.
#include "OvraFile.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <random>
#include <string>

#include "TestBstr.h"
#include "TestFiles.h"

namespace {

using ovra_test::B;
using ovra_test::Exists;
using ovra_test::FailMode;
using ovra_test::FileSweepTest;
using ovra_test::FileTest;
using ovra_test::IsDirectory;
using ovra_test::kWindows;
using ovra_test::Narrow;
using ovra_test::ReadFile;
using ovra_test::RunUnprivileged;
using ovra_test::SweepAllocationFailures;
using ovra_test::SweepBothModes;
using ovra_test::SweepRun;
using ovra_test::SweepUntilSuccess;
using ovra_test::FailurePoint;
using ovra_test::Unprivileged;
using ovra_test::WriteFile;

using TFileStateTest = FileTest;
using PathTest = FileTest;
using CreatePathTest = FileTest;

// ---------------------------------------------------------------------------
// Open and the closed/open state
// ---------------------------------------------------------------------------

TEST_F(TFileStateTest, NewObjectIsClosedWithAnEmptySpec) {
  TFile file;
  EXPECT_FALSE(file.IsOpen());
  EXPECT_TRUE(file.GetFileSpec().IsEmpty());
}

TEST_F(TFileStateTest, CreateWithReadOnlyModeIsRefusedAndCreatesNothing) {
  TFile file;
  EXPECT_FALSE(file.Open(B("new.txt"), TFile::kOpenRead, true));
  EXPECT_FALSE(file.Open(B("new.txt"), 0, true));
  EXPECT_FALSE(file.IsOpen());
  EXPECT_FALSE(Exists("new.txt"));
}

TEST_F(TFileStateTest, CreateWithReadOnlyModeLeavesAnExistingFileUntouched) {
  ASSERT_TRUE(WriteFile("old.txt", "contents"));
  TFile file;
  EXPECT_FALSE(file.Open(B("old.txt"), TFile::kOpenRead, true));
  EXPECT_EQ(ReadFile("old.txt"), "contents");
}

TEST_F(TFileStateTest, ModeZeroWithoutCreateOpensAnExistingFileForReading) {
  ASSERT_TRUE(WriteFile("f.txt", "hello"));
  TFile file;
  ASSERT_TRUE(file.Open(B("f.txt"), 0, false));
  EXPECT_TRUE(file.IsOpen());
  EXPECT_EQ(Narrow(file.GetFileSpec()), "f.txt");
  char buffer[8] = {};
  EXPECT_EQ(file.Read(buffer, sizeof buffer), 5u);
  EXPECT_STREQ(buffer, "hello");
  // Read-only: nothing can be written.
  EXPECT_EQ(file.Write("x", 1), 0u);
  EXPECT_TRUE(file.Close());
  EXPECT_EQ(ReadFile("f.txt"), "hello");
}

TEST_F(TFileStateTest, BitsOtherThanWriteAreIgnored) {
  ASSERT_TRUE(WriteFile("f.txt", "abc"));
  TFile file;
  ASSERT_TRUE(file.Open(B("f.txt"), 0xFFFFFFFDu, false));  // every bit but kOpenWrite
  EXPECT_EQ(file.Write("x", 1), 0u);
  file.Close();
  EXPECT_FALSE(file.Open(B("g.txt"), 0xFFFFFFFDu, true));
  EXPECT_FALSE(Exists("g.txt"));
  ASSERT_TRUE(file.Open(B("g.txt"), 0xFFFFFFFFu, true));
  EXPECT_EQ(file.Write("x", 1), 1u);
}

TEST_F(TFileStateTest, OpenOnAnOpenObjectFailsAndTheFirstFileStaysOpen) {
  ASSERT_TRUE(WriteFile("first.txt", "first"));
  ASSERT_TRUE(WriteFile("second.txt", "second"));
  TFile file;
  ASSERT_TRUE(file.Open(B("first.txt"), 0, false));
  EXPECT_FALSE(file.Open(B("second.txt"), 0, false));
  EXPECT_FALSE(file.Open(B("third.txt"), TFile::kOpenWrite, true));
  EXPECT_FALSE(Exists("third.txt"));
  EXPECT_TRUE(file.IsOpen());
  EXPECT_EQ(Narrow(file.GetFileSpec()), "first.txt");
  char buffer[16] = {};
  EXPECT_EQ(file.Read(buffer, sizeof buffer), 5u);
  EXPECT_STREQ(buffer, "first");
}

TEST_F(TFileStateTest, EmptySpecIsRefused) {
  TFile file;
  EXPECT_FALSE(file.Open(TBstr(), 0, false));
  EXPECT_FALSE(file.Open(TBstr(), TFile::kOpenWrite, true));
  EXPECT_FALSE(file.IsOpen());
}

TEST_F(TFileStateTest, MissingFileWithoutCreateFailsAndLeavesTheObjectClosed) {
  TFile file;
  EXPECT_FALSE(file.Open(B("missing.txt"), 0, false));
  EXPECT_FALSE(file.Open(B("missing.txt"), TFile::kOpenWrite, false));
  EXPECT_FALSE(file.IsOpen());
  EXPECT_TRUE(file.GetFileSpec().IsEmpty());
  EXPECT_FALSE(Exists("missing.txt"));
}

TEST_F(TFileStateTest, NameThatWouldChangeOnItsWayToTheSystemNamesNoFile) {
  // "a", zero, "b" would reach the system as "a"; on POSIX systems "a" U+0100
  // would reach it as "a?" (Windows takes that name as it is, and no "?").
  ASSERT_TRUE(WriteFile("a", "decoy"));
  const unsigned short wide[] = {'a', 0x100, 0};
  const unsigned short inner[] = {'a', 0, 'b'};
  TFile file;
  if (!kWindows) {
    ASSERT_TRUE(WriteFile("a?", "decoy"));
    EXPECT_FALSE(file.Open(TBstr(wide), 0, false));
    EXPECT_FALSE(file.Open(TBstr(wide), TFile::kOpenWrite, true));
    EXPECT_EQ(ReadFile("a?"), "decoy");
  }
  EXPECT_FALSE(file.Open(TBstr(inner, 3), 0, false));
  EXPECT_FALSE(file.Open(TBstr(inner, 3), TFile::kOpenWrite, true));
  EXPECT_FALSE(file.IsOpen());
  EXPECT_EQ(ReadFile("a"), "decoy");
}

#if defined(_WIN32)
TEST_F(TFileStateTest, CharactersAbove255ReachTheWindowsSystemUnchanged) {
  // U+0100 and U+263A: "a\xC4\x80\xE2\x98\xBA" in UTF-8.
  const unsigned short wide[] = {'a', 0x100, 0x263A, 0};
  TFile file;
  ASSERT_TRUE(file.Open(TBstr(wide), TFile::kOpenWrite, true));
  EXPECT_EQ(file.Write("wide", 4), 4u);
  EXPECT_TRUE(file.Close());
  EXPECT_EQ(ovra_test::win::SizeOf("a\xC4\x80\xE2\x98\xBA"), 4);
  ASSERT_TRUE(file.Open(TBstr(wide), 0, false));
  char buffer[8] = {};
  EXPECT_EQ(file.Read(buffer, sizeof buffer), 4u);
  EXPECT_STREQ(buffer, "wide");
}
#endif

TEST_F(TFileStateTest, NamesWithBlanksAndNonAsciiBytesReachTheSystemUnchanged) {
#if defined(_WIN32)
  // Windows takes no control character in a name and drops a final blank.
  const std::string names[] = {"with blank.txt", " lead", "caf\xC3\xA9.txt", "latin1-\xE9",
                               "bytes-\xFF\x80"};
#else
  const std::string names[] = {"with blank.txt", " lead and trail ", "caf\xC3\xA9.txt",
                               "latin1-\xE9", "bytes-\xFF\x80\x01"};
#endif
  for (const std::string& name : names) {
    TFile file;
    ASSERT_TRUE(file.Open(B(name), TFile::kOpenWrite, true)) << name;
    EXPECT_EQ(file.Write(name.data(), static_cast<unsigned>(name.size())), name.size());
    EXPECT_TRUE(file.Close());
    EXPECT_EQ(ReadFile(name), name);
  }
}

TEST_F(TFileStateTest, CloseOfAClosedObjectFails) {
  TFile file;
  EXPECT_FALSE(file.Close());
  ASSERT_TRUE(file.Open(B("f"), TFile::kOpenWrite, true));
  EXPECT_TRUE(file.Close());
  EXPECT_FALSE(file.IsOpen());
  EXPECT_TRUE(file.GetFileSpec().IsEmpty());
  EXPECT_FALSE(file.Close());
}

TEST_F(TFileStateTest, ClosedObjectCanBeOpenedAgain) {
  ASSERT_TRUE(WriteFile("a", "A"));
  ASSERT_TRUE(WriteFile("b", "B"));
  TFile file;
  ASSERT_TRUE(file.Open(B("a"), 0, false));
  ASSERT_TRUE(file.Close());
  ASSERT_TRUE(file.Open(B("b"), 0, false));
  char c = 0;
  EXPECT_EQ(file.Read(&c, 1), 1u);
  EXPECT_EQ(c, 'B');
  EXPECT_EQ(Narrow(file.GetFileSpec()), "b");
}

TEST_F(TFileStateTest, DestructorClosesAndWritesBufferedData) {
  {
    TFile file;
    ASSERT_TRUE(file.Open(B("f"), TFile::kOpenWrite, true));
    EXPECT_EQ(file.Write("buffered", 8), 8u);
  }
  EXPECT_EQ(ReadFile("f"), "buffered");
}

TEST_F(TFileStateTest, EveryMemberFailsOnAClosedObject) {
  TFile file;
  char buffer[4];
  EXPECT_EQ(file.Read(buffer, 4), 0u);
  EXPECT_EQ(file.Write("abcd", 4), 0u);
  EXPECT_FALSE(file.Flush());
  EXPECT_EQ(file.GetPosition(), 0u);
  EXPECT_FALSE(file.SetPosition(0, 0));
  EXPECT_EQ(file.GetLength(), 0u);
  EXPECT_FALSE(file.SetLength(0));
  EXPECT_FALSE(file.Close());
}

TEST_F(TFileStateTest, ReadWithANullBufferReturnsZeroWithoutTouchingTheFile) {
  ASSERT_TRUE(WriteFile("f", "0123456789"));
  TFile file;
  ASSERT_TRUE(file.Open(B("f"), 0, false));
  EXPECT_EQ(file.Read(nullptr, 5), 0u);
  EXPECT_EQ(file.GetPosition(), 0u);
  char buffer[3] = {};
  EXPECT_EQ(file.Read(buffer, 2), 2u);
  EXPECT_STREQ(buffer, "01");
}

TEST_F(TFileStateTest, WriteWithANullBufferReturnsZeroWithoutTouchingTheFile) {
  ASSERT_TRUE(WriteFile("f", "0123456789"));
  TFile file;
  ASSERT_TRUE(file.Open(B("f"), TFile::kOpenWrite, false));
  EXPECT_EQ(file.Write(nullptr, 5), 0u);
  EXPECT_EQ(file.GetPosition(), 0u);
  EXPECT_TRUE(file.Close());
  EXPECT_EQ(ReadFile("f"), "0123456789");
}

TEST_F(TFileStateTest, OriginsOtherThanTheSystemsThreeAreRefused) {
  ASSERT_TRUE(WriteFile("f", "0123456789"));
  TFile file;
  ASSERT_TRUE(file.Open(B("f"), 0, false));
  ASSERT_TRUE(file.SetPosition(4, 0));
  EXPECT_FALSE(file.SetPosition(0, 3));
  EXPECT_FALSE(file.SetPosition(1, 0xFFFFFFFFu));
  EXPECT_FALSE(file.SetPosition(1, 0x80000001u));
  EXPECT_EQ(file.GetPosition(), 4u);
}

TEST_F(TFileStateTest, OpenSurvivesEveryAllocationFailureWithoutLeaking) {
  ASSERT_TRUE(WriteFile("file.txt", "x"));
  SweepAllocationFailures([](FailurePoint& point) {
    TFile file;
    const TBstr spec = B("file.txt");
    point.Arm();
    const bool opened = file.Open(spec, 0, false);
    point.Disarm();
    // Either opened properly, with its spec, or refused and closed.
    if (opened) {
      EXPECT_TRUE(file.IsOpen());
      EXPECT_EQ(Narrow(file.GetFileSpec()), "file.txt");
    } else {
      EXPECT_FALSE(file.IsOpen());
      EXPECT_TRUE(file.GetFileSpec().IsEmpty());
    }
  });
}

// ---------------------------------------------------------------------------
// Path text utilities
// ---------------------------------------------------------------------------

std::string Add(const std::string& s) { return Narrow(TFile::AddTrailingSeparator(B(s))); }
std::string Strip(const std::string& s) { return Narrow(TFile::RemoveTrailingSeparator(B(s))); }
std::string Join(const std::string& d, const std::string& n) {
  return Narrow(TFile::AppendFileNameToSpec(B(d), B(n)));
}
std::string DirOf(const std::string& s) { return Narrow(TFile::DirSpecFromFullSpec(B(s))); }
std::string NameOf(const std::string& s) { return Narrow(TFile::FileNameFromFullSpec(B(s))); }
std::string Canon(const std::string& s) { return Narrow(TFile::CanonicalizeSpec(B(s))); }

TEST_F(PathTest, SeparatorIsTheSlash) { EXPECT_EQ(TFile::kDirectorySeparator, '/'); }

TEST_F(PathTest, AddTrailingSeparator) {
  EXPECT_EQ(Add(""), "");
  EXPECT_EQ(Add("a"), "a/");
  EXPECT_EQ(Add("a/"), "a/");
  EXPECT_EQ(Add("/"), "/");
  EXPECT_EQ(Add("a/b"), "a/b/");
  EXPECT_EQ(Add("a\\"), "a\\/");  // a backslash is an ordinary character
}

TEST_F(PathTest, RemoveTrailingSeparator) {
  EXPECT_EQ(Strip("a//"), "a");
  EXPECT_EQ(Strip("/"), "");
  EXPECT_EQ(Strip("///"), "");
  EXPECT_EQ(Strip("a"), "a");
  EXPECT_EQ(Strip(""), "");
  EXPECT_EQ(Strip("/a/b/"), "/a/b");
  EXPECT_EQ(Strip("a\\"), "a\\");
}

TEST_F(PathTest, AppendFileNameToSpec) {
  EXPECT_EQ(Join("", "f"), "f");
  EXPECT_EQ(Join("d", "f"), "d/f");
  EXPECT_EQ(Join("d/", "f"), "d/f");
  EXPECT_EQ(Join("/", "f"), "/f");
  EXPECT_EQ(Join("d", ""), "d/");
  EXPECT_EQ(Join("", ""), "");
  EXPECT_EQ(Join("d//", "f"), "d//f");
}

TEST_F(PathTest, DirSpecFromFullSpec) {
  EXPECT_EQ(DirOf("/x"), "/");
  EXPECT_EQ(DirOf("x"), "");
  EXPECT_EQ(DirOf("a/b/c"), "a/b/");
  EXPECT_EQ(DirOf("a/b/"), "a/b/");
  EXPECT_EQ(DirOf(""), "");
  EXPECT_EQ(DirOf("a\\b"), "");
}

TEST_F(PathTest, FileNameFromFullSpec) {
  EXPECT_EQ(NameOf("a/b.txt"), "b.txt");
  EXPECT_EQ(NameOf("b.txt"), "b.txt");
  EXPECT_EQ(NameOf("a/"), "");
  EXPECT_EQ(NameOf("/"), "");
  EXPECT_EQ(NameOf(""), "");
  EXPECT_EQ(NameOf("/a/b/c d"), "c d");
}

TEST_F(PathTest, UtilitiesLeaveTheirArgumentUnchanged) {
  const TBstr spec = B("a/b/../c/");
  TFile::AddTrailingSeparator(spec);
  TFile::RemoveTrailingSeparator(spec);
  TFile::AppendFileNameToSpec(spec, spec);
  TFile::DirSpecFromFullSpec(spec);
  TFile::FileNameFromFullSpec(spec);
  TFile::CanonicalizeSpec(spec);
  EXPECT_EQ(Narrow(spec), "a/b/../c/");
}

TEST_F(PathTest, CanonicalizeRemovesSingleDotComponents) {
  EXPECT_EQ(Canon("a/./b"), "a/b");
  EXPECT_EQ(Canon("a/."), "a/");
  EXPECT_EQ(Canon("."), "");
  EXPECT_EQ(Canon("./a"), "a");
  EXPECT_EQ(Canon("/./a"), "/a");
  EXPECT_EQ(Canon("a/././b"), "a/b");
  EXPECT_EQ(Canon("./"), "");
  EXPECT_EQ(Canon("a/./"), "a/");
}

TEST_F(PathTest, CanonicalizeRemovesDotDotWithThePreviousComponent) {
  EXPECT_EQ(Canon("/a/b/../c"), "/a/c");
  EXPECT_EQ(Canon("/a/.."), "/");
  EXPECT_EQ(Canon("a/b/.."), "a/");
  EXPECT_EQ(Canon("a/b/../"), "a/");
  EXPECT_EQ(Canon("long/name/../x"), "long/x");
  EXPECT_EQ(Canon("a/.."), "");
}

TEST_F(PathTest, CanonicalizeEmptiesAPathThatClimbsAboveItsStart) {
  EXPECT_EQ(Canon("../a"), "");
  EXPECT_EQ(Canon("/../a"), "");
  EXPECT_EQ(Canon(".."), "");
  EXPECT_EQ(Canon("/.."), "");
}

TEST_F(PathTest, CanonicalizeKeepsASecondDotDotMovedInFrontOfTheScan) {
  EXPECT_EQ(Canon("a/b/../../c"), "a/../c");
  EXPECT_EQ(Canon("/a/b/../../c"), "/a/../c");
}

TEST_F(PathTest, CanonicalizeLeavesNamesWithDotsAndRepeatedSeparators) {
  EXPECT_EQ(Canon("a/.hidden"), "a/.hidden");
  EXPECT_EQ(Canon("a/..x"), "a/..x");
  EXPECT_EQ(Canon("a.txt"), "a.txt");
  EXPECT_EQ(Canon("a/b.c/d"), "a/b.c/d");
  EXPECT_EQ(Canon("a//b"), "a//b");
  EXPECT_EQ(Canon("a/..."), "a/...");
  EXPECT_EQ(Canon(".profile"), ".profile");
  EXPECT_EQ(Canon(""), "");
  EXPECT_EQ(Canon("x.."), "x..");
}

// CanonicalizeSpec's rules written out over a std::string, step by step, as
// an independent model for the random comparison below.
std::string CanonicalizeModel(std::string s) {
  size_t p = s.find('.');
  while (p != std::string::npos) {
    if (p > 0 && s[p - 1] != '/') {
      p = s.find('.', p + 1);
    } else if (p + 1 == s.size() || s[p + 1] == '/') {
      s.erase(p, 2);
      p = s.find('.', p);
    } else if (s[p + 1] != '.') {
      p = s.find('.', p + 1);
    } else if (p + 2 != s.size() && s[p + 2] != '/') {
      p = s.find('.', p + 1);
    } else if (p < 2) {
      return std::string();
    } else {
      size_t k = p - 1;
      while (k > 0 && s[k - 1] != '/') --k;
      s.erase(k, p - k + 3);
      p = s.find('.', p);
    }
  }
  return s;
}

TEST_F(PathTest, CanonicalizeMatchesItsRulesOnRandomPaths) {
  std::mt19937 random(1234);
  const char alphabet[] = {'a', 'b', '.', '.', '/', '/', 'x'};
  for (int i = 0; i < 20000; ++i) {
    std::string spec;
    const int length = static_cast<int>(random() % 14);
    for (int j = 0; j < length; ++j) spec.push_back(alphabet[random() % sizeof alphabet]);
    ASSERT_EQ(Canon(spec), CanonicalizeModel(spec)) << "spec '" << spec << "'";
  }
}

TEST_F(PathTest, CanonicalizeNeverConsultsTheFileSystem) {
  OVRA_REQUIRE_SYMLINKS();
  // "link" points elsewhere, yet ".." removes it textually.
  ASSERT_TRUE(ovra_test::MakeDir("real"));
  ASSERT_TRUE(ovra_test::MakeDir("real/sub"));
  ASSERT_TRUE(ovra_test::MakeSymlink("real/sub", "link"));
  EXPECT_EQ(Canon("link/../f"), "f");
  EXPECT_EQ(Canon("missing/./x/../y"), "missing/y");
}

TEST_F(PathTest, UtilitiesGiveTheRightTextOrEmptyUnderAllocationFailure) {
  struct Case {
    TBstr (*op)(const TBstr&);
    const char* input;
    const char* expected;
  };
  const Case cases[] = {
      {TFile::AddTrailingSeparator, "a/b", "a/b/"},
      {TFile::RemoveTrailingSeparator, "a/b//", "a/b"},
      {TFile::DirSpecFromFullSpec, "a/b/c", "a/b/"},
      {TFile::FileNameFromFullSpec, "a/b/c", "c"},
      {TFile::CanonicalizeSpec, "/a/./b/../c/.", "/a/c/"},
  };
  for (const Case& c : cases) {
    SweepAllocationFailures([&c](FailurePoint& point) {
      const TBstr input = B(c.input);
      point.Arm();
      const TBstr result = c.op(input);
      point.Disarm();
      const std::string text = Narrow(result);
      EXPECT_TRUE(text == c.expected || text.empty()) << c.input << " gave " << text;
    });
  }
  SweepAllocationFailures([](FailurePoint& point) {
    const TBstr dir = B("dir");
    const TBstr name = B("name");
    point.Arm();
    const TBstr result = TFile::AppendFileNameToSpec(dir, name);
    point.Disarm();
    const std::string text = Narrow(result);
    EXPECT_TRUE(text == "dir/name" || text.empty()) << text;
  });
}

// ---------------------------------------------------------------------------
// CreatePath
// ---------------------------------------------------------------------------

TEST_F(CreatePathTest, CreatesEveryMissingLevel) {
  EXPECT_TRUE(TFile::CreatePath(B("x/y/z")));
  EXPECT_TRUE(IsDirectory("x"));
  EXPECT_TRUE(IsDirectory("x/y"));
  EXPECT_TRUE(IsDirectory("x/y/z"));
}

TEST_F(CreatePathTest, TrailingSeparatorsAndAbsolutePathsAreAccepted) {
  EXPECT_TRUE(TFile::CreatePath(B("p/q/")));
  EXPECT_TRUE(IsDirectory("p/q"));
  EXPECT_TRUE(TFile::CreatePath(B(At("abs/one/two//"))));
  EXPECT_TRUE(IsDirectory("abs/one/two"));
}

TEST_F(CreatePathTest, ExistingPathSucceedsAndChangesNothing) {
  ASSERT_TRUE(ovra_test::MakeDir("e", 0700));
  ASSERT_TRUE(WriteFile("e/keep", "k"));
  EXPECT_TRUE(TFile::CreatePath(B("e")));
  EXPECT_EQ(ReadFile("e/keep"), "k");
}

TEST_F(CreatePathTest, DeepPathIsCreatedLevelByLevel) {
  std::string spec = "deep";
  for (int i = 0; i < 60; ++i) spec += "/d" + std::to_string(i);
  EXPECT_TRUE(TFile::CreatePath(B(spec)));
  EXPECT_TRUE(IsDirectory(spec));
}

TEST_F(CreatePathTest, EmptySpecFails) {
  EXPECT_FALSE(TFile::CreatePath(TBstr()));
  EXPECT_FALSE(TFile::CreatePath(B("/")));
}

TEST_F(CreatePathTest, PlainFileAsAncestorFailsAndCreatesNothingBelowIt) {
  // Creating "x" itself "succeeds" (an existing entry counts), but nothing can
  // be made inside a plain file.
  ASSERT_TRUE(WriteFile("x", "plain"));
  EXPECT_FALSE(TFile::CreatePath(B("x/y/z")));
  EXPECT_EQ(ReadFile("x"), "plain");
}

TEST_F(CreatePathTest, UnwritableAncestorFailsAndCreatesNothing) {
  OVRA_SKIP_PERMISSION_BITS();
  ASSERT_TRUE(ovra_test::MakeDir("x", 0555));
  ASSERT_EQ(chmod("x", 0555), 0);
  // Root ignores permission bits; the check then runs as an ordinary user.
  const std::string base = Folder();
  const Unprivileged outcome = RunUnprivileged([base] {
    const std::string spec = base + "/x/y/z";
    return !TFile::CreatePath(B(spec)) && !Exists(base + "/x/y");
  });
  if (outcome == Unprivileged::kUnavailable)
    GTEST_SKIP() << "running as root and cannot drop privileges to check permissions";
  EXPECT_EQ(outcome, Unprivileged::kPassed);
  EXPECT_FALSE(Exists("x/y"));
}

TEST_F(CreatePathTest, MissingRelativeStartIsCreatedToo) {
  EXPECT_TRUE(TFile::CreatePath(B("./new/dir")));
  EXPECT_TRUE(IsDirectory("new/dir"));
}

TEST_F(CreatePathTest, NameThatWouldChangeOnItsWayToTheSystemCreatesNothing) {
  const unsigned short inner[] = {'n', 0, 'x', '/', 'd'};
  EXPECT_FALSE(TFile::CreatePath(TBstr(inner, 5)));
  EXPECT_FALSE(Exists("n"));
  if (kWindows) return;  // Windows takes U+0100 as it is
  const unsigned short wide[] = {'n', 0x100, '/', 'd', 0};
  EXPECT_FALSE(TFile::CreatePath(TBstr(wide)));
  EXPECT_FALSE(Exists("n?"));
}

// --- Allocation failures ---------------------------------------------------
// Each operation runs with its 1st, 2nd, ... allocation failing, alone and
// with every later one (AllocSweep.h), until it goes through; every run must
// give the documented out-of-memory result and leak nothing. The N each sweep
// reaches is printed ("[ SWEEP    ]").

class AllocSweepFile : public FileSweepTest {};

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
  // On Windows a name reaches the system as the TBstr's own units: renaming,
  // removing and stamping allocate nothing there.
  const bool mayNotAllocate = kWindows;
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
  }, mayNotAllocate);
  SweepBothModes("TFile::Remove", [&](SweepRun& run) {
    ASSERT_TRUE(ovra_test::WriteFile(At("victim"), "x"));
    const TBstr spec = B(At("victim"));
    run.Arm();
    const bool removed = TFile::Remove(spec);
    EXPECT_EQ(removed, !run.Disarm());
    EXPECT_EQ(Exists(At("victim")), !removed);
  }, mayNotAllocate);
  SweepBothModes("TFile::CreateDirectory", [&](SweepRun& run) {
    const TBstr spec = B(At("dir/"));
    run.Arm();
    const bool created = TFile::CreateDirectory(spec);
    EXPECT_EQ(created, !run.Disarm());
    EXPECT_EQ(IsDirectory(At("dir")), created);
    rmdir(At("dir").c_str());
  });
  SweepBothModes("TFile::RemoveDirectory", [&](SweepRun& run) {
    ASSERT_TRUE(ovra_test::MakeDir(At("gone").c_str(), 0700));
    const TBstr spec = B(At("gone"));
    run.Arm();
    const bool removed = TFile::RemoveDirectory(spec);
    EXPECT_EQ(removed, !run.Disarm());
    EXPECT_EQ(Exists(At("gone")), !removed);
    rmdir(At("gone").c_str());
  }, mayNotAllocate);
  SweepBothModes("TFile::SetLastWriteTime", [&](SweepRun& run) {
    ASSERT_TRUE(ovra_test::WriteFile(At("stamped"), "x"));
    const TBstr spec = B(At("stamped"));
    run.Arm();
    const bool set = TFile::SetLastWriteTime(spec, 1000000000L);
    EXPECT_EQ(set, !run.Disarm());
    struct stat st;
    ASSERT_EQ(ovra_test::LStat(At("stamped").c_str(), &st), 0);
    EXPECT_EQ(st.st_mtime == 1000000000, set);
    unlink(At("stamped").c_str());
  }, mayNotAllocate);
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
    EXPECT_EQ(Narrow(temp), run.Disarm() ? "" : ovra_test::ExpectedTempDirectory());
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

}  // namespace
