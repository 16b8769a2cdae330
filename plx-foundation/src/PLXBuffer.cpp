#include "PLXBuffer.h"

#include <cstring>
#include <utility>

namespace {
char const* const ourSourceFile = "src/PLXBuffer.cpp";
}

PLXBuffer::PLXBuffer(PLXBuffer const& other_i) : PLXObject() {
  SetSize(other_i.myBufferByteCount);
  if (myBufferByteCount > 0) std::memcpy(myBufferData, other_i.myBufferData, myBufferByteCount);
}

PLXBuffer::PLXBuffer(PLXBuffer&& other_io) noexcept
    : PLXObject(),
      myBufferData(std::exchange(other_io.myBufferData, nullptr)),
      myBufferByteCount(std::exchange(other_io.myBufferByteCount, 0)),
      myOwnsData(std::exchange(other_io.myOwnsData, true)) {}

PLXBuffer& PLXBuffer::operator=(PLXBuffer const& other_i) {
  if (this != &other_i) *this = PLXBuffer(other_i);
  return *this;
}

PLXBuffer& PLXBuffer::operator=(PLXBuffer&& other_io) noexcept {
  if (this != &other_io) {
    if (myOwnsData) FreeMemory(myBufferData);
    myBufferData = std::exchange(other_io.myBufferData, nullptr);
    myBufferByteCount = std::exchange(other_io.myBufferByteCount, 0);
    myOwnsData = std::exchange(other_io.myOwnsData, true);
  }
  return *this;
}

PLXBuffer::~PLXBuffer() {
  if (myOwnsData) FreeMemory(myBufferData);
}

void* PLXBuffer::SetSize(PLXUInt32 size_i, unsigned options_i) {
  if (size_i > myBufferByteCount) {
    auto* const newBufferData = static_cast<PLXUInt8*>(AllocateMemory(size_i));
    PLX_ASSERT_NOT_NULL(newBufferData);
    if ((options_i & kZero) != 0) std::memset(newBufferData, 0, size_i - myBufferByteCount);
    if ((options_i & kKeep) != 0 && myBufferData != nullptr) {
      std::memcpy(newBufferData, myBufferData, myBufferByteCount);
    }
    if (myOwnsData) FreeMemory(myBufferData);
    myBufferData = newBufferData;
    myOwnsData = true;
  }
  myBufferByteCount = size_i;
  return myBufferData;
}

PLXUInt8& PLXBuffer::operator[](PLXUInt32 offset_i) {
  PLX_ASSERT_STATE(offset_i < myBufferByteCount);
  return myBufferData[offset_i];
}

PLXUInt8 PLXBuffer::operator[](PLXUInt32 offset_i) const {
  PLX_ASSERT_STATE(offset_i < myBufferByteCount);
  return myBufferData[offset_i];
}
