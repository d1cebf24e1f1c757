// TLibrary when the loader or path resolution fails: Load gives false with
// the object unchanged and nothing left open, GetProcAddress gives null, and
// a failed close keeps the library loaded as documented. No block leaks.
#include <dlfcn.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <string.h>

#include "OvraLibrary.h"
#include "OvraSysCallAccess.h"
#include "TestAllocator.h"

using namespace ovra_test;

namespace {

int s_calls = 0;
int s_opens = 0;

char* FailingRealpath(const char*, char*) {
  ++s_calls;
  errno = ENAMETOOLONG;
  return nullptr;
}

void* FailingDlopen(const char*, int) {
  ++s_calls;
  return nullptr;
}

void* CountingDlopen(const char* path, int flags) {
  ++s_opens;
  return OvraTestRealSysCalls()->dlopen(path, flags);
}

void* FailingDlsym(void*, const char*) {
  ++s_calls;
  return nullptr;
}

// Fails the close without closing, as a loader that refuses would.
int FailingDlclose(void*) {
  ++s_calls;
  return -1;
}

// Whether the plugin is still mapped into the process.
bool PluginIsOpen() {
  void* handle = dlopen(OVRA_FAULT_PLUGIN, RTLD_LAZY | RTLD_NOLOAD);
  if (!handle) return false;
  dlclose(handle);
  return true;
}

int CallCounter(const TLibrary& library, const char* name) {
  OvraProc proc = library.GetProcAddress(TBstr(name));
  return proc ? proc() : -1;
}

class LibraryFaultTest : public ::testing::Test {
 protected:
  void SetUp() override {
    s_calls = 0;
    s_opens = 0;
    ASSERT_FALSE(PluginIsOpen());
  }
  void TearDown() override { EXPECT_FALSE(PluginIsOpen()) << "a failed operation left it open"; }
  ScopedCountingLibrary m_library;
};

TEST_F(LibraryFaultTest, FailingRealpathFailsLoadBeforeTheLoaderIsAsked) {
  ASSERT_TRUE(m_library.started());
  {
    TLibrary library;
    ScopedSysCall failing(&SSysCalls::realpath, FailingRealpath);
    ScopedSysCall counting(&SSysCalls::dlopen, CountingDlopen);
    EXPECT_FALSE(library.Load(TBstr(OVRA_FAULT_PLUGIN)));
    EXPECT_EQ(s_calls, 1);
    EXPECT_EQ(s_opens, 0);
    EXPECT_FALSE(library.IsLoaded());
    EXPECT_TRUE(library.GetFileSpec().IsEmpty());
  }
  EXPECT_EQ(Stats().live.load(), 0);
}

TEST_F(LibraryFaultTest, FailingDlopenFailsLoadAndLeavesTheObjectUnchanged) {
  ASSERT_TRUE(m_library.started());
  {
    TLibrary library;
    {
      ScopedSysCall failing(&SSysCalls::dlopen, FailingDlopen);
      EXPECT_FALSE(library.Load(TBstr(OVRA_FAULT_PLUGIN)));
      EXPECT_EQ(TLibrary::LibraryLoad(TBstr(OVRA_FAULT_PLUGIN)), kInvalidHandleValue);
    }
    EXPECT_EQ(s_calls, 2);
    EXPECT_FALSE(library.IsLoaded());
    EXPECT_TRUE(library.GetFileSpec().IsEmpty());
    EXPECT_EQ(library.GetProcAddress(TBstr("FaultPluginInits")), nullptr);
    EXPECT_FALSE(library.Free());
  }
  EXPECT_EQ(Stats().live.load(), 0);
}

TEST_F(LibraryFaultTest, FailingDlsymFailsLoadAndClosesTheOpenedLibrary) {
  ASSERT_TRUE(m_library.started());
  {
    TLibrary library;
    {
      ScopedSysCall failing(&SSysCalls::dlsym, FailingDlsym);
      EXPECT_FALSE(library.Load(TBstr(OVRA_FAULT_PLUGIN)));
    }
    EXPECT_GE(s_calls, 1);
    EXPECT_FALSE(library.IsLoaded());
    EXPECT_TRUE(library.GetFileSpec().IsEmpty());
    // The library was opened before the lookup failed; it must be closed.
    EXPECT_FALSE(PluginIsOpen());
  }
  EXPECT_EQ(Stats().live.load(), 0);
}

TEST_F(LibraryFaultTest, FailingDlsymMakesGetProcAddressReturnNull) {
  ASSERT_TRUE(m_library.started());
  {
    TLibrary library;
    ASSERT_TRUE(library.Load(TBstr(OVRA_FAULT_PLUGIN)));
    EXPECT_EQ(CallCounter(library, "FaultPluginInits"), 1);
    {
      ScopedSysCall failing(&SSysCalls::dlsym, FailingDlsym);
      EXPECT_EQ(library.GetProcAddress(TBstr("FaultPluginInits")), nullptr);
    }
    EXPECT_EQ(s_calls, 1);
    EXPECT_NE(library.GetProcAddress(TBstr("FaultPluginInits")), nullptr);
    EXPECT_TRUE(library.Free());
  }
  EXPECT_EQ(Stats().live.load(), 0);
}

TEST_F(LibraryFaultTest, FailingDlcloseGivesFalseAndKeepsTheLibraryLoaded) {
  ASSERT_TRUE(m_library.started());
  {
    TLibrary library;
    ASSERT_TRUE(library.Load(TBstr(OVRA_FAULT_PLUGIN)));
    {
      ScopedSysCall failing(&SSysCalls::dlclose, FailingDlclose);
      EXPECT_FALSE(library.Free());
    }
    EXPECT_EQ(s_calls, 1);
    EXPECT_TRUE(library.IsLoaded());
    EXPECT_FALSE(library.GetFileSpec().IsEmpty());
    // SharedLibTerm ran although the close failed.
    EXPECT_EQ(CallCounter(library, "FaultPluginTerms"), 1);
    // Restored, a second Free closes it (running SharedLibTerm again).
    EXPECT_TRUE(library.Free());
    EXPECT_FALSE(library.IsLoaded());
  }
  EXPECT_EQ(Stats().live.load(), 0);
}

}  // namespace
