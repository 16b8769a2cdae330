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
