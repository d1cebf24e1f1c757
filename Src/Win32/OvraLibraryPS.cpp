// OvraLibraryPS.cpp - the Windows half of TLibrary: the system's loader
// (LoadLibraryExW, GetProcAddress, FreeLibrary, with GetModuleHandleExW to
// tell where a symbol lives) and GetFullPathNameW, nothing else.
#include <windows.h>

#include <string.h>

#include "OvraLibrary.h"
#include "Win32/OvraSysCalls.h"
#include "Win32/OvraSystemName.h"

namespace {

// Both working buffers, in 16-bit units: the spec, and the absolute path that
// is opened. Longer text fails the load rather than being cut.
constexpr size_t kPathBufferSize = 1024;

typedef bool (*SharedLibInitProc)(const TBstr& fileSpec);
typedef void (*SharedLibTermProc)(void);

HMODULE Module(void* handle) { return static_cast<HMODULE>(handle); }

// The address of an export, or null.
void* LookupSymbol(void* handle, const char* name) {
  return reinterpret_cast<void*>(g_ovraSysCalls.GetProcAddress(Module(handle), name));
}

// True when address lies in the module that handle opened itself; an export
// forwarded to another module (this runtime, say) does not count.
bool DefinedByLibrary(void* handle, void* address) {
  HMODULE owner = nullptr;
  if (!GetModuleHandleExW(
          GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
          static_cast<const wchar_t*>(address), &owner))
    return false;
  return owner == Module(handle);
}

// An entry point of the contract, only when the library defines it itself.
void* LookupEntry(void* handle, const char* name) {
  void* address = LookupSymbol(handle, name);
  return address && DefinedByLibrary(handle, address) ? address : nullptr;
}

}  // namespace

const unsigned short TLibrary::kLibraryExtension[4] = {'d', 'l', 'l', 0};

void* TLibrary::LibraryLoad(const TBstr& spec) {
  // Split the spec at its last "/" into directory and file name; without a
  // "/" the directory is the current one, so the loader's search path is
  // never consulted.
  const wchar_t* name = SystemNameOf(spec);
  if (!name) return kInvalidHandleValue;
  wchar_t specText[kPathBufferSize];
  const size_t specLength = wcslen(name);
  if (specLength >= kPathBufferSize) return kInvalidHandleValue;
  memcpy(specText, name, (specLength + 1) * sizeof(wchar_t));
  const wchar_t* directory = L"./";
  const wchar_t* fileName = specText;
  if (wchar_t* slash = wcsrchr(specText, L'/')) {
    *slash = 0;
    directory = specText;  // empty for "/x.dll": refused below, as on POSIX
    fileName = slash + 1;
  }
  if (*directory == 0) return kInvalidHandleValue;

  // The directory made absolute; it must exist and be a directory.
  wchar_t resolved[kPathBufferSize];
  const DWORD directoryLength =
      g_ovraSysCalls.GetFullPathNameW(directory, kPathBufferSize, resolved, nullptr);
  if (directoryLength == 0 || directoryLength >= kPathBufferSize) return kInvalidHandleValue;
  WIN32_FILE_ATTRIBUTE_DATA data;
  if (!g_ovraSysCalls.GetFileAttributesExW(resolved, GetFileExInfoStandard, &data) ||
      !(data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY))
    return kInvalidHandleValue;
  const size_t nameLength = wcslen(fileName);
  const wchar_t last = directoryLength > 0 ? resolved[directoryLength - 1] : 0;
  const size_t separatorLength = last == L'\\' || last == L'/' ? 0 : 1;
  if (directoryLength + separatorLength + nameLength >= kPathBufferSize)
    return kInvalidHandleValue;
  // The loader takes "\" only; SharedLibInit receives the path with "/", the
  // library's separator. The loader's path has room for one more unit.
  wchar_t path[kPathBufferSize + 1];
  wchar_t initPath[kPathBufferSize];
  memcpy(path, resolved, directoryLength * sizeof(wchar_t));
  if (separatorLength) path[directoryLength] = L'\\';
  memcpy(path + directoryLength + separatorLength, fileName, (nameLength + 1) * sizeof(wchar_t));
  size_t pathLength = 0;
  for (;; ++pathLength) {
    if (path[pathLength] == L'/') path[pathLength] = L'\\';
    initPath[pathLength] = path[pathLength] == L'\\' ? L'/' : path[pathLength];
    if (path[pathLength] == 0) break;
  }
  // The loader adds ".dll" to a file name without a dot; a final dot, which
  // names no part of the file, makes it open the name as given.
  if (!wcschr(fileName, L'.')) {
    path[pathLength] = L'.';
    path[pathLength + 1] = 0;
  }

  // The path handed to SharedLibInit is made before the library is opened, so
  // that running out of memory never opens a library without initialising it.
  TBstr pathText;
  if (!BstrFromSystemName(initPath, pathText)) return kInvalidHandleValue;

  // With an absolute path the libraries it depends on are looked for beside
  // it first, as its own folder is where they are installed.
  HMODULE module = g_ovraSysCalls.LoadLibraryExW(path, nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
  if (!module) return kInvalidHandleValue;
  void* handle = module;
  const SharedLibInitProc init =
      reinterpret_cast<SharedLibInitProc>(LookupEntry(handle, "SharedLibInit"));
  if (init && init(pathText)) return handle;
  // Refused, by the library or for want of its entry: closing it the usual
  // way runs its SharedLibTerm, if it has one.
  LibraryFree(handle);
  return kInvalidHandleValue;
}

bool TLibrary::LibraryFree(void* handle) {
  if (handle == kInvalidHandleValue) return false;
  const SharedLibTermProc term =
      reinterpret_cast<SharedLibTermProc>(LookupEntry(handle, "SharedLibTerm"));
  if (term) term();
  return g_ovraSysCalls.FreeLibrary(Module(handle)) != 0;
}

OvraProc TLibrary::LibraryGetProcAddress(void* handle, const TBstr& name) {
  if (handle == kInvalidHandleValue) return nullptr;
  // Export names are bytes: the POSIX rule for symbol names applies.
  const char* text = SystemByteNameOf(name);
  if (!text) return nullptr;
  return reinterpret_cast<OvraProc>(LookupSymbol(handle, text));
}
