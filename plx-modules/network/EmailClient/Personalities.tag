#pragma once

// A user's personalities, signatures and options. All of them are entries of parallel lists in the user's
// record; entry 0 of the personalities is the one that was there first.

#include "Common.tag"

static constexpr PLXUInt32 kEmailClientAction_UserOptions = FourCC("Bull");
static constexpr PLXUInt32 kEmailClientAction_SaveUserOptions = FourCC("Caca");
static constexpr PLXUInt32 kEmailClientAction_ListPersonalities = FourCC("Grub");
static constexpr PLXUInt32 kEmailClientAction_AddPersonality = FourCC("Inch");
static constexpr PLXUInt32 kEmailClientAction_SwitchPersonality = FourCC("Looz");
static constexpr PLXUInt32 kEmailClientAction_ConfirmPersonalityDeletion = FourCC("Jana");
static constexpr PLXUInt32 kEmailClientAction_DeletePersonality = FourCC("Krap");
static constexpr PLXUInt32 kEmailClientAction_ListSignatures = FourCC("Mynx");
static constexpr PLXUInt32 kEmailClientAction_AddSignature = FourCC("Nood");
static constexpr PLXUInt32 kEmailClientAction_EditSignature = FourCC("Quik");
static constexpr PLXUInt32 kEmailClientAction_SaveSignature = FourCC("Risa");
static constexpr PLXUInt32 kEmailClientAction_ConfirmSignatureDeletion = FourCC("Oboe");
static constexpr PLXUInt32 kEmailClientAction_DeleteSignature = FourCC("Putz");
static constexpr PLXUInt32 kEmailClientAction_Exit = FourCC("Apse");

static constexpr char kEmailClient_PersonalityArgument[] = "Personality_plxEmailClient";
static constexpr char kEmailClient_NewPersonalityArgument[] = "NewPersonality_plxEmailClient";
static constexpr char kEmailClient_SignatureIndexArgument[] = "SignatureName_plxEmailClient";
static constexpr char kEmailClient_NewSignatureArgument[] = "NewSignatureName_plxEmailClient";
static constexpr char kEmailClient_SignatureArgument[] = "Signature_plxEmailClient";

static constexpr char kEmailClient_TableStart[] =
    "<table width=\"100%\" border=\"0\" cellspacing=\"0\" cellpadding=\"4\" bgcolor=\"#ffffff\">";

// One entry of each belongs to a personality. Names first.
static PLXString const* const* EmailClient_GetPersonalityFields() {
  static PLXString const* const ourFields[] = {&kEmailClientField_Names,
                                               &kEmailClientField_EmailAddresses,
                                               &kEmailClientField_POPUsernames,
                                               &kEmailClientField_POPPasswords,
                                               &kEmailClientField_POPServers,
                                               &kEmailClientField_SMTPServers,
                                               &kEmailClientField_AssignedSignatures,
                                               nullptr};
  return ourFields;
}

static PLXUInt32 EmailClient_SetText(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i,
                                     PLXString const& field_i, PLXString const& value_i) {
  return PLXGlueDBSetLongTextFieldValue(info_i, database_i, field_i, value_i);
}

// Adds an entry behind the last; a list that was empty gets an empty one before it.
static PLXUInt32 EmailClient_AppendEntry(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i,
                                         PLXString const& field_i, PLXString const& entry_i) {
  return EmailClient_SetText(
      info_i, database_i, field_i,
      EmailClient_GetText(info_i, database_i, field_i) + kEmailClient_Delimiter + entry_i);
}

static PLXUInt32 EmailClient_DeleteEntry(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i,
                                         PLXString const& field_i, PLXUInt32 index_i) {
  return EmailClient_SetText(info_i, database_i, field_i,
                             EmailClient_Personalities_DeletePersonalityValue(
                                 EmailClient_GetText(info_i, database_i, field_i), index_i));
}

// An entry as it was typed, which must not become two.
static PLXString EmailClient_GetEntry(_PLXAPI_ModuleProcessingInfo* info_i, char const* argument_i) {
  PLXString entry = EmailClient_GetPostArgument(info_i, argument_i);
  while (entry.ReplaceAll(kEmailClient_Delimiter, "") > 0) {
  }
  return entry;
}

static void EmailClient_AppendRadio(char const* name_i, PLXUInt32 index_i, bool isChecked_i,
                                    PLXString const& label_i, char const* suffix_i, PLXString& html_io) {
  html_io.ReserveToAppend(256);
  html_io.Append("\r\n<tr><td><label><input type=\"radio\" name=\"").Append(name_i).Append("\" value=\"");
  html_io.Append(PLXStringUtility::GetStringRepresentation(static_cast<unsigned int>(index_i)));
  html_io.Append(isChecked_i ? "\" checked> " : "\"> ");
  AppendMarkupText(label_i, html_io);
  html_io.Append(suffix_i).Append("</label></td></tr>");
}

struct EmailClient_Button {
  PLXUInt32 action;
  char const* label;
};

template <std::size_t kCount>
static void EmailClient_AppendButtonRow(EmailClient_Button const (&buttons_i)[kCount], PLXString& html_io) {
  html_io.Append("\r\n<tr><td colspan=\"2\">");
  for (EmailClient_Button const& button : buttons_i) {
    EmailClient_AppendButton(button.action, button.label, html_io);
  }
  html_io.Append("</td></tr>\r\n</table>");
}

// The question before an entry is deleted.
static PLXString EmailClient_GetConfirmation(PLXString const& name_i, char const* kind_i,
                                             char const* argument_i, PLXUInt32 index_i, PLXUInt32 yes_i,
                                             PLXUInt32 no_i) {
  PLXString html(kEmailClient_TableStart);
  html.Append("\r\n<tr><td>Are you sure you want to delete your &quot;");
  AppendMarkupText(name_i, html);
  html.Append("&quot; ").Append(kind_i).Append("?");
  EmailClient_AppendHidden(
      argument_i, PLXStringUtility::GetStringRepresentation(static_cast<unsigned int>(index_i)), html);
  html.Append("</td></tr>");
  EmailClient_AppendButtonRow({EmailClient_Button{yes_i, "Yes"}, EmailClient_Button{no_i, "No"}}, html);
  return html;
}

// ---- Personalities ----

static PLXString EmailClient_RunClient_ListPersonalities(_PLXAPI_ModuleProcessingInfo* info_i,
                                                         PLXUInt32 database_i) {
  PLXTokenizedString const names(EmailClient_GetText(info_i, database_i, kEmailClientField_Names),
                                 kEmailClient_Delimiter);
  PLXUInt32 const active = EmailClient_GetActivePersonality(info_i, database_i);
  PLXString html(kEmailClient_TableStart);
  PLXString const first = names.GetToken(0);
  EmailClient_AppendRadio(kEmailClient_PersonalityArgument, 0, active == 0,
                          first.IsEmpty() ? PLXString("Default (currently unnamed)") : first, " (Default)",
                          html);
  for (PLXUInt32 index = 1; index < names.GetTokenCount(); ++index) {
    EmailClient_AppendRadio(kEmailClient_PersonalityArgument, index, active == index, names.GetToken(index),
                            "", html);
  }
  html.Append("\r\n<tr><td>");
  EmailClient_AppendInput("text", kEmailClient_NewPersonalityArgument, PLXString(), 30, 0,
                          "Name of a new personality", html);
  html.Append("</td></tr>");
  EmailClient_AppendButtonRow({EmailClient_Button{kEmailClientAction_AddPersonality, "Add"},
                               EmailClient_Button{kEmailClientAction_ConfirmPersonalityDeletion, "Delete"},
                               EmailClient_Button{kEmailClientAction_SwitchPersonality, "Switch"},
                               EmailClient_Button{kEmailClientAction_Exit, "Exit"}},
                              html);
  return html;
}

static PLXUInt32 EmailClient_RunClient_AddPersonality(_PLXAPI_ModuleProcessingInfo* info_i,
                                                      PLXUInt32 database_i) {
  PLXString const name = EmailClient_GetEntry(info_i, kEmailClient_NewPersonalityArgument);
  if (name.IsEmpty()) return kPLXResult_Success;
  PLXUInt32 result = 0;
  for (PLXString const* const* field = EmailClient_GetPersonalityFields(); *field != nullptr && result == 0;
       ++field) {
    result = EmailClient_AppendEntry(info_i, database_i, **field,
                                     *field == &kEmailClientField_Names ? name : PLXString());
  }
  return result == 0 ? PLXGlueDBUpdateRecord(info_i, database_i) : result;
}

static PLXUInt32 EmailClient_SetActivePersonality(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i,
                                                  PLXUInt32 index_i) {
  return PLXGlueDBSetIntegerFieldValue(info_i, database_i, kEmailClientField_ActivePersonality,
                                       static_cast<PLXSInt32>(index_i));
}

static PLXUInt32 EmailClient_RunClient_SwitchPersonality(_PLXAPI_ModuleProcessingInfo* info_i,
                                                         PLXUInt32 database_i) {
  PLXUInt32 const result = EmailClient_SetActivePersonality(
      info_i, database_i, EmailClient_GetPostIndex(info_i, kEmailClient_PersonalityArgument));
  return result == 0 ? PLXGlueDBUpdateRecord(info_i, database_i) : result;
}

static PLXString EmailClient_RunClient_ConfirmPersonalityDeletion(_PLXAPI_ModuleProcessingInfo* info_i,
                                                                  PLXUInt32 database_i) {
  PLXUInt32 const index = EmailClient_GetPostIndex(info_i, kEmailClient_PersonalityArgument);
  PLXString const names = EmailClient_GetText(info_i, database_i, kEmailClientField_Names);
  return EmailClient_GetConfirmation(EmailClient_Personalities_GetPersonalityValue(names, index),
                                     "personality", kEmailClient_PersonalityArgument, index,
                                     kEmailClientAction_DeletePersonality,
                                     kEmailClientAction_ListPersonalities);
}

static PLXUInt32 EmailClient_RunClient_DeletePersonality(_PLXAPI_ModuleProcessingInfo* info_i,
                                                         PLXUInt32 database_i) {
  PLXUInt32 const index = EmailClient_GetPostIndex(info_i, kEmailClient_PersonalityArgument);
  PLXUInt32 result = 0;
  for (PLXString const* const* field = EmailClient_GetPersonalityFields(); *field != nullptr && result == 0;
       ++field) {
    result = EmailClient_DeleteEntry(info_i, database_i, **field, index);
  }
  if (result == 0 && EmailClient_GetActivePersonality(info_i, database_i) == index) {
    result = EmailClient_SetActivePersonality(info_i, database_i, 0);
  }
  return result == 0 ? PLXGlueDBUpdateRecord(info_i, database_i) : result;
}

// ---- Signatures ----

// The entry before the first delimiter is the built-in one.
static PLXString EmailClient_RunClient_ListSignatures(_PLXAPI_ModuleProcessingInfo* info_i,
                                                      PLXUInt32 database_i) {
  PLXTokenizedString const names(EmailClient_GetText(info_i, database_i, kEmailClientField_SignatureNames),
                                 kEmailClient_Delimiter);
  PLXString html(kEmailClient_TableStart);
  EmailClient_AppendRadio(kEmailClient_SignatureIndexArgument, 0, true, "Default", " (Default)", html);
  for (PLXUInt32 index = 1; index < names.GetTokenCount(); ++index) {
    EmailClient_AppendRadio(kEmailClient_SignatureIndexArgument, index, false, names.GetToken(index), "",
                            html);
  }
  html.Append("\r\n<tr><td>");
  EmailClient_AppendInput("text", kEmailClient_NewSignatureArgument, PLXString(), 30, 0,
                          "Name of a new signature", html);
  html.Append("</td></tr>");
  EmailClient_AppendButtonRow({EmailClient_Button{kEmailClientAction_AddSignature, "Add"},
                               EmailClient_Button{kEmailClientAction_ConfirmSignatureDeletion, "Delete"},
                               EmailClient_Button{kEmailClientAction_EditSignature, "Edit"},
                               EmailClient_Button{kEmailClientAction_Exit, "Exit"}},
                              html);
  return html;
}

static PLXUInt32 EmailClient_RunClient_AddSignature(_PLXAPI_ModuleProcessingInfo* info_i,
                                                    PLXUInt32 database_i) {
  PLXString const name = EmailClient_GetEntry(info_i, kEmailClient_NewSignatureArgument);
  PLXUInt32 result = EmailClient_AppendEntry(info_i, database_i, kEmailClientField_SignatureNames, name);
  if (result == 0) {
    result = EmailClient_AppendEntry(info_i, database_i, kEmailClientField_Signatures, PLXString());
  }
  return result == 0 ? PLXGlueDBUpdateRecord(info_i, database_i) : result;
}

static PLXString EmailClient_RunClient_EditSignature(_PLXAPI_ModuleProcessingInfo* info_i,
                                                     PLXUInt32 database_i) {
  PLXUInt32 const index = EmailClient_GetPostIndex(info_i, kEmailClient_SignatureIndexArgument);
  PLXString html(kEmailClient_TableStart);
  html.Append(
      "\r\n<tr><td><textarea aria-label=\"Signature\" rows=\"15\" cols=\"60\" wrap=\"soft\" "
      "style=\"max-width:100%\" name=\"");
  html.Append(kEmailClient_SignatureArgument).Append("\">\r\n");
  AppendMarkupText(EmailClient_Personalities_GetPersonalityValue(
                       EmailClient_GetText(info_i, database_i, kEmailClientField_Signatures), index),
                   html);
  html.Append("</textarea>");
  EmailClient_AppendHidden(kEmailClient_SignatureIndexArgument,
                           PLXStringUtility::GetStringRepresentation(static_cast<unsigned int>(index)), html);
  html.Append("</td></tr>");
  EmailClient_AppendButtonRow({EmailClient_Button{kEmailClientAction_SaveSignature, "Save"},
                               EmailClient_Button{kEmailClientAction_ListSignatures, "Exit"}},
                              html);
  return html;
}

static PLXUInt32 EmailClient_RunClient_SaveSignature(_PLXAPI_ModuleProcessingInfo* info_i,
                                                     PLXUInt32 database_i) {
  PLXUInt32 const index = EmailClient_GetPostIndex(info_i, kEmailClient_SignatureIndexArgument);
  PLXUInt32 const result =
      EmailClient_SetText(info_i, database_i, kEmailClientField_Signatures,
                          EmailClient_Personalities_SetPersonalityValue(
                              EmailClient_GetText(info_i, database_i, kEmailClientField_Signatures),
                              EmailClient_GetEntry(info_i, kEmailClient_SignatureArgument), index));
  return result == 0 ? PLXGlueDBUpdateRecord(info_i, database_i) : result;
}

static PLXString EmailClient_RunClient_ConfirmSignatureDeletion(_PLXAPI_ModuleProcessingInfo* info_i,
                                                                PLXUInt32 database_i) {
  PLXUInt32 const index = EmailClient_GetPostIndex(info_i, kEmailClient_SignatureIndexArgument);
  PLXString const names = EmailClient_GetText(info_i, database_i, kEmailClientField_SignatureNames);
  PLXString const name =
      index == 0 ? PLXString("Default") : EmailClient_Personalities_GetPersonalityValue(names, index);
  return EmailClient_GetConfirmation(name, "signature", kEmailClient_SignatureIndexArgument, index,
                                     kEmailClientAction_DeleteSignature, kEmailClientAction_ListSignatures);
}

// Personalities keep the numbers that were assigned to them.
static PLXUInt32 EmailClient_RunClient_DeleteSignature(_PLXAPI_ModuleProcessingInfo* info_i,
                                                       PLXUInt32 database_i) {
  PLXUInt32 const index = EmailClient_GetPostIndex(info_i, kEmailClient_SignatureIndexArgument);
  PLXUInt32 result = EmailClient_DeleteEntry(info_i, database_i, kEmailClientField_SignatureNames, index);
  if (result == 0) result = EmailClient_DeleteEntry(info_i, database_i, kEmailClientField_Signatures, index);
  return result == 0 ? PLXGlueDBUpdateRecord(info_i, database_i) : result;
}

// ---- User options ----

// A setting of the active personality. A server that the region sets for everybody is shown and not asked
// for.
struct EmailClient_Option {
  char const* label;
  char const* type;
  char const* argument;
  PLXString const& field;
  PLXString const* regionServer;
};

static constexpr PLXUInt32 kEmailClientOptionCount = 6;
static EmailClient_Option const* EmailClient_GetOptions() {
  static EmailClient_Option const ourOptions[kEmailClientOptionCount] = {
      {"Full Name:", "text", "Name_plxEmailClient", kEmailClientField_Names, nullptr},
      {"Email Address:", "text", "EmailAddress_plxEmailClient", kEmailClientField_EmailAddresses, nullptr},
      {"Login Name:", "text", "POPUsername_plxEmailClient", kEmailClientField_POPUsernames, nullptr},
      {"Password:", "text", "POPPassword_plxEmailClient", kEmailClientField_POPPasswords, nullptr},
      {"Incoming Server (POP):", "text", "POPServer_plxEmailClient", kEmailClientField_POPServers,
       &kEmailClientPreference_POPServer},
      {"Outgoing Server (SMTP):", "text", "SMTPServer_plxEmailClient", kEmailClientField_SMTPServers,
       &kEmailClientPreference_SMTPServer}};
  return ourOptions;
}

static PLXString EmailClient_GetRegionServer(_PLXAPI_ModuleProcessingInfo* info_i,
                                             EmailClient_Option const& option_i) {
  return option_i.regionServer == nullptr ? PLXString()
                                          : EmailClient_GetPreference(info_i, *option_i.regionServer);
}

static void EmailClient_AppendSignatureChoice(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i,
                                              PLXUInt32 personality_i, PLXString& html_io) {
  PLXTokenizedString const names(EmailClient_GetText(info_i, database_i, kEmailClientField_SignatureNames),
                                 kEmailClient_Delimiter);
  PLXString const assigned = EmailClient_Personalities_GetPersonalityValue(
      EmailClient_GetText(info_i, database_i, kEmailClientField_AssignedSignatures), personality_i);
  html_io.Append("<select aria-label=\"Default Signature\" name=\"").Append(kEmailClient_SignatureArgument);
  html_io.Append("\"><option value=\"0\">Default</option>");
  for (PLXUInt32 index = 1; index < names.GetTokenCount(); ++index) {
    PLXString const number = PLXStringUtility::GetStringRepresentation(static_cast<unsigned int>(index));
    html_io.ReserveToAppend(64);
    html_io.Append("<option value=\"").Append(number).Append(number == assigned ? "\" selected>" : "\">");
    AppendMarkupText(names.GetToken(index), html_io);
    html_io.Append("</option>");
  }
  html_io.Append("</select>");
}

static PLXString EmailClient_RunClient_DisplayUserOptions(_PLXAPI_ModuleProcessingInfo* info_i,
                                                          PLXUInt32 database_i) {
  PLXUInt32 const active = EmailClient_GetActivePersonality(info_i, database_i);
  PLXString html(kEmailClient_TableStart);
  html.ReserveToAppend(4096);
  for (PLXUInt32 index = 0; index < kEmailClientOptionCount; ++index) {
    EmailClient_Option const& option = EmailClient_GetOptions()[index];
    PLXString const server = EmailClient_GetRegionServer(info_i, option);
    html.Append("\r\n<tr><td>").Append(option.label).Append("</td><td>");
    if (server.IsNotEmpty()) {
      html.Append("<font size=\"4\"><b>");
      AppendMarkupText(server, html);
      html.Append("</b></font>");
    } else {
      EmailClient_AppendInput(option.type, option.argument,
                              EmailClient_Personalities_GetPersonalityValue(
                                  EmailClient_GetText(info_i, database_i, option.field), active),
                              30, 0, option.label, html);
    }
    html.Append("</td></tr>");
  }
  html.Append("\r\n<tr><td>Default Signature:</td><td>");
  EmailClient_AppendSignatureChoice(info_i, database_i, active, html);
  html.Append("</td></tr>");
  EmailClient_AppendButtonRow({EmailClient_Button{kEmailClientAction_SaveUserOptions, "Save"},
                               EmailClient_Button{kEmailClientAction_Exit, "Exit"}},
                              html);
  return html;
}

static PLXUInt32 EmailClient_SetActiveEntry(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i,
                                            PLXString const& field_i, PLXString const& value_i) {
  return EmailClient_SetText(
      info_i, database_i, field_i,
      EmailClient_Personalities_SetPersonalityValue(EmailClient_GetText(info_i, database_i, field_i), value_i,
                                                    EmailClient_GetActivePersonality(info_i, database_i)));
}

// A server that the region sets leaves the user's own as it was.
static PLXUInt32 EmailClient_RunClient_SaveUserOptions(_PLXAPI_ModuleProcessingInfo* info_i,
                                                       PLXUInt32 database_i) {
  PLXUInt32 result = 0;
  for (PLXUInt32 index = 0; index < kEmailClientOptionCount && result == 0; ++index) {
    EmailClient_Option const& option = EmailClient_GetOptions()[index];
    if (EmailClient_GetRegionServer(info_i, option).IsNotEmpty()) continue;
    result = EmailClient_SetActiveEntry(info_i, database_i, option.field,
                                        EmailClient_GetEntry(info_i, option.argument));
  }
  if (result == 0) {
    result = EmailClient_SetActiveEntry(info_i, database_i, kEmailClientField_AssignedSignatures,
                                        EmailClient_GetEntry(info_i, kEmailClient_SignatureArgument));
  }
  return result == 0 ? PLXGlueDBUpdateRecord(info_i, database_i) : result;
}
