#pragma once

#include "PLXString.h"

// One answer of a POP3 server (RFC 1939, section 3), put together from the bursts in which it arrives. Where
// it ends depends on the command; a refusal always is a line. Text that is no status line ends with its first
// burst.
class PLXPOP3Answer {
 public:
  enum class End { Line, Listing, Message };

  // `line_i` is the command with its line end.
  static End OfAnswerTo(PLXString const& line_i);
  explicit PLXPOP3Answer(End end_i) noexcept : myEnd(end_i) {}

  // False, with nothing added, when that would make a text longer than a string can be.
  bool Append(PLXString const& burst_i);

  bool IsComplete() const;
  // Whether the server may take as long as it wants before it goes on: what comes is a message.
  bool IsUnhurried() const { return myEnd == End::Message && IsPositive(); }
  bool IsPositive() const { return myText.BeginsWith("+OK", kPLXOption_IgnoreCase); }
  // What the last burst ends with when the command is done.
  char const* GetEndText() const noexcept { return myEnd == End::Line ? "\n" : "\r\n.\r\n"; }
  PLXString const& GetText() const noexcept { return myText; }

 private:
  End const myEnd;
  PLXString myText;
};
