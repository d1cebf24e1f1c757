// Speed of the digests, HMAC, ciphers and data encodings. Every operation is
// registered twice, as "<Operation>/ovra" (this library) and "<Operation>/ref"
// (OpenSSL's libcrypto, or memcpy for the bandwidth-bound checksum), over the
// same data in the same process; bench/run.py pairs them into one table.
#include <benchmark/benchmark.h>
#include <string.h>

#include <string>
#include <vector>

#include "OvraCrypt.h"
#include "OvraCryptDes.h"
#include "OvraCryptDigest.h"
#include "OvraCryptHmac.h"
#include "OvraCryptRcX.h"

#ifdef OVRA_HAVE_OPENSSL
#define OPENSSL_SUPPRESS_DEPRECATED
#include <openssl/des.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/md4.h>
#include <openssl/md5.h>
#include <openssl/rc2.h>
#include <openssl/rc4.h>
#include <openssl/sha.h>
#endif

namespace {

constexpr size_t kMiB = 1 << 20;

// Deterministic pseudo-random bytes, with room behind them for block padding.
const std::vector<unsigned char>& Input() {
  static const std::vector<unsigned char> data = [] {
    std::vector<unsigned char> v(kMiB + 64);
    unsigned x = 12345;
    for (auto& c : v) {
      x = x * 1103515245u + 12345u;
      c = static_cast<unsigned char>(x >> 16);
    }
    return v;
  }();
  return data;
}

void Bytes(benchmark::State& state, size_t perIteration) {
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * perIteration));
}

// The three sizes each digest is measured at, with the names they carry.
struct Size {
  const char* label;
  size_t bytes;
};
constexpr Size kDigestSizes[] = {{"64 B", 64}, {"1 KiB", 1024}, {"1 MiB", kMiB}};
constexpr Size kHmacSizes[] = {{"64 B", 64}, {"1 KiB", 1024}};

template <class Digest>
void DigestOvra(benchmark::State& state, size_t size) {
  const unsigned char* data = Input().data();
  Digest digest;
  unsigned char out[20];
  for (auto _ : state) {
    digest.Update(data, static_cast<unsigned>(size));
    digest.Finish(out, sizeof out);
    benchmark::DoNotOptimize(out);
  }
  Bytes(state, size);
}

const unsigned char kKey[16] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};

// A one-shot MAC as HMAC() computes it: key set-up, message, result.
template <class Digest>
void HmacOvra(benchmark::State& state, size_t size) {
  const unsigned char* data = Input().data();
  unsigned char out[20];
  for (auto _ : state) {
    Digest digest;
    THmac hmac(digest, kKey, sizeof kKey);
    hmac.Update(data, static_cast<unsigned>(size));
    hmac.Finish(out, sizeof out);
    benchmark::DoNotOptimize(out);
  }
  Bytes(state, size);
}

const unsigned char kDesKey[8] = {0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF};

// Block ciphers run in place over 1 MiB, the CBC chain continuing from one
// iteration to the next (no final call, so no padding).
template <class Cipher>
void BlockOvra(benchmark::State& state, Cipher& cipher, bool encrypt) {
  std::vector<unsigned char> buf(Input().begin(), Input().begin() + kMiB);
  cipher.SetIv(nullptr);
  for (auto _ : state) {
    const unsigned n = encrypt ? cipher.EncryptData(buf.data(), kMiB, false)
                               : cipher.DecryptData(buf.data(), kMiB, false);
    benchmark::DoNotOptimize(n);
    benchmark::ClobberMemory();
  }
  Bytes(state, kMiB);
}

void DesOvra(benchmark::State& state, bool encrypt) {
  TDesCipher des(encrypt ? TCipher::eEncrypt : TCipher::eDecrypt, kDesKey, 8);
  BlockOvra(state, des, encrypt);
}

void Rc2Ovra(benchmark::State& state, bool encrypt) {
  TRc2Cipher rc2(encrypt ? TCipher::eEncrypt : TCipher::eDecrypt, kKey, 16, 128);
  BlockOvra(state, rc2, encrypt);
}

void Rc4Ovra(benchmark::State& state) {
  std::vector<unsigned char> buf(Input().begin(), Input().begin() + kMiB);
  TRc4Cipher rc4(TCipher::eEncrypt, kKey, 16);
  for (auto _ : state) {
    rc4.ProcessStream(buf.data(), kMiB);
    benchmark::ClobberMemory();
  }
  Bytes(state, kMiB);
}

std::string Base64Text() {
  std::string text(kMiB / 3 * 4 + 8, '\0');
  text.resize(OvraBinToBase64(Input().data(), static_cast<int>(kMiB / 3 * 3), &text[0]));
  return text;
}

void Base64EncodeOvra(benchmark::State& state) {
  std::vector<char> text(kMiB / 3 * 4 + 8);
  for (auto _ : state) benchmark::DoNotOptimize(OvraBinToBase64(Input().data(), kMiB, text.data()));
  Bytes(state, kMiB);
}

void Base64DecodeOvra(benchmark::State& state) {
  const std::string text = Base64Text();
  std::vector<unsigned char> out(kMiB);
  for (auto _ : state) {
    benchmark::DoNotOptimize(OvraBase64ToBin(text.c_str(), out.data()));
    benchmark::ClobberMemory();
  }
  Bytes(state, text.size());
}

void ChecksumOvra(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(OvraComputeChecksum(Input().data(), kMiB));
  Bytes(state, kMiB);
}

// The memory-bandwidth yardstick: copying the same megabyte.
void MemcpyRef(benchmark::State& state) {
  std::vector<unsigned char> out(kMiB);
  for (auto _ : state) {
    memcpy(out.data(), Input().data(), kMiB);
    benchmark::ClobberMemory();
  }
  Bytes(state, kMiB);
}

#ifdef OVRA_HAVE_OPENSSL
template <unsigned char* (*OneShot)(const unsigned char*, size_t, unsigned char*)>
void DigestRef(benchmark::State& state, size_t size) {
  const unsigned char* data = Input().data();
  unsigned char out[20];
  for (auto _ : state) benchmark::DoNotOptimize(OneShot(data, size, out));
  Bytes(state, size);
}

void HmacRef(benchmark::State& state, const EVP_MD* md, size_t size) {
  const unsigned char* data = Input().data();
  unsigned char out[EVP_MAX_MD_SIZE];
  unsigned len = 0;
  for (auto _ : state)
    benchmark::DoNotOptimize(HMAC(md, kKey, sizeof kKey, data, size, out, &len));
  Bytes(state, size);
}

void DesRef(benchmark::State& state, bool encrypt) {
  std::vector<unsigned char> buf(Input().begin(), Input().begin() + kMiB);
  DES_cblock key;
  memcpy(key, kDesKey, 8);
  DES_key_schedule schedule;
  DES_set_key_unchecked(&key, &schedule);
  DES_cblock iv = {0};
  for (auto _ : state) {
    DES_ncbc_encrypt(buf.data(), buf.data(), kMiB, &schedule, &iv,
                     encrypt ? DES_ENCRYPT : DES_DECRYPT);
    benchmark::ClobberMemory();
  }
  Bytes(state, kMiB);
}

void Rc2Ref(benchmark::State& state, bool encrypt) {
  std::vector<unsigned char> buf(Input().begin(), Input().begin() + kMiB);
  RC2_KEY key;
  RC2_set_key(&key, 16, kKey, 128);
  unsigned char iv[8] = {0};
  for (auto _ : state) {
    RC2_cbc_encrypt(buf.data(), buf.data(), kMiB, &key, iv, encrypt ? RC2_ENCRYPT : RC2_DECRYPT);
    benchmark::ClobberMemory();
  }
  Bytes(state, kMiB);
}

void Rc4Ref(benchmark::State& state) {
  std::vector<unsigned char> buf(Input().begin(), Input().begin() + kMiB);
  RC4_KEY key;
  RC4_set_key(&key, 16, kKey);
  for (auto _ : state) {
    RC4(&key, kMiB, buf.data(), buf.data());
    benchmark::ClobberMemory();
  }
  Bytes(state, kMiB);
}

void Base64EncodeRef(benchmark::State& state) {
  std::vector<unsigned char> text(kMiB / 3 * 4 + 8);
  for (auto _ : state) benchmark::DoNotOptimize(EVP_EncodeBlock(text.data(), Input().data(), kMiB));
  Bytes(state, kMiB);
}

void Base64DecodeRef(benchmark::State& state) {
  const std::string text = Base64Text();
  std::vector<unsigned char> out(kMiB);
  for (auto _ : state) {
    benchmark::DoNotOptimize(EVP_DecodeBlock(
        out.data(), reinterpret_cast<const unsigned char*>(text.data()), static_cast<int>(text.size())));
    benchmark::ClobberMemory();
  }
  Bytes(state, text.size());
}
#endif

// Registers "<name>/ovra" and, where the reference exists in this build,
// "<name>/ref".
template <class Ours, class Ref>
void Pair(const std::string& name, Ours ours, Ref ref) {
  benchmark::RegisterBenchmark((name + "/ovra").c_str(), ours)->UseRealTime();
#ifdef OVRA_HAVE_OPENSSL
  benchmark::RegisterBenchmark((name + "/ref").c_str(), ref)->UseRealTime();
#else
  (void)ref;
#endif
}

const bool kRegistered = [] {
#ifdef OVRA_HAVE_OPENSSL
#define OVRA_REF(expr) expr
#else
#define OVRA_REF(expr) [](benchmark::State&) {}
#endif
  for (const Size& s : kDigestSizes) {
    const size_t n = s.bytes;
    const std::string at = std::string(" ") + s.label;
    Pair("MD5" + at, [n](benchmark::State& st) { DigestOvra<TMd5Digest>(st, n); },
         OVRA_REF([n](benchmark::State& st) { DigestRef<MD5>(st, n); }));
    Pair("SHA-1" + at, [n](benchmark::State& st) { DigestOvra<TShaDigest>(st, n); },
         OVRA_REF([n](benchmark::State& st) { DigestRef<SHA1>(st, n); }));
    Pair("MD4" + at, [n](benchmark::State& st) { DigestOvra<TMd4Digest>(st, n); },
         OVRA_REF([n](benchmark::State& st) { DigestRef<MD4>(st, n); }));
  }
  for (const Size& s : kHmacSizes) {
    const size_t n = s.bytes;
    const std::string at = std::string(" ") + s.label;
    Pair("HMAC-MD5" + at, [n](benchmark::State& st) { HmacOvra<TMd5Digest>(st, n); },
         OVRA_REF([n](benchmark::State& st) { HmacRef(st, EVP_md5(), n); }));
    Pair("HMAC-SHA-1" + at, [n](benchmark::State& st) { HmacOvra<TShaDigest>(st, n); },
         OVRA_REF([n](benchmark::State& st) { HmacRef(st, EVP_sha1(), n); }));
  }
  Pair("DES-CBC encrypt 1 MiB", [](benchmark::State& st) { DesOvra(st, true); },
       OVRA_REF([](benchmark::State& st) { DesRef(st, true); }));
  Pair("DES-CBC decrypt 1 MiB", [](benchmark::State& st) { DesOvra(st, false); },
       OVRA_REF([](benchmark::State& st) { DesRef(st, false); }));
  Pair("RC2-CBC encrypt 1 MiB", [](benchmark::State& st) { Rc2Ovra(st, true); },
       OVRA_REF([](benchmark::State& st) { Rc2Ref(st, true); }));
  Pair("RC2-CBC decrypt 1 MiB", [](benchmark::State& st) { Rc2Ovra(st, false); },
       OVRA_REF([](benchmark::State& st) { Rc2Ref(st, false); }));
  Pair("RC4 1 MiB", Rc4Ovra, OVRA_REF(Rc4Ref));
  Pair("Base64 encode 1 MiB", Base64EncodeOvra, OVRA_REF(Base64EncodeRef));
  Pair("Base64 decode 1 MiB", Base64DecodeOvra, OVRA_REF(Base64DecodeRef));
#undef OVRA_REF
  // memcpy is always there: this pair is registered in every build.
  benchmark::RegisterBenchmark("Checksum 1 MiB/ovra", ChecksumOvra)->UseRealTime();
  benchmark::RegisterBenchmark("Checksum 1 MiB/ref", MemcpyRef)->UseRealTime();
  return true;
}();

}  // namespace
