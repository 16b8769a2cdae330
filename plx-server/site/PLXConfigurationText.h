#pragma once

#include <string>
#include <string_view>
#include <vector>

// A configuration file cut into sections, keys and values, each with its line; what they mean is decided
// elsewhere.
//
// The form is a small part of TOML: `key = value` lines, `[kind.name]` lines that begin a section, comments
// from "#" to the end of the line. A value is a text in double quotes (with \" and \\), a text in single
// quotes (as it stands), a bare word, or several of them in brackets, over as many lines as one likes.

struct PLXConfigurationValue {
  std::vector<std::string> texts;  // one unless it is a list
  bool isList = false;
  bool isRaw = false;  // of the command line, unquoted: a list is cut at its commas
};

struct PLXConfigurationEntry {
  std::string key;
  PLXConfigurationValue value;
  int line = 0;  // 0: the command line
};

struct PLXConfigurationSection {
  std::string kind;  // "" before the first section line
  std::string name;  // "demo" of [site.demo]
  int line = 0;
  bool isUnusable = false;  // the section line was none; its keys cannot be judged
  std::vector<PLXConfigurationEntry> entries;
};

struct PLXTextProblem {
  int line = 0;
  std::string problem;
  std::string remedy;
};

// Reads a whole file; the first section is the part before any section line. A line that cannot be read is
// reported and passed over. Linear in the text; any bytes will do.
std::vector<PLXConfigurationSection> ReadConfigurationText(std::string_view text_i,
                                                           std::vector<PLXTextProblem>& problems_o);

// Reads one value of the command line: as in a file when it begins with a bracket or quote, else as it
// stands.
PLXConfigurationValue ReadConfigurationValue(std::string_view text_i,
                                             std::vector<PLXTextProblem>& problems_o);

// A text in double quotes for a message: control characters escaped, cut when it is long.
std::string QuotedForPeople(std::string_view text_i);
