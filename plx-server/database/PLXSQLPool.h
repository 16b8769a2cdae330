#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "PLXSQLConnection.h"

// At most sixteen connections to one data source, made when they are needed and lent for one operation each.
//
// Any thread. Whoever takes a connection gives it back before waiting for anything else, so that sixteen
// serve any number of threads. A connection that was lost is not lent again; one that lay idle is tried
// before a write, because a write cannot simply be repeated.
class PLXSQLPool {
 public:
  using Maker = std::function<std::unique_ptr<PLXSQLConnection>()>;
  static constexpr std::size_t kLimit = 16;
  // How often somebody had to wait for a connection that was lent, in all pools of this process, and how long
  // together.
  struct Waits {
    std::uint64_t count = 0;
    std::chrono::nanoseconds time{};
  };
  static Waits GetWaits();

  explicit PLXSQLPool(Maker maker_i) : myMaker(std::move(maker_i)) { myIdle.reserve(kLimit); }

  // Runs `work_i(connection)` and returns its result. When the connection is lost meanwhile it is run a
  // second time, on a new one: it must only read. Throws PLXSQLError; kBusy when no connection comes free for
  // 30 seconds.
  template <typename Work>
  auto Read(Work const& work_i) {
    for (bool isAgain = false;; isAgain = true) {
      Lease lease(*this, false);
      try {
        return work_i(lease.Connection());
      } catch (PLXSQLError const& error) {
        if (!lease.CheckLost(error) || isAgain) throw;
      }
    }
  }
  // Runs `work_i(connection)` once.
  template <typename Work>
  auto Write(Work const& work_i) {
    Lease lease(*this, true);
    try {
      return work_i(lease.Connection());
    } catch (PLXSQLError const& error) {
      lease.CheckLost(error);
      throw;
    }
  }

 private:
  struct Idle {
    std::unique_ptr<PLXSQLConnection> connection;
    std::chrono::steady_clock::time_point since;
  };
  // Brings its connection back to the pool, or, when it was lost, drops it and all that are idle: they went
  // with it.
  class Lease {
   public:
    Lease(PLXSQLPool& pool_io, bool isForWriting_i);
    ~Lease();
    Lease(Lease const&) = delete;
    Lease& operator=(Lease const&) = delete;

    PLXSQLConnection& Connection() { return *myConnection; }
    bool CheckLost(PLXSQLError const& error_i) {
      isLost = isLost || error_i.GetKind() == PLXSQLError::Kind::kLost;
      return isLost;
    }

   private:
    PLXSQLPool& myPool;
    std::unique_ptr<PLXSQLConnection> myConnection;
    bool isLost = false;
  };

  std::unique_ptr<PLXSQLConnection> Take(bool isForWriting_i);
  // False when the deadline passed without one.
  bool WaitForOne(std::unique_lock<std::mutex>& lock_io, std::chrono::steady_clock::time_point deadline_i);
  std::unique_ptr<PLXSQLConnection> MakeOne();
  void GiveBack(std::unique_ptr<PLXSQLConnection> connection_i, bool isLost_i);

  Maker const myMaker;
  std::mutex myMutex;  // guards all below
  std::condition_variable myReturned;
  std::vector<Idle> myIdle;  // the last returned last
  std::size_t myCount = 0;   // idle and lent
};
