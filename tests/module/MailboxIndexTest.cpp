#include <algorithm>
#include <csignal>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "../../plx-modules/network/EmailClient/MailboxIndex.h"
#include "MailboxTwin.h"
#include "PLXStringID.h"
#include "TemporaryFolder.h"

typedef EmailClient_Mailbox::Outcome Outcome;

static void PrintTo(Outcome outcome_i, std::ostream* stream_io) {
  static char const* const kNames[] = {"Done", "Duplicate", "Full", "Unusable"};
  *stream_io << kNames[static_cast<unsigned>(outcome_i)];
}

namespace {

namespace fs = std::filesystem;

constexpr std::size_t kSize = MailboxFiles::kSize;

std::string Message(int number_i) {
  return "From: ada@example.com\r\nSubject: Number " + std::to_string(number_i) +
         "\r\nDate: Mon, 6 Jul 2026 10:00:00 +0000\r\n\r\n" + "Good morning.\r\n.\r\n";
}

std::uint32_t KeyOf(std::string const& subjectAndDate_i) {
  return PLXStringID(PLXString(subjectAndDate_i.c_str()), PLXStringID::kIgnoreCase).GetID();
}

std::uint32_t KeyOfMessage(int number_i) {
  return KeyOf("Number " + std::to_string(number_i) + "Mon, 6 Jul 2026 10:00:00 +0000");
}

class Mailbox : public testing::Test {
 protected:
  Mailbox() {
    myFolder.Write("in.idx", "");
    myFolder.Write("in.mbx", "");
  }

  PLXFileSpecification At(char const* name_i) const {
    return PLXFileSpecification(PLXString((myFolder / name_i).c_str()));
  }
  std::string Index() const { return myFolder.Read("in.idx"); }
  std::string Texts() const { return myFolder.Read("in.mbx"); }
  MailboxFiles Files() const { return {Index(), Texts()}; }

  Outcome Add(std::string const& text_i) const {
    EmailClient_Mailbox mailbox(At("in.idx"), At("in.mbx"));
    Outcome const opened = mailbox.Open(kPLXFilePermission_ReadWrite);
    return opened == Outcome::Done ? mailbox.Add(PLXString(text_i.data(), Length(text_i))) : opened;
  }
  // Adds messages first to last - 1 through one object and returns how often each outcome was seen.
  std::map<Outcome, int> AddAll(int first_i, int end_i) const {
    EmailClient_Mailbox mailbox(At("in.idx"), At("in.mbx"));
    std::map<Outcome, int> outcomes;
    Outcome const opened = mailbox.Open(kPLXFilePermission_ReadWrite);
    if (opened != Outcome::Done) return {{opened, end_i - first_i}};
    for (int number = first_i; number < end_i; ++number) {
      std::string const text = Message(number);
      ++outcomes[mailbox.Add(PLXString(text.data(), Length(text)))];
    }
    return outcomes;
  }
  // The sizes shown, in order.
  std::vector<PLXUInt32> Listed() const {
    EmailClient_Mailbox mailbox(At("in.idx"), At("in.mbx"));
    EXPECT_EQ(mailbox.Open(kPLXFilePermission_ReadOnly), Outcome::Done);
    EmailClient_MessageRecord record;
    std::vector<PLXUInt32> sizes;
    while (mailbox.ReadNext(record)) sizes.push_back(record.shownSize);
    return sizes;
  }
  // Every message is there once, whole, and a reader of the tree finds it.
  void ExpectExactly(int first_i, int end_i) const {
    MailboxFiles const files = Files();
    EXPECT_EQ(files.index.size(), kSize * static_cast<std::size_t>(end_i - first_i));
    for (int number = first_i; number < end_i; ++number) {
      long const record = files.Find(KeyOfMessage(number));
      ASSERT_GE(record, 0) << "message " << number;
      EXPECT_EQ(files.Text(static_cast<std::size_t>(record)), Message(number));
    }
  }
  static PLXUInt32 Length(std::string const& text_i) { return static_cast<PLXUInt32>(text_i.size()); }

  TemporaryFolder myFolder;
};

// ---- What is stored ----

TEST_F(Mailbox, RecordsAreLaidOutByteByByte) {
  std::string const subject(100, 's');
  std::string const from(64, 'f');
  std::string const date = "Mon, 6 Jul 2026 10:00:00 +0000 (a zone that is told at length)";
  std::string const header = "subject:\t " + subject + "\r\nFROM:" + from + "\r\nDate: " + date;
  std::string const text = header + "\r\n\r\n..two dots\r\n\r\nmore\r\n.\r\n";
  ASSERT_EQ(Add("no header"), Outcome::Done);
  ASSERT_EQ(Add(text), Outcome::Done);
  ASSERT_EQ(Texts(), "no header" + text);
  std::string const index = Index();
  ASSERT_EQ(index.size(), 2 * kSize);

  std::string expected(kSize, '\0');
  MailboxFiles::SetWord(expected, 0, KeyOf(subject + date));
  MailboxFiles::SetWord(expected, 12, 9);
  MailboxFiles::SetWord(expected, 16, Length(text));
  MailboxFiles::SetWord(expected, 22, Length(text) - Length(header));
  expected.replace(26, 32, date, 0, 32).replace(122, 64, from).replace(186, 64, subject, 0, 64);
  EXPECT_EQ(index.substr(kSize), expected);
  // Neither a subject nor a date: the key of the empty text, the largest there is.
  EXPECT_EQ(MailboxFiles::Word(index, 0), 0xFFFFFFFFu);
  EXPECT_EQ(MailboxFiles::Word(index, 4), kSize);
  EXPECT_EQ(MailboxFiles::Word(index, 8), 0u);
  EXPECT_EQ(Listed(), (std::vector<PLXUInt32>{0, Length(text) - Length(header)}));
}

TEST_F(Mailbox, HeadersAreFoundByTheirBeginning) {
  struct Row {
    char const* why;
    char const* lines;
    char const* value;
  };
  Row const rows[] = {{"letter case does not count", "dAtE: 1\r\nDate: 2", "1"},
                      {"the line's name may go on", "Dated: 1\r\nDate: 2", "1"},
                      {"blanks before the value go, behind it they stay", "Date: \t \n1 ", "1 "},
                      {"a value may have colons", "Date:1:2", "1:2"},
                      {"a line without a colon has no value", "Date\r\nDate: 2", ""},
                      {"folded lines are not joined", "Date:\r\n 1", ""},
                      {"none", "X-Date: 1", ""},
                      {"no lines", "", ""}};
  for (Row const& row : rows) {
    SCOPED_TRACE(row.why);
    PLXTokenizedString const lines(PLXString(row.lines), "\r\n");
    EXPECT_STREQ(EmailClient_Mailbox::GetHeader(lines, "Date").GetCStringAccess(), row.value);
  }
}

TEST_F(Mailbox, TheFirstOfMessagesWithOneKeyStays) {
  EXPECT_EQ(Add("Subject: Hello\r\nDate: Monday\r\n\r\nfirst"), Outcome::Done);
  std::string const index = Index();
  EXPECT_EQ(Add("Subject: Hello\r\nDate: Monday\r\n\r\nfirst"), Outcome::Duplicate);
  EXPECT_EQ(Add("From: x\r\nDATE: MONDAY\r\nSUBJECT: HELLO\r\n\r\nsecond"), Outcome::Duplicate);
  EXPECT_EQ(Index(), index);
  EXPECT_EQ(Texts(), "Subject: Hello\r\nDate: Monday\r\n\r\nfirst");
  EXPECT_EQ(AddAll(0, 300), (std::map<Outcome, int>{{Outcome::Done, 300}}));
  EXPECT_EQ(AddAll(0, 300), (std::map<Outcome, int>{{Outcome::Duplicate, 300}}));
}

// The tree must be the one that walking down from the root makes, whatever finds the place.
TEST_F(Mailbox, TreeIsThatOfWalkingDownFromTheRoot) {
  ASSERT_EQ(AddAll(0, 1000), (std::map<Outcome, int>{{Outcome::Done, 1000}}));
  MailboxFiles walked = Files();
  walked.MendLinks();
  EXPECT_EQ(Index(), walked.index);
}

std::uint64_t BytesReadByThisThread() {
  std::ifstream counters("/proc/thread-self/io");
  std::string name;
  std::uint64_t value = 0;
  counters >> name >> value;
  return value;
}

TEST_F(Mailbox, AscendingKeysAreReadOnce) {
  constexpr std::size_t kCount = 50000;
  std::map<std::uint32_t, std::string> subjects;  // by key
  for (int number = 0; subjects.size() < kCount; ++number) {
    subjects[KeyOf(std::to_string(number))] = std::to_string(number);
  }
  EmailClient_Mailbox mailbox(At("in.idx"), At("in.mbx"));
  ASSERT_EQ(mailbox.Open(kPLXFilePermission_ReadWrite), Outcome::Done);
  std::uint64_t const before = BytesReadByThisThread();
  for (auto const& [key, subject] : subjects) {
    ASSERT_EQ(mailbox.Add(("Subject: " + subject).c_str()), Outcome::Done);
  }
  std::uint64_t const added = BytesReadByThisThread();
  EXPECT_LT(added - before, 100000u);
  // Another object reads the index and not the tree.
  ASSERT_EQ(Add("Subject: " + subjects.rbegin()->second), Outcome::Duplicate);
  EXPECT_LT(BytesReadByThisThread() - added, kCount * kSize + 100000);
  EXPECT_EQ(Listed().size(), kCount);

  std::string const index = Index();
  for (std::size_t record = 0; record < kCount; ++record) {
    bool const isLast = record == kCount - 1;
    ASSERT_EQ(MailboxFiles::Word(index, record * kSize + 4), 0u);
    ASSERT_EQ(MailboxFiles::Word(index, record * kSize + 8), isLast ? 0u : (record + 1) * kSize);
  }
}

// ---- What cannot be stored ----

TEST_F(Mailbox, OffsetsBeyondThirtyTwoBitsAreRefused) {
  struct Row {
    char const* why;
    char const* file;
    std::uint64_t size;
    Outcome outcome;
  };
  std::uint64_t const longest = PLXFile::kLongestFile;
  Row const rows[] = {{"a text that just fits", "in.mbx", longest - Message(0).size(), Outcome::Done},
                      {"a text one byte too long", "in.mbx", longest - Message(0).size() + 1, Outcome::Full},
                      {"messages beyond all offsets", "in.mbx", longest + 1, Outcome::Full},
                      {"an index beyond all offsets", "in.idx", longest + 1, Outcome::Full}};
  for (Row const& row : rows) {
    SCOPED_TRACE(row.why);
    fs::resize_file(myFolder.Write("in.idx", ""), 0);
    fs::resize_file(myFolder.Write("in.mbx", ""), 0);
    fs::resize_file(myFolder / row.file, row.size);
    EXPECT_EQ(Add(Message(0)), row.outcome);
    EXPECT_EQ(fs::file_size(myFolder / "in.idx") == kSize, row.outcome == Outcome::Done);
  }
}

TEST_F(Mailbox, FilesThatCannotBeOpenedAreUnusable) {
  EmailClient_Mailbox closed(At("in.idx"), At("in.mbx"));
  EXPECT_EQ(closed.Add("text"), Outcome::Unusable);
  ASSERT_EQ(closed.Open(kPLXFilePermission_ReadOnly), Outcome::Done);
  EXPECT_EQ(closed.Add("text"), Outcome::Unusable);
  fs::remove(myFolder / "in.mbx");
  EXPECT_EQ(Add("text"), Outcome::Unusable);
  EXPECT_EQ(Index(), "");
}

// Runs `action_i` in a process of its own in which no file can grow beyond `limit_i` bytes. Returns how the
// process ended.
template <typename Action>
int InProcessWithLimit(rlim_t limit_i, bool isFullDisk_i, Action const& action_i) {
  pid_t const child = fork();
  if (child == 0) {
    rlimit const none{0, 0};
    rlimit const limit{limit_i, limit_i};
    setrlimit(RLIMIT_CORE, &none);
    signal(SIGXFSZ, isFullDisk_i ? SIG_IGN : SIG_DFL);
    setrlimit(RLIMIT_FSIZE, &limit);
    action_i();
    _exit(0);
  }
  int status = 0;
  waitpid(child, &status, 0);
  return status;
}

TEST_F(Mailbox, AFullDiskLeavesTheMailboxAsItWas) {
  ASSERT_EQ(AddAll(0, 3), (std::map<Outcome, int>{{Outcome::Done, 3}}));
  std::string const index = Index();
  std::string const texts = Texts();
  std::size_t const limits[] = {index.size(), index.size() + 1, index.size() + kSize - 1, 0};
  for (std::size_t limit : limits) {
    SCOPED_TRACE(limit);
    int const status = InProcessWithLimit(limit, true, [&] {
      _exit(AddAll(3, 4) == std::map<Outcome, int>{{Outcome::Unusable, 1}} ? 7 : 1);
    });
    EXPECT_EQ(WEXITSTATUS(status), 7);
    EXPECT_EQ(Index(), index);
    EXPECT_EQ(Texts(), texts);
  }
}

// ---- Damage ----

TEST_F(Mailbox, DamagedIndexesAreMendedAndLoseNothing) {
  struct Row {
    char const* why;
    void (*damage)(std::string&, std::size_t);  // at each record
  };
  constexpr std::uint32_t kRecords = 40;
  Row const rows[] = {
      {"the last record without the link to it",
       [](std::string& index_io, std::size_t at) {
         for (std::size_t const link : {at + 4, at + 8}) {
           if (MailboxFiles::Word(index_io, link) == (kRecords - 1) * kSize)
             index_io.replace(link, 4, 4, '\0');
         }
       }},
      {"no links", [](std::string& index_io, std::size_t at) { index_io.replace(at + 4, 8, 8, '\0'); }},
      {"a circle through the second record",
       [](std::string& index_io, std::size_t at) { index_io.replace(at + 4, 8, "\0\1\0\0\0\1\0\0", 8); }},
      {"links beyond the end",
       [](std::string& index_io, std::size_t at) { index_io.replace(at + 4, 8, 8, '\xFF'); }},
      {"links into the middle of records",
       [](std::string& index_io, std::size_t at) { index_io.replace(at + 4, 8, 8, '\x01'); }},
      {"part of a record", [](std::string& index_io, std::size_t at) {
         if (at == 0) index_io.append(255, '\x05');
       }}};
  for (Row const& row : rows) {
    SCOPED_TRACE(row.why);
    myFolder.Write("in.idx", "");
    myFolder.Write("in.mbx", "");
    ASSERT_EQ(AddAll(0, kRecords), (std::map<Outcome, int>{{Outcome::Done, kRecords}}));
    std::string damaged = Index();
    for (std::size_t at = 0; at < kRecords * kSize; at += kSize) row.damage(damaged, at);
    myFolder.Write("in.idx", damaged);
    EXPECT_EQ(Listed().size(), kRecords);
    EXPECT_EQ(AddAll(0, kRecords + 1),
              (std::map<Outcome, int>{{Outcome::Done, 1}, {Outcome::Duplicate, kRecords}}));
    ExpectExactly(0, kRecords + 1);
  }
}

TEST_F(Mailbox, RecordsWithoutTheirTextAreSkippedAndTheirMessagesStoredAgain) {
  ASSERT_EQ(AddAll(0, 5), (std::map<Outcome, int>{{Outcome::Done, 5}}));
  std::string const index = Index();
  std::size_t const length = Message(0).size();
  fs::resize_file(myFolder / "in.mbx", 3 * length + 1);
  EXPECT_EQ(Listed().size(), 3u);
  for (std::map<Outcome, int> const& expected :
       {std::map<Outcome, int>{{Outcome::Done, 2}, {Outcome::Duplicate, 3}}, {{Outcome::Duplicate, 5}}}) {
    EXPECT_EQ(AddAll(0, 5), expected);
    EXPECT_EQ(Listed().size(), 5u);
    ExpectExactly(0, 5);
  }
  // Every byte of a record in turn, all bits of it, whatever it does to the record itself.
  for (std::size_t at = 0; at < kSize; ++at) {
    std::string damaged = index;
    damaged[2 * kSize + at] = static_cast<char>(~damaged[2 * kSize + at]);
    myFolder.Write("in.idx", damaged);
    EXPECT_GE(Listed().size(), 2u) << at;
    AddAll(0, 6);
    EXPECT_EQ(AddAll(0, 6), (std::map<Outcome, int>{{Outcome::Duplicate, 6}})) << at;
  }
}

// One mailbox learns of the loss, another repairs it, and new texts come where the lost ones were.
TEST_F(Mailbox, ALostTextIsNeitherStoredTwiceNorReplacedByAnother) {
  ASSERT_EQ(AddAll(0, 5), (std::map<Outcome, int>{{Outcome::Done, 5}}));
  fs::resize_file(myFolder / "in.mbx", 3 * Message(0).size() + 1);
  EmailClient_Mailbox early(At("in.idx"), At("in.mbx"));
  ASSERT_EQ(early.Open(kPLXFilePermission_ReadWrite), Outcome::Done);
  ASSERT_EQ(early.Add(Message(0).c_str()), Outcome::Duplicate);
  std::string const links = Index().substr(3 * kSize + 4, 8);
  ASSERT_EQ(Add(Message(3)), Outcome::Done);
  EXPECT_EQ(Index().substr(3 * kSize + 4, 8), links);
  EXPECT_EQ(early.Add(Message(3).c_str()), Outcome::Duplicate);
  EXPECT_EQ(early.Add((Message(5) + Message(5)).c_str()), Outcome::Done);
  EXPECT_EQ(Listed().size(), 5u);
  EXPECT_EQ(early.Add(Message(4).c_str()), Outcome::Done);
  EXPECT_EQ(AddAll(0, 6), (std::map<Outcome, int>{{Outcome::Duplicate, 6}}));
  for (int number = 0; number < 5; ++number) {
    EXPECT_EQ(Files().Text(static_cast<std::size_t>(Files().Find(KeyOfMessage(number)))), Message(number));
  }
}

// ---- Death and company ----

// A death at every byte of the files' growth: the limit lets a write come so far and then kills.
TEST_F(Mailbox, ADeathAtAnyByteLosesAtMostTheMessageBeingAdded) {
  for (rlim_t limit = 0; limit < 6 * kSize; limit += 13) {
    SCOPED_TRACE(limit);
    myFolder.Write("in.idx", "");
    myFolder.Write("in.mbx", "");
    int const status = InProcessWithLimit(limit, false, [&] { AddAll(0, 20); });
    ASSERT_TRUE(WIFSIGNALED(status));
    std::size_t const stored = Index().size() / kSize;
    EXPECT_EQ(Listed().size(), stored);
    EXPECT_EQ(AddAll(0, 20)[Outcome::Duplicate], static_cast<int>(stored));
    ExpectExactly(0, 20);
  }
}

TEST_F(Mailbox, NothingAcknowledgedIsLostToAKill) {
  int next = 0;
  for (unsigned round = 0; round < 60; ++round) {
    int channel[2];
    ASSERT_EQ(pipe(channel), 0);
    pid_t const child = fork();
    if (child == 0) {
      EmailClient_Mailbox mailbox(At("in.idx"), At("in.mbx"));
      bool isFine = mailbox.Open(kPLXFilePermission_ReadWrite) == Outcome::Done;
      for (int number = next; isFine; ++number) {
        isFine = mailbox.Add(Message(number).c_str()) == Outcome::Done && write(channel[1], "", 1) == 1;
      }
      _exit(1);
    }
    close(channel[1]);
    int acknowledged = 0;
    char sign;
    // Once it works it is killed in the midst, wherever that is.
    int const enough = static_cast<int>(round % 7) + 1;
    while (acknowledged < enough && read(channel[0], &sign, 1) == 1) ++acknowledged;
    usleep(round * 37 % 500);
    kill(child, SIGKILL);
    while (read(channel[0], &sign, 1) == 1) ++acknowledged;
    close(channel[0]);
    int status = 0;
    waitpid(child, &status, 0);
    ASSERT_TRUE(WIFSIGNALED(status)) << "an add failed";

    int const stored = static_cast<int>(Index().size() / kSize);
    EXPECT_GE(stored, next + acknowledged);
    EXPECT_LE(stored, next + acknowledged + 1);
    next = stored;
  }
  EXPECT_EQ(AddAll(0, next + 1), (std::map<Outcome, int>{{Outcome::Duplicate, next}, {Outcome::Done, 1}}));
  ExpectExactly(0, next + 1);
}

TEST_F(Mailbox, MailboxesThatAreOpenSeeWhatOthersAdd) {
  EmailClient_Mailbox one(At("in.idx"), At("in.mbx"));
  EmailClient_Mailbox other(At("in.idx"), At("in.mbx"));
  ASSERT_EQ(one.Open(kPLXFilePermission_ReadWrite), Outcome::Done);
  ASSERT_EQ(other.Open(kPLXFilePermission_ReadWrite), Outcome::Done);
  for (int number = 0; number < 100; ++number) {
    EmailClient_Mailbox& first = number % 3 == 0 ? one : other;
    EmailClient_Mailbox& second = number % 3 == 0 ? other : one;
    ASSERT_EQ(first.Add(Message(number).c_str()), Outcome::Done);
    if (number % 2 == 0) {
      ASSERT_EQ(second.Add(Message(number).c_str()), Outcome::Duplicate);
    }
  }
  ExpectExactly(0, 100);
}

TEST_F(Mailbox, AddsAtTheSameTimeStoreEachMessageOnceAndWhole) {
  constexpr int kMessages = 400;
  std::map<Outcome, int> outcomes[4];
  std::vector<std::thread> threads;
  for (auto& outcome : outcomes) threads.emplace_back([&] { outcome = AddAll(0, kMessages); });
  for (std::thread& thread : threads) thread.join();
  int added = 0;
  int kept = 0;
  for (auto& outcome : outcomes) {
    added += outcome[Outcome::Done];
    kept += outcome[Outcome::Duplicate];
  }
  EXPECT_EQ(added, kMessages);
  EXPECT_EQ(kept, 3 * kMessages);
  ExpectExactly(0, kMessages);
}

}  // namespace
