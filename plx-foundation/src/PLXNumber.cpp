#include "PLXNumber.h"

#include <array>
#include <bit>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
#include <string_view>
#include <unistd.h>

#include "PLXDecimal.h"

// A value's string is one byte, the sign in its highest bit and the limbs behind the point in the others, and
// then the limbs in the machine's byte order. Zero is the one byte 0. Equal values have equal strings.

namespace {

constexpr char ourSourceFile[] = "src/PLXNumber.cpp";

constexpr PLXUInt32 kLimbSize = sizeof(std::uint64_t);
constexpr unsigned char kSignBit = 0x80;

// What of a double's decimal can matter beside a number: beyond these every double is larger than all
// numbers, or smaller than all but zero. Both are whole limbs.
constexpr double kBeyondAllNumbers = 1e100;
constexpr int kComparedScale = 7 * PLXDecimal::kDigitsPerLimb;

struct ErrorText {
  PLXSInt32 code;
  char const* message;
};
constexpr ErrorText kErrorTexts[] = {
    {kPLXNumberError_AlphaExpected, "PLXNumber: Alpha Expected"},
    {kPLXNumberError_AlphaOrDigitExpected, "PLXNumber: Alpha or Digit Expected"},
    {kPLXNumberError_CharTooLong, "PLXNumber: Char Too Long"},
    {kPLXNumberError_DecPointInvalid, "PLXNumber: Dec Point Invalid"},
    {kPLXNumberError_DigitExpected, "PLXNumber: Digit Expected"},
    {kPLXNumberError_DivideByZero, "PLXNumber: Divide By Zero"},
    {kPLXNumberError_NegativeNumToUnsigned, "PLXNumber: Negative Num to Unsigned"},
    {kPLXNumberError_OverflowShort, "PLXNumber: Overflow Short"},
    {kPLXNumberError_OverflowUnsignedShort, "PLXNumber: Overflow Unsigned Short"},
    {kPLXNumberError_OverflowLong, "PLXNumber: Overflow Long"},
    {kPLXNumberError_OverflowUnsignedLong, "PLXNumber: Overflow Unsigned Long"},
    {kPLXNumberError_OverflowDouble, "PLXNumber: Overflow Double"},
    {kPLXNumberError_OverflowNumber, "PLXNumber: Overflow Number"},
    {kPLXNumberError_SignInvalid, "PLXNumber: Sign Invalid"},
    {kPLXNumberError_ZeroRaisedToNegativePower, "PLXNumber: Zero Raised to Negative Power"},
    {kPLXNumberError_InvalidParameter, "PLXNumber: Invalid Parameter"},
    {kPLXNumberError_NullPointerForOutput, "PLXNumber: Null Pointer Parameter for Output"},
    {kPLXNumberError_NullPointerForInput, "PLXNumber: Null Pointer Parameter for Input"},
};

// Null for a code that has no message.
char const* FindErrorMessage(PLXSInt32 code_i) {
  for (ErrorText const& row : kErrorTexts) {
    if (row.code == code_i) return row.message;
  }
  return nullptr;
}

PLXSInt32 GetErrorCode(PLXDecimalText outcome_i) {
  switch (outcome_i) {
    case PLXDecimalText::kSecondPoint:
      return kPLXNumberError_DecPointInvalid;
    case PLXDecimalText::kTooManyDigits:
      return kPLXNumberError_OverflowNumber;
    case PLXDecimalText::kSignBehind:
      return kPLXNumberError_SignInvalid;
    default:
      return kPLXNumberError_DigitExpected;
  }
}

// ---- Named values ----

// A value's string worked out by the compiler, as a literal that a constant can stand on: limbs from the
// text's integral digits and fraction digits, which are at most 18 x 7 in all.
template <std::size_t kLimbs, std::size_t kFraction>
struct EncodedLiteral {
  consteval EncodedLiteral(std::string_view integral_i, std::string_view fraction_i) {
    text[0] = static_cast<char>(kFraction);
    std::array<std::uint64_t, kLimbs> limbs{};
    for (std::size_t index = 0; index < kFraction * 18; ++index) {
      std::uint64_t& limb = limbs[kFraction - 1 - index / 18];
      limb =
          limb * 10 + (index < fraction_i.size() ? static_cast<std::uint64_t>(fraction_i[index] - '0') : 0);
    }
    for (std::size_t index = 0; index < integral_i.size(); ++index) {
      std::uint64_t& limb = limbs[kFraction + (integral_i.size() - 1 - index) / 18];
      limb = limb * 10 + static_cast<std::uint64_t>(integral_i[index] - '0');
    }
    for (std::size_t index = 0; index < kLimbs; ++index) {
      auto const bytes = std::bit_cast<std::array<char, kLimbSize>>(limbs[index]);
      for (std::size_t byte = 0; byte < kLimbSize; ++byte) text[1 + index * kLimbSize + byte] = bytes[byte];
    }
  }
  char text[1 + kLimbs * kLimbSize + 1]{};
};

constexpr EncodedLiteral<0, 0> kEncodedZero("", "");
constexpr EncodedLiteral<1, 0> kEncodedOne("1", "");
constexpr EncodedLiteral<2, 1> kEncodedPi15("3", "14159265358979");
constexpr EncodedLiteral<4, 3> kEncodedPi50("3", "141592653589793238462643383279502884197169399375");
constexpr EncodedLiteral<2, 1> kEncodedE("2", "718281828");
constexpr EncodedLiteral<3, 0> kEncodedInfinity("99999999999999999999999999999999999999999999999999", "");

}  // namespace

struct PLXNumber::Constants {
  static constexpr PLXSInt32 kPlaces = DefaultLength - DefaultScale;
  static TPLXConstant<PLXNumber> zero, one, pi15, pi50, e, infinity;
};
TPLXConstant<PLXNumber> PLXNumber::Constants::zero(kEncodedZero.text, Encoded(), DefaultLength, DefaultScale);
TPLXConstant<PLXNumber> PLXNumber::Constants::one(kEncodedOne.text, Encoded(), DefaultLength, DefaultScale);
TPLXConstant<PLXNumber> PLXNumber::Constants::pi15(kEncodedPi15.text, Encoded(), kPlaces + 14, 14);
TPLXConstant<PLXNumber> PLXNumber::Constants::pi50(kEncodedPi50.text, Encoded(), kPlaces + 48, 48);
TPLXConstant<PLXNumber> PLXNumber::Constants::e(kEncodedE.text, Encoded(), kPlaces + 9, 9);
TPLXConstant<PLXNumber> PLXNumber::Constants::infinity(kEncodedInfinity.text, Encoded(), 50 + DefaultScale,
                                                       DefaultScale);

PLXNumber const& PLXNumber::k_0 = Constants::zero.value;
PLXNumber const& PLXNumber::k_1 = Constants::one.value;
PLXNumber const& PLXNumber::k_pi15 = Constants::pi15.value;
PLXNumber const& PLXNumber::k_pi50 = Constants::pi50.value;
PLXNumber const& PLXNumber::k_e = Constants::e.value;
PLXNumber const& PLXNumber::k_infinity = Constants::infinity.value;

// ---- Packing ----

PLXDecimalView PLXNumber::View() const noexcept {
  char const* const text = myValue.GetCStringAccess();
  unsigned char const head = static_cast<unsigned char>(text[0]);
  return {(head & kSignBit) != 0, static_cast<int>((myValue.GetLength() - 1) / kLimbSize), head & ~kSignBit,
          PLXLimbs(text + 1)};
}

void PLXNumber::Encode(PLXDecimal const& value_i) {
  PLXUInt32 const size = static_cast<PLXUInt32>(value_i.count) * kLimbSize;
  char* const text = myValue.ReserveLength(1 + size);
  text[0] = static_cast<char>(value_i.fraction | (value_i.negative ? kSignBit : 0));
  PLXLimbs(value_i.limbs).Copy(text + 1, 0, value_i.count);
}

bool PLXNumber::Store(PLXDecimal& value_io, PLXSInt32 finestScale_i) {
  if (finestScale_i > myScale) value_io.Round(myScale);
  if (!value_io.FitsIntegralDigits(myLength - myScale)) {
    HandleNumberError(kPLXNumberError_OverflowNumber);
    return false;
  }
  Encode(value_io);
  return true;
}

bool PLXNumber::StoreOrNull(PLXDecimal& value_io) {
  if (Store(value_io)) return true;
  myValue.Empty();
  return false;
}

void PLXNumber::MakeUnique() { myValue.MakeUnique(); }

// ---- Assignment ----

PLXNumber& PLXNumber::Assign(char const* text_i) {
  AssignCharacters(text_i, text_i != nullptr ? static_cast<PLXUInt32>(std::strlen(text_i)) : 0);
  return *this;
}

bool PLXNumber::AssignString(PLXString const& text_i) {
  return AssignCharacters(text_i.GetCStringAccess(), text_i.GetLength());
}

bool PLXNumber::AssignCharacters(char const* text_i, PLXUInt32 length_i) {
  AssertValid();
  if (length_i == 0) {
    myValue.Empty();
    return true;
  }
  PLXDecimal value;
  PLXDecimalText const outcome = ReadDecimal(text_i, length_i, myLength - myScale, myScale, value);
  if (outcome == PLXDecimalText::kValue) return StoreOrNull(value);
  myValue.Empty();
  HandleNumberError(GetErrorCode(outcome));
  return false;
}

void PLXNumber::AssignInteger(std::int64_t value_i) {
  AssertValid();
  PLXDecimal value(value_i);
  StoreOrNull(value);
}

namespace {

// The shortest decimal that reads back as the double, without an exponent. Requires: finite.
struct DoubleText {
  explicit DoubleText(double value_i) {
    char digits[32];
    char const* const end =
        std::to_chars(digits, digits + sizeof digits, value_i, std::chars_format::scientific).ptr;
    char const* const mark =
        static_cast<char const*>(std::memchr(digits, 'e', static_cast<std::size_t>(end - digits)));
    int exponent = 0;
    std::from_chars(mark[1] == '+' ? mark + 2 : mark + 1, end, exponent);
    char const* digit = digits;
    if (*digit == '-') text[length++] = *digit++;
    if (exponent < 0) {
      text[length++] = '0';
      text[length++] = '.';
      for (int zeros = -exponent - 1; zeros > 0; --zeros) text[length++] = '0';
    }
    for (; digit != mark; ++digit) {
      if (*digit == '.') continue;
      text[length++] = *digit;
      if (exponent-- == 0) text[length++] = '.';
    }
    for (; exponent >= 0; --exponent) text[length++] = '0';
  }
  char text[384];  // a sign, "0.", 323 zeros and 17 digits at most
  PLXUInt32 length = 0;
};

}  // namespace

void PLXNumber::AssignDouble(double value_i) {
  if (!std::isfinite(value_i)) {
    myValue.Empty();
    HandleNumberError(kPLXNumberError_OverflowDouble);
    return;
  }
  DoubleText const text(value_i);
  AssignCharacters(text.text, text.length);
}

bool PLXNumber::SetLengthAndScale(PLXSInt32 length_i, PLXSInt32 scale_i) {
  AssertValid();
  PLXSInt32 const length = length_i == -1 ? myLength : length_i;
  PLXSInt32 const scale = scale_i == -1 ? myScale : scale_i;
  if (length < 1 || length > kLongest || scale < 0 || scale > length) {
    HandleNumberError(kPLXNumberError_InvalidParameter);
    return false;
  }
  if (IsNotNull()) {
    PLXDecimal value(View());
    value.Round(scale);
    if (value.CountIntegralDigits() > length - scale) {
      HandleNumberError(kPLXNumberError_OverflowNumber);
      return false;
    }
    Encode(value);
  }
  myLength = length;
  myScale = scale;
  return true;
}

// ---- Tests and comparing ----

bool PLXNumber::IsZero() const noexcept { return myValue.GetLength() == 1; }

bool PLXNumber::IsNegative() const noexcept {
  return IsNotNull() && (static_cast<unsigned char>(myValue.GetCStringAccess()[0]) & kSignBit) != 0;
}

bool PLXNumber::IsPositive() const noexcept { return myValue.GetLength() > 1 && !IsNegative(); }

namespace {

PLXUInt32 GetComparisonCode(int order_i) {
  return order_i < 0 ? kPLXCompare_Less : order_i == 0 ? kPLXCompare_Equal : kPLXCompare_Greater;
}

}  // namespace

PLXUInt32 PLXNumber::CompareValue(PLXNumber const& other_i) const noexcept {
  return GetComparisonCode(Compare(other_i));
}

PLXUInt32 PLXNumber::CompareAbsValue(PLXNumber const& other_i) const noexcept {
  if (IsNull() || other_i.IsNull()) return GetComparisonCode(Compare(other_i));
  return GetComparisonCode(CompareMagnitudes(View(), other_i.View()));
}

int PLXNumber::Compare(PLXNumber const& other_i) const noexcept {
  if (IsNull() || other_i.IsNull()) return (IsNull() ? 0 : 1) - (other_i.IsNull() ? 0 : 1);
  return CompareValues(View(), other_i.View());
}

int PLXNumber::CompareInteger(std::int64_t value_i) const noexcept {
  if (IsNull()) return -1;
  return CompareValues(View(), PLXDecimal(value_i));
}

std::partial_ordering PLXNumber::CompareDouble(double value_i) const noexcept {
  if (std::isnan(value_i)) return std::partial_ordering::unordered;
  if (IsNull()) return std::partial_ordering::less;
  if (value_i >= kBeyondAllNumbers) return std::partial_ordering::less;
  if (value_i <= -kBeyondAllNumbers) return std::partial_ordering::greater;
  PLXDecimal right;
  DoubleText const text(value_i);
  ReadDecimal(text.text, text.length, kLongest, kComparedScale, right);
  if (right.IsZero() && value_i != 0) {
    right.negative = value_i < 0;
    right.count = 1;
    right.fraction = kComparedScale / PLXDecimal::kDigitsPerLimb;
    right.limbs[0] = 1;
  }
  return CompareValues(View(), right) <=> 0;
}

// ---- Conversions ----

PLXString PLXNumber::GetStringRepresentation() const { return GetStringRepresentation(0, false); }

PLXString PLXNumber::GetStringRepresentation(PLXUInt32 minimumDigits_i, bool wholeScale_i) const {
  PLXString text;
  if (IsNull()) return text;
  PLXUInt32 const digits = minimumDigits_i < kLongest ? minimumDigits_i : PLXUInt32{kLongest};
  int const scale = wholeScale_i ? myScale : 0;
  PLXDecimal value(View());
  WriteDecimal(value, digits, scale, text.ReserveLength(CountDecimalText(value, digits, scale)));
  return text;
}

namespace {

// The integral part, or the nearest limit after reporting `overflow_i`.
template <typename T>
T GetIntegral(PLXDecimal& value_io, bool& overflow_o) {
  typedef std::numeric_limits<T> Limits;
  value_io.CutFraction();
  overflow_o = CompareValues(value_io, PLXDecimal(std::int64_t{Limits::max()})) > 0 ||
               CompareValues(value_io, PLXDecimal(std::int64_t{Limits::min()})) < 0;
  if (overflow_o) return value_io.negative ? Limits::min() : Limits::max();
  std::int64_t const magnitude = value_io.IsZero() ? 0 : static_cast<std::int64_t>(value_io.limbs[0]);
  return static_cast<T>(value_io.negative ? -magnitude : magnitude);
}

}  // namespace

PLXNumber::operator int() const {
  if (IsNull()) return 0;
  PLXDecimal value(View());
  bool overflow;
  int const result = GetIntegral<int>(value, overflow);
  if (overflow) ReportNumberError(kPLXNumberError_OverflowLong);
  return result;
}

PLXNumber::operator unsigned int() const {
  if (IsNull()) return 0;
  PLXDecimal value(View());
  if (value.negative) {
    ReportNumberError(kPLXNumberError_NegativeNumToUnsigned);
    return 0;
  }
  bool overflow;
  unsigned int const result = GetIntegral<unsigned int>(value, overflow);
  if (overflow) ReportNumberError(kPLXNumberError_OverflowUnsignedLong);
  return result;
}

PLXNumber::operator double() const {
  if (IsNull()) return 0;
  PLXDecimal value(View());
  char text[kLongest + 4];  // every digit, a sign, "0" and the point
  double result = 0;
  PLXUInt32 const length = CountDecimalText(value, 0, 0);
  WriteDecimal(value, 0, 0, text);
  std::from_chars(text, text + length, result);
  return result;
}

// ---- Errors ----

void PLXNumber::ReportNumberError(PLXSInt32 code_i) {
  char const* const found = FindErrorMessage(code_i);
  char const* const message = found != nullptr ? found : "PLXNumber: Unknown error";
  char text[128];
  std::size_t length = 0;
  for (char const* piece : {"\tFILE: \"", ourSourceFile, "\"\n", message, "\n;g"}) {
    std::size_t const size = std::strlen(piece);
    std::memcpy(text + length, piece, size);
    length += size;
  }
  // One write, so that messages of several threads do not mix; a stream that is gone takes nothing more.
  while (::write(STDERR_FILENO, text, length) < 0 && errno == EINTR) continue;
}

void PLXNumber::HandleNumberError(PLXSInt32 code_i) {
  ReportNumberError(code_i);
  if (code_i == kPLXNumberError_DivideByZero) {
    *this = k_infinity;
  } else if (code_i == kPLXNumberError_DecPointInvalid ||
             code_i == kPLXNumberError_ZeroRaisedToNegativePower || FindErrorMessage(code_i) == nullptr) {
    Encode(PLXDecimal());
  }
}

void PLXNumber::AssertValid() const {
  PLX_ASSERT_STATE(myLength > 0 && myLength <= 100);
  PLX_ASSERT_STATE(myScale >= 0);
  PLX_ASSERT_STATE(myLength >= myScale);
}
