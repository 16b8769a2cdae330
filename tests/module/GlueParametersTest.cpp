#include "GlueRows.h"
#include "PLXUtilityFunctions.h"

namespace {

typedef _PLXAPI_ModuleProcessingInfo Info;

PLXStringID const ourName("mailServer", PLXStringID::kIgnoreCase);

template <typename T>
std::string Get(Info* info_i, T value_io, T const& default_i) {
  bool const isFound = PLXGlueGetTagParameter(info_i, ourName, 0, value_io, default_i);
  return " " + Told(isFound) + ":" + Told(value_io);
}

// The parameter in every type.
std::string GetAll(Info* info_i) {
  return Get<PLXString>(info_i, "old", "default") + Get(info_i, 99u, 7u) + Get(info_i, 99, -7) +
         Get(info_i, 99.0, 0.5) + Get(info_i, PLXNumber(99), PLXNumber("2.5")) + Get(info_i, false, true);
}

template <typename T>
std::string Require(Info* info_i, T value_io) {
  bool const isFound = PLXGlueGetRequiredTagParameter(info_i, ourName, 0, value_io);
  return " " + Told(isFound) + ":" + Told(value_io);
}

std::string RequireAll(Info* info_i) {
  return Require<PLXString>(info_i, "old") + Require(info_i, ourName) + Require(info_i, 9u) +
         Require(info_i, 9) + Require(info_i, 9.0) + Require(info_i, PLXNumber(9)) + Require(info_i, true);
}

}  // namespace

TEST(GlueTagParameter, ConvertsItsTextAndFallsBackToTheDefault) {
  struct {
    char const* why;
    char const* text;
    char const* told;
  } const rows[] = {{"empty", "", " true: true:0 true:0 true:0 true:null true:false"},
                    {"negative", "-3", " true:-3 true:4294967293 true:-3 true:-3 true:-3 true:false"},
                    {"fraction", " 12.25 ", " true: 12.25  true:12 true:12 true:12.25 true:12.25 true:false"},
                    {"no number", "twelve", " true:twelve true:0 true:0 true:0 true:null true:false"},
                    {"a switch that is on", "On", " true:On true:0 true:0 true:0 true:null true:true"},
                    {"a number and a switch", "1", " true:1 true:1 true:1 true:1 true:1 true:true"}};
  for (auto const& row : rows) {
    SCOPED_TRACE(row.why);
    SimulatedHost host;
    host.tagParameters = {{"MAILSERVER", row.text}};
    EXPECT_EQ(GetAll(host.Event()), row.told);
    PLXStringID id;
    EXPECT_TRUE(PLXGlueGetTagParameter(host.Event(), ourName, 0, id, ourName));
    EXPECT_EQ(id.GetID(), PLXStringID(row.text, PLXStringID::kIgnoreCase).GetID());
  }
  SimulatedHost host;
  EXPECT_EQ(GetAll(host.Event()), " false:default false:7 false:-7 false:0.5 false:2.5 false:true");
  EXPECT_EQ(host.problem, "");
}

TEST(GlueTagParameter, TellsThePagesAuthorWhatIsMissing) {
  SimulatedHost host;
  host.tag = "plxPOP";
  EXPECT_EQ(RequireAll(host.Event()), " false: false: false:0 false:0 false:0 false:null false:false");
  EXPECT_EQ(host.CountCalls(kPLXSupport_SetErrorInformation), 7u);
  EXPECT_EQ(host.problem,
            "An &lt;plxPOP&gt; tag was found but it is missing its &quot;mailServer&quot; parameter.");
  EXPECT_EQ(host.remedy,
            "Check the &lt;plxPOP&gt; tag to see if the &quot;mailServer&quot; parameter is missing or "
            "misspelled.");
  SimulatedHost furnished;
  furnished.tagParameters = {{"MailServer", ""}};
  EXPECT_EQ(Require<PLXString>(furnished.Event(), "old"), " true:");
  EXPECT_EQ(furnished.problem, "");
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
