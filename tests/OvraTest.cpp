// Tests of the counted start-up and shutdown chain.
#include "Ovra.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <thread>
#include <vector>

#include "OvraMem.h"
#include "TestAllocator.h"

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
  void* p = OvraMemRealloc(nullptr, 10);
  EXPECT_EQ(Stats().reallocs, 1);
  OvraMemFree(p);
  EXPECT_EQ(Stats().live, 0);
  OvraUninitialize();
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
  OvraMemFree(p);  // reaches free(), not the application's hook
  EXPECT_EQ(Stats().frees, 0);
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

}  // namespace
