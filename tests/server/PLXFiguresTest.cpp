#include <cmath>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <latch>
#include <thread>

#include "PLXFigures.h"
#include "PLXSQLPool.h"

namespace {

using Answer = PLXFigures::Answer;

std::string TextOf(PLXFigures const& figures_i) {
  PLXFigureText text;
  figures_i.AppendTo(text);
  return text.Text();
}

TEST(PLXFigures, TakeWhatTheTextFormatTakes) {
  struct Row {
    char const* why;
    std::string series;
    std::string written;  // empty: refused
  } const rows[] = {
      {"a name", "plx_a", "plx_a 1\n"},
      {"any letters and digits", "Ab_9", "Ab_9 1\n"},
      {"labels", R"(plx_a{b="1",c="2"})", "plx_a{b=\"1\",c=\"2\"} 1\n"},
      {"in another order they are the same", R"(plx_a{c="2",b="1"})", "plx_a{b=\"1\",c=\"2\"} 1\n"},
      {"any text as a value", R"(plx_a{b="\"\\\n{},= "})", "plx_a{b=\"\\\"\\\\\\n{},= \"} 1\n"},
      {"a line end as it is", "plx_a{b=\"1\n2\"}", "plx_a{b=\"1\\n2\"} 1\n"},
      {"UTF-8", "plx_a{b=\"\xC3\xA4\"}", "plx_a{b=\"\xC3\xA4\"} 1\n"},
      {"what is none", "plx_a{b=\"a\xE4\xFF\"}", "plx_a{b=\"a??\"} 1\n"},
      {"an empty value", R"(plx_a{b=""})", "plx_a{b=\"\"} 1\n"},
      {"nothing", "", ""},
      {"a digit first", "9a", ""},
      {"a character that no name has", "plx-a", ""},
      {"the server's own", "plxserver_a", ""},
      {"no labels in braces", "plx_a{}", ""},
      {"a comma behind the last", R"(plx_a{b="1",})", ""},
      {"a label twice", R"(plx_a{b="1",b="2"})", ""},
      {"a label of monitoring systems", R"(plx_a{__name__="b"})", ""},
      {"a value without quotes", "plx_a{b=1}", ""},
      {"no end", R"(plx_a{b="1")", ""},
      {"no end of the value", R"(plx_a{b="1})", ""},
      {"an escape that is none", R"(plx_a{b="\t"})", ""},
      {"something behind it", "plx_a{b=\"1\"} 7", ""},
      {"another line", "plx_a\nplx_b 1", ""},
      {"too long", "plx_a{b=\"" + std::string(1000, 'x') + "\"}", ""},
  };
  for (Row const& row : rows) {
    SCOPED_TRACE(row.why);
    PLXFigures figures;
    EXPECT_EQ(figures.Set(row.series, 1), row.written.empty() ? Answer::kInvalid : Answer::kDone);
    EXPECT_EQ(TextOf(figures).empty(), row.written.empty());
    EXPECT_THAT(TextOf(figures), testing::EndsWith(row.written));
  }
}

TEST(PLXFigures, CountUpwardsOnly) {
  PLXFigures figures;
  EXPECT_EQ(figures.Add("plx_a_total", 0.25), Answer::kDone);
  EXPECT_EQ(figures.Add("plx_a_total{b=\"c\"}", 1e15), Answer::kDone);
  EXPECT_EQ(figures.Add("plx_a_total", -1), Answer::kInvalid);
  EXPECT_EQ(figures.Set("plx_a_total", 1), Answer::kInvalid);
  EXPECT_EQ(figures.Add("plx_a", std::nan("")), Answer::kInvalid);
  EXPECT_EQ(figures.Add("plx_a", INFINITY), Answer::kInvalid);
  EXPECT_EQ(figures.Add("plx_a", 3), Answer::kDone);
  EXPECT_EQ(figures.Add("plx_a", -4), Answer::kDone);
  EXPECT_EQ(figures.Describe("plx_a_total one\nline \\ \"kept\""), Answer::kDone);
  EXPECT_EQ(figures.Describe("plx_a{b=\"c\"} labels"), Answer::kInvalid);
  EXPECT_EQ(figures.Describe("plx_none nothing yet"), Answer::kDone);
  EXPECT_TRUE(figures.Has("plx_none"));
  EXPECT_EQ(figures.Sum("plx_a_total"), 1e15 + 0.25);
  EXPECT_EQ(TextOf(figures),
            "# TYPE plx_a gauge\nplx_a -1\n"
            "# HELP plx_a_total one\\nline \\\\ \"kept\"\n# TYPE plx_a_total counter\n"
            "plx_a_total 0.25\nplx_a_total{b=\"c\"} 1e+15\n");
}

TEST(PLXFigures, AreBounded) {
  PLXFigures figures;
  for (std::size_t number = 0; number < PLXFigures::kSeriesMost; ++number)
    EXPECT_EQ(figures.Add("plx_a_total{n=\"" + std::to_string(number) + "\"}", 1), Answer::kDone);
  EXPECT_EQ(figures.Add("plx_a_total{n=\"one more\"}", 1), Answer::kFull);
  EXPECT_EQ(figures.Add("plx_b_total", 1), Answer::kFull);
  EXPECT_EQ(figures.Add("plx_a_total{n=\"7\"}", 1), Answer::kDone) << "what is there goes on";
  EXPECT_EQ(figures.Sum("plx_a_total"), PLXFigures::kSeriesMost + 1.0);
}

// ---- Waiting for a database ----

struct IdleConnection : PLXSQLConnection {
  IdleConnection() : PLXSQLConnection(PLXSQLDialect::kSQLite) {}
  std::int64_t Run(std::string const&, std::span<PLXSQLParameter const>, RowReader const&) override {
    return 0;
  }
  void ForgetStatements() override {}
  void Begin() override {}
  void Commit() override {}
  void Rollback() override {}
};

TEST(PLXSQLPool, CountsWhoHasToWait) {
  PLXSQLPool pool([] { return std::make_unique<IdleConnection>(); });
  auto const nothing = [](PLXSQLConnection&) { return 0; };
  PLXSQLPool::Waits const before = PLXSQLPool::GetWaits();
  pool.Read(nothing);
  EXPECT_EQ(PLXSQLPool::GetWaits().count, before.count);
  // Whether the last one is there before the others leave is up to the system, so it is tried until it was.
  while (PLXSQLPool::GetWaits().count == before.count) {
    std::latch taken(PLXSQLPool::kLimit), leave(1);
    std::vector<std::jthread> threads;
    for (std::size_t index = 0; index < PLXSQLPool::kLimit; ++index) {
      threads.emplace_back([&] {
        pool.Read([&](PLXSQLConnection&) {
          taken.count_down();
          leave.wait();
          return 0;
        });
      });
    }
    taken.wait();
    threads.emplace_back([&] { pool.Read(nothing); });
    std::this_thread::yield();
    leave.count_down();
  }
  EXPECT_GT(PLXSQLPool::GetWaits().time, before.time);
}

}  // namespace
