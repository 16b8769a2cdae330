#pragma once

#include <deque>
#include <filesystem>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "PLXTagProcessor.h"

struct stat;

// A page cut into its pieces once: text, values and tags in document order. Immutable, shared by the requests
// that render it, any thread. Pieces point into the page's own text; cost is linear in it, whatever it holds.
//
// A tag that cannot be read (unclosed, or a body without its closing tag) is no error of the whole page: it
// becomes a problem box in its place, and what follows is read on.
class PLXPage {
 public:
  struct Piece;

  // Reads `text_i` as a page. Tags that `tags_i` does not know stay text.
  static std::shared_ptr<PLXPage const> Parse(std::string text_i, PLXTagProcessor const& tags_i);

  ~PLXPage();
  std::vector<Piece> const& Pieces() const { return myPieces; }
  std::string const& Text() const { return myText; }  // as it was parsed
  std::size_t Bytes() const;                          // of memory, roughly
  // Shown in less time than it takes to hand it to another thread, because it runs no tag and is not large.
  bool IsQuick() const { return myIsQuick; }

 private:
  PLXPage();
  friend class PLXPageParser;
  std::string myText;
  std::vector<Piece> myPieces;
  std::deque<std::string> myBoxes;  // problem boxes of the page's own faults
  bool myIsQuick = false;
};

// Runs a page: every tag in document order on this thread, values put in, a reported problem as a styled box
// with problem and remedy. What a tag wrote is never scanned again. Never throws but std::bad_alloc.
std::string RenderPage(PLXPage const& page_i, PLXTagProcessor& tags_i, PLXPageContext& context_io);

// A problem stands in the place of what the tag would show, or above what it shows all the same.
enum class PLXProblemBoxPlace { kInstead, kAbove };
// The box of a tag that reported a problem; both texts are HTML.
std::string ProblemBox(std::string_view problem_i, std::string_view remedy_i,
                       PLXProblemBoxPlace place_i = PLXProblemBoxPlace::kInstead);

// Text to HTML: & < > " and ' as entities, everything else as it is.
std::string EncodeHTML(std::string_view text_i);

// Pages by file, parsed again when size, time or inode of the file has changed. Any thread. Keeps pages up to
// `bytes` of memory, the least recently used go first.
class PLXPageCache {
 public:
  explicit PLXPageCache(PLXTagProcessor const& tags_i, std::size_t bytes_i = 64u << 20);
  ~PLXPageCache();

  // Null when the file cannot be read; a page over 64 MB is refused with a reason in the log.
  std::shared_ptr<PLXPage const> Get(std::filesystem::path const& file_i);
  // Null when the page is not kept as the file is now, of which this is the state. Reads nothing.
  std::shared_ptr<PLXPage const> GetKept(std::filesystem::path const& file_i, struct stat const& state_i) {
    return Find(file_i.native(), state_i);
  }

 private:
  struct Entry;
  std::shared_ptr<PLXPage const> Find(std::string const& file_i, struct stat const& state_i);
  void Store(Entry entry_i);

  PLXTagProcessor const& myTags;
  std::size_t const myLimit;
  std::mutex myMutex;  // guards all below
  std::size_t myBytes = 0;
  std::list<Entry> myEntries;  // the most recently used first
  std::unordered_map<std::string_view, std::list<Entry>::iterator> myEntryByFile;  // keys lie in the entries
};
