// OvraThread.cpp - the portable half of threads: state and preconditions.
#include "OvraThread.h"

#include "OvraMem.h"

namespace {
constexpr unsigned int kNotSupported = 0xFFFFFFFFu;
}

TThread::TThread() : m_handle(kInvalidHandleValue), m_proc(nullptr), m_arg(nullptr) {}

TThread::~TThread() {
  if (m_handle != kInvalidHandleValue) ThreadClose(m_handle);
}

void* TThread::operator new(size_t size) noexcept { return OvraMemAlloc(size); }

void TThread::operator delete(void* pointer) noexcept { OvraMemFree(pointer); }

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

int TThread::ThreadProc(void* thread) {
  TThread* self = static_cast<TThread*>(thread);
  return self->m_proc(self->m_arg);
}

TThread* OvraCreateThread(int (*proc)(void*), void* arg, bool suspended) {
  TThread* thread = new TThread();
  if (!thread) return nullptr;
  if (!thread->Create(proc, arg, suspended)) {
    delete thread;
    return nullptr;
  }
  return thread;
}
