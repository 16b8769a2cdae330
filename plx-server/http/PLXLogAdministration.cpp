#include "PLXLogAdministration.h"

#include "PLXAdministrationHTML.h"
#include "PLXLogTail.h"
#include "PLXServerPages.h"

namespace {

struct Choice {
  std::string_view value;
  std::string_view label;
};

constexpr Choice kLogs[] = {
    {"server", "server: what happens"}, {"access", "access: requests"}, {"trace", "trace: calls of modules"}};
// In the order of PLXLogLevel.
constexpr Choice kLevels[] = {{"note", "everything"},
                              {"warning", "warnings and worse"},
                              {"error", "errors and worse"},
                              {"failure", "failures"}};
constexpr Choice kLines[] = {{"50", "50"}, {"200", "200"}, {"1000", "1000"}, {"5000", "5000"}};
constexpr std::size_t kUsualLines = 1;  // of kLines

// Turned upside down twice, so that it stands at its end when it is shown.
constexpr std::string_view kStyle =
    "<style>.tail{display:flex;flex-direction:column-reverse;max-height:70vh;overflow:auto;margin:1rem 0}"
    ".tail pre{margin:0}.choices{display:flex;flex-wrap:wrap;gap:.5rem 1rem;align-items:end}"
    ".choices label{display:block}.choices select,.choices input{display:block}</style>\n";

// The row that the argument names, else the usual one.
template <std::size_t kCount>
std::size_t Chosen(Choice const (&choices_i)[kCount], std::string const& value_i, std::size_t usual_i) {
  for (std::size_t index = 0; index < kCount; ++index) {
    if (choices_i[index].value == value_i) return index;
  }
  return usual_i;
}

template <std::size_t kCount>
std::string Selection(std::string_view label_i, std::string_view name_i, Choice const (&choices_i)[kCount],
                      std::size_t chosen_i) {
  std::string html = "<label>" + std::string(label_i) + " <select name=\"" + std::string(name_i) + "\">";
  for (std::size_t index = 0; index < kCount; ++index) {
    html += "<option value=\"" + std::string(choices_i[index].value) + "\"" +
            (index == chosen_i ? " selected" : "") + ">" + std::string(choices_i[index].label) + "</option>";
  }
  return html + "</select></label>\n";
}

// Why there are no lines.
std::string Nothing(PLXLogExcerpt const& excerpt_i, bool isFiltered_i, std::size_t log_i) {
  if (excerpt_i.lines.empty() && isFiltered_i)
    return "<p>No line is of this level and holds this text.</p>\n";
  if (kLogs[log_i].value == "trace") {
    return "<p>Nothing has been traced. The key <code>trace</code> writes every call of the modules here, "
           "the "
           "header <code>X-PLX-Trace: 1</code> those of one request from this machine.</p>\n";
  }
  return "<p>Nothing has been logged yet.</p>\n";
}

}  // namespace

PLXLogPage::PLXLogPage(PLXRequest const& request_i, std::filesystem::path const& folder_i) {
  std::size_t const log = Chosen(kLogs, ArgumentOf(request_i, "file"), 0);
  std::size_t const level = Chosen(kLevels, ArgumentOf(request_i, "level"), 0);
  std::size_t const lines = Chosen(kLines, ArgumentOf(request_i, "lines"), kUsualLines);
  std::string const text = ArgumentOf(request_i, "text");
  bool const follows = ArgumentOf(request_i, "follow") == "1";
  PLXLogQuery const query{kLogs[log].value, std::stoul(std::string(kLines[lines].value)),
                          static_cast<PLXLogLevel>(level), text};
  PLXLogExcerpt const excerpt = ReadLogTail(folder_i, query);

  head = std::string(kStyle) + std::string(follows ? kRefresh : "");
  body = "<form method=\"get\" action=\"" + std::string(kPath) + "\" class=\"choices\">\n" +
         Selection("Log", "file", kLogs, log) + Selection("Level", "level", kLevels, level) +
         Selection("Lines", "lines", kLines, lines) +
         "<label>With the text <input type=\"search\" name=\"text\" value=\"" + EncodeHTML(text) +
         "\"></label>\n<button type=\"submit\">Show</button>\n"
         "<button type=\"submit\" name=\"follow\" value=\"1\">Follow</button>\n</form>\n";
  if (follows) {
    std::string const still = std::string(kPath) + "?file=" + std::string(kLogs[log].value) +
                              "&level=" + std::string(kLevels[level].value) +
                              "&lines=" + std::string(kLines[lines].value) + "&text=" + EncodeArgument(text);
    body += "<p role=\"status\">This page is asked for again every 5 seconds. " +
            Link(still, "Hold it still") + "</p>\n";
  }
  if (excerpt.lines.empty()) {
    body += Nothing(excerpt, level > 0 || !text.empty(), log);
  } else {
    body +=
        "<div class=\"tail\" tabindex=\"0\" role=\"region\" aria-label=\"Lines of the log, the newest "
        "last\"><pre>";
    for (std::string const& line : excerpt.lines) body += EncodeHTML(line) + "\n";
    body += "</pre></div>\n";
  }
  if (!excerpt.isWhole && excerpt.lines.size() < query.lines)
    body += "<p class=\"quiet\">The newest 16 MB were looked through.</p>\n";
}
