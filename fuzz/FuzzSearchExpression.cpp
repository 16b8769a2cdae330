#include <algorithm>

#include "Fuzz.h"
#include "PLXSearchExpression.h"
#include "SearchTwin.h"

// Any bytes as a search: either it is refused in words, at a place that the text has, or it is read, and then
// it reads the same again once it has been written. A slow twin says of every beginning of the text which of
// the two it is.

namespace {

bool Same(PLXSearchCondition const& left_i, PLXSearchCondition const& right_i) {
  return left_i.myField == right_i.myField && left_i.myComparison == right_i.myComparison &&
         left_i.myValue == right_i.myValue;
}

bool Same(PLXSearchExpression const& left_i, PLXSearchExpression const& right_i) {
  return left_i.myOrderField == right_i.myOrderField && left_i.isDescending == right_i.isDescending &&
         std::equal(left_i.myAlternatives.begin(), left_i.myAlternatives.end(),
                    right_i.myAlternatives.begin(), right_i.myAlternatives.end(),
                    [](auto const& left, auto const& right) {
                      return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                                        [](auto const& a, auto const& b) { return Same(a, b); });
                    });
}

// A name stands in the text where it is said to stand.
void CheckName(std::string_view text_i, std::string const& name_i, std::size_t position_i) {
  Require(!name_i.empty() && position_i >= 1 && text_i.substr(position_i - 1).starts_with(name_i));
}

void CheckTwin(std::string const& text_i) {
  PLXSearchExpression expression;
  PLXSearchError error;
  bool const isRead = ParseSearchExpression(text_i, expression, error);
  std::optional<PLXSearchExpression> const expected = ReadSearchByTwin(text_i);
  Require(isRead == expected.has_value() && (!isRead || Same(expression, *expected)));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data_i, std::size_t size_i) {
  std::string_view const text(reinterpret_cast<char const*>(data_i), size_i);
  ForEachCut(text, [](std::string_view cut_i) { CheckTwin(std::string(cut_i)); });
  PLXSearchExpression expression;
  PLXSearchError error;
  if (!ParseSearchExpression(text, expression, error)) {
    Require(error.position >= 1 && error.position <= size_i + 1 && error.text.starts_with("the search "));
    for (char const character : error.text) Require(static_cast<unsigned char>(character) >= 0x20);
    Require(expression.myAlternatives.empty() && expression.myOrderField.empty());
    return 0;
  }
  std::size_t count = 0;
  for (auto const& alternative : expression.myAlternatives) {
    Require(!alternative.empty());
    for (auto const& condition : alternative) CheckName(text, condition.myField, condition.myFieldPosition);
    count += alternative.size();
  }
  Require(count <= kMaximumSearchConditions);
  if (!expression.myOrderField.empty()) CheckName(text, expression.myOrderField, expression.myOrderPosition);

  std::string const written = FormatSearchExpression(expression);
  if (written.size() > kMaximumSearchBytes) return 0;  // blanks were added
  PLXSearchExpression again;
  Require(ParseSearchExpression(written, again, error) && Same(expression, again));
  return 0;
}
