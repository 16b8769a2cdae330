#include "PLXActiveRequests.h"

#include <algorithm>

void PLXActiveRequests::Add(Entry entry_i) {
  std::lock_guard const lock(myMutex);
  auto const id = entry_i.id;
  myEntries.insert_or_assign(id, std::move(entry_i));
}

void PLXActiveRequests::Begin(std::uint64_t id_i) {
  std::lock_guard const lock(myMutex);
  auto const found = myEntries.find(id_i);
  if (found == myEntries.end() || found->second.stage != Stage::kWaiting) return;
  found->second.stage = Stage::kRunning;
  myIDsByURL.emplace(found->second.url, id_i);
}

void PLXActiveRequests::End(std::uint64_t id_i) {
  std::lock_guard const lock(myMutex);
  auto const found = myEntries.find(id_i);
  if (found == myEntries.end()) return;
  Forget(found->second);
  if (found->second.stage == Stage::kGivenUp) {
    myEntries.erase(found);
  } else {
    found->second.stage = Stage::kSending;
  }
}

void PLXActiveRequests::GiveUp(std::uint64_t id_i) {
  std::lock_guard const lock(myMutex);
  auto const found = myEntries.find(id_i);
  if (found != myEntries.end() && found->second.stage == Stage::kRunning) {
    found->second.stage = Stage::kGivenUp;
  }
}

void PLXActiveRequests::Remove(std::uint64_t id_i) {
  std::lock_guard const lock(myMutex);
  auto const found = myEntries.find(id_i);
  if (found == myEntries.end() || found->second.stage == Stage::kGivenUp) return;
  Forget(found->second);
  myEntries.erase(found);
}

std::vector<PLXActiveRequests::Entry> PLXActiveRequests::List() const {
  std::lock_guard const lock(myMutex);
  std::vector<Entry> list;
  list.reserve(myEntries.size());
  for (auto const& [id, entry] : myEntries) list.push_back(entry);
  return list;
}

bool PLXActiveRequests::DepthOf(std::string const& url_i, unsigned& depth_o) const {
  std::lock_guard const lock(myMutex);
  auto const [first, last] = myIDsByURL.equal_range(url_i);
  if (first == last) return false;
  depth_o = 0;
  for (auto at = first; at != last; ++at) depth_o = std::max(depth_o, myEntries.at(at->second).includeDepth);
  return true;
}

void PLXActiveRequests::Forget(Entry const& entry_i) {
  if (!IsRunning(entry_i)) return;
  auto const [first, last] = myIDsByURL.equal_range(entry_i.url);
  for (auto at = first; at != last; ++at) {
    if (at->second == entry_i.id) {
      myIDsByURL.erase(at);
      return;
    }
  }
}
