#pragma once

#include <cstdint>
#include <string>

#include "PLXTypes.h"

// A set of bytes.
class PLXByteSet {
 public:
  bool Holds(unsigned byte_i) const noexcept { return (myWords[byte_i / 64] >> byte_i % 64 & 1) != 0; }
  void Add(unsigned byte_i) noexcept { myWords[byte_i / 64] |= std::uint64_t{1} << byte_i % 64; }
  void Add(PLXByteSet const& other_i) noexcept {
    for (unsigned word = 0; word < 4; ++word) myWords[word] |= other_i.myWords[word];
  }
  void Negate() noexcept {
    for (std::uint64_t& word : myWords) word = ~word;
  }
  void AddAll() noexcept {
    for (std::uint64_t& word : myWords) word = ~std::uint64_t{0};
  }

 private:
  std::uint64_t myWords[4] = {};
};

// What is known, before any match is tried, of the places where one can begin; most of a long text is passed
// over by it. Constant once it is worked out from the tree (PLXRegExpPattern::FindStart).
struct PLXRegExpStart {
  static constexpr PLXUInt32 kNowhere = 0xFFFFFFFF;

  // The first place from `position_i` on that may be one, or kNowhere. It is inside the text. `next_o` is
  // where to go on when it is none.
  PLXUInt32 FindNext(char const* text_i, PLXUInt32 length_i, PLXUInt32 position_i,
                     PLXUInt32& next_o) const noexcept;

  bool isAtLineStart = false;
  // Every match holds this text, so many bytes behind its beginning; empty when nothing is known.
  std::string literal;
  PLXUInt32 literalOffset = 0;
  // The bytes that a match begins with. All of them when it may be empty.
  PLXByteSet first;
  // The expression begins with an unbounded repetition of one set, which is `first`. It takes all it gets,
  // so that places within the same run of these bytes fail or match as one.
  bool beginsWithRun = false;
  PLXByteSet behindRun;   // the bytes that may follow the run
  bool mayEndRun = true;  // whether the text may end there
};
