#include <algorithm>
#include <charconv>
#include <limits>
#include <string_view>

#include "PLXCalendar.h"
#include "PLXRegExp.h"
#include "PLXStringUtility.h"
#include "PLXTimestamp.h"

namespace {

char const ourSourceFile[] = "src/PLXTimestamp.cpp";

constexpr PLXUInt32 kTimeZoneDigits = 4;

std::string_view View(PLXString const& string_i) {
  return {string_i.GetCStringAccess(), string_i.GetLength()};
}

// The number in front, 0 without digits; a number too great for its type is the greatest.
template <typename T>
T ReadDecimal(std::string_view text_i) {
  T value = 0;
  std::from_chars_result const result = std::from_chars(text_i.data(), text_i.data() + text_i.size(), value);
  return result.ec == std::errc::result_out_of_range ? std::numeric_limits<T>::max() : value;
}

// Takes two characters, or what there is, off the end.
PLXUInt8 TakeLastTwo(std::string_view& text_io) {
  std::size_t const start = text_io.size() - std::min<std::size_t>(text_io.size(), 2);
  PLXUInt8 const value = ReadDecimal<PLXUInt8>(text_io.substr(start));
  text_io.remove_suffix(text_io.size() - start);
  return value;
}

// 1 to 12, letters of either case; 0 for none.
PLXUInt8 MonthFromName(std::string_view name_i) {
  PLXString const name(name_i.data(), static_cast<PLXUInt32>(name_i.size()));
  PLXUInt8 month = 0;
  for (char const* const known : kAbbreviatedMonthNames) {
    ++month;
    if (name.CompareTo(known, kPLXOption_IgnoreCase) == kPLXCompare_Equal) return month;
  }
  return 0;
}

bool IsSign(char character_i) { return character_i == '-' || character_i == '+'; }

// ---- RFC 1123 ----

// Tue, 05 Mar 2002 14:07:09 -0500
constexpr char kRFC1123Expression[] =
    "(\\c{3})[,] (\\d{1,2}) (\\c{3}) (\\d{4}) (\\d{2}):(\\d{2}):(\\d{2}) ([-+]?[0-9GMT]{3,4})";
enum RFC1123Group : PLXUInt32 { kDay = 1, kMonth, kYear, kHour, kMinute, kSecond, kZone, kGroupCount };

bool IsTimeZone(std::string_view zone_i) {
  if (zone_i == "GMT") return true;
  if (!zone_i.empty() && IsSign(zone_i.front())) zone_i.remove_prefix(1);
  return zone_i.size() == kTimeZoneDigits && std::ranges::all_of(zone_i, PLXStringUtility::IsDigit);
}

}  // namespace

void PLXTimestamp::Set(PLXString const& text_i) {
  std::string_view text = View(text_i);
  PLXUInt8 const second = TakeLastTwo(text);
  PLXUInt8 const minute = TakeLastTwo(text);
  PLXUInt8 const hour = TakeLastTwo(text);
  PLXUInt8 const day = TakeLastTwo(text);
  PLXUInt8 const month = TakeLastTwo(text);
  SetDateAndTime(ReadDecimal<PLXUInt16>(text), month, day, hour, minute, second);
}

void PLXTimestamp::SetFromRFC1123(PLXString const& text_i, bool keepClockAsWritten_i) {
  // Compiled once; matching leaves it as it is, so every thread shares it.
  static PLXRegExp const ourExpression(kRFC1123Expression);
  PLXRegExpMatch match;
  if (!ourExpression.Execute(text_i, 0, match) || match.GetGroupCount() < kGroupCount) return;
  auto const group = [&](RFC1123Group index_i) {
    PLXUInt32 start = 0;
    PLXUInt32 length = 0;
    match.GetGroup(index_i, start, length);
    return View(text_i).substr(start, length);
  };
  std::string_view const zone = group(kZone);
  if (!keepClockAsWritten_i && !IsTimeZone(zone)) return;
  SetDateAndTime(ReadDecimal<PLXUInt16>(group(kYear)), MonthFromName(group(kMonth)),
                 ReadDecimal<PLXUInt8>(group(kDay)), ReadDecimal<PLXUInt8>(group(kHour)),
                 ReadDecimal<PLXUInt8>(group(kMinute)), ReadDecimal<PLXUInt8>(group(kSecond)));
  if (keepClockAsWritten_i) return;

  bool isPositive;
  PLXUInt8 hours, minutes;
  GetTimeZoneNumber(PLXString(zone.data(), static_cast<PLXUInt32>(zone.size())), isPositive, hours, minutes);
  if (isPositive) {
    SubtractHours(hours).SubtractMinutes(minutes);
  } else {
    AddHours(hours).AddMinutes(minutes);
  }
}

void PLXTimestamp::GetTimeZoneNumber(PLXString const& timeZone_i, bool& isPositive_o, PLXUInt8& hours_o,
                                     PLXUInt8& minutes_o) {
  PLXString timeZoneString(timeZone_i);
  timeZoneString.Trim(" \t\r\n");
  isPositive_o = true;
  hours_o = minutes_o = 0;
  if (timeZoneString.CompareTo("GMT", kPLXOption_IgnoreCase) == kPLXCompare_Equal) return;

  if (timeZoneString.IsNotEmpty() && IsSign(timeZoneString[0])) {
    isPositive_o = timeZoneString[0] == '+';
    timeZoneString.TrimLeft(1U);
  }
  PLX_ASSERT_STATE(timeZoneString.GetLength() == 4);
  hours_o = ReadDecimal<PLXUInt8>(View(timeZoneString).substr(0, 2));
  minutes_o = ReadDecimal<PLXUInt8>(View(timeZoneString).substr(2));
}
