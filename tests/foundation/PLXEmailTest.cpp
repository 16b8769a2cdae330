#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <set>
#include <string>

#include "FoundationPrinters.h"
#include "PLXEmailSendThread.h"
#include "PLXHeaderText.h"
#include "PLXStringUtility.h"
#include "ScriptedPeer.h"
#include "TemporaryFolder.h"

namespace {

using testing::HasSubstr;
using testing::Not;

// A mail server's part of the dialogue, up to a point.
class MailPeer : public ScriptedPeer {
 public:
  MailPeer& Greets() { return Says("220 ready"), *this; }
  MailPeer& HearsHello() { return HearsThrough("HELO "), HearsThrough("\r\n"), *this; }
  MailPeer& TakesHello() { return Greets().HearsHello().Says("250 hello"), *this; }
  MailPeer& TakesSender() { return TakesHello().Hears("MAIL FROM: <ada@test.org>").Says("250 ok"), *this; }
  MailPeer& TakesRecipient() { return TakesSender().Hears("RCPT TO: <bob@test.org>").Says("250 ok"), *this; }
  MailPeer& AsksForMessage() { return TakesRecipient().Hears("DATA").Says("354 go on"), *this; }
  MailPeer& HearsMessage() { return AsksForMessage().HearsThrough("\r\n.\r\n").Hears("QUIT"), *this; }
  MailPeer& TakesMessage() { return HearsMessage().Says("250 taken"), *this; }

  // What stood between the commands, without its Date line.
  std::string Message() {
    std::string text = Heard();
    std::size_t const start = text.find("DATA\r\n") + 6;
    text = text.substr(start, text.rfind("QUIT\r\n") - start);
    std::size_t const date = text.find("Date: ");
    return date == text.npos ? text : text.erase(date, text.find("\r\n", date) + 2 - date);
  }
};

// The web server that outcomes are reported to: hears a POST whole and answers it.
class ReportPeer : public ScriptedPeer {
 public:
  ReportPeer& Hears(std::string const& lastArgument_i, std::string const& status_i = "200 OK") {
    HearsThrough(lastArgument_i).Says("HTTP/1.0 " + status_i).Says("");
    return *this;
  }
  PLXString URL() { return Plx("http://" + Address() + "/SendMail"); }
};

PLXEmailFields Fields(std::string const& server_i, std::filesystem::path const& failedMail_i = "",
                      PLXString const& callback_i = "") {
  PLXEmailFields fields;
  fields.failedMailFolder = Plx(failedMail_i);
  fields.callbackURL = callback_i;
  fields.mailServer = Plx(server_i);
  fields.from = "ada@test.org";
  fields.to = "bob@test.org";
  fields.message = "Hello";
  fields.contentHeader = "Content-Type: text/plain";
  return fields;
}

void Send(PLXEmailFields const& fields_i) { PLXEmailSendThread(fields_i).RunHere(); }

std::string Encoded(std::string const& text_i) {
  return Std(PLXStringUtility::GetURLEncodedString(Plx(text_i), true));
}

// What a peer receives of a message with one recipient.
std::string Received(void (*setUp_i)(PLXEmailFields&)) {
  MailPeer peer;
  peer.TakesMessage();
  PLXEmailFields fields = Fields(peer.Address());
  setUp_i(fields);
  Send(fields);
  return peer.Message();
}

// The files of the folder for failed mail, those of its outbox as "outbox/NAME".
std::set<std::string> NamesIn(std::filesystem::path const& folder_i) {
  std::set<std::string> names;
  std::error_code none;
  for (auto const& entry : std::filesystem::directory_iterator(folder_i, none)) {
    names.insert(entry.path().filename());
  }
  for (auto const& entry : std::filesystem::directory_iterator(folder_i.string() + ".outbox", none)) {
    names.insert("outbox" / entry.path().filename());
  }
  return names;
}
std::set<std::string> NamesIn(TemporaryFolder const& folder_i) { return NamesIn(folder_i / "FM"); }

TEST(PLXEmailMessage, IsHeaderEmptyLineAndBody) {
  EXPECT_EQ(Received([](PLXEmailFields&) {}),
            "From: ada@test.org\r\nTo: bob@test.org\r\nContent-Type: text/plain\r\n\r\nHello\r\n.\r\n");
  EXPECT_EQ(Received([](PLXEmailFields& fields) {
              fields.subject = "Greetings";
              fields.replyTo = "eve@test.org";
              fields.contentHeader = "X-One: 1\r\nX-Two: 2";
              fields.attachments = "\r\n--part\r\n";
            }),
            "Subject: Greetings\r\nFrom: ada@test.org\r\nReply-To: eve@test.org\r\nTo: bob@test.org\r\n"
            "MIME-Version: 1.0\r\nContent-Type: multipart/mixed; "
            "boundary=\"PortableLayeredExchange_MIME_Multipart_Delimiter\"\r\n\r\n"
            "--PortableLayeredExchange_MIME_Multipart_Delimiter\r\nX-One: 1\r\nX-Two: 2\r\n\r\nHello\r\n"
            "\r\n--part\r\n\r\n--PortableLayeredExchange_MIME_Multipart_Delimiter--\r\n.\r\n");
}

TEST(PLXEmailMessage, NoValueBeginsALineOfItsOwn) {
  std::string const text = Received([](PLXEmailFields& fields) {
    fields.subject = "a\r\nBcc: eve@test.org\r\n\r\nbody";
    fields.replyTo = "b\nX: 1";
  });
  EXPECT_THAT(text, HasSubstr("Subject: a  Bcc: eve@test.org    body\r\n"));
  EXPECT_THAT(text, HasSubstr("Reply-To: b X: 1\r\n"));
  MailPeer peer;
  peer.TakesHello().Hears("MAIL FROM: <a  RSET>").Says("553 no").Hears("QUIT").Says("221 bye");
  PLXEmailFields fields = Fields(peer.Address());
  fields.from = "a\r\nRSET";
  Send(fields);
}

TEST(PLXEmailMessage, FoldsLongListsOnly) {
  PLXString header;
  AppendHeaderLine("To", Plx(std::string(990, 'x') + ",y,z"), header);
  EXPECT_EQ(Std(header), "To: " + std::string(990, 'x') + ",y,z\r\n") << "998 characters";
  header.Empty();
  AppendHeaderLine("To", Plx(std::string(990, 'x') + ",y,zz"), header);
  EXPECT_EQ(Std(header), "To: " + std::string(990, 'x') + ",y,\r\n zz\r\n");
  header.Empty();
  AppendHeaderLine("Subject", Plx(std::string(1500, 'x') + " y"), header);
  EXPECT_EQ(Std(header), "Subject: " + std::string(1500, 'x') + "\r\n y\r\n");
}

TEST(PLXEmailAttachments, AreBase64PartsOrRawBytes) {
  MailPeer peer;
  peer.TakesMessage();
  PLXEmail email("", "");
  email.SetMailServer(Plx(peer.Address()));
  email.SetFrom("ada@test.org");
  email.AddTo(" \tbob@test.org\r\n");
  email.AddTo(" \r\n");
  PLXBufferStream data("ABCDEF", 6);
  email.AddAttachment(data, kAttachmentEncoding_Base64, "a\"b\r\nX: y.txt", 3);
  email.AddAttachment(data, kAttachmentEncoding_None, "", -1);
  email.AddAttachment(data, static_cast<AttachmentEncodingMechanism>(0), "", -1);
  ASSERT_TRUE(email.Send());
  EXPECT_THAT(peer.Message(),
              HasSubstr("\r\n--PortableLayeredExchange_MIME_Multipart_Delimiter\r\n"
                        "Content-Type: application/octet-stream; name=\"a'b  X: y.txt\"\r\n"
                        "Content-Transfer-Encoding: base64\r\n"
                        "Content-Disposition: attachment; filename=\"a'b  X: y.txt\"\r\n\r\nQUJDDEF\r\n"));
  EXPECT_TRUE(PLXEmailSendThread::WaitUntilAllEnded(20000));
}

TEST(PLXEmailSend, NeedsServerSenderAndRecipient) {
  for (char const* missing : {"server", "from", "to"}) {
    PLXEmail email("", "");
    if (std::string(missing) != "server") email.SetMailServer("127.0.0.1");
    if (std::string(missing) != "from") email.SetFrom("a@b.cd");
    if (std::string(missing) != "to") email.AddTo("a@b.cd");
    EXPECT_FALSE(email.Send()) << missing;
  }
}

// ---- The dialogue ----

// Sends to the peer, which does not take the message: it is stored and reported with this reason.
void ExpectFailure(MailPeer& peer_i, std::string reason_i) {
  TemporaryFolder const folder;
  ReportPeer report;
  std::string const address = peer_i.Address();
  if (reason_i == "unable") {
    reason_i = "Unable to connect to server (127.0.0.1:" + std::to_string(peer_i.Port()) + ")";
  }
  report.Hears("&Info=" + Encoded(reason_i));
  PLXEmailFields fields = Fields(address, folder / "FM", report.URL());
  Send(fields);
  std::set<std::string> const names = NamesIn(folder);
  ASSERT_EQ(names.size(), 1u);
  std::string const stored = folder.Read("FM/" + *names.begin());
  EXPECT_THAT(stored, HasSubstr("\nTo: bob@test.org\nContent-Type: text/plain\n\nHello\n.\n"));
  EXPECT_THAT(report.Heard(), HasSubstr("\r\n\r\nMessageID=" + *names.begin() + "&Status=F&SMTPServer=" +
                                        Encoded(address) + "&From=ada%40test.org&ReplyTo=&To=bob"));
}

TEST(PLXEmailDialogue, TellsWhatTheServerRefused) {
  struct Row {
    char const* why;
    void (*script)(MailPeer&);
    char const* reason;
  } const rows[] = {
      {"no QUIT after a refused greeting", [](MailPeer& peer) { peer.Says("554 no"); },
       "554- Transaction Failed"},
      {"another greeting is left politely",
       [](MailPeer& peer) { peer.Says("250 what").Hears("QUIT").Says("221 bye"); }, "250- Unexpected Reply"},
      {"no greeting at all", [](MailPeer& peer) { peer.Drops(); }, "unable"},
      {"a greeting without a number",
       [](MailPeer& peer) { peer.Says("hello").Hears("QUIT").Says("221 bye"); }, "unable"},
      {"a login is wanted",
       [](MailPeer& peer) {
         peer.TakesHello()
             .Hears("MAIL FROM: <ada@test.org>")
             .Says("530 who are you")
             .Hears("QUIT")
             .Says("221");
       },
       "530- Unexpected Reply"},
      {"no QUIT after a refused recipient",
       [](MailPeer& peer) { peer.TakesSender().Hears("RCPT TO: <bob@test.org>").Says("550 no"); },
       "550- Mailbox Unavailable"},
      {"the message is not sent to who did not ask for it",
       [](MailPeer& peer) { peer.TakesRecipient().Hears("DATA").Says("250 ok").Hears("QUIT").Says("221"); },
       "250- Unexpected Reply"},
      {"the message itself, and QUIT once more",
       [](MailPeer& peer) { peer.HearsMessage().Says("552 too much").Hears("QUIT").Says("221 bye"); },
       "552- Insufficient System Storage"},
      {"a reply counts although the connection breaks behind it",
       [](MailPeer& peer) { peer.HearsMessage().Says("554 no").Resets(); }, "554- Transaction Failed"},
      {"complaints never end",
       [](MailPeer& peer) { peer.HearsMessage().Says("451 a").Hears("QUIT").Says("421 b"); },
       "451- Local Processing Error421- Service Not Available"},
      {"a strange reply to the message",
       [](MailPeer& peer) { peer.HearsMessage().Says("354 more").Hears("QUIT").Says("221 bye"); },
       "354- Unexpected Reply"}};
  for (Row const& row : rows) {
    SCOPED_TRACE(row.why);
    MailPeer peer;
    row.script(peer);
    ExpectFailure(peer, row.reason);
  }
}

TEST(PLXEmailDialogue, BelievesAServerThatLeavesBehindItsReply) {
  TemporaryFolder const folder;
  MailPeer peer;
  peer.TakesMessage().Resets();
  Send(Fields(peer.Address(), folder / "FM"));
  EXPECT_EQ(NamesIn(folder), std::set<std::string>{});
}

// ---- What failed ----

TEST(PLXEmailFailures, AreHeldWhileNoDiskTakesThem) {
  TemporaryFolder const folder;
  ReportPeer report;
  report.Hears("&Info=" + Encoded("DNS lookup failed (no.such.host.invalid)"));
  PLXEmailFields fields = Fields("no.such.host.invalid", folder / "taken" / "FM", report.URL());
  folder.Write("taken", "a file where the folder is to be");
  auto* const thread = new PLXEmailSendThread(fields);
  EXPECT_FALSE(thread->Keep());
  ASSERT_TRUE(thread->Start());
  report.Heard();
  std::filesystem::remove(folder / "taken");
  std::filesystem::create_directory(folder / "taken");
  // From here on nobody waits to report again.
  EXPECT_TRUE(PLXEmailSendThread::WaitUntilAllSent(10000));
  EXPECT_EQ(NamesIn(folder / "taken" / "FM").size(), 1u);
}

TEST(PLXEmailFailures, HaveNamesOfTheirOwn) {
  TemporaryFolder const folder;
  RefusedPort const nobody;
  PLXEmailFields fields =
      Fields(nobody.Address(), folder / "new" / "FM", Plx("http://" + nobody.Address() + "/"));
  PLXEmailSendThread::WaitUntilAllSent(0);
  for (int count = 0; count < 40; ++count) {
    auto* const thread = new PLXEmailSendThread(fields);
    ASSERT_TRUE(thread->Start());
  }
  ASSERT_TRUE(PLXEmailSendThread::WaitUntilAllEnded(60000));
  std::set<std::string> const names = NamesIn(folder / "new" / "FM");
  EXPECT_EQ(names.size(), 80u) << "each message, and in the outbox that nobody heard of it";
  for (std::string const& name : names) {
    EXPECT_THAT(name, testing::MatchesRegex("(outbox/)?msg[0-9]+"));
    EXPECT_LE(name.size(), 25u + std::string_view("outbox/").size());
    EXPECT_EQ(names.count(name.starts_with('o') ? name.substr(7) : "outbox/" + name), 1u);
  }
}

// ---- What is not settled ----

// Entries as another process would find them.
std::vector<std::string> Abandoned(TemporaryFolder const& folder_i, bool isSettled_i) {
  std::vector<std::string> entries;
  PLXOutbox(Plx(folder_i / "FM")).SettleAbandoned([&](PLXOutbox::Entry const& entry) {
    entries.push_back(Std(entry.name) + ' ' + Std(entry.outcome) + ' ' + Std(entry.message));
    return isSettled_i;
  });
  return entries;
}

TEST(PLXOutbox, HoldsAMessageFromTheHandoverToTheReport) {
  TemporaryFolder const folder;
  MailPeer peer;
  peer.TakesMessage();
  PLXEmailFields fields = Fields(peer.Address());
  fields.message = ".Hello";
  fields.failedMailFolder = Plx(folder / "FM");
  fields.callbackURL = "http://127.0.0.1:9/";
  auto thread = std::make_unique<PLXEmailSendThread>(fields);
  EXPECT_TRUE(thread->Keep());
  EXPECT_EQ(NamesIn(folder).size(), 1u);
  EXPECT_TRUE(Abandoned(folder, true).empty()) << "somebody holds it";
  thread.reset();  // as if its process had died
  std::vector<std::string> entries = Abandoned(folder, false);
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_THAT(entries[0],
              testing::MatchesRegex("msg[0-9]+ Status=F&SMTPServer=.*&From=ada.*Info=Interrupted.*"));
  EXPECT_THAT(entries[0], testing::EndsWith("To: bob@test.org\nContent-Type: text/plain\n\n..Hello\n.\n"));
  EXPECT_EQ(Abandoned(folder, true), entries);
  EXPECT_TRUE(NamesIn(folder).empty());

  Send(fields);
  EXPECT_THAT(peer.Message(), HasSubstr("\r\n\r\n..Hello\r\n.\r\n"));
  EXPECT_TRUE(NamesIn(folder).empty()) << "what was delivered leaves no trace";
}

TEST(PLXOutbox, ForgetsHalfAnEntryAndKeepsWhatItCannotRead) {
  TemporaryFolder const folder;
  std::filesystem::create_directory(folder / "FM.outbox");
  folder.Write("FM.outbox/.plx-0123456789abcdef", "Status=F");
  folder.Write("FM.outbox/msg1", "no end of a line");
  folder.Write("FM.outbox/notes", "a=b\n");
  EXPECT_TRUE(Abandoned(folder, true).empty());
  EXPECT_EQ(NamesIn(folder), (std::set<std::string>{"outbox/msg1", "outbox/notes"}));
}

TEST(PLXEmailFailures, AreReportedUntilSomebodyListens) {
  TemporaryFolder const folder;
  RefusedPort const nobody;
  ReportPeer report;
  report.Hears("&Info=" + Encoded("DNS lookup failed (no.such.host.invalid)"), "503 Busy");
  report.AcceptsNext();
  report.Hears("&Info=" + Encoded("DNS lookup failed (no.such.host.invalid)"), "502 Bad Gateway");
  report.AcceptsNext();
  report.Hears("&Info=" + Encoded("DNS lookup failed (no.such.host.invalid)"));
  PLXEmailFields fields = Fields("no.such.host.invalid", folder / "FM", report.URL());
  Send(fields);
  EXPECT_EQ(NamesIn(folder).size(), 1u);
}

// A stored message as it lies in its file.
constexpr char kStored[] =
    "Subject: Old\nDate: long ago\nFrom: old@test.org\nTo: a@test.org,\n b@test.org\nCC: c@test.org\n"
    "Content-Type: text/plain\n\nSubject: of the body\n..dot\n...\n8-bit \xE4 and\0zero\n.\n";
constexpr char kSentAgain[] =
    "From: ada@test.org\r\nTo: bob@test.org\r\nContent-Type: text/plain\r\n\r\nSubject: of the body\r\n"
    "..dot\r\n...\r\n8-bit \xE4 and\0zero\r\n.\r\n";

TEST(PLXEmailResend, SendsTheBodyUnderAFreshHeader) {
  TemporaryFolder const folder;
  folder.Write("FM/msg1", std::string(kStored, sizeof kStored - 1));
  MailPeer peer;
  ReportPeer report;
  peer.TakesMessage();
  report.Hears("MessageID=msg1&Status=S");
  PLXEmailFields fields = Fields(peer.Address());
  fields.message.Empty();
  fields.failedMailFolder = Plx(folder / "FM");
  fields.messageID = "msg1";
  fields.callbackURL = report.URL();
  Send(fields);
  EXPECT_EQ(peer.Message(), std::string(kSentAgain, sizeof kSentAgain - 1));
  EXPECT_EQ(NamesIn(folder).size(), 0u);
}

TEST(PLXEmailResend, KeepsTheMessageUntilItIsTaken) {
  TemporaryFolder const folder;
  folder.Write("FM/msg1", std::string(kStored, sizeof kStored - 1));
  RefusedPort const nobody;
  std::string first;
  for (int attempt = 0; attempt < 10; ++attempt) {
    ReportPeer report;
    report.Hears("&Info=" +
                 Encoded("Unable to connect to server (127.0.0.1:" + std::to_string(nobody.Port()) + ")"));
    PLXEmailFields fields = Fields(nobody.Address(), folder / "FM", report.URL());
    fields.messageID = "msg1";
    Send(fields);
    std::string const stored = folder.Read("FM/msg1");
    std::string const body = stored.substr(stored.find("\n\n"));
    if (attempt == 0) first = body;
    EXPECT_EQ(body, first) << "dots do not grow";
  }
  std::string const stored(kStored, sizeof kStored - 1);
  EXPECT_EQ(first, stored.substr(stored.find("\n\n")));
  EXPECT_THAT(folder.Read("FM/msg1"), HasSubstr("From: ada@test.org\nTo: bob@test.org\nContent-Type"));
}

TEST(PLXEmailResend, NeverReplacesWhatItCouldNotRead) {
  TemporaryFolder const folder;
  folder.Write("FM/msg1", "Subject: cut\n\nno end");
  RefusedPort const nobody;
  MailPeer peer;
  peer.TakesMessage();
  PLXEmailSendThread::WaitUntilAllSent(0);  // from here on nobody waits to report again
  for (bool const isTaken : {false, true}) {
    PLXEmailFields fields = Fields(isTaken ? peer.Address() : nobody.Address(), folder / "FM",
                                   Plx("http://" + nobody.Address() + "/"));
    fields.messageID = "msg1";
    Send(fields);
    EXPECT_EQ(folder.Read("FM/msg1"), "Subject: cut\n\nno end");
  }
}

// Near the end: from here on this process counts as one that is about to leave.
TEST(PLXEmailSendThread, BreaksOffWhatNeverEnds) {
  TemporaryFolder const folder;
  RefusedPort const nobody;
  MailPeer peer;
  peer.Greets().HearsHello().IsLeft();
  PLXEmailFields fields = Fields(peer.Address(), folder / "FM", Plx("http://" + nobody.Address() + "/"));
  auto* const thread = new PLXEmailSendThread(fields);
  ASSERT_TRUE(thread->Start());
  EXPECT_TRUE(PLXEmailSendThread::WaitUntilAllSent(2000));
  EXPECT_EQ(NamesIn(folder).size(), 2u) << "stored, and in the outbox that nobody heard of it";
}

}  // namespace
