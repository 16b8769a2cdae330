#pragma once

#include <algorithm>
#include <string>
#include <string_view>
#include <utility>

// Decimal arithmetic as it is taught at school, on strings of digits: slow, unlimited and easy to see
// through. What PLXNumber calculates is held against it.
//
// Magnitudes are strings of digits, most significant first, without leading zeros; zero is the empty string.
// A value is magnitude / 10^scale.
struct DecimalTwin {
  bool negative = false;
  std::string digits;
  int scale = 0;

  // Requires: a sign or none, digits, at most one point.
  static DecimalTwin FromText(std::string_view text_i) {
    DecimalTwin value;
    bool behindPoint = false;
    for (char character : text_i) {
      if (character == '-') value.negative = true;
      if (character == '.') behindPoint = true;
      if (character < '0' || character > '9') continue;
      value.digits += character;
      if (behindPoint) ++value.scale;
    }
    value.Trim();
    return value;
  }

  // What a number of this shape shows after it was given the text: its value, "null", or "0" after a second
  // point.
  static std::string Read(std::string_view text_i, int length_i, int scale_i) {
    std::string_view text = text_i;
    auto const take = [&text](auto accept_i) {
      std::size_t count = 0;
      while (count < text.size() && accept_i(text[count])) ++count;
      std::string_view const taken = text.substr(0, count);
      text.remove_prefix(count);
      return std::string(taken);
    };
    auto const isBlank = [](char character_i) { return character_i == ' ' || character_i == '\t'; };
    auto const isDigit = [](char character_i) { return character_i >= '0' && character_i <= '9'; };
    take(isBlank);
    std::string number;
    if (text.starts_with('-') || text.starts_with('+')) {
      number = text[0];
      text.remove_prefix(1);
    }
    std::string const integral = take(isDigit);
    if (static_cast<int>(Stripped(integral).size()) > length_i - scale_i) return "null";
    number += integral;
    std::string fraction;
    if (text.starts_with('.')) {
      text.remove_prefix(1);
      fraction = take(isDigit);
      number += "." + fraction;
      if (text.starts_with('.')) return "0";
    }
    take(isBlank);
    if (!text.empty() || integral.size() + fraction.size() == 0) return "null";
    return FromText(number).Fitted(length_i, scale_i);
  }

  // As a number of this shape shows it: rounded to the scale, or "null" when it has too many integral digits.
  std::string Fitted(int length_i, int scale_i) const {
    DecimalTwin const rounded = Rounded(scale_i);
    return rounded.CountIntegralDigits() <= length_i - scale_i ? rounded.ToText() : "null";
  }

  std::string ToText() const {
    std::string text = digits;
    if (static_cast<int>(text.size()) <= scale)
      text.insert(0, static_cast<std::size_t>(scale) + 1 - text.size(), '0');
    if (scale > 0) {
      text.insert(text.size() - static_cast<std::size_t>(scale), ".");
      while (text.back() == '0') text.pop_back();
      if (text.back() == '.') text.pop_back();
    }
    if (text.empty()) text = "0";
    return (negative ? "-" : "") + text;
  }

  int CountIntegralDigits() const { return std::max(static_cast<int>(digits.size()) - scale, 0); }

  // Half away from zero; a negative scale rounds before the point.
  DecimalTwin Rounded(int scale_i) const {
    DecimalTwin value(*this);
    if (scale_i >= scale) return value;
    std::size_t const dropped = static_cast<std::size_t>(scale - scale_i);
    value.digits.insert(0, dropped, '0');
    bool const up = value.digits[value.digits.size() - dropped] >= '5';
    value.digits.resize(value.digits.size() - dropped);
    if (up) value.digits = Sum(Stripped(value.digits), "1");
    value.scale = scale_i;
    value.Trim();
    if (scale_i < 0) return value.AtScale(0);
    return value;
  }

  friend DecimalTwin operator+(DecimalTwin const& left_i, DecimalTwin const& right_i) {
    int const finest = std::max(left_i.scale, right_i.scale);
    DecimalTwin const left = left_i.AtScale(finest);
    DecimalTwin const right = right_i.AtScale(finest);
    DecimalTwin sum;
    sum.scale = finest;
    bool const leftIsLarger = Compare(left.digits, right.digits) >= 0;
    sum.negative = leftIsLarger ? left.negative : right.negative;
    sum.digits = left.negative == right.negative ? Sum(left.digits, right.digits)
                 : leftIsLarger                  ? Difference(left.digits, right.digits)
                                                 : Difference(right.digits, left.digits);
    sum.Trim();
    return sum;
  }
  friend DecimalTwin operator-(DecimalTwin const& value_i) {
    DecimalTwin result(value_i);
    result.negative = !result.negative;
    result.Trim();
    return result;
  }
  friend DecimalTwin operator-(DecimalTwin const& left_i, DecimalTwin const& right_i) {
    return left_i + -right_i;
  }
  friend DecimalTwin operator*(DecimalTwin const& left_i, DecimalTwin const& right_i) {
    DecimalTwin product;
    product.negative = left_i.negative != right_i.negative;
    product.scale = left_i.scale + right_i.scale;
    for (char digit : left_i.digits) {
      product.digits += '0';
      for (; digit > '0'; --digit) product.digits = Sum(Stripped(product.digits), right_i.digits);
      product.digits = Stripped(product.digits);
    }
    product.Trim();
    return product;
  }
  // Digits of the quotient up to `scale_i` behind the point and the one after it, which a rounding needs.
  static DecimalTwin Quotient(DecimalTwin const& dividend_i, DecimalTwin const& divisor_i, int scale_i) {
    DecimalTwin quotient;
    quotient.negative = dividend_i.negative != divisor_i.negative;
    quotient.scale = scale_i + 1;
    std::string dividend = dividend_i.digits;
    int const shift = quotient.scale + divisor_i.scale - dividend_i.scale;
    std::string divisor = divisor_i.digits;
    (shift >= 0 ? dividend : divisor).append(static_cast<std::size_t>(shift >= 0 ? shift : -shift), '0');
    quotient.digits = LongDivision(dividend, divisor).first;
    quotient.Trim();
    return quotient;
  }
  // The integral quotient, and dividend - quotient * divisor.
  static std::pair<DecimalTwin, DecimalTwin> IntegralQuotient(DecimalTwin const& dividend_i,
                                                              DecimalTwin const& divisor_i) {
    int const scale = std::max(dividend_i.scale, divisor_i.scale);
    auto [quotient, remainder] =
        LongDivision(dividend_i.AtScale(scale).digits, divisor_i.AtScale(scale).digits);
    DecimalTwin first{dividend_i.negative != divisor_i.negative, quotient, 0};
    DecimalTwin second{dividend_i.negative, remainder, scale};
    first.Trim();
    second.Trim();
    return {first, second};
  }
  // -1, 0 or 1.
  static int CompareValues(DecimalTwin const& left_i, DecimalTwin const& right_i) {
    DecimalTwin const difference = left_i - right_i;
    return difference.digits.empty() ? 0 : difference.negative ? -1 : 1;
  }

 private:
  static std::string Stripped(std::string const& digits_i) {
    std::size_t const first = digits_i.find_first_not_of('0');
    return first == std::string::npos ? std::string() : digits_i.substr(first);
  }
  void Trim() {
    digits = Stripped(digits);
    if (digits.empty()) negative = false;
  }
  DecimalTwin AtScale(int scale_i) const {
    DecimalTwin value(*this);
    if (!value.digits.empty()) value.digits.append(static_cast<std::size_t>(scale_i - scale), '0');
    value.scale = scale_i;
    return value;
  }
  static int Compare(std::string const& left_i, std::string const& right_i) {
    if (left_i.size() != right_i.size()) return left_i.size() < right_i.size() ? -1 : 1;
    return left_i.compare(right_i);
  }
  static std::string Sum(std::string const& left_i, std::string const& right_i) {
    std::string sum;
    int carry = 0;
    for (std::size_t index = 0; index < std::max(left_i.size(), right_i.size()) || carry > 0; ++index) {
      if (index < left_i.size()) carry += left_i[left_i.size() - 1 - index] - '0';
      if (index < right_i.size()) carry += right_i[right_i.size() - 1 - index] - '0';
      sum += static_cast<char>('0' + carry % 10);
      carry /= 10;
    }
    std::reverse(sum.begin(), sum.end());
    return sum;
  }
  // Requires: left_i is not the smaller.
  static std::string Difference(std::string const& left_i, std::string const& right_i) {
    std::string difference;
    int borrow = 0;
    for (std::size_t index = 0; index < left_i.size(); ++index) {
      int digit = left_i[left_i.size() - 1 - index] - '0' - borrow;
      if (index < right_i.size()) digit -= right_i[right_i.size() - 1 - index] - '0';
      borrow = digit < 0 ? 1 : 0;
      difference += static_cast<char>('0' + digit + 10 * borrow);
    }
    std::reverse(difference.begin(), difference.end());
    return Stripped(difference);
  }
  static std::pair<std::string, std::string> LongDivision(std::string const& dividend_i,
                                                          std::string const& divisor_i) {
    std::string quotient;
    std::string rest;
    for (char digit : dividend_i) {
      rest = Stripped(rest + digit);
      char count = '0';
      for (; Compare(rest, divisor_i) >= 0; ++count) rest = Difference(rest, divisor_i);
      quotient += count;
    }
    return {Stripped(quotient), rest};
  }
};
