#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

struct sqlite3;

// What SQLite said, with the statement that failed.
class PLXSQLiteError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// One connection to one SQLite file, made when it does not exist.
//
// Write-ahead log, ten seconds of patience with another writer, and full synchronisation: what a write has
// acknowledged survives a kill and a power loss. Values are always bound, never spliced into SQL. One thread
// at a time; owns its statements, which stay prepared for the life of the connection.
class PLXSQLite {
 public:
  using Row = std::vector<std::optional<std::string>>;

  explicit PLXSQLite(std::filesystem::path const& file_i);
  ~PLXSQLite();
  PLXSQLite(PLXSQLite const&) = delete;
  PLXSQLite& operator=(PLXSQLite const&) = delete;

  // Runs one statement and forgets its rows. Throws PLXSQLiteError; nothing has changed then.
  void Execute(std::string const& sql_i, std::span<std::string const> values_i = {});

  // Runs one statement and returns every row. Throws PLXSQLiteError.
  std::vector<Row> Query(std::string const& sql_i, std::span<std::string const> values_i = {});

 private:
  struct Statements;
  sqlite3* myConnection = nullptr;
  std::unique_ptr<Statements> myStatements;
};
