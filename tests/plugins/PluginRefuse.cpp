// A plugin whose SharedLibInit refuses the load; its SharedLibTerm is reported.
#include "PluginEvents.h"

OVRA_PLUGIN_ENTRY bool SharedLibInit(const TBstr& fileSpec) {
  ReportInit("refuse", fileSpec);
  return false;
}

OVRA_PLUGIN_ENTRY void SharedLibTerm(void) { ReportEvent("refuse:term"); }
