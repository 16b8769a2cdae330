#include "PLXForms.h"

#include <algorithm>
#include <cstring>

#include "PLXASCII.h"

namespace {

// RFC 2046 allows 70 characters; some clients make longer ones, nobody needs more than this.
constexpr std::size_t kMultipartBoundary_Longest = 200;
// The header of one part: a few short lines. What is longer is no form.
constexpr std::size_t kMultipartHeader_Longest = 16u << 10;

int HexDigit(char c_i) {
  if (c_i >= '0' && c_i <= '9') return c_i - '0';
  if (c_i >= 'a' && c_i <= 'f') return c_i - 'a' + 10;
  if (c_i >= 'A' && c_i <= 'F') return c_i - 'A' + 10;
  return -1;
}

// The byte of an escape "%XX" at `at_i`, or -1 when there is none.
int EscapedByte(std::string_view text_i, std::size_t at_i) {
  if (at_i + 2 >= text_i.size() || text_i[at_i] != '%') return -1;
  int const high = HexDigit(text_i[at_i + 1]);
  int const low = HexDigit(text_i[at_i + 2]);
  return high < 0 || low < 0 ? -1 : high * 16 + low;
}

std::string DecodeArgument(std::string_view text_i) {
  std::string result;
  result.reserve(text_i.size());
  for (std::size_t at = 0; at < text_i.size(); ++at) {
    int const byte = EscapedByte(text_i, at);
    if (byte >= 0) {
      result += static_cast<char>(byte);
      at += 2;
    } else {
      result += text_i[at] == '+' ? ' ' : text_i[at];
    }
  }
  return result;
}

std::string_view Trimmed(std::string_view text_i) {
  std::size_t const first = text_i.find_first_not_of(" \t");
  if (first == text_i.npos) return {};
  return text_i.substr(first, text_i.find_last_not_of(" \t") - first + 1);
}

bool IsControl(char c_i) { return static_cast<unsigned char>(c_i) < 0x20 || c_i == 0x7f; }

// Where `what_i` begins in `text_i` at or after `from_i`, which is not beyond its end. memmem is linear,
// whatever the text repeats.
std::size_t Find(std::string_view text_i, std::string_view what_i, std::size_t from_i) {
  void const* const found =
      memmem(text_i.data() + from_i, text_i.size() - from_i, what_i.data(), what_i.size());
  return found ? static_cast<std::size_t>(static_cast<char const*>(found) - text_i.data()) : text_i.npos;
}

// Takes the first piece up to `separator_i` off `rest_io`.
std::string_view NextPiece(std::string_view& rest_io, char separator_i) {
  std::size_t const end = rest_io.find(separator_i);
  std::string_view const piece = rest_io.substr(0, end);
  rest_io = end == rest_io.npos ? std::string_view{} : rest_io.substr(end + 1);
  return piece;
}

// The content of a quoted-string that begins at `at_io`, which is left behind its closing quote. Only a quote
// and a backslash can be escaped: old browsers send whole Windows paths and escape nothing in them.
std::string TakeQuoted(std::string_view text_i, std::size_t& at_io) {
  std::string result;
  for (++at_io; at_io < text_i.size() && text_i[at_io] != '"'; ++at_io) {
    bool const escaped = text_i[at_io] == '\\' && at_io + 1 < text_i.size() &&
                         (text_i[at_io + 1] == '"' || text_i[at_io + 1] == '\\');
    if (escaped) ++at_io;
    result += text_i[at_io];
  }
  if (at_io < text_i.size()) ++at_io;
  return result;
}

// The parameters of a header value, "kind; name=value; name="quoted value"", names in lower case.
std::vector<PLXNameValue> Parameters(std::string_view header_i) {
  std::vector<PLXNameValue> result;
  std::size_t at = header_i.find(';');
  while (at < header_i.size()) {
    std::size_t const equals = header_i.find_first_of("=;", ++at);
    if (equals == header_i.npos) break;
    if (header_i[equals] == ';') {
      at = equals;
      continue;
    }
    PLXNameValue parameter;
    for (char c : Trimmed(header_i.substr(at, equals - at))) parameter.name += LowerASCII(c);
    at = header_i.find_first_not_of(" \t", equals + 1);
    if (at != header_i.npos && header_i[at] == '"') {
      parameter.value = TakeQuoted(header_i, at);
      at = header_i.find(';', at);
    } else {
      std::size_t const end = header_i.find(';', equals);
      parameter.value = Trimmed(header_i.substr(equals + 1, end - equals - 1));
      at = end;
    }
    result.push_back(std::move(parameter));
  }
  return result;
}

// Browsers write a quote and a line break in a name as %22, %0D and %0A (HTML, "multipart/form-data
// encoding") and leave every other percent sign as it is, so only these three are taken off. No control
// character stays.
std::string CleanName(std::string_view name_i) {
  std::string result;
  for (std::size_t at = 0; at < name_i.size(); ++at) {
    int const byte = EscapedByte(name_i, at);
    if (byte == '"' || byte == '\r' || byte == '\n') {
      if (byte == '"') result += '"';
      at += 2;
    } else if (!IsControl(name_i[at])) {
      result += name_i[at];
    }
  }
  return result;
}

// A file's name without its folder, whichever way the client's system writes folders.
std::string FileName(std::string_view name_i) {
  std::string name = CleanName(name_i);
  name.erase(0, name.find_last_of("/\\") + 1);
  if (name == "." || name == "..") name.clear();
  return name;
}

struct PartHeader {
  std::string name;
  bool hasName = false;
  std::string fileName;
  bool isFile = false;
};

void ReadDisposition(std::string_view value_i, PartHeader& part_io) {
  for (PLXNameValue const& parameter : Parameters(value_i)) {
    if (parameter.name == "name") {
      part_io.name = CleanName(parameter.value);
      part_io.hasName = true;
    } else if (parameter.name == "filename") {
      part_io.fileName = FileName(parameter.value);
      part_io.isFile = true;
    } else if (parameter.name == "filename*" && !part_io.isFile) {
      // RFC 8187: charset'language'escaped text.
      std::size_t const quote = parameter.value.rfind('\'');
      std::string_view const text = std::string_view(parameter.value).substr(quote + 1);
      part_io.fileName = FileName(DecodePath(text).value_or(std::string(text)));
      part_io.isFile = true;
    }
  }
}

PartHeader ReadPartHeader(std::string_view header_i) {
  PartHeader part;
  while (!header_i.empty()) {
    std::string_view line = NextPiece(header_i, '\n');
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    std::size_t const colon = line.find(':');
    if (colon != line.npos && EqualIgnoringCase(Trimmed(line.substr(0, colon)), "content-disposition")) {
      ReadDisposition(line.substr(colon + 1), part);
    }
  }
  return part;
}

std::string Boundary(std::string_view contentType_i) {
  for (PLXNameValue& parameter : Parameters(contentType_i)) {
    if (parameter.name == "boundary") return std::move(parameter.value);
  }
  return {};
}

// A line that divides parts: where the text before it ends and the text behind it begins.
struct Divider {
  std::size_t begin;
  std::size_t end;
  bool isLast;
};

// Finds the next divider. `mark_i` is CR LF "--" boundary; only blanks and a line end may follow it, or "--",
// so a longer text that begins like the boundary stays content.
std::optional<Divider> FindDivider(std::string_view body_i, std::string_view mark_i, std::size_t from_i) {
  for (std::size_t at = from_i; (at = Find(body_i, mark_i, at)) != body_i.npos; ++at) {
    std::size_t end = at + mark_i.size();
    if (body_i.substr(end, 2) == "--") return Divider{at, end + 2, true};
    while (end < body_i.size() && (body_i[end] == ' ' || body_i[end] == '\t')) ++end;
    if (body_i.substr(end, 2) == "\r\n") return Divider{at, end + 2, false};
  }
  return std::nullopt;
}

// The first divider may stand at the very beginning, without the line break that belongs to every other one.
std::optional<Divider> FindFirstDivider(std::string_view body_i, std::string_view mark_i) {
  std::string_view const atStart = mark_i.substr(2);
  if (body_i.starts_with(atStart)) {
    std::optional<Divider> first = FindDivider(body_i, atStart, 0);
    if (first && first->begin == 0) return first;
  }
  return FindDivider(body_i, mark_i, 0);
}

int Base64Digit(char c_i) {
  if (c_i >= 'A' && c_i <= 'Z') return c_i - 'A';
  if (c_i >= 'a' && c_i <= 'z') return c_i - 'a' + 26;
  if (c_i >= '0' && c_i <= '9') return c_i - '0' + 52;
  if (c_i == '+') return 62;
  if (c_i == '/') return 63;
  return -1;
}

// Padding may be missing, as some clients leave it off; anything else that is no Base64 (RFC 4648) gives
// none.
std::optional<std::string> DecodeBase64(std::string_view text_i) {
  std::size_t const padding = text_i.size() - (text_i.find_last_not_of('=') + 1);
  if (padding > 2 || (padding > 0 && text_i.size() % 4 != 0)) return std::nullopt;
  text_i.remove_suffix(padding);
  if (text_i.size() % 4 == 1) return std::nullopt;

  std::string result;
  result.reserve(text_i.size() / 4 * 3 + 2);
  unsigned bits = 0;
  unsigned count = 0;
  for (char c : text_i) {
    int const digit = Base64Digit(c);
    if (digit < 0) return std::nullopt;
    bits = (bits << 6 | static_cast<unsigned>(digit)) & 0xffff;
    count += 6;
    if (count >= 8) {
      count -= 8;
      result += static_cast<char>(bits >> count & 0xff);
    }
  }
  if (bits & ((1u << count) - 1)) return std::nullopt;
  return result;
}

}  // namespace

std::optional<std::vector<PLXNameValue>> ParseURLEncoded(std::string_view text_i, std::size_t fields_i) {
  std::vector<PLXNameValue> result;
  while (!text_i.empty()) {
    std::string_view const piece = NextPiece(text_i, '&');
    if (piece.empty()) continue;
    if (result.size() == fields_i) return std::nullopt;
    std::size_t const equals = piece.find('=');
    std::string_view const value = equals == piece.npos ? std::string_view{} : piece.substr(equals + 1);
    result.push_back({DecodeArgument(piece.substr(0, equals)), DecodeArgument(value)});
  }
  return result;
}

std::optional<std::vector<PLXNameValue>> ParseMultipart(std::string_view body_i,
                                                        std::string_view contentType_i,
                                                        std::size_t fields_i) {
  std::string const boundary = Boundary(contentType_i);
  if (boundary.empty() || boundary.size() > kMultipartBoundary_Longest) return std::nullopt;
  std::string const mark = "\r\n--" + boundary;

  std::vector<PLXNameValue> result;
  std::size_t parts = 0;
  std::optional<Divider> divider = FindFirstDivider(body_i, mark);
  while (divider && !divider->isLast) {
    if (++parts > fields_i) return std::nullopt;
    // A part without a header begins with the empty line itself, whose line break is the divider's own.
    std::size_t const begin = divider->end - 2;
    std::size_t const blank = Find(body_i.substr(0, begin + kMultipartHeader_Longest), "\r\n\r\n", begin);
    if (blank == body_i.npos) return std::nullopt;
    std::size_t const content = blank + 4;
    // The empty line's break may be the one of an empty part's divider.
    divider = FindDivider(body_i, mark, content - 2);
    if (!divider) return std::nullopt;

    PartHeader const header = ReadPartHeader(body_i.substr(begin, blank - begin));
    if (!header.hasName) continue;
    std::string_view value = header.fileName;
    if (!header.isFile) value = body_i.substr(content, std::max(divider->begin, content) - content);
    result.push_back({header.name, std::string(value)});
  }
  if (!divider) return std::nullopt;
  return result;
}

std::vector<PLXNameValue> ParseCookies(std::string_view header_i) {
  std::vector<PLXNameValue> result;
  while (!header_i.empty()) {
    std::string_view const piece = NextPiece(header_i, ';');
    std::size_t const equals = piece.find('=');
    if (equals == piece.npos) continue;
    std::string_view const name = Trimmed(piece.substr(0, equals));
    std::string_view value = Trimmed(piece.substr(equals + 1));
    if (name.empty()) continue;
    if (value.size() >= 2 && value.front() == '"' && value.back() == '"')
      value = value.substr(1, value.size() - 2);
    result.push_back({std::string(name), std::string(value)});
  }
  return result;
}

std::optional<std::pair<std::string, std::string>> ParseBasic(std::string_view header_i) {
  std::size_t const blank = header_i.find(' ');
  if (blank == header_i.npos || !EqualIgnoringCase(header_i.substr(0, blank), "basic")) return std::nullopt;
  std::optional<std::string> const text = DecodeBase64(Trimmed(header_i.substr(blank)));
  if (!text) return std::nullopt;
  // RFC 7617 has no control characters in either; a line break in a password could end up in a header of
  // ours.
  for (char c : *text) {
    if (IsControl(c)) return std::nullopt;
  }
  std::size_t const colon = text->find(':');
  if (colon == text->npos) return std::nullopt;
  return std::pair(text->substr(0, colon), text->substr(colon + 1));
}

std::optional<std::string> DecodePath(std::string_view text_i) {
  std::string result;
  result.reserve(text_i.size());
  for (std::size_t at = 0; at < text_i.size(); ++at) {
    if (text_i[at] != '%') {
      result += text_i[at];
      continue;
    }
    int const byte = EscapedByte(text_i, at);
    if (byte < 0) return std::nullopt;
    result += static_cast<char>(byte);
    at += 2;
  }
  return result;
}

std::string NormalizePath(std::string_view path_i) {
  std::string result = "/";  // always ends with "/" until the last segment is added
  while (!path_i.empty()) {
    bool const isLast = path_i.find('/') == path_i.npos;
    std::string_view const segment = NextPiece(path_i, '/');
    if (segment.empty() || segment == ".") continue;
    if (segment == "..") {
      if (result.size() > 1) result.erase(result.rfind('/', result.size() - 2) + 1);
      continue;
    }
    result += segment;
    if (!isLast) result += '/';
  }
  return result;
}
