#include <atomic>
#include <functional>
#include <gtest/gtest.h>
#include <semaphore>
#include <set>
#include <stdexcept>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "PLXRandomNumber.h"
#include "PLXString.h"
#include "PLXThread.h"

namespace {

constexpr PLXUInt32 kLongEnough = 60'000;  // milliseconds

std::atomic<int> ourDeletedCount = 0;

class Worker : public PLXThread {
 public:
  explicit Worker(std::function<void(Worker&)> work_i) : myWork(std::move(work_i)) {}
  ~Worker() override { ++ourDeletedCount; }

 private:
  void Run() override { myWork(*this); }
  std::function<void(Worker&)> myWork;
};

TEST(PLXThread, RunsOnceAndDeletesItself) {
  ourDeletedCount = 0;
  std::atomic<int> runs = 0;
  for (int index = 0; index < 200; ++index) {
    auto* const worker = new Worker([&runs, index](Worker& self_io) {
      EXPECT_TRUE(self_io.Start()) << "once more is nothing";
      ++runs;
      if (index % 2 == 0) throw std::runtime_error("nobody hears it");
    });
    ASSERT_TRUE(worker->Start());
  }
  EXPECT_TRUE(PLXThread::WaitUntilAllEnded(kLongEnough));
  EXPECT_EQ(runs, 200);
  EXPECT_EQ(ourDeletedCount, 200);
  EXPECT_TRUE(PLXThread::WaitUntilAllEnded(0)) << "there is nothing to wait for";
}

TEST(PLXThread, IsWaitedForWithinBounds) {
  std::binary_semaphore mayEnd(0);
  std::atomic<bool> ended = false;
  ASSERT_TRUE((new Worker([&](Worker&) {
                mayEnd.acquire();
                // Its own child counts too, even when this one is over first.
                (new Worker([&ended](Worker&) { ended = true; }))->Start();
              }))->Start());
  EXPECT_FALSE(PLXThread::WaitUntilAllEnded(0));
  EXPECT_FALSE(PLXThread::WaitUntilAllEnded(20));
  mayEnd.release();
  EXPECT_TRUE(PLXThread::WaitUntilAllEnded(kLongEnough));
  EXPECT_TRUE(ended);
}

TEST(PLXThread, TellsWhenItCannotBeStarted) {
  if (geteuid() == 0) {
    // The superuser may have any number of threads: a child gives up that right first.
    pid_t const child = fork();
    if (child == 0) {
      rlimit const none{1, 1};
      bool refused = setrlimit(RLIMIT_NPROC, &none) == 0 && setuid(65534) == 0;
      Worker worker([](Worker&) {});
      refused = refused && !worker.Start() && PLXThread::WaitUntilAllEnded(0);
      _exit(refused ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
  }
}

TEST(PLXThread, EntersTheCriticalSectionAloneAndAgain) {
  int count = 0;  // guarded by the critical section
  for (int index = 0; index < 4; ++index) {
    ASSERT_TRUE((new Worker([&count](Worker&) {
                  for (int round = 0; round < 5000; ++round) {
                    PLXThread::EnterCriticalSection();
                    PLXThread::EnterCriticalSection();
                    ++count;
                    PLXThread::ExitCriticalSection();
                    PLXThread::ExitCriticalSection();
                  }
                }))->Start());
  }
  EXPECT_TRUE(PLXThread::WaitUntilAllEnded(kLongEnough));
  EXPECT_EQ(count, 20000);
}

TEST(PLXRandomNumber, NeverRepeatsItselfOnAnyThread) {
  PLXRandomNumber const generator;
  std::vector<std::vector<PLXUInt32>> drawn(4);
  std::vector<std::thread> threads;
  for (std::vector<PLXUInt32>& numbers : drawn) {
    threads.emplace_back([&] {
      for (int index = 0; index < 2000; ++index) numbers.push_back(generator.GetNext());
    });
  }
  for (std::thread& thread : threads) thread.join();
  std::set<PLXUInt32> distinct;
  PLXUInt32 set = 0;
  PLXUInt32 clear = 0;
  for (std::vector<PLXUInt32> const& numbers : drawn) {
    distinct.insert(numbers.begin(), numbers.end());
    for (PLXUInt32 const number : numbers) set |= number, clear |= ~number;
  }
  EXPECT_GT(distinct.size(), 7990u);  // chance alone repeats one in a hundred runs
  EXPECT_EQ(set & clear, 0xFFFFFFFF) << "every bit takes both values";
}

}  // namespace
