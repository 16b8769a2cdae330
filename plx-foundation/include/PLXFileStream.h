#pragma once

#include <memory>

#include "PLXDataStream.h"
#include "PLXFile.h"

// The bytes of a file from its beginning, read in blocks. A file that cannot be opened is a stream without
// bytes; IsOpen tells.
class PLXFileStream : public PLXDataStream {
 public:
  static constexpr PLXUInt32 kBlockSize = 32768;  // bytes

  // Takes the file over and opens it read only. Requires: file_i != nullptr.
  explicit PLXFileStream(PLXFile* file_i, PLXUInt32 blockSize_i = kBlockSize);
  explicit PLXFileStream(PLXFileSpecification const& file_i, PLXUInt32 blockSize_i = kBlockSize)
      : PLXFileStream(new PLXFile(file_i), blockSize_i) {}
  PLXFileStream(PLXFileStream const&) = delete;
  PLXFileStream& operator=(PLXFileStream const&) = delete;

  bool IsOpen() const noexcept { return myFile->IsOpen(); }

  bool GetNextByte(PLXUInt8& byte_o) override;
  PLXUInt32 GetNextBytes(PLXUInt8* buffer_o, PLXUInt32 count_i) override;
  PLXUInt32 GetExpectedByteCount() const override;

 private:
  bool ReadBlock();

  std::unique_ptr<PLXFile> myFile;
  PLXBuffer myBlock;
  PLXUInt32 myBlockLength = 0;  // bytes that were read into the block
  PLXUInt32 myBlockOffset = 0;  // bytes of it that were delivered
};
