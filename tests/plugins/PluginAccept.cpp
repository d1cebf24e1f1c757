// A plugin whose SharedLibInit accepts the load and whose SharedLibTerm is
// reported, so that a test can count both.
#include "PluginEvents.h"

OVRA_PLUGIN_ENTRY bool SharedLibInit(const TBstr& fileSpec) {
  ReportInit("accept", fileSpec);
  return true;
}

OVRA_PLUGIN_ENTRY void SharedLibTerm(void) { ReportEvent("accept:term"); }

// Tells the plugins apart through GetProcAddress.
OVRA_EXTERN_C OVRA_PLUGIN_EXPORT int PluginAcceptIdentity(void) { return 1001; }
