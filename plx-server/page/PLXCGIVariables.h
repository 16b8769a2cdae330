#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "PLXTagProcessor.h"

// The CGI variable of a request (RFC 3875), found ignoring letter case; none when the request has no such
// one. Headers are HTTP_NAME with "-" as "_", repeated ones joined; the credentials are never among them.
// AUTH_TYPE is "Basic" when the client sent credentials: what else a module learns is the module host's
// business. A name that tells who the visitor is makes the page personal.
std::optional<std::string> CGIVariable(std::string_view name_i, PLXPageContext& context_io);
