// OvraBstrLatin1.cpp - the single-byte text conversions, the same on every
// platform: no code page of the system is consulted, single-byte text is
// ISO-8859-1, widened and narrowed unit for byte.
#include <string.h>

#include "OvraBstr.h"
#include "OvraCrt.h"
#include "OvraText.h"

namespace {
// Resolves a count of -1 to the length of a zero-terminated text plus its
// terminator, bounded to what an int count can carry.
int CountWithTerminator(size_t length) {
  return length >= 0x7FFFFFFFu ? 0x7FFFFFFF : static_cast<int>(length + 1);
}
}  // namespace

int OvraUnicodeToMultibyte(const unsigned short* source, int count, char* dest, int size) {
  if (!source || !dest) return 0;
  if (count == -1) count = CountWithTerminator(ucslen(source));
  if (count < 1 || size < 1) return 0;
  const int n = count < size ? count : size;
  TextKernels().toLatin1(source, static_cast<size_t>(n), dest);
  return n;
}

int OvraMultibyteToUnicode(const char* source, int count, unsigned short* dest, int size) {
  if (!source || !dest) return 0;
  if (count == -1) count = CountWithTerminator(strlen(source));
  if (count < 1 || size < 1) return 0;
  const int n = count < size ? count : size;
  TextKernels().fromLatin1(reinterpret_cast<const unsigned char*>(source), static_cast<size_t>(n),
                           dest);
  return n;
}
