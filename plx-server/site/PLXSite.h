#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "PLXConfiguration.h"

class PLXSite;

// A path prefix of a site with its own preferences, data folder and logins. Immutable after it is made, lives
// as long as its site, safe on any thread.
class PLXRegion {
 public:
  PLXRegion(PLXSite const& site_i, PLXRegionConfiguration const& configuration_i,
            std::filesystem::path const& shared_i);

  std::string const& Name() const { return myConfiguration.name; }
  std::string const& Path() const { return myConfiguration.path; }  // "/mail/"
  // "site/region": names the region in preferences and on the administration's addresses.
  std::string const& Key() const { return myKey; }
  bool RequiresLogin() const { return myConfiguration.requiresLogin; }
  bool TakesForeignPosts() const { return myConfiguration.takesForeignPosts; }
  // Name and value of what its answers carry; without a value: what they do not.
  auto const& Headers() const { return myConfiguration.headers; }
  PLXSite const& Site() const { return mySite; }

  // The disk folder that the region's path names, without links, ending in "/". A path that leads out of the
  // site through a link is not followed.
  std::filesystem::path Folder() const;
  // The folder for what modules keep, outside everything that is served; not created yet, ends in "/".
  // A name that could leave it ("..", "/", control characters, empty) has none.
  std::optional<std::filesystem::path> DataFolder(std::string_view name_i) const;
  // The file with the region's logins.
  std::filesystem::path const& LoginsFile() const { return myLoginsFile; }

  // The disk path of a path inside the region; it need not exist. An absolute path is taken when it begins
  // with the region's own folder: modules hand back what they were given. None when the path would leave the
  // region
  // ("..", any other absolute path, a link on the way that leads out), holds a NUL or control character, or
  // is too long for the system.
  std::optional<std::filesystem::path> Contain(std::string_view path_i) const;

 private:
  PLXSite const& mySite;
  PLXRegionConfiguration myConfiguration;
  std::string myKey;
  std::filesystem::path myDataRoot;
  std::filesystem::path myLoginsFile;
};

// One site: a folder of pages under one or more host names. Immutable, safe on any thread.
class PLXSite {
 public:
  PLXSite(PLXSiteConfiguration const& configuration_i, std::filesystem::path const& shared_i);
  PLXSite(PLXSite const&) = delete;
  PLXSite& operator=(PLXSite const&) = delete;

  PLXSiteConfiguration const& Configuration() const { return myConfiguration; }
  std::string const& Name() const { return myConfiguration.name; }
  // The root folder without links, ending in "/".
  std::filesystem::path const& Root() const { return myRoot; }
  std::vector<std::unique_ptr<PLXRegion>> const& Regions() const { return myRegions; }

  // The region with the longest path that begins `path_i`, which is decoded and begins with "/".
  PLXRegion const& RegionOf(std::string_view path_i) const;
  PLXRegion const* FindRegion(std::string_view name_i) const;

  // The disk path of a decoded URL path, links resolved for what exists of it; it ends in "/" exactly when
  // the URL path does. None when it holds a NUL or control character, an empty or ".." step, a hidden name (a
  // step beginning with ".", other than ".well-known"), leaves the root through a link, leads into a module's
  // data, or is too long for the system.
  std::optional<std::filesystem::path> MapPath(std::string_view path_i) const;

  // Whether a file of this name is a page, and whether this path is served as a download only: it is below
  // one of the folders that are configured so, or below a region's own folder "Attachments".
  bool IsPage(std::filesystem::path const& file_i) const;
  // Whether it is what an editor left of a page ("page.html~", "page.plx.bak"): the page's source, with the
  // passwords of its tags, under a name that is none of a page.
  bool IsCopyOfPage(std::filesystem::path const& file_i) const;
  bool IsDownload(std::string_view path_i) const;

  // The folders below the root that are there now and that modules and visitors fill: those that are served
  // as downloads, and the module's data of each region. Without links and without "/" at their ends, none
  // within another.
  std::vector<std::filesystem::path> KeptFolders() const;

 private:
  PLXSiteConfiguration myConfiguration;
  std::filesystem::path myRoot;
  std::vector<std::unique_ptr<PLXRegion>> myRegions;
  std::vector<std::string> myDownloads;
};

// All sites of one configuration. A request keeps the set it began with, so a reload drops nothing.
class PLXSites {
 public:
  explicit PLXSites(PLXConfiguration configuration_i);

  PLXConfiguration const& Configuration() const { return myConfiguration; }
  std::vector<std::unique_ptr<PLXSite>> const& All() const { return mySites; }
  // The site that has this host name (without port, any letter case), or null.
  PLXSite const* FindHost(std::string_view host_i) const;
  PLXSite const& First() const { return *mySites.front(); }
  // The region of a key such as "demo/main", or null.
  PLXRegion const* FindRegion(std::string_view key_i) const;

 private:
  PLXConfiguration myConfiguration;
  std::vector<std::unique_ptr<PLXSite>> mySites;
  std::unordered_map<std::string, PLXSite const*> myHosts;  // by lower-case name
};
