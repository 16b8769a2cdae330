#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <mutex>
#include <string>
#include <string_view>

// Slows down whoever guesses passwords. Failures are counted by address, whatever names it tries, and by
// user, whatever addresses try it: the first few are free, then each further one closes the address or the
// user for a time that doubles up to half a minute. Closed means answered at once with "later", so guessing
// holds no thread and costs no password hash.
//
// A user who has got in from an address is known there for a day: failures of others, at that address or
// under that name, do not keep this user out, only its own failures there do. A success takes back what the
// user itself failed at that address and no more, so that nobody clears the guesses at a second account by
// logging in to a first.
//
// Counts are forgotten after ten minutes without a failure; of each kind at most 4096 are remembered. Any
// thread.
class PLXLoginThrottle {
 public:
  using Clock = std::chrono::steady_clock;

  struct Attempt {
    std::string_view address;  // as inet_ntop writes it; of IPv6 the first 64 bits count
    std::string_view realm;    // where the user is known: equal names in two realms are two users
    std::string_view user;     // as sent
  };

  // How long this attempt has to wait; zero when it may be made now.
  std::chrono::seconds Wait(Attempt const& attempt_i, Clock::time_point now_i = Clock::now());
  void Failed(Attempt const& attempt_i, Clock::time_point now_i = Clock::now());
  void Succeeded(Attempt const& attempt_i, Clock::time_point now_i = Clock::now());

 private:
  struct Entry {
    unsigned failures = 0;
    Clock::time_point last;  // failure, of a known user success
    Clock::time_point closedUntil;
  };

  // Entries by key, each forgotten when nothing has happened to it for `memory_i`.
  class Book {
   public:
    explicit Book(std::chrono::minutes memory_i) : myMemory(memory_i) {}
    Entry* Find(std::string const& key_i, Clock::time_point now_i);  // null when there is none
    Entry& Touch(std::string const& key_i, Clock::time_point now_i);
    void Remove(std::string const& key_i) { myEntries.erase(key_i); }
    void CountFailure(std::string const& key_i, unsigned freeFailures_i, Clock::time_point now_i);
    void TakeBack(std::string const& key_i, unsigned failures_i, Clock::time_point now_i);
    Clock::time_point ClosedUntil(std::string const& key_i, Clock::time_point now_i);

   private:
    void MakeRoom(Clock::time_point now_i);

    std::chrono::minutes const myMemory;
    // A tree, since clients choose the keys and could choose them to share one bucket of a hash table.
    std::map<std::string, Entry> myEntries;
  };

  static constexpr std::chrono::minutes kFailures_Memory{10};
  static constexpr std::chrono::hours kKnown_Memory{24};

  std::mutex myMutex;  // guards all below
  Book myAddresses{kFailures_Memory};
  Book myUsers{kFailures_Memory};
  Book myPairs{kFailures_Memory};  // a user at an address
  Book myKnown{kKnown_Memory};     // pairs that got in; apart, so that no failures push them out
};
