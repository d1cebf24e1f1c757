// OvraMessage.cpp - identifiers, the callback registry and dispatch over the
// process queue.
#include "OvraMessage.h"

#include <new>

#include "OvraCollect.h"
#include "OvraHooks.h"
#include "OvraMessageQueue.h"

namespace {
void* s_messageQueue = kInvalidHandleValue;
// Identifier -> callback; exists only while it holds at least one entry.
TPtrFromPtrMap* s_pMessageMap = nullptr;
unsigned int s_nextMessageId = 0;  // 0: no identifier handed out yet

void* IdKey(unsigned int id) { return reinterpret_cast<void*>(static_cast<uintptr_t>(id)); }
}  // namespace

bool MessageInit() {
  // A start-up that failed after this hook keeps its queue (there is no
  // rollback); the next start-up reuses it instead of leaking it.
  if (s_messageQueue != kInvalidHandleValue) return true;
  s_messageQueue = InternalCreateMessageQueue();
  return s_messageQueue != kInvalidHandleValue;
}

void MessageTerm() {
  // Undelivered messages are freed with the queue; the registry stays.
  if (s_messageQueue != kInvalidHandleValue) {
    InternalDestroyMessageQueue(s_messageQueue);
    s_messageQueue = kInvalidHandleValue;
  }
}

unsigned int OvraRequestMessageId(void) {
  if (s_nextMessageId == 0) s_nextMessageId = kFirstMessageId;
  return s_nextMessageId++;
}

void OvraReleaseMessageId(unsigned int) {}

bool OvraRegisterMessageCallback(unsigned int id, OvraMessageCallback callback) {
  if (OvraLookupMessageCallback(id)) return false;
  const bool created = !s_pMessageMap;
  if (created) {
    s_pMessageMap = new (std::nothrow) TPtrFromPtrMap(10);
    if (!s_pMessageMap) return false;
  }
  if (!s_pMessageMap->SetAt(IdKey(id), reinterpret_cast<void*>(callback))) {
    if (created) {
      delete s_pMessageMap;
      s_pMessageMap = nullptr;
    }
    return false;
  }
  return true;
}

void OvraUnregisterMessageCallback(unsigned int id) {
  if (!s_pMessageMap) return;
  s_pMessageMap->RemoveKey(IdKey(id));
  if (s_pMessageMap->IsEmpty()) {
    delete s_pMessageMap;
    s_pMessageMap = nullptr;
  }
}

OvraMessageCallback OvraLookupMessageCallback(unsigned int id) {
  void* callback = nullptr;
  if (!s_pMessageMap || !s_pMessageMap->Lookup(IdKey(id), callback)) return nullptr;
  return reinterpret_cast<OvraMessageCallback>(callback);
}

bool OvraGiveMessage(unsigned int id, void* param1, void* param2) {
  OvraMessageCallback callback = OvraLookupMessageCallback(id);
  if (!callback) return false;
  callback(id, param1, param2);
  return true;
}

bool OvraPostMessage(unsigned int id, void* param1, void* param2) {
  if (s_messageQueue == kInvalidHandleValue) return false;
  return InternalPostMessage(s_messageQueue, id, param1, param2);
}

bool OvraPostQuitMessage(void* exitCode) { return OvraPostMessage(kQuitMessageId, exitCode, nullptr); }

bool OvraGetMessage(unsigned int* id, void** param1, void** param2) {
  if (s_messageQueue == kInvalidHandleValue) return false;
  return InternalGetMessage(s_messageQueue, *id, *param1, *param2, false);
}

void OvraDispatchMessages(void) {
  unsigned int id;
  void* param1;
  void* param2;
  while (OvraGetMessage(&id, &param1, &param2) && id != kQuitMessageId) {
    OvraGiveMessage(id, param1, param2);  // no callback: dropped silently
  }
}

int OvraMessageLoop(void) {
  if (s_messageQueue == kInvalidHandleValue) return 0;
  return InternalMessageLoop(s_messageQueue);
}

void OvraSetMessageAvailableCallback(OvraMessageAvailableCallback callback, void* data) {
  if (s_messageQueue != kInvalidHandleValue)
    InternalSetMessageAvailableCallback(s_messageQueue, callback, data);
}
