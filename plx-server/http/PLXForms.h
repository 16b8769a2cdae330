#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "PLXRequest.h"

// The small grammars of HTTP forms, as pure functions from text to lists. Any bytes may come in; what cannot
// be read is left out or, where said, makes the whole fail. Linear in the text.

// application/x-www-form-urlencoded, also of a query: "+" is a blank, a broken escape stays as it is.
// None when there are more than `fields_i`.
std::optional<std::vector<PLXNameValue>> ParseURLEncoded(std::string_view text_i, std::size_t fields_i);

// multipart/form-data (RFC 7578): a plain field's value is its content, a file's value is its name without
// any folder, and its content is left where it lies. None when it is cut, has no boundary or more than
// `fields_i` parts.
std::optional<std::vector<PLXNameValue>> ParseMultipart(std::string_view body_i,
                                                        std::string_view contentType_i, std::size_t fields_i);

// Cookie (RFC 6265): name=value pairs, quotes round a value taken off.
std::vector<PLXNameValue> ParseCookies(std::string_view header_i);

// Authorization: Basic (RFC 7617): user and password; none when it is anything else or not Base64.
std::optional<std::pair<std::string, std::string>> ParseBasic(std::string_view header_i);

// Takes %XX escapes off. None when an escape is cut or is no hexadecimal.
std::optional<std::string> DecodePath(std::string_view text_i);
// Resolves "." and ".." segments and double slashes of a decoded path; ".." above the root stays at the root
// (RFC 3986, section 5.2.4).
std::string NormalizePath(std::string_view path_i);
