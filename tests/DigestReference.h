// DigestReference.h - OpenSSL's libcrypto as an independent reference for the
// digest, HMAC and random generator tests, and small helpers they share.
#ifndef OVRA_TESTS_DIGESTREFERENCE_H
#define OVRA_TESTS_DIGESTREFERENCE_H

#include <stdint.h>
#include <stdio.h>

#include <string>
#include <vector>

#ifdef OVRA_HAVE_OPENSSL
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/provider.h>
#endif

namespace ovra_test {

using Bytes = std::vector<unsigned char>;

inline Bytes FromText(const char* text) {
  const std::string s(text);
  return Bytes(s.begin(), s.end());
}

inline Bytes FromHex(const char* hex) {
  Bytes out;
  for (const char* p = hex; p[0] && p[1]; p += 2) {
    unsigned v = 0;
    sscanf(p, "%2x", &v);
    out.push_back(static_cast<unsigned char>(v));
  }
  return out;
}

inline std::string ToHex(const unsigned char* data, size_t len) {
  static const char kDigits[] = "0123456789abcdef";
  std::string s;
  for (size_t i = 0; i < len; ++i) {
    s += kDigits[data[i] >> 4];
    s += kDigits[data[i] & 15];
  }
  return s;
}

inline std::string ToHex(const Bytes& b) { return ToHex(b.data(), b.size()); }

// A small deterministic generator (xorshift64*), so that failures reproduce.
class TestRng {
 public:
  explicit TestRng(uint64_t seed) : m_x(seed ? seed : 1) {}
  uint64_t Next() {
    m_x ^= m_x >> 12;
    m_x ^= m_x << 25;
    m_x ^= m_x >> 27;
    return m_x * 0x2545F4914F6CDD1DULL;
  }
  // Uniform enough in [0, n) for test sizes.
  unsigned Below(unsigned n) { return n ? static_cast<unsigned>(Next() % n) : 0; }
  Bytes RandomBytes(size_t n) {
    Bytes b(n);
    for (auto& c : b) c = static_cast<unsigned char>(Next() >> 56);
    return b;
  }

 private:
  uint64_t m_x;
};

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
