// Tests of the digest-based random generator: an independent model of it
// compared over long outputs, the seeding and stepping rules, the caller's
// buffer layout, and the shared instance with its start-up and shutdown.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <vector>

#include "DigestReference.h"
#include "Ovra.h"
#include "OvraRand.h"
#include "TestAllocator.h"

using namespace ovra_test;

namespace {

// ---------------------------------------------------------------------------
// The model: the generator written from its description, over a one-shot
// digest of a byte string (OpenSSL's where available).

Bytes ModelDigest(Algo a, const Bytes& message) {
#ifdef OVRA_HAVE_OPENSSL
  if (ReferenceMd(a)) return ReferenceDigest(a, message);
#endif
  // Without OpenSSL the library's digest (checked against the published
  // vectors in its own tests) serves as the one-shot function.
  TMd4Digest md4;
  TMd5Digest md5;
  TShaDigest sha;
  TMessageDigest& d = a == Algo::kMd4   ? static_cast<TMessageDigest&>(md4)
                      : a == Algo::kMd5 ? static_cast<TMessageDigest&>(md5)
                                        : static_cast<TMessageDigest&>(sha);
  Bytes out(d.GetDigestSize());
  d.Update(message.data(), static_cast<unsigned>(message.size()));
  d.Finish(out.data(), 0);
  return out;
}

class ModelPrng {
 public:
  explicit ModelPrng(Algo a) : m_algo(a), m_size(ModelDigest(a, Bytes()).size()) {
    m_state.assign(m_size, 0);
  }

  void Seed(const Bytes& data) {
    ++m_seeds;
    if (m_seeds == 1) {
      m_increment = ModelDigest(m_algo, Bytes());
      m_increment.back() |= 1;
    }
    if (m_seeds >= 2 && !m_pending) m_material = m_state;  // fold the state in
    m_material.insert(m_material.end(), data.begin(), data.end());
    m_pending = true;
  }

  Bytes Generate(size_t n) {
    if (m_pending) {
      m_state = ModelDigest(m_algo, m_material);
      m_material.clear();
      m_pending = false;
      m_queue.clear();
    }
    Bytes out;
    while (out.size() < n) {
      if (m_queue.empty()) {
        m_queue = ModelDigest(m_algo, m_state);
        StepState();
      }
      out.push_back(m_queue.front());
      m_queue.erase(m_queue.begin());
    }
    return out;
  }

  const Bytes& State() const { return m_state; }

 private:
  void StepState() {
    if (m_seeds >= 2) {
      // Add as big numbers, most significant byte first, modulo 2^(8 size).
      int carry = 0;
      for (size_t k = 0; k < m_size; ++k) {
        const size_t i = m_size - 1 - k;
        const int sum = m_state[i] + m_increment[i] + carry;
        m_state[i] = static_cast<unsigned char>(sum & 0xFF);
        carry = sum > 0xFF ? 1 : 0;
      }
    } else {
      // The odd add-one: from the last byte, stop after the first byte that
      // was non-zero before being incremented.
      size_t i = m_size;
      while (i > 0) {
        --i;
        const bool wasZero = m_state[i] == 0;
        m_state[i] = static_cast<unsigned char>((m_state[i] + 1) & 0xFF);
        if (!wasZero) break;
      }
    }
  }

  Algo m_algo;
  size_t m_size;
  int m_seeds = 0;
  bool m_pending = false;
  Bytes m_material;  // digest input gathered for the pending seed
  Bytes m_state, m_increment;
  Bytes m_queue;  // the bytes of the last output block not handed out
};

Bytes Generate(TDigestPrng& prng, size_t n) {
  Bytes out(n);
  prng.Generate(out.data(), static_cast<unsigned>(n));
  return out;
}

void Seed(TDigestPrng& prng, const Bytes& data) {
  prng.Seed(data.data(), static_cast<unsigned>(data.size()));
}

Bytes Md5(const Bytes& b) { return ModelDigest(Algo::kMd5, b); }

// ---------------------------------------------------------------------------
// The unseeded sequence.

TEST(DigestPrngTest, FirstSixteenUnseededBytesAreTheMd5OfSixteenZeroBytes) {
  TMd5Prng prng;
  EXPECT_EQ(ToHex(Generate(prng, 16)), "4ae71336e44bf9bf79d2752e234818a5");
}

TEST(DigestPrngTest, TwoFreshUnseededGeneratorsProduceTheSameBytes) {
  TMd5Prng a, b;
  EXPECT_EQ(Generate(a, 1000), Generate(b, 1000));
}

TEST(DigestPrngTest, UnseededStateStepsByTheOddAddOne) {
  // The all-zero state steps to 01 01 .. 01 (every byte was zero, so every
  // byte is incremented), then to 01 .. 01 02 (the last byte was non-zero).
  TMd5Prng prng;
  const Bytes out = Generate(prng, 48);
  Bytes state(16, 0);
  EXPECT_EQ(ToHex(Bytes(out.begin(), out.begin() + 16)), ToHex(Md5(state)));
  state.assign(16, 0x01);
  EXPECT_EQ(ToHex(Bytes(out.begin() + 16, out.begin() + 32)), ToHex(Md5(state)));
  state[15] = 0x02;
  EXPECT_EQ(ToHex(Bytes(out.begin() + 32, out.end())), ToHex(Md5(state)));
}

// ---------------------------------------------------------------------------
// Handing out bytes.

TEST(DigestPrngTest, TenThenTenEqualsTwentyAtOnce) {
  TMd5Prng a, b;
  Bytes split = Generate(a, 10);
  const Bytes more = Generate(a, 10);
  split.insert(split.end(), more.begin(), more.end());
  EXPECT_EQ(split, Generate(b, 20));
}

TEST(DigestPrngTest, AnySplitOfTheOutputGivesTheSameStream) {
  TestRng rng(21);
  TMd5Prng whole;
  const Bytes expected = Generate(whole, 5000);
  TMd5Prng pieces;
  Bytes got;
  while (got.size() < expected.size()) {
    const size_t n = std::min<size_t>(rng.Below(40), expected.size() - got.size());
    const Bytes part = Generate(pieces, n);
    got.insert(got.end(), part.begin(), part.end());
  }
  EXPECT_EQ(got, expected);
}

TEST(DigestPrngTest, GenerateZeroBytesWritesNothing) {
  TMd5Prng prng;
  unsigned char out[4] = {0xA1, 0xA2, 0xA3, 0xA4};
  prng.Generate(out, 0);
  prng.Generate(nullptr, 0);
  EXPECT_EQ(out[0], 0xA1);
  EXPECT_EQ(out[3], 0xA4);
  // And consumed nothing.
  TMd5Prng fresh;
  EXPECT_EQ(Generate(prng, 32), Generate(fresh, 32));
}

// ---------------------------------------------------------------------------
// Seeding.

TEST(DigestPrngTest, SameSeedInTwoFreshGeneratorsGivesTheSameOutput) {
  const Bytes seed = FromText("the same seed material");
  TMd5Prng a, b;
  Seed(a, seed);
  Seed(b, seed);
  EXPECT_EQ(Generate(a, 500), Generate(b, 500));
  TMd5Prng c;
  Seed(c, FromText("other material"));
  TMd5Prng d;
  Seed(d, seed);
  EXPECT_NE(Generate(c, 16), Generate(d, 16));
}

TEST(DigestPrngTest, FirstSeedReplacesTheStateAndStepsStayOddAddOne) {
  // After one seed the state is the digest of the seed alone; the output
  // blocks are the digests of that state stepped by the odd add-one.
  const Bytes seed = FromText("first seed");
  TMd5Prng prng;
  Generate(prng, 40);  // the unseeded state has moved on: it is replaced
  Seed(prng, seed);
  const Bytes out = Generate(prng, 48);
  Bytes state = Md5(seed);
  EXPECT_EQ(ToHex(Bytes(out.begin(), out.begin() + 16)), ToHex(Md5(state)));
  // One step: the last byte is incremented; the step stops there unless it
  // was zero.
  Bytes stepped = state;
  for (size_t i = 16; i-- > 0;) {
    const bool wasZero = stepped[i] == 0;
    ++stepped[i];
    if (!wasZero) break;
  }
  EXPECT_EQ(ToHex(Bytes(out.begin() + 16, out.begin() + 32)), ToHex(Md5(stepped)));
}

TEST(DigestPrngTest, SecondSeedFoldsTheStateInAndStepsByTheIncrement) {
  const Bytes s1 = FromText("one"), s2 = FromText("two");
  TMd5Prng prng;
  Seed(prng, s1);
  prng.Generate(nullptr, 0);  // turns the first seed into the state, unstepped
  Seed(prng, s2);
  const Bytes out = Generate(prng, 32);
  // state = MD5(old state || seed 2)
  Bytes material = Md5(s1);
  material.insert(material.end(), s2.begin(), s2.end());
  const Bytes state = Md5(material);
  EXPECT_EQ(ToHex(Bytes(out.begin(), out.begin() + 16)), ToHex(Md5(state)));
  // The increment is MD5("") made odd: d41d8cd98f00b204e9800998ecf8427f.
  const Bytes increment = FromHex("d41d8cd98f00b204e9800998ecf8427f");
  Bytes next(16);
  unsigned carry = 0;
  for (size_t i = 16; i-- > 0;) {
    const unsigned sum = state[i] + increment[i] + carry;
    next[i] = static_cast<unsigned char>(sum);
    carry = sum >> 8;
  }
  EXPECT_EQ(ToHex(Bytes(out.begin() + 16, out.end())), ToHex(Md5(next)));
}

TEST(DigestPrngTest, TwoSeedsInARowAreDigestedTogetherWithoutTheState) {
  // The second seed finds the first still pending: the state is not fed, the
  // two seeds are simply concatenated.
  TMd5Prng prng;
  Seed(prng, FromText("ab"));
  Seed(prng, FromText("cd"));
  const Bytes out = Generate(prng, 16);
  EXPECT_EQ(ToHex(out), ToHex(Md5(Md5(FromText("abcd")))));
}

TEST(DigestPrngTest, GenerateZeroBytesStillTurnsAPendingSeedIntoTheState) {
  const Bytes s1 = FromText("pending"), s2 = FromText("second");
  TMd5Prng withZero, without;
  Seed(withZero, s1);
  Seed(without, s1);
  unsigned char unused = 0x42;
  withZero.Generate(&unused, 0);
  EXPECT_EQ(unused, 0x42);
  // The seed was consumed: the next seed folds the state in...
  Seed(withZero, s2);
  Bytes material = Md5(s1);
  material.insert(material.end(), s2.begin(), s2.end());
  EXPECT_EQ(ToHex(Generate(withZero, 16)), ToHex(Md5(Md5(material))));
  // ...whereas without the empty Generate both seeds are digested together.
  Seed(without, s2);
  EXPECT_EQ(ToHex(Generate(without, 16)), ToHex(Md5(Md5(FromText("pendingsecond")))));
}

TEST(DigestPrngTest, ASeedDropsTheRestOfTheCurrentOutputBlock) {
  TMd5Prng prng;
  Generate(prng, 5);  // 11 bytes of the block are left
  Seed(prng, FromText("x"));
  EXPECT_EQ(ToHex(Generate(prng, 16)), ToHex(Md5(Md5(FromText("x")))));
}

TEST(DigestPrngTest, SeedWithNoDataCounts) {
  // An empty seed is still a seed: the state becomes MD5("").
  TMd5Prng prng;
  prng.Seed(nullptr, 0);
  EXPECT_EQ(ToHex(Generate(prng, 16)), ToHex(Md5(Md5(Bytes()))));
}

// ---------------------------------------------------------------------------
// The caller's buffer.

TEST(DigestPrngTest, BlocksLieInTheCallersBufferStateIncrementOutput) {
  TMd5Digest digest;
  unsigned char buffer[48 + 1];
  memset(buffer, 0xCC, sizeof buffer);
  TDigestPrng prng(digest, buffer, 16);
  for (int i = 0; i < 16; ++i) EXPECT_EQ(buffer[i], 0) << "state zeroed";
  for (int i = 16; i < 49; ++i) EXPECT_EQ(buffer[i], 0xCC) << "nothing else touched";

  prng.Seed(reinterpret_cast<const unsigned char*>("s"), 1);
  EXPECT_EQ(ToHex(buffer + 16, 16), "d41d8cd98f00b204e9800998ecf8427f");  // increment
  unsigned char out[10];
  prng.Generate(out, 10);
  const Bytes state = Md5(FromText("s"));
  const Bytes block = Md5(state);
  EXPECT_EQ(ToHex(buffer + 32, 16), ToHex(block));  // the output block
  EXPECT_EQ(ToHex(out, 10), ToHex(block.data(), 10));
  // The state block already holds the stepped state.
  Bytes stepped = state;
  for (size_t i = 16; i-- > 0;) {
    const bool wasZero = stepped[i] == 0;
    ++stepped[i];
    if (!wasZero) break;
  }
  EXPECT_EQ(ToHex(buffer, 16), ToHex(stepped));
  EXPECT_EQ(buffer[48], 0xCC);
}

TEST(DigestPrngTest, OddAddOneWrapsFFToZeroWithoutCarrying) {
  TMd5Digest digest;
  unsigned char buffer[48];
  TDigestPrng prng(digest, buffer, 16);
  // Put 00 .. 00 12 FF into the state through the caller's buffer.
  buffer[14] = 0x12;
  buffer[15] = 0xFF;
  Bytes state(buffer, buffer + 16);
  const Bytes out = Generate(prng, 32);
  EXPECT_EQ(ToHex(Bytes(out.begin(), out.begin() + 16)), ToHex(Md5(state)));
  state[15] = 0x00;  // 0xFF became 0x00, and byte 14 stays 0x12
  EXPECT_EQ(ToHex(Bytes(out.begin() + 16, out.end())), ToHex(Md5(state)));
  // The second step: the zero last byte becomes 0x01 and the step goes on
  // to byte 14, which was non-zero and ends it.
  EXPECT_EQ(ToHex(buffer, 16), "00000000000000000000000000001301");
}

TEST(DigestPrngTest, OddAddOneTurnsZeroBytesIntoOnesUntilANonZeroByte) {
  TMd5Digest digest;
  unsigned char buffer[48];
  TDigestPrng prng(digest, buffer, 16);
  buffer[10] = 0x7F;  // bytes 11 to 15 are zero
  Generate(prng, 16);
  EXPECT_EQ(ToHex(buffer, 16), "00000000000000000000800101010101");
}

TEST(DigestPrngTest, IncrementAdditionCarriesAcrossBytesAndDropsTheFinalCarry) {
  TMd5Digest digest;
  unsigned char buffer[48];
  TDigestPrng prng(digest, buffer, 16);
  prng.Seed(reinterpret_cast<const unsigned char*>("1"), 1);
  prng.Seed(reinterpret_cast<const unsigned char*>("2"), 1);
  prng.Generate(nullptr, 0);  // the seeds become the state
  memset(buffer, 0xFF, 16);   // state = 2^128 - 1
  EXPECT_EQ(ToHex(Generate(prng, 16)), ToHex(Md5(Bytes(16, 0xFF))));
  // (2^128 - 1 + increment) mod 2^128 = increment - 1.
  EXPECT_EQ(ToHex(buffer, 16), "d41d8cd98f00b204e9800998ecf8427e");
  EXPECT_EQ(ToHex(Generate(prng, 16)), ToHex(Md5(FromHex("d41d8cd98f00b204e9800998ecf8427e"))));
  // Next: 2 * increment - 1, with carries between bytes (e.g. 0x8f + 0x8f).
  EXPECT_EQ(ToHex(buffer, 16), "a83b19b31e016409d3001331d9f084fd");
}

TEST(DigestPrngTest, WorksOverSha1WithTwentyByteBlocks) {
  TShaDigest sha;
  unsigned char buffer[60];
  TDigestPrng prng(sha, buffer, 20);
  ModelPrng model(Algo::kSha1);
  EXPECT_EQ(Generate(prng, 50), model.Generate(50));
  Seed(prng, FromText("sha seed"));
  model.Seed(FromText("sha seed"));
  EXPECT_EQ(Generate(prng, 70), model.Generate(70));
  Seed(prng, FromText("again"));
  model.Seed(FromText("again"));
  EXPECT_EQ(Generate(prng, 130), model.Generate(130));
  // The increment is SHA-1("") made odd.
  EXPECT_EQ(ToHex(buffer + 20, 20), "da39a3ee5e6b4b0d3255bfef95601890afd80709");
}

// ---------------------------------------------------------------------------
// Against the model over long outputs.

class DigestPrngModelTest : public ::testing::TestWithParam<Algo> {};

TEST_P(DigestPrngModelTest, LongRandomSessionsMatchTheModel) {
  const Algo a = GetParam();
#ifdef OVRA_HAVE_OPENSSL
  if (!ReferenceMd(a)) {
    GTEST_SKIP() << AlgoName(a) << " is unavailable in this OpenSSL (no legacy provider)";
  }
#endif
  TestRng rng(0x5EED + static_cast<int>(a));
  for (int session = 0; session < 20; ++session) {
    TMd4Digest md4;
    TMd5Digest md5;
    TShaDigest sha;
    TMessageDigest& d = a == Algo::kMd4   ? static_cast<TMessageDigest&>(md4)
                        : a == Algo::kMd5 ? static_cast<TMessageDigest&>(md5)
                                          : static_cast<TMessageDigest&>(sha);
    unsigned char buffer[60];
    TDigestPrng prng(d, buffer, d.GetDigestSize());
    ModelPrng model(a);
    size_t produced = 0;
    for (int op = 0; op < 200; ++op) {
      if (rng.Below(4) == 0) {
        // Seeds of every size, some longer than a block, some empty.
        const Bytes seed = rng.RandomBytes(rng.Below(150));
        Seed(prng, seed);
        model.Seed(seed);
      } else {
        const size_t n = rng.Below(8) == 0 ? rng.Below(2000) : rng.Below(40);
        ASSERT_EQ(ToHex(Generate(prng, n)), ToHex(model.Generate(n)))
            << AlgoName(a) << " session " << session << " op " << op;
        produced += n;
      }
    }
    ASSERT_EQ(ToHex(buffer, d.GetDigestSize()), ToHex(model.State()));
    EXPECT_GT(produced, 0u);
  }
}

TEST_P(DigestPrngModelTest, UnseededAndOnceSeededStreamsMatchTheModelOver100KBytes) {
  const Algo a = GetParam();
#ifdef OVRA_HAVE_OPENSSL
  if (!ReferenceMd(a)) {
    GTEST_SKIP() << AlgoName(a) << " is unavailable in this OpenSSL (no legacy provider)";
  }
#endif
  for (int seeds = 0; seeds <= 2; ++seeds) {
    TMd4Digest md4;
    TMd5Digest md5;
    TShaDigest sha;
    TMessageDigest& d = a == Algo::kMd4   ? static_cast<TMessageDigest&>(md4)
                        : a == Algo::kMd5 ? static_cast<TMessageDigest&>(md5)
                                          : static_cast<TMessageDigest&>(sha);
    unsigned char buffer[60];
    TDigestPrng prng(d, buffer, d.GetDigestSize());
    ModelPrng model(a);
    for (int s = 0; s < seeds; ++s) {
      const Bytes seed = FromText(s ? "second" : "first");
      Seed(prng, seed);
      model.Seed(seed);
    }
    ASSERT_EQ(Generate(prng, 100000), model.Generate(100000)) << AlgoName(a) << " seeds " << seeds;
  }
}

INSTANTIATE_TEST_SUITE_P(AllDigests, DigestPrngModelTest,
                         ::testing::Values(Algo::kMd4, Algo::kMd5, Algo::kSha1),
                         [](const ::testing::TestParamInfo<Algo>& info) {
                           return std::string(AlgoName(info.param));
                         });

// ---------------------------------------------------------------------------
// The shared instance.

// Ends every start-up a test left behind, so that tests stay independent.
void ShutDownCompletely() {
  for (int i = 0; i < 1000; ++i) OvraUninitialize();
}

class SharedRandomTest : public ::testing::Test {
 protected:
  void SetUp() override { ShutDownCompletely(); }
  void TearDown() override {
    StopFailing();
    ShutDownCompletely();
  }
};

TEST_F(SharedRandomTest, UnseededSharedGeneratorGivesTheFixedSequence) {
  ASSERT_TRUE(OvraInitialize(nullptr));
  Bytes out(100);
  OvraGenerateRandom(out.data(), 100);
  TMd5Prng fresh;
  EXPECT_EQ(out, Generate(fresh, 100));
  EXPECT_EQ(ToHex(out.data(), 16), "4ae71336e44bf9bf79d2752e234818a5");
  OvraUninitialize();
}

TEST_F(SharedRandomTest, SeedRandomSeedsTheSharedGenerator) {
  ASSERT_TRUE(OvraInitialize(nullptr));
  ModelPrng model(Algo::kMd5);
  const Bytes s1 = FromText("application seed"), s2 = FromText("more entropy");
  Bytes out(64);
  OvraGenerateRandom(out.data(), 20);
  EXPECT_EQ(Bytes(out.begin(), out.begin() + 20), model.Generate(20));
  OvraSeedRandom(s1.data(), static_cast<unsigned>(s1.size()));
  model.Seed(s1);
  OvraGenerateRandom(out.data(), 64);
  EXPECT_EQ(out, model.Generate(64));
  OvraSeedRandom(s2.data(), static_cast<unsigned>(s2.size()));
  model.Seed(s2);
  OvraGenerateRandom(out.data(), 64);
  EXPECT_EQ(out, model.Generate(64));
  OvraUninitialize();
}

TEST_F(SharedRandomTest, NestedStartUpKeepsTheGeneratorAndTheLastShutdownEndsIt) {
  ASSERT_TRUE(OvraInitialize(nullptr));
  Bytes first(16), second(16);
  OvraGenerateRandom(first.data(), 16);
  ASSERT_TRUE(OvraInitialize(nullptr));  // nested: same generator goes on
  OvraGenerateRandom(second.data(), 16);
  EXPECT_NE(first, second);
  OvraUninitialize();
  OvraGenerateRandom(second.data(), 16);  // still running
  OvraUninitialize();
  // A new start-up makes a new generator: the fixed sequence starts over.
  ASSERT_TRUE(OvraInitialize(nullptr));
  OvraGenerateRandom(second.data(), 16);
  EXPECT_EQ(first, second);
  OvraUninitialize();
}

TEST_F(SharedRandomTest, OutsideStartUpTheFunctionsDoNothing) {
  unsigned char out[8] = {1, 2, 3, 4, 5, 6, 7, 8};
  OvraGenerateRandom(out, 8);
  OvraSeedRandom("x", 1);
  EXPECT_EQ(out[0], 1);
  EXPECT_EQ(out[7], 8);
  // And a seed given then does not reach the next generator.
  ASSERT_TRUE(OvraInitialize(nullptr));
  OvraGenerateRandom(out, 8);
  EXPECT_EQ(ToHex(out, 8), "4ae71336e44bf9bf");
  OvraUninitialize();
}

TEST_F(SharedRandomTest, StartUpSeedsThePlatformRandWithTheTime) {
  srand(12345);
  const int notReseeded = rand();
  srand(12345);
  const time_t before = time(nullptr);
  ASSERT_TRUE(OvraInitialize(nullptr));
  const time_t after = time(nullptr);
  const int value = rand();
  OvraUninitialize();
  bool matched = false;
  for (time_t t = before; t <= after; ++t) {
    srand(static_cast<unsigned>(t));
    if (rand() == value) matched = true;
  }
  EXPECT_TRUE(matched) << "rand() after start-up follows srand(time(0))";
  if (before > 12345 || after < 12345) {
    EXPECT_NE(value, notReseeded) << "the platform generator was not reseeded";
  }
}

TEST_F(SharedRandomTest, StartUpAndShutdownLeaveNoBlockBehind) {
  Stats().Reset();
  SAllocator allocator = CountingAllocator();
  ASSERT_TRUE(OvraInitialize(&allocator));
  EXPECT_GE(Stats().live.load(), 1) << "the shared generator lives on the installed allocator";
  unsigned char out[16];
  OvraGenerateRandom(out, 16);
  OvraUninitialize();
  EXPECT_EQ(Stats().live.load(), 0);
}

TEST_F(SharedRandomTest, FailedAllocationInRandInitMakesInitializeFail) {
  // Count the allocations of a whole start-up; the generator is the last
  // hook, so the last of them is its own.
  Stats().Reset();
  SAllocator allocator = CountingAllocator();
  ASSERT_TRUE(OvraInitialize(&allocator));
  const long startUpRequests = Stats().requests.load();
  OvraUninitialize();
  ASSERT_GE(startUpRequests, 1);

  Stats().Reset();
  FailNthAllocation(startUpRequests);
  EXPECT_FALSE(OvraInitialize(&allocator));
  EXPECT_EQ(Stats().requests.load(), startUpRequests) << "the chain stopped at the generator";
  StopFailing();
  // Not started: nothing was counted, the functions do nothing...
  unsigned char out[4] = {9, 9, 9, 9};
  OvraGenerateRandom(out, 4);
  EXPECT_EQ(out[0], 9);
  OvraUninitialize();  // unbalanced: harmless
  // ...and a later start-up runs the whole chain again and succeeds.
  ASSERT_TRUE(OvraInitialize(&allocator));
  OvraGenerateRandom(out, 4);
  EXPECT_EQ(ToHex(out, 4), "4ae71336");
  OvraUninitialize();
  EXPECT_EQ(Stats().live.load(), 0);
}

}  // namespace
