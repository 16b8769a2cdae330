#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// A search of a record database, read from text and not yet held against the database's fields.
//
//   Last Name = 'O''Brien' AND Age >= 18 OR City <> '' ORDER BY Last Name DESC
//
// Conditions joined by AND and OR, AND binding tighter, no parentheses; then, or alone, ORDER BY one field,
// ascending unless DESC follows. No text, or only blanks, finds everything. A field name stands unquoted and
// runs to the operator (= <> < <= > >=): it may hold blanks, apostrophes and 8-bit bytes, and blanks around
// it do not count. The name after ORDER BY runs to the end, or to a last word ASC or DESC; only there, behind
// a condition, may a name hold the signs of operators. A value stands in apostrophes, one inside it written
// twice; a decimal number may stand bare. Keywords ignore case. Blanks are space, tab and line ends.

// A search is typed or made from a form; a longer one is a mistake or an attack.
constexpr std::size_t kMaximumSearchBytes = 1U << 20;
constexpr std::size_t kMaximumSearchConditions = 500;  // SQLite nests no more than 1000 terms

struct PLXSearchCondition {
  enum class Comparison : std::uint8_t { kEqual, kNotEqual, kLess, kLessOrEqual, kGreater, kGreaterOrEqual };

  std::string myField;              // never empty
  std::size_t myFieldPosition = 0;  // in the text; bytes, from 1
  Comparison myComparison = Comparison::kEqual;
  std::string myValue;  // without its apostrophes; a number as it was written
};

struct PLXSearchExpression {
  // Found is what fulfils every condition of one alternative. None: everything is found.
  std::vector<std::vector<PLXSearchCondition>> myAlternatives;
  std::string myOrderField;         // empty: no order is asked for
  std::size_t myOrderPosition = 0;  // of the field; bytes, from 1
  bool isDescending = false;
};

struct PLXSearchError {
  std::size_t position = 0;  // bytes, from 1; one past the last at the end of the text
  std::string text;          // a sentence for people, without a full stop, that tells the position too
};

// Reads a search. False when it does not parse, is too long or has too many conditions: `error_o` then tells
// what is wrong, and `expression_o` is as it was, since an emptied one would find everything. Linear in the
// text.
[[nodiscard]] bool ParseSearchExpression(std::string_view text_i, PLXSearchExpression& expression_o,
                                         PLXSearchError& error_o);

// Writes a search so that ParseSearchExpression reads the same again, positions apart.
// Requires: names that a search can hold, and no empty alternative.
std::string FormatSearchExpression(PLXSearchExpression const& expression_i);

// The sign of a comparison, which SQL shares.
std::string_view SignOf(PLXSearchCondition::Comparison comparison_i);
