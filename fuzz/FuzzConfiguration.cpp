#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "Fuzz.h"
#include "PLXConfiguration.h"
#include "PLXConfigurationText.h"

// Any bytes as a configuration file: no crash, and whatever is found wrong is told in words, at a line that
// the file has. A configuration without problems has a site with a host, a root and its main region last.

namespace {

struct Entry {
  std::string section, key;
  std::vector<std::string> texts;
  bool operator==(Entry const&) const = default;
};

std::vector<Entry> Entries(std::string_view text_i, bool& isFine_o) {
  std::vector<PLXTextProblem> problems;
  std::vector<Entry> entries;
  for (PLXConfigurationSection const& section : ReadConfigurationText(text_i, problems)) {
    for (PLXConfigurationEntry const& entry : section.entries) {
      entries.push_back({section.kind + '.' + section.name, entry.key, entry.value.texts});
    }
  }
  isFine_o = problems.empty();
  return entries;
}

// A cut is told, or loses no more than the last value and what follows it.
void CheckCuts(std::string_view text_i) {
  bool isFine = false;
  std::vector<Entry> const whole = Entries(text_i, isFine);
  if (!isFine) return;
  ForEachCut(text_i, [&](std::string_view cut_i) {
    std::vector<Entry> const some = Entries(cut_i, isFine);
    Require(some.size() <= whole.size());
    for (std::size_t n = 0; n + 1 < some.size(); ++n) Require(some[n] == whole[n]);
  });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data_i, std::size_t size_i) {
  static int const file = ::memfd_create("configuration", 0);
  static std::string const path = "/proc/self/fd/" + std::to_string(file);
  if (::ftruncate(file, 0) != 0 || ::pwrite(file, data_i, size_i, 0) != static_cast<ssize_t>(size_i))
    return 0;

  CheckCuts({reinterpret_cast<char const*>(data_i), size_i});
  int lines = 1;
  for (std::size_t index = 0; index < size_i; ++index) lines += data_i[index] == '\n';
  std::vector<PLXConfigurationProblem> problems;
  PLXConfiguration const configuration =
      LoadConfiguration(path, {"state=/plx-state", "trace=true"}, problems);
  for (PLXConfigurationProblem const& problem : problems) {
    Require(!problem.problem.empty() && !problem.remedy.empty());
    Require(problem.line >= 0 && problem.line <= lines);
    for (char const character : problem.Text()) {
      Require(static_cast<unsigned char>(character) >= 0x20 && character != 0x7F);
    }
  }
  if (!problems.empty()) return 0;
  Require(configuration.trace);
  Require(!configuration.sites.empty());
  for (PLXSiteConfiguration const& site : configuration.sites) {
    Require(!site.hosts.empty() && !site.root.empty());
    Require(!site.regions.empty() && site.regions.back().name == "main", "a site without its main region");
  }
  return 0;
}
