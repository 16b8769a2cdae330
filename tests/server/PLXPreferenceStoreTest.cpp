#include <chrono>
#include <condition_variable>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <mutex>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "PLXPreferenceStore.h"
#include "PLXSQLite.h"
#include "TemporaryFolder.h"

TEST(PLXPreferenceStore, KeepsWhatWasSetAcrossARestart) {
  TemporaryFolder const folder;
  std::string everyByte;
  for (int byte = 1; byte < 256; ++byte) everyByte.push_back(static_cast<char>(byte));
  {
    PLXPreferenceStore store(folder / "preferences.db");
    EXPECT_TRUE(store.Set("demo/main", "Network Module", "Server", "one"));
    EXPECT_TRUE(store.Set("demo/main", "Network Module", "Server", "two"));
    EXPECT_TRUE(store.Set("demo/main", "Network Module", "server", "other letters, other name"));
    EXPECT_TRUE(store.Set("demo/mail", "Network Module", "Server", ""));
    EXPECT_TRUE(store.Set("demo/main", "Other", "Server", everyByte));
    EXPECT_TRUE(store.Set("demo/main", "Other", everyByte, "named by bytes"));
    EXPECT_TRUE(store.Set("demo/main", "Other", "gone", "x"));
    EXPECT_TRUE(store.Remove("demo/main", "Other", "gone"));
    EXPECT_TRUE(store.Remove("demo/main", "Other", "never there"));
    EXPECT_EQ(store.Get("demo/main", "Other", "gone"), std::nullopt);
  }
  PLXPreferenceStore const store(folder / "preferences.db");
  EXPECT_EQ(store.Get("demo/main", "Network Module", "Server"), "two");
  EXPECT_EQ(store.Get("demo/main", "Network Module", "server"), "other letters, other name");
  EXPECT_EQ(store.Get("demo/mail", "Network Module", "Server"), "") << "an empty text is not nothing";
  EXPECT_EQ(store.Get("demo/main", "Other", "Server"), everyByte);
  EXPECT_EQ(store.Get("demo/main", "Other", everyByte), "named by bytes");
  EXPECT_EQ(store.Get("demo/main", "Other", "gone"), std::nullopt);
}

TEST(PLXPreferenceStore, RefusesZeroBytes) {
  TemporaryFolder const folder;
  PLXPreferenceStore store(folder / "preferences.db");
  std::string const zero("a\0b", 3);
  EXPECT_FALSE(store.Set(zero, "b", "c", "d"));
  EXPECT_FALSE(store.Set("a", zero, "c", "d"));
  EXPECT_FALSE(store.Set("a", "b", zero, "d"));
  EXPECT_FALSE(store.Set("a", "b", "c", zero));
  EXPECT_EQ(store.Get("a", "b", "c"), std::nullopt);
  EXPECT_EQ(store.Get(std::string("a\0b\0c", 5), "", ""), std::nullopt);
}

TEST(PLXPreferenceStore, HoldsWhatItAcknowledgedWhenTheProcessIsKilled) {
  TemporaryFolder const folder;
  pid_t const child = ::fork();
  if (child == 0) {
    PLXPreferenceStore store(folder / "preferences.db");
    for (int index = 0; index < 50; ++index) store.Set("r", "o", std::to_string(index), "kept");
    ::kill(::getpid(), SIGKILL);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  PLXPreferenceStore const store(folder / "preferences.db");
  for (int index = 0; index < 50; ++index) EXPECT_EQ(store.Get("r", "o", std::to_string(index)), "kept");
}

TEST(PLXPreferenceStore, AnswersManyThreadsAtOnce) {
  TemporaryFolder const folder;
  PLXPreferenceStore store(folder / "preferences.db");
  {
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < 8; ++thread) {
      threads.emplace_back([&store, thread] {
        std::string const owner = std::to_string(thread);
        for (int index = 0; index < 20; ++index) {
          store.Set("shared", "all", "last", owner);
          store.Set("own", owner, "count", std::to_string(index));
          EXPECT_EQ(store.Get("own", owner, "count"), std::to_string(index));
          EXPECT_TRUE(store.Get("shared", "all", "last").has_value());
        }
      });
    }
  }
  PLXPreferenceStore const again(folder / "preferences.db");
  EXPECT_EQ(again.Get("shared", "all", "last"), store.Get("shared", "all", "last"));
  EXPECT_EQ(again.Get("own", "7", "count"), "19");
}

TEST(PLXPreferenceStore, SaysWhyAFileCannotBeUsed) {
  TemporaryFolder const folder;
  folder.Write("text", std::string(5000, 'x'));
  folder.Write("damaged", "SQLite format 3" + std::string(5000, '\0'));
  for (std::filesystem::path const& file :
       {folder / "text", folder / "damaged", folder / "none/x", folder.Path()}) {
    SCOPED_TRACE(file);
    try {
      PLXPreferenceStore const store(file);
      ADD_FAILURE() << "was opened";
    } catch (PLXSQLError const& error) {
      EXPECT_THAT(error.what(), testing::StartsWith(file.string() + ": "));
    }
  }
  EXPECT_EQ(folder.Read("text"), std::string(5000, 'x'));
}

TEST(PLXPreferenceStore, ChangesNothingWhenTheDiskRefuses) {
  TemporaryFolder const folder;
  PLXPreferenceStore store(folder / "preferences.db");
  ASSERT_TRUE(store.Set("r", "o", "n", "before"));
  PLXSQLite(folder / "preferences.db")
      .Run("CREATE TRIGGER full BEFORE UPDATE ON preference BEGIN SELECT RAISE(ABORT, 'disk full'); END");
  PLXSQLite(folder / "preferences.db")
      .Run("CREATE TRIGGER stuck BEFORE DELETE ON preference BEGIN SELECT RAISE(ABORT, 'disk full'); END");
  EXPECT_FALSE(store.Set("r", "o", "n", "after"));
  EXPECT_FALSE(store.Remove("r", "o", "n"));
  EXPECT_EQ(store.Get("r", "o", "n"), "before");
}

// ---- Shared with other servers
// ---------------------------------------------------------------------------------

namespace {

// A data source that can be switched off, so that every call fails, or held up, so that none returns.
class Switched : public PLXSQLConnection {
 public:
  enum class State { kWorks, kFails, kWaits };
  struct Switch {
    std::mutex mutex;
    std::condition_variable changed;
    State state = State::kWorks;

    void Set(State state_i) {
      std::lock_guard const lock(mutex);
      state = state_i;
      changed.notify_all();
    }
    void Pass() {
      std::unique_lock lock(mutex);
      changed.wait(lock, [this] { return state != State::kWaits; });
      if (state == State::kFails) throw PLXSQLError(PLXSQLError::Kind::kLost, "switched off");
    }
  };

  Switched(std::filesystem::path const& file_i, Switch& switch_i)
      : PLXSQLConnection(PLXSQLDialect::kSQLite), mySwitch(switch_i), myDatabase(file_i) {
    mySwitch.Pass();
  }
  std::int64_t Run(std::string const& sql_i, std::span<PLXSQLParameter const> values_i,
                   RowReader const& reader_i) override {
    mySwitch.Pass();
    return myDatabase.Run(sql_i, values_i, reader_i);
  }
  void ForgetStatements() override { myDatabase.ForgetStatements(); }
  void Begin() override { Run("BEGIN IMMEDIATE", {}, {}); }
  void Commit() override { Run("COMMIT", {}, {}); }
  void Rollback() override { Run("ROLLBACK", {}, {}); }

 private:
  Switch& mySwitch;
  PLXSQLite myDatabase;
};

}  // namespace

TEST(PLXPreferenceStore, GoesOnWithWhatItKnowsWhileItsSourceIsAway) {
  TemporaryFolder const folder;
  Switched::Switch source;
  auto const open = [&](std::string const& name_i) {
    return std::make_unique<PLXPreferenceStore>(
        folder / (name_i + ".db"), folder / (name_i + "-copy.db"),
        [&] { return std::make_unique<Switched>(folder / "source.db", source); });
  };
  auto store = open("first");
  auto const other = open("second");
  ASSERT_TRUE(store->Set("r", "o", "kept", "one"));
  ASSERT_TRUE(store->Set("r", "o", "gone", "x"));
  ASSERT_TRUE(store->Remove("r", "o", "gone"));
  for (Switched::State const state : {Switched::State::kFails, Switched::State::kWaits}) {
    source.Set(state);
    EXPECT_FALSE(store->Set("r", "o", "kept", "two"));
    EXPECT_FALSE(store->Remove("r", "o", "kept"));
    store->Refresh();
    EXPECT_EQ(store->Get("r", "o", "kept"), "one");
    source.Set(Switched::State::kFails);
    EXPECT_EQ(open("first")->Get("r", "o", "kept"), "one") << "a start has the copy";
    EXPECT_THROW(open("third"), PLXSQLError) << "and the very first one needs the source";
    source.Set(Switched::State::kWorks);
    auto const until = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!store->Set("r", "o", "kept", "one") && std::chrono::steady_clock::now() < until) {
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    other->Refresh();
    EXPECT_EQ(other->Get("r", "o", "kept"), "one");
    EXPECT_EQ(other->Get("r", "o", "gone"), std::nullopt);
  }
}

// ---- The database beneath
// ----------------------------------------------------------------------------------

namespace {

std::vector<PLXSQLRow> Query(PLXSQLite& database_io, std::string const& sql_i) {
  std::vector<PLXSQLRow> rows;
  database_io.Run(sql_i, {}, [&rows](PLXSQLRow& row_io) { rows.push_back(row_io); });
  return rows;
}

}  // namespace

TEST(PLXSQLite, IsDurableAndPrivate) {
  TemporaryFolder const folder;
  PLXSQLite database(folder / "a.db");
  EXPECT_EQ(Query(database, "PRAGMA journal_mode")[0][0], PLXSQLValue("wal"));
  EXPECT_EQ(Query(database, "PRAGMA synchronous")[0][0], PLXSQLValue(std::int64_t{2}));
  EXPECT_EQ(Query(database, "PRAGMA busy_timeout")[0][0], PLXSQLValue(std::int64_t{10000}));
  database.Run("CREATE TABLE t (a)");
  for (char const* const name : {"a.db", "a.db-wal"}) {
    struct stat status {};
    ASSERT_EQ(::stat((folder / name).c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600u) << name;
  }
}

TEST(PLXSQLite, BindsValuesAndTellsNullFromEmpty) {
  TemporaryFolder const folder;
  PLXSQLite database(folder / "a.db");
  database.Run("CREATE TABLE t (a TEXT UNIQUE, b TEXT)");
  PLXSQLParameter const tricky[] = {"'); DROP TABLE t; --", std::string_view()};
  database.Run("INSERT INTO t VALUES (?, ?)", tricky);
  database.Run("INSERT INTO t (a) VALUES ('x');");
  auto const rows = Query(database, "SELECT a, b FROM t ORDER BY rowid");
  ASSERT_EQ(rows.size(), 2u);
  EXPECT_EQ(rows[0][0], PLXSQLValue("'); DROP TABLE t; --"));
  EXPECT_EQ(rows[0][1], PLXSQLValue(""));
  EXPECT_EQ(rows[1][1], PLXSQLValue());

  PLXSQLParameter const one[] = {"x"};
  struct Row {
    char const* why;
    std::string sql;
    std::span<PLXSQLParameter const> values;
  } const bad[] = {{"a value that is there already", "INSERT INTO t (a) VALUES (?)", one},
                   {"no such table", "SELECT * FROM none", {}},
                   {"two statements", "DELETE FROM t; DELETE FROM t", {}},
                   {"no statement", " -- nothing", {}},
                   {"too few values", "INSERT INTO t VALUES (?, ?)", one},
                   {"too many values", "DELETE FROM t", one}};
  for (Row const& row : bad) {
    SCOPED_TRACE(row.why);
    EXPECT_THROW(database.Run(row.sql, row.values), PLXSQLError);
    EXPECT_EQ(Query(database, "SELECT * FROM t").size(), 2u) << "and the connection goes on";
  }
}

TEST(PLXSQLite, OutlivesMoreStatementsThanItKeepsAndChangesOfTables) {
  TemporaryFolder const folder;
  PLXSQLite database(folder / "a.db");
  database.Run("CREATE TABLE t (a)");
  database.Run("INSERT INTO t VALUES (1)");
  for (int index = 0; index < 300; ++index) {
    EXPECT_EQ(Query(database, "SELECT a + " + std::to_string(index) + " FROM t")[0][0],
              PLXSQLValue(std::int64_t{index + 1}));
  }
  EXPECT_EQ(Query(database, "SELECT * FROM t")[0].size(), 1u);
  PLXSQLite(folder / "a.db").Run("ALTER TABLE t ADD COLUMN b");
  EXPECT_EQ(Query(database, "SELECT * FROM t")[0].size(), 2u);
}
