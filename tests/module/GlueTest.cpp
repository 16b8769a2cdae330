#include <functional>
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include "PLXModuleAPIGlue.h"
#include "SimulatedHost.h"

namespace {

typedef _PLXAPI_ModuleProcessingInfo Info;
typedef std::vector<std::string> Texts;

std::string ToString(PLXString const& text_i) {
  return std::string(text_i.GetCStringAccess(), text_i.GetLength());
}

// What a wrapper gave back, for one comparison: "true" or "false", then its outputs.
std::string Told(bool result_i) { return result_i ? "true" : "false"; }
std::string Told(bool result_i, PLXString const& text_i) { return Told(result_i) + " " + ToString(text_i); }
std::string Told(bool result_i, PLXString const& first_i, PLXString const& second_i) {
  return Told(result_i, first_i) + " " + ToString(second_i);
}
std::string Told(PLXUInt32 number_i) { return std::to_string(number_i); }

// One wrapper, called once with its usual arguments: what must reach the server and what comes back of it.
struct Row {
  char const* name;
  PLXUInt32 code;
  Texts texts;     // that the server reads
  PLXUInt32 word;  // that the server reads in the last slot
  std::function<std::string(Info*)> run;
  char const* result;
  char const* failed;  // the result when the server refuses
};

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

// Rows of wrappers that share a form.
Row Tells(char const* name_i, PLXUInt32 code_i, bool (*wrapper_i)(Info*, PLXString const&)) {
  return {name_i, code_i, {"text"}, 0, [=](Info* info) { return Told(wrapper_i(info, "text")); },
          "true", "false"};
}
Row Logs(char const* name_i, char const (&level_i)[5], bool (*wrapper_i)(Info*, PLXString const&)) {
  PLXUInt32 level = 0;
  for (int index = 0; index < 4; ++index) level = level << 8 | static_cast<unsigned char>(level_i[index]);
  Row row = Tells(name_i, kPLXSupport_WriteToLog, wrapper_i);
  row.word = level;
  return row;
}
Row TellsTwo(char const* name_i, PLXUInt32 code_i,
             bool (*wrapper_i)(Info*, PLXString const&, PLXString const&), char const* second_i) {
  return {name_i,
          code_i,
          {"ada", second_i},
          0,
          [=](Info* info) { return Told(wrapper_i(info, "ada", second_i)); },
          "true",
          "false"};
}
Row Counts(char const* name_i, PLXUInt32 code_i, PLXUInt32 (*wrapper_i)(Info*), char const* result_i) {
  return {name_i, code_i, {}, 0, [=](Info* info) { return Told(wrapper_i(info)); }, result_i, "0"};
}
Row Asks(char const* name_i, PLXUInt32 code_i, PLXString (*wrapper_i)(Info*), char const* result_i) {
  return {name_i, code_i, {}, 0, [=](Info* info) { return ToString(wrapper_i(info)); }, result_i, ""};
}
Row AsksPath(char const* name_i, PLXUInt32 code_i, bool (*wrapper_i)(Info*, PLXString&),
             char const* result_i) {
  return {name_i,
          code_i,
          {},
          0,
          [=](Info* info) {
            PLXString path("old");
            bool const result = wrapper_i(info, path);
            return Told(result, path);
          },
          result_i,
          "false old"};
}
Row AsksByName(char const* name_i, PLXUInt32 code_i, PLXString (*wrapper_i)(Info*, PLXString const&),
               char const* argument_i, char const* result_i) {
  return {
      name_i,   code_i, {argument_i}, 0, [=](Info* info) { return ToString(wrapper_i(info, argument_i)); },
      result_i, ""};
}
Row Rewrites(char const* name_i, PLXUInt32 code_i, bool (*wrapper_i)(Info*, PLXString&),
             char const* result_i) {
  return {name_i,
          code_i,
          {"old"},
          0,
          [=](Info* info) {
            PLXString text("old");
            bool const result = wrapper_i(info, text);
            return Told(result, text);
          },
          result_i,
          "false old"};
}
Row AsksOccurrence(char const* name_i, PLXUInt32 code_i,
                   bool (*wrapper_i)(Info*, PLXString const&, unsigned, PLXString&, PLXString const&),
                   char const* argument_i, char const* result_i) {
  return {name_i,
          code_i,
          {argument_i},
          1,
          [=](Info* info) {
            PLXString value("old");
            bool const result = wrapper_i(info, argument_i, 1, value, "default");
            return Told(result, value);
          },
          result_i,
          "false default"};
}
Row AsksPair(char const* name_i, PLXUInt32 code_i, bool (*wrapper_i)(Info*, unsigned, PLXString&, PLXString&),
             unsigned index_i, char const* result_i) {
  return {name_i,
          code_i,
          {},
          index_i,
          [=](Info* info) {
            PLXString name("n");
            PLXString value("v");
            bool const result = wrapper_i(info, index_i, name, value);
            return Told(result, name, value);
          },
          result_i,
          "false n v"};
}
#define WRAPPER(form, name, ...) form(#name, kPLXSupport_##name, PLXGlue##name __VA_OPT__(, ) __VA_ARGS__)

std::vector<Row> WrapperRows() {
  PLXStringID const to("to", PLXStringID::kIgnoreCase);
  return {
      WRAPPER(AsksPath, GetModulePath, "true /m/n.so"),
      WRAPPER(AsksPath, GetModuleParentFolderPath, "true /m/"),
      Tells("WriteToServer", kPLXSupport_WriteToServer, PLXGlueWriteToServer),
      Logs("note", "MLgN", PLXGlueAddNoteToServerLog),
      Logs("warning", "MLgW", PLXGlueAddWarningToServerLog),
      Logs("error", "MLgE", PLXGlueAddErrorToServerLog),
      Logs("failure", "MLgF", PLXGlueAddFailureToServerLog),
      WRAPPER(TellsTwo, SetErrorInformation, "remedy"),
      WRAPPER(Rewrites, NormalizeString, "true norm"),
      WRAPPER(Counts, GetDefaultLanguage, "11"),
      WRAPPER(Counts, GetPageID, "12"),
      WRAPPER(Tells, RegisterModuleName),
      WRAPPER(Tells, RegisterModuleVersion),
      WRAPPER(Tells, RegisterModuleAuthor),
      WRAPPER(Tells, RegisterModuleDeveloperID),
      WRAPPER(Tells, RegisterModuleVersionTrackerURL),
      {"RegisterForTag",
       kPLXSupport_RegisterForTag,
       {"plxPOP"},
       32,
       [](Info* info) { return Told(PLXGlueRegisterForTag(info, PLXTag("plxPOP"), 32)); },
       "true",
       "false"},
      {"UnregisterForTag",
       kPLXSupport_UnregisterForTag,
       {"plxPOP"},
       0,
       [](Info* info) { return Told(PLXGlueUnregisterForTag(info, PLXTag("plxPOP"))); },
       "true",
       "false"},
      {"RegisterForAction",
       kPLXSupport_RegisterForAction,
       {"SendMail"},
       0,
       [](Info* info) {
         PLXStringID id("old", PLXStringID::kIgnoreCase);
         bool const result = PLXGlueRegisterForAction(info, "SendMail", id);
         return Told(result, id.GetString());
       },
       "true Mailer",
       "false old"},
      WRAPPER(Tells, UnregisterForAction),
      {"GetTag",
       kPLXSupport_GetTag,
       {},
       0,
       [](Info* info) { return ToString(PLXGlueGetTag(info).GetName()); },
       "plxSendMail",
       ""},
      {"GetActionName",
       kPLXSupport_GetActionName,
       {},
       0,
       [](Info* info) { return ToString(PLXGlueGetActionName(info).GetString()); },
       "SendMail",
       ""},
      WRAPPER(Asks, GetTagBody, "Dear all"),
      {"GetTagParameter",
       kPLXSupport_GetTagParameter,
       {"to"},
       1,
       [to](Info* info) {
         PLXString value("old");
         bool const result = PLXGlueGetTagParameter(info, to, 1, value, "default");
         return Told(result, value);
       },
       "true bob",
       "false default"},
      {"GetTagParameterByIndex, identifiers",
       kPLXSupport_GetTagParameterByIndex,
       {},
       1,
       [](Info* info) {
         PLXStringID name("n", PLXStringID::kIgnoreCase);
         PLXStringID value("v", PLXStringID::kIgnoreCase);
         bool const result = PLXGlueGetTagParameterByIndex(info, 1, name, value);
         return Told(result, name.GetString(), value.GetString());
       },
       "true TO bob",
       "false n v"},
      {"GetTagParameterByIndex, text",
       kPLXSupport_GetTagParameterByIndex,
       {},
       0,
       [](Info* info) {
         PLXStringID name("n", PLXStringID::kIgnoreCase);
         PLXString value("v");
         bool const result = PLXGlueGetTagParameterByIndex(info, 0, name, value);
         return Told(result, name.GetString(), value);
       },
       "true to ada",
       "false n v"},
      WRAPPER(Counts, GetTagParameterCount, "13"),
      WRAPPER(AsksOccurrence, GetPathArgument, "page", "true 2"),
      WRAPPER(AsksPair, GetPathArgumentByIndex, 1, "true page 2"),
      WRAPPER(Counts, GetPathArgumentCount, "14"),
      WRAPPER(AsksOccurrence, GetPostArgument, "name", "true joe"),
      WRAPPER(AsksPair, GetPostArgumentByIndex, 1, "true name joe"),
      WRAPPER(Counts, GetPostArgumentCount, "15"),
      WRAPPER(AsksByName, GetCGIEnvironmentVariable, "SCRIPT_NAME", "/a.html"),
      WRAPPER(TellsTwo, SetPageVariable, ""),
      {"GetPageVariable",
       kPLXSupport_GetPageVariable,
       {"count"},
       0,
       [](Info* info) {
         PLXString value;
         bool const result = PLXGlueGetPageVariable(info, "count", value, "default");
         return Told(result, value);
       },
       "true 3",
       "false default"},
      WRAPPER(AsksPair, GetPageVariableByIndex, 0, "true count 3"),
      WRAPPER(Counts, GetPageVariableCount, "4294967295"),
      WRAPPER(AsksByName, GetCookie, "id", "7"),
      {"SetHTTPResponseStatus",
       kPLXSupport_SetHTTPResponseStatus,
       {"404", "Not Found"},
       0,
       [](Info* info) {
         return Told(PLXGlueSetHTTPResponseStatus(info, kPLXHTTPStatus_NotFound, "Not Found"));
       },
       "true",
       "false"},
      WRAPPER(TellsTwo, SetHTTPResponseHeader, "value"),
      WRAPPER(Tells, SetHTTPResponseURI),
      WRAPPER(Asks, GetAdminDomainName, "domain"),
      WRAPPER(Asks, GetAdminRegionPath, "/region/"),
      WRAPPER(Asks, GetVirtualHost, "host:81"),
      WRAPPER(Asks, GetVirtualRootPath, "/root/"),
      WRAPPER(Asks, GetURLPath, "/root/a.html"),
      WRAPPER(Asks, GetURLParentFolderPath, "/root/"),
      WRAPPER(AsksByName, GetRegionDataFolderPath, "FM", "/data/FM/"),
      WRAPPER(AsksByName, MapURLToPhysicalPath, "/b", "/root/b"),
      WRAPPER(Rewrites, VerifyRegionContainsFile, "true /root/c"),
      WRAPPER(TellsTwo, ValidateServerLogin, "pw"),
      WRAPPER(TellsTwo, ValidateDomainLogin, "pw"),
      WRAPPER(TellsTwo, SetPreference, "no"),
      {"GetPreference",
       kPLXSupport_GetPreference,
       {"plxPOP"},
       0,
       [](Info* info) {
         PLXString value;
         bool const result = PLXGlueGetPreference(info, "plxPOP", value, "default");
         return Told(result, value);
       },
       "true no",
       "false default"},
      WRAPPER(Tells, RemovePreference),
  };
}

// Of the first buffer that the row's wrapper wants filled; 0 when it wants none.
PLXUInt32 GetFirstCapacity(Row const& row_i) {
  SimulatedHost host;
  Furnish(host);
  row_i.run(host.Event());
  std::vector<PLXUInt32> const& capacities = host.calls.at(0).capacities;
  return capacities.empty() ? 0 : capacities[0];
}

}  // namespace

// The tests below trust the host to see what a wrapper does wrong, so here it is shown each fault once.
TEST(SimulatedHost, FailsTheTestOnABrokenConvention) {
  SimulatedHost host;
  Info const* const info = host.Event();
  auto const call = [info](PLXUInt32 code_i, void* a1, void* a2, void* a5 = nullptr) {
    info->PLXServerSupportFunction(info->connID_i, code_i, a1, a2, nullptr, nullptr, a5);
  };
  char name[] = "name";
  PLXUInt32 length = 4;
  PLXUInt32 size = 5;
  char buffer[64] = {};
  PLXUInt32 capacity = 32;
  PLXUInt32 smallCapacity = 16;
  char dirty[32] = "dirty";
  PLXUInt32 word = 7;
  PLXUInt32 const setName = kPLXSupport_RegisterModuleName;
  EXPECT_NONFATAL_FAILURE(call(PLXCode("None"), name, &size), "no such request");
  EXPECT_NONFATAL_FAILURE(call(setName, name, &length), "no terminator where the size says");
  EXPECT_NONFATAL_FAILURE(call(setName, name, &size, name), "slot 5 is in use");
  EXPECT_NONFATAL_FAILURE(call(kPLXSupport_GetTag, dirty, &capacity), "not cleared");
  EXPECT_NONFATAL_FAILURE(call(kPLXSupport_GetTag, buffer, &smallCapacity), "first capacities");
  EXPECT_NONFATAL_FAILURE(call(kPLXSupport_GetPageID, nullptr, nullptr, &word), "the number is not cleared");
  for (PLXUInt32 const need : {40u, 48u, 56u}) host.ScriptNeed(kPLXSupport_GetTag, need);
  capacity = 32;
  call(kPLXSupport_GetTag, buffer, &capacity);
  capacity = 50;
  EXPECT_NONFATAL_FAILURE(call(kPLXSupport_GetTag, buffer, &capacity), "room of the second try");
  capacity = 50;
  EXPECT_NONFATAL_FAILURE(call(kPLXSupport_GetTag, buffer, &capacity), "tried too often");
}

// The host itself checks sizes, terminators, capacities, cleared buffers and unused slots.
TEST(GlueWrapper, CallsTheServerOnceWithItsArguments) {
  for (Row const& row : WrapperRows()) {
    SCOPED_TRACE(row.name);
    SimulatedHost host;
    Furnish(host);
    EXPECT_EQ(row.run(host.Event()), row.result);
    ASSERT_EQ(host.calls.size(), 1u);
    EXPECT_EQ(SpellCode(host.calls[0].code), SpellCode(row.code));
    EXPECT_EQ(host.calls[0].texts, row.texts);
    EXPECT_EQ(host.calls[0].word, row.word);
  }
}

TEST(GlueWrapper, StaysNeutralWhenTheServerRefuses) {
  for (Row const& row : WrapperRows()) {
    SCOPED_TRACE(row.name);
    SimulatedHost host;
    host.ScriptFailure(row.code);
    EXPECT_EQ(row.run(host.Event()), row.failed);
    EXPECT_EQ(host.calls.size(), 1u);
  }
}

TEST(GlueWrapper, AsksOnceMoreForWhatDidNotFit) {
  for (Row const& row : WrapperRows()) {
    if (GetFirstCapacity(row) == 0) continue;
    SCOPED_TRACE(row.name);
    SimulatedHost host;
    Furnish(host);
    host.ScriptNeed(row.code, 1000);
    EXPECT_EQ(row.run(host.Event()), row.result);
    EXPECT_EQ(host.calls.size(), 2u);
    EXPECT_EQ(host.calls.at(1).capacities.at(0), 1000u);
  }
}

TEST(GlueWrapper, FailsWhenTheSecondTryDoesNotFitEither) {
  for (Row const& row : WrapperRows()) {
    if (GetFirstCapacity(row) == 0) continue;
    SCOPED_TRACE(row.name);
    SimulatedHost host;
    Furnish(host);
    host.ScriptNeed(row.code, 1000);
    host.ScriptNeed(row.code, 2000);
    EXPECT_EQ(row.run(host.Event()), row.failed);
    EXPECT_EQ(host.calls.size(), 2u);
  }
}

TEST(GlueWrapper, DoesNotBelieveAnAbsurdNeed) {
  for (Row const& row : WrapperRows()) {
    PLXUInt32 const capacity = GetFirstCapacity(row);
    if (capacity == 0) continue;
    // None, less than there was, no more than there was, more than any page holds, all memory.
    for (PLXUInt32 const need : {0u, 1u, capacity, 0x40000000u, 0xFFFFFFFFu}) {
      // These two take what stands in the buffer, as long as the size word says, whatever the result.
      bool const isUnchecked = row.code == kPLXSupport_GetTag || row.code == kPLXSupport_GetActionName;
      if (isUnchecked && need == 1) continue;
      SCOPED_TRACE(std::string(row.name) + ": " + std::to_string(need));
      SimulatedHost host;
      Furnish(host);
      host.ScriptNeed(row.code, need);
      EXPECT_EQ(row.run(host.Event()), row.failed);
      EXPECT_EQ(host.calls.size(), 1u);
    }
  }
}

// Run under the address sanitizer, a buffer that is not released shows.
TEST(GlueWrapper, ReleasesItsBuffersWhenAnExceptionPasses) {
  for (Row const& row : WrapperRows()) {
    SCOPED_TRACE(row.name);
    SimulatedHost host;
    host.Script(row.code, {.throws = true});
    EXPECT_THROW(row.run(host.Event()), std::runtime_error);
  }
}

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

TEST(GlueText, OfAStatusIsOneOfFour) {
  struct {
    PLXHTTPStatus status;
    char const* text;
  } const rows[] = {{kPLXHTTPStatus_Unauthorized, "401"}, {kPLXHTTPStatus_NotFound, "404"},
                    {kPLXHTTPStatus_Found, "302"},        {kPLXHTTPStatus_OK, "200"},
                    {kPLXHTTPStatus_Forbidden, "200"},    {kPLXHTTPStatus_InternalServerError, "200"}};
  for (auto const& row : rows) {
    SimulatedHost host;
    EXPECT_TRUE(PLXGlueSetHTTPResponseStatus(host.Event(), row.status, "why"));
    EXPECT_EQ(host.calls.at(0).texts, (Texts{row.text, "why"}));
  }
}
