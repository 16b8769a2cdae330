#include "PLXSharedPreferences.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <utility>

#include "PLXLog.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kFresh(1);            // how long what was read counts as current
constexpr std::chrono::seconds kReadPatience(2);     // for the version, before readers go on without
constexpr std::chrono::seconds kTurnPatience(15);    // for whoever has the connection
constexpr std::chrono::seconds kEndPatience(12);     // for a connection that is being made

}  // namespace

struct PLXSharedPreferences::State {
  State(Maker maker_i, Install install_i) : maker(std::move(maker_i)), install(std::move(install_i)) {}

  bool Load(Rows const& first_i);
  void ReadIfChanged();
  void Work();                                      // the thread
  bool IsUp();                                      // for who wants to change something
  // Waits for what the source says, in answer to a question from before or from now on.
  void Ask(std::unique_lock<std::mutex>& lock_io, bool isFromNow_i);
  bool IsFresh() const { return Clock::now().time_since_epoch().count() < freshUntil; }
  void CountAsFresh(Clock::time_point since_i) { freshUntil = (since_i + kFresh).time_since_epoch().count(); }

  // Does `work_i` on the connection, which is made when there is none, and a second time on a new one when
  // it was lost: everything that is done here may be done twice. Requires: the turn.
  template <typename Work>
  auto OnConnection(Work const& work_i) {
    for (bool isNew = connection == nullptr;; isNew = true) {
      try {
        if (!connection) connection = maker();
        if (!std::exchange(isPrepared, true)) PLXPreferenceTable::Prepare(*connection);
        return work_i(*connection);
      } catch (PLXSQLError const& error) {
        // One that failed strangely may be good for nothing more.
        connection.reset();
        isPrepared = false;
        if (error.GetKind() != PLXSQLError::Kind::kLost || isNew) throw;
      }
    }
  }

  // Whose turn it is has the connection for itself.
  class Turn {
   public:
    explicit Turn(State& state_io) : myState(state_io) {
      std::unique_lock lock(myState.mutex);
      if (!myState.changed.wait_for(lock, kTurnPatience, [this] { return !myState.isTaken; })) {
        throw PLXSQLError(PLXSQLError::Kind::kLost, "The data source does not answer.");
      }
      myState.isTaken = true;
    }
    ~Turn() {
      std::lock_guard const lock(myState.mutex);
      myState.isTaken = false;
      myState.changed.notify_all();
    }
    Turn(Turn const&) = delete;
    Turn& operator=(Turn const&) = delete;

   private:
    State& myState;
  };

  Maker const maker;
  Install const install;

  std::unique_ptr<PLXSQLConnection> connection;  // this and the next two are for whose turn it is
  bool isPrepared = false;
  std::int64_t version = -1;  // of what was handed over

  std::mutex mutex;
  std::condition_variable changed;
  bool isTaken = false;    // the turn is; guarded by mutex, like all below
  bool isWanted = false;
  bool isLooking = false;  // the thread is
  bool isDown = false;     // nobody waits for the source
  bool isOver = false;
  bool hasEnded = false;
  std::uint64_t looks = 0;  // that have come to an end
  std::atomic<Clock::rep> freshUntil{0};
  std::thread thread;
};

bool PLXSharedPreferences::State::Load(Rows const& first_i) {
  Turn const turn(*this);
  bool isAdopted = false;
  auto const start = Clock::now();
  Rows rows;
  version = OnConnection([&](PLXSQLConnection& connection_io) {
    isAdopted = (!first_i.empty() && PLXPreferenceTable::Version(connection_io) == 0 &&
                 PLXPreferenceTable::Adopt(connection_io, first_i)) ||
                isAdopted;
    return PLXPreferenceTable::Read(connection_io, rows);
  });
  install(rows);
  CountAsFresh(start);
  return isAdopted;
}

void PLXSharedPreferences::State::ReadIfChanged() {
  Turn const turn(*this);
  Rows rows;
  std::int64_t const now = OnConnection([&](PLXSQLConnection& connection_io) {
    std::int64_t const current = PLXPreferenceTable::Version(connection_io);
    return current == version ? current : PLXPreferenceTable::Read(connection_io, rows);
  });
  if (now == version) return;
  {
    std::lock_guard const leaving(mutex);
    if (isOver) return;
  }
  install(rows);
  version = now;
}

void PLXSharedPreferences::State::Work() {
  std::unique_lock lock(mutex);
  for (;;) {
    changed.wait(lock, [this] { return isWanted || isOver; });
    if (isOver) break;
    isWanted = false;
    isLooking = true;
    lock.unlock();
    auto start = Clock::now();
    std::string problem;
    try {
      ReadIfChanged();
    } catch (std::exception const& error) {
      problem = error.what();
      start = Clock::now();
    }
    lock.lock();
    if (!problem.empty() && !isDown) {
      PLXLog::Error("The shared preferences cannot be read: " + problem +
                    " Pages go on with what was known last, and changes are refused.");
    } else if (problem.empty() && isDown) {
      PLXLog::Note("The shared preferences can be read again.");
    }
    isDown = !problem.empty();
    isLooking = false;
    ++looks;
    CountAsFresh(start);
    changed.notify_all();
  }
  hasEnded = true;
  changed.notify_all();
}

// A look that has begun may have missed what was committed since.
void PLXSharedPreferences::State::Ask(std::unique_lock<std::mutex>& lock_io, bool isFromNow_i) {
  std::uint64_t const enough = looks + (isLooking && isFromNow_i ? 2 : 1);
  isWanted = isWanted || !isLooking || isFromNow_i;
  changed.notify_all();
  if (changed.wait_for(lock_io, kReadPatience, [&] { return looks >= enough; })) return;
  if (!isDown) {
    PLXLog::Error(
        "The data source of the shared preferences does not answer. Pages go on with what was known last, "
        "and changes are refused.");
  }
  isDown = true;
  CountAsFresh(Clock::now());
}

bool PLXSharedPreferences::State::IsUp() {
  std::unique_lock lock(mutex);
  if (isDown && !IsFresh()) Ask(lock, true);
  return !isDown;
}

PLXSharedPreferences::PLXSharedPreferences(Maker maker_i, Install install_i)
    : myState(std::make_shared<State>(std::move(maker_i), std::move(install_i))) {
  myState->thread = std::thread([state = myState] { state->Work(); });
}

PLXSharedPreferences::~PLXSharedPreferences() {
  std::unique_lock lock(myState->mutex);
  myState->isOver = true;
  myState->changed.notify_all();
  bool const hasEnded = myState->changed.wait_for(lock, kEndPatience, [this] { return myState->hasEnded; });
  lock.unlock();
  if (hasEnded) {
    myState->thread.join();
  } else {
    myState->thread.detach();
  }
}

bool PLXSharedPreferences::Load(Rows const& first_i) {
  try {
    return myState->Load(first_i);
  } catch (PLXSQLError const&) {
    std::lock_guard const lock(myState->mutex);
    myState->isDown = true;
    myState->CountAsFresh(Clock::now());
    throw;
  }
}

void PLXSharedPreferences::Refresh() {
  if (myState->IsFresh()) return;
  std::unique_lock lock(myState->mutex);
  if (myState->IsFresh()) return;
  if (!myState->isDown) return myState->Ask(lock, false);
  myState->CountAsFresh(Clock::now());  // one asks, and nobody waits
  myState->isWanted = true;
  myState->changed.notify_all();
}

void PLXSharedPreferences::RefreshNow() {
  std::unique_lock lock(myState->mutex);
  if (!myState->isDown || !myState->IsFresh()) myState->Ask(lock, true);
}

void PLXSharedPreferences::Make(Change* change_i, PLXPreferenceTable::Row const& row_i,
                                std::function<void()> const& apply_i) {
  if (!myState->IsUp()) {
    throw PLXSQLError(PLXSQLError::Kind::kLost, "The data source does not answer.");
  }
  State::Turn const turn(*myState);
  std::int64_t const version = myState->OnConnection(
      [&](PLXSQLConnection& connection_io) { return change_i(connection_io, row_i); });
  // Where others have changed something, too, the next look reads it all.
  if (version == myState->version + 1) myState->version = version;
  apply_i();
}

void PLXSharedPreferences::Set(PLXPreferenceTable::Row const& row_i, std::function<void()> const& apply_i) {
  Make(PLXPreferenceTable::Set, row_i, apply_i);
}

void PLXSharedPreferences::Remove(PLXPreferenceTable::Row const& row_i,
                                  std::function<void()> const& apply_i) {
  Make(PLXPreferenceTable::Remove, row_i, apply_i);
}
