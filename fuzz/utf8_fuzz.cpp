// Fuzzes OvraUtf8ToString on any bytes and OvraStringToUtf8 on any units,
// with destination buffers of exactly the promised size. Round trips: any
// units without a zero survive encoding and decoding, and strictly valid
// UTF-8 of the 16-bit range (shortest forms, no zero byte) survives decoding
// and encoding byte for byte.
#include <fuzzer/FuzzedDataProvider.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <vector>

#include "FuzzSupport.h"
#include "OvraBstr.h"

namespace {

// True when bytes are UTF-8 of units 1..0xFFFF in shortest form.
bool IsStrictBmpUtf8(const uint8_t* s, size_t n) {
  size_t i = 0;
  while (i < n) {
    const uint8_t b = s[i];
    if (b == 0) return false;
    if (b < 0x80) {
      ++i;
    } else if (b >= 0xC2 && b <= 0xDF) {
      if (i + 1 >= n || (s[i + 1] & 0xC0) != 0x80) return false;
      i += 2;
    } else if (b >= 0xE0 && b <= 0xEF) {
      if (i + 2 >= n || (s[i + 1] & 0xC0) != 0x80 || (s[i + 2] & 0xC0) != 0x80) return false;
      if (b == 0xE0 && s[i + 1] < 0xA0) return false;  // overlong
      i += 3;
    } else {
      return false;
    }
  }
  return true;
}

void DecodeBytes(const uint8_t* bytes, size_t n, int size) {
  unsigned short* dest =
      static_cast<unsigned short*>(malloc(static_cast<size_t>(size) * sizeof(unsigned short) + 1));
  FUZZ_CHECK(dest != nullptr);
  const int got = OvraUtf8ToString(reinterpret_cast<const char*>(bytes), static_cast<int>(n),
                                   dest, size);
  FUZZ_CHECK(got >= 0 && got <= size && static_cast<size_t>(got) <= n);
  if (n == 0) FUZZ_CHECK(got == 0);
  free(dest);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  const int room = data[0] % 64;  // a small destination, often too small
  const uint8_t* bytes = data + 1;
  const size_t n = size - 1;

  // Decoding any bytes into a small and into an ample buffer.
  DecodeBytes(bytes, n, room);
  std::vector<unsigned short> decoded(n + 1);
  const int units = OvraUtf8ToString(reinterpret_cast<const char*>(bytes), static_cast<int>(n),
                                     decoded.data(), static_cast<int>(n + 1));
  FUZZ_CHECK(units >= 0 && static_cast<size_t>(units) <= n);

  if (IsStrictBmpUtf8(bytes, n) && n > 0) {
    std::vector<char> back(n + 2);
    const int written = OvraStringToUtf8(decoded.data(), units, back.data(), static_cast<int>(n));
    FUZZ_CHECK(static_cast<size_t>(written) == n);
    FUZZ_CHECK(memcmp(back.data(), bytes, n) == 0);
  }

  // Encoding the input read as units, into exactly size + 2 bytes.
  std::vector<unsigned short> text = ovra_fuzz::UnitsFromPairs(bytes, n);
  const int count = static_cast<int>(text.size() - 1);
  char* out = static_cast<char*>(malloc(static_cast<size_t>(room) + 2));
  FUZZ_CHECK(out != nullptr);
  const int small = OvraStringToUtf8(text.data(), count, out, room);
  FUZZ_CHECK(small >= 0 && small <= room + 2);
  free(out);

  // Without zero units the whole text round-trips, and its length is the
  // one OvraStringUtf8ByteLen predicts.
  bool hasZero = false;
  for (int i = 0; i < count; ++i) hasZero |= text[static_cast<size_t>(i)] == 0;
  if (!hasZero && count > 0) {
    const int need = OvraStringUtf8ByteLen(text.data());
    std::vector<char> utf8(static_cast<size_t>(need) + 2);
    const int written = OvraStringToUtf8(text.data(), count, utf8.data(), need);
    FUZZ_CHECK(written == need);
    std::vector<unsigned short> again(static_cast<size_t>(count) + 1);
    const int back = OvraUtf8ToString(utf8.data(), written, again.data(), count);
    FUZZ_CHECK(back == count);
    FUZZ_CHECK(memcmp(again.data(), text.data(), static_cast<size_t>(count) * 2) == 0);
  }
  return 0;
}
