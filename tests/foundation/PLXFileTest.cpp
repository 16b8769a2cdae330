#include <atomic>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <signal.h>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "FoundationPrinters.h"
#include "PLXFile.h"
#include "PLXFileStream.h"
#include "PLXFolderSpecification.h"
#include "PLXTextFile.h"
#include "TemporaryFolder.h"

namespace {

namespace fs = std::filesystem;

class File : public testing::Test {
 protected:
  PLXFileSpecification At(std::string const& name_i) const {
    return PLXFileSpecification(PLXString((myFolder / name_i).c_str()));
  }
  PLXFileSpecification With(std::string const& text_i) const {
    myFolder.Write("file", text_i);
    return At("file");
  }
  std::string Content(std::string const& name_i = "file") const { return myFolder.Read(name_i); }

  TemporaryFolder myFolder;
};

std::string ReadAt(PLXFile& file_io, PLXUInt32 offset_i, PLXUInt32 count_i) {
  std::string text(count_i, '?');
  text.resize(file_io.Read(offset_i, count_i, text.data()));
  return text;
}

// ---- Opening ----

TEST_F(File, IsCreatedOnceWithItsFolders) {
  PLXFile file(At("a/b/c.txt"));
  EXPECT_FALSE(file.Open(kPLXFilePermission_ReadWrite)) << "opening creates nothing";
  EXPECT_TRUE(file.Create());
  EXPECT_FALSE(file.IsOpen());
  myFolder.Write("a/b/c.txt", "text");
  EXPECT_FALSE(file.Create());
  EXPECT_EQ(Content("a/b/c.txt"), "text");

  fs::create_symlink("nothing", myFolder / "dangling");
  for (char const* name : {"a", "a/", "new/", "a/b/c.txt/below", "dangling"}) {
    EXPECT_FALSE(PLXFile(At(name)).Create()) << name;
  }
  EXPECT_FALSE(fs::exists(myFolder / "nothing"));
  EXPECT_FALSE(fs::exists(myFolder / "new"));
  EXPECT_TRUE(PLXFile(At(std::string(255, 'n'))).Create());
  EXPECT_FALSE(PLXFile(At(std::string(256, 'n'))).Create());
  EXPECT_FALSE(PLXFile(PLXFileSpecification(PLXString("x\0y", 3))).Create());
}

TEST_F(File, OpensOnlyRegularFilesOfAPossibleLength) {
  ASSERT_EQ(mkfifo((myFolder / "pipe").c_str(), 0600), 0);
  myFolder.MakeFolder("folder");
  myFolder.Write("long", "");
  fs::resize_file(myFolder / "long", std::uintmax_t{PLXFile::kLongestFile} + 1);
  for (char const* name : {"pipe", "folder", "long", "missing"}) {
    PLXFile file(At(name));
    EXPECT_FALSE(file.Open(kPLXFilePermission_ReadOnly)) << name;
    EXPECT_FALSE(file.Open(kPLXFilePermission_ReadWrite)) << name;
  }
}

TEST_F(File, AnswersNothingWhileClosed) {
  PLXTextFile file;
  char buffer[4] = {};
  PLXString line("old");
  EXPECT_EQ(file.Read(4, buffer), 0u);
  EXPECT_EQ(file.Write(4, buffer), 0u);
  EXPECT_EQ(file.GetSize(), 0u);
  EXPECT_FALSE(file.SetSize(0) || file.SetFilePosition(0) || file.Lock() || file.UnLock() || file.Flush() ||
               file.Synchronize() || file.Close() || file.WriteLine("x") || file.AppendLine("x") ||
               file.Truncate() || file.ReadLine(line));
  EXPECT_EQ(line, "");
}

// ---- Transfers ----

TEST_F(File, ReadsAndWritesWhereItIsTold) {
  PLXFile file(With("0123456789"));
  ASSERT_TRUE(file.Open(kPLXFilePermission_ReadWrite));
  EXPECT_EQ(ReadAt(file, 2, 3), "234");
  EXPECT_EQ(file.GetFilePosition(), 5u);
  char next[2];
  EXPECT_EQ(file.Read(2, next), 2u);
  EXPECT_EQ(std::string(next, 2), "56");
  EXPECT_EQ(file.Write(2, "ab"), 2u);
  EXPECT_EQ(Content(), "0123456ab9") << "at once, for everybody";
  EXPECT_EQ(ReadAt(file, 8, 10), "b9");
  EXPECT_EQ(ReadAt(file, 10, 1), "");
  EXPECT_EQ(ReadAt(file, 0xFFFFFFFF, 1), "");
  EXPECT_EQ(file.Write(12, 1, "z"), 1u);
  EXPECT_EQ(file.GetSize(), 13u);
  EXPECT_EQ(Content(), std::string("0123456ab9\0\0z", 13));
  EXPECT_TRUE(file.SetSize(3));
  EXPECT_EQ(Content(), "012");

  ASSERT_TRUE(file.Open(kPLXFilePermission_ReadOnly));
  EXPECT_EQ(file.GetFilePosition(), 0u);
  EXPECT_EQ(file.Write(1, "x"), 0u);
  EXPECT_FALSE(file.SetSize(0));
  EXPECT_FALSE(file.Lock());
}

TEST_F(File, EndsAtTheLongestLength) {
  PLXFile file(With(""));
  ASSERT_TRUE(file.Open(kPLXFilePermission_ReadWrite));
  EXPECT_FALSE(file.SetSize(PLXFile::kLongestFile + 1));
  EXPECT_EQ(file.Write(PLXFile::kLongestFile - 2, 4, "abcd"), 2u);
  EXPECT_EQ(file.Write(4, "efgh"), 0u);
  EXPECT_EQ(file.Write(0xFFFFFFFF, 1, "x"), 0u);
  EXPECT_EQ(file.GetSize(), PLXFile::kLongestFile);
  EXPECT_EQ(ReadAt(file, PLXFile::kLongestFile - 2, 9), "ab");
}

// ---- Locks ----

TEST_F(File, LocksBetweenThreads) {
  With("0");
  std::vector<std::thread> threads;
  for (int index = 0; index < 4; ++index) {
    threads.emplace_back([this] {
      PLXTextFile file;
      ASSERT_TRUE(file.Open(At("file"), kPLXFilePermission_ReadWrite));
      for (int round = 0; round < 100; ++round) {
        ASSERT_TRUE(file.Lock());
        file.SetFilePosition(0);
        int const number = std::stoi(file.ReadLine().GetCStringAccess());
        file.SetFilePosition(0);
        file.WriteLine(std::to_string(number + 1).c_str());
        ASSERT_TRUE(file.UnLock());
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(Content(), "400\n") << "nothing read before the lock, or kept back behind it";
}

// ---- Lines ----

TEST_F(File, ReadsLinesOfEveryKind) {
  struct Row {
    char const* why;
    std::string text;
    std::vector<std::string> lines;
  };
  std::string const nearlyABlock(65535, 'x');
  Row const rows[] = {
      {"mixed", "one\r\ntwo\nthree", {"one", "two", "three"}},
      {"empty ones", "\n\r\n\r\r\n", {"", "", "", ""}},
      {"line feed before carriage return", "a\n\rb", {"a", "", "b"}},
      {"a zero byte", std::string("a\0b\n", 4), {std::string("a\0b", 3)}},
      {"nothing", "", {}},
      {"a pair cut by the end of a block", nearlyABlock + "\r\nb", {nearlyABlock, "b"}},
      {"a carriage return alone there", nearlyABlock + "\rb", {nearlyABlock, "b"}},
      {"the last byte", nearlyABlock + "\r", {nearlyABlock}},
      {"a line of several blocks", std::string(300000, 'y') + "\nb\n", {std::string(300000, 'y'), "b"}},
  };
  for (Row const& row : rows) {
    SCOPED_TRACE(row.why);
    PLXTextFile file;
    ASSERT_TRUE(file.Open(With(row.text), kPLXFilePermission_ReadOnly));
    std::vector<std::string> lines;
    for (PLXString line; file.ReadLine(line);) lines.emplace_back(line.GetCStringAccess(), line.GetLength());
    EXPECT_EQ(lines, row.lines);
    EXPECT_EQ(file.GetFilePosition(), row.text.size());
    EXPECT_EQ(file.ReadLine(), "");
  }
}

TEST_F(File, WritesAndAppendsLinesInAnyOrderWithEverythingElse) {
  // A twin in memory does the same.
  std::mt19937 random(5);
  std::string twin;
  std::size_t position = 0;
  PLXTextFile file;
  ASSERT_TRUE(file.Create(At("file")));
  ASSERT_TRUE(file.Open(At("file"), kPLXFilePermission_ReadWrite));
  auto const put = [&](std::string const& text_i) {
    twin.resize(std::max(twin.size(), position));
    twin.replace(position, text_i.size(), text_i);
    position += text_i.size();
  };
  for (int round = 0; round < 5000; ++round) {
    std::string const text(random() % 400 == 0 ? 70000 : random() % 40, static_cast<char>('a' + round % 26));
    PLXString const line(text.data(), static_cast<PLXUInt32>(text.size()));
    switch (random() % 8) {
      case 0: {
        position = random() % (twin.size() + 10);
        ASSERT_TRUE(file.SetFilePosition(static_cast<PLXUInt32>(position)));
        break;
      }
      case 1: {
        std::size_t const end = position < twin.size() ? twin.find('\n', position) : twin.npos;
        std::string const expected = position < twin.size() ? twin.substr(position, end - position) : "";
        PLXString const got = file.ReadLine();
        ASSERT_EQ(std::string(got.GetCStringAccess(), got.GetLength()), expected);
        if (position < twin.size()) position = end == twin.npos ? twin.size() : end + 1;
        break;
      }
      case 2: {
        ASSERT_EQ(file.GetSize(), twin.size());
        ASSERT_EQ(file.Write(line.GetLength(), text.data()), text.size());
        if (!text.empty()) put(text);
        break;
      }
      case 3:
      case 4:
        ASSERT_TRUE(file.AppendLine(line));
        position = twin.size();
        put(text + "\n");
        break;
      default:
        ASSERT_TRUE(file.WriteLine(line, round % 2 == 0));
        if (!text.empty() || round % 2 == 0) put(text + (round % 2 == 0 ? "\n" : ""));
    }
    ASSERT_EQ(file.GetFilePosition(), position);
  }
  EXPECT_TRUE(file.Close());
  EXPECT_EQ(Content(), twin);
  ASSERT_TRUE(file.Open(At("file"), kPLXFilePermission_ReadWrite));
  EXPECT_TRUE(file.Truncate());
  EXPECT_EQ(Content(), "");
}

TEST_F(File, LosesNoLineThatSeveralAppend) {
  With("");
  std::vector<std::thread> threads;
  for (char letter = 'a'; letter < 'e'; ++letter) {
    threads.emplace_back([this, letter] {
      PLXTextFile file;
      ASSERT_TRUE(file.Open(At("file"), kPLXFilePermission_ReadWrite));
      for (int round = 0; round < 3000; ++round) ASSERT_TRUE(file.AppendLine(PLXString(letter, 60)));
      EXPECT_TRUE(file.Close());
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(fs::file_size(myFolder / "file"), 4u * 3000u * 61u);
}

// Limits the length of files of this process while it lives, as a full disk does.
class FullDisk {
 public:
  explicit FullDisk(rlim_t bytes_i) {
    signal(SIGXFSZ, SIG_IGN);
    getrlimit(RLIMIT_FSIZE, &myBefore);
    rlimit const limit{bytes_i, myBefore.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~FullDisk() { setrlimit(RLIMIT_FSIZE, &myBefore); }

 private:
  rlimit myBefore;
};

TEST_F(File, TellsWhenTheDiskIsFull) {
  With("old");
  FullDisk const disk(10);
  PLXFile file(At("file"));
  ASSERT_TRUE(file.Open(kPLXFilePermission_ReadWrite));
  EXPECT_EQ(file.Write(8, 5, "abcde"), 2u);
  EXPECT_EQ(file.GetFilePosition(), 10u);
  EXPECT_TRUE(file.Close());

  PLXTextFile text;
  ASSERT_TRUE(text.Open(At("file"), kPLXFilePermission_ReadWrite));
  EXPECT_TRUE(text.AppendLine("held back"));
  EXPECT_FALSE(text.Flush());
  EXPECT_FALSE(text.AppendLine("more")) << "what is lost stays lost";
  EXPECT_FALSE(text.Close());
  ASSERT_TRUE(text.Open(At("file"), kPLXFilePermission_ReadWrite));
  EXPECT_TRUE(text.Close());

  EXPECT_FALSE(PLXFile::WriteWhole(At("file"), "eleven byte", PLXFile::kReplaceExistingFile));
  EXPECT_EQ(Content(), std::string("old\0\0\0\0\0ab", 10));
  EXPECT_EQ(std::distance(fs::directory_iterator(myFolder.Path()), {}), 1) << "nothing temporary is left";
}

// ---- Streams ----

TEST_F(File, StreamsInBlocksOfAnySize) {
  std::string text(1000, '\0');
  for (std::size_t index = 0; index < text.size(); ++index) text[index] = static_cast<char>(index * 7);
  With(text);
  for (PLXUInt32 const blockSize : {0u, 1u, 7u, 999u, 1000u, 4096u}) {
    SCOPED_TRACE(blockSize);
    PLXFileStream stream(At("file"), blockSize);
    std::string got;
    for (PLXUInt32 step = 0; got.size() < text.size(); ++step) {
      EXPECT_EQ(stream.GetExpectedByteCount(), text.size() - got.size());
      PLXUInt8 bytes[64];
      PLXUInt32 const count = step % 3 == 0 ? (stream.GetNextByte(bytes[0]) ? 1 : 0)
                                            : stream.GetNextBytes(bytes, step % sizeof bytes);
      ASSERT_GT(count, 0u);
      got.append(reinterpret_cast<char*>(bytes), count);
    }
    PLXUInt8 byte = 0;
    EXPECT_FALSE(stream.GetNextByte(byte));
    EXPECT_EQ(stream.GetNextBytes(&byte, 1), 0u);
    EXPECT_EQ(got, text);
  }
  PLXFileStream missing(At("missing"));
  PLXUInt8 byte = 0;
  EXPECT_FALSE(missing.IsOpen() || missing.GetNextByte(byte));
  EXPECT_DEATH(PLXFileStream(static_cast<PLXFile*>(nullptr)),
               "\tFILE: \"src/PLXFileStream.cpp\"\nNULL POINTER ASSERTION: myFile\n");
}

// ---- Whole files ----

TEST_F(File, IsReplacedOrKeptWhole) {
  PLXFileSpecification const file = With("old");
  fs::permissions(myFolder / "file", fs::perms(0600));
  EXPECT_FALSE(PLXFile::WriteWhole(file, "new", PLXFile::kKeepExistingFile));
  EXPECT_EQ(Content(), "old");
  EXPECT_TRUE(PLXFile::WriteWhole(file, "new", PLXFile::kReplaceExistingFile));
  EXPECT_EQ(Content(), "new");
  EXPECT_EQ(fs::status(myFolder / "file").permissions(), fs::perms(0600));
  std::string const longest(255, 'n');
  EXPECT_TRUE(PLXFile::WriteWhole(At(longest), PLXString("a\0b", 3), PLXFile::kKeepExistingFile));
  EXPECT_EQ(Content(longest), std::string("a\0b", 3));

  myFolder.MakeFolder("folder");
  fs::create_symlink("file", myFolder / "link");
  for (char const* name : {"folder", "missing/file", "folder/", "folder/.", "file/below"}) {
    EXPECT_FALSE(PLXFile::WriteWhole(At(name), "x", PLXFile::kReplaceExistingFile)) << name;
  }
  EXPECT_FALSE(PLXFile::WriteWhole(At("link"), "x", PLXFile::kKeepExistingFile));
  EXPECT_TRUE(PLXFile::WriteWhole(At("link"), "x", PLXFile::kReplaceExistingFile));
  EXPECT_EQ(Content(), "new");
  EXPECT_EQ(std::distance(fs::directory_iterator(myFolder.Path()), {}), 4) << "nothing temporary is left";
}

TEST_F(File, GoesToOneOfManyWhoWantTheName) {
  std::atomic<int> winners = 0;
  std::vector<std::thread> threads;
  for (char letter = 'a'; letter < 'i'; ++letter) {
    threads.emplace_back([this, letter, &winners] {
      winners += PLXFile::WriteWhole(At("file"), PLXString(letter, 10), PLXFile::kKeepExistingFile) ? 1 : 0;
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(winners, 1);
  EXPECT_EQ(Content(), std::string(10, Content()[0]));
}

TEST_F(File, SurvivesDeathWhole) {
  With(std::string(100000, 'a'));
  for (useconds_t delay = 0; delay < 6000; delay += 300) {
    pid_t const child = fork();
    if (child == 0) {
      for (char letter = 'a';; letter = letter == 'z' ? 'a' : static_cast<char>(letter + 1)) {
        PLXFile::WriteWhole(At("file"), PLXString(letter, 100000), PLXFile::kReplaceExistingFile);
      }
    }
    usleep(delay);
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    std::string const content = Content();
    ASSERT_EQ(content, std::string(100000, content[0]));
  }
}

}  // namespace
