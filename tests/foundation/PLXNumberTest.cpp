#include <cmath>
#include <cstring>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "DecimalTwin.h"
#include "PLXNumber.h"

void PrintTo(PLXNumber const& number_i, std::ostream* stream_o) {
  *stream_o << (number_i.IsNull() ? "null" : number_i.GetStringRepresentation().GetCStringAccess()) << " ("
            << number_i.GetLength() << ", " << number_i.GetScale() << ")";
}

namespace {

std::string Text(PLXNumber const& number_i) {
  return number_i.IsNull() ? "null" : number_i.GetStringRepresentation().GetCStringAccess();
}

std::string Report(char const* message_i) {
  return std::string("\tFILE: \"src/PLXNumber.cpp\"\nPLXNumber: ") + message_i + "\n;g";
}

// What `action_i` writes to the standard error stream.
std::string Errors(std::function<void()> const& action_i) {
  testing::internal::CaptureStderr();
  action_i();
  return testing::internal::GetCapturedStderr();
}

// ---- Text ----

TEST(PLXNumberText, IsReadAsTheTwinReadsIt) {
  std::mt19937 random(3);
  constexpr struct { PLXSInt32 length, scale; } shapes[] = {{38, 8}, {5, 2}, {4, 4}, {38, 0}, {60, 40}};
  testing::internal::CaptureStderr();
  for (int round = 0; round < 60000 && !testing::Test::HasFailure(); ++round) {
    std::string text;
    for (std::size_t count = random() % 8; count > 0; --count) {
      // Mostly what numbers are made of, now and then any byte.
      text += random() % 10 == 0 ? static_cast<char>(random()) : "   -+\t..0000123459999"[random() % 21];
    }
    SCOPED_TRACE(testing::PrintToString(text));
    auto const [length, scale] = shapes[random() % std::size(shapes)];
    PLXNumber number(length, scale, "5");
    number = PLXString(text.data(), static_cast<PLXUInt32>(text.size()));
    EXPECT_EQ(Text(number), text.empty() ? "null" : DecimalTwin::Read(text, length, scale));
  }
  testing::internal::GetCapturedStderr();
  EXPECT_EQ(Text(PLXNumber(static_cast<char const*>(nullptr))), "null");
  EXPECT_EQ(Errors([] { EXPECT_EQ(Text(PLXNumber(38, 2, " -0012.505 ")), "-12.51"); }), "");
  EXPECT_EQ(Errors([] { EXPECT_TRUE(PLXNumber("").IsNull()); }), "");
}

TEST(PLXNumberText, ReportsWhatIsNone) {
  struct Row {
    char const* why;
    PLXSInt32 length, scale;
    PLXString text;
    char const* message;
    char const* value;
  };
  Row const rows[] = {
      {"second point", 38, 8, "1.2.3", "Dec Point Invalid", "0"},
      {"letter", 38, 8, "12a", "Digit Expected", "null"},
      {"sign behind", 38, 8, "12-", "Sign Invalid", "null"},
      {"a zero byte does not end the text", 38, 8,
       PLXString("12\0"
                 "3",
                 4),
       "Digit Expected", "null"},
      {"an integral digit too many before a wrong character", 5, 2, "1000x", "Overflow Number", "null"},
      {"rounding into a digit too many", 5, 2, "999.995", "Overflow Number", "null"},
      {"a megabyte of digits", 38, 8, PLXString('1', 1 << 20), "Overflow Number", "null"},
  };
  for (Row const& row : rows) {
    SCOPED_TRACE(row.why);
    PLXNumber number(row.length, row.scale, "5");
    EXPECT_EQ(Errors([&] { number = row.text; }), Report(row.message));
    EXPECT_EQ(Text(number), row.value);
  }
}

TEST(PLXNumberText, PadsOnRequest) {
  PLXNumber const number(10, 4, "-7.25");
  EXPECT_EQ(number.GetStringRepresentation(3, false), "-007.25");
  EXPECT_EQ(number.GetStringRepresentation(0, true), "-7.2500");
  EXPECT_EQ(number.GetStringRepresentation(2, true), "-07.2500");
  EXPECT_EQ(PLXNumber(10, 4, "0").GetStringRepresentation(2, true), "00.0000");
  EXPECT_EQ(PLXNumber(10, 4, "123").GetStringRepresentation(2, false), "123");
  EXPECT_EQ(PLXNumber(1).GetStringRepresentation(0xFFFFFFFF, false).GetLength(), 100u);
  EXPECT_EQ(PLXNumber().GetStringRepresentation(5, true), "");
}

// ---- Errors ----

TEST(PLXNumberErrors, SayTheirMessageAndLeaveTheirValue) {
  struct Row {
    PLXSInt32 code;
    char const* message;
    char const* value;
  };
  char const* const infinity = "99999999999999999999999999999999999999999999999999";
  Row const rows[] = {
      {-2041, "Alpha Expected", "7"},
      {-2042, "Alpha or Digit Expected", "7"},
      {-2043, "Char Too Long", "7"},
      {-2044, "Dec Point Invalid", "0"},
      {-2045, "Digit Expected", "7"},
      {-2046, "Divide By Zero", infinity},
      {-2047, "Negative Num to Unsigned", "7"},
      {-2048, "Overflow Short", "7"},
      {-2049, "Overflow Unsigned Short", "7"},
      {-2050, "Overflow Long", "7"},
      {-2051, "Overflow Unsigned Long", "7"},
      {-2052, "Overflow Double", "7"},
      {-2053, "Overflow Number", "7"},
      {-2054, "Sign Invalid", "7"},
      {-2055, "Zero Raised to Negative Power", "0"},
      {2001, "Invalid Parameter", "7"},
      {2002, "Null Pointer Parameter for Output", "7"},
      {2003, "Null Pointer Parameter for Input", "7"},
      {1, "Unknown error", "0"},
      {-2056, "Unknown error", "0"},
  };
  for (Row const& row : rows) {
    PLXNumber number = 7;
    EXPECT_EQ(Errors([&] { number.HandleNumberError(row.code); }), Report(row.message));
    EXPECT_EQ(Text(number), row.value);
  }
}

// Writes over the shape, which stands at the object's end, as a stray pointer would.
void DamageShape(PLXNumber& number_io, PLXSInt32 length_i, PLXSInt32 scale_i) {
  PLXSInt32 const shape[] = {length_i, scale_i};
  std::memcpy(reinterpret_cast<char*>(&number_io) + sizeof number_io - sizeof shape, shape, sizeof shape);
}

TEST(PLXNumberDeathTest, AbortsOnAnImpossibleShape) {
  struct Row {
    PLXSInt32 length, scale;
    char const* text;
  };
  Row const rows[] = {{0, 0, "STATE ASSERTION FAILURE: myLength > 0 && myLength <= 100"},
                      {101, 0, "STATE ASSERTION FAILURE: myLength > 0 && myLength <= 100"},
                      {5, -1, "STATE ASSERTION FAILURE: myScale >= 0"},
                      {5, 6, "STATE ASSERTION FAILURE: myLength >= myScale"}};
  for (Row const& row : rows) {
    PLXNumber number = 1;
    DamageShape(number, row.length, row.scale);
    EXPECT_DEATH(number.AssertValid(),
                 testing::HasSubstr(std::string("\tFILE: \"src/PLXNumber.cpp\"\n") + row.text));
    EXPECT_DEATH(number += 1, testing::HasSubstr(row.text));
  }
}

// ---- Shape ----

TEST(PLXNumberShape, ChangesOnlyWhenTheValueFits) {
  struct Row {
    char const* why;
    PLXSInt32 length, scale;
    char const* message;  // null when it succeeds
    char const* shape;
  };
  Row const rows[] = {
      {"rounds to a smaller scale", 10, 2, nullptr, "-123.46 (10, 2)"},
      {"-1 keeps the length", -1, 3, nullptr, "-123.457 (10, 3)"},
      {"exactly the places needed", 7, 4, nullptr, "-123.4567 (7, 4)"},
      {"a place too few", 6, 4, "Overflow Number", "-123.4567 (10, 4)"},
      {"too long", 101, 4, "Invalid Parameter", "-123.4567 (10, 4)"},
      {"negative scale", 10, -2, "Invalid Parameter", "-123.4567 (10, 4)"},
      {"length below the kept scale", 3, -1, "Invalid Parameter", "-123.4567 (10, 4)"},
  };
  for (Row const& row : rows) {
    SCOPED_TRACE(row.why);
    PLXNumber number(10, 4, "-123.4567");
    EXPECT_EQ(
        Errors([&] { EXPECT_EQ(number.SetLengthAndScale(row.length, row.scale), row.message == nullptr); }),
        row.message == nullptr ? "" : Report(row.message));
    EXPECT_EQ(testing::PrintToString(number), row.shape);
  }
}

TEST(PLXNumberShape, TakesRoundingIntoAccount) {
  PLXNumber number(4, 2, "99.99");
  EXPECT_EQ(Errors([&] { EXPECT_FALSE(number.SetLengthAndScale(3, 1)); }), Report("Overflow Number"));
  EXPECT_TRUE(number.SetLengthAndScale(4, 1));
  EXPECT_EQ(Text(number), "100");
}

TEST(PLXNumberShape, OfAResultIsTheLargerOfBoth) {
  struct Row {
    char const* why;
    PLXNumber result;
    char const* shape;
  };
  PLXNumber const small(5, 2, "999.99");
  PLXNumber const fine(100, 100, "0.5");
  PLXNumber const wide(100, 0, "7");
  Row const rows[] = {
      {"a machine number counts as (38, 8)", small + 1, "1000.99 (38, 8)"},
      {"places of one, scale of the other", small * PLXNumber(4, 4, "0.5"), "499.995 (7, 4)"},
      {"no room for both: the scale gives way", wide + fine, "8 (100, 0)"},
      {"the remainder keeps the scale", wide % fine, "0 (100, 100)"},
      {"pi with an integer", PLXNumber::k_pi50 + 1,
       "4.141592653589793238462643383279502884197169399375 (78, 48)"},
      {"a power keeps the shape", PLXNumber(5, 2, "1.5").pow(3), "3.38 (5, 2)"},
  };
  for (Row const& row : rows) {
    SCOPED_TRACE(row.why);
    EXPECT_EQ(testing::PrintToString(row.result), row.shape);
  }
}

// ---- Arithmetic ----

struct Shape {
  PLXSInt32 length, scale;
};
constexpr Shape kShapes[] = {{38, 8},  {5, 2},   {18, 0},  {18, 18},  {19, 1},   {36, 18},   {37, 18},
                             {60, 30}, {100, 0}, {100, 1}, {100, 50}, {100, 99}, {100, 100}, {100, 37}};

// Digits that make carries, borrows and wrong guesses likely: runs of one digit and rows of zeros beside
// noise.
std::string RandomDigits(std::mt19937& random_io, int count_i) {
  std::string digits;
  while (static_cast<int>(digits.size()) < count_i) {
    char const digit = "0123456789995000"[random_io() % 16];
    digits.append(random_io() % 4 == 0 ? random_io() % 20 + 1 : 1, digit);
  }
  digits.resize(static_cast<std::size_t>(count_i));
  return digits;
}

std::string RandomText(std::mt19937& random_io, Shape shape_i) {
  int const places = shape_i.length - shape_i.scale;
  std::string text = random_io() % 2 == 0 ? "-" : "";
  text += RandomDigits(random_io, static_cast<int>(random_io() % static_cast<unsigned>(places + 1)));
  text += '.';
  text += RandomDigits(random_io, static_cast<int>(random_io() % static_cast<unsigned>(shape_i.scale + 1)));
  return text.size() > 1 && text != "-." ? text : "0";
}

// The twin's value as a number of this shape shows it.
std::string Fitted(DecimalTwin const& value_i, PLXNumber const& shape_i) {
  return value_i.Fitted(shape_i.GetLength(), shape_i.GetScale());
}

TEST(PLXNumberArithmetic, AgreesWithTheSchoolbook) {
  std::mt19937 random(20260722);
  testing::internal::CaptureStderr();
  for (int round = 0; round < 6000 && !testing::Test::HasFailure(); ++round) {
    Shape const leftShape = kShapes[random() % std::size(kShapes)];
    Shape const rightShape = kShapes[random() % std::size(kShapes)];
    std::string const leftText = RandomText(random, leftShape);
    std::string const rightText = RandomText(random, rightShape);
    SCOPED_TRACE(leftText + " with " + rightText);
    PLXNumber const left(leftShape.length, leftShape.scale, leftText.c_str());
    PLXNumber const right(rightShape.length, rightShape.scale, rightText.c_str());
    DecimalTwin const leftTwin = DecimalTwin::FromText(leftText);
    DecimalTwin const rightTwin = DecimalTwin::FromText(rightText);
    ASSERT_EQ(Text(left), leftTwin.ToText());
    ASSERT_EQ(Text(right), rightTwin.ToText());

    PLXNumber const sum = left + right;
    EXPECT_EQ(Text(sum), Fitted(leftTwin + rightTwin, sum));
    EXPECT_EQ(Text(left - right), Fitted(leftTwin - rightTwin, sum));
    EXPECT_EQ(Text(left * right), Fitted(leftTwin * rightTwin, sum));
    EXPECT_EQ(left <=> right, DecimalTwin::CompareValues(leftTwin, rightTwin) <=> 0);
    EXPECT_EQ(left == right, DecimalTwin::CompareValues(leftTwin, rightTwin) == 0);
    if (right.IsZero()) continue;
    EXPECT_EQ(Text(left / right), Fitted(DecimalTwin::Quotient(leftTwin, rightTwin, sum.GetScale()), sum));
    auto const [quotientTwin, remainderTwin] = DecimalTwin::IntegralQuotient(leftTwin, rightTwin);
    EXPECT_EQ(Text(left % right), remainderTwin.ToText());
    PLXNumber quotient;
    PLXNumber remainder;
    bool const fits = left.Divide(right, &quotient, &remainder);
    EXPECT_EQ(Text(quotient), Fitted(quotientTwin, sum));
    EXPECT_EQ(Text(remainder), fits ? remainderTwin.ToText() : "null");
  }
  testing::internal::GetCapturedStderr();
}

TEST(PLXNumberArithmetic, InPlaceKeepsTheShape) {
  std::mt19937 random(7);
  testing::internal::CaptureStderr();
  for (int round = 0; round < 2000 && !testing::Test::HasFailure(); ++round) {
    Shape const shape = kShapes[random() % std::size(kShapes)];
    std::string const leftText = RandomText(random, shape);
    std::string const rightText = RandomText(random, {38, 8});
    SCOPED_TRACE(leftText + " with " + rightText);
    PLXNumber const left(shape.length, shape.scale, leftText.c_str());
    PLXNumber const right(rightText.c_str());
    DecimalTwin const leftTwin = DecimalTwin::FromText(leftText);
    DecimalTwin const rightTwin = DecimalTwin::FromText(rightText);
    // What does not fit leaves the number as it was.
    auto const expected = [&](DecimalTwin const& exact_i) {
      std::string const fitted = Fitted(exact_i, left);
      return fitted == "null" ? leftTwin.ToText() : fitted;
    };
    auto const after = [&](bool (PLXNumber::*operation_i)(PLXNumber const&)) {
      PLXNumber number(left);
      (number.*operation_i)(right);
      EXPECT_EQ(number.GetLength(), shape.length);
      EXPECT_EQ(number.GetScale(), shape.scale);
      return Text(number);
    };
    EXPECT_EQ(after(&PLXNumber::Add), expected(leftTwin + rightTwin));
    EXPECT_EQ(after(&PLXNumber::Subtract), expected(leftTwin - rightTwin));
    EXPECT_EQ(after(&PLXNumber::Multiply), expected(leftTwin * rightTwin));
    int const digits = static_cast<int>(random() % 60) - 30;
    PLXNumber opposite(left);
    opposite.ReverseSign();
    EXPECT_EQ(Text(opposite), (-leftTwin).ToText());
    EXPECT_EQ(Text(left.abs()), (leftTwin.negative ? -leftTwin : leftTwin).ToText());
    PLXNumber rounded(left);
    rounded.Round(digits);
    EXPECT_EQ(Text(rounded), expected(leftTwin.Rounded(digits))) << digits;
    if (right.IsZero()) continue;
    EXPECT_EQ(after(&PLXNumber::DivideNoRemainder),
              expected(DecimalTwin::Quotient(leftTwin, rightTwin, shape.scale)));
    EXPECT_EQ(after(&PLXNumber::Modulo), expected(DecimalTwin::IntegralQuotient(leftTwin, rightTwin).second));
  }
  testing::internal::GetCapturedStderr();
}

TEST(PLXNumberArithmetic, OverflowsIntoNullOrNotAtAll) {
  PLXNumber const full(5, 2, "999.99");
  EXPECT_EQ(Errors([&] { EXPECT_EQ(Text(full + full), "null"); }), Report("Overflow Number"));
  PLXNumber number(full);
  EXPECT_EQ(Errors([&] { EXPECT_FALSE(number.Add(full)); }), Report("Overflow Number"));
  EXPECT_EQ(Text(number), "999.99");
  EXPECT_EQ(Errors([&] { ++number; }), Report("Overflow Number"));
  EXPECT_EQ(Text(number), "999.99");
  EXPECT_EQ(Errors([&] { EXPECT_FALSE(number.Round(-1)); }), Report("Overflow Number"));
  EXPECT_EQ(Text(number), "999.99");
  EXPECT_TRUE(number.Round(-4));
  EXPECT_EQ(Text(number), "0");
}

TEST(PLXNumberArithmetic, DividesByZeroToFiftyNines) {
  std::string const infinity(50, '9');
  PLXNumber quotient;
  PLXNumber remainder;
  EXPECT_EQ(Errors([&] { EXPECT_EQ(Text(PLXNumber(-5) / 0), infinity); }), Report("Divide By Zero"));
  EXPECT_EQ(Errors([&] { EXPECT_EQ(Text(PLXNumber(5) % 0.0), infinity); }), Report("Divide By Zero"));
  EXPECT_EQ(Errors([&] { EXPECT_FALSE(PLXNumber(5).Divide(0, &quotient, &remainder)); }),
            Report("Divide By Zero"));
  EXPECT_EQ(Text(quotient), infinity);
  EXPECT_EQ(Text(remainder), "0");
  PLXNumber number(5, 2, "1");
  EXPECT_EQ(Errors([&] { number /= 0; }), Report("Divide By Zero"));
  EXPECT_EQ(number, PLXNumber::k_infinity);
}

TEST(PLXNumberArithmetic, DividesIntoItsOwnOperands) {
  PLXNumber dividend = 17;
  PLXNumber divisor = 5;
  EXPECT_TRUE(dividend.Divide(divisor, &divisor, &dividend));
  EXPECT_EQ(divisor, 3);
  EXPECT_EQ(dividend, 2);
  EXPECT_EQ(Errors([&] { EXPECT_FALSE(dividend.Divide(divisor, nullptr, &divisor)); }),
            Report("Null Pointer Parameter for Output"));
  EXPECT_EQ(divisor, 3);
  divisor.Subtract(divisor);
  EXPECT_EQ(Text(divisor), "0");
}

TEST(PLXNumberArithmetic, RaisesToIntegerPowers) {
  struct Row {
    PLXSInt32 length, scale;
    char const* base;
    PLXSInt32 exponent;
    std::string value;
  };
  Row const rows[] = {
      {38, 8, "2", -2, "0.25"},
      {38, 8, "-0.5", -3, "-8"},
      {38, 8, "0", 0, "1"},
      {38, 8, "1", 2147483647, "1"},
      {38, 8, "-1", std::numeric_limits<PLXSInt32>::min(), "1"},
      {38, 8, "0.99", 2147483647, "0"},
      {38, 8, "1000", std::numeric_limits<PLXSInt32>::min(), "0"},
      {100, 0, "2", 332, DecimalTwin::FromText("18446744073709551616").ToText()},
      {100, 98, "3", -1, "0." + std::string(98, '3')},
      // e to nine places: (1 + 10^-6)^(10^6), whose steps lose nothing that shows
      {38, 20, "1.000001", 1000000, "2.71828046931937688382"},
  };
  for (Row row : rows) {
    SCOPED_TRACE(std::string(row.base) + " ^ " + std::to_string(row.exponent));
    if (row.exponent == 332) {
      DecimalTwin power = DecimalTwin::FromText("1");
      for (int count = 0; count < 332; ++count) power = power + power;
      row.value = power.ToText();
    }
    EXPECT_EQ(Text(PLXNumber(row.length, row.scale, row.base).pow(row.exponent)), row.value);
  }
  EXPECT_EQ(Errors([] { EXPECT_EQ(Text(PLXNumber(10).pow(30)), "null"); }), Report("Overflow Number"));
  EXPECT_EQ(Errors([] { EXPECT_EQ(Text(PLXNumber(0).pow(-1)), "0"); }),
            Report("Zero Raised to Negative Power"));
}

TEST(PLXNumberArithmetic, CountsAndChangesSigns) {
  PLXNumber number;
  number = "2";
  EXPECT_EQ(static_cast<PLXString>(number--), "2");
  EXPECT_EQ(static_cast<PLXString>(PLXNumber().Assign(number)), "1");
  EXPECT_EQ(-number++, -1);
  number = -3;
  number.MakeAbsoluteValue();
  EXPECT_EQ(--number, 2);
  PLXNumber zero = 0;
  zero.ReverseSign();
  EXPECT_FALSE(zero.IsNegative());
  EXPECT_EQ(Text(-zero), "0");
}

TEST(PLXNumberNull, ComesOutOfEveryOperationWithoutAMessage) {
  PLXNumber const null;
  EXPECT_EQ(Errors([&] {
              for (PLXNumber const& result : {null + 1, 1 - null, null * null, null / 0, 1 / null, null % 2,
                                              null.pow(2), -null, null.abs()}) {
                EXPECT_TRUE(result.IsNull());
              }
              PLXNumber number = 5;
              EXPECT_TRUE((number += null).IsNull());
              EXPECT_TRUE((++number).IsNull());
              EXPECT_TRUE(number.Round(2) && number.SetLengthAndScale(5, 5));
              EXPECT_TRUE(number.Divide(0, &number, &number));
              EXPECT_TRUE(number.IsNull());
              EXPECT_EQ(static_cast<int>(null), 0);
              EXPECT_EQ(static_cast<unsigned>(null), 0u);
              EXPECT_EQ(static_cast<double>(null), 0.0);
            }),
            "");
  EXPECT_FALSE(null.IsZero() || null.IsNegative() || null.IsPositive());
  EXPECT_EQ(null, PLXNumber());
  EXPECT_LT(null, PLXNumber(-1));
  EXPECT_LT(null, -1);
  EXPECT_LT(null, -1e300);
  EXPECT_NE(null, 0);
  EXPECT_EQ(null.CompareAbsValue(0), kPLXCompare_Less);
}

// ---- Machine numbers ----

template <typename T>
class PLXNumberOfMachineType : public testing::Test {};
typedef testing::Types<PLXSInt8, PLXUInt8, PLXSInt16, PLXUInt16, PLXSInt32, PLXUInt32, double> MachineTypes;
TYPED_TEST_SUITE(PLXNumberOfMachineType, MachineTypes);

TYPED_TEST(PLXNumberOfMachineType, WorksOnEitherSide) {
  TypeParam const three = 3;
  PLXNumber number = three;
  PLXNumber const seven(7);
  EXPECT_EQ(seven + three, 10);
  EXPECT_EQ(three + seven, 10);
  EXPECT_EQ(seven - three, 4);
  EXPECT_EQ(three - seven, -4);
  EXPECT_EQ(seven * three, 21);
  EXPECT_EQ(three * seven, 21);
  EXPECT_EQ(Text(seven / three), "2.33333333");
  EXPECT_EQ(Text(three / seven), "0.42857143");
  EXPECT_EQ(seven % three, 1);
  EXPECT_EQ(three % seven, 3);
  EXPECT_TRUE(number == three && three == number && !(number != three) && !(three != number));
  EXPECT_TRUE(seven > three && three < seven && seven >= three && three <= seven);
  EXPECT_FALSE(seven < three || three > seven || seven <= three || three >= seven);
  number = three;
  number += three;
  number -= three;
  number *= three;
  number /= three;
  number %= three;
  EXPECT_EQ(number, 0);
}

TYPED_TEST(PLXNumberOfMachineType, HoldsTheLimits) {
  typedef std::numeric_limits<TypeParam> Limits;
  if constexpr (Limits::is_integer) {
    EXPECT_EQ(Text(PLXNumber(Limits::max())), std::to_string(Limits::max()));
    EXPECT_EQ(Text(PLXNumber(Limits::min())), std::to_string(Limits::min()));
    EXPECT_EQ(PLXNumber(Limits::min()), Limits::min());
  } else {
    for (double value : {Limits::max(), -Limits::max()}) {
      EXPECT_EQ(Errors([&] { EXPECT_TRUE(PLXNumber(value).IsNull()); }), Report("Overflow Number"));
      EXPECT_EQ(value < PLXNumber::k_infinity, value < 0);
    }
  }
}

TEST(PLXNumberConversion, ChecksTheRangeOfIntegers) {
  struct Row {
    char const* text;
    int integer;
    char const* message;
    unsigned natural;
    char const* naturalMessage;
  };
  Row const rows[] = {
      {"2.99", 2, nullptr, 2, nullptr},
      {"-2.99", -2, nullptr, 0, "Negative Num to Unsigned"},
      {"2147483647.9", 2147483647, nullptr, 2147483647, nullptr},
      {"2147483648", 2147483647, "Overflow Long", 2147483648, nullptr},
      {"-2147483648.9", -2147483647 - 1, nullptr, 0, "Negative Num to Unsigned"},
      {"-2147483649", -2147483647 - 1, "Overflow Long", 0, "Negative Num to Unsigned"},
      {"4294967295.9", 2147483647, "Overflow Long", 4294967295, nullptr},
      {"4294967296", 2147483647, "Overflow Long", 4294967295, "Overflow Unsigned Long"},
  };
  for (Row const& row : rows) {
    SCOPED_TRACE(row.text);
    PLXNumber const number(row.text);
    EXPECT_EQ(Errors([&] { EXPECT_EQ(static_cast<int>(number), row.integer); }),
              row.message == nullptr ? "" : Report(row.message));
    EXPECT_EQ(Errors([&] { EXPECT_EQ(static_cast<unsigned>(number), row.natural); }),
              row.naturalMessage == nullptr ? "" : Report(row.naturalMessage));
    EXPECT_EQ(Text(number), DecimalTwin::FromText(row.text).ToText());
  }
}

TEST(PLXNumberConversion, TakesTheShortestDecimalOfADouble) {
  struct Row {
    double value;
    char const* text;
  };
  Row const rows[] = {{-0.1, "-0.1"},       {1e22, "10000000000000000000000"},
                      {1e-8, "0.00000001"}, {5e-9, "0.00000001"},
                      {4.9e-9, "0"},        {-0.0, "0"},
                      {5e-324, "0"},        {1e29, "100000000000000000000000000000"}};
  for (Row const& row : rows) EXPECT_EQ(Text(PLXNumber(row.value)), row.text);
  typedef std::numeric_limits<double> Limits;
  for (double value : {Limits::infinity(), -Limits::infinity(), Limits::quiet_NaN()}) {
    PLXNumber number = 1;
    EXPECT_EQ(Errors([&] { number = value; }), Report("Overflow Double"));
    EXPECT_TRUE(number.IsNull());
  }
}

TEST(PLXNumberConversion, GivesDoublesBack) {
  std::mt19937_64 random(11);
  for (int round = 0; round < 20000; ++round) {
    // From 2^-60 to 2^60 every double has at most 100 digits in its shortest form.
    double const value =
        std::ldexp(static_cast<double>(random() >> 11), static_cast<int>(random() % 120) - 113) *
        (random() % 2 == 0 ? 1 : -1);
    PLXNumber number(100, 60);
    number = value;
    ASSERT_EQ(static_cast<double>(number), value);
    ASSERT_EQ(number, value);
    ASSERT_LT(number, std::nextafter(value, std::numeric_limits<double>::infinity()));
    ASSERT_GT(number, std::nextafter(value, -std::numeric_limits<double>::infinity()));
  }
}

TEST(PLXNumberConversion, ComparesDoublesWhole) {
  typedef std::numeric_limits<double> Limits;
  PLXNumber const least(100, 100, (std::string("0.") + std::string(99, '0') + "1").c_str());
  PLXNumber const most(100, 0, PLXString('9', 100));
  EXPECT_GT(least, 5e-324);
  EXPECT_GT(least, 9e-101);
  EXPECT_EQ(least, 1e-100);
  EXPECT_LT(most, 1e100);
  EXPECT_LT(most, Limits::infinity());
  EXPECT_GT(-most, -1e100);
  EXPECT_NE(PLXNumber(0), 5e-324);
  EXPECT_LT(PLXNumber(0), 1e-300);
  EXPECT_GT(0.0, -least);
  EXPECT_FALSE(most == Limits::quiet_NaN() || most < Limits::quiet_NaN() || most >= Limits::quiet_NaN());
  EXPECT_TRUE(most != Limits::quiet_NaN());
}

TEST(PLXNumberComparing, LooksAtValuesOnly) {
  PLXNumber const left(38, 8, "-12.50");
  PLXNumber const right(5, 1, "12.5");
  EXPECT_EQ(left, PLXNumber(10, 3, "-12.500"));
  EXPECT_EQ(left.CompareValue(right), kPLXCompare_Less);
  EXPECT_EQ(right.CompareValue(left), kPLXCompare_Greater);
  EXPECT_EQ(left.CompareAbsValue(right), kPLXCompare_Equal);
  EXPECT_EQ(left.CompareAbsValue(13), kPLXCompare_Less);
}

// ---- Named values ----

TEST(PLXNumberNamedValues, AreWhatTheirNamesSay) {
  EXPECT_EQ(Text(PLXNumber::k_pi15), "3.14159265358979");
  EXPECT_EQ(Text(PLXNumber::k_pi50), "3.141592653589793238462643383279502884197169399375");
  EXPECT_EQ(Text(PLXNumber::k_e), "2.718281828");
}

TEST(PLXNumberNamedValues, MayBeCopiedOnAnyThread) {
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 8; ++thread) {
    threads.emplace_back([] {
      for (int round = 0; round < 500; ++round) {
        PLXNumber number = PLXNumber::k_pi50;
        PLXNumber const kept(number);
        number += PLXNumber::k_1;
        number = number * PLXNumber::k_0 + PLXNumber::k_e;
        ASSERT_EQ(Text(number), "2.718281828");
        ASSERT_EQ(kept, PLXNumber::k_pi50);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

TEST(PLXNumberSharing, MakesACopyForAnotherThread) {
  PLXNumber const number("12.25");
  PLXNumber copy(number);
  copy.MakeUnique();
  std::thread thread([mine = std::move(copy)] {
    for (int round = 0; round < 500; ++round) ASSERT_EQ(PLXNumber(mine), PLXNumber("12.25"));
  });
  for (int round = 0; round < 500; ++round) ASSERT_EQ(PLXNumber(number), PLXNumber("12.25"));
  thread.join();
}

}  // namespace
