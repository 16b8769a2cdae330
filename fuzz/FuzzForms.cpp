#include <string>
#include <string_view>

#include "Fuzz.h"
#include "PLXForms.h"

// The first line says which grammar reads the rest, and is the media type of a multipart form.

namespace {

std::string Escaped(std::string_view text_i) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string result;
  for (char c : text_i) {
    auto const byte = static_cast<unsigned char>(c);
    result += '%';
    result += kDigits[byte >> 4];
    result += kDigits[byte & 15];
  }
  return result;
}

std::size_t Bytes(std::vector<PLXNameValue> const& list_i) {
  std::size_t bytes = 0;
  for (PLXNameValue const& entry : list_i) bytes += entry.name.size() + entry.value.size();
  return bytes;
}

bool Same(PLXNameValue const& left_i, PLXNameValue const& right_i) {
  return left_i.name == right_i.name && left_i.value == right_i.value;
}

void CheckURLEncoded(std::string_view text_i) {
  auto const fields = ParseURLEncoded(text_i, SIZE_MAX);
  Require(fields && Bytes(*fields) <= text_i.size());
  // Written out with every byte escaped, the same comes back.
  std::string written;
  for (PLXNameValue const& field : *fields) written += Escaped(field.name) + '=' + Escaped(field.value) + '&';
  auto const again = ParseURLEncoded(written, fields->size());
  Require(again && again->size() == fields->size());
  for (std::size_t n = 0; n < fields->size(); ++n) Require(Same((*again)[n], (*fields)[n]));
  Require(fields->empty() || !ParseURLEncoded(text_i, fields->size() - 1));
  // A cut changes no more than the field that it cuts.
  ForEachCut(text_i, [&](std::string_view cut_i) {
    auto const some = ParseURLEncoded(cut_i, SIZE_MAX);
    Require(some && some->size() <= fields->size());
    for (std::size_t n = 0; n + 1 < some->size(); ++n) Require(Same((*some)[n], (*fields)[n]));
  });
}

// Names as browsers write them.
std::string QuotedName(std::string const& name_i) {
  std::string result;
  for (char c : name_i) result += c == '"' ? "%22" : std::string(1, c);
  return result;
}

void CheckMultipart(std::string_view type_i, std::string_view body_i) {
  auto const fields = ParseMultipart(body_i, type_i, 1000);
  // A form that is cut is none, up to where it says that it ends.
  bool isWhole = false;
  ForEachCut(body_i, [&](std::string_view cut_i) {
    auto const cut = ParseMultipart(cut_i, type_i, 1000);
    Require(cut.has_value() || !isWhole);
    isWhole = cut.has_value();
    Require(!isWhole ||
            (fields && std::equal(cut->begin(), cut->end(), fields->begin(), fields->end(), Same)));
  });
  if (!fields) return;
  Require(fields->size() <= 1000 && Bytes(*fields) <= body_i.size());
  for (PLXNameValue const& field : *fields) {
    for (char c : field.name) Require(static_cast<unsigned char>(c) >= 0x20 && c != 0x7f);
  }
  // Written again, behind a mark that no value holds, the same comes back.
  std::string written;
  for (PLXNameValue const& field : *fields) {
    if (field.name.find_first_of("\\%") != field.name.npos || field.value.find("--mark") != field.value.npos)
      return;
    written += "--mark\r\nContent-Disposition: form-data; name=\"" + QuotedName(field.name) + "\"\r\n\r\n" +
               field.value + "\r\n";
  }
  auto const again = ParseMultipart(written + "--mark--\r\n", "multipart/form-data; boundary=mark", 1000);
  Require(again && std::equal(again->begin(), again->end(), fields->begin(), fields->end(), Same));
}

void CheckCookies(std::string_view header_i) {
  std::vector<PLXNameValue> const cookies = ParseCookies(header_i);
  Require(Bytes(cookies) <= header_i.size());
  for (PLXNameValue const& cookie : cookies) {
    Require(!cookie.name.empty() && cookie.value.find(';') == cookie.value.npos);
  }
}

void CheckBasic(std::string_view header_i) {
  auto const login = ParseBasic(header_i);
  if (!login) return;
  Require(login->first.find(':') == login->first.npos);
  for (char c : login->first + login->second) Require(static_cast<unsigned char>(c) >= 0x20 && c != 0x7f);
}

void CheckPath(std::string_view text_i) {
  Require(DecodePath(Escaped(text_i)) == text_i);
  std::string const path = NormalizePath(DecodePath(text_i).value_or(std::string(text_i)));
  Require(path.starts_with('/') && NormalizePath(path) == path);
  std::string const closed = path + '/';
  for (char const* segment : {"/./", "/../"}) Require(closed.find(segment) == closed.npos);
  Require(path.find("//") == path.npos);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data_i, std::size_t size_i) {
  std::string_view text(reinterpret_cast<char const*>(data_i), size_i);
  std::size_t const lineEnd = text.find('\n');
  if (lineEnd == text.npos) return 0;
  std::string_view const kind = text.substr(0, lineEnd);
  text.remove_prefix(lineEnd + 1);
  if (kind == "urlencoded") CheckURLEncoded(text);
  if (kind.starts_with("multipart")) CheckMultipart(kind, text);
  if (kind == "cookies") CheckCookies(text);
  if (kind == "basic") CheckBasic(text);
  if (kind == "path") CheckPath(text);
  return 0;
}
