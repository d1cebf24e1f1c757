// The collections against the standard containers a caller would otherwise
// use, on the same keys and the same sequence of operations.
#include <benchmark/benchmark.h>
#include <stdint.h>

#include <deque>
#include <string>
#include <unordered_map>
#include <vector>

#include "OvraBstr.h"
#include "OvraCollect.h"

namespace {

constexpr int kMapCount = 10000;
constexpr unsigned int kSizedTable = 12289;  // a prime above kMapCount
constexpr int kDefaultTableCount = 1000;     // kept small: 17 buckets are linear lists

// Distinct pointer keys as real allocations would give them (16-byte steps
// from one base), in a shuffled order.
std::vector<void*> PointerKeys(int count) {
  static std::vector<char> arena(static_cast<size_t>(kMapCount) * 16 + 16);
  std::vector<void*> keys(static_cast<size_t>(count));
  for (int i = 0; i < count; ++i) keys[static_cast<size_t>(i)] = arena.data() + 16 * i;
  uint32_t x = 88172645u;
  for (int i = count - 1; i > 0; --i) {
    x ^= x << 13;
    x ^= x >> 17;
    x ^= x << 5;
    std::swap(keys[static_cast<size_t>(i)], keys[x % static_cast<uint32_t>(i + 1)]);
  }
  return keys;
}

// Identifier-like string keys of 8 to 20 characters.
std::vector<std::u16string> StringKeys(int count) {
  std::vector<std::u16string> keys;
  uint32_t x = 2463534242u;
  for (int i = 0; i < count; ++i) {
    std::u16string key = u"key_";
    for (int n = i; n; n /= 10) key += static_cast<char16_t>(u'0' + n % 10);
    x ^= x << 13;
    x ^= x >> 17;
    x ^= x << 5;
    for (uint32_t extra = x % 10; extra; --extra) key += static_cast<char16_t>(u'a' + (x >> extra) % 26);
    keys.push_back(key);
  }
  return keys;
}

const unsigned short* Units(const std::u16string& s) {
  return reinterpret_cast<const unsigned short*>(s.c_str());
}

// One operation: insert every key, look every key up once, then destroy.
void PtrMapOvra(benchmark::State& state, int count, unsigned int table) {
  const std::vector<void*> keys = PointerKeys(count);
  for (auto _ : state) {
    TPtrFromPtrMap map;
    if (table) map.InitHashTable(table);
    for (void* key : keys) map.SetAt(key, key);
    void* value = nullptr;
    for (void* key : keys) {
      map.Lookup(key, value);
      benchmark::DoNotOptimize(value);
    }
  }
  state.SetItemsProcessed(state.iterations() * count);
}

void PtrMapRef(benchmark::State& state, int count, unsigned int table) {
  const std::vector<void*> keys = PointerKeys(count);
  for (auto _ : state) {
    std::unordered_map<void*, void*> map;
    if (table) map.reserve(static_cast<size_t>(count));
    for (void* key : keys) map[key] = key;
    for (void* key : keys) {
      auto it = map.find(key);
      benchmark::DoNotOptimize(it);
    }
  }
  state.SetItemsProcessed(state.iterations() * count);
}

void BstrMapOvra(benchmark::State& state, int count, unsigned int table) {
  const std::vector<std::u16string> keys = StringKeys(count);
  for (auto _ : state) {
    TPtrFromBstrMap map;
    if (table) map.InitHashTable(table);
    for (const auto& key : keys) map.SetAt(Units(key), nullptr);
    void* value = nullptr;
    for (const auto& key : keys) {
      map.Lookup(Units(key), value);
      benchmark::DoNotOptimize(value);
    }
  }
  state.SetItemsProcessed(state.iterations() * count);
}

void BstrMapRef(benchmark::State& state, int count, unsigned int table) {
  const std::vector<std::u16string> keys = StringKeys(count);
  for (auto _ : state) {
    std::unordered_map<std::u16string, void*> map;
    if (table) map.reserve(static_cast<size_t>(count));
    for (const auto& key : keys) map[key] = nullptr;
    for (const auto& key : keys) {
      auto it = map.find(key);
      benchmark::DoNotOptimize(it);
    }
  }
  state.SetItemsProcessed(state.iterations() * count);
}

constexpr int kListCount = 1000;

// A queue filled and drained completely: the list gives its pool back each
// time it empties, as a deque gives back its chunks.
void ListFillDrainOvra(benchmark::State& state, int blockSize) {
  TPtrList list(blockSize);
  for (auto _ : state) {
    for (intptr_t i = 0; i < kListCount; ++i) list.AddTail(reinterpret_cast<void*>(i));
    while (!list.IsEmpty()) benchmark::DoNotOptimize(list.RemoveHead());
  }
  state.SetItemsProcessed(state.iterations() * kListCount);
}

void ListFillDrainRef(benchmark::State& state) {
  std::deque<void*> list;
  for (auto _ : state) {
    for (intptr_t i = 0; i < kListCount; ++i) list.push_back(reinterpret_cast<void*>(i));
    while (!list.empty()) {
      benchmark::DoNotOptimize(list.front());
      list.pop_front();
    }
  }
  state.SetItemsProcessed(state.iterations() * kListCount);
}

// A queue that never empties: 100 elements waiting, one added and one
// removed per step.
void ListSteadyOvra(benchmark::State& state, int blockSize) {
  TPtrList list(blockSize);
  for (intptr_t i = 0; i < 100; ++i) list.AddTail(reinterpret_cast<void*>(i));
  intptr_t i = 0;
  for (auto _ : state) {
    for (int n = 0; n < kListCount; ++n) {
      list.AddTail(reinterpret_cast<void*>(++i));
      benchmark::DoNotOptimize(list.RemoveHead());
    }
  }
  state.SetItemsProcessed(state.iterations() * kListCount);
}

void ListSteadyRef(benchmark::State& state) {
  std::deque<void*> list;
  for (intptr_t i = 0; i < 100; ++i) list.push_back(reinterpret_cast<void*>(i));
  intptr_t i = 0;
  for (auto _ : state) {
    for (int n = 0; n < kListCount; ++n) {
      list.push_back(reinterpret_cast<void*>(++i));
      benchmark::DoNotOptimize(list.front());
      list.pop_front();
    }
  }
  state.SetItemsProcessed(state.iterations() * kListCount);
}

constexpr int kArrayCount = 1000000;

void ArrayGrowOvra(benchmark::State& state) {
  for (auto _ : state) {
    TPtrArray array;
    for (intptr_t i = 0; i < kArrayCount; ++i) array.Add(reinterpret_cast<void*>(i));
    benchmark::DoNotOptimize(array.GetData());
  }
  state.SetItemsProcessed(state.iterations() * kArrayCount);
}

void ArrayGrowRef(benchmark::State& state) {
  for (auto _ : state) {
    std::vector<void*> array;
    for (intptr_t i = 0; i < kArrayCount; ++i) array.push_back(reinterpret_cast<void*>(i));
    benchmark::DoNotOptimize(array.data());
  }
  state.SetItemsProcessed(state.iterations() * kArrayCount);
}

constexpr int kAppendCount = 10000;

void BstrAppendOvra(benchmark::State& state) {
  for (auto _ : state) {
    TBstr text;
    for (int i = 0; i < kAppendCount; ++i) text.Append(static_cast<unsigned short>(0x61 + i % 26));
    benchmark::DoNotOptimize(text.GetString());
  }
  state.SetItemsProcessed(state.iterations() * kAppendCount);
}

void BstrAppendRef(benchmark::State& state) {
  for (auto _ : state) {
    std::u16string text;
    for (int i = 0; i < kAppendCount; ++i) text.push_back(static_cast<char16_t>(0x61 + i % 26));
    benchmark::DoNotOptimize(text.data());
  }
  state.SetItemsProcessed(state.iterations() * kAppendCount);
}

const int kRegistered = [] {
  benchmark::RegisterBenchmark("PtrMapSized/ovra", PtrMapOvra, kMapCount, kSizedTable);
  benchmark::RegisterBenchmark("PtrMapSized/ref", PtrMapRef, kMapCount, kSizedTable);
  benchmark::RegisterBenchmark("BstrMapSized/ovra", BstrMapOvra, kMapCount, kSizedTable);
  benchmark::RegisterBenchmark("BstrMapSized/ref", BstrMapRef, kMapCount, kSizedTable);
  benchmark::RegisterBenchmark("ListFillDrain/ovra", ListFillDrainOvra, 10);
  benchmark::RegisterBenchmark("ListFillDrain/ref", ListFillDrainRef);
  benchmark::RegisterBenchmark("ListSteady/ovra", ListSteadyOvra, 10);
  benchmark::RegisterBenchmark("ListSteady/ref", ListSteadyRef);
  // The same with pool blocks of 64 nodes, the element count of one chunk of
  // the reference's storage.
  benchmark::RegisterBenchmark("ListFillDrainBlock64/ovra", ListFillDrainOvra, 64);
  benchmark::RegisterBenchmark("ListFillDrainBlock64/ref", ListFillDrainRef);
  benchmark::RegisterBenchmark("PtrMapDefault/ovra", PtrMapOvra, kDefaultTableCount, 0u);
  benchmark::RegisterBenchmark("PtrMapDefault/ref", PtrMapRef, kDefaultTableCount, 0u);
  benchmark::RegisterBenchmark("BstrMapDefault/ovra", BstrMapOvra, kDefaultTableCount, 0u);
  benchmark::RegisterBenchmark("BstrMapDefault/ref", BstrMapRef, kDefaultTableCount, 0u);
  // Growth without a step copies the whole array every few thousand
  // elements: one iteration takes seconds.
  benchmark::RegisterBenchmark("ArrayGrow/ovra", ArrayGrowOvra)->Iterations(1);
  benchmark::RegisterBenchmark("ArrayGrow/ref", ArrayGrowRef);
  benchmark::RegisterBenchmark("BstrAppend/ovra", BstrAppendOvra);
  benchmark::RegisterBenchmark("BstrAppend/ref", BstrAppendRef);
  return 0;
}();

}  // namespace
