// Tests of TRsaPublicCipher: key construction, the SubjectPublicKeyInfo
// reader, PKCS #1 v1.5 encryption (block type 2) and recovery (block type 1),
// their edge cases and allocation failures. Fixed keys (made independently,
// outside this library) serve every platform; with OpenSSL, keys of 1024, 2048
// and 3072 bits are generated and the library is checked against its private
// key operations.
#include "OvraCryptRsa.h"

#include <gtest/gtest.h>
#include <string.h>

#include <memory>
#include <random>
#include <string>
#include <vector>

#include "AllocSweep.h"
#include "OvraRand.h"
#include "TestAllocator.h"
#include "TestRsaKeys.h"

#ifdef OVRA_HAVE_OPENSSL
#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>
#endif

namespace {

using ovra_test::FailNthAllocation;
using ovra_test::ScopedCountingLibrary;
using ovra_test::Stats;
using ovra_test::StopFailing;
using ovra_test::Bytes;
using ovra_test::FromHex;
using ovra_test::SweepBothModes;
using ovra_test::SweepRun;
using ovra_test::SweepTest;
using ovra_test::RandomBytes;
using namespace ovra_test::rsa_keys;

// The value as exactly n big-endian bytes (through TBigInt::Dump, left-padded).
Bytes Padded(const TBigInt& v, size_t n) {
  Bytes words(n + 4);
  const unsigned written = v.Dump(words.data(), static_cast<unsigned>(words.size()));
  Bytes out(n, 0);
  size_t skip = 0;
  while (written - skip > n) {
    EXPECT_EQ(words[skip], 0);
    ++skip;
  }
  memcpy(out.data() + n - (written - skip), words.data() + skip, written - skip);
  return out;
}

// The private-key operation with the fixed keys: block^d mod n as k bytes.
Bytes PrivateOp(const Bytes& block, const char* nHex, const char* dHex) {
  const Bytes n = FromHex(nHex), d = FromHex(dHex);
  TBigInt r;
  EXPECT_TRUE(TBigInt::ExpMod(r, TBigInt(block.data(), static_cast<unsigned>(block.size())),
                              TBigInt(d.data(), static_cast<unsigned>(d.size())),
                              TBigInt(n.data(), static_cast<unsigned>(n.size()))));
  return Padded(r, n.size());
}

// The type 1 block 00 01 FF.. 00 message of k bytes, with ffCount FF bytes.
Bytes Type1Block(size_t k, const Bytes& message) {
  Bytes block(k, 0xFF);
  block[0] = 0x00;
  block[1] = 0x01;
  block[k - message.size() - 1] = 0x00;
  memcpy(block.data() + k - message.size(), message.data(), message.size());
  return block;
}

// Each test starts the library with the counting allocator, so that the
// shared generator is fresh (unseeded) and every allocation is observed.
class RsaTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(m_lib.started()); }
  void TearDown() override {
    StopFailing();
  }
  ScopedCountingLibrary m_lib;
};

TRsaPublicCipher* NewCipher(TCipher::ECipherOp op, const char* nHex) {
  const Bytes n = FromHex(nHex);
  return new TRsaPublicCipher(op, n.data(), static_cast<unsigned>(n.size()), kE.data(),
                              static_cast<unsigned>(kE.size()));
}

// Recovers kSignedMessage from signedHex under the key nHex with the 1st,
// 2nd, ... allocation failing until it succeeds; every failing run must
// return 0, leave the buffer and leak nothing. Returns the failing runs.
int CountRecoveryAllocationFailures(const char* nHex, const char* signedHex) {
  std::unique_ptr<TRsaPublicCipher> cipher(NewCipher(TCipher::eDecrypt, nHex));
  int failures = 0;
  for (long fail = 1; fail < 20; ++fail) {
    Bytes buf = FromHex(signedHex);
    const Bytes before = buf;
    const long live = Stats().live;
    FailNthAllocation(fail);
    const unsigned n = cipher->DecryptData(buf.data(), static_cast<unsigned>(buf.size()), true);
    StopFailing();
    EXPECT_EQ(Stats().live, live);
    if (n) {
      EXPECT_EQ(n, strlen(kSignedMessage));
      break;
    }
    ++failures;
    EXPECT_EQ(buf, before);
  }
  return failures;
}

// --- Construction ----------------------------------------------------------------

TEST_F(RsaTest, OneArgumentConstructorStartsWithoutAKeyAndEveryOperationReturnsZero) {
  TRsaPublicCipher cipher(TCipher::eEncrypt);
  EXPECT_EQ(cipher.GetModulusSize(), 0u);
  EXPECT_EQ(cipher.GetType(), TCipher::eRsaCipher);
  unsigned char buf[64];
  memset(buf, 0x5A, sizeof buf);
  EXPECT_EQ(cipher.EncryptData(buf, 0, true), 0u);
  EXPECT_EQ(cipher.EncryptData(buf, 5, true), 0u);
  EXPECT_EQ(cipher.DecryptData(buf, 0, true), 0u);
  EXPECT_EQ(cipher.DecryptData(buf, 8, true), 0u);
  EXPECT_EQ(cipher.ProcessData(buf, 5, true), 0u);
  for (unsigned char c : buf) EXPECT_EQ(c, 0x5A);
}

TEST_F(RsaTest, ConstructCopiesTheKeyAndReportsTheModulusSize) {
  Bytes n = FromHex(kN512);
  Bytes e = kE;
  TRsaPublicCipher cipher(TCipher::eDecrypt);
  ASSERT_TRUE(cipher.Construct(n.data(), static_cast<unsigned>(n.size()), e.data(),
                               static_cast<unsigned>(e.size())));
  EXPECT_EQ(cipher.GetModulusSize(), 64u);
  // The caller's arrays may change or go away afterwards.
  memset(n.data(), 0, n.size());
  memset(e.data(), 0, e.size());
  Bytes buf = FromHex(kSigned512);
  buf.resize(64);
  ASSERT_EQ(cipher.DecryptData(buf.data(), 64, true), strlen(kSignedMessage));
  EXPECT_EQ(memcmp(buf.data(), kSignedMessage, strlen(kSignedMessage)), 0);
}

TEST_F(RsaTest, ConstructTwiceFreesTheEarlierArrays) {
  const Bytes n512 = FromHex(kN512), n1024 = FromHex(kN1024);
  const long before = Stats().live;
  {
    TRsaPublicCipher cipher(TCipher::eEncrypt);
    ASSERT_TRUE(cipher.Construct(n512.data(), 64, kE.data(), 3));
    const long oneKey = Stats().live - before;
    EXPECT_EQ(oneKey, 2);
    ASSERT_TRUE(cipher.Construct(n1024.data(), 128, kE.data(), 3));
    EXPECT_EQ(Stats().live - before, oneKey);
    EXPECT_EQ(cipher.GetModulusSize(), 128u);
  }
  EXPECT_EQ(Stats().live, before);
}

TEST_F(RsaTest, ConstructRefusesNullPointersWithLengthsAndDropsTheOldKey) {
  const Bytes n = FromHex(kN512);
  TRsaPublicCipher cipher(TCipher::eEncrypt, n.data(), 64, kE.data(), 3);
  ASSERT_EQ(cipher.GetModulusSize(), 64u);
  EXPECT_FALSE(cipher.Construct(nullptr, 64, kE.data(), 3));
  EXPECT_EQ(cipher.GetModulusSize(), 0u);
  EXPECT_FALSE(cipher.Construct(n.data(), 64, nullptr, 3));
  EXPECT_EQ(cipher.GetModulusSize(), 0u);
  unsigned char buf[64] = {1, 2, 3};
  EXPECT_EQ(cipher.EncryptData(buf, 3, true), 0u);
}

TEST_F(RsaTest, ConstructFailsWhenEitherArrayCannotBeAllocatedAndLeaksNothing) {
  const Bytes n = FromHex(kN512);
  for (long fail = 1; fail <= 2; ++fail) {
    const long before = Stats().live;
    {
      TRsaPublicCipher cipher(TCipher::eEncrypt);
      FailNthAllocation(fail);
      EXPECT_FALSE(cipher.Construct(n.data(), 64, kE.data(), 3));
      StopFailing();
      EXPECT_EQ(cipher.GetModulusSize(), 0u);
      unsigned char buf[64] = {9};
      EXPECT_EQ(cipher.EncryptData(buf, 1, true), 0u);
    }
    EXPECT_EQ(Stats().live, before);
  }
  // The five-argument constructor then leaves the object without a key.
  FailNthAllocation(1);
  TRsaPublicCipher cipher(TCipher::eEncrypt, n.data(), 64, kE.data(), 3);
  StopFailing();
  EXPECT_EQ(cipher.GetModulusSize(), 0u);
}

TEST_F(RsaTest, BerDumpIsNotSupported) {
  std::unique_ptr<TRsaPublicCipher> cipher(NewCipher(TCipher::eEncrypt, kN512));
  unsigned char out[512];
  EXPECT_EQ(cipher->BerDump(out, sizeof out), 0u);
}

// --- SubjectPublicKeyInfo ----------------------------------------------------------

TEST_F(RsaTest, BerInitLoadsASubjectPublicKeyInfoAndReturnsItsSize) {
  const Bytes n = FromHex(kN1024);
  Bytes blob = Spki(n, kE);
  TRsaPublicCipher cipher(TCipher::eDecrypt);
  EXPECT_EQ(cipher.BerInit(blob.data(), static_cast<unsigned>(blob.size())), blob.size());
  EXPECT_EQ(cipher.GetModulusSize(), 128u);  // the sign byte dropped
  Bytes buf = FromHex(kSigned1024);
  ASSERT_EQ(cipher.DecryptData(buf.data(), 128, true), strlen(kSignedMessage));
  EXPECT_EQ(memcmp(buf.data(), kSignedMessage, strlen(kSignedMessage)), 0);
}

TEST_F(RsaTest, BerInitAcceptsAnyAlgorithmIdentifierAndReturnsTheWholeSize) {
  const Bytes n = FromHex(kN512);
  const Bytes otherAlgorithm = Tlv(0x30, Tlv(0x06, {0x2B, 0x06, 0x01}));
  const Bytes emptyAlgorithm = Tlv(0x30, {});
  for (const Bytes& algorithm : {otherAlgorithm, emptyAlgorithm}) {
    Bytes blob = Spki(n, kE, algorithm);
    const size_t used = blob.size();
    blob.resize(used + 7, 0xEE);  // trailing bytes are neither read nor counted out
    TRsaPublicCipher cipher(TCipher::eDecrypt);
    EXPECT_EQ(cipher.BerInit(blob.data(), static_cast<unsigned>(blob.size())), blob.size());
    EXPECT_EQ(cipher.GetModulusSize(), 64u);
  }
}

TEST_F(RsaTest, BerInitDoesNotExamineTheUnusedBitsCountOfTheBitString) {
  const Bytes n = FromHex(kN512);
  Bytes blob = Spki(n, kE);
  const size_t unusedBitsAt = 2 + kRsaAlgorithm.size() + 2;
  ASSERT_EQ(blob[unusedBitsAt - 2], 0x03);
  ASSERT_EQ(blob[unusedBitsAt], 0x00);
  blob[unusedBitsAt] = 0xA7;  // not a valid count, yet ignored
  TRsaPublicCipher cipher(TCipher::eDecrypt);
  ASSERT_EQ(cipher.BerInit(blob.data(), static_cast<unsigned>(blob.size())), blob.size());
  Bytes buf = FromHex(kSigned512);
  EXPECT_EQ(cipher.DecryptData(buf.data(), 64, true), strlen(kSignedMessage));
}

TEST_F(RsaTest, BerInitRefusesEveryWrongTagInTurn) {
  const Bytes n = FromHex(kN512);
  const Bytes good = Spki(n, kE);
  // Offsets of the six tags checked: the outer SEQUENCE, the algorithm's
  // SEQUENCE, the BIT STRING, the key SEQUENCE, the two INTEGERs.
  const size_t algorithmAt = 2;
  const size_t bitsAt = algorithmAt + kRsaAlgorithm.size();
  const size_t keyAt = bitsAt + 2 + 1;  // BIT STRING header, unused-bits byte
  const size_t modulusAt = keyAt + 2;
  const size_t exponentAt = modulusAt + 2 + 65;
  ASSERT_EQ(good[0], 0x30);
  ASSERT_EQ(good[algorithmAt], 0x30);
  ASSERT_EQ(good[bitsAt], 0x03);
  ASSERT_EQ(good[keyAt], 0x30);
  ASSERT_EQ(good[modulusAt], 0x02);
  ASSERT_EQ(good[exponentAt], 0x02);
  for (size_t at : {size_t{0}, algorithmAt, bitsAt, keyAt, modulusAt, exponentAt}) {
    Bytes blob = good;
    blob[at] ^= 0x20;
    TRsaPublicCipher cipher(TCipher::eEncrypt);
    EXPECT_EQ(cipher.BerInit(blob.data(), static_cast<unsigned>(blob.size())), 0u) << at;
    EXPECT_EQ(cipher.GetModulusSize(), 0u);
  }
}

TEST_F(RsaTest, BerInitRefusesEveryTruncationWithoutReadingBeyondTheBlob) {
  const Bytes n = FromHex(kN1024);
  const Bytes good = Spki(n, kE);
  for (size_t len = 0; len < good.size(); ++len) {
    // An exactly sized heap copy, so that a read past its end is caught by
    // the address sanitizer.
    std::unique_ptr<unsigned char[]> copy(new unsigned char[len ? len : 1]);
    memcpy(copy.get(), good.data(), len);
    TRsaPublicCipher cipher(TCipher::eEncrypt);
    EXPECT_EQ(cipher.BerInit(copy.get(), static_cast<unsigned>(len)), 0u) << len;
  }
  TRsaPublicCipher cipher(TCipher::eEncrypt);
  EXPECT_EQ(cipher.BerInit(nullptr, 100), 0u);
}

TEST_F(RsaTest, BerInitRefusesIndefiniteLengthsAndAnEmptyModulus) {
  const Bytes n = FromHex(kN512);
  Bytes indefinite = Spki(n, kE);
  indefinite[1] = 0x80;  // the outer SEQUENCE's length byte: indefinite
  TRsaPublicCipher cipher(TCipher::eEncrypt);
  EXPECT_EQ(cipher.BerInit(indefinite.data(), static_cast<unsigned>(indefinite.size())), 0u);
  const Bytes indefiniteAlgorithm = {0x30, 0x80, 0x05, 0x00, 0x00, 0x00};
  const Bytes withIt = Spki(n, kE, indefiniteAlgorithm);
  EXPECT_EQ(cipher.BerInit(withIt.data(), static_cast<unsigned>(withIt.size())), 0u);
  const Bytes emptyModulus =
      Tlv(0x30, Cat({kRsaAlgorithm,
                     Tlv(0x03, Cat({Bytes{0x00}, Tlv(0x30, Cat({Tlv(0x02, {}), DerInteger(kE)}))}))}));
  EXPECT_EQ(cipher.BerInit(emptyModulus.data(), static_cast<unsigned>(emptyModulus.size())), 0u);
  EXPECT_EQ(cipher.GetModulusSize(), 0u);
}

TEST_F(RsaTest, BerInitAlwaysDropsTheModulusFirstByte) {
  // A modulus whose top bit is clear has no sign byte in DER; its first real
  // byte is dropped all the same.
  const Bytes n = {0x7F, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88, 0x99, 0xAA, 0xBB, 0xCD};
  const Bytes blob = Spki(n, kE);
  TRsaPublicCipher cipher(TCipher::eEncrypt);
  EXPECT_EQ(cipher.BerInit(blob.data(), static_cast<unsigned>(blob.size())), blob.size());
  EXPECT_EQ(cipher.GetModulusSize(), n.size() - 1);
}

TEST_F(RsaTest, BerInitGivesTheNextElementTheRoomOfThePreviousHeaderToo) {
  // The key SEQUENCE declares two bytes less than its two INTEGERs take: the
  // exponent still fits the room computed without the modulus header, so it
  // is read whole; the BIT STRING around it holds the bytes.
  const Bytes n = FromHex(kN512);
  const Bytes integers = Cat({DerInteger(n), DerInteger(kE)});
  Bytes key = Tlv(0x30, integers);
  key[1] = static_cast<unsigned char>(key[1] - 2);
  const Bytes blob = Tlv(0x30, Cat({kRsaAlgorithm, Tlv(0x03, Cat({Bytes{0x00}, key}))}));
  TRsaPublicCipher cipher(TCipher::eDecrypt);
  ASSERT_EQ(cipher.BerInit(blob.data(), static_cast<unsigned>(blob.size())), blob.size());
  Bytes buf = FromHex(kSigned512);
  EXPECT_EQ(cipher.DecryptData(buf.data(), 64, true), strlen(kSignedMessage));
  // Three bytes less and the exponent no longer fits.
  key[1] = static_cast<unsigned char>(key[1] - 1);
  const Bytes tooShort = Tlv(0x30, Cat({kRsaAlgorithm, Tlv(0x03, Cat({Bytes{0x00}, key}))}));
  EXPECT_EQ(cipher.BerInit(tooShort.data(), static_cast<unsigned>(tooShort.size())), 0u);
}

TEST_F(RsaTest, BerInitNeverLetsThatRoomReachPastTheBlob) {
  // The same short key SEQUENCE as the outermost bytes: the extra room would
  // end two bytes past the blob, where the exponent's last bytes would be.
  const Bytes n = FromHex(kN512);
  const Bytes integers = Cat({DerInteger(n), DerInteger(kE)});
  Bytes key = Tlv(0x30, integers);
  key[1] = static_cast<unsigned char>(key[1] - 2);
  Bytes bits = Tlv(0x03, Cat({Bytes{0x00}, key}));
  Bytes blob = Tlv(0x30, Cat({kRsaAlgorithm, bits}));
  blob.resize(blob.size() - 2);  // the exponent's last two bytes are gone
  // Declared lengths still claim them: shorten the outer ones to the blob.
  blob[1] = static_cast<unsigned char>(blob[1] - 2);
  blob[2 + kRsaAlgorithm.size() + 1] = static_cast<unsigned char>(blob[2 + kRsaAlgorithm.size() + 1] - 2);
  std::unique_ptr<unsigned char[]> copy(new unsigned char[blob.size()]);
  memcpy(copy.get(), blob.data(), blob.size());
  TRsaPublicCipher cipher(TCipher::eEncrypt);
  EXPECT_EQ(cipher.BerInit(copy.get(), static_cast<unsigned>(blob.size())), 0u);
}

TEST_F(RsaTest, BerInitFailsWhenTheKeyCannotBeStored) {
  const Bytes blob = Spki(FromHex(kN512), kE);
  const long before = Stats().live;
  {
    TRsaPublicCipher cipher(TCipher::eEncrypt);
    FailNthAllocation(1);
    EXPECT_EQ(cipher.BerInit(blob.data(), static_cast<unsigned>(blob.size())), 0u);
    StopFailing();
    EXPECT_EQ(cipher.GetModulusSize(), 0u);
  }
  EXPECT_EQ(Stats().live, before);
}

// --- Encryption --------------------------------------------------------------------

TEST_F(RsaTest, WithA64ByteModulusEncryptionAccepts53BytesAndRefuses54) {
  std::unique_ptr<TRsaPublicCipher> cipher(NewCipher(TCipher::eEncrypt, kN512));
  Bytes buf(64, 0x42);
  EXPECT_EQ(cipher->EncryptData(buf.data(), 54, true), 0u);
  for (unsigned char c : buf) EXPECT_EQ(c, 0x42);
  const unsigned written = cipher->EncryptData(buf.data(), 53, true);
  EXPECT_GT(written, 0u);
  EXPECT_LE(written, 64u);
  EXPECT_EQ(written % 4, 0u);
}

TEST_F(RsaTest, EncryptionWithoutFinalOrWithAHugeLengthReturnsZeroAndLeavesTheBuffer) {
  std::unique_ptr<TRsaPublicCipher> cipher(NewCipher(TCipher::eEncrypt, kN512));
  Bytes buf(64, 0x42);
  EXPECT_EQ(cipher->EncryptData(buf.data(), 10, false), 0u);
  EXPECT_EQ(cipher->EncryptData(buf.data(), 0xFFFFFFFFu, true), 0u);
  EXPECT_EQ(cipher->EncryptData(buf.data(), 0xFFFFFFF6u, true), 0u);  // len + 11 wraps to 1
  EXPECT_EQ(cipher->EncryptData(nullptr, 10, true), 0u);
  for (unsigned char c : buf) EXPECT_EQ(c, 0x42);
}

TEST_F(RsaTest, EncryptionBuildsATypeTwoBlockFromTheSharedGeneratorSkippingZeros) {
  // The padding comes byte by byte from the shared generator, a zero byte being
  // drawn again: a fresh, unseeded generator of the same kind gives the bytes.
  std::unique_ptr<TRsaPublicCipher> cipher(NewCipher(TCipher::eEncrypt, kN1024));
  for (unsigned len : {0u, 1u, 17u, 117u}) {
    Bytes buf(128);
    for (unsigned i = 0; i < len; ++i) buf[i] = static_cast<unsigned char>(i * 7 + 1);
    const Bytes message(buf.begin(), buf.begin() + len);
    const unsigned written = cipher->EncryptData(buf.data(), len, true);
    ASSERT_GT(written, 0u) << len;
    const Bytes block = PrivateOp(Bytes(buf.begin(), buf.begin() + written), kN1024, kD1024);
    ASSERT_EQ(block.size(), 128u);
    EXPECT_EQ(block[0], 0x00);
    EXPECT_EQ(block[1], 0x02);
    for (unsigned i = 2; i < 128 - len - 1; ++i) EXPECT_NE(block[i], 0x00) << i;
    EXPECT_EQ(block[128 - len - 1], 0x00);
    EXPECT_EQ(Bytes(block.end() - len, block.end()), message);
  }
  // The same sequence from a fresh generator: restart the library. Several
  // blocks in a row, so that the stream consumed holds zero bytes to skip.
  OvraUninitialize();
  SAllocator a = ovra_test::CountingAllocator();
  ASSERT_TRUE(OvraInitialize(&a));
  TMd5Prng reference;
  int zerosSkipped = 0;
  for (int round = 0; round < 8; ++round) {
    Bytes buf(128, 0);
    const unsigned written = cipher->EncryptData(buf.data(), 20, true);
    ASSERT_GT(written, 0u);
    const Bytes block = PrivateOp(Bytes(buf.begin(), buf.begin() + written), kN1024, kD1024);
    for (unsigned i = 2; i < 128 - 20 - 1; ++i) {
      unsigned char b = 0;
      for (reference.Generate(&b, 1); b == 0; reference.Generate(&b, 1)) ++zerosSkipped;
      ASSERT_EQ(block[i], b) << "round " << round << " byte " << i;
    }
  }
  EXPECT_GT(zerosSkipped, 0);
}

TEST_F(RsaTest, EncryptionReturnsZeroWhenTheGeneratorWritesNothing) {
  // Outside the library's start-up the shared generator writes nothing; the
  // padding can then not be made, and encryption fails instead of spinning.
  std::unique_ptr<TRsaPublicCipher> cipher(NewCipher(TCipher::eEncrypt, kN512));
  OvraUninitialize();
  Bytes buf(64, 0x42);
  EXPECT_EQ(cipher->EncryptData(buf.data(), 10, true), 0u);
  for (unsigned char c : buf) EXPECT_EQ(c, 0x42);
  SAllocator a = ovra_test::CountingAllocator();
  ASSERT_TRUE(OvraInitialize(&a));
}

TEST_F(RsaTest, EncryptionWithAZeroModulusReturnsZero) {
  const Bytes zero(64, 0);
  TRsaPublicCipher cipher(TCipher::eEncrypt, zero.data(), 64, kE.data(), 3);
  Bytes buf(64, 0x42);
  EXPECT_EQ(cipher.EncryptData(buf.data(), 10, true), 0u);
  for (unsigned char c : buf) EXPECT_EQ(c, 0x42);
}

TEST_F(RsaTest, EncryptionAllocationFailuresReturnZeroLeaveTheBufferAndLeakNothing) {
  // 384-byte modulus (a heap work block) made from the 1024-bit key padded
  // with leading zero bytes, and the 64-byte one (a stack work block).
  Bytes big(384 - 128, 0);
  const Bytes n1024 = FromHex(kN1024);
  big.insert(big.end(), n1024.begin(), n1024.end());
  const Bytes small = FromHex(kN512);
  for (const Bytes* n : std::vector<const Bytes*>{&big, &small}) {
    TRsaPublicCipher cipher(TCipher::eEncrypt, n->data(), static_cast<unsigned>(n->size()),
                            kE.data(), 3);
    ASSERT_EQ(cipher.GetModulusSize(), n->size());
    int failures = 0;
    for (long fail = 1; fail < 20; ++fail) {
      Bytes buf(n->size(), 0x42);
      const long before = Stats().live;
      FailNthAllocation(fail);
      const unsigned written = cipher.EncryptData(buf.data(), 10, true);
      StopFailing();
      EXPECT_EQ(Stats().live, before);
      if (written) break;
      ++failures;
      for (unsigned char c : buf) EXPECT_EQ(c, 0x42);
    }
    // The work block (heap only), modulus, exponent, message, result, scratch.
    EXPECT_EQ(failures, n == &big ? 6 : 5);
  }
}

// --- Recovery ----------------------------------------------------------------------

TEST_F(RsaTest, RecoveryOfFixedSignedBlocksGivesTheMessage) {
  for (const auto& key : {std::make_pair(kN512, kSigned512), std::make_pair(kN1024, kSigned1024),
                          std::make_pair(kN2112, kSigned2112)}) {
    std::unique_ptr<TRsaPublicCipher> cipher(NewCipher(TCipher::eDecrypt, key.first));
    Bytes buf = FromHex(key.second);
    ASSERT_EQ(cipher->ProcessData(buf.data(), static_cast<unsigned>(buf.size()), true),
              strlen(kSignedMessage));
    EXPECT_EQ(memcmp(buf.data(), kSignedMessage, strlen(kSignedMessage)), 0);
  }
}

TEST_F(RsaTest, ModuliAbove256BytesUseAHeapWorkBlockAndBehaveTheSame) {
  std::unique_ptr<TRsaPublicCipher> dec(NewCipher(TCipher::eDecrypt, kN2112));
  std::unique_ptr<TRsaPublicCipher> enc(NewCipher(TCipher::eEncrypt, kN2112));
  ASSERT_EQ(dec->GetModulusSize(), 264u);
  // Recovery of a block signed with the private key.
  Bytes buf = FromHex(kSigned2112);
  ASSERT_EQ(buf.size(), 264u);
  long requests = Stats().requests;
  ASSERT_EQ(dec->DecryptData(buf.data(), 264, true), strlen(kSignedMessage));
  EXPECT_EQ(memcmp(buf.data(), kSignedMessage, strlen(kSignedMessage)), 0);
  // Modulus, exponent, ciphertext, result, scratch, and the work block.
  EXPECT_EQ(Stats().requests - requests, 6);
  // Encryption of the longest message, checked with the private exponent.
  Bytes message(264 - 11);
  for (size_t i = 0; i < message.size(); ++i) message[i] = static_cast<unsigned char>(i * 5 + 3);
  buf = message;
  buf.resize(264);
  requests = Stats().requests;
  const unsigned written = enc->EncryptData(buf.data(), 264 - 11, true);
  EXPECT_EQ(Stats().requests - requests, 6);
  ASSERT_GT(written, 0u);
  ASSERT_LE(written, 264u);
  const Bytes block = PrivateOp(Bytes(buf.begin(), buf.begin() + written), kN2112, kD2112);
  EXPECT_EQ(block[0], 0x00);
  EXPECT_EQ(block[1], 0x02);
  for (unsigned i = 2; i < 10; ++i) EXPECT_NE(block[i], 0x00) << i;
  EXPECT_EQ(block[10], 0x00);
  EXPECT_EQ(Bytes(block.begin() + 11, block.end()), message);
  // A type 1 block with no FF bytes, and a type 2 block, as on the stack.
  Bytes bare(264, 0x5C);
  bare[0] = 0x00;
  bare[1] = 0x01;
  bare[2] = 0x00;
  buf = PrivateOp(bare, kN2112, kD2112);
  ASSERT_EQ(dec->DecryptData(buf.data(), 264, true), 261u);
  EXPECT_EQ(Bytes(buf.begin(), buf.begin() + 261), Bytes(261, 0x5C));
  buf = Bytes(264, 0);
  ASSERT_GT(enc->EncryptData(buf.data(), 4, true), 0u);
  const Bytes before = buf;
  EXPECT_EQ(dec->DecryptData(buf.data(), 264, true), 0u);
  EXPECT_EQ(buf, before);
}

TEST_F(RsaTest, HeapWorkBlockAllocationFailuresReturnZeroLeaveTheBufferAndLeakNothing) {
  // The work block, then as on the stack.
  EXPECT_EQ(CountRecoveryAllocationFailures(kN2112, kSigned2112), 6);
}

TEST_F(RsaTest, ATypeOneBlockWithoutFfBytesDecryptsToTheMessage) {
  Bytes block(128, 0);
  block[1] = 0x01;
  block[2] = 0x00;
  for (size_t i = 3; i < 128; ++i) block[i] = static_cast<unsigned char>(i);  // 125 bytes
  std::unique_ptr<TRsaPublicCipher> cipher(NewCipher(TCipher::eDecrypt, kN1024));
  Bytes buf = PrivateOp(block, kN1024, kD1024);
  ASSERT_EQ(cipher->DecryptData(buf.data(), 128, true), 125u);
  EXPECT_EQ(Bytes(buf.begin(), buf.begin() + 125), Bytes(block.begin() + 3, block.end()));
  // And the shortest case: the separator right after 00 01 FF..FF at k - 1.
  Bytes full(128, 0xFF);
  full[0] = 0x00;
  full[1] = 0x01;
  full[127] = 0x00;
  buf = PrivateOp(full, kN1024, kD1024);
  EXPECT_EQ(cipher->DecryptData(buf.data(), 128, true), 0u);
}

TEST_F(RsaTest, ATypeTwoCiphertextFailsRecoveryAndLeavesTheBuffer) {
  std::unique_ptr<TRsaPublicCipher> enc(NewCipher(TCipher::eEncrypt, kN1024));
  std::unique_ptr<TRsaPublicCipher> dec(NewCipher(TCipher::eDecrypt, kN1024));
  Bytes buf(128, 0);
  memcpy(buf.data(), "type two", 8);
  const unsigned written = enc->EncryptData(buf.data(), 8, true);
  ASSERT_GT(written, 0u);
  const Bytes before = buf;
  EXPECT_EQ(dec->DecryptData(buf.data(), written, true), 0u);
  EXPECT_EQ(buf, before);
}

TEST_F(RsaTest, RecoveryRefusesBadBlockTypesAndAMissingSeparator) {
  std::unique_ptr<TRsaPublicCipher> cipher(NewCipher(TCipher::eDecrypt, kN1024));
  const Bytes message = {1, 2, 3};
  Bytes noSeparator(128, 0xFF);
  noSeparator[0] = 0x00;
  noSeparator[1] = 0x01;
  Bytes badFirst = Type1Block(128, message);
  badFirst[0] = 0x01;  // still below the modulus, whose top byte is D3
  Bytes badType = Type1Block(128, message);
  badType[1] = 0x02;
  Bytes badPad = Type1Block(128, message);
  badPad[50] = 0xFE;  // the walk stops at a byte that is neither FF nor 00
  for (const Bytes* block : {&noSeparator, &badFirst, &badType, &badPad}) {
    Bytes buf = PrivateOp(*block, kN1024, kD1024);
    const Bytes before = buf;
    EXPECT_EQ(cipher->DecryptData(buf.data(), 128, true), 0u);
    EXPECT_EQ(buf, before);
  }
  Bytes good = PrivateOp(Type1Block(128, message), kN1024, kD1024);
  EXPECT_EQ(cipher->DecryptData(good.data(), 128, true), 3u);
}

TEST_F(RsaTest, RecoveryFailsWhenTheResultDumpsNothingOrTooFewBytes) {
  std::unique_ptr<TRsaPublicCipher> cipher(NewCipher(TCipher::eDecrypt, kN1024));
  // 0^e is zero, which Dump writes as no bytes at all.
  Bytes zero(128, 0);
  EXPECT_EQ(cipher->DecryptData(zero.data(), 128, true), 0u);
  EXPECT_EQ(zero, Bytes(128, 0));
  // 1^e is one word, 00 00 00 01: its first two bytes are no type 1 header.
  Bytes one(128, 0);
  one[127] = 1;
  const Bytes before = one;
  EXPECT_EQ(cipher->DecryptData(one.data(), 128, true), 0u);
  EXPECT_EQ(one, before);
  // An empty ciphertext is zero too.
  EXPECT_EQ(cipher->DecryptData(one.data(), 0, true), 0u);
  EXPECT_EQ(one, before);
}

TEST_F(RsaTest, RecoveryWithoutFinalOrWithTooLongACiphertextReturnsZero) {
  std::unique_ptr<TRsaPublicCipher> cipher(NewCipher(TCipher::eDecrypt, kN512));
  Bytes buf = FromHex(kSigned512);
  buf.resize(80, 0);
  const Bytes before = buf;
  EXPECT_EQ(cipher->DecryptData(buf.data(), 64, false), 0u);
  EXPECT_EQ(cipher->DecryptData(buf.data(), 65, true), 0u);
  EXPECT_EQ(cipher->DecryptData(nullptr, 64, true), 0u);
  EXPECT_EQ(buf, before);
}

TEST_F(RsaTest, RecoveryAcceptsACiphertextShorterThanTheModulus) {
  // The block is read as a big-endian number: leading zero bytes may be left out.
  std::unique_ptr<TRsaPublicCipher> cipher(NewCipher(TCipher::eDecrypt, kN1024));
  Bytes buf = PrivateOp(Type1Block(128, {7, 7, 7}), kN1024, kD1024);
  size_t zeros = 0;
  while (buf[zeros] == 0) ++zeros;
  Bytes trimmed(buf.begin() + zeros, buf.end());
  trimmed.resize(128);
  EXPECT_EQ(cipher->DecryptData(trimmed.data(), static_cast<unsigned>(128 - zeros), true), 3u);
}

TEST_F(RsaTest, RecoveryAllocationFailuresReturnZeroLeaveTheBufferAndLeakNothing) {
  // Modulus, exponent, ciphertext, result, scratch.
  EXPECT_EQ(CountRecoveryAllocationFailures(kN1024, kSigned1024), 5);
}

TEST_F(RsaTest, ProcessDataDecryptsForAnyNonZeroOperation) {
  const Bytes n = FromHex(kN512);
  TRsaPublicCipher odd(static_cast<TCipher::ECipherOp>(7), n.data(), 64, kE.data(), 3);
  Bytes buf = FromHex(kSigned512);
  EXPECT_EQ(odd.ProcessData(buf.data(), 64, true), strlen(kSignedMessage));
  TRsaPublicCipher dec(TCipher::eDecrypt, n.data(), 64, kE.data(), 3);
  TCrypter crypter(dec);
  const Bytes in = FromHex(kSigned512);
  Bytes out(64);
  EXPECT_EQ(crypter.CryptData(in.data(), 64, out.data(), true), strlen(kSignedMessage));
  EXPECT_EQ(memcmp(out.data(), kSignedMessage, strlen(kSignedMessage)), 0);
}

TEST_F(RsaTest, ProcessDataEncryptsForTheEncryptOperation) {
  std::unique_ptr<TRsaPublicCipher> cipher(NewCipher(TCipher::eEncrypt, kN512));
  Bytes buf(64, 0);
  memcpy(buf.data(), "abc", 3);
  const unsigned written = cipher->ProcessData(buf.data(), 3, true);
  ASSERT_GT(written, 0u);
  const Bytes block = PrivateOp(Bytes(buf.begin(), buf.begin() + written), kN512, kD512);
  EXPECT_EQ(block[1], 0x02);
  EXPECT_EQ(memcmp(block.data() + 61, "abc", 3), 0);
}

// --- Against OpenSSL ---------------------------------------------------------------

#ifdef OVRA_HAVE_OPENSSL
struct PkeyFree {
  void operator()(EVP_PKEY* p) const { EVP_PKEY_free(p); }
};
using Pkey = std::unique_ptr<EVP_PKEY, PkeyFree>;
struct CtxFree {
  void operator()(EVP_PKEY_CTX* c) const { EVP_PKEY_CTX_free(c); }
};
using PkeyCtx = std::unique_ptr<EVP_PKEY_CTX, CtxFree>;

Pkey Generate(unsigned bits) {
  PkeyCtx ctx(EVP_PKEY_CTX_new_id(EVP_PKEY_RSA, nullptr));
  EVP_PKEY* key = nullptr;
  if (!ctx || EVP_PKEY_keygen_init(ctx.get()) <= 0 ||
      EVP_PKEY_CTX_set_rsa_keygen_bits(ctx.get(), static_cast<int>(bits)) <= 0 ||
      EVP_PKEY_keygen(ctx.get(), &key) <= 0) {
    return Pkey();
  }
  return Pkey(key);
}

Bytes BnParam(const EVP_PKEY* key, const char* name) {
  BIGNUM* bn = nullptr;
  if (EVP_PKEY_get_bn_param(key, name, &bn) != 1) return Bytes();
  Bytes out(static_cast<size_t>(BN_num_bytes(bn)));
  BN_bn2bin(bn, out.data());
  BN_free(bn);
  return out;
}

Bytes PublicKeyInfo(EVP_PKEY* key) {
  const int n = i2d_PUBKEY(key, nullptr);
  Bytes out(static_cast<size_t>(n > 0 ? n : 0));
  unsigned char* p = out.data();
  i2d_PUBKEY(key, &p);
  return out;
}

// Decrypts with the private key and the given padding; empty on failure.
Bytes PrivateDecrypt(EVP_PKEY* key, const Bytes& in, int padding) {
  PkeyCtx ctx(EVP_PKEY_CTX_new(key, nullptr));
  size_t outLen = 0;
  if (!ctx || EVP_PKEY_decrypt_init(ctx.get()) <= 0 ||
      EVP_PKEY_CTX_set_rsa_padding(ctx.get(), padding) <= 0 ||
      EVP_PKEY_decrypt(ctx.get(), nullptr, &outLen, in.data(), in.size()) <= 0) {
    return Bytes();
  }
  Bytes out(outLen);
  if (EVP_PKEY_decrypt(ctx.get(), out.data(), &outLen, in.data(), in.size()) <= 0) return Bytes();
  out.resize(outLen);
  return out;
}

// Signs data directly (no digest) with PKCS #1 v1.5 type 1 padding.
Bytes SignType1(EVP_PKEY* key, const Bytes& data) {
  PkeyCtx ctx(EVP_PKEY_CTX_new(key, nullptr));
  size_t outLen = 0;
  if (!ctx || EVP_PKEY_sign_init(ctx.get()) <= 0 ||
      EVP_PKEY_CTX_set_rsa_padding(ctx.get(), RSA_PKCS1_PADDING) <= 0 ||
      EVP_PKEY_sign(ctx.get(), nullptr, &outLen, data.data(), data.size()) <= 0) {
    return Bytes();
  }
  Bytes out(outLen);
  if (EVP_PKEY_sign(ctx.get(), out.data(), &outLen, data.data(), data.size()) <= 0) return Bytes();
  out.resize(outLen);
  return out;
}

class RsaOpenSslTest : public RsaTest {
 protected:
  static void SetUpTestSuite() {
    for (unsigned bits : {1024u, 2048u, 3072u}) s_keys.push_back(Generate(bits));
  }
  static void TearDownTestSuite() { s_keys.clear(); }
  static std::vector<Pkey> s_keys;
};
std::vector<Pkey> RsaOpenSslTest::s_keys;

TEST_F(RsaOpenSslTest, DataEncryptedByTheLibraryDecryptsWithTheOpenSslPrivateKey) {
  std::mt19937 rng(31);
  for (const Pkey& key : s_keys) {
    ASSERT_TRUE(key);
    const Bytes blob = PublicKeyInfo(key.get());
    TRsaPublicCipher cipher(TCipher::eEncrypt);
    ASSERT_EQ(cipher.BerInit(blob.data(), static_cast<unsigned>(blob.size())), blob.size());
    const unsigned k = cipher.GetModulusSize();
    ASSERT_EQ(BnParam(key.get(), OSSL_PKEY_PARAM_RSA_N).size(), k);
    for (unsigned len : {0u, 1u, 16u, 100u, k - 11}) {
      const Bytes message = RandomBytes(rng, len);
      Bytes buf(message);
      buf.resize(k);
      const unsigned written = cipher.EncryptData(buf.data(), len, true);
      ASSERT_GT(written, 0u);
      ASSERT_EQ(written % 4, 0u);
      // Dump leaves out a zero top word: put the ciphertext back to k bytes.
      Bytes ciphertext(k - written, 0);
      ciphertext.insert(ciphertext.end(), buf.begin(), buf.begin() + written);
      EXPECT_EQ(PrivateDecrypt(key.get(), ciphertext, RSA_PKCS1_PADDING), message) << k << " " << len;
    }
  }
}

TEST_F(RsaOpenSslTest, BlocksSignedWithTheOpenSslPrivateKeyAreRecovered) {
  std::mt19937 rng(32);
  for (const Pkey& key : s_keys) {
    const Bytes n = BnParam(key.get(), OSSL_PKEY_PARAM_RSA_N);
    const Bytes e = BnParam(key.get(), OSSL_PKEY_PARAM_RSA_E);
    TRsaPublicCipher cipher(TCipher::eDecrypt, n.data(), static_cast<unsigned>(n.size()), e.data(),
                            static_cast<unsigned>(e.size()));
    const unsigned k = cipher.GetModulusSize();
    for (unsigned len : {0u, 1u, 20u, 35u, k - 11}) {
      const Bytes message = RandomBytes(rng, len);
      Bytes buf = SignType1(key.get(), message);
      ASSERT_EQ(buf.size(), k);
      ASSERT_EQ(cipher.DecryptData(buf.data(), k, true), len);
      EXPECT_EQ(Bytes(buf.begin(), buf.begin() + len), message);
    }
  }
}

TEST_F(RsaOpenSslTest, EncryptedBlocksHaveTheTypeTwoLayout) {
  for (const Pkey& key : s_keys) {
    const Bytes n = BnParam(key.get(), OSSL_PKEY_PARAM_RSA_N);
    const Bytes e = BnParam(key.get(), OSSL_PKEY_PARAM_RSA_E);
    TRsaPublicCipher cipher(TCipher::eEncrypt, n.data(), static_cast<unsigned>(n.size()), e.data(),
                            static_cast<unsigned>(e.size()));
    const size_t k = n.size();
    Bytes buf(k, 0);
    memcpy(buf.data(), "layout", 6);
    const unsigned written = cipher.EncryptData(buf.data(), 6, true);
    Bytes ciphertext(k - written, 0);
    ciphertext.insert(ciphertext.end(), buf.begin(), buf.begin() + written);
    const Bytes block = PrivateDecrypt(key.get(), ciphertext, RSA_NO_PADDING);
    ASSERT_EQ(block.size(), k);
    EXPECT_EQ(block[0], 0x00);
    EXPECT_EQ(block[1], 0x02);
    for (size_t i = 2; i < k - 7; ++i) EXPECT_NE(block[i], 0x00);
    EXPECT_EQ(block[k - 7], 0x00);
    EXPECT_EQ(memcmp(block.data() + k - 6, "layout", 6), 0);
  }
}

TEST_F(RsaOpenSslTest, ATypeTwoCiphertextFromOpenSslFailsRecovery) {
  const Pkey& key = s_keys[1];
  const Bytes n = BnParam(key.get(), OSSL_PKEY_PARAM_RSA_N);
  const Bytes e = BnParam(key.get(), OSSL_PKEY_PARAM_RSA_E);
  PkeyCtx ctx(EVP_PKEY_CTX_new(key.get(), nullptr));
  ASSERT_GT(EVP_PKEY_encrypt_init(ctx.get()), 0);
  ASSERT_GT(EVP_PKEY_CTX_set_rsa_padding(ctx.get(), RSA_PKCS1_PADDING), 0);
  const Bytes message = {1, 2, 3, 4};
  Bytes out(n.size());
  size_t outLen = out.size();
  ASSERT_GT(EVP_PKEY_encrypt(ctx.get(), out.data(), &outLen, message.data(), message.size()), 0);
  TRsaPublicCipher cipher(TCipher::eDecrypt, n.data(), static_cast<unsigned>(n.size()), e.data(),
                          static_cast<unsigned>(e.size()));
  const Bytes before = out;
  EXPECT_EQ(cipher.DecryptData(out.data(), static_cast<unsigned>(outLen), true), 0u);
  EXPECT_EQ(out, before);
}

TEST_F(RsaOpenSslTest, RecoveryNeedsAModulusLengthThatIsAMultipleOfFour) {
  // A 1032-bit key has a 129-byte modulus: Dump writes whole words, so the
  // recovered block can never be laid out over k bytes.
  Pkey key = Generate(1032);
  ASSERT_TRUE(key);
  const Bytes n = BnParam(key.get(), OSSL_PKEY_PARAM_RSA_N);
  const Bytes e = BnParam(key.get(), OSSL_PKEY_PARAM_RSA_E);
  ASSERT_EQ(n.size(), 129u);
  TRsaPublicCipher cipher(TCipher::eDecrypt, n.data(), 129, e.data(), static_cast<unsigned>(e.size()));
  Bytes buf = SignType1(key.get(), {5, 6, 7});
  ASSERT_EQ(buf.size(), 129u);
  EXPECT_EQ(cipher.DecryptData(buf.data(), 129, true), 0u);
}
#endif  // OVRA_HAVE_OPENSSL

// --- Allocation failures ---------------------------------------------------
// Each operation runs with its 1st, 2nd, ... allocation failing, alone and
// with every later one (AllocSweep.h), until it goes through; every run must
// give the documented out-of-memory result and leak nothing. The N each sweep
// reaches is printed ("[ SWEEP    ]").

class AllocSweepRsa : public SweepTest {};

TEST_F(AllocSweepRsa, RsaKeyLoadingLeavesNoKeyAtEveryFailure) {
  const Bytes n = FromHex(kN512);
  SweepBothModes("TRsaPublicCipher::Construct", [&](SweepRun& run) {
    TRsaPublicCipher cipher(TCipher::eEncrypt);
    run.Arm();
    const bool ok = cipher.Construct(n.data(), 64, kE.data(), 3);
    EXPECT_EQ(ok, !run.Disarm());
    EXPECT_EQ(cipher.GetModulusSize(), ok ? 64u : 0u);
    unsigned char buf[64] = {'x'};
    EXPECT_EQ(cipher.EncryptData(buf, 1, true) != 0, ok);
  });
  const Bytes blob = Spki(n, kE);
  SweepBothModes("TRsaPublicCipher::BerInit", [&](SweepRun& run) {
    TRsaPublicCipher cipher(TCipher::eDecrypt);
    // A key held before is replaced whatever the outcome.
    ASSERT_TRUE(cipher.Construct(n.data(), 32, kE.data(), 3));
    run.Arm();
    const unsigned accepted = cipher.BerInit(blob.data(), static_cast<unsigned>(blob.size()));
    const bool failed = run.Disarm();
    EXPECT_EQ(accepted, failed ? 0u : blob.size());
    EXPECT_EQ(cipher.GetModulusSize(), failed ? 0u : 64u);
  });
}

// Encrypts and recovers with one key: each call gives 0 with the buffer
// unchanged while an allocation fails, and its full result otherwise.
void SweepRsa(const std::string& bits, const char* modulusHex, const char* signedHex) {
  const Bytes n = FromHex(modulusHex);
  const unsigned k = static_cast<unsigned>(n.size());
  SweepBothModes("TRsaPublicCipher::EncryptData (" + bits + ")", [&](SweepRun& run) {
    TRsaPublicCipher cipher(TCipher::eEncrypt, n.data(), k, kE.data(), 3);
    ASSERT_EQ(cipher.GetModulusSize(), k);
    Bytes buf(k, 0);
    memcpy(buf.data(), "secret", 6);
    const Bytes before = buf;
    run.Arm();
    const unsigned written = cipher.EncryptData(buf.data(), 6, true);
    const bool failed = run.Disarm();
    EXPECT_EQ(written, failed ? 0u : k) << "n=" << run.n();
    if (failed) {
      EXPECT_EQ(buf, before);
    }
  });
  const Bytes signedBlock = FromHex(signedHex);
  SweepBothModes("TRsaPublicCipher::DecryptData (" + bits + ")", [&](SweepRun& run) {
    TRsaPublicCipher cipher(TCipher::eDecrypt, n.data(), k, kE.data(), 3);
    Bytes buf = signedBlock;
    run.Arm();
    const unsigned count = cipher.DecryptData(buf.data(), k, true);
    const bool failed = run.Disarm();
    if (failed) {
      EXPECT_EQ(count, 0u) << "n=" << run.n();
      EXPECT_EQ(buf, signedBlock);
    } else {
      ASSERT_EQ(count, strlen(kSignedMessage));
      EXPECT_EQ(memcmp(buf.data(), kSignedMessage, count), 0);
    }
  });
}

TEST_F(AllocSweepRsa, RsaEncryptionAndRecoveryGiveZeroWithTheBufferUnchangedAtEveryFailure) {
  SweepRsa("512 bits", kN512, kSigned512);
  SweepRsa("2112 bits", kN2112, kSigned2112);
}

}  // namespace
