// Ovra.h - counted start-up and shutdown of the whole library.
#ifndef OVRA_OVRA_H
#define OVRA_OVRA_H

#include "OvraBstr.h"
#include "OvraMem.h"
#include "OvraPlatform.h"

// Starts the library, or joins it when it is already started. The first call
// installs `allocator` (null, or a record with a null hook, keeps malloc/realloc/
// free) and starts every facility; it returns false if one fails to start, with
// no rollback and the library still counted as not started. The facilities
// started before the failing one (when memory runs out, say) stay usable and a
// later call reuses them; the last OvraUninitialize after a successful call
// releases everything. A nested call only sets up the calling thread's
// thread-local data and ignores `allocator`.
// The first call must not race with other calls of the pair.
OVRA_EXTERN_C OVRA_API bool OvraInitialize(SAllocator* allocator);

// Ends one OvraInitialize. The last one shuts every facility down and restores
// the default allocator: memory from an application allocator must be released
// before it. Other calls only free the calling thread's thread-local data.
// A call without a matching successful OvraInitialize does nothing.
OVRA_EXTERN_C OVRA_API void OvraUninitialize(void);

// The module instance of this library: always null in this release.
OVRA_EXTERN_C OVRA_API void* OvraGetModuleInstance(void);

// C linkage keeps the entry points' names undecorated for the loader; their
// callers are C++ code that passes and receives TBstr values.
#if defined(__clang__)
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wreturn-type-c-linkage"
#endif
// The full path of this library's file as the loader passed it to SharedLibInit;
// empty when SharedLibInit has not run (or kept no copy) and when the returned
// copy cannot be allocated. Must not be called after SharedLibTerm.
OVRA_EXTERN_C OVRA_API TBstr OvraGetModuleFileSpec(void);
#if defined(__clang__)
#pragma clang diagnostic pop
#endif

// The pair below is declared with OVRA_EXPORT, not OVRA_API, because a plugin
// defines its own pair from these very declarations and must export it; a
// program that calls this library's pair still reaches it through ovra.dll's
// import library on Windows.

// Entry point the loader calls right after opening this library, with the
// library file's absolute path. Keeps a copy of the path for
// OvraGetModuleFileSpec (none when it cannot be allocated) and returns true for
// any path, the empty one included.
// A second call without SharedLibTerm replaces the copy without freeing it. It
// does not start the library: call OvraInitialize as well.
OVRA_EXTERN_C OVRA_EXPORT bool SharedLibInit(const TBstr& fileSpec);

// Entry point the loader calls right before closing this library: releases the
// stored path. Pair every SharedLibInit with exactly one SharedLibTerm.
OVRA_EXTERN_C OVRA_EXPORT void SharedLibTerm(void);

#endif
