#include "PLXModuleConnection.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <exception>

#include "PLXASCII.h"
#include "PLXCodeText.h"
#include "PLXLog.h"
#include "PLXModuleDatabase.h"
#include "PLXModuleWords.h"

// How texts and numbers cross, in one place: each request is a row of a table that says which words it takes,
// and the words are checked and turned into views before its answer runs. An answer sees no pointer.

namespace {

// The connection of the event that this thread runs now.
thread_local void* ourCurrent = nullptr;

bool MentionsPassword(std::string_view text_i) {
  for (std::size_t offset = 0; offset < text_i.size(); ++offset) {
    if (BeginsIgnoringCase(text_i.substr(offset), "passw")) return true;
  }
  return false;
}

}  // namespace

// What a request takes, a letter for each item in slot order:
//   i  in s: the size counts the terminator, which must be the text's first zero
//   w  a text with its plain length, of any bytes
//   s  as i, in a buffer that may be larger than the text
//   o  out s
//   b  in/out s
//   x  &i, last slot: a number from the module
//   n  &n, last slot: a number for the module
struct PLXModuleHost::Connection::Request {
  enum Needs : unsigned { kNothing, kAnnouncement, kPage, kTag, kAction };
  PLXUInt32 code;
  char const* name;
  char const* slots;
  Needs needs;  // the event that it belongs to; kPage: any event of a request
  PLXUInt32 (Connection::*answer)(Call&);
  bool isSecret = false;  // its texts are never traced
};

PLXModuleHost::Connection::Request const* PLXModuleHost::Connection::FindRequest(PLXUInt32 code_i) {
  using C = Connection;
  using R = Request;
  static constexpr auto ourRequests = [] {
    std::array requests{
        R{kPLXSupport_GetModulePath, "GetModulePath", "o", R::kNothing, &C::GetModulePath},
        R{kPLXSupport_GetModuleParentFolderPath, "GetModuleParentFolderPath", "o", R::kNothing,
          &C::GetModuleParentFolderPath},
        R{kPLXSupport_WriteToServer, "WriteToServer", "w", R::kPage, &C::WriteToServer},
        R{kPLXSupport_WriteToLog, "WriteToLog", "ix", R::kNothing, &C::WriteToLog},
        R{kPLXSupport_SetErrorInformation, "SetErrorInformation", "ii", R::kNothing, &C::SetErrorInformation},
        R{kPLXSupport_NormalizeString, "NormalizeString", "b", R::kNothing, &C::NormalizeString},
        R{kPLXSupport_GetDefaultLanguage, "GetDefaultLanguage", "n", R::kNothing, &C::GetDefaultLanguage},
        R{kPLXSupport_GetPageID, "GetPageID", "n", R::kPage, &C::GetPageID},

        R{kPLXSupport_RegisterModuleName, "RegisterModuleName", "i", R::kAnnouncement, &C::RegisterName},
        R{kPLXSupport_RegisterModuleVersion, "RegisterModuleVersion", "i", R::kAnnouncement,
          &C::RegisterVersion},
        R{kPLXSupport_RegisterModuleAuthor, "RegisterModuleAuthor", "i", R::kAnnouncement,
          &C::RegisterAuthor},
        R{kPLXSupport_RegisterModuleDeveloperID, "RegisterModuleDeveloperID", "i", R::kAnnouncement,
          &C::RegisterDeveloperID},
        R{kPLXSupport_RegisterModuleVersionTrackerURL, "RegisterModuleVersionTrackerURL", "i",
          R::kAnnouncement, &C::RegisterVersionTracker},
        R{kPLXSupport_RegisterForTag, "RegisterForTag", "ix", R::kAnnouncement, &C::RegisterForTag},
        R{kPLXSupport_UnregisterForTag, "UnregisterForTag", "i", R::kAnnouncement, &C::UnregisterForTag},
        R{kPLXSupport_RegisterForAction, "RegisterForAction", "b", R::kAnnouncement, &C::RegisterForAction},
        R{kPLXSupport_UnregisterForAction, "UnregisterForAction", "i", R::kAnnouncement,
          &C::UnregisterForAction},

        R{kPLXSupport_GetTag, "GetTag", "o", R::kTag, &C::GetTag},
        R{kPLXSupport_GetTagParameter, "GetTagParameter", "iox", R::kTag, &C::GetTagParameter},
        R{kPLXSupport_GetTagParameterByIndex, "GetTagParameterByIndex", "oox", R::kTag,
          &C::GetTagParameterByIndex},
        R{kPLXSupport_GetTagParameterCount, "GetTagParameterCount", "n", R::kTag, &C::GetTagParameterCount},
        R{kPLXSupport_GetTagBody, "GetTagBody", "o", R::kTag, &C::GetTagBody},
        R{kPLXSupport_GetActionName, "GetActionName", "o", R::kAction, &C::GetActionName},
        R{kPLXSupport_GetPathArgument, "GetPathArgument", "iox", R::kPage, &C::GetPathArgument},
        R{kPLXSupport_GetPathArgumentByIndex, "GetPathArgumentByIndex", "oox", R::kPage,
          &C::GetPathArgumentByIndex},
        R{kPLXSupport_GetPathArgumentCount, "GetPathArgumentCount", "n", R::kPage, &C::GetPathArgumentCount},
        R{kPLXSupport_GetPostArgument, "GetPostArgument", "iox", R::kPage, &C::GetPostArgument},
        R{kPLXSupport_GetPostArgumentByIndex, "GetPostArgumentByIndex", "oox", R::kPage,
          &C::GetPostArgumentByIndex},
        R{kPLXSupport_GetPostArgumentCount, "GetPostArgumentCount", "n", R::kPage, &C::GetPostArgumentCount},
        R{kPLXSupport_GetCGIEnvironmentVariable, "GetCGIEnvironmentVariable", "io", R::kPage,
          &C::GetCGIVariable},
        R{kPLXSupport_SetPageVariable, "SetPageVariable", "ii", R::kPage, &C::SetPageVariable},
        R{kPLXSupport_GetPageVariable, "GetPageVariable", "io", R::kPage, &C::GetPageVariable},
        R{kPLXSupport_GetPageVariableByIndex, "GetPageVariableByIndex", "oox", R::kPage,
          &C::GetPageVariableByIndex},
        R{kPLXSupport_GetPageVariableCount, "GetPageVariableCount", "n", R::kPage, &C::GetPageVariableCount},
        R{kPLXSupport_GetCookie, "GetCookie", "io", R::kPage, &C::GetCookie},

        R{kPLXSupport_SetHTTPResponseStatus, "SetHTTPResponseStatus", "si", R::kPage, &C::SetResponseStatus},
        R{kPLXSupport_SetHTTPResponseHeader, "SetHTTPResponseHeader", "ii", R::kPage, &C::SetResponseHeader},
        R{kPLXSupport_SetHTTPResponseURI, "SetHTTPResponseURI", "i", R::kPage, &C::SetResponseURI},

        R{kPLXSupport_GetAdminDomainName, "GetAdminDomainName", "o", R::kPage, &C::GetAdminDomainName},
        R{kPLXSupport_GetAdminRegionPath, "GetAdminRegionPath", "o", R::kPage, &C::GetAdminRegionPath},
        R{kPLXSupport_GetVirtualHost, "GetVirtualHost", "o", R::kPage, &C::GetVirtualHost},
        R{kPLXSupport_GetVirtualRootPath, "GetVirtualRootPath", "o", R::kPage, &C::GetVirtualRootPath},
        R{kPLXSupport_GetURLPath, "GetURLPath", "o", R::kPage, &C::GetURLPath},
        R{kPLXSupport_GetURLParentFolderPath, "GetURLParentFolderPath", "o", R::kPage,
          &C::GetURLParentFolderPath},
        R{kPLXSupport_GetRegionDataFolderPath, "GetRegionDataFolderPath", "b", R::kPage,
          &C::GetRegionDataFolderPath},
        R{kPLXSupport_MapURLToPhysicalPath, "MapURLToPhysicalPath", "b", R::kPage, &C::MapURLToPhysicalPath},
        R{kPLXSupport_VerifyRegionContainsFile, "VerifyRegionContainsFile", "b", R::kPage,
          &C::VerifyRegionContainsFile},

        R{kPLXSupport_ValidateServerLogin, "ValidateServerLogin", "ii", R::kPage, &C::ValidateServerLogin,
          true},
        R{kPLXSupport_ValidateDomainLogin, "ValidateDomainLogin", "ii", R::kPage, &C::ValidateDomainLogin,
          true},
        R{kPLXSupport_SetPreference, "SetPreference", "ii", R::kPage, &C::SetPreference},
        R{kPLXSupport_GetPreference, "GetPreference", "io", R::kPage, &C::GetPreference},
        R{kPLXSupport_RemovePreference, "RemovePreference", "i", R::kPage, &C::RemovePreference},
    };
    std::sort(requests.begin(), requests.end(), [](R const& a, R const& b) { return a.code < b.code; });
    return requests;
  }();
  auto const found = std::lower_bound(ourRequests.begin(), ourRequests.end(), code_i,
                                      [](R const& request, PLXUInt32 code) { return request.code < code; });
  return found != ourRequests.end() && found->code == code_i ? &*found : nullptr;
}

// The words of one call as its request's slots want them.
struct PLXModuleHost::Connection::Slots {
  PLXOutText outs[2];
  unsigned outCount = 0;
  void* number = nullptr;  // where &n goes

  // Finds and checks what the words name. False when a call breaks the conventions.
  bool Read(Request const& request_i, void* const (&words_i)[5], Call& call_o) {
    unsigned word = 0;
    unsigned ins = 0;
    for (char const* slot = request_i.slots; *slot != '\0'; ++slot) {
      if (*slot == 'x' || *slot == 'n') {
        if (words_i[4] == nullptr) return false;
        if (*slot == 'x') call_o.number = LoadWord(words_i[4]);
        if (*slot == 'n') number = words_i[4];
        continue;
      }
      auto* const text = static_cast<char*>(words_i[word]);
      void* const size = words_i[word + 1];
      word += 2;
      if (size == nullptr) return false;
      if (*slot != 'o' && !ReadText(*slot, text, LoadWord(size), call_o.in[ins++])) return false;
      if (*slot != 'o' && *slot != 'b') continue;
      if (!outs[outCount++].Read(text, size)) return false;
    }
    return true;
  }

  PLXUInt32 Fit(Call const& call_i) const {
    PLXUInt32 result = kPLXResult_Success;
    for (unsigned index = 0; index < outCount; ++index) {
      if (call_i.out[index].size() >= 0xFFFFFFFF) return kPLXResult_GeneralError;
      if (outs[index].IsTooSmall(call_i.out[index])) result = kPLXResult_BufferTooSmall;
    }
    return result;
  }

  // Hands the answers over whole or not at all: a module that gets 'MBtS' asks again with larger buffers, and
  // what fitted keeps its size and its buffer untouched.
  void Write(Call const& call_i, PLXUInt32 result_i) const {
    if (number != nullptr) StoreWord(number, call_i.number);
    for (unsigned index = 0; index < outCount; ++index) {
      outs[index].WriteNeed(call_i.out[index]);
      if (result_i == kPLXResult_Success) outs[index].Write(call_i.out[index]);
    }
  }

 private:
  static bool ReadText(char slot_i, char const* text_i, PLXUInt32 size_i, std::string_view& text_o) {
    if (slot_i != 'w') return ReadInText(text_i, size_i, slot_i == 'i', text_o);
    if (text_i == nullptr) return size_i == 0;
    text_o = {text_i, size_i};
    return true;
  }
};

PLXModuleHost::Connection::Connection(PLXModuleHost& host_i, Module& module_i, Event const& event_i)
    : myHost(host_i),
      myModule(module_i),
      myEvent(event_i),
      myNumber(PLXNextHandle()),
      myOuter(static_cast<Connection*>(ourCurrent)) {
  ourCurrent = this;
}

PLXModuleHost::Connection::~Connection() { ourCurrent = myOuter; }

PLXModuleHost::Connection* PLXModuleHost::Connection::Find(PLXConnectionID id_i) {
  auto* const current = static_cast<Connection*>(ourCurrent);
  return current != nullptr && reinterpret_cast<std::uintptr_t>(id_i) == current->myNumber ? current
                                                                                           : nullptr;
}

// The handle of this event is the service's own and no connection stands behind it, so that all a module can
// ask during the event is what it may ask afterwards.
void PLXModuleHost::Connection::OfferService(PLXModuleHost const& host_i, Module& module_io) {
  module_io.service =
      std::make_unique<PLXModuleService>(module_io.description.name, host_i.myFigures, host_i.myTraceAll);
  _PLXAPI_ModuleProcessingInfo info{module_io.service->Handle(), kPLXEvent_Service, &Connection::Support,
                                    &Connection::Database};
  PLXUInt32 result = kPLXResult_GeneralError;
  try {
    result = module_io.entry(&info);
  } catch (...) {
    PLXLog::Error(module_io.description.name + ": the offer of a service handle ended with an exception");
  }
  if (result != kPLXResult_Success) module_io.service.reset();
}

PLXTagOutcome PLXModuleHost::Connection::Run() {
  _PLXAPI_ModuleProcessingInfo info{reinterpret_cast<PLXConnectionID>(static_cast<std::uintptr_t>(myNumber)),
                                    myEvent.code, &Connection::Support, &Connection::Database};
  auto const since = std::chrono::steady_clock::now();
  if (IsTraced()) {
    PLXTraceEntry entry = NewEntry(PLXTraceEntry::What::kBegins);
    Trace(entry, since);
  }
  try {
    myOutcome.result = myModule.entry(&info);
  } catch (...) {
    std::string what = "an exception of an unknown kind";
    try {
      throw;
    } catch (std::exception const& exception) {
      what = exception.what();
    } catch (...) {
    }
    PLXLog::Error(myModule.description.name + ": " + PLXCodeText(myEvent.code) + " ended with " + what);
    myOutcome.result = kPLXResult_GeneralError;
    myOutcome.hasProblem = true;
    myOutcome.problem = "The module ended with an error of its own.";
    myOutcome.remedy = "Look into the server's log, and tell the maker of the module what it says.";
  }
  if (IsTraced()) {
    PLXTraceEntry entry = NewEntry(PLXTraceEntry::What::kEnds);
    entry.result = PLXCodeText(myOutcome.result);
    entry.bytesWritten = myOutcome.html.size();
    if (myOutcome.hasProblem) entry.problem = myOutcome.problem;
    Trace(entry, since);
  }
  return std::move(myOutcome);
}

PLXUInt32 PLXModuleHost::Connection::Support(PLXConnectionID id_i, PLXUInt32 code_i, void* a1, void* a2,
                                             void* a3, void* a4, void* a5) {
  // No exception crosses into a module; the one that can arise is a want of memory.
  try {
    Connection* const connection = Find(id_i);
    if (connection != nullptr) return connection->AnswerRequest(code_i, {a1, a2, a3, a4, a5});
    return PLXModuleService::Answer(id_i, code_i, {a1, a2, a3, a4, a5}).value_or(kPLXResult_NoConnection);
  } catch (...) {
    return kPLXResult_GeneralError;
  }
}

PLXUInt32 PLXModuleHost::Connection::Database(PLXConnectionID id_i, PLXUInt32 code_i, void* a1, void* a2,
                                              void* a3, void* a4, void* a5, void* a6) {
  try {
    Connection* const connection = Find(id_i);
    if (connection == nullptr) return kPLXResult_NoConnection;
    if (!connection->myDatabase) {
      connection->myDatabase = std::make_unique<PLXModuleDatabase>(connection->myHost.myRecords);
    }
    bool const isTraced = connection->IsTraced();
    auto const since = std::chrono::steady_clock::now();
    PLXTraceEntry entry;
    if (isTraced) entry = connection->NewEntry(PLXTraceEntry::What::kCall);
    entry.code = "database " + PLXCodeText(code_i);
    PLXUInt32 const result =
        connection->myDatabase->Answer(code_i, {a1, a2, a3, a4, a5, a6}, isTraced ? &entry : nullptr);
    entry.result = PLXCodeText(result);
    if (isTraced) connection->Trace(entry, since);
    return result;
  } catch (...) {
    return kPLXResult_GeneralError;
  }
}

PLXUInt32 PLXModuleHost::Connection::AnswerRequest(PLXUInt32 code_i, void* const (&words_i)[5]) {
  Request const* const request = FindRequest(code_i);
  auto const since = std::chrono::steady_clock::now();
  PLXTraceEntry entry;
  if (IsTraced()) {
    entry = NewEntry(PLXTraceEntry::What::kCall);
    entry.code = PLXCodeText(code_i);
  }
  if (request == nullptr) {
    entry.result = PLXCodeText(kPLXResult_UnknownRequest);
    if (IsTraced()) Trace(entry, since);
    return kPLXResult_UnknownRequest;
  }
  Call call;
  Slots slots;
  PLXUInt32 result = kPLXResult_WrongEvent;
  if (!slots.Read(*request, words_i, call)) {
    call = {};
    result = kPLXResult_InvalidCall;
  } else if (IsInOrder(*request)) {
    result = (this->*request->answer)(call);
    if (result == kPLXResult_Success) result = slots.Fit(call);
  }
  // Traced before anything is written: an in/out text lies where its answer goes.
  if (IsTraced()) {
    entry.result = PLXCodeText(result);
    DescribeCall(*request, call, entry);
    Trace(entry, since);
  }
  if (result == kPLXResult_Success || result == kPLXResult_BufferTooSmall) slots.Write(call, result);
  return result;
}

bool PLXModuleHost::Connection::IsInOrder(Request const& request_i) const {
  switch (request_i.needs) {
    case Request::kNothing:
      return true;
    case Request::kAnnouncement:
      return myEvent.code == kPLXEvent_Initialize;
    case Request::kPage:
      return myEvent.context != nullptr;
    case Request::kTag:
      return myEvent.tag != nullptr;
    case Request::kAction:
      return myEvent.code == kPLXEvent_Action;
  }
  return false;
}

PLXTraceEntry PLXModuleHost::Connection::NewEntry(PLXTraceEntry::What what_i) const {
  PLXTraceEntry entry;
  entry.what = what_i;
  entry.event = myNumber;
  entry.module = myModule.description.name;
  entry.eventCode = PLXCodeText(myEvent.code);
  entry.tag = myEvent.action;
  if (myEvent.tag != nullptr) {
    entry.tag = myEvent.tag->name;
    entry.line = myEvent.tag->line;
  }
  if (myEvent.context != nullptr) {
    entry.request = myEvent.context->request.id;
    if (myEvent.tag != nullptr) entry.file = myEvent.context->file.native();
  }
  return entry;
}

void PLXModuleHost::Connection::Trace(PLXTraceEntry& entry_io,
                                      std::chrono::steady_clock::time_point since_i) const {
  entry_io.took =
      std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - since_i);
  if (myEvent.context != nullptr && myHost.myTraceSink) return myHost.myTraceSink(entry_io);
  PLXLog::Trace(entry_io.Line());
}

// Texts and number from the module, texts and number for it. A call that carries a password or asks for one
// shows names and no values.
void PLXModuleHost::Connection::DescribeCall(Request const& request_i, Call const& call_i,
                                             PLXTraceEntry& entry_io) {
  bool const isPassword =
      request_i.code == kPLXSupport_GetCGIEnvironmentVariable && EqualIgnoringCase(call_i.in[0], "AUTH_TYPE");
  bool const isBlanked =
      request_i.isSecret || isPassword || MentionsPassword(call_i.in[0]) || MentionsPassword(call_i.out[0]);
  entry_io.name = request_i.name;
  unsigned ins = 0;
  unsigned outs = 0;
  for (char const* slot = request_i.slots; *slot != '\0'; ++slot) {
    if (*slot == 'x') PLXTraceEntry::AddNumber(entry_io.arguments, call_i.number);
    if (*slot == 'n') PLXTraceEntry::AddNumber(entry_io.answers, call_i.number);
    if (*slot == 'x' || *slot == 'n') continue;
    // The first text is a name, unless it is the only one that the call has to give.
    if (*slot != 'o') {
      PLXTraceEntry::AddText(entry_io.arguments, isBlanked && ins > 0 ? "(blanked)" : call_i.in[ins]);
      ++ins;
    }
    if (*slot == 'o' || *slot == 'b') {
      bool const isName = outs == 0 && std::string_view(request_i.slots).starts_with("oo");
      PLXTraceEntry::AddText(entry_io.answers, isBlanked && !isName ? "(blanked)" : call_i.out[outs]);
      ++outs;
    }
  }
}
