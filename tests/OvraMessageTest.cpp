// Tests of message identifiers, the callback registry and dispatch.
#include "OvraMessage.h"

#include <gtest/gtest.h>

#include <vector>

#include "AllocSweep.h"
#include "TestAllocator.h"

using namespace ovra_test;

namespace {

struct Delivery {
  unsigned int id;
  void* param1;
  void* param2;
};
std::vector<Delivery> s_delivered;

void Record(unsigned int id, void* p1, void* p2) { s_delivered.push_back({id, p1, p2}); }
void OtherCallback(unsigned int, void*, void*) {}

void* P(intptr_t v) { return reinterpret_cast<void*>(v); }

// Must stay the first test of this file: it sees the counter's first values.
TEST(MessageIdTest, IdentifiersStartAtOneAndAreNeverReused) {
  EXPECT_EQ(OvraRequestMessageId(), 1u);
  EXPECT_EQ(OvraRequestMessageId(), 2u);
  OvraReleaseMessageId(1);
  EXPECT_EQ(OvraRequestMessageId(), 3u);
  EXPECT_EQ(kFirstMessageId, 1u);
  EXPECT_EQ(kQuitMessageId, 0xFFFFFFFFu);
}

TEST(MessageRegistryTest, SecondRegistrationIsRefusedAndKeepsTheFirst) {
  const unsigned int id = OvraRequestMessageId();
  EXPECT_TRUE(OvraRegisterMessageCallback(id, Record));
  EXPECT_FALSE(OvraRegisterMessageCallback(id, OtherCallback));
  EXPECT_EQ(OvraLookupMessageCallback(id), &Record);
  OvraUnregisterMessageCallback(id);
}

TEST(MessageRegistryTest, UnregisteringTheOnlyCallbackRemovesTheRegistry) {
  ScopedCountingLibrary lib;
  ASSERT_TRUE(lib.started());
  const long live = Stats().live;
  const unsigned int id = OvraRequestMessageId();
  ASSERT_TRUE(OvraRegisterMessageCallback(id, Record));
  EXPECT_GT(Stats().live, live);  // the registry exists
  OvraUnregisterMessageCallback(id);
  EXPECT_EQ(OvraLookupMessageCallback(id), nullptr);
  EXPECT_EQ(Stats().live, live);  // and is gone again
  OvraUnregisterMessageCallback(id);  // without a registry: nothing happens
}

TEST(MessageRegistryTest, RegistrationWorksWithoutAStartedLibrary) {
  const unsigned int id = OvraRequestMessageId();
  EXPECT_TRUE(OvraRegisterMessageCallback(id, Record));
  s_delivered.clear();
  EXPECT_TRUE(OvraGiveMessage(id, P(1), P(2)));
  ASSERT_EQ(s_delivered.size(), 1u);
  OvraUnregisterMessageCallback(id);
}

TEST(MessageRegistryTest, RegistrationSurvivesAllocationFailures) {
  ScopedCountingLibrary lib;
  ASSERT_TRUE(lib.started());
  const long live = Stats().live;
  const unsigned int id = OvraRequestMessageId();
  for (long n = 1;; ++n) {
    FailNthAllocation(n);
    const bool ok = OvraRegisterMessageCallback(id, Record);
    StopFailing();
    if (!ok) {
      EXPECT_EQ(OvraLookupMessageCallback(id), nullptr);
      EXPECT_EQ(Stats().live, live) << "leak after failing allocation " << n;
      continue;
    }
    EXPECT_EQ(OvraLookupMessageCallback(id), &Record);
    break;
  }
  OvraUnregisterMessageCallback(id);
  EXPECT_EQ(Stats().live, live);
}

TEST(MessageGiveTest, GiveWithoutCallbackReturnsFalseAndCallsNothing) {
  s_delivered.clear();
  EXPECT_FALSE(OvraGiveMessage(OvraRequestMessageId(), P(1), P(2)));
  EXPECT_TRUE(s_delivered.empty());
}

TEST(MessageGiveTest, GiveCallsTheCallbackAtOnceWithBothParameters) {
  const unsigned int id = OvraRequestMessageId();
  ASSERT_TRUE(OvraRegisterMessageCallback(id, Record));
  s_delivered.clear();
  EXPECT_TRUE(OvraGiveMessage(id, P(10), P(20)));
  ASSERT_EQ(s_delivered.size(), 1u);
  EXPECT_EQ(s_delivered[0].id, id);
  EXPECT_EQ(s_delivered[0].param1, P(10));
  EXPECT_EQ(s_delivered[0].param2, P(20));
  OvraUnregisterMessageCallback(id);
}

TEST(MessageQueueAbsentTest, WithoutStartUpPostAndGetFailAndTheLoopReturnsZero) {
  EXPECT_FALSE(OvraPostMessage(5, nullptr, nullptr));
  EXPECT_FALSE(OvraPostQuitMessage(P(3)));
  unsigned int id = 77;
  void* p1 = P(1);
  void* p2 = P(2);
  EXPECT_FALSE(OvraGetMessage(&id, &p1, &p2));
  EXPECT_EQ(id, 77u);
  EXPECT_EQ(OvraMessageLoop(), 0);
  OvraDispatchMessages();                         // nothing to do
  OvraSetMessageAvailableCallback(nullptr, nullptr);  // ignored
}

class MessageDispatchTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(OvraInitialize(nullptr));
    id = OvraRequestMessageId();
    ASSERT_TRUE(OvraRegisterMessageCallback(id, Record));
    s_delivered.clear();
  }
  void TearDown() override {
    OvraUnregisterMessageCallback(id);
    OvraUninitialize();
  }
  unsigned int id = 0;
};

TEST_F(MessageDispatchTest, GetOnAnEmptyQueueReturnsFalseAtOnce) {
  unsigned int got = 0;
  void* p1 = nullptr;
  void* p2 = nullptr;
  EXPECT_FALSE(OvraGetMessage(&got, &p1, &p2));
}

TEST_F(MessageDispatchTest, GetReturnsMessagesInPostingOrder) {
  for (intptr_t i = 0; i < 25; ++i) ASSERT_TRUE(OvraPostMessage(id, P(i), P(-i)));
  for (intptr_t i = 0; i < 25; ++i) {
    unsigned int got = 0;
    void* p1 = nullptr;
    void* p2 = nullptr;
    ASSERT_TRUE(OvraGetMessage(&got, &p1, &p2));
    EXPECT_EQ(got, id);
    EXPECT_EQ(p1, P(i));
    EXPECT_EQ(p2, P(-i));
  }
  EXPECT_TRUE(s_delivered.empty());  // getting is not delivering
}

TEST_F(MessageDispatchTest, DispatchDeliversUpToTheQuitMessageAndLeavesTheRest) {
  ASSERT_TRUE(OvraPostMessage(id, P(1), nullptr));   // A
  ASSERT_TRUE(OvraPostQuitMessage(P(9)));            // quit
  ASSERT_TRUE(OvraPostMessage(id, P(2), nullptr));   // B
  OvraDispatchMessages();
  ASSERT_EQ(s_delivered.size(), 1u);
  EXPECT_EQ(s_delivered[0].param1, P(1));
  unsigned int got = 0;
  void* p1 = nullptr;
  void* p2 = nullptr;
  ASSERT_TRUE(OvraGetMessage(&got, &p1, &p2));  // B is still queued
  EXPECT_EQ(got, id);
  EXPECT_EQ(p1, P(2));
  EXPECT_FALSE(OvraGetMessage(&got, &p1, &p2));
}

TEST_F(MessageDispatchTest, MessagesWithoutCallbackAreDroppedOnDispatch) {
  const unsigned int orphan = OvraRequestMessageId();
  ASSERT_TRUE(OvraPostMessage(orphan, P(1), nullptr));  // accepted
  ASSERT_TRUE(OvraPostMessage(id, P(2), nullptr));
  OvraDispatchMessages();
  ASSERT_EQ(s_delivered.size(), 1u);
  EXPECT_EQ(s_delivered[0].param1, P(2));
}

TEST_F(MessageDispatchTest, LoopReturnsTheQuitCodeAfterDeliveringEverythingBeforeIt) {
  for (intptr_t i = 0; i < 5; ++i) ASSERT_TRUE(OvraPostMessage(id, P(i), nullptr));
  ASSERT_TRUE(OvraPostQuitMessage(P(7)));
  ASSERT_TRUE(OvraPostMessage(id, P(100), nullptr));  // after the quit: stays queued
  EXPECT_EQ(OvraMessageLoop(), 7);
  ASSERT_EQ(s_delivered.size(), 5u);
  for (intptr_t i = 0; i < 5; ++i) EXPECT_EQ(s_delivered[i].param1, P(i));
  OvraDispatchMessages();
  EXPECT_EQ(s_delivered.size(), 6u);
}

TEST_F(MessageDispatchTest, NegativeQuitCodesComeBackIntact) {
  ASSERT_TRUE(OvraPostQuitMessage(P(-12345)));
  EXPECT_EQ(OvraMessageLoop(), -12345);
}

TEST_F(MessageDispatchTest, CallbacksMayPostFurtherMessages) {
  static unsigned int s_id;
  s_id = id;
  const unsigned int chain = OvraRequestMessageId();
  ASSERT_TRUE(OvraRegisterMessageCallback(chain, [](unsigned int, void* p1, void*) {
    const intptr_t left = reinterpret_cast<intptr_t>(p1);
    if (left > 0) OvraPostMessage(s_id, p1, nullptr);  // queued behind P(0)
    if (left == 0) OvraPostQuitMessage(P(55));          // queued behind that
  }));
  ASSERT_TRUE(OvraPostMessage(chain, P(1), nullptr));
  ASSERT_TRUE(OvraPostMessage(chain, P(0), nullptr));
  EXPECT_EQ(OvraMessageLoop(), 55);
  ASSERT_EQ(s_delivered.size(), 1u);
  EXPECT_EQ(s_delivered[0].param1, P(1));
  OvraUnregisterMessageCallback(chain);
}

TEST(MessageLifecycleTest, UndeliveredMessagesAreFreedAtShutdownWithoutDelivery) {
  Stats().Reset();
  SAllocator a = CountingAllocator();
  ASSERT_TRUE(OvraInitialize(&a));
  const unsigned int id = OvraRequestMessageId();
  ASSERT_TRUE(OvraRegisterMessageCallback(id, Record));
  s_delivered.clear();
  for (int i = 0; i < 40; ++i) ASSERT_TRUE(OvraPostMessage(id, nullptr, nullptr));
  OvraUnregisterMessageCallback(id);
  OvraUninitialize();
  EXPECT_TRUE(s_delivered.empty());
  EXPECT_EQ(Stats().live, 0);
}

TEST(MessageLifecycleTest, StartUpFailsWhenTheQueueCannotBeMade) {
  Stats().Reset();
  SAllocator a = CountingAllocator();
  // Fail every allocation: the queue is the start-up chain's allocation.
  Stats().failAt = 1;
  Stats().failAll = true;
  EXPECT_FALSE(OvraInitialize(&a));
  StopFailing();
  // The count stayed at zero: the next start-up runs the whole chain again.
  ASSERT_TRUE(OvraInitialize(&a));
  EXPECT_TRUE(OvraPostMessage(1, nullptr, nullptr));
  OvraUninitialize();
  EXPECT_FALSE(OvraPostMessage(1, nullptr, nullptr));
}

TEST(MessageLifecycleTest, PostReportsAllocationFailureAndLeavesTheQueueUnchanged) {
  Stats().Reset();
  SAllocator a = CountingAllocator();
  ASSERT_TRUE(OvraInitialize(&a));
  const unsigned int id = OvraRequestMessageId();
  const long live = Stats().live.load();
  // The queue holds records of its own, so the first posts allocate nothing;
  // the first post that needs more memory fails while allocations fail, and
  // queues nothing.
  FailNthAllocation(1);
  intptr_t accepted = 0;
  while (accepted < 100000 && OvraPostMessage(id, P(accepted + 1), nullptr)) ++accepted;
  StopFailing();
  ASSERT_LT(accepted, 100000) << "no post ever allocated";
  EXPECT_GT(accepted, 0);
  EXPECT_EQ(Stats().live.load(), live);
  // With memory back, posting goes on.
  ASSERT_TRUE(OvraPostMessage(id, P(accepted + 1), nullptr));
  EXPECT_GT(Stats().live.load(), live);
  // Exactly the accepted messages come out, in order.
  unsigned int got = 0;
  void* p1 = nullptr;
  void* p2 = nullptr;
  for (intptr_t i = 1; i <= accepted + 1; ++i) {
    ASSERT_TRUE(OvraGetMessage(&got, &p1, &p2));
    EXPECT_EQ(p1, P(i));
  }
  EXPECT_FALSE(OvraGetMessage(&got, &p1, &p2));
  // The queue may keep records for the next burst; shutting down frees them.
  OvraUninitialize();
  EXPECT_EQ(Stats().live.load(), 0);
}

TEST(MessageLifecycleTest, ABurstIsGivenBackByShutDownAndMostOfItWhenDrained) {
  Stats().Reset();
  SAllocator a = CountingAllocator();
  ASSERT_TRUE(OvraInitialize(&a));
  const unsigned int id = OvraRequestMessageId();
  const long live = Stats().live.load();
  constexpr intptr_t kBurst = 100000;
  for (intptr_t i = 1; i <= kBurst; ++i) ASSERT_TRUE(OvraPostMessage(id, P(i), nullptr));
  const long during = Stats().live.load() - live;
  // Records are allocated in chunks, not one by one.
  EXPECT_GT(during, 0);
  EXPECT_LT(during, kBurst / 16);
  unsigned int got = 0;
  void* p1 = nullptr;
  void* p2 = nullptr;
  for (intptr_t i = 1; i <= kBurst; ++i) {
    ASSERT_TRUE(OvraGetMessage(&got, &p1, &p2));
    ASSERT_EQ(p1, P(i));
  }
  // Drained, the queue keeps a bounded reserve only.
  EXPECT_LT(Stats().live.load() - live, during / 4);
  OvraUninitialize();
  EXPECT_EQ(Stats().live.load(), 0);
}

// --- Allocation failures ---------------------------------------------------
// Each operation runs with its 1st, 2nd, ... allocation failing, alone and
// with every later one (AllocSweep.h), until it goes through; every run must
// give the documented out-of-memory result and leak nothing. The N each sweep
// reaches is printed ("[ SWEEP    ]").

class AllocSweepMessage : public SweepTest {};

TEST_F(AllocSweepMessage, CallbackRegistrationFailsWithoutAnEntryWhenMemoryRunsOut) {
  SweepBothModes("OvraRegisterMessageCallback x20", [](SweepRun& run) {
    std::vector<unsigned int> ids;
    for (int i = 0; i < 20; ++i) ids.push_back(OvraRequestMessageId());
    std::vector<bool> registered;
    run.Arm();
    for (unsigned int id : ids) registered.push_back(OvraRegisterMessageCallback(id, OtherCallback));
    const bool failed = run.Disarm();
    int refused = 0;
    for (size_t i = 0; i < ids.size(); ++i) {
      EXPECT_EQ(OvraLookupMessageCallback(ids[i]), registered[i] ? &OtherCallback : nullptr);
      if (!registered[i]) ++refused;
    }
    EXPECT_EQ(refused > 0, failed) << "n=" << run.n();
    for (unsigned int id : ids) OvraUnregisterMessageCallback(id);
  });
}

TEST_F(AllocSweepMessage, PostingFailsWithoutQueueingWhenMemoryRunsOut) {
  // The queue holds some records of its own and allocates more in chunks:
  // 300 posts outgrow the first and need several. A drained queue may keep
  // chunks for the next burst until shut down, so every run starts and ends
  // with a fresh queue (a full restart with the counting allocator).
  SweepBothModes("OvraPostMessage x300 + OvraPostQuitMessage", [](SweepRun& run) {
    SAllocator counting = ovra_test::CountingAllocator();
    OvraUninitialize();
    ASSERT_TRUE(OvraInitialize(&counting));
    const unsigned int id = OvraRequestMessageId();
    std::vector<intptr_t> posted;
    run.Arm();
    for (intptr_t i = 1; i <= 300; ++i) {
      if (OvraPostMessage(id, P(i), P(-i))) posted.push_back(i);
    }
    const bool quitPosted = OvraPostQuitMessage(P(77));
    const bool failed = run.Disarm();
    EXPECT_EQ(posted.size() < 300 || !quitPosted, failed) << "n=" << run.n();
    // Exactly the accepted messages come out, whole and in order.
    unsigned int got = 0;
    void* p1 = nullptr;
    void* p2 = nullptr;
    for (intptr_t i : posted) {
      ASSERT_TRUE(OvraGetMessage(&got, &p1, &p2));
      EXPECT_EQ(got, id);
      EXPECT_EQ(p1, P(i));
      EXPECT_EQ(p2, P(-i));
    }
    if (quitPosted) {
      ASSERT_TRUE(OvraGetMessage(&got, &p1, &p2));
      EXPECT_EQ(got, kQuitMessageId);
      EXPECT_EQ(p1, P(77));
    }
    EXPECT_FALSE(OvraGetMessage(&got, &p1, &p2));
    OvraUninitialize();
    ASSERT_TRUE(OvraInitialize(&counting));
  });
}

}  // namespace
