// OvraFile.h - buffered file access (TFile), the record of one directory entry
// (TFileInfo), static operations on files and directories by name, and the
// path text utilities.
//
// Names and paths are TBstr and reach the system as their single-byte form,
// byte for byte (a TBstr made from narrow text gives back exactly those
// bytes, UTF-8 or not). A name the system could not be given unchanged - one
// holding a character above 255 or a zero character - names no file: every
// operation on it fails instead of touching a different file. Running out of
// memory for a name's single-byte form fails the same way (false, or an empty
// string for the text utilities), before anything reaches the system.
//
// On Windows names reach the system's 16-bit calls unit for unit instead, so
// every name works there except an empty one or one holding a zero unit;
// the library still splits paths at "/" only (the system takes "\" as a
// separator too).
//
// Files of 4 GiB and more: sizes, lengths and positions are 32-bit in this
// interface, while files are accessed with 64-bit offsets. A value that does
// not fit is never wrapped: it is reported as kFileSizeCeiling (4294967295),
// which therefore means "4294967295 bytes or more". Positions beyond it can be
// reached (SetPosition from the current position or the end) and read and
// written there normally; only their report is capped.
#ifndef OVRA_OVRAFILE_H
#define OVRA_OVRAFILE_H

#include <time.h>

#include "OvraBstr.h"
#include "OvraPlatform.h"

// Reported for a size, length or position of 4294967295 bytes or more.
constexpr unsigned int kFileSizeCeiling = 0xFFFFFFFFu;

// The record of one directory entry, filled by TFile::GetInfo and by the file
// finder (TFileFinder derives from it). A plain record: copy it freely.
struct OVRA_API TFileInfo {
  // Empty name, not a directory, size and times 0.
  TFileInfo() : isDirectory(false), size(0), lastWriteTime(0), changeTime(0) {}

  // The last component of the path (the text behind its last "/"), never a
  // whole path: empty for "/" and for a spec ending in "/" ("d/" names the
  // directory d). For a path without "/", the whole path.
  TBstr name;
  // The entry itself is a directory. Links are not followed: a symbolic link
  // to a directory is not a directory.
  bool isDirectory;
  // Size in bytes; kFileSizeCeiling for 4294967295 bytes or more.
  unsigned int size;
  // Last modification of the contents, seconds since 1970-01-01 UTC (time_t).
  time_t lastWriteTime;
  // Last change of the entry's status (the system's status-change time; on
  // Windows, which records none for a directory search, the last write).
  time_t changeTime;
};

// A handle to one open file (a buffered stream of the system), closed or open.
// Not copyable; one thread uses an object at a time. Every member fails
// (false or 0) on a closed object, except Open. No operation reports a reason:
// the system's error indicator is left as the system set it.
//
// As with the system's streams, switching between Read and Write needs a
// Flush or SetPosition in between.
class OVRA_API TFile {
 public:
  // Open mode bits. Read access is implied and kOpenRead never consulted (a
  // mode of 0 opens for reading); kOpenWrite gives read and write access.
  // Other bits are ignored.
  static constexpr unsigned int kOpenRead = 0x1;
  static constexpr unsigned int kOpenWrite = 0x2;

  // The only path separator, "/". A backslash is an ordinary character.
  static const unsigned short kDirectorySeparator;

  // A closed file.
  TFile();
  // Closes the file if it is open.
  ~TFile();
  TFile(const TFile&) = delete;
  TFile& operator=(const TFile&) = delete;

  // Opens spec. Without create the file must exist, and is opened read-only
  // (mode without kOpenWrite) or read-write with its contents kept. With create
  // (which requires kOpenWrite, else false and nothing is created) the file is
  // created or truncated to length 0 and opened read-write. False, leaving the
  // object as it was, when it is already open (the open file is kept), spec is
  // empty, the system refuses, or spec names a directory. Out of memory it
  // fails before the system is asked: nothing is created or truncated.
  bool Open(const TBstr& spec, unsigned int mode, bool create);
  // Closes the file and empties the spec. False if it was not open, or if the
  // system reported an error while closing (buffered data may then be lost);
  // the stream is released either way, since the system releases it even then,
  // so the object is closed afterwards in both cases.
  bool Close();
  // A file is open.
  bool IsOpen() const { return m_handle != kInvalidHandleValue; }
  // Reads up to count bytes into buffer; the count read (fewer at the end of
  // the file or on error), 0 when not open or buffer is null.
  unsigned int Read(void* buffer, unsigned int count);
  // Writes count bytes from buffer; the count written (fewer on error), 0 when
  // not open, opened read-only, or buffer is null.
  unsigned int Write(const void* buffer, unsigned int count);
  // Writes the stream's buffer out; false when not open or on error.
  bool Flush();
  // The current byte offset (kFileSizeCeiling from 4294967295 on); 0 when
  // not open or on error.
  unsigned int GetPosition() const;
  // Moves the position by offset from origin 0 (the start), 1 (the current
  // position) or 2 (the end), the system's origins passed on unchanged. False
  // (position unchanged) for another origin or a position before the start.
  // Moving past the end is allowed; a write there extends the file.
  bool SetPosition(int offset, unsigned int origin);
  // The length in bytes (kFileSizeCeiling from 4294967295 on), 0 when not open
  // or on error. The position is the same afterwards.
  unsigned int GetLength() const;
  // Deliberately only a move: sets the position to length from the start and
  // returns whether that worked. The file is neither truncated nor extended (a
  // following write at that position extends it; nothing shortens it).
  bool SetLength(unsigned int length);
  // The spec given to the successful Open; empty when closed.
  const TBstr& GetFileSpec() const { return m_spec; }

  // --- static operations on names ------------------------------------------

  // Renames (moves) from to to with the system's rename; true on success. An
  // existing file at to is replaced (on Windows an existing directory is not).
  static bool Rename(const TBstr& from, const TBstr& to);
  // Removes a file or an empty directory with the system's remove; true on success.
  static bool Remove(const TBstr& spec);
  // Creates the directory spec (trailing "/" stripped) with permissions 0775
  // less the process's file-creation mask. True when created, and also when
  // the name exists already - even as a plain file, a leniency kept on purpose.
  // False for an empty spec or "/" (nothing is left to create).
  static bool CreateDirectory(const TBstr& spec);
  // Removes an empty directory (rmdir); true on success.
  static bool RemoveDirectory(const TBstr& spec);
  // Sets the modification time of spec to time (seconds since 1970-01-01 UTC)
  // and its access time to the current time; true on success.
  static bool SetLastWriteTime(const TBstr& spec, long time);
  // Always "/tmp/", with its trailing separator; empty when its copy cannot be
  // made. On Windows the system's folder for temporary files, written with
  // "/" (as "C:/users/me/Temp/"), with its trailing separator; empty when the
  // system cannot tell.
  static TBstr GetTempDirectory();
  // Fills info for the first entry spec names, without following a final
  // symbolic link; false (info untouched) if there is none or spec is empty.
  // spec may hold wildcards ("*", "?", "[...]"): the first match in the
  // system's unsorted order is reported. info.name is the last component only.
  static bool GetInfo(const TBstr& spec, TFileInfo& info);

  // --- path text utilities ---------------------------------------------------
  // None consults the file system except CreatePath. Each returns a new string
  // and leaves its argument unchanged; an allocation failure gives an empty one.

  // spec unchanged if it is empty or ends with "/"; else spec followed by "/".
  static TBstr AddTrailingSeparator(const TBstr& spec);
  // spec without any trailing "/"; "/" and "///" become empty.
  static TBstr RemoveTrailingSeparator(const TBstr& spec);
  // AddTrailingSeparator(dir) followed by name; an empty dir gives name alone.
  static TBstr AppendFileNameToSpec(const TBstr& dir, const TBstr& name);
  // The text up to and including the last "/"; empty when spec holds none.
  static TBstr DirSpecFromFullSpec(const TBstr& spec);
  // The text behind the last "/": the whole spec when it holds none, empty
  // when it ends with "/".
  static TBstr FileNameFromFullSpec(const TBstr& spec);
  // Removes "." and ".." components textually in one forward pass, never
  // consulting the file system: "a/./b" gives "a/b", "/a/b/../c" gives "/a/c",
  // "a/." gives "a/". A ".." that would climb above the start empties the
  // result ("../a", "/../a", "a/.."). Deliberately single-pass: a ".." moved in
  // front of the scan by a deletion stays ("a/b/../../c" gives "a/../c").
  // Names such as ".profile" and "..x" and repeated "/" are left alone.
  static TBstr CanonicalizeSpec(const TBstr& spec);
  // Creates the directory spec and every missing ancestor (each as
  // CreateDirectory does). False for an empty spec, or when an ancestor cannot
  // be created (out of memory included); nothing is then created below it.
  static bool CreatePath(const TBstr& spec);

 private:
  // The stream layer. FileOpen to FileSetPosition are the platform layer,
  // plain calls of the system's stream functions on the stream handle (a
  // directory opens as the system lets it: Open refuses it); FileGetLength and
  // FileSetLength are made of the position calls. FileOpen gives
  // kInvalidHandleValue on failure; positions and lengths are 64-bit, -1 on
  // failure.
  static void* FileOpen(const TBstr& spec, unsigned int mode, bool create);
  static bool FileClose(void* handle);
  static unsigned int FileRead(void* handle, void* buffer, unsigned int count);
  static unsigned int FileWrite(void* handle, const void* buffer, unsigned int count);
  static bool FileFlush(void* handle);
  static long long FileGetPosition(void* handle);
  static bool FileSetPosition(void* handle, long long offset, int origin);
  static long long FileGetLength(void* handle);
  static bool FileSetLength(void* handle, unsigned int length);

  void* m_handle;  // the open stream, or kInvalidHandleValue
  TBstr m_spec;    // the name given to Open; empty when closed
};

#endif
