// TLibrary when the loader or path resolution fails: Load gives false with
// the object unchanged and nothing left open, GetProcAddress gives null, and
// a failed close keeps the library loaded as documented (Free and
// LibraryFree fail after the library's SharedLibTerm has run, a refused load
// still gives the invalid handle). No block leaks.
#include <dlfcn.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <string.h>

#include <string>
#include <vector>

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

// How many closes FailingThenRealDlclose still fails before it closes.
int s_failingCloses = 0;
// How many times the closed library's SharedLibTerm had run at each close,
// oldest first.
std::vector<int> s_termsAtClose;

// The library's own count of its SharedLibTerm calls; -1 without one.
int TermsOf(void* handle) {
  const auto terms = reinterpret_cast<int (*)(void)>(dlsym(handle, "FaultPluginTerms"));
  return terms ? terms() : -1;
}

// Fails the next s_failingCloses closes without closing, as a loader that
// refuses would, then passes closes on to the real call. Each call records
// how often the library's SharedLibTerm has run, which shows that the term
// comes before the close.
int FailingThenRealDlclose(void* handle) {
  s_termsAtClose.push_back(TermsOf(handle));
  if (s_failingCloses > 0) {
    --s_failingCloses;
    return -1;
  }
  return OvraTestRealSysCalls()->dlclose(handle);
}

// Whether the library at path (the accepting plugin by default) is still
// mapped into the process.
bool PluginIsOpen(const char* path = OVRA_FAULT_PLUGIN) {
  void* handle = dlopen(path, RTLD_LAZY | RTLD_NOLOAD);
  if (!handle) return false;
  dlclose(handle);  // RTLD_NOLOAD still counts a reference
  return true;
}

std::string Narrow(const TBstr& s) { return s.GetMultibyteString(); }

int CallCounter(const TLibrary& library, const char* name) {
  OvraProc proc = library.GetProcAddress(TBstr(name));
  return proc ? proc() : -1;
}

class LibraryFaultTest : public ::testing::Test {
 protected:
  void SetUp() override {
    s_calls = 0;
    s_opens = 0;
    s_failingCloses = 0;
    s_termsAtClose.clear();
    ASSERT_FALSE(PluginIsOpen());
    ASSERT_FALSE(PluginIsOpen(OVRA_FAULT_PLUGIN_REFUSE));
  }
  void TearDown() override {
    EXPECT_FALSE(PluginIsOpen()) << "a failed operation left it open";
    EXPECT_FALSE(PluginIsOpen(OVRA_FAULT_PLUGIN_REFUSE)) << "a failed operation left it open";
  }
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

TEST_F(LibraryFaultTest, FailedCloseKeepsTheObjectLoadedAfterTermHasRun) {
  ASSERT_TRUE(m_library.started());
  {
    TLibrary library;
    ASSERT_TRUE(library.Load(TBstr(OVRA_FAULT_PLUGIN)));
    ScopedSysCall closing(&SSysCalls::dlclose, FailingThenRealDlclose);
    s_failingCloses = 1;
    EXPECT_FALSE(library.Free());
    EXPECT_EQ(s_failingCloses, 0) << "the close was not reached";
    EXPECT_TRUE(library.IsLoaded());
    EXPECT_EQ(Narrow(library.GetFileSpec()), OVRA_FAULT_PLUGIN);
    EXPECT_TRUE(PluginIsOpen());
    EXPECT_EQ(s_termsAtClose, std::vector<int>{1});  // the term ran before the close
    EXPECT_EQ(CallCounter(library, "FaultPluginInits"), 1);
    EXPECT_EQ(CallCounter(library, "FaultPluginTerms"), 1);

    EXPECT_TRUE(library.Free());  // the term runs again before the close
    EXPECT_EQ(s_termsAtClose, (std::vector<int>{1, 2}));
    EXPECT_FALSE(library.IsLoaded());
    EXPECT_FALSE(PluginIsOpen());
  }
  EXPECT_EQ(Stats().live.load(), 0);
}

TEST_F(LibraryFaultTest, LibraryFreeFailsWhenTheLoaderCannotClose) {
  ASSERT_TRUE(m_library.started());
  void* handle = TLibrary::LibraryLoad(TBstr(OVRA_FAULT_PLUGIN));
  ASSERT_NE(handle, kInvalidHandleValue);
  ScopedSysCall closing(&SSysCalls::dlclose, FailingThenRealDlclose);
  s_failingCloses = 1;
  EXPECT_FALSE(TLibrary::LibraryFree(handle));
  EXPECT_EQ(s_termsAtClose, std::vector<int>{1});  // the term ran first
  EXPECT_TRUE(PluginIsOpen());
  EXPECT_TRUE(TLibrary::LibraryFree(handle));
  EXPECT_EQ(s_termsAtClose, (std::vector<int>{1, 2}));
  EXPECT_FALSE(PluginIsOpen());
  EXPECT_EQ(Stats().live.load(), 0);
}

TEST_F(LibraryFaultTest, RefusedLoadStillReturnsInvalidWhenTheCloseFails) {
  ASSERT_TRUE(m_library.started());
  {
    ScopedSysCall closing(&SSysCalls::dlclose, FailingThenRealDlclose);
    s_failingCloses = 1;
    EXPECT_EQ(TLibrary::LibraryLoad(TBstr(OVRA_FAULT_PLUGIN_REFUSE)), kInvalidHandleValue);
    EXPECT_EQ(s_failingCloses, 0) << "the refused library was not closed";
    EXPECT_EQ(s_termsAtClose, std::vector<int>{1});  // closing it ran its term first
  }
  // The library stayed open: close it as the loader would have.
  void* handle = dlopen(OVRA_FAULT_PLUGIN_REFUSE, RTLD_LAZY | RTLD_NOLOAD);
  ASSERT_NE(handle, nullptr);
  const auto inits = reinterpret_cast<int (*)(void)>(dlsym(handle, "FaultPluginInits"));
  ASSERT_NE(inits, nullptr);
  EXPECT_EQ(inits(), 1);
  dlclose(handle);
  dlclose(handle);
  EXPECT_FALSE(PluginIsOpen(OVRA_FAULT_PLUGIN_REFUSE));
  EXPECT_EQ(Stats().live.load(), 0);
}

}  // namespace
