// The text kernels against the loops they replaced, in one process on the
// same data: the library's choice of kernels ("ovra") against the scalar
// reference for the short-string routines, and against the previous
// conversion loops (runs of ASCII in 16-byte blocks, one character at a
// time otherwise: the SSE2 table on x86, the word-at-a-time one elsewhere)
// for UTF-8 text that mixes one-, two- and three-byte characters. Built
// with the kernel objects, which the library does not export.
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "OvraText.h"

namespace {

constexpr size_t kUnits = 1 << 19;  // 1 MiB of 16-bit text

const STextKernels& Previous() {
  return TextSse2Kernels() ? *TextSse2Kernels() : TextSwarKernels();
}

// As bench/runtime/utf8.cpp: 1 in 8 two-byte, 1 in 32 three-byte.
std::vector<unsigned short> Mixed(size_t count) {
  std::vector<unsigned short> text(count);
  unsigned x = 2024;
  for (size_t i = 0; i < text.size(); ++i) {
    x = x * 1103515245u + 12345u;
    const unsigned r = x >> 16;
    if (r % 32 == 0)
      text[i] = static_cast<unsigned short>(0x4E00 + r % 0x5000);
    else if (r % 8 == 1)
      text[i] = static_cast<unsigned short>(0xC0 + r % 0x300);
    else
      text[i] = static_cast<unsigned short>(0x20 + r % 0x5F);
  }
  return text;
}

void Encode(benchmark::State& state, const STextKernels& k) {
  const std::vector<unsigned short> text = Mixed(kUnits);
  std::vector<char> out(kUnits * 3 + 2);
  for (auto _ : state) {
    benchmark::DoNotOptimize(k.toUtf8(text.data(), text.size(), out.data(), kUnits * 3));
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(kUnits * 2));
}

void Decode(benchmark::State& state, const STextKernels& k) {
  const std::vector<unsigned short> text = Mixed(kUnits);
  std::vector<char> bytes(kUnits * 3 + 2);
  const size_t n = TextScalarKernels().toUtf8(text.data(), text.size(), bytes.data(), kUnits * 3);
  std::vector<unsigned short> out(n);
  for (auto _ : state) {
    benchmark::DoNotOptimize(k.fromUtf8(reinterpret_cast<const unsigned char*>(bytes.data()), n,
                                        out.data(), n));
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(n));
}

// Sixteen lower-case letters, as in bench/runtime/format.cpp.
struct SShort {
  SShort() : a(17, 0), b(17, 0), needle{'z', 'y', 0} {
    unsigned x = 2463534242u;
    for (size_t i = 0; i < 16; ++i) {
      x ^= x << 13;
      x ^= x >> 17;
      x ^= x << 5;
      a[i] = b[i] = static_cast<unsigned short>('a' + x % 26);
    }
    a[14] = 'z';
    a[15] = 'y';
  }
  std::vector<unsigned short> a, b;
  unsigned short needle[3];
};

void ShortLen(benchmark::State& state, const STextKernels& k) {
  const SShort s;
  for (auto _ : state) benchmark::DoNotOptimize(k.len(s.a.data()));
}

void ShortCmp(benchmark::State& state, const STextKernels& k) {
  const SShort s;
  for (auto _ : state) benchmark::DoNotOptimize(k.cmp(s.a.data(), s.b.data()));
}

void ShortStr(benchmark::State& state, const STextKernels& k) {
  const SShort s;
  for (auto _ : state) benchmark::DoNotOptimize(k.str(s.a.data(), s.needle));
}

const bool kRegistered = [] {
  typedef void (*TBench)(benchmark::State&, const STextKernels&);
  const struct {
    const char* name;
    TBench run;
    bool againstScalar;
  } kPairs[] = {
      {"Text UTF-8 mixed encode vs previous loop", Encode, false},
      {"Text UTF-8 mixed decode vs previous loop", Decode, false},
      {"Text ucslen/16 vs scalar", ShortLen, true},
      {"Text ucscmp/16 vs scalar", ShortCmp, true},
      {"Text ucsstr/16 vs scalar", ShortStr, true},
  };
  for (const auto& pair : kPairs) {
    const TBench run = pair.run;
    const STextKernels* ref = pair.againstScalar ? &TextScalarKernels() : &Previous();
    benchmark::RegisterBenchmark((std::string(pair.name) + "/ovra").c_str(),
                                 [run](benchmark::State& s) { run(s, TextKernels()); });
    benchmark::RegisterBenchmark((std::string(pair.name) + "/ref").c_str(),
                                 [run, ref](benchmark::State& s) { run(s, *ref); });
  }
  return true;
}();

}  // namespace
