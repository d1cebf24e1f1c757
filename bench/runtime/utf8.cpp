// The UTF-8 conversions over 1 MiB of input against memcpy of the same
// buffer, the memory-bandwidth yardstick: run.py reports the fraction of
// memcpy's bandwidth each conversion reaches. "ASCII" texts are all below
// 0x80; "mixed" texts mix ASCII, two-byte (Latin, Greek) and three-byte
// (CJK) characters in the proportions of ordinary European text with names.
// Decoding writes two bytes per byte read, so ASCII decoding is also set
// against memcpy of as many bytes as it writes: the copy that moves the same
// output through the caches.
#include <benchmark/benchmark.h>
#include <string.h>

#include <string>
#include <vector>

#include "OvraBstr.h"

namespace {

constexpr int kBytes = 1 << 20;

// count 16-bit characters; mixed: 1 in 8 two-byte, 1 in 32 three-byte.
std::vector<unsigned short> Text(bool mixed, size_t count) {
  std::vector<unsigned short> text(count);
  unsigned x = 2024;
  for (size_t i = 0; i < text.size(); ++i) {
    x = x * 1103515245u + 12345u;
    const unsigned r = x >> 16;
    if (mixed && r % 32 == 0)
      text[i] = static_cast<unsigned short>(0x4E00 + r % 0x5000);
    else if (mixed && r % 8 == 1)
      text[i] = static_cast<unsigned short>(0xC0 + r % 0x300);
    else
      text[i] = static_cast<unsigned short>(0x20 + r % 0x5F);
  }
  return text;
}

// 1 MiB of UTF-8 (less a partial character at the end).
std::vector<char> Encoded(bool mixed) {
  const std::vector<unsigned short> text = Text(mixed, kBytes);
  std::vector<char> bytes(text.size() * 3 + 2);
  const int n = OvraStringToUtf8(text.data(), static_cast<int>(text.size()), bytes.data(),
                                 static_cast<int>(text.size() * 3));
  int cut = n < kBytes ? n : kBytes;
  while (cut > 0 && (static_cast<unsigned char>(bytes[cut]) & 0xC0) == 0x80) --cut;
  bytes.resize(cut);
  return bytes;
}

// Encodes 1 MiB of 16-bit text (512 Ki characters).
void EncodeOvra(benchmark::State& state, bool mixed) {
  const std::vector<unsigned short> text = Text(mixed, kBytes / 2);
  std::vector<char> out(text.size() * 3 + 2);
  for (auto _ : state) {
    benchmark::DoNotOptimize(OvraStringToUtf8(text.data(), static_cast<int>(text.size()),
                                              out.data(), static_cast<int>(text.size() * 3)));
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * kBytes);
}

void DecodeOvra(benchmark::State& state, bool mixed) {
  const std::vector<char> bytes = Encoded(mixed);
  std::vector<unsigned short> out(bytes.size());
  for (auto _ : state) {
    benchmark::DoNotOptimize(OvraUtf8ToString(bytes.data(), static_cast<int>(bytes.size()),
                                              out.data(), static_cast<int>(out.size())));
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(bytes.size()));
}

// memcpy of the conversion's input: the same number of bytes read.
void MemcpyRef(benchmark::State& state, size_t bytes) {
  std::vector<char> in(bytes, 'a'), out(bytes);
  for (auto _ : state) {
    memcpy(out.data(), in.data(), bytes);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(bytes));
}

const bool kRegistered = [] {
  for (const bool mixed : {false, true}) {
    const char* kind = mixed ? "mixed" : "ASCII";
    const size_t decoded = Encoded(mixed).size();
    benchmark::RegisterBenchmark((std::string("UTF-8 ") + kind + " encode 1 MiB/ovra").c_str(),
                                 [mixed](benchmark::State& s) { EncodeOvra(s, mixed); })->UseRealTime();
    benchmark::RegisterBenchmark((std::string("UTF-8 ") + kind + " encode 1 MiB/ref").c_str(),
                                 [](benchmark::State& s) { MemcpyRef(s, kBytes); })->UseRealTime();
    benchmark::RegisterBenchmark((std::string("UTF-8 ") + kind + " decode 1 MiB/ovra").c_str(),
                                 [mixed](benchmark::State& s) { DecodeOvra(s, mixed); })->UseRealTime();
    benchmark::RegisterBenchmark((std::string("UTF-8 ") + kind + " decode 1 MiB/ref").c_str(),
                                 [decoded](benchmark::State& s) { MemcpyRef(s, decoded); })->UseRealTime();
  }
  const size_t written = Encoded(false).size() * sizeof(unsigned short);
  benchmark::RegisterBenchmark("UTF-8 ASCII decode 1 MiB, vs copy of its 2 MiB output/ovra",
                               [](benchmark::State& s) { DecodeOvra(s, false); })->UseRealTime();
  benchmark::RegisterBenchmark("UTF-8 ASCII decode 1 MiB, vs copy of its 2 MiB output/ref",
                               [written](benchmark::State& s) { MemcpyRef(s, written); })->UseRealTime();
  return true;
}();

}  // namespace
