// OvraLibrary.cpp - the portable half of TLibrary: the object's state and the
// preconditions of its operations. The loader itself is reached only through
// the platform layer (LibraryLoad, LibraryFree, LibraryGetProcAddress).
#include "OvraLibrary.h"

#include <utility>

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
