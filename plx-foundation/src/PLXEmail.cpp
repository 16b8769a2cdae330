#include "PLXEmail.h"

#include <algorithm>
#include <cstdint>
#include <memory>

#include "PLXCryptor.h"
#include "PLXEmailSendThread.h"
#include "PLXHeaderText.h"

namespace {

constexpr PLXUInt32 kPartHeaderSize = 512;         // bytes, about, around the data of an attachment
constexpr std::uint64_t kBelievedSize = 16 << 20;  // of what is said about a stream's length

}  // namespace

void PLXEmailFields::MakeUnique() {
  for (PLXString* text : {&mailServer, &subject, &from, &replyTo, &to, &cc, &bcc, &contentHeader, &message,
                          &attachments, &failedMailFolder, &messageID, &callbackURL, &origin}) {
    text->MakeUnique();
  }
  gmtOffset.MakeUnique();
}

PLXEmail::PLXEmail(PLXString const& failedMailFolder_i, PLXString const& callbackURL_i)
    : PLXEmail(failedMailFolder_i, PLXString(), callbackURL_i) {}

PLXEmail::PLXEmail(PLXString const& failedMailFolder_i, PLXString const& messageID_i,
                   PLXString const& callbackURL_i) {
  myFields.failedMailFolder = failedMailFolder_i;
  myFields.messageID = messageID_i;
  myFields.callbackURL = callbackURL_i;
}

void PLXEmail::AddRecipient(PLXString const& address_i, PLXString& list_io) {
  PLXString address(address_i);
  address.Trim(" \t\r\n");
  if (address.IsEmpty()) return;
  list_io.ReserveToAppend(1 + address.GetLength());
  if (list_io.IsNotEmpty()) list_io += kRecipientListDelimiter;
  list_io += address;
}

void PLXEmail::AppendContentHeader(PLXString const& lines_i) {
  myFields.contentHeader.ReserveToAppend(lines_i.GetLength());
  myFields.contentHeader += lines_i;
}

void PLXEmail::AppendMessage(PLXString const& text_i, unsigned flags_i) {
  myFields.message.ReserveToAppend(text_i.GetLength() + 4);
  if ((flags_i & kLineEndBefore) != 0) myFields.message += "\r\n";
  myFields.message += text_i;
  if ((flags_i & kLineEndAfter) != 0) myFields.message += "\r\n";
}

void PLXEmail::AddAttachment(PLXDataStream& data_io, AttachmentEncodingMechanism mechanism_i,
                             PLXString const& fileName_i, int byteCount_i) {
  if (mechanism_i == kAttachmentEncoding_None) {
    PLXString const data = data_io.GetRemainingBytes();
    myFields.attachments.ReserveToAppend(data.GetLength());
    myFields.attachments += data;
    return;
  }
  if (mechanism_i != kAttachmentEncoding_Base64) return;
  PLXString name = GetHeaderText(fileName_i);
  name.ReplaceAll("\"", "'");
  PLXString& part = myFields.attachments;
  std::uint64_t const bytes =
      byteCount_i < 0 ? data_io.GetExpectedByteCount() : static_cast<std::uint64_t>(byteCount_i);
  // Base64 in lines takes 78 characters for 57 bytes.
  std::uint64_t const expected = std::min<std::uint64_t>(bytes, kBelievedSize) * 78 / 57;
  part.ReserveToAppend(kPartHeaderSize + 2 * name.GetLength() + static_cast<PLXUInt32>(expected));
  part.Append("\r\n").Append(kAttachmentBoundaryLabel);
  part.Append("Content-Type: application/octet-stream; name=\"").Append(name).Append("\"\r\n");
  part.Append("Content-Transfer-Encoding: base64\r\n");
  part.Append("Content-Disposition: attachment; filename=\"").Append(name).Append("\"\r\n\r\n");
  if (byteCount_i < 0) {
    PLXCryptor::AppendBase64(data_io, part);
  } else {
    PLXCryptor::AppendBase64(data_io, static_cast<PLXUInt32>(byteCount_i), part);
  }
}

bool PLXEmail::Send(unsigned int /*reserved_i*/) {
  if (myFields.messageID.IsEmpty() &&
      (myFields.mailServer.IsEmpty() || myFields.from.IsEmpty() || myFields.to.IsEmpty())) {
    return false;
  }
  auto thread = std::make_unique<PLXEmailSendThread>(myFields);
  // What a page was told has been taken survives whatever comes.
  thread->Keep();
  if (thread->Start()) {
    static_cast<void>(thread.release());  // its own now, and maybe gone
  } else {
    thread->RunHere();
  }
  return true;
}
