// OvraDebugPS.cpp - the Windows half of diagnostics: no system call, since a
// release build never traps.
#include "OvraDebug.h"

// No trap is raised: a release build never stops in a debugger.
void OvraDebugBreak(void) {}
