// OvraGetSystemInfo over stand-ins for the system's query in the system-call
// table (uname, or the version record on Windows): chosen names, releases and
// versions show how the release is read and the name widened; a failing call
// shows what the caller gets when the system cannot tell its name (still 0,
// an empty name and zero versions, the revision as the caller had it). Every
// stand-in counts its calls, and nothing may leak.
#include <errno.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <string.h>

#include <string>

#include "OvraSysCallAccess.h"
#include "OvraSystem.h"
#include "TestAllocator.h"
#include "TestPlatform.h"
#include "TestWide.h"

using namespace ovra_test;

namespace {

int s_calls = 0;

// What the chosen system reports: on POSIX systems its name and release text;
// on Windows, whose name the library gives itself, the three numbers of its
// version, which the library writes as "major.minor.build".
std::string s_sysname;
std::string s_release;
unsigned long s_major = 0;
unsigned long s_minor = 0;
unsigned long s_build = 0;

#if defined(_WIN32)
constexpr auto kQuery = &SSysCalls::GetVersion;
using Query = LONG(WINAPI*)(OSVERSIONINFOW*);

// The query reports its error as its result, the system's status for an
// unsuccessful call.
const SysFailure<kQuery> FailingQuery{s_calls, ResultOnly(), static_cast<LONG>(0xC0000001L)};

// Reports s_major, s_minor and s_build; the record must say how large it is,
// as the system requires.
LONG WINAPI ChosenQuery(OSVERSIONINFOW* version) {
  ++s_calls;
  if (version->dwOSVersionInfoSize != sizeof *version)
    return static_cast<LONG>(0xC000000DL);  // an invalid parameter
  version->dwMajorVersion = s_major;
  version->dwMinorVersion = s_minor;
  version->dwBuildNumber = s_build;
  version->dwPlatformId = VER_PLATFORM_WIN32_NT;
  return 0;
}

// What the POSIX release texts test, which Windows never hands the library.
constexpr const char* kNoReleaseText =
    "the Windows half writes the release text itself from the version's three numbers";
#else
constexpr auto kQuery = &SSysCalls::uname;
using Query = int (*)(struct utsname*);

const SysFailure<kQuery> FailingQuery{s_calls, Errno(EFAULT), -1};

// Reports s_sysname and s_release, cut to the record's fields as the system's
// would be, and nothing else.
int ChosenQuery(struct utsname* names) {
  ++s_calls;
  memset(names, 0, sizeof *names);
  strncpy(names->sysname, s_sysname.c_str(), sizeof names->sysname - 1);
  strncpy(names->release, s_release.c_str(), sizeof names->release - 1);
  return 0;
}
#endif

// The three numbers read from the release, each checked on its own. A failure
// names s_release, the release text the test gave the system (on Windows the
// version's numbers), which tells the calls of one test apart.
void ExpectVersion(const SSystemInfo& info, int major, int minor, unsigned int revision) {
  const std::string release = kWindows ? std::to_string(s_major) + "." + std::to_string(s_minor) +
                                             "." + std::to_string(s_build)
                                       : s_release;
  EXPECT_EQ(info.majorVersion, major) << "major version of release \"" << release << "\"";
  EXPECT_EQ(info.minorVersion, minor) << "minor version of release \"" << release << "\"";
  EXPECT_EQ(info.revision, revision) << "revision of release \"" << release << "\"";
}

TEST(SystemFaultTest, FailingQueryGivesAnEmptyNameAndZeroVersions) {
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
      ScopedSysCall failing(FailingQuery);
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

TEST(SystemFaultTest, FailingQueryWithoutAStartedLibraryDoesNotCrash) {
  s_calls = 0;
  SSystemInfo info;
  info.revision = 5;
  ScopedSysCall failing(FailingQuery);
  EXPECT_EQ(OvraGetSystemInfo(&info), 0u);
  EXPECT_TRUE(info.osName.IsEmpty());
  EXPECT_EQ(info.majorVersion, 0);
  EXPECT_EQ(OvraGetSystemInfo(nullptr), 0u);
  EXPECT_EQ(s_calls, 1) << "a null record asks the system nothing";
}

// --- chosen names, releases and versions ---------------------------------

class SystemInfoTest : public ::testing::Test {
 protected:
  void SetUp() override {
    s_calls = 0;
    s_sysname = "Linux";
    s_release.clear();
    s_major = s_minor = s_build = 0;
  }

#if defined(_WIN32)
  // Runs OvraGetSystemInfo on a record whose numbers hold markers, with the
  // system reporting version major.minor.build.
  SSystemInfo Run(unsigned long major, unsigned long minor, unsigned long build) {
    s_major = major;
    s_minor = minor;
    s_build = build;
    return Ask();
  }
#else
  // Runs OvraGetSystemInfo on a record whose numbers hold markers, with the
  // system reporting "Linux" and release.
  SSystemInfo Run(const std::string& release) {
    s_sysname = "Linux";
    s_release = release;
    return Ask();
  }
#endif

  SSystemInfo Ask() {
    SSystemInfo info;
    info.majorVersion = -111;
    info.minorVersion = -222;
    info.revision = kUntouched;
    info.reserved = 0xDEADBEEF;
    const int calls = s_calls;
    EXPECT_EQ(OvraGetSystemInfo(&info), 0u);
    EXPECT_EQ(s_calls, calls + 1) << "the system was not asked";
    EXPECT_EQ(info.reserved, 0u);
    return info;
  }

  static constexpr unsigned int kUntouched = 0x12345678;
  ScopedSysCall<Query> m_query{kQuery, ChosenQuery};
};

TEST_F(SystemInfoTest, ReleaseWithOneDotSetsRevisionToZero) {
  OVRA_SKIP_ON_WINDOWS(kNoReleaseText);
#if !defined(_WIN32)
  const SSystemInfo info = Run("5.7");
  ExpectVersion(info, 5, 7, 0u);
  EXPECT_EQ(ToU16(info.osName.GetString()), u"Linux");
#endif
}

TEST_F(SystemInfoTest, ReleaseWithTwoDotsGivesThreeNumbers) {
  OVRA_SKIP_ON_WINDOWS(kNoReleaseText);
#if !defined(_WIN32)
  SSystemInfo info = Run("6.1.0-13-amd64");
  ExpectVersion(info, 6, 1, 0u);
  info = Run("2.6.32.71");
  ExpectVersion(info, 2, 6, 32u);
  info = Run("10.20.30");
  ExpectVersion(info, 10, 20, 30u);
#endif
}

TEST_F(SystemInfoTest, ReleaseWithoutDotLeavesRevisionAsTheCallerHadIt) {
  OVRA_SKIP_ON_WINDOWS(kNoReleaseText);
#if !defined(_WIN32)
  SSystemInfo info = Run("6");
  ExpectVersion(info, 6, 0, kUntouched);
  info = Run("");
  ExpectVersion(info, 0, 0, kUntouched);
  info = Run("7-custom");
  ExpectVersion(info, 7, 0, kUntouched);
#endif
}

TEST_F(SystemInfoTest, NumbersFollowAtoiRules) {
  OVRA_SKIP_ON_WINDOWS(kNoReleaseText);
#if !defined(_WIN32)
  // Leading white space and a sign are read, anything else ends a number.
  SSystemInfo info = Run(" 7.\t8.+9x");
  ExpectVersion(info, 7, 8, 9u);
  info = Run("-3.-4.-5");
  ExpectVersion(info, -3, -4, 0xFFFFFFFBu);
  info = Run("x.y.z");
  ExpectVersion(info, 0, 0, 0u);
  info = Run("..");
  ExpectVersion(info, 0, 0, 0u);
#endif
}

TEST_F(SystemInfoTest, DotsAreFoundAnywhereInTheRelease) {
  OVRA_SKIP_ON_WINDOWS(kNoReleaseText);
#if !defined(_WIN32)
  // The first "." may come after other text; the number behind it is read.
  const SSystemInfo info = Run("5-rc1.2");
  ExpectVersion(info, 5, 2, 0u);  // a "." was there, but no second one
#endif
}

#if defined(_WIN32)
TEST_F(SystemInfoTest, VersionGivesMajorMinorAndTheBuildAsRevision) {
  SSystemInfo info = Run(10, 0, 19045);
  ExpectVersion(info, 10, 0, 19045u);
  info = Run(6, 1, 7601);
  ExpectVersion(info, 6, 1, 7601u);
  info = Run(0, 0, 0);
  ExpectVersion(info, 0, 0, 0u);
}
#endif

TEST_F(SystemInfoTest, OversizedNumbersAreClampedAlikeOnEveryPlatform) {
#if defined(_WIN32)
  // The version's numbers are unsigned 32-bit; beyond INT_MAX they clamp.
  SSystemInfo info = Run(0xFFFFFFFFul, 2147483648ul, 4000000000ul);
  ExpectVersion(info, INT_MAX, INT_MAX, static_cast<unsigned int>(INT_MAX));
  info = Run(2147483647ul, 2147483647ul, 2147483647ul);
  ExpectVersion(info, INT_MAX, INT_MAX, static_cast<unsigned int>(INT_MAX));
#else
  SSystemInfo info = Run("99999999999.2147483648.99999999999");
  ExpectVersion(info, INT_MAX, INT_MAX, static_cast<unsigned int>(INT_MAX));
  info = Run("-99999999999.-2147483648");
  EXPECT_EQ(info.majorVersion, INT_MIN);
  EXPECT_EQ(info.minorVersion, INT_MIN);
#endif
}

TEST_F(SystemInfoTest, NameReplacesTheOldOne) {
  SSystemInfo info;
  info.osName = "previous";
#if defined(_WIN32)
  // The library names the system itself, whatever its version.
  s_major = 10;
  EXPECT_EQ(OvraGetSystemInfo(&info), 0u);
  EXPECT_EQ(ToU16(info.osName.GetString()), u"Windows");
  s_major = 5;
  EXPECT_EQ(OvraGetSystemInfo(&info), 0u);
  EXPECT_EQ(ToU16(info.osName.GetString()), u"Windows");
#else
  // Widened byte for byte.
  s_sysname = std::string(64, 'n');
  s_release = "1.2.3";
  EXPECT_EQ(OvraGetSystemInfo(&info), 0u);
  EXPECT_EQ(info.osName.GetLength(), 64);
  s_sysname = "Sys\xE9me";
  EXPECT_EQ(OvraGetSystemInfo(&info), 0u);
  EXPECT_EQ(ToU16(info.osName.GetString()), u"Sys\u00E9me");
#endif
  EXPECT_EQ(s_calls, 2);
}

TEST_F(SystemInfoTest, FailingSystemGivesAnEmptyNameAndZerosAndStillReturnsZero) {
  ScopedSysCall failing(FailingQuery);
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
    s_major = 5;
    s_minor = 7;
    s_build = 1;
    const char16_t* const name = kWindows ? u"Windows" : u"Linux";
    SSystemInfo info;
    FailNthAllocation(1, true);
    EXPECT_EQ(OvraGetSystemInfo(&info), 0u);
    StopFailing();
    EXPECT_TRUE(info.osName.IsEmpty());
    ExpectVersion(info, 5, 7, 1u);
    EXPECT_EQ(OvraGetSystemInfo(&info), 0u);
    EXPECT_EQ(ToU16(info.osName.GetString()), name);
    EXPECT_EQ(s_calls, 2);
  }
  EXPECT_EQ(Stats().live, live);
}

}  // namespace
