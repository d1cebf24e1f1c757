// OvraThread.cpp - the portable half of threads: state and preconditions.
#include "OvraThread.h"

#include <stdlib.h>

#include <new>
#include <string.h>

#include "OvraCollect.h"
#include "OvraHooks.h"
#include "OvraMem.h"
#include "OvraNoSanitize.h"
#include "OvraThreadPS.h"

namespace {
constexpr unsigned int kNotSupported = 0xFFFFFFFFu;
}


TThread::TThread() : m_handle(kInvalidHandleValue), m_proc(nullptr), m_arg(nullptr) {}

TThread::~TThread() {
  if (m_handle != kInvalidHandleValue) ThreadClose(m_handle);
}

void* TThread::operator new(size_t size) noexcept { return OvraMemAlloc(size); }

void* TThread::operator new(size_t size, const std::nothrow_t&) noexcept { return OvraMemAlloc(size); }

void TThread::operator delete(void* pointer) noexcept { OvraMemFree(pointer); }

void TThread::operator delete(void* pointer, const std::nothrow_t&) noexcept { OvraMemFree(pointer); }

bool TThread::Create(int (*proc)(void*), void* arg, bool suspended) {
  if (!proc) return false;
  m_proc = proc;
  m_arg = arg;
  void* handle = ThreadCreate(this, suspended);
  if (handle == kInvalidHandleValue) return false;
  m_handle = handle;
  return true;
}

unsigned int TThread::Suspend() {
  return m_handle == kInvalidHandleValue ? kNotSupported : ThreadSuspend(m_handle);
}

unsigned int TThread::Resume() {
  return m_handle == kInvalidHandleValue ? kNotSupported : ThreadResume(m_handle);
}

bool TThread::Cancel() { return m_handle != kInvalidHandleValue && ThreadCancel(m_handle); }

bool TThread::WaitForExit(int* exitCode) {
  if (m_handle == kInvalidHandleValue) return false;
  int scratch = 0;
  return ThreadWaitForExit(m_handle, exitCode ? exitCode : &scratch);
}

void TThread::Sleep(unsigned int ms) { ThreadSleep(ms); }

OVRA_NO_THREAD_SANITIZER int TThread::ThreadProc(void* thread) {
  TThread* self = static_cast<TThread*>(thread);
  return self->m_proc(self->m_arg);
}

TThread* OvraCreateThread(int (*proc)(void*), void* arg, bool suspended) {
  TThread* thread = new (std::nothrow) TThread();
  if (!thread) return nullptr;
  if (!thread->Create(proc, arg, suspended)) {
    delete thread;
    return nullptr;
  }
  return thread;
}

// --- thread-local data ---------------------------------------------------------

namespace {
TPtrFromPtrMap* ThreadTable() { return static_cast<TPtrFromPtrMap*>(InternalTlsGetValue()); }
}  // namespace

bool TlsInit() { return InternalTlsInit(); }

void TlsTerm() { InternalTlsTerm(); }

bool TlsThreadInit() { return true; }  // tables are made lazily

void TlsThreadTerm() {
  TPtrFromPtrMap* table = ThreadTable();
  if (!table) return;
  POSITION pos = table->GetStartPosition();
  while (pos) {
    void* key;
    void* block;
    table->GetNextAssoc(pos, key, block);
    OvraMemFree(block);
  }
  delete table;
  // The slot is cleared too, so that a thread that starts the library again
  // gets a fresh table instead of the freed one.
  InternalTlsSetValue(nullptr);
}

void* OvraTlsAddData(void* key, unsigned int size) {
  TPtrFromPtrMap* table = ThreadTable();
  if (!table) {
    table = new (std::nothrow) TPtrFromPtrMap(10);
    if (!table) return nullptr;
    if (!InternalTlsSetValue(table)) {
      delete table;
      return nullptr;
    }
  }
  void* block = OvraMemAlloc(size);
  if (!block) return nullptr;  // a table just made stays in the slot
  memset(block, 0, size);
  // A block already stored under `key` is replaced, not freed.
  if (!table->SetAt(key, block)) {
    OvraMemFree(block);
    return nullptr;
  }
  return block;
}

void* OvraTlsGetData(void* key) {
  TPtrFromPtrMap* table = ThreadTable();
  void* block = nullptr;
  if (table && table->Lookup(key, block)) return block;
  return nullptr;
}

void* OvraTlsGetAddData(void* key, unsigned int size) {
  void* block = OvraTlsGetData(key);
  return block ? block : OvraTlsAddData(key, size);
}

bool OvraTlsRemoveData(void* key) {
  TPtrFromPtrMap* table = ThreadTable();
  if (!table) return false;
  void* block = nullptr;
  table->Lookup(key, block);
  free(block);  // plain free, not OvraMemFree: kept for callers that rely on it
  return table->RemoveKey(key);
}
