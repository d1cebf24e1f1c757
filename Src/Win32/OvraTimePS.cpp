// OvraTimePS.cpp - the Windows wall clock as a POSIX time of day, and no policy.
#include "OvraTimePS.h"

#include "Win32/OvraSysCalls.h"

namespace {
// Microseconds between 1601-01-01 (the system's epoch) and 1970-01-01.
constexpr long long kEpochDifferenceUs = 11644473600000000LL;
}  // namespace

void InternalTimeOfDay(long long& seconds, long& microseconds) {
  FILETIME now;
  g_ovraSysCalls.GetSystemTimeAsFileTime(&now);
  const long long us =
      static_cast<long long>((static_cast<unsigned long long>(now.dwHighDateTime) << 32 |
                              now.dwLowDateTime) / 10) - kEpochDifferenceUs;
  // Floored, so that microseconds stay in 0..999999 before 1970 as well.
  seconds = us / 1000000;
  long long rest = us % 1000000;
  if (rest < 0) {
    rest += 1000000;
    --seconds;
  }
  microseconds = static_cast<long>(rest);
}
