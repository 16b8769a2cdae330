#include "PLXPagePool.h"

#include <algorithm>
#include <system_error>

namespace {

// Rounded up, so that one is all of one.
constexpr unsigned ThreeQuarters(unsigned count_i) { return count_i - count_i / 4; }

}  // namespace

PLXPagePool::PLXPagePool(unsigned threads_i, unsigned waiting_i, unsigned overdue_i, Post post_i)
    : myThreadCount(threads_i),
      myWaitingMost(waiting_i),
      myOverdueMost(overdue_i),
      myPost(std::move(post_i)) {}

PLXPagePool::~PLXPagePool() { End(); }

// How many requests may run: overdue ones take threads away only where they are too many.
unsigned PLXPagePool::Room() const {
  unsigned const overdue = myOverdueCount;
  unsigned const lost = overdue > myOverdueMost ? overdue - myOverdueMost : 0;
  return myThreadCount - std::min(lost, myThreadCount);
}

bool PLXPagePool::MayRun(Place const& place_i) const {
  return myRunningCount < Room() && place_i.running < ThreeQuarters(myThreadCount);
}

bool PLXPagePool::Add(std::shared_ptr<PLXPageJob> const& job_i, bool neverQueued_i) {
  Place& place = myPlaces[job_i->place];
  bool isAdded = false;
  if (MayRun(place)) {
    isAdded = Run(job_i);
  } else if (!neverQueued_i && myWaiting.size() < myWaitingMost &&
             place.running + place.waiting < ThreeQuarters(myThreadCount + myWaitingMost)) {
    myWaiting.push_back(job_i);
    ++myWaitingCount;
    ++place.waiting;
    isAdded = true;
  }
  Forget(job_i->place);
  return isAdded;
}

bool PLXPagePool::IsTired(std::string const& place_i) const {
  auto const found = myPlaces.find(place_i);
  return found != myPlaces.end() && found->second.overdue >= std::max(1u, myOverdueMost / 4);
}

bool PLXPagePool::GiveUp(std::shared_ptr<PLXPageJob> const& job_i) {
  job_i->ended = {};
  Place& place = myPlaces[job_i->place];
  if (job_i->stage == PLXPageJob::Stage::kWaiting) {
    myWaiting.remove(job_i);
    --myWaitingCount;
    --place.waiting;
    Forget(job_i->place);
    job_i->stage = PLXPageJob::Stage::kDone;
    return true;
  }
  job_i->stage = PLXPageJob::Stage::kOverdue;
  ++place.overdue;
  --place.running;
  ++myOverdueCount;
  --myRunningCount;
  RunWaiting();
  return false;
}

void PLXPagePool::Forget(std::string const& place_i) {
  auto const found = myPlaces.find(place_i);
  if (found->second.IsEmpty()) myPlaces.erase(found);
}

PLXPagePool::Status PLXPagePool::GetStatus() const {
  std::lock_guard const lock(myMutex);
  return {myRunningCount, myWaitingCount, myOverdueCount, static_cast<unsigned>(myIdleCount)};
}

bool PLXPagePool::IsStuck() const { return myRunningCount + myOverdueCount > 0; }

bool PLXPagePool::End() {
  if (IsStuck()) return false;
  {
    std::lock_guard const lock(myMutex);
    myIsEnding = true;
  }
  myChanged.notify_all();
  for (std::thread& thread : myThreads) thread.join();
  myThreads.clear();
  return true;
}

// False when the system has no thread to give and there is none yet that could take the job later.
bool PLXPagePool::Run(std::shared_ptr<PLXPageJob> const& job_i) {
  std::unique_lock lock(myMutex);
  myReady.push_back(job_i);
  // One that has just ended its work is about to be idle: there never are more than could be at work.
  if (myIdleCount < myReady.size() && myThreads.size() < std::size_t{myThreadCount} + myOverdueMost) {
    try {
      myThreads.emplace_back([this] { Work(); });
    } catch (std::system_error const&) {
      if (myThreads.empty()) {
        myReady.pop_back();
        return false;
      }
    }
  }
  lock.unlock();
  job_i->stage = PLXPageJob::Stage::kRunning;
  ++myRunningCount;
  ++myPlaces[job_i->place].running;
  myChanged.notify_one();
  return true;
}

// The longest waiting first, but for those whose place has all it may.
void PLXPagePool::RunWaiting() {
  for (auto job = myWaiting.begin(); job != myWaiting.end() && myRunningCount < Room();) {
    Place& place = myPlaces[(*job)->place];
    if (!MayRun(place)) {
      ++job;
      continue;
    }
    if (!Run(*job)) return;
    job = myWaiting.erase(job);
    --myWaitingCount;
    --place.waiting;
  }
}

void PLXPagePool::HasRun(std::shared_ptr<PLXPageJob> const& job_i) {
  Place& place = myPlaces[job_i->place];
  if (job_i->stage == PLXPageJob::Stage::kOverdue) {
    --place.overdue;
    --myOverdueCount;
  } else {
    --place.running;
    --myRunningCount;
  }
  Forget(job_i->place);
  job_i->stage = PLXPageJob::Stage::kDone;
  if (job_i->ended) job_i->ended();
  RunWaiting();
}

void PLXPagePool::Work() {
  std::unique_lock lock(myMutex);
  while (true) {
    ++myIdleCount;
    myChanged.wait(lock, [this] { return myIsEnding || !myReady.empty(); });
    --myIdleCount;
    if (myReady.empty()) return;
    std::shared_ptr<PLXPageJob> const job = std::move(myReady.front());
    myReady.pop_front();
    lock.unlock();
    job->run();
    myPost([this, job] { HasRun(job); });
    lock.lock();
  }
}
