// OvraLibrary.cpp - the portable half of TLibrary: the object's state, the
// preconditions of its operations and the entry-point contract every loaded
// library is held to. The loader itself is reached only through its platform
// layer (OvraLibraryPS.h).
#include "OvraLibrary.h"

#include <utility>

#include "OvraByteName.h"
#include "OvraLibraryPS.h"

namespace {

typedef bool (*SharedLibInitProc)(const TBstr& fileSpec);
typedef void (*SharedLibTermProc)(void);

// An entry point of the contract, only when the library defines it itself: a
// library linked against this runtime would otherwise be handed the
// runtime's own SharedLibInit and SharedLibTerm.
void* LookupEntry(void* handle, const char* name) {
  void* address = InternalLibraryLookup(handle, name);
  return address && InternalLibraryDefines(handle, address) ? address : nullptr;
}

}  // namespace

TLibrary::TLibrary() : m_handle(kInvalidHandleValue) {}

TLibrary::~TLibrary() {
  if (IsLoaded()) Free();
}

bool TLibrary::Load(const TBstr& spec) {
  if (IsLoaded() || spec.IsEmpty()) return false;
  // The copy is made before the library is opened, so that running out of
  // memory cannot leave a library opened (and initialised) without its object.
  TBstr copy(spec);
  if (copy.GetLength() != spec.GetLength()) return false;
  void* handle = LibraryLoad(spec);
  if (handle == kInvalidHandleValue) return false;
  m_handle = handle;
  m_fileSpec = std::move(copy);
  return true;
}

bool TLibrary::Free() {
  if (!IsLoaded()) return false;
  if (!LibraryFree(m_handle)) return false;
  m_handle = kInvalidHandleValue;
  m_fileSpec.Empty();
  return true;
}

OvraProc TLibrary::GetProcAddress(const TBstr& name) const {
  if (!IsLoaded()) return nullptr;
  return LibraryGetProcAddress(m_handle, name);
}

void* TLibrary::LibraryLoad(const TBstr& spec) {
  TBstr initPath;
  void* handle = InternalLibraryOpen(spec, initPath);
  if (handle == kInvalidHandleValue) return kInvalidHandleValue;
  const SharedLibInitProc init =
      reinterpret_cast<SharedLibInitProc>(LookupEntry(handle, "SharedLibInit"));
  if (init && init(initPath)) return handle;
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
  return InternalLibraryClose(handle);
}

OvraProc TLibrary::LibraryGetProcAddress(void* handle, const TBstr& name) {
  if (handle == kInvalidHandleValue) return nullptr;
  // Symbol names are bytes on every system, whatever its file names are.
  const char* text = ByteNameOf(name);
  if (!text) return nullptr;
  return reinterpret_cast<OvraProc>(InternalLibraryLookup(handle, text));
}
