#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

// What the fuzz targets share: a property that must hold, and the input as a program of steps.

// Where the property stands is told on the standard error stream.
inline void Require(bool holds_i, char const* file_i = __builtin_FILE(), int line_i = __builtin_LINE()) {
  if (holds_i) return;
  std::fprintf(stderr, "%s:%d: does not hold\n", file_i, line_i);
  std::abort();
}

// Cuts the first line off, without its line feed.
inline std::string_view TakeLine(std::string_view& input_io) {
  std::string_view const line = input_io.substr(0, input_io.find('\n'));
  input_io.remove_prefix(std::min(line.size() + 1, input_io.size()));
  return line;
}

// Takes a character as a number, "0" as 0; 0 where there is none.
inline unsigned TakeNumber(std::string_view& line_io) {
  if (line_io.empty()) return 0;
  unsigned const number = static_cast<unsigned char>(line_io.front() - '0');
  line_io.remove_prefix(1);
  return number;
}

// Calls with every beginning of the text, the empty one first and the text itself last. False, and nothing is
// called, when it is too long for that.
template <typename Function>
bool ForEachCut(std::string_view text_i, Function const& function_i) {
#ifdef FUZZING_BUILD_MODE_UNSAFE_FOR_PRODUCTION
  constexpr std::size_t kLongest = 100;  // or all the time would go there
#else
  constexpr std::size_t kLongest = 2000;
#endif
  if (text_i.size() > kLongest) return false;
  for (std::size_t size = 0; size <= text_i.size(); ++size) function_i(text_i.substr(0, size));
  return true;
}

// Calls with pieces of the text whose lengths change, one by one from `seed_i` on, and are 1 for seed 0.
template <typename Function>
void InPieces(std::string_view text_i, unsigned seed_i, Function const& function_i) {
  for (unsigned state = seed_i; !text_i.empty(); state = state * 1103515245U + (seed_i > 0 ? 12345U : 0U)) {
    std::string_view const piece = text_i.substr(0, 1 + (state >> 16) % 23);
    function_i(piece);
    text_i.remove_prefix(piece.size());
  }
}
