#pragma once

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <functional>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <string>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

// A socket with a port of its own on this machine; nobody listens at it yet.
inline int OpenBoundSocket(std::uint16_t& port_o) {
  int const bound = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  EXPECT_EQ(bind(bound, reinterpret_cast<sockaddr*>(&address), size), 0);
  EXPECT_EQ(getsockname(bound, reinterpret_cast<sockaddr*>(&address), &size), 0);
  port_o = ntohs(address.sin_port);
  return bound;
}

// The other end of a protocol client: a server on loopback that plays a script to whoever connects.
//
//   ScriptedPeer peer;
//   peer.Says("+OK ready").Hears("USER ada").Says("+OK").Closes();
//   client.Connect(peer.Address());
//
// The script is complete when Port, Address or Heard is first called; a thread plays it from then on. What
// the client says out of turn, differently or too much fails the test, and so does a step that was never
// reached. A script that ends without a last word closes the connection as Closes does.
class ScriptedPeer {
 public:
  ScriptedPeer() : myListener(OpenBoundSocket(myPort)), myStop(eventfd(0, EFD_CLOEXEC)) {
    EXPECT_EQ(listen(myListener, 16), 0);
  }
  ScriptedPeer(ScriptedPeer const&) = delete;
  ScriptedPeer& operator=(ScriptedPeer const&) = delete;
  ~ScriptedPeer() {
    Finish();
    EXPECT_TRUE(myStarted) << "nobody asked for the peer's address";
    close(myListener);
    close(myStop);
  }

  // ---- The script ----
  ScriptedPeer& Sends(std::string bytes_i) {
    return Step("Sends", [this, bytes = std::move(bytes_i)] { return SendAll(bytes.data(), bytes.size()); });
  }
  ScriptedPeer& Says(std::string const& line_i) { return Sends(line_i + "\r\n"); }
  // Sends each byte on its own.
  ScriptedPeer& Dribbles(std::string bytes_i) {
    return Step("Dribbles", [this, bytes = std::move(bytes_i)] {
      for (char const& byte : bytes) {
        if (!SendAll(&byte, 1)) return false;
      }
      return true;
    });
  }
  // Hears this line; CR LF is not part of it.
  ScriptedPeer& Hears(std::string const& line_i) { return HearsBytes(line_i + "\r\n"); }
  ScriptedPeer& HearsBytes(std::string bytes_i) {
    return Step("Hears", [this, bytes = std::move(bytes_i)] {
      std::string heard;
      bool const ended = !Read(heard, [&] { return bytes.size() - heard.size(); });
      EXPECT_EQ(heard, bytes);
      return !ended && heard == bytes;
    });
  }
  // Hears anything, up to and with this text.
  ScriptedPeer& HearsThrough(std::string end_i) {
    return Step("HearsThrough", [this, end = std::move(end_i)] {
      std::string heard;
      return Read(heard, [&] { return heard.ends_with(end) ? 0u : 1u; });
    });
  }
  ScriptedPeer& HearsRequest() { return HearsThrough("\r\n\r\n"); }
  // Is silent for long enough to end a response.
  ScriptedPeer& Pauses(int milliseconds_i = 800) {
    return Step("Pauses", [this, milliseconds_i] {
      Await(-1, 0, milliseconds_i);
      return !Stopped();
    });
  }
  // Waits for the client to end the connection, as a peer does that keeps it for another request.
  ScriptedPeer& IsLeft() {
    return Step("IsLeft", [this] { return Drain(); });
  }
  // Says no more and waits for the client to end the connection too.
  ScriptedPeer& Closes() {
    return Step("Closes", [this] {
      shutdown(myConnection, SHUT_WR);
      bool const drained = Drain();
      Disconnect();
      return drained;
    });
  }
  // Closes in both directions, whatever the client still has to say.
  ScriptedPeer& Drops() {
    return Step("Drops", [this] {
      Disconnect();
      return true;
    });
  }
  // Breaks the connection: the client's next read fails once it has read what was sent before.
  ScriptedPeer& Resets() {
    return Step("Resets", [this] {
      linger const none{1, 0};
      setsockopt(myConnection, SOL_SOCKET, SO_LINGER, &none, sizeof none);
      Disconnect();
      return true;
    });
  }
  // Goes on with a further connection of the client.
  ScriptedPeer& AcceptsNext() {
    return Step("AcceptsNext", [this] { return Accept(); });
  }

  // ---- For the test ----
  std::uint16_t Port() {
    Start();
    return myPort;
  }
  std::string Address() { return "127.0.0.1:" + std::to_string(Port()); }
  // Everything the client said on all connections. Waits for the script to end.
  std::string const& Heard() {
    Start();
    if (myThread.joinable()) myThread.join();
    return myHeard;
  }

 private:
  static constexpr int kPatience = 20000;  // milliseconds after which a step counts as stuck

  struct ScriptStep {
    char const* name;
    std::function<bool()> play;
  };

  ScriptedPeer& Step(char const* name_i, std::function<bool()> play_i) {
    EXPECT_FALSE(myStarted) << name_i << " comes after the script began";
    mySteps.push_back({name_i, std::move(play_i)});
    return *this;
  }
  void Start() {
    if (std::exchange(myStarted, true)) return;
    myThread = std::thread([this] { Play(); });
  }
  void Play() {
    bool goesOn = Accept();
    std::size_t played = 0;
    for (; goesOn && played < mySteps.size(); ++played) goesOn = mySteps[played].play();
    EXPECT_TRUE(goesOn || played == mySteps.size())
        << "the script ended after step " << played << " of " << mySteps.size() << ", "
        << (played > 0 ? mySteps[played - 1].name : "before a connection");
    EXPECT_TRUE(goesOn) << "the last step was not completed";
    if (myConnection != -1 && goesOn) {
      shutdown(myConnection, SHUT_WR);
      Drain();
    }
    Disconnect();
  }
  // A client that is done with the peer may leave it waiting: then waiting ends here.
  void Finish() {
    if (!myThread.joinable()) return;
    std::uint64_t const one = 1;
    EXPECT_EQ(write(myStop, &one, sizeof one), static_cast<ssize_t>(sizeof one));
    myThread.join();
  }

  // Waits for the descriptor's events; false when the time is over or the test ends.
  bool Await(int descriptor_i, short events_i, int milliseconds_i = kPatience) {
    pollfd entries[] = {{descriptor_i, events_i, 0}, {myStop, POLLIN, 0}};
    while (poll(entries, 2, milliseconds_i) == -1 && errno == EINTR) {
    }
    return entries[0].revents != 0;
  }
  bool Stopped() {
    pollfd entry{myStop, POLLIN, 0};
    return poll(&entry, 1, 0) == 1;
  }
  bool Accept() {
    Disconnect();
    if (!Await(myListener, POLLIN)) return false;
    myConnection = accept4(myListener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    int const on = 1;
    setsockopt(myConnection, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    return myConnection != -1;
  }
  void Disconnect() {
    if (myConnection != -1) close(std::exchange(myConnection, -1));
  }
  bool SendAll(char const* bytes_i, std::size_t count_i) {
    while (count_i > 0) {
      ssize_t const sent = send(myConnection, bytes_i, count_i, MSG_NOSIGNAL);
      if (sent > 0) {
        bytes_i += sent;
        count_i -= static_cast<std::size_t>(sent);
      } else if (errno != EINTR && (errno != EAGAIN || !Await(myConnection, POLLOUT))) {
        return false;
      }
    }
    return true;
  }
  // Reads as many bytes as `wanted_i` says each time, until it says none, so that nothing of the next step is
  // taken. False when the client ends first.
  template <typename Wanted>
  bool Read(std::string& heard_o, Wanted&& wanted_i) {
    char buffer[4096];
    while (std::size_t const wanted = wanted_i()) {
      ssize_t const received = recv(myConnection, buffer, std::min(wanted, sizeof buffer), 0);
      if (received > 0) {
        heard_o.append(buffer, static_cast<std::size_t>(received));
        myHeard.append(buffer, static_cast<std::size_t>(received));
      } else if (received == 0 || (errno != EINTR && (errno != EAGAIN || !Await(myConnection, POLLIN)))) {
        return false;
      }
    }
    return true;
  }
  // Waits for the client's end, or the test's; the client has nothing to say any more.
  bool Drain() {
    std::string rest;
    Read(rest, [] { return 1u; });
    EXPECT_EQ(rest, "") << "nobody asked the client for this";
    return rest.empty();
  }

  std::uint16_t myPort = 0;
  int myListener;
  int myStop;
  int myConnection = -1;
  bool myStarted = false;
  std::vector<ScriptStep> mySteps;
  std::string myHeard;
  std::thread myThread;
};

// A port of this machine at which nobody listens, and nobody can as long as this lives.
class RefusedPort {
 public:
  RefusedPort() : mySocket(OpenBoundSocket(myPort)) {}
  RefusedPort(RefusedPort const&) = delete;
  RefusedPort& operator=(RefusedPort const&) = delete;
  ~RefusedPort() { close(mySocket); }

  std::uint16_t Port() const noexcept { return myPort; }
  std::string Address() const { return "127.0.0.1:" + std::to_string(myPort); }

 private:
  std::uint16_t myPort = 0;
  int mySocket;
};
