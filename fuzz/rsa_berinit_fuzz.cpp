// Fuzzes TRsaPublicCipher::BerInit on any bytes (in a buffer of exactly the
// given size, so that any read beyond it is caught). A load either fails with
// 0 or returns the size and leaves a key whose modulus is no longer than the
// input; a key that loaded must then take a block of its size without harm.
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <vector>

#include "FuzzSupport.h"
#include "OvraCryptRsa.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > 4096) return 0;  // keys beyond 32768 bits only slow the search
  unsigned char* copy = static_cast<unsigned char*>(malloc(size ? size : 1));
  FUZZ_CHECK(copy != nullptr);
  if (size) memcpy(copy, data, size);

  TRsaPublicCipher cipher(TCipher::eDecrypt);
  const unsigned got = cipher.BerInit(copy, static_cast<unsigned>(size));
  FUZZ_CHECK(got == 0 || got == size);
  FUZZ_CHECK(memcmp(copy, data, size) == 0);  // the input is only read
  if (got) {
    const unsigned k = cipher.GetModulusSize();
    FUZZ_CHECK(k <= size);
    if (k > 0 && k <= 512) {
      // One block of input bytes through the public operation.
      std::vector<unsigned char> block(k);
      for (unsigned i = 0; i < k; ++i) block[i] = data[i % size];
      const unsigned out = cipher.DecryptData(block.data(), k, true);
      FUZZ_CHECK(out <= k);
    }
  }
  // Loading twice replaces the key without leaking the first.
  if (got) FUZZ_CHECK(cipher.BerInit(copy, static_cast<unsigned>(size)) == got);
  free(copy);
  return 0;
}
