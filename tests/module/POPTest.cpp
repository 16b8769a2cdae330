#include <gtest/gtest.h>

#include "NetworkModuleLibrary.h"
#include "ScriptedPeer.h"
#include "SimulatedHost.h"

namespace {

// A page with one plxPOP tag; its database has all fields and no records unless a test says otherwise.
struct CollectingPage : SimulatedHost {
  explicit CollectingPage(std::string const& mailServer_i) {
    tag = "plxPOP";
    tagParameters = {
        {"username", "ada"}, {"password", "pw"}, {"mailServer", mailServer_i}, {"databaseName", "Mail"}};
    texts[kPLXSupport_VerifyRegionContainsFile] = "/tmp/plx-no-such-folder";
    texts[kPLXSupport_GetRegionDataFolderPath] = "/dev/null/POP";  // where nothing can be made
    numbers[kPLXDatabase_GetFieldCount] = 19;
  }
  PLXUInt32 Process() { return GetNetworkModuleEntry()(Event(kPLXEvent_Tag)); }
  std::string Count() { return pageVariables["plxPOP_ResultCount"]; }
};

ScriptedPeer& LogIn(ScriptedPeer& peer_io) {
  return peer_io.Says("+OK").Hears("USER ada").Says("+OK").Hears("PASS pw").Says("+OK").Hears("UIDL");
}

}  // namespace

TEST(POP, GivesANewDatabaseItsFields) {
  ScriptedPeer peer;
  LogIn(peer).Sends("+OK\r\n.\r\n").Hears("QUIT").Says("+OK");
  CollectingPage page(peer.Address());
  page.numbers[kPLXDatabase_GetFieldCount] = 1;
  for (int field = 0; field < 19; ++field) page.ScriptFailure(kPLXDatabase_GetFieldInfo);
  EXPECT_EQ(page.Process(), 0u);
  std::string added;
  std::string modes;
  for (SimulatedHost::Call const& call : page.calls) {
    char word[16];
    std::snprintf(word, sizeof word, " %08X", call.words.empty() ? 0 : call.words.back());
    if (call.code == kPLXDatabase_AddField) added += call.texts.front() + word + "\n";
    if (call.code == kPLXDatabase_OpenDatabase) modes += word;
  }
  EXPECT_EQ(
      added,
      "Header 00070000\nMessage 00070000\nRead 00010000\nUnique ID 06060032\nTo 00070000\nFrom 00070000\n"
      "From Name 00070000\nFrom Email 00070000\nDate 00070000\nSubject 00070000\nSize 00070000\n"
      "Return-Path 00070000\nReceived 00070000\nX-Sender 00070000\nMessage-ID 00070000\n"
      "Mime-Version 00070000\nContent-Type 00070000\nStatus 00070000\nAttachmentFileNames 00070000\n");
  EXPECT_EQ(modes, " 00000002 00000003 00000002");
}

TEST(POP, TellsWhatTheDatabaseWouldNotDo) {
  struct {
    char const* why;
    PLXUInt32 request;
    char const* problem;
    std::size_t closed, terminated;
  } const rows[] = {
      {"no engine", kPLXDatabase_Initialize, "The database system could not be initialized.", 0, 0},
      {"no database", kPLXDatabase_OpenDatabase, "The database could not be opened.", 0, 1},
      {"a field is refused", kPLXDatabase_AddField, "The database could not be created.", 2, 1},
  };
  for (auto const& row : rows) {
    SCOPED_TRACE(row.why);
    CollectingPage page("127.0.0.1:1");
    page.numbers[kPLXDatabase_GetFieldCount] = 0;
    page.ScriptFailure(kPLXDatabase_GetFieldInfo);
    page.ScriptFailure(row.request);
    EXPECT_EQ(page.Process(), kPLXResult_GeneralError);
    EXPECT_EQ(page.problem, row.problem);
    EXPECT_EQ(page.remedy, "Please contact the webmaster to report this problem.");
    EXPECT_EQ(page.Count(), "0");
    EXPECT_EQ(page.CountCalls(kPLXDatabase_CloseDatabase), row.closed);
    EXPECT_EQ(page.CountCalls(kPLXDatabase_Terminate), row.terminated);
  }
}

// The peer hears no DELE, and goes on to be asked for the second message.
TEST(POP, DeletesNothingThatIsNotStored) {
  ScriptedPeer peer;
  LogIn(peer).Sends("+OK\r\n1 a\r\n2 b\r\n.\r\n");
  peer.Hears("RETR 1").Sends("+OK\r\nSubject: x\r\n\r\ntext\r\n.\r\n");
  peer.Hears("RETR 2").Sends("+OK\r\nSubject: y\r\n\r\ntext\r\n.\r\n").Hears("DELE 2").Says("+OK");
  peer.Hears("QUIT").Says("+OK");
  CollectingPage page(peer.Address());
  page.tagParameters.emplace_back("deleteMessagesOnServer", "true");
  page.ScriptFailure(kPLXDatabase_UpdateRecord);
  EXPECT_EQ(page.Process(), 0u);
  EXPECT_EQ(page.Count(), "1");
}

TEST(POP, EndsWithWhatTheDatabaseAnsweredLast) {
  ScriptedPeer peer;
  LogIn(peer).Sends("+OK\r\n1 a\r\n.\r\n").Hears("QUIT").Says("+OK");
  CollectingPage page(peer.Address());
  page.ScriptFailure(kPLXDatabase_AddRecord);
  page.Script(kPLXDatabase_MoveFirstRecord, {.result = 7});
  EXPECT_EQ(page.Process(), 7u);
  EXPECT_EQ(page.Count(), "0");
}
