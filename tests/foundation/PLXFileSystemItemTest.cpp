#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "FoundationPrinters.h"
#include "PLXFileSpecification.h"
#include "PLXFileSystemItem.h"
#include "PLXFolderSpecification.h"
#include "PLXTimestamp.h"
#include "TemporaryFolder.h"

namespace {

namespace fs = std::filesystem;

// A folder of its own for every test.
class FileLayer : public testing::Test {
 protected:
  std::string At(std::string const& name_i) const { return myRoot + "/" + name_i; }
  PLXString PathAt(std::string const& name_i) const { return PLXString(At(name_i).c_str()); }
  void Write(std::string const& name_i, std::string const& text_i = "text") const {
    myFolder.Write(name_i, text_i);
  }
  std::string Read(std::string const& name_i) const { return myFolder.Read(name_i); }

  TemporaryFolder const myFolder;
  std::string const myRoot = myFolder.Path();
};

std::vector<std::string> Names(PLXFolderSpecification const& folder_i,
                               PLXFolderSpecification::SelectionCallback select_i = nullptr) {
  PLXFileSystemItemArray items;
  EXPECT_TRUE(folder_i.GetContents(items, select_i));
  std::vector<std::string> names;
  for (PLXUInt32 index = 0; index < items.GetElementCount(); ++index) {
    PLXString const name = items[index].GetName();
    names.emplace_back(name.GetCStringAccess() +
                       std::string(items[index].IsExpectedToBeAFolder() ? "/" : ""));
  }
  return names;
}

// ---- Paths, which need no file system ----

TEST(PLXFileSystemItemPath, NeverClimbsOutOfItsFolder) {
  struct Row {
    char const* path;
    char const* mapped;
  };
  Row const rows[] = {
      {"a/../../b", "a//b"}, {"a/b", "a/b"}, {"/a/b", "/a/b"}, {"../a", "/a"}, {"a/../b/../c", "a//b//c"},
      {"....//a", "//a"},    {"..", ""},     {"a/..", "a/"},   {"a..", "a.."}, {"a/...", "a/..."},
      {"a../b", "a/b"},      {"./a", "./a"}, {"", ""},
  };
  for (Row const& row : rows) {
    EXPECT_EQ(PLXFileSystemItem::FileSystemPathnameFromURLPathname(row.path), row.mapped) << row.path;
  }
  // Every text of up to nine dots, delimiters and letters.
  for (int length = 1, count = 3; length <= 9; ++length, count *= 3) {
    for (int number = 0; number < count; ++number) {
      std::string path;
      for (int rest = number; static_cast<int>(path.size()) < length; rest /= 3) path += "./a"[rest % 3];
      std::string const mapped =
          PLXFileSystemItem::FileSystemPathnameFromURLPathname(path.c_str()).GetCStringAccess();
      ASSERT_EQ(("/" + mapped + "/").find("/../"), std::string::npos) << path << " gives " << mapped;
    }
  }
}

TEST(PLXFileSystemItemPath, SplitsIntoFolderAndName) {
  struct Row {
    char const* path;
    bool isFolder;
    char const* parent;
    char const* name;
  };
  Row const rows[] = {
      {"a/b", false, "a", "b"},  {"/a", false, "/", "a"},  {"a", false, ".", "a"},
      {"a//b", false, "a", "b"}, {"a/b/", true, "a", "b"}, {"a/b/", false, "a/b", ""},
      {"/", true, "/", ""},      {"//", true, "/", ""},    {"a/..", true, "a/../..", ".."},
      {".", true, "..", "."},    {"", true, ".", ""},      {"/a/b//", true, "/a", "b"},
  };
  for (Row const& row : rows) {
    SCOPED_TRACE(row.path);
    PLXFileSystemItem const item(row.path, row.isFolder);
    EXPECT_EQ(item.GetParentFolder().GetOperatingSystemPathname(), row.parent);
    EXPECT_EQ(item.GetName(), row.name);
  }
}

TEST(PLXFileSystemItemPath, KeepsANameInsideItsFolder) {
  struct Row {
    char const* why;
    char const* folder;
    PLXString name;
    char const* path;
  };
  Row const rows[] = {
      {"plain", "f", "n.txt", "f/n.txt"},
      {"delimiter at the folder's end", "f/", "n", "f/n"},
      {"climbing", "f", "../../etc/passwd", "f/.._.._etc_passwd"},
      {"absolute", "f", "/n", "f/_n"},
      {"the folder itself", "f", ".", "f/_"},
      {"its parent", "f", "..", "f/__"},
      {"a zero byte, which would cut the name", "f", PLXString("n.txt\0.html", 11), "f/n.txt_.html"},
      {"no name", "f", "", "f/"},
      {"the current folder", "", "n", "n"},
      {"the root", "/", "n", "/n"},
  };
  for (Row const& row : rows) {
    SCOPED_TRACE(row.why);
    PLXFolderSpecification const folder(row.folder);
    EXPECT_EQ(PLXFileSpecification(folder, row.name).GetOperatingSystemPathname(), row.path);
    PLXFileSpecification file("elsewhere");
    file.Redefine(folder, row.name);
    EXPECT_EQ(file.GetOperatingSystemPathname(), row.path);
  }
  EXPECT_TRUE(PLXFileSpecification("a/.b").IsInvisible());
  EXPECT_FALSE(PLXFileSpecification(".a/b").IsInvisible());
}

// ---- What is there ----

TEST_F(FileLayer, TellsFilesFoldersAndLinksApart) {
  Write("file");
  fs::create_directory(At("folder"));
  fs::create_symlink("folder", At("to-folder"));
  fs::create_symlink("file", At("to-file"));
  fs::create_symlink("nothing", At("to-nothing"));
  mkfifo(At("pipe").c_str(), 0600);
  struct Row {
    char const* name;
    bool exists, isFile, isFolder;
  };
  Row const rows[] = {{"file", true, true, false},        {"folder", true, false, true},
                      {"to-folder", true, false, true},   {"to-file", true, true, false},
                      {"to-nothing", true, false, false}, {"pipe", true, false, false},
                      {"missing", false, false, false},   {"file/below", false, false, false}};
  for (Row const& row : rows) {
    SCOPED_TRACE(row.name);
    PLXFileSystemItem const item(PathAt(row.name));
    EXPECT_EQ(item.Exists(), row.exists);
    EXPECT_EQ(item.IsAFile(), row.isFile);
    EXPECT_EQ(item.IsAFolder(), row.isFolder);
    EXPECT_EQ(PLXFileSpecification(PathAt(row.name)).Exists(), row.exists);
    EXPECT_EQ(PLXFolderSpecification(PathAt(row.name)).Exists(), row.isFolder);
  }
  PLXString hidden = PathAt("file");
  hidden.Append("\0.txt", 5);
  EXPECT_FALSE(PLXFileSystemItem(hidden).Exists());
  EXPECT_FALSE(PLXFileSpecification(hidden).Delete());
  EXPECT_TRUE(fs::exists(At("file")));
}

TEST_F(FileLayer, KnowsWhatIsReadOnly) {
  Write("file");
  EXPECT_FALSE(PLXFileSpecification(PathAt("file")).IsReadOnly());
  chmod(At("file").c_str(), 0444);
  EXPECT_TRUE(PLXFileSpecification(PathAt("file")).IsReadOnly());
  EXPECT_FALSE(PLXFileSpecification(PathAt("missing")).IsReadOnly());
}

TEST_F(FileLayer, KnowsItsTimes) {
  Write("file");
  timespec const times[] = {{1'000'000'000, 0}, {1'100'000'000, 0}};
  ASSERT_EQ(utimensat(AT_FDCWD, At("file").c_str(), times, 0), 0);
  auto const text = [](std::time_t time) {
    char buffer[32];
    std::tm local{};
    std::strftime(buffer, sizeof buffer, "%Y%m%d%H%M%S", localtime_r(&time, &local));
    return PLXString(buffer);
  };
  PLXFileSystemItem const file(PathAt("file"));
  EXPECT_EQ(file.GetTimestamp(kPLXFileTime_LastAccess).GetStringRepresentation(), text(1'000'000'000));
  EXPECT_EQ(file.GetTimestamp(kPLXFileTime_LastModification).GetStringRepresentation(), text(1'100'000'000));
  EXPECT_EQ(
      PLXFolderSpecification(PathAt("missing")).GetTimestamp(kPLXFileTime_Creation).GetStringRepresentation(),
      text(0));
}

TEST_F(FileLayer, RefusesTheOtherKind) {
  Write("file");
  PLXFileSystemItem const file(PathAt("file"));
  PLXFileSystemItem const folder{PLXString(myRoot.c_str())};
  EXPECT_THROW(PLXFileSpecification{folder}, PLXFileSystemItem::IsNotAFile);
  EXPECT_THROW(PLXFolderSpecification{file}, PLXFileSystemItem::IsNotAFolder);
  EXPECT_NO_THROW(PLXFileSpecification{file});
  EXPECT_NO_THROW(PLXFolderSpecification{folder});
  EXPECT_NO_THROW(PLXFileSpecification{PLXFileSystemItem(PathAt("missing"))});
  EXPECT_FALSE(PLXFileSpecification(PLXString(myRoot.c_str())).Delete());
  EXPECT_FALSE(PLXFolderSpecification(PathAt("file")).Delete());
  PLXFileSystemItemArray items;
  EXPECT_THROW(PLXFolderSpecification(PathAt("file")).GetContents(items), PLXFileSystemItem::IsNotAFolder);
  EXPECT_THROW(PLXFolderSpecification(PathAt("missing")).GetContents(items),
               PLXFolderSpecification::ItemNotFound);
}

// ---- Folders ----

TEST_F(FileLayer, CreatesMissingParents) {
  EXPECT_TRUE(PLXFolderSpecification(PathAt("x/y//z/")).Create());
  EXPECT_TRUE(fs::is_directory(At("x/y/z")));
  EXPECT_FALSE(PLXFolderSpecification(PathAt("x/y/z")).Create()) << "it is there already";
  Write("file");
  EXPECT_FALSE(PLXFolderSpecification(PathAt("file")).Create());
  EXPECT_FALSE(PLXFolderSpecification(PathAt("file/a/b")).Create());
  EXPECT_FALSE(PLXFolderSpecification("").Create());
  EXPECT_FALSE(PLXFolderSpecification("/").Create());
  EXPECT_FALSE(PLXFolderSpecification("plx-missing/below").Create())
      << "a relative path begins in what exists";
}

TEST_F(FileLayer, CreatesParentsFromSeveralThreads) {
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 8; ++thread) {
    threads.emplace_back([this, thread] {
      std::string const path = At("a/b/c/d/e/f/" + std::to_string(thread));
      EXPECT_TRUE(PLXFolderSpecification(path.c_str()).Create());
    });
  }
  for (std::thread& thread : threads) thread.join();
}

TEST_F(FileLayer, ListsWhatIsWanted) {
  Write("b.txt");
  Write(".hidden");
  fs::create_directory(At("sub"));
  fs::create_directory_symlink("sub", At("link"));
  PLXFolderSpecification const folder(myRoot.c_str());
  EXPECT_THAT(Names(folder), testing::UnorderedElementsAre("b.txt", ".hidden", "sub/", "link"));
  EXPECT_THAT(Names(folder, [](dirent const& entry_i) { return entry_i.d_name[0] == 'b'; }),
              testing::ElementsAre("b.txt"));
  EXPECT_THAT(Names(PLXFolderSpecification(folder, "sub")), testing::IsEmpty());
}

TEST_F(FileLayer, HandlesTheLongestNames) {
  std::string const longest(255, 'n');
  PLXFolderSpecification const folder(myRoot.c_str());
  PLXFolderSpecification sub(folder, longest.c_str());
  EXPECT_TRUE(sub.Create());
  EXPECT_THAT(Names(folder), testing::ElementsAre(longest + "/"));
  EXPECT_FALSE(PLXFolderSpecification(folder, (longest + "n").c_str()).Create());
  EXPECT_FALSE(sub.Rename((longest + "n").c_str()));
  EXPECT_TRUE(sub.Rename(std::string(255, 'm').c_str()));
  EXPECT_TRUE(sub.Delete());
}

TEST_F(FileLayer, DeletesATreeAndNothingThatLinksLeadTo) {
  fs::create_directories(At("kept/inner"));
  Write("kept/inner/file");
  fs::create_directories(At("tree/a/b"));
  fs::create_directories(At("tree/empty"));
  Write("tree/file");
  Write("tree/a/b/.hidden");
  fs::create_directory_symlink(At("kept"), At("tree/a/link"));
  fs::create_directory_symlink("..", At("tree/a/b/up"));
  fs::create_symlink("nothing", At("tree/dangling"));
  mkfifo(At("tree/pipe").c_str(), 0600);
  EXPECT_TRUE(PLXFolderSpecification(PathAt("tree/")).Delete());
  EXPECT_FALSE(fs::exists(At("tree")));
  EXPECT_EQ(Read("kept/inner/file"), "text");

  fs::create_directory_symlink("kept", At("link"));
  EXPECT_TRUE(PLXFolderSpecification(PathAt("link/")).Delete());
  EXPECT_FALSE(fs::is_symlink(At("link")));
  EXPECT_EQ(Read("kept/inner/file"), "text");
  EXPECT_FALSE(PLXFolderSpecification(PathAt("missing")).Delete());
}

TEST_F(FileLayer, DeletesATreeDeeperThanAnyPath) {
  constexpr int kDepth = 40;  // 8 kB of path, and more folders than may be open at a time
  std::string const name(200, 'd');
  int folder = open(myRoot.c_str(), O_RDONLY | O_DIRECTORY);
  for (int depth = 0; depth < kDepth; ++depth) {
    ASSERT_EQ(mkdirat(folder, name.c_str(), 0777), 0);
    int const next = openat(folder, name.c_str(), O_RDONLY | O_DIRECTORY);
    close(folder);
    folder = next;
  }
  close(folder);
  rlimit before;
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
  rlimit const few{32, before.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
  EXPECT_TRUE(PLXFolderSpecification(PLXString(myRoot.c_str())).Delete());
  setrlimit(RLIMIT_NOFILE, &before);
  EXPECT_FALSE(fs::exists(myRoot));
}

TEST_F(FileLayer, DeletesWhatItCanBesideWhatItCannot) {
  if (geteuid() == 0) GTEST_SKIP() << "permissions do not stop the superuser";
  fs::create_directories(At("tree/locked/inner"));
  fs::create_directories(At("tree/open"));
  Write("tree/open/file");
  chmod(At("tree/locked").c_str(), 0500);
  EXPECT_FALSE(PLXFolderSpecification(PathAt("tree")).Delete());
  EXPECT_FALSE(fs::exists(At("tree/open")));
  EXPECT_TRUE(fs::exists(At("tree/locked/inner")));
  chmod(At("tree/locked").c_str(), 0700);
  EXPECT_TRUE(PLXFolderSpecification(PathAt("tree")).Delete());
}

// ---- Moving ----

TEST_F(FileLayer, MovesWithoutReplacing) {
  Write("one", "1");
  Write("two", "2");
  fs::create_directory(At("folder"));
  PLXFileSpecification file(PathAt("one"));
  for (char const* name : {"two", "", ".", "..", "folder/x"}) EXPECT_FALSE(file.Rename(name)) << name;
  EXPECT_FALSE(file.Rename(PLXString("x\0y", 3)));
  EXPECT_EQ(file.GetOperatingSystemPathname(), PathAt("one"));

  EXPECT_TRUE(file.Rename("three"));
  EXPECT_EQ(file.GetOperatingSystemPathname(), PathAt("three"));
  EXPECT_TRUE(file.Move(PLXFolderSpecification(PathAt("folder"))));
  EXPECT_EQ(file.GetOperatingSystemPathname(), PathAt("folder/three"));
  EXPECT_TRUE(file.Move(PLXFileSystemItem(PathAt("four"))));
  EXPECT_EQ(Read("four"), "1");
  EXPECT_FALSE(file.Move(PLXFileSystemItem(PathAt("two"))));
  EXPECT_EQ(Read("two"), "2");
  EXPECT_EQ(Read("four"), "1");

  PLXFolderSpecification folder(PathAt("folder/"));
  EXPECT_TRUE(folder.MoveTo("other"));
  EXPECT_EQ(folder.GetOperatingSystemPathname(), PathAt("other"));
  fs::create_directory(At("outer"));
  EXPECT_TRUE(folder.MoveTo(PathAt("outer/inner")));
  EXPECT_TRUE(fs::is_directory(At("outer/inner")));
  EXPECT_FALSE(folder.MoveTo(PathAt("outer/inner/itself")));
}

TEST_F(FileLayer, DeletesFilesAndLinksNotTheirTargets) {
  Write("file");
  fs::create_symlink("file", At("link"));
  EXPECT_TRUE(PLXFileSpecification(PathAt("link")).Delete());
  EXPECT_TRUE(fs::exists(At("file")));
  EXPECT_TRUE(PLXFileSpecification(PathAt("file")).Delete());
  EXPECT_FALSE(PLXFileSpecification(PathAt("file")).Delete());
  fs::create_directories(At("folder/sub"));
  EXPECT_FALSE(PLXFileSystemItem(PathAt("folder")).Delete()) << "a plain item removes only an empty folder";
  EXPECT_TRUE(PLXFileSystemItem(PathAt("folder/sub")).Delete());
}

}  // namespace
