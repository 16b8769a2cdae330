#include <benchmark/benchmark.h>
#include <cstdlib>
#include <filesystem>
#include <memory>

#include "PLXModuleHost.h"
#include "PLXPage.h"

namespace {

// A server around the network module, as much of it as a tag needs.
struct Stage {
  std::filesystem::path folder;
  std::unique_ptr<PLXPreferenceStore> preferences;
  std::unique_ptr<PLXLoginStore> logins;
  std::unique_ptr<PLXRecordEngine> records;
  std::unique_ptr<PLXModuleHost> host;
  std::unique_ptr<PLXSite> site;

  Stage() {
    char name[] = "/tmp/plx-bench.XXXXXX";
    folder = mkdtemp(name);
    preferences = std::make_unique<PLXPreferenceStore>(folder / "preferences.sqlite");
    records = std::make_unique<PLXRecordEngine>(PLXRecordEngine::Settings{folder, {}, {}, {}});
    logins = std::make_unique<PLXLoginStore>(folder / "logins");
    host = std::make_unique<PLXModuleHost>(*preferences, *logins, *records, false);
    std::string problem;
    if (!host->Load(PLX_MODULE_FILE, problem)) std::abort();
    PLXSiteConfiguration configuration;
    configuration.name = "bench";
    configuration.hosts = {"localhost"};
    configuration.root = folder;
    site = std::make_unique<PLXSite>(configuration, folder / "state");
  }
  ~Stage() {
    host.reset();
    preferences.reset();
    std::filesystem::remove_all(folder);
  }
};

// From the server to the module and back, with the module's look at the tag's name and its switch, which is
// off.
void BM_TagDispatch(benchmark::State& state_io) {
  Stage stage;
  stage.preferences->Set(stage.site->RegionOf("/").Key(), "Network Module", "plxPOP", "no");
  PLXRequest request;
  PLXResponse response;
  PLXPageContext context{
      *stage.site, stage.site->RegionOf("/"), request, response, stage.folder / "page.html", "/page.html", {},
      false};
  PLXTagOccurrence tag;
  tag.name = "plxPOP";
  tag.parameters = {{"server", "mail.example.net"}};
  for (auto _ : state_io) benchmark::DoNotOptimize(stage.host->Process(tag, context).result);
}

}  // namespace

BENCHMARK(BM_TagDispatch);
