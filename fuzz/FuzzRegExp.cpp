#include <string>
#include <string_view>

#include "EncoderTwins.h"
#include "Fuzz.h"
#include "PLXRegExp.h"
#include "RegExpTwin.h"

// An expression up to the first tilde, then a text. What is found, in which groups, and what is refused at
// which position is what the twin says; behind the first match the search goes on.

namespace {

// The twin is slow, and recursion is part of its simplicity.
constexpr std::size_t kLongestExpression = 200;
constexpr std::size_t kLongestText = 300;

void CheckFrom(PLXRegExp& expression_io, RegExpTwin const& twin_i, std::string const& text_i,
               PLXUInt32 offset_i) {
  std::optional<RegExpTwin::Match> match;
  std::size_t at = offset_i;
  while (at < text_i.size() && !(match = twin_i.MatchAt(text_i, at))) ++at;
  Require(expression_io.Execute(Plx(text_i), offset_i) == match.has_value());
  PLXUInt32 start = 0;
  PLXUInt32 length = 0;
  expression_io.GetMatch(start, length);
  Require(match ? start == at && length == match->length : start == 0 && length == 0);
  PLXUInt32 group = 0;
  for (; expression_io.GetGroup(group, start, length); ++group) {
    auto const expected =
        match ? match->groups[static_cast<int>(group) + 1] : std::pair<std::size_t, std::size_t>();
    Require(start == expected.first && length == expected.second);
  }
  Require(group == expression_io.GetGroupCount() && static_cast<int>(group) == twin_i.groupCount);
  if (match && at + 1 < text_i.size()) {
    CheckFrom(expression_io, twin_i, text_i,
              static_cast<PLXUInt32>(at + std::max<std::size_t>(match->length, 1)));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data_i, std::size_t size_i) {
  std::string_view const input(reinterpret_cast<char const*>(data_i), size_i);
  std::size_t const end = input.find('~');
  std::string const expression(input.substr(0, end));
  std::string const text(end == input.npos ? std::string_view() : input.substr(end + 1));
  PLXRegExp product;
  PLXSInt32 const error = product.Compile(Plx(expression));
  if (expression.size() > kLongestExpression || text.size() > kLongestText) {
    product.Execute(Plx(text), 0);
    return 0;
  }
  RegExpTwin const twin(expression);
  Require(error == twin.error);
  if (error == 0) CheckFrom(product, twin, text, 0);
  return 0;
}
