#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "PLXFile.h"
#include "PLXTokenizedString.h"

// What a mailbox's index says of one message.
struct EmailClient_MessageRecord {
  static constexpr PLXUInt16 kFlag_Read = 1;
  static constexpr PLXUInt16 kFlag_Deleted = 8;

  PLXUInt32 textOffset = 0;  // in the message file
  PLXUInt32 textLength = 0;  // bytes
  PLXUInt16 flags = 0;
  PLXUInt32 shownSize = 0;  // bytes from the end of the header on, the empty line included
};

// A mailbox: a file of messages, one behind the other as they were received, and its index of 256-byte
// records in native byte order, which are the nodes of a binary search tree. A message's key is the
// identifier of its subject and date; the first message with a key keeps others with that key out.
//
// Any number of objects, threads and processes may add at once: an add locks the index file, which stands for
// both files, and nothing else is locked. Readers take no lock and see every message whose record is written.
// The text goes before its record, the record before the link that leads to it, so that the death of a
// process at any instant loses at most the message that it was adding.
//
// The tree is wholly determined by the order of the records, which is why no link is ever believed: the first
// add through an object reads the index once, in one pass, and rewrites links that are not what they must be.
// Damage can thus neither lead an add astray nor make it slow, whatever shape the tree has. What a death left
// half written at the index's end is overwritten. One object belongs to one thread.
class EmailClient_Mailbox : public PLXObject {
 public:
  enum class Outcome {
    Done,
    Duplicate,  // by its key; nothing was written
    Full,       // offsets have 32 bits, which the mailbox or its message is beyond; nothing was written
    Unusable    // a file cannot be opened, locked, read or written; a message is not stored
  };

  EmailClient_Mailbox(PLXFileSpecification const& index_i, PLXFileSpecification const& messages_i)
      : myIndex(index_i), myMessages(messages_i) {}

  // Opens the files, which are there already; Done, Full or Unusable.
  Outcome Open(PLXUInt32 permission_i);

  // Stores the message's bytes as they are. Requires: opened to be written; a mailbox that is not is
  // Unusable.
  Outcome Add(PLXString const& text_i);

  // Gives the next record in the index's order, from the first on. False behind the last that was there at
  // the first call. Records whose text is not in the message file are skipped.
  bool ReadNext(EmailClient_MessageRecord& record_o);

  // In bytes, with the messages that are deleted.
  PLXUInt32 GetMessageFileSize() { return myMessages.GetSize(); }

  // What follows the colon of the first line that begins with the name in any letter case, even when the
  // line's own name goes on; folded lines are not joined. Empty when there is none.
  static PLXString GetHeader(PLXTokenizedString const& lines_i, PLXString const& name_i);

 private:
  static constexpr unsigned kSmaller = 0;
  static constexpr unsigned kLarger = 1;

  // A record's links as they are in the file and as they must be; 0 for none, because nothing leads to the
  // first record.
  struct Links {
    PLXUInt32 found[2];
    PLXUInt32 wanted[2];
  };
  struct Node {
    PLXUInt32 record;  // from 0
    bool isWhole;      // the text of this or another record with the key is in the message file
  };

  Outcome AddLocked(PLXString const& text_i);
  bool CatchUp();
  bool ReadRecords(PLXUInt32 first_i, PLXUInt32 end_i);
  void Forget();
  PLXUInt32 Enter(PLXUInt32 key_i, Links const& links_i, bool isWhole_i);
  bool WriteLinks(PLXUInt32 record_i);
  bool IsWholeNow(PLXUInt32 record_i, PLXUInt32 textEnd_i);
  bool GiveUpTexts(PLXUInt32 textEnd_i, PLXUInt32 newEnd_i);
  bool StoreText(PLXUInt32 offset_i, PLXString const& text_i);
  bool StoreRecord(PLXUInt32 index_i, PLXUInt8 const* record_i);
  PLXUInt32 RecordCount();

  PLXFile myIndex;
  PLXFile myMessages;

  // The index as far as adding has read it.
  std::vector<Links> myLinks;         // by record
  std::map<PLXUInt32, Node> myNodes;  // by key: the records of the tree
  // Records whose texts the message file did not reach, by where these would end.
  std::multimap<std::uint64_t, PLXUInt32> myLost;

  // Reading: a block of records, and how far it and all of it are read.
  std::vector<PLXUInt8> myBlock;
  std::size_t myBlockPosition = 0;
  PLXUInt32 myNextRecord = 0;
  PLXUInt32 myEndRecord = 0;
  PLXUInt32 myTextEnd = 0;
  bool myIsReading = false;
};
