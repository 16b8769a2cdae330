#pragma once

#include <cstdint>
#include <cstring>
#include <string>

// A mailbox's two files as a reader sees them that shares nothing with the mailbox but the format: records of
// a fixed size, a tree of their keys, and the texts that they point to.

struct MailboxFiles {
  static constexpr std::size_t kSize = 256;

  std::string index, texts;

  static std::uint32_t Word(std::string const& bytes_i, std::size_t offset_i) {
    std::uint32_t value = 0;
    std::memcpy(&value, bytes_i.data() + offset_i, 4);
    return value;
  }
  static void SetWord(std::string& bytes_io, std::size_t offset_i, std::uint32_t value_i) {
    std::memcpy(bytes_io.data() + offset_i, &value_i, 4);
  }

  std::uint32_t Key(std::size_t record_i) const { return Word(index, record_i); }
  std::uint32_t TextOffset(std::size_t record_i) const { return Word(index, record_i + 12); }
  std::uint32_t TextLength(std::size_t record_i) const { return Word(index, record_i + 16); }
  std::string Text(std::size_t record_i) const {
    return texts.substr(TextOffset(record_i), TextLength(record_i));
  }
  // Where the link to the record of a key stands, in the record that the key is not.
  std::size_t LinkFrom(std::size_t record_i, std::uint32_t key_i) const {
    return record_i + (key_i > Key(record_i) ? 8 : 4);
  }

  // The offset of the key's record, found as any reader of the format finds it; -1 when nothing leads to it.
  long Find(std::uint32_t key_i) const {
    std::size_t record = 0;
    for (std::size_t steps = 0; steps < index.size() / kSize; ++steps) {
      if (record + kSize > index.size()) return -1;
      if (Key(record) == key_i) return static_cast<long>(record);
      record = Word(index, LinkFrom(record, key_i));
      if (record == 0) return -1;
    }
    return -1;
  }

  // Every link new: each record of a new key goes where walking down from the root ends.
  void MendLinks() {
    std::size_t const end = index.size() / kSize * kSize;
    for (std::size_t record = 0; record < end; record += kSize) index.replace(record + 4, 8, 8, '\0');
    for (std::size_t record = kSize; record < end; record += kSize) {
      std::size_t at = 0;
      std::size_t link = 0;
      do {
        if (Key(at) == Key(record)) break;
        link = LinkFrom(at, Key(record));
        at = Word(index, link);
      } while (at != 0);
      if (at == 0 && Key(0) != Key(record)) SetWord(index, link, static_cast<std::uint32_t>(record));
    }
  }
};
