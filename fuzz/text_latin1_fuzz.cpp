// Fuzzes the single-byte conversion kernels: every kernel this processor
// runs must narrow units to ISO-8859-1 ("?" above 255) and widen bytes
// exactly as the scalar reference does, writing nothing past the count.
#include <stdint.h>
#include <string.h>

#include <vector>

#include "FuzzSupport.h"
#include "TextKernelsFuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  const STextKernels& ref = TextScalarKernels();
  const uint8_t* bytes = data + 1;
  const size_t n = size - 1;
  std::vector<unsigned short> text = ovra_fuzz::UnitsFromPairs(bytes, n);
  text.pop_back();
  const size_t units = text.size();
  std::vector<char> narrow(units + 40, 'Z');
  ref.toLatin1(text.data(), units, narrow.data());
  std::vector<unsigned short> wide(n + 40, 7);
  ref.fromLatin1(bytes, n, wide.data());
  for (const STextKernels* k : ovra_fuzz::WideKernels()) {
    std::vector<char> got(units + 40, 'Z');
    k->toLatin1(text.data(), units, got.data());
    FUZZ_CHECK(got == narrow);
    std::vector<unsigned short> gotWide(n + 40, 7);
    k->fromLatin1(bytes, n, gotWide.data());
    FUZZ_CHECK(gotWide == wide);
  }
  return 0;
}
