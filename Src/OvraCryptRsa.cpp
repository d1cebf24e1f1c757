// OvraCryptRsa.cpp - unsigned multi-precision integers and the RSA public-key cipher.
#include "OvraCryptRsa.h"

#include <stdint.h>
#include <string.h>

#include "OvraMem.h"

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

// r[0..la+lb) = a * b; r must not overlap a or b. Each row multiply-accumulates
// across b and stores its carry at the row's top position.
void MulWords(unsigned* r, const unsigned* a, unsigned la, const unsigned* b, unsigned lb) {
  memset(r, 0, static_cast<size_t>(la + lb) * sizeof(unsigned));
  for (unsigned i = 0; i < la; ++i) {
    const uint64_t ai = a[i];
    if (ai == 0) continue;
    unsigned* row = r + i;
    uint64_t carry = 0;
    for (unsigned k = 0; k < lb; ++k) {
      const uint64_t t = ai * b[k] + row[k] + carry;
      row[k] = static_cast<unsigned>(t);
      carry = t >> 32;
    }
    row[lb] = static_cast<unsigned>(carry);
  }
}

// r[0..2la) = a * a with each cross product computed once: the products a[i]a[k]
// for i < k are summed, doubled, and the squares a[i]^2 added.
void SqrWords(unsigned* r, const unsigned* a, unsigned la) {
  const unsigned n = 2 * la;
  memset(r, 0, static_cast<size_t>(n) * sizeof(unsigned));
  for (unsigned i = 0; i + 1 < la; ++i) {
    const uint64_t ai = a[i];
    if (ai == 0) continue;
    unsigned* row = r + 2 * i + 1;
    const unsigned* b = a + i + 1;
    const unsigned lb = la - i - 1;
    uint64_t carry = 0;
    for (unsigned k = 0; k < lb; ++k) {
      const uint64_t t = ai * b[k] + row[k] + carry;
      row[k] = static_cast<unsigned>(t);
      carry = t >> 32;
    }
    row[lb] = static_cast<unsigned>(carry);
  }
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

// a[0..n) -= q * b[0..n); returns the word still to subtract from a[n].
unsigned MulSubWords(unsigned* a, const unsigned* b, unsigned n, unsigned q) {
  uint64_t carry = 0;
  for (unsigned k = 0; k < n; ++k) {
    const uint64_t p = static_cast<uint64_t>(q) * b[k] + carry;
    const unsigned lo = static_cast<unsigned>(p);
    const unsigned ak = a[k];
    a[k] = ak - lo;
    carry = (p >> 32) + (ak < lo);
  }
  return static_cast<unsigned>(carry);
}

// r[0..n+1) = a[0..n) << bits, 0 <= bits < 32; r may be a.
void ShlBits(unsigned* r, const unsigned* a, unsigned n, unsigned bits) {
  if (bits == 0) {
    if (r != a) memmove(r, a, static_cast<size_t>(n) * sizeof(unsigned));
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
    if (r != a) memmove(r, a, static_cast<size_t>(n) * sizeof(unsigned));
    return;
  }
  for (unsigned i = 0; i < n; ++i) {
    const unsigned next = i + 1 < n ? a[i + 1] : 0;
    r[i] = (a[i] >> bits) | (next << (32 - bits));
  }
}

unsigned Normalised(const unsigned* w, unsigned n) {
  while (n && w[n - 1] == 0) --n;
  return n;
}

// Long division of A by the normalised divisor B (top bit of B[lb-1] set).
// A holds la words followed by at least one zero word (read as A[i] for the
// topmost digit). On return the remainder is in A[0..lb) and the words above it
// are zero; the quotient digits go to q[0..la-lb] unless q is null.
// Each digit is estimated from the top two words of the current window divided
// by top + 1, which never exceeds the true digit; the estimate times the divisor
// is subtracted and the digit then raised while the window still holds B.
void DivWords(unsigned* q, unsigned* A, unsigned la, const unsigned* B, unsigned lb) {
  if (la < lb) return;
  const unsigned top = B[lb - 1];
  for (unsigned j = la - lb + 1; j-- > 0;) {
    const unsigned i = j + lb;
    unsigned* win = A + j;
    unsigned digit;
    if (top == 0xFFFFFFFFu) {
      digit = A[i];
    } else {
      digit = TBigInt::WordDiv(A[i - 1], A[i], top + 1);
    }
    if (digit) A[i] -= MulSubWords(win, B, lb, digit);
    for (;;) {
      // The window A[j..i] against B: A[i] non-zero means it is larger.
      bool ge = A[i] != 0;
      if (!ge) {
        ge = true;
        for (unsigned k = lb; k-- > 0;) {
          if (win[k] != B[k]) {
            ge = win[k] > B[k];
            break;
          }
        }
      }
      if (!ge) break;
      A[i] -= SubWords(win, win, lb, B, lb);
      ++digit;
    }
    if (q) q[j] = digit;
  }
}

size_t WordBytes(unsigned words) { return static_cast<size_t>(words) * sizeof(unsigned); }

}  // namespace

// ---------------------------------------------------------------------------
// TBigInt

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
    r.Swap(t);
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
    r.Swap(t);
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
    r.Swap(t);
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
  // read above the top digit) and the shifted divisor B (lb + 1 words, the
  // last one taking the bits shifted out, which are zero).
  unsigned* A = static_cast<unsigned*>(OvraMemAlloc(WordBytes(la + 2 + lb + 1)));
  if (!A) return false;
  unsigned* B = A + la + 2;
  ShlBits(B, b.m_words, lb, shift);
  if (la) {
    ShlBits(A, a.m_words, la, shift);
  } else {
    A[0] = 0;
  }
  A[la + 1] = 0;
  const unsigned lenA = Normalised(A, la + 1);
  const unsigned qLen = lenA >= lb ? lenA - lb + 1 : 0;
  const unsigned rLen = lenA < lb ? lenA : lb;
  if (!q.AdjustBuffer(qLen, false) || !r.AdjustBuffer(rLen, false)) {
    OvraMemFree(A);
    return false;
  }
  DivWords(qLen ? q.m_words : nullptr, A, lenA, B, lb);
  q.FixLength();
  ShrBits(r.m_words, A, rLen, shift);
  r.FixLength();
  OvraMemFree(A);
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
  unsigned* B = static_cast<unsigned*>(OvraMemAlloc(WordBytes(lm + 1 + maxProduct + 2)));
  if (!B) {
    r.m_length = 0;
    return false;
  }
  unsigned* A = B + lm + 1;
  const unsigned shift = 32 - WordBits(m.m_words[lm - 1]);
  ShlBits(B, m.m_words, lm, shift);
  unsigned* R = r.m_words;
  unsigned lenR = 1;

  // A[0..lenP) holds a product: reduce it modulo m into R.
  auto reduce = [&](unsigned lenP) {
    ShlBits(A, A, lenP, shift);  // writes A[lenP]
    A[lenP + 1] = 0;
    const unsigned lenA = Normalised(A, lenP + 1);
    DivWords(nullptr, A, lenA, B, lm);
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
    r.Swap(t);
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
    r.Swap(t);
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
