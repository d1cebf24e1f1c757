// A plugin linked against the runtime that defines no SharedLibInit of its
// own: the loader's lookup through it finds the runtime's entry instead. Its
// own SharedLibTerm is reported.
#include "Ovra.h"
#include "PluginEvents.h"

void SharedLibTerm(void) { ReportEvent("noentry:term"); }

// Uses the runtime, so that the linker keeps it among the plugin's dependencies.
OVRA_EXTERN_C OVRA_EXPORT int PluginNoEntryLength(void) {
  TBstr text("four");
  return text.GetLength();
}
