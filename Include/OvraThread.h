// OvraThread.h - threads and thread-local data.
#ifndef OVRA_OVRATHREAD_H
#define OVRA_OVRATHREAD_H

#include <new>

#include "OvraPlatform.h"

// One operating-system thread running a caller's procedure with one argument.
// The object is not locked: one owner calls its members, and it must outlive
// the start of its thread. Destroying it never stops or waits for the thread.
class OVRA_API TThread {
 public:
  // No thread yet: Suspend/Resume give 0xFFFFFFFF, Cancel/WaitForExit false.
  TThread();
  // Detaches a thread that was never joined and frees the handle; the thread
  // itself keeps running.
  ~TThread();
  TThread(const TThread&) = delete;
  TThread& operator=(const TThread&) = delete;

  // Starts `proc(arg)` on a new thread, at once even when `suspended` is true
  // (suspension is not supported). False if `proc` is null (nothing changes)
  // or the thread cannot be made. A thread that uses thread-local data
  // brackets its work with OvraInitialize/OvraUninitialize itself.
  bool Create(int (*proc)(void*), void* arg, bool suspended);
  // Not supported: always 0xFFFFFFFF, with or without a thread.
  unsigned int Suspend();
  // Not supported: always 0xFFFFFFFF, with or without a thread.
  unsigned int Resume();
  // Requests cancellation. The procedure runs with asynchronous cancellation,
  // so it may stop at any instruction (code built with a sanitizer is not safe
  // to stop there: cancel such a procedure only where it runs plain code).
  // Once it has returned, nothing stops the thread's exit any more; a Cancel
  // that races that return may still make WaitForExit report -1. False if
  // there is no thread or on error. On Windows always false and the thread
  // runs on: the system has no safe way to stop a thread from outside
  // (TerminateThread leaves its locks held and its stack allocated), so a
  // portable procedure ends itself when asked, by a flag or a message.
  bool Cancel();
  // Waits for the thread to end and stores its procedure's result in
  // *exitCode (may be null; -1 for a cancelled thread). False if there is no
  // thread or it cannot be joined (already joined included); *exitCode is then
  // untouched. The handle stays in place until the destructor.
  bool WaitForExit(int* exitCode);
  // Sleeps `ms` milliseconds; a signal may end the sleep early. 0 returns at once.
  static void Sleep(unsigned int ms);
  // Runs the procedure of the TThread `thread` with its argument; returns its result.
  static int ThreadProc(void* thread);

  // The platform handle, or kInvalidHandleValue when no thread was created.
  void* GetHandle() const { return m_handle; }

  // Objects made by OvraCreateThread come from the library's allocator, and a
  // delete in application code returns them there.
  static void* operator new(size_t size) noexcept;
  static void* operator new(size_t size, const std::nothrow_t&) noexcept;
  static void operator delete(void* pointer) noexcept;
  static void operator delete(void* pointer, const std::nothrow_t&) noexcept;

 private:
  static void* ThreadCreate(void* thread, bool suspended);
  static bool ThreadClose(void* handle);
  static unsigned int ThreadSuspend(void* handle);
  static unsigned int ThreadResume(void* handle);
  static bool ThreadCancel(void* handle);
  static bool ThreadWaitForExit(void* handle, int* exitCode);
  static void ThreadSleep(unsigned int ms);

  void* m_handle;
  int (*m_proc)(void*);
  void* m_arg;
};

// Allocates and starts a TThread as TThread::Create does. Null if `proc` is
// null, memory runs out or the thread cannot be made (nothing is leaked).
// The caller owns the result and ends it with delete.
OVRA_EXTERN_C OVRA_API TThread* OvraCreateThread(int (*proc)(void*), void* arg, bool suspended);

// Thread-local data: every thread has its own table of zero-filled blocks,
// each found by a caller-chosen key. A thread that uses it brackets its life
// with OvraInitialize/OvraUninitialize; that OvraUninitialize frees the
// thread's table and blocks (nothing is freed at thread exit by itself).
// Without a started library every call fails (null/false).

// A new zero-filled block of `size` bytes stored under `key` (the block an
// earlier call stored under `key` is replaced, not freed), or null when memory
// runs out. A size of 0 stores whatever the allocator returns for 0 bytes.
OVRA_EXTERN_C OVRA_API void* OvraTlsAddData(void* key, unsigned int size);
// The calling thread's block under `key`, or null. Creates nothing.
OVRA_EXTERN_C OVRA_API void* OvraTlsGetData(void* key);
// The existing block under `key` (a stored null counts as absent), else a new
// one as OvraTlsAddData makes it.
OVRA_EXTERN_C OVRA_API void* OvraTlsGetAddData(void* key, unsigned int size);
// Removes `key` and releases its block with the C library's free(), not with
// the installed allocator: use it only while the allocator is malloc-based.
// True if `key` was present.
OVRA_EXTERN_C OVRA_API bool OvraTlsRemoveData(void* key);

#endif
