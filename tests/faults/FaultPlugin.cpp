// A library meeting the entry-point contract without using the runtime, so
// that a program linked with the test build of the runtime loads no second
// copy of it. It counts its entry points' calls for the test to read. Built
// twice: as is, its SharedLibInit accepts the load; with
// OVRA_FAULT_PLUGIN_REFUSES defined, it refuses it.
#include "OvraBstr.h"
#include "OvraPlatform.h"

// The plugin's exports. On Windows OVRA_API imports from ovra.dll, which this
// library does not use.
#if defined(_WIN32)
#define FAULT_PLUGIN_API __declspec(dllexport)
#else
#define FAULT_PLUGIN_API OVRA_API
#endif

namespace {
int s_inits = 0;
int s_terms = 0;
}  // namespace

OVRA_EXTERN_C FAULT_PLUGIN_API bool SharedLibInit(const TBstr&) {
  ++s_inits;
#ifdef OVRA_FAULT_PLUGIN_REFUSES
  return false;
#else
  return true;
#endif
}

OVRA_EXTERN_C FAULT_PLUGIN_API void SharedLibTerm(void) { ++s_terms; }

OVRA_EXTERN_C FAULT_PLUGIN_API int FaultPluginInits(void) { return s_inits; }

OVRA_EXTERN_C FAULT_PLUGIN_API int FaultPluginTerms(void) { return s_terms; }
