#pragma once

#include <algorithm>
#include <optional>
#include <string>

#include "PLXString.h"

// Slow, simple twins of what PLXString finds, compares and replaces, for comparison on random input.

namespace twin {

inline std::string Folded(std::string text_i) {
  std::transform(text_i.begin(), text_i.end(), text_i.begin(), [](char character_i) {
    return static_cast<char>(PLXString::Uppercase(static_cast<unsigned char>(character_i)));
  });
  return text_i;
}

// Every place is tried.
inline std::optional<PLXUInt32> Find(std::string text_i, std::string pattern_i, PLXUInt32 start_i,
                                     PLXUInt32 count_i, unsigned options_i) {
  if (text_i.empty() || pattern_i.empty()) return std::nullopt;
  if ((options_i & kPLXOption_IgnoreCase) != 0) {
    text_i = Folded(text_i);
    pattern_i = Folded(pattern_i);
  }
  long const length = static_cast<long>(text_i.size());
  long const size = static_cast<long>(pattern_i.size());
  if ((options_i & kPLXOption_Backward) == 0) {
    long const end = std::min<long>(length, static_cast<long>(start_i) + count_i);
    for (long at = start_i; at + size <= end; ++at) {
      if (text_i.compare(static_cast<std::size_t>(at), pattern_i.size(), pattern_i) == 0) {
        return static_cast<PLXUInt32>(at);
      }
    }
    return std::nullopt;
  }
  long const start = std::min<long>(start_i, length - 1);
  long const lowest = start + 1 - std::min<long>(count_i, start + 1);
  for (long at = start - size + 1; at >= lowest; --at) {
    if (text_i.compare(static_cast<std::size_t>(at), pattern_i.size(), pattern_i) == 0) {
      return static_cast<PLXUInt32>(at);
    }
  }
  return std::nullopt;
}

inline PLXUInt32 Compare(std::string left_i, std::string right_i, unsigned options_i) {
  if ((options_i & kPLXOption_IgnoreCase) != 0) {
    left_i = Folded(left_i);
    right_i = Folded(right_i);
  }
  bool const isLess = std::lexicographical_compare(
      left_i.begin(), left_i.end(), right_i.begin(), right_i.end(),
      [](char left, char right) { return static_cast<signed char>(left) < static_cast<signed char>(right); });
  return left_i == right_i ? kPLXCompare_Equal : isLess ? kPLXCompare_Less : kPLXCompare_Greater;
}

// Forward, without looking at what was inserted. Returns how many.
inline PLXUInt32 ReplaceAll(std::string& text_io, std::string const& pattern_i,
                            std::string const& replacement_i, unsigned options_i) {
  PLXUInt32 count = 0;
  for (PLXUInt32 start = 0;; ++count) {
    auto const at = Find(text_io, pattern_i, start, kPLXWholeLength, options_i & kPLXOption_IgnoreCase);
    if (!at) return count;
    text_io.replace(*at, pattern_i.size(), replacement_i);
    start = *at + static_cast<PLXUInt32>(replacement_i.size());
  }
}

}  // namespace twin
