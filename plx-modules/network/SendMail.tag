// plxSendMail: sends a message from a page. The page goes on at once; the message leaves on a thread of its
// own, and what became of it arrives later as the module's action, which keeps the log of failed mail.

#include <algorithm>

#include "PLXEmail.h"
#include "PLXFileStream.h"
#include "PLXFolderSpecification.h"
#include "PLXHeaderText.h"
#include "PLXRegExp.h"
#include "PLXStringUtility.h"
#include "PLXTokenizedString.h"
#include "Problem.tag"

static constexpr PLXSInt32 kSendMailGMTOffsetLowerBound = -12;
static constexpr PLXSInt32 kSendMailGMTOffsetUpperBound = 12;

#include "SendMail/Administration.tag"
#include "SendMail/Log.tag"
#include "SendMail/Preferences.tag"

PLX_STRING_CONSTANT(kSendMailEmailAddressRegularExpression,
                    "^[A-Za-z0-9._-]+@([A-Za-z0-9-]+[.])+[A-Za-z]{2,4}$");
PLX_STRING_CONSTANT(kSendMailHeaderTextPlain, "Content-Type: text/plain; charset=\"us-ascii\"");
PLX_STRING_CONSTANT(kSendMailHeaderTextHTML, "Content-Type: text/html; charset=\"us-ascii\"");

static constexpr PLXUInt32 kSendMailAttachmentBlockSize = 2048;  // bytes
// Bytes of all files of a message together: encoded they still fit a string.
static constexpr PLXUInt32 kSendMailLongestAttachment = 1024 * 1024 * 1024;
// What "sendFailedMail" sends.
static constexpr char kSendMailFailedMessageID[] = "msg2451812700405";

static constexpr char kSendMailAddressRemedy[] =
    "Validate the email address before submitting to the sendmail tag.";

// The server that the preferences leave the page's author to name, or name themselves.
static PLXUInt32 SendMail_SetMailServer(_PLXAPI_ModuleProcessingInfo* info_i, PLXEmail& email_io) {
  PLXString use;
  PLXString server;
  PLXGlueGetPreference(info_i, kSendMailPreference_UseMailServerName, use, kSendMailUseMailServer_Never);
  PLXStringID const choice(use, PLXStringID::kIgnoreCase);
  bool const isAlways = choice == kSendMailUseMailServer_Always;
  if (isAlways || choice == kSendMailUseMailServer_ByDefault) {
    PLXString preferred;
    PLXGlueGetPreference(info_i, kSendMailPreference_MailServerName, preferred, PLXString());
    if (isAlways) {
      server = preferred;
    } else {
      PLXGlueGetTagParameter(info_i, kSendMailParameter_MailServer, 0, server, preferred);
    }
  } else if (!PLXGlueGetRequiredTagParameter(info_i, kSendMailParameter_MailServer, 0, server)) {
    return kPLXResult_MissingRequiredParameter;
  }
  if (server.IsEmpty()) {
    PLXGlueReportMissingTagParameter(info_i, kSendMailParameter_MailServer);
    return kPLXResult_MissingRequiredParameter;
  }
  email_io.SetMailServer(server);
  return kPLXResult_Success;
}

// What is no number counts as absent.
static PLXUInt32 SendMail_SetGMTOffset(_PLXAPI_ModuleProcessingInfo* info_i, PLXEmail& email_io) {
  PLXNumber offset;
  PLXGlueGetTagParameter(info_i, kSendMailParameter_GMTOffset, 0, offset, PLXNumber());
  if (offset.IsNull()) {
    PLXString isDefault;
    PLXString hours;
    PLXGlueGetPreference(info_i, kSendMailPreference_ReturnGMTOffsetByDefault, isDefault,
                         kNetworkPreference_No);
    PLXGlueGetPreference(info_i, kSendMailPreference_GMTOffset, hours, "0");
    if (static_cast<bool>(isDefault)) offset = hours;
  }
  if (offset.IsNull()) return kPLXResult_Success;
  if (offset < kSendMailGMTOffsetLowerBound || offset > kSendMailGMTOffsetUpperBound) {
    return ReportProblem(info_i, kPLXResult_InvalidParameterValue, "The GMT offset is invalid.",
                         "Please provide a valid GMT offset.");
  }
  email_io.SetGMTOffset(offset);
  return kPLXResult_Success;
}

// The whole text is one address.
static PLXUInt32 SendMail_CheckAddress(_PLXAPI_ModuleProcessingInfo* info_i, PLXString const& address_i,
                                       char const* problem_i) {
  PLXRegExp expression;
  if (expression.Compile(kSendMailEmailAddressRegularExpression) != 0) {
    return ReportProblem(info_i, kNetworkResult_OperationFailed,
                         "The compilation of the regular expression failed.",
                         "Carefully check the syntax of the regular expression for misplaced symbols.");
  }
  unsigned int offset = 0;
  unsigned int start = 0;
  unsigned int length = 0;
  if (expression.Execute(address_i, offset)) expression.GetMatch(start, length);
  if (length > 0 && start == 0 && length == address_i.GetLength()) return kPLXResult_Success;
  return ReportProblem(info_i, kNetworkResult_Invalid, problem_i, kSendMailAddressRemedy);
}

static PLXUInt32 SendMail_SetSender(_PLXAPI_ModuleProcessingInfo* info_i, PLXEmail& email_io) {
  PLXString from;
  if (!PLXGlueGetRequiredTagParameter(info_i, kSendMailParameter_From, 0, from)) {
    return kPLXResult_MissingRequiredParameter;
  }
  PLXUInt32 result = SendMail_CheckAddress(info_i, from, "The from address is not a valid email address.");
  if (result != kPLXResult_Success) return result;
  email_io.SetFrom(from);
  PLXString replyTo;
  PLXGlueGetTagParameter(info_i, kSendMailParameter_ReplyTo, 0, replyTo, PLXString());
  if (replyTo.IsEmpty()) return kPLXResult_Success;
  result = SendMail_CheckAddress(info_i, replyTo, "The replyTo address is not a valid email address.");
  if (result == kPLXResult_Success) email_io.SetReplyTo(replyTo);
  return result;
}

// Each value belongs to the nearest name before it. False without any pair. A name that is empty would end
// the header where it stands, so its pair is passed over.
static bool SendMail_SetHeaders(_PLXAPI_ModuleProcessingInfo* info_i, PLXEmail& email_io) {
  PLXUInt32 const count = PLXGlueGetTagParameterCount(info_i);
  bool isNamed = false;
  bool isAdded = false;
  PLXString name;
  PLXStringID parameter;
  PLXString value;
  for (PLXUInt32 index = 0; index < count; ++index) {
    if (!PLXGlueGetTagParameterByIndex(info_i, index, parameter, value)) continue;
    if (parameter == kSendMailParameter_HeaderName) {
      name = GetHeaderText(value);
      name.Trim(" :");
      isNamed = name.IsNotEmpty();
    } else if (parameter == kSendMailParameter_HeaderValue && isNamed) {
      PLXString const line = name + ": " + GetHeaderText(value);
      if (isAdded) {
        email_io.AppendContentHeader("\r\n" + line);
      } else {
        email_io.SetContentHeader(line);
      }
      isNamed = false;
      isAdded = true;
    }
  }
  return isAdded;
}

static void SendMail_SetContentType(_PLXAPI_ModuleProcessingInfo* info_i, PLXEmail& email_io) {
  bool isHTML = false;
  if (PLXGlueGetTagParameter(info_i, kSendMailParameter_SendAsHTML, 0, isHTML, false)) {
    email_io.SetSendAsHTML(isHTML);
  }
  email_io.SetContentHeader(isHTML ? kSendMailHeaderTextHTML : kSendMailHeaderTextPlain);
}

static PLXString SendMail_GetBody(_PLXAPI_ModuleProcessingInfo* info_i) {
  PLXString body = PLXGlueGetTagBody(info_i);
  body.ReplaceAll("\r\n", "\r");
  body.ReplaceAll("\n", "\r");
  body.ReplaceAll("\r", "\r\n");
  return body;
}

static void SendMail_AddRecipients(_PLXAPI_ModuleProcessingInfo* info_i, PLXStringID const& parameter_i,
                                   PLXEmail& email_io, void (PLXEmail::*add_i)(PLXString const&)) {
  PLXString address;
  for (unsigned int index = 0; PLXGlueGetTagParameter(info_i, parameter_i, index, address, PLXString());
       ++index) {
    (email_io.*add_i)(address);
  }
}

static PLXString SendMail_GetLastPart(PLXString const& path_i) {
  PLXUInt32 slash = 0;
  if (!path_i.Find('/', kPLXWholeLength, kPLXWholeLength, kPLXOption_Backward, slash)) return path_i;
  return path_i.GetSubstring(slash + 1, kPLXWholeLength);
}

// The text is the attachment and, behind its last slash, begins with the name.
static PLXString SendMail_GetInlineName(PLXString const& text_i) {
  PLXString const tail = SendMail_GetLastPart(text_i);
  PLXUInt32 length = 0;
  while (length < tail.GetLength() && length < kLongestFileSystemItemName &&
         static_cast<unsigned char>(tail[length]) >= ' ' && tail[length] != '\x7F') {
    ++length;
  }
  return tail.GetSubstring(0, length);
}

static void SendMail_AttachTexts(_PLXAPI_ModuleProcessingInfo* info_i, PLXEmail& email_io) {
  PLXString text;
  for (unsigned int index = 0;
       PLXGlueGetTagParameter(info_i, kSendMailParameter_AttachmentData, index, text, PLXString()); ++index) {
    PLXBufferStream stream(text.GetCStringAccess(), text.GetLength());
    email_io.AddAttachment(stream, kAttachmentEncoding_Base64, SendMail_GetInlineName(text), -1);
  }
}

// The disk path of an attachment: below the page's folder and inside the region, else empty.
static PLXString SendMail_GetAttachmentPath(_PLXAPI_ModuleProcessingInfo* info_i,
                                            PLXString const& location_i) {
  PLXString path = PLXGlueGetURLParentFolderPath(info_i) + "/" +
                   PLXFileSystemItem::FileSystemPathnameFromURLPathname(location_i);
  while (path.ReplaceAll("//", "/") > 0) {
  }
  return PLXGlueVerifyRegionContainsFile(info_i, path) ? path : PLXString();
}

static PLXUInt32 SendMail_AttachFile(_PLXAPI_ModuleProcessingInfo* info_i, PLXString const& location_i,
                                     PLXUInt32& room_io, PLXEmail& email_io) {
  PLXString const path = SendMail_GetAttachmentPath(info_i, location_i);
  PLXFileSpecification const file(path);
  if (path.IsEmpty() || !file.IsAFile()) {
    return ReportProblem(info_i, kPLXResult_FileNotFound, "File not found!",
                         "Check to see if the file actually exists.");
  }
  PLXFileStream stream(file, kSendMailAttachmentBlockSize);
  PLXUInt32 const size = stream.GetExpectedByteCount();
  if (!stream.IsOpen() || size > room_io) {
    return ReportProblem(info_i, kNetworkResult_OperationFailed, "Internal File System Error",
                         "Report this error to your System Administrator");
  }
  room_io -= size;
  email_io.AddAttachment(stream, kAttachmentEncoding_Base64, SendMail_GetLastPart(location_i),
                         static_cast<int>(size));
  return kPLXResult_Success;
}

// The first that fails ends the loop; what was attached before it goes out.
static PLXUInt32 SendMail_AttachFiles(_PLXAPI_ModuleProcessingInfo* info_i, PLXEmail& email_io) {
  PLXString location;
  PLXUInt32 room = kSendMailLongestAttachment;
  PLXUInt32 result = kPLXResult_Success;
  for (unsigned int index = 0; result == kPLXResult_Success &&
                               PLXGlueGetTagParameter(info_i, kSendMailParameter_AttachmentFileLocation,
                                                      index, location, PLXString());
       ++index) {
    result = SendMail_AttachFile(info_i, location, room, email_io);
  }
  return result;
}

static PLXUInt32 SendMail_SendMail(_PLXAPI_ModuleProcessingInfo* info_i, SendMail_Places const& places_i) {
  PLXEmail email(places_i.failedMailFolder, places_i.callbackURL);
  email.SetOrigin(places_i.page);
  for (auto const step : {SendMail_SetMailServer, SendMail_SetGMTOffset, SendMail_SetSender}) {
    PLXUInt32 const result = step(info_i, email);
    if (result != kPLXResult_Success) return result;
  }
  PLXString text;
  if (PLXGlueGetTagParameter(info_i, kSendMailParameter_Subject, 0, text, PLXString()))
    email.SetSubject(text);
  if (!SendMail_SetHeaders(info_i, email)) SendMail_SetContentType(info_i, email);
  email.SetMessage(SendMail_GetBody(info_i));
  if (!PLXGlueGetRequiredTagParameter(info_i, kSendMailParameter_To, 0, text)) {
    return kPLXResult_MissingRequiredParameter;
  }
  SendMail_AddRecipients(info_i, kSendMailParameter_To, email, &PLXEmail::AddTo);
  SendMail_AddRecipients(info_i, kSendMailParameter_CC, email, &PLXEmail::AddCC);
  SendMail_AddRecipients(info_i, kSendMailParameter_BCC, email, &PLXEmail::AddBCC);
  SendMail_AttachTexts(info_i, email);
  PLXUInt32 const result = SendMail_AttachFiles(info_i, email);
  if (email.Send() || result != kPLXResult_Success) return result;
  // The one thing that can be missing yet: every recipient was an empty text.
  PLXGlueReportMissingTagParameter(info_i, kSendMailParameter_To);
  return kPLXResult_MissingRequiredParameter;
}

// 0 and no output; else what a problem of the page or of the log database made it.
static PLXUInt32 ProcessSendMail(_PLXAPI_ModuleProcessingInfo* info_i, PLXString& output_o) {
  PLXStringID mode;
  PLXGlueGetTagParameter(info_i, kSendMailParameter_Mode, 0, mode, kSendMailMode_SendMail);
  SendMail_Places places;
  if (!SendMail_GetPlaces(info_i, places)) return kPLXResult_Success;
  bool const isAdministration = mode == kSendMailMode_Admin;
  if (!isAdministration && !(mode == kSendMailMode_SendFailedMail)) {
    return SendMail_SendMail(info_i, places);
  }
  SendMail_Log log(info_i);
  if (!log.Open()) return kNetworkResult_OperationFailed;
  SendMail_SettleAbandoned(info_i, log.GetDatabase(), places.failedMailFolder);
  if (isAdministration) return SendMail_Admin(info_i, output_o, log.GetDatabase());
  PLXEmail(places.failedMailFolder, kSendMailFailedMessageID, places.callbackURL).Send();
  return kPLXResult_Success;
}
