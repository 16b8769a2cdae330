#include "PLXDataStream.h"

bool PLXStringStream::GetNextByte(PLXUInt8& byte_o) {
  if (*myCurrent == 0) return false;
  byte_o = static_cast<PLXUInt8>(*myCurrent++);
  return true;
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
