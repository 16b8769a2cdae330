#include "PLXLoginThrottle.h"

#include <algorithm>
#include <arpa/inet.h>
#include <netinet/in.h>
#include <vector>

#include "PLXASCII.h"

namespace {

constexpr std::size_t kEntries = 4096;
constexpr std::size_t kLongestName = 255;  // bytes; what is longer is no user anywhere
constexpr unsigned kFreeFailures = 5;
// More than one address can fail in five minutes, so that a single one hardly closes a name for all others.
constexpr unsigned kFreeFailures_User = 20;
constexpr unsigned kLongestShift = 5;  // 1, 2, 4, 8, 16, 30 seconds
constexpr std::chrono::seconds kLongestWait{30};

// A host of IPv6 has 64 bits of addresses to itself (RFC 4291, section 2.5.1) and counts as one.
std::string AddressKey(std::string_view address_i) {
  std::string address(address_i);
  in6_addr bytes;
  if (::inet_pton(AF_INET6, address.c_str(), &bytes) != 1) return address;
  std::fill(bytes.s6_addr + 8, bytes.s6_addr + 16, std::uint8_t{0});
  char text[INET6_ADDRSTRLEN];
  return ::inet_ntop(AF_INET6, &bytes, text, sizeof text) ? text : address;
}

// No realm and no address holds a zero byte.
std::string UserKey(PLXLoginThrottle::Attempt const& attempt_i) {
  return std::string(attempt_i.realm) + '\0' + std::string(attempt_i.user.substr(0, kLongestName));
}

// Some realms ignore the case of names, and there every spelling guesses at the same user.
std::string LowerKey(std::string key_i) {
  std::ranges::transform(key_i, key_i.begin(), LowerASCII);
  return key_i;
}

// The keys of one attempt.
struct Keys {
  explicit Keys(PLXLoginThrottle::Attempt const& attempt_i)
      : address(AddressKey(attempt_i.address)), pair(UserKey(attempt_i)), user(LowerKey(pair)) {
    pair = address + '\0' + pair;
  }
  std::string address;
  std::string pair;
  std::string user;
};

}  // namespace

std::chrono::seconds PLXLoginThrottle::Wait(Attempt const& attempt_i, Clock::time_point now_i) {
  Keys const keys(attempt_i);
  std::lock_guard const lock(myMutex);
  Clock::time_point until = myPairs.ClosedUntil(keys.pair, now_i);
  if (!myKnown.Find(keys.pair, now_i)) {
    until = std::max(
        {until, myAddresses.ClosedUntil(keys.address, now_i), myUsers.ClosedUntil(keys.user, now_i)});
  }
  return std::chrono::ceil<std::chrono::seconds>(until - now_i);
}

void PLXLoginThrottle::Failed(Attempt const& attempt_i, Clock::time_point now_i) {
  Keys const keys(attempt_i);
  std::lock_guard const lock(myMutex);
  myAddresses.CountFailure(keys.address, kFreeFailures, now_i);
  myUsers.CountFailure(keys.user, kFreeFailures_User, now_i);
  myPairs.CountFailure(keys.pair, kFreeFailures, now_i);
}

void PLXLoginThrottle::Succeeded(Attempt const& attempt_i, Clock::time_point now_i) {
  Keys const keys(attempt_i);
  std::lock_guard const lock(myMutex);
  myKnown.Touch(keys.pair, now_i);
  Entry const* const own = myPairs.Find(keys.pair, now_i);
  if (!own) return;
  myAddresses.TakeBack(keys.address, own->failures, now_i);
  myUsers.TakeBack(keys.user, own->failures, now_i);
  myPairs.Remove(keys.pair);
}

// ---- Book ------------------------------------------------------------------------------------------------

PLXLoginThrottle::Entry* PLXLoginThrottle::Book::Find(std::string const& key_i, Clock::time_point now_i) {
  auto const found = myEntries.find(key_i);
  if (found == myEntries.end()) return nullptr;
  if (now_i - found->second.last <= myMemory) return &found->second;
  myEntries.erase(found);
  return nullptr;
}

PLXLoginThrottle::Entry& PLXLoginThrottle::Book::Touch(std::string const& key_i, Clock::time_point now_i) {
  Entry* entry = Find(key_i, now_i);
  if (!entry) {
    if (myEntries.size() >= kEntries) MakeRoom(now_i);
    entry = &myEntries[key_i];
  }
  entry->last = now_i;
  return *entry;
}

void PLXLoginThrottle::Book::CountFailure(std::string const& key_i, unsigned freeFailures_i,
                                          Clock::time_point now_i) {
  Entry& entry = Touch(key_i, now_i);
  if (++entry.failures < freeFailures_i) return;
  auto const wait = std::chrono::seconds{1u << std::min(entry.failures - freeFailures_i, kLongestShift)};
  entry.closedUntil = now_i + std::min(wait, kLongestWait);
}

void PLXLoginThrottle::Book::TakeBack(std::string const& key_i, unsigned failures_i,
                                      Clock::time_point now_i) {
  if (Entry* const entry = Find(key_i, now_i)) entry->failures -= std::min(entry->failures, failures_i);
}

// Not before now, so that an open entry comes to no wait.
PLXLoginThrottle::Clock::time_point PLXLoginThrottle::Book::ClosedUntil(std::string const& key_i,
                                                                        Clock::time_point now_i) {
  Entry const* const entry = Find(key_i, now_i);
  return entry ? std::max(entry->closedUntil, now_i) : now_i;
}

void PLXLoginThrottle::Book::MakeRoom(Clock::time_point now_i) {
  std::erase_if(myEntries, [&](auto const& pair_i) { return now_i - pair_i.second.last > myMemory; });
  if (myEntries.size() < kEntries) return;
  // A quarter goes, the quietest first, so that the sort is paid for by a thousand further entries.
  std::vector<Clock::time_point> times;
  times.reserve(myEntries.size());
  for (auto const& [key, entry] : myEntries) times.push_back(entry.last);
  auto const middle = times.begin() + static_cast<std::ptrdiff_t>(times.size() / 4);
  std::nth_element(times.begin(), middle, times.end());
  auto const limit = *middle;
  std::erase_if(myEntries, [&](auto const& pair_i) { return pair_i.second.last <= limit; });
}
