#include "PLXRecordLocks.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <thread>
#include <unistd.h>

#include "PLXRecordError.h"
#include "PLXUninterrupted.h"

namespace {

constexpr auto kPatience = std::chrono::seconds(10);
// Other servers send no word when they let go; an open holds for milliseconds.
constexpr auto kAskedEvery = std::chrono::milliseconds(10);

// FNV-1a in 62 bits: file locks end at 2^63.
std::int64_t KeyOf(std::string_view name_i) {
  std::uint64_t hash = 0xCBF29CE484222325;
  for (char const byte : name_i) hash = (hash ^ static_cast<unsigned char>(byte)) * 0x100000001B3;
  return static_cast<std::int64_t>(hash >> 2);
}

}  // namespace

PLXFileLocks::PLXFileLocks(std::filesystem::path const& file_i)
    : myFile(file_i),
      myDescriptor(
          PLXUninterrupted([&] { return ::open(file_i.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600); })) {
  if (myDescriptor < 0) {
    throw PLXSQLError(PLXSQLError::Kind::kOther, myFile.string() + ": " + std::strerror(errno));
  }
}

PLXFileLocks::~PLXFileLocks() { ::close(myDescriptor); }

bool PLXFileLocks::Set(std::int64_t key_i, short type_i) {
  struct flock range {};
  range.l_type = type_i;
  range.l_whence = SEEK_SET;
  range.l_start = key_i;
  range.l_len = 1;
  while (::fcntl(myDescriptor, F_OFD_SETLK, &range) != 0) {
    if (errno == EAGAIN || errno == EACCES) return false;
    if (errno == EINTR) continue;
    throw PLXSQLError(PLXSQLError::Kind::kOther, myFile.string() + ": " + std::strerror(errno));
  }
  return true;
}

bool PLXFileLocks::TryTake(std::int64_t key_i, PLXRecordAccess access_i) {
  return Set(key_i, access_i == PLXRecordAccess::kExclusive ? F_WRLCK : F_RDLCK);
}

void PLXFileLocks::Release(std::int64_t key_i, PLXRecordAccess) { Set(key_i, F_UNLCK); }

bool PLXAdvisoryLocks::Ask(char const* sql_i, std::int64_t key_i) {
  PLXSQLParameter const values[] = {key_i};
  bool isTrue = false;
  myConnection->Run(sql_i, values,
                    [&isTrue](PLXSQLRow& row_io) { isTrue = row_io.at(0) == PLXSQLValue(std::int64_t{1}); });
  return isTrue;
}

bool PLXAdvisoryLocks::Ask(PLXRecordAccess access_i, std::int64_t key_i) {
  return access_i == PLXRecordAccess::kExclusive
             ? Ask("SELECT CASE WHEN pg_try_advisory_lock(CAST(? AS BIGINT)) THEN 1 ELSE 0 END", key_i)
             : Ask("SELECT CASE WHEN pg_try_advisory_lock_shared(CAST(? AS BIGINT)) THEN 1 ELSE 0 END",
                   key_i);
}

void PLXAdvisoryLocks::Reconnect() {
  myConnection.reset();
  myConnection = myMaker();
  for (Held const& held : myHeld) Ask(held.access, held.key);
}

bool PLXAdvisoryLocks::TryTake(std::int64_t key_i, PLXRecordAccess access_i) {
  if (!myConnection) Reconnect();
  bool isTaken = false;
  try {
    isTaken = Ask(access_i, key_i);
  } catch (PLXSQLError const& error) {
    if (error.GetKind() != PLXSQLError::Kind::kLost) throw;
    Reconnect();
    isTaken = Ask(access_i, key_i);
  }
  if (isTaken) myHeld.push_back({key_i, access_i});
  return isTaken;
}

void PLXAdvisoryLocks::Release(std::int64_t key_i, PLXRecordAccess access_i) {
  auto const found = std::find_if(myHeld.begin(), myHeld.end(), [&](Held const& held) {
    return held.key == key_i && held.access == access_i;
  });
  if (found != myHeld.end()) myHeld.erase(found);
  try {
    Ask(access_i == PLXRecordAccess::kExclusive
            ? "SELECT CASE WHEN pg_advisory_unlock(CAST(? AS BIGINT)) THEN 1 ELSE 0 END"
            : "SELECT CASE WHEN pg_advisory_unlock_shared(CAST(? AS BIGINT)) THEN 1 ELSE 0 END",
        key_i);
  } catch (PLXSQLError const&) {
    myConnection.reset();  // the lock is gone with it
  }
}

void PLXRecordLocks::Take(std::string const& name_i, PLXRecordAccess access_i, void const* owner_i) {
  auto const deadline = Clock::now() + kPatience;
  std::unique_lock lock(myMutex);
  while (!IsFree(myEntries[name_i], access_i, owner_i)) {
    if (myReleased.wait_until(lock, deadline) == std::cv_status::timeout &&
        !IsFree(myEntries[name_i], access_i, owner_i)) {
      throw PLXRecordError(PLXRecordError::Kind::kInUse, "The database is in use by another page.");
    }
  }
  if (myEntries[name_i].holders.empty() && !AskServers(name_i, access_i, deadline, lock)) {
    throw PLXRecordError(PLXRecordError::Kind::kInUse, "The database is in use by another server.");
  }
  myEntries[name_i].holders.push_back({access_i, owner_i});
}

bool PLXRecordLocks::IsFree(Entry const& entry_i, PLXRecordAccess access_i, void const* owner_i) const {
  bool isFree = !entry_i.isAsking;
  for (Holder const& holder : entry_i.holders) {
    if (!IsInTheWay(holder, access_i)) continue;
    if (holder.owner == owner_i) {
      throw PLXRecordError(PLXRecordError::Kind::kInUse, "This page itself has the database open.");
    }
    isFree = false;
  }
  return isFree;
}

bool PLXRecordLocks::AskServers(std::string const& name_i, PLXRecordAccess access_i,
                                Clock::time_point deadline_i, std::unique_lock<std::mutex>& lock_io) {
  myEntries[name_i].isAsking = true;
  lock_io.unlock();
  bool isTaken = false;
  std::exception_ptr problem;
  try {
    for (;;) {
      {
        std::lock_guard const asking(myServersMutex);
        isTaken = myServers->TryTake(KeyOf(name_i), access_i);
      }
      if (isTaken || Clock::now() >= deadline_i) break;
      std::this_thread::sleep_for(kAskedEvery);
    }
  } catch (PLXSQLError const& error) {
    problem = std::make_exception_ptr(PLXRecordError(error));
  }
  lock_io.lock();
  myEntries[name_i].isAsking = false;
  if (!isTaken) Forget(name_i);
  myReleased.notify_all();
  if (problem) std::rethrow_exception(problem);
  return isTaken;
}

void PLXRecordLocks::Release(std::string const& name_i, PLXRecordAccess access_i, void const* owner_i) {
  std::lock_guard const lock(myMutex);
  std::vector<Holder>& holders = myEntries[name_i].holders;
  auto const found = std::find_if(holders.begin(), holders.end(), [&](Holder const& holder) {
    return holder.access == access_i && holder.owner == owner_i;
  });
  if (found == holders.end()) return;
  holders.erase(found);
  if (holders.empty()) {
    try {
      std::lock_guard const asking(myServersMutex);
      myServers->Release(KeyOf(name_i), access_i);
    } catch (PLXSQLError const&) {  // it ends with the file or the connection
    }
    Forget(name_i);
  }
  myReleased.notify_all();
}

void PLXRecordLocks::Forget(std::string const& name_i) {
  auto const found = myEntries.find(name_i);
  if (found != myEntries.end() && found->second.holders.empty() && !found->second.isAsking)
    myEntries.erase(found);
}
