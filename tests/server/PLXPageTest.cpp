#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>

#include "PLXASCII.h"
#include "PLXModuleAPI.h"
#include "PLXPage.h"
#include "PageFixture.h"
#include "TextRows.h"

using testing::HasSubstr;
using testing::Not;

namespace {

// <plxShow> shows its parameters, <plxWrap> its body, <plxTagged> writes what would be a tag and a value,
// <plxSet> sets a page variable, <plxFails> reports a problem.
class FakeTags : public PLXTagProcessor {
 public:
  Tag const* FindTag(std::string_view name_i) const override {
    static std::map<std::string, Tag, PLXLessIgnoringCase> const ourTags{
        {"plxShow", {"plxShow", kPLXTagFlag_StandsAlone}},
        {"plxWrap", {"plxWrap", kPLXTagFlag_EnclosesBody}},
        {"plxOther", {"plxOther", kPLXTagFlag_EnclosesBody}},
        {"plxTagged", {"plxTagged", kPLXTagFlag_StandsAlone}},
        {"plxSet", {"plxSet", kPLXTagFlag_StandsAlone}},
        {"plxFails", {"plxFails", kPLXTagFlag_StandsAlone}},
        {"plxWarns", {"plxWarns", kPLXTagFlag_StandsAlone}}};
    auto const found = ourTags.find(name_i);
    return found == ourTags.end() ? nullptr : &found->second;
  }

  PLXTagOutcome Process(PLXTagOccurrence const& tag_i, PLXPageContext& context_io) override {
    PLXTagOutcome outcome;
    if (tag_i.name == "plxTagged") {
      outcome.html = "<plxShow>&plxPost.name;";
    } else if (tag_i.name == "plxSet") {
      context_io.variables.push_back(tag_i.parameters.at(0));
    } else if (tag_i.name == "plxFails" || tag_i.name == "plxWarns") {
      outcome.html = "<plxDoNotProcess>&plxPost.name;</plxDoNotProcess>";
      outcome.result = tag_i.name == "plxFails" ? 1 : 0;
      outcome.hasProblem = true;
      outcome.problem = "It is <b>broken</b>.";
      outcome.remedy = "Mend it.";
    } else {
      outcome.html = tag_i.name == "plxShow" ? "[" : "{";
      for (auto const& [name, value] : tag_i.parameters) outcome.html += name + "=" + value + ";";
      outcome.html += tag_i.name == "plxShow" ? "]" : tag_i.body + "}";
    }
    lastLine = tag_i.line;
    return outcome;
  }

  int lastLine = 0;
};

class PLXPageText : public testing::Test {
 protected:
  std::string Rendered(std::string const& text_i) {
    PLXPageContext context = fixture.Context();
    return RenderPage(*PLXPage::Parse(text_i, tags), tags, context);
  }

  PageFixture fixture;
  FakeTags tags;
};

std::size_t CountOf(std::string_view wanted_i, std::string_view text_i) {
  std::size_t count = 0;
  for (std::size_t at = text_i.find(wanted_i); at != std::string_view::npos;
       at = text_i.find(wanted_i, at + 1))
    ++count;
  return count;
}

std::string Repeated(std::string_view text_i, std::size_t count_i) {
  std::string text;
  while (count_i-- > 0) text += text_i;
  return text;
}

TEST_F(PLXPageText, RunsTagsInPlace) {
  using namespace std::string_literals;
  TextRow const rows[] = {
      {"no tag at all", "a < b &amp; c", "a < b &amp; c"},
      {"any letter case", "x<PLXshow A=1>y", "x[A=1;]y"},
      {"three ways to quote, and a flag", "<plxShow a=\"1 >\" b='\"2\"' c=3/4 d>",
       "[a=1 >;b=\"2\";c=3/4;d=;]"},
      {"blanks and line breaks around the sign", "<plxShow\n a =\r\n\t'1'\n>", "[a=1;]"},
      {"repeated parameters stay in order", "<plxShow a=1 b=2 a=3>", "[a=1;b=2;a=3;]"},
      {"closed as XML does", "<plxShow a='1'/><plxShow b />", "[a=1;][b=;]"},
      {"entities", "<plxShow a='&amp;&lt;&gt;&quot;&apos;&#65;&#x20AC;&#X1F600;'>",
       "[a=&<>\"'A\u20AC\U0001F600;]"},
      {"no entities", "<plxShow a='?a=1&lt=2&b;&#0;&#xD800;&#x110000;&;&'>",
       "[a=?a=1&lt=2&b;&#0;&#xD800;&#x110000;&;&;]"},
      {"decoded once", "<plxShow a='&amp;lt;'>", "[a=&lt;;]"},
      {"nobody's tag is text, and so is its closing tag", "<plxNobody a='<'>x</plxNobody>",
       "<plxNobody a='<'>x</plxNobody>"},
      {"a body", "<plxWrap a=1>text</PLXWRAP >", "{a=1;text}"},
      {"the same tag inside itself", "<plxWrap>a<plxWrap>b</plxWrap>c</plxWrap>", "{a{b}c}"},
      {"tags in a body run first", "<plxWrap>a<plxShow b=1>c</plxWrap>", "{a[b=1;]c}"},
      {"a closing tag after a tag without body", "<plxShow></plxShow>x", "[]x"},
      {"nothing runs in a comment", "<!-- <plxShow> &plxPath.a; --><plxShow><!--><plxShow><!-- <plxShow>",
       "<!-- <plxShow> &plxPath.a; -->[]<!-->[]<!-- <plxShow>"},
      {"untouched text", "<plxDoNotProcess><plxShow>&plxPath.a;<plxWrap></plxDonotprocess ><plxShow>",
       "<plxShow>&plxPath.a;<plxWrap>[]"},
      {"untouched text in a body", "<plxWrap><plxDoNotProcess></plxWrap></plxDoNotProcess></plxWrap>",
       "{</plxWrap>}"},
      {"what a tag writes is not read again", "<plxTagged><plxWrap><plxTagged></plxWrap>",
       "<plxShow>&plxPost.name;{<plxShow>&plxPost.name;}"},
      {"zero bytes and high bytes", "\0\xFF<plxShow a='\0\x80'>\0"s, "\0\xFF[a=\0\x80;]\0"s},
  };
  ExpectTexts(rows, [&](std::string const& page_i) { return Rendered(page_i); });
}

TEST_F(PLXPageText, PutsValuesIn) {
  fixture.request.postArguments = {
      {"name", "<b>\"&'"}, {"first name", "Ada"}, {"twice", "1"}, {"twice", "2"}};
  fixture.request.pathArguments = {{"url", "&amp;&plxPost.name;' x='<plxShow>"}};
  fixture.request.cookies = {{"Session", "s1"}};
  fixture.request.headers = {{"User-Agent", "test"}, {"Authorization", "Basic c2VjcmV0"}, {"X_Forged", "1"}};
  std::string const longName(255, 'n');
  std::string const tooLong = "&plxPost." + longName + "n;";
  TextRow const rows[] = {
      {"encoded in page text", "&plxPost.name;", "&lt;b&gt;&quot;&amp;&#39;"},
      {"plain in a body", "<plxWrap>&plxPost.name;</plxWrap>", "{<b>\"&'}"},
      {"plain in a parameter, and read by nobody", "<plxShow a='1&amp;&plxPath.url;2&PLXpost.name;' b=3>",
       "[a=1&&amp;&plxPost.name;' x='<plxShow>2<b>\"&';b=3;]"},
      {"plain in a bare parameter", "<plxShow a=x&plxPost.twice;y>", "[a=x1y;]"},
      {"characters by number, one to four bytes of UTF-8",
       "<plxShow a='&#65;&#xE9;&#8364;&#x1F600;&#xD800;&#x110000;&#9a;'>",
       "[a=A\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80&#xD800;&#x110000;&#9a;;]"},
      {"signs that belong to no name", "&plxPost.a:b;&plxPost.a{b;&plxPost.a@b;&plxPost.\xE9;",
       "&plxPost.a:b;&plxPost.a{b;&plxPost.a@b;&plxPost.\xE9;"},
      {"numbers without digits", "<plxShow a='&#;&#x;&#xg;&#x{;'>", "[a=&#;&#x;&#xg;&#x{;;]"},
      {"names that go on are others, signs behind a name are not", "<plxShow_x><plxShow-x><plxShow:>",
       "<plxShow_x><plxShow-x>[:=;]"},
      {"a name with blanks", "&plxPost.first name;", "Ada"},
      {"arguments and cookies by their exact names", "&plxPost.NAME;|&plxCookie.session;|&plxCookie.Session;",
       "||s1"},
      {"variables in any letter case, as set so far", "&plxVariable.v;<plxSet v='1'>&plxVariable.V;", "1"},
      {"a value that does not exist", "a&plxPost.none;b", "ab"},
      {"an unknown kind is text", "&plxNone.a;&plx.a;", "&plxNone.a;&plx.a;"},
      {"no name is text", "&plxPost.;&plxPost.a&b;&plxPost.a", "&plxPost.;&plxPost.a&b;&plxPost.a"},
      {"a name that is too long is text", tooLong, tooLong},
      {"server and request",
       "&plxCGI.request_method; &plxCGI.QUERY_STRING; &plxCGI.SCRIPT_NAME; &plxCGI.SERVER_NAME; "
       "&plxCGI.SERVER_PORT; &plxCGI.REMOTE_ADDR; &plxCGI.HTTP_USER_AGENT;",
       "GET a=1 /folder/page.html demo.test 8080 192.0.2.7 test"},
      {"no credentials, no forged header",
       "&plxCGI.HTTP_AUTHORIZATION;&plxCGI.AUTH_TYPE;&plxCGI.HTTP_X_FORGED;", ""},
  };
  ExpectTexts(rows, [&](std::string const& page_i) { return Rendered(page_i); });
}

TEST_F(PLXPageText, ShowsAFaultInItsPlaceAndGoesOn) {
  struct Row {
    char const* why;
    char const* page;
    char const* problem;
    char const* rest;  // what the page still shows
  };
  Row const rows[] = {
      {"a tag that another interrupts", "a\n<plxShow a='1' <b>c</b>",
       "&lt;plxShow&gt; tag on line 2 is never closed", "</div><b>c</b>"},
      {"a quote that stays open", "<plxShow a=\"1>rest<br>", "quotation mark is never closed",
       "</div>rest<br>"},
      {"a quote closed by another tag's", "<plxShow a=\"1>rest<plxShow b=\"2\">",
       "quotation mark where none can stand", "</div>rest[b=2;]"},
      {"a quote in a bare value", "<plxShow a=1\"2\">rest", "quotation mark where none can stand",
       "</div>rest"},
      {"a value without a name", "<plxShow ='1'>rest", "without a parameter name", "</div>rest"},
      {"a body without end", "1\n2\n<plxWrap>rest<plxShow>", "&lt;plxWrap&gt; tag on line 3 encloses text",
       "</div>rest[]"},
      {"a body that ends inside another", "<plxOther><plxWrap>in</plxOther>out",
       "&lt;plxWrap&gt; tag on line 1 encloses", "</div>in}out"},
      {"a closing tag too many", "a</plxWrap>b", "&lt;/plxWrap&gt; on line 1 has no opening tag", "</div>b"},
      {"a closing tag that is not closed", "<plxWrap>a</plxWrap<b>",
       "&lt;/plxWrap&gt; tag on line 1 is never closed", "</div><b>"},
      {"untouched text without end", "<plxDoNotProcess>a<plxShow>",
       "&lt;plxDoNotProcess&gt; tag on line 1 encloses", "</div>a[]"},
      {"one fault, one box", "<plxWrap a='1>b</plxWrap>c", "quotation mark is never closed", "</div>bc"},
  };
  for (Row const& row : rows) {
    SCOPED_TRACE(row.why);
    std::string const html = Rendered(row.page);
    EXPECT_THAT(html, HasSubstr(row.problem));
    EXPECT_THAT(html, HasSubstr(row.rest));
    EXPECT_EQ(CountOf("role=\"alert\"", html), 1u);
  }
}

TEST_F(PLXPageText, BoxesAProblemInPlaceOfTheOutput) {
  std::string const html = Rendered("a<plxFails>b<plxShow>");
  EXPECT_EQ(html, "a" + ProblemBox("It is <b>broken</b>.", "Mend it.") + "b[]");
  EXPECT_EQ(
      Rendered("a<plxWarns>b"),
      "a" + ProblemBox("It is <b>broken</b>.", "Mend it.", PLXProblemBoxPlace::kAbove) + "&plxPost.name;b")
      << "what succeeded in spite of a problem has both to show";
  EXPECT_EQ(Rendered("<plxWrap><plxFails></plxWrap>"),
            "{" + ProblemBox("It is <b>broken</b>.", "Mend it.") + "}");
}

TEST_F(PLXPageText, CountsLines) {
  Rendered("1\n2\r\n<!--\n--><plxSet\n\nv='\n'> <plxShow>");
  EXPECT_EQ(tags.lastLine, 7);
}

// Each of these is quadratic, or deeper than a stack, for a reader that looks for every end anew.
TEST_F(PLXPageText, StaysLinearAndFlatOnHostilePages) {
  constexpr std::size_t kMany = 100'000;
  struct Row {
    char const* why;
    std::string page;
  };
  Row const rows[] = {
      {"tags", Repeated("<plxShow a=1>", kMany)},
      {"bodies in bodies", Repeated("<plxWrap>", kMany) + "x" + Repeated("</plxWrap>", kMany)},
      {"bodies without end", Repeated("<plxWrap>", kMany)},
      {"two tags crossed", Repeated("<plxWrap><plxOther>", kMany) + Repeated("</plxWrap></plxOther>", kMany)},
      {"tags without end", Repeated("<plxShow ", kMany)},
      {"quotes without end", Repeated("<plxShow a='", kMany)},
      {"quotes of both kinds crossed", Repeated("<plxShow a='>\" b=\">' c=\"", kMany)},
      {"untouched text without end", Repeated("<plxDoNotProcess>", kMany)},
      {"comments without end", Repeated("<!--", kMany)},
      {"values without end", Repeated("&plxPost.", kMany)},
      {"values in one parameter", "<plxShow a='" + Repeated("&plxPath.a;", kMany) + "'>"},
      {"entities without end", "<plxShow a='" + Repeated("&", kMany) + "'>"},
      {"parameters", "<plxShow " + Repeated("a ", kMany) + ">"},
  };
  for (Row const& row : rows) {
    SCOPED_TRACE(row.why);
    EXPECT_LT(Rendered(row.page).size(), 2 * row.page.size() + 101 * ProblemBox({}, {}).size() + 50'000);
  }
}

TEST_F(PLXPageText, RunsBodiesSixtyFourDeepAndBoxesDeeperOnes) {
  std::string const deepest = Repeated("<plxWrap>", 64) + "x" + Repeated("</plxWrap>", 64);
  EXPECT_EQ(Rendered(deepest), Repeated("{", 64) + "x" + Repeated("}", 64));
  std::string const tooDeep = Rendered(Repeated("<plxWrap>", 65) + "x" + Repeated("</plxWrap>", 65));
  EXPECT_THAT(tooDeep, HasSubstr("stands inside more than 64 enclosing tags"));
  EXPECT_EQ(CountOf("role=\"alert\"", tooDeep), 1u);
  EXPECT_THAT(tooDeep, HasSubstr("x" + Repeated("}", 64)));
}

TEST(PLXPage, IsQuickWhenItRunsNoTagAndIsNotLarge) {
  FakeTags tags;
  auto const isQuick = [&](std::string const& text) { return PLXPage::Parse(text, tags)->IsQuick(); };
  EXPECT_TRUE(isQuick("text &plxPath.a; <plxUnknown>"));
  EXPECT_FALSE(isQuick("<plxShow>"));
  EXPECT_FALSE(isQuick("<plxRecords database=\"a\"></plxRecords>"));
  EXPECT_FALSE(isQuick(std::string(100000, 'x')));
}

TEST(PLXPageCache, GivesWhatItKeepsUntilTheFileChanges) {
  TemporaryFolder folder;
  FakeTags tags;
  PLXPageCache cache(tags);
  std::filesystem::path const file = folder.Write("a.html", "one");
  auto const kept = [&] {
    struct stat state {};
    EXPECT_EQ(::stat(file.c_str(), &state), 0);
    return cache.GetKept(file, state);
  };
  EXPECT_EQ(kept(), nullptr) << "nobody has read it yet";
  while (kept() == nullptr) cache.Get(file);
  EXPECT_EQ(kept()->Text(), "one");
  folder.Write("a.html", "three");
  EXPECT_EQ(kept(), nullptr);
}

TEST(PLXPageCache, ReadsAFileAgainWhenItHasChanged) {
  TemporaryFolder folder;
  FakeTags tags;
  PLXPageCache cache(tags);
  std::filesystem::path const file = folder.Write("a.html", "one");
  EXPECT_EQ(cache.Get(folder.Path() / "none.html"), nullptr);
  EXPECT_EQ(cache.Get(folder.Path()), nullptr) << "a folder is no page";

  std::filesystem::path const empty = folder.Write("empty.html", "");
  EXPECT_EQ(cache.Get(empty)->Text(), "");
  EXPECT_EQ(cache.Get(file)->Text(), "one");
  folder.Write("a.html", "two");  // the same size, perhaps within one tick of the clock
  EXPECT_EQ(cache.Get(file)->Text(), "two");
  folder.Write("b.html", "six");
  std::filesystem::rename(folder.Path() / "b.html", file);
  EXPECT_EQ(cache.Get(file)->Text(), "six");
}

TEST(PLXPageCache, KeepsWhatItReadUpToItsLimit) {
  TemporaryFolder folder;
  FakeTags tags;
  PLXPageCache cache(tags, 5000);
  auto const isKept = [&](std::filesystem::path const& file) {
    auto const page = cache.Get(file);
    return cache.Get(file) == page;
  };
  std::filesystem::path const first = folder.Write("first.html", std::string(2000, 'a'));
  std::filesystem::path const second = folder.Write("second.html", std::string(2000, 'b'));
  std::filesystem::path const large = folder.Write("large.html", std::string(9000, 'c'));
  while (!isKept(first)) continue;  // until the file's times are old enough to tell a change
  while (!isKept(second)) continue;
  auto const before = cache.Get(first);
  EXPECT_FALSE(isKept(large));
  EXPECT_EQ(cache.Get(first), before);

  std::filesystem::path const third = folder.Write("third.html", std::string(2000, 'd'));
  auto const beforeSecond = cache.Get(second);
  EXPECT_EQ(cache.Get(first), before);
  while (!isKept(third)) continue;
  EXPECT_EQ(cache.Get(first), before);
  EXPECT_NE(cache.Get(second), beforeSecond) << "the least recently used page goes first";
}

TEST(PLXResponseHeaders, TakeNoLineBreak) {
  using namespace std::string_view_literals;
  PLXResponse response;
  EXPECT_TRUE(response.SetHeader("X-One", "1"));
  EXPECT_TRUE(response.SetHeader("x-one", "2"));
  EXPECT_TRUE(response.SetHeader("Set-Cookie", "a=1"));
  EXPECT_TRUE(response.SetHeader("set-cookie", "b=2"));
  EXPECT_EQ(response.headers.size(), 3u);
  EXPECT_EQ(FindNameValue(response.headers, "X-ONE", 0, true)->value, "2");

  std::string_view const values[] = {"a\r\nX: 1"sv, "a\nb"sv, "a\rb"sv, "a\0b"sv};
  for (std::string_view const value : values) EXPECT_FALSE(response.SetHeader("X-Two", value));
  std::string_view const names[] = {""sv, "X Two"sv, "X:"sv, "X\r\nY"sv, "X\xE9"sv};
  for (std::string_view const name : names) EXPECT_FALSE(response.SetHeader(name, "1")) << name;
  EXPECT_EQ(response.headers.size(), 3u);
}

}  // namespace
