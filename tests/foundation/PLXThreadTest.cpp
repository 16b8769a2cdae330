#include <atomic>
#include <functional>
#include <gtest/gtest.h>
#include <semaphore>
#include <set>
#include <stdexcept>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "PLXRandomNumber.h"
#include "PLXThread.h"

namespace {

constexpr PLXUInt32 kLongEnough = 60'000;  // milliseconds

std::atomic<int> ourDeletedCount = 0;

class Worker : public PLXThread {
 public:
  explicit Worker(std::function<void()> work_i) : myWork(std::move(work_i)) {}
  ~Worker() override { ++ourDeletedCount; }

 private:
  void Run() override {
    EXPECT_TRUE(Start()) << "once more is nothing";
    myWork();
  }
  std::function<void()> myWork;
};

bool StartWorker(std::function<void()> work_i) { return (new Worker(std::move(work_i)))->Start(); }

TEST(PLXThread, RunsOnceAndDeletesItself) {
  ourDeletedCount = 0;
  PLXRandomNumber const random;
  std::set<PLXUInt32> numbers;  // guarded by the critical section
  for (int index = 0; index < 200; ++index) {
    ASSERT_TRUE(StartWorker([&] {
      PLXThread::EnterCriticalSection();
      PLXThread::EnterCriticalSection();
      numbers.insert(random.GetNext());
      PLXThread::ExitCriticalSection();
      PLXThread::ExitCriticalSection();
      throw std::runtime_error("nobody hears it");
    }));
  }
  EXPECT_TRUE(PLXThread::WaitUntilAllEnded(kLongEnough));
  EXPECT_EQ(numbers.size(), 200u) << "each run has a number of its own";
  EXPECT_EQ(ourDeletedCount, 200);
}

TEST(PLXThread, IsWaitedForWithinBounds) {
  std::binary_semaphore mayEnd(0);
  std::atomic<bool> ended = false;
  ASSERT_TRUE(StartWorker([&] {
    mayEnd.acquire();
    StartWorker([&ended] { ended = true; });  // is waited for too
  }));
  EXPECT_FALSE(PLXThread::WaitUntilAllEnded(20));
  mayEnd.release();
  EXPECT_TRUE(PLXThread::WaitUntilAllEnded(kLongEnough));
  EXPECT_TRUE(ended);
}

TEST(PLXThread, TellsWhenItCannotBeStarted) {
  pid_t const child = fork();
  ASSERT_NE(child, -1);
  if (child == 0) {
    rlimit const none{1, 1};
    bool const isLimited = setrlimit(RLIMIT_NPROC, &none) == 0 && (geteuid() != 0 || setuid(65534) == 0);
    Worker worker([] {});
    _exit(isLimited && !worker.Start() && PLXThread::WaitUntilAllEnded(0) ? 0 : 1);
  }
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
}

}  // namespace
