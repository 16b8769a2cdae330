#include <array>

#include "EncoderTwins.h"
#include "Fuzz.h"
#include "PLXString.h"
#include "StringTwin.h"

// A line is a step: what is done, to which of four strings, two numbers and a text; "f0~3abc" or, for the
// text of string 2, "a0 @2". The strings share what they hold whenever one is assigned another, and after
// each step all four must be what the standard library's are.

namespace {

constexpr std::size_t kLongestText = 4096;  // a program that doubles its strings must not go on for ever

struct Step {
  char action;
  unsigned slot;
  PLXUInt32 first, second;
  std::string_view text;
};

PLXUInt32 TakeOffset(std::string_view& line_io) {
  unsigned const number = TakeNumber(line_io);
  return number == '~' - '0' ? kPLXWholeLength : number;
}

Step ReadStep(std::string_view line_i) {
  Step step{};
  step.action = line_i.front();
  line_i.remove_prefix(1);
  step.slot = TakeNumber(line_i) % 4;
  step.first = TakeOffset(line_i);
  step.second = TakeOffset(line_i);
  step.text = line_i;
  return step;
}

class Machine {
 public:
  void Do(Step const& step_i) {
    PLXString& string = myStrings[step_i.slot];
    std::string& expected = myTwins[step_i.slot];
    if (step_i.text.size() == 2 && step_i.text[0] == '@') {
      // The argument is one of the strings itself, maybe the one that changes.
      unsigned const source = static_cast<unsigned char>(step_i.text[1]) % 4;
      std::string const text = myTwins[source];
      Apply(step_i, string, expected, myStrings[source], text);
    } else {
      std::string const text(step_i.text);
      Apply(step_i, string, expected, Plx(text), text);
    }
    for (std::size_t slot = 0; slot < myStrings.size(); ++slot) {
      Require(Std(myStrings[slot]) == myTwins[slot]);
      Require(myStrings[slot].GetCStringAccess()[myTwins[slot].size()] == '\0');
    }
  }

 private:
  void Apply(Step const& step_i, PLXString& string_io, std::string& twin_io, PLXString const& argument_i,
             std::string const& text_i) {
    if (twin_io.size() + text_i.size() > kLongestText) return;
    if (!Edit(step_i, string_io, twin_io, argument_i, text_i) && !Trim(step_i, string_io, twin_io, text_i) &&
        !Reach(step_i, string_io, twin_io)) {
      Ask(step_i, string_io, twin_io, argument_i, text_i);
    }
  }

  bool Edit(Step const& step_i, PLXString& string_io, std::string& twin_io, PLXString const& argument_i,
            std::string const& text_i) {
    std::size_t const offset = std::min<std::size_t>(step_i.first, twin_io.size());
    std::string const old = twin_io;
    switch (step_i.action) {
      case '=':
        string_io = argument_i;
        twin_io = text_i;
        return true;
      case '&':  // part of its own text
        string_io.Assign(string_io.GetCStringAccess() + offset,
                         std::min<PLXUInt32>(step_i.second, static_cast<PLXUInt32>(old.size() - offset)));
        twin_io = old.substr(offset, step_i.second);
        return true;
      case 'a':
        string_io += argument_i;
        twin_io += text_i;
        return true;
      case 'p':
        string_io.Prepend(argument_i);
        twin_io.insert(0, text_i);
        return true;
      case '+':
        string_io = argument_i + string_io + '+';
        twin_io = text_i + old + '+';
        return true;
      case 'i':
        string_io.Insert(argument_i.GetCStringAccess(), argument_i.GetLength(), step_i.first);
        twin_io.insert(offset, text_i);
        return true;
      case 'x': {
        PLXString& removed = myStrings[(step_i.slot + 1) % 4];
        string_io.RemoveSubstring(step_i.first, step_i.second, removed);
        myTwins[(step_i.slot + 1) % 4] = twin_io.substr(offset, step_i.second);
        twin_io.erase(offset, step_i.second);
        return true;
      }
      case 'r': {
        PLXSInt32 const change = string_io.ReplaceSubstring(step_i.first, step_i.second, argument_i);
        twin_io.replace(offset, step_i.second, text_i);
        Require(change == static_cast<PLXSInt32>(twin_io.size()) - static_cast<PLXSInt32>(old.size()));
        return true;
      }
      case 'R': {
        std::size_t const cut = std::min(text_i.find('/'), text_i.size());
        std::string const pattern = text_i.substr(0, cut);
        std::string const replacement = cut < text_i.size() ? text_i.substr(cut + 1) : "";
        if (old.size() * (1 + replacement.size()) > 16 * kLongestText) return true;
        Require(string_io.ReplaceAll(Plx(pattern), Plx(replacement), step_i.first % 2) ==
                twin::ReplaceAll(twin_io, pattern, replacement, step_i.first % 2));
        return true;
      }
      case 'g':
        string_io = argument_i.GetSubstring(step_i.first, step_i.second);
        twin_io = text_i.substr(std::min<std::size_t>(step_i.first, text_i.size()), step_i.second);
        return true;
      case 'u':
      case 'd':
        step_i.action == 'u' ? string_io.ConvertToUppercase(step_i.first, step_i.second)
                             : string_io.ConvertToLowercase(step_i.first, step_i.second);
        for (std::size_t at = offset; at < std::min(twin_io.size(), offset + step_i.second); ++at) {
          auto const byte = static_cast<unsigned char>(twin_io[at]);
          twin_io[at] = static_cast<char>(step_i.action == 'u' ? PLXString::Uppercase(byte)
                                                               : PLXString::Lowercase(byte));
        }
        return true;
      case 'v':
        string_io.Reverse();
        std::reverse(twin_io.begin(), twin_io.end());
        return true;
      default:
        return false;
    }
  }

  static bool Trim(Step const& step_i, PLXString& string_io, std::string& twin_io,
                   std::string const& text_i) {
    char const character = text_i.empty() ? ' ' : text_i[0];
    auto const most = static_cast<std::size_t>(step_i.first);
    std::string const set = text_i.c_str();
    std::size_t const before = twin_io.size();
    PLXUInt32 removed = 0;
    switch (step_i.action) {
      case 'l':
        removed = string_io.TrimLeft(step_i.first);
        twin_io.erase(0, most);
        break;
      case 'L':
        removed = string_io.TrimRight(step_i.first);
        twin_io.resize(before - std::min(most, before));
        break;
      case 'c':
        removed = string_io.TrimLeft(character, step_i.first);
        twin_io.erase(0, std::min(most, std::min(twin_io.find_first_not_of(character), before)));
        break;
      case 'C':
        removed = string_io.TrimRight(character, step_i.first);
        twin_io.resize(std::max(before - std::min(most, before), twin_io.find_last_not_of(character) + 1));
        break;
      case 's':
        removed = string_io.TrimLeft(set.c_str(), step_i.first);
        twin_io.erase(0, std::min(twin_io.find_first_not_of(set), before));
        break;
      case 'S':
        removed = string_io.TrimRight(set.c_str());
        twin_io.resize(twin_io.find_last_not_of(set) + 1);
        break;
      case 'T':
        removed = string_io.Trim(set.c_str());
        twin_io.resize(twin_io.find_last_not_of(set) + 1);
        twin_io.erase(0, std::min(twin_io.find_first_not_of(set), twin_io.size()));
        break;
      default:
        return false;
    }
    Require(removed == before - twin_io.size());
    return true;
  }

  // Storage and what is written past the string's own operations.
  static bool Reach(Step const& step_i, PLXString& string_io, std::string& twin_io) {
    PLXUInt32 const length = step_i.first % 256;
    std::size_t const old = twin_io.size();
    switch (step_i.action) {
      case 'n': {
        string_io.Reserve(length);
        char const* const base = string_io.GetCStringAccess();
        for (std::size_t count = old; count < length; ++count) string_io += 'n';
        twin_io.resize(std::max<std::size_t>(old, length), 'n');
        Require(string_io.GetCStringAccess() == base);
        return true;
      }
      case 'N':
        std::fill_n(string_io.ReserveLength(length) + std::min<std::size_t>(old, length),
                    length - std::min<std::size_t>(old, length), 'N');
        twin_io.resize(length, 'N');
        return true;
      case 't':
        string_io.ReserveToAppend(step_i.first % 256);
        return true;
      case 'b': {
        char* const buffer = string_io.GetBuffer(length);
        Require(string_io.GetBuffer(length) == nullptr);
        if (length > 0) buffer[length - 1] = 'b', twin_io.resize(std::max<std::size_t>(old, length));
        std::copy(twin_io.begin(), twin_io.end(), buffer);
        if (length > 0) buffer[length - 1] = twin_io[length - 1] = 'b';
        string_io.ReleaseBuffer(length);
        twin_io.resize(length);
        return true;
      }
      case '!':
        if (step_i.first < old) string_io.SetAt(step_i.first, '!'), twin_io[step_i.first] = '!';
        return true;
      case 'm':
        string_io.MakeUnique();
        return true;
      case 'e':
        string_io.Empty();
        twin_io.clear();
        return true;
      default:
        return false;
    }
  }

  static void Ask(Step const& step_i, PLXString const& string_i, std::string const& twin_i,
                  PLXString const& argument_i, std::string const& text_i) {
    PLXUInt32 const nowhere = 12345;
    for (unsigned options = 0; options < 4; ++options) {
      PLXUInt32 position = nowhere;
      auto const expected = twin::Find(twin_i, text_i, step_i.first, step_i.second, options);
      Require(string_i.Find(argument_i, step_i.first, step_i.second, options, position) ==
              expected.has_value());
      Require(position == expected.value_or(nowhere));
      bool const isThere = twin::Find(twin_i, text_i, 0, kPLXWholeLength, options & 1).has_value();
      Require(string_i.Contains(argument_i, options) == isThere);
      Require(string_i.CompareTo(argument_i, options) == twin::Compare(twin_i, text_i, options));
      std::string const left = options % 2 == 1 ? twin::Folded(twin_i) : twin_i;
      std::string const right = options % 2 == 1 ? twin::Folded(text_i) : text_i;
      Require(string_i.BeginsWith(argument_i, options) == (!right.empty() && left.starts_with(right)));
      Require(string_i.EndsWith(argument_i, options) == (!right.empty() && left.ends_with(right)));
    }
    Require((string_i == argument_i) == (twin_i == text_i));
    CheckExport(string_i, twin_i, step_i.first % 256);
  }

  static void CheckExport(PLXString const& string_i, std::string const& twin_i, PLXUInt32 size_i) {
    std::string buffer(size_i + 2, '?');
    std::size_t const count = twin_i.size() > size_i ? (size_i == 0 ? 0 : size_i - 1) : twin_i.size();
    Require(string_i.GetCString(buffer.data(), size_i) == count);
    bool const isWritten = size_i > 0 || twin_i.empty();
    Require(buffer.substr(0, count) == twin_i.substr(0, count) && (buffer[count] == 0) == isWritten);
    Require(buffer.back() == '?');
    std::string pascal(257, '?');
    std::size_t const shown = std::min<std::size_t>({twin_i.size(), size_i, 255});
    Require(string_i.GetPascalString(reinterpret_cast<unsigned char*>(pascal.data()), size_i) == shown);
    Require(pascal.substr(0, shown + 2) == static_cast<char>(shown) + twin_i.substr(0, shown) + '?');
  }

  std::array<PLXString, 4> myStrings;
  std::array<std::string, 4> myTwins;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data_i, std::size_t size_i) {
  std::string_view input(reinterpret_cast<char const*>(data_i), size_i);
  Machine machine;
  for (int steps = 0; !input.empty() && steps < 200; ++steps) {
    std::string_view const line = TakeLine(input);
    if (!line.empty()) machine.Do(ReadStep(line));
  }
  return 0;
}
