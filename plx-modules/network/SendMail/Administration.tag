// The administration of failed mail: a list to page through, and screens to correct, send again and delete
// one message. Every screen is a form that posts to the page it stands in.

#include "../Journal.tag"
#include "../Markup.tag"
#include "Log.tag"

static constexpr PLXUInt32 kSendMailDefaultDisplayLimit = 10;  // rows of a page
static constexpr PLXUInt32 kSendMailLargestDisplayLimit = 50;
static constexpr PLXUInt32 kSendMailLongestSubject = 25;               // characters shown in the list
static constexpr PLXUInt32 kSendMailLongestMessageShown = 256 * 1024;  // bytes; a browser takes no 50 MB

static constexpr char kSendMailArgument_Action[] = "plxSendMailAction";
static constexpr char kSendMailArgument_RecordID[] = "plxSendMailRecordID";
static constexpr char kSendMailArgument_MessageID[] = "plxSendMailMessageID";
static constexpr char kSendMailArgument_Page[] = "plxSendMailPage";
static constexpr char kSendMailArgument_PrevPage[] = "plxSendMailPrevPage";
static constexpr char kSendMailArgument_NextPage[] = "plxSendMailNextPage";
static constexpr char kSendMailArgument_Confirmation[] = "plxSendMailConfirmation";

// A field that the administrator may correct.
struct SendMail_EditableField {
  char const* argument;
  char const* label;
  PLXString const& field;
};
static constexpr PLXUInt32 kSendMailEditableFieldCount = 7;
static SendMail_EditableField const* SendMail_GetEditableFields() {
  static SendMail_EditableField const ourFields[kSendMailEditableFieldCount] = {
      {"plxSendMailSMTPServer", "SMTP Server", kSendMailDatabaseField_SMTPServer},
      {"plxSendMailFrom", "From", kSendMailDatabaseField_From},
      {"plxSendMailReplyTo", "Reply-To", kSendMailDatabaseField_ReplyTo},
      {"plxSendMailTo", "To", kSendMailDatabaseField_To},
      {"plxSendMailCC", "CC", kSendMailDatabaseField_CC},
      {"plxSendMailBCC", "BCC", kSendMailDatabaseField_BCC},
      {"plxSendMailSubject", "Subject", kSendMailDatabaseField_Subject}};
  return ourFields;
}

static PLXString SendMail_GetArgument(_PLXAPI_ModuleProcessingInfo* info_i, char const* name_i,
                                      char const* default_i) {
  PLXString value;
  PLXGlueGetPostArgument(info_i, name_i, 0, value, default_i);
  return value;
}

static PLXString SendMail_GetNumberText(PLXUInt32 number_i) {
  return PLXStringUtility::GetStringRepresentation(number_i);
}

static PLXString SendMail_GetText(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i,
                                  PLXString const& field_i) {
  return PLXGlueDBGetLongTextFieldValue(info_i, database_i, field_i);
}

// ---- Markup ----

static void SendMail_AppendFormStart(_PLXAPI_ModuleProcessingInfo* info_i, PLXString& html_io) {
  html_io.Append("<form method=\"post\" action=\"");
  AppendMarkupText(PLXGlueGetCGIEnvironmentVariable(info_i, "SCRIPT_NAME"), html_io);
  html_io.Append("\">");
}

static void SendMail_AppendHidden(char const* name_i, PLXString const& value_i, PLXString& html_io) {
  html_io.Append("<input type=\"hidden\" name=\"").Append(name_i).Append("\" value=\"");
  AppendMarkupText(value_i, html_io);
  html_io.Append("\">");
}

static void SendMail_AppendButton(char const* name_i, char const* encodedValue_i, PLXString& html_io,
                                  PLXString const& description_i = PLXString()) {
  html_io.Append("<input type=\"submit\" name=\"")
      .Append(name_i)
      .Append("\" value=\"")
      .Append(encodedValue_i);
  if (description_i.IsNotEmpty()) {
    html_io.Append("\" aria-label=\"");
    AppendMarkupText(description_i, html_io);
  }
  html_io.Append("\">");
}

// What says which message a form is about, and which page of the list it came from.
static void SendMail_AppendIdentity(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i,
                                    PLXString const& page_i, PLXString& html_io) {
  SendMail_AppendHidden(kSendMailArgument_RecordID,
                        PLXGlueDBGetTextFieldValue(info_i, database_i, kPLXRecordIDFieldName), html_io);
  SendMail_AppendHidden(kSendMailArgument_MessageID,
                        PLXGlueDBGetNumberFieldValue(info_i, database_i, kSendMailDatabaseField_MessageID)
                            .GetStringRepresentation(),
                        html_io);
  SendMail_AppendHidden(kSendMailArgument_Page, page_i, html_io);
}

// ---- The list ----

static void SendMail_AppendRow(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i, PLXUInt32 index_i,
                               PLXString const& page_i, PLXString& html_io) {
  html_io.Append(index_i % 2 == 1 ? "\r\n<tr bgcolor=\"#aaaaaa\"><td>" : "\r\n<tr bgcolor=\"#cccccc\"><td>");
  AppendMarkupText(SendMail_GetText(info_i, database_i, kSendMailDatabaseField_From), html_io);
  html_io.Append("</td><td>");
  PLXString const to = SendMail_GetText(info_i, database_i, kSendMailDatabaseField_To);
  PLXTokenizedString const recipients(to, kRecipientListDelimiter);
  for (PLXUInt32 index = 0; index < recipients.GetTokenCount(); ++index) {
    if (index > 0) html_io.Append("<br>");
    AppendMarkupText(recipients[index], html_io);
  }
  html_io.Append("</td><td>");
  PLXString subject = SendMail_GetText(info_i, database_i, kSendMailDatabaseField_Subject);
  if (subject.GetLength() > kSendMailLongestSubject) {
    subject = subject.GetSubstring(0, kSendMailLongestSubject) + "...";
  }
  AppendMarkupText(subject, html_io);
  html_io.Append("</td><td align=\"right\">");
  html_io.Append(PLXStringUtility::GetStringRepresentation(
      PLXGlueDBGetIntegerFieldValue(info_i, database_i, kSendMailDatabaseField_Attempts)));
  html_io.Append("</td><td>");
  SendMail_AppendFormStart(info_i, html_io);
  SendMail_AppendIdentity(info_i, database_i, page_i, html_io);
  for (char const* action : {"Edit", "Send", "Delete"}) {
    SendMail_AppendButton(kSendMailArgument_Action, action, html_io,
                          PLXString(action) + " the message \"" + subject + "\" to " + to);
  }
  html_io.Append("</form></td></tr>");
}

static void SendMail_AppendPager(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 page_i, PLXUInt32 lastPage_i,
                                 PLXString& html_io) {
  if (lastPage_i == 1) return;
  html_io.Append("\r\n");
  SendMail_AppendFormStart(info_i, html_io);
  html_io.Append("<p>");
  if (page_i > 1) {
    SendMail_AppendHidden(kSendMailArgument_PrevPage, SendMail_GetNumberText(page_i - 1), html_io);
    SendMail_AppendButton(kSendMailArgument_Action, "&lt;&lt;", html_io, "Previous page");
  }
  html_io.Append(" Page ").Append(SendMail_GetNumberText(page_i));
  html_io.Append(" of ").Append(SendMail_GetNumberText(lastPage_i)).Append(" ");
  if (page_i < lastPage_i) {
    SendMail_AppendHidden(kSendMailArgument_NextPage, SendMail_GetNumberText(page_i + 1), html_io);
    SendMail_AppendButton(kSendMailArgument_Action, "&gt;&gt;", html_io, "Next page");
  }
  html_io.Append("</p></form>");
}

static PLXUInt32 SendMail_GetDisplayLimit(_PLXAPI_ModuleProcessingInfo* info_i) {
  unsigned int limit = 0;
  PLXGlueGetTagParameter(info_i, kSendMailParameter_DisplayLimit, 0, limit, 0);
  return limit == 0 || limit > kSendMailLargestDisplayLimit ? kSendMailDefaultDisplayLimit : limit;
}

// The page that is nearest to what was asked for.
static bool SendMail_MessageListForm(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i,
                                     PLXString const& wantedPage_i, PLXString& html_io) {
  if (PLXGlueDBExecuteSearch(info_i, database_i, PLXString()) != 0) {
    return SendMail_ReportDatabaseProblem(info_i, database_i, "search the &quot;");
  }
  PLXUInt32 const count = PLXGlueDBGetResultCount(info_i, database_i);
  if (count == 0) {
    html_io.Append("No failed mail.");
    return true;
  }
  PLXUInt32 const limit = SendMail_GetDisplayLimit(info_i);
  PLXUInt32 const lastPage = (limit + count - 1) / limit;
  int const wanted = PLXStringUtility::GetNumericalRepresentation(wantedPage_i, 10);
  PLXUInt32 const page = wanted < 1 ? 1 : std::min(static_cast<PLXUInt32>(wanted), lastPage);
  if (page > 1 && PLXGlueDBJump(info_i, database_i, static_cast<PLXSInt32>(limit * (page - 1))) != 0) {
    return SendMail_ReportDatabaseProblem(info_i, database_i, "move to the requested record in the &quot;");
  }
  html_io.ReserveToAppend(limit * 1024);
  html_io.Append("<table border=\"0\" cellspacing=\"1\" cellpadding=\"4\">\r\n<tr>");
  for (char const* title : {"From", "To", "Subject", "Tries", "Operation"}) {
    html_io.Append("<th scope=\"col\">").Append(title).Append("</th>");
  }
  html_io.Append("</tr>");
  PLXString const pageText = SendMail_GetNumberText(page);
  for (PLXUInt32 index = 0; index < limit; ++index) {
    SendMail_AppendRow(info_i, database_i, index, pageText, html_io);
    if (PLXGlueDBMoveNextRecord(info_i, database_i) != 0) break;
  }
  html_io.Append("\r\n</table>");
  SendMail_AppendPager(info_i, page, lastPage, html_io);
  return true;
}

// ---- One message ----

// Moves to the record that the form is about. A message that was delivered or deleted meanwhile is told so.
static bool SendMail_MoveToMessage(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i,
                                   PLXString& html_io) {
  PLXString const key = SendMail_GetArgument(info_i, kSendMailArgument_RecordID, "0");
  if (PLXGlueDBMoveToRecord(info_i, database_i, key) == 0) return true;
  html_io.Append("Please select an existing message.");
  return false;
}

static PLXString SendMail_GetStoredName(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i) {
  return kSendMailStoredNamePrefix +
         PLXGlueDBGetNumberFieldValue(info_i, database_i, kSendMailDatabaseField_MessageID)
             .GetStringRepresentation();
}

static PLXFileSpecification SendMail_GetStoredFile(_PLXAPI_ModuleProcessingInfo* info_i,
                                                   PLXString const& name_i) {
  return {PLXFolderSpecification(PLXGlueGetRegionDataFolderPath(info_i, "FM")), name_i};
}

// The stored message as text: what is no character of a text shows as a dot, and a very long one only begins.
static void SendMail_AppendStoredMessage(PLXFileSpecification const& file_i, PLXString& html_io) {
  PLXFileStream stream(file_i);
  PLXUInt32 const size = stream.GetExpectedByteCount();
  PLXString text;
  char* const start = text.ReserveLength(std::min(size, kSendMailLongestMessageShown));
  PLXUInt32 const length = stream.GetNextBytes(reinterpret_cast<PLXUInt8*>(start), text.GetLength());
  std::replace_if(
      start, start + length,
      [](char character) {
        auto const byte = static_cast<unsigned char>(character);
        return (byte < ' ' && character != '\n' && character != '\t') || byte == 0x7F;
      },
      '.');
  text.ReserveLength(length);
  AppendMarkupText(text, html_io);
  if (size > length) {
    html_io.Append("\r\n[").Append(SendMail_GetNumberText(size - length)).Append(" bytes more]");
  }
}

static void SendMail_MessageDisplayForm(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i,
                                        PLXString& html_io) {
  SendMail_AppendFormStart(info_i, html_io);
  SendMail_AppendIdentity(info_i, database_i, SendMail_GetArgument(info_i, kSendMailArgument_Page, "1"),
                          html_io);
  html_io.Append("\r\n<table border=\"0\" cellspacing=\"1\" cellpadding=\"4\">");
  for (PLXUInt32 index = 0; index < kSendMailEditableFieldCount; ++index) {
    SendMail_EditableField const& row = SendMail_GetEditableFields()[index];
    html_io.Append("\r\n<tr><th scope=\"row\" align=\"left\" valign=\"top\"><label for=\"");
    html_io.Append(row.argument).Append("\">").Append(row.label).Append("</label></th><td><textarea id=\"");
    html_io.Append(row.argument).Append("\" name=\"").Append(row.argument);
    html_io.Append("\" rows=\"2\" cols=\"30\">");
    AppendMarkupText(SendMail_GetText(info_i, database_i, row.field), html_io);
    html_io.Append("</textarea></td></tr>");
  }
  html_io.Append("\r\n<tr><th scope=\"row\" align=\"left\" valign=\"top\">Info</th><td>");
  AppendMarkupText(SendMail_GetText(info_i, database_i, kSendMailDatabaseField_Info), html_io);
  html_io.Append("</td></tr>\r\n</table>\r\n<p>");
  SendMail_AppendButton(kSendMailArgument_Action, "Save", html_io);
  SendMail_AppendButton(kSendMailArgument_Action, "Cancel", html_io);
  html_io.Append("</p></form>\r\n<p>Message text:</p>\r\n<pre>\r\n");
  SendMail_AppendStoredMessage(SendMail_GetStoredFile(info_i, SendMail_GetStoredName(info_i, database_i)),
                               html_io);
  html_io.Append("</pre>");
}

static void SendMail_VerifyDeleteForm(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i,
                                      PLXString& html_io) {
  SendMail_AppendFormStart(info_i, html_io);
  SendMail_AppendIdentity(info_i, database_i, SendMail_GetArgument(info_i, kSendMailArgument_Page, "1"),
                          html_io);
  SendMail_AppendHidden(kSendMailArgument_Action, "DeleteMessage", html_io);
  html_io.Append("\r\n<p>Delete the message &quot;");
  AppendMarkupText(SendMail_GetText(info_i, database_i, kSendMailDatabaseField_Subject), html_io);
  html_io.Append("&quot; to ");
  AppendMarkupText(SendMail_GetText(info_i, database_i, kSendMailDatabaseField_To), html_io);
  html_io.Append("? It was not delivered and cannot be brought back.</p>\r\n<p>");
  SendMail_AppendButton(kSendMailArgument_Confirmation, "Yes", html_io);
  SendMail_AppendButton(kSendMailArgument_Confirmation, "No", html_io);
  html_io.Append("</p></form>");
}

static void SendMail_MailSentForm(_PLXAPI_ModuleProcessingInfo* info_i, PLXString& html_io) {
  SendMail_AppendFormStart(info_i, html_io);
  SendMail_AppendHidden(kSendMailArgument_Page, SendMail_GetArgument(info_i, kSendMailArgument_Page, "1"),
                        html_io);
  html_io.Append(
      "\r\n<p>The message is now being resent.  If successful, the message will be removed from the "
      "list.</p>\r\n<p>");
  SendMail_AppendButton(kSendMailArgument_Action, "DisplayList", html_io, "Back to the list");
  html_io.Append("</p></form>");
}

// ---- Actions ----

static void SendMail_AddList(PLXString const& list_i, PLXEmail& email_io,
                             void (PLXEmail::*add_i)(PLXString const&)) {
  PLXTokenizedString const addresses(list_i, kRecipientListDelimiter);
  for (PLXUInt32 index = 0; index < addresses.GetTokenCount(); ++index) (email_io.*add_i)(addresses[index]);
}

// The record stays until the action reports a success.
static void SendMail_SendAgain(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i) {
  SendMail_Places places;
  SendMail_GetPlaces(info_i, places);
  PLXEmail email(places.failedMailFolder, SendMail_GetStoredName(info_i, database_i), places.callbackURL);
  email.SetOrigin(places.page);
  if (Journal_GetService() != nullptr) {
    PLXSInt32 const attempts =
        PLXGlueDBGetIntegerFieldValue(info_i, database_i, kSendMailDatabaseField_Attempts);
    email.SetAttempt(static_cast<PLXUInt32>(std::max(attempts, 0)) + 1);
  }
  email.SetMailServer(SendMail_GetText(info_i, database_i, kSendMailDatabaseField_SMTPServer));
  email.SetFrom(SendMail_GetText(info_i, database_i, kSendMailDatabaseField_From));
  email.SetReplyTo(SendMail_GetText(info_i, database_i, kSendMailDatabaseField_ReplyTo));
  email.SetSubject(SendMail_GetText(info_i, database_i, kSendMailDatabaseField_Subject));
  SendMail_AddList(SendMail_GetText(info_i, database_i, kSendMailDatabaseField_To), email, &PLXEmail::AddTo);
  SendMail_AddList(SendMail_GetText(info_i, database_i, kSendMailDatabaseField_CC), email, &PLXEmail::AddCC);
  SendMail_AddList(SendMail_GetText(info_i, database_i, kSendMailDatabaseField_BCC), email,
                   &PLXEmail::AddBCC);
  email.Send();
}

// The record goes before the file: what is left after a death in between is a file that no list shows.
static bool SendMail_DeleteMessage(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i) {
  if (!(PLXStringID(SendMail_GetArgument(info_i, kSendMailArgument_Confirmation, "No"),
                    PLXStringID::kIgnoreCase) == kSendMailConfirmation_Yes)) {
    return true;
  }
  PLXString const key = SendMail_GetArgument(info_i, kSendMailArgument_RecordID, "0");
  if (PLXGlueDBMoveToRecord(info_i, database_i, key) != 0) return true;  // it is gone already
  PLXString const name = SendMail_GetStoredName(info_i, database_i);
  if (PLXGlueDBDeleteRecord(info_i, database_i, key) != 0) {
    return SendMail_ReportDatabaseProblem(info_i, database_i, "delete the requested record from the &quot;");
  }
  SendMail_GetStoredFile(info_i, name).Delete();
  return true;
}

// A field that the form does not bring stays as it is.
static bool SendMail_SaveMessage(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i) {
  for (PLXUInt32 index = 0; index < kSendMailEditableFieldCount; ++index) {
    SendMail_EditableField const& row = SendMail_GetEditableFields()[index];
    PLXString value;
    if (PLXGlueGetPostArgument(info_i, row.argument, 0, value, PLXString()) &&
        PLXGlueDBSetLongTextFieldValue(info_i, database_i, row.field, value) != 0) {
      return SendMail_ReportDatabaseProblem(info_i, database_i, "set the field values in the &quot;");
    }
  }
  return PLXGlueDBUpdateRecord(info_i, database_i) == 0 ||
         SendMail_ReportDatabaseProblem(info_i, database_i, "update a record to the &quot;");
}

// Does what the form asks for and shows the next screen. 0, or the result of a problem that was reported.
static PLXUInt32 SendMail_Admin(_PLXAPI_ModuleProcessingInfo* info_i, PLXString& output_o,
                                PLXUInt32 database_i) {
  PLXStringID const action(SendMail_GetArgument(info_i, kSendMailArgument_Action, "DisplayList"),
                           PLXStringID::kIgnoreCase);
  char const* page = kSendMailArgument_Page;
  bool showsList = false;
  bool isDone = true;
  if (action == kSendMailAction_Edit) {
    if (SendMail_MoveToMessage(info_i, database_i, output_o)) {
      SendMail_MessageDisplayForm(info_i, database_i, output_o);
    }
  } else if (action == kSendMailAction_Send) {
    if (SendMail_MoveToMessage(info_i, database_i, output_o)) {
      SendMail_SendAgain(info_i, database_i);
      SendMail_MailSentForm(info_i, output_o);
    }
  } else if (action == kSendMailAction_Delete) {
    if (SendMail_MoveToMessage(info_i, database_i, output_o)) {
      SendMail_VerifyDeleteForm(info_i, database_i, output_o);
    }
  } else if (action == kSendMailAction_DeleteMessage) {
    showsList = isDone = SendMail_DeleteMessage(info_i, database_i);
  } else if (action == kSendMailAction_Save) {
    if (SendMail_MoveToMessage(info_i, database_i, output_o)) {
      showsList = isDone = SendMail_SaveMessage(info_i, database_i);
    }
  } else {
    showsList = true;
    if (action == kSendMailAction_Previous || action == kSendMailAction_PreviousEncoded) {
      page = kSendMailArgument_PrevPage;
    } else if (action == kSendMailAction_Next || action == kSendMailAction_NextEncoded) {
      page = kSendMailArgument_NextPage;
    }
  }
  if (showsList) {
    isDone = SendMail_MessageListForm(info_i, database_i, SendMail_GetArgument(info_i, page, "1"), output_o);
  }
  if (isDone) return kPLXResult_Success;
  output_o.Empty();
  return kNetworkResult_OperationFailed;
}
