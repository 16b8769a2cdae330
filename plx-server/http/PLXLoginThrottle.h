#pragma once

#include <chrono>
#include <mutex>
#include <string>
#include <unordered_map>

// Slows down whoever guesses passwords, by address: the first few failures are free, then each further one
// closes the address for a time that doubles up to half a minute. Closed means answered at once with "later",
// so guessing holds no thread and costs no password hash. Any thread; remembers at most 4096 addresses.
class PLXLoginThrottle {
 public:
  using Clock = std::chrono::steady_clock;

  // How long the address has to wait before its next attempt; zero when it may try now.
  std::chrono::seconds Wait(std::string const& address_i, Clock::time_point now_i = Clock::now());
  void Failed(std::string const& address_i, Clock::time_point now_i = Clock::now());
  void Succeeded(std::string const& address_i);

 private:
  struct Entry {
    unsigned failures = 0;
    Clock::time_point last;
    Clock::time_point closedUntil;
  };
  void MakeRoom(Clock::time_point now_i);

  std::mutex myMutex;
  std::unordered_map<std::string, Entry> myEntries;  // guarded by myMutex
};
