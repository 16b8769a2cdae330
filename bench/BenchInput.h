#pragma once

#include <random>
#include <string>

#include "PLXString.h"

// A fixed seed: every run and every peer works on the same bytes.
inline std::string RandomBytes(std::size_t size_i) {
  std::mt19937 random(20240607);
  std::string bytes(size_i, 0);
  for (char& byte : bytes) byte = static_cast<char>(random() & 255);
  return bytes;
}

inline PLXString Text(std::string const& text_i) {
  return PLXString(text_i.data(), static_cast<PLXUInt32>(text_i.size()));
}
