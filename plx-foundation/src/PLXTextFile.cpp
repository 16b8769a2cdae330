#include "PLXTextFile.h"

#include <algorithm>
#include <cstdint>

namespace {

constexpr PLXUInt32 kReadAheadSize = 65536;  // bytes
constexpr PLXUInt32 kHeldBackLimit = 65536;  // bytes from which on lines are no longer held back
constexpr PLXUInt32 kLineEndingLength = sizeof kPlatformLineEnding - 1;

bool IsLineEnd(char character_i) noexcept { return character_i == '\n' || character_i == '\r'; }

}  // namespace

bool PLXTextFile::Create(PLXFileSpecification const& specification_i) {
  SetSpecification(specification_i);
  return PLXFile::Create();
}

bool PLXTextFile::Open(PLXFileSpecification const& specification_i, PLXUInt32 permission_i) {
  SetSpecification(specification_i);
  myHasLostText = false;
  return PLXFile::Open(permission_i, false);
}

// ---- Reading ----

// The bytes at the position, as many as were read ahead of it; 0 only at the end of the file.
PLXUInt32 PLXTextFile::LookAhead(char const*& text_o) {
  PLXUInt32 const position = GetFilePosition();
  if (position < myReadAheadOffset || position - myReadAheadOffset >= myReadAheadLength) {
    myReadAheadLength = FetchAt(position, kReadAheadSize, myReadAhead.SetSize(kReadAheadSize));
    myReadAheadOffset = position;
  }
  text_o = static_cast<char const*>(myReadAhead.GetAddress()) + (position - myReadAheadOffset);
  return myReadAheadLength - (position - myReadAheadOffset);
}

void PLXTextFile::SkipLineEnd(char character_i) {
  SetFilePosition(GetFilePosition() + 1);
  if (character_i != '\r') return;
  char const* text = nullptr;
  if (LookAhead(text) > 0 && *text == '\n') SetFilePosition(GetFilePosition() + 1);
}

bool PLXTextFile::ReadLine(PLXString& line_o) {
  line_o.Empty();
  if (!IsOpen()) return false;
  Flush();
  char const* text = nullptr;
  while (PLXUInt32 const available = LookAhead(text)) {
    char const* const end = std::find_if(text, text + available, IsLineEnd);
    auto const length = static_cast<PLXUInt32>(end - text);
    // Most lines come in one piece; one that does not may be of any length.
    if (line_o.IsNotEmpty()) line_o.ReserveToAppend(length);
    line_o.Append(text, length);
    SetFilePosition(GetFilePosition() + length);
    if (length < available) {
      SkipLineEnd(*end);
      return true;
    }
  }
  return line_o.IsNotEmpty();
}

PLXString PLXTextFile::ReadLine() {
  PLXString line;
  ReadLine(line);
  return line;
}

// ---- Writing ----

bool PLXTextFile::WriteLine(PLXString const& text_i, bool addLineEnding_i) {
  return IsOpen() && HoldBack(text_i, addLineEnding_i, false);
}

bool PLXTextFile::AppendLine(PLXString const& text_i) { return IsOpen() && HoldBack(text_i, true, true); }

bool PLXTextFile::HoldBack(PLXString const& text_i, bool addLineEnding_i, bool append_i) {
  bool const continues = myHeldBack.IsNotEmpty() && myHeldBackIsAppended == append_i &&
                         (append_i || GetFilePosition() == myHeldBackOffset + myHeldBack.GetLength());
  if (!continues) {
    Flush();
    ForgetReadAhead();
    myHeldBackOffset = append_i ? GetSize() : GetFilePosition();
    myHeldBackIsAppended = append_i;
  }
  PLXUInt32 const endingLength = addLineEnding_i ? kLineEndingLength : 0;
  std::uint64_t const end =
      std::uint64_t{myHeldBackOffset} + myHeldBack.GetLength() + text_i.GetLength() + endingLength;
  if (end > kLongestFile) return false;
  if (myHeldBack.IsEmpty()) myHeldBack.Reserve(kHeldBackLimit);
  myHeldBack.ReserveToAppend(text_i.GetLength() + endingLength);
  myHeldBack.Append(text_i);
  if (addLineEnding_i) myHeldBack.Append(kPlatformLineEnding);
  SetFilePosition(static_cast<PLXUInt32>(end));
  return myHeldBack.GetLength() >= kHeldBackLimit ? Flush() : !myHasLostText;
}

bool PLXTextFile::Flush() {
  if (myHeldBack.IsNotEmpty()) {
    PLXUInt32 const length = myHeldBack.GetLength();
    if (StoreAt(myHeldBackOffset, length, myHeldBack.GetCStringAccess(), myHeldBackIsAppended) != length) {
      myHasLostText = true;
    }
    myHeldBack.Empty();
  }
  return IsOpen() && !myHasLostText;
}

bool PLXTextFile::Truncate() { return SetSize(0) && SetFilePosition(0); }
