#pragma once

#include <memory>

#include "PLXModuleAPI.h"
#include "PLXString.h"

// One support call to the server, put together slot by slot, sent once and, when an answer did not fit, once
// more.
//
// Texts go over as copies of their own, so that nothing the server does to a buffer reaches a shared string.
// An answer is believed only as far as the buffer it stands in. Holds references to the texts it sends: they
// outlive the call. Lives within one event, on its thread.
class PLXHostCall {
 public:
  // A server that asks for more than this for one text is not believed: more than any page or form holds, and
  // small enough to clear in a moment.
  static constexpr PLXUInt32 kLargestAnswer = 256 * 1024 * 1024;

  PLXHostCall(_PLXAPI_ModuleProcessingInfo const* info_i, PLXUInt32 code_i) noexcept
      : myInfo(info_i), myCode(code_i) {}
  PLXHostCall(PLXHostCall const&) = delete;
  PLXHostCall& operator=(PLXHostCall const&) = delete;

  // Each takes the next two slots: a text and the address of its size with the terminator. The buffer holds
  // at least `capacity_i` bytes.
  PLXHostCall& In(PLXString const& text_i, PLXUInt32 capacity_i = 0);
  // A buffer to be filled, and the address of its capacity.
  PLXHostCall& Out(PLXUInt32 capacity_i);
  // A buffer that holds a text and is rewritten, and the address of its capacity.
  PLXHostCall& InOut(PLXString const& text_i, PLXUInt32 capacity_i = 0);
  // The address of a word in the last slot.
  PLXHostCall& Word(PLXUInt32 word_i) noexcept;

  // True when the server answered 0. 'MBtS' with a need that the buffers do not meet gets a second and last
  // try with larger ones.
  bool Send();

  // What the server left in the out or in/out text of that number, counted over all texts from 0; at most
  // what its buffer holds. Requires: sent.
  PLXString GetAnswer(unsigned text_i = 0) const;
  PLXUInt32 GetWord() const noexcept { return myWord; }

  // How many bytes of an answer are its text. A size word that (still) states the whole capacity may never
  // have been written: the zero bytes at the end are then no part of the text.
  static PLXUInt32 MeasureAnswer(char const* address_i, PLXUInt32 size_i, PLXUInt32 capacity_i) noexcept;
  // Whether a need is worth a second try with a larger buffer.
  static bool IsCredibleNeed(PLXUInt32 need_i, PLXUInt32 capacity_i) noexcept {
    return need_i > capacity_i && need_i <= kLargestAnswer;
  }

 private:
  static constexpr unsigned kSlotCount = 5;
  static constexpr unsigned kTextCount = kSlotCount / 2;
  struct Release {
    void operator()(char* address_i) const noexcept { PLXObject::FreeMemory(address_i); }
  };
  struct Text {
    PLXString const* source = nullptr;  // what goes over; null for an out text
    bool isAnswered = false;
    PLXUInt32 capacity = 0;
    PLXUInt32 size = 0;  // the word that the server sees
    std::unique_ptr<char, Release> buffer;
  };

  PLXHostCall& Add(PLXString const* source_i, bool isAnswered_i, PLXUInt32 capacity_i);
  PLXUInt32 SendOnce();
  static bool Fill(Text& text_io);
  bool MakeRoom();

  _PLXAPI_ModuleProcessingInfo const* myInfo;
  PLXUInt32 myCode;
  Text myTexts[kTextCount];
  unsigned myTextCount = 0;
  bool myHasWord = false;
  PLXUInt32 myWord = 0;
};
