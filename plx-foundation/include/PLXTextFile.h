#pragma once

#include "PLXFile.h"

// A file of lines. A line ends with a line feed, a carriage return, or both in this order; what is written
// ends with kPlatformLineEnding.
//
// Lines are read ahead and held back, 64 kB at a time. Flush, Close and every operation of PLXFile pass on
// what is held back, and Lock forgets what was read ahead. A line that could not be stored after all shows in
// the next Flush or Close.
class PLXTextFile : public PLXFile {
 public:
  PLXTextFile() noexcept = default;
  PLXTextFile(PLXTextFile const&) = delete;
  PLXTextFile& operator=(PLXTextFile const&) = delete;
  ~PLXTextFile() override { Close(); }

  // As those of PLXFile, for another file than before.
  bool Create(PLXFileSpecification const& specification_i);
  bool Open(PLXFileSpecification const& specification_i, PLXUInt32 permission_i);

  // The line at the position without its end, be it the rest of a file that has no line end there. The
  // position is behind the line end afterwards. False, the line empty, when nothing is left.
  bool ReadLine(PLXString& line_o);
  // Empty for an empty line as well as at the end of the file.
  PLXString ReadLine();

  // Write at the position, over what is there, or at the end of the file; the position is behind the text
  // afterwards. False when this text, or any since Open, cannot be stored.
  bool WriteLine(PLXString const& text_i, bool addLineEnding_i = true);
  bool AppendLine(PLXString const& text_i);
  // Makes the file empty; the position becomes 0.
  bool Truncate();

  bool Flush() override;

 protected:
  void ForgetReadAhead() override { myReadAheadLength = 0; }

 private:
  bool HoldBack(PLXString const& text_i, bool addLineEnding_i, bool append_i);
  // Advances over the line end at the position, which is `character_i`.
  void SkipLineEnd(char character_i);
  PLXUInt32 LookAhead(char const*& text_o);

  PLXBuffer myReadAhead;
  PLXUInt32 myReadAheadOffset = 0;
  PLXUInt32 myReadAheadLength = 0;
  PLXString myHeldBack;
  PLXUInt32 myHeldBackOffset = 0;
  bool myHeldBackIsAppended = false;
  bool myHasLostText = false;
};
