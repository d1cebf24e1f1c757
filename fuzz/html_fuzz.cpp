// Fuzzes OvraEntityUnescape and OvraHtmlToPlain on any units, also with the
// text lying in the output string. Neither may lengthen the text, and plain
// text must survive escaping and unescaping, and conversion to HTML and back.
#include <stdint.h>
#include <string.h>

#include <vector>

#include "FuzzSupport.h"
#include "OvraBstr.h"

namespace {

void CheckEqual(const TBstr& s, const unsigned short* text, size_t n) {
  FUZZ_CHECK(s.GetLength() == static_cast<int>(n));
  FUZZ_CHECK(n == 0 || memcmp(s.GetString(), text, n * 2) == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  const bool wide = data[0] & 1;
  std::vector<unsigned short> text = wide ? ovra_fuzz::UnitsFromPairs(data + 1, size - 1)
                                          : ovra_fuzz::UnitsWithEscapes(data + 1, size - 1);
  const size_t n = ovra_fuzz::UnitLength(text.data());

  TBstr unescaped;
  OvraEntityUnescape(text.data(), unescaped);
  FUZZ_CHECK(unescaped.GetLength() <= static_cast<int>(n));
  TBstr plain;
  OvraHtmlToPlain(text.data(), plain);
  FUZZ_CHECK(plain.GetLength() <= static_cast<int>(n));

  // The same with the text inside the output string.
  TBstr inPlace(text.data());
  OvraEntityUnescape(inPlace.GetString(), inPlace);
  CheckEqual(inPlace, unescaped.GetString(), static_cast<size_t>(unescaped.GetLength()));
  inPlace = text.data();
  OvraHtmlToPlain(inPlace.GetString(), inPlace);
  CheckEqual(inPlace, plain.GetString(), static_cast<size_t>(plain.GetLength()));

  // Round trips of the input as plain text.
  TBstr escaped;
  OvraEntityEscape(text.data(), escaped);
  TBstr back;
  OvraEntityUnescape(escaped.GetString(), back);
  CheckEqual(back, text.data(), n);

  TBstr html;
  OvraPlainToHtml(text.data(), html);
  OvraHtmlToPlain(html.GetString(), html);
  CheckEqual(html, text.data(), n);
  return 0;
}
