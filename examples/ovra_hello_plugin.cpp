// ovra_hello_plugin - a plugin built on the runtime: it defines the two entry
// points TLibrary calls around loading and unloading, and one function for its
// host, which describes where the plugin lives and what it runs on.
#include "Ovra.h"
#include "OvraBstr.h"
#include "OvraInet.h"
#include "OvraSystem.h"

namespace {
// The plugin's own path, from SharedLibInit to SharedLibTerm.
TBstr s_fileSpec;
}  // namespace

// Called right after the library is opened. Returning false would refuse the
// load (and the host's Load would fail).
bool SharedLibInit(const TBstr& fileSpec) {
  s_fileSpec = fileSpec;
  return !s_fileSpec.IsEmpty();
}

// Called right before the library is closed: release what the plugin holds
// while the runtime's allocator is still the one that made it.
void SharedLibTerm(void) { s_fileSpec.Empty(); }

// Fills text with a description and returns its length (0 on failure). The
// host finds it with TLibrary::GetProcAddress and casts it to this type.
OVRA_EXTERN_C OVRA_EXPORT int HelloDescribe(TBstr& text) {
  static const unsigned short kLine[] = {'h', 'e', 'l', 'l', 'o', ' ', 'f', 'r', 'o', 'm', ' ',
                                         '%', 's', ' ', 'o', 'n', ' ', '%', 's', ' ', '%', 'd',
                                         '.', '%', 'd', ';', ' ', 'l', 'o', 'o', 'p', 'b', 'a',
                                         'c', 'k', ' ', 'i', 's', ' ', '%', 's', 0};
  SSystemInfo system;
  system.revision = 0;
  OvraGetSystemInfo(&system);
  TBstr loopback;
  OvraInetNtoAEx(0x7F000001, 80, loopback);
  text.Format(kLine, s_fileSpec.GetString(), system.osName.GetString(), system.majorVersion,
              system.minorVersion, loopback.GetString());
  return text.GetLength();
}
