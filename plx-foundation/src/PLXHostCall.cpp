#include "PLXHostCall.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr char ourSourceFile[] = "src/PLXHostCall.cpp";

// How many bytes of an answer are its text. A size word that (still) states the whole capacity may never have
// been written: the zero bytes at the end are then no part of the text.
PLXUInt32 MeasureAnswer(char const* address_i, PLXUInt32 size_i, PLXUInt32 capacity_i) noexcept {
  if (size_i < capacity_i) return size_i;
  PLXUInt32 length = capacity_i;
  while (length > 0 && address_i[length - 1] == 0) --length;
  return length;
}

}  // namespace

// ---- Slots ----

PLXHostCall& PLXHostCall::In(PLXString const& text_i, PLXUInt32 capacity_i) {
  AddSlot(&AddText(&text_i, false, std::max(text_i.GetLength() + 1, capacity_i)).size);
  return *this;
}

PLXHostCall& PLXHostCall::Out(PLXUInt32 capacity_i) {
  AddSlot(&AddText(nullptr, true, capacity_i).size);
  return *this;
}

PLXHostCall& PLXHostCall::InOut(PLXString const& text_i, PLXUInt32 capacity_i) {
  AddSlot(&AddText(&text_i, true, std::max(text_i.GetLength() + 1, capacity_i)).size);
  return *this;
}

PLXHostCall& PLXHostCall::DoubleIn(double const& value_i) noexcept {
  AddSlot(const_cast<double*>(&value_i));
  return *this;
}

PLXHostCall& PLXHostCall::WordIn(PLXUInt32 word_i) noexcept {
  AddSlot(AddWord(word_i));
  return *this;
}

PLXHostCall& PLXHostCall::WordOut(PLXUInt32& word_o) noexcept {
  AddSlot(AddWord(0, &word_o));
  return *this;
}

PLXHostCall& PLXHostCall::Word(PLXUInt32 word_i) noexcept {
  mySlots[GetSlotCount() - 1] = AddWord(word_i);
  return *this;
}

PLXHostCall& PLXHostCall::Value(PLXUInt32 type_i, void* value_io, PLXUInt32 size_i) noexcept {
  AddSlot(value_io);
  return WordIn(type_i).WordIn(size_i);
}

PLXHostCall& PLXHostCall::OutTextValue(PLXUInt32 capacity_i) {
  Text& text = AddText(nullptr, true, capacity_i);
  WordIn(kPLXValueType_Text);
  AddSlot(&text.size);
  return *this;
}

void PLXHostCall::AddSlot(void* address_i) noexcept {
  PLX_ASSERT_STATE(mySlotsTaken < GetSlotCount());
  mySlots[mySlotsTaken++] = address_i;
}

void* PLXHostCall::AddWord(PLXUInt32 word_i, PLXUInt32* output_o) noexcept {
  PLX_ASSERT_STATE(myWordCount < kSlotCount);
  SlotWord& word = myWords[myWordCount++];
  word.initial = word_i;
  word.output = output_o;
  return &word.value;
}

PLXHostCall::Text& PLXHostCall::AddText(PLXString const* source_i, bool isAnswered_i, PLXUInt32 capacity_i) {
  PLX_ASSERT_STATE(myTextCount < kTextCount);
  Text& text = myTexts[myTextCount++];
  text.source = source_i;
  text.isAnswered = isAnswered_i;
  text.slot = mySlotsTaken;
  text.capacity = capacity_i;
  AddSlot(nullptr);
  return text;
}

// ---- Sending ----

PLXUInt32 PLXHostCall::SendForResult() {
  PLXUInt32 result = SendOnce();
  if (result == kPLXResult_BufferTooSmall && MakeRoom()) result = SendOnce();
  if (result != kPLXResult_Success) return result;
  for (SlotWord const& word : myWords) {
    if (word.output != nullptr) *word.output = word.value;
  }
  return result;
}

PLXUInt32 PLXHostCall::AskNumber() {
  Word(0);
  SendForResult();
  return myWords[myWordCount - 1].value;
}

PLXUInt32 PLXHostCall::AskForResult(PLXString& text_o, unsigned text_i) {
  PLXUInt32 const result = SendForResult();
  if (result == kPLXResult_Success) text_o = GetAnswer(text_i);
  return result;
}

PLXString const& PLXHostCall::GetAnswer(unsigned text_i) const {
  PLX_ASSERT_STATE(text_i < myTextCount && myTexts[text_i].isAnswered);
  return myTexts[text_i].buffer;
}

PLXUInt32 PLXHostCall::SendOnce() {
  for (SlotWord& word : myWords) word.value = word.initial;
  for (unsigned index = 0; index < myTextCount; ++index) Lend(myTexts[index]);
  PLXUInt32 const result = CallServer();
  for (unsigned index = 0; index < myTextCount; ++index) TakeBack(myTexts[index]);
  return result;
}

// A server without databases refuses every call to them.
PLXUInt32 PLXHostCall::CallServer() {
  void* const(&slots)[kSlotCount] = mySlots;
  if (myFamily == kSupport) {
    return myInfo->PLXServerSupportFunction(myInfo->connID_i, myCode, slots[0], slots[1], slots[2], slots[3],
                                            slots[4]);
  }
  if (myInfo->PLXServerDatabaseFunction == nullptr) return kPLXResult_GeneralError;
  return myInfo->PLXServerDatabaseFunction(myInfo->connID_i, myCode, slots[0], slots[1], slots[2], slots[3],
                                           slots[4], slots[5]);
}

// Clears the buffer and copies the text in afresh, since the server may have written over it.
void PLXHostCall::Lend(Text& text_io) {
  char* const address = text_io.buffer.GetBuffer(text_io.capacity);
  PLXUInt32 const length = text_io.source != nullptr ? text_io.source->GetLength() : 0;
  if (length != 0) std::memcpy(address, text_io.source->GetCStringAccess(), length);
  std::memset(address + length, 0, text_io.capacity - length);
  text_io.size = text_io.isAnswered ? text_io.capacity : length + 1;
  mySlots[text_io.slot] = address;
}

void PLXHostCall::TakeBack(Text& text_io) {
  char const* const address = text_io.buffer.GetCStringAccess();
  PLXUInt32 const length =
      text_io.isAnswered ? MeasureAnswer(address, text_io.size, text_io.capacity) : text_io.capacity;
  text_io.buffer.ReleaseBuffer(length);
}

// Any of the answered texts may be the one that did not fit; the size word of one that did holds its capacity
// or its need, so no buffer shrinks. False when none grows or when a need is absurd: a second try could only
// fail again.
bool PLXHostCall::MakeRoom() noexcept {
  bool isLarger = false;
  for (Text& text : myTexts) {
    if (!text.isAnswered || text.size <= text.capacity) continue;
    if (text.size > kLargestAnswer) return false;
    text.capacity = text.size;
    isLarger = true;
  }
  return isLarger;
}
