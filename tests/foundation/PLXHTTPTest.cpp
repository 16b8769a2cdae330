#include <atomic>
#include <cstdlib>
#include <gtest/gtest.h>
#include <malloc.h>
#include <string>
#include <vector>

#include "FoundationPrinters.h"
#include "PLXHTTP.h"
#include "PLXHTTPAnswer.h"
#include "PLXObject.h"
#include "ScriptedPeer.h"

namespace {

// A client for a path of the peer, with limits that a test can wait for.
class Client : public PLXHTTP {
 public:
  explicit Client(std::string const& address_i, std::string const& path_i = "/page") {
    SetURL(Plx("http://" + address_i + path_i));
    SetSilenceLimits(5000, 5000);
  }
  std::string Headers() const { return Std(GetResponseHeaders()); }
  std::string Data() const { return Std(GetResponseData()); }
};

// What the client sends for this set-up.
std::string RequestOf(void (*setUp_i)(PLXHTTP&)) {
  ScriptedPeer peer;
  peer.HearsRequest().Says("HTTP/1.0 204 Heard").Says("").Drops();
  Client client(peer.Address());
  setUp_i(client);
  EXPECT_TRUE(client.Process(false));
  std::string heard = peer.Heard();
  std::string const address = peer.Address();
  if (std::size_t const at = heard.find(address); at != std::string::npos)
    heard.replace(at, address.size(), "PEER");
  return heard;
}

// The parts of an answer that arrives in these bursts.
struct Parts {
  std::string headers;
  std::string data;
  bool isComplete;

  friend bool operator==(Parts const&, Parts const&) = default;
  friend void PrintTo(Parts const& parts_i, std::ostream* stream_io) {
    *stream_io << "headers <" << parts_i.headers << ">, data <" << parts_i.data << ">"
               << (parts_i.isComplete ? ", complete" : "");
  }
};
Parts PartsOf(std::vector<std::string> const& bursts_i) {
  PLXHTTPAnswer answer(true);
  for (std::string const& burst : bursts_i) EXPECT_TRUE(answer.Append(Plx(burst)));
  bool const isComplete = answer.IsComplete();
  PLXString headers("before");
  PLXString data;
  answer.MoveTo(headers, data);
  return {Std(headers), Std(data), isComplete};
}

// Counts what the foundation allocates, in bytes, while it lives.
class AllocationCount {
 public:
  AllocationCount() {
    ourTotal = ourNow = ourPeak = 0;
    PLXObject::SetMemoryFunctions(Allocate, Release);
  }
  ~AllocationCount() { PLXObject::SetMemoryFunctions(nullptr, nullptr); }
  static std::int64_t Total() { return ourTotal; }
  static std::int64_t Peak() { return ourPeak; }

 private:
  static void* Allocate(std::size_t byteCount_i) {
    void* const block = std::malloc(byteCount_i);
    std::int64_t const size = static_cast<std::int64_t>(malloc_usable_size(block));
    ourTotal += size;
    ourNow += size;
    ourPeak = std::max(ourPeak.load(), ourNow.load());
    return block;
  }
  static void Release(void* block_i) {
    ourNow -= static_cast<std::int64_t>(malloc_usable_size(block_i));
    std::free(block_i);
  }
  static inline std::atomic<std::int64_t> ourTotal;
  static inline std::atomic<std::int64_t> ourNow;
  static inline std::atomic<std::int64_t> ourPeak;
};

}  // namespace

TEST(PLXHTTPRequest, IsWrittenLineByLine) {
  struct Row {
    char const* why;
    void (*setUp)(PLXHTTP&);
    char const* request;
  };
  Row const rows[] = {
      {"nothing but the page", [](PLXHTTP&) {}, "GET /page HTTP/1.0\r\nHost: PEER\r\n\r\n"},
      {"HEAD differs in its first word", [](PLXHTTP& http_io) { http_io.SetMethod(PLXHTTPMethod::HEAD); },
       "HEAD /page HTTP/1.0\r\nHost: PEER\r\n\r\n"},
      {"every header, in order; arguments are for POST",
       [](PLXHTTP& http_io) {
         http_io.SetAuthorization(PLXHTTPAuthorization::Basic, "ada", "pw");
         http_io.SetUserAgent("agent/1");
         http_io.SetReferer("http://here/");
         http_io.AddPostArgument("a", "1");
       },
       "GET /page HTTP/1.0\r\nHost: PEER\r\nReferer: http://here/\r\nUser-Agent: agent/1\r\n"
       "Authorization: Basic YWRhOnB3\r\n\r\n"},
      {"an empty password is one",
       [](PLXHTTP& http_io) { http_io.SetAuthorization(PLXHTTPAuthorization::Basic, "ada", ""); },
       "GET /page HTTP/1.0\r\nHost: PEER\r\nAuthorization: Basic YWRhOg==\r\n\r\n"},
      {"an empty user is none, and takes back the one before",
       [](PLXHTTP& http_io) {
         http_io.SetAuthorization(PLXHTTPAuthorization::Basic, "ada", "pw");
         http_io.SetAuthorization(PLXHTTPAuthorization::Basic, "", "pw");
       },
       "GET /page HTTP/1.0\r\nHost: PEER\r\n\r\n"},
      {"a POST without arguments",
       [](PLXHTTP& http_io) {
         http_io.AddPostArgument("a", "1");
         http_io.ClearPostArguments();
         http_io.SetMethod(PLXHTTPMethod::POST);
       },
       "POST /page HTTP/1.0\r\nHost: PEER\r\nContent-Type: application/x-www-form-urlencoded\r\n"
       "Content-Length: 0\r\n\r\n"},
      {"no value begins a line of its own",
       [](PLXHTTP& http_io) {
         http_io.SetReferer("r\r\nX-Evil: 1");
         http_io.SetUserAgent(Plx(std::string("u\n\0\x7Fv", 5)));
       },
       "GET /page HTTP/1.0\r\nHost: PEER\r\nReferer: rX-Evil: 1\r\nUser-Agent: uv\r\n\r\n"}};
  for (Row const& row : rows) {
    SCOPED_TRACE(row.why);
    EXPECT_EQ(RequestOf(row.setUp), row.request);
  }
}

TEST(PLXHTTPRequest, CarriesTheEncodedArgumentsOfAPost) {
  ScriptedPeer peer;
  peer.HearsRequest().HearsBytes("a%20b=1%262&c%2Fd=").Says("HTTP/1.0 200 OK").Closes();
  Client client(peer.Address());
  client.SetMethod(PLXHTTPMethod::POST);
  client.AddPostArgument("a b", "1&2");
  client.AddPostArgument("c/d", "");
  EXPECT_TRUE(client.Process(false));
  EXPECT_NE(peer.Heard().find("\r\nContent-Length: 18\r\n\r\n"), std::string::npos);
}

TEST(PLXHTTPRequest, AsksForTheSlashOfABareHost) {
  ScriptedPeer peer;
  peer.HearsRequest().Closes();
  PLXHTTP http;
  http.SetURL(Plx("HTTP://" + peer.Address()));
  EXPECT_TRUE(http.Process(true));
  EXPECT_EQ(peer.Heard(), "GET / HTTP/1.0\r\nHost: " + peer.Address() + "\r\n\r\n");
}

TEST(PLXHTTPRequest, CannotBeSplitByTheURL) {
  ScriptedPeer peer;
  peer.HearsRequest().Closes();
  Client client(peer.Address(), "/a HTTP/1.0\r\nX-Evil: 1\r\n\r\n");
  EXPECT_TRUE(client.Process(true));
  EXPECT_EQ(peer.Heard(), "GET /a HTTP/1.0X-Evil: 1 HTTP/1.0\r\nHost: " + peer.Address() + "\r\n\r\n");
}

TEST(PLXHTTPAnswer, IsTheSameHoweverItIsCut) {
  struct Row {
    char const* why;
    char const* text;
    Parts parts;
  };
  Row const rows[] = {
      {"headers and body", "HTTP/1.0 200 OK\r\nA: b\r\n\r\nbody", {"HTTP/1.0 200 OK\r\nA: b", "body", false}},
      {"another version, an empty body", "HTTP/1.1 404 No\r\n\r\n", {"HTTP/1.1 404 No", "", false}},
      {"the first empty line counts", "H 200\r\n\r\na\r\n\r\nb", {"H 200", "a\r\n\r\nb", false}},
      {"a body of the announced length",
       "H 200\r\nCONTENT-length:\t2 \r\n\r\nab",
       {"H 200\r\nCONTENT-length:\t2 ", "ab", true}},
      {"and none", "H 200\r\nContent-Length: 0\r\n\r\n", {"H 200\r\nContent-Length: 0", "", true}},
      {"a byte less", "H 200\r\nContent-Length: 2\r\n\r\na", {"H 200\r\nContent-Length: 2", "a", false}},
      {"a length beyond any",
       "H 200\r\nContent-Length: 99999999999999999999\r\n\r\na",
       {"H 200\r\nContent-Length: 99999999999999999999", "a", false}},
      {"a length that is none",
       "H 200\r\nContent-Length: -1\r\n\r\na",
       {"H 200\r\nContent-Length: -1", "a", false}},
      {"two lengths that differ",
       "H 200\r\nContent-Length: 1\r\nContent-Length: 2\r\n\r\nab",
       {"H 200\r\nContent-Length: 1\r\nContent-Length: 2", "ab", false}},
      {"chunks have no length",
       "H 200\r\nContent-Length: 1\r\nTransfer-Encoding: chunked\r\n\r\na",
       {"H 200\r\nContent-Length: 1\r\nTransfer-Encoding: chunked", "a", false}},
      {"kinds without a body",
       "H 304 N\r\nContent-Length: 9\r\n\r\n",
       {"H 304 N\r\nContent-Length: 9", "", true}},
      {"an interim response first",
       "H 100 C\r\nX: y\r\n\r\nH 200\r\nContent-Length: 1\r\n\r\na",
       {"H 200\r\nContent-Length: 1", "a", true}},
      {"two of them", "H 100 C\r\n\r\nH 101 S\r\n\r\nH 204 N\r\n\r\n", {"H 204 N", "", true}},
      {"an interim response and no other", "H 100 C\r\n\r\n", {"H 100 C", "", false}},
      {"one, and text without headers", "H 100 C\r\n\r\ntext", {"H 100 C", "text", false}},
      {"no empty line at all", "42 lines of text\n\n", {"before", "42 lines of text\n\n", false}},
      {"an empty line cut short", "H 200\r\n\r", {"before", "H 200\r\n\r", false}},
      {"nothing", "", {"before", "", false}}};
  for (Row const& row : rows) {
    SCOPED_TRACE(row.why);
    EXPECT_EQ(PartsOf({row.text}), row.parts);
    std::vector<std::string> bytes;
    for (char const byte : std::string(row.text)) bytes.emplace_back(1, byte);
    EXPECT_EQ(PartsOf(bytes), row.parts) << "byte by byte";
  }
}

TEST(PLXHTTPAnswer, TellsWhereARedirectLeads) {
  struct Row {
    char const* why;
    char const* text;
    bool isRedirect;
    char const* url;  // null: no Location
  };
  Row const rows[] = {
      {"absolute", "H 302 F\r\nLocation: http://b/c\r\n\r\n", true, "http://b/c"},
      {"a path", "H 301 M\r\nlocation:/c?d\r\n\r\n", true, "http://host:8/c?d"},
      {"white space around", "H 301 M\r\nLOCATION: \t /c \t\r\n\r\n", true, "http://host:8/c"},
      {"the first one counts", "H 302 F\r\nX-Location: /a\r\nLocation: /b\r\nLocation: /c\r\n\r\n", true,
       "http://host:8/b"},
      {"none", "H 302 F\r\nLocatio: /b\r\n\r\nbody", true, nullptr},
      {"the line is cut off", "H 302 F\r\nLocation: /b", true, "http://host:8/b"},
      {"behind an interim response", "H 100 C\r\nLocation: /a\r\n\r\nH 302 F\r\nLocation: /b\r\n\r\n", true,
       "http://host:8/b"},
      {"other kinds are no redirect", "H 303 S\r\nLocation: /b\r\n\r\n", false, "http://host:8/b"},
      {"nor is a body that looks like one", "H 200\r\n\r\nH 302 F\r\n", false, nullptr}};
  for (Row const& row : rows) {
    SCOPED_TRACE(row.why);
    PLXHTTPAnswer answer(true);
    answer.Append(row.text);
    PLXString url("before");
    EXPECT_EQ(answer.IsRedirect(), row.isRedirect);
    EXPECT_EQ(answer.FindLocation("host:8", url), row.url != nullptr);
    EXPECT_EQ(Std(url), row.url != nullptr ? row.url : "before");
  }
}

TEST(PLXHTTPAnswer, TakesAnyNumberOfInterimResponsesInOneGo) {
  std::string text;
  for (int count = 0; count < 500000; ++count) text += "H 100 C\r\n\r\n";
  EXPECT_EQ(PartsOf({text, "H 200\r\n\r\nbody"}), (Parts{"H 200", "body", false}));
}

TEST(PLXHTTPProcess, WaitsForTheLaterBurstsOfASlowPeer) {
  ScriptedPeer peer;
  peer.HearsRequest()
      .Sends("HTTP/1.0 200 OK\r\n\r\none ")
      .Pauses()
      .Sends("2 two ")
      .Pauses()
      .Sends("x 302 three");
  peer.Closes();
  Client client(peer.Address());
  EXPECT_TRUE(client.Process(true));
  EXPECT_EQ(client.Headers(), "HTTP/1.0 200 OK");
  EXPECT_EQ(client.Data(), "one 2 two x 302 three");
}

TEST(PLXHTTPProcess, WaitsForTheFinalResponseAfterAnInterimOne) {
  ScriptedPeer peer;
  peer.HearsRequest().Sends("HTTP/1.1 100 Continue\r\n\r\n").Pauses().Sends("HTTP/1.1 200 OK\r\n\r\nbody");
  Client client(peer.Address());
  client.SetSilenceLimits(0, 0);  // those are for silence within the final response
  EXPECT_TRUE(client.Process(true));
  EXPECT_EQ(client.Headers(), "HTTP/1.1 200 OK");
  EXPECT_EQ(client.Data(), "body");
}

TEST(PLXHTTPProcess, LeavesAPeerThatKeepsTheConnection) {
  struct Row {
    char const* why;
    char const* answer;
    PLXHTTPMethod method;
    char const* data;
  };
  Row const rows[] = {
      {"once the announced bytes are there", "HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\nbody",
       PLXHTTPMethod::GET, "body"},
      {"after a HEAD", "HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\n", PLXHTTPMethod::HEAD, ""},
      {"when it never said how much there is", "HTTP/1.0 200 OK\r\n\r\nbody", PLXHTTPMethod::GET, "body"},
      {"when it says less than it announced", "HTTP/1.0 200 OK\r\nContent-Length: 5\r\n\r\nbody",
       PLXHTTPMethod::GET, "body"},
      {"when it speaks no HTTP", "220 mail here\r\n", PLXHTTPMethod::GET, "220 mail here\r\n"}};
  for (Row const& row : rows) {
    SCOPED_TRACE(row.why);
    ScriptedPeer peer;
    peer.HearsRequest().Sends(row.answer).IsLeft();
    Client client(peer.Address());
    client.SetMethod(row.method);
    client.SetSilenceLimits(100, 200);
    EXPECT_TRUE(client.Process(true));
    EXPECT_EQ(client.Data(), row.data);
  }
}

TEST(PLXHTTPProcess, FollowsRedirectsWithTheSameRequest) {
  ScriptedPeer other;
  other.HearsRequest().HearsBytes("a=1").Sends("HTTP/1.0 200 OK\r\n\r\nthere").Closes();
  ScriptedPeer peer;
  peer.HearsRequest().HearsBytes("a=1").Sends("HTTP/1.1 302 Found\r\nLocation: /next\r\n\r\nmoved").Closes();
  peer.AcceptsNext().HearsRequest().HearsBytes("a=1");
  // The Location arrives in a burst of its own.
  peer.Sends("HTTP/1.1 301 Moved\r\nA: b\r\n")
      .Pauses()
      .Sends("Location: http://" + other.Address() + "/there\r\n\r\n");
  Client client(peer.Address());
  client.SetMethod(PLXHTTPMethod::POST);
  client.SetUserAgent("agent/1");
  client.AddPostArgument("a", "1");
  EXPECT_TRUE(client.Process(true));
  EXPECT_EQ(client.Headers(), "HTTP/1.0 200 OK");
  EXPECT_EQ(client.Data(), "there");
  EXPECT_NE(
      peer.Heard().find("POST /next HTTP/1.0\r\nHost: " + peer.Address() + "\r\nUser-Agent: agent/1\r\n"),
      std::string::npos);
  EXPECT_TRUE(other.Heard().starts_with("POST /there HTTP/1.0\r\nHost: " + other.Address() + "\r\n"));
}

TEST(PLXHTTPProcess, ShowsRedirectsThatItDoesNotFollow) {
  std::string const answer = "HTTP/1.0 302 Found\r\nLocation: /next\r\n\r\nmoved";
  for (bool const isFollowed : {false, true}) {
    ScriptedPeer peer;
    peer.HearsRequest().Sends(isFollowed ? "HTTP/1.0 302 Found\r\n\r\nmoved" : answer).Closes();
    Client client(peer.Address());
    EXPECT_TRUE(client.Process(isFollowed));
    EXPECT_EQ(client.Headers(), isFollowed ? "" : "HTTP/1.0 302 Found\r\nLocation: /next");
    EXPECT_EQ(client.Data(), isFollowed ? "" : "moved") << "a redirect to nowhere leaves nothing";
  }
}

TEST(PLXHTTPProcess, FailsForAHostThatDoesNotResolve) {
  Client client("no-such-host.invalid");
  EXPECT_FALSE(client.Process(true));
  ScriptedPeer peer;
  peer.HearsRequest().Sends("HTTP/1.0 302 Found\r\nLocation: other://host/\r\n\r\nmoved").Closes();
  Client redirected(peer.Address());
  EXPECT_FALSE(redirected.Process(true)) << "no other scheme is known";
  EXPECT_EQ(redirected.Data(), "");
}

TEST(PLXHTTPProcess, HoldsALargeBodyAtMostTwice) {
  constexpr std::size_t kSize = 100000000;
  std::string body(kSize, '\0');
  for (std::size_t at = 0; at < kSize; ++at) body[at] = static_cast<char>(at * 31 >> 4);
  ScriptedPeer peer;
  peer.HearsRequest().Sends("HTTP/1.0 200 OK\r\n\r\n" + body).Closes();
  Client client(peer.Address());
  AllocationCount const count;
  EXPECT_TRUE(client.Process(true));
  EXPECT_EQ(client.GetResponseData().GetLength(), kSize);
  EXPECT_TRUE(client.Data() == body);  // 100 MB of both would tell nobody anything
  // Storage doubles, so that all of it together is at most four bodies, and the last two at most three, of
  // which the part beyond the text is never touched.
  EXPECT_LE(AllocationCount::Total(), std::int64_t{4} * kSize + 1000000);
  EXPECT_LE(AllocationCount::Peak(), std::int64_t{3} * kSize + 1000000);
}
