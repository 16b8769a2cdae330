#include "PLXPage.h"

#include <algorithm>
#include <cstring>

#include "PLXASCII.h"
#include "PLXModuleAPI.h"
#include "PLXPagePieces.h"

// The parser goes over the text once. Text runs until something in it is no text; enclosing tags wait on a
// stack for their closing tags. A closing tag ends the innermost open tag of its name, and the tags that were
// opened inside it and not closed turn into problem boxes in their places: their bodies are page again.

namespace {

constexpr std::string_view kTagDoNotProcess = "plxDoNotProcess";
PLXTagProcessor::Tag const ourRecordsTag{"plxRecords", kPLXTagFlag_EnclosesBody};

std::size_t FindClosingTag(std::string_view text_i, std::string_view name_i, std::size_t offset_i) {
  for (std::size_t at = text_i.find("</", offset_i); at != std::string_view::npos;
       at = text_i.find("</", at + 2)) {
    if (EqualIgnoringCase(text_i.substr(at + 2, ReadTagName(text_i, at + 2)), name_i)) return at;
  }
  return std::string_view::npos;
}

std::string TagHTML(std::string_view name_i) { return "&lt;" + EncodeHTML(name_i) + "&gt;"; }

}  // namespace

bool IsServerTag(std::string_view name_i) {
  return EqualIgnoringCase(name_i, kTagDoNotProcess) || EqualIgnoringCase(name_i, ourRecordsTag.name);
}

PLXPage::PLXPage() = default;
PLXPage::~PLXPage() = default;

class PLXPageParser {
 public:
  PLXPageParser(PLXPage& page_io, PLXTagProcessor const& tags_i)
      : myPage(page_io), myTags(tags_i), myText(page_io.myText) {
    myOpen.emplace_back();  // the page itself
  }

  void Parse() {
    std::size_t offset = 0;
    while ((offset = NextSpecial(offset)) < myText.size()) {
      offset = myText[offset] == '&' ? ReadValue(offset) : ReadMarkup(offset);
    }
    FlushText(myText.size());
    while (myOpen.size() > 1) FailInnermost();
  }

 private:
  using Tag = PLXTagProcessor::Tag;

  // A tag that waits for its closing tag; the first entry is the page itself.
  struct Open {
    Tag const* tag = nullptr;
    std::size_t piece = 0;
    // Openings in this body that opened nothing (faulty or too deep): their closing tags close nothing.
    std::vector<std::pair<Tag const*, std::size_t>> orphans;
  };

  std::size_t NextSpecial(std::size_t offset_i) const {
    char const* const begin = myText.data();
    std::size_t offset = offset_i;
    while (offset < myText.size() && begin[offset] != '<' && begin[offset] != '&') ++offset;
    return offset;
  }

  // Each Read function gets the offset of a "<" or "&" and returns where to go on.
  std::size_t ReadValue(std::size_t offset_i) {
    PLXValueReference value;
    std::size_t const length = ReadValueReference(myText, offset_i, value);
    if (length == 0) return offset_i + 1;
    FlushText(offset_i);
    PLXPage::Piece& piece = AddPiece(PLXPage::Piece::Kind::kValue);
    piece.valueKind = value.kind;
    piece.text = value.name;
    return myTextBegin = offset_i + length;
  }

  std::size_t ReadMarkup(std::size_t offset_i) {
    std::string_view const rest = myText.substr(offset_i + 1);
    if (rest.starts_with("!--")) return SkipComment(offset_i);
    bool const closes = rest.starts_with('/');
    std::size_t const nameBegin = offset_i + (closes ? 2 : 1);
    std::size_t const nameLength = ReadTagName(myText, nameBegin);
    if (nameLength == 0) return offset_i + 1;

    std::string_view const name = myText.substr(nameBegin, nameLength);
    std::size_t const nameEnd = nameBegin + nameLength;
    if (!closes && EqualIgnoringCase(name, kTagDoNotProcess)) return ReadUntouched(offset_i, nameEnd);
    Tag const* const tag = FindTag(name);
    if (tag == nullptr) return nameEnd;
    FlushText(offset_i);
    myTextBegin = closes ? ReadClosingTag(offset_i, nameEnd, *tag) : ReadOpeningTag(offset_i, nameEnd, *tag);
    return myTextBegin;
  }

  Tag const* FindTag(std::string_view name_i) const {
    if (EqualIgnoringCase(name_i, ourRecordsTag.name)) return &ourRecordsTag;
    return IsServerTag(name_i) ? nullptr : myTags.FindTag(name_i);
  }

  // Pages comment tags out, so what a comment holds stays as it is. One that never ends reaches to the end.
  std::size_t SkipComment(std::size_t offset_i) const {
    std::size_t const end = myText.find("-->", offset_i + 2);
    return end == std::string_view::npos ? myText.size() : end + 3;
  }

  std::size_t ReadUntouched(std::size_t offset_i, std::size_t nameEnd_i) {
    FlushText(offset_i);
    PLXTagTemplate ignored;
    std::size_t end = 0;
    bool isEmpty = false;
    PLXTagFault const fault = ReadTagParameters(myText, nameEnd_i, ignored, end, isEmpty);
    if (fault != PLXTagFault::kNone) {
      AddFault(fault, kTagDoNotProcess, offset_i);
      return myTextBegin = end;
    }
    if (isEmpty) return myTextBegin = end;

    std::size_t const close =
        myNothingCloses ? std::string_view::npos : FindClosingTag(myText, kTagDoNotProcess, end);
    std::size_t const closeEnd = close == std::string_view::npos ? close : myText.find('>', close);
    if (closeEnd == std::string_view::npos) {
      // Looking again after the next opening would make a page of openings quadratic.
      myNothingCloses = true;
      AddMissingClosing(kTagDoNotProcess, LineOf(offset_i));
      return myTextBegin = end;
    }
    myTextBegin = end;
    FlushText(close);
    return myTextBegin = closeEnd + 1;
  }

  std::size_t ReadOpeningTag(std::size_t offset_i, std::size_t nameEnd_i, Tag const& tag_i) {
    auto read = std::make_unique<PLXTagTemplate>();
    std::size_t end = 0;
    bool isEmpty = false;
    PLXTagFault const fault = ReadTagParameters(myText, nameEnd_i, *read, end, isEmpty);
    bool const encloses = (tag_i.flags & kPLXTagFlag_EnclosesBody) != 0;
    if (fault != PLXTagFault::kNone) {
      AddFault(fault, tag_i.name, offset_i);
      if (encloses) AddOrphan(tag_i);
      return end;
    }
    read->occurrence.name = tag_i.name;
    read->occurrence.line = LineOf(offset_i);
    read->encloses = encloses && !isEmpty;
    read->isRecords = &tag_i == &ourRecordsTag;
    if (read->encloses && myOpen.size() > kPageBody_MaximumDepth) {
      AddTooDeep(tag_i, offset_i);
      return end;
    }
    PLXPage::Piece& piece =
        AddPiece(&tag_i == &ourRecordsTag ? PLXPage::Piece::Kind::kRecords : PLXPage::Piece::Kind::kTag);
    piece.end = static_cast<std::uint32_t>(myPage.myPieces.size());
    bool const opens = read->encloses;
    piece.tag = std::move(read);
    if (opens) {
      Open& open = myOpen.emplace_back();
      open.tag = &tag_i;
      open.piece = myPage.myPieces.size() - 1;
    }
    return end;
  }

  std::size_t ReadClosingTag(std::size_t offset_i, std::size_t nameEnd_i, Tag const& tag_i) {
    std::size_t end = nameEnd_i;
    while (end < myText.size() && std::strchr(" \t\r\n\f", myText[end]) != nullptr && myText[end] != '\0')
      ++end;
    bool const isClosed = end < myText.size() && myText[end] == '>';
    if (isClosed) ++end;
    CloseTag(tag_i, offset_i);
    if (!isClosed) AddFault(PLXTagFault::kNotClosed, "/" + tag_i.name, offset_i);
    return end;
  }

  void CloseTag(Tag const& tag_i, std::size_t offset_i) {
    // A tag without a body closed as XML wants it: nothing to say.
    if ((tag_i.flags & kPLXTagFlag_EnclosesBody) == 0 || TakeOrphan(tag_i)) return;
    auto const found =
        std::find_if(myOpen.rbegin(), myOpen.rend(), [&](Open const& open) { return open.tag == &tag_i; });
    if (found == myOpen.rend()) {
      AddProblem("The closing tag " + TagHTML("/" + tag_i.name) + " on line " +
                     std::to_string(LineOf(offset_i)) + " has no opening tag.",
                 "Remove it, or put the opening tag " + TagHTML(tag_i.name) + " before the text to enclose.");
      return;
    }
    auto const depth = static_cast<std::size_t>(myOpen.rend() - found);
    while (myOpen.size() > depth) FailInnermost();
    myPage.myPieces[myOpen.back().piece].end = static_cast<std::uint32_t>(myPage.myPieces.size());
    myOpen.pop_back();
  }

  // The innermost open tag has no closing tag: a box takes its place, its body belongs to what is around it.
  void FailInnermost() {
    PLXPage::Piece& piece = myPage.myPieces[myOpen.back().piece];
    PLXTagOccurrence const& tag = piece.tag->occurrence;
    piece.text = MissingClosingBox(tag.name, tag.line);
    piece.kind = PLXPage::Piece::Kind::kText;
    piece.tag.reset();
    myOpen.pop_back();
  }

  void AddOrphan(Tag const& tag_i) {
    auto& orphans = myOpen.back().orphans;
    auto const found =
        std::find_if(orphans.begin(), orphans.end(), [&](auto& o) { return o.first == &tag_i; });
    if (found == orphans.end()) {
      orphans.emplace_back(&tag_i, 1);
    } else {
      ++found->second;
    }
  }

  bool TakeOrphan(Tag const& tag_i) {
    auto& orphans = myOpen.back().orphans;
    auto const found =
        std::find_if(orphans.begin(), orphans.end(), [&](auto& o) { return o.first == &tag_i; });
    if (found == orphans.end() || found->second == 0) return false;
    --found->second;
    return true;
  }

  void AddTooDeep(Tag const& tag_i, std::size_t offset_i) {
    AddProblem(
        "The " + TagHTML(tag_i.name) + " tag on line " + std::to_string(LineOf(offset_i)) +
            " stands inside more than " + std::to_string(kPageBody_MaximumDepth) + " enclosing tags.",
        "Check whether the tags before it lack their closing tags, or enclose fewer tags in each other.");
    AddOrphan(tag_i);
  }

  void AddFault(PLXTagFault fault_i, std::string_view name_i, std::size_t offset_i) {
    std::string const tag = "The " + TagHTML(name_i) + " tag on line " + std::to_string(LineOf(offset_i));
    switch (fault_i) {
      case PLXTagFault::kQuoteNotClosed:
        AddProblem(tag + " has a value whose quotation mark is never closed.",
                   "Put the same quotation mark after the value as before it.");
        break;
      case PLXTagFault::kQuoteMisplaced:
        AddProblem(
            tag + " has a quotation mark where none can stand.",
            "Check whether a value before it lacks its second quotation mark, and write a quotation mark "
            "inside a value as &amp;quot; or use the other kind around it.");
        break;
      case PLXTagFault::kNameMissing:
        AddProblem(tag + " has a value without a parameter name.",
                   "Write each parameter as name=&quot;value&quot;.");
        break;
      case PLXTagFault::kNotClosed:
      case PLXTagFault::kNone:
        AddProblem(tag + " is never closed by &quot;&gt;&quot;.",
                   "Put a &quot;&gt;&quot; at the end of the tag.");
        break;
    }
  }

  std::string_view MissingClosingBox(std::string_view name_i, int line_i) {
    return Box("The " + TagHTML(name_i) + " tag on line " + std::to_string(line_i) +
                   " encloses text, but its closing tag is missing.",
               "Put " + TagHTML("/" + std::string(name_i)) + " after the text that the tag encloses.");
  }

  void AddMissingClosing(std::string_view name_i, int line_i) {
    std::string_view const box = MissingClosingBox(name_i, line_i);
    AddPiece(PLXPage::Piece::Kind::kText).text = box;
  }

  void AddProblem(std::string const& problem_i, std::string const& remedy_i) {
    std::string_view const box = Box(problem_i, remedy_i);
    if (!box.empty()) AddPiece(PLXPage::Piece::Kind::kText).text = box;
  }

  // A page of nothing but faults would otherwise grow to many times its size.
  std::string_view Box(std::string const& problem_i, std::string const& remedy_i) {
    if (myPage.myBoxes.size() > kPageProblems_Maximum) return {};
    if (myPage.myBoxes.size() == kPageProblems_Maximum) {
      return myPage.myBoxes.emplace_back(
          ProblemBox("This page has more problems than are shown.", "Correct those above first."));
    }
    return myPage.myBoxes.emplace_back(ProblemBox(problem_i, remedy_i));
  }

  PLXPage::Piece& AddPiece(PLXPage::Piece::Kind kind_i) {
    PLXPage::Piece& piece = myPage.myPieces.emplace_back();
    piece.kind = kind_i;
    return piece;
  }

  void FlushText(std::size_t end_i) {
    if (end_i <= myTextBegin) return;
    AddPiece(PLXPage::Piece::Kind::kText).text = myText.substr(myTextBegin, end_i - myTextBegin);
    myTextBegin = end_i;
  }

  // Asked for growing offsets only, so counting is linear over the page.
  int LineOf(std::size_t offset_i) {
    if (offset_i > myLineOffset) {
      std::string_view const passed = myText.substr(myLineOffset, offset_i - myLineOffset);
      myLine += static_cast<int>(std::count(passed.begin(), passed.end(), '\n'));
      myLineOffset = offset_i;
    }
    return myLine;
  }

  PLXPage& myPage;
  PLXTagProcessor const& myTags;
  std::string_view const myText;
  std::vector<Open> myOpen;
  std::size_t myTextBegin = 0;   // of the text that is not yet a piece
  bool myNothingCloses = false;  // no </plxDoNotProcess> follows
  int myLine = 1;
  std::size_t myLineOffset = 0;
};

std::shared_ptr<PLXPage const> PLXPage::Parse(std::string text_i, PLXTagProcessor const& tags_i) {
  std::shared_ptr<PLXPage> page(new PLXPage);
  page->myText = std::move(text_i);
  PLXPageParser(*page, tags_i).Parse();
  page->myPieces.shrink_to_fit();
  page->myIsQuick =
      page->Bytes() <= kQuickPage_MaximumBytes &&
      std::ranges::none_of(page->myPieces, [](Piece const& piece) { return piece.tag != nullptr; });
  return page;
}
