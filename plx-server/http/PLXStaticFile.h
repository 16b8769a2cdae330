#pragma once

#include <chrono>
#include <filesystem>
#include <string>
#include <string_view>

#include "PLXListener.h"
#include "PLXRequest.h"

struct stat;

// Answers a GET or HEAD for a file as RFC 9110 asks: type by ending, ETag and Last-Modified, If-Match,
// If-Unmodified-Since, If-None-Match, If-Modified-Since (in that order of precedence), one Range with
// If-Range (200, 206, 304, 412, 416; several ranges are answered with the whole file). `download_i` adds
// Content-Disposition and nosniff and hides the type. Opens nothing; 404 when the file is gone. Its state is
// looked at unless the caller just has.
PLXDisposition AnswerFile(PLXRequest const& request_i, std::filesystem::path const& file_i, bool download_i,
                          struct stat const* status_i = nullptr);

// The media type of a file name, "application/octet-stream" when the ending is unknown.
std::string_view MediaType(std::string_view fileName_i);

// IMF-fixdate (RFC 9110, section 5.6.7), both ways; any thread and time zone.
std::string FormatHTTPDate(std::chrono::sys_seconds time_i);
bool ParseHTTPDate(std::string_view text_i, std::chrono::sys_seconds& time_o);
