// OvraByteName.cpp - one rule for every name the system takes as bytes, so that
// a file name on POSIX and a symbol name on any system are refused alike.
#include "OvraByteName.h"

const char* ByteNameOf(const TBstr& name) {
  const unsigned short* text = name.GetString();
  const int length = name.GetLength();
  if (length <= 0) return nullptr;
  for (int i = 0; i < length; ++i)
    if (text[i] == 0 || text[i] > 255) return nullptr;
  const char* narrow = name.GetMultibyteString();
  return *narrow ? narrow : nullptr;  // "" when the copy could not be made
}
