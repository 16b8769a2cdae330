#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "PLXStaticFile.h"
#include "TemporaryFolder.h"

namespace {

using Kind = PLXDisposition::Kind;

// Sun, 06 Nov 1994 08:49:37 GMT
constexpr std::chrono::sys_seconds kModified{std::chrono::seconds(784111777)};
constexpr char kModifiedText[] = "Sun, 06 Nov 1994 08:49:37 GMT";
constexpr char kBeforeText[] = "Sun, 06 Nov 1994 08:49:36 GMT";
constexpr char kAfterText[] = "Sun, 06 Nov 1994 08:49:38 GMT";

class PLXStaticFile : public testing::Test {
 protected:
  // A file of the bytes 0 to 9, last changed long ago.
  std::filesystem::path Make(std::string const& name_i, std::string const& content_i = "0123456789") {
    std::filesystem::path const file = myFolder.Write(name_i, content_i);
    SetModified(file, kModified);
    return file;
  }
  static void SetModified(std::filesystem::path const& file_i, std::chrono::sys_seconds time_i) {
    timespec const times[2] = {{time_i.time_since_epoch().count(), 0},
                               {time_i.time_since_epoch().count(), 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, file_i.c_str(), times, 0), 0);
  }
  static PLXDisposition Get(std::filesystem::path const& file_i, std::vector<PLXNameValue> headers_i,
                            std::string const& method_i = "GET") {
    PLXRequest request;
    request.method = method_i;
    request.headers = std::move(headers_i);
    return AnswerFile(request, file_i, false);
  }
  static PLXResponse const& Response(PLXDisposition const& answer_i) {
    return answer_i.kind == Kind::kFile ? answer_i.fileAnswer.response : answer_i.answer;
  }
  static std::string Header(PLXDisposition const& answer_i, std::string_view name_i) {
    PLXNameValue const* const header = FindNameValue(Response(answer_i).headers, name_i, 0, true);
    return header ? header->value : "";
  }

  TemporaryFolder myFolder;
};

}  // namespace

TEST_F(PLXStaticFile, SendsAWholeFileWithItsValidators) {
  PLXDisposition const answer = Get(Make("a.css"), {});
  ASSERT_EQ(answer.kind, Kind::kFile);
  EXPECT_EQ(answer.fileAnswer.response.status, 200);
  EXPECT_EQ(answer.fileAnswer.offset, 0u);
  EXPECT_EQ(answer.fileAnswer.length, 10u);
  EXPECT_EQ(Header(answer, "Content-Type"), "text/css");
  EXPECT_EQ(Header(answer, "Last-Modified"), kModifiedText);
  EXPECT_EQ(Header(answer, "Accept-Ranges"), "bytes");
  EXPECT_EQ(Header(answer, "ETag").front(), '"');
}

TEST_F(PLXStaticFile, AnswersConditionsInTheirOrder) {
  std::filesystem::path const file = Make("a.txt");
  std::string const tag = Header(Get(file, {}), "ETag");
  struct Row {
    char const* why;
    std::vector<PLXNameValue> headers;
    int status;
  };
  Row const rows[] = {
      {"the tag that the client has", {{"If-None-Match", tag}}, 304},
      {"as a weak one in a list", {{"If-None-Match", "\"x, y\", W/" + tag}}, 304},
      {"any", {{"If-None-Match", "*"}}, 304},
      {"another tag", {{"If-None-Match", "\"x\""}}, 200},
      {"a tag without quotes", {{"If-None-Match", "x"}}, 200},
      {"not changed since", {{"If-Modified-Since", kModifiedText}}, 304},
      {"changed since", {{"If-Modified-Since", kBeforeText}}, 200},
      {"a date that is none", {{"If-Modified-Since", "yesterday"}}, 200},
      {"the tag, not the date", {{"If-None-Match", "\"x\""}, {"If-Modified-Since", kModifiedText}}, 200},
      {"the file the client knows", {{"If-Match", "\"x\", " + tag}}, 200},
      {"another file", {{"If-Match", "\"x\""}}, 412},
      {"a weak tag is not good enough", {{"If-Match", "W/" + tag}}, 412},
      {"changed meanwhile", {{"If-Unmodified-Since", kBeforeText}}, 412},
      {"not changed meanwhile", {{"If-Unmodified-Since", kModifiedText}}, 200},
      {"If-Match counts, not the date", {{"If-Match", tag}, {"If-Unmodified-Since", kBeforeText}}, 200},
      {"412 before 304", {{"If-Match", "\"x\""}, {"If-None-Match", tag}}, 412},
      {"304 before a range", {{"If-None-Match", tag}, {"Range", "bytes=0-1"}}, 304},
  };
  for (Row const& row : rows) {
    SCOPED_TRACE(row.why);
    PLXDisposition const answer = Get(file, row.headers);
    EXPECT_EQ(Response(answer).status, row.status);
    EXPECT_EQ(answer.kind, row.status == 200 ? Kind::kFile : Kind::kAnswer);
    EXPECT_EQ(Header(answer, "ETag"), tag);
    EXPECT_EQ(Response(Get(file, row.headers, "HEAD")).status, row.status);
  }
}

TEST_F(PLXStaticFile, SendsOneRange) {
  std::filesystem::path const file = Make("a.txt");
  std::string const tag = Header(Get(file, {}), "ETag");
  struct Row {
    char const* why;
    std::vector<PLXNameValue> headers;
    int status;
    std::uint64_t offset, length;
    char const* range;
  };
  Row const rows[] = {
      {"from to", {{"Range", "bytes=2-4"}}, 206, 2, 3, "bytes 2-4/10"},
      {"to the end", {{"Range", "bytes=7-"}}, 206, 7, 3, "bytes 7-9/10"},
      {"far beyond it", {{"Range", "bytes=7-99999999999999999999999"}}, 206, 7, 3, "bytes 7-9/10"},
      {"the last bytes", {{"Range", "bytes=-3"}}, 206, 7, 3, "bytes 7-9/10"},
      {"more last bytes than there are", {{"Range", "bytes=-99"}}, 206, 0, 10, "bytes 0-9/10"},
      {"with blanks and capitals", {{"Range", "Bytes= 2-4 "}}, 206, 2, 3, "bytes 2-4/10"},
      {"begins behind the end", {{"Range", "bytes=10-"}}, 416, 0, 0, "bytes */10"},
      {"begins out of all numbers", {{"Range", "bytes=99999999999999999999999-"}}, 416, 0, 0, "bytes */10"},
      {"the last no bytes", {{"Range", "bytes=-0"}}, 416, 0, 0, "bytes */10"},
      {"backwards", {{"Range", "bytes=4-2"}}, 200, 0, 10, ""},
      {"several", {{"Range", "bytes=0-1,3-4"}}, 200, 0, 10, ""},
      {"another unit", {{"Range", "lines=0-1"}}, 200, 0, 10, ""},
      {"no numbers", {{"Range", "bytes=a-b"}}, 200, 0, 10, ""},
      {"nothing", {{"Range", "bytes=-"}}, 200, 0, 10, ""},
      {"of this very file", {{"Range", "bytes=2-4"}, {"If-Range", tag}}, 206, 2, 3, "bytes 2-4/10"},
      {"of another file", {{"Range", "bytes=2-4"}, {"If-Range", "\"x\""}}, 200, 0, 10, ""},
      {"weakly known", {{"Range", "bytes=2-4"}, {"If-Range", "W/" + tag}}, 200, 0, 10, ""},
      {"known by its date", {{"Range", "bytes=2-4"}, {"If-Range", kModifiedText}}, 206, 2, 3, "bytes 2-4/10"},
      {"a later date is another", {{"Range", "bytes=2-4"}, {"If-Range", kAfterText}}, 200, 0, 10, ""},
  };
  for (Row const& row : rows) {
    SCOPED_TRACE(row.why);
    PLXDisposition const answer = Get(file, row.headers);
    EXPECT_EQ(Response(answer).status, row.status);
    EXPECT_EQ(answer.fileAnswer.offset, row.offset);
    EXPECT_EQ(answer.fileAnswer.length, row.length);
    EXPECT_EQ(Header(answer, "Content-Range"), row.range);
  }
  EXPECT_EQ(Response(Get(file, {{"Range", "bytes=2-4"}}, "HEAD")).status, 200);
  EXPECT_EQ(Response(Get(Make("empty", ""), {{"Range", "bytes=0-"}})).status, 416);
}

TEST_F(PLXStaticFile, TagFollowsTheFile) {
  std::filesystem::path const file = Make("a.txt");
  std::string const tag = Header(Get(file, {}), "ETag");
  SetModified(file, kModified + std::chrono::seconds(1));
  EXPECT_NE(Header(Get(file, {}), "ETag"), tag);
  SetModified(file, std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now()) +
                        std::chrono::hours(1));
  PLXDisposition const future = Get(file, {});
  EXPECT_TRUE(Header(future, "ETag").starts_with("W/")) << "it may change again within that time";
  std::chrono::sys_seconds modified;
  ASSERT_TRUE(ParseHTTPDate(Header(future, "Last-Modified"), modified));
  EXPECT_LE(modified, std::chrono::system_clock::now());
}

TEST_F(PLXStaticFile, ServesNothingButPlainFilesAndReading) {
  std::filesystem::path const file = Make("a.txt");
  std::filesystem::path const pipe = myFolder / "pipe";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  EXPECT_EQ(Response(Get(myFolder.Path(), {})).status, 404);
  EXPECT_EQ(Response(Get(pipe, {})).status, 404);
  EXPECT_EQ(Response(Get(myFolder / "gone", {})).status, 404);
  EXPECT_EQ(Response(Get(file / "below", {})).status, 404);
  PLXDisposition const answer = Get(file, {}, "POST");
  EXPECT_EQ(Response(answer).status, 405);
  EXPECT_EQ(Header(answer, "Allow"), "GET, HEAD");
}

TEST_F(PLXStaticFile, NamesADownload) {
  struct Row {
    char const* why;
    char const* name;
    char const* disposition;
  };
  Row const rows[] = {
      {"plain", "a b.html", "attachment; filename=\"a b.html\""},
      {"quotes and backslashes", "a\"b\\.txt",
       "attachment; filename=\"a_b_.txt\"; filename*=UTF-8''a%22b%5C.txt"},
      {"a percent sign", "100%.txt", "attachment; filename=\"100_.txt\"; filename*=UTF-8''100%25.txt"},
      {"UTF-8", "\xC3\xA4\xE2\x82\xAC.txt",
       "attachment; filename=\"__.txt\"; filename*=UTF-8''%C3%A4%E2%82%AC.txt"},
      {"Latin-1", "\xE4.txt", "attachment; filename=\"_.txt\"; filename*=UTF-8''%C3%A4.txt"},
      {"a line break", "a\nb", "attachment; filename=\"a_b\"; filename*=UTF-8''a%0Ab"},
  };
  PLXRequest request;
  request.method = "GET";
  for (Row const& row : rows) {
    SCOPED_TRACE(row.why);
    PLXDisposition const answer = AnswerFile(request, Make(row.name), true);
    EXPECT_EQ(Header(answer, "Content-Disposition"), row.disposition);
    EXPECT_EQ(Header(answer, "Content-Type"), "application/octet-stream");
    EXPECT_EQ(Header(answer, "X-Content-Type-Options"), "nosniff");
  }
}

TEST(PLXMediaType, GoesByTheLastEnding) {
  for (auto const& [name, type] : {std::pair("a.html", "text/html"),
                                   {"A.JPG", "image/jpeg"},
                                   {"a.tar.gz", "application/gzip"},
                                   {"a.zip", "application/zip"},
                                   {"html", "application/octet-stream"},
                                   {"a.", "application/octet-stream"},
                                   {"a.nosuch", "application/octet-stream"}}) {
    EXPECT_EQ(MediaType(name), type) << name;
  }
}

TEST(PLXHTTPDate, IsWrittenAndReadAlike) {
  EXPECT_EQ(FormatHTTPDate(kModified), kModifiedText);
  for (std::int64_t time = 0; time < 5'000'000'000; time += 86'399 * 17) {
    std::chrono::sys_seconds const moment{std::chrono::seconds(time)};
    std::chrono::sys_seconds back;
    ASSERT_TRUE(ParseHTTPDate(FormatHTTPDate(moment), back)) << time;
    ASSERT_EQ(back, moment);
  }
}

TEST(PLXHTTPDate, IsNothingElse) {
  char const* const rows[] = {"",
                              "Sun, 06 Nov 1994 08:49:37",
                              "Sun, 06 Nov 1994 08:49:37 CET",
                              "Sun,  6 Nov 1994 08:49:37 GMT",
                              "Sun, 31 Feb 1994 08:49:37 GMT",
                              "Sun, 06 Nov 1994 24:49:37 GMT",
                              "Sun, 06 Nov 1994 08:60:37 GMT",
                              "Son, 06 Nov 1994 08:49:37 GMT",
                              "Sun, 06 Nor 1994 08:49:37 GMT",
                              "Sunday, 06-Nov-94 08:49:37 GMT"};
  for (char const* row : rows) {
    SCOPED_TRACE(row);
    std::chrono::sys_seconds time;
    EXPECT_FALSE(ParseHTTPDate(row, time));
  }
}
