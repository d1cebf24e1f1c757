// A plugin that accepts the load, exports plain functions and a variable, and
// defines no SharedLibTerm: closing it must not run the runtime's.
#include "Ovra.h"
#include "PluginEvents.h"

bool SharedLibInit(const TBstr& fileSpec) {
  ReportInit("plain", fileSpec);
  return true;
}

OVRA_EXTERN_C OVRA_EXPORT int PluginPlainAnswer(void) { return 42; }

OVRA_EXTERN_C OVRA_EXPORT int PluginPlainAdd(int a, int b) { return a + b; }

extern "C" {
OVRA_EXPORT int PluginPlainCounter = 7;
}

// Not exported: the lookup must not find it.
OVRA_EXTERN_C int PluginPlainHidden(void) { return 13; }
