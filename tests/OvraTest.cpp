// Tests of the counted start-up and shutdown chain.
#include "Ovra.h"

#if !defined(_WIN32)
#include <dlfcn.h>
#endif
#include <gtest/gtest.h>
#include <stdlib.h>

#include <string>

#include <thread>
#include <vector>

#include "TestPlatform.h"
#include "AllocSweep.h"
#include "OvraBstr.h"
#include "OvraMem.h"
#include "OvraMessage.h"
#include "OvraRand.h"
#include "OvraThread.h"
#include "TestAllocator.h"
#include "TestWide.h"

using namespace ovra_test;

namespace {

// Ends every start-up a test left behind, so that tests stay independent.
void ShutDownCompletely() {
  for (int i = 0; i < 1000; ++i) OvraUninitialize();
}

class LifecycleTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ShutDownCompletely();
    Stats().Reset();
  }
  void TearDown() override { ShutDownCompletely(); }
};

// True when OvraMemAlloc currently reaches the counting allocator.
bool CountingAllocatorActive() {
  const long before = Stats().allocs;
  void* p = OvraMemAlloc(8);
  const bool active = Stats().allocs != before;
  OvraMemFree(p);
  return active;
}

TEST_F(LifecycleTest, InitializeWithNullSucceedsAndKeepsDefaultAllocator) {
  ASSERT_TRUE(OvraInitialize(nullptr));
  EXPECT_FALSE(CountingAllocatorActive());
  // Memory from the library is malloc memory: free() accepts it.
  void* p = OvraMemAlloc(16);
  ASSERT_NE(p, nullptr);
  free(p);
  OvraUninitialize();
}

TEST_F(LifecycleTest, FirstInitializeInstallsTheAllocator) {
  SAllocator a = CountingAllocator();
  ASSERT_TRUE(OvraInitialize(&a));
  EXPECT_TRUE(CountingAllocatorActive());
  // Start-up itself may allocate (the shared random generator): count from here.
  const long reallocs = Stats().reallocs, live = Stats().live;
  void* p = OvraMemRealloc(nullptr, 10);
  EXPECT_EQ(Stats().reallocs, reallocs + 1);
  OvraMemFree(p);
  EXPECT_EQ(Stats().live, live);
  OvraUninitialize();
  EXPECT_EQ(Stats().live, 0);  // shutdown released what start-up allocated
}

TEST_F(LifecycleTest, PartialAllocatorRecordIsIgnoredAsAWhole) {
  SAllocator noFree = {CountingAlloc, CountingRealloc, nullptr, nullptr, nullptr};
  ASSERT_TRUE(OvraInitialize(&noFree));
  EXPECT_FALSE(CountingAllocatorActive());
  OvraUninitialize();

  SAllocator noAlloc = {nullptr, CountingRealloc, CountingFree, nullptr, nullptr};
  ASSERT_TRUE(OvraInitialize(&noAlloc));
  void* p = OvraMemRealloc(nullptr, 4);
  EXPECT_EQ(Stats().reallocs, 0);  // not even the realloc hook is taken
  OvraMemFree(p);
  EXPECT_EQ(Stats().frees, 0);
  OvraUninitialize();

  SAllocator noRealloc = {CountingAlloc, nullptr, CountingFree, nullptr, nullptr};
  ASSERT_TRUE(OvraInitialize(&noRealloc));
  EXPECT_FALSE(CountingAllocatorActive());
  OvraUninitialize();
}

TEST_F(LifecycleTest, ReservedFieldsAreNotRequired) {
  SAllocator a = CountingAllocator();
  a.pfnReserved1 = reinterpret_cast<void*>(0x1);  // never read
  a.pfnReserved2 = reinterpret_cast<void*>(0x2);
  ASSERT_TRUE(OvraInitialize(&a));
  EXPECT_TRUE(CountingAllocatorActive());
  OvraUninitialize();
}

TEST_F(LifecycleTest, NestedInitializeKeepsTheFirstAllocator) {
  ASSERT_TRUE(OvraInitialize(nullptr));
  SAllocator a = CountingAllocator();
  ASSERT_TRUE(OvraInitialize(&a));  // nested: allocator ignored
  EXPECT_FALSE(CountingAllocatorActive());
  OvraUninitialize();
  OvraUninitialize();

  // And the other way round: the first allocator survives a nested null.
  ASSERT_TRUE(OvraInitialize(&a));
  ASSERT_TRUE(OvraInitialize(nullptr));
  EXPECT_TRUE(CountingAllocatorActive());
  OvraUninitialize();
  EXPECT_TRUE(CountingAllocatorActive());  // one user remains
  OvraUninitialize();
  EXPECT_FALSE(CountingAllocatorActive());
}

TEST_F(LifecycleTest, LastUninitializeRestoresTheDefaultAllocator) {
  SAllocator a = CountingAllocator();
  ASSERT_TRUE(OvraInitialize(&a));
  OvraUninitialize();
  EXPECT_FALSE(CountingAllocatorActive());
}

TEST_F(LifecycleTest, MemoryFreedAfterLastUninitializeGoesToDefaultFree) {
  SAllocator a = CountingAllocator();
  ASSERT_TRUE(OvraInitialize(&a));
  void* p = OvraMemAlloc(32);
  ASSERT_NE(p, nullptr);
  OvraUninitialize();
  const long frees = Stats().frees;  // shutdown's own frees used the hook
  OvraMemFree(p);  // reaches free(), not the application's hook
  EXPECT_EQ(Stats().frees, frees);
}

TEST_F(LifecycleTest, UnbalancedUninitializeIsHarmless) {
  OvraUninitialize();
  OvraUninitialize();
  // The count did not go below zero: the next start-up is a first one again.
  SAllocator a = CountingAllocator();
  ASSERT_TRUE(OvraInitialize(&a));
  EXPECT_TRUE(CountingAllocatorActive());
  OvraUninitialize();
  EXPECT_FALSE(CountingAllocatorActive());
}

TEST_F(LifecycleTest, RestartAfterShutdownInstallsANewAllocator) {
  ASSERT_TRUE(OvraInitialize(nullptr));
  OvraUninitialize();
  SAllocator a = CountingAllocator();
  ASSERT_TRUE(OvraInitialize(&a));
  EXPECT_TRUE(CountingAllocatorActive());
  OvraUninitialize();
}

TEST_F(LifecycleTest, ThreadsBracketingTheirLifeDoNotLoseCountUpdates) {
  SAllocator a = CountingAllocator();
  ASSERT_TRUE(OvraInitialize(&a));
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([] {
      for (int i = 0; i < 2000; ++i) {
        if (OvraInitialize(nullptr)) OvraUninitialize();
      }
    });
  }
  for (auto& t : threads) t.join();
  // Exactly the first start-up is left: one more shutdown ends the library.
  EXPECT_TRUE(CountingAllocatorActive());
  OvraUninitialize();
  EXPECT_FALSE(CountingAllocatorActive());
}

// ---------------------------------------------------------------------------
// Module identity and the library's entry points
// ---------------------------------------------------------------------------

const unsigned short* W(const char16_t* s) { return reinterpret_cast<const unsigned short*>(s); }

std::u16string Text(const TBstr& s) { return ToU16(s.GetString(), s.GetLength()); }

// Read while the test program starts, before any test can call SharedLibInit.
const bool s_fileSpecEmptyAtLoad = OvraGetModuleFileSpec().IsEmpty();

// An allocator that hands out blocks of a static arena, so that the copy a
// second SharedLibInit leaves allocated can be counted without the leak
// checker treating it as an error of the test program.
struct Arena {
  alignas(16) unsigned char bytes[1 << 16];
  size_t used = 0;
  long live = 0;
};
Arena s_arena;

void* ArenaAlloc(size_t size) {
  const size_t rounded = (size + 15) & ~static_cast<size_t>(15);
  if (s_arena.used + rounded > sizeof s_arena.bytes) return nullptr;
  void* p = s_arena.bytes + s_arena.used;
  s_arena.used += rounded;
  ++s_arena.live;
  return p;
}
void* ArenaRealloc(void*, size_t) { return nullptr; }
void ArenaFree(void* p) {
  if (p) --s_arena.live;
}

TEST_F(LifecycleTest, ModuleFileSpecIsEmptyBeforeSharedLibInit) {
  EXPECT_TRUE(s_fileSpecEmptyAtLoad);
}

TEST_F(LifecycleTest, ModuleFileSpecIsThePathGivenToSharedLibInit) {
  const TBstr path(W(u"/opt/app/lib/libovra.so.1"));
  ASSERT_TRUE(SharedLibInit(path));
  EXPECT_EQ(Text(OvraGetModuleFileSpec()), u"/opt/app/lib/libovra.so.1");
  // A copy is kept: the caller's string may change or go.
  {
    TBstr temporary(W(u"/tmp/x.so"));
    SharedLibTerm();
    ASSERT_TRUE(SharedLibInit(temporary));
    temporary.SetAt(0, u'#');
  }
  EXPECT_EQ(Text(OvraGetModuleFileSpec()), u"/tmp/x.so");
  SharedLibTerm();
}

TEST_F(LifecycleTest, SharedLibInitAcceptsAnyPathTheEmptyOneIncluded) {
  ASSERT_TRUE(SharedLibInit(TBstr()));
  EXPECT_TRUE(OvraGetModuleFileSpec().IsEmpty());
  SharedLibTerm();
  ASSERT_TRUE(SharedLibInit(TBstr(W(u"relative/\u00E9\u20AC.so"))));
  EXPECT_EQ(Text(OvraGetModuleFileSpec()), u"relative/\u00E9\u20AC.so");
  SharedLibTerm();
}

TEST_F(LifecycleTest, SharedLibInitDoesNotStartTheLibrary) {
  SAllocator a = CountingAllocator();
  ASSERT_TRUE(SharedLibInit(TBstr(W(u"/lib/x.so"))));
  SharedLibTerm();
  // Still not started: this is a first start-up, which installs the allocator.
  ASSERT_TRUE(OvraInitialize(&a));
  EXPECT_TRUE(CountingAllocatorActive());
  OvraUninitialize();
  EXPECT_FALSE(CountingAllocatorActive());
}

TEST_F(LifecycleTest, SharedLibTermReleasesTheStoredPath) {
  SAllocator a = CountingAllocator();
  ASSERT_TRUE(OvraInitialize(&a));
  const long live = Stats().live;
  {
    const TBstr path(W(u"/usr/lib/libovra.so.1"));
    ASSERT_TRUE(SharedLibInit(path));
  }
  EXPECT_EQ(Stats().live, live + 1);
  SharedLibTerm();
  EXPECT_EQ(Stats().live, live);
  OvraUninitialize();
}

TEST_F(LifecycleTest, SecondSharedLibInitReplacesThePathAndKeepsTheFirstCopyAllocated) {
  SAllocator arena = {ArenaAlloc, ArenaRealloc, ArenaFree, nullptr, nullptr};
  ASSERT_TRUE(OvraInitialize(&arena));
  const long live = s_arena.live;
  ASSERT_TRUE(SharedLibInit(TBstr(W(u"/first.so"))));
  ASSERT_TRUE(SharedLibInit(TBstr(W(u"/second.so"))));
  EXPECT_EQ(Text(OvraGetModuleFileSpec()), u"/second.so");
  EXPECT_EQ(s_arena.live, live + 2);
  SharedLibTerm();
  EXPECT_EQ(s_arena.live, live + 1);
  OvraUninitialize();
}

TEST_F(LifecycleTest, ModuleFileSpecFailureGivesAnEmptyString) {
  SAllocator a = CountingAllocator();
  ASSERT_TRUE(OvraInitialize(&a));
  ASSERT_TRUE(SharedLibInit(TBstr(W(u"/lib/libovra.so"))));
  FailNthAllocation(1);
  EXPECT_TRUE(OvraGetModuleFileSpec().IsEmpty());
  StopFailing();
  SharedLibTerm();
  // A failed copy in SharedLibInit leaves no path, and the load is still accepted.
  {
    const TBstr path(W(u"/lib/libovra.so"));
    FailNthAllocation(1);
    EXPECT_TRUE(SharedLibInit(path));
    StopFailing();
    EXPECT_TRUE(OvraGetModuleFileSpec().IsEmpty());
    SharedLibTerm();
  }
  OvraUninitialize();
  EXPECT_EQ(Stats().live, 0);
}

TEST_F(LifecycleTest, ModuleInstanceIsAlwaysNull) {
  EXPECT_EQ(OvraGetModuleInstance(), nullptr);
  ASSERT_TRUE(SharedLibInit(TBstr(W(u"/lib/x.so"))));
  EXPECT_EQ(OvraGetModuleInstance(), nullptr);
  ASSERT_TRUE(OvraInitialize(nullptr));
  EXPECT_EQ(OvraGetModuleInstance(), nullptr);
  OvraUninitialize();
  SharedLibTerm();
  EXPECT_EQ(OvraGetModuleInstance(), nullptr);
}

// The loader finds the entry points by their plain names in the library file.
TEST_F(LifecycleTest, EntryPointsAreFoundByTheirPlainNames) {
#if defined(_WIN32)
  void* handle = ovra_test::win::OpenModule(OVRA_LIBRARY_FILE);
  ASSERT_NE(handle, nullptr);
  auto lookup = [handle](const char* name) { return ovra_test::win::HandleSymbol(handle, name); };
#else
  void* handle = dlopen(OVRA_LIBRARY_FILE, RTLD_LAZY);
  ASSERT_NE(handle, nullptr) << dlerror();
  auto lookup = [handle](const char* name) { return dlsym(handle, name); };
#endif
  using InitFn = bool (*)(const TBstr&);
  using TermFn = void (*)();
  InitFn init = reinterpret_cast<InitFn>(lookup("SharedLibInit"));
  TermFn term = reinterpret_cast<TermFn>(lookup("SharedLibTerm"));
  ASSERT_NE(init, nullptr);
  ASSERT_NE(term, nullptr);
  EXPECT_NE(lookup("OvraGetModuleFileSpec"), nullptr);
  EXPECT_NE(lookup("OvraGetModuleInstance"), nullptr);
  EXPECT_TRUE(init(TBstr(OVRA_LIBRARY_FILE)));
  EXPECT_EQ(OvraGetModuleFileSpec().Compare(TBstr(OVRA_LIBRARY_FILE).GetString()), 0);
  term();
#if defined(_WIN32)
  ovra_test::win::CloseModule(handle);
#else
  dlclose(handle);
#endif
}

// --- Allocation failures ---------------------------------------------------
// Each operation runs with its 1st, 2nd, ... allocation failing, alone and
// with every later one (AllocSweep.h), until it goes through; every run must
// give the documented out-of-memory result and leak nothing. The N each sweep
// reaches is printed ("[ SWEEP    ]").

void* P(intptr_t v) { return reinterpret_cast<void*>(v); }

// Uses the started library's services that start-up prepares: the message
// queue, thread-local data and the shared generator. Messages left in the
// queue before are taken out first.
void UseTheStartedLibrary() {
  const unsigned int id = OvraRequestMessageId();
  EXPECT_TRUE(OvraPostMessage(id, P(1), P(2)));
  unsigned int got = 0;
  void* p1 = nullptr;
  void* p2 = nullptr;
  while (OvraGetMessage(&got, &p1, &p2) && got != id) {
  }
  EXPECT_EQ(got, id);
  EXPECT_EQ(p1, P(1));
  void* block = OvraTlsAddData(P(7), 16);
  EXPECT_NE(block, nullptr);
  EXPECT_EQ(OvraTlsGetData(P(7)), block);
  unsigned char random[4] = {0, 0, 0, 0};
  OvraGenerateRandom(random, 4);
  EXPECT_NE(random[0] | random[1] | random[2] | random[3], 0);
}

// Not under SweepTest: the library must not be started when the sweep begins.
TEST(AllocSweepStartUp, AFailedStartUpIsCompletedByALaterOneAndTheLastShutdownFreesAll) {
  Stats().Reset();
  SweepBothModes("OvraInitialize + OvraUninitialize", [](SweepRun& run) {
    SAllocator allocator = ovra_test::CountingAllocator();
    run.Arm();
    const bool started = OvraInitialize(&allocator);
    const bool failed = run.Disarm();
    EXPECT_EQ(started, !failed) << "n=" << run.n();
    if (!started) {
      // Not rolled back: the facilities whose hooks ran stay usable, and
      // what is made with them now is released by the last shutdown below.
      (void)OvraPostMessage(1, P(3), nullptr);
      (void)OvraTlsAddData(P(8), 24);
      // Still not counted as started: this shutdown does nothing.
      OvraUninitialize();
      // The next start-up goes through, keeping what the failed one made.
      ASSERT_TRUE(OvraInitialize(&allocator)) << "n=" << run.n();
    }
    UseTheStartedLibrary();
    OvraUninitialize();
  });
  EXPECT_EQ(Stats().live.load(), 0);
}

class AllocSweepModule : public SweepTest {};

TEST_F(AllocSweepModule, NestedStartUpAllocatesNothingAndThreadDataFollowsLazily) {
  SweepUntilSuccess("OvraInitialize (nested)", [](SweepRun& run) {
    run.Arm();
    EXPECT_TRUE(OvraInitialize(nullptr));
    EXPECT_FALSE(run.Disarm());
    UseTheStartedLibrary();
    OvraUninitialize();  // frees this thread's table and blocks
  }, FailMode::kOne, true);
}

TEST_F(AllocSweepModule, ModuleFileSpecIsEmptyWhenItsCopyFails) {
  SweepBothModes("SharedLibInit + OvraGetModuleFileSpec", [](SweepRun& run) {
    const TBstr path(W(u"/opt/ovra/lib/libovra.so"));
    run.Arm();
    EXPECT_TRUE(SharedLibInit(path));  // accepts the load whatever happens
    const TBstr spec = OvraGetModuleFileSpec();
    const bool failed = run.Disarm();
    const std::u16string stored = Text(OvraGetModuleFileSpec());
    EXPECT_TRUE(stored.empty() || stored == u"/opt/ovra/lib/libovra.so");
    if (failed) {
      // Either the stored copy or the returned one was lost.
      EXPECT_TRUE(spec.IsEmpty() || stored.empty()) << "n=" << run.n();
    } else {
      EXPECT_EQ(Text(spec), u"/opt/ovra/lib/libovra.so");
    }
    SharedLibTerm();
  });
}

}  // namespace
