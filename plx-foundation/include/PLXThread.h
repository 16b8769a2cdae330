#pragma once

#include "PLXObject.h"

// Work that runs on a thread of its own and that nobody waits for: derive, implement Run, create with new,
// Start.
//
// A thread that was started owns its object and deletes it when Run is over. Until then whoever made it owns
// it. What Run works with belongs to the object alone: strings given to it are made unique, since their
// counts know no other thread. Code that can be unloaded calls WaitUntilAllEnded before it is.
class PLXThread : public PLXObject {
 public:
  // `stackSize_i` has no effect: a stack takes only the memory that it uses.
  explicit PLXThread(PLXUInt32 stackSize_i = 0) noexcept;
  PLXThread(PLXThread const&) = delete;
  PLXThread& operator=(PLXThread const&) = delete;
  virtual ~PLXThread() = default;

  // Runs Run on a new thread; further calls, which only Run itself can still make, do nothing and answer
  // true. On true the object is the thread's and may be gone already. False when the system has no thread to
  // give: the object stays the caller's, who deletes it or tries again.
  bool Start();
  // For whoever wants to know that a thread got to its work; does nothing.
  virtual void Ready() {}

  // One recursive lock for the whole process, or rather for everything that shares this code.
  static void EnterCriticalSection() noexcept;
  // Requires: entered on this thread.
  static void ExitCriticalSection() noexcept;

  // Waits until every thread that was started has deleted its object and left this code for good, so that the
  // library around it may be closed. False when one still runs after `milliseconds_i`; the library then stays
  // loaded however often it is closed, and the thread ends in peace. Not to be called by a thread of this
  // kind, nor while the process's static objects are destroyed.
  static bool WaitUntilAllEnded(PLXUInt32 milliseconds_i);

 protected:
  // The work. An exception that leaves it ends it and is dropped.
  virtual void Run() = 0;

 private:
  static void* Enter(void* thread_io);

  bool myWasStarted = false;
};
