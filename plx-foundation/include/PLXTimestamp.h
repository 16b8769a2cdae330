#pragma once

#include "PLXNumber.h"
#include "PLXString.h"

// A date of the Gregorian calendar (also before its time) and a time of day, in seconds and in no time zone
// of its own: whoever sets a timestamp knows whose clock it shows. SetNow gives the local one.
//
// The date is kept as a day number, one below the astronomical Julian Day Number of the same date: 2000-01-01
// is 2451544. Years are 0 to 65535; a day number beyond them shows as the nearest date of these years. A
// clock value out of range (hour 24, second 60) given when a timestamp is set carries on into the next
// minute, hour or day.
//
// A plain value: any thread may use a timestamp of its own, and the local time is that of the process's time
// zone.
class PLXTimestamp : public PLXObject {
 public:
  // ---- Tokens of a format, which Get replaces ----
  static PLXString const& kFormatHours;          // 1 to 12
  static PLXString const& kFormatPaddedHours;    // 01 to 12
  static PLXString const& kFormatMilitaryHours;  // 00 to 23
  static PLXString const& kFormatMinutes;
  static PLXString const& kFormatPaddedMinutes;
  static PLXString const& kFormatSeconds;
  static PLXString const& kFormatPaddedSeconds;
  static PLXString const& kFormatAMPM;
  static PLXString const& kFormatMonthName;             // January
  static PLXString const& kFormatAbbreviatedMonthName;  // Jan
  static PLXString const& kFormatMonthNumber;
  static PLXString const& kFormatPaddedMonthNumber;
  static PLXString const& kFormatDay;
  static PLXString const& kFormatPaddedDay;
  static PLXString const& kFormatYear;
  static PLXString const& kFormatYearWithinCentury;     // 00 to 99
  static PLXString const& kFormatDayOfWeek;             // Sunday
  static PLXString const& kFormatAbbreviatedDayOfWeek;  // Sun
  static PLXString const& kFormatNumberedDayOfWeek;     // 1, Sunday, to 7
  static PLXString const& kFormatDayOfYear;             // 1 to 366
  static PLXString const& kFormatPaddedDayOfYear;       // 001 to 366
  static PLXString const& kFormatWeekOfYear;            // 1 to 53; see GetDayOfYear
  static PLXString const& kFormatPaddedWeekOfYear;
  static PLXString const& kFormatJulianDayNumber;  // the day number, which no conversion to an offset moves

  // ---- Whole formats ----
  static PLXString const& kFormatRFC1123;        // Tue, 05 Mar 2002 14:07:09 -0500 (RFC 1123, section 5.2.14)
  static PLXString const& kFormatNumericalDate;  // 3/05/2002
  static PLXString const& kFormatMilitaryTime;   // 14:07:09
  static PLXString GetOperatingSystemDateFormatString();  // Tuesday, March 5, 2002
  static PLXString GetOperatingSystemTimeFormatString();  // 2:07 PM

  PLXTimestamp() { SetNow(); }
  PLXTimestamp(PLXUInt16 year_i, PLXUInt8 month_i, PLXUInt8 day_i, PLXUInt8 hour_i, PLXUInt8 minute_i,
               PLXUInt8 second_i) {
    SetDateAndTime(year_i, month_i, day_i, hour_i, minute_i, second_i);
  }
  explicit PLXTimestamp(PLXString const& text_i) { Set(text_i); }
  PLXTimestamp(PLXTimestamp const& other_i) noexcept = default;
  PLXTimestamp& operator=(PLXTimestamp const& other_i) noexcept = default;
  virtual ~PLXTimestamp() = default;

  // The current local time.
  void SetNow();
  // Reads what GetStringRepresentation writes, from the end: two characters each for second, minute, hour,
  // day and month, and what is left for the year. Missing characters, and characters that are no digits with
  // all behind them in the same field, count as 0; a year beyond 65535 as that.
  void Set(PLXString const& text_i);
  // Reads the first RFC 1123 date in the text and converts it to GMT by its zone ("GMT", or four digits
  // behind "+", "-" or no sign, which means "+"), or takes date and clock as they are written. The day of the
  // week is not compared with the date; an unknown month counts as 0. A text without such a date, or with
  // another zone to convert from, changes nothing.
  void SetFromRFC1123(PLXString const& text_i, bool keepClockAsWritten_i);

  // ---- Parts ----
  PLXUInt16 GetYear() const noexcept;
  PLXUInt8 GetMonth() const noexcept;
  PLXUInt8 GetDay() const noexcept;
  PLXUInt8 GetHour() const noexcept;
  PLXUInt8 GetMinute() const noexcept;
  PLXUInt8 GetSecond() const noexcept;
  bool IsALeapYear() const noexcept;
  PLXUInt8 GetDaysInMonth() const noexcept;
  static bool IsALeapYear(PLXUInt16 year_i) noexcept;
  static PLXUInt8 GetDaysInMonth(PLXUInt8 month_i, PLXUInt16 year_i) noexcept;  // 0 for no month

  // ---- Setting one part; false, with nothing changed, for a value out of range ----
  // A date that the calendar does not have runs on: 31 January with its month set to 2 is 3 March (2 March in
  // a leap year). Day 0 is the last of the month before, month 0 lies about a month before January.
  bool SetDay(PLXUInt8 day_i);
  bool SetMonth(PLXUInt8 month_i);
  bool SetYear(PLXUInt16 year_i);
  // These two move the clock by as many seconds as the number of the hour or minute changes: the hour 10 set
  // to 12 is two seconds later. AddHours and AddMinutes move it by whole hours and minutes.
  bool SetHour(PLXUInt8 hour_i);
  bool SetMinute(PLXUInt8 minute_i);
  bool SetSecond(PLXUInt8 second_i);

  // ---- Moving ----
  // A day number that leaves its 32 bits wraps around; of these, days and months then warn on the standard
  // error stream.
  PLXTimestamp& AddSeconds(PLXUInt32 seconds_i) noexcept;
  PLXTimestamp& SubtractSeconds(PLXUInt32 seconds_i) noexcept;
  PLXTimestamp& AddMinutes(PLXUInt32 minutes_i) noexcept;
  PLXTimestamp& SubtractMinutes(PLXUInt32 minutes_i) noexcept;
  PLXTimestamp& AddHours(PLXUInt32 hours_i) noexcept;
  PLXTimestamp& SubtractHours(PLXUInt32 hours_i) noexcept;
  PLXTimestamp& AddDays(PLXUInt32 days_i) noexcept;
  PLXTimestamp& SubtractDays(PLXUInt32 days_i) noexcept;
  // Month by month, each step as many days as the month it starts in has: 31 January and a month is 3 March
  // (2 March in a leap year), 31 March less a month the last of February.
  PLXTimestamp& AddMonths(PLXUInt32 months_i) noexcept;
  PLXTimestamp& SubtractMonths(PLXUInt32 months_i) noexcept;

  // ---- Text ----
  // YYYYMMDDhhmmss, the year as long as it is.
  PLXString GetStringRepresentation() const;
  // The format with its tokens replaced. The timestamp counts as local time: with `convertToOffset_i` it is
  // shown on a clock that is `offsetHours_i` ahead of GMT, else (and when the offset is null) as it is. What
  // is local, and the zone that is shown for it, follows from the whole hours of the offset that holds now,
  // whatever held at the date. See GetTimeZoneString for the zone.
  PLXString Get(PLXString const& format_i, bool convertToOffset_i = false,
                PLXNumber const& offsetHours_i = PLXNumber()) const;

  // "+0530" for 5.5. Minutes are 30 or 00: other fractions show the hour alone. "GMT" for no offset.
  static PLXString GetTimeZoneString(PLXNumber const& offsetHours_i);
  // The way back. "GMT" in any letter case is 0. Requires: four characters behind the sign, blanks aside;
  // what is no digit among them counts as SetFromRFC1123 says of its own.
  static void GetTimeZoneNumber(PLXString const& timeZone_i, bool& isPositive_o, PLXUInt8& hours_o,
                                PLXUInt8& minutes_o);

 private:
  void SetDateAndTime(PLXUInt16 year_i, PLXUInt8 month_i, PLXUInt8 day_i, PLXUInt8 hour_i, PLXUInt8 minute_i,
                      PLXUInt8 second_i) noexcept;
  void MoveByHours(PLXNumber const& hours_i);

  PLXUInt32 myJulianDayNumber;
  PLXUInt32 mySecondOfDay;  // 0 to 86399
};

// ---- The calendar behind it, in the day numbers of PLXTimestamp ----

PLXUInt8 GetDayOfWeek(PLXUInt32 julianDayNumber_i) noexcept;  // 1, Sunday, to 7
PLXUInt32 GetSecondsFromHMS(PLXUInt8 hour_i, PLXUInt8 minute_i, PLXUInt8 second_i) noexcept;
// Requires: less than 256 hours.
void GetHMSFromSeconds(PLXUInt32 seconds_i, PLXUInt8& hour_o, PLXUInt8& minute_o,
                       PLXUInt8& second_o) noexcept;
void GetMDYFromJDN(PLXUInt32 julianDayNumber_i, PLXUInt8& month_o, PLXUInt8& day_o,
                   PLXUInt16& year_o) noexcept;
// Days that the month does not have, and months above 12, run on.
PLXUInt32 GetJDNFromMDY(PLXUInt8 month_i, PLXUInt8 day_i, PLXUInt16 year_i) noexcept;
// The weeks of a year are its days 1 to 7, 8 to 14 and so on, counted from 1.
PLXUInt16 GetDayOfYear(PLXUInt8 month_i, PLXUInt8 day_i, PLXUInt16 year_i,
                       PLXUInt8* weekOfYear_o = nullptr) noexcept;
