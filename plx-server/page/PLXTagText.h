#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "PLXTagProcessor.h"

// The grammar inside one tag and one value reference, as pure functions over the page's text. Any bytes may
// come in. What is read refers into the text, which must outlive it.

enum class PLXValueKind : std::uint8_t { kPost, kPath, kVariable, kCookie, kCGI, kField, kRecords };

// "&plxPost.NAME;" and its like.
struct PLXValueReference {
  PLXValueKind kind = PLXValueKind::kPost;
  std::string_view name;
};

// Reads the reference that begins at `offset_i`, where a "&" stands. Its length, or 0 when there is none: an
// unknown kind, a name that is empty, longer than 255 bytes or of other bytes than letters, digits, "_", "-",
// "." and blanks. The name of a field may have apostrophes and bytes beyond ASCII, too.
std::size_t ReadValueReference(std::string_view text_i, std::size_t offset_i, PLXValueReference& value_o);

// The length of the tag name at `offset_i`: "plx" in any letter case and letters, digits, "_" or "-". 0 when
// none begins there.
std::size_t ReadTagName(std::string_view text_i, std::size_t offset_i);

// A tag as it will run, with the places where values are put in. Values go in when it runs, after entities
// have been decoded, so nothing that a visitor sent is read as an entity or as another value.
struct PLXTagTemplate {
  struct Insertion {
    std::uint32_t parameter;  // index into occurrence.parameters
    std::uint32_t offset;     // in that parameter's value
    PLXValueReference value;
  };
  PLXTagOccurrence occurrence;
  std::vector<Insertion> insertions;  // in order of parameter and offset
  bool encloses = false;
  bool isRecords = false;  // the server's own loop
};

enum class PLXTagFault { kNone, kNotClosed, kQuoteNotClosed, kQuoteMisplaced, kNameMissing };

// Reads what follows a tag's name up to and with its ">" into `tag_o`: parameters with quoted, bare or no
// values, entities decoded. `end_o` is the offset after it and `isEmpty_o` whether it ended in "/>". With a
// fault, `end_o` is where the page goes on: after the first ">", or where the next "<" stands.
//
// Outside quotes a quotation mark may only begin a value, and "<" may not stand at all. That finds the place
// where a person forgot something, and it also bounds the work: of several tags that are read across the same
// bytes, each is in another state (outside, in ", in '), so no byte is read more than three times.
PLXTagFault ReadTagParameters(std::string_view text_i, std::size_t offset_i, PLXTagTemplate& tag_o,
                              std::size_t& end_o, bool& isEmpty_o);
