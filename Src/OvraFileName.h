// OvraFileName.h - private: whether a TBstr can be handed to the system as a
// file name or pattern without changing it.
#ifndef OVRA_SRC_OVRAFILENAME_H
#define OVRA_SRC_OVRAFILENAME_H

#include "OvraBstr.h"

// The single-byte form of a TBstr replaces characters above 255 by "?" and
// ends at the first zero character, so it would name a different file (the
// file "a?" for "a" U+0100, "a" for "a", zero, "b"). Such a name is refused
// instead: true when every character is 1..255. The empty string passes (the
// system itself refuses it).
inline bool IsSystemName(const TBstr& name) {
  const unsigned short* text = name.GetString();
  const int length = name.GetLength();
  for (int i = 0; i < length; ++i)
    if (text[i] == 0 || text[i] > 255) return false;
  return true;
}

#endif
