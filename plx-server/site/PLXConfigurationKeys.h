#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "PLXConfiguration.h"
#include "PLXConfigurationText.h"

// The keys of a configuration: one table from which values are read, checked and explained.

struct PLXConfigurationComplaint {
  std::string problem;
  std::string remedy;
};

// A region before its site is known.
struct PLXRegionDraft {
  PLXRegionConfiguration region;
  std::string site;
};

// Where values go. `site` and `region` are set while a section of their kind is read.
struct PLXConfigurationTarget {
  PLXConfiguration& configuration;
  PLXSiteConfiguration* site = nullptr;
  PLXRegionDraft* region = nullptr;
  std::filesystem::path folder;  // relative paths begin here
};

struct PLXConfigurationKey {
  enum class Form { kNumber, kSize, kSeconds, kSwitch, kText, kTexts };
  // A value in its form: the member that the form names is set.
  struct Value {
    std::uint64_t number = 0;
    bool flag = false;
    std::vector<std::string> texts;
    std::string const& Text() const { return texts.front(); }
  };
  using Complaint = std::optional<PLXConfigurationComplaint>;

  std::string_view section;  // "" for the server, "site", "region"
  std::string_view name;
  Form form;
  std::uint64_t least;  // of numbers, sizes and seconds
  std::uint64_t most;
  char const* standard;  // as one would write it
  char const* meaning;
  Complaint (*store)(Value const& value_i, PLXConfigurationTarget& target_io);

  // Reads, checks and stores a value; a complaint when it is none, and then nothing is stored.
  Complaint Read(PLXConfigurationValue const& value_i, PLXConfigurationTarget& target_io) const;
};

PLXConfigurationKey const* FindConfigurationKey(std::string_view section_i, std::string_view name_i);

// What to say of a key that no section of this kind has: the nearest name, or where it belongs.
std::string RemedyForUnknownKey(std::string_view section_i, std::string_view name_i);

// The candidate that `word_i` most likely was meant to be, empty when none is near.
std::string_view NearestWord(std::string_view word_i, std::span<std::string_view const> candidates_i);
