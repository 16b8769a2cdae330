#pragma once

#include "PLXString.h"

// A string with a 32-bit identifier computed once, so that comparing two names is comparing two integers.
//
// Two names whose identifiers agree are equal by design. An identifier built ignoring case never equals an
// exact one of a name with capitals. The string keeps its case.
class PLXStringID : public PLXObject {
 public:
  static constexpr unsigned kIgnoreCase = 1;

  PLXStringID() : PLXStringID(PLXString(), 0) {}
  explicit PLXStringID(char character_i, unsigned flags_i = 0)
      : PLXStringID(PLXString(character_i), flags_i) {}
  PLXStringID(char const* cString_i, unsigned flags_i) : PLXStringID(PLXString(cString_i), flags_i) {}
  PLXStringID(PLXString const& string_i, unsigned flags_i);
  PLXStringID(PLXStringID const& other_i, unsigned flags_i) : PLXStringID(other_i.myString, flags_i) {}
  PLXStringID(PLXStringID const&) = default;
  PLXStringID& operator=(PLXStringID const&) = default;
  virtual ~PLXStringID() = default;

  PLXString const& GetString() const noexcept { return myString; }
  PLXUInt32 GetStringLength() const noexcept { return myString.GetLength(); }
  char const* GetCStringAccess() const noexcept { return myString.GetCStringAccess(); }
  PLXUInt32 GetID() const noexcept { return myID; }

 private:
  PLXString myString;
  PLXUInt32 myID;
};

inline bool operator==(PLXStringID const& left_i, PLXStringID const& right_i) noexcept {
  return left_i.GetID() == right_i.GetID();
}

// The name of a tag; letter case does not count.
class PLXTag : public PLXObject {
 public:
  PLXTag() : myName(PLXString(), PLXStringID::kIgnoreCase) {}
  PLXTag(char const* name_i) : myName(name_i, PLXStringID::kIgnoreCase) {}
  PLXTag(PLXString const& name_i) : myName(name_i, PLXStringID::kIgnoreCase) {}
  PLXTag(PLXTag const&) = default;
  PLXTag& operator=(PLXTag const&) = default;
  virtual ~PLXTag() = default;

  PLXString const& GetName() const noexcept { return myName.GetString(); }

  friend bool operator==(PLXTag const& left_i, PLXTag const& right_i) noexcept {
    return left_i.myName == right_i.myName;
  }

 private:
  PLXStringID myName;
};

// A constant identifier that ignores case, as almost all are; and a constant tag.
#define PLX_STRING_ID_CONSTANT(name, literal) \
  PLX_CONSTANT(PLXStringID, name, literal, PLXStringID::kIgnoreCase)
#define PLX_TAG_CONSTANT(name, literal) PLX_CONSTANT(PLXTag, name, literal)
