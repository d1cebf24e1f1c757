// OvraDebug.h - diagnostics entry points. Application code may call them in
// every build; in this build they are deliberately inert: nothing is stored,
// printed or trapped, and the process is never stopped.
#ifndef OVRA_OVRADEBUG_H
#define OVRA_OVRADEBUG_H

#include "OvraPlatform.h"

// Procedure an application may offer for failed assertions.
typedef void (*OvraAssertProc)(const char* condition, const char* file, int line);
// Procedure an application may offer for trace text.
typedef void (*OvraDebugStringProc)(const char* text);

// Ignores its argument: no procedure is stored or ever called.
OVRA_EXTERN_C OVRA_API void OvraSetAssertProc(OvraAssertProc proc);
// Ignores its argument: no procedure is stored or ever called.
OVRA_EXTERN_C OVRA_API void OvraSetDebugStringProc(OvraDebugStringProc proc);
// Does nothing and returns normally, whatever `condition` is.
OVRA_EXTERN_C OVRA_API void OvraAssert(int condition, const char* conditionText,
                                       const char* file, int line);
// Does nothing: no output is produced. The arguments are not read.
OVRA_EXTERN_C OVRA_API void OvraTrace(const char* format, ...);
// Does nothing: no output is produced. The arguments are not read.
OVRA_EXTERN_C OVRA_API void OvraTraceEx(int level, const char* format, ...);
// Does nothing; the memory is not read.
OVRA_EXTERN_C OVRA_API void OvraDumpMem(const void* address, size_t length);
// Does nothing: no trap is raised.
OVRA_EXTERN_C OVRA_API void OvraDebugBreak(void);
// Always true, whatever it is given (null included); the memory is not touched.
OVRA_EXTERN_C OVRA_API bool OvraIsValidAddress(const void* address, size_t length, bool writable);
// Returns `defaultValue` unchanged: every debug setting has its default. `name` is not read.
OVRA_EXTERN_C OVRA_API int OvraGetDebugSetting(const char* name, int defaultValue);

#endif
