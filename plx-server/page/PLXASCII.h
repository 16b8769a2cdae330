#pragma once

#include <algorithm>
#include <string_view>

// Letters of ASCII only, whatever the locale: names of tags, headers and variables know no others.

constexpr char LowerASCII(char character_i) {
  return character_i >= 'A' && character_i <= 'Z' ? static_cast<char>(character_i - 'A' + 'a') : character_i;
}

inline bool EqualIgnoringCase(std::string_view left_i, std::string_view right_i) {
  return left_i.size() == right_i.size() &&
         std::equal(left_i.begin(), left_i.end(), right_i.begin(),
                    [](char a, char b) { return LowerASCII(a) == LowerASCII(b); });
}

inline bool BeginsIgnoringCase(std::string_view text_i, std::string_view begin_i) {
  return text_i.size() >= begin_i.size() && EqualIgnoringCase(text_i.substr(0, begin_i.size()), begin_i);
}

// Orders the keys of a map by name, so that a look-up needs no lowered copy.
struct PLXLessIgnoringCase {
  using is_transparent = void;
  bool operator()(std::string_view left_i, std::string_view right_i) const {
    return std::lexicographical_compare(left_i.begin(), left_i.end(), right_i.begin(), right_i.end(),
                                        [](char a, char b) { return LowerASCII(a) < LowerASCII(b); });
  }
};
