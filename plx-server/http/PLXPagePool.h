#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

// One request on its way through a PLXPagePool.
struct PLXPageJob {
  enum class Stage { kWaiting, kRunning, kOverdue, kDone };

  std::string place;            // whose it is: of one place only some may be overdue
  std::function<void()> run;    // on a thread of the pool; throws nothing
  std::function<void()> ended;  // on the I/O thread, when `run` has returned and nobody gave it up
  Stage stage = Stage::kWaiting;
};

// The threads of one kind of request, and the requests that wait for one.
//
// A page may hang on a peer that says nothing, for ever. So whoever waits for a page gives it up after a
// while. Its thread is then lost until the page ends by itself; another one takes its place, as long as there
// are not too many such. A single page whose peer is silent leaves the others their threads: at most a
// quarter of the overdue are of one place, three quarters of those that run, and of all that run and wait.
//
// Threads are made when they are needed first and stay. Everything but Status and what a job does belongs to
// the I/O thread.
class PLXPagePool {
 public:
  struct Status {
    unsigned running = 0, waiting = 0, overdue = 0;
    unsigned idle = 0;  // threads that were made and have nothing to do
  };
  // Has a function called on the I/O thread. Any thread.
  using Post = std::function<void(std::function<void()>)>;

  // At most `threads_i` requests run, `waiting_i` wait, and `overdue_i` hold threads on top of those.
  PLXPagePool(unsigned threads_i, unsigned waiting_i, unsigned overdue_i, Post post_i);
  // Ended, or with threads that go on for ever: then it must not be destroyed.
  ~PLXPagePool();
  PLXPagePool(PLXPagePool const&) = delete;
  PLXPagePool& operator=(PLXPagePool const&) = delete;

  // False when there is no room, for the place or for any. What must not wait (`neverQueued_i`) needs a
  // thread at once.
  bool Add(std::shared_ptr<PLXPageJob> const& job_i, bool neverQueued_i);
  // Whether a place has lost as many threads as it may.
  bool IsTired(std::string const& place_i) const;
  // Nobody waits for the job any more. True when it had not begun: then it never will. Else it is overdue.
  bool GiveUp(std::shared_ptr<PLXPageJob> const& job_i);
  Status GetStatus() const;  // any thread
  bool IsStuck() const;      // whether something runs; any thread
  // Lets the threads go, when nothing runs; what still waits does not begin any more. False when something
  // runs.
  bool End();

 private:
  struct Place {
    unsigned running = 0, waiting = 0, overdue = 0;
    bool IsEmpty() const { return running + waiting + overdue == 0; }
  };

  unsigned Room() const;
  bool MayRun(Place const& place_i) const;
  void Forget(std::string const& place_i);
  bool Run(std::shared_ptr<PLXPageJob> const& job_i);
  void RunWaiting();
  void HasRun(std::shared_ptr<PLXPageJob> const& job_i);
  void Work();

  unsigned const myThreadCount;
  unsigned const myWaitingMost;
  unsigned const myOverdueMost;
  Post const myPost;
  std::list<std::shared_ptr<PLXPageJob>> myWaiting;
  std::map<std::string, Place> myPlaces;  // those with anything in them
  std::atomic<unsigned> myRunningCount = 0, myWaitingCount = 0, myOverdueCount = 0;

  mutable std::mutex myMutex;  // guards what follows
  std::condition_variable myChanged;
  std::deque<std::shared_ptr<PLXPageJob>> myReady;
  std::size_t myIdleCount = 0;
  bool myIsEnding = false;
  std::vector<std::thread> myThreads;
};
