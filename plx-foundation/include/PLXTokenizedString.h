#pragma once

#include "PLXString.h"
#include "TPLXArray.h"

// A text cut at every occurrence of a delimiter. Adjacent delimiters give empty tokens, one at the end an
// empty last token. Holds the text and the tokens' offsets; a token is copied out when it is asked for. One
// thread at a time.
class PLXTokenizedString : public PLXObject {
 public:
  static constexpr unsigned kIgnoreCase = 1;

  PLXTokenizedString() = default;
  PLXTokenizedString(PLXString const& source_i, PLXString const& delimiter_i, unsigned flags_i = 0) {
    Tokenize(source_i, delimiter_i, flags_i);
  }
  PLXTokenizedString(PLXTokenizedString const&) = default;
  PLXTokenizedString& operator=(PLXTokenizedString const&) = default;
  virtual ~PLXTokenizedString() = default;

  // False, and nothing changes, when either text is empty. A second call adds to the tokens: call Empty
  // before.
  bool Tokenize(PLXString const& source_i, PLXString const& delimiter_i, unsigned flags_i = 0);
  PLXUInt32 GetTokenCount() const noexcept { return myTokenStarts.GetElementCount(); }
  // Empty for an index beyond the last.
  PLXString GetToken(PLXUInt32 index_i) const;
  PLXString operator[](PLXUInt32 index_i) const { return GetToken(index_i); }
  void Empty();

 private:
  PLXString mySource;
  PLXString myDelimiter;
  TPLXArray<unsigned int> myTokenStarts;
};
