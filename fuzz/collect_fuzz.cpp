// Drives two TPtrArrays, two TPtrLists and a TFifoBuffer with operation
// sequences chosen by the input, each mirrored on a standard container plus a
// model of its storage: the array's capacity and growth step, the list's
// pool blocks, the buffer's exact capacity. Any operation may run with one of
// its allocations failing. After every step the containers must hold exactly
// the model's elements, in both directions for the lists; a failed allocation
// must leave the container exactly as it was; and the blocks the library holds
// must be exactly the ones the models say (so nothing leaks and nothing is
// allocated beyond the documented growth).
#include <fuzzer/FuzzedDataProvider.h>
#include <stdint.h>
#include <string.h>

#include <algorithm>
#include <deque>
#include <vector>

#include "FuzzAllocator.h"
#include "FuzzSupport.h"
#include "Ovra.h"
#include "OvraCollect.h"

using namespace ovra_fuzz;

namespace {

// Appending or inserting a container into itself doubles it; past this many
// elements such a step is skipped, so that an input stays quick to run.
constexpr size_t kMaxElements = 2000;

void* Value(FuzzedDataProvider& in) {
  // Few distinct values, so that Find has matches to find; null included.
  return reinterpret_cast<void*>(static_cast<uintptr_t>(in.ConsumeIntegralInRange<int>(0, 15)) * 8);
}

// --- TPtrArray --------------------------------------------------------------

struct ArrayModel {
  std::vector<void*> items;
  int capacity = 0;
  int growBy = 0;
};

// What SetSize(newSize, growBy) does to the model; returns the number of
// allocation requests the documented algorithm makes (0 or 1), or -1 when
// the call changes nothing at all (a negative size).
int ModelSetSize(ArrayModel& m, int newSize, int growBy) {
  if (newSize < 0) return -1;
  const int step0 = growBy != -1 ? growBy : m.growBy;
  int requests = 0;
  const int size = static_cast<int>(m.items.size());
  if (newSize == 0) {
    m.capacity = 0;
  } else if (m.capacity == 0) {
    m.capacity = newSize;
    requests = 1;
  } else if (newSize > m.capacity) {
    int step = step0;
    if (step == 0) step = std::min(std::max(size / 8, 4), 1024);
    m.capacity = newSize < m.capacity + step ? m.capacity + step : newSize;
    requests = 1;
  }
  m.items.resize(static_cast<size_t>(newSize), nullptr);  // growth is zero-filled
  m.growBy = step0;
  return requests;
}

void CheckArray(const TPtrArray& a, const ArrayModel& m) {
  FUZZ_CHECK(a.GetSize() == static_cast<int>(m.items.size()));
  FUZZ_CHECK(a.GetMaxSize() == m.capacity);
  FUZZ_CHECK(a.GetGrowBy() == m.growBy);
  FUZZ_CHECK((a.GetData() == nullptr) == (m.capacity == 0));
  for (size_t i = 0; i < m.items.size(); ++i)
    FUZZ_CHECK(a.GetAt(static_cast<int>(i)) == m.items[i]);
}

// One array operation. `other` may be the same array as `a` (self-append,
// self-insert).
void ArrayStep(FuzzedDataProvider& in, TPtrArray& a, ArrayModel& m, TPtrArray& other,
               ArrayModel& om) {
  const bool self = &a == &other;
  const int size = static_cast<int>(m.items.size());
  ArrayModel next = m;
  int requests = 0;  // what the documented algorithm asks for
  int result = 0;    // an operation's result, where it has one
  int expected = 0;  // the result it must have when nothing fails
  bool hasResult = false;
  FailNthRequest(in.ConsumeIntegralInRange<int>(0, 3) == 0 ? 1 : 0);
  OperationAllocs allocs;
  switch (in.ConsumeIntegralInRange<int>(0, 10)) {
    case 0: {
      const int n = in.ConsumeIntegralInRange<int>(-2, 160);
      const int g = in.ConsumeIntegralInRange<int>(-1, 6);
      requests = ModelSetSize(next, n, g);
      if (requests < 0) next = m, requests = 0;
      a.SetSize(n, g);
      break;
    }
    case 1: {
      void* v = Value(in);
      requests = ModelSetSize(next, size + 1, -1);
      next.items[static_cast<size_t>(size)] = v;
      result = a.Add(v);
      expected = size;
      hasResult = true;
      break;
    }
    case 2: {
      const int i = in.ConsumeIntegralInRange<int>(0, size + 20);
      void* v = Value(in);
      if (i >= size) requests = ModelSetSize(next, i + 1, -1);
      next.items[static_cast<size_t>(i)] = v;
      a.SetAtGrow(i, v);
      break;
    }
    case 3: {
      const int i = in.ConsumeIntegralInRange<int>(0, size + 8);
      const int count = in.ConsumeIntegralInRange<int>(0, 6);
      void* v = Value(in);
      if (i >= size) {
        requests = ModelSetSize(next, i + count, -1);
        for (int k = 0; k < count; ++k) next.items[static_cast<size_t>(i + k)] = v;
      } else {
        requests = ModelSetSize(next, size + count, -1);
        std::vector<void*> items = m.items;
        items.insert(items.begin() + i, static_cast<size_t>(count), v);
        next.items = items;
      }
      a.InsertAt(i, v, count);
      break;
    }
    case 4: {  // insert another array (or itself)
      const int i = in.ConsumeIntegralInRange<int>(0, size + 8);
      const std::vector<void*> src = om.items;
      if (m.items.size() + src.size() + 8 > kMaxElements) return;
      const int count = static_cast<int>(src.size());
      if (count > 0) {
        if (i >= size) {
          requests = ModelSetSize(next, i + count, -1);
          std::copy(src.begin(), src.end(), next.items.begin() + i);
        } else {
          requests = ModelSetSize(next, size + count, -1);
          std::vector<void*> items = m.items;
          items.insert(items.begin() + i, src.begin(), src.end());
          next.items = items;
        }
      }
      a.InsertAt(i, &other);
      break;
    }
    case 5: {
      if (size == 0) return;
      const int i = in.ConsumeIntegralInRange<int>(0, size - 1);
      const int count = in.ConsumeIntegralInRange<int>(0, size - i);
      next.items.erase(next.items.begin() + i, next.items.begin() + i + count);
      a.RemoveAt(i, count);
      break;
    }
    case 6: {  // append another array (or itself)
      const std::vector<void*> src = om.items;
      if (m.items.size() + src.size() > kMaxElements) return;
      if (!src.empty()) {
        requests = ModelSetSize(next, size + static_cast<int>(src.size()), -1);
        std::copy(src.begin(), src.end(), next.items.begin() + size);
      }
      result = a.Append(other);
      expected = size;
      hasResult = true;
      break;
    }
    case 7: {  // copy another array; copying itself changes nothing
      if (!self) {
        requests = ModelSetSize(next, static_cast<int>(om.items.size()), -1);
        next.items = om.items;
      }
      a.Copy(other);
      break;
    }
    case 8: {
      if (m.capacity != size) {
        next.capacity = size;
        requests = size > 0 ? 1 : 0;
      }
      a.FreeExtra();
      break;
    }
    case 9: {  // the accessors that write
      if (size == 0) return;
      const int i = in.ConsumeIntegralInRange<int>(0, size - 1);
      void* v = Value(in);
      switch (in.ConsumeIntegralInRange<int>(0, 2)) {
        case 0:
          a.SetAt(i, v);
          break;
        case 1:
          a.ElementAt(i) = v;
          break;
        default:
          a[i] = v;
          break;
      }
      next.items[static_cast<size_t>(i)] = v;
      break;
    }
    default: {  // the accessors that read
      const TPtrArray& c = a;
      for (int i = 0; i < size; ++i) FUZZ_CHECK(c[i] == m.items[static_cast<size_t>(i)]);
      break;
    }
  }
  FailNthRequest(0);
  FUZZ_CHECK(allocs.Requests() == requests);
  if (allocs.Failed()) {
    CheckArray(a, m);  // exactly as it was
    if (hasResult) FUZZ_CHECK(result == -1);
  } else {
    m = next;
    if (self) om = m;
    CheckArray(a, m);
    if (hasResult) FUZZ_CHECK(result == expected);
  }
}

// --- TPtrList ---------------------------------------------------------------

struct ListModel {
  explicit ListModel(int bs) : blockSize(bs < 1 ? 1 : bs) {}
  std::vector<void*> items;
  int blockSize;
  int blocks = 0;
  int FreeNodes() const { return blocks * blockSize - static_cast<int>(items.size()); }
  // Blocks a request for n more nodes makes.
  int BlocksFor(int n) const {
    const int missing = n - FreeNodes();
    return missing > 0 ? (missing + blockSize - 1) / blockSize : 0;
  }
};

void CheckList(const TPtrList& l, const ListModel& m) {
  const int n = static_cast<int>(m.items.size());
  FUZZ_CHECK(l.GetCount() == n);
  FUZZ_CHECK(l.IsEmpty() == (n == 0));
  FUZZ_CHECK((l.GetHeadPosition() == nullptr) == (n == 0));
  FUZZ_CHECK((l.GetTailPosition() == nullptr) == (n == 0));
  if (n > 0) {
    FUZZ_CHECK(l.GetHead() == m.items.front());
    FUZZ_CHECK(l.GetTail() == m.items.back());
  }
  POSITION pos = l.GetHeadPosition();
  for (int i = 0; i < n; ++i) {
    FUZZ_CHECK(pos != nullptr);
    FUZZ_CHECK(l.GetNext(pos) == m.items[static_cast<size_t>(i)]);
  }
  FUZZ_CHECK(pos == nullptr);
  pos = l.GetTailPosition();
  for (int i = n - 1; i >= 0; --i) {
    FUZZ_CHECK(pos != nullptr);
    FUZZ_CHECK(l.GetPrev(pos) == m.items[static_cast<size_t>(i)]);
  }
  FUZZ_CHECK(pos == nullptr);
}

// The position of index i as FindIndex gives it, checked against a walk.
POSITION PositionOf(const TPtrList& l, int i) {
  POSITION found = l.FindIndex(i);
  POSITION walk = l.GetHeadPosition();
  for (int k = 0; k < i && walk; ++k) l.GetNext(walk);
  FUZZ_CHECK(found == walk);
  return found;
}

void ListStep(FuzzedDataProvider& in, TPtrList& l, ListModel& m, TPtrList& other, ListModel& om) {
  const bool self = &l == &other;
  const int n = static_cast<int>(m.items.size());
  ListModel next = m;
  int requests = 0;
  bool positionResult = false;  // the operation returns a POSITION
  POSITION result = nullptr;
  int resultIndex = -1;  // where the new element must be
  FailNthRequest(in.ConsumeIntegralInRange<int>(0, 3) == 0 ? in.ConsumeIntegralInRange<int>(1, 2)
                                                           : 0);
  OperationAllocs allocs;
  const int op = in.ConsumeIntegralInRange<int>(0, 12);
  switch (op) {
    case 0:
    case 1:
    case 2:
    case 3: {  // AddHead, AddTail, InsertBefore, InsertAfter of one element
      void* v = Value(in);
      const int i = n ? in.ConsumeIntegralInRange<int>(-1, n - 1) : -1;
      requests = m.BlocksFor(1);
      next.blocks += requests;
      positionResult = true;
      if (op == 0) {
        resultIndex = 0;
        result = l.AddHead(v);
      } else if (op == 1) {
        resultIndex = n;
        result = l.AddTail(v);
      } else if (op == 2) {  // -1 stands for a null position: AddHead
        resultIndex = i < 0 ? 0 : i;
        result = l.InsertBefore(i < 0 ? nullptr : PositionOf(l, i), v);
      } else {  // a null position: AddTail
        resultIndex = i < 0 ? n : i + 1;
        result = l.InsertAfter(i < 0 ? nullptr : PositionOf(l, i), v);
      }
      next.items.insert(next.items.begin() + resultIndex, v);
      break;
    }
    case 4:
    case 5: {
      if (n == 0) return;
      void* removed = op == 4 ? l.RemoveHead() : l.RemoveTail();
      FUZZ_CHECK(removed == (op == 4 ? m.items.front() : m.items.back()));
      if (op == 4) {
        next.items.erase(next.items.begin());
      } else {
        next.items.pop_back();
      }
      if (next.items.empty()) next.blocks = 0;
      break;
    }
    case 6: {
      if (n == 0) return;
      const int i = in.ConsumeIntegralInRange<int>(0, n - 1);
      l.RemoveAt(PositionOf(l, i));
      next.items.erase(next.items.begin() + i);
      if (next.items.empty()) next.blocks = 0;
      break;
    }
    case 7:
    case 8: {  // bulk AddHead / AddTail of another list (or itself): all or nothing
      const std::vector<void*> src = om.items;
      if (m.items.size() + src.size() > kMaxElements) return;
      if (!src.empty()) {
        requests = m.BlocksFor(static_cast<int>(src.size()));
        next.blocks += requests;
        next.items.insert(op == 7 ? next.items.begin() : next.items.end(), src.begin(), src.end());
      }
      if (op == 7) {
        l.AddHead(other);
      } else {
        l.AddTail(other);
      }
      break;
    }
    case 9: {
      l.RemoveAll();
      next.items.clear();
      next.blocks = 0;
      break;
    }
    case 10: {  // SetAt, and the reference accessors
      if (n == 0) return;
      const int i = in.ConsumeIntegralInRange<int>(0, n - 1);
      void* v = Value(in);
      POSITION pos = PositionOf(l, i);
      switch (in.ConsumeIntegralInRange<int>(0, 3)) {
        case 0:
          l.SetAt(pos, v);
          break;
        case 1:
          l.GetAt(pos) = v;
          break;
        case 2:
          if (i == 0)
            l.GetHead() = v;
          else
            l.SetAt(pos, v);
          break;
        default:
          if (i == n - 1)
            l.GetTail() = v;
          else
            l.SetAt(pos, v);
          break;
      }
      next.items[static_cast<size_t>(i)] = v;
      break;
    }
    case 11: {  // Find from the head or after a position
      void* v = Value(in);
      const int after = n ? in.ConsumeIntegralInRange<int>(-1, n - 1) : -1;
      POSITION found = l.Find(v, after < 0 ? nullptr : PositionOf(l, after));
      int expect = -1;
      for (int k = after + 1; k < n; ++k) {
        if (m.items[static_cast<size_t>(k)] == v) {
          expect = k;
          break;
        }
      }
      FUZZ_CHECK(found == (expect < 0 ? nullptr : PositionOf(l, expect)));
      break;
    }
    default: {  // FindIndex out of range
      FUZZ_CHECK(l.FindIndex(n) == nullptr);
      FUZZ_CHECK(l.FindIndex(-1) == nullptr);
      FUZZ_CHECK(l.FindIndex(INT32_MIN) == nullptr);
      break;
    }
  }
  FailNthRequest(0);
  // A bulk insertion may stop at its first failing block request.
  if (op == 7 || op == 8) {
    FUZZ_CHECK(allocs.Failed() ? allocs.Requests() <= requests : allocs.Requests() == requests);
  } else {
    FUZZ_CHECK(allocs.Requests() == requests);
  }
  if (allocs.Failed()) {
    CheckList(l, m);
    if (positionResult) FUZZ_CHECK(result == nullptr);
  } else {
    m = next;
    if (self) om = m;
    CheckList(l, m);
    if (positionResult) FUZZ_CHECK(result != nullptr && result == PositionOf(l, resultIndex));
  }
}

// --- TFifoBuffer --------------------------------------------------------------

struct FifoModel {
  std::deque<unsigned char> bytes;
  int capacity = 0;
};

void CheckFifo(const TFifoBuffer& f, const FifoModel& m) {
  FUZZ_CHECK(f.GetLength() == static_cast<int>(m.bytes.size()));
  FUZZ_CHECK(f.GetCapacity() == m.capacity);
}

void FifoStep(FuzzedDataProvider& in, TFifoBuffer& f, FifoModel& m, unsigned char& serial) {
  FailNthRequest(in.ConsumeIntegralInRange<int>(0, 3) == 0 ? 1 : 0);
  OperationAllocs allocs;
  const int length = static_cast<int>(m.bytes.size());
  if (in.ConsumeBool()) {
    const int count = in.ConsumeIntegralInRange<int>(-2, 300);
    const bool nullBuffer = in.ConsumeIntegralInRange<int>(0, 15) == 0;
    std::vector<unsigned char> data(static_cast<size_t>(count > 0 ? count : 0));
    for (unsigned char& b : data) b = serial++;
    const int written = f.Write(nullBuffer ? nullptr : data.data(), count);
    FailNthRequest(0);
    if (count <= 0 || nullBuffer) {
      FUZZ_CHECK(written == 0);
      FUZZ_CHECK(allocs.Requests() == 0);
    } else if (count > m.capacity - length) {
      FUZZ_CHECK(allocs.Requests() == 1);
      if (allocs.Failed()) {
        FUZZ_CHECK(written == 0);
      } else {
        FUZZ_CHECK(written == count);
        m.capacity = length + count;  // exactly the size needed
        m.bytes.insert(m.bytes.end(), data.begin(), data.end());
      }
    } else {
      FUZZ_CHECK(allocs.Requests() == 0);
      FUZZ_CHECK(written == count);
      m.bytes.insert(m.bytes.end(), data.begin(), data.end());
    }
  } else {
    const int count = in.ConsumeIntegralInRange<int>(-2, 300);
    const bool nullBuffer = in.ConsumeIntegralInRange<int>(0, 15) == 0;
    std::vector<unsigned char> out(static_cast<size_t>(count > 0 ? count : 0) + 1, 0xEE);
    const int taken = f.Read(nullBuffer ? nullptr : out.data(), count);
    FailNthRequest(0);
    FUZZ_CHECK(allocs.Requests() == 0);
    const int expect = (nullBuffer || count <= 0) ? 0 : std::min(count, length);
    FUZZ_CHECK(taken == expect);
    for (int i = 0; i < expect; ++i) {
      FUZZ_CHECK(out[static_cast<size_t>(i)] == m.bytes.front());
      m.bytes.pop_front();
    }
    FUZZ_CHECK(out[static_cast<size_t>(expect)] == 0xEE);  // nothing written past the bytes taken
  }
  CheckFifo(f, m);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  SAllocator allocator = FuzzAllocator();
  if (!OvraInitialize(&allocator)) abort();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider in(data, size);
  const long liveBefore = AllocStats().live;
  {
    TPtrArray arrays[2];
    ArrayModel arrayModels[2];
    const int blockSizes[2] = {in.ConsumeIntegralInRange<int>(-1, 4),
                               in.ConsumeIntegralInRange<int>(1, 12)};
    TPtrList lists[2] = {TPtrList(blockSizes[0]), TPtrList(blockSizes[1])};
    ListModel listModels[2] = {ListModel(blockSizes[0]), ListModel(blockSizes[1])};
    TFifoBuffer fifo;
    FifoModel fifoModel;
    unsigned char serial = 0;
    for (int step = 0; step < 400 && in.remaining_bytes() > 0; ++step) {
      const int which = in.ConsumeIntegralInRange<int>(0, 1);
      const int with = in.ConsumeBool() ? which : 1 - which;
      switch (in.ConsumeIntegralInRange<int>(0, 2)) {
        case 0:
          ArrayStep(in, arrays[which], arrayModels[which], arrays[with], arrayModels[with]);
          break;
        case 1:
          ListStep(in, lists[which], listModels[which], lists[with], listModels[with]);
          break;
        default:
          FifoStep(in, fifo, fifoModel, serial);
          break;
      }
      // Allocation balance: the library holds exactly the blocks the models say.
      long expectLive = 0;
      for (const ArrayModel& m : arrayModels) expectLive += m.capacity > 0 ? 1 : 0;
      for (const ListModel& m : listModels) expectLive += m.blocks;
      expectLive += fifoModel.capacity > 0 ? 1 : 0;
      FUZZ_CHECK(AllocStats().live - liveBefore == expectLive);
    }
  }
  FUZZ_CHECK(AllocStats().live == liveBefore);  // the destructors gave everything back
  return 0;
}
