// OvraFileFinder.cpp - the portable half of TFileFinder: one level's search
// over the platform's expansion, the stack of levels and the pre-order walk,
// TFile::GetInfo, and ComparePattern.
#include "OvraFileFinder.h"

#include "OvraCrt.h"
#include "OvraFileFinderPS.h"

#include <utility>


const unsigned short TFileFinder::kCurrentDirectory[2] = {0x2E, 0};
const unsigned short TFileFinder::kParentDirectory[3] = {0x2E, 0x2E, 0};

namespace {

constexpr unsigned short kStar = 0x2A;       // "*"
constexpr unsigned short kQuestion = 0x3F;   // "?"
constexpr unsigned short kBackslash = 0x5C;  // "\"
const unsigned short kAllPattern[2] = {kStar, 0};
// The characters the system's pattern expansion gives a meaning.
const unsigned short kPatternCharacters[5] = {kStar, kQuestion, 0x5B /* [ */, kBackslash, 0};

// A directory spec written so that the pattern expansion takes it literally:
// each pattern character is quoted with a backslash. Without this, entering a
// directory named "a[1]" would list "a1" instead. Empty on allocation failure.
TBstr QuotePatternText(const TBstr& text) {
  if (text.FindOneOf(kPatternCharacters) < 0) return TBstr(text);
  TBstr quoted;
  const int length = text.GetLength();
  int expected = 0;
  for (int i = 0; i < length; ++i) {
    const unsigned short ch = text.GetAt(i);
    for (const unsigned short* special = kPatternCharacters; *special; ++special) {
      if (ch == *special) {
        quoted.Append(kBackslash);
        ++expected;
        break;
      }
    }
    quoted.Append(ch);
    ++expected;
  }
  if (quoted.GetLength() != expected) quoted.Empty();
  return quoted;
}

void ResetRecord(TFileInfo& info) {
  info.name.Empty();
  info.isDirectory = false;
  info.size = 0;
  info.lastWriteTime = 0;
  info.changeTime = 0;
}

bool IsDotOrDotDot(const TBstr& name) {
  return name.Compare(TFileFinder::kCurrentDirectory) == 0 ||
         name.Compare(TFileFinder::kParentDirectory) == 0;
}

}  // namespace

TFileFinder::TFileFinder() : m_recursive(false) {}

TFileFinder::~TFileFinder() {
  if (m_searches.GetSize() > 0) Close();
}

bool TFileFinder::Find(const unsigned short* pattern, bool recursive) {
  if (m_searches.GetSize() > 0) Close();
  const TBstr spec(pattern && *pattern ? pattern : kAllPattern);
  if (spec.IsEmpty()) return false;  // the copy could not be allocated
  TBstr directory = TFile::DirSpecFromFullSpec(spec);
  TBstr namePattern = TFile::FileNameFromFullSpec(spec);
  // Both parts are empty only for a pattern ending in "/" or without "/";
  // anything else means an allocation failed.
  const int slash = spec.ReverseFind(TFile::kDirectorySeparator);
  if ((slash >= 0 && directory.IsEmpty()) ||
      (slash != spec.GetLength() - 1 && namePattern.IsEmpty()))
    return false;

  void* handle = FileFinderFind(spec, *this);
  if (handle == kInvalidHandleValue) return false;
  if (m_searches.Add(handle) < 0) {
    FileFinderClose(handle);
    ResetRecord(*this);
    return false;
  }
  m_directory = std::move(directory);
  m_pattern = std::move(namePattern);
  m_recursive = recursive;
  return true;
}

bool TFileFinder::FindNext() {
  if (m_searches.GetSize() == 0) return false;

  // Descent into the current match. A match with an empty name is the
  // directory a pattern ending in "/" named (the root, for "/"), and an empty
  // name pattern would name that directory again: neither is entered.
  if (m_recursive && isDirectory && !name.IsEmpty() && !m_pattern.IsEmpty() &&
      !IsDotOrDotDot(name)) {
    TBstr subdirectory = GetFileSpec();
    const TBstr quoted = QuotePatternText(subdirectory);
    const TBstr subPattern = TFile::AppendFileNameToSpec(quoted, m_pattern);
    // Out of memory any of them may be empty, and an empty directory part
    // would search the current directory instead: the subtree is skipped.
    if (!subdirectory.IsEmpty() && !quoted.IsEmpty() && !subPattern.IsEmpty()) {
      // The first entry goes to a record of its own until the level is kept,
      // so that the current record never mixes two levels.
      TFileInfo first;
      void* handle = FileFinderFind(subPattern, first);
      if (handle != kInvalidHandleValue) {
        if (m_searches.Add(handle) >= 0) {
          static_cast<TFileInfo&>(*this) = std::move(first);
          m_directory = std::move(subdirectory);
          return true;
        }
        // No room to keep the level: its entries are skipped.
        FileFinderClose(handle);
      }
    }
  }

  // The next entry of the level in progress, going up as levels run out.
  for (;;) {
    const int top = m_searches.GetSize() - 1;
    void* handle = m_searches.GetAt(top);
    if (FileFinderFindNext(handle, *this)) return true;
    // The bottom level stays open when exhausted; Close releases it.
    if (top == 0) return false;
    const TBstr stripped = TFile::RemoveTrailingSeparator(m_directory);
    TBstr parent = TFile::DirSpecFromFullSpec(stripped);
    if (stripped.IsEmpty() ||
        (parent.IsEmpty() && stripped.ReverseFind(TFile::kDirectorySeparator) >= 0)) {
      // Out of memory: the parent's spec is lost, and a walk that went on
      // would report wrong specs. The search ends instead.
      Close();
      return false;
    }
    m_directory = std::move(parent);
    m_searches.RemoveAt(top, 1);
    FileFinderClose(handle);
  }
}

void TFileFinder::Close() {
  for (int i = m_searches.GetSize() - 1; i >= 0; --i) FileFinderClose(m_searches.GetAt(i));
  m_searches.SetSize(0, -1);
  ResetRecord(*this);
}

void* TFileFinder::FileFinderFind(const TBstr& pattern, TFileInfo& info) {
  void* level = InternalFinderExpand(pattern);
  if (level == kInvalidHandleValue) return kInvalidHandleValue;
  // A level without one entry to report is no level: the caller gets no
  // handle, and so has nothing to close.
  if (!InternalFinderNextEntry(level, info)) {
    InternalFinderFree(level);
    return kInvalidHandleValue;
  }
  return level;
}

bool TFileFinder::FileFinderFindNext(void* handle, TFileInfo& info) {
  return handle != kInvalidHandleValue && InternalFinderNextEntry(handle, info);
}

void TFileFinder::FileFinderClose(void* handle) {
  if (handle != kInvalidHandleValue) InternalFinderFree(handle);
}

TBstr TFileFinder::GetFileSpec() const { return TFile::AppendFileNameToSpec(m_directory, name); }

int TFileFinder::ComparePattern(const unsigned short* name, const unsigned short* pattern) {
  static const unsigned short kEmpty[1] = {0};
  const unsigned short* p = name ? name : kEmpty;
  const unsigned short* q = pattern ? pattern : kEmpty;
  if (*p == 0 && *q == 0) return 0;
  for (;;) {
    if (*p != *q && *q != kQuestion && *q != kStar) break;
    // "?" stands for one unit of the name, never for its end.
    if (*q == kQuestion && *p == 0) break;
    if (*q == kStar) {
      // The shortest run up to the first occurrence of the pattern's next
      // unit (taken literally), never reconsidered: a single pass by design.
      // p stops on that unit; only q moves past the "*".
      const unsigned short next = q[1];
      while (*p != 0 && *p != next) ++p;
      ++q;
    } else {
      ++p;
      ++q;
    }
    if (*p != 0) continue;
    if (*q == 0) break;
    // The name is used up but the pattern is not: a "*" may still match the
    // empty rest; any other unit stops at the top of the loop.
  }
  return static_cast<int>(*p) - static_cast<int>(*q);
}

bool TFile::GetInfo(const TBstr& spec, TFileInfo& info) {
  // An empty spec names no entry (the finder would take it as "*"), and the
  // finder takes terminated text, which would cut a spec at a zero character
  // and name another entry. Whether the system can be given the name at all
  // is its platform half's decision.
  if (spec.IsEmpty() || ucslen(spec.GetString()) != static_cast<size_t>(spec.GetLength()))
    return false;
  TFileFinder finder;
  if (!finder.Find(spec.GetString(), false)) return false;
  TBstr name(finder.name);
  if (name.GetLength() != finder.name.GetLength()) return false;
  info.name = std::move(name);
  info.isDirectory = finder.isDirectory;
  info.size = finder.size;
  info.lastWriteTime = finder.lastWriteTime;
  info.changeTime = finder.changeTime;
  return true;
}
