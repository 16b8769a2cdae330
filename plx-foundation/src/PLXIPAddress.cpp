#include "PLXIPAddress.h"

#include <string>

#include "PLXStringUtility.h"
#include "PLXTokenizedString.h"

bool PLXIPAddress::Set(unsigned int number_i) {
  myNumber = number_i;
  std::string text;
  for (int shift = 24; shift >= 0; shift -= 8) {
    text += std::to_string(number_i >> shift & 0xFF);
    if (shift != 0) text += '.';
  }
  myText.Assign(text.data(), static_cast<PLXUInt32>(text.size()));
  return true;
}

bool PLXIPAddress::Set(PLXString const& text_i) {
  // No address is longer, even with zeros in front, and a megabyte of dots need not be cut into tokens.
  constexpr PLXUInt32 kMaximumLength = 255;
  if (text_i.GetLength() > kMaximumLength) return false;
  PLXTokenizedString const octets(text_i, ".");
  if (octets.GetTokenCount() != 4) return false;
  unsigned int number = 0;
  for (PLXUInt32 index = 0; index < 4; ++index) {
    double const octet = PLXStringUtility::GetNumericalRepresentation(octets.GetToken(index));
    if (!(octet > -1.0 && octet <= 255.0)) return false;  // as written it refuses "nan" too
    number = number << 8 | static_cast<unsigned int>(static_cast<int>(octet));
  }
  return Set(number);
}
