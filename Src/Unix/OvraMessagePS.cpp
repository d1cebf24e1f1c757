// OvraMessagePS.cpp - the process message queue: a locked list of heap
// message records with a condition variable for the blocking getter.
#include "OvraMessagePS.h"

#include <stdint.h>

#include <new>

#include "OvraCollect.h"
#include "OvraSync.h"

namespace {

struct TMessageQueue {
  TMessageQueue() : messages(10), availableCallback(nullptr), availableData(nullptr) {
    signal.Init();
  }
  ~TMessageQueue() {
    while (!messages.IsEmpty()) delete static_cast<SMessage*>(messages.RemoveHead());
    signal.Term();
  }
  TPtrList messages;  // oldest at the head
  TCondVar signal;    // its lock guards the list
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
  SMessage* message = new (std::nothrow) SMessage{id, param1, param2};
  if (!message) return false;
  queue->signal.Lock();
  const bool wasEmpty = queue->messages.IsEmpty();
  if (!queue->messages.AddTail(message)) {  // the list's node pool ran out
    queue->signal.Unlock();
    delete message;
    return false;
  }
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
  SMessage* message = nullptr;
  queue->signal.Lock();
  // One wait, no loop: whatever woke us, the list is tested once more.
  if (queue->messages.IsEmpty() && wait) queue->signal.Wait(-1);
  if (!queue->messages.IsEmpty()) message = static_cast<SMessage*>(queue->messages.RemoveHead());
  queue->signal.Unlock();
  if (!message) return false;
  id = message->id;
  param1 = message->param1;
  param2 = message->param2;
  delete message;
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
