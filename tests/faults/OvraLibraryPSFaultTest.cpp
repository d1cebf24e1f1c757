// TLibrary when the loader or path resolution fails: Load gives false with
// the object unchanged and nothing left open, GetProcAddress gives null, and
// a failed close keeps the library loaded as documented (Free and
// LibraryFree fail after the library's SharedLibTerm has run, a refused load
// still gives the invalid handle). No block leaks. The stand-ins replace the
// platform's loader calls (dlopen, dlsym, dlclose and realpath, or
// LoadLibraryExW, GetProcAddress, FreeLibrary and GetFullPathNameW).
#if !defined(_WIN32)
#include <dlfcn.h>
#endif
#include <errno.h>
#include <gtest/gtest.h>
#include <string.h>

#include <string>
#include <vector>

#include "OvraLibrary.h"
#include "OvraSysCallAccess.h"
#include "TestAllocator.h"
#include "TestPlatform.h"

using namespace ovra_test;

namespace {

int s_calls = 0;
int s_opens = 0;

// How many closes FailingThenRealClose still fails before it closes.
int s_failingCloses = 0;
// How many times the closed library's SharedLibTerm had run at each close,
// oldest first.
std::vector<int> s_termsAtClose;

// The loader's own lookup, around the table.
void* LoaderSymbol(void* handle, const char* name) {
#if defined(_WIN32)
  return win::HandleSymbol(handle, name);
#else
  return dlsym(handle, name);
#endif
}

// The library's own count of its SharedLibTerm calls; -1 without one.
int TermsOf(void* handle) {
  const auto terms = reinterpret_cast<int (*)(void)>(LoaderSymbol(handle, "FaultPluginTerms"));
  return terms ? terms() : -1;
}

#if defined(_WIN32)
constexpr auto kResolve = &SSysCalls::GetFullPathNameW;
constexpr auto kOpen = &SSysCalls::LoadLibraryExW;
constexpr auto kLookup = &SSysCalls::GetProcAddress;
constexpr auto kClose = &SSysCalls::FreeLibrary;

const SysFailure<kResolve> FailingResolve{s_calls, LastError(ERROR_FILENAME_EXCED_RANGE), 0};
const SysFailure<&SSysCalls::GetFileAttributesExW> FailingExamine{
    s_calls, LastError(ERROR_ACCESS_DENIED), FALSE};
const SysFailure<kOpen> FailingOpen{s_calls, LastError(ERROR_MOD_NOT_FOUND), nullptr};
const SysFailure<kLookup> FailingLookup{s_calls, LastError(ERROR_PROC_NOT_FOUND), nullptr};
// Fails the close without closing, as a loader that refuses would.
const SysFailure<kClose> FailingClose{s_calls, LastError(ERROR_INVALID_HANDLE), FALSE};

HMODULE WINAPI CountingOpen(const wchar_t* path, HANDLE reserved, DWORD flags) {
  ++s_opens;
  return OvraTestRealSysCalls()->LoadLibraryExW(path, reserved, flags);
}

// Fails the next s_failingCloses closes without closing, as a loader that
// refuses would, then passes closes on to the real call. Each call records
// how often the library's SharedLibTerm has run, which shows that the term
// comes before the close.
BOOL WINAPI FailingThenRealClose(HMODULE module) {
  s_termsAtClose.push_back(TermsOf(module));
  if (s_failingCloses > 0) {
    --s_failingCloses;
    SetLastError(ERROR_INVALID_HANDLE);
    return FALSE;
  }
  return OvraTestRealSysCalls()->FreeLibrary(module);
}

// The plugins as the library names them on Windows: full paths with "/".
std::string PluginSpec(const char* path) {
  std::string spec = win::RealPath(path);
  for (char& c : spec) {
    if (c == '\\') c = '/';
  }
  return spec;
}

// Whether the library at path is still mapped into the process.
bool IsMapped(const std::string& path) { return win::IsModuleLoaded(path); }

// A new reference to the loaded library at path, taken without the library.
void* OpenAgain(const std::string& path) { return win::OpenModule(path); }
void CloseOnce(void* handle) { win::CloseModule(handle); }
#else
constexpr auto kResolve = &SSysCalls::realpath;
constexpr auto kOpen = &SSysCalls::dlopen;
constexpr auto kLookup = &SSysCalls::dlsym;
constexpr auto kClose = &SSysCalls::dlclose;

const SysFailure<kResolve> FailingResolve{s_calls, Errno(ENAMETOOLONG), nullptr};
// The loader keeps its errors for dlerror, not errno: these leave none.
const SysFailure<kOpen> FailingOpen{s_calls, ResultOnly(), nullptr};
const SysFailure<kLookup> FailingLookup{s_calls, ResultOnly(), nullptr};
// Fails the close without closing, as a loader that refuses would.
const SysFailure<kClose> FailingClose{s_calls, ResultOnly(), -1};

void* CountingOpen(const char* path, int flags) {
  ++s_opens;
  return OvraTestRealSysCalls()->dlopen(path, flags);
}

// Fails the next s_failingCloses closes without closing, as a loader that
// refuses would, then passes closes on to the real call. Each call records
// how often the library's SharedLibTerm has run, which shows that the term
// comes before the close.
int FailingThenRealClose(void* handle) {
  s_termsAtClose.push_back(TermsOf(handle));
  if (s_failingCloses > 0) {
    --s_failingCloses;
    return -1;
  }
  return OvraTestRealSysCalls()->dlclose(handle);
}

// The plugins as the build names them.
std::string PluginSpec(const char* path) { return path; }

bool IsMapped(const std::string& path) {
  void* handle = dlopen(path.c_str(), RTLD_LAZY | RTLD_NOLOAD);
  if (!handle) return false;
  dlclose(handle);  // RTLD_NOLOAD still counts a reference
  return true;
}

void* OpenAgain(const std::string& path) { return dlopen(path.c_str(), RTLD_LAZY | RTLD_NOLOAD); }
void CloseOnce(void* handle) { dlclose(handle); }
#endif

const std::string& Plugin() {
  static const std::string spec = PluginSpec(OVRA_FAULT_PLUGIN);
  return spec;
}

const std::string& RefusingPlugin() {
  static const std::string spec = PluginSpec(OVRA_FAULT_PLUGIN_REFUSE);
  return spec;
}

// Whether the library at path (the accepting plugin by default) is still
// mapped into the process.
bool PluginIsOpen(const std::string& path = Plugin()) { return IsMapped(path); }

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
    ASSERT_FALSE(Plugin().empty()) << OVRA_FAULT_PLUGIN;
    ASSERT_FALSE(RefusingPlugin().empty()) << OVRA_FAULT_PLUGIN_REFUSE;
    ASSERT_FALSE(PluginIsOpen());
    ASSERT_FALSE(PluginIsOpen(RefusingPlugin()));
  }
  void TearDown() override {
    EXPECT_FALSE(PluginIsOpen()) << "a failed operation left it open";
    EXPECT_FALSE(PluginIsOpen(RefusingPlugin())) << "a failed operation left it open";
  }
  ScopedCountingLibrary m_library;
};

TEST_F(LibraryFaultTest, FailingPathResolutionFailsLoadBeforeTheLoaderIsAsked) {
  ASSERT_TRUE(m_library.started());
  {
    TLibrary library;
    ScopedSysCall failing(FailingResolve);
    ScopedSysCall counting(kOpen, CountingOpen);
    EXPECT_FALSE(library.Load(TBstr(Plugin().c_str())));
    EXPECT_EQ(s_calls, 1);
    EXPECT_EQ(s_opens, 0);
    EXPECT_FALSE(library.IsLoaded());
    EXPECT_TRUE(library.GetFileSpec().IsEmpty());
  }
  EXPECT_EQ(Stats().live.load(), 0);
}

#if defined(_WIN32)
// The folder is made absolute and then examined: a folder that cannot be
// examined fails the load before the loader is asked, as one that does not
// resolve does.
TEST_F(LibraryFaultTest, FailingExamineOfTheFolderFailsLoadBeforeTheLoaderIsAsked) {
  ASSERT_TRUE(m_library.started());
  {
    TLibrary library;
    ScopedSysCall failing(FailingExamine);
    ScopedSysCall counting(kOpen, CountingOpen);
    EXPECT_FALSE(library.Load(TBstr(Plugin().c_str())));
    EXPECT_EQ(TLibrary::LibraryLoad(TBstr(Plugin().c_str())), kInvalidHandleValue);
    EXPECT_EQ(s_calls, 2);
    EXPECT_EQ(s_opens, 0);
    EXPECT_FALSE(library.IsLoaded());
    EXPECT_TRUE(library.GetFileSpec().IsEmpty());
  }
  EXPECT_EQ(Stats().live.load(), 0);
}
#endif

TEST_F(LibraryFaultTest, FailingOpenFailsLoadAndLeavesTheObjectUnchanged) {
  ASSERT_TRUE(m_library.started());
  {
    TLibrary library;
    {
      ScopedSysCall failing(FailingOpen);
      EXPECT_FALSE(library.Load(TBstr(Plugin().c_str())));
      EXPECT_EQ(TLibrary::LibraryLoad(TBstr(Plugin().c_str())), kInvalidHandleValue);
    }
    EXPECT_EQ(s_calls, 2);
    EXPECT_FALSE(library.IsLoaded());
    EXPECT_TRUE(library.GetFileSpec().IsEmpty());
    EXPECT_EQ(library.GetProcAddress(TBstr("FaultPluginInits")), nullptr);
    EXPECT_FALSE(library.Free());
  }
  EXPECT_EQ(Stats().live.load(), 0);
}

TEST_F(LibraryFaultTest, FailingLookupFailsLoadAndClosesTheOpenedLibrary) {
  ASSERT_TRUE(m_library.started());
  {
    TLibrary library;
    {
      ScopedSysCall failing(FailingLookup);
      EXPECT_FALSE(library.Load(TBstr(Plugin().c_str())));
    }
    EXPECT_GE(s_calls, 1);
    EXPECT_FALSE(library.IsLoaded());
    EXPECT_TRUE(library.GetFileSpec().IsEmpty());
    // The library was opened before the lookup failed; it must be closed.
    EXPECT_FALSE(PluginIsOpen());
  }
  EXPECT_EQ(Stats().live.load(), 0);
}

TEST_F(LibraryFaultTest, FailingLookupMakesGetProcAddressReturnNull) {
  ASSERT_TRUE(m_library.started());
  {
    TLibrary library;
    ASSERT_TRUE(library.Load(TBstr(Plugin().c_str())));
    EXPECT_EQ(CallCounter(library, "FaultPluginInits"), 1);
    {
      ScopedSysCall failing(FailingLookup);
      EXPECT_EQ(library.GetProcAddress(TBstr("FaultPluginInits")), nullptr);
    }
    EXPECT_EQ(s_calls, 1);
    EXPECT_NE(library.GetProcAddress(TBstr("FaultPluginInits")), nullptr);
    EXPECT_TRUE(library.Free());
  }
  EXPECT_EQ(Stats().live.load(), 0);
}

TEST_F(LibraryFaultTest, FailingCloseGivesFalseAndKeepsTheLibraryLoaded) {
  ASSERT_TRUE(m_library.started());
  {
    TLibrary library;
    ASSERT_TRUE(library.Load(TBstr(Plugin().c_str())));
    {
      ScopedSysCall failing(FailingClose);
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
    ASSERT_TRUE(library.Load(TBstr(Plugin().c_str())));
    ScopedSysCall closing(kClose, FailingThenRealClose);
    s_failingCloses = 1;
    EXPECT_FALSE(library.Free());
    EXPECT_EQ(s_failingCloses, 0) << "the close was not reached";
    EXPECT_TRUE(library.IsLoaded());
    EXPECT_EQ(Narrow(library.GetFileSpec()), Plugin());
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
  void* handle = TLibrary::LibraryLoad(TBstr(Plugin().c_str()));
  ASSERT_NE(handle, kInvalidHandleValue);
  ScopedSysCall closing(kClose, FailingThenRealClose);
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
    ScopedSysCall closing(kClose, FailingThenRealClose);
    s_failingCloses = 1;
    EXPECT_EQ(TLibrary::LibraryLoad(TBstr(RefusingPlugin().c_str())), kInvalidHandleValue);
    EXPECT_EQ(s_failingCloses, 0) << "the refused library was not closed";
    EXPECT_EQ(s_termsAtClose, std::vector<int>{1});  // closing it ran its term first
  }
  // The library stayed open: close it as the loader would have.
  ASSERT_TRUE(PluginIsOpen(RefusingPlugin()));
  void* handle = OpenAgain(RefusingPlugin());
  ASSERT_NE(handle, nullptr);
  const auto inits = reinterpret_cast<int (*)(void)>(LoaderSymbol(handle, "FaultPluginInits"));
  ASSERT_NE(inits, nullptr);
  EXPECT_EQ(inits(), 1);
  CloseOnce(handle);
  CloseOnce(handle);
  EXPECT_FALSE(PluginIsOpen(RefusingPlugin()));
  EXPECT_EQ(Stats().live.load(), 0);
}

}  // namespace
