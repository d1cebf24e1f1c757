// OvraMem.cpp - the active allocator record and the allocation entry points.
#include "OvraMem.h"

#include <stdlib.h>

#include "OvraHooks.h"

namespace {
const SAllocator s_defAllocator = {malloc, realloc, free, nullptr, nullptr};
// Statically initialised so that strings and collections work before start-up.
SAllocator s_allocator = {malloc, realloc, free, nullptr, nullptr};
}  // namespace

bool MemInit(SAllocator* allocator) {
  // A partial record is ignored as a whole so that no hook is ever paired with
  // a default of another family (memory from one freed by the other).
  if (allocator && allocator->pfnAlloc && allocator->pfnRealloc && allocator->pfnFree) {
    s_allocator.pfnAlloc = allocator->pfnAlloc;
    s_allocator.pfnRealloc = allocator->pfnRealloc;
    s_allocator.pfnFree = allocator->pfnFree;
  }
  return true;
}

void MemTerm() { s_allocator = s_defAllocator; }

void* OvraMemAlloc(size_t size) { return s_allocator.pfnAlloc(size); }

void* OvraMemRealloc(void* pointer, size_t size) { return s_allocator.pfnRealloc(pointer, size); }

void OvraMemFree(void* pointer) { s_allocator.pfnFree(pointer); }

void* OvraMemDebugAlloc(size_t size, const char*, int) { return OvraMemAlloc(size); }

void* OvraMemDebugRealloc(void* pointer, size_t size, const char*, int) {
  return OvraMemRealloc(pointer, size);
}

size_t OvraMemGetTotalSize(void) { return 0; }
