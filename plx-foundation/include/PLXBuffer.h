#pragma once

#include "PLXAssert.h"
#include "PLXObject.h"

// A block of bytes of its own, at most 4 GiB - 1. Copying copies the bytes. One thread at a time.
class PLXBuffer : public PLXObject {
 public:
  static constexpr unsigned kZero = 1;  // SetSize: clear the bytes by which the buffer grows
  static constexpr unsigned kKeep = 2;  // SetSize: keep the old bytes

  PLXBuffer() noexcept = default;
  explicit PLXBuffer(PLXUInt32 size_i, unsigned options_i = 0) { SetSize(size_i, options_i); }
  PLXBuffer(PLXBuffer const& other_i);
  PLXBuffer(PLXBuffer&& other_io) noexcept;
  PLXBuffer& operator=(PLXBuffer const& other_i);
  PLXBuffer& operator=(PLXBuffer&& other_io) noexcept;
  virtual ~PLXBuffer();

  // Sets the size and returns the address. Growing takes new storage of exactly `size_i` bytes; with kZero
  // its first `size_i` - old-size bytes are cleared, then with kKeep the old bytes are copied to its start,
  // in this order. Shrinking keeps the storage. Aborts when there is no memory.
  void* SetSize(PLXUInt32 size_i, unsigned options_i = 0);

  void* GetAddress() noexcept { return myBufferData; }
  void const* GetAddress() const noexcept { return myBufferData; }
  PLXUInt32 GetSize() const noexcept { return myBufferByteCount; }

  // Requires: offset_i < GetSize().
  PLXUInt8& operator[](PLXUInt32 offset_i);
  PLXUInt8 operator[](PLXUInt32 offset_i) const;

 protected:
  // Points at bytes that somebody else owns and that outlive the buffer, until it grows.
  struct Borrowed {};
  constexpr PLXBuffer(Borrowed, PLXUInt8* data_i, PLXUInt32 size_i) noexcept
      : myBufferData(data_i), myBufferByteCount(size_i), myOwnsData(false) {}

 private:
  PLXUInt8* myBufferData = nullptr;
  PLXUInt32 myBufferByteCount = 0;
  bool myOwnsData = true;
};
