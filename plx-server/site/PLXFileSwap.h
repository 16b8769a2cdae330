#pragma once

#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

// A change of several files and folders that happens as a whole: each gets out of the way under another name,
// and what was made ready beside it takes its place. The plan is a file of the state folder. It counts from
// the moment in which it gets its name, "restore-plan"; whatever interrupts the work after that, whoever
// begins with the state folder next finishes it.
struct PLXFileSwap {
  std::filesystem::path ready;   // takes the place; empty when nothing does
  std::filesystem::path place;   // may be empty before
  std::filesystem::path former;  // the name under which is kept what was there
};

// Something that a plan could not do; the sentence names the file.
class PLXSwapError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The folder of the state in which a plan is prepared; what lies there without a plan is rubbish.
std::filesystem::path PLXSwapFolder(std::filesystem::path const& state_i);

// Writes down where things will be made ready, before they are, so that a process that dies meanwhile leaves
// nothing for good. Requires for all of these: the state's lock.
void PLXPrepareSwaps(std::filesystem::path const& state_i, std::vector<PLXFileSwap> const& swaps_i);
// From here on there is no way back.
void PLXCommitSwaps(std::filesystem::path const& state_i);
// Does what a plan says that counts, whoever made it; without one removes what was being prepared. True when
// there was one.
bool PLXFinishSwaps(std::filesystem::path const& state_i);
// Whether there is a plan that counts.
bool PLXHasUnfinishedSwaps(std::filesystem::path const& state_i);

// Any bytes as one line without blanks, and back: blanks, control characters and "%" become "%" and two
// digits.
std::string PLXEscapedName(std::string_view text_i);
std::string PLXUnescapedName(std::string_view text_i);
