// Tests of TThread and OvraCreateThread.
#include "OvraThread.h"

#include <gtest/gtest.h>

#include <atomic>

#include "TestAllocator.h"

using namespace ovra_test;

namespace {

int ReturnArgument(void* arg) { return static_cast<int>(reinterpret_cast<intptr_t>(arg)); }

int Return42(void*) { return 42; }

int SetFlag(void* flag) {
  static_cast<std::atomic<int>*>(flag)->store(1);
  return 0;
}

TEST(ThreadTest, NewThreadHasNoHandle) {
  TThread t;
  EXPECT_EQ(t.GetHandle(), kInvalidHandleValue);
  EXPECT_FALSE(t.Cancel());
  int code = 5;
  EXPECT_FALSE(t.WaitForExit(&code));
  EXPECT_EQ(code, 5);
}

TEST(ThreadTest, CreateWithNullProcedureFailsAndChangesNothing) {
  TThread t;
  EXPECT_FALSE(t.Create(nullptr, reinterpret_cast<void*>(1), false));
  EXPECT_EQ(t.GetHandle(), kInvalidHandleValue);
  // The stored procedure is still unset: a real Create afterwards works.
  ASSERT_TRUE(t.Create(Return42, nullptr, false));
  int code = 0;
  EXPECT_TRUE(t.WaitForExit(&code));
  EXPECT_EQ(code, 42);
}

TEST(ThreadTest, SuspendAndResumeAreNotSupportedWithOrWithoutAThread) {
  TThread t;
  EXPECT_EQ(t.Suspend(), 0xFFFFFFFFu);
  EXPECT_EQ(t.Resume(), 0xFFFFFFFFu);
  ASSERT_TRUE(t.Create(Return42, nullptr, false));
  EXPECT_EQ(t.Suspend(), 0xFFFFFFFFu);
  EXPECT_EQ(t.Resume(), 0xFFFFFFFFu);
  EXPECT_TRUE(t.WaitForExit(nullptr));
}

TEST(ThreadTest, ProcedureResultIsTheExitCode) {
  TThread t;
  ASSERT_TRUE(t.Create(Return42, nullptr, false));
  int code = 0;
  ASSERT_TRUE(t.WaitForExit(&code));
  EXPECT_EQ(code, 42);
}

TEST(ThreadTest, NegativeAndExtremeExitCodesSurviveThePointerRoundTrip) {
  for (intptr_t value : {intptr_t(-1), intptr_t(-2147483647 - 1), intptr_t(2147483647)}) {
    TThread t;
    ASSERT_TRUE(t.Create(ReturnArgument, reinterpret_cast<void*>(value), false));
    int code = 0;
    ASSERT_TRUE(t.WaitForExit(&code));
    EXPECT_EQ(code, static_cast<int>(value));
  }
}

TEST(ThreadTest, WaitForExitWithNullOutputOnAFinishedThreadSucceeds) {
  TThread t;
  ASSERT_TRUE(t.Create(Return42, nullptr, false));
  TThread::Sleep(20);  // very likely finished by now; either way join works
  EXPECT_TRUE(t.WaitForExit(nullptr));
}

TEST(ThreadTest, SuspendedFlagIsIgnoredAndTheThreadRunsAtOnce) {
  std::atomic<int> flag{0};
  TThread t;
  ASSERT_TRUE(t.Create(SetFlag, &flag, true));
  ASSERT_TRUE(t.WaitForExit(nullptr));  // would hang if the thread waited
  EXPECT_EQ(flag.load(), 1);
}

TEST(ThreadTest, SecondWaitForExitIsRefusedAndKeepsTheOutput) {
  TThread t;
  ASSERT_TRUE(t.Create(Return42, nullptr, false));
  ASSERT_TRUE(t.WaitForExit(nullptr));
  int code = 9;
  EXPECT_FALSE(t.WaitForExit(&code));
  EXPECT_EQ(code, 9);
  EXPECT_FALSE(t.Cancel());
  EXPECT_NE(t.GetHandle(), kInvalidHandleValue);  // the handle stays until destruction
}

TEST(ThreadTest, DestroyingARunningThreadObjectLeavesTheThreadRunning) {
  std::atomic<int> flag{0};
  {
    TThread t;
    ASSERT_TRUE(t.Create(
        [](void* f) {
          TThread::Sleep(50);
          return SetFlag(f);
        },
        &flag, false));
  }  // detached here, not stopped
  for (int i = 0; i < 400 && flag.load() == 0; ++i) TThread::Sleep(10);
  EXPECT_EQ(flag.load(), 1);
}

TEST(ThreadTest, CreateThreadReturnsAStartedThreadAllocatedByTheLibrary) {
  ScopedCountingLibrary lib;
  ASSERT_TRUE(lib.started());
  const long before = Stats().allocs;
  TThread* t = OvraCreateThread(Return42, nullptr, false);
  ASSERT_NE(t, nullptr);
  // The object and its handle cell both came from the installed allocator,
  // the cell through the library's own operator new.
  EXPECT_GE(Stats().allocs - before, 2);
  int code = 0;
  EXPECT_TRUE(t->WaitForExit(&code));
  EXPECT_EQ(code, 42);
  delete t;  // an application delete returns it to the library's allocator
  EXPECT_EQ(Stats().live, 0);
}

TEST(ThreadTest, CreateThreadWithNullProcedureReturnsNullAndLeaksNothing) {
  ScopedCountingLibrary lib;
  ASSERT_TRUE(lib.started());
  EXPECT_EQ(OvraCreateThread(nullptr, nullptr, false), nullptr);
  EXPECT_EQ(Stats().live, 0);
}

TEST(ThreadTest, CreateThreadSurvivesEveryAllocationFailure) {
  ScopedCountingLibrary lib;
  ASSERT_TRUE(lib.started());
  for (long n = 1;; ++n) {
    FailNthAllocation(n);
    TThread* t = OvraCreateThread(Return42, nullptr, false);
    StopFailing();
    if (!t) {
      EXPECT_EQ(Stats().live, 0) << "leak after failing allocation " << n;
      continue;
    }
    EXPECT_TRUE(t->WaitForExit(nullptr));
    delete t;
    EXPECT_EQ(Stats().live, 0);
    EXPECT_GT(n, 2);  // the object and the handle cell must both have been made
    break;
  }
}

TEST(ThreadTest, CreateFailsWhenTheHandleCellCannotBeMade) {
  ScopedCountingLibrary lib;
  ASSERT_TRUE(lib.started());
  TThread t;
  FailNthAllocation(1);
  EXPECT_FALSE(t.Create(Return42, nullptr, false));
  StopFailing();
  EXPECT_EQ(t.GetHandle(), kInvalidHandleValue);
}

}  // namespace
