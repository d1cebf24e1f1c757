// OvraFileFinderPS.cpp - the POSIX half of TFileFinder: one directory level
// per search, expanded with glob and examined with lstat.
#include <glob.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <utility>

#include "OvraFileFinder.h"
#include "OvraFileFinderPS.h"
#include "OvraMem.h"
#include "Unix/OvraSysCalls.h"
#include "Unix/OvraSystemName.h"

namespace {

// The root directory: its pattern has no name part, so the expansion is asked
// to return the pattern itself when nothing matches, and "/" can be examined.
const unsigned short kRootDirectory[2] = {0x2F, 0};

// One directory level: the expansion's result and return code, and the index
// of the next path to report.
struct SFileSearch {
  glob_t result;
  int returnCode;
  size_t next;
};

unsigned int SizeOf(const struct stat& status) {
  if (status.st_size < 0) return 0;
  // Never a wrapped size: 4 GiB - 1 and beyond are reported as the ceiling.
  if (static_cast<unsigned long long>(status.st_size) >= kFileSizeCeiling) return kFileSizeCeiling;
  return static_cast<unsigned int>(status.st_size);
}

}  // namespace

void* InternalFinderExpand(const TBstr& pattern) {
  SFileSearch* search = static_cast<SFileSearch*>(OvraMemAlloc(sizeof(SFileSearch)));
  if (!search) return kInvalidHandleValue;
  memset(search, 0, sizeof(SFileSearch));
  // A pattern the system could not be given unchanged matches nothing.
  const char* text = SystemNameOf(pattern);
  if (text) {
    int flags = GLOB_NOSORT;
    if (pattern.Compare(kRootDirectory) == 0) flags |= GLOB_NOCHECK;
    search->returnCode = g_ovraSysCalls.glob(text, flags, nullptr, &search->result);
  } else {
    search->returnCode = GLOB_NOMATCH;
  }
  return search;
}

bool InternalFinderNextEntry(void* level, TFileInfo& info) {
  SFileSearch* search = static_cast<SFileSearch*>(level);
  // A failed expansion is a level without entries.
  if (search->returnCode != 0) return false;
  while (search->next < search->result.gl_pathc) {
    const char* path = search->result.gl_pathv[search->next++];
    struct stat status;
    // The entry itself, not what a symbolic link points to; entries that
    // vanished or cannot be examined are skipped.
    if (g_ovraSysCalls.lstat(path, &status) != 0) continue;
    const char* slash = strrchr(path, '/');
    TBstr name;
    if (!BstrFromSystemName(slash ? slash + 1 : path, name)) continue;
    info.name = std::move(name);
    info.isDirectory = S_ISDIR(status.st_mode);
    info.size = SizeOf(status);
    info.lastWriteTime = status.st_mtime;
    info.changeTime = status.st_ctime;
    return true;
  }
  return false;
}

void InternalFinderFree(void* level) {
  SFileSearch* search = static_cast<SFileSearch*>(level);
  // A failed expansion may still have kept partial results: whatever it
  // allocated goes, and nothing is freed that it did not allocate.
  if (search->returnCode == 0 || search->result.gl_pathv) g_ovraSysCalls.globfree(&search->result);
  OvraMemFree(search);
}
