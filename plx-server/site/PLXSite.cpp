#include "PLXSite.h"

#include <algorithm>
#include <cerrno>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

// How a path becomes a file, for visitors (MapPath) and for modules (Contain). A path is cut into steps
// first, and a step that could mean anything but an entry of the folder before it ends the matter. Then the
// steps are walked on the disk from a folder known to be free of links; a link on the way is replaced by what
// it says. Where the walk ends must be inside that folder. Files need not exist: what follows the first
// missing step is taken by name.

namespace {

constexpr std::size_t kLongestStep = 255;  // NAME_MAX of every file system in use
constexpr int kMostLinks = 40;             // as the kernel
constexpr char kAttachmentFolder[] =
    "Attachments/";  // where modules put what mail brings, unless told otherwise
constexpr std::string_view kModuleDataFolder = "plxemailclient data";

char Lower(char character_i) {
  return character_i >= 'A' && character_i <= 'Z' ? static_cast<char>(character_i + ('a' - 'A'))
                                                  : character_i;
}

bool AreEqualIgnoringCase(std::string_view left_i, std::string_view right_i) {
  return std::equal(left_i.begin(), left_i.end(), right_i.begin(), right_i.end(),
                    [](char left, char right) { return Lower(left) == Lower(right); });
}

bool IsControl(char character_i) {
  auto const byte = static_cast<unsigned char>(character_i);
  return byte < 0x20 || byte == 0x7F;
}

bool HasControl(std::string_view text_i) { return std::any_of(text_i.begin(), text_i.end(), IsControl); }

// The steps between slashes; a slash at either end adds none, two in a row add an empty one.
std::vector<std::string> StepsOf(std::string_view path_i) {
  std::vector<std::string> steps;
  if (path_i.starts_with('/')) path_i.remove_prefix(1);
  while (!path_i.empty()) {
    std::size_t const slash = std::min(path_i.find('/'), path_i.size());
    steps.emplace_back(path_i.substr(0, slash));
    path_i.remove_prefix(std::min(slash + 1, path_i.size()));
  }
  return steps;
}

// Folders are kept with a slash at the end, so that "is inside" is "begins with".
std::string WithSlash(std::string path_i) {
  if (!path_i.ends_with('/')) path_i.push_back('/');
  return path_i;
}

bool IsInside(std::string_view path_i, std::string_view folder_i) {
  return path_i.starts_with(folder_i) || path_i == folder_i.substr(0, folder_i.size() - 1);
}

// What a link says, empty when it cannot be read.
std::string ReadLink(std::string const& path_i) {
  char target[PATH_MAX];
  ssize_t const count = ::readlink(path_i.c_str(), target, sizeof target);
  return count > 0 ? std::string(target, static_cast<std::size_t>(count)) : std::string();
}

// The disk path, free of links, that `steps_i` lead to from `folder_i`, which is free of links and ends in
// "/". Nothing when a step cannot be looked at, links go in circles or a path grows too long.
std::optional<std::string> Walk(std::string const& folder_i, std::vector<std::string> steps_i) {
  std::string path = folder_i;  // always a folder, ending in "/"
  std::reverse(steps_i.begin(), steps_i.end());
  int links = 0;
  while (!steps_i.empty()) {
    std::string const step = std::move(steps_i.back());
    steps_i.pop_back();
    if (step.empty() || step == ".") continue;
    if (step == "..") {  // of a link; others never get here
      if (path.size() > 1) path.erase(path.rfind('/', path.size() - 2) + 1);
      continue;
    }
    path.append(step);
    if (path.size() >= PATH_MAX) return std::nullopt;
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0) {
      if (errno != ENOENT && errno != ENOTDIR) return std::nullopt;
    } else if (S_ISLNK(status.st_mode)) {
      std::string const target = ReadLink(path);
      if (target.empty() || ++links > kMostLinks) return std::nullopt;
      path = target.front() == '/' ? "/" : path.substr(0, path.size() - step.size());
      std::vector<std::string> targetSteps = StepsOf(target);
      std::move(targetSteps.rbegin(), targetSteps.rend(), std::back_inserter(steps_i));
      continue;
    }
    path.push_back('/');
  }
  return path;
}

// Walk, ended inside `folder_i`. A slash at the end stays exactly where the asker wrote one, because it says
// "folder": "page.html/" must not become a file.
std::optional<std::filesystem::path> WalkInside(std::string const& folder_i, std::string_view path_i) {
  std::optional<std::string> walked = Walk(folder_i, StepsOf(path_i));
  if (!walked || !IsInside(*walked, folder_i) || walked->size() > PATH_MAX) return std::nullopt;
  bool const isFolder = path_i.empty() || path_i.ends_with('/');
  if (!isFolder && *walked != folder_i) walked->pop_back();
  return std::filesystem::path(std::move(*walked));
}

// The folder itself, free of links, ending in "/". What does not exist keeps its name.
std::string ResolvedFolder(std::filesystem::path const& folder_i) {
  std::error_code ignored;
  std::string const absolute = std::filesystem::absolute(folder_i, ignored).lexically_normal().string();
  return Walk("/", StepsOf(absolute)).value_or(WithSlash(absolute));
}

bool IsStepForVisitors(std::string_view step_i) {
  bool const isHidden = step_i.starts_with('.') && step_i != ".well-known";
  return !step_i.empty() && step_i.size() <= kLongestStep && !isHidden;
}

bool IsStepForModules(std::string_view step_i) {
  return !step_i.empty() && step_i.size() <= kLongestStep && step_i != "." && step_i != "..";
}

// Mail that a module keeps inside the site's folder, whatever link leads there.
bool HoldsModuleData(std::string_view path_i) {
  auto const steps = StepsOf(path_i);
  return std::any_of(steps.begin(), steps.end(),
                     [](std::string const& step) { return AreEqualIgnoringCase(step, kModuleDataFolder); });
}

// Whether the path is `prefix_i` ("/mail/") or lies below it. Slashes in a row count as one here, so that
// "//mail/x" cannot slip past a login that guards "/mail/".
bool BeginsWithFolder(std::string_view path_i, std::string_view prefix_i) {
  if (prefix_i == "/") return true;
  std::size_t at = 0;
  for (char const character : prefix_i.substr(0, prefix_i.size() - 1)) {
    if (at >= path_i.size() || path_i[at] != character) return false;
    ++at;
    while (character == '/' && at < path_i.size() && path_i[at] == '/') ++at;
  }
  return at == path_i.size() || path_i[at] == '/';
}

// A host name in the one form in which it is looked up: lower case, without the brackets of an IPv6 address
// or the dot of an absolute name.
std::string HostKey(std::string_view host_i) {
  if (host_i.size() > 2 && host_i.front() == '[' && host_i.back() == ']') {
    host_i = host_i.substr(1, host_i.size() - 2);
  } else if (host_i.ends_with('.')) {
    host_i.remove_suffix(1);
  }
  std::string key(host_i);
  std::transform(key.begin(), key.end(), key.begin(), Lower);
  return key;
}

}  // namespace

// ---- PLXRegion -------------------------------------------------------------------------------------------

PLXRegion::PLXRegion(PLXSite const& site_i, PLXRegionConfiguration const& configuration_i,
                     std::filesystem::path const& shared_i)
    : mySite(site_i), myConfiguration(configuration_i), myKey(site_i.Name() + "/" + configuration_i.name) {
  std::error_code ignored;
  std::filesystem::path const shared = std::filesystem::absolute(shared_i, ignored).lexically_normal();
  myDataRoot = shared / "regions" / site_i.Name() / Name();
  myLoginsFile = shared / "logins" / site_i.Name() / Name();
}

std::filesystem::path PLXRegion::Folder() const {
  return mySite.MapPath(Path()).value_or(mySite.Root() / std::string_view(Path()).substr(1));
}

std::optional<std::filesystem::path> PLXRegion::DataFolder(std::string_view name_i) const {
  if (!IsStepForModules(name_i) || HasControl(name_i) || name_i.find('/') != std::string_view::npos) {
    return std::nullopt;
  }
  return myDataRoot / name_i / "";
}

std::optional<std::filesystem::path> PLXRegion::Contain(std::string_view path_i) const {
  if (HasControl(path_i) || path_i.size() >= PATH_MAX) return std::nullopt;
  std::optional<std::filesystem::path> const mapped = mySite.MapPath(Path());
  if (!mapped) return std::nullopt;  // the region itself leads out of the site
  std::string const& folder = mapped->native();
  // Modules hand back the absolute paths that they were given.
  if (path_i.starts_with('/')) {
    if (!IsInside(path_i, folder)) return std::nullopt;
    path_i.remove_prefix(std::min(folder.size(), path_i.size()));
    if (path_i.starts_with('/')) return std::nullopt;
  }
  auto const steps = StepsOf(path_i);
  if (!std::all_of(steps.begin(), steps.end(), IsStepForModules)) return std::nullopt;
  return WalkInside(folder, path_i);
}

// ---- PLXSite ---------------------------------------------------------------------------------------------

PLXSite::PLXSite(PLXSiteConfiguration const& configuration_i, std::filesystem::path const& shared_i)
    : myConfiguration(configuration_i), myRoot(ResolvedFolder(configuration_i.root)) {
  for (PLXRegionConfiguration const& region : myConfiguration.regions) {
    myRegions.push_back(std::make_unique<PLXRegion>(*this, region, shared_i));
  }
  std::stable_sort(myRegions.begin(), myRegions.end(), [](auto const& left, auto const& right) {
    return left->Path().size() > right->Path().size();
  });
  if (myRegions.empty() || myRegions.back()->Path() != "/") {
    PLXRegionConfiguration main;
    main.name = "main";
    myRegions.push_back(std::make_unique<PLXRegion>(*this, main, shared_i));
  }
  myDownloads = myConfiguration.downloads;
  for (auto const& region : myRegions) myDownloads.push_back(region->Path() + kAttachmentFolder);
}

PLXRegion const& PLXSite::RegionOf(std::string_view path_i) const {
  for (auto const& region : myRegions) {
    if (BeginsWithFolder(path_i, region->Path())) return *region;
  }
  return *myRegions.back();
}

PLXRegion const* PLXSite::FindRegion(std::string_view name_i) const {
  auto const found = std::find_if(myRegions.begin(), myRegions.end(),
                                  [name_i](auto const& region) { return region->Name() == name_i; });
  return found == myRegions.end() ? nullptr : found->get();
}

std::optional<std::filesystem::path> PLXSite::MapPath(std::string_view path_i) const {
  if (!path_i.starts_with('/') || path_i.size() >= PATH_MAX || HasControl(path_i)) return std::nullopt;
  auto const steps = StepsOf(path_i);
  if (!std::all_of(steps.begin(), steps.end(), IsStepForVisitors)) return std::nullopt;
  std::string const& root = myRoot.native();
  std::optional<std::filesystem::path> mapped = WalkInside(root, path_i);
  if (mapped && HoldsModuleData(std::string_view(mapped->native()).substr(root.size() - 1)))
    return std::nullopt;
  return mapped;
}

bool PLXSite::IsPage(std::filesystem::path const& file_i) const {
  // Ignoring case, so that "PAGE.PLX" is never sent as it was written.
  std::string_view const name = file_i.native();
  return std::any_of(myConfiguration.pages.begin(), myConfiguration.pages.end(),
                     [name](std::string const& ending) {
                       return name.size() > ending.size() &&
                              AreEqualIgnoringCase(name.substr(name.size() - ending.size()), ending);
                     });
}

bool PLXSite::IsCopyOfPage(std::filesystem::path const& file_i) const {
  std::string_view const name = file_i.native();
  if (name.ends_with('~')) {
    std::size_t const number = name.rfind(".~");  // "page.html.~2~"
    return IsPage(name.substr(0, number == std::string_view::npos ? name.find_last_not_of('~') + 1 : number));
  }
  std::size_t const dot = name.rfind('.');
  if (dot == std::string_view::npos) return false;
  std::string_view const ending = name.substr(dot);
  for (std::string_view const copy : {".bak", ".old", ".orig", ".save", ".swp", ".tmp"}) {
    if (AreEqualIgnoringCase(ending, copy)) return IsPage(name.substr(0, dot));
  }
  return false;
}

bool PLXSite::IsDownload(std::string_view path_i) const {
  return std::any_of(myDownloads.begin(), myDownloads.end(),
                     [path_i](std::string const& prefix) { return BeginsWithFolder(path_i, prefix); });
}

std::vector<std::filesystem::path> PLXSite::KeptFolders() const {
  std::vector<std::string> found;  // with a slash at the end, so that "is inside" is "begins with"
  std::error_code error;
  for (std::string const& download : myDownloads) {
    auto const path = MapPath(download);
    if (path && *path != myRoot && std::filesystem::is_directory(*path, error))
      found.push_back(path->native());
  }
  for (auto const& region : myRegions) {
    std::filesystem::directory_iterator at(region->Folder(), error);
    for (std::filesystem::directory_iterator const end; !error && at != end; at.increment(error)) {
      std::error_code ignored;
      if (AreEqualIgnoringCase(at->path().filename().native(), kModuleDataFolder) &&
          std::filesystem::is_directory(at->symlink_status(ignored))) {
        found.push_back(WithSlash(at->path().native()));
      }
    }
  }
  std::sort(found.begin(), found.end());
  std::vector<std::filesystem::path> folders;
  std::string last;
  for (std::string const& folder : found) {
    if (!last.empty() && folder.starts_with(last)) continue;
    last = folder;
    folders.push_back(std::filesystem::path(folder).parent_path());
  }
  return folders;
}

// ---- PLXSites --------------------------------------------------------------------------------------------

PLXSites::PLXSites(PLXConfiguration configuration_i) : myConfiguration(std::move(configuration_i)) {
  for (PLXSiteConfiguration const& site : myConfiguration.sites) {
    mySites.push_back(std::make_unique<PLXSite>(site, myConfiguration.SharedFolder()));
    for (std::string const& host : site.hosts) myHosts.try_emplace(HostKey(host), mySites.back().get());
  }
}

PLXSite const* PLXSites::FindHost(std::string_view host_i) const {
  auto const found = myHosts.find(HostKey(host_i));
  return found == myHosts.end() ? nullptr : found->second;
}

PLXRegion const* PLXSites::FindRegion(std::string_view key_i) const {
  std::size_t const slash = key_i.find('/');
  if (slash == std::string_view::npos) return nullptr;
  for (auto const& site : mySites) {
    if (site->Name() == key_i.substr(0, slash)) return site->FindRegion(key_i.substr(slash + 1));
  }
  return nullptr;
}
