#include "PLXConnection.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include "PLXClientAddress.h"
#include "PLXUninterrupted.h"

// g++ 12 may destroy a temporary of a co_await expression twice, so no lambda with captures and no
// conditional operator stands inside one.

namespace asio = boost::asio;
using asio::redirect_error;
using asio::use_awaitable;
using asio::ip::tcp;
using boost::system::error_code;
using std::chrono::seconds;
using std::chrono::steady_clock;

namespace {

// What a client must at least send or take per second once the fixed time is over.
constexpr std::uint64_t kSlowestClient = 16u << 10;
// The buffer that an idle connection keeps, and what is read at once of a body.
constexpr std::size_t kInput_Idle = 4u << 10;
constexpr std::size_t kInput_Body = 64u << 10;
// After each piece of a file other connections have their turn.
constexpr std::size_t kFile_Piece = 512u << 10;
// What a client may still send after it has been refused.
constexpr std::uint64_t kThrownAway_Most = 64u << 20;
constexpr char kContinue[] = "HTTP/1.1 100 Continue\r\n\r\n";

std::string AddressText(asio::ip::address const& address_i) {
  std::string const text = address_i.to_string();
  std::string const canonical = CanonicalAddress(text);
  return canonical.empty() ? text : canonical;
}

}  // namespace

// A link is not followed: whoever found the path has resolved it. O_NONBLOCK keeps a pipe in its place from
// waiting.
PLXOpenFile::PLXOpenFile(std::filesystem::path const& path_i)
    : myDescriptor(PLXUninterrupted(
          [&] { return ::open(path_i.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK); })) {}

PLXOpenFile::~PLXOpenFile() {
  if (myDescriptor >= 0) ::close(myDescriptor);
}

bool PLXOpenFile::Holds(std::uint64_t bytes_i) const {
  struct stat status {};
  return myDescriptor >= 0 && ::fstat(myDescriptor, &status) == 0 && S_ISREG(status.st_mode) &&
         static_cast<std::uint64_t>(status.st_size) >= bytes_i;
}

bool PLXOpenFile::Read(std::uint64_t offset_i, std::size_t length_i, std::string& bytes_o) const {
  if (myDescriptor < 0) return false;
  bytes_o.resize(length_i);
  for (std::size_t done = 0; done < length_i;) {
    ssize_t const got = PLXUninterrupted([&] {
      return ::pread(myDescriptor, bytes_o.data() + done, length_i - done,
                     static_cast<off_t>(offset_i + done));
    });
    if (got <= 0) return false;
    done += static_cast<std::size_t>(got);
  }
  return true;
}

PLXConnection::PLXConnection(Socket socket_i, PLXLimits const& limits_i)
    : mySocket(std::move(socket_i)), myLimits(limits_i) {
  error_code error;
  tcp::endpoint const peer = mySocket.remote_endpoint(error);
  tcp::endpoint const own = mySocket.local_endpoint(error);
  mySocket.set_option(tcp::no_delay(true), error);
  mySocket.native_non_blocking(true, error);
  myPeerAddress = AddressText(peer.address());
  myPeerPort = peer.port();
  myOwnAddress = AddressText(own.address());
  myOwnPort = own.port();
}

void PLXConnection::TimeOut() {
  error_code ignored;
  myTimedOut = true;
  mySocket.cancel(ignored);
}

void PLXConnection::CloseIfIdle() {
  error_code ignored;
  if (myIsIdle) mySocket.cancel(ignored);
}

PLXConnection::Awaitable<bool> PLXConnection::ReadHead(PLXExchange& exchange_io) {
  if (Pending().empty() && myInput.size() > kInput_Idle) std::string().swap(myInput);
  SetDeadline(myLimits.headerTime);
  std::size_t head = 0;
  while (true) {
    head = exchange_io.parser.FindHead(Pending(), myLimits.headerBytes, exchange_io.problem);
    if (head > 0 || exchange_io.problem.status) break;
    bool const hasBegun = exchange_io.parser.HasBegun(Pending());
    myIsIdle = !hasBegun;
    bool const received = co_await Receive(kInput_Idle);
    if (!hasBegun) exchange_io.begun = steady_clock::now();
    if (received) continue;
    if (!myTimedOut || !hasBegun) co_return false;
    exchange_io.problem = {408, "The request took too long to arrive."};
  }
  myIsIdle = false;
  FillAddresses(exchange_io.request);
  if (exchange_io.problem.status) co_return true;
  exchange_io.parser.PutHead(Pending().substr(0, head), myLimits.formFields, exchange_io.request,
                             exchange_io.problem);
  Consume(head);
  co_return true;
}

PLXConnection::Awaitable<bool> PLXConnection::ReadBody(PLXExchange& exchange_io, PLXRequestBody& body_io) {
  auto const begun = steady_clock::now();
  std::uint64_t const length = exchange_io.parser.ContentLength().value_or(0);
  PLXHTTPProblem const tooLong{413, "The request carries more than the " +
                                        std::to_string(myLimits.bodyBytes) +
                                        " bytes that this server takes."};
  if (length > myLimits.bodyBytes) {
    exchange_io.problem = tooLong;
    co_return true;
  }
  SetDeadline(myLimits.bodyTime);
  if (exchange_io.parser.ExpectsContinue() && Pending().empty()) co_await SendContinue();
  while (true) {
    if (!Pending().empty()) Consume(exchange_io.parser.PutBody(Pending(), body_io, exchange_io.problem));
    if (body_io.Size() > myLimits.bodyBytes) exchange_io.problem = tooLong;
    if (Pending().size() >= kInput_Body && !exchange_io.parser.IsDone()) {
      exchange_io.problem = {400, "A chunk of the body has a header without end."};
    }
    if (exchange_io.parser.IsDone() || exchange_io.problem.status) break;

    // Who says no length earns the time by sending.
    myDeadline = begun + myLimits.bodyTime + seconds(std::max(length, body_io.Size()) / kSlowestClient);
    bool const received = co_await Receive(kInput_Body);
    if (received) continue;
    if (!myTimedOut) co_return false;
    exchange_io.problem = {408, "The body of the request took too long to arrive."};
  }
  exchange_io.request.bodyBytes = body_io.Size();
  co_return true;
}

PLXConnection::Awaitable<std::uint64_t> PLXConnection::Write(std::string const& head_i,
                                                             std::string_view body_i) {
  SetDeadline(myLimits.writeTime + seconds(body_i.size() / kSlowestClient));
  std::array<asio::const_buffer, 2> const pieces{asio::buffer(head_i),
                                                 asio::buffer(body_i.data(), body_i.size())};
  error_code error;
  std::size_t const sent = co_await asio::async_write(mySocket, pieces, redirect_error(use_awaitable, error));
  if (error) myIsBroken = true;
  co_return sent - std::min(sent, head_i.size());
}

PLXConnection::Awaitable<std::uint64_t> PLXConnection::WriteFile(std::string const& head_i,
                                                                 PLXOpenFile const& file_i,
                                                                 std::uint64_t offset_i,
                                                                 std::uint64_t length_i) {
  co_await Write(head_i, {});
  SetDeadline(myLimits.writeTime + seconds(length_i / kSlowestClient));
  auto offset = static_cast<off_t>(offset_i);
  std::uint64_t left = length_i;
  while (left > 0 && !myIsBroken) {
    std::size_t const piece = static_cast<std::size_t>(std::min<std::uint64_t>(left, kFile_Piece));
    ssize_t const sent = ::sendfile(mySocket.native_handle(), file_i.Descriptor(), &offset, piece);
    if (sent < 0 && errno == EINTR) continue;
    // Nothing at all: the file has become shorter, and what the head promised cannot be kept.
    if (sent == 0 || (sent < 0 && errno != EAGAIN) || myTimedOut) break;
    if (sent > 0) left -= static_cast<std::uint64_t>(sent);
    if (left == 0) break;
    error_code error;
    co_await mySocket.async_wait(Socket::wait_write, redirect_error(use_awaitable, error));
    if (error) break;
  }
  if (left > 0) myIsBroken = true;
  co_return length_i - left;
}

PLXConnection::Awaitable<void> PLXConnection::Close(std::chrono::milliseconds patience_i) {
  error_code error;
  mySocket.shutdown(Socket::shutdown_send, error);
  myIsIdle = true;
  SetDeadline(patience_i);
  for (std::uint64_t thrownAway = 0; !myIsBroken && !myTimedOut && thrownAway < kThrownAway_Most;) {
    thrownAway += myEnd;
    myBegin = myEnd = 0;
    co_await Receive(kInput_Idle);
  }
  mySocket.close(error);
}

void PLXConnection::Consume(std::size_t bytes_i) {
  myBegin += bytes_i;
  if (myBegin == myEnd) myBegin = myEnd = 0;
}

void PLXConnection::SetDeadline(steady_clock::duration fromNow_i) {
  myTimedOut = false;
  myDeadline = steady_clock::now() + fromNow_i;
}

void PLXConnection::FillAddresses(PLXRequest& request_o) const {
  request_o.peerAddress = myPeerAddress;
  request_o.remoteAddress = myPeerAddress;
  request_o.remotePort = myPeerPort;
  request_o.serverAddress = myOwnAddress;
  request_o.serverPort = myOwnPort;
}

PLXConnection::Awaitable<bool> PLXConnection::Receive(std::size_t room_i) {
  if (myBegin > 0) {
    myInput.erase(0, myBegin);
    myEnd -= myBegin;
    myBegin = 0;
  }
  std::size_t const room = std::max(room_i, myEnd + kInput_Idle);
  if (myInput.size() < room) myInput.resize(room);
  error_code error;
  std::size_t const received = co_await mySocket.async_read_some(
      asio::buffer(myInput.data() + myEnd, room - myEnd), redirect_error(use_awaitable, error));
  myEnd += received;
  if (error && !myTimedOut) myIsBroken = true;
  co_return !error;
}

PLXConnection::Awaitable<void> PLXConnection::SendContinue() {
  error_code error;
  co_await asio::async_write(mySocket, asio::buffer(kContinue, sizeof kContinue - 1),
                             redirect_error(use_awaitable, error));
  if (error) myIsBroken = true;
}
