// OvraFileFinder.h - directory search with wildcard patterns (TFileFinder) and
// the purely textual wildcard comparison ComparePattern.
#ifndef OVRA_OVRAFILEFINDER_H
#define OVRA_OVRAFILEFINDER_H

#include "OvraBstr.h"
#include "OvraCollect.h"
#include "OvraFile.h"
#include "OvraPlatform.h"

// Enumerates the directory entries matching a pattern of the system's pathname
// expansion ("*", "?", "[...]", "\" quoting the next character), optionally
// descending into matching subdirectories. The finder is itself the TFileInfo
// of the current match. Entries are examined without following symbolic links:
// a link to a directory is reported as a non-directory and never entered, and
// a dangling link is reported like any other link.
//
// The walk is depth-first and pre-order: a directory is reported before its
// contents, and its contents before its later siblings; the order within one
// directory is the system's (unsorted). The same name pattern applies at every
// depth, and only directories whose own names match it are entered ("*" enters
// all, "*.txt" only those ending in ".txt"). Entries whose names begin with "."
// match only a name pattern beginning with "."; "." and ".." are then reported
// but never entered. Entries that vanish or cannot be examined are skipped; an
// unreadable directory has no entries. Out of memory, an entry or a subtree
// whose record cannot be made is skipped, or the search ends (FindNext false):
// a reported spec is never wrong.
//
// The directory of the matches is the pattern's text up to its last "/", taken
// as written: wildcards or quoting in it are expanded by the system, but
// GetFileSpec then repeats them and a recursive search cannot descend from
// such a level, so give recursive searches a plain directory part. Entering a
// subdirectory quotes its name, so names holding "*", "?", "[" or "\" are
// entered literally. Not copyable; one thread uses an object at a time.
class OVRA_API TFileFinder : public TFileInfo {
 public:
  // "." and "..": the entries a recursive search never descends into.
  static const unsigned short kCurrentDirectory[2];
  static const unsigned short kParentDirectory[3];

  // Idle: empty record, no search, empty directory and pattern.
  TFileFinder();
  // Closes an open search.
  ~TFileFinder();
  TFileFinder(const TFileFinder&) = delete;
  TFileFinder& operator=(const TFileFinder&) = delete;

  // Starts a search for pattern (null or empty: "*", the current directory)
  // and loads the first match; a search in progress is closed first. False
  // when nothing matches or the pattern holds a character above 255 (the
  // finder is then idle, its directory and pattern unchanged). For a pattern
  // without "/" the name of a match is its whole path. A pattern ending in "/"
  // names the directory itself: its match has an empty name, and a recursive
  // search does not descend from it.
  bool Find(const unsigned short* pattern, bool recursive);
  // Loads the next match (pre-order, see above); false when there is none.
  // After the last match it keeps returning false until Close.
  bool FindNext();
  // Ends the search: closes every level, resets the record (empty name, not a
  // directory, size and times 0). The directory and pattern are kept.
  void Close();
  // The full spec of the current match: the directory of its level and its
  // name (TFile::AppendFileNameToSpec); empty when it cannot be allocated.
  TBstr GetFileSpec() const;

  // Compares name with pattern, whose "*" matches any run and "?" any one unit
  // (never the end of name), case-sensitively, unit by unit, in one pass
  // without backtracking: a "*" takes the shortest run up to the first
  // occurrence of the pattern's next unit (taken literally even if it is "?"
  // or "*") and never reconsiders it. 0 on a match; otherwise the difference
  // of the two units where the comparison stopped (name's minus pattern's, as
  // unsigned 16-bit values), ordering the mismatch as a string comparison
  // would. So "abcbc" does not match "*bc" (positive), while "abc" matches
  // "*c" and "a" matches "a*". A null pointer is taken as the empty string.
  static int ComparePattern(const unsigned short* name, const unsigned short* pattern);

  // One directory level per handle, over the system's expansion of the
  // pattern. FileFinderFind expands pattern and loads its first examinable
  // entry into info; it returns the level's handle, or kInvalidHandleValue
  // when there is none (or on allocation failure). FileFinderFindNext loads
  // the level's next entry; false when the level is used up. FileFinderClose
  // releases a handle; a null handle is ignored.
  static void* FileFinderFind(const TBstr& pattern, TFileInfo& info);
  static bool FileFinderFindNext(void* handle, TFileInfo& info);
  static void FileFinderClose(void* handle);

 private:
  TPtrArray m_searches;  // one platform handle per level; the last is in progress
  TBstr m_directory;     // directory of the current level
  TBstr m_pattern;       // name part of the starting pattern, used at every level
  bool m_recursive;      // descend into matching subdirectories
};

#endif
