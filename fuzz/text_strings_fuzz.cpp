// Fuzzes the 16-bit string kernels: every kernel this processor runs must
// give exactly what the scalar reference gives for ucslen and its bounded
// form, ucschr, ucsrchr, the four comparisons, ucsstr and the UTF-8 length,
// with the strings at any alignment and any units after their terminators.
// Input: byte 0 and 1 the alignments of the two strings, byte 2 the split
// between them, bytes 3 and 4 a bound n and a unit to search for, the rest
// the units of both strings (single bytes, 0xFF escaping a full unit).
#include <stdint.h>
#include <string.h>

#include <vector>

#include "FuzzSupport.h"
#include "TextKernelsFuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 5) return 0;
  const size_t alignA = data[0] % 32;
  const size_t alignB = data[1] % 32;
  std::vector<unsigned short> text = ovra_fuzz::UnitsWithEscapes(data + 5, size - 5);
  text.pop_back();
  const size_t split = text.empty() ? 0 : data[2] % (text.size() + 1);
  const size_t n = data[3] < 250 ? data[3] : SIZE_MAX - data[3];
  const unsigned short probe = static_cast<unsigned short>(data[4] == 0xFF ? 0 : data[4]);

  // Both strings in buffers with garbage after them: the text after the
  // split (and after b's terminator) stays in place past each terminator.
  std::vector<unsigned short> bufA(text.size() + 64, 0x61), bufB(text.size() + 64, 0x41);
  unsigned short* a = bufA.data() + alignA;
  unsigned short* b = bufB.data() + alignB;
  if (!text.empty()) {
    memcpy(a, text.data(), text.size() * 2);
    memcpy(b, text.data() + split, (text.size() - split) * 2);
  }
  a[split] = 0;
  b[text.size() - split] = 0;
  const STextKernels& ref = TextScalarKernels();
  for (const STextKernels* k : ovra_fuzz::WideKernels()) {
    FUZZ_CHECK(k->len(a) == ref.len(a));
    FUZZ_CHECK(k->len(b) == ref.len(b));
    FUZZ_CHECK(k->nlen(a, n) == ref.nlen(a, n));
    FUZZ_CHECK(k->chr(a, probe) == ref.chr(a, probe));
    FUZZ_CHECK(k->rchr(a, probe) == ref.rchr(a, probe));
    FUZZ_CHECK(k->cmp(a, b) == ref.cmp(a, b));
    FUZZ_CHECK(k->icmp(a, b) == ref.icmp(a, b));
    FUZZ_CHECK(k->ncmp(a, b, n) == ref.ncmp(a, b, n));
    FUZZ_CHECK(k->nicmp(a, b, n) == ref.nicmp(a, b, n));
    FUZZ_CHECK(k->str(a, b) == ref.str(a, b));
    FUZZ_CHECK(k->str(b, a) == ref.str(b, a));
    FUZZ_CHECK(k->utf8Len(a) == ref.utf8Len(a));
  }
  return 0;
}
