// OvraHooks.h - private start-up and shutdown hooks of the library's facilities,
// called in a fixed order by OvraInitialize/OvraUninitialize (Src/Ovra.cpp).
#ifndef OVRA_SRC_OVRAHOOKS_H
#define OVRA_SRC_OVRAHOOKS_H

struct SAllocator;

bool MemInit(SAllocator* allocator);  // installs a complete allocator record
void MemTerm();                       // restores malloc/realloc/free
bool SyncInit();
void SyncTerm();
bool TlsInit();        // creates the thread-local key
void TlsTerm();
bool TlsThreadInit();  // per-thread set-up (tables are made lazily)
void TlsThreadTerm();  // frees the calling thread's table and blocks
bool BstrInit();    // nothing to set up for strings yet: returns true
void BstrTerm();
bool DebugInit();
void DebugTerm();
bool MessageInit();    // creates the process message queue
void MessageTerm();    // frees it with every undelivered message
bool RandInit();    // seeds rand() and creates the shared generator; false when out of memory
void RandTerm();    // frees the shared generator
void PSTerm();

// The library's own module hooks, run by its SharedLibInit/SharedLibTerm entry
// points (not by the start-up chain).
bool ModuleInit(void* reserved);  // ignores its argument, returns true
void ModuleTerm();                // does nothing

#endif
