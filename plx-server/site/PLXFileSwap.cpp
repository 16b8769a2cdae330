#include "PLXFileSwap.h"

#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>
#include <unistd.h>

#include "PLXWholeFile.h"

namespace fs = std::filesystem;

namespace {

constexpr char kFolder[] = ".restoring";
constexpr char kPreparedPlan[] = "plan";
constexpr char kPlan[] = "restore-plan";
constexpr char kNothing[] = "-";

bool Exists(fs::path const& path_i) {
  std::error_code ignored;
  return fs::exists(fs::symlink_status(path_i, ignored));
}

void Move(fs::path const& from_i, fs::path const& to_i) {
  std::error_code error;
  fs::create_directories(to_i.parent_path(), error);
  if (::rename(from_i.c_str(), to_i.c_str()) != 0) {
    throw PLXSwapError(from_i.string() + ": cannot be renamed to " + to_i.string() + " (" +
                       std::strerror(errno) + ").");
  }
  PLXSyncFolder(from_i.parent_path());
  PLXSyncFolder(to_i.parent_path());
}

std::vector<PLXFileSwap> ReadPlan(fs::path const& file_i) {
  std::vector<PLXFileSwap> swaps;
  std::ifstream stream(file_i);
  for (std::string ready, place, former; stream >> ready >> place >> former;) {
    swaps.push_back({ready == kNothing ? "" : PLXUnescapedName(ready), PLXUnescapedName(place),
                     PLXUnescapedName(former)});
  }
  return swaps;
}

// What is done already shows: nothing is ready any more, or nothing is in its place.
void Do(PLXFileSwap const& swap_i) {
  if (!swap_i.ready.empty() && !Exists(swap_i.ready)) return;
  if (Exists(swap_i.place) && !Exists(swap_i.former)) Move(swap_i.place, swap_i.former);
  if (!swap_i.ready.empty()) Move(swap_i.ready, swap_i.place);
}

}  // namespace

fs::path PLXSwapFolder(fs::path const& state_i) { return state_i / kFolder; }

void PLXPrepareSwaps(fs::path const& state_i, std::vector<PLXFileSwap> const& swaps_i) {
  fs::path const folder = PLXSwapFolder(state_i);
  std::error_code error;
  fs::create_directories(folder, error);
  std::string text;
  for (PLXFileSwap const& swap : swaps_i) {
    text += (swap.ready.empty() ? kNothing : PLXEscapedName(swap.ready.native())) + " " +
            PLXEscapedName(swap.place.native()) + " " + PLXEscapedName(swap.former.native()) + "\n";
  }
  fs::path const file = folder / kPreparedPlan;
  if (!PLXReplaceFile(file, text)) {
    throw PLXSwapError(file.string() + ": the file cannot be written (" + std::strerror(errno) + ").");
  }
  PLXSyncFolder(state_i);
}

void PLXCommitSwaps(fs::path const& state_i) {
  Move(PLXSwapFolder(state_i) / kPreparedPlan, state_i / kPlan);
}

bool PLXHasUnfinishedSwaps(fs::path const& state_i) { return Exists(state_i / kPlan); }

bool PLXFinishSwaps(fs::path const& state_i) {
  fs::path const folder = PLXSwapFolder(state_i);
  bool const isPlanned = PLXHasUnfinishedSwaps(state_i);
  std::error_code ignored;
  if (isPlanned) {
    for (PLXFileSwap const& swap : ReadPlan(state_i / kPlan)) Do(swap);
  } else {
    for (PLXFileSwap const& swap : ReadPlan(folder / kPreparedPlan)) {
      if (!swap.ready.empty()) fs::remove_all(swap.ready, ignored);
    }
  }
  fs::remove_all(folder, ignored);
  if (!isPlanned) return false;
  if (::unlink((state_i / kPlan).c_str()) != 0) {
    throw PLXSwapError((state_i / kPlan).string() + ": cannot be removed (" + std::strerror(errno) + ").");
  }
  PLXSyncFolder(state_i);
  return true;
}

std::string PLXEscapedName(std::string_view text_i) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (char const character : text_i) {
    auto const byte = static_cast<unsigned char>(character);
    if (byte > ' ' && byte != 0x7F && byte != '%') {
      text.push_back(character);
    } else {
      text.append({'%', kDigits[byte >> 4], kDigits[byte & 15]});
    }
  }
  return text;
}

std::string PLXUnescapedName(std::string_view text_i) {
  std::string text;
  for (std::size_t at = 0; at < text_i.size(); ++at) {
    unsigned byte = 0;
    char const* const digits = text_i.data() + at + 1;
    if (text_i[at] == '%' && at + 2 < text_i.size() &&
        std::from_chars(digits, digits + 2, byte, 16).ptr == digits + 2) {
      text.push_back(static_cast<char>(byte));
      at += 2;
    } else {
      text.push_back(text_i[at]);
    }
  }
  return text;
}
