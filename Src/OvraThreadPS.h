// OvraThreadPS.h - private platform layer of thread-local data: the one
// thread-specific key whose slot holds each thread's table.
#ifndef OVRA_SRC_OVRATHREADPS_H
#define OVRA_SRC_OVRATHREADPS_H

// Creates the key (no destructor); false if the system refuses.
bool InternalTlsInit();
// Deletes the key.
void InternalTlsTerm();
// The calling thread's slot value; null when the key does not exist.
void* InternalTlsGetValue();
// Stores `value` in the calling thread's slot; false on failure or without a key.
bool InternalTlsSetValue(void* value);

#endif
