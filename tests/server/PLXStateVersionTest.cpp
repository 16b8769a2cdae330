#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "PLXPreferenceStore.h"
#include "PLXSQLite.h"
#include "PLXStateVersion.h"
#include "TemporaryFolder.h"

using testing::HasSubstr;
using testing::StartsWith;

namespace fs = std::filesystem;

namespace {

// A state as servers before there were versions left it, and what version 3 is to make of it: a column more
// in version 2, another name for a folder in version 3.
struct PLXState : testing::Test {
  PLXState() {
    PLXPreferenceStore(folder.Path() / "preferences.sqlite").Set("demo/main", "Module", "name", "value");
    PLXSQLite(folder.Path() / "preferences.sqlite").Run("DROP TABLE plx_version");
    folder.Write("regions/demo/main/FM.outbox/msg1", "mail");
  }
  fs::path Upgrade() { return PLXUpgradeState(folder.Path(), folder.Path(), steps); }
  std::int64_t PreferencesVersion() {
    PLXSQLite connection(folder.Path() / "preferences.sqlite");
    return PLXReadSchema(connection);
  }
  std::string Kind() {
    std::string kind;
    PLXSQLite(folder.Path() / "preferences.sqlite")
        .Run("SELECT kind FROM preference", {},
             [&](PLXSQLRow& row_io) { kind = std::get<std::string>(row_io.at(0)); });
    return kind;
  }

  TemporaryFolder folder;
  int changes = 0;
  bool failsAtThree = false;
  std::vector<PLXStateStep> const steps{
      {2,
       [this](PLXSQLConnection& connection_io) {
         ++changes;
         connection_io.Run("ALTER TABLE preference ADD COLUMN kind TEXT NOT NULL DEFAULT 'old'");
       },
       {},
       {}},
      {3,
       [this](PLXSQLConnection& connection_io) {
         ++changes;
         connection_io.Run("UPDATE preference SET kind = 'newest'");
         if (failsAtThree) throw std::runtime_error("no");
       },
       {},
       [](fs::path const& state_i) {
         if (fs::exists(state_i / "regions")) fs::rename(state_i / "regions", state_i / "areas");
       }}};
};

}  // namespace

TEST_F(PLXState, IsCopiedThenChangedStepByStepAndMarked) {
  fs::path const kept = Upgrade();
  EXPECT_EQ(Kind(), "newest");
  EXPECT_EQ(PreferencesVersion(), 3);
  EXPECT_EQ(PLXReadStateMark(folder.Path()), 3);
  EXPECT_EQ(folder.Read("areas/demo/main/FM.outbox/msg1"), "mail");
  EXPECT_THAT(kept.filename().string(), StartsWith("before-upgrade-1-20"));
  EXPECT_EQ(PLXPreferenceStore(kept / "preferences.sqlite").Get("demo/main", "Module", "name"), "value");
  EXPECT_TRUE(fs::exists(kept / "regions/demo/main/FM.outbox/msg1"));
  EXPECT_EQ(Upgrade(), fs::path()) << "changed twice";
  EXPECT_EQ(changes, 2);
}

TEST_F(PLXState, GoesOnWhereAChangeWasInterrupted) {
  failsAtThree = true;
  EXPECT_THROW(Upgrade(), std::runtime_error);
  EXPECT_EQ(PreferencesVersion(), 2);
  EXPECT_EQ(Kind(), "old");
  EXPECT_EQ(PLXReadStateMark(folder.Path()), 1);
  failsAtThree = false;
  Upgrade();
  EXPECT_EQ(Kind(), "newest");
  EXPECT_EQ(changes, 3);
}

TEST_F(PLXState, OfANewerServerIsRefusedUntouched) {
  Upgrade();
  try {
    PLXUpgradeState(folder.Path(), folder.Path(), {});
    FAIL();
  } catch (PLXStateVersionError const& error) {
    EXPECT_THAT(error.what(), HasSubstr("written by a newer PLX Server (version 3"));
  }
  PLXWriteStateMark(folder.Path(), 1);  // the file alone says so as well
  EXPECT_THROW(PLXUpgradeState(folder.Path(), folder.Path(), {}), PLXStateVersionError);
  EXPECT_THROW(PLXPreferenceStore(folder.Path() / "preferences.sqlite"), PLXSQLError);
}
