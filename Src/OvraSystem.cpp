// OvraSystem.cpp - OvraGetSystemInfo: the release text's numbers, read from
// what the platform layer reports.
#include "OvraSystem.h"

#include <limits.h>

#include "OvraSystemPS.h"

namespace {

// The release text is kept up to this many bytes (a system's field is
// shorter), so that the numbers are read from a terminated copy.
constexpr size_t kReleaseSize = 257;

bool IsSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

// atoi's reading of text: leading white space, one optional sign, then
// decimal digits; 0 without digits. Values beyond the int range are clamped,
// so that the result is the same on every platform.
int ReadNumber(const char* text) {
  while (IsSpace(*text)) ++text;
  const bool negative = *text == '-';
  if (*text == '-' || *text == '+') ++text;
  long long value = 0;
  for (; *text >= '0' && *text <= '9'; ++text) {
    value = value * 10 + (*text - '0');
    if (value > static_cast<long long>(INT_MAX) + 1) value = static_cast<long long>(INT_MAX) + 1;
  }
  if (negative) value = -value;
  if (value > INT_MAX) value = INT_MAX;
  return static_cast<int>(value);
}

const char* FindDot(const char* text) {
  for (; *text; ++text)
    if (*text == '.') return text;
  return nullptr;
}

}  // namespace

unsigned int OvraGetSystemInfo(SSystemInfo* info) {
  if (!info) return 0;
  char release[kReleaseSize];
  InternalGetSystemNames(info->osName, release, sizeof release);
  info->majorVersion = ReadNumber(release);
  if (const char* dot = FindDot(release)) {
    info->minorVersion = ReadNumber(dot + 1);
    const char* second = FindDot(dot + 1);
    info->revision = second ? static_cast<unsigned int>(ReadNumber(second + 1)) : 0;
  } else {
    // The revision is left as it was here, unlike when a single "." is
    // present; callers have come to rely on both behaviours.
    info->minorVersion = 0;
  }
  info->reserved = 0;
  return 0;
}
