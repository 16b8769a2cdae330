#pragma once

// Users' mailboxes: where their files are, storing mail in them, fetching it, counting and listing it.
//
// A message is stored as the mail server sent it: leading dots doubled, the lone dot at its end. Messages
// stay on the server.

#include <memory>

#include "../Journal.tag"
#include "Common.tag"
#include "MailboxIndex.h"
#include "PLXFileSpecification.h"
#include "PLXPOP3.h"

PLX_STRING_CONSTANT(kEmailClient_MailboxesFolderName, "Mailboxes");
PLX_STRING_CONSTANT(kEmailClient_IndexSuffix, ".idx");
PLX_STRING_CONSTANT(kEmailClient_MessagesSuffix, ".mbx");
PLX_STRING_CONSTANT(kEmailClient_MessageEnd, "\r\n.\r\n");
static constexpr char kEmailClientArgument_Mailbox[] = "mailbox";
static constexpr PLXUInt32 kEmailClient_LongestMessageNumber = 10;  // digits

// ---- Files ----

static bool EmailClient_Mail_CreateFile(PLXFileSpecification const& file_i) {
  // Another request may create it at the same time.
  return file_i.Exists() || PLXFile(file_i).Create() || file_i.Exists();
}

// The files of a user's mailbox, made where they are missing. The caller deletes the two specifications,
// which are null unless the result is success. A name that cannot be a folder's or file's is not authorised.
static PLXUInt32 EmailClient_Mail_GetMailboxFileSpecPtrs(_PLXAPI_ModuleProcessingInfo* info_i,
                                                         PLXString const& username_i,
                                                         PLXString const& mailbox_i,
                                                         PLXFileSpecification*& index_o,
                                                         PLXFileSpecification*& mailbox_o) {
  index_o = nullptr;
  mailbox_o = nullptr;
  if (!EmailClient_IsPlainName(username_i) || !EmailClient_IsPlainName(mailbox_i)) {
    return kPLXResult_NotAuthorized;
  }
  PLXString path = kEmailClient_DataFolderName + kPlatformPathDelimiter + username_i +
                   kPlatformPathDelimiter + kEmailClient_MailboxesFolderName;
  if (!PLXGlueVerifyRegionContainsFile(info_i, path)) return kPLXResult_NotAuthorized;
  PLXFolderSpecification folder(path);
  if (!folder.CreateIfMissing()) {
    return ReportProblem(info_i, kPLXResult_GeneralError,
                         "The folder could not be created due to an unknown error.",
                         "Make sure the item location is correct and try again.");
  }
  auto index = std::make_unique<PLXFileSpecification>(folder, mailbox_i + kEmailClient_IndexSuffix);
  auto messages = std::make_unique<PLXFileSpecification>(folder, mailbox_i + kEmailClient_MessagesSuffix);
  if (!EmailClient_Mail_CreateFile(*index) || !EmailClient_Mail_CreateFile(*messages)) {
    return ReportProblem(info_i, kPLXResult_GeneralError,
                         "The file could not be created due to an unknown error.",
                         "Make sure the location is correct and try again.");
  }
  index_o = index.release();
  mailbox_o = messages.release();
  return kPLXResult_Success;
}

[[maybe_unused]] static PLXString EmailClient_Mail_GetHeader(PLXTokenizedString const& headerLines_i,
                                                             PLXString const& name_i) {
  return EmailClient_Mailbox::GetHeader(headerLines_i, name_i);
}

// What a page's result is after something was done with a mailbox. Files that do not let themselves be opened
// are no error: there is nothing to show and nothing is stored.
static PLXUInt32 EmailClient_Mail_GetResult(_PLXAPI_ModuleProcessingInfo* info_i,
                                            EmailClient_Mailbox::Outcome outcome_i) {
  if (outcome_i != EmailClient_Mailbox::Outcome::Full) return kPLXResult_Success;
  return ReportProblem(info_i, kPLXResult_GeneralError, "The mailbox is full.",
                       "Please contact the webmaster to report this problem.");
}

// The same after an add to files that are open.
static PLXUInt32 EmailClient_Mail_GetAddResult(_PLXAPI_ModuleProcessingInfo* info_i,
                                               EmailClient_Mailbox::Outcome outcome_i) {
  if (outcome_i != EmailClient_Mailbox::Outcome::Unusable) {
    return EmailClient_Mail_GetResult(info_i, outcome_i);
  }
  return ReportProblem(info_i, kPLXResult_GeneralError, "A message could not be stored in the mailbox.",
                       "Please contact the webmaster to report this problem.");
}

// Opens a mailbox of the user who is the database's current record. Null, with the result in `result_o`, when
// it is not to be had.
static std::unique_ptr<EmailClient_Mailbox> EmailClient_Mail_OpenMailbox(_PLXAPI_ModuleProcessingInfo* info_i,
                                                                         PLXUInt32 database_i,
                                                                         PLXString const& mailbox_i,
                                                                         PLXUInt32 permission_i,
                                                                         PLXUInt32& result_o) {
  PLXString const username = PLXGlueDBGetTextFieldValue(info_i, database_i, kEmailClientField_Username);
  PLXFileSpecification* index = nullptr;
  PLXFileSpecification* messages = nullptr;
  result_o = EmailClient_Mail_GetMailboxFileSpecPtrs(info_i, username, mailbox_i, index, messages);
  std::unique_ptr<PLXFileSpecification> const indexOwner(index);
  std::unique_ptr<PLXFileSpecification> const messagesOwner(messages);
  if (result_o != kPLXResult_Success) return nullptr;
  auto mailbox = std::make_unique<EmailClient_Mailbox>(*index, *messages);
  EmailClient_Mailbox::Outcome const outcome = mailbox->Open(permission_i);
  result_o = EmailClient_Mail_GetResult(info_i, outcome);
  if (outcome != EmailClient_Mailbox::Outcome::Done) mailbox.reset();
  return mailbox;
}

// ---- Actions ----

// Stores a message unless the mailbox has one with its subject and date.
[[maybe_unused]] static PLXUInt32 EmailClient_Action_AddMessage(_PLXAPI_ModuleProcessingInfo* info_i,
                                                                PLXUInt32 database_i,
                                                                PLXString const& mailbox_i,
                                                                PLXString const& message_i) {
  PLXUInt32 result = kPLXResult_Success;
  auto const mailbox =
      EmailClient_Mail_OpenMailbox(info_i, database_i, mailbox_i, kPLXFilePermission_ReadWrite, result);
  return mailbox != nullptr ? EmailClient_Mail_GetAddResult(info_i, mailbox->Add(message_i)) : result;
}

// Adds to the two counters; the bytes are those of the message file, with deleted messages.
static PLXUInt32 EmailClient_Action_CountMessages(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i,
                                                  PLXString const& mailbox_i, PLXUInt32& messages_io,
                                                  PLXUInt32& unread_io, PLXUInt32& bytes_io) {
  PLXUInt32 result = kPLXResult_Success;
  auto const mailbox =
      EmailClient_Mail_OpenMailbox(info_i, database_i, mailbox_i, kPLXFilePermission_ReadOnly, result);
  if (mailbox == nullptr) return result;
  EmailClient_MessageRecord record;
  while (mailbox->ReadNext(record)) {
    if ((record.flags & EmailClient_MessageRecord::kFlag_Deleted) != 0) continue;
    ++messages_io;
    if ((record.flags & EmailClient_MessageRecord::kFlag_Read) == 0) ++unread_io;
  }
  bytes_io = mailbox->GetMessageFileSize();
  return result;
}

// Whether a message of the server's, by its line of the UIDL answer, is known to be stored. None is: every
// message is offered to the mailbox, which keeps out those that it has.
static bool EmailClient_Action_FindMessage(PLXString const& /*uniqueID_i*/) { return false; }

static PLXUInt32 EmailClient_Mail_ReportConnection(_PLXAPI_ModuleProcessingInfo* info_i,
                                                   PLXUInt32 connection_i) {
  struct Row {
    PLXUInt32 connection;
    char const* problem;
    char const* remedy;
  };
  static constexpr Row kRows[] = {
      {kPOP3Result_ConnectionTimedOut, "The connection to the POP server timed out.",
       "Please try again in a few minutes."},
      {kPOP3Result_AlreadyConnected, "The client is already connected.", "Please logout and try again."},
      {kPOP3Result_InvalidPassword, "The password was invalid",
       "Please set the proper POP password in the user options."},
      {kPOP3Result_UnknownUser, "The username was invalid",
       "Please set the proper POP username in the user options."}};
  for (Row const& row : kRows) {
    if (row.connection == connection_i) {
      return ReportProblem(info_i, kPLXResult_GeneralError, row.problem, row.remedy);
    }
  }
  return ReportProblem(info_i, kPLXResult_GeneralError, "The client was unable to connect to the POP server.",
                       "Please try again in a few minutes.");
}

static bool EmailClient_Mail_IsMessageNumber(PLXString const& word_i) {
  if (word_i.IsEmpty() || word_i.GetLength() > kEmailClient_LongestMessageNumber) return false;
  PLXString rest(word_i);
  for (char digit = '0'; digit <= '9'; ++digit) rest.ReplaceAll(PLXString(digit), PLXString());
  return rest.IsEmpty();
}

// Offers every message of the server to the mailbox. One that does not come whole is left for the next time,
// and an answer of nothing is the end of the connection.
static PLXUInt32 EmailClient_Mail_FetchMessages(_PLXAPI_ModuleProcessingInfo* info_i, PLXPOP3& server_io,
                                                PLXString const& listing_i, EmailClient_Mailbox& mailbox_io,
                                                Journal_Collection& journal_i) {
  PLXUInt32 result = kPLXResult_Success;
  PLXTokenizedString const lines(listing_i, "\r\n");
  for (PLXUInt32 index = 0; index < lines.GetTokenCount(); ++index) {
    PLXString const line = lines.GetToken(index);
    if (line.BeginsWith("+OK") || line.BeginsWith(".") || EmailClient_Action_FindMessage(line)) continue;
    PLXString const number = PLXTokenizedString(line, " ").GetToken(0);
    if (!EmailClient_Mail_IsMessageNumber(number)) continue;
    // C: RETR 3
    // S: +OK, the message, a lone dot
    PLXString message = server_io.SendPOPCommand("RETR " + number + "\r\n");
    journal_i.CountBytes(message.GetLength());
    if (message.IsEmpty()) {
      journal_i.Fail("The connection broke");
      break;
    }
    PLXUInt32 end = 0;
    if (!message.BeginsWith("+OK") || !message.EndsWith(kEmailClient_MessageEnd) ||
        !message.Find("\r\n", 0, kPLXWholeLength, 0, end)) {
      continue;
    }
    message.TrimLeft(end + 2);
    PLXUInt32 const added = EmailClient_Mail_GetAddResult(info_i, mailbox_io.Add(message));
    if (added == kPLXResult_Success) {
      journal_i.CountNew();
    } else {
      journal_i.Fail("A message cannot be stored");
      result = added;
    }
  }
  return result;
}

// Brings what the mail server has for the active personality into the Inbox. The user is the database's
// current record; the region's mail server, where there is one, takes the place of the user's own.
static PLXUInt32 EmailClient_Action_CheckMail(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i) {
  PLXUInt32 result = kPLXResult_Success;
  auto const inbox = EmailClient_Mail_OpenMailbox(info_i, database_i, kEmailClient_InboxName,
                                                  kPLXFilePermission_ReadWrite, result);
  // Mail that cannot be stored is not fetched.
  if (inbox == nullptr) return result;
  PLXUInt32 const personality = EmailClient_GetActivePersonality(info_i, database_i);
  auto const getValue = [&](PLXString const& field_i) {
    return EmailClient_Personalities_GetPersonalityValue(EmailClient_GetText(info_i, database_i, field_i),
                                                         personality);
  };
  PLXString address = EmailClient_GetPreference(info_i, kEmailClientPreference_POPServer);
  if (address.IsEmpty()) address = getValue(kEmailClientField_POPServers);
  PLXString const username = getValue(kEmailClientField_POPUsernames);
  PLXString const password = getValue(kEmailClientField_POPPasswords);
  PLXPOP3 server(address, username, password);
  Journal_Collection journal(info_i, "plxEmailClient", address, username);
  PLXUInt32 const connection = server.Connect();
  if (connection != kPOP3Result_Success) {
    journal.Fail(Journal_GetReason(server, connection));
    return EmailClient_Mail_ReportConnection(info_i, connection);
  }
  PLXString const listing = server.SendPOPCommand("UIDL\r\n");
  if (!listing.BeginsWith("+OK")) journal.Fail("The server does not list its messages");
  // A server without a first message refuses, and then there is nothing to fetch.
  PLXString const first = server.SendPOPCommand("LIST 1\r\n");
  if (listing.BeginsWith("+OK") && first.BeginsWith("+OK")) {
    result = EmailClient_Mail_FetchMessages(info_i, server, listing, *inbox, journal);
  }
  server.Disconnect();
  return result;
}

// ---- The list of messages ----

// The table of the mailbox that the URL names. One row for each message, which so far shows its size.
static PLXString EmailClient_RunClient_ListMessages(_PLXAPI_ModuleProcessingInfo* info_i,
                                                    PLXUInt32 database_i) {
  PLXString name;
  PLXGlueGetPathArgument(info_i, kEmailClientArgument_Mailbox, 0, name, kEmailClient_InboxName);
  PLXUInt32 result = kPLXResult_Success;
  auto const mailbox =
      EmailClient_Mail_OpenMailbox(info_i, database_i, name, kPLXFilePermission_ReadOnly, result);
  PLXString html(
      "\r\n<table width=\"100%\" border=\"0\" cellspacing=\"0\" cellpadding=\"4\" bgcolor=\"#FFFFFF\">"
      "\r\n<tr><td>&nbsp;</td></tr>\r\n<tr><td align=\"center\">"
      "\r\n<table border=\"1\" width=\"85%\" cellspacing=\"0\" cellpadding=\"4\">"
      "\r\n<tr><th scope=\"col\">From</th><th scope=\"col\">Subject</th><th scope=\"col\">Date</th>"
      "<th scope=\"col\">Size</th></tr>");
  EmailClient_MessageRecord record;
  while (mailbox != nullptr && mailbox->ReadNext(record)) {
    if ((record.flags & EmailClient_MessageRecord::kFlag_Deleted) != 0) continue;
    html.ReserveToAppend(128);
    html.Append("\r\n<tr><td></td><td></td><td></td><td align=\"right\">");
    html.Append(PLXStringUtility::GetStringRepresentation(record.shownSize)).Append("</td></tr>");
  }
  return html.Append("\r\n</table>\r\n</td></tr>\r\n<tr><td>&nbsp;</td></tr>\r\n</table>");
}
