// What becomes of the answer to a RETR: header, boundary, body, and the values of header lines.

static constexpr char kPOPBlanks[] = " \t\r\n";
static constexpr char kPOPLoneDot[] = "\r\n.\r\n";
static constexpr PLXUInt32 kPOPLongestMessage = 51200;  // characters that a record takes

struct POP_Message {
  PLXString header;  // with the answer's status line before it
  PLXString text;    // from the empty line on, without the lone dot; once its parts are taken, the body
};

static bool POP_IsPositive(PLXString const& answer_i) {
  return answer_i.BeginsWith("+OK", kPLXOption_IgnoreCase);
}

// Requires: the whole answer, up to its lone dot.
static POP_Message POP_SplitAnswer(PLXString const& answer_i) {
  PLXUInt32 end = 0;
  if (!answer_i.Find("\r\n\r\n", 0, kPLXWholeLength, 0, end)) {
    constexpr auto kDotLength = static_cast<PLXUInt32>(sizeof kPOPLoneDot - 1);
    return {answer_i.GetSubstring(0, answer_i.GetLength() - kDotLength), PLXString()};
  }
  POP_Message message{answer_i.GetSubstring(0, end), answer_i.GetSubstring(end + 2, kPLXWholeLength)};
  message.text.TrimRight(kPOPBlanks);
  message.text.TrimRight('.');
  return message;
}

// In quotes or up to the end of its line; empty without one.
static PLXString POP_GetBoundary(PLXString const& header_i) {
  static constexpr char kWord[] = "boundary=";
  PLXUInt32 start = 0;
  if (!header_i.Find(kWord, 0, kPLXWholeLength, 0, start) || start == 0) return PLXString();
  start += static_cast<PLXUInt32>(sizeof kWord - 1);
  bool const isQuoted = start < header_i.GetLength() && header_i[start] == '"';
  if (isQuoted) ++start;
  PLXUInt32 end = 0;
  if (!header_i.Find(isQuoted ? "\"" : "\r\n", start, kPLXWholeLength, 0, end)) {
    if (isQuoted) return PLXString();
    end = header_i.GetLength();
  }
  return header_i.GetSubstring(start, end - start);
}

// Saves the attachments of a multipart message and leaves its body. False when one that was wanted is not
// saved. A repeated message is one of which a run that did not get to its end may have saved some.
static bool POP_TakeParts(POP_Message& message_io, PLXString const& folder_i, PLXUInt32 maximumSize_i,
                          bool isRepeated_i) {
  PLXString const boundary = POP_GetBoundary(message_io.header);
  if (boundary.IsEmpty()) return true;
  PLXTokenizedString const everyName(".*", ",");
  PLXStringUtility::MessagePartList parts;
  PLXStringUtility::FileStoring storing{.isRepeated = isRepeated_i};
  PLXStringUtility::ParseMultipartMessage_ReturnBody(message_io.text, boundary, 0,
                                                     message_io.text.GetLength(), folder_i, everyName,
                                                     maximumSize_i, &parts, message_io.text, &storing);
  return !storing.hasFailed;
}

// The value of the first line that begins with the name. A line that is folded goes on in others, which do
// not count.
static PLXString POP_CollectMail_GetHeader(PLXTokenizedString const& lines_i, PLXString const& name_i) {
  for (PLXUInt32 index = 0; index < lines_i.GetTokenCount(); ++index) {
    PLXString line = lines_i.GetToken(index);
    PLXUInt32 colon = 0;
    if (!line.BeginsWith(name_i, kPLXOption_IgnoreCase) || !line.Find(':', 0, kPLXWholeLength, 0, colon)) {
      continue;
    }
    line.TrimLeft(colon + 1);
    line.TrimLeft(kPOPBlanks);
    return line;
  }
  return PLXString();
}

// Ada Lovelace <ada@example.org>
static void POP_SplitFrom(PLXString const& from_i, PLXString& name_o, PLXString& address_o) {
  name_o.Empty();
  address_o = from_i;
  PLXUInt32 bracket = 0;
  if (!from_i.Find('<', 0, kPLXWholeLength, 0, bracket)) return;
  name_o = from_i.GetSubstring(0, bracket);
  name_o.Trim(kPOPBlanks);
  address_o.TrimLeft(bracket + 1);
  address_o.Trim(kPOPBlanks);
  address_o.TrimRight('>');
  address_o.Trim(kPOPBlanks);
}
