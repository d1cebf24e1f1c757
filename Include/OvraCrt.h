// OvraCrt.h - the 16-bit character runtime: ASCII character classes, case
// folding and the string routines for zero-terminated 16-bit text, the narrow
// strlcpy/strlcat, and the exported ovra_* table of runtime function pointers.
//
// A 16-bit character is an unsigned short; strings end with a zero unit and
// every count is in units. No routine here checks a pointer for null: pass
// valid, zero-terminated strings. Nothing reports errors.
#ifndef OVRA_OVRACRT_H
#define OVRA_OVRACRT_H

#include <stddef.h>
#include <time.h>

#include "OvraPlatform.h"

// ---------------------------------------------------------------------------
// Character classes
// ---------------------------------------------------------------------------

// Class bits of uctype_map. Only the blank U+0020 is space: tab, line feed and
// the other white-space controls are control characters here.
constexpr unsigned short kUctypeUpper = 0x0001;    // "A".."Z"
constexpr unsigned short kUctypeLower = 0x0002;    // "a".."z"
constexpr unsigned short kUctypeDigit = 0x0004;    // "0".."9"
constexpr unsigned short kUctypeSpace = 0x0008;    // the blank only
constexpr unsigned short kUctypePunct = 0x0010;    // printable, neither letter nor digit
constexpr unsigned short kUctypeControl = 0x0020;  // U+0000..U+001F and U+007F
constexpr unsigned short kUctypeHex = 0x0080;      // "0".."9", "A".."F", "a".."f"
// Masks: upper, lower or digit (the bit 0x0100 is in no entry) and upper or lower.
constexpr unsigned short kUctypeAlnum = 0x0107;
constexpr unsigned short kUctypeAlpha = 0x0103;

// The class bits of the code units 0..127. Units of 128 and above are in no class.
OVRA_EXTERN_C OVRA_API const unsigned short uctype_map[128];

// 0 when ch is 128 or more, else uctype_map[ch] & mask (non-zero: ch is in one
// of the classes of mask).
OVRA_EXTERN_C OVRA_API int isuctype(unsigned short ch, int mask);
// "a".."z" minus 32; every other unit unchanged (no Latin-1 or other folding).
OVRA_EXTERN_C OVRA_API unsigned short touupper(unsigned short ch);
// "A".."Z" plus 32; every other unit unchanged.
OVRA_EXTERN_C OVRA_API unsigned short toulower(unsigned short ch);
// isuctype(ch, kUctypeAlnum): non-zero for ASCII letters and digits only.
OVRA_EXTERN_C OVRA_API int ovra_isualnum(unsigned short ch);
// isuctype(ch, kUctypeDigit): non-zero for "0".."9" only.
OVRA_EXTERN_C OVRA_API int ovra_isudigit(unsigned short ch);
// The platform's own narrow class of c (letter or digit, in the current C
// locale). Values outside -1..255 are in no class and give 0.
OVRA_EXTERN_C OVRA_API int ovra_isalnum(int c);
// The platform's own narrow digit class; 0 outside -1..255.
OVRA_EXTERN_C OVRA_API int ovra_isdigit(int c);
// The platform's own narrow space class: unlike kUctypeSpace, tab, line feed,
// vertical tab, form feed and carriage return count. 0 outside -1..255.
OVRA_EXTERN_C OVRA_API int ovra_isspace(int c);

// ---------------------------------------------------------------------------
// 16-bit string routines
// ---------------------------------------------------------------------------

// Number of units before the terminator.
OVRA_EXTERN_C OVRA_API size_t ucslen(const unsigned short* s);
// Copies src with its terminator into dst; returns dst.
OVRA_EXTERN_C OVRA_API unsigned short* ucscpy(unsigned short* dst, const unsigned short* src);
// Copies at most n units; when src is shorter the rest of the n units is zero,
// when src has n units or more dst is left unterminated. Returns dst.
OVRA_EXTERN_C OVRA_API unsigned short* ucsncpy(unsigned short* dst, const unsigned short* src,
                                               size_t n);
// Appends src at the terminator of dst. Returns the position where src was
// written (the old terminator), not dst as strcat would.
OVRA_EXTERN_C OVRA_API unsigned short* ucscat(unsigned short* dst, const unsigned short* src);
// Compares unit by unit as unsigned values: the first differing units'
// difference (a minus b), 0 when equal.
OVRA_EXTERN_C OVRA_API int ucscmp(const unsigned short* a, const unsigned short* b);
// ucscmp over at most n units; n of 0 gives 0.
OVRA_EXTERN_C OVRA_API int ucsncmp(const unsigned short* a, const unsigned short* b, size_t n);
// ucscmp after touupper on each unit (only ASCII letters fold); the difference
// is of the folded units.
OVRA_EXTERN_C OVRA_API int ucsicmp(const unsigned short* a, const unsigned short* b);
// ucsicmp over at most n units; n of 0 gives 0.
OVRA_EXTERN_C OVRA_API int ucsnicmp(const unsigned short* a, const unsigned short* b, size_t n);
// First position of ch in s, or null; ch of 0 finds the terminator.
OVRA_EXTERN_C OVRA_API unsigned short* ucschr(const unsigned short* s, unsigned short ch);
// Last position of ch in s, or null; ch of 0 finds the terminator.
OVRA_EXTERN_C OVRA_API unsigned short* ucsrchr(const unsigned short* s, unsigned short ch);
// First position in s of any unit of set, or null (always null when s or set is empty).
OVRA_EXTERN_C OVRA_API unsigned short* ucspbrk(const unsigned short* s,
                                               const unsigned short* set);
// First position where sub occurs in s, or null. An empty s gives null even
// for an empty sub; an empty sub in a non-empty s gives s.
OVRA_EXTERN_C OVRA_API unsigned short* ucsstr(const unsigned short* s, const unsigned short* sub);
// Signed conversion with 32-bit rules on every platform. Skips blanks (U+0020
// only: a leading tab stops the conversion), takes one optional sign, then
// digits of base 2..36 (0: "0x"/"0X" gives 16, a leading "0" gives 8, else 10;
// base 16 skips a "0x" prefix). Without digits, or for a base below 0, of 1
// or above 36, returns 0 and stores s itself (not the position after blanks
// and sign) in *endptr. Otherwise *endptr is the first unused unit. Values
// above 2147483647 are clamped to it before the sign is applied, so
// "-2147483648" gives -2147483647. endptr may be null.
OVRA_EXTERN_C OVRA_API long ucstol(const unsigned short* s, unsigned short** endptr, int base);
// Unsigned conversion, parsed as ucstol. Values above 4294967295 are clamped to
// it, then a "-" negates modulo 2^32: "-5" gives 4294967291 and
// "-99999999999" gives 1. The result never exceeds 4294967295.
OVRA_EXTERN_C OVRA_API unsigned long ucstoul(const unsigned short* s, unsigned short** endptr,
                                             int base);
// touupper on every unit in place; returns s.
OVRA_EXTERN_C OVRA_API unsigned short* ucsupr(unsigned short* s);
// toulower on every unit in place; returns s.
OVRA_EXTERN_C OVRA_API unsigned short* ucslwr(unsigned short* s);
// Reverses the units of s in place (the terminator stays); returns s.
OVRA_EXTERN_C OVRA_API unsigned short* ucsrev(unsigned short* s);
// Copies at most size - 1 units and terminates dst when size is not 0 (size 0
// writes nothing). Returns ucslen(src); a result >= size means truncation.
OVRA_EXTERN_C OVRA_API size_t ucslcpy(unsigned short* dst, const unsigned short* src,
                                      size_t size);
// Finds the end of dst without any bound (len), then returns
// ucslcpy(dst + len, src, size - len) + len. Unlike the classic strlcat the
// search is unbounded: if dst already holds size units or more, size - len
// wraps round and the copy is unbounded, so keep ucslen(dst) below size.
OVRA_EXTERN_C OVRA_API size_t ucslcat(unsigned short* dst, const unsigned short* src,
                                      size_t size);

// ---------------------------------------------------------------------------
// Narrow routines
// ---------------------------------------------------------------------------

// ucslcpy on bytes: copies at most size - 1 bytes, terminates when size is not
// 0, returns strlen(src). (noexcept matches C libraries that declare it too.)
OVRA_EXTERN_C OVRA_API size_t strlcpy(char* dst, const char* src, size_t size) noexcept;
// ucslcat on bytes, the unbounded search for the end of dst included: keep
// strlen(dst) below size. Returns strlen(dst) + strlen(src) as they were.
OVRA_EXTERN_C OVRA_API size_t strlcat(char* dst, const char* src, size_t size) noexcept;
// The platform's memchr, with one C signature.
OVRA_EXTERN_C OVRA_API void* x_memchr(const void* s, int c, size_t n);
// The platform's strchr, with one C signature.
OVRA_EXTERN_C OVRA_API char* x_strchr(const char* s, int c);
// The platform's strrchr, with one C signature.
OVRA_EXTERN_C OVRA_API char* x_strrchr(const char* s, int c);

// ---------------------------------------------------------------------------
// The ovra_* table
// ---------------------------------------------------------------------------

// Writable, exported pointers through which application code reaches these
// routines and the platform's standard ones under one set of names. Each starts
// at the routine named in its comment; an application may point one elsewhere,
// but the library itself never calls through them (it calls the routines
// directly), so replacing one changes nothing inside the library. They lie in
// the library's data in this order.
OVRA_EXTERN_C OVRA_API time_t (*ovra_time)(time_t* t);  // platform time
OVRA_EXTERN_C OVRA_API int (*ovra_rand)(void);           // platform rand
OVRA_EXTERN_C OVRA_API int (*ovra_abs)(int n);           // platform abs
OVRA_EXTERN_C OVRA_API unsigned short (*ovra_touupper)(unsigned short ch);  // touupper
OVRA_EXTERN_C OVRA_API unsigned short (*ovra_toulower)(unsigned short ch);  // toulower
OVRA_EXTERN_C OVRA_API int (*ovra_snuprintf)(unsigned short* buffer, size_t size,
                                             const unsigned short* format, ...);  // snuprintf
OVRA_EXTERN_C OVRA_API size_t (*ovra_ucslcat)(unsigned short* dst, const unsigned short* src,
                                              size_t size);  // ucslcat
OVRA_EXTERN_C OVRA_API size_t (*ovra_ucslcpy)(unsigned short* dst, const unsigned short* src,
                                              size_t size);  // ucslcpy
OVRA_EXTERN_C OVRA_API unsigned long (*ovra_ucstoul)(const unsigned short* s,
                                                     unsigned short** endptr,
                                                     int base);  // ucstoul
OVRA_EXTERN_C OVRA_API long (*ovra_ucstol)(const unsigned short* s, unsigned short** endptr,
                                           int base);  // ucstol
OVRA_EXTERN_C OVRA_API unsigned short* (*ovra_ucsrchr)(const unsigned short* s,
                                                       unsigned short ch);  // ucsrchr
OVRA_EXTERN_C OVRA_API unsigned short* (*ovra_ucschr)(const unsigned short* s,
                                                      unsigned short ch);  // ucschr
OVRA_EXTERN_C OVRA_API int (*ovra_ucscmp)(const unsigned short* a,
                                          const unsigned short* b);  // ucscmp
OVRA_EXTERN_C OVRA_API unsigned short* (*ovra_ucscat)(unsigned short* dst,
                                                      const unsigned short* src);  // ucscat
OVRA_EXTERN_C OVRA_API unsigned short* (*ovra_ucsncpy)(unsigned short* dst,
                                                       const unsigned short* src,
                                                       size_t n);  // ucsncpy
OVRA_EXTERN_C OVRA_API unsigned short* (*ovra_ucscpy)(unsigned short* dst,
                                                      const unsigned short* src);  // ucscpy
OVRA_EXTERN_C OVRA_API size_t (*ovra_ucslen)(const unsigned short* s);  // ucslen
OVRA_EXTERN_C OVRA_API size_t (*ovra_strlcat)(char* dst, const char* src,
                                              size_t size);  // strlcat
OVRA_EXTERN_C OVRA_API size_t (*ovra_strlcpy)(char* dst, const char* src,
                                              size_t size);  // strlcpy
OVRA_EXTERN_C OVRA_API int (*ovra_toupper)(int c);  // platform toupper
OVRA_EXTERN_C OVRA_API int (*ovra_tolower)(int c);  // platform tolower
OVRA_EXTERN_C OVRA_API unsigned long (*ovra_strtoul)(const char* s, char** endptr,
                                                     int base);  // platform strtoul
OVRA_EXTERN_C OVRA_API long (*ovra_strtol)(const char* s, char** endptr,
                                           int base);  // platform strtol
OVRA_EXTERN_C OVRA_API char* (*ovra_strrchr)(const char* s, int c);  // x_strrchr
OVRA_EXTERN_C OVRA_API char* (*ovra_strchr)(const char* s, int c);   // x_strchr
OVRA_EXTERN_C OVRA_API int (*ovra_strcmp)(const char* a, const char* b);  // platform strcmp
OVRA_EXTERN_C OVRA_API char* (*ovra_strcat)(char* dst, const char* src);  // platform strcat
OVRA_EXTERN_C OVRA_API char* (*ovra_strncpy)(char* dst, const char* src,
                                             size_t n);  // platform strncpy
OVRA_EXTERN_C OVRA_API char* (*ovra_strcpy)(char* dst, const char* src);  // platform strcpy
OVRA_EXTERN_C OVRA_API size_t (*ovra_strlen)(const char* s);  // platform strlen
OVRA_EXTERN_C OVRA_API int (*ovra_sprintf)(char* buffer, const char* format,
                                           ...);  // platform sprintf
OVRA_EXTERN_C OVRA_API int (*ovra_snprintf)(char* buffer, size_t size, const char* format,
                                            ...);  // platform snprintf
OVRA_EXTERN_C OVRA_API void* (*ovra_memchr)(const void* s, int c, size_t n);  // x_memchr
OVRA_EXTERN_C OVRA_API int (*ovra_memcmp)(const void* a, const void* b,
                                          size_t n);  // platform memcmp
OVRA_EXTERN_C OVRA_API void* (*ovra_memmove)(void* dst, const void* src,
                                             size_t n);  // platform memmove
OVRA_EXTERN_C OVRA_API void* (*ovra_memcpy)(void* dst, const void* src,
                                            size_t n);  // platform memcpy
OVRA_EXTERN_C OVRA_API void* (*ovra_memset)(void* s, int c, size_t n);  // platform memset

#endif
