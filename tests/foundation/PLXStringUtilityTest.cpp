#include <clocale>
#include <cmath>
#include <gtest/gtest.h>
#include <random>
#include <string>

#include "EncoderTwins.h"
#include "FoundationPrinters.h"
#include "PLXFileSpecification.h"
#include "PLXStringUtility.h"
#include "TemporaryFolder.h"
#include "TextRows.h"

namespace {

typedef PLXStringUtility Utility;

std::string URLEncoded(std::string const& text_i, bool encodeAll_i = false) {
  return Std(Utility::GetURLEncodedString(Plx(text_i), encodeAll_i));
}
std::string URLDecoded(std::string const& text_i) { return Std(Utility::GetURLDecodedString(Plx(text_i))); }
std::string HTMLEncoded(std::string const& text_i) { return Std(Utility::GetHTMLEncodedString(Plx(text_i))); }
std::string HTMLDecoded(std::string const& text_i) { return Std(Utility::GetHTMLDecodedString(Plx(text_i))); }
std::string Escaped(std::string const& text_i) { return Std(Utility::GetEscapedString(Plx(text_i))); }
std::string Unescaped(std::string const& text_i, bool decodeNumbers_i) {
  return Std(Utility::GetUnescapedString(Plx(text_i), decodeNumbers_i));
}

std::string AllBytes() {
  std::string bytes;
  for (int byte = 0; byte < 256; ++byte) bytes += static_cast<char>(byte);
  return bytes;
}

// Calls with short texts of the pieces, in every mixture that chance brings; the seed is fixed.
template <typename Function>
void ForRandomTexts(std::vector<std::string> const& pieces_i, Function function_i) {
  std::mt19937 random(71);
  for (int round = 0; round < 20000; ++round) {
    std::string text;
    for (std::size_t count = random() % 12; count > 0; --count) text += pieces_i[random() % pieces_i.size()];
    SCOPED_TRACE(text);
    function_i(text);
    if (testing::Test::HasFailure()) return;
  }
}

bool Allows(char const* rules_i, char const* address_i, PLXString* pattern_o = nullptr) {
  return Utility::ValidateIP(address_i, PLXTokenizedString(rules_i, ";"), pattern_o);
}

}  // namespace

// ---- URLs ----

TEST(PLXStringUtilityURL, EncodesWhatHasAMeaningInURLsAndNothingElse) {
  std::string encoded;
  std::string encodedOfAll;
  for (char const character : AllBytes()) {
    if (URLEncoded(std::string(1, character)).size() == 3) encoded += character;
    if (URLEncoded(std::string(1, character), true).size() == 3) encodedOfAll += character;
  }
  EXPECT_EQ(encoded, " \"#$%&+;<=>?@[\\]^`{|}");
  EXPECT_EQ(encodedOfAll, " \"#$%&+/:;<=>?@[\\]^`{|}~");
  EXPECT_EQ(URLEncoded("a b/c"), "a%20b/c");
  EXPECT_EQ(URLEncoded("a b/c", true), "a%20b%2Fc");
}

TEST(PLXStringUtilityURL, TellsWhetherAnythingChanged) {
  PLXString text("plain/~");
  EXPECT_FALSE(Utility::URLEncode(text));
  EXPECT_TRUE(Utility::URLEncode(text, true));
  EXPECT_TRUE(Utility::URLDecode(text));
  EXPECT_EQ(text, PLXString("plain/~"));
  PLXString invalid("%zz%4");
  EXPECT_FALSE(Utility::URLDecode(invalid));
  PLXString plus("a+b");
  EXPECT_TRUE(Utility::URLDecode(plus));
}

TEST(PLXStringUtilityURL, DecodesFromTheEnd) {
  TextRow const rows[] = {{"either letter case, a plus, no digits", "%4a+%zz", "J %zz"},
                          {"a decoded percent sign begins no escape", "%2541", "%41"},
                          {"decoded digits count for a sign to their left", "%%34%31", "A"},
                          {"a sign at the end", "100%", "100%"},
                          {"a zero byte", "%00", std::string(1, 0)}};
  ExpectTexts(rows, URLDecoded);
}

TEST(PLXStringUtilityURL, DecodesAsTheStepByStepTwinDoes) {
  ForRandomTexts({"%", "%", "2", "5", "3", "4", "1", "f", "+", "%25", "%34", "g"},
                 [](std::string const& text_i) { EXPECT_EQ(URLDecoded(text_i), twin::URLDecode(text_i)); });
}

// ---- HTML ----

TEST(PLXStringUtilityHTML, EncodesBytesAsPagesInUseSpellThem) {
  TextRow const rows[] = {
      {"markup", "<a b=\"c\">&'", "&lt;a b=&quot;c&quot;&gt;&amp;'"},
      {"an accented letter", "\xE9", "&eacute;"},
      {"four accents with an odd spelling", "\xD3\xDA\xF3\xFA", "&Oactue;&Uactue;&oactue;&uactue;"},
      {"a quotation mark with an odd spelling", "\xAB", "&lanquo;"},
      {"no entity: a number without a semicolon", "\x85 \x9F", "&#133 &#159"},
      {"control characters", std::string("\0\n\x7F", 3), std::string("\0\n\x7F", 3)},
      {"nothing", "", ""}};
  ExpectTexts(rows, HTMLEncoded);
}

TEST(PLXStringUtilityHTML, DecodesOnceAndOnlyExactEntities) {
  TextRow const rows[] = {{"what comes out is not decoded again", "&amp;lt;", "&lt;"},
                          {"an entity behind an unknown one", "&x&lt;;", "&x<;"},
                          {"letter case counts", "&AMP;&Eacute;", "&AMP;\xC9"},
                          {"the usual spelling of an odd one", "&laquo;", "&laquo;"},
                          {"numbers", "&#38;", "&#38;"},
                          {"cut at the end", "a&amp", "a&amp"},
                          {"the longest name", "&frac14;&brvbar;", "\xBC\xA6"},
                          {"a zero byte in a name", std::string("&l\0t;", 5), std::string("&l\0t;", 5)},
                          {"empty", "&;", "&;"}};
  ExpectTexts(rows, HTMLDecoded);
}

TEST(PLXStringUtilityHTML, DecodesAsTheStepByStepTwinDoes) {
  ForRandomTexts({"&", "&", ";", "amp", "lt", "not", "lanquo", "&gt;", "x", "amp;"},
                 [](std::string const& text_i) { EXPECT_EQ(HTMLDecoded(text_i), twin::HTMLDecode(text_i)); });
}

// ---- Backslashes and hexadecimal digits ----

TEST(PLXStringUtilityEscapes, EscapesFiveCharacters) {
  EXPECT_EQ(Escaped("a\tb\nc\vd\re\\"), "a\\tb\\nc\\vd\\re\\\\");
  EXPECT_EQ(Escaped("\"\a\b'"), "\"\a\b'");
  EXPECT_EQ(Unescaped(Escaped(AllBytes()), true), AllBytes());
}

TEST(PLXStringUtilityEscapes, ReadsDecimalNumbersOnlyWhenTold) {
  TextRow const rows[] = {{"a decimal number", "\\065", "A"},
                          {"more than a byte holds", "\\299", "+"},
                          {"beyond the first digits allowed", "\\300", "\\300"},
                          {"too few digits", "\\06x\\06", "\\06x\\06"},
                          {"digits behind the number", "\\0651", "A1"}};
  ExpectTexts(rows, [](std::string const& text_i) {
    EXPECT_EQ(Unescaped(text_i, false), text_i);
    return Unescaped(text_i, true);
  });
}

TEST(PLXStringUtilityEscapes, UnescapesAsTheStepByStepTwinDoes) {
  ForRandomTexts({"\\", "\\", "n", "t", "0", "1", "2", "9", "x"}, [](std::string const& text_i) {
    EXPECT_EQ(Unescaped(text_i, true), twin::Unescape(text_i, true));
    EXPECT_EQ(Unescaped(text_i, false), twin::Unescape(text_i, false));
  });
}

TEST(PLXStringUtilityHexCodes, GoThereAndBack) {
  PLXString const codes = Utility::GetHexCodesFromString(Plx(AllBytes()));
  EXPECT_EQ(codes.GetLength(), 512u);
  EXPECT_EQ(codes.GetSubstring(0xAE * 2, 4), PLXString("AEAF"));
  EXPECT_EQ(Std(Utility::GetStringFromHexCodes(codes)), AllBytes());
  EXPECT_EQ(Utility::GetStringFromHexCodes("6a6B4"), PLXString("jk"));
  EXPECT_EQ(Utility::GetStringFromHexCodes("4z"), PLXString("@"));
  EXPECT_EQ(Utility::GetStringFromHexCodes(""), PLXString());
}

// ---- Numbers ----

TEST(PLXStringUtilityNumbers, WritesIntegersInAnyRadix) {
  EXPECT_EQ(Utility::GetStringRepresentation(255, 16, 4), PLXString("00FF"));
  EXPECT_EQ(Utility::GetStringRepresentation(-42, 10, 3), PLXString("-042"));
  EXPECT_EQ(Utility::GetStringRepresentation(0), PLXString("0"));
  EXPECT_EQ(Utility::GetStringRepresentation(4294967295u, 2), PLXString('1', 32));
  EXPECT_EQ(Utility::GetStringRepresentation(4294967295u, 36), PLXString("1Z141Z3"));
  EXPECT_EQ(Utility::GetStringRepresentation(static_cast<int>(0x80000000u)), PLXString("-2147483648"));
  EXPECT_EQ(Utility::GetStringRepresentation(7u, 10, 50).GetLength(), 50u);
  for (unsigned const radix : {0u, 1u, 37u})
    EXPECT_EQ(Utility::GetStringRepresentation(7u, radix), PLXString());
}

TEST(PLXStringUtilityNumbers, WarnsOfAMinimumOfNoDigits) {
  testing::internal::CaptureStderr();
  EXPECT_EQ(Utility::GetStringRepresentation(0u, 10, 0), PLXString("0"));
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "\tFILE: \"src/PLXStringUtility.cpp\"\nSTATE WARNING: minimumDigitCount_i < 1\n");
}

TEST(PLXStringUtilityNumbers, WritesDoublesAsTheCFormatOfWidthFourDoes) {
  double const values[] = {0.0,      -0.0,      1.5,   2.5,    0.125, -0.5,    3.14159,
                           1e22,     1e-7,      1e300, 5e-324, 99.95, -1234.5, 123456789.987654321,
                           INFINITY, -INFINITY, NAN};
  for (double const value : values) {
    for (unsigned const digits : {0u, 1u, 2u, 8u, 20u, 400u, 1074u, 1200u}) {
      char expected[2000];
      std::snprintf(expected, sizeof expected, "%4.*f", static_cast<int>(digits), value);
      EXPECT_EQ(Std(Utility::GetStringRepresentation(value, digits)), expected);
    }
  }
  EXPECT_EQ(Utility::GetStringRepresentation(1.5, 1), PLXString(" 1.5"));
  EXPECT_EQ(Utility::GetStringRepresentation(3.14159, 2), PLXString("3.14"));
}

TEST(PLXStringUtilityNumbers, KnowsAPointInEveryLocale) {
  std::string const before = std::setlocale(LC_NUMERIC, nullptr);
  for (char const* const locale : {"de_DE.UTF-8", "fr_FR.UTF-8"}) {
    if (std::setlocale(LC_NUMERIC, locale) == nullptr) continue;
    EXPECT_EQ(Utility::GetStringRepresentation(1.25, 2), PLXString("1.25"));
    EXPECT_EQ(Utility::GetNumericalRepresentation("1.25"), 1.25);
  }
  std::setlocale(LC_NUMERIC, before.c_str());
}

TEST(PLXStringUtilityNumbers, ReadsIntegersAsFarAsTheyGo) {
  struct NumberRow {
    char const* why;
    char const* text;
    unsigned radix;
    int expected;
  };
  NumberRow const rows[] = {{"separators of thousands", "1,234", 10, 1234},
                            {"negative in small letters", "-ff", 16, -255},
                            {"white space around", " \t\r\n+7 \n", 10, 7},
                            {"white space behind the sign ends the number", "- 7", 10, 0},
                            {"two signs", "-+7", 10, 0},
                            {"the greatest digit", "zz", 36, 35 * 36 + 35},
                            {"a digit not below the radix", "129", 9, 11},
                            {"a comma counts only in radix 10", "1,2", 36, (36 - 4) * 36 + 2},
                            {"a colon is the digit ten", "1:", 16, 26},
                            {"a character below 0 is a negative digit", "2-1", 8, (2 * 8 - 3) * 8 + 1},
                            {"a letter beyond ASCII ends the number", "1\xE9", 36, 1},
                            {"wraps round at 32 bits", "4294967297", 10, 1},
                            {"the least number", "-2147483648", 10, -2147483647 - 1},
                            {"no such radix", "1", 37, 0},
                            {"radix 0 has no digits", "1", 0, 0}};
  for (NumberRow const& row : rows) {
    SCOPED_TRACE(row.why);
    EXPECT_EQ(Utility::GetNumericalRepresentation(row.text, row.radix), row.expected);
  }
}

TEST(PLXStringUtilityNumbers, ReadsDoubles) {
  EXPECT_EQ(Utility::GetNumericalRepresentation(" \n-1.5e3x"), -1500.0);
  EXPECT_EQ(Utility::GetNumericalRepresentation("1,5"), 1.0);
  EXPECT_EQ(Utility::GetNumericalRepresentation("x"), 0.0);
  EXPECT_EQ(Utility::GetNumericalRepresentation(""), 0.0);
}

TEST(PLXStringUtilityNumbers, KnowsASCIIOnly) {
  std::string digits;
  std::string letters;
  for (char const character : AllBytes()) {
    if (Utility::IsDigit(character)) digits += character;
    if (Utility::IsAlpha(character)) letters += character;
    EXPECT_EQ(Utility::IsAlphaDigit(character), Utility::IsDigit(character) || Utility::IsAlpha(character));
  }
  EXPECT_EQ(digits, "0123456789");
  EXPECT_EQ(letters, "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz");
}

// ---- Addresses ----

TEST(PLXStringUtilityValidateIP, LetsTheClosestRuleDecide) {
  struct RuleRow {
    char const* why;
    char const* rules;
    char const* address;
    bool allowed;
    char const* pattern;
  };
  RuleRow const rows[] = {
      {"the closer pattern denies", "a:10.*.*.*;d:10.1.*.*", "10.1.2.3", false, "10.1.*.*"},
      {"only the wider pattern matches", "a:10.*.*.*;d:10.1.*.*", "10.2.0.1", true, "10.*.*.*"},
      {"deny wins a tie", "a:10.1.*.*;d:10.1.*.*", "10.1.2.3", false, "10.1.*.*"},
      {"and stays", "d:10.*.*.*;a:10.*.*.*", "10.1.2.3", false, "10.*.*.*"},
      {"only a d wins a tie", "a:*.*.*.1;x:*.*.*.1", "1.1.1.1", true, "*.*.*.1"},
      {"the first part outweighs the rest", "a:10.*.*.*;d:*.1.2.3", "10.1.2.3", true, "10.*.*.*"},
      {"white space and letter case", " A : 10.*.*.* ", "10.1.2.3", true, "10.*.*.*"},
      {"a second colon belongs to the pattern", "a:10:1.*.*.*", "10:1.2.3.4", true, "10:1.*.*.*"},
      {"parts are compared as text", "a:10.1.2.3", "10.1.2.03", false, ""},
      {"rules of another shape are passed over", "10.1.2.3;a:10.1.2;a:10.*.*.*.*;a:*.*.*.3", "10.1.2.3", true,
       "*.*.*.3"},
      {"no rule matches", "a:11.*.*.*", "10.1.2.3", false, ""},
      {"three parts", "a:*.*.*.*", "10.1.2", false, ""},
      {"a star in the address", "a:*.*.*.*", "10.1.2.*", false, ""},
      {"no address", "a:*.*.*.*", "", false, ""}};
  for (RuleRow const& row : rows) {
    SCOPED_TRACE(row.why);
    PLXString pattern("old");
    EXPECT_EQ(Allows(row.rules, row.address, &pattern), row.allowed);
    EXPECT_EQ(pattern, PLXString(row.pattern));
  }
  EXPECT_TRUE(Allows("a:*.*.*.*", "1.2.3.4"));
}

// ---- Files ----

TEST(PLXStringUtilityFiles, FindsTheFirstNameThatIsFree) {
  TemporaryFolder const folder;
  for (char const* const name : {"report.txt", "report1.txt", "a.b.c", "plain", ".profile"}) {
    folder.Write(name, name);
  }
  TextRow const rows[] = {{"nothing has the name", "new.txt", "new.txt"},
                          {"two are taken", "report.txt", "report2.txt"},
                          {"the number begins anew behind the given name", "report1.txt", "report11.txt"},
                          {"only the last point begins the extension", "a.b.c", "a.b1.c"},
                          {"no extension", "plain", "plain1"},
                          {"nothing but an extension", ".profile", "1.profile"}};
  ExpectTexts(rows, [&](std::string const& name_i) {
    PLXFileSpecification file(Plx(folder / name_i));
    EXPECT_TRUE(Utility::FindAvailableFilename(file));
    return std::filesystem::path(Std(file.GetOperatingSystemPathname()))
        .lexically_relative(folder.Path())
        .string();
  });
  PLXFileSpecification nameless(Plx(folder / ""));
  EXPECT_FALSE(Utility::FindAvailableFilename(nameless));
  PLXFileSpecification lost(Plx(folder / "missing/report.txt"));
  EXPECT_DEATH(Utility::FindAvailableFilename(lost),
               "\tFILE: \"src/PLXStringUtility.cpp\"\nSTATE ASSERTION FAILURE: parentFolder.Exists\\(\\)\n");
}
