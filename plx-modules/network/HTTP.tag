// plxIncludeHTTP: replaces itself by what an HTTP request to another URL answers, as it came.

#include "Journal.tag"
#include "PLXEnvironment.h"
#include "PLXHTTP.h"
#include "PLXTokenizedString.h"

PLX_STRING_CONSTANT(ourHTTPScheme, "http://");
PLX_STRING_CONSTANT(ourSlash, "/");

// The name that the operating system bears in the user-agent text.
static char const* IncludeHTTP_GetOperatingSystemName(PLXUInt32 code_i) {
  switch (code_i) {
    case FourCC("Linx"):
      return "Linux";
    case FourCC("Mac "):
      return "MacOS";
    case FourCC("MacX"):
    case FourCC("MaXS"):
      return "MacOSX";
    case FourCC("Wn95"):
      return "Windows 95";
    case FourCC("Wn98"):
      return "Windows 98";
    case FourCC("WnMe"):
      return "Windows Me";
    case FourCC("WnNT"):
    case FourCC("W2KP"):
    case FourCC("W2KS"):
      return "Windows NT";
    default:
      return "Unknown";
  }
}

// The version in it is the agent's own and stays when the module's moves on.
static PLXString IncludeHTTP_GetUserAgent() {
  return kPLXTagIncludeHTTP.GetName() + "/3.1.7 (PLX 3.1; " +
         IncludeHTTP_GetOperatingSystemName(PLXEnvironment::GetOperatingSystem()) + ")";
}

// The path of a URL that is relative to the page: the segments of the page's folder, then those of the URL,
// each ".." at its start taking one folder away. Above the site's root there is nothing to take. A page's
// path begins with "/", so its first segment is the empty one before it and its last is the page.
static PLXString IncludeHTTP_GetPathFromPage(PLXString const& url_i, PLXString const& pagePath_i) {
  PLXTokenizedString const urlSegments(url_i, ourSlash);
  PLXTokenizedString const pageSegments(pagePath_i, ourSlash);
  PLXUInt32 depth = pageSegments.GetTokenCount() > 0 ? pageSegments.GetTokenCount() - 1 : 0;
  PLXUInt32 first = 0;
  for (; first < urlSegments.GetTokenCount() && urlSegments.GetToken(first) == ".."; ++first) {
    if (depth > 0) --depth;
  }
  PLXString path;
  path.Reserve(pagePath_i.GetLength() + url_i.GetLength() + 2);
  for (PLXUInt32 index = 1; index < depth; ++index) path.Append('/').Append(pageSegments.GetToken(index));
  for (PLXUInt32 index = first; index < urlSegments.GetTokenCount(); ++index) {
    path.Append('/').Append(urlSegments.GetToken(index));
  }
  return path;
}

static PLXString IncludeHTTP_GetAbsoluteURL(PLXString const& url_i, PLXString const& host_i,
                                            PLXString const& pagePath_i) {
  if (url_i.BeginsWith(ourHTTPScheme, kPLXOption_IgnoreCase)) return url_i;
  if (url_i.BeginsWith(ourSlash)) return ourHTTPScheme + host_i + url_i;
  return ourHTTPScheme + host_i + IncludeHTTP_GetPathFromPage(url_i, pagePath_i);
}

// Whether the URL is the page itself, whatever its query: including it would never end.
static bool IncludeHTTP_RefersToPage(PLXString const& url_i, PLXString const& pageURL_i) {
  PLXString address(url_i);
  PLXUInt32 query = 0;
  if (address.Find('?', 0, kPLXWholeLength, 0, query)) address.RemoveSubstring(query, kPLXWholeLength);
  return address.CompareTo(pageURL_i, kPLXOption_IgnoreCase) == kPLXCompare_Equal;
}

// The pairs end with the first index that lacks its name or its value.
static void IncludeHTTP_AddPostArguments(_PLXAPI_ModuleProcessingInfo* info_i, PLXHTTP& http_io) {
  PLXString name;
  PLXString value;
  for (unsigned int index = 0;
       PLXGlueGetTagParameter(info_i, kHTTPIncludeParameter_PostArgumentName, index, name, PLXString()) &&
       PLXGlueGetTagParameter(info_i, kHTTPIncludeParameter_PostArgumentValue, index, value, PLXString());
       ++index) {
    http_io.AddPostArgument(name, value);
  }
}

static void IncludeHTTP_SetRequest(_PLXAPI_ModuleProcessingInfo* info_i, PLXHTTP& http_io) {
  PLXStringID method;
  PLXString username;
  PLXString password;
  PLXGlueGetTagParameter(info_i, kHTTPIncludeParameter_Method, 0, method, kHTTPIncludeMethod_GET);
  PLXGlueGetTagParameter(info_i, kHTTPIncludeParameter_Username, 0, username, PLXString());
  PLXGlueGetTagParameter(info_i, kHTTPIncludeParameter_Password, 0, password, PLXString());
  http_io.SetUserAgent(IncludeHTTP_GetUserAgent());
  http_io.SetAuthorization(PLXHTTPAuthorization::Basic, username, password);
  if (method == kHTTPIncludeMethod_POST) {
    http_io.SetMethod(PLXHTTPMethod::POST);
    IncludeHTTP_AddPostArguments(info_i, http_io);
  } else {
    http_io.SetMethod(PLXHTTPMethod::GET);
  }
}

static PLXString IncludeHTTP_GetData(_PLXAPI_ModuleProcessingInfo* info_i, PLXHTTP const& http_i) {
  PLXStringID data;
  PLXGlueGetTagParameter(info_i, kHTTPIncludeParameter_Data, 0, data, kHTTPIncludeData_Content);
  if (data == kHTTPIncludeData_Headers) return http_i.GetResponseHeaders();
  if (!(data == kHTTPIncludeData_HeadersAndContent)) return http_i.GetResponseData();
  PLXString const headers = http_i.GetResponseHeaders();
  PLXString const content = http_i.GetResponseData();
  PLXString both;
  both.Reserve(headers.GetLength() + 4 + content.GetLength());
  return both.Append(headers).Append("\r\n\r\n").Append(content);
}

// 0; 'MMRP' without a url; 'MIPV' for the page's own. What cannot be fetched is empty output and no error, so
// that a neighbour's fault leaves the rest of the page whole.
static PLXUInt32 ProcessIncludeHTTP(_PLXAPI_ModuleProcessingInfo* info_i, PLXString& output_o) {
  PLXString url;
  if (!PLXGlueGetRequiredTagParameter(info_i, kHTTPIncludeParameter_URL, 0, url)) {
    return kPLXResult_MissingRequiredParameter;
  }
  PLXString const host = PLXGlueGetVirtualHost(info_i);
  PLXString const pagePath = PLXGlueGetCGIEnvironmentVariable(info_i, "SCRIPT_NAME");
  PLXString const pageURL = ourHTTPScheme + host + pagePath;
  url = IncludeHTTP_GetAbsoluteURL(url, host, pagePath);
  if (IncludeHTTP_RefersToPage(url, pageURL)) {
    PLXGlueSetErrorInformation(info_i, "The specified URL cannot refer to the current page.",
                               "Change the URL parameter to refer to a different page.");
    return kPLXResult_InvalidParameterValue;
  }
  PLXHTTP http;
  http.SetURL(url);
  http.SetReferer(pageURL);
  IncludeHTTP_SetRequest(info_i, http);
  auto const start = std::chrono::steady_clock::now();
  http.Process(true);
  Journal_TellInclude(http, url, pagePath, start);
  output_o = IncludeHTTP_GetData(info_i, http);
  return kPLXResult_Success;
}
