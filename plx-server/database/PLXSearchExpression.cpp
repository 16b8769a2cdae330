#include "PLXSearchExpression.h"

#include <algorithm>
#include <utility>

namespace {

using Comparison = PLXSearchCondition::Comparison;

constexpr std::string_view kBlanks = " \t\r\n";
constexpr std::string_view kOperatorCharacters = "=<>";
constexpr std::size_t kLongestShown = 40;  // bytes of the search repeated in a message

// The longer sign comes first where one begins another.
constexpr std::pair<std::string_view, Comparison> kSigns[] = {
    {"<>", Comparison::kNotEqual},       {"<=", Comparison::kLessOrEqual}, {"<", Comparison::kLess},
    {">=", Comparison::kGreaterOrEqual}, {">", Comparison::kGreater},      {"=", Comparison::kEqual}};

bool IsDigit(char character_i) { return character_i >= '0' && character_i <= '9'; }

// `word_i` is in capitals.
bool IsKeyword(std::string_view text_i, std::string_view word_i) {
  return std::equal(text_i.begin(), text_i.end(), word_i.begin(), word_i.end(), [](char a, char b) {
    return (a >= 'a' && a <= 'z' ? static_cast<char>(a - 'a' + 'A') : a) == b;
  });
}

std::string_view Trimmed(std::string_view text_i) {
  std::size_t const begin = std::min(text_i.find_first_not_of(kBlanks), text_i.size());
  return text_i.substr(begin, text_i.find_last_not_of(kBlanks) + 1 - begin);
}

// An optional sign and digits, with at most one point before, between or after them.
bool IsDecimalNumber(std::string_view text_i) {
  if (text_i.starts_with('-') || text_i.starts_with('+')) text_i.remove_prefix(1);
  auto const digits = std::count_if(text_i.begin(), text_i.end(), IsDigit);
  auto const points = std::count(text_i.begin(), text_i.end(), '.');
  return digits > 0 && points <= 1 && static_cast<std::size_t>(digits + points) == text_i.size();
}

// Quoted for a message: on one line, and not too much of it.
std::string Shown(std::string_view text_i) {
  std::size_t length = std::min(text_i.size(), kLongestShown);
  // Never inside a UTF-8 character.
  while (length > 0 && length < text_i.size() &&
         (static_cast<unsigned char>(text_i[length]) & 0xC0) == 0x80) {
    --length;
  }
  std::string shown(text_i.substr(0, length));
  for (char& character : shown) {
    auto const byte = static_cast<unsigned char>(character);
    if (byte < 0x20 || byte == 0x7F) character = ' ';
  }
  return '"' + shown + (length < text_i.size() ? "...\"" : "\"");
}

// Walks the text once. Reading functions return false with the complaint made.
class Reader {
 public:
  Reader(std::string_view text_i, PLXSearchError& error_o) : myText(text_i), myError(error_o) {}

  bool Read(PLXSearchExpression& expression_o) {
    if (myText.size() > kMaximumSearchBytes) {
      return Fail(kMaximumSearchBytes, "exceeds " + std::to_string(kMaximumSearchBytes) + " bytes");
    }
    if (std::size_t const zero = myText.find('\0'); zero != myText.npos) return Fail(zero, "has a zero byte");
    SkipBlanks();
    if (AtEnd()) return true;
    // A field may be called "Order by whom": what an operator follows is a condition.
    bool const isOrderAlone = myText.find_first_of(kOperatorCharacters) == myText.npos && TakeOrderBy();
    bool isOrdered = isOrderAlone;
    if (!isOrderAlone && !ReadConditions(expression_o.myAlternatives, isOrdered)) return false;
    return !isOrdered || ReadOrder(expression_o);
  }

 private:
  bool AtEnd() const { return myAt >= myText.size(); }
  std::string_view Rest() const { return myText.substr(myAt); }
  std::string_view Word() const { return Rest().substr(0, Rest().find_first_of(kBlanks)); }
  void SkipBlanks() { myAt = std::min(myText.find_first_not_of(kBlanks, myAt), myText.size()); }

  bool Fail(std::size_t at_i, std::string const& what_i, std::string const& remedy_i = {}) {
    myError.position = at_i + 1;
    myError.text = "the search " + what_i + " at character " + std::to_string(myError.position) + remedy_i;
    return false;
  }

  bool TakeKeyword(std::string_view word_i) {
    if (!IsKeyword(Word(), word_i)) return false;
    myAt += word_i.size();
    return true;
  }

  bool TakeOrderBy() {
    std::size_t const start = myAt;
    if (TakeKeyword("ORDER")) {
      SkipBlanks();
      if (TakeKeyword("BY")) return true;
    }
    myAt = start;
    return false;
  }

  // Stops at the end or behind ORDER BY.
  bool ReadConditions(std::vector<std::vector<PLXSearchCondition>>& alternatives_o, bool& isOrdered_o) {
    alternatives_o.emplace_back();
    for (std::size_t count = 1;; ++count) {
      if (count > kMaximumSearchConditions) {
        return Fail(myAt, "has more than " + std::to_string(kMaximumSearchConditions) + " conditions");
      }
      if (!ReadCondition(alternatives_o.back().emplace_back())) return false;
      SkipBlanks();
      isOrdered_o = TakeOrderBy();
      if (isOrdered_o || AtEnd()) return true;
      std::string_view const join = Word();
      if (TakeKeyword("OR")) {
        alternatives_o.emplace_back();
      } else if (!TakeKeyword("AND")) {
        return Fail(myAt, "has " + Shown(join) + " where AND, OR or ORDER BY belongs",
                    "; an apostrophe inside a value is written twice");
      }
      SkipBlanks();
      if (AtEnd()) return Fail(myAt, "has no condition after " + Shown(join));
    }
  }

  bool ReadCondition(PLXSearchCondition& condition_o) {
    std::size_t const start = myAt;
    myAt = std::min(myText.find_first_of(kOperatorCharacters, myAt), myText.size());
    std::string_view const name = Trimmed(myText.substr(start, myAt - start));
    if (AtEnd()) return Fail(start + name.size(), "has no operator after " + Shown(name));
    if (name.empty()) return Fail(myAt, "has no field before the operator");
    condition_o.myField = name;
    condition_o.myFieldPosition = start + 1;
    auto const* const found = std::find_if(std::begin(kSigns), std::end(kSigns), [this](auto const& row_i) {
      return Rest().starts_with(row_i.first);
    });
    condition_o.myComparison = found->second;
    myAt += found->first.size();
    SkipBlanks();
    if (AtEnd()) return Fail(myAt, "has no value for " + Shown(name));
    return myText[myAt] == '\'' ? ReadQuoted(condition_o.myValue) : ReadNumber(condition_o.myValue);
  }

  bool ReadQuoted(std::string& value_o) {
    std::size_t const start = myAt++;
    for (;;) {
      std::size_t const quote = myText.find('\'', myAt);
      if (quote == myText.npos) return Fail(start, "does not close the value that begins");
      value_o.append(myText, myAt, quote - myAt);
      myAt = quote + 1;
      if (!Rest().starts_with('\'')) return true;
      value_o += '\'';
      ++myAt;
    }
  }

  bool ReadNumber(std::string& value_o) {
    std::string_view const word = Word();
    if (!IsDecimalNumber(word)) {
      return Fail(myAt, "has neither a number nor a value in apostrophes, but " + Shown(word) + ",");
    }
    value_o = word;
    myAt += word.size();
    return true;
  }

  bool ReadOrder(PLXSearchExpression& expression_o) {
    SkipBlanks();
    if (AtEnd()) return Fail(myAt, "has no field after ORDER BY");
    std::string_view name = Trimmed(Rest());
    // A lone ASC or DESC is a field of that name.
    if (std::size_t const blank = name.find_last_of(kBlanks); blank != name.npos) {
      std::string_view const last = name.substr(blank + 1);
      expression_o.isDescending = IsKeyword(last, "DESC");
      if (expression_o.isDescending || IsKeyword(last, "ASC")) name = Trimmed(name.substr(0, blank));
    }
    expression_o.myOrderField = name;
    expression_o.myOrderPosition = myAt + 1;
    return true;
  }

  std::string_view const myText;
  std::size_t myAt = 0;
  PLXSearchError& myError;
};

void AppendCondition(PLXSearchCondition const& condition_i, std::string& text_io) {
  text_io.append(condition_i.myField).append(1, ' ').append(SignOf(condition_i.myComparison)).append(" '");
  for (char const character : condition_i.myValue) text_io.append(character == '\'' ? 2 : 1, character);
  text_io += '\'';
}

}  // namespace

bool ParseSearchExpression(std::string_view text_i, PLXSearchExpression& expression_o,
                           PLXSearchError& error_o) {
  PLXSearchExpression expression;
  if (!Reader(text_i, error_o).Read(expression)) return false;
  expression_o = std::move(expression);
  return true;
}

std::string FormatSearchExpression(PLXSearchExpression const& expression_i) {
  std::string text;
  for (auto const& conditions : expression_i.myAlternatives) {
    std::string_view join = text.empty() ? "" : " OR ";
    for (PLXSearchCondition const& condition : conditions) {
      text += join;
      AppendCondition(condition, text);
      join = " AND ";
    }
  }
  if (expression_i.myOrderField.empty()) return text;
  if (!text.empty()) text += ' ';
  // The direction always stands there, lest a field "Sort Asc" lose its last word.
  return text.append("ORDER BY ")
      .append(expression_i.myOrderField)
      .append(expression_i.isDescending ? " DESC" : " ASC");
}

std::string_view SignOf(PLXSearchCondition::Comparison comparison_i) {
  return std::find_if(std::begin(kSigns), std::end(kSigns),
                      [comparison_i](auto const& row_i) { return row_i.second == comparison_i; })
      ->first;
}
