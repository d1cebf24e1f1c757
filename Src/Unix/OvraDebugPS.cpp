// OvraDebugPS.cpp - the platform half of diagnostics and of library shutdown.
#include "OvraDebug.h"
#include "OvraHooks.h"

// No trap is raised: a release build never stops in a debugger.
void OvraDebugBreak(void) {}

// The platform's last shutdown step; nothing is held on POSIX.
void PSTerm() {}
