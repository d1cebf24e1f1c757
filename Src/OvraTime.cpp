// OvraTime.cpp - TTime: construction from fields, from a digit string and from
// the current time, and the conversions to broken-down UTC and local time.
#include "OvraTime.h"

#include <limits.h>
#include <string.h>

#include "OvraCrt.h"
#include "OvraTimePS.h"

namespace {

// Lengths of the two accepted digit strings: a 2- or 4-digit year, five
// 2-digit fields and one final unit that is counted but never read.
constexpr size_t kShortStampLength = 13;
constexpr size_t kLongStampLength = 15;
constexpr size_t kFieldsAfterYear = 11;  // 5 * 2 digits + the final unit

// Converts count units of text as a decimal number: the units are copied
// into a terminated buffer first, so that ucstol cannot read past the field.
long FieldValue(const unsigned short* text, size_t count) {
  unsigned short buffer[5];
  memcpy(buffer, text, count * sizeof(unsigned short));
  buffer[count] = 0;
  return ucstol(buffer, nullptr, 10);
}

// Copies the nine standard fields, leaving anything else the platform's tm
// may hold (zone name, offset) as the caller had it.
void CopyTm(const tm& from, tm* to) {
  to->tm_sec = from.tm_sec;
  to->tm_min = from.tm_min;
  to->tm_hour = from.tm_hour;
  to->tm_mday = from.tm_mday;
  to->tm_mon = from.tm_mon;
  to->tm_year = from.tm_year;
  to->tm_wday = from.tm_wday;
  to->tm_yday = from.tm_yday;
  to->tm_isdst = from.tm_isdst;
}

}  // namespace

TTime::TTime(int year, int month, int day, int hour, int minute, int second, int dst) {
  // year - 1900 and month - 1 must fit the tm fields; beyond that the date is
  // as unrepresentable as one mktime refuses, and is stored the same way.
  if (year < INT_MIN + 1900 || month < INT_MIN + 1) {
    m_time = static_cast<time_t>(-1);
    return;
  }
  tm fields;
  memset(&fields, 0, sizeof fields);
  fields.tm_sec = second;
  fields.tm_min = minute;
  fields.tm_hour = hour;
  fields.tm_mday = day;
  fields.tm_mon = month - 1;
  fields.tm_year = year - 1900;
  fields.tm_isdst = dst;
  m_time = mktime(&fields);
}

TTime::TTime(const unsigned short* text) : m_time(0) {
  const size_t length = text ? ucslen(text) : 0;
  if (length != kShortStampLength && length != kLongStampLength) return;

  const size_t yearDigits = length - kFieldsAfterYear;
  long year = FieldValue(text, yearDigits);
  if (yearDigits == 2) year += year < 50 ? 2000 : 1900;

  const unsigned short* field = text + yearDigits;
  tm fields;
  memset(&fields, 0, sizeof fields);
  fields.tm_year = static_cast<int>(year - 1900);
  // The month is stored as written, without the usual "- 1": existing
  // callers depend on the resulting one-month shift, so it is kept.
  fields.tm_mon = static_cast<int>(FieldValue(field, 2));
  fields.tm_mday = static_cast<int>(FieldValue(field + 2, 2));
  fields.tm_hour = static_cast<int>(FieldValue(field + 4, 2));
  fields.tm_min = static_cast<int>(FieldValue(field + 6, 2));
  fields.tm_sec = static_cast<int>(FieldValue(field + 8, 2));
  fields.tm_isdst = -1;
  m_time = mktime(&fields);
}

tm* TTime::GetGmtTm(tm* out) const {
  tm* result = gmtime(&m_time);
  if (out && result) CopyTm(*result, out);
  return result;
}

tm* TTime::GetLocalTm(tm* out) const {
  tm* result = localtime(&m_time);
  if (out && result) CopyTm(*result, out);
  return result;
}

TTime TTime::GetCurrentTime() { return TTime(time(nullptr)); }

// Both clocks compute in unsigned 32-bit arithmetic on every platform, so they
// wrap at the same moments on 32- and 64-bit systems (unsigned, so the wrap is
// defined).

unsigned long OvraGetMilliseconds(void) {
  long long seconds = 0;
  long microseconds = 0;
  InternalTimeOfDay(seconds, microseconds);
  const uint32_t ms = static_cast<uint32_t>(seconds) * 1000u +
                      static_cast<uint32_t>(microseconds) / 1000u;
  return ms;
}

int64_t OvraGetMicroseconds64(void) {
  long long seconds = 0;
  long microseconds = 0;
  InternalTimeOfDay(seconds, microseconds);
  const uint32_t us = static_cast<uint32_t>(seconds) * 1000000u +
                      static_cast<uint32_t>(microseconds);
  // Sign-extended from 32 bits: callers measure short intervals only.
  return static_cast<int32_t>(us);
}

unsigned long OvraGetMicroseconds(void) {
  return static_cast<uint32_t>(OvraGetMicroseconds64());
}
