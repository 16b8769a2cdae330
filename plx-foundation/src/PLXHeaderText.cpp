#include "PLXHeaderText.h"

#include <algorithm>
#include <string_view>

namespace {

constexpr std::size_t kLongestLine = 998;

bool IsControlCharacter(char character_i) noexcept {
  return static_cast<unsigned char>(character_i) < ' ' || character_i == '\x7F';
}

// How much of the text, which is too long, the first line takes; all of it where there is nowhere to break.
std::size_t LengthOfFirstLine(std::string_view text_i, std::size_t room_i) {
  std::size_t const comma = text_i.rfind(',', room_i - 1);
  if (comma != std::string_view::npos && comma > 0) return comma + 1;
  std::size_t const blank = text_i.rfind(' ', room_i);
  if (blank != std::string_view::npos && blank > 0) return blank;
  std::size_t const next = text_i.find_first_of(", ", room_i);
  return next == std::string_view::npos ? text_i.size() : text_i[next] == ',' ? next + 1 : next;
}

}  // namespace

PLXString GetHeaderText(PLXString const& text_i) {
  char const* const start = text_i.GetCStringAccess();
  if (std::none_of(start, start + text_i.GetLength(), IsControlCharacter)) return text_i;
  PLXString text(text_i);
  char* const characters = text.ReserveLength(text.GetLength());
  std::replace_if(characters, characters + text.GetLength(), IsControlCharacter, ' ');
  return text;
}

void AppendHeaderLine(char const* name_i, PLXString const& value_i, PLXString& header_io) {
  PLXString const text = GetHeaderText(value_i);
  std::string_view rest(text.GetCStringAccess(), text.GetLength());
  header_io.ReserveToAppend(text.GetLength() + 64);
  std::size_t used = std::string_view(name_i).size() + 2;
  header_io.Append(name_i).Append(": ");
  while (used + rest.size() > kLongestLine) {
    std::size_t const length = LengthOfFirstLine(rest, kLongestLine - used);
    header_io.Append(rest.data(), static_cast<PLXUInt32>(length));
    rest.remove_prefix(length);
    if (rest.empty()) break;
    // A blank that is there begins the next line; behind a comma one is put.
    header_io.Append("\r\n");
    if (rest.front() != ' ') header_io.Append(' ');
    used = rest.front() != ' ' ? 1 : 0;
  }
  header_io.Append(rest.data(), static_cast<PLXUInt32>(rest.size()));
  header_io.Append("\r\n");
}
