#include "PLXSQLite.h"

#include <sqlite3.h>
#include <string_view>
#include <sys/stat.h>
#include <unordered_map>

namespace {

// Preparing costs more than running most statements; programs with more statements than this build them anew.
constexpr std::size_t kStatementsKept = 64;
constexpr int kBusyMilliseconds = 10000;

[[noreturn]] void Fail(sqlite3* connection_i, std::string_view sql_i) {
  throw PLXSQLiteError(std::string(sqlite3_errmsg(connection_i)) + " (" + std::string(sql_i) + ")");
}

// Gives the statement back however the work on it ends: values are bound by address and must not outlive the
// call.
class StatementUse {
 public:
  explicit StatementUse(sqlite3_stmt* statement_i) : myStatement(statement_i) {}
  ~StatementUse() {
    sqlite3_reset(myStatement);
    sqlite3_clear_bindings(myStatement);
  }
  StatementUse(StatementUse const&) = delete;
  StatementUse& operator=(StatementUse const&) = delete;

 private:
  sqlite3_stmt* myStatement;
};

PLXSQLite::Row ReadRow(sqlite3_stmt* statement_i) {
  PLXSQLite::Row row(static_cast<std::size_t>(sqlite3_column_count(statement_i)));
  for (std::size_t index = 0; index < row.size(); ++index) {
    int const column = static_cast<int>(index);
    if (sqlite3_column_type(statement_i, column) == SQLITE_NULL) continue;
    auto const* text = reinterpret_cast<char const*>(sqlite3_column_text(statement_i, column));
    if (text == nullptr) throw std::bad_alloc();
    row[index].emplace(text, static_cast<std::size_t>(sqlite3_column_bytes(statement_i, column)));
  }
  return row;
}

}  // namespace

struct PLXSQLite::Statements {
  explicit Statements(sqlite3* connection_i) : connection(connection_i) {}
  ~Statements() { Forget(); }
  Statements(Statements const&) = delete;
  Statements& operator=(Statements const&) = delete;

  void Forget() {
    for (auto const& [sql, statement] : prepared) sqlite3_finalize(statement);
    prepared.clear();
  }

  sqlite3_stmt* Prepare(std::string const& sql_i) {
    if (auto const found = prepared.find(sql_i); found != prepared.end()) return found->second;
    if (prepared.size() >= kStatementsKept) Forget();
    sqlite3_stmt* statement = nullptr;
    char const* rest = nullptr;
    if (sqlite3_prepare_v3(connection, sql_i.c_str(), static_cast<int>(sql_i.size() + 1),
                           SQLITE_PREPARE_PERSISTENT, &statement, &rest) != SQLITE_OK) {
      Fail(connection, sql_i);
    }
    if (statement == nullptr || std::string_view(rest).find_first_not_of(" \t\r\n;") != std::string::npos) {
      sqlite3_finalize(statement);
      throw PLXSQLiteError("Not exactly one statement (" + sql_i + ")");
    }
    prepared.emplace(sql_i, statement);
    return statement;
  }

  // Runs a statement and hands each row's statement to `row_i`.
  template <typename RowReader>
  void Run(std::string const& sql_i, std::span<std::string const> values_i, RowReader const& row_i) {
    sqlite3_stmt* const statement = Prepare(sql_i);
    StatementUse const use(statement);
    if (static_cast<std::size_t>(sqlite3_bind_parameter_count(statement)) != values_i.size()) {
      throw PLXSQLiteError("As many values as question marks are needed (" + sql_i + ")");
    }
    for (std::size_t index = 0; index < values_i.size(); ++index) {
      std::string const& value = values_i[index];
      if (sqlite3_bind_text64(statement, static_cast<int>(index + 1), value.data(), value.size(),
                              SQLITE_STATIC, SQLITE_UTF8) != SQLITE_OK) {
        Fail(connection, sql_i);
      }
    }
    int result;
    while ((result = sqlite3_step(statement)) == SQLITE_ROW) row_i(statement);
    if (result != SQLITE_DONE) Fail(connection, sql_i);
  }

  sqlite3* connection;
  std::unordered_map<std::string, sqlite3_stmt*> prepared;
};

PLXSQLite::PLXSQLite(std::filesystem::path const& file_i) {
  // Absolute, so that no name has a meaning of its own to SQLite (":memory:", "file:...").
  std::error_code ignored;
  std::filesystem::path const file = std::filesystem::absolute(file_i, ignored);
  // Made beforehand for its mode: what the server keeps is nobody else's to read, and the log files that
  // SQLite adds take the mode over. mknod opens nothing: closing a descriptor of the file would drop the
  // locks that another connection of this process holds.
  ::mknod(file.c_str(), S_IFREG | 0600, 0);
  int const opened = sqlite3_open_v2(
      file.c_str(), &myConnection, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
  try {
    if (opened != SQLITE_OK) {
      throw PLXSQLiteError(file.string() + ": " +
                           (myConnection ? sqlite3_errmsg(myConnection) : sqlite3_errstr(opened)));
    }
    sqlite3_extended_result_codes(myConnection, 1);
    sqlite3_busy_timeout(myConnection, kBusyMilliseconds);
    myStatements = std::make_unique<Statements>(myConnection);
    Execute("PRAGMA journal_mode=WAL");
    Execute("PRAGMA synchronous=FULL");
  } catch (PLXSQLiteError const& error) {
    myStatements.reset();
    sqlite3_close(myConnection);
    // A damaged or foreign file shows only now, in the first statement that reads it.
    std::string const sentence = error.what();
    throw PLXSQLiteError(sentence.starts_with(file.string()) ? sentence : file.string() + ": " + sentence);
  }
}

PLXSQLite::~PLXSQLite() {
  myStatements.reset();
  sqlite3_close(myConnection);
}

void PLXSQLite::Execute(std::string const& sql_i, std::span<std::string const> values_i) {
  myStatements->Run(sql_i, values_i, [](sqlite3_stmt*) {});
}

std::vector<PLXSQLite::Row> PLXSQLite::Query(std::string const& sql_i,
                                             std::span<std::string const> values_i) {
  std::vector<Row> rows;
  myStatements->Run(sql_i, values_i,
                    [&rows](sqlite3_stmt* statement_i) { rows.push_back(ReadRow(statement_i)); });
  return rows;
}
