#pragma once

#include "PLXObject.h"
#include "PLXString.h"

// An IPv4 address, as a number and as dotted text that always says the same. One thread at a time.
class PLXIPAddress : public PLXObject {
 public:
  PLXIPAddress() { Set(0u); }
  explicit PLXIPAddress(unsigned int number_i) { Set(number_i); }
  // 0.0.0.0 when the text is no address.
  explicit PLXIPAddress(PLXString const& text_i) : PLXIPAddress() { Set(text_i); }

  // In host order, the first octet in the most significant byte: 0x7F000001 is 127.0.0.1. Always true.
  bool Set(unsigned int number_i);
  // Takes four numbers of 0 to 255 between three dots; 010.1.1.1 is 10.1.1.1. False, and nothing changes, for
  // any other text.
  bool Set(PLXString const& text_i);

  unsigned int GetNumber() const noexcept { return myNumber; }
  PLXString const& GetText() const noexcept { return myText; }

 private:
  unsigned int myNumber = 0;
  PLXString myText;
};
