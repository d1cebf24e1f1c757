// TestWide.h - 16-bit text for tests: zero-terminated copies of u"" literals
// as unsigned short, and the way back to std::u16string for comparisons.
#ifndef OVRA_TESTS_TESTWIDE_H
#define OVRA_TESTS_TESTWIDE_H

#include <stddef.h>

#include <string>
#include <vector>

namespace ovra_test {

// A writable, zero-terminated 16-bit string with room for `extra` more units.
class WideText {
 public:
  explicit WideText(const std::u16string& text, size_t extra = 0)
      : m_units(text.begin(), text.end()) {
    m_units.resize(text.size() + 1 + extra, 0);
  }
  unsigned short* get() { return m_units.data(); }
  // Indexing goes through this conversion too (t[i] is t.get()[i]).
  operator unsigned short*() { return m_units.data(); }
  size_t capacity() const { return m_units.size(); }

 private:
  std::vector<unsigned short> m_units;
};

// The units of a zero-terminated 16-bit string.
inline std::u16string ToU16(const unsigned short* s) {
  std::u16string out;
  if (s)
    while (*s) out.push_back(static_cast<char16_t>(*s++));
  return out;
}

// Exactly n units of s, terminators included.
inline std::u16string ToU16(const unsigned short* s, size_t n) {
  std::u16string out;
  for (size_t i = 0; i < n; ++i) out.push_back(static_cast<char16_t>(s[i]));
  return out;
}

// Narrow ASCII text widened unit by unit.
inline std::u16string Widen(const std::string& s) {
  std::u16string out;
  for (unsigned char c : s) out.push_back(static_cast<char16_t>(c));
  return out;
}

}  // namespace ovra_test

#endif
