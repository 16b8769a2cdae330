#include "PLXHTTPAnswer.h"

#include <algorithm>
#include <charconv>
#include <string_view>

#include "PLXNetworkingStream.h"

namespace {

constexpr PLXUInt32 kStatus_Continue = 100;
constexpr PLXUInt32 kStatus_SwitchingProtocols = 101;
constexpr PLXUInt32 kStatus_NoContent = 204;
constexpr PLXUInt32 kStatus_MovedPermanently = 301;
constexpr PLXUInt32 kStatus_Found = 302;
constexpr PLXUInt32 kStatus_NotModified = 304;

constexpr std::string_view kLineEnd = "\r\n";
constexpr std::string_view kEmptyLine = "\r\n\r\n";
constexpr PLXUInt32 kEmptyLineLength = 4;

std::string_view View(PLXString const& string_i) noexcept {
  return {string_i.GetCStringAccess(), string_i.GetLength()};
}

std::string_view Trimmed(std::string_view text_i) noexcept {
  constexpr char kWhiteSpace[] = " \t\r\n";
  std::size_t const first = text_i.find_first_not_of(kWhiteSpace);
  if (first == std::string_view::npos) return {};
  return text_i.substr(first, text_i.find_last_not_of(kWhiteSpace) - first + 1);
}

// Cuts the first line off the text, its CR LF with it.
std::string_view TakeLine(std::string_view& text_io) noexcept {
  std::size_t const end = text_io.find(kLineEnd);
  std::string_view const line = text_io.substr(0, end);
  text_io.remove_prefix(end == std::string_view::npos ? text_io.size() : end + kLineEnd.size());
  return line;
}

// Whether the line begins with the name, which ends with its colon, in any letter case. Gives the trimmed
// value.
bool IsHeader(std::string_view line_i, std::string_view name_i, std::string_view& value_o) noexcept {
  auto const isSame = [](char left_i, char right_i) {
    return PLXString::Lowercase(static_cast<unsigned char>(left_i)) ==
           PLXString::Lowercase(static_cast<unsigned char>(right_i));
  };
  if (line_i.size() < name_i.size()) return false;
  if (!std::equal(name_i.begin(), name_i.end(), line_i.begin(), isSame)) return false;
  value_o = Trimmed(line_i.substr(name_i.size()));
  return true;
}

PLXUInt32 StatusOf(std::string_view response_i) noexcept {
  char prefix[16] = {};  // as much as a stream looks at for a reply code
  response_i.copy(prefix, sizeof prefix - 1);
  char const* cursor = prefix;
  return CrackNum(&cursor);
}

// Nothing when there is no Content-Length, when it is no number or two of them differ (either could be the
// lie), or when a Transfer-Encoding makes it void.
std::optional<std::uint64_t> FindContentLength(std::string_view headers_i) noexcept {
  std::optional<std::uint64_t> found;
  while (!headers_i.empty()) {
    std::string_view const line = TakeLine(headers_i);
    std::string_view value;
    if (IsHeader(line, "Transfer-Encoding:", value)) return std::nullopt;
    if (!IsHeader(line, "Content-Length:", value)) continue;
    std::uint64_t length = 0;
    auto const [end, error] = std::from_chars(value.data(), value.data() + value.size(), length);
    if (error != std::errc() || end != value.data() + value.size()) return std::nullopt;
    if (found.has_value() && *found != length) return std::nullopt;
    found = length;
  }
  return found;
}

}  // namespace

bool PLXHTTPAnswer::Append(PLXString const& burst_i) {
  PLXUInt32 const room = PLXNetworkingStream::kMaximumResponseLength - myText.GetLength();
  PLXUInt32 const length = std::min(room, burst_i.GetLength());
  if (myText.IsEmpty()) {
    myText = burst_i;
  } else {
    myText.ReserveToAppend(length);
    myText.Append(burst_i.GetCStringAccess(), length);
  }
  FindHeaders();
  return length == burst_i.GetLength();
}

// Searches on for empty lines: each ends an interim response until one ends the final response's headers.
void PLXHTTPAnswer::FindHeaders() {
  std::string_view const text = View(myText);
  while (!myHeadersLength.has_value()) {
    std::size_t const found = text.find(kEmptyLine, mySearchStart);
    if (found == std::string_view::npos) {
      // The beginning of an empty line may have come already.
      PLXUInt32 const length = myText.GetLength();
      mySearchStart = std::max(mySearchStart, length - std::min(length, kEmptyLineLength - 1));
      return;
    }
    PLXUInt32 const end = static_cast<PLXUInt32>(found);
    std::string_view const headers = text.substr(myFinalStart, end - myFinalStart);
    PLXUInt32 const status = StatusOf(headers);
    if (status == kStatus_Continue || status == kStatus_SwitchingProtocols) {
      myInterimStart = myFinalStart;
      myInterimLength = end - myFinalStart;
      myFinalStart = mySearchStart = end + kEmptyLineLength;
      continue;
    }
    myHeadersLength = end - myFinalStart;
    bool const hasBody = myMayHaveBody && status != kStatus_NoContent && status != kStatus_NotModified;
    myBodyLength = hasBody ? FindContentLength(headers) : 0;
  }
}

bool PLXHTTPAnswer::IsComplete() const noexcept {
  if (!myBodyLength.has_value()) return false;
  return myText.GetLength() - myFinalStart - *myHeadersLength - kEmptyLineLength >= *myBodyLength;
}

bool PLXHTTPAnswer::IsRedirect() const noexcept {
  PLXUInt32 const status = StatusOf(View(myText).substr(myFinalStart));
  return status == kStatus_MovedPermanently || status == kStatus_Found;
}

bool PLXHTTPAnswer::FindLocation(PLXString const& host_i, PLXString& url_o) const {
  std::string_view rest = View(myText).substr(myFinalStart);
  while (!rest.empty()) {
    std::string_view location;
    if (!IsHeader(TakeLine(rest), "Location:", location)) continue;
    PLXString const value(location.data(), static_cast<PLXUInt32>(location.size()));
    url_o = location.starts_with('/') ? PLXString("http://") + host_i + value : value;
    return true;
  }
  return false;
}

void PLXHTTPAnswer::MoveTo(PLXString& headers_io, PLXString& data_o) {
  PLXUInt32 dataStart = myFinalStart;
  if (myHeadersLength.has_value()) {
    headers_io = myText.GetSubstring(myFinalStart, *myHeadersLength);
    dataStart += *myHeadersLength + kEmptyLineLength;
  } else if (myFinalStart > 0) {
    headers_io = myText.GetSubstring(myInterimStart, myInterimLength);
  }
  data_o = myText;
  *this = PLXHTTPAnswer(myMayHaveBody);
  data_o.RemoveSubstring(0, dataStart);
}
