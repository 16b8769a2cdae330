#include "PLXRecordsLoop.h"

#include <charconv>
#include <limits>

#include "PLXRecordQuery.h"
#include "PLXSearchExpression.h"

namespace {

std::string const& Parameter(PLXTagOccurrence const& tag_i, std::string_view name_i) {
  static std::string const ourNone;
  PLXNameValue const* const found = FindNameValue(tag_i.parameters, name_i, 0, true);
  return found == nullptr ? ourNone : found->value;
}

std::uint64_t Number(PLXTagOccurrence const& tag_i, std::string_view name_i, std::uint64_t default_i) {
  std::string const& text = Parameter(tag_i, name_i);
  if (text.empty()) return default_i;
  std::uint64_t number = 0;
  auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error == std::errc() && end == text.data() + text.size() &&
      number <= std::numeric_limits<std::int64_t>::max()) {
    return number;
  }
  throw PLXRecordsLoop::Fault{
      "The parameter " + std::string(name_i) + " is no number: \"" + text.substr(0, 100) + "\".",
      "Write digits alone, such as " + std::string(name_i) + "=\"20\"."};
}

}  // namespace

PLXRecordsLoop::PLXRecordsLoop(PLXTagOccurrence const& tag_i, PLXPageContext& context_i,
                               PLXRecordsLoop* outer_i)
    : myOuter(outer_i) {
  std::string const& database = Parameter(tag_i, "database");
  if (database.empty()) {
    throw Fault{"The parameter database is missing.", "Name the database: database=\"Planets\"."};
  }
  if (context_i.records == nullptr) throw Fault{"There are no record databases here.", ""};
  myOffset = Number(tag_i, "offset", 0);
  myLeft = Number(tag_i, "limit", std::numeric_limits<std::uint64_t>::max());
  std::string const expression = Expression(tag_i);
  myCursor.emplace(context_i.records->Store(), database, PLXRecordAccess::kShared, &context_i,
                   PLXRecordCursor::WhenMissing::kFail);
  if (!expression.empty()) myCursor->Search(expression);
  myCount = myCursor->ResultCount();
}

// The order beside the search counts when the search itself has none.
std::string PLXRecordsLoop::Expression(PLXTagOccurrence const& tag_i) const {
  std::string const& search = Parameter(tag_i, "search");
  std::string const& order = Parameter(tag_i, "order");
  if (order.empty()) return search;
  PLXSearchExpression expression = PLXRecordQuery::Parse(search);
  if (!expression.myOrderField.empty()) return search;
  PLXSearchExpression const ordered = PLXRecordQuery::Parse("ORDER BY " + order);
  if (!ordered.myAlternatives.empty()) {
    throw Fault{"The parameter order names no field: \"" + order.substr(0, 100) + "\".",
                "Write a field's name, and DESC after it for the other direction."};
  }
  expression.myOrderField = ordered.myOrderField;
  expression.isDescending = ordered.isDescending;
  return FormatSearchExpression(expression);
}

bool PLXRecordsLoop::Next() {
  if (myLeft == 0 || myOffset >= myCount) return false;
  try {
    if (isBegun) {
      myCursor->MoveNext();
    } else if (myOffset > 0) {
      myCursor->Jump(static_cast<std::int64_t>(myOffset));
    } else {
      myCursor->MoveFirst();
    }
  } catch (PLXRecordError const& error) {
    if (error.GetKind() != PLXRecordError::Kind::kEnd) throw;
    myLeft = 0;
    return false;
  }
  isBegun = true;
  --myLeft;
  return true;
}

std::string_view PLXRecordsLoop::Field(std::string_view name_i, std::string& kept_o) {
  if (!myCursor->HasField(name_i))
    return myOuter != nullptr ? myOuter->Field(name_i, kept_o) : std::string_view();
  try {
    PLXSQLValue const& value = myCursor->Get(name_i);
    auto const* const text = std::get_if<std::string>(&value);
    return text != nullptr ? std::string_view(*text) : std::string_view(kept_o = PLXRecordText(value));
  } catch (PLXRecordError const& error) {
    if (error.GetKind() != PLXRecordError::Kind::kNotFound) throw;
    return {};  // it was deleted a moment ago
  }
}
