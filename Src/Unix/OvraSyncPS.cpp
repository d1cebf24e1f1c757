// OvraSyncPS.cpp - POSIX bodies of TCritSec and TCondVar.
#include <sys/time.h>

#include "OvraSync.h"

void TCritSec::Init() { pthread_mutex_init(&m_mutex, nullptr); }

void TCritSec::Term() { pthread_mutex_destroy(&m_mutex); }

void TCritSec::Lock() { pthread_mutex_lock(&m_mutex); }

void TCritSec::Unlock() { pthread_mutex_unlock(&m_mutex); }

void TCondVar::Init() {
  TCritSec::Init();
  pthread_cond_init(&m_cond, nullptr);
}

void TCondVar::Term() {
  pthread_cond_destroy(&m_cond);
  TCritSec::Term();
}

bool TCondVar::Wait(int timeoutMs) {
  if (timeoutMs < 0) return pthread_cond_wait(&m_cond, &m_mutex) == 0;
  timeval now;
  gettimeofday(&now, nullptr);
  const timespec deadline = MakeDeadline(now.tv_sec, now.tv_usec, timeoutMs);
  return pthread_cond_timedwait(&m_cond, &m_mutex, &deadline) == 0;
}

void TCondVar::Signal() { pthread_cond_signal(&m_cond); }
