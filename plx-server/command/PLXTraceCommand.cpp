#include "PLXTraceCommand.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <unistd.h>

#include "PLXJSONText.h"

namespace {

constexpr std::size_t kNameColumn = 26;       // of calls
constexpr std::size_t kArgumentColumn = 34;   // of their arguments
constexpr std::size_t kDurationColumn = 100;  // where microseconds end

// Codes that a reader meets often, in words.
std::string Meaning(std::string const& code_i) {
  static constexpr struct {
    char const* code;
    char const* meaning;
  } kMeanings[] = {{"0", "ok"},
                   {"'MNFd'", "not found"},
                   {"'MBtS'", "buffer too small"},
                   {"'MUnF'", "not handled"},
                   {"'MGen'", "general error"},
                   {"'MMRP'", "missing required parameter"},
                   {"'MIPV'", "invalid parameter value"},
                   {"'MNAu'", "not authorized"},
                   {"'MFnF'", "file not found"},
                   {"'MICl'", "breaks the conventions"},
                   {"'MWEv'", "not during this event"},
                   {"'MNAl'", "not allowed"},
                   {"'MUnR'", "unknown request"},
                   {"'DEnd'", "no record that way"},
                   {"'DNFd'", "no such database, field or record"}};
  for (auto const& row : kMeanings) {
    if (code_i == row.code) return row.meaning;
  }
  return code_i;
}

// Control characters could move the cursor or change the terminal.
std::string Shown(std::string_view text_i) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string shown;
  for (char const character : text_i) {
    auto const byte = static_cast<unsigned char>(character);
    if (character == '\n') {
      shown += "\\n";
    } else if (byte < ' ' || byte == 0x7F) {
      shown.append("\\x").append({kDigits[byte >> 4], kDigits[byte & 15]});
    } else {
      shown.push_back(character);
    }
  }
  return shown;
}

std::string Shown(std::vector<PLXTraceEntry::Value> const& values_i) {
  std::string text;
  for (PLXTraceEntry::Value const& value : values_i) {
    if (!text.empty()) text.push_back(' ');
    text += value.isNumber ? value.text : "\"" + Shown(value.text) + "\"";
    if (value.cutFrom > 0) text += " (" + std::to_string(value.cutFrom) + " bytes)";
  }
  return text;
}

std::size_t Width(std::string_view text_i) {
  return static_cast<std::size_t>(std::ranges::count_if(
      text_i, [](char character) { return (static_cast<unsigned char>(character) & 0xC0) != 0x80; }));
}

std::string Padded(std::string text_i, std::size_t width_i) {
  std::size_t const width = Width(text_i);
  return width < width_i ? text_i.append(width_i - width, ' ') : text_i + " ";
}

// Writes entries for people. Events may lie within events, which shows as indentation.
class TextWriter {
 public:
  TextWriter() : myIsColoured(::isatty(STDOUT_FILENO) != 0 && std::getenv("NO_COLOR") == nullptr) {}

  void Write(PLXTraceEntry const& entry_i) {
    if (entry_i.what == PLXTraceEntry::What::kEnds && myDepth > 0) --myDepth;
    std::string line(myDepth * 2, ' ');
    switch (entry_i.what) {
      case PLXTraceEntry::What::kBegins:
        line += Begin(entry_i);
        ++myDepth;
        break;
      case PLXTraceEntry::What::kCall:
        line += Call(entry_i);
        break;
      case PLXTraceEntry::What::kEnds:
        line +=
            "= " + Meaning(entry_i.result) + ", " + std::to_string(entry_i.bytesWritten) + " bytes written";
        if (!entry_i.problem.empty()) line += ", problem: " + Shown(entry_i.problem);
        break;
    }
    if (entry_i.what != PLXTraceEntry::What::kBegins) {
      std::string const took = std::to_string(entry_i.took.count()) + " us";
      std::size_t const width = Width(line) + took.size();
      line.append(width < kDurationColumn ? kDurationColumn - width : 2, ' ').append(took);
    }
    bool const isBad = entry_i.what == PLXTraceEntry::What::kEnds && entry_i.result != "0";
    char const* const colour = entry_i.what == PLXTraceEntry::What::kBegins ? "\033[1m"
                               : isBad                                      ? "\033[31m"
                                                                            : nullptr;
    std::cout << (myIsColoured && colour ? colour + line + "\033[0m" : line) << "\n";
  }

 private:
  static std::string Begin(PLXTraceEntry const& entry_i) {
    if (entry_i.line == 0) return entry_i.module + " " + entry_i.eventCode + " " + entry_i.tag;
    return "<" + entry_i.tag + "> " + Shown(entry_i.file) + ":" + std::to_string(entry_i.line) + " (" +
           entry_i.module + ")";
  }
  static std::string Call(PLXTraceEntry const& entry_i) {
    std::string const answers = Shown(entry_i.answers);
    std::string const result = entry_i.result == "0" && !answers.empty() ? answers : Meaning(entry_i.result);
    return Padded(entry_i.name.empty() ? entry_i.code : entry_i.name, kNameColumn) +
           Padded(Shown(entry_i.arguments), kArgumentColumn) + "-> " + result;
  }

  bool const myIsColoured;
  std::size_t myDepth = 0;
};

std::string JSONValues(std::vector<PLXTraceEntry::Value> const& values_i) {
  std::string text = "[";
  for (PLXTraceEntry::Value const& value : values_i) {
    if (text.size() > 1) text += ", ";
    text += value.isNumber ? value.text : PLXJSONText(value.text);
  }
  return text + "]";
}

std::string JSONLine(PLXTraceEntry const& entry_i) {
  static constexpr char const* kWhat[] = {"begins", "call", "ends"};
  std::string line =
      "{\"what\": " + PLXJSONText(kWhat[static_cast<std::size_t>(entry_i.what)]) +
      ", \"event\": " + std::to_string(entry_i.event) + ", \"module\": " + PLXJSONText(entry_i.module) +
      ", \"code\": " +
      PLXJSONText(entry_i.what == PLXTraceEntry::What::kCall ? entry_i.code : entry_i.eventCode);
  if (entry_i.what == PLXTraceEntry::What::kCall) {
    line += ", \"name\": " + PLXJSONText(entry_i.name) + ", \"arguments\": " + JSONValues(entry_i.arguments) +
            ", \"answers\": " + JSONValues(entry_i.answers);
  } else {
    line += ", \"tag\": " + PLXJSONText(entry_i.tag) + ", \"file\": " + PLXJSONText(entry_i.file) +
            ", \"line\": " + std::to_string(entry_i.line);
  }
  if (entry_i.what == PLXTraceEntry::What::kEnds) {
    line += ", \"bytes\": " + std::to_string(entry_i.bytesWritten) +
            ", \"problem\": " + PLXJSONText(entry_i.problem);
  }
  if (entry_i.what != PLXTraceEntry::What::kBegins) {
    line += ", \"result\": " + PLXJSONText(entry_i.result) +
            ", \"microseconds\": " + std::to_string(entry_i.took.count());
  }
  return line + "}";
}

}  // namespace

PLXResponse PLXTracePage(PLXServer& server_io, PLXTraceRequest const& request_i, std::string const& page_i,
                         std::vector<PLXNameValue> const& arguments_i, std::string const& site_i) {
  TextWriter writer;
  PLXResponse response = server_io.Render(page_i, arguments_i, site_i, [&](PLXTraceEntry const& entry) {
    if (request_i.isJSON) {
      std::cout << JSONLine(entry) << "\n";
    } else {
      writer.Write(entry);
    }
  });
  std::cout << std::flush;
  return response;
}

bool PLXKeepTracedPage(PLXTraceRequest const& request_i, PLXResponse const& response_i) {
  if (request_i.output.empty()) return true;
  std::ofstream stream(request_i.output, std::ios::binary | std::ios::trunc);
  stream << response_i.body;
  stream.close();
  return !stream.fail();
}
