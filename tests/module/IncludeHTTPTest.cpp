#include <gtest/gtest.h>
#include <regex>

#include "NetworkModuleLibrary.h"
#include "ScriptedPeer.h"
#include "SimulatedHost.h"

namespace {

std::string const ourHeaders = "HTTP/1.0 200 OK\r\nContent-Type: text/html";
// As it came: nothing in it is encoded, decoded or taken for a tag.
std::string const ourContent = "<p>&amp; <plxFTP> caf\xE9\r\n\r\n" + std::string(1, 0) + " end";
std::string const ourAnswer = ourHeaders + "\r\n\r\n" + ourContent;

// A page at /dir/page.html of the site `virtualHost_i` with one plxIncludeHTTP tag.
struct IncludingPage : SimulatedHost {
  IncludingPage(std::string const& virtualHost_i, Pairs const& parameters_i) {
    tag = "plxIncludeHTTP";
    tagParameters = parameters_i;
    cgi["SCRIPT_NAME"] = "/dir/page.html";
    texts[kPLXSupport_GetVirtualHost] = virtualHost_i;
  }
  PLXUInt32 Process() { return GetNetworkModuleEntry()(Event(kPLXEvent_Tag)); }
};

// What a peer hears of a page's request.
std::string RequestOf(SimulatedHost::Pairs const& parameters_i, std::string const& body_i = "") {
  ScriptedPeer peer;
  peer.HearsRequest();
  if (!body_i.empty()) peer.HearsBytes(body_i);
  peer.Sends(ourAnswer).Closes();
  IncludingPage page(peer.Address(), parameters_i);
  EXPECT_EQ(page.Process(), 0u);
  EXPECT_EQ(page.output, ourContent);
  return peer.Heard();
}

std::string const ourUserAgent = "plxIncludeHTTP/3.1.7 (PLX 3.1; Linux)";

}  // namespace

TEST(IncludeHTTP, ShowsThePartsThatAreAskedFor) {
  struct {
    char const* why;
    SimulatedHost::Pairs data;
    std::string output;
  } const rows[] = {
      {"the content by default", {}, ourContent},
      {"the headers", {{"data", "headers"}}, ourHeaders},
      {"letter case does not count", {{"DATA", "HEADERSANDCONTENT"}}, ourAnswer},
      {"anything else is the content", {{"data", "header"}}, ourContent},
      {"the first of two", {{"data", "headers"}, {"data", "content"}}, ourHeaders},
  };
  for (auto const& row : rows) {
    SCOPED_TRACE(row.why);
    ScriptedPeer peer;
    peer.HearsRequest().Sends(ourAnswer).Closes();
    SimulatedHost::Pairs parameters = row.data;
    parameters.emplace_back("url", "http://" + peer.Address() + "/x");
    IncludingPage page("unused", parameters);
    EXPECT_EQ(page.Process(), 0u);
    EXPECT_EQ(page.output, row.output);
  }
}

TEST(IncludeHTTP, TellsThePeerWhoAsks) {
  ScriptedPeer peer;
  peer.HearsRequest().Sends(ourAnswer).Closes();
  IncludingPage page("site.example:81", {{"url", "HTTP://" + peer.Address() + "/x?a=1"}});
  EXPECT_EQ(page.Process(), 0u);
  EXPECT_EQ(peer.Heard(), "GET /x?a=1 HTTP/1.0\r\nHost: " + peer.Address() +
                              "\r\nReferer: http://site.example:81/dir/page.html\r\nUser-Agent: " +
                              ourUserAgent + "\r\n\r\n");
}

TEST(IncludeHTTP, PostsWholePairs) {
  SimulatedHost::Pairs const arguments = {
      {"postArgumentName", "a b"},   {"postArgumentValue", "1&2"}, {"postargumentvalue", ""},
      {"POSTARGUMENTNAME", "empty"}, {"postArgumentName", "c"},    {"url", "/x"},
  };
  std::string const body = "a%20b=1%262&empty=";
  for (char const* const method : {"POST", "post"}) {
    SimulatedHost::Pairs parameters = arguments;
    parameters.emplace_back("method", method);
    std::string const request = RequestOf(parameters, body);
    EXPECT_EQ(request.substr(0, 17), "POST /x HTTP/1.0\r");
    EXPECT_TRUE(request.ends_with("Content-Length: 18\r\n\r\n" + body)) << request;
  }
  for (char const* const method : {"GET", "PUT", ""}) {
    SimulatedHost::Pairs parameters = arguments;
    parameters.emplace_back("method", method);
    std::string const request = RequestOf(parameters);
    EXPECT_EQ(request.substr(0, 16), "GET /x HTTP/1.0\r");
    EXPECT_TRUE(request.ends_with(ourUserAgent + "\r\n\r\n")) << request;
  }
}

TEST(IncludeHTTP, FindsItsURLFromThePage) {
  struct {
    char const* why;
    char const* page;
    char const* url;
    char const* path;
  } const rows[] = {
      {"a path of the site", "/a/b/page.html", "/x/y", "/x/y"},
      {"a neighbour of the page", "/a/b/page.html", "x.html", "/a/b/x.html"},
      {"the folder above", "/a/b/page.html", "../x.html", "/a/x.html"},
      {"nothing is above the root", "/a/b/page.html", "../../../../x.html", "/x.html"},
      {"only dots at the start lead up", "/a/b/page.html", "c/../x.html", "/a/b/c/../x.html"},
      {"one dot is a name", "/a/b/page.html", "./x.html", "/a/b/./x.html"},
      {"slashes in a query stay", "/a/b/page.html", "x.html?p=../c/", "/a/b/x.html?p=../c/"},
      {"a page at the root", "/page.html", "x.html", "/x.html"},
      {"up from a page at the root", "/page.html", "../x.html", "/x.html"},
      {"a page without a path", "", "x.html", "/x.html"},
      {"a scheme that is not ours is a name", "/page.html", "ftp://x", "/ftp://x"},
  };
  for (auto const& row : rows) {
    SCOPED_TRACE(row.why);
    ScriptedPeer peer;
    peer.HearsRequest().Sends(ourAnswer).Closes();
    IncludingPage page(peer.Address(), {{"url", row.url}});
    page.cgi["SCRIPT_NAME"] = row.page;
    EXPECT_EQ(page.Process(), 0u);
    std::string const heard = peer.Heard();
    EXPECT_EQ(heard.substr(0, heard.find("\r\n")), std::string("GET ") + row.path + " HTTP/1.0");
    EXPECT_NE(heard.find("\r\nHost: " + peer.Address() + "\r\n"), std::string::npos);
  }
}

TEST(IncludeHTTP, RefusesThePageItself) {
  RefusedPort const port;  // whatever is tried all the same finds nobody
  struct {
    char const* why;
    std::string url;
    bool isRefused;
  } const rows[] = {{"its address", "http://" + port.Address() + "/dir/page.html", true},
                    {"its name", "page.html", true},
                    {"a way round", "../dir/page.html", true},
                    {"in other letters", "HTTP://" + port.Address() + "/DIR/Page.HTML", true},
                    {"with a query", "/dir/page.html?again=1?2", true},
                    {"another page", "/dir/page.htm", false},
                    {"a page below its name", "/dir/page.html/x", false},
                    {"its name in a query", "/other.html?/dir/page.html", false}};
  for (auto const& row : rows) {
    SCOPED_TRACE(row.why);
    IncludingPage page(port.Address(), {{"url", row.url}});
    EXPECT_EQ(page.Process(), row.isRefused ? kPLXResult_InvalidParameterValue : 0u);
    EXPECT_EQ(page.problem, row.isRefused ? "The specified URL cannot refer to the current page." : "");
    EXPECT_EQ(page.remedy, row.isRefused ? "Change the URL parameter to refer to a different page." : "");
    EXPECT_EQ(page.output, "");
  }
}

TEST(IncludeHTTP, ReportsAMissingURL) {
  IncludingPage page("unused", {{"data", "headers"}});
  EXPECT_EQ(page.Process(), kPLXResult_MissingRequiredParameter);
  EXPECT_EQ(page.problem,
            "An &lt;plxIncludeHTTP&gt; tag was found but it is missing its &quot;url&quot; parameter.");
  EXPECT_EQ(page.output, "");
}

TEST(IncludeHTTP, IncludesWhatAFailingPeerSaid) {
  struct {
    char const* why;
    std::string answer;
    std::string output;
  } const rows[] = {{"a body cut short", "HTTP/1.0 200 OK\r\nContent-Length: 9\r\n\r\nhalf", "half"},
                    {"no headers at all", "plain", "plain"},
                    {"nothing", "", ""}};
  for (auto const& row : rows) {
    SCOPED_TRACE(row.why);
    ScriptedPeer peer;
    peer.HearsRequest().Sends(row.answer).Closes();
    IncludingPage page("unused", {{"url", "http://" + peer.Address() + "/"}});
    EXPECT_EQ(page.Process(), 0u);
    EXPECT_EQ(page.output, row.output);
  }
}

TEST(IncludeHTTP, IsEmptyWhenNobodyIsThere) {
  RefusedPort const port;
  struct {
    char const* why;
    std::string url;
    char const* data;
    char const* output;
  } const rows[] = {
      {"a refused port", "http://" + port.Address() + "/", "content", ""},
      {"a host without a name", "http:///x", "headers", ""},
      {"both parts of nothing", "http://" + port.Address() + "/", "headersAndContent", "\r\n\r\n"}};
  for (auto const& row : rows) {
    SCOPED_TRACE(row.why);
    IncludingPage page("unused", {{"url", row.url}, {"data", row.data}});
    EXPECT_EQ(page.Process(), 0u);
    EXPECT_EQ(page.output, row.output);
    EXPECT_EQ(page.problem, "");
  }
}

// ---- What the operator sees ----

TEST(IncludeHTTP, TellsTheOperatorOnceAServiceIsOffered) {
  struct {
    char const* why;
    std::string answer;
    std::string line;
    char const* level;
    char const* series;
  } const rows[] = {
      {"as it is", ourAnswer, "include url=http://HOST/a%20b status=200 bytes=SIZE ms=N page=/dir/page.html",
       "MLgN", "plx_includes_total{status=\"200\"}"},
      {"refused", "HTTP/1.0 404 No\r\n\r\n",
       "include url=http://HOST/a%20b status=404 bytes=0 ms=N page=/dir/page.html", "MLgN",
       "plx_includes_total{status=\"404\"}"},
      {"nothing came", "",
       "include failed url=http://HOST/a%20b status=0 bytes=0 ms=N page=/dir/page.html "
       "reason=\"Closed without an answer\"",
       "MLgW", "plx_includes_total{status=\"none\"}"},
  };
  SimulatedHost operating;
  ASSERT_EQ(GetNetworkModuleEntry()(operating.Event(kPLXEvent_Service)), 0u);
  for (auto const& row : rows) {
    SCOPED_TRACE(row.why);
    operating.calls.clear();
    operating.log.clear();
    ScriptedPeer peer;
    peer.HearsRequest().Sends(row.answer).Closes();
    IncludingPage page(peer.Address(), {{"url", "http://" + peer.Address() + "/a%20b?key=secret#there"}});
    EXPECT_EQ(page.Process(), 0u);
    EXPECT_TRUE(page.log.empty()) << "the page's own handle is not used";
    ASSERT_EQ(operating.log.size(), 1u);
    std::string line = std::regex_replace(operating.log[0].second, std::regex(" ms=[0-9]+ "), " ms=N ");
    std::string expected = std::regex_replace(row.line, std::regex("HOST"), peer.Address());
    expected = std::regex_replace(expected, std::regex("SIZE"), std::to_string(ourContent.size()));
    EXPECT_EQ(line, expected);
    EXPECT_EQ(operating.log[0].first, row.level);
    EXPECT_EQ(operating.calls.at(1).sent, "MFig '" + std::string(row.series) + "' 1 [FAdd]");
  }
  ASSERT_EQ(GetNetworkModuleEntry()(operating.Event(kPLXEvent_Terminate)), 0u);
  operating.calls.clear();
  RequestOf({{"url", "/x"}});
  EXPECT_TRUE(operating.calls.empty()) << "a service ends with the module";
}
