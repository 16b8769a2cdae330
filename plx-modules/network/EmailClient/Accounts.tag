#pragma once

// The four account modes, which show no screen, and the administrator's credentials on the preference page.

#include "Common.tag"

// The missing parameter has been reported.
static PLXUInt32 EmailClient_RunAddUser(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i) {
  PLXString username;
  PLXString password;
  if (!PLXGlueGetRequiredTagParameter(info_i, kEmailClientParameter_Username, 0, username) ||
      !PLXGlueGetRequiredTagParameter(info_i, kEmailClientParameter_Password, 0, password)) {
    return kPLXResult_MissingRequiredParameter;
  }
  if (username.IsEmpty()) {
    PLXGlueReportMissingTagParameter(info_i, kEmailClientParameter_Username);
    return kPLXResult_MissingRequiredParameter;
  }
  return EmailClient_AddUser(info_i, database_i, username, password);
}

static PLXUInt32 EmailClient_RunDeleteUser(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i) {
  PLXString username;
  if (!PLXGlueGetRequiredTagParameter(info_i, kEmailClientParameter_Username, 0, username)) {
    return kPLXResult_MissingRequiredParameter;
  }
  return EmailClient_DeleteUser(info_i, database_i, username);
}

static PLXUInt32 EmailClient_RunQueryUser(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i,
                                          PLXString& output_io) {
  PLXString username;
  if (!PLXGlueGetRequiredTagParameter(info_i, kEmailClientParameter_Username, 0, username)) {
    return kPLXResult_MissingRequiredParameter;
  }
  output_io.Append(EmailClient_FindUser(info_i, database_i, username) ? "Yes" : "No");
  return kPLXResult_Success;
}

static PLXUInt32 EmailClient_RunChangePassword(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i) {
  PLXString username;
  PLXString password;
  PLXString newPassword;
  if (!PLXGlueGetRequiredTagParameter(info_i, kEmailClientParameter_Username, 0, username) ||
      !PLXGlueGetRequiredTagParameter(info_i, kEmailClientParameter_Password, 0, password) ||
      !PLXGlueGetRequiredTagParameter(info_i, kEmailClientParameter_NewPassword, 0, newPassword)) {
    return kPLXResult_MissingRequiredParameter;
  }
  if (!EmailClient_FindUser(info_i, database_i, username)) {
    return ReportProblem(info_i, kPLXResult_InvalidParameterValue, "The specified username is unknown.",
                         "Please specify an existing username.");
  }
  PLXString const stored =
      EmailClient_Decrypt(EmailClient_GetText(info_i, database_i, kEmailClientField_Password));
  if (!(stored == password)) {
    return ReportProblem(
        info_i, kPLXResult_InvalidParameterValue,
        "You are not authorized to edit this information.  The specified password is invalid.",
        "Please enter a valid password for the specified username.");
  }
  return EmailClient_SetPassword(info_i, database_i, newPassword);
}

// ---- Preferences ----

struct EmailClient_AdminControl {
  char const* label;
  char const* type;
  char const* argument;
  PLXString value;
};

static PLXString EmailClient_GetPreferencesHTML(_PLXAPI_ModuleProcessingInfo* info_i) {
  auto const decipher = [info_i](PLXString const& preference_i) {
    return EmailClient_DecryptOrEmpty(EmailClient_GetPreference(info_i, preference_i));
  };
  PLXString const password = decipher(kEmailClientPreference_AdminPassword);
  PLXString const verification = decipher(kEmailClientPreference_AdminPasswordVerification);
  EmailClient_AdminControl const controls[] = {
      {"Email Client Admin Username:", "text", "AdminUsername_plxEmailClient",
       EmailClient_GetPreference(info_i, kEmailClientPreference_AdminUsername)},
      {"Email Client Admin Password:", "password", "AdminPassword_plxEmailClient", password},
      {"Verify Admin Password:", "password", "AdminPasswordVerification_plxEmailClient", verification}};
  PLXString html("<table width=\"95%\" border=\"0\" cellspacing=\"0\" cellpadding=\"1\" align=\"center\">");
  html.ReserveToAppend(2048);
  html.Append("\r\n<tr><td colspan=\"2\">");
  html.Append(
      password == verification
          ? "&nbsp;"
          : "<font color=\"red\">* The passwords did not match.  Please reenter the passwords. *</font>");
  html.Append("</td></tr>");
  for (EmailClient_AdminControl const& control : controls) {
    html.Append("\r\n<tr><td>").Append(control.label).Append("</td><td>");
    EmailClient_AppendInput(control.type, control.argument, control.value, 30, 31, control.label, html);
    html.Append("</td></tr>");
  }
  return html.Append("\r\n</table>");
}

static void EmailClient_SetPreferences(_PLXAPI_ModuleProcessingInfo* info_i) {
  PLXGlueSetPreference(info_i, kEmailClientPreference_AdminUsername,
                       EmailClient_GetPostArgument(info_i, "AdminUsername_plxEmailClient"));
  PLXGlueSetPreference(
      info_i, kEmailClientPreference_AdminPassword,
      EmailClient_Encrypt(EmailClient_GetPostArgument(info_i, "AdminPassword_plxEmailClient")));
  PLXGlueSetPreference(
      info_i, kEmailClientPreference_AdminPasswordVerification,
      EmailClient_Encrypt(EmailClient_GetPostArgument(info_i, "AdminPasswordVerification_plxEmailClient")));
}
