#pragma once

#include <cstdint>
#include <cstring>

// Limbs where they stand, which in a number's string is at any address.
class PLXLimbs {
 public:
  explicit PLXLimbs(void const* address_i) noexcept : myAddress(static_cast<char const*>(address_i)) {}
  std::uint64_t operator[](int index_i) const noexcept {
    std::uint64_t limb;
    std::memcpy(&limb, myAddress + index_i * std::ptrdiff_t{sizeof limb}, sizeof limb);
    return limb;
  }
  // Copies `count_i` limbs, none when that is negative, from the one at `first_i`, upward: the target may
  // overlap from below. Goes limb by limb, because a wide load of limbs that were just written one by one
  // waits for all of them to reach memory, and that costs more than the calculation.
  void Copy(void* to_o, int first_i, int count_i) const noexcept {
    constexpr std::ptrdiff_t kSize = sizeof(std::uint64_t);
    for (int index = 0; index < count_i; ++index) {
      std::uint64_t const limb = (*this)[first_i + index];
      std::memcpy(static_cast<char*>(to_o) + index * kSize, &limb, kSize);
      asm volatile("" ::: "memory");  // keeps the compiler from making this one memmove
    }
  }

 private:
  char const* myAddress;
};

// A value in normal form that stands elsewhere and outlives the view; see PLXDecimal.
struct PLXDecimalView {
  bool IsZero() const noexcept { return count == 0; }

  bool negative;
  int count;
  int fraction;
  PLXLimbs limbs;
};

// A decimal value unpacked on the stack, where PLXNumber calculates.
//
// The digits stand in limbs of 18, least significant first, and the point falls between two limbs: `fraction`
// of the limbs lie behind it. So adding never shifts digits, and only rounding looks inside a limb. The value
// is
//
//   sum of limbs[i] * 10^(18 * (i - fraction)),  i < count
//
// Normal form: the highest limb is not zero, the lowest is not zero when it lies behind the point, and zero
// has no limbs, no fraction and no sign. Every function takes and leaves normal forms. A number of 100 digits
// has at most 7 limbs; the capacity leaves room for the product of two values of kLongestFactor limbs. Limbs
// beyond `count` are undefined, which is why copying goes through the member functions.
struct PLXDecimal {
  static constexpr int kDigitsPerLimb = 18;
  static constexpr std::uint64_t kBase = 1'000'000'000'000'000'000;
  static constexpr int kLongestFactor = 16;
  static constexpr int kCapacity = 2 * kLongestFactor;

  PLXDecimal() noexcept {}  // zero
  PLXDecimal(PLXDecimal const&) = delete;
  explicit PLXDecimal(PLXDecimalView const& value_i) noexcept;
  PLXDecimal& operator=(PLXDecimal const& other_i) noexcept;
  explicit PLXDecimal(std::int64_t value_i) noexcept;

  operator PLXDecimalView() const noexcept { return {negative, count, fraction, PLXLimbs(limbs)}; }
  bool IsZero() const noexcept { return count == 0; }
  // Digits before the point.
  int CountIntegralDigits() const noexcept;
  bool FitsIntegralDigits(int places_i) const noexcept {
    return (count - fraction) * kDigitsPerLimb <= places_i || CountIntegralDigits() <= places_i;
  }
  // Restores the normal form after the limbs were written.
  void Normalize() noexcept;
  // Rounds half away from zero to `digits_i` behind the point; negative digits are before it.
  void Round(int digits_i) noexcept;
  void CutFraction() noexcept;
  // Keeps `limbs_i` limbs behind the point.
  void CutFractionToLimbs(int limbs_i) noexcept;

  // Adds to one limb and carries; count grows where the carry leaves the highest.
  void AddToLimb(int index_i, std::uint64_t unit_i) noexcept;

  bool negative = false;
  int count = 0;
  int fraction = 0;
  std::uint64_t limbs[kCapacity];
};

// -1, 0 or 1.
int CompareMagnitudes(PLXDecimalView const& left_i, PLXDecimalView const& right_i) noexcept;
int CompareValues(PLXDecimalView const& left_i, PLXDecimalView const& right_i) noexcept;

// Outputs are other objects than inputs.
void AddValues(PLXDecimalView const& left_i, PLXDecimalView const& right_i, PLXDecimal& sum_o) noexcept;
void SubtractValues(PLXDecimalView const& left_i, PLXDecimalView const& right_i,
                    PLXDecimal& difference_o) noexcept;
// Requires: factors of at most kLongestFactor limbs, their leading zeros behind the point counted.
void MultiplyValues(PLXDecimalView const& left_i, PLXDecimalView const& right_i,
                    PLXDecimal& product_o) noexcept;
// The quotient cut after `fractionLimbs_i` limbs behind the point. Requires: a divisor that is not zero.
void DivideValues(PLXDecimalView const& dividend_i, PLXDecimalView const& divisor_i, int fractionLimbs_i,
                  PLXDecimal& quotient_o) noexcept;
// The quotient cut to an integer and dividend - quotient * divisor. Requires: a divisor that is not zero.
void DivideToInteger(PLXDecimalView const& dividend_i, PLXDecimalView const& divisor_i,
                     PLXDecimal& quotient_o, PLXDecimal& remainder_o) noexcept;

// How reading a text ended.
enum class PLXDecimalText { kValue, kNothing, kSecondPoint, kTooManyDigits, kSignBehind, kNotADigit };
// Reads blanks, a sign, digits with at most one point, blanks, and rounds to `scale_i` digits behind the
// point. kTooManyDigits at the integral digit beyond `places_i`; rounding may still carry into one more. The
// value is undefined unless kValue is returned.
PLXDecimalText ReadDecimal(char const* text_i, std::uint32_t length_i, int places_i, int scale_i,
                           PLXDecimal& value_o) noexcept;
// Characters that WriteDecimal writes, at least: `minimumDigits_i` before the point, `minimumScale_i` behind
// it.
std::uint32_t CountDecimalText(PLXDecimal const& value_i, std::uint32_t minimumDigits_i,
                               int minimumScale_i) noexcept;
void WriteDecimal(PLXDecimal const& value_i, std::uint32_t minimumDigits_i, int minimumScale_i,
                  char* text_o) noexcept;
