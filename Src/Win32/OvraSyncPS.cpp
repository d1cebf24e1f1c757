// OvraSyncPS.cpp - Windows bodies of TCritSec, TCondVar and the message queue's
// try-lock: slim reader/writer lock and condition variable calls only.
#include "OvraQueueLock.h"
#include "OvraTimePS.h"
#include "Win32/OvraSyncPS.h"


// A slim lock needs no destruction; Init only puts it in its unlocked state.
void TCritSec::Init() { InitializeSRWLock(SystemMutex(m_mutex)); }

void TCritSec::Term() {}

void TCritSec::Lock() { AcquireSRWLockExclusive(SystemMutex(m_mutex)); }

void TCritSec::Unlock() { ReleaseSRWLockExclusive(SystemMutex(m_mutex)); }

void TCondVar::Init() {
  TCritSec::Init();
  InitializeConditionVariable(SystemCond(m_cond));
}

void TCondVar::Term() { TCritSec::Term(); }

bool TCondVar::Wait(int timeoutMs) {
  if (timeoutMs < 0)
    return SleepConditionVariableSRW(SystemCond(m_cond), SystemMutex(m_mutex), INFINITE, 0) != 0;
  // The same absolute deadline as on POSIX, turned back into the relative
  // time the system waits: a deadline the POSIX call would refuse (a
  // nanosecond part of a whole second) is refused here too.
  long long seconds = 0;
  long microseconds = 0;
  InternalTimeOfDay(seconds, microseconds);
  const timespec deadline = MakeDeadline(static_cast<time_t>(seconds), microseconds, timeoutMs);
  if (deadline.tv_nsec < 0 || deadline.tv_nsec >= 1000000000) return false;
  InternalTimeOfDay(seconds, microseconds);
  const long long remainingUs =
      (static_cast<long long>(deadline.tv_sec) - seconds) * 1000000 +
      (deadline.tv_nsec / 1000 - microseconds);
  if (remainingUs <= 0) return false;  // the deadline has passed: timed out
  // Rounded up, so that the wait never ends before the deadline.
  const DWORD ms = static_cast<DWORD>((remainingUs + 999) / 1000);
  return SleepConditionVariableSRW(SystemCond(m_cond), SystemMutex(m_mutex), ms, 0) != 0;
}

void TCondVar::Signal() { WakeConditionVariable(SystemCond(m_cond)); }

bool TQueueLock::TryLock() { return TryAcquireSRWLockExclusive(SystemMutex(m_mutex)) != 0; }
