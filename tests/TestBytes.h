// TestBytes.h - byte strings for the cryptography tests: bytes written as
// hexadecimal or as plain text, the hexadecimal text of bytes, and random
// bytes from seeded generators, so that a failure reproduces.
#ifndef OVRA_TESTS_TESTBYTES_H
#define OVRA_TESTS_TESTBYTES_H

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <random>
#include <string>
#include <vector>

namespace ovra_test {

using Bytes = std::vector<unsigned char>;

// The bytes of hexadecimal text, two digits of either case to a byte. Spaces
// between bytes are skipped, so that a vector can be written in groups
// ("3013 0605 2b0e030207"); a lone last digit is ignored.
inline Bytes FromHex(const std::string& hex) {
  Bytes out;
  for (size_t i = 0; i < hex.size();) {
    if (hex[i] == ' ') {
      ++i;
      continue;
    }
    if (i + 1 >= hex.size()) break;
    out.push_back(static_cast<unsigned char>(std::stoul(hex.substr(i, 2), nullptr, 16)));
    i += 2;
  }
  return out;
}

// The bytes of a zero-terminated text, without the terminator.
inline Bytes FromText(const char* text) { return Bytes(text, text + strlen(text)); }

// Lower-case hexadecimal text of len bytes, two digits to a byte.
inline std::string ToHex(const unsigned char* data, size_t len) {
  static const char kDigits[] = "0123456789abcdef";
  std::string s;
  for (size_t i = 0; i < len; ++i) {
    s += kDigits[data[i] >> 4];
    s += kDigits[data[i] & 15];
  }
  return s;
}

inline std::string ToHex(const Bytes& b) { return ToHex(b.data(), b.size()); }

// n bytes, each the low byte of one draw of rng.
inline Bytes RandomBytes(std::mt19937& rng, size_t n) {
  Bytes b(n);
  for (auto& c : b) c = static_cast<unsigned char>(rng());
  return b;
}

// A small deterministic generator (xorshift64*), so that failures reproduce.
class TestRng {
 public:
  explicit TestRng(uint64_t seed) : m_x(seed ? seed : 1) {}
  uint64_t Next() {
    m_x ^= m_x >> 12;
    m_x ^= m_x << 25;
    m_x ^= m_x >> 27;
    return m_x * 0x2545F4914F6CDD1DULL;
  }
  // Uniform enough in [0, n) for test sizes.
  unsigned Below(unsigned n) { return n ? static_cast<unsigned>(Next() % n) : 0; }
  // n bytes, each the top byte of one number.
  Bytes RandomBytes(size_t n) {
    Bytes b(n);
    for (auto& c : b) c = static_cast<unsigned char>(Next() >> 56);
    return b;
  }

 private:
  uint64_t m_x;
};

}  // namespace ovra_test

#endif
