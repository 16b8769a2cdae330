#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

#include "PLXPage.h"
#include "PLXTagText.h"

// One piece of a page. The pieces of a tag's body follow the tag, up to its `end`: a flat list that is
// rendered from front to back, with bodies inside bodies at most kPageBody_MaximumDepth deep.
struct PLXPage::Piece {
  enum class Kind : std::uint8_t { kText, kValue, kTag, kRecords };
  Kind kind = Kind::kText;
  PLXValueKind valueKind = PLXValueKind::kPost;
  std::uint32_t end = 0;                // of a tag or a loop: the index after its body's last piece
  std::string_view text;                // kText: as it stands; kValue: the name
  std::unique_ptr<PLXTagTemplate> tag;  // kTag, kRecords
};

inline constexpr std::size_t kPageBody_MaximumDepth = 64;  // bounds the stack of a rendering thread
inline constexpr std::size_t kQuickPage_MaximumBytes = 64 << 10;
inline constexpr std::size_t kPageProblems_Maximum = 100;  // boxes that one page shows of its own faults

// The tags that the server runs itself; no module can have them.
bool IsServerTag(std::string_view name_i);
