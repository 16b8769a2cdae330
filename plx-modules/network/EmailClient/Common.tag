#pragma once

// What the subjects of the web mail client share: the user database, passwords, users' folders, forms.

#include "../Markup.tag"
#include "../Problem.tag"
#include "PLXCryptor.h"
#include "PLXFileSystemItem.h"
#include "PLXFolderSpecification.h"
#include "PLXStringUtility.h"
#include "PLXTokenizedString.h"

PLX_STRING_CONSTANT(kEmailClient_DatabaseName, "__PLXDB__Email_Client__");
PLX_STRING_CONSTANT(kEmailClientField_Username, "Username");
PLX_STRING_CONSTANT(kEmailClientField_Password, "Password");
PLX_STRING_CONSTANT(kEmailClientField_Names, "Names");
PLX_STRING_CONSTANT(kEmailClientField_EmailAddresses, "EmailAddresses");
PLX_STRING_CONSTANT(kEmailClientField_POPUsernames, "POPUsernames");
PLX_STRING_CONSTANT(kEmailClientField_POPPasswords, "POPPasswords");
PLX_STRING_CONSTANT(kEmailClientField_POPServers, "POPServers");
PLX_STRING_CONSTANT(kEmailClientField_SMTPServers, "SMTPServers");
PLX_STRING_CONSTANT(kEmailClientField_AssignedSignatures, "AssignedSignatures");
PLX_STRING_CONSTANT(kEmailClientField_ActivePersonality, "ActivePersonality");
PLX_STRING_CONSTANT(kEmailClientField_SignatureNames, "SignatureNames");
PLX_STRING_CONSTANT(kEmailClientField_Signatures, "Signatures");
PLX_STRING_CONSTANT(kEmailClientField_SkinNumber, "SkinNumber");
PLX_STRING_CONSTANT(kEmailClientField_CustomSkin, "CustomSkin");

// Joins the entries of a list field.
PLX_STRING_CONSTANT(kEmailClient_Delimiter, "__,__");
PLX_STRING_CONSTANT(kEmailClient_DataFolderName, "plxEmailClient Data");
PLX_STRING_CONSTANT(kEmailClient_InboxName, "Inbox");

PLX_STRING_CONSTANT(kEmailClientPreference_AdminUsername, "EmailClient_AdminUsername");
PLX_STRING_CONSTANT(kEmailClientPreference_AdminPassword, "EmailClient_AdminPassword");
PLX_STRING_CONSTANT(kEmailClientPreference_AdminPasswordVerification,
                    "EmailClient_AdminPasswordVerification");
PLX_STRING_CONSTANT(kEmailClientPreference_POPServer, "EmailClient_POPServer");
PLX_STRING_CONSTANT(kEmailClientPreference_SMTPServer, "EmailClient_STMPServer");
PLX_STRING_CONSTANT(kEmailClientPreference_MaxAttachmentSize, "EmailClient_MaxAttachmentSize");

PLX_STRING_CONSTANT(kEmailClient_ActionPrefix, "1plxEmailClientAction=");
static constexpr char kEmailClient_ActionArgument[] = "action";
static constexpr PLXUInt32 kEmailClientAction_None = FourCC("espA");

static constexpr char kEmailClientEncryptionKey[] = "Rb39x7mqTe52kv80";
static constexpr PLXUInt16 kEmailClientEncryptionKeyLength = 16;
static constexpr PLXUInt32 kEmailClient_PrefixLength = 10;  // of a message without content
static constexpr PLXUInt32 kEmailClient_LongestName = 240;  // bytes of a user's or a mailbox's name that is a
                                                            // folder or file, with room for what is appended

// ---- Passwords ----

static PLXString EmailClient_Encrypt(PLXString const& plain_i) {
  return PLXCryptor::CREncrypt(plain_i, kEmailClientEncryptionKey, kEmailClientEncryptionKeyLength);
}

static PLXString EmailClient_Decrypt(PLXString const& text_i) {
  PLXBuffer plain;
  PLXCryptor::CRDecrypt(text_i, plain, kEmailClientEncryptionKey, kEmailClientEncryptionKeyLength);
  PLXString text(plain.GetAddress(), plain.GetSize());
  text.TrimRight('\0');
  return text;
}

// The same for what may be the empty text: enciphered it is nothing but its prefix, which does not come back
// as what it was.
static PLXString EmailClient_DecryptOrEmpty(PLXString const& text_i) {
  PLXBuffer message;
  PLXStringStream stream(text_i);
  PLXCryptor::Base64Decode(stream, message);
  return message.GetSize() <= kEmailClient_PrefixLength ? PLXString() : EmailClient_Decrypt(text_i);
}

// ---- Requests ----

static PLXString EmailClient_GetPostArgument(_PLXAPI_ModuleProcessingInfo* info_i, PLXString const& name_i,
                                             PLXString const& default_i = PLXString()) {
  PLXString value;
  PLXGlueGetPostArgument(info_i, name_i, 0, value, default_i);
  return value;
}

// A number of the page's form, 0 for what is none or negative.
static PLXUInt32 EmailClient_GetPostIndex(_PLXAPI_ModuleProcessingInfo* info_i, PLXString const& name_i) {
  int const index =
      PLXStringUtility::GetNumericalRepresentation(EmailClient_GetPostArgument(info_i, name_i, "0"), 10);
  return index < 0 ? 0 : static_cast<PLXUInt32>(index);
}

static PLXString EmailClient_GetPreference(_PLXAPI_ModuleProcessingInfo* info_i, PLXString const& name_i,
                                           PLXString const& default_i = PLXString()) {
  PLXString value;
  PLXGlueGetPreference(info_i, name_i, value, default_i);
  return value;
}

static PLXString EmailClient_GetCGI(_PLXAPI_ModuleProcessingInfo* info_i, char const* name_i) {
  return PLXGlueGetCGIEnvironmentVariable(info_i, name_i);
}

// The action that a button of the page's form was pressed for: its name is the prefix and the code in base
// 36. `fallback_i` is what counts when there is none.
static PLXUInt32 EmailClient_GetPostedAction(_PLXAPI_ModuleProcessingInfo* info_i,
                                             PLXString const& fallback_i) {
  PLXString form(fallback_i);
  PLXString name;
  PLXString value;
  for (unsigned int index = 0; PLXGlueGetPostArgumentByIndex(info_i, index, name, value); ++index) {
    if (!name.BeginsWith(kEmailClient_ActionPrefix)) continue;
    form = PLXTokenizedString(name, "=").GetToken(1);
    break;
  }
  if (form.IsEmpty()) return kEmailClientAction_None;
  return static_cast<PLXUInt32>(PLXStringUtility::GetNumericalRepresentation(form, 36));
}

// Asks the browser for a login; the page then has no text.
static PLXUInt32 EmailClient_Challenge(_PLXAPI_ModuleProcessingInfo* info_i) {
  PLXGlueSetHTTPResponseHeader(info_i, "WWW-Authenticate",
                               "Basic realm=\"" + EmailClient_GetCGI(info_i, "SCRIPT_NAME") + "\"");
  PLXGlueSetHTTPResponseStatus(info_i, kPLXHTTPStatus_Unauthorized, "401 Unauthorized");
  return kPLXResult_NotAuthorized;
}

// ---- Users ----

// Makes the user's record the current one. Several records of one name make a found set to go on in.
static bool EmailClient_FindUser(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i,
                                 PLXString const& username_i) {
  PLXString name(username_i);
  name.ReplaceAll("'", "''");
  PLXGlueDBClearSearchResults(info_i, database_i);
  return PLXGlueDBExecuteSearch(info_i, database_i, "Username='" + name + "'") == 0 &&
         PLXGlueDBMoveFirstRecord(info_i, database_i) == 0;
}

// A name that is one plain component of a path, so that it names a folder or file and nothing else.
static bool EmailClient_IsPlainName(PLXString const& name_i) {
  if (name_i.IsEmpty() || name_i.GetLength() > kEmailClient_LongestName || name_i == "." || name_i == "..") {
    return false;
  }
  PLXUInt32 position = 0;
  for (char character : {'/', '\\', '\0'}) {
    if (name_i.Find(character, 0, kPLXWholeLength, 0, position)) return false;
  }
  return true;
}

// The folder of a user's mail. False for a name that has none.
static bool EmailClient_GetUserFolder(_PLXAPI_ModuleProcessingInfo* info_i, PLXString const& username_i,
                                      PLXFolderSpecification& folder_o) {
  if (!EmailClient_IsPlainName(username_i)) return false;
  PLXString path = kEmailClient_DataFolderName + kPlatformPathDelimiter + username_i;
  if (!PLXGlueVerifyRegionContainsFile(info_i, path)) return false;
  folder_o = PLXFolderSpecification(path);
  return true;
}

// Deletes every record of the name and the user's mail. The records go first: mail without a user is read by
// nobody, a user without mail has lost it.
static PLXUInt32 EmailClient_DeleteUser(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i,
                                        PLXString const& username_i) {
  if (!EmailClient_FindUser(info_i, database_i, username_i)) {
    return ReportProblem(info_i, kPLXResult_InvalidParameterValue, "The specified username is unknown.",
                         "Please specify an existing username for deletion.");
  }
  PLXUInt32 result = 0;
  do {
    PLXString const key = PLXGlueDBGetTextFieldValue(info_i, database_i, kPLXRecordIDFieldName);
    result = PLXGlueDBDeleteRecord(info_i, database_i, key);
  } while (result == 0 && PLXGlueDBMoveNextRecord(info_i, database_i) == 0);
  if (result != 0) return result;
  PLXFolderSpecification folder;
  if (EmailClient_GetUserFolder(info_i, username_i, folder) && folder.Exists()) folder.Delete();
  return kPLXResult_Success;
}

static PLXUInt32 EmailClient_AddUser(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i,
                                     PLXString const& username_i, PLXString const& password_i) {
  if (EmailClient_FindUser(info_i, database_i, username_i)) {
    return ReportProblem(info_i, kPLXResult_InvalidParameterValue, "The specified username is already taken.",
                         "Please specify a different username.");
  }
  PLXUInt32 result = PLXGlueDBCreateRecord(info_i, database_i);
  if (result == 0) {
    result = PLXGlueDBSetTextFieldValue(info_i, database_i, kEmailClientField_Username, username_i);
  }
  if (result == 0) {
    result = PLXGlueDBSetLongTextFieldValue(info_i, database_i, kEmailClientField_Password,
                                            EmailClient_Encrypt(password_i));
  }
  return result == 0 ? PLXGlueDBAddRecord(info_i, database_i) : result;
}

static PLXUInt32 EmailClient_SetPassword(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i,
                                         PLXString const& password_i) {
  PLXUInt32 const result = PLXGlueDBSetLongTextFieldValue(info_i, database_i, kEmailClientField_Password,
                                                          EmailClient_Encrypt(password_i));
  return result == 0 ? PLXGlueDBUpdateRecord(info_i, database_i) : result;
}

static PLXString EmailClient_GetText(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i,
                                     PLXString const& field_i) {
  return PLXGlueDBGetLongTextFieldValue(info_i, database_i, field_i);
}

static PLXUInt32 EmailClient_GetActivePersonality(_PLXAPI_ModuleProcessingInfo* info_i,
                                                  PLXUInt32 database_i) {
  PLXSInt32 const index =
      PLXGlueDBGetIntegerFieldValue(info_i, database_i, kEmailClientField_ActivePersonality);
  return index < 0 ? 0 : static_cast<PLXUInt32>(index);
}

// ---- Lists ----

static PLXString EmailClient_Personalities_GetPersonalityValue(PLXString const& list_i, PLXUInt32 index_i) {
  return PLXTokenizedString(list_i, kEmailClient_Delimiter).GetToken(index_i);
}

// Joins the entries again, one of them replaced, or left out when there is no replacement.
static PLXString EmailClient_Personalities_Rejoin(PLXTokenizedString const& entries_i, PLXUInt32 index_i,
                                                  PLXString const* replacement_i) {
  PLXString list;
  bool isFirst = true;
  for (PLXUInt32 index = 0; index < entries_i.GetTokenCount(); ++index) {
    if (index == index_i && replacement_i == nullptr) continue;
    PLXString const entry = index == index_i ? *replacement_i : entries_i.GetToken(index);
    list.ReserveToAppend(entry.GetLength() + kEmailClient_Delimiter.GetLength());
    if (!isFirst) list.Append(kEmailClient_Delimiter);
    list.Append(entry);
    isFirst = false;
  }
  return list;
}

// The list with its entry replaced. An empty list becomes the value; beyond the last entry nothing changes.
static PLXString EmailClient_Personalities_SetPersonalityValue(PLXString const& list_i,
                                                               PLXString const& value_i, PLXUInt32 index_i) {
  if (list_i.IsEmpty()) return value_i;
  PLXTokenizedString const entries(list_i, kEmailClient_Delimiter);
  return index_i < entries.GetTokenCount() ? EmailClient_Personalities_Rejoin(entries, index_i, &value_i)
                                           : list_i;
}

static PLXString EmailClient_Personalities_DeletePersonalityValue(PLXString const& list_i,
                                                                  PLXUInt32 index_i) {
  PLXTokenizedString const entries(list_i, kEmailClient_Delimiter);
  return index_i < entries.GetTokenCount() ? EmailClient_Personalities_Rejoin(entries, index_i, nullptr)
                                           : list_i;
}

// ---- Markup ----

// An action's code as it travels on pages.
static PLXString EmailClient_GetPageForm(PLXUInt32 action_i) {
  PLXString form = PLXStringUtility::GetStringRepresentation(static_cast<unsigned int>(action_i), 36);
  form.ConvertToLowercase();
  return form;
}

static void EmailClient_AppendButton(PLXUInt32 action_i, char const* label_i, PLXString& html_io) {
  html_io.Append("<input type=\"Submit\" name=\"").Append(kEmailClient_ActionPrefix);
  html_io.Append(EmailClient_GetPageForm(action_i)).Append("\" value=\"").Append(label_i).Append("\">");
}

static void EmailClient_AppendHidden(PLXString const& name_i, PLXString const& value_i, PLXString& html_io) {
  html_io.Append("<input type=\"hidden\" name=\"").Append(name_i).Append("\" value=\"");
  AppendMarkupText(value_i, html_io);
  html_io.Append("\">");
}

// An input with its label for those who cannot see the page. `maximum_i` of 0 sets no limit.
static void EmailClient_AppendInput(char const* type_i, PLXString const& name_i, PLXString const& value_i,
                                    unsigned size_i, unsigned maximum_i, PLXString const& label_i,
                                    PLXString& html_io) {
  html_io.Append("<input type=\"").Append(type_i).Append("\" name=\"").Append(name_i).Append("\" value=\"");
  AppendMarkupText(value_i, html_io);
  html_io.Append("\" size=\"").Append(PLXStringUtility::GetStringRepresentation(size_i));
  if (maximum_i > 0) {
    html_io.Append("\" maxlength=\"").Append(PLXStringUtility::GetStringRepresentation(maximum_i));
  }
  html_io.Append("\" aria-label=\"");
  AppendMarkupText(label_i, html_io);
  html_io.Append("\">");
}
