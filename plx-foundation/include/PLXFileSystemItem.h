#pragma once

#include "PLXException.h"
#include "PLXObject.h"
#include "PLXString.h"
#include "TPLXArray.h"

class PLXFolderSpecification;
class PLXTimestamp;

// Which of an item's times is asked for.
inline constexpr PLXUInt32 kPLXFileTime_LastAccess = FourCC("LAck");
inline constexpr PLXUInt32 kPLXFileTime_LastModification = FourCC("LMod");
inline constexpr PLXUInt32 kPLXFileTime_Creation = FourCC("Crea");  // or the last change of its status

inline constexpr char kPlatformPathDelimiter[] = "/";
inline constexpr char kPlatformLineEnding[] = "\n";
inline constexpr PLXUInt32 kLongestFileSystemItemName = 255;  // bytes

// A path of the operating system, with what can be asked of the file or folder it names. Nothing needs to be
// there: building, copying and redefining an item never touches the file system.
//
// A path with a zero byte in it names nothing, so that a text from outside cannot end a path early. Paths
// longer than the platform takes, and names beyond kLongestFileSystemItemName, make every operation answer
// false. A value type of one thread.
class PLXFileSystemItem : public PLXObject {
 public:
  // Thrown where only a file, or only a folder, makes sense and the other is there.
  class IsNotAFile : public PLXException {
   public:
    IsNotAFile() noexcept : PLXException("PLXFileSystemItem::IsNotAFile") {}
  };
  class IsNotAFolder : public PLXException {
   public:
    IsNotAFolder() noexcept : PLXException("PLXFileSystemItem::IsNotAFolder") {}
  };

  PLXFileSystemItem() noexcept = default;
  explicit PLXFileSystemItem(PLXString const& path_i, bool isFolder_i = false)
      : myPath(path_i), myIsFolder(isFolder_i) {}
  // `name_i` in `folder_i`. The name stays one name in that folder: a delimiter or zero byte in it becomes
  // "_", and so do the dots of "." and "..".
  PLXFileSystemItem(PLXFolderSpecification const& folder_i, PLXString const& name_i, bool isFolder_i = false);
  PLXFileSystemItem(PLXFileSystemItem const&) = default;
  PLXFileSystemItem& operator=(PLXFileSystemItem const&) = default;
  virtual ~PLXFileSystemItem() = default;

  // Something has this path, be it a link that leads nowhere.
  virtual bool Exists() const;
  // Links are followed.
  virtual bool IsAFile() const;  // a regular file
  virtual bool IsAFolder() const;
  // There, and either without any permission to write or not writable by this process.
  virtual bool IsReadOnly() const;
  // The time in local time; a folder has that of its status only. The first second of 1970, GMT, for an item
  // that is not there. Links are followed.
  PLXTimestamp GetTimestamp(PLXUInt32 selector_i) const;
  // Its name begins with a dot.
  virtual bool IsInvisible() const;
  // Whether a folder is expected here, said when the item was built or seen when it was listed.
  bool IsExpectedToBeAFolder() const noexcept { return myIsFolder; }

  // The last component; for what is expected to be a folder, delimiters at the end do not count.
  virtual PLXString GetName() const;
  // The path without its last component: "." for a lone name, "/" for the root itself.
  virtual PLXFolderSpecification GetParentFolder() const;
  PLXString const& GetOperatingSystemPathname() const noexcept { return myPath; }
  // The path for a system call: empty, which names nothing, when a zero byte hides in it. Valid until the
  // item changes.
  char const* GetSystemPath() const noexcept;

  // These two, on success, leave the item naming the new place. They never replace what is there already, and
  // never cross file systems: false, with nothing changed. The name is one component of at most
  // kLongestFileSystemItemName bytes.
  virtual bool Rename(PLXString const& name_i);
  // Into the folder `destination_i` under the old name when a folder is there, else to its path.
  virtual bool Move(PLXFileSystemItem const& destination_i);
  // Removes a file, a link (not what it leads to) or an empty folder.
  virtual bool Delete();
  virtual void Redefine(PLXString const& path_i) { myPath = path_i; }
  // Makes this `name_i` in `folder_i`, as the constructor does.
  virtual void Redefine(PLXFolderSpecification const& folder_i, PLXString const& name_i);

  // A path of a URL as a relative path below some folder, which it cannot climb out of: each run of "../"
  // becomes one delimiter, also where taking one out brings the next together, and a ".." at the end goes.
  static PLXString FileSystemPathnameFromURLPathname(PLXString const& path_i);

 protected:
  bool MoveToPath(PLXString const& path_i);
  PLXString GetPathWithoutTrailingDelimiters() const;

 private:
  PLXString myPath;
  bool myIsFolder = false;
};

typedef TPLXArray<PLXFileSystemItem> PLXFileSystemItemArray;
