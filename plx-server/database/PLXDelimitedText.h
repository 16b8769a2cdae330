#pragma once

#include <array>
#include <cstddef>
#include <istream>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

// Tables as delimited text: RFC 4180, with the delimiter to choose and values of any bytes and length.
//
// Neither direction knows of a header line: it is the first record.

// A byte of ASCII other than zero, the quote and the line ends: those mean something already, and a byte
// above 0x7F would cut UTF-8 characters.
constexpr bool CanDelimit(char delimiter_i) {
  return static_cast<signed char>(delimiter_i) > 0 && delimiter_i != '"' && delimiter_i != '\r' &&
         delimiter_i != '\n';
}

// Writes records to a stream that it does not own. Lines end in CR LF; quotes stand where a value needs them
// to come back as it is. Memory stays at some 64 KB, however long a value is. One thread at a time.
//
// A record that was not ended may be missing, whole or in part. A stream that fails, say on a full disk,
// shows it itself: flush it at the end and look at its state.
class PLXDelimitedWriter {
 public:
  // Requires: CanDelimit(delimiter_i).
  explicit PLXDelimitedWriter(std::ostream& stream_io, char delimiter_i = ',');

  void Field(std::string_view value_i);
  // Ends the record of the fields since the last one; a record without fields leaves no trace.
  void EndRecord();

 private:
  bool NeedsQuotes(std::string_view value_i) const;
  void Put(std::string_view text_i);
  void WriteOut();

  std::ostream& myStream;
  char const myDelimiter;
  std::array<bool, 256> mySpecial{};  // by byte: a value that holds one is quoted
  std::string myPending;              // of the current record, not yet with the stream
  std::size_t myFieldCount = 0;
  bool myLoneEmptyField = false;  // the record so far is one empty field, of which nothing is written
  bool myAtStart = true;          // of the stream
};

// Reads records from a stream that it does not own, ahead by its buffer. Takes lines that end in CR LF or LF,
// a last line without an end, and a UTF-8 byte order mark at the start; passes over empty lines. A quote or a
// lone carriage return inside an unquoted value belongs to it. Linear in the data. One thread at a time.
class PLXDelimitedReader {
 public:
  // The values of one record, each with its std::string, may take `limit_i` bytes together; room they grow
  // into is not counted. Requires: CanDelimit(delimiter_i).
  explicit PLXDelimitedReader(std::istream& stream_io, char delimiter_i = ',', std::size_t limit_i = 1U << 30,
                              std::size_t bufferBytes_i = 65536);

  // Reads the next record. False at the end of the data, and on an error, after which Error tells and every
  // further call is false: a value with an unclosed quote, text after a closing quote, a record beyond the
  // limit, a stream that cannot be read. `fields_io` is empty then; its strings are used again otherwise.
  [[nodiscard]] bool ReadRecord(std::vector<std::string>& fields_io);

  // A sentence for people, without a full stop, with the line; empty unless an error ended the reading.
  std::string const& Error() const { return myError; }
  // The line in which the last record begins, from 1; before the first record 0.
  std::size_t Line() const { return myRecordLine; }

 private:
  bool Fail(std::size_t line_i, std::string const& what_i);
  bool Ensure(std::size_t count_i);
  std::size_t LineEndLength();
  void SkipLineEnds();
  bool ReadFields(std::vector<std::string>& fields_io);
  bool ReadField(std::string& value_o);
  bool ReadUnquoted(std::string& value_o);
  bool ReadQuoted(std::string& value_o);
  bool Take(std::size_t count_i, std::string& value_io);

  std::istream& myStream;
  char const myDelimiter;
  std::size_t const myLimit;
  std::array<bool, 256> mySpecial{};  // by byte: an unquoted value may end there
  std::string myBuffer;
  std::size_t myAt = 0;   // the next byte in the buffer
  std::size_t myEnd = 0;  // behind the last byte in the buffer
  bool myStreamIsDone = false;
  bool myAtStart = true;
  std::size_t myLine = 1;
  std::size_t myRecordLine = 0;
  std::size_t myRecordBytes = 0;
  std::string myError;
};
