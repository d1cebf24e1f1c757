// Tests of the message digests: the published vectors, the shared buffering
// and padding, the bit count, byte order, and random differential checks
// against OpenSSL's libcrypto.
#include <gtest/gtest.h>
#include <string.h>
#if !defined(_WIN32)
#include <sys/mman.h>
#endif

#include <memory>
#include <vector>

#include "TestPlatform.h"
#include "DigestReference.h"
#include "OvraCryptDigest.h"

using namespace ovra_test;

namespace {

// One object of each digest, reachable by algorithm.
struct Digests {
  TMd4Digest md4;
  TMd5Digest md5;
  TShaDigest sha;
  TMessageDigest& Get(Algo a) {
    return a == Algo::kMd4   ? static_cast<TMessageDigest&>(md4)
           : a == Algo::kMd5 ? static_cast<TMessageDigest&>(md5)
                             : static_cast<TMessageDigest&>(sha);
  }
};

const Algo kAllAlgos[] = {Algo::kMd4, Algo::kMd5, Algo::kSha1};

Bytes Finish(TMessageDigest& d) {
  Bytes out(d.GetDigestSize());
  const unsigned n = d.Finish(out.data(), static_cast<unsigned>(out.size()));
  EXPECT_EQ(n, out.size());
  return out;
}

Bytes DigestOf(TMessageDigest& d, const Bytes& message) {
  d.Update(message.data(), static_cast<unsigned>(message.size()));
  return Finish(d);
}

std::string HexDigestOf(TMessageDigest& d, const char* text) {
  return ToHex(DigestOf(d, FromText(text)));
}

// Feeds `message` in pieces of `piece` bytes.
Bytes DigestInPieces(TMessageDigest& d, const Bytes& message, size_t piece) {
  for (size_t off = 0; off < message.size(); off += piece) {
    const size_t n = std::min(piece, message.size() - off);
    d.Update(message.data() + off, static_cast<unsigned>(n));
  }
  return Finish(d);
}

const char kAlphabet[] = "abcdefghijklmnopqrstuvwxyz";
const char kAlnum[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
const char kDigits80[] =
    "12345678901234567890123456789012345678901234567890123456789012345678901234567890";

// ---------------------------------------------------------------------------
// Published vectors.

TEST(Md4DigestTest, Rfc1320TestSuite) {
  TMd4Digest d;
  EXPECT_EQ(HexDigestOf(d, ""), "31d6cfe0d16ae931b73c59d7e0c089c0");
  EXPECT_EQ(HexDigestOf(d, "a"), "bde52cb31de33e46245e05fbdbd6fb24");
  EXPECT_EQ(HexDigestOf(d, "abc"), "a448017aaf21d8525fc10ae87aa6729d");
  EXPECT_EQ(HexDigestOf(d, "message digest"), "d9130a8164549fe818874806e1c7014b");
  EXPECT_EQ(HexDigestOf(d, kAlphabet), "d79e1c308aa5bbcdeea8ed63df412da9");
  EXPECT_EQ(HexDigestOf(d, kAlnum), "043f8582f241db351ce627e153e7f0e4");
  EXPECT_EQ(HexDigestOf(d, kDigits80), "e33b4ddc9c38f2199c3e7b164fcc0536");
}

TEST(Md5DigestTest, Rfc1321TestSuite) {
  TMd5Digest d;
  EXPECT_EQ(HexDigestOf(d, ""), "d41d8cd98f00b204e9800998ecf8427e");
  EXPECT_EQ(HexDigestOf(d, "a"), "0cc175b9c0f1b6a831c399e269772661");
  EXPECT_EQ(HexDigestOf(d, "abc"), "900150983cd24fb0d6963f7d28e17f72");
  EXPECT_EQ(HexDigestOf(d, "message digest"), "f96b697d7cb7938d525a2f31aaf161d0");
  EXPECT_EQ(HexDigestOf(d, kAlphabet), "c3fcd3d76192e4007dfb496cca67e13b");
  EXPECT_EQ(HexDigestOf(d, kAlnum), "d174ab98d277d9f5a5611c2c9f419d9f");
  EXPECT_EQ(HexDigestOf(d, kDigits80), "57edf4a22be3c955ac49da2e2107b67a");
}

TEST(ShaDigestTest, Fips180_1Examples) {
  TShaDigest d;
  EXPECT_EQ(HexDigestOf(d, "abc"), "a9993e364706816aba3e25717850c26c9cd0d89d");
  EXPECT_EQ(HexDigestOf(d, "abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
            "84983e441c3bd26ebaae4aa1f95129e5e54670f1");
}

TEST(ShaDigestTest, Fips180_1MillionAs) {
  TShaDigest d;
  const Bytes thousand(1000, 'a');
  for (int i = 0; i < 1000; ++i) d.Update(thousand.data(), 1000);
  EXPECT_EQ(ToHex(Finish(d)), "34aa973cd4c4daa4f61eeb2bdbad27316534016f");
  // And in one call, from memory that is not word-aligned.
  std::vector<unsigned char> million(1000000 + 1, 'a');
  d.Update(million.data() + 1, 1000000);
  EXPECT_EQ(ToHex(Finish(d)), "34aa973cd4c4daa4f61eeb2bdbad27316534016f");
}

TEST(ShaDigestTest, EmptyMessage) {
  TShaDigest d;
  EXPECT_EQ(ToHex(Finish(d)), "da39a3ee5e6b4b0d3255bfef95601890afd80709");
}

TEST(MessageDigestTest, FinishRightAfterConstructionDigestsTheEmptyMessage) {
  TMd4Digest md4;
  TMd5Digest md5;
  TShaDigest sha;
  EXPECT_EQ(ToHex(Finish(md4)), "31d6cfe0d16ae931b73c59d7e0c089c0");
  EXPECT_EQ(ToHex(Finish(md5)), "d41d8cd98f00b204e9800998ecf8427e");
  EXPECT_EQ(ToHex(Finish(sha)), "da39a3ee5e6b4b0d3255bfef95601890afd80709");
}

// ---------------------------------------------------------------------------
// Sizes, Finish and Reset.

TEST(MessageDigestTest, DigestSizes) {
  Digests d;
  EXPECT_EQ(d.md4.GetDigestSize(), 16u);
  EXPECT_EQ(d.md5.GetDigestSize(), 16u);
  EXPECT_EQ(d.sha.GetDigestSize(), 20u);
}

TEST(MessageDigestTest, FinishIgnoresSizeAndWritesTheWholeDigest) {
  for (Algo a : kAllAlgos) {
    Digests d;
    const Bytes expected = DigestOf(d.Get(a), FromText("abc"));
    unsigned char out[32];
    memset(out, 0xEE, sizeof out);
    d.Get(a).Update(reinterpret_cast<const unsigned char*>("abc"), 3);
    EXPECT_EQ(d.Get(a).Finish(out, 4), expected.size()) << AlgoName(a);
    EXPECT_EQ(ToHex(out, expected.size()), ToHex(expected)) << AlgoName(a);
    for (size_t i = expected.size(); i < sizeof out; ++i) EXPECT_EQ(out[i], 0xEE);
  }
}

TEST(MessageDigestTest, FinishResetsForTheNextMessage) {
  TMd5Digest d;
  EXPECT_EQ(HexDigestOf(d, "abc"), "900150983cd24fb0d6963f7d28e17f72");
  EXPECT_EQ(HexDigestOf(d, "abc"), "900150983cd24fb0d6963f7d28e17f72");
  EXPECT_EQ(HexDigestOf(d, "a"), "0cc175b9c0f1b6a831c399e269772661");
}

TEST(MessageDigestTest, ResetDropsTheMessageInProgress) {
  for (Algo a : kAllAlgos) {
    Digests fresh;
    const Bytes expected = DigestOf(fresh.Get(a), FromText("abc"));
    Digests d;
    const Bytes junk(100, 'x');  // more than a block, so the state moved too
    d.Get(a).Update(junk.data(), 100);
    d.Get(a).Reset();
    EXPECT_EQ(DigestOf(d.Get(a), FromText("abc")), expected) << AlgoName(a);
  }
}

TEST(MessageDigestTest, UpdateWithNullDataAndZeroLengthChangesNothing) {
  for (Algo a : kAllAlgos) {
    Digests d, e;
    d.Get(a).Update(nullptr, 0);
    d.Get(a).Update(reinterpret_cast<const unsigned char*>("ab"), 2);
    d.Get(a).Update(nullptr, 0);
    d.Get(a).Update(reinterpret_cast<const unsigned char*>("c"), 1);
    EXPECT_EQ(Finish(d.Get(a)), DigestOf(e.Get(a), FromText("abc"))) << AlgoName(a);
  }
}

// ---------------------------------------------------------------------------
// Buffering and padding, observed through the calls of Transform.

// An MD5 that records every block handed to Transform. Replacing Transform
// also makes the digest take its blocks one by one through it.
class RecordingMd5 : public TMd5Digest {
 public:
  void Transform(unsigned* state, const unsigned char* block) override {
    blocks.push_back(block);
    TMd5Digest::Transform(state, block);
  }
  const unsigned char* Buffer() const { return m_buffer; }
  std::vector<const unsigned char*> blocks;
};

// A digest whose bit count can be read.
template <class D>
class CountVisible : public D {
 public:
  const unsigned* Count() const { return this->m_count; }
};

TEST(MessageDigestTest, FiftyFiveBytesPadWithOneByteAndFiftySixWithSixtyFour) {
  // 55 bytes + 1 pad byte + 8 length bytes fill exactly one block; 56 bytes
  // need 64 bytes of padding, so the message takes two blocks.
  Bytes m55(55, 'q'), m56(56, 'q');
  RecordingMd5 d;
  d.Update(m55.data(), 55);
  Finish(d);
  EXPECT_EQ(d.blocks.size(), 1u);
  d.blocks.clear();
  d.Update(m56.data(), 56);
  Finish(d);
  EXPECT_EQ(d.blocks.size(), 2u);
  d.blocks.clear();
  Bytes m119(119, 'q'), m120(120, 'q');
  d.Update(m119.data(), 119);
  Finish(d);
  EXPECT_EQ(d.blocks.size(), 2u);
  d.blocks.clear();
  d.Update(m120.data(), 120);
  Finish(d);
  EXPECT_EQ(d.blocks.size(), 3u);
}

TEST(MessageDigestTest, PaddingBoundaryMessagesMatchPaddedBlocksBuiltByHand) {
  // The digest of a 55-byte message is one Transform of the block
  // message || 0x80 || length; build that block here and compare.
  for (unsigned len : {0u, 1u, 55u}) {
    const Bytes message(len, 'z');
    unsigned char block[64] = {0};
    if (len) memcpy(block, message.data(), len);
    block[len] = 0x80;
    const unsigned bits = len * 8;
    // MD5: little-endian length.
    unsigned char md5Block[64];
    memcpy(md5Block, block, 64);
    md5Block[56] = static_cast<unsigned char>(bits);
    md5Block[57] = static_cast<unsigned char>(bits >> 8);
    unsigned state[5] = {0x67452301u, 0xEFCDAB89u, 0x98BADCFEu, 0x10325476u, 0xC3D2E1F0u};
    TMd5Digest md5;
    md5.Transform(state, md5Block);
    unsigned char out[20];
    EncodeLE(out, state, 16);
    EXPECT_EQ(ToHex(out, 16), ToHex(DigestOf(md5, message))) << len;
    // SHA-1: big-endian length.
    unsigned char shaBlock[64];
    memcpy(shaBlock, block, 64);
    shaBlock[63] = static_cast<unsigned char>(bits);
    shaBlock[62] = static_cast<unsigned char>(bits >> 8);
    unsigned shaState[5] = {0x67452301u, 0xEFCDAB89u, 0x98BADCFEu, 0x10325476u, 0xC3D2E1F0u};
    TShaDigest sha;
    sha.Transform(shaState, shaBlock);
    EncodeBE(out, shaState, 20);
    EXPECT_EQ(ToHex(out, 20), ToHex(DigestOf(sha, message))) << len;
    // MD4 like MD5.
    unsigned md4State[5] = {0x67452301u, 0xEFCDAB89u, 0x98BADCFEu, 0x10325476u, 0xC3D2E1F0u};
    TMd4Digest md4;
    md4.Transform(md4State, md5Block);
    EncodeLE(out, md4State, 16);
    EXPECT_EQ(ToHex(out, 16), ToHex(DigestOf(md4, message))) << len;
  }
}

TEST(MessageDigestTest, WholeBlocksAreTransformedStraightFromTheCallersMemory) {
  std::vector<unsigned char> data(301);
  for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<unsigned char>(i);
  const unsigned char* p = data.data() + 1;  // deliberately misaligned

  // Nothing buffered: every whole block comes from the caller's memory.
  RecordingMd5 d;
  d.Update(p, 200);
  ASSERT_EQ(d.blocks.size(), 3u);
  EXPECT_EQ(d.blocks[0], p);
  EXPECT_EQ(d.blocks[1], p + 64);
  EXPECT_EQ(d.blocks[2], p + 128);
  // 8 bytes are left in the buffer; the next update completes that block
  // in the buffer, then takes its own whole blocks in place.
  d.blocks.clear();
  d.Update(p + 200, 100);
  ASSERT_EQ(d.blocks.size(), 1u);
  EXPECT_EQ(d.blocks[0], d.Buffer());
  d.blocks.clear();
  RecordingMd5 e;
  e.Update(p, 10);
  e.Update(p + 10, 250);
  ASSERT_EQ(e.blocks.size(), 4u);
  EXPECT_EQ(e.blocks[0], e.Buffer());
  EXPECT_EQ(e.blocks[1], p + 64);
  EXPECT_EQ(e.blocks[2], p + 128);
  EXPECT_EQ(e.blocks[3], p + 192);
  // The recorded path gives the same digest as the library's own loop.
  TMd5Digest plain;
  plain.Update(p, 260);
  EXPECT_EQ(Finish(e), Finish(plain));
}

TEST(MessageDigestTest, PiecesOf1_63_64And65BytesGiveTheWholeMessagesDigest) {
  TestRng rng(11);
  const Bytes message = rng.RandomBytes(1000);
  for (Algo a : kAllAlgos) {
    Digests d;
    const Bytes whole = DigestOf(d.Get(a), message);
    for (size_t piece : {1u, 63u, 64u, 65u}) {
      EXPECT_EQ(DigestInPieces(d.Get(a), message, piece), whole)
          << AlgoName(a) << " piece " << piece;
    }
  }
}

// ---------------------------------------------------------------------------
// The 64-bit bit count.

// A digest that only counts: its transform does nothing, so that the bit
// count of huge messages can be checked without hashing them.
class CountOnlyDigest : public CountVisible<TMd5Digest> {
 public:
  void Transform(unsigned*, const unsigned char*) override {}
};

// A region of `len` zero bytes mapped lazily, so that nothing is really
// allocated; null where the address space is too small.
class ZeroRegion {
 public:
  explicit ZeroRegion(size_t len) : m_len(len) {
#if defined(_WIN32)
    m_p = ovra_test::win::MapZeros(len);
#else
    m_p = mmap(nullptr, len, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (m_p == MAP_FAILED) m_p = nullptr;
#endif
  }
  ~ZeroRegion() {
#if defined(_WIN32)
    if (m_p) ovra_test::win::UnmapPages(static_cast<unsigned char*>(m_p), m_len);
#else
    if (m_p) munmap(m_p, m_len);
#endif
  }
  const unsigned char* data() const { return static_cast<const unsigned char*>(m_p); }

 private:
  void* m_p;
  size_t m_len;
};

const size_t k2To29 = size_t{1} << 29;

TEST(MessageDigestTest, BitCountCarriesIntoTheHighWordWhenTheLowWordWraps) {
  ZeroRegion zeros(k2To29);
  if (!zeros.data()) GTEST_SKIP() << "cannot map 512 MiB of address space";
  CountOnlyDigest d;
  d.Update(zeros.data(), static_cast<unsigned>(k2To29 - 1));  // 2^32 - 8 bits
  EXPECT_EQ(d.Count()[0], 0xFFFFFFF8u);
  EXPECT_EQ(d.Count()[1], 0u);
  d.Update(zeros.data(), 2);
  EXPECT_EQ(d.Count()[0], 8u);
  EXPECT_EQ(d.Count()[1], 1u);
}

TEST(MessageDigestTest, OneUpdateOfMoreThan2To29BytesAddsItsHighBits) {
  // len * 8 overflows 32 bits: the bits shifted out go to the high word.
  ZeroRegion zeros(k2To29 + 5);
  if (!zeros.data()) GTEST_SKIP() << "cannot map 512 MiB of address space";
  CountOnlyDigest d;
  d.Update(zeros.data(), 7);
  d.Update(zeros.data(), static_cast<unsigned>(k2To29 + 5));
  EXPECT_EQ(d.Count()[0], 96u);  // (7 + 5) * 8
  EXPECT_EQ(d.Count()[1], 1u);
  // Both at once: 2^29 - 3 bytes, then 2^29 + 5 wrap the low word and carry
  // the high bits of len * 8 as well.
  d.Reset();
  d.Update(zeros.data(), static_cast<unsigned>(k2To29 - 3));
  d.Update(zeros.data(), static_cast<unsigned>(k2To29 + 5));
  EXPECT_EQ(d.Count()[0], 16u);
  EXPECT_EQ(d.Count()[1], 2u);
}

// Hashes `prefix` then `len` zero bytes in one Update each, and checks the
// digest against OpenSSL (or, without it, against the same message fed in
// pieces below 2^29 bytes).
void CheckLongZeroMessage(Algo a, size_t prefix, size_t len, const unsigned char* zeros) {
  Digests d;
  d.Get(a).Update(zeros, static_cast<unsigned>(prefix));
  d.Get(a).Update(zeros, static_cast<unsigned>(len));
  const Bytes whole = Finish(d.Get(a));
#ifdef OVRA_HAVE_OPENSSL
  if (ReferenceMd(a)) {
    EVP_MD_CTX* ctx = EVP_MD_CTX_new();
    unsigned char out[EVP_MAX_MD_SIZE];
    unsigned n = 0;
    ASSERT_TRUE(EVP_DigestInit_ex(ctx, ReferenceMd(a), nullptr));
    EVP_DigestUpdate(ctx, zeros, prefix);
    EVP_DigestUpdate(ctx, zeros, len);
    EVP_DigestFinal_ex(ctx, out, &n);
    EVP_MD_CTX_free(ctx);
    EXPECT_EQ(ToHex(whole), ToHex(out, n)) << AlgoName(a);
    return;
  }
#endif
  const size_t total = prefix + len;
  for (size_t off = 0; off < total; off += size_t{1} << 24) {
    const size_t n = std::min(size_t{1} << 24, total - off);
    d.Get(a).Update(zeros, static_cast<unsigned>(n));
  }
  EXPECT_EQ(whole, Finish(d.Get(a))) << AlgoName(a);
}

TEST(MessageDigestTest, MessagesLongerThan2To29BytesDigestCorrectly) {
  ZeroRegion zeros(k2To29 + 5);
  if (!zeros.data()) GTEST_SKIP() << "cannot map 512 MiB of address space";
  // The high length word reaches the padding little-endian (MD5) and
  // big-endian (SHA-1), through one huge Update and through a carry.
  CheckLongZeroMessage(Algo::kMd5, 7, k2To29 + 5, zeros.data());
  CheckLongZeroMessage(Algo::kSha1, k2To29 - 3, k2To29 + 5, zeros.data());
}

// ---------------------------------------------------------------------------
// Byte order.

TEST(ByteOrderTest, EncodeWritesLittleAndBigEndianWords) {
  const unsigned words[2] = {0x01020304u, 0xA0B0C0D0u};
  unsigned char out[9];
  memset(out, 0x55, sizeof out);
  EncodeLE(out, words, 8);
  EXPECT_EQ(ToHex(out, 9), "04030201d0c0b0a055");
  memset(out, 0x55, sizeof out);
  EncodeBE(out, words, 8);
  EXPECT_EQ(ToHex(out, 9), "01020304a0b0c0d055");
}

TEST(ByteOrderTest, DecodeReadsLittleAndBigEndianWordsFromAnyAlignment) {
  const Bytes raw = FromHex("ff0403020101020304");
  unsigned words[3] = {0, 0, 0x77777777u};
  DecodeLE(words, raw.data() + 1, 8);
  EXPECT_EQ(words[0], 0x01020304u);
  EXPECT_EQ(words[1], 0x04030201u);
  EXPECT_EQ(words[2], 0x77777777u);
  DecodeBE(words, raw.data() + 1, 8);
  EXPECT_EQ(words[0], 0x04030201u);
  EXPECT_EQ(words[1], 0x01020304u);
  EXPECT_EQ(words[2], 0x77777777u);
}

TEST(ByteOrderTest, PartialWordsAndNegativeLengthsAreIgnored) {
  const unsigned words[2] = {0x11223344u, 0x55667788u};
  unsigned char out[8];
  memset(out, 0, sizeof out);
  EncodeLE(out, words, 7);  // one whole word only
  EXPECT_EQ(ToHex(out, 8), "4433221100000000");
  EncodeBE(out, words, -4);
  EXPECT_EQ(ToHex(out, 8), "4433221100000000");
  unsigned in[2] = {9, 9};
  DecodeBE(in, out, 3);
  DecodeLE(in, out, -1);
  EXPECT_EQ(in[0], 9u);
  EXPECT_EQ(in[1], 9u);
}

TEST(ByteOrderTest, DecodeUndoesEncode) {
  TestRng rng(5);
  unsigned words[16], back[16];
  for (auto& w : words) w = static_cast<unsigned>(rng.Next());
  unsigned char bytes[64];
  EncodeLE(bytes, words, 64);
  DecodeLE(back, bytes, 64);
  EXPECT_EQ(memcmp(words, back, sizeof words), 0);
  EncodeBE(bytes, words, 64);
  DecodeBE(back, bytes, 64);
  EXPECT_EQ(memcmp(words, back, sizeof words), 0);
}

// ---------------------------------------------------------------------------
// Random differential checks against OpenSSL.

#ifdef OVRA_HAVE_OPENSSL
class DigestDifferentialTest : public ::testing::TestWithParam<Algo> {};

TEST_P(DigestDifferentialTest, RandomMessagesSplitsAndAlignmentsMatchOpenSsl) {
  const Algo a = GetParam();
  if (!ReferenceMd(a)) {
    GTEST_SKIP() << AlgoName(a) << " is unavailable in this OpenSSL (no legacy provider)";
  }
  TestRng rng(0xD16E57 + static_cast<int>(a));
  Digests d;
  TMessageDigest& digest = d.Get(a);
  for (int iter = 0; iter < 3000; ++iter) {
    // Mostly short messages around the block and padding boundaries, some long.
    const unsigned len = iter % 10 == 0 ? rng.Below(20000) : rng.Below(300);
    const unsigned offset = rng.Below(8);
    Bytes storage = rng.RandomBytes(len + offset);
    const unsigned char* message = storage.data() + offset;
    const Bytes expected = ReferenceDigest(a, message, len);
    // Random split points, in up to five pieces.
    unsigned pos = 0;
    const int pieces = 1 + static_cast<int>(rng.Below(5));
    for (int p = 0; p < pieces - 1 && pos < len; ++p) {
      const unsigned n = rng.Below(len - pos + 1);
      digest.Update(message + pos, n);
      pos += n;
    }
    digest.Update(message + pos, len - pos);
    ASSERT_EQ(ToHex(Finish(digest)), ToHex(expected))
        << AlgoName(a) << " len " << len << " offset " << offset << " iteration " << iter;
  }
}

TEST_P(DigestDifferentialTest, EveryLengthUpTo300MatchesOpenSsl) {
  const Algo a = GetParam();
  if (!ReferenceMd(a)) {
    GTEST_SKIP() << AlgoName(a) << " is unavailable in this OpenSSL (no legacy provider)";
  }
  TestRng rng(77);
  const Bytes message = rng.RandomBytes(300);
  Digests d;
  for (unsigned len = 0; len <= 300; ++len) {
    d.Get(a).Update(message.data(), len);
    ASSERT_EQ(ToHex(Finish(d.Get(a))), ToHex(ReferenceDigest(a, message.data(), len)))
        << AlgoName(a) << " len " << len;
  }
}

INSTANTIATE_TEST_SUITE_P(AllDigests, DigestDifferentialTest,
                         ::testing::Values(Algo::kMd4, Algo::kMd5, Algo::kSha1),
                         [](const ::testing::TestParamInfo<Algo>& info) {
                           return std::string(AlgoName(info.param));
                         });
#endif

}  // namespace
