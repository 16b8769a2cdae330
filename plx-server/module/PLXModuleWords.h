#pragma once

#include <atomic>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "PLXModuleAPI.h"

// How texts and numbers lie in the words of a call, for the support and the database requests alike. What a
// module hands over is checked here and turned into views; nothing else of the server sees its pointers.

// The number of a handle, of an event or a service: never given twice.
inline std::uint64_t PLXNextHandle() {
  static std::atomic<std::uint64_t> next{1};
  return next.fetch_add(1, std::memory_order_relaxed);
}

// Words of the contract need not be aligned.
inline PLXUInt32 LoadWord(void const* address_i) {
  PLXUInt32 word;
  std::memcpy(&word, address_i, sizeof word);
  return word;
}
inline void StoreWord(void* address_i, PLXUInt32 word_i) { std::memcpy(address_i, &word_i, sizeof word_i); }

// A text for the module: where it goes, and where its size stands.
struct PLXOutText {
  char* buffer = nullptr;
  void* size = nullptr;
  PLXUInt32 capacity = 0;

  // False when a call breaks the conventions.
  bool Read(void* buffer_i, void* size_i) {
    if (size_i == nullptr) return false;
    *this = {static_cast<char*>(buffer_i), size_i, LoadWord(size_i)};
    return buffer != nullptr || capacity == 0;
  }
  bool IsTooSmall(std::string_view text_i) const { return text_i.size() > capacity; }
  // Nothing but the capacity needed, when the text does not fit.
  void WriteNeed(std::string_view text_i) const {
    if (IsTooSmall(text_i)) StoreWord(size, static_cast<PLXUInt32>(text_i.size() + 1));
  }
  void Write(std::string_view text_i) const {
    if (!text_i.empty()) std::memcpy(buffer, text_i.data(), text_i.size());
    if (text_i.size() < capacity) buffer[text_i.size()] = '\0';
    StoreWord(size, static_cast<PLXUInt32>(text_i.size()));
  }
};

// A terminated text from the module. `isExact_i`: its size counts the terminator; else its buffer may be
// larger.
//
// Reads no further than the first zero, so a size that is far too large does no harm. A zero inside an exact
// text is refused: whatever followed it would be lost without a word.
inline bool ReadInText(char const* text_i, PLXUInt32 size_i, bool isExact_i, std::string_view& text_o) {
  if (text_i == nullptr) return false;
  std::size_t const length = strnlen(text_i, size_i);
  if (length == size_i || (isExact_i && length + 1 != size_i)) return false;
  text_o = {text_i, length};
  return true;
}

// Appends a text to a line of the trace log, long ones cut.
inline void AppendTraced(std::string_view text_i, std::string& line_io) {
  constexpr std::size_t kTextBytes = 200;
  line_io.append(" \"").append(text_i.substr(0, kTextBytes)).append("\"");
  if (text_i.size() > kTextBytes) line_io += " (" + std::to_string(text_i.size()) + " bytes)";
}
