#pragma once

#include <atomic>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "PLXRecordCatalogue.h"
#include "PLXRecordError.h"
#include "PLXRecordLocks.h"
#include "PLXSQLPool.h"

// The databases of one data source. Any thread. What it throws is PLXRecordError.
class PLXRecordStore {
 public:
  // `maker_i` makes the connections of the pool, and one more for locks between servers where the engine has
  // them; `lockFile_i` holds those locks where it has none.
  PLXRecordStore(PLXSQLPool::Maker maker_i, std::filesystem::path const& lockFile_i);

  // Reaches the data source, whose tables are made when they are missing.
  void Connect();
  // What one operation does on a connection: see PLXSQLPool.
  template <typename Work>
  auto Read(Work const& work_i) {
    return Converted([&] {
      Prepare();
      return myPool.Read(work_i);
    });
  }
  template <typename Work>
  auto Write(Work const& work_i) {
    return Converted([&] {
      Prepare();
      return myPool.Write(work_i);
    });
  }
  PLXSQLDialect GetDialect() const { return myDialect; }  // once connected

  // Every database's name, sorted.
  std::vector<std::string> Names();
  // kExists when there is one.
  void Create(std::string_view name_i);
  // Deletes a database that nobody has open.
  void Delete(std::string_view name_i);
  PLXRecordLocks& Locks();

 private:
  template <typename Work>
  static auto Converted(Work const& work_i) {
    try {
      return work_i();
    } catch (PLXSQLError const& error) {
      throw PLXRecordError(error);
    }
  }
  void Prepare();

  PLXSQLPool::Maker const myMaker;
  std::filesystem::path const myLockFile;
  PLXSQLPool myPool;
  std::mutex myMutex;  // guards the preparation
  std::atomic<bool> isPrepared{false};
  PLXSQLDialect myDialect = PLXSQLDialect::kOther;
  std::unique_ptr<PLXRecordLocks> myLocks;
};

// All record databases of a server: the configured data source and those that pages name. Any thread.
class PLXRecordEngine {
 public:
  struct Settings {
    std::filesystem::path folder;  // for the embedded engine's file and for locks
    std::string source;            // the configured ODBC source; empty for the embedded engine
    std::string user;
    std::string password;
  };
  explicit PLXRecordEngine(Settings settings_i) : mySettings(std::move(settings_i)) {}

  // The store of an ODBC data source (a DSN or a whole connection string); of the configured one when the
  // source is empty. Kept for the life of the engine once it was reached. Throws PLXRecordError
  // (kNotReachable).
  std::shared_ptr<PLXRecordStore> Store(std::string_view source_i = {}, std::string_view user_i = {},
                                        std::string_view password_i = {});

 private:
  std::shared_ptr<PLXRecordStore> Make(std::string const& source_i, std::string const& user_i,
                                       std::string const& password_i) const;

  Settings const mySettings;
  std::mutex myMutex;  // guards myStores
  std::map<std::string, std::shared_ptr<PLXRecordStore>> myStores;
};
