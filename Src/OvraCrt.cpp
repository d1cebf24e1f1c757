// OvraCrt.cpp - character classes, case folding and the 16-bit string
// routines, the narrow strlcpy/strlcat and the exported ovra_* table.
#include "OvraCrt.h"

#include <ctype.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "OvraFormat.h"
#include "OvraText.h"

// One entry per code unit 0..127. Each is written out so that the table reads
// as the ASCII chart it encodes.
#define OVRA_C kUctypeControl
#define OVRA_S kUctypeSpace
#define OVRA_P kUctypePunct
#define OVRA_D (kUctypeDigit | kUctypeHex)
#define OVRA_UX (kUctypeUpper | kUctypeHex)
#define OVRA_U kUctypeUpper
#define OVRA_LX (kUctypeLower | kUctypeHex)
#define OVRA_L kUctypeLower
const unsigned short uctype_map[128] = {
    // 0x00..0x1F: controls (tab, line feed and the like included)
    OVRA_C, OVRA_C, OVRA_C, OVRA_C, OVRA_C, OVRA_C, OVRA_C, OVRA_C,
    OVRA_C, OVRA_C, OVRA_C, OVRA_C, OVRA_C, OVRA_C, OVRA_C, OVRA_C,
    OVRA_C, OVRA_C, OVRA_C, OVRA_C, OVRA_C, OVRA_C, OVRA_C, OVRA_C,
    OVRA_C, OVRA_C, OVRA_C, OVRA_C, OVRA_C, OVRA_C, OVRA_C, OVRA_C,
    // 0x20..0x2F: blank ! " # $ % & ' ( ) * + , - . /
    OVRA_S, OVRA_P, OVRA_P, OVRA_P, OVRA_P, OVRA_P, OVRA_P, OVRA_P,
    OVRA_P, OVRA_P, OVRA_P, OVRA_P, OVRA_P, OVRA_P, OVRA_P, OVRA_P,
    // 0x30..0x3F: 0..9 : ; < = > ?
    OVRA_D, OVRA_D, OVRA_D, OVRA_D, OVRA_D, OVRA_D, OVRA_D, OVRA_D,
    OVRA_D, OVRA_D, OVRA_P, OVRA_P, OVRA_P, OVRA_P, OVRA_P, OVRA_P,
    // 0x40..0x5F: @ A..Z [ \ ] ^ _
    OVRA_P, OVRA_UX, OVRA_UX, OVRA_UX, OVRA_UX, OVRA_UX, OVRA_UX, OVRA_U,
    OVRA_U, OVRA_U, OVRA_U, OVRA_U, OVRA_U, OVRA_U, OVRA_U, OVRA_U,
    OVRA_U, OVRA_U, OVRA_U, OVRA_U, OVRA_U, OVRA_U, OVRA_U, OVRA_U,
    OVRA_U, OVRA_U, OVRA_U, OVRA_P, OVRA_P, OVRA_P, OVRA_P, OVRA_P,
    // 0x60..0x7F: ` a..z { | } ~ DEL
    OVRA_P, OVRA_LX, OVRA_LX, OVRA_LX, OVRA_LX, OVRA_LX, OVRA_LX, OVRA_L,
    OVRA_L, OVRA_L, OVRA_L, OVRA_L, OVRA_L, OVRA_L, OVRA_L, OVRA_L,
    OVRA_L, OVRA_L, OVRA_L, OVRA_L, OVRA_L, OVRA_L, OVRA_L, OVRA_L,
    OVRA_L, OVRA_L, OVRA_L, OVRA_P, OVRA_P, OVRA_P, OVRA_P, OVRA_C,
};
#undef OVRA_C
#undef OVRA_S
#undef OVRA_P
#undef OVRA_D
#undef OVRA_UX
#undef OVRA_U
#undef OVRA_LX
#undef OVRA_L

namespace {

// Flag bits of the conversion behind ucstol and ucstoul.
constexpr unsigned kConvUnsigned = 1;
constexpr unsigned kConvNegative = 2;
constexpr unsigned kConvOverflow = 4;
constexpr unsigned kConvDigitSeen = 8;

inline int ClassOf(unsigned short ch, int mask) {
  return ch < 128 ? (uctype_map[ch] & mask) : 0;
}

inline unsigned short Upper(unsigned short ch) {
  return (ch >= 'a' && ch <= 'z') ? static_cast<unsigned short>(ch - 32) : ch;
}

inline unsigned short Lower(unsigned short ch) {
  return (ch >= 'A' && ch <= 'Z') ? static_cast<unsigned short>(ch + 32) : ch;
}

// The one text-to-integer conversion. Works on 32 bits whatever the width of
// long, so that both platforms give the same results.
uint32_t ucstoxl(const unsigned short* s, unsigned short** endptr, int base, unsigned flags) {
  const unsigned short* p = s;
  while (ClassOf(*p, kUctypeSpace)) ++p;
  if (*p == '-') {
    flags |= kConvNegative;
    ++p;
  } else if (*p == '+') {
    ++p;
  }
  if (base < 0 || base == 1 || base > 36) {
    if (endptr) *endptr = const_cast<unsigned short*>(s);
    return 0;
  }
  if (base == 0) {
    if (p[0] == '0' && (p[1] == 'x' || p[1] == 'X'))
      base = 16;
    else if (p[0] == '0')
      base = 8;
    else
      base = 10;
  }
  if (base == 16 && p[0] == '0' && (p[1] == 'x' || p[1] == 'X')) p += 2;

  const uint32_t ubase = static_cast<uint32_t>(base);
  const uint32_t limit = 0xFFFFFFFFu / ubase;
  const uint32_t lastDigit = 0xFFFFFFFFu % ubase;
  uint32_t value = 0;
  for (;; ++p) {
    const unsigned short ch = *p;
    uint32_t digit;
    if (ClassOf(ch, kUctypeDigit))
      digit = static_cast<uint32_t>(ch - '0');
    else if (ClassOf(ch, kUctypeAlpha))
      digit = static_cast<uint32_t>(Upper(ch) - 55);
    else
      break;
    if (digit >= ubase) break;
    flags |= kConvDigitSeen;
    if (value < limit || (value == limit && digit <= lastDigit))
      value = value * ubase + digit;
    else
      flags |= kConvOverflow;
  }

  if (!(flags & kConvDigitSeen)) {
    if (endptr) *endptr = const_cast<unsigned short*>(s);
    return 0;
  }
  // The clamp comes before the sign on purpose: callers rely on "-2147483648"
  // giving -2147483647 and on an overflowing negative unsigned text giving 1.
  if ((flags & kConvOverflow) || (!(flags & kConvUnsigned) && value > 0x7FFFFFFFu))
    value = (flags & kConvUnsigned) ? 0xFFFFFFFFu : 0x7FFFFFFFu;
  if (endptr) *endptr = const_cast<unsigned short*>(p);
  if (flags & kConvNegative) value = 0u - value;
  return value;
}

}  // namespace

int isuctype(unsigned short ch, int mask) { return ClassOf(ch, mask); }

unsigned short touupper(unsigned short ch) { return Upper(ch); }

unsigned short toulower(unsigned short ch) { return Lower(ch); }

int ovra_isualnum(unsigned short ch) { return ClassOf(ch, kUctypeAlnum); }

int ovra_isudigit(unsigned short ch) { return ClassOf(ch, kUctypeDigit); }

// The routines whose cost grows with the text run through the text kernels
// (Src/OvraText.h): vector loops where the processor has them, identical in
// result to the scalar reference.

size_t ucslen(const unsigned short* s) { return TextKernels().len(s); }

// The copies find the terminator first, then move the units in one block.
// memmove keeps the result of the unit-by-unit forward copy when dst lies
// before src in the same string.
unsigned short* ucscpy(unsigned short* dst, const unsigned short* src) {
  const size_t n = TextKernels().len(src) + 1;
  memmove(dst, src, n * sizeof(unsigned short));
  return dst;
}

unsigned short* ucsncpy(unsigned short* dst, const unsigned short* src, size_t n) {
  const size_t len = TextKernels().nlen(src, n);
  memmove(dst, src, len * sizeof(unsigned short));
  if (n > len) memset(dst + len, 0, (n - len) * sizeof(unsigned short));
  return dst;
}

unsigned short* ucscat(unsigned short* dst, const unsigned short* src) {
  unsigned short* end = dst + ucslen(dst);
  ucscpy(end, src);
  return end;
}

int ucscmp(const unsigned short* a, const unsigned short* b) { return TextKernels().cmp(a, b); }

int ucsncmp(const unsigned short* a, const unsigned short* b, size_t n) {
  return TextKernels().ncmp(a, b, n);
}

int ucsicmp(const unsigned short* a, const unsigned short* b) { return TextKernels().icmp(a, b); }

int ucsnicmp(const unsigned short* a, const unsigned short* b, size_t n) {
  return TextKernels().nicmp(a, b, n);
}

unsigned short* ucschr(const unsigned short* s, unsigned short ch) {
  return TextKernels().chr(s, ch);
}

unsigned short* ucsrchr(const unsigned short* s, unsigned short ch) {
  return TextKernels().rchr(s, ch);
}

unsigned short* ucspbrk(const unsigned short* s, const unsigned short* set) {
  for (; *s; ++s) {
    for (const unsigned short* c = set; *c; ++c)
      if (*c == *s) return const_cast<unsigned short*>(s);
  }
  return nullptr;
}

unsigned short* ucsstr(const unsigned short* s, const unsigned short* sub) {
  return TextKernels().str(s, sub);
}

long ucstol(const unsigned short* s, unsigned short** endptr, int base) {
  return static_cast<long>(static_cast<int32_t>(ucstoxl(s, endptr, base, 0)));
}

unsigned long ucstoul(const unsigned short* s, unsigned short** endptr, int base) {
  return static_cast<unsigned long>(ucstoxl(s, endptr, base, kConvUnsigned));
}

unsigned short* ucsupr(unsigned short* s) {
  for (unsigned short* p = s; *p; ++p) *p = Upper(*p);
  return s;
}

unsigned short* ucslwr(unsigned short* s) {
  for (unsigned short* p = s; *p; ++p) *p = Lower(*p);
  return s;
}

unsigned short* ucsrev(unsigned short* s) {
  size_t n = ucslen(s);
  for (size_t i = 0; i < n / 2; ++i) {
    const unsigned short t = s[i];
    s[i] = s[n - 1 - i];
    s[n - 1 - i] = t;
  }
  return s;
}

size_t ucslcpy(unsigned short* dst, const unsigned short* src, size_t size) {
  const size_t len = ucslen(src);
  if (size != 0) {
    const size_t n = len < size ? len : size - 1;
    memcpy(dst, src, n * sizeof(unsigned short));
    dst[n] = 0;
  }
  return len;
}

size_t ucslcat(unsigned short* dst, const unsigned short* src, size_t size) {
  // Deliberately unbounded: existing callers keep the length of dst below size.
  const size_t len = ucslen(dst);
  return ucslcpy(dst + len, src, size - len) + len;
}

size_t strlcpy(char* dst, const char* src, size_t size) noexcept {
  const size_t len = strlen(src);
  if (size != 0) {
    const size_t n = len < size ? len : size - 1;
    memcpy(dst, src, n);
    dst[n] = 0;
  }
  return len;
}

size_t strlcat(char* dst, const char* src, size_t size) noexcept {
  // Same unbounded search for the end of dst as ucslcat.
  const size_t len = strlen(dst);
  return strlcpy(dst + len, src, size - len) + len;
}

// The exported table, defined in its documented order; GCC is told not to
// reorder it so the objects also lie in the library's data in that order.
#if defined(__GNUC__) && !defined(__clang__)
#define OVRA_IN_ORDER __attribute__((no_reorder))
#else
#define OVRA_IN_ORDER
#endif
OVRA_IN_ORDER time_t (*ovra_time)(time_t*) = time;
OVRA_IN_ORDER int (*ovra_rand)(void) = rand;
OVRA_IN_ORDER int (*ovra_abs)(int) = abs;
OVRA_IN_ORDER unsigned short (*ovra_touupper)(unsigned short) = touupper;
OVRA_IN_ORDER unsigned short (*ovra_toulower)(unsigned short) = toulower;
OVRA_IN_ORDER int (*ovra_snuprintf)(unsigned short*, size_t, const unsigned short*,
                                    ...) = snuprintf;
OVRA_IN_ORDER size_t (*ovra_ucslcat)(unsigned short*, const unsigned short*, size_t) = ucslcat;
OVRA_IN_ORDER size_t (*ovra_ucslcpy)(unsigned short*, const unsigned short*, size_t) = ucslcpy;
OVRA_IN_ORDER unsigned long (*ovra_ucstoul)(const unsigned short*, unsigned short**,
                                            int) = ucstoul;
OVRA_IN_ORDER long (*ovra_ucstol)(const unsigned short*, unsigned short**, int) = ucstol;
OVRA_IN_ORDER unsigned short* (*ovra_ucsrchr)(const unsigned short*, unsigned short) = ucsrchr;
OVRA_IN_ORDER unsigned short* (*ovra_ucschr)(const unsigned short*, unsigned short) = ucschr;
OVRA_IN_ORDER int (*ovra_ucscmp)(const unsigned short*, const unsigned short*) = ucscmp;
OVRA_IN_ORDER unsigned short* (*ovra_ucscat)(unsigned short*, const unsigned short*) = ucscat;
OVRA_IN_ORDER unsigned short* (*ovra_ucsncpy)(unsigned short*, const unsigned short*,
                                              size_t) = ucsncpy;
OVRA_IN_ORDER unsigned short* (*ovra_ucscpy)(unsigned short*, const unsigned short*) = ucscpy;
OVRA_IN_ORDER size_t (*ovra_ucslen)(const unsigned short*) = ucslen;
OVRA_IN_ORDER size_t (*ovra_strlcat)(char*, const char*, size_t) = strlcat;
OVRA_IN_ORDER size_t (*ovra_strlcpy)(char*, const char*, size_t) = strlcpy;
OVRA_IN_ORDER int (*ovra_toupper)(int) = toupper;
OVRA_IN_ORDER int (*ovra_tolower)(int) = tolower;
OVRA_IN_ORDER unsigned long (*ovra_strtoul)(const char*, char**, int) = strtoul;
OVRA_IN_ORDER long (*ovra_strtol)(const char*, char**, int) = strtol;
OVRA_IN_ORDER char* (*ovra_strrchr)(const char*, int) = x_strrchr;
OVRA_IN_ORDER char* (*ovra_strchr)(const char*, int) = x_strchr;
OVRA_IN_ORDER int (*ovra_strcmp)(const char*, const char*) = strcmp;
OVRA_IN_ORDER char* (*ovra_strcat)(char*, const char*) = strcat;
OVRA_IN_ORDER char* (*ovra_strncpy)(char*, const char*, size_t) = strncpy;
OVRA_IN_ORDER char* (*ovra_strcpy)(char*, const char*) = strcpy;
OVRA_IN_ORDER size_t (*ovra_strlen)(const char*) = strlen;
OVRA_IN_ORDER int (*ovra_sprintf)(char*, const char*, ...) = sprintf;
OVRA_IN_ORDER int (*ovra_snprintf)(char*, size_t, const char*, ...) = snprintf;
OVRA_IN_ORDER void* (*ovra_memchr)(const void*, int, size_t) = x_memchr;
OVRA_IN_ORDER int (*ovra_memcmp)(const void*, const void*, size_t) = memcmp;
OVRA_IN_ORDER void* (*ovra_memmove)(void*, const void*, size_t) = memmove;
OVRA_IN_ORDER void* (*ovra_memcpy)(void*, const void*, size_t) = memcpy;
OVRA_IN_ORDER void* (*ovra_memset)(void*, int, size_t) = memset;
#undef OVRA_IN_ORDER
