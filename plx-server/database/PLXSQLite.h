#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>

#include "PLXSQLConnection.h"

struct sqlite3;

// One connection to one SQLite file, made when it does not exist.
//
// Write-ahead log, ten seconds of patience with another writer, and full synchronisation: what a write has
// acknowledged survives a kill and a power loss. Texts are kept as the bytes they are.
class PLXSQLite : public PLXSQLConnection {
 public:
  // Throws PLXSQLError, its sentence beginning with the file.
  explicit PLXSQLite(std::filesystem::path const& file_i);
  ~PLXSQLite() override;

  std::int64_t Run(std::string const& sql_i, std::span<PLXSQLParameter const> values_i = {},
                   RowReader const& reader_i = {}) override;
  void ForgetStatements() override;
  void Begin() override { Run("BEGIN IMMEDIATE"); }
  void Commit() override { Run("COMMIT"); }
  void Rollback() override { Run("ROLLBACK"); }

 private:
  struct Statements;
  sqlite3* myConnection = nullptr;
  std::unique_ptr<Statements> myStatements;
};

// Writes what a SQLite file holds at one moment, whatever is committed before it and nothing else, to a new
// file that needs no write-ahead log beside it. Whoever reads or writes the first meanwhile is not kept from
// it. `progress_i` is told how much was copied since it was told last, in bytes. The new file is not synced.
// Throws PLXSQLError, its sentence beginning with one of the files.
void PLXCopySQLite(std::filesystem::path const& from_i, std::filesystem::path const& to_i,
                   std::function<void(std::uint64_t bytes_i)> const& progress_i = {});
