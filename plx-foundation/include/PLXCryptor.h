#pragma once

#include "PLXBuffer.h"
#include "PLXDataStream.h"
#include "PLXString.h"

// Encodings that carry binary data through mail and HTTP: Base64 (RFC 2045, section 6.8) and quoted-printable
// (section 6.7).
//
// Static functions only, without state: any thread may call them on data of its own. None fails, whatever the
// bytes. Time and memory are linear in the data.
class PLXCryptor {
 public:
  // ---- Base64 ----
  // Lines of 76 characters. The first two forms read the stream to its end and write the line end, CR LF
  // unless told otherwise, after every full line, also when it is the last.
  static PLXString Base64Encode(PLXDataStream& stream_io, PLXString const& lineEnd_i);
  static PLXString Base64Encode(PLXDataStream& stream_io);
  // These write CR LF between the lines and nothing after the last. Both warn on the standard error stream
  // when the text is not as long as foreseen: when it is whole lines only, or the stream ends before
  // `byteCount_i` bytes.
  static PLXString Base64Encode(PLXDataStream& stream_io, PLXUInt32 byteCount_i);
  static PLXString Base64Encode(PLXBuffer const& data_i);

  // Read the stream to its end into a buffer of just the bytes found. CR and LF are skipped between groups of
  // four characters; within one, and like any byte outside the alphabet, they count as "A". "=" as a group's
  // third or fourth character leaves out the second or third byte and ends nothing. A group cut short by the
  // end is dropped.
  static void Base64Decode(PLXDataStream& stream_io, PLXBuffer& data_o);
  // The line end changes nothing: CR and LF are skipped in any order.
  static void Base64Decode(PLXDataStream& stream_io, PLXString const& lineEnd_i, PLXBuffer& data_o);

  // ---- Quoted-printable ----
  // Lines are broken by "=" CR LF once they are longer than 72 columns. CR and LF pass; a blank or tab before
  // one is kept from being lost on the way by such a break.
  static PLXString QuotedPrintableEncode(PLXString const& text_i);
  // White space at the end of each line is removed, then "=" at its end joins it to the next. Digits of
  // either case are taken; any other byte after "=" counts as the digit 0. An "=" with fewer than two
  // characters after it in its line stays as text.
  static PLXString QuotedPrintableDecode(PLXString const& text_i);
};
