#pragma once

#include "PLXNumber.h"
#include "PLXString.h"

// What GetDateTimeValue shows of a date and time.
enum PLXJulianDayField : PLXUInt32 {
  kPLXJulianDay_LongMonthName = 0,  // January
  kPLXJulianDay_ShortMonthName,     // Jan
  kPLXJulianDay_Day,
  kPLXJulianDay_PaddedDay,  // padded fields have two digits
  kPLXJulianDay_Month,
  kPLXJulianDay_PaddedMonth,
  kPLXJulianDay_LongDayName,   // Sunday
  kPLXJulianDay_ShortDayName,  // Sun
  kPLXJulianDay_Year,
  kPLXJulianDay_YearWithinCentury,  // 00 to 99
  kPLXJulianDay_Hour,               // 0 to 23
  kPLXJulianDay_PaddedHour,
  kPLXJulianDay_Minute,
  kPLXJulianDay_PaddedMinute,
  kPLXJulianDay_Second,
  kPLXJulianDay_PaddedSecond,
  kPLXJulianDay_DayOfWeek,  // 1, Sunday, to 7
};

// A date and time as one decimal number: the day number of PLXTimestamp and the fraction of the day that has
// passed since midnight, to eight decimals when made from a clock (less than a millisecond). A value type of
// one thread, as its number is.
class PLXJulianDay : public PLXObject {
 public:
  PLXJulianDay();  // now, by the local clock
  explicit PLXJulianDay(PLXUInt32 julianDayNumber_i);
  // A clock value out of range carries on into the next day.
  PLXJulianDay(PLXUInt16 year_i, PLXUInt8 month_i, PLXUInt8 day_i, PLXUInt8 hour_i, PLXUInt8 minute_i,
               PLXUInt8 second_i);
  // Keeps the number as it is; the day number is its integral part, 0 for null. A number that is negative or
  // beyond 32 bits is reported as PLXNumber does, and the day number is the nearest limit.
  explicit PLXJulianDay(PLXNumber const& realValue_i);
  PLXJulianDay(PLXJulianDay const& other_i) noexcept = default;
  PLXJulianDay& operator=(PLXJulianDay const& other_i) noexcept = default;
  virtual ~PLXJulianDay() = default;

  PLXUInt32 GetValue() const noexcept { return myJulianDayNumber; }
  PLXNumber const& GetRealValue() const noexcept { return myRealValue; }
  // The field, the time of day rounded to the second within its day; empty for no PLXJulianDayField.
  PLXString GetDateTimeValue(PLXUInt32 field_i) const;

  // Names of the months 1 to 12; empty for any other.
  static PLXString GetLongMonth(PLXUInt32 month_i);
  static PLXString GetShortMonth(PLXUInt32 month_i);
  static PLXUInt32 CalculateJDNumber(PLXUInt8 month_i, PLXUInt8 day_i, PLXUInt16 year_i) noexcept;
  // The part of a day, to eight decimals.
  static PLXNumber CalculateJDFraction(PLXUInt8 hour_i, PLXUInt8 minute_i, PLXUInt8 second_i);

 private:
  PLXUInt32 GetSecondOfDay() const;

  PLXNumber myRealValue;
  PLXUInt32 myJulianDayNumber;
};
