#include "PLXStringUtility.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>
#include <utility>

#include "PLXEncodedLength.h"

// Encoders count the result first and write it in one pass. Decoders never lengthen a text, so they work
// within it: what is read always lies at or beyond what is written.

namespace {

char const ourSourceFile[] = "src/PLXStringUtility.cpp";

constexpr char kHexDigit[] = "0123456789ABCDEF";

constexpr std::size_t Index(char character_i) { return static_cast<unsigned char>(character_i); }

// The value of a hexadecimal digit, -1 for any other byte.
constexpr std::array<short, 256> kHexValue = [] {
  std::array<short, 256> values{};
  values.fill(-1);
  for (int digit = 0; digit < 16; ++digit) {
    char const capital = "0123456789ABCDEF"[digit];
    char const small = "0123456789abcdef"[digit];
    values[Index(capital)] = values[Index(small)] = static_cast<short>(digit);
  }
  return values;
}();

// ---- URLs ----

// What is written for each byte, of which `length` characters count.
struct URLByte {
  char text[3];
  unsigned char length;
};

consteval std::array<URLByte, 256> EncodeURLBytes(std::string_view encoded_i) {
  std::array<URLByte, 256> bytes{};
  for (std::size_t byte = 0; byte < bytes.size(); ++byte) bytes[byte] = {{static_cast<char>(byte)}, 1};
  for (char const character : encoded_i) {
    std::size_t const byte = Index(character);
    bytes[byte] = {{'%', kHexDigit[byte >> 4], kHexDigit[byte & 15]}, 3};
  }
  return bytes;
}

constexpr std::array<URLByte, 256> kURLBytes = EncodeURLBytes(" \"#$%&+;<=>?@[\\]^`{|}");
constexpr std::array<URLByte, 256> kURLBytesOfAll = EncodeURLBytes(" \"#$%&+;<=>?@[\\]^`{|}/:~");

// ---- Backslash escapes ----

struct Escape {
  char letter;
  char character;
};
constexpr Escape kEscapes[] = {{'t', '\t'}, {'n', '\n'}, {'v', '\v'}, {'r', '\r'}, {'\\', '\\'}};

// Indexed by the character, the letter that stands for it; indexed by the letter, the character. 0 for all
// others.
constexpr std::array<char, 256> kEscapeLetter = [] {
  std::array<char, 256> letters{};
  for (Escape const& escape : kEscapes) letters[Index(escape.character)] = escape.letter;
  return letters;
}();
constexpr std::array<char, 256> kEscapedCharacter = [] {
  std::array<char, 256> characters{};
  for (Escape const& escape : kEscapes) characters[Index(escape.letter)] = escape.character;
  return characters;
}();

// Whether three decimal digits of which the first is at most 2 follow; their value modulo 256.
bool ReadNumberEscape(char const* digits_i, char const* end_i, char& character_o) {
  if (end_i - digits_i < 3 || digits_i[0] < '0' || digits_i[0] > '2') return false;
  if (!PLXStringUtility::IsDigit(digits_i[1]) || !PLXStringUtility::IsDigit(digits_i[2])) return false;
  int const value = 100 * (digits_i[0] - '0') + 10 * (digits_i[1] - '0') + (digits_i[2] - '0');
  character_o = static_cast<char>(static_cast<unsigned char>(value));
  return true;
}

// ---- Rules for IP addresses ----

std::string_view View(PLXString const& string_i) {
  return {string_i.GetCStringAccess(), string_i.GetLength()};
}

std::string_view Trimmed(std::string_view text_i) {
  std::size_t const first = text_i.find_first_not_of(" \t\r\n");
  if (first == std::string_view::npos) return {};
  return text_i.substr(first, text_i.find_last_not_of(" \t\r\n") - first + 1);
}

bool EqualIgnoringCase(std::string_view left_i, std::string_view right_i) {
  if (left_i.size() != right_i.size()) return false;
  for (std::size_t index = 0; index < left_i.size(); ++index) {
    if (PLXString::Uppercase(static_cast<unsigned char>(left_i[index])) !=
        PLXString::Uppercase(static_cast<unsigned char>(right_i[index]))) {
      return false;
    }
  }
  return true;
}

typedef std::array<std::string_view, 4> AddressParts;

// False unless the text is exactly four parts between points; a part may be empty.
bool CutAddress(std::string_view text_i, AddressParts& parts_o) {
  for (std::size_t part = 0; part < 4; ++part) {
    std::size_t const point = text_i.find('.');
    if ((point == std::string_view::npos) != (part == 3)) return false;
    parts_o[part] = text_i.substr(0, point);
    text_i.remove_prefix(part == 3 ? text_i.size() : point + 1);
  }
  return true;
}

// How closely a pattern fits an address: the first part weighs 8, the last 1, "*" nothing. -1 when it does
// not fit.
int ScorePattern(AddressParts const& pattern_i, AddressParts const& address_i) {
  int score = 0;
  for (std::size_t part = 0; part < 4; ++part) {
    if (pattern_i[part] == "*") continue;
    if (!EqualIgnoringCase(pattern_i[part], address_i[part])) return -1;
    score |= 8 >> part;
  }
  return score;
}

}  // namespace

bool PLXStringUtility::URLEncode(PLXString& string_io, bool encodeAll_i) {
  std::array<URLByte, 256> const& bytes = encodeAll_i ? kURLBytesOfAll : kURLBytes;
  std::string_view const source = View(string_io);
  std::uint64_t length = 0;
  for (char const character : source) length += bytes[Index(character)].length;
  if (length == source.size()) return false;

  PLXString encoded;
  char* target = encoded.ReserveLength(EncodedLength(ourSourceFile, length));
  char const* const end = target + length;
  char const* current = source.data();
  // While there is room, all four bytes are copied whatever counts of them, which asks no branch of the
  // processor.
  for (; end - target >= static_cast<std::ptrdiff_t>(sizeof(URLByte)); ++current) {
    URLByte const& byte = bytes[Index(*current)];
    std::memcpy(target, &byte, sizeof byte);
    target += byte.length;
  }
  for (; target != end; ++current) {
    URLByte const& byte = bytes[Index(*current)];
    target = std::copy_n(byte.text, byte.length, target);
  }
  string_io = std::move(encoded);
  return true;
}

PLXString PLXStringUtility::GetURLEncodedString(PLXString const& string_i, bool encodeAll_i) {
  PLXString encoded(string_i);
  URLEncode(encoded, encodeAll_i);
  return encoded;
}

bool PLXStringUtility::URLDecode(PLXString& string_io) {
  PLXUInt32 const length = string_io.GetLength();
  char const* const source = string_io.GetCStringAccess();
  if (std::memchr(source, '%', length) == nullptr && std::memchr(source, '+', length) == nullptr)
    return false;

  char* const text = string_io.ReserveLength(length);
  char* const end = text + length;
  char* target = end;  // what is decoded so far, from here to the end
  bool decoded = false;
  for (char const* current = end; current != text;) {
    char character = *--current;
    if (character == '+') {
      character = ' ';
      decoded = true;
    } else if (character == '%' && end - target >= 2) {
      int const high = kHexValue[Index(target[0])];
      int const low = kHexValue[Index(target[1])];
      if (high >= 0 && low >= 0) {
        character = static_cast<char>(static_cast<unsigned char>(high << 4 | low));
        target += 2;
        decoded = true;
      }
    }
    *--target = character;
  }
  PLXUInt32 const decodedLength = static_cast<PLXUInt32>(end - target);
  std::memmove(text, target, decodedLength);
  string_io.ReserveLength(decodedLength);
  return decoded;
}

PLXString PLXStringUtility::GetURLDecodedString(PLXString const& string_i) {
  PLXString decoded(string_i);
  URLDecode(decoded);
  return decoded;
}

void PLXStringUtility::EscapeString(PLXString& string_io) {
  std::string_view const source = View(string_io);
  std::uint64_t escapedCount = 0;
  for (char const character : source) escapedCount += kEscapeLetter[Index(character)] != 0;
  if (escapedCount == 0) return;

  PLXString escaped;
  char* target = escaped.ReserveLength(EncodedLength(ourSourceFile, source.size() + escapedCount));
  for (char const character : source) {
    char const letter = kEscapeLetter[Index(character)];
    if (letter != 0) *target++ = '\\';
    *target++ = letter != 0 ? letter : character;
  }
  string_io = std::move(escaped);
}

PLXString PLXStringUtility::GetEscapedString(PLXString const& string_i) {
  PLXString escaped(string_i);
  EscapeString(escaped);
  return escaped;
}

void PLXStringUtility::UnescapeString(PLXString& string_io, bool decodeNumbers_i) {
  PLXUInt32 const length = string_io.GetLength();
  if (std::memchr(string_io.GetCStringAccess(), '\\', length) == nullptr) return;

  char* const text = string_io.ReserveLength(length);
  char const* const end = text + length;
  char* target = text;
  for (char const* current = text; current != end;) {
    // A plain run moves as a whole; it ends at a backslash with a character behind it.
    void const* const found = std::memchr(current, '\\', static_cast<std::size_t>(end - current));
    char const* const backslash = found != nullptr ? static_cast<char const*>(found) : end;
    std::memmove(target, current, static_cast<std::size_t>(backslash - current));
    target += backslash - current;
    current = backslash;
    if (current == end) break;
    char character = '\\';
    if (end - current >= 2 && kEscapedCharacter[Index(current[1])] != 0) {
      character = kEscapedCharacter[Index(current[1])];
      current += 2;
    } else if (decodeNumbers_i && ReadNumberEscape(current + 1, end, character)) {
      current += 4;
    } else {
      current += 1;
    }
    *target++ = character;
  }
  string_io.ReserveLength(static_cast<PLXUInt32>(target - text));
}

PLXString PLXStringUtility::GetUnescapedString(PLXString const& string_i, bool decodeNumbers_i) {
  PLXString unescaped(string_i);
  UnescapeString(unescaped, decodeNumbers_i);
  return unescaped;
}

PLXString PLXStringUtility::GetHexCodesFromString(PLXString const& string_i) {
  std::string_view const source = View(string_i);
  PLXString codes;
  char* target = codes.ReserveLength(EncodedLength(ourSourceFile, 2 * std::uint64_t{source.size()}));
  for (char const character : source) {
    *target++ = kHexDigit[Index(character) >> 4];
    *target++ = kHexDigit[Index(character) & 15];
  }
  return codes;
}

PLXString PLXStringUtility::GetStringFromHexCodes(PLXString const& string_i) {
  char const* source = string_i.GetCStringAccess();
  PLXUInt32 const byteCount = string_i.GetLength() / 2;
  PLXString bytes;
  char* const target = bytes.ReserveLength(byteCount);
  for (PLXUInt32 index = 0; index < byteCount; ++index, source += 2) {
    int const high = kHexValue[Index(source[0])];
    int const low = kHexValue[Index(source[1])];
    target[index] =
        static_cast<char>(static_cast<unsigned char>((high < 0 ? 0 : high) << 4 | (low < 0 ? 0 : low)));
  }
  return bytes;
}

bool PLXStringUtility::ValidateIP(PLXString const& address_i, PLXTokenizedString const& rules_i,
                                  PLXString* matchedPattern_o) {
  if (matchedPattern_o != nullptr) matchedPattern_o->Empty();
  AddressParts address;
  if (!CutAddress(View(address_i), address)) return false;
  for (std::string_view const part : address) {
    if (part == "*") return false;
  }

  int bestScore = -1;
  bool bestAllows = false;
  for (PLXUInt32 index = 0; index < rules_i.GetTokenCount(); ++index) {
    PLXString const token = rules_i.GetToken(index);
    std::string_view const rule = View(token);
    std::size_t const colon = rule.find(':');
    if (colon == std::string_view::npos) continue;
    std::string_view const action = Trimmed(rule.substr(0, colon));
    std::string_view const pattern = Trimmed(rule.substr(colon + 1));
    AddressParts patternParts;
    if (!CutAddress(pattern, patternParts)) continue;
    int const score = ScorePattern(patternParts, address);
    bool const winsTie = score == bestScore && bestAllows && EqualIgnoringCase(action, "d");
    if (score < 0 || (score <= bestScore && !winsTie)) continue;
    bestScore = score;
    bestAllows = EqualIgnoringCase(action, "a");
    if (matchedPattern_o != nullptr) {
      matchedPattern_o->Assign(pattern.data(), static_cast<PLXUInt32>(pattern.size()));
    }
  }
  return bestAllows;
}
