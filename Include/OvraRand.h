// OvraRand.h - the library's random bytes: a digest-based generator, its MD5
// form, and the shared instance behind OvraGenerateRandom/OvraSeedRandom.
#ifndef OVRA_OVRARAND_H
#define OVRA_OVRARAND_H

#include "OvraCryptDigest.h"
#include "OvraPlatform.h"

// A generator that hands out digests of a state block, stepping the state
// after each block. Unseeded it yields one fixed sequence; each Seed folds
// material into the state. Uses its digest and buffer without owning them;
// one thread at a time. Not copyable (it points into its buffer).
class OVRA_API TDigestPrng {
 public:
  // Works over `digest` (fresh, used by nothing else meanwhile) and `buffer`
  // of 3 * size bytes (state, increment, output), where size must equal
  // digest.GetDigestSize(). Zeroes the state block.
  TDigestPrng(TMessageDigest& digest, unsigned char* buffer, unsigned size);

  // Writes n random bytes to out (nothing for n = 0, though a pending seed is
  // still turned into the new state). Cannot fail.
  void Generate(unsigned char* out, unsigned n);

  // Adds seed material; data may be null when len is 0. The first call also
  // fixes the increment (the digest of the empty message, made odd). After
  // one call the state steps by a byte-wise add-one that deliberately does
  // not carry past 0xFF; from the second call on it steps by the increment.
  void Seed(const unsigned char* data, unsigned len);

  // Not copyable: a copy would share the original's buffer.
  TDigestPrng(const TDigestPrng&) = delete;
  TDigestPrng& operator=(const TDigestPrng&) = delete;

 private:
  // Advances the state after an output block (see Seed).
  void Step();

  TMessageDigest* m_pDigest;
  unsigned m_size;              // digest size, and size of each block
  bool m_seedPending;           // seed fed to the digest, not yet the state
  unsigned m_seedCountdown;     // 2, 1 after the first Seed, 0 from the second on
  unsigned char* m_pState;      // buffer[0, size)
  unsigned char* m_pIncrement;  // buffer[size, 2 * size)
  unsigned char* m_pOutput;     // buffer[2 * size, 3 * size): the last block made
  unsigned m_available;         // bytes at the end of the output block not handed out
};

// The MD5 generator: a TDigestPrng over its own TMd5Digest and 48-byte buffer.
class OVRA_API TMd5Prng : public TDigestPrng {
 public:
  // Ready and unseeded: its first 16 bytes are the MD5 of 16 zero bytes.
  TMd5Prng();

 private:
  TMd5Digest m_digest;
  unsigned char m_buffer[48];
};

// Writes n bytes from the shared generator. Until OvraSeedRandom is called the
// sequence is the same in every process: seeding is the application's duty.
// No lock: callers on several threads serialise their calls. Does nothing
// while the library is not started.
OVRA_EXTERN_C OVRA_API void OvraGenerateRandom(unsigned char* out, unsigned n);

// Adds n bytes of seed material to the shared generator (see TDigestPrng::Seed).
// No lock, as above. Does nothing while the library is not started.
OVRA_EXTERN_C OVRA_API void OvraSeedRandom(const void* data, unsigned n);

#endif
