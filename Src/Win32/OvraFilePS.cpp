// OvraFilePS.cpp - the Windows half of TFile: the C runtime's buffered streams
// with 64-bit offsets and the system's wide calls on names, nothing else.
#include <windows.h>

#include <stdio.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <time.h>

// The system's header names its wide calls through these macros, which would
// rename TFile's members of the same names.
#undef CreateDirectory
#undef RemoveDirectory

#include "OvraFile.h"
#include "OvraFilePS.h"
#include "Win32/OvraSysCalls.h"
#include "Win32/OvraSystemName.h"

namespace {

FILE* Stream(void* handle) { return static_cast<FILE*>(handle); }

// Seconds since 1970 as the system's time stamp (100 ns units since 1601);
// false for a time before 1601.
bool FileTimeOf(long long seconds, FILETIME& out) {
  const long long units = (seconds + 11644473600LL) * 10000000LL;
  if (units < 0) return false;
  out.dwLowDateTime = static_cast<DWORD>(units & 0xFFFFFFFF);
  out.dwHighDateTime = static_cast<DWORD>(static_cast<unsigned long long>(units) >> 32);
  return true;
}

}  // namespace

void* TFile::FileOpen(const TBstr& spec, unsigned int mode, bool create) {
  const wchar_t* name = SystemNameOf(spec);
  if (!name) return kInvalidHandleValue;
  // "w" or "r", then "+" for write access, then "b": "rb", "r+b" or "w+b".
  wchar_t text[4];
  int n = 0;
  text[n++] = create ? L'w' : L'r';
  if (mode & kOpenWrite) text[n++] = L'+';
  text[n++] = L'b';
  text[n] = 0;
  FILE* stream = g_ovraSysCalls.wfopen(name, text);
  if (!stream) return kInvalidHandleValue;
  return stream;
}

int InternalFileIsDirectory(void* handle) {
  struct _stati64 info;
  if (_fstati64(_fileno(Stream(handle)), &info) != 0) return -1;
  return (info.st_mode & _S_IFMT) == _S_IFDIR ? 1 : 0;
}

bool TFile::FileClose(void* handle) {
  // A read or write that failed earlier was reported by its own call. Some C
  // runtimes fail the close for the error mark it left (Wine's), others do
  // not: cleared, the result is the close's own everywhere.
  clearerr(Stream(handle));
  return g_ovraSysCalls.fclose(Stream(handle)) == 0;
}

unsigned int TFile::FileRead(void* handle, void* buffer, unsigned int count) {
  return static_cast<unsigned int>(g_ovraSysCalls.fread(buffer, 1, count, Stream(handle)));
}

unsigned int TFile::FileWrite(void* handle, const void* buffer, unsigned int count) {
  return static_cast<unsigned int>(g_ovraSysCalls.fwrite(buffer, 1, count, Stream(handle)));
}

bool TFile::FileFlush(void* handle) { return g_ovraSysCalls.fflush(Stream(handle)) == 0; }

long long TFile::FileGetPosition(void* handle) { return g_ovraSysCalls.ftelli64(Stream(handle)); }

bool TFile::FileSetPosition(void* handle, long long offset, int origin) {
  return g_ovraSysCalls.fseeki64(Stream(handle), offset, origin) == 0;
}

// ---------------------------------------------------------------------------
// Operations on names
// ---------------------------------------------------------------------------

bool TFile::Rename(const TBstr& from, const TBstr& to) {
  const wchar_t* source = SystemNameOf(from);
  if (!source) return false;
  const wchar_t* target = SystemNameOf(to);
  // An existing target file is replaced, as POSIX rename replaces it.
  return target && g_ovraSysCalls.MoveFileExW(source, target, MOVEFILE_REPLACE_EXISTING) != 0;
}

bool TFile::Remove(const TBstr& spec) {
  const wchar_t* name = SystemNameOf(spec);
  if (!name) return false;
  // A file, or else an empty directory, as POSIX remove takes either.
  if (g_ovraSysCalls.DeleteFileW(name)) return true;
  WIN32_FILE_ATTRIBUTE_DATA data;
  return g_ovraSysCalls.GetFileAttributesExW(name, GetFileExInfoStandard, &data) &&
         (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) &&
         g_ovraSysCalls.RemoveDirectoryW(name);
}

bool TFile::CreateDirectory(const TBstr& spec) {
  const TBstr path = RemoveTrailingSeparator(spec);
  const wchar_t* name = SystemNameOf(path);
  if (!name) return false;
  // An existing entry counts as success even when it is not a directory:
  // callers rely on this leniency.
  return g_ovraSysCalls.CreateDirectoryW(name, nullptr) ||
         GetLastError() == ERROR_ALREADY_EXISTS;
}

bool TFile::RemoveDirectory(const TBstr& spec) {
  const wchar_t* name = SystemNameOf(spec);
  return name && g_ovraSysCalls.RemoveDirectoryW(name);
}

bool TFile::SetLastWriteTime(const TBstr& spec, long time) {
  const wchar_t* name = SystemNameOf(spec);
  if (!name) return false;
  FILETIME write;
  if (!FileTimeOf(time, write)) return false;
  FILETIME access;
  GetSystemTimeAsFileTime(&access);
  // Opened for its attributes only; the backup flag lets a directory open too.
  HANDLE file = g_ovraSysCalls.CreateFileW(
      name, FILE_WRITE_ATTRIBUTES, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
      nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
  if (file == INVALID_HANDLE_VALUE) return false;
  const bool set = g_ovraSysCalls.SetFileTime(file, nullptr, &access, &write) != 0;
  CloseHandle(file);
  return set;
}

TBstr TFile::GetTempDirectory() {
  // The system's folder for temporary files, written with "/" like every
  // path of the library, and with its trailing separator.
  wchar_t buffer[MAX_PATH + 2];
  const DWORD length = g_ovraSysCalls.GetTempPathW(MAX_PATH + 1, buffer);
  if (length == 0 || length > MAX_PATH) return TBstr();
  for (DWORD i = 0; i < length; ++i)
    if (buffer[i] == L'\\') buffer[i] = L'/';
  DWORD end = length;
  if (buffer[end - 1] != L'/') buffer[end++] = L'/';
  buffer[end] = 0;
  TBstr result;
  if (!BstrFromSystemName(buffer, result)) return TBstr();
  return result;
}
