// Tests of the allocation entry points.
#include "OvraMem.h"

#include <gtest/gtest.h>
#include <string.h>

#include "TestAllocator.h"

using namespace ovra_test;

namespace {

TEST(MemTest, AllocatesBeforeStartUpThroughTheDefaults) {
  void* p = OvraMemAlloc(64);
  ASSERT_NE(p, nullptr);
  memset(p, 0xAB, 64);
  p = OvraMemRealloc(p, 4096);
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(static_cast<unsigned char*>(p)[63], 0xAB);
  OvraMemFree(p);
}

TEST(MemTest, FreeOfNullIsPassedToTheHook) {
  OvraMemFree(nullptr);  // the default free accepts null
  ScopedCountingLibrary lib;
  ASSERT_TRUE(lib.started());
  OvraMemFree(nullptr);
  EXPECT_EQ(Stats().frees, 0);  // the hook saw it and ignored it
}

TEST(MemTest, HookFailureIsReturnedAsNull) {
  ScopedCountingLibrary lib;
  ASSERT_TRUE(lib.started());
  const long live = Stats().live;  // what start-up itself allocated
  FailNthAllocation(1);
  EXPECT_EQ(OvraMemAlloc(10), nullptr);
  FailNthAllocation(1);
  EXPECT_EQ(OvraMemRealloc(nullptr, 10), nullptr);
  StopFailing();
  EXPECT_EQ(Stats().live, live);
}

TEST(MemTest, DebugVariantsBehaveExactlyLikeThePlainOnes) {
  ScopedCountingLibrary lib;
  ASSERT_TRUE(lib.started());
  // Start-up itself may allocate (the shared random generator): count from here.
  const long allocs = Stats().allocs, reallocs = Stats().reallocs, live = Stats().live;
  void* p = OvraMemDebugAlloc(12, __FILE__, __LINE__);
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(Stats().allocs, allocs + 1);
  p = OvraMemDebugRealloc(p, 100, nullptr, 0);
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(Stats().reallocs, reallocs + 1);
  OvraMemFree(p);
  EXPECT_EQ(Stats().live, live);
  FailNthAllocation(1);
  EXPECT_EQ(OvraMemDebugAlloc(12, __FILE__, __LINE__), nullptr);
}

TEST(MemTest, TotalSizeIsAlwaysZero) {
  EXPECT_EQ(OvraMemGetTotalSize(), 0u);
  void* p = OvraMemAlloc(1000);
  EXPECT_EQ(OvraMemGetTotalSize(), 0u);
  ScopedCountingLibrary lib;
  void* q = OvraMemAlloc(5000);
  EXPECT_EQ(OvraMemGetTotalSize(), 0u);
  OvraMemFree(q);
  OvraMemFree(p);
}

}  // namespace
