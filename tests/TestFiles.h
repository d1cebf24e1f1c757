// TestFiles.h - helpers shared by the file tests: a fresh temporary folder
// for every test (made the current directory), files made and read with the
// system's own calls, sparse files, and a way to run a check without root's
// power to ignore permissions; and the fixture of the file sweeps.
#ifndef OVRA_TESTS_TESTFILES_H
#define OVRA_TESTS_TESTFILES_H

#include <dirent.h>
#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <string>
#include <vector>

#include "OvraBstr.h"
#include "TestBstr.h"

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

inline bool WriteFile(const std::string& path, const std::string& bytes) {
  FILE* f = fopen(path.c_str(), "wb");
  if (!f) return false;
  const bool ok = fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size();
  return fclose(f) == 0 && ok;
}

inline std::string ReadFile(const std::string& path) {
  std::string out;
  FILE* f = fopen(path.c_str(), "rb");
  if (!f) return out;
  char buffer[4096];
  size_t n;
  while ((n = fread(buffer, 1, sizeof buffer, f)) > 0) out.append(buffer, n);
  fclose(f);
  return out;
}

// A file of the given size without data blocks (holes read as zeros). False
// when the file system refuses the size.
inline bool MakeSparseFile(const std::string& path, long long size) {
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  if (fd < 0) return false;
  const bool ok = ftruncate(fd, static_cast<off_t>(size)) == 0;
  close(fd);
  return ok;
}

// Removes a tree without following links, first giving back any permission a
// test took away.
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

inline bool RunningAsRoot() { return geteuid() == 0; }

// The outcome of a check run without root's privileges.
enum class Unprivileged { kPassed, kFailed, kUnavailable };

// Runs check as an ordinary user: directly when the process is not root;
// as root, in a child process that has given up root for the "nobody" user
// (65534), since root is not held back by permission bits. The paths the check
// uses must be reachable by that user. kUnavailable when the identity cannot
// be changed.
inline Unprivileged RunUnprivileged(const std::function<bool()>& check) {
  if (!RunningAsRoot()) return check() ? Unprivileged::kPassed : Unprivileged::kFailed;
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
}

// Fixture: the library started with the counting allocator (leaks are checked
// afterwards) and a fresh temporary folder as the current directory, removed
// after the test with everything in it.
class FileTest : public StringTest {
 protected:
  void SetUp() override {
    StringTest::SetUp();
    char cwd[4096];
    ASSERT_NE(getcwd(cwd, sizeof cwd), nullptr);
    m_previous = cwd;
    char pattern[] = "/tmp/ovra-files-XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    m_folder = pattern;
    // Reachable by an unprivileged user too (see RunUnprivileged).
    ASSERT_EQ(chmod(m_folder.c_str(), 0777), 0);
    ASSERT_EQ(chdir(m_folder.c_str()), 0);
  }

  void TearDown() override {
    if (!m_previous.empty()) {
      EXPECT_EQ(chdir(m_previous.c_str()), 0);
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
    char pattern[] = "/tmp/ovra-sweep-XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    m_folder = pattern;
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

#endif
