// Tests of the free-running clocks. This executable defines gettimeofday
// itself: the library's call binds to it (the executable comes first in the
// symbol search), so each test can set the time of day the clocks read and
// check their 32-bit arithmetic exactly. Without a set time the definition
// reports the real clock.
#include "OvraTime.h"

#include <gtest/gtest.h>
#include <stdint.h>
#include <sys/time.h>
#include <time.h>

#include "TestPlatform.h"

#include <random>

namespace {

#if defined(_WIN32)
typedef long suseconds_t;
#endif

// The clocks read the time of day that this program defines: no test can
// apply on Windows, where a library's calls go to the function it imported
// whatever the program defines.
class ClockTest : public ::testing::Test {
 protected:
  void SetUp() override {
    OVRA_SKIP_ON_WINDOWS("sets the clock by defining gettimeofday in the program, which a "
                         "DLL's imports never reach");
  }
};

bool s_fakeClock = false;
int s_calls = 0;
timeval s_fakeNow;

// Sets the time of day the library reads until the end of the scope.
class ScopedFakeClock {
 public:
  ScopedFakeClock(time_t seconds, suseconds_t microseconds) { Set(seconds, microseconds); }
  ~ScopedFakeClock() { s_fakeClock = false; }
  void Set(time_t seconds, suseconds_t microseconds) {
    s_fakeNow.tv_sec = seconds;
    s_fakeNow.tv_usec = microseconds;
    s_fakeClock = true;
    s_calls = 0;
  }
};

// The references: the same formulas in 64-bit arithmetic, reduced modulo 2^32.
uint32_t ExpectedMilliseconds(uint64_t seconds, uint64_t microseconds) {
  return static_cast<uint32_t>((seconds * 1000u + microseconds / 1000u) & 0xFFFFFFFFu);
}

int64_t ExpectedMicroseconds64(uint64_t seconds, uint64_t microseconds) {
  const uint64_t low = (seconds * 1000000u + microseconds) & 0xFFFFFFFFu;
  return low >= 0x80000000u ? static_cast<int64_t>(low) - 0x100000000LL
                            : static_cast<int64_t>(low);
}

}  // namespace

#if !defined(_WIN32)
extern "C" int gettimeofday(struct timeval* __restrict tv, void* __restrict) noexcept {
  ++s_calls;
  if (s_fakeClock) {
    *tv = s_fakeNow;
    return 0;
  }
  timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  tv->tv_sec = now.tv_sec;
  tv->tv_usec = static_cast<suseconds_t>(now.tv_nsec / 1000);
  return 0;
}
#endif

namespace {

TEST_F(ClockTest, TheLibraryReadsTheTimeOfDayDefinedHere) {
  ScopedFakeClock clock(1, 0);
  OvraGetMilliseconds();
  // Without this the other tests here would prove nothing.
  EXPECT_EQ(s_calls, 1);
}

TEST_F(ClockTest, MillisecondsAt1000Seconds999999MicrosecondsAre1000999) {
  ScopedFakeClock clock(1000, 999999);
  EXPECT_EQ(OvraGetMilliseconds(), 1000999u);
}

TEST_F(ClockTest, MillisecondsDropTheMicrosecondsBelowOneMillisecond) {
  ScopedFakeClock clock(0, 999);
  EXPECT_EQ(OvraGetMilliseconds(), 0u);
  clock.Set(0, 1000);
  EXPECT_EQ(OvraGetMilliseconds(), 1u);
}

TEST_F(ClockTest, MillisecondsWrapAt32Bits) {
  // 4294967 s is 4294967000 ms; 296 ms more is the last value before the wrap.
  ScopedFakeClock clock(4294967, 295999);
  EXPECT_EQ(OvraGetMilliseconds(), 4294967295u);
  clock.Set(4294967, 296000);
  EXPECT_EQ(OvraGetMilliseconds(), 0u);
  clock.Set(4294968, 0);
  EXPECT_EQ(OvraGetMilliseconds(), 704u);
}

TEST_F(ClockTest, MillisecondsMatchTheReferenceForRandomTimes) {
  std::mt19937_64 random(20240611);
  ScopedFakeClock clock(0, 0);
  for (int i = 0; i < 10000; ++i) {
    // Seconds beyond 2^31 only where time_t can hold them.
    const uint64_t seconds = random() % 4000000000u;
    const uint64_t micro = random() % 1000000u;
    const time_t s = static_cast<time_t>(sizeof(time_t) >= 8 ? seconds : seconds & 0x7FFFFFFF);
    clock.Set(s, static_cast<suseconds_t>(micro));
    ASSERT_EQ(OvraGetMilliseconds(), ExpectedMilliseconds(static_cast<uint64_t>(s), micro))
        << s << " s " << micro << " us";
  }
}

TEST_F(ClockTest, Microseconds64IsSignExtendedFrom32Bits) {
  // 2147 s 483647 us is the largest positive 32-bit count.
  ScopedFakeClock clock(2147, 483647);
  EXPECT_EQ(OvraGetMicroseconds64(), 2147483647);
  EXPECT_EQ(OvraGetMicroseconds(), 2147483647u);
  // One microsecond later the 32-bit product turns negative.
  clock.Set(2147, 483648);
  EXPECT_EQ(OvraGetMicroseconds64(), -2147483647LL - 1);
  EXPECT_EQ(OvraGetMicroseconds(), 2147483648u);
  clock.Set(2148, 0);
  EXPECT_EQ(OvraGetMicroseconds64(), 2148000000LL - 4294967296LL);
  EXPECT_EQ(OvraGetMicroseconds(), 2148000000u);
}

TEST_F(ClockTest, MicrosecondsWrapEvery2To32Microseconds) {
  // 4294 s 967296 us is exactly 2^32 us: back to 0.
  ScopedFakeClock clock(4294, 967296);
  EXPECT_EQ(OvraGetMicroseconds64(), 0);
  EXPECT_EQ(OvraGetMicroseconds(), 0u);
  clock.Set(1000, 999999);
  EXPECT_EQ(OvraGetMicroseconds64(), 1000999999);
}

TEST_F(ClockTest, MicrosecondsMatchTheReferenceForRandomTimes) {
  std::mt19937_64 random(7);
  ScopedFakeClock clock(0, 0);
  for (int i = 0; i < 10000; ++i) {
    const uint64_t seconds = random() % 0x7FFFFFFFu;
    const uint64_t micro = random() % 1000000u;
    clock.Set(static_cast<time_t>(seconds), static_cast<suseconds_t>(micro));
    const int64_t expected = ExpectedMicroseconds64(seconds, micro);
    ASSERT_EQ(OvraGetMicroseconds64(), expected) << seconds << " s " << micro << " us";
    ASSERT_EQ(OvraGetMicroseconds(), static_cast<uint32_t>(expected));
  }
}

TEST_F(ClockTest, ClocksNeverExceed32BitsOnAnyPlatform) {
  ScopedFakeClock clock(2000000000, 999999);
  EXPECT_LE(OvraGetMilliseconds(), 0xFFFFFFFFul);
  EXPECT_LE(OvraGetMicroseconds(), 0xFFFFFFFFul);
  EXPECT_GE(OvraGetMicroseconds64(), INT32_MIN);
  EXPECT_LE(OvraGetMicroseconds64(), INT32_MAX);
}

TEST_F(ClockTest, RealClockReadingLiesBetweenTwoReadingsAroundIt) {
  // No fake: the reading must fall between two real readings taken around it
  // (compared as offsets from the first, so a wrap in between does no harm).
  timeval before;
  gettimeofday(&before, nullptr);
  const uint32_t ms = static_cast<uint32_t>(OvraGetMilliseconds());
  timeval after;
  gettimeofday(&after, nullptr);
  const uint32_t first = ExpectedMilliseconds(static_cast<uint64_t>(before.tv_sec),
                                              static_cast<uint64_t>(before.tv_usec));
  const uint32_t last = ExpectedMilliseconds(static_cast<uint64_t>(after.tv_sec),
                                             static_cast<uint64_t>(after.tv_usec));
  EXPECT_LE(static_cast<uint32_t>(ms - first), static_cast<uint32_t>(last - first));
}

}  // namespace
