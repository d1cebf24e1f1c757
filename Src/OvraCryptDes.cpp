// OvraCryptDes.cpp - the DES core (key schedule, combined S-box/permutation
// tables, the 16-round function) and TDesCipher.
#include "OvraCryptDes.h"

#include <stdint.h>
#include <string.h>

#include "OvraByteOrder.h"

namespace {

// ---------------------------------------------------------------------------
// The FIPS 46 tables. Bits are numbered from 1, most significant first.
// ---------------------------------------------------------------------------

constexpr unsigned char kPc1[56] = {
    57, 49, 41, 33, 25, 17, 9,  1,  58, 50, 42, 34, 26, 18, 10, 2,  59, 51, 43,
    35, 27, 19, 11, 3,  60, 52, 44, 36, 63, 55, 47, 39, 31, 23, 15, 7,  62, 54,
    46, 38, 30, 22, 14, 6,  61, 53, 45, 37, 29, 21, 13, 5,  28, 20, 12, 4};

constexpr unsigned char kPc2[48] = {
    14, 17, 11, 24, 1,  5,  3,  28, 15, 6,  21, 10, 23, 19, 12, 4,
    26, 8,  16, 7,  27, 20, 13, 2,  41, 52, 31, 37, 47, 55, 30, 40,
    51, 45, 33, 48, 44, 49, 39, 56, 34, 53, 46, 42, 50, 36, 29, 32};

// Left shifts of C and D before each round.
constexpr unsigned char kShifts[16] = {1, 1, 2, 2, 2, 2, 2, 2, 1, 2, 2, 2, 2, 2, 2, 1};

// The permutation P applied to the S-box outputs.
constexpr unsigned char kP[32] = {16, 7, 20, 21, 29, 12, 28, 17, 1,  15, 23, 26, 5,  18, 31, 10,
                                  2,  8, 24, 14, 32, 27, 3,  9,  19, 13, 30, 6,  22, 11, 4,  25};

// The eight S-boxes, four rows of 16 each.
constexpr unsigned char kSBox[8][64] = {
    {14, 4,  13, 1, 2,  15, 11, 8,  3,  10, 6,  12, 5,  9,  0, 7,
     0,  15, 7,  4, 14, 2,  13, 1,  10, 6,  12, 11, 9,  5,  3, 8,
     4,  1,  14, 8, 13, 6,  2,  11, 15, 12, 9,  7,  3,  10, 5, 0,
     15, 12, 8,  2, 4,  9,  1,  7,  5,  11, 3,  14, 10, 0,  6, 13},
    {15, 1,  8,  14, 6,  11, 3,  4,  9,  7, 2,  13, 12, 0, 5,  10,
     3,  13, 4,  7,  15, 2,  8,  14, 12, 0, 1,  10, 6,  9, 11, 5,
     0,  14, 7,  11, 10, 4,  13, 1,  5,  8, 12, 6,  9,  3, 2,  15,
     13, 8,  10, 1,  3,  15, 4,  2,  11, 6, 7,  12, 0,  5, 14, 9},
    {10, 0,  9,  14, 6, 3,  15, 5,  1,  13, 12, 7,  11, 4,  2,  8,
     13, 7,  0,  9,  3, 4,  6,  10, 2,  8,  5,  14, 12, 11, 15, 1,
     13, 6,  4,  9,  8, 15, 3,  0,  11, 1,  2,  12, 5,  10, 14, 7,
     1,  10, 13, 0,  6, 9,  8,  7,  4,  15, 14, 3,  11, 5,  2,  12},
    {7,  13, 14, 3, 0,  6,  9,  10, 1,  2, 8, 5,  11, 12, 4,  15,
     13, 8,  11, 5, 6,  15, 0,  3,  4,  7, 2, 12, 1,  10, 14, 9,
     10, 6,  9,  0, 12, 11, 7,  13, 15, 1, 3, 14, 5,  2,  8,  4,
     3,  15, 0,  6, 10, 1,  13, 8,  9,  4, 5, 11, 12, 7,  2,  14},
    {2,  12, 4,  1,  7,  10, 11, 6,  8,  5,  3,  15, 13, 0, 14, 9,
     14, 11, 2,  12, 4,  7,  13, 1,  5,  0,  15, 10, 3,  9, 8,  6,
     4,  2,  1,  11, 10, 13, 7,  8,  15, 9,  12, 5,  6,  3, 0,  14,
     11, 8,  12, 7,  1,  14, 2,  13, 6,  15, 0,  9,  10, 4, 5,  3},
    {12, 1,  10, 15, 9, 2,  6,  8,  0,  13, 3,  4,  14, 7,  5,  11,
     10, 15, 4,  2,  7, 12, 9,  5,  6,  1,  13, 14, 0,  11, 3,  8,
     9,  14, 15, 5,  2, 8,  12, 3,  7,  0,  4,  10, 1,  13, 11, 6,
     4,  3,  2,  12, 9, 5,  15, 10, 11, 14, 1,  7,  6,  0,  8,  13},
    {4,  11, 2,  14, 15, 0, 8,  13, 3,  12, 9, 7,  5,  10, 6, 1,
     13, 0,  11, 7,  4,  9, 1,  10, 14, 3,  5, 12, 2,  15, 8, 6,
     1,  4,  11, 13, 12, 3, 7,  14, 10, 15, 6, 8,  0,  5,  9, 2,
     6,  11, 13, 8,  1,  4, 10, 7,  9,  5,  0, 15, 14, 2,  3, 12},
    {13, 2,  8,  4, 6,  15, 11, 1,  10, 9,  3,  14, 5,  0,  12, 7,
     1,  15, 13, 8, 10, 3,  7,  4,  12, 5,  6,  11, 0,  14, 9,  2,
     7,  11, 4,  1, 9,  12, 14, 2,  0,  6,  10, 13, 15, 3,  5,  8,
     2,  1,  14, 7, 4,  10, 8,  13, 15, 12, 9,  0,  3,  5,  6,  11}};

// Every row of every S-box is a permutation of 0..15: a cheap guard against a
// mistyped entry.
constexpr bool SBoxRowsArePermutations() {
  for (int box = 0; box < 8; ++box) {
    for (int row = 0; row < 4; ++row) {
      unsigned seen = 0;
      for (int col = 0; col < 16; ++col) seen |= 1u << kSBox[box][row * 16 + col];
      if (seen != 0xFFFFu) return false;
    }
  }
  return true;
}
static_assert(SBoxRowsArePermutations(), "an S-box row is not a permutation");

constexpr uint32_t RotateLeft(uint32_t v, unsigned n) { return (v << n) | (v >> (32 - n)); }

// ---------------------------------------------------------------------------
// Combined tables: entry v of table i is P applied to the output of S-box i
// for the 6-bit input v (its bits in the order of the expansion E), rotated
// left by one bit because desfunc keeps both halves rotated that way.
// ---------------------------------------------------------------------------

struct SSpTables {
  uint32_t sp[8][64];
};

constexpr SSpTables MakeSpTables() {
  SSpTables t{};
  for (int box = 0; box < 8; ++box) {
    for (unsigned v = 0; v < 64; ++v) {
      const unsigned row = ((v >> 4) & 2u) | (v & 1u);
      const unsigned col = (v >> 1) & 15u;
      const uint32_t s = static_cast<uint32_t>(kSBox[box][row * 16 + col]) << (28 - 4 * box);
      uint32_t permuted = 0;
      for (unsigned j = 0; j < 32; ++j) {
        if ((s >> (32 - kP[j])) & 1u) permuted |= 1u << (31 - j);
      }
      t.sp[box][v] = RotateLeft(permuted, 1);
    }
  }
  return t;
}

constexpr SSpTables kSp = MakeSpTables();

// ---------------------------------------------------------------------------
// The five core routines.
// ---------------------------------------------------------------------------

// Rearranges each raw subkey pair (bits 1-24 and 25-48 of the 48-bit subkey,
// groups of 6 bits, most significant first) into the two words desfunc XORs
// into the rotated right half: groups 1, 3, 5, 7 at bits 24, 16, 8, 0 of the
// first word, groups 2, 4, 6, 8 at the same places of the second.
void cookey(const uint32_t* raw, unsigned* schedule) {
  for (int round = 0; round < 16; ++round, raw += 2) {
    const uint32_t r0 = raw[0];
    const uint32_t r1 = raw[1];
    *schedule++ = ((r0 & 0x00FC0000u) << 6) | ((r0 & 0x00000FC0u) << 10) |
                  ((r1 & 0x00FC0000u) >> 10) | ((r1 & 0x00000FC0u) >> 6);
    *schedule++ = ((r0 & 0x0003F000u) << 12) | ((r0 & 0x0000003Fu) << 16) |
                  ((r1 & 0x0003F000u) >> 4) | (r1 & 0x0000003Fu);
  }
}

// The FIPS 46 key schedule: PC-1, the left shifts of C and D, PC-2; the 16
// subkeys are stored in reverse order for decryption (direction non-zero).
void deskey(unsigned* schedule, const unsigned char* key, int direction) {
  unsigned char bits[56];  // C (28 bits) then D (28 bits), one bit per byte
  for (int i = 0; i < 56; ++i) {
    const unsigned b = kPc1[i] - 1u;
    bits[i] = static_cast<unsigned char>((key[b >> 3] >> (7 - (b & 7))) & 1u);
  }
  uint32_t raw[32];
  unsigned shift = 0;
  for (int round = 0; round < 16; ++round) {
    shift += kShifts[round];
    unsigned char rotated[56];
    for (unsigned i = 0; i < 28; ++i) {
      rotated[i] = bits[(i + shift) % 28];
      rotated[28 + i] = bits[28 + (i + shift) % 28];
    }
    uint32_t first = 0, second = 0;
    for (int j = 0; j < 24; ++j) {
      first = (first << 1) | rotated[kPc2[j] - 1];
      second = (second << 1) | rotated[kPc2[24 + j] - 1];
    }
    const int slot = direction ? 15 - round : round;
    raw[2 * slot] = first;
    raw[2 * slot + 1] = second;
  }
  cookey(raw, schedule);
}

// Packs 8 bytes into two words, first byte most significant. One 8-byte
// access in each direction, so that a block just written by the chaining
// code (or read by it next) goes through store forwarding in one piece.
inline void scrunch(const unsigned char* in, uint32_t* out) {
  const uint64_t v = ovra_bytes::LoadBE64(in);
  out[0] = static_cast<uint32_t>(v >> 32);
  out[1] = static_cast<uint32_t>(v);
}

// The inverse of scrunch.
inline void unscrun(const uint32_t* in, unsigned char* out) {
  ovra_bytes::StoreBE64(out, static_cast<uint64_t>(in[0]) << 32 | in[1]);
}

// Swaps the bits of a selected by mask (after shifting a right by n) with
// the bits of b under the same mask: one step of the permutation network.
#define OVRA_DES_SWAP(a, b, n, mask)       \
  do {                                     \
    const uint32_t t = (((a) >> (n)) ^ (b)) & (mask); \
    (b) ^= t;                              \
    (a) ^= t << (n);                       \
  } while (0)

// One Feistel round: target ^= f(source, subkey pair k).
#define OVRA_DES_ROUND(target, source, k)                                  \
  do {                                                                     \
    uint32_t w = RotateLeft((source), 28) ^ (k)[0];                        \
    uint32_t f = kSp.sp[6][w & 0x3Fu] | kSp.sp[4][(w >> 8) & 0x3Fu] |      \
                 kSp.sp[2][(w >> 16) & 0x3Fu] | kSp.sp[0][(w >> 24) & 0x3Fu]; \
    w = (source) ^ (k)[1];                                                 \
    f |= kSp.sp[7][w & 0x3Fu] | kSp.sp[5][(w >> 8) & 0x3Fu] |              \
         kSp.sp[3][(w >> 16) & 0x3Fu] | kSp.sp[1][(w >> 24) & 0x3Fu];      \
    (target) ^= f;                                                         \
  } while (0)

// The initial permutation as a network of bit-group swaps, leaving both
// halves rotated left by one bit (so that every 6-bit group of the expansion
// E sits whole in a byte lane), 16 rounds, and the final permutation.
inline void desfunc(uint32_t* block, const unsigned* keys) {
  uint32_t left = block[0];
  uint32_t right = block[1];
  OVRA_DES_SWAP(left, right, 4, 0x0F0F0F0Fu);
  OVRA_DES_SWAP(left, right, 16, 0x0000FFFFu);
  OVRA_DES_SWAP(right, left, 2, 0x33333333u);
  OVRA_DES_SWAP(right, left, 8, 0x00FF00FFu);
  right = RotateLeft(right, 1);
  uint32_t t = (left ^ right) & 0xAAAAAAAAu;
  left ^= t;
  right ^= t;
  left = RotateLeft(left, 1);

  OVRA_DES_ROUND(left, right, keys + 0);
  OVRA_DES_ROUND(right, left, keys + 2);
  OVRA_DES_ROUND(left, right, keys + 4);
  OVRA_DES_ROUND(right, left, keys + 6);
  OVRA_DES_ROUND(left, right, keys + 8);
  OVRA_DES_ROUND(right, left, keys + 10);
  OVRA_DES_ROUND(left, right, keys + 12);
  OVRA_DES_ROUND(right, left, keys + 14);
  OVRA_DES_ROUND(left, right, keys + 16);
  OVRA_DES_ROUND(right, left, keys + 18);
  OVRA_DES_ROUND(left, right, keys + 20);
  OVRA_DES_ROUND(right, left, keys + 22);
  OVRA_DES_ROUND(left, right, keys + 24);
  OVRA_DES_ROUND(right, left, keys + 26);
  OVRA_DES_ROUND(left, right, keys + 28);
  OVRA_DES_ROUND(right, left, keys + 30);

  // The halves leave swapped (R16 L16), through the inverse network.
  right = RotateLeft(right, 31);
  t = (left ^ right) & 0xAAAAAAAAu;
  left ^= t;
  right ^= t;
  left = RotateLeft(left, 31);
  OVRA_DES_SWAP(left, right, 8, 0x00FF00FFu);
  OVRA_DES_SWAP(left, right, 2, 0x33333333u);
  OVRA_DES_SWAP(right, left, 16, 0x0000FFFFu);
  OVRA_DES_SWAP(right, left, 4, 0x0F0F0F0Fu);
  block[0] = right;
  block[1] = left;
}

#undef OVRA_DES_ROUND
#undef OVRA_DES_SWAP

}  // namespace

TDesCipher::TDesCipher(ECipherOp op, const unsigned char* key, unsigned /*keylen*/)
    : TBlockCipher(op) {
  deskey(m_schedule, key, op != eEncrypt ? 1 : 0);
}

TDesCipher::~TDesCipher() {}

unsigned TDesCipher::BerInit(const unsigned char* /*data*/, unsigned /*size*/) { return 0; }

unsigned TDesCipher::BerDump(unsigned char* out, unsigned size) {
  if (size < 21) return 0;
  unsigned written = 0;
  const SBerElement outer = {0x30, 19, nullptr};
  written += OvraBerEncode(out + written, size - written, &outer);
  const SBerElement oid = {0x06, sizeof kDesCbcObjectId, kDesCbcObjectId};
  written += OvraBerEncode(out + written, size - written, &oid);
  const SBerElement inner = {0x30, 10, nullptr};
  written += OvraBerEncode(out + written, size - written, &inner);
  const SBerElement iv = {0x04, 8, m_iv};
  written += OvraBerEncode(out + written, size - written, &iv);
  return written;
}

void TDesCipher::ProcessBlock(unsigned char* block) const {
  uint32_t words[2];
  scrunch(block, words);
  desfunc(words, m_schedule);
  unscrun(words, block);
}

unsigned TDesCipher::GetBlockSize() const { return 8; }
