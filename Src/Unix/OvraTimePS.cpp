// OvraTimePS.cpp - the free-running clocks, read from the time of day.
#include <sys/time.h>

#include "OvraTime.h"

// Both clocks compute in unsigned 32-bit arithmetic on every platform, so they
// wrap at the same moments on i386 and LP64 (unsigned, so the wrap is defined).

unsigned long OvraGetMilliseconds(void) {
  timeval now;
  gettimeofday(&now, nullptr);
  const uint32_t ms = static_cast<uint32_t>(now.tv_sec) * 1000u +
                      static_cast<uint32_t>(now.tv_usec) / 1000u;
  return ms;
}

int64_t OvraGetMicroseconds64(void) {
  timeval now;
  gettimeofday(&now, nullptr);
  const uint32_t us = static_cast<uint32_t>(now.tv_sec) * 1000000u +
                      static_cast<uint32_t>(now.tv_usec);
  // Sign-extended from 32 bits: callers measure short intervals only.
  return static_cast<int32_t>(us);
}

unsigned long OvraGetMicroseconds(void) {
  return static_cast<uint32_t>(OvraGetMicroseconds64());
}
