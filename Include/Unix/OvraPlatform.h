// OvraPlatform.h - platform declarations shared by every public header:
// the export macro, C linkage and the handle convention.
#ifndef OVRA_UNIX_OVRAPLATFORM_H
#define OVRA_UNIX_OVRAPLATFORM_H

#include <stddef.h>
#include <stdint.h>

// Marks a declaration as part of the public interface. The library is built
// with hidden visibility, so anything without this mark stays private.
#define OVRA_API __attribute__((visibility("default")))

// Exported free functions have C linkage so that their names stay undecorated.
#define OVRA_EXTERN_C extern "C"

// The null handle: no platform object (thread, queue, file, search, library) is open.
constexpr void* kInvalidHandleValue = nullptr;

#endif
