#include <cstdlib>
#include <cstring>
#include <deque>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "PLXModuleAPI.h"

// A module that does what its tag's parameters tell it, right or wrong, and shows what the server answered.
//
// <plxProbe call="MGPV" in="name" out="32"> makes one call; the parameters after "call" fill its words in
// order:
//   in=TEXT (or password=TEXT)  text and size; then size=N gives another size, bare the text without its zero
//   inout=TEXT    text in a buffer of 300 bytes
//   out=CAPACITY  buffer and capacity
//   raw=TEXT      text and plain length
//   null, nullsize, nullboth   zero words in place of text, size or both (after them: CAPACITY as the size)
//   double=N      a number's address in a word of its own
//   x=N           number in the last word, or a code's four letters
//   n             number for the module in the last word
//   quiet         shows nothing
// It writes the result, then [text](size) for each buffer, then #number. "service" in place of "call" makes
// the call with the service handle, on a thread of its own. <plxProbe do=...> and the announcement, which the
// environment variable PLX_PROBE steers, are below.

namespace {

using Record = _PLXAPI_ModuleProcessingInfo;
using Parameters = std::vector<std::pair<std::string, std::string>>;

PLXConnectionID ourKeptID = nullptr;
Record ourService{};

PLXUInt32 Code(std::string const& text_i) {
  PLXUInt32 code = 0;
  for (char const byte : text_i) code = code << 8 | static_cast<unsigned char>(byte);
  return code;
}

std::string CodeText(PLXUInt32 code_i) {
  if (code_i == 0) return "0";
  std::string text;
  for (unsigned shift = 32; shift > 0; shift -= 8) text += static_cast<char>(code_i >> (shift - 8) & 0xFF);
  return text;
}

PLXUInt32 Number(std::string const& text_i) {
  bool const isCode = text_i.size() == 4 && (text_i[0] < '0' || text_i[0] > '9');
  return isCode ? Code(text_i) : static_cast<PLXUInt32>(std::strtoul(text_i.c_str(), nullptr, 10));
}

void Write(Record* record_i, std::string text_i) {
  auto size = static_cast<PLXUInt32>(text_i.size());
  record_i->PLXServerSupportFunction(record_i->connID_i, kPLXSupport_WriteToServer, text_i.data(), &size,
                                     nullptr, nullptr, nullptr);
}

PLXUInt32 Say(Record* record_i, PLXUInt32 code_i, std::string text_i, void* number_i = nullptr) {
  auto size = static_cast<PLXUInt32>(text_i.size() + 1);
  return record_i->PLXServerSupportFunction(record_i->connID_i, code_i, text_i.data(), &size, nullptr,
                                            nullptr, number_i);
}

std::string Get(Record* record_i, PLXUInt32 code_i) {
  std::string text(32, '\0');
  auto size = static_cast<PLXUInt32>(text.size());
  auto const call = [&] {
    return record_i->PLXServerSupportFunction(record_i->connID_i, code_i, text.data(), &size, nullptr,
                                              nullptr, nullptr);
  };
  PLXUInt32 result = call();
  if (result == kPLXResult_BufferTooSmall) {
    text.resize(size);
    result = call();
  }
  text.resize(result == 0 ? size : 0);
  return text;
}

Parameters GetParameters(Record* record_i) {
  PLXUInt32 count = 0;
  record_i->PLXServerSupportFunction(record_i->connID_i, kPLXSupport_GetTagParameterCount, nullptr, nullptr,
                                     nullptr, nullptr, &count);
  Parameters parameters;
  for (PLXUInt32 index = 0; index < count; ++index) {
    std::string name(64, '\0');
    std::string value(64, '\0');
    PLXUInt32 nameSize = 64;
    PLXUInt32 valueSize = 64;
    auto const call = [&] {
      return record_i->PLXServerSupportFunction(record_i->connID_i, kPLXSupport_GetTagParameterByIndex,
                                                name.data(), &nameSize, value.data(), &valueSize, &index);
    };
    if (call() == kPLXResult_BufferTooSmall) {
      name.resize(nameSize);
      value.resize(valueSize);
      call();
    }
    parameters.emplace_back(name.substr(0, nameSize), value.substr(0, valueSize));
  }
  return parameters;
}

// The words of one call while it is put together.
class ScriptedCall {
 public:
  explicit ScriptedCall(Parameters const& parameters_i) {
    for (std::size_t index = 1; index < parameters_i.size(); ++index) {
      Add(parameters_i[index].first, parameters_i[index].second);
    }
  }

  std::string Run(Record const& record_i, PLXUInt32 code_i, bool database_i) {
    void** const w = myWords;
    PLXUInt32 const result = database_i ? record_i.PLXServerDatabaseFunction(record_i.connID_i, code_i, w[0],
                                                                             w[1], w[2], w[3], w[4], nullptr)
                                        : record_i.PLXServerSupportFunction(record_i.connID_i, code_i, w[0],
                                                                            w[1], w[2], w[3], w[4]);
    std::string shown = CodeText(result);
    if (myIsQuiet) return {};
    for (std::size_t index : myOuts) {
      std::string const& buffer = myBuffers[index];
      shown += "[" + buffer.substr(0, strnlen(buffer.c_str(), buffer.size())) + "](" +
               std::to_string(mySizes[index]) + ")";
    }
    if (myShowsNumber) shown += "#" + std::to_string(myNumber);
    return shown;
  }

 private:
  void AddText(std::string buffer_i, PLXUInt32 size_i, bool isOut_i) {
    if (isOut_i) myOuts.push_back(myBuffers.size());
    myBuffers.push_back(std::move(buffer_i));
    mySizes.push_back(size_i);
    myWords[myNext] = myBuffers.back().data();
    myWords[myNext + 1] = &mySizes.back();
    myNext += 2;
  }

  void Add(std::string const& what_i, std::string const& value_i) {
    auto const length = static_cast<PLXUInt32>(value_i.size());
    if (what_i == "in" || what_i == "password") AddText(value_i, length + 1, false);
    if (what_i == "raw") AddText(value_i, length, false);
    if (what_i == "out") AddText(std::string(Number(value_i), '\0'), Number(value_i), true);
    if (what_i == "inout") {
      AddText(value_i + std::string(300 - value_i.size(), '\0'), 300, true);
    }
    if (what_i == "double") {
      myDouble = std::strtod(value_i.c_str(), nullptr);
      myWords[myNext++] = &myDouble;
    }
    if (what_i == "size") mySizes.back() = Number(value_i);
    if (what_i == "bare") mySizes.back() = length == 0 ? mySizes.back() - 1 : length;
    if (what_i == "quiet") myIsQuiet = true;
    if (what_i == "zeroinside") myBuffers.back()[1] = '\0';
    if (what_i == "null") myWords[myNext - 2] = nullptr;
    if (what_i == "nullsize") myWords[myNext - 1] = nullptr;
    if (what_i == "x" || what_i == "n") {
      myNumber = Number(value_i);
      myWords[4] = &myNumber;
      myShowsNumber = what_i == "n";
    }
  }

  std::deque<std::string> myBuffers;  // words point into the elements, which must not move
  std::deque<PLXUInt32> mySizes;
  std::vector<std::size_t> myOuts;
  void* myWords[6] = {};
  unsigned myNext = 0;
  double myDouble = 0;
  PLXUInt32 myNumber = 0;
  bool myShowsNumber = false;
  bool myIsQuiet = false;
};

PLXUInt32 Do(Record* record_i, std::string const& what_i, Parameters const& parameters_i) {
  if (what_i == "keep") ourKeptID = record_i->connID_i;
  if (what_i == "late") {
    Record late = *record_i;
    late.connID_i = ourKeptID;
    Write(record_i, ScriptedCall({{}, {"out", "32"}}).Run(late, kPLXSupport_GetTag, false));
  }
  if (what_i == "thread") {
    std::string shown;
    std::thread([&] {
      shown = ScriptedCall({{}, {"out", "32"}}).Run(*record_i, kPLXSupport_GetTag, false);
    }).join();
    Write(record_i, shown);
  }
  if (what_i == "throw") throw std::runtime_error("probe was told to");
  if (what_i == "body") Write(record_i, "{" + Get(record_i, kPLXSupport_GetTagBody) + "}");
  if (what_i == "parameters") {
    for (auto const& [name, value] : parameters_i) Write(record_i, name + "=" + value + ";");
  }
  if (what_i == "return") return Code(parameters_i.at(1).second);
  return 0;
}

PLXUInt32 RunTag(Record* record_i) {
  Parameters const parameters = GetParameters(record_i);
  if (parameters.empty()) {
    Write(record_i, "{" + Get(record_i, kPLXSupport_GetTagBody) + "}");
    return 0;
  }
  auto const& [what, value] = parameters.front();
  if (what == "do") return Do(record_i, value, parameters);
  if (what == "call" || what == "database") {
    Write(record_i, ScriptedCall(parameters).Run(*record_i, Code(value), what == "database"));
  }
  if (what == "service") {
    std::string shown;
    std::thread([&] { shown = ScriptedCall(parameters).Run(ourService, Code(value), false); }).join();
    Write(record_i, shown);
  }
  return 0;
}

// What a real tag does at the least: reads one parameter and writes.
void RunQuickTag(Record* record_i) {
  char name[] = "p";
  char value[32] = {};
  PLXUInt32 nameSize = sizeof name;
  PLXUInt32 valueSize = sizeof value;
  PLXUInt32 index = 0;
  record_i->PLXServerSupportFunction(record_i->connID_i, kPLXSupport_GetTagParameter, name, &nameSize, value,
                                     &valueSize, &index);
  record_i->PLXServerSupportFunction(record_i->connID_i, kPLXSupport_WriteToServer, value, &valueSize,
                                     nullptr, nullptr, nullptr);
}

// PLX_PROBE: "refuse" announces nothing and fails, "unnamed" tells no name, "second" is another module that
// wants the same tag but goes on without it.
PLXUInt32 Announce(Record* record_i) {
  char const* const variable = std::getenv("PLX_PROBE");
  std::string const how = variable == nullptr ? "" : variable;
  if (how == "refuse") return kPLXResult_Unknown;
  if (how != "unnamed") {
    Say(record_i, kPLXSupport_RegisterModuleName, how == "second" ? "Second Probe" : "Probe");
  }
  Say(record_i, kPLXSupport_RegisterModuleVersion, "1.0");
  Say(record_i, kPLXSupport_RegisterModuleAuthor, "the tests");
  PLXUInt32 standsAlone = kPLXTagFlag_StandsAlone;
  PLXUInt32 encloses = kPLXTagFlag_EnclosesBody;
  PLXUInt32 const taken = Say(record_i, kPLXSupport_RegisterForTag, "plxProbe", &standsAlone);
  if (how == "second") {
    return Say(record_i, kPLXSupport_RegisterForTag, "plxSecond", &standsAlone) == 0 && taken != 0
               ? 0
               : kPLXResult_Unknown;
  }
  bool const refusesOthers = Say(record_i, kPLXSupport_RegisterForTag, "probe", &standsAlone) != 0 &&
                             Say(record_i, kPLXSupport_RegisterForTag, "plxDoNotProcess", &encloses) != 0;
  Say(record_i, kPLXSupport_RegisterForTag, "plxQuick", &standsAlone);
  Say(record_i, kPLXSupport_RegisterForTag, "plxProbeBody", &encloses);
  Say(record_i, kPLXSupport_RegisterForAction, "ProbeAction");
  return taken == 0 && refusesOthers ? 0 : kPLXResult_Unknown;
}

PLXUInt32 Handle(Record* record_i) {
  switch (record_i->eventCode_i) {
    case kPLXEvent_Initialize:
      return Announce(record_i);
    case kPLXEvent_Tag:
      if (Get(record_i, kPLXSupport_GetTag) != "plxQuick") return RunTag(record_i);
      RunQuickTag(record_i);
      return 0;
    case kPLXEvent_Action:
      Write(record_i, "action " + Get(record_i, kPLXSupport_GetActionName) + " tag " +
                          ScriptedCall({{}, {"out", "32"}}).Run(*record_i, kPLXSupport_GetTag, false));
      return 0;
    case kPLXEvent_GetPreferences:
      Write(record_i, ScriptedCall({{}, {"in", "colour"}, {"out", "32"}})
                          .Run(*record_i, kPLXSupport_GetPreference, false));
      return 0;
    case kPLXEvent_SetPreferences:
      Write(record_i, ScriptedCall({{}, {"in", "colour"}, {"in", "blue"}})
                          .Run(*record_i, kPLXSupport_SetPreference, false));
      return 0;
    case kPLXEvent_Service:
      ourService = *record_i;
      return std::getenv("PLX_PROBE_ALONE") == nullptr ? 0 : kPLXResult_EventNotHandled;
    case kPLXEvent_Terminate:
      if (ourService.PLXServerSupportFunction == nullptr) return 0;  // it was never offered one
      ScriptedCall({{}, {"in", "plx_probe_ends_total"}, {"double", "1"}, {"x", "FAdd"}})
          .Run(ourService, kPLXSupport_ChangeFigure, false);
      return 0;
    default:
      return kPLXResult_EventNotHandled;
  }
}

}  // namespace

extern "C" __attribute__((visibility("default"))) PLXUInt32 ProcessPLXRequest(Record* record_i) {
  return Handle(record_i);
}
