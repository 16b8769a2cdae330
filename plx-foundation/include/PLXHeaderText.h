#pragma once

#include "PLXString.h"

// A text as it may stand in one line of a mail header or an SMTP command: each control character is a blank,
// so that no value begins a line, a header or a command of its own (RFC 5322, section 2.2).
PLXString GetHeaderText(PLXString const& text_i);

// "Name: value" and its line end. A line beyond the 998 characters that mail servers take is folded behind
// commas, or at blanks where there are none (RFC 5322, sections 2.1.1 and 2.2.3); one that has neither stays
// long.
void AppendHeaderLine(char const* name_i, PLXString const& value_i, PLXString& header_io);
