// OvraLibraryPS.cpp - the POSIX half of TLibrary: the dynamic loader (dlopen,
// dlsym, dlclose, with dladdr1/dlinfo to tell where a symbol lives) and
// realpath. Every call into the loader is made in one place below.
#include <dlfcn.h>
#include <limits.h>
#include <link.h>
#include <stdlib.h>
#include <string.h>

#include "OvraLibrary.h"
#include "Unix/OvraSysCalls.h"
#include "Unix/OvraSystemName.h"

namespace {

// Both working buffers: the spec as single-byte text, and the absolute path
// that is opened. Longer text fails the load rather than being cut.
constexpr size_t kPathBufferSize = 1024;

typedef bool (*SharedLibInitProc)(const TBstr& fileSpec);
typedef void (*SharedLibTermProc)(void);

// --- the loader ---------------------------------------------------------------

void* OpenLibrary(const char* path) { return g_ovraSysCalls.dlopen(path, RTLD_LAZY); }

int CloseLibrary(void* handle) { return g_ovraSysCalls.dlclose(handle); }

// The loader's lookup: the library first, then the libraries it depends on.
void* LookupSymbol(void* handle, const char* name) { return g_ovraSysCalls.dlsym(handle, name); }

// True when address lies in the object that handle opened itself rather
// than in one of its dependencies.
bool DefinedByLibrary(void* handle, void* address) {
  link_map* opened = nullptr;
  if (dlinfo(handle, RTLD_DI_LINKMAP, &opened) != 0 || !opened) return false;
  Dl_info info;
  link_map* owner = nullptr;
  if (!dladdr1(address, &info, reinterpret_cast<void**>(&owner), RTLD_DL_LINKMAP)) return false;
  return owner == opened;
}

// An entry point of the contract, only when the library defines it itself: a
// library linked against this runtime would otherwise be handed the
// runtime's own SharedLibInit and SharedLibTerm.
void* LookupEntry(void* handle, const char* name) {
  void* address = LookupSymbol(handle, name);
  return address && DefinedByLibrary(handle, address) ? address : nullptr;
}

}  // namespace

const unsigned short TLibrary::kLibraryExtension[3] = {'s', 'o', 0};

void* TLibrary::LibraryLoad(const TBstr& spec) {
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

  // The path handed to SharedLibInit is made before the library is opened, so
  // that running out of memory never opens a library without initialising it.
  TBstr pathText;
  if (!BstrFromSystemName(path, pathText)) return kInvalidHandleValue;

  void* handle = OpenLibrary(path);
  if (handle == kInvalidHandleValue) return kInvalidHandleValue;
  const SharedLibInitProc init =
      reinterpret_cast<SharedLibInitProc>(LookupEntry(handle, "SharedLibInit"));
  if (init && init(pathText)) return handle;
  // Refused, by the library or for want of its entry: closing it the usual
  // way runs its SharedLibTerm, if it has one.
  LibraryFree(handle);
  return kInvalidHandleValue;
}

bool TLibrary::LibraryFree(void* handle) {
  // A null handle would make the lookups search every loaded library.
  if (handle == kInvalidHandleValue) return false;
  const SharedLibTermProc term =
      reinterpret_cast<SharedLibTermProc>(LookupEntry(handle, "SharedLibTerm"));
  if (term) term();
  return CloseLibrary(handle) != -1;
}

OvraProc TLibrary::LibraryGetProcAddress(void* handle, const TBstr& name) {
  if (handle == kInvalidHandleValue) return nullptr;
  const char* text = SystemNameOf(name);
  if (!text) return nullptr;
  return reinterpret_cast<OvraProc>(LookupSymbol(handle, text));
}
