// Tests of TDesCipher: published vectors, key handling, the parameter blob
// and random differential checks against OpenSSL's libcrypto.
#include "OvraCryptDes.h"

#include <gtest/gtest.h>
#include <string.h>

#include <random>
#include <string>
#include <vector>

#include "TestAllocator.h"
#include "TestBytes.h"

#ifdef OVRA_HAVE_OPENSSL
#include <openssl/evp.h>
#include <openssl/provider.h>
#endif

namespace {

using ovra_test::Bytes;
using ovra_test::FromHex;
using ovra_test::FromText;
using ovra_test::RandomBytes;

// FIPS 81, appendix B: key, IV and the plaintext "Now is the time for all ".
const char* const kFipsKey = "0123456789abcdef";
const char* const kFipsIv = "1234567890abcdef";
const char* const kFipsPlain = "Now is the time for all ";
const char* const kFipsEcb = "3fa40e8a984d4815 6a271787ab8883f9 893d51ec4b563b53";
const char* const kFipsCbc = "e5c7cdde872bf27c 43e934008c389c0f 683788499a7c05f6";

TEST(DesTest, ReproducesTheFips81EcbExample) {
  const Bytes key = FromHex(kFipsKey);
  TDesCipher c(TCipher::eEncrypt, key.data(), 8);
  c.SetMode(TBlockCipher::eEcb);
  Bytes data = FromText(kFipsPlain);
  ASSERT_EQ(c.EncryptData(data.data(), 24, false), 24u);
  EXPECT_EQ(data, FromHex(kFipsEcb));
  TDesCipher d(TCipher::eDecrypt, key.data(), 8);
  d.SetMode(TBlockCipher::eEcb);
  ASSERT_EQ(d.DecryptData(data.data(), 24, false), 24u);
  EXPECT_EQ(data, FromText(kFipsPlain));
}

TEST(DesTest, ReproducesTheFips81CbcExample) {
  const Bytes key = FromHex(kFipsKey);
  const Bytes iv = FromHex(kFipsIv);
  TDesCipher c(TCipher::eEncrypt, key.data(), 8);
  c.SetIv(iv.data());
  Bytes data = FromText(kFipsPlain);
  ASSERT_EQ(c.EncryptData(data.data(), 24, false), 24u);
  EXPECT_EQ(data, FromHex(kFipsCbc));
  TDesCipher d(TCipher::eDecrypt, key.data(), 8);
  d.SetIv(iv.data());
  ASSERT_EQ(d.DecryptData(data.data(), 24, false), 24u);
  EXPECT_EQ(data, FromText(kFipsPlain));
}

TEST(DesTest, FinalCbcCallAppendsAnEncryptedPaddingBlock) {
  const Bytes key = FromHex(kFipsKey);
  const Bytes iv = FromHex(kFipsIv);
  TDesCipher c(TCipher::eEncrypt, key.data(), 8);
  TCrypter crypter(c, TBlockCipher::eCbc, iv.data());
  Bytes data = FromText(kFipsPlain);
  data.resize(32);
  ASSERT_EQ(crypter.CryptData(data.data(), 24, true), 32u);
  EXPECT_EQ(Bytes(data.begin(), data.begin() + 24), FromHex(kFipsCbc));
  TDesCipher d(TCipher::eDecrypt, key.data(), 8);
  TCrypter decrypter(d, TBlockCipher::eCbc, iv.data());
  EXPECT_EQ(decrypter.CryptData(data.data(), 32, true), 24u);
  EXPECT_EQ(Bytes(data.begin(), data.begin() + 24), FromText(kFipsPlain));
  EXPECT_EQ(Bytes(data.begin() + 24, data.end()), Bytes(8, 8));
}

TEST(DesTest, ReproducesTheTextbookSingleBlockExample) {
  const Bytes key = FromHex("133457799bbcdff1");
  TDesCipher c(TCipher::eEncrypt, key.data(), 8);
  Bytes block = FromHex("0123456789abcdef");
  c.ProcessBlock(block.data());
  EXPECT_EQ(block, FromHex("85e813540f0ab405"));
  TDesCipher d(TCipher::eDecrypt, key.data(), 8);
  d.ProcessBlock(block.data());
  EXPECT_EQ(block, FromHex("0123456789abcdef"));
}

TEST(DesTest, KeyLengthIsIgnoredAndOnlyTheFirstEightBytesCount) {
  std::mt19937 rng(51);
  const Bytes key24 = RandomBytes(rng, 24);
  Bytes key8(key24.begin(), key24.begin() + 8);
  key8.resize(24, 0);  // different bytes behind the first eight
  const Bytes plain = RandomBytes(rng, 64);
  Bytes reference;
  for (unsigned keylen : {8u, 24u, 16u, 0u, 3u}) {
    const Bytes& key = keylen == 24 ? key24 : key8;
    TDesCipher c(TCipher::eEncrypt, key.data(), keylen);
    c.SetMode(TBlockCipher::eEcb);
    Bytes data = plain;
    ASSERT_EQ(c.EncryptData(data.data(), 64, false), 64u);
    if (reference.empty()) reference = data;
    EXPECT_EQ(data, reference) << "keylen " << keylen;
  }
}

TEST(DesTest, ParityBitsOfTheKeyAreIgnored) {
  std::mt19937 rng(52);
  for (int iter = 0; iter < 50; ++iter) {
    Bytes key = RandomBytes(rng, 8);
    Bytes flipped = key;
    for (auto& b : flipped) b ^= static_cast<unsigned char>(rng() & 1);
    flipped[iter % 8] ^= 1;
    const Bytes plain = RandomBytes(rng, 8);
    Bytes a = plain, b = plain;
    TDesCipher(TCipher::eEncrypt, key.data(), 8).ProcessBlock(a.data());
    TDesCipher(TCipher::eEncrypt, flipped.data(), 8).ProcessBlock(b.data());
    EXPECT_EQ(a, b);
    // A non-parity bit does change the result.
    Bytes other = key;
    other[iter % 8] ^= 0x80;
    Bytes c = plain;
    TDesCipher(TCipher::eEncrypt, other.data(), 8).ProcessBlock(c.data());
    EXPECT_NE(a, c);
  }
}

TEST(DesTest, BerDumpNeedsTwentyOneBytes) {
  const Bytes key = FromHex(kFipsKey);
  TDesCipher c(TCipher::eEncrypt, key.data(), 8);
  Bytes out(32, 0xEE);
  EXPECT_EQ(c.BerDump(out.data(), 20), 0u);
  EXPECT_EQ(out, Bytes(32, 0xEE));
  EXPECT_EQ(c.BerDump(out.data(), 0), 0u);
}

TEST(DesTest, BerDumpWritesTheAlgorithmIdentifierWithTheIvInItsOwnSequence) {
  const Bytes key = FromHex(kFipsKey);
  const Bytes iv = FromHex("0102030405060708");
  TDesCipher c(TCipher::eEncrypt, key.data(), 8);
  c.SetIv(iv.data());
  Bytes data(16, 0x99);
  ASSERT_EQ(c.EncryptData(data.data(), 16, false), 16u);  // moves the chain away from the IV
  Bytes out(32, 0xEE);
  ASSERT_EQ(c.BerDump(out.data(), 21), 21u);
  EXPECT_EQ(Bytes(out.begin(), out.begin() + 21),
            FromHex("3013 0605 2b0e030207 300a 0408 0102030405060708"));
  EXPECT_EQ(out[21], 0xEE);
  EXPECT_EQ(c.BerDump(out.data(), 32), 21u);
}

TEST(DesTest, BerDumpOfAZeroIvAndTheObjectIdentifierConstant) {
  const Bytes key = FromHex(kFipsKey);
  TDesCipher c(TCipher::eDecrypt, key.data(), 8);
  Bytes out(21);
  ASSERT_EQ(c.BerDump(out.data(), 21), 21u);
  EXPECT_EQ(Bytes(out.begin() + 13, out.end()), Bytes(8, 0));
  EXPECT_EQ(Bytes(kDesCbcObjectId, kDesCbcObjectId + 5), FromHex("2b0e030207"));
  // The blob parses as the nested elements it claims to be.
  SBerElement outer, oid, seq, octets;
  ASSERT_EQ(OvraBerDecode(out.data(), 21, &outer), 21u);
  ASSERT_EQ(OvraBerDecode(outer.data, outer.length, &oid), 7u);
  EXPECT_EQ(oid.tag, 0x06u);
  ASSERT_EQ(OvraBerDecode(outer.data + 7, outer.length - 7, &seq), 12u);
  EXPECT_EQ(seq.tag, 0x30u);
  ASSERT_EQ(OvraBerDecode(seq.data, seq.length, &octets), 10u);
  EXPECT_EQ(octets.tag, 0x04u);
  EXPECT_EQ(octets.length, 8u);
}

TEST(DesTest, BerInitIsNotSupported) {
  const Bytes key = FromHex(kFipsKey);
  TDesCipher c(TCipher::eEncrypt, key.data(), 8);
  Bytes blob(21);
  ASSERT_EQ(c.BerDump(blob.data(), 21), 21u);
  EXPECT_EQ(c.BerInit(blob.data(), 21), 0u);
  EXPECT_EQ(c.BerInit(nullptr, 0), 0u);
}

TEST(DesTest, IsAnEightByteBlockCipherInCbcModeByDefault) {
  const Bytes key = FromHex(kFipsKey);
  TDesCipher c(TCipher::eEncrypt, key.data(), 8);
  EXPECT_EQ(c.GetBlockSize(), 8u);
  EXPECT_EQ(c.GetType(), TCipher::eBlockCipher);
  EXPECT_EQ(c.GetMode(), TBlockCipher::eCbc);
}

TEST(DesTest, AnyNonZeroOperationBuildsADecryptionSchedule) {
  const Bytes key = FromHex("133457799bbcdff1");
  TDesCipher d(static_cast<TCipher::ECipherOp>(7), key.data(), 8);
  Bytes block = FromHex("85e813540f0ab405");
  d.ProcessBlock(block.data());
  EXPECT_EQ(block, FromHex("0123456789abcdef"));
}

TEST(DesTest, EncryptionAllocatesNothing) {
  ovra_test::ScopedCountingLibrary library;
  ASSERT_TRUE(library.started());
  const long before = ovra_test::Stats().requests;
  {
    const Bytes key = FromHex(kFipsKey);
    TDesCipher c(TCipher::eEncrypt, key.data(), 8);
    TCrypter crypter(c, TBlockCipher::eCbc, nullptr);
    Bytes data(4096, 1);
    EXPECT_EQ(crypter.CryptData(data.data(), 4000, true), 4008u);
  }
  EXPECT_EQ(ovra_test::Stats().requests, before);
}

#ifdef OVRA_HAVE_OPENSSL
// Single DES lives in OpenSSL 3's legacy provider.
class OpenSslDes : public ::testing::Test {
 protected:
  void SetUp() override {
    legacy_ = OSSL_PROVIDER_load(nullptr, "legacy");
    default_ = OSSL_PROVIDER_load(nullptr, "default");
    ecb_ = EVP_CIPHER_fetch(nullptr, "DES-ECB", nullptr);
    cbc_ = EVP_CIPHER_fetch(nullptr, "DES-CBC", nullptr);
    if (!ecb_ || !cbc_) GTEST_SKIP() << "OpenSSL's legacy provider is not available";
  }
  void TearDown() override {
    EVP_CIPHER_free(ecb_);
    EVP_CIPHER_free(cbc_);
    if (legacy_) OSSL_PROVIDER_unload(legacy_);
    if (default_) OSSL_PROVIDER_unload(default_);
  }

  // One-shot EVP encryption or decryption with PKCS #5 padding.
  Bytes Crypt(bool cbc, bool encrypt, const Bytes& key, const Bytes& iv, const Bytes& in) {
    Bytes out(in.size() + 16);
    EVP_CIPHER_CTX* ctx = EVP_CIPHER_CTX_new();
    int n1 = 0, n2 = 0;
    EXPECT_EQ(EVP_CipherInit_ex(ctx, cbc ? cbc_ : ecb_, nullptr, key.data(),
                                cbc ? iv.data() : nullptr, encrypt ? 1 : 0),
              1);
    EXPECT_EQ(EVP_CipherUpdate(ctx, out.data(), &n1, in.data(), static_cast<int>(in.size())), 1);
    EXPECT_EQ(EVP_CipherFinal_ex(ctx, out.data() + n1, &n2), 1);
    EVP_CIPHER_CTX_free(ctx);
    out.resize(n1 + n2);
    return out;
  }

  OSSL_PROVIDER* legacy_ = nullptr;
  OSSL_PROVIDER* default_ = nullptr;
  EVP_CIPHER* ecb_ = nullptr;
  EVP_CIPHER* cbc_ = nullptr;
};

// Feeds `data` (len bytes, room behind it) through `c` in whole-block pieces
// of random sizes, then a final call with the rest; returns the total.
unsigned CryptInPieces(TBlockCipher& c, bool encrypt, unsigned char* data, unsigned len,
                       std::mt19937& rng) {
  unsigned pos = 0, total = 0;
  const unsigned reserve = encrypt ? 0 : 8;  // decryption keeps a block for the final call
  while (pos + reserve < len && rng() % 3 != 0) {
    unsigned run = (rng() % 5) * 8;
    if (pos + run + reserve > len) run = (len - reserve - pos) / 8 * 8;
    const unsigned got =
        encrypt ? c.EncryptData(data + pos, run, false) : c.DecryptData(data + pos, run, false);
    EXPECT_EQ(got, run);
    pos += run;
    total += got;
  }
  total += encrypt ? c.EncryptData(data + pos, len - pos, true)
                   : c.DecryptData(data + pos, len - pos, true);
  return total;
}

TEST_F(OpenSslDes, EcbAndCbcMatchOpenSslOnRandomMessagesKeysIvsAndSplitPoints) {
  std::mt19937 rng(53);
  for (int iter = 0; iter < 3000; ++iter) {
    const bool cbc = iter % 2 == 0;
    const Bytes key = RandomBytes(rng, 8);
    const Bytes iv = RandomBytes(rng, 8);
    size_t len = rng() % 120;
    if (iter % 500 == 0) len = 20000 + rng() % 1000;
    const Bytes plain = RandomBytes(rng, len);
    const Bytes expected = Crypt(cbc, true, key, iv, plain);

    TDesCipher enc(TCipher::eEncrypt, key.data(), 8);
    TCrypter encrypter(enc, cbc ? TBlockCipher::eCbc : TBlockCipher::eEcb, iv.data());
    // Two messages in a row through the same object: the final call resets the chain.
    for (int message = 0; message < 2; ++message) {
      Bytes data = plain;
      data.resize(len + 8);
      const unsigned n = CryptInPieces(enc, true, data.data(), static_cast<unsigned>(len), rng);
      ASSERT_EQ(n, expected.size());
      ASSERT_EQ(Bytes(data.begin(), data.begin() + n), expected) << "iteration " << iter;
    }

    TDesCipher dec(TCipher::eDecrypt, key.data(), 8);
    TCrypter decrypter(dec, cbc ? TBlockCipher::eCbc : TBlockCipher::eEcb, iv.data());
    for (int message = 0; message < 2; ++message) {
      Bytes data = expected;
      const unsigned n =
          CryptInPieces(dec, false, data.data(), static_cast<unsigned>(data.size()), rng);
      ASSERT_EQ(n, len);
      ASSERT_EQ(Bytes(data.begin(), data.begin() + n), plain) << "iteration " << iter;
    }
  }
}

TEST_F(OpenSslDes, OpenSslDecryptsWhatTheCipherEncrypts) {
  std::mt19937 rng(54);
  for (int iter = 0; iter < 500; ++iter) {
    const bool cbc = iter % 2 == 1;
    const Bytes key = RandomBytes(rng, 8);
    const Bytes iv = RandomBytes(rng, 8);
    const size_t len = rng() % 200;
    const Bytes plain = RandomBytes(rng, len);
    TDesCipher enc(TCipher::eEncrypt, key.data(), 8);
    TCrypter crypter(enc, cbc ? TBlockCipher::eCbc : TBlockCipher::eEcb, iv.data());
    Bytes data(len + 8);
    const unsigned n = crypter.CryptData(plain.data(), static_cast<unsigned>(len), data.data(), true);
    data.resize(n);
    EXPECT_EQ(Crypt(cbc, false, key, iv, data), plain);
  }
}
#endif

}  // namespace
