#include "PLXConfigurationText.h"

#include <algorithm>

namespace {

constexpr std::size_t kLongestQuoted = 80;

bool IsBlank(char character_i) { return character_i == ' ' || character_i == '\t' || character_i == '\r'; }

bool IsControl(char character_i) {
  auto const byte = static_cast<unsigned char>(character_i);
  return byte < 0x20 || byte == 0x7F;
}

bool IsNameCharacter(char character_i) {
  return (character_i >= 'a' && character_i <= 'z') || (character_i >= 'A' && character_i <= 'Z') ||
         (character_i >= '0' && character_i <= '9') || character_i == '-' || character_i == '_';
}

bool EndsBareWord(char character_i) {
  return IsControl(character_i) || std::string_view(" #,[]=\"'").find(character_i) != std::string_view::npos;
}

// Walks the text once. Reading functions stop at what they cannot read and return false with the complaint
// made; the caller of all of them, ReadLine, then finds the next line that can be trusted.
class Reader {
 public:
  Reader(std::string_view text_i, std::vector<PLXTextProblem>& problems_o)
      : myText(text_i), myProblems(problems_o) {}

  std::vector<PLXConfigurationSection> ReadAll() {
    mySections.emplace_back();
    while (!AtEnd()) ReadLine();
    return std::move(mySections);
  }

  PLXConfigurationValue ReadOnlyValue() {
    PLXConfigurationValue value;
    if (ReadValue(value)) ReadLineEnd();
    return value;
  }

 private:
  bool AtEnd() const { return myAt >= myText.size(); }
  bool AtLineEnd() const { return AtEnd() || Here() == '\n' || myText.substr(myAt, 2) == "\r\n"; }
  char Here() const { return myText[myAt]; }

  bool Complain(int line_i, std::string problem_i, std::string remedy_i) {
    myProblems.push_back({line_i, std::move(problem_i), std::move(remedy_i)});
    return false;
  }

  void SkipBlanks() {
    while (!AtEnd() && IsBlank(Here())) ++myAt;
  }

  void SkipLine() {
    myAt = std::min(myText.find('\n', myAt), myText.size());
    if (!AtEnd()) ++myAt, ++myLine;
  }

  // Blanks, comments and line ends, as between the values of a list.
  void SkipSpace() {
    for (SkipBlanks(); !AtEnd() && (Here() == '\n' || Here() == '#'); SkipBlanks()) SkipLine();
  }

  std::string_view ReadName() {
    std::size_t const start = myAt;
    while (!AtEnd() && IsNameCharacter(Here())) ++myAt;
    return myText.substr(start, myAt - start);
  }

  void ReadLine() {
    SkipBlanks();
    if (AtLineEnd() || Here() == '#') return SkipLine();
    int const line = myLine;
    if (Here() == '[' ? ReadSection() : ReadEntry()) return SkipLine();
    // A list that broke off over several lines has no telling end: the next line that looks like a key or
    // section is where reading can go on.
    if (myLine == line) return SkipLine();
    myAt = myText.rfind('\n', myAt - 1) + 1;
    while (!AtEnd() && !LooksLikeEntryOrSection()) SkipLine();
  }

  bool LooksLikeEntryOrSection() {
    std::size_t const start = myAt;
    SkipBlanks();
    bool looks = !AtEnd() && Here() == '[';
    if (!looks && !ReadName().empty()) {
      SkipBlanks();
      looks = !AtEnd() && Here() == '=';
    }
    myAt = start;
    return looks;
  }

  bool ReadSection() {
    mySections.emplace_back();
    PLXConfigurationSection& section = mySections.back();
    section.line = myLine;
    std::size_t const start = myAt++;
    SkipBlanks();
    section.kind = ReadName();
    bool isGood = !section.kind.empty() && !AtEnd() && Here() == '.';
    if (isGood) {
      ++myAt;
      section.name = ReadName();
      SkipBlanks();
      isGood = !section.name.empty() && !AtEnd() && Here() == ']';
    }
    section.isUnusable = !isGood;
    if (!isGood) {
      std::string_view const line =
          myText.substr(start, std::min(myText.find('\n', start), myText.size()) - start);
      return Complain(section.line, QuotedForPeople(line) + " begins no section",
                      "Write [site.NAME] or [region.NAME] with a name of letters, digits, \"-\" and \"_\".");
    }
    ++myAt;
    return ReadLineEnd();
  }

  bool ReadEntry() {
    PLXConfigurationEntry entry;
    entry.line = myLine;
    std::size_t const start = myAt;
    entry.key = ReadName();
    SkipBlanks();
    if (entry.key.empty() || AtLineEnd() || Here() != '=') {
      std::string_view line = myText.substr(start, std::min(myText.find('\n', start), myText.size()) - start);
      while (!line.empty() && IsBlank(line.back())) line.remove_suffix(1);
      return Complain(entry.line,
                      QuotedForPeople(line) + " is neither a key with a value nor a section nor a comment",
                      "Write key = value.");
    }
    ++myAt;
    SkipBlanks();
    if (!ReadValue(entry.value)) return false;
    mySections.back().entries.push_back(std::move(entry));
    return ReadLineEnd();
  }

  bool ReadLineEnd() {
    SkipBlanks();
    if (AtLineEnd() || Here() == '#') return true;
    return Complain(
        myLine, "something follows the end of the value or section",
        "Put a text with blanks in double quotes and several values in brackets: [\"a\", \"b\"].");
  }

  bool ReadValue(PLXConfigurationValue& value_o) {
    value_o.isList = !AtEnd() && Here() == '[';
    if (value_o.isList) return ReadList(value_o);
    value_o.texts.emplace_back();
    return ReadText(value_o.texts.back());
  }

  bool ReadList(PLXConfigurationValue& value_o) {
    int const line = myLine;
    ++myAt;
    for (SkipSpace(); !AtEnd() && Here() != ']'; SkipSpace()) {
      value_o.texts.emplace_back();
      if (!ReadText(value_o.texts.back())) return false;
      SkipSpace();
      if (AtEnd() || Here() == ']') break;
      if (Here() != ',') {
        return Complain(line, "the list that begins here is broken in line " + std::to_string(myLine),
                        "Separate its values by commas and end it with \"]\".");
      }
      ++myAt;
    }
    if (AtEnd()) return Complain(line, "the list that begins here does not end", "End it with \"]\".");
    ++myAt;
    return true;
  }

  bool ReadText(std::string& text_o) {
    if (!AtEnd() && (Here() == '"' || Here() == '\'')) return ReadQuoted(text_o);
    std::size_t const start = myAt;
    while (!AtEnd() && !EndsBareWord(Here())) ++myAt;
    text_o = myText.substr(start, myAt - start);
    return !text_o.empty() ||
           Complain(myLine, "a value is missing", "Write key = value, an empty text as \"\".");
  }

  bool ReadQuoted(std::string& text_o) {
    char const quote = Here();
    for (++myAt; !AtLineEnd() && Here() != quote; ++myAt) {
      if (quote == '"' && Here() == '\\') {
        ++myAt;
        if (AtLineEnd() || (Here() != '"' && Here() != '\\')) {
          return Complain(myLine, "\"\\\" stands before neither a quote nor another \"\\\"",
                          "Write \"\\\\\", or put the text in single quotes.");
        }
      } else if (IsControl(Here())) {
        return Complain(myLine, "a text holds a control character",
                        "Remove it; between words a blank will do.");
      }
      text_o.push_back(Here());
    }
    if (AtLineEnd()) {
      return Complain(myLine, "a quoted text does not end",
                      std::string("Close it with ") + quote + " on the same line.");
    }
    ++myAt;
    return true;
  }

  std::string_view const myText;
  std::size_t myAt = 0;
  int myLine = 1;
  std::vector<PLXConfigurationSection> mySections;
  std::vector<PLXTextProblem>& myProblems;
};

}  // namespace

std::vector<PLXConfigurationSection> ReadConfigurationText(std::string_view text_i,
                                                           std::vector<PLXTextProblem>& problems_o) {
  if (text_i.starts_with("\xEF\xBB\xBF")) text_i.remove_prefix(3);  // some editors mark UTF-8 so
  if (std::size_t const zero = text_i.find('\0'); zero != std::string_view::npos) {
    auto const line =
        1 + std::count(text_i.begin(), text_i.begin() + static_cast<std::ptrdiff_t>(zero), '\n');
    problems_o.push_back({static_cast<int>(line), "a zero byte: this is no text file",
                          "Name the configuration file, or save it as plain text."});
    return {};
  }
  return Reader(text_i, problems_o).ReadAll();
}

PLXConfigurationValue ReadConfigurationValue(std::string_view text_i,
                                             std::vector<PLXTextProblem>& problems_o) {
  if (!text_i.empty() && std::string_view("[\"'").find(text_i.front()) != std::string_view::npos) {
    return Reader(text_i, problems_o).ReadOnlyValue();
  }
  PLXConfigurationValue value;
  value.texts.emplace_back(text_i);
  value.isRaw = true;
  return value;
}

std::string QuotedForPeople(std::string_view text_i) {
  std::size_t length = std::min(text_i.size(), kLongestQuoted);
  while (length > 0 && length < text_i.size() &&
         (static_cast<unsigned char>(text_i[length]) & 0xC0) == 0x80) {
    --length;  // never inside a UTF-8 character
  }
  std::string quoted = "\"";
  for (char const character : text_i.substr(0, length)) {
    if (IsControl(character)) {
      constexpr char digits[] = "0123456789abcdef";
      auto const byte = static_cast<unsigned char>(character);
      quoted.append("\\x").push_back(digits[byte >> 4]);
      quoted.push_back(digits[byte & 15]);
    } else {
      quoted.push_back(character);
    }
  }
  return quoted + (length < text_i.size() ? "...\"" : "\"");
}
