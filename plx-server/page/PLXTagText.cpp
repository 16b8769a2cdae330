#include "PLXTagText.h"

#include <algorithm>

#include "PLXASCII.h"

namespace {

constexpr std::size_t kValueName_MaximumBytes = 255;
// "&#x10FFFF;" and then some leading zeros; a longer run of digits is no character.
constexpr std::size_t kEntity_MaximumBytes = 16;

bool IsBlank(char byte_i) {
  return byte_i == ' ' || byte_i == '\t' || byte_i == '\n' || byte_i == '\r' || byte_i == '\f';
}

bool IsAlphanumeric(char byte_i) {
  char const lower = LowerASCII(byte_i);
  return (lower >= 'a' && lower <= 'z') || (lower >= '0' && lower <= '9');
}

bool IsQuote(char byte_i) { return byte_i == '"' || byte_i == '\''; }

struct ValueKindName {
  char const* prefix;
  PLXValueKind kind;
};
constexpr ValueKindName ourValueKinds[] = {
    {"&plxPost.", PLXValueKind::kPost},         {"&plxPath.", PLXValueKind::kPath},
    {"&plxVariable.", PLXValueKind::kVariable}, {"&plxCookie.", PLXValueKind::kCookie},
    {"&plxCGI.", PLXValueKind::kCGI},           {"&plxField.", PLXValueKind::kField},
    {"&plxRecords.", PLXValueKind::kRecords}};

struct NamedEntity {
  char const* name;
  char const* text;
};
constexpr NamedEntity ourEntities[] = {{"amp", "&"},   {"lt", "<"},   {"gt", ">"},
                                       {"quot", "\""}, {"apos", "'"}, {"nbsp", "\xC2\xA0"}};

void AppendUTF8(std::uint32_t character_i, std::string& text_io) {
  auto append = [&text_io](std::uint32_t byte) { text_io += static_cast<char>(byte); };
  if (character_i < 0x80) {
    append(character_i);
  } else if (character_i < 0x800) {
    append(0xC0 | character_i >> 6);
    append(0x80 | (character_i & 0x3F));
  } else if (character_i < 0x10000) {
    append(0xE0 | character_i >> 12);
    append(0x80 | (character_i >> 6 & 0x3F));
    append(0x80 | (character_i & 0x3F));
  } else {
    append(0xF0 | character_i >> 18);
    append(0x80 | (character_i >> 12 & 0x3F));
    append(0x80 | (character_i >> 6 & 0x3F));
    append(0x80 | (character_i & 0x3F));
  }
}

// The digits of "#65" or "#x41"; 0 when they name no character that a text may hold.
std::uint32_t NumberedCharacter(std::string_view digits_i) {
  std::uint32_t base = 10;
  if (!digits_i.empty() && LowerASCII(digits_i.front()) == 'x') {
    base = 16;
    digits_i.remove_prefix(1);
  }
  std::uint32_t character = 0;
  for (char const byte : digits_i) {
    char const lower = LowerASCII(byte);
    std::uint32_t digit = 16;
    if (lower >= '0' && lower <= '9') digit = static_cast<std::uint32_t>(lower - '0');
    if (lower >= 'a' && lower <= 'f') digit = static_cast<std::uint32_t>(lower - 'a' + 10);
    if (digit >= base) return 0;
    character = character * base + digit;
    if (character > 0x10FFFF) return 0;
  }
  return character >= 0xD800 && character <= 0xDFFF ? 0 : character;
}

// Appends the character of the entity at `offset_i` and returns its length; 0 when there is none.
std::size_t ReadEntity(std::string_view text_i, std::size_t offset_i, std::string& text_io) {
  std::string_view const window = text_i.substr(offset_i + 1, kEntity_MaximumBytes);
  std::size_t const length = window.find(';');
  if (length == std::string_view::npos || length == 0) return 0;
  std::string_view const entity = window.substr(0, length);

  if (entity.front() == '#') {
    std::uint32_t const character = NumberedCharacter(entity.substr(1));
    if (character == 0) return 0;
    AppendUTF8(character, text_io);
    return length + 2;
  }
  for (NamedEntity const& named : ourEntities) {
    if (entity != named.name) continue;
    text_io += named.text;
    return length + 2;
  }
  return 0;
}

// Adds one parameter: entities become characters, value references insertions.
void AddParameter(std::string_view name_i, std::string_view raw_i, PLXTagTemplate& tag_o) {
  PLXNameValue& parameter = tag_o.occurrence.parameters.emplace_back();
  parameter.name = name_i;
  parameter.value.reserve(raw_i.size());
  auto const index = static_cast<std::uint32_t>(tag_o.occurrence.parameters.size() - 1);

  std::size_t offset = 0;
  while (offset < raw_i.size()) {
    std::size_t const next = std::min(raw_i.find('&', offset), raw_i.size());
    parameter.value.append(raw_i, offset, next - offset);
    offset = next;
    if (offset == raw_i.size()) break;

    PLXValueReference value;
    if (std::size_t const length = ReadValueReference(raw_i, offset, value); length > 0) {
      tag_o.insertions.push_back({index, static_cast<std::uint32_t>(parameter.value.size()), value});
      offset += length;
    } else if (std::size_t const entity = ReadEntity(raw_i, offset, parameter.value); entity > 0) {
      offset += entity;
    } else {
      parameter.value += raw_i[offset++];
    }
  }
}

// One tag while it is read; `offset` moves forward only.
class ParameterReader {
 public:
  ParameterReader(std::string_view text_i, std::size_t offset_i) : myText(text_i), myOffset(offset_i) {}

  std::size_t Offset() const { return myOffset; }

  PLXTagFault Read(PLXTagTemplate& tag_o, bool& isEmpty_o) {
    isEmpty_o = false;
    for (;;) {
      SkipBlanks();
      if (AtEnd() || Byte() == '<') return PLXTagFault::kNotClosed;
      if (Byte() == '>') {
        ++myOffset;
        return PLXTagFault::kNone;
      }
      if (Byte() == '/') {
        ++myOffset;
        isEmpty_o = !AtEnd() && Byte() == '>';
        continue;
      }
      PLXTagFault const fault = ReadParameter(tag_o);
      if (fault != PLXTagFault::kNone) return fault;
    }
  }

 private:
  bool AtEnd() const { return myOffset >= myText.size(); }
  char Byte() const { return myText[myOffset]; }
  void SkipBlanks() {
    while (!AtEnd() && IsBlank(Byte())) ++myOffset;
  }

  template <typename Predicate>
  std::string_view TakeWhile(Predicate belongs_i) {
    std::size_t const begin = myOffset;
    while (!AtEnd() && belongs_i(Byte())) ++myOffset;
    return myText.substr(begin, myOffset - begin);
  }

  PLXTagFault ReadParameter(PLXTagTemplate& tag_o) {
    std::string_view const name = TakeWhile([](char byte) {
      return !IsBlank(byte) && !IsQuote(byte) && byte != '=' && byte != '/' && byte != '<' && byte != '>';
    });
    if (!AtEnd() && IsQuote(Byte())) return PLXTagFault::kQuoteMisplaced;
    if (name.empty()) return PLXTagFault::kNameMissing;
    SkipBlanks();
    if (AtEnd() || Byte() != '=') {
      AddParameter(name, {}, tag_o);
      return PLXTagFault::kNone;
    }
    ++myOffset;
    SkipBlanks();
    if (!AtEnd() && IsQuote(Byte())) return ReadQuoted(name, tag_o);

    // A slash belongs to a bare value, so that url=http://host/ needs no quotes.
    std::string_view const value =
        TakeWhile([](char byte) { return !IsBlank(byte) && !IsQuote(byte) && byte != '<' && byte != '>'; });
    if (!AtEnd() && IsQuote(Byte())) return PLXTagFault::kQuoteMisplaced;
    AddParameter(name, value, tag_o);
    return PLXTagFault::kNone;
  }

  PLXTagFault ReadQuoted(std::string_view name_i, PLXTagTemplate& tag_o) {
    std::size_t const begin = myOffset + 1;
    std::size_t const end = myText.find(Byte(), begin);
    if (end == std::string_view::npos) return PLXTagFault::kQuoteNotClosed;
    AddParameter(name_i, myText.substr(begin, end - begin), tag_o);
    myOffset = end + 1;
    return PLXTagFault::kNone;
  }

  std::string_view const myText;
  std::size_t myOffset;
};

}  // namespace

std::size_t ReadValueReference(std::string_view text_i, std::size_t offset_i, PLXValueReference& value_o) {
  std::string_view const text = text_i.substr(offset_i);
  if (!BeginsIgnoringCase(text, "&plx")) return 0;
  for (ValueKindName const& kind : ourValueKinds) {
    std::string_view const prefix = kind.prefix;
    if (!BeginsIgnoringCase(text, prefix)) continue;
    std::string_view const window = text.substr(prefix.size(), kValueName_MaximumBytes + 1);
    auto const isNameByte = [&kind](char byte) {
      bool const isOfField = byte == '\'' || static_cast<unsigned char>(byte) >= 0x80;
      return IsAlphanumeric(byte) || byte == '_' || byte == '-' || byte == '.' || byte == ' ' ||
             (isOfField && kind.kind == PLXValueKind::kField);
    };
    auto const end = std::find_if_not(window.begin(), window.end(), isNameByte);
    auto const length = static_cast<std::size_t>(end - window.begin());
    if (length == 0 || end == window.end() || *end != ';') return 0;
    value_o = {kind.kind, window.substr(0, length)};
    return prefix.size() + length + 1;
  }
  return 0;
}

std::size_t ReadTagName(std::string_view text_i, std::size_t offset_i) {
  std::string_view const text = text_i.substr(std::min(offset_i, text_i.size()));
  if (!BeginsIgnoringCase(text, "plx")) return 0;
  std::size_t length = 3;
  while (length < text.size() &&
         (IsAlphanumeric(text[length]) || text[length] == '_' || text[length] == '-')) {
    ++length;
  }
  return length;
}

PLXTagFault ReadTagParameters(std::string_view text_i, std::size_t offset_i, PLXTagTemplate& tag_o,
                              std::size_t& end_o, bool& isEmpty_o) {
  ParameterReader reader(text_i, offset_i);
  PLXTagFault const fault = reader.Read(tag_o, isEmpty_o);
  end_o = reader.Offset();
  if (fault == PLXTagFault::kNone) return fault;

  // A value that is never closed tells exactly where the trouble begins; any other fault may come from a
  // quote that was forgotten much earlier, so the first ">" is taken for the one that was meant.
  std::size_t const close = fault == PLXTagFault::kQuoteNotClosed
                                ? std::string_view::npos
                                : text_i.substr(0, end_o).find('>', offset_i);
  if (close != std::string_view::npos) {
    end_o = close + 1;
  } else {
    std::size_t const next = std::min(text_i.find_first_of("<>", end_o), text_i.size());
    end_o = next < text_i.size() && text_i[next] == '>' ? next + 1 : next;
  }
  return fault;
}
