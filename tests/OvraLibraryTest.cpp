// Tests of TLibrary: loading libraries under the entry-point contract, the
// object's state, and looking up what a loaded library exports.
#include "OvraLibrary.h"

#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#if !defined(_WIN32)
#include <dlfcn.h>
#include <unistd.h>
#endif

#include <string>
#include <vector>

#include "Ovra.h"
#include "AllocSweep.h"
#include "TestAllocator.h"
#include "TestPlugins.h"
#include "TestWide.h"

using namespace ovra_test;

namespace {

using Events = std::vector<std::string>;

const char* const kAccept = OVRA_TEST_PLUGIN_ACCEPT_NAME;
const char* const kRefuse = OVRA_TEST_PLUGIN_REFUSE_NAME;
const char* const kNoEntry = OVRA_TEST_PLUGIN_NOENTRY_NAME;
const char* const kPlain = OVRA_TEST_PLUGIN_PLAIN_NAME;

TBstr Spec(const std::string& text) { return TBstr(text.c_str()); }

std::string Narrow(const TBstr& s) { return s.GetMultibyteString(); }

// The runtime's own module path, as an application would read it.
std::string ModulePath() { return Narrow(OvraGetModuleFileSpec()); }

class LibraryTest : public PluginTest {};

// --- the object's state --------------------------------------------------------

TEST_F(LibraryTest, NewObjectIsNotLoadedAndHasAnEmptySpec) {
  TLibrary library;
  EXPECT_FALSE(library.IsLoaded());
  EXPECT_TRUE(library.GetFileSpec().IsEmpty());
}

// The extension of the platform's shared libraries, with its dot.
const std::string kExtension = kWindows ? ".dll" : ".so";

TEST_F(LibraryTest, LibraryExtensionIsThePlatformsOwn) {
  // The whole array: the text and one terminating zero.
  const std::u16string expected = kWindows ? u"dll" : u"so";
  ASSERT_EQ(sizeof TLibrary::kLibraryExtension, (expected.size() + 1) * sizeof(unsigned short));
  EXPECT_EQ(ToU16(TLibrary::kLibraryExtension), expected);
}

TEST_F(LibraryTest, LoadAddsNoExtensionOrPrefix) {
  const std::string accept = kAccept;
  ASSERT_EQ(accept.substr(0, 3), "lib");
  ASSERT_EQ(accept.substr(accept.size() - kExtension.size()), kExtension);
  // "ovra_test_accept"
  const std::string stem = accept.substr(3, accept.size() - 3 - kExtension.size());
  TLibrary library;
  EXPECT_FALSE(library.Load(Spec(PluginDir() + "/lib" + stem)));
  EXPECT_FALSE(library.Load(Spec(PluginDir() + "/" + stem + kExtension)));
  EXPECT_FALSE(library.Load(Spec(PluginDir() + "/" + stem)));
  EXPECT_FALSE(library.IsLoaded());
  EXPECT_TRUE(PluginEvents().empty());
}

TEST_F(LibraryTest, LoadRunsInitOnceWithTheAbsolutePathAndKeepsTheSpecAsGiven) {
  const std::string given = PluginDir() + "/./" + kAccept;
  TLibrary library;
  ASSERT_TRUE(library.Load(Spec(given)));
  EXPECT_TRUE(library.IsLoaded());
  EXPECT_EQ(Narrow(library.GetFileSpec()), given);
  EXPECT_EQ(PluginEvents(), Events{std::string("accept:init:") + PluginPath(kAccept)});
  EXPECT_TRUE(IsOpen(PluginPath(kAccept)));

  EXPECT_TRUE(library.Free());
  EXPECT_FALSE(library.IsLoaded());
  EXPECT_TRUE(library.GetFileSpec().IsEmpty());
  EXPECT_EQ(PluginEvents(),
            (Events{std::string("accept:init:") + PluginPath(kAccept), "accept:term"}));
  EXPECT_FALSE(IsOpen(PluginPath(kAccept)));
}

TEST_F(LibraryTest, LoadOfEmptySpecFails) {
  TLibrary library;
  EXPECT_FALSE(library.Load(TBstr()));
  EXPECT_FALSE(library.IsLoaded());
}

// --- the entry-point contract ----------------------------------------------------

TEST_F(LibraryTest, LoadOfLibraryWithoutInitFailsAndLeavesItClosed) {
#if !defined(_WIN32)
  // Through the plugin, the loader's lookup reaches the runtime's own entry:
  // only the library's own entry may count. (The Windows loader looks in the
  // named module only.)
  void* direct = dlopen(OVRA_TEST_PLUGIN_NOENTRY, RTLD_LAZY);
  ASSERT_NE(direct, nullptr);
  EXPECT_EQ(dlsym(direct, "SharedLibInit"), reinterpret_cast<void*>(&SharedLibInit));
  dlclose(direct);
#endif
  ASSERT_FALSE(IsOpen(PluginPath(kNoEntry)));

  TLibrary library;
  EXPECT_FALSE(library.Load(Spec(PluginPath(kNoEntry))));
  EXPECT_FALSE(library.IsLoaded());
  EXPECT_TRUE(library.GetFileSpec().IsEmpty());
  EXPECT_FALSE(IsOpen(PluginPath(kNoEntry)));
  // Refusing closes the library the usual way, which runs its own term once.
  EXPECT_EQ(PluginEvents(), Events{"noentry:term"});
}

TEST_F(LibraryTest, RefusedLoadNeverRunsTheRuntimesOwnEntries) {
  ScopedCountingLibrary scope;
  ASSERT_TRUE(scope.started());
  ASSERT_TRUE(SharedLibInit(TBstr("marker")));
  const long live = Stats().live;
  {
    TLibrary library;
    EXPECT_FALSE(library.Load(Spec(PluginPath(kNoEntry))));
  }
  // The runtime's SharedLibInit would have stored a new copy, its
  // SharedLibTerm would have freed the stored one.
  EXPECT_EQ(Stats().live, live);
  EXPECT_EQ(ModulePath(), "marker");
  SharedLibTerm();
}

TEST_F(LibraryTest, LoadRefusedByInitFailsAndRunsTermOnce) {
  TLibrary library;
  EXPECT_FALSE(library.Load(Spec(PluginPath(kRefuse))));
  EXPECT_FALSE(library.IsLoaded());
  EXPECT_TRUE(library.GetFileSpec().IsEmpty());
  EXPECT_EQ(PluginEvents(),
            (Events{std::string("refuse:init:") + PluginPath(kRefuse), "refuse:term"}));
  EXPECT_FALSE(IsOpen(PluginPath(kRefuse)));
  EXPECT_EQ(library.GetProcAddress(TBstr("SharedLibTerm")), nullptr);
}

TEST_F(LibraryTest, FreeOfLibraryWithoutTermDoesNotRunTheRuntimesTerm) {
  ScopedCountingLibrary scope;
  ASSERT_TRUE(scope.started());
  ASSERT_TRUE(SharedLibInit(TBstr("marker")));
  const long live = Stats().live;
  {
    TLibrary library;
    ASSERT_TRUE(library.Load(Spec(PluginPath(kPlain))));
    EXPECT_TRUE(library.Free());
  }
  EXPECT_EQ(Stats().live, live);
  EXPECT_EQ(ModulePath(), "marker");
  EXPECT_EQ(PluginEvents(), Events{std::string("plain:init:") + PluginPath(kPlain)});
  EXPECT_FALSE(IsOpen(PluginPath(kPlain)));
  SharedLibTerm();
}

TEST_F(LibraryTest, TheRuntimeItselfLoadsAndLearnsItsPath) {
  // The runtime is already in the process; loading it by file name from its
  // own folder hands it the absolute path, which it then reports.
  const std::string file = OVRA_LIBRARY_FILE;
  const std::string dir = RealPath(file.substr(0, file.rfind('/')));
  const std::string name = file.substr(file.rfind('/') + 1);
  ASSERT_FALSE(dir.empty());
  ScopedWorkingDirectory cwd(dir);
  ASSERT_TRUE(cwd.changed());
  TLibrary library;
  ASSERT_TRUE(library.Load(Spec(name)));
  EXPECT_EQ(ModulePath(), dir + "/" + name);
  // The runtime's own functions are found through it.
  EXPECT_EQ(reinterpret_cast<void*>(library.GetProcAddress(TBstr("OvraGetModuleFileSpec"))),
            reinterpret_cast<void*>(&OvraGetModuleFileSpec));
  EXPECT_TRUE(library.Free());  // runs the runtime's SharedLibTerm
  EXPECT_TRUE(IsOpen(file));    // still linked into the program
}

// --- names -------------------------------------------------------------------------

TEST_F(LibraryTest, LoadOfBareNameOpensTheFileInTheCurrentDirectory) {
  ScopedWorkingDirectory cwd(PluginDir());
  ASSERT_TRUE(cwd.changed());
  TLibrary library;
  ASSERT_TRUE(library.Load(Spec(kAccept)));
  EXPECT_EQ(Narrow(library.GetFileSpec()), kAccept);
  EXPECT_EQ(PluginEvents(), Events{std::string("accept:init:") + PluginPath(kAccept)});
  EXPECT_TRUE(library.Free());
}

TEST_F(LibraryTest, LoadOfBareNameIgnoresTheLoadersSearchPath) {
  // The runtime's soname (on Windows its DLL's name) is known to the loader
  // (the program was linked with it), so a search of the loader's path would
  // find it; the current folder has no such file.
  const char* const runtime = kWindows ? "ovra.dll" : "libovra.so.1";
  ASSERT_TRUE(IsOpen(runtime));
  TempDir empty;
  ASSERT_FALSE(empty.path().empty());
  ScopedWorkingDirectory cwd(empty.path());
  ASSERT_TRUE(cwd.changed());
  TLibrary library;
  EXPECT_FALSE(library.Load(TBstr(runtime)));
  EXPECT_FALSE(library.IsLoaded());
  EXPECT_FALSE(library.Load(Spec(kAccept)));
  EXPECT_TRUE(PluginEvents().empty());
}

TEST_F(LibraryTest, LoadOfRelativeSpecResolvesItsFolderAgainstTheCurrentDirectory) {
  const std::string dir = PluginDir();
  const std::string parent = dir.substr(0, dir.rfind('/'));
  const std::string leaf = dir.substr(dir.rfind('/') + 1);
  ScopedWorkingDirectory cwd(parent);
  ASSERT_TRUE(cwd.changed());
  TLibrary library;
  ASSERT_TRUE(library.Load(Spec(leaf + "/" + kAccept)));
  EXPECT_EQ(PluginEvents(), Events{std::string("accept:init:") + PluginPath(kAccept)});
}

TEST_F(LibraryTest, LoadOfSpecWhoseOnlySlashIsTheFirstCharacterFails) {
  // Its folder part is empty, which does not resolve: not even to the current
  // folder, where the file is.
  ScopedWorkingDirectory cwd(PluginDir());
  ASSERT_TRUE(cwd.changed());
  TLibrary library;
  EXPECT_FALSE(library.Load(Spec(std::string("/") + kAccept)));
  EXPECT_TRUE(PluginEvents().empty());
}

TEST_F(LibraryTest, LoadFailsForAFolderThatDoesNotExist) {
  TLibrary library;
  EXPECT_FALSE(library.Load(Spec(PluginDir() + "/no-such-folder/" + kAccept)));
  EXPECT_FALSE(library.Load(Spec(std::string("no-such-folder-here/") + kAccept)));
  EXPECT_FALSE(library.IsLoaded());
  EXPECT_TRUE(PluginEvents().empty());
}

TEST_F(LibraryTest, LoadFailsForAFileTheLoaderCannotOpen) {
  TempDir dir;
  ASSERT_FALSE(dir.path().empty());
  const std::string text = dir.path() + "/libtext.so";
  FILE* f = fopen(text.c_str(), "w");
  ASSERT_NE(f, nullptr);
  fputs("not a library\n", f);
  fclose(f);
  TLibrary library;
  EXPECT_FALSE(library.Load(Spec(text)));
  EXPECT_FALSE(library.Load(Spec(dir.path() + "/libmissing.so")));
  EXPECT_FALSE(library.Load(Spec(PluginDir() + "/")));  // names a folder
  EXPECT_FALSE(library.IsLoaded());
  EXPECT_TRUE(library.GetFileSpec().IsEmpty());
}

// --- loading twice, freeing ------------------------------------------------------
// A close that the loader refuses is made to happen through the library's
// system-call table, in faults/OvraLibraryPSFaultTest.cpp.

TEST_F(LibraryTest, SecondLoadFailsAndLeavesTheFirstLibraryAlone) {
  TLibrary library;
  ASSERT_TRUE(library.Load(Spec(PluginPath(kAccept))));
  EXPECT_FALSE(library.Load(Spec(PluginPath(kPlain))));
  EXPECT_FALSE(library.Load(Spec(PluginPath(kAccept))));
  EXPECT_TRUE(library.IsLoaded());
  EXPECT_EQ(Narrow(library.GetFileSpec()), PluginPath(kAccept));
  EXPECT_FALSE(IsOpen(PluginPath(kPlain)));
  EXPECT_EQ(PluginEvents(), Events{std::string("accept:init:") + PluginPath(kAccept)});
  const OvraProc identity = library.GetProcAddress(TBstr("PluginAcceptIdentity"));
  ASSERT_NE(identity, nullptr);
  EXPECT_EQ(identity(), 1001);
}

TEST_F(LibraryTest, FreeWithoutLoadFails) {
  TLibrary library;
  EXPECT_FALSE(library.Free());
  ASSERT_TRUE(library.Load(Spec(PluginPath(kAccept))));
  EXPECT_TRUE(library.Free());
  EXPECT_FALSE(library.Free());
  EXPECT_EQ(PluginEvents().size(), 2u);  // one init, one term
}

TEST_F(LibraryTest, ObjectCanLoadAgainAfterFree) {
  TLibrary library;
  ASSERT_TRUE(library.Load(Spec(PluginPath(kAccept))));
  ASSERT_TRUE(library.Free());
  ASSERT_TRUE(library.Load(Spec(PluginPath(kPlain))));
  EXPECT_EQ(Narrow(library.GetFileSpec()), PluginPath(kPlain));
  EXPECT_NE(library.GetProcAddress(TBstr("PluginPlainAnswer")), nullptr);
  EXPECT_EQ(library.GetProcAddress(TBstr("PluginAcceptIdentity")), nullptr);
}

TEST_F(LibraryTest, DestructorFreesTheLibrary) {
  {
    TLibrary library;
    ASSERT_TRUE(library.Load(Spec(PluginPath(kAccept))));
  }
  EXPECT_EQ(PluginEvents(),
            (Events{std::string("accept:init:") + PluginPath(kAccept), "accept:term"}));
  EXPECT_FALSE(IsOpen(PluginPath(kAccept)));
}

TEST_F(LibraryTest, TwoObjectsShareOneOpenLibrary) {
  TLibrary first, second;
  ASSERT_TRUE(first.Load(Spec(PluginPath(kAccept))));
  ASSERT_TRUE(second.Load(Spec(PluginPath(kAccept))));
  EXPECT_EQ(PluginEvents().size(), 2u);  // each load runs the init
  ASSERT_TRUE(first.Free());
  EXPECT_TRUE(IsOpen(PluginPath(kAccept)));  // the loader counts its users
  const OvraProc identity = second.GetProcAddress(TBstr("PluginAcceptIdentity"));
  ASSERT_NE(identity, nullptr);
  EXPECT_EQ(identity(), 1001);
  ASSERT_TRUE(second.Free());
  EXPECT_FALSE(IsOpen(PluginPath(kAccept)));
}

// --- lookups ---------------------------------------------------------------------

TEST_F(LibraryTest, GetProcAddressOnUnloadedObjectReturnsNull) {
  TLibrary library;
  EXPECT_EQ(library.GetProcAddress(TBstr("PluginPlainAnswer")), nullptr);
  // Not even names that the process knows.
  EXPECT_EQ(library.GetProcAddress(TBstr("OvraInitialize")), nullptr);
  EXPECT_FALSE(library.Load(Spec(PluginPath(kRefuse))));
  EXPECT_EQ(library.GetProcAddress(TBstr("SharedLibInit")), nullptr);
  ASSERT_TRUE(library.Load(Spec(PluginPath(kPlain))));
  ASSERT_TRUE(library.Free());
  EXPECT_EQ(library.GetProcAddress(TBstr("PluginPlainAnswer")), nullptr);
}

TEST_F(LibraryTest, GetProcAddressFindsExportedFunctionsAndVariables) {
  TLibrary library;
  ASSERT_TRUE(library.Load(Spec(PluginPath(kPlain))));
  const OvraProc answer = library.GetProcAddress(TBstr("PluginPlainAnswer"));
  ASSERT_NE(answer, nullptr);
  EXPECT_EQ(answer(), 42);
  const auto add = reinterpret_cast<int (*)(int, int)>(
      reinterpret_cast<void (*)(void)>(library.GetProcAddress(TBstr("PluginPlainAdd"))));
  ASSERT_NE(add, nullptr);
  EXPECT_EQ(add(40, 2), 42);
  int* counter = reinterpret_cast<int*>(library.GetProcAddress(TBstr("PluginPlainCounter")));
  ASSERT_NE(counter, nullptr);
  EXPECT_EQ(*counter, 7);
  EXPECT_EQ(library.GetProcAddress(TBstr("PluginPlainHidden")), nullptr);
  EXPECT_EQ(library.GetProcAddress(TBstr("NoSuchFunction")), nullptr);
  EXPECT_EQ(library.GetProcAddress(TBstr()), nullptr);
}

// --- memory ----------------------------------------------------------------------

TEST_F(LibraryTest, LoadFailsCleanlyWhenMemoryRunsOut) {
  ScopedCountingLibrary scope;
  ASSERT_TRUE(scope.started());
  const long live = Stats().live;
  int failures = 0;
  {
  // The spec's single-byte copy, made for the loader and cached in the
  // string, lives as long as the string: the count is taken without it.
  const TBstr spec = Spec(PluginPath(kAccept));
  ASSERT_EQ(Stats().live, live + 1);
  for (long n = 1; n < 50; ++n) {
    PluginEvents().clear();
    TLibrary library;
    FailNthAllocation(n, true);
    const bool loaded = library.Load(spec);
    StopFailing();
    if (loaded) {
      EXPECT_EQ(Narrow(library.GetFileSpec()), PluginPath(kAccept));
      EXPECT_TRUE(library.Free());
      break;
    }
    ++failures;
    EXPECT_FALSE(library.IsLoaded()) << n;
    EXPECT_TRUE(library.GetFileSpec().IsEmpty()) << n;
    EXPECT_FALSE(IsOpen(PluginPath(kAccept))) << n;
    // No init ran without its term: the library was never opened.
    EXPECT_TRUE(PluginEvents().empty()) << n;
  }
  }
  EXPECT_GE(failures, 2);  // the copy of the spec and the path for the init
  EXPECT_EQ(Stats().live, live);
}

TEST_F(LibraryTest, GetProcAddressReturnsNullWhenMemoryRunsOut) {
  ScopedCountingLibrary scope;
  ASSERT_TRUE(scope.started());
  TLibrary library;
  ASSERT_TRUE(library.Load(Spec(PluginPath(kPlain))));
  const TBstr name("PluginPlainAnswer");
  FailNthAllocation(1, true);
  EXPECT_EQ(library.GetProcAddress(name), nullptr);
  StopFailing();
  EXPECT_NE(library.GetProcAddress(name), nullptr);
}

// --- Allocation failures ---------------------------------------------------
// Each operation runs with its 1st, 2nd, ... allocation failing, alone and
// with every later one (AllocSweep.h), until it goes through; every run must
// give the documented out-of-memory result and leak nothing. The N each sweep
// reaches is printed ("[ SWEEP    ]").

class AllocSweepLibrary : public SweepTest {
 protected:
  void SetUp() override {
    SweepTest::SetUp();
    ovra_test::PluginEvents().clear();
    ASSERT_FALSE(ovra_test::PluginDir().empty()) << OVRA_TEST_PLUGIN_DIR;
  }
};

// How many events of the plugins end with suffix (":term") or hold it (":init:").
int CountEvents(const std::string& part) {
  int count = 0;
  for (const std::string& event : ovra_test::PluginEvents()) {
    if (event.find(part) != std::string::npos) ++count;
  }
  return count;
}

TEST_F(AllocSweepLibrary, LoadFailsWithNothingOpenAndEveryInitBalancedAtEveryFailure) {
  const std::string path = ovra_test::PluginPath(OVRA_TEST_PLUGIN_ACCEPT_NAME);
  SweepBothModes("TLibrary::Load + Free", [&](SweepRun& run) {
    ovra_test::PluginEvents().clear();
    const TBstr spec(path.c_str());
    TLibrary library;
    run.Arm();
    const bool loaded = library.Load(spec);
    const bool failed = run.Disarm();
    EXPECT_EQ(library.IsLoaded(), loaded);
    if (loaded) {
      EXPECT_EQ(Narrow(library.GetFileSpec()), path);
      EXPECT_EQ(CountEvents("accept:init:"), 1);
      EXPECT_TRUE(library.Free());
      EXPECT_EQ(CountEvents("accept:term"), 1);
    } else {
      EXPECT_TRUE(failed) << "Load failed without running out of memory";
      EXPECT_TRUE(library.GetFileSpec().IsEmpty()) << "n=" << run.n();
      EXPECT_FALSE(ovra_test::IsOpen(path)) << "n=" << run.n();
      // An init that ran was followed by its term.
      EXPECT_EQ(CountEvents("accept:init:"), CountEvents("accept:term")) << "n=" << run.n();
    }
    EXPECT_FALSE(ovra_test::IsOpen(path));
  });
  // The platform layer on its own.
  SweepBothModes("TLibrary::LibraryLoad", [&](SweepRun& run) {
    ovra_test::PluginEvents().clear();
    const TBstr spec(path.c_str());
    run.Arm();
    void* handle = TLibrary::LibraryLoad(spec);
    const bool failed = run.Disarm();
    if (handle != kInvalidHandleValue) {
      EXPECT_TRUE(TLibrary::LibraryFree(handle));
    } else {
      EXPECT_TRUE(failed);
      EXPECT_EQ(CountEvents("accept:init:"), CountEvents("accept:term")) << "n=" << run.n();
    }
    EXPECT_FALSE(ovra_test::IsOpen(path));
  });
}

TEST_F(AllocSweepLibrary, GetProcAddressIsNullWhenTheNameCannotBeCopied) {
  TLibrary library;
  ASSERT_TRUE(library.Load(TBstr(ovra_test::PluginPath(OVRA_TEST_PLUGIN_PLAIN_NAME).c_str())));
  SweepBothModes("TLibrary::GetProcAddress", [&](SweepRun& run) {
    const TBstr name("PluginPlainAnswer");
    run.Arm();
    const OvraProc proc = library.GetProcAddress(name);
    const bool failed = run.Disarm();
    EXPECT_EQ(proc == nullptr, failed);
    if (proc) {
      EXPECT_EQ(proc(), 42);
    }
  });
  EXPECT_TRUE(library.Free());
}

}  // namespace
