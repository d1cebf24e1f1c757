// TestPlugins.h - the host side of the test plugins (tests/plugins): where
// they are, what they reported, and a scoped working directory. Include it in
// one source file per test program: it defines the function the plugins call
// back. (A loader that cannot close is the fault tests' business: they fail
// dlclose through the library's system-call table, tests/faults.)
#ifndef OVRA_TESTS_TESTPLUGINS_H
#define OVRA_TESTS_TESTPLUGINS_H

#include <limits.h>
#include <stdlib.h>
#if !defined(_WIN32)
#include <dlfcn.h>
#include <unistd.h>
#endif

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "OvraBstr.h"
#include "TestFiles.h"
#include "TestPlatform.h"

namespace ovra_test {

// Events reported by the plugins, oldest first ("accept:init:<path>", ...).
inline std::vector<std::string>& PluginEvents() {
  static std::vector<std::string> events;
  return events;
}

// The canonical absolute form of an existing path; empty when it has none.
// On Windows it is written with /, as the library writes paths there.
inline std::string RealPath(const std::string& path) {
#if defined(_WIN32)
  std::string real = win::RealPath(path);
  for (char& c : real) {
    if (c == '\\') c = '/';
  }
  return real;
#else
  char buffer[PATH_MAX];
  return realpath(path.c_str(), buffer) ? std::string(buffer) : std::string();
#endif
}

inline std::string PluginDir() { return RealPath(OVRA_TEST_PLUGIN_DIR); }

// The path with which a library opened by name from the plugin folder is
// reported to its SharedLibInit.
inline std::string PluginPath(const char* fileName) { return PluginDir() + "/" + fileName; }

// Fixture for tests that load the plugins: no events recorded and the plugin
// folder present.
class PluginTest : public ::testing::Test {
 protected:
  void SetUp() override {
    PluginEvents().clear();
    ASSERT_FALSE(PluginDir().empty()) << "plugin folder " << OVRA_TEST_PLUGIN_DIR;
  }
};

// A temporary folder of its own (canonical path), removed with its contents.
class TempDir {
 public:
  TempDir() {
#if defined(_WIN32)
    const std::string name = MakeTempFolder("ovra-library");
    if (!name.empty()) m_path = RealPath(name);
#else
    char name[] = "/tmp/ovra-library-XXXXXX";
    if (mkdtemp(name)) m_path = RealPath(name);
#endif
  }
  ~TempDir() {
    if (m_path.empty()) return;
#if defined(_WIN32)
    RemoveTree(m_path);
    if (Exists(m_path)) ADD_FAILURE() << "could not remove " << m_path;
#else
    const std::string command = "rm -rf '" + m_path + "'";
    if (system(command.c_str()) != 0) ADD_FAILURE() << "could not remove " << m_path;
#endif
  }
  const std::string& path() const { return m_path; }

 private:
  std::string m_path;
};

// True when the file at path is currently open in the process.
inline bool IsOpen(const std::string& path) {
#if defined(_WIN32)
  return win::IsModuleLoaded(path);  // takes no reference
#else
  void* handle = dlopen(path.c_str(), RTLD_LAZY | RTLD_NOLOAD);
  if (!handle) return false;
  dlclose(handle);  // RTLD_NOLOAD still counts a reference
  return true;
#endif
}

// The loader's own lookup of name in the library behind handle (a handle
// that LibraryLoad returned or the loader's open gave).
inline void* LoaderSymbol(void* handle, const char* name) {
#if defined(_WIN32)
  return win::HandleSymbol(handle, name);
#else
  return dlsym(handle, name);
#endif
}

// Changes the working directory for a scope and restores it afterwards.
class ScopedWorkingDirectory {
 public:
  explicit ScopedWorkingDirectory(const std::string& dir) {
    m_previous = CurrentDirectory();
    m_changed = ChangeDirectory(dir);
  }
  ~ScopedWorkingDirectory() {
    if (m_changed && !m_previous.empty() && !ChangeDirectory(m_previous)) abort();
  }
  bool changed() const { return m_changed; }

 private:
  std::string m_previous;
  bool m_changed;
};

}  // namespace ovra_test

// Receives the plugins' events (see tests/plugins/PluginEvents.h).
#if defined(_WIN32)
extern "C" __declspec(dllexport) void OvraTestPluginEvent(const char* event) {
#else
extern "C" __attribute__((visibility("default"))) void OvraTestPluginEvent(const char* event) {
#endif
  ovra_test::PluginEvents().push_back(event);
}

#endif
