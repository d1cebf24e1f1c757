// OvraCryptRsa.h - unsigned multi-precision integers and the RSA public-key cipher.
#ifndef OVRA_OVRACRYPTRSA_H
#define OVRA_OVRACRYPTRSA_H

#include "OvraBstr.h"
#include "OvraCrypt.h"
#include "OvraPlatform.h"

// An unsigned multi-precision integer of 32-bit words (least significant first)
// with just what modular exponentiation needs. Arithmetic is static, writes into
// a caller-given result object and returns false only when a word buffer cannot
// be allocated (Div also for division by zero), leaving the results as they
// were (ExpMod excepted, see there). A result may be the same object as an
// operand: the result is then computed into a temporary first.
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
  friend class TRsaPublicCipher;

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

// The RSA public-key operations with PKCS #1 v1.5 padding: encryption of one
// short message into one block (block type 2, random non-zero padding drawn
// from OvraGenerateRandom) and recovery of one block signed with the private
// key (block type 1, 0xFF padding). Holds the public key only: the modulus
// (big-endian, no sign byte; k bytes) and the public exponent, in arrays it
// owns. Every failure returns 0. One thread at a time; encryption also uses the
// shared generator, which has no lock of its own.
//
// Results are exactly what TBigInt::Dump writes: whole 32-bit words, so a
// ciphertext is k bytes only when k is a multiple of 4 and the value has no
// zero top word, and recovery succeeds only for such moduli (512, 768, 1024,
// 2048 bits, ...).
class OVRA_API TRsaPublicCipher : public TRsaCipher {
 public:
  // No key yet (null arrays, zero lengths): load one with BerInit or Construct.
  // Until then every operation returns 0.
  explicit TRsaPublicCipher(TCipher::ECipherOp op);
  // Starts without a key, then Construct(modulus, ..., exponentLen); if that
  // fails the object stays without a key.
  TRsaPublicCipher(TCipher::ECipherOp op, const unsigned char* modulus, unsigned modulusLen,
                   const unsigned char* exponent, unsigned exponentLen);
  // Frees the key arrays.
  ~TRsaPublicCipher() override;

  TRsaPublicCipher(const TRsaPublicCipher&) = delete;
  TRsaPublicCipher& operator=(const TRsaPublicCipher&) = delete;

  // new and delete are TCipher's: objects come from the library's allocator,
  // and new gives null, not an exception, when it fails.

  // Copies the modulus and the exponent into newly allocated arrays, freeing
  // any key held before. True only if both were allocated; on failure, and for
  // a null pointer with a non-zero length or a modulus longer than a TBigInt
  // holds, the object is left without a key.
  bool Construct(const unsigned char* modulus, unsigned modulusLen, const unsigned char* exponent,
                 unsigned exponentLen);
  // k, the modulus length in bytes (0 without a key).
  unsigned GetModulusSize() const { return m_modulusLen; }

  // Reads an X.509 SubjectPublicKeyInfo: SEQUENCE { SEQUENCE (any algorithm,
  // not examined), BIT STRING (first byte not examined) holding SEQUENCE {
  // INTEGER modulus, INTEGER exponent } }, and Constructs the key from it. The
  // modulus INTEGER's first content byte is always dropped, as the sign byte
  // DER puts before a modulus with its top bit set; the exponent is taken
  // whole. Returns size on success (not the bytes read), 0 on a mismatched tag,
  // a decoding failure, an indefinite length or a failed Construct. Quirk kept:
  // the element after another is given the parent's content length less the
  // previous element's content length (its header is not subtracted), though
  // never more than the bytes left in data.
  unsigned BerInit(const unsigned char* data, unsigned size) override;
  // Not supported: returns 0.
  unsigned BerDump(unsigned char* out, unsigned size) override;
  // DecryptData when the operation is not eEncrypt, else EncryptData.
  unsigned ProcessData(unsigned char* buf, unsigned len, bool final) override;

  // Encrypts the len bytes at buf in place into one block; buf must have room
  // for k bytes. Requires final and len + 11 <= k (at least 8 padding bytes).
  // Returns the ciphertext bytes now at buf (see the class comment), or 0 with
  // buf unchanged when refused, when a buffer cannot be allocated, when the
  // modulus is zero, or when the generator yields no non-zero byte at all.
  unsigned EncryptData(unsigned char* buf, unsigned len, bool final);
  // Recovers the message from the len-byte block at buf (final required, len
  // <= k) by raising it to the public exponent and checking block type 1:
  // bytes 00 01, any number of FF bytes (none is accepted), 00, message. The
  // message is moved to the front of buf and its length returned; 0 on any
  // failure, buf then unchanged.
  unsigned DecryptData(unsigned char* buf, unsigned len, bool final);

 private:
  // Frees the key arrays and sets both lengths to 0.
  void Clear();
  // c = input^e mod n for the big-endian input; false when a buffer cannot be
  // allocated or the modulus is zero.
  bool Power(const unsigned char* input, unsigned len, TBigInt& c) const;

  unsigned char* m_modulus;  // big-endian, no sign byte; null without a key
  unsigned m_modulusLen;     // k
  unsigned char* m_exponent;  // big-endian; null without a key
  unsigned m_exponentLen;
};

#endif
