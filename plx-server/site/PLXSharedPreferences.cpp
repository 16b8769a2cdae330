#include "PLXSharedPreferences.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <future>
#include <mutex>
#include <thread>
#include <utility>

#include "PLXLog.h"

// One thread has the connection and does everything that is done on it, so that a connection which hangs
// keeps nobody but that thread. Readers and writers wait for it, with patience.

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kFresh(1);           // how long what was read counts as current
constexpr std::chrono::seconds kReadPatience(2);    // for the version, before readers go on without
constexpr std::chrono::seconds kNowPatience(5);     // of those who want to see or change what is there now
constexpr std::chrono::seconds kWorkPatience(10);   // for a change
constexpr std::chrono::seconds kFirstPatience(30);  // for the first look, with the connection to be made
constexpr std::chrono::seconds kEndPatience(12);    // for what still runs when the server stops
constexpr char kSilent[] = "The data source does not answer.";

}  // namespace

struct PLXSharedPreferences::State {
  State(Maker maker_i, Install install_i) : maker(std::move(maker_i)), install(std::move(install_i)) {}

  // On the thread alone.
  void Work();
  bool ReadFirst(Rows const& first_i);
  void ReadIfChanged();
  void Look(std::unique_lock<std::mutex>& lock_io);
  bool IsLeft();  // nobody may be called any more

  // On any other.
  // Throws what the work throws, or that it takes too long.
  void Do(std::chrono::seconds patience_i, std::function<void()> work_i);
  bool IsUp();
  // Waits for what the source says, in answer to a question from before or from now on.
  void Ask(std::unique_lock<std::mutex>& lock_io, bool isFromNow_i);

  bool IsFresh() const { return Clock::now().time_since_epoch().count() < freshUntil; }
  void CountAsFresh(Clock::time_point since_i) { freshUntil = (since_i + kFresh).time_since_epoch().count(); }
  void CountAsDown(std::string const& problem_i);

  // Does `work_i` on the connection, which is made when there is none, and a second time on a new one when
  // it was lost: everything that is done here may be done twice.
  template <typename Work>
  auto OnConnection(Work const& work_i) {
    for (bool isNew = connection == nullptr;; isNew = true) {
      try {
        if (!connection) {
          connection = maker();
          PLXPreferenceTable::Prepare(*connection);
        }
        return work_i(*connection);
      } catch (PLXSQLError const& error) {
        connection.reset();  // one that failed strangely may be good for nothing more
        if (error.GetKind() != PLXSQLError::Kind::kLost || isNew) throw;
      }
    }
  }

  Maker const maker;
  Install const install;
  std::unique_ptr<PLXSQLConnection> connection;  // this and the next are the thread's
  std::int64_t version = -1;                     // of what was handed over

  std::mutex mutex;  // guards all below
  std::condition_variable changed;
  std::deque<std::packaged_task<void()>> tasks;
  bool isWanted = false;  // a look is
  bool isLooking = false;
  bool isDown = false;  // nobody waits for the source
  bool isOver = false;
  bool hasEnded = false;
  std::uint64_t looks = 0;                // that have come to an end
  std::atomic<Clock::rep> freshUntil{0};  // read without the mutex
  std::thread thread;
};

// ---- On the thread

void PLXSharedPreferences::State::Work() {
  std::unique_lock lock(mutex);
  for (;;) {
    changed.wait(lock, [this] { return isWanted || isOver || !tasks.empty(); });
    if (isOver) break;
    if (tasks.empty()) {
      Look(lock);
      continue;
    }
    std::packaged_task<void()> task = std::move(tasks.front());
    tasks.pop_front();
    lock.unlock();
    task();
    lock.lock();
  }
  tasks.clear();
  hasEnded = true;
  changed.notify_all();
}

void PLXSharedPreferences::State::Look(std::unique_lock<std::mutex>& lock_io) {
  isWanted = false;
  isLooking = true;
  lock_io.unlock();
  auto const start = Clock::now();
  std::string problem;
  try {
    ReadIfChanged();
  } catch (std::exception const& error) {
    problem = error.what();
  }
  lock_io.lock();
  if (!problem.empty()) {
    CountAsDown(problem);
  } else {
    if (isDown) PLXLog::Note("The shared preferences can be read again.");
    isDown = false;
    CountAsFresh(start);
  }
  isLooking = false;
  ++looks;
  changed.notify_all();
}

bool PLXSharedPreferences::State::IsLeft() {
  std::lock_guard const lock(mutex);
  return isOver;
}

bool PLXSharedPreferences::State::ReadFirst(Rows const& first_i) {
  bool isAdopted = false;
  auto const start = Clock::now();
  Rows rows;
  std::int64_t const now = OnConnection([&](PLXSQLConnection& connection_io) {
    if (!first_i.empty() && PLXPreferenceTable::Version(connection_io) == 0) {
      isAdopted = PLXPreferenceTable::Adopt(connection_io, first_i) || isAdopted;
    }
    return PLXPreferenceTable::Read(connection_io, rows);
  });
  if (IsLeft()) return false;
  install(rows);
  version = now;
  CountAsFresh(start);
  return isAdopted;
}

void PLXSharedPreferences::State::ReadIfChanged() {
  Rows rows;
  std::int64_t const now = OnConnection([&](PLXSQLConnection& connection_io) {
    std::int64_t const current = PLXPreferenceTable::Version(connection_io);
    return current == version ? current : PLXPreferenceTable::Read(connection_io, rows);
  });
  if (now == version || IsLeft()) return;
  install(rows);
  version = now;
}

// ---- On any other

void PLXSharedPreferences::State::CountAsDown(std::string const& problem_i) {
  if (!isDown) {
    PLXLog::Error("The shared preferences cannot be read: " + problem_i +
                  " Pages go on with what was known last, and changes are refused.");
  }
  isDown = true;
  CountAsFresh(Clock::now());
}

// Work that is given up may still be done later: nobody was told that it was.
void PLXSharedPreferences::State::Do(std::chrono::seconds patience_i, std::function<void()> work_i) {
  std::packaged_task<void()> task(std::move(work_i));
  std::future<void> result = task.get_future();
  {
    std::lock_guard const lock(mutex);
    tasks.push_back(std::move(task));
  }
  changed.notify_all();
  if (result.wait_for(patience_i) != std::future_status::ready) {
    std::lock_guard const lock(mutex);
    CountAsDown(kSilent);
    throw PLXSQLError(PLXSQLError::Kind::kLost, kSilent);
  }
  result.get();
}

// A look that has begun may have missed what was committed since.
void PLXSharedPreferences::State::Ask(std::unique_lock<std::mutex>& lock_io, bool isFromNow_i) {
  std::uint64_t const enough = looks + (isLooking && isFromNow_i ? 2 : 1);
  isWanted = isWanted || !isLooking || isFromNow_i;
  changed.notify_all();
  auto const patience = isFromNow_i ? kNowPatience : kReadPatience;
  if (!changed.wait_for(lock_io, patience, [&] { return looks >= enough; })) CountAsDown(kSilent);
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

bool PLXSharedPreferences::Load(Rows first_i) {
  auto const isAdopted = std::make_shared<bool>(false);
  try {
    myState->Do(kFirstPatience, [state = myState.get(), first = std::move(first_i), isAdopted] {
      *isAdopted = state->ReadFirst(first);
    });
  } catch (PLXSQLError const&) {
    std::lock_guard const lock(myState->mutex);
    myState->isDown = true;
    myState->CountAsFresh(Clock::now());
    throw;
  }
  return *isAdopted;
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
                                std::function<void()> apply_i) {
  if (!myState->IsUp()) throw PLXSQLError(PLXSQLError::Kind::kLost, kSilent);
  myState->Do(kWorkPatience, [state = myState.get(), change_i, row = row_i, apply = std::move(apply_i)] {
    std::int64_t const version =
        state->OnConnection([&](PLXSQLConnection& connection_io) { return change_i(connection_io, row); });
    if (state->IsLeft()) return;
    // Where others have changed something, too, the next look reads it all.
    if (version == state->version + 1) state->version = version;
    apply();
  });
}

void PLXSharedPreferences::Set(PLXPreferenceTable::Row const& row_i, std::function<void()> apply_i) {
  Make(PLXPreferenceTable::Set, row_i, std::move(apply_i));
}

void PLXSharedPreferences::Remove(PLXPreferenceTable::Row const& row_i, std::function<void()> apply_i) {
  Make(PLXPreferenceTable::Remove, row_i, std::move(apply_i));
}
