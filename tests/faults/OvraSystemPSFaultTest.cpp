// OvraGetSystemInfo when the system cannot tell its name: still 0, an empty
// name and zero versions, the revision as the caller had it, and no leak.
#include <errno.h>
#include <gtest/gtest.h>

#include "OvraSysCallAccess.h"
#include "OvraSystem.h"
#include "TestAllocator.h"

using namespace ovra_test;

namespace {

int s_calls = 0;

int FailingUname(struct utsname*) {
  ++s_calls;
  errno = EFAULT;
  return -1;
}

TEST(SystemFaultTest, FailingUnameGivesAnEmptyNameAndZeroVersions) {
  ScopedCountingLibrary library;
  ASSERT_TRUE(library.started());
  {
    SSystemInfo info;
    info.osName = "stale";
    info.majorVersion = 9;
    info.minorVersion = 9;
    info.revision = 9;
    info.reserved = 9;
    {
      ScopedSysCall failing(&SSysCalls::uname, FailingUname);
      EXPECT_EQ(OvraGetSystemInfo(&info), 0u);
    }
    EXPECT_EQ(s_calls, 1);
    EXPECT_TRUE(info.osName.IsEmpty());
    EXPECT_EQ(info.majorVersion, 0);
    EXPECT_EQ(info.minorVersion, 0);
    EXPECT_EQ(info.revision, 9u) << "a release text without \".\" keeps the revision";
    EXPECT_EQ(info.reserved, 0u);

    // Restored, the real name comes back.
    EXPECT_EQ(OvraGetSystemInfo(&info), 0u);
    EXPECT_FALSE(info.osName.IsEmpty());
  }
  EXPECT_EQ(Stats().live.load(), 0);
}

TEST(SystemFaultTest, FailingUnameWithoutAStartedLibraryDoesNotCrash) {
  SSystemInfo info;
  info.revision = 5;
  ScopedSysCall failing(&SSysCalls::uname, FailingUname);
  EXPECT_EQ(OvraGetSystemInfo(&info), 0u);
  EXPECT_TRUE(info.osName.IsEmpty());
  EXPECT_EQ(info.majorVersion, 0);
  EXPECT_EQ(OvraGetSystemInfo(nullptr), 0u);
}

}  // namespace
