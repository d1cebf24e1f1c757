// Ovra.cpp - the counted start-up/shutdown chain and the library's own
// allocation operators.
#include "Ovra.h"

#include <new>

#include "OvraHooks.h"
#include "OvraMem.h"
#include "OvraSync.h"

namespace {
long s_refCount = 0;

// The count is read atomically as well as changed atomically, so that threads
// joining and leaving a started library never race on it. The test and the
// change stay two steps: the first start-up and the last shutdown must still
// not race with other calls.
long RefCount() { return __atomic_load_n(&s_refCount, __ATOMIC_ACQUIRE); }

// Runs the start-up hooks in their fixed order and stops at the first failure.
// Each facility's hook is listed here and only here.
bool StartUpChain(SAllocator* allocator) {
  return MemInit(allocator) &&
         SyncInit() &&
         DebugInit();
}

// The shutdown hooks, in the reverse order of start-up, PSTerm last.
void ShutDownChain() {
  DebugTerm();
  SyncTerm();
  MemTerm();
  PSTerm();
}
}  // namespace

bool OvraInitialize(SAllocator* allocator) {
  if (RefCount() == 0) {
    // No rollback on failure: a later call runs the whole chain again.
    if (!StartUpChain(allocator)) return false;
  }
  OvraAtomicIncrement(&s_refCount);
  return true;
}

void OvraUninitialize(void) {
  if (RefCount() <= 0) return;  // unbalanced call: harmless
  if (OvraAtomicDecrement(&s_refCount) < 1) {
    ShutDownChain();
  }
}

// The library's own global allocation operators. They are kept out of the
// dynamic symbol table (see the version script), so they serve only the
// library's code and an application keeps its own new/delete. They return null
// instead of throwing; the library is built with -fcheck-new so that a plain
// `new T` checks for it before constructing.
void* operator new(size_t size) { return OvraMemAlloc(size); }
void* operator new[](size_t size) { return OvraMemAlloc(size); }
void* operator new(size_t size, const std::nothrow_t&) noexcept { return OvraMemAlloc(size); }
void* operator new[](size_t size, const std::nothrow_t&) noexcept { return OvraMemAlloc(size); }
void operator delete(void* pointer) noexcept { OvraMemFree(pointer); }
void operator delete[](void* pointer) noexcept { OvraMemFree(pointer); }
void operator delete(void* pointer, size_t) noexcept { OvraMemFree(pointer); }
void operator delete[](void* pointer, size_t) noexcept { OvraMemFree(pointer); }
void operator delete(void* pointer, const std::nothrow_t&) noexcept { OvraMemFree(pointer); }
void operator delete[](void* pointer, const std::nothrow_t&) noexcept { OvraMemFree(pointer); }
