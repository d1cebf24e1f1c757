// OvraDebug.cpp - the inert diagnostics entry points and their hooks.
#include "OvraDebug.h"

#include "OvraHooks.h"

bool DebugInit() { return true; }

void DebugTerm() {}

void OvraSetAssertProc(OvraAssertProc) {}

void OvraSetDebugStringProc(OvraDebugStringProc) {}

void OvraAssert(int, const char*, const char*, int) {}

void OvraTrace(const char*, ...) {}

void OvraTraceEx(int, const char*, ...) {}

void OvraDumpMem(const void*, size_t) {}

bool OvraIsValidAddress(const void*, size_t, bool) { return true; }

int OvraGetDebugSetting(const char*, int defaultValue) { return defaultValue; }
