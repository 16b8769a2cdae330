#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "FoundationPrinters.h"
#include "PLXJulianDay.h"
#include "PLXTimestamp.h"

namespace {

std::vector<std::string> Fields(PLXJulianDay const& day_i) {
  std::vector<std::string> fields;
  for (PLXUInt32 field = 0; field <= kPLXJulianDay_DayOfWeek + 1; ++field) {
    fields.push_back(Std(day_i.GetDateTimeValue(field)));
  }
  return fields;
}

TEST(PLXJulianDay, IsADayAndItsFraction) {
  PLXJulianDay const noon(2000, 1, 1, 12, 0, 0);
  EXPECT_EQ(noon.GetValue(), 2451544u);
  EXPECT_EQ(Std(noon.GetRealValue().GetStringRepresentation()), "2451544.5");
  EXPECT_EQ(Std(PLXJulianDay::CalculateJDFraction(0, 0, 1).GetStringRepresentation()), "0.00001157");
  EXPECT_EQ(PLXJulianDay(2000, 1, 1, 24, 0, 0).GetValue(), 2451545u);
  EXPECT_EQ(PLXJulianDay(PLXNumber("2451544.25")).GetValue(), 2451544u);
  EXPECT_EQ(PLXJulianDay(4294967295u).GetRealValue(), PLXNumber(4294967295u));

  PLXTimestamp const before;
  PLXJulianDay const now;
  PLXTimestamp const after;
  auto const real = [](PLXTimestamp const& stamp_i) {
    return PLXNumber(
               PLXJulianDay::CalculateJDNumber(stamp_i.GetMonth(), stamp_i.GetDay(), stamp_i.GetYear())) +
           PLXJulianDay::CalculateJDFraction(stamp_i.GetHour(), stamp_i.GetMinute(), stamp_i.GetSecond());
  };
  EXPECT_LE(real(before), now.GetRealValue());
  EXPECT_LE(now.GetRealValue(), real(after));
}

TEST(PLXJulianDay, ShowsItsFields) {
  EXPECT_EQ(Fields(PLXJulianDay(2002, 3, 5, 4, 7, 9)),
            (std::vector<std::string>{"March", "Mar", "5", "05", "3", "03", "Tuesday", "Tue", "2002", "02",
                                      "4", "04", "7", "07", "9", "09", "3", ""}));
  EXPECT_EQ(Fields(PLXJulianDay(2451544u)),
            (std::vector<std::string>{"January", "Jan", "1", "01", "1", "01", "Saturday", "Sat", "2000", "00",
                                      "0", "00", "0", "00", "0", "00", "7", ""}));
  for (PLXUInt32 const month : {0u, 13u, 0xFFFFFFFFu}) {
    EXPECT_EQ(Std(PLXJulianDay::GetLongMonth(month)), "");
    EXPECT_EQ(Std(PLXJulianDay::GetShortMonth(month)), "");
  }
}

TEST(PLXJulianDay, KeepsEverySecondOfTheDay) {
  for (PLXUInt32 second = 0; second < 86400 && !HasFailure(); ++second) {
    PLXUInt8 h, m, s;
    GetHMSFromSeconds(second, h, m, s);
    PLXJulianDay const day(2000, 1, 1, h, m, s);
    EXPECT_EQ(Std(day.GetDateTimeValue(kPLXJulianDay_Hour)), std::to_string(h)) << second;
    EXPECT_EQ(Std(day.GetDateTimeValue(kPLXJulianDay_Minute)), std::to_string(m)) << second;
    EXPECT_EQ(Std(day.GetDateTimeValue(kPLXJulianDay_Second)), std::to_string(s)) << second;
  }
}

TEST(PLXJulianDay, HasATimeForEveryNumber) {
  auto const time = [](PLXNumber const& real_i) {
    PLXJulianDay const day(real_i);
    return std::to_string(day.GetValue()) + " " + Std(day.GetDateTimeValue(kPLXJulianDay_PaddedHour)) +
           Std(day.GetDateTimeValue(kPLXJulianDay_PaddedMinute)) +
           Std(day.GetDateTimeValue(kPLXJulianDay_PaddedSecond));
  };
  EXPECT_EQ(time(PLXNumber("2451544.99999999")), "2451544 235959");  // rounding stays within the day
  EXPECT_EQ(time(PLXNumber()), "0 000000");
  testing::internal::CaptureStderr();
  EXPECT_EQ(time(PLXNumber("-1.5")), "0 000000");
  EXPECT_EQ(time(PLXNumber("99999999999.5")), "4294967295 235959");
  testing::internal::GetCapturedStderr();
}

}  // namespace
