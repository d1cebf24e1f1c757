// Fuzzes the UTF-8 conversion kernels: every kernel this processor runs must
// write exactly the bytes (units) and return exactly the count of the scalar
// reference for any input and any room, and write nothing else. Input: byte
// 0 the room, byte 1 the alignment, the rest both the bytes to decode and
// (read as pairs) the units to encode.
#include <stdint.h>
#include <string.h>

#include <vector>

#include "FuzzSupport.h"
#include "TextKernelsFuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 3) return 0;
  const size_t align = data[1] % 16;
  const uint8_t* bytes = data + 2;
  const size_t n = size - 2;
  const STextKernels& ref = TextScalarKernels();

  // Decoding, into a small room (the first byte) and into an ample one.
  const size_t rooms[] = {static_cast<size_t>(data[0] % 64) + 1, n + 1};
  for (size_t room : rooms) {
    std::vector<unsigned short> want(room + 40, 0x5A5A);
    const size_t wrote = ref.fromUtf8(bytes, n, want.data(), room);
    FUZZ_CHECK(wrote <= room && wrote <= n);
    for (const STextKernels* k : ovra_fuzz::WideKernels()) {
      std::vector<unsigned char> in(n + align);
      memcpy(in.data() + align, bytes, n);
      std::vector<unsigned short> got(room + 40, 0x5A5A);
      FUZZ_CHECK(k->fromUtf8(in.data() + align, n, got.data(), room) == wrote);
      FUZZ_CHECK(got == want);
    }
  }

  // Encoding the bytes read as units.
  std::vector<unsigned short> text = ovra_fuzz::UnitsFromPairs(bytes, n);
  text.pop_back();
  if (text.empty()) return 0;
  const size_t units = text.size();
  const size_t eroom[] = {static_cast<size_t>(data[0] % 64) + 1, 3 * units};
  for (size_t room : eroom) {
    std::vector<char> want(room + 42, 'Z');
    const size_t wrote = ref.toUtf8(text.data(), units, want.data(), room);
    FUZZ_CHECK(wrote <= room + 2);
    for (const STextKernels* k : ovra_fuzz::WideKernels()) {
      std::vector<unsigned short> in(units + align);
      memcpy(in.data() + align, text.data(), units * 2);
      std::vector<char> got(room + 42, 'Z');
      FUZZ_CHECK(k->toUtf8(in.data() + align, units, got.data(), room) == wrote);
      FUZZ_CHECK(got == want);
    }
  }
  return 0;
}
