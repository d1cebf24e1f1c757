// The 16-bit formatter against the C library's snprintf on the same format
// and arguments, and the 16-bit string primitives against their 8-bit C
// counterparts over the same number of characters.
#include <benchmark/benchmark.h>
#include <stdio.h>
#include <stdint.h>
#include <string.h>

#include <string>
#include <vector>

#include "OvraCrt.h"
#include "OvraFormat.h"

namespace {

std::vector<unsigned short> Widen(const char* text) {
  std::vector<unsigned short> wide(text, text + strlen(text) + 1);
  return wide;
}

// A mixed line as a logger would write it: text, signed and unsigned
// decimals, padded hexadecimal, a left-justified string and a character.
const char kFormat[] = "%-12s item %5d of %u, flags 0x%08X, offset %ld, tag '%c' [%s]\n";

void FormatOvra(benchmark::State& state) {
  const std::vector<unsigned short> format = Widen(kFormat);
  const std::vector<unsigned short> name = Widen("collector");
  const std::vector<unsigned short> note = Widen("pending");
  unsigned short buffer[256];
  int i = 0;
  for (auto _ : state) {
    const int n = snuprintf(buffer, 256, format.data(), name.data(), i, 1000u + i, 0xBEEFu ^ i,
                            -123456789L + i, 'a' + (i & 15), note.data());
    benchmark::DoNotOptimize(n);
    benchmark::DoNotOptimize(buffer);
    ++i;
  }
}

void FormatRef(benchmark::State& state) {
  char buffer[256];
  int i = 0;
  for (auto _ : state) {
    const int n = snprintf(buffer, 256, kFormat, "collector", i, 1000u + i, 0xBEEFu ^ i,
                           -123456789L + i, 'a' + (i & 15), "pending");
    benchmark::DoNotOptimize(n);
    benchmark::DoNotOptimize(buffer);
    ++i;
  }
}

// Only decimal integers: the formatter's hottest path.
const char kIntFormat[] = "%d %d %d %d";

void FormatIntegersOvra(benchmark::State& state) {
  const std::vector<unsigned short> format = Widen(kIntFormat);
  unsigned short buffer[128];
  int i = 0;
  for (auto _ : state) {
    const int n = snuprintf(buffer, 128, format.data(), i, -i, i * 7919, 2147483647 - i);
    benchmark::DoNotOptimize(n);
    benchmark::DoNotOptimize(buffer);
    ++i;
  }
}

void FormatIntegersRef(benchmark::State& state) {
  char buffer[128];
  int i = 0;
  for (auto _ : state) {
    const int n = snprintf(buffer, 128, kIntFormat, i, -i, i * 7919, 2147483647 - i);
    benchmark::DoNotOptimize(n);
    benchmark::DoNotOptimize(buffer);
    ++i;
  }
}

// Texts of `length` characters of lower-case letters, 8-bit and 16-bit.
struct STexts {
  explicit STexts(size_t length) : narrow(length, 'a'), wide(length + 1, 0) {
    unsigned x = 2463534242u;
    for (size_t i = 0; i < length; ++i) {
      x ^= x << 13;
      x ^= x >> 17;
      x ^= x << 5;
      narrow[i] = static_cast<char>('a' + x % 26);
      wide[i] = static_cast<unsigned char>(narrow[i]);
    }
  }
  std::string narrow;
  std::vector<unsigned short> wide;
};

void LenOvra(benchmark::State& state, int64_t length) {
  const STexts texts(static_cast<size_t>(length));
  for (auto _ : state) benchmark::DoNotOptimize(ucslen(texts.wide.data()));
  state.SetBytesProcessed(state.iterations() * length * 2);
}

void LenRef(benchmark::State& state, int64_t length) {
  const STexts texts(static_cast<size_t>(length));
  for (auto _ : state) benchmark::DoNotOptimize(strlen(texts.narrow.c_str()));
  state.SetBytesProcessed(state.iterations() * length);
}

// Two equal texts: the comparison runs to the end.
void CmpOvra(benchmark::State& state, int64_t length) {
  const STexts a(static_cast<size_t>(length));
  const STexts b(static_cast<size_t>(length));
  for (auto _ : state) benchmark::DoNotOptimize(ucscmp(a.wide.data(), b.wide.data()));
  state.SetBytesProcessed(state.iterations() * length * 2);
}

void CmpRef(benchmark::State& state, int64_t length) {
  const STexts a(static_cast<size_t>(length));
  const STexts b(static_cast<size_t>(length));
  for (auto _ : state) benchmark::DoNotOptimize(strcmp(a.narrow.c_str(), b.narrow.c_str()));
  state.SetBytesProcessed(state.iterations() * length);
}

// A needle of 8 characters that only occurs at the very end of the text.
void StrOvra(benchmark::State& state, int64_t length) {
  STexts texts(static_cast<size_t>(length));
  const size_t size = texts.narrow.size();
  const char needle[] = "zyxwvuts";
  for (size_t i = 0; i < 8; ++i) {
    texts.narrow[size - 8 + i] = needle[i];
    texts.wide[size - 8 + i] = static_cast<unsigned char>(needle[i]);
  }
  const std::vector<unsigned short> wideNeedle = Widen(needle);
  for (auto _ : state) benchmark::DoNotOptimize(ucsstr(texts.wide.data(), wideNeedle.data()));
  state.SetBytesProcessed(state.iterations() * length * 2);
}

void StrRef(benchmark::State& state, int64_t length) {
  STexts texts(static_cast<size_t>(length));
  const size_t size = texts.narrow.size();
  const char needle[] = "zyxwvuts";
  for (size_t i = 0; i < 8; ++i) texts.narrow[size - 8 + i] = needle[i];
  for (auto _ : state) benchmark::DoNotOptimize(strstr(texts.narrow.c_str(), needle));
  state.SetBytesProcessed(state.iterations() * length);
}

const int kRegistered = [] {
  benchmark::RegisterBenchmark("Format/ovra", FormatOvra);
  benchmark::RegisterBenchmark("Format/ref", FormatRef);
  benchmark::RegisterBenchmark("FormatIntegers/ovra", FormatIntegersOvra);
  benchmark::RegisterBenchmark("FormatIntegers/ref", FormatIntegersRef);
  for (int64_t length : {16, 4096, 65536}) {
    const std::string suffix = "/" + std::to_string(length);
    benchmark::RegisterBenchmark(("Len" + suffix + "/ovra").c_str(), LenOvra, length);
    benchmark::RegisterBenchmark(("Len" + suffix + "/ref").c_str(), LenRef, length);
    benchmark::RegisterBenchmark(("Cmp" + suffix + "/ovra").c_str(), CmpOvra, length);
    benchmark::RegisterBenchmark(("Cmp" + suffix + "/ref").c_str(), CmpRef, length);
    benchmark::RegisterBenchmark(("Str" + suffix + "/ovra").c_str(), StrOvra, length);
    benchmark::RegisterBenchmark(("Str" + suffix + "/ref").c_str(), StrRef, length);
  }
  return 0;
}();

}  // namespace
