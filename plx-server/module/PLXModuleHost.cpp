#include "PLXModuleHost.h"

#include <dlfcn.h>

#include "PLXCodeText.h"
#include "PLXLog.h"
#include "PLXModuleConnection.h"

namespace {

// What stays to be said when there is no memory left to say it in.
PLXTagOutcome OutOfMemory() noexcept {
  PLXTagOutcome outcome;
  outcome.result = kPLXResult_GeneralError;
  return outcome;
}

PLXTagOutcome Unregistered() {
  PLXTagOutcome outcome;
  outcome.result = kPLXResult_EventNotHandled;
  return outcome;
}

}  // namespace

PLXModuleHost::PLXModuleHost(PLXPreferenceStore& preferences_i, PLXLoginStore& serverLogins_i,
                             PLXRecordEngine& records_i, bool traceAll_i)
    : myPreferences(preferences_i),
      myServerLogins(serverLogins_i),
      myRecords(records_i),
      myTraceAll(traceAll_i) {}

PLXModuleHost::~PLXModuleHost() { Unload(); }

bool PLXModuleHost::Load(std::filesystem::path const& file_i, std::string& problem_o) {
  auto module = std::make_unique<Module>();
  // A name without a folder would be looked for along the system's library path.
  std::filesystem::path const file = std::filesystem::absolute(file_i);
  std::string const where = "The module " + file.native();
  module->description.file = file;
  module->description.name = file.stem().native();

  module->library = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (module->library == nullptr) {
    char const* const reason = dlerror();
    problem_o = where + " cannot be loaded: " + (reason == nullptr ? "no reason was given" : reason) +
                ". Check the path, and that the file is a module built for this system.";
    return false;
  }
  for (auto const& loaded : myModules) {
    if (loaded->library != module->library) continue;
    problem_o = where + " is loaded already. Name it once only.";
    return false;
  }
  module->entry = reinterpret_cast<PLXModuleEntryPtr>(dlsym(module->library, kPLXModuleEntryName));
  if (module->entry == nullptr) {
    problem_o = where + " has no entry \"" + kPLXModuleEntryName +
                "\". It is a library of another kind, or was built without exporting its entry.";
    return false;
  }
  if (!Announce(*module, problem_o)) return false;
  PLXLog::Note("Loaded " + module->description.name + " " + module->description.version + " from " +
               file.native());
  myModules.push_back(std::move(module));
  Connection::OfferService(*this, *myModules.back());
  return true;
}

bool PLXModuleHost::Announce(Module& module_io, std::string& problem_o) {
  PLXTagOutcome const outcome = Connection(*this, module_io, {kPLXEvent_Initialize}).Run();
  std::string reason;
  if (outcome.result != kPLXResult_Success) {
    reason = "answered its announcement with " + PLXCodeText(outcome.result) + ". " + module_io.refusals;
    if (outcome.hasProblem) reason += outcome.problem + " " + outcome.remedy;
  } else if (!module_io.isNamed) {
    reason = "has not told its name, under which its preferences are kept. Tell its maker.";
  }
  for (auto const& loaded : myModules) {
    if (reason.empty() && loaded->description.name == module_io.description.name) {
      reason = "has the same name as " + loaded->description.file.native() + ", \"" +
               module_io.description.name + "\". Load one of them only.";
    }
  }
  if (reason.empty()) return true;

  problem_o = "The module " + module_io.description.file.native() + " " + reason;
  if (outcome.result == kPLXResult_Success) Connection(*this, module_io, {kPLXEvent_Terminate}).Run();
  Forget(module_io);
  return false;
}

void PLXModuleHost::Forget(Module const& module_i) {
  std::erase_if(myTags, [&](auto const& entry) { return entry.second.first == &module_i; });
  std::erase_if(myActions, [&](auto const& entry) { return entry.second == &module_i; });
}

void PLXModuleHost::Terminate() {
  for (auto module = myModules.rbegin(); module != myModules.rend(); ++module) {
    if ((*module)->isTerminated) continue;
    PLXTagOutcome const outcome = Connection(*this, **module, {kPLXEvent_Terminate}).Run();
    (*module)->isTerminated = true;
    (*module)->service.reset();
    if (outcome.result == kPLXResult_Success) continue;
    PLXLog::Warning((*module)->description.name + " answered its end with " + PLXCodeText(outcome.result));
  }
}

void PLXModuleHost::Unload() {
  Terminate();
  for (; !myModules.empty(); myModules.pop_back()) Forget(*myModules.back());
}

PLXTagProcessor::Tag const* PLXModuleHost::FindTag(std::string_view name_i) const {
  auto const found = myTags.find(name_i);
  return found == myTags.end() ? nullptr : &found->second.second;
}

PLXTagOutcome PLXModuleHost::Process(PLXTagOccurrence const& tag_i, PLXPageContext& context_io) {
  try {
    auto const found = myTags.find(tag_i.name);
    if (found == myTags.end()) return Unregistered();
    return Connection(*this, *found->second.first, {kPLXEvent_Tag, &context_io, &tag_i}).Run();
  } catch (...) {
    return OutOfMemory();
  }
}

bool PLXModuleHost::HasAction(std::string_view name_i) const { return myActions.contains(name_i); }

PLXTagOutcome PLXModuleHost::RunAction(std::string_view name_i, PLXPageContext& context_io) {
  auto const found = myActions.find(name_i);
  if (found == myActions.end() || found->second->isTerminated) return Unregistered();
  return Connection(*this, *found->second, {kPLXEvent_Action, &context_io, nullptr, found->first}).Run();
}

std::vector<PLXModuleDescription> PLXModuleHost::Describe() const {
  std::vector<PLXModuleDescription> descriptions;
  descriptions.reserve(myModules.size());
  for (auto const& module : myModules) {
    PLXModuleDescription& description = descriptions.emplace_back(module->description);
    for (auto const& [name, tag] : myTags) {
      if (tag.first == module.get()) description.tags.push_back(tag.second);
    }
    for (auto const& [name, owner] : myActions) {
      if (owner == module.get()) description.actions.push_back(name);
    }
  }
  return descriptions;
}

PLXTagOutcome PLXModuleHost::GetPreferencesPage(std::size_t index_i, PLXPageContext& context_io) {
  myPreferences.Refresh();  // whoever has just saved them on another server wants to see it
  return Connection(*this, *myModules.at(index_i), {kPLXEvent_GetPreferences, &context_io}).Run();
}

PLXTagOutcome PLXModuleHost::SetPreferences(std::size_t index_i, PLXPageContext& context_io) {
  return Connection(*this, *myModules.at(index_i), {kPLXEvent_SetPreferences, &context_io}).Run();
}

PLXLoginStore& PLXModuleHost::DomainLogins(std::filesystem::path const& file_i) {
  std::lock_guard const lock(myDomainLoginsMutex);
  auto& store = myDomainLogins[file_i.native()];
  if (store == nullptr) store = std::make_unique<PLXLoginStore>(file_i);
  return *store;
}
