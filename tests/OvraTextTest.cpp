// Tests of the text kernels (Src/OvraText*.cpp): every implementation this
// processor runs (word-at-a-time always; SSE2, AVX2 or NEON where present)
// against the scalar reference, on random and adversarial inputs, and with
// strings placed against an inaccessible page, so that a wide load that
// strays into a page the scalar loop would not touch faults.
#include <gtest/gtest.h>
#include <stdint.h>
#include <string.h>
#if !defined(_WIN32)
#include <sys/mman.h>
#include <unistd.h>
#endif

#include <string>
#include <vector>

#include "TestPlatform.h"
#include "OvraText.h"

namespace {

typedef unsigned short U16;

const STextKernels& Ref() { return TextScalarKernels(); }

std::vector<const STextKernels*> WideKernels() {
  std::vector<const STextKernels*> all;
  all.push_back(&TextSwarKernels());
  if (TextSse2Kernels()) all.push_back(TextSse2Kernels());
  if (TextAvx2Kernels()) all.push_back(TextAvx2Kernels());
  if (TextNeonKernels()) all.push_back(TextNeonKernels());
  return all;
}

struct TRandom {
  explicit TRandom(uint32_t seed) : x(seed ? seed : 1) {}
  uint32_t Next() {
    x ^= x << 13;
    x ^= x >> 17;
    x ^= x << 5;
    return x;
  }
  uint32_t Below(uint32_t n) { return Next() % n; }
  uint32_t x;
};

// A non-zero unit: mostly ASCII letters (both cases, so that folding
// matters), then the boundaries of the case range, then anything.
U16 RandomUnit(TRandom& r) {
  static const U16 kEdges[] = {'@', 'A', 'Z', '[', '`', 'a', 'z', '{', 0x7F, 0x80, 0xFF,
                               0x100, 0x141, 0x161, 0x7FF, 0x800, 0x8061, 0xD800, 0xFFFF, 1};
  switch (r.Below(4)) {
    case 0:
      return static_cast<U16>('a' + r.Below(26));
    case 1:
      return static_cast<U16>('A' + r.Below(26));
    case 2:
      return kEdges[r.Below(sizeof kEdges / sizeof kEdges[0])];
    default: {
      const U16 u = static_cast<U16>(r.Next());
      return u ? u : 0x20;
    }
  }
}

// Memory with room for a string at any alignment: 64-byte aligned storage
// whose units after the string are random garbage (zeros included), so a
// kernel that looks past the terminator sees something misleading.
struct TBuffer {
  explicit TBuffer(size_t units) : storage(units + 64) {}
  U16* At(size_t offsetUnits) {
    uintptr_t p = reinterpret_cast<uintptr_t>(storage.data());
    p = (p + 63) & ~static_cast<uintptr_t>(63);
    return reinterpret_cast<U16*>(p) + offsetUnits;
  }
  std::vector<U16> storage;
};

void FillGarbage(U16* p, size_t n, TRandom& r) {
  for (size_t i = 0; i < n; ++i) p[i] = r.Below(4) == 0 ? 0 : RandomUnit(r);
}

class TextKernelTest : public ::testing::TestWithParam<const STextKernels*> {
 protected:
  const STextKernels& K() const { return *GetParam(); }
};

TEST_P(TextKernelTest, LengthsAgreeForEveryLengthAndAlignment) {
  TRandom r(11);
  TBuffer buffer(400);
  for (size_t offset = 0; offset < 32; ++offset) {
    for (size_t length = 0; length <= 300; ++length) {
      U16* s = buffer.At(offset);
      FillGarbage(s, 360, r);
      for (size_t i = 0; i < length; ++i) s[i] = RandomUnit(r);
      s[length] = 0;
      ASSERT_EQ(K().len(s), length) << "offset " << offset;
      const size_t bounds[] = {0, 1, length / 2, length, length + 1, length + 17, SIZE_MAX};
      for (size_t n : bounds) {
        ASSERT_EQ(K().nlen(s, n), Ref().nlen(s, n)) << "length " << length << " n " << n;
      }
      ASSERT_EQ(K().utf8Len(s), Ref().utf8Len(s)) << "length " << length;
    }
  }
}

TEST_P(TextKernelTest, CharacterSearchesAgree) {
  TRandom r(22);
  TBuffer buffer(400);
  for (size_t offset = 0; offset < 32; ++offset) {
    for (size_t length = 0; length <= 300; length += 1 + (length > 40 ? 7 : 0)) {
      U16* s = buffer.At(offset);
      FillGarbage(s, 360, r);
      // A small alphabet makes repeated hits likely.
      for (size_t i = 0; i < length; ++i)
        s[i] = r.Below(3) ? static_cast<U16>('a' + r.Below(4)) : RandomUnit(r);
      s[length] = 0;
      const U16 probes[] = {0, 'a', 'b', 'c', 'd', 'A', 0xFFFF, 0x100,
                            length ? s[length - 1] : U16('x'), s[length + 1], s[length + 5]};
      for (U16 ch : probes) {
        ASSERT_EQ(K().chr(s, ch), Ref().chr(s, ch)) << "length " << length << " ch " << ch;
        ASSERT_EQ(K().rchr(s, ch), Ref().rchr(s, ch)) << "length " << length << " ch " << ch;
      }
    }
  }
}

TEST_P(TextKernelTest, ComparisonsAgreeOnEveryDifferencePositionAndAlignmentPair) {
  TRandom r(33);
  TBuffer ba(400), bb(400);
  for (size_t length = 0; length <= 300; length += 1 + (length > 70 ? 5 : 0)) {
    for (int trial = 0; trial < 24; ++trial) {
      U16* a = ba.At(r.Below(32));
      U16* b = bb.At(r.Below(32));
      FillGarbage(a, 340, r);
      FillGarbage(b, 340, r);
      for (size_t i = 0; i < length; ++i) a[i] = RandomUnit(r);
      a[length] = 0;
      memcpy(b, a, (length + 1) * sizeof(U16));
      if (length) {
        const size_t at = r.Below(static_cast<uint32_t>(length + 1));
        switch (trial % 6) {
          case 0:  // equal
            break;
          case 1:  // one unit differs
            if (at < length) b[at] = RandomUnit(r);
            break;
          case 2:  // b shorter
            b[at] = 0;
            break;
          case 3:  // a shorter
            a[at] = 0;
            break;
          case 4:  // case differences only, from some position on
            for (size_t i = at; i < length; ++i) {
              if (b[i] >= 'a' && b[i] <= 'z') b[i] = static_cast<U16>(b[i] - 32);
              else if (b[i] >= 'A' && b[i] <= 'Z') b[i] = static_cast<U16>(b[i] + 32);
            }
            break;
          default:  // a folding boundary against a letter
            if (at < length) {
              static const U16 kPairs[][2] = {{'@', '`'}, {'[', '{'}, {'a', 'A'}, {'z', 'Z'},
                                              {'a' + 0x100, 'A' + 0x100}, {'`', '@'},
                                              {'{', '['}, {0xFF, 0xDF}};
              const U16* pair = kPairs[r.Below(8)];
              a[at] = pair[0];
              b[at] = pair[1];
            }
            break;
        }
      }
      ASSERT_EQ(K().cmp(a, b), Ref().cmp(a, b)) << "length " << length << " trial " << trial;
      ASSERT_EQ(K().icmp(a, b), Ref().icmp(a, b)) << "length " << length << " trial " << trial;
      const size_t bounds[] = {0, 1, length / 2, length, length + 1, r.Below(400), SIZE_MAX};
      for (size_t n : bounds) {
        ASSERT_EQ(K().ncmp(a, b, n), Ref().ncmp(a, b, n)) << "length " << length << " n " << n;
        ASSERT_EQ(K().nicmp(a, b, n), Ref().nicmp(a, b, n)) << "length " << length << " n " << n;
      }
    }
  }
}

TEST_P(TextKernelTest, SubstringSearchAgrees) {
  TRandom r(44);
  TBuffer bs(400), bn(64);
  for (size_t length = 0; length <= 300; length += 1 + (length > 50 ? 9 : 0)) {
    for (int trial = 0; trial < 40; ++trial) {
      U16* s = bs.At(r.Below(32));
      U16* sub = bn.At(r.Below(16));
      FillGarbage(s, 340, r);
      FillGarbage(sub, 40, r);
      const U16 alphabet = static_cast<U16>(1 + r.Below(3));
      for (size_t i = 0; i < length; ++i) s[i] = static_cast<U16>('a' + r.Below(alphabet));
      s[length] = 0;
      size_t m = r.Below(12);
      if (trial % 3 == 0 && length) {
        // A piece of s itself, so there is a match somewhere.
        const size_t from = r.Below(static_cast<uint32_t>(length));
        m = m > length - from ? length - from : m;
        memcpy(sub, s + from, m * sizeof(U16));
      } else {
        for (size_t i = 0; i < m; ++i) sub[i] = static_cast<U16>('a' + r.Below(alphabet + 1));
      }
      sub[m] = 0;
      ASSERT_EQ(K().str(s, sub), Ref().str(s, sub)) << "length " << length << " m " << m;
    }
  }
}

// Source text for the conversions: ASCII runs, two- and three-byte units,
// and for the decoder any bytes at all.
std::vector<U16> RandomText(TRandom& r, size_t n, int mix) {
  std::vector<U16> text(n);
  for (size_t i = 0; i < n; ++i) {
    const uint32_t k = r.Below(64);
    if (mix == 0 || k < 40)
      text[i] = static_cast<U16>(r.Below(0x80));
    else if (k < 54)
      text[i] = static_cast<U16>(0x80 + r.Below(0x780));
    else if (k < 62 || mix == 1)
      text[i] = static_cast<U16>(0x800 + r.Below(0xF800));
    else
      text[i] = static_cast<U16>(r.Next());
  }
  return text;
}

std::vector<unsigned char> RandomBytes(TRandom& r, size_t n, int mix) {
  // mix 0: ASCII; 1: well-formed sequences; 2: well-formed with stray bytes;
  // 3: anything.
  std::vector<unsigned char> bytes;
  while (bytes.size() < n) {
    if (mix == 3) {
      bytes.push_back(static_cast<unsigned char>(r.Next()));
      continue;
    }
    const uint32_t k = r.Below(64);
    if (mix == 0 || k < 40) {
      bytes.push_back(static_cast<unsigned char>(r.Below(0x80)));
    } else if (k < 54) {
      bytes.push_back(static_cast<unsigned char>(0xC0 + r.Below(0x20)));
      bytes.push_back(static_cast<unsigned char>(0x80 + r.Below(0x40)));
    } else if (k < 62 || mix == 1) {
      bytes.push_back(static_cast<unsigned char>(0xE0 + r.Below(0x20)));
      bytes.push_back(static_cast<unsigned char>(0x80 + r.Below(0x40)));
      bytes.push_back(static_cast<unsigned char>(0x80 + r.Below(0x40)));
    } else {
      bytes.push_back(static_cast<unsigned char>(r.Next()));
    }
  }
  bytes.resize(n);
  return bytes;
}

TEST_P(TextKernelTest, Utf8EncodingGivesTheSameBytesAndCountsAndWritesNothingMore) {
  TRandom r(55);
  for (int mix = 0; mix < 3; ++mix) {
    for (size_t n = 1; n <= 300; n += 1 + (n > 64 ? 13 : 0)) {
      for (int trial = 0; trial < 8; ++trial) {
        const std::vector<U16> text = RandomText(r, n, mix);
        const size_t rooms[] = {1, 2, 3, n / 2 + 1, n, 2 * n, 3 * n, 3 * n + 5,
                                1 + r.Below(static_cast<uint32_t>(3 * n))};
        for (size_t room : rooms) {
          std::vector<char> want(room + 2 + 64, '\x5A'), got(room + 2 + 64, '\x5A');
          const size_t w1 = Ref().toUtf8(text.data(), n, want.data(), room);
          const size_t w2 = K().toUtf8(text.data(), n, got.data(), room);
          ASSERT_EQ(w2, w1) << "mix " << mix << " n " << n << " room " << room;
          ASSERT_TRUE(want == got) << "mix " << mix << " n " << n << " room " << room;
        }
      }
    }
  }
}

TEST_P(TextKernelTest, Utf8DecodingGivesTheSameUnitsAndCountsForAnyBytes) {
  TRandom r(66);
  for (int mix = 0; mix < 4; ++mix) {
    for (size_t n = 1; n <= 300; n += 1 + (n > 64 ? 11 : 0)) {
      for (int trial = 0; trial < 8; ++trial) {
        const std::vector<unsigned char> bytes = RandomBytes(r, n, mix);
        const size_t rooms[] = {1, 2, n / 3 + 1, n / 2, n, n + 7,
                                1 + r.Below(static_cast<uint32_t>(n + 1))};
        for (size_t room : rooms) {
          if (room == 0) continue;
          std::vector<U16> want(room + 32, 0x5A5A), got(room + 32, 0x5A5A);
          const size_t w1 = Ref().fromUtf8(bytes.data(), n, want.data(), room);
          const size_t w2 = K().fromUtf8(bytes.data(), n, got.data(), room);
          ASSERT_EQ(w2, w1) << "mix " << mix << " n " << n << " room " << room;
          ASSERT_TRUE(want == got) << "mix " << mix << " n " << n << " room " << room;
        }
      }
    }
  }
}

TEST_P(TextKernelTest, SingleByteConversionsAgree) {
  TRandom r(77);
  for (size_t n = 0; n <= 300; ++n) {
    const std::vector<U16> text = RandomText(r, n, 2);
    std::vector<char> want(n + 40, 'Z'), got(n + 40, 'Z');
    Ref().toLatin1(text.data(), n, want.data());
    K().toLatin1(text.data(), n, got.data());
    ASSERT_TRUE(want == got) << "n " << n;
    const std::vector<unsigned char> bytes = RandomBytes(r, n, 3);
    std::vector<U16> wide1(n + 20, 7), wide2(n + 20, 7);
    Ref().fromLatin1(bytes.data(), n, wide1.data());
    K().fromLatin1(bytes.data(), n, wide2.data());
    ASSERT_TRUE(wide1 == wide2) << "n " << n;
  }
}

size_t PageSize() {
#if defined(_WIN32)
  return ovra_test::win::PageSize();
#else
  return static_cast<size_t>(sysconf(_SC_PAGESIZE));
#endif
}

// Two pages readable and writable followed by one that is not: data placed
// to end exactly at the guard makes any read or write past it fault.
class TGuardedPages {
 public:
  TGuardedPages() {
    page_ = PageSize();
#if defined(_WIN32)
    base_ = ovra_test::win::MapPages(4);
    if (base_) {
      // Guards on both sides: [guard][page][page][guard].
      ovra_test::win::ProtectNoAccess(base_, page_);
      ovra_test::win::ProtectNoAccess(base_ + 3 * page_, page_);
    }
#else
    void* p = mmap(nullptr, 4 * page_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    base_ = p == MAP_FAILED ? nullptr : static_cast<unsigned char*>(p);
    if (base_) {
      // Guards on both sides: [guard][page][page][guard].
      mprotect(base_, page_, PROT_NONE);
      mprotect(base_ + 3 * page_, page_, PROT_NONE);
    }
#endif
  }
  ~TGuardedPages() {
#if defined(_WIN32)
    if (base_) ovra_test::win::UnmapPages(base_, 4);
#else
    if (base_) munmap(base_, 4 * page_);
#endif
  }
  bool ok() const { return base_ != nullptr; }
  // The first usable byte, just after the lower guard.
  unsigned char* Begin() const { return base_ + page_; }
  // One past the last usable byte, where the upper guard starts.
  unsigned char* End() const { return base_ + 3 * page_; }

 private:
  size_t page_ = 0;
  unsigned char* base_ = nullptr;
};

TEST_P(TextKernelTest, StringsEndingAtAnInaccessiblePageAreReadSafely) {
  TGuardedPages pages, other;
  ASSERT_TRUE(pages.ok() && other.ok());
  TRandom r(88);
  for (size_t length = 0; length <= 300; ++length) {
    // The terminator is the last unit before the guard.
    U16* s = reinterpret_cast<U16*>(pages.End()) - (length + 1);
    for (size_t i = 0; i < length; ++i) s[i] = static_cast<U16>('a' + r.Below(3));
    s[length] = 0;
    ASSERT_EQ(K().len(s), length);
    ASSERT_EQ(K().nlen(s, SIZE_MAX), length);
    ASSERT_EQ(K().nlen(s, length + 1000), length);
    ASSERT_EQ(K().utf8Len(s), length);
    ASSERT_EQ(K().chr(s, 'z'), Ref().chr(s, 'z'));
    ASSERT_EQ(K().chr(s, 0), s + length);
    ASSERT_EQ(K().rchr(s, 'a'), Ref().rchr(s, 'a'));
    // The same text, and a copy of it, ending at another guard at a
    // different alignment.
    for (size_t shift = 0; shift < 16; ++shift) {
      U16* t = reinterpret_cast<U16*>(other.End()) - (length + 1) - shift;
      memcpy(t, s, (length + 1) * sizeof(U16));
      ASSERT_EQ(K().cmp(s, t), 0);
      ASSERT_EQ(K().icmp(t, s), 0);
      ASSERT_EQ(K().ncmp(s, t, SIZE_MAX), 0);
      ASSERT_EQ(K().nicmp(s, t, length + 5), 0);
      if (length) {
        t[length - 1] = 'b';
        ASSERT_EQ(K().cmp(s, t), Ref().cmp(s, t));
        ASSERT_EQ(K().icmp(s, t), Ref().icmp(s, t));
      }
    }
    // Searching: the needle ends at the guard too.
    for (size_t m = 1; m <= 5 && m <= length + 1; ++m) {
      U16* sub = reinterpret_cast<U16*>(other.End()) - (m + 1);
      for (size_t i = 0; i < m; ++i) sub[i] = static_cast<U16>('a' + r.Below(3));
      sub[m] = 0;
      ASSERT_EQ(K().str(s, sub), Ref().str(s, sub)) << "length " << length << " m " << m;
    }
  }
}

TEST_P(TextKernelTest, StringsStartingAfterAnInaccessiblePageAreReadSafely) {
  TGuardedPages pages;
  ASSERT_TRUE(pages.ok());
  for (size_t start = 0; start < 64; start += 2) {
    U16* s = reinterpret_cast<U16*>(pages.Begin() + start);
    for (size_t length = 0; length < 40; ++length) {
      for (size_t i = 0; i < length; ++i) s[i] = static_cast<U16>('a' + i % 5);
      s[length] = 0;
      ASSERT_EQ(K().len(s), length);
      ASSERT_EQ(K().rchr(s, 'c'), Ref().rchr(s, 'c'));
      ASSERT_EQ(K().cmp(s, s), 0);
      const U16 sub[] = {'c', 'd', 0};
      ASSERT_EQ(K().str(s, sub), Ref().str(s, sub));
    }
  }
}

TEST_P(TextKernelTest, ComparisonsAgreeWhereEitherStringCrossesAPage) {
  TGuardedPages pa, pb;
  ASSERT_TRUE(pa.ok() && pb.ok());
  const size_t page = PageSize();
  TRandom r(111);
  const size_t kLength = 160;
  for (size_t before = 0; before <= 2 * 72; before += 2) {
    // a crosses from its first page into the second `before` bytes after it
    // starts; b sits at another offset of its own pages.
    U16* a = reinterpret_cast<U16*>(pa.Begin() + page - before);
    U16* b = reinterpret_cast<U16*>(pb.Begin() + page - (before * 7 + 34) % 160);
    for (size_t i = 0; i < kLength; ++i) a[i] = static_cast<U16>('a' + r.Below(26));
    a[kLength] = 0;
    for (int trial = 0; trial < 12; ++trial) {
      memcpy(b, a, (kLength + 1) * sizeof(U16));
      // A difference (a case change, another letter or an early end) near
      // the page boundary of a or b, or nowhere.
      const size_t near = trial % 2 ? before / 2 : (page - (reinterpret_cast<uintptr_t>(b) & (page - 1))) / 2;
      const size_t at = (near + r.Below(20) + kLength - 10) % kLength;
      if (trial % 4 == 1) b[at] = static_cast<U16>(b[at] - 32);
      if (trial % 4 == 2) b[at] = static_cast<U16>('a' + r.Below(26));
      if (trial % 4 == 3) b[at] = 0;
      ASSERT_EQ(K().cmp(a, b), Ref().cmp(a, b)) << "before " << before << " at " << at;
      ASSERT_EQ(K().cmp(b, a), Ref().cmp(b, a)) << "before " << before << " at " << at;
      ASSERT_EQ(K().icmp(a, b), Ref().icmp(a, b)) << "before " << before << " at " << at;
      for (size_t n : {size_t(5), at, at + 1, kLength, size_t(1000)}) {
        ASSERT_EQ(K().ncmp(a, b, n), Ref().ncmp(a, b, n)) << "before " << before << " n " << n;
        ASSERT_EQ(K().nicmp(b, a, n), Ref().nicmp(b, a, n)) << "before " << before << " n " << n;
      }
    }
  }
}

TEST_P(TextKernelTest, ConversionsTouchNothingPastTheirBuffersAtAGuard) {
  TGuardedPages in, out, aux;
  ASSERT_TRUE(in.ok() && out.ok() && aux.ok());
  TRandom r(99);
  for (size_t n = 1; n <= 300; n += 1 + (n > 100 ? 6 : 0)) {
    for (int mix = 0; mix < 3; ++mix) {
      // Encoding: the source ends at a guard, and the destination is exactly
      // as long as the output, ending at another.
      const std::vector<U16> text = RandomText(r, n, mix);
      U16* src = reinterpret_cast<U16*>(in.End()) - n;
      memcpy(src, text.data(), n * sizeof(U16));
      std::vector<char> want(3 * n + 2);
      const size_t bytes = Ref().toUtf8(src, n, want.data(), 3 * n);
      char* dst = reinterpret_cast<char*>(out.End()) - bytes;
      ASSERT_EQ(K().toUtf8(src, n, dst, 3 * n), bytes) << "n " << n;
      ASSERT_EQ(memcmp(dst, want.data(), bytes), 0) << "n " << n;
      // Decoding those bytes from where they end at the guard, into exactly
      // as many units as they give.
      std::vector<U16> ref(n);
      const size_t units = Ref().fromUtf8(reinterpret_cast<unsigned char*>(dst), bytes,
                                          ref.data(), n);
      ASSERT_EQ(units, n);
      U16* wide = reinterpret_cast<U16*>(aux.End()) - units;
      ASSERT_EQ(K().fromUtf8(reinterpret_cast<unsigned char*>(dst), bytes, wide, units), units);
      ASSERT_EQ(memcmp(wide, ref.data(), units * sizeof(U16)), 0);
      // Any bytes, decoded into a destination as long as the result.
      const std::vector<unsigned char> noise = RandomBytes(r, n, 2 + mix % 2);
      unsigned char* from = out.End() - n;
      memcpy(from, noise.data(), n);
      const size_t got = Ref().fromUtf8(from, n, ref.data(), n);
      const size_t room = got ? got : 1;
      U16* to = reinterpret_cast<U16*>(aux.End()) - room;
      ASSERT_EQ(K().fromUtf8(from, n, to, room), got) << "n " << n;
      ASSERT_EQ(memcmp(to, ref.data(), got * sizeof(U16)), 0);
      // The single-byte conversions, both buffers at guards.
      char* narrow = reinterpret_cast<char*>(out.End()) - n;
      K().toLatin1(src, n, narrow);
      std::vector<char> narrowRef(n);
      Ref().toLatin1(src, n, narrowRef.data());
      ASSERT_EQ(memcmp(narrow, narrowRef.data(), n), 0);
      U16* widened = reinterpret_cast<U16*>(aux.End()) - n;
      K().fromLatin1(reinterpret_cast<unsigned char*>(narrow), n, widened);
      for (size_t i = 0; i < n; ++i)
        ASSERT_EQ(widened[i], static_cast<unsigned char>(narrowRef[i]));
    }
  }
}

std::string KernelName(const ::testing::TestParamInfo<const STextKernels*>& info) {
  return info.param->name;
}

INSTANTIATE_TEST_SUITE_P(Kernels, TextKernelTest, ::testing::ValuesIn(WideKernels()), KernelName);

TEST(TextKernelChoiceTest, TheLibraryUsesTheWidestTableTheProcessorRuns) {
  const STextKernels* want = &TextSwarKernels();
  if (TextSse2Kernels()) want = TextSse2Kernels();
  if (TextNeonKernels()) want = TextNeonKernels();
  if (TextAvx2Kernels()) want = TextAvx2Kernels();
  EXPECT_EQ(&TextKernels(), want);
  EXPECT_STREQ(TextScalarKernels().name, "scalar");
}

TEST(TextKernelChoiceTest, TheScalarReferenceKeepsTheDocumentedQuirks) {
  const U16 empty[] = {0};
  const U16 abc[] = {'a', 'b', 'c', 0};
  const U16 ABD[] = {'A', 'B', 'D', 0};
  EXPECT_EQ(Ref().str(empty, empty), nullptr);
  EXPECT_EQ(Ref().str(abc, empty), abc);
  EXPECT_EQ(Ref().icmp(abc, ABD), 'C' - 'D');
  EXPECT_EQ(Ref().cmp(abc, ABD), 'a' - 'A');
  const unsigned char four[] = {0xF0, 0x9F, 0x98, 0x80};
  U16 out[4] = {0, 0, 0, 0};
  // F0 is a three-byte lead here whose top bit falls outside 16 bits.
  EXPECT_EQ(Ref().fromUtf8(four, 4, out, 4), 1u);
  EXPECT_EQ(out[0], ((0xF0 & 0x0F) << 12) | ((0x9F & 0x3F) << 6) | (0x98 & 0x3F));
}

}  // namespace
