// Fuzzes ucstol and ucstoul: any units, any base. Both results and the end
// positions are checked against a straightforward model of the conversion
// held in 64 bits.
#include <stdint.h>

#include "FuzzSupport.h"
#include "OvraCrt.h"

namespace {

struct Expected {
  uint64_t magnitude;  // saturated at 2^32
  bool negative;
  size_t end;          // index of the first unit not used
};

int DigitValue(unsigned short ch) {
  if (ch >= '0' && ch <= '9') return ch - '0';
  if (ch >= 'a' && ch <= 'z') return ch - 'a' + 10;
  if (ch >= 'A' && ch <= 'Z') return ch - 'A' + 10;
  return 99;
}

Expected Model(const unsigned short* s, int base) {
  Expected e{0, false, 0};
  size_t i = 0;
  while (s[i] == ' ') ++i;
  if (s[i] == '-') {
    e.negative = true;
    ++i;
  } else if (s[i] == '+') {
    ++i;
  }
  if (base < 0 || base == 1 || base > 36) return e;
  const bool hexPrefix = s[i] == '0' && (s[i + 1] == 'x' || s[i + 1] == 'X');
  if (base == 0) base = hexPrefix ? 16 : (s[i] == '0' ? 8 : 10);
  if (base == 16 && hexPrefix) i += 2;
  const size_t first = i;
  while (DigitValue(s[i]) < base) {
    e.magnitude = e.magnitude * static_cast<unsigned>(base) + static_cast<unsigned>(DigitValue(s[i]));
    if (e.magnitude > 0xFFFFFFFFull) e.magnitude = 0x100000000ull;
    ++i;
  }
  if (i == first) {
    e.magnitude = 0;
    e.negative = false;
    return e;  // no digits: the end is the start
  }
  e.end = i;
  return e;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  const int base = static_cast<int>(data[0] % 40) - 2;  // -2..37
  std::vector<unsigned short> text = ovra_fuzz::UnitsWithEscapes(data + 1, size - 1);
  const unsigned short* s = text.data();
  const Expected e = Model(s, base);

  unsigned short* end = nullptr;
  const long sv = ucstol(s, &end, base);
  FUZZ_CHECK(end == s + e.end);
  long expectS = static_cast<long>(e.magnitude > 2147483647u ? 2147483647u : e.magnitude);
  if (e.negative) expectS = -expectS;
  FUZZ_CHECK(sv == expectS);

  end = nullptr;
  const unsigned long uv = ucstoul(s, &end, base);
  FUZZ_CHECK(end == s + e.end);
  uint64_t u = e.magnitude > 0xFFFFFFFFu ? 0xFFFFFFFFu : e.magnitude;
  if (e.negative) u = (0x100000000ull - u) & 0xFFFFFFFFu;
  FUZZ_CHECK(uv == static_cast<unsigned long>(u));

  // A null end pointer must be accepted, and the function pointers of the
  // runtime table must give the same results.
  FUZZ_CHECK(ucstol(s, nullptr, base) == sv);
  FUZZ_CHECK(ovra_ucstoul(s, nullptr, base) == uv);
  return 0;
}
