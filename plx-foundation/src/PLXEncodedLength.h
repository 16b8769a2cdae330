#pragma once

#include <cstdint>

#include "PLXAssert.h"
#include "PLXTypes.h"

// The length of a text about to be built, as strings count it. Encoding can multiply a text, so it is counted
// in 64 bits; what does not fit a string aborts here instead of wrapping round.
inline PLXUInt32 EncodedLength(char const* file_i, std::uint64_t length_i) {
  PLX_ASSERT_STATE_IN(file_i, length_i < kPLXWholeLength);
  return static_cast<PLXUInt32>(length_i);
}
