#include "PLXString.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <functional>

#include "PLXStringSearch.h"

// Every change goes through ChangeLength, which gives a string that shares its representation one of its own
// first. The empty representation and those of constants count as shared for good, so they are never written.

namespace {

char const* const ourSourceFile = "src/PLXString.cpp";

// Every empty string stands on this one. It is never counted and never destroyed, so strings may be empty on
// any thread, before main and after it.
PLXStringRepresentation* EmptyStringRepresentation() noexcept {
  union Storage {
    PLXStringRepresentation representation;
    Storage() noexcept : representation("") {}
    ~Storage() {}
  };
  static Storage ourEmptyStringRepresentation;
  return &ourEmptyStringRepresentation.representation;
}

PLXStringRepresentation* MakeRepresentation(PLXUInt32 length_i) {
  PLXStringRepresentation* const newStringRepresentation = PLXStringRepresentation::Make(length_i);
  PLX_ASSERT_NOT_NULL(newStringRepresentation);
  return newStringRepresentation;
}

PLXStringRepresentation* MakeRepresentation(void const* data_i, PLXUInt32 length_i) {
  if (length_i == 0) return EmptyStringRepresentation();
  PLXStringRepresentation* const representation = MakeRepresentation(length_i);
  std::memcpy(representation->GetBaseAddress(), data_i, length_i);
  return representation;
}

PLXStringRepresentation* MakeRepresentation(char character_i, PLXUInt32 count_i) {
  if (count_i == 0) return EmptyStringRepresentation();
  PLXStringRepresentation* const representation = MakeRepresentation(count_i);
  std::memset(representation->GetBaseAddress(), character_i, count_i);
  return representation;
}

// A text longer than a string can be ends as one for which there is no memory.
PLXUInt32 LengthOf(char const* cString_i) {
  if (cString_i == nullptr) return 0;
  std::size_t const length = std::strlen(cString_i);
  return length < kPLXWholeLength ? static_cast<PLXUInt32>(length) : kPLXWholeLength;
}

PLXUInt32 Sum(PLXUInt32 left_i, PLXUInt32 right_i) {
  return left_i > kPLXWholeLength - right_i ? kPLXWholeLength : left_i + right_i;
}

char const* TextOf(bool value_i) { return value_i ? "yes" : "no"; }

struct CharacterSet {
  std::array<bool, 256> holds{};
  explicit CharacterSet(char const* set_i) {
    for (; set_i != nullptr && *set_i != 0; ++set_i) holds[static_cast<unsigned char>(*set_i)] = true;
  }
  bool Holds(char character_i) const { return holds[static_cast<unsigned char>(character_i)]; }
};

}  // namespace

// ---- PLXStringRepresentation ----

PLXUInt32 PLXStringRepresentation::StorageSize(PLXUInt32 length_i) {
  bool const newStringRepresentation = length_i < 0xFFFFFFE0;
  if (!newStringRepresentation) PLXFailNullPointer(ourSourceFile, "newStringRepresentation");
  return 32 * (length_i / 32 + 1);
}

PLXStringRepresentation* PLXStringRepresentation::Make(PLXUInt32 length_i) {
  PLXUInt32 const size = StorageSize(length_i);
  if (size > kLongestBesideText) {
    void* const block = AllocateMemory(sizeof(PLXStringRepresentation));
    return block == nullptr ? nullptr : new (block) PLXStringRepresentation(length_i);
  }
  void* const block = AllocateMemory(sizeof(PLXStringRepresentation) + size);
  return block == nullptr ? nullptr : new (block) PLXStringRepresentation(length_i, size);
}

PLXStringRepresentation::PLXStringRepresentation(PLXUInt32 length_i)
    : PLXBuffer(StorageSize(length_i)), myBaseAddress(static_cast<char*>(GetAddress())), myLength(length_i) {
  myBaseAddress[length_i] = 0;
}

void PLXStringRepresentation::Grow(PLXUInt32 length_i) {
  myBaseAddress = static_cast<char*>(SetSize(StorageSize(length_i), kKeep));
}

// ---- Construction and assignment ----

PLXString::PLXString() noexcept : myStringRepresentation(EmptyStringRepresentation()) {
  PLX_ASSERT_NOT_NULL_IN(ourSourceFile, myStringRepresentation);
}
PLXString::PLXString(PLXString&& other_io) noexcept
    : myStringRepresentation(other_io.myStringRepresentation) {
  other_io.myStringRepresentation = EmptyStringRepresentation();
}
PLXString::PLXString(char const* cString_i)
    : myStringRepresentation(MakeRepresentation(cString_i, LengthOf(cString_i))) {}
PLXString::PLXString(unsigned char const* pascalString_i)
    : myStringRepresentation(pascalString_i == nullptr
                                 ? EmptyStringRepresentation()
                                 : MakeRepresentation(pascalString_i + 1, *pascalString_i)) {}
PLXString::PLXString(char character_i) : myStringRepresentation(MakeRepresentation(character_i, 1)) {}
PLXString::PLXString(char character_i, PLXUInt32 count_i)
    : myStringRepresentation(MakeRepresentation(character_i, count_i)) {}
PLXString::PLXString(void const* data_i, PLXUInt32 length_i)
    : myStringRepresentation(MakeRepresentation(data_i, data_i == nullptr ? 0 : length_i)) {}
PLXString::PLXString(bool value_i) : PLXString(TextOf(value_i)) {}

PLXString& PLXString::operator=(PLXString&& other_io) noexcept {
  std::swap(myStringRepresentation, other_io.myStringRepresentation);
  return *this;
}

void PLXString::Adopt(PLXStringRepresentation* representation_i) noexcept {
  PLXStringRepresentation* const old = myStringRepresentation;
  myStringRepresentation = representation_i;
  old->RemoveReference();
}

bool PLXString::OwnsAddress(void const* address_i) const noexcept {
  char const* const base = GetCStringAccess();
  std::less_equal<void const*> const notAfter;
  return notAfter(base, address_i) && notAfter(address_i, base + GetLength());
}

PLXString& PLXString::Assign(PLXString const& other_i) noexcept {
  other_i.myStringRepresentation->AddReference();
  Adopt(other_i.myStringRepresentation);
  return *this;
}

PLXString& PLXString::Assign(void const* data_i, PLXUInt32 length_i) {
  PLXUInt32 const length = data_i == nullptr ? 0 : length_i;
  // Storage that is already our own and large enough is used again.
  if (length > 0 && !myStringRepresentation->IsShared() && myStringRepresentation->GetSize() > length) {
    std::memmove(myStringRepresentation->GetBaseAddress(), data_i, length);
    myStringRepresentation->SetLength(length);
  } else {
    Adopt(MakeRepresentation(data_i, length));
  }
  return *this;
}

PLXString& PLXString::Assign(char const* cString_i) { return Assign(cString_i, LengthOf(cString_i)); }
PLXString& PLXString::Assign(unsigned char const* pascalString_i) {
  if (pascalString_i == nullptr) {
    Empty();
    return *this;
  }
  return Assign(pascalString_i + 1, *pascalString_i);
}
PLXString& PLXString::Assign(char character_i) { return Assign(&character_i, 1); }
PLXString& PLXString::Assign(char character_i, PLXUInt32 count_i) {
  Adopt(MakeRepresentation(character_i, count_i));
  return *this;
}
PLXString& PLXString::Assign(bool value_i) { return Assign(TextOf(value_i)); }

void PLXString::Empty() noexcept { Adopt(EmptyStringRepresentation()); }

// ---- Access ----

void PLXString::SetAt(PLXUInt32 offset_i, char character_i) {
  PLX_ASSERT_STATE(offset_i < GetLength());
  MakeUnique();
  myStringRepresentation->GetBaseAddress()[offset_i] = character_i;
}

PLXString PLXString::GetSubstring(PLXUInt32 offset_i, PLXUInt32 count_i) const {
  if (offset_i >= GetLength()) return PLXString();
  PLXUInt32 const count = std::min(count_i, GetLength() - offset_i);
  if (count == GetLength()) return *this;
  return PLXString(GetCStringAccess() + offset_i, count);
}

PLXString::operator PLXBuffer() const {
  PLXBuffer buffer(GetLength());
  if (IsNotEmpty()) std::memcpy(buffer.GetAddress(), GetCStringAccess(), GetLength());
  return buffer;
}

// ---- Growth and raw access ----

char* PLXString::ChangeLength(PLXUInt32 length_i) {
  if (myStringRepresentation->IsShared()) {
    PLXStringRepresentation* const own = MakeRepresentation(length_i);
    std::memcpy(own->GetBaseAddress(), GetCStringAccess(), std::min(length_i, GetLength()));
    Adopt(own);
  } else if (myStringRepresentation->GetSize() <= length_i) {
    myStringRepresentation->Grow(length_i);
    PLXStringRepresentation* const __stringRepresentation_io = myStringRepresentation;
    PLX_ASSERT_NOT_NULL(__stringRepresentation_io);
  }
  myStringRepresentation->SetLength(length_i);
  return myStringRepresentation->GetBaseAddress();
}

char* PLXString::ReserveLength(PLXUInt32 length_i) { return ChangeLength(length_i); }

void PLXString::Reserve(PLXUInt32 length_i) {
  PLXUInt32 const length = GetLength();
  if (length_i <= length) {
    MakeUnique();
    return;
  }
  ChangeLength(length_i);
  myStringRepresentation->SetLength(length);
}

void PLXString::ReserveToAppend(PLXUInt32 count_i) {
  PLXUInt32 const needed = Sum(GetLength(), count_i);
  if (!myStringRepresentation->IsShared() && myStringRepresentation->GetSize() > needed) return;
  PLXUInt32 constexpr kLongest = 0xFFFFFFDF;
  PLXUInt32 const doubled = GetLength() > kLongest / 2 ? kLongest : GetLength() * 2;
  Reserve(std::max(needed, doubled));
}

char* PLXString::GetBuffer(PLXUInt32 length_i) {
  if (myStringRepresentation->IsLocked()) return nullptr;
  Reserve(length_i);
  myStringRepresentation->SetLocked(true);
  return myStringRepresentation->GetBaseAddress();
}

void PLXString::ReleaseBuffer(PLXUInt32 length_i) {
  PLX_ASSERT_STATE(myStringRepresentation->IsLocked());
  PLXUInt32 const size = myStringRepresentation->GetSize();
  PLXUInt32 const stringLength =
      length_i != kPLXWholeLength
          ? length_i
          : static_cast<PLXUInt32>(strnlen(myStringRepresentation->GetBaseAddress(), size));
  if (stringLength >= size) {
    PLXFailState(ourSourceFile, "(stringLength < (PLXSInt32) myStringRepresentation->GetSize())");
  }
  myStringRepresentation->SetLength(stringLength);
  myStringRepresentation->SetLocked(false);
}

void PLXString::MakeUnique() {
  PLX_ASSERT_NOT_NULL(myStringRepresentation);
  if (myStringRepresentation->IsShared()) ChangeLength(GetLength());
}

// ---- Editing ----

PLXString& PLXString::AppendGrowing(void const* data_i, PLXUInt32 length_i) {
  if (length_i == 0 || data_i == nullptr) return *this;
  if (OwnsAddress(data_i)) {
    PLXString const copy(data_i, length_i);
    return Append(copy.GetCStringAccess(), length_i);
  }
  PLXUInt32 const length = GetLength();
  std::memcpy(ChangeLength(Sum(length, length_i)) + length, data_i, length_i);
  return *this;
}
PLXString& PLXString::Append(char character_i) { return Append(&character_i, 1); }
PLXString& PLXString::Append(char const* cString_i) { return Append(cString_i, LengthOf(cString_i)); }
PLXString& PLXString::Append(PLXString const& string_i) {
  return Append(string_i.GetCStringAccess(), string_i.GetLength());
}
PLXString& PLXString::Prepend(char character_i) {
  Splice(0, 0, &character_i, 1);
  return *this;
}
PLXString& PLXString::Prepend(char const* cString_i) {
  Splice(0, 0, cString_i, LengthOf(cString_i));
  return *this;
}
PLXString& PLXString::Prepend(PLXString const& string_i) {
  Splice(0, 0, string_i.GetCStringAccess(), string_i.GetLength());
  return *this;
}

void PLXString::Splice(PLXUInt32 offset_i, PLXUInt32 count_i, void const* data_i, PLXUInt32 length_i) {
  if (length_i > 0 && OwnsAddress(data_i)) {
    PLXString const copy(data_i, length_i);
    Splice(offset_i, count_i, copy.GetCStringAccess(), length_i);
    return;
  }
  PLXUInt32 const tail = GetLength() - offset_i - count_i;
  if (length_i > count_i) {
    char* const place = ChangeLength(Sum(GetLength(), length_i - count_i)) + offset_i;
    std::memmove(place + length_i, place + count_i, tail);
  } else if (length_i < count_i) {
    MakeUnique();
    char* const place = myStringRepresentation->GetBaseAddress() + offset_i;
    std::memmove(place + length_i, place + count_i, tail);
    ChangeLength(offset_i + length_i + tail);
  } else {
    MakeUnique();
  }
  if (length_i > 0) std::memcpy(myStringRepresentation->GetBaseAddress() + offset_i, data_i, length_i);
}

void PLXString::Insert(void const* data_i, PLXUInt32 length_i, PLXUInt32 offset_i) {
  if (data_i != nullptr) Splice(std::min(offset_i, GetLength()), 0, data_i, length_i);
}

void PLXString::RemoveSubstring(PLXUInt32 offset_i, PLXUInt32 count_i) {
  if (offset_i < GetLength()) Splice(offset_i, std::min(count_i, GetLength() - offset_i), nullptr, 0);
}

void PLXString::RemoveSubstring(PLXUInt32 offset_i, PLXUInt32 count_i, PLXString& removed_o) {
  PLXString removed = GetSubstring(offset_i, count_i);
  RemoveSubstring(offset_i, count_i);
  removed_o = std::move(removed);
}

PLXSInt32 PLXString::ReplaceSubstring(PLXUInt32 offset_i, PLXUInt32 count_i, PLXString const& data_i) {
  PLXUInt32 const length = GetLength();
  PLXUInt32 const offset = std::min(offset_i, length);
  Splice(offset, std::min(count_i, length - offset), data_i.GetCStringAccess(), data_i.GetLength());
  return static_cast<PLXSInt32>(GetLength() - length);
}

// The places are counted first, so that the result is made at its full length.
PLXUInt32 PLXString::ReplaceAllForward(PLXString const& pattern_i, PLXString const& replacement_i,
                                       unsigned options_i) {
  char const* const text = GetCStringAccess();
  PLXPlaces const places(text, GetLength(), pattern_i.GetCStringAccess(), pattern_i.GetLength(),
                         (options_i & kPLXOption_IgnoreCase) != 0);
  PLXUInt32 const count = places.GetCount();
  if (count == 0) return 0;
  unsigned long long const length = GetLength() -
                                    static_cast<unsigned long long>(count) * pattern_i.GetLength() +
                                    static_cast<unsigned long long>(count) * replacement_i.GetLength();
  PLXString result;
  char* next =
      result.ReserveLength(static_cast<PLXUInt32>(std::min<unsigned long long>(length, kPLXWholeLength)));
  PLXUInt32 start = 0;
  places.Visit([&](PLXUInt32 place_i) {
    next = std::copy_n(text + start, place_i - start, next);
    next = std::copy_n(replacement_i.GetCStringAccess(), replacement_i.GetLength(), next);
    start = place_i + pattern_i.GetLength();
  });
  std::copy_n(text + start, GetLength() - start, next);
  *this = std::move(result);
  return count;
}

PLXUInt32 PLXString::ReplaceAll(PLXString const& pattern_i, PLXString const& replacement_i,
                                unsigned options_i) {
  // Either may be this string, which changes under way.
  PLXString const pattern(pattern_i);          // NOLINT(performance-unnecessary-copy-initialization)
  PLXString const replacement(replacement_i);  // NOLINT(performance-unnecessary-copy-initialization)
  unsigned const searchOptions = options_i & (kPLXOption_IgnoreCase | kPLXOption_Backward);
  bool const backward = (options_i & kPLXOption_Backward) != 0;
  bool const searchInserted = (options_i & kPLXOption_SearchInserted) != 0;
  if (!backward && !searchInserted) return ReplaceAllForward(pattern, replacement, searchOptions);

  // Backward, the next search begins behind the inserted text and so meets it again. Where it holds the
  // pattern that would never end, so there the search goes on before it.
  bool const skipInserted =
      backward && !searchInserted && replacement.Contains(pattern, options_i & kPLXOption_IgnoreCase);
  PLXUInt32 count = 0;
  PLXUInt32 position = 0;
  PLXUInt32 start = backward ? kPLXWholeLength : 0;
  while (Find(pattern, start, kPLXWholeLength, searchOptions, position)) {
    ReplaceSubstring(position, pattern.GetLength(), replacement);
    ++count;
    if (skipInserted && position == 0) break;
    start = skipInserted ? position - 1 : searchInserted ? position : Sum(position, replacement.GetLength());
  }
  return count;
}

PLXUInt32 PLXString::TrimLeft(PLXUInt32 count_i) {
  PLXUInt32 const count = std::min(count_i, GetLength());
  RemoveSubstring(0, count);
  return count;
}
PLXUInt32 PLXString::TrimRight(PLXUInt32 count_i) {
  PLXUInt32 const count = std::min(count_i, GetLength());
  if (count > 0) ChangeLength(GetLength() - count);
  return count;
}
PLXUInt32 PLXString::TrimLeft(char character_i, PLXUInt32 max_i) {
  PLXUInt32 const limit = std::min(max_i, GetLength());
  PLXUInt32 count = 0;
  while (count < limit && GetCStringAccess()[count] == character_i) ++count;
  return TrimLeft(count);
}
PLXUInt32 PLXString::TrimRight(char character_i, PLXUInt32 max_i) {
  PLXUInt32 const limit = std::min(max_i, GetLength());
  PLXUInt32 count = 0;
  while (count < limit && GetCStringAccess()[GetLength() - 1 - count] == character_i) ++count;
  return TrimRight(count);
}
PLXUInt32 PLXString::TrimLeft(char const* set_i, PLXUInt32) {
  CharacterSet const set(set_i);
  PLXUInt32 count = 0;
  while (count < GetLength() && set.Holds(GetCStringAccess()[count])) ++count;
  return TrimLeft(count);
}
PLXUInt32 PLXString::TrimRight(char const* set_i, PLXUInt32) {
  CharacterSet const set(set_i);
  PLXUInt32 count = 0;
  while (count < GetLength() && set.Holds(GetCStringAccess()[GetLength() - 1 - count])) ++count;
  return TrimRight(count);
}
PLXUInt32 PLXString::Trim(char const* set_i, PLXUInt32 max_i) {
  PLXUInt32 const fromRight = TrimRight(set_i, max_i);
  return fromRight + TrimLeft(set_i, max_i);
}

void PLXString::ConvertToLowercase(PLXUInt32 offset_i, PLXUInt32 count_i) {
  if (offset_i >= GetLength()) return;
  MakeUnique();
  char* const first = myStringRepresentation->GetBaseAddress() + offset_i;
  std::transform(first, first + std::min(count_i, GetLength() - offset_i), first, [](char character_i) {
    return static_cast<char>(Lowercase(static_cast<unsigned char>(character_i)));
  });
}

void PLXString::ConvertToUppercase(PLXUInt32 offset_i, PLXUInt32 count_i) {
  if (offset_i >= GetLength()) return;
  MakeUnique();
  char* const first = myStringRepresentation->GetBaseAddress() + offset_i;
  std::transform(first, first + std::min(count_i, GetLength() - offset_i), first, [](char character_i) {
    return static_cast<char>(Uppercase(static_cast<unsigned char>(character_i)));
  });
}

void PLXString::Reverse() {
  if (IsEmpty()) return;
  MakeUnique();
  std::reverse(myStringRepresentation->GetBaseAddress(),
               myStringRepresentation->GetBaseAddress() + GetLength());
}

// ---- Searching ----

namespace {

// In each form of Find, which is called often and for few bytes.
[[gnu::always_inline]] inline bool FindIn(char const* text_i, PLXUInt32 textLength_i, char const* pattern_i,
                                          PLXUInt32 length_i, PLXUInt32 start_i, PLXUInt32 count_i,
                                          unsigned options_i, PLXUInt32& position_o) {
  if (length_i == 0 || pattern_i == nullptr || textLength_i == 0) return false;
  bool const ignoreCase = (options_i & kPLXOption_IgnoreCase) != 0;
  char const* match = nullptr;
  if ((options_i & kPLXOption_Backward) == 0) {
    if (start_i >= textLength_i) return false;
    PLXUInt32 const count = std::min(count_i, textLength_i - start_i);
    if (length_i > count) return false;
    match = ignoreCase ? PLXFindForward(text_i + start_i, count, pattern_i, length_i, true)
                       : PLXFindExact(text_i + start_i, count, pattern_i, length_i);
  } else {
    PLXUInt32 const start = std::min(start_i, textLength_i - 1);
    PLXUInt32 const count = std::min(count_i, start + 1);
    if (length_i > count) return false;
    match = PLXFindBackward(text_i + (start + 1 - count), count, pattern_i, length_i, ignoreCase);
  }
  if (match == nullptr) return false;
  position_o = static_cast<PLXUInt32>(match - text_i);
  return true;
}

}  // namespace

bool PLXString::Find(void const* data_i, PLXUInt32 length_i, PLXUInt32 start_i, PLXUInt32 count_i,
                     unsigned options_i, PLXUInt32& position_o) const {
  return FindIn(GetCStringAccess(), GetLength(), static_cast<char const*>(data_i), length_i, start_i, count_i,
                options_i, position_o);
}
bool PLXString::Find(char const* cString_i, PLXUInt32 start_i, PLXUInt32 count_i, unsigned options_i,
                     PLXUInt32& position_o) const {
  return Find(cString_i, LengthOf(cString_i), start_i, count_i, options_i, position_o);
}
bool PLXString::Find(unsigned char const* pascalString_i, PLXUInt32 start_i, PLXUInt32 count_i,
                     unsigned options_i, PLXUInt32& position_o) const {
  if (pascalString_i == nullptr) return false;
  return Find(pascalString_i + 1, *pascalString_i, start_i, count_i, options_i, position_o);
}
bool PLXString::Find(char character_i, PLXUInt32 start_i, PLXUInt32 count_i, unsigned options_i,
                     PLXUInt32& position_o) const {
  return Find(&character_i, 1, start_i, count_i, options_i, position_o);
}
bool PLXString::Find(PLXString const& pattern_i, PLXUInt32 start_i, PLXUInt32 count_i, unsigned options_i,
                     PLXUInt32& position_o) const {
  return FindIn(GetCStringAccess(), GetLength(), pattern_i.GetCStringAccess(), pattern_i.GetLength(), start_i,
                count_i, options_i, position_o);
}

bool PLXString::Contains(PLXString const& pattern_i, unsigned options_i) const {
  PLXUInt32 position = 0;
  return Find(pattern_i, 0, kPLXWholeLength, options_i & ~kPLXOption_Backward, position);
}

bool PLXString::BeginsWith(PLXString const& pattern_i, unsigned options_i) const {
  PLXUInt32 const length = pattern_i.GetLength();
  return length > 0 && length <= GetLength() &&
         PLXEqualBytes(GetCStringAccess(), pattern_i.GetCStringAccess(), length,
                       (options_i & kPLXOption_IgnoreCase) != 0);
}

bool PLXString::EndsWith(PLXString const& pattern_i, unsigned options_i) const {
  PLXUInt32 const length = pattern_i.GetLength();
  return length > 0 && length <= GetLength() &&
         PLXEqualBytes(GetCStringAccess() + (GetLength() - length), pattern_i.GetCStringAccess(), length,
                       (options_i & kPLXOption_IgnoreCase) != 0);
}

// ---- Comparing ----

PLXUInt32 PLXString::CompareTo(PLXString const& other_i, unsigned options_i) const {
  if (myStringRepresentation == other_i.myStringRepresentation) return kPLXCompare_Equal;
  return CompareTo(other_i.GetCStringAccess(), other_i.GetLength(), options_i);
}

PLXUInt32 PLXString::CompareTo(void const* data_i, PLXUInt32 length_i, unsigned options_i) const {
  bool const ignoreCase = (options_i & kPLXOption_IgnoreCase) != 0;
  auto const* const other = static_cast<char const*>(data_i);
  PLXUInt32 const shorter = std::min(GetLength(), length_i);
  PLXUInt32 const difference = PLXFindDifference(GetCStringAccess(), other, shorter, ignoreCase);
  if (difference < shorter) {
    auto left = static_cast<unsigned char>(GetCStringAccess()[difference]);
    auto right = static_cast<unsigned char>(other[difference]);
    if (ignoreCase) {
      left = Uppercase(left);
      right = Uppercase(right);
    }
    return static_cast<signed char>(left) < static_cast<signed char>(right) ? kPLXCompare_Less
                                                                            : kPLXCompare_Greater;
  }
  if (GetLength() == length_i) return kPLXCompare_Equal;
  return GetLength() < length_i ? kPLXCompare_Less : kPLXCompare_Greater;
}

// ---- Export ----

PLXUInt32 PLXString::GetCString(char* buffer_o, PLXUInt32 size_i) const {
  if (buffer_o == nullptr || (size_i == 0 && IsNotEmpty())) return 0;
  PLXUInt32 const count = GetLength() > size_i ? size_i - 1 : GetLength();
  std::memcpy(buffer_o, GetCStringAccess(), count);
  buffer_o[count] = 0;
  return count;
}

PLXUInt32 PLXString::GetPascalString(unsigned char* buffer_o, PLXUInt32 max_i) const {
  if (buffer_o == nullptr) return 0;
  PLXUInt32 const count = std::min({max_i, GetLength(), PLXUInt32{255}});
  buffer_o[0] = static_cast<unsigned char>(count);
  std::memcpy(buffer_o + 1, GetCStringAccess(), count);
  return count;
}

PLXString::operator bool() const {
  static constexpr char const* kTrueValues[] = {"true", "t", "yes", "y", "on", "1"};
  return std::any_of(std::begin(kTrueValues), std::end(kTrueValues), [this](char const* value_i) {
    return CompareTo(value_i, LengthOf(value_i), kPLXOption_IgnoreCase) == kPLXCompare_Equal;
  });
}

unsigned char PLXString::Uppercase(unsigned char character_i) noexcept {
  return ourUppercaseCharacterMap[character_i];
}
unsigned char PLXString::Lowercase(unsigned char character_i) noexcept {
  return ourLowercaseCharacterMap[character_i];
}

// ---- Joining ----

namespace {

PLXString Join(void const* left_i, PLXUInt32 leftLength_i, void const* right_i, PLXUInt32 rightLength_i) {
  PLXString result;
  char* const text = result.ReserveLength(Sum(leftLength_i, rightLength_i));
  if (leftLength_i > 0) std::memcpy(text, left_i, leftLength_i);
  if (rightLength_i > 0) std::memcpy(text + leftLength_i, right_i, rightLength_i);
  return result;
}

}  // namespace

PLXString operator+(PLXString const& left_i, PLXString const& right_i) {
  return Join(left_i.GetCStringAccess(), left_i.GetLength(), right_i.GetCStringAccess(), right_i.GetLength());
}
PLXString operator+(PLXString const& left_i, char const* right_i) {
  return Join(left_i.GetCStringAccess(), left_i.GetLength(), right_i, LengthOf(right_i));
}
PLXString operator+(char const* left_i, PLXString const& right_i) {
  return Join(left_i, LengthOf(left_i), right_i.GetCStringAccess(), right_i.GetLength());
}
PLXString operator+(PLXString const& left_i, char right_i) {
  return Join(left_i.GetCStringAccess(), left_i.GetLength(), &right_i, 1);
}
