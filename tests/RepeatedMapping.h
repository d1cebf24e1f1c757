// RepeatedMapping.h - address ranges of gigabytes backed by one megabyte of
// memory, for tests of sizes near INT_MAX: one block of a repeating pattern is
// mapped again and again, followed by one page that ends with a chosen tail
// (a terminator, a last group). A writable range aliases its blocks, so what
// is written lands in the same megabyte over and over; only the last bytes
// written at a position can be read back.
#ifndef OVRA_TESTS_REPEATEDMAPPING_H
#define OVRA_TESTS_REPEATEDMAPPING_H

#include <string.h>

#include <vector>

#include "TestPlatform.h"
#if !defined(_WIN32)
#include <sys/mman.h>
#include <unistd.h>
#endif

namespace ovra_test {

// Whether the tests run under AddressSanitizer: the walks over gigabytes of
// these ranges then take minutes (every access is checked), too long for the
// per-test time limit; the uninstrumented builds run them.
#if defined(__SANITIZE_ADDRESS__)
constexpr bool kAddressSanitized = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr bool kAddressSanitized = true;
#else
constexpr bool kAddressSanitized = false;
#endif
#else
constexpr bool kAddressSanitized = false;
#endif

class RepeatedMapping {
 public:
  // size bytes: pattern (patternSize bytes, dividing the block and the page,
  // and dividing size and tailSize) repeated, the last tailSize bytes being
  // tail (at most one page).
  RepeatedMapping(const void* pattern, size_t patternSize, size_t size, const void* tail,
                  size_t tailSize, bool writable) {
    if (sizeof(void*) < 8) return;  // the ranges need a 64-bit address space
#if defined(_WIN32)
    const size_t page = win::PageSize();
    if (tailSize > page || size < page) return;
    std::vector<unsigned char> content(kBlock + page);
    const unsigned char* from = static_cast<const unsigned char*>(pattern);
    for (size_t i = 0; i < kBlock + page; ++i) content[i] = from[i % patternSize];
    if (tailSize) memcpy(content.data() + kBlock + page - tailSize, tail, tailSize);
    m_blocks = (size - page + kBlock - 1) / kBlock;
    m_total = m_blocks * kBlock + page;
    m_base = win::MapRepeatedBlocks(content.data(), kBlock, page, m_blocks, writable);
    if (m_base) m_data = m_base + m_total - size;
#else
    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    if (tailSize > page || size < page) return;
    const int fd = memfd_create("ovra-test-repeat", 0);
    if (fd < 0) return;
    bool ok = ftruncate(fd, static_cast<off_t>(kBlock + page)) == 0;
    unsigned char* fill = nullptr;
    if (ok) {
      void* p = mmap(nullptr, kBlock + page, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
      ok = p != MAP_FAILED;
      if (ok) fill = static_cast<unsigned char*>(p);
    }
    if (ok) {
      const unsigned char* from = static_cast<const unsigned char*>(pattern);
      for (size_t i = 0; i < kBlock + page; ++i) fill[i] = from[i % patternSize];
      if (tailSize) memcpy(fill + kBlock + page - tailSize, tail, tailSize);
      munmap(fill, kBlock + page);
    }
    const size_t blocks = (size - page + kBlock - 1) / kBlock;
    m_total = blocks * kBlock + page;
    void* base = ok ? mmap(nullptr, m_total, PROT_NONE,
                           MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0)
                    : MAP_FAILED;
    ok = base != MAP_FAILED;
    if (ok) m_base = static_cast<unsigned char*>(base);
    const int protection = writable ? PROT_READ | PROT_WRITE : PROT_READ;
    for (size_t i = 0; ok && i < blocks; ++i) {
      ok = mmap(m_base + i * kBlock, kBlock, protection, MAP_SHARED | MAP_FIXED | MAP_POPULATE, fd, 0) !=
           MAP_FAILED;
    }
    ok = ok && mmap(m_base + blocks * kBlock, page, protection, MAP_SHARED | MAP_FIXED, fd,
                    static_cast<off_t>(kBlock)) != MAP_FAILED;
    close(fd);
    if (ok) m_data = m_base + m_total - size;
#endif
  }
  ~RepeatedMapping() {
#if defined(_WIN32)
    if (m_base) win::UnmapRepeatedBlocks(m_base, kBlock, m_blocks);
#else
    if (m_base) munmap(m_base, m_total);
#endif
  }
  RepeatedMapping(const RepeatedMapping&) = delete;
  RepeatedMapping& operator=(const RepeatedMapping&) = delete;

  // The first byte of the range, or null when it could not be made.
  unsigned char* Data() const { return m_data; }

  // Whether the system can make these ranges at all. Windows places the views
  // in a reserved range only with the placeholder calls of Windows 10
  // version 1803 and later, which some systems that run Windows programs
  // lack.
  static bool Available() {
#if defined(_WIN32)
    static const bool s_available = [] {
      const unsigned char zero = 0;
      RepeatedMapping probe(&zero, 1, 2 * kBlock, nullptr, 0, false);
      return probe.Data() != nullptr;
    }();
    return s_available;
#else
    return true;
#endif
  }

 private:
  static constexpr size_t kBlock = 1 << 20;
  unsigned char* m_base = nullptr;
  unsigned char* m_data = nullptr;
  size_t m_total = 0;
#if defined(_WIN32)
  size_t m_blocks = 0;
#endif
};

}  // namespace ovra_test

// Leaves a test of ranges larger than memory out where they cannot be made.
#define OVRA_REQUIRE_REPEATED_MAPPING()                \
  if (!ovra_test::RepeatedMapping::Available())        \
  OVRA_SKIP_ON_WINDOWS("no placeholder views (Windows 10 version 1803 or later) to map one " \
                       "block of memory over and over")

#endif
