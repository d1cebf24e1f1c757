// TestPlatform.h - what the tests need to know about the system they run on:
// the one way a test that cannot apply to a platform is left out (with its
// reason, which the GoogleTest report shows as the skip message), and on
// Windows the system calls behind the shared test helpers. Those live in
// TestPlatformWin32.cpp, linked into every test program there, so that no
// test sees the system's headers: their macros rename some of the library's
// own names (CreateDirectory) and they define a _GUID of their own.
#ifndef OVRA_TESTS_TESTPLATFORM_H
#define OVRA_TESTS_TESTPLATFORM_H

#include <gtest/gtest.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include <string>

// Leaves the current test out on Windows, where what it checks does not exist
// (reason says why); elsewhere it does nothing. Use it as the test's first
// statement. The rest of the body must still compile on Windows: keep calls
// that exist on POSIX systems only inside `#if !defined(_WIN32)`.
#if defined(_WIN32)
#define OVRA_SKIP_ON_WINDOWS(reason) GTEST_SKIP() << "not on Windows: " << (reason)
#else
#define OVRA_SKIP_ON_WINDOWS(reason) static_cast<void>(0)
#endif

// The same for what only Wine (which runs the Windows build's tests on a
// POSIX machine) does differently from Windows itself: the test is left out
// under Wine, with its reason, and runs on Windows.
#if defined(_WIN32)
#define OVRA_SKIP_UNDER_WINE(reason)  \
  if (ovra_test::win::UnderWine()) \
  GTEST_SKIP() << "not under Wine: " << (reason)
#else
#define OVRA_SKIP_UNDER_WINE(reason) static_cast<void>(0)
#endif

namespace ovra_test {

#if defined(_WIN32)
constexpr bool kWindows = true;

// Paths are UTF-8; the calls take the wide names. Links are never followed
// (as lstat does not follow them).
namespace win {
bool Exists(const std::string& path);
bool IsDirectory(const std::string& path);
long long SizeOf(const std::string& path);
bool MakeDirectory(const std::string& path);
bool MakeSparseFile(const std::string& path, long long size);
// Removes a tree, first clearing any read-only mark; links to folders are
// removed without being entered.
void RemoveTree(const std::string& path);
// A fresh folder in the system's temporary folder; empty on failure.
std::string MakeTempFolder(const char* prefix);
std::string CurrentDirectory();
bool ChangeDirectory(const std::string& path);
// The full path of an existing file or folder, links resolved; empty when
// there is none.
std::string RealPath(const std::string& path);
// Whether this account can make symbolic links (it needs the privilege to
// create them, or developer mode, and a system that makes them).
bool CanMakeSymlinks();
bool MakeSymlink(const std::string& target, const std::string& link);
// Whether the library file at path is loaded in the process (not loading it).
bool IsModuleLoaded(const std::string& path);
// The full path (UTF-8) of the loaded module whose image holds address;
// empty when none does.
std::string ModuleFileOf(const void* address);
// The address of an exported function or variable of the loaded module at
// path (null when either is missing), for checks of what a library exports.
void* ModuleSymbol(const std::string& path, const char* name);
// blocks views of the first block bytes of content (block + page bytes,
// block a multiple of 64 KiB), one after the other, then one view of the
// page after them: an address range of blocks * block + page bytes backed by
// one block of memory. Null when the system cannot place views (it needs the
// placeholder calls of Windows 10 version 1803 or later).
unsigned char* MapRepeatedBlocks(const unsigned char* content, size_t block, size_t page,
                                 size_t blocks, bool writable);
void UnmapRepeatedBlocks(unsigned char* base, size_t block, size_t blocks);
// The system's own UTF-16 to UTF-8 conversion, which refuses lone
// surrogates; false when it refuses.
bool SystemUtf16ToUtf8(const unsigned short* units, size_t count, std::string& out);
// len bytes of zeros, read-only, given pages only where read; null on failure.
unsigned char* MapZeros(size_t len);
// Loads the library at path (a new reference); null on failure.
void* OpenModule(const std::string& path);
void CloseModule(void* module);
// The system's reading of a dotted IPv4 address in its one- to four-part
// forms (host byte order); false when it refuses the text.
bool SystemInetAddress(const char* text, uint32_t& address);
// GetProcAddress on a module handle.
void* HandleSymbol(void* module, const char* name);
size_t PageSize();
// pages committed, readable and writable pages; null on failure.
unsigned char* MapPages(size_t pages);
void UnmapPages(unsigned char* base, size_t pages);
// Makes [address, address + bytes) inaccessible.
bool ProtectNoAccess(unsigned char* address, size_t bytes);
// _wfopen of a UTF-8 path; null on failure.
FILE* OpenFile(const std::string& path, const char* mode);
// Whether the program runs under Wine rather than on Windows itself.
bool UnderWine();
// The system's temporary folder as GetTempPathW gives it (with its final
// separator).
std::string TempPath();
// The last write time of an entry in seconds since 1970 (negative before
// it), read from the system's own record; false when it cannot be read.
bool LastWriteSeconds(const std::string& path, long long& seconds);
// The system's true version as the kernel reports it (not the one that
// programs without a compatibility manifest are told); false when it cannot
// be read.
bool SystemVersion(unsigned long& major, unsigned long& minor, unsigned long& build);
}  // namespace win
#else
constexpr bool kWindows = false;
#endif

}  // namespace ovra_test

#endif
