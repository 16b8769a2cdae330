#include <gtest/gtest.h>
#include <span>

#include "PLXForms.h"
#include "PLXHTTPMessage.h"
#include "TemporaryFolder.h"
#include "TextRows.h"

using Pairs = std::vector<std::pair<std::string, std::string>>;

namespace {

Pairs AsPairs(std::vector<PLXNameValue> const& list_i) {
  Pairs pairs;
  for (PLXNameValue const& entry : list_i) pairs.emplace_back(entry.name, entry.value);
  return pairs;
}

struct PairsRow {
  char const* why;
  std::string text;
  Pairs pairs;
};

template <typename Read>
void ExpectPairs(std::span<PairsRow const> rows_i, Read const& read_i) {
  for (PairsRow const& row : rows_i) {
    SCOPED_TRACE(row.why);
    std::optional<std::vector<PLXNameValue>> const list = read_i(row.text);
    ASSERT_TRUE(list);
    EXPECT_EQ(AsPairs(*list), row.pairs);
  }
}

std::string Part(std::string const& disposition_i, std::string const& content_i) {
  return "--b\r\nContent-Disposition: form-data; " + disposition_i + "\r\n\r\n" + content_i + "\r\n";
}

}  // namespace

TEST(PLXFormsURLEncoded, ReadsArgumentsInOrder) {
  PairsRow const rows[] = {
      {"nothing", "", {}},
      {"a name twice", "a=1&b=2&a=3", {{"a", "1"}, {"b", "2"}, {"a", "3"}}},
      {"no value, and no name", "a&b=&=c", {{"a", ""}, {"b", ""}, {"", "c"}}},
      {"empty pieces say nothing", "&&a=1&&", {{"a", "1"}}},
      {"escapes and blanks in both", "na%6De+x=%C3%A4+%2B%26%3d", {{"name x", "\xC3\xA4 +&="}}},
      {"a second equals sign belongs to the value", "a=b=c", {{"a", "b=c"}}},
      {"broken escapes stay",
       "a=%&b=%4&c=%zz&d=100%",
       {{"a", "%"}, {"b", "%4"}, {"c", "%zz"}, {"d", "100%"}}},
      {"a semicolon divides nothing", "a=1;b=2", {{"a", "1;b=2"}}},
  };
  ExpectPairs(rows, [](std::string const& text_i) { return ParseURLEncoded(text_i, 10); });
}

TEST(PLXFormsMultipart, ReadsWhatBrowsersSend) {
  PairsRow const rows[] = {
      {"two fields",
       Part("name=\"a\"", "1") + Part("name=\"b\"", "2\r\n3") + "--b--\r\n",
       {{"a", "1"}, {"b", "2\r\n3"}}},
      {"preamble and epilogue are overlooked",
       "hello\r\n" + Part("name=a", "1") + "--b--\r\nbye",
       {{"a", "1"}}},
      {"blanks behind a boundary",
       "--b \t\r\nContent-Disposition: form-data; name=a\r\n\r\n1\r\n--b--",
       {{"a", "1"}}},
      {"text that begins like the boundary stays",
       Part("name=a", "1\r\n--bb\r\n2") + "--b--",
       {{"a", "1\r\n--bb\r\n2"}}},
      {"line feeds alone divide nothing", Part("name=a", "1\n--b\n2") + "--b--", {{"a", "1\n--b\n2"}}},
      {"a file is its name", Part("name=f; filename=\"x.txt\"", "content") + "--b--", {{"f", "x.txt"}}},
      {"a path of Windows", Part("name=f; filename=\"C:\\dir\\x.txt\"", "") + "--b--", {{"f", "x.txt"}}},
      {"a path of Unix", Part("name=f; filename=\"../../etc/passwd\"", "") + "--b--", {{"f", "passwd"}}},
      {"a folder is no file name", Part("name=f; filename=\"a/..\"", "") + "--b--", {{"f", ""}}},
      {"quotes escaped either way", Part("name=\"a%22b\\\"c\"", "1") + "--b--", {{"a\"b\"c", "1"}}},
      {"other escapes stay", Part("name=\"100%25\"", "1") + "--b--", {{"100%25", "1"}}},
      {"no control character in a name", Part("name=\"a%0D%0Ab\tc\"", "1") + "--b--", {{"abc", "1"}}},
      {"a name in UTF-8", Part("name=f; filename*=UTF-8''%C3%A4.txt", "") + "--b--", {{"f", "\xC3\xA4.txt"}}},
      {"names in any case",
       "--b\r\nX: y\r\nCONTENT-DISPOSITION: form-data; NAME=a\r\n\r\n1\r\n--b--",
       {{"a", "1"}}},
      {"a parameter without a value", Part("x; name=a", "1") + "--b--", {{"a", "1"}}},
      {"words without an equals sign behind the name", Part("name=a; x", "1") + "--b--", {{"a", "1"}}},
      {"a quote that is not closed", Part("name=\"a;b", "1") + "--b--", {{"a;b", "1"}}},
      {"a backslash at the end of it", Part("name=\"a\\", "1") + "--b--", {{"a\\", "1"}}},
      {"this folder is no file name", Part("name=f; filename=\".\"", "") + "--b--", {{"f", ""}}},
      {"header lines that end in LF",
       "--b\r\nX: y\nContent-Disposition: form-data; name=a\n\r\n\r\n1\r\n--b--",
       {{"a", "1"}}},
      {"DEL in a name", Part("name=\"a\x7F\"", "1") + "--b--", {{"a", "1"}}},
      {"a preamble that begins like the boundary", "--bx\r\n" + Part("name=a", "1") + "--b--", {{"a", "1"}}},
      {"a part without name is left out",
       Part("x=y", "1") + "--b\r\n\r\nfree\r\n" + Part("name=a", "2") + "--b--",
       {{"a", "2"}}},
  };
  ExpectPairs(rows, [](std::string const& text_i) {
    return ParseMultipart(text_i, "multipart/form-data; boundary=b", 10);
  });
}

TEST(PLXFormsMultipart, GivesNoneForWhatItCannotDivide) {
  std::string const body = Part("name=a", "1") + Part("name=b", "2") + "--b--";
  EXPECT_TRUE(ParseMultipart(body, "multipart/form-data; boundary=\"b\"; charset=x", 2));
  EXPECT_TRUE(ParseMultipart(body, "multipart/form-data; charset=x; boundary=b", 2));
  EXPECT_FALSE(ParseMultipart(body, "multipart/form-data; boundary=b", 1));
  EXPECT_FALSE(ParseMultipart(body, "multipart/form-data", 2));
  EXPECT_FALSE(ParseMultipart(body, "multipart/form-data; boundary=", 2));
  EXPECT_FALSE(ParseMultipart(body, "multipart/form-data; boundary=" + std::string(1000, 'b'), 2));
  EXPECT_FALSE(ParseMultipart("--b\r\nX: " + std::string(100000, 'x') + "\r\n\r\n1\r\n--b--",
                              "multipart/form-data; boundary=b", 2));
}

// Almost-boundaries on every line are the worst that can be sent.
TEST(PLXFormsMultipart, ReadsLongContentInOnePass) {
  std::string const boundary(70, 'b');
  std::string line = "\r\n--" + boundary;
  line.back() = 'x';
  std::string content;
  while (content.size() < 16u << 20) content += line;
  std::string const body = "--" + boundary + "\r\nContent-Disposition: form-data; name=a\r\n\r\n" + content +
                           "\r\n--" + boundary + "--";
  auto const form = ParseMultipart(body, "multipart/form-data; boundary=" + boundary, 10);
  ASSERT_TRUE(form);
  ASSERT_EQ(form->size(), 1u);
  EXPECT_TRUE(form->front().value == content);
}

TEST(PLXFormsCookies, ReadsNamesAndValues) {
  PairsRow const rows[] = {
      {"nothing", "", {}},
      {"two", "a=1; b=2", {{"a", "1"}, {"b", "2"}}},
      {"quotes round a value go, those inside stay",
       "a=\"1\"; b=\"; c=x\"y",
       {{"a", "1"}, {"b", "\""}, {"c", "x\"y"}}},
      {"equals signs and escapes stay", "a=b=c%20", {{"a", "b=c%20"}}},
      {"one quote alone stays", "a=\"b; c=d\"", {{"a", "\"b"}, {"c", "d\""}}},
      {"no name or no equals sign is no cookie", "=1; x; a=", {{"a", ""}}},
  };
  ExpectPairs(rows, ParseCookies);
}

TEST(PLXFormsBasic, ReadsUserAndPassword) {
  struct Row {
    char const* why;
    std::string header;
    std::optional<std::pair<std::string, std::string>> login;
  };
  using Login = std::pair<std::string, std::string>;
  Row const rows[] = {
      {"as RFC 7617 shows it", "Basic QWxhZGRpbjpvcGVuIHNlc2FtZQ==", Login{"Aladdin", "open sesame"}},
      {"in any case, with blanks", "bASIC  YTpi ", Login{"a", "b"}},
      {"a colon in the password", "Basic YTpiOmM=", Login{"a", "b:c"}},
      {"padding left off", "Basic Og", Login{"", ""}},
      {"every kind of digit", "Basic YTA5elo6Pj4+Pz8/fn5+b78=", Login{"a09zZ", ">>>???~~~o\xBF"}},
      {"characters beside the digits", "Basic Og=[", std::nullopt},
      {"no colon", "Basic YWI=", std::nullopt},
      {"no Base64", "Basic a:b!", std::nullopt},
      {"letters behind the alphabet", "Basic YT{i", std::nullopt},
      {"padding inside", "Basic YT=pi", std::nullopt},
      {"too much padding", "Basic Og===", std::nullopt},
      {"a digit alone", "Basic YTpiO", std::nullopt},
      {"bits left over", "Basic Oh==", std::nullopt},
      {"a line break in the password", "Basic YToKYg==", std::nullopt},
      {"another scheme", "Bearer YTpi", std::nullopt},
      {"the scheme alone", "Basic", std::nullopt},
      {"nothing", "", std::nullopt},
  };
  for (Row const& row : rows) {
    SCOPED_TRACE(row.why);
    EXPECT_EQ(ParseBasic(row.header), row.login);
  }
}

TEST(PLXFormsPath, TakesEscapesOff) {
  EXPECT_EQ(DecodePath("/a+b%20c"), "/a+b c");
  EXPECT_EQ(DecodePath("%2e%2E%2f%00"), std::string("../\0", 4));
  for (char const* const text : {"%", "a%4", "%4g", "%%41", "%u0041"}) {
    EXPECT_EQ(DecodePath(text), std::nullopt) << text;
  }
}

TEST(PLXFormsPath, NormalizesAsRFC3986) {
  TextRow const rows[] = {{"nothing", "", "/"},
                          {"no slash", "a", "/a"},
                          {"too many", "//a///b//", "/a/b/"},
                          {"steps to where one is", "/./a/./b/.", "/a/b/"},
                          {"a step up at the end", "/a/b/..", "/a/"},
                          {"steps up from the root", "/../../etc/passwd", "/etc/passwd"},
                          {"both kinds", "/a/b/c/./../../g", "/a/g"},
                          {"dots that are names", "/.../..a/b..", "/.../..a/b.."},
                          {"an empty step is none to go up from", "/a//../b", "/b"}};
  ExpectTexts(rows, [](std::string const& path_i) { return NormalizePath(path_i); });
}

TEST(PLXFormsBody, IsReadOrRefusedWithItsStatus) {
  TemporaryFolder const folder;
  std::string const form = Part("name=a", "1") + Part("name=b", "2") + "--b--";
  std::string const multipart = "multipart/form-data; boundary=b";
  struct Row {
    char const* why;
    std::string type, text;
    int status;
    std::size_t fields;
  };
  Row const rows[] = {{"as many fields as there may be", multipart, form, 0, 2},
                      {"the other kind", "Application/X-WWW-Form-URLEncoded; x=y", "a=1&b=2", 0, 2},
                      {"no form", "text/plain", "a=1&b=2&c=3", 0, 0},
                      {"nothing", multipart, "", 0, 0},
                      {"too many parts", multipart, Part("name=c", "") + form, 413, 0},
                      {"too many arguments", "application/x-www-form-urlencoded", "a&b&c", 413, 0},
                      {"a form that is cut", multipart, form.substr(0, form.size() - 1), 400, 0}};
  for (Row const& row : rows) {
    for (std::size_t const inMemory : {std::size_t{0}, row.text.size()}) {
      SCOPED_TRACE(row.why);
      PLXRequestBody body(folder.Path(), inMemory);
      ASSERT_TRUE(body.Append(row.text));
      PLXRequest request;
      request.headers = {{"Content-Type", row.type}};
      EXPECT_EQ(ReadForm(body, 2, request).status, row.status);
      EXPECT_EQ(request.postArguments.size(), row.fields);
    }
  }
}

TEST(PLXFormsBody, ThatCannotBeKeptIsAnErrorOfTheServer) {
  std::filesystem::path const nowhere = "/nowhere/at/all";
  std::string const head = "POST / HTTP/1.1\r\nHost: h\r\nContent-Length: 3\r\n\r\n";
  PLXRequestParser parser;
  PLXRequest request;
  PLXHTTPProblem problem;
  ASSERT_EQ(parser.FindHead(head, 1000, problem), head.size());
  parser.PutHead(head, 10, request, problem);
  PLXRequestBody body(nowhere, 2);
  parser.PutBody("abc", body, problem);
  EXPECT_EQ(problem.status, 500);
}
