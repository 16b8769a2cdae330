#pragma once

// Values in the HTML that the tags write.

#include "PLXString.h"

// Appends a value as text or as part of a quoted attribute. What has a meaning in HTML becomes an entity;
// every other byte stays, so that a value shows in the page's own character set, whichever that is, and comes
// back from its forms as it was.
static void AppendMarkupText(PLXString const& text_i, PLXString& html_io) {
  html_io.ReserveToAppend(text_i.GetLength() + text_i.GetLength() / 8);
  char const* const text = text_i.GetCStringAccess();
  PLXUInt32 written = 0;
  for (PLXUInt32 index = 0; index < text_i.GetLength(); ++index) {
    char const character = text[index];
    char const* const entity = character == '&'   ? "&amp;"
                               : character == '<' ? "&lt;"
                               : character == '>' ? "&gt;"
                               : character == '"' ? "&quot;"
                                                  : nullptr;
    if (entity == nullptr) continue;
    html_io.ReserveToAppend(index - written + 8);
    html_io.Append(text + written, index - written).Append(entity);
    written = index + 1;
  }
  html_io.ReserveToAppend(text_i.GetLength() - written);
  html_io.Append(text + written, text_i.GetLength() - written);
}
