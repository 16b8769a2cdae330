#include "NetworkModuleConstants.h"

PLX_STRING_CONSTANT(kPLXNetworkModuleName, "Network Module");
PLX_STRING_CONSTANT(kPLXNetworkModuleVersion, "3.1.7");
PLX_STRING_CONSTANT(kPLXNetworkModuleAuthor, "PLX Project");
PLX_STRING_CONSTANT(kPLXNetworkModuleVersionTrackerURL, "");

PLX_TAG_CONSTANT(kPLXTagEmailClient, "plxEmailClient");
PLX_TAG_CONSTANT(kPLXTagFTP, "plxFTP");
PLX_TAG_CONSTANT(kPLXTagIncludeHTTP, "plxIncludeHTTP");
PLX_TAG_CONSTANT(kPLXTagPOP, "plxPOP");
PLX_TAG_CONSTANT(kPLXTagSendMail, "plxSendMail");
char const* const kNetworkTagList[] = {"plxEmailClient", "plxIncludeHTTP", "plxPOP", "plxSendMail", nullptr};

PLX_STRING_CONSTANT(kNetworkPreference_Yes, "yes");
PLX_STRING_CONSTANT(kNetworkPreference_No, "no");

static TPLXConstant<PLXStringID> ourSendMailAction_storage("SendMail", PLXStringID::kIgnoreCase);
PLXStringID& ourSendMailAction = ourSendMailAction_storage.value;

PLX_STRING_ID_CONSTANT(kHTTPIncludeParameter_URL, "url");
PLX_STRING_ID_CONSTANT(kHTTPIncludeParameter_Method, "method");
PLX_STRING_ID_CONSTANT(kHTTPIncludeParameter_Username, "username");
PLX_STRING_ID_CONSTANT(kHTTPIncludeParameter_Password, "password");
PLX_STRING_ID_CONSTANT(kHTTPIncludeParameter_PostArgumentName, "postArgumentName");
PLX_STRING_ID_CONSTANT(kHTTPIncludeParameter_PostArgumentValue, "postArgumentValue");
PLX_STRING_ID_CONSTANT(kHTTPIncludeParameter_Data, "data");
PLX_STRING_ID_CONSTANT(kHTTPIncludeMethod_GET, "GET");
PLX_STRING_ID_CONSTANT(kHTTPIncludeMethod_POST, "POST");
PLX_STRING_ID_CONSTANT(kHTTPIncludeData_Content, "content");
PLX_STRING_ID_CONSTANT(kHTTPIncludeData_Headers, "headers");
PLX_STRING_ID_CONSTANT(kHTTPIncludeData_HeadersAndContent, "headersAndContent");

PLX_STRING_ID_CONSTANT(kSendMailParameter_Mode, "mode");
PLX_STRING_ID_CONSTANT(kSendMailParameter_MailServer, "mailServer");
PLX_STRING_ID_CONSTANT(kSendMailParameter_To, "to");
PLX_STRING_ID_CONSTANT(kSendMailParameter_CC, "cc");
PLX_STRING_ID_CONSTANT(kSendMailParameter_BCC, "bcc");
PLX_STRING_ID_CONSTANT(kSendMailParameter_From, "from");
PLX_STRING_ID_CONSTANT(kSendMailParameter_ReplyTo, "replyTo");
PLX_STRING_ID_CONSTANT(kSendMailParameter_Subject, "subject");
PLX_STRING_ID_CONSTANT(kSendMailParameter_HeaderName, "headerName");
PLX_STRING_ID_CONSTANT(kSendMailParameter_HeaderValue, "headerValue");
PLX_STRING_ID_CONSTANT(kSendMailParameter_SendAsHTML, "sendAsHTML");
PLX_STRING_ID_CONSTANT(kSendMailParameter_GMTOffset, "gmtOffset");
PLX_STRING_ID_CONSTANT(kSendMailParameter_AttachmentData, "attachmentData");
PLX_STRING_ID_CONSTANT(kSendMailParameter_AttachmentFileLocation, "attachmentFileLocation");
PLX_STRING_ID_CONSTANT(kSendMailParameter_DisplayLimit, "displayLimit");
PLX_STRING_ID_CONSTANT(kSendMailMode_SendMail, "sendMail");
PLX_STRING_ID_CONSTANT(kSendMailMode_SendFailedMail, "sendFailedMail");
PLX_STRING_ID_CONSTANT(kSendMailMode_Admin, "admin");
PLX_STRING_ID_CONSTANT(kSendMailAction_Edit, "Edit");
PLX_STRING_ID_CONSTANT(kSendMailAction_Send, "Send");
PLX_STRING_ID_CONSTANT(kSendMailAction_Delete, "Delete");
PLX_STRING_ID_CONSTANT(kSendMailAction_DeleteMessage, "DeleteMessage");
PLX_STRING_ID_CONSTANT(kSendMailAction_Save, "Save");
PLX_STRING_ID_CONSTANT(kSendMailAction_Previous, "<<");
PLX_STRING_ID_CONSTANT(kSendMailAction_PreviousEncoded, "&lt;&lt;");
PLX_STRING_ID_CONSTANT(kSendMailAction_Next, ">>");
PLX_STRING_ID_CONSTANT(kSendMailAction_NextEncoded, "&gt;&gt;");
PLX_STRING_ID_CONSTANT(kSendMailConfirmation_Yes, "Yes");
PLX_STRING_ID_CONSTANT(kSendMailUseMailServer_ByDefault, "byDefault");
PLX_STRING_ID_CONSTANT(kSendMailUseMailServer_Always, "always");
PLX_STRING_CONSTANT(kSendMailPreference_UseMailServerName, "useMailServerName");
PLX_STRING_CONSTANT(kSendMailPreference_MailServerName, "mailServerName");
PLX_STRING_CONSTANT(kSendMailPreference_ReturnGMTOffsetByDefault, "returnGMTOffsetByDefault");
PLX_STRING_CONSTANT(kSendMailPreference_GMTOffset, "gmtOffset");
PLX_STRING_CONSTANT(kSendMailUseMailServer_Never, "never");

PLX_STRING_ID_CONSTANT(kEmailClientParameter_Mode, "mode");
PLX_STRING_ID_CONSTANT(kEmailClientParameter_Username, "username");
PLX_STRING_ID_CONSTANT(kEmailClientParameter_Password, "password");
PLX_STRING_ID_CONSTANT(kEmailClientParameter_NewPassword, "newPassword");
PLX_STRING_ID_CONSTANT(kEmailClientParameter_DisplayLimit, "displayLimit");
PLX_STRING_ID_CONSTANT(kEmailClientParameter_ODBCDataSource, "odbcDataSource");
PLX_STRING_ID_CONSTANT(kEmailClientParameter_ODBCUsername, "odbcUsername");
PLX_STRING_ID_CONSTANT(kEmailClientParameter_ODBCPassword, "odbcPassword");
PLX_STRING_ID_CONSTANT(kEmailClientMode_Client, "client");
PLX_STRING_ID_CONSTANT(kEmailClientMode_Admin, "admin");
PLX_STRING_ID_CONSTANT(kEmailClientMode_AddUser, "addUser");
PLX_STRING_ID_CONSTANT(kEmailClientMode_DeleteUser, "deleteUser");
PLX_STRING_ID_CONSTANT(kEmailClientMode_QueryUser, "queryUser");
PLX_STRING_ID_CONSTANT(kEmailClientMode_ChangePassword, "changePassword");
