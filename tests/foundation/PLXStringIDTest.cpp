#include <gtest/gtest.h>

#include "FoundationPrinters.h"
#include "PLXStringID.h"
#include "PLXTokenizedString.h"

TEST(PLXStringID, EqualityIsThatOfTheIdentifiers) {
  PLXStringID const ignoringCase("SendMail", PLXStringID::kIgnoreCase);
  EXPECT_EQ(ignoringCase, PLXStringID("sendmail", PLXStringID::kIgnoreCase));
  EXPECT_EQ(ignoringCase, PLXStringID("sendmail", 0)) << "identifiers ignore case by folding to lower case";
  EXPECT_NE(ignoringCase, PLXStringID("SendMail", 0));
  EXPECT_STREQ(ignoringCase.GetCStringAccess(), "SendMail") << "the text keeps its case";
  EXPECT_EQ(PLXStringID("\x80x", PLXStringID::kIgnoreCase), PLXStringID("\x8AX", PLXStringID::kIgnoreCase));
}

// Identifiers end up in stored data, so their values are fixed; the table's three own entries show here.
TEST(PLXStringID, ValuesAreFixed) {
  struct Row {
    char const* why;
    PLXString text;
    PLXUInt32 id;
  } const rows[] = {
      {"nothing", "", 0xFFFFFFFF},
      {"an entry of the polynomial", PLXString("\x01", 1), ~0x77073096u},
      {"own entry 28", PLXString("\x1C", 1), ~0x14045C4Fu},
      {"own entry 40", PLXString("(", 1), ~0x35B5A9FAu},
      {"own entry 177", PLXString("\xB1", 1), ~0xBC66B31Au},
  };
  for (Row const& row : rows) {
    SCOPED_TRACE(row.why);
    EXPECT_EQ(PLXStringID(row.text, 0).GetID(), row.id);
  }
}

TEST(PLXTag, IgnoresLetterCase) {
  EXPECT_EQ(PLXTag("plxSendMail"), PLXTag(PLXString("PLXSENDMAIL")));
  EXPECT_FALSE(PLXTag("plxSendMail") == PLXTag("plxPOP"));
  EXPECT_EQ(PLXTag("plxPOP").GetName(), PLXString("plxPOP"));
}

TEST(PLXTokenizedString, CutsAtEveryDelimiter) {
  struct Row {
    char const* why;
    char const* source;
    char const* delimiter;
    unsigned flags;
    std::vector<PLXString> tokens;
  } const rows[] = {
      {"adjacent and trailing", "a,,b,", ",", 0, {"a", "", "b", ""}},
      {"leading", "/a/b", "/", 0, {"", "a", "b"}},
      {"only a delimiter", ",", ",", 0, {"", ""}},
      {"no delimiter in it", "abc", ",", 0, {"abc"}},
      {"longer delimiters do not overlap", "a---b", "--", 0, {"a", "-b"}},
      {"ignoring case", "aXbxc", "x", 1, {"a", "b", "c"}},
      {"exact", "aXbxc", "x", 0, {"aXb", "c"}},
  };
  for (Row const& row : rows) {
    SCOPED_TRACE(row.why);
    PLXTokenizedString const tokens(row.source, row.delimiter, row.flags);
    ASSERT_EQ(tokens.GetTokenCount(), row.tokens.size());
    for (PLXUInt32 index = 0; index < tokens.GetTokenCount(); ++index)
      EXPECT_EQ(tokens[index], row.tokens[index]);
    EXPECT_EQ(tokens[tokens.GetTokenCount()], PLXString());
  }
}

TEST(PLXTokenizedString, RefusesEmptyTextsAndEmpties) {
  PLXTokenizedString tokens("a,b", ",");
  EXPECT_FALSE(tokens.Tokenize("a", ""));
  EXPECT_FALSE(tokens.Tokenize("", ","));
  EXPECT_EQ(tokens.GetTokenCount(), 2u) << "a refused call changes nothing";
  tokens.Empty();
  EXPECT_EQ(tokens.GetTokenCount(), 0u);
  EXPECT_TRUE(tokens.Tokenize("x y z", " "));
  EXPECT_TRUE(tokens.Tokenize("x y z", " "));
  EXPECT_EQ(tokens.GetTokenCount(), 6u) << "without Empty tokens add up";
  EXPECT_EQ(tokens[2], PLXString()) << "where the first list meets the second no text lies between";
}
