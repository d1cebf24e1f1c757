// OvraMessageQueue.h - private interface of the platform message queue. The queue
// is reached only through these functions, as an opaque handle.
#ifndef OVRA_SRC_OVRAMESSAGEQUEUE_H
#define OVRA_SRC_OVRAMESSAGEQUEUE_H

#include "OvraMessage.h"

// A new empty queue, or kInvalidHandleValue when memory runs out.
void* InternalCreateMessageQueue();
// Frees every message still queued (undelivered), the records kept for reuse
// and the queue; null is ignored.
void InternalDestroyMessageQueue(void* queue);
// Appends a message in a record kept from an earlier get, or a new one; false
// only if a new record is needed and cannot be allocated.
bool InternalPostMessage(void* queue, unsigned int id, void* param1, void* param2);
// Takes the oldest message, waiting once for a post when empty and `wait` is set.
bool InternalGetMessage(void* queue, unsigned int& id, void*& param1, void*& param2, bool wait);
// Waits for and delivers messages until the quit message; returns its first parameter.
int InternalMessageLoop(void* queue);
// Stores the available callback and its data, without taking the lock.
void InternalSetMessageAvailableCallback(void* queue, OvraMessageAvailableCallback callback,
                                         void* data);

#endif
