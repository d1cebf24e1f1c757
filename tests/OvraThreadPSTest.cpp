// Tests of the POSIX layer of threads: sleeping and cancellation.
#include <gtest/gtest.h>

#include <pthread.h>

#include <atomic>
#include <chrono>

#include "OvraThread.h"

namespace {

using Clock = std::chrono::steady_clock;

long ElapsedMs(Clock::time_point start) {
  return static_cast<long>(
      std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count());
}

TEST(ThreadSleepTest, SleepZeroReturns) {
  TThread::Sleep(0);
  SUCCEED();
}

TEST(ThreadSleepTest, SleepSplitsSecondsAndMilliseconds) {
  // 2500 ms is two whole seconds plus 500000 microseconds: the sleep lasts at
  // least that long (lower bound only).
  const auto start = Clock::now();
  TThread::Sleep(2500);
  EXPECT_GE(ElapsedMs(start), 2490);
}

TEST(ThreadSleepTest, ShortSleepLastsAtLeastItsLength) {
  const auto start = Clock::now();
  TThread::Sleep(30);
  EXPECT_GE(ElapsedMs(start), 29);
}

std::atomic<int> s_spinning{0};
// Global rather than a local: a thread stopped at an arbitrary instruction
// never unwinds, and a stack variable would leave AddressSanitizer's red zones
// behind on the dead thread's stack.
volatile unsigned long s_spinCounter = 0;

int SpinForever(void*) {
  s_spinning = 1;
  for (;;) s_spinCounter = s_spinCounter + 1;  // no cancellation point in this loop
  return 0;
}

TEST(ThreadCancelTest, AsynchronousCancellationStopsABusyLoop) {
  TThread t;
  ASSERT_TRUE(t.Create(SpinForever, nullptr, false));
  while (s_spinning.load() == 0) TThread::Sleep(1);
  EXPECT_TRUE(t.Cancel());
  int code = 0;
  ASSERT_TRUE(t.WaitForExit(&code));  // would hang if cancellation were deferred
  EXPECT_EQ(code, -1);                // the cancelled thread's exit value
}

// The cancellation state seen by a thread-local destructor, which runs on the
// thread's exit path after the procedure has returned.
std::atomic<int> s_exitPathCancelState{-1};
pthread_key_t s_exitKey;

void RecordExitPathCancelState(void*) {
  int old = -1;
  pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &old);
  pthread_setcancelstate(old, nullptr);
  s_exitPathCancelState = old;
}

int SetExitKeyAndReturn(void*) {
  pthread_setspecific(s_exitKey, &s_exitKey);
  return 3;
}

TEST(ThreadCancelTest, NoCancellationReachesTheExitPathAfterTheProcedureReturns) {
  // A late Cancel must not stop the destructors that free thread-local data
  // half-way: once the procedure's result stands, cancellation is off.
  ASSERT_EQ(pthread_key_create(&s_exitKey, RecordExitPathCancelState), 0);
  TThread t;
  ASSERT_TRUE(t.Create(SetExitKeyAndReturn, nullptr, false));
  int code = 0;
  ASSERT_TRUE(t.WaitForExit(&code));
  EXPECT_EQ(code, 3);
  EXPECT_EQ(s_exitPathCancelState.load(), PTHREAD_CANCEL_DISABLE);
  pthread_key_delete(s_exitKey);
}

}  // namespace
