#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "PLXActiveRequests.h"
#include "PLXConfiguration.h"
#include "PLXListener.h"
#include "PLXLoginStore.h"
#include "PLXLoginThrottle.h"
#include "PLXModuleHost.h"
#include "PLXPage.h"
#include "PLXPreferenceStore.h"
#include "PLXRecordStore.h"
#include "PLXSite.h"
#include "PLXStateLock.h"
#include "PLXStatus.h"

class PLXAdministration;

// Makes the state folder, mode 0700, with the folders that the server keeps in it and in the shared one. That
// itself is never made: what is missing there is a file system that was not mounted. Throws
// std::runtime_error with a sentence when it cannot be done, PLXUnavailable for the shared folder.
void PrepareFolders(PLXConfiguration const& configuration_i);
// Why the shared folder cannot be used, as a sentence with the remedy; empty when it can or none is
// configured.
std::string SharedFolderProblem(PLXConfiguration const& configuration_i);
// The file with the logins that open the administration.
std::filesystem::path ServerLoginsFile(PLXConfiguration const& configuration_i);

// The server: finds site, region and file of a request and answers with a static file, a page, an action or
// the administration. Lives from start to stop; configuration can be replaced while it runs: a request keeps
// the sites that it began with.
class PLXServer : public PLXRequestHandler {
 public:
  enum class Use {
    kServe,   // owns the state folder: locks it, tidies it, logs into it
    kRender,  // a visitor beside a server that may run: no lock, and its log is standard error
  };

  // Everything the server keeps lies in the configuration's state folder, which it makes and locks, and in
  // what it shares with others. `overrides_i` are the command line's key=value pairs, taken again at each
  // Reload. Throws PLXUnavailable when another server uses the state folder or what is shared is not there,
  // PLXStateVersionError when the state is not one that this server knows or can bring to its own version,
  // std::runtime_error with a sentence when the folder cannot be written.
  explicit PLXServer(PLXConfiguration configuration_i, std::vector<std::string> overrides_i = {},
                     Use use_i = Use::kServe);
  ~PLXServer() override;

  // Loads the configured modules; false with a sentence for each that does not.
  bool LoadModules(std::vector<std::string>& problems_o);
  // Listens and serves until stopped; `ready_i` is told the port. Throws as PLXListener does. False when
  // pages still run afterwards and use the server, which then must not be destroyed.
  bool Serve(std::function<void(std::uint16_t port_i)> const& ready_i);
  // Ends Serve in an orderly way. Any thread, once `ready_i` was called.
  void Stop();
  // Reads the configuration's file again and takes it over for the requests to come. With problems the old
  // one stays, and the log has each. What only a start can change is said in the log, too. Opens the logs
  // anew.
  void Reload();
  // Renders one page outside any connection, for the command line: no login is asked for. 404 for what is no
  // page. An empty site name means the first site. With a sink, all that modules do and ask meanwhile goes
  // there.
  PLXResponse Render(std::string const& path_i, std::vector<PLXNameValue> const& arguments_i,
                     std::string const& site_i = {}, PLXTraceSink const& trace_i = {});
  // The same for a text that is no file, as a page in the folder of the region "SITE/REGION" to which a form
  // was posted. Throws std::invalid_argument when there is no such region.
  PLXResponse RenderText(std::string text_i, std::string const& region_i,
                         std::vector<PLXNameValue> const& postArguments_i);
  // Whether anybody can open the administration.
  bool HasServerLogin() { return !myServerLogins->IsEmpty(); }
  PLXActiveRequests& Active() { return myActive; }

  PLXDisposition Dispose(PLXRequest& request_io) override;
  PLXResponse Answer(PLXRequest& request_io, std::shared_ptr<void> const& state_i) override;
  void Finished(PLXRequest const& request_i, PLXResponse const& response_i, std::uint64_t bytesSent_i,
                std::chrono::microseconds took_i) override;
  void GivenUp(PLXRequest const& request_i) override;
  PLXResponse ErrorAnswer(int status_i, std::string const& sentence_i) override;

 private:
  struct Generation;  // one configuration and what follows from it, shared by the requests that began with it
  struct Plan;        // how one request is to be answered
  enum class Privacy;

  void TakeState(PLXConfiguration const& configuration_i);
  std::shared_ptr<Generation const> Current() const;

  // Dispose, step by step; each fills the plan or leaves it for the next.
  void FindSite(PLXRequest& request_io, Plan& plan_io) const;
  bool FindDepth(PLXRequest& request_io, Plan& plan_io) const;
  void PlanAdministration(PLXRequest const& request_i, Plan& plan_io) const;
  void PlanPath(PLXRequest const& request_i, Plan& plan_io) const;
  void PlanFolder(PLXRequest const& request_i, Plan& plan_io) const;
  void PlanFile(PLXRequest const& request_i, Plan& plan_io) const;
  void PlanPost(PLXRequest const& request_i, Plan& plan_io) const;
  void PlanMissing(PLXRequest const& request_i, Plan& plan_io) const;
  PLXDisposition DisposePlan(PLXRequest& request_io, std::shared_ptr<Plan> const& plan_i);
  bool IsShownAtOnce(PLXRequest const& request_i, Plan& plan_io);
  void AddActive(PLXRequest const& request_i, Plan const& plan_i);

  // Answer, step by step.
  PLXResponse AnswerPlan(PLXRequest& request_io, Plan const& plan_i, Privacy& privacy_io);
  bool MayEnter(PLXRequest const& request_i, Plan const& plan_i, PLXResponse& refusal_o);
  PLXResponse AnswerPage(PLXRequest const& request_i, Plan const& plan_i, Privacy& privacy_io);
  void CountPageLogin(PLXLoginThrottle::Attempt const& attempt_i, PLXPageContext const& context_i);
  PLXResponse AnswerAction(PLXRequest const& request_i, Plan const& plan_i);
  PLXLoginStore& LoginsOf(PLXRegion const& region_i);
  static PLXRequest CommandLineRequest(PLXSite const& site_i, std::uint16_t port_i,
                                       std::string const& path_i);

  std::vector<std::string> const myOverrides;
  Use const myUse;
  std::filesystem::path const myState;
  std::optional<PLXStateLock> myLock;  // kServe
  std::unique_ptr<PLXPreferenceStore> myPreferences;
  std::unique_ptr<PLXLoginStore> myServerLogins;
  std::unique_ptr<PLXRecordEngine> myRecords;
  std::unique_ptr<PLXModuleHost> myModules;
  std::unique_ptr<PLXPageCache> myPages;
  PLXActiveRequests myActive;
  PLXRequestCounts myCounts;
  PLXLoginThrottle myThrottle;  // of logins to regions and to pages
  std::unique_ptr<PLXAdministration> myAdministration;
  std::atomic<PLXListener*> myListener{nullptr};

  mutable std::mutex myMutex;  // guards all below
  std::shared_ptr<Generation const> myGeneration;
  std::map<std::filesystem::path, std::unique_ptr<PLXLoginStore>> myRegionLogins;
};
