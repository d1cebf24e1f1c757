// TestBstr.h - helpers shared by the string tests: u"" literals as the
// library's 16-bit character type, an allocator that also records request
// sizes and released blocks, a fixture that starts the library with it and
// checks for leaks, a sweep that fails each allocation of an operation in turn,
// and the fixture of the strings' sweeps in both failure modes (AllocSweep.h).
#ifndef OVRA_TESTS_TESTBSTR_H
#define OVRA_TESTS_TESTBSTR_H

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "AllocSweep.h"
#include "Ovra.h"
#include "OvraBstr.h"
#include "TestAllocator.h"
#include "TestWide.h"

namespace ovra_test {

// A u"" literal as a zero-terminated string of the library's character type.
inline const unsigned short* W(const char16_t* s) {
  return reinterpret_cast<const unsigned short*>(s);
}

// The text of s as the library's character type (valid while s lives).
inline const unsigned short* U(const std::u16string& s) { return W(s.c_str()); }

// All GetLength() characters of s, inner zero characters included.
inline std::u16string Text(const TBstr& s) { return ToU16(s.GetString(), s.GetLength()); }

// A text of the letters from first on, over and over: length units, so that it
// can be made longer than TBstr's 128-character stack work areas.
inline std::u16string LongText(char16_t first, size_t length) {
  std::u16string s;
  for (size_t i = 0; i < length; ++i) s.push_back(static_cast<char16_t>(first + i % 26));
  return s;
}

// Sizes of the allocation requests and the blocks released, in order.
struct AllocRecord {
  std::vector<size_t> sizes;
  std::vector<const void*> freed;
};

inline AllocRecord& Record() {
  static AllocRecord record;
  return record;
}

inline void* RecordingAlloc(size_t size) {
  Record().sizes.push_back(size);
  return CountingAlloc(size);
}

inline void RecordingFree(void* pointer) {
  if (pointer) Record().freed.push_back(pointer);
  CountingFree(pointer);
}

// Starts the library with the recording allocator for each test and checks
// afterwards that every block the test's objects allocated was released.
class StringTest : public ::testing::Test {
 protected:
  void SetUp() override {
    Stats().Reset();
    Record().sizes.clear();
    Record().freed.clear();
    SAllocator allocator = {RecordingAlloc, CountingRealloc, RecordingFree, nullptr, nullptr};
    ASSERT_TRUE(OvraInitialize(&allocator));
    m_live = Stats().live;
  }

  void TearDown() override {
    StopFailing();
    EXPECT_EQ(Stats().live, m_live) << "blocks were leaked";
    OvraUninitialize();
  }

  // Starts a new observation window for the two queries below.
  void Mark() {
    m_sizeMark = Record().sizes.size();
    m_freedMark = Record().freed.size();
  }
  // Sizes of the allocation requests since Mark().
  std::vector<size_t> Requests() const {
    return std::vector<size_t>(Record().sizes.begin() + static_cast<long>(m_sizeMark),
                               Record().sizes.end());
  }
  // Whether the block at p was released since Mark().
  bool Freed(const void* p) const {
    return std::find(Record().freed.begin() + static_cast<long>(m_freedMark),
                     Record().freed.end(), p) != Record().freed.end();
  }

 private:
  long m_live = 0;
  size_t m_sizeMark = 0;
  size_t m_freedMark = 0;
};

// One point of an allocation-failure sweep: Arm() right before the operation
// under test makes its nth allocation request fail (and only that one);
// Disarm() right after it stops failing and tells whether the failure was hit.
class FailurePoint {
 public:
  explicit FailurePoint(long n) : m_n(n) {}
  void Arm() {
    FailNthAllocation(m_n);
    m_at = Stats().failAt;
    m_armed = true;
  }
  bool Disarm() {
    if (m_armed && !m_disarmed) {
      m_hit = Stats().requests >= m_at;
      m_disarmed = true;
      StopFailing();
    }
    return m_hit;
  }
  long n() const { return m_n; }

 private:
  long m_n;
  long m_at = 0;
  bool m_armed = false;
  bool m_disarmed = false;
  bool m_hit = false;
};

// Runs op(FailurePoint&) with the 1st, 2nd, ... allocation of the armed
// operation failing, until a run needs fewer allocations than the one that was
// to fail; checks after every run that nothing leaked. op must build its
// objects before Arm(), check its results after Disarm() and destroy them all.
template <class Op>
void SweepAllocationFailures(Op op) {
  for (long n = 1; n <= 64; ++n) {
    const long live = Stats().live;
    FailurePoint point(n);
    op(point);
    const bool hit = point.Disarm();
    EXPECT_EQ(Stats().live, live) << "leak with allocation " << n << " failing";
    if (!hit) {
      EXPECT_GT(n, 1) << "the operation allocated nothing";
      return;
    }
  }
  ADD_FAILURE() << "the operation made more than 64 allocations";
}

// Fixture of the strings' allocation-failure sweeps (see AllocSweep.h), with
// the two shapes most of them take.
class BstrSweepTest : public SweepTest {
 protected:
  // Sweeps an edit of a string that starts as `initial`: while an allocation
  // fails the string must be empty (and usable), otherwise equal `expected`.
  template <class Edit>
  long SweepEdit(const std::string& what, const std::u16string& initial, Edit edit,
                 const std::u16string& expected) {
    return SweepBothModes(what, [&](SweepRun& run) {
      TBstr s(U(initial));
      ASSERT_EQ(Text(s), initial);
      run.Arm();
      edit(s);
      if (run.Disarm()) {
        EXPECT_TRUE(s.IsEmpty()) << what << " n=" << run.n();
        EXPECT_EQ(s.GetLength(), 0);
        EXPECT_EQ(s.GetString()[0], 0);
        EXPECT_STREQ(s.GetMultibyteString(), "");
      } else {
        EXPECT_EQ(Text(s), expected) << what;
      }
    });
  }

  // Sweeps an operation producing a new string from `source`: a failure gives
  // the empty string and leaves the source alone.
  template <class Make>
  long SweepMake(const std::string& what, const std::u16string& source, Make make,
                 const std::u16string& expected) {
    return SweepBothModes(what, [&](SweepRun& run) {
      TBstr s(U(source));
      run.Arm();
      TBstr result = make(s);
      const bool failed = run.Disarm();
      EXPECT_EQ(Text(s), source) << what;
      if (failed) {
        EXPECT_TRUE(result.IsEmpty()) << what << " n=" << run.n();
      } else {
        EXPECT_EQ(Text(result), expected) << what;
      }
    });
  }
};

}  // namespace ovra_test

#endif
