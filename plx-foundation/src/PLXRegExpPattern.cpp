#include "PLXRegExpPattern.h"

#include <algorithm>
#include <memory>

using namespace PLXRegExpSymbol;

namespace {

constexpr char ourSourceFile[] = "src/PLXRegExp.cpp";

constexpr PLXUInt32 kUnknownEnd = 0xFFFFFFFF;  // longer than any text

bool TakeFront(std::u16string_view& text_io, char16_t symbol_i) {
  if (!text_io.starts_with(symbol_i)) return false;
  text_io.remove_prefix(1);
  return true;
}

// What lies between two equal marks, the first of them in front.
std::u16string_view TakePiece(std::u16string_view& text_io) {
  std::size_t const end = text_io.find(text_io.front(), 1);
  std::u16string_view const piece = text_io.substr(1, end - 1);
  text_io.remove_prefix(end + 1);
  return piece;
}

// The parts between the bars that lie in no group and no set; one without a bar.
std::vector<std::u16string_view> SplitAtBars(std::u16string_view text_i) {
  std::vector<std::u16string_view> parts;
  std::size_t start = 0;
  for (std::size_t index = 0; index < text_i.size(); ++index) {
    char16_t const symbol = text_i[index];
    if (symbol == kClassMark || symbol == kGroupMark) index = text_i.find(symbol, index + 1);
    if (symbol != u'|') continue;
    parts.push_back(text_i.substr(start, index - start));
    start = index + 1;
  }
  parts.push_back(text_i.substr(start));
  return parts;
}

// Where the ")" stands that ends a group whose "(" was taken.
std::size_t FindGroupEnd(std::u16string_view text_i) {
  std::size_t index = 0;
  for (; text_i[index] != u')'; ++index) {
    if (text_i[index] == kClassMark) index = text_i.find(kClassMark, index + 1);
  }
  return index;
}

constexpr PLXUInt8 Byte(char16_t symbol_i) { return static_cast<PLXUInt8>(symbol_i & 0xFF); }

}  // namespace

// ---- Building ----

PLXSInt32 PLXRegExpPattern::SetPattern(std::u16string_view text_i, Numbering& numbering_io) {
  if (TakeFront(text_i, u'^')) Set(kAnchoredAtStart);
  if (text_i.ends_with(u'$')) {
    Set(kAnchoredAtEnd);
    text_i.remove_suffix(1);
  }
  auto const parts = SplitAtBars(text_i);
  return parts.size() > 1 ? SetAlternatives(parts, numbering_io) : ParsePattern(text_i, numbering_io);
}

// Many alternatives become a balanced tree of pairs: they are tried from left to right all the same, and
// however many there are, the tree stays shallow.
PLXSInt32 PLXRegExpPattern::SetAlternatives(std::span<std::u16string_view const> parts_i,
                                            Numbering& numbering_io) {
  Set(kAlternation);
  mySubPatterns.ResizeToHold(2);
  std::size_t const middle = parts_i.size() / 2;
  PLXUInt32 index = 0;
  for (auto const half : {parts_i.first(middle), parts_i.subspan(middle)}) {
    auto* const node = new PLXRegExpPattern;
    mySubPatterns[index++] = node;
    PLXSInt32 const error =
        half.size() > 1 ? node->SetAlternatives(half, numbering_io) : node->SetPattern(half[0], numbering_io);
    if (error != 0) return error;
  }
  return 0;
}

PLXSInt32 PLXRegExpPattern::ParsePattern(std::u16string_view text_i, Numbering& numbering_io) {
  std::vector<std::unique_ptr<PLXRegExpPattern>> nodes;
  while (!text_i.empty()) {
    if (TakeFront(text_i, kNothing)) continue;
    nodes.push_back(std::make_unique<PLXRegExpPattern>());
    PLXSInt32 const error = nodes.back()->TakeNode(text_i, numbering_io);
    if (error != 0) return error;
  }
  mySubPatterns.ResizeToHold(static_cast<PLXUInt32>(nodes.size()));
  for (PLXUInt32 index = 0; index < nodes.size(); ++index) mySubPatterns[index] = nodes[index].release();
  return 0;
}

PLXSInt32 PLXRegExpPattern::TakeNode(std::u16string_view& text_io, Numbering& numbering_io) {
  char16_t const symbol = text_io.front();
  if (symbol == kClassMark) return SetClass(TakePiece(text_io), numbering_io);
  if (symbol == kGroupMark) return SetGroup(TakePiece(text_io), numbering_io);
  Set(kOneCharacter);
  if (symbol == u'.') {
    AddCharacters('\n', '\n');
    AddCharacters('\r', '\r');
    mySet.Negate();
  } else {
    AddCharacters(Byte(symbol), Byte(symbol));
  }
  text_io.remove_prefix(1);
  return ParseExtension(text_io, numbering_io);
}

// "^(...)+", without its marks. The group is a node of its own above what it holds: anchors inside belong to
// each repetition, those outside to all of them together.
PLXSInt32 PLXRegExpPattern::SetGroup(std::u16string_view piece_i, Numbering& numbering_io) {
  Set(kCapturing);
  myGroupNumber = ++numbering_io.groupCount;
  if (TakeFront(piece_i, u'^')) Set(kAnchoredAtStart);
  piece_i.remove_prefix(1);
  std::size_t const end = FindGroupEnd(piece_i);
  mySubPatterns.ResizeToHold(1);
  mySubPatterns[0] = new PLXRegExpPattern;
  PLXSInt32 const error = mySubPatterns[0]->SetPattern(piece_i.substr(0, end), numbering_io);
  return error != 0 ? error : ParsePieceEnd(piece_i.substr(end + 1), numbering_io);
}

// "[...]+", without its marks.
PLXSInt32 PLXRegExpPattern::SetClass(std::u16string_view piece_i, Numbering& numbering_io) {
  Set(kOneCharacter);
  std::size_t const end = piece_i.find(u']', piece_i[1] == u']' ? 2 : 1);
  std::u16string_view set = piece_i.substr(1, end - 1);
  bool const isNegated = TakeFront(set, u'^');
  while (!set.empty()) {
    bool const isRange = set.size() >= 3 && set[1] == u'-';
    if (set[0] != kNothing) AddCharacters(Byte(set[0]), Byte(set[isRange ? 2 : 0]));
    set.remove_prefix(isRange ? 3 : 1);
  }
  if (isNegated) mySet.Negate();
  return ParsePieceEnd(piece_i.substr(end + 1), numbering_io);
}

PLXSInt32 PLXRegExpPattern::ParsePieceEnd(std::u16string_view rest_i, Numbering& numbering_io) {
  if (TakeFront(rest_i, u'$')) Set(kAnchoredAtEnd);
  return ParseExtension(rest_i, numbering_io);
}

// Takes the quantifier in front, if there is one.
PLXSInt32 PLXRegExpPattern::ParseExtension(std::u16string_view& text_io, Numbering& numbering_io) {
  if (TakeFront(text_io, u'+')) {
    Set(kOneOrMore);
    myMaximum = 0;
  } else if (TakeFront(text_io, u'*')) {
    Set(kZeroOrMore);
    myMinimum = 0;
    myMaximum = 0;
  } else if (TakeFront(text_io, u'?')) {
    Set(kOptional);
    myMinimum = 0;
  } else if (TakeFront(text_io, u'{')) {
    Set(kCounted);
    if (PLXSInt32 const error = ParseCount(text_io); error != 0) return error;
  }
  if (IsUnbounded()) myRepetitionIndex = numbering_io.repetitionCount++;
  return 0;
}

// "m}", "m,}" or "m,n}".
PLXSInt32 PLXRegExpPattern::ParseCount(std::u16string_view& text_io) {
  unsigned counts[2] = {};
  bool hasDigits[2] = {};
  unsigned index = 0;
  while (!TakeFront(text_io, u'}')) {
    char16_t const symbol = text_io.empty() ? kNothing : text_io.front();
    if (symbol == u',' && index == 0) {
      index = 1;
    } else if (symbol >= u'0' && symbol <= u'9') {
      counts[index] = std::min(10 * counts[index] + (symbol - u'0'), 1000u);
      hasDigits[index] = true;
    } else {
      return kInvalidCount;
    }
    text_io.remove_prefix(1);
  }
  if (index == 0) counts[1] = counts[0];
  bool const isUnbounded = counts[1] == 0;
  if (!hasDigits[0] || counts[0] > 255 || counts[1] > 255) return kInvalidCount;
  if (!isUnbounded && counts[0] > counts[1]) return kInvalidCount;
  myMinimum = static_cast<PLXUInt8>(counts[0]);
  myMaximum = static_cast<PLXUInt8>(counts[1]);
  return 0;
}

void PLXRegExpPattern::AddCharacters(unsigned first_i, unsigned last_i) noexcept {
  for (unsigned character = first_i; character <= last_i; ++character) mySet.Add(character);
}

// ---- Where matches can begin ----

bool PLXRegExpPattern::AcceptsOneByte(char& byte_o) const noexcept {
  int count = 0;
  for (unsigned byte = 0; byte < 256 && count < 2; ++byte) {
    if (!mySet.Holds(byte)) continue;
    ++count;
    byte_o = static_cast<char>(byte);
  }
  return count == 1;
}

bool PLXRegExpPattern::AddFirstBytes(PLXByteSet& set_io) const {
  bool mayBeEmpty = myMinimum == 0;
  if (Has(kOneCharacter)) {
    set_io.Add(mySet);
    return mayBeEmpty;
  }
  PLXUInt32 const count = mySubPatterns.GetElementCount();
  if (Has(kAlternation)) {
    for (PLXUInt32 index = 0; index < count; ++index)
      mayBeEmpty = mySubPatterns[index]->AddFirstBytes(set_io) || mayBeEmpty;
    return mayBeEmpty;
  }
  PLXUInt32 index = 0;
  while (index < count && mySubPatterns[index]->AddFirstBytes(set_io)) ++index;
  return mayBeEmpty || index == count;
}

bool PLXRegExpPattern::AddLiteral(PLXUInt32& distance_io, PLXRegExpStart& start_io) const {
  if (Has(kAlternation) || IsUnbounded() || myMinimum != myMaximum) return false;
  if (!Has(kOneCharacter)) {
    if (myMinimum != 1) return false;
    for (PLXUInt32 index = 0; index < mySubPatterns.GetElementCount(); ++index) {
      if (!mySubPatterns[index]->AddLiteral(distance_io, start_io)) return false;
    }
    return true;
  }
  char byte = 0;
  if (AcceptsOneByte(byte)) {
    if (start_io.literal.empty()) start_io.literalOffset = distance_io;
    start_io.literal.append(myMinimum, byte);
  } else if (!start_io.literal.empty()) {
    return false;
  }
  distance_io += myMinimum;
  return true;
}

PLXRegExpStart PLXRegExpPattern::FindStart() const {
  PLXRegExpStart start;
  if (AddFirstBytes(start.first)) start.first.AddAll();
  start.isAtLineStart = Has(kAnchoredAtStart);
  PLXUInt32 distance = 0;
  AddLiteral(distance, start);
  PLXUInt32 const count = mySubPatterns.GetElementCount();
  if (Has(kAlternation) || count == 0) return start;
  PLXRegExpPattern const& head = *mySubPatterns[0];
  start.beginsWithRun = head.Has(kOneCharacter) && head.IsUnbounded() && head.myMinimum > 0;
  PLXUInt32 index = 1;
  while (index < count && mySubPatterns[index]->AddFirstBytes(start.behindRun)) ++index;
  start.mayEndRun = index == count;
  if (start.mayEndRun) start.behindRun.AddAll();
  return start;
}

// ---- Matching ----

std::int64_t PLXRegExpPattern::CheckPattern(PLXRegExpScan& scan_io, PLXUInt32 position_i) const {
  PLXUInt32 const lastGroup = scan_io.GetLastGroup();
  if (IsBareSequence()) {
    std::int64_t const length = MatchOnce(scan_io, position_i);
    if (length < 0) scan_io.ForgetGroupsAbove(lastGroup);
    return length;
  }
  if (Has(kAnchoredAtStart) && !scan_io.IsLineStart(position_i)) return -1;
  PLXUInt32 cursor = position_i;
  bool const matches = MatchRepeatedly(scan_io, cursor);
  if (!matches || (Has(kAnchoredAtEnd) && !scan_io.IsAtLineEnd(cursor))) {
    scan_io.ForgetGroupsAbove(lastGroup);
    return -1;
  }
  if (Has(kCapturing)) {
    PLX_ASSERT_STATE(myGroupNumber > 0);
    scan_io.SetGroup(myGroupNumber, position_i, cursor - position_i);
  }
  return cursor - position_i;
}

bool PLXRegExpPattern::MatchRepeatedly(PLXRegExpScan& scan_io, PLXUInt32& cursor_io) const {
  if (!Has(kQuantified)) {
    if (Has(kOneCharacter)) {
      bool const accepts = cursor_io < scan_io.GetLength() && mySet.Holds(scan_io[cursor_io]);
      cursor_io += accepts ? 1 : 0;
      return accepts;
    }
    std::int64_t const length = MatchOnce(scan_io, cursor_io);
    if (length > 0) cursor_io += static_cast<PLXUInt32>(length);
    return length >= 0;
  }
  bool const remembers = IsUnbounded() && scan_io.IsRemembering();
  if (Has(kOneCharacter) && !remembers) return MatchCharacters(scan_io, cursor_io);
  std::size_t const mark = scan_io.GetMark();
  PLXUInt32 count = 0;
  while (IsUnbounded() || count < myMaximum) {
    if (remembers && count >= myMinimum && scan_io.Recall(myRepetitionIndex, cursor_io)) break;
    std::int64_t const length = MatchOnce(scan_io, cursor_io);
    if (length < 0) break;
    ++count;
    cursor_io += static_cast<PLXUInt32>(length);
    scan_io.AddWork(1);
    if (length == 0) {
      // It would match nothing here again and again, as often as anyone likes.
      count = std::max<PLXUInt32>(count, myMinimum);
      break;
    }
  }
  if (remembers) scan_io.Remember(myRepetitionIndex, mark, cursor_io);
  return count >= myMinimum;
}

std::int64_t PLXRegExpPattern::MatchOnce(PLXRegExpScan& scan_io, PLXUInt32 position_i) const {
  if (Has(kOneCharacter)) {
    return position_i < scan_io.GetLength() && mySet.Holds(scan_io[position_i]) ? 1 : -1;
  }
  PLXUInt32 const subPatternCount = mySubPatterns.GetElementCount();
  if (Has(kAlternation)) {
    PLX_ASSERT_STATE(subPatternCount == 2);
    std::int64_t const length = mySubPatterns[0]->CheckPattern(scan_io, position_i);
    return length >= 0 ? length : mySubPatterns[1]->CheckPattern(scan_io, position_i);
  }
  PLXUInt32 cursor = position_i;
  for (PLXUInt32 index = 0; index < subPatternCount; ++index) {
    PLXRegExpPattern const& node = *mySubPatterns[index];
    if (node.IsBareSet()) {
      if (!node.MatchRepeatedly(scan_io, cursor)) return -1;
      continue;
    }
    std::int64_t const length = node.CheckPattern(scan_io, cursor);
    if (length < 0) return -1;
    cursor += static_cast<PLXUInt32>(length);
  }
  return cursor - position_i;
}

// MatchRepeatedly in few instructions, for what most nodes are.
bool PLXRegExpPattern::MatchCharacters(PLXRegExpScan& scan_io, PLXUInt32& cursor_io) const {
  PLXUInt32 const start = cursor_io;
  PLXUInt32 const rest = scan_io.GetLength() - start;
  PLXUInt32 const end = start + (IsUnbounded() ? rest : std::min<PLXUInt32>(rest, myMaximum));
  while (cursor_io < end && mySet.Holds(scan_io[cursor_io])) ++cursor_io;
  scan_io.AddWork(cursor_io - start);
  return cursor_io - start >= myMinimum;
}

// ---- PLXRegExpScan ----

PLXRegExpScan::PLXRegExpScan(PLXString const& text_i, PLXUInt32 repetitionCount_i, PLXRegExpMatch& match_io)
    : myText(reinterpret_cast<PLXUInt8 const*>(text_i.GetCStringAccess())),
      myLength(text_i.GetLength()),
      myMatch(match_io),
      myWorkToRemember(16 * (std::uint64_t{text_i.GetLength()} + 64)),
      myRepetitionCount(repetitionCount_i) {}

void PLXRegExpScan::SetGroup(PLXUInt32 number_i, PLXUInt32 start_i, PLXUInt32 length_i) {
  myMatch.myRanges[number_i] = {start_i, length_i};
  myLastGroup = number_i;
}

void PLXRegExpScan::ForgetGroupsAbove(PLXUInt32 number_i) {
  for (; myLastGroup > number_i; --myLastGroup) myMatch.myRanges[myLastGroup] = {};
}

bool PLXRegExpScan::Recall(PLXUInt32 repetition_i, PLXUInt32& cursor_io) {
  if (myEnds.empty()) myEnds.resize(myRepetitionCount);
  std::vector<PLXUInt32>& ends = myEnds[repetition_i];
  if (ends.empty()) ends.assign(std::size_t{myLength} + 1, kUnknownEnd);
  if (ends[cursor_io] == kUnknownEnd) {
    myPlaces.push_back(cursor_io);
    return false;
  }
  cursor_io = ends[cursor_io];
  return true;
}

void PLXRegExpScan::Remember(PLXUInt32 repetition_i, std::size_t mark_i, PLXUInt32 end_i) {
  for (std::size_t index = mark_i; index < myPlaces.size(); ++index)
    myEnds[repetition_i][myPlaces[index]] = end_i;
  myPlaces.resize(mark_i);
}
