#include "PLXStringSearch.h"

#include <bit>
#include <cstdint>
#include <cstring>

// An exact search forward is the platform's memchr and memmem: vectorised, and linear whatever the pattern.
// The others slide a window by Horspool's rule: the byte at the window's far end tells how far it may move,
// so on ordinary text most bytes are never looked at. Nothing is allocated.

namespace {

struct CasePair {
  unsigned char lower;
  unsigned char upper;
};

// The letter pairs beyond ASCII.
constexpr CasePair kCasePairs[] = {{0x87, 0xE7}, {0x88, 0xCB}, {0x89, 0xE5}, {0x8A, 0x80}, {0x8B, 0xCC},
                                   {0x8C, 0x81}, {0x8D, 0x82}, {0x8E, 0x83}, {0x8F, 0xE9}, {0x90, 0xE6},
                                   {0x91, 0xE8}, {0x92, 0xEA}, {0x93, 0xED}, {0x94, 0xEB}, {0x95, 0xEC},
                                   {0x96, 0x84}, {0x97, 0xEE}, {0x98, 0xF1}, {0x99, 0xEF}, {0x9A, 0x85},
                                   {0x9B, 0xCD}, {0x9C, 0xF2}, {0x9D, 0xF4}, {0x9E, 0xF3}, {0x9F, 0x86},
                                   {0xBE, 0xAE}, {0xBF, 0xAF}, {0xCF, 0xCE}, {0xD8, 0xD9}};

consteval std::array<unsigned char, 256> MakeCharacterMap(bool upper_i) {
  std::array<unsigned char, 256> map{};
  for (unsigned index = 0; index < 256; ++index) map[index] = static_cast<unsigned char>(index);
  for (unsigned char letter = 0; letter < 26; ++letter) {
    auto const lower = static_cast<unsigned char>('a' + letter);
    auto const upper = static_cast<unsigned char>('A' + letter);
    map[upper_i ? lower : upper] = upper_i ? upper : lower;
  }
  for (CasePair const& pair : kCasePairs) {
    map[upper_i ? pair.lower : pair.upper] = upper_i ? pair.upper : pair.lower;
  }
  return map;
}

}  // namespace

constexpr std::array<unsigned char, 256> ourUppercaseCharacterMap = MakeCharacterMap(true);
constexpr std::array<unsigned char, 256> ourLowercaseCharacterMap = MakeCharacterMap(false);

namespace {

template <bool kIgnoreCase>
unsigned char Fold(char character_i) noexcept {
  auto const character = static_cast<unsigned char>(character_i);
  return kIgnoreCase ? ourUppercaseCharacterMap[character] : character;
}

template <bool kIgnoreCase>
bool EqualBytes(char const* left_i, char const* right_i, PLXUInt32 length_i) noexcept {
  if constexpr (!kIgnoreCase) {
    return std::memcmp(left_i, right_i, length_i) == 0;
  } else {
    for (PLXUInt32 index = 0; index < length_i; ++index) {
      if (Fold<true>(left_i[index]) != Fold<true>(right_i[index])) return false;
    }
    return true;
  }
}

// Sixteen bytes at once, as the compiler's vectors.
typedef PLXUInt8 Bytes __attribute__((vector_size(16)));

Bytes LoadBytes(char const* text_i) noexcept {
  Bytes bytes;
  std::memcpy(&bytes, text_i, sizeof bytes);
  return bytes;
}

// Both forms of a letter.
struct Letter {
  PLXUInt8 upper;
  PLXUInt8 lower;
  explicit Letter(char character_i) noexcept
      : upper(ourUppercaseCharacterMap[static_cast<PLXUInt8>(character_i)]),
        lower(ourLowercaseCharacterMap[upper]) {}
  Bytes FindIn(Bytes bytes_i) const noexcept { return Bytes((bytes_i == upper) | (bytes_i == lower)); }
};

// Looks at sixteen places at once for the pattern's first and last letter, and compares where both are there.
// Null with the place at the end: it is not there. Null with a place before: so many places had no more than
// these two letters that the rest is left to the sliding window.
char const* FindLetters(char const*& place_io, char const* placesEnd_i, char const* pattern_i,
                        PLXUInt32 patternLength_i) noexcept {
  Letter const first(pattern_i[0]);
  Letter const last(pattern_i[patternLength_i - 1]);
  std::size_t wrongPlaces = 0;
  char const* const begin = place_io;
  for (; placesEnd_i - place_io >= 16; place_io += 16) {
    Bytes const hits =
        first.FindIn(LoadBytes(place_io)) & last.FindIn(LoadBytes(place_io + (patternLength_i - 1)));
    std::uint64_t halves[2];
    std::memcpy(halves, &hits, sizeof halves);
    if ((halves[0] | halves[1]) == 0) continue;
    PLXUInt8 isHit[16];
    std::memcpy(isHit, &hits, sizeof isHit);
    for (std::size_t index = 0; index < 16; ++index) {
      if (isHit[index] == 0) continue;
      if (EqualBytes<true>(place_io + index + 1, pattern_i + 1, patternLength_i - 1)) return place_io + index;
      ++wrongPlaces;
    }
    if (wrongPlaces > 64 + static_cast<std::size_t>(place_io - begin) / 16) return nullptr;
  }
  for (; place_io < placesEnd_i; ++place_io) {
    if (EqualBytes<true>(place_io, pattern_i, patternLength_i)) return place_io;
  }
  return nullptr;
}

template <bool kIgnoreCase>
char const* SlideForward(char const* text_i, PLXUInt32 length_i, char const* pattern_i,
                         PLXUInt32 patternLength_i) noexcept {
  PLXUInt32 shift[256];
  for (PLXUInt32& entry : shift) entry = patternLength_i;
  PLXUInt32 const last = patternLength_i - 1;
  for (PLXUInt32 index = 0; index <= last; ++index) shift[Fold<kIgnoreCase>(pattern_i[index])] = last - index;
  char const* const end = text_i + (length_i - last);
  for (char const* span = text_i; span < end;) {
    PLXUInt32 const distance = shift[Fold<kIgnoreCase>(span[last])];
    if (distance != 0) {
      if (distance >= static_cast<std::size_t>(end - span)) return nullptr;
      span += distance;
    } else if (EqualBytes<kIgnoreCase>(span, pattern_i, last)) {
      return span;
    } else {
      ++span;
    }
  }
  return nullptr;
}

template <bool kIgnoreCase>
char const* SlideBackward(char const* text_i, PLXUInt32 length_i, char const* pattern_i,
                          PLXUInt32 patternLength_i) noexcept {
  PLXUInt32 shift[256];
  for (PLXUInt32& entry : shift) entry = patternLength_i;
  for (PLXUInt32 index = patternLength_i; index-- > 0;) shift[Fold<kIgnoreCase>(pattern_i[index])] = index;
  std::size_t at = length_i - patternLength_i;
  while (true) {
    PLXUInt32 distance = shift[Fold<kIgnoreCase>(text_i[at])];
    if (distance == 0) {
      if (EqualBytes<kIgnoreCase>(text_i + at + 1, pattern_i + 1, patternLength_i - 1)) return text_i + at;
      distance = 1;
    }
    if (distance > at) return nullptr;
    at -= distance;
  }
}

}  // namespace

char const* PLXFindForward(char const* text_i, PLXUInt32 length_i, char const* pattern_i,
                           PLXUInt32 patternLength_i, bool ignoreCase_i) noexcept {
  if (ignoreCase_i) {
    char const* const textEnd = text_i + length_i;
    char const* const placesEnd = textEnd - (patternLength_i - 1);
    char const* const match = FindLetters(text_i, placesEnd, pattern_i, patternLength_i);
    if (match != nullptr || text_i == placesEnd) return match;
    return SlideForward<true>(text_i, static_cast<PLXUInt32>(textEnd - text_i), pattern_i, patternLength_i);
  }
  return PLXFindExact(text_i, length_i, pattern_i, patternLength_i);
}

char const* PLXFindBackward(char const* text_i, PLXUInt32 length_i, char const* pattern_i,
                            PLXUInt32 patternLength_i, bool ignoreCase_i) noexcept {
  if (ignoreCase_i) return SlideBackward<true>(text_i, length_i, pattern_i, patternLength_i);
  if (patternLength_i == 1) return static_cast<char const*>(memrchr(text_i, *pattern_i, length_i));
  return SlideBackward<false>(text_i, length_i, pattern_i, patternLength_i);
}

PLXUInt32 PLXFindDifference(char const* left_i, char const* right_i, PLXUInt32 length_i,
                            bool ignoreCase_i) noexcept {
  PLXUInt32 index = 0;
  if (ignoreCase_i) {
    while (index < length_i && Fold<true>(left_i[index]) == Fold<true>(right_i[index])) ++index;
    return index;
  }
  // Long equal stretches are passed by the platform.
  for (PLXUInt32 const block : {1024U, 256U}) {
    while (length_i - index >= block && std::memcmp(left_i + index, right_i + index, block) == 0)
      index += block;
  }
  auto const difference = [&](PLXUInt32 offset_i) {
    std::uint64_t left;
    std::uint64_t right;
    std::memcpy(&left, left_i + offset_i, sizeof left);
    std::memcpy(&right, right_i + offset_i, sizeof right);
    return left ^ right;
  };
  while (length_i - index >= 32 &&
         (difference(index) | difference(index + 8) | difference(index + 16) | difference(index + 24)) == 0) {
    index += 32;
  }
  for (; length_i - index >= 8; index += 8) {
    std::uint64_t const bits = difference(index);
    if (bits == 0) continue;
    if constexpr (std::endian::native == std::endian::little) {
      return index + static_cast<PLXUInt32>(std::countr_zero(bits)) / 8;
    }
    break;
  }
  while (index < length_i && left_i[index] == right_i[index]) ++index;
  return index;
}

bool PLXEqualBytes(char const* left_i, char const* right_i, PLXUInt32 length_i, bool ignoreCase_i) noexcept {
  return ignoreCase_i ? EqualBytes<true>(left_i, right_i, length_i)
                      : EqualBytes<false>(left_i, right_i, length_i);
}

PLXPlaces::PLXPlaces(char const* text_i, PLXUInt32 length_i, char const* pattern_i, PLXUInt32 patternLength_i,
                     bool ignoreCase_i)
    : myText(text_i),
      myLength(length_i),
      myPattern(pattern_i),
      myPatternLength(patternLength_i),
      myIgnoresCase(ignoreCase_i) {
  if (patternLength_i == 0) return;
  for (PLXUInt32 place = FindNext(0); place != kNowhere; place = FindNext(place + myPatternLength)) {
    if (myCount < kRemembered) myPlaces.push_back(place);
    ++myCount;
  }
}
