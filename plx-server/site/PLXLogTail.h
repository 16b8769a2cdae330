#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "PLXLog.h"

// What is wanted of a log's end.
struct PLXLogQuery {
  std::string_view log;                    // "server", "access" or "trace"
  std::size_t lines = 200;                 // at most
  PLXLogLevel level = PLXLogLevel::kNote;  // and worse; tells lines of the server log apart, no others
  std::string text{};                      // that a line must hold, ignoring the case of ASCII letters
};

struct PLXLogExcerpt {
  std::vector<std::string> lines;  // oldest first, long ones cut
  bool isWhole = false;            // there is nothing older than what was looked at
  bool isThere = false;            // there is such a log
};

// Reads the newest lines of a log in this folder, from the end backwards and on into its rotated files, as
// far as 16 MB. A log that is rotated meanwhile is not read twice. What the server wrote within the last
// second may be missing from the access and trace logs.
PLXLogExcerpt ReadLogTail(std::filesystem::path const& folder_i, PLXLogQuery const& query_i);
