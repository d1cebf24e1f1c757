// OvraTime.h - calendar time values (TTime) and the free-running millisecond
// and microsecond clocks.
#ifndef OVRA_OVRATIME_H
#define OVRA_OVRATIME_H

#include <stdint.h>
#include <time.h>

#include "OvraPlatform.h"

// A calendar time: whole seconds since 1970-01-01 00:00:00 UTC, held as the
// platform's time_t (32-bit on i386, 64-bit on LP64). The value 0 also marks a
// digit string that could not be parsed, and -1 a date mktime could not
// represent. On Windows the C runtime's mktime, gmtime and localtime take no
// time before 1970-01-01 00:00:00 UTC: an earlier date stores -1 there, and a
// negative value converts to null. No virtual operations; copy it freely.
class OVRA_API TTime {
 public:
  // The value 0 (1970-01-01 00:00:00 UTC).
  TTime() : m_time(0) {}
  // The given count of seconds since 1970-01-01 00:00:00 UTC.
  explicit TTime(time_t seconds) : m_time(seconds) {}
  // Local time from broken-down fields; month counts from 1 (1 = January) and
  // year is the full year. dst > 0: daylight saving in effect, 0: not, < 0:
  // let mktime decide. Out-of-range fields are normalised by mktime; a date it
  // cannot represent stores -1.
  TTime(int year, int month, int day, int hour, int minute, int second, int dst);
  // Parses "YYMMDDhhmmssZ" (13 units) or "YYYYMMDDhhmmssZ" (15 units) as local
  // time (not UTC, despite the final unit, which is counted but never read).
  // Two-digit years below 50 are 20xx, others 19xx. Deliberate quirk kept for
  // existing callers: the month digits are stored in the 0-based tm month as
  // written, so "01" gives February. Fields are not checked to be digits: a
  // field gives the value of its leading digits, 0 if none. Any other length,
  // and a null text, gives the value 0.
  explicit TTime(const unsigned short* text);

  // The stored seconds.
  time_t GetTime() const { return m_time; }

  // gmtime of the value. When both out and the result are non-null, the nine
  // standard tm fields are copied into out. Returns the platform's own shared
  // (static, not thread-safe) result, or null when the value cannot be
  // converted; out is then left untouched.
  tm* GetGmtTm(tm* out) const;
  // The same as GetGmtTm with localtime.
  tm* GetLocalTm(tm* out) const;

  // The current time, from time(nullptr).
  static TTime GetCurrentTime();

 private:
  time_t m_time;
};

// Wall-clock milliseconds (seconds * 1000 + microseconds / 1000 of the time of
// day) computed in 32-bit arithmetic, so the value wraps about every 49.7 days
// on every platform. Only differences over short intervals are meaningful.
OVRA_EXTERN_C OVRA_API unsigned long OvraGetMilliseconds(void);
// The low 32 bits of OvraGetMicroseconds64(); always below 2^32.
OVRA_EXTERN_C OVRA_API unsigned long OvraGetMicroseconds(void);
// Wall-clock microseconds (seconds * 1000000 + microseconds) computed in 32-bit
// arithmetic and then sign-extended: the value wraps every 2^32 microseconds
// (about 71.6 minutes) and may be negative. Measure short intervals only.
OVRA_EXTERN_C OVRA_API int64_t OvraGetMicroseconds64(void);

#endif
