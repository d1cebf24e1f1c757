// Ovra.cpp - the counted start-up/shutdown chain and the library's own
// allocation operators.
#include "Ovra.h"

#include <new>

#include "OvraBstr.h"
#include "OvraHooks.h"
#include "OvraMem.h"
#include "OvraSync.h"

namespace {
long s_refCount = 0;

// The path this library was loaded from, as a counted string buffer: set by
// SharedLibInit, released by SharedLibTerm.
unsigned short* s_moduleFileSpec = nullptr;
// The module instance; nothing in this release sets it.
void* s_moduleInstance = nullptr;

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
         TlsInit() &&
         TlsThreadInit() &&
         BstrInit() &&
         DebugInit() &&
         MessageInit() &&
         RandInit();
}

// The shutdown hooks, in the reverse order of start-up, PSTerm last.
void ShutDownChain() {
  RandTerm();
  MessageTerm();
  DebugTerm();
  BstrTerm();
  TlsThreadTerm();
  TlsTerm();
  SyncTerm();
  MemTerm();
  PSTerm();
}
}  // namespace

bool OvraInitialize(SAllocator* allocator) {
  if (RefCount() == 0) {
    // No rollback on failure: a later call runs the whole chain again.
    if (!StartUpChain(allocator)) return false;
  } else {
    TlsThreadInit();  // a nested call only prepares the calling thread
  }
  OvraAtomicIncrement(&s_refCount);
  return true;
}

void OvraUninitialize(void) {
  if (RefCount() <= 0) return;  // unbalanced call: harmless
  if (OvraAtomicDecrement(&s_refCount) < 1) {
    ShutDownChain();
  } else {
    TlsThreadTerm();  // other users remain: only this thread's data goes
  }
}

// ---------------------------------------------------------------------------
// Module identity and the library's entry points
// ---------------------------------------------------------------------------

bool ModuleInit(void*) { return true; }

void ModuleTerm() {}

void* OvraGetModuleInstance(void) { return s_moduleInstance; }

TBstr OvraGetModuleFileSpec(void) {
  return TBstr(s_moduleFileSpec, static_cast<int>(OvraStringLen(s_moduleFileSpec)));
}

bool SharedLibInit(const TBstr& fileSpec) {
  // The loader calls this once per load: an earlier copy is replaced, not freed.
  s_moduleFileSpec = fileSpec.Copy();
  return ModuleInit(reinterpret_cast<void*>(1));
}

void SharedLibTerm(void) {
  ModuleTerm();
  // The pointer is left as it is: the loader closes the library right after,
  // and nothing may ask for the file spec in between.
  OvraFreeString(s_moduleFileSpec);
}

// The library's own global allocation operators. They are kept out of the
// dynamic symbol table (see the version script), so they serve only the
// library's code and an application keeps its own new/delete. They return null
// instead of throwing. The language lets a compiler assume that a plain
// `new T` never yields null, so the library's own code allocates with
// `new (std::nothrow) T` (or class operators declared noexcept), whose result
// is checked before construction; a test keeps plain `new T` out of Src/.
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
