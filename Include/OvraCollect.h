// OvraCollect.h - untyped pointer collections: a growable pointer array, a
// doubly linked pointer list with pooled nodes, chained hash maps from
// pointers, identifiers and strings to pointers, and a byte FIFO buffer.
//
// The collections never own what their pointers point to. They take no lock:
// an object is used by one thread at a time.
//
// Running out of memory: no operation crashes or throws. An operation that
// needs memory and cannot get it leaves its container exactly as it was
// (same elements, same capacity, same pool) and says so through its result
// where it has one (-1 index, null POSITION, false, 0 bytes). Operations
// declared void report nothing; the unchanged size or count tells.
//
// Indices, counts and positions handed to the accessors are not checked: a
// negative or out-of-range index or a stale POSITION is a caller error.
#ifndef OVRA_OVRACOLLECT_H
#define OVRA_OVRACOLLECT_H

#include <stdint.h>

#include "OvraBstr.h"
#include "OvraPlatform.h"

// Opaque iteration handle of lists and maps: the address of a list node or of
// a map association. Null means no position (the end); for a map the all-ones
// value returned by GetStartPosition means "before the first association".
struct __POSITION;
typedef __POSITION* POSITION;

// A 16-byte identifier: a 32-bit leading field followed by 12 more bytes.
// TPtrFromGuidMap compares all 16 bytes and hashes the leading field only.
// Windows declares the same record under the same name (its GUID): there the
// declaration is shared, whichever header comes first, and Data1 has the
// system's type for it, unsigned long (32 bits on Windows).
#if defined(_WIN32)
#ifndef GUID_DEFINED
#define GUID_DEFINED
// The 16-byte identifier described above, as the system declares it.
typedef struct _GUID {
  unsigned long Data1;     // the leading field, the one hashed
  unsigned short Data2;    // the next two bytes
  unsigned short Data3;    // the two bytes after them
  unsigned char Data4[8];  // the last eight bytes
} GUID;
#endif
#else
// The 16-byte identifier described above.
struct _GUID {
  uint32_t Data1;          // the leading field, the one hashed
  unsigned short Data2;    // the next two bytes
  unsigned short Data3;    // the two bytes after them
  unsigned char Data4[8];  // the last eight bytes
};
#endif

// ---------------------------------------------------------------------------
// TPtrArray

// A growable array of void* (never owning the pointees). The first allocation
// is exact; growth beyond the capacity adds a step: the fixed step given to
// SetSize, or, when that is 0, size/8 clamped to 4..1024 (size before the
// growth). Nothing shrinks the storage except SetSize(0) and FreeExtra.
class OVRA_API TPtrArray {
 public:
  // An empty array with automatic growth; allocates nothing.
  TPtrArray();
  // Releases the storage (the pointees are not touched).
  ~TPtrArray();
  TPtrArray(const TPtrArray&) = delete;
  TPtrArray& operator=(const TPtrArray&) = delete;

  // Number of elements in use.
  int GetSize() const { return m_nSize; }
  // Number of element slots allocated.
  int GetMaxSize() const { return m_nMaxSize; }
  // The fixed growth step; 0 means automatic (size/8 clamped to 4..1024).
  int GetGrowBy() const { return m_nGrowBy; }
  // The element at i (0 <= i < GetSize(), not checked).
  void* GetAt(int i) const { return m_pData[i]; }
  // Replaces the element at i (0 <= i < GetSize(), not checked).
  void SetAt(int i, void* element) { m_pData[i] = element; }
  // A reference to the element at i (not checked).
  void*& ElementAt(int i) { return m_pData[i]; }
  // The element at i (not checked), by value.
  void* operator[](int i) const { return m_pData[i]; }
  // A reference to the element at i (not checked), like ElementAt.
  void*& operator[](int i) { return m_pData[i]; }
  // The element storage; null when nothing is allocated.
  void** GetData() { return m_pData; }
  // The element storage, read-only; null when nothing is allocated.
  void* const* GetData() const { return m_pData; }
  // Appends one element (SetAtGrow(GetSize(), element)); returns its index,
  // or -1 when growing failed (the array is then unchanged).
  int Add(void* element) {
    const int index = m_nSize;
    SetAtGrow(index, element);
    return m_nSize > index ? index : -1;
  }

  // Sets the number of elements. New elements are null. growBy other than -1
  // becomes the fixed growth step (0 = automatic). SetSize(0, ...) releases
  // the storage; shrinking otherwise keeps capacity and the old values beyond
  // the new size. Out of memory or newSize < 0: nothing changes, the step
  // included.
  void SetSize(int newSize, int growBy = -1);
  // Appends src's elements; returns the index of the first (the old size),
  // the old size when src is empty, or -1 when growing failed (unchanged).
  int Append(const TPtrArray& src);
  // Makes this array a copy of src's elements (the capacity follows SetSize's
  // rules). Out of memory: unchanged.
  void Copy(const TPtrArray& src);
  // Shrinks the storage to exactly GetSize() slots (none when the size is 0).
  // Out of memory: the larger storage is kept, the elements are unchanged.
  void FreeExtra();
  // Stores element at index, first growing to index + 1 elements when index
  // is at or beyond the size (the gap is filled with nulls). Out of memory:
  // unchanged (Add reports it as -1).
  void SetAtGrow(int index, void* element);
  // Inserts count copies of element at index, moving later elements up; an
  // index at or beyond the size grows the array, filling the gap with nulls.
  // Out of memory: unchanged.
  void InsertAt(int index, void* element, int count = 1);
  // Inserts all of src's elements at start, in order (src may be this array).
  // Nothing happens when src is empty or null. Out of memory: unchanged.
  void InsertAt(int start, TPtrArray* src);
  // Removes count elements from index on, moving later ones down; the storage
  // is never shrunk. index and count are not checked.
  void RemoveAt(int index, int count = 1);

 private:
  bool Resize(int newSize, int growBy);

  void** m_pData;
  int m_nSize;
  int m_nMaxSize;
  int m_nGrowBy;
};

// ---------------------------------------------------------------------------
// SPlex

// The header of one pool block. The block's element slots follow the header
// in the same allocation; blocks are chained newest first.
struct OVRA_API SPlex {
  SPlex* pNext;  // the next (older) block of the chain; null after the last

  // Allocates one block of max elements of elementSize bytes each (array
  // operator new), links it at the front of head's chain and returns it.
  // Null, with head unchanged, when memory runs out or the size overflows.
  static SPlex* Create(SPlex*& head, unsigned int max, unsigned int elementSize);
  // Releases this block and every block after it. Call it through a non-null
  // pointer; FreeChain is the form that accepts an empty (null) chain.
  void FreeDataChain();
  // Releases every block of the chain starting at head; null is accepted.
  static void FreeChain(SPlex* head);
  // The first element slot of this block.
  void* GetData() { return this + 1; }
};

// ---------------------------------------------------------------------------
// TPtrList

// A doubly linked list of void* whose nodes come from a private pool made of
// blocks of blockSize nodes. A removed node is reused before a new block is
// made; when the list becomes empty, every pool block is released.
class OVRA_API TPtrList {
 public:
  // One list node, handed out by the pool.
  struct SNode {
    SNode* pNext;  // the next node of the list, or of the pool's free nodes
    SNode* pPrev;  // the previous node of the list
    void* data;    // the element
  };

  // An empty list whose pool grows by blockSize nodes at a time (values below
  // 1 are taken as 1). Allocates nothing.
  explicit TPtrList(int blockSize = 10);
  // RemoveAll().
  ~TPtrList();
  TPtrList(const TPtrList&) = delete;
  TPtrList& operator=(const TPtrList&) = delete;

  // Number of elements.
  int GetCount() const { return m_nCount; }
  // True when the list holds no element.
  bool IsEmpty() const { return m_nCount == 0; }
  // The first element; the list must not be empty (not checked).
  void*& GetHead() { return m_pNodeHead->data; }
  void* GetHead() const { return m_pNodeHead->data; }
  // The last element; the list must not be empty (not checked).
  void*& GetTail() { return m_pNodeTail->data; }
  void* GetTail() const { return m_pNodeTail->data; }
  // The position of the first / last element; null when the list is empty.
  POSITION GetHeadPosition() const { return reinterpret_cast<POSITION>(m_pNodeHead); }
  POSITION GetTailPosition() const { return reinterpret_cast<POSITION>(m_pNodeTail); }
  // The element at pos; pos moves to the next element (null after the last).
  void*& GetNext(POSITION& pos) {
    SNode* node = reinterpret_cast<SNode*>(pos);
    pos = reinterpret_cast<POSITION>(node->pNext);
    return node->data;
  }
  void* GetNext(POSITION& pos) const {
    SNode* node = reinterpret_cast<SNode*>(pos);
    pos = reinterpret_cast<POSITION>(node->pNext);
    return node->data;
  }
  // The element at pos; pos moves to the previous element (null before the first).
  void*& GetPrev(POSITION& pos) {
    SNode* node = reinterpret_cast<SNode*>(pos);
    pos = reinterpret_cast<POSITION>(node->pPrev);
    return node->data;
  }
  void* GetPrev(POSITION& pos) const {
    SNode* node = reinterpret_cast<SNode*>(pos);
    pos = reinterpret_cast<POSITION>(node->pPrev);
    return node->data;
  }
  // The element at pos (a valid position, not checked).
  void*& GetAt(POSITION pos) { return reinterpret_cast<SNode*>(pos)->data; }
  void* GetAt(POSITION pos) const { return reinterpret_cast<SNode*>(pos)->data; }
  // Replaces the element at pos.
  void SetAt(POSITION pos, void* data) { reinterpret_cast<SNode*>(pos)->data = data; }

  // Empties the list and releases every pool block; elements are not visited.
  void RemoveAll();
  // Adds data at the front; returns its position, or null when the pool could
  // not grow (the list is then unchanged).
  POSITION AddHead(void* data) {
    SNode* node = NewNode(nullptr, m_pNodeHead);
    if (!node) return nullptr;
    node->data = data;
    if (m_pNodeHead) {
      m_pNodeHead->pPrev = node;
    } else {
      m_pNodeTail = node;
    }
    m_pNodeHead = node;
    return reinterpret_cast<POSITION>(node);
  }
  // Adds data at the back; returns its position, or null when the pool could
  // not grow (the list is then unchanged).
  POSITION AddTail(void* data) {
    SNode* node = NewNode(m_pNodeTail, nullptr);
    if (!node) return nullptr;
    node->data = data;
    if (m_pNodeTail) {
      m_pNodeTail->pNext = node;
    } else {
      m_pNodeHead = node;
    }
    m_pNodeTail = node;
    return reinterpret_cast<POSITION>(node);
  }
  // Adds all of other's elements at the front, keeping their order (other may
  // be this list). All or nothing: out of memory leaves the list unchanged.
  void AddHead(const TPtrList& other);
  // Adds all of other's elements at the back, in order (other may be this
  // list). All or nothing: out of memory leaves the list unchanged.
  void AddTail(const TPtrList& other);
  // Unlinks the first element and returns it. The list must not be empty (not
  // checked). Removing the only element releases the pool.
  void* RemoveHead() {
    SNode* old = m_pNodeHead;
    void* data = old->data;
    m_pNodeHead = old->pNext;
    if (m_pNodeHead) {
      m_pNodeHead->pPrev = nullptr;
    } else {
      m_pNodeTail = nullptr;
    }
    FreeNode(old);
    return data;
  }
  // Unlinks the last element and returns it; as RemoveHead otherwise.
  void* RemoveTail() {
    SNode* old = m_pNodeTail;
    void* data = old->data;
    m_pNodeTail = old->pPrev;
    if (m_pNodeTail) {
      m_pNodeTail->pNext = nullptr;
    } else {
      m_pNodeHead = nullptr;
    }
    FreeNode(old);
    return data;
  }
  // Inserts data before pos (null pos: AddHead); returns the new position, or
  // null when the pool could not grow (unchanged).
  POSITION InsertBefore(POSITION pos, void* data);
  // Inserts data after pos (null pos: AddTail); returns the new position, or
  // null when the pool could not grow (unchanged).
  POSITION InsertAfter(POSITION pos, void* data);
  // Unlinks the element at pos and returns its node to the pool.
  void RemoveAt(POSITION pos);
  // The position of the index-th element; null when index < 0 or >= count.
  POSITION FindIndex(int index) const;
  // The first position after startAfter (from the head when null) whose
  // element equals data; startAfter's own element is not tested. Null if none.
  POSITION Find(void* data, POSITION startAfter = nullptr) const;

  // Takes a node from the pool (making a block when the pool is empty) and
  // counts it; its data is null. Null when a needed block cannot be made.
  SNode* NewNode(SNode* prev, SNode* next) {
    if (!m_pNodeFree && !GrowPool()) return nullptr;
    SNode* node = m_pNodeFree;
    m_pNodeFree = node->pNext;
    node->pPrev = prev;
    node->pNext = next;
    node->data = nullptr;
    ++m_nCount;
    return node;
  }
  // Returns a node to the pool; when the count reaches 0 the pool is released.
  void FreeNode(SNode* node) {
    node->pNext = m_pNodeFree;
    m_pNodeFree = node;
    if (--m_nCount == 0) RemoveAll();
  }

 private:
  bool GrowPool();
  bool ReserveNodes(int count);

  SNode* m_pNodeHead;
  SNode* m_pNodeTail;
  int m_nCount;
  SNode* m_pNodeFree;
  SPlex* m_pBlocks;
  int m_nBlockSize;
};

// ---------------------------------------------------------------------------
// Hash maps
//
// Chained hash maps from a key to a void* value (values are never owned).
// The bucket array is made on the first insertion, with the size given to
// InitHashTable (17 by default); associations come from a pool of blockSize
// associations per block. When the count falls back to 0, the bucket array
// and every pool block are released (the table size is kept).
//
// Iteration order: buckets in ascending order, and within one bucket the most
// recently inserted key first.
//
// Out of memory: operator[] leaves the map unchanged and returns a reference to
// a scratch slot of the calling thread that the map never reads (a value
// stored through it is lost); SetAt reports the same failure as false.

// The maps' shared algorithms; defined and used inside the library only.
template <class Map> struct OvraMapOps;

// Map from pointer keys; the hash is the pointer value as an unsigned integer
// of pointer width, modulo the table size.
class OVRA_API TPtrFromPtrMap {
 public:
  // One association, handed out by the pool.
  struct SAssoc {
    SAssoc* pNext;  // the next association of the bucket, or of the free list
    void* key;      // the key
    void* value;    // the value stored under it
  };

  // An empty map with table size 17; allocates nothing.
  explicit TPtrFromPtrMap(int blockSize = 10);
  // RemoveAll().
  ~TPtrFromPtrMap();
  TPtrFromPtrMap(const TPtrFromPtrMap&) = delete;
  TPtrFromPtrMap& operator=(const TPtrFromPtrMap&) = delete;

  // Number of associations.
  int GetCount() const { return m_nCount; }
  // True when the map holds nothing.
  bool IsEmpty() const { return m_nCount == 0; }
  // The number of buckets used for the current or next bucket array.
  unsigned int GetHashTableSize() const { return m_nHashTableSize; }
  // Before-the-start position for GetNextAssoc; null when the map is empty.
  POSITION GetStartPosition() const {
    return m_nCount ? reinterpret_cast<POSITION>(~uintptr_t(0)) : nullptr;
  }

  // Sets the number of buckets (0 is ignored). On an empty map it releases
  // any bucket array and allocates a zeroed one of size buckets at once when
  // allocNow (if that allocation fails, the array is made on first insertion).
  // On a non-empty map the associations are moved into a new array of size
  // buckets at once; if that allocation fails nothing changes.
  void InitHashTable(unsigned int size, bool allocNow = true);
  // Empties the map and releases the bucket array and every pool block; the
  // table size is kept.
  void RemoveAll();
  // True and value set when key is present; value is untouched otherwise.
  bool Lookup(void* key, void*& value) const;
  // The value under key, inserted as null if absent (see the out-of-memory
  // rule above).
  void*& operator[](void* key);
  // operator[](key) = value; false (map unchanged) when memory ran out.
  bool SetAt(void* key, void* value);
  // True if key was present and its association removed.
  bool RemoveKey(void* key);
  // Copies out the association at pos and moves pos to the next one (null
  // after the last). Start with GetStartPosition().
  void GetNextAssoc(POSITION& pos, void*& key, void*& value) const;
  // The association of key or null; hash receives key's bucket index even
  // when there is no bucket array.
  SAssoc* GetAssocAt(void* key, unsigned int& hash) const;
  // Takes a cleared association from the pool and counts it; null when a
  // needed pool block cannot be made.
  SAssoc* NewAssoc();
  // Returns an association to the pool; at count 0 the map releases its memory.
  void FreeAssoc(SAssoc* assoc);
  // The hash of key: its value as uintptr_t.
  uintptr_t HashKey(void* key) const { return reinterpret_cast<uintptr_t>(key); }

 private:
  template <class Map> friend struct OvraMapOps;

  SAssoc** m_pHashTable;
  unsigned int m_nHashTableSize;
  int m_nCount;
  SAssoc* m_pFreeList;
  SPlex* m_pBlocks;
  int m_nBlockSize;
};

// Map from _GUID keys (copied in); the hash is the leading 32-bit field
// modulo the table size, equality compares all 16 bytes.
class OVRA_API TPtrFromGuidMap {
 public:
  // One association, handed out by the pool.
  struct SAssoc {
    SAssoc* pNext;  // the next association of the bucket, or of the free list
    _GUID key;      // a copy of the key
    void* value;    // the value stored under it
  };

  // An empty map with table size 17; allocates nothing.
  explicit TPtrFromGuidMap(int blockSize = 10);
  // RemoveAll().
  ~TPtrFromGuidMap();
  TPtrFromGuidMap(const TPtrFromGuidMap&) = delete;
  TPtrFromGuidMap& operator=(const TPtrFromGuidMap&) = delete;

  // Number of associations.
  int GetCount() const { return m_nCount; }
  // True when the map holds nothing.
  bool IsEmpty() const { return m_nCount == 0; }
  // The number of buckets used for the current or next bucket array.
  unsigned int GetHashTableSize() const { return m_nHashTableSize; }
  // Before-the-start position for GetNextAssoc; null when the map is empty.
  POSITION GetStartPosition() const {
    return m_nCount ? reinterpret_cast<POSITION>(~uintptr_t(0)) : nullptr;
  }

  // Sets the number of buckets; same rules as TPtrFromPtrMap::InitHashTable.
  void InitHashTable(unsigned int size, bool allocNow = true);
  // Empties the map and releases the bucket array and every pool block.
  void RemoveAll();
  // True and value set when key is present; value is untouched otherwise.
  bool Lookup(const _GUID& key, void*& value) const;
  // The value under key, inserted as null if absent (out of memory: scratch slot).
  void*& operator[](const _GUID& key);
  // operator[](key) = value; false (map unchanged) when memory ran out.
  bool SetAt(const _GUID& key, void* value);
  // True if key was present and its association removed.
  bool RemoveKey(const _GUID& key);
  // Copies out the association at pos (16 key bytes and the value) and moves
  // pos to the next one (null after the last).
  void GetNextAssoc(POSITION& pos, _GUID& key, void*& value) const;
  // The association of key or null; hash receives key's bucket index.
  SAssoc* GetAssocAt(const _GUID& key, unsigned int& hash) const;
  // Takes a cleared association (16 zero key bytes, null value) from the pool.
  SAssoc* NewAssoc();
  // Returns an association to the pool; at count 0 the map releases its memory.
  void FreeAssoc(SAssoc* assoc);
  // The hash of key: its leading 32-bit field.
  unsigned int HashKey(const _GUID& key) const { return key.Data1; }

 private:
  template <class Map> friend struct OvraMapOps;

  SAssoc** m_pHashTable;
  unsigned int m_nHashTableSize;
  int m_nCount;
  SAssoc* m_pFreeList;
  SPlex* m_pBlocks;
  int m_nBlockSize;
};

// Map from 16-bit string keys. Each association owns a TBstr copy of its key
// and remembers its bucket index. The hash runs h = h * 33 + c over the code
// units (unsigned 32-bit, wrapping; 0 for the empty key), modulo the table
// size. Keys are compared with TBstr::Compare; a null key is the empty key.
class OVRA_API TPtrFromBstrMap {
 public:
  // One association, handed out by the pool; key is constructed only while
  // the association is in use.
  struct SAssoc {
    SAssoc* pNext;  // the next association of the bucket, or of the free list
    unsigned int nHashValue;  // the bucket index at insertion
    TBstr key;                // the map's own copy of the key
    void* value;              // the value stored under it
  };

  // An empty map with table size 17; allocates nothing.
  explicit TPtrFromBstrMap(int blockSize = 10);
  // RemoveAll().
  ~TPtrFromBstrMap();
  TPtrFromBstrMap(const TPtrFromBstrMap&) = delete;
  TPtrFromBstrMap& operator=(const TPtrFromBstrMap&) = delete;

  // Number of associations.
  int GetCount() const { return m_nCount; }
  // True when the map holds nothing.
  bool IsEmpty() const { return m_nCount == 0; }
  // The number of buckets used for the current or next bucket array.
  unsigned int GetHashTableSize() const { return m_nHashTableSize; }
  // Before-the-start position for GetNextAssoc; null when the map is empty.
  POSITION GetStartPosition() const {
    return m_nCount ? reinterpret_cast<POSITION>(~uintptr_t(0)) : nullptr;
  }

  // Sets the number of buckets; same rules as TPtrFromPtrMap::InitHashTable
  // (moved associations get their new bucket index).
  void InitHashTable(unsigned int size, bool allocNow = true);
  // Destroys every key, empties the map and releases the bucket array and
  // every pool block; the table size is kept.
  void RemoveAll();
  // True and value set when key is present; value is untouched otherwise.
  bool Lookup(const unsigned short* key, void*& value) const;
  // The value under key, inserted as null if absent (out of memory, the key's
  // copy included: the map is unchanged and the scratch slot is returned).
  void*& operator[](const unsigned short* key);
  // operator[](key) = value; false (map unchanged) when memory ran out.
  bool SetAt(const unsigned short* key, void* value);
  // True if key was present and its association (and key copy) removed.
  bool RemoveKey(const unsigned short* key);
  // Assigns the key at pos to key, copies out the value and moves pos to the
  // next association (null after the last). If the key's copy cannot be made,
  // key is left empty (TBstr's rule) and the iteration still advances.
  void GetNextAssoc(POSITION& pos, TBstr& key, void*& value) const;
  // The association of key or null; hash receives key's bucket index.
  SAssoc* GetAssocAt(const unsigned short* key, unsigned int& hash) const;
  // Takes an association with an empty key (nothing allocated) and a null
  // value from the pool; null when a needed pool block cannot be made.
  SAssoc* NewAssoc();
  // Destroys the association's key and returns it to the pool; at count 0 the
  // map releases its memory.
  void FreeAssoc(SAssoc* assoc);
  // The string hash of key (see above); 0 for a null or empty key.
  unsigned int HashKey(const unsigned short* key) const;

 private:
  template <class Map> friend struct OvraMapOps;

  SAssoc** m_pHashTable;
  unsigned int m_nHashTableSize;
  int m_nCount;
  SAssoc* m_pFreeList;
  SPlex* m_pBlocks;
  int m_nBlockSize;
};

// ---------------------------------------------------------------------------
// TFifoBuffer

// A first-in, first-out byte buffer. The held bytes always start at the
// beginning of the storage: a read moves the rest down, and a write that does
// not fit grows the storage (OvraMemRealloc) to exactly the size needed.
class OVRA_API TFifoBuffer {
 public:
  // An empty buffer; allocates nothing.
  TFifoBuffer();
  // Releases the storage (OvraMemFree).
  ~TFifoBuffer();
  TFifoBuffer(const TFifoBuffer&) = delete;
  TFifoBuffer& operator=(const TFifoBuffer&) = delete;

  // Number of bytes held.
  int GetLength() const { return m_nLength; }
  // Number of bytes allocated.
  int GetCapacity() const { return m_nCapacity; }
  // Takes up to count bytes from the front into buffer; returns the number
  // taken (0 when empty, count <= 0 or buffer is null; buffer then untouched).
  int Read(unsigned char* buffer, int count);
  // Appends count bytes; returns count, or 0 when count <= 0, buffer is null
  // or growing failed. All or nothing: a failed write changes nothing.
  int Write(const unsigned char* buffer, int count);

 private:
  unsigned char* m_pData;
  int m_nCapacity;
  int m_nLength;
};

#endif
