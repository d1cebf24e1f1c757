// OvraMem.h - the pluggable allocator every allocation of the library goes through.
#ifndef OVRA_OVRAMEM_H
#define OVRA_OVRAMEM_H

#include "OvraPlatform.h"

// Allocation hooks an application passes to OvraInitialize. The three function
// fields have the contracts of malloc, realloc and free and must be safe to call
// from several threads at once. A record with any of the three null is ignored
// as a whole. The two reserved fields are neither copied nor read.
struct SAllocator {
  void* (*pfnAlloc)(size_t size);                   // as malloc
  void* (*pfnRealloc)(void* pointer, size_t size);  // as realloc
  void (*pfnFree)(void* pointer);                   // as free
  void* pfnReserved1;                               // reserved, not read
  void* pfnReserved2;                               // reserved, not read
};

// Allocates through the installed hook; returns whatever it returns (null on failure).
OVRA_EXTERN_C OVRA_API void* OvraMemAlloc(size_t size);
// Resizes through the installed hook (realloc contract); null on failure.
OVRA_EXTERN_C OVRA_API void* OvraMemRealloc(void* pointer, size_t size);
// Releases through the installed hook; a null pointer is passed on as it is.
OVRA_EXTERN_C OVRA_API void OvraMemFree(void* pointer);
// Same as OvraMemAlloc: there is no debug heap. file and line are ignored.
OVRA_EXTERN_C OVRA_API void* OvraMemDebugAlloc(size_t size, const char* file, int line);
// Same as OvraMemRealloc: there is no debug heap. file and line are ignored.
OVRA_EXTERN_C OVRA_API void* OvraMemDebugRealloc(void* pointer, size_t size, const char* file,
                                                 int line);
// Always 0: no accounting of allocated bytes is kept.
OVRA_EXTERN_C OVRA_API size_t OvraMemGetTotalSize(void);

#endif
