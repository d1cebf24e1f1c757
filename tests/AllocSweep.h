// AllocSweep.h - a systematic allocation-failure sweep on top of the counting
// allocator of TestAllocator.h: an operation is run again and again with its
// 1st, 2nd, 3rd ... allocation request failing (or that one and every later
// one) until a run makes fewer requests than the one meant to fail, i.e. the
// operation went through without any failure. Each run must leave no block
// behind. The largest N reached is printed, so that the inventory of every
// operation's allocation count can be read off a run of the test. Each
// facility's test file holds the sweeps of its own operations, under a
// "--- Allocation failures ---" heading.
#ifndef OVRA_TESTS_ALLOCSWEEP_H
#define OVRA_TESTS_ALLOCSWEEP_H

#include <gtest/gtest.h>
#include <stdio.h>

#include <memory>
#include <string>

#include "TestAllocator.h"

namespace ovra_test {

// Which requests fail in one run of a sweep.
enum class FailMode {
  kOne,        // only the Nth request of the run fails; later ones succeed
  kAllLater,   // the Nth request and every later one fail
};

// One run of a sweep. The operation under test builds its fresh state first,
// then calls Arm() right before the operation, and Disarm() right after it;
// Disarm() stops failing and tells whether the failing request was reached,
// i.e. whether the operation saw an allocation failure. Work done after
// Disarm() (checks, clean-up) allocates normally.
class SweepRun {
 public:
  SweepRun(long n, FailMode mode) : m_n(n), m_mode(mode) {}

  void Arm() {
    m_start = Stats().requests.load();
    FailNthAllocation(m_n, m_mode == FailMode::kAllLater);
    m_armed = true;
  }

  bool Disarm() {
    if (m_armed && !m_disarmed) {
      m_requests = Stats().requests.load() - m_start;
      m_failed = m_requests >= m_n;
      m_disarmed = true;
      StopFailing();
    }
    return m_failed;
  }

  // The 1-based index of the request that fails in this run.
  long n() const { return m_n; }
  FailMode mode() const { return m_mode; }
  bool armed() const { return m_armed; }
  // Whether the operation saw a failure (valid after Disarm()).
  bool failed() const { return m_failed; }
  // Requests the operation made between Arm() and Disarm().
  long requests() const { return m_requests; }

 private:
  long m_n;
  FailMode m_mode;
  long m_start = 0;
  long m_requests = 0;
  bool m_armed = false;
  bool m_disarmed = false;
  bool m_failed = false;
};

// Runs op(SweepRun&) for N = 1, 2, ... until a run's operation made fewer than
// N requests (it succeeded without a failure), checking after every run that
// the number of live blocks is back where it was. Returns the N of that last,
// successful run, so a result of 1 means the operation allocated nothing
// (which is reported as a failure unless allowNoAllocation is set). Prints one
// line "[ SWEEP    ] <what> (<mode>): N = <n>" and records the figure as a
// test property under <what>.
template <class Op>
long SweepUntilSuccess(const std::string& what, Op op, FailMode mode = FailMode::kOne,
                       bool allowNoAllocation = false, long limit = 10000) {
  for (long n = 1; n <= limit; ++n) {
    const long live = Stats().live.load();
    SweepRun run(n, mode);
    op(run);
    const bool failed = run.Disarm();
    EXPECT_TRUE(run.armed()) << what << ": the operation never armed the sweep";
    EXPECT_EQ(Stats().live.load(), live)
        << what << ": leak with request " << n
        << (mode == FailMode::kAllLater ? " and every later one" : "") << " failing";
    if (!run.armed()) return n;
    if (!failed) {
      if (!allowNoAllocation) {
        EXPECT_GT(n, 1) << what << ": the operation allocated nothing";
      }
      const char* modeName = mode == FailMode::kAllLater ? "fail Nth and later" : "fail Nth";
      printf("[ SWEEP    ] %s (%s): N = %ld\n", what.c_str(), modeName, n);
      ::testing::Test::RecordProperty(
          what + (mode == FailMode::kAllLater ? " [all later]" : ""), static_cast<int>(n));
      return n;
    }
  }
  ADD_FAILURE() << what << ": still failing after " << limit << " runs";
  return limit;
}

// Sweeps op in both modes and returns the larger N.
template <class Op>
long SweepBothModes(const std::string& what, Op op, bool allowNoAllocation = false) {
  const long one = SweepUntilSuccess(what, op, FailMode::kOne, allowNoAllocation);
  const long later = SweepUntilSuccess(what, op, FailMode::kAllLater, allowNoAllocation);
  return one > later ? one : later;
}

// Fixture of the sweep tests: starts the library with the counting allocator
// for every test and checks at the end that no block is left.
class SweepTest : public ::testing::Test {
 protected:
  void SetUp() override {
    m_library.reset(new ScopedCountingLibrary);
    ASSERT_TRUE(m_library->started());
  }
  void TearDown() override {
    StopFailing();
    EXPECT_EQ(Stats().live.load(), 0) << "blocks left at the end of the test";
    m_library.reset();
  }

 private:
  std::unique_ptr<ScopedCountingLibrary> m_library;
};

}  // namespace ovra_test

#endif
