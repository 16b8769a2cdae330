#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <locale.h>
#include <stdlib.h>
#include <string_view>

#include "PLXEncodedLength.h"
#include "PLXStringUtility.h"

namespace {

char const ourSourceFile[] = "src/PLXStringUtility.cpp";

constexpr char kRadixDigit[] = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ";
constexpr unsigned kGreatestRadix = 36;

// A double has at most 309 digits before the point and 1074 behind it.
constexpr unsigned kMostIntegerDigits = 309;
constexpr unsigned kMostDecimals = 1074;
constexpr std::size_t kLeastDoubleWidth = 4;

// The locale in which the C library reads a point as a point, whatever the process has set. Kept for good.
locale_t PlainLocale() {
  static locale_t const ourPlainLocale = newlocale(LC_ALL_MASK, "C", nullptr);
  return ourPlainLocale;
}

// The digit that a capital or any other character but a letter stands for; negative below "0".
int DigitValue(unsigned char character_i) { return character_i - (character_i > '@' ? '7' : '0'); }

PLXUInt32 ReadDigits(std::string_view text_i, unsigned radix_i) {
  PLXUInt32 result = 0;
  for (char const character : text_i) {
    if (radix_i == 10 && character == ',') continue;
    if (radix_i == 10 && !PLXStringUtility::IsDigit(character)) break;
    // Only ASCII letters have a capital that counts: what folds beyond ASCII stays beyond every radix.
    bool const isSmall = character >= 'a' && character <= 'z';
    int const digit = DigitValue(static_cast<unsigned char>(isSmall ? character - 'a' + 'A' : character));
    if (digit >= static_cast<int>(radix_i)) break;
    result = result * radix_i + static_cast<PLXUInt32>(digit);
  }
  return result;
}

}  // namespace

PLXString PLXStringUtility::GetStringRepresentation(unsigned int value_i, unsigned radix_i,
                                                    unsigned minimumDigitCount_i) {
  // Radix 1 has no digit but 0, so no number ends in it.
  if (radix_i < 2 || radix_i > kGreatestRadix) return PLXString();
  if (minimumDigitCount_i < 1) {
    PLXWarnState(ourSourceFile, "minimumDigitCount_i < 1");
    minimumDigitCount_i = 1;
  }
  char digits[32];
  char* const end = digits + sizeof digits;
  char* first = end;
  do {
    *--first = kRadixDigit[value_i % radix_i];
    value_i /= radix_i;
  } while (value_i != 0);

  PLXUInt32 const count = static_cast<PLXUInt32>(end - first);
  PLXUInt32 const length = std::max<PLXUInt32>(count, minimumDigitCount_i);
  PLXString text;
  char* const target = text.ReserveLength(length);
  std::memset(target, '0', length - count);
  std::memcpy(target + (length - count), first, count);
  return text;
}

PLXString PLXStringUtility::GetStringRepresentation(int value_i, unsigned radix_i,
                                                    unsigned minimumDigitCount_i) {
  unsigned const value = static_cast<unsigned>(value_i);
  if (value_i >= 0) return GetStringRepresentation(value, radix_i, minimumDigitCount_i);
  return "-" + GetStringRepresentation(0U - value, radix_i, minimumDigitCount_i);
}

PLXString PLXStringUtility::GetStringRepresentation(double value_i, unsigned digits_i) {
  char number[1 + kMostIntegerDigits + 1 + kMostDecimals];
  unsigned const decimals = std::min(digits_i, kMostDecimals);
  std::to_chars_result const result = std::to_chars(number, number + sizeof number, value_i,
                                                    std::chars_format::fixed, static_cast<int>(decimals));
  PLX_ASSERT_STATE(result.ec == std::errc());
  std::size_t const length = static_cast<std::size_t>(result.ptr - number);
  std::size_t const blanks = length < kLeastDoubleWidth ? kLeastDoubleWidth - length : 0;
  std::size_t const zeros = std::isfinite(value_i) ? digits_i - decimals : 0;

  PLXString text;
  char* const target =
      text.ReserveLength(EncodedLength(ourSourceFile, std::uint64_t{blanks} + length + zeros));
  std::memset(target, ' ', blanks);
  std::memcpy(target + blanks, number, length);
  std::memset(target + blanks + length, '0', zeros);
  return text;
}

int PLXStringUtility::GetNumericalRepresentation(PLXString const& string_i, unsigned radix_i) {
  if (radix_i > kGreatestRadix) return 0;
  std::string_view text(string_i.GetCStringAccess(), string_i.GetLength());
  std::size_t const first = text.find_first_not_of(" \t\r\n");
  if (first == std::string_view::npos) return 0;
  text = text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);

  bool const isNegative = text.front() == '-';
  if (isNegative || text.front() == '+') text.remove_prefix(1);
  PLXUInt32 const value = ReadDigits(text, radix_i);
  return static_cast<int>(isNegative ? 0U - value : value);
}

double PLXStringUtility::GetNumericalRepresentation(PLXString const& string_i) {
  return strtod_l(string_i.GetCStringAccess(), nullptr, PlainLocale());
}
