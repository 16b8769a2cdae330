#include "PLXRecordQuery.h"

#include <cmath>

#include "PLXRecordError.h"

namespace {

using Comparison = PLXSearchCondition::Comparison;

constexpr double kTwoTo63 = 9223372036854775808.0;

[[noreturn]] void Fail(std::string const& sentence_i) {
  throw PLXRecordError(PLXRecordError::Kind::kSearch, sentence_i);
}

// Whether `left op right` holds when left compares with right like `order_i` with 0.
bool Holds(int order_i, Comparison comparison_i) {
  switch (comparison_i) {
    case Comparison::kEqual:
      return order_i == 0;
    case Comparison::kNotEqual:
      return order_i != 0;
    case Comparison::kLess:
      return order_i < 0;
    case Comparison::kLessOrEqual:
      return order_i <= 0;
    case Comparison::kGreater:
      return order_i > 0;
    case Comparison::kGreaterOrEqual:
      return order_i >= 0;
  }
  return false;
}

PLXRecordField const& FieldOf(PLXRecordDefinition const& definition_i, std::string const& name_i,
                              std::size_t position_i) {
  if (PLXRecordField const* const field = definition_i.Find(name_i)) return *field;
  Fail("The search names a field that the database \"" + definition_i.name + "\" does not have: \"" + name_i +
       "\" at character " + std::to_string(position_i) + ".");
}

}  // namespace

PLXRecordQuery::PLXRecordQuery(PLXSearchExpression const& expression_i,
                               PLXRecordDefinition const& definition_i, PLXSQLDialect dialect_i) {
  char const* before = "(";
  for (auto const& alternative : expression_i.myAlternatives) {
    for (PLXSearchCondition const& condition : alternative) {
      PLXRecordField const& field = FieldOf(definition_i, condition.myField, condition.myFieldPosition);
      myCondition += before;
      AddCondition(condition, field, dialect_i);
      before = " AND ";
      bool const isUnique = field.position == 0 || (field.IsUnique() && !condition.myValue.empty());
      isForOne = isForOne || (isUnique && condition.myComparison == Comparison::kEqual);
    }
    before = ") OR (";
  }
  if (!myCondition.empty()) myCondition += ")";
  isForOne = isForOne && expression_i.myAlternatives.size() == 1;
  if (!expression_i.myOrderField.empty()) {
    PLXRecordField const& field =
        FieldOf(definition_i, expression_i.myOrderField, expression_i.myOrderPosition);
    myOrder = "COALESCE(" + field.column + (field.IsText() ? ", '')" : ", 0)") +
              (expression_i.isDescending ? " DESC, " : ", ");
  }
  myOrder += "id";
}

PLXSearchExpression PLXRecordQuery::Parse(std::string_view expression_i) {
  PLXSearchExpression expression;
  PLXSearchError error;
  if (ParseSearchExpression(expression_i, expression, error)) return expression;
  error.text.front() = 'T';  // "the search ..."
  Fail(error.text + ".");
}

std::string_view PLXRecordQuery::Place(PLXSQLDialect dialect_i, PLXRecordField const& field_i,
                                       PLXSQLParameter const& value_i) {
  if (dialect_i == PLXSQLDialect::kSQLite || !std::holds_alternative<double>(value_i)) return "?";
  bool const isDecimal =
      field_i.GetType() == PLXRecordField::Type::kNumber && dialect_i == PLXSQLDialect::kPostgreSQL;
  return isDecimal ? "CAST(? AS NUMERIC)" : "CAST(? AS DOUBLE PRECISION)";
}

std::string PLXRecordQuery::Selected(PLXSQLDialect dialect_i, PLXRecordField const& field_i) {
  bool const isReal =
      field_i.GetType() == PLXRecordField::Type::kFloat || field_i.GetType() == PLXRecordField::Type::kNumber;
  if (dialect_i != PLXSQLDialect::kSQLiteODBC || !isReal) return field_i.column;
  return "CASE TYPEOF(" + field_i.column + ") WHEN 'null' THEN '' WHEN 'integer' THEN CAST(" +
         field_i.column + " AS TEXT) ELSE PRINTF('%!.17g', " + field_i.column + ") END";
}

void PLXRecordQuery::AddComparison(PLXRecordField const& field_i, std::string_view operator_i,
                                   PLXSQLValue value_i, bool isUnsetFound_i, PLXSQLDialect dialect_i,
                                   bool isByKey_i) {
  std::string const& column = isByKey_i ? field_i.keyColumn : field_i.column;
  bool const isDouble = std::holds_alternative<double>(value_i);
  std::string comparison = column;
  comparison.append(" ").append(operator_i).append(" ");
  comparison += Place(dialect_i, field_i, isDouble ? PLXSQLParameter(0.0) : PLXSQLParameter());
  if (isUnsetFound_i) comparison = "(" + comparison + " OR " + column + " IS NULL)";
  myCondition += comparison;
  myValues.push_back(std::move(value_i));
}

void PLXRecordQuery::AddCondition(PLXSearchCondition const& condition_i, PLXRecordField const& field_i,
                                  PLXSQLDialect dialect_i) {
  Comparison const comparison = condition_i.myComparison;
  std::string_view const sign = SignOf(comparison);
  PLXSQLValue const given = condition_i.myValue;
  if (field_i.IsText()) {
    bool const isUnsetFound = Holds(condition_i.myValue.empty() ? 0 : -1, comparison);
    bool const isByKey = !field_i.keyColumn.empty() && (sign == "=" || sign == "<>");
    return AddComparison(field_i, sign, isByKey ? PLXSQLValue(PLXRecordKeyText(condition_i.myValue)) : given,
                         isUnsetFound, dialect_i, isByKey);
  }
  double number = 0;
  if (!PLXRecordDouble(given, number)) {
    Fail("The search compares \"" + field_i.name + "\" (" + field_i.TypeName() + ") with \"" +
         condition_i.myValue + "\", which is no number, at character " +
         std::to_string(condition_i.myFieldPosition) + ".");
  }
  bool const isUnsetFound = Holds(number > 0 ? -1 : (number < 0 ? 1 : 0), comparison);
  if (field_i.GetType() == PLXRecordField::Type::kFloat) {
    return AddComparison(field_i, sign, number, isUnsetFound, dialect_i);
  }
  std::int64_t integer = 0;
  if (PLXRecordInteger(given, integer)) {
    return AddComparison(field_i, sign, integer, isUnsetFound, dialect_i);
  }
  if (field_i.GetType() == PLXRecordField::Type::kNumber) {
    return AddComparison(field_i, sign, number, isUnsetFound, dialect_i);
  }
  // No integer is equal to it, and every integer is on one side of it.
  bool const isBelow = sign.starts_with('<') && sign != "<>";
  if (sign == "=" || sign == "<>" || !(number >= -kTwoTo63 && number < kTwoTo63)) {
    bool const isAlways = sign == "<>" || (sign != "=" && isBelow == (number > 0));
    myCondition += isAlways ? "1 = 1" : "1 = 0";
    return;
  }
  AddComparison(field_i, isBelow ? "<=" : ">", static_cast<std::int64_t>(std::floor(number)), isUnsetFound,
                dialect_i);
}
