#include "PLXTokenizedString.h"

bool PLXTokenizedString::Tokenize(PLXString const& source_i, PLXString const& delimiter_i, unsigned flags_i) {
  if (source_i.IsEmpty() || delimiter_i.IsEmpty()) return false;
  unsigned const options = (flags_i & kIgnoreCase) != 0 ? kPLXOption_IgnoreCase : 0;

  // Two walks over the text, the first only counting, so that the array is made once.
  PLXUInt32 position = 0;
  PLXUInt32 count = 1;
  for (PLXUInt32 start = 0; source_i.Find(delimiter_i, start, kPLXWholeLength, options, position); ++count) {
    start = position + delimiter_i.GetLength();
  }
  PLXUInt32 index = myTokenStarts.GetElementCount();
  myTokenStarts.ResizeToHold(index + count);
  mySource = source_i;  // nothing throws from here on
  myDelimiter = delimiter_i;
  PLXUInt32 start = 0;
  while (true) {
    myTokenStarts[index] = start;
    if (!mySource.Find(myDelimiter, start, kPLXWholeLength, options, position)) break;
    start = position + myDelimiter.GetLength();
    ++index;
  }
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
