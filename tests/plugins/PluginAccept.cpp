// A plugin whose SharedLibInit accepts the load and whose SharedLibTerm is
// reported, so that a test can count both.
#include "Ovra.h"
#include "PluginEvents.h"

bool SharedLibInit(const TBstr& fileSpec) {
  ReportInit("accept", fileSpec);
  return true;
}

void SharedLibTerm(void) { ReportEvent("accept:term"); }

// Tells the plugins apart through GetProcAddress.
OVRA_EXTERN_C OVRA_EXPORT int PluginAcceptIdentity(void) { return 1001; }
