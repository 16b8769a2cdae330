#pragma once

#include <cstdint>
#include <string>

// A four-character code for logs: 'MBtS', or 'M...' and the number where a byte is no printable character.
inline std::string PLXCodeText(std::uint32_t code_i) {
  if (code_i == 0) return "0";
  std::string text = "'....'";
  bool isText = true;
  for (std::size_t index = 0; index < 4; ++index) {
    auto const byte = static_cast<char>(code_i >> (24 - 8 * index) & 0xFF);
    if (byte >= ' ' && byte < 0x7F) {
      text[index + 1] = byte;
    } else {
      isText = false;
    }
  }
  return isText ? text : text + " (" + std::to_string(code_i) + ")";
}
