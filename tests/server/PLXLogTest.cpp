#include <chrono>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <thread>

#include "PLXLog.h"
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
  auto const recent = PLXLog::Recent(2);
  ASSERT_EQ(recent.size(), 2u);
  EXPECT_THAT(recent[0], EndsWith(" error wrong"));
  EXPECT_THAT(folder.Read("log/server.log"), EndsWith(recent[0] + "\n" + recent[1] + "\n"));
  EXPECT_TRUE(PLXLog::Recent(0).empty());
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
      threads.emplace_back([] {
        for (int line = 0; line < 500; ++line) {
          PLXLog::Note("x");
          PLXLog::Access("y");
          PLXLog::Recent(3);
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
  EXPECT_EQ(PLXLog::Recent(10000).size(), 500u);
}
