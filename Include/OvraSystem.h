// OvraSystem.h - the operating system's name and release numbers.
#ifndef OVRA_OVRASYSTEM_H
#define OVRA_OVRASYSTEM_H

#include "OvraBstr.h"
#include "OvraPlatform.h"

// What OvraGetSystemInfo reports.
struct SSystemInfo {
  TBstr osName;           // the system's name, for example "Linux"
  int majorVersion;       // leading number of the release text ("6" of "6.1.0-13")
  int minorVersion;       // number behind its first "."; 0 without one
  unsigned int revision;  // number behind its second "."; see OvraGetSystemInfo
  unsigned int reserved;  // always 0
};

// Fills info from the system's name and release text; always returns 0. Each
// number is read with atoi rules (leading digits, 0 when there are none). A
// release text without any "." leaves revision as the caller had it, while
// one with a single "." sets it to 0. A null info is ignored. When the system
// cannot tell, osName is empty and both versions are 0 (revision is kept).
// When osName cannot be allocated it is left empty; the numbers are still read.
// On Windows the name is "Windows" and the release text is the system's true
// version, "major.minor.build" (10.0.19045, say), whatever version a program
// without a compatibility manifest would be told.
OVRA_EXTERN_C OVRA_API unsigned int OvraGetSystemInfo(SSystemInfo* info);

#endif
