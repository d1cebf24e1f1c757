// Fuzzes the TTime constructor from digit strings. Texts of the two accepted
// lengths are mostly digits, so that the field parsing is reached; the
// value must be the one mktime gives for the fields as documented (a field's
// leading digits, the month stored 0-based as written).
#include <stdint.h>
#include <string.h>
#include <time.h>

#include <vector>

#include "FuzzSupport.h"
#include "OvraCrt.h"
#include "OvraTime.h"

namespace {

// A field: n units read by ucstol in base 10 (blanks and a sign may lead;
// the value of the leading digits, 0 when there are none).
int Field(const unsigned short* p, int n) {
  unsigned short field[5] = {0, 0, 0, 0, 0};
  for (int i = 0; i < n; ++i) field[i] = p[i];
  return static_cast<int>(ucstol(field, nullptr, 10));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  // The first byte picks the shape: a 13- or 15-unit text of digits with the
  // input's units mixed in, or the input as it is.
  std::vector<unsigned short> text;
  const unsigned shape = data[0] % 3;
  if (shape == 2) {
    text = ovra_fuzz::UnitsWithEscapes(data + 1, size - 1);
  } else {
    const size_t length = shape == 0 ? 13 : 15;
    for (size_t i = 0; i < length; ++i) {
      const uint8_t b = 1 + i < size ? data[1 + i] : '0';
      text.push_back(b < 0xC0 ? static_cast<unsigned short>('0' + b % 10) : b - 0xA0);
    }
    text.push_back(0);
  }
  const TTime t(text.data());
  const size_t n = ovra_fuzz::UnitLength(text.data());
  if (n != 13 && n != 15) {
    FUZZ_CHECK(t.GetTime() == 0);
    return 0;
  }
  const unsigned short* p = text.data();
  tm fields;
  memset(&fields, 0, sizeof fields);
  int year;
  if (n == 13) {
    year = Field(p, 2);
    year += year < 50 ? 2000 : 1900;
    p += 2;
  } else {
    year = Field(p, 4);
    p += 4;
  }
  fields.tm_year = year - 1900;
  fields.tm_mon = Field(p, 2);
  fields.tm_mday = Field(p + 2, 2);
  fields.tm_hour = Field(p + 4, 2);
  fields.tm_min = Field(p + 6, 2);
  fields.tm_sec = Field(p + 8, 2);
  fields.tm_isdst = -1;
  FUZZ_CHECK(t.GetTime() == mktime(&fields));
  return 0;
}
