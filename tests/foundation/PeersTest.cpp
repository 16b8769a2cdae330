#include <atomic>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "FoundationPrinters.h"
#include "PLXHTTP.h"
#include "PLXPOP3.h"
#include "PLXSMTPDialogue.h"
#include "ScriptedPeer.h"

// Peers that behave as no peer should, at every step of every protocol. Whatever they do, the client ends,
// and never takes what was cut short for the whole.

namespace {

// Runs all of them, many at a time, because each of them mostly waits for the silence behind a reply.
void RunTogether(std::vector<std::function<void()>> const& tasks_i) {
  constexpr unsigned kThreads = 32;
  std::atomic<std::size_t> next{0};
  std::vector<std::thread> threads;
  for (unsigned index = 0; index < kThreads; ++index) {
    threads.emplace_back([&] {
      for (std::size_t task = next++; task < tasks_i.size(); task = next++) tasks_i[task]();
    });
  }
  for (std::thread& thread : threads) thread.join();
}

// What a peer does in place of one of its replies; it is gone afterwards.
struct Manner {
  std::string name;
  std::function<void(ScriptedPeer&)> play;
  std::string said = {};  // when the client can tell that it was said
};

// `reply_i` is the right one. Every beginning of it, and then what no beginning is.
std::vector<Manner> MannersInsteadOf(std::string const& reply_i) {
  std::vector<Manner> manners;
  for (std::size_t length = 0; length < reply_i.size(); ++length) {
    std::string const beginning = reply_i.substr(0, length);
    manners.push_back({"closes after " + std::to_string(length),
                       [=](ScriptedPeer& peer_io) { peer_io.Sends(beginning).Drops(); }, beginning});
  }
  std::string const half = reply_i.substr(0, reply_i.size() / 2);
  manners.push_back({"resets", [=](ScriptedPeer& peer_io) { peer_io.Sends(half).Resets(); }});
  manners.push_back(
      {"pauses and closes", [=](ScriptedPeer& peer_io) { peer_io.Sends(half).Pauses().Drops(); }, half});
  manners.push_back({"is silent and closes", [](ScriptedPeer& peer_io) { peer_io.Pauses().Drops(); }});
  for (std::string const& wrong :
       {std::string("\r\n"), std::string("garbage\r\n"), std::string("\0\x01\xff\r\n", 5),
        std::string("HTTP/1.0 200 OK\r\n\r\n"), std::string("999 what\r\n"),
        std::string("-ERR [IN-USE] busy\r\n"), std::string(9000, '2')}) {
    manners.push_back(
        {"says " + wrong.substr(0, 20), [=](ScriptedPeer& peer_io) { peer_io.Sends(wrong).Drops(); }});
  }
  return manners;
}

// ---- SMTP ----

std::string Send(std::string const& server_i) {
  PLXString const server = Plx(server_i);
  PLXString const sender("ada@test.org");
  PLXTokenizedString const recipients("bob@test.org", ",");
  PLXTokenizedString const lines("Subject: x\r\n\r\ntext\r\n.\r\n", "\r\n");
  PLXNetworkingStreamGroup group;
  return Std(PLXSMTPDialogue(server, sender, recipients, lines, group).Run());
}

struct Step {
  char const* heard;  // before the reply; null for the greeting
  char const* reply;
};
constexpr Step kSMTPSteps[] = {{nullptr, "220 ready\r\n"},
                               {"HELO ", "250 hello\r\n"},
                               {"MAIL FROM: <ada@test.org>", "250 ok\r\n"},
                               {"RCPT TO: <bob@test.org>", "250 ok\r\n"},
                               {"DATA", "354 go on\r\n"},
                               {"\r\n.\r\nQUIT", "250 taken\r\n"}};
constexpr std::size_t kSMTPStepCount = std::size(kSMTPSteps);

void Hear(ScriptedPeer& peer_io, Step const& step_i) {
  if (step_i.heard != nullptr) peer_io.HearsThrough(step_i.heard).HearsThrough("\r\n");
}

void PlayUpTo(ScriptedPeer& peer_io, std::size_t end_i) {
  for (std::size_t index = 0; index < end_i; ++index) {
    Hear(peer_io, kSMTPSteps[index]);
    peer_io.Sends(kSMTPSteps[index].reply);
  }
  Hear(peer_io, kSMTPSteps[end_i]);
}

// A reply that a server gives instead, and leaves; whether the message counts as sent.
std::string SendWith(std::size_t step_i, Manner const& manner_i) {
  ScriptedPeer peer;
  PlayUpTo(peer, step_i);
  manner_i.play(peer);
  return Send(peer.Address());
}

// ---- POP3 ----

struct Mailbox : ScriptedPeer {
  Mailbox() { Says("+OK").Hears("USER ada").Says("+OK").Hears("PASS pw").Says("+OK"); }
};

constexpr char kMessage[] = "+OK 20 octets\r\nSubject: x\r\n\r\n..a\r\n.b.\r\n\r\n.\r\n";
constexpr char kListing[] = "+OK\r\n1 a\r\n2 b\r\n.\r\n";

// ---- HTTP ----

constexpr char kPage[] = "HTTP/1.0 200 OK\r\nContent-Length: 10\r\n\r\n0123456789";

std::string Fetch(std::string const& address_i, std::string& headers_o) {
  PLXHTTP http;
  http.SetSilenceLimits(2000, 2000);
  http.SetURL(Plx("http://" + address_i + "/"));
  EXPECT_TRUE(http.Process(false));
  headers_o = Std(http.GetResponseHeaders());
  return Std(http.GetResponseData());
}

// A peer that says the beginning once and goes on with the rest for as long as it is listened to; how many
// bytes it got rid of.
class EndlessPeer {
 public:
  EndlessPeer(std::string beginning_i, std::string rest_i, useconds_t pause_i = 0)
      : myBeginning(std::move(beginning_i)), myRest(std::move(rest_i)), myPause(pause_i) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    EXPECT_EQ(bind(myListener, reinterpret_cast<sockaddr*>(&address), size), 0);
    EXPECT_EQ(listen(myListener, 1), 0);
    EXPECT_EQ(getsockname(myListener, reinterpret_cast<sockaddr*>(&address), &size), 0);
    myPort = ntohs(address.sin_port);
    myThread = std::thread([this] { Play(); });
  }
  ~EndlessPeer() {
    myThread.join();
    close(myListener);
  }
  std::string Address() const { return "127.0.0.1:" + std::to_string(myPort); }

 private:
  void Play() {
    int const connection = accept(myListener, nullptr, nullptr);
    std::string const* text = &myBeginning;
    while (send(connection, text->data(), text->size(), MSG_NOSIGNAL) > 0) {
      text = &myRest;
      if (myPause > 0) usleep(myPause);
    }
    close(connection);
  }

  std::string const myBeginning;
  std::string const myRest;
  useconds_t const myPause;
  int const myListener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  std::uint16_t myPort = 0;
  std::thread myThread;
};

}  // namespace

TEST(Peers, OfSMTPTakeNoMessageWithoutSaying250) {
  std::vector<std::function<void()>> tasks;
  for (std::size_t step = 0; step < kSMTPStepCount; ++step) {
    for (Manner const& manner : MannersInsteadOf(kSMTPSteps[step].reply)) {
      tasks.push_back([=] {
        // A last reply that was cut behind its code is that reply.
        bool const isTaken = step + 1 == kSMTPStepCount && manner.said.starts_with("250");
        EXPECT_EQ(SendWith(step, manner).empty(), isTaken) << "step " << step << ": " << manner.name;
      });
    }
    for (std::string const& code :
         {std::string("421"), std::string("451"), std::string("550"), std::string("554")}) {
      for (std::string const& form :
           {code + " no\r\n", code + "-no\r\n" + code + " really\r\n", code + " no\n", code}) {
        tasks.push_back([=] {
          std::string const error =
              SendWith(step, {"", [=](ScriptedPeer& peer_io) { peer_io.Sends(form).Drops(); }});
          EXPECT_EQ(error.substr(0, 4), code + "-") << "step " << step << ": " << form;
        });
      }
    }
  }
  RunTogether(tasks);
}

TEST(Peers, OfSMTPMaySpeakInAnyPieces) {
  struct Row {
    char const* why;
    std::string reply;  // for a code, to every step
    bool isDribbled;
  };
  Row const rows[] = {{"one byte a segment", "|more to come\r\n", true},
                      {"line feeds alone", "|ok\n", false},
                      {"several lines", "-one\r\n|two\r\n", false},
                      {"several lines in single bytes", "-one\r\n|two\n", true}};
  std::vector<std::function<void()>> tasks;
  for (Row const& row : rows) {
    tasks.push_back([&row] {
      ScriptedPeer peer;
      for (Step const& step : kSMTPSteps) {
        std::string const code(step.reply, 3);
        std::string reply = row.reply[0] == '-' ? code + row.reply : row.reply;
        reply.replace(reply.find('|'), 1, code + " ");
        Hear(peer, step);
        row.isDribbled ? peer.Dribbles(reply) : peer.Sends(reply);
      }
      peer.Drops();
      EXPECT_EQ(Send(peer.Address()), "") << row.why;
    });
  }
  RunTogether(tasks);
}

TEST(Peers, OfSMTPAreNotBelievedBeforeTheyAreAsked) {
  std::vector<std::function<void()>> tasks;
  for (std::size_t step = 0; step + 1 < kSMTPStepCount; ++step) {
    tasks.push_back([step] {
      ScriptedPeer peer;
      PlayUpTo(peer, step);
      std::string all;
      for (std::size_t rest = step; rest < kSMTPStepCount; ++rest) all += kSMTPSteps[rest].reply;
      peer.Sends(all).Pauses(1200).Drops();
      EXPECT_NE(Send(peer.Address()), "") << "from step " << step;
    });
  }
  tasks.push_back([] {
    ScriptedPeer peer;
    PlayUpTo(peer, 4);
    peer.Sends("354 go on\r\n").Pauses(450).Sends("250 taken already\r\n").Drops();
    EXPECT_NE(Send(peer.Address()), "") << "within the burst";
  });
  RunTogether(tasks);
}

TEST(Peers, OfPOP3GiveWhatCame) {
  std::vector<std::function<void()>> tasks;
  for (char const* const whole : {kMessage, kListing, "+OK deleted\r\n"}) {
    std::string const command = whole == kMessage ? "RETR 1" : whole == kListing ? "UIDL" : "DELE 1";
    std::string const answer = whole;
    for (std::size_t length = 0; length <= answer.size(); ++length) {
      for (bool const isDribbled : {false, true}) {
        tasks.push_back([=] {
          Mailbox peer;
          peer.Hears(command);
          isDribbled ? peer.Dribbles(answer.substr(0, length)) : peer.Sends(answer.substr(0, length));
          peer.Drops();
          PLXPOP3 client(Plx(peer.Address()), "ada", "pw");
          EXPECT_EQ(client.Connect(), kPOP3Result_Success);
          EXPECT_EQ(Std(client.SendPOPCommand(Plx(command))), answer.substr(0, length));
          EXPECT_EQ(Std(client.SendPOPCommand("NOOP")), "");
        });
      }
    }
  }
  char const* const logins[] = {"USER ada", "PASS pw"};
  for (std::size_t step = 0; step <= std::size(logins); ++step) {
    for (Manner const& manner : MannersInsteadOf("+OK ready\r\n")) {
      tasks.push_back([=] {
        ScriptedPeer peer;
        for (std::size_t index = 0; index < step; ++index) peer.Says("+OK").Hears(logins[index]);
        manner.play(peer);
        PLXPOP3 client(Plx(peer.Address()), "ada", "pw");
        client.SetSilenceLimits(300, 300);
        client.Connect();  // may be a success, as when the peer only leaves
        EXPECT_EQ(Std(client.SendPOPCommand("RETR 1")), "") << "step " << step << ": " << manner.name;
        client.Disconnect();
      });
    }
  }
  RunTogether(tasks);
}

TEST(Peers, OfHTTPGiveWhatCame) {
  std::vector<std::function<void()>> tasks;
  std::string const page = kPage;
  std::size_t const headersEnd = page.find("\r\n\r\n");
  for (std::size_t length = 0; length <= page.size(); ++length) {
    for (bool const isDribbled : {false, true}) {
      tasks.push_back([=] {
        ScriptedPeer peer;
        peer.HearsRequest();
        isDribbled ? peer.Dribbles(page.substr(0, length)) : peer.Sends(page.substr(0, length));
        peer.Drops();
        std::string headers;
        bool const isWhole = length >= headersEnd + 4;
        EXPECT_EQ(Fetch(peer.Address(), headers),
                  page.substr(isWhole ? headersEnd + 4 : 0, length - (isWhole ? headersEnd + 4 : 0)));
        EXPECT_EQ(headers, isWhole ? page.substr(0, headersEnd) : "");
      });
    }
  }
  for (Manner const& manner : MannersInsteadOf("HTTP/1.0 200 OK\r\n\r\n")) {
    tasks.push_back([=] {
      ScriptedPeer peer;
      peer.HearsRequest();
      manner.play(peer);
      std::string headers;
      Fetch(peer.Address(), headers);
    });
  }
  RunTogether(tasks);
}

TEST(Peers, ThatNeverEndAreBrokenOff) {
  std::string const line = "250-and so on and on\r\n";
  std::vector<std::function<void()>> tasks;
  std::string lines;
  while (lines.size() < 100000) lines += line;
  for (std::string const& beginning :
       {std::string("220-ready\r\n"), std::string("220 ready\r\n"), std::string("garbage")}) {
    tasks.push_back([=] { EXPECT_NE(Send(EndlessPeer(beginning, lines).Address()), ""); });
  }
  tasks.push_back([=] {
    EndlessPeer const peer("+OK", std::string(100000, '+'));
    PLXPOP3 client(Plx(peer.Address()), "ada", "pw");
    client.Connect();
    EXPECT_EQ(client.SendPOPCommand("UIDL"), "");
  });
  RunTogether(tasks);
}

TEST(Peers, ThatDribbleForEverAreBrokenOff) {
  EndlessPeer const peer("+", "+", 50000);
  PLXIPAddress address;
  PLXUInt16 port = 0;
  ASSERT_TRUE(PLXNetworkingStream::ResolveDomainName(Plx(peer.Address()), 0, address, port));
  std::unique_ptr<PLXNetworkingStream> const stream(PLXNetworkingStream::Open(address, port, true, false));
  stream->SetAnswerLimits(1000, 300);
  EXPECT_FALSE(stream->ReadResponse());
  EXPECT_FALSE(stream->GetWholeResponse().IsEmpty());
  stream->SetResponsePossibleFlag(true);
  EXPECT_FALSE(stream->ReadResponse()) << "the connection is gone";
}
