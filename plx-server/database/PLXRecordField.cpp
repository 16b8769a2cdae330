#include "PLXRecordField.h"

#include <charconv>
#include <cmath>
#include <optional>

#include "PLXRecordError.h"

namespace {

constexpr double kTwoTo63 = 9223372036854775808.0;
constexpr std::size_t kShownBytes = 60;

bool IsDigit(char byte_i) { return byte_i >= '0' && byte_i <= '9'; }

std::string_view WithoutBlanks(std::string_view text_i) {
  while (!text_i.empty() && text_i.front() == ' ') text_i.remove_prefix(1);
  while (!text_i.empty() && text_i.back() == ' ') text_i.remove_suffix(1);
  return text_i;
}

// A decimal number without a fraction: "12", "-12", "+12", "12.000".
std::optional<std::int64_t> ParseInteger(std::string_view text_i) {
  text_i = WithoutBlanks(text_i);
  if (text_i.starts_with('+')) {
    text_i.remove_prefix(1);
    if (text_i.starts_with('-')) return std::nullopt;
  }
  if (auto const point = text_i.find('.'); point != std::string_view::npos && point > 0) {
    if (text_i.find_first_not_of('0', point + 1) != std::string_view::npos) return std::nullopt;
    text_i = text_i.substr(0, point);
  }
  std::int64_t integer = 0;
  auto const [end, error] = std::from_chars(text_i.data(), text_i.data() + text_i.size(), integer);
  if (error != std::errc() || end != text_i.data() + text_i.size()) return std::nullopt;
  return integer;
}

std::optional<double> ParseDouble(std::string_view text_i) {
  text_i = WithoutBlanks(text_i);
  if (text_i.starts_with('+')) text_i.remove_prefix(1);
  // The names of infinity and of what is no number are texts here.
  std::size_t const first = text_i.starts_with('-') ? 1 : 0;
  if (first == text_i.size() || !(IsDigit(text_i[first]) || text_i[first] == '.')) return std::nullopt;
  double number = 0;
  auto const [end, error] = std::from_chars(text_i.data(), text_i.data() + text_i.size(), number);
  if (error != std::errc() || end != text_i.data() + text_i.size()) return std::nullopt;
  return number;
}

std::optional<std::int64_t> ExactInteger(double number_i) {
  if (!(number_i >= -kTwoTo63 && number_i < kTwoTo63) || std::floor(number_i) != number_i)
    return std::nullopt;
  return static_cast<std::int64_t>(number_i);
}

std::optional<std::int64_t> IntegerOf(PLXRecordValue const& value_i) {
  if (auto const* const integer = std::get_if<std::int64_t>(&value_i)) return *integer;
  if (auto const* const number = std::get_if<double>(&value_i)) return ExactInteger(*number);
  return ParseInteger(std::get<std::string_view>(value_i));
}

std::optional<double> DoubleOf(PLXRecordValue const& value_i) {
  if (auto const* const integer = std::get_if<std::int64_t>(&value_i)) return static_cast<double>(*integer);
  if (auto const* const number = std::get_if<double>(&value_i)) {
    return std::isfinite(*number) ? std::optional(*number) : std::nullopt;
  }
  return ParseDouble(std::get<std::string_view>(value_i));
}

std::string TextOf(PLXRecordValue const& value_i) {
  if (auto const* const text = std::get_if<std::string_view>(&value_i)) return std::string(*text);
  if (auto const* const number = std::get_if<double>(&value_i)) return PLXRecordText(*number);
  return std::to_string(std::get<std::int64_t>(value_i));
}

[[noreturn]] void Refuse(PLXRecordField const& field_i, PLXRecordValue const& value_i) {
  std::string shown = TextOf(value_i);
  if (shown.size() > kShownBytes) shown = shown.substr(0, kShownBytes) + "...";
  throw PLXRecordError(
      PLXRecordError::Kind::kValue,
      "The field \"" + field_i.name + "\" (" + field_i.TypeName() + ") cannot hold \"" + shown + "\".");
}

bool IsInRange(PLXRecordField::Type type_i, std::int64_t integer_i) {
  switch (type_i) {
    case PLXRecordField::Type::kBoolean:
      return integer_i == 0 || integer_i == 1;
    case PLXRecordField::Type::kUnsigned:
      return integer_i >= 0;
    default:
      return true;
  }
}

}  // namespace

std::string PLXRecordField::TypeName() const {
  switch (GetType()) {
    case Type::kBoolean:
      return "boolean";
    case Type::kInteger:
      return "integer";
    case Type::kUnsigned:
      return "unsigned integer";
    case Type::kFloat:
      return "float";
    case Type::kNumber:
      return "number";
    case Type::kText:
      return "text(" + std::to_string(word & 0xFFFF) + ")";
    case Type::kLongText:
      return "long text";
  }
  return "unknown";
}

PLXSQLValue PLXRecordField::Convert(PLXRecordValue const& value_i) const {
  if (IsText()) {
    std::string text = TextOf(value_i);
    if (text.find('\0') != std::string::npos) {
      throw PLXRecordError(PLXRecordError::Kind::kValue,
                           "The field \"" + name + "\" cannot hold a zero byte.");
    }
    return text;
  }
  // No text at all is how a number that has no value travels.
  if (value_i == PLXRecordValue(std::string_view())) return {};
  if (GetType() == Type::kFloat) {
    std::optional<double> const number = DoubleOf(value_i);
    if (!number) Refuse(*this, value_i);
    return *number;
  }
  std::optional<std::int64_t> const integer = IntegerOf(value_i);
  if (GetType() == Type::kNumber && !integer) {
    std::optional<double> const number = DoubleOf(value_i);
    if (!number) Refuse(*this, value_i);
    return *number;
  }
  if (!integer || !IsInRange(GetType(), *integer)) Refuse(*this, value_i);
  return *integer;
}

void PLXRecordField::Adopt(PLXSQLValue& value_io) const {
  if (IsText() || !std::holds_alternative<std::string>(value_io)) return;
  std::string const text = std::get<std::string>(std::move(value_io));
  value_io = Convert(std::string_view(text));
}

std::string PLXRecordText(PLXSQLValue const& value_i) {
  if (auto const* const text = std::get_if<std::string>(&value_i)) return *text;
  if (auto const* const integer = std::get_if<std::int64_t>(&value_i)) return std::to_string(*integer);
  if (auto const* const number = std::get_if<double>(&value_i)) {
    char digits[32];
    auto const [end, error] = std::to_chars(digits, digits + sizeof digits, *number);
    return {digits, end};
  }
  return {};
}

bool PLXRecordInteger(PLXSQLValue const& value_i, std::int64_t& integer_o) {
  std::optional<std::int64_t> integer = 0;
  if (auto const* const text = std::get_if<std::string>(&value_i)) integer = ParseInteger(*text);
  if (auto const* const kept = std::get_if<std::int64_t>(&value_i)) integer = *kept;
  if (auto const* const number = std::get_if<double>(&value_i)) integer = ExactInteger(*number);
  if (integer) integer_o = *integer;
  return integer.has_value();
}

bool PLXRecordDouble(PLXSQLValue const& value_i, double& number_o) {
  std::optional<double> number = 0;
  if (auto const* const text = std::get_if<std::string>(&value_i)) number = ParseDouble(*text);
  if (auto const* const integer = std::get_if<std::int64_t>(&value_i)) number = static_cast<double>(*integer);
  if (auto const* const kept = std::get_if<double>(&value_i)) number = *kept;
  if (number) number_o = *number;
  return number.has_value();
}

std::string PLXRecordNameKey(std::string_view name_i) {
  std::string key(name_i);
  for (char& byte : key) {
    if (byte >= 'A' && byte <= 'Z') byte = static_cast<char>(byte - 'A' + 'a');
  }
  return key;
}
