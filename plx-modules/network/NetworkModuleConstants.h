#pragma once

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
