#include "PLXBackupManifest.h"

#include <algorithm>
#include <charconv>
#include <fstream>
#include <sstream>
#include <vector>

#include "PLXFileSwap.h"

namespace fs = std::filesystem;

namespace {

constexpr char kFirstWord[] = "PLXServerBackup";
constexpr std::string_view kPlacePrefix = "place.";

template <typename Number>
bool ReadNumber(std::string const& text_i, Number& number_o) {
  auto const [end, error] = std::from_chars(text_i.data(), text_i.data() + text_i.size(), number_o);
  return error == std::errc() && end == text_i.data() + text_i.size();
}

// In one of the folders that a backup has, and nowhere else.
bool IsInside(std::string const& path_i) {
  fs::path const path = path_i;
  bool const isKnown =
      path_i.starts_with("state/") || path_i.starts_with("sites/") || path_i.starts_with("reference/");
  return isKnown && std::all_of(path.begin(), path.end(), [](fs::path const& step) {
           return !step.empty() && step != "." && step != "..";
         });
}

bool IsBelowRoot(std::string const& path_i) {
  fs::path const path = path_i;
  return !path.empty() && !path.is_absolute() &&
         std::none_of(path.begin(), path.end(), [](fs::path const& step) { return step == ".."; });
}

class Reader {
 public:
  explicit Reader(fs::path const& file_i) : myFile(file_i), myStream(file_i) {
    if (!myStream) {
      throw PLXBackupError(file_i.parent_path().string() +
                           " is no backup: there is no file \"manifest\" in it that can be read.");
    }
  }
  // The words of the next line; false at an empty one.
  bool Next(std::vector<std::string>& words_o) {
    std::string line, word;
    if (!std::getline(myStream, line)) Fail("it is cut short");
    words_o.clear();
    for (std::istringstream words(line); words >> word;) words_o.push_back(PLXUnescapedName(word));
    return !words_o.empty();
  }
  [[noreturn]] void Fail(std::string const& what_i) const {
    throw PLXBackupError(myFile.string() + ": " + what_i + ". Use another backup.");
  }

 private:
  fs::path const myFile;
  std::ifstream myStream;
};

void ReadHead(Reader& reader_io, PLXBackupManifest& manifest_io) {
  std::vector<std::string> words;
  int format = 0;
  if (!reader_io.Next(words) || words.size() != 2 || words[0] != kFirstWord ||
      !ReadNumber(words[1], format)) {
    reader_io.Fail("it is not the manifest of a backup");
  }
  if (format > PLXBackupManifest::kFormat) reader_io.Fail("a newer PLX Server made this backup");
  while (reader_io.Next(words)) {
    std::string const& name = words[0];
    if (name.starts_with(kPlacePrefix) && words.size() == 3 && IsBelowRoot(words[2])) {
      manifest_io.places["sites/" + name.substr(kPlacePrefix.size())] = {words[1], words[2]};
    } else if (words.size() != 2) {
      reader_io.Fail("the line \"" + name + "\" cannot be read");
    } else if (name == "made") {
      manifest_io.made = words[1];
    } else if (name == "server") {
      manifest_io.server = words[1];
    } else if (name == "records") {
      manifest_io.hasRecords = words[1] == "sqlite";
    } else if (name == "state-version" && !ReadNumber(words[1], manifest_io.stateVersion)) {
      reader_io.Fail("the line \"" + name + "\" cannot be read");
    }
  }
}

}  // namespace

std::uint64_t PLXBackupManifest::Bytes() const {
  std::uint64_t bytes = 0;
  for (auto const& [path, file] : files) bytes += file.size;
  return bytes;
}

std::string PLXBackupManifest::Text() const {
  std::string text = std::string(kFirstWord) + " " + std::to_string(kFormat) + "\nmade " + made +
                     "\nserver " + PLXEscapedName(server) + "\nstate-version " +
                     std::to_string(stateVersion) + "\nrecords " + (hasRecords ? "sqlite" : "odbc") + "\n";
  for (auto const& [folder, place] : places) {
    text += std::string(kPlacePrefix) + folder.substr(folder.find('/') + 1) + " " +
            PLXEscapedName(place.site) + " " + PLXEscapedName(place.path) + "\n";
  }
  text += "\n";
  for (auto const& [path, file] : files) {
    text += file.digest + " " + std::to_string(file.size) + " " + PLXEscapedName(path) + "\n";
  }
  return text + "end " + std::to_string(files.size()) + "\n";
}

PLXBackupManifest PLXBackupManifest::Read(fs::path const& backup_i) {
  Reader reader(backup_i / kName);
  PLXBackupManifest manifest;
  ReadHead(reader, manifest);
  for (std::vector<std::string> words;;) {
    reader.Next(words);
    if (words.size() == 2 && words[0] == "end") {
      std::size_t count = 0;
      if (!ReadNumber(words[1], count) || count != manifest.files.size())
        reader.Fail("its end is not its own");
      return manifest;
    }
    PLXTreeCopy::File file;
    if (words.size() != 3 || !ReadNumber(words[1], file.size) || !IsInside(words[2])) {
      reader.Fail("one of its lines cannot be read");
    }
    file.digest = words[0];
    manifest.files[words[2]] = file;
  }
}
