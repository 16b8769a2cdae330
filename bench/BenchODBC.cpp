#include <benchmark/benchmark.h>
#include <cstdlib>
#include <filesystem>
#include <sql.h>
#include <sqlext.h>
#include <string>

#include "PLXRecordCursor.h"

// The record engine over an ODBC source beside plain unixODBC with prepared statements and bound columns, on
// the same server. The source is named by PLX_BENCH_SOURCE, its user and password by PLX_BENCH_USER and
// PLX_BENCH_PASSWORD (bench/records.py); without one there is nothing to measure.

namespace {

constexpr std::int64_t kRecords = 20000;

std::string Environment(char const* name_i) {
  char const* const value = std::getenv(name_i);
  return value == nullptr ? "" : value;
}

std::string Key(std::int64_t number_i) { return "message-" + std::to_string(number_i); }

// ---- Ours

struct Ours {
  std::filesystem::path folder;
  std::unique_ptr<PLXRecordEngine> engine;
  std::unique_ptr<PLXRecordCursor> cursor;

  Ours() {
    char name[] = "/tmp/plx-bench.XXXXXX";
    folder = mkdtemp(name);
    engine = std::make_unique<PLXRecordEngine>(
        PLXRecordEngine::Settings{folder, Environment("PLX_BENCH_SOURCE"), Environment("PLX_BENCH_USER"),
                                  Environment("PLX_BENCH_PASSWORD")});
    cursor = std::make_unique<PLXRecordCursor>(engine->Store(), "bench", PLXRecordAccess::kShared, this);
    if (!cursor->HasField("UIDL")) {
      cursor->AddField("UIDL", 0x60000 | 70 | PLXRecordField::kUnique);
      cursor->AddField("Number", 0x20000);
    }
    cursor->DeleteAll();
  }
  ~Ours() {
    cursor.reset();
    engine.reset();
    std::filesystem::remove_all(folder);
  }
  void Add(std::int64_t number_i) {
    cursor->NewRecord();
    cursor->Set("UIDL", Key(number_i));
    cursor->Set("Number", number_i);
    cursor->Add();
  }
};

// ---- The peer

void Check(SQLRETURN result_i) {
  if (!SQL_SUCCEEDED(result_i)) std::abort();
}

SQLCHAR* Text(std::string const& text_i) {
  return const_cast<SQLCHAR*>(reinterpret_cast<SQLCHAR const*>(text_i.c_str()));
}

struct Plain {
  SQLHENV environment = SQL_NULL_HENV;
  SQLHDBC connection = SQL_NULL_HDBC;
  SQLHSTMT statement = SQL_NULL_HSTMT;
  std::string uidl = std::string(70, ' ');
  SQLBIGINT number = 0;
  SQLLEN uidlLength = 0;
  SQLLEN numberLength = 0;

  Plain() {
    std::string const source = Environment("PLX_BENCH_SOURCE") + ";UID=" + Environment("PLX_BENCH_USER") +
                               ";PWD={" + Environment("PLX_BENCH_PASSWORD") + "}";
    Check(SQLAllocHandle(SQL_HANDLE_ENV, SQL_NULL_HANDLE, &environment));
    // NOLINTNEXTLINE(performance-no-int-to-ptr): ODBC hands numbers over as addresses
    Check(SQLSetEnvAttr(environment, SQL_ATTR_ODBC_VERSION, reinterpret_cast<SQLPOINTER>(SQL_OV_ODBC3), 0));
    Check(SQLAllocHandle(SQL_HANDLE_DBC, environment, &connection));
    Check(SQLDriverConnect(connection, nullptr, Text(source), SQL_NTS, nullptr, 0, nullptr,
                           SQL_DRIVER_NOPROMPT));
    Check(SQLAllocHandle(SQL_HANDLE_STMT, connection, &statement));
    Check(SQLExecDirect(statement, Text("DROP TABLE IF EXISTS plain"), SQL_NTS));
    Check(SQLExecDirect(
        statement, Text("CREATE TABLE plain (id BIGSERIAL PRIMARY KEY, uidl TEXT UNIQUE, number BIGINT)"),
        SQL_NTS));
  }
  ~Plain() {
    SQLFreeHandle(SQL_HANDLE_STMT, statement);
    SQLDisconnect(connection);
    SQLFreeHandle(SQL_HANDLE_DBC, connection);
    SQLFreeHandle(SQL_HANDLE_ENV, environment);
  }
  void Prepare(std::string const& sql_i, int parameters_i) {
    SQLFreeStmt(statement, SQL_CLOSE);
    SQLFreeStmt(statement, SQL_UNBIND);
    SQLFreeStmt(statement, SQL_RESET_PARAMS);
    Check(SQLPrepare(statement, Text(sql_i), SQL_NTS));
    if (parameters_i > 0) {
      Check(SQLBindParameter(statement, 1, SQL_PARAM_INPUT, SQL_C_CHAR, SQL_VARCHAR, 70, 0, uidl.data(), 70,
                             &uidlLength));
    }
    if (parameters_i > 1) {
      Check(SQLBindParameter(statement, 2, SQL_PARAM_INPUT, SQL_C_SBIGINT, SQL_BIGINT, 0, 0, &number, 0,
                             &numberLength));
    }
  }
  void SetKey(std::int64_t number_i) {
    std::string const key = Key(number_i);
    uidl.replace(0, key.size(), key);
    uidlLength = static_cast<SQLLEN>(key.size());
    number = number_i;
  }
  void PrepareToAdd() { Prepare("INSERT INTO plain (uidl, number) VALUES (?, ?)", 2); }
  void Add(std::int64_t number_i) {
    SetKey(number_i);
    Check(SQLExecute(statement));
  }
  void Fill() {
    PrepareToAdd();
    for (std::int64_t added = 0; added < kRecords; ++added) Add(added);
  }
};

// ---- Adding, finding one by its key, and a found set from end to end

void Add(benchmark::State& state_io) {
  Ours ours;
  std::int64_t number = 0;
  for (auto _ : state_io) ours.Add(number++);
}
void PlainAdd(benchmark::State& state_io) {
  Plain plain;
  plain.PrepareToAdd();
  std::int64_t number = 0;
  for (auto _ : state_io) plain.Add(number++);
}

void Lookup(benchmark::State& state_io) {
  Ours ours;
  for (std::int64_t number = 0; number < kRecords; ++number) ours.Add(number);
  std::int64_t number = 0;
  for (auto _ : state_io) {
    number = (number + 7919) % kRecords;
    ours.cursor->Search("UIDL = '" + Key(number) + "'");
    benchmark::DoNotOptimize(ours.cursor->Get("Number"));
  }
}
void PlainLookup(benchmark::State& state_io) {
  Plain plain;
  plain.Fill();
  plain.Prepare("SELECT number FROM plain WHERE uidl = ?", 1);
  SQLBIGINT found = 0;
  Check(SQLBindCol(plain.statement, 1, SQL_C_SBIGINT, &found, 0, nullptr));
  std::int64_t number = 0;
  for (auto _ : state_io) {
    number = (number + 7919) % kRecords;
    plain.SetKey(number);
    Check(SQLExecute(plain.statement));
    Check(SQLFetch(plain.statement));
    if (found != number) std::abort();
    SQLFreeStmt(plain.statement, SQL_CLOSE);
  }
}

void Walk(benchmark::State& state_io) {
  Ours ours;
  for (std::int64_t number = 0; number < kRecords; ++number) ours.Add(number);
  for (auto _ : state_io) {
    ours.cursor->Search("Number >= '0'");
    std::size_t sum = 0;
    for (auto left = ours.cursor->ResultCount();;) {
      sum += PLXRecordText(ours.cursor->Get("UIDL")).size();
      if (--left == 0) break;
      ours.cursor->MoveNext();
    }
    benchmark::DoNotOptimize(sum);
  }
}
void PlainWalk(benchmark::State& state_io) {
  Plain plain;
  plain.Fill();
  plain.Prepare("SELECT uidl, number FROM plain WHERE number >= 0 ORDER BY id", 0);
  Check(SQLBindCol(plain.statement, 1, SQL_C_CHAR, plain.uidl.data(), 70, &plain.uidlLength));
  Check(SQLBindCol(plain.statement, 2, SQL_C_SBIGINT, &plain.number, 0, nullptr));
  for (auto _ : state_io) {
    Check(SQLExecute(plain.statement));
    std::size_t sum = 0;
    while (SQL_SUCCEEDED(SQLFetch(plain.statement))) sum += std::string(plain.uidl.c_str()).size();
    benchmark::DoNotOptimize(sum);
    SQLFreeStmt(plain.statement, SQL_CLOSE);
  }
}

[[maybe_unused]] bool const ourIsRegistered = [] {
  if (Environment("PLX_BENCH_SOURCE").empty()) return false;
  benchmark::RegisterBenchmark("BM_RecordAddByODBC", Add)->UseRealTime();
  benchmark::RegisterBenchmark("BM_RecordAddByODBC_PlainODBC", PlainAdd)->UseRealTime();
  benchmark::RegisterBenchmark("BM_RecordLookupByODBC", Lookup)->UseRealTime();
  benchmark::RegisterBenchmark("BM_RecordLookupByODBC_PlainODBC", PlainLookup)->UseRealTime();
  benchmark::RegisterBenchmark("BM_RecordWalkByODBC", Walk)->UseRealTime();
  benchmark::RegisterBenchmark("BM_RecordWalkByODBC_PlainODBC", PlainWalk)->UseRealTime();
  return true;
}();

}  // namespace
