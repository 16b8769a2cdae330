#include <csignal>
#include <cstdio>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <thread>

#include "NetworkModuleLibrary.h"
#include "SimulatedHost.h"

namespace {

PLXUInt32 Send(SimulatedHost& host_io, PLXUInt32 eventCode_i) {
  return GetNetworkModuleEntry()(host_io.Event(eventCode_i));
}

// A call in one line: code, texts in, word.
std::vector<std::string> Lines(SimulatedHost const& host_i) {
  std::vector<std::string> lines;
  for (SimulatedHost::Call const& call : host_i.calls) {
    std::string line = SpellCode(call.code);
    for (std::string const& text : call.texts) line += " [" + text + "]";
    if (!call.words.empty() && call.words.back() != 0) line += " " + std::to_string(call.words.back());
    lines.push_back(line);
  }
  return lines;
}

std::string GetExportedSymbols() {
  std::unique_ptr<FILE, int (*)(FILE*)> const pipe(popen("nm -D --defined-only '" PLX_MODULE_FILE "'", "r"),
                                                   pclose);
  std::string symbols;
  char name[512];
  while (pipe != nullptr && fscanf(pipe.get(), "%*s %*s %511s", name) == 1)
    symbols += std::string(name) + "\n";
  return symbols;
}

// An include without its url: a tag that answers at once, and differently when it is disabled.
PLXUInt32 const ourRanResult = kPLXResult_MissingRequiredParameter;

}  // namespace

TEST(NetworkModule, ExportsItsEntryAlone) { EXPECT_EQ(GetExportedSymbols(), "ProcessPLXRequest\n"); }

TEST(NetworkModule, AnnouncesItselfInOrder) {
  SimulatedHost host;
  EXPECT_EQ(Send(host, kPLXEvent_Initialize), 0u);
  EXPECT_EQ(Lines(host),
            (std::vector<std::string>{"MRMN [Network Module]", "MRMV [3.1.7]", "MRMA [PLX Project]",
                                      "MRVt []", "MRfT [plxEmailClient] 32", "MRfT [plxIncludeHTTP] 32",
                                      "MRfT [plxPOP] 32", "MRfT [plxSendMail] 16", "MRfA [SendMail]"}));
}

TEST(NetworkModule, AnnouncesTheRestWhenOneCallFails) {
  SimulatedHost whole;
  Send(whole, kPLXEvent_Initialize);
  for (std::size_t failing = 0; failing < whole.calls.size(); ++failing) {
    SCOPED_TRACE(failing);
    SimulatedHost host;
    // Calls of the same code before the failing one are answered well.
    for (std::size_t index = 0; index <= failing; ++index) {
      if (whole.calls[index].code != whole.calls[failing].code) continue;
      host.Script(whole.calls[index].code, {.result = index == failing ? kPLXResult_GeneralError : 0});
    }
    EXPECT_EQ(Send(host, kPLXEvent_Initialize), kPLXResult_Unknown);
    EXPECT_EQ(Lines(host), Lines(whole));
  }
}

TEST(NetworkModule, KeepsTheNameThatTheServerGaveToItsAction) {
  SimulatedHost renaming;
  renaming.texts[kPLXSupport_RegisterForAction] = "A much longer name than SendMail has, of two tries";
  EXPECT_EQ(Send(renaming, kPLXEvent_Initialize), 0u);
  SimulatedHost host;
  host.texts[kPLXSupport_RegisterForAction] = "SendMail";
  EXPECT_EQ(Send(host, kPLXEvent_Initialize), 0u);
  EXPECT_EQ(Lines(host).back(), "MRfA [A much longer name than SendMail has, of two tries]");
}

TEST(NetworkModule, LeavesTheServerAloneOnOtherEvents) {
  struct {
    PLXUInt32 event;
    PLXUInt32 result;
  } const rows[] = {{kPLXEvent_Terminate, 0},
                    {PLXCode("XXXX"), kPLXResult_EventNotHandled},
                    {0, kPLXResult_EventNotHandled}};
  for (auto const& row : rows) {
    SimulatedHost host;
    EXPECT_EQ(Send(host, row.event), row.result);
    EXPECT_TRUE(host.calls.empty());
  }
}

TEST(NetworkModuleTag, RunsUnlessItsSwitchSaysNo) {
  struct {
    char const* why;
    char const* tag;
    std::map<std::string, std::string> preferences;
    PLXUInt32 result;
  } const rows[] = {
      {"nothing is stored", "plxIncludeHTTP", {}, ourRanResult},
      {"on", "plxIncludeHTTP", {{"plxIncludeHTTP", "yes"}}, ourRanResult},
      {"off", "plxIncludeHTTP", {{"plxIncludeHTTP", "no"}}, 0},
      {"only no itself is off", "plxIncludeHTTP", {{"plxIncludeHTTP", "No"}}, ourRanResult},
      {"another tag is off", "plxIncludeHTTP", {{"plxPOP", "no"}}, ourRanResult},
      {"letter case does not count in a tag", "PLXincludeHTTP", {}, ourRanResult},
      {"nor does it get round the switch", "PLXincludeHTTP", {{"plxIncludeHTTP", "no"}}, 0},
      {"accepted without being announced", "plxFTP", {}, 0},
      {"not ours", "plxRecords", {}, 0},
      {"the start of one of ours", "plxInclude", {}, 0},
      {"no name", "", {}, 0},
  };
  for (auto const& row : rows) {
    SCOPED_TRACE(row.why);
    SimulatedHost host;
    host.tag = row.tag;
    host.preferences = row.preferences;
    EXPECT_EQ(Send(host, kPLXEvent_Tag), row.result);
    EXPECT_EQ(host.output, "");
    EXPECT_EQ(host.CountCalls(kPLXSupport_WriteToServer), 0u);
    EXPECT_EQ(host.problem.empty(), row.result == 0);
  }
}

TEST(NetworkModuleAction, IsNoErrorWhateverItsName) {
  for (char const* const action : {"sendmail", "Other", ""}) {
    SimulatedHost host;
    host.action = action;
    EXPECT_EQ(Send(host, kPLXEvent_Action), 0u);
    EXPECT_EQ(host.output, "");
  }
}

TEST(NetworkModulePreferences, ShowABoxForEachTag) {
  SimulatedHost host;
  host.preferences = {{"plxPOP", "no"},
                      {"plxSendMail", "Yes"}};  // neither "yes" nor "no": runs, but unchecked
  EXPECT_EQ(Send(host, kPLXEvent_GetPreferences), 0u);
  EXPECT_THAT(
      host.output,
      testing::StartsWith(
          "<table width=\"100%\" border=\"2\" cellspacing=\"1\" cellpadding=\"4\" align=\"center\">"
          "\r\n<tr>\r\n<td>"
          "\r\n<table width=\"95%\" border=\"0\" cellspacing=\"0\" cellpadding=\"1\" align=\"center\">"
          "\r\n<tr><td colspan=\"3\">Deselect any PLX tags that should be disabled for this "
          "region.<br><br></td></tr>"
          "\r\n<tr>"
          "<td width=\"33%\"><input type=\"checkbox\" name=\"plxEmailClient\" value=\"yes\" "
          "CHECKED>plxEmailClient</td>"
          "<td width=\"33%\"><input type=\"checkbox\" name=\"plxIncludeHTTP\" value=\"yes\" "
          "CHECKED>plxIncludeHTTP</td>"
          "<td width=\"33%\"><input type=\"checkbox\" name=\"plxPOP\" value=\"yes\">plxPOP</td></tr>"
          "\r\n<tr><td width=\"33%\"><input type=\"checkbox\" name=\"plxSendMail\" "
          "value=\"yes\">plxSendMail</td>"
          "<td width=\"33%\">&nbsp;</td><td width=\"33%\">&nbsp;</td></tr>"
          "\r\n</table>\r\n</td>\r\n</tr>\r\n<tr>\r\n<td>"));
  EXPECT_THAT(host.output, testing::EndsWith("\r\n</td>\r\n</tr>\r\n</table>"));
}

TEST(NetworkModulePreferences, StoreWhatIsSwitchedOff) {
  SimulatedHost host;
  host.preferences = {{"plxSendMail", "no"}, {"plxIncludeHTTP", "yes"}, {"other", "stays"}};
  host.postArguments = {{"plxSendMail", "yes"}, {"plxEmailClient", "no"}, {"plxPOP", ""}};
  EXPECT_EQ(Send(host, kPLXEvent_SetPreferences), 0u);
  EXPECT_THAT(host.preferences,
              testing::IsSupersetOf(std::map<std::string, std::string>{
                  {"plxEmailClient", "no"}, {"plxIncludeHTTP", "no"}, {"plxPOP", "no"}, {"other", "stays"}}));
  EXPECT_FALSE(host.preferences.contains("plxSendMail"));
  EXPECT_EQ(host.output, "");
}

TEST(NetworkModuleEntry, LetsNoExceptionOut) {
  SimulatedHost host;
  host.Script(kPLXSupport_GetTag, {.throws = true});
  EXPECT_EQ(Send(host, kPLXEvent_Tag), kPLXResult_GeneralError);
  EXPECT_EQ(host.log,
            (SimulatedHost::Pairs{{"MLgE", "Network Module: the event ended early: the host threw"}}));
  host.Script(kPLXSupport_GetTag, {.throws = true});
  host.Script(kPLXSupport_WriteToLog, {.throws = true});
  EXPECT_EQ(Send(host, kPLXEvent_Tag), kPLXResult_GeneralError) << "whatever the log does";
}

TEST(NetworkModuleEntryDeathTest, AssertsWhatItCannotDoWithout) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  PLXModuleEntryPtr const entry = GetNetworkModuleEntry();
  SimulatedHost host;
  _PLXAPI_ModuleProcessingInfo const whole = *host.Event(kPLXEvent_Terminate);
  auto const text = [](char const* what_i) {
    return testing::StrEq(std::string("\tFILE: \"network/NetworkModule.cpp\"\nNULL POINTER ASSERTION: ") +
                          what_i + "\n");
  };
  _PLXAPI_ModuleProcessingInfo nameless = whole;
  nameless.connID_i = nullptr;
  nameless.PLXServerSupportFunction = nullptr;
  _PLXAPI_ModuleProcessingInfo mute = whole;
  mute.PLXServerSupportFunction = nullptr;
  testing::KilledBySignal const aborted(SIGABRT);
  EXPECT_EXIT(entry(nullptr), aborted, text("processingInfo"));
  EXPECT_EXIT(entry(&nameless), aborted, text("processingInfo->connID_i"));
  EXPECT_EXIT(entry(&mute), aborted, text("processingInfo->PLXServerSupportFunction"));
}

// Constants are shared by all events; under the thread sanitizer a count among them shows.
TEST(NetworkModuleEntry, ServesManyThreadsAtOnce) {
  SimulatedHost announcing;
  ASSERT_EQ(Send(announcing, kPLXEvent_Initialize), 0u);
  SimulatedHost reference;
  Send(reference, kPLXEvent_GetPreferences);
  auto const serve = [&reference] {
    for (int round = 0; round < 200; ++round) {
      SimulatedHost host;
      host.tag = "plxIncludeHTTP";
      host.action = "SendMail";
      EXPECT_EQ(Send(host, kPLXEvent_Tag), ourRanResult);
      EXPECT_EQ(Send(host, kPLXEvent_Action), 0u);
      EXPECT_EQ(Send(host, kPLXEvent_GetPreferences), 0u);
      EXPECT_EQ(host.output, reference.output);
      EXPECT_EQ(Send(host, kPLXEvent_SetPreferences), 0u);
      EXPECT_EQ(host.preferences.at("plxPOP"), "no");
      EXPECT_EQ(Send(host, kPLXEvent_Tag), 0u);
    }
  };
  std::vector<std::thread> threads;
  for (int index = 0; index < 8; ++index) threads.emplace_back(serve);
  for (std::thread& thread : threads) thread.join();
}
