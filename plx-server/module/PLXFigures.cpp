#include "PLXFigures.h"

#include <algorithm>
#include <charconv>
#include <cmath>

#include "PLXTextEscape.h"

namespace {

constexpr std::string_view kServersOwn = "plxserver_";
constexpr std::string_view kCounterEnd = "_total";

bool IsCounter(std::string_view name_i) { return name_i.ends_with(kCounterEnd); }

bool IsNameStart(char byte_i) {
  return (byte_i >= 'a' && byte_i <= 'z') || (byte_i >= 'A' && byte_i <= 'Z') || byte_i == '_';
}

// Takes a name from the text's start; empty when there is none.
std::string_view TakeName(std::string_view& text_io) {
  std::size_t end = 0;
  while (end < text_io.size() &&
         (IsNameStart(text_io[end]) || (end > 0 && text_io[end] >= '0' && text_io[end] <= '9'))) {
    ++end;
  }
  std::string_view const name = text_io.substr(0, end);
  text_io.remove_prefix(end);
  return name;
}

bool Take(std::string_view& text_io, char character_i) {
  if (!text_io.starts_with(character_i)) return false;
  text_io.remove_prefix(1);
  return true;
}

// Takes a value in quotes, in which a backslash stands before a quote, a backslash and the n of a line end.
bool TakeValue(std::string_view& text_io, std::string& value_o) {
  if (!Take(text_io, '"')) return false;
  while (!text_io.empty()) {
    char character = text_io.front();
    text_io.remove_prefix(1);
    if (character == '"') return true;
    if (character == '\\') {
      if (text_io.empty() || std::string_view("\\\"n").find(text_io.front()) == std::string_view::npos)
        return false;
      character = text_io.front() == 'n' ? '\n' : text_io.front();
      text_io.remove_prefix(1);
    }
    value_o.push_back(character);
  }
  return false;
}

std::string WrittenLabels(std::map<std::string, std::string> const& labels_i) {
  std::string text;
  for (auto const& [name, value] : labels_i) {
    text.append(text.empty() ? "" : ",").append(name).append("=\"").append(PLXEscapedLabel(value));
    text.push_back('"');
  }
  return text;
}

}  // namespace

std::string PLXEscapedLabel(std::string_view value_i) {
  bool const isForeign = PLXNeedsEscape(value_i);
  std::string text;
  text.reserve(value_i.size());
  for (char const character : value_i) {
    if (character == '\n') {
      text += "\\n";
    } else if (character == '"' || character == '\\') {
      text.append({'\\', character});
    } else {
      text.push_back(isForeign && static_cast<unsigned char>(character) >= 0x80 ? '?' : character);
    }
  }
  return text;
}

void PLXFigureText::Begin(std::string_view name_i, std::string_view help_i) {
  myName = name_i;
  if (!help_i.empty()) {
    myText.append("# HELP ").append(name_i).append(" ");
    for (char const character : help_i) {
      if (character == '\n') {
        myText += "\\n";
      } else {
        myText.append(character == '\\' ? "\\\\" : std::string(1, character));
      }
    }
    myText.push_back('\n');
  }
  myText.append("# TYPE ").append(name_i).append(IsCounter(name_i) ? " counter\n" : " gauge\n");
}

void PLXFigureText::Add(std::string_view labels_i, double value_i) {
  char number[32];
  auto const written = std::to_chars(number, number + sizeof number, value_i);
  myText += myName;
  if (!labels_i.empty()) myText.append("{").append(labels_i).append("}");
  myText.append(" ").append(number, written.ptr).append("\n");
}

void PLXFigureText::AddOnly(std::string_view name_i, std::string_view help_i, double value_i) {
  Begin(name_i, help_i);
  Add({}, value_i);
}

bool PLXFigures::Parse(std::string_view text_i, std::string& name_o, Series& series_o) {
  if (text_i.size() > kSeriesBytesMost) return false;
  name_o = TakeName(text_i);
  if (name_o.empty() || name_o.starts_with(kServersOwn)) return false;
  if (text_i.empty()) return true;
  if (!Take(text_i, '{')) return false;
  do {
    std::string const label(TakeName(text_i));
    std::string value;
    // Labels that begin with two underscores belong to monitoring systems.
    if (label.empty() || label.starts_with("__") || !Take(text_i, '=') || !TakeValue(text_i, value))
      return false;
    if (!series_o.labels.emplace(label, std::move(value)).second) return false;
  } while (Take(text_i, ','));
  return text_i == "}";
}

PLXFigures::Answer PLXFigures::Change(std::string_view series_i, double value_i, bool isAdded_i) {
  std::string name;
  Series parsed;
  if (!std::isfinite(value_i) || !Parse(series_i, name, parsed)) return Answer::kInvalid;
  if (IsCounter(name) && (!isAdded_i || value_i < 0)) return Answer::kInvalid;
  std::string labels = WrittenLabels(parsed.labels);
  std::lock_guard const lock(myMutex);
  auto family = myFamilies.find(name);
  bool const isNew = family == myFamilies.end() || !family->second.series.contains(labels);
  if (isNew && mySeriesCount >= kSeriesMost) return Answer::kFull;
  if (family == myFamilies.end()) family = myFamilies.try_emplace(std::move(name)).first;
  Series& series = family->second.series[std::move(labels)];
  if (isNew) {
    series.labels = std::move(parsed.labels);
    ++mySeriesCount;
  }
  series.value = isAdded_i ? series.value + value_i : value_i;
  return Answer::kDone;
}

PLXFigures::Answer PLXFigures::Add(std::string_view series_i, double amount_i) {
  return Change(series_i, amount_i, true);
}

PLXFigures::Answer PLXFigures::Set(std::string_view series_i, double value_i) {
  return Change(series_i, value_i, false);
}

PLXFigures::Answer PLXFigures::Describe(std::string_view text_i) {
  std::size_t const blank = text_i.find(' ');
  std::string name;
  Series none;
  bool const isWhole = blank != std::string_view::npos && text_i.size() <= kSeriesBytesMost;
  if (!isWhole || !Parse(text_i.substr(0, blank), name, none) || !none.labels.empty() ||
      PLXNeedsEscape(text_i)) {
    return Answer::kInvalid;
  }
  std::lock_guard const lock(myMutex);
  if (!myFamilies.contains(name) && myFamilies.size() >= kSeriesMost) return Answer::kFull;
  myFamilies[name].help = text_i.substr(blank + 1);
  return Answer::kDone;
}

bool PLXFigures::Has(std::string_view name_i) const {
  std::lock_guard const lock(myMutex);
  return myFamilies.contains(name_i);
}

double PLXFigures::Sum(std::string_view name_i) const {
  double sum = 0;
  for (Series const& series : List(name_i)) sum += series.value;
  return sum;
}

std::vector<PLXFigures::Series> PLXFigures::List(std::string_view name_i) const {
  std::vector<Series> list;
  std::lock_guard const lock(myMutex);
  auto const family = myFamilies.find(name_i);
  if (family == myFamilies.end()) return list;
  for (auto const& [labels, series] : family->second.series) list.push_back(series);
  return list;
}

void PLXFigures::AppendTo(PLXFigureText& text_io) const {
  std::lock_guard const lock(myMutex);
  for (auto const& [name, family] : myFamilies) {
    if (family.series.empty()) continue;
    text_io.Begin(name, family.help);
    for (auto const& [labels, series] : family.series) text_io.Add(labels, series.value);
  }
}
