#include "PLXCryptor.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <string_view>
#include <utility>

#include "PLXEncodedLength.h"

namespace {

char const ourSourceFile[] = "src/PLXCryptor";

constexpr std::string_view kDefaultBase64EncodeEOL = "\r\n";

constexpr char kRadix64EncTable[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr char kHexEncTable[] = "0123456789ABCDEF";

constexpr std::size_t kLineBytes = 57;  // 57 bytes fill a line
constexpr std::size_t kLineCharacters = 76;

// Streams are read in pieces that stay in the processor's nearest cache; a piece is whole lines.
constexpr std::size_t kPieceBytes = 128 * kLineBytes;

// What a caller says about a stream's length is believed up to here; more is taken as it comes.
constexpr std::uint64_t kBelievedLength = 16 << 20;

constexpr std::size_t Index(char character_i) { return static_cast<unsigned char>(character_i); }

std::string_view View(PLXString const& string_i) {
  return {string_i.GetCStringAccess(), string_i.GetLength()};
}

char* Put(std::string_view text_i, char* target_o) {
  std::memcpy(target_o, text_i.data(), text_i.size());
  return target_o + text_i.size();
}

// ---- Base64 encoding ----

// Two characters for each twelve bits: half the look-ups of one character each.
constexpr std::array<std::array<char, 2>, 4096> kRadix64EncPairs = [] {
  std::array<std::array<char, 2>, 4096> pairs{};
  for (std::size_t bits = 0; bits < pairs.size(); ++bits) {
    pairs[bits] = {kRadix64EncTable[bits >> 6], kRadix64EncTable[bits & 63]};
  }
  return pairs;
}();

inline char* PutPair(std::uint64_t bits_i, char* target_o) {
  std::memcpy(target_o, kRadix64EncPairs[bits_i & 4095].data(), 2);
  return target_o + 2;
}

inline char* EncodeGroup(PLXUInt8 const* source_i, char* target_o) {
  unsigned const group = static_cast<unsigned>(source_i[0]) << 16 | static_cast<unsigned>(source_i[1]) << 8 |
                         static_cast<unsigned>(source_i[2]);
  return PutPair(group, PutPair(group >> 12, target_o));
}

// Two groups from one load of eight bytes, of which the last two are left alone.
inline char* EncodeTwoGroups(PLXUInt8 const* source_i, char* target_o) {
  std::uint64_t bits;
  std::memcpy(&bits, source_i, 8);
  if constexpr (std::endian::native == std::endian::little) bits = __builtin_bswap64(bits);
  target_o = PutPair(bits >> 40, PutPair(bits >> 52, target_o));
  return PutPair(bits >> 16, PutPair(bits >> 28, target_o));
}

char* EncodeFullLine(PLXUInt8 const* source_i, char* target_o) {
  for (std::size_t offset = 0; offset < kLineBytes - 3; offset += 6) {
    target_o = EncodeTwoGroups(source_i + offset, target_o);
  }
  return EncodeGroup(source_i + (kLineBytes - 3), target_o);
}

// The last line, with "=" for the bytes that its last group lacks.
char* EncodeLastLine(PLXUInt8 const* source_i, std::size_t size_i, char* target_o) {
  for (; size_i >= 3; size_i -= 3, source_i += 3) target_o = EncodeGroup(source_i, target_o);
  if (size_i == 0) return target_o;
  PLXUInt8 const group[3] = {source_i[0], size_i == 2 ? source_i[1] : PLXUInt8{0}, 0};
  target_o = EncodeGroup(group, target_o);
  target_o[-1] = '=';
  if (size_i == 1) target_o[-2] = '=';
  return target_o;
}

constexpr std::uint64_t EncodedCharacters(std::uint64_t size_i) { return (size_i + 2) / 3 * 4; }

// Lines with the line end between them, none after the last.
std::uint64_t EncodedSize(std::uint64_t size_i, std::size_t lineEndLength_i) {
  return size_i == 0 ? 0 : EncodedCharacters(size_i) + (size_i - 1) / kLineBytes * lineEndLength_i;
}

char* EncodeLines(PLXUInt8 const* source_i, std::size_t size_i, std::string_view lineEnd_i, char* target_o) {
  for (; size_i > kLineBytes; size_i -= kLineBytes, source_i += kLineBytes) {
    target_o = EncodeFullLine(source_i, target_o);
    target_o = Put(lineEnd_i, target_o);
  }
  return EncodeLastLine(source_i, size_i, target_o);
}

// Appends up to `byteCount_i` bytes of the stream; returns how many there were.
std::uint64_t EncodeStream(PLXDataStream& stream_io, std::uint64_t byteCount_i, std::string_view lineEnd_i,
                           PLXString& text_io) {
  PLXUInt8 piece[kPieceBytes];
  std::uint64_t encoded = 0;
  while (encoded < byteCount_i) {
    PLXUInt32 const wanted =
        static_cast<PLXUInt32>(std::min<std::uint64_t>(kPieceBytes, byteCount_i - encoded));
    PLXUInt32 const size = stream_io.GetNextBytes(piece, wanted);
    if (size == 0) break;
    std::string_view const gap = lineEnd_i.substr(0, encoded > 0 ? lineEnd_i.size() : 0);
    std::uint64_t const addition = gap.size() + EncodedSize(size, lineEnd_i.size());
    PLXUInt32 const length = text_io.GetLength();
    text_io.ReserveToAppend(EncodedLength(ourSourceFile, addition));
    char* const target = text_io.ReserveLength(EncodedLength(ourSourceFile, length + addition)) + length;
    EncodeLines(piece, size, lineEnd_i, Put(gap, target));
    encoded += size;
    if (size < wanted) break;
  }
  return encoded;
}

// With a line end after every full line, the last one too.
void EncodeWholeStream(PLXDataStream& stream_io, std::string_view lineEnd_i, PLXString& text_io) {
  std::uint64_t const expectedLength =
      EncodedSize(stream_io.GetExpectedByteCount(), lineEnd_i.size()) + lineEnd_i.size();
  text_io.ReserveToAppend(EncodedLength(ourSourceFile, expectedLength));
  std::uint64_t const size = EncodeStream(stream_io, UINT64_MAX, lineEnd_i, text_io);
  bool const lastLineIsFull = size > 0 && EncodedCharacters(size) % kLineCharacters == 0;
  if (lastLineIsFull) text_io.Append(lineEnd_i.data(), static_cast<PLXUInt32>(lineEnd_i.size()));
}

// The forms that know the length foresee it with a line end after every full line, yet write none after the
// last.
std::uint64_t ForeseenLength(std::uint64_t size_i) {
  std::uint64_t const characters = EncodedCharacters(size_i);
  return characters + characters / kLineCharacters * kDefaultBase64EncodeEOL.size();
}

void CheckLength(PLXUInt32 length_i, std::uint64_t foreseenLength_i) {
  if (length_i != foreseenLength_i) PLXWarnState(ourSourceFile, "outIndex != encodedDataLength");
}

// ---- Base64 decoding ----

// Each of a group's four characters has a table of its own, in which its six bits stand where they belong in
// the group as it lies in memory: three bytes, then one of flags. A group is then four look-ups joined and
// stored.
constexpr int ByteShift(int index_i) {
  return std::endian::native == std::endian::little ? 8 * index_i : 24 - 8 * index_i;
}
constexpr PLXUInt32 kNotPlain = PLXUInt32{1} << ByteShift(3);  // a line end before the group, or "=" in it

typedef std::array<PLXUInt32, 256> DecodeTable;

constexpr std::array<DecodeTable, 4> kRadix64DecTables = [] {
  std::array<DecodeTable, 4> tables{};  // what is not in the alphabet has the value of "A"
  for (int position = 0; position < 4; ++position) {
    DecodeTable& table = tables[static_cast<std::size_t>(position)];
    for (unsigned value = 0; value < 64; ++value) {
      PLXUInt32 const group = static_cast<PLXUInt32>(value) << (18 - 6 * position);
      table[static_cast<unsigned char>(kRadix64EncTable[value])] = (group >> 16 & 255) << ByteShift(0) |
                                                                   (group >> 8 & 255) << ByteShift(1) |
                                                                   (group & 255) << ByteShift(2);
    }
  }
  tables[0]['\r'] = tables[0]['\n'] = tables[2]['='] = tables[3]['='] = kNotPlain;
  return tables;
}();

// One load of four characters, taken apart in a register, spares three.
inline PLXUInt32 DecodeGroup(PLXUInt8 const* source_i) {
  PLXUInt32 characters;
  std::memcpy(&characters, source_i, 4);
  return kRadix64DecTables[0][characters >> ByteShift(0) & 255] |
         kRadix64DecTables[1][characters >> ByteShift(1) & 255] |
         kRadix64DecTables[2][characters >> ByteShift(2) & 255] |
         kRadix64DecTables[3][characters >> ByteShift(3) & 255];
}

// A group with "=" in its third or fourth place.
PLXUInt8* DecodePaddedGroup(PLXUInt8 const* source_i, PLXUInt8* target_o) {
  PLXUInt32 const group = DecodeGroup(source_i);
  *target_o++ = static_cast<PLXUInt8>(group >> ByteShift(0));
  if (source_i[2] != '=') *target_o++ = static_cast<PLXUInt8>(group >> ByteShift(1));
  if (source_i[3] != '=') *target_o++ = static_cast<PLXUInt8>(group >> ByteShift(2));
  return target_o;
}

// Decodes up to the first group that is not plain.
PLXUInt8 const* DecodePlainGroups(PLXUInt8 const* source_i, PLXUInt8 const* end_i, PLXUInt8*& target_io) {
  PLXUInt8* target = target_io;
  while (end_i - source_i >= 4) {
    PLXUInt32 const group = DecodeGroup(source_i);
    if ((group & kNotPlain) != 0) break;
    std::memcpy(target, &group, 4);
    source_i += 4;
    target += 3;
  }
  target_io = target;
  return source_i;
}

// Decodes the whole groups and moves the source to what is left: at most three characters that begin a group.
// One byte more than the decoded ones is overwritten.
PLXUInt8* DecodeGroups(PLXUInt8 const*& source_io, PLXUInt8 const* end_i, PLXUInt8* target_o) {
  PLXUInt8 const* source = source_io;
  while (source != end_i) {
    source = DecodePlainGroups(source, end_i, target_o);
    if (source == end_i) break;
    if (*source == '\r' || *source == '\n') {
      ++source;
    } else if (end_i - source < 4) {
      break;
    } else {
      target_o = DecodePaddedGroup(source, target_o);
      source += 4;
    }
  }
  source_io = source;
  return target_o;
}

// ---- Quoted-printable ----

// The bytes that travel as "=" and two digits: controls but tab and line ends, all above "~", and the
// punctuation that some mail gateways change.
constexpr std::array<bool, 256> kQPCodeTable = [] {
  std::array<bool, 256> flags{};
  for (std::size_t byte = 0; byte < flags.size(); ++byte) flags[byte] = byte < ' ' || byte > '~';
  for (char const character : std::string_view("\t\n\r")) flags[Index(character)] = false;
  for (char const character : std::string_view("!\"#$=@[\\]^_`{|}~")) flags[Index(character)] = true;
  return flags;
}();

// The value of a hexadecimal digit, 0 for any other byte.
constexpr std::array<unsigned char, 256> kHexDecTable = [] {
  std::array<unsigned char, 256> values{};
  for (unsigned char digit = 0; digit < 16; ++digit) {
    values[Index(kHexEncTable[digit])] = values[Index("0123456789abcdef"[digit])] = digit;
  }
  return values;
}();

constexpr unsigned kLastColumn = 72;
constexpr std::string_view kSoftBreak = "=\r\n";
constexpr std::size_t kLongestEncodedByte = 6;  // a soft break and "=" with two digits

// What is written for each byte, of which `length` characters count.
struct QuotedByte {
  char text[3];
  unsigned char length;
};
constexpr std::array<QuotedByte, 256> kQuotedBytes = [] {
  std::array<QuotedByte, 256> quoted{};
  for (std::size_t byte = 0; byte < quoted.size(); ++byte) {
    quoted[byte] = {{static_cast<char>(byte)}, 1};
    if (kQPCodeTable[byte]) quoted[byte] = {{'=', kHexEncTable[byte >> 4], kHexEncTable[byte & 15]}, 3};
  }
  return quoted;
}();

// Writes on behind `target_io`, with room for kLongestEncodedByte characters for each byte. `start_i` is
// where the whole text starts, `column_io` where its last line is.
void QuotePiece(std::string_view piece_i, char const* start_i, char*& target_io, unsigned& column_io) {
  char* target = target_io;
  unsigned column = column_io;
  for (char const character : piece_i) {
    if (column > kLastColumn) {
      target = Put(kSoftBreak, target);
      column = 0;
    }
    if (character == '\r' || character == '\n') {
      bool const isBehindBlank = target != start_i && (target[-1] == ' ' || target[-1] == '\t');
      if (isBehindBlank) target = Put(kSoftBreak, target);
      *target++ = character;
      column = 0;
      continue;
    }
    // Always four bytes: which bytes are escaped is nothing a processor could foresee.
    QuotedByte const& quoted = kQuotedBytes[Index(character)];
    std::memcpy(target, &quoted, sizeof quoted);
    target += quoted.length;
    column += quoted.length;
  }
  target_io = target;
  column_io = column;
}

// Copies one line without its end, each "=" with the two digits after it as a byte. Where escapes are dense
// the few bytes between two are copied one by one, which costs less than to look for the next.
char* DecodeQuotedLine(std::string_view line_i, char* target_o) {
  constexpr std::ptrdiff_t kFewBytes = 4;
  char const* source = line_i.data();
  char const* const end = source + line_i.size();
  for (;;) {
    std::string_view const rest(source, end);
    std::string_view const plain = rest.substr(0, rest.find('='));
    target_o = Put(plain, target_o);
    source += plain.size();
    while (source != end && *source == '=') {
      if (end - source < 3) return Put({source, end}, target_o);
      *target_o++ = static_cast<char>(kHexDecTable[Index(source[1])] << 4 | kHexDecTable[Index(source[2])]);
      source += 3;
      char const* const fewEnd = source + std::min(kFewBytes, end - source);
      while (source != fewEnd && *source != '=') *target_o++ = *source++;
    }
    if (source == end) return target_o;
  }
}

}  // namespace

// ---- Base64 ----

PLXString PLXCryptor::Base64Encode(PLXDataStream& stream_io, PLXString const& lineEnd_i) {
  PLXString text;
  EncodeWholeStream(stream_io, View(lineEnd_i), text);
  return text;
}

PLXString PLXCryptor::Base64Encode(PLXDataStream& stream_io) {
  PLXString text;
  AppendBase64(stream_io, text);
  return text;
}

PLXString PLXCryptor::Base64Encode(PLXDataStream& stream_io, PLXUInt32 byteCount_i) {
  PLXString text;
  AppendBase64(stream_io, byteCount_i, text);
  return text;
}

void PLXCryptor::AppendBase64(PLXDataStream& stream_io, PLXString& text_io) {
  EncodeWholeStream(stream_io, kDefaultBase64EncodeEOL, text_io);
}

void PLXCryptor::AppendBase64(PLXDataStream& stream_io, PLXUInt32 byteCount_i, PLXString& text_io) {
  std::uint64_t const foreseenLength = ForeseenLength(byteCount_i);
  PLXUInt32 const length = text_io.GetLength();
  text_io.ReserveToAppend(static_cast<PLXUInt32>(std::min(foreseenLength, kBelievedLength)));
  EncodeStream(stream_io, byteCount_i, kDefaultBase64EncodeEOL, text_io);
  CheckLength(text_io.GetLength() - length, foreseenLength);
}

PLXString PLXCryptor::Base64Encode(PLXBuffer const& data_i) {
  PLXUInt32 const size = data_i.GetSize();
  PLXString text;
  char* const target =
      text.ReserveLength(EncodedLength(ourSourceFile, EncodedSize(size, kDefaultBase64EncodeEOL.size())));
  EncodeLines(static_cast<PLXUInt8 const*>(data_i.GetAddress()), size, kDefaultBase64EncodeEOL, target);
  CheckLength(text.GetLength(), ForeseenLength(size));
  return text;
}

void PLXCryptor::Base64Decode(PLXDataStream& stream_io, PLXBuffer& data_o) {
  constexpr std::uint64_t kFirstSize = 128;
  constexpr PLXUInt32 kPieceCharacters = 8192;
  // A buffer of its own, since the stream may read from the one that is to be filled.
  std::uint64_t const expectedSize = std::uint64_t{stream_io.GetExpectedByteCount()} / 4 * 3 + 4;
  PLXBuffer data(static_cast<PLXUInt32>(std::max(kFirstSize, expectedSize)));
  std::uint64_t size = 0;
  PLXUInt8 piece[kPieceCharacters];
  PLXUInt32 carried = 0;  // characters of a group that the last piece began
  for (;;) {
    PLXUInt32 const read = stream_io.GetNextBytes(piece + carried, kPieceCharacters - carried);
    if (read == 0) break;
    PLXUInt32 const available = carried + read;
    std::uint64_t const needed = size + available / 4 * 3 + 1;
    if (needed > data.GetSize()) {
      std::uint64_t const doubled =
          std::min<std::uint64_t>(2 * std::uint64_t{data.GetSize()}, kPLXWholeLength - 1);
      data.SetSize(EncodedLength(ourSourceFile, std::max(needed, doubled)), PLXBuffer::kKeep);
    }
    PLXUInt8* const start = static_cast<PLXUInt8*>(data.GetAddress());
    PLXUInt8 const* source = piece;
    size = static_cast<std::uint64_t>(DecodeGroups(source, piece + available, start + size) - start);
    carried = static_cast<PLXUInt32>(piece + available - source);
    std::memmove(piece, source, carried);
  }
  data.SetSize(static_cast<PLXUInt32>(size));
  data_o = std::move(data);
}

void PLXCryptor::Base64Decode(PLXDataStream& stream_io, PLXString const&, PLXBuffer& data_o) {
  Base64Decode(stream_io, data_o);
}

// ---- Quoted-printable ----

PLXString PLXCryptor::QuotedPrintableEncode(PLXString const& text_i) {
  constexpr std::size_t kPieceLength = 4096;
  std::string_view const source = View(text_i);
  unsigned column = 0;
  PLXString encoded;
  for (std::size_t offset = 0; offset < source.size(); offset += kPieceLength) {
    std::string_view const piece = source.substr(offset, kPieceLength);
    PLXUInt32 const length = encoded.GetLength();
    PLXUInt32 const room = static_cast<PLXUInt32>(piece.size() * kLongestEncodedByte);
    encoded.ReserveToAppend(room);
    char* const start = encoded.ReserveLength(EncodedLength(ourSourceFile, std::uint64_t{length} + room));
    char* target = start + length;
    QuotePiece(piece, start, target, column);
    encoded.ReserveLength(static_cast<PLXUInt32>(target - start));
  }
  return encoded;
}

PLXString PLXCryptor::QuotedPrintableDecode(PLXString const& text_i) {
  constexpr std::string_view kLineEnd = "\r\n";
  std::string_view source = View(text_i);
  PLXString decoded;
  char* const start = decoded.ReserveLength(text_i.GetLength());
  char* target = start;
  for (bool isLast = false; !isLast;) {
    std::size_t const lineLength = std::min(source.find(kLineEnd), source.size());
    isLast = lineLength == source.size();
    std::string_view const line = source.substr(0, lineLength);
    std::string_view content = line.substr(0, line.find_last_not_of(" \t\r\n") + 1);
    bool const isJoined = !content.empty() && content.back() == '=';
    if (isJoined) content.remove_suffix(1);
    target = DecodeQuotedLine(content, target);
    if (!isJoined && !isLast) target = Put(kLineEnd, target);
    source.remove_prefix(isLast ? lineLength : lineLength + kLineEnd.size());
  }
  decoded.ReserveLength(static_cast<PLXUInt32>(target - start));
  return decoded;
}
