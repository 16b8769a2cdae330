#pragma once

#include "PLXString.h"

// Small helpers of modules. They hold no state.

// A text as a key: without tabs, line ends and blanks, with "_" for "," and ".", in capitals, URL-encoded.
PLXString PLXUtilGetNormalizedString(PLXString const& text_i);
// The key of a module action's response: prefix, the name up to its first blank, and suffix, in capitals,
// without blanks, URL-encoded.
PLXString PLXUtilGetModuleActionResponseString(PLXString const& prefix_i, PLXString const& name_i,
                                               PLXString const& suffix_i);

// Copies `length_i` bytes; the blocks may overlap.
void PLXUtilCopyBuffer(void const* source_i, void* destination_o, PLXUInt32 length_i) noexcept;
// The same, and writes a zero byte after them: the destination holds length_i + 1 bytes.
void PLXUtilCopyAndTerminateBuffer(void const* source_i, void* destination_o, PLXUInt32 length_i) noexcept;
// 0 for null.
PLXUInt32 PLXUtilGetCStringLength(char const* cString_i) noexcept;
