// FuzzSupport.h - what every fuzz target shares: an invariant check that
// turns a broken promise into a crash libFuzzer reports, and the ways input
// bytes become 16-bit text.
#ifndef OVRA_FUZZ_FUZZSUPPORT_H
#define OVRA_FUZZ_FUZZSUPPORT_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include <vector>

// Aborts with the failed condition; libFuzzer then saves the input.
#define FUZZ_CHECK(cond)                                                           \
  do {                                                                             \
    if (!(cond)) {                                                                 \
      fprintf(stderr, "%s:%d: invariant failed: %s\n", __FILE__, __LINE__, #cond); \
      abort();                                                                     \
    }                                                                              \
  } while (0)

namespace ovra_fuzz {

// Each byte widened to one unit, zero-terminated (inner zero bytes stay, so
// the text the library sees ends at the first of them).
inline std::vector<unsigned short> WidenBytes(const uint8_t* data, size_t size) {
  std::vector<unsigned short> text(data, data + size);
  text.push_back(0);
  return text;
}

// Pairs of bytes (little-endian) as units, so that every unit value can
// appear; an odd last byte is widened. Zero-terminated.
inline std::vector<unsigned short> UnitsFromPairs(const uint8_t* data, size_t size) {
  std::vector<unsigned short> text;
  text.reserve(size / 2 + 2);
  for (size_t i = 0; i + 1 < size; i += 2)
    text.push_back(static_cast<unsigned short>(data[i] | (data[i + 1] << 8)));
  if (size & 1) text.push_back(data[size - 1]);
  text.push_back(0);
  return text;
}

// Mostly single bytes, so that the fuzzer finds ASCII syntax quickly; a byte
// 0xFF takes the next two bytes as one unit of any value.
inline std::vector<unsigned short> UnitsWithEscapes(const uint8_t* data, size_t size) {
  std::vector<unsigned short> text;
  text.reserve(size + 1);
  for (size_t i = 0; i < size; ++i) {
    if (data[i] == 0xFF && i + 2 < size) {
      text.push_back(static_cast<unsigned short>(data[i + 1] | (data[i + 2] << 8)));
      i += 2;
    } else {
      text.push_back(data[i]);
    }
  }
  text.push_back(0);
  return text;
}

// Length of a zero-terminated unit string.
inline size_t UnitLength(const unsigned short* s) {
  size_t n = 0;
  while (s[n]) ++n;
  return n;
}

}  // namespace ovra_fuzz

#endif
