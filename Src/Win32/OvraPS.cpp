// OvraPS.cpp - the Windows half of library start-up and shutdown: only this
// platform's library-wide steps, no policy.
#include "OvraHooks.h"

// The last shutdown step. Nothing library-wide is held from the system on
// Windows: the thread-local index and the locks have their own steps.
void PSTerm() {}
