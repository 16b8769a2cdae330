#include "MailboxIndex.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <sys/stat.h>
#include <type_traits>

#include "PLXStringID.h"

// A record of the index:
//
//   offset  bytes
//        0      4  key
//        4      4  offset in the index of the subtree with smaller keys, 0 for none
//        8      4  the same with larger keys
//       12      4  offset of the text in the message file
//       16      4  length of the text
//       20      2  flags
//       22      4  size shown
//       26     96  date, at most 32 characters
//      122     64  sender
//      186     64  subject
//      250      6  zero
//
// Entering the keys in the records' order into an empty tree gives the links that the file must have. A new
// key goes below its neighbour in order that has no child on that side: of the next smaller and the next
// larger key, the one that was entered later is below the other, and so has the free place.

namespace {

constexpr PLXUInt32 kRecordSize = 256;
constexpr PLXUInt32 kRecordsInBlock = 256;
constexpr PLXUInt32 kOffset_Key = 0;
constexpr PLXUInt32 kOffset_Children = 4;
constexpr PLXUInt32 kOffset_TextOffset = 12;
constexpr PLXUInt32 kOffset_TextLength = 16;
constexpr PLXUInt32 kOffset_Flags = 20;
constexpr PLXUInt32 kOffset_ShownSize = 22;
constexpr PLXUInt32 kOffset_Date = 26;
constexpr PLXUInt32 kOffset_From = 122;
constexpr PLXUInt32 kOffset_Subject = 186;
constexpr PLXUInt32 kLongestDate = 32;
constexpr PLXUInt32 kLongestText = 64;
constexpr PLXUInt32 kNowhere = 0xFFFFFFFF;  // an offset that no message file reaches

typedef std::array<PLXUInt8, kRecordSize> Record;

template <typename T>
T Get(PLXUInt8 const* record_i, PLXUInt32 offset_i) noexcept {
  T value;
  std::memcpy(&value, record_i + offset_i, sizeof value);
  return value;
}

template <typename T>
requires std::is_integral_v<T>
void Put(Record& record_io, PLXUInt32 offset_i, T value_i) noexcept {
  std::memcpy(record_io.data() + offset_i, &value_i, sizeof value_i);
}

void PutText(Record& record_io, PLXUInt32 offset_i, PLXString const& text_i, PLXUInt32 longest_i) noexcept {
  std::memcpy(record_io.data() + offset_i, text_i.GetCStringAccess(),
              std::min(text_i.GetLength(), longest_i));
}

// Whether its text lies in a message file of that size. A record that a loss of power left blank has none.
bool IsWhole(PLXUInt8 const* record_i, PLXUInt32 messageFileSize_i) noexcept {
  PLXUInt32 const offset = Get<PLXUInt32>(record_i, kOffset_TextOffset);
  PLXUInt32 const length = Get<PLXUInt32>(record_i, kOffset_TextLength);
  bool const isBlank = length == 0 && Get<PLXUInt32>(record_i, kOffset_Key) == 0;
  return !isBlank && offset <= messageFileSize_i && length <= messageFileSize_i - offset;
}

std::uint64_t TextEnd(PLXUInt8 const* record_i) noexcept {
  return std::uint64_t{Get<PLXUInt32>(record_i, kOffset_TextOffset)} +
         Get<PLXUInt32>(record_i, kOffset_TextLength);
}

// The record of a message that nothing is known of yet but its text.
Record MakeRecord(PLXString const& text_i, PLXUInt32 textOffset_i) {
  PLXUInt32 headerLength = text_i.GetLength();
  text_i.Find("\r\n\r\n", 0, kPLXWholeLength, 0, headerLength);
  PLXTokenizedString const lines(text_i.GetSubstring(0, headerLength), "\r\n");
  PLXString const date = EmailClient_Mailbox::GetHeader(lines, "Date");
  PLXString const subject = EmailClient_Mailbox::GetHeader(lines, "Subject");
  Record record{};
  Put(record, kOffset_Key, PLXStringID(subject + date, PLXStringID::kIgnoreCase).GetID());
  Put(record, kOffset_TextOffset, textOffset_i);
  Put(record, kOffset_TextLength, text_i.GetLength());
  Put(record, kOffset_ShownSize, text_i.GetLength() - headerLength);
  PutText(record, kOffset_Date, date, kLongestDate);
  PutText(record, kOffset_From, EmailClient_Mailbox::GetHeader(lines, "From"), kLongestText);
  PutText(record, kOffset_Subject, subject, kLongestText);
  return record;
}

bool IsTooLong(PLXFileSpecification const& file_i) noexcept {
  struct stat status;
  return stat(file_i.GetSystemPath(), &status) == 0 && S_ISREG(status.st_mode) &&
         status.st_size > off_t{PLXFile::kLongestFile};
}

// The index file's lock, which stands for both files.
class IndexLock {
 public:
  explicit IndexLock(PLXFile& index_i) : myIndex(index_i), myIsHeld(index_i.Lock()) {}
  IndexLock(IndexLock const&) = delete;
  IndexLock& operator=(IndexLock const&) = delete;
  ~IndexLock() {
    if (myIsHeld) myIndex.UnLock();
  }
  bool IsHeld() const noexcept { return myIsHeld; }

 private:
  PLXFile& myIndex;
  bool const myIsHeld;
};

}  // namespace

PLXString EmailClient_Mailbox::GetHeader(PLXTokenizedString const& lines_i, PLXString const& name_i) {
  PLXUInt32 const count = lines_i.GetTokenCount();
  for (PLXUInt32 index = 0; index < count; ++index) {
    PLXString line = lines_i.GetToken(index);
    if (!line.BeginsWith(name_i, kPLXOption_IgnoreCase)) continue;
    PLXUInt32 colon = line.GetLength();
    line.Find(':', 0, kPLXWholeLength, 0, colon);
    line.TrimLeft(colon < line.GetLength() ? colon + 1 : colon);
    line.TrimLeft(" \t\r\n");
    return line;
  }
  return PLXString();
}

EmailClient_Mailbox::Outcome EmailClient_Mailbox::Open(PLXUInt32 permission_i) {
  Forget();
  myIsReading = false;
  if (myIndex.Open(permission_i) && myMessages.Open(permission_i)) return Outcome::Done;
  bool const isTooLong = IsTooLong(myIndex.GetSpecification()) || IsTooLong(myMessages.GetSpecification());
  return isTooLong ? Outcome::Full : Outcome::Unusable;
}

PLXUInt32 EmailClient_Mailbox::RecordCount() { return myIndex.GetSize() / kRecordSize; }

// ---- Reading ----

bool EmailClient_Mailbox::ReadNext(EmailClient_MessageRecord& record_o) {
  if (!myIsReading) {
    myIsReading = true;
    myNextRecord = 0;
    // In this order: the texts of all records that are counted are then within the size.
    myEndRecord = RecordCount();
    myTextEnd = myMessages.GetSize();
    myBlock.clear();
    myBlockPosition = 0;
  }
  for (;;) {
    if (myBlockPosition == myBlock.size()) {
      PLXUInt32 const count = std::min(kRecordsInBlock, myEndRecord - myNextRecord);
      myBlock.resize(std::size_t{count} * kRecordSize);
      myBlockPosition = 0;
      PLXUInt32 const size = myIndex.Read(myNextRecord * kRecordSize, count * kRecordSize, myBlock.data());
      myBlock.resize(size / kRecordSize * kRecordSize);
      myNextRecord += count;
      if (myBlock.empty()) return false;
    }
    PLXUInt8 const* const record = myBlock.data() + myBlockPosition;
    myBlockPosition += kRecordSize;
    if (!IsWhole(record, myTextEnd)) continue;
    record_o.textOffset = Get<PLXUInt32>(record, kOffset_TextOffset);
    record_o.textLength = Get<PLXUInt32>(record, kOffset_TextLength);
    record_o.flags = Get<PLXUInt16>(record, kOffset_Flags);
    record_o.shownSize = Get<PLXUInt32>(record, kOffset_ShownSize);
    return true;
  }
}

// ---- Adding ----

EmailClient_Mailbox::Outcome EmailClient_Mailbox::Add(PLXString const& text_i) {
  if (!myMessages.IsOpen()) return Outcome::Unusable;
  IndexLock const lock(myIndex);
  return lock.IsHeld() ? AddLocked(text_i) : Outcome::Unusable;
}

EmailClient_Mailbox::Outcome EmailClient_Mailbox::AddLocked(PLXString const& text_i) {
  if (!CatchUp()) return Outcome::Unusable;
  PLXUInt32 const end = myMessages.GetSize();
  Record record = MakeRecord(text_i, end);
  PLXUInt32 const key = Get<PLXUInt32>(record.data(), kOffset_Key);
  auto const known = myNodes.find(key);
  bool const isNew = known == myNodes.end();
  // Another mailbox may have given it its text back.
  if (!isNew && !known->second.isWhole) known->second.isWhole = IsWholeNow(known->second.record, end);
  if (!isNew && known->second.isWhole) return Outcome::Duplicate;
  // A message whose text was lost gets it back in its old record.
  PLXUInt32 const index = isNew ? static_cast<PLXUInt32>(myLinks.size()) : known->second.record;
  if (text_i.GetLength() > PLXFile::kLongestFile - end || index >= PLXFile::kLongestFile / kRecordSize) {
    return Outcome::Full;
  }
  if (!isNew) {
    for (unsigned side : {kSmaller, kLarger}) {
      Put(record, kOffset_Children + side * 4, myLinks[index].wanted[side]);
    }
  }
  if (!GiveUpTexts(end, end + text_i.GetLength()) || !StoreText(end, text_i)) return Outcome::Unusable;
  if (!StoreRecord(index, record.data())) {
    myMessages.SetSize(end);
    return Outcome::Unusable;
  }
  if (isNew) {
    // A link that cannot be written now is written by whoever reads the index next.
    WriteLinks(Enter(key, Links{}, true));
  } else {
    known->second.isWhole = true;
  }
  return Outcome::Done;
}

// Reads what was added to the index since the last time, at first all of it, and puts its links right. False,
// with nothing read, when the file does not let itself be read or written.
bool EmailClient_Mailbox::CatchUp() {
  PLXUInt32 const end = RecordCount();
  if (end < myLinks.size()) Forget();
  if (ReadRecords(static_cast<PLXUInt32>(myLinks.size()), end)) return true;
  Forget();
  return false;
}

bool EmailClient_Mailbox::ReadRecords(PLXUInt32 first_i, PLXUInt32 end_i) {
  std::vector<PLXUInt8> block;
  PLXUInt32 const textEnd = myMessages.GetSize();
  for (PLXUInt32 record = first_i; record < end_i;) {
    PLXUInt32 const count = std::min(kRecordsInBlock, end_i - record);
    block.resize(std::size_t{count} * kRecordSize);
    if (myIndex.Read(record * kRecordSize, count * kRecordSize, block.data()) != block.size()) return false;
    for (std::size_t position = 0; position < block.size(); position += kRecordSize, ++record) {
      PLXUInt8 const* const bytes = block.data() + position;
      Links links{};
      std::memcpy(links.found, bytes + kOffset_Children, sizeof links.found);
      bool const isWhole = IsWhole(bytes, textEnd);
      if (!isWhole) myLost.emplace(TextEnd(bytes), record);
      PLXUInt32 const parent = Enter(Get<PLXUInt32>(bytes, kOffset_Key), links, isWhole);
      if (parent < first_i && !WriteLinks(parent)) return false;
    }
  }
  for (PLXUInt32 record = first_i; record < end_i; ++record) {
    if (!WriteLinks(record)) return false;
  }
  return true;
}

void EmailClient_Mailbox::Forget() {
  myLinks.clear();
  myNodes.clear();
  myLost.clear();
}

// Enters the next record and returns the one that leads to it: itself for the first, and for one whose key is
// in the tree already, which has no place there.
PLXUInt32 EmailClient_Mailbox::Enter(PLXUInt32 key_i, Links const& links_i, bool isWhole_i) {
  auto const record = static_cast<PLXUInt32>(myLinks.size());
  myLinks.push_back(links_i);
  auto const [node, isNew] = myNodes.try_emplace(key_i, Node{record, isWhole_i});
  node->second.isWhole |= isWhole_i;
  if (!isNew || record == 0) return record;
  auto const next = std::next(node);
  bool const hasPrevious = node != myNodes.begin();
  bool const hasNext = next != myNodes.end();
  bool const isBelowPrevious =
      hasPrevious && (!hasNext || std::prev(node)->second.record > next->second.record);
  PLXUInt32 const parent = isBelowPrevious ? std::prev(node)->second.record : next->second.record;
  myLinks[parent].wanted[isBelowPrevious ? kLarger : kSmaller] = record * kRecordSize;
  return parent;
}

// Writes the record's links where they are not what they must be.
bool EmailClient_Mailbox::WriteLinks(PLXUInt32 record_i) {
  Links& links = myLinks[record_i];
  for (unsigned side : {kSmaller, kLarger}) {
    if (links.found[side] == links.wanted[side]) continue;
    PLXUInt32 const offset = record_i * kRecordSize + kOffset_Children + side * 4;
    if (myIndex.Write(offset, 4, &links.wanted[side]) != 4) return false;
    links.found[side] = links.wanted[side];
  }
  return true;
}

bool EmailClient_Mailbox::IsWholeNow(PLXUInt32 record_i, PLXUInt32 textEnd_i) {
  Record record;
  return myIndex.Read(record_i * kRecordSize, kRecordSize, record.data()) == kRecordSize &&
         IsWhole(record.data(), textEnd_i);
}

// Before texts are written up to there: records whose texts were lost would take them for their own.
bool EmailClient_Mailbox::GiveUpTexts(PLXUInt32 textEnd_i, PLXUInt32 newEnd_i) {
  for (auto lost = myLost.begin(); lost != myLost.end() && lost->first <= newEnd_i;
       lost = myLost.erase(lost)) {
    PLXUInt32 const record = lost->second;
    if (IsWholeNow(record, textEnd_i) || !IsWholeNow(record, newEnd_i)) continue;
    if (myIndex.Write(record * kRecordSize + kOffset_TextOffset, 4, &kNowhere) != 4) return false;
  }
  return true;
}

bool EmailClient_Mailbox::StoreText(PLXUInt32 offset_i, PLXString const& text_i) {
  PLXUInt32 const length = text_i.GetLength();
  if (myMessages.Write(offset_i, length, text_i.GetCStringAccess()) == length) return true;
  myMessages.SetSize(offset_i);
  return false;
}

bool EmailClient_Mailbox::StoreRecord(PLXUInt32 index_i, PLXUInt8 const* record_i) {
  PLXUInt32 const offset = index_i * kRecordSize;
  if (myIndex.Write(offset, kRecordSize, record_i) == kRecordSize) return true;
  if (index_i == myLinks.size()) myIndex.SetSize(offset);
  return false;
}
