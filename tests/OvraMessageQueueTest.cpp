// Tests of the process message queue: wake-up rule, available callback,
// ordering and concurrent posting.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "Ovra.h"
#include "OvraMessage.h"
#include "TestAllocator.h"

using namespace ovra_test;

namespace {

void* P(intptr_t v) { return reinterpret_cast<void*>(v); }

std::atomic<int> s_availableCalls{0};
void* s_availableData = nullptr;
void CountAvailable(void* data) {
  ++s_availableCalls;
  s_availableData = data;
}

class QueueTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(OvraInitialize(nullptr));
    s_availableCalls = 0;
  }
  void TearDown() override {
    OvraSetMessageAvailableCallback(nullptr, nullptr);
    OvraUninitialize();
  }
  static void Drain() {
    unsigned int id;
    void* p1;
    void* p2;
    while (OvraGetMessage(&id, &p1, &p2)) {
    }
  }
};

TEST_F(QueueTest, AvailableCallbackRunsOncePerEmptyToNonEmptyTransition) {
  int marker = 0;
  OvraSetMessageAvailableCallback(CountAvailable, &marker);
  ASSERT_TRUE(OvraPostMessage(1, nullptr, nullptr));
  ASSERT_TRUE(OvraPostMessage(1, nullptr, nullptr));
  ASSERT_TRUE(OvraPostMessage(1, nullptr, nullptr));
  EXPECT_EQ(s_availableCalls.load(), 1);
  EXPECT_EQ(s_availableData, &marker);
  Drain();
  ASSERT_TRUE(OvraPostMessage(1, nullptr, nullptr));
  EXPECT_EQ(s_availableCalls.load(), 2);
  Drain();
}

TEST_F(QueueTest, NullAvailableCallbackRestoresTheWakeUp) {
  OvraSetMessageAvailableCallback(CountAvailable, nullptr);
  OvraSetMessageAvailableCallback(nullptr, nullptr);
  std::thread poster([] {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    OvraPostQuitMessage(P(3));
  });
  EXPECT_EQ(OvraMessageLoop(), 3);  // woken by the condition variable
  poster.join();
  EXPECT_EQ(s_availableCalls.load(), 0);
}

TEST_F(QueueTest, BlockedLoopIsWokenByTheFirstPost) {
  const unsigned int id = OvraRequestMessageId();
  static std::atomic<int> delivered{0};
  delivered = 0;
  ASSERT_TRUE(OvraRegisterMessageCallback(id, [](unsigned int, void*, void*) { ++delivered; }));
  std::thread poster([id] {
    for (int i = 0; i < 3; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
      OvraPostMessage(id, nullptr, nullptr);
    }
    OvraPostQuitMessage(P(11));
  });
  EXPECT_EQ(OvraMessageLoop(), 11);
  poster.join();
  EXPECT_EQ(delivered.load(), 3);
  OvraUnregisterMessageCallback(id);
}

// Several threads post concurrently into the loop of this thread; every
// message arrives exactly once and each thread's messages keep their order.
TEST_F(QueueTest, ConcurrentPostersDeliverEveryMessageOnceAndInPerThreadOrder) {
  constexpr int kThreads = 4;
  constexpr int kPerThread = 20000;
  static std::vector<long> s_next;
  static long s_outOfOrder;
  s_next.assign(kThreads, 0);
  s_outOfOrder = 0;
  const unsigned int id = OvraRequestMessageId();
  ASSERT_TRUE(OvraRegisterMessageCallback(id, [](unsigned int, void* p1, void* p2) {
    const intptr_t thread = reinterpret_cast<intptr_t>(p1);
    const intptr_t seq = reinterpret_cast<intptr_t>(p2);
    if (s_next[thread] != seq) ++s_outOfOrder;
    s_next[thread] = seq + 1;
  }));
  std::vector<std::thread> posters;
  for (int t = 0; t < kThreads; ++t) {
    posters.emplace_back([t, id] {
      ASSERT_TRUE(OvraInitialize(nullptr));
      for (intptr_t i = 0; i < kPerThread; ++i)
        while (!OvraPostMessage(id, P(t), P(i))) std::this_thread::yield();
      OvraUninitialize();
    });
  }
  std::thread quitter([&posters] {
    for (auto& p : posters) p.join();
    OvraPostQuitMessage(P(kThreads));
  });
  // A wake-up that finds the queue empty ends the loop early; resume it then.
  int result = 0;
  do {
    result = OvraMessageLoop();
  } while (result != kThreads);
  quitter.join();
  EXPECT_EQ(s_outOfOrder, 0);
  for (int t = 0; t < kThreads; ++t) EXPECT_EQ(s_next[t], kPerThread) << "thread " << t;
  OvraUnregisterMessageCallback(id);
}

TEST(QueueLifecycleTest, DestroyingAQueueWithMessagesFreesThemAndCallsNoCallback) {
  Stats().Reset();
  SAllocator a = CountingAllocator();
  ASSERT_TRUE(OvraInitialize(&a));
  s_availableCalls = 0;
  ASSERT_TRUE(OvraPostMessage(1, nullptr, nullptr));
  OvraSetMessageAvailableCallback(CountAvailable, nullptr);
  ASSERT_TRUE(OvraPostMessage(2, nullptr, nullptr));  // not a transition
  ASSERT_TRUE(OvraPostMessage(3, nullptr, nullptr));
  OvraUninitialize();
  EXPECT_EQ(s_availableCalls.load(), 0);
  EXPECT_EQ(Stats().live, 0);
}

}  // namespace
