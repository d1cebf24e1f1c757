// OvraCrypt.cpp - Base64, BER elements, the Internet checksum and the cipher
// framework (block chaining and padding, stream framing, the crypter).
#include "OvraCrypt.h"

#include <limits.h>
#include <stdint.h>
#include <string.h>

#include "OvraByteOrder.h"
#include "OvraMem.h"

namespace {

using namespace ovra_bytes;

// ---------------------------------------------------------------------------
// Base64 tables, built at compile time.
// ---------------------------------------------------------------------------

constexpr char kBase64Alphabet[] =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Two output characters for every 12-bit value: one lookup per half group, so
// a 3-byte group costs two lookups instead of four.
struct SBase64Pairs {
  char pair[4096][2];
};

constexpr SBase64Pairs MakeBase64Pairs() {
  SBase64Pairs t{};
  for (int v = 0; v < 4096; ++v) {
    t.pair[v][0] = kBase64Alphabet[v >> 6];
    t.pair[v][1] = kBase64Alphabet[v & 63];
  }
  return t;
}

constexpr SBase64Pairs kBase64Pairs = MakeBase64Pairs();

// Decoding: 0-63 for alphabet characters, kPad for "=", kBad for everything
// else (the terminating zero included).
constexpr unsigned char kPad = 0x40;
constexpr unsigned char kBad = 0x80;

struct SBase64Values {
  unsigned char value[256];
};

constexpr SBase64Values MakeBase64Values() {
  SBase64Values t{};
  for (int c = 0; c < 256; ++c) t.value[c] = kBad;
  for (int v = 0; v < 64; ++v) t.value[static_cast<unsigned char>(kBase64Alphabet[v])] =
      static_cast<unsigned char>(v);
  t.value[static_cast<unsigned char>('=')] = kPad;
  return t;
}

constexpr SBase64Values kBase64Values = MakeBase64Values();

// The same values moved to their place in a group's 24 bits, one table per
// position, so that one OR of four lookups gives a whole group; "=" and bad
// characters set a bit above the 24 instead, sending the group to the
// careful path.
constexpr uint32_t kShiftedOdd = 0x80000000u;

struct SBase64Shifted {
  uint32_t value[4][256];
};

constexpr SBase64Shifted MakeBase64Shifted() {
  SBase64Shifted t{};
  for (int place = 0; place < 4; ++place) {
    for (int c = 0; c < 256; ++c) {
      const unsigned v = kBase64Values.value[c];
      t.value[place][c] = (v & (kPad | kBad)) ? kShiftedOdd
                                               : static_cast<uint32_t>(v) << (18 - 6 * place);
    }
  }
  return t;
}

constexpr SBase64Shifted kBase64Shifted = MakeBase64Shifted();

inline void EncodeGroup(char* out, uint32_t v) {
  memcpy(out, kBase64Pairs.pair[v >> 12], 2);
  memcpy(out + 2, kBase64Pairs.pair[v & 0xFFF], 2);
}

// ---------------------------------------------------------------------------
// Checksum helpers.
// ---------------------------------------------------------------------------

// Folds a non-negative sum to 16 bits with end-around carry: the result is 0
// only for 0, else the representative in 1..0xFFFF of the sum modulo 0xFFFF.
inline uint32_t Fold(uint64_t sum) {
  while (sum >> 16) sum = (sum & 0xFFFFu) + (sum >> 16);
  return static_cast<uint32_t>(sum);
}

// The folded one's complement sum of the big-endian 16-bit words of the
// `bytes` bytes at p (bytes is even). Whole 32-bit words are summed in the
// machine's own byte order into wide accumulators (2^16 and 2^32 are both 1
// modulo 0xFFFF, so no carry is ever lost); the byte swap of a one's
// complement sum is the sum of the byte-swapped words (RFC 1071), which turns
// a little-endian result into the network-order one.
uint32_t SumWords(const unsigned char* p, size_t bytes) {
  uint64_t a0 = 0, a1 = 0, a2 = 0, a3 = 0;
  // Each addend is below 2^32, so the accumulators cannot overflow for any
  // length that fits in 32 bits.
  while (bytes >= 32) {
    a0 += LoadNative32(p) + static_cast<uint64_t>(LoadNative32(p + 16));
    a1 += LoadNative32(p + 4) + static_cast<uint64_t>(LoadNative32(p + 20));
    a2 += LoadNative32(p + 8) + static_cast<uint64_t>(LoadNative32(p + 24));
    a3 += LoadNative32(p + 12) + static_cast<uint64_t>(LoadNative32(p + 28));
    p += 32;
    bytes -= 32;
  }
  while (bytes >= 4) {
    a0 += LoadNative32(p);
    p += 4;
    bytes -= 4;
  }
  uint32_t native = Fold(a0 + a1 + a2 + a3);
  if (kLittleEndian) native = Swap16(static_cast<uint16_t>(native));
  uint32_t tail = 0;
  if (bytes >= 2) tail = (static_cast<uint32_t>(p[0]) << 8) | p[1];
  return Fold(static_cast<uint64_t>(native) + tail);
}

// ---------------------------------------------------------------------------
// Block chaining helpers.
// ---------------------------------------------------------------------------

// Writes the PKCS #5 padding of a last block holding r data bytes.
inline void Pad(unsigned char* block, unsigned r, unsigned bs) {
  const unsigned char p = static_cast<unsigned char>(bs - r);
  for (unsigned i = r; i < bs; ++i) block[i] = p;
}

inline void CopyBytes(unsigned char* dst, const unsigned char* src, unsigned n) {
  for (unsigned i = 0; i < n; ++i) dst[i] = src[i];
}

}  // namespace

// ---------------------------------------------------------------------------
// Base64
// ---------------------------------------------------------------------------

unsigned OvraBinToBase64(const unsigned char* data, int length, char* text) {
  if (length <= 0) {
    text[0] = '\0';
    return 0;
  }
  const unsigned char* p = data;
  char* out = text;
  size_t n = static_cast<size_t>(length);
  // Two groups per step from one 8-byte read while at least 8 bytes remain.
  while (n >= 8) {
    const uint64_t w = LoadBE64(p);
    EncodeGroup(out, static_cast<uint32_t>(w >> 40));
    EncodeGroup(out + 4, static_cast<uint32_t>(w >> 16) & 0xFFFFFFu);
    p += 6;
    n -= 6;
    out += 8;
  }
  while (n >= 3) {
    EncodeGroup(out, (static_cast<uint32_t>(p[0]) << 16) | (static_cast<uint32_t>(p[1]) << 8) |
                         p[2]);
    p += 3;
    n -= 3;
    out += 4;
  }
  if (n == 1) {
    out[0] = kBase64Alphabet[p[0] >> 2];
    out[1] = kBase64Alphabet[(p[0] & 0x03) << 4];
    out[2] = '=';
    out[3] = '=';
    out += 4;
  } else if (n == 2) {
    const uint32_t v = (static_cast<uint32_t>(p[0]) << 8) | p[1];
    out[0] = kBase64Alphabet[v >> 10];
    out[1] = kBase64Alphabet[(v >> 4) & 63];
    out[2] = kBase64Alphabet[(v & 0x0F) << 2];
    out[3] = '=';
    out += 4;
  }
  *out = '\0';
  return static_cast<unsigned>(out - text);
}

namespace {

// Decodes one group that holds "=" or a bad character; returns the bytes
// written, or -1 when the group is refused.
int DecodeOddGroup(unsigned a, unsigned b, unsigned c, unsigned d, unsigned char* out) {
  if ((a | b) & (kPad | kBad)) return -1;  // "=" is allowed at places 3 and 4 only
  if ((c | d) & kBad) return -1;
  // Each "=" shifts the group right by 2 bits and drops one output byte; a
  // letter after it is still shifted in.
  uint32_t group = (a << 6) | b;
  int count = 3;
  const unsigned last[2] = {c, d};
  for (const unsigned v : last) {
    if (v == kPad) {
      group >>= 2;
      --count;
    } else {
      group = (group << 6) | v;
    }
  }
  unsigned char* const start = out;
  if (count == 3) *out++ = static_cast<unsigned char>(group >> 16);
  if (count >= 2) *out++ = static_cast<unsigned char>(group >> 8);
  *out++ = static_cast<unsigned char>(group);
  return static_cast<int>(out - start);
}

}  // namespace

int OvraBase64ToBin(const char* text, unsigned char* data) {
  if (!text || !data || text[0] == '\0') return 0;
  // The length is known first so that the loop reads whole groups without
  // looking for the terminator; a partial group at the end fails the call
  // after the whole groups before it are written, as a character-by-character
  // walk would.
  const size_t length = strlen(text);
  const unsigned char* p = reinterpret_cast<const unsigned char*>(text);
  const unsigned char* const end = p + length / 4 * 4;
  const unsigned char* const table = kBase64Values.value;
  unsigned char* out = data;
  for (; p != end; p += 4) {
    const uint32_t v = kBase64Shifted.value[0][p[0]] | kBase64Shifted.value[1][p[1]] |
                       kBase64Shifted.value[2][p[2]] | kBase64Shifted.value[3][p[3]];
    if ((v & kShiftedOdd) == 0) {
      out[0] = static_cast<unsigned char>(v >> 16);
      out[1] = static_cast<unsigned char>(v >> 8);
      out[2] = static_cast<unsigned char>(v);
      out += 3;
      continue;
    }
    const int n = DecodeOddGroup(table[p[0]], table[p[1]], table[p[2]], table[p[3]], out);
    if (n < 0) return 0;
    out += n;
  }
  if (length % 4 != 0) return 0;
  // More bytes than the int result can carry: a failure rather than a count
  // that wraps to a negative or short one.
  if (static_cast<size_t>(out - data) > static_cast<size_t>(INT_MAX)) return 0;
  return static_cast<int>(out - data);
}

// ---------------------------------------------------------------------------
// BER
// ---------------------------------------------------------------------------

unsigned OvraBerDecode(const unsigned char* buffer, unsigned size, SBerElement* element) {
  if (!element) return 0;
  element->tag = 0;
  element->length = 0;
  element->data = nullptr;
  if (!buffer || size < 2) return 0;
  const unsigned lengthByte = buffer[1];
  const unsigned header = lengthByte <= 0x80 ? 2 : lengthByte - 0x7E;
  if (size < header) return 0;
  uint32_t length = 0;
  if (lengthByte < 0x80) {
    length = lengthByte;
  } else if (lengthByte > 0x80) {
    // Any number of length bytes; only the last four survive the shifts.
    for (unsigned i = 2; i < header; ++i) length = (length << 8) | buffer[i];
  }
  if (static_cast<uint64_t>(size) < static_cast<uint64_t>(header) + length) return 0;
  element->tag = buffer[0];
  element->length = lengthByte == 0x80 ? kBerIndefiniteLength : length;
  element->data = buffer + header;
  return header + length;
}

unsigned OvraBerEncode(unsigned char* buffer, unsigned size, const SBerElement* element) {
  if (!buffer || !element) return 0;
  const bool indefinite = element->length == kBerIndefiniteLength;
  const uint32_t n = indefinite ? 0 : element->length;
  unsigned char head[4];
  unsigned header;
  head[0] = static_cast<unsigned char>(element->tag);
  if (n < 0x80) {
    head[1] = static_cast<unsigned char>(indefinite ? 0x80 : n);
    header = 2;
  } else {
    unsigned c;
    if (n < 0x10000) {
      c = 2;
    } else if (n < 0x1000000) {
      c = 3;
    } else {
      return 0;  // beyond the encoder's range
    }
    // The length byte says c - 1 bytes follow; the k-th of them is n shifted
    // right by (8k - 16) mod 32. That writes 0 first, then (for c = 3) the low
    // byte: a long form that does not decode to n. Kept as it is so that the
    // bytes produced never change.
    head[1] = static_cast<unsigned char>(c + 0x7F);
    for (unsigned k = 1; k < c; ++k) {
      head[1 + k] = static_cast<unsigned char>(n >> ((8 * k - 16) & 31));
    }
    header = c + 1;
  }
  if (size < header + n) return 0;
  memcpy(buffer, head, header);
  if (!element->data) return header;
  if (n) memcpy(buffer + header, element->data, n);
  return header + n;
}

// ---------------------------------------------------------------------------
// Internet checksum
// ---------------------------------------------------------------------------

void TInetChecksum::Update(const unsigned char* data, unsigned length) {
  if (length == 0) return;
  uint64_t sum = m_sum;
  if (m_odd) {
    sum += *data++;  // the low half of the word begun by the previous run
    --length;
  }
  const unsigned even = length & ~1u;
  sum += SumWords(data, even);
  if (length & 1u) {
    sum += static_cast<uint32_t>(data[even]) << 8;
    m_odd = 1;
  } else {
    m_odd = 0;
  }
  m_sum = Fold(sum);
}

unsigned short OvraComputeChecksum(const unsigned char* data, unsigned length) {
  TInetChecksum checksum;
  checksum.Update(data, length);
  return checksum.Finish();
}

// ---------------------------------------------------------------------------
// Cipher framework
// ---------------------------------------------------------------------------

TCipher::~TCipher() {}

void* TCipher::operator new(size_t size) noexcept { return OvraMemAlloc(size); }

void* TCipher::operator new(size_t size, const std::nothrow_t&) noexcept { return OvraMemAlloc(size); }

void TCipher::operator delete(void* pointer) noexcept { OvraMemFree(pointer); }

void TCipher::operator delete(void* pointer, const std::nothrow_t&) noexcept { OvraMemFree(pointer); }

TBlockCipher::TBlockCipher(ECipherOp op) : TCipher(op), m_mode(eCbc) {
  memset(m_iv, 0, sizeof m_iv);
  memset(m_chain, 0, sizeof m_chain);
}

TBlockCipher::~TBlockCipher() {}

TCipher::ECipherType TBlockCipher::GetType() { return eBlockCipher; }

unsigned TBlockCipher::ProcessData(unsigned char* buf, unsigned len, bool final) {
  return m_op != eEncrypt ? DecryptData(buf, len, final) : EncryptData(buf, len, final);
}

void TBlockCipher::SetIv(const unsigned char* iv) {
  unsigned bs = GetBlockSize();
  if (bs > sizeof m_iv) bs = sizeof m_iv;
  if (iv) {
    CopyBytes(m_iv, iv, bs);
  } else {
    memset(m_iv, 0, bs);
  }
  CopyBytes(m_chain, m_iv, bs);
}

void TBlockCipher::XorBlock(unsigned char* dst, const unsigned char* src, unsigned n) {
  for (unsigned i = 0; i < n; ++i) dst[i] ^= src[i];
}

unsigned TBlockCipher::EncryptData(unsigned char* buf, unsigned len, bool final) {
  const unsigned bs = GetBlockSize();
  if (bs == 0 || bs > sizeof m_iv) return 0;
  const unsigned n = len / bs;
  const unsigned r = len % bs;
  if (r != 0 && !final) return 0;
  const unsigned result = (final ? n + 1 : n) * bs;
  unsigned char* p = buf;
  if (m_mode == eEcb) {
    for (unsigned k = 0; k < n; ++k, p += bs) ProcessBlock(p);
    if (final) {
      Pad(p, r, bs);
      ProcessBlock(p);
    }
  } else if (m_mode == eCbc) {
    if (bs == 8) {
      uint64_t chain = LoadNative64(m_chain);
      for (unsigned k = 0; k < n; ++k, p += 8) {
        StoreNative64(p, LoadNative64(p) ^ chain);
        ProcessBlock(p);
        chain = LoadNative64(p);
      }
      StoreNative64(m_chain, chain);
    } else {
      for (unsigned k = 0; k < n; ++k, p += bs) {
        XorBlock(p, m_chain, bs);
        ProcessBlock(p);
        CopyBytes(m_chain, p, bs);
      }
    }
    if (final) {
      Pad(p, r, bs);
      XorBlock(p, m_chain, bs);
      ProcessBlock(p);
      CopyBytes(m_chain, m_iv, bs);  // the next message starts again from the IV
    }
  }
  // Any other mode processes nothing but still reports the block count.
  return result;
}

unsigned TBlockCipher::DecryptData(unsigned char* buf, unsigned len, bool final) {
  const unsigned bs = GetBlockSize();
  if (bs == 0 || bs > sizeof m_iv) return 0;
  const unsigned n = len / bs;
  if (len % bs != 0) return 0;
  unsigned char* p = buf;
  if (m_mode == eEcb) {
    for (unsigned k = 0; k < n; ++k, p += bs) ProcessBlock(p);
  } else if (m_mode == eCbc) {
    if (bs == 8) {
      uint64_t chain = LoadNative64(m_chain);
      for (unsigned k = 0; k < n; ++k, p += 8) {
        const uint64_t cipherText = LoadNative64(p);
        ProcessBlock(p);
        StoreNative64(p, LoadNative64(p) ^ chain);
        chain = cipherText;
      }
      StoreNative64(m_chain, chain);
    } else {
      unsigned char saved[8];
      for (unsigned k = 0; k < n; ++k, p += bs) {
        CopyBytes(saved, p, bs);
        ProcessBlock(p);
        XorBlock(p, m_chain, bs);
        CopyBytes(m_chain, saved, bs);
      }
    }
    if (final) CopyBytes(m_chain, m_iv, bs);
  } else {
    return n * bs;  // unknown mode: nothing processed, no pad read
  }
  if (!final || len == 0) return len;
  // The pad length is the last byte, capped at one block and not validated.
  unsigned pad = buf[len - 1];
  if (pad > bs) pad = bs;
  return len - pad;
}

TStreamCipher::~TStreamCipher() {}

TCipher::ECipherType TStreamCipher::GetType() { return eStreamCipher; }

unsigned TStreamCipher::ProcessData(unsigned char* buf, unsigned len, bool final) {
  ProcessStream(buf, len);
  if (final) Reset();
  return len;
}

TRsaCipher::~TRsaCipher() {}

TCipher::ECipherType TRsaCipher::GetType() { return eRsaCipher; }

TCrypter::TCrypter(TBlockCipher& cipher, TBlockCipher::ECipherMode mode, const unsigned char* iv)
    : m_cipher(cipher) {
  cipher.SetMode(mode);
  cipher.SetIv(iv);
}

TCrypter::TCrypter(TStreamCipher& cipher) : m_cipher(cipher) {}

TCrypter::TCrypter(TRsaCipher& cipher) : m_cipher(cipher) {}

unsigned TCrypter::CryptData(unsigned char* buf, unsigned len, bool final) {
  return m_cipher.ProcessData(buf, len, final);
}

unsigned TCrypter::CryptData(const unsigned char* in, unsigned len, unsigned char* out,
                             bool final) {
  if (len != 0 && in != out) memmove(out, in, len);
  return m_cipher.ProcessData(out, len, final);
}
