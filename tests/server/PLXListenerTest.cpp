#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <mutex>
#include <optional>
#include <signal.h>
#include <thread>

#include "PLXClientAddress.h"
#include "PLXListener.h"
#include "PLXStaticFile.h"
#include "RawClient.h"
#include "TemporaryFolder.h"

#ifdef __SANITIZE_THREAD__
// Two tests leave a page behind that does not end in time, as a stop does: its thread is never joined.
extern "C" char const* __tsan_default_options() { return "report_thread_leaks=0"; }
#endif

namespace {

using namespace std::chrono_literals;

// Polls until the condition holds; false after a long while.
template <class Condition>
bool Becomes(Condition const& condition_i) {
  auto const end = std::chrono::steady_clock::now() + 20s;
  while (std::chrono::steady_clock::now() < end) {
    if (condition_i()) return true;
    std::this_thread::sleep_for(1ms);
  }
  return false;
}

std::string Joined(std::vector<PLXNameValue> const& list_i) {
  std::string text;
  for (PLXNameValue const& entry : list_i) text += entry.name + '=' + entry.value + ';';
  return text;
}

// Answers by the path: /page says what it was asked, /block waits for Release, ...
class FakeHandler : public PLXRequestHandler {
 public:
  ~FakeHandler() override { Release(); }

  PLXDisposition Dispose(PLXRequest& request_io) override {
    PLXDisposition disposition;
    if (request_io.path == "/now") {
      disposition.answer.body = "now";
    } else if (request_io.path.starts_with("/file")) {
      disposition = AnswerFile(request_io, file, false);
    } else {
      bool const isAdministration = request_io.path == "/admin";
      disposition.kind =
          isAdministration ? PLXDisposition::Kind::kAdministration : PLXDisposition::Kind::kPage;
      disposition.neverQueued = request_io.path == "/never";
      disposition.isForModules = request_io.path == "/action";
    }
    return disposition;
  }

  PLXResponse Answer(PLXRequest& request_io, std::shared_ptr<void> const&) override {
    PLXResponse response;
    if (request_io.path == "/throw") throw std::runtime_error("on purpose");
    if (request_io.path.starts_with("/block")) WaitForRelease();
    if (request_io.path == "/status") response.status = std::stoi(request_io.pathArguments.at(0).value);
    if (request_io.path == "/headers") response.headers = headers;
    response.body = request_io.method + ' ' + request_io.path;
    for (auto const& [name, text] :
         {std::pair<char const*, std::string>{"query", Joined(request_io.pathArguments)},
          {"post", Joined(request_io.postArguments)},
          {"cookies", Joined(request_io.cookies)},
          {"host", request_io.host == "h" ? "" : request_io.host},
          {"user", request_io.user},
          {"bytes", request_io.bodyBytes > 0 ? std::to_string(request_io.bodyBytes) : ""}}) {
      if (!text.empty()) response.body.append(" ").append(name).append(" ").append(text);
    }
    return response;
  }

  void Finished(PLXRequest const& request_i, PLXResponse const& response_i, std::uint64_t bytesSent_i,
                std::chrono::microseconds) override {
    std::lock_guard const lock(myMutex);
    myFinished.push_back(request_i.path + ' ' + std::to_string(response_i.status) + ' ' +
                         std::to_string(bytesSent_i));
  }

  void GivenUp(PLXRequest const& request_i) override {
    std::lock_guard const lock(myMutex);
    myFinished.push_back(request_i.path + " given up");
  }

  PLXResponse ErrorAnswer(int status_i, std::string const& sentence_i) override {
    PLXResponse response;
    response.status = status_i;
    response.body = sentence_i;
    return response;
  }

  void Release() {
    std::lock_guard const lock(myMutex);
    myIsReleased = true;
    myChanged.notify_all();
  }
  unsigned Blocked() const {
    std::lock_guard const lock(myMutex);
    return myBlocked;
  }
  std::vector<std::string> FinishedLines() const {
    std::lock_guard const lock(myMutex);
    return myFinished;
  }

  std::filesystem::path file;         // set before the listener runs
  std::vector<PLXNameValue> headers;  // the same

 private:
  void WaitForRelease() {
    std::unique_lock lock(myMutex);
    ++myBlocked;
    myChanged.wait(lock, [this] { return myIsReleased; });
    --myBlocked;
  }

  mutable std::mutex myMutex;
  std::condition_variable myChanged;
  bool myIsReleased = false;
  unsigned myBlocked = 0;
  std::vector<std::string> myFinished;
};

std::string Get(std::string const& target_i, std::string const& headers_i = "") {
  return "GET " + target_i + " HTTP/1.1\r\nHost: h\r\n" + headers_i + "\r\n";
}

class PLXListenerTest : public testing::Test {
 protected:
  PLXListenerTest() {
    myLimits.pageThreads = 2;
    myLimits.waitingPages = 1;
    myLimits.administrationThreads = 1;
    myLimits.bodyBytes = 16u << 20;
    myLimits.formFields = 10;
    myLimits.connectionsPerAddress = 0;
  }
  ~PLXListenerTest() override {
    myHandler.Release();
    if (myListener) myListener->Stop();
    if (myThread.joinable()) myThread.join();
  }

  void Listen() {
    myListener.emplace("127.0.0.1", 0, myLimits, std::vector<std::string>{}, myFolder.Path(), myHandler);
  }
  void Start() {
    Listen();
    myThread = std::thread([this] { myListener->Run([this] { ++myReloads; }); });
  }
  // A client whose page blocks until it is released, once `blocked_i` pages do.
  std::unique_ptr<RawClient> Block(unsigned blocked_i = 1) {
    auto client = std::make_unique<RawClient>(Port());
    client->Send(Get("/block"));
    EXPECT_TRUE(Becomes([&] { return myHandler.Blocked() == blocked_i; }));
    return client;
  }
  std::uint16_t Port() const { return myListener->Port(); }
  // One request on a connection of its own.
  Answer Ask(std::string_view text_i) { return RawClient(Port()).Ask(text_i); }
  void MakeFile(std::size_t bytes_i) {
    myContent.resize(bytes_i);
    for (std::size_t at = 0; at < bytes_i; ++at) myContent[at] = static_cast<char>(at * 7 / 3);
    myHandler.file = myFolder.Write("file.bin", myContent);
  }

  TemporaryFolder myFolder;
  PLXLimits myLimits;
  FakeHandler myHandler;
  std::optional<PLXListener> myListener;
  std::thread myThread;
  std::atomic<int> myReloads = 0;
  std::string myContent;
};

std::string Post(std::string const& type_i, std::string const& body_i) {
  return "POST /page HTTP/1.1\r\nHost: h\r\nContent-Type: " + type_i +
         "\r\nContent-Length: " + std::to_string(body_i.size()) + "\r\n\r\n" + body_i;
}

constexpr char kURLEncoded[] = "application/x-www-form-urlencoded";
constexpr char kMultipart[] = "multipart/form-data; boundary=b";

std::string FilePart(std::string const& content_i) {
  return "--b\r\nContent-Disposition: form-data; name=\"f\"; filename=\"x.bin\"\r\n\r\n" + content_i +
         "\r\n--b--\r\n";
}

}  // namespace

TEST_F(PLXListenerTest, FillsTheRequest) {
  Start();
  struct Row {
    char const* why;
    std::string request;
    std::string body;
  } const rows[] = {
      {"path and query are decoded once", Get("/a%2520b/../c%20d?x=1&y=%2B+"), "GET /c d query x=1;y=+ ;"},
      {"cookies and login", Get("/page", "Cookie: a=1; b=2\r\nCookie: c=3\r\nAuthorization: Basic YTpi\r\n"),
       "GET /page cookies a=1;b=2;c=3; user a"},
      {"credentials that are none, and two",
       Get("/page", "Authorization: x\r\nAuthorization: Basic YTpi\r\nAuthorization: Basic Yzpk\r\n"),
       "GET /page user a"},
      {"a form", Post(kURLEncoded, "a=1&b=2"), "POST /page post a=1;b=2; bytes 7"},
      {"another body is nobody's arguments", Post("text/plain", "a=1"), "POST /page bytes 3"},
      {"an absolute address names the host", Get("HTTP://other:81/page?q"),
       "GET /page query q=; host other:81"},
      {"an absolute address without path", Get("HTTPS://other"), "GET / host other"},
      {"blank lines before a request", "\r\n\r\n" + Get("/page"), "GET /page"},
      {"an unknown method is the handler's to refuse", "BREW /page HTTP/1.1\r\nHost: h\r\n\r\n",
       "BREW /page"},
      {"all that a name of a host may have", "GET /page HTTP/1.1\r\nHost: A-z.0_~%!$&'()*+,;=:[]\r\n\r\n",
       "GET /page host A-z.0_~%!$&'()*+,;=:[]"},
      {"chunks, in pieces of every size",
       "POST /page HTTP/1.1\r\nHost: h\r\nContent-Type: application/x-www-form-urlencoded\r\n"
       "Transfer-Encoding: chunked\r\n\r\n1\r\na\r\n3;x=y\r\n=1&\r\n00003\r\nb=2\r\n0\r\nTrailer: x\r\n\r\n",
       "POST /page post a=1;b=2; bytes 7"},
  };
  for (Row const& row : rows) {
    SCOPED_TRACE(row.why);
    Answer const answer = Ask(row.request);
    EXPECT_EQ(answer.status, 200);
    EXPECT_EQ(answer.body, row.body);
    EXPECT_TRUE(answer.Has("Server: PLX Server"));
    EXPECT_NE(answer.head.find("\r\nDate: "), answer.head.npos);
  }
}

TEST_F(PLXListenerTest, RefusesWhatTwoReadersCouldTakeDifferently) {
  Start();
  struct Row {
    char const* why;
    std::string request;
    int status;
  };
  std::string const post = "POST /page HTTP/1.1\r\nHost: h\r\n";
  std::string const chunks = post + "Transfer-Encoding: chunked\r\n\r\n";
  Row const rows[] = {
      {"length and chunks", post + "Content-Length: 5\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n", 400},
      {"two lengths", post + "Content-Length: 5\r\nContent-Length: 6\r\n\r\nhello", 400},
      {"a signed length", post + "Content-Length: +5\r\n\r\nhello", 400},
      {"a length beyond all numbers", post + "Content-Length: 99999999999999999999\r\n\r\n", 400},
      {"a coding we do not undo", post + "Transfer-Encoding: gzip, chunked\r\n\r\n", 400},
      {"a length of nothing", post + "Content-Length: \r\n\r\n", 400},
      {"a coding with a parameter", post + "Transfer-Encoding: chunked;q=1\r\n\r\n0\r\n\r\n", 400},
      {"no coding", post + "Transfer-Encoding: identity\r\nContent-Length: 5\r\n\r\nhello", 400},
      {"a coding that hides the length", post + "Transfer-Encoding: xchunked\r\n\r\n", 400},
      {"chunks twice", post + "Transfer-Encoding: chunked\r\nTransfer-Encoding: chunked\r\n\r\n", 400},
      {"chunks in 1.0", "POST /page HTTP/1.0\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n", 400},
      {"a chunk size that is none", chunks + "xyz\r\n", 400},
      {"a chunk size with a sign", chunks + "+1\r\na\r\n0\r\n\r\n", 400},
      {"a chunk size with a blank", chunks + "1 \r\na\r\n0\r\n\r\n", 400},
      {"a chunk size beyond all numbers", chunks + "10000000000000001\r\na\r\n0\r\n\r\n", 400},
      {"a chunk line of a line feed", chunks + "1\na\r\n0\r\n\r\n", 400},
      {"chunk data ended by a line feed", chunks + "1\r\na\n0\r\n\r\n", 400},
      {"a line feed in an extension", chunks + "1;x\ny\r\na\r\n0\r\n\r\n", 400},
      {"and in the last chunk's", chunks + "0;x=\"\n\"\r\n\r\n", 400},
      {"a length in the trailer", chunks + "0\r\nContent-Length: 9\r\n\r\n", 400},
      {"a line feed in the trailer", chunks + "0\r\nX: y\nZ: w\r\n\r\n", 400},
      {"a chunk longer than it says", chunks + "1\r\nab\r\n0\r\n\r\n", 400},
      {"a bare line feed", "GET /page HTTP/1.1\nHost: h\n\n", 400},
      {"a bare line feed in the middle", "GET /page HTTP/1.1\r\nHost: h\nX: y\r\n\r\n", 400},
      {"a bare return", "GET /page HTTP/1.1\r\nHost: h\rX: y\r\n\r\n", 400},
      {"a blank before the colon", Get("/page", "X : y\r\n"), 400},
      {"a header without name", Get("/page", ": x\r\n"), 400},
      {"DEL in a header", Get("/page", "X: \x7F\r\n"), 400},
      {"a folded line", Get("/page", "X: y\r\n z\r\n"), 400},
      {"a first line that is folded", "GET /page HTTP/1.1\r\n X: y\r\nHost: h\r\n\r\n", 400},
      {"no colon", Get("/page", "X\r\n"), 400},
      {"a NUL in a value", Get("/page", std::string("X: \0\r\n", 6)), 400},
      {"no Host", "GET /page HTTP/1.1\r\n\r\n", 400},
      {"two Hosts", Get("/page", "Host: h\r\n"), 400},
      {"a Host that is none", "GET /page HTTP/1.1\r\nHost: a/b\r\n\r\n", 400},
      {"a broken escape", Get("/a%2"), 400},
      {"a control character in an escape", Get("/%7F"), 400},
      {"a fragment", Get("/a#b"), 400},
      {"no target", Get(""), 400},
      {"an address of a host that is none", Get("http://h<x>/"), 400},
      {"an address without host", Get("http:///a"), 400},
      {"a relative path", Get("page"), 400},
      {"another scheme", Get("ftp://h/page"), 400},
      {"a login in the address", Get("http://a:b@h/page"), 400},
      {"the server as a whole", "OPTIONS * HTTP/1.1\r\nHost: h\r\n\r\n", 400},
      {"a tunnel", "CONNECT h:80 HTTP/1.1\r\nHost: h\r\n\r\n", 400},
      {"a method that is no token", "G(T /page HTTP/1.1\r\nHost: h\r\n\r\n", 400},
      {"a blank in the address", "GET /a b HTTP/1.1\r\nHost: h\r\n\r\n", 400},
      {"HTTP/0.9", "GET /page\r\n", 400},
      {"HTTP/2", "PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n", 400},
      {"too many arguments", Get("/page?a&b&c&d&e&f&g&h&i&j&k"), 400},
      {"too many fields", Post(kURLEncoded, "a&b&c&d&e&f&g&h&i&j&k"), 413},
      {"a form without end", Post(kMultipart, "--b\r\n"), 400},
      {"a header without end", "GET /page HTTP/1.1\r\nHost: h\r\nX: " + std::string(20000, 'x'), 431},
      {"a long header", Get("/page", "X: " + std::string(20000, 'x') + "\r\n"), 431},
      {"a long address", Get('/' + std::string(20000, 'x')), 431},
      {"a body that is announced too long", post + "Content-Length: 100000000\r\n\r\n", 413},
  };
  for (Row const& row : rows) {
    SCOPED_TRACE(row.why);
    RawClient client(Port());
    Answer const answer = client.Ask(row.request);
    EXPECT_EQ(answer.status, row.status);
    // Forms are read on the page thread, when all of the request has been taken: these connections may stay.
    if (answer.Has("Connection: close")) {
      EXPECT_TRUE(client.IsClosed());
    }
    EXPECT_EQ(Ask(Get("/now")).status, 200);
  }
}

TEST_F(PLXListenerTest, KeepsConnectionsAsAsked) {
  Start();
  struct Row {
    char const* why;
    std::string request;
    bool stays;
    std::string line;
  } const rows[] = {
      {"1.1", Get("/page"), true, ""},
      {"1.1, asked to close", Get("/page", "Connection: close\r\n"), false, "Connection: close"},
      {"1.0", "GET /page HTTP/1.0\r\n\r\n", false, "Connection: close"},
      {"1.0, asked to stay", "GET /page HTTP/1.0\r\nConnection: keep-alive\r\n\r\n", true,
       "Connection: keep-alive"},
      {"a body that nobody reads", "POST /now HTTP/1.1\r\nHost: h\r\nContent-Length: 3\r\n\r\n", false,
       "Connection: close"},
      {"no body", "POST /now HTTP/1.1\r\nHost: h\r\nContent-Length: 0\r\n\r\n", true, ""},
  };
  for (Row const& row : rows) {
    SCOPED_TRACE(row.why);
    RawClient client(Port());
    Answer const answer = client.Ask(row.request);
    EXPECT_EQ(answer.status, 200);
    EXPECT_TRUE(row.line.empty() || answer.Has(row.line)) << answer.head;
    if (row.stays) {
      EXPECT_EQ(client.Ask(Get("/now")).status, 200);
    } else {
      EXPECT_TRUE(client.IsClosed());
    }
  }
}

TEST_F(PLXListenerTest, AnswersPipelinedRequestsInOrder) {
  Start();
  RawClient client(Port());
  std::string text;
  for (int n = 0; n < 500; ++n) {
    std::string const query = "?" + std::to_string(n);
    text += n % 3 ? Get((n % 2 ? "/now" : "/page") + query) : Post(kURLEncoded, "n=" + std::to_string(n));
  }
  std::thread sender([&] { client.Send(text); });
  for (int n = 0; n < 500; ++n) {
    Answer const answer = client.Receive();
    ASSERT_EQ(answer.status, 200) << n;
    std::string const expected = n % 3 == 0   ? " post n=" + std::to_string(n) + ";"
                                 : n % 2 == 0 ? " query " + std::to_string(n) + "=;"
                                              : "now";
    EXPECT_NE(answer.body.find(expected), answer.body.npos) << answer.body;
  }
  sender.join();
}

TEST_F(PLXListenerTest, TakesARequestByteByByteAndSurvivesEveryCut) {
  myLimits.bodyInMemoryBytes = 20;
  Start();
  std::string const chunked = "POST /page HTTP/1.1\r\nHost: h\r\nTransfer-Encoding: chunked\r\n\r\n";
  for (std::string const& request :
       {Post(kMultipart, FilePart("content")), chunked + "4\r\nabcd\r\n0\r\n\r\n", chunked + "0\r\n\r\n"}) {
    RawClient client(Port());
    for (std::size_t length = 0; length < request.size(); ++length) {
      RawClient(Port()).Send(request.substr(0, length));
      client.Send(request.substr(length, 1));
    }
    EXPECT_EQ(client.Receive().status, 200);
  }
  EXPECT_TRUE(Becomes([&] { return myListener->Status().connections == 0; }));
}

TEST_F(PLXListenerTest, CutsSlowClientsAtTheDeadline) {
  myLimits.headerTime = 1s;
  myLimits.bodyTime = 1s;
  Start();
  RawClient silent(Port());
  RawClient slowHead(Port());
  slowHead.Send("GET / HT");
  RawClient slowBody(Port());
  slowBody.Send("POST /page HTTP/1.1\r\nHost: h\r\nContent-Length: 10\r\n\r\nabc");
  RawClient slowChunks(Port());
  slowChunks.Send("POST /page HTTP/1.1\r\nHost: h\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n");
  EXPECT_EQ(slowHead.Receive().status, 408);
  EXPECT_EQ(slowBody.Receive().status, 408);
  EXPECT_EQ(slowChunks.Receive().status, 408);
  EXPECT_TRUE(silent.IsClosed()) << "who said nothing is told nothing";
}

// Dribbling does not move the deadline of a header, as it would if each read had its own.
TEST_F(PLXListenerTest, CutsADribblingHeader) {
  myLimits.headerTime = 1s;
  Start();
  RawClient client(Port());
  std::atomic<bool> isDone = false;
  std::thread dribbler([&] {
    client.Send("GET / HTTP/1.1\r\nX: ");
    while (!isDone) {
      client.Send("x");
      std::this_thread::sleep_for(20ms);
    }
  });
  EXPECT_EQ(client.Receive().status, 408);
  isDone = true;
  dribbler.join();
}

TEST_F(PLXListenerTest, TakesLongBodiesThroughAFileWithoutAName) {
  Start();
  std::string const content(10u << 20, 'x');
  EXPECT_NE(Ask(Post(kMultipart, FilePart(content))).body.find("post f=x.bin; bytes"), std::string::npos);
  EXPECT_NE(Ask(Post(kURLEncoded, "a=" + content)).body.find("post a=" + content + ';'), std::string::npos);
  EXPECT_TRUE(std::filesystem::is_empty(myFolder.Path()));
}

TEST_F(PLXListenerTest, RefusesALongBodyInAWayThatCanBeRead) {
  myLimits.bodyBytes = 100000;
  Start();
  std::string const body(5'000'000, 'x');
  EXPECT_EQ(Ask(Post(kURLEncoded, body)).status, 413);
  std::string chunks = "POST /page HTTP/1.1\r\nHost: h\r\nTransfer-Encoding: chunked\r\n\r\n";
  for (int n = 0; n < 1000; ++n) chunks += "1000\r\n" + std::string(0x1000, 'x') + "\r\n";
  EXPECT_EQ(Ask(chunks).status, 413);
}

TEST_F(PLXListenerTest, AsksForABodyThatWaitsToBeAskedFor) {
  Start();
  RawClient client(Port());
  std::string const post = Post(kURLEncoded, "a=1");
  std::size_t const body = post.size() - 3;
  client.Send(post.substr(0, body - 2) + "Expect: 100-continue\r\n\r\n");
  EXPECT_EQ(client.Receive().status, 100);
  EXPECT_EQ(client.Ask("a=1").status, 200);
}

TEST_F(PLXListenerTest, TurnsPagesAwayWhenTheHouseIsFull) {
  MakeFile(1'000'000);
  Start();
  std::vector<std::unique_ptr<RawClient>> waiting;
  for (int n = 0; n < 3; ++n) {
    waiting.push_back(std::make_unique<RawClient>(Port()));
    waiting.back()->Send(Get("/block"));
  }
  ASSERT_TRUE(Becomes([&] { return myHandler.Blocked() == 2 && myListener->Status().waitingPages == 1; }));
  EXPECT_EQ(myListener->Status().busyPageThreads, 2u);

  Answer const refused = Ask(Get("/page"));
  EXPECT_EQ(refused.status, 503);
  EXPECT_NE(refused.head.find("\r\nRetry-After: "), refused.head.npos);
  EXPECT_EQ(Ask(Get("/file")).body.size(), myContent.size()) << "files need no page thread";
  EXPECT_EQ(Ask(Get("/now")).status, 200);
  EXPECT_EQ(Ask(Get("/admin")).status, 200) << "the administration has threads of its own";

  myHandler.Release();
  for (auto& client : waiting) EXPECT_EQ(client->Receive().status, 200);
  EXPECT_EQ(Ask(Get("/page")).status, 200);
}

TEST_F(PLXListenerTest, LeavesThreadsToOtherPages) {
  myLimits.pageThreads = 4;
  myLimits.waitingPages = 4;
  Start();
  std::vector<std::unique_ptr<RawClient>> visitors;
  for (int n = 0; n < 8; ++n) {
    visitors.push_back(std::make_unique<RawClient>(Port()));
    visitors.back()->Send(Get("/block?n=" + std::to_string(n)));
  }
  ASSERT_TRUE(Becomes([&] { return myHandler.Blocked() == 3 && myListener->Status().waitingPages == 3; }));
  EXPECT_EQ(Ask(Get("/page")).status, 200) << "the fourth thread is for others";
  myHandler.Release();
  int served = 0;
  for (auto& visitor : visitors) served += visitor->Receive().status == 200;
  EXPECT_EQ(served, 6);
}

TEST_F(PLXListenerTest, NeverQueuesWhatAPageWaitsFor) {
  myLimits.waitingPages = 10;
  Start();
  auto const first = Block();
  EXPECT_EQ(Ask(Get("/never")).status, 200);
  auto const second = Block(2);
  EXPECT_EQ(Ask(Get("/never")).status, 503);
}

TEST_F(PLXListenerTest, GivesUpPagesThatHang) {
  myLimits.pageTime = 1s;
  myLimits.pageThreads = 1;
  myLimits.overduePages = 2;  // and half of them of one page
  Start();
  RawClient hanging(Port());
  Answer const late = hanging.Ask(Get("/block?a=1"));
  EXPECT_EQ(late.status, 504);
  EXPECT_NE(late.body.find("given up"), late.body.npos);
  EXPECT_EQ(hanging.Ask(Get("/page")).status, 200) << "another thread has taken the place";
  EXPECT_EQ(myListener->Status().overduePages, 1u);
  EXPECT_EQ(Ask(Get("/block?a=2")).status, 503) << "one page has lost what it may";
  EXPECT_EQ(Ask(Get("/block/other")).status, 504);
  EXPECT_EQ(Ask(Get("/page")).status, 200);
  EXPECT_EQ(Ask(Get("/block/third")).status, 504);
  EXPECT_EQ(myHandler.Blocked(), 3u);
  EXPECT_EQ(Ask(Get("/page")).status, 503) << "it waited for a thread and never began";
  EXPECT_EQ(Ask(Get("/admin")).status, 200);
  EXPECT_EQ(Ask(Get("/now")).status, 200);

  myHandler.Release();
  EXPECT_TRUE(Becomes([&] { return myListener->Status().overduePages == 0; }));
  EXPECT_EQ(Ask(Get("/block")).status, 200);
  EXPECT_EQ(myListener->Status().busyPageThreads, 0u);
  auto const lines = myHandler.FinishedLines();
  EXPECT_EQ(std::count(lines.begin(), lines.end(), "/block given up"), 1);
}

TEST_F(PLXListenerTest, LimitsConnections) {
  myLimits.connectionsPerAddress = 1;
  myLimits.pageThreads = 1;  // which this machine's own pages have on top
  Start();
  RawClient first(Port());
  auto second = std::make_unique<RawClient>(Port());
  EXPECT_EQ(first.Ask(Get("/now")).status, 200);
  EXPECT_EQ(second->Ask(Get("/now")).status, 200);
  RawClient third(Port());
  Answer const answer = third.Ask(Get("/now"));
  EXPECT_EQ(answer.status, 503);
  EXPECT_TRUE(third.IsClosed());
  second.reset();
  ASSERT_TRUE(Becomes([&] { return myListener->Status().connections == 1; }));
  EXPECT_EQ(Ask(Get("/now")).status, 200);
}

TEST_F(PLXListenerTest, AnswersHeadWithTheHeaderAlone) {
  MakeFile(1'000'000);
  Start();
  RawClient client(Port());
  for (char const* target : {"/now", "/page", "/file"}) {
    SCOPED_TRACE(target);
    client.Send("HEAD " + std::string(target) + " HTTP/1.1\r\nHost: h\r\n\r\n");
    Answer const head = client.Receive(true);
    Answer const whole = client.Ask(Get(target));
    EXPECT_EQ(head.status, 200);
    // "HEAD /page" is a byte longer than "GET /page" in the body that the page would have had.
    std::size_t const length = whole.body.size() + (target == std::string("/page") ? 1 : 0);
    EXPECT_TRUE(head.Has("Content-Length: " + std::to_string(length))) << head.head;
  }
}

TEST_F(PLXListenerTest, SendsFilesWholeAndInPart) {
  for (std::size_t const size : {std::size_t(0), std::size_t(1000), std::size_t(5'000'000)}) {
    SCOPED_TRACE(size);
    MakeFile(size);
    if (!myListener) Start();
    RawClient client(Port());
    EXPECT_TRUE(client.Ask(Get("/file")).body == myContent);
    if (size == 0) continue;
    Answer const part = client.Ask(Get("/file", "Range: bytes=10-" + std::to_string(size - 10) + "\r\n"));
    EXPECT_EQ(part.status, 206);
    EXPECT_TRUE(part.body == myContent.substr(10, size - 19));
  }
}

TEST_F(PLXListenerTest, ClosesWhenAFileShrinksWhileItIsSent) {
  MakeFile(32u << 20);  // more than the sockets between hold
  Start();
  RawClient client(Port());
  client.Send(Get("/file"));
  EXPECT_EQ(client.Receive(true).status, 200);
  std::filesystem::resize_file(myHandler.file, 1000);
  EXPECT_LT(client.ReceiveAll().size(), myContent.size());
  EXPECT_TRUE(client.IsClosed());
  EXPECT_EQ(myHandler.FinishedLines().at(0).substr(0, 8), "/file 0 ");
}

TEST_F(PLXListenerTest, LetsNoHeaderBreakOut) {
  myHandler.headers = {
      {"X-Good", "yes"},       {"X-Bad", "a\r\nX-Evil: b"}, {"X-Nul", std::string("a\0b", 3)},
      {"X Blank", "a"},        {"Content-Length", "1"},     {"Transfer-Encoding", "chunked"},
      {"Connection", "close"}, {"Server", "Mine"}};
  Start();
  RawClient client(Port());
  Answer const answer = client.Ask(Get("/headers"));
  EXPECT_TRUE(answer.Has("X-Good: yes"));
  EXPECT_TRUE(answer.Has("Server: Mine"));
  for (char const* word :
       {"X-Evil", "X-Bad", "X-Nul", "X Blank", "chunked", "close", "PLX Server", "Length: 1\r"}) {
    EXPECT_EQ(answer.head.find(word), answer.head.npos) << answer.head;
  }
  EXPECT_EQ(client.Ask(Get("/now")).status, 200);
}

TEST_F(PLXListenerTest, MendsWhatAPageDoesWrong) {
  Start();
  RawClient client(Port());
  EXPECT_EQ(client.Ask(Get("/throw")).status, 500);
  EXPECT_EQ(client.Ask(Get("/status?s=99")).status, 500);
  EXPECT_EQ(client.Ask(Get("/status?s=1000")).status, 500);
  Answer const odd = client.Ask(Get("/status?s=777"));
  EXPECT_EQ(odd.head.substr(0, 15), "HTTP/1.1 777 \r\n");
  for (char const* empty : {"/status?s=204", "/status?s=304"}) {
    Answer const answer = client.Ask(Get(empty));
    EXPECT_EQ(answer.head.find("Content-Length"), answer.head.npos) << empty;
  }
  EXPECT_EQ(client.Ask(Get("/now")).status, 200);
}

TEST_F(PLXListenerTest, ForgetsAClientThatLeaves) {
  MakeFile(32u << 20);
  Start();
  Block();
  RawClient file(Port());
  file.Send(Get("/file"));
  ASSERT_TRUE(Becomes([&] { return myListener->Status().requests == 2; }));
  file.Close();
  myHandler.Release();
  EXPECT_TRUE(Becomes([&] { return myListener->Status().connections == 0; }));
  EXPECT_EQ(myHandler.FinishedLines().size(), 2u);
  EXPECT_EQ(Ask(Get("/now")).status, 200);
}

TEST_F(PLXListenerTest, StopsWithoutLosingAPage) {
  Start();
  RawClient idle(Port());
  EXPECT_EQ(idle.Ask(Get("/now")).status, 200);
  RawClient silent(Port());
  RawClient busy(Port());
  busy.Send(Get("/block") + Get("/now"));
  ASSERT_TRUE(Becomes([&] { return myHandler.Blocked() == 1; }));
  myListener->Stop();
  EXPECT_TRUE(idle.IsClosed());
  EXPECT_TRUE(silent.IsClosed());
  EXPECT_FALSE(RawClient(Port()).IsConnected());
  myHandler.Release();
  Answer const answer = busy.Receive();
  EXPECT_EQ(answer.status, 200);
  EXPECT_TRUE(answer.Has("Connection: close"));
  busy.Close();
  myThread.join();
  EXPECT_EQ(myListener->Status().busyPageThreads, 0u);
}

TEST_F(PLXListenerTest, HearsOfModulesUntilTheyHaveEnded) {
  std::atomic<int> leaving = 0;
  Listen();
  myThread = std::thread([&] {
    myListener->Run({}, [&] {
      for (leaving = 1; leaving == 1;) std::this_thread::yield();
    });
  });
  auto const busy = Block();
  myListener->Stop();
  EXPECT_EQ(Ask(Get("/action")).status, 200) << "while a visitor is still served";
  EXPECT_EQ(Ask(Get("/page")).status, 503);
  EXPECT_EQ(leaving, 0) << "the visitor comes first";
  myHandler.Release();
  EXPECT_EQ(busy->Receive().status, 200);
  busy->Close();
  EXPECT_TRUE(Becomes([&] { return leaving == 1; }));
  EXPECT_EQ(Ask(Get("/action")).status, 200);
  EXPECT_EQ(Ask(Get("/now")).status, 503);
  leaving = 2;
  myThread.join();
  EXPECT_FALSE(RawClient(Port()).IsConnected());
}

TEST_F(PLXListenerTest, StopsBeforeItHasBegun) {
  Listen();
  myListener->Stop();
  myListener->Run({});
  EXPECT_FALSE(RawClient(Port()).IsConnected());
}

TEST_F(PLXListenerTest, DoesNotWaitForeverToStop) {
  myLimits.stopTime = 0s;
  Start();
  auto const busy = Block();
  myListener->Stop();
  myThread.join();
  EXPECT_EQ(myListener->Status().busyPageThreads, 1u) << "the page still runs";
  myListener.reset();
  myHandler.Release();
  EXPECT_TRUE(Becomes([&] { return myHandler.Blocked() == 0; }));
}

TEST_F(PLXListenerTest, FollowsSignals) {
  Start();
  EXPECT_EQ(Ask(Get("/now")).status, 200);
  auto const busy = Block();
  ::kill(::getpid(), SIGHUP);
  EXPECT_TRUE(Becomes([&] { return myReloads == 1; }));
  ::kill(::getpid(), SIGPIPE);
  ::kill(::getpid(), SIGTERM);
  EXPECT_TRUE(Becomes([&] { return !RawClient(Port()).IsConnected(); }));
  ::kill(::getpid(), SIGTERM);
  myThread.join();
  myHandler.Release();
  EXPECT_TRUE(Becomes([&] { return myHandler.Blocked() == 0; }));
}

TEST_F(PLXListenerTest, SaysWhyItCannotListen) {
  Start();
  for (auto const& [address, word] :
       {std::pair<std::string, std::string>{"127.0.0.1", "Address already in use"},
        {"example.com", "no numeric address"}}) {
    try {
      PLXListener const second(address, Port(), myLimits, {}, myFolder.Path(), myHandler);
      ADD_FAILURE() << address;
    } catch (std::runtime_error const& error) {
      EXPECT_NE(std::string(error.what()).find(word), std::string::npos) << error.what();
    }
  }
}

TEST(PLXClientAddress, BelievesOnlyNamedProxies) {
  PLXClientAddress addresses({"10.0.0.1", "::ffff:10.0.0.2"});
  struct Row {
    char const* why;
    char const* peer;
    std::vector<PLXNameValue> headers;
    char const* remote;
    bool isOwn;
  };
  char const us[] = "127.0.0.1", stranger[] = "6.6.6.6", proxy[] = "10.0.0.1", hops[] = "X-Forwarded-For";
  Row const rows[] = {
      {"a stranger who claims to be us", stranger, {{hops, us}}, stranger, false},
      {"this machine", us, {}, us, true},
      {"this machine by IPv6", "::1", {}, "::1", true},
      {"a local proxy that nobody named", us, {{hops, stranger}}, us, false},
      {"the same with another header", us, {{"Forwarded", "for=127.0.0.1"}}, us, false},
      {"a local proxy that says for whom in no word", us, {{"Via", "1.1 p"}}, us, false},
      {"or in another", us, {{"X-Real-IP", us}}, us, false},
      {"or says only where to", us, {{"X-Forwarded-Host", "h"}}, us, false},
      {"a proxy on its own behalf", proxy, {}, proxy, true},
      {"a proxy for a stranger", proxy, {{hops, stranger}}, stranger, false},
      {"a proxy for this machine, saying more", proxy, {{"Via", "1.1 p"}, {hops, us}}, us, true},
      {"a stranger who wrote the first hop", proxy, {{hops, "127.0.0.1, 6.6.6.6"}}, stranger, false},
      {"two proxies", proxy, {{hops, stranger}, {"x-forwarded-for", "10.0.0.2"}}, stranger, false},
      {"a proxy for another server of the farm", proxy, {{hops, "10.0.0.2"}}, "10.0.0.2", true},
      {"a hop with a port", proxy, {{hops, "[2001:db8::1]:80"}}, "2001:db8::1", false},
      {"a hop that is no address", proxy, {{hops, "unknown"}}, proxy, false},
  };
  for (Row const& row : rows) {
    SCOPED_TRACE(row.why);
    PLXRequest request;
    request.peerAddress = row.peer;
    request.headers = row.headers;
    addresses.Fill(request);
    EXPECT_EQ(request.remoteAddress, row.remote);
    EXPECT_EQ(request.isFromThisMachine, row.isOwn);
  }
}
