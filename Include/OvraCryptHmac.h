// OvraCryptHmac.h - keyed message authentication (HMAC, RFC 2104) over any
// 64-byte-block message digest.
#ifndef OVRA_OVRACRYPTHMAC_H
#define OVRA_OVRACRYPTHMAC_H

#include "OvraCryptDigest.h"
#include "OvraPlatform.h"

// HMAC-MD4, HMAC-MD5 or HMAC-SHA-1, depending on the digest handed in. Per
// message: Update any number of times, then Finish; the object is then ready
// for the next message under the same key.
class OVRA_API THmac {
 public:
  // Keeps a reference to `digest` (not owned; it must stay alive, be fresh,
  // i.e. just constructed or finished, and not be used elsewhere meanwhile)
  // and builds both pad blocks from the key, zero-filled to 64 bytes. A key
  // longer than 64 bytes is first replaced by its digest, as RFC 2104 says
  // (the digest is left fresh again). A null key counts as empty.
  THmac(TMessageDigest& digest, const unsigned char* key, unsigned keylen);

  // Adds data to the message; the first Update of a message first feeds the
  // inner pad block. data may be null when len is 0.
  void Update(const unsigned char* data, unsigned len);

  // Writes the MAC (the digest's size, 16 or 20 bytes; out must hold it, size
  // is ignored) and resets for the next message; returns the digest size.
  // Quirk kept on purpose: without an Update since construction or Reset the
  // inner pad is never fed, so the result is H((K ^ opad) || H("")), not the
  // MAC of the empty message; call Update(data, 0) first to get that.
  unsigned Finish(unsigned char* out, unsigned size);

  // Starts a new message under the same key (the next Update feeds the inner
  // pad again). Does not reset the digest: a message already fed is kept.
  void Reset();

 private:
  TMessageDigest& m_digest;
  bool m_innerPadFed;
  unsigned char m_innerPad[64];
  unsigned char m_outerPad[64];
};

#endif
