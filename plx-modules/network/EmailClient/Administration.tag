#pragma once

// The administration of a region's web mail: its users with their passwords, and the options that hold for
// all of them. Every screen is a form that posts to the page it stands in.

#include <algorithm>
#include <cstdint>

#include "Common.tag"

static constexpr PLXUInt32 kEmailClientAdminAction_ListUsernames = FourCC("Bomb");
static constexpr PLXUInt32 kEmailClientAdminAction_AddUsername = FourCC("Chap");
static constexpr PLXUInt32 kEmailClientAdminAction_UpdateUsername = FourCC("Dude");
static constexpr PLXUInt32 kEmailClientAdminAction_DeleteUsername = FourCC("Eeek");
static constexpr PLXUInt32 kEmailClientAdminAction_ConfirmUsernameDeletion = FourCC("Fume");
static constexpr PLXUInt32 kEmailClientAdminAction_DisplayOptions = FourCC("Golf");
static constexpr PLXUInt32 kEmailClientAdminAction_SaveOptions = FourCC("High");
static constexpr PLXUInt32 kEmailClientAdminAction_Back = FourCC("ABBA");

PLX_STRING_ID_CONSTANT(kEmailClientAdminParameter_DisplayLimit, "displayLimit");
PLX_STRING_CONSTANT(kEmailClientAdminArgument_Username, "Username_plxEmailClient");
PLX_STRING_CONSTANT(kEmailClientAdminArgument_Password, "Password_plxEmailClient");
PLX_STRING_CONSTANT(kEmailClientAdminArgument_PageNumber, "PageNumber_plxEmailClient");
PLX_STRING_CONSTANT(kEmailClientAdminArgument_POPServer, "POPServer_plxEmailClient");
PLX_STRING_CONSTANT(kEmailClientAdminArgument_SMTPServer, "STMPServer_plxEmailClient");
PLX_STRING_CONSTANT(kEmailClientAdminArgument_MaxAttachmentSize, "MaxAttachmentSize_plxEmailClient");

static constexpr int kEmailClientAdminDefaultDisplayLimit = 10;  // users of a page
static constexpr int kEmailClientAdminLargestDisplayLimit = 50;
static constexpr unsigned kEmailClientAdminLoginSize = 20;  // characters that an input shows, and takes
static constexpr unsigned kEmailClientAdminLongestLogin = 31;
static constexpr char kEmailClientAdminDefaultMaxAttachmentSize[] = "2000";  // kilobytes
static constexpr char kEmailClientAdminContactRemedy[] =
    "Please contact the webmaster to report this problem.";

// ---- Login ----

// The administrator of the preferences, or any login of the region while there is none. An empty password
// opens nothing, so that a name that was stored without one is no way in.
static bool EmailClient_RunAdmin_IsAdmitted(_PLXAPI_ModuleProcessingInfo* info_i) {
  PLXString const user = EmailClient_GetCGI(info_i, "REMOTE_USER");
  PLXString const password = EmailClient_GetCGI(info_i, "AUTH_TYPE");
  if (password.IsEmpty()) return false;
  PLXString const adminUser = EmailClient_GetPreference(info_i, kEmailClientPreference_AdminUsername);
  PLXString const adminPassword =
      EmailClient_DecryptOrEmpty(EmailClient_GetPreference(info_i, kEmailClientPreference_AdminPassword));
  if (adminUser.IsEmpty() && adminPassword.IsEmpty()) {
    return PLXGlueValidateDomainLogin(info_i, user, password);
  }
  return user == adminUser && password == adminPassword;
}

static PLXUInt32 EmailClient_RunAdmin_GetAction(_PLXAPI_ModuleProcessingInfo* info_i) {
  return EmailClient_GetPostedAction(info_i, PLXString());
}

// ---- Markup ----

static void EmailClient_RunAdmin_AppendFormStart(PLXString const& label_i, PLXString& html_io,
                                                 char const* style_i = "margin: 0") {
  html_io.Append("\r\n<form method=\"post\" style=\"").Append(style_i);
  html_io.Append("\" aria-label=\"");
  AppendMarkupText(label_i, html_io);
  html_io.Append("\">");
}

static void EmailClient_RunAdmin_AppendPageNumber(PLXUInt32 page_i, PLXString& html_io) {
  EmailClient_AppendHidden(kEmailClientAdminArgument_PageNumber,
                           PLXStringUtility::GetStringRepresentation(page_i), html_io);
}

// ---- Main screen and region options ----

static PLXString EmailClient_RunAdmin_DisplayMain() {
  PLXString html;
  EmailClient_RunAdmin_AppendFormStart("Email Client Administration", html);
  html.Append("\r\n<table border=\"0\" cellspacing=\"1\" cellpadding=\"4\" align=\"center\">");
  html.Append("\r\n<tr><td bgcolor=\"#ffffff\">");
  EmailClient_AppendButton(kEmailClientAdminAction_ListUsernames, "Edit Users", html);
  html.Append("</td><td bgcolor=\"#ffffff\">");
  EmailClient_AppendButton(kEmailClientAdminAction_DisplayOptions, "Edit Options", html);
  return html.Append("</td></tr>\r\n</table></form>");
}

static void EmailClient_RunAdmin_AppendOption(char const* label_i, PLXString const& argument_i,
                                              PLXString const& value_i, unsigned size_i, unsigned maximum_i,
                                              char const* unit_i, PLXString& html_io) {
  html_io.Append("\r\n<tr><th scope=\"row\" align=\"left\">").Append(label_i).Append("</th><td>");
  EmailClient_AppendInput("text", argument_i, value_i, size_i, maximum_i, label_i, html_io);
  html_io.Append(unit_i).Append("</td></tr>");
}

static PLXString EmailClient_RunAdmin_DisplayOptions(_PLXAPI_ModuleProcessingInfo* info_i) {
  static constexpr unsigned kServerSize = 30;
  static constexpr unsigned kNumberSize = 6;
  static constexpr unsigned kLongestNumber = 9;
  PLXString html;
  html.ReserveToAppend(2048);
  EmailClient_RunAdmin_AppendFormStart("Email Client Region Options", html);
  html.Append("\r\n<table border=\"0\" cellspacing=\"0\" cellpadding=\"4\" align=\"center\">");
  html.Append(
      "\r\n<tr><th colspan=\"2\" scope=\"colgroup\" bgcolor=\"#999999\">Email Client Region "
      "Options</th></tr>");
  EmailClient_RunAdmin_AppendOption("POP Server", kEmailClientAdminArgument_POPServer,
                                    EmailClient_GetPreference(info_i, kEmailClientPreference_POPServer),
                                    kServerSize, 0, "", html);
  EmailClient_RunAdmin_AppendOption("SMTP Server", kEmailClientAdminArgument_SMTPServer,
                                    EmailClient_GetPreference(info_i, kEmailClientPreference_SMTPServer),
                                    kServerSize, 0, "", html);
  EmailClient_RunAdmin_AppendOption(
      "Maximum Allowed Attachment Size", kEmailClientAdminArgument_MaxAttachmentSize,
      EmailClient_GetPreference(info_i, kEmailClientPreference_MaxAttachmentSize,
                                kEmailClientAdminDefaultMaxAttachmentSize),
      kNumberSize, kLongestNumber, " <b>K</b>", html);
  html.Append("\r\n<tr><td colspan=\"2\" align=\"center\" bgcolor=\"#cccccc\">");
  EmailClient_AppendButton(kEmailClientAdminAction_SaveOptions, "Save", html);
  html.Append(" ");
  EmailClient_AppendButton(kEmailClientAdminAction_Back, "Back", html);
  return html.Append("</td></tr>\r\n</table></form>");
}

static PLXUInt32 EmailClient_RunAdmin_SaveOptions(_PLXAPI_ModuleProcessingInfo* info_i) {
  int const kilobytes = PLXStringUtility::GetNumericalRepresentation(
      EmailClient_GetPostArgument(info_i, kEmailClientAdminArgument_MaxAttachmentSize,
                                  kEmailClientAdminDefaultMaxAttachmentSize),
      10);
  bool const isSaved =
      PLXGlueSetPreference(info_i, kEmailClientPreference_POPServer,
                           EmailClient_GetPostArgument(info_i, kEmailClientAdminArgument_POPServer)) &&
      PLXGlueSetPreference(info_i, kEmailClientPreference_SMTPServer,
                           EmailClient_GetPostArgument(info_i, kEmailClientAdminArgument_SMTPServer)) &&
      PLXGlueSetPreference(info_i, kEmailClientPreference_MaxAttachmentSize,
                           PLXStringUtility::GetStringRepresentation(std::max(kilobytes, 0)));
  return isSaved ? kPLXResult_Success
                 : ReportProblem(info_i, kPLXResult_GeneralError, "The region options could not be saved.",
                                 kEmailClientAdminContactRemedy);
}

// ---- The list of users ----

// A form cannot begin in one cell and end in another: it has the row to itself and lays out the columns.
static void EmailClient_RunAdmin_AppendRowStart(char const* color_i, PLXString const& label_i,
                                                PLXString& html_io) {
  html_io.Append("\r\n<tr bgcolor=\"").Append(color_i).Append("\"><td colspan=\"3\">");
  EmailClient_RunAdmin_AppendFormStart(label_i, html_io,
                                       "display: grid; grid-template-columns: repeat(3, minmax(0, 1fr)); "
                                       "gap: 8px; align-items: center; margin: 0; overflow-wrap: anywhere");
}

static void EmailClient_RunAdmin_AppendRowEnd(PLXUInt32 firstAction_i, char const* firstLabel_i,
                                              PLXUInt32 secondAction_i, char const* secondLabel_i,
                                              PLXString& html_io) {
  html_io.Append("<span>");
  EmailClient_AppendButton(firstAction_i, firstLabel_i, html_io);
  html_io.Append(" ");
  EmailClient_AppendButton(secondAction_i, secondLabel_i, html_io);
  html_io.Append("</span></form></td></tr>");
}

static void EmailClient_RunAdmin_AppendLogin(PLXString const& argument_i, PLXString const& value_i,
                                             PLXString const& label_i, PLXString& html_io) {
  EmailClient_AppendInput("text", argument_i, value_i, kEmailClientAdminLoginSize,
                          kEmailClientAdminLongestLogin, label_i, html_io);
}

static void EmailClient_RunAdmin_AppendAddRow(PLXString& html_io) {
  EmailClient_RunAdmin_AppendRowStart("#ffffff", "New user", html_io);
  EmailClient_RunAdmin_AppendLogin(kEmailClientAdminArgument_Username, PLXString(), "Username of a new user",
                                   html_io);
  EmailClient_RunAdmin_AppendLogin(kEmailClientAdminArgument_Password, PLXString(), "Password of a new user",
                                   html_io);
  EmailClient_RunAdmin_AppendRowEnd(kEmailClientAdminAction_AddUsername, "Add", kEmailClientAdminAction_Back,
                                    "Back", html_io);
}

// The current record as the row `index_i` of a page.
static void EmailClient_RunAdmin_AppendUserRow(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i,
                                               int index_i, PLXUInt32 page_i, PLXString& html_io) {
  PLXString const username = PLXGlueDBGetTextFieldValue(info_i, database_i, kEmailClientField_Username);
  PLXString const password =
      EmailClient_DecryptOrEmpty(EmailClient_GetText(info_i, database_i, kEmailClientField_Password));
  EmailClient_RunAdmin_AppendRowStart(index_i % 2 == 0 ? "#cccccc" : "#aaaaaa", "User " + username, html_io);
  html_io.Append("<span>");
  AppendMarkupText(username, html_io);
  html_io.Append("</span>");
  EmailClient_AppendHidden(kEmailClientAdminArgument_Username, username, html_io);
  EmailClient_RunAdmin_AppendPageNumber(page_i, html_io);
  EmailClient_RunAdmin_AppendLogin(kEmailClientAdminArgument_Password, password, "Password of " + username,
                                   html_io);
  EmailClient_RunAdmin_AppendRowEnd(kEmailClientAdminAction_UpdateUsername, "Update",
                                    kEmailClientAdminAction_ConfirmUsernameDeletion, "Delete", html_io);
}

static void EmailClient_RunAdmin_AppendPageButton(PLXUInt32 page_i, char const* label_i,
                                                  char const* description_i, PLXString& html_io) {
  html_io.Append("<td>");
  EmailClient_RunAdmin_AppendFormStart(description_i, html_io);
  EmailClient_RunAdmin_AppendPageNumber(page_i, html_io);
  EmailClient_AppendButton(kEmailClientAdminAction_ListUsernames, label_i, html_io);
  html_io.Append("</form></td>");
}

static void EmailClient_RunAdmin_AppendPager(PLXUInt32 page_i, bool hasMore_i, PLXString& html_io) {
  if (page_i == 0 && !hasMore_i) return;
  html_io.Append(
      "\r\n<table role=\"presentation\" border=\"0\" cellspacing=\"0\" cellpadding=\"4\" "
      "align=\"center\"><tr>");
  if (page_i > 0) EmailClient_RunAdmin_AppendPageButton(page_i - 1, "&lt;&lt;", "Previous page", html_io);
  if (hasMore_i) EmailClient_RunAdmin_AppendPageButton(page_i + 1, "&gt;&gt;", "Next page", html_io);
  html_io.Append("</tr></table>");
}

static int EmailClient_RunAdmin_GetDisplayLimit(_PLXAPI_ModuleProcessingInfo* info_i) {
  int limit = 0;
  PLXGlueGetTagParameter(info_i, kEmailClientAdminParameter_DisplayLimit, 0, limit, 0);
  return limit < 1 ? kEmailClientAdminDefaultDisplayLimit
                   : std::min(limit, kEmailClientAdminLargestDisplayLimit);
}

// A page that does not exist, as when its last user was just deleted, gives way to the one before it.
static PLXUInt32 EmailClient_RunAdmin_ListUsernames(_PLXAPI_ModuleProcessingInfo* info_i,
                                                    PLXUInt32 database_i, PLXString& html_io) {
  PLXGlueDBClearSearchResults(info_i, database_i);
  PLXUInt32 result = PLXGlueDBExecuteSearch(info_i, database_i, "ORDER BY " + kEmailClientField_Username);
  if (result != 0) return result;
  auto const limit = static_cast<std::uint64_t>(EmailClient_RunAdmin_GetDisplayLimit(info_i));
  std::uint64_t const count = PLXGlueDBGetResultCount(info_i, database_i);
  std::uint64_t page = EmailClient_GetPostIndex(info_i, kEmailClientAdminArgument_PageNumber);
  if (page > 0 && count <= page * limit) --page;
  std::uint64_t const first = page * limit;
  int const rows = first < count ? static_cast<int>(std::min(count - first, limit)) : 0;
  if (rows > 0 && first > 0) {
    result = PLXGlueDBJump(info_i, database_i, static_cast<PLXSInt32>(first));
    if (result != 0) return result;
  }
  PLXUInt32 const pageNumber = static_cast<PLXUInt32>(page);
  html_io.ReserveToAppend(static_cast<PLXUInt32>(rows + 2) * 1536);
  html_io.Append(
      "\r\n<table width=\"528\" style=\"max-width: 100%\" border=\"0\" cellspacing=\"1\" cellpadding=\"4\" "
      "align=\"center\">");
  html_io.Append("\r\n<tr>");
  for (char const* title : {"Username", "Password", "Operation"}) {
    html_io.Append("<th scope=\"col\" width=\"33%\" align=\"left\" bgcolor=\"#999999\">").Append(title);
    html_io.Append("</th>");
  }
  html_io.Append("</tr>");
  EmailClient_RunAdmin_AppendAddRow(html_io);
  for (int index = 0; index < rows; ++index) {
    if (index > 0 && PLXGlueDBMoveNextRecord(info_i, database_i) != 0) break;
    EmailClient_RunAdmin_AppendUserRow(info_i, database_i, index, pageNumber, html_io);
  }
  html_io.Append("\r\n</table>");
  EmailClient_RunAdmin_AppendPager(pageNumber, first + limit < count, html_io);
  return kPLXResult_Success;
}

static PLXString EmailClient_RunAdmin_ConfirmUsernameDeletion(_PLXAPI_ModuleProcessingInfo* info_i) {
  PLXString const username = EmailClient_GetPostArgument(info_i, kEmailClientAdminArgument_Username);
  PLXString html;
  EmailClient_RunAdmin_AppendFormStart("Deletion of a user", html);
  html.Append(
      "\r\n<p align=\"center\" style=\"overflow-wrap: anywhere\">Are you sure you want to delete the \"");
  AppendMarkupText(username, html);
  html.Append("\" username?</p>\r\n<p align=\"center\">");
  EmailClient_AppendHidden(kEmailClientAdminArgument_Username, username, html);
  EmailClient_RunAdmin_AppendPageNumber(
      EmailClient_GetPostIndex(info_i, kEmailClientAdminArgument_PageNumber), html);
  EmailClient_AppendButton(kEmailClientAdminAction_DeleteUsername, "Yes", html);
  html.Append(" ");
  EmailClient_AppendButton(kEmailClientAdminAction_ListUsernames, "No", html);
  return html.Append("</p></form>");
}

// ---- Changes ----

// Nobody logs in without a name.
static PLXUInt32 EmailClient_RunAdmin_AddUsername(_PLXAPI_ModuleProcessingInfo* info_i,
                                                  PLXUInt32 database_i) {
  PLXString const username = EmailClient_GetPostArgument(info_i, kEmailClientAdminArgument_Username);
  if (username.IsEmpty()) {
    return ReportProblem(info_i, kPLXResult_InvalidParameterValue, "No username was specified.",
                         "Please specify a username.");
  }
  return EmailClient_AddUser(info_i, database_i, username,
                             EmailClient_GetPostArgument(info_i, kEmailClientAdminArgument_Password));
}

static PLXUInt32 EmailClient_RunAdmin_UpdateUsername(_PLXAPI_ModuleProcessingInfo* info_i,
                                                     PLXUInt32 database_i) {
  if (!EmailClient_FindUser(info_i, database_i,
                            EmailClient_GetPostArgument(info_i, kEmailClientAdminArgument_Username))) {
    return ReportProblem(info_i, kPLXResult_InvalidParameterValue, "The specified username is unknown.",
                         "Please specify an existing username.");
  }
  return EmailClient_SetPassword(info_i, database_i,
                                 EmailClient_GetPostArgument(info_i, kEmailClientAdminArgument_Password));
}

static PLXUInt32 EmailClient_RunAdmin_DeleteUsername(_PLXAPI_ModuleProcessingInfo* info_i,
                                                     PLXUInt32 database_i) {
  return EmailClient_DeleteUser(info_i, database_i,
                                EmailClient_GetPostArgument(info_i, kEmailClientAdminArgument_Username));
}

// Does what a form asks for and appends the next screen. A change that fails is reported and shows none.
static PLXUInt32 EmailClient_RunAdmin(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i,
                                      PLXString& output_io) {
  if (!EmailClient_RunAdmin_IsAdmitted(info_i)) return EmailClient_Challenge(info_i);
  PLXUInt32 result = kPLXResult_Success;
  PLXString screen;
  PLXUInt32 const action = EmailClient_RunAdmin_GetAction(info_i);
  switch (action) {
    case kEmailClientAdminAction_ListUsernames:
    case kEmailClientAdminAction_AddUsername:
    case kEmailClientAdminAction_UpdateUsername:
    case kEmailClientAdminAction_DeleteUsername:
      if (action == kEmailClientAdminAction_AddUsername) {
        result = EmailClient_RunAdmin_AddUsername(info_i, database_i);
      } else if (action == kEmailClientAdminAction_UpdateUsername) {
        result = EmailClient_RunAdmin_UpdateUsername(info_i, database_i);
      } else if (action == kEmailClientAdminAction_DeleteUsername) {
        result = EmailClient_RunAdmin_DeleteUsername(info_i, database_i);
      }
      if (result == kPLXResult_Success) {
        result = EmailClient_RunAdmin_ListUsernames(info_i, database_i, screen);
      }
      break;
    case kEmailClientAdminAction_ConfirmUsernameDeletion:
      screen = EmailClient_RunAdmin_ConfirmUsernameDeletion(info_i);
      break;
    case kEmailClientAdminAction_DisplayOptions:
      screen = EmailClient_RunAdmin_DisplayOptions(info_i);
      break;
    case kEmailClientAdminAction_SaveOptions:
      result = EmailClient_RunAdmin_SaveOptions(info_i);
      if (result == kPLXResult_Success) screen = EmailClient_RunAdmin_DisplayMain();
      break;
    default:
      screen = EmailClient_RunAdmin_DisplayMain();
  }
  if (result == kPLXResult_Success) output_io.Append(screen);
  return result;
}
