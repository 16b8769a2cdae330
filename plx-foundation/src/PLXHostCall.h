#pragma once

#include "PLXModuleAPI.h"
#include "PLXString.h"

// One call to the server, put together slot by slot, sent once and, when an answer did not fit, once more.
//
// Texts go over as copies of their own, so that nothing the server does to a buffer reaches a shared string;
// an answer arrives in the storage of the string that it becomes, and is believed only as far as that goes.
// Holds references to the texts it sends and to the outputs it fills: they outlive the call. Lives within one
// event, on its thread.
class PLXHostCall {
 public:
  // Which of the server's two callbacks is called.
  enum Family { kSupport, kDatabase };

  // Room for a name, and for any text that is mostly short; a longer one takes a second try.
  static constexpr PLXUInt32 kTextCapacity = 32;
  // A server that asks for more than this for one text is not believed: more than any page or form holds, and
  // small enough to clear in a moment.
  static constexpr PLXUInt32 kLargestAnswer = 256 * 1024 * 1024;

  PLXHostCall(_PLXAPI_ModuleProcessingInfo const* info_i, PLXUInt32 code_i,
              Family family_i = kSupport) noexcept
      : myInfo(info_i), myCode(code_i), myFamily(family_i) {}
  PLXHostCall(PLXHostCall const&) = delete;
  PLXHostCall& operator=(PLXHostCall const&) = delete;

  // Each takes the next two slots: a text and the address of its size with the terminator. The buffer holds
  // at least `capacity_i` bytes.
  PLXHostCall& In(PLXString const& text_i, PLXUInt32 capacity_i = 0);
  // A buffer to be filled, and the address of its capacity.
  PLXHostCall& Out(PLXUInt32 capacity_i = kTextCapacity);
  // A buffer that holds a text and is rewritten, and the address of its capacity.
  PLXHostCall& InOut(PLXString const& text_i, PLXUInt32 capacity_i = 0);

  // Takes the next slot: the address of a number, which outlives the call. The server reads it only.
  PLXHostCall& DoubleIn(double const& value_i) noexcept;
  // Each takes the next slot: the address of a word.
  PLXHostCall& WordIn(PLXUInt32 word_i) noexcept;
  // The output is set when the server answers 0 and stays as it was otherwise.
  PLXHostCall& WordOut(PLXUInt32& word_o) noexcept;
  // The address of a word in the last slot.
  PLXHostCall& Word(PLXUInt32 word_i) noexcept;

  // Each takes the next three slots: a value, the address of its type word and the address of its size. The
  // value is read or written where it is, without a copy.
  PLXHostCall& Value(PLXUInt32 type_i, void* value_io, PLXUInt32 size_i) noexcept;
  // A buffer to be filled with a text value.
  PLXHostCall& OutTextValue(PLXUInt32 capacity_i);

  // The server's last result. 'MBtS' with a need that the buffers do not meet gets a second and last try with
  // larger ones; any other result stands.
  PLXUInt32 SendForResult();
  // True when that is 0.
  bool Send() { return SendForResult() == kPLXResult_Success; }
  // Sends with a cleared word in the last slot and gives what it holds then, whatever the result.
  PLXUInt32 AskNumber();

  // What the server left in the out or in/out text of that number, counted over all texts from 0; at most
  // what its buffer holds. Requires: sent.
  PLXString const& GetAnswer(unsigned text_i = 0) const;
  // Sends and stores that answer; the text is untouched on failure.
  bool Ask(PLXString& text_o, unsigned text_i = 0) { return AskForResult(text_o, text_i) == 0; }
  PLXUInt32 AskForResult(PLXString& text_o, unsigned text_i = 0);

 private:
  static constexpr unsigned kSlotCount = 6;  // of the database callback; the support callback has one less
  static constexpr unsigned kTextCount = kSlotCount / 2;
  struct Text {
    PLXString const* source = nullptr;  // what goes over; null for an out text
    bool isAnswered = false;
    unsigned slot = 0;
    PLXUInt32 capacity = 0;
    PLXUInt32 size = 0;  // the word that the server sees
    PLXString buffer;
  };
  struct SlotWord {
    PLXUInt32 value = 0;  // the word that the server sees
    PLXUInt32 initial = 0;
    PLXUInt32* output = nullptr;
  };

  unsigned GetSlotCount() const noexcept { return myFamily == kDatabase ? kSlotCount : kSlotCount - 1; }
  void* AddWord(PLXUInt32 word_i, PLXUInt32* output_o = nullptr) noexcept;
  void AddSlot(void* address_i) noexcept;
  // Takes one slot for the buffer; the size word's slot is up to the caller.
  Text& AddText(PLXString const* source_i, bool isAnswered_i, PLXUInt32 capacity_i);
  PLXUInt32 SendOnce();
  PLXUInt32 CallServer();
  void Lend(Text& text_io);
  static void TakeBack(Text& text_io);
  bool MakeRoom() noexcept;

  _PLXAPI_ModuleProcessingInfo const* myInfo;
  PLXUInt32 myCode;
  Family myFamily;
  void* mySlots[kSlotCount] = {};
  unsigned mySlotsTaken = 0;
  Text myTexts[kTextCount];
  unsigned myTextCount = 0;
  SlotWord myWords[kSlotCount];
  unsigned myWordCount = 0;
};
