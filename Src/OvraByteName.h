// OvraByteName.h - private: the single-byte form of a name for the system
// calls that take bytes (every POSIX name, and symbol names on every system).
#ifndef OVRA_SRC_OVRABYTENAME_H
#define OVRA_SRC_OVRABYTENAME_H

#include "OvraBstr.h"

// The terminated single-byte form of `name`, or null when the system cannot be
// given the name unchanged: when it is empty, or holds a character above 255
// (its single-byte form would show "?" there and name something else) or a
// zero character (the name would end there), or when its single-byte copy
// cannot be made. The text is the copy cached in `name`, so it stays valid
// while `name` is not changed.
const char* ByteNameOf(const TBstr& name);

#endif
