#include <fstream>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <unistd.h>

#include "FoundationPrinters.h"
#include "PLXHTTP.h"
#include "RealServer.h"

// The HTTP client against the servers that it meets in the world.

namespace {

class RealHTTPServer : public testing::TestWithParam<char const*> {
 protected:
  void SetUp() override {
    std::string const program = GetParam() == std::string("nginx") ? "/usr/sbin/nginx" : "/usr/sbin/apache2";
    if (access(program.c_str(), X_OK) != 0) GTEST_SKIP() << program << " is not installed";
    myServer = std::make_unique<RealServer>(GetParam());
    ASSERT_TRUE(myServer->IsReady());
  }

  struct Answer {
    std::string statusLine;
    std::string headers;
    std::string data;
  };
  Answer Process(PLXHTTP& http_io, std::string const& path_i, bool followRedirects_i = true) {
    http_io.SetURL(Plx("http://" + myServer->Address() + path_i));
    EXPECT_TRUE(http_io.Process(followRedirects_i));
    std::string const headers = Std(http_io.GetResponseHeaders());
    return {headers.substr(0, headers.find("\r\n")), headers, Std(http_io.GetResponseData())};
  }
  Answer Get(std::string const& path_i, bool followRedirects_i = true) {
    PLXHTTP http;
    return Process(http, path_i, followRedirects_i);
  }

  std::unique_ptr<RealServer> myServer;
};

}  // namespace

TEST_P(RealHTTPServer, GivesPagesAndErrors) {
  struct Row {
    char const* path;
    char const* status;
    char const* data;  // null: the server's own words
  };
  Row const rows[] = {{"/a.txt", "HTTP/1.1 200 ", "alpha\nbeta\n"},
                      {"/missing", "HTTP/1.1 404 ", nullptr},
                      {"/error500", "HTTP/1.1 500 ", nullptr},
                      {"/slow", "HTTP/1.1 200 ", "1 first 2 second"}};
  for (Row const& row : rows) {
    SCOPED_TRACE(row.path);
    Answer const answer = Get(row.path);
    EXPECT_TRUE(answer.statusLine.starts_with(row.status)) << answer.statusLine;
    EXPECT_NE(answer.data, "");
    if (row.data != nullptr) {
      EXPECT_EQ(answer.data, row.data);
    }
  }
  PLXHTTP http;
  http.SetMethod(PLXHTTPMethod::HEAD);
  Answer const answer = Process(http, "/a.txt");
  EXPECT_NE(answer.headers.find("Content-Length: 11"), std::string::npos) << answer.headers;
  EXPECT_EQ(answer.data, "");
}

TEST_P(RealHTTPServer, RedirectsToWhereItSays) {
  for (char const* const path : {"/absolute301", "/absolute302", "/relative302"}) {
    SCOPED_TRACE(path);
    EXPECT_EQ(Get(path).data, "alpha\nbeta\n");
    Answer const shown = Get(path, false);
    EXPECT_NE(shown.headers.find("\r\nLocation: "), std::string::npos) << shown.headers;
    EXPECT_NE(shown.data, "");
  }
  EXPECT_EQ(Get("/nowhere302").data, "");
  EXPECT_EQ(Get("/nowhere302", false).data, "moved\n");
}

TEST_P(RealHTTPServer, LetsMembersIn) {
  struct Row {
    char const* why;
    char const* name;
    PLXString password;
    char const* status;
  };
  Row const rows[] = {{"a short password", "ada", "pw", "HTTP/1.1 200 "},
                      {"a password of 200 bytes", "ida", PLXString('p', 200), "HTTP/1.1 200 "},
                      {"one byte less", "ida", PLXString('p', 199), "HTTP/1.1 401 "},
                      {"no password", "ada", "", "HTTP/1.1 401 "},
                      {"nobody", "", "pw", "HTTP/1.1 401 "}};
  for (Row const& row : rows) {
    SCOPED_TRACE(row.why);
    PLXHTTP http;
    http.SetAuthorization(PLXHTTPAuthorization::Basic, row.name, row.password);
    Answer const answer = Process(http, "/auth/secret.txt");
    EXPECT_TRUE(answer.statusLine.starts_with(row.status)) << answer.statusLine;
    EXPECT_EQ(answer.data == "behind a login\n", answer.statusLine.find(" 200 ") != std::string::npos);
  }
}

TEST_P(RealHTTPServer, ReceivesAllArguments) {
  PLXHTTP http;
  http.SetMethod(PLXHTTPMethod::POST);
  EXPECT_EQ(Process(http, "/echo").data, "");
  http.AddPostArgument("first name", "Ada & Ida");
  http.AddPostArgument("empty", "");
  http.AddPostArgument("long", PLXString('l', 300000));
  EXPECT_EQ(Process(http, "/echo").data,
            "first%20name=Ada%20%26%20Ida&empty=&long=" + std::string(300000, 'l'));
}

TEST_P(RealHTTPServer, GivesABodyOfAHundredMegabytes) {
  std::string body(100000000, '\0');
  for (std::size_t at = 0; at < body.size(); ++at) body[at] = static_cast<char>(at * 31 >> 4);
  std::ofstream(myServer->Folder() + "/www/large.bin", std::ios::binary) << body;
  PLXHTTP http;
  http.SetURL(Plx(myServer->Address() + "/large.bin"));
  EXPECT_TRUE(http.Process(true));
  EXPECT_EQ(http.GetResponseData().GetLength(), body.size());
  EXPECT_TRUE(Std(http.GetResponseData()) == body);  // nobody could read both
}

INSTANTIATE_TEST_SUITE_P(Servers, RealHTTPServer, testing::Values("nginx", "apache"),
                         [](auto const& info_i) { return std::string(info_i.param); });
