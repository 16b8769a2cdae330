#pragma once

#include <memory>
#include <vector>

#include "PLXObject.h"
#include "PLXString.h"

class PLXRegExpPattern;  // a node of the compiled expression; src/PLXRegExpPattern.h
struct PLXRegExpStart;   // where matches can begin; src/PLXRegExpStart.h

// Where an expression was found: offsets and lengths in bytes of the text.
class PLXRegExpMatch : public PLXObject {
 public:
  // The whole match; 0 and 0 when nothing was found.
  void GetMatch(PLXUInt32& start_o, PLXUInt32& length_o) const noexcept;
  // The parenthesised groups of the expression, whether they took part in the match or not.
  PLXUInt32 GetGroupCount() const noexcept;
  // What a group matched; index 0 is the first one. A repeated group holds all of its repetitions, and one
  // that took no part in the match is 0 and 0. False, with the outputs unchanged, when there is no such
  // group.
  bool GetGroup(PLXUInt32 index_i, PLXUInt32& start_o, PLXUInt32& length_o) const noexcept;

 private:
  friend class PLXRegExp;
  friend class PLXRegExpScan;
  struct Range {
    PLXUInt32 start = 0;
    PLXUInt32 length = 0;
  };
  void Clear(PLXUInt32 groupCount_i) { myRanges.assign(groupCount_i + std::size_t{1}, Range()); }

  std::vector<Range> myRanges = std::vector<Range>(1);  // the whole match, then the groups
};

// A regular expression over bytes that matches greedily and never goes back: what a repetition has taken it
// keeps, so "a*a" never matches "aaa". Of alternatives the first that matches is taken for good.
//
//   .  any byte but carriage return and line feed     [a-z_] [^a-z]  one byte in or outside the set
//   * + ? {m} {m,} {m,n}  repetition, at most 255     (...)          a group; groups do not nest
//   ^ first and $ last: at a line's start and end     a|b|c          alternatives
//   \d \D \c \C \w \W \s \S  digit, letter, letter, digit or underscore, blank (no line end), and the others
//   \f \n \r \t \v  the control characters            \ before anything else: that byte itself, in sets too
//
// [:alpha:], [:alnum:], [:digit:], [:lower:] and [:upper:] stand for whole sets. They and the shorthands are
// replaced before anything else is read, so they do not combine inside brackets. The other named classes of
// POSIX are removed. docs/decisions/0021-regular-expressions.md tells the edges.
//
// Compiling costs time linear in the expression. Matching costs time linear in the text for any one
// expression; where repetitions would walk the same stretch again and again it takes up to 4 bytes per
// repetition and byte of text.
//
// Execute keeps its match in the object, which therefore belongs to one thread. The form that is const gives
// the match to its caller and changes nothing here: a compiled expression may serve any number of threads
// with it at once.
class PLXRegExp : public PLXObject {
 public:
  PLXRegExp();  // never matches
  explicit PLXRegExp(PLXString const& expression_i);
  PLXRegExp(PLXRegExp const&) = delete;
  PLXRegExp& operator=(PLXRegExp const&) = delete;
  ~PLXRegExp();

  // Compiles an expression that is known to be right; one that is not never matches.
  void SetExpression(PLXString const& expression_i) { Compile(expression_i); }
  // Forgets the last match. 0 on success; otherwise the expression never matches, and the result is positive,
  // the 1-based position of what is not closed or of a group in a group (in the expression with its
  // shorthands replaced, an escaped byte counting once and each group or set one more at either end), or -1
  // for braces that hold no count.
  PLXSInt32 Compile(PLXString const& expression_i);

  // Looks for the first match that begins at the offset or behind it. False, with the match emptied, when
  // there is none; always so when the offset is not inside the text, and thus for the empty text.
  bool Execute(PLXString const& text_i, PLXUInt32 const& startOffset_i) {
    return Execute(text_i, startOffset_i, myMatch);
  }
  bool Execute(PLXString const& text_i, PLXUInt32 const& startOffset_i, PLXRegExpMatch& match_o) const;

  // The match of the last Execute, as PLXRegExpMatch tells it.
  void GetMatch(PLXUInt32& start_o, PLXUInt32& length_o) const noexcept {
    myMatch.GetMatch(start_o, length_o);
  }
  PLXUInt32 GetGroupCount() const noexcept { return myMatch.GetGroupCount(); }
  bool GetGroup(PLXUInt32 index_i, PLXUInt32& start_o, PLXUInt32& length_o) const noexcept {
    return myMatch.GetGroup(index_i, start_o, length_o);
  }

 private:
  std::unique_ptr<PLXRegExpPattern const> myRoot;  // null while no expression is compiled
  std::unique_ptr<PLXRegExpStart const> myStart;
  PLXUInt32 myRepetitionCount = 0;
  PLXRegExpMatch myMatch;
};
