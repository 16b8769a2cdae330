#include <algorithm>
#include <charconv>
#include <limits>
#include <string_view>

#include "PLXCalendar.h"
#include "PLXStringSearch.h"
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
  constexpr PLXUInt32 kLength = 3;
  if (name_i.size() != kLength) return 0;
  PLXUInt8 month = 0;
  for (char const* const known : kAbbreviatedMonthNames) {
    ++month;
    if (PLXEqualBytes(name_i.data(), known, kLength, true)) return month;
  }
  return 0;
}

bool IsSign(char character_i) { return character_i == '-' || character_i == '+'; }

// ---- RFC 1123 ----

// Tue, 05 Mar 2002 14:07:09 -0500
struct RFC1123Date {
  std::string_view day, month, year, hour, minute, second, zone;
};

bool IsLetter(char character_i) {
  return (character_i >= 'a' && character_i <= 'z') || (character_i >= 'A' && character_i <= 'Z');
}
bool IsZoneCharacter(char character_i) {
  return PLXStringUtility::IsDigit(character_i) || character_i == 'G' || character_i == 'M' ||
         character_i == 'T';
}

// Takes as many as there are, up to the most, off the front; false when these are too few.
bool Take(std::string_view& text_io, bool (*accepts_i)(char), std::size_t least_i, std::size_t most_i,
          std::string_view& taken_o) {
  std::size_t count = 0;
  while (count < most_i && count < text_io.size() && accepts_i(text_io[count])) ++count;
  taken_o = text_io.substr(0, count);
  text_io.remove_prefix(count);
  return count >= least_i;
}

bool Skip(std::string_view& text_io, char character_i) {
  if (!text_io.starts_with(character_i)) return false;
  text_io.remove_prefix(1);
  return true;
}

bool ReadRFC1123(std::string_view text_i, RFC1123Date& date_o) {
  auto const isDigit = [](char character_i) { return PLXStringUtility::IsDigit(character_i); };
  std::string_view dayOfWeek;
  if (!Take(text_i, IsLetter, 3, 3, dayOfWeek) || !Skip(text_i, ',') || !Skip(text_i, ' ') ||
      !Take(text_i, isDigit, 1, 2, date_o.day) || !Skip(text_i, ' ') ||
      !Take(text_i, IsLetter, 3, 3, date_o.month) || !Skip(text_i, ' ') ||
      !Take(text_i, isDigit, 4, 4, date_o.year) || !Skip(text_i, ' ') ||
      !Take(text_i, isDigit, 2, 2, date_o.hour) || !Skip(text_i, ':') ||
      !Take(text_i, isDigit, 2, 2, date_o.minute) || !Skip(text_i, ':') ||
      !Take(text_i, isDigit, 2, 2, date_o.second) || !Skip(text_i, ' ')) {
    return false;
  }
  std::string_view const zone = text_i;
  if (!text_i.empty() && IsSign(text_i.front())) text_i.remove_prefix(1);
  std::string_view digits;
  if (!Take(text_i, IsZoneCharacter, 3, 4, digits)) return false;
  date_o.zone = zone.substr(0, zone.size() - text_i.size());
  return true;
}

// The first date in the text; its comma stands behind three letters.
bool FindRFC1123(std::string_view text_i, RFC1123Date& date_o) {
  for (std::size_t comma = text_i.find(','); comma != text_i.npos; comma = text_i.find(',', comma + 1)) {
    if (comma >= 3 && ReadRFC1123(text_i.substr(comma - 3), date_o)) return true;
  }
  return false;
}

bool IsTimeZone(std::string_view zone_i) {
  if (zone_i == "GMT") return true;
  if (!zone_i.empty() && IsSign(zone_i.front())) zone_i.remove_prefix(1);
  return zone_i.size() == kTimeZoneDigits && std::ranges::all_of(zone_i, PLXStringUtility::IsDigit);
}

struct TimeZone {
  bool isPositive = true;
  PLXUInt8 hours = 0, minutes = 0;
};

// Requires: IsTimeZone.
TimeZone ReadTimeZone(std::string_view zone_i) {
  if (zone_i == "GMT") return {};
  bool const isPositive = zone_i.front() != '-';
  if (IsSign(zone_i.front())) zone_i.remove_prefix(1);
  return {isPositive, ReadDecimal<PLXUInt8>(zone_i.substr(0, 2)), ReadDecimal<PLXUInt8>(zone_i.substr(2))};
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
  RFC1123Date date;
  if (!FindRFC1123(View(text_i), date)) return;
  if (!keepClockAsWritten_i && !IsTimeZone(date.zone)) return;
  SetDateAndTime(ReadDecimal<PLXUInt16>(date.year), MonthFromName(date.month),
                 ReadDecimal<PLXUInt8>(date.day), ReadDecimal<PLXUInt8>(date.hour),
                 ReadDecimal<PLXUInt8>(date.minute), ReadDecimal<PLXUInt8>(date.second));
  if (keepClockAsWritten_i) return;

  TimeZone const zone = ReadTimeZone(date.zone);
  if (zone.isPositive) {
    SubtractHours(zone.hours).SubtractMinutes(zone.minutes);
  } else {
    AddHours(zone.hours).AddMinutes(zone.minutes);
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
