#pragma once

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "PLXFileSpecification.h"
#include "PLXFolderSpecification.h"
#include "PLXRegExp.h"
#include "PLXTokenizedString.h"

// The folder that receives the files of one message. Names and contents are the sender's and not trusted:
// whatever they are, a file lands in this folder, is visible there and replaces nothing. One thread at a
// time.
class PLXAttachmentFolder : public PLXObject {
 public:
  enum Encoding { kAsItStands, kBase64 };

  // Files are stored when one of the expressions is found in their name and their part is no longer than
  // `maximumSize_i` KiB (0 means no limit). An expression that does not compile is never found. With an empty
  // path there is nowhere to store.
  // A repeated one goes on where an earlier try with the same message may have ended: a file that has the
  // name and the bytes already is the one.
  PLXAttachmentFolder(PLXString const& path_i, PLXTokenizedString const& patterns_i, PLXUInt32 maximumSize_i,
                      bool isRepeated_i);

  bool IsGiven() const noexcept { return myFolder.GetOperatingSystemPathname().IsNotEmpty(); }

  // Stores a part and returns the name that the file was given; empty when it is not wanted or not stored, in
  // which case nothing of it remains. The file's bytes are on the disk before it has its name. Requires:
  // IsGiven(), and a name that is not empty.
  PLXString Store(std::string_view name_i, std::string_view content_i, Encoding encoding_i);

  // Waits until the files' names are on the disk too. False when a file that was wanted is not stored for
  // certain.
  bool Finish();

 private:
  bool IsWanted(PLXString const& name_i, std::size_t size_i);
  // Gives the file the first free of name.txt, name1.txt, name2.txt and so on, unless one of them has its
  // bytes and is it. The name; empty when the file cannot be renamed.
  PLXString TakeFreeName(PLXFileSpecification& file_io, std::string const& name_i);

  PLXFolderSpecification myFolder;
  std::vector<PLXRegExp> myPatterns;
  PLXUInt32 myMaximumSize;
  bool const myIsRepeated;
  bool myHasStored = false;
  bool myHasFailed = false;
  // Where to go on for a name that came before, so that equal names cost no more than different ones.
  std::unordered_map<std::string, unsigned> myNextNumbers;
};
