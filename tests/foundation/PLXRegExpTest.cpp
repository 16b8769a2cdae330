#include <gtest/gtest.h>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "EncoderTwins.h"
#include "PLXRegExp.h"
#include "RegExpTwin.h"

namespace {

// The first match as "[...]" in the text, "none", or the error of compiling.
std::string Shown(std::string const& expression_i, std::string const& text_i, PLXUInt32 offset_i = 0) {
  PLXRegExp expression;
  PLXSInt32 const error = expression.Compile(Plx(expression_i));
  if (error != 0) return "error " + std::to_string(error);
  if (!expression.Execute(Plx(text_i), offset_i)) return "none";
  PLXUInt32 start = 0;
  PLXUInt32 length = 0;
  expression.GetMatch(start, length);
  return text_i.substr(0, start) + "[" + text_i.substr(start, length) + "]" + text_i.substr(start + length);
}

std::string Group(PLXRegExp const& expression_i, std::string const& text_i, PLXUInt32 index_i) {
  PLXUInt32 start = 77;
  PLXUInt32 length = 77;
  if (!expression_i.GetGroup(index_i, start, length)) return "none";
  return text_i.substr(start, length);
}

constexpr char kAddress[] = "^[A-Za-z0-9._-]+@([A-Za-z0-9-]+[.])+[A-Za-z]{2,4}$";
constexpr char kDate[] =
    "(\\c{3})[,] (\\d{1,2}) (\\c{3}) (\\d{4}) (\\d{2}):(\\d{2}):(\\d{2}) ([-+]?[0-9GMT]{3,4})";

// ---- Use ----

TEST(PLXRegExpMatching, FindsTheFirstGreedyMatch) {
  struct Row {
    char const* why;
    std::string expression;
    std::string text;
    std::string shown;
  };
  Row const rows[] = {
      {"an address", kAddress, "ada.l@mail.example.com", "[ada.l@mail.example.com]"},
      {"an address of one line among others", kAddress, "x\r\nada@example.org\r\ny",
       "x\r\n[ada@example.org]\r\ny"},
      {"what was taken is kept", "a*a", "aaa", "none"},
      {"a taken alternative is kept", "(a|ab)c", "abc", "none"},
      {"an alternative of nothing", "(a|)b", "cb", "c[b]"},
      {"anchors round alternatives hold for all", "^a|b$", "xb b", "none"},
      {"anchors of one alternative", "xx|^a|y", "ba", "none"},
      {"an anchor of all repetitions", "x^(a)+", "xaa", "none"},
      {"end of a line", "a$", "ab\na\rc", "ab\n[a]\rc"},
      {"any byte but line ends", ".+", "\r\na\xE9\n", "\r\n[a\xE9]\n"},
      {"a count without end", "(ab){2,}", "abxababab", "abx[ababab]"},
      {"no most is no limit", "a{0}b", "aaab", "[aaab]"},
      {"a quantifier with nothing before it", "*a|+", "a*a", "a[*a]"},
      {"negated set", "[^a-c]+", "abxyzc", "ab[xyz]c"},
      {"hyphen first, hyphen last", "[-a]+[b-]+", "xa--b-", "x[a--b-]"},
      {"a bracket as the first member", "[]a]+", "x]a]", "x[]a]]"},
      {"a range backwards holds nothing", "[z-a]", "amz-", "none"},
      {"blanks", "\\s+\\S", "\n \t\v\fx", "\n[ \t\v\fx]"},
      {"shorthands", "\\w\\W\\d\\D\\c\\C", "_-5xy9", "[_-5xy9]"},
      {"named classes stand for sets", "[:upper:][:lower:]+[:digit:]", "aBcd7", "a[Bcd7]"},
      {"named classes that are not supported", "[[:space:][:punct:]]|[[:cntrl:]]", " \t[:space]", "none"},
      {"their set ends where it is written", "[[:space:]]*[b]", "a]xb", "a]x[b]"},
      {"control characters", "\\r\\n", "a\r\nb", "a[\r\n]b"},
      {"an escaped byte is that byte", "\\(\\.\\)\\|\\^\\$", "a(.)|^$", "a[(.)|^$]"},
      {"an escaped backslash protects what follows", "\\\\d", "7\\d", "7[\\d]"},
      {"escapes inside sets", "[\\]\\-z]+", "a-]zb", "a[-]z]b"},
      {"a backslash at the end", "a\\", "ba\\", "b[a\\]"},
      {"marks are no bytes", std::string("[\1]+\2{2}\0x", 10), std::string("a\1\1\2\2\0x", 7),
       std::string("a[\1\1\2\2\0x]", 9)},
      {"a group that is empty, ever so often", "(a?){200,}b", "b", "[b]"},
      {"the empty expression", "", "ab", "[]ab"},
      {"the empty text", "a*", "", "none"},
  };
  for (Row const& row : rows) {
    SCOPED_TRACE(row.why);
    EXPECT_EQ(Shown(row.expression, row.text), row.shown);
  }
}

TEST(PLXRegExpMatching, BeginsAtTheOffset) {
  EXPECT_EQ(Shown("a", "aba", 1), "ab[a]");
  EXPECT_EQ(Shown("a*", "ab", 1), "a[]b");
  EXPECT_EQ(Shown("^b", "ab", 1), "none");  // the offset is no line's start
  EXPECT_EQ(Shown("a*", "ab", 2), "none");
  EXPECT_EQ(Shown("a*", "ab", 0xFFFFFFFF), "none");
}

TEST(PLXRegExpGroups, TellWhatTheyMatched) {
  std::string const text = "Date: Tue, 6 Oct 2026 08:09:10 +0200";
  PLXRegExp date{kDate};
  EXPECT_EQ(date.GetGroupCount(), 8u);
  ASSERT_TRUE(date.Execute(Plx(text), 0));
  char const* const parts[] = {"Tue", "6", "Oct", "2026", "08", "09", "10", "+0200", "none"};
  for (PLXUInt32 index = 0; index < std::size(parts); ++index)
    EXPECT_EQ(Group(date, text, index), parts[index]);

  // All repetitions together; nothing is left of alternatives that failed, or of the match before.
  PLXRegExp groups("(a)(b)c|(a)(b)+");
  ASSERT_TRUE(groups.Execute("abc", 0));
  ASSERT_TRUE(groups.Execute("xabbb", 0));
  char const* const later[] = {"", "", "a", "bbb", "none"};
  for (PLXUInt32 index = 0; index < std::size(later); ++index)
    EXPECT_EQ(Group(groups, "xabbb", index), later[index]);
  EXPECT_FALSE(groups.Execute("ab", 7));
  EXPECT_EQ(Group(groups, "ab", 2), "");
  EXPECT_EQ(groups.GetGroupCount(), 4u);
}

// ---- Errors ----

TEST(PLXRegExpErrors, AreTold) {
  struct Row {
    char const* why;
    char const* expression;
    PLXSInt32 error;
  };
  Row const rows[] = {
      {"group in a group, behind one mark", "(a(b))", 4},
      {"group in a group, behind three marks", "([a](b))", 8},
      {"group without end", "ab(c", 4},
      {"set without end", "a[bc", 3},
      {"set whose only bracket is a member", "[]", 2},
      {"brace without end", "ab{2", 3},
      {"brace without end behind a group", "(a){2", 5},
      {"nothing in braces", "a{}", -1},
      {"blank in braces", "[a]{1, 2}", -1},
      {"count beyond a byte", "(a){256}", -1},
      {"more than most", "a{3,2}", -1},
      {"braces of a group that end behind it", "(a{2)}", -1},
  };
  for (Row const& row : rows) {
    SCOPED_TRACE(row.why);
    PLXRegExp expression("(a)");
    EXPECT_EQ(expression.Compile(row.expression), row.error);
    EXPECT_FALSE(expression.Execute("abcd", 0));
    EXPECT_EQ(expression.GetGroupCount(), 0u);
  }
  EXPECT_FALSE(PLXRegExp().Execute("a", 0));
}

// ---- The twin ----

TEST(PLXRegExpTwin, AgreesOnRandomExpressions) {
  std::mt19937 random(26);
  std::vector<std::string> const parts = {
      "a",   "b",   "a+",   "(a)*", "(aa|b)+", "(a+ab|a)*", "|", "{2,}", "ab",
      "c",   ".",   "[ab]", "[^a]", "[a-c]",   "\\d",       "(", ")",    ")",
      "*",   "+",   "?",    "{2}",  "{1,}",    "{0,2}",     "|", "^",    "$",
      "\\n", "\\(", "\\[",  "[]",   "]",       "{",         "}", "(a*)", "[[:space:]]"};
  std::size_t const plainParts = 8;
  int compiled = 0;
  for (int round = 0; round < 40000 && !testing::Test::HasFailure(); ++round) {
    // Now and then a text long and dull enough for the ends of repetitions to be remembered.
    bool const isLong = round % 200 == 0;
    std::string expression;
    for (std::size_t count = random() % 9; count > 0; --count) {
      expression += parts[random() % (isLong ? plainParts : parts.size())];
    }
    std::string text;
    for (std::size_t count = random() % (isLong ? 400 : 12); count > 0; --count)
      text += "aaaabbbc\n(["[random() % 11];
    if (isLong) text.insert(0, 300, 'a');
    SCOPED_TRACE(testing::PrintToString(expression) + " on " + testing::PrintToString(text));

    RegExpTwin const twin(expression);
    PLXRegExp product;
    ASSERT_EQ(product.Compile(Plx(expression)), twin.error);
    if (twin.error != 0) continue;
    ++compiled;
    std::optional<RegExpTwin::Match> match;
    std::size_t at = 0;
    while (at < text.size() && !(match = twin.MatchAt(text, at))) ++at;
    ASSERT_EQ(product.Execute(Plx(text), 0), match.has_value());
    if (!match) continue;
    PLXUInt32 start = 0;
    PLXUInt32 length = 0;
    product.GetMatch(start, length);
    EXPECT_EQ(start, at);
    EXPECT_EQ(length, match->length);
    for (PLXUInt32 group = 0; product.GetGroup(group, start, length); ++group) {
      auto const expected = match->groups[static_cast<int>(group) + 1];
      EXPECT_EQ(std::pair(std::size_t{start}, std::size_t{length}), expected) << group;
    }
  }
  EXPECT_GT(compiled, 10000);
}

// ---- Limits ----

// Each of these takes minutes when the text is walked again from every place, or exhausts the stack.
TEST(PLXRegExpLimits, WorkGrowsWithTheTextAlone) {
  constexpr PLXUInt32 kMany = 1 << 18;
  PLXString const many('a', kMany);
  for (char const* expression :
       {"[a-z]+x", "(a*)*x", "(aa*x|a)*y", "(a|b)+(a|c)*x", kAddress, "(a+b?){3,}$x"}) {
    EXPECT_FALSE(PLXRegExp(expression).Execute(many, 0)) << expression;
  }
  PLXRegExp whole("(x|y|a)+");
  ASSERT_TRUE(whole.Execute(many, 0));
  PLXUInt32 start = 0;
  PLXUInt32 length = 0;
  ASSERT_TRUE(whole.GetGroup(0, start, length));
  EXPECT_EQ(length, kMany);

  PLXString alternatives;
  alternatives.ReserveToAppend(400000);
  for (int count = 0; count < 100000; ++count) alternatives.Append("b|");
  alternatives.Append('a');
  EXPECT_EQ(PLXRegExp().Compile(alternatives), 0);
  EXPECT_TRUE(PLXRegExp(alternatives).Execute("a", 0));
  EXPECT_NE(PLXRegExp().Compile(PLXString('(', kMany)), 0);
  EXPECT_NE(PLXRegExp().Compile(PLXString('[', kMany)), 0);
  EXPECT_NE(PLXRegExp().Compile(PLXString('{', kMany)), 0);
}

TEST(PLXRegExpThreads, ShareACompiledExpression) {
  PLXRegExp const expression("([a-z]+)@(\\d+)");
  std::vector<std::thread> threads;
  threads.reserve(4);
  for (int number = 0; number < 4; ++number) {
    threads.emplace_back([&expression, number] {
      PLXString const text(
          Plx("ada" + std::string(static_cast<std::size_t>(number), 'x') + "@" + std::to_string(number)));
      PLXRegExpMatch match;
      for (int round = 0; round < 2000; ++round) {
        PLXUInt32 start = 0;
        PLXUInt32 length = 0;
        ASSERT_TRUE(expression.Execute(text, 0, match));
        ASSERT_TRUE(match.GetGroup(1, start, length));
        ASSERT_EQ(text[start], '0' + number);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
