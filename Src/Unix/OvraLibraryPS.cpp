// OvraLibraryPS.cpp - the POSIX half of TLibrary: the dynamic loader (dlopen,
// dlsym, dlclose, with dladdr1/dlinfo to tell where a symbol lives) and
// realpath, nothing else. Every call into the loader is made in one place below.
#include <dlfcn.h>
#include <limits.h>
#include <link.h>
#include <stdlib.h>
#include <string.h>

#include "OvraLibrary.h"
#include "OvraLibraryPS.h"
#include "Unix/OvraSysCalls.h"
#include "Unix/OvraSystemName.h"

namespace {

// Both working buffers: the spec as single-byte text, and the absolute path
// that is opened. Longer text fails the load rather than being cut.
constexpr size_t kPathBufferSize = 1024;

}  // namespace

const unsigned short TLibrary::kLibraryExtension[3] = {'s', 'o', 0};

void* InternalLibraryOpen(const TBstr& spec, TBstr& initPath) {
  // Split the spec at its last "/" into directory and file name; without a
  // "/" the directory is the current one, so the loader's search path is
  // never consulted.
  const char* name = SystemNameOf(spec);
  if (!name) return kInvalidHandleValue;
  char specText[kPathBufferSize];
  const size_t specLength = strlen(name);
  if (specLength >= sizeof specText) return kInvalidHandleValue;
  memcpy(specText, name, specLength + 1);
  const char* directory = "./";
  const char* fileName = specText;
  if (char* slash = strrchr(specText, '/')) {
    *slash = 0;
    directory = specText;  // empty for "/libx.so": realpath refuses it
    fileName = slash + 1;
  }

  // realpath writes up to PATH_MAX bytes, so it gets a buffer of that size;
  // the path built from it must still fit the working buffer.
  char resolved[PATH_MAX];
  if (!g_ovraSysCalls.realpath(directory, resolved)) return kInvalidHandleValue;
  const size_t directoryLength = strlen(resolved);
  const size_t nameLength = strlen(fileName);
  // realpath ends a path with "/" only for the root, which needs no second one.
  const size_t separatorLength =
      directoryLength > 0 && resolved[directoryLength - 1] == '/' ? 0 : 1;
  if (directoryLength + separatorLength + nameLength >= kPathBufferSize)
    return kInvalidHandleValue;
  char path[kPathBufferSize];
  memcpy(path, resolved, directoryLength);
  if (separatorLength) path[directoryLength] = '/';
  memcpy(path + directoryLength + separatorLength, fileName, nameLength + 1);

  // The text for SharedLibInit comes first: out of memory, nothing is opened.
  if (!BstrFromSystemName(path, initPath)) return kInvalidHandleValue;
  return g_ovraSysCalls.dlopen(path, RTLD_LAZY);
}

bool InternalLibraryClose(void* handle) { return g_ovraSysCalls.dlclose(handle) != -1; }

// The loader's lookup: the library first, then the libraries it depends on.
void* InternalLibraryLookup(void* handle, const char* name) {
  return g_ovraSysCalls.dlsym(handle, name);
}

bool InternalLibraryDefines(void* handle, void* address) {
  link_map* opened = nullptr;
  if (dlinfo(handle, RTLD_DI_LINKMAP, &opened) != 0 || !opened) return false;
  Dl_info info;
  link_map* owner = nullptr;
  if (!dladdr1(address, &info, reinterpret_cast<void**>(&owner), RTLD_DL_LINKMAP)) return false;
  return owner == opened;
}
