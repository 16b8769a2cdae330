#include <chrono>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <thread>

#include "PLXLog.h"
#include "PLXLogTail.h"
#include "TemporaryFolder.h"

using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;

namespace {

class PLXLogFiles : public testing::Test {
 protected:
  PLXLogFiles() { PLXLog::Open({folder / "log", false, 1u << 20, 2}); }
  ~PLXLogFiles() override { PLXLog::Close(); }

  TemporaryFolder folder;
};

}  // namespace

TEST_F(PLXLogFiles, WritesALineWithDateTimeAndLevelAtOnce) {
  PLXLog::Note("started");
  PLXLog::Warning("careful");
  PLXLog::Error("wrong");
  PLXLog::Failure("over");
  std::string const stamp = "[0-9]+-[0-9]+-[0-9]+ [0-9]+:[0-9]+:[0-9]+\\.[0-9][0-9][0-9] ";
  EXPECT_THAT(folder.Read("log/server.log"),
              MatchesRegex(stamp + "note started\n" + stamp + "warning careful\n" + stamp + "error wrong\n" +
                           stamp + "failure over\n"));
}

TEST_F(PLXLogFiles, WritesNoLineThatAStrangerForged) {
  using std::string_literals::operator""s;
  std::string const forged = "a\r\n2026-01-01 note b\0\x1B[2J\t\x7F \xC3\xA4\xFF {} %s"s;
  std::string const shown = "a\\r\\n2026-01-01 note b\\x00\\x1b[2J\\x09\\x7f \xC3\xA4\xFF {} %s";
  PLXLog::Note(forged);
  PLXLog::Access(forged);
  PLXLog::Trace(forged);
  PLXLog::Close();
  EXPECT_THAT(folder.Read("log/server.log"), EndsWith(" note " + shown + "\n"));
  EXPECT_EQ(folder.Read("log/access.log"), shown + "\n") << "its callers bring the time";
  EXPECT_THAT(folder.Read("log/trace.log"), EndsWith(" " + shown + "\n"));
  for (char const* const file : {"log/server.log", "log/access.log", "log/trace.log"}) {
    std::string const text = folder.Read(file);
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1) << file;
  }
}

TEST_F(PLXLogFiles, BringsAccessLinesToTheDiskByItself) {
  PLXLog::Access("GET /");
  auto const until = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (folder.Read("log/access.log").empty() && std::chrono::steady_clock::now() < until)
    std::this_thread::yield();
  EXPECT_THAT(folder.Read("log/access.log"), EndsWith("GET /\n"));
}

TEST_F(PLXLogFiles, RotatesAndReopens) {
  PLXLog::Open({folder / "small", false, 1000, 2});
  for (int line = 0; line < 100; ++line) PLXLog::Note(std::string(90, 'x'));
  EXPECT_TRUE(std::filesystem::exists(folder / "small/server.2.log"));
  EXPECT_FALSE(std::filesystem::exists(folder / "small/server.3.log"));
  EXPECT_LE(std::filesystem::file_size(folder / "small/server.log"), 1000u);

  std::filesystem::rename(folder / "small/server.log", folder / "small/moved.log");
  PLXLog::Open({folder / "small", false, 1000, 2});
  PLXLog::Note("after");
  EXPECT_THAT(folder.Read("small/server.log"), EndsWith("note after\n"));
}

TEST_F(PLXLogFiles, StaysWithTheOldFilesWhenTheNewOnesCannotBeWritten) {
  folder.Write("file", "");
  try {
    PLXLog::Open({folder / "file", false, 1000, 2});
    ADD_FAILURE() << "was opened";
  } catch (std::runtime_error const& error) {
    EXPECT_THAT(error.what(), HasSubstr("The logs cannot be written to " + (folder / "file").string()));
  }
  PLXLog::Note("still here");
  EXPECT_THAT(folder.Read("log/server.log"), EndsWith("note still here\n"));
}

TEST_F(PLXLogFiles, LosesNoLineOfManyThreadsAndReopenings) {
  {
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < 4; ++thread) {
      threads.emplace_back([this] {
        for (int line = 0; line < 500; ++line) {
          PLXLog::Note("x");
          PLXLog::Access("y");
          ReadLogTail(folder / "log", {.log = "server", .lines = 3});
        }
      });
    }
    for (int time = 0; time < 10; ++time) PLXLog::Open({folder / "log", false, 1u << 20, 2});
  }
  PLXLog::Close();
  std::string const server = folder.Read("log/server.log");
  std::string const access = folder.Read("log/access.log");
  EXPECT_EQ(std::count(server.begin(), server.end(), '\n'), 2000);
  EXPECT_EQ(std::count(access.begin(), access.end(), '\n'), 2000);
}

// ---- The end of a log ----

TEST_F(PLXLogFiles, ReadsTheNewestLinesBackIntoRotatedFiles) {
  auto const line = [](int number_i, char const* level_i) {
    return "2026-11-24 01:02:03.004 " + std::string(level_i) + " number " + std::to_string(number_i) +
           std::string(number_i % 7 * 3000, 'x');
  };
  std::vector<std::string> written;
  std::string files[3];
  for (int number = 0; number < 300; ++number) {
    written.push_back(line(number, number % 10 == 0 ? "warning" : number % 25 == 1 ? "failure" : "note"));
    files[2 - number / 100] += written.back() + "\n";
  }
  files[0].pop_back();  // what is being written has no end yet
  folder.Write("tail/server.log", files[0]);
  folder.Write("tail/server.1.log", files[1]);
  folder.Write("tail/server.2.log", files[2]);

  struct Row {
    char const* why;
    PLXLogQuery query;
    std::function<bool(int)> isWanted;
  } const rows[] = {
      {"a few of the newest", {.log = "server", .lines = 3}, [](int) { return true; }},
      {"across the files", {.log = "server", .lines = 250}, [](int) { return true; }},
      {"all there are", {.log = "server", .lines = 1000}, [](int) { return true; }},
      {"warnings and worse",
       {.log = "server", .lines = 1000, .level = PLXLogLevel::kWarning},
       [](int number) { return number % 10 == 0 || number % 25 == 1; }},
      {"a text in any letters",
       {.log = "server", .lines = 1000, .text = "NUMBER 17"},
       [](int number) { return number == 17 || number / 10 == 17; }},
      {"none holds it", {.log = "server", .lines = 10, .text = "none"}, [](int) { return false; }},
  };
  for (Row const& row : rows) {
    SCOPED_TRACE(row.why);
    std::vector<std::string> expected;
    for (int number = 299; number >= 0 && expected.size() < row.query.lines; --number) {
      if (row.isWanted(number)) expected.insert(expected.begin(), written[number].substr(0, 4000));
    }
    PLXLogExcerpt const excerpt = ReadLogTail(folder / "tail", row.query);
    ASSERT_EQ(excerpt.lines.size(), expected.size());
    for (std::size_t index = 0; index < expected.size(); ++index)
      EXPECT_THAT(excerpt.lines[index], testing::StartsWith(expected[index]));
    EXPECT_EQ(excerpt.isWhole, expected.size() < row.query.lines);
  }
  EXPECT_FALSE(ReadLogTail(folder / "tail", {.log = "trace"}).isThere);
}

TEST_F(PLXLogFiles, ReadsABoundedEndOfALogWhateverItsLines) {
  folder.Write("long/access.log", std::string(40u << 20, 'x') + "\nlast\n");
  PLXLogExcerpt const excerpt = ReadLogTail(folder / "long", {.log = "access", .lines = 10});
  ASSERT_FALSE(excerpt.lines.empty());
  EXPECT_EQ(excerpt.lines.back(), "last");
  EXPECT_FALSE(excerpt.isWhole);
}
