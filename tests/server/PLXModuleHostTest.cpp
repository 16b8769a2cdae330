#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <thread>

#include "PLXLog.h"
#include "PLXModuleHost.h"
#include "PLXPage.h"
#include "PageFixture.h"
#include "TextRows.h"

using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

namespace {

// What the probe announces is told by a variable of the environment.
class ProbeAnnounces {
 public:
  explicit ProbeAnnounces(char const* how_i) { setenv("PLX_PROBE", how_i, 1); }
  ~ProbeAnnounces() { unsetenv("PLX_PROBE"); }
};

// A server without modules and without the network.
class PLXModuleHostLoading : public testing::Test {
 protected:
  PageFixture fixture;
  TemporaryFolder const& folder = fixture.folder;
  PLXPreferenceStore preferences{folder / "preferences.sqlite"};
  PLXLoginStore logins{folder / "logins"};
  PLXRecordEngine records{{folder.Path(), {}, {}, {}}};
  PLXModuleHost host{preferences, logins, records, false};
  std::string problem;
};

// With the probe module loaded.
class PLXModuleHostCalls : public PLXModuleHostLoading {
 protected:
  PLXModuleHostCalls() { EXPECT_TRUE(host.Load(PLX_PROBE_MODULE_FILE, problem)) << problem; }

  std::string Rendered(std::string const& page_i) {
    PLXPageContext context = fixture.Context();
    context.trace = isTraced;
    return RenderPage(*PLXPage::Parse(page_i, host), host, context);
  }
  // "call='MTag' out=32" to what the probe shows of it.
  std::string Called(std::string const& call_i) { return Rendered("<plxProbe " + call_i + ">"); }
  void ExpectCalls(std::span<TextRow const> rows_i) {
    ExpectTexts(rows_i, [&](std::string const& call_i) { return Called(call_i); });
  }

  bool isTraced = false;
};

TEST_F(PLXModuleHostCalls, HandTextsOverByTheConventions) {
  fixture.request.postArguments = {{"name", "12345"}, {"empty", ""}};
  TextRow const rows[] = {
      {"room to spare", "call=MFAr in=name out=32 x=0", "0[12345](5)"},
      {"an exact fit has no zero", "call=MFAr in=name out=5 x=0", "0[12345](5)"},
      {"one byte short", "call=MFAr in=name out=4 x=0", "MBtS[](6)"},
      {"no room at all", "call=MFAr in=name out=0 null x=0", "MBtS[](6)"},
      {"an empty text fits anywhere", "call=MFAr in=empty out=0 null x=0", "0[](0)"},
      {"of two texts the first is short", "call=MFAI out=2 out=9 x=0", "MBtS[](5)[](9)"},
      {"of two texts the second is short", "call=MFAI out=9 out=2 x=0", "MBtS[](9)[](6)"},
      {"both are short", "call=MFAI out=1 out=1 x=0", "MBtS[](5)[](6)"},
      {"rewritten in place", "call=MNmS inout='/a/./b//../c/'", "0[/a/c/](5)"},
  };
  ExpectCalls(rows);
}

TEST_F(PLXModuleHostCalls, RefuseWordsThatBreakTheConventions) {
  fixture.request.postArguments = {{"name", "12345"}};
  TextRow const rows[] = {
      {"a size without the terminator", "call=MFAr in=name size=4 out=32 x=0", "MICl[](32)"},
      {"a size of the plain length, no zero within", "call=MFAr in=name bare out=32 x=0", "MICl[](32)"},
      {"a zero inside the text", "call=MFAr in=name zeroinside out=32 x=0", "MICl[](32)"},
      {"no text", "call=MFAr in=name null out=32 x=0", "MICl[](32)"},
      {"no size", "call=MFAr in=name nullsize out=32 x=0", "MICl[](32)"},
      {"no index", "call=MFAr in=name out=32", "MICl[](32)"},
      {"no buffer", "call=MFAr in=name out=32 null x=0", "MICl[](32)"},
      {"no capacity", "call=MFAr in=name out=32 nullsize x=0", "MICl[](32)"},
      {"no word for the number", "call=MFAC", "MICl"},
      {"nothing to write", "call=MWtS raw=x null", "MICl"},
      {"nothing at all", "call=MTag", "MICl"},
      {"an in/out text that fills its buffer", "call=MNmS inout=abc size=3", "MICl[abc](3)"},
      {"an unknown request", "call=XXXX in=name", "MUnR"},
      {"another event's request", "call=MAct out=32", "MWEv[](32)"},
      {"a registration too late", "call=MRfT in=plxLate x=32", "MWEv"},
      {"an unknown log level", "call=MWtL in=text x=1", "MICl"},
      {"a database request without its words", "database=MDOp in=name", "MICl"},
      {"an unknown database request", "database=XXXX in=name", "MUnR"},
  };
  ExpectCalls(rows);
}

TEST_F(PLXModuleHostCalls, AnswerOnTheTagAndTheRequest) {
  fixture.request.pathArguments = {{"a", "1"}, {"a", "2"}, {"A", "3"}};
  fixture.request.cookies = {{"c", "crumb"}};
  fixture.request.headers = {{"Accept", "text/html"}, {"accept", "*/*"}};
  TextRow const rows[] = {
      {"the registered name", "call=MTag out=32", "0[plxProbe](8)"},
      {"a parameter in any letter case, by occurrence", "call=MTPm in=IN out=9 x=0", "0[IN](2)"},
      {"an occurrence too many", "call=MTPm in=call out=9 x=1", "MNFd[](9)"},
      {"a parameter by its place", "call=MTPI out=9 out=9 x=0", "0[call](4)[MTPI](4)"},
      {"parameters counted", "call=MTPC n", "0#2"},
      {"arguments by their exact names", "call=MPAr in=a out=9 x=1", "0[2](1)"},
      {"another letter case is another argument", "call=MPAr in=A out=9 x=1", "MNFd[](9)"},
      {"an argument by its place", "call=MPAI out=9 out=9 x=2", "0[A](1)[3](1)"},
      {"a cookie", "call=MGCk in=c out=9", "0[crumb](5)"},
      {"a cookie in another letter case", "call=MGCk in=C out=9", "MNFd[](9)"},
      {"a header that came twice", "call=MCGI in=HTTP_ACCEPT out=32", "0[text/html, */*](14)"},
      {"a variable that is empty", "call=MCGI in=PATH_INFO out=9", "0[](0)"},
      {"a variable that is not", "call=MCGI in=CONTENT_TYPE out=9", "MNFd[](9)"},
      {"no credentials", "call=MCGI in=AUTH_TYPE out=9", "MNFd[](9)"},
      {"the language", "call=MGDL n=7", "0#0"},
  };
  ExpectCalls(rows);
  EXPECT_EQ(
      Rendered(
          "<plxProbe call=MSPV in=V in=one><plxProbe call=MSPV in=v in=two><plxProbe call=MGPV in=V out=9>"
          "<plxProbe call=MGPI out=9 out=9 x=0><plxProbe call=MGPC n>&plxVariable.v;"),
      "000[two](3)0[V](1)[two](3)0#1two");
  EXPECT_EQ(Rendered("<plxProbeBody>a<plxProbeBody>&plxPath.a;</plxProbeBody></plxProbeBody>"), "{a{1}}");
}

TEST_F(PLXModuleHostCalls, GiveThePasswordToModulesAlone) {
  fixture.request.hasCredentials = true;
  fixture.request.user = "ada";
  fixture.request.password = "engine";
  fixture.request.headers = {{"Authorization", "Basic YWRhOmVuZ2luZQ=="}};
  EXPECT_EQ(Called("call=MCGI in=Auth_Type out=32"), "0[engine](6)");
  EXPECT_EQ(Called("call=MCGI in=REMOTE_USER out=32"), "0[ada](3)");
  EXPECT_EQ(Called("call=MCGI in=HTTP_AUTHORIZATION out=32"), "MNFd[](32)");
  EXPECT_EQ(Called("call=MCGI in='&plxCGI.AUTH_TYPE;' out=32"), "MNFd[](32)");
}

TEST_F(PLXModuleHostCalls, SetTheResponse) {
  EXPECT_EQ(Called("call=MHRS in=404 size=4 in='Gone fishing'"), "0");
  EXPECT_EQ(fixture.response.status, 404);
  EXPECT_EQ(fixture.response.reason, "Gone fishing");
  EXPECT_EQ(Called("call=MSRH in=X-One in=1"), "0");
  EXPECT_EQ(Called("call=MHRU in='/next?a=1'"), "0");
  EXPECT_EQ(fixture.response.status, 404) << "a status that was set stays";
  fixture.response.status = 200;
  EXPECT_EQ(Called("call=MHRU in='/other'"), "0");
  EXPECT_EQ(fixture.response.status, 302);
  EXPECT_EQ(FindNameValue(fixture.response.headers, "Location")->value, "/other");

  PLXResponse const before = fixture.response;
  TextRow const rows[] = {
      {"no number", "call=MHRS in=abc in=text", "MICl"},
      {"four digits", "call=MHRS in=2000 in=text", "MICl"},
      {"a reason with a line break", "call=MHRS in=200 in='a&#13;&#10;X: 1'", "MICl"},
      {"a header with a line break", "call=MSRH in=X in='a&#10;Set-Cookie: b'", "MNAl"},
      {"the length of the answer", "call=MSRH in=content-LENGTH in=5", "MNAl"},
      {"a redirect with a line break", "call=MHRU in='/a&#10;X: 1'", "MNAl"},
      {"a redirect to nowhere", "call=MHRU in=''", "MNAl"},
  };
  ExpectCalls(rows);
  EXPECT_EQ(fixture.response.status, before.status);
  EXPECT_EQ(fixture.response.headers.size(), before.headers.size());
}

TEST_F(PLXModuleHostCalls, AnswerWithPaths) {
  std::string const root = fixture.folder.Path().native() + "/root/";
  auto const shows = [](std::string const& text) {
    return "0[" + text + "](" + std::to_string(text.size()) + ")";
  };
  std::string const module = std::filesystem::absolute(PLX_PROBE_MODULE_FILE).native();
  fixture.folder.Write("root/folder/a b.txt", "");
  std::filesystem::create_directory_symlink("/", root + "folder/way-out");
  TextRow const rows[] = {
      {"the module", "call=MMdP out=400", shows(module)},
      {"the page", "call=MUPa out=400", shows(root + "folder/page.html")},
      {"its folder", "call=MUPF out=400", shows(root + "folder/")},
      {"the site", "call=MVrP out=400", shows(root)},
      {"the host", "call=MVrH out=400", shows("demo.test:8080")},
      {"the domain", "call=MADN out=400", shows("demo")},
      {"the region", "call=MARP out=400", shows("/")},
      {"a URL beside the page", "call=MUPh inout='../mail/inbox.html'", shows(root + "mail/inbox.html")},
      {"a URL of a folder", "call=MUPh inout='/mail'", shows(root + "mail/")},
      {"a URL above the root stays below it", "call=MUPh inout='/%2e%2e/../etc/passwd'",
       shows(root + "etc/passwd")},
      {"a URL through a link that leads out", "call=MUPh inout='/folder/way-out/etc/passwd'",
       "MNFd[/folder/way-out/etc/passwd](300)"},
      {"a URL with a zero byte", "call=MUPh inout='/a%00b'", "MNFd[/a%00b](300)"},
      {"a file of the region", "call=MRCP inout='folder/new.txt'", shows(root + "folder/new.txt")},
      {"a file above it", "call=MRCP inout='../x'", "MNFd[../x](300)"},
      {"a file through a link", "call=MRCP inout='folder/way-out/x'", "MNFd[folder/way-out/x](300)"},
      {"a data folder with a way out", "call=MRDF inout='../x'", "MNFd[../x](300)"},
      {"steps up from nothing stay", "call=MNmS inout='../a/../../b/.'", "0[../../b/](8)"},
      {"steps up from the root do not", "call=MNmS inout='/../a'", "0[/a](2)"},
      {"a path to where it is", "call=MNmS inout='a/..'", "0[.](1)"},
      {"an empty path", "call=MNmS inout=''", "0[](0)"},
  };
  ExpectCalls(rows);
  EXPECT_THAT(Called("call=MRDF inout=FM"), MatchesRegex("0\\[.*/state/.*FM/\\].*"));
  EXPECT_EQ(Called("call=PLXD n"), Called("call=PLXD n"));
  EXPECT_THAT(Called("call=PLXD n"), Not("0#0"));
}

TEST_F(PLXModuleHostCalls, CheckLoginsAndKeepPreferences) {
  ASSERT_TRUE(logins.SetPassword("root", "toor", problem)) << problem;
  PLXLoginStore domain(fixture.site.RegionOf("/").LoginsFile());
  std::filesystem::create_directories(fixture.site.RegionOf("/").LoginsFile().parent_path());
  ASSERT_TRUE(domain.SetPassword("ada", "engine", problem)) << problem;
  TextRow const rows[] = {
      {"the server's login", "call=MVSL in=root in=toor", "0"},
      {"a wrong password", "call=MVSL in=root in=tor", "MNAu"},
      {"no password", "call=MVSL in=root in=''", "MNAu"},
      {"no user", "call=MVDL in='' in=engine", "MNAu"},
      {"the region's login", "call=MVDL in=ada in=engine", "0"},
      {"the server's login is none of the region's", "call=MVDL in=root in=toor", "MNAu"},
      {"a preference set", "call=MSPr in=colour in=red", "0"},
      {"a preference found", "call=MGPr in=colour out=32", "0[red](3)"},
      {"names are exact", "call=MGPr in=Colour out=32", "MNFd[](32)"},
      {"a preference removed", "call=MRPr in=colour", "0"},
      {"and gone", "call=MGPr in=colour out=32", "MNFd[](32)"},
  };
  ExpectCalls(rows);
  Called("call=MSPr in=colour in=red");
  EXPECT_EQ(preferences.Get("demo/main", "Probe", "colour"), "red");
  EXPECT_EQ(preferences.Get("demo/mail", "Probe", "colour"), std::nullopt);

  PLXPageContext context = fixture.Context();
  EXPECT_EQ(host.SetPreferences(0, context).html, "0");
  EXPECT_EQ(host.GetPreferencesPage(0, context).html, "0[blue](4)");
}

TEST_F(PLXModuleHostCalls, EndWithTheEvent) {
  EXPECT_EQ(Rendered("<plxProbe do=keep><plxProbe do=late>"), "MNCn[](32)");
  EXPECT_EQ(Rendered("<plxProbe do=thread>"), "MNCn[](32)") << "another thread has no part in the event";
  std::string elsewhere;
  std::thread([&] { elsewhere = Rendered("<plxProbe do=late>"); }).join();
  EXPECT_EQ(elsewhere, "MNCn[](32)");
}

TEST_F(PLXModuleHostCalls, LastForTheServiceOnEveryThread) {
  PLXLog::Open({folder / "log", false, 1u << 20, 1});
  TextRow const rows[] = {
      {"a line of the log", "service=MWtL in='mail sent' x=MLgN", "0"},
      {"a level that is none", "service=MWtL in=text x=1", "MICl"},
      {"a text without its zero", "service=MWtL in=text size=4 x=MLgN", "MICl"},
      {"no level", "service=MWtL in=text", "MICl"},
      {"a counter", "service=MFig in='plx_probe_total{a=\"b\"}' double=2.5 x=FAdd", "0"},
      {"a gauge", "service=MFig in=plx_probe double=-4 x=FSet", "0"},
      {"its meaning", "service=MFig in='plx_probe what it is' x=FDsc", "0"},
      {"no number", "service=MFig in=plx_probe x=FSet", "MICl"},
      {"no such change", "service=MFig in=plx_probe double=1 x=FXxx", "MICl"},
      {"the server's own figure", "service=MFig in=plxserver_threads double=1 x=FSet", "MICl"},
      {"anything else is a used-up handle", "service=MTPC n", "MNCn#0"},
      {"of the announcement, too", "service=MRMN in=name", "MNCn"},
      {"unknown ones as well", "service=XXXX in=name", "MNCn"},
      {"an event's handle knows no figures", "call=MFig in=plx_probe double=1 x=FSet", "MUnR"},
  };
  ExpectCalls(rows);
  PLXFigureText text;
  host.Figures().AppendTo(text);
  EXPECT_EQ(text.Text(),
            "# HELP plx_probe what it is\n# TYPE plx_probe gauge\nplx_probe -4\n"
            "# TYPE plx_probe_total counter\nplx_probe_total{a=\"b\"} 2.5\n");

  host.Terminate();
  EXPECT_EQ(host.Figures().Sum("plx_probe_ends_total"), 1) << "it is good until the end has been answered";
  EXPECT_EQ(Called("service=MWtL in='too late' x=MLgN"), "MNCn");
  PLXLog::Close();
  EXPECT_THAT(folder.Read("log/server.log"), HasSubstr(" note Probe: mail sent\n"));
  EXPECT_THAT(folder.Read("log/server.log"), Not(HasSubstr("too late")));
}

TEST_F(PLXModuleHostLoading, GiveNoServiceToWhoWantsNone) {
  setenv("PLX_PROBE_ALONE", "1", 1);
  EXPECT_TRUE(host.Load(PLX_PROBE_MODULE_FILE, problem)) << problem;
  unsetenv("PLX_PROBE_ALONE");
  PLXPageContext context = fixture.Context();
  EXPECT_EQ(RenderPage(*PLXPage::Parse("<plxProbe service=MWtL in=text x=MLgN>", host), host, context),
            "MNCn");
}

TEST_F(PLXModuleHostCalls, RunActions) {
  EXPECT_TRUE(host.HasAction("probeACTION"));
  EXPECT_FALSE(host.HasAction("probe"));
  PLXPageContext context = fixture.Context();
  PLXTagOutcome const outcome = host.RunAction("probeaction", context);
  EXPECT_EQ(outcome.html, "action ProbeAction tag MWEv[](32)");
  EXPECT_EQ(outcome.result, 0u);
}

TEST_F(PLXModuleHostCalls, TurnProblemsAndExceptionsIntoBoxes) {
  EXPECT_THAT(Rendered("a<plxProbe call=MSEI in='&lt;b&gt;no' in=mend>b"),
              testing::StartsWith("a" + ProblemBox("<b>no", "mend", PLXProblemBoxPlace::kAbove)));
  EXPECT_EQ(Rendered("a<plxProbe do=return code=MGen>b"), "ab");
  EXPECT_THAT(Rendered("a<plxProbe do=throw>b"), HasSubstr("The module ended with an error of its own."));
  EXPECT_EQ(Called("call=MTPC n"), "0#2") << "the next event is not touched by it";
}

TEST_F(PLXModuleHostCalls, AreTracedWithoutPasswords) {
  PLXLogOptions options;
  options.folder = fixture.folder.Path() / "log";
  options.toStandardError = false;
  PLXLog::Open(options);
  fixture.request.hasCredentials = true;
  fixture.request.password = "sesame-1";
  Called("call=MTPC n");
  isTraced = true;
  Called("call=MCGI in=AUTH_TYPE out=32 quiet");
  Called("call=MVSL in=root password=sesame-2");
  Called("call=MSPr in=mailPassword password=sesame-3");
  Called("call=MGPr in=mailPassword out=32 quiet");
  Called("call=MNmS inout='/a/../" + std::string(250, 'b') + "'");
  Called("database=MDCt");
  Called("do=return code=MIPV");
  PLXLog::Close();
  std::string const trace = fixture.folder.Read("log/trace.log");
  EXPECT_THAT(trace, Not(HasSubstr("sesame")));
  char const* const lines[] = {"Probe 'MTag' <plxProbe> ",
                               "page.html:1 begins",
                               "ends -> 0, ",
                               "'MCGI' \"AUTH_TYPE\" -> 0 \"(blanked)\"",
                               "'MVSL' \"root\" \"(blanked)\" -> 'MNAu'",
                               "'MSPr' \"mailPassword\" \"(blanked)\" -> 0",
                               "'MTPI' 2 -> 0 \"password\" \"(blanked)\"",
                               "(256 bytes)",
                               "(251 bytes)",
                               "database 'MDCt' -> 'MICl'",
                               "ends -> 'MIPV', "};
  for (char const* const line : lines) EXPECT_THAT(trace, HasSubstr(line));
}

TEST_F(PLXModuleHostLoading, SaysWhatIsWrongAndLeavesNothingBehind) {
  EXPECT_FALSE(host.Load(folder.Path() / "none.so", problem));
  EXPECT_THAT(problem, HasSubstr("none.so cannot be loaded"));
  EXPECT_FALSE(host.Load(folder.Write("text.so", "no library"), problem));
  EXPECT_THAT(problem, HasSubstr("text.so cannot be loaded"));
  EXPECT_FALSE(host.Load("/lib/x86_64-linux-gnu/libm.so.6", problem));
  EXPECT_THAT(problem, HasSubstr("has no entry \"ProcessPLXRequest\""));
  {
    ProbeAnnounces const how("refuse");
    EXPECT_FALSE(host.Load(PLX_PROBE_MODULE_FILE, problem));
    EXPECT_THAT(problem, HasSubstr("answered its announcement with 'MUnk'"));
  }
  {
    ProbeAnnounces const how("unnamed");
    EXPECT_FALSE(host.Load(PLX_PROBE_MODULE_FILE, problem));
    EXPECT_THAT(problem, HasSubstr("has not told its name"));
  }
  EXPECT_TRUE(host.Describe().empty());
  EXPECT_EQ(host.FindTag("plxProbe"), nullptr);
  EXPECT_FALSE(host.HasAction("ProbeAction"));
}

TEST_F(PLXModuleHostCalls, GoToTheFirstModuleThatAsksForATag) {
  EXPECT_FALSE(host.Load(PLX_PROBE_MODULE_FILE, problem));
  EXPECT_THAT(problem, HasSubstr("is loaded already"));

  std::filesystem::path const copy = folder.Path() / "second.so";
  std::filesystem::copy_file(PLX_PROBE_MODULE_FILE, copy);
  EXPECT_FALSE(host.Load(copy, problem));
  EXPECT_THAT(problem, HasSubstr("The tag <plxProbe> belongs to Probe already"));

  std::filesystem::path const other = folder.Path() / "third.so";
  std::filesystem::copy_file(PLX_PROBE_MODULE_FILE, other);
  ProbeAnnounces const how("second");
  ASSERT_TRUE(host.Load(other, problem)) << problem;
  std::vector<PLXModuleDescription> const modules = host.Describe();
  ASSERT_EQ(modules.size(), 2u);
  EXPECT_EQ(modules[0].name + ' ' + modules[0].version, "Probe 1.0");
  ASSERT_EQ(modules[0].tags.size(), 3u);
  EXPECT_EQ(modules[0].tags[1].name, "plxProbeBody");
  EXPECT_EQ(modules[0].tags[1].flags, 16u);
  EXPECT_EQ(modules[0].actions, std::vector<std::string>{"ProbeAction"});
  EXPECT_EQ(modules[1].tags.size(), 1u);
  EXPECT_EQ(host.FindTag("PLXSECOND")->name, "plxSecond");

  host.Unload();
  EXPECT_EQ(host.FindTag("plxSecond"), nullptr);
}

TEST_F(PLXModuleHostCalls, AnswerManyThreadsAtOnce) {
  auto const page = PLXPage::Parse(
      "<plxQuick p='&plxPath.n;'><plxProbe call=MSPV in=v in='&plxPath.n;'>"
      "&plxVariable.v;<plxProbe call=MGPr in=none out=9>"
      "<plxProbe service=MFig in=plx_probe_total double=1 x=FAdd quiet>",
      host);
  std::vector<std::thread> threads;
  for (int number = 0; number < 8; ++number) {
    threads.emplace_back([&, text = std::to_string(number)] {
      PLXRequest request = fixture.request;
      request.pathArguments = {{"n", text}};
      for (int round = 0; round < 200; ++round) {
        PLXResponse response;
        PLXPageContext context{fixture.site, fixture.site.RegionOf("/"), request, response, {}, {}, {},
                               false};
        EXPECT_EQ(RenderPage(*page, host, context), text + "0" + text + "MNFd[](9)");
      }
    });
  }
  while (host.Figures().Sum("plx_probe_total") < 800) std::this_thread::yield();
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(host.Figures().Sum("plx_probe_total"), 1600);
}

}  // namespace
