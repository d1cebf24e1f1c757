// OvraLibraryPS.h - private platform layer of TLibrary: the system's loader
// and nothing else. The entry-point contract (SharedLibInit after opening,
// SharedLibTerm before closing) is kept once, by TLibrary, over these calls.
#ifndef OVRA_SRC_OVRALIBRARYPS_H
#define OVRA_SRC_OVRALIBRARYPS_H

#include "OvraBstr.h"

// Opens the library file named by the first argument, by the absolute path
// made from it (see TLibrary::LibraryLoad for the path rules), and sets
// initPath to that path as the library's text writes it ("/" separators),
// the text SharedLibInit receives. initPath is made before the file is
// opened, so that running out of memory fails before the loader has run any
// of the library's code. The loader's handle, or kInvalidHandleValue
// (initPath may then hold anything).
void* InternalLibraryOpen(const TBstr& spec, TBstr& initPath);
// Closes a handle from InternalLibraryOpen; false when the loader refuses.
bool InternalLibraryClose(void* handle);
// The loader's lookup of name in the library of a valid handle; it may find
// a definition in a library the opened one depends on. Null when not found.
void* InternalLibraryLookup(void* handle, const char* name);
// True when address lies in the file the handle opened itself, not in one of
// the libraries it depends on (nor, on Windows, in a module an export of it
// is forwarded to).
bool InternalLibraryDefines(void* handle, void* address);

#endif
