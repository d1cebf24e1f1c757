// OvraFileFinderPS.cpp - the POSIX half of TFileFinder: one directory level
// per search, expanded with glob and examined with lstat.
#include <fcntl.h>
#include <glob.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <utility>

#include "OvraFileFinder.h"
#include "OvraFileName.h"
#include "OvraMem.h"

namespace {

// The root directory: its pattern has no name part, so the expansion is asked
// to return the pattern itself when nothing matches, and "/" can be examined.
const unsigned short kRootDirectory[2] = {0x2F, 0};

// One directory level: the expansion's result and return code, the index of
// the next path to report, and the directory of the last examined path: its
// text (pointing into the expansion's result) and descriptor, -1 when it
// could not be opened.
struct SFileSearch {
  glob_t result;
  int returnCode;
  size_t next;
  const char* directoryText;
  size_t directoryLength;
  int directory;
};

// Directory text longer than this is not opened: its entries are examined by
// their whole path.
constexpr size_t kMaxDirectoryText = 4096;

// lstat of `path`, whose name starts at `name` (just behind its last "/").
// Examining the name relative to its open directory spares the system a walk
// of the whole path for every entry; the result is the same, and whenever
// the relative form cannot be used or fails, the whole path is examined.
int ExamineEntry(SFileSearch& search, const char* path, const char* name, struct stat& status) {
  const size_t length = static_cast<size_t>(name - path);  // up to and including the "/"
  if (length == 0 || *name == 0 || length > kMaxDirectoryText) return lstat(path, &status);
  // Paths of one level mostly share their directory: it is opened again only
  // when it changes (a pattern with wildcards in its directory part).
  if (!search.directoryText || search.directoryLength != length ||
      memcmp(search.directoryText, path, length) != 0) {
    if (search.directory >= 0) close(search.directory);
    char text[kMaxDirectoryText + 1];
    memcpy(text, path, length);
    text[length] = 0;  // keeps the final "/": "/" itself stays the root
    search.directory = open(text, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    search.directoryText = path;
    search.directoryLength = length;
  }
  if (search.directory >= 0 &&
      fstatat(search.directory, name, &status, AT_SYMLINK_NOFOLLOW) == 0) {
    return 0;
  }
  return lstat(path, &status);
}

// Work area for widening one name on the stack; longer names use the heap.
constexpr int kStackNameUnits = 256;

// name widened byte for byte into out; false on allocation failure.
bool WidenName(const char* name, TBstr& out) {
  const size_t length = strlen(name);
  if (length == 0) {
    out.Empty();
    return true;
  }
  if (length > 0x7FFFFFFEu) return false;
  unsigned short stackArea[kStackNameUnits];
  unsigned short* area = stackArea;
  if (length > static_cast<size_t>(kStackNameUnits)) {
    area = static_cast<unsigned short*>(OvraMemAlloc(length * sizeof(unsigned short)));
    if (!area) return false;
  }
  for (size_t i = 0; i < length; ++i) area[i] = static_cast<unsigned char>(name[i]);
  TBstr wide(area, static_cast<int>(length));
  if (area != stackArea) OvraMemFree(area);
  if (wide.GetLength() != static_cast<int>(length)) return false;
  out = std::move(wide);
  return true;
}

unsigned int SizeOf(const struct stat& status) {
  if (status.st_size < 0) return 0;
  // Never a wrapped size: 4 GiB - 1 and beyond are reported as the ceiling.
  if (static_cast<unsigned long long>(status.st_size) >= kFileSizeCeiling) return kFileSizeCeiling;
  return static_cast<unsigned int>(status.st_size);
}

}  // namespace

void* TFileFinder::FileFinderFind(const TBstr& pattern, TFileInfo& info) {
  SFileSearch* search = static_cast<SFileSearch*>(OvraMemAlloc(sizeof(SFileSearch)));
  if (!search) return kInvalidHandleValue;
  memset(search, 0, sizeof(SFileSearch));
  search->directory = -1;
  // A pattern the system could not be given unchanged matches nothing.
  const char* text = IsSystemName(pattern) ? pattern.GetMultibyteString() : "";
  if (*text) {
    int flags = GLOB_NOSORT;
    if (pattern.Compare(kRootDirectory) == 0) flags |= GLOB_NOCHECK;
    search->returnCode = glob(text, flags, nullptr, &search->result);
  } else {
    search->returnCode = GLOB_NOMATCH;
  }
  if (!FileFinderFindNext(search, info)) {
    FileFinderClose(search);
    return kInvalidHandleValue;
  }
  return search;
}

bool TFileFinder::FileFinderFindNext(void* handle, TFileInfo& info) {
  SFileSearch* search = static_cast<SFileSearch*>(handle);
  // A failed expansion is a level without entries.
  if (!search || search->returnCode != 0) return false;
  while (search->next < search->result.gl_pathc) {
    const char* path = search->result.gl_pathv[search->next++];
    const char* slash = strrchr(path, '/');
    struct stat status;
    // The entry itself, not what a symbolic link points to; entries that
    // vanished or cannot be examined are skipped.
    if (ExamineEntry(*search, path, slash ? slash + 1 : path, status) != 0) continue;
    TBstr name;
    if (!WidenName(slash ? slash + 1 : path, name)) continue;
    info.name = std::move(name);
    info.isDirectory = S_ISDIR(status.st_mode);
    info.size = SizeOf(status);
    info.lastWriteTime = status.st_mtime;
    info.changeTime = status.st_ctime;
    return true;
  }
  return false;
}

void TFileFinder::FileFinderClose(void* handle) {
  SFileSearch* search = static_cast<SFileSearch*>(handle);
  if (!search) return;
  // A failed expansion may still have kept partial results: whatever it
  // allocated goes, and nothing is freed that it did not allocate.
  if (search->returnCode == 0 || search->result.gl_pathv) globfree(&search->result);
  if (search->directory >= 0) close(search->directory);
  OvraMemFree(search);
}
