#include "PLXRegExpStart.h"

#include "PLXStringSearch.h"

namespace {

bool IsLineStart(char const* text_i, PLXUInt32 position_i) {
  return position_i == 0 || text_i[position_i - 1] == '\n' || text_i[position_i - 1] == '\r';
}

bool Holds(PLXByteSet const& set_i, char byte_i) { return set_i.Holds(static_cast<unsigned char>(byte_i)); }

}  // namespace

PLXUInt32 PLXRegExpStart::FindNext(char const* text_i, PLXUInt32 length_i, PLXUInt32 position_i,
                                   PLXUInt32& next_o) const noexcept {
  for (PLXUInt32 position = position_i; position < length_i; position = next_o) {
    if (isAtLineStart) {
      while (position < length_i && !IsLineStart(text_i, position)) ++position;
    } else if (!literal.empty()) {
      auto const size = static_cast<PLXUInt32>(literal.size());
      PLXUInt32 const rest = length_i - position;
      if (rest < literalOffset || rest - literalOffset < size) return kNowhere;
      char const* const from = text_i + position + literalOffset;
      char const* const found = PLXFindForward(from, rest - literalOffset, literal.data(), size, false);
      if (found == nullptr) return kNowhere;
      position += static_cast<PLXUInt32>(found - from);
    } else {
      while (position < length_i && !Holds(first, text_i[position])) ++position;
    }
    if (position == length_i) return kNowhere;
    next_o = position + 1;
    if (!Holds(first, text_i[position])) continue;
    if (!beginsWithRun) return position;
    while (next_o < length_i && Holds(first, text_i[next_o])) ++next_o;
    if (next_o == length_i ? mayEndRun : Holds(behindRun, text_i[next_o])) return position;
  }
  return kNowhere;
}
