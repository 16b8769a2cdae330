#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "PLXRequest.h"
#include "PLXSite.h"

class PLXRecordEngine;

// A page while it is rendered: what its tags may ask for and what they may change. One thread; lives for one
// request.
struct PLXPageContext {
  PLXSite const& site;
  PLXRegion const& region;
  PLXRequest const& request;
  PLXResponse& response;
  std::filesystem::path file;           // the page on disk
  std::string scriptName;               // its URL path, encoded as it was requested up to "?"
  std::vector<PLXNameValue> variables;  // page variables, set by tags; names compare ignoring case
  bool trace = false;
  PLXRecordEngine* records = nullptr;  // what <plxRecords> shows
  bool passwordWasRead = false;        // a module has asked for the visitor's password
  bool isPersonal = false;             // made with the visitor's name or cookies: nobody else's to see
};

// One tag as it stands in a page, its values already put in.
struct PLXTagOccurrence {
  std::string name;                      // as it is registered
  std::vector<PLXNameValue> parameters;  // in order, repeats kept
  std::string body;                      // of a tag that encloses one
  int line = 0;                          // in the page, from 1
};

// What a tag came to.
struct PLXTagOutcome {
  std::uint32_t result = 0;
  std::string html;
  // Then problem and remedy, both HTML, stand before the output when the result is 0, else in its place.
  bool hasProblem = false;
  std::string problem;
  std::string remedy;
};

// Who knows the tags: the modules. Any thread.
class PLXTagProcessor {
 public:
  struct Tag {
    std::string name;         // the registered spelling
    std::uint32_t flags = 0;  // kPLXTagFlag_EnclosesBody, kPLXTagFlag_StandsAlone
  };

  virtual ~PLXTagProcessor() = default;
  // The registered tag of this name, ignoring case; null when nobody registered it. Valid while the processor
  // is.
  virtual Tag const* FindTag(std::string_view name_i) const = 0;
  // Runs the tag on this thread, however long it takes. Never throws.
  virtual PLXTagOutcome Process(PLXTagOccurrence const& tag_i, PLXPageContext& context_io) = 0;
};
