#include <benchmark/benchmark.h>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <sqlite3.h>

#include "PLXRecordCursor.h"

// The record engine beside plain sqlite3 with prepared statements, each on a file of its own on the same disk
// and with the same durability.

namespace {

constexpr std::int64_t kRecords = 100000;
std::string const kSubject(40, 's');
std::string const kMessage(200, 'm');

std::string Key(std::int64_t number_i) { return "message-" + std::to_string(number_i); }

struct Folder {
  std::filesystem::path path;
  Folder() {
    char name[] = "/tmp/plx-bench.XXXXXX";
    path = mkdtemp(name);
  }
  ~Folder() { std::filesystem::remove_all(path); }
};

// ---- Ours

struct Ours {
  Folder folder;
  PLXRecordEngine engine{{folder.path, {}, {}, {}}};
  std::unique_ptr<PLXRecordCursor> cursor;

  Ours() {
    cursor = std::make_unique<PLXRecordCursor>(engine.Store(), "bench", PLXRecordAccess::kShared, this);
    cursor->AddField("UIDL", 0x60000 | 70 | PLXRecordField::kUnique);
    cursor->AddField("Subject", 0x60000 | 255);
    cursor->AddField("Number", 0x20000);
    cursor->AddField("Message", 0x70000);
  }
  void Add(std::int64_t number_i) {
    cursor->NewRecord();
    cursor->Set("UIDL", Key(number_i));
    cursor->Set("Subject", kSubject);
    cursor->Set("Number", number_i);
    cursor->Set("Message", kMessage);
    cursor->Add();
  }
  // Many records at once, for those who read them.
  void Fill() {
    std::filesystem::path const file = folder.path / "records.csv";
    FILE* const out = std::fopen(file.c_str(), "w");
    std::fputs("UIDL,Subject,Number,Message\n", out);
    for (std::int64_t number = 0; number < kRecords; ++number) {
      std::fprintf(out, "%s,%s,%ld,%s\n", Key(number).c_str(), kSubject.c_str(), static_cast<long>(number),
                   kMessage.c_str());
    }
    std::fclose(out);
    cursor->Import(file);
  }
};

// ---- The peer

struct Plain {
  Folder folder;
  sqlite3* connection = nullptr;

  Plain() {
    if (sqlite3_open((folder.path / "plain.sqlite").c_str(), &connection) != SQLITE_OK) std::abort();
    Run("PRAGMA journal_mode=WAL; PRAGMA synchronous=FULL;"
        "CREATE TABLE t (id INTEGER PRIMARY KEY AUTOINCREMENT, uidl TEXT UNIQUE, subject TEXT, number "
        "BIGINT, message TEXT)");
  }
  ~Plain() { sqlite3_close_v2(connection); }
  void Run(char const* sql_i) {
    if (sqlite3_exec(connection, sql_i, nullptr, nullptr, nullptr) != SQLITE_OK) std::abort();
  }
  sqlite3_stmt* Prepare(char const* sql_i) {
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(connection, sql_i, -1, &statement, nullptr) != SQLITE_OK) std::abort();
    return statement;
  }
  void Fill() {
    sqlite3_stmt* const add = Prepare("INSERT INTO t (uidl, subject, number, message) VALUES (?, ?, ?, ?)");
    Run("BEGIN");
    for (std::int64_t number = 0; number < kRecords; ++number) Add(add, number);
    Run("COMMIT");
    sqlite3_finalize(add);
  }
  static void Bind(sqlite3_stmt* statement_i, int place_i, std::string const& text_i) {
    sqlite3_bind_text(statement_i, place_i, text_i.data(), static_cast<int>(text_i.size()), SQLITE_TRANSIENT);
  }
  static void Add(sqlite3_stmt* add_i, std::int64_t number_i) {
    Bind(add_i, 1, Key(number_i));
    Bind(add_i, 2, kSubject);
    sqlite3_bind_int64(add_i, 3, number_i);
    Bind(add_i, 4, kMessage);
    if (sqlite3_step(add_i) != SQLITE_DONE) std::abort();
    sqlite3_reset(add_i);
  }
};

std::size_t Read(sqlite3_stmt* statement_i) {
  std::string const subject(reinterpret_cast<char const*>(sqlite3_column_text(statement_i, 2)));
  return subject.size() + static_cast<std::size_t>(sqlite3_column_int64(statement_i, 3));
}

// ---- Adding, each record acknowledged when it is on the disk

void BM_RecordAdd(benchmark::State& state_io) {
  Ours ours;
  std::int64_t number = 0;
  for (auto _ : state_io) ours.Add(number++);
}
void BM_RecordAdd_SQLite(benchmark::State& state_io) {
  Plain plain;
  sqlite3_stmt* const add =
      plain.Prepare("INSERT INTO t (uidl, subject, number, message) VALUES (?, ?, ?, ?)");
  std::int64_t number = 0;
  for (auto _ : state_io) Plain::Add(add, number++);
  sqlite3_finalize(add);
}

// ---- Finding one by its key

void BM_RecordLookup(benchmark::State& state_io) {
  Ours ours;
  ours.Fill();
  std::int64_t number = 0;
  for (auto _ : state_io) {
    number = (number + 7919) % kRecords;
    ours.cursor->Search("UIDL = '" + Key(number) + "'");
    benchmark::DoNotOptimize(PLXRecordText(ours.cursor->Get("Subject")));
  }
}
void BM_RecordLookup_SQLite(benchmark::State& state_io) {
  Plain plain;
  plain.Fill();
  sqlite3_stmt* const find = plain.Prepare("SELECT * FROM t WHERE uidl = ?");
  std::int64_t number = 0;
  for (auto _ : state_io) {
    number = (number + 7919) % kRecords;
    Plain::Bind(find, 1, Key(number));
    if (sqlite3_step(find) != SQLITE_ROW) std::abort();
    benchmark::DoNotOptimize(Read(find));
    sqlite3_reset(find);
  }
  sqlite3_finalize(find);
}

// ---- A found set from end to end; the peer keeps its one statement open, so it sees no change and holds up
// the log

void BM_RecordWalk(benchmark::State& state_io) {
  Ours ours;
  ours.Fill();
  for (auto _ : state_io) {
    ours.cursor->Search("Number >= '0'");
    std::int64_t sum = 0;
    for (auto left = ours.cursor->ResultCount();;) {
      sum += static_cast<std::int64_t>(PLXRecordText(ours.cursor->Get("Subject")).size()) +
             std::get<std::int64_t>(ours.cursor->Get("Number"));
      if (--left == 0) break;
      ours.cursor->MoveNext();
    }
    benchmark::DoNotOptimize(sum);
  }
}
void BM_RecordWalk_SQLite(benchmark::State& state_io) {
  Plain plain;
  plain.Fill();
  sqlite3_stmt* const walk = plain.Prepare("SELECT * FROM t WHERE number >= 0 ORDER BY id");
  for (auto _ : state_io) {
    std::size_t sum = 0;
    while (sqlite3_step(walk) == SQLITE_ROW) sum += Read(walk);
    benchmark::DoNotOptimize(sum);
    sqlite3_reset(walk);
  }
  sqlite3_finalize(walk);
}
// What must be done when others may delete meanwhile: the identifiers first, then each record by its own.
void BM_RecordWalk_SQLiteByKey(benchmark::State& state_io) {
  Plain plain;
  plain.Fill();
  sqlite3_stmt* const search = plain.Prepare("SELECT id FROM t WHERE number >= 0 ORDER BY id");
  sqlite3_stmt* const find = plain.Prepare("SELECT * FROM t WHERE id = ?");
  for (auto _ : state_io) {
    std::vector<std::int64_t> found;
    while (sqlite3_step(search) == SQLITE_ROW) found.push_back(sqlite3_column_int64(search, 0));
    sqlite3_reset(search);
    std::size_t sum = 0;
    for (std::int64_t const identifier : found) {
      sqlite3_bind_int64(find, 1, identifier);
      if (sqlite3_step(find) == SQLITE_ROW) sum += Read(find);
      sqlite3_reset(find);
    }
    benchmark::DoNotOptimize(sum);
  }
  sqlite3_finalize(search);
  sqlite3_finalize(find);
}

// ---- What a tag does at least: open, find one record, close

void BM_RecordOpenFindClose(benchmark::State& state_io) {
  Ours ours;
  ours.Fill();
  for (auto _ : state_io) {
    PLXRecordCursor cursor(ours.engine.Store(), "bench", PLXRecordAccess::kShared, &state_io);
    cursor.Search("UIDL = 'message-77'");
    benchmark::DoNotOptimize(PLXRecordText(cursor.Get("Subject")));
  }
}

}  // namespace

BENCHMARK(BM_RecordAdd)->UseRealTime();
BENCHMARK(BM_RecordAdd_SQLite)->UseRealTime();
BENCHMARK(BM_RecordLookup);
BENCHMARK(BM_RecordLookup_SQLite);
BENCHMARK(BM_RecordWalk)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_RecordWalk_SQLite)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_RecordWalk_SQLiteByKey)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_RecordOpenFindClose);
