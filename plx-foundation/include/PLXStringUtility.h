#pragma once

#include "PLXString.h"
#include "PLXStringID.h"
#include "PLXTokenizedString.h"
#include "TPLXNameValuePairList.h"

class PLXFileSpecification;

// Transformations of text for the web: URL and HTML encoding, backslash escapes, hexadecimal dumps, numbers
// as text, the allow/deny check of an IPv4 address, the choice of a free file name and the splitting of MIME
// messages.
//
// Static functions only, without state: any thread may call them on strings of its own. Text is bytes; where
// a byte means a letter beyond ASCII it is ISO 8859-1. Every function costs time linear in its text. What
// cannot be decoded stays in the text as it is.
class PLXStringUtility {
 public:
  // ---- URLs (RFC 3986, section 2.1) ----
  // Writes blanks and the characters with a meaning in URLs as "%" and two capital hexadecimal digits; "/",
  // ":" and
  // "~" only with `encodeAll_i`. Control characters and bytes above 0x7E stay. True when anything was
  // encoded.
  static bool URLEncode(PLXString& string_io, bool encodeAll_i = false);
  static PLXString GetURLEncodedString(PLXString const& string_i, bool encodeAll_i = false);
  // Turns "+" into a blank, then escapes into bytes from the end to the beginning, so that decoded
  // hexadecimal digits count for a "%" to their left ("%%34%31" gives "A") while a decoded "%" begins no
  // escape ("%2541" gives "%41"). True when anything was decoded.
  static bool URLDecode(PLXString& string_io);
  static PLXString GetURLDecodedString(PLXString const& string_i);

  // ---- HTML ----
  // "&", "<", ">", the double quotation mark and 0xA0 to 0xFF become entities; 0x80 to 0x9F become "&#" and
  // three decimal digits without a semicolon.
  static PLXString GetHTMLEncodedString(PLXString const& string_i);
  // Turns the same entities, letter case observed, into bytes, each once: "&amp;lt;" gives "&lt;". Numeric
  // references and other names stay.
  static void HTMLDecode(PLXString& string_io);
  static PLXString GetHTMLDecodedString(PLXString const& string_i);

  // ---- Backslash escapes ----
  // Tab, line feed, vertical tab, carriage return and backslash become \t, \n, \v, \r and two backslashes.
  static void EscapeString(PLXString& string_io);
  static PLXString GetEscapedString(PLXString const& string_i);
  // The way back. With `decodeNumbers_i` a backslash and three decimal digits, the first of them 0, 1 or 2,
  // become the byte of that number modulo 256.
  static void UnescapeString(PLXString& string_io, bool decodeNumbers_i);
  static PLXString GetUnescapedString(PLXString const& string_i, bool decodeNumbers_i);

  // ---- Hexadecimal dumps ----
  // Each byte as two capital digits.
  static PLXString GetHexCodesFromString(PLXString const& string_i);
  // Takes digits of either case in pairs. A byte that is no digit counts as 0; an odd digit at the end is
  // dropped.
  static PLXString GetStringFromHexCodes(PLXString const& string_i);

  // ---- Numbers ----
  // In capital digits of a radix of 2 to 36, filled with zeros on the left. Empty for any other radix. A
  // minimum of 0 warns on the standard error stream and counts as 1.
  static PLXString GetStringRepresentation(unsigned int value_i, unsigned radix_i = 10,
                                           unsigned minimumDigitCount_i = 1);
  // The same with "-" before a negative value; the minimum counts digits only.
  static PLXString GetStringRepresentation(int value_i, unsigned radix_i = 10,
                                           unsigned minimumDigitCount_i = 1);
  // With a point and `digits_i` decimals whatever the locale, filled with blanks on the left to four
  // characters.
  static PLXString GetStringRepresentation(double value_i, unsigned digits_i);
  // The number at the start of the trimmed text, modulo 2^32; 0 without digits or for a radix above 36. In
  // radix 10 commas between the digits are skipped and any other character ends the number. In other radixes
  // a character's digit is its distance from "0", beyond "@" from "7", and a digit not below the radix ends
  // the number, so that characters below "0" count as negative digits.
  static int GetNumericalRepresentation(PLXString const& string_i, unsigned radix_i);
  // The floating-point number at the start of the text, with a point whatever the locale; 0 when there is
  // none.
  static double GetNumericalRepresentation(PLXString const& string_i);

  // ---- Character classes: ASCII in every locale ----
  static bool IsDigit(char character_i) noexcept { return character_i >= '0' && character_i <= '9'; }
  static bool IsAlpha(char character_i) noexcept {
    return (character_i >= 'a' && character_i <= 'z') || (character_i >= 'A' && character_i <= 'Z');
  }
  static bool IsAlphaDigit(char character_i) noexcept { return IsAlpha(character_i) || IsDigit(character_i); }

  // ---- Validation ----
  // Whether the rules, one a token, allow a dotted IPv4 address. A rule is an action, "a" for allow and
  // anything else for deny, a colon and a pattern of four parts of which any may be "*". The rule whose equal
  // parts weigh most decides (the first part 8, then 4, 2 and 1); on a tie the first, or a later "d" when the
  // first allows. False when no rule matches, or for an address that is not four parts. `matchedPattern_o`
  // receives the pattern that decided, empty when none did. Rules of another shape are passed over.
  static bool ValidateIP(PLXString const& address_i, PLXTokenizedString const& rules_i,
                         PLXString* matchedPattern_o = nullptr);

  // ---- Files ----
  // Moves the specification to a name that no file in its folder has, by a number before the extension:
  // report.txt, report1.txt, report2.txt and so on. False for an empty name. Requires: the folder exists.
  static bool FindAvailableFilename(PLXFileSpecification& file_io);

  // ---- MIME messages (RFC 2046, section 5.1; RFC 2183) ----
  // Mail and multipart forms, taken apart: texts of named parts go to a list, files to a folder. A part is
  // `length_i` bytes from `start_i`, clamped to the message; its headers are given without the blank line.
  // Malformed parts and files that cannot be stored are passed over without a word.
  //
  // A file, an attachment or an upload of a form, is stored when one of the regular expressions `patterns_i`
  // is found in its name, when its part is no longer than `maximumSize_i` KiB (0 means no limit) and when
  // `folder_i`, made where it is missing, is not empty. Base64 attachments are decoded; everything else is
  // stored as it stands. A file appears under its name when it is complete, never in part. The name is the
  // last component of the one in the message, with "_" for control characters and for a dot in front, at most
  // 245 bytes with its extension kept, and with a number in it where files have it already. What the file
  // holds is as its sender wished: a folder that a server shows must not be one whose files it runs.
  //
  // `results_io`, which may be null, gains for each file its part's name and the name of the file, and where
  // the message had another that one as name + "_Original"; for other named parts name and text. Names ignore
  // letter case. Form fields and files are taken only with a list.
  //
  // Multiparts within multiparts are taken apart to a depth of 100. One that is deeper, and one whose
  // delimiters are not found, is a part like any other. Time is linear in the message for each depth.
  typedef TPLXNameValuePairList<PLXStringID, PLXString> MessagePartList;

  // Takes one part. False when there was nothing in it to take; also for a form's field, which is taken. A
  // multipart answers as ParseMultipartMessage does.
  static bool ParseMessagePart(PLXString const& message_i, PLXString const& headers_i, PLXUInt32 start_i,
                               PLXUInt32 length_i, PLXString const& folder_i,
                               PLXTokenizedString const& patterns_i, PLXUInt32 maximumSize_i,
                               MessagePartList* results_io);
  // Takes the parts between the delimiters "--" + boundary, up to the last that "--" follows. False when
  // there is none of those, or no boundary; otherwise the answer of the last part, true without parts. Parts
  // from the first that has no blank line on are passed over.
  static bool ParseMultipartMessage(PLXString const& message_i, PLXString const& boundary_i,
                                    PLXUInt32 start_i, PLXUInt32 length_i, PLXString const& folder_i,
                                    PLXTokenizedString const& patterns_i, PLXUInt32 maximumSize_i,
                                    MessagePartList* results_io);

  // The same, and `body_io` becomes the text of the part, undecoded, when it is neither a form's field nor an
  // attachment; a multipart counts as text, and is taken apart as well. `body_io` may be the message.
  static bool ParseMessagePart_ReturnBody(PLXString const& message_i, PLXString const& headers_i,
                                          PLXUInt32 start_i, PLXUInt32 length_i, PLXString const& folder_i,
                                          PLXTokenizedString const& patterns_i, PLXUInt32 maximumSize_i,
                                          MessagePartList* results_io, PLXString& body_io);
  // How the files of a message are to be stored, and what became of it.
  struct FileStoring {
    bool isRepeated = false;  // an earlier try may have stored some: one with the name and the bytes is it
    bool hasFailed = false;   // afterwards: a file that was wanted is not on the disk for certain
  };
  // `body_o` becomes the body of the last part that has one. It is empty when there are only attachments, and
  // the whole range as it was received when no part was found. `body_o` may be the message.
  static bool ParseMultipartMessage_ReturnBody(PLXString const& message_i, PLXString const& boundary_i,
                                               PLXUInt32 start_i, PLXUInt32 length_i,
                                               PLXString const& folder_i,
                                               PLXTokenizedString const& patterns_i, PLXUInt32 maximumSize_i,
                                               MessagePartList* results_io, PLXString& body_o,
                                               FileStoring* storing_io = nullptr);

  // Puts up to `byteCount_io` bytes of a message into the buffer and says in `byteCount_io` how many. The
  // message ends with false or 0 bytes; until then any number will do. Asked for at most 8192.
  typedef bool (*MessageReadCallback)(void* buffer_o, PLXUInt32& byteCount_io, void* context_i);

  // The same for a message that is read from a callback, and exactly with the results of the forms above.
  // Reads no further than `start_i` + `length_i`, all of it before anything is stored, since the last
  // delimiter decides; what is longer than 1 MiB waits in a temporary file. False, with nothing taken, when
  // that has no room. What the callback throws is passed on, with nothing taken.
  static bool ParseMessagePartStream(MessageReadCallback read_i, void* context_i, PLXString const& headers_i,
                                     PLXUInt32 start_i, PLXUInt32 length_i, PLXString const& folder_i,
                                     PLXTokenizedString const& patterns_i, PLXUInt32 maximumSize_i,
                                     MessagePartList* results_io);
  static bool ParseMultipartMessageStream(MessageReadCallback read_i, void* context_i,
                                          PLXString const& boundary_i, PLXUInt32 start_i, PLXUInt32 length_i,
                                          PLXString const& folder_i, PLXTokenizedString const& patterns_i,
                                          PLXUInt32 maximumSize_i, MessagePartList* results_io);
};
