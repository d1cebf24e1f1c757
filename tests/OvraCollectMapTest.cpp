// Tests of the hash maps of OvraCollect (the array, list, pool and FIFO tests
// are in OvraCollectTest.cpp).
#include <gtest/gtest.h>
#include <string.h>

#include <algorithm>
#include <deque>
#include <map>
#include <random>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "AllocSweep.h"
#include "OvraBstr.h"
#include "OvraCollect.h"
#include "TestAllocator.h"
#include "TestWide.h"

using namespace ovra_test;

namespace {

void* P(uintptr_t n) { return reinterpret_cast<void*>(n); }

_GUID Guid(uint32_t data1, unsigned char last = 0) {
  _GUID g;
  memset(&g, 0, sizeof g);
  g.Data1 = data1;
  g.Data2 = 0x1234;
  g.Data3 = 0x5678;
  for (int i = 0; i < 7; ++i) g.Data4[i] = static_cast<unsigned char>(0xA0 + i);
  g.Data4[7] = last;
  return g;
}

bool SameGuid(const _GUID& a, const _GUID& b) { return memcmp(&a, &b, sizeof a) == 0; }

std::vector<std::pair<void*, void*>> Iterate(const TPtrFromPtrMap& m) {
  std::vector<std::pair<void*, void*>> out;
  POSITION pos = m.GetStartPosition();
  while (pos) {
    void* key = nullptr;
    void* value = nullptr;
    m.GetNextAssoc(pos, key, value);
    out.emplace_back(key, value);
    if (out.size() > 100000) break;  // a broken chain must not loop forever
  }
  return out;
}

std::vector<void*> Keys(const TPtrFromPtrMap& m) {
  std::vector<void*> keys;
  for (const auto& kv : Iterate(m)) keys.push_back(kv.first);
  return keys;
}

std::vector<void*> Ptrs(std::initializer_list<uintptr_t> values) {
  std::vector<void*> v;
  for (uintptr_t n : values) v.push_back(P(n));
  return v;
}

// ===========================================================================
// TPtrFromPtrMap

TEST(PtrFromPtrMapTest, NewMapHasTableSize17AndOwnsNoMemory) {
  ScopedCountingLibrary lib;
  TPtrFromPtrMap m;
  EXPECT_EQ(m.GetHashTableSize(), 17u);
  EXPECT_EQ(m.GetCount(), 0);
  EXPECT_TRUE(m.IsEmpty());
  EXPECT_EQ(m.GetStartPosition(), nullptr);
  void* value = P(0xBEEF);
  EXPECT_FALSE(m.Lookup(P(5), value));
  EXPECT_EQ(value, P(0xBEEF));  // untouched
  EXPECT_FALSE(m.RemoveKey(P(5)));
  EXPECT_EQ(Stats().requests, 0);
}

TEST(PtrFromPtrMapTest, HashIsThePointerValueModuloTheTableSize) {
  TPtrFromPtrMap m;
  unsigned int hash = 99;
  EXPECT_EQ(m.GetAssocAt(P(22), hash), nullptr);  // no bucket array yet
  EXPECT_EQ(hash, 5u);
  EXPECT_EQ(m.HashKey(P(22)), 22u);
  m.InitHashTable(31, false);
  m.GetAssocAt(P(100), hash);
  EXPECT_EQ(hash, 100u % 31u);
  m.GetAssocAt(P(0xFFFFFFFFu), hash);
  EXPECT_EQ(hash, 0xFFFFFFFFu % 31u);
}

TEST(PtrFromPtrMapTest, HashUsesEveryBitOfAWidePointer) {
  if (sizeof(void*) < 8) GTEST_SKIP() << "pointers are 32-bit here";
  TPtrFromPtrMap m;
  const uint64_t wide = (uint64_t{1} << 32) + 5;  // 2^32 = 1 (mod 17)
  unsigned int hash = 0;
  m.GetAssocAt(P(static_cast<uintptr_t>(wide)), hash);
  EXPECT_EQ(hash, 6u);
  EXPECT_EQ(m.HashKey(P(static_cast<uintptr_t>(wide))), static_cast<uintptr_t>(wide));
  m[P(static_cast<uintptr_t>(wide))] = P(1);
  m[P(5)] = P(2);
  m[P(6)] = P(3);
  // Bucket 5 holds key 5; bucket 6 holds 6, then the older wide key.
  EXPECT_EQ(Keys(m), Ptrs({5, 6, static_cast<uintptr_t>(wide)}));
}

TEST(PtrFromPtrMapTest, KeysSharingABucketIterateNewestFirst) {
  TPtrFromPtrMap m;
  m[P(5)] = P(50);
  m[P(22)] = P(220);
  unsigned int h5 = 0, h22 = 0;
  m.GetAssocAt(P(5), h5);
  m.GetAssocAt(P(22), h22);
  EXPECT_EQ(h5, 5u);
  EXPECT_EQ(h22, 5u);
  const auto items = Iterate(m);
  ASSERT_EQ(items.size(), 2u);
  EXPECT_EQ(items[0], std::make_pair(P(22), P(220)));
  EXPECT_EQ(items[1], std::make_pair(P(5), P(50)));
}

TEST(PtrFromPtrMapTest, IterationVisitsBucketsInAscendingOrder) {
  TPtrFromPtrMap m;
  for (uintptr_t k : {40, 3, 16, 20, 57, 0, 33, 17}) m[P(k)] = P(k + 1000);
  // Buckets: 0 <- 0, 17; 3 <- 3, 20; 6 <- 40, 57; 16 <- 16, 33 (in insertion
  // order; each bucket yields its newer key first).
  EXPECT_EQ(Keys(m), Ptrs({17, 0, 20, 3, 57, 40, 33, 16}));
  for (const auto& kv : Iterate(m)) {
    EXPECT_EQ(reinterpret_cast<uintptr_t>(kv.second), reinterpret_cast<uintptr_t>(kv.first) + 1000);
  }
}

TEST(PtrFromPtrMapTest, IteratingOneKeyYieldsItOnceAndEndsWithANullPosition) {
  TPtrFromPtrMap m;
  m[P(16)] = P(7);  // the last bucket: no later bucket to scan
  POSITION pos = m.GetStartPosition();
  ASSERT_EQ(pos, reinterpret_cast<POSITION>(~uintptr_t(0)));
  void* key = nullptr;
  void* value = nullptr;
  m.GetNextAssoc(pos, key, value);
  EXPECT_EQ(key, P(16));
  EXPECT_EQ(value, P(7));
  EXPECT_EQ(pos, nullptr);
  TPtrFromPtrMap first;
  first[P(0)] = P(1);  // the first bucket
  pos = first.GetStartPosition();
  first.GetNextAssoc(pos, key, value);
  EXPECT_EQ(key, P(0));
  EXPECT_EQ(pos, nullptr);
}

TEST(PtrFromPtrMapTest, SubscriptOfAMissingKeyInsertsNull) {
  TPtrFromPtrMap m;
  m[P(1)] = P(10);
  EXPECT_EQ(m[P(2)], nullptr);
  EXPECT_EQ(m.GetCount(), 2);
  void* value = P(99);
  EXPECT_TRUE(m.Lookup(P(2), value));
  EXPECT_EQ(value, nullptr);
  EXPECT_EQ(m[P(1)], P(10));  // present: no insertion
  EXPECT_EQ(m.GetCount(), 2);
  m[P(1)] = P(11);
  EXPECT_TRUE(m.Lookup(P(1), value));
  EXPECT_EQ(value, P(11));
}

TEST(PtrFromPtrMapTest, SetAtInsertsOrReplaces) {
  TPtrFromPtrMap m;
  EXPECT_TRUE(m.SetAt(P(3), P(30)));
  EXPECT_TRUE(m.SetAt(P(3), P(31)));
  EXPECT_TRUE(m.SetAt(nullptr, P(1)));  // the null pointer is a key like any other
  EXPECT_EQ(m.GetCount(), 2);
  void* value = nullptr;
  EXPECT_TRUE(m.Lookup(P(3), value));
  EXPECT_EQ(value, P(31));
  EXPECT_TRUE(m.Lookup(nullptr, value));
  EXPECT_EQ(value, P(1));
}

TEST(PtrFromPtrMapTest, RemoveKeyUnlinksFromAnywhereInTheChain) {
  TPtrFromPtrMap m;
  for (uintptr_t k : {1, 18, 35, 52}) m[P(k)] = P(k);  // one bucket: 52, 35, 18, 1
  EXPECT_FALSE(m.RemoveKey(P(69)));  // same bucket, absent
  EXPECT_FALSE(m.RemoveKey(P(2)));   // empty bucket
  EXPECT_TRUE(m.RemoveKey(P(35)));   // middle
  EXPECT_EQ(Keys(m), Ptrs({52, 18, 1}));
  EXPECT_TRUE(m.RemoveKey(P(52)));  // head
  EXPECT_EQ(Keys(m), Ptrs({18, 1}));
  EXPECT_TRUE(m.RemoveKey(P(1)));  // tail
  EXPECT_EQ(Keys(m), Ptrs({18}));
  EXPECT_FALSE(m.RemoveKey(P(1)));
  EXPECT_EQ(m.GetCount(), 1);
}

TEST(PtrFromPtrMapTest, FirstInsertionMakesTheBucketArrayThenOnePoolBlock) {
  ScopedCountingLibrary lib;
  TPtrFromPtrMap m;
  m[P(1)] = P(1);
  EXPECT_EQ(Stats().allocs, 2);
  for (uintptr_t k = 2; k <= 10; ++k) m[P(k)] = P(k);
  EXPECT_EQ(Stats().allocs, 2);  // ten associations per block
  m[P(11)] = P(11);
  EXPECT_EQ(Stats().allocs, 3);
  EXPECT_TRUE(m.RemoveKey(P(4)));
  m[P(12)] = P(12);  // reuses the freed association
  EXPECT_EQ(Stats().allocs, 3);
  EXPECT_EQ(Stats().live, 3);
}

TEST(PtrFromPtrMapTest, BlockSizeSetsTheAssociationsPerBlock) {
  ScopedCountingLibrary lib;
  TPtrFromPtrMap m(2), tiny(0);
  for (uintptr_t k = 1; k <= 5; ++k) m[P(k)] = P(k);
  EXPECT_EQ(Stats().allocs, 1 + 3);  // bucket array and three blocks
  tiny[P(1)] = P(1);
  tiny[P(2)] = P(2);
  EXPECT_EQ(Stats().allocs, 4 + 1 + 2);  // a block size below 1 is taken as 1
}

TEST(PtrFromPtrMapTest, RemovingTheLastKeyReleasesEverythingButKeepsTheSize) {
  ScopedCountingLibrary lib;
  TPtrFromPtrMap m;
  m.InitHashTable(31, true);
  EXPECT_EQ(Stats().live, 1);
  for (uintptr_t k = 1; k <= 15; ++k) m[P(k)] = P(k);
  EXPECT_EQ(Stats().live, 3);
  for (uintptr_t k = 1; k <= 15; ++k) ASSERT_TRUE(m.RemoveKey(P(k)));
  EXPECT_EQ(Stats().live, 0);
  EXPECT_EQ(m.GetCount(), 0);
  EXPECT_EQ(m.GetStartPosition(), nullptr);
  EXPECT_EQ(m.GetHashTableSize(), 31u);
  m[P(40)] = P(1);  // made again, at the same size
  EXPECT_EQ(Stats().live, 2);
  unsigned int hash = 0;
  EXPECT_NE(m.GetAssocAt(P(40), hash), nullptr);
  EXPECT_EQ(hash, 9u);
}

TEST(PtrFromPtrMapTest, RemoveAllReleasesEverythingAndDestructorToo) {
  ScopedCountingLibrary lib;
  {
    TPtrFromPtrMap m;
    for (uintptr_t k = 1; k <= 25; ++k) m[P(k)] = P(k);
    m.RemoveAll();
    EXPECT_EQ(m.GetCount(), 0);
    EXPECT_EQ(Stats().live, 0);
    void* value = nullptr;
    EXPECT_FALSE(m.Lookup(P(3), value));
    for (uintptr_t k = 1; k <= 25; ++k) m[P(k)] = P(k);
  }
  EXPECT_EQ(Stats().live, 0);
}

TEST(PtrFromPtrMapTest, InitHashTableWithoutAllocationTakesEffectOnFirstInsertion) {
  ScopedCountingLibrary lib;
  TPtrFromPtrMap m;
  m.InitHashTable(101, false);
  EXPECT_EQ(m.GetHashTableSize(), 101u);
  EXPECT_EQ(Stats().requests, 0);
  m[P(205)] = P(1);
  m[P(104)] = P(2);  // both fall in bucket 3 of 101 (in bucket 2 of 17)
  unsigned int hash = 0;
  m.GetAssocAt(P(205), hash);
  EXPECT_EQ(hash, 3u);
  EXPECT_EQ(Keys(m), Ptrs({104, 205}));
}

TEST(PtrFromPtrMapTest, InitHashTableWithAllocationMakesTheArrayNow) {
  ScopedCountingLibrary lib;
  TPtrFromPtrMap m;
  m.InitHashTable(7, true);
  EXPECT_EQ(Stats().allocs, 1);
  m.InitHashTable(11, true);  // replaces the empty array
  EXPECT_EQ(Stats().allocs, 2);
  EXPECT_EQ(Stats().live, 1);
  m.InitHashTable(13, false);  // releases it
  EXPECT_EQ(Stats().live, 0);
  EXPECT_EQ(m.GetHashTableSize(), 13u);
  m.InitHashTable(0, true);  // ignored: a zero-sized table cannot hash
  EXPECT_EQ(m.GetHashTableSize(), 13u);
  EXPECT_EQ(Stats().live, 0);
  m[P(14)] = P(1);
  unsigned int hash = 0;
  m.GetAssocAt(P(14), hash);
  EXPECT_EQ(hash, 1u);
}

TEST(PtrFromPtrMapTest, InitHashTableOnANonEmptyMapMovesTheAssociations) {
  ScopedCountingLibrary lib;
  TPtrFromPtrMap m;
  for (uintptr_t k = 0; k < 40; ++k) m[P(k * 3)] = P(k + 1);
  const long live = Stats().live;
  m.InitHashTable(5, false);
  EXPECT_EQ(m.GetHashTableSize(), 5u);
  EXPECT_EQ(m.GetCount(), 40);
  EXPECT_EQ(Stats().live, live);  // one array replaced by another
  for (uintptr_t k = 0; k < 40; ++k) {
    void* value = nullptr;
    ASSERT_TRUE(m.Lookup(P(k * 3), value));
    EXPECT_EQ(value, P(k + 1));
  }
  std::vector<unsigned int> buckets;
  for (void* key : Keys(m)) buckets.push_back(static_cast<unsigned int>(reinterpret_cast<uintptr_t>(key) % 5));
  EXPECT_EQ(buckets.size(), 40u);
  EXPECT_TRUE(std::is_sorted(buckets.begin(), buckets.end()));
}

TEST(PtrFromPtrMapTest, NewAssocHandsOutClearedCountedAssociations) {
  ScopedCountingLibrary lib;
  TPtrFromPtrMap m;
  TPtrFromPtrMap::SAssoc* a = m.NewAssoc();
  ASSERT_NE(a, nullptr);
  EXPECT_EQ(a->key, nullptr);
  EXPECT_EQ(a->value, nullptr);
  EXPECT_EQ(m.GetCount(), 1);
  EXPECT_EQ(Stats().live, 1);  // a pool block, no bucket array
  a->key = P(5);
  a->value = P(6);
  m.FreeAssoc(a);
  EXPECT_EQ(m.GetCount(), 0);
  EXPECT_EQ(Stats().live, 0);  // count 0 releases the pool
  TPtrFromPtrMap::SAssoc* b = m.NewAssoc();
  TPtrFromPtrMap::SAssoc* c = m.NewAssoc();
  // Slots are handed out from the first one of the block on.
  EXPECT_EQ(reinterpret_cast<char*>(c) - reinterpret_cast<char*>(b),
            static_cast<ptrdiff_t>(sizeof(TPtrFromPtrMap::SAssoc)));
  b->value = P(1);
  m.FreeAssoc(b);
  TPtrFromPtrMap::SAssoc* again = m.NewAssoc();
  EXPECT_EQ(again, b);  // the freed association comes back first, cleared
  EXPECT_EQ(again->value, nullptr);
  m.FreeAssoc(again);
  m.FreeAssoc(c);
  EXPECT_EQ(Stats().live, 0);
}

// --- running out of memory -------------------------------------------------

TEST(PtrFromPtrMapTest, FailedFirstInsertionLeavesAnEmptyMapWithoutMemory) {
  ScopedCountingLibrary lib;
  TPtrFromPtrMap m;
  for (long n = 1; n <= 2; ++n) {  // the bucket array, then the pool block
    FailNthAllocation(n);
    void*& slot = m[P(3)];
    EXPECT_EQ(slot, nullptr);
    slot = P(33);  // lands in the scratch slot: the map never sees it
    EXPECT_EQ(m.GetCount(), 0) << n;
    EXPECT_EQ(Stats().live, 0) << n;
    void* value = nullptr;
    EXPECT_FALSE(m.Lookup(P(3), value));
    FailNthAllocation(n);
    EXPECT_FALSE(m.SetAt(P(3), P(3)));
    EXPECT_EQ(m.GetCount(), 0);
    EXPECT_EQ(Stats().live, 0);
  }
  StopFailing();
  EXPECT_EQ(m[P(3)], nullptr);  // the scratch value did not leak in
  EXPECT_EQ(m.GetCount(), 1);
}

TEST(PtrFromPtrMapTest, FailedPoolGrowthLeavesTheMapUnchanged) {
  ScopedCountingLibrary lib;
  TPtrFromPtrMap m;
  for (uintptr_t k = 1; k <= 10; ++k) m[P(k)] = P(k * 10);
  const auto before = Iterate(m);
  const long live = Stats().live;
  FailNthAllocation(1);
  EXPECT_FALSE(m.SetAt(P(11), P(1)));
  FailNthAllocation(1);
  m[P(12)] = P(2);
  FailNthAllocation(1);
  EXPECT_TRUE(m.SetAt(P(5), P(55)));  // replacing needs no memory
  StopFailing();
  EXPECT_EQ(Stats().live, live);
  auto expected = before;
  for (auto& kv : expected) {
    if (kv.first == P(5)) kv.second = P(55);
  }
  EXPECT_EQ(Iterate(m), expected);
}

TEST(PtrFromPtrMapTest, FailedRehashLeavesTheMapUnchanged) {
  ScopedCountingLibrary lib;
  TPtrFromPtrMap m;
  for (uintptr_t k = 1; k <= 30; ++k) m[P(k * 7)] = P(k);
  const auto before = Iterate(m);
  FailNthAllocation(1);
  m.InitHashTable(101, true);
  StopFailing();
  EXPECT_EQ(m.GetHashTableSize(), 17u);
  EXPECT_EQ(Iterate(m), before);
}

TEST(PtrFromPtrMapTest, FailedInitHashTableOnAnEmptyMapDefersTheArray) {
  ScopedCountingLibrary lib;
  TPtrFromPtrMap m;
  FailNthAllocation(1);
  m.InitHashTable(29, true);
  StopFailing();
  EXPECT_EQ(m.GetHashTableSize(), 29u);
  EXPECT_EQ(Stats().live, 0);
  m[P(30)] = P(1);
  unsigned int hash = 0;
  EXPECT_NE(m.GetAssocAt(P(30), hash), nullptr);
  EXPECT_EQ(hash, 1u);
}

// ===========================================================================
// TPtrFromGuidMap

std::vector<std::pair<_GUID, void*>> Iterate(const TPtrFromGuidMap& m) {
  std::vector<std::pair<_GUID, void*>> out;
  POSITION pos = m.GetStartPosition();
  while (pos && out.size() <= 100000) {
    _GUID key;
    void* value = nullptr;
    m.GetNextAssoc(pos, key, value);
    out.emplace_back(key, value);
  }
  return out;
}

TEST(PtrFromGuidMapTest, NewMapHasTableSize17AndOwnsNoMemory) {
  ScopedCountingLibrary lib;
  TPtrFromGuidMap m;
  EXPECT_EQ(m.GetHashTableSize(), 17u);
  EXPECT_TRUE(m.IsEmpty());
  EXPECT_EQ(m.GetStartPosition(), nullptr);
  void* value = P(1);
  EXPECT_FALSE(m.Lookup(Guid(1), value));
  EXPECT_EQ(value, P(1));
  EXPECT_EQ(Stats().requests, 0);
}

TEST(PtrFromGuidMapTest, HashIsTheLeadingFieldModuloTheTableSize) {
  TPtrFromGuidMap m;
  EXPECT_EQ(m.HashKey(Guid(0xDEADBEEF)), 0xDEADBEEFu);
  unsigned int hash = 0;
  m.GetAssocAt(Guid(0xDEADBEEF), hash);
  EXPECT_EQ(hash, 0xDEADBEEFu % 17u);
  _GUID g = Guid(40);
  g.Data2 = 0xFFFF;  // the other fields do not take part
  m.GetAssocAt(g, hash);
  EXPECT_EQ(hash, 6u);
}

TEST(PtrFromGuidMapTest, KeysDifferingOnlyInTheLastByteAreDistinctAndShareABucket) {
  TPtrFromGuidMap m;
  const _GUID a = Guid(77, 1);
  const _GUID b = Guid(77, 2);
  m[a] = P(1);
  m[b] = P(2);
  EXPECT_EQ(m.GetCount(), 2);
  void* value = nullptr;
  ASSERT_TRUE(m.Lookup(a, value));
  EXPECT_EQ(value, P(1));
  ASSERT_TRUE(m.Lookup(b, value));
  EXPECT_EQ(value, P(2));
  EXPECT_FALSE(m.Lookup(Guid(77, 3), value));
  unsigned int ha = 0, hb = 0;
  m.GetAssocAt(a, ha);
  m.GetAssocAt(b, hb);
  EXPECT_EQ(ha, hb);
  const auto items = Iterate(m);
  ASSERT_EQ(items.size(), 2u);
  EXPECT_TRUE(SameGuid(items[0].first, b));  // newest first in the bucket
  EXPECT_TRUE(SameGuid(items[1].first, a));
}

TEST(PtrFromGuidMapTest, EveryWordOfTheKeyTakesPartInEquality) {
  TPtrFromGuidMap m;
  const _GUID base = Guid(5);
  m[base] = P(1);
  for (size_t byte = 4; byte < 16; ++byte) {
    _GUID other = base;
    reinterpret_cast<unsigned char*>(&other)[byte] ^= 0x01;
    void* value = nullptr;
    EXPECT_FALSE(m.Lookup(other, value)) << "byte " << byte;
    EXPECT_FALSE(m.RemoveKey(other)) << "byte " << byte;
  }
  EXPECT_TRUE(m.RemoveKey(base));
  EXPECT_TRUE(m.IsEmpty());
}

TEST(PtrFromGuidMapTest, IterationCopiesTheWholeKeyInBucketOrder) {
  TPtrFromGuidMap m;
  const _GUID k1 = Guid(18, 9);  // bucket 1
  const _GUID k0 = Guid(34, 8);  // bucket 0
  const _GUID k1b = Guid(1, 7);  // bucket 1, newer
  m[k1] = P(1);
  m[k0] = P(2);
  m[k1b] = P(3);
  const auto items = Iterate(m);
  ASSERT_EQ(items.size(), 3u);
  EXPECT_TRUE(SameGuid(items[0].first, k0));
  EXPECT_TRUE(SameGuid(items[1].first, k1b));
  EXPECT_TRUE(SameGuid(items[2].first, k1));
  EXPECT_EQ(items[0].second, P(2));
  EXPECT_EQ(items[1].second, P(3));
  EXPECT_EQ(items[2].second, P(1));
}

TEST(PtrFromGuidMapTest, NewAssocClearsTheKeyToZeroBytes) {
  TPtrFromGuidMap m;
  TPtrFromGuidMap::SAssoc* a = m.NewAssoc();
  ASSERT_NE(a, nullptr);
  memset(&a->key, 0xFF, sizeof a->key);
  a->value = P(9);
  m.FreeAssoc(a);
  // Two live associations keep the pool; the recycled one comes back cleared.
  TPtrFromGuidMap::SAssoc* keep = m.NewAssoc();
  TPtrFromGuidMap::SAssoc* b = m.NewAssoc();
  memset(&b->key, 0xFF, sizeof b->key);
  m.FreeAssoc(b);
  TPtrFromGuidMap::SAssoc* c = m.NewAssoc();
  EXPECT_EQ(c, b);
  _GUID zero;
  memset(&zero, 0, sizeof zero);
  EXPECT_TRUE(SameGuid(c->key, zero));
  EXPECT_EQ(c->value, nullptr);
  m.FreeAssoc(c);
  m.FreeAssoc(keep);
}

TEST(PtrFromGuidMapTest, RemovingTheLastKeyReleasesEverything) {
  ScopedCountingLibrary lib;
  TPtrFromGuidMap m;
  m[Guid(3)] = P(1);
  m[Guid(20)] = P(2);
  EXPECT_EQ(Stats().live, 2);
  EXPECT_TRUE(m.RemoveKey(Guid(3)));
  EXPECT_TRUE(m.RemoveKey(Guid(20)));
  EXPECT_EQ(Stats().live, 0);
  EXPECT_EQ(m.GetHashTableSize(), 17u);
}

TEST(PtrFromGuidMapTest, FailedInsertionLeavesTheMapUnchanged) {
  ScopedCountingLibrary lib;
  TPtrFromGuidMap m;
  FailNthAllocation(2);
  EXPECT_FALSE(m.SetAt(Guid(1), P(1)));
  EXPECT_EQ(Stats().live, 0);
  StopFailing();
  EXPECT_TRUE(m.SetAt(Guid(1), P(1)));
  FailNthAllocation(1);
  m.InitHashTable(3, true);
  StopFailing();
  EXPECT_EQ(m.GetHashTableSize(), 17u);
  EXPECT_EQ(m.GetCount(), 1);
}

// ===========================================================================
// Randomized comparison with std::unordered_map, iteration order and pool
// included. The model keeps each bucket's keys newest first.

struct PtrMapKind {
  typedef TPtrFromPtrMap Map;
  typedef uintptr_t Key;
  static Key RandomKey(std::mt19937& rng) {
    // Small values collide in buckets; on wide platforms some keys use the
    // upper half of the pointer too.
    uintptr_t k = rng() % 300;
    if (sizeof(uintptr_t) > 4 && rng() % 4 == 0) k += static_cast<uintptr_t>(rng() % 7) << 16 << 16;
    return k;
  }
  static unsigned int Bucket(Key k, unsigned int size) { return static_cast<unsigned int>(k % size); }
  static bool Lookup(const Map& m, Key k, void*& v) { return m.Lookup(P(k), v); }
  static void*& Subscript(Map& m, Key k) { return m[P(k)]; }
  static bool SetAt(Map& m, Key k, void* v) { return m.SetAt(P(k), v); }
  static bool RemoveKey(Map& m, Key k) { return m.RemoveKey(P(k)); }
  static std::vector<std::pair<Key, void*>> Items(const Map& m) {
    std::vector<std::pair<Key, void*>> out;
    for (const auto& kv : Iterate(m)) out.emplace_back(reinterpret_cast<uintptr_t>(kv.first), kv.second);
    return out;
  }
  static long KeyAllocs(Key) { return 0; }
};

struct GuidMapKind {
  typedef TPtrFromGuidMap Map;
  // The model's key: the leading field and the last byte (the rest is fixed).
  typedef uint64_t Key;
  static Key RandomKey(std::mt19937& rng) { return (uint64_t{rng() % 200} << 8) | (rng() % 3); }
  // The leading field uses its upper bits too: (v << 20) | v for v < 200.
  static _GUID ToGuid(Key k) {
    const uint32_t v = static_cast<uint32_t>(k >> 8);
    return Guid((v << 20) | v, static_cast<unsigned char>(k & 0xFF));
  }
  static unsigned int Bucket(Key k, unsigned int size) { return ToGuid(k).Data1 % size; }
  static bool Lookup(const Map& m, Key k, void*& v) { return m.Lookup(ToGuid(k), v); }
  static void*& Subscript(Map& m, Key k) { return m[ToGuid(k)]; }
  static bool SetAt(Map& m, Key k, void* v) { return m.SetAt(ToGuid(k), v); }
  static bool RemoveKey(Map& m, Key k) { return m.RemoveKey(ToGuid(k)); }
  static std::vector<std::pair<Key, void*>> Items(const Map& m) {
    std::vector<std::pair<Key, void*>> out;
    for (const auto& kv : Iterate(m)) {
      const Key k = (uint64_t{kv.first.Data1 & 0xFFFu} << 8) | kv.first.Data4[7];
      EXPECT_TRUE(SameGuid(kv.first, ToGuid(k)));
      out.emplace_back(k, kv.second);
    }
    return out;
  }
  static long KeyAllocs(Key) { return 0; }
};

template <class Kind>
void RunRandomMapModel(unsigned seed, int blockSize) {
  typedef typename Kind::Key Key;
  ScopedCountingLibrary lib;
  std::mt19937 rng(seed);
  typename Kind::Map map(blockSize);
  std::unordered_map<Key, void*> model;
  std::vector<std::deque<Key>> buckets;  // present only while the map has a bucket array
  unsigned int tableSize = 17;
  long blocks = 0, freeAssocs = 0;

  long keyBlocks = 0;  // memory owned by the keys' copies
  auto insert = [&](Key k, long failAt) {
    // Allocations needed, in order: the bucket array, a pool block, the key's copy.
    const long needed = (buckets.empty() ? 1 : 0) + (freeAssocs == 0 ? 1 : 0) + Kind::KeyAllocs(k);
    if (failAt != 0 && failAt <= needed) return false;
    keyBlocks += Kind::KeyAllocs(k);
    if (buckets.empty()) buckets.resize(tableSize);
    if (freeAssocs == 0) {
      ++blocks;
      freeAssocs += blockSize;
    }
    --freeAssocs;
    buckets[Kind::Bucket(k, tableSize)].push_front(k);
    return true;
  };
  auto release = [&]() {
    buckets.clear();
    blocks = freeAssocs = 0;
    keyBlocks = 0;
  };

  for (int step = 0; step < 30000; ++step) {
    const Key k = Kind::RandomKey(rng);
    void* v = P(1 + rng() % 1000);
    const long failAt = rng() % 5 == 0 ? 1 + static_cast<long>(rng() % 3) : 0;
    if (failAt) FailNthAllocation(failAt);
    const bool present = model.count(k) != 0;
    const unsigned op = rng() % 10;
    switch (op) {
      case 0:
      case 1:
      case 2: {
        const bool ok = present || insert(k, failAt);
        if (ok) model[k] = v;
        ASSERT_EQ(Kind::SetAt(map, k, v), ok);
        break;
      }
      case 3: {
        const bool ok = present || insert(k, failAt);
        void*& slot = Kind::Subscript(map, k);
        if (ok) {
          if (!present) model[k] = nullptr;
          ASSERT_EQ(slot, model[k]);
          slot = v;
          model[k] = v;
        } else {
          ASSERT_EQ(slot, nullptr);
          slot = v;  // the scratch slot: must not reach the map
        }
        break;
      }
      case 4:
      case 5:
      case 6: {
        ASSERT_EQ(Kind::RemoveKey(map, k), present);
        if (present) {
          model.erase(k);
          auto& chain = buckets[Kind::Bucket(k, tableSize)];
          chain.erase(std::find(chain.begin(), chain.end(), k));
          ++freeAssocs;
          keyBlocks -= Kind::KeyAllocs(k);
          if (model.empty()) release();
        }
        break;
      }
      case 7: {
        void* value = P(0xABC);
        ASSERT_EQ(Kind::Lookup(map, k, value), present);
        ASSERT_EQ(value, present ? model[k] : P(0xABC));
        break;
      }
      case 8: {
        const unsigned int size = 1 + rng() % 40;
        const bool allocNow = rng() % 2 != 0;
        map.InitHashTable(size, allocNow);
        if (model.empty()) {
          tableSize = size;
          buckets.clear();
          if (allocNow && failAt != 1) buckets.resize(size);
        } else if (failAt != 1) {
          // Moved bucket by bucket, each chain from its head, to the front of
          // its new bucket.
          std::vector<std::deque<Key>> moved(size);
          for (const auto& chain : buckets) {
            for (Key key : chain) moved[Kind::Bucket(key, size)].push_front(key);
          }
          buckets.swap(moved);
          tableSize = size;
        }
        break;
      }
      default:
        if (rng() % 10 == 0) {
          map.RemoveAll();
          model.clear();
          release();
        }
        break;
    }
    StopFailing();
    ASSERT_EQ(map.GetCount(), static_cast<int>(model.size())) << "step " << step << " op " << op;
    ASSERT_EQ(map.GetHashTableSize(), tableSize) << "step " << step;
    ASSERT_EQ(Stats().live, (buckets.empty() ? 0 : 1) + blocks + keyBlocks)
        << "step " << step << " op " << op;
    if (step % 7 == 0 || op == 8) {
      std::vector<std::pair<Key, void*>> expected;
      for (const auto& chain : buckets) {
        for (Key key : chain) expected.emplace_back(key, model[key]);
      }
      ASSERT_TRUE(Kind::Items(map) == expected) << "step " << step << " op " << op;
    }
  }
}

TEST(PtrFromPtrMapTest, RandomOperationsMatchAnUnorderedMapIncludingOrderAndPool) {
  RunRandomMapModel<PtrMapKind>(1234, 10);
  RunRandomMapModel<PtrMapKind>(99, 1);
  RunRandomMapModel<PtrMapKind>(4242, 7);
}

TEST(PtrFromGuidMapTest, RandomOperationsMatchAnUnorderedMapIncludingOrderAndPool) {
  RunRandomMapModel<GuidMapKind>(5678, 10);
  RunRandomMapModel<GuidMapKind>(31337, 3);
}

// ===========================================================================
// TPtrFromBstrMap

// A zero-terminated 16-bit copy of a UTF-16 literal.
struct W {
  std::vector<unsigned short> units;
  explicit W(const std::u16string& s) : units(s.begin(), s.end()) { units.push_back(0); }
  operator const unsigned short*() const { return units.data(); }
};

std::u16string Text(const TBstr& s) {
  const unsigned short* p = s.GetString();
  return std::u16string(p, p + s.GetLength());
}

// The hash computed independently: 64-bit arithmetic reduced to 32 bits.
unsigned int ExpectedHash(const std::u16string& s) {
  uint64_t h = 0;
  for (char16_t c : s) h = (h * 33 + c) & 0xFFFFFFFFu;
  return static_cast<unsigned int>(h);
}

std::vector<std::pair<std::u16string, void*>> Iterate(const TPtrFromBstrMap& m) {
  std::vector<std::pair<std::u16string, void*>> out;
  POSITION pos = m.GetStartPosition();
  while (pos && out.size() <= 100000) {
    TBstr key;
    void* value = nullptr;
    m.GetNextAssoc(pos, key, value);
    out.emplace_back(Text(key), value);
  }
  return out;
}

std::vector<std::u16string> Keys(const TPtrFromBstrMap& m) {
  std::vector<std::u16string> keys;
  for (const auto& kv : Iterate(m)) keys.push_back(kv.first);
  return keys;
}

TEST(PtrFromBstrMapTest, NewMapHasTableSize17AndOwnsNoMemory) {
  ScopedCountingLibrary lib;
  TPtrFromBstrMap m;
  EXPECT_EQ(m.GetHashTableSize(), 17u);
  EXPECT_TRUE(m.IsEmpty());
  EXPECT_EQ(m.GetStartPosition(), nullptr);
  void* value = P(3);
  EXPECT_FALSE(m.Lookup(W(u"key"), value));
  EXPECT_EQ(value, P(3));
  EXPECT_FALSE(m.RemoveKey(W(u"key")));
  EXPECT_EQ(Stats().requests, 0);
}

TEST(PtrFromBstrMapTest, HashKeyIsTimes33PlusEachCodeUnit) {
  TPtrFromBstrMap m;
  EXPECT_EQ(m.HashKey(W(u"")), 0u);
  EXPECT_EQ(m.HashKey(nullptr), 0u);
  EXPECT_EQ(m.HashKey(W(u"A")), 65u);
  EXPECT_EQ(m.HashKey(W(u"AB")), 2211u);
  // Long keys wrap around in 32 bits; every code unit counts in full.
  const std::u16string longKey = u"The quick brown fox jumps over the lazy dog \uFFFF\u1234";
  EXPECT_EQ(m.HashKey(W(longKey)), ExpectedHash(longKey));
  const std::u16string wide = u"\uFFFF\uFFFF\uFFFF\uFFFF\uFFFF\uFFFF\uFFFF";
  EXPECT_EQ(m.HashKey(W(wide)), ExpectedHash(wide));
  unsigned int hash = 0;
  EXPECT_EQ(m.GetAssocAt(W(u"AB"), hash), nullptr);  // no bucket array yet
  EXPECT_EQ(hash, 2211u % 17u);
}

TEST(PtrFromBstrMapTest, IterationIsBucketOrderNewestFirstWithinABucket) {
  TPtrFromBstrMap m;
  // "A" (65) and "R" (82) share bucket 14; "AB" (2211) is in bucket 1 and the
  // empty key in bucket 0.
  m[W(u"A")] = P(1);
  m[W(u"AB")] = P(2);
  m[W(u"R")] = P(3);
  m[W(u"")] = P(4);
  const auto items = Iterate(m);
  ASSERT_EQ(items.size(), 4u);
  EXPECT_EQ(items[0], std::make_pair(std::u16string(u""), P(4)));
  EXPECT_EQ(items[1], std::make_pair(std::u16string(u"AB"), P(2)));
  EXPECT_EQ(items[2], std::make_pair(std::u16string(u"R"), P(3)));
  EXPECT_EQ(items[3], std::make_pair(std::u16string(u"A"), P(1)));
}

TEST(PtrFromBstrMapTest, AssociationsRememberTheirBucketIndex) {
  TPtrFromBstrMap m;
  m.InitHashTable(31, true);
  m[W(u"hello")] = P(1);
  unsigned int hash = 0;
  TPtrFromBstrMap::SAssoc* a = m.GetAssocAt(W(u"hello"), hash);
  ASSERT_NE(a, nullptr);
  EXPECT_EQ(hash, ExpectedHash(u"hello") % 31u);
  EXPECT_EQ(a->nHashValue, hash);
  EXPECT_EQ(Text(a->key), u"hello");
}

TEST(PtrFromBstrMapTest, IterationScansOnFromTheStoredBucketIndexNotARehash) {
  TPtrFromBstrMap m;
  m[W(u"")] = P(1);    // bucket 0
  m[W(u"AB")] = P(2);  // bucket 1
  m[W(u"A")] = P(3);   // bucket 14
  unsigned int hash = 0;
  TPtrFromBstrMap::SAssoc* empty = m.GetAssocAt(W(u""), hash);
  ASSERT_NE(empty, nullptr);
  // Pretend the empty key had been stored in bucket 13: the scan for the next
  // association then starts at bucket 14 and passes bucket 1 by.
  empty->nHashValue = 13;
  EXPECT_EQ(Keys(m), (std::vector<std::u16string>{u"", u"A"}));
  empty->nHashValue = 0;
  EXPECT_EQ(Keys(m), (std::vector<std::u16string>{u"", u"AB", u"A"}));
}

TEST(PtrFromBstrMapTest, KeysAreCopiedAndComparedByText) {
  TPtrFromBstrMap m;
  W key(u"abc");
  m[key] = P(1);
  key.units[0] = 'x';  // the map holds its own copy
  void* value = nullptr;
  EXPECT_TRUE(m.Lookup(W(u"abc"), value));
  EXPECT_EQ(value, P(1));
  EXPECT_FALSE(m.Lookup(key, value));
  EXPECT_FALSE(m.Lookup(W(u"ABC"), value));  // case counts
  EXPECT_FALSE(m.Lookup(W(u"ab"), value));
  EXPECT_FALSE(m.Lookup(W(u"abcd"), value));
  EXPECT_EQ(Keys(m), std::vector<std::u16string>{u"abc"});
}

TEST(PtrFromBstrMapTest, NullAndEmptyKeysAreTheSameKey) {
  ScopedCountingLibrary lib;
  TPtrFromBstrMap m;
  m[nullptr] = P(5);
  EXPECT_EQ(Stats().live, 2);  // the empty key needs no copy
  void* value = nullptr;
  EXPECT_TRUE(m.Lookup(W(u""), value));
  EXPECT_EQ(value, P(5));
  EXPECT_TRUE(m.SetAt(W(u""), P(6)));
  EXPECT_EQ(m.GetCount(), 1);
  EXPECT_TRUE(m.RemoveKey(nullptr));
  EXPECT_TRUE(m.IsEmpty());
  EXPECT_EQ(Stats().live, 0);
}

TEST(PtrFromBstrMapTest, SubscriptOfAMissingKeyInsertsNull) {
  TPtrFromBstrMap m;
  EXPECT_EQ(m[W(u"one")], nullptr);
  EXPECT_EQ(m.GetCount(), 1);
  m[W(u"one")] = P(1);
  EXPECT_EQ(m[W(u"one")], P(1));
  EXPECT_EQ(m.GetCount(), 1);
  EXPECT_TRUE(m.SetAt(W(u"two"), P(2)));
  EXPECT_EQ(m.GetCount(), 2);
}

TEST(PtrFromBstrMapTest, IteratingOneKeyYieldsItOnceAndEndsWithANullPosition) {
  TPtrFromBstrMap m;
  m[W(u"solo")] = P(9);
  POSITION pos = m.GetStartPosition();
  TBstr key(W(u"previous"));
  void* value = nullptr;
  m.GetNextAssoc(pos, key, value);
  EXPECT_EQ(Text(key), u"solo");
  EXPECT_EQ(value, P(9));
  EXPECT_EQ(pos, nullptr);
}

TEST(PtrFromBstrMapTest, MemoryIsTheBucketArrayPoolBlocksAndOneCopyPerKey) {
  ScopedCountingLibrary lib;
  TPtrFromBstrMap m;
  m[W(u"k0")] = P(0);
  EXPECT_EQ(Stats().allocs, 3);  // bucket array, pool block, key copy
  for (int i = 1; i < 10; ++i) m[W(std::u16string(u"k") + char16_t('0' + i))] = P(i);
  EXPECT_EQ(Stats().live, 2 + 10);
  m[W(u"k10")] = P(10);  // the eleventh association needs a second block
  EXPECT_EQ(Stats().live, 3 + 11);
  EXPECT_TRUE(m.RemoveKey(W(u"k3")));  // its key copy goes at once
  EXPECT_EQ(Stats().live, 3 + 10);
  m.RemoveAll();  // destroys every remaining key
  EXPECT_EQ(Stats().live, 0);
  EXPECT_EQ(m.GetHashTableSize(), 17u);
  for (int i = 0; i < 12; ++i) m[W(std::u16string(u"again") + char16_t('a' + i))] = P(i);
  for (int i = 0; i < 12; ++i) {
    ASSERT_TRUE(m.RemoveKey(W(std::u16string(u"again") + char16_t('a' + i))));
  }
  EXPECT_EQ(Stats().live, 0);  // the last removal released everything
  {
    TPtrFromBstrMap scoped;
    scoped[W(u"x")] = P(1);
    scoped[W(u"y")] = P(2);
  }
  EXPECT_EQ(Stats().live, 0);  // the destructor destroys the keys
}

TEST(PtrFromBstrMapTest, NewAssocHandsOutAnEmptyKeyWithoutAllocating) {
  ScopedCountingLibrary lib;
  TPtrFromBstrMap m;
  TPtrFromBstrMap::SAssoc* keep = m.NewAssoc();
  ASSERT_NE(keep, nullptr);
  EXPECT_EQ(Stats().allocs, 1);  // the pool block only
  EXPECT_TRUE(keep->key.IsEmpty());
  EXPECT_EQ(keep->value, nullptr);
  TPtrFromBstrMap::SAssoc* a = m.NewAssoc();
  a->key.Assign(W(u"owned"));
  EXPECT_EQ(Stats().live, 2);
  m.FreeAssoc(a);  // destroys the key
  EXPECT_EQ(Stats().live, 1);
  TPtrFromBstrMap::SAssoc* b = m.NewAssoc();
  EXPECT_EQ(b, a);
  EXPECT_TRUE(b->key.IsEmpty());
  m.FreeAssoc(b);
  m.FreeAssoc(keep);
  EXPECT_EQ(Stats().live, 0);
}

TEST(PtrFromBstrMapTest, InitHashTableOnANonEmptyMapRecomputesTheStoredIndexes) {
  TPtrFromBstrMap m;
  const std::vector<std::u16string> keys = {u"alpha", u"beta", u"gamma", u"delta", u"epsilon",
                                            u"zeta", u"eta", u"theta"};
  for (size_t i = 0; i < keys.size(); ++i) m[W(keys[i])] = P(i + 1);
  m.InitHashTable(3, false);
  EXPECT_EQ(m.GetHashTableSize(), 3u);
  std::vector<unsigned int> buckets;
  for (const auto& kv : Iterate(m)) {
    unsigned int hash = 0;
    TPtrFromBstrMap::SAssoc* a = m.GetAssocAt(W(kv.first), hash);
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(a->nHashValue, ExpectedHash(kv.first) % 3u);
    EXPECT_EQ(hash, a->nHashValue);
    buckets.push_back(hash);
  }
  EXPECT_EQ(buckets.size(), keys.size());
  EXPECT_TRUE(std::is_sorted(buckets.begin(), buckets.end()));
}

// --- running out of memory -------------------------------------------------

TEST(PtrFromBstrMapTest, FailedKeyCopyLeavesTheMapUnchangedAndReleasesWhatItMade) {
  ScopedCountingLibrary lib;
  TPtrFromBstrMap m;
  for (long n = 1; n <= 3; ++n) {  // bucket array, pool block, key copy
    FailNthAllocation(n);
    EXPECT_FALSE(m.SetAt(W(u"first"), P(1))) << n;
    EXPECT_EQ(m.GetCount(), 0);
    EXPECT_EQ(Stats().live, 0) << n;
    FailNthAllocation(n);
    void*& slot = m[W(u"first")];
    slot = P(7);  // the scratch slot
    EXPECT_EQ(m.GetCount(), 0);
    EXPECT_EQ(Stats().live, 0) << n;
  }
  StopFailing();
  for (int i = 0; i < 10; ++i) m[W(std::u16string(u"key") + char16_t('a' + i))] = P(i);
  const auto before = Iterate(m);
  const long live = Stats().live;
  // The pool is full: a new block, then the key copy; failing the copy must
  // release the new block again.
  FailNthAllocation(2);
  EXPECT_FALSE(m.SetAt(W(u"eleventh"), P(11)));
  EXPECT_EQ(Stats().live, live);
  StopFailing();
  EXPECT_TRUE(m.RemoveKey(W(u"keya")));
  const auto afterRemove = Iterate(m);
  const long liveAfterRemove = Stats().live;
  FailNthAllocation(1);  // a free association is at hand: only the copy fails
  EXPECT_FALSE(m.SetAt(W(u"eleventh"), P(11)));
  StopFailing();
  EXPECT_EQ(Stats().live, liveAfterRemove);
  EXPECT_EQ(Iterate(m), afterRemove);
  EXPECT_EQ(afterRemove.size() + 1, before.size());
  EXPECT_TRUE(m.SetAt(W(u"eleventh"), P(11)));
  EXPECT_EQ(m.GetCount(), 10);
}

TEST(PtrFromBstrMapTest, FailedKeyCopyDuringIterationEmptiesTheKeyAndAdvances) {
  ScopedCountingLibrary lib;
  TPtrFromBstrMap m;
  m[W(u"A")] = P(1);
  m[W(u"AB")] = P(2);
  POSITION pos = m.GetStartPosition();
  TBstr key(W(u"old"));
  void* value = nullptr;
  FailNthAllocation(1);
  m.GetNextAssoc(pos, key, value);
  StopFailing();
  EXPECT_TRUE(key.IsEmpty());
  EXPECT_EQ(value, P(2));  // "AB" in bucket 1 comes first
  ASSERT_NE(pos, nullptr);
  m.GetNextAssoc(pos, key, value);
  EXPECT_EQ(Text(key), u"A");
  EXPECT_EQ(pos, nullptr);
}

struct BstrMapKind {
  typedef TPtrFromBstrMap Map;
  typedef std::u16string Key;
  static Key RandomKey(std::mt19937& rng) {
    // Short keys over a small alphabet, the empty key among them.
    static const char16_t kAlphabet[] = u"abAB\u00E9\uFFFF";
    Key k;
    const unsigned length = rng() % 4;
    for (unsigned i = 0; i < length; ++i) k += kAlphabet[rng() % 6];
    return k;
  }
  static unsigned int Bucket(const Key& k, unsigned int size) { return ExpectedHash(k) % size; }
  static bool Lookup(const Map& m, const Key& k, void*& v) { return m.Lookup(W(k), v); }
  static void*& Subscript(Map& m, const Key& k) { return m[W(k)]; }
  static bool SetAt(Map& m, const Key& k, void* v) { return m.SetAt(W(k), v); }
  static bool RemoveKey(Map& m, const Key& k) { return m.RemoveKey(W(k)); }
  static std::vector<std::pair<Key, void*>> Items(const Map& m) { return Iterate(m); }
  static long KeyAllocs(const Key& k) { return k.empty() ? 0 : 1; }
};

TEST(PtrFromBstrMapTest, RandomOperationsMatchAnUnorderedMapIncludingOrderAndPool) {
  RunRandomMapModel<BstrMapKind>(2718, 10);
  RunRandomMapModel<BstrMapKind>(1618, 4);
}

// --- Allocation failures ---------------------------------------------------
// Each operation runs with its 1st, 2nd, ... allocation failing, alone and
// with every later one (AllocSweep.h), until it goes through; every run must
// give the documented out-of-memory result and leak nothing. The N each sweep
// reaches is printed ("[ SWEEP    ]").

std::map<void*, void*> Contents(const TPtrFromPtrMap& map) {
  std::map<void*, void*> out;
  POSITION pos = map.GetStartPosition();
  while (pos) {
    void* key = nullptr;
    void* value = nullptr;
    map.GetNextAssoc(pos, key, value);
    out[key] = value;
  }
  return out;
}

std::map<std::u16string, void*> Contents(const TPtrFromBstrMap& map) {
  std::map<std::u16string, void*> out;
  POSITION pos = map.GetStartPosition();
  while (pos) {
    TBstr key;
    void* value = nullptr;
    map.GetNextAssoc(pos, key, value);
    out[Text(key)] = value;
  }
  return out;
}

// The 16 bytes of an identifier, as an ordered key for comparisons.
std::string GuidBytes(const _GUID& g) { return std::string(reinterpret_cast<const char*>(&g), sizeof g); }

std::map<std::string, void*> Contents(const TPtrFromGuidMap& map) {
  std::map<std::string, void*> out;
  POSITION pos = map.GetStartPosition();
  while (pos) {
    _GUID key{};
    void* value = nullptr;
    map.GetNextAssoc(pos, key, value);
    out[GuidBytes(key)] = value;
  }
  return out;
}

// An identifier of zeros but for its first field and last byte.
_GUID GuidOf(uint32_t first, unsigned char last) {
  _GUID g{};
  g.Data1 = first;
  g.Data4[7] = last;
  return g;
}

// The text of s as the library's character type (valid while s lives).
const unsigned short* U(const std::u16string& s) {
  return reinterpret_cast<const unsigned short*>(s.c_str());
}

class AllocSweepCollect : public SweepTest {};

// The maps share one shape of sweep: insert a new key into a map made by
// prepare, by SetAt or by operator[]; on failure the map must hold exactly
// what it held, and the scratch slot operator[] returns must be writable.
// contentsKey turns a key into the key type of contents' result.
template <class Map, class Key, class Contents, class ContentsKey>
void SweepMapInsertions(const std::string& name, int blockSize, std::vector<Key> existing,
                        Key added, Contents contents, ContentsKey contentsKey) {
  for (size_t count : {size_t(0), existing.size()}) {
    const std::string what = name + (count ? "(full pool)" : "(empty)");
    auto prepare = [&](Map& map) {
      for (size_t i = 0; i < count; ++i) ASSERT_TRUE(map.SetAt(existing[i], P(100 + i)));
    };
    SweepBothModes(name + "::SetAt" + what.substr(name.size()), [&](SweepRun& run) {
      Map map(blockSize);
      prepare(map);
      const auto before = contents(map);
      run.Arm();
      const bool ok = map.SetAt(added, P(7));
      const bool failed = run.Disarm();
      EXPECT_EQ(ok, !failed) << what;
      auto expected = before;
      if (!failed) expected[contentsKey(added)] = P(7);
      EXPECT_EQ(contents(map), expected) << what << " n=" << run.n();
      EXPECT_EQ(map.GetCount(), static_cast<int>(expected.size()));
      void* value = nullptr;
      EXPECT_EQ(map.Lookup(added, value), !failed);
    });
    SweepBothModes(name + "::operator[]" + what.substr(name.size()), [&](SweepRun& run) {
      Map map(blockSize);
      prepare(map);
      const auto before = contents(map);
      run.Arm();
      void*& slot = map[added];
      const bool failed = run.Disarm();
      if (!failed) {
        EXPECT_EQ(slot, nullptr);
      }
      slot = P(8);  // lost when it is the scratch slot
      auto expected = before;
      if (!failed) expected[contentsKey(added)] = P(8);
      EXPECT_EQ(contents(map), expected) << what << " n=" << run.n();
    });
  }
  // Rehashing a non-empty map into a new bucket array.
  SweepBothModes(name + "::InitHashTable(non-empty)", [&](SweepRun& run) {
    Map map(blockSize);
    for (const Key& key : existing) ASSERT_TRUE(map.SetAt(key, P(1)));
    const auto before = contents(map);
    const unsigned int size = map.GetHashTableSize();
    run.Arm();
    map.InitHashTable(31);
    const bool failed = run.Disarm();
    EXPECT_EQ(map.GetHashTableSize(), failed ? size : 31u);
    EXPECT_EQ(contents(map), before);
    for (const Key& key : existing) {
      void* value = nullptr;
      EXPECT_TRUE(map.Lookup(key, value));
    }
  });
}

TEST_F(AllocSweepCollect, MapInsertionsLeaveTheMapUnchangedAtEveryFailure) {
  SweepMapInsertions<TPtrFromPtrMap>("TPtrFromPtrMap", 2, std::vector<void*>{P(16), P(32)}, P(48),
                                     [](const TPtrFromPtrMap& map) { return Contents(map); },
                                     [](void* k) { return k; });
  SweepMapInsertions<TPtrFromGuidMap>("TPtrFromGuidMap", 2,
                                      std::vector<_GUID>{GuidOf(1, 1), GuidOf(1, 2)}, GuidOf(18, 3),
                                      [](const TPtrFromGuidMap& map) { return Contents(map); },
                                      GuidBytes);
  // String keys: the pool block, the bucket array and the key's copy.
  const std::u16string a = u"alpha", b = u"beta", c = u"gamma";
  SweepMapInsertions<TPtrFromBstrMap>(
      "TPtrFromBstrMap", 2, std::vector<const unsigned short*>{U(a), U(b)}, U(c),
      [](const TPtrFromBstrMap& map) { return Contents(map); },
      [](const unsigned short* key) { return ovra_test::ToU16(key); });
}

TEST_F(AllocSweepCollect, BstrMapIterationLeavesAKeyEmptyWhenItsCopyFails) {
  SweepBothModes("TPtrFromBstrMap::GetNextAssoc", [](SweepRun& run) {
    TPtrFromBstrMap map;
    ASSERT_TRUE(map.SetAt(W(u"only key"), P(5)));
    TBstr key(W(u"longer previous key"));  // no buffer to reuse
    void* value = nullptr;
    POSITION pos = map.GetStartPosition();
    run.Arm();
    map.GetNextAssoc(pos, key, value);
    const bool failed = run.Disarm();
    EXPECT_EQ(pos, nullptr);
    EXPECT_EQ(value, P(5));
    EXPECT_EQ(Text(key), failed ? u"" : u"only key");
  });
}

}  // namespace
