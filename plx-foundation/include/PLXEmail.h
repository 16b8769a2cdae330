#pragma once

#include "PLXDataStream.h"
#include "PLXInternetObject.h"
#include "PLXNumber.h"
#include "PLXString.h"

// What joins the recipients of a list.
inline constexpr char kRecipientListDelimiter[] = ",";

inline constexpr char kAttachmentBoundaryString[] = "PortableLayeredExchange_MIME_Multipart_Delimiter";
inline constexpr char kAttachmentBoundaryLabel[] = "--PortableLayeredExchange_MIME_Multipart_Delimiter\r\n";
inline constexpr char kAttachmentEndBoundaryLabel[] =
    "--PortableLayeredExchange_MIME_Multipart_Delimiter--\r\n";

// How the data of an attachment is written into the message: as a Base64 part of its own, or as it is.
enum AttachmentEncodingMechanism : PLXUInt32 {
  kAttachmentEncoding_Base64 = FourCC("Bs64"),
  kAttachmentEncoding_None = FourCC("None"),
};

// Everything that one outgoing message is made of.
struct PLXEmailFields {
  PLXString mailServer;  // "host" or "host:port", port 25 unless said
  PLXString subject;
  PLXString from;
  PLXString replyTo;
  PLXString to;  // this and the next two: addresses joined by kRecipientListDelimiter
  PLXString cc;
  PLXString bcc;            // recipients that no header names
  PLXString contentHeader;  // lines of the header behind the standard ones, without the last line end
  PLXNumber gmtOffset;      // hours; null shows the local zone
  PLXString message;
  PLXString attachments;       // the parts, encoded and joined
  PLXString failedMailFolder;  // where a message that could not be sent is stored; empty stores none
  PLXString messageID;         // the file in that folder of a message that is sent again; else empty
  PLXString callbackURL;       // receives the outcome by POST; empty reports none
  PLXString origin;            // whatever tells the operator where the message came from
  PLXUInt32 attempt = 1;       // which one this is
  bool sendAsHTML = false;     // carried along; contentHeader says what the message is

  // Gives every value to this object alone, so that it may go to another thread.
  void MakeUnique();
};

// One outgoing message: collects its parts and hands them to a thread that sends it by SMTP (RFC 5321) over
// plain TCP. What becomes of it is told to the callback URL; see PLXEmailSendThread.
//
// Line breaks and other control characters in an address, a subject or a file name cannot begin a line of
// their own: they become blanks where the header is written. The content header and the message go out as
// they are. One thread at a time; after Send the object may go, the message has copies of everything.
class PLXEmail : public PLXInternetObject {
 public:
  // A new message.
  PLXEmail(PLXString const& failedMailFolder_i, PLXString const& callbackURL_i);
  // The stored message of this name, to be sent again: its body and content header come from the file, its
  // server, sender, recipients and subject from the setters.
  PLXEmail(PLXString const& failedMailFolder_i, PLXString const& messageID_i, PLXString const& callbackURL_i);

  void SetMailServer(PLXString const& server_i) { myFields.mailServer = server_i; }
  void SetSubject(PLXString const& subject_i) { myFields.subject = subject_i; }
  void SetFrom(PLXString const& address_i) { myFields.from = address_i; }
  void SetReplyTo(PLXString const& address_i) { myFields.replyTo = address_i; }
  void SetGMTOffset(PLXNumber const& hours_i) { myFields.gmtOffset = hours_i; }
  void SetOrigin(PLXString const& origin_i) { myFields.origin = origin_i; }
  void SetAttempt(PLXUInt32 attempt_i) noexcept { myFields.attempt = attempt_i; }
  void SetSendAsHTML(bool isHTML_i) noexcept { myFields.sendAsHTML = isHTML_i; }

  // Trim the address of blanks, tabs and line ends; what is empty then is ignored.
  void AddTo(PLXString const& address_i) { AddRecipient(address_i, myFields.to); }
  void AddCC(PLXString const& address_i) { AddRecipient(address_i, myFields.cc); }
  void AddBCC(PLXString const& address_i) { AddRecipient(address_i, myFields.bcc); }
  void ClearTo() { myFields.to.Empty(); }
  void ClearCC() { myFields.cc.Empty(); }
  void ClearBCC() { myFields.bcc.Empty(); }

  void SetContentHeader(PLXString const& lines_i) { myFields.contentHeader = lines_i; }
  void AppendContentHeader(PLXString const& lines_i);

  static constexpr unsigned kLineEndBefore = 1;
  static constexpr unsigned kLineEndAfter = 2;
  void SetMessage(PLXString const& message_i) { myFields.message = message_i; }
  void AppendMessage(PLXString const& text_i, unsigned flags_i);
  void ClearMessage() { myFields.message.Empty(); }

  // Appends a part made of the stream's bytes: of its first `byteCount_i`, or with a negative count all up to
  // its end. Without encoding the stream is the part itself, read to its end. A quotation mark in the name
  // becomes an apostrophe. Any other mechanism appends nothing.
  void AddAttachment(PLXDataStream& data_io, AttachmentEncodingMechanism mechanism_i,
                     PLXString const& fileName_i, int byteCount_i);
  void ClearAttachments() { myFields.attachments.Empty(); }

  // Hands the message over and returns at once; the argument has no meaning. False, with nothing done, when a
  // new message lacks its server, its sender or any recipient in "to". A message always goes out: when the
  // system has no thread to give, the caller's own sends it.
  bool Send(unsigned int reserved_i = 0);

 protected:
  PLXEmailFields const& GetFields() const noexcept { return myFields; }

 private:
  static void AddRecipient(PLXString const& address_i, PLXString& list_io);

  PLXEmailFields myFields;
};
