// OvraThreadPS.cpp - POSIX threads behind TThread.
#include <pthread.h>

#include <new>
#include <stdint.h>
#include <sys/select.h>
#include <sys/time.h>

#include "OvraThread.h"
#include "OvraNoSanitize.h"
#include "OvraThreadPS.h"
#include "Unix/OvraSysCalls.h"

namespace {

// The handle cell. It remembers a join so that a joined thread is never
// detached afterwards (detaching a joined thread is undefined).
struct SThreadCell {
  pthread_t thread;
  bool joined;
};

constexpr unsigned int kNotSupported = 0xFFFFFFFFu;


// The start routine: asynchronous cancellation first, then the procedure,
// whose int result travels through the pointer-sized exit value. Once the
// procedure has returned, the exit path that follows (thread-local data
// destructors giving blocks back to the allocator, the C library's and a
// sanitizer's own bookkeeping) takes locks and clears per-thread slots, and
// must never be stopped half-way by a late Cancel. Disabling cancellation is
// not enough for that: a Cancel that saw the asynchronous type sends a signal
// that may arrive only after the disable, and the C library's handler acts on
// the type alone. So the type goes back to deferred first (the handler then
// only records the request), and cancellation is disabled as well, so that no
// cancellation point on the exit path acts on a recorded request either.
extern "C" OVRA_NO_THREAD_SANITIZER void* _ThreadProc(void* thread) {
  pthread_setcanceltype(PTHREAD_CANCEL_ASYNCHRONOUS, nullptr);
  const int result = TThread::ThreadProc(thread);
  pthread_setcanceltype(PTHREAD_CANCEL_DEFERRED, nullptr);
  pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
  return reinterpret_cast<void*>(static_cast<intptr_t>(result));
}

}  // namespace

void* TThread::ThreadCreate(void* thread, bool /*suspended*/) {
  SThreadCell* cell = new (std::nothrow) SThreadCell();
  if (!cell) return kInvalidHandleValue;
  if (g_ovraSysCalls.pthread_create(&cell->thread, nullptr, _ThreadProc, thread) != 0) {
    delete cell;  // released so that a failed creation leaks nothing
    return kInvalidHandleValue;
  }
  return cell;
}

bool TThread::ThreadClose(void* handle) {
  SThreadCell* cell = static_cast<SThreadCell*>(handle);
  if (!cell->joined) pthread_detach(cell->thread);
  delete cell;
  return true;
}

unsigned int TThread::ThreadSuspend(void*) { return kNotSupported; }

unsigned int TThread::ThreadResume(void*) { return kNotSupported; }

bool TThread::ThreadCancel(void* handle) {
  SThreadCell* cell = static_cast<SThreadCell*>(handle);
  if (cell->joined) return false;  // the thread id may already be reused
  return pthread_cancel(cell->thread) == 0;
}

bool TThread::ThreadWaitForExit(void* handle, int* exitCode) {
  SThreadCell* cell = static_cast<SThreadCell*>(handle);
  if (cell->joined) return false;  // a second join is undefined; refuse it
  void* result = nullptr;
  if (pthread_join(cell->thread, &result) != 0) return false;
  cell->joined = true;
  *exitCode = static_cast<int>(reinterpret_cast<intptr_t>(result));
  return true;
}

void TThread::ThreadSleep(unsigned int ms) {
  // Unsigned division, so that sleeps of 2^31 ms or more stay positive.
  timeval timeout;
  timeout.tv_sec = static_cast<time_t>(ms / 1000);
  timeout.tv_usec = static_cast<suseconds_t>((ms % 1000) * 1000);
  select(0, nullptr, nullptr, nullptr, &timeout);  // an interrupted sleep ends early
}

// --- thread-local data ---------------------------------------------------------

namespace {
pthread_key_t s_tlsKey;
// Whether s_tlsKey exists: before start-up the key value could name another
// component's slot, which must never be read or written.
bool s_tlsKeyValid = false;
}  // namespace

bool InternalTlsInit() {
  // A start-up that failed further down the chain keeps its key; reuse it.
  if (s_tlsKeyValid) return true;
  s_tlsKeyValid = g_ovraSysCalls.pthread_key_create(&s_tlsKey, nullptr) == 0;
  return s_tlsKeyValid;
}

void InternalTlsTerm() {
  if (!s_tlsKeyValid) return;
  g_ovraSysCalls.pthread_key_delete(s_tlsKey);
  s_tlsKeyValid = false;
}

void* InternalTlsGetValue() { return s_tlsKeyValid ? pthread_getspecific(s_tlsKey) : nullptr; }

bool InternalTlsSetValue(void* value) {
  return s_tlsKeyValid && pthread_setspecific(s_tlsKey, value) == 0;
}
