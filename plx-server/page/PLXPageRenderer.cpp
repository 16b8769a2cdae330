#include "PLXASCII.h"
#include "PLXCGIVariables.h"
#include "PLXCodeText.h"
#include "PLXLog.h"
#include "PLXPage.h"
#include "PLXPagePieces.h"
#include "PLXRecordsLoop.h"

namespace {

// A module may say of its output that it is not to be looked at again, which it never is.
std::string_view WithoutMarks(std::string_view html_i) {
  constexpr std::string_view kStart = "<plxDoNotProcess>";
  constexpr std::string_view kEnd = "</plxDoNotProcess>";
  if (!html_i.starts_with(kStart) || !html_i.ends_with(kEnd)) return html_i;
  return html_i.substr(kStart.size(), html_i.size() - kStart.size() - kEnd.size());
}

std::string_view const kProblemBox_Begin =
    "<div role=\"alert\" style=\"all:initial;display:block;box-sizing:border-box;max-width:48em;margin:1em 0;"
    "padding:.75em 1em;border:1px solid #b3261e;border-left-width:6px;border-radius:4px;background:#fdeceb;"
    "color:#410e0b;font:16px/1.5 system-ui,sans-serif;text-align:left;overflow-wrap:anywhere\">"
    "<div style=\"all:unset;display:block;font-weight:bold\">";
std::string_view const kProblemBox_Problem = "</div><div style=\"all:unset;display:block\">";
std::string_view const kProblemBox_Remedy =
    "</div><div style=\"all:unset;display:block\"><span style=\"all:unset;font-weight:bold\">Remedy: </span>";
std::string_view const kProblemBox_End = "</div></div>";

void AppendEncoded(std::string_view text_i, std::string& html_io) {
  std::size_t done = 0;
  for (std::size_t offset = 0; offset < text_i.size(); ++offset) {
    std::string_view entity;
    switch (text_i[offset]) {
      case '&':
        entity = "&amp;";
        break;
      case '<':
        entity = "&lt;";
        break;
      case '>':
        entity = "&gt;";
        break;
      case '"':
        entity = "&quot;";
        break;
      case '\'':
        entity = "&#39;";
        break;
      default:
        continue;
    }
    html_io.append(text_i, done, offset - done).append(entity);
    done = offset + 1;
  }
  html_io.append(text_i, done);
}

void DoubleApostrophes(std::size_t begin_i, std::string& text_io) {
  std::string doubled;
  for (std::size_t index = begin_i; index < text_io.size(); ++index) {
    doubled.append(text_io[index] == '\'' ? 2 : 1, text_io[index]);
  }
  text_io.replace(begin_i, std::string::npos, doubled);
}

void AppendProblemBox(std::string_view problem_i, std::string_view remedy_i, std::string& html_io,
                      PLXProblemBoxPlace place_i = PLXProblemBoxPlace::kInstead) {
  html_io.append(kProblemBox_Begin)
      .append(place_i == PLXProblemBoxPlace::kInstead ? "This part of the page cannot be shown"
                                                      : "This part of the page has a problem")
      .append(kProblemBox_Problem)
      .append(problem_i);
  if (!remedy_i.empty()) html_io.append(kProblemBox_Remedy).append(remedy_i);
  html_io.append(kProblemBox_End);
}

// One run through a page. Recursion is as deep as bodies stand in bodies, which the parser bounds.
class Renderer {
 public:
  Renderer(PLXPage const& page_i, PLXTagProcessor& tags_i, PLXPageContext& context_io)
      : myPieces(page_i.Pieces()), myTags(tags_i), myContext(context_io) {}

  enum class Target { kPage, kBody };

  void Render(std::size_t begin_i, std::size_t end_i, Target target_i, std::string& text_io) {
    for (std::size_t index = begin_i; index < end_i; ++index) {
      PLXPage::Piece const& piece = myPieces[index];
      switch (piece.kind) {
        case PLXPage::Piece::Kind::kText:
          text_io.append(piece.text);
          break;
        case PLXPage::Piece::Kind::kValue:
          AppendValue({piece.valueKind, piece.text}, target_i, text_io);
          break;
        case PLXPage::Piece::Kind::kTag:
          RunTag(index, text_io);
          index = piece.end - 1;
          break;
        case PLXPage::Piece::Kind::kRecords:
          RunRecords(index, target_i, text_io);
          index = piece.end - 1;
          break;
      }
    }
  }

 private:
  void AppendValue(PLXValueReference const& value_i, Target target_i, std::string& text_io) {
    std::string kept;
    std::string_view const text = ValueText(value_i, kept);
    if (target_i == Target::kPage) {
      AppendEncoded(text, text_io);
    } else {
      text_io.append(text);
    }
  }

  // Empty for a value that does not exist. What has no text of its own yet is made in `kept_o`.
  std::string_view ValueText(PLXValueReference const& value_i, std::string& kept_o) {
    auto const text = [&](std::vector<PLXNameValue> const& list, bool ignoreCase) -> std::string_view {
      PLXNameValue const* const found = FindNameValue(list, value_i.name, 0, ignoreCase);
      return found == nullptr ? std::string_view() : std::string_view(found->value);
    };
    switch (value_i.kind) {
      case PLXValueKind::kPost:
        return text(myContext.request.postArguments, false);
      case PLXValueKind::kPath:
        return text(myContext.request.pathArguments, false);
      case PLXValueKind::kVariable:
        return text(myContext.variables, true);
      case PLXValueKind::kCookie:
        myContext.isPersonal = true;
        return text(myContext.request.cookies, false);
      case PLXValueKind::kCGI:
        return kept_o = CGIVariable(value_i.name, myContext).value_or("");
      case PLXValueKind::kField:
        return myLoop == nullptr ? std::string_view() : myLoop->Field(value_i.name, kept_o);
      case PLXValueKind::kRecords:
        return EqualIgnoringCase(value_i.name, "Count") ? std::string_view(kept_o = myCount)
                                                        : std::string_view();
    }
    return {};
  }

  void RunTag(std::size_t index_i, std::string& html_io) {
    PLXTagTemplate const& tag = *myPieces[index_i].tag;
    if (tag.insertions.empty() && !tag.encloses) {
      Finish(tag.occurrence, html_io);
      return;
    }
    PLXTagOccurrence occurrence = WithValues(tag);
    if (tag.encloses) Render(index_i + 1, myPieces[index_i].end, Target::kBody, occurrence.body);
    Finish(occurrence, html_io);
  }

  // The body once for each record. A value inside shows the innermost loop's record.
  void RunRecords(std::size_t index_i, Target target_i, std::string& text_io) {
    PLXTagTemplate const& tag = *myPieces[index_i].tag;
    PLXTagOccurrence const occurrence = WithValues(tag);
    PLXRecordsLoop* const outer = myLoop;
    std::string const outerCount = myCount;
    try {
      PLXRecordsLoop loop(occurrence, myContext, outer);
      std::string const count = std::to_string(loop.Count());
      myLoop = &loop;
      myCount = count;
      while (loop.Next()) {
        if (tag.encloses) Render(index_i + 1, myPieces[index_i].end, target_i, text_io);
        myCount = count;  // what stood in the body may have counted, too
      }
    } catch (PLXRecordError const& error) {
      AppendProblem(occurrence, EncodeHTML(error.what()),
                    "Check the name of the database, its fields and the search.", text_io);
    } catch (PLXRecordsLoop::Fault const& fault) {
      AppendProblem(occurrence, EncodeHTML(fault.problem), EncodeHTML(fault.remedy), text_io);
    }
    if (outer != nullptr) myCount = outerCount;
    myLoop = outer;
  }

  static void AppendProblem(PLXTagOccurrence const& tag_i, std::string const& problem_i,
                            std::string_view remedy_i, std::string& html_io) {
    AppendProblemBox("The &lt;plxRecords&gt; tag on line " + std::to_string(tag_i.line) + ": " + problem_i,
                     remedy_i, html_io);
  }

  PLXTagOccurrence WithValues(PLXTagTemplate const& tag_i) {
    PLXTagOccurrence occurrence = tag_i.occurrence;
    auto insertion = tag_i.insertions.begin();
    while (insertion != tag_i.insertions.end()) {
      std::uint32_t const parameter = insertion->parameter;
      std::string const& literal = tag_i.occurrence.parameters[parameter].value;
      std::string& value = occurrence.parameters[parameter].value;
      bool const isSearch =
          tag_i.isRecords && EqualIgnoringCase(occurrence.parameters[parameter].name, "search");
      value.clear();
      std::size_t done = 0;
      for (; insertion != tag_i.insertions.end() && insertion->parameter == parameter; ++insertion) {
        value.append(literal, done, insertion->offset - done);
        done = insertion->offset;
        std::size_t const begin = value.size();
        AppendValue(insertion->value, Target::kBody, value);
        // A value in a search is data: its apostrophes must not end what stands in apostrophes there.
        if (isSearch) DoubleApostrophes(begin, value);
      }
      value.append(literal, done);
    }
    return occurrence;
  }

  void Finish(PLXTagOccurrence const& tag_i, std::string& html_io) {
    PLXTagOutcome const outcome = myTags.Process(tag_i, myContext);
    std::string_view const html = WithoutMarks(outcome.html);
    // A tag that succeeded in spite of a problem has both to show.
    bool const isShown = !outcome.hasProblem || outcome.result == 0;
    if (outcome.hasProblem) {
      AppendProblemBox(outcome.problem, outcome.remedy, html_io,
                       isShown && !html.empty() ? PLXProblemBoxPlace::kAbove : PLXProblemBoxPlace::kInstead);
    }
    if (!isShown) return;
    html_io.append(html);
    bool const asksForLogin = myContext.response.status == 401;
    if (outcome.result != 0 && !asksForLogin) {
      PLXLog::Warning("<" + tag_i.name + "> returned " + PLXCodeText(outcome.result) +
                      " without a reason at " + myContext.file.native() + ":" + std::to_string(tag_i.line));
    }
  }

  std::vector<PLXPage::Piece> const& myPieces;
  PLXTagProcessor& myTags;
  PLXPageContext& myContext;
  PLXRecordsLoop* myLoop = nullptr;  // the innermost that runs
  std::string myCount;               // of the innermost loop, outside of the last one
};

}  // namespace

std::string RenderPage(PLXPage const& page_i, PLXTagProcessor& tags_i, PLXPageContext& context_io) {
  std::string html;
  html.reserve(page_i.Text().size() + page_i.Text().size() / 8);
  Renderer renderer(page_i, tags_i, context_io);
  renderer.Render(0, page_i.Pieces().size(), Renderer::Target::kPage, html);
  return html;
}

std::string ProblemBox(std::string_view problem_i, std::string_view remedy_i, PLXProblemBoxPlace place_i) {
  std::string html;
  AppendProblemBox(problem_i, remedy_i, html, place_i);
  return html;
}

std::string EncodeHTML(std::string_view text_i) {
  std::string html;
  html.reserve(text_i.size());
  AppendEncoded(text_i, html);
  return html;
}
