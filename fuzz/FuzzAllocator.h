// FuzzAllocator.h - an SAllocator for the model-checking fuzz targets: it
// counts the blocks it has handed out and not taken back, counts requests,
// and fails the request the input chooses, so that a target can check that
// memory comes back and that a failed allocation leaves things as they were.
// One fuzz target runs one input at a time on one thread, so plain counters do.
#ifndef OVRA_FUZZ_FUZZALLOCATOR_H
#define OVRA_FUZZ_FUZZALLOCATOR_H

#include <stdlib.h>

#include "OvraMem.h"

namespace ovra_fuzz {

struct FuzzAllocStats {
  long live = 0;      // blocks handed out and not yet freed
  long requests = 0;  // alloc and realloc calls so far
  long failAt = 0;    // the request number to fail; 0 = none
  long failed = 0;    // requests failed so far
};

inline FuzzAllocStats& AllocStats() {
  static FuzzAllocStats stats;
  return stats;
}

inline bool FailThisRequest() {
  FuzzAllocStats& s = AllocStats();
  ++s.requests;
  if (s.failAt != 0 && s.requests == s.failAt) {
    ++s.failed;
    return true;
  }
  return false;
}

inline void* FuzzAlloc(size_t size) {
  if (FailThisRequest()) return nullptr;
  void* p = malloc(size ? size : 1);
  if (p) ++AllocStats().live;
  return p;
}

inline void* FuzzRealloc(void* pointer, size_t size) {
  if (FailThisRequest()) return nullptr;
  void* p = realloc(pointer, size ? size : 1);
  if (p && !pointer) ++AllocStats().live;
  return p;
}

inline void FuzzFree(void* pointer) {
  if (!pointer) return;
  --AllocStats().live;
  free(pointer);
}

inline SAllocator FuzzAllocator() {
  return SAllocator{FuzzAlloc, FuzzRealloc, FuzzFree, nullptr, nullptr};
}

// Makes the nth request from now on fail (1 = the next one); 0 fails none.
inline void FailNthRequest(long n) { AllocStats().failAt = n > 0 ? AllocStats().requests + n : 0; }

// Counts requests and failures of one operation.
struct OperationAllocs {
  long requestsBefore = AllocStats().requests;
  long failedBefore = AllocStats().failed;
  long Requests() const { return AllocStats().requests - requestsBefore; }
  bool Failed() const { return AllocStats().failed != failedBefore; }
};

}  // namespace ovra_fuzz

#endif
