// OvraSystemNamePS.cpp - Windows names are 16-bit text: a TBstr reaches the
// system's wide calls unit for unit and comes back the same way.
#include "Win32/OvraSystemName.h"

#include <wchar.h>

#include <utility>

static_assert(sizeof(wchar_t) == sizeof(unsigned short),
              "the system's wide characters are the 16-bit units of a TBstr");

const TSystemChar* SystemNameOf(const TBstr& name) {
  const unsigned short* text = name.GetString();
  const int length = name.GetLength();
  if (length <= 0) return nullptr;
  for (int i = 0; i < length; ++i)
    if (text[i] == 0) return nullptr;
  return reinterpret_cast<const wchar_t*>(text);
}

bool BstrFromSystemName(const TSystemChar* text, TBstr& out) {
  const size_t length = wcslen(text);
  if (length == 0) {
    out.Empty();
    return true;
  }
  if (length > 0x7FFFFFFEu) return false;
  TBstr wide(reinterpret_cast<const unsigned short*>(text), static_cast<int>(length));
  if (wide.GetLength() != static_cast<int>(length)) return false;
  out = std::move(wide);
  return true;
}
