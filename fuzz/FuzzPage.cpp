#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "Fuzz.h"
#include "PLXASCII.h"
#include "PLXModuleAPI.h"
#include "PLXPage.h"

// Any bytes are a page. What holds no tag, no value and no server's tag comes out as it went in; whatever
// comes in, the output is bounded by the input, since the tags here write no more than they are given.

namespace {

class FuzzTags : public PLXTagProcessor {
 public:
  explicit FuzzTags(bool knowsTags_i) : myKnowsTags(knowsTags_i) {}

  Tag const* FindTag(std::string_view name_i) const override {
    static Tag const ourShow{"plxShow", kPLXTagFlag_StandsAlone};
    static Tag const ourWrap{"plxWrap", kPLXTagFlag_EnclosesBody};
    static Tag const ourBoth{"plxOther", kPLXTagFlag_EnclosesBody};
    if (!myKnowsTags) return nullptr;
    for (Tag const* tag : {&ourShow, &ourWrap, &ourBoth}) {
      if (EqualIgnoringCase(tag->name, name_i)) return tag;
    }
    return nullptr;
  }

  PLXTagOutcome Process(PLXTagOccurrence const& tag_i, PLXPageContext&) override {
    PLXTagOutcome outcome;
    for (PLXNameValue const& parameter : tag_i.parameters) outcome.html += parameter.name + parameter.value;
    outcome.html += tag_i.body;
    return outcome;
  }

 private:
  bool const myKnowsTags;
};

bool HoldsMarkup(std::string const& text_i) {
  for (std::size_t at = 0; at < text_i.size(); ++at) {
    std::string_view const rest = std::string_view(text_i).substr(at);
    if (BeginsIgnoringCase(rest, "&plx") || BeginsIgnoringCase(rest, "<plxDoNotProcess")) return true;
  }
  return false;
}

std::string Rendered(std::string const& text_i, bool knowsTags_i) {
  static std::filesystem::path const ourFolder = std::filesystem::temp_directory_path();
  static PLXSite const ourSite(
      [] {
        PLXSiteConfiguration configuration;
        configuration.name = "fuzz";
        configuration.hosts = {"fuzz.test"};
        configuration.root = ourFolder;
        configuration.regions = {{"main", "/", false, 0}};
        return configuration;
      }(),
      ourFolder);
  PLXRequest request;
  request.pathArguments = {{"a", "<&plxPath.a;>"}};
  PLXResponse response;
  PLXPageContext context{
      ourSite, ourSite.RegionOf("/"), request, response, ourFolder / "page.html", "/page.html", {}, false};
  FuzzTags tags(knowsTags_i);
  return RenderPage(*PLXPage::Parse(text_i, tags), tags, context);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data_i, std::size_t size_i) {
  std::string const text(reinterpret_cast<char const*>(data_i), size_i);
  std::string const plain = Rendered(text, false);
  Require(HoldsMarkup(text) || plain == text);

  // "&plxPath.a;" becomes at most 31 bytes; a page shows at most 101 boxes of its own.
  std::size_t const bound = 4 * size_i + 102 * (ProblemBox({}, {}).size() + 300);
  Require(plain.size() <= bound && Rendered(text, true).size() <= bound);
  // A page that is cut keeps what stands before its first markup, and its bound.
  std::size_t const start = std::min(text.find_first_of("&<"), text.size());
  ForEachCut(text, [&](std::string_view cut_i) {
    std::string const cut = Rendered(std::string(cut_i), true);
    Require(cut.size() <= bound && cut.starts_with(cut_i.substr(0, start)));
  });
  return 0;
}
