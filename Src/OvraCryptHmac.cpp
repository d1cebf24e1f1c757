// OvraCryptHmac.cpp - HMAC (RFC 2104): H((K ^ opad) || H((K ^ ipad) || message)).
#include "OvraCryptHmac.h"

#include <string.h>

namespace {
const unsigned kBlockSize = 64;
}  // namespace

THmac::THmac(TMessageDigest& digest, const unsigned char* key, unsigned keylen)
    : m_digest(digest), m_innerPadFed(false) {
  if (!key) keylen = 0;
  unsigned char hashedKey[kBlockSize];
  if (keylen > kBlockSize) {
    // RFC 2104: a key longer than the block is hashed and its digest is the
    // key. A digest wider than the block (none of the library's) cannot be
    // hashed into the pads, so such a key is cut to the block instead.
    if (digest.GetDigestSize() <= kBlockSize) {
      digest.Update(key, keylen);
      keylen = digest.Finish(hashedKey, kBlockSize);
      key = hashedKey;
    } else {
      keylen = kBlockSize;
    }
  }
  if (keylen) {
    memcpy(m_innerPad, key, keylen);
    memcpy(m_outerPad, key, keylen);
  }
  memset(m_innerPad + keylen, 0, kBlockSize - keylen);
  memset(m_outerPad + keylen, 0, kBlockSize - keylen);
  for (unsigned i = 0; i < kBlockSize; ++i) {
    m_innerPad[i] ^= 0x36;
    m_outerPad[i] ^= 0x5C;
  }
  memset(hashedKey, 0, sizeof hashedKey);
}

void THmac::Update(const unsigned char* data, unsigned len) {
  if (!m_innerPadFed) {
    m_digest.Update(m_innerPad, kBlockSize);
    m_innerPadFed = true;
  }
  m_digest.Update(data, len);
}

unsigned THmac::Finish(unsigned char* out, unsigned size) {
  const unsigned n = m_digest.Finish(out, size);  // the inner hash, into out
  m_digest.Update(m_outerPad, kBlockSize);
  m_digest.Update(out, n);
  Reset();
  return m_digest.Finish(out, size);  // the MAC, over the inner hash
}

void THmac::Reset() { m_innerPadFed = false; }
