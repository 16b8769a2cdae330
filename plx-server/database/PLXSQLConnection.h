#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

// A value on its way into a statement; texts are the caller's and are read until the call returns.
using PLXSQLParameter = std::variant<std::monostate, std::int64_t, double, std::string_view>;
// A value of a result; monostate is NULL.
using PLXSQLValue = std::variant<std::monostate, std::int64_t, double, std::string>;
using PLXSQLRow = std::vector<PLXSQLValue>;

// What an engine said, as a sentence for a log or a person.
class PLXSQLError : public std::runtime_error {
 public:
  enum class Kind {
    kOther,
    kNotUnique,  // a unique key would hold a value twice; nothing has changed
    kBusy,       // another connection held a lock for longer than patience lasts; nothing has changed
    kLost,       // the connection is gone, or could not be made: try a new one
  };
  PLXSQLError(Kind kind_i, std::string const& sentence_i) : std::runtime_error(sentence_i), myKind(kind_i) {}
  Kind GetKind() const { return myKind; }

 private:
  Kind myKind;
};

// Which engine stands behind a connection, as far as SQL differs.
enum class PLXSQLDialect {
  kSQLite,      // the library, in this process
  kSQLiteODBC,  // the same engine behind its ODBC driver
  kPostgreSQL,  // through ODBC
  kOther,       // any other ODBC source: the common ground of the standard
};

// One connection to a database engine. One thread at a time, and no two results at once. Statements have "?"
// where values go; values are always bound, never spliced into SQL. Texts hold any byte but zero and come
// back as they went in, whatever encoding the engine insists on.
class PLXSQLConnection {
 public:
  // Is handed each row as it arrives and may take its values. It must not use the connection. What it throws
  // ends the statement and goes on to the caller.
  using RowReader = std::function<void(PLXSQLRow& row_io)>;

  explicit PLXSQLConnection(PLXSQLDialect dialect_i) : myDialect(dialect_i) {}
  virtual ~PLXSQLConnection() = default;
  PLXSQLConnection(PLXSQLConnection const&) = delete;
  PLXSQLConnection& operator=(PLXSQLConnection const&) = delete;

  PLXSQLDialect GetDialect() const { return myDialect; }

  // Runs one statement; without a reader its rows are dropped. Returns how many rows an INSERT, UPDATE or
  // DELETE changed; of other statements the number means nothing. A repeated statement is prepared once (64
  // are kept). Throws PLXSQLError; the statement has changed nothing then. Outside a transaction what it
  // changed is durable when it returns.
  virtual std::int64_t Run(std::string const& sql_i, std::span<PLXSQLParameter const> values_i = {},
                           RowReader const& reader_i = {}) = 0;

  // Forgets prepared statements: after a table has changed its columns.
  virtual void ForgetStatements() = 0;

  // A transaction that may write, from its beginning on alone among the writers where the engine knows no
  // finer lock. See PLXSQLTransaction. Throw PLXSQLError.
  virtual void Begin() = 0;
  virtual void Commit() = 0;
  virtual void Rollback() = 0;

 private:
  PLXSQLDialect const myDialect;
};

// A transaction for as long as a scope lasts: what is not committed when it ends is rolled back.
class PLXSQLTransaction {
 public:
  explicit PLXSQLTransaction(PLXSQLConnection& connection_io) : myConnection(connection_io) {
    myConnection.Begin();
  }
  ~PLXSQLTransaction() {
    if (isDone) return;
    try {
      myConnection.Rollback();
    } catch (PLXSQLError const&) {  // the connection is lost, and the transaction with it
    }
  }
  PLXSQLTransaction(PLXSQLTransaction const&) = delete;
  PLXSQLTransaction& operator=(PLXSQLTransaction const&) = delete;

  // Throws PLXSQLError; the transaction is rolled back then, except that a connection lost in this very call
  // leaves it unknown whether it was kept.
  void Commit() {
    myConnection.Commit();
    isDone = true;
  }

 private:
  PLXSQLConnection& myConnection;
  bool isDone = false;
};
