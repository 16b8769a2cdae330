#pragma once

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "EncoderTwins.h"
#include "PLXStringUtility.h"

// A message taken apart by each form of the parser, with what came of it.

struct MIMEOutcome {
  bool result = false;
  std::vector<std::pair<std::string, std::string>> entries;  // of the list of results
  std::map<std::string, std::string> files;                  // every name in the folder, also a hidden one
  bool operator==(MIMEOutcome const&) const = default;
};

// "true name=value <file>content"
inline std::string Shown(MIMEOutcome const& outcome_i) {
  std::string text = outcome_i.result ? "true" : "false";
  for (auto const& [name, value] : outcome_i.entries) text += " " + name + "=" + value;
  for (auto const& [name, content] : outcome_i.files) text += " <" + name + ">" + content;
  return text;
}

inline std::vector<std::pair<std::string, std::string>> Entries(PLXStringUtility::MessagePartList& list_i) {
  std::vector<std::pair<std::string, std::string>> entries;
  for (PLXUInt32 index = 0; index < list_i.GetNameArray().GetElementCount(); ++index) {
    entries.emplace_back(Std(list_i.GetNameArray()[index].GetString()), Std(list_i.GetValueArray()[index]));
  }
  return entries;
}

inline std::map<std::string, std::string> Files(std::filesystem::path const& folder_i) {
  std::map<std::string, std::string> files;
  if (!std::filesystem::is_directory(folder_i)) return files;
  for (auto const& entry : std::filesystem::directory_iterator(folder_i)) {
    std::string& content = files[entry.path().filename()] = "a folder";
    if (!entry.is_regular_file()) continue;
    std::ifstream file(entry.path(), std::ios::binary);
    content = {std::istreambuf_iterator<char>(file), {}};
  }
  return files;
}

// Delivers a message in blocks of changing sizes, and counts what it delivered.
struct MessageSource {
  std::string const& text;
  std::size_t position = 0;
  PLXUInt32 turn = 0;
  PLXUInt32 longest = 8192;  // block

  static bool Read(void* buffer_o, PLXUInt32& byteCount_io, void* context_i) {
    auto& source = *static_cast<MessageSource*>(context_i);
    std::size_t const size = std::min<std::size_t>(byteCount_io, source.turn++ * 977 % source.longest + 1);
    byteCount_io =
        static_cast<PLXUInt32>(source.text.copy(static_cast<char*>(buffer_o), size, source.position));
    source.position += byteCount_io;
    return source.position < source.text.size() || byteCount_io > 0;
  }
};

// What decides over a message besides the message.
struct MIMERules {
  std::filesystem::path folder = {};
  std::string patterns = ".*";  // separated by blanks
  PLXUInt32 maximumSize = 0;
  bool wantsResults = true;
};

inline MIMEOutcome ParseMultipart(std::string const& message_i, std::string const& boundary_i,
                                  MIMERules const& rules_i, std::string* body_o = nullptr) {
  PLXStringUtility::MessagePartList list;
  auto* const results = rules_i.wantsResults ? &list : nullptr;
  PLXString const message = Plx(message_i);
  PLXString const boundary = Plx(boundary_i);
  PLXString const folder(rules_i.folder.c_str());
  PLXTokenizedString const patterns(rules_i.patterns.c_str(), " ");
  PLXUInt32 const most = rules_i.maximumSize;
  bool result;
  if (body_o == nullptr) {
    result = PLXStringUtility::ParseMultipartMessage(message, boundary, 0, kPLXWholeLength, folder, patterns,
                                                     most, results);
  } else {
    PLXString body("old");
    result = PLXStringUtility::ParseMultipartMessage_ReturnBody(message, boundary, 0, kPLXWholeLength, folder,
                                                                patterns, most, results, body);
    *body_o = Std(body);
  }
  return {result, Entries(list), Files(rules_i.folder)};
}

inline MIMEOutcome ParseMultipartStream(MessageSource source_io, std::string const& boundary_i,
                                        MIMERules const& rules_i) {
  PLXStringUtility::MessagePartList list;
  PLXTokenizedString const patterns(rules_i.patterns.c_str(), " ");
  bool const result = PLXStringUtility::ParseMultipartMessageStream(
      MessageSource::Read, &source_io, Plx(boundary_i), 0, kPLXWholeLength, rules_i.folder.c_str(), patterns,
      rules_i.maximumSize, rules_i.wantsResults ? &list : nullptr);
  return {result, Entries(list), Files(rules_i.folder)};
}
