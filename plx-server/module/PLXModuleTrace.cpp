#include "PLXModuleTrace.h"

namespace {

constexpr std::size_t kTextBytes = 200;

void Append(std::vector<PLXTraceEntry::Value> const& values_i, std::string& line_io) {
  for (PLXTraceEntry::Value const& value : values_i) {
    line_io.append(value.isNumber ? " " : " \"").append(value.text).append(value.isNumber ? "" : "\"");
    if (value.cutFrom > 0) line_io += " (" + std::to_string(value.cutFrom) + " bytes)";
  }
}

}  // namespace

void PLXTraceEntry::AddText(std::vector<Value>& values_io, std::string_view text_i) {
  values_io.push_back(
      {std::string(text_i.substr(0, kTextBytes)), false, text_i.size() > kTextBytes ? text_i.size() : 0});
}

std::string PLXTraceEntry::Line() const {
  std::string text = "event " + std::to_string(event);
  if (request != 0) text += " request " + std::to_string(request);
  text += " " + module + " " + eventCode;
  if (line != 0) {
    text += " <" + tag + "> " + file + ":" + std::to_string(line);
  } else if (!tag.empty()) {
    text += " " + tag;
  }
  if (what == What::kBegins) return text + " begins";
  if (what == What::kEnds) {
    text += " ends -> " + result + ", " + std::to_string(bytesWritten) + " bytes written";
    if (!problem.empty()) text += ", problem \"" + problem + "\"";
  } else {
    text += " " + code;
    Append(arguments, text);
    text += " -> " + result;
    Append(answers, text);
  }
  return text + " (" + std::to_string(took.count()) + " us)";
}
