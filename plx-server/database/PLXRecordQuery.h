#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "PLXRecordCatalogue.h"
#include "PLXSQLConnection.h"
#include "PLXSearchExpression.h"

// A search as one SQL statement and the values that are bound to it. Nothing of the expression becomes SQL:
// fields stand as their columns, values as question marks.
//
// A field that was never set takes part as empty, 0 or false. Integers are compared exactly, whatever the
// other side.
class PLXRecordQuery {
 public:
  PLXRecordQuery() = default;
  // Throws PLXRecordError (kSearch) for a field that there is not, and a text where a number belongs.
  PLXRecordQuery(PLXSearchExpression const& expression_i, PLXRecordDefinition const& definition_i,
                 PLXSQLDialect dialect_i);

  // Throws PLXRecordError (kSearch) with the position of what does not parse.
  static PLXSearchExpression Parse(std::string_view expression_i);
  // What stands in a statement for a value of a field. A driver prints doubles with fewer digits than they
  // have, so they travel as texts.
  static std::string_view Place(PLXSQLDialect dialect_i, PLXRecordField const& field_i,
                                PLXSQLParameter const& value_i);
  // What is selected to read a field. SQLite's driver reads a double with fifteen digits; as a text it has
  // them all.
  static std::string Selected(PLXSQLDialect dialect_i, PLXRecordField const& field_i);

  // What follows WHERE; empty when everything is found.
  std::string const& Condition() const { return myCondition; }
  // What follows ORDER BY.
  std::string const& Order() const { return myOrder; }
  std::vector<PLXSQLValue> const& Values() const { return myValues; }
  // Whether no more than one record can be found: a field that takes no value twice is compared with one.
  bool IsForOne() const { return isForOne; }

 private:
  void AddCondition(PLXSearchCondition const& condition_i, PLXRecordField const& field_i,
                    PLXSQLDialect dialect_i);
  // Compares a field, or its key column, with a value.
  void AddComparison(PLXRecordField const& field_i, std::string_view operator_i, PLXSQLValue value_i,
                     bool isUnsetFound_i, PLXSQLDialect dialect_i, bool isByKey_i = false);

  std::string myCondition;
  std::string myOrder;
  bool isForOne = false;
  std::vector<PLXSQLValue> myValues;
};
