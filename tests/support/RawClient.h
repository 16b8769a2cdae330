#pragma once

#include <arpa/inet.h>
#include <poll.h>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

struct Answer {
  int status = 0;  // 0: none came
  std::string head, body;
  bool Has(std::string_view headerLine_i) const {
    return head.find(std::string("\r\n").append(headerLine_i).append("\r\n")) != head.npos;
  }
};

// A client of a server on this machine that says what it is told, byte for byte.
class RawClient {
 public:
  explicit RawClient(std::uint16_t port_i) : mySocket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port_i);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    myIsConnected = ::connect(mySocket, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
  }
  ~RawClient() { Close(); }
  RawClient(RawClient const&) = delete;
  RawClient& operator=(RawClient const&) = delete;

  bool IsConnected() const { return myIsConnected; }
  void Close() {
    if (mySocket >= 0) ::close(mySocket);
    mySocket = -1;
  }
  void Send(std::string_view text_i) {
    while (!text_i.empty()) {
      ssize_t const sent = ::send(mySocket, text_i.data(), text_i.size(), MSG_NOSIGNAL);
      if (sent <= 0) return;
      text_i.remove_prefix(static_cast<std::size_t>(sent));
    }
  }
  Answer Receive(bool isHead_i = false) {
    Answer answer;
    std::size_t end;
    while ((end = myInput.find("\r\n\r\n")) == myInput.npos) {
      if (!More()) return answer;
    }
    answer.head = myInput.substr(0, end + 4);
    myInput.erase(0, end + 4);
    answer.status = std::stoi(answer.head.substr(9, 3));
    std::size_t length = 0;
    std::size_t const at = answer.head.find("Content-Length: ");
    if (at != answer.head.npos && !isHead_i) length = std::stoul(answer.head.substr(at + 16));
    while (myInput.size() < length && More()) {
    }
    answer.body = myInput.substr(0, length);
    myInput.erase(0, length);
    return answer;
  }
  Answer Ask(std::string_view text_i) {
    Send(text_i);
    return Receive();
  }
  // Everything up to the server's end of the connection.
  std::string ReceiveAll() {
    while (More()) {
    }
    return std::exchange(myInput, {});
  }
  // Whether the server closes the connection without another byte.
  bool IsClosed() { return myInput.empty() && !More() && !myTimedOut; }

 private:
  // Longer than anything here takes, so that a hanging server fails a test instead of hanging it.
  static constexpr int kPatience = 20000;  // milliseconds

  bool More() {
    pollfd ready{mySocket, POLLIN, 0};
    myTimedOut = ::poll(&ready, 1, kPatience) == 0;
    if (myTimedOut) return false;
    char buffer[64 << 10];
    ssize_t const received = ::recv(mySocket, buffer, sizeof buffer, 0);
    if (received <= 0) return false;
    myInput.append(buffer, static_cast<std::size_t>(received));
    return true;
  }

  int mySocket;
  bool myIsConnected = false;
  bool myTimedOut = false;
  std::string myInput;
};
