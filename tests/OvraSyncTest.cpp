// Tests of the counters and of the timed-wait deadline arithmetic.
#include "OvraSync.h"

#include <gtest/gtest.h>

#include <thread>

// In PublicHeadersAlone.cpp, which includes the public headers and nothing else.
int OvraPublicHeadersAlone();

namespace {

// The public headers hold the system's lock and condition in rooms of their
// own; a TCondVar is its critical section followed by the condition's room.
TEST(SyncLayoutTest, PublicHeadersAloneDeclareTheLockAndConditionRooms) {
  EXPECT_EQ(OvraPublicHeadersAlone(), static_cast<int>(sizeof(TCondVar)));
  EXPECT_GE(sizeof(TCritSec), static_cast<size_t>(OVRA_MUTEX_BYTES));
  EXPECT_GE(sizeof(TCondVar), static_cast<size_t>(OVRA_MUTEX_BYTES + OVRA_COND_BYTES));
  EXPECT_EQ(alignof(TCritSec) % alignof(void*), 0u);
}

TEST(AtomicTest, IncrementAndDecrementReturnTheNewValue) {
  long v = 5;
  EXPECT_EQ(OvraAtomicIncrement(&v), 6);
  EXPECT_EQ(v, 6);
  EXPECT_EQ(OvraAtomicDecrement(&v), 5);
  EXPECT_EQ(v, 5);
}

TEST(AtomicTest, DecrementOfOneIsZeroAndOfZeroIsMinusOne) {
  long v = 1;
  EXPECT_EQ(OvraAtomicDecrement(&v), 0);
  EXPECT_EQ(OvraAtomicDecrement(&v), -1);
  EXPECT_EQ(v, -1);
}

TEST(AtomicTest, CountersWrapAt32BitsOnEveryPlatform) {
  long v = 2147483647L;
  EXPECT_EQ(OvraAtomicIncrement(&v), -2147483647L - 1);
  EXPECT_EQ(OvraAtomicDecrement(&v), 2147483647L);
}

TEST(AtomicTest, TwoThreadsIncrementingAMillionTimesEachLoseNothing) {
  long v = 0;
  auto work = [&v] {
    for (int i = 0; i < 1000000; ++i) OvraAtomicIncrement(&v);
  };
  std::thread a(work), b(work);
  a.join();
  b.join();
  EXPECT_EQ(v, 2000000);
}

TEST(AtomicTest, ConcurrentIncrementsAndDecrementsCancelOut) {
  long v = 100;
  std::thread a([&v] { for (int i = 0; i < 500000; ++i) OvraAtomicIncrement(&v); });
  std::thread b([&v] { for (int i = 0; i < 500000; ++i) OvraAtomicDecrement(&v); });
  a.join();
  b.join();
  EXPECT_EQ(v, 100);
}

TEST(DeadlineTest, CarriesMicrosecondsIntoTheNextSecond) {
  const timespec d = TCondVar::MakeDeadline(12, 999999, 1500);
  EXPECT_EQ(d.tv_sec, 14);
  EXPECT_EQ(d.tv_nsec, 499999000);
}

TEST(DeadlineTest, WholeSecondsAddToSeconds) {
  const timespec d = TCondVar::MakeDeadline(12, 0, 1000);
  EXPECT_EQ(d.tv_sec, 13);
  EXPECT_EQ(d.tv_nsec, 0);
}

TEST(DeadlineTest, ExactlyOneBillionNanosecondsStaysUnnormalised) {
  const timespec d = TCondVar::MakeDeadline(12, 500000, 500);
  EXPECT_EQ(d.tv_sec, 12);
  EXPECT_EQ(d.tv_nsec, 1000000000);
}

TEST(DeadlineTest, ZeroTimeoutIsThePresentMoment) {
  const timespec d = TCondVar::MakeDeadline(1000, 123456, 0);
  EXPECT_EQ(d.tv_sec, 1000);
  EXPECT_EQ(d.tv_nsec, 123456000);
}

TEST(DeadlineTest, LargestTimeoutDoesNotOverflowTheNanoseconds) {
  const timespec d = TCondVar::MakeDeadline(0, 999999, 2147483647);
  EXPECT_EQ(d.tv_sec, 2147483 + 1);
  EXPECT_EQ(d.tv_nsec, 999999000L + 647000000L - 1000000000L);
}

}  // namespace
