#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "PLXASCII.h"
#include "PLXFigures.h"
#include "PLXLoginStore.h"
#include "PLXModuleAPI.h"
#include "PLXModuleTrace.h"
#include "PLXPreferenceStore.h"
#include "PLXRecordStore.h"
#include "PLXTagProcessor.h"

// What a module said of itself, for the administration.
struct PLXModuleDescription {
  std::string name;
  std::string version;
  std::string author;
  std::string versionTracker;
  std::filesystem::path file;
  std::vector<PLXTagProcessor::Tag> tags;
  std::vector<std::string> actions;
};

// The loaded modules: the server's side of the contract in PLXModuleAPI.h.
//
// Load and Unload are called before the first and after the last request; everything else on any thread. Each
// event is one call into the module on the caller's thread, with a record and a connection of its own; the
// connection answers the module's calls until the event returns and refuses all after it.
class PLXModuleHost : public PLXTagProcessor {
 public:
  // All must outlive the host. `traceAll_i` writes every event and call to the trace log.
  PLXModuleHost(PLXPreferenceStore& preferences_i, PLXLoginStore& serverLogins_i, PLXRecordEngine& records_i,
                bool traceAll_i);
  ~PLXModuleHost() override;  // unloads

  // Opens the library, finds its entry, announces. False with a sentence (what, where, remedy) otherwise: a
  // file that is missing, does not load, lacks the entry or refuses the announcement leaves nothing behind.
  bool Load(std::filesystem::path const& file_i, std::string& problem_o);
  // Sends the terminate event to every module, last loaded first, once. Actions go on being run until theirs
  // has answered it; everything else must be over.
  void Terminate();
  // Closes the libraries, last loaded first, after Terminate.
  void Unload();

  Tag const* FindTag(std::string_view name_i) const override;
  PLXTagOutcome Process(PLXTagOccurrence const& tag_i, PLXPageContext& context_io) override;

  bool HasAction(std::string_view name_i) const;  // ignores letter case
  PLXTagOutcome RunAction(std::string_view name_i, PLXPageContext& context_io);

  std::vector<PLXModuleDescription> Describe() const;
  // From now on what is traced of requests goes there in place of the trace log; an empty sink ends that. The
  // sink is called on the threads of the events. Requires: no request is running.
  void TraceTo(PLXTraceSink sink_i) { myTraceSink = std::move(sink_i); }
  // The preference page of module `index_i` for the context's region, and a post of it (the request's post
  // arguments). Requires: index_i < Describe().size().
  PLXTagOutcome GetPreferencesPage(std::size_t index_i, PLXPageContext& context_io);
  PLXTagOutcome SetPreferences(std::size_t index_i, PLXPageContext& context_io);
  // What the modules count for the operator.
  PLXFigures const& Figures() const { return *myFigures; }

 private:
  struct Module;
  class Connection;
  bool Announce(Module& module_io, std::string& problem_o);
  void Forget(Module const& module_i);
  PLXLoginStore& DomainLogins(std::filesystem::path const& file_i);

  std::vector<std::unique_ptr<Module>> myModules;
  std::map<std::string, std::pair<Module*, Tag>, PLXLessIgnoringCase> myTags;
  std::map<std::string, Module*, PLXLessIgnoringCase> myActions;
  PLXPreferenceStore& myPreferences;
  PLXLoginStore& myServerLogins;
  PLXRecordEngine& myRecords;
  std::shared_ptr<PLXFigures> const myFigures = std::make_shared<PLXFigures>();
  std::mutex myDomainLoginsMutex;
  std::map<std::string, std::unique_ptr<PLXLoginStore>>
      myDomainLogins;  // by file, guarded by myDomainLoginsMutex
  bool const myTraceAll;
  PLXTraceSink myTraceSink;
};
