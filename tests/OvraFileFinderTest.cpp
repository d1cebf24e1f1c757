// Tests of the portable half of TFileFinder (the stack of searches, the
// pre-order walk and its descent rules, Close and GetFileSpec), of
// TFile::GetInfo, and of ComparePattern's single-pass matching. Recursive
// searches over generated trees are compared with an independent walk
// (std::filesystem, lstat and fnmatch) for the set of entries and the
// pre-order property. Every test runs in a fresh temporary folder.
#include "OvraFileFinder.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#if !defined(_WIN32)
#include <fnmatch.h>
#include <unistd.h>
#endif

#include <algorithm>
#include <filesystem>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "TestBstr.h"
#include "TestFiles.h"

namespace {

namespace fs = std::filesystem;

#if defined(_WIN32)
// The Windows C library has no fnmatch: a backtracking matcher of the POSIX
// rules the tests use stands in for it ('*', '?', bracket expressions with
// ranges and '!' or '^' negation, no escapes; with FNM_PERIOD a leading dot
// is matched by a literal dot only). Still independent of the library's
// single-pass matching, which is what it is compared with.
constexpr int FNM_NOESCAPE = 1;
constexpr int FNM_PERIOD = 2;

bool MatchBracket(const char*& p, char c) {
  const char* q = p + 1;
  bool negate = false;
  if (*q == '!' || *q == '^') {
    negate = true;
    ++q;
  }
  bool matched = false;
  bool first = true;
  while (*q && (first || *q != ']')) {
    first = false;
    const char low = *q;
    char high = low;
    if (q[1] == '-' && q[2] && q[2] != ']') {
      high = q[2];
      q += 3;
    } else {
      ++q;
    }
    if (static_cast<unsigned char>(low) <= static_cast<unsigned char>(c) &&
        static_cast<unsigned char>(c) <= static_cast<unsigned char>(high))
      matched = true;
  }
  if (*q != ']') {  // no closing bracket: '[' is an ordinary character
    const bool literal = c == '[';
    ++p;
    return literal;
  }
  p = q + 1;
  return matched != negate;
}

bool GlobMatch(const char* p, const char* s, bool start, int flags) {
  for (;; ++s) {
    if (*p == '\0') return *s == '\0';
    if ((flags & FNM_PERIOD) && start && *s == '.' && *p != '.') return false;
    start = false;
    if (*p == '*') {
      while (*p == '*') ++p;
      for (const char* t = s;; ++t) {
        if (GlobMatch(p, t, false, flags)) return true;
        if (*t == '\0') return false;
      }
    }
    if (*s == '\0') return false;
    if (*p == '?') {
      ++p;
    } else if (*p == '[') {
      if (!MatchBracket(p, *s)) return false;
    } else {
      if (*p != *s) return false;
      ++p;
    }
  }
}

int fnmatch(const char* pattern, const char* name, int flags) {
  return GlobMatch(pattern, name, true, flags) ? 0 : 1;
}
#endif

using ovra_test::B;
using ovra_test::Exists;
using ovra_test::FailurePoint;
using ovra_test::FileSweepTest;
using ovra_test::FileTest;
using ovra_test::IsDirectory;
using ovra_test::kWindows;
using ovra_test::Narrow;
using ovra_test::RunUnprivileged;
using ovra_test::SweepBothModes;
using ovra_test::SweepRun;
using ovra_test::U;
using ovra_test::Unprivileged;
using ovra_test::W;
using ovra_test::WriteFile;

using FinderTest = FileTest;
using FinderWalkTest = FileTest;
using GetInfoTest = FileTest;

// Narrow bytes as a zero-terminated 16-bit pattern (widened byte for byte).
std::vector<unsigned short> Wide(const std::string& bytes) {
  std::vector<unsigned short> out;
  for (unsigned char c : bytes) out.push_back(c);
  out.push_back(0);
  return out;
}

// A directory's own size as the system reports it.
unsigned int DirSize(const std::string& path) {
  return static_cast<unsigned int>(ovra_test::SizeOf(path));
}

struct Match {
  std::string spec;  // GetFileSpec()
  std::string name;
  bool isDirectory;
  unsigned int size;
  bool operator<(const Match& o) const { return spec < o.spec; }
  bool operator==(const Match& o) const {
    return spec == o.spec && name == o.name && isDirectory == o.isDirectory && size == o.size;
  }
};

std::ostream& operator<<(std::ostream& out, const Match& m) {
  return out << "{" << m.spec << ", " << m.name << ", " << (m.isDirectory ? "dir" : "non-dir")
             << ", " << m.size << "}";
}

Match Current(const TFileFinder& finder) {
  return Match{Narrow(finder.GetFileSpec()), Narrow(finder.name), finder.isDirectory,
               finder.size};
}

// Every match of a search, in the order reported.
std::vector<Match> Walk(const std::string& pattern, bool recursive) {
  std::vector<Match> out;
  TFileFinder finder;
  const std::vector<unsigned short> wide = Wide(pattern);
  if (!finder.Find(wide.data(), recursive)) return out;
  do out.push_back(Current(finder));
  while (finder.FindNext());
  return out;
}

// The independent walk: the directory's entries from std::filesystem ("." and
// ".." added, as the system's expansion lists them), filtered with fnmatch
// under the leading-dot rule, examined with lstat; directories that match are
// entered unless they are "." or "..".
void ReferenceWalk(const std::string& dir, const std::string& pattern, std::vector<Match>& out) {
  std::vector<std::string> names = {".", ".."};
  std::error_code error;
#if defined(_WIN32)
  // The system's wide names, each character a byte (the tests' names are
  // bytes that the library widens one for one; see TestFiles.h).
  std::wstring wideDir;
  for (unsigned char c : dir.empty() ? std::string(".") : dir) wideDir += static_cast<wchar_t>(c);
  for (fs::directory_iterator it(fs::path(wideDir), error), end; !error && it != end;
       it.increment(error)) {
    std::string name;
    for (wchar_t c : it->path().filename().wstring()) {
      ASSERT_LT(static_cast<unsigned>(c), 256u) << "a name beyond the tests' bytes";
      name += static_cast<char>(c);
    }
    names.push_back(name);
  }
#else
  for (fs::directory_iterator it(dir.empty() ? "." : dir, error), end; !error && it != end;
       it.increment(error))
    names.push_back(it->path().filename().string());
#endif
  for (const std::string& name : names) {
    if (fnmatch(pattern.c_str(), name.c_str(), FNM_PERIOD) != 0) continue;
    const std::string spec = dir.empty() ? name : dir + "/" + name;
#if defined(_WIN32)
    // The entry itself, a link not followed; a directory's size is 0 there.
    if (!Exists(spec)) continue;
    const bool isDir = IsDirectory(spec);
    const unsigned int size = isDir ? 0u : static_cast<unsigned int>(ovra_test::SizeOf(spec));
#else
    struct stat st;
    if (ovra_test::LStat(spec.c_str(), &st) != 0) continue;
    const bool isDir = S_ISDIR(st.st_mode);
    const unsigned int size = static_cast<unsigned int>(st.st_size);
#endif
    out.push_back(Match{spec, name, isDir, size});
    if (isDir && name != "." && name != "..") ReferenceWalk(spec, pattern, out);
  }
}

std::vector<Match> Reference(const std::string& dir, const std::string& pattern) {
  std::vector<Match> out;
  ReferenceWalk(dir, pattern, out);
  return out;
}

bool IsUnder(const std::string& spec, const std::string& dir) {
  return spec.size() > dir.size() + 1 && spec.compare(0, dir.size(), dir) == 0 &&
         spec[dir.size()] == '/';
}

// Same entries, and pre-order: every directory's whole subtree follows it at
// once, and every entry comes after its parent directory.
void ExpectSameWalk(const std::vector<Match>& walked, const std::vector<Match>& reference,
                    const std::string& root) {
  std::vector<Match> a = walked, b = reference;
  std::sort(a.begin(), a.end());
  std::sort(b.begin(), b.end());
  ASSERT_EQ(a, b);
  std::map<std::string, size_t> position;
  for (size_t i = 0; i < walked.size(); ++i) position[walked[i].spec] = i;
  for (size_t i = 0; i < walked.size(); ++i) {
    const Match& m = walked[i];
    const std::string parent = m.spec.substr(0, m.spec.rfind('/'));
    if (parent != root) {
      ASSERT_TRUE(position.count(parent)) << m.spec << " reported without its directory";
      EXPECT_LT(position[parent], i) << m.spec << " came before its directory";
    }
    if (!m.isDirectory || m.name == "." || m.name == "..") continue;
    const size_t subtree = static_cast<size_t>(
        std::count_if(b.begin(), b.end(), [&](const Match& r) { return IsUnder(r.spec, m.spec); }));
    for (size_t k = i + 1; k <= i + subtree; ++k) {
      ASSERT_LT(k, walked.size());
      EXPECT_TRUE(IsUnder(walked[k].spec, m.spec))
          << walked[k].spec << " interrupts the contents of " << m.spec;
    }
  }
}

// A random tree: files of random sizes, directories, links to directories,
// dangling links and hidden entries, with names holding blanks, non-ASCII
// bytes and the expansion's own pattern characters.
class TreeMaker {
 public:
  explicit TreeMaker(unsigned seed) : m_random(seed) {}

  void Fill(const std::string& dir, int depth) {
    const int count = (depth < 2 ? 4 : 0) + static_cast<int>(m_random() % 6);
    for (int i = 0; i < count; ++i) {
      const std::string path = dir + "/" + Name();
      switch (m_random() % 10) {
        case 0: case 1: case 2: case 3:
          ASSERT_TRUE(WriteFile(path, std::string(m_random() % 200, 'x')));
          break;
        case 4: case 5: case 6:
          ASSERT_TRUE(ovra_test::MakeDir(path.c_str())) << path;
          if (depth < 4) Fill(path, depth + 1);
          break;
        case 7:
          // (Where no link can be made, an empty file stands in.)
          if (!ovra_test::CanMakeSymlinks())
            ASSERT_TRUE(WriteFile(path, ""));
          else
            ASSERT_TRUE(ovra_test::MakeSymlink("..", path.c_str()));  // a link to a directory
          break;
        case 8:
          if (!ovra_test::CanMakeSymlinks())
            ASSERT_TRUE(WriteFile(path, ""));
          else
            ASSERT_TRUE(ovra_test::MakeSymlink("no-such-target", path.c_str()));
          break;
        default: {
          const std::string hidden = dir + "/." + Name();
          if (m_random() % 2) {
            ASSERT_TRUE(ovra_test::MakeDir(hidden.c_str()));
            if (depth < 4) Fill(hidden, depth + 1);
          } else {
            ASSERT_TRUE(WriteFile(hidden, "h"));
          }
        }
      }
    }
  }

 private:
  std::string Name() {
#if defined(_WIN32)
    // Windows takes no "*", "?" or "\\" in a name: other pattern characters.
    static const char* const pieces[] = {"f",        "dir",    " blank ", "caf\xC3\xA9",
                                         "\xFF\xFE", "[x]",    "a[b",     "q!",
                                         "back]sl",  "x.d",    "y.txt",   "-"};
#else
    static const char* const pieces[] = {"f",        "dir",    " blank ", "caf\xC3\xA9",
                                         "\xFF\xFE", "[x]",    "a*b",     "q?",
                                         "back\\sl", "x.d",    "y.txt",   "-"};
#endif
    std::string name = pieces[m_random() % (sizeof pieces / sizeof pieces[0])];
    name += std::to_string(m_counter++);
    if (m_random() % 3 == 0) name += ".d";
    return name;
  }

  std::mt19937 m_random;
  int m_counter = 0;
};

// ---------------------------------------------------------------------------
// Find, FindNext, Close, GetFileSpec
// ---------------------------------------------------------------------------

TEST_F(FinderTest, NewFinderHasAnEmptyRecordAndNoSearch) {
  TFileFinder finder;
  EXPECT_TRUE(finder.name.IsEmpty());
  EXPECT_FALSE(finder.isDirectory);
  EXPECT_EQ(finder.size, 0u);
  EXPECT_EQ(finder.lastWriteTime, 0);
  EXPECT_EQ(finder.changeTime, 0);
  EXPECT_FALSE(finder.FindNext());
  EXPECT_TRUE(finder.GetFileSpec().IsEmpty());
}

TEST_F(FinderTest, ExportedDirectoryNames) {
  EXPECT_EQ(ovra_test::ToU16(TFileFinder::kCurrentDirectory), u".");
  EXPECT_EQ(ovra_test::ToU16(TFileFinder::kParentDirectory), u"..");
}

TEST_F(FinderTest, FindsEveryMatchOfOneLevelOnce) {
  ASSERT_TRUE(ovra_test::MakeDir("d"));
  ASSERT_TRUE(WriteFile("d/a.txt", "12345"));
  ASSERT_TRUE(WriteFile("d/b.txt", ""));
  ASSERT_TRUE(WriteFile("d/c.bin", "1"));
  ASSERT_TRUE(ovra_test::MakeDir("d/sub.txt"));
  ASSERT_TRUE(WriteFile("d/sub.txt/inner.txt", "1"));
  std::vector<Match> found = Walk("d/*.txt", false);
  std::sort(found.begin(), found.end());
  const std::vector<Match> expected = {{"d/a.txt", "a.txt", false, 5},
                                       {"d/b.txt", "b.txt", false, 0},
                                       {"d/sub.txt", "sub.txt", true, DirSize("d/sub.txt")}};
  EXPECT_EQ(found, expected);
}

TEST_F(FinderTest, NoMatchLeavesTheFinderIdle) {
  ASSERT_TRUE(ovra_test::MakeDir("d"));
  TFileFinder finder;
  EXPECT_FALSE(finder.Find(W(u"d/*.none"), false));
  EXPECT_FALSE(finder.Find(W(u"missing/*"), true));
  EXPECT_FALSE(finder.Find(W(u"d/*"), false));  // empty directory
  EXPECT_FALSE(finder.FindNext());
  EXPECT_TRUE(finder.name.IsEmpty());
}

TEST_F(FinderTest, EmptyOrNullPatternSearchesForStarInTheCurrentDirectory) {
  ASSERT_TRUE(WriteFile("one", "1"));
  ASSERT_TRUE(WriteFile("two", "22"));
  ASSERT_TRUE(WriteFile(".hidden", "h"));
  for (const unsigned short* pattern : {W(u""), static_cast<const unsigned short*>(nullptr)}) {
    TFileFinder finder;
    ASSERT_TRUE(finder.Find(pattern, false));
    std::set<std::string> names;
    do names.insert(Narrow(finder.name));
    while (finder.FindNext());
    EXPECT_EQ(names, (std::set<std::string>{"one", "two"}));
  }
}

TEST_F(FinderTest, PatternWithoutSlashGivesWholePathsAsNames) {
  ASSERT_TRUE(WriteFile("alpha", "a"));
  ASSERT_TRUE(ovra_test::MakeDir("sub"));
  ASSERT_TRUE(WriteFile("sub/inner", "i"));
  std::vector<Match> found = Walk("*", true);
  std::sort(found.begin(), found.end());
  const std::vector<Match> expected = {{"alpha", "alpha", false, 1},
                                       {"sub", "sub", true, DirSize("sub")},
                                       {"sub/inner", "inner", false, 1}};
  EXPECT_EQ(found, expected);
}

// Under Wine "/" is the root of the POSIX file system (not of the current
// drive), which Wine reports as a reparse point, that is as a link.
#define OVRA_SKIP_WINE_ROOT() \
  OVRA_SKIP_UNDER_WINE("\"/\" is the POSIX root there, which Wine reports as a link")

TEST_F(FinderTest, RootGivesOneDirectoryWithAnEmptyName) {
  OVRA_SKIP_WINE_ROOT();
  TFileFinder finder;
  ASSERT_TRUE(finder.Find(W(u"/"), false));
  EXPECT_TRUE(finder.name.IsEmpty());
  EXPECT_TRUE(finder.isDirectory);
  EXPECT_EQ(Narrow(finder.GetFileSpec()), "/");
  EXPECT_FALSE(finder.FindNext());
}

TEST_F(FinderTest, RecursiveSearchOfRootDoesNotDescend) {
  OVRA_SKIP_WINE_ROOT();
  TFileFinder finder;
  ASSERT_TRUE(finder.Find(W(u"/"), true));
  EXPECT_TRUE(finder.isDirectory);
  EXPECT_FALSE(finder.FindNext());
}

TEST_F(FinderTest, PatternEndingInSlashNamesTheDirectoryItself) {
  ASSERT_TRUE(ovra_test::MakeDir("d"));
  ASSERT_TRUE(WriteFile("d/f", "1"));
  TFileFinder finder;
  ASSERT_TRUE(finder.Find(W(u"d/"), true));
  EXPECT_TRUE(finder.name.IsEmpty());
  EXPECT_TRUE(finder.isDirectory);
  EXPECT_EQ(Narrow(finder.GetFileSpec()), "d/");
  EXPECT_FALSE(finder.FindNext());
  EXPECT_FALSE(finder.Find(W(u"missing/"), false));
}

TEST_F(FinderTest, RecursiveSearchReportsADirectoryAndThenItsContents) {
  // d holds x/ (with x/f) and y: x's f must follow x at once.
  ASSERT_TRUE(ovra_test::MakeDir("d"));
  ASSERT_TRUE(ovra_test::MakeDir("d/x"));
  ASSERT_TRUE(WriteFile("d/x/f", "f"));
  ASSERT_TRUE(WriteFile("d/y", "y"));
  const std::vector<Match> found = Walk("d/*", true);
  std::vector<std::string> specs;
  for (const Match& m : found) specs.push_back(m.spec);
  const std::vector<std::string> xFirst = {"d/x", "d/x/f", "d/y"};
  const std::vector<std::string> yFirst = {"d/y", "d/x", "d/x/f"};
  EXPECT_TRUE(specs == xFirst || specs == yFirst) << ::testing::PrintToString(specs);
  for (const Match& m : found) {
    if (m.spec == "d/x/f") {
      EXPECT_EQ(m.name, "f");
    }
  }
}

TEST_F(FinderTest, NonRecursiveSearchDoesNotDescend) {
  ASSERT_TRUE(ovra_test::MakeDir("d"));
  ASSERT_TRUE(ovra_test::MakeDir("d/x"));
  ASSERT_TRUE(WriteFile("d/x/f", "f"));
  const std::vector<Match> found = Walk("d/*", false);
  ASSERT_EQ(found.size(), 1u);
  EXPECT_EQ(found[0].spec, "d/x");
}

TEST_F(FinderTest, OnlyDirectoriesMatchingThePatternAreEntered) {
  ASSERT_TRUE(ovra_test::MakeDir("d"));
  ASSERT_TRUE(ovra_test::MakeDir("d/in.txt"));
  ASSERT_TRUE(ovra_test::MakeDir("d/out"));
  ASSERT_TRUE(WriteFile("d/in.txt/a.txt", "a"));
  ASSERT_TRUE(WriteFile("d/in.txt/b.bin", "b"));
  ASSERT_TRUE(WriteFile("d/out/c.txt", "c"));
  std::vector<std::string> specs;
  for (const Match& m : Walk("d/*.txt", true)) specs.push_back(m.spec);
  EXPECT_EQ(specs, (std::vector<std::string>{"d/in.txt", "d/in.txt/a.txt"}));
}

TEST_F(FinderTest, DeepTreeIsWalkedDownAndBackUp) {
  std::string path = "deep";
  ASSERT_TRUE(ovra_test::MakeDir(path.c_str()));
  for (int i = 0; i < 30; ++i) {
    path += "/l" + std::to_string(i);
    ASSERT_TRUE(ovra_test::MakeDir(path.c_str()));
  }
  ASSERT_TRUE(WriteFile(path + "/leaf", "leaf"));
  ASSERT_TRUE(WriteFile("deep/last", "1"));
  const std::vector<Match> found = Walk("deep/*", true);
  ExpectSameWalk(found, Reference("deep", "*"), "deep");
  EXPECT_EQ(found.size(), 32u);
}

TEST_F(FinderTest, SymbolicLinkToADirectoryIsNotADirectoryAndIsNotEntered) {
  OVRA_REQUIRE_SYMLINKS();
  ASSERT_TRUE(ovra_test::MakeDir("d"));
  ASSERT_TRUE(ovra_test::MakeDir("target"));
  ASSERT_TRUE(WriteFile("target/inside", "i"));
  ASSERT_TRUE(ovra_test::MakeSymlink("../target", "d/link"));
  const std::vector<Match> found = Walk("d/*", true);
  ASSERT_EQ(found.size(), 1u);
  EXPECT_EQ(found[0].name, "link");
  EXPECT_FALSE(found[0].isDirectory);
  EXPECT_EQ(found[0].size, 9u);  // the link's own size: the length of "../target"
}

TEST_F(FinderTest, LinkLoopsCannotTrapARecursiveSearch) {
  OVRA_REQUIRE_SYMLINKS();
  ASSERT_TRUE(ovra_test::MakeDir("d"));
  ASSERT_TRUE(ovra_test::MakeSymlink(".", "d/self"));
  ASSERT_TRUE(ovra_test::MakeSymlink("..", "d/up"));
  const std::vector<Match> found = Walk("d/*", true);
  EXPECT_EQ(found.size(), 2u);
}

TEST_F(FinderTest, DanglingLinksAreReportedAsNonDirectories) {
  OVRA_REQUIRE_SYMLINKS();
  ASSERT_TRUE(ovra_test::MakeDir("d"));
  ASSERT_TRUE(ovra_test::MakeSymlink("nowhere", "d/dangling"));
  const std::vector<Match> found = Walk("d/*", true);
  ASSERT_EQ(found.size(), 1u);
  EXPECT_EQ(found[0].name, "dangling");
  EXPECT_FALSE(found[0].isDirectory);
}

TEST_F(FinderTest, DotPatternReportsDotAndDotDotButNeverEntersThem) {
  ASSERT_TRUE(ovra_test::MakeDir("d"));
  ASSERT_TRUE(ovra_test::MakeDir("d/.git"));
  ASSERT_TRUE(WriteFile("d/.git/.config", "c"));
  ASSERT_TRUE(WriteFile("d/.git/plain", "p"));
  ASSERT_TRUE(WriteFile("d/visible", "v"));
  const std::vector<Match> found = Walk("d/.*", true);
  ExpectSameWalk(found, Reference("d", ".*"), "d");
  std::set<std::string> specs;
  for (const Match& m : found) specs.insert(m.spec);
  EXPECT_EQ(specs, (std::set<std::string>{"d/.", "d/..", "d/.git", "d/.git/.", "d/.git/..",
                                          "d/.git/.config"}));
}

TEST_F(FinderTest, DirectoryNamesWithPatternCharactersAreEnteredLiterally) {
#if defined(_WIN32)
  // Windows takes no "*", "?" or "\\" in a name: brackets in other forms.
  const char* const names[] = {"a[1]", "a1", "r[a-z]", "n[!1]", "c]d"};
#else
  const char* const names[] = {"a[1]", "a1", "s*r", "q?", "b\\s"};
#endif
  ASSERT_TRUE(ovra_test::MakeDir("d"));
  for (const char* name : names) {
    ASSERT_TRUE(ovra_test::MakeDir(std::string("d/") + name)) << name;
    ASSERT_TRUE(WriteFile(std::string("d/") + name + "/in-" + name, name));
  }
  const std::vector<Match> found = Walk("d/*", true);
  ExpectSameWalk(found, Reference("d", "*"), "d");
  EXPECT_EQ(found.size(), 10u);
}

TEST_F(FinderTest, NamesWithBlanksAndNonAsciiBytesAreReportedByteForByte) {
  ASSERT_TRUE(ovra_test::MakeDir("d"));
#if defined(_WIN32)
  // Windows takes no control character in a name.
  const std::string names[] = {"with blank", " lead", "caf\xC3\xA9", "raw\xFF\x80", "amp&here"};
#else
  const std::string names[] = {"with blank", " lead", "caf\xC3\xA9", "raw\xFF\x80", "tab\there"};
#endif
  for (const std::string& name : names) ASSERT_TRUE(WriteFile("d/" + name, name));
  std::vector<Match> found = Walk("d/*", false);
  std::set<std::string> reported;
  for (const Match& m : found) {
    reported.insert(m.name);
    EXPECT_EQ(m.size, m.name.size());
  }
  EXPECT_EQ(reported, std::set<std::string>(std::begin(names), std::end(names)));
}

#if defined(_WIN32)
TEST_F(FinderTest, PatternWithACharacterAbove255FindsItsNameOnWindows) {
  // Names reach the system's wide calls unit for unit there: "a" U+0100.
  FILE* file = ovra_test::win::OpenFile(Folder() + "/a\xC4\x80", "wb");
  ASSERT_NE(file, nullptr);
  fclose(file);
  TFileFinder finder;
  const unsigned short pattern[] = {'a', 0x100, 0};
  ASSERT_TRUE(finder.Find(pattern, false));
  EXPECT_EQ(ovra_test::ToU16(finder.name.GetString()), u"a\u0100");
  EXPECT_FALSE(finder.FindNext());
  const unsigned short wildcard[] = {'?', 0x100, 0};
  ASSERT_TRUE(finder.Find(wildcard, false));
  EXPECT_EQ(ovra_test::ToU16(finder.name.GetString()), u"a\u0100");
}
#else
TEST_F(FinderTest, PatternWithACharacterAbove255FindsNothing) {
  ASSERT_TRUE(WriteFile("a?", "decoy"));
  TFileFinder finder;
  const unsigned short pattern[] = {'a', 0x100, 0};
  EXPECT_FALSE(finder.Find(pattern, false));
}
#endif

TEST_F(FinderTest, AfterTheLastMatchFindNextKeepsReturningFalse) {
  ASSERT_TRUE(WriteFile("only", "1"));
  TFileFinder finder;
  ASSERT_TRUE(finder.Find(W(u"only"), false));
  EXPECT_EQ(Narrow(finder.name), "only");
  EXPECT_FALSE(finder.FindNext());
  EXPECT_FALSE(finder.FindNext());
  EXPECT_FALSE(finder.FindNext());
}

TEST_F(FinderTest, CloseResetsTheRecordButKeepsTheDirectory) {
  ASSERT_TRUE(ovra_test::MakeDir("sub"));
  ASSERT_TRUE(WriteFile("sub/f", "12345"));
  TFileFinder finder;
  ASSERT_TRUE(finder.Find(W(u"sub/*"), false));
  EXPECT_EQ(finder.size, 5u);
  EXPECT_NE(finder.lastWriteTime, 0);
  finder.Close();
  EXPECT_TRUE(finder.name.IsEmpty());
  EXPECT_FALSE(finder.isDirectory);
  EXPECT_EQ(finder.size, 0u);
  EXPECT_EQ(finder.lastWriteTime, 0);
  EXPECT_EQ(finder.changeTime, 0);
  EXPECT_FALSE(finder.FindNext());
  // The directory is kept: the spec of the (now empty) name is the directory.
  EXPECT_EQ(Narrow(finder.GetFileSpec()), "sub/");
  finder.Close();  // closing twice is harmless
}

TEST_F(FinderTest, CloseInTheMiddleOfARecursiveSearchClosesEveryLevel) {
  ASSERT_TRUE(TFile::CreatePath(B("a/b/c/d")));
  ASSERT_TRUE(WriteFile("a/b/c/d/f", "f"));
  TFileFinder finder;
  ASSERT_TRUE(finder.Find(W(u"a/*"), true));
  ASSERT_TRUE(finder.FindNext());
  ASSERT_TRUE(finder.FindNext());
  EXPECT_EQ(Narrow(finder.GetFileSpec()), "a/b/c/d");
  finder.Close();
  EXPECT_FALSE(finder.FindNext());
  // A new search starts from scratch.
  ASSERT_TRUE(finder.Find(W(u"a/b/c/d/*"), false));
  EXPECT_EQ(Narrow(finder.GetFileSpec()), "a/b/c/d/f");
}

TEST_F(FinderTest, FindDuringASearchStartsANewOne) {
  ASSERT_TRUE(TFile::CreatePath(B("one/deeper")));
  ASSERT_TRUE(WriteFile("one/deeper/f", "1"));
  ASSERT_TRUE(TFile::CreatePath(B("two")));
  ASSERT_TRUE(WriteFile("two/g", "1"));
  TFileFinder finder;
  ASSERT_TRUE(finder.Find(W(u"one/*"), true));
  ASSERT_TRUE(finder.FindNext());  // inside one/deeper
  ASSERT_TRUE(finder.Find(W(u"two/*"), true));
  EXPECT_EQ(Narrow(finder.GetFileSpec()), "two/g");
  EXPECT_FALSE(finder.FindNext());
}

TEST_F(FinderTest, GetFileSpecJoinsTheLevelsDirectoryAndTheName) {
  ASSERT_TRUE(TFile::CreatePath(B("p/q")));
  ASSERT_TRUE(WriteFile("p/q/r", "1"));
  TFileFinder finder;
  ASSERT_TRUE(finder.Find(B(At("p/*")).GetString(), true));
  EXPECT_EQ(Narrow(finder.GetFileSpec()), At("p/q"));
  ASSERT_TRUE(finder.FindNext());
  EXPECT_EQ(Narrow(finder.GetFileSpec()), At("p/q/r"));
  EXPECT_FALSE(finder.FindNext());
}

TEST_F(FinderTest, DestructorReleasesAnOpenSearch) {
  ASSERT_TRUE(TFile::CreatePath(B("a/b/c")));
  ASSERT_TRUE(WriteFile("a/b/c/f", "f"));
  const long live = ovra_test::Stats().live;
  {
    TFileFinder finder;
    ASSERT_TRUE(finder.Find(W(u"a/*"), true));
    ASSERT_TRUE(finder.FindNext());
    EXPECT_GT(ovra_test::Stats().live, live);
  }
  EXPECT_EQ(ovra_test::Stats().live, live);
}

TEST_F(FinderTest, UnreadableDirectoryIsReportedButHasNoEntries) {
  OVRA_SKIP_PERMISSION_BITS();
  ASSERT_TRUE(TFile::CreatePath(B("d/locked")));
  ASSERT_TRUE(WriteFile("d/locked/secret", "s"));
  ASSERT_TRUE(WriteFile("d/open", "o"));
  ASSERT_EQ(chmod("d/locked", 0), 0);
  const std::string root = At("d");
  const Unprivileged outcome = RunUnprivileged([root] {
    std::set<std::string> names;
    for (const Match& m : Walk(root + "/*", true)) names.insert(m.name);
    return names == std::set<std::string>{"locked", "open"};
  });
  if (outcome == Unprivileged::kUnavailable)
    GTEST_SKIP() << "running as root and cannot drop privileges to check permissions";
  EXPECT_EQ(outcome, Unprivileged::kPassed);
}

// ---------------------------------------------------------------------------
// Recursive searches over generated trees against the independent walk
// ---------------------------------------------------------------------------

TEST_F(FinderWalkTest, GeneratedTreesMatchTheIndependentWalk) {
  const char* const patterns[] = {"*", "*.d", ".*", "?*", "[a-f]*", "*[0-9]"};
  size_t entries = 0, deepest = 0;
  for (unsigned seed = 1; seed <= 12; ++seed) {
    const std::string root = "tree" + std::to_string(seed);
    ASSERT_TRUE(ovra_test::MakeDir(root.c_str()));
    TreeMaker maker(seed);
    maker.Fill(root, 0);
    if (HasFatalFailure()) return;
    for (const char* pattern : patterns) {
      SCOPED_TRACE(std::string("seed ") + std::to_string(seed) + " pattern " + pattern);
      const std::vector<Match> reference = Reference(root, pattern);
      ExpectSameWalk(Walk(root + "/" + pattern, true), reference, root);
      if (HasFatalFailure()) return;
      entries += reference.size();
      for (const Match& m : reference)
        deepest = std::max(deepest, static_cast<size_t>(std::count(m.spec.begin(), m.spec.end(), '/')));
    }
  }
  // The trees are big and deep enough to mean something.
  EXPECT_GT(entries, 800u);
  EXPECT_GE(deepest, 4u);
}

TEST_F(FinderWalkTest, AbsolutePatternsMatchTheIndependentWalk) {
  const std::string root = At("abs");
  ASSERT_TRUE(ovra_test::MakeDir(root.c_str()));
  TreeMaker maker(99);
  maker.Fill(root, 0);
  maker.Fill(root, 1);
  ExpectSameWalk(Walk(root + "/*", true), Reference(root, "*"), root);
}

TEST_F(FinderWalkTest, NonRecursiveSearchesListExactlyOneLevel) {
  ASSERT_TRUE(ovra_test::MakeDir("t"));
  TreeMaker maker(5);
  maker.Fill("t", 0);
  maker.Fill("t", 0);
  std::vector<Match> oneLevel;
  for (const Match& m : Reference("t", "*"))
    if (m.spec.find('/', 2) == std::string::npos) oneLevel.push_back(m);
  std::vector<Match> found = Walk("t/*", false);
  std::sort(found.begin(), found.end());
  std::sort(oneLevel.begin(), oneLevel.end());
  EXPECT_EQ(found, oneLevel);
}

TEST_F(FinderWalkTest, WalkSurvivesEveryAllocationFailureAndNeverReportsAWrongSpec) {
  ASSERT_TRUE(TFile::CreatePath(B("w/a/b")));
  ASSERT_TRUE(TFile::CreatePath(B("w/c")));
  ASSERT_TRUE(WriteFile("w/a/b/f1", "1"));
  ASSERT_TRUE(WriteFile("w/a/f2", "22"));
  ASSERT_TRUE(WriteFile("w/c/f3", "333"));
  ASSERT_TRUE(WriteFile("w/f4", "4444"));
  std::vector<Match> all = Reference("w", "*");
  std::sort(all.begin(), all.end());
  for (long n = 1;; ++n) {
    ASSERT_LT(n, 1000) << "the walk never finished without a failure";
    const long live = ovra_test::Stats().live;
    FailurePoint point(n);
    std::vector<Match> found;
    {
      TFileFinder finder;
      point.Arm();
      if (finder.Find(W(u"w/*"), true)) {
        do found.push_back(Current(finder));
        while (finder.FindNext());
      }
    }
    const bool hit = point.Disarm();
    EXPECT_EQ(ovra_test::Stats().live, live) << "leak with allocation " << n << " failing";
    for (const Match& m : found) {
      // GetFileSpec itself may come back empty; a spec given is never wrong.
      if (m.spec.empty()) continue;
      EXPECT_TRUE(std::binary_search(all.begin(), all.end(), m))
          << m << " with allocation " << n << " failing";
    }
    EXPECT_LE(found.size(), all.size());
    if (!hit) {
      std::sort(found.begin(), found.end());
      EXPECT_EQ(found, all);
      break;
    }
  }
}

// ---------------------------------------------------------------------------
// TFile::GetInfo
// ---------------------------------------------------------------------------

TEST_F(GetInfoTest, DescribesAFile) {
  ASSERT_TRUE(WriteFile("f.txt", "12345"));
  ASSERT_TRUE(TFile::SetLastWriteTime(B("f.txt"), 1234567890L));
  struct stat st;
  ASSERT_EQ(ovra_test::LStat("f.txt", &st), 0);
  TFileInfo info;
  ASSERT_TRUE(TFile::GetInfo(B("f.txt"), info));
  EXPECT_EQ(Narrow(info.name), "f.txt");
  EXPECT_FALSE(info.isDirectory);
  EXPECT_EQ(info.size, 5u);
  EXPECT_EQ(info.lastWriteTime, 1234567890);
  EXPECT_EQ(info.changeTime, st.st_ctime);
}

TEST_F(GetInfoTest, NameIsTheLastComponentOnly) {
  ASSERT_TRUE(TFile::CreatePath(B("a/b")));
  ASSERT_TRUE(WriteFile("a/b/leaf", "x"));
  TFileInfo info;
  ASSERT_TRUE(TFile::GetInfo(B("a/b/leaf"), info));
  EXPECT_EQ(Narrow(info.name), "leaf");
  ASSERT_TRUE(TFile::GetInfo(B(At("a/b")), info));
  EXPECT_EQ(Narrow(info.name), "b");
  EXPECT_TRUE(info.isDirectory);
}

TEST_F(GetInfoTest, SymbolicLinkToADirectoryIsNotADirectory) {
  OVRA_REQUIRE_SYMLINKS();
  ASSERT_TRUE(ovra_test::MakeDir("dir"));
  ASSERT_TRUE(ovra_test::MakeSymlink("dir", "link"));
  TFileInfo info;
  ASSERT_TRUE(TFile::GetInfo(B("link"), info));
  EXPECT_EQ(Narrow(info.name), "link");
  EXPECT_FALSE(info.isDirectory);
  EXPECT_EQ(info.size, 3u);
}

TEST_F(GetInfoTest, DanglingSymbolicLinkIsDescribed) {
  OVRA_REQUIRE_SYMLINKS();
  ASSERT_TRUE(ovra_test::MakeSymlink("nowhere", "dangling"));
  TFileInfo info;
  ASSERT_TRUE(TFile::GetInfo(B("dangling"), info));
  EXPECT_EQ(Narrow(info.name), "dangling");
  EXPECT_FALSE(info.isDirectory);
}

TEST_F(GetInfoTest, MissingOrEmptySpecFailsAndLeavesInfoUntouched) {
  ASSERT_TRUE(WriteFile("present", "p"));  // an empty spec must not find it
  TFileInfo info;
  info.name = B("keep");
  info.size = 77;
  EXPECT_FALSE(TFile::GetInfo(B("missing"), info));
  EXPECT_FALSE(TFile::GetInfo(TBstr(), info));
  EXPECT_FALSE(TFile::GetInfo(B("missing/*"), info));
  const unsigned short wide[] = {'p', 0x100, 0};
  EXPECT_FALSE(TFile::GetInfo(TBstr(wide), info));
  const unsigned short inner[] = {'p', 'r', 'e', 's', 'e', 'n', 't', 0, 'x'};
  EXPECT_FALSE(TFile::GetInfo(TBstr(inner, 9), info));
  EXPECT_EQ(Narrow(info.name), "keep");
  EXPECT_EQ(info.size, 77u);
}

TEST_F(GetInfoTest, EntryInAnUnreadableFolderIsNotFound) {
  OVRA_SKIP_PERMISSION_BITS();
  ASSERT_TRUE(ovra_test::MakeDir("locked"));
  ASSERT_TRUE(WriteFile("locked/inside", "x"));
  ASSERT_EQ(chmod("locked", 0), 0);
  const std::string inside = At("locked/inside");
  const std::string all = At("locked/*");
  const std::string folder = At("locked");
  const Unprivileged outcome = RunUnprivileged([inside, all, folder] {
    TFileInfo info;
    // The folder itself can still be described from its parent.
    return !TFile::GetInfo(B(inside), info) && !TFile::GetInfo(B(all), info) &&
           TFile::GetInfo(B(folder), info) && info.isDirectory;
  });
  if (outcome == Unprivileged::kUnavailable)
    GTEST_SKIP() << "running as root and cannot drop privileges to check permissions";
  EXPECT_EQ(outcome, Unprivileged::kPassed);
}

TEST_F(GetInfoTest, WildcardsReportOneOfTheMatches) {
  ASSERT_TRUE(WriteFile("x1", "1"));
  ASSERT_TRUE(WriteFile("x22", "22"));
  ASSERT_TRUE(WriteFile("y", "y"));
  TFileInfo info;
  ASSERT_TRUE(TFile::GetInfo(B("x*"), info));
  const std::string name = Narrow(info.name);
  EXPECT_TRUE(name == "x1" || name == "x22") << name;
  EXPECT_EQ(info.size, name.size() - 1);
}

TEST_F(GetInfoTest, RootIsADirectoryWithAnEmptyName) {
  OVRA_SKIP_WINE_ROOT();
  TFileInfo info;
  info.name = B("old");
  ASSERT_TRUE(TFile::GetInfo(B("/"), info));
  EXPECT_TRUE(info.name.IsEmpty());
  EXPECT_TRUE(info.isDirectory);
}

TEST_F(GetInfoTest, NamesWithBlanksAndNonAsciiBytes) {
  const std::string name = "r\xC3\xA9sum\xC3\xA9 final \xFF";
  ASSERT_TRUE(WriteFile(name, "abc"));
  TFileInfo info;
  ASSERT_TRUE(TFile::GetInfo(B(name), info));
  EXPECT_EQ(Narrow(info.name), name);
  EXPECT_EQ(info.size, 3u);
}

TEST_F(GetInfoTest, SurvivesEveryAllocationFailureWithoutLeaking) {
  ASSERT_TRUE(WriteFile("some-file", "12"));
  ovra_test::SweepAllocationFailures([](FailurePoint& point) {
    const TBstr spec = B("some-file");
    TFileInfo info;
    point.Arm();
    const bool found = TFile::GetInfo(spec, info);
    point.Disarm();
    if (found) {
      EXPECT_EQ(Narrow(info.name), "some-file");
      EXPECT_EQ(info.size, 2u);
    }
  });
}

// ---------------------------------------------------------------------------
// ComparePattern
// ---------------------------------------------------------------------------

int Compare(const char16_t* name, const char16_t* pattern) {
  return TFileFinder::ComparePattern(W(name), W(pattern));
}

TEST(ComparePatternTest, EdgeCases) {
  EXPECT_EQ(Compare(u"", u""), 0);
  EXPECT_EQ(Compare(u"", u"*"), 0);
  EXPECT_EQ(Compare(u"abc", u"a?c"), 0);
  EXPECT_NE(Compare(u"abc", u"ABC"), 0);
  EXPECT_GT(Compare(u"abcbc", u"*bc"), 0);
  EXPECT_EQ(Compare(u"abc", u"*c"), 0);
  EXPECT_EQ(Compare(u"a", u"a*"), 0);
}

TEST(ComparePatternTest, ExactTextMatchesItselfOnly) {
  EXPECT_EQ(Compare(u"name.txt", u"name.txt"), 0);
  EXPECT_LT(Compare(u"name", u"name.txt"), 0);
  EXPECT_GT(Compare(u"name.txt", u"name"), 0);
  EXPECT_EQ(Compare(u"abd", u"abc"), 'd' - 'c');
  EXPECT_EQ(Compare(u"a", u""), 'a');
  EXPECT_EQ(Compare(u"", u"a"), -'a');
}

TEST(ComparePatternTest, ResultIsTheDifferenceOfTheUnitsWhereItStopped) {
  EXPECT_EQ(Compare(u"abc", u"ABC"), 'a' - 'A');
  EXPECT_EQ(Compare(u"ab", u"abc"), -'c');
  // Units compare as unsigned 16-bit values.
  EXPECT_EQ(Compare(u"\xFFFF", u"a"), 0xFFFF - 'a');
  EXPECT_EQ(Compare(u"a", u"\xFFFF"), 'a' - 0xFFFF);
}

TEST(ComparePatternTest, QuestionMarkMatchesOneUnitButNotTheEnd) {
  EXPECT_EQ(Compare(u"a", u"?"), 0);
  EXPECT_EQ(Compare(u"\x263A", u"?"), 0);
  EXPECT_NE(Compare(u"", u"?"), 0);
  EXPECT_NE(Compare(u"ab", u"ab?"), 0);
  EXPECT_NE(Compare(u"ab", u"???"), 0);
  EXPECT_LT(Compare(u"ab", u"ab?"), 0);  // the name ends first
  EXPECT_NE(Compare(u"abc", u"??"), 0);
}

TEST(ComparePatternTest, StarTakesTheShortestRunAndNeverReconsiders) {
  EXPECT_EQ(Compare(u"bc", u"*bc"), 0);      // the run may be empty
  EXPECT_EQ(Compare(u"xxbc", u"*bc"), 0);
  EXPECT_NE(Compare(u"abcbc", u"*bc"), 0);   // a backtracking matcher would match
  EXPECT_NE(Compare(u"aab", u"*ab"), 0);
  EXPECT_EQ(Compare(u"abc", u"a*"), 0);      // a final star takes the rest
  EXPECT_EQ(Compare(u"abc", u"*"), 0);
  EXPECT_NE(Compare(u"a.b.c", u"*.c"), 0);   // stops at the first "."
  EXPECT_EQ(Compare(u"a.c", u"*.c"), 0);
  EXPECT_EQ(Compare(u"abc", u"a*c"), 0);
  EXPECT_EQ(Compare(u"ac", u"a*c"), 0);
  EXPECT_NE(Compare(u"ab", u"a*c"), 0);
}

TEST(ComparePatternTest, UnitAfterAStarIsTakenLiterally) {
  // "*?" runs to the first literal "?" in the name.
  EXPECT_EQ(Compare(u"ab?", u"*?"), 0);
  EXPECT_NE(Compare(u"abc", u"*?"), 0);
  // "**" runs to the first literal "*", or to the end.
  EXPECT_EQ(Compare(u"abc", u"**"), 0);
  EXPECT_EQ(Compare(u"a*c", u"**c"), 0);
}

TEST(ComparePatternTest, IsCaseSensitive) {
  EXPECT_NE(Compare(u"File.TXT", u"*.txt"), 0);
  EXPECT_EQ(Compare(u"File.TXT", u"*.TXT"), 0);
}

TEST(ComparePatternTest, NullPointersAreEmptyStrings) {
  EXPECT_EQ(TFileFinder::ComparePattern(nullptr, nullptr), 0);
  EXPECT_EQ(TFileFinder::ComparePattern(nullptr, W(u"*")), 0);
  EXPECT_NE(TFileFinder::ComparePattern(W(u"a"), nullptr), 0);
  EXPECT_NE(TFileFinder::ComparePattern(nullptr, W(u"a")), 0);
}

// The matching rules written out over indexes, step by step (including the
// step back after a "*"), as an independent model for the random comparison.
int CompareModel(const std::u16string& name, const std::u16string& pattern) {
  auto at = [](const std::u16string& s, long i) -> unsigned {
    return i < static_cast<long>(s.size()) ? static_cast<unsigned>(s[static_cast<size_t>(i)]) : 0u;
  };
  long p = 0, q = 0;
  if (name.empty() && pattern.empty()) return 0;
  for (;;) {
    if (at(name, p) != at(pattern, q) && at(pattern, q) != u'?' && at(pattern, q) != u'*') break;
    if (at(pattern, q) == u'?' && at(name, p) == 0) break;
    if (at(pattern, q) == u'*') {
      if (at(name, p) != 0) {
        while (at(name, p) != at(pattern, q + 1) && at(name, p) != 0) ++p;
      }
      --p;  // the step back, which the advance below undoes
    }
    ++p;
    ++q;
    if (at(name, p) != 0) continue;
    if (at(pattern, q) == 0) break;
  }
  return static_cast<int>(at(name, p)) - static_cast<int>(at(pattern, q));
}

TEST(ComparePatternTest, MatchesItsRulesOnRandomStrings) {
  std::mt19937 random(4242);
  const char16_t names[] = {u'a', u'b', u'c', u'.'};
  const char16_t patterns[] = {u'a', u'b', u'c', u'.', u'*', u'?'};
  for (int i = 0; i < 50000; ++i) {
    std::u16string name, pattern;
    for (int n = static_cast<int>(random() % 7); n > 0; --n) name += names[random() % 4];
    for (int n = static_cast<int>(random() % 6); n > 0; --n) pattern += patterns[random() % 6];
    const ovra_test::WideText wn(name), wp(pattern);
    ASSERT_EQ(TFileFinder::ComparePattern(const_cast<ovra_test::WideText&>(wn).get(),
                                          const_cast<ovra_test::WideText&>(wp).get()),
              CompareModel(name, pattern))
        << "name '" << std::string(name.begin(), name.end()) << "' pattern '"
        << std::string(pattern.begin(), pattern.end()) << "'";
  }
}

TEST(ComparePatternTest, EveryMatchIsAGlobMatchAndWithoutStarsTheyAgree) {
  // fnmatch (backtracking) as the reference: a single-pass match is always a
  // real match; without "*" there is nothing to backtrack and both agree.
  std::mt19937 random(77);
  const char names[] = {'a', 'b', 'c', '.'};
  const char patterns[] = {'a', 'b', 'c', '.', '*', '?'};
  for (int i = 0; i < 50000; ++i) {
    std::string name, pattern;
    for (int n = static_cast<int>(random() % 7); n > 0; --n) name += names[random() % 4];
    for (int n = static_cast<int>(random() % 6); n > 0; --n) pattern += patterns[random() % 6];
    const std::vector<unsigned short> wn = Wide(name), wp = Wide(pattern);
    const bool single = TFileFinder::ComparePattern(wn.data(), wp.data()) == 0;
    const bool glob = fnmatch(pattern.c_str(), name.c_str(), FNM_NOESCAPE) == 0;
    if (single) {
      ASSERT_TRUE(glob) << "'" << name << "' '" << pattern << "'";
    }
    if (pattern.find('*') == std::string::npos) {
      ASSERT_EQ(single, glob) << "'" << name << "' '" << pattern << "'";
    }
  }
}

// --- Allocation failures ---------------------------------------------------
// Each operation runs with its 1st, 2nd, ... allocation failing, alone and
// with every later one (AllocSweep.h), until it goes through; every run must
// give the documented out-of-memory result and leak nothing. The N each sweep
// reaches is printed ("[ SWEEP    ]").

class AllocSweepFileFinder : public FileSweepTest {};

// Every spec of the tree, as a recursive search for "*" must report them.
std::vector<std::string> TreeSpecs(const std::string& root) {
  return {root + "/a.txt",      root + "/d1",           root + "/d1/b.txt", root + "/d1/d2",
          root + "/d1/d2/c.txt", root + "/d1/d2/e.txt", root + "/d3",       root + "/d3/f.txt"};
}

TEST_F(AllocSweepFileFinder, RecursiveFindReportsOnlyCorrectSpecsAtEveryFailure) {
  ASSERT_TRUE(ovra_test::WriteFile(At("a.txt"), "a"));
  ASSERT_TRUE(ovra_test::MakeDir(At("d1").c_str(), 0700));
  ASSERT_TRUE(ovra_test::WriteFile(At("d1/b.txt"), "bb"));
  ASSERT_TRUE(ovra_test::MakeDir(At("d1/d2").c_str(), 0700));
  ASSERT_TRUE(ovra_test::WriteFile(At("d1/d2/c.txt"), "ccc"));
  ASSERT_TRUE(ovra_test::WriteFile(At("d1/d2/e.txt"), "eeee"));
  ASSERT_TRUE(ovra_test::MakeDir(At("d3").c_str(), 0700));
  ASSERT_TRUE(ovra_test::WriteFile(At("d3/f.txt"), "f"));
  // A directory whose name holds wildcards is entered through a quoted
  // pattern (Windows takes no "*" in a name).
  const std::string wild = kWindows ? "d3/w[1]" : "d3/w[1]*";
  ASSERT_TRUE(ovra_test::MakeDir(At(wild).c_str(), 0700));
  ASSERT_TRUE(ovra_test::WriteFile(At(wild + "/g.txt"), "g"));
  std::vector<std::string> all = TreeSpecs(Folder());
  all.push_back(At(wild));
  all.push_back(At(wild + "/g.txt"));
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

}  // namespace
