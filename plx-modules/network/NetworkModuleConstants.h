#pragma once

#include "PLXModuleAPI.h"
#include "PLXStringID.h"

// The names of the module: itself, its tags, their parameters and keywords. Built once when the library is
// loaded, never counted and never destroyed, so that any thread may copy them at any time. Letter case does
// not count in identifiers and tags.

// ---- The module ------------------------------------------------------------------------------------------
extern PLXString const& kPLXNetworkModuleName;
extern PLXString const& kPLXNetworkModuleVersion;
extern PLXString const& kPLXNetworkModuleAuthor;
// Empty: there is no such service. It is announced all the same.
extern PLXString const& kPLXNetworkModuleVersionTrackerURL;

// ---- Tags ------------------------------------------------------------------------------------------------
extern PLXTag const& kPLXTagEmailClient;
extern PLXTag const& kPLXTagFTP;
extern PLXTag const& kPLXTagIncludeHTTP;
extern PLXTag const& kPLXTagPOP;
extern PLXTag const& kPLXTagSendMail;
// The tags that the module registers, in the order of the preference page; ends with a null.
extern char const* const kNetworkTagList[];

// ---- Preferences: one per tag, named like it
// ---------------------------------------------------------------
extern PLXString const& kNetworkPreference_Yes;
extern PLXString const& kNetworkPreference_No;

// ---- Results of tags beside the server's own
inline constexpr PLXUInt32 kNetworkResult_Invalid = FourCC("MInv");          // an address is none
inline constexpr PLXUInt32 kNetworkResult_OperationFailed = FourCC("MOpF");  // a file or the database

// ---- The action
// -------------------------------------------------------------------------------------------- The name that
// the server gave to the module's action. Written by the announcement alone, before any other event. Every
// thread may compare it, which reads its identifier only; nobody copies it, since its string is counted.
extern PLXStringID& ourSendMailAction;

// ---- plxIncludeHTTP
// ----------------------------------------------------------------------------------------
extern PLXStringID const& kHTTPIncludeParameter_URL;
extern PLXStringID const& kHTTPIncludeParameter_Method;
extern PLXStringID const& kHTTPIncludeParameter_Username;
extern PLXStringID const& kHTTPIncludeParameter_Password;
extern PLXStringID const& kHTTPIncludeParameter_PostArgumentName;
extern PLXStringID const& kHTTPIncludeParameter_PostArgumentValue;
extern PLXStringID const& kHTTPIncludeParameter_Data;
extern PLXStringID const& kHTTPIncludeMethod_GET;
extern PLXStringID const& kHTTPIncludeMethod_POST;
extern PLXStringID const& kHTTPIncludeData_Content;
extern PLXStringID const& kHTTPIncludeData_Headers;
extern PLXStringID const& kHTTPIncludeData_HeadersAndContent;

// ---- plxSendMail
extern PLXStringID const& kSendMailParameter_Mode;
extern PLXStringID const& kSendMailParameter_MailServer;
extern PLXStringID const& kSendMailParameter_To;
extern PLXStringID const& kSendMailParameter_CC;
extern PLXStringID const& kSendMailParameter_BCC;
extern PLXStringID const& kSendMailParameter_From;
extern PLXStringID const& kSendMailParameter_ReplyTo;
extern PLXStringID const& kSendMailParameter_Subject;
extern PLXStringID const& kSendMailParameter_HeaderName;
extern PLXStringID const& kSendMailParameter_HeaderValue;
extern PLXStringID const& kSendMailParameter_SendAsHTML;
extern PLXStringID const& kSendMailParameter_GMTOffset;
extern PLXStringID const& kSendMailParameter_AttachmentData;
extern PLXStringID const& kSendMailParameter_AttachmentFileLocation;
extern PLXStringID const& kSendMailParameter_DisplayLimit;
extern PLXStringID const& kSendMailMode_SendMail;
extern PLXStringID const& kSendMailMode_SendFailedMail;
extern PLXStringID const& kSendMailMode_Admin;
extern PLXStringID const& kSendMailAction_Edit;
extern PLXStringID const& kSendMailAction_Send;
extern PLXStringID const& kSendMailAction_Delete;
extern PLXStringID const& kSendMailAction_DeleteMessage;
extern PLXStringID const& kSendMailAction_Save;
extern PLXStringID const& kSendMailAction_Previous;
extern PLXStringID const& kSendMailAction_PreviousEncoded;
extern PLXStringID const& kSendMailAction_Next;
extern PLXStringID const& kSendMailAction_NextEncoded;
extern PLXStringID const& kSendMailConfirmation_Yes;
extern PLXStringID const& kSendMailUseMailServer_ByDefault;
extern PLXStringID const& kSendMailUseMailServer_Always;
extern PLXString const& kSendMailPreference_UseMailServerName;
extern PLXString const& kSendMailPreference_MailServerName;
extern PLXString const& kSendMailPreference_ReturnGMTOffsetByDefault;
extern PLXString const& kSendMailPreference_GMTOffset;
extern PLXString const& kSendMailUseMailServer_Never;

// ---- plxEmailClient
extern PLXStringID const& kEmailClientParameter_Mode;
extern PLXStringID const& kEmailClientParameter_Username;
extern PLXStringID const& kEmailClientParameter_Password;
extern PLXStringID const& kEmailClientParameter_NewPassword;
extern PLXStringID const& kEmailClientParameter_DisplayLimit;
extern PLXStringID const& kEmailClientParameter_ODBCDataSource;
extern PLXStringID const& kEmailClientParameter_ODBCUsername;
extern PLXStringID const& kEmailClientParameter_ODBCPassword;
extern PLXStringID const& kEmailClientMode_Client;
extern PLXStringID const& kEmailClientMode_Admin;
extern PLXStringID const& kEmailClientMode_AddUser;
extern PLXStringID const& kEmailClientMode_DeleteUser;
extern PLXStringID const& kEmailClientMode_QueryUser;
extern PLXStringID const& kEmailClientMode_ChangePassword;
// ---- plxPOP
extern PLXStringID const& kPOPParameter_Username;
extern PLXStringID const& kPOPParameter_Password;
extern PLXStringID const& kPOPParameter_MailServer;
extern PLXStringID const& kPOPParameter_DatabaseName;
extern PLXStringID const& kPOPParameter_ResultVariableName;
extern PLXStringID const& kPOPParameter_AttachmentFolderLocation;
extern PLXStringID const& kPOPParameter_ODBCDataSource;
extern PLXStringID const& kPOPParameter_ODBCUsername;
extern PLXStringID const& kPOPParameter_ODBCPassword;
extern PLXStringID const& kPOPParameter_DeleteMessagesOnServer;
extern PLXStringID const& kPOPParameter_MaximumAttachmentSize;
extern PLXString const& kPOPDefaultAttachmentFolder;
