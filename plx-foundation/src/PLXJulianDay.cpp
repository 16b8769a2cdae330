#include "PLXJulianDay.h"

#include <iterator>

#include "PLXCalendar.h"
#include "PLXStringUtility.h"
#include "PLXTimestamp.h"

namespace {

PLXString Number(PLXUInt32 value_i, unsigned digits_i = 1) {
  return PLXStringUtility::GetStringRepresentation(value_i, 10, digits_i);
}

}  // namespace

PLXJulianDay::PLXJulianDay() {
  PLXTimestamp const now;
  *this = PLXJulianDay(now.GetYear(), now.GetMonth(), now.GetDay(), now.GetHour(), now.GetMinute(),
                       now.GetSecond());
}

PLXJulianDay::PLXJulianDay(PLXUInt32 julianDayNumber_i)
    : myRealValue(julianDayNumber_i), myJulianDayNumber(julianDayNumber_i) {}

PLXJulianDay::PLXJulianDay(PLXUInt16 year_i, PLXUInt8 month_i, PLXUInt8 day_i, PLXUInt8 hour_i,
                           PLXUInt8 minute_i, PLXUInt8 second_i)
    : PLXJulianDay(PLXNumber(CalculateJDNumber(month_i, day_i, year_i)) +
                   CalculateJDFraction(hour_i, minute_i, second_i)) {}

PLXJulianDay::PLXJulianDay(PLXNumber const& realValue_i)
    : myRealValue(realValue_i), myJulianDayNumber(static_cast<unsigned int>(realValue_i)) {}

PLXUInt32 PLXJulianDay::GetSecondOfDay() const {
  PLXNumber seconds((myRealValue - myJulianDayNumber) * kSecondsPerDay);
  seconds.Round(0);
  if (seconds.IsNull() || seconds.IsNegative()) return 0;
  return seconds < kSecondsPerDay ? static_cast<unsigned int>(seconds) : kSecondsPerDay - 1;
}

PLXString PLXJulianDay::GetDateTimeValue(PLXUInt32 field_i) const {
  PLXUInt16 year;
  PLXUInt8 month, day, hour, minute, second;
  GetMDYFromJDN(myJulianDayNumber, month, day, year);
  GetHMSFromSeconds(GetSecondOfDay(), hour, minute, second);
  PLXUInt8 const dayOfWeek = GetDayOfWeek(myJulianDayNumber);
  switch (field_i) {
    case kPLXJulianDay_LongMonthName:
      return GetLongMonth(month);
    case kPLXJulianDay_ShortMonthName:
      return GetShortMonth(month);
    case kPLXJulianDay_Day:
      return Number(day);
    case kPLXJulianDay_PaddedDay:
      return Number(day, 2);
    case kPLXJulianDay_Month:
      return Number(month);
    case kPLXJulianDay_PaddedMonth:
      return Number(month, 2);
    case kPLXJulianDay_LongDayName:
      return PLXString(kDayNames[dayOfWeek - 1]);
    case kPLXJulianDay_ShortDayName:
      return PLXString(kAbbreviatedDayNames[dayOfWeek - 1]);
    case kPLXJulianDay_Year:
      return Number(year);
    case kPLXJulianDay_YearWithinCentury:
      return Number(year % 100U, 2);
    case kPLXJulianDay_Hour:
      return Number(hour);
    case kPLXJulianDay_PaddedHour:
      return Number(hour, 2);
    case kPLXJulianDay_Minute:
      return Number(minute);
    case kPLXJulianDay_PaddedMinute:
      return Number(minute, 2);
    case kPLXJulianDay_Second:
      return Number(second);
    case kPLXJulianDay_PaddedSecond:
      return Number(second, 2);
    case kPLXJulianDay_DayOfWeek:
      return Number(dayOfWeek);
    default:
      return PLXString();
  }
}

PLXString PLXJulianDay::GetLongMonth(PLXUInt32 month_i) {
  return month_i - 1 < std::size(kMonthNames) ? PLXString(kMonthNames[month_i - 1]) : PLXString();
}

PLXString PLXJulianDay::GetShortMonth(PLXUInt32 month_i) {
  return month_i - 1 < std::size(kMonthNames) ? PLXString(kAbbreviatedMonthNames[month_i - 1]) : PLXString();
}

PLXUInt32 PLXJulianDay::CalculateJDNumber(PLXUInt8 month_i, PLXUInt8 day_i, PLXUInt16 year_i) noexcept {
  return GetJDNFromMDY(month_i, day_i, year_i);
}

PLXNumber PLXJulianDay::CalculateJDFraction(PLXUInt8 hour_i, PLXUInt8 minute_i, PLXUInt8 second_i) {
  return PLXNumber(GetSecondsFromHMS(hour_i, minute_i, second_i)) / kSecondsPerDay;
}
