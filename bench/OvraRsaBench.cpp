// Speed of the RSA public-key operation and of TBigInt's modular
// exponentiation, each registered as a pair "<Operation>/ovra" and
// "<Operation>/ref" (OpenSSL's libcrypto, when found). Target: RSA-2048
// encryption at most 3.0 times the reference's time.
#include <benchmark/benchmark.h>
#include <string.h>

#include <string>
#include <vector>

#include "Ovra.h"
#include "OvraCryptRsa.h"

#ifdef OVRA_HAVE_OPENSSL
#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/param_build.h>
#include <openssl/rsa.h>
#endif

namespace {

using Bytes = std::vector<unsigned char>;

// A 2048-bit modulus (the product of two fixed-seed primes), a base below it
// and a full-size 2048-bit exponent with its top bit set.
const char kModulus2048[] =
    "B9F54D9080A36CA8024DBAE7D23E4716C5DA56D9EAB616BF00120EC6DA6F1587A9E306A4C31CB224524A1398DEAE51E8"
    "EF310591C6C0381D2649E1E2B8B4F2EC93ED2121D8BD9E802A2E49C7106DCE69A2240EEFE2E20629E3B80DC1F1D81878"
    "C02A03E1FE4157AA73E444C3C47616171B75BE0E5AC6A4F83498F13FF4D610B9E400194DA05A86617815FA22E546EFFF"
    "05636EDC0B02B49F9C502929A92B2F1898A23CF32010EC9A193C9369E294E546BFBFEA1BCDC68D70F3DB1791B00EBF3E"
    "7AB1F2D524637EF4301E0A68EB85C2AEE313B24E130AAEE9312287AE6AE098E3ED5B2DAE90ED6954C95F27829A542DA7"
    "F4F8BEDB7C3C9872A6288FDBB4C3D89B";
const char kBase2048[] =
    "18F135D25F557203301850C5A38FD547923A736994E3BF911A61DBE22E44158BAE97BA94D0EDA82F8F6D05584EF8AA38"
    "922766581E27A1C08A6A63EC24EDE6A46B4CB2424A23D5962217BEADDBC496CB8E81973E0BECD7B03898D190F9EBDACC"
    "0CB1E29C658CDA1495E60AF593BD04CF0FD630F1F29D0DA9953F48F1A09F76B5A170B33839263059F28C105D1FB17C23"
    "90C192CFD3AC94AF0F21DDB66CAD4A268D116ECE1738F7D93D9C172411E20B8F6B0D549B6F03675A1600A35A099950D8"
    "36F675CC81E74EF5E8E25D940ED904759531985D5D9DC9F81818E811892F902BD23F0824128B2F330C5C7FD0A6A3A450"
    "6513270E269E0D37F2A74DE452E6B438";
const char kExponent2048[] =
    "844DBC0CA65423A9E744B24E7F61701E1607B1C4B0F913063C02E56756A3E9570EDCA4ECA92D04A31B941F4360908405"
    "D45C39A39EC353C162E917D310269470D0718C1AFDD9A78D18DFF3934223AA56A9B7E3EA1D1D784FB9DB434B610B1631"
    "E941AA79E6EDAF80796D3BC4685CA8AF852A5FBA444ADF42B37F5722051E2670C24F6AA83BF36A147C2F7AD016EDC5D4"
    "67164890D49D0AC1E5B8063831360A4092B850AD7EB72F8263F65DA874007CB47CC661E97589CA4A07C15471A4517D6C"
    "6694F229359B154881A0D5B3FFC6E35CCFAF00103F584AD4230824D215CEB3A10B3510B0B46EE1DA317017A6205738D1"
    "6018366CF658F7A75ED34FE53A096533";
const Bytes kPublicExponent = {0x01, 0x00, 0x01};

Bytes FromHex(const char* hex) {
  Bytes out;
  for (size_t i = 0; hex[i] && hex[i + 1]; i += 2) {
    out.push_back(static_cast<unsigned char>(std::stoul(std::string(hex + i, 2), nullptr, 16)));
  }
  return out;
}

// The library must be started: encryption draws its padding from the shared
// generator.
struct Library {
  Library() { OvraInitialize(nullptr); }
  ~Library() { OvraUninitialize(); }
};

void RsaEncryptOvra(benchmark::State& state) {
  Library library;
  const Bytes n = FromHex(kModulus2048);
  TRsaPublicCipher cipher(TCipher::eEncrypt, n.data(), static_cast<unsigned>(n.size()),
                          kPublicExponent.data(), static_cast<unsigned>(kPublicExponent.size()));
  Bytes buf(256);
  for (auto _ : state) {
    memset(buf.data(), 0x42, 32);
    const unsigned written = cipher.EncryptData(buf.data(), 32, true);
    if (written == 0) {
      state.SkipWithError("encryption failed");
      break;
    }
    benchmark::DoNotOptimize(buf.data());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * 32);
}

void ExpModOvra(benchmark::State& state) {
  const Bytes n = FromHex(kModulus2048), x = FromHex(kBase2048), y = FromHex(kExponent2048);
  const TBigInt m(n.data(), static_cast<unsigned>(n.size()));
  const TBigInt base(x.data(), static_cast<unsigned>(x.size()));
  const TBigInt e(y.data(), static_cast<unsigned>(y.size()));
  TBigInt r;
  for (auto _ : state) {
    TBigInt::ExpMod(r, base, e, m);
    benchmark::DoNotOptimize(r.ToInt());
  }
}

#ifdef OVRA_HAVE_OPENSSL
// The same public key as an OpenSSL key object.
EVP_PKEY* PublicKey(const Bytes& n) {
  BIGNUM* bn = BN_bin2bn(n.data(), static_cast<int>(n.size()), nullptr);
  BIGNUM* be = BN_bin2bn(kPublicExponent.data(), static_cast<int>(kPublicExponent.size()), nullptr);
  OSSL_PARAM_BLD* bld = OSSL_PARAM_BLD_new();
  EVP_PKEY* key = nullptr;
  if (bn && be && bld && OSSL_PARAM_BLD_push_BN(bld, OSSL_PKEY_PARAM_RSA_N, bn) &&
      OSSL_PARAM_BLD_push_BN(bld, OSSL_PKEY_PARAM_RSA_E, be)) {
    OSSL_PARAM* params = OSSL_PARAM_BLD_to_param(bld);
    EVP_PKEY_CTX* ctx = EVP_PKEY_CTX_new_from_name(nullptr, "RSA", nullptr);
    if (params && ctx && EVP_PKEY_fromdata_init(ctx) > 0) {
      EVP_PKEY_fromdata(ctx, &key, EVP_PKEY_PUBLIC_KEY, params);
    }
    EVP_PKEY_CTX_free(ctx);
    OSSL_PARAM_free(params);
  }
  OSSL_PARAM_BLD_free(bld);
  BN_free(bn);
  BN_free(be);
  return key;
}

void RsaEncryptRef(benchmark::State& state) {
  EVP_PKEY* key = PublicKey(FromHex(kModulus2048));
  EVP_PKEY_CTX* ctx = key ? EVP_PKEY_CTX_new(key, nullptr) : nullptr;
  if (!ctx || EVP_PKEY_encrypt_init(ctx) <= 0 ||
      EVP_PKEY_CTX_set_rsa_padding(ctx, RSA_PKCS1_PADDING) <= 0) {
    state.SkipWithError("no reference key");
  } else {
    Bytes in(32, 0x42), out(256);
    for (auto _ : state) {
      size_t outLen = out.size();
      if (EVP_PKEY_encrypt(ctx, out.data(), &outLen, in.data(), in.size()) <= 0) {
        state.SkipWithError("reference encryption failed");
        break;
      }
      benchmark::DoNotOptimize(out.data());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * 32);
  }
  EVP_PKEY_CTX_free(ctx);
  EVP_PKEY_free(key);
}

void ExpModRef(benchmark::State& state) {
  const Bytes n = FromHex(kModulus2048), x = FromHex(kBase2048), y = FromHex(kExponent2048);
  BIGNUM* m = BN_bin2bn(n.data(), static_cast<int>(n.size()), nullptr);
  BIGNUM* base = BN_bin2bn(x.data(), static_cast<int>(x.size()), nullptr);
  BIGNUM* e = BN_bin2bn(y.data(), static_cast<int>(y.size()), nullptr);
  BIGNUM* r = BN_new();
  BN_CTX* ctx = BN_CTX_new();
  for (auto _ : state) {
    BN_mod_exp(r, base, e, m, ctx);
    benchmark::DoNotOptimize(r);
  }
  BN_CTX_free(ctx);
  BN_free(r);
  BN_free(e);
  BN_free(base);
  BN_free(m);
}
#endif

const bool s_registered = [] {
  benchmark::RegisterBenchmark("RSA-2048 encrypt/ovra", RsaEncryptOvra);
#ifdef OVRA_HAVE_OPENSSL
  benchmark::RegisterBenchmark("RSA-2048 encrypt/ref", RsaEncryptRef);
#endif
  benchmark::RegisterBenchmark("ExpMod 2048-bit exponent/ovra", ExpModOvra);
#ifdef OVRA_HAVE_OPENSSL
  benchmark::RegisterBenchmark("ExpMod 2048-bit exponent/ref", ExpModRef);
#endif
  return true;
}();

}  // namespace
