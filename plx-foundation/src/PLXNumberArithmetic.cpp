#include <algorithm>

#include "PLXDecimal.h"
#include "PLXNumber.h"

namespace {

// Powers carry 144 digits behind the point: 100 is the most that a result shows, 2^31 steps lose ten more,
// and the rest keeps the digit that decides the rounding out of doubt.
constexpr int kPowerLimbs = 8;

// base_i to the power of exponent_i, from the highest bit of the exponent down. Stops as soon as there are
// more than `places_i` integral digits: from there powers only grow. Requires: exponent_i > 0.
void RaiseToPower(PLXDecimal const& base_i, std::int64_t exponent_i, int places_i, PLXDecimal& power_o) {
  PLXDecimal product;
  power_o = base_i;
  std::int64_t bit = 1;
  while (bit <= exponent_i / 2) bit *= 2;
  for (bit /= 2; bit > 0 && power_o.CountIntegralDigits() <= places_i; bit /= 2) {
    MultiplyValues(power_o, power_o, product);
    product.CutFractionToLimbs(kPowerLimbs);
    if ((exponent_i & bit) == 0 || product.CountIntegralDigits() > places_i) {
      power_o = product;
      continue;
    }
    MultiplyValues(product, base_i, power_o);
    power_o.CutFractionToLimbs(kPowerLimbs);
  }
}

}  // namespace

// ---- Shapes ----

PLXNumber PLXNumber::WithShapeOf(PLXNumber const& left_i, PLXNumber const& right_i) {
  left_i.AssertValid();
  right_i.AssertValid();
  PLXNumber result;
  PLXSInt32 const places = std::max(left_i.myLength - left_i.myScale, right_i.myLength - right_i.myScale);
  result.myScale = std::min(std::max(left_i.myScale, right_i.myScale), kLongest - places);
  result.myLength = places + result.myScale;
  return result;
}

PLXNumber PLXNumber::WithRemainderShapeOf(PLXNumber const& left_i, PLXNumber const& right_i) {
  PLXNumber result = WithShapeOf(left_i, right_i);
  PLXSInt32 const places = result.myLength - result.myScale;
  // A remainder is below both operands, so the places of the one with the larger scale are enough.
  result.myScale = std::max(left_i.myScale, right_i.myScale);
  result.myLength = std::min(places + result.myScale, kLongest);
  return result;
}

// ---- Calculating ----

// kIsSum: the result has no digits beyond the scales of the operands, so that where these fit nothing is
// rounded.

struct PLXNumber::Sum {
  static constexpr bool kIsSum = true;
  static constexpr bool kDivides = false;
  static void Run(PLXDecimalView const& left_i, PLXDecimalView const& right_i, PLXSInt32,
                  PLXDecimal& result_o) {
    AddValues(left_i, right_i, result_o);
  }
};

struct PLXNumber::Difference {
  static constexpr bool kIsSum = true;
  static constexpr bool kDivides = false;
  static void Run(PLXDecimalView const& left_i, PLXDecimalView const& right_i, PLXSInt32,
                  PLXDecimal& result_o) {
    SubtractValues(left_i, right_i, result_o);
  }
};

struct PLXNumber::Product {
  static constexpr bool kIsSum = false;
  static constexpr bool kDivides = false;
  static void Run(PLXDecimalView const& left_i, PLXDecimalView const& right_i, PLXSInt32,
                  PLXDecimal& result_o) {
    MultiplyValues(left_i, right_i, result_o);
  }
};

struct PLXNumber::Quotient {
  static constexpr bool kIsSum = false;
  static constexpr bool kDivides = true;
  // Whole limbs with at least the digit beyond the scale, which alone decides the rounding.
  static void Run(PLXDecimalView const& left_i, PLXDecimalView const& right_i, PLXSInt32 scale_i,
                  PLXDecimal& result_o) {
    DivideValues(left_i, right_i, scale_i / PLXDecimal::kDigitsPerLimb + 1, result_o);
  }
};

struct PLXNumber::Remainder {
  static constexpr bool kIsSum = false;
  static constexpr bool kDivides = true;
  static void Run(PLXDecimalView const& left_i, PLXDecimalView const& right_i, PLXSInt32,
                  PLXDecimal& result_o) {
    PLXDecimal quotient;
    DivideToInteger(left_i, right_i, quotient, result_o);
  }
};

template <typename Operation>
bool PLXNumber::Calculate(PLXNumber const& left_i, PLXNumber const& right_i, PLXNumber& result_io) {
  result_io.AssertValid();
  if (left_i.IsNull() || right_i.IsNull()) {
    result_io.myValue.Empty();
    return true;
  }
  if (Operation::kDivides && right_i.IsZero()) {
    result_io.HandleNumberError(kPLXNumberError_DivideByZero);
    return false;
  }
  PLXDecimal result;
  PLXSInt32 const finestScale =
      Operation::kIsSum ? std::max(left_i.myScale, right_i.myScale) : kUnlimitedScale;
  Operation::Run(left_i.View(), right_i.View(), result_io.myScale, result);
  return result_io.Store(result, finestScale);
}

bool PLXNumber::Add(PLXNumber const& other_i) { return Calculate<Sum>(*this, other_i, *this); }

bool PLXNumber::Subtract(PLXNumber const& other_i) { return Calculate<Difference>(*this, other_i, *this); }

bool PLXNumber::Multiply(PLXNumber const& other_i) { return Calculate<Product>(*this, other_i, *this); }

bool PLXNumber::DivideNoRemainder(PLXNumber const& divisor_i) {
  return Calculate<Quotient>(*this, divisor_i, *this);
}

bool PLXNumber::Modulo(PLXNumber const& divisor_i) { return Calculate<Remainder>(*this, divisor_i, *this); }

PLXNumber operator+(PLXNumber const& left_i, PLXNumber const& right_i) {
  PLXNumber result = PLXNumber::WithShapeOf(left_i, right_i);
  PLXNumber::Calculate<PLXNumber::Sum>(left_i, right_i, result);
  return result;
}

PLXNumber operator-(PLXNumber const& left_i, PLXNumber const& right_i) {
  PLXNumber result = PLXNumber::WithShapeOf(left_i, right_i);
  PLXNumber::Calculate<PLXNumber::Difference>(left_i, right_i, result);
  return result;
}

PLXNumber operator*(PLXNumber const& left_i, PLXNumber const& right_i) {
  PLXNumber result = PLXNumber::WithShapeOf(left_i, right_i);
  PLXNumber::Calculate<PLXNumber::Product>(left_i, right_i, result);
  return result;
}

PLXNumber operator/(PLXNumber const& left_i, PLXNumber const& right_i) {
  PLXNumber result = PLXNumber::WithShapeOf(left_i, right_i);
  PLXNumber::Calculate<PLXNumber::Quotient>(left_i, right_i, result);
  return result;
}

PLXNumber operator%(PLXNumber const& left_i, PLXNumber const& right_i) {
  PLXNumber result = PLXNumber::WithRemainderShapeOf(left_i, right_i);
  PLXNumber::Calculate<PLXNumber::Remainder>(left_i, right_i, result);
  return result;
}

bool PLXNumber::Divide(PLXNumber const& divisor_i, PLXNumber* quotient_o, PLXNumber* remainder_o) const {
  if (quotient_o == nullptr || remainder_o == nullptr) {
    ReportNumberError(kPLXNumberError_NullPointerForOutput);
    return false;
  }
  // Both are worked out before either output, which may be an operand, is written.
  PLXNumber quotient = WithShapeOf(*this, divisor_i);
  PLXNumber remainder = WithRemainderShapeOf(*this, divisor_i);
  bool succeeded = true;
  if (IsNotNull() && divisor_i.IsZero()) {
    quotient.HandleNumberError(kPLXNumberError_DivideByZero);
    remainder.Encode(PLXDecimal());
    succeeded = false;
  } else if (IsNotNull() && divisor_i.IsNotNull()) {
    PLXDecimal integer;
    PLXDecimal rest;
    DivideToInteger(View(), divisor_i.View(), integer, rest);
    succeeded = quotient.Store(integer) && remainder.Store(rest);
  }
  *quotient_o = std::move(quotient);
  *remainder_o = std::move(remainder);
  return succeeded;
}

bool PLXNumber::Round(PLXSInt32 digits_i) {
  AssertValid();
  if (IsNull()) return true;
  PLXDecimal value(View());
  value.Round(std::clamp(digits_i, -kLongest - 1, kLongest));
  return Store(value);
}

PLXNumber PLXNumber::pow(PLXSInt32 exponent_i) const {
  PLXNumber result(*this);
  result.myValue.Empty();
  if (IsNull()) return result;
  if (exponent_i == 0) {
    PLXDecimal one(1);
    result.Store(one);
    return result;
  }
  if (IsZero()) {
    if (exponent_i < 0) result.HandleNumberError(kPLXNumberError_ZeroRaisedToNegativePower);
    result.Encode(PLXDecimal());
    return result;
  }
  PLXDecimal base(View());
  if (exponent_i < 0) DivideValues(PLXDecimal(1), View(), kPowerLimbs, base);
  PLXDecimal power;
  RaiseToPower(base, exponent_i < 0 ? -std::int64_t{exponent_i} : exponent_i, myLength - myScale, power);
  result.Store(power);
  return result;
}

// ---- Signs ----

void PLXNumber::ReverseSign() {
  if (IsNull() || IsZero()) return;
  PLXDecimal value(View());
  value.negative = !value.negative;
  Encode(value);
}

void PLXNumber::MakeAbsoluteValue() {
  if (IsNegative()) ReverseSign();
}

PLXNumber PLXNumber::Negate() const {
  PLXNumber result(*this);
  result.ReverseSign();
  return result;
}

PLXNumber PLXNumber::abs() const {
  PLXNumber result(*this);
  result.MakeAbsoluteValue();
  return result;
}
