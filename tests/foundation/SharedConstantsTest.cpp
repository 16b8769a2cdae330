#include <atomic>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

#include "PLXStringID.h"
#include "PLXTokenizedString.h"

namespace {

PLX_STRING_CONSTANT(kGreeting, "a constant that every thread copies and changes copies of");
PLX_STRING_ID_CONSTANT(kParameter, "postArgumentName");
PLX_TAG_CONSTANT(kTag, "plxIncludeHTTP");

}  // namespace

TEST(SharedConstants, StandOnTheirLiteralAndAreNeverCounted) {
  PLXString copy(kGreeting);
  EXPECT_EQ(copy.GetCStringAccess(), kGreeting.GetCStringAccess());
  copy.Append('!');
  EXPECT_NE(copy.GetCStringAccess(), kGreeting.GetCStringAccess());
  EXPECT_EQ(kGreeting.GetLength(), 57u);
  EXPECT_EQ(kParameter.GetString(), PLXString("postArgumentName"));
}

// Worth something under the thread sanitizer: nothing of a constant or an empty string may be written by a
// copy.
TEST(SharedConstants, EightThreadsCopyAndChangeThemAtOnce) {
  std::atomic<int> agreeing = 0;
  std::vector<std::thread> threads;
  for (int index = 0; index < 8; ++index) {
    threads.emplace_back([&agreeing] {
      int good = 0;
      for (int round = 0; round < 2000; ++round) {
        PLXString text(kGreeting);
        PLXString empty;
        PLXString other(empty);
        other.Append(kParameter.GetString());
        empty = text;
        text.ConvertToUppercase();
        text.Empty();
        PLXStringID const id(kParameter);
        PLXTag const tag(kTag);
        PLXTokenizedString const words(kGreeting, PLXString(" "));
        good += empty == kGreeting && id == kParameter && tag == kTag && other == kParameter.GetString() &&
                        words.GetTokenCount() == 10
                    ? 1
                    : 0;
      }
      agreeing += good;
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(agreeing, 8 * 2000);
}
