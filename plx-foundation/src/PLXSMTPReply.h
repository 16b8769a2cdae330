#pragma once

#include <string_view>

#include "PLXString.h"

// One reply of a mail server (RFC 5321, section 4.2), put together from the bursts in which it arrives. It is
// over with the first line that ends and has no hyphen behind its code; how it was cut into bursts, and what
// follows it, changes nothing about it.
class PLXSMTPReply {
 public:
  static constexpr PLXUInt32 kLongest = 65536;  // bytes; what goes on beyond them is no reply any more

  void Append(PLXString const& burst_i) {
    myText.ReserveToAppend(burst_i.GetLength());
    myText += burst_i;
    std::string_view const text(myText.GetCStringAccess(), myText.GetLength());
    for (std::size_t end; !myIsComplete && (end = text.find('\n', myLineStart)) != text.npos;) {
      std::string_view const line = text.substr(myLineStart, end - myLineStart);
      myIsComplete = line.size() < 4 || line[3] != '-';
      myLineStart = end + 1;
    }
  }

  bool IsComplete() const noexcept { return myIsComplete; }
  bool IsTooLong() const noexcept { return myText.GetLength() >= kLongest; }

  // The number that its first line begins with, whether that has ended or not; 0 when it has none.
  PLXUInt32 GetCode() const;

 private:
  PLXString myText;
  std::size_t myLineStart = 0;
  bool myIsComplete = false;
};
