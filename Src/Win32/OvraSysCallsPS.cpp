// OvraSysCallsPS.cpp - the system-call table, filled with the real functions.
#include "Win32/OvraSysCalls.h"

#include <stdio.h>

namespace {

FILE* OpenStream(const wchar_t* name, const wchar_t* mode) { return _wfopen(name, mode); }

int SeekStream(FILE* stream, long long offset, int origin) {
  return _fseeki64(stream, offset, origin);
}

long long TellStream(FILE* stream) { return _ftelli64(stream); }

// The system's true version from its own library. It is looked up, not
// linked, because the import libraries of the compilers differ in whether
// they declare it.
LONG WINAPI GetTrueVersion(OSVERSIONINFOW* version) {
  HMODULE ntdll = GetModuleHandleW(L"ntdll.dll");
  if (!ntdll) return -1;
  const SGetVersionProc proc =
      reinterpret_cast<SGetVersionProc>(reinterpret_cast<void (*)(void)>(
          ::GetProcAddress(ntdll, "RtlGetVersion")));
  return proc ? proc(version) : -1;
}

const SSysCalls kRealSysCalls = {
    OpenStream, fclose, fread, fwrite, fflush, SeekStream, TellStream,
    ::MoveFileExW, ::DeleteFileW, ::CreateDirectoryW, ::RemoveDirectoryW, ::CreateFileW,
    ::SetFileTime, ::GetTempPathW,
    ::FindFirstFileW, ::FindNextFileW, ::FindClose, ::GetFileAttributesExW,
    ::LoadLibraryExW, ::FreeLibrary, ::GetProcAddress, ::GetFullPathNameW,
    ::CreateThread, ::TlsAlloc, ::TlsFree,
    GetTrueVersion,
    ::GetSystemTimeAsFileTime,
};

}  // namespace

const SSysCalls g_ovraRealSysCalls = kRealSysCalls;

SSysCalls g_ovraSysCalls = kRealSysCalls;
