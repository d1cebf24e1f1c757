// Feeds the digests (MD4, MD5, SHA-1), HMAC over each of them and the ciphers
// (DES and RC2 in CBC and ECB mode with padding, RC4) a message cut into
// pieces chosen by the input, from unaligned memory, and checks that the
// result equals the one-shot result of a fresh object and OpenSSL's. Objects
// are reused for a second message to check that Finish and the final call
// leave them ready, and ciphertext is decrypted again in other pieces.
//
// OpenSSL's libcrypto is linked into this target only; its low-level
// functions are used, since they need no provider (MD4, DES, RC2 and RC4
// live in OpenSSL 3's legacy provider through the EVP interface).
#include <fuzzer/FuzzedDataProvider.h>
#include <stdint.h>
#include <string.h>

#include <vector>

#define OPENSSL_SUPPRESS_DEPRECATED
#include <openssl/des.h>
#include <openssl/md4.h>
#include <openssl/md5.h>
#include <openssl/rc2.h>
#include <openssl/rc4.h>
#include <openssl/sha.h>

#include "FuzzSupport.h"
#include "OvraCrypt.h"
#include "OvraCryptDes.h"
#include "OvraCryptDigest.h"
#include "OvraCryptHmac.h"
#include "OvraCryptRcX.h"

namespace {

using Bytes = std::vector<unsigned char>;

// Piece lengths that cut `total` bytes; each piece a multiple of `unit`
// (the last one excepted), zero-length pieces included.
std::vector<size_t> Pieces(FuzzedDataProvider& in, size_t total, size_t unit) {
  std::vector<size_t> pieces;
  size_t left = total;
  while (left > 0 && pieces.size() < 64) {
    size_t n = in.ConsumeIntegralInRange<size_t>(0, 3) == 0
                   ? 0
                   : in.ConsumeIntegralInRange<size_t>(1, 200);
    n = n / unit * unit;
    if (n > left || in.remaining_bytes() == 0) n = left / unit * unit;
    pieces.push_back(n);
    left -= n;
    if (n == 0 && left > 0 && left < unit) break;  // only the final piece is partial
  }
  if (left > 0 || pieces.empty()) pieces.push_back(left);
  return pieces;
}

// A copy of data at an odd address, so that nothing can rely on alignment.
struct Unaligned {
  explicit Unaligned(const Bytes& data, size_t extra = 0) : storage(data.size() + extra + 1) {
    if (!data.empty()) memcpy(storage.data() + 1, data.data(), data.size());
  }
  unsigned char* get() { return storage.data() + 1; }
  Bytes storage;
};

// --- digests and HMAC --------------------------------------------------------------

struct DigestCase {
  unsigned size;
  unsigned char* (*reference)(const unsigned char*, size_t, unsigned char*);
};

const DigestCase kDigests[] = {{16, MD4}, {16, MD5}, {20, SHA1}};

// Two fresh digests of each kind (the family has no virtual destructor, so
// they live on the stack rather than being deleted through the base).
struct DigestPair {
  TMd4Digest md4[2];
  TMd5Digest md5[2];
  TShaDigest sha[2];
  TMessageDigest* Get(int which, int i) {
    if (which == 0) return &md4[i];
    if (which == 1) return &md5[i];
    return &sha[i];
  }
};

void FeedInPieces(FuzzedDataProvider& in, TMessageDigest& d, const Bytes& msg) {
  Unaligned copy(msg);
  size_t at = 0;
  for (size_t n : Pieces(in, msg.size(), 1)) {
    d.Update(n ? copy.get() + at : nullptr, static_cast<unsigned>(n));
    at += n;
  }
}

void CheckDigest(FuzzedDataProvider& in, int which, const Bytes& msg, const Bytes& msg2) {
  const DigestCase& c = kDigests[which];
  DigestPair pair;
  TMessageDigest* pieces = pair.Get(which, 0);
  TMessageDigest* once = pair.Get(which, 1);
  FUZZ_CHECK(pieces->GetDigestSize() == c.size);

  // A message abandoned half-way by Reset leaves no trace.
  if (in.ConsumeBool()) {
    FeedInPieces(in, *pieces, msg2);
    pieces->Reset();
  }
  FeedInPieces(in, *pieces, msg);
  unsigned char got[20], oneShot[20], ref[20];
  FUZZ_CHECK(pieces->Finish(got, 0) == c.size);  // size is ignored on purpose
  once->Update(msg.data(), static_cast<unsigned>(msg.size()));
  FUZZ_CHECK(once->Finish(oneShot, c.size) == c.size);
  c.reference(msg.data(), msg.size(), ref);
  FUZZ_CHECK(memcmp(got, oneShot, c.size) == 0);
  FUZZ_CHECK(memcmp(got, ref, c.size) == 0);

  // Finish left the object ready for the next message.
  FeedInPieces(in, *pieces, msg2);
  FUZZ_CHECK(pieces->Finish(got, c.size) == c.size);
  c.reference(msg2.data(), msg2.size(), ref);
  FUZZ_CHECK(memcmp(got, ref, c.size) == 0);
}

// HMAC (RFC 2104) from OpenSSL's digests.
void ReferenceHmac(int which, const Bytes& key, const Bytes& msg, unsigned char* out) {
  const DigestCase& c = kDigests[which];
  unsigned char k[64] = {0};
  if (key.size() > 64) {
    c.reference(key.data(), key.size(), k);
  } else if (!key.empty()) {
    memcpy(k, key.data(), key.size());
  }
  Bytes inner(64 + msg.size());
  for (int i = 0; i < 64; ++i) inner[i] = k[i] ^ 0x36;
  if (!msg.empty()) memcpy(inner.data() + 64, msg.data(), msg.size());
  unsigned char innerHash[20];
  c.reference(inner.data(), inner.size(), innerHash);
  Bytes outer(64 + c.size);
  for (int i = 0; i < 64; ++i) outer[i] = k[i] ^ 0x5c;
  memcpy(outer.data() + 64, innerHash, c.size);
  c.reference(outer.data(), outer.size(), out);
}

void CheckHmac(FuzzedDataProvider& in, int which, const Bytes& msg, const Bytes& msg2) {
  const DigestCase& c = kDigests[which];
  const Bytes key = in.ConsumeBytes<unsigned char>(in.ConsumeIntegralInRange<size_t>(0, 140));
  Unaligned keyCopy(key);
  DigestPair pair;
  TMessageDigest* d1 = pair.Get(which, 0);
  TMessageDigest* d2 = pair.Get(which, 1);
  {
    THmac pieces(*d1, key.empty() && in.ConsumeBool() ? nullptr : keyCopy.get(),
                 static_cast<unsigned>(key.size()));
    THmac once(*d2, key.data(), static_cast<unsigned>(key.size()));
    unsigned char got[20], oneShot[20], ref[20];

    if (in.ConsumeBool()) {  // a message dropped by Reset
      FeedInPieces(in, *d1, msg2);
      // Reset starts a new message under the same key but keeps what the
      // digest was fed, so the digest is reset here too.
      pieces.Reset();
      d1->Reset();
    }
    // Every message gets at least one Update (a message without any is the
    // documented quirk, checked separately below).
    pieces.Update(nullptr, 0);
    {
      Unaligned copy(msg);
      size_t at = 0;
      for (size_t n : Pieces(in, msg.size(), 1)) {
        pieces.Update(n ? copy.get() + at : nullptr, static_cast<unsigned>(n));
        at += n;
      }
    }
    FUZZ_CHECK(pieces.Finish(got, 0) == c.size);
    once.Update(msg.data(), static_cast<unsigned>(msg.size()));
    FUZZ_CHECK(once.Finish(oneShot, c.size) == c.size);
    ReferenceHmac(which, key, msg, ref);
    FUZZ_CHECK(memcmp(oneShot, ref, c.size) == 0);
    FUZZ_CHECK(memcmp(got, ref, c.size) == 0);

    // Ready for the next message under the same key.
    pieces.Update(msg2.data(), static_cast<unsigned>(msg2.size()));
    FUZZ_CHECK(pieces.Finish(got, c.size) == c.size);
    ReferenceHmac(which, key, msg2, ref);
    FUZZ_CHECK(memcmp(got, ref, c.size) == 0);

    // Without any Update the inner pad is never fed: H((K ^ opad) || H("")).
    FUZZ_CHECK(pieces.Finish(got, c.size) == c.size);
    unsigned char k[64] = {0};
    if (key.size() > 64) {
      c.reference(key.data(), key.size(), k);
    } else if (!key.empty()) {
      memcpy(k, key.data(), key.size());
    }
    Bytes outer(64 + c.size);
    for (int i = 0; i < 64; ++i) outer[i] = k[i] ^ 0x5c;
    c.reference(nullptr, 0, outer.data() + 64);
    c.reference(outer.data(), outer.size(), ref);
    FUZZ_CHECK(memcmp(got, ref, c.size) == 0);
  }
}

// --- block ciphers ------------------------------------------------------------------

// Raw ECB or CBC over whole blocks with OpenSSL, in place.
void ReferenceBlocks(bool des, bool cbc, bool encrypt, const Bytes& key, unsigned bits,
                     const unsigned char* iv, Bytes& data) {
  unsigned char chain[8];
  memcpy(chain, iv, 8);
  if (des) {
    DES_cblock k;
    memcpy(k, key.data(), 8);
    DES_key_schedule ks;
    DES_set_key_unchecked(&k, &ks);
    for (size_t at = 0; at < data.size(); at += 8) {
      unsigned char* b = data.data() + at;
      if (cbc) {
        DES_ncbc_encrypt(b, b, 8, &ks, reinterpret_cast<DES_cblock*>(chain),
                         encrypt ? DES_ENCRYPT : DES_DECRYPT);
      } else {
        DES_ecb_encrypt(reinterpret_cast<const_DES_cblock*>(b), reinterpret_cast<DES_cblock*>(b),
                        &ks, encrypt ? DES_ENCRYPT : DES_DECRYPT);
      }
    }
  } else {
    RC2_KEY ks;
    RC2_set_key(&ks, static_cast<int>(key.size()), key.data(), static_cast<int>(bits));
    for (size_t at = 0; at < data.size(); at += 8) {
      unsigned char* b = data.data() + at;
      if (cbc) {
        RC2_cbc_encrypt(b, b, 8, &ks, chain, encrypt ? RC2_ENCRYPT : RC2_DECRYPT);
      } else {
        RC2_ecb_encrypt(b, b, &ks, encrypt ? RC2_ENCRYPT : RC2_DECRYPT);
      }
    }
  }
}

TBlockCipher* NewBlockCipher(bool des, TCipher::ECipherOp op, const Bytes& key, unsigned bits) {
  if (des) return new TDesCipher(op, key.data(), static_cast<unsigned>(key.size()));
  return new TRc2Cipher(op, key.data(), static_cast<unsigned>(key.size()), bits);
}

// Encrypts msg in pieces (whole blocks until the final one); returns the output.
Bytes EncryptInPieces(FuzzedDataProvider& in, TBlockCipher& c, const Bytes& msg) {
  Bytes out;
  Unaligned copy(msg, 16);
  size_t at = 0;
  const std::vector<size_t> pieces = Pieces(in, msg.size(), 8);
  for (size_t i = 0; i < pieces.size(); ++i) {
    const bool final = i + 1 == pieces.size();
    const size_t n = pieces[i];
    unsigned char* p = copy.get() + at;
    if (!final && n == 0 && in.ConsumeBool()) {
      // A partial block without final: 0, buffer untouched.
      const size_t partial = (msg.size() - at) % 8;
      if (partial) {
        const Bytes before(p, p + partial);
        FUZZ_CHECK(c.EncryptData(p, static_cast<unsigned>(partial), false) == 0);
        FUZZ_CHECK(Bytes(p, p + partial) == before);
      }
    }
    const unsigned got = c.EncryptData(p, static_cast<unsigned>(n), final);
    FUZZ_CHECK(got == (final ? (n / 8 + 1) * 8 : n));
    out.insert(out.end(), p, p + got);
    at += n;
  }
  return out;
}

Bytes DecryptInPieces(FuzzedDataProvider& in, TBlockCipher& c, const Bytes& ct) {
  Bytes out;
  Unaligned copy(ct);
  size_t at = 0;
  const std::vector<size_t> pieces = Pieces(in, ct.size(), 8);
  for (size_t i = 0; i < pieces.size(); ++i) {
    const bool final = i + 1 == pieces.size();
    unsigned char* p = copy.get() + at;
    const unsigned got = c.DecryptData(p, static_cast<unsigned>(pieces[i]), final);
    FUZZ_CHECK(got <= pieces[i]);
    if (!final) FUZZ_CHECK(got == pieces[i]);
    out.insert(out.end(), p, p + got);
    at += pieces[i];
  }
  return out;
}

void CheckBlockCipher(FuzzedDataProvider& in, bool des, const Bytes& msg, const Bytes& msg2) {
  Bytes key;
  unsigned bits = 0;
  if (des) {
    key = in.ConsumeBytes<unsigned char>(8);
    key.resize(8, 0x5A);
  } else {
    key = in.ConsumeBytes<unsigned char>(in.ConsumeIntegralInRange<size_t>(1, 128));
    if (key.empty()) key.push_back(0);
    static const unsigned kBits[] = {0, 1, 40, 56, 63, 64, 128, 1000, 1024, 1025};
    bits = in.ConsumeBool() ? kBits[in.ConsumeIntegralInRange<int>(0, 9)]
                            : in.ConsumeIntegralInRange<unsigned>(1, 1024);
  }
  const bool cbc = in.ConsumeBool();
  unsigned char iv[8];
  const Bytes ivBytes = in.ConsumeBytes<unsigned char>(8);
  memset(iv, 0, 8);
  if (!ivBytes.empty()) memcpy(iv, ivBytes.data(), ivBytes.size());
  const unsigned refBits = (bits == 0 || bits > 1024) ? 1024 : bits;

  TBlockCipher* enc = NewBlockCipher(des, TCipher::eEncrypt, key, bits);
  TBlockCipher* encOnce = NewBlockCipher(des, TCipher::eEncrypt, key, bits);
  TBlockCipher* dec = NewBlockCipher(des, TCipher::eDecrypt, key, bits);
  FUZZ_CHECK(enc && encOnce && dec);
  FUZZ_CHECK(enc->GetBlockSize() == 8);
  for (TBlockCipher* c : {enc, encOnce, dec}) {
    c->SetMode(cbc ? TBlockCipher::eCbc : TBlockCipher::eEcb);
    c->SetIv(iv);
  }

  // The reference: PKCS #5 padding, then raw blocks.
  Bytes ref = msg;
  const size_t pad = 8 - msg.size() % 8;
  ref.insert(ref.end(), pad, static_cast<unsigned char>(pad));
  ReferenceBlocks(des, cbc, true, key, refBits, iv, ref);

  const Bytes ct = EncryptInPieces(in, *enc, msg);
  FUZZ_CHECK(ct == ref);
  Bytes once = msg;
  once.resize(msg.size() + 8);
  FUZZ_CHECK(encOnce->EncryptData(once.data(), static_cast<unsigned>(msg.size()), true) ==
             ref.size());
  once.resize(ref.size());
  FUZZ_CHECK(once == ref);
  FUZZ_CHECK(DecryptInPieces(in, *dec, ct) == msg);

  // The final calls put the chains back to the IV: a second message on the
  // same objects equals a fresh encryption.
  Bytes ref2 = msg2;
  const size_t pad2 = 8 - msg2.size() % 8;
  ref2.insert(ref2.end(), pad2, static_cast<unsigned char>(pad2));
  ReferenceBlocks(des, cbc, true, key, refBits, iv, ref2);
  const Bytes ct2 = EncryptInPieces(in, *enc, msg2);
  FUZZ_CHECK(ct2 == ref2);
  FUZZ_CHECK(DecryptInPieces(in, *dec, ct2) == msg2);
  delete enc;
  delete encOnce;
  delete dec;
}

// --- RC4 ---------------------------------------------------------------------------------

Bytes Rc4InPieces(FuzzedDataProvider& in, TRc4Cipher& c, const Bytes& msg) {
  Unaligned copy(msg);
  size_t at = 0;
  const std::vector<size_t> pieces = Pieces(in, msg.size(), 1);
  for (size_t i = 0; i < pieces.size(); ++i) {
    const bool final = i + 1 == pieces.size();
    unsigned char* p = copy.get() + at;
    if (in.ConsumeBool()) {
      c.ProcessStream(p, static_cast<unsigned>(pieces[i]));
      if (final) c.Reset();
    } else {
      FUZZ_CHECK(c.ProcessData(p, static_cast<unsigned>(pieces[i]), final) == pieces[i]);
    }
    at += pieces[i];
  }
  return Bytes(copy.get(), copy.get() + msg.size());
}

void CheckRc4(FuzzedDataProvider& in, const Bytes& msg, const Bytes& msg2) {
  Bytes key = in.ConsumeBytes<unsigned char>(in.ConsumeIntegralInRange<size_t>(1, 256));
  if (key.empty()) key.push_back(0);
  TRc4Cipher* enc =
      new TRc4Cipher(TCipher::eEncrypt, key.data(), static_cast<unsigned>(key.size()));
  TRc4Cipher* dec =
      new TRc4Cipher(TCipher::eDecrypt, key.data(), static_cast<unsigned>(key.size()));
  FUZZ_CHECK(enc && dec);
  for (const Bytes* m : {&msg, &msg2}) {
    Bytes ref(m->size());
    RC4_KEY ks;
    RC4_set_key(&ks, static_cast<int>(key.size()), key.data());
    if (!m->empty()) RC4(&ks, m->size(), m->data(), ref.data());
    const Bytes ct = Rc4InPieces(in, *enc, *m);  // the final call restarted the stream
    FUZZ_CHECK(ct == ref);
    FUZZ_CHECK(Rc4InPieces(in, *dec, ct) == *m);
  }
  delete enc;
  delete dec;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider in(data, size);
  const int what = in.ConsumeIntegralInRange<int>(0, 8);
  const Bytes msg = in.ConsumeBytes<unsigned char>(in.ConsumeIntegralInRange<size_t>(0, 700));
  const Bytes msg2 = in.ConsumeBytes<unsigned char>(in.ConsumeIntegralInRange<size_t>(0, 130));
  if (what < 3) {
    CheckDigest(in, what, msg, msg2);
  } else if (what < 6) {
    CheckHmac(in, what - 3, msg, msg2);
  } else if (what < 8) {
    CheckBlockCipher(in, what == 6, msg, msg2);
  } else {
    CheckRc4(in, msg, msg2);
  }
  return 0;
}
