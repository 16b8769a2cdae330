#include "Fuzz.h"
#include "MIMEForms.h"
#include "TemporaryFolder.h"

// The first line is the boundary, the rest the message, or the headers and the text of one part.

namespace {

// Whatever the message says, its files are in the folder, visible and no longer than the message; and what
// the list says of them is so.
void CheckOutcome(MIMEOutcome const& outcome_i, std::string const& message_i) {
  std::size_t listed = 0;
  for (auto const& [name, content] : outcome_i.files) {
    Require(!name.empty() && name.front() != '.' && name.size() <= 255 && content.size() <= message_i.size());
    for (char const character : name)
      Require(static_cast<unsigned char>(character) >= ' ' && character != '\x7F');
    for (auto const& entry : outcome_i.entries) listed += entry.second == name ? 1 : 0;
  }
  Require(listed >= outcome_i.files.size());
  Require(outcome_i.entries.size() <= message_i.size());
}

void CheckMultipart(std::string const& boundary_i, std::string const& message_i,
                    TemporaryFolder const& folder_i) {
  MIMERules const whole{folder_i / "whole"};
  MIMERules const stream{folder_i / "stream"};
  MIMERules const withBody{folder_i / "body"};
  MIMEOutcome const outcome = ParseMultipart(message_i, boundary_i, whole);
  CheckOutcome(outcome, message_i);
  Require(ParseMultipartStream({message_i}, boundary_i, stream) == outcome);
  std::string body;
  Require(ParseMultipart(message_i, boundary_i, withBody, &body) == outcome);
  Require(message_i.find(body) != std::string::npos);
  // Text is lost to no split that failed.
  ForEachCut(message_i, [&](std::string_view cut_i) {
    std::string const cut(cut_i);
    MIMEOutcome const fromCut = ParseMultipart(cut, boundary_i, {}, &body);
    bool const isSplit = !boundary_i.empty() && cut.find("--" + boundary_i + "--") != std::string::npos;
    Require(isSplit || (!fromCut.result && fromCut.entries.empty() && body == cut));
    MessageSource bytes{cut, 0, 0, 1};
    Require(ParseMultipartStream(bytes, boundary_i, {}) == fromCut);
  });
}

void CheckPart(std::string const& message_i) {
  std::size_t const blankLine = std::min(message_i.find("\r\n\r\n"), message_i.size());
  PLXString const headers = Plx(message_i.substr(0, blankLine));
  PLXStringUtility::MessagePartList whole;
  PLXStringUtility::MessagePartList stream;
  auto const start = static_cast<PLXUInt32>(blankLine);
  PLXUInt32 const length = start % 64;
  bool const result =
      PLXStringUtility::ParseMessagePart(Plx(message_i), headers, start, length, "", {}, 0, &whole);
  MessageSource source{message_i};
  Require(PLXStringUtility::ParseMessagePartStream(MessageSource::Read, &source, headers, start, length, "",
                                                   {}, 0, &stream) == result);
  Require(Entries(whole) == Entries(stream));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data_i, std::size_t size_i) {
  std::string const text(reinterpret_cast<char const*>(data_i), size_i);
  std::size_t const lineEnd = text.find('\n');
  if (lineEnd == text.npos) return 0;
  std::string const message = text.substr(lineEnd + 1);
  TemporaryFolder const folder;
  CheckMultipart(text.substr(0, lineEnd), message, folder);
  CheckPart(message);
  return 0;
}
