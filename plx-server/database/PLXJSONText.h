#pragma once

#include <string>
#include <string_view>

// A text as JSON has it, in quotes (RFC 8259). Bytes that are no UTF-8 are read as Latin-1.
std::string PLXJSONText(std::string_view text_i);
