#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "FoundationPrinters.h"
#include "PLXPOP3.h"
#include "ScriptedPeer.h"

namespace {

// A peer that has let ada in.
class Mailbox : public ScriptedPeer {
 public:
  Mailbox() { Says("+OK ready").Hears("USER ada").Says("+OK").Hears("PASS pw").Says("+OK"); }
  void Connect(PLXPOP3& client_io) {
    client_io.SetPOPServer(Plx(Address()));
    client_io.SetUsername("ada");
    client_io.SetPassword("pw");
    EXPECT_EQ(client_io.Connect(), kPOP3Result_Success);
  }
};

}  // namespace

TEST(PLXPOP3Connect, TellsWhereTheServerRefused) {
  struct Row {
    char const* why;
    void (*play)(ScriptedPeer&);
    PLXUInt32 result;
    char const* password = "pw";
  };
  Row const rows[] = {
      {"let in, in lower case and with a pause within a line",
       [](ScriptedPeer& peer_io) {
         peer_io.Sends("+o").Pauses().Says("k 1 ready").Hears("USER ada").Says("+Ok").Hears("PASS pw");
         peer_io.Says("+OK");
       },
       kPOP3Result_Success},
      {"at the greeting", [](ScriptedPeer& peer_io) { peer_io.Says("-ERR busy"); },
       kPOP3Result_UnableToConnect},
      {"at the greeting, and broken off", [](ScriptedPeer& peer_io) { peer_io.Says("-ERR busy").Resets(); },
       kPOP3Result_UnableToConnect},
      {"not a mail server", [](ScriptedPeer& peer_io) { peer_io.Sends("220 other").IsLeft(); },
       kPOP3Result_UnableToConnect},
      {"the user", [](ScriptedPeer& peer_io) { peer_io.Says("+OK").Hears("USER ada").Says("-ERR who"); },
       kPOP3Result_UnknownUser},
      {"the password",
       [](ScriptedPeer& peer_io) {
         peer_io.Says("+OK").Hears("USER ada").Says("+OK").Hears("PASS pw").Says("-ERR no");
       },
       kPOP3Result_InvalidPassword},
      {"closed at once is no refusal", [](ScriptedPeer& peer_io) { peer_io.Drops(); }, kPOP3Result_Success},
      {"a password begins no command, and keeps its blanks",
       [](ScriptedPeer& peer_io) {
         peer_io.Says("+OK").Hears("USER ada").Says("+OK").Hears("PASS p \twDELE 1RSET ").Says("+OK");
       },
       kPOP3Result_Success, "p \tw\r\nDELE 1\nRSET\r \n"}};
  for (Row const& row : rows) {
    SCOPED_TRACE(row.why);
    ScriptedPeer peer;
    row.play(peer);
    PLXPOP3 client(Plx(peer.Address()), "ada", row.password);
    EXPECT_EQ(client.Connect(), row.result);
    EXPECT_EQ(client.Connect(), kPOP3Result_AlreadyConnected) << "a connection that was made stays";
  }
}

TEST(PLXPOP3Connect, NeedsAServerThatIsThere) {
  RefusedPort const port;
  for (std::string const& server : {port.Address(), std::string("no-such-host.invalid"), std::string()}) {
    SCOPED_TRACE(server);
    PLXPOP3 client(Plx(server), "ada", "pw");
    EXPECT_EQ(client.Connect(), kPOP3Result_UnableToConnect);
    EXPECT_EQ(client.SendPOPCommand("UIDL"), "");
    client.Disconnect();
    EXPECT_EQ(client.Connect(), kPOP3Result_UnableToConnect);
  }
}

TEST(PLXPOP3Command, IsAnsweredWithAllBurstsAsTheyCame) {
  struct Row {
    char const* why;
    char const* command;
    char const* heard;
    std::vector<std::string> bursts;
  };
  std::string const uid(70, 'u');
  Row const rows[] = {
      {"a command that the server does not know", "UIDL\r\n", "UIDL", {"-ERR what\r\n"}},
      {"a listing that is made while it is sent",
       "uidl",
       "uidl",
       {"+OK\r\n", "1 " + uid + "\r\n2 ", "b\r\n", ".\r\n"}},
      {"one line of a listing", "LIST 1\r\n", "LIST 1", {"+OK 1 320\r\n"}},
      {"a message: digits in front, a doubled dot and the lone one cut",
       "retr 1\r\n",
       "retr 1",
       {"+OK 25 octets\r\n", "250 a\r\n.", ".\r\n.b", "\r\n 42\r", "\n.", "\r\n"}},
      {"a message that is not there", "RETR 9", "RETR 9", {"-ERR go", "ne\r\n"}},
      {"line ends within", "DELE 1\r\nRSET\nQUIT", "DELE 1RSETQUIT", {"-ERR what\r\n"}},
      {"a message that the server leaves in the middle of", "RETR 2", "RETR 2", {"+OK\r\nhal"}}};
  Mailbox peer;
  for (Row const& row : rows) {
    peer.Hears(row.heard).Sends(row.bursts.front());
    for (std::size_t at = 1; at < row.bursts.size(); ++at) peer.Pauses().Sends(row.bursts[at]);
  }
  peer.Drops();
  PLXPOP3 client;
  peer.Connect(client);
  for (Row const& row : rows) {
    SCOPED_TRACE(row.why);
    std::string answer;
    for (std::string const& burst : row.bursts) answer += burst;
    EXPECT_EQ(Std(client.SendPOPCommand(row.command)), answer);
  }
  EXPECT_EQ(client.SendPOPCommand("NOOP"), "");
}

TEST(PLXPOP3Command, WaitsForMessagesAloneWithoutLimit) {
  Mailbox peer;
  peer.Hears("UIDL").Sends("+OK\r\n1 a\r\n").Hears("RETR 1").Sends("+OK\r\na").Pauses().Sends("\r\n.\r\n");
  peer.Hears("QUIT").IsLeft().AcceptsNext().Says("-ERR once is enough");
  PLXPOP3 client;
  client.SetSilenceLimits(0, 0);
  peer.Connect(client);
  EXPECT_EQ(client.SendPOPCommand("UIDL"), "+OK\r\n1 a\r\n") << "the lone dot never comes";
  EXPECT_EQ(client.SendPOPCommand("RETR 1"), "+OK\r\na\r\n.\r\n");
  client.Disconnect();  // which the peer leaves unanswered
  EXPECT_EQ(client.Connect(), kPOP3Result_UnableToConnect);
}
