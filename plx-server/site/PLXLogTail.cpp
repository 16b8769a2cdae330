#include "PLXLogTail.h"

#include <algorithm>
#include <fcntl.h>
#include <set>
#include <sys/stat.h>
#include <unistd.h>

#include "PLXUninterrupted.h"

namespace {

constexpr std::size_t kBlock = 64u << 10;
constexpr std::uint64_t kBytesMost = 16u << 20;  // a moment's reading, and more than a person looks through
constexpr std::size_t kLineMost = 4000;          // bytes that are shown
constexpr std::size_t kLevelStart = 24;          // behind "2026-11-24 01:55:19.123 "

char Lower(char byte_i) { return byte_i >= 'A' && byte_i <= 'Z' ? static_cast<char>(byte_i + 32) : byte_i; }

bool Holds(std::string_view line_i, std::string_view text_i) {
  return std::search(line_i.begin(), line_i.end(), text_i.begin(), text_i.end(),
                     [](char a, char b) { return Lower(a) == Lower(b); }) != line_i.end();
}

PLXLogLevel LevelOf(std::string_view line_i) {
  std::string_view const rest = line_i.size() > kLevelStart ? line_i.substr(kLevelStart) : "";
  if (rest.starts_with("failure ")) return PLXLogLevel::kFailure;
  if (rest.starts_with("error ")) return PLXLogLevel::kError;
  return rest.starts_with("warning ") ? PLXLogLevel::kWarning : PLXLogLevel::kNote;
}

class Reader {
 public:
  Reader(PLXLogQuery const& query_i, PLXLogExcerpt& excerpt_o) : myQuery(query_i), myExcerpt(excerpt_o) {}

  bool IsDone() const { return myExcerpt.lines.size() >= myQuery.lines || myBytes >= kBytesMost; }

  // Takes a file's lines from its end on. False when there is no such file.
  bool ReadFile(std::filesystem::path const& file_i) {
    int const file = PLXUninterrupted([&] { return ::open(file_i.c_str(), O_RDONLY | O_CLOEXEC); });
    if (file < 0) return false;
    struct stat state {};
    bool const isNew = ::fstat(file, &state) == 0 && mySeen.insert({state.st_dev, state.st_ino}).second;
    if (isNew) ReadLines(file, static_cast<std::uint64_t>(state.st_size));
    ::close(file);
    return true;
  }

 private:
  void ReadLines(int file_i, std::uint64_t end_i) {
    std::string text;  // of which the first line may begin further ahead
    while (end_i > 0 && !IsDone()) {
      std::size_t const size = static_cast<std::size_t>(std::min<std::uint64_t>(kBlock, end_i));
      std::string block(size, '\0');
      ssize_t const got = PLXUninterrupted(
          [&] { return ::pread(file_i, block.data(), size, static_cast<off_t>(end_i - size)); });
      if (got != static_cast<ssize_t>(size)) return;
      end_i -= size;
      myBytes += size;
      // Of a line that has no end only its start counts, and what is searched stays within bounds.
      if (text.size() <= kBytesMost / 16) block.append(text);
      text.swap(block);
      TakeLines(text);
    }
    if (end_i == 0 && !text.empty()) Take(text);
  }

  void TakeLines(std::string& text_io) {
    while (myExcerpt.lines.size() < myQuery.lines) {
      std::size_t const lineEnd = text_io.rfind('\n');
      if (lineEnd == std::string::npos) return;
      Take(std::string_view(text_io).substr(lineEnd + 1));
      text_io.resize(lineEnd);
    }
  }

  void Take(std::string_view line_i) {
    if (line_i.empty() || myExcerpt.lines.size() >= myQuery.lines) return;
    if (myQuery.log == "server" && LevelOf(line_i) < myQuery.level) return;
    if (!Holds(line_i, myQuery.text)) return;
    myExcerpt.lines.emplace_back(line_i.substr(0, kLineMost));
    if (line_i.size() > kLineMost)
      myExcerpt.lines.back() += "... (" + std::to_string(line_i.size()) + " bytes)";
  }

  PLXLogQuery const& myQuery;
  PLXLogExcerpt& myExcerpt;
  std::uint64_t myBytes = 0;
  std::set<std::pair<dev_t, ino_t>> mySeen;
};

}  // namespace

PLXLogExcerpt ReadLogTail(std::filesystem::path const& folder_i, PLXLogQuery const& query_i) {
  PLXLogExcerpt excerpt;
  Reader reader(query_i, excerpt);
  std::string const name(query_i.log);
  excerpt.isThere = reader.ReadFile(folder_i / (name + ".log"));
  // As spdlog names what it has rotated.
  for (unsigned number = 1; !reader.IsDone() && !excerpt.isWhole; ++number) {
    excerpt.isWhole = !reader.ReadFile(folder_i / (name + "." + std::to_string(number) + ".log"));
  }
  std::reverse(excerpt.lines.begin(), excerpt.lines.end());
  return excerpt;
}
