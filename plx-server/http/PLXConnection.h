#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

#include "PLXAsio.h"
#include "PLXConfiguration.h"
#include "PLXHTTPMessage.h"
#include "PLXRequest.h"
#include "PLXRequestBody.h"

// One request as it arrives, and what its answer needs to know of it.
struct PLXExchange {
  PLXRequest request;
  PLXRequestParser parser;
  PLXHTTPProblem problem;  // why it is to be refused
  std::chrono::steady_clock::time_point begun = std::chrono::steady_clock::now();
  bool keepAlive = false;
};

// A plain file that is open for reading.
class PLXOpenFile {
 public:
  explicit PLXOpenFile(std::filesystem::path const& path_i);
  ~PLXOpenFile();
  PLXOpenFile(PLXOpenFile const&) = delete;
  PLXOpenFile& operator=(PLXOpenFile const&) = delete;

  int Descriptor() const { return myDescriptor; }
  bool Holds(std::uint64_t bytes_i) const;  // false also when there is no such file
  // False when there are not so many bytes.
  bool Read(std::uint64_t offset_i, std::size_t length_i, std::string& bytes_o) const;

 private:
  int const myDescriptor;
};

// The network side of one client's connection: bytes in and out, each step with its deadline. Knows requests
// as text only, nothing of who answers them.
//
// Everything here runs on the I/O thread. The methods are coroutines, one at a time, whose caller keeps what
// it passes until they end. The owner looks at the deadline now and then and calls TimeOut when it has
// passed: no timer is set for a single read or write.
class PLXConnection {
 public:
  using Socket = boost::asio::ip::tcp::socket;
  template <class T>
  using Awaitable = boost::asio::awaitable<T>;

  PLXConnection(Socket socket_i, PLXLimits const& limits_i);

  std::string const& PeerAddress() const { return myPeerAddress; }
  std::chrono::steady_clock::time_point Deadline() const { return myDeadline; }
  void TimeOut();
  // Ends a connection that waits for a request; one that is at work on a request is left to it.
  void CloseIfIdle();
  // The client left or the time was over while an answer was sent: nothing more can be said.
  bool IsBroken() const { return myIsBroken; }

  // Reads a head and fills in the request, addresses included but for what proxies say. False when the client
  // left or sent nothing; a head that is to be refused leaves a problem in the exchange.
  Awaitable<bool> ReadHead(PLXExchange& exchange_io);
  // Reads the body behind it. False when the client left; else the same.
  Awaitable<bool> ReadBody(PLXExchange& exchange_io, PLXRequestBody& body_io);
  void StopDeadline() { myDeadline = std::chrono::steady_clock::time_point::max(); }

  // Sends both and returns how many bytes of the second went out.
  Awaitable<std::uint64_t> Write(std::string const& head_i, std::string_view body_i);
  // Sends `head_i` and a part of a file, straight from the page cache, and returns how many bytes of the file
  // went out: less when the client left, the deadline passed or the file became shorter meanwhile.
  Awaitable<std::uint64_t> WriteFile(std::string const& head_i, PLXOpenFile const& file_i,
                                     std::uint64_t offset_i, std::uint64_t length_i);
  // Says that nothing more comes and throws away what the client still sends, for at most that time: closing
  // a socket with bytes unread would reset it, and the client lose the answer it has not read yet. Then
  // closes.
  Awaitable<void> Close(std::chrono::milliseconds patience_i);

 private:
  std::string_view Pending() const { return std::string_view(myInput).substr(myBegin, myEnd - myBegin); }
  void Consume(std::size_t bytes_i);
  void SetDeadline(std::chrono::steady_clock::duration fromNow_i);
  void FillAddresses(PLXRequest& request_o) const;
  // Waits for more bytes, up to `room_i` in all. False when the client left or the deadline passed.
  Awaitable<bool> Receive(std::size_t room_i);
  Awaitable<void> SendContinue();

  Socket mySocket;
  PLXLimits const& myLimits;
  std::string myPeerAddress, myOwnAddress;
  std::uint16_t myPeerPort = 0, myOwnPort = 0;
  std::string myInput;  // [myBegin, myEnd) has arrived and waits to be read
  std::size_t myBegin = 0, myEnd = 0;
  std::chrono::steady_clock::time_point myDeadline = std::chrono::steady_clock::time_point::max();
  bool myIsIdle = true;
  bool myTimedOut = false;
  bool myIsBroken = false;
};
