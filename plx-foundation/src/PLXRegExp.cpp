#include "PLXRegExp.h"

#include <algorithm>
#include <string>
#include <string_view>

#include "PLXRegExpPattern.h"

// An expression is compiled in three passes. The first replaces shorthands by what they stand for; the second
// puts marks round groups and sets; the third, PLXRegExpPattern, cuts the text at the marks and builds the
// tree.

using namespace PLXRegExpSymbol;

namespace {

constexpr auto kNowhere = std::u16string::npos;
constexpr std::size_t kLastPosition = 0x7FFFFFFF;  // that can be told as an error

struct Shorthand {
  std::u16string_view text;
  std::u16string_view replacement;
};

// In the order of replacement: sets hold control characters as shorthands themselves.
constexpr Shorthand kShorthands[] = {
    {u"[:alpha:]", u"[A-Za-z]"},
    {u"[:alnum:]", u"[0-9A-Za-z]"},
    {u"[:blank:]", u""},
    {u"[:cntrl:]", u""},
    {u"[:graph:]", u""},
    {u"[:print:]", u""},
    {u"[:punct:]", u""},
    {u"[:space:]", u""},
    {u"[:xdigit:]", u""},
    {u"[:digit:]", u"[0-9]"},
    {u"[:lower:]", u"[a-z]"},
    {u"[:upper:]", u"[A-Z]"},
    {u"\\c", u"[A-Za-z]"},
    {u"\\C", u"[^A-Za-z]"},
    {u"\\d", u"[0-9]"},
    {u"\\D", u"[^0-9]"},
    {u"\\s", u"[ \\f\\t\\v]"},
    {u"\\S", u"[^ \\f\\t\\v]"},
    {u"\\w", u"[A-Za-z0-9_]"},
    {u"\\W", u"[^A-Za-z0-9_]"},
    {u"\\f", u"\f"},
    {u"\\n", u"\n"},
    {u"\\r", u"\r"},
    {u"\\t", u"\t"},
    {u"\\v", u"\v"},
};

// A backslash and what follows it are passed over as one, so "\\d" is no shorthand.
void ReplaceEverywhere(std::u16string& text_io, Shorthand const& shorthand_i) {
  if (text_io.find(shorthand_i.text) == kNowhere) return;
  std::u16string_view rest = text_io;
  std::u16string result;
  while (!rest.empty()) {
    if (rest.starts_with(shorthand_i.text)) {
      rest.remove_prefix(shorthand_i.text.size());
      result += shorthand_i.replacement;
      bool const isRemoved = shorthand_i.replacement.empty();
      if (isRemoved && result.ends_with(u'[') && rest.starts_with(u']')) result += kNothing;
      continue;
    }
    std::u16string_view const taken = rest.substr(0, rest[0] == u'\\' ? 2 : 1);
    result += taken;
    rest.remove_prefix(taken.size());
  }
  text_io = std::move(result);
}

std::u16string WithoutEscapes(std::u16string_view text_i) {
  std::u16string result;
  result.reserve(text_i.size());
  for (std::size_t index = 0; index < text_i.size(); ++index) {
    bool const isEscape = text_i[index] == u'\\';
    if (isEscape && index + 1 < text_i.size()) ++index;
    result += static_cast<char16_t>(text_i[index] | (isEscape ? kLiteral : 0));
  }
  return result;
}

std::u16string Expand(PLXString const& expression_i) {
  std::u16string text;
  text.reserve(expression_i.GetLength());
  for (PLXUInt32 index = 0; index < expression_i.GetLength(); ++index) {
    text += static_cast<PLXUInt8>(expression_i.GetCStringAccess()[index]);
  }
  for (Shorthand const& shorthand : kShorthands) ReplaceEverywhere(text, shorthand);
  return WithoutEscapes(text);
}

// The second pass over one expression.
class Marker {
 public:
  explicit Marker(std::u16string_view text_i) : myText(text_i), myLastBrace(text_i.rfind(u'}')) {}

  // 0, or the position of the error.
  std::size_t MarkAll();
  std::u16string const& GetMarked() const noexcept { return myMarked; }

 private:
  std::size_t PositionOfNext() const noexcept { return myMarked.size() + 1; }
  void Take() { myMarked += myText[myIndex++]; }
  void TakeThrough(std::size_t last_i) {
    while (myIndex <= last_i) Take();
  }
  std::size_t MarkOne();
  std::size_t MarkClass();
  std::size_t OpenGroup();
  // Takes the quantifier at hand, if there is one, and ends the piece behind it.
  std::size_t EndPiece(char16_t mark_i);

  std::u16string_view const myText;
  std::size_t const myLastBrace;
  std::size_t myIndex = 0;
  std::u16string myMarked;
  std::size_t myOpenGroup = 0;  // its position; 0 outside groups
};

std::size_t Marker::MarkAll() {
  while (myIndex < myText.size()) {
    if (std::size_t const error = MarkOne(); error != 0) return error;
  }
  return myOpenGroup;
}

std::size_t Marker::MarkOne() {
  switch (myText[myIndex]) {
    case u'(':
      return OpenGroup();
    case u'[':
      return MarkClass();
    case u')':
      Take();
      if (myOpenGroup == 0) return 0;
      myOpenGroup = 0;
      return EndPiece(kGroupMark);
    case u'{':
      if (myLastBrace == kNowhere || myIndex > myLastBrace) return PositionOfNext();
      break;
    default:
      break;
  }
  Take();
  return 0;
}

std::size_t Marker::MarkClass() {
  myMarked += kClassMark;
  bool const hasBracketFirst = myText.substr(myIndex + 1).starts_with(u']');
  std::size_t const end = myText.find(u']', myIndex + (hasBracketFirst ? 2 : 1));
  if (end == kNowhere) return PositionOfNext();
  TakeThrough(end);
  return EndPiece(kClassMark);
}

std::size_t Marker::OpenGroup() {
  if (myOpenGroup != 0) return PositionOfNext();
  bool const isAnchored = myMarked.ends_with(u'^');
  myMarked.insert(myMarked.size() - (isAnchored ? 1 : 0), 1, kGroupMark);
  myOpenGroup = PositionOfNext();
  Take();
  return 0;
}

std::size_t Marker::EndPiece(char16_t mark_i) {
  char16_t const next = myIndex < myText.size() ? myText[myIndex] : kNothing;
  if (next == u'*' || next == u'+' || next == u'?' || next == u'$') Take();
  if (next == u'{') {
    std::size_t const end = myText.find(u'}', myIndex);
    if (end == kNowhere) return PositionOfNext();
    TakeThrough(end);
  }
  myMarked += mark_i;
  return 0;
}

}  // namespace

// ---- PLXRegExpMatch ----

void PLXRegExpMatch::GetMatch(PLXUInt32& start_o, PLXUInt32& length_o) const noexcept {
  start_o = myRanges[0].start;
  length_o = myRanges[0].length;
}

PLXUInt32 PLXRegExpMatch::GetGroupCount() const noexcept {
  return static_cast<PLXUInt32>(myRanges.size() - 1);
}

bool PLXRegExpMatch::GetGroup(PLXUInt32 index_i, PLXUInt32& start_o, PLXUInt32& length_o) const noexcept {
  if (index_i >= GetGroupCount()) return false;
  start_o = myRanges[index_i + std::size_t{1}].start;
  length_o = myRanges[index_i + std::size_t{1}].length;
  return true;
}

// ---- PLXRegExp ----

PLXRegExp::PLXRegExp() = default;

PLXRegExp::PLXRegExp(PLXString const& expression_i) { SetExpression(expression_i); }

PLXRegExp::~PLXRegExp() = default;

PLXSInt32 PLXRegExp::Compile(PLXString const& expression_i) {
  myRoot.reset();
  myMatch.Clear(0);
  std::u16string const expanded = Expand(expression_i);
  Marker marker(expanded);
  if (std::size_t const position = marker.MarkAll(); position != 0) {
    return static_cast<PLXSInt32>(std::min(position, kLastPosition));
  }

  auto root = std::make_unique<PLXRegExpPattern>();
  PLXRegExpPattern::Numbering numbering;
  PLXSInt32 const error = root->SetPattern(marker.GetMarked(), numbering);
  if (error != 0) return error;
  myStart = std::make_unique<PLXRegExpStart const>(root->FindStart());
  myRoot = std::move(root);
  myRepetitionCount = numbering.repetitionCount;
  myMatch.Clear(numbering.groupCount);
  return 0;
}

bool PLXRegExp::Execute(PLXString const& text_i, PLXUInt32 const& startOffset_i,
                        PLXRegExpMatch& match_o) const {
  match_o.Clear(myMatch.GetGroupCount());
  if (!myRoot) return false;
  PLXRegExpScan scan(text_i, myRepetitionCount, match_o);
  PLXUInt32 next = startOffset_i;
  while (true) {
    PLXUInt32 const position = myStart->FindNext(text_i.GetCStringAccess(), text_i.GetLength(), next, next);
    if (position == PLXRegExpStart::kNowhere) return false;
    std::int64_t const length = myRoot->CheckPattern(scan, position);
    if (length < 0) continue;
    match_o.myRanges[0] = {position, static_cast<PLXUInt32>(length)};
    return true;
  }
}
