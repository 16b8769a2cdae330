#include <array>
#include <csignal>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>

#include "NetworkModuleLibrary.h"
#include "ScriptedPeer.h"
#include "SimulatedHost.h"
#include "TemporaryFolder.h"

namespace {

using testing::HasSubstr;
typedef SimulatedHost::Pairs Pairs;

// "name=value;name=value", where a value may hold a "=".
Pairs Parsed(std::string const& text_i) {
  Pairs pairs;
  std::istringstream text(text_i);
  for (std::string pair; std::getline(text, pair, ';');) {
    std::size_t const end = pair.find('=');
    pairs.emplace_back(pair.substr(0, end), pair.substr(end + 1));
  }
  return pairs;
}

// A page at /dir/page.html with one plxSendMail tag, which has what it needs unless "absent" names it. Nobody
// listens at its mail server, so that a message that is sent lies in the folder of failed mail at once.
struct MailingPage : SimulatedHost {
  explicit MailingPage(std::string const& parameters_i = "", std::string const& preferences_i = "") {
    tag = "plxSendMail";
    action = "SendMail";
    body = "Hello";
    cgi["SCRIPT_NAME"] = "/dir/page.html";
    texts = {{kPLXSupport_GetVirtualHost, nobody.Address()},
             {kPLXSupport_GetRegionDataFolderPath, folder / "FM"},
             {kPLXSupport_GetURLParentFolderPath, folder.Path()},
             {kPLXDatabase_GetErrorInfo, "the disk is full"},
             {kPLXDatabase_GetFieldValue, "key"}};
    tagParameters = Parsed(parameters_i);
    for (auto const& pair : Parsed("mailServer=" + nobody.Address() + ";from=ada@test.org;to=bob@test.org")) {
      if (parameters_i.find("absent=" + pair.first) == parameters_i.npos) tagParameters.push_back(pair);
    }
    for (auto const& pair : Parsed(preferences_i)) preferences.insert(pair);
    numbers = {{kPLXDatabase_OpenDatabase, 7},
               {kPLXDatabase_GetFieldCount, 11},
               {kPLXSupport_GetTagParameterCount, static_cast<PLXUInt32>(tagParameters.size())}};
  }
  // Serves the event and waits until mail that it sent has failed or arrived.
  std::string Process(PLXUInt32 event_i = kPLXEvent_Tag) {
    PLXUInt32 const result = GetNetworkModuleEntry()(Event(event_i));
    SimulatedHost leaving;
    GetNetworkModuleEntry()(leaving.Event(kPLXEvent_Terminate));
    EXPECT_THAT(leaving.log, testing::IsEmpty());
    return result == 0 ? "done" : SpellCode(result);
  }
  // The message that was sent; empty when there is none.
  std::string Message() const {
    std::string text;
    std::error_code none;
    for (auto const& file : std::filesystem::directory_iterator(folder / "FM", none)) {
      text += folder.Read(file.path());
    }
    return text;
  }
  // What the module's action is told of the message, as it goes over the wire.
  std::string Report() {
    ScriptedPeer peer;
    peer.HearsThrough("&Info=").HearsThrough(")").Says("HTTP/1.0 200 OK").Says("");
    texts[kPLXSupport_GetVirtualHost] = peer.Address();
    EXPECT_EQ(Process(), "done");
    return peer.Heard();
  }
  // Each database that was opened is closed and the layer is left.
  void ExpectDatabaseIsLeft() const {
    std::map<PLXUInt32, int> done;
    for (Call const& call : calls) done[call.code] += call.result == 0 ? 1 : 0;
    EXPECT_EQ(done[kPLXDatabase_CloseDatabase], done[kPLXDatabase_OpenDatabase]);
    EXPECT_EQ(done[kPLXDatabase_Terminate], done[kPLXDatabase_Initialize]);
  }
  // The calls that search and change the log, each behind a bar.
  std::string Changes() const {
    std::string const codes = "MFAd MSEc MRCr MFSV MRAd MRUp MRDl";
    std::string changes;
    for (Call const& call : calls) {
      std::string const code = SpellCode(call.code);
      if (codes.find(code) != code.npos) changes += "|" + call.sent;
    }
    return changes;
  }

  TemporaryFolder folder;
  RefusedPort nobody;
};

}  // namespace

// ---- Sending ----

TEST(SendMail, ChecksAndWritesWhatThePageDescribes) {
  setenv("TZ", "XXX-7", 1);
  tzset();
  std::string const plain = "Content-Type: text/plain; charset=\"us-ascii\"\n\nHello\n.\n";
  std::string const html = "Content-Type: text/html; charset=\"us-ascii\"\n\nHello\n.\n";
  std::string const start = "\nFrom: ada@test.org\nTo: bob@test.org\n";
  std::string const addressRemedy = "Validate the email address before submitting to the sendmail tag.";
  std::string const offset = "returnGMTOffsetByDefault=Yes;gmtOffset=";
  struct {
    std::string parameters;
    std::string preferences;
    std::string result;
    std::string what;  // of the message, or what is wrong
  } const rows[] = {
      {"absent=mailServer", "", "MMRP", "mailServer"},
      {"mailServer=", "useMailServerName=byDefault;mailServerName=a.test", "MMRP", "mailServer"},
      {"absent=mailServer", "useMailServerName=other;mailServerName=a.test", "MMRP", "mailServer"},
      {"", "useMailServerName=always", "MMRP", "mailServer"},
      {"absent=from", "", "MMRP", "from"},
      {"absent=to;MODE=SENDmail", "", "MMRP", "to"},
      {"absent=to;to=;to= ;cc=a@b.cd", "", "MMRP", "to"},
      {"from=a@test.museum", "", "MInv", "from"},
      {"from=a b@test.org", "", "MInv", "from"},
      {"from=", "", "MInv", "from"},
      {"replyTo=a@b.org,c@d.org", "", "MInv", "replyTo"},
      {"from=a.b_c-1@x-1.test.info", "", "done", "\nFrom: a.b_c-1@x-1.test.info\n"},
      {"replyTo=a@b.cd;subject=Hi", "", "done", "\nReply-To: a@b.cd\nTo: bob@test.org\n" + plain},
      {"gmtOffset=12.5", "", "MIPV", ""},
      {"gmtOffset=many", offset + "13", "MIPV", ""},
      {"gmtOffset=many", offset + "3", "done", " +0300" + start},
      {"gmtOffset=many", "gmtOffset=3", "done", " +0700" + start},
      {"gmtOffset=12", offset + "13", "done", " +1200" + start},
      {"", "", "done", " +0700" + start + plain},
      {"SENDASHTML=T", "", "done", start + html},
      {"headerName=X;headerValue=1;sendAsHTML=yes", "", "done", start + "X: 1\n\nHello"},
      {"headerName=B;headerValue=2;HEADERNAME=A;HEADERVALUE=", "", "done", start + "B: 2\nA: \n\nHello"},
      {"headerName=lost;headerName=X;headerValue=1;headerValue=2", "", "done", start + "X: 1\n\nHello"},
      {"headerValue=lost;headerName=lost", "", "done", start + plain}};
  std::map<std::string, std::array<std::string, 3>> const problems = {
      {"MMRP", {"An &lt;plxSendMail&gt; tag was found but it is missing its &quot;", "&quot; parameter."}},
      {"MIPV", {"The GMT offset is invalid.", "", "Please provide a valid GMT offset."}},
      {"MInv", {"The ", " address is not a valid email address.", addressRemedy}}};
  for (auto const& row : rows) {
    SCOPED_TRACE(row.parameters + " " + row.preferences);
    MailingPage page(row.parameters, row.preferences);
    EXPECT_EQ(page.Process(), row.result);
    EXPECT_EQ(page.output, "");
    if (row.result == "done") {
      EXPECT_THAT(page.Message(), HasSubstr(row.what));
    } else {
      auto const& [before, after, remedy] = problems.at(row.result);
      EXPECT_EQ(page.Message() + page.problem, before + row.what + after);
      EXPECT_THAT(page.remedy, HasSubstr(remedy));
    }
  }
  unsetenv("TZ");
}

TEST(SendMail, FindsItsServerWhereThePreferenceSays) {
  RefusedPort const preferred;
  RefusedPort const given;
  for (std::string const use : {"never", "byDefault", "ALWAYS"}) {
    MailingPage page("to=eve@test.org;to=;bcc=a@b.cd;cc= c@d.ef ;mailServer=" + given.Address(),
                     "useMailServerName=" + use + ";mailServerName=" + preferred.Address());
    std::string const port = std::to_string(use == "ALWAYS" ? preferred.Port() : given.Port());
    EXPECT_THAT(page.Report(),
                AllOf(testing::StartsWith("POST /dir/SendMail HTTP/1."),
                      HasSubstr("&SMTPServer=127.0.0.1%3A" + port + "&From=ada%40test.org&ReplyTo=&"),
                      HasSubstr("&To=eve%40test.org,bob%40test.org&CC=c%40d.ef&BCC=a%40b.cd&Subject=&")));
  }
  MailingPage page("absent=mailServer", "useMailServerName=BYDEFAULT;mailServerName=" + preferred.Address());
  EXPECT_EQ(page.Process(), "done");
  EXPECT_NE(page.Message(), "");
}

TEST(SendMail, AttachesUntilAFileIsMissing) {
  std::string const file = "attachmentFileLocation=";
  MailingPage page(file + "1.txt;" + file + "gone.txt;" + file + "2.txt;attachmentData=a/b\"c\x7F\n" +
                   ";attachmentData=x/" + std::string(300, 'n'));
  for (char const* const name : {"1.txt", "2.txt"}) page.folder.Write(name, "ABC");
  page.body = "unix\nmac\rdos\r\nback\n\rend";  // CR LF each on the way, LF in what is stored
  EXPECT_EQ(page.Process(), "MFnF");
  EXPECT_EQ(page.problem + page.remedy, "File not found!Check to see if the file actually exists.");
  std::string const message = page.Message();
  for (std::string const& part :
       {std::string("1.txt\"\n\nQUJD"), std::string("\"b'c\"\n\nYS9iImN/Cg=="),
        "filename=\"" + std::string(255, 'n') + "\"\n", std::string("\n\nunix\nmac\ndos\nback\n\nend\n")}) {
    EXPECT_THAT(message, HasSubstr(part));
  }
  EXPECT_THAT(message, Not(HasSubstr("2.txt")));
}

TEST(SendMail, DoesNothingOnAPageWithoutAPlace) {
  for (char const* const mode : {"sendMail", "sendFailedMail", "admin"}) {
    MailingPage page(std::string("mode=") + mode);
    page.cgi["SCRIPT_NAME"] = "page.html";
    EXPECT_EQ(page.Process(), "done");
    EXPECT_EQ(page.output + page.problem + page.Message() + page.Changes(), "");
  }
}

TEST(SendMail, SendsTheFailedMessageAgain) {
  MailingPage page("mode=SENDFAILEDMAIL");
  page.folder.Write("FM/msg2451812700405", "Subject: a\n\nkept\n.\n");
  EXPECT_THAT(page.Report(), HasSubstr("\r\n\r\nMessageID=msg2451812700405&Status=F&SMTPServer=&From="));
  EXPECT_THAT(page.Message(), HasSubstr("\n\nkept\n.\n"));
  page.ExpectDatabaseIsLeft();
}

// ---- The log database ----

TEST(SendMailDatabase, TellsWhichStepFailed) {
  std::string const save = "plxSendMailAction=save;plxSendMailTo=a@b.cd";
  std::string const remove = "plxSendMailAction=DeleteMessage;plxSendMailConfirmation=YES";
  std::string const failed = "MessageID=msg12;Status=F";
  std::string const sent = "MessageID=msg12;Status=S";
  std::string const set = "set the field values in the";
  std::string const move = "move to the requested record in the";
  struct {
    PLXUInt32 failing;
    int good;  // answers before the failure
    std::string arguments;
    PLXUInt32 results;
    std::string action;
    char const* end = "";  // of the problem while the database is built
  } const rows[] = {{kPLXDatabase_Initialize, 0, "", 0, ""},
                    {kPLXDatabase_OpenDatabase, 0, "", 0, "open the"},
                    {kPLXDatabase_OpenDatabase, 1, "", 0, "open the", " for exclusive access"},
                    {kPLXDatabase_OpenDatabase, 2, "", 0, "open the", " for shared access"},
                    {kPLXDatabase_AddField, 9, "", 0, "create a record in the"},
                    {kPLXDatabase_ExecuteSearch, 0, "", 0, "search the"},
                    {kPLXDatabase_Jump, 0, "plxSendMailPage=9", 11, move},
                    {kPLXDatabase_SetFieldValue, 0, save, 0, set},
                    {kPLXDatabase_UpdateRecord, 0, save, 0, "update a record to the"},
                    {kPLXDatabase_DeleteRecord, 0, remove, 0, "delete the requested record from the"},
                    {kPLXDatabase_MoveFirstRecord, 0, sent, 1, move},
                    {kPLXDatabase_DeleteRecord, 0, sent, 1, "delete a record from the"},
                    {kPLXDatabase_SetFieldValue, 9, failed, 1, set},
                    {kPLXDatabase_UpdateRecord, 0, failed, 1, "update a record to the"},
                    {kPLXDatabase_CreateRecord, 0, failed, 0, "create a record in the"},
                    {kPLXDatabase_SetFieldValue, 10, failed, 0, set},
                    {kPLXDatabase_AddRecord, 0, failed, 0, "add a record to the"}};
  for (auto const& row : rows) {
    SCOPED_TRACE(testing::PrintToString(&row - rows));
    MailingPage page("mode=admin");
    page.postArguments = Parsed(row.arguments);
    page.numbers[kPLXDatabase_GetFieldCount] = 0;  // all are added first
    page.numbers[kPLXDatabase_GetResultCount] = row.results;
    for (int field = 0; field < 11; ++field) page.ScriptFailure(kPLXDatabase_GetFieldInfo);
    for (int answer = 0; answer < row.good; ++answer) page.Script(row.failing, {.answersToo = true});
    page.ScriptFailure(row.failing);
    bool const isAction = row.arguments.starts_with("MessageID");
    EXPECT_EQ(page.Process(isAction ? kPLXEvent_Action : kPLXEvent_Tag), "MOpF");
    EXPECT_EQ(page.problem, row.action.empty()
                                ? "The database system failed to initialize."
                                : "The database system was unable to " + row.action +
                                      " &quot;__PLXDB__SendMail_Log__&quot; database" + row.end + ".");
    EXPECT_EQ(page.remedy, &row == &rows[1]
                               ? "The database may be locked for exclusive use.  Try again in a few moments."
                               : "Contact the system administrator and report this problem.");
    Pairs log = {{"MLgE", page.problem}, {"MLgE", "the disk is full"}};
    log.resize(row.action.empty() ? 1 : 2);
    EXPECT_EQ(page.log, log);
    EXPECT_EQ(page.output, "");
    page.ExpectDatabaseIsLeft();
  }
}

TEST(SendMailDatabase, GetsTheFieldsThatItLacks) {
  MailingPage page("mode=admin");
  page.numbers[kPLXDatabase_GetFieldCount] = 1;
  page.Script(kPLXDatabase_GetFieldInfo, {});  // it has the first
  for (int field = 1; field < 11; ++field) page.ScriptFailure(kPLXDatabase_GetFieldInfo);
  EXPECT_EQ(page.Process(), "done");
  EXPECT_EQ(page.output, "No failed mail.");
  EXPECT_EQ(
      page.Changes(),
      "|MFAd 7 'Status' #2060001|MFAd 7 'Attempts' #2020000|MFAd 7 'SMTP Server' #70000|MFAd 7 'From' #70000"
      "|MFAd 7 'ReplyTo' #70000|MFAd 7 'To' #70000|MFAd 7 'CC' #70000|MFAd 7 'BCC' #70000"
      "|MFAd 7 'Subject' #70000|MFAd 7 'Info' #70000|MSEc 7 ''");
  page.ExpectDatabaseIsLeft();
}

// ---- The action ----

TEST(SendMailAction, KeepsTheLogOfWhatFailed) {
  std::string const search = "|MSEc 7 'Message ID = '12''";
  std::string const create = "|MRCr 7|MFSV 7 'Message ID' #20000000'12'";
  std::string const fields =
      "|MFSV 7 'Status' #20000000'F'|MFSV 7 'SMTP Server' #20000000's'|MFSV 7 'From' #20000000'f'"
      "|MFSV 7 'ReplyTo' #20000000'r'|MFSV 7 'To' #20000000'a,b'|MFSV 7 'CC' #20000000''"
      "|MFSV 7 'BCC' #20000000'b'|MFSV 7 'Subject' #20000000'j'|MFSV 7 'Info' #20000000'no'";
  struct {
    char const* arguments;
    PLXUInt32 results;
    std::string changes;
  } const rows[] = {
      {"Status=F", 0, ""},
      {"MessageID=12' or '1'='1;Status=F", 0, ""},
      {"MessageID=msg12", 1, ""},
      {"MessageID=msg12;Status=S", 0, search},
      {"MessageID=msg12;Status=X", 0, search},
      {"MessageID=12;Status=S", 1, search + "|MRDl 7 #20000000'key'"},
      {"MessageID=MSG12;Status=F", 0,
       search + create + "|MFSV 7 'Attempts' #40000000/4=1" + fields + "|MRAd 7"},
      {"MessageID=msg12;Status=F", 1, search + "|MFSV 7 'Attempts' #40000000/4=4" + fields + "|MRUp 7"}};
  for (auto const& row : rows) {
    SCOPED_TRACE(row.arguments);
    MailingPage page;
    page.postArguments =
        Parsed(std::string("SMTPServer=s;From=f;ReplyTo=r;To=a,b;BCC=b;Info=no;Subject=j;") + row.arguments);
    page.numbers[kPLXDatabase_GetResultCount] = row.results;
    page.fieldValue = 3;
    EXPECT_EQ(page.Process(kPLXEvent_Action), "done");
    EXPECT_EQ(page.Changes(), row.changes);
    EXPECT_EQ(page.output + page.problem, "");
    page.ExpectDatabaseIsLeft();
  }
}

// Entries that a process left behind which ended before their outcome was recorded.
TEST(SendMailOutbox, IsSettledBeforeTheListIsShown) {
  std::string const failure = "Status=F&SMTPServer=s&From=f&ReplyTo=r&To=a%2Cb&CC=&BCC=b&Subject=j&Info=no";
  std::string const search = "|MSEc 7 'Message ID = '12''";
  std::string const create = "|MRCr 7|MFSV 7 'Message ID' #20000000'12'|MFSV 7 'Attempts' #40000000/4=1";
  struct {
    char const* name;
    std::string entry;
    bool isStored;  // in the folder of failed mail
    PLXUInt32 results;
    std::string changes;  // what they begin with
    std::string left;
  } const rows[] = {
      {"interrupted", failure + "\nthe message\n.\n", false, 0, search + create, "stored "},
      {"not reported", failure + "\n", true, 0, search + create, "stored "},
      {"failed again", failure + "\n", true, 1, search + "|MFSV 7 'Attempts' #40000000/4=4", "stored "},
      {"deleted since", failure + "\n", false, 0, "", ""},
      {"sent", "Status=S\n", true, 1, search + "|MRDl 7 #20000000'key'", ""},
      {"unreadable", "what?\n", true, 1, "", "stored unsettled"}};
  for (auto const& row : rows) {
    SCOPED_TRACE(row.name);
    MailingPage page("mode=admin");
    std::filesystem::create_directories(page.folder / "FM");
    std::filesystem::create_directories(page.folder / "FM.outbox");
    page.folder.Write("FM.outbox/msg12", row.entry);
    if (row.isStored) page.folder.Write("FM/msg12", "the message\n.\n");
    page.numbers[kPLXDatabase_GetResultCount] = row.results;
    page.fieldValue = 3;
    EXPECT_EQ(page.Process(), "done");
    std::string const changes = page.Changes();
    if (row.changes.empty()) {
      EXPECT_EQ(changes, "|MSEc 7 ''") << "only the list";
    } else {
      EXPECT_THAT(changes, testing::StartsWith(row.changes));
    }
    bool const isStored = std::filesystem::exists(page.folder / "FM/msg12");
    bool const isUnsettled = std::filesystem::exists(page.folder / "FM.outbox/msg12");
    EXPECT_EQ(std::string(isStored ? "stored " : "") + (isUnsettled ? "unsettled" : ""), row.left);
    EXPECT_EQ(page.folder.Read("FM/msg12"), isStored ? "the message\n.\n" : "");
  }
}

TEST(SendMailActionDeathTest, TakesTwoRecordsOfAMessageForAFault) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  MailingPage page;
  page.postArguments = Parsed("MessageID=msg12;Status=S");
  page.numbers[kPLXDatabase_GetResultCount] = 2;
  EXPECT_EXIT(
      GetNetworkModuleEntry()(page.Event(kPLXEvent_Action)), testing::KilledBySignal(SIGABRT),
      testing::StrEq("\tFILE: \"network/SendMail.tag\"\nSTATE ASSERTION FAILURE: resultsCount <= 1\n"));
}

// ---- Preferences ----

TEST(SendMailPreferences, ShowWhatIsStored) {
  std::string const help =
      "The <i>Never</i> option will require a value to always be passed in the mailServer parameter of the "
      "&lt;plxSendMail&gt; tag.<br><br>The <i>By default</i> option will use the above value for the "
      "mailServer parameter if it is not defined in the &lt;plxSendMail&gt; tag.<br><br>The <i>Always</i> "
      "option will use the above value for the mailServer parameter of the &lt;plxSendMail&gt; tag, even if "
      "it is defined in the tag's parameter list.";
  for (bool const isStored : {false, true}) {
    MailingPage page("", isStored ? "useMailServerName=ALWAYS;mailServerName=\"<x>;gmtOffset=-5.5;"
                                    "returnGMTOffsetByDefault=yes"
                                  : "useMailServerName=x;gmtOffset=x");
    EXPECT_EQ(page.Process(kPLXEvent_GetPreferences), "done");
    for (std::string const& part :
         {help, std::string(isStored ? "selected>Always<" : "selected>Never<"),
          std::string("</select> use <input "),
          std::string(isStored ? "\"&quot;&lt;x&gt;\"> as the mail server." : "\"\"> as the mail server."),
          std::string(isStored ? " CHECKED>Return the date and" : "\"yes\">Return the date and"),
          std::string(isStored ? "\"-5.5\" selected>" : "\"0\" selected>"),
          std::string(">12</option></select> hours "), std::string(">-12<")}) {
      EXPECT_THAT(page.output, HasSubstr(part));
    }
  }
}

TEST(SendMailPreferences, StoreWhatTheFormSays) {
  std::string const names[] = {"UseMailServerName", "mailServerName", "UseGMT", "GMTOffset"};
  std::string const stored[] = {"useMailServerName", "mailServerName", "returnGMTOffsetByDefault",
                                "gmtOffset"};
  std::string const rows[][8] = {{"always", " a.test\r\n", "yes", "-5.50", "always", "a.test", "yes", "-5.5"},
                                 {"byDefault", "", "on", "12", "byDefault", "", "yes", "12"},
                                 {"other", "x", "perhaps", "12.5", "never", "x", "no", "0"},
                                 {"", "x", "", "many", "never", "x", "no", "0"}};
  for (auto const& row : rows) {
    MailingPage page;
    for (int index = 0; index < 4; ++index) {
      page.postArguments.emplace_back("plxSendMailPreference_" + names[index], row[index]);
    }
    EXPECT_EQ(page.Process(kPLXEvent_SetPreferences), "done");
    for (int index = 0; index < 4; ++index) EXPECT_EQ(page.preferences[stored[index]], row[4 + index]);
  }
}
