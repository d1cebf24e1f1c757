// OvraMessage.h - process-wide message identifiers, callbacks and the message loop.
#ifndef OVRA_OVRAMESSAGE_H
#define OVRA_OVRAMESSAGE_H

#include "OvraPlatform.h"

// The first identifier OvraRequestMessageId hands out.
constexpr unsigned int kFirstMessageId = 1;
// The identifier of the quit message that ends OvraMessageLoop.
constexpr unsigned int kQuitMessageId = 0xFFFFFFFFu;

// One message: an identifier and two pointer-sized parameters.
struct SMessage {
  unsigned int id;  // the message identifier
  void* param1;     // the first parameter, as posted
  void* param2;     // the second parameter, as posted
};

// Receives a message on the thread that gives or dispatches it.
typedef void (*OvraMessageCallback)(unsigned int id, void* param1, void* param2);
// Told, on the posting thread and with the queue locked, that the queue went
// from empty to non-empty; it must not post or get messages itself.
typedef void (*OvraMessageAvailableCallback)(void* data);

// Hands out the next identifier: 1, 2, 3, ... Identifiers are never reused and
// the counter is not bounded. Call from one thread (not locked).
OVRA_EXTERN_C OVRA_API unsigned int OvraRequestMessageId(void);
// Does nothing: identifiers are never reused. Kept for symmetry.
OVRA_EXTERN_C OVRA_API void OvraReleaseMessageId(unsigned int id);
// Registers the one callback for `id`. False if `id` already has one (which
// stays) or memory runs out. Works without a started library; not locked.
OVRA_EXTERN_C OVRA_API bool OvraRegisterMessageCallback(unsigned int id, OvraMessageCallback callback);
// Removes the callback of `id`, if any; the registry is freed when it empties.
OVRA_EXTERN_C OVRA_API void OvraUnregisterMessageCallback(unsigned int id);
// The callback registered for `id`, or null.
OVRA_EXTERN_C OVRA_API OvraMessageCallback OvraLookupMessageCallback(unsigned int id);
// Calls the callback of `id` at once on the calling thread, bypassing the
// queue. False (and nothing called) if `id` has no callback.
OVRA_EXTERN_C OVRA_API bool OvraGiveMessage(unsigned int id, void* param1, void* param2);
// Appends a message to the process queue from any thread. False if the library
// is not started or memory runs out. A message without a callback is accepted
// and dropped when it is dispatched.
OVRA_EXTERN_C OVRA_API bool OvraPostMessage(unsigned int id, void* param1, void* param2);
// Posts kQuitMessageId with `exitCode` as its first parameter.
OVRA_EXTERN_C OVRA_API bool OvraPostQuitMessage(void* exitCode);
// Takes the oldest message without waiting. False if the queue is empty or the
// library is not started; the outputs are then untouched. None may be null.
OVRA_EXTERN_C OVRA_API bool OvraGetMessage(unsigned int* id, void** param1, void** param2);
// Delivers queued messages until the queue is empty or a quit message is
// taken; the quit message is consumed, not delivered, and later ones stay.
OVRA_EXTERN_C OVRA_API void OvraDispatchMessages(void);
// Waits for messages and delivers them until the quit message; returns its
// first parameter as an int. 0 if the library is not started. A wake-up that
// finds the queue empty (possible while an available callback is set, or with
// two loops) also ends the loop, returning the last message's first parameter.
OVRA_EXTERN_C OVRA_API int OvraMessageLoop(void);
// Installs `callback` to be told when the queue goes from empty to non-empty,
// instead of waking a blocked getter; null restores the wake-up. Not locked:
// set it while no other thread posts. Ignored if the library is not started.
OVRA_EXTERN_C OVRA_API void OvraSetMessageAvailableCallback(OvraMessageAvailableCallback callback,
                                                          void* data);

#endif
