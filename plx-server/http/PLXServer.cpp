#include "PLXServer.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include "PLXASCII.h"
#include "PLXAdministration.h"
#include "PLXFileSwap.h"
#include "PLXLog.h"
#include "PLXSQLConnection.h"
#include "PLXServerPlan.h"
#include "PLXStateVersion.h"

namespace fs = std::filesystem;

namespace {

void MakeFolder(fs::path const& folder_i, char const* key_i) {
  std::error_code error;
  if (fs::is_directory(folder_i, error)) return;
  if (folder_i.has_parent_path()) fs::create_directories(folder_i.parent_path(), error);
  if (::mkdir(folder_i.c_str(), 0700) == 0) return;
  if (errno == EEXIST) {
    if (fs::is_directory(folder_i, error)) return;  // another process was quicker
    throw std::runtime_error(folder_i.string() +
                             ": there is a file of this name where a folder is needed. Rename it, or name "
                             "another folder with the key \"" +
                             key_i + "\".");
  }
  throw std::runtime_error(folder_i.string() + ": the folder cannot be made (" + std::strerror(errno) +
                           "). Make it writable for this user, or name another with the key \"" + key_i +
                           "\".");
}

// What a process that was killed has left of uploads; nobody asks for it again.
void RemoveLeftovers(fs::path const& folder_i) {
  std::error_code error;
  for (fs::directory_iterator at(folder_i, error), end; !error && at != end; at.increment(error)) {
    std::error_code ignored;
    fs::remove_all(at->path(), ignored);
  }
}

PLXLogOptions LogOptions(PLXConfiguration const& configuration_i, PLXServer::Use use_i) {
  PLXLogOptions options;
  if (use_i == PLXServer::Use::kServe) options.folder = configuration_i.state / "logs";
  options.bytesPerFile = configuration_i.logBytes;
  options.filesKept = configuration_i.logFiles;
  return options;
}

// What servers share may come later than they do.
std::unique_ptr<PLXPreferenceStore> OpenPreferences(PLXConfiguration const& configuration_i) {
  try {
    return PLXPreferenceStore::Open(configuration_i);
  } catch (PLXSQLError const& error) {
    if (configuration_i.recordsSource.empty()) throw;
    throw PLXUnavailable(std::string("The preferences are in the data source of the key "
                                     "\"records-source\", and it cannot be used: ") +
                         error.what() + " Start it, or correct the key.");
  }
}

// The keys whose new value waits for the next start, for the log.
std::string KeysForARestart(PLXConfiguration const& old_i, PLXConfiguration const& new_i) {
  PLXLimits const& a = old_i.limits;
  PLXLimits const& b = new_i.limits;
  struct Row {
    char const* key;
    bool changed;
  };
  Row const rows[] = {
      {"listen", old_i.listenAddress != new_i.listenAddress || old_i.listenPort != new_i.listenPort},
      {"state", old_i.state != new_i.state},
      {"shared", old_i.shared != new_i.shared},
      {"modules", old_i.modules != new_i.modules},
      {"proxies", old_i.proxies != new_i.proxies},
      {"records-source", old_i.recordsSource != new_i.recordsSource},
      {"records-user", old_i.recordsUser != new_i.recordsUser},
      {"records-password", old_i.recordsPassword != new_i.recordsPassword},
      {"core-dumps", old_i.coreDumps != new_i.coreDumps},
      {"trace (switched off)", old_i.trace && !new_i.trace},
      {"page-threads", a.pageThreads != b.pageThreads},
      {"waiting-pages", a.waitingPages != b.waitingPages},
      {"overdue-pages", a.overduePages != b.overduePages},
      {"administration-threads", a.administrationThreads != b.administrationThreads},
      {"connections", a.connections != b.connections},
      {"connections-per-address", a.connectionsPerAddress != b.connectionsPerAddress},
      {"header-bytes", a.headerBytes != b.headerBytes},
      {"body-bytes", a.bodyBytes != b.bodyBytes},
      {"body-in-memory-bytes", a.bodyInMemoryBytes != b.bodyInMemoryBytes},
      {"form-fields", a.formFields != b.formFields},
      {"header-time", a.headerTime != b.headerTime},
      {"body-time", a.bodyTime != b.bodyTime},
      {"page-time", a.pageTime != b.pageTime},
      {"write-time", a.writeTime != b.writeTime},
      {"stop-time", a.stopTime != b.stopTime}};
  std::string keys;
  for (Row const& row : rows) {
    if (!row.changed) continue;
    if (!keys.empty()) keys += ", ";
    keys += row.key;
  }
  return keys;
}

}  // namespace

// ---- Generation
// --------------------------------------------------------------------------------------------

void PLXServer::Generation::AddHeaders(PLXResponse& response_io, PLXRegion const* region_i,
                                       Privacy privacy_i) const {
  struct Row {
    Privacy least;
    std::string_view name;
    std::string_view value;
  };
  // Pages for people that a module has looked at, web mail above all. Their own styles and pictures are
  // shown, a script never runs, and other sites neither frame nor read them. Not "no-referrer": browsers then
  // say "null" for the origin of the page's own posts.
  static constexpr Row kRows[] = {
      {Privacy::kPersonal, "Cache-Control", "no-store"},
      {Privacy::kPassword, "Content-Security-Policy",
       "default-src 'self'; script-src 'none'; object-src 'none'; style-src 'self' 'unsafe-inline'; "
       "img-src 'self' data:; form-action 'self'; frame-ancestors 'self'; base-uri 'none'"},
      {Privacy::kPassword, "Referrer-Policy", "same-origin"},
      {Privacy::kPassword, "X-Content-Type-Options", "nosniff"},
      {Privacy::kPassword, "Cross-Origin-Opener-Policy", "same-origin"},
      {Privacy::kPassword, "Cross-Origin-Resource-Policy", "same-origin"}};

  auto const isRegions = [&](std::string_view name_i) {
    return region_i != nullptr && std::ranges::any_of(region_i->Headers(), [&](auto const& header) {
             return EqualIgnoringCase(header.first, name_i);
           });
  };
  if (region_i != nullptr) {
    for (auto const& [name, value] : region_i->Headers()) {
      if (!value.empty() && !response_io.HasHeader(name)) response_io.SetHeader(name, value);
    }
  }
  auto const add = [&](std::string_view name_i, std::string_view value_i) {
    if (!response_io.HasHeader(name_i) && !isRegions(name_i)) response_io.SetHeader(name_i, value_i);
  };
  for (Row const& row : kRows) {
    if (privacy_i >= row.least) add(row.name, row.value);
  }
  for (auto const& [name, value] : Configuration().securityHeaders) add(name, value);
}

// ---- Start and stop
// ------------------------------------------------------------------------------------------

void PrepareFolders(PLXConfiguration const& configuration_i) {
  fs::path const& state = configuration_i.state;
  MakeFolder(state, "state");
  for (char const* name : {"logs", "tmp"}) MakeFolder(state / name, "state");
  if (::access(state.c_str(), W_OK) != 0) {
    throw std::runtime_error(state.string() +
                             ": the folder cannot be written. Give this user the right to, or name "
                             "another with the key \"state\".");
  }
  std::string const problem = SharedFolderProblem(configuration_i);
  if (!problem.empty()) throw PLXUnavailable(problem);
  for (char const* name : {"regions", "logins"}) MakeFolder(configuration_i.SharedFolder() / name, "shared");
}

std::string SharedFolderProblem(PLXConfiguration const& configuration_i) {
  fs::path const& shared = configuration_i.shared;
  std::error_code error;
  if (shared.empty()) return {};
  if (!fs::is_directory(shared, error)) {
    return shared.string() +
           ": the shared folder is not there. Mount it, make it, or name another with the key \"shared\".";
  }
  if (::access(shared.c_str(), R_OK | W_OK | X_OK) != 0) {
    return shared.string() +
           ": the shared folder cannot be written by this user. Give it the right to, or name another with "
           "the key \"shared\".";
  }
  return {};
}

// Beside it lies a folder per site, and no site's name holds a dot.
fs::path ServerLoginsFile(PLXConfiguration const& configuration_i) {
  return configuration_i.SharedFolder() / "logins" / "server.logins";
}

PLXServer::PLXServer(PLXConfiguration configuration_i, std::vector<std::string> overrides_i, Use use_i)
    : myOverrides(std::move(overrides_i)), myUse(use_i), myState(configuration_i.state) {
  PrepareFolders(configuration_i);
  if (myUse == Use::kServe) {
    TakeState(configuration_i);
  } else {
    PLXCheckState(myState);
    PLXLog::Open(LogOptions(configuration_i, myUse));
  }
  bool const trace = configuration_i.trace;
  myRecords = std::make_unique<PLXRecordEngine>(PLXRecordEngine::Settings{
      myState, configuration_i.recordsSource, configuration_i.recordsUser, configuration_i.recordsPassword});
  myPreferences = OpenPreferences(configuration_i);
  myServerLogins = std::make_unique<PLXLoginStore>(ServerLoginsFile(configuration_i));
  myGeneration = std::make_shared<Generation const>(std::move(configuration_i));
  myModules = std::make_unique<PLXModuleHost>(*myPreferences, *myServerLogins, *myRecords, trace);
  myPages = std::make_unique<PLXPageCache>(*myModules);
  myAdministration = std::make_unique<PLXAdministration>(
      *myModules, *myServerLogins, myActive, *myRecords, myCounts, [this] {
        PLXListener const* const listener = myListener;
        return listener ? listener->Status() : PLXListenerStatus{};
      });
}

PLXServer::~PLXServer() {
  // Modules first: what they still have to store or to log needs the rest.
  myAdministration.reset();
  myPages.reset();
  myModules.reset();
  myRecords.reset();
  myPreferences.reset();
  PLXLog::Close();
}

// A restore that was interrupted is finished, a state of an older version changed.
void PLXServer::TakeState(PLXConfiguration const& configuration_i) {
  myLock.emplace(myState);
  PLXLog::Open(LogOptions(configuration_i, myUse));
  if (PLXFinishSwaps(myState)) PLXLog::Warning("A restore that was interrupted is finished now.");
  fs::path const kept = PLXUpgradeState(myState, configuration_i.SharedFolder(), PLXStateSteps());
  if (!kept.empty())
    PLXLog::Note("The state was changed for this version; as it was it is kept in " + kept.string());
  RemoveLeftovers(myState / "tmp");
}

bool PLXServer::LoadModules(std::vector<std::string>& problems_o) {
  bool good = true;
  for (fs::path const& file : Current()->Configuration().modules) {
    std::string problem;
    if (myModules->Load(file, problem)) continue;
    good = false;
    problems_o.push_back(problem);
  }
  return good;
}

bool PLXServer::Serve(std::function<void(std::uint16_t port_i)> const& ready_i) {
  auto const generation = Current();
  PLXConfiguration const& configuration = generation->Configuration();
  PLXListener listener(configuration.listenAddress, configuration.listenPort, configuration.limits,
                       configuration.proxies, myState / "tmp", *this);
  myListener = &listener;
  // Whatever way this ends, nobody may find the listener afterwards.
  struct Leave {
    std::atomic<PLXListener*>& listener;
    ~Leave() { listener = nullptr; }
  } const leave{myListener};
  PLXLog::Note("PLX Server " PLX_SERVER_VERSION " listens on " + configuration.listenAddress + " port " +
               std::to_string(listener.Port()) + ".");
  ready_i(listener.Port());
  bool const isOver = listener.Run([this] { Reload(); }, [this] { myModules->Terminate(); });
  if (isOver) {
    PLXLog::Note("PLX Server stops.");
  } else {
    PLXLog::Warning("PLX Server stops with pages that did not end in time; what they were doing is cut off.");
  }
  return isOver;
}

void PLXServer::Stop() {
  if (PLXListener* const listener = myListener) listener->Stop();
}

std::shared_ptr<PLXServer::Generation const> PLXServer::Current() const {
  std::lock_guard const lock(myMutex);
  return myGeneration;
}

void PLXServer::Reload() {
  auto const old = Current();
  auto next = old;
  if (old->Configuration().file.empty()) {
    PLXLog::Note("There is no configuration file to read again; the logs are opened anew.");
  } else {
    std::vector<PLXConfigurationProblem> problems;
    try {
      PLXConfiguration configuration = LoadConfiguration(old->Configuration().file, myOverrides, problems);
      for (PLXConfigurationProblem const& problem : problems) PLXLog::Error(problem.Text());
      if (!problems.empty()) throw std::runtime_error("what it says cannot be used");
      std::string const keys = KeysForARestart(old->Configuration(), configuration);
      configuration.state = old->Configuration().state;
      configuration.shared = old->Configuration().shared;
      next = std::make_shared<Generation const>(std::move(configuration));
      PLXLog::Note("The configuration was read again: " + old->Configuration().file.string());
      if (!keys.empty()) PLXLog::Warning("These changes wait for the next start of the server: " + keys);
    } catch (std::exception const& error) {
      PLXLog::Error(std::string("The configuration stays as it was: ") + error.what());
    }
    std::lock_guard const lock(myMutex);
    myGeneration = next;
  }
  try {
    PLXLog::Open(LogOptions(next->Configuration(), myUse));
  } catch (std::exception const& error) {
    PLXLog::Error(error.what());
  }
}

// ---- The command line's page
// -----------------------------------------------------------------------------------

PLXRequest PLXServer::CommandLineRequest(PLXSite const& site_i, std::uint16_t port_i,
                                         std::string const& path_i) {
  PLXRequest request;
  request.method = "GET";
  request.path = path_i;
  request.target = EncodePath(path_i);
  request.host = site_i.Configuration().hosts.front();
  if (port_i != 80) request.host += ":" + std::to_string(port_i);
  request.remoteAddress = request.peerAddress = request.serverAddress = "127.0.0.1";
  request.serverPort = port_i;
  request.isFromThisMachine = true;
  return request;
}

PLXResponse PLXServer::RenderText(std::string text_i, std::string const& region_i,
                                  std::vector<PLXNameValue> const& postArguments_i) {
  auto const generation = Current();
  PLXRegion const* const region = generation->sites.FindRegion(region_i);
  if (!region) throw std::invalid_argument("There is no region \"" + region_i + "\".");
  PLXConfiguration const& configuration = generation->Configuration();
  PLXRequest request =
      CommandLineRequest(region->Site(), configuration.listenPort, region->Path() + "command-line");
  request.method = "POST";
  request.postArguments = postArguments_i;
  PLXResponse response;
  PLXPageContext context{region->Site(),
                         *region,
                         request,
                         response,
                         region->Folder() / "command-line",
                         request.target,
                         {},
                         configuration.trace,
                         myRecords.get()};
  response.body = RenderPage(*PLXPage::Parse(std::move(text_i), *myModules), *myModules, context);
  return response;
}

PLXResponse PLXServer::Render(std::string const& path_i, std::vector<PLXNameValue> const& arguments_i,
                              std::string const& site_i, PLXTraceSink const& trace_i) {
  auto plan = std::make_shared<Plan>();
  plan->generation = Current();
  PLXConfiguration const& configuration = plan->generation->Configuration();
  for (auto const& site : plan->generation->sites.All()) {
    if (site_i.empty() || site->Name() == site_i) {
      plan->site = site.get();
      break;
    }
  }
  if (!plan->site) return ErrorPage(404, "There is no site named \"" + site_i + "\" in the configuration.");

  PLXRequest request = CommandLineRequest(*plan->site, configuration.listenPort,
                                          path_i.starts_with('/') ? path_i : "/" + path_i);
  request.pathArguments = arguments_i;
  for (PLXNameValue const& argument : arguments_i) {
    request.query += request.query.empty() ? "" : "&";
    request.query += EncodeArgument(argument.name) + "=" + EncodeArgument(argument.value);
  }
  if (!request.query.empty()) request.target += "?" + request.query;

  Privacy privacy = Privacy::kOpen;
  plan->region = &plan->site->RegionOf(request.path);
  plan->scriptName = EncodePath(request.path);
  PlanPath(request, *plan);
  switch (plan->what) {
    case Plan::What::kPage: {
      if (!trace_i) return AnswerPage(request, *plan, privacy);
      request.headers.push_back({"X-PLX-Trace", "1"});
      myModules->TraceTo(trace_i);
      PLXResponse response = AnswerPage(request, *plan, privacy);
      myModules->TraceTo({});
      return response;
    }
    case Plan::What::kAnswer:
      return plan->answer;
    default:
      return ErrorPage(404, request.path + " is no page.");
  }
}
