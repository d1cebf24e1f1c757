// OvraGetSystemInfo over stand-ins for uname in the system-call table: chosen
// names and release texts show how the release is read and the name widened;
// a failing call shows what the caller gets when the system cannot tell its
// name (still 0, an empty name and zero versions, the revision as the caller
// had it). Every stand-in counts its calls, and nothing may leak.
#include <errno.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <string.h>

#include <string>

#include "OvraSysCallAccess.h"
#include "OvraSystem.h"
#include "TestAllocator.h"
#include "TestWide.h"

using namespace ovra_test;

namespace {

int s_calls = 0;

int FailingUname(struct utsname*) {
  ++s_calls;
  errno = EFAULT;
  return -1;
}

// What ChosenUname reports.
std::string s_sysname;
std::string s_release;

// Reports s_sysname and s_release, cut to the record's fields as the system's
// would be, and nothing else.
int ChosenUname(struct utsname* names) {
  ++s_calls;
  memset(names, 0, sizeof *names);
  strncpy(names->sysname, s_sysname.c_str(), sizeof names->sysname - 1);
  strncpy(names->release, s_release.c_str(), sizeof names->release - 1);
  return 0;
}

// The three numbers read from the release, each checked on its own. A failure
// names s_release, the release text the test gave the system, which tells
// the calls of one test apart.
void ExpectVersion(const SSystemInfo& info, int major, int minor, unsigned int revision) {
  EXPECT_EQ(info.majorVersion, major) << "major version of release \"" << s_release << "\"";
  EXPECT_EQ(info.minorVersion, minor) << "minor version of release \"" << s_release << "\"";
  EXPECT_EQ(info.revision, revision) << "revision of release \"" << s_release << "\"";
}

TEST(SystemFaultTest, FailingUnameGivesAnEmptyNameAndZeroVersions) {
  s_calls = 0;
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
  s_calls = 0;
  SSystemInfo info;
  info.revision = 5;
  ScopedSysCall failing(&SSysCalls::uname, FailingUname);
  EXPECT_EQ(OvraGetSystemInfo(&info), 0u);
  EXPECT_TRUE(info.osName.IsEmpty());
  EXPECT_EQ(info.majorVersion, 0);
  EXPECT_EQ(OvraGetSystemInfo(nullptr), 0u);
  EXPECT_EQ(s_calls, 1) << "a null record asks the system nothing";
}

// --- chosen names and releases ----------------------------------------------

class SystemInfoTest : public ::testing::Test {
 protected:
  void SetUp() override {
    s_calls = 0;
    s_sysname = "Linux";
    s_release.clear();
  }

  // Runs OvraGetSystemInfo on a record whose numbers hold markers, with the
  // system reporting "Linux" and release.
  SSystemInfo Run(const std::string& release) {
    s_sysname = "Linux";
    s_release = release;
    SSystemInfo info;
    info.majorVersion = -111;
    info.minorVersion = -222;
    info.revision = kUntouched;
    info.reserved = 0xDEADBEEF;
    const int calls = s_calls;
    EXPECT_EQ(OvraGetSystemInfo(&info), 0u);
    EXPECT_EQ(s_calls, calls + 1) << "uname was not reached";
    EXPECT_EQ(info.reserved, 0u);
    return info;
  }

  static constexpr unsigned int kUntouched = 0x12345678;
  ScopedSysCall<int (*)(struct utsname*)> m_uname{&SSysCalls::uname, ChosenUname};
};

TEST_F(SystemInfoTest, ReleaseWithOneDotSetsRevisionToZero) {
  const SSystemInfo info = Run("5.7");
  ExpectVersion(info, 5, 7, 0u);
  EXPECT_EQ(ToU16(info.osName.GetString()), u"Linux");
}

TEST_F(SystemInfoTest, ReleaseWithTwoDotsGivesThreeNumbers) {
  SSystemInfo info = Run("6.1.0-13-amd64");
  ExpectVersion(info, 6, 1, 0u);
  info = Run("2.6.32.71");
  ExpectVersion(info, 2, 6, 32u);
  info = Run("10.20.30");
  ExpectVersion(info, 10, 20, 30u);
}

TEST_F(SystemInfoTest, ReleaseWithoutDotLeavesRevisionAsTheCallerHadIt) {
  SSystemInfo info = Run("6");
  ExpectVersion(info, 6, 0, kUntouched);
  info = Run("");
  ExpectVersion(info, 0, 0, kUntouched);
  info = Run("7-custom");
  ExpectVersion(info, 7, 0, kUntouched);
}

TEST_F(SystemInfoTest, NumbersFollowAtoiRules) {
  // Leading white space and a sign are read, anything else ends a number.
  SSystemInfo info = Run(" 7.\t8.+9x");
  ExpectVersion(info, 7, 8, 9u);
  info = Run("-3.-4.-5");
  ExpectVersion(info, -3, -4, 0xFFFFFFFBu);
  info = Run("x.y.z");
  ExpectVersion(info, 0, 0, 0u);
  info = Run("..");
  ExpectVersion(info, 0, 0, 0u);
}

TEST_F(SystemInfoTest, DotsAreFoundAnywhereInTheRelease) {
  // The first "." may come after other text; the number behind it is read.
  const SSystemInfo info = Run("5-rc1.2");
  ExpectVersion(info, 5, 2, 0u);  // a "." was there, but no second one
}

TEST_F(SystemInfoTest, OversizedNumbersAreClampedAlikeOnEveryPlatform) {
  SSystemInfo info = Run("99999999999.2147483648.99999999999");
  ExpectVersion(info, INT_MAX, INT_MAX, static_cast<unsigned int>(INT_MAX));
  info = Run("-99999999999.-2147483648");
  EXPECT_EQ(info.majorVersion, INT_MIN);
  EXPECT_EQ(info.minorVersion, INT_MIN);
}

TEST_F(SystemInfoTest, NameIsWidenedByteForByteAndReplacesTheOldOne) {
  s_sysname = std::string(64, 'n');
  s_release = "1.2.3";
  SSystemInfo info;
  info.osName = "previous";
  EXPECT_EQ(OvraGetSystemInfo(&info), 0u);
  EXPECT_EQ(info.osName.GetLength(), 64);
  s_sysname = "Sys\xE9me";
  EXPECT_EQ(OvraGetSystemInfo(&info), 0u);
  EXPECT_EQ(ToU16(info.osName.GetString()), u"Sys\u00E9me");
  EXPECT_EQ(s_calls, 2);
}

TEST_F(SystemInfoTest, FailingSystemGivesAnEmptyNameAndZerosAndStillReturnsZero) {
  ScopedSysCall failing(&SSysCalls::uname, FailingUname);
  SSystemInfo info;
  info.osName = "previous";
  info.majorVersion = 5;
  info.minorVersion = 6;
  info.revision = kUntouched;
  info.reserved = 1;
  EXPECT_EQ(OvraGetSystemInfo(&info), 0u);
  EXPECT_EQ(s_calls, 1);
  EXPECT_TRUE(info.osName.IsEmpty());
  ExpectVersion(info, 0, 0, kUntouched);  // an empty release holds no "."
  EXPECT_EQ(info.reserved, 0u);
}

TEST_F(SystemInfoTest, NameIsEmptyWhenMemoryRunsOutAndNothingLeaks) {
  ScopedCountingLibrary scope;
  ASSERT_TRUE(scope.started());
  const long live = Stats().live;
  {
    s_sysname = "Linux";
    s_release = "5.7.1";
    SSystemInfo info;
    FailNthAllocation(1, true);
    EXPECT_EQ(OvraGetSystemInfo(&info), 0u);
    StopFailing();
    EXPECT_TRUE(info.osName.IsEmpty());
    ExpectVersion(info, 5, 7, 1u);
    EXPECT_EQ(OvraGetSystemInfo(&info), 0u);
    EXPECT_EQ(ToU16(info.osName.GetString()), u"Linux");
    EXPECT_EQ(s_calls, 2);
  }
  EXPECT_EQ(Stats().live, live);
}

}  // namespace
