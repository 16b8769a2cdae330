#pragma once

#include "PLXFileSystemItem.h"

// Where a file is, or is to be. GetName is everything behind the last delimiter, so "folder/" has the empty
// name. Exists is true when anything has the path: a file could not be created there.
class PLXFileSpecification : public PLXFileSystemItem {
 public:
  PLXFileSpecification() noexcept = default;
  explicit PLXFileSpecification(PLXString const& path_i) : PLXFileSystemItem(path_i) {}
  // Throws IsNotAFile when a folder is there.
  explicit PLXFileSpecification(PLXFileSystemItem const& item_i);
  PLXFileSpecification(PLXFileSpecification const&) = default;
  PLXFileSpecification(PLXFolderSpecification const& folder_i, PLXString const& name_i)
      : PLXFileSystemItem(folder_i, name_i) {}
  PLXFileSpecification& operator=(PLXFileSpecification const&) = default;

  // Removes the file or the link; a folder stays, and the answer is false.
  bool Delete() override;
};
