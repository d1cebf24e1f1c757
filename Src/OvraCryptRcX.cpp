// OvraCryptRcX.cpp - RC2 (key expansion, block encryption and decryption,
// its parameter blob) and RC4 (key schedule and keystream).
#include "OvraCryptRcX.h"

#include <stdint.h>
#include <string.h>

#include "OvraByteOrder.h"

namespace {

using namespace ovra_bytes;

// ---------------------------------------------------------------------------
// RC2
// ---------------------------------------------------------------------------

// The permutation PITABLE of RFC 2268, built from the digits of pi.
constexpr unsigned char kPiTable[256] = {
    0xD9, 0x78, 0xF9, 0xC4, 0x19, 0xDD, 0xB5, 0xED, 0x28, 0xE9, 0xFD, 0x79, 0x4A, 0xA0, 0xD8, 0x9D,
    0xC6, 0x7E, 0x37, 0x83, 0x2B, 0x76, 0x53, 0x8E, 0x62, 0x4C, 0x64, 0x88, 0x44, 0x8B, 0xFB, 0xA2,
    0x17, 0x9A, 0x59, 0xF5, 0x87, 0xB3, 0x4F, 0x13, 0x61, 0x45, 0x6D, 0x8D, 0x09, 0x81, 0x7D, 0x32,
    0xBD, 0x8F, 0x40, 0xEB, 0x86, 0xB7, 0x7B, 0x0B, 0xF0, 0x95, 0x21, 0x22, 0x5C, 0x6B, 0x4E, 0x82,
    0x54, 0xD6, 0x65, 0x93, 0xCE, 0x60, 0xB2, 0x1C, 0x73, 0x56, 0xC0, 0x14, 0xA7, 0x8C, 0xF1, 0xDC,
    0x12, 0x75, 0xCA, 0x1F, 0x3B, 0xBE, 0xE4, 0xD1, 0x42, 0x3D, 0xD4, 0x30, 0xA3, 0x3C, 0xB6, 0x26,
    0x6F, 0xBF, 0x0E, 0xDA, 0x46, 0x69, 0x07, 0x57, 0x27, 0xF2, 0x1D, 0x9B, 0xBC, 0x94, 0x43, 0x03,
    0xF8, 0x11, 0xC7, 0xF6, 0x90, 0xEF, 0x3E, 0xE7, 0x06, 0xC3, 0xD5, 0x2F, 0xC8, 0x66, 0x1E, 0xD7,
    0x08, 0xE8, 0xEA, 0xDE, 0x80, 0x52, 0xEE, 0xF7, 0x84, 0xAA, 0x72, 0xAC, 0x35, 0x4D, 0x6A, 0x2A,
    0x96, 0x1A, 0xD2, 0x71, 0x5A, 0x15, 0x49, 0x74, 0x4B, 0x9F, 0xD0, 0x5E, 0x04, 0x18, 0xA4, 0xEC,
    0xC2, 0xE0, 0x41, 0x6E, 0x0F, 0x51, 0xCB, 0xCC, 0x24, 0x91, 0xAF, 0x50, 0xA1, 0xF4, 0x70, 0x39,
    0x99, 0x7C, 0x3A, 0x85, 0x23, 0xB8, 0xB4, 0x7A, 0xFC, 0x02, 0x36, 0x5B, 0x25, 0x55, 0x97, 0x31,
    0x2D, 0x5D, 0xFA, 0x98, 0xE3, 0x8A, 0x92, 0xAE, 0x05, 0xDF, 0x29, 0x10, 0x67, 0x6C, 0xBA, 0xC9,
    0xD3, 0x00, 0xE6, 0xCF, 0xE1, 0x9E, 0xA8, 0x2C, 0x63, 0x16, 0x01, 0x3F, 0x58, 0xE2, 0x89, 0xA9,
    0x0D, 0x38, 0x34, 0x1B, 0xAB, 0x33, 0xFF, 0xB0, 0xBB, 0x48, 0x0C, 0x5F, 0xB9, 0xB1, 0xCD, 0x2E,
    0xC5, 0xF3, 0xDB, 0x47, 0xE5, 0xA5, 0x9C, 0x77, 0x0A, 0xA6, 0x20, 0x68, 0xFE, 0x7F, 0xC1, 0xAD};

// A mistyped entry would almost surely break the permutation.
constexpr bool PiTableIsAPermutation() {
  bool seen[256] = {};
  for (int i = 0; i < 256; ++i) {
    if (seen[kPiTable[i]]) return false;
    seen[kPiTable[i]] = true;
  }
  return true;
}
static_assert(PiTableIsAPermutation(), "PITABLE is not a permutation");

// RFC 2268 key expansion into 64 words.
void rc2key(unsigned short* expanded, const unsigned char* key, unsigned keylen,
            unsigned bits) {
  if (bits == 0 || bits > 1024) bits = 1024;
  unsigned char l[128];
  memcpy(l, key, keylen);
  for (unsigned n = keylen; n < 128; ++n) {
    l[n] = kPiTable[(l[n - 1] + l[n - keylen]) & 0xFFu];
  }
  const unsigned t8 = (bits + 7) / 8;
  const unsigned tm = 0xFFu >> ((8 - (bits & 7)) & 7);
  l[128 - t8] = kPiTable[l[128 - t8] & tm];
  for (int n = 127 - static_cast<int>(t8); n >= 0; --n) {
    l[n] = kPiTable[l[n + 1] ^ l[n + t8]];
  }
  for (int k = 0; k < 64; ++k) {
    expanded[k] = static_cast<unsigned short>(l[2 * k] | (l[2 * k + 1] << 8));
  }
}


inline uint32_t Rotr16(uint32_t x, unsigned n) {
  const uint16_t v = static_cast<uint16_t>(x);
  return static_cast<uint16_t>((v >> n) | (v << (16 - n)));
}

// (a & b) + (~a & c): the two terms share no bit, so the sum is a bit
// select, c ^ (a & (b ^ c)). Encryption uses that spelling (the value
// computed last is a); decryption subtracts the two terms one at a time so
// that only ~a & c waits for the value computed last, c.
inline uint32_t Select(uint32_t a, uint32_t b, uint32_t c) { return c ^ (a & (b ^ c)); }

// Words are kept in 32-bit registers and only their low 16 bits are
// meaningful: carries above bit 15 never reach the low bits of an addition,
// subtraction or bitwise operation, the rotations look at the low 16 bits
// only, and the mashing indices and the output take the low bits.

// One mixing round (four MIX steps) with key words k[j..j+3].
#define OVRA_RC2_MIX(j)                                               \
  do {                                                                \
    r0 = Rotl16(r0 + k[(j) + 0] + Select(r3, r2, r1), 1);       \
    r1 = Rotl16(r1 + k[(j) + 1] + Select(r0, r3, r2), 2);       \
    r2 = Rotl16(r2 + k[(j) + 2] + Select(r1, r0, r3), 3);       \
    r3 = Rotl16(r3 + k[(j) + 3] + Select(r2, r1, r0), 5);       \
  } while (0)

#define OVRA_RC2_MASH()      \
  do {                       \
    r0 += k[r3 & 63];        \
    r1 += k[r0 & 63];        \
    r2 += k[r1 & 63];        \
    r3 += k[r2 & 63];        \
  } while (0)

// The inverse of one mixing round that used key words k[j..j+3].
#define OVRA_RC2_RMIX(j)                                                 \
  do {                                                                   \
    r3 = Rotr16(r3, 5) - k[(j) + 3] - (r2 & r1) - (~r2 & r0);            \
    r2 = Rotr16(r2, 3) - k[(j) + 2] - (r1 & r0) - (~r1 & r3);            \
    r1 = Rotr16(r1, 2) - k[(j) + 1] - (r0 & r3) - (~r0 & r2);            \
    r0 = Rotr16(r0, 1) - k[(j) + 0] - (r3 & r2) - (~r3 & r1);            \
  } while (0)

#define OVRA_RC2_RMASH()     \
  do {                       \
    r3 -= k[r2 & 63];        \
    r2 -= k[r1 & 63];        \
    r1 -= k[r0 & 63];        \
    r0 -= k[r3 & 63];        \
  } while (0)

// Encrypts one block: five mixing rounds, a mashing round, six mixing
// rounds, a mashing round, five mixing rounds. Words are little-endian.
inline void rc2enc(const unsigned short* k, const unsigned char* in, unsigned char* out) {
  const uint64_t block = LoadLE64(in);
  uint32_t r0 = static_cast<uint32_t>(block) & 0xFFFFu;
  uint32_t r1 = static_cast<uint32_t>(block >> 16) & 0xFFFFu;
  uint32_t r2 = static_cast<uint32_t>(block >> 32) & 0xFFFFu;
  uint32_t r3 = static_cast<uint32_t>(block >> 48);
  OVRA_RC2_MIX(0);
  OVRA_RC2_MIX(4);
  OVRA_RC2_MIX(8);
  OVRA_RC2_MIX(12);
  OVRA_RC2_MIX(16);
  OVRA_RC2_MASH();
  OVRA_RC2_MIX(20);
  OVRA_RC2_MIX(24);
  OVRA_RC2_MIX(28);
  OVRA_RC2_MIX(32);
  OVRA_RC2_MIX(36);
  OVRA_RC2_MIX(40);
  OVRA_RC2_MASH();
  OVRA_RC2_MIX(44);
  OVRA_RC2_MIX(48);
  OVRA_RC2_MIX(52);
  OVRA_RC2_MIX(56);
  OVRA_RC2_MIX(60);
  StoreLE64(out, (r0 & 0xFFFFu) | (static_cast<uint64_t>(r1 & 0xFFFFu) << 16) |
                     (static_cast<uint64_t>(r2 & 0xFFFFu) << 32) |
                     (static_cast<uint64_t>(r3 & 0xFFFFu) << 48));
}

// The inverse of rc2enc.
inline void rc2dec(const unsigned short* k, unsigned char* out, const unsigned char* in) {
  const uint64_t block = LoadLE64(in);
  uint32_t r0 = static_cast<uint32_t>(block) & 0xFFFFu;
  uint32_t r1 = static_cast<uint32_t>(block >> 16) & 0xFFFFu;
  uint32_t r2 = static_cast<uint32_t>(block >> 32) & 0xFFFFu;
  uint32_t r3 = static_cast<uint32_t>(block >> 48);
  OVRA_RC2_RMIX(60);
  OVRA_RC2_RMIX(56);
  OVRA_RC2_RMIX(52);
  OVRA_RC2_RMIX(48);
  OVRA_RC2_RMIX(44);
  OVRA_RC2_RMASH();
  OVRA_RC2_RMIX(40);
  OVRA_RC2_RMIX(36);
  OVRA_RC2_RMIX(32);
  OVRA_RC2_RMIX(28);
  OVRA_RC2_RMIX(24);
  OVRA_RC2_RMIX(20);
  OVRA_RC2_RMASH();
  OVRA_RC2_RMIX(16);
  OVRA_RC2_RMIX(12);
  OVRA_RC2_RMIX(8);
  OVRA_RC2_RMIX(4);
  OVRA_RC2_RMIX(0);
  StoreLE64(out, (r0 & 0xFFFFu) | (static_cast<uint64_t>(r1 & 0xFFFFu) << 16) |
                     (static_cast<uint64_t>(r2 & 0xFFFFu) << 32) |
                     (static_cast<uint64_t>(r3 & 0xFFFFu) << 48));
}

#undef OVRA_RC2_MIX
#undef OVRA_RC2_MASH
#undef OVRA_RC2_RMIX
#undef OVRA_RC2_RMASH

// ---------------------------------------------------------------------------
// RC4
// ---------------------------------------------------------------------------

// The key schedule: the identity permutation shuffled by the key bytes,
// repeated cyclically.
void rc4key(unsigned char* state, const unsigned char* key, unsigned keylen) {
  for (unsigned n = 0; n < 256; ++n) state[n] = static_cast<unsigned char>(n);
  unsigned j = 0;
  unsigned k = 0;
  for (unsigned n = 0; n < 256; ++n) {
    const unsigned char s = state[n];
    j = (j + s + key[k]) & 0xFFu;
    state[n] = state[j];
    state[j] = s;
    if (++k == keylen) k = 0;
  }
}

// One keystream step applied to *byte.
inline void rc4(unsigned char* state, unsigned* i, unsigned* j, unsigned char* byte) {
  *i = (*i + 1) & 0xFFu;
  const unsigned char x = state[*i];
  *j = (*j + x) & 0xFFu;
  const unsigned char y = state[*j];
  state[*i] = y;
  state[*j] = x;
  *byte ^= state[(x + y) & 0xFFu];
}

}  // namespace

// ---------------------------------------------------------------------------
// TRc2Cipher
// ---------------------------------------------------------------------------

TRc2Cipher::TRc2Cipher(ECipherOp op, const unsigned char* key, unsigned keylen,
                       unsigned effectiveBits)
    : TBlockCipher(op), m_effectiveBits(effectiveBits), m_keyed(key && keylen >= 1 && keylen <= 128) {
  if (m_keyed) {
    rc2key(m_key, key, keylen, effectiveBits);
  } else {
    memset(m_key, 0, sizeof m_key);
  }
}

TRc2Cipher::~TRc2Cipher() {}

unsigned TRc2Cipher::BerInit(const unsigned char* /*data*/, unsigned /*size*/) { return 0; }

unsigned TRc2Cipher::BerDump(unsigned char* out, unsigned size) {
  if (!m_keyed) return 0;
  // The RC2 parameter version of each supported effective key size, as the
  // content bytes of its INTEGER. 128 bits pair with 58, which RFC 2268 gives
  // to 64 bits, and 56 bits carry a leading zero byte like 40 bits: both
  // are kept so that the blobs stay byte-identical.
  static const unsigned char kVersion128[] = {0x3A};      // 58
  static const unsigned char kVersion56[] = {0x00, 0x78};  // 120
  static const unsigned char kVersion40[] = {0x00, 0xA0};  // 160
  const unsigned char* versionBytes;
  unsigned v;
  switch (m_effectiveBits) {
    case 128: versionBytes = kVersion128; v = sizeof kVersion128; break;
    case 56: versionBytes = kVersion56; v = sizeof kVersion56; break;
    case 40: versionBytes = kVersion40; v = sizeof kVersion40; break;
    default: return 0;
  }
  const unsigned total = 26 + v;
  if (!out || size < total) return 0;
  unsigned written = 0;
  const SBerElement outer = {0x30, total - 2, nullptr};
  written += OvraBerEncode(out + written, size - written, &outer);
  const SBerElement oid = {0x06, sizeof kRc2CbcObjectId, kRc2CbcObjectId};
  written += OvraBerEncode(out + written, size - written, &oid);
  const SBerElement inner = {0x30, total - 14, nullptr};
  written += OvraBerEncode(out + written, size - written, &inner);
  const SBerElement integer = {0x02, v, versionBytes};
  written += OvraBerEncode(out + written, size - written, &integer);
  const SBerElement iv = {0x04, 8, m_iv};
  written += OvraBerEncode(out + written, size - written, &iv);
  return written;
}

void TRc2Cipher::ProcessBlock(unsigned char* block) const {
  if (!m_keyed) return;
  if (m_op != eEncrypt) {
    rc2dec(m_key, block, block);
  } else {
    rc2enc(m_key, block, block);
  }
}

unsigned TRc2Cipher::GetBlockSize() const { return m_keyed ? 8 : 0; }

// ---------------------------------------------------------------------------
// TRc4Cipher
// ---------------------------------------------------------------------------

TRc4Cipher::TRc4Cipher(ECipherOp op, const unsigned char* key, unsigned keylen)
    : TStreamCipher(op), m_i(0), m_j(0), m_hasKey(key && keylen != 0) {
  if (m_hasKey) {
    rc4key(m_keyed, key, keylen);
  } else {
    memset(m_keyed, 0, sizeof m_keyed);
  }
  Reset();
}

TRc4Cipher::~TRc4Cipher() {}

unsigned TRc4Cipher::BerInit(const unsigned char* /*data*/, unsigned /*size*/) { return 0; }

unsigned TRc4Cipher::BerDump(unsigned char* /*out*/, unsigned /*size*/) { return 0; }

unsigned TRc4Cipher::ProcessData(unsigned char* buf, unsigned len, bool final) {
  if (!m_hasKey) return 0;
  return TStreamCipher::ProcessData(buf, len, final);
}

void TRc4Cipher::ProcessStream(unsigned char* buf, unsigned len) {
  if (!m_hasKey) return;
  unsigned char* const s = m_state;
  unsigned i = m_i;
  unsigned j = m_j;
  // Eight keystream bytes are gathered into one word and XORed into the
  // buffer with one load and one store.
  while (len >= 8) {
    uint64_t keystream = 0;
    for (unsigned k = 0; k < 8; ++k) {
      unsigned char byte = 0;
      rc4(s, &i, &j, &byte);
      keystream |= static_cast<uint64_t>(byte) << (8 * k);
    }
    StoreLE64(buf, LoadLE64(buf) ^ keystream);
    buf += 8;
    len -= 8;
  }
  for (unsigned n = 0; n < len; ++n) rc4(s, &i, &j, buf + n);
  m_i = i;
  m_j = j;
}

void TRc4Cipher::Reset() {
  memcpy(m_state, m_keyed, sizeof m_state);
  m_i = 0;
  m_j = 0;
}
