#pragma once

#include <string>
#include <string_view>

// Texts of any bytes for engines that keep nothing but UTF-8.
//
// Text that is UTF-8 (RFC 3629) stays as it is and can be read with the engine's own tools. Each byte b that
// belongs to no valid character becomes the private-use character U+10FF00 + b; so do the four bytes of such
// a character that was there before, which is why nothing is lost and no two texts become the same.

// Whether PLXEscapeToUTF8 would change the text.
bool PLXNeedsEscape(std::string_view text_i);
// At most sixteen times as long.
std::string PLXEscapeToUTF8(std::string_view text_i);
// The bytes again, in place. Linear.
void PLXUnescapeFromUTF8(std::string& text_io);
