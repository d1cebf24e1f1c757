// OvraSync.cpp - counters, deadline arithmetic and the facility's hooks.
#include "OvraSync.h"

#include <stdint.h>

#include "OvraHooks.h"

namespace {
// Applies `delta` atomically, wrapping the result to 32 bits so that the
// counters behave identically where long is 64 bits wide.
long AtomicAdd32(long* value, long delta) {
  long expected = __atomic_load_n(value, __ATOMIC_RELAXED);
  long desired;
  do {
    desired = static_cast<long>(
        static_cast<int32_t>(static_cast<uint32_t>(expected) + static_cast<uint32_t>(delta)));
  } while (!__atomic_compare_exchange_n(value, &expected, desired, false, __ATOMIC_ACQ_REL,
                                        __ATOMIC_RELAXED));
  return desired;
}
}  // namespace

bool SyncInit() { return true; }

void SyncTerm() {}

long OvraAtomicIncrement(long* value) { return AtomicAdd32(value, 1); }

long OvraAtomicDecrement(long* value) { return AtomicAdd32(value, -1); }

timespec TCondVar::MakeDeadline(time_t nowSeconds, long nowMicroseconds, int timeoutMs) {
  timespec deadline;
  deadline.tv_sec = nowSeconds + timeoutMs / 1000;
  deadline.tv_nsec = nowMicroseconds * 1000 + static_cast<long>(timeoutMs % 1000) * 1000000;
  if (deadline.tv_nsec > 1000000000) {  // strictly greater, on purpose
    deadline.tv_sec += 1;
    deadline.tv_nsec -= 1000000000;
  }
  return deadline;
}
