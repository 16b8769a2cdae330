#pragma once

#include <chrono>
#include <string>
#include <string_view>

#include "PLXRequest.h"

// How the server itself looks: error pages and the frame of the administration. HTML without scripts and with
// one inline stylesheet, so that a page is one answer.

// A whole HTML page. `title_i` is plain text, `headHTML_i` (extra elements of the head) and `bodyHTML_i` are
// HTML.
std::string ServerPage(std::string_view title_i, std::string_view bodyHTML_i,
                       std::string_view headHTML_i = {});

// An error page with this status; both texts are plain, nothing of them becomes markup. With an id the reader
// is told under which number the log has the details.
PLXResponse ErrorPage(int status_i, std::string_view sentence_i, std::uint64_t requestID_i = 0);

// The answer to a login that is not looked at before so many seconds have passed: 429 with Retry-After.
PLXResponse TooManyLogins(std::chrono::seconds wait_i);

// The standard phrase of a status (RFC 9110), "Error" for one that has none here.
std::string_view StatusPhrase(int status_i);

// Percent-encodes a decoded path (slashes stay) or the value of a query argument (slashes go). What comes out
// holds no quote, blank, angle bracket or control character.
std::string EncodePath(std::string_view path_i);
std::string EncodeArgument(std::string_view text_i);
