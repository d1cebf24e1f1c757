// OvraSync.h - critical sections, condition variables and counters.
#ifndef OVRA_OVRASYNC_H
#define OVRA_OVRASYNC_H

#include <time.h>

#include "OvraPlatform.h"

// Room for the system's mutex and condition objects inside TCritSec and
// TCondVar. The header names no system type, so that including it pulls no
// system header into an application; the library checks when it is built that
// the system's objects fit and are aligned for this room. The sizes are those
// of the system objects, so the classes' layout is the system's own: a POSIX
// mutex and condition on Linux (per architecture), a slim reader/writer lock
// and a condition variable on Windows, a generous room elsewhere.
#if defined(_WIN32)
// Bytes kept for the system's mutex.
#define OVRA_MUTEX_BYTES 8
// Bytes kept for the system's condition object.
#define OVRA_COND_BYTES 8
#elif defined(__x86_64__) && defined(__ILP32__)
// Bytes kept for the system's mutex.
#define OVRA_MUTEX_BYTES 32
// Bytes kept for the system's condition object.
#define OVRA_COND_BYTES 48
#elif defined(__aarch64__)
// Bytes kept for the system's mutex.
#define OVRA_MUTEX_BYTES 48
// Bytes kept for the system's condition object.
#define OVRA_COND_BYTES 48
#elif defined(__x86_64__) || defined(__s390x__) || defined(__powerpc64__) || defined(__riscv)
// Bytes kept for the system's mutex.
#define OVRA_MUTEX_BYTES 40
// Bytes kept for the system's condition object.
#define OVRA_COND_BYTES 48
#elif defined(__i386__) || defined(__arm__) || defined(__mips__) || defined(__powerpc__)
// Bytes kept for the system's mutex.
#define OVRA_MUTEX_BYTES 24
// Bytes kept for the system's condition object.
#define OVRA_COND_BYTES 48
#else
// Bytes kept for the system's mutex.
#define OVRA_MUTEX_BYTES 64
// Bytes kept for the system's condition object.
#define OVRA_COND_BYTES 64
#endif

// Adds 1 to *value and returns the new value. Atomic, so threads may share the
// counter. The value keeps 32-bit rules on every platform: 2147483647 + 1 wraps
// to -2147483648. The pointer is not checked for null.
OVRA_EXTERN_C OVRA_API long OvraAtomicIncrement(long* value);
// Subtracts 1 from *value and returns the new value (atomic, 32-bit wrap-around).
OVRA_EXTERN_C OVRA_API long OvraAtomicDecrement(long* value);

// A plain, non-recursive mutex. Constructors do no work: call Init before use
// and Term after, so the object can live in static storage and plain records.
// Locking a TCritSec the thread already holds is not supported.
class OVRA_API TCritSec {
 public:
  // Creates the mutex with default attributes; errors are ignored.
  void Init();
  // Destroys the mutex; errors are ignored.
  void Term();
  // Blocks until the calling thread holds the lock.
  void Lock();
  // Releases the lock held by the calling thread.
  void Unlock();

 protected:
  // The system's mutex (see OVRA_MUTEX_BYTES); TCondVar waits on it.
  alignas(void*) unsigned char m_mutex[OVRA_MUTEX_BYTES];
};

// A condition variable bound to its own critical section (the base class).
// A signal is not remembered: Signal with nobody waiting is lost, so callers
// keep their own predicate under the lock and test it around every Wait.
class OVRA_API TCondVar : public TCritSec {
 public:
  // Initialises the lock, then the condition (default attributes).
  void Init();
  // Destroys the condition, then the lock.
  void Term();
  // Waits for Signal; the caller holds the object's lock. A negative timeout
  // waits without limit. Otherwise waits until now + timeoutMs on the wall
  // clock (0 returns at once). True when woken (spurious wake-ups included),
  // false on time-out or any error.
  bool Wait(int timeoutMs);
  // Wakes at most one waiter; there is no broadcast.
  void Signal();

  // The absolute deadline Wait uses for a non-negative timeout, from the time
  // of day `now`. The nanosecond part is normalised only when it is strictly
  // greater than 1000000000; exactly 1000000000 is passed on unchanged (some
  // systems then report an error, which Wait returns as false).
  static timespec MakeDeadline(time_t nowSeconds, long nowMicroseconds, int timeoutMs);

 private:
  // The system's condition object (see OVRA_COND_BYTES).
  alignas(void*) unsigned char m_cond[OVRA_COND_BYTES];
};

#endif
