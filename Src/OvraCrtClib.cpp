// OvraCrtClib.cpp - the routines that hand over to the platform's own C runtime:
// its narrow character classes and the search routines with one C signature.
#include <ctype.h>
#include <string.h>

#include "OvraCrt.h"

namespace {
// The C library's class macros index a table: only EOF and the values of an
// unsigned char are valid, so anything else is kept away from it.
inline bool InCtypeRange(int c) { return c >= -1 && c <= 255; }
}  // namespace

int ovra_isalnum(int c) { return InCtypeRange(c) ? isalnum(c) : 0; }

int ovra_isdigit(int c) { return InCtypeRange(c) ? isdigit(c) : 0; }

int ovra_isspace(int c) { return InCtypeRange(c) ? isspace(c) : 0; }

void* x_memchr(const void* s, int c, size_t n) { return const_cast<void*>(memchr(s, c, n)); }

char* x_strchr(const char* s, int c) { return const_cast<char*>(strchr(s, c)); }

char* x_strrchr(const char* s, int c) { return const_cast<char*>(strrchr(s, c)); }
