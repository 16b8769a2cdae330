#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>

#include "PLXSQLConnection.h"

// The field of every database that holds the record's identifier, given by the engine and never used again.
inline constexpr std::string_view kPLXRecord_IDField = "PLXIDFIELD";

// A value as a module or a page gives it; the text is the caller's.
using PLXRecordValue = std::variant<std::int64_t, double, std::string_view>;

// One field of a database.
//
// Its type word holds the type in bits 16-23, a size in bits 0-15 (advice: texts are never cut) and
// attributes in bits 24-31. What was never set reads as empty, as 0 or as false.
struct PLXRecordField {
  enum class Type : std::uint8_t {
    kBoolean = 1,
    kInteger = 2,
    kUnsigned = 3,
    kFloat = 4,
    kNumber = 5,  // whole with up to 63 bits, exactly, or a double
    kText = 6,
    kLongText = 7,
  };
  static constexpr std::uint32_t kUnique = 0x04000000;   // takes no value twice
  static constexpr std::uint32_t kIndexed = 0x02000000;  // found quickly by its value

  std::string name;       // as it was given
  std::string column;     // of the table
  std::string keyColumn;  // beside a text that is unique or indexed, where the engine cannot index long texts
  std::uint32_t word = 0;     // the type word
  std::int64_t position = 0;  // grows in the order of adding

  // Whether a type word names a type that there is.
  static bool IsType(std::uint32_t word_i) {
    std::uint32_t const type = word_i >> 16 & 0xFF;
    return type >= 1 && type <= 7;
  }
  Type GetType() const { return static_cast<Type>(word >> 16 & 0xFF); }
  bool IsText() const { return GetType() >= Type::kText; }
  bool IsLongText() const { return GetType() == Type::kLongText; }
  bool IsUnique() const { return (word & kUnique) != 0; }
  bool IsIndexed() const { return (word & (kUnique | kIndexed)) != 0; }
  // "boolean", "integer", ..., "text(300)", "long text".
  std::string TypeName() const;

  // The value as the field keeps it. Numbers go into texts as their text, texts into numbers when they are
  // one, and only what a number field can hold exactly is taken: 12.5 and 2^63 are no integers, 2 is no
  // boolean. An empty text leaves a number unset. Throws PLXRecordError (kValue).
  PLXSQLValue Convert(PLXRecordValue const& value_i) const;
  // A value as an engine gave it, made one of the field's: some give numbers as texts.
  void Adopt(PLXSQLValue& value_io) const;
};

// A kept value as text: numbers in their shortest exact form, NULL as "".
std::string PLXRecordText(PLXSQLValue const& value_i);
// A kept value as a number: a text that is none gives false, NULL gives 0. Integers beyond 2^53 are rounded
// for a double, and a double with a fraction is no integer.
bool PLXRecordInteger(PLXSQLValue const& value_i, std::int64_t& integer_o);
bool PLXRecordDouble(PLXSQLValue const& value_i, double& number_o);

// The same name for every letter case: A-Z become a-z, other bytes stay.
std::string PLXRecordNameKey(std::string_view name_i);
