#include <array>
#include <cstdint>
#include <string_view>

#include "PLXCalendar.h"
#include "PLXStringUtility.h"
#include "PLXTimestamp.h"

// A token is its letters between two bytes of 1.
#define TOKEN(letters) "\001" letters "\001"

#define FORMAT_CONSTANT(name, literal)                    \
  static TPLXConstant<PLXString> name##_storage(literal); \
  PLXString const& PLXTimestamp::name = name##_storage.value

FORMAT_CONSTANT(kFormatHours, TOKEN("h"));
FORMAT_CONSTANT(kFormatPaddedHours, TOKEN("0h"));
FORMAT_CONSTANT(kFormatMilitaryHours, TOKEN("hh"));
FORMAT_CONSTANT(kFormatMinutes, TOKEN("m"));
FORMAT_CONSTANT(kFormatPaddedMinutes, TOKEN("0m"));
FORMAT_CONSTANT(kFormatSeconds, TOKEN("s"));
FORMAT_CONSTANT(kFormatPaddedSeconds, TOKEN("0s"));
FORMAT_CONSTANT(kFormatAMPM, TOKEN("AMPM"));
FORMAT_CONSTANT(kFormatMonthName, TOKEN("MN"));
FORMAT_CONSTANT(kFormatAbbreviatedMonthName, TOKEN("AMN"));
FORMAT_CONSTANT(kFormatMonthNumber, TOKEN("M"));
FORMAT_CONSTANT(kFormatPaddedMonthNumber, TOKEN("0M"));
FORMAT_CONSTANT(kFormatDay, TOKEN("D"));
FORMAT_CONSTANT(kFormatPaddedDay, TOKEN("0D"));
FORMAT_CONSTANT(kFormatYear, TOKEN("YYYY"));
FORMAT_CONSTANT(kFormatYearWithinCentury, TOKEN("YY"));
FORMAT_CONSTANT(kFormatDayOfWeek, TOKEN("DW"));
FORMAT_CONSTANT(kFormatAbbreviatedDayOfWeek, TOKEN("ADW"));
FORMAT_CONSTANT(kFormatNumberedDayOfWeek, TOKEN("#DW"));
FORMAT_CONSTANT(kFormatDayOfYear, TOKEN("DY"));
FORMAT_CONSTANT(kFormatPaddedDayOfYear, TOKEN("0DY"));
FORMAT_CONSTANT(kFormatWeekOfYear, TOKEN("WY"));
FORMAT_CONSTANT(kFormatPaddedWeekOfYear, TOKEN("0WY"));
FORMAT_CONSTANT(kFormatJulianDayNumber, TOKEN("JD"));
FORMAT_CONSTANT(kFormatRFC1123, TOKEN("ADW") ", " TOKEN("0D") " " TOKEN("AMN") " " TOKEN("YYYY") " " TOKEN(
                                    "hh") ":" TOKEN("0m") ":" TOKEN("0s") " " TOKEN("GMTo"));
FORMAT_CONSTANT(kFormatNumericalDate, TOKEN("M") "/" TOKEN("0D") "/" TOKEN("YYYY"));
FORMAT_CONSTANT(kFormatMilitaryTime, TOKEN("hh") ":" TOKEN("0m") ":" TOKEN("0s"));

namespace {

constexpr char kTokenMark = '\001';

PLX_STRING_CONSTANT(kDateFormat, TOKEN("DW") ", " TOKEN("MN") " " TOKEN("D") ", " TOKEN("YYYY"));
PLX_STRING_CONSTANT(kTimeFormat, TOKEN("h") ":" TOKEN("0m") " " TOKEN("AMPM"));

// What the tokens of one format are replaced from.
struct Moment {
  PLXUInt16 year;
  PLXUInt8 month, day, hour, minute, second;
  PLXUInt8 dayOfWeek;  // 1, Sunday, to 7
  PLXUInt16 dayOfYear;
  PLXUInt8 weekOfYear;
  PLXUInt32 julianDayNumber;
  std::string_view timeZone;

  unsigned HourOfTwelve() const { return hour % 12 == 0 ? 12 : hour % 12; }
};

// Where numbers are written before they go to the text.
typedef char Digits[12];

std::string_view Number(Digits& digits_o, unsigned value_i, unsigned digits_i = 1) {
  char* const end = digits_o + sizeof digits_o;
  char* first = end;
  for (unsigned rest = value_i; rest > 0 || end - first < static_cast<std::ptrdiff_t>(digits_i); rest /= 10)
    *--first = static_cast<char>('0' + rest % 10);
  return {first, end};
}

// A token's bytes as one number; the longest has six.
constexpr std::uint64_t TokenNumber(std::string_view token_i) {
  std::uint64_t number = 0;
  for (char const character : token_i) number = number << 8 | static_cast<unsigned char>(character);
  return number;
}

struct Replacement {
  constexpr Replacement(std::string_view token_i,
                        std::string_view (*text_i)(Moment const& moment_i, Digits& digits_o))
      : token(token_i), number(TokenNumber(token_i)), text(text_i) {}
  std::string_view token;
  std::uint64_t number;
  std::string_view (*text)(Moment const& moment_i, Digits& digits_o);
};

// In the order in which they are replaced, which decides where two tokens share the byte between them.
constexpr Replacement kReplacements[] = {
    {TOKEN("h"),
     [](Moment const& moment_i, Digits& digits_o) { return Number(digits_o, moment_i.HourOfTwelve()); }},
    {TOKEN("0h"),
     [](Moment const& moment_i, Digits& digits_o) { return Number(digits_o, moment_i.HourOfTwelve(), 2); }},
    {TOKEN("hh"),
     [](Moment const& moment_i, Digits& digits_o) { return Number(digits_o, moment_i.hour, 2); }},
    {TOKEN("m"), [](Moment const& moment_i, Digits& digits_o) { return Number(digits_o, moment_i.minute); }},
    {TOKEN("0m"),
     [](Moment const& moment_i, Digits& digits_o) { return Number(digits_o, moment_i.minute, 2); }},
    {TOKEN("s"), [](Moment const& moment_i, Digits& digits_o) { return Number(digits_o, moment_i.second); }},
    {TOKEN("0s"),
     [](Moment const& moment_i, Digits& digits_o) { return Number(digits_o, moment_i.second, 2); }},
    {TOKEN("AMPM"),
     [](Moment const& moment_i, Digits&) { return std::string_view(moment_i.hour > 11 ? "PM" : "AM"); }},
    {TOKEN("MN"),
     [](Moment const& moment_i, Digits&) { return std::string_view(kMonthNames[moment_i.month - 1]); }},
    {TOKEN("AMN"), [](Moment const& moment_i,
                      Digits&) { return std::string_view(kAbbreviatedMonthNames[moment_i.month - 1]); }},
    {TOKEN("M"), [](Moment const& moment_i, Digits& digits_o) { return Number(digits_o, moment_i.month); }},
    {TOKEN("0M"),
     [](Moment const& moment_i, Digits& digits_o) { return Number(digits_o, moment_i.month, 2); }},
    {TOKEN("D"), [](Moment const& moment_i, Digits& digits_o) { return Number(digits_o, moment_i.day); }},
    {TOKEN("0D"), [](Moment const& moment_i, Digits& digits_o) { return Number(digits_o, moment_i.day, 2); }},
    {TOKEN("YYYY"), [](Moment const& moment_i, Digits& digits_o) { return Number(digits_o, moment_i.year); }},
    {TOKEN("YY"),
     [](Moment const& moment_i, Digits& digits_o) { return Number(digits_o, moment_i.year % 100, 2); }},
    {TOKEN("DW"),
     [](Moment const& moment_i, Digits&) { return std::string_view(kDayNames[moment_i.dayOfWeek - 1]); }},
    {TOKEN("ADW"), [](Moment const& moment_i,
                      Digits&) { return std::string_view(kAbbreviatedDayNames[moment_i.dayOfWeek - 1]); }},
    {TOKEN("#DW"),
     [](Moment const& moment_i, Digits& digits_o) { return Number(digits_o, moment_i.dayOfWeek); }},
    {TOKEN("DY"),
     [](Moment const& moment_i, Digits& digits_o) { return Number(digits_o, moment_i.dayOfYear); }},
    {TOKEN("0DY"),
     [](Moment const& moment_i, Digits& digits_o) { return Number(digits_o, moment_i.dayOfYear, 3); }},
    {TOKEN("WY"),
     [](Moment const& moment_i, Digits& digits_o) { return Number(digits_o, moment_i.weekOfYear); }},
    {TOKEN("0WY"),
     [](Moment const& moment_i, Digits& digits_o) { return Number(digits_o, moment_i.weekOfYear, 2); }},
    {TOKEN("JD"),
     [](Moment const& moment_i, Digits& digits_o) { return Number(digits_o, moment_i.julianDayNumber); }},
    {TOKEN("GMTo"), [](Moment const& moment_i, Digits&) { return moment_i.timeZone; }},
};

void Append(std::string_view text_i, PLXString& text_io) {
  text_io.Append(text_i.data(), static_cast<PLXUInt32>(text_i.size()));
}

// The replacements by the numbers of their tokens, twice as many slots and more.
struct ReplacementTable {
  static constexpr unsigned kBits = 6;
  constexpr ReplacementTable() {
    for (Replacement const& replacement : kReplacements) slots[SlotOf(replacement.number)] = &replacement;
  }
  // The token's slot, or the empty one where it would stand.
  constexpr std::size_t SlotOf(std::uint64_t token_i) const {
    std::size_t slot = token_i * 0x9E3779B97F4A7C15 >> (64 - kBits);
    while (slots[slot] != nullptr && slots[slot]->number != token_i) slot = (slot + 1) % slots.size();
    return slot;
  }
  std::array<Replacement const*, 1 << kBits> slots{};
};
constexpr ReplacementTable kReplacementTable;

constexpr bool IsSeparator(char character_i) {
  return character_i == ' ' || (character_i >= ',' && character_i <= '/') || character_i == ':';
}

// Where every two tokens are kept apart by a character that no token has, no replacement can touch another's
// token, and one walk does what the replacements in their order would. False, with the text as it was, for
// any other format and for a long one.
bool ReplaceTokensInOneWalk(std::string_view format_i, Moment const& moment_i, PLXString& text_o) {
  constexpr std::size_t kLongestFormat = 96;
  constexpr std::size_t kMostPerByte = 3;  // the longest for its token is "September", for four bytes
  constexpr std::size_t kLongestTimeZone = 6 * kMostPerByte;
  if (format_i.size() > kLongestFormat || moment_i.timeZone.size() > kLongestTimeZone) return false;
  char text[kLongestFormat * kMostPerByte];
  char* target = text;
  bool isSeparated = true;
  char const* const end = format_i.data() + format_i.size();
  for (char const* source = format_i.data(); source != end;) {
    if (*source != kTokenMark) {
      isSeparated = isSeparated || IsSeparator(*source);
      *target++ = *source++;
      continue;
    }
    std::uint64_t token = static_cast<std::uint64_t>(kTokenMark);
    do {
      if (++source == end || token >> 56 != 0) return false;
      token = token << 8 | static_cast<unsigned char>(*source);
    } while (*source != kTokenMark);
    ++source;
    Replacement const* const replacement = kReplacementTable.slots[kReplacementTable.SlotOf(token)];
    if (replacement == nullptr || !isSeparated) return false;
    isSeparated = false;
    Digits digits;
    for (char const character : replacement->text(moment_i, digits)) *target++ = character;
  }
  text_o = PLXString(text, static_cast<PLXUInt32>(target - text));
  return true;
}

PLXString ReplaceTokens(PLXString const& format_i, Moment const& moment_i) {
  PLXString text;
  if (ReplaceTokensInOneWalk({format_i.GetCStringAccess(), format_i.GetLength()}, moment_i, text))
    return text;
  text = format_i;
  for (auto const& replacement : kReplacements) {
    PLXUInt32 const length = static_cast<PLXUInt32>(replacement.token.size());
    PLXUInt32 position = 0;
    if (!text.Find(replacement.token.data(), length, 0, kPLXWholeLength, 0, position)) continue;
    Digits digits;
    std::string_view const value = replacement.text(moment_i, digits);
    text.ReplaceAll(PLXString(replacement.token.data(), length),
                    PLXString(value.data(), static_cast<PLXUInt32>(value.size())));
  }
  return text;
}

// Whole hours, cut toward zero.
PLXSInt32 GetLocalOffset() { return static_cast<PLXSInt32>(GetLocalTime().tm_gmtoff / 3600); }

PLXString GetWholeTimeZoneString(PLXSInt32 hours_i) {
  if (hours_i == 0) return "GMT";
  PLXString zone(hours_i < 0 ? '-' : '+');
  Digits digits;
  Append(Number(digits, static_cast<unsigned>(hours_i < 0 ? -hours_i : hours_i), 2), zone);
  return zone.Append("00", 2);
}

}  // namespace

PLXString PLXTimestamp::GetOperatingSystemDateFormatString() { return kDateFormat; }

PLXString PLXTimestamp::GetOperatingSystemTimeFormatString() { return kTimeFormat; }

PLXString PLXTimestamp::GetStringRepresentation() const {
  PLXString text;
  Digits digits;
  Append(Number(digits, GetYear()), text);
  for (PLXUInt8 const part : {GetMonth(), GetDay(), GetHour(), GetMinute(), GetSecond()}) {
    Append(Number(digits, part, 2), text);
  }
  return text;
}

void PLXTimestamp::MoveByHours(PLXNumber const& hours_i) {
  int const hours = static_cast<int>(hours_i);
  int const minutes = static_cast<int>((hours_i - hours) * 60);
  if (hours_i.IsNegative()) {
    SubtractHours(0U - static_cast<PLXUInt32>(hours)).SubtractMinutes(0U - static_cast<PLXUInt32>(minutes));
  } else {
    AddHours(static_cast<PLXUInt32>(hours)).AddMinutes(static_cast<PLXUInt32>(minutes));
  }
}

PLXString PLXTimestamp::Get(PLXString const& format_i, bool convertToOffset_i,
                            PLXNumber const& offsetHours_i) const {
  PLXSInt32 const localOffset = GetLocalOffset();
  bool const converts = convertToOffset_i && offsetHours_i.IsNotNull();
  PLXTimestamp shown(*this);
  if (converts) shown.MoveByHours(offsetHours_i - PLXNumber(localOffset));

  Moment moment;
  GetMDYFromJDN(shown.myJulianDayNumber, moment.month, moment.day, moment.year);
  GetHMSFromSeconds(shown.mySecondOfDay, moment.hour, moment.minute, moment.second);
  moment.dayOfWeek = GetDayOfWeek(shown.myJulianDayNumber);
  moment.dayOfYear = GetDayOfYear(moment.month, moment.day, moment.year, &moment.weekOfYear);
  moment.julianDayNumber = myJulianDayNumber;
  PLXString const zone = converts ? GetTimeZoneString(offsetHours_i) : GetWholeTimeZoneString(localOffset);
  moment.timeZone = {zone.GetCStringAccess(), zone.GetLength()};
  return ReplaceTokens(format_i, moment);
}

PLXString PLXTimestamp::GetTimeZoneString(PLXNumber const& offsetHours_i) {
  PLXString const decimal = offsetHours_i.GetStringRepresentation();
  std::string_view hours(decimal.GetCStringAccess(), decimal.GetLength());
  PLXString zone(hours.starts_with('-') ? '-' : '+');
  if (hours.starts_with('-')) hours.remove_prefix(1);
  std::size_t const point = hours.find('.');
  char const* const minutes = point != hours.npos && hours.substr(point + 1) == "5" ? "30" : "00";
  hours = hours.substr(0, point);

  if (hours.size() < 2) zone.Append(PLXString('0', static_cast<PLXUInt32>(2 - hours.size())));
  zone.Append(hours.data(), static_cast<PLXUInt32>(hours.size())).Append(minutes);
  return zone == "+0000" || zone == "-0000" ? PLXString("GMT") : zone;
}
