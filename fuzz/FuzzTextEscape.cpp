#include <cstdint>
#include <cstdlib>
#include <string>

#include "PLXTextEscape.h"

// Any bytes survive the way through an engine that keeps nothing but UTF-8, and what is UTF-8 goes as it is.

namespace {

// A decoder of its own, character by character, as RFC 3629 tells them.
bool IsUTF8(std::string const& text_i, bool& hasEscape_o) {
  for (std::size_t index = 0; index < text_i.size();) {
    auto const first = static_cast<unsigned char>(text_i[index++]);
    unsigned const more =
        first < 0x80 ? 0 : (first >> 5 == 6 ? 1 : (first >> 4 == 14 ? 2 : (first >> 3 == 30 ? 3 : 9)));
    if (more == 9) return false;
    std::uint32_t character = more == 0 ? first : first & (0x3Fu >> more);
    for (unsigned done = 0; done < more; ++done, ++index) {
      if (index == text_i.size() || static_cast<unsigned char>(text_i[index]) >> 6 != 2) return false;
      character = character << 6 | (static_cast<unsigned char>(text_i[index]) & 0x3F);
    }
    constexpr std::uint32_t kLeast[] = {0, 0x80, 0x800, 0x10000};
    if (character < kLeast[more] || character > 0x10FFFF || (character >= 0xD800 && character < 0xE000))
      return false;
    hasEscape_o = hasEscape_o || character >= 0x10FF00;
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data_i, std::size_t size_i) {
  std::string const text(reinterpret_cast<char const*>(data_i), size_i);
  std::string escaped = PLXEscapeToUTF8(text);
  bool hasEscape = false;
  bool const isPlain = IsUTF8(text, hasEscape) && !hasEscape;
  if (PLXNeedsEscape(text) == isPlain || (isPlain && escaped != text)) std::abort();
  if (!IsUTF8(escaped, hasEscape) || escaped.size() > 16 * text.size()) std::abort();
  PLXUnescapeFromUTF8(escaped);
  if (escaped != text) std::abort();
  std::string foreign = text;  // what another program wrote there
  PLXUnescapeFromUTF8(foreign);
  if (foreign.size() > text.size()) std::abort();
  return 0;
}
