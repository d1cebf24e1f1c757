// OvraTextSse2.cpp - the text kernels over 16-byte SSE2 blocks. Always
// available on x86-64; on 32-bit x86 this file alone is built with SSE2 and
// its table is used only when the processor reports SSE2.
#include "OvraText.h"

#if defined(__SSE2__)

#include <emmintrin.h>

#include "OvraTextGeneric.h"

namespace {

// Masks come from movemask: two bits per unit.
struct VSse2 {
  typedef __m128i Vec;
  typedef unsigned Mask;
  static constexpr size_t kBytes = 16;
  static constexpr unsigned kUnits = 8;

  OVRA_WIDE_LOADS static Vec LoadA(uintptr_t p) { return _mm_load_si128(reinterpret_cast<const __m128i*>(p)); }
  OVRA_WIDE_LOADS static Vec LoadU(uintptr_t p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }
  static Vec Zero() { return _mm_setzero_si128(); }
  static Vec Splat(unsigned short c) { return _mm_set1_epi16(static_cast<short>(c)); }
  static Vec Eq(Vec a, Vec b) { return _mm_cmpeq_epi16(a, b); }
  static Vec Or(Vec a, Vec b) { return _mm_or_si128(a, b); }
  static Vec And(Vec a, Vec b) { return _mm_and_si128(a, b); }
  // "a".."z" (0x61..0x7A) moved to -32768..-32743 by a wrapping add, so one
  // signed compare tells the lower-case letters.
  static Vec Fold(Vec x) {
    const Vec t = _mm_add_epi16(x, _mm_set1_epi16(0x7F9F));
    const Vec lower = _mm_cmplt_epi16(t, _mm_set1_epi16(static_cast<short>(0x801A)));
    return _mm_sub_epi16(x, _mm_and_si128(lower, _mm_set1_epi16(0x20)));
  }
  static Mask MaskOf(Vec v) { return static_cast<unsigned>(_mm_movemask_epi8(v)); }
  static Mask Full() { return 0xFFFFu; }
  static unsigned First(Mask m) { return static_cast<unsigned>(__builtin_ctz(m)) / 2; }
  static unsigned Last(Mask m) { return (31u - static_cast<unsigned>(__builtin_clz(m))) / 2; }
  static unsigned Count(Mask m) { return static_cast<unsigned>(__builtin_popcount(m)) / 2; }
  static Mask DropBefore(Mask m, unsigned k) { return m & (~0u << (2 * k)); }
  static Mask KeepBefore(Mask m, unsigned k) { return m & ((1u << (2 * k)) - 1); }
  static Mask NextUnit(Mask m) { return m >> 2; }
  static bool Has(Mask m, unsigned k) { return (m >> (2 * k)) & 1; }
  static Mask ClearFirst(Mask m) { return m & ~(3u << (__builtin_ctz(m) & ~1)); }
  static bool AnyStop2(Vec x0, Vec y0, Vec x1, Vec y1) {
    // Keeps x0 and x1 in registers (see the AVX2 table): each is used twice.
    __asm__("" : "+x"(x0), "+x"(x1));
    const Vec z = _mm_setzero_si128();
    const Vec same = _mm_and_si128(_mm_cmpeq_epi16(x0, y0), _mm_cmpeq_epi16(x1, y1));
    const Vec zero = _mm_or_si128(_mm_cmpeq_epi16(x0, z), _mm_cmpeq_epi16(x1, z));
    return _mm_movemask_epi8(_mm_andnot_si128(zero, same)) != 0xFFFF;
  }
  static bool AnyStop4(Vec x0, Vec y0, Vec x1, Vec y1, Vec x2, Vec y2, Vec x3, Vec y3) {
    __asm__("" : "+x"(x0), "+x"(x1), "+x"(x2), "+x"(x3));
    const Vec z = _mm_setzero_si128();
    const Vec same = _mm_and_si128(_mm_and_si128(_mm_cmpeq_epi16(x0, y0), _mm_cmpeq_epi16(x1, y1)),
                                   _mm_and_si128(_mm_cmpeq_epi16(x2, y2), _mm_cmpeq_epi16(x3, y3)));
    const Vec zero = _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi16(x0, z), _mm_cmpeq_epi16(x1, z)),
                                  _mm_or_si128(_mm_cmpeq_epi16(x2, z), _mm_cmpeq_epi16(x3, z)));
    return _mm_movemask_epi8(_mm_andnot_si128(zero, same)) != 0xFFFF;
  }
  OVRA_WIDE_LOADS static bool AnyZero4(uintptr_t p) {
    const Vec z = _mm_setzero_si128();
    const Vec a = _mm_cmpeq_epi16(LoadA(p), z);
    const Vec b = _mm_cmpeq_epi16(LoadA(p + 16), z);
    const Vec c = _mm_cmpeq_epi16(LoadA(p + 32), z);
    const Vec d = _mm_cmpeq_epi16(LoadA(p + 48), z);
    return _mm_movemask_epi8(_mm_or_si128(_mm_or_si128(a, b), _mm_or_si128(c, d))) != 0;
  }
};

size_t NarrowRun(const unsigned short* src, size_t limit, char* dst) {
  size_t i = 0;
  const __m128i high = _mm_set1_epi16(static_cast<short>(0xFF80));
  const __m128i zero = _mm_setzero_si128();
  while (i + 16 <= limit) {
    const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i));
    const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i + 8));
    const __m128i bits = _mm_and_si128(_mm_or_si128(a, b), high);
    if (_mm_movemask_epi8(_mm_cmpeq_epi16(bits, zero)) != 0xFFFF) break;
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + i), _mm_packus_epi16(a, b));
    i += 16;
  }
  while (i < limit && src[i] < 0x80) {
    dst[i] = static_cast<char>(src[i]);
    ++i;
  }
  return i;
}

size_t WidenRun(const unsigned char* src, size_t limit, unsigned short* dst) {
  size_t i = 0;
  const __m128i zero = _mm_setzero_si128();
  while (i + 16 <= limit) {
    const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i));
    if (_mm_movemask_epi8(a) != 0) break;
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + i), _mm_unpacklo_epi8(a, zero));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + i + 8), _mm_unpackhi_epi8(a, zero));
    i += 16;
  }
  while (i < limit && src[i] < 0x80) {
    dst[i] = src[i];
    ++i;
  }
  return i;
}

void ToLatin1(const unsigned short* src, size_t n, char* dst) {
  size_t i = 0;
  const __m128i high = _mm_set1_epi16(static_cast<short>(0xFF00));
  const __m128i question = _mm_set1_epi16('?');
  const __m128i zero = _mm_setzero_si128();
  for (; i + 16 <= n; i += 16) {
    __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i));
    __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i + 8));
    const __m128i fitA = _mm_cmpeq_epi16(_mm_and_si128(a, high), zero);
    const __m128i fitB = _mm_cmpeq_epi16(_mm_and_si128(b, high), zero);
    a = _mm_or_si128(_mm_and_si128(fitA, a), _mm_andnot_si128(fitA, question));
    b = _mm_or_si128(_mm_and_si128(fitB, b), _mm_andnot_si128(fitB, question));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + i), _mm_packus_epi16(a, b));
  }
  for (; i < n; ++i) dst[i] = src[i] < 0x100 ? static_cast<char>(src[i]) : '?';
}

void FromLatin1(const unsigned char* src, size_t n, unsigned short* dst) {
  size_t i = 0;
  const __m128i zero = _mm_setzero_si128();
  for (; i + 16 <= n; i += 16) {
    const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + i), _mm_unpacklo_epi8(a, zero));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + i + 8), _mm_unpackhi_epi8(a, zero));
  }
  for (; i < n; ++i) dst[i] = src[i];
}

}  // namespace

extern const bool kTextSse2Built = true;
extern const STextKernels kTextSse2Kernels = {
    "sse2",
    GLen<VSse2>,
    GNLen<VSse2>,
    GChr<VSse2>,
    GRchr<VSse2>,
    GCmp2<VSse2>,
    GNCmp<VSse2>,
    GICmp<VSse2>,
    GNICmp<VSse2>,
    GStr<VSse2>,
    GUtf8Len<VSse2>,
    RunsToUtf8<NarrowRun>,
    RunsFromUtf8<WidenRun>,
    ToLatin1,
    FromLatin1,
};

#else

extern const bool kTextSse2Built = false;
extern const STextKernels kTextSse2Kernels = {"none", nullptr, nullptr, nullptr, nullptr,
                                              nullptr, nullptr, nullptr, nullptr, nullptr,
                                              nullptr, nullptr, nullptr, nullptr, nullptr};

#endif
