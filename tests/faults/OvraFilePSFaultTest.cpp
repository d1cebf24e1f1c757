// TFile, TFileFinder and TFile::GetInfo when the system's stream, name and
// directory calls fail: every failure gives the documented false/0 result,
// releases what the operation held, and leaks no block (the fixture compares
// the allocator's live count). The stand-ins replace the platform's entries:
// the C runtime's streams on both, and the POSIX calls on names and glob, or
// the Windows ones and its directory listing.
#include <errno.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <string.h>

#include <string>

#include "OvraFile.h"
#include "OvraFileFinder.h"
#include "OvraSysCallAccess.h"
#include "TestFiles.h"

using namespace ovra_test;

namespace {

// How often a stand-in ran, and the error it reported.
int s_calls = 0;
int s_closes = 0;

void Reset() {
  s_calls = 0;
  s_closes = 0;
}

// --- the C runtime's streams ---------------------------------------------------

#if defined(_WIN32)
constexpr auto kOpen = &SSysCalls::wfopen;
constexpr auto kSeek = &SSysCalls::fseeki64;
constexpr auto kTell = &SSysCalls::ftelli64;
using Offset = long long;
#else
constexpr auto kOpen = &SSysCalls::fopen;
constexpr auto kSeek = &SSysCalls::fseeko;
constexpr auto kTell = &SSysCalls::ftello;
using Offset = off_t;
#endif

// The C runtime's streams report their errors in errno, on Windows too.
const SysFailure<kOpen> FailingOpen{s_calls, Errno(EMFILE), nullptr};
const SysFailure<kSeek> FailingSeek{s_calls, Errno(ESPIPE), -1};
const SysFailure<kTell> FailingTell{s_calls, Errno(ESPIPE), -1};
const SysFailure<&SSysCalls::fread> FailingFread{s_calls, Errno(EIO), 0};
const SysFailure<&SSysCalls::fwrite> FailingFwrite{s_calls, Errno(ENOSPC), 0};
const SysFailure<&SSysCalls::fflush> FailingFflush{s_calls, Errno(ENOSPC), EOF};

// Only moves back to a position from the start fail: the first two steps of
// measuring a length work, putting the position back does not.
int FailingSeekFromStart(FILE* stream, Offset offset, int origin) {
  if (origin == SEEK_SET) {
    ++s_calls;
    errno = EIO;
    return -1;
  }
  return (OvraTestRealSysCalls()->*kSeek)(stream, offset, origin);
}

#if !defined(_WIN32)
const SysFailure<&SSysCalls::fstat> FailingFstat{s_calls, Errno(EIO), -1};

// Closes for real (the stream must not leak) and counts the close: the
// stream that a failed examination leaves open (the fstat test).
int CountingFclose(FILE* stream) {
  ++s_closes;
  return OvraTestRealSysCalls()->fclose(stream);
}
#endif

// Releases the stream, as the system does, but reports a write-back error.
int FailingFclose(FILE* stream) {
  ++s_calls;
  OvraTestRealSysCalls()->fclose(stream);
  errno = ENOSPC;
  return EOF;
}

// Reads at most 3 items, as an interrupted or failing read would.
size_t ShortFread(void* buffer, size_t size, size_t count, FILE* stream) {
  ++s_calls;
  return OvraTestRealSysCalls()->fread(buffer, size, count < 3 ? count : 3, stream);
}

// Writes at most 2 items, then reports a full disk.
size_t ShortFwrite(const void* buffer, size_t size, size_t count, FILE* stream) {
  ++s_calls;
  const size_t written = OvraTestRealSysCalls()->fwrite(buffer, size, count < 2 ? count : 2, stream);
  errno = ENOSPC;
  return written;
}

// --- calls on names and directory search ----------------------------------------

#if defined(_WIN32)
constexpr auto kRename = &SSysCalls::MoveFileExW;
constexpr auto kRemove = &SSysCalls::DeleteFileW;
constexpr auto kMkdir = &SSysCalls::CreateDirectoryW;
constexpr auto kRmdir = &SSysCalls::RemoveDirectoryW;
constexpr auto kSetTimes = &SSysCalls::SetFileTime;
// An entry examined on its own (TFile::GetInfo, each entry the finder reports).
constexpr auto kExamine = &SSysCalls::GetFileAttributesExW;
// The listing of a folder (a pattern with wildcards).
constexpr auto kList = &SSysCalls::FindFirstFileW;

const SysFailure<kRename> FailingRename{s_calls, LastError(ERROR_NOT_SAME_DEVICE), FALSE};
const SysFailure<kRemove> FailingRemove{s_calls, LastError(ERROR_ACCESS_DENIED), FALSE};
const SysFailure<kMkdir> FailingMkdir{s_calls, LastError(ERROR_DISK_FULL), FALSE};
const SysFailure<kMkdir> ExistingMkdir{s_calls, LastError(ERROR_ALREADY_EXISTS), FALSE};
const SysFailure<kRmdir> FailingRmdir{s_calls, LastError(ERROR_DIR_NOT_EMPTY), FALSE};
const SysFailure<kSetTimes> FailingSetTimes{s_calls, LastError(ERROR_ACCESS_DENIED), FALSE};
const SysFailure<kExamine> FailingExamine{s_calls, LastError(ERROR_ACCESS_DENIED), FALSE};
const SysFailure<kList> FailingList{s_calls, LastError(ERROR_ACCESS_DENIED), INVALID_HANDLE_VALUE};
#else
constexpr auto kRename = &SSysCalls::rename;
constexpr auto kRemove = &SSysCalls::remove;
constexpr auto kMkdir = &SSysCalls::mkdir;
constexpr auto kRmdir = &SSysCalls::rmdir;
constexpr auto kSetTimes = &SSysCalls::utime;
constexpr auto kExamine = &SSysCalls::lstat;
constexpr auto kList = &SSysCalls::glob;

const SysFailure<kRename> FailingRename{s_calls, Errno(EXDEV), -1};
const SysFailure<kRemove> FailingRemove{s_calls, Errno(EACCES), -1};
const SysFailure<kMkdir> FailingMkdir{s_calls, Errno(ENOSPC), -1};
const SysFailure<kMkdir> ExistingMkdir{s_calls, Errno(EEXIST), -1};
const SysFailure<kRmdir> FailingRmdir{s_calls, Errno(EBUSY), -1};
const SysFailure<kSetTimes> FailingSetTimes{s_calls, Errno(EPERM), -1};
const SysFailure<kExamine> FailingExamine{s_calls, Errno(EACCES), -1};
// The expansion reports its error as its result.
const SysFailure<kList> FailingList{s_calls, ResultOnly(), GLOB_ABORTED};

// Expands for real and then reports running out of memory, keeping the
// partial result as the system's expansion may: it must still be released.
int OutOfSpaceGlob(const char* pattern, int flags, int (*onError)(const char*, int),
                   glob_t* result) {
  ++s_calls;
  const int code = OvraTestRealSysCalls()->glob(pattern, flags, onError, result);
  return code == 0 ? GLOB_NOSPACE : code;
}
#endif

class FileFaultTest : public FileTest {
 protected:
  void SetUp() override {
    FileTest::SetUp();
    Reset();
    ASSERT_TRUE(WriteFile(At("data"), "0123456789"));
  }
  TBstr Data() { return B(At("data")); }
};

TEST_F(FileFaultTest, FailingOpenGivesFalseAndLeavesTheFileClosed) {
  TFile file;
  {
    ScopedSysCall failing(FailingOpen);
    EXPECT_FALSE(file.Open(Data(), TFile::kOpenRead, false));
    EXPECT_FALSE(file.Open(B(At("new")), TFile::kOpenWrite, true));
  }
  EXPECT_EQ(s_calls, 2);
  EXPECT_FALSE(file.IsOpen());
  EXPECT_TRUE(file.GetFileSpec().IsEmpty());
  EXPECT_FALSE(Exists(At("new")));
  // Restored, the same object opens normally.
  EXPECT_TRUE(file.Open(Data(), TFile::kOpenRead, false));
}

TEST_F(FileFaultTest, FailingFstatAfterOpenClosesTheStreamAndKeepsItsError) {
  OVRA_SKIP_ON_WINDOWS(
      "the Windows half examines an opened stream with _fstati64, which its "
      "system-call table does not hold");
#if !defined(_WIN32)
  TFile file;
  {
    ScopedSysCall failing(FailingFstat);
    ScopedSysCall counting(&SSysCalls::fclose, CountingFclose);
    errno = 0;
    EXPECT_FALSE(file.Open(Data(), TFile::kOpenRead, false));
    EXPECT_EQ(errno, EIO);
  }
  EXPECT_EQ(s_calls, 1);
  EXPECT_EQ(s_closes, 1) << "the stream opened before the failure was not closed";
  EXPECT_FALSE(file.IsOpen());
#endif
}

TEST_F(FileFaultTest, FailingFreadGivesZeroAndAShortReadItsCount) {
  TFile file;
  ASSERT_TRUE(file.Open(Data(), TFile::kOpenRead, false));
  char buffer[10] = {};
  {
    ScopedSysCall failing(FailingFread);
    EXPECT_EQ(file.Read(buffer, sizeof buffer), 0u);
  }
  {
    ScopedSysCall shortRead(&SSysCalls::fread, ShortFread);
    EXPECT_EQ(file.Read(buffer, sizeof buffer), 3u);
  }
  EXPECT_EQ(s_calls, 2);
  EXPECT_EQ(std::string(buffer, 3), "012");
  EXPECT_TRUE(file.IsOpen());
}

TEST_F(FileFaultTest, FailingFwriteGivesZeroAndAShortWriteItsCount) {
  TFile file;
  ASSERT_TRUE(file.Open(B(At("out")), TFile::kOpenWrite, true));
  {
    ScopedSysCall failing(FailingFwrite);
    EXPECT_EQ(file.Write("abcdef", 6), 0u);
  }
  {
    ScopedSysCall shortWrite(&SSysCalls::fwrite, ShortFwrite);
    EXPECT_EQ(file.Write("abcdef", 6), 2u);
  }
  EXPECT_EQ(s_calls, 2);
  EXPECT_TRUE(file.Close());
  EXPECT_EQ(ReadFile(At("out")), "ab");
}

TEST_F(FileFaultTest, FailingFflushGivesFalse) {
  TFile file;
  ASSERT_TRUE(file.Open(B(At("out")), TFile::kOpenWrite, true));
  ASSERT_EQ(file.Write("x", 1), 1u);
  {
    ScopedSysCall failing(FailingFflush);
    EXPECT_FALSE(file.Flush());
  }
  EXPECT_EQ(s_calls, 1);
  EXPECT_TRUE(file.Flush());
}

TEST_F(FileFaultTest, FailingFcloseGivesFalseAndStillClosesTheObject) {
  TFile file;
  ASSERT_TRUE(file.Open(B(At("out")), TFile::kOpenWrite, true));
  {
    ScopedSysCall failing(&SSysCalls::fclose, FailingFclose);
    EXPECT_FALSE(file.Close());
  }
  EXPECT_EQ(s_calls, 1);
  EXPECT_FALSE(file.IsOpen());
  EXPECT_TRUE(file.GetFileSpec().IsEmpty());
  EXPECT_FALSE(file.Close());
}

TEST_F(FileFaultTest, FailingSeekFailsSetPositionSetLengthAndGetLength) {
  TFile file;
  ASSERT_TRUE(file.Open(Data(), TFile::kOpenRead, false));
  ASSERT_TRUE(file.SetPosition(4, 0));
  {
    ScopedSysCall failing(FailingSeek);
    EXPECT_FALSE(file.SetPosition(2, 0));
    EXPECT_FALSE(file.SetPosition(1, 1));
    EXPECT_FALSE(file.SetPosition(-1, 2));
    EXPECT_FALSE(file.SetLength(7));
    EXPECT_EQ(file.GetLength(), 0u);
  }
  EXPECT_EQ(s_calls, 5);
  // Nothing moved.
  EXPECT_EQ(file.GetPosition(), 4u);
  EXPECT_EQ(file.GetLength(), 10u);
}

TEST_F(FileFaultTest, GetLengthIsZeroWhenThePositionCannotBePutBack) {
  TFile file;
  ASSERT_TRUE(file.Open(Data(), TFile::kOpenRead, false));
  {
    ScopedSysCall failing(kSeek, FailingSeekFromStart);
    EXPECT_EQ(file.GetLength(), 0u);
  }
  EXPECT_EQ(s_calls, 1);
  EXPECT_EQ(file.GetLength(), 10u);
}

TEST_F(FileFaultTest, FailingTellGivesZeroPositionAndLength) {
  TFile file;
  ASSERT_TRUE(file.Open(Data(), TFile::kOpenRead, false));
  ASSERT_TRUE(file.SetPosition(3, 0));
  {
    ScopedSysCall failing(FailingTell);
    EXPECT_EQ(file.GetPosition(), 0u);
    EXPECT_EQ(file.GetLength(), 0u);
  }
  EXPECT_EQ(s_calls, 2);
  EXPECT_EQ(file.GetPosition(), 3u);
}

TEST_F(FileFaultTest, FailingRenameAndRemoveGiveFalseAndChangeNothing) {
  {
    ScopedSysCall failingRename(FailingRename);
    ScopedSysCall failingRemove(FailingRemove);
    EXPECT_FALSE(TFile::Rename(Data(), B(At("moved"))));
    EXPECT_FALSE(TFile::Remove(Data()));
  }
  EXPECT_EQ(s_calls, 2);
  EXPECT_TRUE(Exists(At("data")));
  EXPECT_FALSE(Exists(At("moved")));
}

TEST_F(FileFaultTest, FailingMakeDirectoryGivesFalseForCreateDirectoryAndCreatePath) {
  {
    ScopedSysCall failing(FailingMkdir);
    EXPECT_FALSE(TFile::CreateDirectory(B(At("d"))));
    // Every level is tried, from the deepest up to the first existing
    // ancestor, and the recursion ends there.
    s_calls = 0;
    EXPECT_FALSE(TFile::CreatePath(B(At("a/b/c"))));
    EXPECT_GE(s_calls, 3);
  }
  EXPECT_FALSE(Exists(At("d")));
  EXPECT_FALSE(Exists(At("a")));
  EXPECT_TRUE(TFile::CreatePath(B(At("a/b/c"))));
  EXPECT_TRUE(IsDirectory(At("a/b/c")));
}

TEST_F(FileFaultTest, MakeDirectoryReportingAnExistingEntryCountsAsSuccess) {
  {
    ScopedSysCall existing(ExistingMkdir);
    EXPECT_TRUE(TFile::CreateDirectory(B(At("d"))));
  }
  EXPECT_EQ(s_calls, 1);
  EXPECT_FALSE(Exists(At("d")));
}

TEST_F(FileFaultTest, FailingRemoveDirectoryAndSetTimesGiveFalse) {
  ASSERT_TRUE(MakeDir(At("d"), 0700));
  {
    ScopedSysCall failingRmdir(FailingRmdir);
    ScopedSysCall failingUtime(FailingSetTimes);
    EXPECT_FALSE(TFile::RemoveDirectory(B(At("d"))));
    EXPECT_FALSE(TFile::SetLastWriteTime(Data(), 1000000));
  }
  EXPECT_EQ(s_calls, 2);
  EXPECT_TRUE(IsDirectory(At("d")));
  EXPECT_TRUE(TFile::SetLastWriteTime(Data(), 1000000));
}

TEST_F(FileFaultTest, FailingExamineSkipsEntriesSoNothingIsFound) {
  ASSERT_TRUE(WriteFile(At("other"), "x"));
  TFileInfo info;
  info.size = 77;
  TFileFinder finder;
  {
    ScopedSysCall failing(FailingExamine);
    EXPECT_FALSE(TFile::GetInfo(Data(), info));
    EXPECT_FALSE(finder.Find(B(At("*")).GetString(), false));
    EXPECT_FALSE(finder.Find(B(At("*")).GetString(), true));
  }
  EXPECT_GE(s_calls, 3);
  EXPECT_EQ(info.size, 77u) << "info must stay untouched";
  EXPECT_TRUE(TFile::GetInfo(Data(), info));
  EXPECT_EQ(info.size, 10u);
}

TEST_F(FileFaultTest, FailingExamineInsideARecursiveSearchEndsItCleanly) {
  ASSERT_TRUE(MakeDir(At("sub"), 0700));
  ASSERT_TRUE(WriteFile(At("sub/inner"), "x"));
  TFileFinder finder;
  ASSERT_TRUE(finder.Find(B(At("*")).GetString(), true));
  // From now on every entry vanishes: the walk ends without a wrong report.
  ScopedSysCall failing(FailingExamine);
  int more = 0;
  while (finder.FindNext()) ++more;
  EXPECT_EQ(more, 0);
}

TEST_F(FileFaultTest, FailingListingFindsNothing) {
  TFileInfo info;
  TFileFinder finder;
  {
    ScopedSysCall failing(FailingList);
    // Windows examines a name without wildcards on its own, without listing
    // its folder: there a pattern naming the same file is what is listed.
    EXPECT_FALSE(TFile::GetInfo(B(At(kWindows ? "dat?" : "data")), info));
    EXPECT_FALSE(finder.Find(B(At("*")).GetString(), false));
    EXPECT_FALSE(finder.Find(B(At("*")).GetString(), true));
  }
  EXPECT_EQ(s_calls, 3);
  EXPECT_TRUE(finder.Find(B(At("*")).GetString(), false));
}

TEST_F(FileFaultTest, GlobOutOfSpaceWithPartialResultsFindsNothingAndFreesThem) {
  OVRA_SKIP_ON_WINDOWS(
      "the Windows listing hands back no result of its own to release; a listing "
      "cut short is FailingFindNextEndsTheListingAndClosesTheSearch");
#if !defined(_WIN32)
  TFileFinder finder;
  TFileInfo info;
  {
    ScopedSysCall failing(&SSysCalls::glob, OutOfSpaceGlob);
    EXPECT_FALSE(finder.Find(B(At("*")).GetString(), false));
    EXPECT_FALSE(TFile::GetInfo(Data(), info));
  }
  // The partial result was the system's own allocation: a leak checker in the
  // instrumented builds reports it if it was not released.
  EXPECT_EQ(s_calls, 2);
#endif
}

TEST_F(FileFaultTest, FailingCallsCombinedWithAllocationFailuresLeakNothing) {
  // A failing system call on the out-of-memory paths too: the first few
  // allocations of each operation fail in turn while the call fails.
#if defined(_WIN32)
  ScopedSysCall failingList(FailingList);
#else
  ScopedSysCall failingList(kList, OutOfSpaceGlob);
#endif
  ScopedSysCall failingFopen(FailingOpen);
  for (long n = 1; n <= 4; ++n) {
    FailNthAllocation(n);
    TFile file;
    EXPECT_FALSE(file.Open(Data(), TFile::kOpenRead, false));
    TFileFinder finder;
    EXPECT_FALSE(finder.Find(B(At("*")).GetString(), true));
    StopFailing();
  }
}

#if defined(_WIN32)
// --- what only the Windows half calls ------------------------------------------

// Each listing reports its first entry for real, then fails.
const SysFailure<&SSysCalls::FindNextFileW> FailingFindNext{
    s_calls, LastError(ERROR_NETNAME_DELETED), FALSE};

BOOL WINAPI CountingFindClose(HANDLE search) {
  ++s_closes;
  return OvraTestRealSysCalls()->FindClose(search);
}

// Ends the search for real, so that it does not leak, and reports a failure.
BOOL WINAPI FailingFindClose(HANDLE search) {
  ++s_calls;
  OvraTestRealSysCalls()->FindClose(search);
  SetLastError(ERROR_INVALID_HANDLE);
  return FALSE;
}

const SysFailure<&SSysCalls::CreateFileW> FailingCreateFile{
    s_calls, LastError(ERROR_SHARING_VIOLATION), INVALID_HANDLE_VALUE};
const SysFailure<&SSysCalls::GetTempPathW> FailingTempPath{s_calls,
                                                           LastError(ERROR_ENVVAR_NOT_FOUND), 0};

// Reports a folder longer than the buffer, as the system does with the
// length the buffer would have needed, and writes nothing.
DWORD WINAPI OverlongTempPath(DWORD size, wchar_t*) {
  ++s_calls;
  return size + 40;
}

// The entries a search of pattern finds, or -1 when it finds none.
int CountFound(const std::string& pattern, bool recursive) {
  TFileFinder finder;
  if (!finder.Find(B(pattern).GetString(), recursive)) return -1;
  int found = 1;
  while (finder.FindNext()) ++found;
  return found;
}

TEST_F(FileFaultTest, FailingFindNextEndsTheListingAndClosesTheSearch) {
  ASSERT_TRUE(WriteFile(At("other"), "x"));
  ASSERT_TRUE(WriteFile(At("third"), "x"));
  ASSERT_EQ(CountFound(At("*"), false), 3);
  {
    ScopedSysCall failing(FailingFindNext);
    ScopedSysCall counting(&SSysCalls::FindClose, CountingFindClose);
    // Only the entry listed first can be found (none when it is "." or "..").
    EXPECT_LE(CountFound(At("*"), false), 1);
  }
  EXPECT_EQ(s_calls, 1) << "the listing went on after a failure";
  EXPECT_EQ(s_closes, 1) << "the search was not ended";
  EXPECT_EQ(CountFound(At("*"), false), 3);
}

TEST_F(FileFaultTest, FailingFindCloseLeavesWhatWasFound) {
  ASSERT_TRUE(MakeDir(At("sub")));
  ASSERT_TRUE(WriteFile(At("sub/inner"), "x"));
  {
    ScopedSysCall failing(&SSysCalls::FindClose, FailingFindClose);
    EXPECT_EQ(CountFound(At("*"), false), 2);
    EXPECT_EQ(CountFound(At("*/*"), false), 1);
  }
  EXPECT_EQ(s_calls, 3) << "one folder listed, then two";
}

TEST_F(FileFaultTest, RemovingAFolderThatCannotBeExaminedGivesFalse) {
  // A name the system will not delete as a file is removed as a folder only
  // when it is seen to be one.
  ASSERT_TRUE(MakeDir(At("d")));
  {
    ScopedSysCall failing(FailingExamine);
    EXPECT_FALSE(TFile::Remove(B(At("d"))));
  }
  EXPECT_EQ(s_calls, 1);
  EXPECT_TRUE(IsDirectory(At("d")));
  EXPECT_TRUE(TFile::Remove(B(At("d"))));
  EXPECT_FALSE(Exists(At("d")));
}

TEST_F(FileFaultTest, FailingOpenForSetTimesGivesFalseAndChangesNothing) {
  long long before = 0;
  ASSERT_TRUE(win::LastWriteSeconds(At("data"), before));
  ASSERT_NE(before, 1000000);
  {
    ScopedSysCall failing(FailingCreateFile);
    EXPECT_FALSE(TFile::SetLastWriteTime(Data(), 1000000));
  }
  EXPECT_EQ(s_calls, 1);
  long long after = 0;
  ASSERT_TRUE(win::LastWriteSeconds(At("data"), after));
  EXPECT_EQ(after, before);
  EXPECT_TRUE(TFile::SetLastWriteTime(Data(), 1000000));
  ASSERT_TRUE(win::LastWriteSeconds(At("data"), after));
  EXPECT_EQ(after, 1000000);
}

TEST_F(FileFaultTest, TempDirectoryIsEmptyWhenTheSystemCannotTellItOrItIsTooLong) {
  {
    ScopedSysCall failing(FailingTempPath);
    EXPECT_TRUE(TFile::GetTempDirectory().IsEmpty());
  }
  {
    ScopedSysCall overlong(&SSysCalls::GetTempPathW, OverlongTempPath);
    EXPECT_TRUE(TFile::GetTempDirectory().IsEmpty());
  }
  EXPECT_EQ(s_calls, 2);
  EXPECT_EQ(Narrow(TFile::GetTempDirectory()), ExpectedTempDirectory());
}
#endif

}  // namespace
