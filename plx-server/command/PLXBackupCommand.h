#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <string>

#include "PLXConfiguration.h"

// plxserver backup and plxserver restore: the state of a server, and what modules keep in the folders of its
// sites (web mail, attachments, downloads), as one folder.
struct PLXBackupRequest {
  std::filesystem::path folder;  // of the backup
  bool isJSON = false;           // what came of it, for programs
  bool isStateOnly = false;      // a restore that leaves the folders of the sites as they are
};

// Copies the state beside a server that may run. What was there when it began is in the backup, and what came
// meanwhile as a whole or not at all. The folder is there when all of it is on the disk, and before under
// another name. Returns an exit code, as all of these.
int PLXBackup(PLXConfiguration const& configuration_i, PLXBackupRequest const& request_i);

// Puts a backup in the place of the state, which no server may hold. Every file is compared with the manifest
// first; what is there is kept under a dated name. Interrupted, it has done nothing, or the next start of the
// server does the rest.
int PLXRestore(PLXConfiguration const& configuration_i, PLXBackupRequest const& request_i);

// How far a copy is, on a terminal alone.
class PLXProgress {
 public:
  explicit PLXProgress(char const* doing_i);
  ~PLXProgress();
  PLXProgress(PLXProgress const&) = delete;
  PLXProgress& operator=(PLXProgress const&) = delete;
  void Add(std::uint64_t bytes_i);

 private:
  char const* const myDoing;
  bool const myIsShown;
  bool myHasWritten = false;
  std::uint64_t myBytes = 0;
  std::chrono::steady_clock::time_point myNext = std::chrono::steady_clock::now();
};

// "17 bytes", "1.5 MB".
std::string PLXSizeText(std::uint64_t bytes_i);
