// OvraSyncPS.cpp - POSIX bodies of TCritSec, TCondVar and the message queue's
// try-lock: POSIX threads' mutex and condition calls only.
#include <sys/time.h>

#include "OvraQueueLock.h"
#include "Unix/OvraSyncPS.h"

void TCritSec::Init() { pthread_mutex_init(SystemMutex(m_mutex), nullptr); }

void TCritSec::Term() { pthread_mutex_destroy(SystemMutex(m_mutex)); }

void TCritSec::Lock() { pthread_mutex_lock(SystemMutex(m_mutex)); }

void TCritSec::Unlock() { pthread_mutex_unlock(SystemMutex(m_mutex)); }

void TCondVar::Init() {
  TCritSec::Init();
  pthread_cond_init(SystemCond(m_cond), nullptr);
}

void TCondVar::Term() {
  pthread_cond_destroy(SystemCond(m_cond));
  TCritSec::Term();
}

bool TCondVar::Wait(int timeoutMs) {
  if (timeoutMs < 0) return pthread_cond_wait(SystemCond(m_cond), SystemMutex(m_mutex)) == 0;
  timeval now;
  gettimeofday(&now, nullptr);
  const timespec deadline = MakeDeadline(now.tv_sec, now.tv_usec, timeoutMs);
  return pthread_cond_timedwait(SystemCond(m_cond), SystemMutex(m_mutex), &deadline) == 0;
}

void TCondVar::Signal() { pthread_cond_signal(SystemCond(m_cond)); }

bool TQueueLock::TryLock() { return pthread_mutex_trylock(SystemMutex(m_mutex)) == 0; }
