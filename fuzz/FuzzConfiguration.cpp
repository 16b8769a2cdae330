#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "PLXConfiguration.h"

// Any bytes as a configuration file: no crash, and whatever is found wrong is told in words, at a line that
// the file has. A configuration without problems has a site with a host, a root and its main region last.

namespace {

void Require(bool condition_i, char const* what_i) {
  if (condition_i) return;
  std::fprintf(stderr, "%s\n", what_i);
  std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data_i, std::size_t size_i) {
  static int const file = ::memfd_create("configuration", 0);
  static std::string const path = "/proc/self/fd/" + std::to_string(file);
  if (::ftruncate(file, 0) != 0 || ::pwrite(file, data_i, size_i, 0) != static_cast<ssize_t>(size_i))
    return 0;

  int lines = 1;
  for (std::size_t index = 0; index < size_i; ++index) lines += data_i[index] == '\n';
  std::vector<PLXConfigurationProblem> problems;
  PLXConfiguration const configuration =
      LoadConfiguration(path, {"state=/plx-state", "trace=true"}, problems);
  for (PLXConfigurationProblem const& problem : problems) {
    Require(!problem.problem.empty() && !problem.remedy.empty(), "a problem without words");
    Require(problem.line >= 0 && problem.line <= lines, "a line that the file does not have");
    for (char const character : problem.Text()) {
      Require(static_cast<unsigned char>(character) >= 0x20 && character != 0x7F,
              "a control character for people");
    }
  }
  if (!problems.empty()) return 0;
  Require(configuration.trace, "the command line does not win");
  Require(!configuration.sites.empty(), "no site");
  for (PLXSiteConfiguration const& site : configuration.sites) {
    Require(!site.hosts.empty() && !site.root.empty(), "an unfinished site");
    Require(!site.regions.empty() && site.regions.back().name == "main", "a site without its main region");
  }
  return 0;
}
