#pragma once

#include <optional>
#include <regex>
#include <string>
#include <vector>

#include "PLXSearchExpression.h"

// A slow, simple reader of searches, made of the library's regular expressions; nothing where the search does
// not parse. It stands on their recursion, so its texts are short.
inline std::optional<PLXSearchExpression> ReadSearchByTwin(std::string const& text_i) {
  static std::regex const ourCondition(
      "[ \\t\\r\\n]*([^=<>]*)(<>|<=|>=|<|>|=)[ "
      "\\t\\r\\n]*(?:'((?:[^']|'')*)'(?!')|([-+]?(?:\\d+\\.?\\d*|\\.\\d+)(?![^ \\t\\r\\n])))[ \\t\\r\\n]*");
  static std::regex const ourOrder("[ \\t\\r\\n]*ORDER[ \\t\\r\\n]+BY(?![^ \\t\\r\\n])([^]*)",
                                   std::regex::icase);
  static std::regex const ourJoin("(AND|OR)(?=[ \\t\\r\\n])[ \\t\\r\\n]*(?=[^])", std::regex::icase);
  static std::regex const ourDirected("([^]*[^ \\t\\r\\n])[ \\t\\r\\n]+(ASC|DESC)", std::regex::icase);
  auto const trimmed = [](std::string const& piece_i) {
    std::size_t const first = piece_i.find_first_not_of(" \t\r\n");
    return first == piece_i.npos ? std::string()
                                 : piece_i.substr(first, piece_i.find_last_not_of(" \t\r\n") + 1 - first);
  };
  PLXSearchExpression read;
  std::smatch match;
  auto const readOrder = [&](std::string const& field_i) {
    read.myOrderField = trimmed(field_i);
    if (!std::regex_match(read.myOrderField, match, ourDirected)) return !read.myOrderField.empty();
    std::string const field = match[1];
    read.isDescending = (match[2].str()[0] | 0x20) == 'd';
    read.myOrderField = field;
    return true;
  };
  if (text_i.find('\0') != text_i.npos) return std::nullopt;
  if (trimmed(text_i).empty()) return read;
  if (text_i.find_first_of("=<>") == text_i.npos) {
    if (!std::regex_match(text_i, match, ourOrder) || !readOrder(match[1])) return std::nullopt;
    return read;
  }
  read.myAlternatives.emplace_back();
  for (std::string rest = text_i;;) {
    if (!std::regex_search(rest, match, ourCondition, std::regex_constants::match_continuous))
      return std::nullopt;
    PLXSearchCondition condition;
    condition.myField = trimmed(match[1]);
    if (condition.myField.empty()) return std::nullopt;
    constexpr char const* kSigns[] = {"=", "<>", "<", "<=", ">", ">="};
    for (std::size_t sign = 0; sign < std::size(kSigns); ++sign) {
      if (match[2] == kSigns[sign])
        condition.myComparison = static_cast<PLXSearchCondition::Comparison>(sign);
    }
    condition.myValue = match[4].matched ? match[4].str() : match[3].str();
    for (std::size_t at = 0;
         !match[4].matched && (at = condition.myValue.find("''", at)) != std::string::npos; ++at) {
      condition.myValue.erase(at, 1);
    }
    read.myAlternatives.back().push_back(condition);
    rest = match.suffix();
    if (rest.empty()) return read;
    if (std::regex_match(rest, match, ourOrder)) {
      std::string const field = match[1];
      if (!readOrder(field)) return std::nullopt;
      return read;
    }
    if (!std::regex_search(rest, match, ourJoin, std::regex_constants::match_continuous)) return std::nullopt;
    if (match[1].length() == 2) read.myAlternatives.emplace_back();
    rest = match.suffix();
  }
}
