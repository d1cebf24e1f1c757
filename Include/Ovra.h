// Ovra.h - counted start-up and shutdown of the whole library.
#ifndef OVRA_OVRA_H
#define OVRA_OVRA_H

#include "OvraMem.h"
#include "Unix/OvraPlatform.h"

// Starts the library, or joins it when it is already started. The first call
// installs `allocator` (null, or a record with a null hook, keeps malloc/realloc/
// free) and starts every facility; it returns false if one fails to start, with
// no rollback and the library still counted as not started. A nested call only
// sets up the calling thread's thread-local data and ignores `allocator`.
// The first call must not race with other calls of the pair.
OVRA_EXTERN_C OVRA_API bool OvraInitialize(SAllocator* allocator);

// Ends one OvraInitialize. The last one shuts every facility down and restores
// the default allocator: memory from an application allocator must be released
// before it. Other calls only free the calling thread's thread-local data.
// A call without a matching successful OvraInitialize does nothing.
OVRA_EXTERN_C OVRA_API void OvraUninitialize(void);

#endif
