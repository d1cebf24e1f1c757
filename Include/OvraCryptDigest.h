// OvraCryptDigest.h - the message digests MD4, MD5 and SHA-1 behind one base
// class that does the buffering, the bit count and the padding.
#ifndef OVRA_OVRACRYPTDIGEST_H
#define OVRA_OVRACRYPTDIGEST_H

#include "OvraPlatform.h"

// Writes len / 4 words of `in` to `out` as little-endian bytes (len counts
// bytes and should be a multiple of 4; a remainder and a negative len are ignored).
OVRA_EXTERN_C OVRA_API void EncodeLE(unsigned char* out, const unsigned* in, int len);
// Reads len / 4 little-endian words from `in` into `out` (len as in EncodeLE).
OVRA_EXTERN_C OVRA_API void DecodeLE(unsigned* out, const unsigned char* in, int len);
// Writes len / 4 words of `in` to `out`, each most significant byte first.
OVRA_EXTERN_C OVRA_API void EncodeBE(unsigned char* out, const unsigned* in, int len);
// Reads len / 4 big-endian words from `in` into `out`.
OVRA_EXTERN_C OVRA_API void DecodeBE(unsigned* out, const unsigned char* in, int len);

// A message digest with a 64-byte block: Update any number of times, then
// Finish, which writes the digest and leaves the object reset for the next
// message. The family has no virtual destructor: delete objects through their
// own type, never through a TMessageDigest pointer.
class OVRA_API TMessageDigest {
 public:
  // Starts a message (calls Reset).
  TMessageDigest();

  // Drops any message in progress: bit count 0, state at the initial values.
  void Reset();

  // Adds len bytes to the message; data may be null when len is 0. Whole
  // blocks are transformed straight from the caller's memory, which need not
  // be aligned.
  void Update(const unsigned char* data, unsigned len);

  // Pads the message, writes the digest to out and resets the object. Returns
  // GetDigestSize(). size is ignored on purpose: out must always hold
  // GetDigestSize() bytes, nothing is truncated.
  virtual unsigned Finish(unsigned char* out, unsigned size) = 0;

  // The digest's size in bytes (16 for MD4 and MD5, 20 for SHA-1).
  virtual unsigned GetDigestSize() const = 0;

  // The compression function: folds one 64-byte block (any alignment) into
  // the chaining state of five words.
  virtual void Transform(unsigned* state, const unsigned char* block) = 0;

 protected:
  unsigned m_state[5];         // chaining state (MD4 and MD5 use four words)
  unsigned m_count[2];         // message length in bits, low word first
  unsigned char m_buffer[64];  // the not yet transformed tail of the message

  // Transforms count (>= 1) consecutive whole blocks straight from data. The
  // default calls Transform once per block; the library's digests replace it
  // with a loop that keeps the state in registers between blocks.
  virtual void TransformBlocks(unsigned* state, const unsigned char* data, unsigned count);

  // Pads the message and appends the bit count as 8 bytes in `lengthBytes`'
  // order (the digest encodes it before padding, since padding moves it).
  void Pad(const unsigned char* lengthBytes);
};

// The little-endian MD family: shared Finish and a 16-byte digest.
class OVRA_API TMdXDigest : public TMessageDigest {
 public:
  // Pads (length little-endian), writes the four state words little-endian,
  // resets; returns 16. size is ignored.
  unsigned Finish(unsigned char* out, unsigned size) override;
  // Returns 16.
  unsigned GetDigestSize() const override;
};

// MD4 (RFC 1320).
class OVRA_API TMd4Digest : public TMdXDigest {
 public:
  // The MD4 compression function.
  void Transform(unsigned* state, const unsigned char* block) override;

 protected:
  // All blocks in one loop (unless a further derived class replaces Transform).
  void TransformBlocks(unsigned* state, const unsigned char* data, unsigned count) override;
};

// MD5 (RFC 1321).
class OVRA_API TMd5Digest : public TMdXDigest {
 public:
  // The MD5 compression function.
  void Transform(unsigned* state, const unsigned char* block) override;

 protected:
  // All blocks in one loop (unless a further derived class replaces Transform).
  void TransformBlocks(unsigned* state, const unsigned char* data, unsigned count) override;
};

// SHA-1 (FIPS 180-1).
class OVRA_API TShaDigest : public TMessageDigest {
 public:
  // Pads (length big-endian), writes the five state words big-endian, resets;
  // returns 20. size is ignored.
  unsigned Finish(unsigned char* out, unsigned size) override;
  // Returns 20.
  unsigned GetDigestSize() const override;
  // The SHA-1 compression function. Where the processor has SHA instructions
  // they are used; the result is the same either way.
  void Transform(unsigned* state, const unsigned char* block) override;

 protected:
  // All blocks in one loop (unless a further derived class replaces Transform).
  void TransformBlocks(unsigned* state, const unsigned char* data, unsigned count) override;
};

#endif
