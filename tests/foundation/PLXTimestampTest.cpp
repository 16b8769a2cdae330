#include <atomic>
#include <ctime>
#include <functional>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "FoundationPrinters.h"
#include "PLXTimestamp.h"
#include "TextRows.h"

// These hold in every time zone; the suite runs them in several.

namespace {

constexpr std::int64_t kSecondsPerDay = 86400;
constexpr PLXUInt32 kUnixEpoch = 2440587;  // 1970-01-01

std::string Compact(PLXTimestamp const& timestamp_i) { return Std(timestamp_i.GetStringRepresentation()); }

PLXTimestamp Stamp(char const* text_i) { return PLXTimestamp(PLXString(text_i)); }

std::string Errors(std::function<void()> const& action_i) {
  testing::internal::CaptureStderr();
  action_i();
  return testing::internal::GetCapturedStderr();
}

std::time_t SystemTime(PLXUInt32 day_i, PLXUInt32 second_i = 0) {
  return (std::int64_t{day_i} - kUnixEpoch) * kSecondsPerDay + second_i;
}

tm LocalTime(std::time_t time_i) {
  tm local = {};
  localtime_r(&time_i, &local);
  return local;
}

int LocalOffset() { return static_cast<int>(LocalTime(std::time(nullptr)).tm_gmtoff / 3600); }

std::string Strftime(char const* format_i, tm const& time_i) {
  char text[64];
  return {text, std::strftime(text, sizeof text, format_i, &time_i)};
}

// ---- The calendar ----

TEST(PLXTimestampCalendar, IsTheOneOfTheCLibrary) {
  PLXUInt32 const first = GetJDNFromMDY(1, 1, 0);
  PLXUInt32 const last = GetJDNFromMDY(12, 31, 65535);
  EXPECT_EQ(first, 1721059u);
  // Every day of 1600 to 2400, every 41st of the years before and after.
  PLXUInt32 const whole = GetJDNFromMDY(1, 1, 1600), wholeEnd = GetJDNFromMDY(1, 1, 2401);
  for (PLXUInt32 number = first; number <= last && !HasFailure();
       number += number >= whole && number < wholeEnd ? 1 : 41) {
    std::time_t const time = SystemTime(number);
    tm expected = {};
    gmtime_r(&time, &expected);
    PLXUInt16 year;
    PLXUInt8 month, day, week;
    GetMDYFromJDN(number, month, day, year);
    SCOPED_TRACE(number);
    EXPECT_EQ(year, expected.tm_year + 1900);
    EXPECT_EQ(month, expected.tm_mon + 1);
    EXPECT_EQ(day, expected.tm_mday);
    EXPECT_EQ(GetDayOfWeek(number), expected.tm_wday + 1);
    EXPECT_EQ(GetDayOfYear(month, day, year, &week), expected.tm_yday + 1);
    EXPECT_EQ(week, expected.tm_yday / 7 + 1);
    EXPECT_EQ(GetJDNFromMDY(month, day, year), number);
  }
}

TEST(PLXTimestampCalendar, StaysDefinedAtItsEdges) {
  PLXUInt16 year;
  PLXUInt8 month, day;
  GetMDYFromJDN(0, month, day, year);
  EXPECT_EQ((std::vector<int>{year, month, day}), (std::vector<int>{0, 1, 1}));
  GetMDYFromJDN(0xFFFFFFFF, month, day, year);
  EXPECT_EQ((std::vector<int>{year, month, day}), (std::vector<int>{65535, 12, 31}));
  EXPECT_EQ(GetDayOfWeek(0xFFFFFFFF), (0xFFFFFFFFu + 2ull) % 7 + 1);
  EXPECT_EQ(PLXTimestamp::GetDaysInMonth(0, 2000), 0);
  EXPECT_EQ(PLXTimestamp::GetDaysInMonth(13, 2000), 0);
  EXPECT_EQ(PLXTimestamp::GetDaysInMonth(255, 2000), 0);
  PLXUInt8 week;
  EXPECT_EQ(GetDayOfYear(0, 0, 2000, &week), 0);
  EXPECT_EQ(week, 1);
  EXPECT_EQ(GetDayOfYear(255, 255, 2000), 366 + 255);
}

// ---- Setting ----

TEST(PLXTimestampSet, ReadsTheCompactFormFromItsEnd) {
  TextRow const rows[] = {
      {"as it is written", "20000101000000", "20000101000000"},
      {"a short year", "50301120000", "50301120000"},
      {"a clock out of range carries on", "20001231235960", "20010101000000"},
      {"each part carries on", "20001231996199", "20010104040239"},
      {"a day that the month does not have", "20010231000000", "20010303000000"},
      {"day 0 is the last of the month before", "20010300000000", "20010228000000"},
      {"a year too great",
       "123456789"
       "0101000000",
       "655350101000000"},
      {"what is no digit counts as 0", "2001010112-130", "20010101120030"},
  };
  ExpectTexts(rows, [](std::string const& text_i) { return Compact(Stamp(text_i.c_str())); });
}

TEST(PLXTimestampSet, TakesTheCurrentLocalTime) {
  std::time_t const before = std::time(nullptr);
  std::string const text = Compact(PLXTimestamp());
  std::time_t const after = std::time(nullptr);
  EXPECT_GE(text, Strftime("%Y%m%d%H%M%S", LocalTime(before)));
  EXPECT_LE(text, Strftime("%Y%m%d%H%M%S", LocalTime(after)));
}

TEST(PLXTimestampSet, ChangesOnePart) {
  struct Row {
    char const* why;
    char const* before;
    char part;
    PLXUInt16 value;
    bool isSet;
    char const* after;
  };
  auto const set = [](PLXTimestamp& stamp_io, char part_i, PLXUInt16 value_i) {
    auto const value = static_cast<PLXUInt8>(value_i);
    return part_i == 'Y'   ? stamp_io.SetYear(value_i)
           : part_i == 'M' ? stamp_io.SetMonth(value)
           : part_i == 'D' ? stamp_io.SetDay(value)
           : part_i == 'h' ? stamp_io.SetHour(value)
           : part_i == 'm' ? stamp_io.SetMinute(value)
                           : stamp_io.SetSecond(value);
  };
  Row const rows[] = {
      {"the leap day is there", "20000205101112", 'D', 29, true, "20000229101112"},
      {"no leap day", "20010205101112", 'D', 29, false, "20010205101112"},
      {"day 0", "20010305101112", 'D', 0, true, "20010228101112"},
      {"a month without the day", "20010131101112", 'M', 2, true, "20010303101112"},
      {"a leap month without the day", "20000131101112", 'M', 2, true, "20000302101112"},
      {"month 13", "20010131101112", 'M', 13, false, "20010131101112"},
      {"a year without the leap day", "20000229101112", 'Y', 2001, true, "20010301101112"},
      {"the last year", "20000101101112", 'Y', 65535, true, "655350101101112"},
      {"hours count as seconds", "20010131101112", 'h', 12, true, "20010131101114"},
      {"hours count as seconds, backward over the minute", "20010131101102", 'h', 5, true, "20010131101057"},
      {"hour 24", "20010131101112", 'h', 24, false, "20010131101112"},
      {"minutes count as seconds", "20010131101112", 'm', 59, true, "20010131101200"},
      {"minute 60", "20010131101112", 'm', 60, false, "20010131101112"},
      {"second", "20010131101112", 's', 59, true, "20010131101159"},
      {"second 60", "20010131101112", 's', 60, false, "20010131101112"},
  };
  for (Row const& row : rows) {
    SCOPED_TRACE(row.why);
    PLXTimestamp stamp = Stamp(row.before);
    EXPECT_EQ(set(stamp, row.part, row.value), row.isSet);
    EXPECT_EQ(Compact(stamp), row.after);
  }
}

// ---- Moving ----

TEST(PLXTimestampMove, GoesSecondsThereAndBack) {
  std::mt19937 random(7);
  PLXTimestamp const start = Stamp("20000229235959");
  PLXUInt32 const day = GetJDNFromMDY(2, 29, 2000);
  for (int round = 0; round < 2000 && !HasFailure(); ++round) {
    PLXUInt32 const count = static_cast<PLXUInt32>(random()) >> random() % 32;
    SCOPED_TRACE(count);
    for (unsigned const unit : {1u, 60u, 3600u}) {
      PLXTimestamp stamp(start);
      if (unit == 1) stamp.AddSeconds(count);
      if (unit == 60) stamp.AddMinutes(count);
      if (unit == 3600) stamp.AddHours(count);
      std::time_t const time = SystemTime(day, 86399) + std::int64_t{count} * unit;
      tm expected = {};
      gmtime_r(&time, &expected);
      if (expected.tm_year + 1900 <= 65535) {
        EXPECT_EQ(Compact(stamp), Strftime("%Y%m%d%H%M%S", expected));
      }
      if (unit == 1) stamp.SubtractSeconds(count);
      if (unit == 60) stamp.SubtractMinutes(count);
      if (unit == 3600) stamp.SubtractHours(count);
      EXPECT_EQ(Compact(stamp), "20000229235959");
    }
  }
  EXPECT_EQ(Compact(Stamp("20000101000000").SubtractSeconds(1)), "19991231235959");
  EXPECT_EQ(Compact(Stamp("20000101000000").AddSeconds(90000)), "20000102010000");
}

TEST(PLXTimestampMove, GoesDaysAndWarnsWhereTheyWrap) {
  EXPECT_EQ(Errors([] {
              EXPECT_EQ(Compact(Stamp("20000228101112").AddDays(2)), "20000301101112");
              EXPECT_EQ(Compact(Stamp("20000301101112").SubtractDays(366)), "19990301101112");
              EXPECT_EQ(Compact(Stamp("20000301101112").SubtractDays(2451604)), "00101101112");
            }),
            "");
  EXPECT_EQ(Errors([] { EXPECT_EQ(Compact(Stamp("20000301101112").AddDays(0xFFFFFFFF)), "20000229101112"); }),
            "\tFILE: \"src/PLXTimestamp.cpp\"\nSTATE WARNING: myJulianDayNumber <= days_i\n");
  EXPECT_EQ(Errors([] {
              PLXTimestamp stamp = Stamp("20000301101112");
              stamp.SubtractDays(3000000);
              stamp.AddSeconds(kSecondsPerDay * 40000);
              EXPECT_EQ(stamp.GetYear(), 65535);
            }),
            "\tFILE: \"src/PLXTimestamp.cpp\"\nSTATE WARNING: days_i > myJulianDayNumber\n");
}

TEST(PLXTimestampMove, GoesMonthsByTheLengthOfTheMonthItIsIn) {
  EXPECT_EQ(Compact(Stamp("20010131101112").AddMonths(1)), "20010303101112");
  EXPECT_EQ(Compact(Stamp("20000131101112").AddMonths(1)), "20000302101112");
  EXPECT_EQ(Compact(Stamp("20010331101112").SubtractMonths(1)), "20010228101112");
  EXPECT_EQ(Compact(Stamp("20010301101112").SubtractMonths(1)), "20010129101112");
  EXPECT_EQ(Compact(Stamp("20000229101112").AddMonths(0)), "20000229101112");

  // Thousands of months at once land where single steps do, from every day that a month may have.
  for (char const* const start : {"20000131000000", "20000229000000", "19960301000000", "20230730000000"}) {
    PLXTimestamp forward = Stamp(start), backward = Stamp(start);
    for (PLXUInt32 months = 0; months <= 20000; ++months) {
      if (months % 37 == 0 || months % 4800 < 2) {
        EXPECT_EQ(Compact(Stamp(start).AddMonths(months)), Compact(forward)) << start << " + " << months;
        EXPECT_EQ(Compact(Stamp(start).SubtractMonths(months)), Compact(backward))
            << start << " - " << months;
      }
      forward.AddDays(forward.GetDaysInMonth());
      backward.SubtractDays(backward.GetDaysInMonth());
    }
  }
  EXPECT_NE(Errors([] { Stamp("20000101000000").AddMonths(0xFFFFFFFF); }), "");
}

// ---- Formatting ----

TEST(PLXTimestampFormat, ReplacesTokensAsTheCLibraryDoes) {
  struct {
    PLXString const& token;
    char const* format;
  } const tokens[] = {{PLXTimestamp::kFormatHours, "%-I"},
                      {PLXTimestamp::kFormatPaddedHours, "%I"},
                      {PLXTimestamp::kFormatMilitaryHours, "%H"},
                      {PLXTimestamp::kFormatMinutes, "%-M"},
                      {PLXTimestamp::kFormatPaddedMinutes, "%M"},
                      {PLXTimestamp::kFormatSeconds, "%-S"},
                      {PLXTimestamp::kFormatPaddedSeconds, "%S"},
                      {PLXTimestamp::kFormatAMPM, "%p"},
                      {PLXTimestamp::kFormatMonthName, "%B"},
                      {PLXTimestamp::kFormatAbbreviatedMonthName, "%b"},
                      {PLXTimestamp::kFormatMonthNumber, "%-m"},
                      {PLXTimestamp::kFormatPaddedMonthNumber, "%m"},
                      {PLXTimestamp::kFormatDay, "%-d"},
                      {PLXTimestamp::kFormatPaddedDay, "%d"},
                      {PLXTimestamp::kFormatYear, "%-Y"},
                      {PLXTimestamp::kFormatYearWithinCentury, "%y"},
                      {PLXTimestamp::kFormatDayOfWeek, "%A"},
                      {PLXTimestamp::kFormatAbbreviatedDayOfWeek, "%a"},
                      {PLXTimestamp::kFormatDayOfYear, "%-j"},
                      {PLXTimestamp::kFormatPaddedDayOfYear, "%j"},
                      {PLXTimestamp::kFormatNumericalDate, "%-m/%d/%-Y"},
                      {PLXTimestamp::kFormatMilitaryTime, "%H:%M:%S"},
                      {PLXTimestamp::GetOperatingSystemDateFormatString(), "%A, %B %-d, %-Y"},
                      {PLXTimestamp::GetOperatingSystemTimeFormatString(), "%-I:%M %p"}};
  PLXTimestamp stamp = Stamp("19991231000059");
  std::time_t time = SystemTime(GetJDNFromMDY(12, 31, 1999), 59);
  // Steps that meet every hour, day of the month, month and day of the week.
  for (int round = 0; round < 2000 && !HasFailure(); ++round) {
    tm expected = {};
    gmtime_r(&time, &expected);
    for (auto const& row : tokens) {
      EXPECT_EQ(Std(stamp.Get(row.token)), Strftime(row.format, expected))
          << Compact(stamp) << " " << row.format;
    }
    EXPECT_EQ(Std(stamp.Get(PLXTimestamp::kFormatNumberedDayOfWeek)), std::to_string(expected.tm_wday + 1));
    EXPECT_EQ(Std(stamp.Get(PLXTimestamp::kFormatWeekOfYear)), std::to_string(expected.tm_yday / 7 + 1));
    stamp.AddSeconds(1'000'003);
    time += 1'000'003;
  }
}

TEST(PLXTimestampFormat, HandlesTheRest) {
  PLXTimestamp const stamp = Stamp("20050205003007");
  struct Row {
    char const* why;
    PLXString format;
    char const* text;
  };
  PLXString const zeroByte("\0", 1);
  Row const rows[] = {
      {"week with two digits", PLXTimestamp::kFormatPaddedWeekOfYear, "06"},
      {"day number", PLXTimestamp::kFormatJulianDayNumber, "2453406"},
      {"letters without their bytes", "h YYYY GMTo", "h YYYY GMTo"},
      {"unknown and open tokens stay", "\001Q\001 \001h \001", "\001Q\001 \001h \001"},
      {"tokens are matched exactly", "\001H\001\001yyyy\001", "\001H\001\001yyyy\001"},
      {"a token twice, side by side", PLXTimestamp::kFormatDay + PLXTimestamp::kFormatDay, "55"},
      {"the first in order takes the byte that two share", "\001m\001h\001", "\001m12"},
      {"nothing", "", ""},
  };
  for (Row const& row : rows) {
    SCOPED_TRACE(row.why);
    EXPECT_EQ(Std(stamp.Get(row.format)), row.text);
  }
  EXPECT_EQ(stamp.Get(zeroByte + PLXTimestamp::kFormatYear + zeroByte), zeroByte + "2005" + zeroByte);
  EXPECT_EQ(
      Stamp("70101000000").Get(PLXTimestamp::kFormatYear + "/" + PLXTimestamp::kFormatYearWithinCentury),
      "7/07");

  // Linear in its format: a quadratic walk over eight megabytes would not come to an end.
  std::string format;
  for (int count = 0; count < 1 << 20; ++count) format += "\001MN\001 \001Q";
  EXPECT_EQ(stamp.Get(format.c_str()).GetLength(), 11u << 20);
}

TEST(PLXTimestampFormat, ConvertsFromLocalTime) {
  PLXTimestamp const stamp = Stamp("20020305140709");
  PLXString const format = PLXTimestamp::kFormatRFC1123 + " " + PLXTimestamp::kFormatJulianDayNumber + " " +
                           PLXTimestamp::kFormatDayOfYear;
  struct Row {
    char const* why;
    char const* offset;
    int minutes;
    char const* zone;
  };
  Row const rows[] = {
      {"whole hours", "-5", -300, "-0500"},
      {"half an hour", "5.5", 330, "+0530"},
      {"a quarter moves the clock, and shows the hour", "5.75", 345, "+0500"},
      {"a quarter west", "-0.75", -45, "GMT"},
      {"the next day but one", "50", 3000, "+5000"},
  };
  for (Row const& row : rows) {
    SCOPED_TRACE(row.why);
    // What the clock of GMT shows is the local one less the local offset.
    std::time_t const time =
        SystemTime(GetJDNFromMDY(3, 5, 2002), 50829) + (row.minutes - LocalOffset() * 60) * 60;
    tm expected = {};
    gmtime_r(&time, &expected);
    EXPECT_EQ(
        Std(stamp.Get(format, true, PLXNumber(row.offset))),
        Strftime("%a, %d %b %Y %H:%M:%S ", expected) + row.zone + " 2452338 " + Strftime("%-j", expected));
  }
  EXPECT_EQ(Compact(stamp), "20020305140709");

  // Not converting: the clock as it is, with the offset that holds now, in January and in July alike.
  std::string const zone = Std(PLXTimestamp::GetTimeZoneString(LocalOffset()));
  for (char const* const text : {"20020105140709", "20020705140709"}) {
    std::string const shown = Std(Stamp(text).Get("\001hh\001 \001GMTo\001"));
    EXPECT_EQ(shown, "14 " + zone);
    EXPECT_EQ(Std(Stamp(text).Get("\001hh\001 \001GMTo\001", true)), shown);
    EXPECT_EQ(Std(Stamp(text).Get("\001hh\001 \001GMTo\001", false, PLXNumber("3"))), shown);
    EXPECT_EQ(Std(Stamp(text).Get("\001hh\001", true, PLXNumber(LocalOffset()))), "14");
  }
  // Offsets beyond all reason are reported by the number and leave a date.
  EXPECT_NE(Errors([&] { stamp.Get(format, true, PLXNumber("-99999999999.5")); }), "");
  EXPECT_NE(Errors([&] { stamp.Get(format, true, PLXNumber::k_infinity); }), "");
}

// Worth something under the thread sanitizer.
TEST(PLXTimestampFormat, EightThreadsUseItAtOnce) {
  std::atomic<int> agreeing = 0;
  std::vector<std::thread> threads;
  for (int index = 0; index < 8; ++index) {
    threads.emplace_back([&agreeing, index] {
      for (int round = 0; round < 200; ++round) {
        PLXTimestamp stamp;
        stamp.SetYear(static_cast<PLXUInt16>(2000 + index));
        PLXTimestamp again;
        again.SetFromRFC1123(stamp.Get(PLXTimestamp::kFormatRFC1123), true);
        agreeing += Compact(again) == Compact(stamp) ? 1 : 0;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(agreeing, 8 * 200);
}

// ---- Time zones ----

TEST(PLXTimestampZone, HasText) {
  struct Row {
    char const* offset;
    char const* zone;
  };
  Row const rows[] = {{"-5", "-0500"},    {"5.5", "+0530"},  {"0", "GMT"},      {"-3.75", "-0300"},
                      {"5.25", "+0500"},  {"", "GMT"},       {"-0.5", "-0030"}, {"-0.25", "GMT"},
                      {"14", "+1400"},    {"5.05", "+0500"}, {"5.55", "+0500"}, {"-12.50", "-1230"},
                      {"123.5", "+12330"}};
  for (Row const& row : rows) {
    EXPECT_EQ(Std(PLXTimestamp::GetTimeZoneString(PLXNumber(row.offset))), row.zone) << row.offset;
  }
}

TEST(PLXTimestampZone, IsReadFromText) {
  struct Row {
    char const* why;
    char const* zone;
    bool isPositive;
    int hours, minutes;
  };
  Row const rows[] = {
      {"east", "+0530", true, 5, 30},
      {"west", "-0330", false, 3, 30},
      {"no sign is east", "1245", true, 12, 45},
      {"blanks aside", "\t -0500\r\n", false, 5, 0},
      {"GMT", " gmT ", true, 0, 0},
      {"letters", "+0AB5", true, 0, 0},
  };
  for (Row const& row : rows) {
    SCOPED_TRACE(row.why);
    bool isPositive = !row.isPositive;
    PLXUInt8 hours = 99, minutes = 99;
    PLXTimestamp::GetTimeZoneNumber(row.zone, isPositive, hours, minutes);
    EXPECT_EQ(isPositive, row.isPositive);
    EXPECT_EQ(hours, row.hours);
    EXPECT_EQ(minutes, row.minutes);
  }
  bool isPositive;
  PLXUInt8 hours, minutes;
  for (char const* const zone : {"", "+", "-500", "+00000", "+ 0500", "EST", "+GMT"}) {
    EXPECT_EXIT(
        PLXTimestamp::GetTimeZoneNumber(zone, isPositive, hours, minutes), testing::KilledBySignal(SIGABRT),
        "\tFILE: \"src/PLXTimestamp.cpp\"\nSTATE ASSERTION FAILURE: timeZoneString.GetLength\\(\\) == 4\n");
  }
}

// ---- RFC 1123 ----

TEST(PLXTimestampRFC1123, IsRead) {
  std::string const unchanged = "19700101000000";
  struct Row {
    char const* why;
    std::string text;
    std::string asWritten;
    std::string inGMT;
  };
  Row const rows[] = {
      {"west", "Tue, 05 Mar 2002 14:07:09 -0500", "20020305140709", "20020305190709"},
      {"east, over the end of the year", "Tue, 01 Jan 2002 01:07:09 +0530", "20020101010709",
       "20011231193709"},
      {"no sign is east", "Tue, 05 Mar 2002 14:07:09 0100", "20020305140709", "20020305130709"},
      {"GMT", "Tue, 05 Mar 2002 14:07:09 GMT", "20020305140709", "20020305140709"},
      {"one digit for the day, month in any case", "Tue, 5 mAR 2002 14:07:09 GMT", "20020305140709",
       "20020305140709"},
      {"text round it", "Date: Tuesday, 05 Mar 2002 14:07:09 -05001\r\nTue", "20020305140709",
       "20020305190709"},
      {"the first of two", "x, 1 Tue, 05 Mar 2002 14:07:09 GMT Wed, 06 Mar 2002 14:07:09 GMT",
       "20020305140709", "20020305140709"},
      {"a leap second", "Tue, 05 Mar 2002 23:59:60 GMT", "20020306000000", "20020306000000"},
      {"an unknown month counts as 0", "Tue, 05 Foo 2002 14:07:09 GMT", "20011203140709", "20011203140709"},
      {"a zone of three digits is none", "Tue, 05 Mar 2002 14:07:09 -500", "20020305140709", unchanged},
      {"a zone with letters is none", "Tue, 05 Mar 2002 14:07:09 +0G00", "20020305140709", unchanged},
      {"GMT with a sign is none", "Tue, 05 Mar 2002 14:07:09 -GMT", "20020305140709", unchanged},
      {"a zone of letters", "Tue, 05 Mar 2002 14:07:09 EST", unchanged, unchanged},
      {"two digits for the year", "Tue, 05 Mar 02 14:07:09 GMT", unchanged, unchanged},
      {"no day of the week", "05 Mar 2002 14:07:09 GMT", unchanged, unchanged},
      {"nothing", "", unchanged, unchanged},
  };
  for (Row const& row : rows) {
    SCOPED_TRACE(row.why);
    PLXString const text(row.text.data(), static_cast<PLXUInt32>(row.text.size()));
    PLXTimestamp asWritten = Stamp("19700101000000"), inGMT(asWritten);
    asWritten.SetFromRFC1123(text, true);
    inGMT.SetFromRFC1123(text, false);
    EXPECT_EQ(Compact(asWritten), row.asWritten);
    EXPECT_EQ(Compact(inGMT), row.inGMT);
  }
  // A date cut anywhere before its zone's third character is none.
  std::string const date = "Tue, 05 Mar 2002 14:07:09 GMT";
  for (std::size_t length = 0; length < date.size(); ++length) {
    PLXTimestamp stamp = Stamp("19700101000000");
    stamp.SetFromRFC1123(date.substr(0, length).c_str(), false);
    EXPECT_EQ(Compact(stamp), unchanged) << length;
  }
}

TEST(PLXTimestampRFC1123, ComesBackFromItsFormat) {
  PLXTimestamp stamp = Stamp("10000102000000");
  for (; stamp.GetYear() < 9990 && !HasFailure(); stamp.AddSeconds(987'654'321)) {
    PLXTimestamp read, moved(stamp), inGMT;
    read.SetFromRFC1123(stamp.Get(PLXTimestamp::kFormatRFC1123), true);
    EXPECT_EQ(Compact(read), Compact(stamp));

    // One moment on two clocks, the local one here and one of half an hour there, is one moment in GMT.
    read.SetFromRFC1123(stamp.Get(PLXTimestamp::kFormatRFC1123), false);
    inGMT.SetFromRFC1123(stamp.Get(PLXTimestamp::kFormatRFC1123, true, PLXNumber("-9.5")), false);
    EXPECT_EQ(Compact(inGMT), Compact(read));
  }
}

}  // namespace
