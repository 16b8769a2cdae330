#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "PLXConfiguration.h"

// plxserver queue: the failed mail of a server, whether it runs or not. What a message's own module can do is
// done by it, as the administration of failed mail in a page would; each function returns an exit code.
struct PLXQueueRequest {
  std::vector<std::string> numbers;  // of messages, as the list names them
  bool isAll = false;                // every message that there is
  bool isJSON = false;
  std::filesystem::path folder = ".";  // to export to
};

int PLXQueueList(PLXConfiguration const& configuration_i, PLXQueueRequest const& request_i);
// Header fields and text of messages.
int PLXQueueShow(PLXConfiguration const& configuration_i, PLXQueueRequest const& request_i);
// Sends messages again and waits for what comes of it.
int PLXQueueResend(PLXConfiguration const& configuration_i, PLXQueueRequest const& request_i);
int PLXQueueDelete(PLXConfiguration const& configuration_i, PLXQueueRequest const& request_i);
// Writes each message to a file NUMBER.eml (RFC 5322); those that are there are replaced.
int PLXQueueExport(PLXConfiguration const& configuration_i, PLXQueueRequest const& request_i);
