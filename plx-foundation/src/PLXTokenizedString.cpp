#include "PLXTokenizedString.h"

#include "PLXStringSearch.h"

bool PLXTokenizedString::Tokenize(PLXString const& source_i, PLXString const& delimiter_i, unsigned flags_i) {
  if (source_i.IsEmpty() || delimiter_i.IsEmpty()) return false;
  PLXPlaces const delimiters(source_i.GetCStringAccess(), source_i.GetLength(),
                             delimiter_i.GetCStringAccess(), delimiter_i.GetLength(),
                             (flags_i & kIgnoreCase) != 0);
  PLXUInt32 const index = myTokenStarts.GetElementCount();
  myTokenStarts.ResizeToHold(index + delimiters.GetCount() + 1);
  unsigned int* start = &myTokenStarts[index];
  *start = 0;
  delimiters.Visit([&](PLXUInt32 place_i) { *++start = place_i + delimiter_i.GetLength(); });
  mySource = source_i;
  myDelimiter = delimiter_i;
  return true;
}

PLXString PLXTokenizedString::GetToken(PLXUInt32 index_i) const {
  PLXUInt32 const count = myTokenStarts.GetElementCount();
  if (index_i >= count) return PLXString();
  if (count == 1) return mySource;
  PLXUInt32 const start = myTokenStarts[index_i];
  if (index_i == count - 1) return mySource.GetSubstring(start, kPLXWholeLength);
  // A second Tokenize without Empty leaves offsets that do not ascend; such a token is empty.
  PLXUInt32 const next = myTokenStarts[index_i + 1];
  if (next < start + myDelimiter.GetLength()) return PLXString();
  return mySource.GetSubstring(start, next - myDelimiter.GetLength() - start);
}

void PLXTokenizedString::Empty() {
  mySource.Empty();
  myDelimiter.Empty();
  myTokenStarts.Empty();
}
