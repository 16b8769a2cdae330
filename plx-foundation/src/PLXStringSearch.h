#pragma once

#include <array>
#include <cstring>
#include <vector>

#include "PLXTypes.h"

// Searching and comparing of raw bytes for PLXString. Ignoring case, both sides pass through the uppercase
// table.

// How bytes look in the other case: the ASCII letters and 29 pairs among 0x80 to 0xFF; all others are
// themselves.
extern std::array<unsigned char, 256> const ourUppercaseCharacterMap;
extern std::array<unsigned char, 256> const ourLowercaseCharacterMap;

// The first (last) place of the pattern in the text, or null. Requires: 0 < patternLength_i <= length_i.
char const* PLXFindForward(char const* text_i, PLXUInt32 length_i, char const* pattern_i,
                           PLXUInt32 patternLength_i, bool ignoreCase_i) noexcept;
char const* PLXFindBackward(char const* text_i, PLXUInt32 length_i, char const* pattern_i,
                            PLXUInt32 patternLength_i, bool ignoreCase_i) noexcept;

// The first place of the pattern with its letters as they are, or null; here, so that a search of few bytes
// costs no more than the platform's. Most searches end at one of the first places that begin like the
// pattern, and memchr finds those fastest. A text with many such places is memmem's, which also bounds what a
// hostile pattern can cost.
inline char const* PLXFindExact(char const* text_i, PLXUInt32 length_i, char const* pattern_i,
                                PLXUInt32 patternLength_i) noexcept {
  constexpr int kPlacesTried = 16;
  char const* const textEnd = text_i + length_i;
  char const* const placesEnd = textEnd - (patternLength_i - 1);
  char const* place = text_i;
  for (int tried = 0; tried < kPlacesTried; ++tried) {
    place =
        static_cast<char const*>(std::memchr(place, *pattern_i, static_cast<std::size_t>(placesEnd - place)));
    if (place == nullptr || patternLength_i == 1) return place;
    if (place[1] == pattern_i[1] && std::memcmp(place + 1, pattern_i + 1, patternLength_i - 1) == 0)
      return place;
    if (++place == placesEnd) return nullptr;
  }
  return static_cast<char const*>(
      memmem(place, static_cast<std::size_t>(textEnd - place), pattern_i, patternLength_i));
}

// The index of the first byte that differs, `length_i` when none does.
PLXUInt32 PLXFindDifference(char const* left_i, char const* right_i, PLXUInt32 length_i,
                            bool ignoreCase_i) noexcept;
bool PLXEqualBytes(char const* left_i, char const* right_i, PLXUInt32 length_i, bool ignoreCase_i) noexcept;

// All places of a pattern in a text, from the first on, none overlapping the one before. They are found
// twice, to be counted and to be visited, but for the first million, which is remembered.
class PLXPlaces {
 public:
  // Text and pattern outlive the object. An empty pattern is nowhere.
  PLXPlaces(char const* text_i, PLXUInt32 length_i, char const* pattern_i, PLXUInt32 patternLength_i,
            bool ignoreCase_i);

  PLXUInt32 GetCount() const noexcept { return myCount; }
  // Calls with the offset of each.
  template <typename Visitor>
  void Visit(Visitor visitor_i) const {
    for (PLXUInt32 const place : myPlaces) visitor_i(place);
    if (myCount == myPlaces.size()) return;
    for (PLXUInt32 place = FindNext(myPlaces.back() + myPatternLength); place != kNowhere;
         place = FindNext(place + myPatternLength)) {
      visitor_i(place);
    }
  }

 private:
  static constexpr PLXUInt32 kNowhere = 0xFFFFFFFF;
  static constexpr PLXUInt32 kRemembered = 1 << 20;

  PLXUInt32 FindNext(PLXUInt32 start_i) const noexcept {
    if (myLength - start_i < myPatternLength) return kNowhere;
    char const* const found =
        PLXFindForward(myText + start_i, myLength - start_i, myPattern, myPatternLength, myIgnoresCase);
    return found == nullptr ? kNowhere : static_cast<PLXUInt32>(found - myText);
  }

  char const* const myText;
  PLXUInt32 const myLength;
  char const* const myPattern;
  PLXUInt32 const myPatternLength;
  bool const myIgnoresCase;
  PLXUInt32 myCount = 0;
  std::vector<PLXUInt32> myPlaces;
};
