// OvraCryptDigest.cpp - MD4 (RFC 1320), MD5 (RFC 1321) and SHA-1 (FIPS 180-1).
//
// These are the hot paths of the applications built on the library, so the
// compression functions are written out step by step with their constants
// inline, read the block with memcpy loads (plain loads on x86, safe at any
// alignment) and keep nothing but the state between blocks. Update hands whole
// blocks of the caller's data straight to Transform without copying them.
//
// On x86 processors with SHA instructions SHA-1 uses them (chosen once, at
// load time); OVRA_DIGEST_PORTABLE_ONLY (set by the CMake option
// OVRA_DIGEST_PORTABLE) builds without them, which the tests use to check the
// portable transform on such processors too.
#include "OvraCryptDigest.h"

#include <string.h>

#include <typeinfo>

#include "OvraByteOrder.h"

#if !defined(OVRA_DIGEST_PORTABLE_ONLY) && (defined(__x86_64__) || defined(__i386__)) && \
    (defined(__GNUC__) || defined(__clang__))
#define OVRA_DIGEST_SHA_EXT 1
#include <cpuid.h>
#include <immintrin.h>
#endif

static_assert(sizeof(unsigned) == 4, "the digests need 32-bit unsigned words");

namespace {

using namespace ovra_bytes;

// 0x80 and 63 zero bytes: the padding that starts every message's tail.
const unsigned char PADDING[64] = {0x80};

// Word k of the current block, little-endian.
#define X(k) LoadLE32(block + 4 * (k))

// ---------------------------------------------------------------------------
// MD4: three rounds of sixteen steps. The majority function of round 2 is
// written as a sum of two disjoint terms so that only one operation waits for
// the newest word.
#define MD4_R1(a, b, c, d, x, s) a = Rotl32(a + (d ^ (b & (c ^ d))) + x, s)
#define MD4_R2(a, b, c, d, x, s) a = Rotl32(a + x + 0x5A827999u + (c & d) + (b & (c ^ d)), s)
#define MD4_R3(a, b, c, d, x, s) a = Rotl32(a + (b ^ c ^ d) + x + 0x6ED9EBA1u, s)

void Md4Blocks(unsigned* state, const unsigned char* block, unsigned count) {
  unsigned a = state[0], b = state[1], c = state[2], d = state[3];
  do {
    const unsigned a0 = a, b0 = b, c0 = c, d0 = d;

    MD4_R1(a, b, c, d, X(0), 3);
    MD4_R1(d, a, b, c, X(1), 7);
    MD4_R1(c, d, a, b, X(2), 11);
    MD4_R1(b, c, d, a, X(3), 19);
    MD4_R1(a, b, c, d, X(4), 3);
    MD4_R1(d, a, b, c, X(5), 7);
    MD4_R1(c, d, a, b, X(6), 11);
    MD4_R1(b, c, d, a, X(7), 19);
    MD4_R1(a, b, c, d, X(8), 3);
    MD4_R1(d, a, b, c, X(9), 7);
    MD4_R1(c, d, a, b, X(10), 11);
    MD4_R1(b, c, d, a, X(11), 19);
    MD4_R1(a, b, c, d, X(12), 3);
    MD4_R1(d, a, b, c, X(13), 7);
    MD4_R1(c, d, a, b, X(14), 11);
    MD4_R1(b, c, d, a, X(15), 19);

    MD4_R2(a, b, c, d, X(0), 3);
    MD4_R2(d, a, b, c, X(4), 5);
    MD4_R2(c, d, a, b, X(8), 9);
    MD4_R2(b, c, d, a, X(12), 13);
    MD4_R2(a, b, c, d, X(1), 3);
    MD4_R2(d, a, b, c, X(5), 5);
    MD4_R2(c, d, a, b, X(9), 9);
    MD4_R2(b, c, d, a, X(13), 13);
    MD4_R2(a, b, c, d, X(2), 3);
    MD4_R2(d, a, b, c, X(6), 5);
    MD4_R2(c, d, a, b, X(10), 9);
    MD4_R2(b, c, d, a, X(14), 13);
    MD4_R2(a, b, c, d, X(3), 3);
    MD4_R2(d, a, b, c, X(7), 5);
    MD4_R2(c, d, a, b, X(11), 9);
    MD4_R2(b, c, d, a, X(15), 13);

    MD4_R3(a, b, c, d, X(0), 3);
    MD4_R3(d, a, b, c, X(8), 9);
    MD4_R3(c, d, a, b, X(4), 11);
    MD4_R3(b, c, d, a, X(12), 15);
    MD4_R3(a, b, c, d, X(2), 3);
    MD4_R3(d, a, b, c, X(10), 9);
    MD4_R3(c, d, a, b, X(6), 11);
    MD4_R3(b, c, d, a, X(14), 15);
    MD4_R3(a, b, c, d, X(1), 3);
    MD4_R3(d, a, b, c, X(9), 9);
    MD4_R3(c, d, a, b, X(5), 11);
    MD4_R3(b, c, d, a, X(13), 15);
    MD4_R3(a, b, c, d, X(3), 3);
    MD4_R3(d, a, b, c, X(11), 9);
    MD4_R3(c, d, a, b, X(7), 11);
    MD4_R3(b, c, d, a, X(15), 15);

    a += a0;
    b += b0;
    c += c0;
    d += d0;
    block += 64;
  } while (--count != 0);
  state[0] = a;
  state[1] = b;
  state[2] = c;
  state[3] = d;
}

#undef MD4_R1
#undef MD4_R2
#undef MD4_R3

// ---------------------------------------------------------------------------
// MD5: four rounds of sixteen steps. G's two terms share no bits, so they are
// added rather than or-ed, which lets them be computed side by side.
#define MD5_F(a, b, c, d, x, s, t)  \
  a += (d ^ (b & (c ^ d))) + x + t; \
  a = Rotl32(a, s) + b
#define MD5_G(a, b, c, d, x, s, t) \
  a += (c & ~d) + x + t + (b & d); \
  a = Rotl32(a, s) + b
#define MD5_H(a, b, c, d, x, s, t) \
  a += (b ^ c ^ d) + x + t;        \
  a = Rotl32(a, s) + b
#define MD5_I(a, b, c, d, x, s, t) \
  a += (c ^ (b | ~d)) + x + t;     \
  a = Rotl32(a, s) + b

void Md5Blocks(unsigned* state, const unsigned char* block, unsigned count) {
  unsigned a = state[0], b = state[1], c = state[2], d = state[3];
  do {
    const unsigned a0 = a, b0 = b, c0 = c, d0 = d;

    MD5_F(a, b, c, d, X(0), 7, 0xD76AA478u);
    MD5_F(d, a, b, c, X(1), 12, 0xE8C7B756u);
    MD5_F(c, d, a, b, X(2), 17, 0x242070DBu);
    MD5_F(b, c, d, a, X(3), 22, 0xC1BDCEEEu);
    MD5_F(a, b, c, d, X(4), 7, 0xF57C0FAFu);
    MD5_F(d, a, b, c, X(5), 12, 0x4787C62Au);
    MD5_F(c, d, a, b, X(6), 17, 0xA8304613u);
    MD5_F(b, c, d, a, X(7), 22, 0xFD469501u);
    MD5_F(a, b, c, d, X(8), 7, 0x698098D8u);
    MD5_F(d, a, b, c, X(9), 12, 0x8B44F7AFu);
    MD5_F(c, d, a, b, X(10), 17, 0xFFFF5BB1u);
    MD5_F(b, c, d, a, X(11), 22, 0x895CD7BEu);
    MD5_F(a, b, c, d, X(12), 7, 0x6B901122u);
    MD5_F(d, a, b, c, X(13), 12, 0xFD987193u);
    MD5_F(c, d, a, b, X(14), 17, 0xA679438Eu);
    MD5_F(b, c, d, a, X(15), 22, 0x49B40821u);

    MD5_G(a, b, c, d, X(1), 5, 0xF61E2562u);
    MD5_G(d, a, b, c, X(6), 9, 0xC040B340u);
    MD5_G(c, d, a, b, X(11), 14, 0x265E5A51u);
    MD5_G(b, c, d, a, X(0), 20, 0xE9B6C7AAu);
    MD5_G(a, b, c, d, X(5), 5, 0xD62F105Du);
    MD5_G(d, a, b, c, X(10), 9, 0x02441453u);
    MD5_G(c, d, a, b, X(15), 14, 0xD8A1E681u);
    MD5_G(b, c, d, a, X(4), 20, 0xE7D3FBC8u);
    MD5_G(a, b, c, d, X(9), 5, 0x21E1CDE6u);
    MD5_G(d, a, b, c, X(14), 9, 0xC33707D6u);
    MD5_G(c, d, a, b, X(3), 14, 0xF4D50D87u);
    MD5_G(b, c, d, a, X(8), 20, 0x455A14EDu);
    MD5_G(a, b, c, d, X(13), 5, 0xA9E3E905u);
    MD5_G(d, a, b, c, X(2), 9, 0xFCEFA3F8u);
    MD5_G(c, d, a, b, X(7), 14, 0x676F02D9u);
    MD5_G(b, c, d, a, X(12), 20, 0x8D2A4C8Au);

    MD5_H(a, b, c, d, X(5), 4, 0xFFFA3942u);
    MD5_H(d, a, b, c, X(8), 11, 0x8771F681u);
    MD5_H(c, d, a, b, X(11), 16, 0x6D9D6122u);
    MD5_H(b, c, d, a, X(14), 23, 0xFDE5380Cu);
    MD5_H(a, b, c, d, X(1), 4, 0xA4BEEA44u);
    MD5_H(d, a, b, c, X(4), 11, 0x4BDECFA9u);
    MD5_H(c, d, a, b, X(7), 16, 0xF6BB4B60u);
    MD5_H(b, c, d, a, X(10), 23, 0xBEBFBC70u);
    MD5_H(a, b, c, d, X(13), 4, 0x289B7EC6u);
    MD5_H(d, a, b, c, X(0), 11, 0xEAA127FAu);
    MD5_H(c, d, a, b, X(3), 16, 0xD4EF3085u);
    MD5_H(b, c, d, a, X(6), 23, 0x04881D05u);
    MD5_H(a, b, c, d, X(9), 4, 0xD9D4D039u);
    MD5_H(d, a, b, c, X(12), 11, 0xE6DB99E5u);
    MD5_H(c, d, a, b, X(15), 16, 0x1FA27CF8u);
    MD5_H(b, c, d, a, X(2), 23, 0xC4AC5665u);

    MD5_I(a, b, c, d, X(0), 6, 0xF4292244u);
    MD5_I(d, a, b, c, X(7), 10, 0x432AFF97u);
    MD5_I(c, d, a, b, X(14), 15, 0xAB9423A7u);
    MD5_I(b, c, d, a, X(5), 21, 0xFC93A039u);
    MD5_I(a, b, c, d, X(12), 6, 0x655B59C3u);
    MD5_I(d, a, b, c, X(3), 10, 0x8F0CCC92u);
    MD5_I(c, d, a, b, X(10), 15, 0xFFEFF47Du);
    MD5_I(b, c, d, a, X(1), 21, 0x85845DD1u);
    MD5_I(a, b, c, d, X(8), 6, 0x6FA87E4Fu);
    MD5_I(d, a, b, c, X(15), 10, 0xFE2CE6E0u);
    MD5_I(c, d, a, b, X(6), 15, 0xA3014314u);
    MD5_I(b, c, d, a, X(13), 21, 0x4E0811A1u);
    MD5_I(a, b, c, d, X(4), 6, 0xF7537E82u);
    MD5_I(d, a, b, c, X(11), 10, 0xBD3AF235u);
    MD5_I(c, d, a, b, X(2), 15, 0x2AD7D2BBu);
    MD5_I(b, c, d, a, X(9), 21, 0xEB86D391u);

    a += a0;
    b += b0;
    c += c0;
    d += d0;
    block += 64;
  } while (--count != 0);
  state[0] = a;
  state[1] = b;
  state[2] = c;
  state[3] = d;
}

#undef MD5_F
#undef MD5_G
#undef MD5_H
#undef MD5_I
#undef X

// ---------------------------------------------------------------------------
// SHA-1: eighty steps over a sixteen-word rolling message schedule; each
// expanded word is rotated left by one bit. The five working variables rotate
// through the macro arguments instead of being moved.
#define SHA_W0(i) (w[i] = LoadBE32(block + 4 * (i)))
#define SHA_W(i) \
  (w[(i)&15] = Rotl32(w[((i) + 13) & 15] ^ w[((i) + 8) & 15] ^ w[((i) + 2) & 15] ^ w[(i)&15], 1))
#define SHA_R0(v, x, y, z, u, i)                                   \
  u += (z ^ (x & (y ^ z))) + SHA_W0(i) + 0x5A827999u + Rotl32(v, 5); \
  x = Rotl32(x, 30)
#define SHA_R1(v, x, y, z, u, i)                                  \
  u += (z ^ (x & (y ^ z))) + SHA_W(i) + 0x5A827999u + Rotl32(v, 5); \
  x = Rotl32(x, 30)
#define SHA_R2(v, x, y, z, u, i)                          \
  u += (x ^ y ^ z) + SHA_W(i) + 0x6ED9EBA1u + Rotl32(v, 5); \
  x = Rotl32(x, 30)
#define SHA_R3(v, x, y, z, u, i)                                        \
  u += ((x & y) + (z & (x ^ y))) + SHA_W(i) + 0x8F1BBCDCu + Rotl32(v, 5); \
  x = Rotl32(x, 30)
#define SHA_R4(v, x, y, z, u, i)                          \
  u += (x ^ y ^ z) + SHA_W(i) + 0xCA62C1D6u + Rotl32(v, 5); \
  x = Rotl32(x, 30)

void ShaBlocksPortable(unsigned* state, const unsigned char* block, unsigned count) {
  unsigned w[16];
  unsigned a = state[0], b = state[1], c = state[2], d = state[3], e = state[4];
  do {
    const unsigned a0 = a, b0 = b, c0 = c, d0 = d, e0 = e;

    SHA_R0(a, b, c, d, e, 0);
    SHA_R0(e, a, b, c, d, 1);
    SHA_R0(d, e, a, b, c, 2);
    SHA_R0(c, d, e, a, b, 3);
    SHA_R0(b, c, d, e, a, 4);
    SHA_R0(a, b, c, d, e, 5);
    SHA_R0(e, a, b, c, d, 6);
    SHA_R0(d, e, a, b, c, 7);
    SHA_R0(c, d, e, a, b, 8);
    SHA_R0(b, c, d, e, a, 9);
    SHA_R0(a, b, c, d, e, 10);
    SHA_R0(e, a, b, c, d, 11);
    SHA_R0(d, e, a, b, c, 12);
    SHA_R0(c, d, e, a, b, 13);
    SHA_R0(b, c, d, e, a, 14);
    SHA_R0(a, b, c, d, e, 15);
    SHA_R1(e, a, b, c, d, 16);
    SHA_R1(d, e, a, b, c, 17);
    SHA_R1(c, d, e, a, b, 18);
    SHA_R1(b, c, d, e, a, 19);

    SHA_R2(a, b, c, d, e, 20);
    SHA_R2(e, a, b, c, d, 21);
    SHA_R2(d, e, a, b, c, 22);
    SHA_R2(c, d, e, a, b, 23);
    SHA_R2(b, c, d, e, a, 24);
    SHA_R2(a, b, c, d, e, 25);
    SHA_R2(e, a, b, c, d, 26);
    SHA_R2(d, e, a, b, c, 27);
    SHA_R2(c, d, e, a, b, 28);
    SHA_R2(b, c, d, e, a, 29);
    SHA_R2(a, b, c, d, e, 30);
    SHA_R2(e, a, b, c, d, 31);
    SHA_R2(d, e, a, b, c, 32);
    SHA_R2(c, d, e, a, b, 33);
    SHA_R2(b, c, d, e, a, 34);
    SHA_R2(a, b, c, d, e, 35);
    SHA_R2(e, a, b, c, d, 36);
    SHA_R2(d, e, a, b, c, 37);
    SHA_R2(c, d, e, a, b, 38);
    SHA_R2(b, c, d, e, a, 39);

    SHA_R3(a, b, c, d, e, 40);
    SHA_R3(e, a, b, c, d, 41);
    SHA_R3(d, e, a, b, c, 42);
    SHA_R3(c, d, e, a, b, 43);
    SHA_R3(b, c, d, e, a, 44);
    SHA_R3(a, b, c, d, e, 45);
    SHA_R3(e, a, b, c, d, 46);
    SHA_R3(d, e, a, b, c, 47);
    SHA_R3(c, d, e, a, b, 48);
    SHA_R3(b, c, d, e, a, 49);
    SHA_R3(a, b, c, d, e, 50);
    SHA_R3(e, a, b, c, d, 51);
    SHA_R3(d, e, a, b, c, 52);
    SHA_R3(c, d, e, a, b, 53);
    SHA_R3(b, c, d, e, a, 54);
    SHA_R3(a, b, c, d, e, 55);
    SHA_R3(e, a, b, c, d, 56);
    SHA_R3(d, e, a, b, c, 57);
    SHA_R3(c, d, e, a, b, 58);
    SHA_R3(b, c, d, e, a, 59);

    SHA_R4(a, b, c, d, e, 60);
    SHA_R4(e, a, b, c, d, 61);
    SHA_R4(d, e, a, b, c, 62);
    SHA_R4(c, d, e, a, b, 63);
    SHA_R4(b, c, d, e, a, 64);
    SHA_R4(a, b, c, d, e, 65);
    SHA_R4(e, a, b, c, d, 66);
    SHA_R4(d, e, a, b, c, 67);
    SHA_R4(c, d, e, a, b, 68);
    SHA_R4(b, c, d, e, a, 69);
    SHA_R4(a, b, c, d, e, 70);
    SHA_R4(e, a, b, c, d, 71);
    SHA_R4(d, e, a, b, c, 72);
    SHA_R4(c, d, e, a, b, 73);
    SHA_R4(b, c, d, e, a, 74);
    SHA_R4(a, b, c, d, e, 75);
    SHA_R4(e, a, b, c, d, 76);
    SHA_R4(d, e, a, b, c, 77);
    SHA_R4(c, d, e, a, b, 78);
    SHA_R4(b, c, d, e, a, 79);

    a += a0;
    b += b0;
    c += c0;
    d += d0;
    e += e0;
    block += 64;
  } while (--count != 0);
  state[0] = a;
  state[1] = b;
  state[2] = c;
  state[3] = d;
  state[4] = e;
}

#undef SHA_W0
#undef SHA_W
#undef SHA_R0
#undef SHA_R1
#undef SHA_R2
#undef SHA_R3
#undef SHA_R4

#ifdef OVRA_DIGEST_SHA_EXT
// SHA-1 with the processor's SHA instructions: four steps per instruction,
// the message schedule in vector registers. Same result as the portable code.
bool HasShaExtensions() {
  unsigned a, b, c, d;
  if (!__get_cpuid(1, &a, &b, &c, &d)) return false;
  const bool ssse3 = (c & (1u << 9)) != 0;
  const bool sse41 = (c & (1u << 19)) != 0;
  if (!ssse3 || !sse41) return false;
  if (__get_cpuid_max(0, nullptr) < 7) return false;
  __cpuid_count(7, 0, a, b, c, d);
  return (b & (1u << 29)) != 0;
}

const bool s_useShaExtensions = HasShaExtensions();

// Loads four big-endian message words, the first in the top lane.
#define SHA_NI_LOAD(m, offset) \
  m = _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(block + (offset))), mask)

__attribute__((target("sha,ssse3,sse4.1"))) void ShaBlocksExtensions(unsigned* state,
                                                                     const unsigned char* block,
                                                                     unsigned count) {
  // Reverses all 16 bytes: each word big-endian, the first word in the top lane.
  const __m128i mask = _mm_set_epi64x(0x0001020304050607LL, 0x08090A0B0C0D0E0FLL);
  __m128i abcd = _mm_shuffle_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(state)), 0x1B);
  __m128i e0 = _mm_set_epi32(static_cast<int>(state[4]), 0, 0, 0);
  do {
    const __m128i abcdSave = abcd;
    const __m128i e0Save = e0;
    __m128i e1, m0, m1, m2, m3;

    // Steps 0-3.
    SHA_NI_LOAD(m0, 0);
    e0 = _mm_add_epi32(e0, m0);
    e1 = abcd;
    abcd = _mm_sha1rnds4_epu32(abcd, e0, 0);
    // Steps 4-7.
    SHA_NI_LOAD(m1, 16);
    e1 = _mm_sha1nexte_epu32(e1, m1);
    e0 = abcd;
    abcd = _mm_sha1rnds4_epu32(abcd, e1, 0);
    m0 = _mm_sha1msg1_epu32(m0, m1);
    // Steps 8-11.
    SHA_NI_LOAD(m2, 32);
    e0 = _mm_sha1nexte_epu32(e0, m2);
    e1 = abcd;
    abcd = _mm_sha1rnds4_epu32(abcd, e0, 0);
    m1 = _mm_sha1msg1_epu32(m1, m2);
    m0 = _mm_xor_si128(m0, m2);
    // Steps 12-15.
    SHA_NI_LOAD(m3, 48);
    e1 = _mm_sha1nexte_epu32(e1, m3);
    e0 = abcd;
    m0 = _mm_sha1msg2_epu32(m0, m3);
    abcd = _mm_sha1rnds4_epu32(abcd, e1, 0);
    m2 = _mm_sha1msg1_epu32(m2, m3);
    m1 = _mm_xor_si128(m1, m3);
    // Steps 16-19.
    e0 = _mm_sha1nexte_epu32(e0, m0);
    e1 = abcd;
    m1 = _mm_sha1msg2_epu32(m1, m0);
    abcd = _mm_sha1rnds4_epu32(abcd, e0, 0);
    m3 = _mm_sha1msg1_epu32(m3, m0);
    m2 = _mm_xor_si128(m2, m0);
    // Steps 20-23.
    e1 = _mm_sha1nexte_epu32(e1, m1);
    e0 = abcd;
    m2 = _mm_sha1msg2_epu32(m2, m1);
    abcd = _mm_sha1rnds4_epu32(abcd, e1, 1);
    m0 = _mm_sha1msg1_epu32(m0, m1);
    m3 = _mm_xor_si128(m3, m1);
    // Steps 24-27.
    e0 = _mm_sha1nexte_epu32(e0, m2);
    e1 = abcd;
    m3 = _mm_sha1msg2_epu32(m3, m2);
    abcd = _mm_sha1rnds4_epu32(abcd, e0, 1);
    m1 = _mm_sha1msg1_epu32(m1, m2);
    m0 = _mm_xor_si128(m0, m2);
    // Steps 28-31.
    e1 = _mm_sha1nexte_epu32(e1, m3);
    e0 = abcd;
    m0 = _mm_sha1msg2_epu32(m0, m3);
    abcd = _mm_sha1rnds4_epu32(abcd, e1, 1);
    m2 = _mm_sha1msg1_epu32(m2, m3);
    m1 = _mm_xor_si128(m1, m3);
    // Steps 32-35.
    e0 = _mm_sha1nexte_epu32(e0, m0);
    e1 = abcd;
    m1 = _mm_sha1msg2_epu32(m1, m0);
    abcd = _mm_sha1rnds4_epu32(abcd, e0, 1);
    m3 = _mm_sha1msg1_epu32(m3, m0);
    m2 = _mm_xor_si128(m2, m0);
    // Steps 36-39.
    e1 = _mm_sha1nexte_epu32(e1, m1);
    e0 = abcd;
    m2 = _mm_sha1msg2_epu32(m2, m1);
    abcd = _mm_sha1rnds4_epu32(abcd, e1, 1);
    m0 = _mm_sha1msg1_epu32(m0, m1);
    m3 = _mm_xor_si128(m3, m1);
    // Steps 40-43.
    e0 = _mm_sha1nexte_epu32(e0, m2);
    e1 = abcd;
    m3 = _mm_sha1msg2_epu32(m3, m2);
    abcd = _mm_sha1rnds4_epu32(abcd, e0, 2);
    m1 = _mm_sha1msg1_epu32(m1, m2);
    m0 = _mm_xor_si128(m0, m2);
    // Steps 44-47.
    e1 = _mm_sha1nexte_epu32(e1, m3);
    e0 = abcd;
    m0 = _mm_sha1msg2_epu32(m0, m3);
    abcd = _mm_sha1rnds4_epu32(abcd, e1, 2);
    m2 = _mm_sha1msg1_epu32(m2, m3);
    m1 = _mm_xor_si128(m1, m3);
    // Steps 48-51.
    e0 = _mm_sha1nexte_epu32(e0, m0);
    e1 = abcd;
    m1 = _mm_sha1msg2_epu32(m1, m0);
    abcd = _mm_sha1rnds4_epu32(abcd, e0, 2);
    m3 = _mm_sha1msg1_epu32(m3, m0);
    m2 = _mm_xor_si128(m2, m0);
    // Steps 52-55.
    e1 = _mm_sha1nexte_epu32(e1, m1);
    e0 = abcd;
    m2 = _mm_sha1msg2_epu32(m2, m1);
    abcd = _mm_sha1rnds4_epu32(abcd, e1, 2);
    m0 = _mm_sha1msg1_epu32(m0, m1);
    m3 = _mm_xor_si128(m3, m1);
    // Steps 56-59.
    e0 = _mm_sha1nexte_epu32(e0, m2);
    e1 = abcd;
    m3 = _mm_sha1msg2_epu32(m3, m2);
    abcd = _mm_sha1rnds4_epu32(abcd, e0, 2);
    m1 = _mm_sha1msg1_epu32(m1, m2);
    m0 = _mm_xor_si128(m0, m2);
    // Steps 60-63.
    e1 = _mm_sha1nexte_epu32(e1, m3);
    e0 = abcd;
    m0 = _mm_sha1msg2_epu32(m0, m3);
    abcd = _mm_sha1rnds4_epu32(abcd, e1, 3);
    m2 = _mm_sha1msg1_epu32(m2, m3);
    m1 = _mm_xor_si128(m1, m3);
    // Steps 64-67.
    e0 = _mm_sha1nexte_epu32(e0, m0);
    e1 = abcd;
    m1 = _mm_sha1msg2_epu32(m1, m0);
    abcd = _mm_sha1rnds4_epu32(abcd, e0, 3);
    m3 = _mm_sha1msg1_epu32(m3, m0);
    m2 = _mm_xor_si128(m2, m0);
    // Steps 68-71.
    e1 = _mm_sha1nexte_epu32(e1, m1);
    e0 = abcd;
    m2 = _mm_sha1msg2_epu32(m2, m1);
    abcd = _mm_sha1rnds4_epu32(abcd, e1, 3);
    m3 = _mm_xor_si128(m3, m1);
    // Steps 72-75.
    e0 = _mm_sha1nexte_epu32(e0, m2);
    e1 = abcd;
    m3 = _mm_sha1msg2_epu32(m3, m2);
    abcd = _mm_sha1rnds4_epu32(abcd, e0, 3);
    // Steps 76-79.
    e1 = _mm_sha1nexte_epu32(e1, m3);
    e0 = abcd;
    abcd = _mm_sha1rnds4_epu32(abcd, e1, 3);

    // Fold the block's result into the state.
    e0 = _mm_sha1nexte_epu32(e0, e0Save);
    abcd = _mm_add_epi32(abcd, abcdSave);
    block += 64;
  } while (--count != 0);
  _mm_storeu_si128(reinterpret_cast<__m128i*>(state), _mm_shuffle_epi32(abcd, 0x1B));
  state[4] = static_cast<unsigned>(_mm_extract_epi32(e0, 3));
}

#undef SHA_NI_LOAD
#endif  // OVRA_DIGEST_SHA_EXT

}  // namespace

// ---------------------------------------------------------------------------
// Byte order.

void EncodeLE(unsigned char* out, const unsigned* in, int len) {
  for (int i = 0; i + 4 <= len; i += 4) StoreLE32(out + i, in[i / 4]);
}

void DecodeLE(unsigned* out, const unsigned char* in, int len) {
  for (int i = 0; i + 4 <= len; i += 4) out[i / 4] = LoadLE32(in + i);
}

void EncodeBE(unsigned char* out, const unsigned* in, int len) {
  for (int i = 0; i + 4 <= len; i += 4) StoreBE32(out + i, in[i / 4]);
}

void DecodeBE(unsigned* out, const unsigned char* in, int len) {
  for (int i = 0; i + 4 <= len; i += 4) out[i / 4] = LoadBE32(in + i);
}

// ---------------------------------------------------------------------------
// The shared buffering.

TMessageDigest::TMessageDigest() { Reset(); }

void TMessageDigest::Reset() {
  m_count[0] = 0;
  m_count[1] = 0;
  m_state[0] = 0x67452301u;
  m_state[1] = 0xEFCDAB89u;
  m_state[2] = 0x98BADCFEu;
  m_state[3] = 0x10325476u;
  m_state[4] = 0xC3D2E1F0u;
}

void TMessageDigest::Update(const unsigned char* data, unsigned len) {
  if (len == 0) return;  // also keeps a null data pointer away from memcpy
  unsigned index = (m_count[0] >> 3) & 63;

  // The 64-bit bit count: len * 8 into the low word with its carry, and the
  // bits shifted out of len * 8 into the high word.
  const unsigned bits = len << 3;
  m_count[0] += bits;
  if (m_count[0] < bits) ++m_count[1];
  m_count[1] += len >> 29;

  unsigned consumed = 0;
  const unsigned part = 64 - index;
  if (len >= part) {
    // Complete the buffered block first. With nothing buffered the first
    // block is taken in place like the others, so whole-block callers (the
    // HMAC pads among them) never have a block copied.
    const unsigned char* blocks = data + part;
    unsigned count = (len - part) / 64;
    if (index == 0) {
      blocks = data;
      ++count;
    } else {
      memcpy(m_buffer + index, data, part);
      Transform(m_state, m_buffer);
    }
    if (count != 0) TransformBlocks(m_state, blocks, count);
    consumed = part + ((len - part) & ~63u);
    index = 0;
  }
  if (len != consumed) memcpy(m_buffer + index, data + consumed, len - consumed);
}

void TMessageDigest::TransformBlocks(unsigned* state, const unsigned char* data, unsigned count) {
  for (; count != 0; --count, data += 64) Transform(state, data);
}

void TMessageDigest::Pad(const unsigned char* lengthBytes) {
  const unsigned index = (m_count[0] >> 3) & 63;
  const unsigned padLen = index < 56 ? 56 - index : 120 - index;
  Update(PADDING, padLen);
  Update(lengthBytes, 8);
}

// ---------------------------------------------------------------------------
// The MD family.

unsigned TMdXDigest::Finish(unsigned char* out, unsigned /*size*/) {
  unsigned char length[8];
  StoreLE32(length, m_count[0]);
  StoreLE32(length + 4, m_count[1]);
  Pad(length);
  StoreLE32(out, m_state[0]);
  StoreLE32(out + 4, m_state[1]);
  StoreLE32(out + 8, m_state[2]);
  StoreLE32(out + 12, m_state[3]);
  Reset();
  return GetDigestSize();
}

unsigned TMdXDigest::GetDigestSize() const { return 16; }

// The multi-block loops below bypass Transform. A class derived further that
// replaces Transform therefore gets the one-block-at-a-time default instead.

void TMd4Digest::Transform(unsigned* state, const unsigned char* block) {
  Md4Blocks(state, block, 1);
}

void TMd4Digest::TransformBlocks(unsigned* state, const unsigned char* data, unsigned count) {
  if (typeid(*this) == typeid(TMd4Digest)) {
    Md4Blocks(state, data, count);
  } else {
    TMessageDigest::TransformBlocks(state, data, count);
  }
}

void TMd5Digest::Transform(unsigned* state, const unsigned char* block) {
  Md5Blocks(state, block, 1);
}

void TMd5Digest::TransformBlocks(unsigned* state, const unsigned char* data, unsigned count) {
  if (typeid(*this) == typeid(TMd5Digest)) {
    Md5Blocks(state, data, count);
  } else {
    TMessageDigest::TransformBlocks(state, data, count);
  }
}

// ---------------------------------------------------------------------------
// SHA-1.

unsigned TShaDigest::Finish(unsigned char* out, unsigned /*size*/) {
  unsigned char length[8];
  StoreBE32(length, m_count[1]);
  StoreBE32(length + 4, m_count[0]);
  Pad(length);
  StoreBE32(out, m_state[0]);
  StoreBE32(out + 4, m_state[1]);
  StoreBE32(out + 8, m_state[2]);
  StoreBE32(out + 12, m_state[3]);
  StoreBE32(out + 16, m_state[4]);
  Reset();
  return GetDigestSize();
}

unsigned TShaDigest::GetDigestSize() const { return 20; }

namespace {
inline void ShaBlocks(unsigned* state, const unsigned char* data, unsigned count) {
#ifdef OVRA_DIGEST_SHA_EXT
  if (s_useShaExtensions) {
    ShaBlocksExtensions(state, data, count);
    return;
  }
#endif
  ShaBlocksPortable(state, data, count);
}
}  // namespace

void TShaDigest::Transform(unsigned* state, const unsigned char* block) {
  ShaBlocks(state, block, 1);
}

void TShaDigest::TransformBlocks(unsigned* state, const unsigned char* data, unsigned count) {
  if (typeid(*this) == typeid(TShaDigest)) {
    ShaBlocks(state, data, count);
  } else {
    TMessageDigest::TransformBlocks(state, data, count);
  }
}
