// A plugin whose SharedLibInit refuses the load; its SharedLibTerm is reported.
#include "Ovra.h"
#include "PluginEvents.h"

bool SharedLibInit(const TBstr& fileSpec) {
  ReportInit("refuse", fileSpec);
  return false;
}

void SharedLibTerm(void) { ReportEvent("refuse:term"); }
