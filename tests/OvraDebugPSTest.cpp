// Tests of the platform half of diagnostics.
#include <gtest/gtest.h>

#include "OvraDebug.h"

namespace {

TEST(DebugPSTest, DebugBreakRaisesNoTrap) {
  // A trap would end the test process with SIGTRAP.
  OvraDebugBreak();
  OvraDebugBreak();
  SUCCEED();
}

}  // namespace
