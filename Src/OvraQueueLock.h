// OvraQueueLock.h - private: the message queue's condition variable, whose
// lock is tried a few times before the thread sleeps on it.
#ifndef OVRA_SRC_OVRAQUEUELOCK_H
#define OVRA_SRC_OVRAQUEUELOCK_H

#include "OvraSync.h"

#if defined(__x86_64__) || defined(__i386__) || defined(_M_X64) || defined(_M_IX86)
#include <emmintrin.h>
#endif

// The same mutex and condition as TCondVar (no member of its own, so the
// layout is TCondVar's), with an acquisition for a lock shared by a poster
// and a getter that each hold it for a few instructions only: a lock found
// taken is tried again for a short while, because sleeping on it costs two
// system calls and a reschedule where its holder lets go within a
// microsecond. The mutex itself keeps the default kind that TCritSec
// documents.
class TQueueLock : public TCondVar {
 public:
  // Takes the lock if it is free at once; true when taken. (Platform
  // companion: the system's try-lock call.)
  bool TryLock();
  // Takes the lock: tries a few times, pausing between tries (1, 2, 4 ...
  // kMostPauses pauses), then blocks as Lock does.
  void LockSoon() {
    for (unsigned pauses = 1; pauses <= kMostPauses; pauses *= 2) {
      if (TryLock()) return;
      // Twice as long a wait after each failed try, so that the holder's
      // core is not kept busy answering for the lock's memory.
      for (unsigned i = 0; i < pauses; ++i) Pause();
    }
    Lock();
  }

 private:
  // Tells the processor that this is a wait loop: the other thread on the
  // core gets its resources, and leaving the loop costs no mispredicted
  // pipeline.
  static void Pause() {
#if defined(__x86_64__) || defined(__i386__) || defined(_M_X64) || defined(_M_IX86)
    _mm_pause();
#elif defined(__aarch64__) || defined(__arm__)
    __asm__ __volatile__("yield");
#endif
  }

  static constexpr unsigned kMostPauses = 128;
};

#endif
