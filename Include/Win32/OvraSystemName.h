// OvraSystemName.h - private: the one place where the library's 16-bit text
// becomes a name for the system (a file, folder, pattern, library or symbol
// name) and where a name from the system becomes a TBstr.
#ifndef OVRA_WIN32_OVRASYSTEMNAME_H
#define OVRA_WIN32_OVRASYSTEMNAME_H

#include "OvraBstr.h"

// A character of the system's names: Windows names are 16-bit units, the
// units of a TBstr.
typedef wchar_t TSystemChar;

// The terminated 16-bit form of `name` for the system's wide (W) calls, or
// null when the system cannot be given the name unchanged: when it is empty
// or holds a zero unit (the name would end there). Every other unit reaches
// the system as it is. The text is the string's own buffer, so it stays valid
// while `name` is not changed.
const TSystemChar* SystemNameOf(const TBstr& name);

// `text` copied unit for unit into `out` ("" gives an empty string). False,
// with `out` unchanged, when memory runs out or the text is longer than a
// TBstr can hold.
bool BstrFromSystemName(const TSystemChar* text, TBstr& out);

#endif
