#pragma once

#include <array>

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

// The index of the first byte that differs, `length_i` when none does.
PLXUInt32 PLXFindDifference(char const* left_i, char const* right_i, PLXUInt32 length_i,
                            bool ignoreCase_i) noexcept;
bool PLXEqualBytes(char const* left_i, char const* right_i, PLXUInt32 length_i, bool ignoreCase_i) noexcept;
