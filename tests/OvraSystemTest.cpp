// Tests of OvraGetSystemInfo. The program stands in for uname (the library
// calls it through the dynamic linker, so this definition is the one taken),
// to feed chosen names and release texts; unless a test asks otherwise it
// passes the system's own record through.
#include "OvraSystem.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>
#include <sys/syscall.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <string>

#include "TestAllocator.h"
#include "TestBstr.h"
#include "TestWide.h"

namespace {

struct FakeUname {
  bool active = false;
  bool fail = false;
  std::string sysname;
  std::string release;
  int calls = 0;
};

FakeUname& Fake() {
  static FakeUname fake;
  return fake;
}

// The system's own record, straight from the kernel.
bool RealUname(utsname* names) { return syscall(SYS_uname, names) == 0; }

}  // namespace

extern "C" __attribute__((visibility("default"))) int uname(utsname* names) noexcept {
  FakeUname& fake = Fake();
  ++fake.calls;
  if (!fake.active) return RealUname(names) ? 0 : -1;
  if (fake.fail) {
    errno = EFAULT;
    return -1;
  }
  memset(names, 0, sizeof *names);
  strncpy(names->sysname, fake.sysname.c_str(), sizeof names->sysname - 1);
  strncpy(names->release, fake.release.c_str(), sizeof names->release - 1);
  return 0;
}

namespace {

using ovra_test::SweepBothModes;
using ovra_test::SweepRun;
using ovra_test::Text;
using ovra_test::ToU16;
using ovra_test::W;

class SystemInfoTest : public ::testing::Test {
 protected:
  void SetUp() override { Fake() = FakeUname(); }
  void TearDown() override { Fake() = FakeUname(); }

  // Runs OvraGetSystemInfo on a record whose numbers hold markers, with the
  // system reporting "Linux" and release.
  SSystemInfo Run(const std::string& release) {
    Fake().active = true;
    Fake().sysname = "Linux";
    Fake().release = release;
    SSystemInfo info;
    info.majorVersion = -111;
    info.minorVersion = -222;
    info.revision = kUntouched;
    info.reserved = 0xDEADBEEF;
    const int calls = Fake().calls;
    EXPECT_EQ(OvraGetSystemInfo(&info), 0u);
    EXPECT_EQ(Fake().calls, calls + 1) << "uname was not reached";
    EXPECT_EQ(info.reserved, 0u);
    return info;
  }

  static constexpr unsigned int kUntouched = 0x12345678;
};

std::u16string Widen(const char* text) {
  std::u16string out;
  for (; *text; ++text) out.push_back(static_cast<unsigned char>(*text));
  return out;
}

TEST_F(SystemInfoTest, ReportsTheSystemsNameAndReleaseNumbers) {
  utsname names;
  ASSERT_TRUE(RealUname(&names));
  SSystemInfo info;
  info.revision = 0;
  EXPECT_EQ(OvraGetSystemInfo(&info), 0u);
  EXPECT_EQ(ToU16(info.osName.GetString()), Widen(names.sysname));
  // The release read independently: number, ".", number, ".", number.
  char* end = nullptr;
  const long major = strtol(names.release, &end, 10);
  EXPECT_EQ(info.majorVersion, major);
  const char* dot = strchr(names.release, '.');
  ASSERT_NE(dot, nullptr) << "release " << names.release;
  EXPECT_EQ(info.minorVersion, strtol(dot + 1, nullptr, 10));
  const char* second = strchr(dot + 1, '.');
  EXPECT_EQ(info.revision, second ? strtoul(second + 1, nullptr, 10) : 0u);
  EXPECT_EQ(info.reserved, 0u);
}

TEST_F(SystemInfoTest, ReleaseWithOneDotSetsRevisionToZero) {
  const SSystemInfo info = Run("5.7");
  EXPECT_EQ(info.majorVersion, 5);
  EXPECT_EQ(info.minorVersion, 7);
  EXPECT_EQ(info.revision, 0u);
  EXPECT_EQ(ToU16(info.osName.GetString()), u"Linux");
}

TEST_F(SystemInfoTest, ReleaseWithTwoDotsGivesThreeNumbers) {
  SSystemInfo info = Run("6.1.0-13-amd64");
  EXPECT_EQ(info.majorVersion, 6);
  EXPECT_EQ(info.minorVersion, 1);
  EXPECT_EQ(info.revision, 0u);
  info = Run("2.6.32.71");
  EXPECT_EQ(info.majorVersion, 2);
  EXPECT_EQ(info.minorVersion, 6);
  EXPECT_EQ(info.revision, 32u);
  info = Run("10.20.30");
  EXPECT_EQ(info.majorVersion, 10);
  EXPECT_EQ(info.minorVersion, 20);
  EXPECT_EQ(info.revision, 30u);
}

TEST_F(SystemInfoTest, ReleaseWithoutDotLeavesRevisionAsTheCallerHadIt) {
  SSystemInfo info = Run("6");
  EXPECT_EQ(info.majorVersion, 6);
  EXPECT_EQ(info.minorVersion, 0);
  EXPECT_EQ(info.revision, kUntouched);
  info = Run("");
  EXPECT_EQ(info.majorVersion, 0);
  EXPECT_EQ(info.minorVersion, 0);
  EXPECT_EQ(info.revision, kUntouched);
  info = Run("7-custom");
  EXPECT_EQ(info.majorVersion, 7);
  EXPECT_EQ(info.minorVersion, 0);
  EXPECT_EQ(info.revision, kUntouched);
}

TEST_F(SystemInfoTest, NumbersFollowAtoiRules) {
  // Leading white space and a sign are read, anything else ends a number.
  SSystemInfo info = Run(" 7.\t8.+9x");
  EXPECT_EQ(info.majorVersion, 7);
  EXPECT_EQ(info.minorVersion, 8);
  EXPECT_EQ(info.revision, 9u);
  info = Run("-3.-4.-5");
  EXPECT_EQ(info.majorVersion, -3);
  EXPECT_EQ(info.minorVersion, -4);
  EXPECT_EQ(info.revision, 0xFFFFFFFBu);
  info = Run("x.y.z");
  EXPECT_EQ(info.majorVersion, 0);
  EXPECT_EQ(info.minorVersion, 0);
  EXPECT_EQ(info.revision, 0u);
  info = Run("..");
  EXPECT_EQ(info.majorVersion, 0);
  EXPECT_EQ(info.minorVersion, 0);
  EXPECT_EQ(info.revision, 0u);
}

TEST_F(SystemInfoTest, DotsAreFoundAnywhereInTheRelease) {
  // The first "." may come after other text; the number behind it is read.
  const SSystemInfo info = Run("5-rc1.2");
  EXPECT_EQ(info.majorVersion, 5);
  EXPECT_EQ(info.minorVersion, 2);
  EXPECT_EQ(info.revision, 0u);  // a "." was there, but no second one
}

TEST_F(SystemInfoTest, OversizedNumbersAreClampedAlikeOnEveryPlatform) {
  SSystemInfo info = Run("99999999999.2147483648.99999999999");
  EXPECT_EQ(info.majorVersion, INT_MAX);
  EXPECT_EQ(info.minorVersion, INT_MAX);
  EXPECT_EQ(info.revision, static_cast<unsigned int>(INT_MAX));
  info = Run("-99999999999.-2147483648");
  EXPECT_EQ(info.majorVersion, INT_MIN);
  EXPECT_EQ(info.minorVersion, INT_MIN);
}

TEST_F(SystemInfoTest, NameIsWidenedByteForByteAndReplacesTheOldOne) {
  Fake().active = true;
  Fake().sysname = std::string(64, 'n');
  Fake().release = "1.2.3";
  SSystemInfo info;
  info.osName = "previous";
  EXPECT_EQ(OvraGetSystemInfo(&info), 0u);
  EXPECT_EQ(info.osName.GetLength(), 64);
  Fake().sysname = "Sys\xE9me";
  EXPECT_EQ(OvraGetSystemInfo(&info), 0u);
  EXPECT_EQ(ToU16(info.osName.GetString()), u"Sys\u00E9me");
}

TEST_F(SystemInfoTest, NullRecordIsIgnored) {
  EXPECT_EQ(OvraGetSystemInfo(nullptr), 0u);
}

TEST_F(SystemInfoTest, FailingSystemGivesAnEmptyNameAndZerosAndStillReturnsZero) {
  Fake().active = true;
  Fake().fail = true;
  SSystemInfo info;
  info.osName = "previous";
  info.majorVersion = 5;
  info.minorVersion = 6;
  info.revision = kUntouched;
  info.reserved = 1;
  EXPECT_EQ(OvraGetSystemInfo(&info), 0u);
  EXPECT_TRUE(info.osName.IsEmpty());
  EXPECT_EQ(info.majorVersion, 0);
  EXPECT_EQ(info.minorVersion, 0);
  EXPECT_EQ(info.revision, kUntouched);  // an empty release holds no "."
  EXPECT_EQ(info.reserved, 0u);
}

TEST_F(SystemInfoTest, NameIsEmptyWhenMemoryRunsOutAndNothingLeaks) {
  ovra_test::ScopedCountingLibrary scope;
  ASSERT_TRUE(scope.started());
  const long live = ovra_test::Stats().live;
  {
    Fake().active = true;
    Fake().sysname = "Linux";
    Fake().release = "5.7.1";
    SSystemInfo info;
    ovra_test::FailNthAllocation(1, true);
    EXPECT_EQ(OvraGetSystemInfo(&info), 0u);
    ovra_test::StopFailing();
    EXPECT_TRUE(info.osName.IsEmpty());
    EXPECT_EQ(info.majorVersion, 5);
    EXPECT_EQ(info.minorVersion, 7);
    EXPECT_EQ(info.revision, 1u);
    EXPECT_EQ(OvraGetSystemInfo(&info), 0u);
    EXPECT_EQ(ToU16(info.osName.GetString()), u"Linux");
  }
  EXPECT_EQ(ovra_test::Stats().live, live);
}

// --- Allocation failures ---------------------------------------------------
// Each operation runs with its 1st, 2nd, ... allocation failing, alone and
// with every later one (AllocSweep.h), until it goes through; every run must
// give the documented out-of-memory result and leak nothing. The N each sweep
// reaches is printed ("[ SWEEP    ]").

class AllocSweepSystem : public ovra_test::SweepTest {};

TEST_F(AllocSweepSystem, SystemInfoLeavesTheNameEmptyWhenItCannotBeStored) {
  SSystemInfo expected;
  expected.revision = 0;
  OvraGetSystemInfo(&expected);
  ASSERT_FALSE(expected.osName.IsEmpty());
  SweepBothModes("OvraGetSystemInfo", [&](SweepRun& run) {
    SSystemInfo info;
    info.osName = TBstr(W(u"previous name, longer than any system's"));
    info.revision = 0;
    run.Arm();
    EXPECT_EQ(OvraGetSystemInfo(&info), 0u);
    const bool failed = run.Disarm();
    EXPECT_EQ(Text(info.osName), failed ? u"" : Text(expected.osName));
    EXPECT_EQ(info.majorVersion, expected.majorVersion);
    EXPECT_EQ(info.minorVersion, expected.minorVersion);
    EXPECT_EQ(info.revision, expected.revision);
  });
}

}  // namespace
