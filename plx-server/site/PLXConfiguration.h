#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

// Header lines that a configuration adds to answers, name and value.
using PLXHeaderLines = std::vector<std::pair<std::string, std::string>>;

struct PLXRegionConfiguration {
  std::string name;            // names its data folder and its preferences; "main" is the whole site
  std::string path = "/";      // path prefix on the site, begins and ends with "/"
  bool requiresLogin = false;  // every request needs a login of the region
  int line = 0;
  bool takesForeignPosts = false;  // from other sites' pages, with the visitor's login or cookies
  // Sent where an answer has none of that name; one without a value keeps the server's own from being sent.
  PLXHeaderLines headers{};
};

struct PLXSiteConfiguration {
  std::string name;
  std::vector<std::string> hosts;  // as clients say them, without port; the first is the site's own name
  std::filesystem::path root;      // folder with pages and files
  std::vector<std::string> indexes{"index.html", "index.plx"};
  std::vector<std::string> pages{".html", ".htm", ".plx"};  // file name endings that are processed
  std::vector<std::string> downloads;           // path prefixes served as downloads only, never as pages
  std::vector<PLXRegionConfiguration> regions;  // longest path first; the last one is "main", "/"
  int line = 0;
};

// What one client may take. Sizes are bytes.
struct PLXLimits {
  unsigned pageThreads = 256;
  unsigned waitingPages = 1024;  // beyond it 503
  unsigned overduePages = 64;    // pages that were given up and still hold a thread, on top of pageThreads
  unsigned administrationThreads = 4;  // of their own, so that a full house can still be looked at
  unsigned connections = 1024;
  unsigned connectionsPerAddress = 64;  // 0 means no limit, for a server behind a proxy
  std::size_t headerBytes = 16u << 10;
  std::size_t bodyBytes = 32u << 20;
  std::size_t bodyInMemoryBytes = 64u << 10;  // a longer body waits in a file of the state folder
  unsigned formFields = 1000;
  std::chrono::seconds headerTime{15};  // for the whole header, and how long an idle connection is kept
  std::chrono::seconds bodyTime{15};    // plus a second for every 16 KiB
  std::chrono::seconds pageTime{300};   // until a page is given up with 504; 0 means never
  std::chrono::seconds writeTime{60};   // plus a second for every 16 KiB
  std::chrono::seconds stopTime{30};    // for pages in flight when the server is asked to stop
  unsigned includeDepth = 10;           // pages of this server that include each other, 508 beyond
};

struct PLXConfiguration {
  std::filesystem::path file;  // empty when everything came from the command line
  std::string listenAddress = "127.0.0.1";
  std::uint16_t listenPort = 8080;             // 0: any free port
  std::filesystem::path state = "var";         // what this server alone writes; one server at a time
  std::filesystem::path shared;                // what the servers of a farm have in common; empty: the state
  std::vector<std::filesystem::path> modules;  // libraries to load, in this order
  std::vector<std::string> proxies;            // addresses whose X-Forwarded-For is believed
  PLXHeaderLines securityHeaders;              // sent where an answer has none of that name
  std::string recordsSource;  // ODBC data source of the record databases; empty: SQLite in the state
  std::string recordsUser;
  std::string recordsPassword;
  bool trace = false;
  bool coreDumps = false;  // memory may be written to disk after a crash, and debuggers may look at it
  std::size_t logBytes = 10u << 20;
  std::size_t logFiles = 5;
  PLXLimits limits;
  std::vector<PLXSiteConfiguration> sites;  // at least one after a good Load

  // Where the regions' data and the logins lie.
  std::filesystem::path const& SharedFolder() const { return shared.empty() ? state : shared; }
};

// Something wrong with what a person wrote, told so that the person can mend it.
struct PLXConfigurationProblem {
  std::filesystem::path file;  // empty: the command line
  int line = 0;                // 0: the file as a whole
  std::string problem;
  std::string remedy;

  // "plxserver.conf:12: unknown key \"pag-threads\". Did you mean \"page-threads\"?"
  std::string Text() const;
};

// Reads a configuration file. Relative paths are taken from the file's folder. `overrides_i` are key=value
// pairs of the command line ("page-threads=16", "site.demo.root=pages"), which win over the file's; their
// relative paths are taken from the current folder. An empty `file_i` reads none. Every problem found is
// appended to `problems_o`; the result is usable when none was. Never throws for what a file holds. Checks
// what can be checked without starting: keys, types, ranges, folders, duplicates.
PLXConfiguration LoadConfiguration(std::filesystem::path const& file_i,
                                   std::vector<std::string> const& overrides_i,
                                   std::vector<PLXConfigurationProblem>& problems_o);

// One line per key with its default and meaning, for --help and the documentation's test.
std::string ConfigurationReference();
