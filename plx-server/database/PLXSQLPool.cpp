#include "PLXSQLPool.h"

namespace {

constexpr auto kPatience = std::chrono::seconds(30);
// An engine that went away shows within this time only when it is asked.
constexpr auto kTriedAfter = std::chrono::seconds(1);

std::atomic<std::uint64_t> ourWaitCount{0};
std::atomic<std::uint64_t> ourWaitTime{0};  // nanoseconds

bool Lives(PLXSQLConnection& connection_io) {
  try {
    connection_io.Run("SELECT 1");
    return true;
  } catch (PLXSQLError const&) {
    return false;
  }
}

}  // namespace

PLXSQLPool::Lease::Lease(PLXSQLPool& pool_io, bool isForWriting_i)
    : myPool(pool_io), myConnection(pool_io.Take(isForWriting_i)) {}

PLXSQLPool::Lease::~Lease() { myPool.GiveBack(std::move(myConnection), isLost); }

std::unique_ptr<PLXSQLConnection> PLXSQLPool::Take(bool isForWriting_i) {
  auto const deadline = std::chrono::steady_clock::now() + kPatience;
  std::unique_lock lock(myMutex);
  for (;;) {
    if (!myIdle.empty()) {
      Idle idle = std::move(myIdle.back());
      myIdle.pop_back();
      if (!isForWriting_i || idle.connection->GetDialect() == PLXSQLDialect::kSQLite ||
          std::chrono::steady_clock::now() - idle.since < kTriedAfter) {
        return std::move(idle.connection);
      }
      lock.unlock();
      if (Lives(*idle.connection)) return std::move(idle.connection);
      GiveBack(std::move(idle.connection), true);
      lock.lock();
      continue;
    }
    if (myCount < kLimit) {
      ++myCount;
      lock.unlock();
      return MakeOne();
    }
    if (!WaitForOne(lock, deadline)) {
      throw PLXSQLError(PLXSQLError::Kind::kBusy, "All connections to the data source are in use.");
    }
  }
}

bool PLXSQLPool::WaitForOne(std::unique_lock<std::mutex>& lock_io,
                            std::chrono::steady_clock::time_point deadline_i) {
  auto const start = std::chrono::steady_clock::now();
  bool const isFree =
      myReturned.wait_until(lock_io, deadline_i, [this] { return !myIdle.empty() || myCount < kLimit; });
  auto const time = std::chrono::steady_clock::now() - start;
  ourWaitTime += static_cast<std::uint64_t>(std::chrono::nanoseconds(time).count());
  ++ourWaitCount;
  return isFree;
}

PLXSQLPool::Waits PLXSQLPool::GetWaits() {
  return {ourWaitCount, std::chrono::nanoseconds(ourWaitTime.load())};
}

std::unique_ptr<PLXSQLConnection> PLXSQLPool::MakeOne() {
  try {
    return myMaker();
  } catch (...) {
    std::lock_guard const lock(myMutex);
    --myCount;
    myReturned.notify_one();
    throw;
  }
}

void PLXSQLPool::GiveBack(std::unique_ptr<PLXSQLConnection> connection_i, bool isLost_i) {
  std::vector<Idle> dropped;  // closed after the lock: that can take time
  {
    std::lock_guard const lock(myMutex);
    if (isLost_i) {
      dropped.swap(myIdle);
      myCount -= dropped.size() + 1;
    } else {
      myIdle.push_back({std::move(connection_i), std::chrono::steady_clock::now()});
    }
  }
  if (isLost_i) {
    myReturned.notify_all();
  } else {
    myReturned.notify_one();
  }
}
