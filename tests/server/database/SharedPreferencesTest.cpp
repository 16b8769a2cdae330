#include <chrono>
#include <thread>

#include "PLXPreferenceStore.h"
#include "RecordFixture.h"

// The preferences that servers share through a data source.

namespace {

class SharedPreferences : public Records {
 protected:
  std::unique_ptr<PLXPreferenceStore> Server(std::string const& name_i) const {
    auto const settings = Settings();
    return std::make_unique<PLXPreferenceStore>(
        myFolder / (name_i + ".db"), myFolder / (name_i + "-copy.db"),
        [settings] { return std::make_unique<PLXODBC>(settings.source, settings.user, settings.password); });
  }
};

}  // namespace

INSTANTIATE_TEST_SUITE_P(Engines, SharedPreferences, testing::Values("sqliteodbc", "postgresql"),
                         [](auto const& info_i) { return info_i.param; });

TEST_P(SharedPreferences, BeginWithTheFileOfTheFirstServerThatHasOne) {
  std::string everyByte;
  for (int byte = 1; byte < 256; ++byte) everyByte.push_back(static_cast<char>(byte));
  PLXPreferenceStore(myFolder / "first.db").Set("demo/main", "o", everyByte, everyByte);
  PLXPreferenceStore(myFolder / "second.db").Set("demo/main", "o", "own", "of the second");
  auto const without = Server("without");
  auto const first = Server("first");
  auto const second = Server("second");
  without->Refresh();
  for (auto const* server : {without.get(), first.get(), second.get()}) {
    EXPECT_EQ(server->Get("demo/main", "o", everyByte), everyByte);
    EXPECT_EQ(server->Get("demo/main", "o", "own"), std::nullopt);
  }
  ASSERT_TRUE(second->Remove("demo/main", "o", everyByte));
  EXPECT_EQ(Server("first")->Get("demo/main", "o", everyByte), std::nullopt) << "once is enough";
  EXPECT_EQ(PLXPreferenceStore(myFolder / "first.db").Get("demo/main", "o", everyByte), everyByte);
  EXPECT_EQ(PLXPreferenceStore(myFolder / "second.db").Get("demo/main", "o", "own"), "of the second");
}

TEST_P(SharedPreferences, AreThoseOfAllServers) {
  auto const left = Server("left");
  auto const right = Server("right");
  {
    std::vector<std::jthread> threads;
    for (PLXPreferenceStore* const server : {left.get(), right.get()}) {
      for (int thread = 0; thread < 2; ++thread) {
        std::string const owner = (server == left.get() ? "left" : "right") + std::to_string(thread);
        threads.emplace_back([server, owner] {
          for (int index = 0; index < 25; ++index) {
            EXPECT_TRUE(server->Set("own", owner, std::to_string(index), "kept"));
            EXPECT_TRUE(server->Set("shared", "all", "last", owner + std::to_string(index)));
            EXPECT_EQ(server->Get("own", owner, std::to_string(index)), "kept");
          }
        });
      }
    }
  }
  auto const fresh = Server("fresh");
  for (PLXPreferenceStore* const server : {left.get(), right.get(), fresh.get()}) {
    server->Refresh();
    for (char const* const owner : {"left0", "left1", "right0", "right1"}) {
      for (int index = 0; index < 25; ++index) {
        EXPECT_EQ(server->Get("own", owner, std::to_string(index)), "kept") << owner;
      }
    }
    EXPECT_EQ(server->Get("shared", "all", "last"), fresh->Get("shared", "all", "last"));
  }
  // Without Refresh a change shows, too, and soon.
  ASSERT_TRUE(right->Remove("shared", "all", "last"));
  auto const until = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (left->Get("shared", "all", "last") && std::chrono::steady_clock::now() < until) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  EXPECT_EQ(left->Get("shared", "all", "last"), std::nullopt);
}

// A peer that takes connections and says nothing. Whoever asks for it waits as long as the driver has
// patience; after that it is refused at once, so that others, which wait their turn, are not held up again.
TEST_P(SharedPreferences, AreNotHeldUpForLongByASourceThatIsSilent) {
  if (!IsPostgreSQL()) GTEST_SKIP() << "the other engine connects to nobody";
  std::uint16_t port = 0;
  int const silent = OpenBoundSocket(port);
  ASSERT_EQ(listen(silent, 16), 0);
  std::string const source =
      "Driver=psqlodbcw.so;Servername=127.0.0.1;Database=test;Port=" + std::to_string(port);
  auto const connect = [&source] {
    try {
      PLXODBC(source, "test", "test");
    } catch (PLXSQLError const& error) {
      EXPECT_EQ(error.GetKind(), PLXSQLError::Kind::kLost);
      return std::string(error.what());
    }
    return std::string();
  };
  std::string first, second;
  std::jthread asking([&] { first = connect(); });
  std::jthread waiting([&] { second = connect(); });
  auto const server = Server("behind");  // waits for its turn and gets it
  EXPECT_TRUE(server->Set("r", "o", "n", "v"));
  asking.join();
  waiting.join();
  close(silent);
  EXPECT_THAT(first + second, testing::HasSubstr("cannot be reached"));
  EXPECT_THAT(first + second, testing::HasSubstr("is not tried again for some seconds"));
  EXPECT_THAT(connect(), testing::HasSubstr("is not tried again for some seconds"));
}
