#include "PLXDataStream.h"

#include <algorithm>
#include <cstring>

PLXUInt32 PLXDataStream::GetNextBytes(PLXUInt8* buffer_o, PLXUInt32 count_i) {
  PLXUInt32 count = 0;
  while (count < count_i && GetNextByte(buffer_o[count])) ++count;
  return count;
}

PLXString PLXDataStream::GetRemainingBytes() {
  constexpr PLXUInt32 kBlockSize = 32768;  // bytes
  PLXUInt8 block[kBlockSize];
  PLXString text;
  text.Reserve(GetExpectedByteCount());
  while (PLXUInt32 const count = GetNextBytes(block, kBlockSize)) {
    text.ReserveToAppend(count);
    text.Append(block, count);
  }
  return text;
}

bool PLXStringStream::GetNextByte(PLXUInt8& byte_o) {
  if (*myCurrent == 0) return false;
  byte_o = static_cast<PLXUInt8>(*myCurrent++);
  return true;
}

PLXUInt32 PLXStringStream::GetNextBytes(PLXUInt8* buffer_o, PLXUInt32 count_i) {
  PLXUInt32 const count = static_cast<PLXUInt32>(strnlen(myCurrent, count_i));
  std::memcpy(buffer_o, myCurrent, count);
  myCurrent += count;
  return count;
}

bool PLXStringStream::SetByteOffset(PLXUInt32 offset_i) {
  if (offset_i >= myString.GetLength()) return false;
  myCurrent = myString.GetCStringAccess() + offset_i;
  return true;
}

PLXBufferStream::PLXBufferStream(void const* address_i, PLXUInt32 size_i) noexcept
    : myStart(static_cast<PLXUInt8 const*>(address_i)),
      myLast(address_i != nullptr && size_i > 0 ? myStart + (size_i - 1) : nullptr),
      myCurrent(myStart) {}

bool PLXBufferStream::GetNextByte(PLXUInt8& byte_o) {
  if (myLast == nullptr || myCurrent > myLast) return false;
  byte_o = *myCurrent++;
  return true;
}

PLXUInt32 PLXBufferStream::GetNextBytes(PLXUInt8* buffer_o, PLXUInt32 count_i) {
  if (myLast == nullptr) return 0;
  PLXUInt32 const count = std::min(count_i, static_cast<PLXUInt32>(myLast + 1 - myCurrent));
  std::memcpy(buffer_o, myCurrent, count);
  myCurrent += count;
  return count;
}
