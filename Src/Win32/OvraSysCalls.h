// OvraSysCalls.h - private: the one table through which the Windows half
// reaches the system calls whose failures a caller can observe. Every entry
// starts as the real function; a test build can swap single entries for
// failing stand-ins, which makes out-of-space, permission and resource errors
// reachable without administrator rights, full disks or exhausted limits, or
// for a clock that reads a chosen time.
#ifndef OVRA_SRC_WIN32_OVRASYSCALLS_H
#define OVRA_SRC_WIN32_OVRASYSCALLS_H

#include <windows.h>

#include <stdio.h>

// The version record RtlGetVersion fills (OSVERSIONINFOW's layout).
typedef LONG(WINAPI* SGetVersionProc)(OSVERSIONINFOW* version);

struct SSysCalls {
  // Buffered streams (TFile).
  FILE* (*wfopen)(const wchar_t* name, const wchar_t* mode);
  int (*fclose)(FILE* stream);
  size_t (*fread)(void* buffer, size_t size, size_t count, FILE* stream);
  size_t (*fwrite)(const void* buffer, size_t size, size_t count, FILE* stream);
  int (*fflush)(FILE* stream);
  int (*fseeki64)(FILE* stream, long long offset, int origin);
  long long (*ftelli64)(FILE* stream);
  // Operations on names (TFile).
  BOOL(WINAPI* MoveFileExW)(const wchar_t* from, const wchar_t* to, DWORD flags);
  BOOL(WINAPI* DeleteFileW)(const wchar_t* name);
  BOOL(WINAPI* CreateDirectoryW)(const wchar_t* name, SECURITY_ATTRIBUTES* security);
  BOOL(WINAPI* RemoveDirectoryW)(const wchar_t* name);
  HANDLE(WINAPI* CreateFileW)(const wchar_t* name, DWORD access, DWORD share,
                              SECURITY_ATTRIBUTES* security, DWORD disposition, DWORD flags,
                              HANDLE templateFile);
  BOOL(WINAPI* SetFileTime)(HANDLE file, const FILETIME* creation, const FILETIME* access,
                            const FILETIME* write);
  DWORD(WINAPI* GetTempPathW)(DWORD size, wchar_t* buffer);
  // Directory search (TFileFinder).
  HANDLE(WINAPI* FindFirstFileW)(const wchar_t* pattern, WIN32_FIND_DATAW* data);
  BOOL(WINAPI* FindNextFileW)(HANDLE search, WIN32_FIND_DATAW* data);
  BOOL(WINAPI* FindClose)(HANDLE search);
  BOOL(WINAPI* GetFileAttributesExW)(const wchar_t* name, GET_FILEEX_INFO_LEVELS level,
                                     void* data);
  // The loader (TLibrary).
  HMODULE(WINAPI* LoadLibraryExW)(const wchar_t* path, HANDLE reserved, DWORD flags);
  BOOL(WINAPI* FreeLibrary)(HMODULE module);
  FARPROC(WINAPI* GetProcAddress)(HMODULE module, const char* name);
  DWORD(WINAPI* GetFullPathNameW)(const wchar_t* name, DWORD size, wchar_t* buffer,
                                  wchar_t** filePart);
  // Threads and thread-local data (TThread, the start-up chain).
  HANDLE(WINAPI* CreateThread)(SECURITY_ATTRIBUTES* security, SIZE_T stackSize,
                               LPTHREAD_START_ROUTINE start, void* arg, DWORD flags,
                               DWORD* threadId);
  DWORD(WINAPI* TlsAlloc)(void);
  BOOL(WINAPI* TlsFree)(DWORD index);
  // The system's version (OvraGetSystemInfo): reads the true version, which
  // GetVersionEx hides from programs without a compatibility manifest.
  LONG(WINAPI* GetVersion)(OSVERSIONINFOW* version);
  // The wall clock (the free-running clocks, TCondVar's deadlines).
  void(WINAPI* GetSystemTimeAsFileTime)(FILETIME* now);
};

// The table in use. Not exported: only the library's own objects (and a test
// build linked from the same objects) can reach it.
extern SSysCalls g_ovraSysCalls;

// The table as the library starts with it, to put entries back.
extern const SSysCalls g_ovraRealSysCalls;

#endif
