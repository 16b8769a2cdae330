#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>

#include "PLXConfiguration.h"
#include "PLXRequest.h"

// A file (or a range of it) to be sent from the I/O thread.
struct PLXFileAnswer {
  PLXResponse response;  // status and headers; body unused
  std::filesystem::path file;
  std::uint64_t offset = 0;
  std::uint64_t length = 0;
};

// Where a request whose header has arrived is to be answered.
struct PLXDisposition {
  enum class Kind { kAnswer, kFile, kPage, kAdministration };
  Kind kind = Kind::kAnswer;
  PLXResponse answer;        // kAnswer: sent at once; a body still to come is not read, the connection closes
  PLXFileAnswer fileAnswer;  // kFile
  // Also answered when it comes while the server stops: the word of a module that is about to be asked to
  // end.
  bool isForModules = false;
  bool neverQueued = false;  // kPage: runs or gets 503 at once (a page that another page of ours waits for)
  std::shared_ptr<void> state;  // kPage, kAdministration: handed back to Answer
};

// Who answers requests.
class PLXRequestHandler {
 public:
  virtual ~PLXRequestHandler() = default;

  // On the I/O thread, with everything but the body in: decides where the request is answered. Must not block
  // for long (a stat or an open of a local file is as much as it may do). May fill in the request's host.
  virtual PLXDisposition Dispose(PLXRequest& request_io) = 0;

  // On a page or administration thread, with the post arguments in, once for each request so disposed. Blocks
  // as long as it needs. What it throws becomes a 500 and a line in the log.
  virtual PLXResponse Answer(PLXRequest& request_io, std::shared_ptr<void> const& state_i) = 0;

  // On the I/O thread, once for every request that was read, also the malformed ones: for the access log and
  // the list of what runs. `status_i` is 0 when the client left before the answer was written.
  virtual void Finished(PLXRequest const& request_i, PLXResponse const& response_i, std::uint64_t bytesSent_i,
                        std::chrono::microseconds took_i) = 0;

  // On the I/O thread: the page did not end in time, the client gets 504, and Answer goes on.
  virtual void GivenUp(PLXRequest const& request_i) = 0;

  // An error answer in the server's own style (400, 408, 413, 431, 500, 503, 504). Any thread.
  virtual PLXResponse ErrorAnswer(int status_i, std::string const& sentence_i) = 0;
};

struct PLXListenerStatus {
  std::uint64_t requests = 0;
  unsigned connections = 0;
  unsigned busyPageThreads = 0;
  unsigned idlePageThreads = 0;
  unsigned waitingPages = 0;
  unsigned overduePages = 0;  // given up, and still on a thread
};

// HTTP/1.0 and 1.1 on one address: one I/O thread with a coroutine per connection, a bounded pool of page
// threads behind it, a small pool of its own for the administration. Slow and idle clients cost no thread.
// What is no clear HTTP (conflicting lengths, bare line feeds, no Host in 1.1, a NUL or line break in a
// decoded path, an escape that is none) is refused with 400; limits as in PLXLimits. The network
// library is seen by PLXListener and PLXConnection alone, the HTTP library by PLXHTTPMessage.
class PLXListener {
 public:
  // Binds at once. Throws std::runtime_error with a sentence when the address is not to be had.
  PLXListener(std::string const& address_i, std::uint16_t port_i, PLXLimits const& limits_i,
              std::vector<std::string> proxies_i, std::filesystem::path temporaryFolder_i,
              PLXRequestHandler& handler_i);
  ~PLXListener();

  std::uint16_t Port() const;  // the one that was bound, also when 0 was asked for

  // Serves until Stop, on this thread, and returns when the last answer is out or the time to stop has
  // passed. SIGTERM and SIGINT stop it (a second one ends at once), SIGHUP calls `reload_i`, on the I/O
  // thread. When the last visitor has left, `leave_i` runs on a thread of its own, once, and is waited for
  // however long it takes; requests that are for modules are served until it is over. The whole process
  // ignores SIGPIPE from then on. False when pages or `leave_i` still run afterwards: they go on using the
  // handler, so the process then ends without destroying it.
  bool Run(std::function<void()> const& reload_i, std::function<void()> const& leave_i = {});
  // Refuses new clients, closes idle ones, lets pages in flight finish. Any thread.
  void Stop();
  PLXListenerStatus Status() const;  // any thread

 private:
  class Implementation;
  std::unique_ptr<Implementation> myImplementation;
};
