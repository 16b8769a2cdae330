#include <map>
#include <memory>
#include <optional>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

#include "../plx-modules/network/EmailClient/MailboxIndex.h"
#include "EncoderTwins.h"
#include "Fuzz.h"
#include "MailboxTwin.h"
#include "PLXStringID.h"

// Lines are steps on a mailbox, until one that is "index": what follows it then is the index file as it
// stands. After each step the two files, byte for byte, and what is read of them must be what a twin says
// that keeps them in memory and walks the tree from its root for every message.

namespace {

constexpr std::size_t kSize = MailboxFiles::kSize;
constexpr std::size_t kMostRecords = 64;

std::string Message(unsigned number_i) {
  std::string const number = std::to_string(number_i);
  std::string const text = "Subject: " + number + "\r\nFrom: ada\r\n\r\nbody " + number;
  return number_i % 16 == 0 ? "" : text;  // no header, no body
}

std::uint32_t KeyOf(unsigned number_i) {
  std::string const subject = number_i % 16 == 0 ? "" : std::to_string(number_i);
  return PLXStringID(Plx(subject), PLXStringID::kIgnoreCase).GetID();
}

struct Twin : MailboxFiles {
  bool IsWhole(std::size_t record_i) const {
    bool const isBlank = TextLength(record_i) == 0 && Key(record_i) == 0;
    return !isBlank && std::uint64_t{TextOffset(record_i)} + TextLength(record_i) <= texts.size();
  }

  EmailClient_Mailbox::Outcome Add(unsigned number_i) {
    using Outcome = EmailClient_Mailbox::Outcome;
    MendLinks();
    std::string const text = Message(number_i);
    std::optional<std::size_t> place;
    std::size_t const end = index.size() / kSize * kSize;
    for (std::size_t record = 0; record < end; record += kSize) {
      if (Key(record) != KeyOf(number_i)) continue;
      if (IsWhole(record)) return Outcome::Duplicate;
      if (!place) place = record;
    }
    std::string record(kSize, '\0');
    SetWord(record, 0, KeyOf(number_i));
    SetWord(record, 12, static_cast<std::uint32_t>(texts.size()));
    SetWord(record, 16, static_cast<std::uint32_t>(text.size()));
    std::size_t const headerEnd = std::min(text.find("\r\n\r\n"), text.size());
    SetWord(record, 22, static_cast<std::uint32_t>(text.size() - headerEnd));
    if (!text.empty())
      record.replace(122, 3, "ada").replace(186, std::to_string(number_i).size(), std::to_string(number_i));
    if (place) {
      index.replace(*place, kSize, record);
    } else {
      index.replace(end, kSize, record);
    }
    for (std::size_t at = 0; at < end; at += kSize) {
      // What was lost must not come back as somebody else's text.
      std::uint64_t const lostEnd = std::uint64_t{TextOffset(at)} + TextLength(at);
      bool const isBlank = Key(at) == 0 && TextLength(at) == 0;
      if (at != place && !isBlank && lostEnd > texts.size() && lostEnd <= texts.size() + text.size()) {
        SetWord(index, at + 12, 0xFFFFFFFF);
      }
    }
    texts += text;
    MendLinks();
    return Outcome::Done;
  }

  std::vector<std::size_t> Listed() const {
    std::vector<std::size_t> records;
    for (std::size_t record = 0; record + kSize <= index.size(); record += kSize) {
      if (IsWhole(record)) records.push_back(record);
    }
    return records;
  }
};

// A file without a name, so that thousands of programs a second leave no trace.
class File {
 public:
  explicit File(char const* name_i)
      : myFile(::memfd_create(name_i, 0)), myPath("/proc/self/fd/" + std::to_string(myFile)) {}
  PLXFileSpecification At() const { return PLXFileSpecification(Plx(myPath)); }
  void Set(std::string const& bytes_i) const {
    Require(::ftruncate(myFile, 0) == 0 &&
            ::pwrite(myFile, bytes_i.data(), bytes_i.size(), 0) == static_cast<ssize_t>(bytes_i.size()));
  }
  std::string Get() const {
    std::string bytes(static_cast<std::size_t>(::lseek(myFile, 0, SEEK_END)), '\0');
    Require(::pread(myFile, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size()));
    return bytes;
  }

 private:
  int const myFile;
  std::string const myPath;
};

class Machine {
 public:
  Machine() { Damage(); }

  void Do(char action_i, std::string_view line_i) {
    unsigned const number = TakeNumber(line_i);
    std::string& index = myTwin.index;
    switch (action_i) {
      case 'a':  // adds a message, through one of two mailboxes that stay open
        if (index.size() < kMostRecords * kSize) {
          Require(myMailboxes[number % 2]->Add(Plx(Message(number))) == myTwin.Add(number));
        }
        break;
      case 'o':  // opens them again
        Open();
        break;
      case 'i':  // loses the end of the index, or of the texts
        index.resize(index.size() - std::min<std::size_t>(number * 8, index.size()));
        Damage();
        break;
      case 't':
        myTwin.texts.resize(myTwin.texts.size() - std::min<std::size_t>(number, myTwin.texts.size()));
        Damage();
        break;
      case 'x': {  // other bytes in a record
        std::size_t const at = number * kSize + TakeNumber(line_i);
        if (at < index.size()) index.replace(at, line_i.size(), line_i);
        Damage();
        break;
      }
      default:
        break;
    }
    Check();
  }

  void Take(std::string_view index_i) {
    myTwin.index = index_i.substr(0, kMostRecords * kSize);
    Damage();
    Check();
    for (unsigned const number : {1U, 1U, 16U, 2U}) {
      Require(myMailboxes[0]->Add(Plx(Message(number))) == myTwin.Add(number));
      Check();
    }
  }

 private:
  void Damage() {
    myIndex.Set(myTwin.index);
    myTexts.Set(myTwin.texts);
    Open();
  }

  void Open() {
    for (auto& mailbox : myMailboxes) {
      mailbox = std::make_unique<EmailClient_Mailbox>(myIndex.At(), myTexts.At());
      Require(mailbox->Open(kPLXFilePermission_ReadWrite) == EmailClient_Mailbox::Outcome::Done);
    }
  }

  void Check() {
    Require(myIndex.Get() == myTwin.index && myTexts.Get() == myTwin.texts);
    EmailClient_Mailbox mailbox(myIndex.At(), myTexts.At());
    Require(mailbox.Open(kPLXFilePermission_ReadOnly) == EmailClient_Mailbox::Outcome::Done);
    EmailClient_MessageRecord record;
    for (std::size_t const expected : myTwin.Listed()) {
      Require(mailbox.ReadNext(record) && record.textOffset == myTwin.TextOffset(expected) &&
              record.textLength == myTwin.TextLength(expected) &&
              record.shownSize == MailboxFiles::Word(myTwin.index, expected + 22));
    }
    Require(!mailbox.ReadNext(record));
  }

  static inline File const myIndex{"index"};
  static inline File const myTexts{"texts"};
  Twin myTwin;
  std::unique_ptr<EmailClient_Mailbox> myMailboxes[2];
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data_i, std::size_t size_i) {
  std::string_view input(reinterpret_cast<char const*>(data_i), size_i);
  Machine machine;
  for (int steps = 0; !input.empty() && steps < 100; ++steps) {
    std::string_view const line = TakeLine(input);
    if (line == "index") {
      machine.Take(input);
      break;
    }
    if (!line.empty()) machine.Do(line.front(), line.substr(1));
  }
  return 0;
}
