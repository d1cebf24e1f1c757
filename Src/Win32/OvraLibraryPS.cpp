// OvraLibraryPS.cpp - the Windows half of TLibrary: the system's loader
// (LoadLibraryExW, GetProcAddress, FreeLibrary, with GetModuleHandleExW to
// tell where a symbol lives) and GetFullPathNameW, nothing else.
#include <windows.h>

#include <string.h>

#include "OvraLibrary.h"
#include "OvraLibraryPS.h"
#include "Win32/OvraSysCalls.h"
#include "Win32/OvraSystemName.h"

namespace {

// Both working buffers, in 16-bit units: the spec, and the absolute path that
// is opened. Longer text fails the load rather than being cut.
constexpr size_t kPathBufferSize = 1024;

HMODULE Module(void* handle) { return static_cast<HMODULE>(handle); }

}  // namespace

const unsigned short TLibrary::kLibraryExtension[4] = {'d', 'l', 'l', 0};

void* InternalLibraryOpen(const TBstr& spec, TBstr& initPath) {
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
  wchar_t initText[kPathBufferSize];
  memcpy(path, resolved, directoryLength * sizeof(wchar_t));
  if (separatorLength) path[directoryLength] = L'\\';
  memcpy(path + directoryLength + separatorLength, fileName, (nameLength + 1) * sizeof(wchar_t));
  size_t pathLength = 0;
  for (;; ++pathLength) {
    if (path[pathLength] == L'/') path[pathLength] = L'\\';
    initText[pathLength] = path[pathLength] == L'\\' ? L'/' : path[pathLength];
    if (path[pathLength] == 0) break;
  }
  // The loader adds ".dll" to a file name without a dot; a final dot, which
  // names no part of the file, makes it open the name as given.
  if (!wcschr(fileName, L'.')) {
    path[pathLength] = L'.';
    path[pathLength + 1] = 0;
  }

  // The text for SharedLibInit comes first: out of memory, nothing is opened.
  if (!BstrFromSystemName(initText, initPath)) return kInvalidHandleValue;

  // With an absolute path the libraries it depends on are looked for beside
  // it first, as its own folder is where they are installed.
  return g_ovraSysCalls.LoadLibraryExW(path, nullptr, LOAD_WITH_ALTERED_SEARCH_PATH);
}

bool InternalLibraryClose(void* handle) { return g_ovraSysCalls.FreeLibrary(Module(handle)) != 0; }

// The address of an export, or null.
void* InternalLibraryLookup(void* handle, const char* name) {
  return reinterpret_cast<void*>(g_ovraSysCalls.GetProcAddress(Module(handle), name));
}

bool InternalLibraryDefines(void* handle, void* address) {
  HMODULE owner = nullptr;
  if (!GetModuleHandleExW(
          GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
          static_cast<const wchar_t*>(address), &owner))
    return false;
  return owner == Module(handle);
}
