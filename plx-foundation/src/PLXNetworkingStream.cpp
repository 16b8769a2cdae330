#include "PLXNetworkingStream.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstring>
#include <memory>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr int kSilence = 500;                  // milliseconds: what ends a response
constexpr int kWithoutLimit = -1;              // poll's own word for it
constexpr std::size_t kPieceSize = 4096;       // bytes handed to one send
constexpr std::size_t kReceiveSize = 32768;    // bytes asked of one recv; small enough for any thread's stack
constexpr PLXUInt32 kBytesPerSecond = 128;     // of an answer that gets more time
constexpr PLXUInt32 kCrackedPrefix = 15;       // characters in which a reply code is looked for
constexpr PLXUInt32 kMaximumNameLength = 255;  // RFC 1035, section 2.3.4
constexpr std::size_t kNameBufferSize = 256;

// Waits until one of the events, the peer's end or an error shows on the socket. 1 then, 0 when the time is
// over, -1 when waiting itself failed. Interruptions do not prolong it.
int Wait(int socket_i, short events_i, int milliseconds_i) noexcept {
  using Clock = std::chrono::steady_clock;
  auto const deadline = Clock::now() + std::chrono::milliseconds(milliseconds_i);
  int remaining = milliseconds_i;
  for (;;) {
    pollfd entry{socket_i, events_i, 0};
    int const count = poll(&entry, 1, remaining);
    if (count >= 0 || errno != EINTR) return count;
    if (milliseconds_i < 0) continue;
    auto const left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    remaining = static_cast<int>(std::max<decltype(left)>(left, 0));
  }
}

// Without the first, a command's last piece waits for the acknowledgement of the one before. The others
// notice, after two minutes of silence, a peer whose machine is gone, which else would be waited for without
// end; a peer that is merely slow keeps its connection however long it takes.
void SetOptions(int socket_i) noexcept {
  struct Option {
    int level;
    int name;
    int value;
  };
  constexpr Option kOptions[] = {{IPPROTO_TCP, TCP_NODELAY, 1},
                                 {IPPROTO_TCP, TCP_KEEPIDLE, 60},
                                 {IPPROTO_TCP, TCP_KEEPINTVL, 15},
                                 {IPPROTO_TCP, TCP_KEEPCNT, 4},
                                 {SOL_SOCKET, SO_KEEPALIVE, 1}};
  for (Option const& option : kOptions) {
    setsockopt(socket_i, option.level, option.name, &option.value, sizeof option.value);
  }
}

bool IsBlankOrTab(char character_i) noexcept { return character_i == ' ' || character_i == '\t'; }
bool IsDigit(char character_i) noexcept { return character_i >= '0' && character_i <= '9'; }

// The leading decimal number, signed and behind white space if need be, modulo 65536.
PLXUInt16 PortNumber(char const* text_i) noexcept {
  while (*text_i == ' ' || (*text_i >= '\t' && *text_i <= '\r')) ++text_i;
  bool const negative = *text_i == '-';
  if (*text_i == '-' || *text_i == '+') ++text_i;
  unsigned value = 0;
  for (; IsDigit(*text_i); ++text_i) value = value * 10 + static_cast<unsigned>(*text_i - '0');
  return static_cast<PLXUInt16>(negative ? 0u - value : value);
}

bool LookUp(PLXString const& host_i, unsigned int& number_o) {
  char const* const name = host_i.GetCStringAccess();
  PLXUInt32 const length = host_i.GetLength();
  if (length == 0 || length > kMaximumNameLength || std::strlen(name) != length) return false;
  addrinfo hints{};
  hints.ai_family = AF_INET;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  if (getaddrinfo(name, nullptr, &hints, &found) != 0) return false;
  std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> const owner(found, freeaddrinfo);
  sockaddr_in address;
  std::memcpy(&address, found->ai_addr, sizeof address);
  number_o = ntohl(address.sin_addr.s_addr);
  return true;
}

}  // namespace

PLXUInt32 CrackNum(char const** cursor_io) {
  char const* cursor = *cursor_io;
  while (IsBlankOrTab(*cursor)) ++cursor;
  bool const numberComesFirst = IsDigit(*cursor);
  if (!numberComesFirst) {
    while (*cursor != 0 && !IsBlankOrTab(*cursor)) ++cursor;
    while (IsBlankOrTab(*cursor)) ++cursor;
  }
  PLXUInt32 code = 0;
  for (; IsDigit(*cursor); ++cursor) code = code * 10 + static_cast<PLXUInt32>(*cursor - '0');
  if (numberComesFirst) *cursor_io = cursor;
  return code;
}

void PLXNetworkingStreamGroup::BreakOff() noexcept {
  std::lock_guard const lock(myMutex);
  for (int socket : mySockets) shutdown(socket, SHUT_RDWR);
}

void PLXNetworkingStreamGroup::Add(int socket_i) {
  std::lock_guard const lock(myMutex);
  mySockets.insert(socket_i);
}

void PLXNetworkingStreamGroup::Remove(int socket_i) noexcept {
  std::lock_guard const lock(myMutex);
  mySockets.erase(socket_i);
}

PLXNetworkingStream* PLXNetworkingStream::Open(PLXIPAddress const& address_i, PLXUInt16 port_i,
                                               bool /*reserved_i*/, bool readGreeting_i,
                                               PLXNetworkingStreamGroup* group_io) {
  auto* const stream = new PLXNetworkingStream(address_i, port_i, readGreeting_i, group_io);
  PLX_ASSERT_NOT_NULL_IN("src/PLXNetworkingStream", stream);
  if (stream->mySocket == -1) {
    delete stream;
    return nullptr;
  }
  return stream;
}

PLXNetworkingStream::PLXNetworkingStream(PLXIPAddress const& address_i, PLXUInt16 port_i, bool readGreeting_i,
                                         PLXNetworkingStreamGroup* group_io)
    : mySocket(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, IPPROTO_TCP)), myGroup(group_io) {
  if (mySocket == -1) return;
  if (myGroup != nullptr) myGroup->Add(mySocket);
  SetOptions(mySocket);
  myIsConnected = Connect(address_i, port_i);
  if (!myIsConnected) {
    char const* const problem = strerrordesc_np(errno);
    myConnectProblem = problem == nullptr ? "unknown" : problem;
  }
  myResponsePossible = true;
  if (readGreeting_i) ReadResponse();
}

PLXNetworkingStream::~PLXNetworkingStream() {
  if (mySocket == -1) return;
  if (myGroup != nullptr) myGroup->Remove(mySocket);
  close(mySocket);
  mySocket = -1;
}

bool PLXNetworkingStream::Connect(PLXIPAddress const& address_i, PLXUInt16 port_i) noexcept {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port_i);
  address.sin_addr.s_addr = htonl(address_i.GetNumber());
  if (connect(mySocket, reinterpret_cast<sockaddr const*>(&address), sizeof address) == 0) return true;
  if (errno != EINTR) return false;
  // An interrupted connect goes on by itself; a second call would only say so.
  int error = 0;
  socklen_t size = sizeof error;
  if (Wait(mySocket, POLLOUT, kWithoutLimit) != 1 ||
      getsockopt(mySocket, SOL_SOCKET, SO_ERROR, &error, &size) != 0) {
    return false;
  }
  errno = error;
  return error == 0;
}

bool PLXNetworkingStream::Write(PLXString const& text_i) {
  char const* position = text_i.GetCStringAccess();
  std::size_t left = myIsConnected ? text_i.GetLength() : 0;
  myAnswerLength = 0;
  while (left > 0) {
    ssize_t const sent = send(mySocket, position, std::min(left, kPieceSize), MSG_NOSIGNAL);
    if (sent == -1 && errno == EINTR) continue;
    if (sent == -1) {
      // What the peer said before can still be read. What it was to hear it never will, so nothing more is
      // waited for.
      shutdown(mySocket, SHUT_RDWR);
      break;
    }
    position += sent;
    left -= static_cast<std::size_t>(sent);
  }
  myResponsePossible = true;
  return true;
}

bool PLXNetworkingStream::ReadResponse(PLXString const& end_i) {
  if (mySocket == -1 || !myResponsePossible) return false;
  myWholeResponse.Empty();  // a client that joins responses should not pay for two at once
  bool const intact = myIsConnected && Receive(myWholeResponse, end_i);
  CrackResponse();
  myResponsePossible = false;
  return intact && myWholeResponse.IsNotEmpty();
}

// Appends everything up to the text's end, the peer's silence or its leaving. False when the connection
// failed, after which nothing more is waited for: what the peer said last is lost, so it may be waiting
// itself.
bool PLXNetworkingStream::Receive(PLXString& text_io, PLXString const& end_i) {
  char buffer[kReceiveSize];
  for (;;) {
    std::size_t const room = kMaximumResponseLength - text_io.GetLength();
    if (room == 0) return true;
    ssize_t const received = recv(mySocket, buffer, std::min(room, kReceiveSize), MSG_DONTWAIT);
    if (received == 0) return true;
    if (received > 0) {
      text_io.ReserveToAppend(static_cast<PLXUInt32>(received));
      text_io.Append(buffer, static_cast<PLXUInt32>(received));
      if (!IsWithinLimits(static_cast<PLXUInt32>(received))) return false;
    } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
      if (end_i.IsNotEmpty() && text_io.EndsWith(end_i)) return true;
      if (Wait(mySocket, POLLIN, text_io.IsEmpty() ? kWithoutLimit : kSilence) != 1) return true;
    } else if (errno != EINTR) {
      BreakOff();
      return false;
    }
  }
}

void PLXNetworkingStream::BreakOff() noexcept {
  shutdown(mySocket, SHUT_RDWR);
  myIsConnected = false;
}

void PLXNetworkingStream::SetAnswerLimits(PLXUInt32 longest_i, PLXUInt32 milliseconds_i) noexcept {
  myLongestAnswer = longest_i;
  myAnswerTime = std::chrono::milliseconds(milliseconds_i);
}

bool PLXNetworkingStream::IsWithinLimits(PLXUInt32 received_i) noexcept {
  auto const now = std::chrono::steady_clock::now();
  if (myAnswerLength == 0) myAnswerStart = now;
  myAnswerLength += std::min(received_i, kMaximumResponseLength - myAnswerLength);
  auto const time = myAnswerTime + std::chrono::seconds(myAnswerLength / kBytesPerSecond);
  if (myAnswerLength <= myLongestAnswer && now - myAnswerStart <= time) return true;
  BreakOff();
  return false;
}

void PLXNetworkingStream::CrackResponse() {
  char prefix[kCrackedPrefix + 1] = {};
  std::memcpy(prefix, myWholeResponse.GetCStringAccess(),
              std::min(myWholeResponse.GetLength(), kCrackedPrefix));
  char const* cursor = prefix;
  myResponseCode = CrackNum(&cursor);
  myCrackedLength = static_cast<PLXUInt32>(cursor - prefix);
}

PLXString PLXNetworkingStream::GetResponse() const {
  return myCrackedLength == 0 ? myWholeResponse
                              : myWholeResponse.GetSubstring(myCrackedLength, kPLXWholeLength);
}

bool PLXNetworkingStream::WaitForPeer(PLXUInt32 milliseconds_i) {
  if (!myIsConnected) return true;  // a read has nothing to wait for
  return Wait(mySocket, POLLIN, static_cast<int>(std::min<PLXUInt32>(milliseconds_i, INT_MAX))) != 0;
}

bool PLXNetworkingStream::ResolveDomainName(PLXString const& name_i, PLXUInt16 defaultPort_i,
                                            PLXIPAddress& address_o, PLXUInt16& port_o) {
  port_o = defaultPort_i;
  PLXString host(name_i);
  PLXUInt32 colon = 0;
  if (name_i.Find(':', 0, kPLXWholeLength, 0, colon)) {
    port_o = PortNumber(name_i.GetCStringAccess() + colon + 1);
    host = name_i.GetSubstring(0, colon);
  }
  unsigned int number = 0;
  return LookUp(host, number) && address_o.Set(number);
}

bool PLXNetworkingStream::GetHostName(PLXString& name_o) {
  char name[kNameBufferSize] = {};
  name_o.Empty();
  if (gethostname(name, sizeof name - 1) == 0) name_o = name;
  return name_o.IsNotEmpty();
}

bool PLXNetworkingStream::GetDomainName(PLXString& name_o) {
  char name[kNameBufferSize] = {};
  name_o.Empty();
  // "(none)" is the kernel's word for a domain that was never set; no peer would take it for a name.
  if (getdomainname(name, sizeof name - 1) == 0 && std::strcmp(name, "(none)") != 0) name_o = name;
  return name_o.IsNotEmpty();
}
