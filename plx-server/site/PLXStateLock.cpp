#include "PLXStateLock.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include "PLXUninterrupted.h"

namespace fs = std::filesystem;

namespace {

// Who wrote its number into the lock's file.
std::string LockOwner(int lock_i) {
  std::array<char, 32> text{};
  ssize_t const got = ::pread(lock_i, text.data(), text.size() - 1, 0);
  std::string owner(text.data(), got > 0 ? static_cast<std::size_t>(got) : 0);
  owner.erase(owner.find_last_not_of(" \n") + 1);
  return owner.empty() ? "unknown" : owner;
}

}  // namespace

// A lock of the open file, so it falls with the process however that ends; the number in it is for people.
PLXStateLock::PLXStateLock(fs::path const& state_i) {
  fs::path const file = state_i / "lock";
  myLock = PLXUninterrupted([&] { return ::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600); });
  if (myLock < 0) {
    throw std::runtime_error(file.string() + ": the file cannot be opened (" + std::strerror(errno) +
                             "). Make it writable for this user.");
  }
  if (::flock(myLock, LOCK_EX | LOCK_NB) != 0) {
    std::string const owner = LockOwner(myLock);
    ::close(myLock);
    throw PLXUnavailable(state_i.string() + ": another server uses this folder (process " + owner +
                         "). Stop it, or give this one a folder of its own with the key \"state\".");
  }
  std::string const text = std::to_string(::getpid()) + "\n";
  if (PLXUninterrupted([&] { return ::ftruncate(myLock, 0); }) != 0 ||
      PLXUninterrupted([&] { return ::pwrite(myLock, text.data(), text.size(), 0); }) < 0) {
    std::string const reason = std::strerror(errno);
    ::close(myLock);
    throw std::runtime_error(file.string() + ": the file cannot be written (" + reason + ").");
  }
}

PLXStateLock::~PLXStateLock() { ::close(myLock); }

std::optional<std::string> StateUser(fs::path const& state_i) {
  int const lock = PLXUninterrupted([&] { return ::open((state_i / "lock").c_str(), O_RDONLY | O_CLOEXEC); });
  if (lock < 0) return std::nullopt;
  std::optional<std::string> user;
  if (::flock(lock, LOCK_SH | LOCK_NB) != 0) user = LockOwner(lock);
  ::close(lock);
  return user;
}
