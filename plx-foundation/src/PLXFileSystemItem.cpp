#include "PLXFileSystemItem.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

#include "PLXFolderSpecification.h"
#include "PLXTimestamp.h"

namespace {

constexpr char kDelimiter = kPlatformPathDelimiter[0];
constexpr std::string_view kClimb = "../";
constexpr mode_t kAnyWritePermission = S_IWUSR | S_IWGRP | S_IWOTH;

std::string_view View(PLXString const& string_i) {
  return {string_i.GetCStringAccess(), string_i.GetLength()};
}

PLXString String(std::string_view text_i) {
  return PLXString(text_i.data(), static_cast<PLXUInt32>(text_i.size()));
}

// The root keeps its one delimiter.
std::string_view WithoutTrailingDelimiters(std::string_view path_i) {
  while (path_i.size() > 1 && path_i.back() == kDelimiter) path_i.remove_suffix(1);
  return path_i;
}

bool IsOneComponent(std::string_view name_i) {
  return !name_i.empty() && name_i.size() <= kLongestFileSystemItemName && name_i != "." && name_i != ".." &&
         name_i.find(kDelimiter) == name_i.npos && name_i.find('\0') == name_i.npos;
}

// What is left of a name when it has to stay inside its folder.
PLXString MakeOneComponent(PLXString const& name_i) {
  if (name_i.IsEmpty() || IsOneComponent(View(name_i))) return name_i;
  bool const dots = View(name_i) == "." || View(name_i) == "..";
  PLXString name;
  char* const text = name.ReserveLength(name_i.GetLength());
  for (PLXUInt32 index = 0; index < name_i.GetLength(); ++index) {
    char const character = name_i[index];
    text[index] = dots || character == kDelimiter || character == 0 ? '_' : character;
  }
  return name;
}

// "folder/name"; in the empty path, which stands for the current folder, the name alone.
PLXString MakePath(PLXString const& folder_i, PLXString const& name_i) {
  PLXString path(folder_i);
  if (path.IsNotEmpty() && View(path).back() != kDelimiter) path.Append(kDelimiter);
  return path.Append(MakeOneComponent(name_i));
}

// Refuses to replace what has the new path. A file system that cannot refuse by itself is asked first.
bool RenameWithoutReplacing(char const* from_i, char const* to_i) {
  if (renameat2(AT_FDCWD, from_i, AT_FDCWD, to_i, RENAME_NOREPLACE) == 0) return true;
  if (errno != EINVAL && errno != ENOSYS) return false;
  struct stat status;
  return lstat(to_i, &status) != 0 && errno == ENOENT && rename(from_i, to_i) == 0;
}

}  // namespace

PLXFileSystemItem::PLXFileSystemItem(PLXFolderSpecification const& folder_i, PLXString const& name_i,
                                     bool isFolder_i)
    : myPath(MakePath(folder_i.GetOperatingSystemPathname(), name_i)), myIsFolder(isFolder_i) {}

void PLXFileSystemItem::Redefine(PLXFolderSpecification const& folder_i, PLXString const& name_i) {
  Redefine(MakePath(folder_i.GetOperatingSystemPathname(), name_i));
}

// ---- What is there ----

char const* PLXFileSystemItem::GetSystemPath() const noexcept {
  char const* const path = myPath.GetCStringAccess();
  return std::strlen(path) == myPath.GetLength() ? path : "";
}

PLXString PLXFileSystemItem::GetPathWithoutTrailingDelimiters() const {
  return String(WithoutTrailingDelimiters(View(myPath)));
}

bool PLXFileSystemItem::Exists() const {
  struct stat status;
  return lstat(GetSystemPath(), &status) == 0;
}

bool PLXFileSystemItem::IsAFile() const {
  struct stat status;
  return stat(GetSystemPath(), &status) == 0 && S_ISREG(status.st_mode);
}

bool PLXFileSystemItem::IsAFolder() const {
  struct stat status;
  return stat(GetSystemPath(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool PLXFileSystemItem::IsReadOnly() const {
  struct stat status;
  if (stat(GetSystemPath(), &status) != 0) return false;
  // A privileged process may write anything; the permissions still say what is meant.
  return (status.st_mode & kAnyWritePermission) == 0 ||
         faccessat(AT_FDCWD, GetSystemPath(), W_OK, AT_EACCESS) != 0;
}

PLXTimestamp PLXFileSystemItem::GetTimestamp(PLXUInt32 selector_i) const {
  struct stat status {};
  if (*GetSystemPath() != 0) stat(GetPathWithoutTrailingDelimiters().GetCStringAccess(), &status);
  std::time_t time = status.st_ctime;
  if (!S_ISDIR(status.st_mode)) {
    if (selector_i == kPLXFileTime_LastAccess) time = status.st_atime;
    if (selector_i == kPLXFileTime_LastModification) time = status.st_mtime;
  }
  std::tm local{};
  localtime_r(&time, &local);
  return {static_cast<PLXUInt16>(local.tm_year + 1900), static_cast<PLXUInt8>(local.tm_mon + 1),
          static_cast<PLXUInt8>(local.tm_mday),         static_cast<PLXUInt8>(local.tm_hour),
          static_cast<PLXUInt8>(local.tm_min),          static_cast<PLXUInt8>(local.tm_sec)};
}

bool PLXFileSystemItem::IsInvisible() const {
  PLXString const name = GetName();
  return name.IsNotEmpty() && name[0] == '.';
}

// ---- Names ----

PLXString PLXFileSystemItem::GetName() const {
  std::string_view path = View(myPath);
  if (myIsFolder) path = WithoutTrailingDelimiters(path);
  return path == kPlatformPathDelimiter ? PLXString() : String(path.substr(path.rfind(kDelimiter) + 1));
}

PLXFolderSpecification PLXFileSystemItem::GetParentFolder() const {
  std::string_view path = View(myPath);
  if (myIsFolder) path = WithoutTrailingDelimiters(path);
  std::size_t const last = path.rfind(kDelimiter);
  std::string_view const name = path.substr(last + 1);
  if (name == "..") return PLXFolderSpecification(String(path).Append("/.."));
  if (name == ".") return PLXFolderSpecification(String(path).Append('.'));
  if (last == path.npos) return PLXFolderSpecification(PLXString('.'));
  if (last == 0) return PLXFolderSpecification(PLXString(kDelimiter));
  return PLXFolderSpecification(String(WithoutTrailingDelimiters(path.substr(0, last))));
}

PLXString PLXFileSystemItem::FileSystemPathnameFromURLPathname(PLXString const& path_i) {
  PLXString path;
  char* const text = path.ReserveLength(path_i.GetLength());
  PLXUInt32 length = 0;
  bool afterClimb = false;  // what was written last is the delimiter of a run of "../"
  for (PLXUInt32 index = 0; index < path_i.GetLength(); ++index) {
    text[length++] = path_i[index];
    if (path_i[index] != '.' && !std::string_view(text, length).ends_with(kClimb)) afterClimb = false;
    // The delimiter written for one may complete the next: "....//".
    while (std::string_view(text, length).ends_with(kClimb)) {
      length -= static_cast<PLXUInt32>(kClimb.size());
      if (!afterClimb || length == 0 || text[length - 1] != kDelimiter) text[length++] = kDelimiter;
      afterClimb = true;
    }
  }
  std::string_view const written(text, length);
  if (written == ".." || written.ends_with("/..")) length -= 2;
  path.ReserveLength(length);
  return path;
}

// ---- Changes ----

bool PLXFileSystemItem::MoveToPath(PLXString const& path_i) {
  PLXFileSystemItem const destination(path_i);
  PLXString const from = GetPathWithoutTrailingDelimiters();
  if (*GetSystemPath() == 0 ||
      !RenameWithoutReplacing(from.GetCStringAccess(), destination.GetSystemPath())) {
    return false;
  }
  Redefine(path_i);
  return true;
}

bool PLXFileSystemItem::Rename(PLXString const& name_i) {
  return IsOneComponent(View(name_i)) &&
         MoveToPath(MakePath(GetParentFolder().GetOperatingSystemPathname(), name_i));
}

bool PLXFileSystemItem::Move(PLXFileSystemItem const& destination_i) {
  PLXString const& path = destination_i.GetOperatingSystemPathname();
  return MoveToPath(destination_i.IsAFolder() ? MakePath(path, GetName()) : path);
}

bool PLXFileSystemItem::Delete() {
  return *GetSystemPath() != 0 && std::remove(GetPathWithoutTrailingDelimiters().GetCStringAccess()) == 0;
}
