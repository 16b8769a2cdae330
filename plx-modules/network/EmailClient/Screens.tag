#pragma once

// The web mail client of a user who has logged in: what the request asks for, in the user's skin.

#include <string_view>

#include "Common.tag"
#include "Mailboxes.tag"
#include "Personalities.tag"

static constexpr PLXUInt32 kEmailClientAction_Menu = FourCC("Apse");  // of no entry: shows the main screen
static constexpr PLXUInt32 kEmailClientAction_ListMessages = FourCC("Utah");
static constexpr PLXUInt32 kEmailClientAction_SkinOptions = FourCC("Sock");
static constexpr PLXUInt32 kEmailClientAction_SaveSkinOptions = FourCC("Trap");
static constexpr PLXUInt32 kEmailClientAction_EditCustomSkin = FourCC("Eels");
static constexpr PLXUInt32 kEmailClientAction_SaveCustomSkin = FourCC("Fire");

static constexpr char kEmailClient_PlaceholderStart[] = "&plxEmailClient";
static constexpr char kEmailClient_MainPlaceholder[] = "&plxEmailClientMain;";
PLX_STRING_ID_CONSTANT(kEmailClientPlaceholder_Main, "Main");
PLX_STRING_ID_CONSTANT(kEmailClientPlaceholder_MenuButton, "MenuButton");
PLX_STRING_ID_CONSTANT(kEmailClientPlaceholder_CheckButton, "CheckButton");
PLX_STRING_ID_CONSTANT(kEmailClientPlaceholder_OptionsButton, "OptionsButton");
PLX_STRING_ID_CONSTANT(kEmailClientPlaceholder_Name, "Name");

static constexpr char kEmailClient_SkinNumberArgument[] = "SkinNumber_plxEmailClient";
static constexpr char kEmailClient_CustomSkinArgument[] = "CustomSkin_plxEmailClient";
static constexpr PLXSInt32 kEmailClientSkin_Custom = 1;

// Which widths it has on a wide screen is fixed; a narrow one may make them smaller.
static constexpr char kEmailClient_DefaultSkin[] =
    "\r\n<form method=\"post\">\r\n<table align=\"center\" width=\"620\" style=\"max-width:100%\" "
    "border=\"4\" "
    "cellspacing=\"0\" cellpadding=\"4\" bgcolor=\"#000066\" bordercolorlight=\"Silver\" "
    "bordercolordark=\"Black\">\r\n<tr bgcolor=\"#660000\"><td align=\"left\"><font face=\"Arial\" "
    "size=\"3\" "
    "color=\"#ffffff\"><b>&plxEmailClientName;</b></font></td><td>&nbsp;</td></tr>\r\n<tr><td width=\"60%\">"
    "&plxEmailClientMenuButton; &plxEmailClientCheckButton; &plxEmailClientOptionsButton;</td>"
    "<td width=\"40%\">&nbsp;</td></tr>\r\n<tr><td colspan=\"2\"><table width=\"100%\" border=\"1\" "
    "cellspacing=\"0\" cellpadding=\"4\" bgcolor=\"#ffffff\"><tr><td>&plxEmailClientMain;</td></tr></table>"
    "</td></tr>\r\n</table>\r\n</form>";

// ---- Login and action ----

// Makes the user's record the current one. Nobody logs in with no password, so that a stored one that cannot
// be deciphered opens nothing.
static bool EmailClient_LogIn(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i) {
  PLXString const username = EmailClient_GetCGI(info_i, "REMOTE_USER");
  PLXString const password = EmailClient_GetCGI(info_i, "AUTH_TYPE");
  if (username.IsEmpty() || password.IsEmpty()) return false;
  PLXGlueDBClearSearchResults(info_i, database_i);
  if (PLXGlueDBExecuteSearch(info_i, database_i, "Username='" + username + "'") != 0 ||
      PLXGlueDBMoveFirstRecord(info_i, database_i) != 0) {
    return false;
  }
  return EmailClient_Decrypt(EmailClient_GetText(info_i, database_i, kEmailClientField_Password)) == password;
}

// A page of another site can hold a link that leads here. Browsers say so, and what such a link asks for is
// shown and not saved. Posts of other sites are the server's business.
static bool EmailClient_IsForeignLink(_PLXAPI_ModuleProcessingInfo* info_i) {
  PLXString const method = EmailClient_GetCGI(info_i, "REQUEST_METHOD");
  PLXString const source = EmailClient_GetCGI(info_i, "HTTP_SEC_FETCH_SITE");
  return !(method == "POST") && source.IsNotEmpty() && !(source == "same-origin") && !(source == "none");
}

// A button of the form, else the link that was followed.
static PLXUInt32 EmailClient_RunClient_GetAction(_PLXAPI_ModuleProcessingInfo* info_i) {
  PLXString link;
  PLXGlueGetPathArgument(info_i, kEmailClient_ActionArgument, 0, link, PLXString());
  return EmailClient_GetPostedAction(info_i, link);
}

// ---- Main screen ----

static void EmailClient_AppendLink(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 action_i,
                                   char const* more_i, char const* label_i, PLXString& html_io) {
  html_io.Append("<a href=\"");
  AppendMarkupText(EmailClient_GetCGI(info_i, "SCRIPT_NAME"), html_io);
  html_io.Append("?action=").Append(EmailClient_GetPageForm(action_i)).Append(more_i).Append("\">");
  html_io.Append(label_i).Append("</a>");
}

// A mail server that is down has been reported; what was collected before is shown all the same.
static PLXString EmailClient_RunClient_DisplayMain(_PLXAPI_ModuleProcessingInfo* info_i,
                                                   PLXUInt32 database_i) {
  EmailClient_Action_CheckMail(info_i, database_i);
  PLXUInt32 messages = 0;
  PLXUInt32 unread = 0;
  PLXUInt32 bytes = 0;
  EmailClient_Action_CountMessages(info_i, database_i, kEmailClient_InboxName, messages, unread, bytes);
  auto const number = [](PLXUInt32 value_i) {
    return PLXStringUtility::GetStringRepresentation(static_cast<unsigned int>(value_i));
  };
  PLXString html(
      "<table width=\"100%\" border=\"0\" cellspacing=\"0\" cellpadding=\"4\" bgcolor=\"#ffffff\">");
  html.ReserveToAppend(4096);
  html.Append(
      "\r\n<tr><td colspan=\"3\" align=\"center\"><table width=\"85%\" border=\"1\" cellspacing=\"0\" "
      "cellpadding=\"4\">\r\n<tr><th scope=\"col\">Mailbox</th><th scope=\"col\">Size</th>"
      "<th scope=\"col\">Message Count</th></tr>\r\n<tr><td>");
  EmailClient_AppendLink(info_i, kEmailClientAction_ListMessages, "&mailbox=Inbox", "Inbox", html);
  html.Append("</td><td align=\"right\">").Append(number(bytes)).Append("</td><td align=\"right\">");
  html.Append(number(messages)).Append("/").Append(number(unread)).Append("</td></tr>\r\n</table></td></tr>");
  struct Link {
    PLXUInt32 action;
    char const* label;
  };
  Link const links[] = {{kEmailClientAction_UserOptions, "User Options"},
                        {kEmailClientAction_ListPersonalities, "Personality Options"},
                        {kEmailClientAction_ListSignatures, "Signature Options"},
                        {kEmailClientAction_SkinOptions, "Skin Options"}};
  html.Append("\r\n<tr><td width=\"33%\"><table border=\"0\" cellspacing=\"0\" cellpadding=\"2\">");
  for (Link const& link : links) {
    html.Append("<tr><td>");
    EmailClient_AppendLink(info_i, link.action, "", link.label, html);
    html.Append("</td></tr>");
  }
  return html.Append(
      "</table></td><td width=\"33%\">&nbsp;</td><td width=\"33%\">&nbsp;</td></tr>\r\n</table>");
}

// ---- Skins ----

static PLXString EmailClient_RunClient_DisplaySkinOptions(_PLXAPI_ModuleProcessingInfo* info_i,
                                                          PLXUInt32 database_i) {
  bool const isCustom = PLXGlueDBGetIntegerFieldValue(info_i, database_i, kEmailClientField_SkinNumber) ==
                        kEmailClientSkin_Custom;
  PLXString html(
      "<table width=\"100%\" border=\"0\" cellspacing=\"0\" cellpadding=\"4\" bgcolor=\"#ffffff\">");
  html.ReserveToAppend(1024);
  html.Append("\r\n<tr><td><label>Skin: <select name=\"")
      .Append(kEmailClient_SkinNumberArgument)
      .Append("\">");
  html.Append(isCustom ? "<option value=\"0\">" : "<option value=\"0\" selected>")
      .Append("Default Skin</option>");
  html.Append(isCustom ? "<option value=\"1\" selected>" : "<option value=\"1\">")
      .Append("Custom Skin</option>");
  html.Append("</select></label> ");
  EmailClient_AppendButton(kEmailClientAction_EditCustomSkin, "Edit Custom Skin", html);
  html.Append("</td></tr>\r\n<tr><td>");
  EmailClient_AppendButton(kEmailClientAction_SaveSkinOptions, "Save", html);
  return html.Append("</td></tr>\r\n</table>");
}

static PLXUInt32 EmailClient_RunClient_SaveSkinOptions(_PLXAPI_ModuleProcessingInfo* info_i,
                                                       PLXUInt32 database_i) {
  PLXSInt32 const skin =
      static_cast<PLXSInt32>(EmailClient_GetPostIndex(info_i, kEmailClient_SkinNumberArgument));
  PLXUInt32 const result =
      PLXGlueDBSetIntegerFieldValue(info_i, database_i, kEmailClientField_SkinNumber, skin);
  return result == 0 ? PLXGlueDBUpdateRecord(info_i, database_i) : result;
}

static PLXString EmailClient_RunClient_EditCustomSkin(_PLXAPI_ModuleProcessingInfo* info_i,
                                                      PLXUInt32 database_i) {
  PLXString html(
      "<textarea aria-label=\"Custom skin\" rows=\"30\" cols=\"60\" wrap=\"soft\" "
      "style=\"max-width:100%\" name=\"");
  html.Append(kEmailClient_CustomSkinArgument).Append("\">");
  // A browser takes a line end that a text area begins with for its own.
  html.Append("\r\n");
  AppendMarkupText(EmailClient_GetText(info_i, database_i, kEmailClientField_CustomSkin), html);
  html.Append("</textarea><br>");
  EmailClient_AppendButton(kEmailClientAction_SaveCustomSkin, "Save", html);
  EmailClient_AppendButton(kEmailClientAction_SkinOptions, "Exit", html);
  return html;
}

static PLXUInt32 EmailClient_RunClient_SaveCustomSkin(_PLXAPI_ModuleProcessingInfo* info_i,
                                                      PLXUInt32 database_i) {
  PLXUInt32 const result =
      PLXGlueDBSetLongTextFieldValue(info_i, database_i, kEmailClientField_CustomSkin,
                                     EmailClient_GetPostArgument(info_i, kEmailClient_CustomSkinArgument));
  return result == 0 ? PLXGlueDBUpdateRecord(info_i, database_i) : result;
}

static void EmailClient_AppendPlaceholder(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i,
                                          PLXString const& screen_i, PLXString const& name_i,
                                          PLXString& page_io) {
  PLXStringID const name(name_i, PLXStringID::kIgnoreCase);
  page_io.ReserveToAppend(512);
  if (name == kEmailClientPlaceholder_Main) {
    page_io.ReserveToAppend(screen_i.GetLength());
    page_io.Append(screen_i);
  } else if (name == kEmailClientPlaceholder_MenuButton) {
    EmailClient_AppendButton(kEmailClientAction_Menu, "Menu", page_io);
  } else if (name == kEmailClientPlaceholder_CheckButton) {
    EmailClient_AppendButton(kEmailClientAction_Menu, "Check", page_io);
  } else if (name == kEmailClientPlaceholder_OptionsButton) {
    EmailClient_AppendButton(kEmailClientAction_UserOptions, "Options", page_io);
  } else if (name == kEmailClientPlaceholder_Name) {
    AppendMarkupText(EmailClient_Personalities_GetPersonalityValue(
                         EmailClient_GetText(info_i, database_i, kEmailClientField_Names),
                         EmailClient_GetActivePersonality(info_i, database_i)),
                     page_io);
  } else {
    page_io.Append(kEmailClient_PlaceholderStart).Append(name_i).Append(";");
  }
}

// In one pass over the skin: what takes a placeholder's place is not looked at again.
static PLXUInt32 EmailClient_RunClient_ReplaceSkinPlaceholders(_PLXAPI_ModuleProcessingInfo* info_i,
                                                               PLXUInt32 database_i,
                                                               PLXString const& screen_i,
                                                               PLXString& page_io) {
  constexpr PLXUInt32 kStartLength = sizeof kEmailClient_PlaceholderStart - 1;
  PLXString const skin(page_io);
  page_io.Empty();
  page_io.ReserveToAppend(skin.GetLength() + screen_i.GetLength());
  PLXUInt32 position = 0;
  PLXUInt32 start = 0;
  PLXUInt32 end = 0;
  while (skin.Find(kEmailClient_PlaceholderStart, position, kPLXWholeLength, kPLXOption_IgnoreCase, start) &&
         skin.Find(';', start + kStartLength, kPLXWholeLength, 0, end)) {
    page_io.ReserveToAppend(start - position);
    page_io.Append(skin.GetCStringAccess() + position, start - position);
    PLXString const name = skin.GetSubstring(start + kStartLength, end - start - kStartLength);
    EmailClient_AppendPlaceholder(info_i, database_i, screen_i, name, page_io);
    position = end + 1;
  }
  page_io.ReserveToAppend(skin.GetLength() - position);
  page_io.Append(skin.GetCStringAccess() + position, skin.GetLength() - position);
  return kPLXResult_Success;
}

// The skin that the user has chosen, its placeholders still in it.
static PLXString EmailClient_GetSkin(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i) {
  if (PLXGlueDBGetIntegerFieldValue(info_i, database_i, kEmailClientField_SkinNumber) !=
      kEmailClientSkin_Custom) {
    return kEmailClient_DefaultSkin;
  }
  PLXString const custom = EmailClient_GetText(info_i, database_i, kEmailClientField_CustomSkin);
  PLXString skin("\r\n<form method=\"post\">\r\n");
  skin.ReserveToAppend(custom.GetLength() + 64);
  skin.Append(custom);
  if (!custom.Contains(kEmailClient_MainPlaceholder, kPLXOption_IgnoreCase)) {
    skin.Append(kEmailClient_MainPlaceholder);
  }
  return skin.Append("\r\n</form>");
}

// ---- Dispatch ----

typedef PLXString (*EmailClient_Display)(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i);
typedef PLXUInt32 (*EmailClient_Save)(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i);

// What an action saves, if anything, and shows then.
struct EmailClient_ActionEntry {
  PLXUInt32 action;
  EmailClient_Save save;
  EmailClient_Display display;
};

static EmailClient_ActionEntry EmailClient_FindAction(PLXUInt32 action_i) {
  EmailClient_ActionEntry const entries[] = {
      {kEmailClientAction_ListMessages, nullptr, EmailClient_RunClient_ListMessages},
      {kEmailClientAction_UserOptions, nullptr, EmailClient_RunClient_DisplayUserOptions},
      {kEmailClientAction_SaveUserOptions, EmailClient_RunClient_SaveUserOptions,
       EmailClient_RunClient_DisplayUserOptions},
      {kEmailClientAction_ListPersonalities, nullptr, EmailClient_RunClient_ListPersonalities},
      {kEmailClientAction_AddPersonality, EmailClient_RunClient_AddPersonality,
       EmailClient_RunClient_ListPersonalities},
      {kEmailClientAction_SwitchPersonality, EmailClient_RunClient_SwitchPersonality,
       EmailClient_RunClient_ListPersonalities},
      {kEmailClientAction_ConfirmPersonalityDeletion, nullptr,
       EmailClient_RunClient_ConfirmPersonalityDeletion},
      {kEmailClientAction_DeletePersonality, EmailClient_RunClient_DeletePersonality,
       EmailClient_RunClient_ListPersonalities},
      {kEmailClientAction_ListSignatures, nullptr, EmailClient_RunClient_ListSignatures},
      {kEmailClientAction_AddSignature, EmailClient_RunClient_AddSignature,
       EmailClient_RunClient_ListSignatures},
      {kEmailClientAction_EditSignature, nullptr, EmailClient_RunClient_EditSignature},
      {kEmailClientAction_SaveSignature, EmailClient_RunClient_SaveSignature,
       EmailClient_RunClient_EditSignature},
      {kEmailClientAction_ConfirmSignatureDeletion, nullptr, EmailClient_RunClient_ConfirmSignatureDeletion},
      {kEmailClientAction_DeleteSignature, EmailClient_RunClient_DeleteSignature,
       EmailClient_RunClient_ListSignatures},
      {kEmailClientAction_SkinOptions, nullptr, EmailClient_RunClient_DisplaySkinOptions},
      {kEmailClientAction_SaveSkinOptions, EmailClient_RunClient_SaveSkinOptions,
       EmailClient_RunClient_DisplaySkinOptions},
      {kEmailClientAction_EditCustomSkin, nullptr, EmailClient_RunClient_EditCustomSkin},
      {kEmailClientAction_SaveCustomSkin, EmailClient_RunClient_SaveCustomSkin,
       EmailClient_RunClient_EditCustomSkin}};
  for (EmailClient_ActionEntry const& entry : entries) {
    if (entry.action == action_i) return entry;
  }
  return {action_i, nullptr, EmailClient_RunClient_DisplayMain};
}

// 0 with the page; 'MNAu' with the challenge and no page; what the database answered to a save, without one.
static PLXUInt32 EmailClient_RunClient(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i,
                                       PLXString& output_io) {
  if (!EmailClient_LogIn(info_i, database_i)) return EmailClient_Challenge(info_i);
  EmailClient_ActionEntry const entry = EmailClient_FindAction(EmailClient_RunClient_GetAction(info_i));
  if (entry.save != nullptr && !EmailClient_IsForeignLink(info_i)) {
    PLXUInt32 const result = entry.save(info_i, database_i);
    if (result != 0) return result;
  }
  PLXString const screen = entry.display(info_i, database_i);
  PLXString page = EmailClient_GetSkin(info_i, database_i);
  PLXUInt32 const result = EmailClient_RunClient_ReplaceSkinPlaceholders(info_i, database_i, screen, page);
  output_io.ReserveToAppend(page.GetLength() + 64);
  output_io.Append(page);
  return result;
}
