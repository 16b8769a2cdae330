#pragma once

#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "PLXAttachmentFolder.h"
#include "PLXStringUtility.h"

// Takes one message apart where it lies: parts are views of it, and only the texts that are handed back are
// copied. The message outlives the parser. One thread at a time.
class PLXMIMEParser : public PLXObject {
 public:
  PLXMIMEParser(PLXString const& folder_i, PLXTokenizedString const& patterns_i, PLXUInt32 maximumSize_i,
                PLXStringUtility::MessagePartList* results_io, bool isRepeated_i = false)
      : myFolder(folder_i, patterns_i, maximumSize_i, isRepeated_i), myResults(results_io) {}

  // These are the functions of PLXStringUtility, with `body_o`, which may be null, as the view that becomes
  // their body.
  bool ParsePart(std::string_view headers_i, std::string_view text_i, std::string_view* body_o);
  // Null when the delimiters are not found; nothing was taken then.
  std::optional<bool> ParseMultipart(std::string_view boundary_i, std::string_view text_i,
                                     std::string_view* body_o);

  // Adds what was found to the list of results: once, since a list moves all it has whenever it grows.
  void FillResults();

  // See PLXAttachmentFolder::Finish.
  bool FinishFiles() { return myFolder.Finish(); }

 private:
  struct HeaderFields;

  static HeaderFields ReadHeaderFields(std::string_view headers_i);
  bool StoreFile(HeaderFields const& fields_i, std::string_view text_i,
                 PLXAttachmentFolder::Encoding encoding_i);
  void AddText(std::string_view name_i, std::string_view text_i);

  PLXAttachmentFolder myFolder;
  PLXStringUtility::MessagePartList* myResults;  // may be null
  std::vector<std::pair<PLXString, PLXString>> myFound;
  int myDepth = 0;  // multiparts round the part at work
};
