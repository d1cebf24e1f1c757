// OvraFilePS.cpp - the POSIX half of TFile: the system's buffered streams with
// 64-bit offsets and its calls on names, nothing else.
#include <errno.h>
#include <stdio.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <time.h>
#include <unistd.h>
#include <utime.h>

#include "OvraFile.h"
#include "OvraFilePS.h"
#include "Unix/OvraSysCalls.h"
#include "Unix/OvraSystemName.h"

static_assert(sizeof(off_t) == 8, "the build must use 64-bit file offsets");

namespace {

FILE* Stream(void* handle) { return static_cast<FILE*>(handle); }

}  // namespace

void* TFile::FileOpen(const TBstr& spec, unsigned int mode, bool create) {
  const char* name = SystemNameOf(spec);
  if (!name) return kInvalidHandleValue;
  // "w" or "r", then "+" for write access, then "b": "rb", "r+b" or "w+b".
  char text[4];
  int n = 0;
  text[n++] = create ? 'w' : 'r';
  if (mode & kOpenWrite) text[n++] = '+';
  text[n++] = 'b';
  text[n] = 0;
  FILE* stream = g_ovraSysCalls.fopen(name, text);
  if (!stream) return kInvalidHandleValue;
  return stream;
}

int InternalFileIsDirectory(void* handle) {
  struct stat info;
  if (g_ovraSysCalls.fstat(fileno(Stream(handle)), &info) != 0) return -1;
  return S_ISDIR(info.st_mode) ? 1 : 0;
}

bool TFile::FileClose(void* handle) { return g_ovraSysCalls.fclose(Stream(handle)) == 0; }

unsigned int TFile::FileRead(void* handle, void* buffer, unsigned int count) {
  return static_cast<unsigned int>(g_ovraSysCalls.fread(buffer, 1, count, Stream(handle)));
}

unsigned int TFile::FileWrite(void* handle, const void* buffer, unsigned int count) {
  return static_cast<unsigned int>(g_ovraSysCalls.fwrite(buffer, 1, count, Stream(handle)));
}

bool TFile::FileFlush(void* handle) { return g_ovraSysCalls.fflush(Stream(handle)) == 0; }

long long TFile::FileGetPosition(void* handle) { return g_ovraSysCalls.ftello(Stream(handle)); }

bool TFile::FileSetPosition(void* handle, long long offset, int origin) {
  return g_ovraSysCalls.fseeko(Stream(handle), static_cast<off_t>(offset), origin) == 0;
}

// ---------------------------------------------------------------------------
// Operations on names
// ---------------------------------------------------------------------------

bool TFile::Rename(const TBstr& from, const TBstr& to) {
  const char* source = SystemNameOf(from);
  if (!source) return false;
  const char* target = SystemNameOf(to);
  return target && g_ovraSysCalls.rename(source, target) == 0;
}

bool TFile::Remove(const TBstr& spec) {
  const char* name = SystemNameOf(spec);
  return name && g_ovraSysCalls.remove(name) == 0;
}

bool TFile::CreateDirectory(const TBstr& spec) {
  const TBstr path = RemoveTrailingSeparator(spec);
  const char* name = SystemNameOf(path);
  if (!name) return false;
  // An existing entry counts as success even when it is not a directory:
  // callers rely on this leniency.
  return g_ovraSysCalls.mkdir(name, 0775) == 0 || errno == EEXIST;
}

bool TFile::RemoveDirectory(const TBstr& spec) {
  const char* name = SystemNameOf(spec);
  return name && g_ovraSysCalls.rmdir(name) == 0;
}

bool TFile::SetLastWriteTime(const TBstr& spec, long time) {
  const char* name = SystemNameOf(spec);
  if (!name) return false;
  utimbuf times;
  times.actime = ::time(nullptr);
  times.modtime = static_cast<time_t>(time);
  return g_ovraSysCalls.utime(name, &times) == 0;
}

TBstr TFile::GetTempDirectory() { return TBstr("/tmp/"); }
