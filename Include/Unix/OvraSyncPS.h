// OvraSyncPS.h - private: the POSIX objects behind the room that TCritSec and
// TCondVar keep for them, with the build-time checks that they fit.
#ifndef OVRA_UNIX_OVRASYNCPS_H
#define OVRA_UNIX_OVRASYNCPS_H

#include <pthread.h>

#include "OvraSync.h"

static_assert(sizeof(pthread_mutex_t) <= OVRA_MUTEX_BYTES,
              "OVRA_MUTEX_BYTES must hold this system's pthread_mutex_t");
static_assert(sizeof(pthread_cond_t) <= OVRA_COND_BYTES,
              "OVRA_COND_BYTES must hold this system's pthread_cond_t");
static_assert(alignof(pthread_mutex_t) <= alignof(void*) && alignof(pthread_cond_t) <= alignof(void*),
              "the room in TCritSec and TCondVar is aligned for a pointer only");

// The mutex and condition that live in the room of a TCritSec or TCondVar.
inline pthread_mutex_t* SystemMutex(unsigned char* room) {
  return reinterpret_cast<pthread_mutex_t*>(room);
}
inline pthread_cond_t* SystemCond(unsigned char* room) {
  return reinterpret_cast<pthread_cond_t*>(room);
}

#endif
