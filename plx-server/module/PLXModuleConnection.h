#pragma once

#include <atomic>
#include <dlfcn.h>
#include <memory>

#include "PLXModuleDatabase.h"
#include "PLXModuleHost.h"
#include "PLXModuleService.h"

// What the server answers a module's call with, beyond the codes of the contract.
inline constexpr PLXUInt32 kPLXResult_NoConnection =
    PLXCode("MNCn");  // the event of this handle has returned
inline constexpr PLXUInt32 kPLXResult_InvalidCall =
    PLXCode("MICl");  // a null address, a wrong size, no terminator
inline constexpr PLXUInt32 kPLXResult_WrongEvent = PLXCode("MWEv");  // not to be asked during this event
inline constexpr PLXUInt32 kPLXResult_NotFound = PLXCode("MNFd");  // no such parameter, argument, value, path
inline constexpr PLXUInt32 kPLXResult_NotAllowed =
    PLXCode("MNAl");  // refused: a name taken, a header of ours
inline constexpr PLXUInt32 kPLXResult_UnknownRequest = PLXCode("MUnR");

struct PLXModuleHost::Module {
  PLXModuleDescription description;
  void* library = nullptr;  // of dlopen
  PLXModuleEntryPtr entry = nullptr;
  bool isNamed = false;                       // until then its file's name stands in its description
  std::atomic<bool> isTerminated = false;     // it has answered the terminate event
  std::string refusals;                       // sentences on what it announced and did not get
  std::unique_ptr<PLXModuleService> service;  // when it wants one, until it has answered the terminate event

  Module() = default;
  Module(Module const&) = delete;
  Module& operator=(Module const&) = delete;
  ~Module() {
    if (library != nullptr) dlclose(library);
  }
};

// One event: the call into the module, and the answers to what the module asks before that call returns.
//
// Lives on the stack of the event's thread. The module's handle is a number that is never used twice; it is
// good for the innermost event of the calling thread and for nothing else, so a handle that was kept, or was
// carried to another thread, is refused without looking behind it.
class PLXModuleHost::Connection {
 public:
  struct Event {
    PLXUInt32 code;
    PLXPageContext* context = nullptr;      // null when modules are loaded and unloaded
    PLXTagOccurrence const* tag = nullptr;  // 'MTag'
    std::string_view action = {};           // 'MAct'
  };

  Connection(PLXModuleHost& host_i, Module& module_i, Event const& event_i);
  ~Connection();
  Connection(Connection const&) = delete;
  Connection& operator=(Connection const&) = delete;

  // Offers the module a service handle, which it then has or has not.
  static void OfferService(PLXModuleHost const& host_i, Module& module_io);
  // Calls the module once. Never throws but std::bad_alloc: what the module throws becomes 'MGen', a line in
  // the log and a problem.
  PLXTagOutcome Run();

 private:
  // One request of the module while it is answered, its texts found and checked.
  struct Call {
    std::string_view in[2];
    std::string_view out[2];
    std::string kept;      // for an answer that has no home elsewhere
    PLXUInt32 number = 0;  // &i in, &n out

    PLXUInt32 Answer(std::string text_i) {
      kept = std::move(text_i);
      out[0] = kept;
      return kPLXResult_Success;
    }
  };
  struct Request;
  struct Slots;

  static PLXUInt32 Support(PLXConnectionID id_i, PLXUInt32 code_i, void* a1, void* a2, void* a3, void* a4,
                           void* a5);
  static PLXUInt32 Database(PLXConnectionID id_i, PLXUInt32 code_i, void* a1, void* a2, void* a3, void* a4,
                            void* a5, void* a6);
  static Connection* Find(PLXConnectionID id_i);
  static Request const* FindRequest(PLXUInt32 code_i);

  PLXUInt32 AnswerRequest(PLXUInt32 code_i, void* const (&words_i)[5]);
  bool IsInOrder(Request const& request_i) const;

  bool IsTraced() const {
    return myHost.myTraceAll || (myEvent.context != nullptr && myEvent.context->trace);
  }
  PLXUInt32 RefuseAnnouncement(std::string const& sentence_i);
  PLXTraceEntry NewEntry(PLXTraceEntry::What what_i) const;
  void Trace(PLXTraceEntry& entry_io, std::chrono::steady_clock::time_point since_i) const;
  static void DescribeCall(Request const& request_i, Call const& call_i, PLXTraceEntry& entry_io);

  static PLXUInt32 AnswerByName(std::vector<PLXNameValue> const& list_i, bool ignoreCase_i, Call& call_io);
  static PLXUInt32 AnswerByIndex(std::vector<PLXNameValue> const& list_i, Call& call_io);
  static PLXUInt32 AnswerCount(std::vector<PLXNameValue> const& list_i, Call& call_io);
  static PLXUInt32 IsAccepted(PLXLoginStore& logins_io, Call const& call_i);

  // The answers, by family; each returns the result and leaves the outputs in the call.
  PLXUInt32 GetModulePath(Call& call_io);
  PLXUInt32 GetModuleParentFolderPath(Call& call_io);
  PLXUInt32 WriteToServer(Call& call_io);
  PLXUInt32 WriteToLog(Call& call_io);
  PLXUInt32 SetErrorInformation(Call& call_io);
  PLXUInt32 NormalizeString(Call& call_io);
  PLXUInt32 GetDefaultLanguage(Call& call_io);
  PLXUInt32 GetPageID(Call& call_io);

  PLXUInt32 RegisterName(Call& call_io);
  PLXUInt32 RegisterVersion(Call& call_io);
  PLXUInt32 RegisterAuthor(Call& call_io);
  PLXUInt32 RegisterDeveloperID(Call& call_io);
  PLXUInt32 RegisterVersionTracker(Call& call_io);
  PLXUInt32 RegisterForTag(Call& call_io);
  PLXUInt32 UnregisterForTag(Call& call_io);
  PLXUInt32 RegisterForAction(Call& call_io);
  PLXUInt32 UnregisterForAction(Call& call_io);

  PLXUInt32 GetTag(Call& call_io);
  PLXUInt32 GetTagParameter(Call& call_io);
  PLXUInt32 GetTagParameterByIndex(Call& call_io);
  PLXUInt32 GetTagParameterCount(Call& call_io);
  PLXUInt32 GetTagBody(Call& call_io);
  PLXUInt32 GetActionName(Call& call_io);
  PLXUInt32 GetPathArgument(Call& call_io);
  PLXUInt32 GetPathArgumentByIndex(Call& call_io);
  PLXUInt32 GetPathArgumentCount(Call& call_io);
  PLXUInt32 GetPostArgument(Call& call_io);
  PLXUInt32 GetPostArgumentByIndex(Call& call_io);
  PLXUInt32 GetPostArgumentCount(Call& call_io);
  PLXUInt32 GetCGIVariable(Call& call_io);
  PLXUInt32 SetPageVariable(Call& call_io);
  PLXUInt32 GetPageVariable(Call& call_io);
  PLXUInt32 GetPageVariableByIndex(Call& call_io);
  PLXUInt32 GetPageVariableCount(Call& call_io);
  PLXUInt32 GetCookie(Call& call_io);

  PLXUInt32 SetResponseStatus(Call& call_io);
  PLXUInt32 SetResponseHeader(Call& call_io);
  PLXUInt32 SetResponseURI(Call& call_io);

  PLXUInt32 GetAdminDomainName(Call& call_io);
  PLXUInt32 GetAdminRegionPath(Call& call_io);
  PLXUInt32 GetVirtualHost(Call& call_io);
  PLXUInt32 GetVirtualRootPath(Call& call_io);
  PLXUInt32 GetURLPath(Call& call_io);
  PLXUInt32 GetURLParentFolderPath(Call& call_io);
  PLXUInt32 GetRegionDataFolderPath(Call& call_io);
  PLXUInt32 MapURLToPhysicalPath(Call& call_io);
  PLXUInt32 VerifyRegionContainsFile(Call& call_io);

  PLXUInt32 ValidateServerLogin(Call& call_io);
  PLXUInt32 ValidateDomainLogin(Call& call_io);
  PLXUInt32 SetPreference(Call& call_io);
  void ReportPreferences();
  PLXUInt32 GetPreference(Call& call_io);
  PLXUInt32 RemovePreference(Call& call_io);

  PLXModuleHost& myHost;
  Module& myModule;
  Event const myEvent;
  std::uint64_t const myNumber;
  Connection* const myOuter;  // the event of this thread that was running before, if any
  PLXTagOutcome myOutcome;
  std::unique_ptr<PLXModuleDatabase> myDatabase;  // once the module asks for one
};
