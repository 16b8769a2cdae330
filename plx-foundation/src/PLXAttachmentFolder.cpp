#include "PLXAttachmentFolder.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "PLXCryptor.h"
#include "PLXFile.h"
#include "PLXRandomNumber.h"
#include "PLXStringUtility.h"

namespace {

constexpr std::size_t kPieceSize = 131072;  // bytes of a part that are written at once
constexpr std::size_t kLongestNumber = 10;  // digits that a name may gain
constexpr std::size_t kLongestName = kLongestFileSystemItemName - kLongestNumber;
constexpr std::size_t kLongestExtension = 32;  // what is longer, with its point, is no extension to be kept

bool IsControlCharacter(char character_i) noexcept {
  return static_cast<unsigned char>(character_i) < ' ' || character_i == '\x7F';
}

// The name without what would hide the file, address another or confuse whoever lists the folder.
std::string MakeHarmlessName(std::string_view name_i) {
  std::size_t const point = std::min(name_i.rfind('.'), name_i.size());
  std::string_view extension = name_i.substr(point);
  if (extension.size() > kLongestExtension) extension = {};
  std::string name(name_i.substr(0, std::min(name_i.size(), kLongestName) - extension.size()));
  name += extension;
  std::replace_if(name.begin(), name.end(), IsControlCharacter, '_');
  std::replace(name.begin(), name.end(), '/', '_');
  if (name.front() == '.') name.front() = '_';
  return name;
}

// The name with a number before its extension; itself for number 0.
PLXString NumberedName(std::string const& name_i, unsigned number_i) {
  std::string name = name_i;
  if (number_i > 0) name.insert(std::min(name.rfind('.'), name.size()), std::to_string(number_i));
  return PLXString(name.data(), static_cast<PLXUInt32>(name.size()));
}

// A file that is being written under a name that nobody asks for, and goes unless it is kept in the end.
class UnfinishedFile {
 public:
  explicit UnfinishedFile(PLXFolderSpecification const& folder_i) {
    PLXRandomNumber const random;
    char name[32];
    std::snprintf(name, sizeof name, ".plx-%08x%08x", random.GetNext(), random.GetNext());
    mySpecification.Redefine(folder_i, name);
    myFile.SetSpecification(mySpecification);
    myIsThere = myFile.Create();
    if (myIsThere) myFile.Open(kPLXFilePermission_ReadWrite);
  }
  UnfinishedFile(UnfinishedFile const&) = delete;
  UnfinishedFile& operator=(UnfinishedFile const&) = delete;
  ~UnfinishedFile() {
    myFile.Close();
    if (myIsThere) mySpecification.Delete();
  }

  PLXFile& File() noexcept { return myFile; }
  PLXFileSpecification& Specification() noexcept { return mySpecification; }
  void Keep() noexcept { myIsThere = false; }

 private:
  PLXFileSpecification mySpecification;
  PLXFile myFile;
  bool myIsThere;
};

bool WritePiece(PLXFile& file_io, void const* data_i, std::size_t size_i) {
  PLXUInt32 const size = static_cast<PLXUInt32>(size_i);
  return file_io.Write(size, data_i) == size;
}

bool WriteAsItStands(PLXFile& file_io, std::string_view content_i) {
  while (!content_i.empty()) {
    std::string_view const piece = content_i.substr(0, kPieceSize);
    if (!WritePiece(file_io, piece.data(), piece.size())) return false;
    content_i.remove_prefix(piece.size());
  }
  return true;
}

// How far the text is whole groups of four characters, with line ends between them only: where it can be cut
// and both sides decode as they do together.
std::size_t LengthOfWholeGroups(std::string_view text_i) noexcept {
  std::size_t length = 0;
  while (text_i.size() - length >= 4) length += text_i[length] == '\r' || text_i[length] == '\n' ? 1 : 4;
  return length;
}

bool WriteDecoded(PLXFile& file_io, std::string_view content_i) {
  PLXBuffer decoded;
  while (!content_i.empty()) {
    std::string_view piece = content_i.substr(0, kPieceSize);
    if (piece.size() < content_i.size()) piece = piece.substr(0, LengthOfWholeGroups(piece));
    PLXBufferStream stream(piece.data(), static_cast<PLXUInt32>(piece.size()));
    PLXCryptor::Base64Decode(stream, decoded);
    if (!WritePiece(file_io, decoded.GetAddress(), decoded.GetSize())) return false;
    content_i.remove_prefix(piece.size());
  }
  return true;
}

bool HaveSameBytes(PLXFileSpecification const& left_i, PLXFileSpecification const& right_i) {
  PLXFile left(left_i);
  PLXFile right(right_i);
  if (!left.Open(kPLXFilePermission_ReadOnly) || !right.Open(kPLXFilePermission_ReadOnly)) return false;
  if (left.GetSize() != right.GetSize()) return false;
  std::string leftBytes(kPieceSize, 0);
  std::string rightBytes(kPieceSize, 0);
  for (PLXUInt32 rest = left.GetSize(); rest > 0;) {
    PLXUInt32 const count = left.Read(kPieceSize, leftBytes.data());
    if (count == 0 || right.Read(kPieceSize, rightBytes.data()) != count) return false;
    if (std::memcmp(leftBytes.data(), rightBytes.data(), count) != 0) return false;
    rest -= count;
  }
  return true;
}

}  // namespace

PLXAttachmentFolder::PLXAttachmentFolder(PLXString const& path_i, PLXTokenizedString const& patterns_i,
                                         PLXUInt32 maximumSize_i, bool isRepeated_i)
    : myFolder(path_i),
      myPatterns(patterns_i.GetTokenCount()),
      myMaximumSize(maximumSize_i),
      myIsRepeated(isRepeated_i) {
  for (PLXUInt32 index = 0; index < patterns_i.GetTokenCount(); ++index) {
    myPatterns[index].Compile(patterns_i[index]);
  }
}

PLXString PLXAttachmentFolder::Store(std::string_view name_i, std::string_view content_i,
                                     Encoding encoding_i) {
  // The patterns decide about the name that the file would have: what they let through is what is there.
  std::string const name = MakeHarmlessName(name_i);
  if (!IsWanted(NumberedName(name, 0), content_i.size())) return PLXString();
  UnfinishedFile file(myFolder);
  bool const isWritten =
      encoding_i == kBase64 ? WriteDecoded(file.File(), content_i) : WriteAsItStands(file.File(), content_i);
  PLXString taken;
  if (isWritten && file.File().Synchronize() && file.File().Close()) {
    taken = TakeFreeName(file.Specification(), name);
  }
  if (taken == file.Specification().GetName()) file.Keep();
  (taken.IsEmpty() ? myHasFailed : myHasStored) = true;
  return taken;
}

bool PLXAttachmentFolder::Finish() {
  if (!myHasStored) return !myHasFailed;
  bool const isOnDisk =
      PLXFile::SynchronizeFolder(myFolder) && PLXFile::SynchronizeFolder(myFolder.GetParentFolder());
  return isOnDisk && !myHasFailed;
}

bool PLXAttachmentFolder::IsWanted(PLXString const& name_i, std::size_t size_i) {
  bool const isTooLong = myMaximumSize > 0 && size_i > std::uint64_t{myMaximumSize} * 1024;
  return !isTooLong && std::any_of(myPatterns.begin(), myPatterns.end(),
                                   [&](PLXRegExp& pattern_io) { return pattern_io.Execute(name_i, 0); });
}

PLXString PLXAttachmentFolder::TakeFreeName(PLXFileSpecification& file_io, std::string const& name_i) {
  // Renaming refuses a name that is taken, so nobody who stores here at the same time comes between the
  // choice of a name and its use.
  for (unsigned& number = myNextNumbers[name_i];; ++number) {
    PLXString candidate = NumberedName(name_i, number);
    PLXFileSpecification const there(myFolder, candidate);
    if (file_io.Rename(candidate) || (myIsRepeated && HaveSameBytes(file_io, there))) {
      ++number;
      return candidate;
    }
    if (!there.Exists()) return PLXString();
  }
}
