// Fuzzes OvraBerDecode on any bytes (the input buffer is exactly the given
// size, so any read beyond it is caught), walking nested elements the way a
// key parser does, and checks that short-form elements encode back to the
// bytes they were decoded from (a long form of a short length is valid BER
// but is re-encoded in the short form, so it is not compared).
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <vector>

#include "FuzzSupport.h"
#include "OvraCrypt.h"

namespace {

// Decodes every element of the run and recurses into constructed ones.
void Walk(const unsigned char* p, unsigned size, int depth) {
  while (size > 0) {
    SBerElement e;
    const unsigned used = OvraBerDecode(p, size, &e);
    FUZZ_CHECK(used <= size);
    if (used == 0) {
      FUZZ_CHECK(e.tag == 0 && e.length == 0 && e.data == nullptr);
      return;
    }
    if (e.length == kBerIndefiniteLength) {
      FUZZ_CHECK(used == 2);
    } else {
      const unsigned header = used - e.length;
      FUZZ_CHECK(e.length <= used && header >= 2);
      FUZZ_CHECK(e.data == p + header);
      FUZZ_CHECK(e.tag == p[0]);
      if (header == 2) {
        // Short form: encoding gives back exactly the bytes read.
        FUZZ_CHECK(e.length < 0x80);
        std::vector<unsigned char> again(used);
        FUZZ_CHECK(OvraBerEncode(again.data(), used, &e) == used);
        FUZZ_CHECK(memcmp(again.data(), p, used) == 0);
        FUZZ_CHECK(OvraBerEncode(again.data(), used - 1, &e) == 0);
      }
      if ((e.tag & 0x20) && depth < 16) Walk(e.data, e.length, depth + 1);
    }
    p += used;
    size -= used;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // A heap copy of exactly size bytes, so that reading one more is caught.
  unsigned char* copy = static_cast<unsigned char*>(malloc(size ? size : 1));
  FUZZ_CHECK(copy != nullptr);
  if (size) memcpy(copy, data, size);
  Walk(copy, static_cast<unsigned>(size), 0);

  // Encoding an element of the input's own contents, then decoding it.
  if (size >= 1) {
    SBerElement e{data[0], static_cast<unsigned>(size - 1), data + 1};
    std::vector<unsigned char> out(size + 8);
    const unsigned written = OvraBerEncode(out.data(), static_cast<unsigned>(out.size()), &e);
    FUZZ_CHECK(written >= size + 1 && written <= size + 4);
    if (e.length < 0x80) {
      SBerElement d;
      FUZZ_CHECK(OvraBerDecode(out.data(), written, &d) == written);
      FUZZ_CHECK(d.tag == data[0] && d.length == e.length);
      FUZZ_CHECK(e.length == 0 || memcmp(d.data, data + 1, e.length) == 0);
    }
  }
  free(copy);
  return 0;
}
