#include "PLXCGIVariables.h"

#include "PLXASCII.h"

namespace {

using Value = std::optional<std::string>;

struct Variable {
  char const* name;
  Value (*value)(PLXPageContext const& context_i);
};

std::string_view HostName(std::string_view host_i) {
  // "[::1]:8080" keeps its brackets, "name:8080" loses its port.
  std::size_t const colon = host_i.rfind(':');
  std::size_t const bracket = host_i.rfind(']');
  if (colon == std::string_view::npos || (bracket != std::string_view::npos && colon < bracket))
    return host_i;
  return host_i.substr(0, colon);
}

Value ContentLength(PLXRequest const& request_i) {
  if (request_i.bodyBytes == 0 && request_i.Header("Content-Length").empty()) return std::nullopt;
  return std::to_string(request_i.bodyBytes);
}

Value IfAny(std::string_view text_i) { return text_i.empty() ? Value() : Value(std::string(text_i)); }

Variable const ourVariables[] = {
    {"AUTH_TYPE", [](auto& c) { return c.request.hasCredentials ? Value("Basic") : Value(); }},
    {"CONTENT_LENGTH", [](auto& c) { return ContentLength(c.request); }},
    {"CONTENT_TYPE", [](auto& c) { return IfAny(c.request.Header("Content-Type")); }},
    {"DOCUMENT_ROOT", [](auto& c) { return Value(c.site.Root().native()); }},
    {"GATEWAY_INTERFACE", [](auto&) { return Value("CGI/1.1"); }},
    {"PATH_INFO", [](auto&) { return Value(""); }},
    {"QUERY_STRING", [](auto& c) { return Value(c.request.query); }},
    {"REMOTE_ADDR", [](auto& c) { return Value(c.request.remoteAddress); }},
    // No name is looked up: a resolver's delay on every page would serve nobody.
    {"REMOTE_HOST", [](auto& c) { return Value(c.request.remoteAddress); }},
    {"REMOTE_PORT", [](auto& c) { return Value(std::to_string(c.request.remotePort)); }},
    {"REMOTE_USER", [](auto& c) { return c.request.hasCredentials ? Value(c.request.user) : Value(); }},
    {"REQUEST_METHOD", [](auto& c) { return Value(c.request.method); }},
    {"REQUEST_URI", [](auto& c) { return Value(c.request.target); }},
    {"SCRIPT_NAME", [](auto& c) { return Value(c.scriptName); }},
    {"SERVER_NAME", [](auto& c) { return Value(std::string(HostName(c.request.host))); }},
    {"SERVER_PORT", [](auto& c) { return Value(std::to_string(c.request.serverPort)); }},
    {"SERVER_PROTOCOL", [](auto& c) { return Value(c.request.version); }},
    {"SERVER_SOFTWARE", [](auto&) { return Value("PLX Server"); }},
};

// Whether a header is the one that a variable's name stands for. A header that has "_" itself stands for
// none: otherwise a client could pass "X_Real_IP" off as the "X-Real-IP" that a proxy sets.
bool IsHeader(std::string_view header_i, std::string_view variable_i) {
  if (header_i.size() != variable_i.size()) return false;
  for (std::size_t index = 0; index < header_i.size(); ++index) {
    char const wanted = variable_i[index] == '_' ? '-' : LowerASCII(variable_i[index]);
    if (LowerASCII(header_i[index]) != wanted) return false;
  }
  return true;
}

Value HeaderVariable(std::string_view name_i, PLXRequest const& request_i) {
  if (EqualIgnoringCase(name_i, "AUTHORIZATION") || EqualIgnoringCase(name_i, "PROXY_AUTHORIZATION"))
    return {};
  Value value;
  for (PLXNameValue const& header : request_i.headers) {
    if (!IsHeader(header.name, name_i)) continue;
    if (!value) {
      value = header.value;
    } else {
      *value += EqualIgnoringCase(name_i, "COOKIE") ? "; " : ", ";
      *value += header.value;
    }
  }
  return value;
}

}  // namespace

std::optional<std::string> CGIVariable(std::string_view name_i, PLXPageContext& context_io) {
  for (std::string_view const personal : {"AUTH_TYPE", "REMOTE_USER", "HTTP_COOKIE"}) {
    if (EqualIgnoringCase(name_i, personal)) context_io.isPersonal = true;
  }
  if (BeginsIgnoringCase(name_i, "HTTP_")) return HeaderVariable(name_i.substr(5), context_io.request);
  for (Variable const& variable : ourVariables) {
    if (EqualIgnoringCase(name_i, variable.name)) return variable.value(context_io);
  }
  return std::nullopt;
}
