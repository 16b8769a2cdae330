#include "PLXLoginStore.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <crypt.h>
#include <fcntl.h>
#include <memory>
#include <openssl/crypto.h>
#include <openssl/hmac.h>
#include <optional>
#include <stdexcept>
#include <sys/random.h>
#include <sys/stat.h>
#include <system_error>
#include <thread>
#include <unistd.h>

#include "PLXDescriptor.h"
#include "PLXLog.h"
#include "PLXUninterrupted.h"
#include "PLXWholeFile.h"

namespace {

constexpr std::size_t kLongestUser = 255;
constexpr std::size_t kLongestPassword = CRYPT_MAX_PASSPHRASE_SIZE - 1;
constexpr long long kRememberedSeconds = 300;
constexpr std::size_t kRememberedPairs = 4096;
constexpr std::size_t kLargestFile = 16u << 20;
constexpr char kLockName[] = ".lock";  // of the file in each folder that whoever writes locks

using Lines = std::vector<std::string>;

// As many hashes at a time as there are processors: each takes 16 MiB and all of one processor, so more at
// once would only take memory.
class HashingTurn {
 public:
  HashingTurn() {
    std::unique_lock lock(ourMutex);
    ourFreed.wait(lock, [] { return ourRunning < std::max(1u, std::thread::hardware_concurrency()); });
    ++ourRunning;
  }
  ~HashingTurn() {
    std::lock_guard const lock(ourMutex);
    --ourRunning;
    ourFreed.notify_one();
  }
  HashingTurn(HashingTurn const&) = delete;
  HashingTurn& operator=(HashingTurn const&) = delete;

 private:
  static inline std::mutex ourMutex;
  static inline std::condition_variable ourFreed;
  static inline unsigned ourRunning = 0;  // guarded by ourMutex
};

// The hash of a password under the method, cost and salt that begin `setting_i`. Empty when libcrypt refuses.
std::string Hash(std::string const& password_i, std::string const& setting_i) {
  auto const data = std::make_unique<crypt_data>();  // 32 KiB
  char const* const hash = ::crypt_r(password_i.c_str(), setting_i.c_str(), data.get());
  std::string result = hash != nullptr && hash[0] != '*' ? hash : "";
  OPENSSL_cleanse(data.get(), sizeof *data);
  return result;
}

// A fresh salt for yescrypt at libcrypt's own cost.
std::string NewSetting() {
  char setting[CRYPT_GENSALT_OUTPUT_SIZE];
  char const* const made = ::crypt_gensalt_rn("$y$", 0, nullptr, 0, setting, sizeof setting);
  return made != nullptr ? made : "";
}

bool AreEqual(std::string const& left_i, std::string const& right_i) {
  return left_i.size() == right_i.size() && CRYPTO_memcmp(left_i.data(), right_i.data(), left_i.size()) == 0;
}

long long NowSeconds() {
  return std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

std::string_view UserOf(std::string_view line_i) { return line_i.substr(0, line_i.find(':')); }

// The hash of a "user:hash" line, empty for a line that is none. Only hashes that name their method count:
// the ancient ones without it look at eight characters of a password.
std::string_view HashOf(std::string_view line_i) {
  std::size_t const colon = line_i.find(':');
  if (colon == 0 || colon == std::string_view::npos) return {};
  std::string_view const hash = line_i.substr(colon + 1);
  return hash.starts_with('$') ? hash.substr(0, hash.find(':')) : std::string_view();
}

// Size, times and inode: enough to see a replacement and a change in place.
std::string StateOf(struct stat const& status_i) {
  std::string state;
  for (long long const part :
       {static_cast<long long>(status_i.st_size), static_cast<long long>(status_i.st_ino),
        static_cast<long long>(status_i.st_mtim.tv_sec), static_cast<long long>(status_i.st_mtim.tv_nsec),
        static_cast<long long>(status_i.st_ctim.tv_sec), static_cast<long long>(status_i.st_ctim.tv_nsec)}) {
    state.append(std::to_string(part)).push_back(' ');
  }
  return state;
}

// How the file is now, empty when there is none. Opened for it: on a network's file system that asks the
// server, where a look at the name may tell what was so a minute ago.
std::string CurrentState(std::filesystem::path const& file_i) {
  struct stat status {};
  PLXDescriptor const file(
      PLXUninterrupted([&] { return ::open(file_i.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK); }));
  int const result = file.IsOpen() ? ::fstat(file.Get(), &status) : ::stat(file_i.c_str(), &status);
  return result == 0 ? StateOf(status) : std::string();
}

// The lines of the file, none when there is no file. Nothing when it cannot be read, with errno telling why.
std::optional<Lines> ReadLines(std::filesystem::path const& file_i, std::string& state_o) {
  state_o.clear();
  PLXDescriptor const file(
      PLXUninterrupted([&] { return ::open(file_i.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK); }));
  if (!file.IsOpen())
    return errno == ENOENT || errno == ENOTDIR ? std::optional<Lines>(Lines()) : std::nullopt;
  struct stat status {};
  if (::fstat(file.Get(), &status) != 0) return std::nullopt;
  state_o = StateOf(status);
  std::string text;
  char part[16384];
  ssize_t count;
  while ((count = PLXUninterrupted([&] { return ::read(file.Get(), part, sizeof part); })) > 0 &&
         text.size() <= kLargestFile) {
    text.append(part, static_cast<std::size_t>(count));
  }
  if (count != 0) {
    if (count > 0) errno = EFBIG;
    return std::nullopt;
  }
  Lines lines;
  for (std::size_t start = 0; start < text.size();) {
    std::size_t const end = std::min(text.find('\n', start), text.size());
    lines.push_back(text.substr(start, end - start));
    if (!lines.back().empty() && lines.back().back() == '\r') lines.back().pop_back();
    start = end + 1;
  }
  return lines;
}

// What a process that died while it replaced the file left of the new one. Requires: the folder locked, so
// that nobody is replacing it now.
void RemoveLeftovers(std::filesystem::path const& file_i) {
  std::string const beginning = file_i.filename().string() + ".";
  std::error_code error;
  for (std::filesystem::directory_iterator at(file_i.parent_path(), error), end; !error && at != end;
       at.increment(error)) {
    std::string const name = at->path().filename().string();
    std::error_code ignored;
    if (name.size() == beginning.size() + kPLXTemporarySuffix.size() - 1 && name.starts_with(beginning)) {
      std::filesystem::remove(at->path(), ignored);
    }
  }
}

// Locks a file of the folder, whose descriptor holds the lock. A file and not the folder, and by fcntl: what
// holds between machines on a network's file system.
int LockFolder(std::filesystem::path const& folder_i) {
  int const file = PLXUninterrupted(
      [&] { return ::open((folder_i / kLockName).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600); });
  if (file < 0) return file;
  struct flock whole {};
  whole.l_type = F_WRLCK;
  whole.l_whence = SEEK_SET;
  if (PLXUninterrupted([&] { return ::fcntl(file, F_OFD_SETLKW, &whole); }) == 0) return file;
  int const error = errno;
  ::close(file);
  errno = error;
  return -1;
}

// One change of the file at a time, also among processes: `change_i` gets the lines as they are and says
// whether they are to be written.
template <typename Change>
bool ChangeFile(std::filesystem::path const& file_i, std::string& problem_o, Change const& change_i) {
  auto const refused = [&](char const* doing_i) {
    problem_o =
        std::string(doing_i) + " " + file_i.string() + ": " + std::generic_category().message(errno) + ".";
    return false;
  };
  std::filesystem::path const folderPath = file_i.has_parent_path() ? file_i.parent_path() : ".";
  std::error_code ignored;  // what goes wrong here shows in the next step
  std::filesystem::create_directories(folderPath, ignored);
  PLXDescriptor const lock(LockFolder(folderPath));
  if (!lock.IsOpen()) return refused("Cannot use the folder of");
  RemoveLeftovers(file_i);
  std::string state;
  std::optional<Lines> lines = ReadLines(file_i, state);
  if (!lines) return refused("Cannot read");
  if (!change_i(*lines)) return false;
  std::string text;
  for (std::string const& line : *lines) text.append(line).push_back('\n');
  return PLXReplaceFile(file_i, text) || refused("Cannot write");
}

bool IsControl(char character_i) {
  auto const byte = static_cast<unsigned char>(character_i);
  return byte < 0x20 || byte == 0x7F;
}

bool IsGoodPair(std::string_view user_i, std::string_view password_i, std::string& problem_o) {
  if (user_i.empty() || user_i.size() > kLongestUser) {
    problem_o = "A user name has 1 to 255 bytes.";
  } else if (user_i.find(':') != std::string_view::npos ||
             std::any_of(user_i.begin(), user_i.end(), IsControl)) {
    problem_o = "A user name holds no \":\" and no control character.";
  } else if (password_i.empty() || password_i.size() > kLongestPassword) {
    problem_o = "A password has 1 to 511 bytes.";
  } else if (password_i.find('\0') != std::string_view::npos) {
    problem_o = "A password holds no zero byte.";
  } else {
    return true;
  }
  return false;
}

}  // namespace

PLXLoginStore::PLXLoginStore(std::filesystem::path file_i) : myFile(std::move(file_i)) {
  if (::getentropy(myKey.data(), myKey.size()) != 0) {
    throw std::runtime_error("The system gives no random bytes.");
  }
}

bool PLXLoginStore::Verify(std::string_view user_i, std::string_view password_i) {
  std::string ignored;
  if (!IsGoodPair(user_i, password_i, ignored)) return false;
  std::string hash;
  bool isKnown = false;
  {
    std::lock_guard const lock(myMutex);
    ReadAgainIfChanged();
    auto const found = myHashes.find(user_i);
    isKnown = found != myHashes.end();
    // Any hash of the file makes an unknown user cost what a known one does.
    if (isKnown) {
      hash = found->second;
    } else {
      hash = myHashes.empty() ? NewSetting() : myHashes.begin()->second;
    }
  }
  std::string const digest = Digest(user_i, hash, password_i);
  if (IsRemembered(digest)) return true;
  std::string made;
  {
    HashingTurn const turn;
    // A browser asks for a page's files all at once: the first answer serves those that waited meanwhile.
    if (IsRemembered(digest)) return true;
    made = Hash(std::string(password_i), hash);
  }
  if (!AreEqual(made, hash) || !isKnown) return false;
  Remember(digest);
  return true;
}

// Holds the hash as well, so a changed password or a removed user makes what was accepted before unfindable.
std::string PLXLoginStore::Digest(std::string_view user_i, std::string const& hash_i,
                                  std::string_view password_i) const {
  std::string pair;
  pair.reserve(user_i.size() + hash_i.size() + password_i.size() + 2);
  pair.append(user_i).push_back('\0');
  pair.append(hash_i).push_back('\0');
  pair.append(password_i);
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned length = 0;
  bool const made = ::HMAC(EVP_sha256(), myKey.data(), static_cast<int>(myKey.size()),
                           reinterpret_cast<unsigned char const*>(pair.data()), pair.size(), digest, &length);
  OPENSSL_cleanse(pair.data(), pair.size());
  return made ? std::string(reinterpret_cast<char const*>(digest), length) : std::string();
}

bool PLXLoginStore::IsRemembered(std::string const& digest_i) {
  std::lock_guard const lock(myMutex);
  auto const found = myAccepted.find(digest_i);
  if (found == myAccepted.end()) return false;
  if (found->second > NowSeconds()) return true;
  myAccepted.erase(found);
  return false;
}

void PLXLoginStore::Remember(std::string const& digest_i) {
  if (digest_i.empty()) return;  // no digest to be had: every check is a full one
  long long const now = NowSeconds();
  std::lock_guard const lock(myMutex);
  if (myAccepted.size() >= kRememberedPairs) {
    std::erase_if(myAccepted, [now](auto const& pair_i) { return pair_i.second <= now; });
    if (myAccepted.size() >= kRememberedPairs) myAccepted.clear();
  }
  myAccepted[digest_i] = now + kRememberedSeconds;
}

bool PLXLoginStore::IsEmpty() {
  std::lock_guard const lock(myMutex);
  ReadAgainIfChanged();
  return myHashes.empty();
}

std::vector<std::string> PLXLoginStore::Users() {
  std::lock_guard const lock(myMutex);
  ReadAgainIfChanged();
  std::vector<std::string> users;
  for (auto const& [user, hash] : myHashes) users.push_back(user);
  return users;
}

bool PLXLoginStore::SetPassword(std::string_view user_i, std::string_view password_i,
                                std::string& problem_o) {
  if (!IsGoodPair(user_i, password_i, problem_o)) return false;
  std::string hash;
  {
    HashingTurn const turn;
    hash = Hash(std::string(password_i), NewSetting());
  }
  if (hash.empty()) {
    problem_o = "The system's libcrypt makes no yescrypt hash.";
    return false;
  }
  return ChangeFile(myFile, problem_o, [&](Lines& lines_io) {
    auto const isUser = [user_i](std::string const& line_i) { return UserOf(line_i) == user_i; };
    std::erase_if(lines_io, isUser);
    lines_io.push_back(std::string(user_i) + ':' + hash);
    return true;
  });
}

bool PLXLoginStore::Remove(std::string_view user_i, std::string& problem_o) {
  return ChangeFile(myFile, problem_o, [&](Lines& lines_io) {
    auto const isUser = [user_i](std::string const& line_i) {
      return !HashOf(line_i).empty() && UserOf(line_i) == user_i;
    };
    if (std::erase_if(lines_io, isUser) != 0) return true;
    problem_o = "There is no user \"" + std::string(user_i) + "\".";
    return false;
  });
}

void PLXLoginStore::ReadAgainIfChanged() {
  std::string const state = CurrentState(myFile);
  if (state == myFileState) return;
  std::string readState;
  std::optional<Lines> const lines = ReadLines(myFile, readState);
  if (!lines) {
    PLXLog::Error("Nobody can log in: " + myFile.string() +
                  " cannot be read: " + std::generic_category().message(errno));
  }
  myHashes.clear();
  myAccepted.clear();
  for (std::string const& line : lines.value_or(Lines())) {
    std::string_view const hash = HashOf(line);
    if (!hash.empty()) myHashes.try_emplace(std::string(UserOf(line)), hash);
  }
  myFileState = lines ? readState : state;
}
