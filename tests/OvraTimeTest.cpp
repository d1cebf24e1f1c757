// Tests of TTime: the seven-field constructor, the digit-string constructor
// with its month quirk and two- and four-digit years, the conversions and the
// current time. Each test runs in a fixed time zone (POSIX TZ strings, which
// need no zone database) so that local times are known exactly.
#include "OvraTime.h"

#include <gtest/gtest.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <limits>
#include <string>

#include "TestPlatform.h"
#include "TestWide.h"

namespace {

using ovra_test::Widen;
using ovra_test::WideText;

// Sets TZ for the lifetime of a test and restores the previous setting.
class ScopedTimeZone {
 public:
  explicit ScopedTimeZone(const char* zone) {
    const char* old = getenv("TZ");
    m_hadOld = old != nullptr;
    if (old) m_old = old;
    Set(zone);
  }
  ~ScopedTimeZone() {
    if (m_hadOld)
      Set(m_old.c_str());
    else
      Unset();
  }

 private:
  static void Set(const char* zone) {
#if defined(_WIN32)
    _putenv_s("TZ", zone);
#else
    setenv("TZ", zone, 1);
#endif
    tzset();
  }
  static void Unset() {
#if defined(_WIN32)
    _putenv_s("TZ", "");  // an empty value removes the variable there
#else
    unsetenv("TZ");
#endif
    tzset();
  }

  bool m_hadOld = false;
  std::string m_old;
};

constexpr const char* kUtc = "UTC0";
// Central European time with its daylight-saving rules (last Sunday of March
// 02:00 to last Sunday of October 03:00).
constexpr const char* kCentralEurope = "CET-1CEST,M3.5.0,M10.5.0/3";
// The Windows C library reads no rules from TZ: a zone with daylight saving
// there always follows the United States' dates.
#define OVRA_SKIP_CENTRAL_EUROPE() \
  OVRA_SKIP_ON_WINDOWS("TZ takes no daylight-saving rules in the Windows C library")

time_t Parse(const std::string& text) {
  WideText wide(Widen(text));
  return TTime(wide.get()).GetTime();
}

// The local broken-down time of a value, through the platform directly.
tm Local(time_t t) {
  tm out;
  memset(&out, 0, sizeof out);
#if defined(_WIN32)
  localtime_s(&out, &t);
#else
  localtime_r(&t, &out);
#endif
  return out;
}

void ExpectLocal(time_t t, int year, int month, int day, int hour, int minute, int second) {
  const tm l = Local(t);
  EXPECT_EQ(l.tm_year + 1900, year);
  EXPECT_EQ(l.tm_mon + 1, month);
  EXPECT_EQ(l.tm_mday, day);
  EXPECT_EQ(l.tm_hour, hour);
  EXPECT_EQ(l.tm_min, minute);
  EXPECT_EQ(l.tm_sec, second);
}

bool HasWideTimeT() { return sizeof(time_t) >= 8; }

// The Windows C library's mktime, gmtime and localtime take no time before
// 1970: a date before it stores -1 there, and a negative value converts to
// nothing.
bool HasTimesBefore1970() { return !ovra_test::kWindows; }

// ---------------------------------------------------------------------------
// Seven-field constructor
// ---------------------------------------------------------------------------

TEST(TTimeFieldsTest, JanuaryFirst2001NoonUtcIsItsKnownSecondsCount) {
  ScopedTimeZone zone(kUtc);
  // 2001-01-01 00:00:00 UTC is 978307200; noon is 43200 s later.
  EXPECT_EQ(TTime(2001, 1, 1, 12, 0, 0, -1).GetTime(), 978307200 + 43200);
}

TEST(TTimeFieldsTest, FieldsAreReadAsLocalTime) {
  OVRA_SKIP_CENTRAL_EUROPE();
  ScopedTimeZone zone(kCentralEurope);
  const time_t t = TTime(2001, 1, 1, 12, 0, 0, -1).GetTime();
  ExpectLocal(t, 2001, 1, 1, 12, 0, 0);
  // Winter time is one hour ahead of UTC.
  EXPECT_EQ(t, 978307200 + 43200 - 3600);
}

TEST(TTimeFieldsTest, MonthCountsFromOne) {
  ScopedTimeZone zone(kUtc);
  ExpectLocal(TTime(1999, 12, 31, 23, 59, 59, 0).GetTime(), 1999, 12, 31, 23, 59, 59);
  ExpectLocal(TTime(2000, 2, 29, 0, 0, 0, 0).GetTime(), 2000, 2, 29, 0, 0, 0);
}

TEST(TTimeFieldsTest, DaylightFlagIsPassedToMktime) {
  OVRA_SKIP_CENTRAL_EUROPE();
  ScopedTimeZone zone(kCentralEurope);
  const time_t decide = TTime(2001, 7, 1, 12, 0, 0, -1).GetTime();
  const time_t summer = TTime(2001, 7, 1, 12, 0, 0, 1).GetTime();
  const time_t winter = TTime(2001, 7, 1, 12, 0, 0, 0).GetTime();
  // mktime chooses summer time in July: 12:00 CEST is 10:00 UTC.
  EXPECT_EQ(decide, summer);
  EXPECT_EQ(summer, 993945600 + 36000);  // 2001-07-01 00:00 UTC + 10 h
  // Claiming standard time shifts the same wall-clock reading one hour later.
  EXPECT_EQ(winter - summer, 3600);
}

TEST(TTimeFieldsTest, OutOfRangeFieldsAreNormalised) {
  ScopedTimeZone zone(kUtc);
  EXPECT_EQ(TTime(2001, 13, 1, 0, 0, 0, 0).GetTime(), TTime(2002, 1, 1, 0, 0, 0, 0).GetTime());
  EXPECT_EQ(TTime(2001, 3, 0, 0, 0, 0, 0).GetTime(), TTime(2001, 2, 28, 0, 0, 0, 0).GetTime());
  EXPECT_EQ(TTime(2001, 1, 1, 0, 0, 90, 0).GetTime(), TTime(2001, 1, 1, 0, 1, 30, 0).GetTime());
}

TEST(TTimeFieldsTest, UnrepresentableDateStoresMinusOne) {
  ScopedTimeZone zone(kUtc);
  // The normalised year no longer fits the tm year field: mktime fails.
  EXPECT_EQ(TTime(INT_MAX, INT_MAX, 1, 0, 0, 0, 0).GetTime(), -1);
}

TEST(TTimeFieldsTest, ExtremeFieldValuesStoreMinusOneWithoutOverflow) {
  ScopedTimeZone zone(kUtc);
  // year - 1900 and month - 1 would overflow int: refused as mktime would.
  EXPECT_EQ(TTime(INT_MIN, 1, 1, 0, 0, 0, 0).GetTime(), -1);
  EXPECT_EQ(TTime(2001, INT_MIN, 1, 0, 0, 0, 0).GetTime(), -1);
}

TEST(TTimeFieldsTest, DefaultAndSecondsConstructorsStoreTheirValue) {
  EXPECT_EQ(TTime().GetTime(), 0);
  EXPECT_EQ(TTime(static_cast<time_t>(123456789)).GetTime(), 123456789);
}

// ---------------------------------------------------------------------------
// Digit-string constructor
// ---------------------------------------------------------------------------

TEST(TTimeTextTest, WrongLengthsGiveZero) {
  ScopedTimeZone zone(kUtc);
  EXPECT_EQ(Parse(""), 0);
  EXPECT_EQ(Parse("20010101120000"), 0);     // 14 units
  EXPECT_EQ(Parse("20010101120000ZZ"), 0);   // 16 units
  EXPECT_EQ(Parse("010101120000"), 0);       // 12 units
  EXPECT_EQ(Parse("0101011200000000000Z"), 0);
}

TEST(TTimeTextTest, ThirteenAndFifteenUnitsAreAccepted) {
  ScopedTimeZone zone(kUtc);
  const time_t feb1 = 978307200 + 31 * 86400 + 43200;  // 2001-02-01 12:00:00 UTC
  EXPECT_EQ(Parse("010101120000Z"), feb1);
  EXPECT_EQ(Parse("20010101120000Z"), feb1);
}

TEST(TTimeTextTest, NullTextGivesZero) {
  EXPECT_EQ(TTime(static_cast<const unsigned short*>(nullptr)).GetTime(), 0);
}

TEST(TTimeTextTest, JanuaryDigitsGiveFebruaryBecauseTheMonthIsStoredAsWritten) {
  OVRA_SKIP_CENTRAL_EUROPE();
  ScopedTimeZone zone(kCentralEurope);
  const time_t t = Parse("20010101120000Z");
  ExpectLocal(t, 2001, 2, 1, 12, 0, 0);
  // The seven-field constructor with the same digits is one month earlier.
  EXPECT_EQ(TTime(2001, 2, 1, 12, 0, 0, -1).GetTime(), t);
  EXPECT_NE(TTime(2001, 1, 1, 12, 0, 0, -1).GetTime(), t);
}

TEST(TTimeTextTest, TextIsReadAsLocalTimeDespiteTheFinalZ) {
  OVRA_SKIP_CENTRAL_EUROPE();
  ScopedTimeZone zone(kCentralEurope);
  // Feb 1st 2001 12:00 local (CET, UTC+1) is 11:00 UTC.
  EXPECT_EQ(Parse("20010101120000Z"), 978307200 + 31 * 86400 + 11 * 3600);
}

TEST(TTimeTextTest, DaylightSavingIsDecidedByMktime) {
  OVRA_SKIP_CENTRAL_EUROPE();
  ScopedTimeZone zone(kCentralEurope);
  // Month digits 06 are July; 12:00 CEST is 10:00 UTC.
  EXPECT_EQ(Parse("20010601120000Z"), 993945600 + 36000);
}

TEST(TTimeTextTest, FinalUnitIsCountedButNeverExamined) {
  ScopedTimeZone zone(kUtc);
  const time_t z = Parse("20010101120000Z");
  EXPECT_EQ(Parse("20010101120000Q"), z);
  EXPECT_EQ(Parse("200101011200009"), z);
  EXPECT_EQ(Parse("20010101120000 "), z);
}

TEST(TTimeTextTest, TwoDigitYearBelowFiftyIsTwoThousandAndSomething) {
  ScopedTimeZone zone(kUtc);
  ExpectLocal(Parse("000101000000Z"), 2000, 2, 1, 0, 0, 0);
  ExpectLocal(Parse("370101000000Z"), 2037, 2, 1, 0, 0, 0);
}

TEST(TTimeTextTest, YearDigits49GiveYear2049) {
  ScopedTimeZone zone(kUtc);
  // 2049 with month digits 12: the month quirk turns December into January 2050.
  const time_t t = Parse("491231235959Z");
  if (!HasWideTimeT()) {
    // A 32-bit time_t ends in 2038: mktime cannot represent the date.
    EXPECT_EQ(t, -1);
    return;
  }
  ExpectLocal(t, 2050, 1, 31, 23, 59, 59);
  EXPECT_EQ(t, TTime(2049, 13, 31, 23, 59, 59, 0).GetTime());
  ExpectLocal(Parse("490101000000Z"), 2049, 2, 1, 0, 0, 0);
}

TEST(TTimeTextTest, YearDigits50GiveYear1950) {
  ScopedTimeZone zone(kUtc);
  const time_t t = Parse("500101000000Z");
  if (HasTimesBefore1970()) {
    ExpectLocal(t, 1950, 2, 1, 0, 0, 0);
    // 1950-02-01 00:00:00 UTC: 20 years (five of them leap years) before
    // 1970, plus the 31 days of January.
    EXPECT_EQ(t, -((20 * 365 + 5) * 86400LL) + 31 * 86400);
  } else {
    EXPECT_EQ(t, -1);
  }
  ExpectLocal(Parse("991101000000Z"), 1999, 12, 1, 0, 0, 0);
}

TEST(TTimeTextTest, FourDigitYearIsTakenAsItIs) {
  ScopedTimeZone zone(kUtc);
  ExpectLocal(Parse("19700001000000Z"), 1970, 1, 1, 0, 0, 0);
  EXPECT_EQ(Parse("19700001000000Z"), 0);  // month digits 00 are January
  if (HasWideTimeT()) ExpectLocal(Parse("20491101000000Z"), 2049, 12, 1, 0, 0, 0);
  if (HasTimesBefore1970())
    ExpectLocal(Parse("19011201000000Z"), 1902, 1, 1, 0, 0, 0);
  else
    EXPECT_EQ(Parse("19011201000000Z"), -1);
}

TEST(TTimeTextTest, FieldsAreTakenInOrderAfterTheYear) {
  ScopedTimeZone zone(kUtc);
  ExpectLocal(Parse("20010203040506Z"), 2001, 3, 3, 4, 5, 6);  // digits 02: March
  ExpectLocal(Parse("010203040506Z"), 2001, 3, 3, 4, 5, 6);
}

TEST(TTimeTextTest, NonDigitFieldGivesTheValueOfItsLeadingDigits) {
  ScopedTimeZone zone(kUtc);
  // "1X" reads as 1 (February), "X1" and "XX" as 0.
  EXPECT_EQ(Parse("20011X01120000Z"), Parse("20010101120000Z"));
  EXPECT_EQ(Parse("2001X101120000Z"), Parse("20010001120000Z"));
  EXPECT_EQ(Parse("200101XX120000Z"), Parse("20010100120000Z"));
}

TEST(TTimeTextTest, BlankBeforeADigitIsSkippedByTheConversion) {
  ScopedTimeZone zone(kUtc);
  EXPECT_EQ(Parse("2001 101120000Z"), Parse("20010101120000Z"));
}

TEST(TTimeTextTest, SignedYearDigitsAreConverted) {
  ScopedTimeZone zone(kUtc);
  // "-1" is below 50, so it becomes 1999.
  EXPECT_EQ(Parse("-10101000000Z"), Parse("990101000000Z"));
}

TEST(TTimeTextTest, UnitsAboveAsciiAreNotDigits) {
  ScopedTimeZone zone(kUtc);
  std::u16string text = u"20010101120000Z";
  text[5] = 0x0661;  // ARABIC-INDIC DIGIT ONE is not a decimal digit here
  WideText wide(text);
  EXPECT_EQ(TTime(wide.get()).GetTime(), Parse("20010001120000Z"));
}

// ---------------------------------------------------------------------------
// Conversions
// ---------------------------------------------------------------------------

TEST(TTimeConversionTest, GetGmtTmWithNullReturnsThePlatformsOwnResult) {
  const TTime t(static_cast<time_t>(978350400));
  tm* result = t.GetGmtTm(nullptr);
  ASSERT_NE(result, nullptr);
  time_t raw = 978350400;
  // gmtime hands out one shared buffer: the same address as the library's result.
  EXPECT_EQ(gmtime(&raw), result);
  EXPECT_EQ(result->tm_year, 101);
  EXPECT_EQ(result->tm_hour, 12);
}

TEST(TTimeConversionTest, GetGmtTmCopiesTheNineFields) {
  const TTime t(static_cast<time_t>(978350400 + 86400 * 40 + 3661));  // 2001-02-10 13:01:01
  tm out;
  memset(&out, 0x5A, sizeof out);
#if !defined(_WIN32)  // Windows' tm has the nine fields only
  out.tm_gmtoff = 12345;  // beyond the nine fields: left as it was
#endif
  tm* result = t.GetGmtTm(&out);
  ASSERT_NE(result, nullptr);
  EXPECT_NE(result, &out);
#if !defined(_WIN32)
  EXPECT_EQ(out.tm_gmtoff, 12345);
#endif
  EXPECT_EQ(out.tm_sec, 1);
  EXPECT_EQ(out.tm_min, 1);
  EXPECT_EQ(out.tm_hour, 13);
  EXPECT_EQ(out.tm_mday, 10);
  EXPECT_EQ(out.tm_mon, 1);
  EXPECT_EQ(out.tm_year, 101);
  EXPECT_EQ(out.tm_wday, 6);   // a Saturday
  EXPECT_EQ(out.tm_yday, 40);
  EXPECT_EQ(out.tm_isdst, 0);
}

TEST(TTimeConversionTest, GetLocalTmUsesTheLocalZone) {
  OVRA_SKIP_CENTRAL_EUROPE();
  ScopedTimeZone zone(kCentralEurope);
  const TTime t(static_cast<time_t>(993945600 + 36000));  // 2001-07-01 10:00 UTC
  tm out;
  memset(&out, 0, sizeof out);
  tm* result = t.GetLocalTm(&out);
  ASSERT_NE(result, nullptr);
  EXPECT_EQ(out.tm_hour, 12);
  EXPECT_EQ(out.tm_isdst, 1);
  EXPECT_EQ(result->tm_hour, 12);
  time_t raw = t.GetTime();
  EXPECT_EQ(localtime(&raw), t.GetLocalTm(nullptr));
}

TEST(TTimeConversionTest, LocalAndFieldsRoundTrip) {
  OVRA_SKIP_CENTRAL_EUROPE();
  ScopedTimeZone zone(kCentralEurope);
  const TTime t(2024, 2, 29, 23, 30, 15, -1);
  tm out;
  memset(&out, 0, sizeof out);
  ASSERT_NE(t.GetLocalTm(&out), nullptr);
  EXPECT_EQ(out.tm_year, 124);
  EXPECT_EQ(out.tm_mon, 1);
  EXPECT_EQ(out.tm_mday, 29);
  EXPECT_EQ(out.tm_hour, 23);
  EXPECT_EQ(out.tm_min, 30);
  EXPECT_EQ(out.tm_sec, 15);
}

TEST(TTimeConversionTest, UnconvertibleValueGivesNullAndLeavesOutUntouched) {
  if (!HasWideTimeT()) GTEST_SKIP() << "every 32-bit time_t value converts";
  const TTime t(std::numeric_limits<time_t>::max());
  tm out;
  memset(&out, 0x5A, sizeof out);
  tm copy = out;
  EXPECT_EQ(t.GetGmtTm(&out), nullptr);
  EXPECT_EQ(memcmp(&out, &copy, sizeof out), 0);
  EXPECT_EQ(t.GetLocalTm(&out), nullptr);
  EXPECT_EQ(memcmp(&out, &copy, sizeof out), 0);
}

TEST(TTimeConversionTest, ValuesBefore1970ConvertWhereThePlatformTakesThem) {
  const TTime t(static_cast<time_t>(-86400));  // 1969-12-31 00:00:00 UTC
  tm out;
  memset(&out, 0x5A, sizeof out);
  tm copy = out;
  tm* result = t.GetGmtTm(&out);
  if (HasTimesBefore1970()) {
    ASSERT_NE(result, nullptr);
    EXPECT_EQ(out.tm_year, 69);
    EXPECT_EQ(out.tm_mon, 11);
    EXPECT_EQ(out.tm_mday, 31);
    EXPECT_EQ(out.tm_hour, 0);
  } else {
    EXPECT_EQ(result, nullptr);
    EXPECT_EQ(memcmp(&out, &copy, sizeof out), 0);
    EXPECT_EQ(t.GetLocalTm(&out), nullptr);
    EXPECT_EQ(memcmp(&out, &copy, sizeof out), 0);
  }
}

TEST(TTimeCurrentTest, CurrentTimeLiesBetweenTwoReadingsOfTheClock) {
  const time_t before = time(nullptr);
  const time_t now = TTime::GetCurrentTime().GetTime();
  const time_t after = time(nullptr);
  EXPECT_LE(before, now);
  EXPECT_LE(now, after);
}

}  // namespace
