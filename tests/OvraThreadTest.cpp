// Tests of TThread and OvraCreateThread.
#include "OvraThread.h"

#include <gtest/gtest.h>

#include <string.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "AllocSweep.h"
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
  // flags[0]: the procedure has started (so the object may go, as the class
  // requires); flags[1]: it ran to its end after the object was destroyed.
  static std::atomic<int> flags[2];
  flags[0] = 0;
  flags[1] = 0;
  {
    TThread t;
    ASSERT_TRUE(t.Create(
        [](void*) {
          flags[0].store(1);
          TThread::Sleep(50);
          return SetFlag(&flags[1]);
        },
        nullptr, false));
    for (int i = 0; i < 400 && flags[0].load() == 0; ++i) TThread::Sleep(10);
    ASSERT_EQ(flags[0].load(), 1);
  }  // detached here, not stopped
  std::atomic<int>& flag = flags[1];
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

// --- thread-local data ---------------------------------------------------------

namespace {

void* Key(intptr_t k) { return reinterpret_cast<void*>(k); }

bool AllZero(const void* p, size_t n) {
  const unsigned char* b = static_cast<const unsigned char*>(p);
  for (size_t i = 0; i < n; ++i)
    if (b[i]) return false;
  return true;
}

TEST(TlsTest, EveryCallFailsBeforeTheLibraryStarts) {
  EXPECT_EQ(OvraTlsAddData(Key(1), 8), nullptr);
  EXPECT_EQ(OvraTlsGetData(Key(1)), nullptr);
  EXPECT_EQ(OvraTlsGetAddData(Key(1), 8), nullptr);
  EXPECT_FALSE(OvraTlsRemoveData(Key(1)));
}

TEST(TlsTest, GetDataWithoutATableReturnsNullAndCreatesNothing) {
  ScopedCountingLibrary lib;
  ASSERT_TRUE(lib.started());
  const long allocs = Stats().allocs;
  EXPECT_EQ(OvraTlsGetData(Key(7)), nullptr);
  EXPECT_FALSE(OvraTlsRemoveData(Key(7)));
  EXPECT_EQ(Stats().allocs, allocs);
}

TEST(TlsTest, AddDataReturnsZeroFilledBlocksAndTheLatestWins) {
  ScopedCountingLibrary lib;
  ASSERT_TRUE(lib.started());
  void* first = OvraTlsAddData(Key(1), 16);
  ASSERT_NE(first, nullptr);
  EXPECT_TRUE(AllZero(first, 16));
  memset(first, 0xFF, 16);
  void* second = OvraTlsAddData(Key(1), 16);
  ASSERT_NE(second, nullptr);
  EXPECT_NE(second, first);
  EXPECT_TRUE(AllZero(second, 16));
  EXPECT_EQ(OvraTlsGetData(Key(1)), second);
  OvraMemFree(first);  // replaced blocks are not freed by the table
}

TEST(TlsTest, GetAddDataReturnsTheExistingBlockOrMakesOne) {
  ScopedCountingLibrary lib;
  ASSERT_TRUE(lib.started());
  void* made = OvraTlsGetAddData(Key(3), 24);
  ASSERT_NE(made, nullptr);
  EXPECT_TRUE(AllZero(made, 24));
  EXPECT_EQ(OvraTlsGetAddData(Key(3), 24), made);
  EXPECT_EQ(OvraTlsGetData(Key(3)), made);
}

TEST(TlsTest, RemoveDataReportsPresenceAndForgetsTheKey) {
  SAllocator a = CountingAllocator();  // malloc-based, as removal requires
  ASSERT_TRUE(OvraInitialize(&a));
  EXPECT_FALSE(OvraTlsRemoveData(Key(5)));  // no table yet
  ASSERT_NE(OvraTlsAddData(Key(5), 8), nullptr);
  EXPECT_FALSE(OvraTlsRemoveData(Key(6)));  // absent key
  EXPECT_TRUE(OvraTlsRemoveData(Key(5)));
  EXPECT_EQ(OvraTlsGetData(Key(5)), nullptr);
  EXPECT_FALSE(OvraTlsRemoveData(Key(5)));
  OvraUninitialize();
}

TEST(TlsTest, ZeroSizeStoresWhatTheAllocatorReturns) {
  ASSERT_TRUE(OvraInitialize(nullptr));
  void* block = OvraTlsAddData(Key(9), 0);
  EXPECT_EQ(OvraTlsGetData(Key(9)), block);
  OvraUninitialize();
}

TEST(TlsTest, TwoThreadsWithTheSameKeySeeDifferentBlocks) {
  ScopedCountingLibrary lib;
  ASSERT_TRUE(lib.started());
  void* mine = OvraTlsAddData(Key(1), 4);
  ASSERT_NE(mine, nullptr);
  void* theirs = nullptr;
  void* theirsBeforeAdding = reinterpret_cast<void*>(1);
  std::thread other([&] {
    ASSERT_TRUE(OvraInitialize(nullptr));
    theirsBeforeAdding = OvraTlsGetData(Key(1));
    theirs = OvraTlsAddData(Key(1), 4);
    OvraUninitialize();  // frees this thread's table
  });
  other.join();
  EXPECT_EQ(theirsBeforeAdding, nullptr);
  EXPECT_NE(theirs, nullptr);
  EXPECT_NE(theirs, mine);
  EXPECT_EQ(OvraTlsGetData(Key(1)), mine);
}

TEST(TlsTest, EachThreadsUninitializeFreesItsOwnTable) {
  ScopedCountingLibrary lib;
  ASSERT_TRUE(lib.started());
  const long live = Stats().live;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([t] {
      ASSERT_TRUE(OvraInitialize(nullptr));
      for (intptr_t k = 1; k <= 30; ++k) {
        int* block = static_cast<int*>(OvraTlsAddData(Key(k), sizeof(int)));
        ASSERT_NE(block, nullptr);
        *block = t;
      }
      for (intptr_t k = 1; k <= 30; ++k)
        EXPECT_EQ(*static_cast<int*>(OvraTlsGetData(Key(k))), t);
      OvraUninitialize();
    });
  }
  for (auto& th : threads) th.join();
  EXPECT_EQ(Stats().live, live);
}

TEST(TlsTest, LastUninitializeFreesTheStartingThreadsTable) {
  Stats().Reset();
  SAllocator a = CountingAllocator();
  ASSERT_TRUE(OvraInitialize(&a));
  for (intptr_t k = 1; k <= 12; ++k) ASSERT_NE(OvraTlsAddData(Key(k), 32), nullptr);
  EXPECT_GT(Stats().live, 12);
  OvraUninitialize();
  EXPECT_EQ(Stats().live, 0);
}

TEST(TlsTest, RestartedLibraryGivesTheThreadAFreshTable) {
  ScopedCountingLibrary lib;
  ASSERT_TRUE(lib.started());
  ASSERT_TRUE(OvraInitialize(nullptr));  // nested
  ASSERT_NE(OvraTlsAddData(Key(2), 8), nullptr);
  OvraUninitialize();  // frees this thread's table; the library stays up
  EXPECT_EQ(OvraTlsGetData(Key(2)), nullptr);
  EXPECT_NE(OvraTlsAddData(Key(2), 8), nullptr);
}

TEST(TlsTest, AddDataSurvivesEveryAllocationFailure) {
  ScopedCountingLibrary lib;
  ASSERT_TRUE(lib.started());
  const long live = Stats().live;
  for (long n = 1; n < 50; ++n) {
    ASSERT_TRUE(OvraInitialize(nullptr));  // nested: its Uninitialize frees the table
    FailNthAllocation(n);
    void* block = OvraTlsAddData(Key(4), 40);
    StopFailing();
    if (block) {
      EXPECT_TRUE(AllZero(block, 40));
      EXPECT_EQ(OvraTlsGetData(Key(4)), block);
    } else {
      EXPECT_EQ(OvraTlsGetData(Key(4)), nullptr);
    }
    OvraUninitialize();
    EXPECT_EQ(Stats().live, live) << "leak after failing allocation " << n;
  }
}

// --- Allocation failures ---------------------------------------------------
// Each operation runs with its 1st, 2nd, ... allocation failing, alone and
// with every later one (AllocSweep.h), until it goes through; every run must
// give the documented out-of-memory result and leak nothing. The N each sweep
// reaches is printed ("[ SWEEP    ]").

class AllocSweepThread : public SweepTest {};

// Adds blocks under many keys, so that the thread's table grows too; every
// call either gives a zero-filled block found under its key or null with
// nothing stored. The nested start-up around it frees the table and blocks.
void SweepThreadLocalData(const std::string& what,
                          void* (*add)(void* key, unsigned int size)) {
  SweepBothModes(what, [&](SweepRun& run) {
    ASSERT_TRUE(OvraInitialize(nullptr));
    const intptr_t keys = 40;
    std::vector<void*> blocks;
    run.Arm();
    for (intptr_t k = 1; k <= keys; ++k) blocks.push_back(add(Key(k), static_cast<unsigned>(8 * k)));
    const bool failed = run.Disarm();
    int missing = 0;
    for (intptr_t k = 1; k <= keys; ++k) {
      void* block = blocks[static_cast<size_t>(k - 1)];
      EXPECT_EQ(OvraTlsGetData(Key(k)), block) << what << " key " << k << " n=" << run.n();
      if (block) {
        EXPECT_TRUE(AllZero(block, static_cast<size_t>(8 * k)));
      } else {
        ++missing;
      }
    }
    EXPECT_EQ(missing > 0, failed) << what << " n=" << run.n();
    OvraUninitialize();
  });
}

TEST_F(AllocSweepThread, ThreadLocalBlocksAreNullAndUnstoredWhenTheirAllocationFails) {
  SweepThreadLocalData("OvraTlsAddData x40", OvraTlsAddData);
  SweepThreadLocalData("OvraTlsGetAddData x40", OvraTlsGetAddData);
}

TEST_F(AllocSweepThread, ThreadCreationFailsCleanlyAndTheObjectStaysReusable) {
  SweepBothModes("TThread::Create", [](SweepRun& run) {
    TThread thread;
    run.Arm();
    const bool created = thread.Create(Return42, nullptr, false);
    const bool failed = run.Disarm();
    EXPECT_EQ(created, !failed) << "n=" << run.n();
    if (!created) {
      EXPECT_EQ(thread.GetHandle(), kInvalidHandleValue);
      EXPECT_FALSE(thread.WaitForExit(nullptr));
      ASSERT_TRUE(thread.Create(Return42, nullptr, false));  // reusable
    }
    int exitCode = 0;
    EXPECT_TRUE(thread.WaitForExit(&exitCode));
    EXPECT_EQ(exitCode, 42);
  });
  SweepBothModes("OvraCreateThread", [](SweepRun& run) {
    run.Arm();
    TThread* thread = OvraCreateThread(Return42, nullptr, false);
    const bool failed = run.Disarm();
    EXPECT_EQ(thread == nullptr, failed) << "n=" << run.n();
    if (thread) {
      int exitCode = 0;
      EXPECT_TRUE(thread->WaitForExit(&exitCode));
      EXPECT_EQ(exitCode, 42);
      delete thread;
    }
  });
}

}  // namespace
