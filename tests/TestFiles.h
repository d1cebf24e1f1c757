// TestFiles.h - helpers shared by the file tests: a fresh temporary folder
// for every test (made the current directory), files made and read with the
// system's own calls, sparse files, and a way to run a check without root's
// power to ignore permissions; and the fixture of the file sweeps.
#ifndef OVRA_TESTS_TESTFILES_H
#define OVRA_TESTS_TESTFILES_H

#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/types.h>
#if !defined(_WIN32)
#include <dirent.h>
#include <fcntl.h>
#include <grp.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

#include <functional>
#include <string>
#include <vector>

#include "OvraBstr.h"
#include "TestBstr.h"
#include "TestPlatform.h"

namespace ovra_test {

// Narrow bytes as a TBstr (widened byte for byte), inner zero bytes kept.
inline TBstr B(const std::string& bytes) {
  return TBstr(bytes.data(), static_cast<int>(bytes.size()));
}

// The bytes of a TBstr whose characters are all below 256.
inline std::string Narrow(const TBstr& s) {
  std::string out;
  for (int i = 0; i < s.GetLength(); ++i) out.push_back(static_cast<char>(s.GetAt(i)));
  return out;
}

#if defined(_WIN32)
// The tests' names are bytes, and the library widens each byte of a name to
// the character of that value (B above): on Windows the helpers below give
// the system that same name, through its wide calls (which take UTF-8 here).
inline std::string SystemPath(const std::string& bytes) {
  std::string utf8;
  for (char ch : bytes) {
    const unsigned char c = static_cast<unsigned char>(ch);
    if (c < 0x80) {
      utf8 += ch;
    } else {
      utf8 += static_cast<char>(0xC0 | c >> 6);
      utf8 += static_cast<char>(0x80 | (c & 0x3F));
    }
  }
  return utf8;
}

// The bytes of a UTF-8 path the system gave, each character below 256 one
// byte; empty when a character does not fit.
inline std::string BytePath(const std::string& utf8) {
  std::string bytes;
  for (size_t i = 0; i < utf8.size(); ++i) {
    const unsigned char c = static_cast<unsigned char>(utf8[i]);
    if (c < 0x80) {
      bytes += utf8[i];
    } else if ((c == 0xC2 || c == 0xC3) && i + 1 < utf8.size()) {
      bytes += static_cast<char>((c & 0x03) << 6 | (static_cast<unsigned char>(utf8[++i]) & 0x3F));
    } else {
      return std::string();
    }
  }
  return bytes;
}

inline bool Exists(const std::string& path) { return win::Exists(SystemPath(path)); }
inline bool IsDirectory(const std::string& path) { return win::IsDirectory(SystemPath(path)); }
inline long long SizeOf(const std::string& path) { return win::SizeOf(SystemPath(path)); }
#else
inline bool Exists(const std::string& path) {
  struct stat st;
  return lstat(path.c_str(), &st) == 0;
}

inline bool IsDirectory(const std::string& path) {
  struct stat st;
  return lstat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

inline long long SizeOf(const std::string& path) {
  struct stat st;
  return lstat(path.c_str(), &st) == 0 ? static_cast<long long>(st.st_size) : -1;
}
#endif

// A stream on the file at path (see SystemPath on Windows).
inline FILE* OpenFile(const std::string& path, const char* mode) {
#if defined(_WIN32)
  return win::OpenFile(SystemPath(path), mode);
#else
  return fopen(path.c_str(), mode);
#endif
}

inline bool WriteFile(const std::string& path, const std::string& bytes) {
  FILE* f = OpenFile(path, "wb");
  if (!f) return false;
  const bool ok = fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size();
  return fclose(f) == 0 && ok;
}

inline std::string ReadFile(const std::string& path) {
  std::string out;
  FILE* f = OpenFile(path, "rb");
  if (!f) return out;
  char buffer[4096];
  size_t n;
  while ((n = fread(buffer, 1, sizeof buffer, f)) > 0) out.append(buffer, n);
  fclose(f);
  return out;
}

// A file of the given size without data blocks (holes read as zeros). False
// when the file system refuses the size.
#if defined(_WIN32)
inline bool MakeSparseFile(const std::string& path, long long size) {
  return win::MakeSparseFile(SystemPath(path), size);
}
#else
inline bool MakeSparseFile(const std::string& path, long long size) {
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  if (fd < 0) return false;
  const bool ok = ftruncate(fd, static_cast<off_t>(size)) == 0;
  close(fd);
  return ok;
}
#endif

// Removes a tree without following links, first giving back any permission a
// test took away.
#if defined(_WIN32)
inline void RemoveTree(const std::string& path) { win::RemoveTree(SystemPath(path)); }
#else
inline void RemoveTree(const std::string& path) {
  struct stat st;
  if (lstat(path.c_str(), &st) != 0) return;
  if (S_ISDIR(st.st_mode)) {
    chmod(path.c_str(), 0700);
    if (DIR* dir = opendir(path.c_str())) {
      std::vector<std::string> names;
      while (dirent* e = readdir(dir)) {
        if (strcmp(e->d_name, ".") != 0 && strcmp(e->d_name, "..") != 0) names.push_back(e->d_name);
      }
      closedir(dir);
      for (const std::string& name : names) RemoveTree(path + "/" + name);
    }
    rmdir(path.c_str());
  } else {
    unlink(path.c_str());
  }
}
#endif

#if defined(_WIN32)
// No account the tests run under is exempt from the access checks they make.
inline bool RunningAsRoot() { return false; }
#else
inline bool RunningAsRoot() { return geteuid() == 0; }
#endif

// The outcome of a check run without root's privileges.
enum class Unprivileged { kPassed, kFailed, kUnavailable };

// Runs check as an ordinary user: directly when the process is not root;
// as root, in a child process that has given up root for the "nobody" user
// (65534), since root is not held back by permission bits. The paths the check
// uses must be reachable by that user. kUnavailable when the identity cannot
// be changed.
inline Unprivileged RunUnprivileged(const std::function<bool()>& check) {
  if (!RunningAsRoot()) return check() ? Unprivileged::kPassed : Unprivileged::kFailed;
#if defined(_WIN32)
  return Unprivileged::kUnavailable;
#else
  fflush(nullptr);
  const pid_t child = fork();
  if (child < 0) return Unprivileged::kUnavailable;
  if (child == 0) {
    if (setgroups(0, nullptr) != 0 || setgid(65534) != 0 || setuid(65534) != 0) _exit(77);
    _exit(check() ? 0 : 1);
  }
  int status = 0;
  if (waitpid(child, &status, 0) != child || !WIFEXITED(status)) return Unprivileged::kFailed;
  if (WEXITSTATUS(status) == 77) return Unprivileged::kUnavailable;
  return WEXITSTATUS(status) == 0 ? Unprivileged::kPassed : Unprivileged::kFailed;
#endif
}

// A fresh, empty folder in the system's temporary folder whose name starts
// with prefix; its path, or empty when none could be made.
inline std::string MakeTempFolder(const char* prefix) {
#if defined(_WIN32)
  // Written with /, the library's separator: a \ in a pattern quotes the
  // character after it, and the path utilities split at / only.
  std::string folder = BytePath(win::MakeTempFolder(prefix));
  for (char& c : folder) {
    if (c == '\\') c = '/';
  }
  return folder;
#else
  std::string pattern = std::string("/tmp/") + prefix + "-XXXXXX";
  return mkdtemp(&pattern[0]) ? pattern : std::string();
#endif
}

// What TFile::GetTempDirectory gives: "/tmp/" on POSIX systems, the system's
// temporary folder written with / on Windows.
inline std::string ExpectedTempDirectory() {
#if defined(_WIN32)
  std::string folder = BytePath(win::TempPath());
  for (char& c : folder) {
    if (c == '\\') c = '/';
  }
  if (!folder.empty() && folder.back() != '/') folder += '/';
  return folder;
#else
  return "/tmp/";
#endif
}

// The current directory; empty when it cannot be read.
inline std::string CurrentDirectory() {
#if defined(_WIN32)
  return BytePath(win::CurrentDirectory());
#else
  char buffer[4096];
  return getcwd(buffer, sizeof buffer) ? std::string(buffer) : std::string();
#endif
}

inline bool ChangeDirectory(const std::string& path) {
#if defined(_WIN32)
  return win::ChangeDirectory(SystemPath(path));
#else
  return chdir(path.c_str()) == 0;
#endif
}

// A folder with the given permission bits (Windows has none to give).
inline bool MakeDir(const std::string& path, int mode = 0755) {
#if defined(_WIN32)
  static_cast<void>(mode);
  return win::MakeDirectory(SystemPath(path));
#else
  return mkdir(path.c_str(), static_cast<mode_t>(mode)) == 0;
#endif
}

// The system's record of an entry, links not followed. The Windows C library
// has no lstat (its stat reports a link's target) and puts the creation time
// in st_ctime.
inline int LStat(const std::string& path, struct stat* st) {
#if defined(_WIN32)
  return stat(path.c_str(), st);
#else
  return lstat(path.c_str(), st);
#endif
}

// Whether this process can make symbolic links: always on POSIX systems, on
// Windows only with the privilege to create them (or developer mode) and a
// system that really makes them.
inline bool CanMakeSymlinks() {
#if defined(_WIN32)
  return win::CanMakeSymlinks();
#else
  return true;
#endif
}

// A symbolic link at link to target, kept as written (a relative target is
// resolved from the link's folder).
inline bool MakeSymlink(const std::string& target, const std::string& link) {
#if defined(_WIN32)
  return win::MakeSymlink(SystemPath(target), SystemPath(link));
#else
  return symlink(target.c_str(), link.c_str()) == 0;
#endif
}

// Fixture: the library started with the counting allocator (leaks are checked
// afterwards) and a fresh temporary folder as the current directory, removed
// after the test with everything in it.
class FileTest : public StringTest {
 protected:
  void SetUp() override {
    StringTest::SetUp();
    m_previous = CurrentDirectory();
    ASSERT_FALSE(m_previous.empty());
    m_folder = MakeTempFolder("ovra-files");
    ASSERT_FALSE(m_folder.empty());
#if !defined(_WIN32)
    // Reachable by an unprivileged user too (see RunUnprivileged).
    ASSERT_EQ(chmod(m_folder.c_str(), 0777), 0);
#endif
    ASSERT_TRUE(ChangeDirectory(m_folder));
  }

  void TearDown() override {
    if (!m_previous.empty()) {
      EXPECT_TRUE(ChangeDirectory(m_previous));
    }
    if (!m_folder.empty()) RemoveTree(m_folder);
    StringTest::TearDown();
  }

  // The absolute path of name inside the folder.
  std::string At(const std::string& name) const { return m_folder + "/" + name; }
  const std::string& Folder() const { return m_folder; }

 private:
  std::string m_previous;
  std::string m_folder;
};

// Fixture of the files' allocation-failure sweeps (AllocSweep.h): the library
// started with the counting allocator and a fresh temporary folder (absolute
// path, not the current directory) that is removed with its contents after
// the test.
class FileSweepTest : public SweepTest {
 protected:
  void SetUp() override {
    SweepTest::SetUp();
    m_folder = MakeTempFolder("ovra-sweep");
    ASSERT_FALSE(m_folder.empty());
  }
  void TearDown() override {
    if (!m_folder.empty()) RemoveTree(m_folder);
    SweepTest::TearDown();
  }
  std::string At(const std::string& name) const { return m_folder + "/" + name; }
  const std::string& Folder() const { return m_folder; }

 private:
  std::string m_folder;
};

}  // namespace ovra_test

// Leaves out a test of what permission bits forbid: Windows has none (access
// is granted by access-control lists, and its read-only mark neither hides a
// file's data nor keeps a folder from being listed or written into).
#define OVRA_SKIP_PERMISSION_BITS() \
  OVRA_SKIP_ON_WINDOWS("no POSIX permission bits; access is granted by access-control lists")

// Leaves a test that makes symbolic links out where this account may not make
// them.
#define OVRA_REQUIRE_SYMLINKS()                                                        \
  if (!ovra_test::CanMakeSymlinks())                                                   \
  OVRA_SKIP_ON_WINDOWS("this account cannot make symbolic links here (it needs the "  \
                       "privilege to create them, or developer mode)")

#endif
