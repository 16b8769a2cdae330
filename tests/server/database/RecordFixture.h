#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

#include "PLXODBC.h"
#include "PLXRecordCursor.h"
#include "RealServer.h"
#include "TemporaryFolder.h"

// PostgreSQL for this test program, started when the first test needs it.
class TestPostgreSQL {
 public:
  static RealServer& Server() {
    static RealServer ourServer("postgres");
    return ourServer;
  }
  static std::string Source() {
    return "Driver=psqlodbcw.so;Servername=127.0.0.1;Database=test;Port=" + std::to_string(Server().Port());
  }
  static constexpr char kUser[] = "test";
  static constexpr char kPassword[] = "test,pass;{word}";
};

// The engine on one kind of source, empty at the beginning of each test.
class Records : public testing::TestWithParam<std::string> {
 protected:
  void SetUp() override {
    if (GetParam() == "postgresql") {
      ASSERT_TRUE(TestPostgreSQL::Server().IsReady());
      PLXODBC connection(TestPostgreSQL::Source(), TestPostgreSQL::kUser, TestPostgreSQL::kPassword);
      connection.Run("DROP SCHEMA public CASCADE");
      connection.Run("CREATE SCHEMA public");
    }
    myEngine = NewServer();
  }

  bool IsPostgreSQL() const { return GetParam() == "postgresql"; }
  PLXRecordEngine::Settings Settings() const {
    if (GetParam() == "sqlite") return {myFolder.Path(), {}, {}, {}};
    if (GetParam() == "sqliteodbc") {
      return {myFolder.Path(),
              "Driver=libsqlite3odbc.so;Timeout=10000;Database=" + (myFolder / "odbc.sqlite").string(),
              {},
              {}};
    }
    return {myFolder.Path(), TestPostgreSQL::Source(), TestPostgreSQL::kUser, TestPostgreSQL::kPassword};
  }
  // One more server on the same source.
  std::unique_ptr<PLXRecordEngine> NewServer() const { return std::make_unique<PLXRecordEngine>(Settings()); }
  static std::unique_ptr<PLXRecordCursor> Open(PLXRecordEngine& engine_i, std::string const& name_i,
                                               PLXRecordAccess access_i = PLXRecordAccess::kShared,
                                               void const* owner_i = nullptr) {
    return std::make_unique<PLXRecordCursor>(engine_i.Store(), name_i, access_i, owner_i);
  }
  std::unique_ptr<PLXRecordCursor> Open(std::string const& name_i) { return Open(*myEngine, name_i); }
  std::unique_ptr<PLXRecordCursor> OpenWith(
      std::string const& name_i, std::vector<std::pair<char const*, std::uint32_t>> const& fields_i) {
    auto cursor = Open(name_i);
    for (auto const& [field, word] : fields_i) cursor->AddField(field, word);
    return cursor;
  }

  TemporaryFolder const myFolder;
  std::unique_ptr<PLXRecordEngine> myEngine;
};

// Runs something that must fail; what it failed with.
template <typename Work>
PLXRecordError::Kind Failure(Work const& work_i, std::string* sentence_o = nullptr) {
  try {
    work_i();
  } catch (PLXRecordError const& error) {
    if (sentence_o != nullptr) *sentence_o = error.what();
    EXPECT_STRNE(error.what(), "");
    return error.GetKind();
  }
  ADD_FAILURE() << "did not fail";
  return {};
}

using Kind = PLXRecordError::Kind;

inline std::string GetText(PLXRecordCursor& cursor_io, std::string_view field_i) {
  return PLXRecordText(cursor_io.Get(field_i));
}
inline void AddRecord(PLXRecordCursor& cursor_io,
                      std::vector<std::pair<std::string_view, PLXRecordValue>> const& values_i) {
  cursor_io.NewRecord();
  for (auto const& [field, value] : values_i) cursor_io.Set(field, value);
  cursor_io.Add();
}
// One field of every record of the found set, joined by blanks.
inline std::string Walk(PLXRecordCursor& cursor_io, std::string_view field_i) {
  std::string texts;
  try {
    for (cursor_io.MoveFirst();; cursor_io.MoveNext())
      texts.append(texts.empty() ? "" : " ").append(GetText(cursor_io, field_i));
  } catch (PLXRecordError const& error) {
    EXPECT_EQ(error.GetKind(), Kind::kEnd) << error.what();
  }
  return texts;
}
