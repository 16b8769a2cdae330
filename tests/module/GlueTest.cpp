#include <gtest/gtest-spi.h>

#include "GlueRows.h"

namespace {

void Furnish(SimulatedHost& host_o) {
  host_o.tag = "plxSendMail";
  host_o.body = "Dear all";
  host_o.action = "SendMail";
  host_o.tagParameters = {{"to", "ada"}, {"TO", "bob"}};
  host_o.pathArguments = {{"page", "1"}, {"page", "2"}};
  host_o.postArguments = {{"name", "eve"}, {"name", "joe"}};
  host_o.cgi = {{"SCRIPT_NAME", "/a.html"}};
  host_o.cookies = {{"id", "7"}};
  host_o.pageVariables = {{"count", "3"}};
  host_o.preferences = {{"plxPOP", "no"}};
  host_o.logins = {{"ada", "pw"}};
  host_o.texts = {{kPLXSupport_GetModulePath, "/m/n.so"},
                  {kPLXSupport_GetModuleParentFolderPath, "/m/"},
                  {kPLXSupport_NormalizeString, "norm"},
                  {kPLXSupport_RegisterForAction, "Mailer"},
                  {kPLXSupport_GetAdminDomainName, "domain"},
                  {kPLXSupport_GetAdminRegionPath, "/region/"},
                  {kPLXSupport_GetVirtualHost, "host:81"},
                  {kPLXSupport_GetVirtualRootPath, "/root/"},
                  {kPLXSupport_GetURLPath, "/root/a.html"},
                  {kPLXSupport_GetURLParentFolderPath, "/root/"},
                  {kPLXSupport_GetRegionDataFolderPath, "/data/FM/"},
                  {kPLXSupport_MapURLToPhysicalPath, "/root/b"},
                  {kPLXSupport_VerifyRegionContainsFile, "/root/c"}};
  host_o.numbers = {{kPLXSupport_GetDefaultLanguage, 11},   {kPLXSupport_GetPageID, 12},
                    {kPLXSupport_GetTagParameterCount, 13}, {kPLXSupport_GetPathArgumentCount, 14},
                    {kPLXSupport_GetPostArgumentCount, 15}, {kPLXSupport_GetPageVariableCount, 0xFFFFFFFF}};
}

GlueRows Rows() {
  return GlueRows(
      {
          {"MMdP >256", RUN(GetModulePath, out.text), "true /m/n.so", "false"},
          {"MMPP >256", RUN(GetModuleParentFolderPath, out.text), "true /m/", "false"},
          {"MWtS 'text'", RUN(WriteToServer, "text"), "true", "false"},
          {"MWtL 'text' [MLgN]", RUN(AddNoteToServerLog, "text"), "true", "false"},
          {"MWtL 'text' [MLgW]", RUN(AddWarningToServerLog, "text"), "true", "false"},
          {"MWtL 'text' [MLgE]", RUN(AddErrorToServerLog, "text"), "true", "false"},
          {"MWtL 'text' [MLgF]", RUN(AddFailureToServerLog, "text"), "true", "false"},
          {"MFig 'plx_x_total' 1.5 [FAdd]", RUN(AddToFigure, "plx_x_total", 1.5), "true", "false"},
          {"MFig 'plx_x' -2 [FSet]", RUN(SetFigure, "plx_x", -2), "true", "false"},
          {"MFig 'plx_x what it is' - [FDsc]", RUN(DescribeFigure, "plx_x", "what it is"), "true", "false"},
          {"MSEI 'wrong' 'mend it'", RUN(SetErrorInformation, "wrong", "mend it"), "true", "false"},
          {"MNmS 'old'>4", RUN(NormalizeString, out.text), "true norm", "false"},
          {"MGDL [?]", RUN(GetDefaultLanguage), "11", "0"},
          {"PLXD [?]", RUN(GetPageID), "12", "0"},
          {"MRMN 'text'", RUN(RegisterModuleName, "text"), "true", "false"},
          {"MRMV 'text'", RUN(RegisterModuleVersion, "text"), "true", "false"},
          {"MRMA 'text'", RUN(RegisterModuleAuthor, "text"), "true", "false"},
          {"MRMD 'text'", RUN(RegisterModuleDeveloperID, "text"), "true", "false"},
          {"MRVt 'text'", RUN(RegisterModuleVersionTrackerURL, "text"), "true", "false"},
          {"MRfT 'plxPOP' [32]", RUN(RegisterForTag, PLXTag("plxPOP"), 32), "true", "false"},
          {"MUfT 'plxPOP'", RUN(UnregisterForTag, PLXTag("plxPOP")), "true", "false"},
          {"MRfA 'SendMail'>32", RUN(RegisterForAction, "SendMail", out.id), "true Mailer", "false"},
          {"MUfA 'text'", RUN(UnregisterForAction, "text"), "true", "false"},
          {"MTag >32", RUN(GetTag), "plxSendMail", ""},
          {"MAct >32", RUN(GetActionName), "SendMail", ""},
          {"MTBd >32", RUN(GetTagBody), "Dear all", ""},
          {"MTPm 'to' >32 [1]",
           RUN(GetTagParameter, PLXStringID("to", PLXStringID::kIgnoreCase), 1, out.text, "default"),
           "true bob", "false default"},
          {"MTPI >32 >32 [1]", RUN(GetTagParameterByIndex, 1, out.id, out.otherID), "true TO bob", "false"},
          {"MTPI >32 >32 [0]", RUN(GetTagParameterByIndex, 0, out.id, out.text), "true ada to", "false"},
          {"MTPC [?]", RUN(GetTagParameterCount), "13", "0"},
          {"MPAr 'page' >32 [1]", RUN(GetPathArgument, "page", 1, out.text, "default"), "true 2",
           "false default"},
          {"MPAI >32 >32 [1]", RUN(GetPathArgumentByIndex, 1, out.text, out.other), "true page 2", "false"},
          {"MPAC [?]", RUN(GetPathArgumentCount), "14", "0"},
          {"MFAr 'name' >32 [1]", RUN(GetPostArgument, "name", 1, out.text, "default"), "true joe",
           "false default"},
          {"MFAI >32 >32 [1]", RUN(GetPostArgumentByIndex, 1, out.text, out.other), "true name joe", "false"},
          {"MFAC [?]", RUN(GetPostArgumentCount), "15", "0"},
          {"MCGI 'SCRIPT_NAME' >32", RUN(GetCGIEnvironmentVariable, "SCRIPT_NAME"), "/a.html", ""},
          {"MSPV 'ada' ''", RUN(SetPageVariable, "ada", ""), "true", "false"},
          {"MGPV 'count' >32", RUN(GetPageVariable, "count", out.text, "default"), "true 3", "false default"},
          {"MGPI >32 >32 [0]", RUN(GetPageVariableByIndex, 0, out.text, out.other), "true count 3", "false"},
          {"MGPC [?]", RUN(GetPageVariableCount), "4294967295", "0"},
          {"MGCk 'id' >32", RUN(GetCookie, "id"), "7", ""},
          {"MHRS '200' 'why'", RUN(SetHTTPResponseStatus, kPLXHTTPStatus_OK, "why"), "true", "false"},
          {"MHRS '401' 'why'", RUN(SetHTTPResponseStatus, kPLXHTTPStatus_Unauthorized, "why"), "true",
           "false"},
          {"MHRS '200' 'why'", RUN(SetHTTPResponseStatus, kPLXHTTPStatus_Forbidden, "why"), "true", "false"},
          {"MSRH 'name' 'value'", RUN(SetHTTPResponseHeader, "name", "value"), "true", "false"},
          {"MHRU 'text'", RUN(SetHTTPResponseURI, "text"), "true", "false"},
          {"MADN >32", RUN(GetAdminDomainName), "domain", ""},
          {"MARP >32", RUN(GetAdminRegionPath), "/region/", ""},
          {"MVrH >32", RUN(GetVirtualHost), "host:81", ""},
          {"MVrP >32", RUN(GetVirtualRootPath), "/root/", ""},
          {"MUPa >32", RUN(GetURLPath), "/root/a.html", ""},
          {"MUPF >32", RUN(GetURLParentFolderPath), "/root/", ""},
          {"MRDF 'FM'>32", RUN(GetRegionDataFolderPath, "FM"), "/data/FM/", ""},
          {"MUPh '/b'>32", RUN(MapURLToPhysicalPath, "/b"), "/root/b", ""},
          {"MRCP 'old'>32", RUN(VerifyRegionContainsFile, out.text), "true /root/c", "false"},
          {"MVSL 'ada' 'pw'", RUN(ValidateServerLogin, "ada", "pw"), "true", "false"},
          {"MVDL 'ada' 'pw'", RUN(ValidateDomainLogin, "ada", "pw"), "true", "false"},
          {"MSPr 'ada' 'no'", RUN(SetPreference, "ada", "no"), "true", "false"},
          {"MGPr 'plxPOP' >32", RUN(GetPreference, "plxPOP", out.text, "default"), "true no",
           "false default"},
          {"MRPr 'text'", RUN(RemovePreference, "text"), "true", "false"},
      },
      Furnish);
}

}  // namespace

// The tests below trust the host to see what a wrapper does wrong, so here it is shown each fault once.
TEST(SimulatedHost, FailsTheTestOnABrokenConvention) {
  SimulatedHost host;
  _PLXAPI_ModuleProcessingInfo const* const info = host.Event();
  auto const call = [info](PLXUInt32 code_i, void* a1, void* a2, void* a5 = nullptr) {
    info->PLXServerSupportFunction(info->connID_i, code_i, a1, a2, nullptr, nullptr, a5);
  };
  char name[] = "name";
  PLXUInt32 length = 4;
  PLXUInt32 size = 5;
  char buffer[64] = {};
  PLXUInt32 capacity = 32;
  char dirty[32] = "dirty";
  PLXUInt32 word = 7;
  PLXUInt32 const setName = kPLXSupport_RegisterModuleName;
  EXPECT_NONFATAL_FAILURE(call(PLXCode("None"), name, &size), "no such request");
  EXPECT_NONFATAL_FAILURE(call(setName, name, &length), "no terminator where the size says");
  EXPECT_NONFATAL_FAILURE(call(setName, name, &size, name), "slot 5 is in use");
  EXPECT_NONFATAL_FAILURE(call(kPLXSupport_GetTag, dirty, &capacity), "not cleared");
  EXPECT_NONFATAL_FAILURE(call(kPLXSupport_GetPageID, nullptr, nullptr, &word), "the number is not cleared");
  for (PLXUInt32 const need : {40u, 48u, 56u}) host.ScriptNeed(kPLXSupport_GetTag, need);
  capacity = 32;
  call(kPLXSupport_GetTag, buffer, &capacity);
  capacity = 50;
  EXPECT_NONFATAL_FAILURE(call(kPLXSupport_GetTag, buffer, &capacity), "room of the second try");
  capacity = 50;
  EXPECT_NONFATAL_FAILURE(call(kPLXSupport_GetTag, buffer, &capacity), "tried too often");
}

// The host itself checks sizes, terminators, cleared buffers and unused slots.
TEST(GlueWrapper, CallsTheServerOnceWithItsArguments) { Rows().ExpectOneCallWithTheArguments(); }
TEST(GlueWrapper, StaysNeutralWhenTheServerRefuses) { Rows().ExpectNeutralityOnFailure(); }
TEST(GlueWrapper, AsksOnceMoreForWhatDidNotFit) { Rows().ExpectOneMoreTry(); }
TEST(GlueWrapper, LetsExceptionsPass) { Rows().ExpectPassageOfExceptions(); }

TEST(GlueAnswer, IsBelievedAsFarAsItsBuffer) {
  std::string const full(32, 'x');
  struct {
    char const* why;
    SimulatedHost::Reply reply;
    std::string value;
  } const rows[] = {
      {"a text of exactly the capacity", {.texts = {full}, .sizes = {32}}, full},
      {"a length beyond the capacity", {.texts = {full}, .sizes = {0xFFFFFFFF}}, full},
      {"a length beyond the capacity after a short text", {.texts = {"abc"}, .sizes = {1000}}, "abc"},
      {"success without an answer", {}, ""},
      {"a text without its length", {.texts = {"abc"}}, "abc"},
      {"zero bytes inside", {.texts = {std::string("a\0b", 3)}, .sizes = {3}}, std::string("a\0b", 3)},
      {"zero bytes at the end", {.texts = {"ab"}, .sizes = {4}}, std::string("ab\0\0", 4)},
      {"an empty text", {.texts = {"leftover"}, .sizes = {0}}, ""},
  };
  for (auto const& row : rows) {
    SCOPED_TRACE(row.why);
    SimulatedHost host;
    host.Script(kPLXSupport_GetVirtualHost, row.reply);
    host.Script(kPLXSupport_GetTagBody, row.reply);
    host.Script(kPLXSupport_GetTag, row.reply);
    EXPECT_EQ(ToString(PLXGlueGetVirtualHost(host.Event())), row.value);
    EXPECT_EQ(ToString(PLXGlueGetTagBody(host.Event())), row.value);
    EXPECT_EQ(ToString(PLXGlueGetTag(host.Event()).GetName()), row.value);
  }
}

TEST(GlueAnswer, LeavesARewrittenTextThatTheServerDidNotTouch) {
  SimulatedHost host;
  host.Script(kPLXSupport_NormalizeString, {});
  PLXString text("as it is");
  EXPECT_TRUE(PLXGlueNormalizeString(host.Event(), text));
  EXPECT_EQ(ToString(text), "as it is");
}

TEST(GlueAnswer, ComesWholeWhateverItsLength) {
  for (PLXUInt32 const length : {0u, 1u, 31u, 32u, 33u, 63u, 64u, 65u, 255u, 256u, 257u, 100000u}) {
    SCOPED_TRACE(length);
    SimulatedHost host;
    host.body = std::string(length, 'b');
    host.texts[kPLXSupport_GetModulePath] = std::string(length, 'p');
    host.texts[kPLXSupport_MapURLToPhysicalPath] = std::string(length, 'm');
    PLXString path;
    EXPECT_TRUE(PLXGlueGetModulePath(host.Event(), path));
    EXPECT_EQ(ToString(path), std::string(length, 'p'));
    EXPECT_EQ(ToString(PLXGlueGetTagBody(host.Event())), host.body);
    EXPECT_EQ(ToString(PLXGlueMapURLToPhysicalPath(host.Event(), "/some/url")), std::string(length, 'm'));
    EXPECT_EQ(host.calls.size(), 3u + (length > 32 ? 2 : 0) + (length > 256 ? 1 : 0));
  }
}

TEST(GlueAnswer, MayMissRoomForTheNameTheValueOrBoth) {
  std::string const shortText(32, 's');
  std::string const longText(33, 'l');
  struct {
    char const* why;
    std::string name;
    std::string value;
    std::size_t calls;
  } const rows[] = {{"both fit", shortText, shortText, 1},
                    {"the name does not fit", longText, shortText, 2},
                    {"the value does not fit", "", longText, 2},
                    {"neither fits", longText + longText, longText, 2}};
  for (auto const& row : rows) {
    SCOPED_TRACE(row.why);
    SimulatedHost host;
    host.postArguments = {{row.name, row.value}};
    PLXString name;
    PLXString value;
    EXPECT_TRUE(PLXGlueGetPostArgumentByIndex(host.Event(), 0, name, value));
    EXPECT_EQ(ToString(name), row.name);
    EXPECT_EQ(ToString(value), row.value);
    EXPECT_EQ(host.calls.size(), row.calls);
  }
}

TEST(GlueText, GoesOverWhole) {
  std::string const text = std::string("zero \0 byte, ", 13) + std::string(5000, '\xE9');
  SimulatedHost host;
  PLXString const sent(text.data(), static_cast<PLXUInt32>(text.size()));
  EXPECT_TRUE(PLXGlueWriteToServer(host.Event(), sent));
  EXPECT_TRUE(PLXGlueSetPageVariable(host.Event(), sent, PLXString()));
  EXPECT_EQ(host.output, text);
  EXPECT_EQ(host.pageVariables, (std::map<std::string, std::string>{{text, ""}}));
}

TEST(GlueText, MakesNoCallForEmptyOutput) {
  SimulatedHost host;
  EXPECT_TRUE(PLXGlueWriteToServer(host.Event(), PLXString()));
  EXPECT_EQ(PLXGlueGetServerInformation(host.Event()), 0u);
  EXPECT_TRUE(host.calls.empty());
}
