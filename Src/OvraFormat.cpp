// OvraFormat.cpp - the formatter for 16-bit text: a table-driven state machine
// over the format characters writing into a bounded sink that counts all.
#include "OvraFormat.h"

#include <limits.h>
#include <stdint.h>
#include <string.h>

#include "OvraCrt.h"

namespace {

// ---------------------------------------------------------------------------
// Character classes and states
// ---------------------------------------------------------------------------

enum EClass : unsigned char {
  kClassOther,
  kClassPercent,
  kClassDot,
  kClassStar,
  kClassZero,
  kClassDigit,
  kClassFlag,
  kClassSize,
  kClassType,
  kClassCount
};

enum EState : unsigned char {
  kStateNormal,
  kStatePercent,
  kStateFlag,
  kStateWidth,
  kStateDot,
  kStatePrecision,
  kStateSize,
  kStateType,
  kStateCount
};

// Classes of the format characters U+0020..U+0078; everything else is other.
constexpr unsigned short kFirstClassified = 0x20;
constexpr unsigned short kLastClassified = 0x78;

struct ClassTable {
  unsigned char cls[kLastClassified - kFirstClassified + 1];
};

constexpr ClassTable MakeClassTable() {
  ClassTable t{};
  for (auto& c : t.cls) c = kClassOther;
  auto set = [&t](const char* chars, EClass c) {
    for (; *chars; ++chars) t.cls[static_cast<unsigned char>(*chars) - kFirstClassified] = c;
  };
  set("%", kClassPercent);
  set(".", kClassDot);
  set("*", kClassStar);
  set("0", kClassZero);
  set("123456789", kClassDigit);
  set(" #+-", kClassFlag);
  set("FILNhlw", kClassSize);
  set("BCEGSXZcdefginopsux", kClassType);
  return t;
}

constexpr ClassTable kClasses = MakeClassTable();

// Next state by (class, current state).
constexpr unsigned char kNextState[kClassCount][kStateCount] = {
    /* other   */ {0, 0, 0, 0, 0, 0, 0, 0},
    /* percent */ {1, 0, 0, 0, 0, 0, 0, 1},
    /* dot     */ {0, 4, 4, 4, 0, 0, 0, 0},
    /* star    */ {0, 3, 3, 0, 5, 0, 0, 0},
    /* zero    */ {0, 2, 2, 3, 5, 5, 0, 0},
    /* digit   */ {0, 3, 3, 3, 5, 5, 0, 0},
    /* flag    */ {0, 2, 2, 0, 0, 0, 0, 0},
    /* size    */ {0, 6, 6, 6, 6, 6, 6, 0},
    /* type    */ {0, 7, 7, 7, 7, 7, 7, 0},
};

// The main loop copies literal runs in one go while in the normal or type
// state; that is only right while both columns send "%" to the percent state
// and everything else to the normal state.
constexpr bool LiteralRunsAreSafe() {
  for (int c = 0; c < kClassCount; ++c) {
    const unsigned char want = c == kClassPercent ? kStatePercent : kStateNormal;
    if (kNextState[c][kStateNormal] != want || kNextState[c][kStateType] != want) return false;
  }
  return true;
}
static_assert(LiteralRunsAreSafe(), "literal runs need the normal and type columns laid out as above");

inline EClass ClassOf(unsigned short ch) {
  if (ch < kFirstClassified || ch > kLastClassified) return kClassOther;
  return static_cast<EClass>(kClasses.cls[ch - kFirstClassified]);
}

// Conversion flags.
constexpr unsigned kFlagPlus = 0x01;
constexpr unsigned kFlagBlank = 0x02;
constexpr unsigned kFlagMinus = 0x04;
constexpr unsigned kFlagZero = 0x08;
constexpr unsigned kFlagShort = 0x20;
constexpr unsigned kFlagSigned = 0x40;
constexpr unsigned kFlagNegative = 0x100;

// ---------------------------------------------------------------------------
// Output sink
// ---------------------------------------------------------------------------

// The next write position and the room left there (in characters); a room of
// 0 or less stores nothing. count is every character produced, stored or not.
struct xFILE {
  unsigned short* pos;
  int room;
  int64_t count;
};

inline void write_char(unsigned short ch, xFILE* f) {
  if (f->room > 0) {
    *f->pos++ = ch;
    --f->room;
  }
  ++f->count;
}

// n copies of ch; only what fits is stored, all n are counted.
inline void write_multi_char(unsigned short ch, int64_t n, xFILE* f) {
  if (n <= 0) return;
  if (f->room > 0) {
    const int k = n < f->room ? static_cast<int>(n) : f->room;
    unsigned short* p = f->pos;
    for (int i = 0; i < k; ++i) p[i] = ch;
    f->pos = p + k;
    f->room -= k;
  }
  f->count += n;
}

inline void write_string(const unsigned short* text, size_t n, xFILE* f) {
  if (f->room > 0) {
    const size_t k = n < static_cast<size_t>(f->room) ? n : static_cast<size_t>(f->room);
    memcpy(f->pos, text, k * sizeof(unsigned short));
    f->pos += k;
    f->room -= static_cast<int>(k);
  }
  f->count += static_cast<int64_t>(n);
}

// Narrow digits widened to 16 bits.
inline void write_narrow(const char* text, int n, xFILE* f) {
  if (f->room > 0) {
    const int k = n < f->room ? n : f->room;
    unsigned short* p = f->pos;
    for (int i = 0; i < k; ++i) p[i] = static_cast<unsigned char>(text[i]);
    f->pos = p + k;
    f->room -= k;
  }
  f->count += n;
}

// ---------------------------------------------------------------------------
// Numbers
// ---------------------------------------------------------------------------

constexpr char kDigitPairs[] =
    "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
    "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
    "8081828384858687888990919293949596979899";

// Writes the decimal digits of v so that they end just before `end`; returns
// the first digit. Writes nothing for 0.
inline char* DecimalDigits(uint32_t v, char* end) {
  while (v >= 100) {
    const uint32_t pair = (v % 100) * 2;
    v /= 100;
    *--end = kDigitPairs[pair + 1];
    *--end = kDigitPairs[pair];
  }
  if (v >= 10) {
    *--end = kDigitPairs[v * 2 + 1];
    *--end = kDigitPairs[v * 2];
  } else if (v) {
    *--end = static_cast<char>('0' + v);
  }
  return end;
}

// Digits of v in base 8 or 16 (shift 3 or 4), ending before `end`. Nothing for 0.
template <typename T>
inline char* PowerOfTwoDigits(T v, unsigned shift, const char* alphabet, char* end) {
  const T mask = static_cast<T>((1u << shift) - 1);
  while (v) {
    *--end = alphabet[static_cast<unsigned>(v & mask)];
    v = static_cast<T>(v >> shift);
  }
  return end;
}

constexpr char kLowerHex[] = "0123456789abcdef";
constexpr char kUpperHex[] = "0123456789ABCDEF";

constexpr unsigned short kNullText[] = {'(', 'n', 'u', 'l', 'l', ')', 0};

// width * 10 + digit and the like, held inside the range of int.
inline int Accumulate(int value, unsigned short digit) {
  const int64_t r = static_cast<int64_t>(value) * 10 + (digit - '0');
  if (r > INT_MAX) return INT_MAX;
  if (r < INT_MIN) return INT_MIN;
  return static_cast<int>(r);
}

// ---------------------------------------------------------------------------
// The state machine
// ---------------------------------------------------------------------------

void unichar_output(xFILE* f, const unsigned short* format, va_list args) {
  const unsigned short* p = format;
  unsigned state = kStateNormal;
  unsigned flags = 0;
  int width = 0;
  int precision = -1;

  for (;;) {
    if (state == kStateNormal || state == kStateType) {
      // Everything up to the next "%" is written as it is.
      const unsigned short* run = p;
      while (*p && *p != '%') ++p;
      if (p != run) write_string(run, static_cast<size_t>(p - run), f);
      if (!*p) return;
      ++p;
      state = kStatePercent;
      flags = 0;
      width = 0;
      precision = -1;
      continue;
    }

    const unsigned short ch = *p++;
    if (!ch) return;
    state = kNextState[ClassOf(ch)][state];
    switch (state) {
      case kStateNormal:
        write_char(ch, f);
        continue;
      case kStatePercent:  // not reachable from a conversion in progress
        flags = 0;
        width = 0;
        precision = -1;
        continue;
      case kStateFlag:
        if (ch == ' ')
          flags |= kFlagBlank;
        else if (ch == '+')
          flags |= kFlagPlus;
        else if (ch == '-')
          flags |= kFlagMinus;
        else if (ch == '0')
          flags |= kFlagZero;
        continue;  // "#" is accepted and has no effect
      case kStateWidth:
        if (ch == '*') {
          const int w = va_arg(args, int);
          if (w < 0) {
            flags |= kFlagMinus;
            width = w == INT_MIN ? INT_MAX : -w;
          } else {
            width = w;
          }
        } else {
          width = Accumulate(width, ch);
        }
        continue;
      case kStateDot:
        // The precision stays -1 on purpose: digits then count on from -1 and
        // give a negative precision that never applies, which callers expect.
        continue;
      case kStatePrecision:
        if (ch == '*') {
          const int prec = va_arg(args, int);
          precision = prec < 0 ? -1 : prec;
        } else {
          precision = Accumulate(precision, ch);
        }
        continue;
      case kStateSize:
        if (ch == 'h') flags |= kFlagShort;
        continue;
      default:
        break;  // kStateType: one conversion, below
    }

    // Text of the item: either 16-bit (text16/len) or narrow digits with
    // leading zeros.
    const unsigned short* text16 = nullptr;
    size_t len16 = 0;
    unsigned short single;
    char digitArea[24];
    char* const digitsEnd = digitArea + sizeof digitArea;
    char* digits = digitsEnd;
    int64_t leadingZeros = 0;
    bool numeric = false;

    switch (ch) {
      case 'c':
        single = static_cast<unsigned short>(va_arg(args, int));
        text16 = &single;
        len16 = 1;
        break;
      case 's': {
        const unsigned short* s = static_cast<const unsigned short*>(va_arg(args, void*));
        if (!s) s = kNullText;
        text16 = s;
        if (precision >= 0) {
          size_t n = 0;
          const size_t limit = static_cast<size_t>(precision);
          while (n < limit && s[n]) ++n;
          len16 = n;
        } else {
          len16 = ucslen(s);
        }
        break;
      }
      case 'd':
      case 'i':
      case 'u':
      case 'o':
      case 'x':
      case 'X': {
        const int arg = va_arg(args, int);
        uint32_t magnitude;
        if (ch == 'd' || ch == 'i') {
          flags |= kFlagSigned;
          int32_t v = (flags & kFlagShort) ? static_cast<int16_t>(arg) : static_cast<int32_t>(arg);
          if (v < 0) {
            flags |= kFlagNegative;
            magnitude = 0u - static_cast<uint32_t>(v);
          } else {
            magnitude = static_cast<uint32_t>(v);
          }
        } else {
          magnitude = static_cast<uint32_t>(arg);
          if (flags & kFlagShort) magnitude &= 0xFFFFu;
        }
        if (ch == 'o')
          digits = PowerOfTwoDigits<uint32_t>(magnitude, 3, kLowerHex, digitsEnd);
        else if (ch == 'x')
          digits = PowerOfTwoDigits<uint32_t>(magnitude, 4, kLowerHex, digitsEnd);
        else if (ch == 'X')
          digits = PowerOfTwoDigits<uint32_t>(magnitude, 4, kUpperHex, digitsEnd);
        else
          digits = DecimalDigits(magnitude, digitsEnd);
        numeric = true;
        break;
      }
      case 'p': {
        const uintptr_t v = reinterpret_cast<uintptr_t>(va_arg(args, void*));
        digits = PowerOfTwoDigits<uintptr_t>(v, 4, kUpperHex, digitsEnd);
        precision = 8;
        numeric = true;
        break;
      }
      case 'n': {
        void* target = va_arg(args, void*);
        const int count = f->count > INT_MAX ? INT_MAX : static_cast<int>(f->count);
        if (flags & kFlagShort)
          *static_cast<short*>(target) = static_cast<short>(static_cast<uint16_t>(count));
        else
          *static_cast<int*>(target) = count;
        continue;
      }
      default:
        // B, C, E, G, S, Z, e, f, g: no conversion and no argument; only the
        // width's padding is written.
        break;
    }

    int64_t textLen;
    if (numeric) {
      // At least `minimum` digits; a precision drops the zero flag.
      int minimum = 1;
      if (precision >= 0) {
        minimum = precision;
        flags &= ~kFlagZero;
      }
      const int n = static_cast<int>(digitsEnd - digits);
      if (n < minimum) leadingZeros = minimum - n;
      textLen = leadingZeros + n;
    } else {
      textLen = static_cast<int64_t>(len16);
    }

    unsigned short prefix = 0;
    if (flags & kFlagSigned) {
      if (flags & kFlagNegative)
        prefix = '-';
      else if (flags & kFlagPlus)
        prefix = '+';
      else if (flags & kFlagBlank)
        prefix = ' ';
    }
    const int64_t padding = static_cast<int64_t>(width) - textLen - (prefix ? 1 : 0);

    if (!(flags & (kFlagMinus | kFlagZero))) write_multi_char(' ', padding, f);
    if (prefix) write_char(prefix, f);
    if ((flags & kFlagZero) && !(flags & kFlagMinus)) write_multi_char('0', padding, f);
    if (numeric) {
      write_multi_char('0', leadingZeros, f);
      write_narrow(digits, static_cast<int>(digitsEnd - digits), f);
    } else if (len16) {
      write_string(text16, len16, f);
    }
    if (flags & kFlagMinus) write_multi_char(' ', padding, f);
  }
}

}  // namespace

int vsnuprintf(unsigned short* buffer, size_t size, const unsigned short* format, va_list args) {
  xFILE f;
  f.pos = buffer;
  // One place is kept for the terminator; a size of 0 leaves no room at all.
  f.room = size == 0 ? -1 : (size - 1 > static_cast<size_t>(INT_MAX) ? INT_MAX
                                                                      : static_cast<int>(size - 1));
  f.count = 0;
  unichar_output(&f, format, args);
  if (size != 0) *f.pos = 0;
  return f.count > INT_MAX ? INT_MAX : static_cast<int>(f.count);
}

int snuprintf(unsigned short* buffer, size_t size, const unsigned short* format, ...) {
  va_list args;
  va_start(args, format);
  const int n = vsnuprintf(buffer, size, format, args);
  va_end(args);
  return n;
}
