#include "PLXTextEscape.h"

#include <cstdint>
#include <cstring>

namespace {

unsigned char ByteAt(std::string_view text_i, std::size_t index_i) {
  return static_cast<unsigned char>(text_i[index_i]);
}

bool IsContinuation(std::string_view text_i, std::size_t index_i) {
  return index_i < text_i.size() && (ByteAt(text_i, index_i) & 0xC0) == 0x80;
}

// U+10FF00 to U+10FFFF: F4 8F BC 80 to F4 8F BF BF.
bool IsEscape(std::string_view text_i, std::size_t index_i) {
  return text_i.size() - index_i >= 4 && ByteAt(text_i, index_i) == 0xF4 &&
         ByteAt(text_i, index_i + 1) == 0x8F && ByteAt(text_i, index_i + 2) >= 0xBC &&
         ByteAt(text_i, index_i + 2) <= 0xBF && IsContinuation(text_i, index_i + 3);
}

// How many bytes the valid character has that begins here; 0 when none does.
std::size_t CharacterLength(std::string_view text_i, std::size_t index_i) {
  unsigned char const first = ByteAt(text_i, index_i);
  if (first < 0x80) return 1;
  if (first < 0xC2 || first > 0xF4) return 0;
  if (!IsContinuation(text_i, index_i + 1)) return 0;
  if (first < 0xE0) return 2;
  unsigned char const second = ByteAt(text_i, index_i + 1);
  // No overlong forms, no halves of surrogate pairs, nothing beyond U+10FFFF.
  bool const isOut = (first == 0xE0 && second < 0xA0) || (first == 0xED && second > 0x9F) ||
                     (first == 0xF0 && second < 0x90) || (first == 0xF4 && second > 0x8F);
  if (isOut || !IsContinuation(text_i, index_i + 2)) return 0;
  if (first < 0xF0) return 3;
  return IsContinuation(text_i, index_i + 3) ? 4 : 0;
}

// Where the first character stands that has to be escaped, from a place on; the text's size when none does.
std::size_t FindEscaped(std::string_view text_i, std::size_t index_i) {
  constexpr std::uint64_t kHighBits = 0x8080808080808080;
  while (index_i < text_i.size()) {
    std::uint64_t eight;
    if (text_i.size() - index_i >= sizeof eight) {
      std::memcpy(&eight, text_i.data() + index_i, sizeof eight);
      if ((eight & kHighBits) == 0) {
        index_i += sizeof eight;
        continue;
      }
    }
    std::size_t const length = CharacterLength(text_i, index_i);
    if (length == 0 || IsEscape(text_i, index_i)) return index_i;
    index_i += length;
  }
  return text_i.size();
}

void AppendEscaped(unsigned char byte_i, std::string& text_io) {
  text_io += "\xF4\x8F";
  text_io += static_cast<char>(0xBC | byte_i >> 6);
  text_io += static_cast<char>(0x80 | (byte_i & 0x3F));
}

}  // namespace

bool PLXNeedsEscape(std::string_view text_i) { return FindEscaped(text_i, 0) != text_i.size(); }

std::string PLXEscapeToUTF8(std::string_view text_i) {
  std::string escaped;
  escaped.reserve(text_i.size() + 16);
  for (std::size_t index = 0; index < text_i.size();) {
    std::size_t const next = FindEscaped(text_i, index);
    escaped.append(text_i, index, next - index);
    index = next;
    if (index == text_i.size()) break;
    std::size_t const count = IsEscape(text_i, index) ? 4 : 1;
    for (std::size_t done = 0; done < count; ++done) AppendEscaped(ByteAt(text_i, index++), escaped);
  }
  return escaped;
}

void PLXUnescapeFromUTF8(std::string& text_io) {
  std::size_t from = text_io.find("\xF4\x8F");
  if (from == std::string::npos) return;
  std::size_t to = from;
  while (from < text_io.size()) {
    if (IsEscape(text_io, from)) {
      unsigned const high = ByteAt(text_io, from + 2) & 0x03u;
      text_io[to++] = static_cast<char>(high << 6 | (ByteAt(text_io, from + 3) & 0x3Fu));
      from += 4;
    } else {
      text_io[to++] = text_io[from++];
    }
  }
  text_io.resize(to);
}
