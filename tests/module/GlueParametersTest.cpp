#include <gtest/gtest.h>

#include "PLXModuleAPIGlue.h"
#include "PLXUtilityFunctions.h"
#include "SimulatedHost.h"

namespace {

typedef _PLXAPI_ModuleProcessingInfo Info;

std::string ToString(PLXString const& text_i) {
  return std::string(text_i.GetCStringAccess(), text_i.GetLength());
}

}  // namespace

TEST(GlueTagParameter, ConvertsItsTextAndFallsBackToTheDefault) {
  struct {
    char const* why;
    char const* text;  // null: the tag does not have it
    unsigned number;
    int signedNumber;
    double real;
    char const* decimal;  // "" is null
    bool flag;
  } const rows[] = {{"absent", nullptr, 7, -7, 0.5, "2.5", true},
                    {"empty", "", 0, 0, 0, "", false},
                    {"a number", "42", 42, 42, 42, "42", false},
                    {"a negative number", "-3", 0xFFFFFFFD, -3, -3, "-3", false},
                    {"a fraction", " 12.25 ", 12, 12, 12.25, "12.25", false},
                    {"no number", "twelve", 0, 0, 0, "", false},
                    {"a switch that is on", "On", 0, 0, 0, "", true},
                    {"a switch that is off", "off", 0, 0, 0, "", false},
                    {"one, a number and a switch", "1", 1, 1, 1, "1", true}};
  PLXStringID const name("size", PLXStringID::kIgnoreCase);
  for (auto const& row : rows) {
    SCOPED_TRACE(row.why);
    SimulatedHost host;
    if (row.text != nullptr) host.tagParameters = {{"SIZE", row.text}};
    Info* const info = host.Event();
    bool const isFound = row.text != nullptr;
    PLXStringID identifier;
    unsigned number = 99;
    int signedNumber = 99;
    double real = 99;
    PLXNumber decimal(99);
    bool flag = false;
    PLXStringID const defaultID("default", PLXStringID::kIgnoreCase);
    EXPECT_EQ(PLXGlueGetTagParameter(info, name, 0, identifier, defaultID), isFound);
    EXPECT_EQ(PLXGlueGetTagParameter(info, name, 0, number, 7u), isFound);
    EXPECT_EQ(PLXGlueGetTagParameter(info, name, 0, signedNumber, -7), isFound);
    EXPECT_EQ(PLXGlueGetTagParameter(info, name, 0, real, 0.5), isFound);
    EXPECT_EQ(PLXGlueGetTagParameter(info, name, 0, decimal, PLXNumber("2.5")), isFound);
    EXPECT_EQ(PLXGlueGetTagParameter(info, name, 0, flag, true), isFound);
    PLXStringID const expected(isFound ? row.text : "DEFAULT", PLXStringID::kIgnoreCase);
    EXPECT_EQ(identifier.GetID(), expected.GetID());
    EXPECT_EQ(number, row.number);
    EXPECT_EQ(signedNumber, row.signedNumber);
    EXPECT_EQ(real, row.real);
    EXPECT_EQ(ToString(decimal.GetStringRepresentation()), row.decimal);
    EXPECT_EQ(flag, row.flag);
    EXPECT_EQ(host.problem, "");
  }
}

TEST(GlueTagParameter, TellsThePagesAuthorWhatIsMissing) {
  PLXStringID const name("mailServer", PLXStringID::kIgnoreCase);
  SimulatedHost host;
  host.tag = "plxPOP";
  Info* const info = host.Event();
  PLXString text("old");
  PLXStringID identifier;
  unsigned number = 9;
  int signedNumber = 9;
  double real = 9;
  PLXNumber decimal(9);
  bool flag = true;
  EXPECT_FALSE(PLXGlueGetRequiredTagParameter(info, name, 0, text));
  EXPECT_EQ(host.problem,
            "An &lt;plxPOP&gt; tag was found but it is missing its &quot;mailServer&quot; parameter.");
  EXPECT_EQ(host.remedy,
            "Check the &lt;plxPOP&gt; tag to see if the &quot;mailServer&quot; parameter is missing or "
            "misspelled.");
  EXPECT_EQ(host.CountCalls(kPLXSupport_SetErrorInformation), 1u);
  EXPECT_FALSE(PLXGlueGetRequiredTagParameter(info, name, 0, identifier));
  EXPECT_FALSE(PLXGlueGetRequiredTagParameter(info, name, 0, number));
  EXPECT_FALSE(PLXGlueGetRequiredTagParameter(info, name, 0, signedNumber));
  EXPECT_FALSE(PLXGlueGetRequiredTagParameter(info, name, 0, real));
  EXPECT_FALSE(PLXGlueGetRequiredTagParameter(info, name, 0, decimal));
  EXPECT_FALSE(PLXGlueGetRequiredTagParameter(info, name, 0, flag));
  EXPECT_EQ(host.CountCalls(kPLXSupport_SetErrorInformation), 7u);
  EXPECT_EQ(ToString(text), "");
  EXPECT_TRUE(number == 0 && signedNumber == 0 && real == 0 && decimal.IsNull() && !flag);
}

TEST(GlueTagParameter, IsThereWhenItIsEmpty) {
  SimulatedHost host;
  host.tagParameters = {{"to", ""}};
  PLXString text("old");
  EXPECT_TRUE(
      PLXGlueGetRequiredTagParameter(host.Event(), PLXStringID("To", PLXStringID::kIgnoreCase), 0, text));
  EXPECT_EQ(ToString(text), "");
  EXPECT_EQ(host.CountCalls(kPLXSupport_SetErrorInformation), 0u);
}

TEST(ModuleUtility, MakesKeysOfTexts) {
  EXPECT_EQ(ToString(PLXUtilGetNormalizedString("a b,c.d")), "AB_C_D");
  EXPECT_EQ(ToString(PLXUtilGetNormalizedString("\t x\r\n&y/z ")), "X%26Y/Z");
  EXPECT_EQ(ToString(PLXUtilGetNormalizedString("")), "");
  EXPECT_EQ(ToString(PLXUtilGetModuleActionResponseString("a b", "Send Mail now", "?c")), "ABSEND%3FC");
  EXPECT_EQ(ToString(PLXUtilGetModuleActionResponseString("x", "SendMail", "")), "XSENDMAIL");
}

TEST(ModuleUtility, CopiesBytes) {
  char buffer[] = "abcdef";
  PLXUtilCopyBuffer(buffer, buffer + 2, 3);
  EXPECT_STREQ(buffer, "ababcf");
  PLXUtilCopyAndTerminateBuffer("xyz", buffer, 2);
  EXPECT_STREQ(buffer, "xy");
  EXPECT_EQ(PLXUtilGetCStringLength("four"), 4u);
  EXPECT_EQ(PLXUtilGetCStringLength(nullptr), 0u);
}
