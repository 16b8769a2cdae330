#include "PLXFolderSpecification.h"

#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

constexpr char kDelimiter = kPlatformPathDelimiter[0];
constexpr mode_t kFolderPermissions = 0777;  // as the process's mask changes them
constexpr int kOpenFolder = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

struct CloseFolder {
  void operator()(DIR* folder_i) const { closedir(folder_i); }
};
typedef std::unique_ptr<DIR, CloseFolder> Folder;

bool IsSelfOrParent(char const* name_i) {
  return std::strcmp(name_i, ".") == 0 || std::strcmp(name_i, "..") == 0;
}

// The entry's type without a further call where the file system tells it.
bool IsFolderEntry(int folder_i, dirent const& entry_i) {
  if (entry_i.d_type != DT_UNKNOWN) return entry_i.d_type == DT_DIR;
  struct stat status;
  return fstatat(folder_i, entry_i.d_name, &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(status.st_mode);
}

// Removes a tree from its leaves up. Only the folder at work is open; the way back up is "..", and it is
// believed only when it leads to the very folder that was left, so that nobody who moves folders about
// meanwhile can send the removal elsewhere. A failure keeps what cannot be removed and goes on beside it.
class TreeRemoval {
 public:
  // `parent_i` is open and not closed here. Requires: `name_i` is a folder in it.
  bool Run(int parent_i, char const* name_i) {
    if (!Enter(parent_i, name_i)) return false;
    while (!myLevels.empty()) {
      if (!myLevels.back().folders.empty()) {
        std::string const name = std::move(myLevels.back().folders.back());
        myLevels.back().folders.pop_back();
        if (!Enter(dirfd(myFolder.get()), name.c_str())) mySucceeded = false;
        continue;
      }
      std::string const name = std::move(myLevels.back().name);
      myLevels.pop_back();
      if (myLevels.empty()) {
        myFolder.reset();
        return unlinkat(parent_i, name.c_str(), AT_REMOVEDIR) == 0 && mySucceeded;
      }
      if (!Leave()) return false;
      if (unlinkat(dirfd(myFolder.get()), name.c_str(), AT_REMOVEDIR) != 0) mySucceeded = false;
    }
    return false;
  }

 private:
  struct Level {
    std::string name;
    dev_t device;
    ino_t inode;
    std::vector<std::string> folders;  // still to be removed
  };

  static Folder Open(int parent_i, char const* name_i) {
    int const descriptor = openat(parent_i, name_i, kOpenFolder);
    if (descriptor < 0) return Folder();
    Folder folder(fdopendir(descriptor));
    if (folder == nullptr) close(descriptor);
    return folder;
  }

  // Opens the folder, removes what is no folder in it and notes the rest. On failure the folder at work
  // stays.
  bool Enter(int parent_i, char const* name_i) {
    Folder folder = Open(parent_i, name_i);
    struct stat status;
    if (folder == nullptr || fstat(dirfd(folder.get()), &status) != 0) return false;
    Level level{name_i, status.st_dev, status.st_ino, {}};
    while (dirent const* const entry = readdir(folder.get())) {
      if (IsSelfOrParent(entry->d_name)) continue;
      if (IsFolderEntry(dirfd(folder.get()), *entry)) {
        level.folders.emplace_back(entry->d_name);
      } else if (unlinkat(dirfd(folder.get()), entry->d_name, 0) != 0) {
        mySucceeded = false;
      }
    }
    myFolder = std::move(folder);
    myLevels.push_back(std::move(level));
    return true;
  }

  bool Leave() {
    Folder parent = Open(dirfd(myFolder.get()), "..");
    struct stat status;
    if (parent == nullptr || fstat(dirfd(parent.get()), &status) != 0) return false;
    if (status.st_dev != myLevels.back().device || status.st_ino != myLevels.back().inode) return false;
    myFolder = std::move(parent);
    return true;
  }

  Folder myFolder;  // of the last level
  std::vector<Level> myLevels;
  bool mySucceeded = true;
};

}  // namespace

PLXFolderSpecification::PLXFolderSpecification(PLXFileSystemItem const& item_i)
    : PLXFileSystemItem(item_i.GetOperatingSystemPathname(), true) {
  if (PLXFileSystemItem::Exists() && !IsAFolder()) throw IsNotAFolder();
}

bool PLXFolderSpecification::Exists() const { return IsAFolder(); }

bool PLXFolderSpecification::Create() {
  if (*GetSystemPath() == 0) return false;
  PLXString path = GetPathWithoutTrailingDelimiters();
  char* const text = path.ReserveLength(path.GetLength());
  // The first component of an absolute path is the empty one before its delimiter.
  char* delimiter = std::strchr(text, kDelimiter);
  while (delimiter != nullptr && (delimiter = std::strchr(delimiter + 1, kDelimiter)) != nullptr) {
    *delimiter = 0;
    struct stat status;
    bool const there = (stat(text, &status) == 0 && S_ISDIR(status.st_mode)) ||
                       mkdir(text, kFolderPermissions) == 0 ||
                       errno == EEXIST;  // another thread made it just now
    *delimiter = kDelimiter;
    if (!there) return false;
  }
  return mkdir(text, kFolderPermissions) == 0;
}

bool PLXFolderSpecification::Delete() {
  PLXString const path = GetPathWithoutTrailingDelimiters();
  if (*GetSystemPath() == 0 || path == kPlatformPathDelimiter) return false;
  struct stat status;
  if (lstat(path.GetCStringAccess(), &status) != 0) return false;
  if (S_ISLNK(status.st_mode) && IsAFolder()) return unlink(path.GetCStringAccess()) == 0;
  if (!S_ISDIR(status.st_mode)) return false;
  return TreeRemoval().Run(AT_FDCWD, path.GetCStringAccess());
}

bool PLXFolderSpecification::GetContents(PLXFileSystemItemArray& contents_o,
                                         SelectionCallback select_i) const {
  contents_o.Empty();
  Folder const folder(opendir(GetSystemPath()));
  if (folder == nullptr) {
    if (errno == ENOENT) throw ItemNotFound();
    if (errno == ENOTDIR) throw IsNotAFolder();
    return false;
  }
  std::vector<PLXFileSystemItem> items;
  // An error in the middle looks like the end but for errno.
  while (dirent const* const entry = (errno = 0, readdir(folder.get()))) {
    if (IsSelfOrParent(entry->d_name) || (select_i != nullptr && !select_i(*entry))) continue;
    items.emplace_back(*this, PLXString(entry->d_name), IsFolderEntry(dirfd(folder.get()), *entry));
  }
  if (errno != 0) return false;
  contents_o.ResizeToHold(static_cast<PLXUInt32>(items.size()));
  for (PLXUInt32 index = 0; index < contents_o.GetElementCount(); ++index) contents_o[index] = items[index];
  return true;
}

bool PLXFolderSpecification::MoveTo(PLXString const& name_i) {
  bool const isPath = std::memchr(name_i.GetCStringAccess(), kDelimiter, name_i.GetLength()) != nullptr;
  return isPath ? MoveToPath(name_i) : Rename(name_i);
}
