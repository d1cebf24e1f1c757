// ovra_plugin_host - loads a plugin through TLibrary, calls the function it
// exports and unloads it. Usage: ovra_plugin_host [plugin-file]; without an
// argument it loads the example plugin built beside it. Exits with 0 only
// when every step worked.
#include <stdio.h>

#include "Ovra.h"
#include "OvraBstr.h"
#include "OvraLibrary.h"

// The type of the plugin's HelloDescribe.
typedef int (*HelloDescribeProc)(TBstr& text);

// GetProcAddress returns a function of no arguments; the caller casts it to the
// real type, through void (*)(void) so that compilers do not take the cast for
// a mistake.
template <typename Proc>
Proc ProcCast(OvraProc address) {
  return reinterpret_cast<Proc>(reinterpret_cast<void (*)(void)>(address));
}

int main(int argc, char** argv) {
  const char* plugin = argc > 1 ? argv[1] : OVRA_EXAMPLE_PLUGIN;
  if (!OvraInitialize(nullptr)) {
    fprintf(stderr, "ovra_plugin_host: the library did not start\n");
    return 1;
  }
  int status = 1;
  {
    TLibrary library;
    if (!library.Load(TBstr(plugin))) {
      // Missing file or folder, not a library, or a library whose
      // SharedLibInit is missing or refused the load.
      fprintf(stderr, "ovra_plugin_host: could not load %s\n", plugin);
    } else {
      printf("loaded %s\n", library.GetFileSpec().GetMultibyteString());
      const HelloDescribeProc describe =
          ProcCast<HelloDescribeProc>(library.GetProcAddress(TBstr("HelloDescribe")));
      TBstr text;
      if (!describe) {
        fprintf(stderr, "ovra_plugin_host: the plugin exports no HelloDescribe\n");
      } else if (describe(text) > 0) {
        printf("%s\n", text.GetMultibyteString());
        status = 0;
      } else {
        fprintf(stderr, "ovra_plugin_host: the plugin could not describe itself\n");
      }
      if (!library.Free()) {
        fprintf(stderr, "ovra_plugin_host: could not unload the plugin\n");
        status = 1;
      } else {
        printf("plugin unloaded\n");
      }
    }
  }
  OvraUninitialize();
  return status;
}
