#pragma once

#include <filesystem>
#include <string>

#include "PLXRequest.h"

// The logs as the administration shows them: the newest lines of one, those of a level and those that hold a
// text, once or again and again. `folder_i` holds the logs. Any thread; reads the end of a file.
struct PLXLogPage {
  static constexpr std::string_view kPath = "/plx-admin/log";

  PLXLogPage(PLXRequest const& request_i, std::filesystem::path const& folder_i);

  std::string head;  // HTML
  std::string body;  // HTML
};
