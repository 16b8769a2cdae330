#include <string>
#include <string_view>
#include <vector>

#include "DecimalTwin.h"
#include "Fuzz.h"
#include "PLXNumber.h"

// Two lines, each a length, a scale and a text, separated by single blanks: "5 2 -12.50". The texts are read,
// shown, read back and calculated with, and everything must be what the schoolbook says.

namespace {

char ourSilence[] = "-close_fd_mask=2";

std::string Text(PLXNumber const& number_i) {
  return number_i.IsNull() ? "null" : number_i.GetStringRepresentation().GetCStringAccess();
}

// Takes a number of at most three digits and the blank behind it.
int TakeInteger(std::string_view& line_io) {
  int value = 0;
  for (int digits = 0; digits < 3 && !line_io.empty() && line_io[0] >= '0' && line_io[0] <= '9'; ++digits) {
    value = value * 10 + (line_io[0] - '0');
    line_io.remove_prefix(1);
  }
  if (line_io.starts_with(' ')) line_io.remove_prefix(1);
  return value;
}

// A line as a number that was checked against the twin's reading of it.
PLXNumber ReadLine(std::string_view line_i) {
  PLXNumber number;
  int const length = TakeInteger(line_i);
  int const scale = TakeInteger(line_i);
  Require(number.SetLengthAndScale(length, scale) == (length >= 1 && length <= 100 && scale <= length));
  number.AssignString(PLXString(line_i.data(), static_cast<PLXUInt32>(line_i.size())));
  std::string const expected =
      line_i.empty() ? "null" : DecimalTwin::Read(line_i, number.GetLength(), number.GetScale());
  Require(Text(number) == expected);
  return number;
}

void CheckRoundTrips(PLXNumber const& number_i) {
  PLXNumber copy(number_i.GetLength(), number_i.GetScale(), number_i.GetStringRepresentation());
  Require(copy == number_i && Text(copy) == Text(number_i));
  copy = number_i.GetStringRepresentation(50, true);
  Require(copy == number_i);
  if (number_i.IsNull()) return;
  double const nearest = static_cast<double>(number_i);
  Require(nearest == std::strtod(Text(number_i).c_str(), nullptr));
}

void CheckArithmetic(PLXNumber const& left_i, PLXNumber const& right_i) {
  DecimalTwin const left = DecimalTwin::FromText(Text(left_i));
  DecimalTwin const right = DecimalTwin::FromText(Text(right_i));
  PLXNumber const sum = left_i + right_i;
  auto const fitted = [&sum](DecimalTwin const& value_i) {
    return value_i.Fitted(sum.GetLength(), sum.GetScale());
  };
  Require(Text(sum) == fitted(left + right));
  Require(Text(left_i - right_i) == fitted(left - right));
  Require(Text(left_i * right_i) == fitted(left * right));
  Require((left_i <=> right_i) == (DecimalTwin::CompareValues(left, right) <=> 0));
  Require((left_i == right_i) == (DecimalTwin::CompareValues(left, right) == 0));
  if (right_i.IsZero()) return;
  Require(Text(left_i / right_i) == fitted(DecimalTwin::Quotient(left, right, sum.GetScale())));
  Require(Text(left_i % right_i) == DecimalTwin::IntegralQuotient(left, right).second.ToText());
}

}  // namespace

// Errors of value are no finding, and there are many: their messages go nowhere.
extern "C" int LLVMFuzzerInitialize(int* count_io, char*** arguments_io) {
  static std::vector<char*> ourArguments(*arguments_io, *arguments_io + *count_io);
  ourArguments.push_back(ourSilence);
  *count_io = static_cast<int>(ourArguments.size());
  ourArguments.push_back(nullptr);
  *arguments_io = ourArguments.data();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data_i, std::size_t size_i) {
  std::string_view const input(reinterpret_cast<char const*>(data_i), size_i);
  std::size_t const end = input.find('\n');
  PLXNumber const left = ReadLine(input.substr(0, end));
  PLXNumber const right = ReadLine(end == input.npos ? std::string_view() : input.substr(end + 1));
  CheckRoundTrips(left);
  if (left.IsNotNull() && right.IsNotNull()) CheckArithmetic(left, right);
  return 0;
}
