#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "PLXSQLConnection.h"

// How a database is opened: beside others, or alone.
enum class PLXRecordAccess : std::uint32_t { kShared = 2, kExclusive = 3 };

// The locks that hold between several servers on one data source; within one server PLXRecordLocks takes each
// name at most once. Not thread-safe by itself.
class PLXServerLocks {
 public:
  virtual ~PLXServerLocks() = default;
  // Takes the lock if nobody in the way holds it. Throws PLXSQLError when that cannot be told.
  virtual bool TryTake(std::int64_t key_i, PLXRecordAccess access_i) = 0;
  virtual void Release(std::int64_t key_i, PLXRecordAccess access_i) = 0;
};

// Byte locks on a file that all servers of one machine share. They belong to the open file: they end with the
// process, however it ends.
class PLXFileLocks : public PLXServerLocks {
 public:
  // Throws PLXSQLError when the file cannot be made.
  explicit PLXFileLocks(std::filesystem::path const& file_i);
  ~PLXFileLocks() override;
  bool TryTake(std::int64_t key_i, PLXRecordAccess access_i) override;
  void Release(std::int64_t key_i, PLXRecordAccess access_i) override;

 private:
  bool Set(std::int64_t key_i, short type_i);
  std::filesystem::path const myFile;
  int myDescriptor = -1;
};

// Advisory locks of PostgreSQL, on a connection of their own: they end with it. When it is lost the next call
// makes a new one and takes what is held again; until then another server can get in.
class PLXAdvisoryLocks : public PLXServerLocks {
 public:
  using Maker = std::function<std::unique_ptr<PLXSQLConnection>()>;
  explicit PLXAdvisoryLocks(Maker maker_i) : myMaker(std::move(maker_i)) {}
  bool TryTake(std::int64_t key_i, PLXRecordAccess access_i) override;
  void Release(std::int64_t key_i, PLXRecordAccess access_i) override;

 private:
  struct Held {
    std::int64_t key;
    PLXRecordAccess access;
  };
  bool Ask(char const* sql_i, std::int64_t key_i);
  bool Ask(PLXRecordAccess access_i, std::int64_t key_i);
  void Reconnect();

  Maker const myMaker;
  std::unique_ptr<PLXSQLConnection> myConnection;
  std::vector<Held> myHeld;
};

// Who has which database open: any number share one, or one has it alone, over all threads of this server and
// over all servers on the data source. Any thread.
class PLXRecordLocks {
 public:
  explicit PLXRecordLocks(std::unique_ptr<PLXServerLocks> servers_i) : myServers(std::move(servers_i)) {}

  // Takes the database of this name key for an owner. Waits some seconds for others to let it go; fails at
  // once when the owner itself is in its own way. Throws PLXRecordError (kInUse; kNotReachable).
  void Take(std::string const& name_i, PLXRecordAccess access_i, void const* owner_i);
  // Gives back what was taken with the same words.
  void Release(std::string const& name_i, PLXRecordAccess access_i, void const* owner_i);

 private:
  struct Holder {
    PLXRecordAccess access;
    void const* owner;
  };
  struct Entry {
    std::vector<Holder> holders;
    bool isAsking = false;  // one thread asks the other servers; the rest wait for what it learns
  };
  using Clock = std::chrono::steady_clock;

  static bool IsInTheWay(Holder const& holder_i, PLXRecordAccess access_i) {
    return access_i == PLXRecordAccess::kExclusive || holder_i.access == PLXRecordAccess::kExclusive;
  }
  bool IsFree(Entry const& entry_i, PLXRecordAccess access_i, void const* owner_i) const;
  bool AskServers(std::string const& name_i, PLXRecordAccess access_i, Clock::time_point deadline_i,
                  std::unique_lock<std::mutex>& lock_io);
  void Forget(std::string const& name_i);

  std::mutex myServersMutex;  // guards myServers; never taken while waiting for myMutex
  std::unique_ptr<PLXServerLocks> const myServers;
  std::mutex myMutex;  // guards myEntries
  std::condition_variable myReleased;
  std::unordered_map<std::string, Entry> myEntries;
};
