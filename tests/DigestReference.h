// DigestReference.h - OpenSSL's libcrypto as an independent reference for the
// digest, HMAC and random generator tests, which take their byte helpers
// from TestBytes.h.
#ifndef OVRA_TESTS_DIGESTREFERENCE_H
#define OVRA_TESTS_DIGESTREFERENCE_H

#include <stddef.h>

#include "TestBytes.h"

#ifdef OVRA_HAVE_OPENSSL
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/provider.h>
#endif

namespace ovra_test {

enum class Algo { kMd4, kMd5, kSha1 };

inline const char* AlgoName(Algo a) {
  return a == Algo::kMd4 ? "MD4" : a == Algo::kMd5 ? "MD5" : "SHA1";
}

#ifdef OVRA_HAVE_OPENSSL
// The reference digest, or null when this OpenSSL cannot provide it. MD4 lives
// in the legacy provider in OpenSSL 3; it is loaded (with the default one,
// which an explicit load would otherwise displace) when MD4 is first missing.
inline const EVP_MD* ReferenceMd(Algo a) {
  static EVP_MD* cache[3] = {nullptr, nullptr, nullptr};
  static bool tried[3] = {false, false, false};
  const int i = static_cast<int>(a);
  if (!tried[i]) {
    tried[i] = true;
    const char* name = a == Algo::kMd4 ? "MD4" : a == Algo::kMd5 ? "MD5" : "SHA1";
    cache[i] = EVP_MD_fetch(nullptr, name, nullptr);
    if (!cache[i]) {
      OSSL_PROVIDER_load(nullptr, "default");
      OSSL_PROVIDER_load(nullptr, "legacy");
      cache[i] = EVP_MD_fetch(nullptr, name, nullptr);
    }
  }
  return cache[i];
}

inline Bytes ReferenceDigest(Algo a, const unsigned char* data, size_t len) {
  unsigned char out[EVP_MAX_MD_SIZE];
  unsigned n = 0;
  if (!EVP_Digest(data, len, out, &n, ReferenceMd(a), nullptr)) return Bytes();
  return Bytes(out, out + n);
}

inline Bytes ReferenceDigest(Algo a, const Bytes& b) {
  return ReferenceDigest(a, b.data(), b.size());
}

inline Bytes ReferenceHmac(Algo a, const unsigned char* key, size_t keylen,
                           const unsigned char* data, size_t len) {
  unsigned char out[EVP_MAX_MD_SIZE];
  unsigned n = 0;
  static const unsigned char kNoKey = 0;
  if (!HMAC(ReferenceMd(a), key ? key : &kNoKey, static_cast<int>(keylen), data ? data : &kNoKey,
            len, out, &n))
    return Bytes();
  return Bytes(out, out + n);
}
#endif

}  // namespace ovra_test

#endif
