#pragma once

#include <cstdint>
#include <initializer_list>
#include <string_view>

#include "PLXFileSpecification.h"

// What a file is opened for. Anything but read only is read and write.
inline constexpr PLXUInt32 kPLXFilePermission_ReadOnly = FourCC("RdOn");
inline constexpr PLXUInt32 kPLXFilePermission_ReadWrite = FourCC("XR/W");

// How the names of unfinished files begin; see PLXFile::WriteWhole.
inline constexpr char kTemporaryFilePrefix[] = ".plx-";

// The system's own handle of an open file.
typedef int PLXOSFileReference;
inline constexpr PLXOSFileReference kOSFileReferenceInvalid = -1;

// A regular file of bytes, read and written at offsets.
//
// What Write took is with the system when it returns: other readers see it, and the death of this process
// loses none of it and changes no order between files (the loss of power may: Synchronize). Read always asks
// the system too. Interruptions and partial transfers never show. Offsets and sizes are in bytes, to
// kLongestFile. While the file is closed everything answers false or 0. Destruction closes. One thread at a
// time, but any number of objects may have one file open.
class PLXFile : public PLXObject {
 public:
  // A longer file cannot be opened or made. As long as the longest PLXString, so that a file always fits into
  // one.
  static constexpr PLXUInt32 kLongestFile = 0xFFFFFFDF;

  // What WriteWhole does about a file that has the name already.
  enum ExistingFile { kReplaceExistingFile, kKeepExistingFile };

  PLXFile() noexcept = default;
  explicit PLXFile(PLXFileSpecification const& specification_i) : mySpecification(specification_i) {}
  PLXFile(PLXFile const&) = delete;
  PLXFile& operator=(PLXFile const&) = delete;
  virtual ~PLXFile();

  // Makes the pieces, one after the other, the whole content of a file in a folder that is there. At every
  // instant the name
  // has the old file, or none, or the new one, complete, and on true the new one survives even the loss of
  // power. It keeps the permissions of the file that it replaces; a link is replaced itself, not what it
  // leads to. False, with nothing changed, when the content cannot be stored and, with kKeepExistingFile,
  // when anything has the name; a file that was replaced may then hold the new content, but not for certain
  // after a loss of power. A death meanwhile may leave an invisible file kTemporaryFilePrefix… beside it. On
  // true `held_o`, unless null, has the new file open, which has been locked since before it had its name;
  // what it had open until then is closed.
  static bool WriteWhole(PLXFileSpecification const& file_i, std::initializer_list<std::string_view> pieces_i,
                         ExistingFile existing_i, PLXFile* held_o = nullptr);
  static bool WriteWhole(PLXFileSpecification const& file_i, PLXUInt32 count_i, void const* content_i,
                         ExistingFile existing_i, PLXFile* held_o = nullptr) {
    return WriteWhole(file_i, {{static_cast<char const*>(content_i), count_i}}, existing_i, held_o);
  }
  static bool WriteWhole(PLXFileSpecification const& file_i, PLXString const& content_i,
                         ExistingFile existing_i, PLXFile* held_o = nullptr) {
    return WriteWhole(file_i, content_i.GetLength(), content_i.GetCStringAccess(), existing_i, held_o);
  }

  // Removes what deaths left in a folder: invisible files kTemporaryFilePrefix… that nobody wrote to for a
  // day.
  static void RemoveLeftovers(PLXFolderSpecification const& folder_i);
  // Waits until the names of the folder's files are on the disk.
  static bool SynchronizeFolder(PLXFolderSpecification const& folder_i);

  PLXFileSpecification const& GetSpecification() const noexcept { return mySpecification; }
  // Closes the file that was meant before.
  void SetSpecification(PLXFileSpecification const& specification_i);

  // Makes an empty file, and the folders it needs, and leaves it closed. False when anything has the path,
  // and of several who try at once for all but one.
  bool Create();
  // Opens what Create made, at position 0; closes first what was open. False for what is not there, not
  // permitted, no regular file or longer than kLongestFile. Binary or text is the same here.
  bool Open(PLXUInt32 permission_i, bool binary_i = true);
  // False when it was not open, and when something that was written may not have been stored.
  bool Close();
  bool IsOpen() const noexcept { return myReference != kOSFileReferenceInvalid; }

  // Transfer up to `count_i` bytes at the offset, or where the last transfer ended; the position is behind
  // them afterwards. Return how many: fewer only at the end of the file, at kLongestFile or after an error (a
  // full disk). Writing beyond the end fills the gap with zero bytes.
  PLXUInt32 Read(PLXUInt32 offset_i, PLXUInt32 count_i, void* buffer_o);
  PLXUInt32 Read(PLXUInt32 count_i, void* buffer_o) { return Read(myPosition, count_i, buffer_o); }
  PLXUInt32 Write(PLXUInt32 offset_i, PLXUInt32 count_i, void const* buffer_i);
  PLXUInt32 Write(PLXUInt32 count_i, void const* buffer_i) { return Write(myPosition, count_i, buffer_i); }

  PLXUInt32 GetSize();
  // Cuts, or extends with zero bytes; the position stays. False beyond kLongestFile.
  bool SetSize(PLXUInt32 length_i);
  PLXUInt32 GetFilePosition() const noexcept { return myPosition; }
  // May lie beyond the end.
  bool SetFilePosition(PLXUInt32 position_i);

  // Waits until no other object has the whole file locked, in this process or another, then locks it. Only
  // those who lock are kept apart. False for a file that was opened read only. Whoever locks one file through
  // two objects on one thread waits for ever. Closing unlocks; the locks of one object are not counted.
  bool Lock();
  // Locks it only when that needs no waiting.
  bool TryLock();
  bool UnLock();
  // Locks one byte, which need not be there, without waiting. False when another object has it locked.
  bool TryLockByte(std::uint64_t position_i);
  bool UnLockByte(std::uint64_t position_i);
  // Whether the name still means the file that is open: it may have been removed or replaced meanwhile.
  bool HasItsName() const;

  // Hands what a derived class holds back to the system. False when any of it since Open could not be stored.
  virtual bool Flush() { return IsOpen(); }
  // Waits until everything written is on the disk.
  bool Synchronize();

 protected:
  // Transfers that leave the position alone. Appending goes where the end is at that very moment, whoever
  // else appends.
  PLXUInt32 FetchAt(PLXUInt32 offset_i, PLXUInt32 count_i, void* buffer_o) const noexcept;
  PLXUInt32 StoreAt(PLXUInt32 offset_i, PLXUInt32 count_i, void const* buffer_i, bool append_i) noexcept;
  // Lets go of what a derived class has read ahead, because it may have changed.
  virtual void ForgetReadAhead() {}

 private:
  bool LockBy(int command_i);

  PLXFileSpecification mySpecification;
  PLXUInt32 myPosition = 0;
  PLXOSFileReference myReference = kOSFileReferenceInvalid;
};
