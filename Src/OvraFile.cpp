// OvraFile.cpp - the portable half of TFile: state, precondition checks, the
// refusal of directories and the measuring of lengths over the platform
// layer's stream calls, and the path text utilities.
#include "OvraFile.h"

#include <errno.h>
#include <stdio.h>

#include <utility>

#include "OvraFilePS.h"

// Defined here as well, so that the library emits it and exports it: a
// program that binds a reference to it (a test's comparison, say) then finds
// it in ovra.dll on Windows, where the class's members are imported.
constexpr unsigned int TFile::kOpenRead;
constexpr unsigned int TFile::kOpenWrite;
const unsigned short TFile::kDirectorySeparator = 0x2F;  // "/"

namespace {

constexpr unsigned short kDot = 0x2E;  // "."

// The interface's 32-bit report of a 64-bit size or position: failures (-1)
// give 0, values that do not fit are capped, never wrapped.
unsigned int ToInterfaceSize(long long value) {
  if (value < 0) return 0;
  if (value >= static_cast<long long>(kFileSizeCeiling)) return kFileSizeCeiling;
  return static_cast<unsigned int>(value);
}

}  // namespace

TFile::TFile() : m_handle(kInvalidHandleValue) {}

TFile::~TFile() {
  if (IsOpen()) Close();
}

bool TFile::Open(const TBstr& spec, unsigned int mode, bool create) {
  if (IsOpen()) return false;
  if (spec.IsEmpty()) return false;
  // Creating a file without write access is refused before the system is asked.
  if (create && !(mode & kOpenWrite)) return false;
  // The spec is copied before the system is asked, so that running out of
  // memory cannot leave a file created or truncated behind a false result.
  TBstr copy(spec);
  if (copy.IsEmpty()) return false;
  void* handle = FileOpen(spec, mode, create);
  if (handle == kInvalidHandleValue) return false;
  // A directory may open as a stream (read-only, on POSIX) but is no file to
  // read or seek. The caller learns why from errno: EISDIR, or the system's
  // reason when it could not tell, not what closing the stream left there.
  const int directory = InternalFileIsDirectory(handle);
  if (directory != 0) {
    const int error = directory > 0 ? EISDIR : errno;
    FileClose(handle);
    errno = error;
    return false;
  }
  m_spec = std::move(copy);
  m_handle = handle;
  return true;
}

bool TFile::Close() {
  if (!IsOpen()) return false;
  // The system releases the stream even when closing reports an error, so
  // the handle is dropped in both cases: keeping it would leave it dangling.
  const bool closed = FileClose(m_handle);
  m_handle = kInvalidHandleValue;
  m_spec.Empty();
  return closed;
}

unsigned int TFile::Read(void* buffer, unsigned int count) {
  if (!IsOpen() || !buffer) return 0;
  return FileRead(m_handle, buffer, count);
}

unsigned int TFile::Write(const void* buffer, unsigned int count) {
  if (!IsOpen() || !buffer) return 0;
  return FileWrite(m_handle, buffer, count);
}

bool TFile::Flush() {
  if (!IsOpen()) return false;
  return FileFlush(m_handle);
}

unsigned int TFile::GetPosition() const {
  if (!IsOpen()) return 0;
  return ToInterfaceSize(FileGetPosition(m_handle));
}

bool TFile::SetPosition(int offset, unsigned int origin) {
  if (!IsOpen()) return false;
  // Only the system's three origins exist; any other value is refused here
  // rather than letting a large unsigned value turn into a valid one.
  if (origin > 2) return false;
  return FileSetPosition(m_handle, offset, static_cast<int>(origin));
}

unsigned int TFile::GetLength() const {
  if (!IsOpen()) return 0;
  return ToInterfaceSize(FileGetLength(m_handle));
}

bool TFile::SetLength(unsigned int length) {
  if (!IsOpen()) return false;
  return FileSetLength(m_handle, length);
}

// Made of the position calls: measuring a length takes the same steps on
// every system.
long long TFile::FileGetLength(void* handle) {
  const long long position = FileGetPosition(handle);
  if (position < 0) return -1;
  if (!FileSetPosition(handle, 0, SEEK_END)) return -1;
  const long long length = FileGetPosition(handle);
  // Back to where it was, so that the call leaves the position unchanged.
  if (!FileSetPosition(handle, position, SEEK_SET)) return -1;
  return length;
}

bool TFile::FileSetLength(void* handle, unsigned int length) {
  // Only a move of the position: nothing is truncated or extended.
  return FileSetPosition(handle, static_cast<long long>(length), SEEK_SET);
}

// ---------------------------------------------------------------------------
// Path text utilities
// ---------------------------------------------------------------------------

TBstr TFile::AddTrailingSeparator(const TBstr& spec) {
  TBstr result(spec);
  const int length = spec.GetLength();
  if (length > 0 && spec.GetAt(length - 1) != kDirectorySeparator) {
    result.Append(kDirectorySeparator);
    if (result.GetLength() != length + 1) result.Empty();
  }
  return result;
}

TBstr TFile::RemoveTrailingSeparator(const TBstr& spec) {
  TBstr result(spec);
  result.TrimRight(kDirectorySeparator);
  return result;
}

TBstr TFile::AppendFileNameToSpec(const TBstr& dir, const TBstr& name) {
  TBstr result = AddTrailingSeparator(dir);
  const int length = result.GetLength();
  if (length == 0 && !dir.IsEmpty()) return result;  // allocation failure
  result.Append(name);
  if (result.GetLength() != length + name.GetLength()) result.Empty();
  return result;
}

TBstr TFile::DirSpecFromFullSpec(const TBstr& spec) {
  const int last = spec.ReverseFind(kDirectorySeparator);
  if (last < 0) return TBstr();
  return spec.Left(last + 1);
}

TBstr TFile::FileNameFromFullSpec(const TBstr& spec) {
  const int last = spec.ReverseFind(kDirectorySeparator);
  if (last < 0) return TBstr(spec);
  return spec.Mid(last + 1);
}

TBstr TFile::CanonicalizeSpec(const TBstr& spec) {
  TBstr s(spec);
  int p = s.Find(kDot, 0);
  while (p >= 0) {
    const int length = s.GetLength();
    if (p > 0 && s.GetAt(p - 1) != kDirectorySeparator) {
      p = s.Find(kDot, p + 1);  // a dot inside a name, as in "a.txt"
      continue;
    }
    // The dot begins a component.
    if (p + 1 == length || s.GetAt(p + 1) == kDirectorySeparator) {
      // ".": drop it and its "/" (at the end only the "."); the text moved
      // up, so the search goes on at the same place.
      s.Delete(p, 2);
      p = s.Find(kDot, p);
      continue;
    }
    if (s.GetAt(p + 1) != kDot) {
      p = s.Find(kDot, p + 1);  // a name beginning with a dot, as ".profile"
      continue;
    }
    if (p + 2 < length && s.GetAt(p + 2) != kDirectorySeparator) {
      p = s.Find(kDot, p + 1);  // a name beginning with two dots, as "..x"
      continue;
    }
    // "..": a path climbing above its start has no canonical form here.
    if (p < 2) {
      s.Empty();
      break;
    }
    // Drop the previous component, its "/", the ".." and the "/" behind it.
    int k = p - 1;
    while (k > 0 && s.GetAt(k - 1) != kDirectorySeparator) --k;
    s.Delete(k, p - k + 3);
    // The search deliberately goes on at p, not at k: a ".." that the deletion
    // moved in front of p is not seen again ("a/b/../../c" gives "a/../c").
    p = s.Find(kDot, p);
  }
  return s;
}

bool TFile::CreatePath(const TBstr& spec) {
  if (CreateDirectory(spec)) return true;
  const TBstr parent = DirSpecFromFullSpec(RemoveTrailingSeparator(spec));
  if (parent.IsEmpty()) return false;
  // Every step shortens the spec, so the recursion ends; its depth is the
  // number of missing ancestors.
  if (!CreatePath(parent)) return false;
  return CreateDirectory(spec);
}
