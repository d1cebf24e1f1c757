// Drives the three hash maps (pointer, 16-byte identifier and string keys)
// with operation sequences chosen by the input, mirrored on a plain model: the
// associations with their insertion order, the table size, whether a bucket
// array and how many pool blocks exist. Any operation may run with one of its
// allocations failing. After every step lookups, counts and the table size
// must agree with the model; iteration must yield every key once, in
// ascending bucket order and, within a bucket, newest first (until a rehash
// reorders a bucket); a failed insertion must leave the map as it was; and the
// blocks the library holds must be exactly the model's bucket array, pool
// blocks and string-key copies.
#include <fuzzer/FuzzedDataProvider.h>
#include <stdint.h>
#include <string.h>

#include <algorithm>
#include <vector>

#include "FuzzAllocator.h"
#include "FuzzSupport.h"
#include "Ovra.h"
#include "OvraBstr.h"
#include "OvraCollect.h"

using namespace ovra_fuzz;

namespace {

using Units = std::vector<unsigned short>;

// --- how each map's keys are made, compared, hashed and counted -----------

struct PtrKeys {
  typedef TPtrFromPtrMap Map;
  typedef void* Key;     // what the model keeps
  typedef void* KeyOut;  // what GetNextAssoc hands out
  static Key Make(FuzzedDataProvider& in) {
    uintptr_t v = in.ConsumeIntegralInRange<uintptr_t>(0, 70);
    if (in.ConsumeIntegralInRange<int>(0, 7) == 0) v = ~uintptr_t(0) - v;  // the top of the range
    return reinterpret_cast<void*>(v);
  }
  static bool Equal(const Key& a, const Key& b) { return a == b; }
  static unsigned Bucket(const Key& k, unsigned size) {
    return static_cast<unsigned>(reinterpret_cast<uintptr_t>(k) % size);
  }
  static Key Pass(const Key& k) { return k; }
  static bool Same(const KeyOut& out, const Key& k) { return out == k; }
  static int Blocks(const Key&) { return 0; }  // keys own no memory
  static unsigned MapBucket(const Map& m, const Key& k, unsigned size) {
    return static_cast<unsigned>(m.HashKey(k) % size);
  }
};

struct GuidKeys {
  typedef TPtrFromGuidMap Map;
  typedef _GUID Key;
  typedef _GUID KeyOut;
  static Key Make(FuzzedDataProvider& in) {
    Key k;
    memset(&k, 0, sizeof k);
    k.Data1 = in.ConsumeIntegralInRange<uint32_t>(0, 40);
    if (in.ConsumeIntegralInRange<int>(0, 7) == 0) k.Data1 = ~k.Data1;
    // Keys equal in their leading field but not elsewhere share a bucket.
    k.Data2 = static_cast<unsigned short>(in.ConsumeIntegralInRange<int>(0, 1));
    k.Data4[7] = static_cast<unsigned char>(in.ConsumeIntegralInRange<int>(0, 2));
    return k;
  }
  static bool Equal(const Key& a, const Key& b) { return memcmp(&a, &b, sizeof a) == 0; }
  static unsigned Bucket(const Key& k, unsigned size) { return k.Data1 % size; }
  static const Key& Pass(const Key& k) { return k; }
  static bool Same(const KeyOut& out, const Key& k) { return Equal(out, k); }
  static int Blocks(const Key&) { return 0; }
  static unsigned MapBucket(const Map& m, const Key& k, unsigned size) {
    return m.HashKey(k) % size;
  }
};

struct BstrKeys {
  typedef TPtrFromBstrMap Map;
  // The units and whether the key is handed over as a null pointer (which
  // stands for the empty key).
  struct Key {
    Units units;  // zero-terminated
    bool null;
  };
  typedef TBstr KeyOut;
  static Key Make(FuzzedDataProvider& in) {
    static const unsigned short kAlphabet[] = {'a', 'b', 'A', 0x100, 0xFFFF, '0'};
    Key k;
    k.null = in.ConsumeIntegralInRange<int>(0, 15) == 0;
    const int n = k.null ? 0 : in.ConsumeIntegralInRange<int>(0, 3);
    for (int i = 0; i < n; ++i) k.units.push_back(kAlphabet[in.ConsumeIntegralInRange<int>(0, 5)]);
    k.units.push_back(0);
    return k;
  }
  static bool Equal(const Key& a, const Key& b) { return a.units == b.units; }
  static unsigned Hash(const Key& k) {
    unsigned h = 0;
    for (size_t i = 0; k.units[i]; ++i) h = h * 33u + k.units[i];
    return h;
  }
  static unsigned Bucket(const Key& k, unsigned size) { return Hash(k) % size; }
  static const unsigned short* Pass(const Key& k) { return k.null ? nullptr : k.units.data(); }
  static bool Same(const KeyOut& out, const Key& k) {
    return out.GetLength() == static_cast<int>(k.units.size() - 1) &&
           memcmp(out.GetString(), k.units.data(), k.units.size() * 2) == 0;
  }
  // A non-empty key is copied into one block of its own.
  static int Blocks(const Key& k) { return k.units.size() > 1 ? 1 : 0; }
  static unsigned MapBucket(const Map& m, const Key& k, unsigned size) {
    FUZZ_CHECK(m.HashKey(Pass(k)) == Hash(k));  // the documented string hash
    return m.HashKey(Pass(k)) % size;
  }
};

// --- the model ------------------------------------------------------------------

template <class Keys>
struct MapModel {
  typedef typename Keys::Key Key;
  struct Entry {
    Key key;
    void* value;
    unsigned long serial;  // insertion order of the association
  };
  std::vector<Entry> entries;
  unsigned tableSize = 17;
  bool table = false;  // a bucket array exists
  int blocks = 0;
  int blockSize;
  bool reordered = false;  // a rehash has reordered buckets since the map was last empty
  unsigned long serial = 0;

  explicit MapModel(int bs) : blockSize(bs < 1 ? 1 : bs) {}

  Entry* Find(const Key& k) {
    for (Entry& e : entries) {
      if (Keys::Equal(e.key, k)) return &e;
    }
    return nullptr;
  }
  int FreeAssocs() const { return blocks * blockSize - static_cast<int>(entries.size()); }
  // The allocations an insertion of k makes, in order: bucket array, pool block, key copy.
  int InsertRequests(const Key& k) const {
    return (table ? 0 : 1) + (FreeAssocs() > 0 ? 0 : 1) + Keys::Blocks(k);
  }
  void Insert(const Key& k, void* value) {
    if (!table) table = true;
    if (FreeAssocs() == 0) ++blocks;
    entries.push_back(Entry{k, value, ++serial});
  }
  void Remove(const Key& k) {
    for (size_t i = 0; i < entries.size(); ++i) {
      if (Keys::Equal(entries[i].key, k)) {
        entries.erase(entries.begin() + static_cast<long>(i));
        break;
      }
    }
    if (entries.empty()) Clear();
  }
  void Clear() {
    entries.clear();
    table = false;
    blocks = 0;
    reordered = false;
  }
  long LiveBlocks() const {
    long n = (table ? 1 : 0) + blocks;
    for (const Entry& e : entries) n += Keys::Blocks(e.key);
    return n;
  }
};

template <class Keys>
void CheckMap(const typename Keys::Map& map, const MapModel<Keys>& m) {
  typedef typename Keys::Map Map;
  FUZZ_CHECK(map.GetCount() == static_cast<int>(m.entries.size()));
  FUZZ_CHECK(map.IsEmpty() == m.entries.empty());
  FUZZ_CHECK(map.GetHashTableSize() == m.tableSize);
  for (const auto& e : m.entries) {
    void* value = reinterpret_cast<void*>(1);
    FUZZ_CHECK(map.Lookup(Keys::Pass(e.key), value));
    FUZZ_CHECK(value == e.value);
    unsigned bucket = 0;
    const typename Map::SAssoc* assoc = map.GetAssocAt(Keys::Pass(e.key), bucket);
    FUZZ_CHECK(assoc != nullptr && assoc->value == e.value);
    FUZZ_CHECK(bucket == Keys::Bucket(e.key, m.tableSize));
  }
  // Iteration: every association once, bucket order, newest first in a bucket.
  POSITION pos = map.GetStartPosition();
  FUZZ_CHECK((pos == nullptr) == m.entries.empty());
  std::vector<bool> seen(m.entries.size(), false);
  long lastBucket = -1;
  unsigned long lastSerial = 0;
  size_t steps = 0;
  while (pos) {
    FUZZ_CHECK(++steps <= m.entries.size());
    typename Keys::KeyOut key;
    void* value = nullptr;
    map.GetNextAssoc(pos, key, value);
    size_t index = m.entries.size();
    for (size_t i = 0; i < m.entries.size(); ++i) {
      if (Keys::Same(key, m.entries[i].key)) index = i;
    }
    FUZZ_CHECK(index < m.entries.size());
    FUZZ_CHECK(!seen[index]);
    seen[index] = true;
    FUZZ_CHECK(value == m.entries[index].value);
    const long bucket = Keys::Bucket(m.entries[index].key, m.tableSize);
    FUZZ_CHECK(bucket >= lastBucket);
    if (bucket == lastBucket && !m.reordered) FUZZ_CHECK(m.entries[index].serial < lastSerial);
    lastBucket = bucket;
    lastSerial = m.entries[index].serial;
  }
  FUZZ_CHECK(steps == m.entries.size());
}

template <class Keys>
void MapStep(FuzzedDataProvider& in, typename Keys::Map& map, MapModel<Keys>& m) {
  typedef typename Keys::Key Key;
  MapModel<Keys> next = m;
  int requests = 0;
  const long failAt =
      in.ConsumeIntegralInRange<int>(0, 3) == 0 ? in.ConsumeIntegralInRange<int>(1, 3) : 0;
  FailNthRequest(failAt);
  OperationAllocs allocs;
  bool boolResult = false, expectBool = false, hasBool = false;
  const int op = in.ConsumeIntegralInRange<int>(0, 8);
  switch (op) {
    case 0:
    case 1: {  // SetAt, or operator[] then a store through the reference
      const Key k = Keys::Make(in);
      void* v =
          reinterpret_cast<void*>(static_cast<uintptr_t>(in.ConsumeIntegralInRange<int>(1, 99)));
      auto* e = next.Find(k);
      if (e) {
        e->value = v;
      } else {
        requests = m.InsertRequests(k);
        next.Insert(k, v);
      }
      if (in.ConsumeBool()) {
        boolResult = map.SetAt(Keys::Pass(k), v);
        hasBool = true;
        expectBool = true;
      } else {
        void*& slot = map[Keys::Pass(k)];
        FUZZ_CHECK(slot == (e ? m.Find(k)->value : nullptr));  // a new key starts as null
        slot = v;  // lost in the scratch slot when the insertion failed
      }
      break;
    }
    case 2: {
      const Key k = Keys::Make(in);
      expectBool = next.Find(k) != nullptr;
      if (expectBool) next.Remove(k);
      boolResult = map.RemoveKey(Keys::Pass(k));
      hasBool = true;
      break;
    }
    case 3: {
      const Key k = Keys::Make(in);
      void* value = reinterpret_cast<void*>(7);
      const auto* e = m.Find(k);
      FUZZ_CHECK(map.Lookup(Keys::Pass(k), value) == (e != nullptr));
      FUZZ_CHECK(value == (e ? e->value : reinterpret_cast<void*>(7)));  // untouched when absent
      unsigned bucket = 0;
      FUZZ_CHECK((map.GetAssocAt(Keys::Pass(k), bucket) != nullptr) == (e != nullptr));
      FUZZ_CHECK(bucket == Keys::Bucket(k, m.tableSize));  // even without a bucket array
      FUZZ_CHECK(Keys::MapBucket(map, k, m.tableSize) == bucket);
      break;
    }
    case 4: {
      static const unsigned kSizes[] = {0, 1, 2, 3, 7, 17, 31, 64};
      const unsigned size = kSizes[in.ConsumeIntegralInRange<int>(0, 7)];
      const bool allocNow = in.ConsumeBool();
      if (size != 0) {
        if (!m.entries.empty()) {
          requests = 1;
          next.tableSize = size;
          next.reordered = true;
        } else {
          requests = allocNow ? 1 : 0;
          next.tableSize = size;
          next.table = allocNow;
        }
      }
      map.InitHashTable(size, allocNow);
      if (allocs.Failed() && m.entries.empty()) {
        // An empty map keeps the new size; its bucket array comes on first insertion.
        FailNthRequest(0);
        next.table = false;
        m = next;
        CheckMap(map, m);
        return;
      }
      break;
    }
    case 5: {
      next.Clear();
      map.RemoveAll();
      break;
    }
    case 6: {  // iterating a string map whose key copy may fail
      if (m.entries.empty()) break;
      FailNthRequest(0);
      POSITION pos = map.GetStartPosition();
      size_t steps = 0;
      while (pos) {
        FUZZ_CHECK(++steps <= m.entries.size());
        typename Keys::KeyOut key;
        void* value = nullptr;
        FailNthRequest(in.ConsumeBool() ? 1 : 0);
        OperationAllocs one;
        map.GetNextAssoc(pos, key, value);
        FailNthRequest(0);
        bool found = false;
        for (const auto& e : m.entries) {
          if (e.value == value && Keys::Same(key, e.key)) found = true;
        }
        // A failed copy leaves the key empty; the iteration still advances.
        FUZZ_CHECK(found || one.Failed());
      }
      FUZZ_CHECK(steps == m.entries.size());
      return;
    }
    default: {  // a full check on its own (string keys handed out allocate)
      FailNthRequest(0);
      CheckMap(map, m);
      return;
    }
  }
  FailNthRequest(0);
  if (allocs.Failed()) {
    FUZZ_CHECK(allocs.Requests() <= requests);
    CheckMap(map, m);  // exactly as it was
    if (hasBool) FUZZ_CHECK(!boolResult);
  } else {
    FUZZ_CHECK(allocs.Requests() == requests);
    m = next;
    CheckMap(map, m);
    if (hasBool) FUZZ_CHECK(boolResult == expectBool);
  }
}

template <class Keys>
void Run(FuzzedDataProvider& in) {
  const long liveBefore = AllocStats().live;
  const int blockSize = in.ConsumeIntegralInRange<int>(-1, 6);
  {
    typename Keys::Map map(blockSize);
    MapModel<Keys> model(blockSize);
    FUZZ_CHECK(AllocStats().live == liveBefore);  // an empty map owns nothing
    for (int step = 0; step < 300 && in.remaining_bytes() > 0; ++step) {
      MapStep<Keys>(in, map, model);
      FUZZ_CHECK(AllocStats().live - liveBefore == model.LiveBlocks());
    }
  }
  FUZZ_CHECK(AllocStats().live == liveBefore);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  SAllocator allocator = FuzzAllocator();
  if (!OvraInitialize(&allocator)) abort();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider in(data, size);
  switch (in.ConsumeIntegralInRange<int>(0, 2)) {
    case 0:
      Run<PtrKeys>(in);
      break;
    case 1:
      Run<GuidKeys>(in);
      break;
    default:
      Run<BstrKeys>(in);
      break;
  }
  return 0;
}
