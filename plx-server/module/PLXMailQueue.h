#pragma once

#include <cstdint>
#include <ctime>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "PLXRecordCursor.h"
#include "PLXRecordStore.h"
#include "PLXSite.h"

// A message that its mail server did not take, as the network module's list and the files of the regions have
// it. Texts are bytes as pages gave them.
struct PLXQueuedMail {
  std::int64_t record = 0;  // in the list's database
  std::string number;       // the digits of its name, by which people call it
  std::string region;       // "SITE/REGION" that keeps its text; empty when none does
  std::filesystem::path file;
  std::uint64_t size = 0;  // of its text, bytes
  std::time_t stored = 0;  // when it was stored last
  std::int64_t attempts = 0;
  std::string server, from, replyTo, to, cc, bcc, subject;
  std::string reason;  // why it was not taken
};

// Reads the list of failed mail beside a server that may run: nothing is changed. One thread. What it throws
// is PLXRecordError.
class PLXMailQueue {
 public:
  // Both must outlive it.
  PLXMailQueue(PLXRecordEngine& records_i, PLXSites const& sites_i)
      : myRecords(records_i), mySites(sites_i) {}

  // All messages, the first that failed first. Empty, too, before the first one ever failed.
  std::vector<PLXQueuedMail> List() const;

  // How much there is, at the cost of one look-up and of reading the names in the outboxes.
  struct Summary {
    std::uint64_t failed = 0;    // in the list
    std::time_t oldest = 0;      // when the first of these was handed over; 0 when that cannot be told
    std::uint64_t underway = 0;  // in the regions' outboxes: being sent, or left by a server that died
  };
  Summary Summarize() const;

  // The text of a stored message as it would be sent: lines end in CR LF, and the dots that the dialogue with
  // a mail server doubles are single. None when it cannot be read.
  static std::optional<std::string> ReadText(PLXQueuedMail const& mail_i);

 private:
  // Where the list is, on its first record; null while there is none.
  std::unique_ptr<PLXRecordCursor> Open() const;
  void FindText(PLXQueuedMail& mail_io) const;

  PLXRecordEngine& myRecords;
  PLXSites const& mySites;
};

// Messages as a JSON array (RFC 8259), an object each. Bytes that are no UTF-8 are read as Latin-1.
std::string PLXMailAsJSON(std::vector<PLXQueuedMail> const& messages_i);
