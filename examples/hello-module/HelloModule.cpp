#include <string>

#include "PLXModuleAPI.h"

// A module with one tag, on the host API alone: <plxHello name="Ada"> becomes "Hello, Ada!". docs/host-api.md
// walks through it.

namespace {

using Record = _PLXAPI_ModuleProcessingInfo;

// A request that hands the server one text, or two: "in s" in docs/host-api.md. A size counts the zero byte
// at the text's end; a number goes last.
PLXUInt32 Tell(Record* record_i, PLXUInt32 code_i, std::string text_i, void* number_i = nullptr) {
  auto size = static_cast<PLXUInt32>(text_i.size() + 1);
  return record_i->PLXServerSupportFunction(record_i->connID_i, code_i, text_i.data(), &size, nullptr,
                                            nullptr, number_i);
}
PLXUInt32 TellTwo(Record* record_i, PLXUInt32 code_i, std::string first_i, std::string second_i) {
  auto firstSize = static_cast<PLXUInt32>(first_i.size() + 1);
  auto secondSize = static_cast<PLXUInt32>(second_i.size() + 1);
  return record_i->PLXServerSupportFunction(record_i->connID_i, code_i, first_i.data(), &firstSize,
                                            second_i.data(), &secondSize, nullptr);
}

// What stands in the tag's place. The size counts no zero byte here.
void Write(Record* record_i, std::string text_i) {
  auto size = static_cast<PLXUInt32>(text_i.size());
  record_i->PLXServerSupportFunction(record_i->connID_i, kPLXSupport_WriteToServer, text_i.data(), &size,
                                     nullptr, nullptr, nullptr);
}

// The tag's first parameter of this name. False when it has none.
bool GetParameter(Record* record_i, std::string name_i, std::string& value_o) {
  auto nameSize = static_cast<PLXUInt32>(name_i.size() + 1);
  value_o.resize(64);
  auto size = static_cast<PLXUInt32>(value_o.size());
  PLXUInt32 occurrence = 0;
  auto const ask = [&] {
    return record_i->PLXServerSupportFunction(record_i->connID_i, kPLXSupport_GetTagParameter, name_i.data(),
                                              &nameSize, value_o.data(), &size, &occurrence);
  };
  PLXUInt32 result = ask();
  if (result == kPLXResult_BufferTooSmall) {  // and the size is now the one that is needed
    value_o.resize(size);
    result = ask();
  }
  value_o.resize(result == kPLXResult_Success ? size : 0);
  return result == kPLXResult_Success;
}

// The page's author may have put a visitor's words into the parameter, so they must not become markup.
std::string HTMLEncoded(std::string const& text_i) {
  std::string encoded;
  for (char const byte : text_i) {
    switch (byte) {
      case '&':
        encoded += "&amp;";
        break;
      case '<':
        encoded += "&lt;";
        break;
      case '>':
        encoded += "&gt;";
        break;
      case '"':
        encoded += "&quot;";
        break;
      case '\'':
        encoded += "&#39;";
        break;
      default:
        encoded += byte;
    }
  }
  return encoded;
}

PLXUInt32 Announce(Record* record_i) {
  Tell(record_i, kPLXSupport_RegisterModuleName, "Hello");
  Tell(record_i, kPLXSupport_RegisterModuleVersion, HELLO_VERSION);
  Tell(record_i, kPLXSupport_RegisterModuleAuthor, "PLX");
  PLXUInt32 flags = kPLXTagFlag_StandsAlone;
  bool const taken = Tell(record_i, kPLXSupport_RegisterForTag, "plxHello", &flags) == kPLXResult_Success;
  return taken ? kPLXResult_Success : kPLXResult_Unknown;
}

PLXUInt32 RunHello(Record* record_i) {
  std::string name;
  if (!GetParameter(record_i, "name", name)) {
    TellTwo(record_i, kPLXSupport_SetErrorInformation,
            "The tag <code>plxHello</code> is missing its parameter <code>name</code>.",
            "Say whom to greet: <code>&lt;plxHello name=\"Ada\"&gt;</code>");
    return kPLXResult_MissingRequiredParameter;
  }
  Write(record_i, "Hello, " + HTMLEncoded(name) + "!");
  return kPLXResult_Success;
}

PLXUInt32 Handle(Record* record_i) {
  switch (record_i->eventCode_i) {
    case kPLXEvent_Initialize:
      return Announce(record_i);
    case kPLXEvent_Tag:
      return RunHello(record_i);
    case kPLXEvent_Terminate:
      return kPLXResult_Success;
    default:
      return kPLXResult_EventNotHandled;
  }
}

}  // namespace

extern "C" __attribute__((visibility("default"))) PLXUInt32 ProcessPLXRequest(
    _PLXAPI_ModuleProcessingInfo* processingInfo) {
  try {
    return Handle(processingInfo);
  } catch (...) {  // no exception leaves a module
    return kPLXResult_GeneralError;
  }
}
