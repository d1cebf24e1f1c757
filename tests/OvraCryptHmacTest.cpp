// Tests of HMAC: the RFC 2104 and RFC 2202 vectors, long keys, the
// empty-message behaviour, reuse of one object, and random differential
// checks against OpenSSL's libcrypto.
#include <gtest/gtest.h>
#include <string.h>

#include <new>
#include <vector>

#include "DigestReference.h"
#include "OvraCryptHmac.h"

using namespace ovra_test;

namespace {

Bytes Mac(TMessageDigest& digest, const Bytes& key, const Bytes& message) {
  THmac hmac(digest, key.data(), static_cast<unsigned>(key.size()));
  hmac.Update(message.data(), static_cast<unsigned>(message.size()));
  Bytes out(digest.GetDigestSize());
  EXPECT_EQ(hmac.Finish(out.data(), static_cast<unsigned>(out.size())), out.size());
  return out;
}

std::string HexMac(TMessageDigest& digest, const Bytes& key, const Bytes& message) {
  return ToHex(Mac(digest, key, message));
}

// The definition, built from the digest alone:
// H((K ^ opad) || H((K ^ ipad) || message)), with K zero-padded to 64 bytes.
Bytes MacByDefinition(TMessageDigest& digest, Bytes key, const Bytes& message) {
  Bytes out(digest.GetDigestSize());
  if (key.size() > 64) {
    digest.Update(key.data(), static_cast<unsigned>(key.size()));
    digest.Finish(out.data(), 0);
    key = out;
  }
  key.resize(64, 0);
  Bytes ipad(64), opad(64);
  for (int i = 0; i < 64; ++i) {
    ipad[i] = key[i] ^ 0x36;
    opad[i] = key[i] ^ 0x5C;
  }
  digest.Update(ipad.data(), 64);
  digest.Update(message.data(), static_cast<unsigned>(message.size()));
  digest.Finish(out.data(), 0);
  digest.Update(opad.data(), 64);
  digest.Update(out.data(), static_cast<unsigned>(out.size()));
  digest.Finish(out.data(), 0);
  return out;
}

struct Rfc2202Case {
  Bytes key;
  Bytes data;
  const char* md5;
  const char* sha1;
};

std::vector<Rfc2202Case> Rfc2202Cases() {
  Bytes key25;
  for (unsigned char i = 1; i <= 25; ++i) key25.push_back(i);
  return {
      {Bytes(16, 0x0B), FromText("Hi There"), "9294727a3638bb1c13f48ef8158bfc9d", nullptr},
      {Bytes(20, 0x0B), FromText("Hi There"), nullptr, "b617318655057264e28bc0b6fb378c8ef146be00"},
      {FromText("Jefe"), FromText("what do ya want for nothing?"),
       "750c783e6ab0b503eaa86e310a5db738", "effcdf6ae5eb2fa2d27416d5f184df9c259a7c79"},
      {Bytes(16, 0xAA), Bytes(50, 0xDD), "56be34521d144c88dbb8c733f0e8b3f6", nullptr},
      {Bytes(20, 0xAA), Bytes(50, 0xDD), nullptr, "125d7342b9ac11cd91a39af48aa17b4f63f175d3"},
      {key25, Bytes(50, 0xCD), "697eaf0aca3a3aea3a75164746ffaa79",
       "4c9007f4026250c6bc8414f9bf50c86c2d7235da"},
      {Bytes(16, 0x0C), FromText("Test With Truncation"), "56461ef2342edc00f9bab995690efd4c",
       nullptr},
      {Bytes(20, 0x0C), FromText("Test With Truncation"), nullptr,
       "4c1a03424b55e07fe7f27be1d58bb9324a9a5a04"},
  };
}

// ---------------------------------------------------------------------------
// Published vectors.

TEST(HmacTest, Rfc2104Md5Examples) {
  TMd5Digest md5;
  EXPECT_EQ(HexMac(md5, Bytes(16, 0x0B), FromText("Hi There")), "9294727a3638bb1c13f48ef8158bfc9d");
  EXPECT_EQ(HexMac(md5, FromText("Jefe"), FromText("what do ya want for nothing?")),
            "750c783e6ab0b503eaa86e310a5db738");
  EXPECT_EQ(HexMac(md5, Bytes(16, 0xAA), Bytes(50, 0xDD)), "56be34521d144c88dbb8c733f0e8b3f6");
}

TEST(HmacTest, Rfc2202CasesWithKeysUpTo64Bytes) {
  TMd5Digest md5;
  TShaDigest sha;
  for (const Rfc2202Case& c : Rfc2202Cases()) {
    if (c.md5) {
      EXPECT_EQ(HexMac(md5, c.key, c.data), c.md5) << ToHex(c.data);
    }
    if (c.sha1) {
      EXPECT_EQ(HexMac(sha, c.key, c.data), c.sha1) << ToHex(c.data);
    }
  }
}

TEST(HmacTest, KeysLongerThanABlockAreHashedFirstLikeRfc2202) {
  TMd5Digest md5;
  TShaDigest sha;
  const Bytes key(80, 0xAA);
  const Bytes data1 = FromText("Test Using Larger Than Block-Size Key - Hash Key First");
  const Bytes data2 =
      FromText("Test Using Larger Than Block-Size Key and Larger Than One Block-Size Data");
  EXPECT_EQ(HexMac(md5, key, data1), "6b1ab7fe4bd7bf8f0b62e6ce61b9d0cd");
  EXPECT_EQ(HexMac(md5, key, data2), "6f630fad67cda0ee1fb1f562db3aa53e");
  EXPECT_EQ(HexMac(sha, key, data1), "aa4ae5e15272d00e95705637ce8a3b55ed402112");
  EXPECT_EQ(HexMac(sha, key, data2), "e8e99d0f45237d786d6bbaa7965c7808bbff1a91");
}

// ---------------------------------------------------------------------------
// Keys.

TEST(HmacTest, KeyOfExactly64BytesIsUsedWithoutHashingOrZeroFill) {
  TestRng rng(64);
  const Bytes key = rng.RandomBytes(64);
  const Bytes message = FromText("sixty-four");
  TShaDigest sha;
  const Bytes mac = Mac(sha, key, message);
  EXPECT_EQ(mac, MacByDefinition(sha, key, message));
  // Hashing the 64-byte key instead would have given another MAC.
  Bytes hashedKey(20);
  sha.Update(key.data(), 64);
  sha.Finish(hashedKey.data(), 0);
  EXPECT_NE(mac, Mac(sha, hashedKey, message));
  // And its last byte counts: it was not overwritten by zero fill.
  Bytes otherKey = key;
  otherKey[63] ^= 1;
  EXPECT_NE(mac, Mac(sha, otherKey, message));
}

TEST(HmacTest, ShortKeysAreZeroFilled) {
  TMd5Digest md5;
  const Bytes message = FromText("zero fill");
  // A key and the same key with trailing zeros up to 64 bytes are one key.
  Bytes key = FromText("short");
  Bytes padded = key;
  padded.resize(64, 0);
  EXPECT_EQ(Mac(md5, key, message), Mac(md5, padded, message));
  EXPECT_EQ(Mac(md5, key, message), MacByDefinition(md5, key, message));
}

TEST(HmacTest, EmptyAndNullKeysAreTheAllZeroKey) {
  TMd5Digest md5;
  const Bytes message = FromText("no key");
  const Bytes expected = Mac(md5, Bytes(64, 0), message);
  THmac empty(md5, nullptr, 0);
  empty.Update(message.data(), static_cast<unsigned>(message.size()));
  unsigned char out[16];
  empty.Finish(out, 16);
  EXPECT_EQ(ToHex(out, 16), ToHex(expected));
  THmac nullWithLength(md5, nullptr, 40);  // a null key counts as empty
  nullWithLength.Update(message.data(), static_cast<unsigned>(message.size()));
  nullWithLength.Finish(out, 16);
  EXPECT_EQ(ToHex(out, 16), ToHex(expected));
}

TEST(HmacTest, LongKeyHashingLeavesTheDigestFreshAndWritesNothingOutsideTheObject) {
  // The object sits between guard bytes; a key of any length must leave them.
  struct Guarded {
    unsigned char before[64];
    alignas(THmac) unsigned char object[sizeof(THmac)];
    unsigned char after[64];
  } g;
  memset(g.before, 0xA5, sizeof g.before);
  memset(g.after, 0x5A, sizeof g.after);
  TestRng rng(1000);
  TShaDigest sha;
  for (unsigned keylen : {65u, 100u, 1000u, 100000u}) {
    const Bytes key = rng.RandomBytes(keylen);
    THmac* hmac = new (g.object) THmac(sha, key.data(), keylen);
    const Bytes message = rng.RandomBytes(77);
    hmac->Update(message.data(), 77);
    unsigned char out[20];
    hmac->Finish(out, 20);
    hmac->~THmac();
    EXPECT_EQ(ToHex(out, 20), ToHex(MacByDefinition(sha, key, message))) << keylen;
    for (unsigned char c : g.before) ASSERT_EQ(c, 0xA5);
    for (unsigned char c : g.after) ASSERT_EQ(c, 0x5A);
  }
  // The digest is fresh again after the key was hashed through it.
  EXPECT_EQ(ToHex(Mac(sha, FromText("Jefe"), FromText("what do ya want for nothing?"))),
            "effcdf6ae5eb2fa2d27416d5f184df9c259a7c79");
}

// ---------------------------------------------------------------------------
// Messages.

TEST(HmacTest, FinishWithoutUpdateHashesTheEmptyMessageWithoutTheInnerPad) {
  // The quirk: H((K ^ opad) || H("")), not the RFC's MAC of "".
  TMd5Digest md5;
  const Bytes key = FromText("Jefe");
  THmac hmac(md5, key.data(), 4);
  unsigned char quirk[16];
  EXPECT_EQ(hmac.Finish(quirk, 16), 16u);

  Bytes opad(64, 0x5C);
  for (size_t i = 0; i < key.size(); ++i) opad[i] ^= key[i];
  unsigned char emptyHash[16], expected[16];
  md5.Finish(emptyHash, 16);  // MD5("")
  md5.Update(opad.data(), 64);
  md5.Update(emptyHash, 16);
  md5.Finish(expected, 16);
  EXPECT_EQ(ToHex(quirk, 16), ToHex(expected, 16));
  EXPECT_NE(ToHex(quirk, 16), ToHex(MacByDefinition(md5, key, Bytes())));
}

TEST(HmacTest, UpdateWithNoDataThenFinishGivesTheRfcMacOfTheEmptyMessage) {
  for (int which = 0; which < 2; ++which) {
    TMd5Digest md5;
    TShaDigest sha;
    TMessageDigest& digest = which ? static_cast<TMessageDigest&>(sha) : md5;
    const Bytes key = FromText("key");
    THmac hmac(digest, key.data(), 3);
    hmac.Update(nullptr, 0);
    unsigned char out[20];
    const unsigned n = hmac.Finish(out, 20);
    EXPECT_EQ(ToHex(out, n), ToHex(MacByDefinition(digest, key, Bytes())));
  }
  // The well-known values.
  TMd5Digest md5;
  THmac empty(md5, nullptr, 0);
  unsigned char out[16];
  empty.Update(nullptr, 0);
  empty.Finish(out, 16);
  EXPECT_EQ(ToHex(out, 16), "74e6f7298a9c2d168935f58c001bad88");
  TShaDigest sha;
  THmac emptySha(sha, nullptr, 0);
  unsigned char outSha[20];
  emptySha.Update(nullptr, 0);
  emptySha.Finish(outSha, 20);
  EXPECT_EQ(ToHex(outSha, 20), "fbdb1d1b18aa6c08324b7d64b71fb76370690e1d");
}

TEST(HmacTest, TwoMessagesInARowMatchTwoFreshObjects) {
  TShaDigest sha;
  const Bytes key = FromText("Jefe");
  const Bytes m1 = FromText("what do ya want for nothing?");
  const Bytes m2 = FromText("Hi There, second message of the same key");
  THmac hmac(sha, key.data(), 4);
  unsigned char out1[20], out2[20];
  hmac.Update(m1.data(), static_cast<unsigned>(m1.size()));
  hmac.Finish(out1, 20);
  hmac.Update(m2.data(), static_cast<unsigned>(m2.size()));
  hmac.Finish(out2, 20);
  EXPECT_EQ(ToHex(out1, 20), HexMac(sha, key, m1));
  EXPECT_EQ(ToHex(out2, 20), HexMac(sha, key, m2));
  EXPECT_EQ(ToHex(out1, 20), "effcdf6ae5eb2fa2d27416d5f184df9c259a7c79");
}

TEST(HmacTest, MessageInPiecesGivesTheSameMac) {
  TMd5Digest md5;
  TestRng rng(3);
  const Bytes key = rng.RandomBytes(20);
  const Bytes message = rng.RandomBytes(500);
  const Bytes whole = Mac(md5, key, message);
  for (size_t piece : {1u, 63u, 64u, 65u}) {
    THmac hmac(md5, key.data(), 20);
    for (size_t off = 0; off < message.size(); off += piece) {
      hmac.Update(message.data() + off,
                  static_cast<unsigned>(std::min(piece, message.size() - off)));
    }
    unsigned char out[16];
    hmac.Finish(out, 16);
    EXPECT_EQ(ToHex(out, 16), ToHex(whole)) << piece;
  }
}

TEST(HmacTest, ResetStartsANewMessageWithTheInnerPadButKeepsWhatTheDigestHolds) {
  TMd5Digest md5;
  const Bytes key = FromText("Jefe");
  // After a finished message Reset changes nothing.
  THmac hmac(md5, key.data(), 4);
  hmac.Reset();
  const Bytes m = FromText("what do ya want for nothing?");
  hmac.Update(m.data(), static_cast<unsigned>(m.size()));
  unsigned char out[16];
  hmac.Finish(out, 16);
  EXPECT_EQ(ToHex(out, 16), "750c783e6ab0b503eaa86e310a5db738");
  // In the middle of a message, Reset only makes the next Update feed the
  // inner pad again: the digest keeps what it had, so the result is
  // H(opad || H(ipad || "ab" || ipad || "cd")).
  hmac.Update(reinterpret_cast<const unsigned char*>("ab"), 2);
  hmac.Reset();
  hmac.Update(reinterpret_cast<const unsigned char*>("cd"), 2);
  hmac.Finish(out, 16);
  Bytes ipad(64, 0x36), inner;
  for (size_t i = 0; i < key.size(); ++i) ipad[i] ^= key[i];
  inner = ipad;
  inner.push_back('a');
  inner.push_back('b');
  inner.insert(inner.end(), ipad.begin(), ipad.end());
  inner.push_back('c');
  inner.push_back('d');
  Bytes opad(64, 0x5C);
  for (size_t i = 0; i < key.size(); ++i) opad[i] ^= key[i];
  unsigned char innerHash[16], expected[16];
  md5.Update(inner.data(), static_cast<unsigned>(inner.size()));
  md5.Finish(innerHash, 16);
  md5.Update(opad.data(), 64);
  md5.Update(innerHash, 16);
  md5.Finish(expected, 16);
  EXPECT_EQ(ToHex(out, 16), ToHex(expected, 16));
}

TEST(HmacTest, FinishIgnoresSizeAndWritesTheWholeMac) {
  TShaDigest sha;
  const Bytes key = FromText("Jefe");
  THmac hmac(sha, key.data(), 4);
  const Bytes m = FromText("what do ya want for nothing?");
  hmac.Update(m.data(), static_cast<unsigned>(m.size()));
  unsigned char out[24];
  memset(out, 0xEE, sizeof out);
  EXPECT_EQ(hmac.Finish(out, 4), 20u);
  EXPECT_EQ(ToHex(out, 20), "effcdf6ae5eb2fa2d27416d5f184df9c259a7c79");
  for (int i = 20; i < 24; ++i) EXPECT_EQ(out[i], 0xEE);
}

TEST(HmacTest, Md4IsSupportedThroughTheSameBase) {
  TMd4Digest md4;
  const Bytes key = FromText("Jefe");
  const Bytes m = FromText("what do ya want for nothing?");
  EXPECT_EQ(Mac(md4, key, m), MacByDefinition(md4, key, m));
  EXPECT_EQ(Mac(md4, key, m).size(), 16u);
}

// ---------------------------------------------------------------------------
// Random differential checks against OpenSSL.

#ifdef OVRA_HAVE_OPENSSL
class HmacDifferentialTest : public ::testing::TestWithParam<Algo> {};

TEST_P(HmacDifferentialTest, RandomKeysMessagesAndSplitsMatchOpenSsl) {
  const Algo a = GetParam();
  if (!ReferenceMd(a)) {
    GTEST_SKIP() << AlgoName(a) << " is unavailable in this OpenSSL (no legacy provider)";
  }
  TMd4Digest md4;
  TMd5Digest md5;
  TShaDigest sha;
  TMessageDigest& digest = a == Algo::kMd4   ? static_cast<TMessageDigest&>(md4)
                           : a == Algo::kMd5 ? static_cast<TMessageDigest&>(md5)
                                             : static_cast<TMessageDigest&>(sha);
  TestRng rng(0x4D4AC + static_cast<int>(a));
  for (int iter = 0; iter < 2000; ++iter) {
    // Keys around the block size (up to 200 bytes, so long keys are hashed),
    // messages mostly short, some long; random alignment of both.
    const unsigned keylen = iter % 4 == 0 ? rng.Below(201) : rng.Below(65);
    const unsigned len = iter % 10 == 0 ? rng.Below(10000) : rng.Below(300);
    const unsigned keyOffset = rng.Below(4), offset = rng.Below(8);
    const Bytes keyStorage = rng.RandomBytes(keylen + keyOffset);
    const Bytes storage = rng.RandomBytes(len + offset);
    const unsigned char* key = keyStorage.data() + keyOffset;
    const unsigned char* message = storage.data() + offset;
    const Bytes expected = ReferenceHmac(a, key, keylen, message, len);

    THmac hmac(digest, key, keylen);
    // Two messages through the same object: the second one is checked too.
    for (int round = 0; round < 2; ++round) {
      unsigned pos = 0;
      hmac.Update(message, 0);  // the RFC MAC even for an empty message
      const int pieces = 1 + static_cast<int>(rng.Below(4));
      for (int p = 0; p < pieces - 1 && pos < len; ++p) {
        const unsigned n = rng.Below(len - pos + 1);
        hmac.Update(message + pos, n);
        pos += n;
      }
      hmac.Update(message + pos, len - pos);
      unsigned char out[20];
      const unsigned n = hmac.Finish(out, sizeof out);
      ASSERT_EQ(ToHex(out, n), ToHex(expected))
          << AlgoName(a) << " keylen " << keylen << " len " << len << " iteration " << iter
          << " round " << round;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(AllDigests, HmacDifferentialTest,
                         ::testing::Values(Algo::kMd4, Algo::kMd5, Algo::kSha1),
                         [](const ::testing::TestParamInfo<Algo>& info) {
                           return std::string(AlgoName(info.param));
                         });
#endif

}  // namespace
