#include "PLXUtilityFunctions.h"

#include <cstring>

#include "PLXStringUtility.h"

PLXString PLXUtilGetNormalizedString(PLXString const& text_i) {
  PLXString key(text_i);
  for (char const* const blank : {"\t", "\r", "\n", " "}) key.ReplaceAll(blank, PLXString());
  for (char const* const mark : {",", "."}) key.ReplaceAll(mark, "_");
  key.ConvertToUppercase();
  return PLXStringUtility::GetURLEncodedString(key, false);
}

PLXString PLXUtilGetModuleActionResponseString(PLXString const& prefix_i, PLXString const& name_i,
                                               PLXString const& suffix_i) {
  PLXUInt32 blank = 0;
  bool const hasBlank = name_i.Find(' ', 0, kPLXWholeLength, 0, blank);
  PLXString key = prefix_i + (hasBlank ? name_i.GetSubstring(0, blank) : name_i) + suffix_i;
  key.ConvertToUppercase();
  key.ReplaceAll(" ", PLXString());
  return PLXStringUtility::GetURLEncodedString(key, false);
}

void PLXUtilCopyBuffer(void const* source_i, void* destination_o, PLXUInt32 length_i) noexcept {
  if (length_i != 0) std::memmove(destination_o, source_i, length_i);
}

void PLXUtilCopyAndTerminateBuffer(void const* source_i, void* destination_o, PLXUInt32 length_i) noexcept {
  PLXUtilCopyBuffer(source_i, destination_o, length_i);
  static_cast<char*>(destination_o)[length_i] = 0;
}

PLXUInt32 PLXUtilGetCStringLength(char const* cString_i) noexcept {
  return cString_i != nullptr ? static_cast<PLXUInt32>(std::strlen(cString_i)) : 0;
}
