#include "PLXSQLite.h"

#include <sqlite3.h>
#include <string_view>
#include <sys/stat.h>
#include <unordered_map>

namespace {

// Preparing costs more than running most statements; programs with more statements than this build them anew.
constexpr std::size_t kStatementsKept = 64;
constexpr int kBusyMilliseconds = 10000;
// Of each connection's pages. Any commit by another connection empties it anyway, and what it lacks the
// system's own cache has; the default lets sixteen connections grow by 32 MB with the tables, a quarter of it
// finds keys as fast.
constexpr int kCacheKilobytes = 512;

PLXSQLError::Kind KindOf(int code_i) {
  switch (code_i) {
    case SQLITE_CONSTRAINT_UNIQUE:
    case SQLITE_CONSTRAINT_PRIMARYKEY:
    case SQLITE_CONSTRAINT_ROWID:
      return PLXSQLError::Kind::kNotUnique;
    default:
      break;
  }
  int const family = code_i & 0xFF;
  // A file that could not be opened for writing at some moment was opened for reading; a new connection asks
  // again.
  if (family == SQLITE_READONLY) return PLXSQLError::Kind::kLost;
  return family == SQLITE_BUSY || family == SQLITE_LOCKED ? PLXSQLError::Kind::kBusy
                                                          : PLXSQLError::Kind::kOther;
}

[[noreturn]] void Fail(sqlite3* connection_i) {
  throw PLXSQLError(KindOf(sqlite3_extended_errcode(connection_i)), sqlite3_errmsg(connection_i));
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

PLXSQLValue ReadValue(sqlite3_stmt* statement_i, int column_i) {
  switch (sqlite3_column_type(statement_i, column_i)) {
    case SQLITE_NULL:
      return {};
    case SQLITE_INTEGER:
      return sqlite3_column_int64(statement_i, column_i);
    case SQLITE_FLOAT:
      return sqlite3_column_double(statement_i, column_i);
    default:
      break;
  }
  auto const* text = reinterpret_cast<char const*>(sqlite3_column_text(statement_i, column_i));
  if (text == nullptr) throw std::bad_alloc();
  return std::string(text, static_cast<std::size_t>(sqlite3_column_bytes(statement_i, column_i)));
}

void ReadRow(sqlite3_stmt* statement_i, PLXSQLRow& row_o) {
  row_o.resize(static_cast<std::size_t>(sqlite3_column_count(statement_i)));
  for (std::size_t index = 0; index < row_o.size(); ++index) {
    row_o[index] = ReadValue(statement_i, static_cast<int>(index));
  }
}

int Bind(sqlite3_stmt* statement_i, int position_i, PLXSQLParameter const& value_i) {
  if (auto const* const integer = std::get_if<std::int64_t>(&value_i)) {
    return sqlite3_bind_int64(statement_i, position_i, *integer);
  }
  if (auto const* const number = std::get_if<double>(&value_i)) {
    return sqlite3_bind_double(statement_i, position_i, *number);
  }
  if (auto const* const text = std::get_if<std::string_view>(&value_i)) {
    // A view of nothing has no address, and SQLite would take that for NULL.
    char const* const begin = text->empty() ? "" : text->data();
    return sqlite3_bind_text64(statement_i, position_i, begin, text->size(), SQLITE_STATIC, SQLITE_UTF8);
  }
  return sqlite3_bind_null(statement_i, position_i);
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
      Fail(connection);
    }
    if (statement == nullptr || std::string_view(rest).find_first_not_of(" \t\r\n;") != std::string::npos) {
      sqlite3_finalize(statement);
      throw PLXSQLError(PLXSQLError::Kind::kOther, "not exactly one statement: " + sql_i);
    }
    prepared.emplace(sql_i, statement);
    return statement;
  }

  sqlite3* connection;
  std::unordered_map<std::string, sqlite3_stmt*> prepared;
};

PLXSQLite::PLXSQLite(std::filesystem::path const& file_i) : PLXSQLConnection(PLXSQLDialect::kSQLite) {
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
      throw PLXSQLError(PLXSQLError::Kind::kLost,
                        myConnection ? sqlite3_errmsg(myConnection) : sqlite3_errstr(opened));
    }
    sqlite3_extended_result_codes(myConnection, 1);
    sqlite3_busy_timeout(myConnection, kBusyMilliseconds);
    myStatements = std::make_unique<Statements>(myConnection);
    // A damaged or foreign file shows only here, in the first statement that reads it.
    Run("PRAGMA journal_mode=WAL");
    Run("PRAGMA synchronous=FULL");
    Run("PRAGMA cache_size=" + std::to_string(-kCacheKilobytes));
  } catch (PLXSQLError const& error) {
    myStatements.reset();
    sqlite3_close(myConnection);
    throw PLXSQLError(error.GetKind(), file.string() + ": " + error.what());
  }
}

PLXSQLite::~PLXSQLite() {
  myStatements.reset();
  sqlite3_close(myConnection);
}

std::int64_t PLXSQLite::Run(std::string const& sql_i, std::span<PLXSQLParameter const> values_i,
                            RowReader const& reader_i) {
  sqlite3_stmt* const statement = myStatements->Prepare(sql_i);
  StatementUse const use(statement);
  if (static_cast<std::size_t>(sqlite3_bind_parameter_count(statement)) != values_i.size()) {
    throw PLXSQLError(PLXSQLError::Kind::kOther, "as many values as question marks are needed: " + sql_i);
  }
  for (std::size_t index = 0; index < values_i.size(); ++index) {
    if (Bind(statement, static_cast<int>(index + 1), values_i[index]) != SQLITE_OK) Fail(myConnection);
  }
  PLXSQLRow row;
  int result;
  while ((result = sqlite3_step(statement)) == SQLITE_ROW) {
    if (!reader_i) continue;
    ReadRow(statement, row);
    reader_i(row);
  }
  if (result != SQLITE_DONE) Fail(myConnection);
  return sqlite3_changes64(myConnection);
}

void PLXSQLite::ForgetStatements() { myStatements->Forget(); }

// ---- A copy of a file that is in use ----------------------------------------------------------------------

namespace {

constexpr int kPagesOfAStep = 256;

class PlainConnection {
 public:
  PlainConnection(std::filesystem::path const& file_i, int flags_i) : myFile(file_i) {
    int const opened = sqlite3_open_v2(file_i.c_str(), &myConnection, flags_i | SQLITE_OPEN_NOMUTEX, nullptr);
    if (opened != SQLITE_OK) {
      std::string const reason = myConnection ? sqlite3_errmsg(myConnection) : sqlite3_errstr(opened);
      sqlite3_close(myConnection);
      throw PLXSQLError(PLXSQLError::Kind::kLost, file_i.string() + ": " + reason);
    }
    sqlite3_busy_timeout(myConnection, kBusyMilliseconds);
  }
  ~PlainConnection() { sqlite3_close(myConnection); }
  PlainConnection(PlainConnection const&) = delete;
  PlainConnection& operator=(PlainConnection const&) = delete;

  sqlite3* Get() const { return myConnection; }
  void Run(char const* sql_i) const {
    if (sqlite3_exec(myConnection, sql_i, nullptr, nullptr, nullptr) != SQLITE_OK) Fail();
  }
  [[noreturn]] void Fail() const {
    throw PLXSQLError(PLXSQLError::Kind::kOther, myFile.string() + ": " + sqlite3_errmsg(myConnection));
  }

 private:
  std::filesystem::path const myFile;
  sqlite3* myConnection = nullptr;
};

}  // namespace

void PLXCopySQLite(std::filesystem::path const& from_i, std::filesystem::path const& to_i,
                   std::function<void(std::uint64_t)> const& progress_i) {
  std::error_code ignored;
  PlainConnection const from(std::filesystem::absolute(from_i, ignored), SQLITE_OPEN_READWRITE);
  std::filesystem::path const target = std::filesystem::absolute(to_i, ignored);
  ::mknod(target.c_str(), S_IFREG | 0600, 0);
  PlainConnection const to(target, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
  // Nobody sees the new file before it is whole, so it needs no journal and is synced once.
  to.Run("PRAGMA journal_mode=OFF");
  to.Run("PRAGMA synchronous=OFF");
  // A reader's view of its own: without it every commit of another connection begins the copy anew.
  from.Run("BEGIN");
  from.Run("SELECT COUNT(*) FROM sqlite_schema");
  sqlite3_backup* const backup = sqlite3_backup_init(to.Get(), "main", from.Get(), "main");
  if (backup == nullptr) to.Fail();
  int result = SQLITE_OK;
  int left = -1;
  while (result == SQLITE_OK) {
    result = sqlite3_backup_step(backup, kPagesOfAStep);
    int const copied =
        (left < 0 ? sqlite3_backup_pagecount(backup) : left) - sqlite3_backup_remaining(backup);
    left = sqlite3_backup_remaining(backup);
    if (progress_i && copied > 0) progress_i(static_cast<std::uint64_t>(copied) * 4096);
  }
  sqlite3_backup_finish(backup);
  if (result != SQLITE_DONE) to.Fail();
  from.Run("COMMIT");
}
