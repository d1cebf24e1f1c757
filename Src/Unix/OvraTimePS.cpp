// OvraTimePS.cpp - the POSIX time of day for the free-running clocks, and no policy.
#include "OvraTimePS.h"

#include "Unix/OvraSysCalls.h"

void InternalTimeOfDay(long long& seconds, long& microseconds) {
  timeval now;
  g_ovraSysCalls.gettimeofday(&now);
  seconds = static_cast<long long>(now.tv_sec);
  microseconds = static_cast<long>(now.tv_usec);
}
