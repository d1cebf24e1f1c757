// Threads and the thread-local key when the system refuses them: a failed
// thread creation gives false/null and leaks nothing, and a start-up whose
// key cannot be made fails as a whole and can be repeated later. The
// stand-ins replace the platform's thread creation and key allocation
// (pthread_create and pthread_key_create, or CreateThread and TlsAlloc).
#include <errno.h>
#include <gtest/gtest.h>

#include <atomic>

#include "Ovra.h"
#include "OvraSysCallAccess.h"
#include "OvraThread.h"
#include "TestAllocator.h"

using namespace ovra_test;

namespace {

int s_calls = 0;
std::atomic<int> s_ran{0};

#if defined(_WIN32)
constexpr auto kCreateThread = &SSysCalls::CreateThread;
constexpr auto kCreateKey = &SSysCalls::TlsAlloc;
constexpr auto kDeleteKey = &SSysCalls::TlsFree;

// No room for another stack.
const SysFailure<kCreateThread> FailingCreateThread{s_calls, LastError(ERROR_NOT_ENOUGH_MEMORY),
                                                    nullptr};
// Every slot of the process is taken.
const SysFailure<kCreateKey> FailingCreateKey{s_calls, LastError(ERROR_NO_MORE_ITEMS),
                                              TLS_OUT_OF_INDEXES};

// Releases the slot for real, so that none is lost, and reports a failure.
BOOL WINAPI FailingDeleteKey(DWORD index) {
  ++s_calls;
  OvraTestRealSysCalls()->TlsFree(index);
  SetLastError(ERROR_INVALID_PARAMETER);
  return FALSE;
}
#else
constexpr auto kCreateThread = &SSysCalls::pthread_create;
constexpr auto kCreateKey = &SSysCalls::pthread_key_create;
constexpr auto kDeleteKey = &SSysCalls::pthread_key_delete;

// Both give their error as their result, not in errno.
// The resource limit on threads is reached.
const SysFailure<kCreateThread> FailingCreateThread{s_calls, ResultOnly(), EAGAIN};
// Every key of the process is taken.
const SysFailure<kCreateKey> FailingCreateKey{s_calls, ResultOnly(), EAGAIN};

// Deletes the key for real, so that none is lost, and reports a failure.
int FailingDeleteKey(pthread_key_t key) {
  ++s_calls;
  OvraTestRealSysCalls()->pthread_key_delete(key);
  return EINVAL;
}
#endif

int Count(void*) {
  ++s_ran;
  return 7;
}

class ThreadFaultTest : public ::testing::Test {
 protected:
  void SetUp() override { s_calls = 0; s_ran = 0; }
};

TEST_F(ThreadFaultTest, FailingThreadCreationGivesFalseAndLeavesNoHandle) {
  ScopedCountingLibrary library;
  ASSERT_TRUE(library.started());
  {
    TThread thread;
    {
      ScopedSysCall failing(FailingCreateThread);
      EXPECT_FALSE(thread.Create(Count, nullptr, false));
    }
    EXPECT_EQ(s_calls, 1);
    EXPECT_EQ(thread.GetHandle(), kInvalidHandleValue);
    EXPECT_FALSE(thread.WaitForExit(nullptr));
    EXPECT_FALSE(thread.Cancel());
    // Restored, the same object starts its thread.
    ASSERT_TRUE(thread.Create(Count, nullptr, false));
    int code = 0;
    ASSERT_TRUE(thread.WaitForExit(&code));
    EXPECT_EQ(code, 7);
  }
  EXPECT_EQ(s_ran.load(), 1);
  EXPECT_EQ(Stats().live.load(), 0) << "the handle of the failed creation leaked";
}

TEST_F(ThreadFaultTest, FailingThreadCreationMakesOvraCreateThreadReturnNull) {
  ScopedCountingLibrary library;
  ASSERT_TRUE(library.started());
  {
    ScopedSysCall failing(FailingCreateThread);
    for (int i = 0; i < 10; ++i) EXPECT_EQ(OvraCreateThread(Count, nullptr, false), nullptr);
  }
  EXPECT_EQ(s_calls, 10);
  EXPECT_EQ(s_ran.load(), 0);
  EXPECT_EQ(Stats().live.load(), 0) << "the object or handle of a failed creation leaked";
}

TEST_F(ThreadFaultTest, FailingKeyCreationFailsStartUpAndALaterStartUpWorks) {
  Stats().Reset();
  SAllocator allocator = CountingAllocator();
  {
    ScopedSysCall failing(FailingCreateKey);
    EXPECT_FALSE(OvraInitialize(&allocator));
    EXPECT_FALSE(OvraInitialize(&allocator));
  }
  EXPECT_EQ(s_calls, 2);
  // Not started: thread-local data and the calls that need it fail.
  int key = 0;
  EXPECT_EQ(OvraTlsAddData(&key, 8), nullptr);
  EXPECT_EQ(OvraTlsGetData(&key), nullptr);
  // A balancing call after a failed start-up is harmless.
  OvraUninitialize();

  ASSERT_TRUE(OvraInitialize(&allocator));
  void* block = OvraTlsAddData(&key, 8);
  EXPECT_NE(block, nullptr);
  EXPECT_EQ(OvraTlsGetData(&key), block);
  OvraUninitialize();
  EXPECT_EQ(Stats().live.load(), 0) << "blocks outlived the shutdown";
}

TEST_F(ThreadFaultTest, FailingKeyDeletionStillEndsTheShutdownAndALaterStartUpWorks) {
  Stats().Reset();
  SAllocator allocator = CountingAllocator();
  int key = 0;
  ASSERT_TRUE(OvraInitialize(&allocator));
  ASSERT_NE(OvraTlsAddData(&key, 8), nullptr);
  {
    ScopedSysCall failing(kDeleteKey, FailingDeleteKey);
    OvraUninitialize();
  }
  EXPECT_EQ(s_calls, 1);
  // Shut down all the same: the key is gone with the library.
  EXPECT_EQ(OvraTlsGetData(&key), nullptr);
  // A later start-up makes a key of its own, with no data in it yet.
  ASSERT_TRUE(OvraInitialize(&allocator));
  EXPECT_EQ(OvraTlsGetData(&key), nullptr);
  void* block = OvraTlsAddData(&key, 8);
  EXPECT_NE(block, nullptr);
  EXPECT_EQ(OvraTlsGetData(&key), block);
  OvraUninitialize();
  EXPECT_EQ(Stats().live.load(), 0) << "blocks outlived the shutdown";
}

}  // namespace
