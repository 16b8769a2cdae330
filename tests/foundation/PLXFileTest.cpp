#include <algorithm>
#include <csignal>
#include <filesystem>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "FoundationPrinters.h"
#include "PLXFileStream.h"
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
  std::string Content() const { return myFolder.Read("file"); }
  // More than expected when something temporary was left.
  auto NameCount() const { return std::distance(fs::directory_iterator(myFolder.Path()), {}); }
  // Runs `action_i` on an opened file of its own on each of four threads.
  template <typename Action>
  void OnFourThreads(Action const& action_i) {
    std::vector<std::thread> threads(4);
    for (std::thread& thread : threads) {
      thread = std::thread([&] {
        PLXTextFile file;
        ASSERT_TRUE(file.Open(At("file"), kPLXFilePermission_ReadWrite));
        for (int round = 0; round < 500; ++round) ASSERT_TRUE(action_i(file));
        EXPECT_TRUE(file.Close());
      });
    }
    for (std::thread& thread : threads) thread.join();
  }

  TemporaryFolder myFolder;
};

std::string ReadAt(PLXFile& file_io, PLXUInt32 offset_i, PLXUInt32 count_i) {
  std::string text(count_i, '?');
  text.resize(file_io.Read(offset_i, count_i, text.data()));
  return text;
}

TEST_F(File, IsCreatedOnceWithItsFolders) {
  EXPECT_FALSE(PLXFile(At("a/b/c")).Open(kPLXFilePermission_ReadWrite)) << "opening creates nothing";
  EXPECT_TRUE(PLXFile(At("a/b/c")).Create());
  fs::create_symlink("nothing", myFolder / "dangling");
  for (char const* name : {"a/b/c", "a", "a/", "new/", "a/b/c/below", "dangling"}) {
    EXPECT_FALSE(PLXFile(At(name)).Create()) << name;
  }
  EXPECT_EQ(NameCount(), 2);
  EXPECT_TRUE(PLXFile(At(std::string(255, 'n'))).Create());
  EXPECT_FALSE(PLXFile(At(std::string(256, 'n'))).Create());
  EXPECT_FALSE(PLXFile(PLXFileSpecification(PLXString("x\0y", 3))).Create());
}

TEST_F(File, OpensOnlyRegularFilesOfAPossibleLength) {
  ASSERT_EQ(mkfifo((myFolder / "pipe").c_str(), 0600), 0);
  fs::resize_file(myFolder.Write("long", ""), std::uintmax_t{PLXFile::kLongestFile} + 1);
  for (char const* name : {"pipe", ".", "long", "missing"}) {
    EXPECT_FALSE(PLXFile(At(name)).Open(kPLXFilePermission_ReadOnly)) << name;
    EXPECT_FALSE(PLXFile(At(name)).Open(kPLXFilePermission_ReadWrite)) << name;
  }
  PLXFile file(With(""));
  ASSERT_TRUE(file.Open(kPLXFilePermission_ReadWrite));
  EXPECT_EQ(file.Write(PLXFile::kLongestFile - 2, 4, "abcd"), 2u);
  EXPECT_EQ(ReadAt(file, PLXFile::kLongestFile - 2, 9), "ab");
  EXPECT_FALSE(file.Write(4, "efgh") > 0 || file.SetSize(PLXFile::kLongestFile + 1));
}

TEST_F(File, FillsGapsAndCutsUnlessReadOnly) {
  PLXFile file(With("0123456789"));
  ASSERT_TRUE(file.Open(kPLXFilePermission_ReadWrite));
  EXPECT_EQ(file.Write(12, 1, "z"), 1u);
  EXPECT_EQ(ReadAt(file, 8, 10), std::string("89\0\0z", 5));
  EXPECT_TRUE(file.SetSize(3));
  EXPECT_EQ(Content(), "012") << "at once, for everybody";
  ASSERT_TRUE(file.Open(kPLXFilePermission_ReadOnly));
  EXPECT_FALSE(file.Write(1, "x") > 0 || file.SetSize(0) || file.Lock());
}

TEST_F(File, KeepsThreadsApartByItsLock) {
  With("0");
  OnFourThreads([](PLXTextFile& file_io) {
    if (!file_io.Lock() || !file_io.SetFilePosition(0)) return false;
    int const number = std::stoi(file_io.ReadLine().GetCStringAccess());
    file_io.SetFilePosition(0);
    return file_io.WriteLine(std::to_string(number + 1).c_str()) && file_io.UnLock();
  });
  EXPECT_EQ(Content(), "2000\n") << "nothing read before the lock, or kept back behind it";
}

TEST_F(File, LosesNoLineThatSeveralAppendWithoutALock) {
  With("");
  OnFourThreads([](PLXTextFile& file_io) { return file_io.AppendLine(PLXString('x', 499)); });
  EXPECT_EQ(fs::file_size(myFolder / "file"), 4u * 500u * 500u);
}

TEST_F(File, ReadsLinesOfEveryKind) {
  std::string const block(65535, 'x');  // one byte less than is read at a time
  std::string const longLine(300000, 'y');
  std::pair<std::string, std::vector<std::string>> const rows[] = {
      {"one\r\ntwo\nthree", {"one", "two", "three"}},
      {"\n\r\n\r\r\n\n\r", std::vector<std::string>(6)},
      {std::string("a\0b\n", 4), {std::string("a\0b", 3)}},
      {block + "\r\nb", {block, "b"}},
      {block + "\rb", {block, "b"}},
      {block + "\r", {block}},
      {longLine + "\nb\n", {longLine, "b"}}};
  for (auto const& [text, expected] : rows) {
    PLXTextFile file;
    ASSERT_TRUE(file.Open(With(text), kPLXFilePermission_ReadOnly));
    std::vector<std::string> lines;
    for (PLXString line; file.ReadLine(line);) lines.emplace_back(line.GetCStringAccess(), line.GetLength());
    EXPECT_EQ(lines, expected);
    EXPECT_EQ(file.GetFilePosition(), text.size());
  }
}

TEST_F(File, MixesLinesWithEverythingElse) {
  std::mt19937 random(5);
  std::string twin;  // in memory, where the same is done
  std::size_t position = 0;
  PLXTextFile file;
  ASSERT_TRUE(file.Create(At("file")) && file.Open(At("file"), kPLXFilePermission_ReadWrite));
  for (int round = 0; round < 5000; ++round) {
    std::string text(random() % 400 == 0 ? 70000 : random() % 40 + 1, static_cast<char>('a' + round % 26));
    std::size_t const end = std::min(twin.find('\n', position), twin.size());
    auto const kind = random() % 6;
    if (kind == 0) {
      position = random() % (twin.size() + 1);
      ASSERT_TRUE(file.SetFilePosition(static_cast<PLXUInt32>(position)));
    } else if (kind == 1) {
      ASSERT_EQ(file.ReadLine(), twin.substr(position, end - position).c_str());
      position = std::min(end + 1, twin.size());
    } else {
      bool const appends = kind > 3;
      if (appends) position = twin.size();
      PLXString const line(text.c_str());
      ASSERT_TRUE(appends     ? file.AppendLine(line)
                  : kind == 3 ? file.WriteLine(line, false)
                              : file.Write(line.GetLength(), text.data()) == text.size());
      if (appends) text += '\n';
      twin.replace(position, text.size(), text);
      position += text.size();
    }
    ASSERT_EQ(file.GetFilePosition(), position);
  }
  EXPECT_EQ(file.GetSize(), twin.size());
  EXPECT_EQ(Content(), twin);
  EXPECT_TRUE(file.Truncate());
  EXPECT_EQ(Content(), "");
}

TEST_F(File, TellsWhenTheDiskIsFull) {
  // A limit on the length of files acts as a full disk does.
  signal(SIGXFSZ, SIG_IGN);
  rlimit before;
  getrlimit(RLIMIT_FSIZE, &before);
  rlimit const limit{10, before.rlim_max};
  PLXTextFile file;
  ASSERT_TRUE(file.Open(With("old"), kPLXFilePermission_ReadWrite));
  setrlimit(RLIMIT_FSIZE, &limit);
  EXPECT_EQ(file.Write(8, 5, "abcde"), 2u);
  EXPECT_TRUE(file.AppendLine("held back"));
  EXPECT_FALSE(file.Flush());
  EXPECT_FALSE(file.AppendLine("what is lost stays lost"));
  EXPECT_FALSE(file.Close());
  EXPECT_FALSE(PLXFile::WriteWhole(At("file"), "eleven byte", PLXFile::kReplaceExistingFile));
  setrlimit(RLIMIT_FSIZE, &before);
  EXPECT_EQ(Content(), std::string("old\0\0\0\0\0ab", 10));
  EXPECT_EQ(NameCount(), 1);
}

TEST_F(File, StreamsInBlocksOfAnySize) {
  std::string text;
  while (text.size() < 1000) text += static_cast<char>(text.size() * 7);
  With(text);
  for (PLXUInt32 const blockSize : {0u, 1u, 7u, 999u, 1000u, 4096u}) {
    PLXFileStream stream(At("file"), blockSize);
    PLXUInt8 bytes[64];
    std::string got;
    for (PLXUInt32 step = 1, count = 1; count > 0; ++step) {
      EXPECT_EQ(stream.GetExpectedByteCount(), text.size() - got.size());
      count = step % 3 == 0 ? stream.GetNextByte(bytes[0]) : stream.GetNextBytes(bytes, step % 50 + 1);
      got.append(reinterpret_cast<char*>(bytes), count);
    }
    EXPECT_EQ(got, text) << blockSize;
  }
  EXPECT_DEATH(PLXFileStream(static_cast<PLXFile*>(nullptr)),
               "FileStream.cpp\"\nNULL POINTER ASSERTION: myFile\n");
}

TEST_F(File, IsReplacedOrKeptWhole) {
  With("old");
  fs::permissions(myFolder / "file", fs::perms(0600));
  EXPECT_FALSE(PLXFile::WriteWhole(At("file"), "new", PLXFile::kKeepExistingFile));
  EXPECT_EQ(Content(), "old");
  EXPECT_TRUE(PLXFile::WriteWhole(At("file"), "new", PLXFile::kReplaceExistingFile));
  EXPECT_EQ(Content(), "new");
  EXPECT_EQ(fs::status(myFolder / "file").permissions(), fs::perms(0600));
  EXPECT_TRUE(PLXFile::WriteWhole(At(std::string(255, 'n')), "", PLXFile::kKeepExistingFile));
  fs::create_symlink("file", myFolder / "link");
  EXPECT_TRUE(PLXFile::WriteWhole(At("link"), "x", PLXFile::kReplaceExistingFile));
  EXPECT_EQ(Content(), "new");
  for (char const* name : {".", "", "missing/file", "file/below"}) {
    EXPECT_FALSE(PLXFile::WriteWhole(At(name), "x", PLXFile::kReplaceExistingFile)) << name;
  }
  EXPECT_EQ(NameCount(), 3);
}

TEST_F(File, SurvivesDeathWhole) {
  With(std::string(100000, 'a'));
  for (useconds_t delay = 0; delay < 6000; delay += 300) {
    pid_t const child = fork();
    ASSERT_NE(child, -1);
    if (child == 0) {
      for (int round = 0;; ++round) {
        PLXString const content(static_cast<char>('a' + round % 26), 100000);
        PLXFile::WriteWhole(At("file"), content, PLXFile::kReplaceExistingFile);
      }
    }
    usleep(delay);
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    ASSERT_EQ(Content(), std::string(100000, Content()[0]));
  }
}

}  // namespace
