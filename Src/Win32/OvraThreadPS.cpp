// OvraThreadPS.cpp - Windows threads and thread-local storage behind TThread:
// only this platform's thread calls, no policy.
#include <windows.h>

#include <new>
#include <stdint.h>

#include "OvraThread.h"
#include "OvraThreadPS.h"
#include "Win32/OvraSysCalls.h"

namespace {

// The handle cell. It remembers a join, so that a second wait is refused as
// on POSIX, where a second join is undefined.
struct SThreadCell {
  HANDLE thread;
  bool joined;
};

constexpr unsigned int kNotSupported = 0xFFFFFFFFu;

// The start routine: the procedure's int result becomes the thread's exit
// code and comes back unchanged through GetExitCodeThread.
DWORD WINAPI ThreadStart(void* thread) {
  return static_cast<DWORD>(TThread::ThreadProc(thread));
}

}  // namespace

void* TThread::ThreadCreate(void* thread, bool /*suspended*/) {
  SThreadCell* cell = new (std::nothrow) SThreadCell();
  if (!cell) return kInvalidHandleValue;
  cell->thread = g_ovraSysCalls.CreateThread(nullptr, 0, ThreadStart, thread, 0, nullptr);
  if (!cell->thread) {
    delete cell;  // released so that a failed creation leaks nothing
    return kInvalidHandleValue;
  }
  return cell;
}

bool TThread::ThreadClose(void* handle) {
  SThreadCell* cell = static_cast<SThreadCell*>(handle);
  // Closing the handle detaches: the thread runs on by itself.
  CloseHandle(cell->thread);
  delete cell;
  return true;
}

unsigned int TThread::ThreadSuspend(void*) { return kNotSupported; }

unsigned int TThread::ThreadResume(void*) { return kNotSupported; }

// Windows has no safe way to stop a thread from outside: TerminateThread
// leaves its locks held (the heap's included) and its stack allocated. The
// request is refused.
bool TThread::ThreadCancel(void*) { return false; }

bool TThread::ThreadWaitForExit(void* handle, int* exitCode) {
  SThreadCell* cell = static_cast<SThreadCell*>(handle);
  if (cell->joined) return false;  // refused as on POSIX
  if (WaitForSingleObject(cell->thread, INFINITE) != WAIT_OBJECT_0) return false;
  DWORD code = 0;
  if (!GetExitCodeThread(cell->thread, &code)) return false;
  cell->joined = true;
  *exitCode = static_cast<int>(code);
  return true;
}

void TThread::ThreadSleep(unsigned int ms) {
  // The system's Sleep, named with its scope: inside TThread a plain Sleep is
  // TThread::Sleep, which comes back here. INFINITE (0xFFFFFFFF) would never
  // return: the longest sleep is split.
  if (ms == INFINITE) {
    ::Sleep(ms - 1);
    ms = 1;
  }
  ::Sleep(ms);
}

// --- thread-local data ---------------------------------------------------------

namespace {
DWORD s_tlsIndex = TLS_OUT_OF_INDEXES;
}  // namespace

bool InternalTlsInit() {
  // A start-up that failed further down the chain keeps its index; reuse it.
  if (s_tlsIndex != TLS_OUT_OF_INDEXES) return true;
  s_tlsIndex = g_ovraSysCalls.TlsAlloc();
  return s_tlsIndex != TLS_OUT_OF_INDEXES;
}

void InternalTlsTerm() {
  if (s_tlsIndex == TLS_OUT_OF_INDEXES) return;
  g_ovraSysCalls.TlsFree(s_tlsIndex);
  s_tlsIndex = TLS_OUT_OF_INDEXES;
}

void* InternalTlsGetValue() {
  return s_tlsIndex != TLS_OUT_OF_INDEXES ? TlsGetValue(s_tlsIndex) : nullptr;
}

bool InternalTlsSetValue(void* value) {
  return s_tlsIndex != TLS_OUT_OF_INDEXES && TlsSetValue(s_tlsIndex, value) != 0;
}
