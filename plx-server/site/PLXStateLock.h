#pragma once

#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>

// Something that is needed is not there, and may be there the next time: another process holds the state
// folder, the shared folder is not mounted, the data source does not answer.
class PLXUnavailable : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The state folder for this process alone, for as long as it lives and however the process ends. Commands
// that read and add beside a server do without.
class PLXStateLock {
 public:
  // Requires: the folder exists. Throws PLXUnavailable when another process has it, or std::runtime_error
  // when the lock's file cannot be written.
  explicit PLXStateLock(std::filesystem::path const& state_i);
  ~PLXStateLock();
  PLXStateLock(PLXStateLock const&) = delete;
  PLXStateLock& operator=(PLXStateLock const&) = delete;

 private:
  int myLock = -1;
};

// The number of the process that holds the state folder, "unknown" when it cannot be read; none when nobody
// does.
std::optional<std::string> StateUser(std::filesystem::path const& state_i);
