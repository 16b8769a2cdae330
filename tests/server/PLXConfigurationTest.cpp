#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>

#include "PLXConfiguration.h"
#include "TemporaryFolder.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Pair;

namespace {

// A folder with what a good configuration names: two roots and a module file.
class PLXConfigurationFile : public testing::Test {
 protected:
  PLXConfigurationFile() {
    folder.MakeFolder("sites/demo");
    folder.MakeFolder("sites/other");
    folder.Write("module.so", "");
  }

  PLXConfiguration Load(std::string const& text_i, std::vector<std::string> const& overrides_i = {}) {
    return LoadFile(folder.Write("plxserver.conf", text_i), overrides_i);
  }

  PLXConfiguration LoadFile(std::filesystem::path const& file_i,
                            std::vector<std::string> const& overrides_i = {}) {
    std::vector<PLXConfigurationProblem> found;
    PLXConfiguration configuration = LoadConfiguration(file_i, overrides_i, found);
    problems.clear();
    for (PLXConfigurationProblem const& problem : found) {
      EXPECT_NE(problem.problem, "");
      EXPECT_NE(problem.remedy, "");
      std::string const text = problem.Text();
      std::string const prefix = folder.Path().string() + "/";
      problems.push_back(text.starts_with(prefix) ? text.substr(prefix.size()) : text);
    }
    return configuration;
  }

  TemporaryFolder folder;
  std::vector<std::string> problems;  // of the last Load, without the folder
};

std::string const kSite = "\n[site.demo]\nhosts = [\"localhost\"]\nroot = \"sites/demo\"\n";

}  // namespace

TEST_F(PLXConfigurationFile, ReadsEveryKey) {
  PLXConfiguration const read = Load(R"(# a comment
listen = "[::1]:0"   # another
state = 'var # not a comment'
modules = ["module.so"]
page-threads = 16
administration-threads=2
connections = 99
connections-per-address = 0
header-bytes = 8K
body-bytes = 2G
body-in-memory-bytes = 1m
form-fields = 5
header-time = 3
body-time = 4
write-time = 5
stop-time = 0
include-depth = 2
proxies = ["127.0.0.1", "0:0::1"]
security-headers = [
  "X-Frame-Options: DENY",      # nobody frames us
  "Content-Security-Policy: img-src 'self', https://a#b",
]
trace = yes
core-dumps = on
log-bytes = 4096
log-files = 1

[site.demo]
hosts = ["LocalHost", "127.0.0.1", "::1"]
root = "sites/demo"
index = []
pages = [".html"]
downloads = ["/attachments/", "/a/b/"]

[region.mail]
path = "/mail/"
site = "demo"
login = true
foreign-posts = true
headers = ["Content-Security-Policy:  default-src 'self'; img-src https://a ", "X-Frame-Options:"]
[site.other]
hosts = other.example.org
root = sites/other
)");
  ASSERT_THAT(problems, IsEmpty());
  EXPECT_EQ(read.listenAddress, "::1");
  EXPECT_EQ(read.listenPort, 0);
  EXPECT_EQ(read.state, folder / "var # not a comment");
  EXPECT_THAT(read.modules, ElementsAre(folder / "module.so"));
  EXPECT_EQ(read.limits.pageThreads, 16u);
  EXPECT_EQ(read.limits.waitingPages, 64u) << "four for each thread";
  EXPECT_EQ(read.limits.administrationThreads, 2u);
  EXPECT_EQ(read.limits.connections, 99u);
  EXPECT_EQ(read.limits.connectionsPerAddress, 0u);
  EXPECT_EQ(read.limits.headerBytes, 8192u);
  EXPECT_EQ(read.limits.bodyBytes, std::size_t{2} << 30);
  EXPECT_EQ(read.limits.bodyInMemoryBytes, 1u << 20);
  EXPECT_EQ(read.limits.formFields, 5u);
  EXPECT_EQ(read.limits.headerTime.count(), 3);
  EXPECT_EQ(read.limits.bodyTime.count(), 4);
  EXPECT_EQ(read.limits.writeTime.count(), 5);
  EXPECT_EQ(read.limits.stopTime.count(), 0);
  EXPECT_EQ(read.limits.includeDepth, 2u);
  EXPECT_THAT(read.proxies, ElementsAre("127.0.0.1", "::1"));
  EXPECT_THAT(read.securityHeaders,
              ElementsAre(Pair("X-Frame-Options", "DENY"),
                          Pair("Content-Security-Policy", "img-src 'self', https://a#b")));
  EXPECT_TRUE(read.trace);
  EXPECT_TRUE(read.coreDumps);
  EXPECT_EQ(read.logBytes, 4096u);
  EXPECT_EQ(read.logFiles, 1u);

  ASSERT_EQ(read.sites.size(), 2u);
  PLXSiteConfiguration const& demo = read.sites[0];
  EXPECT_EQ(demo.name, "demo");
  EXPECT_THAT(demo.hosts, ElementsAre("localhost", "127.0.0.1", "[::1]"));
  EXPECT_EQ(demo.root, folder / "sites/demo");
  EXPECT_THAT(demo.indexes, IsEmpty());
  EXPECT_THAT(demo.pages, ElementsAre(".html"));
  EXPECT_THAT(demo.downloads, ElementsAre("/attachments/", "/a/b/"));
  ASSERT_EQ(demo.regions.size(), 2u);
  EXPECT_EQ(demo.regions[0].name, "mail");
  EXPECT_TRUE(demo.regions[0].requiresLogin);
  EXPECT_TRUE(demo.regions[0].takesForeignPosts);
  EXPECT_THAT(demo.regions[0].headers,
              ElementsAre(testing::Pair("Content-Security-Policy", "default-src 'self'; img-src https://a"),
                          testing::Pair("X-Frame-Options", "")));
  EXPECT_EQ(demo.regions[1].name, "main");
  EXPECT_EQ(demo.regions[1].path, "/");
  EXPECT_FALSE(demo.regions[1].requiresLogin);
  EXPECT_THAT(read.sites[1].hosts, ElementsAre("other.example.org"));
}

TEST_F(PLXConfigurationFile, TakesUnitsAndWordsOfAnyCaseAndWhatAnEngineNeeds) {
  PLXConfiguration const read = Load(
      "listen = \"localhost:80\"\nheader-bytes = 2k\nbody-bytes=1g\ntrace = OFF\nrecords-source = "
      "\"Driver=X\"\n"
      "records-user = u\nrecords-password = 'p w'\n[site.demo]\nhosts = [\"a_b\", \"a_b\"]\nroot = "
      "\"sites/demo\"\n",
      {"proxies=::1 , 127.0.0.1 "});
  EXPECT_THAT(problems, IsEmpty());
  EXPECT_EQ(read.limits.headerBytes, 2048u);
  EXPECT_EQ(read.limits.bodyBytes, 1u << 30);
  EXPECT_FALSE(read.trace);
  EXPECT_EQ(read.recordsSource + '|' + read.recordsUser + '|' + read.recordsPassword, "Driver=X|u|p w");
  EXPECT_THAT(read.sites.front().hosts, ElementsAre("a_b"));
}

TEST_F(PLXConfigurationFile, MeansTheSameWhenEveryDefaultIsWrittenOut) {
  PLXConfiguration const bare = Load(kSite);
  ASSERT_THAT(problems, IsEmpty());
  std::string written;
  std::string section;
  std::istringstream reference(ConfigurationReference());
  for (std::string line; std::getline(reference, line);) {
    if (line.starts_with("[")) section = line;
    if (line == "[site.NAME]") written += kSite;
    bool const isGiven = line.find(" = none ") != std::string::npos || section == "[region.NAME]";
    if (!line.starts_with("[") && !isGiven) written += line + "\n";
  }
  PLXConfiguration const full = Load(written);
  ASSERT_THAT(problems, IsEmpty()) << written;
  EXPECT_EQ(full.listenAddress, bare.listenAddress);
  EXPECT_EQ(full.listenPort, bare.listenPort);
  EXPECT_EQ(full.state, bare.state);
  EXPECT_EQ(full.securityHeaders, bare.securityHeaders);
  EXPECT_EQ(full.logBytes, bare.logBytes);
  EXPECT_EQ(full.logFiles, bare.logFiles);
  EXPECT_EQ(full.limits.pageThreads, bare.limits.pageThreads);
  EXPECT_EQ(full.limits.waitingPages, bare.limits.waitingPages);
  EXPECT_EQ(full.limits.administrationThreads, bare.limits.administrationThreads);
  EXPECT_EQ(full.limits.connections, bare.limits.connections);
  EXPECT_EQ(full.limits.connectionsPerAddress, bare.limits.connectionsPerAddress);
  EXPECT_EQ(full.limits.headerBytes, bare.limits.headerBytes);
  EXPECT_EQ(full.limits.bodyBytes, bare.limits.bodyBytes);
  EXPECT_EQ(full.limits.bodyInMemoryBytes, bare.limits.bodyInMemoryBytes);
  EXPECT_EQ(full.limits.formFields, bare.limits.formFields);
  EXPECT_EQ(full.limits.headerTime, bare.limits.headerTime);
  EXPECT_EQ(full.limits.bodyTime, bare.limits.bodyTime);
  EXPECT_EQ(full.limits.writeTime, bare.limits.writeTime);
  EXPECT_EQ(full.limits.stopTime, bare.limits.stopTime);
  EXPECT_EQ(full.limits.includeDepth, bare.limits.includeDepth);
  EXPECT_EQ(full.sites[0].indexes, bare.sites[0].indexes);
  EXPECT_EQ(full.sites[0].pages, bare.sites[0].pages);
  EXPECT_EQ(full.sites[0].downloads, bare.sites[0].downloads);
}

TEST_F(PLXConfigurationFile, SaysWhatIsWrongWhereAndWhatToDo) {
  struct Row {
    char const* why;
    std::string text;
    std::string message;  // the only one
  };
  Row const rows[] = {
      {"two letters swapped", "\n\npage-thraeds = 3" + kSite,
       "plxserver.conf:3: unknown key \"page-thraeds\". Did you mean \"page-threads\"?"},
      {"a letter left out", "pag-threads = 3" + kSite,
       "plxserver.conf:1: unknown key \"pag-threads\". Did you mean \"page-threads\"?"},
      {"a key like no other", "colour = red" + kSite,
       "plxserver.conf:1: unknown key \"colour\". Remove it; \"plxserver --help\" lists the keys."},
      {"a key of the server below a section", kSite + "trace = true",
       "plxserver.conf:5: unknown key \"trace\". It belongs to the whole server: write it before the first "
       "section."},
      {"a key of a site above it", "root = \"sites/demo\"" + kSite,
       "plxserver.conf:1: unknown key \"root\". It belongs in a section [site.NAME]."},
      {"a key of a region like no other", kSite + "[region.r]\nsite=\"demo\"\npath=\"/r/\"\ncolour=red",
       "plxserver.conf:8: unknown key \"colour\". Here one can write site, path, login, foreign-posts and "
       "headers."},
      {"text where seconds belong", "stop-time = soon" + kSite,
       "plxserver.conf:1: \"stop-time\" cannot be \"soon\". Write a whole number of seconds from 0 to 3600."},
      {"a list where a text belongs", "state = [\"a\", \"b\"]" + kSite,
       "plxserver.conf:1: \"state\" cannot be a list. Write a text."},
      {"a site that nobody calls", "[site.demo]\nhosts = []\nroot = \"sites/demo\"",
       "plxserver.conf:2: the site has no host name. Write at least one, such as \"localhost\"."},
      {"a long line, cut between its characters", std::string(79, 'x') + "\xC3\xA4y" + kSite,
       "plxserver.conf:1: \"" + std::string(79, 'x') +
           "...\" is neither a key with a value nor a section nor a comment. Write key = value."},
      {"text where a number belongs", "page-threads = many" + kSite,
       "plxserver.conf:1: \"page-threads\" cannot be \"many\". Write a whole number from 1 to 1024."},
      {"a number with something behind", "page-threads = 16x" + kSite,
       "plxserver.conf:1: \"page-threads\" cannot be \"16x\". Write a whole number from 1 to 1024."},
      {"a negative number", "page-threads = -1" + kSite,
       "plxserver.conf:1: \"page-threads\" cannot be \"-1\". Write a whole number from 1 to 1024."},
      {"below the range", "page-threads = 0" + kSite,
       "plxserver.conf:1: \"page-threads\" is out of range: \"0\". Write a whole number from 1 to 1024."},
      {"above the range", "page-threads = 1025" + kSite,
       "plxserver.conf:1: \"page-threads\" is out of range: \"1025\". Write a whole number from 1 to 1024."},
      {"beyond 64 bits", "page-threads = 99999999999999999999" + kSite,
       "plxserver.conf:1: \"page-threads\" is out of range: \"99999999999999999999\". Write a whole number "
       "from 1 to "
       "1024."},
      {"beyond 64 bits by its unit", "header-bytes = 99999999999G" + kSite,
       "plxserver.conf:1: \"header-bytes\" is out of range: \"99999999999G\". Write a size in bytes, or with "
       "K, M or G "
       "behind it, from 1K to 1M."},
      {"a list for one value", "page-threads = [1, 2]" + kSite,
       "plxserver.conf:1: \"page-threads\" cannot be a list. Write a whole number from 1 to 1024."},
      {"no yes and no no", "trace = maybe" + kSite,
       "plxserver.conf:1: \"trace\" cannot be \"maybe\". Write true or false."},
      {"no port", "listen = \"127.0.0.1\"" + kSite,
       "plxserver.conf:1: \"127.0.0.1\" names no port from 0 to 65535. Write address and port: "
       "\"127.0.0.1:8080\"."},
      {"a port too high", "listen = \"127.0.0.1:65536\"" + kSite,
       "plxserver.conf:1: \"127.0.0.1:65536\" names no port from 0 to 65535. Write address and port: "
       "\"127.0.0.1:8080\"."},
      {"an address that is none", "listen = \"*:80\"" + kSite,
       "plxserver.conf:1: \"*:80\" names no address of this machine. Write \"127.0.0.1:80\" for this machine "
       "alone, "
       "\"0.0.0.0:80\" for all its addresses."},
      {"a proxy by name", "proxies = [\"proxy.example.org\"]" + kSite,
       "plxserver.conf:1: \"proxy.example.org\" is no IP address. Write each proxy's address, such as "
       "\"127.0.0.1\" or "
       "\"::1\"."},
      {"a header line that is none", "security-headers = [\"X Frame: DENY\"]" + kSite,
       "plxserver.conf:1: \"X Frame: DENY\" is no header line. Write \"Name: value\", such as "
       "\"X-Frame-Options: DENY\"."},
      {"a header without value", "security-headers = [\"X-Frame-Options:\"]" + kSite,
       "plxserver.conf:1: \"X-Frame-Options:\" is no header line. Write \"Name: value\", such as "
       "\"X-Frame-Options: "
       "DENY\"."},
      {"a region's header without colon",
       kSite + "[region.r]\nsite = \"demo\"\npath = \"/r/\"\nheaders = [\"X\"]",
       "plxserver.conf:8: \"X\" is no header line. Write \"Name: value\", such as \"X-Frame-Options: "
       "DENY\"."},
      {"a header that frames the message", "security-headers = [\"Content-Length: 3\"]" + kSite,
       "plxserver.conf:1: the header \"Content-Length\" is the server's own. Remove it."},
      {"no key at all", "something is wrong" + kSite,
       "plxserver.conf:1: \"something is wrong\" is neither a key with a value nor a section nor a comment. "
       "Write key = "
       "value."},
      {"a key without value", "trace =" + kSite,
       "plxserver.conf:1: a value is missing. Write key = value, an empty text as \"\"."},
      {"an empty text", "state = \"\"" + kSite,
       "plxserver.conf:1: \"state\" is empty. Write a text, or remove the key."},
      {"blanks without quotes", "state = my folder" + kSite,
       "plxserver.conf:1: something follows the end of the value or section. Put a text with blanks in "
       "double quotes "
       "and several values in brackets: [\"a\", \"b\"]."},
      {"a quote left open", "state = \"var" + kSite,
       "plxserver.conf:1: a quoted text does not end. Close it with \" on the same line."},
      {"an escape of some other language", "state = \"a\\tb\"" + kSite,
       "plxserver.conf:1: \"\\\" stands before neither a quote nor another \"\\\". Write \"\\\\\", or put "
       "the text in "
       "single quotes."},
      {"a list left open before a key", "proxies = [\n  \"127.0.0.1\",\ntrace = true" + kSite,
       "plxserver.conf:1: the list that begins here is broken in line 3. Separate its values by commas and "
       "end it with "
       "\"]\"."},
      {"a section that is none", kSite + "[demo]\nroot = \"x\"",
       "plxserver.conf:5: \"[demo]\" begins no section. Write [site.NAME] or [region.NAME] with a name of "
       "letters, "
       "digits, \"-\" and \"_\"."},
      {"a section of an unknown kind", kSite + "[host.demo]\nroot = \"x\"",
       "plxserver.conf:5: an unknown kind of section [host.demo]. There are [site.NAME] and [region.NAME]."},
      {"a section twice", kSite + "[site.demo]\nroot = \"sites/demo\"",
       "plxserver.conf:5: a second section [site.demo]. Join it with the one in line 2, or give it a name of "
       "its own."},
      {"a key twice", "trace = true\ntrace = false" + kSite,
       "plxserver.conf:2: a second \"trace\". Keep this one or that in line 1."},
      {"no site", "trace = true",
       "plxserver.conf: there is no site. Add a section [site.NAME] with hosts and root."},
      {"a site without root", "[site.demo]\nhosts = [\"localhost\"]",
       "plxserver.conf:1: the site \"demo\" has no root. Add root = \"FOLDER\" with the folder of its "
       "pages."},
      {"a site without hosts", "[site.demo]\nroot = \"sites/demo\"",
       "plxserver.conf:1: the site \"demo\" has no hosts. Add hosts = [\"localhost\"] with the names under "
       "which "
       "visitors come."},
      {"a host with port", "[site.demo]\nroot = \"sites/demo\"\nhosts = [\"localhost:80\"]",
       "plxserver.conf:3: \"localhost:80\" is no host name. Write it as visitors do, without scheme, port "
       "and path: "
       "\"www.example.org\"."},
      {"a host in two sites", kSite + "[site.b]\nroot=\"sites/other\"\nhosts=[\"b\", \"LOCALHOST\"]",
       "plxserver.conf:7: the host \"localhost\" belongs to the site \"demo\" already. Leave it to one of "
       "the two."},
      {"an ending without dot", kSite + "pages = [\"html\"]",
       "plxserver.conf:5: \"html\" is no ending of file names. Write it with its dot: \".html\"."},
      {"an index in a folder", kSite + "index = [\"a/index.html\"]",
       "plxserver.conf:5: \"a/index.html\" is no file name. Write a name without folders, such as "
       "\"index.html\"."},
      {"a download that is no folder", kSite + "downloads = [\"attachments\"]",
       "plxserver.conf:5: \"attachments\" is no path of a folder on the site. Write \"/attachments/\"."},
      {"a region of nowhere", kSite + "[region.mail]\nsite = \"demmo\"\npath = \"/mail/\"",
       "plxserver.conf:6: there is no site \"demmo\". Did you mean \"demo\"?"},
      {"a region without site", kSite + "[region.mail]\npath = \"/mail/\"",
       "plxserver.conf:5: the region \"mail\" has no site. Add site = \"NAME\"."},
      {"a region without path", kSite + "[region.mail]\nsite = \"demo\"",
       "plxserver.conf:5: the region \"mail\" has no path. Add path = \"/folder/\"."},
      {"a region path without slashes", kSite + "[region.mail]\nsite = \"demo\"\npath = \"mail\"",
       "plxserver.conf:7: \"mail\" is no path of a folder on the site. Write \"/mail/\"."},
      {"a region path upwards", kSite + "[region.mail]\nsite = \"demo\"\npath = \"/../mail/\"",
       "plxserver.conf:7: \"/../mail/\" is no path of a folder on the site. Write a path such as "
       "\"/mail/\"."},
      {"two regions at one path",
       kSite + "[region.a]\nsite=\"demo\"\npath=\"/m/\"\n[region.b]\nsite=\"demo\"\npath=\"/m/\"",
       "plxserver.conf:10: a second region of the site with the path \"/m/\". Give each region a path of its "
       "own; the "
       "first is in line 5."},
      {"main somewhere else", kSite + "[region.main]\nsite = \"demo\"\npath = \"/mail/\"",
       "plxserver.conf:7: the region \"main\" is the whole site. Write path = \"/\", or give the region "
       "another name."},
      {"line ends of another system",
       "trace = maybe\r\n\r\n[site.demo]\r\nhosts = [\"h\"]\r\nroot = \"sites/demo\"\r\n",
       "plxserver.conf:1: \"trace\" cannot be \"maybe\". Write true or false."},
      {"a control character shown harmlessly", "trace = \"a\x1B[2Jb\"" + kSite,
       "plxserver.conf:1: a text holds a control character. Remove it; between words a blank will do."},
      {"a zero byte", std::string("trace = true\n\0\n", 15) + kSite,
       "plxserver.conf:2: a zero byte: this is no text file. Name the configuration file, or save it as "
       "plain text."},
  };
  for (Row const& row : rows) {
    SCOPED_TRACE(row.why);
    Load(row.text);
    EXPECT_THAT(problems, ElementsAre(row.message));
  }
}

TEST_F(PLXConfigurationFile, CollectsAllProblemsInOneGo) {
  Load(
      "trace = 7\nlisten = x\nsurprise\n[site.demo]\nroot = \"nowhere\"\nhosts = [\"a b\"]\nindx = [\"a\"]\n"
      "proxies = [\n\"::1\" \"::2\"\n]\n[region.x]\nsite = \"none\"\npath = \"/x\"\n");
  std::vector<std::string> places;
  for (std::string const& problem : problems) places.push_back(problem.substr(0, problem.find(": ")));
  EXPECT_THAT(places,
              testing::UnorderedElementsAre("plxserver.conf:1", "plxserver.conf:2", "plxserver.conf:3",
                                            "plxserver.conf:5", "plxserver.conf:6", "plxserver.conf:7",
                                            "plxserver.conf:8", "plxserver.conf:12", "plxserver.conf:13"));
}

TEST_F(PLXConfigurationFile, NamesFilesAndFoldersThatCannotBeUsed) {
  folder.Write("file", "");
  Load(
      "modules = [\"module.so\", \"gone.so\"]\nstate = \"file\"\n[site.a]\nhosts=[\"a\"]\nroot=\"file\"\n"
      "[site.b]\nhosts=[\"b\"]\nroot=\"gone\"\n");
  ASSERT_EQ(problems.size(), 4u);
  EXPECT_THAT(problems[0], testing::AllOf(HasSubstr(":1: there is no module file"), HasSubstr("gone.so\"")));
  EXPECT_THAT(problems[1],
              HasSubstr(":5: the root \"" + (folder / "file").string() + "\" cannot be used: it is no"));
  EXPECT_THAT(problems[2],
              HasSubstr(":8: the root \"" + (folder / "gone").string() + "\" cannot be used: No such"));
  EXPECT_THAT(problems[3], HasSubstr(":2: the state \"" + (folder / "file").string() + "\" is no folder"));

  LoadFile(folder / "missing.conf");
  EXPECT_THAT(problems,
              ElementsAre("missing.conf: the file cannot be read: No such file or directory. Name an "
                          "existing configuration file that this user may read."));
  LoadFile(folder.Path());
  EXPECT_THAT(problems, ElementsAre(HasSubstr("the file cannot be read: Is a directory.")));
  LoadFile(folder.Write("huge.conf", std::string(2u << 20, '#')));
  EXPECT_THAT(problems, ElementsAre(HasSubstr("the file cannot be read: File too large.")));
}

TEST_F(PLXConfigurationFile, KeepsTheServersOwnFilesOutOfEverySite) {
  std::filesystem::create_directory_symlink(folder / "sites/demo", folder / "link");
  for (std::string const state : {"sites/demo", "sites/demo/var", "link/var", "sites/other/../demo/x/y"}) {
    SCOPED_TRACE(state);
    Load("state = \"" + state + "\"" + kSite);
    EXPECT_THAT(problems, ElementsAre(HasSubstr("lies in the root of the site \"demo\"")));
  }
  Load("state = \"sites/demo-var\"" + kSite);
  EXPECT_THAT(problems, IsEmpty()) << "a name that only begins alike";
}

TEST_F(PLXConfigurationFile, LetsTheCommandLineWin) {
  PLXConfiguration const read =
      Load("page-threads = none\nlisten = \"127.0.0.1:1\"" + kSite,
           {"page-threads=8", "listen=127.0.0.1:2", "site.demo.hosts=a, b", "site.demo.index=[\"x,y\"]",
            "site.new.root=" + (folder / "sites/other").string(), "site.new.hosts=c", "region.r.site=demo",
            "region.r.path=/r/"});
  EXPECT_THAT(problems, IsEmpty());
  EXPECT_EQ(read.limits.pageThreads, 8u);
  EXPECT_EQ(read.listenPort, 2);
  ASSERT_EQ(read.sites.size(), 2u);
  EXPECT_THAT(read.sites[0].hosts, ElementsAre("a", "b"));
  EXPECT_THAT(read.sites[0].indexes, ElementsAre("x,y"));
  EXPECT_EQ(read.sites[0].regions[0].path, "/r/");
  EXPECT_EQ(read.sites[1].root, folder / "sites/other");

  Load(kSite, {"state=relative"});
  EXPECT_EQ(Load(kSite, {"state=relative"}).state, std::filesystem::current_path() / "relative");
  Load(kSite, {"trace", "trace=maybe", "trase=true", "demo.root=x", "proxies=[\"::1\"", "site.a/b.root=x"});
  EXPECT_THAT(problems, testing::UnorderedElementsAre(
                            HasSubstr("command line: \"trace\" sets no key. "),
                            HasSubstr("command line: \"trace\" cannot be"),
                            HasSubstr("command line: unknown key \"trase\". Did you mean \"trace\"?"),
                            HasSubstr("command line: \"demo.root=x\" sets no key."),
                            HasSubstr("command line: \"proxies=[\"::1\"\": the list"),
                            HasSubstr("command line: \"a/b\" is no name")));
}

TEST_F(PLXConfigurationFile, NeedsNoFile) {
  PLXConfiguration const read =
      LoadFile({}, {"site.demo.hosts=localhost", "site.demo.root=" + (folder / "sites/demo").string()});
  EXPECT_THAT(problems, IsEmpty());
  EXPECT_EQ(read.state, std::filesystem::current_path() / "var");
  EXPECT_EQ(read.sites.at(0).line, 0);
  LoadFile({});
  EXPECT_THAT(problems,
              ElementsAre("command line: there is no site. Add a section [site.NAME] with hosts and root."));
}

TEST_F(PLXConfigurationFile, LetsEverySitesMainRegionNeedALogin) {
  PLXConfiguration const read = Load(
      kSite +
      "[site.b]\nhosts=[\"b\"]\nroot=\"sites/other\"\n[region.main]\nsite=\"demo\"\npath=\"/\"\nlogin=on\n"
      "[region.lobby]\nsite=\"b\"\npath=\"/\"\nlogin=on\n");
  ASSERT_THAT(problems, IsEmpty());
  for (PLXSiteConfiguration const& site : read.sites) {
    ASSERT_EQ(site.regions.size(), 1u);
    EXPECT_EQ(site.regions[0].name, "main");
    EXPECT_TRUE(site.regions[0].requiresLogin);
  }
}

TEST_F(PLXConfigurationFile, TakesEveryByteAndEveryCutOfAGoodFile) {
  std::string const good =
      "\xEF\xBB\xBFlisten = \"127.0.0.1:8080\"\nproxies = [\"::1\", '::2' # one\n]" + kSite;
  Load(good);
  ASSERT_THAT(problems, IsEmpty());
  for (std::size_t length = 0; length < good.size(); ++length) Load(good.substr(0, length));
  for (int byte = 0; byte < 256; ++byte) {
    for (std::size_t const at : {3u, 12u, 13u, 39u, 40u, 70u}) {
      std::string damaged = good;
      damaged[at] = static_cast<char>(byte);
      Load(damaged);
    }
  }
}
