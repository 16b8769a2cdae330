#pragma once

#include <algorithm>
#include <map>
#include <optional>
#include <string>
#include <vector>

// Regular expressions matched as their rules are told, step by step and without memory: slow and easy to see
// through. What PLXRegExp finds is held against it.
class RegExpTwin {
 public:
  struct Match {
    std::size_t length = 0;
    std::map<int, std::pair<std::size_t, std::size_t>> groups;  // those that took part, from 1
  };

  int error = 0;  // as Compile tells it
  int groupCount = 0;

  explicit RegExpTwin(std::string const& expression_i) {
    std::vector<Piece> const pieces = Cut(Expanded(expression_i));
    if (error == 0) myRoot = Build(pieces);
  }

  // Requires: no error.
  std::optional<Match> MatchAt(std::string const& text_i, std::size_t position_i) const {
    return Check(myRoot, text_i, position_i);
  }

 private:
  using Text = std::u32string;  // bytes, escaped bytes and kNothing
  static constexpr char32_t kEscaped = 0x1000;
  static constexpr char32_t kNothing = 0x2000;
  struct Piece {
    char kind;  // 'c' one byte, '[' a set, '(' a group
    Text text;  // what is inside
    Text quantifier = {};
    bool isAnchored = false;
    bool Is(char32_t character_i) const { return kind == 'c' && text[0] == character_i; }
  };
  using Pieces = std::vector<Piece>;
  struct Node {
    char kind = 's';  // 'c' one byte, 's' sequence, '|' alternatives
    bool accepts[256] = {};
    std::vector<Node> parts = {};
    unsigned minimum = 1, maximum = 1;
    bool atStart = false, atEnd = false;
    int group = 0;
  };

  static Text Expanded(std::string const& expression_i) {
    Text const rows[][2] = {{U"[:alpha:]", U"[A-Za-z]"},
                            {U"[:alnum:]", U"[0-9A-Za-z]"},
                            {U"[:blank:]", U""},
                            {U"[:cntrl:]", U""},
                            {U"[:graph:]", U""},
                            {U"[:print:]", U""},
                            {U"[:punct:]", U""},
                            {U"[:space:]", U""},
                            {U"[:xdigit:]", U""},
                            {U"[:digit:]", U"[0-9]"},
                            {U"[:lower:]", U"[a-z]"},
                            {U"[:upper:]", U"[A-Z]"},
                            {U"\\c", U"[A-Za-z]"},
                            {U"\\C", U"[^A-Za-z]"},
                            {U"\\d", U"[0-9]"},
                            {U"\\D", U"[^0-9]"},
                            {U"\\s", U"[ \f\t\v]"},
                            {U"\\S", U"[^ \f\t\v]"},
                            {U"\\w", U"[A-Za-z0-9_]"},
                            {U"\\W", U"[^A-Za-z0-9_]"},
                            {U"\\f", U"\f"},
                            {U"\\n", U"\n"},
                            {U"\\r", U"\r"},
                            {U"\\t", U"\t"},
                            {U"\\v", U"\v"}};
    Text text;
    for (char character : expression_i) text += static_cast<unsigned char>(character);
    for (auto const& [from, to] : rows) {
      for (std::size_t index = 0; index < text.size(); ++index) {
        if (text.compare(index, from.size(), from) == 0) {
          text.replace(index, from.size(), to);
          bool const leavesBrackets = to.empty() && index > 0 && text.compare(index - 1, 2, U"[]") == 0;
          if (leavesBrackets) text.insert(index, 1, kNothing);
          index += to.size() - 1;
        } else if (text[index] == '\\') {
          ++index;
        }
      }
    }
    for (std::size_t index = 0; index < text.size(); ++index) {
      if (text[index] != '\\') continue;
      if (index + 1 < text.size()) text.erase(index, 1);
      text[index] |= kEscaped;
    }
    return text;
  }

  // Cuts into bytes, sets and groups. Every set and group counts for two in the positions of errors.
  Pieces Cut(Text const& text_i, bool isInGroup_i = false) {
    Pieces pieces;
    std::size_t marks = 0;
    std::size_t groupStart = Text::npos, groupPosition = 0;
    std::size_t index = 0;
    auto const fail = [&](std::size_t at_i) { return error = static_cast<int>(at_i + marks + 1), Pieces(); };
    while (index < text_i.size()) {
      char32_t const symbol = text_i[index];
      std::size_t end = index;
      if (symbol == '(') {
        if (groupStart != Text::npos) return fail(index);
        groupStart = index;
        groupPosition = index + ++marks;
      } else if (symbol == '[') {
        ++marks;
        end = text_i.find(']', index + 1 + (text_i.substr(index + 1, 1) == U"]"));
        if (end == Text::npos) return fail(index);
      } else if (symbol == '{' && !isInGroup_i && text_i.find('}', index) == Text::npos) {
        return fail(index);
      }
      bool const isGroupEnd = symbol == ')' && groupStart != Text::npos;
      Text quantifier;
      if (isGroupEnd || symbol == '[') {
        std::size_t length = end + 1 < text_i.size() && Text(U"*+?$").find(text_i[end + 1]) != Text::npos;
        if (end + 1 < text_i.size() && text_i[end + 1] == '{') {
          std::size_t const brace = text_i.find('}', end);
          if (brace == Text::npos) return fail(end + 1);
          length = brace - end;
        }
        quantifier = text_i.substr(end + 1, length);
        ++marks;
      }
      if (isGroupEnd) {
        pieces.push_back({'(', text_i.substr(groupStart + 1, index - groupStart - 1), quantifier});
        bool const isAnchored = pieces.size() > 1 && pieces[pieces.size() - 2].Is('^');
        pieces.back().isAnchored = isAnchored;
        if (isAnchored) pieces.erase(pieces.end() - 2);
        groupStart = Text::npos;
      } else if (groupStart == Text::npos && symbol != kNothing) {
        bool const isSet = symbol == '[';
        pieces.push_back(
            {isSet ? '[' : 'c', text_i.substr(index + isSet, isSet ? end - index - 1 : 1), quantifier});
      }
      index = end + 1 + quantifier.size();
    }
    if (groupStart != Text::npos) error = static_cast<int>(groupPosition + 1);
    return pieces;
  }

  Node Build(Pieces pieces_i) {
    Node node;
    node.atStart = !pieces_i.empty() && pieces_i.front().Is('^');
    if (node.atStart) pieces_i.erase(pieces_i.begin());
    node.atEnd = !pieces_i.empty() && pieces_i.back().Is('$');
    if (node.atEnd) pieces_i.pop_back();
    std::vector<Pieces> alternatives(1);
    for (Piece const& piece : pieces_i) {
      if (piece.Is('|')) {
        alternatives.emplace_back();
      } else {
        alternatives.back().push_back(piece);
      }
    }
    if (alternatives.size() > 1) {
      node.kind = '|';
      for (Pieces const& alternative : alternatives) node.parts.push_back(Build(alternative));
      return node;
    }
    for (std::size_t index = 0; index < pieces_i.size(); ++index) {
      Piece piece = pieces_i[index];
      if (piece.kind == 'c') {
        // What stands behind a byte quantifies it.
        std::size_t const next = index + 1;
        if (next < pieces_i.size() &&
            (pieces_i[next].Is('*') || pieces_i[next].Is('+') || pieces_i[next].Is('?'))) {
          piece.quantifier = pieces_i[++index].text;
        } else if (next < pieces_i.size() && pieces_i[next].Is('{')) {
          do {
            if (++index == pieces_i.size() || pieces_i[index].kind != 'c') return error = -1, node;
            piece.quantifier += pieces_i[index].text;
          } while (!pieces_i[index].Is('}'));
        }
      }
      node.parts.push_back(BuildPiece(piece));
    }
    return node;
  }

  Node BuildPiece(Piece const& piece_i) {
    Node node;
    node.kind = piece_i.kind == '(' ? 's' : 'c';
    node.atStart = piece_i.isAnchored;
    if (piece_i.kind == '(') {
      node.group = ++groupCount;
      node.parts.push_back(Build(Cut(piece_i.text, true)));
    } else {
      bool const isSet = piece_i.kind == '[';
      bool const isNegated = isSet && piece_i.text.starts_with('^');
      Text const set = piece_i.text.substr(isNegated ? 1 : 0);
      for (std::size_t index = 0; index < set.size(); ++index) {
        char32_t const first = set[index];
        bool const isRange = isSet && index + 2 < set.size() && set[index + 1] == '-';
        if (isRange) index += 2;
        for (char32_t c = first & 0xFF; first != kNothing && c <= (set[index] & 0xFF); ++c)
          node.accepts[c] = true;
      }
      for (unsigned c = 0; c < 256; ++c) {
        if (isNegated) node.accepts[c] = !node.accepts[c];
        if (piece_i.Is('.')) node.accepts[c] = c != '\n' && c != '\r';
      }
    }
    SetCounts(node, piece_i.quantifier);
    return node;
  }

  void SetCounts(Node& node_io, Text const& quantifier_i) {
    if (quantifier_i.empty()) return;
    node_io.minimum = quantifier_i == U"+" || quantifier_i == U"$" ? 1 : 0;
    node_io.maximum = quantifier_i == U"?" || quantifier_i == U"$" ? 1 : 0;
    node_io.atEnd = quantifier_i == U"$";
    if (quantifier_i[0] != '{') return;
    Text const inside = quantifier_i.substr(1, quantifier_i.size() - 2);
    std::size_t const comma = inside.find(',');
    Text const first = inside.substr(0, comma);
    auto const count = [this](Text const& digits_i) {
      unsigned value = 0;
      for (char32_t digit : digits_i) {
        if (digit < '0' || digit > '9') error = -1;
        value = std::min(value * 10 + (digit - '0'), 256u);
      }
      if (value > 255) error = -1;
      return value;
    };
    node_io.minimum = count(first);
    node_io.maximum = comma == Text::npos ? node_io.minimum : count(inside.substr(comma + 1));
    if (first.empty() || (node_io.maximum != 0 && node_io.maximum < node_io.minimum)) error = -1;
  }

  static std::optional<Match> Once(Node const& node_i, std::string const& text_i, std::size_t position_i) {
    Match match;
    if (node_i.kind == 'c') {
      if (position_i == text_i.size() || !node_i.accepts[static_cast<unsigned char>(text_i[position_i])])
        return {};
      match.length = 1;
      return match;
    }
    for (Node const& part : node_i.parts) {
      auto found = Check(part, text_i, position_i + match.length);
      if (node_i.kind == '|' && found) return found;
      if (node_i.kind == '|') continue;
      if (!found) return {};
      match.length += found->length;
      match.groups.insert(found->groups.begin(), found->groups.end());
    }
    return node_i.kind == '|' ? std::nullopt : std::optional(match);
  }

  static std::optional<Match> Check(Node const& node_i, std::string const& text_i, std::size_t position_i) {
    auto const isLineEnd = [&](std::size_t at_i) { return text_i[at_i] == '\r' || text_i[at_i] == '\n'; };
    Match match;
    unsigned count = 0;
    while (node_i.maximum == 0 || count < node_i.maximum) {
      auto const found = Once(node_i, text_i, position_i + match.length);
      if (!found) break;
      ++count;
      match.length += found->length;
      match.groups.insert(found->groups.begin(), found->groups.end());
      if (found->length == 0 && count >= node_i.minimum) break;
    }
    std::size_t const end = position_i + match.length;
    if (count < node_i.minimum) return {};
    if (node_i.atStart && position_i != 0 && !isLineEnd(position_i - 1)) return {};
    if (node_i.atEnd && end != text_i.size() && !isLineEnd(end)) return {};
    if (node_i.group != 0) match.groups[node_i.group] = {position_i, match.length};
    return match;
  }

  Node myRoot;
};
