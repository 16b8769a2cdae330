#include "PLXStringID.h"

#include "PLXCRC32.h"

namespace {

PLXUInt32 CalculateID(PLXString const& string_i, unsigned flags_i) {
  PLXString text(string_i);
  if ((flags_i & PLXStringID::kIgnoreCase) != 0) text.ConvertToLowercase();
  PLXCRC32 checksum;
  checksum.Update(text.GetCStringAccess(), text.GetLength());
  return checksum.GetValue();
}

}  // namespace

PLXStringID::PLXStringID(PLXString const& string_i, unsigned flags_i)
    : myString(string_i), myID(CalculateID(string_i, flags_i)) {}
