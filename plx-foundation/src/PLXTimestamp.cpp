#include "PLXTimestamp.h"

#include <algorithm>
#include <cstdint>
#include <iterator>

#include "PLXCalendar.h"

// Dates become day numbers and back by sums of the calendar's mean lengths (365.25 days, 30.6001 days), in
// years that begin with March, so that the leap day comes last. All of it is integer arithmetic, in 64 bits
// where a 32-bit day number is multiplied.

namespace {

char const ourSourceFile[] = "src/PLXTimestamp.cpp";

constexpr PLXUInt32 kSecondsPerMinute = 60;
constexpr PLXUInt32 kSecondsPerHour = 3600;

// The calendar repeats itself, days of the week included, after 400 years.
constexpr PLXUInt32 kMonthsPerCycle = 4800;
constexpr PLXUInt32 kDaysPerCycle = 146097;
constexpr PLXUInt32 kMostDays = 0xFFFFFFFF;

constexpr PLXUInt8 kDaysInMonth[] = {0, 31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};

struct Date {
  int year;  // -4713 to about eleven million
  PLXUInt8 month;
  PLXUInt8 day;
};

bool IsLeap(int year_i) { return (year_i % 4 == 0 && year_i % 100 != 0) || year_i % 400 == 0; }

PLXUInt8 DaysInMonth(PLXUInt8 month_i, int year_i) {
  if (month_i >= std::size(kDaysInMonth)) return 0;
  return month_i == 2 && IsLeap(year_i) ? 29 : kDaysInMonth[month_i];
}

Date DateFromDayNumber(PLXUInt32 number_i) {
  std::int64_t rest = std::int64_t{number_i} + 68570;
  std::int64_t const century = 4 * rest / 146097;
  rest -= (146097 * century + 3) / 4;
  std::int64_t const year = 4000 * (rest + 1) / 1461001;
  rest += 31 - 1461 * year / 4;
  std::int64_t const month = 80 * rest / 2447;
  std::int64_t const turn = month / 11;  // 1 in January and February, which end the year before
  return {static_cast<int>(100 * century + year + turn - 4900), static_cast<PLXUInt8>(month + 2 - 12 * turn),
          static_cast<PLXUInt8>(rest - 2447 * month / 80)};
}

constexpr PLXUInt32 DayNumberFromDate(int month_i, int day_i, int year_i) {
  if (month_i == 1 || month_i == 2) {
    --year_i;
    month_i += 12;
  }
  // The year before year 0 is the one negative year, and cutting its century to 0 gives the same sum.
  int const century = year_i / 100;
  int const days =
      1461 * (year_i + 4716) / 4 + 306001 * (month_i + 1) / 10000 + day_i + 2 - century + century / 4;
  return static_cast<PLXUInt32>(days - 1525);
}

// The nearest date whose year is one of the interface.
Date ShownDate(PLXUInt32 number_i) {
  constexpr PLXUInt32 kFirst = DayNumberFromDate(1, 1, 0);
  constexpr PLXUInt32 kLast = DayNumberFromDate(12, 31, 65535);
  return DateFromDayNumber(std::clamp(number_i, kFirst, kLast));
}

// By how many days `months_i` steps move a date, each as long as the month it starts in.
std::uint64_t DaysOfMonths(PLXUInt32 number_i, PLXUInt32 months_i, bool isForward_i) {
  std::uint64_t days = 0;
  // Once all of February's lengths are passed, the steps keep the day of the month (backward, its distance
  // from the end), and every cycle is as long as any other.
  if (months_i > kMonthsPerCycle) {
    PLXUInt32 const cycles = months_i / kMonthsPerCycle - 1;
    months_i -= cycles * kMonthsPerCycle;
    days = std::uint64_t{cycles} * kDaysPerCycle;
  }
  for (; months_i > 0; --months_i) {
    Date const date = DateFromDayNumber(number_i);
    PLXUInt8 const length = DaysInMonth(date.month, date.year);
    number_i = isForward_i ? number_i + length : number_i - length;
    days += length;
  }
  return days;
}

// Whole days and what is left of a day.
void AddToClock(std::uint64_t seconds_i, PLXUInt32& day_io, PLXUInt32& second_io) {
  std::uint64_t const second = second_io + seconds_i;
  day_io += static_cast<PLXUInt32>(second / kSecondsPerDay);
  second_io = static_cast<PLXUInt32>(second % kSecondsPerDay);
}

void SubtractFromClock(std::uint64_t seconds_i, PLXUInt32& day_io, PLXUInt32& second_io) {
  day_io -= static_cast<PLXUInt32>(seconds_i / kSecondsPerDay);
  PLXUInt32 const left = static_cast<PLXUInt32>(seconds_i % kSecondsPerDay);
  if (left > second_io) {
    --day_io;
    second_io += kSecondsPerDay;
  }
  second_io -= left;
}

}  // namespace

void PLXTimestamp::SetNow() {
  tm const local = GetLocalTime();
  SetDateAndTime(static_cast<PLXUInt16>(local.tm_year + 1900), static_cast<PLXUInt8>(local.tm_mon + 1),
                 static_cast<PLXUInt8>(local.tm_mday), static_cast<PLXUInt8>(local.tm_hour),
                 static_cast<PLXUInt8>(local.tm_min), static_cast<PLXUInt8>(local.tm_sec));
}

void PLXTimestamp::SetDateAndTime(PLXUInt16 year_i, PLXUInt8 month_i, PLXUInt8 day_i, PLXUInt8 hour_i,
                                  PLXUInt8 minute_i, PLXUInt8 second_i) noexcept {
  myJulianDayNumber = GetJDNFromMDY(month_i, day_i, year_i);
  mySecondOfDay = 0;
  AddSeconds(GetSecondsFromHMS(hour_i, minute_i, second_i));
}

// ---- Parts ----

PLXUInt16 PLXTimestamp::GetYear() const noexcept {
  return static_cast<PLXUInt16>(ShownDate(myJulianDayNumber).year);
}

PLXUInt8 PLXTimestamp::GetMonth() const noexcept { return ShownDate(myJulianDayNumber).month; }

PLXUInt8 PLXTimestamp::GetDay() const noexcept { return ShownDate(myJulianDayNumber).day; }

PLXUInt8 PLXTimestamp::GetHour() const noexcept {
  return static_cast<PLXUInt8>(mySecondOfDay / kSecondsPerHour);
}

PLXUInt8 PLXTimestamp::GetMinute() const noexcept {
  return static_cast<PLXUInt8>(mySecondOfDay % kSecondsPerHour / kSecondsPerMinute);
}

PLXUInt8 PLXTimestamp::GetSecond() const noexcept {
  return static_cast<PLXUInt8>(mySecondOfDay % kSecondsPerMinute);
}

bool PLXTimestamp::IsALeapYear() const noexcept { return IsALeapYear(GetYear()); }

PLXUInt8 PLXTimestamp::GetDaysInMonth() const noexcept { return GetDaysInMonth(GetMonth(), GetYear()); }

bool PLXTimestamp::IsALeapYear(PLXUInt16 year_i) noexcept { return IsLeap(year_i); }

PLXUInt8 PLXTimestamp::GetDaysInMonth(PLXUInt8 month_i, PLXUInt16 year_i) noexcept {
  return DaysInMonth(month_i, year_i);
}

// ---- Setting one part ----

bool PLXTimestamp::SetDay(PLXUInt8 day_i) {
  if (day_i > GetDaysInMonth()) return false;
  myJulianDayNumber = GetJDNFromMDY(GetMonth(), day_i, GetYear());
  return true;
}

bool PLXTimestamp::SetMonth(PLXUInt8 month_i) {
  if (month_i > 12) return false;
  myJulianDayNumber = GetJDNFromMDY(month_i, GetDay(), GetYear());
  return true;
}

bool PLXTimestamp::SetYear(PLXUInt16 year_i) {
  myJulianDayNumber = GetJDNFromMDY(GetMonth(), GetDay(), year_i);
  return true;
}

bool PLXTimestamp::SetHour(PLXUInt8 hour_i) {
  if (hour_i > 23) return false;
  mySecondOfDay = mySecondOfDay - GetHour() + hour_i;
  return true;
}

bool PLXTimestamp::SetMinute(PLXUInt8 minute_i) {
  if (minute_i > 59) return false;
  mySecondOfDay = mySecondOfDay - GetMinute() + minute_i;
  return true;
}

bool PLXTimestamp::SetSecond(PLXUInt8 second_i) {
  if (second_i > 59) return false;
  mySecondOfDay = mySecondOfDay - GetSecond() + second_i;
  return true;
}

// ---- Moving ----

PLXTimestamp& PLXTimestamp::AddSeconds(PLXUInt32 seconds_i) noexcept {
  AddToClock(seconds_i, myJulianDayNumber, mySecondOfDay);
  return *this;
}

PLXTimestamp& PLXTimestamp::SubtractSeconds(PLXUInt32 seconds_i) noexcept {
  SubtractFromClock(seconds_i, myJulianDayNumber, mySecondOfDay);
  return *this;
}

PLXTimestamp& PLXTimestamp::AddMinutes(PLXUInt32 minutes_i) noexcept {
  AddToClock(std::uint64_t{minutes_i} * kSecondsPerMinute, myJulianDayNumber, mySecondOfDay);
  return *this;
}

PLXTimestamp& PLXTimestamp::SubtractMinutes(PLXUInt32 minutes_i) noexcept {
  SubtractFromClock(std::uint64_t{minutes_i} * kSecondsPerMinute, myJulianDayNumber, mySecondOfDay);
  return *this;
}

PLXTimestamp& PLXTimestamp::AddHours(PLXUInt32 hours_i) noexcept {
  AddToClock(std::uint64_t{hours_i} * kSecondsPerHour, myJulianDayNumber, mySecondOfDay);
  return *this;
}

PLXTimestamp& PLXTimestamp::SubtractHours(PLXUInt32 hours_i) noexcept {
  SubtractFromClock(std::uint64_t{hours_i} * kSecondsPerHour, myJulianDayNumber, mySecondOfDay);
  return *this;
}

PLXTimestamp& PLXTimestamp::AddDays(PLXUInt32 days_i) noexcept {
  myJulianDayNumber += days_i;
  if (myJulianDayNumber <= days_i) PLXWarnState(ourSourceFile, "myJulianDayNumber <= days_i");
  return *this;
}

PLXTimestamp& PLXTimestamp::SubtractDays(PLXUInt32 days_i) noexcept {
  if (days_i > myJulianDayNumber) PLXWarnState(ourSourceFile, "days_i > myJulianDayNumber");
  myJulianDayNumber -= days_i;
  return *this;
}

PLXTimestamp& PLXTimestamp::AddMonths(PLXUInt32 months_i) noexcept {
  std::uint64_t days = DaysOfMonths(myJulianDayNumber, months_i, true);
  for (; days > kMostDays; days -= kMostDays) AddDays(kMostDays);
  return AddDays(static_cast<PLXUInt32>(days));
}

PLXTimestamp& PLXTimestamp::SubtractMonths(PLXUInt32 months_i) noexcept {
  std::uint64_t days = DaysOfMonths(myJulianDayNumber, months_i, false);
  for (; days > kMostDays; days -= kMostDays) SubtractDays(kMostDays);
  return SubtractDays(static_cast<PLXUInt32>(days));
}

// ---- The calendar ----

PLXUInt8 GetDayOfWeek(PLXUInt32 julianDayNumber_i) noexcept {
  return static_cast<PLXUInt8>((julianDayNumber_i % 7 + 2) % 7 + 1);
}

PLXUInt32 GetSecondsFromHMS(PLXUInt8 hour_i, PLXUInt8 minute_i, PLXUInt8 second_i) noexcept {
  return hour_i * kSecondsPerHour + minute_i * kSecondsPerMinute + second_i;
}

void GetHMSFromSeconds(PLXUInt32 seconds_i, PLXUInt8& hour_o, PLXUInt8& minute_o,
                       PLXUInt8& second_o) noexcept {
  hour_o = static_cast<PLXUInt8>(seconds_i / kSecondsPerHour);
  minute_o = static_cast<PLXUInt8>(seconds_i % kSecondsPerHour / kSecondsPerMinute);
  second_o = static_cast<PLXUInt8>(seconds_i % kSecondsPerMinute);
}

void GetMDYFromJDN(PLXUInt32 julianDayNumber_i, PLXUInt8& month_o, PLXUInt8& day_o,
                   PLXUInt16& year_o) noexcept {
  Date const date = ShownDate(julianDayNumber_i);
  month_o = date.month;
  day_o = date.day;
  year_o = static_cast<PLXUInt16>(date.year);
}

PLXUInt32 GetJDNFromMDY(PLXUInt8 month_i, PLXUInt8 day_i, PLXUInt16 year_i) noexcept {
  return DayNumberFromDate(month_i, day_i, year_i);
}

PLXUInt16 GetDayOfYear(PLXUInt8 month_i, PLXUInt8 day_i, PLXUInt16 year_i, PLXUInt8* weekOfYear_o) noexcept {
  int day = day_i;
  for (PLXUInt8 month = 1; month < month_i; ++month) day += DaysInMonth(month, year_i);
  if (weekOfYear_o != nullptr) *weekOfYear_o = static_cast<PLXUInt8>((day - 1) / 7 + 1);
  return static_cast<PLXUInt16>(day);
}
