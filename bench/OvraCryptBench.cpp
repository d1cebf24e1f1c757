// Speed of the data encodings and ciphers, each measured side by side with a
// reference in the same process over 1 MiB. The "ratio" counter is our time
// divided by the reference's (below 1 is faster); the targets are DES and
// RC2 CBC <= 1.0 and RC4 <= 1.25 against OpenSSL's low-level functions,
// Base64 <= 1.0 against EVP_EncodeBlock, and the checksum at >= 0.3 of
// memcpy's bandwidth (ratio <= 3.33).
#include <benchmark/benchmark.h>
#include <string.h>

#include <chrono>
#include <vector>

#include "OvraCrypt.h"
#include "OvraCryptDes.h"
#include "OvraCryptRcX.h"

#ifdef OVRA_HAVE_OPENSSL
#define OPENSSL_SUPPRESS_DEPRECATED
#include <openssl/des.h>
#include <openssl/evp.h>
#include <openssl/rc2.h>
#include <openssl/rc4.h>
#endif

namespace {

constexpr size_t kSize = 1 << 20;

std::vector<unsigned char> Input() {
  std::vector<unsigned char> v(kSize + 64);
  unsigned x = 12345;
  for (auto& c : v) {
    x = x * 1103515245u + 12345u;
    c = static_cast<unsigned char>(x >> 16);
  }
  return v;
}

// Runs `ours` and `reference` alternately, timing each, and reports both
// throughputs and the ratio of the times.
template <class Ours, class Reference>
void SideBySide(benchmark::State& state, Ours ours, Reference reference) {
  using Clock = std::chrono::steady_clock;
  double oursTime = 0, referenceTime = 0;
  for (auto _ : state) {
    const auto t0 = Clock::now();
    ours();
    const auto t1 = Clock::now();
    reference();
    const auto t2 = Clock::now();
    oursTime += std::chrono::duration<double>(t1 - t0).count();
    referenceTime += std::chrono::duration<double>(t2 - t1).count();
  }
  const double mb = static_cast<double>(kSize) * state.iterations() / 1e6;
  state.counters["ours_MBps"] = mb / oursTime;
  state.counters["reference_MBps"] = mb / referenceTime;
  state.counters["ratio"] = oursTime / referenceTime;
}

#ifdef OVRA_HAVE_OPENSSL
void BM_DesCbcEncrypt(benchmark::State& state) {
  std::vector<unsigned char> buf = Input(), out(kSize);
  const unsigned char key[8] = {0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF};
  TDesCipher des(TCipher::eEncrypt, key, 8);
  des.SetIv(nullptr);
  DES_cblock k;
  memcpy(k, key, 8);
  DES_key_schedule ks;
  DES_set_key_unchecked(&k, &ks);
  SideBySide(
      state, [&] { benchmark::DoNotOptimize(des.EncryptData(buf.data(), kSize, false)); },
      [&] {
        DES_cblock iv = {0};
        DES_ncbc_encrypt(buf.data(), out.data(), kSize, &ks, &iv, DES_ENCRYPT);
        benchmark::DoNotOptimize(out.data());
      });
}
BENCHMARK(BM_DesCbcEncrypt)->UseRealTime();

void BM_DesCbcDecrypt(benchmark::State& state) {
  std::vector<unsigned char> buf = Input(), out(kSize);
  const unsigned char key[8] = {0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF};
  TDesCipher des(TCipher::eDecrypt, key, 8);
  des.SetIv(nullptr);
  DES_cblock k;
  memcpy(k, key, 8);
  DES_key_schedule ks;
  DES_set_key_unchecked(&k, &ks);
  SideBySide(
      state, [&] { benchmark::DoNotOptimize(des.DecryptData(buf.data(), kSize, false)); },
      [&] {
        DES_cblock iv = {0};
        DES_ncbc_encrypt(buf.data(), out.data(), kSize, &ks, &iv, DES_DECRYPT);
        benchmark::DoNotOptimize(out.data());
      });
}
BENCHMARK(BM_DesCbcDecrypt)->UseRealTime();

void BM_Rc2CbcEncrypt(benchmark::State& state) {
  std::vector<unsigned char> buf = Input(), out(kSize);
  const unsigned char key[16] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
  TRc2Cipher rc2(TCipher::eEncrypt, key, 16, 128);
  rc2.SetIv(nullptr);
  RC2_KEY rk;
  RC2_set_key(&rk, 16, key, 128);
  SideBySide(
      state, [&] { benchmark::DoNotOptimize(rc2.EncryptData(buf.data(), kSize, false)); },
      [&] {
        unsigned char iv[8] = {0};
        RC2_cbc_encrypt(buf.data(), out.data(), kSize, &rk, iv, RC2_ENCRYPT);
        benchmark::DoNotOptimize(out.data());
      });
}
BENCHMARK(BM_Rc2CbcEncrypt)->UseRealTime();

void BM_Rc2CbcDecrypt(benchmark::State& state) {
  std::vector<unsigned char> buf = Input(), out(kSize);
  const unsigned char key[16] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
  TRc2Cipher rc2(TCipher::eDecrypt, key, 16, 128);
  rc2.SetIv(nullptr);
  RC2_KEY rk;
  RC2_set_key(&rk, 16, key, 128);
  SideBySide(
      state, [&] { benchmark::DoNotOptimize(rc2.DecryptData(buf.data(), kSize, false)); },
      [&] {
        unsigned char iv[8] = {0};
        RC2_cbc_encrypt(buf.data(), out.data(), kSize, &rk, iv, RC2_DECRYPT);
        benchmark::DoNotOptimize(out.data());
      });
}
BENCHMARK(BM_Rc2CbcDecrypt)->UseRealTime();

void BM_Rc4(benchmark::State& state) {
  std::vector<unsigned char> buf = Input(), out(kSize);
  const unsigned char key[16] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
  TRc4Cipher rc4(TCipher::eEncrypt, key, 16);
  RC4_KEY k;
  RC4_set_key(&k, 16, key);
  SideBySide(
      state, [&] { benchmark::DoNotOptimize(rc4.ProcessData(buf.data(), kSize, false)); },
      [&] {
        RC4(&k, kSize, buf.data(), out.data());
        benchmark::DoNotOptimize(out.data());
      });
}
BENCHMARK(BM_Rc4)->UseRealTime();

void BM_Base64Encode(benchmark::State& state) {
  std::vector<unsigned char> buf = Input();
  std::vector<char> text(kSize / 3 * 4 + 8);
  std::vector<unsigned char> reference(text.size());
  SideBySide(
      state,
      [&] { benchmark::DoNotOptimize(OvraBinToBase64(buf.data(), kSize, text.data())); },
      [&] {
        benchmark::DoNotOptimize(EVP_EncodeBlock(reference.data(), buf.data(), kSize));
      });
}
BENCHMARK(BM_Base64Encode)->UseRealTime();
#endif

void BM_ChecksumAgainstMemcpy(benchmark::State& state) {
  std::vector<unsigned char> buf = Input(), out(kSize);
  SideBySide(
      state, [&] { benchmark::DoNotOptimize(OvraComputeChecksum(buf.data(), kSize)); },
      [&] {
        memcpy(out.data(), buf.data(), kSize);
        benchmark::ClobberMemory();
      });
}
BENCHMARK(BM_ChecksumAgainstMemcpy)->UseRealTime();

}  // namespace
