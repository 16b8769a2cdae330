#include <atomic>
#include <csignal>
#include <cstdlib>
#include <gtest/gtest.h>
#include <memory>
#include <pthread.h>
#include <string>
#include <thread>

#include "FoundationPrinters.h"
#include "PLXIPAddress.h"
#include "PLXNetworkingStream.h"
#include "PLXObject.h"
#include "ScriptedPeer.h"

namespace {

std::unique_ptr<PLXNetworkingStream> Open(std::uint16_t port_i, bool readGreeting_i = false) {
  return std::unique_ptr<PLXNetworkingStream>(
      PLXNetworkingStream::Open(PLXIPAddress(0x7F000001), port_i, true, readGreeting_i));
}

// Interrupts the thread that made it, again and again, with a signal that does not restart system calls.
class Interruptions {
 public:
  Interruptions() {
    struct sigaction action {};
    action.sa_handler = [](int) {};
    sigaction(SIGUSR1, &action, &myFormerAction);
    myThread = std::thread([this, target = pthread_self()] {
      while (!myDone) {
        pthread_kill(target, SIGUSR1);
        std::this_thread::sleep_for(std::chrono::microseconds(300));
      }
    });
  }
  ~Interruptions() {
    myDone = true;
    myThread.join();
    sigaction(SIGUSR1, &myFormerAction, nullptr);
  }

 private:
  std::atomic<bool> myDone = false;
  struct sigaction myFormerAction;
  std::thread myThread;
};

}  // namespace

TEST(PLXIPAddress, KeepsNumberAndTextAlike) {
  EXPECT_EQ(PLXIPAddress().GetText(), "0.0.0.0");
  EXPECT_EQ(PLXIPAddress(0x7F000001).GetText(), "127.0.0.1");
  EXPECT_EQ(PLXIPAddress(0xFFFFFFFF).GetText(), "255.255.255.255");
  EXPECT_EQ(PLXIPAddress(PLXString("1.2.3.4")).GetNumber(), 0x01020304u);
}

TEST(PLXIPAddress, TakesFourNumbersUpTo255) {
  struct Row {
    char const* why;
    std::string text;
    char const* result;  // null: refused
  };
  Row const rows[] = {{"plain", "1.2.3.4", "1.2.3.4"},
                      {"zeros in front are no octal", "010.001.1.1", "10.1.1.1"},
                      {"one too high", "256.1.1.1", nullptr},
                      {"far too high for an integer", "1.2.3.99999999999999", nullptr},
                      {"negative", "1.-2.3.4", nullptr},
                      {"no number at all", "nan.1.1.1", nullptr},
                      {"five", "1.2.3.4.5", nullptr},
                      {"endless", std::string(1 << 20, '.'), nullptr}};
  for (Row const& row : rows) {
    SCOPED_TRACE(row.why);
    PLXIPAddress address(0x09090909);
    EXPECT_EQ(address.Set(Plx(row.text)), row.result != nullptr);
    EXPECT_EQ(address.GetText(), row.result != nullptr ? row.result : "9.9.9.9");
  }
}

TEST(CrackNum, FindsTheNumberInFrontOrBehindTheFirstWord) {
  struct Row {
    char const* why;
    char const* text;
    PLXUInt32 code;
    int moved;
  };
  Row const rows[] = {{"a reply", "354 go ahead", 354, 3},
                      {"blanks and tabs in front", " \t421 busy", 421, 5},
                      {"a status line", "HTTP/1.1 302 Found", 302, 0},
                      {"two blanks and a tab behind the word", "+OK  \t2 320", 2, 0},
                      {"a word and no number", "-ERR no", 0, 0},
                      {"a word alone", "+OK", 0, 0},
                      {"a line end ends no word", "+OK\r\n12 3", 3, 0},
                      {"nothing", "", 0, 0},
                      {"digits beyond 32 bits count modulo 2^32", "4294967298 ", 2, 10}};
  for (Row const& row : rows) {
    SCOPED_TRACE(row.why);
    char const* cursor = row.text;
    EXPECT_EQ(CrackNum(&cursor), row.code);
    EXPECT_EQ(cursor - row.text, row.moved);
  }
}

TEST(PLXNetworkingStreamResponse, IsCrackedAtItsStart) {
  struct Row {
    char const* why;
    std::string bytes;
    PLXUInt32 code;
    char const* text;
  };
  Row const rows[] = {
      {"a leading number is taken off", "250 OK\r\n", 250, " OK\r\n"},
      {"with the blanks before it", "  421 busy", 421, " busy"},
      {"a number behind a word stays", "HTTP/1.0 200 OK\r\n", 200, "HTTP/1.0 200 OK\r\n"},
      {"nothing is found beyond the first fifteen characters", "abcdefghijklmno 42", 0, "abcdefghijklmno 42"},
      {"a number is cut at the fifteenth character", "abcdefghijkl 4299", 42, "abcdefghijkl 4299"},
      {"a zero byte ends the search", std::string("250\0 1", 6), 250, nullptr}};
  for (Row const& row : rows) {
    SCOPED_TRACE(row.why);
    ScriptedPeer peer;
    peer.Sends(row.bytes).Closes();
    auto const stream = Open(peer.Port());
    EXPECT_TRUE(stream->ReadResponse());
    EXPECT_EQ(stream->GetResponseCode(), row.code);
    EXPECT_EQ(Std(stream->GetResponse()), row.text != nullptr ? row.text : std::string("\0 1", 3));
    EXPECT_EQ(Std(stream->GetWholeResponse()), row.bytes);
  }
}

TEST(PLXNetworkingStreamResponse, EndsWithSilence) {
  ScriptedPeer peer;
  peer.Says("220 ready")
      .Hears("NOOP")
      .Dribbles("250 one byte after the other")
      .Pauses()
      .Sends("12 later")
      .IsLeft();
  auto const stream = Open(peer.Port(), true);
  EXPECT_TRUE(stream->IsConnected());
  EXPECT_EQ(stream->GetResponseCode(), 220u);
  EXPECT_EQ(stream->GetResponse(), " ready\r\n");
  EXPECT_FALSE(stream->ReadResponse()) << "nothing was written since";
  EXPECT_EQ(stream->GetResponseCode(), 220u) << "a read that is not attempted changes nothing";

  EXPECT_TRUE(stream->Write("NOOP\r\n"));
  EXPECT_TRUE(stream->ReadResponse());
  EXPECT_EQ(stream->GetWholeResponse(), "250 one byte after the other");
  EXPECT_FALSE(stream->ReadResponse());
  stream->SetResponsePossibleFlag(true);
  EXPECT_TRUE(stream->WaitForPeer(10000));
  EXPECT_TRUE(stream->ReadResponse());
  EXPECT_EQ(stream->GetWholeResponse(), "12 later");
  EXPECT_FALSE(stream->WaitForPeer(0));
}

TEST(PLXNetworkingStreamResponse, EndsWithTheConnection) {
  ScriptedPeer peer;
  peer.Sends("221 bye").Closes();
  auto const stream = Open(peer.Port(), true);
  EXPECT_EQ(stream->GetResponse(), " bye");
  stream->SetResponsePossibleFlag(true);
  EXPECT_TRUE(stream->WaitForPeer(0)) << "the end is something to read";
  EXPECT_FALSE(stream->ReadResponse());
  EXPECT_EQ(stream->GetResponseCode(), 0u);
  EXPECT_EQ(stream->GetWholeResponse(), "");
}

TEST(PLXNetworkingStreamResponse, IsKeptAsFarAsItCameBeforeAReset) {
  ScriptedPeer peer;
  peer.Sends("250 half").Pauses(100).Resets();
  auto const stream = Open(peer.Port());
  EXPECT_FALSE(stream->ReadResponse());
  EXPECT_EQ(stream->GetWholeResponse(), "250 half");
  EXPECT_FALSE(stream->IsConnected()) << "what is asked now would be answered by nobody";
}

TEST(PLXNetworkingStreamConnection, ThatIsRefusedGivesAStreamWithoutAResponse) {
  RefusedPort const port;
  for (bool const readGreeting : {false, true}) {
    auto const stream = Open(port.Port(), readGreeting);
    ASSERT_NE(stream, nullptr);
    EXPECT_FALSE(stream->IsConnected());
    EXPECT_FALSE(stream->ReadResponse());
    EXPECT_TRUE(stream->Write("HELO a\r\n"));
    EXPECT_TRUE(stream->WaitForPeer(10000));
    EXPECT_FALSE(stream->ReadResponse());
    EXPECT_EQ(stream->GetWholeResponse(), "");
  }
}

TEST(PLXNetworkingStreamConnection, ThatIsGoneRaisesNoSignal) {
  struct sigaction former {};
  struct sigaction standard {};
  standard.sa_handler = SIG_DFL;
  sigaction(SIGPIPE, &standard, &former);
  ScriptedPeer peer;
  peer.Sends("220 ready").Resets();
  auto const stream = Open(peer.Port());
  stream->ReadResponse();
  for (int attempt = 0; attempt < 3; ++attempt) EXPECT_TRUE(stream->Write("QUIT\r\n"));
  EXPECT_FALSE(stream->ReadResponse());
  sigaction(SIGPIPE, &former, nullptr);
}

TEST(PLXNetworkingStreamConnection, DoesNotNoticeSignals) {
  std::string const command = std::string(3000000, 'c') + "\r\n";
  ScriptedPeer peer;
  peer.Sends("220 ready").HearsBytes(command).Dribbles(std::string(5000, 'x')).IsLeft();
  std::uint16_t const port = peer.Port();
  Interruptions const interruptions;
  auto const stream = Open(port, true);
  EXPECT_TRUE(stream->IsConnected());
  EXPECT_EQ(stream->GetResponseCode(), 220u);
  stream->Write(Plx(command));
  EXPECT_TRUE(stream->ReadResponse());
  EXPECT_EQ(Std(stream->GetWholeResponse()), std::string(5000, 'x'));
}

TEST(ResolveDomainName, TakesAPortBehindAColon) {
  struct Row {
    char const* why;
    std::string name;
    bool isFound;
    PLXUInt16 port;
  };
  Row const rows[] = {{"a name and a port", "localhost:2525", true, 2525},
                      {"dotted numbers", "127.0.0.1:110", true, 110},
                      {"a colon and nothing behind it", "localhost:", true, 0},
                      {"the port ends with its digits", "localhost: 80x", true, 80},
                      {"sixteen bits of a port too high", "localhost:65616", true, 80},
                      {"a port of any length", "localhost:" + std::string(100000, '0') + "7", true, 7},
                      {"the first colon decides", "localhost:1:2", true, 1},
                      {"nothing", "", false, 25},
                      {"a port without a name", ":80", false, 80},
                      {"a zero byte", std::string("localhost\0x", 11), false, 25},
                      {"a name too long", std::string(1 << 20, 'a'), false, 25},
                      {"a name that nobody can have", "no-such-host.invalid", false, 25}};
  for (Row const& row : rows) {
    SCOPED_TRACE(row.why);
    PLXIPAddress address(0x09090909);
    PLXUInt16 port = 1;
    EXPECT_EQ(PLXNetworkingStream::ResolveDomainName(Plx(row.name), 25, address, port), row.isFound);
    EXPECT_EQ(port, row.port);
    EXPECT_EQ(address.GetText(), row.isFound ? "127.0.0.1" : "9.9.9.9");
  }
}

TEST(GetHostName, IsEmptyOrAName) {
  PLXString name("before");
  bool isKnown = PLXNetworkingStream::GetHostName(name);
  EXPECT_EQ(isKnown, name.IsNotEmpty());
  name = "before";
  isKnown = PLXNetworkingStream::GetDomainName(name);
  EXPECT_EQ(isKnown, name.IsNotEmpty());
  EXPECT_FALSE(name == "(none)") << "no mail server takes this for a domain";
}
