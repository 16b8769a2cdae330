#pragma once

#include <functional>
#include <gtest/gtest.h>
#include <span>
#include <string>

// One text into another, in tables: why the row is there, what goes in, what must come out.
struct TextRow {
  char const* why;
  std::string text, expected;
};

inline void ExpectTexts(std::span<TextRow const> rows_i,
                        std::function<std::string(std::string const&)> const& function_i) {
  for (TextRow const& row : rows_i) {
    SCOPED_TRACE(row.why);
    EXPECT_EQ(function_i(row.text), row.expected);
  }
}
