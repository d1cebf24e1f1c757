// OvraCryptRsa.h - unsigned multi-precision integers and the RSA public-key cipher.
#ifndef OVRA_OVRACRYPTRSA_H
#define OVRA_OVRACRYPTRSA_H

#include "OvraBstr.h"
#include "Unix/OvraPlatform.h"

// An unsigned multi-precision integer of 32-bit words (least significant first)
// with just what modular exponentiation needs. Arithmetic is static, writes into
// a caller-given result object and returns false only when a word buffer cannot
// be allocated (Div also for division by zero). A result may be the same object
// as an operand: the result is then computed into a temporary first.
// Values are limited to kMaxWords words; larger inputs and results are refused.
class OVRA_API TBigInt {
 public:
  // The largest number of words a value may have (2^20 words, 2^25 bits), so
  // that every count of bits, bytes and digits stays far inside 32-bit ints.
  static constexpr unsigned kMaxWords = 1u << 20;

  // Zero, without a word buffer.
  TBigInt();
  // Deep copy of the words in use; zero when the copy cannot be allocated.
  TBigInt(const TBigInt& other);
  // Deep copy; self-assignment does nothing. On allocation failure the value
  // becomes zero.
  TBigInt& operator=(const TBigInt& other);
  // Zero for 0, otherwise one word holding the value (a negative int gives its
  // 32-bit two's complement). Zero when the word cannot be allocated.
  TBigInt(int value);
  // Hexadecimal 16-bit text, most significant digit first. Every character other
  // than 0-9, A-F and a-f is skipped, so separators may stand anywhere. Null or
  // empty text gives zero; so does text with more significant digits than
  // kMaxWords words hold, and an allocation failure.
  TBigInt(const unsigned short* text);
  // Big-endian bytes, the first most significant. Null bytes give zero; so do
  // more significant bytes than kMaxWords words hold (leading zero bytes do not
  // count) and an allocation failure.
  TBigInt(const unsigned char* bytes, unsigned n);
  // Frees the words.
  ~TBigInt();

  // The least significant word as an int, 0 for zero.
  int ToInt() const;
  // Upper-case hexadecimal, most significant digit first, no leading zeros;
  // "0" for zero. Empty when the text cannot be allocated.
  TBstr ToString() const;
  // Writes the value big-endian: exactly 4 bytes per word in use, so up to three
  // leading zero bytes, never padded to size. Returns that count, or 0 (nothing
  // written) when it exceeds size or out is null. Zero writes nothing, returns 0.
  unsigned Dump(unsigned char* out, unsigned size) const;

  // Order of a and b: negative, zero or positive. Values of different word
  // lengths return len a - len b, so only the sign of the result has meaning.
  static int Cmp(const TBigInt& a, const TBigInt& b);
  // r = a + b.
  static bool Add(TBigInt& r, const TBigInt& a, const TBigInt& b);
  // r = a - b; when b is greater than a the result is zero (and true).
  static bool Sub(TBigInt& r, const TBigInt& a, const TBigInt& b);
  // r = a * b (schoolbook; a square when a and b are the same object).
  static bool Mul(TBigInt& r, const TBigInt& a, const TBigInt& b);
  // Quotient q and remainder r of a / b. False for b zero, with q and r
  // untouched, and when q and r are the same object (nothing is touched).
  static bool Div(TBigInt& q, TBigInt& r, const TBigInt& a, const TBigInt& b);
  // r = (a * b) mod m, by Mul and Div; false for m zero (r untouched).
  static bool MulMod(TBigInt& r, const TBigInt& a, const TBigInt& b, const TBigInt& m);
  // r = base^e mod m, left-to-right square-and-multiply; the base is not reduced
  // first. An exponent of zero gives 1 whatever m is; m zero gives 1 too (every
  // reduction fails and leaves r at its start value). Returns true in every
  // case, deliberately: when the work buffers cannot be allocated r is zero.
  static bool ExpMod(TBigInt& r, const TBigInt& base, const TBigInt& e, const TBigInt& m);
  // r = a * 2^n; false when the result would exceed kMaxWords words.
  static bool Shl(TBigInt& r, const TBigInt& a, unsigned n);
  // r = a / 2^n; shifting out every bit gives zero (and true).
  static bool Shr(TBigInt& r, const TBigInt& a, unsigned n);

  // Low word of the 64-bit product a * b; the high word goes to high.
  static unsigned WordMul(unsigned& high, unsigned a, unsigned b);
  // (high:low) / d. The quotient must fit 32 bits: only its low 32 bits are
  // returned. d zero returns 0xFFFFFFFF instead of trapping.
  static unsigned WordDiv(unsigned low, unsigned high, unsigned d);
  // Number of significant bits of w: 0 for 0, 32 when the top bit is set.
  static unsigned WordBits(unsigned w);

  // Makes room for words words and sets the length to words. Capacity grows in
  // multiples of 8 words; without keep every word is zeroed, with keep the words
  // in use are kept and any added ones are zero. False (nothing changed) when
  // the array cannot be allocated or words exceeds kMaxWords.
  bool AdjustBuffer(unsigned words, bool keep);
  // Drops zero words from the top, so that the top word in use is non-zero.
  void FixLength();

 private:

  // Loads big-endian bytes; false (value zero) when refused or out of memory.
  bool SetBytes(const unsigned char* bytes, unsigned n);
  // ExpMod that reports allocation failure with false (r then zero).
  static bool ExpModChecked(TBigInt& r, const TBigInt& base, const TBigInt& e,
                            const TBigInt& m);
  void Swap(TBigInt& other);

  unsigned* m_words;    // least significant first; null when nothing allocated
  unsigned m_length;    // words in use
  unsigned m_capacity;  // words allocated, a multiple of 8
};

#endif
