// Fuzzes the formatter with formats from the input. A model of the
// conversion grammar works out which arguments the format asks for (ints for
// "*", c, d, i, u, o, x, X; strings for s; any pointer for p; writable cells
// for n), and the rest of the input supplies their values. Checked: nothing
// is written beyond the buffer, the terminator lands where the returned count
// says, truncation keeps a prefix of the full output, "%n" stores counts that
// do not exceed the total, and TBstr::Format agrees on the length (when its
// length estimate, which reads the arguments by its own rules, would read
// them safely too).
#include <fuzzer/FuzzedDataProvider.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <vector>

#include "FuzzSupport.h"
#include "OvraBstr.h"
#include "OvraFormat.h"

namespace {

constexpr size_t kMaxArgs = 24;

enum EKind { kInt, kString, kPointer, kCount, kShortCount };

// Character classes of the grammar: other, %, ., *, 0, 1-9, flag, size, type.
enum EClass { cOther, cPercent, cDot, cStar, cZero, cDigit, cFlag, cSize, cType };

EClass Classify(unsigned short ch) {
  if (ch == '%') return cPercent;
  if (ch == '.') return cDot;
  if (ch == '*') return cStar;
  if (ch == '0') return cZero;
  if (ch >= '1' && ch <= '9') return cDigit;
  if (ch == ' ' || ch == '#' || ch == '+' || ch == '-') return cFlag;
  if (ch < 0x80 && strchr("FILNhlw", ch)) return cSize;
  if (ch < 0x80 && strchr("BCEGSXZcdefginopsux", ch)) return cType;
  return cOther;
}

// States: 0 literal, 1 after "%", 2 flags, 3 width, 4 after ".", 5 precision,
// 6 size, 7 just after a conversion.
constexpr unsigned char kNext[9][8] = {
    {0, 0, 0, 0, 0, 0, 0, 0}, {1, 0, 0, 0, 0, 0, 0, 1}, {0, 4, 4, 4, 0, 0, 0, 0},
    {0, 3, 3, 0, 5, 0, 0, 0}, {0, 2, 2, 3, 5, 5, 0, 0}, {0, 3, 3, 3, 5, 5, 0, 0},
    {0, 2, 2, 0, 0, 0, 0, 0}, {0, 6, 6, 6, 6, 6, 6, 0}, {0, 7, 7, 7, 7, 7, 7, 0},
};

// The argument kinds the format consumes, in order. When more than kMaxArgs
// would be needed the format is cut just before the conversion needing them.
std::vector<EKind> ArgumentsOf(std::vector<unsigned short>& format) {
  std::vector<EKind> kinds;
  unsigned state = 0;
  bool isShort = false;
  size_t conversionStart = 0;
  for (size_t i = 0; format[i]; ++i) {
    const unsigned short ch = format[i];
    if (state == 0 || state == 7) {
      if (ch == '%') {
        state = 1;
        isShort = false;
        conversionStart = i;
      } else {
        state = 0;
      }
      continue;
    }
    state = kNext[Classify(ch)][state];
    EKind kind;
    bool takes = false;
    if ((state == 3 || state == 5) && ch == '*') {
      kind = kInt;
      takes = true;
    } else if (state == 6 && ch == 'h') {
      isShort = true;
    } else if (state == 7) {
      if (strchr("cdiuoxX", ch)) {
        kind = kInt;
        takes = true;
      } else if (ch == 's') {
        kind = kString;
        takes = true;
      } else if (ch == 'p') {
        kind = kPointer;
        takes = true;
      } else if (ch == 'n') {
        kind = isShort ? kShortCount : kCount;
        takes = true;
      }
    }
    if (takes) {
      if (kinds.size() == kMaxArgs) {
        format[conversionStart] = 0;
        break;
      }
      kinds.push_back(kind);
    }
  }
  return kinds;
}

// TBstr::Format first estimates the length with a simpler reading of the
// format, which takes its own arguments: "*" flags (any number of them), one
// "*" precision, then by conversion an int (c, C, d, i, o, u, x, X), a 16-bit
// string (s), a narrow string (S) or a pointer it does not follow (p, n). The
// kinds it would read, as 'i', 's', 'S' and 'p'.
std::vector<char> EstimateArguments(const std::vector<unsigned short>& format) {
  std::vector<char> kinds;
  const unsigned short* f = format.data();
  while (*f) {
    if (*f++ != '%') continue;
    if (*f == '%') {
      ++f;
      continue;
    }
    bool starWidth = false;
    for (;; ++f) {
      if (*f == '*') {
        kinds.push_back('i');
        starWidth = true;
      } else if (*f != '#' && *f != '-' && *f != '+' && *f != '0' && *f != ' ') {
        break;
      }
    }
    if (!starWidth)
      while (*f >= '0' && *f <= '9') ++f;
    if (*f == '.') {
      ++f;
      if (*f == '*') {
        kinds.push_back('i');
        ++f;
      } else {
        while (*f >= '0' && *f <= '9') ++f;
      }
    }
    if (*f == 'F' || *f == 'L' || *f == 'N' || *f == 'h' || *f == 'l') ++f;
    const unsigned short c = *f;
    if (!c) break;
    ++f;
    if (c < 0x80 && strchr("cCdiouxX", c)) kinds.push_back('i');
    else if (c == 's') kinds.push_back('s');
    else if (c == 'S') kinds.push_back('S');
    else if (c == 'p' || c == 'n') kinds.push_back('p');
  }
  return kinds;
}

// True when the arguments laid out for the engine are also safe for the
// estimate: every string it reads is a real string (or null), and it reads
// no more arguments than are passed.
bool EstimateIsSafe(const std::vector<char>& estimate, const std::vector<EKind>& engine) {
  if (estimate.size() > kMaxArgs) return false;
  for (size_t i = 0; i < estimate.size(); ++i) {
    if (estimate[i] != 's' && estimate[i] != 'S') continue;
    // Slots the engine does not use are null; 16-bit strings end in a zero
    // unit, so they are zero-terminated narrow text too.
    if (i < engine.size() && engine[i] != kString) return false;
  }
  return true;
}

int Format(unsigned short* buf, size_t size, const unsigned short* fmt, void* const* a) {
  return snuprintf(buf, size, fmt, a[0], a[1], a[2], a[3], a[4], a[5], a[6], a[7], a[8], a[9],
                   a[10], a[11], a[12], a[13], a[14], a[15], a[16], a[17], a[18], a[19], a[20],
                   a[21], a[22], a[23]);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider in(data, size);
  const size_t room = in.ConsumeIntegralInRange<size_t>(0, 200);
  const std::string formatBytes = in.ConsumeRandomLengthString(512);
  std::vector<unsigned short> format = ovra_fuzz::UnitsWithEscapes(
      reinterpret_cast<const uint8_t*>(formatBytes.data()), formatBytes.size());
  const std::vector<EKind> kinds = ArgumentsOf(format);

  // Argument storage: strings and count cells live as long as both calls.
  std::vector<std::vector<unsigned short>> strings;
  strings.reserve(kMaxArgs);
  struct Cell {
    int value;
    int guard;
  } cells[kMaxArgs];
  void* args[kMaxArgs];
  for (size_t i = 0; i < kMaxArgs; ++i) {
    args[i] = nullptr;
    cells[i].value = -1;
    cells[i].guard = 0x5A5A5A5A;
  }
  for (size_t i = 0; i < kinds.size(); ++i) {
    switch (kinds[i]) {
      case kInt:
        // Passed in a pointer-sized slot; the formatter reads its int part.
        args[i] = reinterpret_cast<void*>(static_cast<intptr_t>(in.ConsumeIntegral<int>()));
        break;
      case kString: {
        const unsigned choice = in.ConsumeIntegralInRange<unsigned>(0, 3);
        if (choice == 0) {
          args[i] = nullptr;  // prints "(null)"
        } else {
          const std::string bytes = in.ConsumeRandomLengthString(64);
          strings.push_back(ovra_fuzz::UnitsFromPairs(
              reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()));
          args[i] = strings.back().data();
        }
        break;
      }
      case kPointer:
        args[i] = reinterpret_cast<void*>(in.ConsumeIntegral<uintptr_t>());
        break;
      case kCount:
      case kShortCount:
        args[i] = &cells[i].value;
        break;
    }
  }

  // The buffer is exactly room units, so that any write beyond it is caught.
  unsigned short* buf = static_cast<unsigned short*>(malloc(room * sizeof(unsigned short) + 1));
  FUZZ_CHECK(buf != nullptr);
  const int ret = Format(buf, room, format.data(), args);
  FUZZ_CHECK(ret >= 0);
  if (room > 0) FUZZ_CHECK(buf[static_cast<size_t>(ret) < room ? ret : room - 1] == 0);
  for (size_t i = 0; i < kinds.size(); ++i) {
    if (kinds[i] == kCount) FUZZ_CHECK(cells[i].value >= 0 && cells[i].value <= ret);
    if (kinds[i] == kCount || kinds[i] == kShortCount) FUZZ_CHECK(cells[i].guard == 0x5A5A5A5A);
  }

  if (ret < (1 << 16)) {
    // The full output, then the truncated one must be its prefix.
    const size_t fullSize = static_cast<size_t>(ret) + 1;
    std::vector<unsigned short> full(fullSize, 0xEEEE);
    FUZZ_CHECK(Format(full.data(), fullSize, format.data(), args) == ret);
    FUZZ_CHECK(full[static_cast<size_t>(ret)] == 0);
    if (room > 0) {
      const size_t kept = static_cast<size_t>(ret) < room ? static_cast<size_t>(ret) : room - 1;
      FUZZ_CHECK(memcmp(buf, full.data(), kept * sizeof(unsigned short)) == 0);
    }
    // Only for formats whose arguments suit both readings: the estimate
    // deliberately reads "S" (and "C") arguments the engine never takes.
    if (EstimateIsSafe(EstimateArguments(format), kinds)) {
      TBstr text;
      text.Format(format.data(), args[0], args[1], args[2], args[3], args[4], args[5], args[6],
                  args[7], args[8], args[9], args[10], args[11], args[12], args[13], args[14],
                  args[15], args[16], args[17], args[18], args[19], args[20], args[21], args[22],
                  args[23]);
      if (text.GetLength() != ret) {
        // Show the case, so that it can become a test.
        fprintf(stderr, "format:");
        for (size_t i = 0; format[i]; ++i) fprintf(stderr, " %04X", format[i]);
        fprintf(stderr, "\nargs:");
        for (size_t i = 0; i < kinds.size(); ++i)
          fprintf(stderr, " %d:%p", static_cast<int>(kinds[i]), args[i]);
        fprintf(stderr, "\nsnuprintf %d, Format %d\n", ret, text.GetLength());
      }
      FUZZ_CHECK(text.GetLength() == ret);
    }
  }
  free(buf);
  return 0;
}
