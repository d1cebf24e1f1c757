// OvraSyncPS.h - private: the Windows objects behind the room that TCritSec
// and TCondVar keep for them (a slim reader/writer lock taken exclusively and
// a condition variable), with the build-time checks that they fit.
#ifndef OVRA_WIN32_OVRASYNCPS_H
#define OVRA_WIN32_OVRASYNCPS_H

#include <windows.h>

#include "OvraSync.h"

static_assert(sizeof(SRWLOCK) <= OVRA_MUTEX_BYTES, "OVRA_MUTEX_BYTES must hold an SRWLOCK");
static_assert(sizeof(CONDITION_VARIABLE) <= OVRA_COND_BYTES,
              "OVRA_COND_BYTES must hold a CONDITION_VARIABLE");
static_assert(alignof(SRWLOCK) <= alignof(void*) && alignof(CONDITION_VARIABLE) <= alignof(void*),
              "the room in TCritSec and TCondVar is aligned for a pointer only");

// The lock and condition that live in the room of a TCritSec or TCondVar.
inline SRWLOCK* SystemMutex(unsigned char* room) { return reinterpret_cast<SRWLOCK*>(room); }
inline CONDITION_VARIABLE* SystemCond(unsigned char* room) {
  return reinterpret_cast<CONDITION_VARIABLE*>(room);
}

#endif
