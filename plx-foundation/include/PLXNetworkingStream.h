#pragma once

#include <chrono>
#include <mutex>
#include <set>

#include "PLXIPAddress.h"
#include "PLXObject.h"
#include "PLXString.h"

// Connections that another thread may break off, all at once: what a stream opened with it waits for ends as
// if the peer had left. Outlives its streams. Any thread.
class PLXNetworkingStreamGroup {
 public:
  PLXNetworkingStreamGroup() = default;
  PLXNetworkingStreamGroup(PLXNetworkingStreamGroup const&) = delete;
  PLXNetworkingStreamGroup& operator=(PLXNetworkingStreamGroup const&) = delete;

  // Breaks off every connection of the group. One that is about to be begun at this very moment may escape:
  // whoever must be sure calls again.
  void BreakOff() noexcept;

 private:
  friend class PLXNetworkingStream;
  void Add(int socket_i);
  void Remove(int socket_i) noexcept;

  std::mutex myMutex;
  std::set<int> mySockets;  // guarded by myMutex
};

// One TCP connection of a protocol client, answered in bursts.
//
// A response is everything the peer sends until it is silent for 500 ms or closes; a reply code is cracked
// from its start. Owns its socket; destruction closes it and sends nothing, so say goodbye first. One thread
// at a time. IPv4 only. A signal never disturbs it, and a peer that is gone never raises SIGPIPE.
class PLXNetworkingStream : public PLXObject {
 public:
  // The longest response, in bytes: the longest string. What the peer sends beyond it is not read.
  static constexpr PLXUInt32 kMaximumResponseLength = 0xFFFFFFDF;
  // How long, in milliseconds, the peer may go on about one thing: that it may be silent in between as often
  // as it likes makes a peer that never ends. For every 128 bytes it gets a second more, so that only who is
  // slower than any line is broken off.
  static constexpr PLXUInt32 kAnswerTime = 600000;

  // The answer to what is written is all that comes between two writes, in one response or several. One that
  // grows beyond `longest_i` bytes, or takes longer than the time from its first byte on, breaks the
  // connection off: the read that met it is false, with what came until then as its response.
  void SetAnswerLimits(PLXUInt32 longest_i, PLXUInt32 milliseconds_i = kAnswerTime) noexcept;

  // Connects, and with `readGreeting_i` reads one response. Null when no socket could be made. A refused
  // connection gives a stream all the same, whose reads return false at once; IsConnected tells. `reserved_i`
  // has no effect. The caller owns the stream.
  static PLXNetworkingStream* Open(PLXIPAddress const& address_i, PLXUInt16 port_i, bool reserved_i,
                                   bool readGreeting_i, PLXNetworkingStreamGroup* group_io = nullptr);
  PLXNetworkingStream(PLXNetworkingStream const&) = delete;
  PLXNetworkingStream& operator=(PLXNetworkingStream const&) = delete;
  virtual ~PLXNetworkingStream();

  // Whether the connection was ever made. A peer that closed later shows in ReadResponse.
  bool IsConnected() const noexcept { return myIsConnected; }
  // Why the connection was never made, in the system's words ("Connection refused"); empty when it was. A
  // constant.
  char const* GetConnectProblem() const noexcept { return myConnectProblem; }

  // Sends the whole text, as far as the peer takes it, and makes a response possible. Always true: a dead
  // connection shows in the next read.
  bool Write(PLXString const& text_i);

  // Reads one response, waiting for its first byte as long as the peer takes. Does nothing when no response
  // is possible: since the last one nothing was written, and SetResponsePossibleFlag was not called. False
  // also for a connection that was never made, failed, or closed before the first byte; what came before a
  // failure is then the response.
  bool ReadResponse() { return ReadResponse(PLXString()); }
  // The same, without the silence behind a response that ends with this text: for a protocol that says where
  // its answers end, where half a second for each would be most of the time. An empty text is never the end.
  bool ReadResponse(PLXString const& end_i);
  // Allows (or prevents) a further read without writing first.
  void SetResponsePossibleFlag(bool possible_i) noexcept { myResponsePossible = possible_i; }
  // Waits until the peer sends or closes; false after `milliseconds_i` without either. For a client that asks
  // for more of a response without knowing whether there is more.
  bool WaitForPeer(PLXUInt32 milliseconds_i);

  // The number that the last response begins with, or that follows its first word; 0 when there is none.
  PLXUInt32 GetResponseCode() const noexcept { return myResponseCode; }
  // The last response without the number it began with: " OK" of "250 OK", but all of "HTTP/1.0 200 OK".
  PLXString GetResponse() const;
  // The last response as it came, for a client that joins several: a later piece may begin with a digit of
  // its own. Shares the storage, whatever the length.
  PLXString GetWholeResponse() const { return myWholeResponse; }

  // Gives the first IPv4 address of "host" or "host:port", from any thread. False, with the port set and the
  // address unchanged, when the resolver knows no such host. The port is read as a decimal number of which
  // the low 16 bits count; text that is no number gives 0, a host without a colon `defaultPort_i`.
  static bool ResolveDomainName(PLXString const& name_i, PLXUInt16 defaultPort_i, PLXIPAddress& address_o,
                                PLXUInt16& port_o);
  // This machine's name, and its domain's name. False, with an empty text, when it has none.
  static bool GetHostName(PLXString& name_o);
  static bool GetDomainName(PLXString& name_o);

 private:
  PLXNetworkingStream(PLXIPAddress const& address_i, PLXUInt16 port_i, bool readGreeting_i,
                      PLXNetworkingStreamGroup* group_io);
  bool Connect(PLXIPAddress const& address_i, PLXUInt16 port_i) noexcept;
  bool Receive(PLXString& text_io, PLXString const& end_i);
  bool IsWithinLimits(PLXUInt32 received_i) noexcept;
  void BreakOff() noexcept;
  void CrackResponse();

  int mySocket = -1;
  PLXNetworkingStreamGroup* myGroup = nullptr;
  bool myIsConnected = false;
  char const* myConnectProblem = "";
  bool myResponsePossible = false;
  PLXUInt32 myResponseCode = 0;
  PLXUInt32 myCrackedLength = 0;  // how much of the whole response the code took
  PLXString myWholeResponse;
  PLXUInt32 myLongestAnswer = kMaximumResponseLength;
  std::chrono::milliseconds myAnswerTime{kAnswerTime};
  PLXUInt32 myAnswerLength = 0;                         // of the answer so far
  std::chrono::steady_clock::time_point myAnswerStart;  // of its first byte
};

// Reads the reply code at a zero-terminated text: the digits it begins with, or, when its first word is none,
// the digits after that word. Blanks and tabs around the word are skipped and nothing else ends it. 0 without
// digits. The cursor moves behind the digits when they come first, and stays when a word does: it moves over
// "354" of "354 go ahead" and not at all over "HTTP/1.1 302 Found", which gives 302.
PLXUInt32 CrackNum(char const** cursor_io);
