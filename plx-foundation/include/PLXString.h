#pragma once

#include <cstring>

#include "PLXAssert.h"
#include "PLXBuffer.h"
#include "PLXObject.h"
#include "PLXTypes.h"

// The result of comparing two strings.
inline constexpr PLXUInt32 kPLXCompare_Less = FourCC("Less");
inline constexpr PLXUInt32 kPLXCompare_Equal = FourCC("Equ ");
inline constexpr PLXUInt32 kPLXCompare_Greater = FourCC("Grtr");

// The bytes behind one or more PLXStrings: always zero-terminated, in storage of 32 x (length / 32 + 1)
// bytes. A short text is made in one block of memory with its representation; what grows beyond that moves
// into a block of its own.
//
// The count is a plain integer, so a representation belongs to one thread. The exception are constants: a
// representation over a literal is never counted, never written and never freed, so any thread may copy a
// string that stands on it.
class PLXStringRepresentation : public PLXBuffer {
 public:
  // Storage for `length_i` characters, the length set to it, the text undefined but for its end. Count 1.
  // Null when there is no memory for the representation.
  static PLXStringRepresentation* Make(PLXUInt32 length_i);
  // Stands on a literal for good.
  template <PLXUInt32 kSize>
  explicit PLXStringRepresentation(char const (&literal_i)[kSize]) noexcept
      : PLXBuffer(Borrowed(), reinterpret_cast<PLXUInt8*>(const_cast<char*>(literal_i)), kSize),
        myBaseAddress(const_cast<char*>(literal_i)),
        myLength(kSize - 1),
        myReferenceCount(kNeverCounted) {}
  PLXStringRepresentation(PLXStringRepresentation const&) = delete;
  PLXStringRepresentation& operator=(PLXStringRepresentation const&) = delete;
  ~PLXStringRepresentation() override = default;

  char* GetBaseAddress() const noexcept { return myBaseAddress; }
  PLXUInt32 GetLength() const noexcept { return myLength; }
  void SetLength(PLXUInt32 length_i) noexcept {
    myLength = length_i;
    myBaseAddress[length_i] = 0;
  }
  // Requires: room behind the text.
  void AppendInPlace(void const* data_i, PLXUInt32 length_i) noexcept {
    char* const end = myBaseAddress + myLength;
    myLength += length_i;
    std::memcpy(end, data_i, length_i);
    end[length_i] = 0;
  }
  bool IsShared() const noexcept { return myReferenceCount > 1; }
  bool IsLocked() const noexcept { return myLocked; }
  void SetLocked(bool locked_i) noexcept { myLocked = locked_i; }
  PLXUInt32 GetReferenceCount() const noexcept { return myReferenceCount; }
  void AddReference() noexcept {
    if (myReferenceCount != kNeverCounted) ++myReferenceCount;
  }
  // Deletes itself with the last reference.
  void RemoveReference() noexcept {
    if (myReferenceCount != kNeverCounted && --myReferenceCount == 0) delete this;
  }
  // Storage for `length_i` characters and the end; keeps what is there.
  void Grow(PLXUInt32 length_i);

  // Bytes of storage for `length_i` characters; aborts when that is beyond 4 GiB.
  static PLXUInt32 StorageSize(PLXUInt32 length_i);

 private:
  static constexpr PLXUInt32 kNeverCounted = 0xFFFFFFFF;
  // What stays unused in the block of a text that has outgrown it is at most this much.
  static constexpr PLXUInt32 kLongestBesideText = 512;  // bytes of storage

  explicit PLXStringRepresentation(PLXUInt32 length_i);
  // With the storage right behind the representation.
  PLXStringRepresentation(PLXUInt32 length_i, PLXUInt32 storageSize_i) noexcept
      : PLXBuffer(Borrowed(), reinterpret_cast<PLXUInt8*>(this + 1), storageSize_i),
        myBaseAddress(reinterpret_cast<char*>(this + 1)),
        myLength(length_i) {
    myBaseAddress[length_i] = 0;
  }

  char* myBaseAddress;
  PLXUInt32 myLength;
  PLXUInt32 myReferenceCount = 1;
  bool myLocked = false;
};

// The byte string used everywhere: a handle onto a shared representation, copied when it is written.
//
// Text is 8-bit bytes of no encoding; zero bytes are allowed inside; lengths are 32-bit. Copying is O(1).
// Storage grows in steps of 32 bytes, so whoever builds a long text reserves: Reserve when the length is
// known, ReserveToAppend when it is not. Offsets and counts out of range are clamped, except for single
// characters. Representations are counted without locks: hand a copy made by MakeUnique to another thread,
// never the string itself; only constants (PLX_STRING_CONSTANT) and empty strings may be copied on any
// thread.
class PLXString : public PLXObject {
 public:
  PLXString() noexcept;
  PLXString(PLXString const& other_i) noexcept : myStringRepresentation(other_i.myStringRepresentation) {
    myStringRepresentation->AddReference();
  }
  PLXString(PLXString&& other_io) noexcept;
  PLXString(char const* cString_i);  // null gives the empty string
  explicit PLXString(
      unsigned char const* pascalString_i);  // first byte is the length; null gives the empty string
  explicit PLXString(char character_i);
  PLXString(char character_i, PLXUInt32 count_i);
  PLXString(void const* data_i, PLXUInt32 length_i);
  explicit PLXString(bool value_i);  // "yes" or "no"
  // Stands on a constant's representation, which outlives every string.
  explicit PLXString(PLXStringRepresentation& constant_i) noexcept : myStringRepresentation(&constant_i) {
    constant_i.AddReference();
  }
  ~PLXString() {
    PLX_ASSERT_NOT_NULL_IN("src/PLXString.cpp", myStringRepresentation);
    myStringRepresentation->RemoveReference();
  }

  PLXString& operator=(PLXString const& other_i) noexcept { return Assign(other_i); }
  PLXString& operator=(PLXString&& other_io) noexcept;
  PLXString& operator=(char const* cString_i) { return Assign(cString_i); }
  PLXString& operator=(unsigned char const* pascalString_i) { return Assign(pascalString_i); }
  PLXString& operator=(char character_i) { return Assign(character_i); }
  PLXString& operator=(bool value_i) { return Assign(value_i); }
  PLXString& Assign(PLXString const& other_i) noexcept;
  PLXString& Assign(char const* cString_i);
  PLXString& Assign(unsigned char const* pascalString_i);
  PLXString& Assign(char character_i);
  PLXString& Assign(char character_i, PLXUInt32 count_i);
  PLXString& Assign(void const* data_i, PLXUInt32 length_i);  // the data may lie in this string
  PLXString& Assign(bool value_i);
  void Empty() noexcept;

  // ---- Access ----
  PLXUInt32 GetLength() const noexcept { return myStringRepresentation->GetLength(); }
  bool IsEmpty() const noexcept { return GetLength() == 0; }
  bool IsNotEmpty() const noexcept { return GetLength() != 0; }
  // The zero-terminated text; valid until the string changes.
  char const* GetCStringAccess() const noexcept { return myStringRepresentation->GetBaseAddress(); }
  // Requires: offset_i < GetLength().
  char operator[](PLXUInt32 offset_i) const { return GetAt(offset_i); }
  char GetAt(PLXUInt32 offset_i) const {
    PLX_ASSERT_STATE_IN("src/PLXString.cpp", offset_i < GetLength());
    return myStringRepresentation->GetBaseAddress()[offset_i];
  }
  void SetAt(PLXUInt32 offset_i, char character_i);
  PLXString GetSubstring(PLXUInt32 offset_i, PLXUInt32 count_i) const;
  operator PLXBuffer() const;  // a copy of the characters

  // ---- Growth and raw access ----
  // Makes the length `length_i`, new characters undefined, and returns the writable text.
  char* ReserveLength(PLXUInt32 length_i);
  // Storage for `length_i` characters in all; the text stays.
  void Reserve(PLXUInt32 length_i);
  // Storage for `count_i` characters more, at least doubled when it has to grow: appending stays linear.
  void ReserveToAppend(PLXUInt32 count_i);
  // Locks the string and returns `length_i` writable characters; null when it is locked already.
  char* GetBuffer(PLXUInt32 length_i);
  // Unlocks. kPLXWholeLength measures up to the first zero byte. Requires: locked, and a length that fits.
  void ReleaseBuffer(PLXUInt32 length_i = kPLXWholeLength);
  void MakeUnique();

  // ---- Editing ----
  PLXString& Append(char character_i);
  PLXString& Append(char const* cString_i);
  PLXString& Append(PLXString const& string_i);
  PLXString& Append(void const* data_i, PLXUInt32 length_i) {
    // What fits behind the text needs no more than a copy; everything else (and nothing) takes the long way.
    PLXUInt32 const length = GetLength();
    if (length_i - 1 < myStringRepresentation->GetSize() - length - 1 &&
        !myStringRepresentation->IsShared()) {
      myStringRepresentation->AppendInPlace(data_i, length_i);
      return *this;
    }
    return AppendGrowing(data_i, length_i);
  }
  PLXString& operator+=(char character_i) { return Append(character_i); }
  PLXString& operator+=(char const* cString_i) { return Append(cString_i); }
  PLXString& operator+=(PLXString const& string_i) { return Append(string_i); }
  PLXString& Prepend(char character_i);
  PLXString& Prepend(char const* cString_i);
  PLXString& Prepend(PLXString const& string_i);
  void Insert(void const* data_i, PLXUInt32 length_i, PLXUInt32 offset_i);
  void RemoveSubstring(PLXUInt32 offset_i, PLXUInt32 count_i);
  void RemoveSubstring(PLXUInt32 offset_i, PLXUInt32 count_i, PLXString& removed_o);
  // Returns by how much the length changed.
  PLXSInt32 ReplaceSubstring(PLXUInt32 offset_i, PLXUInt32 count_i, PLXString const& data_i);
  // Returns how many were replaced. With kPLXOption_SearchInserted the inserted text is searched again, so a
  // replacement that holds the pattern never ends.
  PLXUInt32 ReplaceAll(PLXString const& pattern_i, PLXString const& replacement_i, unsigned options_i = 0);
  // Remove characters from one end; return how many.
  PLXUInt32 TrimLeft(PLXUInt32 count_i);
  PLXUInt32 TrimRight(PLXUInt32 count_i);
  PLXUInt32 TrimLeft(char character_i, PLXUInt32 max_i = kPLXWholeLength);
  PLXUInt32 TrimRight(char character_i, PLXUInt32 max_i = kPLXWholeLength);
  PLXUInt32 TrimLeft(char const* set_i, PLXUInt32 max_i = kPLXWholeLength);   // the limit is accepted and not
  PLXUInt32 TrimRight(char const* set_i, PLXUInt32 max_i = kPLXWholeLength);  // applied
  PLXUInt32 Trim(char const* set_i, PLXUInt32 max_i = kPLXWholeLength);
  void ConvertToLowercase(PLXUInt32 offset_i = 0, PLXUInt32 count_i = kPLXWholeLength);
  void ConvertToUppercase(PLXUInt32 offset_i = 0, PLXUInt32 count_i = kPLXWholeLength);
  void Reverse();

  // ---- Searching ----
  // Looks in `count_i` characters from `start_i` (backward: down from it) and gives the offset of the match's
  // first character. False, position unchanged, when it is not there or the pattern is empty.
  bool Find(void const* data_i, PLXUInt32 length_i, PLXUInt32 start_i, PLXUInt32 count_i, unsigned options_i,
            PLXUInt32& position_o) const;
  bool Find(char const* cString_i, PLXUInt32 start_i, PLXUInt32 count_i, unsigned options_i,
            PLXUInt32& position_o) const;
  bool Find(unsigned char const* pascalString_i, PLXUInt32 start_i, PLXUInt32 count_i, unsigned options_i,
            PLXUInt32& position_o) const;
  bool Find(char character_i, PLXUInt32 start_i, PLXUInt32 count_i, unsigned options_i,
            PLXUInt32& position_o) const;
  bool Find(PLXString const& pattern_i, PLXUInt32 start_i, PLXUInt32 count_i, unsigned options_i,
            PLXUInt32& position_o) const;
  bool Contains(PLXString const& pattern_i, unsigned options_i = 0) const;
  bool BeginsWith(PLXString const& pattern_i, unsigned options_i = 0) const;
  bool EndsWith(PLXString const& pattern_i, unsigned options_i = 0) const;

  // ---- Comparing ----
  // 'Less', 'Equ ' or 'Grtr', byte by byte as signed values.
  PLXUInt32 CompareTo(PLXString const& other_i, unsigned options_i = 0) const;
  PLXUInt32 CompareTo(void const* data_i, PLXUInt32 length_i, unsigned options_i) const;

  // ---- Export ----
  // Copies at most `size_i` characters and a zero byte after them: a text of exactly `size_i` characters
  // needs size_i + 1 bytes; a longer one is cut to size_i - 1. Returns the characters copied, 0 for a null
  // buffer.
  PLXUInt32 GetCString(char* buffer_o, PLXUInt32 size_i) const;
  // At most 255 characters behind their number. Returns the number.
  PLXUInt32 GetPascalString(unsigned char* buffer_o, PLXUInt32 max_i) const;
  // True for "true", "t", "yes", "y", "on" and "1" in any letter case.
  explicit operator bool() const;

  // How a byte looks in the other case: ASCII, and the 29 letter pairs among 0x80 to 0xFF.
  static unsigned char Uppercase(unsigned char character_i) noexcept;
  static unsigned char Lowercase(unsigned char character_i) noexcept;

 private:
  // Makes the string its own and `length_i` long, with its end; characters up to the shorter length stay.
  char* ChangeLength(PLXUInt32 length_i);
  PLXString& AppendGrowing(void const* data_i, PLXUInt32 length_i);
  // Puts `length_i` bytes in the place of `count_i`; the range lies inside, the data may be the string's own.
  void Splice(PLXUInt32 offset_i, PLXUInt32 count_i, void const* data_i, PLXUInt32 length_i);
  // Lets go of the representation for another, whose reference is taken over.
  void Adopt(PLXStringRepresentation* representation_i) noexcept;
  bool OwnsAddress(void const* address_i) const noexcept;
  PLXUInt32 ReplaceAllForward(PLXString const& pattern_i, PLXString const& replacement_i, unsigned options_i);

  PLXStringRepresentation* myStringRepresentation;  // never null
};

inline bool operator==(PLXString const& left_i, PLXString const& right_i) {
  return left_i.GetLength() == right_i.GetLength() &&
         (left_i.GetCStringAccess() == right_i.GetCStringAccess() ||
          std::memcmp(left_i.GetCStringAccess(), right_i.GetCStringAccess(), left_i.GetLength()) == 0);
}
inline bool operator==(PLXString const& left_i, char const* right_i) { return left_i == PLXString(right_i); }
PLXString operator+(PLXString const& left_i, PLXString const& right_i);
PLXString operator+(PLXString const& left_i, char const* right_i);
PLXString operator+(char const* left_i, PLXString const& right_i);
PLXString operator+(PLXString const& left_i, char right_i);

// A value that is built once and never destroyed, with a string that stands on a literal.
template <typename T>
struct TPLXConstant {
  template <PLXUInt32 kSize, typename... Arguments>
  explicit TPLXConstant(char const (&literal_i)[kSize], Arguments... arguments_i)
      : representation(literal_i), value(PLXString(representation), arguments_i...) {}
  ~TPLXConstant() {}
  union {
    PLXStringRepresentation representation;
  };
  union {
    T value;
  };
};

// Defines `name`, a constant that any thread may copy at any time, also while the process ends:
//   PLX_STRING_CONSTANT(kGreeting, "hello");
#define PLX_CONSTANT(type, name, ...)                    \
  static TPLXConstant<type> name##_storage(__VA_ARGS__); \
  type const& name = name##_storage.value
#define PLX_STRING_CONSTANT(name, literal) PLX_CONSTANT(PLXString, name, literal)
