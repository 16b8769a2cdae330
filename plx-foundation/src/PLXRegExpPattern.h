#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "PLXRegExp.h"
#include "PLXRegExpStart.h"
#include "TPLXArray.h"

// An expression on its way to the tree is a text of symbols: its bytes, and beside them what no byte can say.
namespace PLXRegExpSymbol {
inline constexpr char16_t kClassMark = 0x101;  // round "[...]" with its quantifier
inline constexpr char16_t kGroupMark = 0x102;  // round "(...)" with the "^" before it and its quantifier
inline constexpr char16_t kNothing = 0x103;    // all that is left of a set of classes that are not supported
inline constexpr char16_t kLiteral = 0x200;    // with a byte: that byte without its special meaning
}  // namespace PLXRegExpSymbol

// One run over one text: what is known of it, and of the match that is being tried.
//
// What an unbounded repetition takes depends on nothing but where it stands, and two that meet go on as one.
// Once the run has cost more than a few times the text, it remembers where each repetition ended from each
// place: then none is walked twice, and the work stays linear. Most runs never come to that.
class PLXRegExpScan {
 public:
  // Both must outlive the scan; the match has its groups already.
  PLXRegExpScan(PLXString const& text_i, PLXUInt32 repetitionCount_i, PLXRegExpMatch& match_io);

  PLXUInt32 GetLength() const noexcept { return myLength; }
  PLXUInt8 operator[](PLXUInt32 position_i) const noexcept { return myText[position_i]; }
  bool IsLineStart(PLXUInt32 position_i) const noexcept {
    return position_i == 0 || IsLineEnd(myText[position_i - 1]);
  }
  bool IsAtLineEnd(PLXUInt32 position_i) const noexcept {
    return position_i == myLength || IsLineEnd(myText[position_i]);
  }

  // Groups are set in the order of their numbers, so forgetting those above a number takes back a failed
  // attempt.
  PLXUInt32 GetLastGroup() const noexcept { return myLastGroup; }
  void SetGroup(PLXUInt32 number_i, PLXUInt32 start_i, PLXUInt32 length_i);
  void ForgetGroupsAbove(PLXUInt32 number_i);

  void AddWork(PLXUInt32 steps_i) noexcept { myWork += steps_i; }
  bool IsRemembering() const noexcept { return myWork > myWorkToRemember; }
  // True, with the place where the repetition ends from here, when that is known. Otherwise the place is
  // noted.
  bool Recall(PLXUInt32 repetition_i, PLXUInt32& cursor_io);
  // Ends a walk: all places noted since `mark_i` lead to this one.
  std::size_t GetMark() const noexcept { return myPlaces.size(); }
  void Remember(PLXUInt32 repetition_i, std::size_t mark_i, PLXUInt32 end_i);

 private:
  static bool IsLineEnd(PLXUInt8 character_i) noexcept { return character_i == 13 || character_i == 10; }

  PLXUInt8 const* const myText;
  PLXUInt32 const myLength;
  PLXRegExpMatch& myMatch;
  PLXUInt32 myLastGroup = 0;
  std::uint64_t myWork = 0;
  std::uint64_t const myWorkToRemember;
  PLXUInt32 const myRepetitionCount;
  std::vector<std::vector<PLXUInt32>> myEnds;  // of each repetition, by place; made when they are needed
  std::vector<PLXUInt32> myPlaces;             // of the walks under way
};

// A node of the tree: one byte out of a set, a sequence of nodes, or two alternatives; repeated, anchored and
// captured as its flags say. Constant once it is built.
class PLXRegExpPattern : public PLXObject {
 public:
  // What a whole expression numbers.
  struct Numbering {
    PLXUInt32 groupCount = 0;
    PLXUInt32 repetitionCount = 0;  // unbounded ones
  };
  static constexpr PLXSInt32 kInvalidCount = -1;

  PLXRegExpPattern() : mySubPatterns([](PLXRegExpPattern*& node_io) { delete node_io; }) {}
  PLXRegExpPattern(PLXRegExpPattern const&) = delete;
  PLXRegExpPattern& operator=(PLXRegExpPattern const&) = delete;
  ~PLXRegExpPattern() = default;

  // Makes a new node the whole of a marked text: anchors, alternatives, sequence. 0, or kInvalidCount.
  PLXSInt32 SetPattern(std::u16string_view text_i, Numbering& numbering_io);

  // Of the root, with everything parsed.
  PLXRegExpStart FindStart() const;

  // The length matched at a position, or -1.
  std::int64_t CheckPattern(PLXRegExpScan& scan_io, PLXUInt32 position_i) const;

 private:
  enum Flags : PLXUInt16 {
    kAnchoredAtStart = 1,
    kAnchoredAtEnd = 2,
    kOneOrMore = 4,
    kZeroOrMore = 8,
    kOptional = 16,
    kCounted = 32,
    kAlternation = 256,
    kCapturing = 512,
    kOneCharacter = 1024,  // a byte out of the set; without it the sub-patterns count
  };
  static constexpr unsigned kQuantified = kOneOrMore | kZeroOrMore | kOptional | kCounted;

  bool Has(unsigned flags_i) const noexcept { return (myFlags & flags_i) != 0; }
  void Set(unsigned flags_i) noexcept { myFlags = static_cast<PLXUInt16>(myFlags | flags_i); }
  bool IsUnbounded() const noexcept { return myMaximum == 0; }
  // Most nodes: nothing but a set and how often.
  bool IsBareSet() const noexcept {
    return (myFlags & (kOneCharacter | kAnchoredAtStart | kAnchoredAtEnd | kCapturing)) == kOneCharacter;
  }

  bool IsBareSequence() const noexcept {
    return (myFlags & (kQuantified | kOneCharacter | kAnchoredAtStart | kAnchoredAtEnd | kCapturing)) == 0;
  }

  PLXSInt32 SetAlternatives(std::span<std::u16string_view const> parts_i, Numbering& numbering_io);
  PLXSInt32 ParsePattern(std::u16string_view text_i, Numbering& numbering_io);
  // Take what makes one node from the front of a text that is not empty.
  PLXSInt32 TakeNode(std::u16string_view& text_io, Numbering& numbering_io);
  PLXSInt32 SetGroup(std::u16string_view piece_i, Numbering& numbering_io);
  PLXSInt32 SetClass(std::u16string_view piece_i, Numbering& numbering_io);
  PLXSInt32 ParseExtension(std::u16string_view& text_io, Numbering& numbering_io);
  PLXSInt32 ParseCount(std::u16string_view& text_io);
  PLXSInt32 ParsePieceEnd(std::u16string_view rest_i, Numbering& numbering_io);
  PLXRegExpPattern& AddOnlySubPattern();

  void AddCharacters(unsigned first_i, unsigned last_i) noexcept;
  // Adds the bytes that may begin what the node matches; true when that may be nothing.
  bool AddFirstBytes(PLXByteSet& set_io) const;
  // Goes on with a text that is there at a fixed distance from a match's beginning. False where the distance
  // or the text ends to be fixed; then the text stays as it is.
  bool AddLiteral(PLXUInt32& distance_io, PLXRegExpStart& start_io) const;
  bool AcceptsOneByte(char& byte_o) const noexcept;
  std::int64_t MatchOnce(PLXRegExpScan& scan_io, PLXUInt32 position_i) const;
  // True, with the cursor behind what was taken, when there were enough.
  bool MatchRepeatedly(PLXRegExpScan& scan_io, PLXUInt32& cursor_io) const;
  bool MatchCharacters(PLXRegExpScan& scan_io, PLXUInt32& cursor_io) const;

  PLXUInt16 myFlags = 0;
  PLXUInt8 myMinimum = 1;
  PLXUInt8 myMaximum = 1;           // 0: no limit
  PLXUInt32 myGroupNumber = 0;      // from 1
  PLXUInt32 myRepetitionIndex = 0;  // when unbounded
  PLXByteSet mySet;
  TPLXArray<PLXRegExpPattern*> mySubPatterns;
};
