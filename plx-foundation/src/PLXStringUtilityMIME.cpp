#include <algorithm>

#include "PLXMIMEParser.h"
#include "PLXStringSearch.h"

// The delimiters of a multipart are found by one search forward, which also tells the closing one, so that a
// level of nesting costs one look at its bytes however many delimiters there are, and also when there is
// none. The depth is bounded: without that, a message that does nothing but nest would be looked at from end
// to end for each of its levels, on a stack that grows with them.

struct PLXMIMEParser::HeaderFields {
  std::string_view disposition, name, filename, boundary, contentType, transferEncoding;
};

namespace {

constexpr int kDeepestMultipart = 100;  // people's mail has ten at the very most

constexpr std::string_view kLineEnd = "\r\n";
constexpr std::string_view kBlankLine = "\r\n\r\n";
constexpr std::string_view kDashes = "--";
constexpr std::string_view kBlanks = " \t\r\n";

std::string_view View(PLXString const& string_i) {
  return {string_i.GetCStringAccess(), string_i.GetLength()};
}

PLXString String(std::string_view text_i) {
  return PLXString(text_i.data(), static_cast<PLXUInt32>(text_i.size()));
}

std::string_view Range(PLXString const& message_i, PLXUInt32 start_i, PLXUInt32 length_i) {
  return View(message_i).substr(std::min(start_i, message_i.GetLength()), length_i);
}

bool BeginsWith(std::string_view text_i, std::string_view prefix_i) noexcept {
  return text_i.size() >= prefix_i.size() &&
         PLXEqualBytes(text_i.data(), prefix_i.data(), static_cast<PLXUInt32>(prefix_i.size()), true);
}

bool IsEqual(std::string_view left_i, std::string_view right_i) noexcept {
  return left_i.size() == right_i.size() && BeginsWith(left_i, right_i);
}

std::string_view Trimmed(std::string_view text_i, std::string_view set_i = kBlanks) noexcept {
  std::size_t const first = text_i.find_first_not_of(set_i);
  return first == text_i.npos ? std::string_view()
                              : text_i.substr(first, text_i.find_last_not_of(set_i) + 1 - first);
}

// Calls with each stretch between delimiters.
template <typename Function>
void ForEachToken(std::string_view text_i, std::string_view delimiter_i, Function const& function_i) {
  for (;;) {
    std::size_t const length = std::min(text_i.find(delimiter_i), text_i.size());
    function_i(text_i.substr(0, length));
    if (length == text_i.size()) return;
    text_i.remove_prefix(length + delimiter_i.size());
  }
}

std::string_view LastPathComponent(std::string_view path_i) noexcept {
  return path_i.substr(path_i.find_last_of("\\/:") + 1);
}

// Where the delimiter is, up to and with the last place where it closes; empty when it closes nowhere.
std::vector<PLXUInt32> FindDelimiters(std::string_view text_i, std::string_view delimiter_i) {
  std::vector<PLXUInt32> offsets;
  std::size_t countToClosing = 0;
  char const* const end = text_i.data() + text_i.size();
  char const* position = text_i.data();
  while (static_cast<std::size_t>(end - position) >= delimiter_i.size()) {
    position = PLXFindForward(position, static_cast<PLXUInt32>(end - position), delimiter_i.data(),
                              static_cast<PLXUInt32>(delimiter_i.size()), false);
    if (position == nullptr) break;
    offsets.push_back(static_cast<PLXUInt32>(position - text_i.data()));
    position += delimiter_i.size();
    if (std::string_view(position, end).starts_with(kDashes)) countToClosing = offsets.size();
  }
  offsets.resize(countToClosing);
  return offsets;
}

}  // namespace

// Parameters are looked for on every line alike, which finds those of folded lines without unfolding any. The
// last one of a kind counts.
PLXMIMEParser::HeaderFields PLXMIMEParser::ReadHeaderFields(std::string_view headers_i) {
  HeaderFields fields;
  struct Rule {
    std::string_view beginning;
    char separator;
    std::string_view* value_o;
  };
  Rule const rules[] = {{"Content-Disposition", ':', &fields.disposition},
                        {"name", '=', &fields.name},
                        {"filename", '=', &fields.filename},
                        {"boundary", '=', &fields.boundary},
                        {"Content-Type", ':', &fields.contentType},
                        {"Content-Transfer-Encoding", ':', &fields.transferEncoding}};
  auto const readItem = [&rules](std::string_view item_i) {
    std::string_view const item = Trimmed(item_i);
    auto const* const rule = std::find_if(std::begin(rules), std::end(rules), [&](Rule const& rule_i) {
      return BeginsWith(item, rule_i.beginning);
    });
    if (rule == std::end(rules)) return;
    std::string_view const rest = Trimmed(item.substr(rule->beginning.size()));
    if (rest.starts_with(rule->separator)) *rule->value_o = Trimmed(Trimmed(rest.substr(1)), "\"");
  };
  ForEachToken(headers_i, kLineEnd, [&](std::string_view line_i) { ForEachToken(line_i, ";", readItem); });
  fields.filename = LastPathComponent(fields.filename);
  return fields;
}

bool PLXMIMEParser::ParsePart(std::string_view headers_i, std::string_view text_i, std::string_view* body_o) {
  HeaderFields const fields = ReadHeaderFields(headers_i);
  bool const isAttachment = IsEqual(fields.disposition, "attachment");
  bool const isFormData = IsEqual(fields.disposition, "form-data");
  if (body_o != nullptr && !isAttachment && !isFormData) *body_o = text_i;

  if (BeginsWith(fields.contentType, "multipart/") && myDepth < kDeepestMultipart) {
    ++myDepth;
    std::optional<bool> const result = ParseMultipart(fields.boundary, text_i, nullptr);
    --myDepth;
    if (result) return *result;
  }
  if (isAttachment) {
    bool const isBase64 = IsEqual(fields.transferEncoding, "base64");
    return StoreFile(fields, text_i,
                     isBase64 ? PLXAttachmentFolder::kBase64 : PLXAttachmentFolder::kAsItStands);
  }
  if (myResults == nullptr) return false;
  if (isFormData && !fields.filename.empty()) {
    return StoreFile(fields, text_i, PLXAttachmentFolder::kAsItStands);
  }
  if (fields.name.empty()) return false;
  myFound.emplace_back(String(fields.name), String(text_i));
  return !isFormData;
}

bool PLXMIMEParser::StoreFile(HeaderFields const& fields_i, std::string_view text_i,
                              PLXAttachmentFolder::Encoding encoding_i) {
  if (fields_i.filename.empty() || !myFolder.IsGiven()) return false;
  PLXString const savedName = myFolder.Store(fields_i.filename, text_i, encoding_i);
  if (savedName.IsEmpty() || myResults == nullptr) return true;
  PLXString const name = String(fields_i.name);
  myFound.emplace_back(name, savedName);
  if (View(savedName) != fields_i.filename) {
    myFound.emplace_back(name + "_Original", String(fields_i.filename));
  }
  return true;
}

std::optional<bool> PLXMIMEParser::ParseMultipart(std::string_view boundary_i, std::string_view text_i,
                                                  std::string_view* body_o) {
  if (body_o != nullptr) *body_o = text_i;
  if (boundary_i.empty()) return std::nullopt;
  std::string const delimiter = std::string(kDashes).append(boundary_i);
  std::vector<PLXUInt32> const offsets = FindDelimiters(text_i, delimiter);
  if (offsets.empty()) return std::nullopt;

  bool result = true;
  for (std::size_t index = 0; index + 1 < offsets.size(); ++index) {
    std::size_t const start = offsets[index] + delimiter.size();
    std::string_view const part = text_i.substr(start, offsets[index + 1] - start);
    // The line end of the delimiter may be the first of the two: a part without headers begins with its blank
    // line (RFC 2046, section 5.1).
    std::size_t const headersEnd = part.find(kBlankLine);
    if (headersEnd == part.npos) break;
    std::string_view headers = part.substr(0, headersEnd);
    headers.remove_prefix(std::min(headers.size(), kLineEnd.size()));
    std::string_view body = part.substr(headersEnd + kBlankLine.size());
    if (body.ends_with(kLineEnd)) body.remove_suffix(kLineEnd.size());
    if (body_o != nullptr && index == 0) *body_o = {};
    result = ParsePart(headers, body, body_o);
  }
  return result;
}

void PLXMIMEParser::FillResults() {
  if (myResults == nullptr) return;
  TPLXArray<PLXStringID>& names = myResults->GetNameArray();
  TPLXArray<PLXString>& values = myResults->GetValueArray();
  PLXUInt32 index = names.GetElementCount();
  PLXUInt32 const count = index + static_cast<PLXUInt32>(myFound.size());
  names.ResizeToHold(count);
  values.ResizeToHold(count);
  for (auto const& [name, value] : myFound) {
    names[index] = PLXStringID(name, PLXStringID::kIgnoreCase);
    values[index++] = value;
  }
  myFound.clear();
}

// ---- Messages in memory ----

bool PLXStringUtility::ParseMessagePart(PLXString const& message_i, PLXString const& headers_i,
                                        PLXUInt32 start_i, PLXUInt32 length_i, PLXString const& folder_i,
                                        PLXTokenizedString const& patterns_i, PLXUInt32 maximumSize_i,
                                        MessagePartList* results_io) {
  PLXMIMEParser parser(folder_i, patterns_i, maximumSize_i, results_io);
  bool const result = parser.ParsePart(View(headers_i), Range(message_i, start_i, length_i), nullptr);
  parser.FillResults();
  return result;
}

bool PLXStringUtility::ParseMultipartMessage(PLXString const& message_i, PLXString const& boundary_i,
                                             PLXUInt32 start_i, PLXUInt32 length_i, PLXString const& folder_i,
                                             PLXTokenizedString const& patterns_i, PLXUInt32 maximumSize_i,
                                             MessagePartList* results_io) {
  PLXMIMEParser parser(folder_i, patterns_i, maximumSize_i, results_io);
  std::optional<bool> const result =
      parser.ParseMultipart(View(boundary_i), Range(message_i, start_i, length_i), nullptr);
  parser.FillResults();
  return result.value_or(false);
}

bool PLXStringUtility::ParseMessagePart_ReturnBody(PLXString const& message_i, PLXString const& headers_i,
                                                   PLXUInt32 start_i, PLXUInt32 length_i,
                                                   PLXString const& folder_i,
                                                   PLXTokenizedString const& patterns_i,
                                                   PLXUInt32 maximumSize_i, MessagePartList* results_io,
                                                   PLXString& body_io) {
  PLXMIMEParser parser(folder_i, patterns_i, maximumSize_i, results_io);
  std::string_view body = View(body_io);
  bool const result = parser.ParsePart(View(headers_i), Range(message_i, start_i, length_i), &body);
  parser.FillResults();
  body_io.Assign(body.data(), static_cast<PLXUInt32>(body.size()));
  return result;
}

bool PLXStringUtility::ParseMultipartMessage_ReturnBody(PLXString const& message_i,
                                                        PLXString const& boundary_i, PLXUInt32 start_i,
                                                        PLXUInt32 length_i, PLXString const& folder_i,
                                                        PLXTokenizedString const& patterns_i,
                                                        PLXUInt32 maximumSize_i, MessagePartList* results_io,
                                                        PLXString& body_o, FileStoring* storing_io) {
  PLXMIMEParser parser(folder_i, patterns_i, maximumSize_i, results_io,
                       storing_io != nullptr && storing_io->isRepeated);
  std::string_view body;
  std::optional<bool> const result =
      parser.ParseMultipart(View(boundary_i), Range(message_i, start_i, length_i), &body);
  parser.FillResults();
  bool const isStored = parser.FinishFiles();
  if (storing_io != nullptr) storing_io->hasFailed = !isStored;
  body_o.Assign(body.data(), static_cast<PLXUInt32>(body.size()));
  return result.value_or(false);
}
