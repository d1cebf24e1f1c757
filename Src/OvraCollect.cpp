// OvraCollect.cpp - pointer array, pooled pointer list, hash maps, FIFO buffer.
#include "OvraCollect.h"

#include <limits.h>
#include <string.h>

#include <new>

#include "OvraMem.h"

static_assert(sizeof(_GUID) == 16, "_GUID must be 16 bytes");

namespace {

// Element storage of TPtrArray: the array form of operator new, with the byte
// count checked so that a huge count fails instead of wrapping around.
void** AllocSlots(int count) {
  if (static_cast<size_t>(count) > SIZE_MAX / sizeof(void*)) return nullptr;
  return static_cast<void**>(
      ::operator new[](static_cast<size_t>(count) * sizeof(void*), std::nothrow));
}

void FreeSlots(void** slots) {
  if (slots) ::operator delete[](slots);
}

// The scratch slot operator[] of a map hands out when it cannot insert. One per
// thread, so that failing inserts on different threads do not share it.
thread_local void* s_scratchValue = nullptr;

void*& ScratchValue() {
  s_scratchValue = nullptr;
  return s_scratchValue;
}

}  // namespace

// ---------------------------------------------------------------------------
// TPtrArray

TPtrArray::TPtrArray() : m_pData(nullptr), m_nSize(0), m_nMaxSize(0), m_nGrowBy(0) {}

TPtrArray::~TPtrArray() { FreeSlots(m_pData); }

void TPtrArray::SetSize(int newSize, int growBy) { Resize(newSize, growBy); }

// SetSize with a result. The growth step is committed only together with the
// new size, so that a failed call leaves every field as it was.
bool TPtrArray::Resize(int newSize, int growBy) {
  if (newSize < 0) return false;
  const int growStep = growBy != -1 ? growBy : m_nGrowBy;

  if (newSize == 0) {
    FreeSlots(m_pData);
    m_pData = nullptr;
    m_nSize = m_nMaxSize = 0;
  } else if (!m_pData) {
    // The first allocation is exact: no growth step.
    void** data = AllocSlots(newSize);
    if (!data) return false;
    memset(data, 0, static_cast<size_t>(newSize) * sizeof(void*));
    m_pData = data;
    m_nSize = m_nMaxSize = newSize;
  } else if (newSize <= m_nMaxSize) {
    // Slots beyond the size are not kept zeroed, so growing within the
    // capacity clears them; shrinking clears nothing.
    if (newSize > m_nSize) {
      memset(m_pData + m_nSize, 0, static_cast<size_t>(newSize - m_nSize) * sizeof(void*));
    }
    m_nSize = newSize;
  } else {
    int step = growStep;
    if (step == 0) {
      // Automatic step from the current size, not the requested one.
      step = m_nSize / 8;
      if (step < 4) step = 4;
      if (step > 1024) step = 1024;
    }
    const long long stepped = static_cast<long long>(m_nMaxSize) + step;
    int newMax = newSize;
    if (newSize < stepped) newMax = stepped > INT_MAX ? INT_MAX : static_cast<int>(stepped);
    void** data = AllocSlots(newMax);
    if (!data) return false;
    memcpy(data, m_pData, static_cast<size_t>(m_nSize) * sizeof(void*));
    // Zeroed up to the new size only: the spare slots are not kept zeroed.
    memset(data + m_nSize, 0, static_cast<size_t>(newSize - m_nSize) * sizeof(void*));
    FreeSlots(m_pData);
    m_pData = data;
    m_nSize = newSize;
    m_nMaxSize = newMax;
  }
  m_nGrowBy = growStep;
  return true;
}

int TPtrArray::Append(const TPtrArray& src) {
  const int oldSize = m_nSize;
  const int count = src.m_nSize;  // read first: src may be this array
  if (count < 1) return oldSize;
  if (count > INT_MAX - oldSize || !Resize(oldSize + count, -1)) return -1;
  // Read src's storage after the resize, which may have moved it (self-append).
  memcpy(m_pData + oldSize, src.m_pData, static_cast<size_t>(count) * sizeof(void*));
  return oldSize;
}

void TPtrArray::Copy(const TPtrArray& src) {
  if (&src == this) return;
  if (!Resize(src.m_nSize, -1)) return;
  if (m_nSize > 0) memcpy(m_pData, src.m_pData, static_cast<size_t>(m_nSize) * sizeof(void*));
}

void TPtrArray::FreeExtra() {
  if (m_nSize == m_nMaxSize) return;
  void** data = nullptr;
  if (m_nSize > 0) {
    data = AllocSlots(m_nSize);
    if (!data) return;  // keeping the larger storage is harmless
    memcpy(data, m_pData, static_cast<size_t>(m_nSize) * sizeof(void*));
  }
  FreeSlots(m_pData);
  m_pData = data;
  m_nMaxSize = m_nSize;
}

void TPtrArray::SetAtGrow(int index, void* element) {
  if (index >= m_nSize) {
    if (index == INT_MAX || !Resize(index + 1, -1)) return;
  }
  m_pData[index] = element;
}

void TPtrArray::InsertAt(int index, void* element, int count) {
  if (count < 0) return;
  if (index >= m_nSize) {
    // The gap between the old size and index is zero-filled by the resize.
    if (count > INT_MAX - index || !Resize(index + count, -1)) return;
  } else {
    const int oldSize = m_nSize;
    if (count > INT_MAX - oldSize || !Resize(oldSize + count, -1)) return;
    memmove(m_pData + index + count, m_pData + index,
            static_cast<size_t>(oldSize - index) * sizeof(void*));
  }
  for (int i = 0; i < count; ++i) m_pData[index + i] = element;
}

void TPtrArray::InsertAt(int start, TPtrArray* src) {
  if (!src || src->m_nSize < 1) return;
  const int count = src->m_nSize;
  const int oldSize = m_nSize;
  InsertAt(start, src->m_pData[0], count);
  if (m_nSize == oldSize) return;  // could not grow: unchanged
  if (src != this) {
    memcpy(m_pData + start, src->m_pData, static_cast<size_t>(count) * sizeof(void*));
  } else if (start >= oldSize) {
    // Inserting into itself beyond its end: the originals are still in place.
    for (int i = 0; i < count; ++i) m_pData[start + i] = m_pData[i];
  } else {
    // Inserting into itself: the originals now sit before start and after the
    // inserted run; gather them into the run in their old order.
    for (int i = 0; i < start; ++i) m_pData[start + i] = m_pData[i];
    for (int i = start; i < count; ++i) m_pData[start + i] = m_pData[i + count];
  }
}

void TPtrArray::RemoveAt(int index, int count) {
  if (count <= 0) return;
  const int moveCount = m_nSize - (index + count);
  if (moveCount > 0) {
    memmove(m_pData + index, m_pData + index + count,
            static_cast<size_t>(moveCount) * sizeof(void*));
  }
  m_nSize -= count;
}

// ---------------------------------------------------------------------------
// SPlex

SPlex* SPlex::Create(SPlex*& head, unsigned int max, unsigned int elementSize) {
  if (elementSize != 0 && max > (SIZE_MAX - sizeof(SPlex)) / elementSize) return nullptr;
  void* memory = ::operator new[](sizeof(SPlex) + static_cast<size_t>(max) * elementSize,
                                  std::nothrow);
  if (!memory) return nullptr;
  SPlex* block = static_cast<SPlex*>(memory);
  block->pNext = head;
  head = block;
  return block;
}

void SPlex::FreeDataChain() { FreeChain(this); }

void SPlex::FreeChain(SPlex* head) {
  while (head) {
    SPlex* next = head->pNext;
    ::operator delete[](static_cast<void*>(head));
    head = next;
  }
}

namespace {

// Releases the blocks made since `oldHead` was the front of `head`'s chain.
void FreeNewerBlocks(SPlex*& head, SPlex* oldHead) {
  while (head != oldHead) {
    SPlex* block = head;
    head = block->pNext;
    ::operator delete[](static_cast<void*>(block));
  }
}

}  // namespace

// ---------------------------------------------------------------------------
// TPtrList

TPtrList::TPtrList(int blockSize)
    : m_pNodeHead(nullptr),
      m_pNodeTail(nullptr),
      m_nCount(0),
      m_pNodeFree(nullptr),
      m_pBlocks(nullptr),
      m_nBlockSize(blockSize < 1 ? 1 : blockSize) {}

TPtrList::~TPtrList() { RemoveAll(); }

void TPtrList::RemoveAll() {
  m_pNodeHead = m_pNodeTail = nullptr;
  m_nCount = 0;
  m_pNodeFree = nullptr;
  SPlex::FreeChain(m_pBlocks);
  m_pBlocks = nullptr;
}

// Makes one pool block and pushes its nodes from the last slot to the first,
// so that the first slot is handed out first.
bool TPtrList::GrowPool() {
  SPlex* block = SPlex::Create(m_pBlocks, static_cast<unsigned int>(m_nBlockSize), sizeof(SNode));
  if (!block) return false;
  SNode* nodes = static_cast<SNode*>(block->GetData());
  for (int i = m_nBlockSize - 1; i >= 0; --i) {
    nodes[i].pNext = m_pNodeFree;
    m_pNodeFree = &nodes[i];
  }
  return true;
}

// Makes sure the pool holds at least `count` unused nodes, so that a bulk
// insertion cannot fail half-way. On failure the blocks it made are released
// again and the pool is as before.
bool TPtrList::ReserveNodes(int count) {
  long long available = 0;
  for (SNode* node = m_pNodeFree; node && available < count; node = node->pNext) ++available;
  SPlex* const oldBlocks = m_pBlocks;
  SNode* const oldFree = m_pNodeFree;
  while (available < count) {
    if (!GrowPool()) {
      FreeNewerBlocks(m_pBlocks, oldBlocks);
      m_pNodeFree = oldFree;  // the new blocks' nodes were all above it
      return false;
    }
    available += m_nBlockSize;
  }
  return true;
}

void TPtrList::AddHead(const TPtrList& other) {
  const int count = other.m_nCount;  // fixed first: other may be this list
  if (count == 0 || !ReserveNodes(count)) return;
  // Tail to head, each at the front, so that the elements keep their order.
  SNode* node = other.m_pNodeTail;
  for (int i = 0; i < count; ++i) {
    void* data = node->data;
    node = node->pPrev;
    AddHead(data);
  }
}

void TPtrList::AddTail(const TPtrList& other) {
  const int count = other.m_nCount;
  if (count == 0 || !ReserveNodes(count)) return;
  SNode* node = other.m_pNodeHead;
  for (int i = 0; i < count; ++i) {
    void* data = node->data;
    node = node->pNext;
    AddTail(data);
  }
}

POSITION TPtrList::InsertBefore(POSITION pos, void* data) {
  if (!pos) return AddHead(data);
  SNode* old = reinterpret_cast<SNode*>(pos);
  SNode* node = NewNode(old->pPrev, old);
  if (!node) return nullptr;
  node->data = data;
  if (old->pPrev) {
    old->pPrev->pNext = node;
  } else {
    m_pNodeHead = node;
  }
  old->pPrev = node;
  return reinterpret_cast<POSITION>(node);
}

POSITION TPtrList::InsertAfter(POSITION pos, void* data) {
  if (!pos) return AddTail(data);
  SNode* old = reinterpret_cast<SNode*>(pos);
  SNode* node = NewNode(old, old->pNext);
  if (!node) return nullptr;
  node->data = data;
  if (old->pNext) {
    old->pNext->pPrev = node;
  } else {
    m_pNodeTail = node;
  }
  old->pNext = node;
  return reinterpret_cast<POSITION>(node);
}

void TPtrList::RemoveAt(POSITION pos) {
  SNode* node = reinterpret_cast<SNode*>(pos);
  if (node == m_pNodeHead) {
    m_pNodeHead = node->pNext;
  } else {
    node->pPrev->pNext = node->pNext;
  }
  if (node == m_pNodeTail) {
    m_pNodeTail = node->pPrev;
  } else {
    node->pNext->pPrev = node->pPrev;
  }
  FreeNode(node);
}

POSITION TPtrList::FindIndex(int index) const {
  if (index >= m_nCount || index < 0) return nullptr;
  SNode* node = m_pNodeHead;
  while (index-- > 0) node = node->pNext;
  return reinterpret_cast<POSITION>(node);
}

POSITION TPtrList::Find(void* data, POSITION startAfter) const {
  SNode* node = startAfter ? reinterpret_cast<SNode*>(startAfter)->pNext : m_pNodeHead;
  for (; node; node = node->pNext) {
    if (node->data == data) return reinterpret_cast<POSITION>(node);
  }
  return nullptr;
}

// ---------------------------------------------------------------------------
// Hash maps: one set of algorithms, specialised per key type by KeyTraits.

namespace {

template <class Map> struct KeyTraits;

template <> struct KeyTraits<TPtrFromPtrMap> {
  typedef TPtrFromPtrMap::SAssoc Assoc;
  typedef void* Key;
  typedef void* KeyOut;

  static unsigned int Bucket(Key key, unsigned int size) {
    return static_cast<unsigned int>(reinterpret_cast<uintptr_t>(key) % size);
  }
  static unsigned int AssocBucket(const Assoc* assoc, unsigned int size) {
    return Bucket(assoc->key, size);
  }
  static bool Equal(const Assoc* assoc, Key key) { return assoc->key == key; }
  static void Clear(Assoc* assoc) { assoc->key = nullptr; }
  static bool SetKey(Assoc* assoc, Key key, unsigned int) {
    assoc->key = key;
    return true;
  }
  static unsigned int Rebucket(Assoc* assoc, unsigned int size) { return Bucket(assoc->key, size); }
  static void Destroy(Assoc*) {}
  static void CopyOut(const Assoc* assoc, KeyOut& out) { out = assoc->key; }
  static const bool kDestroysKeys = false;
};

template <> struct KeyTraits<TPtrFromGuidMap> {
  typedef TPtrFromGuidMap::SAssoc Assoc;
  typedef const _GUID& Key;
  typedef _GUID KeyOut;

  static unsigned int Bucket(Key key, unsigned int size) { return key.Data1 % size; }
  static unsigned int AssocBucket(const Assoc* assoc, unsigned int size) {
    return Bucket(assoc->key, size);
  }
  // Four 32-bit words, in order.
  static bool Equal(const Assoc* assoc, Key key) {
    uint32_t a[4], b[4];
    memcpy(a, &assoc->key, sizeof a);
    memcpy(b, &key, sizeof b);
    return a[0] == b[0] && a[1] == b[1] && a[2] == b[2] && a[3] == b[3];
  }
  static void Clear(Assoc* assoc) { memset(&assoc->key, 0, sizeof assoc->key); }
  static bool SetKey(Assoc* assoc, Key key, unsigned int) {
    memcpy(&assoc->key, &key, sizeof assoc->key);
    return true;
  }
  static unsigned int Rebucket(Assoc* assoc, unsigned int size) { return Bucket(assoc->key, size); }
  static void Destroy(Assoc*) {}
  static void CopyOut(const Assoc* assoc, KeyOut& out) { memcpy(&out, &assoc->key, sizeof out); }
  static const bool kDestroysKeys = false;
};

unsigned int StringHash(const unsigned short* key) {
  unsigned int h = 0;
  if (key) {
    while (*key) h = h * 33u + *key++;
  }
  return h;
}

template <> struct KeyTraits<TPtrFromBstrMap> {
  typedef TPtrFromBstrMap::SAssoc Assoc;
  typedef const unsigned short* Key;
  typedef TBstr KeyOut;

  static unsigned int Bucket(Key key, unsigned int size) { return StringHash(key) % size; }
  // The bucket index stored at insertion: no rehashing while iterating.
  static unsigned int AssocBucket(const Assoc* assoc, unsigned int) { return assoc->nHashValue; }
  static bool Equal(const Assoc* assoc, Key key) { return assoc->key.Compare(key) == 0; }
  // An empty TBstr owns nothing, so constructing one allocates nothing.
  static void Clear(Assoc* assoc) { new (&assoc->key) TBstr(); }
  static bool SetKey(Assoc* assoc, Key key, unsigned int bucket) {
    assoc->nHashValue = bucket;
    assoc->key.Assign(key);
    // TBstr swallows a failed copy and stays empty: a non-empty key must not.
    return !(key && key[0] != 0 && assoc->key.IsEmpty());
  }
  static unsigned int Rebucket(Assoc* assoc, unsigned int size) {
    assoc->nHashValue = StringHash(assoc->key.GetString()) % size;
    return assoc->nHashValue;
  }
  static void Destroy(Assoc* assoc) { assoc->key.~TBstr(); }
  static void CopyOut(const Assoc* assoc, KeyOut& out) { out.Assign(assoc->key); }
  static const bool kDestroysKeys = true;
};

POSITION const kBeforeStart = reinterpret_cast<POSITION>(~uintptr_t(0));

}  // namespace

template <class Map> struct OvraMapOps {
  typedef KeyTraits<Map> Traits;
  typedef typename Traits::Assoc Assoc;
  typedef typename Traits::Key Key;
  typedef typename Traits::KeyOut KeyOut;

  static Assoc** AllocTable(unsigned int size) {
    if (size > SIZE_MAX / sizeof(Assoc*)) return nullptr;
    void* memory = ::operator new[](size * sizeof(Assoc*), std::nothrow);
    if (memory) memset(memory, 0, size * sizeof(Assoc*));
    return static_cast<Assoc**>(memory);
  }

  static void FreeTable(Assoc** table) {
    if (table) ::operator delete[](static_cast<void*>(table));
  }

  static void Construct(Map& map, int blockSize) {
    map.m_pHashTable = nullptr;
    map.m_nHashTableSize = 17;
    map.m_nCount = 0;
    map.m_pFreeList = nullptr;
    map.m_pBlocks = nullptr;
    map.m_nBlockSize = blockSize < 1 ? 1 : blockSize;
  }

  static void InitHashTable(Map& map, unsigned int size, bool allocNow) {
    if (size == 0) return;  // would divide by zero on every lookup
    if (map.m_nCount != 0) {
      // Associations live in the buckets: move them into a new array.
      Assoc** table = AllocTable(size);
      if (!table) return;
      for (unsigned int b = 0; b < map.m_nHashTableSize; ++b) {
        Assoc* assoc = map.m_pHashTable[b];
        while (assoc) {
          Assoc* next = assoc->pNext;
          const unsigned int bucket = Traits::Rebucket(assoc, size);
          assoc->pNext = table[bucket];
          table[bucket] = assoc;
          assoc = next;
        }
      }
      FreeTable(map.m_pHashTable);
      map.m_pHashTable = table;
      map.m_nHashTableSize = size;
      return;
    }
    FreeTable(map.m_pHashTable);
    map.m_pHashTable = allocNow ? AllocTable(size) : nullptr;
    map.m_nHashTableSize = size;
  }

  static void RemoveAll(Map& map) {
    if (Traits::kDestroysKeys && map.m_pHashTable) {
      for (unsigned int b = 0; b < map.m_nHashTableSize; ++b) {
        for (Assoc* assoc = map.m_pHashTable[b]; assoc; assoc = assoc->pNext) {
          Traits::Destroy(assoc);
        }
      }
    }
    FreeTable(map.m_pHashTable);
    map.m_pHashTable = nullptr;
    map.m_nCount = 0;
    map.m_pFreeList = nullptr;
    SPlex::FreeChain(map.m_pBlocks);
    map.m_pBlocks = nullptr;
  }

  static Assoc* GetAssocAt(const Map& map, Key key, unsigned int& hash) {
    const unsigned int bucket = Traits::Bucket(key, map.m_nHashTableSize);
    hash = bucket;
    if (!map.m_pHashTable) return nullptr;
    for (Assoc* assoc = map.m_pHashTable[bucket]; assoc; assoc = assoc->pNext) {
      if (Traits::Equal(assoc, key)) return assoc;
    }
    return nullptr;
  }

  static bool Lookup(const Map& map, Key key, void*& value) {
    unsigned int bucket;
    const Assoc* assoc = GetAssocAt(map, key, bucket);
    if (!assoc) return false;
    value = assoc->value;
    return true;
  }

  static Assoc* NewAssoc(Map& map) {
    if (!map.m_pFreeList) {
      SPlex* block = SPlex::Create(map.m_pBlocks, static_cast<unsigned int>(map.m_nBlockSize),
                                   sizeof(Assoc));
      if (!block) return nullptr;
      Assoc* slots = static_cast<Assoc*>(block->GetData());
      for (int i = map.m_nBlockSize - 1; i >= 0; --i) {
        slots[i].pNext = map.m_pFreeList;
        map.m_pFreeList = &slots[i];
      }
    }
    Assoc* assoc = map.m_pFreeList;
    map.m_pFreeList = assoc->pNext;
    ++map.m_nCount;
    Traits::Clear(assoc);
    assoc->value = nullptr;
    return assoc;
  }

  static void FreeAssoc(Map& map, Assoc* assoc) {
    Traits::Destroy(assoc);
    assoc->pNext = map.m_pFreeList;
    map.m_pFreeList = assoc;
    if (--map.m_nCount == 0) RemoveAll(map);
  }

  // Inserts key (absent, bucket known); null with the map unchanged when
  // memory runs out. The bucket array is made first, then the association.
  static Assoc* Insert(Map& map, Key key, unsigned int bucket) {
    const bool madeTable = !map.m_pHashTable;
    if (madeTable) {
      map.m_pHashTable = AllocTable(map.m_nHashTableSize);
      if (!map.m_pHashTable) return nullptr;
    }
    const bool hadFree = map.m_pFreeList != nullptr;
    SPlex* const oldBlocks = map.m_pBlocks;
    Assoc* assoc = NewAssoc(map);
    if (assoc && !Traits::SetKey(assoc, key, bucket)) {
      // Undo NewAssoc without the release that FreeAssoc does at count 0, so
      // that the pool and bucket array can be restored exactly.
      Traits::Destroy(assoc);
      --map.m_nCount;
      if (hadFree) {
        assoc->pNext = map.m_pFreeList;
        map.m_pFreeList = assoc;
      } else {
        FreeNewerBlocks(map.m_pBlocks, oldBlocks);
        map.m_pFreeList = nullptr;
      }
      assoc = nullptr;
    }
    if (!assoc) {
      if (madeTable) {
        FreeTable(map.m_pHashTable);
        map.m_pHashTable = nullptr;
      }
      return nullptr;
    }
    assoc->pNext = map.m_pHashTable[bucket];
    map.m_pHashTable[bucket] = assoc;
    return assoc;
  }

  static void*& Subscript(Map& map, Key key) {
    unsigned int bucket;
    Assoc* assoc = GetAssocAt(map, key, bucket);
    if (!assoc) {
      assoc = Insert(map, key, bucket);
      if (!assoc) return ScratchValue();
    }
    return assoc->value;
  }

  static bool SetAt(Map& map, Key key, void* value) {
    unsigned int bucket;
    Assoc* assoc = GetAssocAt(map, key, bucket);
    if (!assoc) {
      assoc = Insert(map, key, bucket);
      if (!assoc) return false;
    }
    assoc->value = value;
    return true;
  }

  static bool RemoveKey(Map& map, Key key) {
    if (!map.m_pHashTable) return false;
    Assoc** link = &map.m_pHashTable[Traits::Bucket(key, map.m_nHashTableSize)];
    for (Assoc* assoc = *link; assoc; link = &assoc->pNext, assoc = *link) {
      if (Traits::Equal(assoc, key)) {
        *link = assoc->pNext;
        FreeAssoc(map, assoc);
        return true;
      }
    }
    return false;
  }

  static Assoc* FirstFrom(const Map& map, unsigned int bucket) {
    for (; bucket < map.m_nHashTableSize; ++bucket) {
      if (map.m_pHashTable[bucket]) return map.m_pHashTable[bucket];
    }
    return nullptr;
  }

  static void GetNextAssoc(const Map& map, POSITION& pos, KeyOut& key, void*& value) {
    Assoc* assoc = reinterpret_cast<Assoc*>(pos);
    if (pos == kBeforeStart) assoc = map.m_pHashTable ? FirstFrom(map, 0) : nullptr;
    if (!assoc) {  // an empty map or a finished iteration
      pos = nullptr;
      return;
    }
    Assoc* next = assoc->pNext;
    if (!next) next = FirstFrom(map, Traits::AssocBucket(assoc, map.m_nHashTableSize) + 1);
    pos = reinterpret_cast<POSITION>(next);
    Traits::CopyOut(assoc, key);
    value = assoc->value;
  }
};

// ---------------------------------------------------------------------------
// TPtrFromPtrMap

TPtrFromPtrMap::TPtrFromPtrMap(int blockSize) { OvraMapOps<TPtrFromPtrMap>::Construct(*this, blockSize); }
TPtrFromPtrMap::~TPtrFromPtrMap() { RemoveAll(); }
void TPtrFromPtrMap::InitHashTable(unsigned int size, bool allocNow) {
  OvraMapOps<TPtrFromPtrMap>::InitHashTable(*this, size, allocNow);
}
void TPtrFromPtrMap::RemoveAll() { OvraMapOps<TPtrFromPtrMap>::RemoveAll(*this); }
bool TPtrFromPtrMap::Lookup(void* key, void*& value) const {
  return OvraMapOps<TPtrFromPtrMap>::Lookup(*this, key, value);
}
void*& TPtrFromPtrMap::operator[](void* key) { return OvraMapOps<TPtrFromPtrMap>::Subscript(*this, key); }
bool TPtrFromPtrMap::SetAt(void* key, void* value) {
  return OvraMapOps<TPtrFromPtrMap>::SetAt(*this, key, value);
}
bool TPtrFromPtrMap::RemoveKey(void* key) { return OvraMapOps<TPtrFromPtrMap>::RemoveKey(*this, key); }
void TPtrFromPtrMap::GetNextAssoc(POSITION& pos, void*& key, void*& value) const {
  OvraMapOps<TPtrFromPtrMap>::GetNextAssoc(*this, pos, key, value);
}
TPtrFromPtrMap::SAssoc* TPtrFromPtrMap::GetAssocAt(void* key, unsigned int& hash) const {
  return OvraMapOps<TPtrFromPtrMap>::GetAssocAt(*this, key, hash);
}
TPtrFromPtrMap::SAssoc* TPtrFromPtrMap::NewAssoc() { return OvraMapOps<TPtrFromPtrMap>::NewAssoc(*this); }
void TPtrFromPtrMap::FreeAssoc(SAssoc* assoc) { OvraMapOps<TPtrFromPtrMap>::FreeAssoc(*this, assoc); }

// ---------------------------------------------------------------------------
// TPtrFromGuidMap

TPtrFromGuidMap::TPtrFromGuidMap(int blockSize) {
  OvraMapOps<TPtrFromGuidMap>::Construct(*this, blockSize);
}
TPtrFromGuidMap::~TPtrFromGuidMap() { RemoveAll(); }
void TPtrFromGuidMap::InitHashTable(unsigned int size, bool allocNow) {
  OvraMapOps<TPtrFromGuidMap>::InitHashTable(*this, size, allocNow);
}
void TPtrFromGuidMap::RemoveAll() { OvraMapOps<TPtrFromGuidMap>::RemoveAll(*this); }
bool TPtrFromGuidMap::Lookup(const _GUID& key, void*& value) const {
  return OvraMapOps<TPtrFromGuidMap>::Lookup(*this, key, value);
}
void*& TPtrFromGuidMap::operator[](const _GUID& key) {
  return OvraMapOps<TPtrFromGuidMap>::Subscript(*this, key);
}
bool TPtrFromGuidMap::SetAt(const _GUID& key, void* value) {
  return OvraMapOps<TPtrFromGuidMap>::SetAt(*this, key, value);
}
bool TPtrFromGuidMap::RemoveKey(const _GUID& key) {
  return OvraMapOps<TPtrFromGuidMap>::RemoveKey(*this, key);
}
void TPtrFromGuidMap::GetNextAssoc(POSITION& pos, _GUID& key, void*& value) const {
  OvraMapOps<TPtrFromGuidMap>::GetNextAssoc(*this, pos, key, value);
}
TPtrFromGuidMap::SAssoc* TPtrFromGuidMap::GetAssocAt(const _GUID& key, unsigned int& hash) const {
  return OvraMapOps<TPtrFromGuidMap>::GetAssocAt(*this, key, hash);
}
TPtrFromGuidMap::SAssoc* TPtrFromGuidMap::NewAssoc() {
  return OvraMapOps<TPtrFromGuidMap>::NewAssoc(*this);
}
void TPtrFromGuidMap::FreeAssoc(SAssoc* assoc) {
  OvraMapOps<TPtrFromGuidMap>::FreeAssoc(*this, assoc);
}

// ---------------------------------------------------------------------------
// TPtrFromBstrMap

TPtrFromBstrMap::TPtrFromBstrMap(int blockSize) {
  OvraMapOps<TPtrFromBstrMap>::Construct(*this, blockSize);
}
TPtrFromBstrMap::~TPtrFromBstrMap() { RemoveAll(); }
void TPtrFromBstrMap::InitHashTable(unsigned int size, bool allocNow) {
  OvraMapOps<TPtrFromBstrMap>::InitHashTable(*this, size, allocNow);
}
void TPtrFromBstrMap::RemoveAll() { OvraMapOps<TPtrFromBstrMap>::RemoveAll(*this); }
bool TPtrFromBstrMap::Lookup(const unsigned short* key, void*& value) const {
  return OvraMapOps<TPtrFromBstrMap>::Lookup(*this, key, value);
}
void*& TPtrFromBstrMap::operator[](const unsigned short* key) {
  return OvraMapOps<TPtrFromBstrMap>::Subscript(*this, key);
}
bool TPtrFromBstrMap::SetAt(const unsigned short* key, void* value) {
  return OvraMapOps<TPtrFromBstrMap>::SetAt(*this, key, value);
}
bool TPtrFromBstrMap::RemoveKey(const unsigned short* key) {
  return OvraMapOps<TPtrFromBstrMap>::RemoveKey(*this, key);
}
void TPtrFromBstrMap::GetNextAssoc(POSITION& pos, TBstr& key, void*& value) const {
  OvraMapOps<TPtrFromBstrMap>::GetNextAssoc(*this, pos, key, value);
}
TPtrFromBstrMap::SAssoc* TPtrFromBstrMap::GetAssocAt(const unsigned short* key,
                                                     unsigned int& hash) const {
  return OvraMapOps<TPtrFromBstrMap>::GetAssocAt(*this, key, hash);
}
TPtrFromBstrMap::SAssoc* TPtrFromBstrMap::NewAssoc() {
  return OvraMapOps<TPtrFromBstrMap>::NewAssoc(*this);
}
void TPtrFromBstrMap::FreeAssoc(SAssoc* assoc) {
  OvraMapOps<TPtrFromBstrMap>::FreeAssoc(*this, assoc);
}
unsigned int TPtrFromBstrMap::HashKey(const unsigned short* key) const { return StringHash(key); }

// ---------------------------------------------------------------------------
// TFifoBuffer

TFifoBuffer::TFifoBuffer() : m_pData(nullptr), m_nCapacity(0), m_nLength(0) {}

TFifoBuffer::~TFifoBuffer() {
  if (m_pData) OvraMemFree(m_pData);
}

int TFifoBuffer::Read(unsigned char* buffer, int count) {
  if (!buffer || count <= 0 || m_nLength == 0) return 0;
  const int taken = m_nLength < count ? m_nLength : count;
  memcpy(buffer, m_pData, static_cast<size_t>(taken));
  // No read index: the rest always moves down to the start of the storage.
  memmove(m_pData, m_pData + taken, static_cast<size_t>(m_nLength - taken));
  m_nLength -= taken;
  return taken;
}

int TFifoBuffer::Write(const unsigned char* buffer, int count) {
  if (!buffer || count <= 0) return 0;
  if (count > m_nCapacity - m_nLength) {
    if (count > INT_MAX - m_nLength) return 0;
    // Exactly the size needed: no spare room is added.
    const int needed = m_nLength + count;
    void* data = OvraMemRealloc(m_pData, static_cast<size_t>(needed));
    if (!data) return 0;  // the old storage and its bytes stay as they were
    m_pData = static_cast<unsigned char*>(data);
    m_nCapacity = needed;
  }
  memcpy(m_pData + m_nLength, buffer, static_cast<size_t>(count));
  m_nLength += count;
  return count;
}
