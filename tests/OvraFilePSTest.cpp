// Tests of the POSIX half of TFile: what the three open modes do to files,
// reading, writing, flushing and positioning through the system's streams with
// 64-bit offsets (sparse files of 4 GiB and more included), and the operations
// on names. Every test runs in a fresh temporary folder.
#include "OvraFile.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <string>

#include "TestBstr.h"
#include "TestFiles.h"

namespace {

using ovra_test::B;
using ovra_test::Exists;
using ovra_test::FileTest;
using ovra_test::IsDirectory;
using ovra_test::kWindows;
using ovra_test::MakeSparseFile;
using ovra_test::Narrow;
using ovra_test::ReadFile;
using ovra_test::RunUnprivileged;
using ovra_test::SizeOf;
using ovra_test::Unprivileged;
using ovra_test::WriteFile;

using FileModeTest = FileTest;
using FileIoTest = FileTest;
using LargeFileTest = FileTest;
using FileNameOpsTest = FileTest;

constexpr long long kFourGiB = 0x100000000LL;

// ---------------------------------------------------------------------------
// Open modes
// ---------------------------------------------------------------------------

TEST_F(FileModeTest, ReadOnlyRequiresAnExistingFileAndKeepsItsContents) {
  TFile file;
  EXPECT_FALSE(file.Open(B("missing"), TFile::kOpenRead, false));
  EXPECT_FALSE(Exists("missing"));
  ASSERT_TRUE(WriteFile("f", "contents"));
  ASSERT_TRUE(file.Open(B("f"), TFile::kOpenRead, false));
  EXPECT_EQ(file.GetLength(), 8u);
  EXPECT_EQ(file.Write("x", 1), 0u);
  EXPECT_TRUE(file.Close());
  EXPECT_EQ(ReadFile("f"), "contents");
}

TEST_F(FileModeTest, ReadWriteWithoutCreateRequiresTheFileAndKeepsItsContents) {
  TFile file;
  EXPECT_FALSE(file.Open(B("missing"), TFile::kOpenWrite, false));
  EXPECT_FALSE(Exists("missing"));
  ASSERT_TRUE(WriteFile("f", "0123456789"));
  ASSERT_TRUE(file.Open(B("f"), TFile::kOpenWrite | TFile::kOpenRead, false));
  EXPECT_EQ(file.GetLength(), 10u);
  EXPECT_EQ(file.Write("ab", 2), 2u);
  ASSERT_TRUE(file.SetPosition(0, 0));
  char buffer[11] = {};
  EXPECT_EQ(file.Read(buffer, 10), 10u);
  EXPECT_STREQ(buffer, "ab23456789");
  EXPECT_TRUE(file.Close());
  EXPECT_EQ(ReadFile("f"), "ab23456789");
}

TEST_F(FileModeTest, CreateMakesANewFileOpenForReadingAndWriting) {
  TFile file;
  ASSERT_TRUE(file.Open(B("new"), TFile::kOpenWrite, true));
  EXPECT_TRUE(Exists("new"));
  EXPECT_EQ(file.Write("data", 4), 4u);
  ASSERT_TRUE(file.SetPosition(0, 0));
  char buffer[5] = {};
  EXPECT_EQ(file.Read(buffer, 4), 4u);
  EXPECT_STREQ(buffer, "data");
}

TEST_F(FileModeTest, CreateTruncatesAnExistingFile) {
  ASSERT_TRUE(WriteFile("f", "old contents"));
  TFile file;
  ASSERT_TRUE(file.Open(B("f"), TFile::kOpenWrite, true));
  EXPECT_EQ(file.GetLength(), 0u);
  EXPECT_EQ(SizeOf("f"), 0);
}

TEST_F(FileModeTest, NewFileGetsTheUsualPermissions) {
  OVRA_SKIP_PERMISSION_BITS();
  const mode_t old = umask(022);
  TFile file;
  ASSERT_TRUE(file.Open(B("f"), TFile::kOpenWrite, true));
  umask(old);
  struct stat st;
  ASSERT_EQ(stat("f", &st), 0);
  EXPECT_EQ(static_cast<unsigned>(st.st_mode & 0777), 0644u);
}

TEST_F(FileModeTest, ADirectoryIsNotOpenedAsAFile) {
  ASSERT_TRUE(ovra_test::MakeDir("d"));
  TFile file;
  EXPECT_FALSE(file.Open(B("d"), 0, false));
  EXPECT_FALSE(file.Open(B("d"), TFile::kOpenWrite, false));
  EXPECT_FALSE(file.Open(B("d"), TFile::kOpenWrite, true));
  EXPECT_FALSE(file.Open(B("d/"), 0, false));
  EXPECT_FALSE(file.IsOpen());
  EXPECT_TRUE(IsDirectory("d"));
}

TEST_F(FileModeTest, DanglingSymbolicLinkCannotBeOpenedForReading) {
  OVRA_REQUIRE_SYMLINKS();
  ASSERT_TRUE(ovra_test::MakeSymlink("nowhere", "dangling"));
  TFile file;
  EXPECT_FALSE(file.Open(B("dangling"), 0, false));
  EXPECT_FALSE(file.Open(B("dangling"), TFile::kOpenWrite, false));
  EXPECT_FALSE(Exists("nowhere"));
}

TEST_F(FileModeTest, FileInAMissingFolderCannotBeCreated) {
  TFile file;
  EXPECT_FALSE(file.Open(B("no/such/folder/f"), TFile::kOpenWrite, true));
  EXPECT_FALSE(Exists("no"));
}

TEST_F(FileModeTest, UnreadableFileCannotBeOpened) {
  OVRA_SKIP_PERMISSION_BITS();
  ASSERT_TRUE(WriteFile("secret", "s"));
  ASSERT_EQ(chmod("secret", 0), 0);
  const std::string path = At("secret");
  const Unprivileged outcome = RunUnprivileged([path] {
    TFile file;
    return !file.Open(B(path), 0, false) && !file.Open(B(path), TFile::kOpenWrite, false) &&
           !file.IsOpen();
  });
  if (outcome == Unprivileged::kUnavailable)
    GTEST_SKIP() << "running as root and cannot drop privileges to check permissions";
  EXPECT_EQ(outcome, Unprivileged::kPassed);
}

TEST_F(FileModeTest, FileInAFolderWithoutSearchPermissionCannotBeOpenedOrCreated) {
  OVRA_SKIP_PERMISSION_BITS();
  ASSERT_TRUE(ovra_test::MakeDir("closed"));
  ASSERT_TRUE(WriteFile("closed/inside", "i"));
  ASSERT_EQ(chmod("closed", 0), 0);
  const std::string inside = At("closed/inside");
  const std::string fresh = At("closed/fresh");
  const Unprivileged outcome = RunUnprivileged([inside, fresh] {
    TFile file;
    return !file.Open(B(inside), 0, false) && !file.Open(B(fresh), TFile::kOpenWrite, true) &&
           !file.IsOpen();
  });
  if (outcome == Unprivileged::kUnavailable)
    GTEST_SKIP() << "running as root and cannot drop privileges to check permissions";
  EXPECT_EQ(outcome, Unprivileged::kPassed);
  ASSERT_EQ(chmod("closed", 0755), 0);
  EXPECT_FALSE(Exists("closed/fresh"));
}

// ---------------------------------------------------------------------------
// Reading, writing, flushing, positions
// ---------------------------------------------------------------------------

TEST_F(FileIoTest, ReadReturnsFewerBytesAtTheEndOfTheFile) {
  ASSERT_TRUE(WriteFile("f", "abc"));
  TFile file;
  ASSERT_TRUE(file.Open(B("f"), 0, false));
  char buffer[10];
  EXPECT_EQ(file.Read(buffer, 10), 3u);
  EXPECT_EQ(file.Read(buffer, 10), 0u);
  EXPECT_EQ(file.Read(buffer, 0), 0u);
}

TEST_F(FileIoTest, FlushMakesWrittenDataVisibleToOtherReaders) {
  TFile file;
  ASSERT_TRUE(file.Open(B("f"), TFile::kOpenWrite, true));
  EXPECT_EQ(file.Write("flushed", 7), 7u);
  EXPECT_TRUE(file.Flush());
  EXPECT_EQ(ReadFile("f"), "flushed");
}

TEST_F(FileIoTest, FlushOnAReadOnlyFileSucceeds) {
  ASSERT_TRUE(WriteFile("f", "x"));
  TFile file;
  ASSERT_TRUE(file.Open(B("f"), 0, false));
  EXPECT_TRUE(file.Flush());
}

TEST_F(FileIoTest, WriteErrorsShowInFlushAndClose) {
  if (!Exists("/dev/full")) GTEST_SKIP() << "no /dev/full on this system";
  TFile file;
  ASSERT_TRUE(file.Open(B("/dev/full"), TFile::kOpenWrite, false));
  EXPECT_EQ(file.Write("buffered", 8), 8u);  // only buffered so far
  EXPECT_FALSE(file.Flush());
  EXPECT_EQ(file.Write("again", 5), 5u);
  // Closing writes the buffer and fails; the stream is released all the same.
  EXPECT_FALSE(file.Close());
  EXPECT_FALSE(file.IsOpen());
  EXPECT_TRUE(file.GetFileSpec().IsEmpty());
  EXPECT_FALSE(file.Close());
}

TEST_F(FileIoTest, SetPositionUsesTheThreeOrigins) {
  ASSERT_TRUE(WriteFile("f", "0123456789"));
  TFile file;
  ASSERT_TRUE(file.Open(B("f"), 0, false));
  char c = 0;
  ASSERT_TRUE(file.SetPosition(3, 0));
  EXPECT_EQ(file.GetPosition(), 3u);
  ASSERT_EQ(file.Read(&c, 1), 1u);
  EXPECT_EQ(c, '3');
  ASSERT_TRUE(file.SetPosition(2, 1));
  EXPECT_EQ(file.GetPosition(), 6u);
  ASSERT_TRUE(file.SetPosition(-1, 1));
  EXPECT_EQ(file.GetPosition(), 5u);
  ASSERT_TRUE(file.SetPosition(-2, 2));
  EXPECT_EQ(file.GetPosition(), 8u);
  ASSERT_EQ(file.Read(&c, 1), 1u);
  EXPECT_EQ(c, '8');
  ASSERT_TRUE(file.SetPosition(0, 2));
  EXPECT_EQ(file.GetPosition(), 10u);
}

TEST_F(FileIoTest, PositionBeforeTheStartIsRefusedAndNothingMoves) {
  ASSERT_TRUE(WriteFile("f", "0123456789"));
  TFile file;
  ASSERT_TRUE(file.Open(B("f"), 0, false));
  ASSERT_TRUE(file.SetPosition(4, 0));
  EXPECT_FALSE(file.SetPosition(-1, 0));
  EXPECT_FALSE(file.SetPosition(-5, 1));
  EXPECT_FALSE(file.SetPosition(-11, 2));
  EXPECT_EQ(file.GetPosition(), 4u);
}

TEST_F(FileIoTest, WritingPastTheEndExtendsTheFileWithZeros) {
  ASSERT_TRUE(WriteFile("f", "ab"));
  TFile file;
  ASSERT_TRUE(file.Open(B("f"), TFile::kOpenWrite, false));
  ASSERT_TRUE(file.SetPosition(5, 2));
  EXPECT_EQ(file.Write("z", 1), 1u);
  EXPECT_EQ(file.GetLength(), 8u);
  EXPECT_TRUE(file.Close());
  EXPECT_EQ(ReadFile("f"), std::string("ab\0\0\0\0\0z", 8));
}

TEST_F(FileIoTest, GetLengthLeavesThePositionWhereItWas) {
  ASSERT_TRUE(WriteFile("f", std::string(100, 'x')));
  TFile file;
  ASSERT_TRUE(file.Open(B("f"), 0, false));
  ASSERT_TRUE(file.SetPosition(37, 0));
  EXPECT_EQ(file.GetLength(), 100u);
  EXPECT_EQ(file.GetPosition(), 37u);
  char buffer[4];
  EXPECT_EQ(file.Read(buffer, 4), 4u);
  EXPECT_EQ(file.GetPosition(), 41u);
}

TEST_F(FileIoTest, GetLengthCountsDataStillInTheBuffer) {
  TFile file;
  ASSERT_TRUE(file.Open(B("f"), TFile::kOpenWrite, true));
  EXPECT_EQ(file.Write("12345", 5), 5u);
  EXPECT_EQ(file.GetLength(), 5u);
  EXPECT_EQ(file.GetPosition(), 5u);
  EXPECT_EQ(file.Write("678", 3), 3u);
  EXPECT_EQ(file.GetLength(), 8u);
}

TEST_F(FileIoTest, SetLengthZeroOnA100ByteFileOnlyMovesThePosition) {
  ASSERT_TRUE(WriteFile("f", std::string(100, 'x')));
  TFile file;
  ASSERT_TRUE(file.Open(B("f"), TFile::kOpenWrite, false));
  ASSERT_TRUE(file.SetPosition(50, 0));
  EXPECT_TRUE(file.SetLength(0));
  EXPECT_EQ(file.GetPosition(), 0u);
  EXPECT_EQ(file.GetLength(), 100u);
  EXPECT_TRUE(file.Close());
  EXPECT_EQ(SizeOf("f"), 100);
}

TEST_F(FileIoTest, SetLengthBeyondTheEndDoesNotExtendButAWriteThereDoes) {
  ASSERT_TRUE(WriteFile("f", std::string(100, 'x')));
  TFile file;
  ASSERT_TRUE(file.Open(B("f"), TFile::kOpenWrite, false));
  EXPECT_TRUE(file.SetLength(200));
  EXPECT_EQ(file.GetPosition(), 200u);
  EXPECT_EQ(file.GetLength(), 100u);
  EXPECT_EQ(SizeOf("f"), 100);
  EXPECT_EQ(file.Write("y", 1), 1u);
  EXPECT_EQ(file.GetLength(), 201u);
}

TEST_F(FileIoTest, SetLengthOnAReadOnlyFileMovesThePositionToo) {
  ASSERT_TRUE(WriteFile("f", "0123456789"));
  TFile file;
  ASSERT_TRUE(file.Open(B("f"), 0, false));
  EXPECT_TRUE(file.SetLength(7));
  char c = 0;
  ASSERT_EQ(file.Read(&c, 1), 1u);
  EXPECT_EQ(c, '7');
}

TEST_F(FileIoTest, EmptyFileHasLengthAndPositionZero) {
  ASSERT_TRUE(WriteFile("f", ""));
  TFile file;
  ASSERT_TRUE(file.Open(B("f"), 0, false));
  EXPECT_EQ(file.GetLength(), 0u);
  EXPECT_EQ(file.GetPosition(), 0u);
  char c;
  EXPECT_EQ(file.Read(&c, 1), 0u);
}

TEST_F(FileIoTest, ReadAndWriteAlternateWithAPositionInBetween) {
  TFile file;
  ASSERT_TRUE(file.Open(B("f"), TFile::kOpenWrite, true));
  EXPECT_EQ(file.Write("abcdef", 6), 6u);
  ASSERT_TRUE(file.SetPosition(2, 0));
  char buffer[3] = {};
  EXPECT_EQ(file.Read(buffer, 2), 2u);
  EXPECT_STREQ(buffer, "cd");
  ASSERT_TRUE(file.SetPosition(0, 1));
  EXPECT_EQ(file.Write("XY", 2), 2u);
  EXPECT_TRUE(file.Close());
  EXPECT_EQ(ReadFile("f"), "abcdXY");
}

// ---------------------------------------------------------------------------
// Files of 4 GiB and more (sparse: no data blocks are written)
// ---------------------------------------------------------------------------

#define REQUIRE_SPARSE(path, size)                                                   \
  do {                                                                               \
    if (!MakeSparseFile(path, size))                                                 \
      GTEST_SKIP() << "the file system here does not allow a file of " << (size)     \
                   << " bytes";                                                      \
  } while (0)

TEST_F(LargeFileTest, LengthOfFourGiBAndMoreIsCappedNotWrapped) {
  REQUIRE_SPARSE("big", kFourGiB + 100);
  TFile file;
  ASSERT_TRUE(file.Open(B("big"), 0, false));
  // A wrapped length would be 100.
  EXPECT_EQ(file.GetLength(), kFileSizeCeiling);
  EXPECT_EQ(file.GetPosition(), 0u);
}

TEST_F(LargeFileTest, LengthsJustBelowTheCeilingAreExact) {
  REQUIRE_SPARSE("a", kFourGiB - 2);
  REQUIRE_SPARSE("b", kFourGiB - 1);
  REQUIRE_SPARSE("c", kFourGiB);
  REQUIRE_SPARSE("d", 0x80000001LL);
  TFile file;
  ASSERT_TRUE(file.Open(B("a"), 0, false));
  EXPECT_EQ(file.GetLength(), 0xFFFFFFFEu);
  file.Close();
  ASSERT_TRUE(file.Open(B("b"), 0, false));
  EXPECT_EQ(file.GetLength(), 0xFFFFFFFFu);
  file.Close();
  ASSERT_TRUE(file.Open(B("c"), 0, false));
  EXPECT_EQ(file.GetLength(), kFileSizeCeiling);  // not 0
  file.Close();
  ASSERT_TRUE(file.Open(B("d"), 0, false));
  EXPECT_EQ(file.GetLength(), 0x80000001u);  // above 2 GiB without a sign
}

TEST_F(LargeFileTest, PositionsBeyondTheCeilingAreReachableAndReportedCapped) {
  REQUIRE_SPARSE("big", kFourGiB + 100);
  TFile file;
  ASSERT_TRUE(file.Open(B("big"), TFile::kOpenWrite, false));
  ASSERT_TRUE(file.SetPosition(-10, 2));  // 4 GiB + 90
  EXPECT_EQ(file.GetPosition(), kFileSizeCeiling);
  EXPECT_EQ(file.Write("tail", 4), 4u);
  EXPECT_EQ(file.GetPosition(), kFileSizeCeiling);
  EXPECT_TRUE(file.Flush());
  // The bytes landed at 4 GiB + 90, not at the wrapped offset 90.
  FILE* raw = fopen("big", "rb");
  ASSERT_NE(raw, nullptr);
  char buffer[4] = {};
  ASSERT_EQ(fseeko(raw, static_cast<off_t>(kFourGiB + 90), SEEK_SET), 0);
  ASSERT_EQ(fread(buffer, 1, 4, raw), 4u);
  EXPECT_EQ(std::string(buffer, 4), "tail");
  ASSERT_EQ(fseeko(raw, 90, SEEK_SET), 0);
  ASSERT_EQ(fread(buffer, 1, 4, raw), 4u);
  EXPECT_EQ(std::string(buffer, 4), std::string(4, '\0'));
  fclose(raw);
  // GetLength still restores the exact (uncapped) position.
  ASSERT_TRUE(file.SetPosition(-10, 2));
  EXPECT_EQ(file.GetLength(), kFileSizeCeiling);
  char tail[4] = {};
  EXPECT_EQ(file.Read(tail, 4), 4u);
  EXPECT_EQ(std::string(tail, 4), "tail");
}

TEST_F(LargeFileTest, SetLengthReachesTheWholeUnsignedRange) {
  REQUIRE_SPARSE("big", kFourGiB + 100);
  TFile file;
  ASSERT_TRUE(file.Open(B("big"), TFile::kOpenWrite, false));
  EXPECT_TRUE(file.SetLength(0x80000000u));
  EXPECT_EQ(file.GetPosition(), 0x80000000u);
  EXPECT_TRUE(file.SetLength(0xFFFFFFFEu));
  EXPECT_EQ(file.GetPosition(), 0xFFFFFFFEu);
  EXPECT_EQ(file.Write("w", 1), 1u);
  EXPECT_EQ(file.GetPosition(), 0xFFFFFFFFu);
  EXPECT_TRUE(file.SetLength(0xFFFFFFFFu));
  EXPECT_EQ(file.GetPosition(), kFileSizeCeiling);
  // The file keeps its length: SetLength only moves.
  EXPECT_EQ(SizeOf("big"), kFourGiB + 100);
}

TEST_F(LargeFileTest, RelativeMovesCrossTheFourGiBBoundaryBothWays) {
  REQUIRE_SPARSE("big", kFourGiB + 100);
  TFile file;
  ASSERT_TRUE(file.Open(B("big"), 0, false));
  ASSERT_TRUE(file.SetLength(0xFFFFFFF0u));
  ASSERT_TRUE(file.SetPosition(0x20, 1));  // 4 GiB + 16
  EXPECT_EQ(file.GetPosition(), kFileSizeCeiling);
  ASSERT_TRUE(file.SetPosition(-0x20, 1));  // back to 4 GiB - 16
  EXPECT_EQ(file.GetPosition(), 0xFFFFFFF0u);
}

TEST_F(LargeFileTest, InfoSizeOfFourGiBAndMoreIsCapped) {
  REQUIRE_SPARSE("big", kFourGiB + 5);
  REQUIRE_SPARSE("edge", kFourGiB - 2);
  TFileInfo info;
  ASSERT_TRUE(TFile::GetInfo(B("big"), info));
  EXPECT_EQ(info.size, kFileSizeCeiling);  // a wrapped size would be 5
  ASSERT_TRUE(TFile::GetInfo(B("edge"), info));
  EXPECT_EQ(info.size, 0xFFFFFFFEu);
}

// ---------------------------------------------------------------------------
// Operations on names
// ---------------------------------------------------------------------------

TEST_F(FileNameOpsTest, RenameMovesAFile) {
  ASSERT_TRUE(WriteFile("from", "payload"));
  ASSERT_TRUE(ovra_test::MakeDir("d"));
  EXPECT_TRUE(TFile::Rename(B("from"), B("d/to")));
  EXPECT_FALSE(Exists("from"));
  EXPECT_EQ(ReadFile("d/to"), "payload");
}

TEST_F(FileNameOpsTest, RenameReplacesAnExistingTarget) {
  ASSERT_TRUE(WriteFile("a", "A"));
  ASSERT_TRUE(WriteFile("b", "B"));
  EXPECT_TRUE(TFile::Rename(B("a"), B("b")));
  EXPECT_EQ(ReadFile("b"), "A");
}

TEST_F(FileNameOpsTest, RenameFailures) {
  ASSERT_TRUE(WriteFile("a", "A"));
  EXPECT_FALSE(TFile::Rename(B("missing"), B("x")));
  EXPECT_FALSE(TFile::Rename(B("a"), B("no/such/dir/x")));
  EXPECT_FALSE(TFile::Rename(TBstr(), B("x")));
  EXPECT_FALSE(TFile::Rename(B("a"), TBstr()));
  const unsigned short inner[] = {'x', 0, 'y'};
  EXPECT_FALSE(TFile::Rename(B("a"), TBstr(inner, 3)));
  EXPECT_FALSE(Exists("x"));
  if (!kWindows) {  // Windows takes U+0100 as it is
    const unsigned short wide[] = {'x', 0x100, 0};
    EXPECT_FALSE(TFile::Rename(B("a"), TBstr(wide)));
    EXPECT_FALSE(Exists("x?"));
  }
  EXPECT_EQ(ReadFile("a"), "A");
}

TEST_F(FileNameOpsTest, RenameKeepsNamesWithBlanksAndNonAsciiBytes) {
  ASSERT_TRUE(WriteFile("plain", "p"));
  const std::string target = "na\xC3\xAFve \xFF name";
  EXPECT_TRUE(TFile::Rename(B("plain"), B(target)));
  EXPECT_EQ(ReadFile(target), "p");
}

TEST_F(FileNameOpsTest, RemoveDeletesFilesAndEmptyDirectories) {
  ASSERT_TRUE(WriteFile("f", "x"));
  ASSERT_TRUE(ovra_test::MakeDir("empty"));
  ASSERT_TRUE(ovra_test::MakeDir("full"));
  ASSERT_TRUE(WriteFile("full/f", "x"));
  EXPECT_TRUE(TFile::Remove(B("f")));
  EXPECT_FALSE(Exists("f"));
  EXPECT_TRUE(TFile::Remove(B("empty")));
  EXPECT_FALSE(Exists("empty"));
  EXPECT_FALSE(TFile::Remove(B("full")));
  EXPECT_TRUE(Exists("full/f"));
  EXPECT_FALSE(TFile::Remove(B("missing")));
  EXPECT_FALSE(TFile::Remove(TBstr()));
}

TEST_F(FileNameOpsTest, RemoveOfALinkRemovesTheLinkOnly) {
  OVRA_REQUIRE_SYMLINKS();
  ASSERT_TRUE(WriteFile("target", "t"));
  ASSERT_TRUE(ovra_test::MakeSymlink("target", "link"));
  ASSERT_TRUE(ovra_test::MakeSymlink("nowhere", "dangling"));
  EXPECT_TRUE(TFile::Remove(B("link")));
  EXPECT_TRUE(TFile::Remove(B("dangling")));
  EXPECT_EQ(ReadFile("target"), "t");
  EXPECT_FALSE(Exists("link"));
  EXPECT_FALSE(Exists("dangling"));
}

TEST_F(FileNameOpsTest, RemoveRefusesANameThatWouldChangeOnItsWay) {
  ASSERT_TRUE(WriteFile("a", "keep"));
  const unsigned short inner[] = {'a', 0, 'z'};
  EXPECT_FALSE(TFile::Remove(TBstr(inner, 3)));
  EXPECT_TRUE(Exists("a"));
  if (kWindows) return;  // Windows takes U+263A as it is, and no "?"
  ASSERT_TRUE(WriteFile("a?", "keep"));
  const unsigned short wide[] = {'a', 0x263A, 0};
  EXPECT_FALSE(TFile::Remove(TBstr(wide)));
  EXPECT_TRUE(Exists("a?"));
}

TEST_F(FileNameOpsTest, CreateDirectoryStripsTrailingSeparators) {
  ASSERT_TRUE(ovra_test::MakeDir("a"));
  EXPECT_TRUE(TFile::CreateDirectory(B("a/b/")));
  EXPECT_TRUE(IsDirectory("a/b"));
  EXPECT_TRUE(TFile::CreateDirectory(B("c///")));
  EXPECT_TRUE(IsDirectory("c"));
}

TEST_F(FileNameOpsTest, CreateDirectoryOfAnExistingEntrySucceeds) {
  ASSERT_TRUE(ovra_test::MakeDir("d"));
  ASSERT_TRUE(WriteFile("f", "plain"));
  EXPECT_TRUE(TFile::CreateDirectory(B("d")));
  // The leniency extends to an existing plain file, which stays one.
  EXPECT_TRUE(TFile::CreateDirectory(B("f")));
  EXPECT_EQ(ReadFile("f"), "plain");
  EXPECT_FALSE(IsDirectory("f"));
}

TEST_F(FileNameOpsTest, CreateDirectoryUsesMode0775LessTheMask) {
  OVRA_SKIP_PERMISSION_BITS();
  const mode_t old = umask(0);
  const bool created = TFile::CreateDirectory(B("open"));
  umask(027);
  const bool masked = TFile::CreateDirectory(B("masked"));
  umask(old);
  ASSERT_TRUE(created);
  ASSERT_TRUE(masked);
  struct stat st;
  ASSERT_EQ(stat("open", &st), 0);
  EXPECT_EQ(static_cast<unsigned>(st.st_mode & 07777), 0775u);
  ASSERT_EQ(stat("masked", &st), 0);
  EXPECT_EQ(static_cast<unsigned>(st.st_mode & 07777), 0750u);
}

TEST_F(FileNameOpsTest, CreateDirectoryFailures) {
  EXPECT_FALSE(TFile::CreateDirectory(TBstr()));
  EXPECT_FALSE(TFile::CreateDirectory(B("/")));
  EXPECT_FALSE(TFile::CreateDirectory(B("//")));
  EXPECT_FALSE(TFile::CreateDirectory(B("missing/child")));
  EXPECT_FALSE(Exists("missing"));
  const unsigned short inner[] = {'d', 0, 'e'};
  EXPECT_FALSE(TFile::CreateDirectory(TBstr(inner, 3)));
  EXPECT_FALSE(Exists("d"));
  if (!kWindows) {  // Windows takes U+0100 as it is
    const unsigned short wide[] = {'d', 0x100, 0};
    EXPECT_FALSE(TFile::CreateDirectory(TBstr(wide)));
    EXPECT_FALSE(Exists("d?"));
  }
}

TEST_F(FileNameOpsTest, CreateDirectoryInAnUnwritableFolderFails) {
  OVRA_SKIP_PERMISSION_BITS();
  ASSERT_TRUE(ovra_test::MakeDir("ro", 0555));
  ASSERT_EQ(chmod("ro", 0555), 0);
  const std::string path = At("ro/sub");
  const Unprivileged outcome = RunUnprivileged([path] { return !TFile::CreateDirectory(B(path)); });
  if (outcome == Unprivileged::kUnavailable)
    GTEST_SKIP() << "running as root and cannot drop privileges to check permissions";
  EXPECT_EQ(outcome, Unprivileged::kPassed);
  EXPECT_FALSE(Exists("ro/sub"));
}

TEST_F(FileNameOpsTest, RemoveDirectoryRemovesOnlyEmptyDirectories) {
  ASSERT_TRUE(ovra_test::MakeDir("empty"));
  ASSERT_TRUE(ovra_test::MakeDir("full"));
  ASSERT_TRUE(WriteFile("full/f", "x"));
  ASSERT_TRUE(WriteFile("plain", "x"));
  EXPECT_TRUE(TFile::RemoveDirectory(B("empty")));
  EXPECT_FALSE(Exists("empty"));
  EXPECT_FALSE(TFile::RemoveDirectory(B("full")));
  EXPECT_FALSE(TFile::RemoveDirectory(B("plain")));
  EXPECT_FALSE(TFile::RemoveDirectory(B("missing")));
  EXPECT_FALSE(TFile::RemoveDirectory(TBstr()));
  EXPECT_TRUE(Exists("full/f"));
  EXPECT_TRUE(Exists("plain"));
}

TEST_F(FileNameOpsTest, SetLastWriteTimeSetsModificationAndTouchesAccess) {
  ASSERT_TRUE(WriteFile("f", "x"));
  const time_t before = time(nullptr);
  EXPECT_TRUE(TFile::SetLastWriteTime(B("f"), 1000000000L));
  const time_t after = time(nullptr);
  struct stat st;
  ASSERT_EQ(stat("f", &st), 0);
  EXPECT_EQ(st.st_mtime, 1000000000);
  EXPECT_GE(st.st_atime, before);
  EXPECT_LE(st.st_atime, after);
  TFileInfo info;
  ASSERT_TRUE(TFile::GetInfo(B("f"), info));
  EXPECT_EQ(info.lastWriteTime, 1000000000);
}

TEST_F(FileNameOpsTest, SetLastWriteTimeAcceptsTimesBefore1970) {
  ASSERT_TRUE(WriteFile("f", "x"));
  EXPECT_TRUE(TFile::SetLastWriteTime(B("f"), -86400L));
#if defined(_WIN32)
  // The C runtime's stat gives no time before 1970: the system's own record.
  long long seconds = 0;
  ASSERT_TRUE(ovra_test::win::LastWriteSeconds(ovra_test::SystemPath(At("f")), seconds));
  EXPECT_EQ(seconds, -86400);
#else
  struct stat st;
  ASSERT_EQ(stat("f", &st), 0);
  EXPECT_EQ(st.st_mtime, -86400);
#endif
}

TEST_F(FileNameOpsTest, SetLastWriteTimeWorksOnDirectories) {
  ASSERT_TRUE(ovra_test::MakeDir("d"));
  EXPECT_TRUE(TFile::SetLastWriteTime(B("d/"), 123456789L));
  struct stat st;
  ASSERT_EQ(stat("d", &st), 0);
  EXPECT_EQ(st.st_mtime, 123456789);
}

TEST_F(FileNameOpsTest, SetLastWriteTimeFailures) {
  OVRA_REQUIRE_SYMLINKS();
  EXPECT_FALSE(TFile::SetLastWriteTime(B("missing"), 1L));
  EXPECT_FALSE(TFile::SetLastWriteTime(TBstr(), 1L));
  ASSERT_TRUE(ovra_test::MakeSymlink("nowhere", "dangling"));
  EXPECT_FALSE(TFile::SetLastWriteTime(B("dangling"), 1L));
}

TEST_F(FileNameOpsTest, TempDirectoryIsSlashTmpSlash) {
  // On Windows the system's temporary folder, written with "/".
  EXPECT_EQ(Narrow(TFile::GetTempDirectory()), ovra_test::ExpectedTempDirectory());
  if (kWindows) {
    EXPECT_NE(Narrow(TFile::GetTempDirectory()), "/tmp/");
  }
}

}  // namespace
