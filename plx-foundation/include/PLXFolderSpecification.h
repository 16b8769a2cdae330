#pragma once

#include "PLXFileSystemItem.h"

struct dirent;

// Where a folder is, or is to be. Delimiters at the end of the path do not matter.
class PLXFolderSpecification : public PLXFileSystemItem {
 public:
  // Thrown when the folder to be listed is not there.
  class ItemNotFound : public PLXException {
   public:
    ItemNotFound() noexcept : PLXException("PLXFolderSpecification::ItemNotFound") {}
  };

  // Decides whether an entry is wanted. The entry is valid during the call.
  typedef bool (*SelectionCallback)(dirent const& entry_i);

  PLXFolderSpecification() : PLXFileSystemItem(PLXString(), true) {}
  explicit PLXFolderSpecification(PLXString const& path_i) : PLXFileSystemItem(path_i, true) {}
  // Throws IsNotAFolder when something else is there.
  explicit PLXFolderSpecification(PLXFileSystemItem const& item_i);
  PLXFolderSpecification(PLXFolderSpecification const&) = default;
  PLXFolderSpecification(PLXFolderSpecification const& folder_i, PLXString const& name_i)
      : PLXFileSystemItem(folder_i, name_i, true) {}
  PLXFolderSpecification& operator=(PLXFolderSpecification const&) = default;

  // A folder is there; a link to one counts.
  bool Exists() const override;

  // Creates the folder with every parent that is missing, but not the first component of a relative path.
  // False when it is there already, and when something cannot be created; parents made until then stay.
  bool Create();
  // The same unless it is there, on whichever thread or by whichever process it is made. False when it is not
  // there afterwards.
  bool CreateIfMissing() { return Exists() || Create() || Exists(); }
  // Removes the folder and all that is in it. Links are removed and never followed, here as well as inside.
  // What cannot be removed stays, with the folders that lead to it, and the answer is false. Any depth costs
  // one open folder at a time, and names are read once.
  bool Delete() override;
  // Fills the array with the entries but "." and ".." that the callback accepts (null accepts all), in no
  // order. False, array empty, when the folder cannot be read. Throws ItemNotFound, IsNotAFolder.
  bool GetContents(PLXFileSystemItemArray& contents_o, SelectionCallback select_i = nullptr) const;
  // To another name beside the old one, or, when `name_i` has a delimiter in it, to that path. As Rename
  // otherwise.
  bool MoveTo(PLXString const& name_i);
};
