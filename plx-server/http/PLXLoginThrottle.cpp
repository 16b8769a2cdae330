#include "PLXLoginThrottle.h"

#include <algorithm>
#include <vector>

namespace {

constexpr std::size_t kAddresses = 4096;
constexpr unsigned kFreeFailures = 5;
constexpr unsigned kLongestShift = 5;  // 1, 2, 4, 8, 16, 30 seconds
constexpr std::chrono::seconds kLongestWait{30};
constexpr std::chrono::minutes kMemory{10};

}  // namespace

std::chrono::seconds PLXLoginThrottle::Wait(std::string const& address_i, Clock::time_point now_i) {
  std::lock_guard const lock(myMutex);
  auto const found = myEntries.find(address_i);
  if (found == myEntries.end() || found->second.closedUntil <= now_i) return std::chrono::seconds{0};
  return std::chrono::ceil<std::chrono::seconds>(found->second.closedUntil - now_i);
}

void PLXLoginThrottle::Failed(std::string const& address_i, Clock::time_point now_i) {
  std::lock_guard const lock(myMutex);
  if (myEntries.size() >= kAddresses && !myEntries.contains(address_i)) MakeRoom(now_i);
  Entry& entry = myEntries[address_i];
  if (now_i - entry.last > kMemory) entry.failures = 0;
  entry.last = now_i;
  if (++entry.failures < kFreeFailures) return;
  auto const wait = std::chrono::seconds{1u << std::min(entry.failures - kFreeFailures, kLongestShift)};
  entry.closedUntil = now_i + std::min(wait, kLongestWait);
}

void PLXLoginThrottle::Succeeded(std::string const& address_i) {
  std::lock_guard const lock(myMutex);
  myEntries.erase(address_i);
}

void PLXLoginThrottle::MakeRoom(Clock::time_point now_i) {
  std::erase_if(myEntries, [&](auto const& pair_i) { return now_i - pair_i.second.last > kMemory; });
  if (myEntries.size() < kAddresses) return;
  // A quarter goes, the quietest first, so that the sort is paid for by a thousand further addresses.
  std::vector<Clock::time_point> times;
  times.reserve(myEntries.size());
  for (auto const& [address, entry] : myEntries) times.push_back(entry.last);
  auto const middle = times.begin() + static_cast<std::ptrdiff_t>(times.size() / 4);
  std::nth_element(times.begin(), middle, times.end());
  auto const limit = *middle;
  std::erase_if(myEntries, [&](auto const& pair_i) { return pair_i.second.last <= limit; });
}
