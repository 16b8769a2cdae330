#include "PLXConfiguration.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <map>
#include <set>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include "PLXConfigurationKeys.h"
#include "PLXConfigurationText.h"
#include "PLXUninterrupted.h"

namespace {

constexpr std::size_t kLargestFile = 1u << 20;
constexpr std::size_t kLongestName = 64;

PLXHeaderLines StandardSecurityHeaders() {
  return {{"X-Content-Type-Options", "nosniff"},
          {"Referrer-Policy", "strict-origin-when-cross-origin"},
          {"X-Frame-Options", "SAMEORIGIN"}};
}

// The file's bytes; nothing, with errno telling why, when it cannot be read or is too large to be what it
// should.
bool ReadFile(std::filesystem::path const& file_i, std::string& text_o) {
  int const file = PLXUninterrupted([&] { return ::open(file_i.c_str(), O_RDONLY | O_CLOEXEC); });
  if (file < 0) return false;
  char part[16384];
  ssize_t count;
  while ((count = PLXUninterrupted([&] { return ::read(file, part, sizeof part); })) > 0 &&
         text_o.size() <= kLargestFile) {
    text_o.append(part, static_cast<std::size_t>(count));
  }
  int const error = count > 0 ? EFBIG : errno;
  ::close(file);
  errno = error;
  return count == 0;
}

// Builds one configuration from the sections of a file and of the command line, collecting every problem.
class Loader {
 public:
  Loader(std::filesystem::path const& file_i, std::vector<PLXConfigurationProblem>& problems_o)
      : myFile(file_i), myProblems(problems_o) {
    myResult.file = file_i;
    myResult.securityHeaders = StandardSecurityHeaders();
  }

  PLXConfiguration Load(std::vector<std::string> const& overrides_i) {
    std::error_code ignored;
    myCurrentFolder = std::filesystem::current_path(ignored);
    myFileFolder = std::filesystem::absolute(myFile, ignored).parent_path();
    if (myFile.empty()) myFileFolder = myCurrentFolder;
    mySections.emplace_back();
    if (!myFile.empty() && !ReadSections()) return std::move(myResult);
    for (std::string const& override : overrides_i) AddOverride(override);
    myResult.state = myFileFolder / myResult.state;
    ApplySections();
    Complete();
    Check();
    return std::move(myResult);
  }

 private:
  // Where a value was written: what later checks point at.
  struct Site {
    PLXSiteConfiguration configuration;
    std::map<std::string, int, std::less<>> lines;  // of its keys
  };
  struct Region {
    PLXRegionDraft draft;
    std::map<std::string, int, std::less<>> lines;
  };

  void Complain(int line_i, std::string problem_i, std::string remedy_i) {
    myProblems.push_back({line_i == kCommandLine ? std::filesystem::path() : myFile, std::max(line_i, 0),
                          std::move(problem_i), std::move(remedy_i)});
  }

  bool ReadSections() {
    std::string text;
    if (!ReadFile(myFile, text)) {
      Complain(0, "the file cannot be read: " + std::generic_category().message(errno),
               "Name an existing configuration file that this user may read.");
      return false;
    }
    std::vector<PLXTextProblem> problems;
    std::vector<PLXConfigurationSection> sections = ReadConfigurationText(text, problems);
    for (PLXTextProblem& problem : problems) {
      Complain(problem.line, std::move(problem.problem), std::move(problem.remedy));
    }
    if (sections.empty()) return false;
    mySections = std::move(sections);
    ReportDuplicates();
    return true;
  }

  void ReportDuplicates() {
    std::map<std::string, int> sectionLines;
    for (PLXConfigurationSection& section : mySections) {
      if (section.isUnusable) continue;
      auto const [seen, isNew] = sectionLines.try_emplace(section.kind + "." + section.name, section.line);
      if (!isNew) {
        Complain(section.line, "a second section [" + seen->first + "]",
                 "Join it with the one in line " + std::to_string(seen->second) +
                     ", or give it a name of its own.");
        section.isUnusable = true;
      }
      std::map<std::string_view, int> keyLines;
      for (PLXConfigurationEntry const& entry : section.entries) {
        auto const [first, isFirst] = keyLines.try_emplace(entry.key, entry.line);
        if (isFirst) continue;
        Complain(entry.line, "a second " + QuotedForPeople(entry.key),
                 "Keep this one or that in line " + std::to_string(first->second) + ".");
      }
    }
  }

  // "page-threads=16", "site.demo.root=sites/demo": takes the place of what the file says.
  void AddOverride(std::string const& override_i) {
    std::size_t const equals = override_i.find('=');
    std::string const name = override_i.substr(0, equals);
    std::size_t const dot = name.rfind('.');
    std::string const section = dot == std::string::npos ? "" : name.substr(0, dot);
    std::size_t const sectionDot = section.find('.');
    if (equals == std::string::npos || (dot != std::string::npos && sectionDot == std::string::npos)) {
      return Complain(kCommandLine, QuotedForPeople(override_i) + " sets no key",
                      "Write key=value or site.NAME.key=value.");
    }
    std::vector<PLXTextProblem> problems;
    PLXConfigurationEntry entry{dot == std::string::npos ? name : name.substr(dot + 1),
                                ReadConfigurationValue(override_i.substr(equals + 1), problems),
                                kCommandLine};
    for (PLXTextProblem const& problem : problems) {
      Complain(kCommandLine, QuotedForPeople(override_i) + ": " + problem.problem, problem.remedy);
    }
    if (!problems.empty()) return;
    std::string const kind = section.substr(0, sectionDot);
    PLXConfigurationSection& target =
        SectionFor(section.empty() ? "" : kind, section.empty() ? "" : section.substr(sectionDot + 1));
    std::erase_if(target.entries, [&entry](auto const& own) { return own.key == entry.key; });
    target.entries.push_back(std::move(entry));
  }

  PLXConfigurationSection& SectionFor(std::string const& kind_i, std::string const& name_i) {
    for (PLXConfigurationSection& section : mySections) {
      if (section.kind == kind_i && section.name == name_i && !section.isUnusable) return section;
    }
    mySections.push_back({kind_i, name_i, kCommandLine, false, {}});
    return mySections.back();
  }

  void ApplySections() {
    for (PLXConfigurationSection const& section : mySections) {
      if (section.isUnusable) {
        myHasSite |= section.kind == "site";
      } else if (section.kind.empty()) {
        Apply(section, {myResult, nullptr, nullptr, {}}, myLines);
      } else if (section.kind != "site" && section.kind != "region") {
        Complain(section.line, "an unknown kind of section [" + section.kind + "." + section.name + "]",
                 "There are [site.NAME] and [region.NAME].");
      } else if (section.name.size() > kLongestName ||
                 section.name.find_first_not_of(kNameCharacters) != std::string::npos) {
        Complain(section.line, QuotedForPeople(section.name) + " is no name for a " + section.kind,
                 "Use at most 64 letters, digits, \"-\" and \"_\".");
        myHasSite |= section.kind == "site";
      } else if (section.kind == "site") {
        myHasSite = true;
        Site& site = mySites.emplace_back();
        site.configuration.name = section.name;
        site.configuration.line = section.line;
        Apply(section, {myResult, &site.configuration, nullptr, {}}, site.lines);
      } else {
        Region& region = myRegions.emplace_back();
        region.draft.region.name = section.name;
        region.draft.region.line = section.line;
        Apply(section, {myResult, nullptr, &region.draft, {}}, region.lines);
      }
    }
  }

  void Apply(PLXConfigurationSection const& section_i, PLXConfigurationTarget target_i,
             std::map<std::string, int, std::less<>>& lines_o) {
    for (PLXConfigurationEntry const& entry : section_i.entries) {
      PLXConfigurationKey const* const key = FindConfigurationKey(section_i.kind, entry.key);
      if (key == nullptr) {
        Complain(entry.line, "unknown key " + QuotedForPeople(entry.key),
                 RemedyForUnknownKey(section_i.kind, entry.key));
        continue;
      }
      lines_o.try_emplace(entry.key, entry.line);
      target_i.folder = entry.line == kCommandLine ? myCurrentFolder : myFileFolder;
      auto complaint = key->Read(entry.value, target_i);
      if (complaint) Complain(entry.line, std::move(complaint->problem), std::move(complaint->remedy));
    }
  }

  // Defaults that hang on other values, and regions put into their sites.
  void Complete() {
    PLXLimits& limits = myResult.limits;
    if (!myLines.contains("waiting-pages")) limits.waitingPages = 4 * limits.pageThreads;
    for (Region& region : myRegions) PlaceRegion(region);
    for (Site& site : mySites) {
      auto& regions = site.configuration.regions;
      auto const isMain = [](PLXRegionConfiguration const& region_i) { return region_i.path == "/"; };
      if (std::none_of(regions.begin(), regions.end(), isMain)) {
        regions.push_back({"main", "/", false, site.configuration.line});
      }
      std::stable_sort(regions.begin(), regions.end(), [](auto const& left, auto const& right) {
        return left.path.size() > right.path.size();
      });
      for (PLXRegionConfiguration& region : regions) region.line = std::max(region.line, 0);
      site.configuration.line = std::max(site.configuration.line, 0);
    }
  }

  void PlaceRegion(Region& region_io) {
    PLXRegionConfiguration& region = region_io.draft.region;
    for (char const* const key : {"site", "path"}) {
      if (region_io.lines.contains(key)) continue;
      return Complain(region.line, "the region \"" + region.name + "\" has no " + key,
                      std::string("Add ") + key + (key[0] == 's' ? " = \"NAME\"." : " = \"/folder/\"."));
    }
    int const siteLine = region_io.lines.find("site")->second;
    int const pathLine = region_io.lines.find("path")->second;
    auto const site = std::find_if(mySites.begin(), mySites.end(), [&](Site const& site_i) {
      return site_i.configuration.name == region_io.draft.site;
    });
    if (site == mySites.end()) {
      if (!region_io.draft.site.empty()) {
        Complain(siteLine, "there is no site " + QuotedForPeople(region_io.draft.site),
                 RemedyForUnknownSite(region_io.draft.site));
      }
      return;
    }
    if (region.path == "/") {
      region.name = "main";
    } else if (region.name == "main") {
      return Complain(pathLine, "the region \"main\" is the whole site",
                      "Write path = \"/\", or give the region another name.");
    }
    for (PLXRegionConfiguration const& other : site->configuration.regions) {
      if (other.path != region.path) continue;
      return Complain(
          pathLine, "a second region of the site with the path " + QuotedForPeople(region.path),
          "Give each region a path of its own; the first is in line " + std::to_string(other.line) + ".");
    }
    site->configuration.regions.push_back(region);
  }

  std::string RemedyForUnknownSite(std::string const& name_i) const {
    std::vector<std::string_view> names;
    for (Site const& site : mySites) names.push_back(site.configuration.name);
    std::string_view const nearest = NearestWord(name_i, names);
    if (!nearest.empty()) return "Did you mean \"" + std::string(nearest) + "\"?";
    return "Write the NAME of a section [site.NAME].";
  }

  void Check() {
    if (!myHasSite && mySites.empty()) {
      Complain(myFile.empty() ? kCommandLine : 0, "there is no site",
               "Add a section [site.NAME] with hosts and root.");
    }
    std::map<std::string, Site const*> hosts;
    for (Site const& site : mySites) {
      CheckHosts(site, hosts);
      CheckRoot(site);
    }
    CheckState();
    CheckShared();
    for (Site& site : mySites) myResult.sites.push_back(std::move(site.configuration));
  }

  void CheckHosts(Site const& site_i, std::map<std::string, Site const*>& hosts_io) {
    if (!site_i.lines.contains("hosts")) {
      Complain(LineOf(site_i), "the site \"" + site_i.configuration.name + "\" has no hosts",
               "Add hosts = [\"localhost\"] with the names under which visitors come.");
    }
    for (std::string const& host : site_i.configuration.hosts) {
      auto const [other, isNew] = hosts_io.try_emplace(host, &site_i);
      if (isNew) continue;
      Complain(LineOf(site_i, "hosts"),
               "the host " + QuotedForPeople(host) + " belongs to the site \"" +
                   other->second->configuration.name + "\" already",
               "Leave it to one of the two.");
    }
  }

  void CheckRoot(Site const& site_i) {
    if (!site_i.lines.contains("root")) {
      return Complain(LineOf(site_i), "the site \"" + site_i.configuration.name + "\" has no root",
                      "Add root = \"FOLDER\" with the folder of its pages.");
    }
    std::filesystem::path const& root = site_i.configuration.root;
    if (root.empty()) return;  // complained of before
    struct stat status {};
    bool const isThere = ::stat(root.c_str(), &status) == 0;
    bool const isFolder = isThere && S_ISDIR(status.st_mode);
    if (isFolder && ::access(root.c_str(), R_OK | X_OK) == 0) return;
    std::string const problem =
        isThere && !isFolder ? "it is no folder" : std::generic_category().message(errno);
    Complain(LineOf(site_i, "root"),
             "the root " + QuotedForPeople(root.string()) + " cannot be used: " + problem,
             "Create the folder, let the server's user read it, or correct the path.");
  }

  // What the server keeps (mail, logins) must not be somewhere that it serves.
  void CheckState() {
    CheckKeptFolder("state", myResult.state, "Name a folder; it is made when it does not exist.");
  }

  void CheckShared() {
    if (myResult.shared.empty()) return;
    CheckKeptFolder("shared", myResult.shared, "Name the folder that all servers of the farm see.");
    std::error_code error;
    std::filesystem::path const shared = std::filesystem::weakly_canonical(myResult.shared, error);
    std::filesystem::path const state = std::filesystem::weakly_canonical(myResult.state, error);
    if (error || !LiesIn(state, shared)) return;
    Complain(myLines.find("shared")->second,
             "the state " + QuotedForPeople(state.string()) +
                 " lies in the shared folder, and each server needs one of its own",
             "Name a folder of this machine with the key \"state\".");
  }

  static bool LiesIn(std::filesystem::path const& path_i, std::filesystem::path const& folder_i) {
    return std::mismatch(folder_i.begin(), folder_i.end(), path_i.begin(), path_i.end()).first ==
           folder_i.end();
  }

  void CheckKeptFolder(char const* key_i, std::filesystem::path const& folder_i, char const* remedy_i) {
    std::error_code error;
    auto const status = std::filesystem::status(folder_i, error);
    int const line = myLines.contains(key_i) ? myLines.find(key_i)->second : 0;
    std::string const what = "the " + std::string(key_i) + " ";
    if (std::filesystem::exists(status) && !std::filesystem::is_directory(status)) {
      return Complain(line, what + QuotedForPeople(folder_i.string()) + " is no folder", remedy_i);
    }
    std::filesystem::path const folder = std::filesystem::weakly_canonical(folder_i, error);
    if (error) return;  // the start will say why it cannot be used
    for (Site const& site : mySites) {
      std::filesystem::path const root = std::filesystem::canonical(site.configuration.root, error);
      if (error || !LiesIn(folder, root)) continue;
      Complain(line,
               what + QuotedForPeople(folder.string()) + " lies in the root of the site \"" +
                   site.configuration.name + "\", where visitors could read it",
               "Move it out of " + QuotedForPeople(root.string()) + ".");
    }
  }

  // The line of a key, or of the section that lacks it.
  static int LineOf(Site const& site_i, char const* key_i = nullptr) {
    auto const found = key_i != nullptr ? site_i.lines.find(key_i) : site_i.lines.end();
    return found != site_i.lines.end() ? found->second : site_i.configuration.line;
  }

  static constexpr int kCommandLine = -1;
  static constexpr std::string_view kNameCharacters =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_-";

  std::filesystem::path const myFile;
  std::filesystem::path myFileFolder;
  std::filesystem::path myCurrentFolder;
  std::vector<PLXConfigurationProblem>& myProblems;
  PLXConfiguration myResult;
  std::vector<PLXConfigurationSection> mySections;
  std::map<std::string, int, std::less<>> myLines;  // of the server's keys
  std::vector<Site> mySites;
  std::vector<Region> myRegions;
  bool myHasSite = false;  // also one that could not be used
};

}  // namespace

std::string PLXConfigurationProblem::Text() const {
  std::string text = file.empty() ? "command line" : file.string();
  if (line > 0) text += ":" + std::to_string(line);
  return text + ": " + problem + ". " + remedy;
}

PLXConfiguration LoadConfiguration(std::filesystem::path const& file_i,
                                   std::vector<std::string> const& overrides_i,
                                   std::vector<PLXConfigurationProblem>& problems_o) {
  return Loader(file_i, problems_o).Load(overrides_i);
}
