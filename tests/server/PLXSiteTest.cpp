#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "PLXSite.h"
#include "TemporaryFolder.h"
#include "TextRows.h"

namespace fs = std::filesystem;

namespace {

// A site with two regions, and links that stay inside and links that lead out.
class PLXSiteFolder : public testing::Test {
 protected:
  PLXSiteFolder() {
    temporary.Write("root/index.html", "");
    temporary.Write("root/sub/page.html", "");
    temporary.Write("root/mail/plxEmailClient Data/ada/Mailboxes/Inbox.mbx", "");
    temporary.Write("root/.secret", "");
    temporary.Write("root/.well-known/token", "");
    temporary.Write("outside/file", "");
    temporary.Write("root-twin/file", "");
    fs::create_symlink(temporary / "outside/file", root / "out-file");
    fs::create_directory_symlink("../outside", root / "out-folder");
    fs::create_symlink("../outside/not-made-yet", root / "out-dangling");
    fs::create_directory_symlink("../root-twin", root / "twin");
    fs::create_directory_symlink("sub", root / "in-relative");
    fs::create_directory_symlink(root / "sub", root / "in-absolute");
    fs::create_directory_symlink("../root/sub", root / "in-roundabout");
    fs::create_directory_symlink("mail/plxEmailClient Data", root / "in-data");
    fs::create_symlink("loop", root / "loop");
    fs::create_directory_symlink("../outside", root / "mail/leave");
    fs::create_directory_symlink("../sub", root / "mail/sideways");

    PLXConfiguration configuration;
    configuration.state = temporary / "state";
    PLXSiteConfiguration site;
    site.name = "demo";
    site.hosts = {"localhost", "WWW.Example.org", "[::1]"};
    site.root = root;
    site.downloads = {"/attachments/"};
    PLXRegionConfiguration mail, deep, out, main;
    mail.name = "mail", mail.path = "/mail/", mail.requiresLogin = true;
    deep.name = "deep", deep.path = "/mail/deep/";
    out.name = "out", out.path = "/out-folder/";
    main.name = "main";
    site.regions = {deep, mail, out, main};
    configuration.sites = {site};
    sites = std::make_unique<PLXSites>(configuration);
  }

  PLXSite const& Site() const { return sites->First(); }
  // What MapPath and Contain say, relative to the root; "-" for none.
  std::string Shown(std::optional<fs::path> const& path_i) const {
    if (!path_i) return "-";
    std::string const text = path_i->string();
    return text.starts_with(root.string() + "/") ? text.substr(root.string().size()) : "OUTSIDE " + text;
  }

  TemporaryFolder temporary;
  fs::path const root = temporary / "root";
  std::unique_ptr<PLXSites> sites;
};

}  // namespace

TEST_F(PLXSiteFolder, MapsURLPathsToItsOwnFilesOnly) {
  TextRow const rows[] = {
      {"the root", "/", "/"},
      {"a file", "/index.html", "/index.html"},
      {"a folder as asked for", "/sub/", "/sub/"},
      {"a folder without its slash", "/sub", "/sub"},
      {"a file that is to be a folder stays one", "/index.html/", "/index.html/"},
      {"a file that does not exist", "/new/file", "/new/file"},
      {"a step below a file", "/index.html/extra", "/index.html/extra"},
      {"eight-bit names", "/\xC3\xA4/\xFF", "/\xC3\xA4/\xFF"},
      {"a backslash is a letter", "/a\\..\\b", "/a\\..\\b"},
      {"three dots are hidden", "/...", "-"},
      {"nothing", "", "-"},
      {"upwards", "/../outside/file", "-"},
      {"the folder itself", "/./index.html", "-"},
      {"an empty step", "//index.html", "-"},
      {"a hidden file", "/.secret", "-"},
      {"below a hidden folder", "/.git/config", "-"},
      {"what certificates are proved by", "/.well-known/token", "/.well-known/token"},
      {"only that name", "/.well-known.old/token", "-"},
      {"a zero byte", std::string("/index.html\0.png", 16), "-"},
      {"a control character", "/a\x7F", "-"},
      {"a link to a file outside", "/out-file", "-"},
      {"a link to a folder outside", "/out-folder/file", "-"},
      {"a link to what does not exist outside", "/out-dangling", "-"},
      {"a link to a folder that begins alike", "/twin/file", "-"},
      {"a link inside", "/in-relative/page.html", "/sub/page.html"},
      {"a link inside by its full path", "/in-absolute/page.html", "/sub/page.html"},
      {"a link that leaves and comes back", "/in-roundabout/page.html", "/sub/page.html"},
      {"a link in a circle", "/loop", "-"},
      {"mail of the email client", "/mail/plxEmailClient Data/ada/Mailboxes/Inbox.mbx", "-"},
      {"the same in other letters", "/mail/PLXEMAILCLIENT data/ada", "-"},
      {"the same through a link", "/in-data/ada/Mailboxes/Inbox.mbx", "-"},
      {"a step too long for any disk", "/" + std::string(256, 'a'), "-"},
      {"the longest step", "/" + std::string(255, 'a'), "/" + std::string(255, 'a')},
  };
  ExpectTexts(rows, [&](std::string const& path_i) { return Shown(Site().MapPath(path_i)); });
  std::string path;
  while (path.size() < 100000) path += "/abcdefgh";
  EXPECT_EQ(Shown(Site().MapPath(path)), "-");
  EXPECT_NE(Shown(Site().MapPath(path.substr(0, 3600))), "-");
  for (std::size_t length = 4000; length < 4200; ++length) {
    auto const mapped = Site().MapPath(path.substr(0, length));
    EXPECT_TRUE(!mapped || mapped->native().size() <= 4096);
  }
}

TEST_F(PLXSiteFolder, ContainsWhatAModuleMayWriteAndNothingElse) {
  PLXRegion const& mail = *Site().FindRegion("mail");
  std::string const folder = mail.Folder().string();
  EXPECT_EQ(folder, (root / "mail/").string());
  TextRow const rows[] = {
      {"the folder itself", "", "/mail/"},
      {"a file that does not exist yet", "Attachments/a.txt", "/mail/Attachments/a.txt"},
      {"a module's own data", "plxEmailClient Data/ada/Mailboxes", "/mail/plxEmailClient Data/ada/Mailboxes"},
      {"a hidden name", ".state", "/mail/.state"},
      {"the full path it was given", folder + "Attachments/a.txt", "/mail/Attachments/a.txt"},
      {"the full path of the folder", folder, "/mail/"},
      {"a full path elsewhere", "/etc/passwd", "-"},
      {"a full path in the site but not the region", (root / "sub/page.html").string(), "-"},
      {"a full path that begins alike", folder.substr(0, folder.size() - 1) + "2/a", "-"},
      {"a full path with a step upwards", folder + "../sub/page.html", "-"},
      {"a full path with an empty step", folder + "/a", "-"},
      {"upwards later", "a/../../sub", "-"},
      {"upwards and down again", "../mail/a", "-"},
      {"a user named so", "plxEmailClient Data/../Mailboxes", "-"},
      {"the folder by its dot", ".", "-"},
      {"an empty step", "a//b", "-"},
      {"a zero byte", std::string("a\0b", 3), "-"},
      {"a link that leads out of the site", "leave/file", "-"},
      {"a link that leads out of the region", "sideways/page.html", "-"},
      {"a path too long",
       [] {
         std::string path;
         while (path.size() < 5000) path += "abc/";
         return path;
       }(),
       "-"},
  };
  ExpectTexts(rows, [&](std::string const& path_i) { return Shown(mail.Contain(path_i)); });
  PLXRegion const& out = *Site().FindRegion("out");
  EXPECT_EQ(Shown(out.Contain("file")), "-") << "the region itself is a link that leads out";
  EXPECT_EQ(out.Folder(), root / "out-folder/");
  EXPECT_EQ(Shown(out.Contain((root / "out-folder/file").string())), "-");
}

TEST_F(PLXSiteFolder, KeepsDataAndLoginsInTheStateFolder) {
  PLXRegion const& mail = *Site().FindRegion("mail");
  EXPECT_EQ(mail.Key(), "demo/mail");
  EXPECT_EQ(mail.DataFolder("FM"), temporary / "state/regions/demo/mail/FM/");
  EXPECT_EQ(mail.LoginsFile(), temporary / "state/logins/demo/mail");
  EXPECT_FALSE(fs::exists(temporary / "state"));
  for (std::string const name : {"", ".", "..", "a/b", "/", "../x", "a\nb", "a\x01"}) {
    EXPECT_EQ(mail.DataFolder(name), std::nullopt) << name;
  }
  EXPECT_EQ(mail.DataFolder(std::string("a\0b", 3)), std::nullopt);
  EXPECT_EQ(mail.DataFolder(std::string(256, 'a')), std::nullopt);
}

TEST_F(PLXSiteFolder, FindsTheRegionWithTheLongestPath) {
  struct Row {
    char const* path;
    char const* region;
    bool isDownload = false;
  };
  Row const rows[] = {{"/", "main"},
                      {"", "main"},
                      {"/mail/a", "mail"},
                      {"/mail", "mail"},
                      {"/mails", "main"},
                      {"/mail/deep/a", "deep"},
                      {"/mail/deeper", "mail"},
                      {"//mail/a", "mail"},
                      {"///mail//deep///a", "deep"},
                      {"/attachments/a.plx", "main", true},
                      {"//attachments//a.plx", "main", true},
                      {"/Attachments/a.plx", "main", true},
                      {"/mail//Attachments/a.plx", "mail", true},
                      {"/mail/x/Attachments/a.plx", "mail"}};
  for (Row const& row : rows) {
    SCOPED_TRACE(row.path);
    EXPECT_EQ(Site().RegionOf(row.path).Name(), row.region);
    EXPECT_EQ(Site().IsDownload(row.path), row.isDownload);
  }
  EXPECT_EQ(sites->FindRegion("demo/mail"), Site().FindRegion("mail"));
  for (char const* const key : {"demo/none", "none/mail", "demo", "", "/", "demo/mail/"}) {
    EXPECT_EQ(sites->FindRegion(key), nullptr) << key;
  }
}

TEST_F(PLXSiteFolder, KnowsItsHostsInAnySpelling) {
  for (char const* const host : {"localhost", "LOCALHOST", "localhost.", "www.example.org", "::1", "[::1]"}) {
    EXPECT_EQ(sites->FindHost(host), &Site()) << host;
  }
  for (char const* const host : {"", ".", "example.org", "localhost:80", "localhost..", "[localhost"}) {
    EXPECT_EQ(sites->FindHost(host), nullptr) << host;
  }
}

TEST_F(PLXSiteFolder, TellsPagesByTheirEnding) {
  for (char const* const name : {"a.html", "a.htm", "A.PLX", "x/y.Html"})
    EXPECT_TRUE(Site().IsPage(name)) << name;
  for (char const* const name : {"a.txt", "html", ".html.txt", "a.html~", ""})
    EXPECT_FALSE(Site().IsPage(name)) << name;
  for (char const* const name : {"a.html~", "A.PLX.BAK", "x.y/a.htm.orig", "a.html.~12~", "a.plx.old"})
    EXPECT_TRUE(Site().IsCopyOfPage(name)) << name;
  for (char const* const name : {"a.html", "a.txt.bak", "a~", "~", ".bak", "x.html.bak/y", ""})
    EXPECT_FALSE(Site().IsCopyOfPage(name)) << name;
}

TEST(PLXSite, ResolvesALinkedRootOnce) {
  TemporaryFolder const folder;
  folder.Write("real/index.html", "");
  fs::create_directory_symlink("real", folder / "link");
  PLXSiteConfiguration configuration;
  configuration.name = "demo";
  configuration.root = folder / "x/../link";
  PLXSite const site(configuration, folder / "state");
  EXPECT_EQ(site.Root(), folder / "real/");
  EXPECT_EQ(site.MapPath("/index.html"), folder / "real/index.html");
  EXPECT_EQ(site.RegionOf("/a").Key(), "demo/main") << "the whole site is a region without being told";
}
