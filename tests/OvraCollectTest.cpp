// Tests of the pointer array, the node pool, the pointer list and the FIFO
// buffer (the hash maps are in OvraCollectMapTest.cpp).
#include "OvraCollect.h"

#include <gtest/gtest.h>
#include <string.h>

#include <algorithm>
#include <deque>
#include <iterator>
#include <list>
#include <random>
#include <string>
#include <vector>

#include "AllocSweep.h"
#include "TestAllocator.h"

using namespace ovra_test;

namespace {

void* P(uintptr_t n) { return reinterpret_cast<void*>(n); }

std::vector<void*> Elements(const TPtrArray& a) {
  std::vector<void*> v;
  for (int i = 0; i < a.GetSize(); ++i) v.push_back(a.GetAt(i));
  return v;
}

std::vector<void*> Ptrs(std::initializer_list<uintptr_t> values) {
  std::vector<void*> v;
  for (uintptr_t n : values) v.push_back(P(n));
  return v;
}

// ===========================================================================
// TPtrArray

TEST(PtrArrayTest, NewArrayIsEmptyWithAutomaticGrowthAndNoStorage) {
  ScopedCountingLibrary lib;
  TPtrArray a;
  EXPECT_EQ(a.GetSize(), 0);
  EXPECT_EQ(a.GetMaxSize(), 0);
  EXPECT_EQ(a.GetGrowBy(), 0);
  EXPECT_EQ(a.GetData(), nullptr);
  EXPECT_EQ(Stats().allocs, 0);
}

TEST(PtrArrayTest, FirstAllocationIsExactWithoutGrowthStep) {
  ScopedCountingLibrary lib;
  TPtrArray a;
  a.SetSize(1, -1);
  EXPECT_EQ(a.GetSize(), 1);
  EXPECT_EQ(a.GetMaxSize(), 1);
  EXPECT_EQ(a.GetAt(0), nullptr);
  EXPECT_EQ(Stats().allocs, 1);
  TPtrArray b;
  b.SetSize(37, -1);
  EXPECT_EQ(b.GetMaxSize(), 37);
  for (int i = 0; i < 37; ++i) EXPECT_EQ(b[i], nullptr);
}

TEST(PtrArrayTest, AutomaticStepIsAtLeastFour) {
  TPtrArray a;
  a.SetSize(1, -1);
  a.SetAtGrow(1, P(7));
  EXPECT_EQ(a.GetSize(), 2);
  EXPECT_EQ(a.GetMaxSize(), 5);
  EXPECT_EQ(a.GetAt(0), nullptr);
  EXPECT_EQ(a.GetAt(1), P(7));
}

TEST(PtrArrayTest, AutomaticStepIsOneEighthOfTheCurrentSize) {
  TPtrArray a;
  a.SetSize(100, -1);
  ASSERT_EQ(a.GetMaxSize(), 100);
  a.SetSize(101, -1);
  EXPECT_EQ(a.GetSize(), 101);
  EXPECT_EQ(a.GetMaxSize(), 112);
}

TEST(PtrArrayTest, AutomaticStepIsCappedAt1024) {
  TPtrArray a;
  a.SetSize(10000, -1);
  a.SetSize(10001, -1);
  EXPECT_EQ(a.GetMaxSize(), 11024);
}

TEST(PtrArrayTest, AutomaticStepRoundsTowardsZero) {
  TPtrArray a;
  a.SetSize(47, -1);  // 47 / 8 = 5.875 -> 5
  a.SetSize(48, -1);
  EXPECT_EQ(a.GetMaxSize(), 52);
  TPtrArray b;
  b.SetSize(39, -1);  // 39 / 8 = 4.875 -> 4
  b.SetSize(40, -1);
  EXPECT_EQ(b.GetMaxSize(), 43);
}

TEST(PtrArrayTest, AutomaticStepComesFromTheSizeNotTheCapacity) {
  TPtrArray a;
  a.SetSize(100, -1);
  a.SetSize(16, -1);  // shrinking keeps the capacity of 100
  ASSERT_EQ(a.GetMaxSize(), 100);
  a.SetSize(101, -1);  // step = 16 / 8 = 2, raised to 4
  EXPECT_EQ(a.GetMaxSize(), 104);
}

TEST(PtrArrayTest, GrowthToBeyondCapacityPlusStepIsExact) {
  TPtrArray a;
  a.SetSize(100, -1);
  a.SetSize(112, -1);  // exactly max + step: the requested size wins
  EXPECT_EQ(a.GetMaxSize(), 112);
  TPtrArray b;
  b.SetSize(100, -1);
  b.SetSize(111, -1);  // below max + step
  EXPECT_EQ(b.GetMaxSize(), 112);
  TPtrArray c;
  c.SetSize(100, -1);
  c.SetSize(500, -1);
  EXPECT_EQ(c.GetMaxSize(), 500);
}

TEST(PtrArrayTest, FixedStepIsStoredAndUsedByLaterGrowth) {
  TPtrArray a;
  a.SetSize(3, 3);
  EXPECT_EQ(a.GetGrowBy(), 3);
  EXPECT_EQ(a.GetMaxSize(), 3);  // the first allocation stays exact
  a.SetSize(4, -1);
  EXPECT_EQ(a.GetMaxSize(), 6);
  EXPECT_EQ(a.GetGrowBy(), 3);  // -1 leaves the step alone
  a.SetSize(7, -1);
  EXPECT_EQ(a.GetMaxSize(), 9);
  a.SetSize(20, -1);
  EXPECT_EQ(a.GetMaxSize(), 20);
  a.SetSize(21, 100);  // a new step applies to this very growth
  EXPECT_EQ(a.GetMaxSize(), 120);
  a.SetSize(121, 0);  // back to automatic: 21 / 8 = 2, raised to 4
  EXPECT_EQ(a.GetGrowBy(), 0);
  EXPECT_EQ(a.GetMaxSize(), 124);
}

TEST(PtrArrayTest, FixedStepOfOneGrowsOneSlotAtATime) {
  ScopedCountingLibrary lib;
  TPtrArray a;
  a.SetSize(0, 1);
  for (int i = 0; i < 5; ++i) {
    ASSERT_EQ(a.Add(P(i + 1)), i);
    EXPECT_EQ(a.GetMaxSize(), i + 1);
  }
  EXPECT_EQ(Stats().allocs, 5);
}

TEST(PtrArrayTest, SetSizeZeroReleasesTheStorageAndTheNextAllocationIsExact) {
  ScopedCountingLibrary lib;
  TPtrArray a;
  a.SetSize(50, -1);
  a.SetAt(3, P(3));
  a.SetSize(0, -1);
  EXPECT_EQ(a.GetSize(), 0);
  EXPECT_EQ(a.GetMaxSize(), 0);
  EXPECT_EQ(a.GetData(), nullptr);
  EXPECT_EQ(Stats().live, 0);
  a.SetSize(2, -1);
  EXPECT_EQ(a.GetMaxSize(), 2);
  EXPECT_EQ(a.GetAt(0), nullptr);
  EXPECT_EQ(a.GetAt(1), nullptr);
  EXPECT_EQ(Stats().live, 1);
}

TEST(PtrArrayTest, ShrinkingKeepsCapacityAndValuesGrowingWithinCapacityZeroesThem) {
  ScopedCountingLibrary lib;
  TPtrArray a;
  for (int i = 0; i < 8; ++i) a.Add(P(100 + i));
  const int capacity = a.GetMaxSize();
  void** data = a.GetData();
  const long allocs = Stats().allocs;
  a.SetSize(3, -1);
  EXPECT_EQ(a.GetSize(), 3);
  EXPECT_EQ(a.GetMaxSize(), capacity);
  EXPECT_EQ(a.GetData(), data);
  for (int i = 3; i < 8; ++i) EXPECT_EQ(data[i], P(100 + i)) << i;  // not cleared
  a.SetSize(6, -1);
  EXPECT_EQ(a.GetData(), data);  // no reallocation within the capacity
  EXPECT_EQ(Stats().allocs, allocs);
  EXPECT_EQ(Elements(a), Ptrs({100, 101, 102, 0, 0, 0}));
  EXPECT_EQ(data[6], P(106));  // beyond the new size: still not touched
}

TEST(PtrArrayTest, GrowthKeepsElementsAndZeroesNewOnes) {
  TPtrArray a;
  for (int i = 0; i < 5; ++i) a.Add(P(i + 1));
  ASSERT_EQ(a.GetMaxSize(), 5);
  a.SetSize(30, -1);
  std::vector<void*> expected = Ptrs({1, 2, 3, 4, 5});
  expected.resize(30, nullptr);
  EXPECT_EQ(Elements(a), expected);
}

TEST(PtrArrayTest, AddGrowsByTheAutomaticStepAndReturnsTheIndex) {
  ScopedCountingLibrary lib;
  TPtrArray a;
  std::vector<int> capacities;
  for (int i = 0; i < 40; ++i) {
    ASSERT_EQ(a.Add(P(i + 1)), i);
    if (capacities.empty() || capacities.back() != a.GetMaxSize()) {
      capacities.push_back(a.GetMaxSize());
    }
  }
  // 1 exact, then +4 while size/8 < 4 (size < 32), then +size/8.
  EXPECT_EQ(capacities, (std::vector<int>{1, 5, 9, 13, 17, 21, 25, 29, 33, 37, 41}));
  EXPECT_EQ(Stats().allocs, 11);
  for (int i = 0; i < 40; ++i) EXPECT_EQ(a[i], P(i + 1));
}

TEST(PtrArrayTest, AccessorsReadAndWriteTheSameSlots) {
  TPtrArray a;
  a.SetSize(3, -1);
  a.SetAt(0, P(10));
  a.ElementAt(1) = P(11);
  a[2] = P(12);
  const TPtrArray& c = a;
  EXPECT_EQ(c[0], P(10));
  EXPECT_EQ(c.GetAt(1), P(11));
  EXPECT_EQ(c.GetData()[2], P(12));
  EXPECT_EQ(a.GetData()[1], P(11));
  void*& ref = a.ElementAt(0);
  ref = P(99);
  EXPECT_EQ(a.GetAt(0), P(99));
}

TEST(PtrArrayTest, SetAtGrowWithinSizeOnlyStores) {
  ScopedCountingLibrary lib;
  TPtrArray a;
  a.SetSize(4, -1);
  a.SetAtGrow(2, P(5));
  EXPECT_EQ(a.GetSize(), 4);
  EXPECT_EQ(a.GetMaxSize(), 4);
  EXPECT_EQ(a.GetAt(2), P(5));
  EXPECT_EQ(Stats().allocs, 1);
}

TEST(PtrArrayTest, SetAtGrowBeyondSizeFillsTheGapWithNulls) {
  TPtrArray a;
  a.Add(P(1));
  a.SetAtGrow(6, P(7));
  EXPECT_EQ(Elements(a), Ptrs({1, 0, 0, 0, 0, 0, 7}));
  EXPECT_EQ(a.GetMaxSize(), 7);  // 1 + 4 < 7: exactly what was asked
}

TEST(PtrArrayTest, AppendReturnsTheOldSizeAndCopiesInOrder) {
  TPtrArray a, b;
  a.Add(P(1));
  a.Add(P(2));
  b.Add(P(3));
  b.Add(P(4));
  b.Add(P(5));
  EXPECT_EQ(a.Append(b), 2);
  EXPECT_EQ(Elements(a), Ptrs({1, 2, 3, 4, 5}));
  EXPECT_EQ(Elements(b), Ptrs({3, 4, 5}));
}

TEST(PtrArrayTest, AppendOfAnEmptyArrayChangesNothingAndReturnsTheSize) {
  ScopedCountingLibrary lib;
  TPtrArray a, empty;
  a.Add(P(1));
  const long allocs = Stats().allocs;
  EXPECT_EQ(a.Append(empty), 1);
  EXPECT_EQ(a.GetSize(), 1);
  EXPECT_EQ(Stats().allocs, allocs);
  TPtrArray none;
  EXPECT_EQ(none.Append(empty), 0);
  EXPECT_EQ(none.GetData(), nullptr);
}

TEST(PtrArrayTest, AppendToItselfDoublesTheElements) {
  TPtrArray a;
  for (int i = 1; i <= 5; ++i) a.Add(P(i));
  EXPECT_EQ(a.Append(a), 5);
  EXPECT_EQ(Elements(a), Ptrs({1, 2, 3, 4, 5, 1, 2, 3, 4, 5}));
}

TEST(PtrArrayTest, CopyReplacesTheElements) {
  TPtrArray a, b;
  for (int i = 1; i <= 6; ++i) a.Add(P(i));
  b.Add(P(9));
  b.Copy(a);
  EXPECT_EQ(Elements(b), Elements(a));
  TPtrArray fresh;
  fresh.Copy(a);
  EXPECT_EQ(fresh.GetMaxSize(), 6);  // first allocation exact
  EXPECT_EQ(Elements(fresh), Elements(a));
  TPtrArray empty;
  b.Copy(empty);  // SetSize(0) releases the storage
  EXPECT_EQ(b.GetSize(), 0);
  EXPECT_EQ(b.GetData(), nullptr);
  a.Copy(a);
  EXPECT_EQ(Elements(a), Ptrs({1, 2, 3, 4, 5, 6}));
}

TEST(PtrArrayTest, CopyIntoALargerArrayKeepsItsCapacity) {
  TPtrArray a, b;
  b.SetSize(20, -1);
  a.Add(P(4));
  a.Add(P(5));
  b.Copy(a);
  EXPECT_EQ(b.GetMaxSize(), 20);
  EXPECT_EQ(Elements(b), Ptrs({4, 5}));
}

TEST(PtrArrayTest, FreeExtraShrinksToExactlyTheSize) {
  ScopedCountingLibrary lib;
  TPtrArray a;
  for (int i = 1; i <= 6; ++i) a.Add(P(i));
  ASSERT_GT(a.GetMaxSize(), 6);
  a.FreeExtra();
  EXPECT_EQ(a.GetMaxSize(), 6);
  EXPECT_EQ(Elements(a), Ptrs({1, 2, 3, 4, 5, 6}));
  EXPECT_EQ(Stats().live, 1);
  const long allocs = Stats().allocs;
  void** data = a.GetData();
  a.FreeExtra();  // size == capacity: nothing to do
  EXPECT_EQ(Stats().allocs, allocs);
  EXPECT_EQ(a.GetData(), data);
}

TEST(PtrArrayTest, FreeExtraOfAnEmptyArrayWithCapacityReleasesTheStorage) {
  ScopedCountingLibrary lib;
  TPtrArray a;
  a.SetSize(10, -1);
  a.RemoveAt(0, 10);
  ASSERT_EQ(a.GetSize(), 0);
  ASSERT_EQ(a.GetMaxSize(), 10);
  const long allocs = Stats().allocs;
  a.FreeExtra();
  EXPECT_EQ(a.GetMaxSize(), 0);
  EXPECT_EQ(a.GetData(), nullptr);
  EXPECT_EQ(Stats().live, 0);
  EXPECT_EQ(Stats().allocs, allocs);  // nothing allocated to release it
}

TEST(PtrArrayTest, InsertAtMovesLaterElementsUp) {
  TPtrArray a;
  for (int i = 1; i <= 4; ++i) a.Add(P(i));
  a.InsertAt(1, P(9), 3);
  EXPECT_EQ(Elements(a), Ptrs({1, 9, 9, 9, 2, 3, 4}));
  a.InsertAt(0, P(8));
  EXPECT_EQ(Elements(a), Ptrs({8, 1, 9, 9, 9, 2, 3, 4}));
}

TEST(PtrArrayTest, InsertAtTheEndOrBeyondGrowsAndFillsTheGap) {
  TPtrArray a;
  a.Add(P(1));
  a.InsertAt(1, P(2), 2);
  EXPECT_EQ(Elements(a), Ptrs({1, 2, 2}));
  a.InsertAt(5, P(3), 1);
  EXPECT_EQ(Elements(a), Ptrs({1, 2, 2, 0, 0, 3}));
  TPtrArray empty;
  empty.InsertAt(2, P(4), 2);
  EXPECT_EQ(Elements(empty), Ptrs({0, 0, 4, 4}));
  EXPECT_EQ(empty.GetMaxSize(), 4);
}

TEST(PtrArrayTest, InsertAtWithCountZeroBeyondTheEndStillGrowsToIndex) {
  TPtrArray a;
  a.Add(P(1));
  a.InsertAt(3, P(7), 0);  // SetSize(3 + 0): the gap is made, nothing stored
  EXPECT_EQ(Elements(a), Ptrs({1, 0, 0}));
  a.InsertAt(1, P(7), 0);
  EXPECT_EQ(Elements(a), Ptrs({1, 0, 0}));
}

TEST(PtrArrayTest, InsertArrayInsertsAllElementsInOrder) {
  TPtrArray a, src;
  for (int i = 1; i <= 3; ++i) a.Add(P(i));
  for (int i = 7; i <= 9; ++i) src.Add(P(i));
  a.InsertAt(1, &src);
  EXPECT_EQ(Elements(a), Ptrs({1, 7, 8, 9, 2, 3}));
  a.InsertAt(6, &src);
  EXPECT_EQ(Elements(a), Ptrs({1, 7, 8, 9, 2, 3, 7, 8, 9}));
  a.InsertAt(11, &src);
  EXPECT_EQ(Elements(a), Ptrs({1, 7, 8, 9, 2, 3, 7, 8, 9, 0, 0, 7, 8, 9}));
  EXPECT_EQ(Elements(src), Ptrs({7, 8, 9}));
}

TEST(PtrArrayTest, InsertOfAnEmptyOrNullArrayDoesNothing) {
  ScopedCountingLibrary lib;
  TPtrArray a, empty;
  a.InsertAt(3, &empty);
  a.InsertAt(3, static_cast<TPtrArray*>(nullptr));
  EXPECT_EQ(a.GetSize(), 0);
  EXPECT_EQ(Stats().allocs, 0);
}

TEST(PtrArrayTest, InsertOfAnArrayIntoItselfKeepsTheOriginalOrder) {
  for (int start = 0; start <= 6; ++start) {
    TPtrArray a;
    for (int i = 1; i <= 4; ++i) a.Add(P(i));
    a.InsertAt(start, &a);
    std::vector<void*> expected = Ptrs({1, 2, 3, 4});
    const std::vector<void*> original = expected;
    if (start > 4) expected.resize(static_cast<size_t>(start), nullptr);
    expected.insert(expected.begin() + start, original.begin(), original.end());
    EXPECT_EQ(Elements(a), expected) << "start " << start;
  }
}

TEST(PtrArrayTest, RemoveAtMovesLaterElementsDownAndKeepsTheStorage) {
  TPtrArray a;
  for (int i = 1; i <= 6; ++i) a.Add(P(i));
  const int capacity = a.GetMaxSize();
  a.RemoveAt(1, 2);
  EXPECT_EQ(Elements(a), Ptrs({1, 4, 5, 6}));
  EXPECT_EQ(a.GetMaxSize(), capacity);
  a.RemoveAt(0);
  EXPECT_EQ(Elements(a), Ptrs({4, 5, 6}));
}

TEST(PtrArrayTest, RemoveAtOfTheLastElementsMovesNothing) {
  TPtrArray a;
  for (int i = 1; i <= 6; ++i) a.Add(P(i));
  void** data = a.GetData();
  a.RemoveAt(4, 2);
  EXPECT_EQ(Elements(a), Ptrs({1, 2, 3, 4}));
  // The removed slots still hold their values: nothing was moved over them.
  EXPECT_EQ(data[4], P(5));
  EXPECT_EQ(data[5], P(6));
  EXPECT_EQ(a.GetData(), data);
  a.RemoveAt(0, 4);
  EXPECT_EQ(a.GetSize(), 0);
  EXPECT_EQ(a.GetData(), data);  // storage is never shrunk by RemoveAt
  EXPECT_EQ(data[0], P(1));
}

TEST(PtrArrayTest, DestructorReleasesTheStorage) {
  ScopedCountingLibrary lib;
  {
    TPtrArray a;
    for (int i = 0; i < 100; ++i) a.Add(P(i));
    EXPECT_EQ(Stats().live, 1);
  }
  EXPECT_EQ(Stats().live, 0);
}

// --- running out of memory -------------------------------------------------

struct ArraySnapshot {
  std::vector<void*> elements;
  int maxSize;
  int growBy;
  void* const* data;
  explicit ArraySnapshot(const TPtrArray& a)
      : elements(Elements(a)), maxSize(a.GetMaxSize()), growBy(a.GetGrowBy()), data(a.GetData()) {}
  bool operator==(const ArraySnapshot& o) const {
    return elements == o.elements && maxSize == o.maxSize && growBy == o.growBy && data == o.data;
  }
};

TEST(PtrArrayTest, FailedFirstAllocationLeavesTheArrayEmpty) {
  ScopedCountingLibrary lib;
  TPtrArray a;
  FailNthAllocation(1);
  a.SetSize(5, 7);
  EXPECT_EQ(a.GetSize(), 0);
  EXPECT_EQ(a.GetMaxSize(), 0);
  EXPECT_EQ(a.GetGrowBy(), 0);  // the step is not taken either
  EXPECT_EQ(a.GetData(), nullptr);
  FailNthAllocation(1);
  EXPECT_EQ(a.Add(P(1)), -1);
  EXPECT_EQ(a.GetSize(), 0);
  StopFailing();
  EXPECT_EQ(a.Add(P(1)), 0);
  EXPECT_EQ(Stats().live, 1);
}

TEST(PtrArrayTest, EveryGrowingOperationLeavesTheArrayUnchangedWhenMemoryRunsOut) {
  ScopedCountingLibrary lib;
  TPtrArray a, src;
  for (int i = 1; i <= 5; ++i) a.Add(P(i));
  a.FreeExtra();  // size == capacity: every growth must allocate
  for (int i = 0; i < 3; ++i) src.Add(P(50 + i));
  const ArraySnapshot before(a);
  const long live = Stats().live;

  FailNthAllocation(1);
  a.SetSize(6, 2);
  EXPECT_TRUE(ArraySnapshot(a) == before) << "SetSize";
  FailNthAllocation(1);
  EXPECT_EQ(a.Add(P(9)), -1);
  FailNthAllocation(1);
  a.SetAtGrow(8, P(9));
  EXPECT_TRUE(ArraySnapshot(a) == before) << "SetAtGrow";
  FailNthAllocation(1);
  a.InsertAt(2, P(9), 2);
  EXPECT_TRUE(ArraySnapshot(a) == before) << "InsertAt inside";
  FailNthAllocation(1);
  a.InsertAt(9, P(9), 2);
  EXPECT_TRUE(ArraySnapshot(a) == before) << "InsertAt beyond";
  FailNthAllocation(1);
  a.InsertAt(1, &src);
  EXPECT_TRUE(ArraySnapshot(a) == before) << "InsertAt array";
  FailNthAllocation(1);
  a.InsertAt(1, &a);
  EXPECT_TRUE(ArraySnapshot(a) == before) << "InsertAt itself";
  FailNthAllocation(1);
  EXPECT_EQ(a.Append(src), -1);
  EXPECT_TRUE(ArraySnapshot(a) == before) << "Append";
  TPtrArray bigger;
  for (int i = 0; i < 9; ++i) bigger.Add(P(70 + i));
  FailNthAllocation(1);
  a.Copy(bigger);
  EXPECT_TRUE(ArraySnapshot(a) == before) << "Copy";
  EXPECT_EQ(Stats().live, live + 1);  // only `bigger`'s storage was added
  StopFailing();
}

TEST(PtrArrayTest, FailedFreeExtraKeepsTheLargerStorage) {
  ScopedCountingLibrary lib;
  TPtrArray a;
  for (int i = 1; i <= 6; ++i) a.Add(P(i));
  const ArraySnapshot before(a);
  FailNthAllocation(1);
  a.FreeExtra();
  EXPECT_TRUE(ArraySnapshot(a) == before);
  StopFailing();
  a.FreeExtra();
  EXPECT_EQ(a.GetMaxSize(), 6);
}

TEST(PtrArrayTest, NegativeSizeIsIgnored) {
  TPtrArray a;
  a.Add(P(1));
  a.SetSize(-3, 5);
  EXPECT_EQ(Elements(a), Ptrs({1}));
  EXPECT_EQ(a.GetGrowBy(), 0);
}

// --- randomized comparison with std::vector --------------------------------

// The array's expected contents and capacity, following the growth rules.
struct ArrayModel {
  std::vector<void*> v;
  int maxSize = 0;
  int growBy = 0;

  int Size() const { return static_cast<int>(v.size()); }
  bool NeedsMemory(int newSize) const { return newSize > 0 && newSize > maxSize; }
  // Applies SetSize; `fail` says whether an allocation would fail.
  bool SetSize(int newSize, int step, bool fail) {
    const int newStep = step != -1 ? step : growBy;
    if (NeedsMemory(newSize)) {
      if (fail) return false;
      if (maxSize == 0) {
        maxSize = newSize;
      } else {
        int s = newStep;
        if (s == 0) s = std::min(1024, std::max(4, Size() / 8));
        maxSize = newSize < maxSize + s ? maxSize + s : newSize;
      }
    } else if (newSize == 0) {
      maxSize = 0;
    }
    v.resize(static_cast<size_t>(newSize), nullptr);
    growBy = newStep;
    return true;
  }
};

TEST(PtrArrayTest, RandomOperationsMatchAVectorModelIncludingCapacity) {
  ScopedCountingLibrary lib;
  std::mt19937 rng(20240611);
  TPtrArray a, other;
  ArrayModel m;
  std::vector<void*> otherModel;
  auto value = [&]() { return P(1 + rng() % 1000); };
  for (int step = 0; step < 40000; ++step) {
    const bool fail = rng() % 8 == 0;
    if (fail) FailNthAllocation(1);
    const int size = m.Size();
    const unsigned op = rng() % 13;
    switch (op) {
      case 0:
      case 1: {
        void* p = value();
        const bool ok = m.SetSize(size + 1, -1, fail);
        if (ok) m.v.back() = p;
        ASSERT_EQ(a.Add(p), ok ? size : -1);
        break;
      }
      case 2: {
        const int n = static_cast<int>(rng() % 300);
        const int stepArg = rng() % 3 == 0 ? static_cast<int>(rng() % 6) - 1 : -1;
        m.SetSize(n, stepArg, fail);
        a.SetSize(n, stepArg);
        break;
      }
      case 3: {
        const int index = static_cast<int>(rng() % static_cast<unsigned>(size + 10));
        void* p = value();
        if (index >= size) {
          if (m.SetSize(index + 1, -1, fail)) m.v[static_cast<size_t>(index)] = p;
        } else {
          m.v[static_cast<size_t>(index)] = p;
        }
        a.SetAtGrow(index, p);
        break;
      }
      case 4:
      case 5: {
        const int index = static_cast<int>(rng() % static_cast<unsigned>(size + 5));
        const int count = static_cast<int>(rng() % 4);
        void* p = value();
        if (index >= size) {
          if (m.SetSize(index + count, -1, fail)) {
            std::fill(m.v.begin() + index, m.v.end(), p);
          }
        } else if (m.SetSize(size + count, -1, fail)) {
          m.v.resize(static_cast<size_t>(size));
          m.v.insert(m.v.begin() + index, static_cast<size_t>(count), p);
        }
        a.InsertAt(index, p, count);
        break;
      }
      case 6: {
        if (size == 0) break;
        const int index = static_cast<int>(rng() % static_cast<unsigned>(size));
        const int count = 1 + static_cast<int>(rng() % static_cast<unsigned>(std::min(size - index, 5)));
        m.v.erase(m.v.begin() + index, m.v.begin() + index + count);
        a.RemoveAt(index, count);
        break;
      }
      case 7: {
        if (size > 1000) break;  // keep the array short: appends may double it
        const int n = static_cast<int>(otherModel.size());
        int expected = size;
        if (n > 0) {
          expected = m.SetSize(size + n, -1, fail) ? size : -1;
          if (expected == size) std::copy(otherModel.begin(), otherModel.end(), m.v.begin() + size);
        }
        ASSERT_EQ(a.Append(other), expected);
        break;
      }
      case 8: {
        if (size > 1000) break;
        const int start = static_cast<int>(rng() % static_cast<unsigned>(size + 5));
        const int n = static_cast<int>(otherModel.size());
        if (n > 0) {
          const int newSize = start >= size ? start + n : size + n;
          if (m.SetSize(newSize, -1, fail)) {
            m.v.resize(static_cast<size_t>(size));
            if (start > size) m.v.resize(static_cast<size_t>(start), nullptr);
            m.v.insert(m.v.begin() + start, otherModel.begin(), otherModel.end());
          }
        }
        a.InsertAt(start, &other);
        break;
      }
      case 9: {
        if (m.Size() != m.maxSize) {
          if (m.Size() == 0) {
            m.maxSize = 0;
          } else if (!fail) {
            m.maxSize = m.Size();
          }
        }
        a.FreeExtra();
        break;
      }
      case 10: {  // refill the second array from this one, or the reverse
        StopFailing();
        if (rng() % 2) {
          other.Copy(a);
          otherModel = m.v;
        } else {
          const int n = static_cast<int>(rng() % 8);
          other.SetSize(0, -1);
          otherModel.clear();
          for (int i = 0; i < n; ++i) {
            void* p = value();
            other.Add(p);
            otherModel.push_back(p);
          }
        }
        break;
      }
      case 11: {
        const int n = static_cast<int>(otherModel.size());
        if (m.SetSize(n, -1, fail) && n > 0) m.v = otherModel;
        a.Copy(other);
        break;
      }
      default: {
        if (size == 0) break;
        const int index = static_cast<int>(rng() % static_cast<unsigned>(size));
        void* p = value();
        m.v[static_cast<size_t>(index)] = p;
        a.SetAt(index, p);
        break;
      }
    }
    StopFailing();
    ASSERT_EQ(a.GetSize(), m.Size()) << "step " << step << " op " << op;
    ASSERT_EQ(a.GetMaxSize(), m.maxSize) << "step " << step << " op " << op;
    ASSERT_EQ(a.GetGrowBy(), m.growBy) << "step " << step << " op " << op;
    ASSERT_EQ(a.GetData() == nullptr, m.maxSize == 0);
    ASSERT_TRUE(Elements(a) == m.v) << "step " << step << " op " << op;
    ASSERT_TRUE(Elements(other) == otherModel) << "step " << step;
  }
}

// ===========================================================================
// SPlex

TEST(PlexTest, CreateLinksNewBlocksAtTheFrontWithThePayloadAfterTheHeader) {
  ScopedCountingLibrary lib;
  SPlex* head = nullptr;
  SPlex* first = SPlex::Create(head, 4, 16);
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(head, first);
  EXPECT_EQ(first->pNext, nullptr);
  SPlex* second = SPlex::Create(head, 2, 8);
  ASSERT_NE(second, nullptr);
  EXPECT_EQ(head, second);
  EXPECT_EQ(second->pNext, first);
  EXPECT_EQ(static_cast<char*>(first->GetData()), reinterpret_cast<char*>(first) + sizeof(SPlex));
  memset(first->GetData(), 0x5A, 4 * 16);  // the whole payload is usable
  memset(second->GetData(), 0x5A, 2 * 8);
  EXPECT_EQ(Stats().live, 2);
  head->FreeDataChain();
  EXPECT_EQ(Stats().live, 0);
}

TEST(PlexTest, FreeChainAcceptsAnEmptyChain) {
  ScopedCountingLibrary lib;
  SPlex::FreeChain(nullptr);
  SPlex* head = nullptr;
  for (int i = 0; i < 5; ++i) ASSERT_NE(SPlex::Create(head, 3, 12), nullptr);
  EXPECT_EQ(Stats().live, 5);
  SPlex::FreeChain(head);
  EXPECT_EQ(Stats().live, 0);
}

TEST(PlexTest, FailedCreateReturnsNullAndLeavesTheChain) {
  ScopedCountingLibrary lib;
  SPlex* head = nullptr;
  SPlex* first = SPlex::Create(head, 4, 16);
  FailNthAllocation(1);
  EXPECT_EQ(SPlex::Create(head, 4, 16), nullptr);
  EXPECT_EQ(head, first);
  StopFailing();
  // A size that cannot be represented or allocated fails the same way.
  EXPECT_EQ(SPlex::Create(head, 0xFFFFFFFFu, 0xFFFFFFFFu), nullptr);
  EXPECT_EQ(head, first);
  SPlex::FreeChain(head);
  EXPECT_EQ(Stats().live, 0);
}

// ===========================================================================
// TPtrList

std::vector<void*> Forward(const TPtrList& l) {
  std::vector<void*> v;
  for (POSITION pos = l.GetHeadPosition(); pos;) v.push_back(l.GetNext(pos));
  return v;
}

std::vector<void*> Backward(const TPtrList& l) {
  std::vector<void*> v;
  for (POSITION pos = l.GetTailPosition(); pos;) v.push_back(l.GetPrev(pos));
  return v;
}

// Checks the links both ways against the expected contents.
void ExpectList(const TPtrList& l, const std::vector<void*>& expected) {
  EXPECT_EQ(l.GetCount(), static_cast<int>(expected.size()));
  EXPECT_EQ(l.IsEmpty(), expected.empty());
  EXPECT_EQ(Forward(l), expected);
  std::vector<void*> reversed(expected.rbegin(), expected.rend());
  EXPECT_EQ(Backward(l), reversed);
  if (!expected.empty()) {
    EXPECT_EQ(l.GetHead(), expected.front());
    EXPECT_EQ(l.GetTail(), expected.back());
  } else {
    EXPECT_EQ(l.GetHeadPosition(), nullptr);
    EXPECT_EQ(l.GetTailPosition(), nullptr);
  }
}

TEST(PtrListTest, NewListIsEmptyAndAllocatesNothing) {
  ScopedCountingLibrary lib;
  TPtrList l;
  ExpectList(l, {});
  EXPECT_EQ(Stats().allocs, 0);
}

TEST(PtrListTest, FirstInsertionAllocatesOneBlockOfTenNodes) {
  ScopedCountingLibrary lib;
  TPtrList l;
  for (int i = 0; i < 10; ++i) {
    ASSERT_NE(l.AddTail(P(i + 1)), nullptr);
    EXPECT_EQ(Stats().allocs, 1) << i;
  }
  l.AddTail(P(11));  // the eleventh live node needs a second block
  EXPECT_EQ(Stats().allocs, 2);
  EXPECT_EQ(Stats().live, 2);
  for (int i = 12; i <= 20; ++i) l.AddHead(P(i));
  EXPECT_EQ(Stats().allocs, 2);
  l.AddHead(P(21));
  EXPECT_EQ(Stats().allocs, 3);
}

TEST(PtrListTest, BlockSizeSetsTheNodesPerBlock) {
  ScopedCountingLibrary lib;
  TPtrList l(3);
  std::vector<long> allocsAfter;
  for (int i = 0; i < 7; ++i) {
    l.AddTail(P(i + 1));
    allocsAfter.push_back(Stats().allocs);
  }
  EXPECT_EQ(allocsAfter, (std::vector<long>{1, 1, 1, 2, 2, 2, 3}));
}

TEST(PtrListTest, BlockSizeBelowOneIsTakenAsOne) {
  ScopedCountingLibrary lib;
  TPtrList zero(0), negative(-5);
  zero.AddTail(P(1));
  zero.AddTail(P(2));
  negative.AddHead(P(3));
  EXPECT_EQ(Stats().allocs, 3);
  ExpectList(zero, Ptrs({1, 2}));
  ExpectList(negative, Ptrs({3}));
}

TEST(PtrListTest, NodesAreHandedOutFromTheFirstSlotOfABlock) {
  TPtrList l;
  std::vector<char*> nodes;
  for (int i = 0; i < 10; ++i) nodes.push_back(reinterpret_cast<char*>(l.AddTail(P(i))));
  for (int i = 1; i < 10; ++i) {
    EXPECT_EQ(nodes[static_cast<size_t>(i)] - nodes[static_cast<size_t>(i) - 1],
              static_cast<ptrdiff_t>(sizeof(TPtrList::SNode)));
  }
}

TEST(PtrListTest, ARemovedNodeIsReusedBeforeANewBlockIsMade) {
  ScopedCountingLibrary lib;
  TPtrList l;
  std::vector<POSITION> positions;
  for (int i = 0; i < 10; ++i) positions.push_back(l.AddTail(P(i)));
  l.RemoveAt(positions[4]);
  EXPECT_EQ(l.AddHead(P(99)), positions[4]);  // the most recently freed node
  EXPECT_EQ(Stats().allocs, 1);
}

TEST(PtrListTest, RemovingTheLastElementReleasesEveryBlock) {
  ScopedCountingLibrary lib;
  TPtrList l;
  for (int i = 0; i < 25; ++i) l.AddTail(P(i));
  EXPECT_EQ(Stats().live, 3);
  for (int i = 0; i < 24; ++i) l.RemoveHead();
  EXPECT_EQ(Stats().live, 3);  // blocks stay while the list is not empty
  EXPECT_EQ(l.RemoveTail(), P(24));
  EXPECT_EQ(Stats().live, 0);
  ExpectList(l, {});
  l.AddTail(P(5));
  EXPECT_EQ(Stats().allocs, 4);  // a new block for the next insertion
  EXPECT_EQ(Stats().live, 1);
}

TEST(PtrListTest, RemoveAllReleasesEveryBlockWithoutVisitingElements) {
  ScopedCountingLibrary lib;
  TPtrList l;
  for (int i = 0; i < 15; ++i) l.AddTail(P(i));
  l.RemoveAll();
  ExpectList(l, {});
  EXPECT_EQ(Stats().live, 0);
  l.RemoveAll();
  l.AddTail(P(1));
  ExpectList(l, Ptrs({1}));
}

TEST(PtrListTest, DestructorReleasesEveryBlock) {
  ScopedCountingLibrary lib;
  {
    TPtrList l;
    for (int i = 0; i < 35; ++i) l.AddHead(P(i));
  }
  EXPECT_EQ(Stats().live, 0);
}

TEST(PtrListTest, AddHeadAndAddTailLinkBothWays) {
  TPtrList l;
  POSITION b = l.AddTail(P(2));
  POSITION a = l.AddHead(P(1));
  POSITION c = l.AddTail(P(3));
  ExpectList(l, Ptrs({1, 2, 3}));
  EXPECT_EQ(l.GetHeadPosition(), a);
  EXPECT_EQ(l.GetTailPosition(), c);
  POSITION pos = a;
  EXPECT_EQ(l.GetNext(pos), P(1));
  EXPECT_EQ(pos, b);
  pos = b;
  EXPECT_EQ(l.GetPrev(pos), P(2));
  EXPECT_EQ(pos, a);
  EXPECT_EQ(l.GetPrev(pos), P(1));
  EXPECT_EQ(pos, nullptr);
}

TEST(PtrListTest, AccessorsReturnReferencesIntoTheNodes) {
  TPtrList l;
  POSITION a = l.AddTail(P(1));
  l.AddTail(P(2));
  l.GetHead() = P(10);
  l.GetTail() = P(20);
  ExpectList(l, Ptrs({10, 20}));
  l.SetAt(a, P(11));
  EXPECT_EQ(l.GetAt(a), P(11));
  l.GetAt(a) = P(12);
  POSITION pos = a;
  l.GetNext(pos) = P(13);
  pos = l.GetTailPosition();
  l.GetPrev(pos) = P(21);
  ExpectList(l, Ptrs({13, 21}));
}

TEST(PtrListTest, RemoveHeadAndRemoveTailReturnTheData) {
  TPtrList l;
  for (int i = 1; i <= 4; ++i) l.AddTail(P(i));
  EXPECT_EQ(l.RemoveHead(), P(1));
  ExpectList(l, Ptrs({2, 3, 4}));
  EXPECT_EQ(l.RemoveTail(), P(4));
  ExpectList(l, Ptrs({2, 3}));
  EXPECT_EQ(l.RemoveTail(), P(3));
  EXPECT_EQ(l.RemoveHead(), P(2));
  ExpectList(l, {});
}

TEST(PtrListTest, InsertBeforeAndAfterLinkInPlace) {
  TPtrList l;
  POSITION two = l.AddTail(P(2));
  l.InsertBefore(two, P(1));  // becomes the head
  l.InsertAfter(two, P(4));   // becomes the tail
  POSITION three = l.InsertAfter(two, P(3));
  ExpectList(l, Ptrs({1, 2, 3, 4}));
  EXPECT_EQ(l.GetAt(three), P(3));
  l.InsertBefore(three, P(25));
  ExpectList(l, Ptrs({1, 2, 25, 3, 4}));
}

TEST(PtrListTest, InsertAtANullPositionAddsAtTheEnds) {
  TPtrList l;
  l.AddTail(P(5));
  POSITION h = l.InsertBefore(nullptr, P(4));
  POSITION t = l.InsertAfter(nullptr, P(6));
  ExpectList(l, Ptrs({4, 5, 6}));
  EXPECT_EQ(l.GetHeadPosition(), h);
  EXPECT_EQ(l.GetTailPosition(), t);
  TPtrList empty1, empty2;
  empty1.InsertBefore(nullptr, P(1));
  empty2.InsertAfter(nullptr, P(1));
  ExpectList(empty1, Ptrs({1}));
  ExpectList(empty2, Ptrs({1}));
}

TEST(PtrListTest, RemoveAtUnlinksHeadTailAndMiddle) {
  TPtrList l;
  std::vector<POSITION> p;
  for (int i = 1; i <= 5; ++i) p.push_back(l.AddTail(P(i)));
  l.RemoveAt(p[2]);
  ExpectList(l, Ptrs({1, 2, 4, 5}));
  l.RemoveAt(p[0]);
  ExpectList(l, Ptrs({2, 4, 5}));
  l.RemoveAt(p[4]);
  ExpectList(l, Ptrs({2, 4}));
}

TEST(PtrListTest, FindIndexWalksFromTheHeadAndRejectsOutOfRange) {
  TPtrList l;
  std::vector<POSITION> p;
  for (int i = 0; i < 4; ++i) p.push_back(l.AddTail(P(i + 1)));
  for (int i = 0; i < 4; ++i) EXPECT_EQ(l.FindIndex(i), p[static_cast<size_t>(i)]);
  EXPECT_EQ(l.FindIndex(4), nullptr);
  EXPECT_EQ(l.FindIndex(-1), nullptr);
  TPtrList empty;
  EXPECT_EQ(empty.FindIndex(0), nullptr);
}

TEST(PtrListTest, FindStartsAfterThePositionGiven) {
  TPtrList l;
  POSITION a = l.AddTail(P(7));
  POSITION b = l.AddTail(P(8));
  POSITION c = l.AddTail(P(7));
  EXPECT_EQ(l.Find(P(7)), a);
  EXPECT_EQ(l.Find(P(7), nullptr), a);
  EXPECT_EQ(l.Find(P(7), a), c);  // a itself is not tested
  EXPECT_EQ(l.Find(P(8), b), nullptr);
  EXPECT_EQ(l.Find(P(7), c), nullptr);
  EXPECT_EQ(l.Find(P(9)), nullptr);
  EXPECT_EQ(l.Find(nullptr), nullptr);
}

TEST(PtrListTest, AddHeadOfAListKeepsItsOrder) {
  TPtrList l, other;
  l.AddTail(P(100));
  other.AddTail(P(1));
  other.AddTail(P(2));
  other.AddTail(P(3));
  l.AddHead(other);
  ExpectList(l, Ptrs({1, 2, 3, 100}));
  ExpectList(other, Ptrs({1, 2, 3}));
  l.AddTail(other);
  ExpectList(l, Ptrs({1, 2, 3, 100, 1, 2, 3}));
  TPtrList empty;
  l.AddHead(empty);
  l.AddTail(empty);
  EXPECT_EQ(l.GetCount(), 7);
}

TEST(PtrListTest, AddingAListToItselfDoublesIt) {
  TPtrList l;
  for (int i = 1; i <= 3; ++i) l.AddTail(P(i));
  l.AddHead(l);
  ExpectList(l, Ptrs({1, 2, 3, 1, 2, 3}));
  l.AddTail(l);
  ExpectList(l, Ptrs({1, 2, 3, 1, 2, 3, 1, 2, 3, 1, 2, 3}));
}

// --- running out of memory -------------------------------------------------

TEST(PtrListTest, FailedPoolGrowthLeavesTheListUnchanged) {
  ScopedCountingLibrary lib;
  TPtrList l;
  FailNthAllocation(1);
  EXPECT_EQ(l.AddTail(P(1)), nullptr);
  EXPECT_EQ(l.GetCount(), 0);
  EXPECT_EQ(Stats().live, 0);
  StopFailing();
  std::vector<void*> expected;
  for (int i = 0; i < 10; ++i) {
    l.AddTail(P(i + 1));
    expected.push_back(P(i + 1));
  }
  POSITION middle = l.FindIndex(5);
  FailNthAllocation(1, true);
  EXPECT_EQ(l.AddHead(P(50)), nullptr);
  EXPECT_EQ(l.AddTail(P(50)), nullptr);
  EXPECT_EQ(l.InsertBefore(middle, P(50)), nullptr);
  EXPECT_EQ(l.InsertAfter(middle, P(50)), nullptr);
  EXPECT_EQ(l.InsertBefore(nullptr, P(50)), nullptr);
  EXPECT_EQ(l.InsertAfter(nullptr, P(50)), nullptr);
  StopFailing();
  ExpectList(l, expected);
  EXPECT_EQ(Stats().live, 1);
  EXPECT_NE(l.AddTail(P(11)), nullptr);
}

TEST(PtrListTest, FailedBulkAddIsAllOrNothing) {
  ScopedCountingLibrary lib;
  TPtrList l, other;
  for (int i = 0; i < 25; ++i) other.AddTail(P(100 + i));  // 3 blocks
  for (int i = 0; i < 5; ++i) l.AddTail(P(i));              // 1 block, 5 spare
  std::vector<void*> expected = Forward(l);
  const long live = Stats().live;
  // 20 more nodes are needed: two new blocks. Failing either changes nothing.
  for (long n = 1; n <= 2; ++n) {
    FailNthAllocation(n);
    l.AddTail(other);
    ExpectList(l, expected);
    EXPECT_EQ(Stats().live, live) << n;
    FailNthAllocation(n);
    l.AddHead(other);
    ExpectList(l, expected);
    EXPECT_EQ(Stats().live, live) << n;
  }
  FailNthAllocation(3);  // a third allocation is not needed
  l.AddTail(other);
  StopFailing();
  EXPECT_EQ(l.GetCount(), 30);
  EXPECT_EQ(Stats().live, live + 2);
  // Every pooled node is in use now: 25 more need three new blocks.
  FailNthAllocation(3);
  l.AddHead(other);
  StopFailing();
  EXPECT_EQ(l.GetCount(), 30);
  EXPECT_EQ(Stats().live, live + 2);
  FailNthAllocation(4);
  l.AddHead(other);
  StopFailing();
  EXPECT_EQ(l.GetCount(), 55);
  EXPECT_EQ(Stats().live, live + 5);
  EXPECT_EQ(Forward(l).front(), P(100));
  EXPECT_EQ(Forward(l).back(), P(124));
}

// --- randomized comparison with std::list ----------------------------------

// The pool as the list should keep it: blocks made and nodes not in use.
struct PoolModel {
  int blockSize;
  long blocks = 0;
  long freeNodes = 0;
  // Allocations a NewNode-style request of `count` nodes needs.
  long BlocksNeeded(long count) const {
    if (count <= freeNodes) return 0;
    return (count - freeNodes + blockSize - 1) / blockSize;
  }
  void Take(long count) {
    const long more = BlocksNeeded(count);
    blocks += more;
    freeNodes += more * blockSize - count;
  }
  void Give(long count, bool nowEmpty) {
    freeNodes += count;
    if (nowEmpty) blocks = freeNodes = 0;
  }
};

TEST(PtrListTest, RandomOperationsMatchAListModelIncludingThePool) {
  ScopedCountingLibrary lib;
  std::mt19937 rng(77031);
  for (int blockSize : {1, 3, 10}) {
    TPtrList l(blockSize), other;
    std::list<void*> m;
    std::vector<void*> otherModel;
    PoolModel pool{blockSize};
    const long baseLive = Stats().live;
    auto value = [&]() { return P(1 + rng() % 64); };
    auto at = [&](int index) { return std::next(m.begin(), index); };
    for (int step = 0; step < 30000; ++step) {
      const int count = static_cast<int>(m.size());
      const unsigned op = rng() % 14;
      // Fail one of the next few allocations now and then.
      const long failAt = rng() % 6 == 0 ? 1 + static_cast<long>(rng() % 3) : 0;
      if (failAt) FailNthAllocation(failAt);
      auto insertOne = [&]() {
        const bool ok = !(failAt == 1 && pool.BlocksNeeded(1) > 0);
        if (ok) pool.Take(1);
        return ok;
      };
      switch (op) {
        case 0:
        case 1: {
          void* p = value();
          const bool ok = insertOne();
          if (ok) m.push_back(p);
          POSITION pos = l.AddTail(p);
          ASSERT_EQ(pos != nullptr, ok);
          if (ok) {
            ASSERT_EQ(pos, l.GetTailPosition());
          }
          break;
        }
        case 2: {
          void* p = value();
          const bool ok = insertOne();
          if (ok) m.push_front(p);
          ASSERT_EQ(l.AddHead(p) != nullptr, ok);
          break;
        }
        case 3:
          if (count == 0) break;
          ASSERT_EQ(l.RemoveHead(), m.front());
          m.pop_front();
          pool.Give(1, m.empty());
          break;
        case 4:
          if (count == 0) break;
          ASSERT_EQ(l.RemoveTail(), m.back());
          m.pop_back();
          pool.Give(1, m.empty());
          break;
        case 5:
        case 6: {
          const int index = static_cast<int>(rng() % static_cast<unsigned>(count + 1));
          POSITION pos = l.FindIndex(index);  // null at index == count
          void* p = value();
          const bool ok = insertOne();
          POSITION added = op == 5 ? l.InsertBefore(pos, p) : l.InsertAfter(pos, p);
          ASSERT_EQ(added != nullptr, ok);
          if (ok) {
            if (op == 5) {
              m.insert(pos ? at(index) : m.begin(), p);
            } else {
              m.insert(pos ? std::next(at(index)) : m.end(), p);
            }
          }
          break;
        }
        case 7: {
          if (count == 0) break;
          const int index = static_cast<int>(rng() % static_cast<unsigned>(count));
          l.RemoveAt(l.FindIndex(index));
          m.erase(at(index));
          pool.Give(1, m.empty());
          break;
        }
        case 8:
        case 9: {
          if (count > 200) break;  // keep the list short: bulk adds double it
          const bool self = rng() % 4 == 0;
          std::vector<void*> src = self ? std::vector<void*>(m.begin(), m.end()) : otherModel;
          const long n = static_cast<long>(src.size());
          const bool ok = n == 0 || failAt == 0 || failAt > pool.BlocksNeeded(n);
          if (ok && n > 0) {
            pool.Take(n);
            if (op == 8) {
              m.insert(m.begin(), src.begin(), src.end());
            } else {
              m.insert(m.end(), src.begin(), src.end());
            }
          }
          const TPtrList& from = self ? l : other;
          if (op == 8) {
            l.AddHead(from);
          } else {
            l.AddTail(from);
          }
          break;
        }
        case 10: {
          StopFailing();
          other.RemoveAll();
          otherModel.clear();
          const int n = static_cast<int>(rng() % 25);
          for (int i = 0; i < n; ++i) {
            void* p = value();
            other.AddTail(p);
            otherModel.push_back(p);
          }
          break;
        }
        case 11: {
          void* p = value();
          const int startIndex = static_cast<int>(rng() % static_cast<unsigned>(count + 1)) - 1;
          POSITION start = startIndex < 0 ? nullptr : l.FindIndex(startIndex);
          auto it = std::find(startIndex < 0 ? m.begin() : std::next(at(startIndex)), m.end(), p);
          POSITION found = l.Find(p, start);
          if (it == m.end()) {
            ASSERT_EQ(found, nullptr);
          } else {
            ASSERT_EQ(found, l.FindIndex(static_cast<int>(std::distance(m.begin(), it))));
          }
          break;
        }
        case 12: {
          if (count == 0) break;
          const int index = static_cast<int>(rng() % static_cast<unsigned>(count));
          void* p = value();
          l.SetAt(l.FindIndex(index), p);
          *at(index) = p;
          break;
        }
        default:
          if (rng() % 20 == 0) {
            l.RemoveAll();
            m.clear();
            pool.Give(0, true);
          }
          break;
      }
      StopFailing();
      ASSERT_EQ(l.GetCount(), static_cast<int>(m.size())) << "step " << step << " op " << op;
      ASSERT_EQ(Forward(l), std::vector<void*>(m.begin(), m.end())) << "step " << step;
      ASSERT_EQ(Backward(l), std::vector<void*>(m.rbegin(), m.rend())) << "step " << step;
      ASSERT_EQ(Forward(other), otherModel);
      // Only the two lists allocate here: other's blocks plus l's pool.
      long otherBlocks = otherModel.empty() ? 0 : (static_cast<long>(otherModel.size()) + 9) / 10;
      ASSERT_EQ(Stats().live - baseLive, pool.blocks + otherBlocks) << "step " << step << " op " << op;
    }
  }
}

// ===========================================================================
// TFifoBuffer

const unsigned char kBytes[] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};

TEST(FifoBufferTest, NewBufferIsEmptyAndAllocatesNothing) {
  ScopedCountingLibrary lib;
  TFifoBuffer f;
  EXPECT_EQ(f.GetLength(), 0);
  EXPECT_EQ(f.GetCapacity(), 0);
  EXPECT_EQ(Stats().allocs + Stats().reallocs, 0);
}

TEST(FifoBufferTest, ReadOnAnEmptyBufferReturnsZeroAndLeavesTheBufferUntouched) {
  TFifoBuffer f;
  unsigned char out[4] = {0xEE, 0xEE, 0xEE, 0xEE};
  EXPECT_EQ(f.Read(out, 4), 0);
  for (unsigned char c : out) EXPECT_EQ(c, 0xEE);
  f.Write(kBytes, 2);
  f.Read(out, 2);
  EXPECT_EQ(f.Read(out + 2, 2), 0);  // emptied again, capacity kept
  EXPECT_EQ(out[2], 0xEE);
}

TEST(FifoBufferTest, ReadsTakeBytesFromTheFrontInOrder) {
  TFifoBuffer f;
  ASSERT_EQ(f.Write(kBytes, 5), 5);
  unsigned char out[10] = {};
  ASSERT_EQ(f.Read(out, 3), 3);
  EXPECT_EQ(memcmp(out, kBytes, 3), 0);
  EXPECT_EQ(f.GetLength(), 2);
  memset(out, 0, sizeof out);
  ASSERT_EQ(f.Read(out, 10), 2);
  EXPECT_EQ(out[0], 4);
  EXPECT_EQ(out[1], 5);
  EXPECT_EQ(out[2], 0);
  EXPECT_EQ(f.GetLength(), 0);
}

TEST(FifoBufferTest, GrowthIsExactAndReadingNeverShrinks) {
  ScopedCountingLibrary lib;
  TFifoBuffer f;
  ASSERT_EQ(f.Write(kBytes, 4), 4);
  EXPECT_EQ(f.GetCapacity(), 4);
  unsigned char out[4];
  ASSERT_EQ(f.Read(out, 2), 2);
  EXPECT_EQ(f.GetCapacity(), 4);
  const long requests = Stats().requests;
  ASSERT_EQ(f.Write(kBytes + 4, 2), 2);  // fits: no growth
  EXPECT_EQ(Stats().requests, requests);
  EXPECT_EQ(f.GetCapacity(), 4);
  EXPECT_EQ(f.GetLength(), 4);
  ASSERT_EQ(f.Write(kBytes + 6, 3), 3);  // 4 held + 3 = exactly 7
  EXPECT_EQ(f.GetCapacity(), 7);
  EXPECT_EQ(Stats().reallocs, 2);
  unsigned char all[7];
  ASSERT_EQ(f.Read(all, 100), 7);
  const unsigned char expected[] = {3, 4, 5, 6, 7, 8, 9};
  EXPECT_EQ(memcmp(all, expected, 7), 0);
  EXPECT_EQ(f.GetCapacity(), 7);
}

TEST(FifoBufferTest, WriteOfZeroOrNegativeCountOrNullBufferChangesNothing) {
  ScopedCountingLibrary lib;
  TFifoBuffer f;
  EXPECT_EQ(f.Write(kBytes, 0), 0);
  EXPECT_EQ(f.Write(kBytes, -3), 0);
  EXPECT_EQ(f.Write(nullptr, 3), 0);
  EXPECT_EQ(f.GetLength(), 0);
  EXPECT_EQ(f.GetCapacity(), 0);
  EXPECT_EQ(Stats().requests, 0);
  f.Write(kBytes, 3);
  unsigned char out[3] = {0xEE, 0xEE, 0xEE};
  EXPECT_EQ(f.Read(out, 0), 0);
  EXPECT_EQ(f.Read(out, -1), 0);
  EXPECT_EQ(f.Read(nullptr, 2), 0);
  EXPECT_EQ(f.GetLength(), 3);
  EXPECT_EQ(out[0], 0xEE);
}

TEST(FifoBufferTest, FailedGrowthWritesNothingAndKeepsTheHeldBytes) {
  ScopedCountingLibrary lib;
  TFifoBuffer f;
  FailNthAllocation(1);
  EXPECT_EQ(f.Write(kBytes, 3), 0);
  EXPECT_EQ(f.GetLength(), 0);
  EXPECT_EQ(f.GetCapacity(), 0);
  StopFailing();
  ASSERT_EQ(f.Write(kBytes, 3), 3);
  FailNthAllocation(1);
  EXPECT_EQ(f.Write(kBytes + 3, 5), 0);
  StopFailing();
  EXPECT_EQ(f.GetLength(), 3);
  EXPECT_EQ(f.GetCapacity(), 3);
  unsigned char out[8];
  ASSERT_EQ(f.Read(out, 8), 3);
  EXPECT_EQ(memcmp(out, kBytes, 3), 0);
}

TEST(FifoBufferTest, DestructorReleasesTheStorage) {
  ScopedCountingLibrary lib;
  {
    TFifoBuffer f;
    f.Write(kBytes, 12);
    EXPECT_EQ(Stats().live, 1);
  }
  EXPECT_EQ(Stats().live, 0);
}

TEST(FifoBufferTest, RandomReadsAndWritesMatchADequeModelIncludingCapacity) {
  ScopedCountingLibrary lib;
  std::mt19937 rng(5150);
  TFifoBuffer f;
  std::deque<unsigned char> m;
  int capacity = 0;
  unsigned char in[64], out[64];
  for (int step = 0; step < 50000; ++step) {
    const int count = static_cast<int>(rng() % 40);
    if (rng() % 2) {
      for (int i = 0; i < count; ++i) in[i] = static_cast<unsigned char>(rng());
      const bool grows = count > capacity - static_cast<int>(m.size());
      const bool fail = grows && rng() % 5 == 0;
      if (fail) FailNthAllocation(1);
      const int written = f.Write(in, count);
      StopFailing();
      if (fail || count == 0) {
        ASSERT_EQ(written, 0);
      } else {
        ASSERT_EQ(written, count);
        if (grows) capacity = static_cast<int>(m.size()) + count;
        m.insert(m.end(), in, in + count);
      }
    } else {
      memset(out, 0xA5, sizeof out);
      const int expected = std::min(count, static_cast<int>(m.size()));
      ASSERT_EQ(f.Read(out, count), expected);
      for (int i = 0; i < expected; ++i) {
        ASSERT_EQ(out[i], m.front());
        m.pop_front();
      }
      for (int i = expected; i < 64; ++i) ASSERT_EQ(out[i], 0xA5);
    }
    ASSERT_EQ(f.GetLength(), static_cast<int>(m.size())) << step;
    ASSERT_EQ(f.GetCapacity(), capacity) << step;
  }
}

// --- Allocation failures ---------------------------------------------------
// Each operation runs with its 1st, 2nd, ... allocation failing, alone and
// with every later one (AllocSweep.h), until it goes through; every run must
// give the documented out-of-memory result and leak nothing. The N each sweep
// reaches is printed ("[ SWEEP    ]").

// Everything observable of an array: elements, size, capacity and step.
struct ArrayState {
  std::vector<void*> elements;
  int maxSize;
  int growBy;
  bool operator==(const ArrayState& o) const {
    return elements == o.elements && maxSize == o.maxSize && growBy == o.growBy;
  }
};

ArrayState StateOf(const TPtrArray& a) {
  ArrayState state{{}, a.GetMaxSize(), a.GetGrowBy()};
  for (int i = 0; i < a.GetSize(); ++i) state.elements.push_back(a.GetAt(i));
  return state;
}

// Every element, walked backwards too, so that a half-linked node shows.
std::vector<void*> ElementsBackwards(const TPtrList& list) {
  std::vector<void*> out;
  for (POSITION pos = list.GetTailPosition(); pos;) out.insert(out.begin(), list.GetPrev(pos));
  return out;
}

class AllocSweepCollect : public SweepTest {
 protected:
  // Sweeps an array operation on a fresh array made by prepare: while an
  // allocation fails the array must be exactly as before, otherwise equal
  // expected (elements, and the capacity when expectedMax is not -1).
  template <class Prepare, class Operation>
  long SweepArray(const std::string& what, Prepare prepare, Operation operation,
                  const std::vector<void*>& expected, int expectedMax = -1) {
    return SweepBothModes(what, [&](SweepRun& run) {
      TPtrArray a;
      prepare(a);
      const ArrayState before = StateOf(a);
      run.Arm();
      operation(a, run);
      if (run.Disarm()) {
        EXPECT_TRUE(StateOf(a) == before) << what << " changed the array at n=" << run.n();
      } else {
        EXPECT_EQ(StateOf(a).elements, expected) << what;
        if (expectedMax != -1) {
          EXPECT_EQ(a.GetMaxSize(), expectedMax) << what;
        }
      }
    });
  }

  // Sweeps a list operation: unchanged list on failure, expected otherwise.
  template <class Prepare, class Operation>
  long SweepList(const std::string& what, Prepare prepare, Operation operation,
                 const std::vector<void*>& expected) {
    return SweepBothModes(what, [&](SweepRun& run) {
      TPtrList list(2);
      prepare(list);
      const std::vector<void*> before = Forward(list);
      run.Arm();
      operation(list, run);
      const bool failed = run.Disarm();
      EXPECT_EQ(Forward(list), ElementsBackwards(list)) << what;
      EXPECT_EQ(list.GetCount(), static_cast<int>(Forward(list).size())) << what;
      EXPECT_EQ(Forward(list), failed ? before : expected) << what << " n=" << run.n();
      // The list still works: a node can be added and removed again.
      if (list.AddTail(P(99))) list.RemoveTail();
    });
  }
};

TEST_F(AllocSweepCollect, ArrayGrowingOperationsLeaveTheArrayUnchangedAtEveryFailure) {
  auto three = [](TPtrArray& a) {
    a.SetSize(3, 0);
    a.SetAt(0, P(1));
    a.SetAt(1, P(2));
    a.SetAt(2, P(3));
    a.FreeExtra();
  };
  SweepArray("TPtrArray::Add(empty)", [](TPtrArray&) {}, [](TPtrArray& a, SweepRun&) {
    const int index = a.Add(P(7));
    EXPECT_EQ(index, a.GetSize() == 0 ? -1 : 0);
  }, {P(7)});
  SweepArray("TPtrArray::Add(full)", three, [](TPtrArray& a, SweepRun&) {
    const int index = a.Add(P(4));
    EXPECT_EQ(index == -1, a.GetSize() == 3);
  }, {P(1), P(2), P(3), P(4)});
  SweepArray("TPtrArray::SetSize", three, [](TPtrArray& a, SweepRun&) { a.SetSize(6, 5); },
             {P(1), P(2), P(3), nullptr, nullptr, nullptr});
  SweepArray("TPtrArray::SetAtGrow", three, [](TPtrArray& a, SweepRun&) { a.SetAtGrow(5, P(6)); },
             {P(1), P(2), P(3), nullptr, nullptr, P(6)});
  SweepArray("TPtrArray::InsertAt(element)", three,
             [](TPtrArray& a, SweepRun&) { a.InsertAt(1, P(9), 2); },
             {P(1), P(9), P(9), P(2), P(3)});
  SweepArray("TPtrArray::InsertAt(itself)", three,
             [](TPtrArray& a, SweepRun&) { a.InsertAt(1, &a); },
             {P(1), P(1), P(2), P(3), P(2), P(3)});
  SweepArray("TPtrArray::FreeExtra", [](TPtrArray& a) {
    a.SetSize(10, 0);
    a.SetSize(2);
    a.SetAt(0, P(1));
    a.SetAt(1, P(2));
  }, [](TPtrArray& a, SweepRun&) { a.FreeExtra(); }, {P(1), P(2)}, 2);
  TPtrArray source;
  source.Add(P(5));
  source.Add(P(6));
  SweepArray("TPtrArray::Append", three, [&](TPtrArray& a, SweepRun&) {
    const int first = a.Append(source);
    EXPECT_EQ(first, a.GetSize() == 3 ? -1 : 3);
  }, {P(1), P(2), P(3), P(5), P(6)});
  SweepArray("TPtrArray::InsertAt(other array)", three,
             [&](TPtrArray& a, SweepRun&) { a.InsertAt(0, &source); },
             {P(5), P(6), P(1), P(2), P(3)});
  SweepArray("TPtrArray::Copy", [](TPtrArray& a) { a.Add(P(1)); },
             [&](TPtrArray& a, SweepRun&) { a.Copy(source); }, {P(5), P(6)});
}

TEST_F(AllocSweepCollect, ListInsertionsLeaveTheListUnchangedAtEveryFailure) {
  // Pools of two nodes, kept full, so that every insertion needs a new block.
  auto two = [](TPtrList& list) {
    list.AddTail(P(1));
    list.AddTail(P(2));
  };
  SweepList("TPtrList::AddHead(empty)", [](TPtrList&) {}, [](TPtrList& list, SweepRun&) {
    const POSITION pos = list.AddHead(P(7));
    EXPECT_EQ(pos == nullptr, list.IsEmpty());
  }, {P(7)});
  SweepList("TPtrList::AddHead", two, [](TPtrList& list, SweepRun&) {
    const POSITION pos = list.AddHead(P(0));
    if (pos) {
      EXPECT_EQ(list.GetAt(pos), P(0));
    }
  }, {P(0), P(1), P(2)});
  SweepList("TPtrList::AddTail", two, [](TPtrList& list, SweepRun&) {
    const POSITION pos = list.AddTail(P(3));
    if (pos) {
      EXPECT_EQ(list.GetAt(pos), P(3));
    }
  }, {P(1), P(2), P(3)});
  SweepList("TPtrList::InsertBefore", two, [](TPtrList& list, SweepRun&) {
    const POSITION pos = list.InsertBefore(list.GetTailPosition(), P(5));
    if (pos) {
      EXPECT_EQ(list.GetAt(pos), P(5));
    }
  }, {P(1), P(5), P(2)});
  SweepList("TPtrList::InsertAfter", two, [](TPtrList& list, SweepRun&) {
    const POSITION pos = list.InsertAfter(list.GetHeadPosition(), P(5));
    if (pos) {
      EXPECT_EQ(list.GetAt(pos), P(5));
    }
  }, {P(1), P(5), P(2)});
  TPtrList other;
  for (intptr_t v = 10; v < 15; ++v) other.AddTail(P(v));
  SweepList("TPtrList::AddTail(list)", two,
            [&](TPtrList& list, SweepRun&) { list.AddTail(other); },
            {P(1), P(2), P(10), P(11), P(12), P(13), P(14)});
  SweepList("TPtrList::AddHead(list)", two,
            [&](TPtrList& list, SweepRun&) { list.AddHead(other); },
            {P(10), P(11), P(12), P(13), P(14), P(1), P(2)});
  SweepList("TPtrList::AddTail(itself)", two,
            [](TPtrList& list, SweepRun&) { list.AddTail(list); }, {P(1), P(2), P(1), P(2)});
  SweepList("TPtrList::AddHead(itself)", two,
            [](TPtrList& list, SweepRun&) { list.AddHead(list); }, {P(1), P(2), P(1), P(2)});
}

TEST_F(AllocSweepCollect, PlexCreateLeavesTheChainUnchangedWhenItFails) {
  SweepBothModes("SPlex::Create", [](SweepRun& run) {
    SPlex* head = nullptr;
    SPlex* first = SPlex::Create(head, 4, 16);
    ASSERT_NE(first, nullptr);
    run.Arm();
    SPlex* second = SPlex::Create(head, 4, 16);
    if (run.Disarm()) {
      EXPECT_EQ(second, nullptr);
      EXPECT_EQ(head, first);
    } else {
      EXPECT_EQ(head, second);
      EXPECT_EQ(second->pNext, first);
    }
    SPlex::FreeChain(head);
  });
}

TEST_F(AllocSweepCollect, FifoWriteChangesNothingWhenGrowingFails) {
  SweepBothModes("TFifoBuffer::Write", [](SweepRun& run) {
    TFifoBuffer fifo;
    const unsigned char first[] = {1, 2, 3};
    ASSERT_EQ(fifo.Write(first, 3), 3);
    const int capacity = fifo.GetCapacity();
    const unsigned char more[] = {4, 5, 6, 7};
    run.Arm();
    const int written = fifo.Write(more, 4);
    const bool failed = run.Disarm();
    EXPECT_EQ(written, failed ? 0 : 4);
    EXPECT_EQ(fifo.GetLength(), failed ? 3 : 7);
    if (failed) {
      EXPECT_EQ(fifo.GetCapacity(), capacity);
    }
    unsigned char out[8] = {};
    const int read = fifo.Read(out, 8);
    ASSERT_EQ(read, failed ? 3 : 7);
    for (int i = 0; i < read; ++i) EXPECT_EQ(out[i], i + 1);
  });
}

}  // namespace
