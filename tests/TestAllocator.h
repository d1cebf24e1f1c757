// TestAllocator.h - an SAllocator for tests that counts calls and can fail
// the Nth allocation (alloc and realloc calls are counted together).
#ifndef OVRA_TESTS_TESTALLOCATOR_H
#define OVRA_TESTS_TESTALLOCATOR_H

#include <stdlib.h>

#include <atomic>

#include "Ovra.h"
#include "OvraMem.h"

namespace ovra_test {

struct AllocStats {
  std::atomic<long> allocs{0};    // calls of pfnAlloc
  std::atomic<long> reallocs{0};  // calls of pfnRealloc
  std::atomic<long> frees{0};     // calls of pfnFree with a non-null pointer
  std::atomic<long> live{0};      // blocks handed out and not yet freed
  std::atomic<long> failAt{0};    // 1-based index of the request to fail; 0 = never
  std::atomic<long> requests{0};  // alloc + realloc requests so far
  std::atomic<bool> failAll{false};  // fail every request from failAt on

  void Reset() {
    allocs = 0; reallocs = 0; frees = 0; live = 0; failAt = 0; requests = 0; failAll = false;
  }
};

inline AllocStats& Stats() {
  static AllocStats stats;
  return stats;
}

inline bool ShouldFail() {
  AllocStats& s = Stats();
  const long n = ++s.requests;
  const long at = s.failAt.load();
  return at != 0 && (n == at || (s.failAll && n > at));
}

inline void* CountingAlloc(size_t size) {
  Stats().allocs++;
  if (ShouldFail()) return nullptr;
  void* p = malloc(size ? size : 1);
  if (p) Stats().live++;
  return p;
}

inline void* CountingRealloc(void* pointer, size_t size) {
  Stats().reallocs++;
  if (ShouldFail()) return nullptr;
  void* p = realloc(pointer, size ? size : 1);
  if (p && !pointer) Stats().live++;
  return p;
}

inline void CountingFree(void* pointer) {
  if (!pointer) return;
  Stats().frees++;
  Stats().live--;
  free(pointer);
}

inline SAllocator CountingAllocator() {
  return SAllocator{CountingAlloc, CountingRealloc, CountingFree, nullptr, nullptr};
}

// Makes the Nth allocation request from now on fail (1 = the next one).
inline void FailNthAllocation(long n, bool andAllLater = false) {
  Stats().failAll = andAllLater;
  Stats().failAt = Stats().requests.load() + n;
}

inline void StopFailing() { Stats().failAt = 0; Stats().failAll = false; }

// Starts the library with the counting allocator for the lifetime of a scope
// and shuts it down afterwards. The counters start from zero once start-up is
// done, so the blocks start-up keeps (the message queue, the shared random
// generator) do not show in a test's counts; after the scope, live is back to
// zero unless something leaked.
class ScopedCountingLibrary {
 public:
  ScopedCountingLibrary() {
    Stats().Reset();
    SAllocator a = CountingAllocator();
    started_ = OvraInitialize(&a);
    startUpLive_ = Stats().live.load();
    Stats().allocs = 0;
    Stats().reallocs = 0;
    Stats().frees = 0;
    Stats().requests = 0;
    Stats().live = 0;
  }
  ~ScopedCountingLibrary() {
    StopFailing();
    if (started_) OvraUninitialize();
    Stats().live += startUpLive_;
  }
  bool started() const { return started_; }

 private:
  bool started_;
  long startUpLive_ = 0;
};


}  // namespace ovra_test

#endif
