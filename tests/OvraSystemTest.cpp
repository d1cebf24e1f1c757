// Tests of OvraGetSystemInfo on the system's own record. Chosen names and
// release texts, and a system that cannot tell its name, are fed through the
// library's system-call table in tests/faults/OvraSystemPSFaultTest.cpp.
#include "OvraSystem.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>
#if !defined(_WIN32)
#include <sys/utsname.h>
#endif

#include <string>

#include "AllocSweep.h"
#include "TestBstr.h"
#include "TestPlatform.h"
#include "TestWide.h"

namespace {

using ovra_test::SweepBothModes;
using ovra_test::SweepRun;
using ovra_test::Text;
using ovra_test::ToU16;
using ovra_test::W;

std::u16string Widen(const char* text) {
  std::u16string out;
  for (; *text; ++text) out.push_back(static_cast<unsigned char>(*text));
  return out;
}

#if defined(_WIN32)
TEST(SystemInfoTest, ReportsTheSystemsNameAndReleaseNumbers) {
  // Windows has no release text: the library reports the name "Windows" and
  // the kernel's version record, major.minor.build.
  unsigned long major = 0, minor = 0, build = 0;
  ASSERT_TRUE(ovra_test::win::SystemVersion(major, minor, build));
  SSystemInfo info;
  info.revision = 12345;
  EXPECT_EQ(OvraGetSystemInfo(&info), 0u);
  EXPECT_EQ(ToU16(info.osName.GetString()), Widen("Windows"));
  EXPECT_EQ(info.majorVersion, static_cast<int>(major));
  EXPECT_EQ(info.minorVersion, static_cast<int>(minor));
  EXPECT_EQ(info.revision, static_cast<unsigned int>(build));
  EXPECT_EQ(info.reserved, 0u);
}
#else
TEST(SystemInfoTest, ReportsTheSystemsNameAndReleaseNumbers) {
  utsname names;
  ASSERT_EQ(uname(&names), 0);
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
#endif

TEST(SystemInfoTest, NullRecordIsIgnored) {
  EXPECT_EQ(OvraGetSystemInfo(nullptr), 0u);
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
