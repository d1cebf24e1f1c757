// An application that links the library keeps its own global new/delete and
// the standard std::bad_alloc behaviour; the library's operators stay private.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <atomic>
#include <new>

#include "Ovra.h"
#include "TestAllocator.h"

namespace {
std::atomic<long> s_appNews{0};
std::atomic<bool> s_appFailNext{false};
}  // namespace

// The application's own replacement operators. GCC cannot see that the
// replaced new pairs with free, hence the pragma.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
#endif
void* operator new(size_t size) {
  ++s_appNews;
  if (s_appFailNext.exchange(false)) throw std::bad_alloc();
  if (void* p = malloc(size ? size : 1)) return p;
  throw std::bad_alloc();
}
void* operator new[](size_t size) { return operator new(size); }
void operator delete(void* p) noexcept { free(p); }
void operator delete[](void* p) noexcept { free(p); }
void operator delete[](void* p, size_t) noexcept { free(p); }
void operator delete(void* p, size_t) noexcept { free(p); }

namespace {

using namespace ovra_test;

TEST(ApplicationNewDeleteTest, ApplicationNewReachesTheApplicationsOperator) {
  ScopedCountingLibrary lib;  // an installed library allocator must not matter
  ASSERT_TRUE(lib.started());
  const long before = s_appNews;
  const long libAllocsBefore = Stats().allocs;
  // Kept in a volatile so that the compiler cannot drop the new-expression
  // (it may remove an allocation whose result goes unused).
  int* volatile p = new int(7);
  EXPECT_EQ(s_appNews, before + 1);
  EXPECT_EQ(Stats().allocs, libAllocsBefore);  // not the library's hook
  delete p;
}

TEST(ApplicationNewDeleteTest, ApplicationNewStillThrowsBadAlloc) {
  ScopedCountingLibrary lib;
  ASSERT_TRUE(lib.started());
  FailNthAllocation(1, true);  // the library's allocator fails everything
  s_appFailNext = true;
  int* volatile result = nullptr;
  EXPECT_THROW(result = new int(1), std::bad_alloc);
  delete result;
  // The application's operator works again, whatever the library's hook does.
  int* p = new int(2);
  EXPECT_EQ(*p, 2);
  delete p;
  StopFailing();
}

TEST(ApplicationNewDeleteTest, StandardNewThrowsForImpossibleSizes) {
  ScopedCountingLibrary lib;
  ASSERT_TRUE(lib.started());
  volatile size_t huge = static_cast<size_t>(-1) - 4096;  // no allocator can serve it
  char* volatile result = nullptr;
  EXPECT_THROW(result = new char[huge], std::bad_alloc);
  delete[] result;
}

}  // namespace
