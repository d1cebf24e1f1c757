// OvraText.cpp - the scalar reference kernels, the portable word-at-a-time
// kernels and the choice of the table the library uses.
#include "OvraText.h"

#include <string.h>

#if (defined(__x86_64__) || defined(__i386__)) && (defined(__GNUC__) || defined(__clang__))
#include <cpuid.h>
#define OVRA_TEXT_X86 1
#endif

#include "OvraByteOrder.h"
#include "OvraTextGeneric.h"

namespace {

// ---------------------------------------------------------------------------
// The scalar reference: one unit at a time, nothing read ahead.
// ---------------------------------------------------------------------------

size_t ScalarLen(const unsigned short* s) { return PlainLen(s); }

size_t ScalarNLen(const unsigned short* s, size_t n) { return PlainNLen(s, n); }

unsigned short* ScalarChr(const unsigned short* s, unsigned short ch) { return PlainChr(s, ch); }

unsigned short* ScalarRchr(const unsigned short* s, unsigned short ch) { return PlainRchr(s, ch); }

int ScalarCmp(const unsigned short* a, const unsigned short* b) {
  while (*a && *a == *b) {
    ++a;
    ++b;
  }
  return static_cast<int>(*a) - static_cast<int>(*b);
}

int ScalarNCmp(const unsigned short* a, const unsigned short* b, size_t n) {
  for (; n; --n, ++a, ++b) {
    if (*a != *b) return static_cast<int>(*a) - static_cast<int>(*b);
    if (!*a) break;
  }
  return 0;
}

int ScalarICmp(const unsigned short* a, const unsigned short* b) {
  for (;; ++a, ++b) {
    const unsigned short ca = FoldUnit(*a);
    const unsigned short cb = FoldUnit(*b);
    if (ca != cb || !ca) return static_cast<int>(ca) - static_cast<int>(cb);
  }
}

int ScalarNICmp(const unsigned short* a, const unsigned short* b, size_t n) {
  for (; n; --n, ++a, ++b) {
    const unsigned short ca = FoldUnit(*a);
    const unsigned short cb = FoldUnit(*b);
    if (ca != cb) return static_cast<int>(ca) - static_cast<int>(cb);
    if (!ca) break;
  }
  return 0;
}

unsigned short* ScalarStr(const unsigned short* s, const unsigned short* sub) {
  if (!*s) return nullptr;
  if (!*sub) return const_cast<unsigned short*>(s);
  return PlainStr(s, sub);
}

uint64_t ScalarUtf8Len(const unsigned short* s) { return PlainUtf8Len(s); }

size_t ScalarToUtf8(const unsigned short* source, size_t n, char* dest, size_t room) {
  size_t i = 0;
  size_t w = 0;
  // The room test comes once per character, not per byte: a sequence that
  // starts below room is written whole.
  while (i < n && w < room) {
    const unsigned c = source[i];
    if (c < 0x80) {
      dest[w] = static_cast<char>(c);
      w += 1;
    } else if (c < 0x800) {
      dest[w] = static_cast<char>(0xC0 | (c >> 6));
      dest[w + 1] = static_cast<char>(0x80 | (c & 0x3F));
      w += 2;
    } else {
      dest[w] = static_cast<char>(0xE0 | (c >> 12));
      dest[w + 1] = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      dest[w + 2] = static_cast<char>(0x80 | (c & 0x3F));
      w += 3;
    }
    ++i;
  }
  return w;
}

size_t ScalarFromUtf8(const unsigned char* src, size_t n, unsigned short* dest, size_t room) {
  size_t i = 0;
  size_t w = 0;
  while (i < n && w < room) {
    const unsigned b = src[i];
    if (b < 0x80) {
      dest[w] = static_cast<unsigned short>(b);
      i += 1;
    } else {
      // Nothing is validated: any byte with the top bit set is a lead, any
      // next byte a continuation. An incomplete sequence at the end is dropped.
      if (i + 1 >= n) break;
      const unsigned second = src[i + 1];
      if (b & 0x20) {
        if (i + 2 >= n) break;
        const unsigned third = src[i + 2];
        dest[w] = static_cast<unsigned short>(((b & 0x1F) << 12) | ((second & 0x3F) << 6) |
                                              (third & 0x3F));
        i += 3;
      } else {
        dest[w] = static_cast<unsigned short>(((b & 0x1F) << 6) | (second & 0x3F));
        i += 2;
      }
    }
    ++w;
  }
  return w;
}

void ScalarToLatin1(const unsigned short* src, size_t n, char* dst) {
  for (size_t i = 0; i < n; ++i) {
    const unsigned short c = src[i];
    dst[i] = c < 0x100 ? static_cast<char>(c) : '?';
  }
}

void ScalarFromLatin1(const unsigned char* src, size_t n, unsigned short* dst) {
  for (size_t i = 0; i < n; ++i) dst[i] = src[i];
}

const STextKernels kScalar = {
    "scalar",     ScalarLen,     ScalarNLen,     ScalarChr,      ScalarRchr,
    ScalarCmp,    ScalarNCmp,    ScalarICmp,     ScalarNICmp,    ScalarStr,
    ScalarUtf8Len, ScalarToUtf8, ScalarFromUtf8, ScalarToLatin1, ScalarFromLatin1,
};

// ---------------------------------------------------------------------------
// Word at a time: a block is one machine word (two units on 32-bit
// processors, four on 64-bit ones), in the processor's own byte order.
// ---------------------------------------------------------------------------

typedef uintptr_t TWord;
typedef TWord __attribute__((may_alias)) TWordAlias;
typedef TWord __attribute__((may_alias, aligned(1))) TWordUnaligned;

constexpr unsigned kWordBits = sizeof(TWord) * 8;
constexpr TWord kOnes = ~static_cast<TWord>(0) / 0xFFFF;  // 0x0001 in every unit
constexpr TWord kLow15 = kOnes * 0x7FFF;
constexpr TWord kHigh = kOnes * 0x8000;

constexpr bool kBigEndian = !ovra_bytes::kLittleEndian;

inline unsigned CountTrailingZeros(TWord m) {
  return sizeof(TWord) == 8 ? static_cast<unsigned>(__builtin_ctzll(m))
                            : static_cast<unsigned>(__builtin_ctz(static_cast<unsigned>(m)));
}

inline unsigned CountLeadingZeros(TWord m) {
  return sizeof(TWord) == 8 ? static_cast<unsigned>(__builtin_clzll(m))
                            : static_cast<unsigned>(__builtin_clz(static_cast<unsigned>(m)));
}

// Masks keep bit 15 of each unit. In little-endian order the unit at the
// lowest address holds the lowest bits; in big-endian order the highest.
struct VSwar {
  typedef TWord Vec;
  typedef TWord Mask;
  static constexpr size_t kBytes = sizeof(TWord);
  static constexpr unsigned kUnits = sizeof(TWord) / 2;

  OVRA_WIDE_LOADS static Vec LoadA(uintptr_t p) { return *reinterpret_cast<const TWordAlias*>(p); }
  OVRA_WIDE_LOADS static Vec LoadU(uintptr_t p) { return *reinterpret_cast<const TWordUnaligned*>(p); }
  static Vec Zero() { return 0; }
  static Vec Splat(unsigned short c) { return kOnes * c; }
  // Bit 15 set in the units where x is zero: exact, no carry crosses a unit.
  static Vec ZeroUnits(Vec x) { return ~(((x & kLow15) + kLow15) | x) & kHigh; }
  static Vec Eq(Vec a, Vec b) { return ZeroUnits(a ^ b); }
  static Vec Or(Vec a, Vec b) { return a | b; }
  static Vec And(Vec a, Vec b) { return a & b; }
  // "a".."z" less 32: both range tests on the low 15 bits, without carries
  // into the next unit, then only where bit 15 is clear.
  static Vec Fold(Vec x) {
    const Vec low = x & kLow15;
    const Vec atLeastA = low + kOnes * (0x8000 - 'a');
    const Vec aboveZ = low + kOnes * (0x8000 - 'z' - 1);
    const Vec lower = atLeastA & ~aboveZ & ~x & kHigh;
    return x - (lower >> 10);
  }
  static Mask MaskOf(Vec v) { return v; }
  static Mask Full() { return kHigh; }
  static unsigned First(Mask m) {
    return kBigEndian ? CountLeadingZeros(m) / 16 : CountTrailingZeros(m) / 16;
  }
  static unsigned Last(Mask m) {
    return kBigEndian ? (kWordBits - 1 - CountTrailingZeros(m)) / 16
                      : (kWordBits - 1 - CountLeadingZeros(m)) / 16;
  }
  static unsigned Count(Mask m) {
    return static_cast<unsigned>(sizeof(TWord) == 8 ? __builtin_popcountll(m)
                                                    : __builtin_popcount(static_cast<unsigned>(m)));
  }
  static Mask DropBefore(Mask m, unsigned k) {
    if (k == 0) return m;
    return kBigEndian ? m & (~static_cast<TWord>(0) >> (16 * k))
                      : m & (~static_cast<TWord>(0) << (16 * k));
  }
  static Mask KeepBefore(Mask m, unsigned k) {
    if (k >= kUnits) return m;
    if (k == 0) return 0;
    return kBigEndian ? m & ~(~static_cast<TWord>(0) >> (16 * k))
                      : m & ((static_cast<TWord>(1) << (16 * k)) - 1);
  }
  static Mask NextUnit(Mask m) { return kBigEndian ? m << 16 : m >> 16; }
  static bool Has(Mask m, unsigned k) {
    return kBigEndian ? (m >> (kWordBits - 1 - 16 * k)) & 1 : (m >> (16 * k + 15)) & 1;
  }
  static Mask ClearFirst(Mask m) {
    return kBigEndian ? m & ~(static_cast<TWord>(1) << (kWordBits - 1 - CountLeadingZeros(m)))
                      : m & (m - 1);
  }
  static bool AnyStop2(Vec x0, Vec y0, Vec x1, Vec y1) {
    return ((Eq(x0, y0) & Eq(x1, y1)) ^ kHigh) | ZeroUnits(x0) | ZeroUnits(x1);
  }
  static bool AnyStop4(Vec x0, Vec y0, Vec x1, Vec y1, Vec x2, Vec y2, Vec x3, Vec y3) {
    return AnyStop2(x0, y0, x1, y1) || AnyStop2(x2, y2, x3, y3);
  }
  OVRA_WIDE_LOADS static bool AnyZero4(uintptr_t p) {
    const Vec* w = reinterpret_cast<const TWordAlias*>(p);
    return (ZeroUnits(w[0]) | ZeroUnits(w[1]) | ZeroUnits(w[2]) | ZeroUnits(w[3])) != 0;
  }
};

// ASCII runs a word at a time where the byte order lets the units be packed
// with shifts (little-endian); big-endian processors copy them one by one.
OVRA_WIDE_LOADS size_t SwarNarrowRun(const unsigned short* src, size_t limit, char* dst) {
  size_t i = 0;
  if (!kBigEndian) {
    while (i + 4 <= limit) {
      uint64_t v;
      memcpy(&v, src + i, 8);
      if (v & 0xFF80FF80FF80FF80ull) break;
      // Four 16-bit units below 0x80 -> four bytes in the low half.
      v = (v | (v >> 8)) & 0x0000FFFF0000FFFFull;
      v = (v | (v >> 16)) & 0x00000000FFFFFFFFull;
      const uint32_t bytes = static_cast<uint32_t>(v);
      memcpy(dst + i, &bytes, 4);
      i += 4;
    }
  }
  while (i < limit && src[i] < 0x80) {
    dst[i] = static_cast<char>(src[i]);
    ++i;
  }
  return i;
}

size_t SwarWidenRun(const unsigned char* src, size_t limit, unsigned short* dst) {
  size_t i = 0;
  if (!kBigEndian) {
    while (i + 4 <= limit) {
      uint32_t v;
      memcpy(&v, src + i, 4);
      if (v & 0x80808080u) break;
      // Four bytes below 0x80 -> four 16-bit units.
      uint64_t w = v;
      w = (w | (w << 16)) & 0x0000FFFF0000FFFFull;
      w = (w | (w << 8)) & 0x00FF00FF00FF00FFull;
      memcpy(dst + i, &w, 8);
      i += 4;
    }
  }
  while (i < limit && src[i] < 0x80) {
    dst[i] = src[i];
    ++i;
  }
  return i;
}

const STextKernels kSwar = {
    "swar",
    GLen<VSwar>,
    GNLen<VSwar>,
    GChr<VSwar>,
    GRchr<VSwar>,
    GCmp2<VSwar>,
    GNCmp<VSwar>,
    GICmp<VSwar>,
    GNICmp<VSwar>,
    GStr<VSwar>,
    GUtf8Len<VSwar>,
    RunsToUtf8<SwarNarrowRun>,
    RunsFromUtf8<SwarWidenRun>,
    ScalarToLatin1,
    ScalarFromLatin1,
};

#if defined(OVRA_TEXT_X86)
bool CpuHasSse2() {
  unsigned a, b, c, d;
  if (!__get_cpuid(1, &a, &b, &c, &d)) return false;
  return (d & (1u << 26)) != 0;
}

bool CpuHasAvx2() {
  unsigned a, b, c, d;
  if (!__get_cpuid(1, &a, &b, &c, &d)) return false;
  const bool osxsave = (c & (1u << 27)) != 0;
  const bool avx = (c & (1u << 28)) != 0;
  const bool popcnt = (c & (1u << 23)) != 0;
  if (!osxsave || !avx || !popcnt) return false;
  // The system must save the vector registers' upper halves (XCR0 bits 1, 2).
  unsigned lo, hi;
  __asm__ volatile("xgetbv" : "=a"(lo), "=d"(hi) : "c"(0));
  if ((lo & 6u) != 6u) return false;
  if (__get_cpuid_max(0, nullptr) < 7) return false;
  __cpuid_count(7, 0, a, b, c, d);
  const bool avx2 = (b & (1u << 5)) != 0;
  const bool bmi1 = (b & (1u << 3)) != 0;
  const bool bmi2 = (b & (1u << 8)) != 0;
  return avx2 && bmi1 && bmi2;
}
#endif

const STextKernels* ChooseKernels() {
  const STextKernels* best = &kSwar;
  if (TextSse2Kernels()) best = TextSse2Kernels();
  if (TextNeonKernels()) best = TextNeonKernels();
  if (TextAvx2Kernels()) best = TextAvx2Kernels();
  return best;
}

// Runs while the library loads, before any thread of the caller can use it.
struct TChooseKernels {
  TChooseKernels() { g_textKernels = ChooseKernels(); }
} s_chooseKernels;

}  // namespace

const STextKernels* g_textKernels = &kSwar;

const STextKernels& TextScalarKernels() { return kScalar; }

const STextKernels& TextSwarKernels() { return kSwar; }

const STextKernels* TextSse2Kernels() {
#if defined(OVRA_TEXT_X86)
  static const bool ok = kTextSse2Built && CpuHasSse2();
  return ok ? &kTextSse2Kernels : nullptr;
#else
  return nullptr;
#endif
}

const STextKernels* TextAvx2Kernels() {
#if defined(OVRA_TEXT_X86)
  static const bool ok = kTextAvx2Built && CpuHasAvx2();
  return ok ? &kTextAvx2Kernels : nullptr;
#else
  return nullptr;
#endif
}

const STextKernels* TextNeonKernels() {
#if defined(__aarch64__)
  return kTextNeonBuilt ? &kTextNeonKernels : nullptr;
#else
  return nullptr;
#endif
}
