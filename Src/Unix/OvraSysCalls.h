// OvraSysCalls.h - private: the one table through which the POSIX half reaches
// the system calls whose failures a caller can observe. Every entry starts as
// the real function; a test build can swap single entries for failing
// stand-ins, which makes out-of-space, permission and resource errors
// reachable without root, full disks or exhausted process limits, or for a
// clock that reads a chosen time.
#ifndef OVRA_SRC_UNIX_OVRASYSCALLS_H
#define OVRA_SRC_UNIX_OVRASYSCALLS_H

#include <glob.h>
#include <pthread.h>
#include <stdio.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/types.h>
#include <sys/utsname.h>
#include <utime.h>

struct SSysCalls {
  // Buffered streams (TFile).
  FILE* (*fopen)(const char* name, const char* mode);
  int (*fclose)(FILE* stream);
  size_t (*fread)(void* buffer, size_t size, size_t count, FILE* stream);
  size_t (*fwrite)(const void* buffer, size_t size, size_t count, FILE* stream);
  int (*fflush)(FILE* stream);
  int (*fseeko)(FILE* stream, off_t offset, int origin);
  off_t (*ftello)(FILE* stream);
  int (*fstat)(int descriptor, struct stat* status);
  // Operations on names (TFile).
  int (*rename)(const char* from, const char* to);
  int (*remove)(const char* name);
  int (*mkdir)(const char* name, mode_t mode);
  int (*rmdir)(const char* name);
  int (*utime)(const char* name, const struct utimbuf* times);
  // Directory search (TFileFinder).
  int (*glob)(const char* pattern, int flags, int (*onError)(const char*, int), glob_t* result);
  void (*globfree)(glob_t* result);
  int (*lstat)(const char* name, struct stat* status);
  // The dynamic loader (TLibrary).
  void* (*dlopen)(const char* path, int flags);
  int (*dlclose)(void* handle);
  void* (*dlsym)(void* handle, const char* name);
  char* (*realpath)(const char* path, char* resolved);
  // Threads and thread-local data (TThread, the start-up chain).
  int (*pthread_create)(pthread_t* thread, const pthread_attr_t* attributes,
                        void* (*start)(void*), void* arg);
  int (*pthread_key_create)(pthread_key_t* key, void (*destructor)(void*));
  int (*pthread_key_delete)(pthread_key_t key);
  // The system's name and release (OvraGetSystemInfo).
  int (*uname)(struct utsname* names);
  // The time of day (the free-running clocks), without a time zone.
  int (*gettimeofday)(struct timeval* now);
};

// The table in use. Hidden: only the library's own objects (and a test build
// linked from the same objects) can reach it.
extern SSysCalls g_ovraSysCalls __attribute__((visibility("hidden")));

// The table as the library starts with it, to put entries back.
extern const SSysCalls g_ovraRealSysCalls __attribute__((visibility("hidden")));

#endif
