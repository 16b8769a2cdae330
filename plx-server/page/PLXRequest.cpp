#include "PLXRequest.h"

#include <algorithm>

#include "PLXASCII.h"

namespace {

// A header's name is a token (RFC 9110, section 5.6.2).
bool IsToken(std::string_view text_i) {
  auto isTokenByte = [](char byte) {
    return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') || (byte >= '0' && byte <= '9') ||
           std::string_view("!#$%&'*+-.^_`|~").find(byte) != std::string_view::npos;
  };
  return !text_i.empty() && std::all_of(text_i.begin(), text_i.end(), isTokenByte);
}

}  // namespace

PLXNameValue const* FindNameValue(std::vector<PLXNameValue> const& list_i, std::string_view name_i,
                                  std::size_t index_i, bool ignoreCase_i) {
  for (PLXNameValue const& entry : list_i) {
    if (ignoreCase_i ? !EqualIgnoringCase(entry.name, name_i) : entry.name != name_i) continue;
    if (index_i-- == 0) return &entry;
  }
  return nullptr;
}

std::string_view PLXRequest::Header(std::string_view name_i) const {
  PLXNameValue const* header = FindNameValue(headers, name_i, 0, true);
  return header == nullptr ? std::string_view() : std::string_view(header->value);
}

bool PLXResponse::SetHeader(std::string_view name_i, std::string_view value_i) {
  using namespace std::string_view_literals;
  if (!IsToken(name_i) || value_i.find_first_of("\r\n\0"sv) != std::string_view::npos) return false;

  // Every cookie is a header of its own; two lines of any other name would contradict each other.
  if (!EqualIgnoringCase(name_i, "Set-Cookie")) RemoveHeader(name_i);
  headers.push_back({std::string(name_i), std::string(value_i)});
  return true;
}

bool PLXResponse::HasHeader(std::string_view name_i) const {
  return FindNameValue(headers, name_i, 0, true) != nullptr;
}

void PLXResponse::RemoveHeader(std::string_view name_i) {
  std::erase_if(headers, [&](PLXNameValue const& header) { return EqualIgnoringCase(header.name, name_i); });
}
