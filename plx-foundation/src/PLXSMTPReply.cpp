#include "PLXSMTPReply.h"

#include "PLXNetworkingStream.h"

PLXUInt32 PLXSMTPReply::GetCode() const {
  PLXUInt32 end = myText.GetLength();
  myText.Find('\n', 0, kPLXWholeLength, 0, end);
  PLXString const line = myText.GetSubstring(0, end);
  char const* const start = line.GetCStringAccess();
  char const* cursor = start;
  PLXUInt32 const code = CrackNum(&cursor);
  return cursor == start ? 0 : code;  // a number behind a word is none: "HTTP/1.0 200 OK" takes no message
}
