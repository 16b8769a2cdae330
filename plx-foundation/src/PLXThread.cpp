#include "PLXThread.h"

#include <ctime>
#include <dlfcn.h>
#include <pthread.h>

#include "PLXAssert.h"

// A library may be unmapped only when no thread has an instruction of it left to execute, not even the return
// from its last function. A count alone cannot say that; joining can. So threads are joinable, and each that
// ends joins the one that ended before it and leaves itself to the next: at most one ended thread is kept,
// and whoever joins that one has joined all.

namespace {

char const ourSourceFile[] = "src/PLXThread.cpp";

constexpr long kNanosecondsPerMillisecond = 1'000'000;
constexpr long kNanosecondsPerSecond = 1'000'000'000;
constexpr PLXUInt32 kMillisecondsPerSecond = 1000;

// None of these needs a constructor or has a destructor: they work at any moment of the process's life.
pthread_mutex_t ourCriticalSection = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;
pthread_mutex_t ourRegistryLock = PTHREAD_MUTEX_INITIALIZER;
pthread_cond_t ourLastOneEnded = PTHREAD_COND_INITIALIZER;
PLXUInt32 ourRunningCount = 0;   // guarded by ourRegistryLock
bool ourHasEndedThread = false;  // guarded by ourRegistryLock
pthread_t ourEndedThread;        // guarded by ourRegistryLock; to be joined

class RegistryLock {
 public:
  RegistryLock() noexcept { pthread_mutex_lock(&ourRegistryLock); }
  RegistryLock(RegistryLock const&) = delete;
  RegistryLock& operator=(RegistryLock const&) = delete;
  ~RegistryLock() { pthread_mutex_unlock(&ourRegistryLock); }
};

void CountOneLess() noexcept {
  if (--ourRunningCount == 0) pthread_cond_broadcast(&ourLastOneEnded);
}

timespec DeadlineAfter(PLXUInt32 milliseconds_i) noexcept {
  timespec deadline{};
  clock_gettime(CLOCK_MONOTONIC, &deadline);
  deadline.tv_sec += milliseconds_i / kMillisecondsPerSecond;
  deadline.tv_nsec += static_cast<long>(milliseconds_i % kMillisecondsPerSecond) * kNanosecondsPerMillisecond;
  if (deadline.tv_nsec >= kNanosecondsPerSecond) {
    deadline.tv_nsec -= kNanosecondsPerSecond;
    ++deadline.tv_sec;
  }
  return deadline;
}

// Opens the library that this code is part of once more, for good. In a program it finds nothing to keep.
void KeepThisCodeLoaded() noexcept {
  Dl_info info;
  if (dladdr(&ourRegistryLock, &info) == 0 || info.dli_fname == nullptr) return;
  static_cast<void>(dlopen(info.dli_fname, RTLD_LAZY | RTLD_NOLOAD | RTLD_NODELETE));
}

}  // namespace

PLXThread::PLXThread(PLXUInt32 /*stackSize_i*/) noexcept {}

bool PLXThread::Start() {
  if (myWasStarted) return true;
  myWasStarted = true;
  {
    RegistryLock const lock;
    ++ourRunningCount;
  }
  pthread_t thread;
  if (pthread_create(&thread, nullptr, Enter, this) == 0) return true;
  myWasStarted = false;
  RegistryLock const lock;
  CountOneLess();
  return false;
}

void* PLXThread::Enter(void* thread_io) {
  auto* const thread = static_cast<PLXThread*>(thread_io);
  try {
    thread->Run();
  } catch (...) {  // there is nobody to tell
  }
  delete thread;

  bool joins = false;
  pthread_t before{};
  {
    RegistryLock const lock;
    joins = ourHasEndedThread;
    before = ourEndedThread;
    ourHasEndedThread = true;
    ourEndedThread = pthread_self();
    CountOneLess();
  }
  if (joins) pthread_join(before, nullptr);
  return nullptr;
}

bool PLXThread::WaitUntilAllEnded(PLXUInt32 milliseconds_i) {
  timespec const deadline = DeadlineAfter(milliseconds_i);
  bool haveAllEnded = false;
  bool joins = false;
  pthread_t last{};
  {
    RegistryLock const lock;
    int error = 0;
    while (ourRunningCount > 0 && error == 0) {
      error = pthread_cond_clockwait(&ourLastOneEnded, &ourRegistryLock, CLOCK_MONOTONIC, &deadline);
    }
    haveAllEnded = ourRunningCount == 0;
    joins = haveAllEnded && ourHasEndedThread;
    last = ourEndedThread;
    if (joins) ourHasEndedThread = false;
  }
  if (joins) pthread_join(last, nullptr);
  if (!haveAllEnded) KeepThisCodeLoaded();
  return haveAllEnded;
}

void PLXThread::EnterCriticalSection() noexcept { pthread_mutex_lock(&ourCriticalSection); }

void PLXThread::ExitCriticalSection() noexcept {
  int const error = pthread_mutex_unlock(&ourCriticalSection);
  PLX_ASSERT_STATE(error == 0);
}
