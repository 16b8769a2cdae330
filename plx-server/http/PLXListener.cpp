#include "PLXListener.h"

#include <algorithm>
#include <csignal>
#include <map>
#include <optional>
#include <set>
#include <stdexcept>
#include <sys/resource.h>
#include <thread>

#include "PLXAsio.h"
#include "PLXClientAddress.h"
#include "PLXConnection.h"
#include "PLXHTTPMessage.h"
#include "PLXLog.h"
#include "PLXPagePool.h"
#include "PLXRequestBody.h"
#include "PLXStaticFile.h"

// One coroutine per connection runs on the I/O thread (Serve) and reads in the order in which things happen.
// A page runs on a thread of a pool, and the coroutine waits for it here, but not for ever (RunWork). So
// everything but the counts, which are atomic, belongs to the I/O thread and needs no lock.
//
// g++ 12 may destroy a temporary of a co_await expression twice, so no lambda with captures and no
// conditional operator stands inside one.

namespace asio = boost::asio;
using asio::awaitable;
using asio::redirect_error;
using asio::use_awaitable;
using asio::ip::tcp;
using boost::system::error_code;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

namespace {

// How late a deadline may be noticed.
constexpr milliseconds kSweep_Interval{100};
// Files up to this size go out together with their header.
constexpr std::size_t kFile_InOnePiece = 64u << 10;
// How long a client that still sends may take to read its answer.
constexpr milliseconds kClose_Patience{5000};
constexpr milliseconds kClose_ShortPatience{1000};
// Clients beyond the limit that are told so at the same time; more are just closed.
constexpr std::size_t kTurnedAway_AtOnce = 64;
constexpr milliseconds kAccept_BackOff{100};
constexpr unsigned kAdministration_Waiting = 64;
constexpr char kRetryAfter_Seconds[] = "2";

std::atomic<std::uint64_t> ourLastRequestID = 0;

// What a page thread gets and gives back. Holds all it needs: whoever waits for it may give it up.
struct Work {
  PLXRequestHandler& handler;
  PLXRequest request;
  std::unique_ptr<PLXRequestBody> const body;
  std::shared_ptr<void> const state;
  std::size_t const formFields;
  PLXResponse response;

  void Run() noexcept;
};

PLXResponse ErrorAnswer(PLXRequestHandler& handler_i, int status_i, std::string const& sentence_i) {
  PLXResponse response;
  try {
    response = handler_i.ErrorAnswer(status_i, sentence_i);
  } catch (std::exception const& error) {
    PLXLog::Error(std::string("An error answer could not be made: ") + error.what());
    response.body = sentence_i + '\n';
  }
  response.status = status_i;
  if (status_i == 503) response.SetHeader("Retry-After", kRetryAfter_Seconds);
  return response;
}

void Work::Run() noexcept {
  try {
    PLXHTTPProblem const problem = ReadForm(*body, formFields, request);
    if (problem.status) {
      response = ErrorAnswer(handler, problem.status, problem.sentence);
    } else {
      response = handler.Answer(request, state);
    }
    return;
  } catch (std::exception const& error) {
    PLXLog::Error("Answering " + request.path + " failed: " + error.what());
  } catch (...) {
    PLXLog::Error("Answering " + request.path + " failed.");
  }
  response = ErrorAnswer(handler, 500, "The server could not answer this request.");
}

// Each connection may hold a socket and a file, each page some of its module's.
void RaiseFileLimit(PLXLimits const& limits_i) {
  rlim_t const wanted =
      limits_i.connections * 2ul + (limits_i.pageThreads + limits_i.overduePages) * 4ul + 256;
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur >= wanted) return;
  limit.rlim_cur = std::min(wanted, limit.rlim_max);
  ::setrlimit(RLIMIT_NOFILE, &limit);
  if (limit.rlim_cur < wanted) {
    PLXLog::Warning("Only " + std::to_string(limit.rlim_cur) + " files may be open; " +
                    std::to_string(wanted) + " would be enough for " + std::to_string(limits_i.connections) +
                    " connections.");
  }
}

bool HasBody(int status_i) { return status_i != 204 && status_i != 304; }

void LogEnd(std::exception_ptr problem_i) {
  if (!problem_i) return;
  try {
    std::rethrow_exception(problem_i);
  } catch (std::exception const& error) {
    PLXLog::Error(std::string("A connection ended with an error: ") + error.what());
  }
}

}  // namespace

class PLXListener::Implementation {
 public:
  Implementation(std::string const& address_i, std::uint16_t port_i, PLXLimits const& limits_i,
                 std::vector<std::string> const& proxies_i, std::filesystem::path temporaryFolder_i,
                 PLXRequestHandler& handler_i);

  bool Run(std::function<void()> const& reload_i, std::function<void()> const& leave_i);
  void Stop() {
    asio::post(myContext, [this] { BeginStop(); });
  }
  std::uint16_t Port() const { return myPort; }
  PLXListenerStatus Status() const;
  bool HasStuckPages() const {
    return myPages.IsStuck() || myAdministration.IsStuck() || myLeaving == Leaving::kRuns;
  }

 private:
  class Registration;

  PLXPagePool::Post GetPost() {
    return [this](std::function<void()> function_i) { asio::post(myContext, std::move(function_i)); };
  }
  void Bind(std::string const& address_i, std::uint16_t port_i);
  void BeginStop();
  void EndIfDone();
  void BeginToLeave();
  void EndOfLeaving();
  void CloseDoor();
  bool IsOver() const { return myLeaving == Leaving::kIsOver && myConnections.empty(); }
  void Admit(tcp::socket socket_i);
  bool MayEnter(std::string const& address_i);
  std::string const& Date();

  awaitable<void> Accept();
  awaitable<void> Sweep();
  awaitable<void> WatchSignals(std::function<void()> const& reload_i);
  awaitable<void> LimitStop();
  awaitable<void> LimitEnd();
  awaitable<void> Serve(std::unique_ptr<PLXConnection> connection_i);
  awaitable<void> TurnAway(std::unique_ptr<PLXConnection> connection_i);
  awaitable<bool> ServeOne(PLXConnection& connection_i, bool isLate_i);
  awaitable<void> AnswerOnThread(PLXConnection& connection_i, PLXExchange& exchange_i,
                                 PLXDisposition& disposition_i);
  awaitable<PLXResponse> RunWork(PLXExchange& exchange_i, PLXDisposition& disposition_i,
                                 std::shared_ptr<Work> work_i);
  awaitable<void> Refuse(PLXConnection& connection_i, PLXExchange& exchange_i);
  awaitable<void> Write(PLXConnection& connection_i, PLXExchange& exchange_i, PLXResponse response_i);
  awaitable<void> WriteFile(PLXConnection& connection_i, PLXExchange& exchange_i, PLXFileAnswer answer_i);

  PLXDisposition Dispose(PLXRequest& request_io);
  std::string Head(PLXExchange& exchange_io, PLXResponse& response_io, std::uint64_t length_i);
  void Finish(PLXConnection const& connection_i, PLXExchange const& exchange_i, PLXResponse& response_io,
              std::uint64_t bytesSent_i);

  PLXLimits const myLimits;
  std::filesystem::path const myTemporaryFolder;
  PLXRequestHandler& myHandler;
  PLXClientAddress myClientAddress;
  std::set<PLXConnection*> myConnections;                  // all, for the sweep and the stop
  std::map<std::string, unsigned> myConnectionsByAddress;  // those that are served
  std::size_t myTurnedAway = 0;
  // A stop has two halves: the visitors leave, then whatever `leave` waits for.
  enum class Leaving { kNotYet, kRuns, kIsOver };
  bool myIsStopping = false;
  std::atomic<Leaving> myLeaving = Leaving::kNotYet;
  std::function<void()> myLeave;
  std::thread myLeavingThread;
  std::string myDate;
  std::chrono::sys_seconds myDateTime;
  std::atomic<std::uint64_t> myRequests = 0;
  std::atomic<unsigned> myServed = 0;
  PLXPagePool myPages;
  PLXPagePool myAdministration;

  // Last: its end takes the coroutines along, whose registrations use what stands above.
  asio::io_context myContext{1};
  tcp::acceptor myAcceptor{myContext};
  asio::signal_set mySignals{myContext};
  asio::steady_timer mySweepTimer{myContext};
  asio::steady_timer myStopTimer{myContext};
  asio::steady_timer myAcceptTimer{myContext};
  std::uint16_t myPort = 0;
};

// Keeps a connection in the lists as long as its coroutine lives, however that ends.
class PLXListener::Implementation::Registration {
 public:
  Registration(Implementation& owner_i, PLXConnection& connection_i, bool isServed_i)
      : myOwner(owner_i), myConnection(connection_i), myIsServed(isServed_i) {
    myOwner.myConnections.insert(&myConnection);
    if (myOwner.myConnections.size() == 1) myOwner.mySweepTimer.cancel();
    if (myIsServed) {
      ++myOwner.myServed;
      ++myOwner.myConnectionsByAddress[myConnection.PeerAddress()];
    } else {
      ++myOwner.myTurnedAway;
    }
  }
  ~Registration() {
    myOwner.myConnections.erase(&myConnection);
    if (myIsServed) {
      --myOwner.myServed;
      auto const count = myOwner.myConnectionsByAddress.find(myConnection.PeerAddress());
      if (--count->second == 0) myOwner.myConnectionsByAddress.erase(count);
    } else {
      --myOwner.myTurnedAway;
    }
  }
  Registration(Registration const&) = delete;
  Registration& operator=(Registration const&) = delete;

 private:
  Implementation& myOwner;
  PLXConnection& myConnection;
  bool const myIsServed;
};

PLXListener::Implementation::Implementation(std::string const& address_i, std::uint16_t port_i,
                                            PLXLimits const& limits_i,
                                            std::vector<std::string> const& proxies_i,
                                            std::filesystem::path temporaryFolder_i,
                                            PLXRequestHandler& handler_i)
    : myLimits(limits_i),
      myTemporaryFolder(std::move(temporaryFolder_i)),
      myHandler(handler_i),
      myClientAddress(proxies_i),
      myPages(limits_i.pageThreads, limits_i.waitingPages, limits_i.overduePages, GetPost()),
      myAdministration(limits_i.administrationThreads, kAdministration_Waiting,
                       limits_i.administrationThreads, GetPost()) {
  RaiseFileLimit(limits_i);
  Bind(address_i, port_i);
  // From here on the address is known, and whoever knows it may ask for a stop or a reload: Run hears of it.
  for (int signal : {SIGTERM, SIGINT, SIGHUP}) mySignals.add(signal);
}

void PLXListener::Implementation::Bind(std::string const& address_i, std::uint16_t port_i) {
  error_code error;
  tcp::endpoint const endpoint(asio::ip::make_address(address_i, error), port_i);
  if (error) throw std::runtime_error("Cannot listen on \"" + address_i + "\": it is no numeric address.");
  myAcceptor.open(endpoint.protocol(), error);
  if (!error) myAcceptor.set_option(tcp::acceptor::reuse_address(true), error);
  if (!error) myAcceptor.bind(endpoint, error);
  if (!error) myAcceptor.listen(asio::socket_base::max_listen_connections, error);
  if (!error) myPort = myAcceptor.local_endpoint(error).port();
  if (!error) return;
  throw std::runtime_error("Cannot listen on " + address_i + " port " + std::to_string(port_i) + ": " +
                           error.message() + ".");
}

bool PLXListener::Implementation::Run(std::function<void()> const& reload_i,
                                      std::function<void()> const& leave_i) {
  myLeave = leave_i;
  // Sending a file to a client that left would raise it, and no flag of sendfile holds it back.
  std::signal(SIGPIPE, SIG_IGN);
  asio::co_spawn(myContext, WatchSignals(reload_i), LogEnd);
  asio::co_spawn(myContext, Accept(), LogEnd);
  asio::co_spawn(myContext, Sweep(), LogEnd);
  for (bool isDone = false; !isDone;) {
    try {
      myContext.run();
      isDone = true;
    } catch (std::exception const& error) {
      PLXLog::Error(std::string("The listener goes on after an error: ") + error.what());
    }
  }
  mySignals.clear();
  if (myLeavingThread.joinable()) {
    if (myLeaving == Leaving::kRuns) {
      myLeavingThread.detach();
    } else {
      myLeavingThread.join();
    }
  }
  // A page that never ends must not keep the listener.
  bool const arePagesOver = myPages.End();
  bool const isAdministrationOver = myAdministration.End();
  return arePagesOver && isAdministrationOver && !HasStuckPages();
}

PLXListenerStatus PLXListener::Implementation::Status() const {
  PLXPagePool::Status const pages = myPages.GetStatus();
  PLXListenerStatus status;
  status.requests = myRequests;
  status.connections = myServed;
  status.busyPageThreads = pages.running;
  status.idlePageThreads = pages.idle;
  status.waitingPages = pages.waiting;
  status.overduePages = pages.overdue;
  return status;
}

void PLXListener::Implementation::BeginStop() {
  if (myIsStopping) return;
  myIsStopping = true;
  if (!myLeave) CloseDoor();
  for (PLXConnection* connection : myConnections) connection->CloseIfIdle();
  asio::co_spawn(myContext, LimitStop(), LogEnd);
  EndIfDone();
}

// With nothing left to wait for, the context runs dry and Run returns.
void PLXListener::Implementation::EndIfDone() {
  if (!myIsStopping || !myConnections.empty()) return;
  BeginToLeave();
  if (!IsOver()) return;
  mySignals.cancel();
  mySweepTimer.cancel();
  myStopTimer.cancel();
}

void PLXListener::Implementation::BeginToLeave() {
  if (myLeaving != Leaving::kNotYet) return;
  myStopTimer.cancel();
  if (!myLeave) {
    EndOfLeaving();
    return;
  }
  myLeaving = Leaving::kRuns;
  myLeavingThread = std::thread([this] {
    try {
      myLeave();
    } catch (std::exception const& problem) {
      PLXLog::Error(std::string("Ending the modules failed: ") + problem.what());
    }
    asio::post(myContext, [this] {
      EndOfLeaving();
      EndIfDone();
    });
  });
}

void PLXListener::Implementation::CloseDoor() {
  error_code ignored;
  myAcceptor.close(ignored);
  myAcceptTimer.cancel();
}

void PLXListener::Implementation::EndOfLeaving() {
  myLeaving = Leaving::kIsOver;
  CloseDoor();
  if (!myConnections.empty()) asio::co_spawn(myContext, LimitEnd(), LogEnd);
}

awaitable<void> PLXListener::Implementation::LimitStop() {
  if (myConnections.empty()) co_return;
  error_code error;
  myStopTimer.expires_after(myLimits.stopTime);
  co_await myStopTimer.async_wait(redirect_error(use_awaitable, error));
  if (myConnections.empty() || myLeaving != Leaving::kNotYet) co_return;
  PLXLog::Warning("The time to stop is over with " + std::to_string(myConnections.size()) +
                  " connections open.");
  if (HasStuckPages()) {
    myContext.stop();
  } else {
    for (PLXConnection* connection : myConnections) connection->TimeOut();
    BeginToLeave();
  }
}

// Who was let in last gets a moment to read the answer.
awaitable<void> PLXListener::Implementation::LimitEnd() {
  error_code error;
  myStopTimer.expires_after(kClose_Patience);
  co_await myStopTimer.async_wait(redirect_error(use_awaitable, error));
  if (!myConnections.empty()) myContext.stop();
}

awaitable<void> PLXListener::Implementation::WatchSignals(std::function<void()> const& reload_i) {
  // Waiting once more when a stop has found nothing left to wait for would keep the context for ever.
  while (!IsOver()) {
    error_code error;
    int const signal = co_await mySignals.async_wait(redirect_error(use_awaitable, error));
    if (error) co_return;
    if (signal == SIGHUP) {
      try {
        if (reload_i) reload_i();
      } catch (std::exception const& problem) {
        PLXLog::Error(std::string("Reloading failed: ") + problem.what());
      }
    } else if (myIsStopping) {
      PLXLog::Warning("Asked to stop a second time: ending at once.");
      myContext.stop();
    } else {
      BeginStop();
    }
  }
}

// With nobody there, there is nothing to look at: an idle server sleeps.
awaitable<void> PLXListener::Implementation::Sweep() {
  while (!IsOver()) {
    error_code error;
    if (myConnections.empty()) {
      mySweepTimer.expires_at(steady_clock::time_point::max());
    } else {
      mySweepTimer.expires_after(kSweep_Interval);
    }
    co_await mySweepTimer.async_wait(redirect_error(use_awaitable, error));
    auto const now = steady_clock::now();
    for (PLXConnection* connection : myConnections) {
      if (connection->Deadline() <= now) connection->TimeOut();
    }
  }
}

awaitable<void> PLXListener::Implementation::Accept() {
  bool hasComplained = false;
  while (myAcceptor.is_open()) {
    error_code error;
    tcp::socket socket = co_await myAcceptor.async_accept(redirect_error(use_awaitable, error));
    if (!myAcceptor.is_open()) co_return;
    if (!error) {
      hasComplained = false;
      Admit(std::move(socket));
      continue;
    }
    // Out of files or memory: the client waits in the kernel's queue, and trying again at once would only
    // spin.
    if (!hasComplained) PLXLog::Error("Cannot accept connections: " + error.message() + ".");
    hasComplained = true;
    myAcceptTimer.expires_after(kAccept_BackOff);
    co_await myAcceptTimer.async_wait(redirect_error(use_awaitable, error));
  }
}

void PLXListener::Implementation::Admit(tcp::socket socket_i) {
  auto connection = std::make_unique<PLXConnection>(std::move(socket_i), myLimits);
  auto const end = [this](std::exception_ptr problem_i) {
    LogEnd(problem_i);
    EndIfDone();
  };
  std::string const& address = connection->PeerAddress();
  // The machine itself and its proxies may have a module's word to bring; others find the door closed.
  if (myIsStopping && !myClientAddress.IsOwn(address) && !myClientAddress.IsProxy(address)) return;
  if (MayEnter(address)) {
    asio::co_spawn(myContext, Serve(std::move(connection)), end);
  } else if (myTurnedAway < kTurnedAway_AtOnce) {
    asio::co_spawn(myContext, TurnAway(std::move(connection)), end);
  }
}

// A proxy that the configuration names speaks for many clients, so the limit per address is not for it. This
// machine speaks for its own pages too, each of which may include one at a time.
bool PLXListener::Implementation::MayEnter(std::string const& address_i) {
  if (myServed >= myLimits.connections) return false;
  if (myLimits.connectionsPerAddress == 0 || myClientAddress.IsProxy(address_i)) return true;
  auto const count = myConnectionsByAddress.find(address_i);
  if (count == myConnectionsByAddress.end() || count->second < myLimits.connectionsPerAddress) return true;
  return myClientAddress.IsOwn(address_i) &&
         count->second < myLimits.connectionsPerAddress + myLimits.pageThreads;
}

awaitable<void> PLXListener::Implementation::Serve(std::unique_ptr<PLXConnection> connection_i) {
  PLXConnection& connection = *connection_i;
  Registration const registration(*this, connection, true);
  bool const isLate = myIsStopping;
  bool goesOn = true;
  while (goesOn && (!myIsStopping || isLate)) goesOn = co_await ServeOne(connection, isLate);
  milliseconds const patience = myIsStopping ? kClose_ShortPatience : kClose_Patience;
  co_await connection.Close(patience);
}

awaitable<void> PLXListener::Implementation::TurnAway(std::unique_ptr<PLXConnection> connection_i) {
  PLXConnection& connection = *connection_i;
  Registration const registration(*this, connection, false);
  PLXResponse const response = ErrorAnswer(myHandler, 503, "The server has too many visitors at the moment.");
  std::string const head = FormatResponseHead(response, response.body.size(), "close", Date());
  co_await connection.Write(head, response.body);
  co_await connection.Close(kClose_ShortPatience);
}

// False when the connection is to be closed.
awaitable<bool> PLXListener::Implementation::ServeOne(PLXConnection& connection_i, bool isLate_i) {
  PLXExchange exchange;
  bool const hasHead = co_await connection_i.ReadHead(exchange);
  if (!hasHead) co_return false;
  ++myRequests;
  exchange.request.id = ++ourLastRequestID;
  myClientAddress.Fill(exchange.request);
  if (exchange.problem.status) {
    co_await Refuse(connection_i, exchange);
    co_return false;
  }
  PLXDisposition disposition = Dispose(exchange.request);
  if (isLate_i && !disposition.isForModules) {
    exchange.problem = {503, "The server is stopping."};
    co_await Refuse(connection_i, exchange);
    co_return false;
  }
  exchange.keepAlive = exchange.parser.KeepAlive();
  bool const isOnThread = disposition.kind == PLXDisposition::Kind::kPage ||
                          disposition.kind == PLXDisposition::Kind::kAdministration;
  // An answer that does not wait for the body leaves bytes behind that are no request.
  if (!isOnThread && !exchange.parser.IsDone()) exchange.keepAlive = false;
  if (isOnThread) {
    co_await AnswerOnThread(connection_i, exchange, disposition);
  } else if (disposition.kind == PLXDisposition::Kind::kFile) {
    co_await WriteFile(connection_i, exchange, std::move(disposition.fileAnswer));
  } else {
    co_await Write(connection_i, exchange, std::move(disposition.answer));
  }
  co_return exchange.keepAlive && !connection_i.IsBroken();
}

PLXDisposition PLXListener::Implementation::Dispose(PLXRequest& request_io) {
  try {
    return myHandler.Dispose(request_io);
  } catch (std::exception const& error) {
    PLXLog::Error("Finding " + request_io.path + " failed: " + error.what());
  }
  PLXDisposition disposition;
  disposition.answer = ErrorAnswer(myHandler, 500, "The server could not answer this request.");
  return disposition;
}

awaitable<void> PLXListener::Implementation::AnswerOnThread(PLXConnection& connection_i,
                                                            PLXExchange& exchange_i,
                                                            PLXDisposition& disposition_i) {
  auto body = std::make_unique<PLXRequestBody>(myTemporaryFolder, myLimits.bodyInMemoryBytes);
  bool isComplete = true;
  if (!exchange_i.parser.IsDone()) isComplete = co_await connection_i.ReadBody(exchange_i, *body);
  if (!isComplete) {
    PLXResponse none;
    Finish(connection_i, exchange_i, none, 0);
    co_return;
  }
  if (exchange_i.problem.status) {
    co_await Refuse(connection_i, exchange_i);
    co_return;
  }
  connection_i.StopDeadline();
  std::shared_ptr<Work> const work(
      new Work{myHandler, exchange_i.request, std::move(body), disposition_i.state, myLimits.formFields, {}});
  PLXResponse response = co_await RunWork(exchange_i, disposition_i, work);
  if (response.file.empty()) {
    co_await Write(connection_i, exchange_i, std::move(response));
    co_return;
  }
  PLXFileAnswer answer;
  answer.file = std::move(response.file);
  answer.offset = response.fileOffset;
  answer.length = response.fileLength;
  answer.response = std::move(response);
  co_await WriteFile(connection_i, exchange_i, std::move(answer));
}

awaitable<PLXResponse> PLXListener::Implementation::RunWork(PLXExchange& exchange_i,
                                                            PLXDisposition& disposition_i,
                                                            std::shared_ptr<Work> work_i) {
  PLXRequest& request = exchange_i.request;
  bool const isPage = disposition_i.kind == PLXDisposition::Kind::kPage;
  PLXPagePool& pool = isPage ? myPages : myAdministration;
  asio::steady_timer deadline(myContext, steady_clock::time_point::max());
  if (myLimits.pageTime.count() > 0) deadline.expires_after(myLimits.pageTime);
  auto const job = std::make_shared<PLXPageJob>();
  job->place = request.host + request.path;
  job->run = [work_i] { work_i->Run(); };
  job->ended = [&deadline] { deadline.cancel(); };
  if (pool.IsTired(job->place)) {
    co_return ErrorAnswer(myHandler, 503,
                          "Earlier visits to this page still wait for something. "
                          "The page takes new ones when they have ended.");
  }
  if (!pool.Add(job, disposition_i.neverQueued)) {
    co_return ErrorAnswer(myHandler, 503, "The server is busy at the moment.");
  }
  error_code ignored;
  co_await deadline.async_wait(redirect_error(use_awaitable, ignored));
  if (job->stage == PLXPageJob::Stage::kDone) {
    request = std::move(work_i->request);
    co_return std::move(work_i->response);
  }
  if (pool.GiveUp(job)) co_return ErrorAnswer(myHandler, 503, "The server is busy at the moment.");
  myHandler.GivenUp(request);
  co_return ErrorAnswer(myHandler, 504,
                        "The page waits for something that does not come. It was given up after " +
                            std::to_string(myLimits.pageTime.count()) + " s.");
}

awaitable<void> PLXListener::Implementation::Refuse(PLXConnection& connection_i, PLXExchange& exchange_i) {
  exchange_i.keepAlive = false;
  PLXResponse answer = ErrorAnswer(myHandler, exchange_i.problem.status, exchange_i.problem.sentence);
  co_await Write(connection_i, exchange_i, std::move(answer));
}

// The head of an answer of `length_i` bytes. Mends a status that no client would understand, and decides for
// good whether the connection stays.
std::string PLXListener::Implementation::Head(PLXExchange& exchange_io, PLXResponse& response_io,
                                              std::uint64_t length_i) {
  if (response_io.status < 200 || response_io.status > 999) {
    PLXLog::Error("The answer to " + exchange_io.request.path + " had the status " +
                  std::to_string(response_io.status) + "; 500 was sent.");
    response_io.status = 500;
  }
  if (myIsStopping) exchange_io.keepAlive = false;
  std::string_view connection;
  if (!exchange_io.keepAlive) {
    connection = "close";
  } else if (exchange_io.request.version == "HTTP/1.0") {
    connection = "keep-alive";
  }
  std::optional<std::uint64_t> length;
  if (HasBody(response_io.status)) length = length_i;
  return FormatResponseHead(response_io, length, connection, Date());
}

awaitable<void> PLXListener::Implementation::Write(PLXConnection& connection_i, PLXExchange& exchange_i,
                                                   PLXResponse response_i) {
  std::string const head = Head(exchange_i, response_i, response_i.body.size());
  bool const sendsBody = exchange_i.request.method != "HEAD" && HasBody(response_i.status);
  std::string_view const body = sendsBody ? std::string_view(response_i.body) : std::string_view();
  std::uint64_t const sent = co_await connection_i.Write(head, body);
  Finish(connection_i, exchange_i, response_i, sent);
}

awaitable<void> PLXListener::Implementation::WriteFile(PLXConnection& connection_i, PLXExchange& exchange_i,
                                                       PLXFileAnswer answer_i) {
  PLXResponse& response = answer_i.response;
  PLXOpenFile const file(answer_i.file);
  bool const isHead = exchange_i.request.method == "HEAD";
  bool const isSmall = !isHead && answer_i.length <= kFile_InOnePiece;
  // Reading shows by itself whether the bytes are there.
  bool const isThere = isSmall ? file.Read(answer_i.offset, answer_i.length, response.body)
                               : file.Holds(answer_i.offset + answer_i.length);
  if (!isThere) response = ErrorAnswer(myHandler, 404, "The file has just gone or changed.");
  if (!isThere || isSmall) {
    co_await Write(connection_i, exchange_i, std::move(response));
    co_return;
  }
  std::string const head = Head(exchange_i, response, answer_i.length);
  std::uint64_t const length = isHead ? 0 : answer_i.length;
  std::uint64_t const sent = co_await connection_i.WriteFile(head, file, answer_i.offset, length);
  Finish(connection_i, exchange_i, response, sent);
}

void PLXListener::Implementation::Finish(PLXConnection const& connection_i, PLXExchange const& exchange_i,
                                         PLXResponse& response_io, std::uint64_t bytesSent_i) {
  if (connection_i.IsBroken()) response_io.status = 0;
  auto const took =
      std::chrono::duration_cast<std::chrono::microseconds>(steady_clock::now() - exchange_i.begun);
  try {
    myHandler.Finished(exchange_i.request, response_io, bytesSent_i, took);
  } catch (std::exception const& error) {
    PLXLog::Error(std::string("A request could not be logged: ") + error.what());
  }
}

std::string const& PLXListener::Implementation::Date() {
  auto const now = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
  if (now != myDateTime) {
    myDateTime = now;
    myDate = FormatHTTPDate(now);
  }
  return myDate;
}

PLXListener::PLXListener(std::string const& address_i, std::uint16_t port_i, PLXLimits const& limits_i,
                         std::vector<std::string> proxies_i, std::filesystem::path temporaryFolder_i,
                         PLXRequestHandler& handler_i)
    : myImplementation(std::make_unique<Implementation>(address_i, port_i, limits_i, proxies_i,
                                                        std::move(temporaryFolder_i), handler_i)) {}

PLXListener::~PLXListener() {
  // A page that did not end in time still uses all this; only the end of the process takes it away.
  static std::vector<Implementation*>& ourAbandoned = *new std::vector<Implementation*>;
  if (myImplementation->HasStuckPages()) ourAbandoned.push_back(myImplementation.release());
}

std::uint16_t PLXListener::Port() const { return myImplementation->Port(); }
bool PLXListener::Run(std::function<void()> const& reload_i, std::function<void()> const& leave_i) {
  return myImplementation->Run(reload_i, leave_i);
}
void PLXListener::Stop() { myImplementation->Stop(); }
PLXListenerStatus PLXListener::Status() const { return myImplementation->Status(); }
