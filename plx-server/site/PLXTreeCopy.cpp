#include "PLXTreeCopy.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <openssl/evp.h>
#include <string_view>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "PLXDescriptor.h"
#include "PLXSQLite.h"
#include "PLXUninterrupted.h"
#include "PLXWholeFile.h"

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kBlockBytes = 256u << 10;
constexpr std::string_view kUnfinishedPrefix = ".plx-";  // of files before they get their names
constexpr std::string_view kOutboxSuffix = ".outbox";
constexpr std::string_view kIndexSuffix = ".idx";
// An add holds an index for milliseconds. Whoever holds it for longer is stuck, and a torn record is better
// than no backup.
constexpr auto kIndexPatience = std::chrono::seconds(5);

[[noreturn]] void Fail(std::string const& path_i, char const* doing_i) {
  throw PLXCopyError(path_i + ": " + doing_i + " (" + std::strerror(errno) + ").");
}

class Digest {
 public:
  Digest() : myContext(::EVP_MD_CTX_new(), ::EVP_MD_CTX_free) {
    if (!myContext || ::EVP_DigestInit_ex(myContext.get(), EVP_sha256(), nullptr) != 1)
      throw std::bad_alloc();
  }
  void Add(char const* bytes_i, std::size_t count_i) {
    ::EVP_DigestUpdate(myContext.get(), bytes_i, count_i);
  }
  std::string Text() {
    unsigned char bytes[EVP_MAX_MD_SIZE];
    unsigned count = 0;
    ::EVP_DigestFinal_ex(myContext.get(), bytes, &count);
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (unsigned index = 0; index < count; ++index) {
      text.append({kDigits[bytes[index] >> 4], kDigits[bytes[index] & 15]});
    }
    return text;
  }

 private:
  std::unique_ptr<EVP_MD_CTX, decltype(&::EVP_MD_CTX_free)> myContext;
};

// Reads to the end, writes what was read to `target_i` unless that is -1.
PLXTreeCopy::File Transfer(int source_i, std::string const& sourceName_i, int target_i,
                           std::string const& targetName_i,
                           std::function<void(std::uint64_t)> const& progress_i) {
  std::vector<char> block(kBlockBytes);
  PLXTreeCopy::File file;
  Digest digest;
  for (;;) {
    ssize_t const got = PLXUninterrupted(
        [&] { return ::pread(source_i, block.data(), block.size(), static_cast<off_t>(file.size)); });
    if (got < 0) Fail(sourceName_i, "cannot be read");
    if (got == 0) break;
    auto const count = static_cast<std::size_t>(got);
    if (target_i >= 0 && !PLXWriteAll(target_i, {block.data(), count}))
      Fail(targetName_i, "cannot be written");
    digest.Add(block.data(), count);
    file.size += count;
    if (progress_i) progress_i(count);
  }
  file.digest = digest.Text();
  return file;
}

void Sync(int file_i, std::string const& name_i) {
  if (PLXUninterrupted([&] { return ::fsync(file_i); }) != 0) Fail(name_i, "cannot be written");
}

// Enough to see that a file is another one, or has changed.
std::string LooksOf(struct stat const& status_i) {
  std::string looks;
  for (long long const part :
       {static_cast<long long>(status_i.st_dev), static_cast<long long>(status_i.st_ino),
        static_cast<long long>(status_i.st_size), static_cast<long long>(status_i.st_mtim.tv_sec),
        static_cast<long long>(status_i.st_mtim.tv_nsec), static_cast<long long>(status_i.st_ctim.tv_sec),
        static_cast<long long>(status_i.st_ctim.tv_nsec)}) {
    looks.append(std::to_string(part)).push_back(' ');
  }
  return looks;
}

// Shares the lock that whoever adds to the index takes alone; it ends with the descriptor.
void LockIndex(int file_i) {
  auto const until = std::chrono::steady_clock::now() + kIndexPatience;
  struct flock lock {};
  lock.l_type = F_RDLCK;
  lock.l_whence = SEEK_SET;
  while (::fcntl(file_i, F_OFD_SETLK, &lock) != 0 && std::chrono::steady_clock::now() < until) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
}

int Turn(std::string_view name_i) {
  return name_i.ends_with(kOutboxSuffix) ? 0 : name_i.ends_with(kIndexSuffix) ? 1 : 2;
}

std::vector<std::string> NamesIn(int folder_i, std::string const& as_i) {
  int const copy = ::openat(folder_i, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  DIR* const stream = copy >= 0 ? ::fdopendir(copy) : nullptr;
  if (stream == nullptr) {
    if (copy >= 0) ::close(copy);
    Fail(as_i, "the folder cannot be read");
  }
  std::unique_ptr<DIR, int (*)(DIR*)> const closing(stream, ::closedir);
  std::vector<std::string> names;
  errno = 0;
  while (dirent const* const entry = ::readdir(stream)) {
    std::string name = entry->d_name;
    if (name != "." && name != ".." && !name.starts_with(kUnfinishedPrefix)) names.push_back(std::move(name));
    errno = 0;
  }
  if (errno != 0) Fail(as_i, "the folder cannot be read");
  std::sort(names.begin(), names.end(), [](std::string const& left, std::string const& right) {
    int const difference = Turn(left) - Turn(right);
    return difference != 0 ? difference < 0 : left < right;
  });
  return names;
}

bool IsGone() { return errno == ENOENT || errno == ENOTDIR; }

}  // namespace

PLXTreeCopy::PLXTreeCopy(fs::path target_i, std::function<void(std::uint64_t)> progress_i)
    : myTarget(std::move(target_i)), myProgress(std::move(progress_i)) {}

void PLXTreeCopy::MakeParents(fs::path const& file_i) const {
  std::error_code error;
  fs::create_directories(file_i.parent_path(), error);
  if (error)
    throw PLXCopyError(file_i.parent_path().string() + ": the folder cannot be made (" + error.message() +
                       ").");
}

void PLXTreeCopy::AddFolder(fs::path const& source_i, std::string const& as_i) {
  // The folder itself may be a link: whoever keeps the state made it.
  PLXDescriptor const folder(
      PLXUninterrupted([&] { return ::open(source_i.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
  if (folder.IsOpen()) return AddFolderAt(folder.Get(), as_i);
  if (!IsGone()) Fail(source_i.string(), "the folder cannot be read");
}

void PLXTreeCopy::AddFolderAt(int folder_i, std::string const& as_i) {
  for (std::string const& name : NamesIn(folder_i, as_i)) {
    std::string as = as_i;
    AddEntry(folder_i, name, as.append("/").append(name));
  }
}

void PLXTreeCopy::AddEntry(int folder_i, std::string const& name_i, std::string const& as_i) {
  struct stat status {};
  if (::fstatat(folder_i, name_i.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
    if (!IsGone()) Fail(as_i, "cannot be read");
    return;
  }
  if (S_ISLNK(status.st_mode)) myLinks.insert(as_i);
  if (!S_ISDIR(status.st_mode) && !S_ISREG(status.st_mode)) return;
  if (S_ISREG(status.st_mode)) {
    auto const seen = mySeen.find(as_i);
    if (seen != mySeen.end() && seen->second == LooksOf(status)) return;
  }
  int const kind = S_ISDIR(status.st_mode) ? O_DIRECTORY : 0;
  PLXDescriptor const entry(PLXUninterrupted([&] {
    return ::openat(folder_i, name_i.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | kind);
  }));
  if (!entry.IsOpen()) {
    if (!IsGone() && errno != ELOOP) Fail(as_i, "cannot be read");
    return;
  }
  if (kind != 0) return AddFolderAt(entry.Get(), as_i);
  if (std::string_view(name_i).ends_with(kIndexSuffix)) LockIndex(entry.Get());
  AddOpenFile(entry.Get(), as_i);
}

void PLXTreeCopy::AddFile(fs::path const& source_i, std::string const& as_i) {
  PLXDescriptor const source(PLXUninterrupted(
      [&] { return ::open(source_i.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW); }));
  if (source.IsOpen()) return AddOpenFile(source.Get(), as_i);
  if (!IsGone()) Fail(source_i.string(), "cannot be read");
}

void PLXTreeCopy::AddOpenFile(int source_i, std::string const& as_i) {
  fs::path const file = myTarget / as_i;
  struct stat status {};
  if (::fstat(source_i, &status) != 0) Fail(as_i, "cannot be read");
  if (!S_ISREG(status.st_mode)) return;
  MakeParents(file);
  PLXDescriptor const target(PLXUninterrupted(
      [&] { return ::open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0600); }));
  if (!target.IsOpen()) Fail(file.string(), "cannot be made");
  myFiles[as_i] = Transfer(source_i, as_i, target.Get(), file.string(), myProgress);
  timespec const times[2] = {status.st_mtim, status.st_mtim};
  ::futimens(target.Get(), times);
  Sync(target.Get(), file.string());
  mySeen[as_i] = LooksOf(status);
}

void PLXTreeCopy::AddDatabase(fs::path const& source_i, std::string const& as_i) {
  std::error_code error;
  if (!fs::exists(source_i, error)) return;
  fs::path const file = myTarget / as_i;
  MakeParents(file);
  PLXCopySQLite(source_i, file, myProgress);
  myFiles[as_i] = Read(file);
  PLXDescriptor const written(::open(file.c_str(), O_RDONLY | O_CLOEXEC));
  if (!written.IsOpen()) Fail(file.string(), "cannot be read");
  Sync(written.Get(), file.string());
}

void PLXTreeCopy::Synchronize() const {
  std::vector<fs::path> folders{myTarget};
  std::error_code error;
  for (fs::recursive_directory_iterator at(myTarget, error), end; !error && at != end; at.increment(error)) {
    std::error_code ignored;
    if (at->is_directory(ignored) && !at->is_symlink(ignored)) folders.push_back(at->path());
  }
  for (fs::path const& path : folders) {
    if (!PLXSyncFolder(path)) Fail(path.string(), "the folder cannot be written");
  }
}

PLXTreeCopy::File PLXTreeCopy::Read(fs::path const& file_i,
                                    std::function<void(std::uint64_t)> const& progress_i) {
  PLXDescriptor const file(PLXUninterrupted(
      [&] { return ::open(file_i.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW); }));
  if (!file.IsOpen()) Fail(file_i.string(), "cannot be read");
  return Transfer(file.Get(), file_i.string(), -1, "", progress_i);
}
