#include "PLXJSONText.h"

#include "PLXTextEscape.h"

namespace {

std::string FromLatin1(std::string_view text_i) {
  std::string text;
  text.reserve(text_i.size() * 2);
  for (char const character : text_i) {
    auto const byte = static_cast<unsigned char>(character);
    if (byte >= 0x80) text.push_back(static_cast<char>(0xC0 | byte >> 6));
    text.push_back(static_cast<char>(byte >= 0x80 ? 0x80 | (byte & 0x3F) : byte));
  }
  return text;
}

}  // namespace

std::string PLXJSONText(std::string_view text_i) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string const text = PLXNeedsEscape(text_i) ? FromLatin1(text_i) : std::string(text_i);
  std::string quoted = "\"";
  for (char const character : text) {
    auto const byte = static_cast<unsigned char>(character);
    if (character == '"' || character == '\\') {
      quoted.append({'\\', character});
    } else if (byte < 0x20) {
      quoted.append("\\u00").append({kDigits[byte >> 4], kDigits[byte & 15]});
    } else {
      quoted.push_back(character);
    }
  }
  return quoted + '"';
}
