#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "PLXModuleAPI.h"
#include "PLXPage.h"
#include "PLXRecordCursor.h"
#include "PLXRecordsAdministration.h"
#include "PageFixture.h"
#include "TextRows.h"

// Records in pages and in the administration.

using testing::HasSubstr;
using testing::Not;

namespace {

// <plxShow> shows its parameter and body.
class ShowTag : public PLXTagProcessor {
 public:
  Tag const* FindTag(std::string_view name_i) const override {
    return name_i == "plxShow" ? &myTag : nullptr;
  }
  PLXTagOutcome Process(PLXTagOccurrence const& tag_i, PLXPageContext&) override {
    PLXTagOutcome outcome;
    outcome.html = "[" + tag_i.parameters.at(0).value + "|" + tag_i.body + "]";
    return outcome;
  }

 private:
  Tag const myTag{"plxShow", kPLXTagFlag_EnclosesBody};
};

class PLXRecordsPage : public testing::Test {
 protected:
  PLXRecordsPage() {
    auto cursor = Open("Planets");
    cursor->AddField("Name", 0x60000 | 50 | PLXRecordField::kUnique);
    cursor->AddField("Radius km", 0x20000);
    cursor->AddField("It's text", 0x70000);
    for (auto const& [name, radius] :
         {std::pair("Mars", 3390), std::pair("<b>Earth</b>", 6371), std::pair("O'Brien's", 1)}) {
      cursor->NewRecord();
      cursor->Set("Name", std::string_view(name));
      cursor->Set("Radius km", std::int64_t{radius});
      cursor->Set("It's text", std::string_view("&plxPost.name;<plxShow a=1>"));
      cursor->Add();
    }
    auto moons = Open("Moons");
    moons->AddField("Moon", 0x60000 | 50);
    moons->AddField("Planet", 0x60000 | 50);
    for (auto const& [moon, planet] :
         {std::pair("Phobos", "Mars"), std::pair("Deimos", "Mars"), std::pair("Luna", "<b>Earth</b>")}) {
      moons->NewRecord();
      moons->Set("Moon", std::string_view(moon));
      moons->Set("Planet", std::string_view(planet));
      moons->Add();
    }
  }
  std::unique_ptr<PLXRecordCursor> Open(std::string const& name_i) {
    return std::make_unique<PLXRecordCursor>(fixture.records.Store(), name_i, PLXRecordAccess::kShared,
                                             nullptr);
  }
  std::string Rendered(std::string const& text_i) {
    PLXPageContext context = fixture.Context();
    return RenderPage(*PLXPage::Parse(text_i, tags), tags, context);
  }

  PageFixture fixture;
  ShowTag tags;
};

}  // namespace

TEST_F(PLXRecordsPage, RepeatsItsBodyForWhatWasFound) {
  fixture.request.pathArguments = {{"name", "O'Brien's"}, {"evil", "x' OR Name <> 'x"}, {"n", "1"}};
  TextRow const rows[] = {
      {"all, in the order of adding, encoded", "<plxRecords database=planets>&plxField.Name;;</plxRecords>",
       "Mars;&lt;b&gt;Earth&lt;/b&gt;;O&#39;Brien&#39;s;"},
      {"a number, the identifier, a name with a blank, in any case",
       "<PLXRECORDS database='Planets' search=\"Radius km > '5'\" order='radius KM DESC'>"
       "&plxField.plxidfield;=&plxField.radius km; </plxrecords>",
       "2=6371 1=3390 "},
      {"what a value holds is never read as a page",
       "<plxRecords database=Planets limit=1>&plxField.It's text;<plxShow a='&plxField.It&#39;s "
       "text;'></plxShow></plxRecords>",
       "&amp;plxPost.name;&lt;plxShow a=1&gt;[&plxField.It's text;|]"},
      {"in a tag's parameter and body a plain value",
       "<plxRecords database=Planets limit=1 offset=1><plxShow "
       "a='&plxField.Name;'>&plxField.Name;</plxShow></plxRecords>",
       "[<b>Earth</b>|<b>Earth</b>]"},
      {"limit and offset from the address, counted as if without",
       "<plxRecords database=Planets limit='&plxPath.n;' "
       "offset='&plxPath.n;'>&plxRecords.Count;:&plxField.PLXIDFIELD;"
       "</plxRecords> of &plxRecords.Count;",
       "3:2 of 3"},
      {"only counted",
       "<plxRecords database=Planets search=\"Name = 'Mars'\" limit=0>x</plxRecords>&plxRecords.count;", "1"},
      {"nothing found",
       "<plxRecords database=Planets search=\"Name = 'Vulcan'\">x</plxRecords>&plxRecords.Count;", "0"},
      {"beyond the end", "<plxRecords database=Planets offset=3>x</plxRecords>", ""},
      {"an apostrophe in a value is data",
       "<plxRecords database=Planets search=\"Name = '&plxPath.name;'\">&plxField.PLXIDFIELD;</plxRecords>",
       "3"},
      {"and so is all else in it",
       "<plxRecords database=Planets search=\"Name = '&plxPath.evil;'\">x</plxRecords>&plxRecords.Count;",
       "0"},
      {"loops in loops",
       "<plxRecords database=Planets order=Name>&plxField.Name;:<plxRecords database=Moons search=\"Planet = "
       "'&plxField.Name;'\" order='Moon'> &plxField.Moon; of &plxField.Radius "
       "km;/&plxRecords.Count;</plxRecords>"
       "(&plxRecords.Count;) </plxRecords>&plxRecords.Count;",
       "&lt;b&gt;Earth&lt;/b&gt;: Luna of 6371/1(3) Mars: Deimos of 3390/2 Phobos of 3390/2(3) "
       "O&#39;Brien&#39;s:(3) 3"},
      {"outside a loop and of another field, nothing",
       "&plxField.Name;&plxRecords.Count;<plxRecords database=Moons limit=1>&plxField.None;</plxRecords>",
       ""},
      {"without a body", "<plxRecords database='Planets'/>&plxRecords.Count;", "3"},
  };
  ExpectTexts(rows, [&](std::string const& page_i) { return Rendered(page_i); });
}

TEST_F(PLXRecordsPage, SaysWhatIsWrongInItsPlace) {
  struct Row {
    char const* tag;
    char const* part;
  } const rows[] = {{"<plxRecords>", "database is missing"},
                    {"<plxRecords database='<i>'>", "&lt;i&gt;"},
                    {"<plxRecords database=Planets limit=ten>", "limit is no number"},
                    {"<plxRecords database=Planets offset=-1>", "offset is no number"},
                    {"<plxRecords database=Planets search='Name'>", "no operator"},
                    {"<plxRecords database=Planets order='None'>", "&quot;None&quot;"},
                    {"<plxRecords database=Planets order=\"Name = 'x'\">", "order names no field"},
                    {"<plxRecords database='a/b'>", "No name for a database"}};
  for (Row const& row : rows) {
    SCOPED_TRACE(row.tag);
    std::string const html = Rendered("a" + std::string(row.tag) + "body</plxRecords>b");
    EXPECT_THAT(html, HasSubstr(row.part));
    EXPECT_THAT(html, HasSubstr("role=\"alert\""));
    EXPECT_THAT(html, Not(HasSubstr("body")));
    EXPECT_TRUE(html.starts_with("a<") && html.ends_with("b"));
  }
  EXPECT_THAT(Rendered("<plxRecords database=Planets>x"), HasSubstr("closing tag is missing"));
  EXPECT_EQ(fixture.records.Store()->Names().size(), 2u) << "a page that shows records makes no database";
}

TEST_F(PLXRecordsPage, AreAdministered) {
  for (int number = 0; number < 120; ++number) {
    auto cursor = Open("Many & more");
    if (number == 0) cursor->AddField("n", 0x20000 | PLXRecordField::kIndexed);
    cursor->NewRecord();
    cursor->Set("n", std::int64_t{number});
    cursor->Add();
  }
  PLXRecordsAdministration administration(fixture.records);
  PLXRequest& request = fixture.request;
  auto const page = [&](std::vector<PLXNameValue> arguments) {
    request.pathArguments = std::move(arguments);
    return administration.Answer(request);
  };
  EXPECT_THAT(page({}).body,
              HasSubstr("?name=Many%20%26%20more\">Many &amp; more</a></td><td class=\"number\">1</td>"
                        "<td class=\"number\">120</td>"));
  std::string const second = page({{"name", "many & MORE"}, {"page", "2"}}).body;
  EXPECT_THAT(second, HasSubstr("<td>n</td><td>integer</td><td>indexed</td>"));
  EXPECT_THAT(second, HasSubstr("120 records, page 2 of 3"));
  EXPECT_THAT(second, HasSubstr("<td class=\"number\">50</td></tr>"));
  EXPECT_THAT(second, HasSubstr("<td class=\"number\">99</td></tr>"));
  EXPECT_THAT(second, Not(HasSubstr("<td class=\"number\">100</td></tr>")));
  EXPECT_THAT(page({{"name", "Many & more"}, {"page", "99"}}).body, HasSubstr("page 3 of 3"));
  EXPECT_THAT(page({{"name", "Many & more"}, {"search", "n < '7'"}}).body,
              HasSubstr("7 records, page 1 of 1"));
  EXPECT_THAT(page({{"name", "Many & more"}, {"search", "n <"}}).body, HasSubstr("role=\"alert\""));
  EXPECT_THAT(page({{"name", "None"}}).body, HasSubstr("There is no database"));

  std::vector<PLXNameValue> const record{{"name", "Planets"}, {"record", "2"}};
  EXPECT_THAT(page(record).body, HasSubstr("<dd>&lt;b&gt;Earth&lt;/b&gt;</dd>"));
  EXPECT_THAT(page(record).body, HasSubstr("<pre>&amp;plxPost"));
  EXPECT_THAT(page({{"name", "Planets"}, {"record", "2"}, {"delete", "ask"}}).body,
              HasSubstr("Delete record 2 for good?"));
  EXPECT_EQ(Open("Planets")->RecordCount(), 3u) << "asked and not deleted";
  request.method = "POST";
  EXPECT_EQ(page(record).redirect, "/plx-admin/databases?name=Planets&record=2") << "not answered";
  request.postArguments = {{"delete", "yes"}};
  EXPECT_EQ(page(record).redirect, "/plx-admin/databases?name=Planets&deleted=1");
  EXPECT_EQ(Open("Planets")->RecordCount(), 2u);
  EXPECT_THAT(page(record).body, HasSubstr("There is no record 2"));
}
