// OvraSystemName.h - private: the one place where the library's 16-bit text
// becomes a name for the system (a file, folder, pattern, library or symbol
// name) and where a name from the system becomes a TBstr.
#ifndef OVRA_UNIX_OVRASYSTEMNAME_H
#define OVRA_UNIX_OVRASYSTEMNAME_H

#include "OvraBstr.h"

// A character of the system's names: POSIX names are bytes.
typedef char TSystemChar;

// The terminated single-byte form of `name` for the system, under the rule
// every byte name follows (ByteNameOf, Src/OvraByteName.h): null when the
// system cannot be given the name unchanged: when it is empty, or holds a
// character above 255 (its single-byte form would show "?" there and name
// another file) or a zero character (the name would end there), or when its
// single-byte copy cannot be made. The text is the copy cached in `name`, so
// it stays valid while `name` is not changed.
const TSystemChar* SystemNameOf(const TBstr& name);

// `text` widened byte for byte into `out` ("" gives an empty string). False,
// with `out` unchanged, when memory runs out or the text is longer than a
// TBstr can hold.
bool BstrFromSystemName(const TSystemChar* text, TBstr& out);

#endif
