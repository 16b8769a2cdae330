#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

#include "PLXDecimal.h"

// Text to limbs and back. Eight digits are read at a time as one 64-bit word, two are written at a time from
// a table.

namespace {

typedef std::uint64_t Limb;

constexpr int kDigitsPerLimb = PLXDecimal::kDigitsPerLimb;

// Eight characters, the first in the lowest byte.
Limb LoadEight(char const* text_i) {
  Limb word;
  std::memcpy(&word, text_i, sizeof word);
  if constexpr (std::endian::native == std::endian::big) word = __builtin_bswap64(word);
  return word;
}

bool AreEightDigits(Limb word_i) {
  constexpr Limb kHighHalves = 0xF0F0F0F0F0F0F0F0;
  constexpr Limb kZeros = 0x3030303030303030;
  constexpr Limb kSixes = 0x0606060606060606;  // carries ':' and beyond out of the row of digits
  return (word_i & kHighHalves) == kZeros && ((word_i + kSixes) & kHighHalves) == kZeros;
}

// Joins neighbours to pairs, pairs to fours and fours to the eight; each step leaves its sums in the upper
// halves.
Limb ReadEightDigits(char const* text_i) {
  Limb word = LoadEight(text_i) & 0x0F0F0F0F0F0F0F0F;
  word = (word * ((10 << 8) + 1)) >> 8 & 0x00FF00FF00FF00FF;
  word = (word * ((100 << 16) + 1)) >> 16 & 0x0000FFFF0000FFFF;
  return (word * ((Limb{10'000} << 32) + 1)) >> 32;
}

Limb ReadDigits(char const* text_i, int count_i) {
  Limb value = 0;
  for (; count_i >= 8; count_i -= 8, text_i += 8) value = value * 100'000'000 + ReadEightDigits(text_i);
  for (; count_i > 0; --count_i, ++text_i) value = value * 10 + static_cast<Limb>(*text_i - '0');
  return value;
}

Limb TimesPowerOfTen(Limb value_i, int power_i) {
  for (; power_i > 0; --power_i) value_i *= 10;
  return value_i;
}

bool IsBlank(char character_i) { return character_i == ' ' || character_i == '\t'; }

char const* SkipDigits(char const* text_i, char const* end_i) {
  while (end_i - text_i >= 8 && AreEightDigits(LoadEight(text_i))) text_i += 8;
  while (text_i != end_i && *text_i >= '0' && *text_i <= '9') ++text_i;
  return text_i;
}

struct TextParts {
  bool negative = false;
  bool hasDigits = false;
  char const* integral = nullptr;  // without leading zeros
  char const* integralEnd = nullptr;
  char const* fraction = nullptr;
  char const* fractionEnd = nullptr;
};

PLXDecimalText Split(char const* text_i, char const* end_i, int places_i, TextParts& parts_o) {
  char const* text = text_i;
  while (text != end_i && IsBlank(*text)) ++text;
  if (text != end_i && (*text == '-' || *text == '+')) parts_o.negative = *text++ == '-';
  char const* const digits = text;
  while (text != end_i && *text == '0') ++text;
  parts_o.integral = text;
  text = parts_o.integralEnd = SkipDigits(text, end_i);
  parts_o.hasDigits = text != digits;
  if (parts_o.integralEnd - parts_o.integral > places_i) return PLXDecimalText::kTooManyDigits;
  parts_o.fraction = parts_o.fractionEnd = text;
  if (text != end_i && *text == '.') {
    parts_o.fraction = ++text;
    text = parts_o.fractionEnd = SkipDigits(text, end_i);
    parts_o.hasDigits = parts_o.hasDigits || parts_o.fractionEnd != parts_o.fraction;
    if (text != end_i && *text == '.') return PLXDecimalText::kSecondPoint;
  }
  while (text != end_i && IsBlank(*text)) ++text;
  if (text != end_i)
    return *text == '+' || *text == '-' ? PLXDecimalText::kSignBehind : PLXDecimalText::kNotADigit;
  return parts_o.hasDigits ? PLXDecimalText::kValue : PLXDecimalText::kNothing;
}

consteval std::array<char, 200> MakeDigitPairs() {
  std::array<char, 200> text{};
  for (std::size_t pair = 0; pair < 100; ++pair) {
    text[2 * pair] = static_cast<char>('0' + pair / 10);
    text[2 * pair + 1] = static_cast<char>('0' + pair % 10);
  }
  return text;
}
constexpr std::array<char, 200> kDigitPairs = MakeDigitPairs();

void WritePair(std::uint32_t pair_i, char* text_o) {
  std::memcpy(text_o, kDigitPairs.data() + 2 * pair_i, 2);
}

void WriteEightDigits(std::uint32_t value_i, char* text_o) {
  std::uint32_t const upper = value_i / 10'000;
  std::uint32_t const lower = value_i % 10'000;
  WritePair(upper / 100, text_o);
  WritePair(upper % 100, text_o + 2);
  WritePair(lower / 100, text_o + 4);
  WritePair(lower % 100, text_o + 6);
}

void WriteLimb(Limb limb_i, char* text_o) {
  Limb const upper = limb_i / 100'000'000;
  WritePair(static_cast<std::uint32_t>(upper / 100'000'000), text_o);
  WriteEightDigits(static_cast<std::uint32_t>(upper % 100'000'000), text_o + 2);
  WriteEightDigits(static_cast<std::uint32_t>(limb_i % 100'000'000), text_o + 10);
}

char* WriteZeros(char* text_o, int count_i) {
  if (count_i <= 0) return text_o;
  std::memset(text_o, '0', static_cast<std::size_t>(count_i));
  return text_o + count_i;
}

int CountFractionDigits(PLXDecimal const& value_i) {
  if (value_i.fraction == 0) return 0;
  int digits = value_i.fraction * kDigitsPerLimb;
  for (Limb limb = value_i.limbs[0]; limb % 10 == 0; limb /= 10) --digits;
  return digits;
}

}  // namespace

PLXDecimalText ReadDecimal(char const* text_i, std::uint32_t length_i, int places_i, int scale_i,
                           PLXDecimal& value_o) noexcept {
  TextParts parts;
  PLXDecimalText const outcome = Split(text_i, text_i + length_i, places_i, parts);
  if (outcome != PLXDecimalText::kValue) return outcome;

  // One digit beyond the scale decides the rounding.
  int const fractionDigits = static_cast<int>(
      std::min<std::ptrdiff_t>(parts.fractionEnd - parts.fraction, static_cast<std::ptrdiff_t>(scale_i) + 1));
  int const fractionLimbs = (fractionDigits + kDigitsPerLimb - 1) / kDigitsPerLimb;
  for (int index = 0; index < fractionLimbs; ++index) {
    int const digits = std::min(kDigitsPerLimb, fractionDigits - index * kDigitsPerLimb);
    value_o.limbs[fractionLimbs - 1 - index] =
        TimesPowerOfTen(ReadDigits(parts.fraction + index * kDigitsPerLimb, digits), kDigitsPerLimb - digits);
  }
  int count = fractionLimbs;
  for (char const* end = parts.integralEnd; end != parts.integral;) {
    int const digits = static_cast<int>(std::min<std::ptrdiff_t>(kDigitsPerLimb, end - parts.integral));
    end -= digits;
    value_o.limbs[count++] = ReadDigits(end, digits);
  }
  value_o.negative = parts.negative;
  value_o.count = count;
  value_o.fraction = fractionLimbs;
  value_o.Normalize();
  value_o.Round(scale_i);
  return PLXDecimalText::kValue;
}

std::uint32_t CountDecimalText(PLXDecimal const& value_i, std::uint32_t minimumDigits_i,
                               int minimumScale_i) noexcept {
  int const integral = std::max(value_i.CountIntegralDigits(), 1);
  int const fraction = std::max(CountFractionDigits(value_i), minimumScale_i);
  return std::max(static_cast<std::uint32_t>(integral), minimumDigits_i) +
         static_cast<std::uint32_t>(fraction) + (fraction > 0 ? 1 : 0) + (value_i.negative ? 1 : 0);
}

void WriteDecimal(PLXDecimal const& value_i, std::uint32_t minimumDigits_i, int minimumScale_i,
                  char* text_o) noexcept {
  char* text = text_o;
  char limb[kDigitsPerLimb];
  if (value_i.negative) *text++ = '-';
  int const integral = value_i.CountIntegralDigits();
  text = WriteZeros(text, std::max(static_cast<int>(minimumDigits_i), 1) - integral);
  if (integral > 0) {
    int const first = (integral - 1) % kDigitsPerLimb + 1;
    WriteLimb(value_i.limbs[value_i.count - 1], limb);
    std::memcpy(text, limb + kDigitsPerLimb - first, static_cast<std::size_t>(first));
    text += first;
    for (int index = value_i.count - 2; index >= value_i.fraction; --index, text += kDigitsPerLimb) {
      WriteLimb(value_i.limbs[index], text);
    }
  }
  int left = CountFractionDigits(value_i);
  int const padding = minimumScale_i - left;
  if (left > 0 || padding > 0) *text++ = '.';
  for (int index = value_i.fraction - 1; left > 0; --index) {
    int const digits = std::min(left, kDigitsPerLimb);
    WriteLimb(index < value_i.count ? value_i.limbs[index] : 0, limb);
    std::memcpy(text, limb, static_cast<std::size_t>(digits));
    text += digits;
    left -= digits;
  }
  WriteZeros(text, padding);
}
