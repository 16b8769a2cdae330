#pragma once

#include "PLXModuleAPI.h"
#include "PLXModuleAPIGlueDatabase.h"
#include "PLXNumber.h"
#include "PLXString.h"
#include "PLXStringID.h"

// What the module asks of the server, one function per request: foundation types in and out, the raw texts,
// sizes and words of the callback in between.
//
// Each takes the record of the event first and is called on that event's thread; those for the operator say
// otherwise. The functions hold no state and never report anything themselves. A bool result is true exactly
// when the server answered 0; unless a comment says otherwise, outputs then hold the answer, and otherwise
// stay as they were. A function that returns its text returns it empty on failure. An answer that did not fit
// is asked for once more with a larger buffer; a second miss is a failure.

// ---- Server, module and log ----
// Makes no call and returns 0: the server tells nothing of itself.
PLXUInt32 PLXGlueGetServerInformation(_PLXAPI_ModuleProcessingInfo* info_i);
bool PLXGlueGetModulePath(_PLXAPI_ModuleProcessingInfo* info_i, PLXString& path_o);
bool PLXGlueGetModuleParentFolderPath(_PLXAPI_ModuleProcessingInfo* info_i, PLXString& path_o);
// Sends the characters themselves, without a copy. An empty text makes no call and succeeds.
bool PLXGlueWriteToServer(_PLXAPI_ModuleProcessingInfo* info_i, PLXString const& text_i);
bool PLXGlueAddNoteToServerLog(_PLXAPI_ModuleProcessingInfo* info_i, PLXString const& text_i);
bool PLXGlueAddWarningToServerLog(_PLXAPI_ModuleProcessingInfo* info_i, PLXString const& text_i);
bool PLXGlueAddErrorToServerLog(_PLXAPI_ModuleProcessingInfo* info_i, PLXString const& text_i);
bool PLXGlueAddFailureToServerLog(_PLXAPI_ModuleProcessingInfo* info_i, PLXString const& text_i);
// Two texts of HTML that the server shows in place of the tag's output; a later pair replaces an earlier one.
bool PLXGlueSetErrorInformation(_PLXAPI_ModuleProcessingInfo* info_i, PLXString const& problem_i,
                                PLXString const& remedy_i);
bool PLXGlueNormalizeString(_PLXAPI_ModuleProcessingInfo* info_i, PLXString& text_io);
PLXUInt32 PLXGlueGetDefaultLanguage(_PLXAPI_ModuleProcessingInfo* info_i);
PLXUInt32 PLXGlueGetPageID(_PLXAPI_ModuleProcessingInfo* info_i);

// ---- For the operator, on any thread ----
// The record is the one that came with 'MSvH', or a copy; it also takes lines for the log, above.
//
// A figure is a name, or a name with labels: `plx_includes_total{status="200"}`. A name that ends in "_total"
// is a counter and only grows.
bool PLXGlueAddToFigure(_PLXAPI_ModuleProcessingInfo* service_i, PLXString const& figure_i, double amount_i);
bool PLXGlueSetFigure(_PLXAPI_ModuleProcessingInfo* service_i, PLXString const& figure_i, double value_i);
// Tells monitoring systems what a name without labels means.
bool PLXGlueDescribeFigure(_PLXAPI_ModuleProcessingInfo* service_i, PLXString const& name_i,
                           PLXString const& meaning_i);
// `label="value"` with the value escaped. Makes no call.
PLXString PLXGlueGetFigureLabel(PLXString const& label_i, PLXString const& value_i);

// ---- Announcement, during 'MIni' only ----
bool PLXGlueRegisterModuleName(_PLXAPI_ModuleProcessingInfo* info_i, PLXString const& name_i);
bool PLXGlueRegisterModuleVersion(_PLXAPI_ModuleProcessingInfo* info_i, PLXString const& version_i);
bool PLXGlueRegisterModuleAuthor(_PLXAPI_ModuleProcessingInfo* info_i, PLXString const& author_i);
bool PLXGlueRegisterModuleDeveloperID(_PLXAPI_ModuleProcessingInfo* info_i, PLXString const& id_i);
bool PLXGlueRegisterModuleVersionTrackerURL(_PLXAPI_ModuleProcessingInfo* info_i, PLXString const& url_i);
// The flags are kPLXTagFlag_EnclosesBody or kPLXTagFlag_StandsAlone.
bool PLXGlueRegisterForTag(_PLXAPI_ModuleProcessingInfo* info_i, PLXTag const& tag_i, PLXUInt32 flags_i);
bool PLXGlueUnregisterForTag(_PLXAPI_ModuleProcessingInfo* info_i, PLXTag const& tag_i);
// The server may give the action another name; `id_o` is the one it gave, ignoring case.
bool PLXGlueRegisterForAction(_PLXAPI_ModuleProcessingInfo* info_i, PLXString const& name_i,
                              PLXStringID& id_o);
bool PLXGlueUnregisterForAction(_PLXAPI_ModuleProcessingInfo* info_i, PLXString const& name_i);

// ---- Tag and action ----
// The two names are built from what the server left in the buffer, whatever its result.
PLXTag PLXGlueGetTag(_PLXAPI_ModuleProcessingInfo* info_i);
PLXStringID PLXGlueGetActionName(_PLXAPI_ModuleProcessingInfo* info_i);
// The text between the opening and the closing tag.
PLXString PLXGlueGetTagBody(_PLXAPI_ModuleProcessingInfo* info_i);

// A parameter of the tag by name and occurrence (0 is the first of that name). False with the default when
// the tag does not have it. Presence is what is told, not validity: a text without digits is present and 0.
bool PLXGlueGetTagParameter(_PLXAPI_ModuleProcessingInfo* info_i, PLXStringID const& name_i,
                            unsigned int index_i, PLXString& value_o, PLXString const& default_i);
bool PLXGlueGetTagParameter(_PLXAPI_ModuleProcessingInfo* info_i, PLXStringID const& name_i,
                            unsigned int index_i, PLXStringID& value_o, PLXStringID const& default_i);
bool PLXGlueGetTagParameter(_PLXAPI_ModuleProcessingInfo* info_i, PLXStringID const& name_i,
                            unsigned int index_i, unsigned int& value_o, unsigned int default_i);
bool PLXGlueGetTagParameter(_PLXAPI_ModuleProcessingInfo* info_i, PLXStringID const& name_i,
                            unsigned int index_i, int& value_o, int default_i);
bool PLXGlueGetTagParameter(_PLXAPI_ModuleProcessingInfo* info_i, PLXStringID const& name_i,
                            unsigned int index_i, double& value_o, double default_i);
// A text that is no number leaves the number null.
bool PLXGlueGetTagParameter(_PLXAPI_ModuleProcessingInfo* info_i, PLXStringID const& name_i,
                            unsigned int index_i, PLXNumber& value_o, PLXNumber const& default_i);
// True for "true", "t", "yes", "y", "on" and "1" in any letter case.
bool PLXGlueGetTagParameter(_PLXAPI_ModuleProcessingInfo* info_i, PLXStringID const& name_i,
                            unsigned int index_i, bool& value_o, bool default_i);

// Tells the page's author, in the tag's place, that the tag lacks this parameter.
void PLXGlueReportMissingTagParameter(_PLXAPI_ModuleProcessingInfo* info_i, PLXStringID const& name_i);
// A parameter that the tag cannot do without. When it is missing, the page's author is told so in the tag's
// place, the value is empty, zero or null, and the processor that gets false returns at once.
bool PLXGlueGetRequiredTagParameter(_PLXAPI_ModuleProcessingInfo* info_i, PLXStringID const& name_i,
                                    unsigned int index_i, PLXString& value_o);
bool PLXGlueGetRequiredTagParameter(_PLXAPI_ModuleProcessingInfo* info_i, PLXStringID const& name_i,
                                    unsigned int index_i, PLXStringID& value_o);
bool PLXGlueGetRequiredTagParameter(_PLXAPI_ModuleProcessingInfo* info_i, PLXStringID const& name_i,
                                    unsigned int index_i, unsigned int& value_o);
bool PLXGlueGetRequiredTagParameter(_PLXAPI_ModuleProcessingInfo* info_i, PLXStringID const& name_i,
                                    unsigned int index_i, int& value_o);
bool PLXGlueGetRequiredTagParameter(_PLXAPI_ModuleProcessingInfo* info_i, PLXStringID const& name_i,
                                    unsigned int index_i, double& value_o);
bool PLXGlueGetRequiredTagParameter(_PLXAPI_ModuleProcessingInfo* info_i, PLXStringID const& name_i,
                                    unsigned int index_i, PLXNumber& value_o);
bool PLXGlueGetRequiredTagParameter(_PLXAPI_ModuleProcessingInfo* info_i, PLXStringID const& name_i,
                                    unsigned int index_i, bool& value_o);

// Parameters in the order of the tag, from 0.
bool PLXGlueGetTagParameterByIndex(_PLXAPI_ModuleProcessingInfo* info_i, unsigned int index_i,
                                   PLXStringID& name_o, PLXStringID& value_o);
bool PLXGlueGetTagParameterByIndex(_PLXAPI_ModuleProcessingInfo* info_i, unsigned int index_i,
                                   PLXStringID& name_o, PLXString& value_o);
PLXUInt32 PLXGlueGetTagParameterCount(_PLXAPI_ModuleProcessingInfo* info_i);

// ---- Arguments, variables and cookies of the page ----
// Path arguments come with the URL, post arguments with the form. By name and occurrence, or by position.
bool PLXGlueGetPathArgument(_PLXAPI_ModuleProcessingInfo* info_i, PLXString const& name_i,
                            unsigned int index_i, PLXString& value_o, PLXString const& default_i);
bool PLXGlueGetPathArgumentByIndex(_PLXAPI_ModuleProcessingInfo* info_i, unsigned int index_i,
                                   PLXString& name_o, PLXString& value_o);
PLXUInt32 PLXGlueGetPathArgumentCount(_PLXAPI_ModuleProcessingInfo* info_i);
bool PLXGlueGetPostArgument(_PLXAPI_ModuleProcessingInfo* info_i, PLXString const& name_i,
                            unsigned int index_i, PLXString& value_o, PLXString const& default_i);
bool PLXGlueGetPostArgumentByIndex(_PLXAPI_ModuleProcessingInfo* info_i, unsigned int index_i,
                                   PLXString& name_o, PLXString& value_o);
PLXUInt32 PLXGlueGetPostArgumentCount(_PLXAPI_ModuleProcessingInfo* info_i);
PLXString PLXGlueGetCGIEnvironmentVariable(_PLXAPI_ModuleProcessingInfo* info_i, PLXString const& name_i);
bool PLXGlueSetPageVariable(_PLXAPI_ModuleProcessingInfo* info_i, PLXString const& name_i,
                            PLXString const& value_i);
bool PLXGlueGetPageVariable(_PLXAPI_ModuleProcessingInfo* info_i, PLXString const& name_i, PLXString& value_o,
                            PLXString const& default_i);
bool PLXGlueGetPageVariableByIndex(_PLXAPI_ModuleProcessingInfo* info_i, unsigned int index_i,
                                   PLXString& name_o, PLXString& value_o);
PLXUInt32 PLXGlueGetPageVariableCount(_PLXAPI_ModuleProcessingInfo* info_i);
PLXString PLXGlueGetCookie(_PLXAPI_ModuleProcessingInfo* info_i, PLXString const& name_i);

// ---- Response ----
enum PLXHTTPStatus : PLXUInt32 {
  kPLXHTTPStatus_OK = 200,
  kPLXHTTPStatus_MovedPermanently = 301,
  kPLXHTTPStatus_Found = 302,
  kPLXHTTPStatus_NotModified = 304,
  kPLXHTTPStatus_BadRequest = 400,
  kPLXHTTPStatus_Unauthorized = 401,
  kPLXHTTPStatus_Forbidden = 403,
  kPLXHTTPStatus_NotFound = 404,
  kPLXHTTPStatus_InternalServerError = 500,
  kPLXHTTPStatus_ServiceUnavailable = 503,
};
// A page answers 200, 302, 401 or 404; every other status goes out as 200.
bool PLXGlueSetHTTPResponseStatus(_PLXAPI_ModuleProcessingInfo* info_i, PLXHTTPStatus status_i,
                                  PLXString const& text_i);
bool PLXGlueSetHTTPResponseHeader(_PLXAPI_ModuleProcessingInfo* info_i, PLXString const& name_i,
                                  PLXString const& value_i);
bool PLXGlueSetHTTPResponseURI(_PLXAPI_ModuleProcessingInfo* info_i, PLXString const& uri_i);

// ---- Administration, region and paths ----
PLXString PLXGlueGetAdminDomainName(_PLXAPI_ModuleProcessingInfo* info_i);
PLXString PLXGlueGetAdminRegionPath(_PLXAPI_ModuleProcessingInfo* info_i);
// The site's host name, with ":port" unless it is 80.
PLXString PLXGlueGetVirtualHost(_PLXAPI_ModuleProcessingInfo* info_i);
PLXString PLXGlueGetVirtualRootPath(_PLXAPI_ModuleProcessingInfo* info_i);
// The page's file, and its folder, on disk.
PLXString PLXGlueGetURLPath(_PLXAPI_ModuleProcessingInfo* info_i);
PLXString PLXGlueGetURLParentFolderPath(_PLXAPI_ModuleProcessingInfo* info_i);
PLXString PLXGlueGetRegionDataFolderPath(_PLXAPI_ModuleProcessingInfo* info_i, PLXString const& name_i);
PLXString PLXGlueMapURLToPhysicalPath(_PLXAPI_ModuleProcessingInfo* info_i, PLXString const& url_i);
// Gives the disk path of a path inside the region; false for one that leaves it.
bool PLXGlueVerifyRegionContainsFile(_PLXAPI_ModuleProcessingInfo* info_i, PLXString& path_io);

// ---- Logins and preferences ----
// True: accepted.
bool PLXGlueValidateServerLogin(_PLXAPI_ModuleProcessingInfo* info_i, PLXString const& user_i,
                                PLXString const& password_i);
bool PLXGlueValidateDomainLogin(_PLXAPI_ModuleProcessingInfo* info_i, PLXString const& user_i,
                                PLXString const& password_i);
// Stored by the server for the region of the event.
bool PLXGlueSetPreference(_PLXAPI_ModuleProcessingInfo* info_i, PLXString const& name_i,
                          PLXString const& value_i);
bool PLXGlueGetPreference(_PLXAPI_ModuleProcessingInfo* info_i, PLXString const& name_i, PLXString& value_o,
                          PLXString const& default_i);
bool PLXGlueRemovePreference(_PLXAPI_ModuleProcessingInfo* info_i, PLXString const& name_i);
