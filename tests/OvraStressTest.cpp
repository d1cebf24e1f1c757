// Stress of the threaded facilities: the process message queue under several
// posting threads and one dispatching thread, thread-local data on many
// short-lived threads, and thread creation and cancellation in a loop. Each
// run checks exactly-once, in-order delivery and that no block is leaked.
//
// Every build runs the full counts; the environment variable
// OVRA_STRESS_SCALE (a factor such as 0.1 or 2) scales them for machines
// where that would take too long, or to push harder.
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>

#include <atomic>
#include <chrono>
#include <vector>

#include "Ovra.h"
#include "OvraMessage.h"
#include "OvraThread.h"
#include "TestAllocator.h"
#include "TestPlatform.h"

using namespace ovra_test;

namespace {

double Scale() {
  if (const char* text = getenv("OVRA_STRESS_SCALE")) {
    const double value = atof(text);
    if (value > 0) return value;
  }
  return 1.0;
}

// count scaled, but never below minimum.
long Scaled(long count, long minimum) {
  const long value = static_cast<long>(static_cast<double>(count) * Scale());
  return value < minimum ? minimum : value;
}

// Prints a figure for the reliability record (ctest shows it with -V).
void Report(const char* what, long count, std::chrono::steady_clock::time_point start) {
  const double seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  printf("[ stress ] %s: %ld in %.2f s\n", what, count, seconds);
}

// Sleeps briefly and tells whether the flag is set, waiting at most ~20 s.
bool WaitFor(const std::atomic<int>& flag) {
  for (int i = 0; i < 20000 && flag.load() == 0; ++i) TThread::Sleep(1);
  return flag.load() != 0;
}

// --- messages ----------------------------------------------------------------

constexpr int kPosters = 4;

// Written by the dispatching thread only; read by the test after joining it.
struct SDelivery {
  long next[kPosters];  // the sequence number expected next from each poster
  long delivered;
  long outOfOrder;      // deliveries that skipped or repeated a number
  bool done;            // the final message arrived
};
SDelivery s_delivery;

long s_perPoster = 0;
unsigned int s_dataId = 0;
unsigned int s_doneId = 0;
std::atomic<long> s_postFailures{0};

// param1: the poster's index; param2: its sequence number.
void OnData(unsigned int, void* param1, void* param2) {
  const intptr_t poster = reinterpret_cast<intptr_t>(param1);
  const long sequence = static_cast<long>(reinterpret_cast<intptr_t>(param2));
  if (poster < 0 || poster >= kPosters || sequence != s_delivery.next[poster]) {
    ++s_delivery.outOfOrder;
  } else {
    ++s_delivery.next[poster];
  }
  ++s_delivery.delivered;
}

void OnDone(unsigned int, void*, void*) { s_delivery.done = true; }

int Post(void* arg) {
  const intptr_t poster = reinterpret_cast<intptr_t>(arg);
  for (long i = 0; i < s_perPoster; ++i) {
    // The queue never refuses while memory lasts; a refusal is counted and
    // the message posted again, so that a failure shows as a count.
    while (!OvraPostMessage(s_dataId, reinterpret_cast<void*>(poster),
                            reinterpret_cast<void*>(static_cast<intptr_t>(i)))) {
      ++s_postFailures;
      TThread::Sleep(1);
    }
  }
  return 0;
}

int Dispatch(void*) {
  // A loop may end on a wake-up that finds the queue empty; it is entered
  // again until the final message has been delivered.
  while (!s_delivery.done) OvraMessageLoop();
  return 0;
}

void PostAndDispatch() {
  ScopedCountingLibrary library;
  ASSERT_TRUE(library.started());
  const long total = Scaled(1000000, 20000);
  s_perPoster = total / kPosters;
  s_delivery = SDelivery();
  s_postFailures = 0;
  s_dataId = OvraRequestMessageId();
  s_doneId = OvraRequestMessageId();
  ASSERT_TRUE(OvraRegisterMessageCallback(s_dataId, OnData));
  ASSERT_TRUE(OvraRegisterMessageCallback(s_doneId, OnDone));

  const auto start = std::chrono::steady_clock::now();
  TThread dispatcher;
  ASSERT_TRUE(dispatcher.Create(Dispatch, nullptr, false));
  TThread posters[kPosters];
  for (intptr_t p = 0; p < kPosters; ++p)
    ASSERT_TRUE(posters[p].Create(Post, reinterpret_cast<void*>(p), false));
  for (TThread& poster : posters) ASSERT_TRUE(poster.WaitForExit(nullptr));
  ASSERT_TRUE(OvraPostMessage(s_doneId, nullptr, nullptr));
  ASSERT_TRUE(OvraPostQuitMessage(nullptr));
  ASSERT_TRUE(dispatcher.WaitForExit(nullptr));
  Report("messages", s_perPoster * kPosters, start);

  EXPECT_EQ(s_delivery.delivered, s_perPoster * kPosters);
  EXPECT_EQ(s_delivery.outOfOrder, 0);
  for (int p = 0; p < kPosters; ++p) EXPECT_EQ(s_delivery.next[p], s_perPoster) << "poster " << p;
  EXPECT_EQ(s_postFailures.load(), 0);
  // Nothing is left but, at most, the quit message of a loop that ended on
  // the final message: taking it leaves the queue empty.
  unsigned int id = 0;
  void* param1 = nullptr;
  void* param2 = nullptr;
  while (OvraGetMessage(&id, &param1, &param2)) EXPECT_EQ(id, kQuitMessageId);

  OvraUnregisterMessageCallback(s_dataId);
  OvraUnregisterMessageCallback(s_doneId);
}

TEST(MessageStressTest, EveryMessageOfSeveralPostersIsDeliveredOnceInOrder) {
  PostAndDispatch();
  // The queue keeps the nodes it grew until shutdown; after it, every block
  // the run allocated must be back.
  EXPECT_EQ(Stats().live.load(), 0) << "messages or queue nodes leaked";
}

// --- thread-local data ---------------------------------------------------------

constexpr int kKeys = 4;
int s_keys[kKeys];
std::atomic<long> s_tlsErrors{0};

// Joins the started library for the thread's lifetime, fills blocks under
// several keys with the thread's own mark, and checks they stay its own.
int UseThreadLocalData(void* arg) {
  const unsigned int mark = static_cast<unsigned int>(reinterpret_cast<uintptr_t>(arg));
  if (!OvraInitialize(nullptr)) {
    ++s_tlsErrors;
    return 1;
  }
  for (int k = 0; k < kKeys; ++k) {
    unsigned int* block =
        static_cast<unsigned int*>(OvraTlsAddData(&s_keys[k], 16 * sizeof(unsigned int)));
    if (!block || block[0] != 0) {
      ++s_tlsErrors;
      continue;
    }
    for (int i = 0; i < 16; ++i) block[i] = mark + static_cast<unsigned int>(k);
  }
  TThread::Sleep(0);
  for (int k = 0; k < kKeys; ++k) {
    unsigned int* block = static_cast<unsigned int*>(OvraTlsGetData(&s_keys[k]));
    if (!block || OvraTlsGetAddData(&s_keys[k], 4) != block) {
      ++s_tlsErrors;
      continue;
    }
    for (int i = 0; i < 16; ++i)
      if (block[i] != mark + static_cast<unsigned int>(k)) ++s_tlsErrors;
  }
  OvraUninitialize();  // frees this thread's table and blocks
  return 0;
}

TEST(ThreadLocalStressTest, ManyShortLivedThreadsKeepTheirOwnDataAndLeakNothing) {
  ScopedCountingLibrary library;
  ASSERT_TRUE(library.started());
  const long threads = Scaled(2000, 100);
  constexpr int kBatch = 8;
  s_tlsErrors = 0;
  const auto start = std::chrono::steady_clock::now();
  long started = 0;
  while (started < threads) {
    TThread* batch[kBatch] = {};
    int n = 0;
    for (; n < kBatch && started < threads; ++n, ++started) {
      batch[n] = OvraCreateThread(UseThreadLocalData,
                                  reinterpret_cast<void*>(static_cast<uintptr_t>(started * 16)), false);
      ASSERT_NE(batch[n], nullptr);
    }
    for (int i = 0; i < n; ++i) {
      int code = -5;
      EXPECT_TRUE(batch[i]->WaitForExit(&code));
      EXPECT_EQ(code, 0);
      delete batch[i];
    }
  }
  Report("thread-local threads", threads, start);
  EXPECT_EQ(s_tlsErrors.load(), 0);
  EXPECT_EQ(Stats().live.load(), 0) << "thread tables, blocks or thread objects leaked";
}

// --- creation and cancellation ---------------------------------------------------

std::atomic<int> s_running{0};
std::atomic<long> s_finished{0};

// Loops until cancelled, touching no memory at all: a thread stopped at an
// arbitrary instruction leaves nothing half-written behind.
int SpinUntilCancelled(void*) {
  s_running = 1;
  for (;;) asm volatile("");
  return 0;
}

int ReturnAtOnce(void*) {
  s_running = 1;
  ++s_finished;
  return 3;
}

// Returns at once touching no shared memory: the target of an immediate
// Cancel, which may stop it at any instruction. (An atomic update there could
// be stopped half-way inside a sanitizer's runtime, which holds locks.)
int ReturnAtOnceQuietly(void*) { return 3; }

TEST(ThreadCancelStressTest, CreatingAndCancellingThreadsInALoopLeaksNothing) {
  OVRA_SKIP_ON_WINDOWS("TThread::Cancel is refused there (the system cannot stop a thread "
                       "from outside safely), so no busy thread can be cancelled");
  ScopedCountingLibrary library;
  ASSERT_TRUE(library.started());
  const long iterations = Scaled(500, 50);
  s_finished = 0;
  long cancelled = 0;
  const auto start = std::chrono::steady_clock::now();
  for (long i = 0; i < iterations; ++i) {
    s_running = 0;
    TThread thread;
    switch (i % 3) {
      case 0: {  // a busy thread, cancelled once it runs
        ASSERT_TRUE(thread.Create(SpinUntilCancelled, nullptr, false));
        ASSERT_TRUE(WaitFor(s_running));
        EXPECT_TRUE(thread.Cancel());
        int code = 0;
        ASSERT_TRUE(thread.WaitForExit(&code));
        EXPECT_EQ(code, -1);
        ++cancelled;
        break;
      }
      case 1: {  // cancelled at once, racing its start or its end
        ASSERT_TRUE(thread.Create(ReturnAtOnceQuietly, nullptr, false));
        thread.Cancel();
        int code = 0;
        ASSERT_TRUE(thread.WaitForExit(&code));
        EXPECT_TRUE(code == -1 || code == 3) << code;
        EXPECT_FALSE(thread.Cancel()) << "a joined thread cannot be cancelled";
        break;
      }
      default: {  // never joined: the object goes once the thread has started
        ASSERT_TRUE(thread.Create(ReturnAtOnce, nullptr, false));
        ASSERT_TRUE(WaitFor(s_running));
        break;
      }
    }
  }
  Report("create/cancel iterations", iterations, start);
  EXPECT_EQ(cancelled, (iterations + 2) / 3);
  EXPECT_EQ(Stats().live.load(), 0) << "thread handles leaked";
}

}  // namespace
