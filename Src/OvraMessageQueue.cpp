// OvraMessageQueue.cpp - the process message queue: a locked first-in,
// first-out chain of message records with a condition variable for the
// blocking getter.
//
// Records are linked through themselves (no separate list nodes). The queue
// holds kChunkRecords records of its own, and takes more from the installed
// allocator kChunkRecords at a time when a burst outgrows them; a getter
// copies its message out and hands the record back to the queue's spare
// chain, where the next post finds it. A steady stream of messages therefore
// costs one lock round per post and per get and no allocation at all, and a
// burst one allocation per kChunkRecords messages. Whenever the queue drains,
// the chunks beyond kKeptChunks go back to the allocator, so a queue keeps at
// most kKeptChunks * kChunkRecords records beyond its own after a burst (about
// 48 KiB with 64-bit pointers), and destroying the queue frees every one.
//
// Posters and getters take the lock with a few quick tries before sleeping
// on it (TQueueLock): each holds it for a few instructions, and with a loop
// that keeps up with its posters both would otherwise sleep and be woken on
// the lock for nearly every message.
#include "OvraMessageQueue.h"

#include <stdint.h>

#include <new>

#include "OvraQueueLock.h"

namespace {

// A queued (or spare) message: the message itself and the next record.
struct SMessageRecord {
  SMessage message;
  SMessageRecord* next;
};

constexpr unsigned kChunkRecords = 63;
// Allocated chunks a drained queue keeps for the next burst.
constexpr unsigned kKeptChunks = 64;

struct SRecordChunk {
  SRecordChunk* next;
  SMessageRecord records[kChunkRecords];
};

struct TMessageQueue {
  TMessageQueue()
      : head(nullptr), tail(nullptr), spare(nullptr), chunks(nullptr), chunkCount(0),
        availableCallback(nullptr), availableData(nullptr) {
    AddSpare(own);
    signal.Init();
  }
  ~TMessageQueue() {
    FreeChunks(chunks);
    signal.Term();
  }
  static void FreeChunks(SRecordChunk* chunk) {
    while (chunk) {
      SRecordChunk* next = chunk->next;
      delete chunk;
      chunk = next;
    }
  }
  // Puts kChunkRecords records on the spare chain.
  void AddSpare(SMessageRecord* records) {
    for (unsigned i = 0; i < kChunkRecords; ++i) {
      records[i].next = spare;
      spare = &records[i];
    }
  }
  // With the queue empty every record is spare: keeps the queue's own
  // records and the first kKeptChunks chunks, rebuilds the spare chain from
  // them and returns the other chunks, to be freed once the lock is released.
  SRecordChunk* TrimWhenEmpty() {
    if (chunkCount <= kKeptChunks) return nullptr;
    SRecordChunk* surplus = chunks;
    SRecordChunk** link = &chunks;
    for (unsigned i = 0; i < kKeptChunks; ++i) link = &(*link)->next;
    surplus = *link;
    *link = nullptr;
    chunkCount = kKeptChunks;
    spare = nullptr;
    AddSpare(own);
    for (SRecordChunk* chunk = chunks; chunk; chunk = chunk->next) AddSpare(chunk->records);
    return surplus;
  }
  SMessageRecord* head;   // oldest message, null when empty
  SMessageRecord* tail;   // newest message
  SMessageRecord* spare;  // records free for the next posts
  SRecordChunk* chunks;   // allocated chunks, newest first
  unsigned chunkCount;
  SMessageRecord own[kChunkRecords];
  TQueueLock signal;  // its lock guards the chains
  OvraMessageAvailableCallback availableCallback;
  void* availableData;
};

}  // namespace

void* InternalCreateMessageQueue() {
  TMessageQueue* queue = new (std::nothrow) TMessageQueue();
  return queue ? queue : kInvalidHandleValue;
}

void InternalDestroyMessageQueue(void* queue) { delete static_cast<TMessageQueue*>(queue); }

bool InternalPostMessage(void* handle, unsigned int id, void* param1, void* param2) {
  TMessageQueue* queue = static_cast<TMessageQueue*>(handle);
  queue->signal.LockSoon();
  if (!queue->spare) {
    // No free record: allocate a chunk without holding the lock. A failure
    // leaves the queue unchanged.
    queue->signal.Unlock();
    SRecordChunk* chunk = new (std::nothrow) SRecordChunk;
    if (!chunk) return false;
    queue->signal.LockSoon();
    chunk->next = queue->chunks;
    queue->chunks = chunk;
    ++queue->chunkCount;
    queue->AddSpare(chunk->records);
  }
  SMessageRecord* record = queue->spare;
  queue->spare = record->next;
  record->message.id = id;
  record->message.param1 = param1;
  record->message.param2 = param2;
  record->next = nullptr;
  const bool wasEmpty = queue->head == nullptr;
  if (wasEmpty)
    queue->head = record;
  else
    queue->tail->next = record;
  queue->tail = record;
  // Wake-up only on the empty-to-non-empty transition: a getter that is
  // already draining finds later messages without a signal.
  if (wasEmpty) {
    if (queue->availableCallback) {
      queue->availableCallback(queue->availableData);
    } else {
      queue->signal.Signal();
    }
  }
  queue->signal.Unlock();
  return true;
}

bool InternalGetMessage(void* handle, unsigned int& id, void*& param1, void*& param2, bool wait) {
  TMessageQueue* queue = static_cast<TMessageQueue*>(handle);
  queue->signal.LockSoon();
  // One wait, no loop: whatever woke us, the chain is tested once more.
  if (!queue->head && wait) queue->signal.Wait(-1);
  SMessageRecord* record = queue->head;
  if (!record) {
    queue->signal.Unlock();
    return false;
  }
  queue->head = record->next;
  const SMessage message = record->message;
  record->next = queue->spare;
  queue->spare = record;
  SRecordChunk* surplus = nullptr;
  if (!queue->head) {
    queue->tail = nullptr;
    surplus = queue->TrimWhenEmpty();
  }
  queue->signal.Unlock();
  TMessageQueue::FreeChunks(surplus);
  id = message.id;
  param1 = message.param1;
  param2 = message.param2;
  return true;
}

int InternalMessageLoop(void* queue) {
  unsigned int id = 0;
  void* param1 = nullptr;
  void* param2 = nullptr;
  while (InternalGetMessage(queue, id, param1, param2, true) && id != kQuitMessageId) {
    OvraGiveMessage(id, param1, param2);
  }
  return static_cast<int>(reinterpret_cast<intptr_t>(param1));
}

void InternalSetMessageAvailableCallback(void* handle, OvraMessageAvailableCallback callback,
                                         void* data) {
  TMessageQueue* queue = static_cast<TMessageQueue*>(handle);
  queue->availableCallback = callback;
  queue->availableData = data;
}
