// OvraTextNeon.cpp - the text kernels over 16-byte NEON blocks (aarch64,
// where NEON is always present).
#include "OvraText.h"

#if defined(__aarch64__) && defined(__ARM_NEON)

#include <arm_neon.h>

#include "OvraTextGeneric.h"

namespace {

// Masks narrow each 16-bit compare result to a byte: eight bits per unit.
struct VNeon {
  typedef uint16x8_t Vec;
  typedef uint64_t Mask;
  static constexpr size_t kBytes = 16;
  static constexpr unsigned kUnits = 8;

  OVRA_WIDE_LOADS static Vec LoadA(uintptr_t p) { return vld1q_u16(reinterpret_cast<const uint16_t*>(p)); }
  OVRA_WIDE_LOADS static Vec LoadU(uintptr_t p) { return vld1q_u16(reinterpret_cast<const uint16_t*>(p)); }
  static Vec Zero() { return vdupq_n_u16(0); }
  static Vec Splat(unsigned short c) { return vdupq_n_u16(c); }
  static Vec Eq(Vec a, Vec b) { return vceqq_u16(a, b); }
  static Vec Or(Vec a, Vec b) { return vorrq_u16(a, b); }
  static Vec And(Vec a, Vec b) { return vandq_u16(a, b); }
  static Vec Fold(Vec x) {
    const Vec lower = vcltq_u16(vsubq_u16(x, vdupq_n_u16('a')), vdupq_n_u16(26));
    return vsubq_u16(x, vandq_u16(lower, vdupq_n_u16(0x20)));
  }
  static Mask MaskOf(Vec v) { return vget_lane_u64(vreinterpret_u64_u8(vmovn_u16(v)), 0); }
  static Mask Full() { return ~static_cast<uint64_t>(0); }
  static unsigned First(Mask m) { return static_cast<unsigned>(__builtin_ctzll(m)) / 8; }
  static unsigned Last(Mask m) { return (63u - static_cast<unsigned>(__builtin_clzll(m))) / 8; }
  static unsigned Count(Mask m) { return static_cast<unsigned>(__builtin_popcountll(m)) / 8; }
  static Mask DropBefore(Mask m, unsigned k) { return m & (~static_cast<uint64_t>(0) << (8 * k)); }
  static Mask KeepBefore(Mask m, unsigned k) {
    return k >= kUnits ? m : m & ((static_cast<uint64_t>(1) << (8 * k)) - 1);
  }
  static Mask NextUnit(Mask m) { return m >> 8; }
  static bool Has(Mask m, unsigned k) { return (m >> (8 * k)) & 1; }
  static Mask ClearFirst(Mask m) {
    return m & ~(static_cast<uint64_t>(0xFF) << (__builtin_ctzll(m) & ~7));
  }
  // min(x, x == y) is zero exactly where the units differ or x is zero.
  static bool AnyStop2(Vec x0, Vec y0, Vec x1, Vec y1) {
    const Vec t0 = vminq_u16(x0, vceqq_u16(x0, y0));
    const Vec t1 = vminq_u16(x1, vceqq_u16(x1, y1));
    return vminvq_u16(vminq_u16(t0, t1)) == 0;
  }
  static bool AnyStop4(Vec x0, Vec y0, Vec x1, Vec y1, Vec x2, Vec y2, Vec x3, Vec y3) {
    const Vec t0 = vminq_u16(x0, vceqq_u16(x0, y0));
    const Vec t1 = vminq_u16(x1, vceqq_u16(x1, y1));
    const Vec t2 = vminq_u16(x2, vceqq_u16(x2, y2));
    const Vec t3 = vminq_u16(x3, vceqq_u16(x3, y3));
    return vminvq_u16(vminq_u16(vminq_u16(t0, t1), vminq_u16(t2, t3))) == 0;
  }
  OVRA_WIDE_LOADS static bool AnyZero4(uintptr_t p) {
    const Vec low = vminq_u16(LoadA(p), LoadA(p + 16));
    const Vec high = vminq_u16(LoadA(p + 32), LoadA(p + 48));
    return vminvq_u16(vminq_u16(low, high)) == 0;
  }
};

size_t NarrowRun(const unsigned short* src, size_t limit, char* dst) {
  size_t i = 0;
  while (i + 16 <= limit) {
    const uint16x8_t a = vld1q_u16(src + i);
    const uint16x8_t b = vld1q_u16(src + i + 8);
    if (vmaxvq_u16(vorrq_u16(a, b)) >= 0x80) break;
    vst1q_u8(reinterpret_cast<uint8_t*>(dst + i), vcombine_u8(vmovn_u16(a), vmovn_u16(b)));
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
  while (i + 16 <= limit) {
    const uint8x16_t a = vld1q_u8(src + i);
    if (vmaxvq_u8(a) >= 0x80) break;
    vst1q_u16(dst + i, vmovl_u8(vget_low_u8(a)));
    vst1q_u16(dst + i + 8, vmovl_u8(vget_high_u8(a)));
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
  const uint16x8_t top = vdupq_n_u16(0xFF);
  const uint16x8_t question = vdupq_n_u16('?');
  for (; i + 16 <= n; i += 16) {
    uint16x8_t a = vld1q_u16(src + i);
    uint16x8_t b = vld1q_u16(src + i + 8);
    a = vbslq_u16(vcleq_u16(a, top), a, question);
    b = vbslq_u16(vcleq_u16(b, top), b, question);
    vst1q_u8(reinterpret_cast<uint8_t*>(dst + i), vcombine_u8(vmovn_u16(a), vmovn_u16(b)));
  }
  for (; i < n; ++i) dst[i] = src[i] < 0x100 ? static_cast<char>(src[i]) : '?';
}

void FromLatin1(const unsigned char* src, size_t n, unsigned short* dst) {
  size_t i = 0;
  for (; i + 16 <= n; i += 16) {
    const uint8x16_t a = vld1q_u8(src + i);
    vst1q_u16(dst + i, vmovl_u8(vget_low_u8(a)));
    vst1q_u16(dst + i + 8, vmovl_u8(vget_high_u8(a)));
  }
  for (; i < n; ++i) dst[i] = src[i];
}

}  // namespace

extern const bool kTextNeonBuilt = true;
extern const STextKernels kTextNeonKernels = {
    "neon",
    GLen<VNeon>,
    GNLen<VNeon>,
    GChr<VNeon>,
    GRchr<VNeon>,
    GCmp2<VNeon>,
    GNCmp<VNeon>,
    GICmp<VNeon>,
    GNICmp<VNeon>,
    GStr<VNeon>,
    GUtf8Len<VNeon>,
    RunsToUtf8<NarrowRun>,
    RunsFromUtf8<WidenRun>,
    ToLatin1,
    FromLatin1,
};

#else

extern const bool kTextNeonBuilt = false;
extern const STextKernels kTextNeonKernels = {"none", nullptr, nullptr, nullptr, nullptr,
                                              nullptr, nullptr, nullptr, nullptr, nullptr,
                                              nullptr, nullptr, nullptr, nullptr, nullptr};

#endif
