// OvraSystemPS.h - private: what the platform layer reads from the system for
// OvraGetSystemInfo.
#ifndef OVRA_SRC_OVRASYSTEMPS_H
#define OVRA_SRC_OVRASYSTEMPS_H

#include <stddef.h>

#include "OvraBstr.h"

// Sets name to the system's name and copies its release text, terminated and
// cut to size - 1 bytes, into release (size must be at least 1). False, with
// name empty and release "", when the system cannot tell.
bool InternalGetSystemNames(TBstr& name, char* release, size_t size);

#endif
