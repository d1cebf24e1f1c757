// TestPlugins.h - the host side of the test plugins (tests/plugins): where
// they are, what they reported, and a scoped working directory. Include it in
// one source file per test program: it defines the function the plugins call
// back. (A loader that cannot close is the fault tests' business: they fail
// dlclose through the library's system-call table, tests/faults.)
#ifndef OVRA_TESTS_TESTPLUGINS_H
#define OVRA_TESTS_TESTPLUGINS_H

#include <dlfcn.h>
#include <limits.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "OvraBstr.h"

namespace ovra_test {

// Events reported by the plugins, oldest first ("accept:init:<path>", ...).
inline std::vector<std::string>& PluginEvents() {
  static std::vector<std::string> events;
  return events;
}

// The canonical absolute form of an existing path; empty when it has none.
inline std::string RealPath(const std::string& path) {
  char buffer[PATH_MAX];
  return realpath(path.c_str(), buffer) ? std::string(buffer) : std::string();
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
    char name[] = "/tmp/ovra-library-XXXXXX";
    if (mkdtemp(name)) m_path = RealPath(name);
  }
  ~TempDir() {
    if (m_path.empty()) return;
    const std::string command = "rm -rf '" + m_path + "'";
    if (system(command.c_str()) != 0) ADD_FAILURE() << "could not remove " << m_path;
  }
  const std::string& path() const { return m_path; }

 private:
  std::string m_path;
};

// True when the file at path is currently open in the process.
inline bool IsOpen(const std::string& path) {
  void* handle = dlopen(path.c_str(), RTLD_LAZY | RTLD_NOLOAD);
  if (!handle) return false;
  dlclose(handle);  // RTLD_NOLOAD still counts a reference
  return true;
}

// Changes the working directory for a scope and restores it afterwards.
class ScopedWorkingDirectory {
 public:
  explicit ScopedWorkingDirectory(const std::string& dir) {
    char buffer[PATH_MAX];
    if (getcwd(buffer, sizeof buffer)) m_previous = buffer;
    m_changed = chdir(dir.c_str()) == 0;
  }
  ~ScopedWorkingDirectory() {
    if (m_changed && !m_previous.empty() && chdir(m_previous.c_str()) != 0) abort();
  }
  bool changed() const { return m_changed; }

 private:
  std::string m_previous;
  bool m_changed;
};

}  // namespace ovra_test

// Receives the plugins' events (see tests/plugins/PluginEvents.h).
extern "C" __attribute__((visibility("default"))) void OvraTestPluginEvent(const char* event) {
  ovra_test::PluginEvents().push_back(event);
}

#endif
