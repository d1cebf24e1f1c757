// OvraTimePS.cpp - the free-running clocks, read from the system's wall clock.
#include <windows.h>

#include "OvraTime.h"

// Both clocks compute in unsigned 32-bit arithmetic on every platform from
// seconds and microseconds since 1970, so they wrap at the same moments as
// on POSIX.

namespace {
// Microseconds between 1601-01-01 (the system's epoch) and 1970-01-01.
constexpr unsigned long long kEpochDifferenceUs = 11644473600000000ULL;

// Seconds and microseconds since 1970-01-01 UTC.
void TimeOfDay(unsigned long long& seconds, unsigned long long& microseconds) {
  FILETIME now;
  GetSystemTimeAsFileTime(&now);
  const unsigned long long us =
      ((static_cast<unsigned long long>(now.dwHighDateTime) << 32 | now.dwLowDateTime) / 10) -
      kEpochDifferenceUs;
  seconds = us / 1000000;
  microseconds = us % 1000000;
}
}  // namespace

unsigned long OvraGetMilliseconds(void) {
  unsigned long long seconds = 0, microseconds = 0;
  TimeOfDay(seconds, microseconds);
  const uint32_t ms =
      static_cast<uint32_t>(seconds) * 1000u + static_cast<uint32_t>(microseconds) / 1000u;
  return ms;
}

int64_t OvraGetMicroseconds64(void) {
  unsigned long long seconds = 0, microseconds = 0;
  TimeOfDay(seconds, microseconds);
  const uint32_t us =
      static_cast<uint32_t>(seconds) * 1000000u + static_cast<uint32_t>(microseconds);
  // Sign-extended from 32 bits: callers measure short intervals only.
  return static_cast<int32_t>(us);
}

unsigned long OvraGetMicroseconds(void) {
  return static_cast<uint32_t>(OvraGetMicroseconds64());
}
