#pragma once

#include <compare>
#include <concepts>
#include <cstdint>

#include "PLXString.h"
#include "PLXTypes.h"

struct PLXDecimal;  // values unpacked for calculation; src/PLXDecimal.h
struct PLXDecimalView;

// The integer types that a number takes part with directly. Characters and truth values are not numbers, and
// wider integers are converted by whoever has them.
template <typename T>
concept PLXMachineInteger =
    std::same_as<T, PLXSInt8> || std::same_as<T, PLXUInt8> || std::same_as<T, PLXSInt16> ||
    std::same_as<T, PLXUInt16> || std::same_as<T, PLXSInt32> || std::same_as<T, PLXUInt32>;

// What went wrong with a number; the codes are the ones that HandleNumberError reports.
enum PLXNumberError : PLXSInt32 {
  kPLXNumberError_AlphaExpected = -2041,
  kPLXNumberError_AlphaOrDigitExpected = -2042,
  kPLXNumberError_CharTooLong = -2043,
  kPLXNumberError_DecPointInvalid = -2044,
  kPLXNumberError_DigitExpected = -2045,
  kPLXNumberError_DivideByZero = -2046,
  kPLXNumberError_NegativeNumToUnsigned = -2047,
  kPLXNumberError_OverflowShort = -2048,
  kPLXNumberError_OverflowUnsignedShort = -2049,
  kPLXNumberError_OverflowLong = -2050,
  kPLXNumberError_OverflowUnsignedLong = -2051,
  kPLXNumberError_OverflowDouble = -2052,
  kPLXNumberError_OverflowNumber = -2053,
  kPLXNumberError_SignInvalid = -2054,
  kPLXNumberError_ZeroRaisedToNegativePower = -2055,
  kPLXNumberError_InvalidParameter = 2001,
  kPLXNumberError_NullPointerForOutput = 2002,
  kPLXNumberError_NullPointerForInput = 2003,
};

// A signed decimal number of a declared length (digits in all, at most 100) and scale (digits after the
// point), or null: no value at all, which is not zero. A value has at most length - scale integral digits.
// There is no negative zero.
//
// Shape, as length and scale are called together: text and machine numbers are fitted into the shape of the
// number they are assigned to; copying a number copies its shape too. Whatever works in place (Add, +=, ++,
// Round) keeps the shape. A binary operator answers with the larger scale and the larger count of integral
// places of its operands; where that is more than 100 digits the scale gives way, or, for the remainder, the
// integral places it cannot need. A machine number takes part as the number made from it: length 38, scale 8.
//
// Rounding: every result is the exact one, rounded once at the first digit beyond the scale, half away from
// zero.
//
// Errors of value write one message to the standard error stream and go on; see HandleNumberError. An
// assignment that fails leaves null (zero after a wrong point); work in place that overflows leaves the
// number as it was; an operator that overflows answers null; a division by zero gives k_infinity with its
// shape.
//
// Null: arithmetic with a null operand gives null without a message. Null equals null and is less than every
// value.
//
// A number copies in O(1) by sharing its value's string, so it belongs to one thread: call MakeUnique on a
// copy that another thread is to have. The named values may be copied on any thread.
class PLXNumber : public PLXObject {
 public:
  static constexpr PLXSInt32 DefaultLength = 38;
  static constexpr PLXSInt32 DefaultScale = 8;
  static constexpr PLXSInt32 kLongest = 100;

  // Named values, each with 30 integral places but k_infinity, which is fifty nines.
  static PLXNumber const& k_0;
  static PLXNumber const& k_1;
  static PLXNumber const& k_pi15;
  static PLXNumber const& k_pi50;
  static PLXNumber const& k_e;
  static PLXNumber const& k_infinity;

  PLXNumber() noexcept = default;  // null
  PLXNumber(PLXNumber const& other_i) noexcept = default;
  PLXNumber(PLXNumber&& other_io) noexcept = default;
  explicit PLXNumber(PLXString const& text_i) { Assign(text_i); }
  explicit PLXNumber(char const* text_i) { Assign(text_i); }
  template <PLXMachineInteger T>
  PLXNumber(T value_i) {
    Assign(value_i);
  }
  template <std::same_as<double> T>
  PLXNumber(T value_i) {
    Assign(value_i);
  }
  // Null, or the text's value, in the given shape; in the default one when the shape is an Invalid Parameter.
  PLXNumber(PLXSInt32 length_i, PLXSInt32 scale_i) { SetLengthAndScale(length_i, scale_i); }
  PLXNumber(PLXSInt32 length_i, PLXSInt32 scale_i, PLXString const& text_i) : PLXNumber(length_i, scale_i) {
    Assign(text_i);
  }
  virtual ~PLXNumber() = default;

  PLXNumber& operator=(PLXNumber const& other_i) noexcept = default;
  PLXNumber& operator=(PLXNumber&& other_io) noexcept = default;
  PLXNumber& operator=(PLXString const& text_i) { return Assign(text_i); }
  PLXNumber& operator=(char const* text_i) { return Assign(text_i); }
  template <PLXMachineInteger T>
  PLXNumber& operator=(T value_i) {
    return Assign(value_i);
  }
  template <std::same_as<double> T>
  PLXNumber& operator=(T value_i) {
    return Assign(value_i);
  }

  PLXNumber& Assign(PLXNumber const& other_i) noexcept { return *this = other_i; }
  PLXNumber& Assign(PLXString const& text_i) {
    AssignString(text_i);
    return *this;
  }
  PLXNumber& Assign(char const* text_i);  // null gives a null number
  template <PLXMachineInteger T>
  PLXNumber& Assign(T value_i) {
    AssignInteger(value_i);
    return *this;
  }
  // The shortest decimal that reads back as this double, by the rules of text. Overflow Double when it is not
  // finite.
  template <std::same_as<double> T>
  PLXNumber& Assign(T value_i) {
    AssignDouble(value_i);
    return *this;
  }
  // Takes blanks, a sign, digits with at most one ".", blanks. False, with the number null, on an error:
  // Overflow Number at an integral digit too many, Dec Point Invalid (zero instead of null), Sign Invalid,
  // Digit Expected for any other character and for a text without a digit. The empty text gives null and is
  // no error.
  bool AssignString(PLXString const& text_i);

  // -1 keeps the present value of either. A smaller scale rounds. False, with nothing changed, after Invalid
  // Parameter (length 1 to 100, scale 0 to the length) and after Overflow Number (the value does not fit).
  bool SetLengthAndScale(PLXSInt32 length_i, PLXSInt32 scale_i);
  PLXSInt32 GetLength() const noexcept { return myLength; }
  PLXSInt32 GetScale() const noexcept { return myScale; }

  // ---- Tests; null is neither zero nor negative nor positive ----
  bool IsNull() const noexcept { return myValue.IsEmpty(); }
  bool IsNotNull() const noexcept { return !IsNull(); }
  bool IsZero() const noexcept;
  bool IsNegative() const noexcept;
  bool IsPositive() const noexcept;
  // 'Less', 'Equ ' or 'Grtr'; of the values, and of the values without their signs.
  PLXUInt32 CompareValue(PLXNumber const& other_i) const noexcept;
  PLXUInt32 CompareAbsValue(PLXNumber const& other_i) const noexcept;

  // ---- Arithmetic in place; false after an error ----
  bool Add(PLXNumber const& other_i);
  bool Subtract(PLXNumber const& other_i);
  bool Multiply(PLXNumber const& other_i);
  // The quotient, rounded at the scale. Divide By Zero makes it k_infinity.
  bool DivideNoRemainder(PLXNumber const& divisor_i);
  // What is left of the value when the integral quotient is taken out: it has the sign of the value.
  bool Modulo(PLXNumber const& divisor_i);
  // Rounds to `digits_i` after the point, half away from zero; negative digits round before it (-2: to
  // hundreds).
  bool Round(PLXSInt32 digits_i);
  void ReverseSign();
  void MakeAbsoluteValue();
  // Gives the string behind the value to this number alone, so that it may go to another thread.
  void MakeUnique();

  // The quotient cut to an integer, and value - quotient x divisor, both exact; either output may be this
  // number or the divisor. False after Null Pointer Parameter for Output (nothing changed), Divide By Zero
  // (k_infinity and zero) and Overflow Number (both null).
  bool Divide(PLXNumber const& divisor_i, PLXNumber* quotient_o, PLXNumber* remainder_o) const;
  // In this number's shape. Intermediate steps carry enough digits for one rounding at the end; a zero to the
  // power of zero is 1. Zero Raised to Negative Power gives zero, Overflow Number null.
  PLXNumber pow(PLXSInt32 exponent_i) const;
  PLXNumber abs() const;
  PLXNumber Negate() const;

  PLXNumber& operator+=(PLXNumber const& other_i) { return Add(other_i), *this; }
  PLXNumber& operator-=(PLXNumber const& other_i) { return Subtract(other_i), *this; }
  PLXNumber& operator*=(PLXNumber const& other_i) { return Multiply(other_i), *this; }
  PLXNumber& operator/=(PLXNumber const& other_i) { return DivideNoRemainder(other_i), *this; }
  PLXNumber& operator%=(PLXNumber const& other_i) { return Modulo(other_i), *this; }
  PLXNumber operator-() const { return Negate(); }
  PLXNumber& operator++() { return Add(k_1), *this; }
  PLXNumber& operator--() { return Subtract(k_1), *this; }
  PLXNumber operator++(int) {
    PLXNumber before(*this);
    ++*this;
    return before;
  }
  PLXNumber operator--(int) {
    PLXNumber before(*this);
    --*this;
    return before;
  }
  // A machine number on either side converts to a PLXNumber.
  friend PLXNumber operator+(PLXNumber const& left_i, PLXNumber const& right_i);
  friend PLXNumber operator-(PLXNumber const& left_i, PLXNumber const& right_i);
  friend PLXNumber operator*(PLXNumber const& left_i, PLXNumber const& right_i);
  friend PLXNumber operator/(PLXNumber const& left_i, PLXNumber const& right_i);
  friend PLXNumber operator%(PLXNumber const& left_i, PLXNumber const& right_i);

  // ---- Comparing; shapes do not matter. A double compares as its shortest decimal, whole; with a NaN
  // nothing does.
  friend bool operator==(PLXNumber const& left_i, PLXNumber const& right_i) noexcept {
    return left_i.myValue.IsEmpty() == right_i.myValue.IsEmpty() && left_i.Compare(right_i) == 0;
  }
  friend std::weak_ordering operator<=>(PLXNumber const& left_i, PLXNumber const& right_i) noexcept {
    return left_i.Compare(right_i) <=> 0;
  }
  template <PLXMachineInteger T>
  friend bool operator==(PLXNumber const& left_i, T right_i) noexcept {
    return left_i.CompareInteger(right_i) == 0;
  }
  template <PLXMachineInteger T>
  friend std::weak_ordering operator<=>(PLXNumber const& left_i, T right_i) noexcept {
    return left_i.CompareInteger(right_i) <=> 0;
  }
  template <std::same_as<double> T>
  friend bool operator==(PLXNumber const& left_i, T right_i) noexcept {
    return left_i.CompareDouble(right_i) == 0;
  }
  template <std::same_as<double> T>
  friend std::partial_ordering operator<=>(PLXNumber const& left_i, T right_i) noexcept {
    return left_i.CompareDouble(right_i);
  }

  // ---- Conversions ----
  // Plain decimal text, never an exponent, no zeros at the end of the fraction and no bare point; empty for
  // null.
  PLXString GetStringRepresentation() const;
  // At least `minimumDigits_i` digits before the point, zeros in front; with `wholeScale_i` the fraction has
  // all digits of the scale.
  PLXString GetStringRepresentation(PLXUInt32 minimumDigits_i, bool wholeScale_i) const;
  explicit operator PLXString() const { return GetStringRepresentation(); }
  // Cut toward zero; null gives 0. Beyond the range the nearest limit is answered after Overflow Long,
  // Overflow Unsigned Long or Negative Num to Unsigned.
  explicit operator int() const;
  explicit operator unsigned int() const;
  explicit operator double() const;  // the nearest double; null gives 0

  // Reports an error in one write and gives the number the value that belongs to it: k_infinity after Divide
  // By Zero; zero after Dec Point Invalid, Zero Raised to Negative Power and unknown codes; any other leaves
  // it as it is.
  void HandleNumberError(PLXSInt32 code_i);
  // Aborts when the shape is impossible.
  void AssertValid() const;

 private:
  friend struct TPLXConstant<PLXNumber>;
  struct Encoded {};  // marks a string that is a value already
  PLXNumber(PLXString const& value_i, Encoded, PLXSInt32 length_i, PLXSInt32 scale_i) noexcept
      : myValue(value_i), myLength(length_i), myScale(scale_i) {}
  struct Constants;

  static void ReportNumberError(PLXSInt32 code_i);
  // Null, in the shape of an operator's result.
  static PLXNumber WithShapeOf(PLXNumber const& left_i, PLXNumber const& right_i);
  static PLXNumber WithRemainderShapeOf(PLXNumber const& left_i, PLXNumber const& right_i);
  // What an operation does with values; PLXNumberArithmetic.cpp.
  struct Sum;
  struct Difference;
  struct Product;
  struct Quotient;
  struct Remainder;
  // Gives result_io the operation's result in its shape, null for a null operand. False, nothing changed,
  // after Overflow Number; k_infinity after Divide By Zero. Operands may be the result.
  template <typename Operation>
  static bool Calculate(PLXNumber const& left_i, PLXNumber const& right_i, PLXNumber& result_io);

  bool AssignCharacters(char const* text_i, PLXUInt32 length_i);
  void AssignInteger(std::int64_t value_i);
  void AssignDouble(double value_i);
  int Compare(PLXNumber const& other_i) const noexcept;
  int CompareInteger(std::int64_t value_i) const noexcept;
  std::partial_ordering CompareDouble(double value_i) const noexcept;

  PLXDecimalView View() const noexcept;  // until the value changes; not of null
  void Encode(PLXDecimal const& value_i);
  // Fits the value into the shape. False, the number unchanged, after Overflow Number.
  static constexpr PLXSInt32 kUnlimitedScale = 0x7FFFFFFF;
  bool Store(PLXDecimal& value_io, PLXSInt32 finestScale_i = kUnlimitedScale);
  bool StoreOrNull(PLXDecimal& value_io);

  PLXString myValue;  // empty: null; else one byte of sign and exponent, then the limbs of src/PLXDecimal.h
  PLXSInt32 myLength = DefaultLength;
  PLXSInt32 myScale = DefaultScale;
};
