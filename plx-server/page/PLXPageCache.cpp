#include <cerrno>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

#include "PLXDescriptor.h"
#include "PLXLog.h"
#include "PLXPage.h"
#include "PLXPagePieces.h"
#include "PLXUninterrupted.h"

namespace {

constexpr std::size_t kPage_MaximumBytes = 64u << 20;
// The clock behind a file's times ticks every few milliseconds. A file that was written this recently may be
// written again without a change of its times, so what was read of it is not kept.
constexpr long long kFileTime_Uncertainty = 50'000'000;  // nanoseconds

long long Nanoseconds(timespec const& time_i) { return time_i.tv_sec * 1'000'000'000LL + time_i.tv_nsec; }

// What tells one state of a file from another.
struct FileState {
  long long size;
  long long modified;
  long long changed;
  unsigned long long inode;
  unsigned long long device;

  explicit FileState(struct stat const& state_i)
      : size(state_i.st_size),
        modified(Nanoseconds(state_i.st_mtim)),
        changed(Nanoseconds(state_i.st_ctim)),
        inode(state_i.st_ino),
        device(state_i.st_dev) {}
  bool operator==(FileState const&) const = default;

  bool IsSettled() const {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return Nanoseconds(now) - changed > kFileTime_Uncertainty;
  }
};

bool ReadAll(int descriptor_i, std::size_t size_i, std::string& text_o) {
  text_o.resize(size_i);
  std::size_t length = 0;
  while (length < size_i) {
    ssize_t const got =
        PLXUninterrupted([&] { return read(descriptor_i, text_o.data() + length, size_i - length); });
    if (got < 0) return false;
    if (got == 0) break;  // the file has become shorter since it was looked at
    length += static_cast<std::size_t>(got);
  }
  text_o.resize(length);
  return true;
}

std::nullptr_t Refuse(std::string const& file_i, std::string const& reason_i) {
  PLXLog::Warning("The page " + file_i + " cannot be read: " + reason_i);
  return nullptr;
}

}  // namespace

struct PLXPageCache::Entry {
  std::string file;
  FileState state;
  std::shared_ptr<PLXPage const> page;
};

PLXPageCache::PLXPageCache(PLXTagProcessor const& tags_i, std::size_t bytes_i)
    : myTags(tags_i), myLimit(bytes_i) {}
PLXPageCache::~PLXPageCache() = default;

std::size_t PLXPage::Bytes() const {
  std::size_t bytes = myText.capacity() + myPieces.capacity() * sizeof(Piece);
  for (Piece const& piece : myPieces) {
    if (piece.tag != nullptr) bytes += sizeof(PLXTagTemplate) + 128 * piece.tag->occurrence.parameters.size();
  }
  return bytes;
}

std::shared_ptr<PLXPage const> PLXPageCache::Get(std::filesystem::path const& file_i) {
  std::string const& file = file_i.native();
  struct stat state {};
  if (stat(file.c_str(), &state) != 0) return nullptr;
  if (auto page = Find(file, state)) return page;

  // Does not wait for a writer when the name is a pipe's.
  PLXDescriptor const descriptor(
      PLXUninterrupted([&] { return ::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK); }));
  if (descriptor.Get() < 0) return Refuse(file, std::strerror(errno));
  if (fstat(descriptor.Get(), &state) != 0 || !S_ISREG(state.st_mode)) return Refuse(file, "it is no file");
  auto const size = static_cast<std::size_t>(state.st_size);
  if (size > kPage_MaximumBytes) return Refuse(file, "it is over 64 MB; serve it as a file or split it");
  std::string text;
  if (!ReadAll(descriptor.Get(), size, text)) return Refuse(file, std::strerror(errno));

  // Parsed outside the lock: two threads may parse the same new page, none waits for another's large one.
  auto page = PLXPage::Parse(std::move(text), myTags);
  FileState const fileState(state);
  if (fileState.IsSettled()) Store({file, fileState, page});
  return page;
}

std::shared_ptr<PLXPage const> PLXPageCache::Find(std::string const& file_i, struct stat const& state_i) {
  std::lock_guard const lock(myMutex);
  auto const found = myEntryByFile.find(file_i);
  if (found == myEntryByFile.end() || found->second->state != FileState(state_i)) return nullptr;
  myEntries.splice(myEntries.begin(), myEntries, found->second);
  return found->second->page;
}

void PLXPageCache::Store(Entry entry_i) {
  std::size_t const bytes = entry_i.page->Bytes();
  if (bytes > myLimit) return;
  std::lock_guard const lock(myMutex);
  auto const remove = [this](std::list<Entry>::iterator entry) {
    myBytes -= entry->page->Bytes();
    myEntryByFile.erase(entry->file);
    myEntries.erase(entry);
  };
  if (auto const found = myEntryByFile.find(entry_i.file); found != myEntryByFile.end())
    remove(found->second);
  while (myBytes + bytes > myLimit) remove(std::prev(myEntries.end()));
  myEntries.push_front(std::move(entry_i));
  myEntryByFile.emplace(myEntries.front().file, myEntries.begin());
  myBytes += bytes;
}
