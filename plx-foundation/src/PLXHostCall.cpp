#include "PLXHostCall.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr char ourSourceFile[] = "src/PLXHostCall.cpp";

}  // namespace

PLXHostCall& PLXHostCall::In(PLXString const& text_i, PLXUInt32 capacity_i) {
  return Add(&text_i, false, std::max(text_i.GetLength() + 1, capacity_i));
}

PLXHostCall& PLXHostCall::Out(PLXUInt32 capacity_i) { return Add(nullptr, true, capacity_i); }

PLXHostCall& PLXHostCall::InOut(PLXString const& text_i, PLXUInt32 capacity_i) {
  return Add(&text_i, true, std::max(text_i.GetLength() + 1, capacity_i));
}

PLXHostCall& PLXHostCall::Word(PLXUInt32 word_i) noexcept {
  myHasWord = true;
  myWord = word_i;
  return *this;
}

PLXHostCall& PLXHostCall::Add(PLXString const* source_i, bool isAnswered_i, PLXUInt32 capacity_i) {
  PLX_ASSERT_STATE(myTextCount < kTextCount);
  Text& text = myTexts[myTextCount++];
  text.source = source_i;
  text.isAnswered = isAnswered_i;
  text.capacity = capacity_i;
  return *this;
}

bool PLXHostCall::Send() {
  PLXUInt32 const word = myWord;
  PLXUInt32 result = SendOnce();
  if (result == kPLXResult_BufferTooSmall && MakeRoom()) {
    myWord = word;
    result = SendOnce();
  }
  return result == kPLXResult_Success;
}

PLXUInt32 PLXHostCall::SendOnce() {
  void* slots[kSlotCount] = {};
  for (unsigned index = 0; index < myTextCount; ++index) {
    Text& text = myTexts[index];
    if (!Fill(text)) throw PLXObject::MemoryAllocationFailure();
    slots[2 * index] = text.buffer.get();
    slots[2 * index + 1] = &text.size;
  }
  if (myHasWord) slots[kSlotCount - 1] = &myWord;
  return myInfo->PLXServerSupportFunction(myInfo->connID_i, myCode, slots[0], slots[1], slots[2], slots[3],
                                          slots[4]);
}

// Clears the buffer and copies the text in afresh, since the server may have written over it. False when
// there is no memory.
bool PLXHostCall::Fill(Text& text_io) {
  if (text_io.buffer == nullptr) {
    text_io.buffer.reset(static_cast<char*>(PLXObject::AllocateMemory(text_io.capacity)));
    if (text_io.buffer == nullptr) return false;
  }
  PLXUInt32 const length = text_io.source != nullptr ? text_io.source->GetLength() : 0;
  if (length != 0) std::memcpy(text_io.buffer.get(), text_io.source->GetCStringAccess(), length);
  std::memset(text_io.buffer.get() + length, 0, text_io.capacity - length);
  text_io.size = text_io.isAnswered ? text_io.capacity : length + 1;
  return true;
}

// Any of the answered texts may be the one that did not fit; the size word of one that did holds its capacity
// or its need, so no buffer shrinks. False when none grows, when a need is absurd or when there is no memory
// for it: a second try could only fail again.
bool PLXHostCall::MakeRoom() {
  bool isLarger = false;
  for (unsigned index = 0; index < myTextCount; ++index) {
    Text& text = myTexts[index];
    if (!text.isAnswered || text.size <= text.capacity) continue;
    if (!IsCredibleNeed(text.size, text.capacity)) return false;
    std::unique_ptr<char, Release> buffer(static_cast<char*>(PLXObject::AllocateMemory(text.size)));
    if (buffer == nullptr) return false;
    text.buffer = std::move(buffer);
    text.capacity = text.size;
    isLarger = true;
  }
  return isLarger;
}

PLXString PLXHostCall::GetAnswer(unsigned text_i) const {
  PLX_ASSERT_STATE(text_i < myTextCount && myTexts[text_i].buffer != nullptr);
  Text const& text = myTexts[text_i];
  char const* const address = text.buffer.get();
  return PLXString(address, MeasureAnswer(address, text.size, text.capacity));
}

PLXUInt32 PLXHostCall::MeasureAnswer(char const* address_i, PLXUInt32 size_i, PLXUInt32 capacity_i) noexcept {
  if (size_i < capacity_i) return size_i;
  PLXUInt32 length = capacity_i;
  while (length > 0 && address_i[length - 1] == 0) --length;
  return length;
}
