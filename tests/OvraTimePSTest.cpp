// Tests of the free-running clocks. The test build of the library lets each
// test replace the clock the library reads (its system-call table's time of
// day) with one that reports a chosen time, so that the clocks' 32-bit
// arithmetic is checked exactly. Without a chosen time the stand-in reports
// the real clock.
#include "OvraTime.h"

#include <gtest/gtest.h>
#include <stdint.h>
#include <time.h>

#include <random>

#include "OvraSysCallAccess.h"

namespace {

using ovra_test::ScopedSysCall;

bool s_fakeClock = false;
int s_calls = 0;
uint64_t s_fakeSeconds = 0;
uint64_t s_fakeMicroseconds = 0;

#if defined(_WIN32)
// Microseconds between 1601-01-01 (the system's epoch) and 1970-01-01.
constexpr uint64_t kEpochDifferenceUs = 11644473600000000ULL;

void WINAPI FakeClock(FILETIME* now) {
  ++s_calls;
  if (!s_fakeClock) return OvraTestRealSysCalls()->GetSystemTimeAsFileTime(now);
  const uint64_t ticks = (s_fakeSeconds * 1000000u + s_fakeMicroseconds + kEpochDifferenceUs) * 10u;
  now->dwLowDateTime = static_cast<DWORD>(ticks);
  now->dwHighDateTime = static_cast<DWORD>(ticks >> 32);
}

// The real clock as seconds and microseconds since 1970.
void RealNow(uint64_t& seconds, uint64_t& microseconds) {
  FILETIME now;
  OvraTestRealSysCalls()->GetSystemTimeAsFileTime(&now);
  const uint64_t us =
      ((static_cast<uint64_t>(now.dwHighDateTime) << 32 | now.dwLowDateTime) / 10u) -
      kEpochDifferenceUs;
  seconds = us / 1000000u;
  microseconds = us % 1000000u;
}

class ClockTest : public ::testing::Test {
 protected:
  ScopedSysCall<decltype(SSysCalls::GetSystemTimeAsFileTime)> clock_{
      &SSysCalls::GetSystemTimeAsFileTime, FakeClock};
};
#else
int FakeClock(timeval* now) {
  ++s_calls;
  if (!s_fakeClock) return OvraTestRealSysCalls()->gettimeofday(now);
  now->tv_sec = static_cast<time_t>(s_fakeSeconds);
  now->tv_usec = static_cast<suseconds_t>(s_fakeMicroseconds);
  return 0;
}

// The real clock as seconds and microseconds since 1970.
void RealNow(uint64_t& seconds, uint64_t& microseconds) {
  timeval now;
  OvraTestRealSysCalls()->gettimeofday(&now);
  seconds = static_cast<uint64_t>(now.tv_sec);
  microseconds = static_cast<uint64_t>(now.tv_usec);
}

class ClockTest : public ::testing::Test {
 protected:
  ScopedSysCall<decltype(SSysCalls::gettimeofday)> clock_{&SSysCalls::gettimeofday, FakeClock};
};
#endif

// Sets the time of day the library reads until the end of the scope.
class ScopedFakeClock {
 public:
  ScopedFakeClock(uint64_t seconds, uint64_t microseconds) { Set(seconds, microseconds); }
  ~ScopedFakeClock() { s_fakeClock = false; }
  void Set(uint64_t seconds, uint64_t microseconds) {
    s_fakeSeconds = seconds;
    s_fakeMicroseconds = microseconds;
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

TEST_F(ClockTest, TheLibraryReadsTheTimeOfDaySetHere) {
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
    // Seconds beyond 2^31 only where the system's time of day can hold them.
    const uint64_t seconds = random() % 4000000000u;
    const uint64_t micro = random() % 1000000u;
    const uint64_t s = sizeof(time_t) >= 8 ? seconds : seconds & 0x7FFFFFFF;
    clock.Set(s, micro);
    ASSERT_EQ(OvraGetMilliseconds(), ExpectedMilliseconds(s, micro))
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
    clock.Set(seconds, micro);
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
  // No time set: the reading must fall between two real readings taken
  // around it (compared as offsets from the first, so a wrap in between does
  // no harm).
  uint64_t seconds = 0, microseconds = 0;
  RealNow(seconds, microseconds);
  const uint32_t first = ExpectedMilliseconds(seconds, microseconds);
  const uint32_t ms = static_cast<uint32_t>(OvraGetMilliseconds());
  RealNow(seconds, microseconds);
  const uint32_t last = ExpectedMilliseconds(seconds, microseconds);
  EXPECT_LE(static_cast<uint32_t>(ms - first), static_cast<uint32_t>(last - first));
}

}  // namespace
