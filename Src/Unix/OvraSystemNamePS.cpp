// OvraSystemNamePS.cpp - POSIX names are byte strings: 16-bit text is narrowed
// to ISO-8859-1 for the system and widened back byte for byte.
#include "Unix/OvraSystemName.h"

#include <string.h>

#include <utility>

#include "OvraByteName.h"
#include "OvraMem.h"

namespace {
// Work area for widening one name on the stack; longer names use the heap.
constexpr int kStackNameUnits = 256;
}  // namespace

const TSystemChar* SystemNameOf(const TBstr& name) { return ByteNameOf(name); }

bool BstrFromSystemName(const TSystemChar* text, TBstr& out) {
  const size_t length = strlen(text);
  if (length == 0) {
    out.Empty();
    return true;
  }
  if (length > 0x7FFFFFFEu) return false;
  unsigned short stackArea[kStackNameUnits];
  unsigned short* area = stackArea;
  if (length > static_cast<size_t>(kStackNameUnits)) {
    area = static_cast<unsigned short*>(OvraMemAlloc(length * sizeof(unsigned short)));
    if (!area) return false;
  }
  for (size_t i = 0; i < length; ++i) area[i] = static_cast<unsigned char>(text[i]);
  TBstr wide(area, static_cast<int>(length));
  if (area != stackArea) OvraMemFree(area);
  if (wide.GetLength() != static_cast<int>(length)) return false;
  out = std::move(wide);
  return true;
}
