// Threads and the thread-local key when the system refuses them: a failed
// thread creation gives false/null and leaks nothing, and a start-up whose
// key cannot be made fails as a whole and can be repeated later.
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

int FailingPthreadCreate(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*) {
  ++s_calls;
  return EAGAIN;  // the resource limit on threads is reached
}

int FailingPthreadKeyCreate(pthread_key_t*, void (*)(void*)) {
  ++s_calls;
  return EAGAIN;  // every key of the process is taken
}

int Count(void*) {
  ++s_ran;
  return 7;
}

class ThreadFaultTest : public ::testing::Test {
 protected:
  void SetUp() override { s_calls = 0; s_ran = 0; }
};

TEST_F(ThreadFaultTest, FailingPthreadCreateGivesFalseAndLeavesNoHandle) {
  ScopedCountingLibrary library;
  ASSERT_TRUE(library.started());
  {
    TThread thread;
    {
      ScopedSysCall failing(&SSysCalls::pthread_create, FailingPthreadCreate);
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

TEST_F(ThreadFaultTest, FailingPthreadCreateMakesOvraCreateThreadReturnNull) {
  ScopedCountingLibrary library;
  ASSERT_TRUE(library.started());
  {
    ScopedSysCall failing(&SSysCalls::pthread_create, FailingPthreadCreate);
    for (int i = 0; i < 10; ++i) EXPECT_EQ(OvraCreateThread(Count, nullptr, false), nullptr);
  }
  EXPECT_EQ(s_calls, 10);
  EXPECT_EQ(s_ran.load(), 0);
  EXPECT_EQ(Stats().live.load(), 0) << "the object or handle of a failed creation leaked";
}

TEST_F(ThreadFaultTest, FailingPthreadKeyCreateFailsStartUpAndALaterStartUpWorks) {
  Stats().Reset();
  SAllocator allocator = CountingAllocator();
  {
    ScopedSysCall failing(&SSysCalls::pthread_key_create, FailingPthreadKeyCreate);
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

}  // namespace
