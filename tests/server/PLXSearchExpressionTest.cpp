#include <gtest/gtest.h>

#include "PLXSearchExpression.h"
#include "TextRows.h"

namespace {

// The search as it is written again, or what is wrong with it.
std::string Read(std::string_view text_i) {
  PLXSearchExpression expression;
  PLXSearchError error;
  return ParseSearchExpression(text_i, expression, error) ? FormatSearchExpression(expression) : error.text;
}

std::string Conditions(std::size_t count_i) {
  std::string text = "a=1";
  for (std::size_t n = 1; n < count_i; ++n) text += " OR a=1";
  return text;
}

}  // namespace

TEST(PLXSearchExpression, ReadsNamesOperatorsAndValuesAsTheyAreMeant) {
  TextRow const rows[] = {
      {"only blanks find everything", " \t\r\n", ""},
      {"no blank where none is needed", "a='1'AND b<>'2'OR c<='3'ORDER BY d",
       "a = '1' AND b <> '2' OR c <= '3' ORDER BY d ASC"},
      {"keywords of any case, over several lines", "a<'1'\r\nand b>='2'\nor c>'3'\torder\tby d dEsC ",
       "a < '1' AND b >= '2' OR c > '3' ORDER BY d DESC"},
      {"a name with blanks, dots, an apostrophe and 8-bit bytes", " O'Hara's  no. \xDF = 'x'",
       "O'Hara's  no. \xDF = 'x'"},
      {"a value is taken as it is", "a=' ''AND'' b=''1 '", "a = ' ''AND'' b=''1 '"},
      {"an empty value, and one apostrophe", "a='' OR a=''''", "a = '' OR a = ''''"},
      {"bare numbers keep their form", "a>-0.50 AND b=+.5 OR c=2451812700405",
       "a > '-0.50' AND b = '+.5' OR c = '2451812700405'"},
      {"names that hold keywords", "Brand or maker='x' AND android='y' ORDER BY or by",
       "Brand or maker = 'x' AND android = 'y' ORDER BY or by ASC"},
      {"a name that begins like an order", "Order by whom = 'me'", "Order by whom = 'me'"},
      {"order alone", "ORDER BY Username", "ORDER BY Username ASC"},
      {"letters beside the capitals", "a=1 ORDER BY {}~ desc", "a = '1' ORDER BY {}~ DESC"},
      {"only the last word is a direction", "ORDER BY Sort Desc ASC", "ORDER BY Sort Desc ASC"},
  };
  ExpectTexts(rows, [](std::string const& text_i) {
    EXPECT_EQ(Read(Read(text_i)), Read(text_i));
    return Read(text_i);
  });
}

TEST(PLXSearchExpression, TellsWhereNamesStandAndKeepsTheLastResultOnAnError) {
  PLXSearchExpression expression;
  PLXSearchError error;
  ASSERT_TRUE(ParseSearchExpression("a=1 OR  b=2 AND c=3 ORDER BY  d DESC", expression, error));
  EXPECT_FALSE(ParseSearchExpression("a='1' AND b", expression, error));
  EXPECT_EQ(error.position, 12U);
  ASSERT_EQ(expression.myAlternatives.size(), 2U);
  ASSERT_EQ(expression.myAlternatives[1].size(), 2U);
  EXPECT_EQ(expression.myAlternatives[1][1].myFieldPosition, 17U);
  EXPECT_EQ(expression.myOrderPosition, 31U);
}

TEST(PLXSearchExpression, TellsWhatIsWrongAndWhere) {
  std::string const remedy = "; an apostrophe inside a value is written twice";
  TextRow const rows[] = {
      {"an apostrophe not doubled", "Name='O'Brien'",
       "\"Brien'\" where AND, OR or ORDER BY belongs at character 9" + remedy},
      {"an order of nothing, and half of one", "a=1 ORDER BY ", "no field after ORDER BY at character 14"},
      {"half an order", "a=1 ORDER x", "\"ORDER\" where AND, OR or ORDER BY belongs at character 5" + remedy},
      {"a join with nothing behind", "a='1' and ", "no condition after \"and\" at character 11"},
      {"controls are shown as blanks", "a\x7F\tb", "no operator after \"a  b\" at character 5"},
      {"a sign of digits alone is no number", "a=+.",
       "neither a number nor a value in apostrophes, but \"+.\", at character 3"},
      {"two points", "a=1.2.3", "neither a number nor a value in apostrophes, but \"1.2.3\", at character 3"},
      {"no field", "a=1 AND = '2'", "no field before the operator at character 9"},
      {"no value", "a <= ", "no value for \"a\" at character 6"},
      {"a sign of another language", "a=='1'",
       "neither a number nor a value in apostrophes, but \"='1'\", at character 3"},
      {"a number with an exponent", "a=1e5",
       "neither a number nor a value in apostrophes, but \"1e5\", at character 3"},
      {"a zero byte would end the text elsewhere", std::string("a='\0'", 5), "a zero byte at character 4"},
      {"too many conditions", Conditions(501), "more than 500 conditions at character 3501"},
      {"long names are cut, between characters", std::string(39, 'x') + "\xC3\xA4\n",
       "no operator after \"" + std::string(39, 'x') + "...\" at character 42"},
  };
  ExpectTexts(rows, [](std::string const& text_i) {
    return Read(text_i).substr(std::string_view("the search has ").size());
  });
  EXPECT_EQ(Read("a = 'b''"), "the search does not close the value that begins at character 5");
  EXPECT_EQ(Read(std::string(1048577, ' ')), "the search exceeds 1048576 bytes at character 1048577");
  EXPECT_EQ(Read(std::string(1048576, ' ')), "");
  EXPECT_EQ(Read(Conditions(500)).substr(0, 7), "a = '1'");
}
