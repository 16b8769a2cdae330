#pragma once

#include "PLXObject.h"
#include "PLXString.h"

// A source of bytes, read once from front to back. One thread at a time.
class PLXDataStream : public PLXObject {
 public:
  virtual ~PLXDataStream() = default;
  // False at the end; the byte is then unchanged.
  virtual bool GetNextByte(PLXUInt8& byte_o) = 0;
  // Reads up to `count_i` bytes and returns how many: fewer only at the end.
  virtual PLXUInt32 GetNextBytes(PLXUInt8* buffer_o, PLXUInt32 count_i);
  // How many bytes are left as far as the stream can tell, for whoever makes room for them; 0 when it cannot.
  virtual PLXUInt32 GetExpectedByteCount() const { return 0; }
  // Everything that is left.
  PLXString GetRemainingBytes();
};

// The bytes of a string up to its first zero byte.
class PLXStringStream : public PLXDataStream {
 public:
  explicit PLXStringStream(PLXString const& string_i)
      : myString(string_i), myCurrent(myString.GetCStringAccess()) {}
  PLXStringStream(PLXStringStream const&) = delete;
  PLXStringStream& operator=(PLXStringStream const&) = delete;

  bool GetNextByte(PLXUInt8& byte_o) override;
  PLXUInt32 GetNextBytes(PLXUInt8* buffer_o, PLXUInt32 count_i) override;
  PLXUInt32 GetExpectedByteCount() const override {
    return static_cast<PLXUInt32>(myString.GetCStringAccess() + myString.GetLength() - myCurrent);
  }
  // False, and nothing moves, for an offset at or beyond the length.
  bool SetByteOffset(PLXUInt32 offset_i);

 private:
  PLXString myString;
  char const* myCurrent;
};

// The bytes of a block that outlives the stream.
class PLXBufferStream : public PLXDataStream {
 public:
  PLXBufferStream(void const* address_i, PLXUInt32 size_i) noexcept;
  bool GetNextByte(PLXUInt8& byte_o) override;
  PLXUInt32 GetNextBytes(PLXUInt8* buffer_o, PLXUInt32 count_i) override;
  PLXUInt32 GetExpectedByteCount() const override {
    return myLast == nullptr ? 0 : static_cast<PLXUInt32>(myLast + 1 - myCurrent);
  }

 private:
  PLXUInt8 const* myStart;
  PLXUInt8 const* myLast;  // the last byte itself; null for an empty stream
  PLXUInt8 const* myCurrent;
};
