#include <string_view>

#include "Fuzz.h"
#include "PLXTimestamp.h"

// Three lines and more: a date in compact form, a text that may hold an RFC 1123 date, and a format for both.

namespace {

PLXString String(std::string_view text_i) {
  return PLXString(text_i.data(), static_cast<PLXUInt32>(text_i.size()));
}

// Whatever was read is a date and a time, and comes back from its texts.
void Check(PLXTimestamp const& timestamp_i, PLXString const& format_i) {
  Require(timestamp_i.GetMonth() >= 1 && timestamp_i.GetMonth() <= 12);
  Require(timestamp_i.GetDay() >= 1 && timestamp_i.GetDay() <= timestamp_i.GetDaysInMonth());
  Require(timestamp_i.GetHour() < 24 && timestamp_i.GetMinute() < 60 && timestamp_i.GetSecond() < 60);

  PLXString const compact = timestamp_i.GetStringRepresentation();
  Require(PLXTimestamp(compact).GetStringRepresentation() == compact);
  if (timestamp_i.GetYear() >= 1000 && timestamp_i.GetYear() <= 9999) {
    PLXTimestamp read;
    read.SetFromRFC1123(timestamp_i.Get(PLXTimestamp::kFormatRFC1123), true);
    Require(read.GetStringRepresentation() == compact);
  }

  // A token of four bytes becomes ten at most.
  PLXString const text = timestamp_i.Get(format_i, true, PLXNumber("5.5"));
  Require(text.GetLength() <= format_i.GetLength() / 2 * 5 + 2);
  if (!format_i.Contains("\001")) Require(text == format_i);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data_i, std::size_t size_i) {
  std::string_view input(reinterpret_cast<char const*>(data_i), size_i);
  std::string_view const compact = TakeLine(input);
  std::string_view const date = TakeLine(input);
  PLXString const format = String(input);
  PLXTimestamp timestamp(String(compact));
  Check(timestamp, format);
  timestamp.SetFromRFC1123(String(date), true);
  Check(timestamp, format);
  timestamp.SetFromRFC1123(String(date), false);
  Check(timestamp, format);
  return 0;
}
