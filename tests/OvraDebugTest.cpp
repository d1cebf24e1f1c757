// Tests of the inert diagnostics entry points.
#include "OvraDebug.h"

#include <gtest/gtest.h>

namespace {

int s_procCalls = 0;
void CountingAssertProc(const char*, const char*, int) { ++s_procCalls; }
void CountingStringProc(const char*) { ++s_procCalls; }

TEST(DebugTest, FailingAssertReturnsNormallyAndCallsNoProcedure) {
  OvraSetAssertProc(CountingAssertProc);
  OvraSetDebugStringProc(CountingStringProc);
  OvraAssert(0, "1 == 2", __FILE__, __LINE__);
  OvraAssert(1, "1 == 1", __FILE__, __LINE__);
  OvraTrace("value %d\n", 42);
  OvraTraceEx(3, "value %s\n", "text");
  EXPECT_EQ(s_procCalls, 0);
  OvraSetAssertProc(nullptr);
  OvraSetDebugStringProc(nullptr);
}

TEST(DebugTest, TraceDoesNotReadItsArguments) {
  // A format asking for a string with no argument would crash if it were read.
  OvraTrace("%s %s %s");
  OvraTraceEx(0, nullptr);
  SUCCEED();
}

TEST(DebugTest, DumpMemDoesNotTouchTheMemory) {
  OvraDumpMem(nullptr, 1 << 20);
  OvraDumpMem(reinterpret_cast<const void*>(0x10), 100);
  SUCCEED();
}

TEST(DebugTest, IsValidAddressIsAlwaysTrue) {
  EXPECT_TRUE(OvraIsValidAddress(nullptr, 0, false));
  EXPECT_TRUE(OvraIsValidAddress(nullptr, 100, true));
  EXPECT_TRUE(OvraIsValidAddress(reinterpret_cast<const void*>(0x1), 4, true));
  int local = 0;
  EXPECT_TRUE(OvraIsValidAddress(&local, sizeof local, true));
}

TEST(DebugTest, GetDebugSettingReturnsTheDefaultUnchanged) {
  EXPECT_EQ(OvraGetDebugSetting("TraceLevel", 7), 7);
  EXPECT_EQ(OvraGetDebugSetting(nullptr, -3), -3);
  EXPECT_EQ(OvraGetDebugSetting("", 0), 0);
  EXPECT_EQ(OvraGetDebugSetting("x", 2147483647), 2147483647);
}

}  // namespace
