// OvraTextGeneric.h - the kernels' algorithms written once over a block type
// V, included by each file that builds them for one instruction set. Every
// name here has internal linkage, so that code compiled for a wide
// instruction set is never shared with (or picked by the linker for) a file
// compiled without it.
//
// V describes one block of units and a bit mask with one group of bits per
// unit, the unit at the lowest address first in the mask's order:
//   Vec, Mask, kBytes (a power of two), kUnits
//   LoadA(uintptr_t) aligned load, LoadU(uintptr_t) unaligned load
//   Zero(), Splat(u16), Eq(Vec, Vec), Or, And, Fold (ASCII upper-casing)
//   MaskOf(Vec) of an Eq/Or/And result, Full() (every unit set)
//   First(m), Last(m) of a non-zero mask; Count(m) units set
//   DropBefore(m, k) clears the units below k (k < kUnits)
//   KeepBefore(m, k) clears the units k and up (k <= kUnits)
//   NextUnit(m): unit j set when unit j + 1 was set; Has(m, k); ClearFirst(m)
//   AnyZero4(uintptr_t) whether four blocks from an address aligned to four
//   blocks hold a zero unit; AnyStop2(x0, y0, x1, y1) whether two pairs of
//   blocks hold a difference or a zero unit of x; AnyStop4 the same for four.
#ifndef OVRA_SRC_OVRATEXTGENERIC_H
#define OVRA_SRC_OVRATEXTGENERIC_H

#include <stddef.h>
#include <stdint.h>

#include "OvraText.h"

namespace {

constexpr uintptr_t kPage = 4096;

inline unsigned short FoldUnit(unsigned short c) {
  return (c >= 'a' && c <= 'z') ? static_cast<unsigned short>(c - 32) : c;
}

inline const unsigned short* Units(uintptr_t p) {
  return reinterpret_cast<const unsigned short*>(p);
}

// The scalar loops the wide kernels fall back on for odd addresses and the
// last units before a page end. Identical to the reference.
inline size_t PlainLen(const unsigned short* s) {
  const unsigned short* p = s;
  while (*p) ++p;
  return static_cast<size_t>(p - s);
}

inline size_t PlainNLen(const unsigned short* s, size_t n) {
  size_t i = 0;
  while (i < n && s[i]) ++i;
  return i;
}

inline unsigned short* PlainChr(const unsigned short* s, unsigned short ch) {
  for (;; ++s) {
    if (*s == ch) return const_cast<unsigned short*>(s);
    if (!*s) return nullptr;
  }
}

inline unsigned short* PlainRchr(const unsigned short* s, unsigned short ch) {
  const unsigned short* found = nullptr;
  for (;; ++s) {
    if (*s == ch) found = s;
    if (!*s) return const_cast<unsigned short*>(found);
  }
}

inline uint64_t PlainUtf8Len(const unsigned short* s) {
  uint64_t bytes = 0;
  for (; *s; ++s) bytes += 1u + (*s >= 0x80) + (*s >= 0x800);
  return bytes;
}

// ucsstr once s and sub are known to be non-empty.
inline unsigned short* PlainStr(const unsigned short* s, const unsigned short* sub) {
  const unsigned short first = *sub;
  for (; *s; ++s) {
    if (*s != first) continue;
    const unsigned short* a = s + 1;
    const unsigned short* b = sub + 1;
    while (*b && *a == *b) {
      ++a;
      ++b;
    }
    if (!*b) return const_cast<unsigned short*>(s);
    if (!*a) break;  // s ran out first: no later start can match either
  }
  return nullptr;
}

// Result of checking one candidate of ucsstr whose first two units match.
enum EMatch { kMatchNo, kMatchYes, kMatchEnded };

inline EMatch MatchRest(const unsigned short* at, const unsigned short* sub) {
  const unsigned short* a = at + 2;
  const unsigned short* b = sub + 2;
  while (*b && *a == *b) {
    ++a;
    ++b;
  }
  if (!*b) return kMatchYes;
  return *a ? kMatchNo : kMatchEnded;
}

template <class V>
OVRA_WIDE_LOADS size_t GLen(const unsigned short* s) {
  const uintptr_t a = reinterpret_cast<uintptr_t>(s);
  if (a & 1) return PlainLen(s);
  const typename V::Vec zero = V::Zero();
  uintptr_t p = a & ~static_cast<uintptr_t>(V::kBytes - 1);
  typename V::Mask m =
      V::DropBefore(V::MaskOf(V::Eq(V::LoadA(p), zero)), static_cast<unsigned>((a - p) / 2));
  if (m) return (p + 2 * V::First(m) - a) / 2;
  p += V::kBytes;
  // Single blocks up to a four-block boundary: four aligned blocks from there
  // lie in one page.
  for (; p & (4 * V::kBytes - 1); p += V::kBytes) {
    m = V::MaskOf(V::Eq(V::LoadA(p), zero));
    if (m) return (p + 2 * V::First(m) - a) / 2;
  }
  while (!V::AnyZero4(p)) p += 4 * V::kBytes;
  for (;; p += V::kBytes) {
    m = V::MaskOf(V::Eq(V::LoadA(p), zero));
    if (m) return (p + 2 * V::First(m) - a) / 2;
  }
}

template <class V>
OVRA_WIDE_LOADS size_t GNLen(const unsigned short* s, size_t n) {
  const uintptr_t a = reinterpret_cast<uintptr_t>(s);
  if (n == 0) return 0;
  if (a & 1) return PlainNLen(s, n);
  const typename V::Vec zero = V::Zero();
  // A block is read only when it starts before unit n and every unit before
  // it is non-zero, i.e. when the scalar loop reads a unit of it too.
  const uintptr_t limit = n > (UINTPTR_MAX - a) / 2 ? UINTPTR_MAX : a + 2 * n;
  uintptr_t p = a & ~static_cast<uintptr_t>(V::kBytes - 1);
  typename V::Mask m =
      V::DropBefore(V::MaskOf(V::Eq(V::LoadA(p), zero)), static_cast<unsigned>((a - p) / 2));
  for (;;) {
    if (m) {
      const size_t found = (p + 2 * V::First(m) - a) / 2;
      return found < n ? found : n;
    }
    p += V::kBytes;
    if (p >= limit) return n;
    m = V::MaskOf(V::Eq(V::LoadA(p), zero));
  }
}

template <class V>
OVRA_WIDE_LOADS unsigned short* GChr(const unsigned short* s, unsigned short ch) {
  const uintptr_t a = reinterpret_cast<uintptr_t>(s);
  if (a & 1) return PlainChr(s, ch);
  const typename V::Vec zero = V::Zero();
  const typename V::Vec c = V::Splat(ch);
  uintptr_t p = a & ~static_cast<uintptr_t>(V::kBytes - 1);
  typename V::Vec v = V::LoadA(p);
  typename V::Mask m = V::DropBefore(V::MaskOf(V::Or(V::Eq(v, zero), V::Eq(v, c))),
                                     static_cast<unsigned>((a - p) / 2));
  while (!m) {
    p += V::kBytes;
    v = V::LoadA(p);
    m = V::MaskOf(V::Or(V::Eq(v, zero), V::Eq(v, c)));
  }
  const unsigned short* at = Units(p) + V::First(m);
  return *at == ch ? const_cast<unsigned short*>(at) : nullptr;
}

template <class V>
OVRA_WIDE_LOADS unsigned short* GRchr(const unsigned short* s, unsigned short ch) {
  const uintptr_t a = reinterpret_cast<uintptr_t>(s);
  if (a & 1) return PlainRchr(s, ch);
  const typename V::Vec zero = V::Zero();
  const typename V::Vec c = V::Splat(ch);
  const unsigned short* found = nullptr;
  uintptr_t p = a & ~static_cast<uintptr_t>(V::kBytes - 1);
  const unsigned k = static_cast<unsigned>((a - p) / 2);
  typename V::Vec v = V::LoadA(p);
  typename V::Mask mz = V::DropBefore(V::MaskOf(V::Eq(v, zero)), k);
  typename V::Mask mc = V::DropBefore(V::MaskOf(V::Eq(v, c)), k);
  for (;;) {
    if (mz) {
      mc = V::KeepBefore(mc, V::First(mz) + 1);  // the terminator itself may match
      if (mc) found = Units(p) + V::Last(mc);
      return const_cast<unsigned short*>(found);
    }
    if (mc) found = Units(p) + V::Last(mc);
    p += V::kBytes;
    v = V::LoadA(p);
    mz = V::MaskOf(V::Eq(v, zero));
    mc = V::MaskOf(V::Eq(v, c));
  }
}

// The comparison's block tests: a unit that differs, or a zero unit of a,
// in the k blocks from a and b (unaligned loads, folded when Fold).
template <class V, bool Fold>
OVRA_WIDE_LOADS inline typename V::Vec CmpLoad(const unsigned short* p) {
  const typename V::Vec v = V::LoadU(reinterpret_cast<uintptr_t>(p));
  return Fold ? V::Fold(v) : v;
}
template <class V, bool Fold>
OVRA_WIDE_LOADS inline bool AnyStopIn2(const unsigned short* a, const unsigned short* b) {
  return V::AnyStop2(CmpLoad<V, Fold>(a), CmpLoad<V, Fold>(b), CmpLoad<V, Fold>(a + V::kUnits),
                     CmpLoad<V, Fold>(b + V::kUnits));
}
template <class V, bool Fold>
OVRA_WIDE_LOADS inline bool AnyStopIn4(const unsigned short* a, const unsigned short* b) {
  return V::AnyStop4(CmpLoad<V, Fold>(a), CmpLoad<V, Fold>(b), CmpLoad<V, Fold>(a + V::kUnits),
                     CmpLoad<V, Fold>(b + V::kUnits), CmpLoad<V, Fold>(a + 2 * V::kUnits),
                     CmpLoad<V, Fold>(b + 2 * V::kUnits), CmpLoad<V, Fold>(a + 3 * V::kUnits),
                     CmpLoad<V, Fold>(b + 3 * V::kUnits));
}
// The block at a and b, its first `skip` units left out: when it holds a
// difference or a's terminator, sets result to the (folded) difference of
// the first such pair and returns true.
template <class V, bool Fold>
OVRA_WIDE_LOADS inline bool CmpStopIn1(const unsigned short* a, const unsigned short* b,
                                       unsigned skip, int& result) {
  const typename V::Vec x = CmpLoad<V, Fold>(a);
  const typename V::Vec y = CmpLoad<V, Fold>(b);
  typename V::Mask stop = (V::MaskOf(V::Eq(x, y)) ^ V::Full()) | V::MaskOf(V::Eq(x, V::Zero()));
  if (skip) stop = V::DropBefore(stop, skip);
  if (!stop) return false;
  const unsigned k = V::First(stop);
  const unsigned short ca = Fold ? FoldUnit(a[k]) : a[k];
  const unsigned short cb = Fold ? FoldUnit(b[k]) : b[k];
  result = static_cast<int>(ca) - static_cast<int>(cb);
  return true;
}

// ucscmp (Fold false) and ucsicmp (Fold true), n unbounded (Bounded false) or
// at most n units. Unaligned blocks are read only while neither of them
// crosses the end of its page; the last units before a page end go one by one.
template <class V, bool Fold, bool Bounded>
OVRA_WIDE_LOADS int GCmp(const unsigned short* a, const unsigned short* b, size_t n) {
  const unsigned short* const start = a;
  for (;;) {
    if (Bounded && n == 0) return 0;
    const uintptr_t pa = reinterpret_cast<uintptr_t>(a);
    const uintptr_t pb = reinterpret_cast<uintptr_t>(b);
    const uintptr_t ra = kPage - (pa & (kPage - 1));
    const uintptr_t rb = kPage - (pb & (kPage - 1));
    const uintptr_t r = ra < rb ? ra : rb;
    size_t steps = r / V::kBytes;
    if (Bounded && steps > n / V::kUnits) steps = n / V::kUnits;
    const size_t units = r / 2;
    if (steps == 0 && !(r & 1) && units && static_cast<size_t>(a - start) >= V::kUnits &&
        (!Bounded || n >= units)) {
      // Less than a block before the nearer page end: one block that ends
      // there and starts among units already compared (so inside pages
      // already read), its first `back` units ignored.
      const unsigned back = V::kUnits - static_cast<unsigned>(units);
      int result;
      if (CmpStopIn1<V, Fold>(a - back, b - back, back, result)) return result;
      a += units;
      b += units;
      if (Bounded) n -= units;
      continue;
    }
    if (steps == 0) {
      const unsigned short ca = Fold ? FoldUnit(*a) : *a;
      const unsigned short cb = Fold ? FoldUnit(*b) : *b;
      if (ca != cb || !ca) return static_cast<int>(ca) - static_cast<int>(cb);
      ++a;
      ++b;
      if (Bounded) --n;
      continue;
    }
    const uintptr_t misaligned = pa & (V::kBytes - 1);
    bool stopAhead = false;  // a difference or the end lies in the next two blocks
    if (steps >= 2 && misaligned && !(pa & 1)) {
      // Two unaligned blocks; when they hold no stop, on from a's block
      // boundary inside the second (the units skipped were found equal):
      // a's loads are then aligned and never split a cache line, and when
      // both strings share their misalignment (two blocks from the same
      // allocator), b's too. Short strings end in these two blocks and pay
      // nothing more than before.
      if (!AnyStopIn2<V, Fold>(a, b)) {
        const size_t advance = V::kUnits + (V::kBytes - misaligned) / 2;
        a += advance;
        b += advance;
        if (Bounded) n -= advance;
        continue;
      }
      steps = 2;
      stopAhead = true;
    }
    if (Bounded) n -= steps * V::kUnits;
    // Four blocks at a time while they last, then two, then one.
    for (; !stopAhead && steps >= 4; steps -= 4) {
      if (AnyStopIn4<V, Fold>(a, b)) break;
      a += 4 * V::kUnits;
      b += 4 * V::kUnits;
    }
    for (; !stopAhead && steps >= 2; steps -= 2) {
      if (AnyStopIn2<V, Fold>(a, b)) break;
      a += 2 * V::kUnits;
      b += 2 * V::kUnits;
    }
    if (steps == 0) continue;
    do {
      int result;
      if (CmpStopIn1<V, Fold>(a, b, 0, result)) return result;
      a += V::kUnits;
      b += V::kUnits;
    } while (--steps);
  }
}

template <class V>
int GCmp2(const unsigned short* a, const unsigned short* b) {
  return GCmp<V, false, false>(a, b, 0);
}
template <class V>
int GNCmp(const unsigned short* a, const unsigned short* b, size_t n) {
  return GCmp<V, false, true>(a, b, n);
}
template <class V>
int GICmp(const unsigned short* a, const unsigned short* b) {
  return GCmp<V, true, false>(a, b, 0);
}
template <class V>
int GNICmp(const unsigned short* a, const unsigned short* b, size_t n) {
  return GCmp<V, true, true>(a, b, n);
}

// ucsstr: blocks of s are searched for positions whose unit and the next
// one equal the first two of sub; each such candidate is compared in full.
template <class V>
OVRA_WIDE_LOADS unsigned short* GStr(const unsigned short* s, const unsigned short* sub) {
  if (!*s) return nullptr;
  if (!*sub) return const_cast<unsigned short*>(s);
  const uintptr_t a = reinterpret_cast<uintptr_t>(s);
  if (a & 1) return PlainStr(s, sub);
  if (!sub[1]) {
    unsigned short* at = GChr<V>(s, sub[0]);
    return at && *at ? at : nullptr;
  }
  const typename V::Vec zero = V::Zero();
  const typename V::Vec c0 = V::Splat(sub[0]);
  const typename V::Vec c1 = V::Splat(sub[1]);
  uintptr_t p = a & ~static_cast<uintptr_t>(V::kBytes - 1);
  unsigned drop = static_cast<unsigned>((a - p) / 2);
  for (;;) {
    // The last block of a page, and the first block: the unit after the
    // block is read only when the block holds no terminator.
    {
      const typename V::Vec v = V::LoadA(p);
      const typename V::Mask mz = V::DropBefore(V::MaskOf(V::Eq(v, zero)), drop);
      const typename V::Mask m0 = V::DropBefore(V::MaskOf(V::Eq(v, c0)), drop);
      typename V::Mask cand = m0 & V::NextUnit(V::MaskOf(V::Eq(v, c1)));
      if (mz) cand = V::KeepBefore(cand, V::First(mz));
      for (; cand; cand = V::ClearFirst(cand)) {
        const EMatch r = MatchRest(Units(p) + V::First(cand), sub);
        if (r == kMatchYes) return const_cast<unsigned short*>(Units(p) + V::First(cand));
        if (r == kMatchEnded) return nullptr;
      }
      if (mz) return nullptr;
      if (V::Has(m0, V::kUnits - 1) && Units(p)[V::kUnits] == sub[1]) {
        const unsigned short* at = Units(p) + V::kUnits - 1;
        const EMatch r = MatchRest(at, sub);
        if (r == kMatchYes) return const_cast<unsigned short*>(at);
        if (r == kMatchEnded) return nullptr;
      }
      drop = 0;
      p += V::kBytes;
    }
    // Blocks whose successor lies in the same page: the pair test reads one
    // unit past the block with an unaligned load.
    for (size_t steps = (kPage - (p & (kPage - 1))) / V::kBytes; steps > 1; --steps) {
      const typename V::Vec v = V::LoadA(p);
      const typename V::Vec z = V::Eq(v, zero);
      const typename V::Vec pair = V::And(V::Eq(v, c0), V::Eq(V::LoadU(p + 2), c1));
      if (V::MaskOf(V::Or(z, pair))) {
        const typename V::Mask mz = V::MaskOf(z);
        typename V::Mask cand = V::MaskOf(pair);
        if (mz) cand = V::KeepBefore(cand, V::First(mz));
        for (; cand; cand = V::ClearFirst(cand)) {
          const unsigned short* at = Units(p) + V::First(cand);
          const EMatch r = MatchRest(at, sub);
          if (r == kMatchYes) return const_cast<unsigned short*>(at);
          if (r == kMatchEnded) return nullptr;
        }
        if (mz) return nullptr;
      }
      p += V::kBytes;
    }
  }
}

template <class V>
OVRA_WIDE_LOADS uint64_t GUtf8Len(const unsigned short* s) {
  const uintptr_t a = reinterpret_cast<uintptr_t>(s);
  if (a & 1) return PlainUtf8Len(s);
  const typename V::Vec zero = V::Zero();
  const typename V::Vec high7 = V::Splat(0xFF80);
  const typename V::Vec high11 = V::Splat(0xF800);
  uintptr_t p = a & ~static_cast<uintptr_t>(V::kBytes - 1);
  unsigned drop = static_cast<unsigned>((a - p) / 2);
  uint64_t bytes = 0;
  for (;; p += V::kBytes, drop = 0) {
    const typename V::Vec v = V::LoadA(p);
    const typename V::Mask mz = V::MaskOf(V::Eq(v, zero));
    // Units below 0x80 and below 0x800 (zeros and units before s included;
    // they are removed below).
    typename V::Mask one = V::MaskOf(V::Eq(V::And(v, high7), zero));
    typename V::Mask two = V::MaskOf(V::Eq(V::And(v, high11), zero));
    unsigned end = V::kUnits;
    if (V::DropBefore(mz, drop)) end = V::First(V::DropBefore(mz, drop));
    one = V::KeepBefore(V::DropBefore(one, drop), end);
    two = V::KeepBefore(V::DropBefore(two, drop), end);
    bytes += 3u * (end - drop) - V::Count(one) - V::Count(two);
    if (end != V::kUnits) return bytes;
  }
}

// The conversion loops with the runs of ASCII handed to Narrow/Widen, which
// copy a run of units (bytes) below 0x80 and return its length: at least one
// when the first is ASCII, never more than limit, never past a non-ASCII one.
template <size_t (*Narrow)(const unsigned short*, size_t, char*)>
size_t RunsToUtf8(const unsigned short* source, size_t n, char* dest, size_t room) {
  size_t i = 0;
  size_t w = 0;
  // The room test comes once per character, not per byte: a sequence that
  // starts below room is written whole.
  while (i < n && w < room) {
    const unsigned c = source[i];
    if (c < 0x80) {
      const size_t limit = (n - i < room - w) ? n - i : room - w;
      const size_t run = Narrow(source + i, limit, dest + w);
      i += run;
      w += run;
      continue;
    }
    if (c < 0x800) {
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

// The bytes of the sequence led by b: 1 below 0x80, 3 when bit 0x20 is set,
// 2 otherwise. Nothing is validated: any byte with the top bit set is a
// lead, any next byte a continuation.
inline size_t SequenceLength(unsigned b) { return b < 0x80 ? 1 : (b & 0x20) ? 3 : 2; }

// The unit of the sequence at src (its SequenceLength bytes must be there).
// A three-byte lead keeps only its low four bits, as the 16-bit result holds.
inline unsigned short DecodeSequence(const unsigned char* src) {
  const unsigned b = src[0];
  if (b < 0x80) return static_cast<unsigned short>(b);
  if (b & 0x20)
    return static_cast<unsigned short>(((b & 0x1F) << 12) | ((src[1] & 0x3Fu) << 6) |
                                       (src[2] & 0x3Fu));
  return static_cast<unsigned short>(((b & 0x1F) << 6) | (src[1] & 0x3Fu));
}

template <size_t (*Widen)(const unsigned char*, size_t, unsigned short*)>
size_t RunsFromUtf8(const unsigned char* src, size_t n, unsigned short* dest, size_t room) {
  size_t i = 0;
  size_t w = 0;
  while (i < n && w < room) {
    const unsigned b = src[i];
    if (b < 0x80) {
      const size_t limit = (n - i < room - w) ? n - i : room - w;
      const size_t run = Widen(src + i, limit, dest + w);
      i += run;
      w += run;
      continue;
    }
    // An incomplete sequence at the end is dropped.
    const size_t length = SequenceLength(b);
    if (n - i < length) break;
    dest[w] = DecodeSequence(src + i);
    i += length;
    ++w;
  }
  return w;
}

}  // namespace

#endif
