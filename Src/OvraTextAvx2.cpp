// OvraTextAvx2.cpp - the text kernels over 32-byte AVX2 blocks, and UTF-8
// conversions that handle mixed blocks of one-, two- and three-byte
// sequences with byte shuffles. Built with AVX2 enabled for this file alone;
// the library takes the table only when cpuid reports AVX2 (and the system
// saves its registers), so none of this runs on a processor without it.
// Nothing here but data is visible outside this file.
#include "OvraText.h"

#if defined(__AVX2__) && defined(__POPCNT__)

#include <immintrin.h>

#include "OvraTextGeneric.h"

namespace {

// Masks come from movemask: two bits per unit, 32 bits for 16 units.
struct VAvx2 {
  typedef __m256i Vec;
  typedef unsigned Mask;
  static constexpr size_t kBytes = 32;
  static constexpr unsigned kUnits = 16;

  OVRA_WIDE_LOADS static Vec LoadA(uintptr_t p) { return _mm256_load_si256(reinterpret_cast<const __m256i*>(p)); }
  OVRA_WIDE_LOADS static Vec LoadU(uintptr_t p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)); }
  static Vec Zero() { return _mm256_setzero_si256(); }
  static Vec Splat(unsigned short c) { return _mm256_set1_epi16(static_cast<short>(c)); }
  static Vec Eq(Vec a, Vec b) { return _mm256_cmpeq_epi16(a, b); }
  static Vec Or(Vec a, Vec b) { return _mm256_or_si256(a, b); }
  static Vec And(Vec a, Vec b) { return _mm256_and_si256(a, b); }
  // As in the SSE2 kernels: a wrapping add puts "a".."z" at the bottom of
  // the signed range.
  static Vec Fold(Vec x) {
    const Vec t = _mm256_add_epi16(x, _mm256_set1_epi16(0x7F9F));
    const Vec lower = _mm256_cmpgt_epi16(_mm256_set1_epi16(static_cast<short>(0x801A)), t);
    return _mm256_sub_epi16(x, _mm256_and_si256(lower, _mm256_set1_epi16(0x20)));
  }
  static Mask MaskOf(Vec v) { return static_cast<unsigned>(_mm256_movemask_epi8(v)); }
  static Mask Full() { return 0xFFFFFFFFu; }
  static unsigned First(Mask m) { return static_cast<unsigned>(__builtin_ctz(m)) / 2; }
  static unsigned Last(Mask m) { return (31u - static_cast<unsigned>(__builtin_clz(m))) / 2; }
  static unsigned Count(Mask m) { return static_cast<unsigned>(__builtin_popcount(m)) / 2; }
  static Mask DropBefore(Mask m, unsigned k) { return m & (~0u << (2 * k)); }
  static Mask KeepBefore(Mask m, unsigned k) {
    return k >= kUnits ? m : m & ((1u << (2 * k)) - 1);
  }
  static Mask NextUnit(Mask m) { return m >> 2; }
  static bool Has(Mask m, unsigned k) { return (m >> (2 * k)) & 1; }
  static Mask ClearFirst(Mask m) { return m & ~(3u << (__builtin_ctz(m) & ~1)); }
  // min(x, x == y) is zero exactly where the units differ or x is zero.
  static bool AnyStop2(Vec x0, Vec y0, Vec x1, Vec y1) {
    // Keeps x0 and x1 in registers: left alone, the compiler reads each from
    // memory twice (once per instruction that uses it), and the comparison
    // is bound by the number of loads.
    __asm__("" : "+x"(x0), "+x"(x1));
    const Vec t0 = _mm256_min_epu16(x0, _mm256_cmpeq_epi16(x0, y0));
    const Vec t1 = _mm256_min_epu16(x1, _mm256_cmpeq_epi16(x1, y1));
    const Vec z = _mm256_cmpeq_epi16(_mm256_min_epu16(t0, t1), _mm256_setzero_si256());
    return !_mm256_testz_si256(z, z);
  }
  static bool AnyStop4(Vec x0, Vec y0, Vec x1, Vec y1, Vec x2, Vec y2, Vec x3, Vec y3) {
    __asm__("" : "+x"(x0), "+x"(x1), "+x"(x2), "+x"(x3));
    const Vec t0 = _mm256_min_epu16(x0, _mm256_cmpeq_epi16(x0, y0));
    const Vec t1 = _mm256_min_epu16(x1, _mm256_cmpeq_epi16(x1, y1));
    const Vec t2 = _mm256_min_epu16(x2, _mm256_cmpeq_epi16(x2, y2));
    const Vec t3 = _mm256_min_epu16(x3, _mm256_cmpeq_epi16(x3, y3));
    const Vec t = _mm256_min_epu16(_mm256_min_epu16(t0, t1), _mm256_min_epu16(t2, t3));
    const Vec z = _mm256_cmpeq_epi16(t, _mm256_setzero_si256());
    return !_mm256_testz_si256(z, z);
  }
  OVRA_WIDE_LOADS static bool AnyZero4(uintptr_t p) {
    const Vec low = _mm256_min_epu16(LoadA(p), LoadA(p + 32));
    const Vec high = _mm256_min_epu16(LoadA(p + 64), LoadA(p + 96));
    const Vec z = _mm256_cmpeq_epi16(_mm256_min_epu16(low, high), _mm256_setzero_si256());
    return !_mm256_testz_si256(z, z);
  }
};

// ---------------------------------------------------------------------------
// Shuffle tables, computed while compiling.
// ---------------------------------------------------------------------------

struct SShuffles {
  alignas(16) unsigned char entry[256][16];
};

// Encoding: four 32-bit lanes each holding a sequence of 1 to 3 bytes, first
// byte lowest. Index bit j: lane j has 2 bytes or more; bit j + 4: 3 bytes.
// The entry gathers the sequences' bytes to the front.
constexpr SShuffles MakeEncodeShuffles() {
  SShuffles t{};
  for (unsigned index = 0; index < 256; ++index) {
    unsigned out = 0;
    for (unsigned lane = 0; lane < 4; ++lane) {
      const unsigned length = 1 + ((index >> lane) & 1) + ((index >> (lane + 4)) & 1);
      for (unsigned k = 0; k < length && k < 3; ++k) t.entry[index][out++] =
          static_cast<unsigned char>(4 * lane + k);
    }
    for (; out < 16; ++out) t.entry[index][out] = 0x80;
  }
  return t;
}

// Decoding: eight 16-bit lanes, index bit j set when lane j is kept; the
// entry gathers the kept lanes to the front.
constexpr SShuffles MakeCompressShuffles() {
  SShuffles t{};
  for (unsigned index = 0; index < 256; ++index) {
    unsigned out = 0;
    for (unsigned lane = 0; lane < 8; ++lane) {
      if (!((index >> lane) & 1)) continue;
      t.entry[index][out++] = static_cast<unsigned char>(2 * lane);
      t.entry[index][out++] = static_cast<unsigned char>(2 * lane + 1);
    }
    for (; out < 16; ++out) t.entry[index][out] = 0x80;
  }
  return t;
}

constexpr SShuffles kEncodeShuffles = MakeEncodeShuffles();
constexpr SShuffles kCompressShuffles = MakeCompressShuffles();

inline __m128i Entry(const SShuffles& t, unsigned index) {
  return _mm_load_si128(reinterpret_cast<const __m128i*>(t.entry[index]));
}

size_t NarrowRun(const unsigned short* src, size_t limit, char* dst) {
  size_t i = 0;
  const __m256i high = _mm256_set1_epi16(static_cast<short>(0xFF80));
  while (i + 32 <= limit) {
    const __m256i a = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + i));
    const __m256i b = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + i + 16));
    if (!_mm256_testz_si256(_mm256_or_si256(a, b), high)) break;
    // packus works within 128-bit halves; the permute puts them in order.
    const __m256i packed = _mm256_permute4x64_epi64(_mm256_packus_epi16(a, b), 0xD8);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + i), packed);
    i += 32;
  }
  while (i < limit && src[i] < 0x80) {
    dst[i] = static_cast<char>(src[i]);
    ++i;
  }
  return i;
}

size_t WidenRun(const unsigned char* src, size_t limit, unsigned short* dst) {
  size_t i = 0;
  while (i + 32 <= limit) {
    const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + i));
    if (_mm256_movemask_epi8(v) != 0) break;
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + i),
                        _mm256_cvtepu8_epi16(_mm256_castsi256_si128(v)));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + i + 16),
                        _mm256_cvtepu8_epi16(_mm256_extracti128_si256(v, 1)));
    i += 32;
  }
  while (i < limit && src[i] < 0x80) {
    dst[i] = src[i];
    ++i;
  }
  return i;
}

// 16-bit text to UTF-8. A block is converted only when the scalar loop
// would convert all of it (enough room before size) and when enough input
// remains that the final output reaches past every byte the block's 16-byte
// stores touch: the stores may write a few bytes beyond the block's own
// output, which later characters then overwrite, and never beyond what the
// scalar loop writes in all.
size_t ToUtf8(const unsigned short* src, size_t n, char* dst, size_t room) {
  size_t i = 0;
  size_t w = 0;
  const __m256i high7 = _mm256_set1_epi16(static_cast<short>(0xFF80));
  const __m256i x3F = _mm256_set1_epi32(0x3F);
  const __m256i x80 = _mm256_set1_epi32(0x80);
  const __m256i xC0 = _mm256_set1_epi32(0xC0);
  const __m256i xE0 = _mm256_set1_epi32(0xE0);
  const __m256i x7F = _mm256_set1_epi32(0x7F);
  const __m256i x7FF = _mm256_set1_epi32(0x7FF);
  while (n - i >= 24 && room - w >= 40) {
    const __m256i units = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + i));
    if (_mm256_testz_si256(units, high7)) {
      const __m128i packed = _mm_packus_epi16(_mm256_castsi256_si128(units),
                                              _mm256_extracti128_si256(units, 1));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + w), packed);
      i += 16;
      w += 16;
      continue;
    }
    const __m256i c = _mm256_cvtepu16_epi32(_mm256_castsi256_si128(units));
    const __m256i low6 = _mm256_or_si256(_mm256_and_si256(c, x3F), x80);
    const __m256i mid6 = _mm256_or_si256(_mm256_and_si256(_mm256_srli_epi32(c, 6), x3F), x80);
    const __m256i two = _mm256_or_si256(_mm256_or_si256(_mm256_srli_epi32(c, 6), xC0),
                                        _mm256_slli_epi32(low6, 8));
    const __m256i three =
        _mm256_or_si256(_mm256_or_si256(_mm256_srli_epi32(c, 12), xE0),
                        _mm256_or_si256(_mm256_slli_epi32(mid6, 8), _mm256_slli_epi32(low6, 16)));
    const __m256i is2 = _mm256_cmpgt_epi32(c, x7F);
    const __m256i is3 = _mm256_cmpgt_epi32(c, x7FF);
    const __m256i bytes = _mm256_blendv_epi8(_mm256_blendv_epi8(c, two, is2), three, is3);
    const unsigned m2 = static_cast<unsigned>(_mm256_movemask_ps(_mm256_castsi256_ps(is2)));
    const unsigned m3 = static_cast<unsigned>(_mm256_movemask_ps(_mm256_castsi256_ps(is3)));
    const unsigned lowIndex = (m2 & 15) | ((m3 & 15) << 4);
    const unsigned highIndex = (m2 >> 4) | ((m3 >> 4) << 4);
    const __m256i shuffle = _mm256_inserti128_si256(
        _mm256_castsi128_si256(Entry(kEncodeShuffles, lowIndex)), Entry(kEncodeShuffles, highIndex), 1);
    const __m256i packed = _mm256_shuffle_epi8(bytes, shuffle);
    const size_t lowLength = 4 + static_cast<size_t>(__builtin_popcount(lowIndex));
    const size_t highLength = 4 + static_cast<size_t>(__builtin_popcount(highIndex));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + w), _mm256_castsi256_si128(packed));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + w + lowLength),
                     _mm256_extracti128_si256(packed, 1));
    w += lowLength + highLength;
    i += 8;
  }
  if (i < n && w < room) w += RunsToUtf8<NarrowRun>(src + i, n - i, dst + w, room - w);
  return w;
}

// UTF-8 to 16-bit text. A window of 16 bytes is decoded at once when its
// bytes read by their classes (0x80..0xBF continuation, 0xC0..0xDF two-byte
// lead, 0xE0..0xFF three-byte lead, below 0x80 a character) give exactly
// the sequences the scalar loop finds: the window starts at a sequence
// start that is not a continuation byte, and the continuation bytes are
// exactly those the leads take. Anything else (stray continuation bytes,
// leads without their continuations, a lead 0x80..0xBF) goes through the
// scalar steps. The room and store rules are those of ToUtf8.
size_t FromUtf8(const unsigned char* src, size_t n, unsigned short* dst, size_t room) {
  size_t i = 0;
  size_t w = 0;
  const __m128i xC0 = _mm_set1_epi8(static_cast<char>(0xC0));
  const __m128i x80 = _mm_set1_epi8(static_cast<char>(0x80));
  const __m128i xE0 = _mm_set1_epi8(static_cast<char>(0xE0));
  const __m256i w1F = _mm256_set1_epi16(0x1F);
  const __m256i w3F = _mm256_set1_epi16(0x3F);
  const __m256i w7F = _mm256_set1_epi16(0x7F);
  const __m256i wDF = _mm256_set1_epi16(0xDF);
  while (n - i >= 48 && room - w >= 16) {
    const __m128i b0 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i));
    if (_mm_movemask_epi8(b0) == 0) {
      _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + w), _mm256_cvtepu8_epi16(b0));
      i += 16;
      w += 16;
      // The rest of a run of ASCII, 32 bytes at a time.
      while (n - i >= 32 && room - w >= 32) {
        const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + i));
        if (_mm256_movemask_epi8(v) != 0) break;
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + w),
                            _mm256_cvtepu8_epi16(_mm256_castsi256_si128(v)));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + w + 16),
                            _mm256_cvtepu8_epi16(_mm256_extracti128_si256(v, 1)));
        i += 32;
        w += 32;
      }
      continue;
    }
    const unsigned cont =
        static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(_mm_and_si128(b0, xC0), x80)));
    const unsigned lead =
        static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(_mm_and_si128(b0, xC0), xC0)));
    const unsigned lead3 =
        static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(_mm_and_si128(b0, xE0), xE0)));
    const unsigned required = ((lead << 1) | (lead3 << 2)) & 0xFFFF;
    if (required != cont) {
      // Unusual text: the scalar steps over at most 16 bytes, then try again.
      const size_t stop = i + 16;
      while (i < stop) {
        dst[w++] = DecodeSequence(src + i);
        i += SequenceLength(src[i]);
      }
      continue;
    }
    // A sequence that does not end inside the window is left to the next.
    size_t length = 16;
    if (lead & 0x8000)
      length = 15;
    else if (lead3 & 0x4000)
      length = 14;
    const unsigned starts = ~cont & ((1u << length) - 1);
    const __m256i c0 = _mm256_cvtepu8_epi16(b0);
    const __m256i c1 =
        _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i + 1)));
    const __m256i c2 =
        _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i + 2)));
    const __m256i tail1 = _mm256_and_si256(c1, w3F);
    const __m256i two = _mm256_or_si256(_mm256_slli_epi16(_mm256_and_si256(c0, w1F), 6), tail1);
    // Shifting the lead left by 12 in 16 bits keeps its low four bits, as
    // the scalar loop's truncation to 16 bits does.
    const __m256i three =
        _mm256_or_si256(_mm256_or_si256(_mm256_slli_epi16(c0, 12), _mm256_slli_epi16(tail1, 6)),
                        _mm256_and_si256(c2, w3F));
    const __m256i value = _mm256_blendv_epi8(
        _mm256_blendv_epi8(c0, two, _mm256_cmpgt_epi16(c0, w7F)), three, _mm256_cmpgt_epi16(c0, wDF));
    const unsigned lowIndex = starts & 0xFF;
    const unsigned highIndex = starts >> 8;
    const __m256i shuffle = _mm256_inserti128_si256(
        _mm256_castsi128_si256(Entry(kCompressShuffles, lowIndex)),
        Entry(kCompressShuffles, highIndex), 1);
    const __m256i packed = _mm256_shuffle_epi8(value, shuffle);
    const size_t lowCount = static_cast<size_t>(__builtin_popcount(lowIndex));
    const size_t highCount = static_cast<size_t>(__builtin_popcount(highIndex));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + w), _mm256_castsi256_si128(packed));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + w + lowCount),
                     _mm256_extracti128_si256(packed, 1));
    w += lowCount + highCount;
    i += length;
  }
  if (i < n && w < room) w += RunsFromUtf8<WidenRun>(src + i, n - i, dst + w, room - w);
  return w;
}

void ToLatin1(const unsigned short* src, size_t n, char* dst) {
  size_t i = 0;
  const __m256i high = _mm256_set1_epi16(static_cast<short>(0xFF00));
  const __m256i question = _mm256_set1_epi16('?');
  const __m256i zero = _mm256_setzero_si256();
  for (; i + 32 <= n; i += 32) {
    __m256i a = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + i));
    __m256i b = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src + i + 16));
    a = _mm256_blendv_epi8(question, a, _mm256_cmpeq_epi16(_mm256_and_si256(a, high), zero));
    b = _mm256_blendv_epi8(question, b, _mm256_cmpeq_epi16(_mm256_and_si256(b, high), zero));
    const __m256i packed = _mm256_permute4x64_epi64(_mm256_packus_epi16(a, b), 0xD8);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + i), packed);
  }
  for (; i < n; ++i) dst[i] = src[i] < 0x100 ? static_cast<char>(src[i]) : '?';
}

void FromLatin1(const unsigned char* src, size_t n, unsigned short* dst) {
  size_t i = 0;
  for (; i + 16 <= n; i += 16) {
    const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src + i));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst + i), _mm256_cvtepu8_epi16(a));
  }
  for (; i < n; ++i) dst[i] = src[i];
}

}  // namespace

extern const bool kTextAvx2Built = true;
extern const STextKernels kTextAvx2Kernels = {
    "avx2",
    GLen<VAvx2>,
    GNLen<VAvx2>,
    GChr<VAvx2>,
    GRchr<VAvx2>,
    GCmp2<VAvx2>,
    GNCmp<VAvx2>,
    GICmp<VAvx2>,
    GNICmp<VAvx2>,
    GStr<VAvx2>,
    GUtf8Len<VAvx2>,
    ToUtf8,
    FromUtf8,
    ToLatin1,
    FromLatin1,
};

#else

extern const bool kTextAvx2Built = false;
extern const STextKernels kTextAvx2Kernels = {"none", nullptr, nullptr, nullptr, nullptr,
                                              nullptr, nullptr, nullptr, nullptr, nullptr,
                                              nullptr, nullptr, nullptr, nullptr, nullptr};

#endif
