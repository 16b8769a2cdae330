#include "PLXRecordsAdministration.h"

#include <algorithm>
#include <charconv>
#include <vector>

#include "PLXAdministrationHTML.h"
#include "PLXLog.h"
#include "PLXServerPages.h"

namespace {

constexpr std::int64_t kRecordsOfAPage = 50;
constexpr std::size_t kBytesInATable = 80;
constexpr std::size_t kBytesOfARecord = 100000;  // of one field

std::int64_t ToNumber(std::string const& text_i) {
  std::int64_t number = 0;
  auto const [end, error] = std::from_chars(text_i.data(), text_i.data() + text_i.size(), number);
  return error == std::errc() && end == text_i.data() + text_i.size() ? number : 0;
}

// The beginning of a text, not cut within a character.
std::string Beginning(std::string const& text_i, std::size_t bytes_i) {
  if (text_i.size() <= bytes_i) return text_i;
  std::size_t end = bytes_i;
  while (end > 0 && bytes_i - end < 3 && (static_cast<unsigned char>(text_i[end]) & 0xC0) == 0x80) --end;
  return text_i.substr(0, end) + "\xE2\x80\xA6 (" + std::to_string(text_i.size()) + " bytes)";
}

std::string Attributes(PLXRecordField const& field_i) {
  if (field_i.IsUnique()) return "takes no value twice";
  return field_i.IsIndexed() ? "indexed" : "";
}

}  // namespace

// What the arguments of an address ask for.
struct PLXRecordsAdministration::View {
  std::string name;
  std::string search;
  std::int64_t page = 1;        // from 1
  std::int64_t identifier = 0;  // of the record; 0: the database
  bool isAsked = false;         // whether to delete it
  bool isDeleted = false;       // one was deleted just now

  explicit View(PLXRequest const& request_i)
      : name(ArgumentOf(request_i, "name")),
        search(ArgumentOf(request_i, "search")),
        page(std::max<std::int64_t>(
            1, std::min(ToNumber(ArgumentOf(request_i, "page")), std::int64_t{1} << 40))),
        identifier(ToNumber(ArgumentOf(request_i, "record"))),
        isAsked(ArgumentOf(request_i, "delete") == "ask"),
        isDeleted(!ArgumentOf(request_i, "deleted").empty()) {}

  // Of this view, on a page of the table or at a record of it.
  std::string Address(std::int64_t page_i, std::int64_t identifier_i = 0) const {
    std::string address = std::string(kPath) + "?name=" + EncodeArgument(name);
    if (!search.empty()) address += "&search=" + EncodeArgument(search);
    if (page_i > 1) address += "&page=" + std::to_string(page_i);
    if (identifier_i != 0) address += "&record=" + std::to_string(identifier_i);
    return address;
  }
};

PLXRecordsAdministration::Page PLXRecordsAdministration::Answer(PLXRequest const& request_i) {
  View const view(request_i);
  try {
    if (request_i.method == "POST") return Delete(view, request_i);
    if (view.name.empty()) return All();
    return view.identifier != 0 ? Record(view) : Database(view);
  } catch (PLXRecordError const& error) {
    return {view.name.empty() ? "Databases" : view.name,
            ProblemBox(EncodeHTML(error.what()), "") + "<p>" + Link(kPath, "All databases") + "</p>\n", ""};
  }
}

std::unique_ptr<PLXRecordCursor> PLXRecordsAdministration::Open(std::string const& name_i) {
  auto cursor = std::make_unique<PLXRecordCursor>(myEngine.Store(), name_i, PLXRecordAccess::kShared, nullptr,
                                                  PLXRecordCursor::WhenMissing::kFail);
  return cursor;
}

PLXRecordsAdministration::Page PLXRecordsAdministration::All() {
  Page page{"Databases", "", ""};
  auto const names = myEngine.Store()->Names();
  if (names.empty()) {
    page.body = "<p>There is no database yet. Modules make them when they first keep something.</p>\n";
    return page;
  }
  page.body = TableHead("Databases", {"Database", "Fields", "Records"});
  for (std::string const& name : names) {
    std::string fields = "?";
    std::string records = "in use";
    try {
      auto const cursor = Open(name);
      fields = std::to_string(cursor->Fields().size());
      records = std::to_string(cursor->RecordCount());
    } catch (PLXRecordError const& error) {
      if (error.GetKind() == PLXRecordError::Kind::kNotFound) continue;  // deleted meanwhile
    }
    page.body += "<tr><td>" + Link(std::string(kPath) + "?name=" + EncodeArgument(name), name) + "</td>" +
                 NumberCell(fields) + NumberCell(records) + "</tr>\n";
  }
  page.body += kTableEnd;
  return page;
}

PLXRecordsAdministration::Page PLXRecordsAdministration::Database(View const& view_i) {
  auto const cursor = Open(view_i.name);
  Page page{cursor->Name(), "", ""};
  if (view_i.isDeleted) page.body += "<p class=\"note\" role=\"status\">The record was deleted.</p>\n";
  page.body += "<p>" + Link(kPath, "All databases") + "</p>\n<h2>Fields</h2>\n" +
               TableHead("Fields", {"Field", "Type", "Index"});
  for (PLXRecordField const& field : cursor->Fields()) {
    page.body += "<tr>" + Cell(field.name) + Cell(field.TypeName()) + Cell(Attributes(field)) + "</tr>\n";
  }
  page.body += std::string(kTableEnd) + "<h2>Records</h2>\n<form method=\"get\" action=\"" +
               std::string(kPath) + "\">\n<input type=\"hidden\" name=\"name\" value=\"" +
               EncodeHTML(view_i.name) +
               "\">\n<p><label>Search <input type=\"search\" name=\"search\" size=\"40\" value=\"" +
               EncodeHTML(view_i.search) +
               "\"></label> <button type=\"submit\">Find</button></p>\n<p class=\"quiet\">For example: Name "
               "= 'Ada' ORDER BY "
               "Name DESC</p>\n</form>\n";
  try {
    if (!view_i.search.empty()) cursor->Search(view_i.search);
  } catch (PLXRecordError const& error) {
    page.body += ProblemBox(EncodeHTML(error.what()), "");
    return page;
  }
  auto const count = static_cast<std::int64_t>(cursor->ResultCount());
  std::int64_t const pages = std::max<std::int64_t>(1, (count + kRecordsOfAPage - 1) / kRecordsOfAPage);
  std::int64_t const current = std::min(view_i.page, pages);
  page.body += "<p>" + std::to_string(count) + (count == 1 ? " record" : " records") + ", page " +
               std::to_string(current) + " of " + std::to_string(pages) + "</p>\n";
  std::vector<std::string> names{std::string(kPLXRecord_IDField)};
  for (PLXRecordField const& field : cursor->Fields()) names.push_back(field.name);
  page.body += TableHead("Records", names);
  try {
    if (count > 0) cursor->Jump((current - 1) * kRecordsOfAPage);
    for (std::int64_t left = std::min(count, kRecordsOfAPage); left > 0; --left) {
      std::string const identifier = PLXRecordText(cursor->Get(kPLXRecord_IDField));
      page.body += "<tr><td>" + Link(view_i.Address(current, ToNumber(identifier)), identifier) + "</td>";
      for (PLXRecordField const& field : cursor->Fields()) {
        // Long texts are as long as they like: only the record's own page reads them.
        std::string const text = field.IsLongText()
                                     ? "\xE2\x80\xA6"
                                     : Beginning(PLXRecordText(cursor->Get(field.name)), kBytesInATable);
        page.body += field.IsText() ? Cell(text) : NumberCell(text);
      }
      page.body += "</tr>\n";
      cursor->MoveNext();
    }
  } catch (PLXRecordError const& error) {
    if (error.GetKind() != PLXRecordError::Kind::kEnd) throw;
  }
  page.body += kTableEnd;
  page.body += "<nav aria-label=\"Pages\"><p>";
  if (current > 1) {
    page.body += Link(view_i.Address(1), "First") + " " + Link(view_i.Address(current - 1), "Previous") + " ";
  }
  if (current < pages)
    page.body += Link(view_i.Address(current + 1), "Next") + " " + Link(view_i.Address(pages), "Last");
  page.body += "</p></nav>\n";
  return page;
}

PLXRecordsAdministration::Page PLXRecordsAdministration::Record(View const& view_i) {
  auto const cursor = Open(view_i.name);
  cursor->MoveTo(view_i.identifier);
  std::string const number = std::to_string(view_i.identifier);
  Page page{cursor->Name() + ", record " + number, "", ""};
  std::string const back = view_i.Address(view_i.page);
  std::string const address = view_i.Address(view_i.page, view_i.identifier);
  page.body = "<p>" + Link(back, "Back to the records") + "</p>\n";
  if (view_i.isAsked) {
    page.body += "<form method=\"post\" action=\"" + EncodeHTML(address) +
                 "\">\n<p class=\"note\">Delete record " + number +
                 " for good? <button type=\"submit\" name=\"delete\" value=\"yes\">Delete it</button> " +
                 Link(address, "Keep it") + "</p>\n</form>\n";
  }
  page.body += "<dl>\n";
  for (PLXRecordField const& field : cursor->Fields()) {
    std::string const text = Beginning(PLXRecordText(cursor->Get(field.name)), kBytesOfARecord);
    page.body += "<dt>" + EncodeHTML(field.name) + "</dt><dd>" +
                 (field.IsLongText() ? "<pre>" + EncodeHTML(text) + "</pre>" : EncodeHTML(text)) + "</dd>\n";
  }
  page.body += "</dl>\n";
  if (!view_i.isAsked) page.body += "<p>" + Link(address + "&delete=ask", "Delete this record") + "</p>\n";
  return page;
}

PLXRecordsAdministration::Page PLXRecordsAdministration::Delete(View const& view_i,
                                                                PLXRequest const& request_i) {
  PLXNameValue const* const answer = FindNameValue(request_i.postArguments, "delete");
  if (answer == nullptr || answer->value != "yes" || view_i.identifier == 0) {
    return {"Databases", "", view_i.Address(view_i.page, view_i.identifier)};
  }
  Open(view_i.name)->Delete(view_i.identifier);
  PLXLog::Note("record " + std::to_string(view_i.identifier) + " of the database " + view_i.name +
               " deleted by " + request_i.user + " from " + request_i.remoteAddress);
  return {"Databases", "", view_i.Address(view_i.page) + "&deleted=1"};
}
