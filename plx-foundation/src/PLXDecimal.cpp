#include "PLXDecimal.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <utility>

// Multiplication is the schoolbook's, a column at a time in 128 bits; division is Knuth's algorithm D in base
// 10^18. Both divide 128 bits by 64 all the time, which no compiler does well, so that goes by multiplication
// with a reciprocal worked out once (Moeller and Granlund, "Improved division by invariant integers", 2011).

namespace {

typedef unsigned __int128 UInt128;
typedef std::uint64_t Limb;

constexpr Limb kBase = PLXDecimal::kBase;
constexpr int kDigitsPerLimb = PLXDecimal::kDigitsPerLimb;

constexpr Limb High(UInt128 value_i) { return static_cast<Limb>(value_i >> 64); }
constexpr Limb Low(UInt128 value_i) { return static_cast<Limb>(value_i); }

// Divides by one number many times.
class Reciprocal {
 public:
  constexpr explicit Reciprocal(Limb divisor_i)
      : myShift(std::countl_zero(divisor_i)),
        myDivisor(divisor_i << myShift),
        myInverse(Low(~UInt128{0} / myDivisor - (UInt128{1} << 64))) {}

  // Requires: a quotient below 2^64, so that nothing is shifted out either.
  constexpr Limb Divide(UInt128 dividend_i, Limb& remainder_o) const {
    UInt128 const dividend = dividend_i << myShift;
    UInt128 const estimate = UInt128{myInverse} * High(dividend) + dividend;
    Limb quotient = High(estimate) + 1;
    Limb remainder = Low(dividend) - quotient * myDivisor;
    if (remainder > Low(estimate)) {
      --quotient;
      remainder += myDivisor;
    }
    if (remainder >= myDivisor) [[unlikely]] {
      ++quotient;
      remainder -= myDivisor;
    }
    remainder_o = remainder >> myShift;
    return quotient;
  }

 private:
  int myShift;
  Limb myDivisor;
  Limb myInverse;
};

constexpr Reciprocal kByBase(kBase);

constexpr Limb kPowersOfTen[kDigitsPerLimb + 1] = {1,
                                                   10,
                                                   100,
                                                   1'000,
                                                   10'000,
                                                   100'000,
                                                   1'000'000,
                                                   10'000'000,
                                                   100'000'000,
                                                   1'000'000'000,
                                                   10'000'000'000,
                                                   100'000'000'000,
                                                   1'000'000'000'000,
                                                   10'000'000'000'000,
                                                   100'000'000'000'000,
                                                   1'000'000'000'000'000,
                                                   10'000'000'000'000'000,
                                                   100'000'000'000'000'000,
                                                   1'000'000'000'000'000'000};

template <int... kPowers>
consteval std::array<Reciprocal, sizeof...(kPowers)> MakeReciprocals(std::integer_sequence<int, kPowers...>) {
  return {Reciprocal(kPowersOfTen[kPowers])...};
}
constexpr auto kByPowersOfTen = MakeReciprocals(std::make_integer_sequence<int, kDigitsPerLimb>());

int CountDigits(Limb limb_i) {
  int digits = 1;
  while (digits < kDigitsPerLimb && limb_i >= kPowersOfTen[digits]) ++digits;
  return digits;
}

void CopyLimbs(Limb* to_o, Limb const* from_i, int count_i) { PLXLimbs(from_i).Copy(to_o, 0, count_i); }

void ClearLimbs(Limb* limbs_o, int count_i) {
  if (count_i > 0) std::memset(limbs_o, 0, static_cast<std::size_t>(count_i) * sizeof(Limb));
}

// Copies a value's limbs with `fraction_i` of them behind the point, zeros in front of the lowest; returns
// how many.
int Align(PLXDecimalView const& value_i, int fraction_i, Limb* limbs_o) {
  int const added = fraction_i - value_i.fraction;
  ClearLimbs(limbs_o, added);
  value_i.limbs.Copy(limbs_o + added, 0, value_i.count);
  return value_i.count + added;
}

void AddMagnitudes(PLXDecimalView const& left_i, PLXDecimalView const& right_i, PLXDecimal& sum_o) {
  // `finer` reaches at least as far behind the point; its lowest limbs are the sum's.
  bool const swap = left_i.fraction < right_i.fraction;
  PLXDecimalView const& finer = swap ? right_i : left_i;
  PLXDecimalView const& coarser = swap ? left_i : right_i;
  int const offset = finer.fraction - coarser.fraction;
  int const coarserEnd = coarser.count + offset;
  int const count = std::max(finer.count, coarserEnd);
  int index = 0;
  for (; index < offset; ++index) sum_o.limbs[index] = index < finer.count ? finer.limbs[index] : 0;
  Limb carry = 0;
  auto const put = [&](Limb sum_i) {
    carry = sum_i >= kBase ? 1 : 0;
    sum_o.limbs[index] = sum_i - (carry != 0 ? kBase : 0);
  };
  int const common = std::min(finer.count, coarserEnd);
  for (; index < common; ++index) put(finer.limbs[index] + coarser.limbs[index - offset] + carry);
  for (; index < finer.count; ++index) put(finer.limbs[index] + carry);
  for (; index < coarserEnd; ++index) put(coarser.limbs[index - offset] + carry);
  sum_o.limbs[count] = carry;
  sum_o.count = count + (carry != 0 ? 1 : 0);
  sum_o.fraction = finer.fraction;
}

// Requires: left_i is not the smaller.
void SubtractMagnitudes(PLXDecimalView const& left_i, PLXDecimalView const& right_i,
                        PLXDecimal& difference_o) {
  int const fraction = std::max(left_i.fraction, right_i.fraction);
  int const leftOffset = fraction - left_i.fraction;
  int const rightOffset = fraction - right_i.fraction;
  int const count = left_i.count + leftOffset;
  Limb borrow = 0;
  for (int index = 0; index < count; ++index) {
    Limb const left = index >= leftOffset ? left_i.limbs[index - leftOffset] : 0;
    Limb right = borrow;
    if (index >= rightOffset && index - rightOffset < right_i.count)
      right += right_i.limbs[index - rightOffset];
    borrow = left < right ? 1 : 0;
    difference_o.limbs[index] = left - right + (borrow != 0 ? kBase : 0);
  }
  difference_o.count = count;
  difference_o.fraction = fraction;
}

void AddSigned(PLXDecimalView const& left_i, PLXDecimalView const& right_i, bool rightNegative_i,
               PLXDecimal& sum_o) {
  sum_o.negative = left_i.negative;
  if (left_i.negative == rightNegative_i) {
    AddMagnitudes(left_i, right_i, sum_o);
  } else if (CompareMagnitudes(left_i, right_i) >= 0) {
    SubtractMagnitudes(left_i, right_i, sum_o);
  } else {
    SubtractMagnitudes(right_i, left_i, sum_o);
    sum_o.negative = rightNegative_i;
  }
  sum_o.Normalize();
}

// Divides `count_i` limbs in place; returns the remainder.
Limb DivideByLimb(Limb* limbs_io, int count_i, Limb divisor_i) {
  Reciprocal const byDivisor(divisor_i);
  Limb remainder = 0;
  for (int index = count_i - 1; index >= 0; --index) {
    limbs_io[index] = byDivisor.Divide(UInt128{remainder} * kBase + limbs_io[index], remainder);
  }
  return remainder;
}

Limb MultiplyByLimb(Limb* limbs_io, int count_i, Limb factor_i) {
  Limb carry = 0;
  for (int index = 0; index < count_i; ++index) {
    carry = kByBase.Divide(UInt128{limbs_io[index]} * factor_i + carry, limbs_io[index]);
  }
  return carry;
}

// Takes factor_i x divisor from the limbs; returns what had to be borrowed from the limb above.
Limb SubtractMultiple(Limb* limbs_io, Limb const* divisor_i, int count_i, Limb factor_i) {
  Limb quotient = 0;  // of the product one limb below, by the base
  Limb borrow = 0;
  for (int index = 0; index < count_i; ++index) {
    Limb product;
    Limb const next = kByBase.Divide(UInt128{factor_i} * divisor_i[index], product);
    product += quotient + borrow;
    borrow = product >= kBase ? 1 : 0;
    product -= borrow != 0 ? kBase : 0;
    Limb const before = limbs_io[index];
    limbs_io[index] = before - product + (before < product ? kBase : 0);
    if (before < product) ++borrow;
    quotient = next;
  }
  return quotient + borrow;
}

void AddBack(Limb* limbs_io, Limb const* divisor_i, int count_i) {
  Limb carry = 0;
  for (int index = 0; index < count_i; ++index) {
    Limb const sum = limbs_io[index] + divisor_i[index] + carry;
    carry = sum >= kBase ? 1 : 0;
    limbs_io[index] = sum - (carry != 0 ? kBase : 0);
  }
  limbs_io[count_i] = (limbs_io[count_i] + carry) % kBase;
}

// Divides integers of limbs. The dividend has room for one limb more and becomes the remainder, in
// `divisorCount_i` limbs; the quotient has count_i - divisorCount_i + 1 limbs. Requires: divisorCount_i <=
// count_i, a divisor whose highest limb is not zero.
void DivideLimbs(Limb* dividend_io, int count_i, PLXLimbs divisor_i, int divisorCount_i, Limb* quotient_o) {
  if (divisorCount_i == 1) {
    CopyLimbs(quotient_o, dividend_io, count_i);
    dividend_io[0] = DivideByLimb(quotient_o, count_i, divisor_i[0]);
    return;
  }
  // Scaled so that the divisor's highest limb is at least half the base: then a guess from the highest limbs
  // is at most two too large.
  Limb divisor[PLXDecimal::kCapacity];
  divisor_i.Copy(divisor, 0, divisorCount_i);
  Limb const scale = kBase / (divisor_i[divisorCount_i - 1] + 1);
  MultiplyByLimb(divisor, divisorCount_i, scale);
  dividend_io[count_i] = MultiplyByLimb(dividend_io, count_i, scale);
  Limb const highest = divisor[divisorCount_i - 1];
  Limb const second = divisor[divisorCount_i - 2];
  Reciprocal const byHighest(highest);

  for (int position = count_i - divisorCount_i; position >= 0; --position) {
    Limb* const window = dividend_io + position;
    UInt128 const top = UInt128{window[divisorCount_i]} * kBase + window[divisorCount_i - 1];
    Limb rest;
    Limb guess = byHighest.Divide(top, rest);
    while (guess >= kBase || UInt128{guess} * second > UInt128{rest} * kBase + window[divisorCount_i - 2]) {
      --guess;
      rest += highest;
      if (rest >= kBase) break;
    }
    Limb const borrowed = SubtractMultiple(window, divisor, divisorCount_i, guess);
    bool const tooLarge = window[divisorCount_i] < borrowed;
    window[divisorCount_i] = window[divisorCount_i] - borrowed + (tooLarge ? kBase : 0);
    if (tooLarge) [[unlikely]] {
      --guess;
      AddBack(window, divisor, divisorCount_i);
    }
    quotient_o[position] = guess;
  }
  DivideByLimb(dividend_io, divisorCount_i, scale);
}

}  // namespace

PLXDecimal& PLXDecimal::operator=(PLXDecimal const& other_i) noexcept {
  negative = other_i.negative;
  count = other_i.count;
  fraction = other_i.fraction;
  CopyLimbs(limbs, other_i.limbs, count);
  return *this;
}

PLXDecimal::PLXDecimal(PLXDecimalView const& value_i) noexcept
    : negative(value_i.negative), count(value_i.count), fraction(value_i.fraction) {
  value_i.limbs.Copy(limbs, 0, count);
}

PLXDecimal::PLXDecimal(std::int64_t value_i) noexcept : negative(value_i < 0) {
  std::uint64_t magnitude = static_cast<std::uint64_t>(value_i);
  if (negative) magnitude = 0 - magnitude;
  for (; magnitude != 0; magnitude /= kBase) limbs[count++] = magnitude % kBase;
}

int PLXDecimal::CountIntegralDigits() const noexcept {
  return count > fraction ? (count - fraction - 1) * kDigitsPerLimb + CountDigits(limbs[count - 1]) : 0;
}

void PLXDecimal::Normalize() noexcept {
  while (count > 0 && limbs[count - 1] == 0) --count;
  int zeros = 0;
  while (zeros < count && zeros < fraction && limbs[zeros] == 0) ++zeros;
  if (zeros > 0) {
    count -= zeros;
    fraction -= zeros;
    CopyLimbs(limbs, limbs + zeros, count);
  }
  if (count == 0) {
    fraction = 0;
    negative = false;
  }
}

void PLXDecimal::Round(int digits_i) noexcept {
  int const dropped = fraction * kDigitsPerLimb - digits_i;
  if (dropped <= 0) return;
  int const whole = dropped / kDigitsPerLimb;  // limbs that go; the next keeps some of its digits, or all
  int const within = dropped % kDigitsPerLimb;
  if (whole > count || (whole == count && within > 0)) {
    count = 0;
    Normalize();
    return;
  }
  if (whole == count) limbs[count++] = 0;
  Limb const unit = kPowersOfTen[within];
  Limb rest = 0;
  if (within > 0) kByPowersOfTen[static_cast<std::size_t>(within)].Divide(limbs[whole], rest);
  bool const up = within > 0 ? rest >= unit / 2 : limbs[whole - 1] >= kBase / 2;
  limbs[whole] -= rest;
  // Before the point a limb that goes leaves a zero.
  int const removed = std::min(whole, fraction);
  for (int index = removed; index < whole; ++index) limbs[index] = 0;
  count -= removed;
  fraction -= removed;
  if (removed > 0) CopyLimbs(limbs, limbs + removed, count);
  if (up) AddToLimb(whole - removed, unit);
  Normalize();
}

void PLXDecimal::AddToLimb(int index_i, std::uint64_t unit_i) noexcept {
  limbs[index_i] += unit_i;
  while (limbs[index_i] >= kBase) {
    limbs[index_i++] -= kBase;
    if (index_i == count) limbs[count++] = 0;
    ++limbs[index_i];
  }
}

void PLXDecimal::CutFraction() noexcept { CutFractionToLimbs(0); }

void PLXDecimal::CutFractionToLimbs(int limbs_i) noexcept {
  int const dropped = fraction - limbs_i;
  if (dropped <= 0) return;
  count = std::max(count - dropped, 0);
  fraction = limbs_i;
  CopyLimbs(limbs, limbs + dropped, count);
  Normalize();
}

int CompareMagnitudes(PLXDecimalView const& left_i, PLXDecimalView const& right_i) noexcept {
  int const leftPlaces = left_i.count - left_i.fraction;
  int const rightPlaces = right_i.count - right_i.fraction;
  if (left_i.IsZero() || right_i.IsZero()) return (left_i.IsZero() ? 0 : 1) - (right_i.IsZero() ? 0 : 1);
  if (leftPlaces != rightPlaces) return leftPlaces < rightPlaces ? -1 : 1;
  int const common = std::min(left_i.count, right_i.count);
  for (int index = 1; index <= common; ++index) {
    Limb const left = left_i.limbs[left_i.count - index];
    Limb const right = right_i.limbs[right_i.count - index];
    if (left != right) return left < right ? -1 : 1;
  }
  // In normal form whoever has limbs left has one that is not zero.
  return left_i.count == right_i.count ? 0 : (left_i.count < right_i.count ? -1 : 1);
}

int CompareValues(PLXDecimalView const& left_i, PLXDecimalView const& right_i) noexcept {
  if (left_i.negative != right_i.negative) return left_i.negative ? -1 : 1;
  int const order = CompareMagnitudes(left_i, right_i);
  return left_i.negative ? -order : order;
}

void AddValues(PLXDecimalView const& left_i, PLXDecimalView const& right_i, PLXDecimal& sum_o) noexcept {
  AddSigned(left_i, right_i, right_i.negative, sum_o);
}

void SubtractValues(PLXDecimalView const& left_i, PLXDecimalView const& right_i,
                    PLXDecimal& difference_o) noexcept {
  AddSigned(left_i, right_i, !right_i.negative, difference_o);
}

void MultiplyValues(PLXDecimalView const& left_i, PLXDecimalView const& right_i,
                    PLXDecimal& product_o) noexcept {
  product_o.negative = left_i.negative != right_i.negative;
  product_o.fraction = left_i.fraction + right_i.fraction;
  product_o.count = left_i.count + right_i.count;
  // A column holds at most kLongestFactor products below 10^36, so its quotient by the base is at most 1.6 x
  // 10^19 and fits a limb with what is added below. Dividing a column before its carry comes in keeps the
  // divisions independent of each other; only the short one of the limb waits for the column before.
  Limb quotient = 0;
  Limb carry = 0;
  for (int column = 0; column < product_o.count; ++column) {
    UInt128 sum = 0;
    int const first = std::max(0, column - right_i.count + 1);
    int const last = std::min(column, left_i.count - 1);
    for (int index = first; index <= last; ++index)
      sum += UInt128{left_i.limbs[index]} * right_i.limbs[column - index];
    Limb limb;
    Limb const next = kByBase.Divide(sum, limb);
    limb += quotient + carry;
    carry = limb / kBase;
    product_o.limbs[column] = limb - carry * kBase;
    quotient = next;
  }
  product_o.Normalize();
}

void DivideValues(PLXDecimalView const& dividend_i, PLXDecimalView const& divisor_i, int fractionLimbs_i,
                  PLXDecimal& quotient_o) noexcept {
  // dividend / divisor with the point moved: an integer division whose quotient has the limbs asked for
  // behind the point. A negative shift drops limbs of the dividend that cannot reach the quotient.
  int const shift = fractionLimbs_i + divisor_i.fraction - dividend_i.fraction;
  Limb dividend[2 * PLXDecimal::kCapacity];
  int const count = std::max(dividend_i.count + shift, 0);
  ClearLimbs(dividend, shift);
  dividend_i.limbs.Copy(dividend + std::max(shift, 0), std::max(-shift, 0), count - std::max(shift, 0));
  quotient_o.negative = dividend_i.negative != divisor_i.negative;
  quotient_o.fraction = fractionLimbs_i;
  quotient_o.count = std::max(count - divisor_i.count + 1, 0);
  if (quotient_o.count > 0) DivideLimbs(dividend, count, divisor_i.limbs, divisor_i.count, quotient_o.limbs);
  quotient_o.Normalize();
}

void DivideToInteger(PLXDecimalView const& dividend_i, PLXDecimalView const& divisor_i,
                     PLXDecimal& quotient_o, PLXDecimal& remainder_o) noexcept {
  int const fraction = std::max(dividend_i.fraction, divisor_i.fraction);
  Limb divisor[PLXDecimal::kCapacity];
  int const divisorCount = Align(divisor_i, fraction, divisor);
  int const count = Align(dividend_i, fraction, remainder_o.limbs);
  quotient_o.negative = dividend_i.negative != divisor_i.negative;
  quotient_o.fraction = 0;
  quotient_o.count = std::max(count - divisorCount + 1, 0);
  if (quotient_o.count > 0)
    DivideLimbs(remainder_o.limbs, count, PLXLimbs(divisor), divisorCount, quotient_o.limbs);
  quotient_o.Normalize();
  remainder_o.negative = dividend_i.negative;
  remainder_o.fraction = fraction;
  remainder_o.count = std::min(count, divisorCount);
  remainder_o.Normalize();
}
