#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

// What runs right now: for the administration, and to see how deep pages of this server include each other.
// Any thread. Costs a look-up per call; DepthOf is linear in the pages in flight at one URL.
class PLXActiveRequests {
 public:
  enum class Stage { kWaiting, kRunning, kSending, kGivenUp };

  struct Entry {
    std::uint64_t id = 0;
    std::string method, address, url, what;
    unsigned includeDepth = 0;
    std::chrono::steady_clock::time_point since;
    Stage stage = Stage::kWaiting;
  };

  void Add(Entry entry_i);
  // The page begins: until it has ended, requests that name it as their referer are its includes.
  void Begin(std::uint64_t id_i);
  // The page has ended and is on its way to the client, who may take long: it waits for no include any more.
  void End(std::uint64_t id_i);
  // Nobody waits for the page any more, which goes on: it stays in the list until it ends. Nothing for one
  // that does not run.
  void GiveUp(std::uint64_t id_i);
  // The request is over, but for a page that was given up.
  void Remove(std::uint64_t id_i);
  // Oldest first.
  std::vector<Entry> List() const;
  // The include depth of the deepest page that runs at this URL ("http://host/path"). False when none does.
  bool DepthOf(std::string const& url_i, unsigned& depth_o) const;

 private:
  static bool IsRunning(Entry const& entry_i) {
    return entry_i.stage == Stage::kRunning || entry_i.stage == Stage::kGivenUp;
  }
  void Forget(Entry const& entry_i);

  mutable std::mutex myMutex;
  std::map<std::uint64_t, Entry> myEntries;              // guarded by myMutex
  std::multimap<std::string, std::uint64_t> myIDsByURL;  // of running entries; guarded by myMutex
};
