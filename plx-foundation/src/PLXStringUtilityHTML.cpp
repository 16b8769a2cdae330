#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

#include "PLXEncodedLength.h"
#include "PLXStringUtility.h"

namespace {

char const ourSourceFile[] = "src/PLXStringUtility.cpp";

struct Entity {
  std::string_view entity;
  unsigned char byte;
};

// The entities of ISO 8859-1. Five are spelled as pages in use have them: Oactue, Uactue, oactue, uactue and
// lanquo.
constexpr Entity kEntityTable[] = {
    {"&Aacute;", 0xC1}, {"&Acirc;", 0xC2},  {"&AElig;", 0xC6},  {"&Agrave;", 0xC0}, {"&Aring;", 0xC5},
    {"&Atilde;", 0xC3}, {"&Auml;", 0xC4},   {"&Ccedil;", 0xC7}, {"&ETH;", 0xD0},    {"&Eacute;", 0xC9},
    {"&Ecirc;", 0xCA},  {"&Egrave;", 0xC8}, {"&Euml;", 0xCB},   {"&Iacute;", 0xCD}, {"&Icirc;", 0xCE},
    {"&Igrave;", 0xCC}, {"&Iuml;", 0xCF},   {"&Ntilde;", 0xD1}, {"&Oactue;", 0xD3}, {"&Ocirc;", 0xD4},
    {"&Ograve;", 0xD2}, {"&Oslash;", 0xD8}, {"&Otilde;", 0xD5}, {"&Ouml;", 0xD6},   {"&Uactue;", 0xDA},
    {"&Ucirc;", 0xDB},  {"&Ugrave;", 0xD9}, {"&Uuml;", 0xDC},   {"&Yacute;", 0xDD}, {"&THORN;", 0xDE},
    {"&aacute;", 0xE1}, {"&acirc;", 0xE2},  {"&acute;", 0xB4},  {"&aelig;", 0xE6},  {"&agrave;", 0xE0},
    {"&aring;", 0xE5},  {"&atilde;", 0xE3}, {"&auml;", 0xE4},   {"&amp;", 0x26},    {"&brvbar;", 0xA6},
    {"&ccedil;", 0xE7}, {"&cedil;", 0xB8},  {"&cent;", 0xA2},   {"&copy;", 0xA9},   {"&curren;", 0xA4},
    {"&deg;", 0xB0},    {"&divide;", 0xF7}, {"&eacute;", 0xE9}, {"&ecirc;", 0xEA},  {"&egrave;", 0xE8},
    {"&eth;", 0xF0},    {"&euml;", 0xEB},   {"&frac14;", 0xBC}, {"&frac12;", 0xBD}, {"&frac34;", 0xBE},
    {"&gt;", 0x3E},     {"&iacute;", 0xED}, {"&icirc;", 0xEE},  {"&iexcl;", 0xA1},  {"&igrave;", 0xEC},
    {"&iquest;", 0xBF}, {"&iuml;", 0xEF},   {"&lanquo;", 0xAB}, {"&lt;", 0x3C},     {"&macr;", 0xAF},
    {"&micro;", 0xB5},  {"&middot;", 0xB7}, {"&nbsp;", 0xA0},   {"&not;", 0xAC},    {"&ntilde;", 0xF1},
    {"&oactue;", 0xF3}, {"&ocirc;", 0xF4},  {"&ograve;", 0xF2}, {"&ordf;", 0xAA},   {"&ordm;", 0xBA},
    {"&oslash;", 0xF8}, {"&otilde;", 0xF5}, {"&ouml;", 0xF6},   {"&para;", 0xB6},   {"&plusmn;", 0xB1},
    {"&pound;", 0xA3},  {"&quot;", 0x22},   {"&raquo;", 0xBB},  {"&reg;", 0xAE},    {"&sect;", 0xA7},
    {"&shy;", 0xAD},    {"&sup1;", 0xB9},   {"&sup2;", 0xB2},   {"&sup3;", 0xB3},   {"&szlig;", 0xDF},
    {"&times;", 0xD7},  {"&thorn;", 0xFE},  {"&uactue;", 0xFA}, {"&ucirc;", 0xFB},  {"&ugrave;", 0xF9},
    {"&uml;", 0xA8},    {"&uuml;", 0xFC},   {"&yacute;", 0xFD}, {"&yen;", 0xA5},    {"&yuml;", 0xFF}};

constexpr std::size_t kLongestEntity = 8;

// ---- Encoding: indexed by the byte ----

// What is written for one byte.
struct Replacement {
  char text[kLongestEntity] = {};
  unsigned char length = 1;
};

constexpr std::array<Replacement, 256> kReplacements = [] {
  std::array<Replacement, 256> replacements{};
  for (unsigned byte = 0; byte < 256; ++byte) {
    Replacement& replacement = replacements[byte];
    replacement.text[0] = static_cast<char>(byte);
    if (byte < 0x80) continue;
    char const number[] = {'&', '#', static_cast<char>('0' + byte / 100),
                           static_cast<char>('0' + byte / 10 % 10), static_cast<char>('0' + byte % 10)};
    std::copy(std::begin(number), std::end(number), replacement.text);
    replacement.length = sizeof number;
  }
  for (Entity const& entity : kEntityTable) {
    Replacement& replacement = replacements[entity.byte];
    std::copy(entity.entity.begin(), entity.entity.end(), replacement.text);
    replacement.length = static_cast<unsigned char>(entity.entity.size());
  }
  return replacements;
}();

// ---- Decoding: a table of hashes, open to the next slot ----

// The characters of an entity as one number. None is longer than eight, and each ends with the only ";" in
// it, so no two texts that may be looked up have the same key.
constexpr std::uint64_t EntityKey(char const* text_i, std::size_t length_i) {
  std::uint64_t key = 0;
  for (std::size_t index = 0; index < length_i; ++index)
    key = key << 8 | static_cast<unsigned char>(text_i[index]);
  return key;
}

struct EntitySlot {
  std::uint64_t key = 0;  // 0 in a free slot
  unsigned char byte = 0;
};

constexpr std::size_t FirstSlot(std::uint64_t key_i) { return key_i * 0x9E3779B97F4A7C15 >> 56; }

constexpr std::array<EntitySlot, 256> kEntitySlots = [] {
  std::array<EntitySlot, 256> slots{};
  for (Entity const& entity : kEntityTable) {
    std::uint64_t const key = EntityKey(entity.entity.data(), entity.entity.size());
    std::size_t slot = FirstSlot(key);
    while (slots[slot].key != 0) slot = (slot + 1) % slots.size();
    slots[slot] = {key, entity.byte};
  }
  return slots;
}();

// The length of the entity that begins at an "&", 0 when none does; the byte it stands for.
std::size_t ReadEntity(char const* text_i, std::size_t available_i, char& byte_o) {
  std::size_t const last = std::min(available_i, kLongestEntity);
  std::size_t length = 1;
  while (length < last && text_i[length] != ';') ++length;
  if (length == last) return 0;
  std::uint64_t const key = EntityKey(text_i, ++length);
  for (std::size_t slot = FirstSlot(key); kEntitySlots[slot].key != 0;
       slot = (slot + 1) % kEntitySlots.size()) {
    if (kEntitySlots[slot].key != key) continue;
    byte_o = static_cast<char>(kEntitySlots[slot].byte);
    return length;
  }
  return 0;
}

}  // namespace

PLXString PLXStringUtility::GetHTMLEncodedString(PLXString const& string_i) {
  std::string_view const source(string_i.GetCStringAccess(), string_i.GetLength());
  std::uint64_t length = 0;
  for (char const character : source) length += kReplacements[static_cast<unsigned char>(character)].length;
  if (length == source.size()) return string_i;

  PLXString encoded;
  char* target = encoded.ReserveLength(EncodedLength(ourSourceFile, length));
  char const* const end = target + length;
  char const* current = source.data();
  // While there is room, all eight bytes are copied whatever counts of them, which asks no branch of the
  // processor.
  for (; end - target >= static_cast<std::ptrdiff_t>(kLongestEntity); ++current) {
    Replacement const& replacement = kReplacements[static_cast<unsigned char>(*current)];
    std::memcpy(target, replacement.text, kLongestEntity);
    target += replacement.length;
  }
  for (; target != end; ++current) {
    Replacement const& replacement = kReplacements[static_cast<unsigned char>(*current)];
    target = std::copy_n(replacement.text, replacement.length, target);
  }
  return encoded;
}

void PLXStringUtility::HTMLDecode(PLXString& string_io) {
  PLXUInt32 const length = string_io.GetLength();
  if (std::memchr(string_io.GetCStringAccess(), '&', length) == nullptr) return;

  char* const text = string_io.ReserveLength(length);
  char const* const end = text + length;
  char* target = text;
  for (char const* current = text; current != end;) {
    void const* const found = std::memchr(current, '&', static_cast<std::size_t>(end - current));
    char const* const ampersand = found != nullptr ? static_cast<char const*>(found) : end;
    std::memmove(target, current, static_cast<std::size_t>(ampersand - current));
    target += ampersand - current;
    current = ampersand;
    if (current == end) break;
    char character = '&';
    std::size_t const entityLength = ReadEntity(current, static_cast<std::size_t>(end - current), character);
    current += entityLength != 0 ? entityLength : 1;
    *target++ = character;
  }
  string_io.ReserveLength(static_cast<PLXUInt32>(target - text));
}

PLXString PLXStringUtility::GetHTMLDecodedString(PLXString const& string_i) {
  PLXString decoded(string_i);
  HTMLDecode(decoded);
  return decoded;
}
