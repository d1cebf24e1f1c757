// Tests of TLibrary's platform layer: LibraryLoad's algorithm (splitting the
// spec, resolving its folder, the working buffers, the entry points),
// LibraryFree and LibraryGetProcAddress.
#include "OvraLibrary.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#if !defined(_WIN32)
#include <dlfcn.h>
#include <unistd.h>
#endif

#include <string>
#include <vector>

#include "Ovra.h"
#include "TestAllocator.h"
#include "TestPlugins.h"

using namespace ovra_test;

namespace {

using Events = std::vector<std::string>;

const char* const kAccept = OVRA_TEST_PLUGIN_ACCEPT_NAME;
const char* const kRefuse = OVRA_TEST_PLUGIN_REFUSE_NAME;
const char* const kNoEntry = OVRA_TEST_PLUGIN_NOENTRY_NAME;
const char* const kPlain = OVRA_TEST_PLUGIN_PLAIN_NAME;

// Both working buffers hold this many bytes, the terminator included.
constexpr size_t kBufferSize = 1024;

TBstr Spec(const std::string& text) { return TBstr(text.c_str()); }

std::string InitEvent(const char* plugin, const std::string& path) {
  return std::string(plugin) + ":init:" + path;
}

class LibraryPSTest : public PluginTest {};

// Makes the folders of path below base (which exists); true on success.
bool MakeFolders(const std::string& base, const std::string& path) {
  std::string current = base;
  size_t start = base.size() + 1;
  while (start <= path.size()) {
    size_t end = path.find('/', start);
    if (end == std::string::npos) end = path.size();
    current = path.substr(0, end);
    if (!MakeDir(current, 0700)) return false;
    start = end + 1;
  }
  return true;
}

// A folder below base whose absolute path is exactly length bytes long.
std::string FolderOfLength(const std::string& base, size_t length) {
  std::string path = base;
  while (path.size() < length) {
    const size_t room = length - path.size() - 1;  // after the "/"
    // Components of at most 200 bytes, and never a last one shorter than 1.
    size_t take = room > 200 ? (room - 200 >= 2 ? 200 : room - 2) : room;
    path += "/" + std::string(take, 'd');
  }
  return path;
}

// --- the spec and the working buffers ----------------------------------------

TEST_F(LibraryPSTest, LibraryLoadOpensTheFileAndHandsItsAbsolutePathToInit) {
  void* handle = TLibrary::LibraryLoad(Spec(PluginDir() + "/../plugins/./" + kAccept));
  ASSERT_NE(handle, kInvalidHandleValue);
  EXPECT_EQ(PluginEvents(), Events{InitEvent("accept", PluginPath(kAccept))});
  EXPECT_NE(LoaderSymbol(handle, "PluginAcceptIdentity"), nullptr);
  EXPECT_TRUE(TLibrary::LibraryFree(handle));
  EXPECT_EQ(PluginEvents().back(), "accept:term");
}

TEST_F(LibraryPSTest, LibraryLoadResolvesOnlyTheFolderNotTheFileName) {
  OVRA_REQUIRE_SYMLINKS();
  TempDir dir;
  ASSERT_FALSE(dir.path().empty());
  const std::string link = dir.path() + "/libalias.so";
  ASSERT_TRUE(MakeSymlink(OVRA_TEST_PLUGIN_ACCEPT, link));
  void* handle = TLibrary::LibraryLoad(Spec(link));
  ASSERT_NE(handle, kInvalidHandleValue);
  EXPECT_EQ(PluginEvents(), Events{InitEvent("accept", link)});
  EXPECT_TRUE(TLibrary::LibraryFree(handle));
}

TEST_F(LibraryPSTest, LibraryLoadTakesTheCurrentFolderForABareName) {
  ScopedWorkingDirectory cwd(PluginDir());
  ASSERT_TRUE(cwd.changed());
  void* handle = TLibrary::LibraryLoad(Spec(kAccept));
  ASSERT_NE(handle, kInvalidHandleValue);
  EXPECT_EQ(PluginEvents(), Events{InitEvent("accept", PluginPath(kAccept))});
  EXPECT_TRUE(TLibrary::LibraryFree(handle));
}

TEST_F(LibraryPSTest, LibraryLoadFailsWhenOnlyTheFirstCharacterIsASlash) {
  // "/name": the folder part is empty and does not resolve, not even to the
  // current folder, where the file is.
  ScopedWorkingDirectory cwd(PluginDir());
  ASSERT_TRUE(cwd.changed());
  EXPECT_EQ(TLibrary::LibraryLoad(Spec(std::string("/") + kAccept)), kInvalidHandleValue);
  EXPECT_TRUE(PluginEvents().empty());
}

TEST_F(LibraryPSTest, LibraryLoadFailsForAnEmptySpec) {
  EXPECT_EQ(TLibrary::LibraryLoad(TBstr()), kInvalidHandleValue);
}

TEST_F(LibraryPSTest, SpecOfUpTo1023BytesLoadsAndALongerOneFails) {
  // The folder part is padded with "./" (and one extra "/" for odd lengths);
  // it resolves to the plugin folder whatever its length.
  const std::string head = PluginDir() + "/";
  const std::string tail = kAccept;
  auto padded = [&](size_t total) {
    std::string middle;
    while (head.size() + middle.size() + 2 + tail.size() <= total) middle += "./";
    if (head.size() + middle.size() + tail.size() < total) middle += "/";
    return head + middle + tail;
  };
  const std::string longest = padded(kBufferSize - 1);
  const std::string tooLong = padded(kBufferSize);
  ASSERT_EQ(longest.size(), kBufferSize - 1);
  ASSERT_EQ(tooLong.size(), kBufferSize);

  void* handle = TLibrary::LibraryLoad(Spec(longest));
  ASSERT_NE(handle, kInvalidHandleValue);
  EXPECT_EQ(PluginEvents(), Events{InitEvent("accept", PluginPath(kAccept))});
  EXPECT_TRUE(TLibrary::LibraryFree(handle));

  PluginEvents().clear();
  EXPECT_EQ(TLibrary::LibraryLoad(Spec(tooLong)), kInvalidHandleValue);
  EXPECT_EQ(TLibrary::LibraryLoad(Spec(tooLong + std::string(5000, 'x'))), kInvalidHandleValue);
  EXPECT_TRUE(PluginEvents().empty());
  EXPECT_FALSE(IsOpen(PluginPath(kAccept)));
}

TEST_F(LibraryPSTest, AbsolutePathOfUpTo1023BytesLoadsAndALongerOneFails) {
  OVRA_REQUIRE_SYMLINKS();
  // A short spec in a deep folder: only the absolute path is long.
  TempDir base;
  ASSERT_FALSE(base.path().empty());
  const std::string name = "libdeep.so";
  const size_t fitting = kBufferSize - 1 - 1 - name.size();  // folder + "/" + name
  const std::string fits = FolderOfLength(base.path() + "/a", fitting);
  const std::string overflows = FolderOfLength(base.path() + "/b", fitting + 1);
  ASSERT_EQ(fits.size(), fitting);
  ASSERT_EQ(overflows.size(), fitting + 1);
  for (const std::string& folder : {fits, overflows}) {
    ASSERT_TRUE(MakeFolders(base.path(), folder)) << folder;
    ASSERT_TRUE(MakeSymlink(OVRA_TEST_PLUGIN_ACCEPT, (folder + "/" + name)));
  }
  {
    ScopedWorkingDirectory cwd(fits);
    ASSERT_TRUE(cwd.changed());
    void* handle = TLibrary::LibraryLoad(Spec(name));
    ASSERT_NE(handle, kInvalidHandleValue);
    EXPECT_EQ(PluginEvents(), Events{InitEvent("accept", fits + "/" + name)});
    EXPECT_EQ(PluginEvents()[0].size(), strlen("accept:init:") + kBufferSize - 1);
    EXPECT_TRUE(TLibrary::LibraryFree(handle));
  }
  PluginEvents().clear();
  {
    ScopedWorkingDirectory cwd(overflows);
    ASSERT_TRUE(cwd.changed());
    EXPECT_EQ(TLibrary::LibraryLoad(Spec(name)), kInvalidHandleValue);
  }
  // The same file by its full spec, which also exceeds the buffer.
  EXPECT_EQ(TLibrary::LibraryLoad(Spec(overflows + "/" + name)), kInvalidHandleValue);
  EXPECT_TRUE(PluginEvents().empty());
  EXPECT_FALSE(IsOpen(PluginPath(kAccept)));
}

TEST_F(LibraryPSTest, SpecWithoutAnExactSingleByteFormIsRefused) {
  OVRA_REQUIRE_SYMLINKS();
  // Narrowed, these specs would name existing files: "lib?.so" (for U+0100)
  // and the plugin itself (for the text cut at the zero character).
  TempDir dir;
  ASSERT_FALSE(dir.path().empty());
  ASSERT_TRUE(MakeSymlink(OVRA_TEST_PLUGIN_ACCEPT, (dir.path() + "/lib?.so")));
  ScopedWorkingDirectory cwd(dir.path());
  ASSERT_TRUE(cwd.changed());
  void* handle = TLibrary::LibraryLoad(TBstr("lib?.so"));
  ASSERT_NE(handle, kInvalidHandleValue);
  PluginEvents().clear();
  // The library stays open from the load above: the loader would hand it out.
  const unsigned short wide[] = {'l', 'i', 'b', 0x100, '.', 's', 'o', 0};
  EXPECT_EQ(TLibrary::LibraryLoad(TBstr(wide)), kInvalidHandleValue);
  const std::string full = std::string("lib?.so") + '\0' + "x";
  EXPECT_EQ(TLibrary::LibraryLoad(TBstr(full.data(), static_cast<int>(full.size()))),
            kInvalidHandleValue);
  EXPECT_TRUE(PluginEvents().empty());
  EXPECT_TRUE(TLibrary::LibraryFree(handle));
}

// --- the entry points ------------------------------------------------------------
// What LibraryFree and a refused LibraryLoad do when the loader cannot close
// is checked through the library's system-call table, in
// faults/OvraLibraryPSFaultTest.cpp.

TEST_F(LibraryPSTest, LibraryLoadRefusesALibraryWithoutItsOwnInit) {
  EXPECT_EQ(TLibrary::LibraryLoad(Spec(PluginPath(kNoEntry))), kInvalidHandleValue);
  EXPECT_EQ(PluginEvents(), Events{"noentry:term"});
  EXPECT_FALSE(IsOpen(PluginPath(kNoEntry)));
}

TEST_F(LibraryPSTest, LibraryLoadClosesALibraryWhoseInitRefuses) {
  EXPECT_EQ(TLibrary::LibraryLoad(Spec(PluginPath(kRefuse))), kInvalidHandleValue);
  EXPECT_EQ(PluginEvents(), (Events{InitEvent("refuse", PluginPath(kRefuse)), "refuse:term"}));
  EXPECT_FALSE(IsOpen(PluginPath(kRefuse)));
}

TEST_F(LibraryPSTest, LibraryFreeRunsTermOnceThenCloses) {
  void* handle = TLibrary::LibraryLoad(Spec(PluginPath(kAccept)));
  ASSERT_NE(handle, kInvalidHandleValue);
  EXPECT_TRUE(TLibrary::LibraryFree(handle));
  EXPECT_EQ(PluginEvents(), (Events{InitEvent("accept", PluginPath(kAccept)), "accept:term"}));
  EXPECT_FALSE(IsOpen(PluginPath(kAccept)));
}

TEST_F(LibraryPSTest, LibraryFreeTakesNoTermFromTheLibrarysDependencies) {
  ScopedCountingLibrary scope;
  ASSERT_TRUE(scope.started());
  ASSERT_TRUE(SharedLibInit(TBstr("marker")));
  const long live = Stats().live;
  void* handle = TLibrary::LibraryLoad(Spec(PluginPath(kPlain)));
  ASSERT_NE(handle, kInvalidHandleValue);
  // The loader's lookup through the plugin finds the runtime's term (except
  // on Windows, where a lookup sees the library's own exports only)...
  EXPECT_EQ(reinterpret_cast<void*>(TLibrary::LibraryGetProcAddress(handle, TBstr("SharedLibTerm"))),
            kWindows ? nullptr : reinterpret_cast<void*>(&SharedLibTerm));
  // ...which closing the plugin must not run: the marker stays allocated.
  EXPECT_TRUE(TLibrary::LibraryFree(handle));
  EXPECT_EQ(Stats().live, live);
  EXPECT_EQ(std::string(OvraGetModuleFileSpec().GetMultibyteString()), "marker");
  SharedLibTerm();
}

TEST_F(LibraryPSTest, LibraryFreeOfTheInvalidHandleFailsAndRunsNoTerm) {
  ScopedCountingLibrary scope;
  ASSERT_TRUE(scope.started());
  ASSERT_TRUE(SharedLibInit(TBstr("marker")));
  const long live = Stats().live;
  EXPECT_FALSE(TLibrary::LibraryFree(kInvalidHandleValue));
  EXPECT_EQ(Stats().live, live);
  SharedLibTerm();
}

// --- lookups ---------------------------------------------------------------------

TEST_F(LibraryPSTest, LibraryGetProcAddressIsTheLoadersLookup) {
  void* handle = TLibrary::LibraryLoad(Spec(PluginPath(kPlain)));
  ASSERT_NE(handle, kInvalidHandleValue);
  EXPECT_EQ(TLibrary::LibraryGetProcAddress(handle, TBstr("PluginPlainAnswer")),
            reinterpret_cast<OvraProc>(LoaderSymbol(handle, "PluginPlainAnswer")));
  // The libraries it depends on are searched too, except on Windows, whose
  // loader looks in the library's own exports only.
  EXPECT_EQ(reinterpret_cast<void*>(TLibrary::LibraryGetProcAddress(handle, TBstr("OvraStringLen"))),
            kWindows ? nullptr : reinterpret_cast<void*>(&OvraStringLen));
  EXPECT_EQ(TLibrary::LibraryGetProcAddress(handle, TBstr("PluginPlainHidden")), nullptr);
  EXPECT_TRUE(TLibrary::LibraryFree(handle));
}

TEST_F(LibraryPSTest, LibraryGetProcAddressRefusesBadHandlesAndNames) {
  // The invalid handle never means "every loaded library".
  EXPECT_EQ(TLibrary::LibraryGetProcAddress(kInvalidHandleValue, TBstr("OvraInitialize")),
            nullptr);
  void* handle = TLibrary::LibraryLoad(Spec(PluginPath(kPlain)));
  ASSERT_NE(handle, kInvalidHandleValue);
  EXPECT_EQ(TLibrary::LibraryGetProcAddress(handle, TBstr()), nullptr);
  // Narrowed, this name would be cut at the zero and find PluginPlainAnswer.
  const std::string cut = std::string("PluginPlainAnswer") + '\0' + "x";
  EXPECT_EQ(TLibrary::LibraryGetProcAddress(handle, TBstr(cut.data(), static_cast<int>(cut.size()))),
            nullptr);
  EXPECT_TRUE(TLibrary::LibraryFree(handle));
}

TEST_F(LibraryPSTest, LibraryLoadFreesWhatItAllocates) {
  ScopedCountingLibrary scope;
  ASSERT_TRUE(scope.started());
  const TBstr spec = Spec(PluginPath(kRefuse));
  // The loader is given the spec's single-byte copy, which the string makes
  // once and keeps: made here, it is not counted against the load.
  ASSERT_STRNE(spec.GetMultibyteString(), "");
  const long live = Stats().live;
  EXPECT_EQ(TLibrary::LibraryLoad(spec), kInvalidHandleValue);
  EXPECT_EQ(Stats().live, live);
  FailNthAllocation(1, true);
  EXPECT_EQ(TLibrary::LibraryLoad(spec), kInvalidHandleValue);
  StopFailing();
  EXPECT_EQ(Stats().live, live);
  // The path could not be made, so the library was never opened.
  EXPECT_EQ(PluginEvents().size(), 2u);
}

}  // namespace
