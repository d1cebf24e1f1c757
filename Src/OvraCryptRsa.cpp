// OvraCryptRsa.cpp - unsigned multi-precision integers and the RSA public-key cipher.
#include "OvraCryptRsa.h"

#include <stdint.h>
#include <string.h>

#include <new>

#include "OvraMem.h"
#include "OvraRand.h"

static_assert(sizeof(unsigned) == 4, "big-integer words are 32 bits on every platform");

namespace {

// The word loops below work on raw arrays so that ExpMod and Div can run on one
// scratch block allocated up front instead of reallocating at every step.

// r[0..la] = a + b for la >= lb; r may be a. Returns nothing: the carry is
// stored in r[la].
void AddWords(unsigned* r, const unsigned* a, unsigned la, const unsigned* b, unsigned lb) {
  uint64_t carry = 0;
  unsigned i = 0;
  for (; i < lb; ++i) {
    carry += static_cast<uint64_t>(a[i]) + b[i];
    r[i] = static_cast<unsigned>(carry);
    carry >>= 32;
  }
  for (; i < la; ++i) {
    carry += a[i];
    r[i] = static_cast<unsigned>(carry);
    carry >>= 32;
  }
  r[la] = static_cast<unsigned>(carry);
}

// r[0..la) = a - b for la >= lb; returns the final borrow (1 when b > a).
unsigned SubWords(unsigned* r, const unsigned* a, unsigned la, const unsigned* b, unsigned lb) {
  unsigned borrow = 0;
  unsigned i = 0;
  for (; i < lb; ++i) {
    const unsigned ai = a[i];
    const unsigned d = ai - b[i];
    const unsigned nb = (ai < b[i]) | (d < borrow);
    r[i] = d - borrow;
    borrow = nb;
  }
  for (; i < la; ++i) {
    const unsigned ai = a[i];
    r[i] = ai - borrow;
    borrow = ai < borrow;
  }
  return borrow;
}

// a[0..n) += q * c[0..n); returns the carry word. This multiply-accumulate row
// is the inner loop of multiplication, squaring and division alike; its only
// chain from word to word is the carry, and unrolling lets the products of
// neighbouring words overlap.
unsigned MacRow(unsigned* a, const unsigned* c, unsigned n, unsigned q) {
  uint64_t carry = 0;
#pragma GCC unroll 4
  for (unsigned k = 0; k < n; ++k) {
    const uint64_t t = static_cast<uint64_t>(q) * c[k] + a[k] + carry;
    a[k] = static_cast<unsigned>(t);
    carry = t >> 32;
  }
  return static_cast<unsigned>(carry);
}

// a[0..n] += (q0 + q1 * 2^32) * c[0..n); returns the word for a[n+1] (modulo
// 2^32: callers know the true sum fits or only need it modulo the window).
// Two rows in one pass share the carry chain, which halves its length.
#if !defined(OVRA_BIGINT_PORTABLE_ONLY) && defined(__SIZEOF_INT128__)
// Where the compiler has a 128-bit type (OVRA_BIGINT_PORTABLE_ONLY builds
// without it, so that the tests reach the 32-bit loop below on every machine), the two rows are one row of a 64-bit
// multiplier over the words taken in pairs (the lower word first, which on
// little-endian machines is one 64-bit load), and one 64 by 64-bit product
// does the work of four 32 by 32-bit ones.
__extension__ typedef unsigned __int128 TDoubleWide;

inline uint64_t LoadPair(const unsigned* w) { return static_cast<uint64_t>(w[1]) << 32 | w[0]; }

inline void StorePair(unsigned* w, uint64_t v) {
  w[0] = static_cast<unsigned>(v);
  w[1] = static_cast<unsigned>(v >> 32);
}

unsigned MacRow2(unsigned* a, const unsigned* c, unsigned n, unsigned q0, unsigned q1) {
  const uint64_t q = static_cast<uint64_t>(q1) << 32 | q0;
  uint64_t carry = 0;  // what is still to be added at position k
  unsigned k = 0;
  for (; k + 1 < n; k += 2) {
    // At most (2^64 - 1)^2 + 2 (2^64 - 1) = 2^128 - 1: no overflow.
    const TDoubleWide t = static_cast<TDoubleWide>(q) * LoadPair(c + k) + LoadPair(a + k) + carry;
    StorePair(a + k, static_cast<uint64_t>(t));
    carry = static_cast<uint64_t>(t >> 64);
  }
  if (k < n) {
    const TDoubleWide t = static_cast<TDoubleWide>(q) * c[k] + a[k] + carry;  // below 2^97
    a[k] = static_cast<unsigned>(t);
    carry = static_cast<uint64_t>(t >> 32);
  }
  const uint64_t top = static_cast<uint64_t>(a[n]) + static_cast<unsigned>(carry);
  a[n] = static_cast<unsigned>(top);
  return static_cast<unsigned>((carry >> 32) + (top >> 32));
}
#else
// An empty barrier: stops the compiler from re-associating the sum before it,
// which would put the carry from word to word on a longer dependency chain.
inline void KeepInRegister(uint64_t& v) {
#if defined(__GNUC__) && defined(__x86_64__)
  __asm__("" : "+r"(v));
#else
  (void)v;
#endif
}

unsigned MacRow2(unsigned* a, const unsigned* c, unsigned n, unsigned q0, unsigned q1) {
  uint64_t carry = 0;
  uint64_t pending = 0;  // what earlier products still add to this position
  unsigned h1 = 0;       // high half of the last q1 product, for the next position
#pragma GCC unroll 2
  for (unsigned k = 0; k < n; ++k) {
    const uint64_t p0 = static_cast<uint64_t>(q0) * c[k];
    const uint64_t p1 = static_cast<uint64_t>(q1) * c[k];
    uint64_t x = static_cast<uint64_t>(a[k]) + static_cast<unsigned>(p0) + pending;
    KeepInRegister(x);  // so that the carry is added last, on the short chain
    const uint64_t t = x + carry;
    a[k] = static_cast<unsigned>(t);
    carry = t >> 32;
    pending = (p0 >> 32) + static_cast<unsigned>(p1) + h1;
    h1 = static_cast<unsigned>(p1 >> 32);
  }
  const uint64_t t = static_cast<uint64_t>(a[n]) + pending + carry;
  a[n] = static_cast<unsigned>(t);
  return static_cast<unsigned>((t >> 32) + h1);
}
#endif

// c[0..n) = 2^(32n) - b[0..n), the complement through which division
// subtracts a multiple of b by adding (b non-zero).
void Complement(unsigned* c, const unsigned* b, unsigned n) {
  unsigned carry = 1;
  for (unsigned k = 0; k < n; ++k) {
    const unsigned w = ~b[k] + carry;
    carry = carry && w == 0;
    c[k] = w;
  }
}

// r[0..la+lb) = a * b; r must not overlap a or b. Rows are taken two at a
// time; each pass multiply-accumulates across b and stores its carry at the
// pass's top position, which no earlier pass has reached.
void MulWords(unsigned* r, const unsigned* a, unsigned la, const unsigned* b, unsigned lb) {
  memset(r, 0, static_cast<size_t>(la + lb) * sizeof(unsigned));
  unsigned i = 0;
  for (; i + 1 < la; i += 2) r[i + lb + 1] = MacRow2(r + i, b, lb, a[i], a[i + 1]);
  if (i < la) r[i + lb] = MacRow(r + i, b, lb, a[i]);
}

// r[0..2la) = a * a with each cross product computed once: the products a[i]a[k]
// for i < k are summed, doubled, and the squares a[i]^2 added.
void SqrWords(unsigned* r, const unsigned* a, unsigned la) {
  const unsigned n = 2 * la;
  memset(r, 0, static_cast<size_t>(n) * sizeof(unsigned));
  // Rows i and i + 1 (a[i] times a[i+1..], a[i+1] times a[i+2..]) in one pass:
  // a[i] * a[i+1] at position 2i + 1, then (a[i] + a[i+1] * 2^32) times
  // a[i+2..] from position 2i + 2. The sum so far fits below position
  // la + i + 2, so the single product's carry stops by la + i and the pass's
  // top word lands on a word still zero.
  unsigned i = 0;
  for (; i + 2 < la; i += 2) {
    const uint64_t p = static_cast<uint64_t>(a[i]) * a[i + 1];
    unsigned* w = r + 2 * i + 1;
    uint64_t t = static_cast<uint64_t>(w[0]) + static_cast<unsigned>(p);
    w[0] = static_cast<unsigned>(t);
    t = (t >> 32) + (p >> 32) + w[1];
    w[1] = static_cast<unsigned>(t);
    for (t >>= 32, w += 2; t; t >>= 32, ++w) {
      t += *w;
      *w = static_cast<unsigned>(t);
    }
    r[la + i + 1] = MacRow2(r + 2 * i + 2, a + i + 2, la - i - 2, a[i], a[i + 1]);
  }
  if (i + 1 < la) r[i + la] = MacRow(r + 2 * i + 1, a + i + 1, la - i - 1, a[i]);
  // Double the cross products and add the squares in one pass.
  unsigned topBit = 0;
  uint64_t carry = 0;
  for (unsigned i = 0; i < la; ++i) {
    const uint64_t sq = static_cast<uint64_t>(a[i]) * a[i];
    const unsigned lo = r[2 * i];
    const unsigned hi = r[2 * i + 1];
    const unsigned dlo = (lo << 1) | topBit;
    const unsigned dhi = (hi << 1) | (lo >> 31);
    topBit = hi >> 31;
    carry += static_cast<uint64_t>(dlo) + static_cast<unsigned>(sq);
    r[2 * i] = static_cast<unsigned>(carry);
    carry >>= 32;
    carry += static_cast<uint64_t>(dhi) + static_cast<unsigned>(sq >> 32);
    r[2 * i + 1] = static_cast<unsigned>(carry);
    carry >>= 32;
  }
}

// r[0..n+1) = a[0..n) << bits, 0 <= bits < 32; r may be a.
void ShlBits(unsigned* r, const unsigned* a, unsigned n, unsigned bits) {
  if (bits == 0) {
    if (r != a && n) memmove(r, a, static_cast<size_t>(n) * sizeof(unsigned));
    r[n] = 0;
    return;
  }
  unsigned prev = 0;
  for (unsigned i = n; i-- > 0;) {
    const unsigned w = a[i];
    r[i + 1] = (prev << bits) | (w >> (32 - bits));
    prev = w;
  }
  r[0] = prev << bits;
}

// r[0..n) = a[0..n) >> bits, 0 <= bits < 32, the bits above a[n-1] being zero;
// r may be a.
void ShrBits(unsigned* r, const unsigned* a, unsigned n, unsigned bits) {
  if (bits == 0) {
    if (r != a && n) memmove(r, a, static_cast<size_t>(n) * sizeof(unsigned));
    return;
  }
  for (unsigned i = 0; i < n; ++i) {
    const unsigned next = i + 1 < n ? a[i + 1] : 0;
    r[i] = (a[i] >> bits) | (next << (32 - bits));
  }
}

// (high:low) / d for a quotient known to fit a word; the member WordDiv is
// exported, and calling it from the digit loop would go through the PLT.
inline unsigned DivWord(unsigned low, unsigned high, unsigned d) {
  return static_cast<unsigned>(((static_cast<uint64_t>(high) << 32) | low) / d);
}

unsigned Normalised(const unsigned* w, unsigned n) {
  while (n && w[n - 1] == 0) --n;
  return n;
}

// The normalised divisor of a long division (top bit of B[lb-1] set), its
// complement C (see Complement) and the constants of the digit estimate.
//
// This is schoolbook long division with a cautious digit estimate: each digit
// is estimated from the top words of the window so that it never exceeds the
// true digit, the estimate times B is subtracted, and the digit is raised
// while the window still holds B. The estimate (see Estimate) is almost always
// exact, so the raising pass is rare; digits are taken two at a time where
// that is safe, so that one pass over the window subtracts both.
class TDivisor {
 public:
  TDivisor(const unsigned* b, const unsigned* c, unsigned lb)
      : B(b), C(c), m_lb(lb), m_top(b[lb - 1]), m_d(0), m_v(0) {
    const uint64_t top2 = lb >= 2 ? (static_cast<uint64_t>(m_top) << 32 | b[lb - 2]) : 0;
    m_refine = lb >= 2 && top2 != UINT64_MAX;
    if (m_refine) {
      // d = top2 + 1 has its top bit set. v = floor((2^96 - 1) / d) - 2^32, the
      // reciprocal through which Estimate divides three words by d without a
      // hardware division: 2^64 - 1 divided by d is 1, then 32 one bits follow.
      m_d = top2 + 1;
      uint64_t rem = ~m_d;
      for (unsigned bit = 32; bit-- > 0;) {
        const bool over = rem >> 63;
        rem = rem << 1 | 1;
        if (over || rem >= m_d) {
          rem -= m_d;
          m_v |= 1u << bit;
        }
      }
    }
  }

  // Divides A (la words followed by at least one zero word) in place: the
  // remainder is left in A[0..lb) with zeros above it; the quotient digits go
  // to q[0..la-lb] unless q is null. Digits are taken two at a time where the
  // second can be estimated safely from the top words, so that one pass over
  // the window subtracts both.
  void Divide(unsigned* q, unsigned* A, unsigned la) const {
    if (la < m_lb) return;
    unsigned left = la - m_lb + 1;
    while (left) {
      if (left >= 2 && m_lb >= 3 && StepTwo(q, A, left - 1)) {
        left -= 2;
      } else {
        StepOne(q, A, left - 1);
        --left;
      }
    }
  }

 private:
  // Lower bound of the digit of a window whose top words are x2:x1:x0, with
  // x2:x1 not above B's top two words (the window is below B * 2^32).
  // Dividing by one more than the divisor's top words never overestimates:
  // with two words or more it is floor((x2:x1:x0) / (top2 + 1)), almost always
  // the exact digit, computed by the three-by-two division with the
  // reciprocal v (Moller and Granlund, "Improved division by invariant
  // integers", 2011); with one word the digit is exact.
  unsigned Estimate(unsigned x2, unsigned x1, unsigned x0) const {
    if (m_refine) {
      const unsigned d1 = static_cast<unsigned>(m_d >> 32), d0 = static_cast<unsigned>(m_d);
      const uint64_t qq = static_cast<uint64_t>(m_v) * x2 + (static_cast<uint64_t>(x2) << 32 | x1);
      unsigned q1 = static_cast<unsigned>(qq >> 32);
      const unsigned q0 = static_cast<unsigned>(qq);
      const unsigned r1 = x1 - q1 * d1;
      uint64_t r = (static_cast<uint64_t>(r1) << 32 | x0) - static_cast<uint64_t>(d0) * q1 - m_d;
      // The first adjustment goes either way about equally often, so it is
      // made without a branch; the second one is rare.
      const unsigned back = static_cast<unsigned>(r >> 32) >= q0;
      q1 += 1 - back;
      r += m_d & (0 - static_cast<uint64_t>(back));
      if (r >= m_d) ++q1;
      return q1;
    }
    if (m_lb == 1) return DivWord(x1, x2, m_top);  // one word: exact
    // top2 is all ones, so top + 1 does not fit a word: (x2:x1) / 2^32.
    return x2;
  }

  // Subtracts B from the window A[j..j+lb] while it holds B; returns how often.
  unsigned Correct(unsigned* A, unsigned j) const {
    unsigned* win = A + j;
    unsigned count = 0;
    for (;;) {
      bool ge = win[m_lb] != 0;
      if (!ge) {
        ge = true;
        for (unsigned k = m_lb; k-- > 0;) {
          if (win[k] != B[k]) {
            ge = win[k] > B[k];
            break;
          }
        }
      }
      if (!ge) return count;
      win[m_lb] -= SubWords(win, win, m_lb, B, m_lb);
      ++count;
    }
  }

  // Digit j alone.
  void StepOne(unsigned* q, unsigned* A, unsigned j) const {
    const unsigned i = j + m_lb;
    unsigned digit = Estimate(A[i], A[i - 1], m_lb >= 2 ? A[i - 2] : 0);
    // window - digit * B = window + digit * C - digit * 2^(32 lb); the result
    // is below 2^(32 (lb + 1)), so the top word comes out exact modulo 2^32.
    if (digit) A[i] += MacRow(A + j, C, m_lb, digit) - digit;
    digit += Correct(A, j);
    if (q) q[j] = digit;
  }

  // Digits j and j - 1 in one pass (lb >= 3, j >= 1). T, the top four words of
  // the window less the first digit times the top three words of B, bounds the
  // remainder the first digit leaves: below (T + 1) words and above T - q1
  // (the borrow the lower words may bring). The pass is taken only when T is
  // below B's top three words, which proves the first digit exact; the second
  // digit is then estimated from T - q1. Otherwise false, with A untouched.
  bool StepTwo(unsigned* q, unsigned* A, unsigned j) const {
    const unsigned i = j + m_lb;
    const unsigned q1 = Estimate(A[i], A[i - 1], A[i - 2]);
    const unsigned b0 = B[m_lb - 3], b1 = B[m_lb - 2], b2 = m_top;
    uint64_t p = static_cast<uint64_t>(q1) * b0;
    const unsigned m0 = static_cast<unsigned>(p);
    p = static_cast<uint64_t>(q1) * b1 + (p >> 32);
    const unsigned m1 = static_cast<unsigned>(p);
    p = static_cast<uint64_t>(q1) * b2 + (p >> 32);
    const unsigned m2 = static_cast<unsigned>(p);
    const unsigned m3 = static_cast<unsigned>(p >> 32);
    int64_t s = static_cast<int64_t>(A[i - 3]) - m0;
    const unsigned t0 = static_cast<unsigned>(s);
    s = (s >> 32) + A[i - 2] - m1;
    const unsigned t1 = static_cast<unsigned>(s);
    s = (s >> 32) + A[i - 1] - m2;
    const unsigned t2 = static_cast<unsigned>(s);
    s = (s >> 32) + A[i] - m3;
    if (s != 0) return false;
    if (t2 != b2 ? t2 > b2 : t1 != b1 ? t1 > b1 : t0 >= b0) return false;
    s = static_cast<int64_t>(t0) - q1;
    const unsigned l0 = static_cast<unsigned>(s);
    s = (s >> 32) + t1;
    const unsigned l1 = static_cast<unsigned>(s);
    s = (s >> 32) + t2;
    const unsigned l2 = static_cast<unsigned>(s);
    // With q1 exact, T - q1 cannot fall below zero (T < q1 would need a
    // remainder below q1 * (V - low part of B) while exactness needs at least
    // that much); the guard only keeps a wrapped bound from ever being used.
    const unsigned q0 = (s >> 32) < 0 ? 0 : Estimate(l2, l1, l0);
    // window - (q1 * 2^32 + q0) * B over A[j-1..i], through the complement.
    const unsigned high = MacRow2(A + j - 1, C, m_lb, q0, q1);
    const unsigned a1 = A[i - 1];
    A[i - 1] = a1 - q0;
    A[i] += high - q1 - (a1 < q0);
    // The first digit was exact, so only the second may need raising.
    const unsigned d0 = q0 + Correct(A, j - 1);
    if (q) {
      q[j] = q1;
      q[j - 1] = d0;
    }
    return true;
  }

  const unsigned* B;
  const unsigned* C;
  unsigned m_lb;
  unsigned m_top;
  uint64_t m_d;  // top2 + 1, when m_refine
  unsigned m_v;  // its reciprocal, see the constructor
  bool m_refine;
};

size_t WordBytes(unsigned words) { return static_cast<size_t>(words) * sizeof(unsigned); }

}  // namespace

// ---------------------------------------------------------------------------
// TBigInt

// Defined here as well, so that the library emits it and exports it: a
// program that binds a reference to it (a test's comparison, say) then finds
// it in ovra.dll on Windows, where the class's members are imported.
constexpr unsigned TBigInt::kMaxWords;

TBigInt::TBigInt() : m_words(nullptr), m_length(0), m_capacity(0) {}

TBigInt::TBigInt(const TBigInt& other) : m_words(nullptr), m_length(0), m_capacity(0) {
  *this = other;
}

TBigInt& TBigInt::operator=(const TBigInt& other) {
  if (&other == this) return *this;
  if (!AdjustBuffer(other.m_length, false)) {
    m_length = 0;
    return *this;
  }
  if (m_length) memcpy(m_words, other.m_words, WordBytes(m_length));
  return *this;
}

TBigInt::TBigInt(int value) : m_words(nullptr), m_length(0), m_capacity(0) {
  if (value != 0 && AdjustBuffer(1, false)) m_words[0] = static_cast<unsigned>(value);
}

TBigInt::TBigInt(const unsigned short* text) : m_words(nullptr), m_length(0), m_capacity(0) {
  if (!text) return;
  // First pass: count the significant digits (leading zeros add nothing to
  // value * 16 + digit), refusing more than the largest value holds.
  const size_t maxDigits = static_cast<size_t>(kMaxWords) * 8;
  size_t digits = 0;
  for (const unsigned short* p = text; *p; ++p) {
    const unsigned short c = *p;
    const bool hex = (c >= '0' && c <= '9') || (c >= 'A' && c <= 'F') || (c >= 'a' && c <= 'f');
    if (!hex || (digits == 0 && c == '0')) continue;
    if (++digits > maxDigits) return;
  }
  if (digits == 0) return;
  if (!AdjustBuffer(static_cast<unsigned>((digits + 7) / 8), false)) return;
  // Second pass: digit number `left` from the bottom lands in word left / 8.
  size_t left = digits;
  for (const unsigned short* p = text; left; ++p) {
    const unsigned short c = *p;
    unsigned d;
    if (c >= '0' && c <= '9') {
      d = c - '0';
    } else if (c >= 'A' && c <= 'F') {
      d = c - 'A' + 10;
    } else if (c >= 'a' && c <= 'f') {
      d = c - 'a' + 10;
    } else {
      continue;
    }
    if (left == digits && d == 0) continue;
    --left;
    m_words[left / 8] |= d << (4 * (left % 8));
  }
  FixLength();
}

TBigInt::TBigInt(const unsigned char* bytes, unsigned n)
    : m_words(nullptr), m_length(0), m_capacity(0) {
  SetBytes(bytes, n);
}

TBigInt::~TBigInt() { OvraMemFree(m_words); }

bool TBigInt::SetBytes(const unsigned char* bytes, unsigned n) {
  m_length = 0;
  if (!bytes) return n == 0;
  // Leading zero bytes add nothing, so only the significant ones count against
  // the size limit.
  while (n && *bytes == 0) {
    ++bytes;
    --n;
  }
  if (n == 0) return true;
  if (n > kMaxWords * 4) return false;
  if (!AdjustBuffer((n + 3) / 4, false)) return false;
  for (unsigned i = 0; i < n; ++i) {
    const unsigned pos = n - 1 - i;  // byte position from the least significant
    m_words[pos / 4] |= static_cast<unsigned>(bytes[i]) << (8 * (pos % 4));
  }
  FixLength();
  return true;
}

void TBigInt::Swap(TBigInt& other) {
  unsigned* w = m_words;
  m_words = other.m_words;
  other.m_words = w;
  unsigned t = m_length;
  m_length = other.m_length;
  other.m_length = t;
  t = m_capacity;
  m_capacity = other.m_capacity;
  other.m_capacity = t;
}

int TBigInt::ToInt() const { return m_length ? static_cast<int>(m_words[0]) : 0; }

TBstr TBigInt::ToString() const {
  static const char kDigits[] = "0123456789ABCDEF";
  TBstr text;
  if (m_length == 0) {
    const unsigned short zero[] = {'0', 0};
    text.Attach(OvraAllocString(zero));
    return text;
  }
  // Digits straight from the words, most significant first: the same text as
  // repeated division by 16, without the divisions. The length limit keeps
  // 8 * kMaxWords well inside a string's length.
  const unsigned top = m_words[m_length - 1];
  const unsigned topDigits = (WordBits(top) + 3) / 4;
  const unsigned count = topDigits + 8 * (m_length - 1);
  unsigned short* buffer = OvraAllocStringLen(nullptr, count);
  if (!buffer) return text;
  unsigned short* out = buffer;
  for (unsigned d = topDigits; d-- > 0;) *out++ = kDigits[(top >> (4 * d)) & 15];
  for (unsigned w = m_length - 1; w-- > 0;) {
    for (unsigned d = 8; d-- > 0;) *out++ = kDigits[(m_words[w] >> (4 * d)) & 15];
  }
  text.Attach(buffer);
  return text;
}

unsigned TBigInt::Dump(unsigned char* out, unsigned size) const {
  const unsigned count = m_length * 4;
  if (count == 0 || count > size || !out) return 0;
  for (unsigned i = 0; i < m_length; ++i) {
    const unsigned w = m_words[m_length - 1 - i];
    out[4 * i] = static_cast<unsigned char>(w >> 24);
    out[4 * i + 1] = static_cast<unsigned char>(w >> 16);
    out[4 * i + 2] = static_cast<unsigned char>(w >> 8);
    out[4 * i + 3] = static_cast<unsigned char>(w);
  }
  return count;
}

bool TBigInt::AdjustBuffer(unsigned words, bool keep) {
  if (words > m_capacity) {
    if (words > kMaxWords) return false;
    const unsigned capacity = (words + 7) & ~7u;
    unsigned* p = static_cast<unsigned*>(OvraMemAlloc(WordBytes(capacity)));
    if (!p) return false;
    unsigned kept = 0;
    if (keep && m_length) {
      kept = m_length < words ? m_length : words;
      memcpy(p, m_words, WordBytes(kept));
    }
    memset(p + kept, 0, WordBytes(capacity - kept));
    OvraMemFree(m_words);
    m_words = p;
    m_capacity = capacity;
  } else if (!keep) {
    if (words) memset(m_words, 0, WordBytes(words));
  } else if (words > m_length) {
    memset(m_words + m_length, 0, WordBytes(words - m_length));
  }
  m_length = words;
  return true;
}

void TBigInt::FixLength() {
  while (m_length && m_words[m_length - 1] == 0) --m_length;
}

unsigned TBigInt::WordMul(unsigned& high, unsigned a, unsigned b) {
  const uint64_t p = static_cast<uint64_t>(a) * b;
  high = static_cast<unsigned>(p >> 32);
  return static_cast<unsigned>(p);
}

unsigned TBigInt::WordDiv(unsigned low, unsigned high, unsigned d) {
  if (d == 0) return 0xFFFFFFFFu;
  return static_cast<unsigned>(((static_cast<uint64_t>(high) << 32) | low) / d);
}

unsigned TBigInt::WordBits(unsigned w) {
  return w ? 32u - static_cast<unsigned>(__builtin_clz(w)) : 0u;
}

int TBigInt::Cmp(const TBigInt& a, const TBigInt& b) {
  if (a.m_length != b.m_length) {
    return static_cast<int>(a.m_length) - static_cast<int>(b.m_length);
  }
  for (unsigned i = a.m_length; i-- > 0;) {
    if (a.m_words[i] != b.m_words[i]) return a.m_words[i] > b.m_words[i] ? 1 : -1;
  }
  return 0;
}

bool TBigInt::Add(TBigInt& r, const TBigInt& a, const TBigInt& b) {
  if (&r == &a || &r == &b) {
    TBigInt t;
    const bool ok = Add(t, a, b);
    if (ok) r.Swap(t);  // a failure leaves the operand that is also r alone
    return ok;
  }
  const TBigInt& longer = a.m_length >= b.m_length ? a : b;
  const TBigInt& shorter = a.m_length >= b.m_length ? b : a;
  if (!r.AdjustBuffer(longer.m_length + 1, false)) return false;
  AddWords(r.m_words, longer.m_words, longer.m_length, shorter.m_words, shorter.m_length);
  r.FixLength();
  return true;
}

bool TBigInt::Sub(TBigInt& r, const TBigInt& a, const TBigInt& b) {
  if (&r == &a || &r == &b) {
    TBigInt t;
    const bool ok = Sub(t, a, b);
    if (ok) r.Swap(t);  // a failure leaves the operand that is also r alone
    return ok;
  }
  const unsigned len = a.m_length >= b.m_length ? a.m_length : b.m_length;
  if (!r.AdjustBuffer(len, false)) return false;
  // Missing words of the shorter operand count as zero; r starts zeroed, so
  // copying a and subtracting b in place covers every combination of lengths.
  if (a.m_length) memcpy(r.m_words, a.m_words, WordBytes(a.m_length));
  if (SubWords(r.m_words, r.m_words, len, b.m_words, b.m_length)) {
    // b was greater than a: the difference would be negative, and an unsigned
    // value has no such result, so it is defined as zero.
    r.m_length = 0;
    return true;
  }
  r.FixLength();
  return true;
}

bool TBigInt::Mul(TBigInt& r, const TBigInt& a, const TBigInt& b) {
  if (&r == &a || &r == &b) {
    TBigInt t;
    const bool ok = Mul(t, a, b);
    if (ok) r.Swap(t);  // a failure leaves the operand that is also r alone
    return ok;
  }
  if (a.m_length == 0 || b.m_length == 0) return r.AdjustBuffer(0, false);
  if (!r.AdjustBuffer(a.m_length + b.m_length, false)) return false;
  if (&a == &b) {
    SqrWords(r.m_words, a.m_words, a.m_length);
  } else {
    MulWords(r.m_words, a.m_words, a.m_length, b.m_words, b.m_length);
  }
  r.FixLength();
  return true;
}

bool TBigInt::Div(TBigInt& q, TBigInt& r, const TBigInt& a, const TBigInt& b) {
  if (b.m_length == 0 || &q == &r) return false;
  if (&q == &a || &q == &b || &r == &a || &r == &b) {
    TBigInt tq, tr;
    const bool ok = Div(tq, tr, a, b);
    if (ok) {
      q.Swap(tq);
      r.Swap(tr);
    }
    return ok;
  }
  const unsigned lb = b.m_length;
  const unsigned la = a.m_length;
  const unsigned shift = 32 - WordBits(b.m_words[lb - 1]);
  // One scratch block: the shifted dividend A (la + 1 words plus a zero word
  // read above the top digit), the shifted divisor B (lb + 1 words, the last
  // one taking the bits shifted out, which are zero) and its complement C.
  unsigned* A = static_cast<unsigned*>(OvraMemAlloc(WordBytes(la + 2 + 2 * lb + 1)));
  if (!A) return false;
  unsigned* B = A + la + 2;
  unsigned* C = B + lb + 1;
  ShlBits(B, b.m_words, lb, shift);
  Complement(C, B, lb);
  if (la) {
    ShlBits(A, a.m_words, la, shift);
  } else {
    A[0] = 0;
  }
  A[la + 1] = 0;
  const unsigned lenA = Normalised(A, la + 1);
  const unsigned qLen = lenA >= lb ? lenA - lb + 1 : 0;
  const unsigned rLen = lenA < lb ? lenA : lb;
  // Neither result is changed before both have room, so that running out of
  // memory leaves them as they were: one that must grow is built in a
  // temporary (the only allocations) and swapped in at the end.
  TBigInt tq, tr;
  TBigInt& qOut = qLen > q.m_capacity ? tq : q;
  TBigInt& rOut = rLen > r.m_capacity ? tr : r;
  if ((&qOut == &tq && !tq.AdjustBuffer(qLen, false)) ||
      (&rOut == &tr && !tr.AdjustBuffer(rLen, false))) {
    OvraMemFree(A);
    return false;
  }
  if (&qOut == &q) q.AdjustBuffer(qLen, false);  // within its capacity: cannot fail
  if (&rOut == &r) r.AdjustBuffer(rLen, false);
  TDivisor(B, C, lb).Divide(qLen ? qOut.m_words : nullptr, A, lenA);
  qOut.FixLength();
  ShrBits(rOut.m_words, A, rLen, shift);
  rOut.FixLength();
  OvraMemFree(A);
  if (&qOut == &tq) q.Swap(tq);
  if (&rOut == &tr) r.Swap(tr);
  return true;
}

bool TBigInt::MulMod(TBigInt& r, const TBigInt& a, const TBigInt& b, const TBigInt& m) {
  if (m.m_length == 0) return false;
  TBigInt product, quotient;
  if (!Mul(product, a, b)) return false;
  return Div(quotient, r, product, m);
}

bool TBigInt::ExpMod(TBigInt& r, const TBigInt& base, const TBigInt& e, const TBigInt& m) {
  // The result of the reductions is deliberately not passed on, as callers of
  // this interface have always received true; a failure shows as r == 0.
  ExpModChecked(r, base, e, m);
  return true;
}

bool TBigInt::ExpModChecked(TBigInt& r, const TBigInt& base, const TBigInt& e,
                            const TBigInt& m) {
  if (&r == &base || &r == &e || &r == &m) {
    TBigInt t;
    const bool ok = ExpModChecked(t, base, e, m);
    r.Swap(t);
    return ok;
  }
  const unsigned lm = m.m_length;
  // r's own array holds the running value: room for a reduced value up front.
  if (!r.AdjustBuffer(lm > 1 ? lm : 1, false)) {
    r.m_length = 0;
    return false;
  }
  r.m_words[0] = 1;
  r.m_length = 1;
  // With no exponent bits nothing is reduced; with m zero every reduction
  // would be a division by zero that leaves r as it was. Either way r is 1.
  if (e.m_length == 0 || lm == 0) return true;

  // Each step is a product of at most lm + max(lm, len base) words, reduced by
  // the long division of Div with a divisor normalised once here; the square
  // or product is built in A, which also serves as the shifted dividend.
  const unsigned lbase = base.m_length;
  const unsigned maxProduct = lm + (lbase > lm ? lbase : lm);
  unsigned* B = static_cast<unsigned*>(OvraMemAlloc(WordBytes(2 * lm + 1 + maxProduct + 2)));
  if (!B) {
    r.m_length = 0;
    return false;
  }
  unsigned* C = B + lm + 1;
  unsigned* A = C + lm;
  const unsigned shift = 32 - WordBits(m.m_words[lm - 1]);
  ShlBits(B, m.m_words, lm, shift);
  Complement(C, B, lm);
  const TDivisor divisor(B, C, lm);
  unsigned* R = r.m_words;
  unsigned lenR = 1;

  // A[0..lenP) holds a product: reduce it modulo m into R.
  auto reduce = [&](unsigned lenP) {
    ShlBits(A, A, lenP, shift);  // writes A[lenP]
    A[lenP + 1] = 0;
    const unsigned lenA = Normalised(A, lenP + 1);
    divisor.Divide(nullptr, A, lenA);
    const unsigned rl = lenA < lm ? lenA : lm;
    ShrBits(R, A, rl, shift);
    lenR = Normalised(R, rl);
  };

  const unsigned topWord = e.m_words[e.m_length - 1];
  for (unsigned w = e.m_length; w-- > 0 && lenR;) {
    const unsigned word = e.m_words[w];
    // The top word's leading zero bits are skipped; its highest set bit is
    // the first step (squaring 1, then multiplying in the base). Once r is
    // zero it stays zero, so the walk stops.
    unsigned bit = w == e.m_length - 1 ? WordBits(topWord) : 32;
    while (bit-- > 0 && lenR) {
      SqrWords(A, R, lenR);
      reduce(2 * lenR);
      if ((word >> bit) & 1) {
        if (lbase == 0 || lenR == 0) {
          lenR = 0;
        } else {
          MulWords(A, R, lenR, base.m_words, lbase);
          reduce(lenR + lbase);
        }
      }
    }
  }
  r.m_length = lenR;
  OvraMemFree(B);
  return true;
}

bool TBigInt::Shl(TBigInt& r, const TBigInt& a, unsigned n) {
  if (&r == &a) {
    TBigInt t;
    const bool ok = Shl(t, a, n);
    if (ok) r.Swap(t);  // a failure leaves the operand that is also r alone
    return ok;
  }
  if (a.m_length == 0) return r.AdjustBuffer(0, false);
  const unsigned words = n / 32;
  if (words >= kMaxWords) return false;  // keeps the sum below from wrapping
  if (!r.AdjustBuffer(a.m_length + words + 1, false)) return false;
  ShlBits(r.m_words + words, a.m_words, a.m_length, n % 32);
  r.FixLength();
  return true;
}

bool TBigInt::Shr(TBigInt& r, const TBigInt& a, unsigned n) {
  if (&r == &a) {
    TBigInt t;
    const bool ok = Shr(t, a, n);
    if (ok) r.Swap(t);  // a failure leaves the operand that is also r alone
    return ok;
  }
  const unsigned words = n / 32;
  // Shifting out every word leaves nothing: the result is zero.
  if (words >= a.m_length) return r.AdjustBuffer(0, false);
  const unsigned len = a.m_length - words;
  if (!r.AdjustBuffer(len, false)) return false;
  ShrBits(r.m_words, a.m_words + words, len, n % 32);
  r.FixLength();
  return true;
}

// ---------------------------------------------------------------------------
// TRsaPublicCipher

namespace {

// Work blocks up to this size live on the stack.
constexpr unsigned kStackBlock = 256;

// A k-byte work block: on the stack up to kStackBlock bytes, else on the heap.
// Wiped before it is released, as it holds a message.
class TWorkBlock {
 public:
  explicit TWorkBlock(unsigned size)
      : m_size(size),
        m_heap(size > kStackBlock ? static_cast<unsigned char*>(OvraMemAlloc(size)) : nullptr),
        m_block(size > kStackBlock ? m_heap : m_stack) {}
  ~TWorkBlock() {
    if (m_block) {
      volatile unsigned char* p = m_block;
      for (unsigned i = 0; i < m_size; ++i) p[i] = 0;
    }
    OvraMemFree(m_heap);
  }
  TWorkBlock(const TWorkBlock&) = delete;
  TWorkBlock& operator=(const TWorkBlock&) = delete;

  unsigned char* Get() const { return m_block; }

 private:
  unsigned m_size;
  unsigned char* m_heap;
  unsigned char* m_block;
  unsigned char m_stack[kStackBlock];
};

// Reads the BER element at start with room bytes, but never past end; null
// lengths of the indefinite form are refused (their contents are unbounded).
bool DecodeWithin(const unsigned char* start, unsigned room, const unsigned char* end,
                  unsigned tag, SBerElement* element) {
  if (start > end) return false;
  const size_t left = static_cast<size_t>(end - start);
  if (room > left) room = static_cast<unsigned>(left);
  return OvraBerDecode(start, room, element) != 0 && element->tag == tag &&
         element->length != kBerIndefiniteLength;
}

// Fills n bytes with non-zero bytes from the shared generator, drawing again
// for every zero byte; the bytes taken from the generator and their order are
// those of drawing one byte at a time. False if 64 zero bytes come in a row,
// which only a generator that writes nothing produces.
bool FillNonZero(unsigned char* out, unsigned n) {
  unsigned filled = 0;
  unsigned zeroRun = 0;
  while (filled < n) {
    const unsigned want = n - filled;
    memset(out + filled, 0, want);
    OvraGenerateRandom(out + filled, want);
    unsigned kept = filled;
    for (unsigned i = filled; i < filled + want; ++i) {
      if (out[i]) {
        out[kept++] = out[i];
        zeroRun = 0;
      } else if (++zeroRun == 64) {
        return false;
      }
    }
    filled = kept;
  }
  return true;
}

}  // namespace

TRsaPublicCipher::TRsaPublicCipher(TCipher::ECipherOp op)
    : TRsaCipher(op), m_modulus(nullptr), m_modulusLen(0), m_exponent(nullptr), m_exponentLen(0) {}

TRsaPublicCipher::TRsaPublicCipher(TCipher::ECipherOp op, const unsigned char* modulus,
                                   unsigned modulusLen, const unsigned char* exponent,
                                   unsigned exponentLen)
    : TRsaCipher(op), m_modulus(nullptr), m_modulusLen(0), m_exponent(nullptr), m_exponentLen(0) {
  Construct(modulus, modulusLen, exponent, exponentLen);
}

TRsaPublicCipher::~TRsaPublicCipher() { Clear(); }

void TRsaPublicCipher::Clear() {
  delete[] m_modulus;
  delete[] m_exponent;
  m_modulus = nullptr;
  m_exponent = nullptr;
  m_modulusLen = 0;
  m_exponentLen = 0;
}

bool TRsaPublicCipher::Construct(const unsigned char* modulus, unsigned modulusLen,
                                 const unsigned char* exponent, unsigned exponentLen) {
  // A second call replaces the key: the earlier arrays are freed, whatever
  // the outcome.
  Clear();
  if ((!modulus && modulusLen) || (!exponent && exponentLen)) return false;
  if (modulusLen > 4 * TBigInt::kMaxWords || exponentLen > 4 * TBigInt::kMaxWords) return false;
  unsigned char* m = new (std::nothrow) unsigned char[modulusLen ? modulusLen : 1];
  unsigned char* e = new (std::nothrow) unsigned char[exponentLen ? exponentLen : 1];
  if (!m || !e) {
    delete[] m;
    delete[] e;
    return false;
  }
  if (modulusLen) memcpy(m, modulus, modulusLen);
  if (exponentLen) memcpy(e, exponent, exponentLen);
  m_modulus = m;
  m_modulusLen = modulusLen;
  m_exponent = e;
  m_exponentLen = exponentLen;
  return true;
}

unsigned TRsaPublicCipher::BerInit(const unsigned char* data, unsigned size) {
  if (!data) return 0;
  const unsigned char* end = data + size;
  SBerElement info, algorithm, bits, key, modulus, exponent;
  if (!DecodeWithin(data, size, end, 0x30, &info)) return 0;
  if (!DecodeWithin(info.data, info.length, end, 0x30, &algorithm)) return 0;
  if (!DecodeWithin(algorithm.data + algorithm.length, info.length - algorithm.length, end, 0x03,
                    &bits)) {
    return 0;
  }
  // The BIT STRING's first byte counts its unused bits; it is not examined.
  if (bits.length < 1) return 0;
  if (!DecodeWithin(bits.data + 1, bits.length - 1, end, 0x30, &key)) return 0;
  if (!DecodeWithin(key.data, key.length, end, 0x02, &modulus)) return 0;
  if (!DecodeWithin(modulus.data + modulus.length, key.length - modulus.length, end, 0x02,
                    &exponent)) {
    return 0;
  }
  if (modulus.length < 1) return 0;
  if (!Construct(modulus.data + 1, modulus.length - 1, exponent.data, exponent.length)) return 0;
  return size;
}

unsigned TRsaPublicCipher::BerDump(unsigned char*, unsigned) { return 0; }

unsigned TRsaPublicCipher::ProcessData(unsigned char* buf, unsigned len, bool final) {
  return m_op != eEncrypt ? DecryptData(buf, len, final) : EncryptData(buf, len, final);
}

bool TRsaPublicCipher::Power(const unsigned char* input, unsigned len, TBigInt& c) const {
  TBigInt n, e, m;
  if (!n.SetBytes(m_modulus, m_modulusLen) || !e.SetBytes(m_exponent, m_exponentLen) ||
      !m.SetBytes(input, len)) {
    return false;
  }
  // A zero modulus would make every reduction a division by zero.
  if (n.m_length == 0) return false;
  return TBigInt::ExpModChecked(c, m, e, n);
}

unsigned TRsaPublicCipher::EncryptData(unsigned char* buf, unsigned len, bool final) {
  const unsigned k = m_modulusLen;
  // One block per call, with at least 8 padding bytes (written so that
  // len + 11 cannot wrap).
  if (!final || !buf || k < 11 || len > k - 11) return 0;
  TWorkBlock work(k);
  unsigned char* block = work.Get();
  if (!block) return 0;
  // 00 02, non-zero random padding, 00, the message.
  block[0] = 0x00;
  block[1] = 0x02;
  if (!FillNonZero(block + 2, k - len - 3)) return 0;
  block[k - len - 1] = 0x00;
  memcpy(block + k - len, buf, len);
  TBigInt c;
  if (!Power(block, k, c)) return 0;
  return c.Dump(buf, k);
}

unsigned TRsaPublicCipher::DecryptData(unsigned char* buf, unsigned len, bool final) {
  const unsigned k = m_modulusLen;
  if (!final || !buf || k == 0 || len > k) return 0;
  TWorkBlock work(k);
  unsigned char* block = work.Get();
  if (!block) return 0;
  TBigInt m;
  if (!Power(buf, len, m)) return 0;
  // Zero-filled first, so that the bytes behind a short result read as zeros.
  memset(block, 0, k);
  if (m.Dump(block, k) == 0) return 0;
  // Block type 1: 00 01, FF bytes (any number, none included), 00, message.
  if (block[0] != 0x00 || block[1] != 0x01) return 0;
  unsigned pos = 2;
  while (pos < k - 1 && block[pos] == 0xFF) ++pos;
  if (block[pos] != 0x00) return 0;
  const unsigned count = k - pos - 1;
  memcpy(buf, block + pos + 1, count);
  return count;
}
