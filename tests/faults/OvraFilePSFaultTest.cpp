// TFile, TFileFinder and TFile::GetInfo when the system's stream, name and
// directory calls fail: every failure gives the documented false/0 result,
// releases what the operation held, and leaks no block (the fixture compares
// the allocator's live count).
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

FILE* FailingFopen(const char*, const char*) {
  ++s_calls;
  errno = EMFILE;
  return nullptr;
}

int FailingFstat(int, struct stat*) {
  ++s_calls;
  errno = EIO;
  return -1;
}

// Closes for real (the stream must not leak) and counts the close.
int CountingFclose(FILE* stream) {
  ++s_closes;
  return OvraTestRealSysCalls()->fclose(stream);
}

// Releases the stream, as the system does, but reports a write-back error.
int FailingFclose(FILE* stream) {
  ++s_calls;
  OvraTestRealSysCalls()->fclose(stream);
  errno = ENOSPC;
  return EOF;
}

size_t FailingFread(void*, size_t, size_t, FILE*) {
  ++s_calls;
  errno = EIO;
  return 0;
}

// Reads at most 3 items, as an interrupted or failing read would.
size_t ShortFread(void* buffer, size_t size, size_t count, FILE* stream) {
  ++s_calls;
  return OvraTestRealSysCalls()->fread(buffer, size, count < 3 ? count : 3, stream);
}

size_t FailingFwrite(const void*, size_t, size_t, FILE*) {
  ++s_calls;
  errno = ENOSPC;
  return 0;
}

// Writes at most 2 items, then reports a full disk.
size_t ShortFwrite(const void* buffer, size_t size, size_t count, FILE* stream) {
  ++s_calls;
  const size_t written = OvraTestRealSysCalls()->fwrite(buffer, size, count < 2 ? count : 2, stream);
  errno = ENOSPC;
  return written;
}

int FailingFflush(FILE*) {
  ++s_calls;
  errno = ENOSPC;
  return EOF;
}

int FailingFseeko(FILE*, off_t, int) {
  ++s_calls;
  errno = ESPIPE;
  return -1;
}

// Only moves back to a position from the start fail: the first two steps of
// measuring a length work, putting the position back does not.
int FailingFseekoFromStart(FILE* stream, off_t offset, int origin) {
  if (origin == SEEK_SET) {
    ++s_calls;
    errno = EIO;
    return -1;
  }
  return OvraTestRealSysCalls()->fseeko(stream, offset, origin);
}

off_t FailingFtello(FILE*) {
  ++s_calls;
  errno = ESPIPE;
  return -1;
}

int FailingRename(const char*, const char*) {
  ++s_calls;
  errno = EXDEV;
  return -1;
}

int FailingRemove(const char*) {
  ++s_calls;
  errno = EACCES;
  return -1;
}

int FailingMkdir(const char*, mode_t) {
  ++s_calls;
  errno = ENOSPC;
  return -1;
}

int ExistingMkdir(const char*, mode_t) {
  ++s_calls;
  errno = EEXIST;
  return -1;
}

int FailingRmdir(const char*) {
  ++s_calls;
  errno = EBUSY;
  return -1;
}

int FailingUtime(const char*, const struct utimbuf*) {
  ++s_calls;
  errno = EPERM;
  return -1;
}

int FailingLstat(const char*, struct stat*) {
  ++s_calls;
  errno = EACCES;
  return -1;
}

int AbortedGlob(const char*, int, int (*)(const char*, int), glob_t*) {
  ++s_calls;
  return GLOB_ABORTED;
}

// Expands for real and then reports running out of memory, keeping the
// partial result as the system's expansion may: it must still be released.
int OutOfSpaceGlob(const char* pattern, int flags, int (*onError)(const char*, int),
                   glob_t* result) {
  ++s_calls;
  const int code = OvraTestRealSysCalls()->glob(pattern, flags, onError, result);
  return code == 0 ? GLOB_NOSPACE : code;
}

class FileFaultTest : public FileTest {
 protected:
  void SetUp() override {
    FileTest::SetUp();
    Reset();
    ASSERT_TRUE(WriteFile(At("data"), "0123456789"));
  }
  TBstr Data() { return B(At("data")); }
};

TEST_F(FileFaultTest, FailingFopenGivesFalseAndLeavesTheFileClosed) {
  TFile file;
  {
    ScopedSysCall failing(&SSysCalls::fopen, FailingFopen);
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
  TFile file;
  {
    ScopedSysCall failing(&SSysCalls::fstat, FailingFstat);
    ScopedSysCall counting(&SSysCalls::fclose, CountingFclose);
    errno = 0;
    EXPECT_FALSE(file.Open(Data(), TFile::kOpenRead, false));
    EXPECT_EQ(errno, EIO);
  }
  EXPECT_EQ(s_calls, 1);
  EXPECT_EQ(s_closes, 1) << "the stream opened before the failure was not closed";
  EXPECT_FALSE(file.IsOpen());
}

TEST_F(FileFaultTest, FailingFreadGivesZeroAndAShortReadItsCount) {
  TFile file;
  ASSERT_TRUE(file.Open(Data(), TFile::kOpenRead, false));
  char buffer[10] = {};
  {
    ScopedSysCall failing(&SSysCalls::fread, FailingFread);
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
    ScopedSysCall failing(&SSysCalls::fwrite, FailingFwrite);
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
    ScopedSysCall failing(&SSysCalls::fflush, FailingFflush);
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

TEST_F(FileFaultTest, FailingFseekoFailsSetPositionSetLengthAndGetLength) {
  TFile file;
  ASSERT_TRUE(file.Open(Data(), TFile::kOpenRead, false));
  ASSERT_TRUE(file.SetPosition(4, 0));
  {
    ScopedSysCall failing(&SSysCalls::fseeko, FailingFseeko);
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
    ScopedSysCall failing(&SSysCalls::fseeko, FailingFseekoFromStart);
    EXPECT_EQ(file.GetLength(), 0u);
  }
  EXPECT_EQ(s_calls, 1);
  EXPECT_EQ(file.GetLength(), 10u);
}

TEST_F(FileFaultTest, FailingFtelloGivesZeroPositionAndLength) {
  TFile file;
  ASSERT_TRUE(file.Open(Data(), TFile::kOpenRead, false));
  ASSERT_TRUE(file.SetPosition(3, 0));
  {
    ScopedSysCall failing(&SSysCalls::ftello, FailingFtello);
    EXPECT_EQ(file.GetPosition(), 0u);
    EXPECT_EQ(file.GetLength(), 0u);
  }
  EXPECT_EQ(s_calls, 2);
  EXPECT_EQ(file.GetPosition(), 3u);
}

TEST_F(FileFaultTest, FailingRenameAndRemoveGiveFalseAndChangeNothing) {
  {
    ScopedSysCall failingRename(&SSysCalls::rename, FailingRename);
    ScopedSysCall failingRemove(&SSysCalls::remove, FailingRemove);
    EXPECT_FALSE(TFile::Rename(Data(), B(At("moved"))));
    EXPECT_FALSE(TFile::Remove(Data()));
  }
  EXPECT_EQ(s_calls, 2);
  EXPECT_TRUE(Exists(At("data")));
  EXPECT_FALSE(Exists(At("moved")));
}

TEST_F(FileFaultTest, FailingMkdirGivesFalseForCreateDirectoryAndCreatePath) {
  {
    ScopedSysCall failing(&SSysCalls::mkdir, FailingMkdir);
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

TEST_F(FileFaultTest, MkdirReportingAnExistingEntryCountsAsSuccess) {
  {
    ScopedSysCall existing(&SSysCalls::mkdir, ExistingMkdir);
    EXPECT_TRUE(TFile::CreateDirectory(B(At("d"))));
  }
  EXPECT_EQ(s_calls, 1);
  EXPECT_FALSE(Exists(At("d")));
}

TEST_F(FileFaultTest, FailingRmdirAndUtimeGiveFalse) {
  ASSERT_EQ(mkdir(At("d").c_str(), 0700), 0);
  {
    ScopedSysCall failingRmdir(&SSysCalls::rmdir, FailingRmdir);
    ScopedSysCall failingUtime(&SSysCalls::utime, FailingUtime);
    EXPECT_FALSE(TFile::RemoveDirectory(B(At("d"))));
    EXPECT_FALSE(TFile::SetLastWriteTime(Data(), 1000000));
  }
  EXPECT_EQ(s_calls, 2);
  EXPECT_TRUE(IsDirectory(At("d")));
  EXPECT_TRUE(TFile::SetLastWriteTime(Data(), 1000000));
}

TEST_F(FileFaultTest, FailingLstatSkipsEntriesSoNothingIsFound) {
  ASSERT_TRUE(WriteFile(At("other"), "x"));
  TFileInfo info;
  info.size = 77;
  TFileFinder finder;
  {
    ScopedSysCall failing(&SSysCalls::lstat, FailingLstat);
    EXPECT_FALSE(TFile::GetInfo(Data(), info));
    EXPECT_FALSE(finder.Find(B(At("*")).GetString(), false));
    EXPECT_FALSE(finder.Find(B(At("*")).GetString(), true));
  }
  EXPECT_GE(s_calls, 3);
  EXPECT_EQ(info.size, 77u) << "info must stay untouched";
  EXPECT_TRUE(TFile::GetInfo(Data(), info));
  EXPECT_EQ(info.size, 10u);
}

TEST_F(FileFaultTest, FailingLstatInsideARecursiveSearchEndsItCleanly) {
  ASSERT_EQ(mkdir(At("sub").c_str(), 0700), 0);
  ASSERT_TRUE(WriteFile(At("sub/inner"), "x"));
  TFileFinder finder;
  ASSERT_TRUE(finder.Find(B(At("*")).GetString(), true));
  // From now on every entry vanishes: the walk ends without a wrong report.
  ScopedSysCall failing(&SSysCalls::lstat, FailingLstat);
  int more = 0;
  while (finder.FindNext()) ++more;
  EXPECT_EQ(more, 0);
}

TEST_F(FileFaultTest, AbortedGlobFindsNothing) {
  TFileInfo info;
  TFileFinder finder;
  {
    ScopedSysCall failing(&SSysCalls::glob, AbortedGlob);
    EXPECT_FALSE(TFile::GetInfo(Data(), info));
    EXPECT_FALSE(finder.Find(B(At("*")).GetString(), false));
    EXPECT_FALSE(finder.Find(B(At("*")).GetString(), true));
  }
  EXPECT_EQ(s_calls, 3);
  EXPECT_TRUE(finder.Find(B(At("*")).GetString(), false));
}

TEST_F(FileFaultTest, GlobOutOfSpaceWithPartialResultsFindsNothingAndFreesThem) {
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
}

TEST_F(FileFaultTest, FailingCallsCombinedWithAllocationFailuresLeakNothing) {
  // A failing system call on the out-of-memory paths too: the first few
  // allocations of each operation fail in turn while the call fails.
  ScopedSysCall failingGlob(&SSysCalls::glob, OutOfSpaceGlob);
  ScopedSysCall failingFopen(&SSysCalls::fopen, FailingFopen);
  for (long n = 1; n <= 4; ++n) {
    FailNthAllocation(n);
    TFile file;
    EXPECT_FALSE(file.Open(Data(), TFile::kOpenRead, false));
    TFileFinder finder;
    EXPECT_FALSE(finder.Find(B(At("*")).GetString(), true));
    StopFailing();
  }
}

}  // namespace
