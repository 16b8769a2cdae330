#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "PLXForms.h"

// The first line says which grammar reads the rest, and is the media type of a multipart form.

namespace {

void Require(bool condition_i) {
  if (!condition_i) std::abort();
}

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

void CheckURLEncoded(std::string_view text_i) {
  auto const fields = ParseURLEncoded(text_i, SIZE_MAX);
  Require(fields && Bytes(*fields) <= text_i.size());
  // Written out with every byte escaped, the same comes back.
  std::string written;
  for (PLXNameValue const& field : *fields) written += Escaped(field.name) + '=' + Escaped(field.value) + '&';
  auto const again = ParseURLEncoded(written, fields->size());
  Require(again && again->size() == fields->size());
  for (std::size_t n = 0; n < fields->size(); ++n) {
    Require((*again)[n].name == (*fields)[n].name && (*again)[n].value == (*fields)[n].value);
  }
  Require(fields->empty() || !ParseURLEncoded(text_i, fields->size() - 1));
}

void CheckMultipart(std::string_view type_i, std::string_view body_i) {
  auto const fields = ParseMultipart(body_i, type_i, 1000);
  if (!fields) return;
  Require(fields->size() <= 1000 && Bytes(*fields) <= body_i.size());
  for (PLXNameValue const& field : *fields) {
    for (char c : field.name) Require(static_cast<unsigned char>(c) >= 0x20 && c != 0x7f);
  }
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
