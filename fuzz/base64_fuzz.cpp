// Fuzzes OvraBase64ToBin on any text, into a buffer of exactly the promised
// 3 * (strlen / 4) bytes, and checks the round trip of the input as binary
// data through OvraBinToBase64 and back.
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

#include "FuzzSupport.h"
#include "OvraCrypt.h"

namespace {

bool InAlphabet(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '+' ||
         c == '/';
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // Decoding the input as text (up to its first zero byte).
  const std::string text(reinterpret_cast<const char*>(data), size);
  const size_t textLen = strlen(text.c_str());
  const size_t room = 3 * (textLen / 4);
  unsigned char* out = static_cast<unsigned char*>(malloc(room + 1));
  FUZZ_CHECK(out != nullptr);
  const int got = OvraBase64ToBin(text.c_str(), out);
  FUZZ_CHECK(got >= 0 && static_cast<size_t>(got) <= room);
  if (textLen % 4 != 0) FUZZ_CHECK(got == 0);
  bool clean = textLen > 0 && textLen % 4 == 0;
  for (size_t i = 0; i < textLen && clean; ++i) clean = InAlphabet(text[i]);
  if (clean) FUZZ_CHECK(static_cast<size_t>(got) == room);  // no padding: every group gives 3
  free(out);

  // The input as binary data: encode into exactly the stated size, decode back.
  const size_t encodedSize = 4 * ((size + 2) / 3) + 1;
  char* encoded = static_cast<char*>(malloc(encodedSize));
  FUZZ_CHECK(encoded != nullptr);
  const unsigned chars = OvraBinToBase64(data, static_cast<int>(size), encoded);
  FUZZ_CHECK(chars == encodedSize - 1);
  FUZZ_CHECK(strlen(encoded) == chars);
  for (unsigned i = 0; i < chars; ++i) FUZZ_CHECK(InAlphabet(encoded[i]) || encoded[i] == '=');
  unsigned char* decoded = static_cast<unsigned char*>(malloc(3 * (chars / 4) + 1));
  FUZZ_CHECK(decoded != nullptr);
  const int back = OvraBase64ToBin(encoded, decoded);
  FUZZ_CHECK(static_cast<size_t>(back) == size);
  FUZZ_CHECK(size == 0 || memcmp(decoded, data, size) == 0);
  free(decoded);
  free(encoded);
  return 0;
}
