#include <crypt.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <sys/stat.h>
#include <thread>

#include "PLXLoginStore.h"
#include "TemporaryFolder.h"

using testing::ElementsAre;

namespace {

// A hash of a cheap method, for tests that are not about hashing.
std::string CheapHash(std::string const& password_i) {
  auto const data = std::make_unique<crypt_data>();
  return ::crypt_r(password_i.c_str(), "$6$rounds=1000$saltsalt$", data.get());
}

}  // namespace

TEST(PLXLoginStore, KeepsPasswordsAsHashesInAPrivateFile) {
  TemporaryFolder const folder;
  std::filesystem::path const file = folder / "logins/demo/main";
  std::string problem;
  {
    PLXLoginStore store(file);
    EXPECT_TRUE(store.IsEmpty());
    EXPECT_FALSE(store.Verify("ada", "secret"));
    ASSERT_TRUE(store.SetPassword("ada", "secret", problem)) << problem;
    ASSERT_TRUE(store.SetPassword("b\xC3\xB6", std::string(511, 'p'), problem)) << problem;
    EXPECT_FALSE(store.IsEmpty());
    EXPECT_THAT(store.Users(), ElementsAre("ada", "b\xC3\xB6"));
  }
  PLXLoginStore store(file);
  for (int time = 0; time < 2; ++time) {  // checked, then remembered
    EXPECT_TRUE(store.Verify("ada", "secret"));
    EXPECT_TRUE(store.Verify("b\xC3\xB6", std::string(511, 'p')));
    EXPECT_FALSE(store.Verify("ada", "Secret"));
  }
  EXPECT_FALSE(store.Verify("ada", "secret "));
  EXPECT_FALSE(store.Verify("Ada", "secret"));
  EXPECT_FALSE(store.Verify("b\xC3\xB6", std::string(510, 'p')));
  EXPECT_THAT(folder.Read("logins/demo/main"), testing::StartsWith("ada:$y$"));
  struct stat status {};
  ASSERT_EQ(::stat(file.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600u);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(file.parent_path()), {}), 2)
      << "nothing left over but what is locked";
}

TEST(PLXLoginStore, FollowsItsFile) {
  TemporaryFolder const folder;
  auto const file = folder.Write("logins", "ada:" + CheapHash("secret") + "\n");
  PLXLoginStore store(file);
  EXPECT_TRUE(store.Verify("ada", "secret"));
  EXPECT_TRUE(store.Verify("ada", "secret"));
  folder.Write("logins", "ada:" + CheapHash("changed") + "\nbob:" + CheapHash("bob") + "\n");
  EXPECT_FALSE(store.Verify("ada", "secret")) << "what was remembered went with the old hash";
  EXPECT_TRUE(store.Verify("ada", "changed"));
  EXPECT_TRUE(store.Verify("bob", "bob"));
  std::string problem;
  EXPECT_TRUE(store.Remove("ada", problem));
  EXPECT_FALSE(store.Verify("ada", "changed"));
  EXPECT_TRUE(store.Verify("bob", "bob"));
  EXPECT_FALSE(store.Remove("ada", problem));
  EXPECT_EQ(problem, "There is no user \"ada\".");
  std::filesystem::remove(file);
  EXPECT_FALSE(store.Verify("bob", "bob"));
  EXPECT_TRUE(store.IsEmpty());
}

TEST(PLXLoginStore, LetsNobodyInByAStrangeLine) {
  TemporaryFolder const folder;
  std::string const hash = CheapHash("secret");
  PLXLoginStore store(
      folder.Write("logins", "# people\n\nempty:\nstar:*\nlocked:!" + hash + "\nplain:secret\n:" + hash +
                                 "\nancient:abJnggxhB/yWI\nbad:$6$\nworse:$nothing$\nada:" + hash +
                                 ":19000:0\r\nada:" + CheapHash("second") + "\nlast:" + hash));
  EXPECT_THAT(store.Users(), ElementsAre("ada", "bad", "last", "worse"));
  for (char const* const user :
       {"empty", "star", "locked", "plain", "ancient", "bad", "worse", "", "# people"}) {
    for (std::string const password : {"", "secret", "*", "*0", "*1", "!", "$6$", "$nothing$"}) {
      EXPECT_FALSE(store.Verify(user, password)) << user << " " << password;
    }
  }
  EXPECT_TRUE(store.Verify("ada", "secret"));
  EXPECT_TRUE(store.Verify("last", "secret")) << "a last line needs no end";
  EXPECT_FALSE(store.Verify("ada", "second"));
  EXPECT_FALSE(store.Verify("ada", std::string("secret\0x", 8))) << "a zero byte does not end the password";
  EXPECT_FALSE(store.Verify(std::string("ada\0", 4), "secret"));
  EXPECT_FALSE(store.Verify("ada", std::string(100000, 'x')));

  std::string problem;
  EXPECT_TRUE(store.Remove("ada", problem)) << problem;
  EXPECT_FALSE(store.Verify("ada", "second")) << "every line of the user goes";
  EXPECT_THAT(folder.Read("logins"), testing::StartsWith("# people\n\nempty:\n"))
      << "and what is no login stays";
}

TEST(PLXLoginStore, RefusesNamesAndPasswordsThatCannotBeKept) {
  TemporaryFolder const folder;
  PLXLoginStore store(folder / "logins");
  struct Row {
    char const* why;
    std::string user, password;
    char const* problem;
  } const rows[] = {
      {"no user", "", "x", "A user name has 1 to 255 bytes."},
      {"a long user", std::string(256, 'u'), "x", "A user name has 1 to 255 bytes."},
      {"a colon", "a:b", "x", "A user name holds no \":\" and no control character."},
      {"a line end", "a\nroot", "x", "A user name holds no \":\" and no control character."},
      {"no password", "ada", "", "A password has 1 to 511 bytes."},
      {"a password that libcrypt cannot take", "ada", std::string(512, 'p'),
       "A password has 1 to 511 bytes."},
      {"a zero byte", "ada", std::string("a\0b", 3), "A password holds no zero byte."},
  };
  for (Row const& row : rows) {
    SCOPED_TRACE(row.why);
    std::string problem;
    EXPECT_FALSE(store.SetPassword(row.user, row.password, problem));
    EXPECT_EQ(problem, row.problem);
    EXPECT_FALSE(std::filesystem::exists(folder / "logins"));
  }
}

TEST(PLXLoginStore, KeepsTheOldFileWhenTheDiskRefuses) {
  TemporaryFolder const folder;
  folder.Write("file", "");
  std::string problem;
  EXPECT_FALSE(PLXLoginStore(folder / "file/logins").SetPassword("ada", "secret", problem));
  EXPECT_THAT(problem, testing::HasSubstr("Cannot use the folder of " + (folder / "file/logins").string()));
  EXPECT_FALSE(PLXLoginStore(folder.MakeFolder("folder")).SetPassword("ada", "secret", problem));
  EXPECT_THAT(problem, testing::StartsWith("Cannot read "));
  EXPECT_TRUE(PLXLoginStore(folder / "folder").IsEmpty());
}

TEST(PLXLoginStore, LosesNoUserOfManyWriters) {
  TemporaryFolder const folder;
  PLXLoginStore reader(folder / "logins");
  {
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < 4; ++thread) {
      threads.emplace_back([&, thread] {
        PLXLoginStore store(folder / "logins");  // as another process would
        std::string const user = "user" + std::to_string(thread);
        std::string problem;
        EXPECT_TRUE(store.SetPassword(user, user, problem)) << problem;
        EXPECT_TRUE(reader.Verify(user, user));
        EXPECT_FALSE(reader.Verify(user, "wrong"));
        EXPECT_TRUE(store.SetPassword(user, "new", problem)) << problem;
        EXPECT_FALSE(reader.Verify(user, user));
        EXPECT_TRUE(reader.Verify(user, "new"));
      });
    }
  }
  EXPECT_THAT(reader.Users(), ElementsAre("user0", "user1", "user2", "user3"));
}
