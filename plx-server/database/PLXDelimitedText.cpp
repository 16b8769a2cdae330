#include "PLXDelimitedText.h"

#include <algorithm>
#include <cassert>

namespace {

constexpr std::size_t kPieceBytes = 65536;      // of which no more than one is held back
constexpr std::size_t kSmallestBuffer = 4;      // the longest look ahead is the byte order mark
constexpr std::size_t kKeptCapacity = 1 << 20;  // a longer string is not kept for the next record
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr char kQuote = '"';

std::size_t IndexOf(char character_i) { return static_cast<unsigned char>(character_i); }

}  // namespace

PLXDelimitedWriter::PLXDelimitedWriter(std::ostream& stream_io, char delimiter_i)
    : myStream(stream_io), myDelimiter(delimiter_i) {
  assert(CanDelimit(delimiter_i));
  for (char const character : {kQuote, '\r', '\n', delimiter_i}) mySpecial[IndexOf(character)] = true;
}

void PLXDelimitedWriter::Field(std::string_view value_i) {
  if (myFieldCount > 0) Put({&myDelimiter, 1});
  myLoneEmptyField = myFieldCount == 0 && value_i.empty();
  ++myFieldCount;
  if (!NeedsQuotes(value_i)) return Put(value_i);
  Put("\"");
  for (;;) {
    std::size_t const quote = value_i.find(kQuote);
    if (quote == value_i.npos) break;
    Put(value_i.substr(0, quote + 1));
    Put("\"");
    value_i.remove_prefix(quote + 1);
  }
  Put(value_i);
  Put("\"");
}

void PLXDelimitedWriter::EndRecord() {
  if (myFieldCount == 0) return;
  if (myLoneEmptyField) Put("\"\"");  // an empty line is no record
  Put("\r\n");
  WriteOut();
  myFieldCount = 0;
  myLoneEmptyField = false;
  myAtStart = false;
}

bool PLXDelimitedWriter::NeedsQuotes(std::string_view value_i) const {
  // What begins the stream like a byte order mark would be taken for one.
  if (myAtStart && myFieldCount == 1 && value_i.starts_with(kByteOrderMark)) return true;
  return std::any_of(value_i.begin(), value_i.end(), [this](char c) { return mySpecial[IndexOf(c)]; });
}

void PLXDelimitedWriter::Put(std::string_view text_i) {
  if (myPending.size() + text_i.size() > kPieceBytes) WriteOut();
  if (text_i.size() <= kPieceBytes) {
    myPending.append(text_i);
  } else {
    myStream.write(text_i.data(), static_cast<std::streamsize>(text_i.size()));
  }
}

void PLXDelimitedWriter::WriteOut() {
  myStream.write(myPending.data(), static_cast<std::streamsize>(myPending.size()));
  myPending.clear();
}

PLXDelimitedReader::PLXDelimitedReader(std::istream& stream_io, char delimiter_i, std::size_t limit_i,
                                       std::size_t bufferBytes_i)
    : myStream(stream_io),
      myDelimiter(delimiter_i),
      myLimit(limit_i),
      myBuffer(std::max(bufferBytes_i, kSmallestBuffer), '\0') {
  assert(CanDelimit(delimiter_i));
  for (char const character : {'\r', '\n', delimiter_i}) mySpecial[IndexOf(character)] = true;
}

bool PLXDelimitedReader::ReadRecord(std::vector<std::string>& fields_io) {
  bool isRead = false;
  if (myError.empty()) {
    if (myAtStart && Ensure(kByteOrderMark.size()) && myBuffer.starts_with(kByteOrderMark)) {
      myAt = kByteOrderMark.size();
    }
    myAtStart = false;
    SkipLineEnds();
    isRead = Ensure(1) && ReadFields(fields_io);
    // A record cut short by the disk is no record.
    if (myError.empty() && myStreamIsDone && (myStream.bad() || !myStream.eof()))
      isRead = Fail(myLine, "the data cannot be read on");
  }
  if (!isRead) fields_io.clear();
  return isRead;
}

bool PLXDelimitedReader::Fail(std::size_t line_i, std::string const& what_i) {
  myError = what_i + " in line " + std::to_string(line_i);
  return false;
}

// True when so many bytes are in the buffer from myAt on; false when the data has no more.
bool PLXDelimitedReader::Ensure(std::size_t count_i) {
  while (myEnd - myAt < count_i && !myStreamIsDone) {
    std::copy(&myBuffer[myAt], &myBuffer[myEnd], &myBuffer[0]);
    myEnd -= myAt;
    myAt = 0;
    myStream.read(&myBuffer[myEnd], static_cast<std::streamsize>(myBuffer.size() - myEnd));
    myEnd += static_cast<std::size_t>(myStream.gcount());
    myStreamIsDone = !myStream.good();
  }
  return myEnd - myAt >= count_i;
}

// Of the line end that stands here; 0 when there is none. A carriage return at the end of the data began one.
std::size_t PLXDelimitedReader::LineEndLength() {
  if (!Ensure(1)) return 0;
  if (myBuffer[myAt] == '\n') return 1;
  if (myBuffer[myAt] != '\r') return 0;
  if (!Ensure(2)) return 1;
  return myBuffer[myAt + 1] == '\n' ? 2 : 0;
}

void PLXDelimitedReader::SkipLineEnds() {
  while (std::size_t const length = LineEndLength()) {
    myAt += length;
    ++myLine;
  }
}

bool PLXDelimitedReader::ReadFields(std::vector<std::string>& fields_io) {
  myRecordLine = myLine;
  myRecordBytes = 0;
  std::size_t count = 0;
  for (;;) {
    // Many empty fields take memory too.
    myRecordBytes += sizeof(std::string);
    if (count == fields_io.size()) fields_io.emplace_back();
    std::string& field = fields_io[count++];
    if (field.capacity() > kKeptCapacity) field = {};
    field.clear();
    if (!ReadField(field)) return false;
    if (!Ensure(1) || myBuffer[myAt] != myDelimiter) break;
    ++myAt;
  }
  if (std::size_t const length = LineEndLength()) {
    myAt += length;
    ++myLine;
  }
  fields_io.resize(count);
  return true;
}

// Stops at a delimiter, a line end or the end of the data.
bool PLXDelimitedReader::ReadField(std::string& value_o) {
  if (!Take(0, value_o)) return false;
  if (Ensure(1) && myBuffer[myAt] == kQuote) return ReadQuoted(value_o);
  return ReadUnquoted(value_o);
}

bool PLXDelimitedReader::ReadUnquoted(std::string& value_o) {
  while (Ensure(1)) {
    char const* const begin = &myBuffer[myAt];
    char const* const stop =
        std::find_if(begin, begin + (myEnd - myAt), [this](char c) { return mySpecial[IndexOf(c)]; });
    if (!Take(static_cast<std::size_t>(stop - begin), value_o)) return false;
    if (myAt == myEnd) continue;
    if (myBuffer[myAt] == myDelimiter || LineEndLength() > 0) return true;
    if (!Take(1, value_o)) return false;
  }
  return true;
}

bool PLXDelimitedReader::ReadQuoted(std::string& value_o) {
  std::size_t const line = myLine;
  ++myAt;
  for (;;) {
    if (!Ensure(1)) return Fail(line, "there is no closing quote for the value that begins");
    std::string_view const ahead(&myBuffer[myAt], myEnd - myAt);
    std::string_view const text = ahead.substr(0, ahead.find(kQuote));
    myLine += static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
    if (!Take(text.size(), value_o)) return false;
    if (text.size() == ahead.size()) continue;
    if (!Ensure(2) || myBuffer[myAt + 1] != kQuote) break;
    ++myAt;
    if (!Take(1, value_o)) return false;
  }
  ++myAt;
  if (!Ensure(1) || myBuffer[myAt] == myDelimiter || LineEndLength() > 0) return true;
  return Fail(myLine, "there is text after a closing quote");
}

// Moves so many bytes of the buffer to the value.
bool PLXDelimitedReader::Take(std::size_t count_i, std::string& value_io) {
  if (myRecordBytes > myLimit || count_i > myLimit - myRecordBytes) {
    return Fail(myRecordLine,
                "there are more than " + std::to_string(myLimit) + " bytes in the record that begins");
  }
  value_io.append(myBuffer, myAt, count_i);
  myAt += count_i;
  myRecordBytes += count_i;
  return true;
}
