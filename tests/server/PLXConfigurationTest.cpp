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
  PLXConfiguration const read = Load(
      "\xEF\xBB\xBF"
      R"(# a comment
listen = "[::1]:0"   # another
state = 'var # not a comment'
shared = "both"
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
  EXPECT_EQ(read.SharedFolder(), folder / "both");
  EXPECT_THAT(read.modules, ElementsAre(folder / "module.so"));
  PLXLimits const& limits = read.limits;
  EXPECT_EQ(limits.waitingPages, 64u) << "four for each thread";
  EXPECT_EQ(std::tuple(limits.pageThreads, limits.administrationThreads, limits.connections,
                       limits.connectionsPerAddress, limits.formFields, limits.includeDepth),
            std::tuple(16u, 2u, 99u, 0u, 5u, 2u));
  EXPECT_EQ(std::tuple(limits.headerBytes, limits.bodyBytes, limits.bodyInMemoryBytes),
            std::tuple(8192u, std::size_t{2} << 30, 1u << 20));
  EXPECT_EQ(std::tuple(limits.headerTime.count(), limits.bodyTime.count(), limits.writeTime.count(),
                       limits.stopTime.count()),
            std::tuple(3, 4, 5, 0));
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
  auto const values = [](PLXConfiguration const& of_i) {
    PLXLimits const& limits = of_i.limits;
    PLXSiteConfiguration const& site = of_i.sites[0];
    return std::tuple(of_i.listenAddress, of_i.listenPort, of_i.state, of_i.securityHeaders, of_i.logBytes,
                      of_i.logFiles, limits.pageThreads, limits.waitingPages, limits.administrationThreads,
                      limits.connections, limits.connectionsPerAddress, limits.headerBytes, limits.bodyBytes,
                      limits.bodyInMemoryBytes, limits.formFields, limits.headerTime, limits.bodyTime,
                      limits.writeTime, limits.stopTime, limits.includeDepth, site.indexes, site.pages,
                      site.downloads);
  };
  EXPECT_TRUE(values(full) == values(bare)) << written;
}

TEST_F(PLXConfigurationFile, SaysWhatIsWrongWhereAndWhatToDo) {
  struct Row {
    std::string text;
    std::string message;  // the only one, behind the file's name
  };
  std::string const region = kSite + "[region.mail]\n";
  Row const rows[] = {
      {"\n\npage-thraeds = 3" + kSite, ":3: unknown key \"page-thraeds\". Did you mean \"page-threads\"?"},
      {"colour = red" + kSite,
       ":1: unknown key \"colour\". Remove it; \"plxserver serve --help\" lists the keys."},
      {kSite + "trace = true",
       ":5: unknown key \"trace\". It belongs to the whole server: write it before the first section."},
      {"root = \"sites/demo\"" + kSite, ":1: unknown key \"root\". It belongs in a section [site.NAME]."},
      {"stop-time = soon" + kSite,
       ":1: \"stop-time\" cannot be \"soon\". Write a whole number of seconds from 0 to 3600."},
      {"state = [\"a\", \"b\"]" + kSite, ":1: \"state\" cannot be a list. Write a text."},
      {"[site.demo]\nhosts = []\nroot = \"sites/demo\"",
       ":2: the site has no host name. Write at least one, such as \"localhost\"."},
      {std::string(79, 'x') + "\xC3\xA4y" + kSite,
       ":1: \"" + std::string(79, 'x') +
           "...\" is neither a key with a value nor a section nor a comment. Write key = value."},
      {"page-threads = 16x" + kSite,
       ":1: \"page-threads\" cannot be \"16x\". Write a whole number from 1 to 1024."},
      {"page-threads = 1025" + kSite,
       ":1: \"page-threads\" is out of range: \"1025\". Write a whole number from 1 to 1024."},
      {"header-bytes = 99999999999G" + kSite,
       ":1: \"header-bytes\" is out of range: \"99999999999G\". Write a size in bytes, or with K, M or G "
       "behind it, from 1K to 1M."},
      {"page-threads = 99999999999999999999" + kSite,
       ":1: \"page-threads\" is out of range: \"99999999999999999999\". Write a whole number from 1 to "
       "1024."},
      {"page-threads = [1, 2]" + kSite,
       ":1: \"page-threads\" cannot be a list. Write a whole number from 1 to 1024."},
      {"trace = maybe" + kSite, ":1: \"trace\" cannot be \"maybe\". Write true or false."},
      {"listen = \"127.0.0.1:65536\"" + kSite,
       ":1: \"127.0.0.1:65536\" names no port from 0 to 65535. Write address and port: \"127.0.0.1:8080\"."},
      {"listen = \"*:80\"" + kSite,
       ":1: \"*:80\" names no address of this machine. Write \"127.0.0.1:80\" for this machine alone, "
       "\"0.0.0.0:80\" for all its addresses."},
      {"proxies = [\"proxy.example.org\"]" + kSite,
       ":1: \"proxy.example.org\" is no IP address. Write each proxy's address, such as \"127.0.0.1\" or "
       "\"::1\"."},
      {"security-headers = [\"X Frame: DENY\"]" + kSite,
       ":1: \"X Frame: DENY\" is no header line. Write \"Name: value\", such as \"X-Frame-Options: DENY\"."},
      {"security-headers = [\"X-Frame-Options:\"]" + kSite,
       ":1: \"X-Frame-Options:\" is no header line. Write \"Name: value\", such as \"X-Frame-Options: "
       "DENY\"."},
      {region + "site = \"demo\"\npath = \"/r/\"\nheaders = [\"X\"]",
       ":8: \"X\" is no header line. Write \"Name: value\", such as \"X-Frame-Options: DENY\"."},
      {"security-headers = [\"Content-Length: 3\"]" + kSite,
       ":1: the header \"Content-Length\" is the server's own. Remove it."},
      {"something is wrong" + kSite,
       ":1: \"something is wrong\" is neither a key with a value nor a section nor a comment. Write key = "
       "value."},
      {"trace =" + kSite, ":1: a value is missing. Write key = value, an empty text as \"\"."},
      {"state = \"\"" + kSite, ":1: \"state\" is empty. Write a text, or remove the key."},
      {"state = my folder" + kSite,
       ":1: something follows the end of the value or section. Put a text with blanks in double quotes and "
       "several values in brackets: [\"a\", \"b\"]."},
      {"state = \"var" + kSite, ":1: a quoted text does not end. Close it with \" on the same line."},
      {"state = \"a\\tb\"" + kSite,
       ":1: \"\\\" stands before neither a quote nor another \"\\\". Write \"\\\\\", or put the text in "
       "single quotes."},
      {"proxies = [\n  \"127.0.0.1\",\ntrace = true" + kSite,
       ":1: the list that begins here is broken in line 3. Separate its values by commas and end it with "
       "\"]\"."},
      {kSite + "[demo]\nroot = \"x\"",
       ":5: \"[demo]\" begins no section. Write [site.NAME] or [region.NAME] with a name of letters, digits, "
       "\"-\" and \"_\"."},
      {kSite + "[host.demo]\nroot = \"x\"",
       ":5: an unknown kind of section [host.demo]. There are [site.NAME] and [region.NAME]."},
      {kSite + "[site.demo]\nroot = \"sites/demo\"",
       ":5: a second section [site.demo]. Join it with the one in line 2, or give it a name of its own."},
      {"trace = true\ntrace = false" + kSite, ":2: a second \"trace\". Keep this one or that in line 1."},
      {"trace = true", ": there is no site. Add a section [site.NAME] with hosts and root."},
      {"[site.demo]\nhosts = [\"localhost\"]",
       ":1: the site \"demo\" has no root. Add root = \"FOLDER\" with the folder of its pages."},
      {"[site.demo]\nroot = \"sites/demo\"",
       ":1: the site \"demo\" has no hosts. Add hosts = [\"localhost\"] with the names under which visitors "
       "come."},
      {"[site.demo]\nroot = \"sites/demo\"\nhosts = [\"localhost:80\"]",
       ":3: \"localhost:80\" is no host name. Write it as visitors do, without scheme, port and path: "
       "\"www.example.org\"."},
      {kSite + "[site.b]\nroot=\"sites/other\"\nhosts=[\"b\", \"LOCALHOST\"]",
       ":7: the host \"localhost\" belongs to the site \"demo\" already. Leave it to one of the two."},
      {kSite + "pages = [\"html\"]",
       ":5: \"html\" is no ending of file names. Write it with its dot: \".html\"."},
      {kSite + "index = [\"a/index.html\"]",
       ":5: \"a/index.html\" is no file name. Write a name without folders, such as \"index.html\"."},
      {kSite + "downloads = [\"attachments\"]",
       ":5: \"attachments\" is no path of a folder on the site. Write \"/attachments/\"."},
      {region + "site = \"demmo\"\npath = \"/mail/\"",
       ":6: there is no site \"demmo\". Did you mean \"demo\"?"},
      {region + "path = \"/mail/\"", ":5: the region \"mail\" has no site. Add site = \"NAME\"."},
      {region + "site = \"demo\"\npath = \"/r/\"\ncolour = red",
       ":8: unknown key \"colour\". Here one can write site, path, login, foreign-posts and headers."},
      {region + "site = \"demo\"", ":5: the region \"mail\" has no path. Add path = \"/folder/\"."},
      {region + "site = \"demo\"\npath = \"mail\"",
       ":7: \"mail\" is no path of a folder on the site. Write \"/mail/\"."},
      {region + "site = \"demo\"\npath = \"/../mail/\"",
       ":7: \"/../mail/\" is no path of a folder on the site. Write a path such as \"/mail/\"."},
      {kSite + "[region.a]\nsite=\"demo\"\npath=\"/m/\"\n[region.b]\nsite=\"demo\"\npath=\"/m/\"",
       ":10: a second region of the site with the path \"/m/\". Give each region a path of its own; the "
       "first is in line 5."},
      {kSite + "[region.main]\nsite = \"demo\"\npath = \"/mail/\"",
       ":7: the region \"main\" is the whole site. Write path = \"/\", or give the region another name."},
      {"trace = \"a\x1B[2Jb\"" + kSite,
       ":1: a text holds a control character. Remove it; between words a blank will do."},
      {std::string("trace = true\n\0\n", 15) + kSite,
       ":2: a zero byte: this is no text file. Name the configuration file, or save it as plain text."},
  };
  for (Row const& row : rows) {
    SCOPED_TRACE(row.message);
    Load(row.text);
    EXPECT_THAT(problems, ElementsAre("plxserver.conf" + row.message));
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
  for (std::string const kept : {"sites/demo", "sites/demo/var", "link/var", "sites/other/../demo/x/y"}) {
    for (std::string const key : {"state", "shared"}) {
      SCOPED_TRACE(key + " " + kept);
      Load(key + " = \"" + kept + "\"" + kSite);
      EXPECT_THAT(problems, ElementsAre(HasSubstr("lies in the root of the site \"demo\"")));
    }
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
