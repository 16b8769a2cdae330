#pragma once

#include <array>
#include <filesystem>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

// Logins in a file of "user:hash" lines, the hashes made and checked by libcrypt (yescrypt).
//
// The file is read again when it has changed, whoever changed it. A check costs tens of milliseconds of
// processor on purpose, so a pair that was accepted is remembered for five minutes under a key of this
// process. Call from a page thread, never from the I/O thread. Any thread.
class PLXLoginStore {
 public:
  explicit PLXLoginStore(std::filesystem::path file_i);

  // An unknown user takes as long as a wrong password.
  bool Verify(std::string_view user_i, std::string_view password_i);
  bool IsEmpty();
  std::vector<std::string> Users();

  // Writes the file anew (temporary name, synced, renamed; mode 0600), alone among all processes that share
  // the folder: its file ".lock" is locked meanwhile. False with a sentence in `problem_o`
  // for a name that is empty or holds ":", a control character or more than 255 bytes, an empty or over-long
  // (over 511 bytes) password, or a disk that refuses.
  bool SetPassword(std::string_view user_i, std::string_view password_i, std::string& problem_o);
  // False with a sentence when there is no such user or the disk refuses.
  bool Remove(std::string_view user_i, std::string& problem_o);

 private:
  void ReadAgainIfChanged();  // with myMutex held
  std::string Digest(std::string_view user_i, std::string const& hash_i, std::string_view password_i) const;
  bool IsRemembered(std::string const& digest_i);
  void Remember(std::string const& digest_i);

  std::filesystem::path myFile;
  std::array<unsigned char, 32> myKey{};  // of this process; never changes
  std::mutex myMutex;                     // guards all below; never held while hashing
  std::map<std::string, std::string, std::less<>> myHashes;
  std::map<std::string, long long> myAccepted;  // keyed digest of a pair -> until when, steady clock seconds
  std::string myFileState;                      // size, times and inode as last read
};
