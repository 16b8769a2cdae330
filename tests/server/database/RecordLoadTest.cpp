#include <atomic>
#include <fstream>
#include <map>
#include <random>
#include <signal.h>
#include <thread>

#include "RecordFixture.h"

// Many threads and several servers on one database, and servers that are killed.

namespace {

constexpr int kThreads = 8;
constexpr auto kDuration = std::chrono::seconds(2);

// What one thread was told is kept: its keys with their versions.
using Acknowledged = std::map<std::string, int>;

// Adds, updates, searches and deletes its own records, and fights with all others for shared keys.
class Visitor {
 public:
  Visitor(PLXRecordEngine& engine_i, std::string name_i, unsigned seed_i)
      : myEngine(engine_i), myName(std::move(name_i)), myRandom(seed_i) {}

  // Returns what failed with a code that is not to be expected; empty when nothing did.
  std::string Run(std::chrono::steady_clock::time_point end_i) {
    while (std::chrono::steady_clock::now() < end_i) {
      try {
        PLXRecordCursor cursor(myEngine.Store(), "load", PLXRecordAccess::kShared, this);
        for (int step = 0; step < 10; ++step) Step(cursor);
      } catch (PLXRecordError const& error) {
        if (error.GetKind() != Kind::kInUse) return error.what();
      }
    }
    return {};
  }
  Acknowledged const& Kept() const { return myKept; }

 private:
  void Step(PLXRecordCursor& cursor_io) {
    auto const what = myRandom() % 6;
    if (what < 2 || myKept.empty()) return Add(cursor_io, myName + "-" + std::to_string(++myCount));
    if (what == 2) return AddShared(cursor_io);
    auto const chosen = std::next(myKept.begin(), static_cast<std::ptrdiff_t>(myRandom() % myKept.size()));
    cursor_io.Search("Key = '" + chosen->first + "'");
    EXPECT_EQ(cursor_io.ResultCount(), 1u) << chosen->first;
    EXPECT_EQ(GetText(cursor_io, "Version"), std::to_string(chosen->second));
    if (what == 3) {
      cursor_io.Set("Version", std::int64_t{chosen->second + 1});
      cursor_io.Update();
      ++chosen->second;
    } else if (what == 4) {
      cursor_io.Delete(std::stoll(GetText(cursor_io, "PLXIDFIELD")));
      myKept.erase(chosen);
    } else {
      cursor_io.Search("Version >= '3' ORDER BY Key");
      // Others delete what it found; it comes to the end all the same.
      EXPECT_EQ(Failure([&] {
                  for (int left = 20; left > 0; --left) cursor_io.MoveNext();
                  throw PLXRecordError(Kind::kEnd, "enough");
                }),
                Kind::kEnd);
    }
  }
  void Add(PLXRecordCursor& cursor_io, std::string const& key_i) {
    AddRecord(cursor_io, {{"Key", key_i}, {"Version", std::int64_t{0}}});
    myKept.emplace(key_i, 0);
  }
  void AddShared(PLXRecordCursor& cursor_io) {
    try {
      Add(cursor_io, "shared-" + std::to_string(myShared++));
    } catch (PLXRecordError const& error) {
      if (error.GetKind() != Kind::kNotUnique) throw;
    }
  }

  PLXRecordEngine& myEngine;
  std::string const myName;
  std::mt19937 myRandom;
  Acknowledged myKept;
  int myCount = 0;
  int myShared = 0;
};

void RunVisitors(PLXRecordEngine& engine_i, std::string const& process_i,
                 std::filesystem::path const& file_i) {
  auto const end = std::chrono::steady_clock::now() + kDuration;
  std::vector<std::unique_ptr<Visitor>> visitors;
  std::vector<std::thread> threads;
  for (int index = 0; index < kThreads; ++index) {
    visitors.push_back(
        std::make_unique<Visitor>(engine_i, process_i + std::to_string(index), static_cast<unsigned>(index)));
    threads.emplace_back([&visitor = *visitors.back(), end] { EXPECT_EQ(visitor.Run(end), ""); });
  }
  for (std::thread& thread : threads) thread.join();
  std::ofstream file(file_i);
  for (auto const& visitor : visitors) {
    for (auto const& [key, version] : visitor->Kept()) file << key << ' ' << version << '\n';
  }
}

// This program once more, as another server on the same source.
class OtherServer {
 public:
  OtherServer(PLXRecordEngine::Settings const& settings_i, std::string const& work_i) {
    int output[2];
    EXPECT_EQ(pipe2(output, O_CLOEXEC), 0);
    myPid = fork();
    if (myPid == 0) {
      dup2(output[1], STDOUT_FILENO);
      setenv("PLX_WORK", work_i.c_str(), 1);
      setenv("PLX_FOLDER", settings_i.folder.c_str(), 1);
      setenv("PLX_SOURCE", settings_i.source.c_str(), 1);
      setenv("PLX_USER", settings_i.user.c_str(), 1);
      setenv("PLX_PASSWORD", settings_i.password.c_str(), 1);
      execl("/proc/self/exe", "database-tests", "--gtest_filter=OtherServer.*", nullptr);
      _exit(127);
    }
    close(output[1]);
    myOutput = fdopen(output[0], "r");
  }
  ~OtherServer() { End(); }
  OtherServer(OtherServer const&) = delete;
  OtherServer& operator=(OtherServer const&) = delete;

  // The next line that it wrote; empty at the end.
  std::string Line() {
    char line[256] = "";
    return fgets(line, sizeof line, myOutput) != nullptr ? line : "";
  }
  void Kill() { kill(myPid, SIGKILL); }
  int End() {
    if (myPid == 0) return 0;
    while (!Line().empty()) {
    }
    fclose(myOutput);
    int status = 0;
    waitpid(std::exchange(myPid, 0), &status, 0);
    return status;
  }

 private:
  pid_t myPid = 0;
  FILE* myOutput = nullptr;
};

}  // namespace

// What the other server does; nothing when nobody asked for it.
TEST(OtherServer, Works) {
  char const* const work = getenv("PLX_WORK");
  if (work == nullptr) GTEST_SKIP() << "for the tests that start it";
  PLXRecordEngine engine(
      {getenv("PLX_FOLDER"), getenv("PLX_SOURCE"), getenv("PLX_USER"), getenv("PLX_PASSWORD")});
  if (std::string(work) == "visit") {
    return RunVisitors(engine, "other", std::filesystem::path(getenv("PLX_FOLDER")) / "other.kept");
  }
  PLXRecordCursor cursor(engine.Store(), "stream", PLXRecordAccess::kShared, nullptr);
  for (int number = 0;; ++number) {
    AddRecord(cursor, {{"Key", std::string(work) + std::to_string(number)}});
    printf("added %d\n", number);
    fflush(stdout);
  }
}

TEST_P(Records, HoldUnderLoadFromTwoServers) {
  {
    auto cursor = Open("load");
    cursor->AddField("Key", 0x60000 | 40 | PLXRecordField::kUnique);
    cursor->AddField("Version", 0x20000);
  }
  {
    OtherServer other(Settings(), "visit");
    RunVisitors(*myEngine, "this", myFolder / "this.kept");
    EXPECT_EQ(other.End(), 0);
  }
  Acknowledged kept;
  for (char const* const name : {"this.kept", "other.kept"}) {
    std::ifstream file(myFolder / name);
    std::string key;
    for (int version; file >> key >> version;)
      EXPECT_TRUE(kept.emplace(key, version).second) << key << " was added twice";
  }
  EXPECT_GT(kept.size(), 20u);
  auto cursor = Open("load");
  Acknowledged found;
  cursor->Search("ORDER BY Key");
  EXPECT_EQ(cursor->ResultCount(), kept.size());
  try {
    for (cursor->MoveFirst();; cursor->MoveNext()) {
      EXPECT_TRUE(found.emplace(GetText(*cursor, "Key"), std::stoi(GetText(*cursor, "Version"))).second);
    }
  } catch (PLXRecordError const& error) {
    EXPECT_EQ(error.GetKind(), Kind::kEnd);
  }
  EXPECT_EQ(found, kept);
}

TEST_P(Records, AreThereAfterAKillOnceTheyAreAcknowledged) {
  Open("stream")->AddField("Key", 0x60000 | PLXRecordField::kUnique);
  for (std::string const& round : {std::string("a"), std::string("b"), std::string("c")}) {
    int last = -1;
    {
      OtherServer server(Settings(), round);
      for (std::string line; last < 100 && !(line = server.Line()).empty();) {
        if (line.starts_with("added ")) last = std::stoi(line.substr(6));
      }
      server.Kill();
      for (std::string line; !(line = server.Line()).empty();) {
        if (line.starts_with("added ") && line.ends_with('\n')) last = std::stoi(line.substr(6));
      }
    }
    ASSERT_GE(last, 100);
    auto const engine = NewServer();
    auto cursor = Open(*engine, "stream");
    for (int number = 0; number <= last; ++number) {
      cursor->Search("Key = '" + round + std::to_string(number) + "'");
      ASSERT_EQ(cursor->ResultCount(), 1u) << round << number;
    }
    cursor->AddField(round, 0x10000);  // and no lock was left behind
  }
}
