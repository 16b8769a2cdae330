#include "PLXFile.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>
#include <utility>

#include "PLXFolderSpecification.h"
#include "PLXRandomNumber.h"

namespace {

constexpr mode_t kFilePermissions = 0666;  // as the process's mask changes them
constexpr mode_t kAllPermissions = 07777;
constexpr int kTemporaryNameAttempts = 16;
constexpr std::size_t kTemporaryNameSize = sizeof kTemporaryFilePrefix + 16;  // with 16 digits and the end
constexpr time_t kLeftoverAge = 86400;  // seconds; whatever is being written is written to more often

// Repeats a call that a signal interrupted.
template <typename Call>
auto Uninterrupted(Call const& call_i) noexcept {
  for (;;) {
    auto const result = call_i();
    if (result != -1 || errno != EINTR) return result;
  }
}

// A descriptor that is closed when its holder goes.
class Descriptor {
 public:
  explicit Descriptor(int descriptor_i) noexcept : myDescriptor(descriptor_i) {}
  Descriptor(Descriptor const&) = delete;
  Descriptor& operator=(Descriptor const&) = delete;
  ~Descriptor() {
    if (IsValid()) close(myDescriptor);
  }
  bool IsValid() const noexcept { return myDescriptor != -1; }
  int Get() const noexcept { return myDescriptor; }
  int Release() noexcept { return std::exchange(myDescriptor, kOSFileReferenceInvalid); }

 private:
  int myDescriptor;
};

// Writes everything from `offset_i` on, or at the end of the file, and returns how much it was.
PLXUInt32 WriteBytes(int file_i, PLXUInt32 offset_i, PLXUInt32 count_i, void const* buffer_i,
                     bool append_i) noexcept {
  auto const* const bytes = static_cast<char const*>(buffer_i);
  PLXUInt32 done = 0;
  while (done < count_i) {
    iovec const part{const_cast<char*>(bytes + done), count_i - done};
    off_t const offset = static_cast<off_t>(offset_i) + done;
    ssize_t written = pwritev2(file_i, &part, 1, offset, append_i ? RWF_APPEND : 0);
    if (written == -1 && (errno == EOPNOTSUPP || errno == ENOSYS)) {
      written = pwrite(file_i, part.iov_base, part.iov_len, offset);
    }
    if (written == -1 && errno == EINTR) continue;
    if (written <= 0) break;
    done += static_cast<PLXUInt32>(written);
  }
  return done;
}

// A length of 0 is all from there on.
bool SetLock(int file_i, int command_i, short kind_i, off_t start_i = 0, off_t length_i = 0) noexcept {
  struct flock lock {};
  lock.l_type = kind_i;
  lock.l_whence = SEEK_SET;
  lock.l_start = start_i;
  lock.l_len = length_i;
  // Locks of the open file rather than of the process, so that they hold between its threads as well.
  return Uninterrupted([&] { return fcntl(file_i, command_i, &lock); }) == 0;
}

// Where a lock may be: one byte below the last offset of all, whatever the number.
off_t LockPosition(std::uint64_t position_i) noexcept { return static_cast<off_t>(position_i >> 2); }

// File systems that cannot put a folder on the disk by itself say so with EINVAL; they do it with the file.
bool SynchronizeDescriptor(int folder_i) noexcept {
  return Uninterrupted([&] { return fsync(folder_i); }) == 0 || errno == EINVAL;
}

// Gives the file `from_i` the name `to_i` unless something has it. Not every file system can do it in one
// call.
bool RenameInFolder(int folder_i, char const* from_i, char const* to_i) noexcept {
  if (renameat2(folder_i, from_i, folder_i, to_i, RENAME_NOREPLACE) == 0) return true;
  if (errno != EINVAL && errno != ENOSYS) return false;
  return linkat(folder_i, from_i, folder_i, to_i, 0) == 0 && unlinkat(folder_i, from_i, 0) == 0;
}

// A new file in the folder; its name is one that nobody chooses and every file system takes.
int CreateTemporaryFile(int folder_i, char (&name_o)[kTemporaryNameSize]) noexcept {
  PLXRandomNumber const random;
  for (int attempt = 0; attempt < kTemporaryNameAttempts; ++attempt) {
    std::snprintf(name_o, sizeof name_o, "%s%08x%08x", kTemporaryFilePrefix, random.GetNext(),
                  random.GetNext());
    int const file = Uninterrupted(
        [&] { return openat(folder_i, name_o, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, kFilePermissions); });
    if (file != -1 || errno != EEXIST) return file;
  }
  return -1;
}

// The content complete on the disk, with the permissions of the file whose place it takes.
bool StoreTemporaryFile(int folder_i, int file_i, char const* replaced_i,
                        std::initializer_list<std::string_view> pieces_i) noexcept {
  struct stat status;
  if (fstatat(folder_i, replaced_i, &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISREG(status.st_mode) &&
      fchmod(file_i, status.st_mode & kAllPermissions) != 0) {
    return false;
  }
  PLXUInt32 offset = 0;
  for (std::string_view const piece : pieces_i) {
    PLXUInt32 const size = static_cast<PLXUInt32>(piece.size());
    if (WriteBytes(file_i, offset, size, piece.data(), false) != size) return false;
    offset += size;
  }
  return Uninterrupted([&] { return fsync(file_i); }) == 0;
}

}  // namespace

bool PLXFile::WriteWhole(PLXFileSpecification const& file_i, std::initializer_list<std::string_view> pieces_i,
                         ExistingFile existing_i, PLXFile* held_o) {
  std::uint64_t size = 0;
  for (std::string_view const piece : pieces_i) size += piece.size();
  if (*file_i.GetSystemPath() == 0 || size > kLongestFile) return false;
  PLXFolderSpecification const parent = file_i.GetParentFolder();
  PLXString const fileName = file_i.GetName();
  char const* const name = fileName.GetCStringAccess();
  Descriptor const folder(
      Uninterrupted([&] { return open(parent.GetSystemPath(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
  struct stat status;
  bool const isKept = existing_i == kKeepExistingFile;
  // Asked here to spare the work; that the name is still free in the end is what counts.
  if (!folder.IsValid() || (isKept && fstatat(folder.Get(), name, &status, AT_SYMLINK_NOFOLLOW) == 0)) {
    return false;
  }

  char temporaryName[kTemporaryNameSize];
  Descriptor temporary(CreateTemporaryFile(folder.Get(), temporaryName));
  if (!temporary.IsValid()) return false;
  // A file system without locks holds none; the file is good all the same. Another holder is somebody who
  // took it for a left-over in between, and is about to remove it.
  bool const isOurs =
      !held_o || SetLock(temporary.Get(), F_OFD_SETLK, F_WRLCK) || (errno != EAGAIN && errno != EACCES);
  bool const isNamed = isOurs && StoreTemporaryFile(folder.Get(), temporary.Get(), name, pieces_i) &&
                       (isKept ? RenameInFolder(folder.Get(), temporaryName, name)
                               : renameat(folder.Get(), temporaryName, folder.Get(), name) == 0);
  if (!isNamed) {
    unlinkat(folder.Get(), temporaryName, 0);
    return false;
  }
  if (!SynchronizeDescriptor(folder.Get())) {
    // A name that may be gone after a loss of power was not given; that of a file that was there stays.
    if (isKept) unlinkat(folder.Get(), name, 0);
    return false;
  }
  if (held_o) {
    held_o->SetSpecification(file_i);
    held_o->myReference = temporary.Release();
  }
  return true;
}

void PLXFile::RemoveLeftovers(PLXFolderSpecification const& folder_i) {
  std::unique_ptr<DIR, int (*)(DIR*)> const folder(opendir(folder_i.GetSystemPath()), closedir);
  if (folder == nullptr) return;
  time_t const oldest = time(nullptr) - kLeftoverAge;
  while (dirent const* const entry = readdir(folder.get())) {
    struct stat status;
    bool const isOurs =
        std::strlen(entry->d_name) == kTemporaryNameSize - 1 &&
        std::strncmp(entry->d_name, kTemporaryFilePrefix, sizeof kTemporaryFilePrefix - 1) == 0;
    if (isOurs && fstatat(dirfd(folder.get()), entry->d_name, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
        S_ISREG(status.st_mode) && status.st_mtime < oldest) {
      unlinkat(dirfd(folder.get()), entry->d_name, 0);
    }
  }
}

bool PLXFile::SynchronizeFolder(PLXFolderSpecification const& folder_i) {
  Descriptor const folder(
      Uninterrupted([&] { return open(folder_i.GetSystemPath(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
  return folder.IsValid() && SynchronizeDescriptor(folder.Get());
}

PLXFile::~PLXFile() { Close(); }

void PLXFile::SetSpecification(PLXFileSpecification const& specification_i) {
  Close();
  mySpecification = specification_i;
}

// ---- Opening ----

bool PLXFile::Create() {
  PLXString const name = mySpecification.GetName();
  char const* const path = mySpecification.GetSystemPath();
  if (*path == 0 || name.IsEmpty() || name.GetLength() > kLongestFileSystemItemName) return false;
  PLXFolderSpecification folder = mySpecification.GetParentFolder();
  if (!folder.CreateIfMissing()) return false;
  return Descriptor(Uninterrupted([&] {
           return open(path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kFilePermissions);
         }))
      .IsValid();
}

bool PLXFile::Open(PLXUInt32 permission_i, bool /*binary_i*/) {
  Close();
  int const access = permission_i == kPLXFilePermission_ReadOnly ? O_RDONLY : O_RDWR;
  // A pipe or a device in the place of a file is seen below; until then nothing may wait for it.
  int const file = Uninterrupted(
      [&] { return open(mySpecification.GetSystemPath(), access | O_CLOEXEC | O_NOCTTY | O_NONBLOCK); });
  if (file == -1) return false;
  struct stat status;
  if (fstat(file, &status) != 0 || !S_ISREG(status.st_mode) || status.st_size > off_t{kLongestFile}) {
    close(file);
    return false;
  }
  myReference = file;
  myPosition = 0;
  return true;
}

bool PLXFile::Close() {
  if (!IsOpen()) return false;
  bool const isFlushed = Flush();
  ForgetReadAhead();
  // Interrupted or not, the descriptor is gone and must not be closed again.
  bool const isClosed = close(myReference) == 0 || errno == EINTR;
  myReference = kOSFileReferenceInvalid;
  myPosition = 0;
  return isFlushed && isClosed;
}

// ---- Transfers ----

PLXUInt32 PLXFile::FetchAt(PLXUInt32 offset_i, PLXUInt32 count_i, void* buffer_o) const noexcept {
  if (!IsOpen() || offset_i > kLongestFile) return 0;
  PLXUInt32 const count = std::min(count_i, kLongestFile - offset_i);
  auto* const bytes = static_cast<char*>(buffer_o);
  PLXUInt32 done = 0;
  while (done < count) {
    ssize_t const got = pread(myReference, bytes + done, count - done, static_cast<off_t>(offset_i) + done);
    if (got == -1 && errno == EINTR) continue;
    if (got <= 0) break;
    done += static_cast<PLXUInt32>(got);
  }
  return done;
}

PLXUInt32 PLXFile::StoreAt(PLXUInt32 offset_i, PLXUInt32 count_i, void const* buffer_i,
                           bool append_i) noexcept {
  if (!IsOpen() || offset_i > kLongestFile) return 0;
  PLXUInt32 const count = std::min(count_i, kLongestFile - offset_i);
  return WriteBytes(myReference, offset_i, count, buffer_i, append_i);
}

PLXUInt32 PLXFile::Read(PLXUInt32 offset_i, PLXUInt32 count_i, void* buffer_o) {
  if (!IsOpen()) return 0;
  Flush();
  PLXUInt32 const count = FetchAt(offset_i, count_i, buffer_o);
  myPosition = offset_i + count;
  return count;
}

PLXUInt32 PLXFile::Write(PLXUInt32 offset_i, PLXUInt32 count_i, void const* buffer_i) {
  if (!IsOpen()) return 0;
  Flush();
  ForgetReadAhead();
  PLXUInt32 const count = StoreAt(offset_i, count_i, buffer_i, false);
  myPosition = offset_i + count;
  return count;
}

// ---- Size and position ----

PLXUInt32 PLXFile::GetSize() {
  if (!IsOpen()) return 0;
  Flush();
  struct stat status;
  if (fstat(myReference, &status) != 0) return 0;
  return static_cast<PLXUInt32>(std::min(status.st_size, off_t{kLongestFile}));
}

bool PLXFile::SetSize(PLXUInt32 length_i) {
  if (!IsOpen() || length_i > kLongestFile) return false;
  Flush();
  ForgetReadAhead();
  return Uninterrupted([&] { return ftruncate(myReference, static_cast<off_t>(length_i)); }) == 0;
}

bool PLXFile::SetFilePosition(PLXUInt32 position_i) {
  if (!IsOpen()) return false;
  myPosition = position_i;
  return true;
}

// ---- Locks and the disk ----

bool PLXFile::Lock() { return LockBy(F_OFD_SETLKW); }

bool PLXFile::TryLock() { return LockBy(F_OFD_SETLK); }

bool PLXFile::LockBy(int command_i) {
  if (!IsOpen()) return false;
  Flush();
  if (!SetLock(myReference, command_i, F_WRLCK)) return false;
  ForgetReadAhead();
  return true;
}

bool PLXFile::HasItsName() const {
  struct stat open;
  struct stat named;
  return IsOpen() && fstat(myReference, &open) == 0 && open.st_nlink > 0 &&
         stat(mySpecification.GetSystemPath(), &named) == 0 && open.st_dev == named.st_dev &&
         open.st_ino == named.st_ino;
}

bool PLXFile::UnLock() {
  if (!IsOpen()) return false;
  bool const isFlushed = Flush();
  return SetLock(myReference, F_OFD_SETLKW, F_UNLCK) && isFlushed;
}

bool PLXFile::TryLockByte(std::uint64_t position_i) {
  return IsOpen() && SetLock(myReference, F_OFD_SETLK, F_WRLCK, LockPosition(position_i), 1);
}

bool PLXFile::UnLockByte(std::uint64_t position_i) {
  return IsOpen() && SetLock(myReference, F_OFD_SETLK, F_UNLCK, LockPosition(position_i), 1);
}

bool PLXFile::Synchronize() {
  return IsOpen() && Flush() && Uninterrupted([&] { return fsync(myReference); }) == 0;
}
