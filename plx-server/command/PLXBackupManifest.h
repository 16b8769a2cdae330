#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <stdexcept>
#include <string>

#include "PLXTreeCopy.h"

// A backup that is not what its manifest says, or none at all; the sentence tells what.
class PLXBackupError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// What a backup says of itself, in its file "manifest": lines of a name, a blank and a value, an empty line,
// a line for each file (SHA-256, size, path) and the line "end" with their number. Blanks, control characters
// and "%" within a value or path are "%" and two digits, so that no name can forge a line.
//
//   PLXServerBackup 1
//   made 2026-11-24T02:15:00Z
//   server 0.1.0
//   state-version 1
//   records sqlite
//   place.1 example mail/plxEmailClient%20Data
struct PLXBackupManifest {
  static constexpr int kFormat = 1;
  static constexpr char kName[] = "manifest";

  std::string made;    // UTC
  std::string server;  // version
  std::int64_t stateVersion = 1;
  bool hasRecords = true;  // else the record databases were on an ODBC source
  // What modules keep in the folder of a site, by the folder of the backup ("sites/1"): where it was.
  struct Place {
    std::string site;
    std::string path;  // below the site's root
  };
  std::map<std::string, Place> places;
  PLXTreeCopy::Files files;

  std::uint64_t Bytes() const;
  std::string Text() const;
  // Throws PLXBackupError for what is no manifest, is cut, is of a newer format, or names a path that would
  // leave the backup.
  static PLXBackupManifest Read(std::filesystem::path const& backup_i);
};
