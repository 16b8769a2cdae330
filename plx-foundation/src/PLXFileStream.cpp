#include "PLXFileStream.h"

#include <algorithm>
#include <cstring>

namespace {
char const ourSourceFile[] = "src/PLXFileStream.cpp";
}

PLXFileStream::PLXFileStream(PLXFile* file_i, PLXUInt32 blockSize_i)
    : myFile(file_i), myBlock(std::max<PLXUInt32>(blockSize_i, 1)) {
  PLX_ASSERT_NOT_NULL(myFile);
  myFile->Open(kPLXFilePermission_ReadOnly);
}

bool PLXFileStream::ReadBlock() {
  myBlockOffset = 0;
  myBlockLength = myFile->Read(myBlock.GetSize(), myBlock.GetAddress());
  return myBlockLength > 0;
}

bool PLXFileStream::GetNextByte(PLXUInt8& byte_o) {
  if (myBlockOffset == myBlockLength && !ReadBlock()) return false;
  byte_o = static_cast<PLXUInt8 const*>(myBlock.GetAddress())[myBlockOffset++];
  return true;
}

PLXUInt32 PLXFileStream::GetNextBytes(PLXUInt8* buffer_o, PLXUInt32 count_i) {
  PLXUInt32 const ready = std::min(count_i, myBlockLength - myBlockOffset);
  if (ready > 0) {
    std::memcpy(buffer_o, static_cast<PLXUInt8 const*>(myBlock.GetAddress()) + myBlockOffset, ready);
    myBlockOffset += ready;
  }
  if (ready == count_i) return ready;
  // What fills a block needs no copy through it.
  if (count_i - ready >= myBlock.GetSize()) return ready + myFile->Read(count_i - ready, buffer_o + ready);
  return ReadBlock() ? ready + GetNextBytes(buffer_o + ready, count_i - ready) : ready;
}

PLXUInt32 PLXFileStream::GetExpectedByteCount() const {
  PLXUInt32 const size = myFile->GetSize();
  PLXUInt32 const unread = size - std::min(size, myFile->GetFilePosition());
  return unread + (myBlockLength - myBlockOffset);
}
