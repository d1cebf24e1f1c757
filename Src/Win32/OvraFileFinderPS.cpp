// OvraFileFinderPS.cpp - the Windows half of TFileFinder: one directory level
// per search, expanded over FindFirstFileW/FindNextFileW with the POSIX
// pattern rules and examined with GetFileAttributesExW, nothing else.
//
// The system's own wildcards differ from the POSIX ones the finder documents
// ("*.*" matches names without a dot, "[" is no wildcard, case is ignored, a
// name's short form matches too), so every directory is listed whole and
// each name matched here, as the POSIX expansion matches it: "*", "?" and
// "[...]" (with "!" or "^" to negate and ranges), a backslash quoting the
// next character, a leading "." matched only by a "." written in the pattern
// (so "*" never gives "." or ".." while ".*" gives both), units compared
// exactly, wildcards allowed in every component, and the matches of one
// directory reported in the order the system lists them.
#include <windows.h>

#include <stddef.h>
#include <string.h>
#include <wchar.h>

#include <utility>

#include "OvraFileFinder.h"
#include "OvraFileFinderPS.h"
#include "OvraMem.h"
#include "Win32/OvraSysCalls.h"
#include "Win32/OvraSystemName.h"

namespace {

// One path the expansion gave, in the order found.
struct SPathNode {
  SPathNode* next;
  wchar_t text[1];  // terminated; allocated as long as needed
};

// One directory level: the paths found, the next one to report, and whether
// the expansion ran out of memory (the level then has no entries).
struct SFileSearch {
  SPathNode* head;
  SPathNode* tail;
  SPathNode* next;
  bool failed;
};

// --- text --------------------------------------------------------------------

// A new terminated text: `a` (aLength units), then `b` (bLength units), then
// `slash` "/" characters. Null when memory runs out.
wchar_t* Concat(const wchar_t* a, size_t aLength, const wchar_t* b, size_t bLength,
                size_t slashes) {
  const size_t length = aLength + bLength + slashes;
  wchar_t* text = static_cast<wchar_t*>(OvraMemAlloc((length + 1) * sizeof(wchar_t)));
  if (!text) return nullptr;
  if (aLength) memcpy(text, a, aLength * sizeof(wchar_t));
  if (bLength) memcpy(text + aLength, b, bLength * sizeof(wchar_t));
  for (size_t i = 0; i < slashes; ++i) text[aLength + bLength + i] = L'/';
  text[length] = 0;
  return text;
}

// The end of the bracket expression that starts at `open` ("["), or null when
// it is not closed before `end` (the "[" is then an ordinary character).
const wchar_t* BracketEnd(const wchar_t* open, const wchar_t* end) {
  const wchar_t* p = open + 1;
  if (p < end && (*p == L'!' || *p == L'^')) ++p;
  if (p < end && *p == L']') ++p;  // a "]" first is a member
  while (p < end && *p != L']') {
    if (*p == L'\\' && p + 1 < end) ++p;
    ++p;
  }
  return p < end ? p : nullptr;
}

// Whether the component [p, end) holds a wildcard that is not quoted.
bool HasWildcard(const wchar_t* p, const wchar_t* end) {
  for (; p < end; ++p) {
    if (*p == L'\\') {
      if (p + 1 < end) ++p;
    } else if (*p == L'*' || *p == L'?') {
      return true;
    } else if (*p == L'[' && BracketEnd(p, end)) {
      return true;
    }
  }
  return false;
}

// The component [p, end) with its quoting removed, into `out` (room for
// end - p units); the unquoted length.
size_t Unquote(const wchar_t* p, const wchar_t* end, wchar_t* out) {
  size_t n = 0;
  for (; p < end; ++p) {
    if (*p == L'\\' && p + 1 < end) ++p;
    out[n++] = *p;
  }
  return n;
}

// Whether `c` is a member of the bracket expression from `open` ("[") to
// `close` ("]").
bool InBracket(const wchar_t* open, const wchar_t* close, wchar_t c) {
  const wchar_t* p = open + 1;
  bool negate = false;
  if (*p == L'!' || *p == L'^') {
    negate = true;
    ++p;
  }
  bool member = false;
  while (p < close) {
    wchar_t low = *p;
    if (low == L'\\' && p + 1 < close) low = *++p;
    ++p;
    wchar_t high = low;
    if (p + 1 < close && *p == L'-') {
      high = *++p;
      if (high == L'\\' && p + 1 < close) high = *++p;
      ++p;
    }
    if (c >= low && c <= high) member = true;
  }
  return member != negate;
}

// The POSIX match of `name` against the component [p, end).
bool Match(const wchar_t* p, const wchar_t* end, const wchar_t* name, bool atStart) {
  // A leading "." is matched only by a "." written in the pattern.
  if (atStart && *name == L'.' && p < end && (*p == L'*' || *p == L'?' || *p == L'['))
    return false;
  while (p < end) {
    if (*p == L'*') {
      while (p < end && *p == L'*') ++p;
      if (p == end) return true;
      for (const wchar_t* rest = name; *rest; ++rest)
        if (Match(p, end, rest, false)) return true;
      return false;
    }
    if (*name == 0) return false;
    if (*p == L'?') {
      ++p;
    } else if (*p == L'[' && BracketEnd(p, end)) {
      const wchar_t* close = BracketEnd(p, end);
      if (!InBracket(p, close, *name)) return false;
      p = close + 1;
    } else {
      if (*p == L'\\' && p + 1 < end) ++p;
      if (*p != *name) return false;
      ++p;
    }
    ++name;
  }
  return *name == 0;
}

// --- the expansion -------------------------------------------------------------

// The entry itself (a link is not followed); false when it cannot be examined.
bool Examine(const wchar_t* path, WIN32_FILE_ATTRIBUTE_DATA& data) {
  return g_ovraSysCalls.GetFileAttributesExW(path, GetFileExInfoStandard, &data) != 0;
}

void AddPath(SFileSearch* search, const wchar_t* path) {
  const size_t length = wcslen(path);
  SPathNode* node = static_cast<SPathNode*>(
      OvraMemAlloc(offsetof(SPathNode, text) + (length + 1) * sizeof(wchar_t)));
  if (!node) {
    search->failed = true;
    return;
  }
  memcpy(node->text, path, (length + 1) * sizeof(wchar_t));
  node->next = nullptr;
  if (search->tail)
    search->tail->next = node;
  else
    search->head = node;
  search->tail = node;
}

// Expands `rest` below `prefix` (empty, or ending in "/"), adding the paths
// that exist.
void Expand(SFileSearch* search, const wchar_t* prefix, size_t prefixLength,
            const wchar_t* rest) {
  if (search->failed) return;
  WIN32_FILE_ATTRIBUTE_DATA data;
  if (*rest == 0) {
    // A pattern ending in "/" names the directory itself.
    if (Examine(prefix, data) && (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY))
      AddPath(search, prefix);
    return;
  }
  const wchar_t* end = rest;
  while (*end && *end != L'/') ++end;
  size_t slashes = 0;
  while (end[slashes] == L'/') ++slashes;
  const wchar_t* after = end + slashes;
  const bool last = slashes == 0;

  if (!HasWildcard(rest, end)) {
    wchar_t* literal = static_cast<wchar_t*>(
        OvraMemAlloc((static_cast<size_t>(end - rest) + 1) * sizeof(wchar_t)));
    if (!literal) {
      search->failed = true;
      return;
    }
    const size_t literalLength = Unquote(rest, end, literal);
    // The system's own wildcards cannot be part of a name: such a literal
    // names nothing (and must not reach the system as a wildcard).
    bool valid = true;
    for (size_t i = 0; i < literalLength; ++i)
      if (literal[i] == L'*' || literal[i] == L'?') valid = false;
    wchar_t* path = valid ? Concat(prefix, prefixLength, literal, literalLength, slashes) : nullptr;
    OvraMemFree(literal);
    if (!valid) return;
    if (!path) {
      search->failed = true;
      return;
    }
    if (!last)
      Expand(search, path, prefixLength + literalLength + slashes, after);
    else if (Examine(path, data))
      AddPath(search, path);
    OvraMemFree(path);
    return;
  }

  // A component with wildcards: the directory is listed whole.
  static const wchar_t kAll[] = L"*";
  wchar_t* listing = Concat(prefix, prefixLength, kAll, 1, 0);
  if (!listing) {
    search->failed = true;
    return;
  }
  WIN32_FIND_DATAW entry;
  HANDLE find = g_ovraSysCalls.FindFirstFileW(listing, &entry);
  OvraMemFree(listing);
  if (find == INVALID_HANDLE_VALUE) return;
  do {
    if (!Match(rest, end, entry.cFileName, true)) continue;
    // Below a wildcard only directories lead further.
    if (!last && !(entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)) continue;
    const size_t nameLength = wcslen(entry.cFileName);
    wchar_t* path = Concat(prefix, prefixLength, entry.cFileName, nameLength, slashes);
    if (!path) {
      search->failed = true;
      break;
    }
    if (last)
      AddPath(search, path);
    else
      Expand(search, path, prefixLength + nameLength + slashes, after);
    OvraMemFree(path);
  } while (!search->failed && g_ovraSysCalls.FindNextFileW(find, &entry));
  g_ovraSysCalls.FindClose(find);
}

// Seconds since 1970 from the system's time stamp (100 ns units since 1601).
time_t TimeOf(const FILETIME& time) {
  const unsigned long long units =
      static_cast<unsigned long long>(time.dwHighDateTime) << 32 | time.dwLowDateTime;
  return static_cast<time_t>(static_cast<long long>(units / 10000000ULL) - 11644473600LL);
}

unsigned int SizeOf(const WIN32_FILE_ATTRIBUTE_DATA& data) {
  // Never a wrapped size: 4 GiB - 1 and beyond are reported as the ceiling.
  if (data.nFileSizeHigh != 0) return kFileSizeCeiling;
  return static_cast<unsigned int>(data.nFileSizeLow);
}

void FreePaths(SPathNode* node) {
  while (node) {
    SPathNode* next = node->next;
    OvraMemFree(node);
    node = next;
  }
}

}  // namespace

void* InternalFinderExpand(const TBstr& pattern) {
  SFileSearch* search = static_cast<SFileSearch*>(OvraMemAlloc(sizeof(SFileSearch)));
  if (!search) return kInvalidHandleValue;
  memset(search, 0, sizeof(SFileSearch));
  // A pattern the system could not be given unchanged matches nothing.
  if (const wchar_t* text = SystemNameOf(pattern)) {
    size_t root = 0;
    while (text[root] == L'/') ++root;
    Expand(search, text, root, text + root);
    if (search->failed) {
      // Out of memory: a level without entries, as the POSIX expansion's.
      FreePaths(search->head);
      search->head = search->tail = nullptr;
    }
  }
  search->next = search->head;
  return search;
}

bool InternalFinderNextEntry(void* level, TFileInfo& info) {
  SFileSearch* search = static_cast<SFileSearch*>(level);
  while (search->next) {
    const wchar_t* path = search->next->text;
    search->next = search->next->next;
    WIN32_FILE_ATTRIBUTE_DATA data;
    // Entries that vanished or cannot be examined are skipped.
    if (!Examine(path, data)) continue;
    const wchar_t* slash = wcsrchr(path, L'/');
    TBstr name;
    if (!BstrFromSystemName(slash ? slash + 1 : path, name)) continue;
    info.name = std::move(name);
    // A link (a reparse point) is not followed: it is no directory.
    info.isDirectory = (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) &&
                       !(data.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT);
    info.size = SizeOf(data);
    info.lastWriteTime = TimeOf(data.ftLastWriteTime);
    // The system keeps no status-change time in this record: the last write
    // stands for it.
    info.changeTime = TimeOf(data.ftLastWriteTime);
    return true;
  }
  return false;
}

void InternalFinderFree(void* level) {
  SFileSearch* search = static_cast<SFileSearch*>(level);
  FreePaths(search->head);
  OvraMemFree(search);
}
