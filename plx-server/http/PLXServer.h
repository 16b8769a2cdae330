#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "PLXConfiguration.h"
#include "PLXListener.h"
#include "PLXLoginStore.h"
#include "PLXModuleHost.h"
#include "PLXPage.h"
#include "PLXPreferenceStore.h"
#include "PLXSite.h"

// What runs right now: for the administration, and to see how deep pages of this server include each other.
class PLXActiveRequests {
 public:
  struct Entry {
    std::uint64_t id;
    std::string method, address, url, what;
    unsigned includeDepth;
    std::chrono::steady_clock::time_point since;
  };
  void Add(Entry entry_i);
  void Remove(std::uint64_t id_i);
  std::vector<Entry> List() const;
  // The include depth of the deepest page in flight at this URL ("http://host/path"), or none.
  bool DepthOf(std::string const& url_i, unsigned& depth_o) const;

 private:
  mutable std::mutex myMutex;
  std::map<std::uint64_t, Entry> myEntries;                 // guarded by myMutex
  std::multimap<std::string, std::uint64_t> myIDsByURL;     // guarded by myMutex
};

// The server: finds site, region and file of a request and answers with a static file, a page, an action or the
// administration. Lives from start to stop; configuration can be replaced while it runs.
class PLXServer : public PLXRequestHandler {
 public:
  // Everything the server keeps lies in the configuration's state folder, which it makes and locks. Throws
  // std::runtime_error with a sentence when another server uses it or it cannot be written.
  explicit PLXServer(PLXConfiguration configuration_i);
  ~PLXServer() override;

  // Loads the configured modules; false with a sentence for each that does not.
  bool LoadModules(std::vector<std::string>& problems_o);
  // Listens and serves until stopped. Throws as PLXListener does.
  void Serve(std::function<void(std::uint16_t port_i)> const& ready_i);
  // Takes over a new configuration; what only a start can change is said in the log.
  void Reload();
  // Renders one page outside any connection, for the command line.
  PLXResponse Render(std::string const& path_i, std::vector<PLXNameValue> const& arguments_i);

  PLXDisposition Dispose(PLXRequest& request_io) override;
  PLXResponse Answer(PLXRequest& request_io, std::shared_ptr<void> const& state_i) override;
  void Finished(PLXRequest const& request_i, PLXResponse const& response_i, std::uint64_t bytesSent_i,
                std::chrono::microseconds took_i) override;
  PLXResponse ErrorAnswer(int status_i, std::string const& sentence_i) override;
};
