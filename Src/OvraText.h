// OvraText.h - private interface of the text kernels: the loops behind the
// 16-bit string routines (ucslen, ucscmp, ucsstr, ...) and the UTF-8 and
// single-byte conversions, in several implementations of identical results.
//
// Every implementation is a table of function pointers. The scalar table is
// the reference: plain loops, one unit at a time. The others read eight to
// thirty-two bytes at a time (SSE2 and AVX2 on x86, NEON on aarch64, and a
// portable word-at-a-time version for every other processor) and must give
// exactly what the scalar table gives, for every input. The public routines
// call through TextKernels(), which is the fastest table the processor runs.
//
// Wide loads never touch a page that the scalar loop would not touch: a kernel
// reads either aligned blocks (an aligned block lies in one page, so reading
// it past the terminator cannot fault when one byte of it is part of the
// string) or unaligned blocks that it has checked do not cross into the next
// 4 KiB page (page sizes are multiples of 4 KiB everywhere). Those reads may
// go past the end of the object itself, into memory that the address and
// thread sanitizers track as unallocated or freed, and both would report it:
// the functions that make such reads are therefore built without either
// sanitizer's checks (OVRA_WIDE_LOADS). The bytes read past the terminator
// never decide a result. The scalar reference keeps every check, and the
// tests compare both on buffers placed against an inaccessible page.
#ifndef OVRA_SRC_OVRATEXT_H
#define OVRA_SRC_OVRATEXT_H

#include <stddef.h>
#include <stdint.h>

#if defined(__clang__)
#define OVRA_WIDE_LOADS __attribute__((no_sanitize("address", "hwaddress", "thread")))
#elif defined(__GNUC__)
#define OVRA_WIDE_LOADS __attribute__((no_sanitize_address, no_sanitize_thread))
#else
#define OVRA_WIDE_LOADS
#endif

// One implementation of the kernels. Counts are in units (16-bit characters)
// or bytes as the names say; the argument checks of the public routines (null
// pointers, counts below 1) are made before a kernel is called.
struct STextKernels {
  const char* name;
  // ucslen.
  size_t (*len)(const unsigned short* s);
  // The units before the terminator, at most n (no unit at or past n is read
  // by the scalar loop; wide ones read only within aligned blocks).
  size_t (*nlen)(const unsigned short* s, size_t n);
  // ucschr and ucsrchr.
  unsigned short* (*chr)(const unsigned short* s, unsigned short ch);
  unsigned short* (*rchr)(const unsigned short* s, unsigned short ch);
  // ucscmp, ucsncmp, ucsicmp, ucsnicmp.
  int (*cmp)(const unsigned short* a, const unsigned short* b);
  int (*ncmp)(const unsigned short* a, const unsigned short* b, size_t n);
  int (*icmp)(const unsigned short* a, const unsigned short* b);
  int (*nicmp)(const unsigned short* a, const unsigned short* b, size_t n);
  // ucsstr.
  unsigned short* (*str)(const unsigned short* s, const unsigned short* sub);
  // The UTF-8 bytes needed by s up to its terminator, as a 64-bit count.
  uint64_t (*utf8Len)(const unsigned short* s);
  // OvraStringToUtf8's loop over n >= 1 units into room >= 1 bytes; returns
  // the bytes written.
  size_t (*toUtf8)(const unsigned short* src, size_t n, char* dst, size_t room);
  // OvraUtf8ToString's loop over n >= 1 bytes into room >= 1 units; returns
  // the units written.
  size_t (*fromUtf8)(const unsigned char* src, size_t n, unsigned short* dst, size_t room);
  // n units to ISO-8859-1 bytes ("?" above 255), and n bytes widened.
  void (*toLatin1)(const unsigned short* src, size_t n, char* dst);
  void (*fromLatin1)(const unsigned char* src, size_t n, unsigned short* dst);
};

// The scalar reference, built on every processor.
const STextKernels& TextScalarKernels();
// The word-at-a-time kernels, built on every processor.
const STextKernels& TextSwarKernels();
// The kernels of one instruction set, or null when this build has none for it
// or the processor lacks it (so never runs them).
const STextKernels* TextSse2Kernels();
const STextKernels* TextAvx2Kernels();
const STextKernels* TextNeonKernels();

// The table the library's routines use: the widest the processor supports.
// Set once while the library loads; until then (static constructors of other
// files) the best one that needs no run-time check.
extern const STextKernels* g_textKernels;
inline const STextKernels& TextKernels() { return *g_textKernels; }

// The tables themselves, defined in the files built for each instruction set.
// Only data crosses those files' borders, so no code compiled for a wider
// instruction set can be reached without the check.
extern const STextKernels kTextSse2Kernels;
extern const STextKernels kTextAvx2Kernels;
extern const STextKernels kTextNeonKernels;
extern const bool kTextSse2Built;
extern const bool kTextAvx2Built;
extern const bool kTextNeonBuilt;

#endif
