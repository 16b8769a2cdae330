#include "PLXModuleAPIGlue.h"

#include "PLXHostCall.h"

// The server, its log, the announcement, the response, paths, logins and preferences. What concerns the tag
// and the request stands in PLXModuleAPIGlueParameters.cpp.

namespace {

typedef _PLXAPI_ModuleProcessingInfo Info;

constexpr PLXUInt32 ourPathCapacity = 256;
constexpr PLXUInt32 ourStatusCapacity = 16;

bool Tell(Info* info_i, PLXUInt32 code_i, PLXString const& text_i) {
  return PLXHostCall(info_i, code_i).In(text_i).Send();
}

bool Tell(Info* info_i, PLXUInt32 code_i, PLXString const& first_i, PLXString const& second_i) {
  return PLXHostCall(info_i, code_i).In(first_i).In(second_i).Send();
}

bool Log(Info* info_i, PLXUInt32 level_i, PLXString const& text_i) {
  return PLXHostCall(info_i, kPLXSupport_WriteToLog).In(text_i).Word(level_i).Send();
}

bool AskPath(Info* info_i, PLXUInt32 code_i, PLXString& path_o) {
  return PLXHostCall(info_i, code_i).Out(ourPathCapacity).Ask(path_o);
}

PLXString AskText(Info* info_i, PLXUInt32 code_i) {
  PLXString text;
  PLXHostCall(info_i, code_i).Out().Ask(text);
  return text;
}

// The server replaces the text by what it makes of it.
bool Rewrite(Info* info_i, PLXUInt32 code_i, PLXString const& text_i, PLXUInt32 capacity_i,
             PLXString& text_o) {
  return PLXHostCall(info_i, code_i).InOut(text_i, capacity_i).Ask(text_o);
}

PLXString GetRewritten(Info* info_i, PLXUInt32 code_i, PLXString const& text_i) {
  PLXString text;
  Rewrite(info_i, code_i, text_i, PLXHostCall::kTextCapacity, text);
  return text;
}

char const* GetStatusText(PLXHTTPStatus status_i) {
  switch (status_i) {
    case kPLXHTTPStatus_Unauthorized:
      return "401";
    case kPLXHTTPStatus_NotFound:
      return "404";
    case kPLXHTTPStatus_Found:
      return "302";
    default:
      return "200";
  }
}

}  // namespace

// ---- Server, module and log ----

PLXUInt32 PLXGlueGetServerInformation(Info*) { return 0; }

bool PLXGlueGetModulePath(Info* info_i, PLXString& path_o) {
  return AskPath(info_i, kPLXSupport_GetModulePath, path_o);
}

bool PLXGlueGetModuleParentFolderPath(Info* info_i, PLXString& path_o) {
  return AskPath(info_i, kPLXSupport_GetModuleParentFolderPath, path_o);
}

bool PLXGlueWriteToServer(Info* info_i, PLXString const& text_i) {
  if (text_i.IsEmpty()) return true;
  PLXUInt32 length = text_i.GetLength();
  // The slot has no const; the server reads it only.
  void* const text = const_cast<char*>(text_i.GetCStringAccess());
  return info_i->PLXServerSupportFunction(info_i->connID_i, kPLXSupport_WriteToServer, text, &length, nullptr,
                                          nullptr, nullptr) == kPLXResult_Success;
}

bool PLXGlueAddToFigure(Info* service_i, PLXString const& figure_i, double amount_i) {
  return PLXHostCall(service_i, kPLXSupport_ChangeFigure)
      .In(figure_i)
      .DoubleIn(amount_i)
      .Word(kPLXFigure_Add)
      .Send();
}

bool PLXGlueSetFigure(Info* service_i, PLXString const& figure_i, double value_i) {
  return PLXHostCall(service_i, kPLXSupport_ChangeFigure)
      .In(figure_i)
      .DoubleIn(value_i)
      .Word(kPLXFigure_Set)
      .Send();
}

bool PLXGlueDescribeFigure(Info* service_i, PLXString const& name_i, PLXString const& meaning_i) {
  return PLXHostCall(service_i, kPLXSupport_ChangeFigure)
      .In(name_i + " " + meaning_i)
      .Word(kPLXFigure_Describe)
      .Send();
}

PLXString PLXGlueGetFigureLabel(PLXString const& label_i, PLXString const& value_i) {
  PLXString value(value_i);
  value.ReplaceAll("\\", "\\\\");
  value.ReplaceAll("\"", "\\\"");
  value.ReplaceAll("\n", "\\n");
  return label_i + "=\"" + value + "\"";
}

bool PLXGlueAddNoteToServerLog(Info* info_i, PLXString const& text_i) {
  return Log(info_i, kPLXLogLevel_Note, text_i);
}

bool PLXGlueAddWarningToServerLog(Info* info_i, PLXString const& text_i) {
  return Log(info_i, kPLXLogLevel_Warning, text_i);
}

bool PLXGlueAddErrorToServerLog(Info* info_i, PLXString const& text_i) {
  return Log(info_i, kPLXLogLevel_Error, text_i);
}

bool PLXGlueAddFailureToServerLog(Info* info_i, PLXString const& text_i) {
  return Log(info_i, kPLXLogLevel_Failure, text_i);
}

bool PLXGlueSetErrorInformation(Info* info_i, PLXString const& problem_i, PLXString const& remedy_i) {
  return Tell(info_i, kPLXSupport_SetErrorInformation, problem_i, remedy_i);
}

bool PLXGlueNormalizeString(Info* info_i, PLXString& text_io) {
  return Rewrite(info_i, kPLXSupport_NormalizeString, text_io, 0, text_io);
}

PLXUInt32 PLXGlueGetDefaultLanguage(Info* info_i) {
  return PLXHostCall(info_i, kPLXSupport_GetDefaultLanguage).AskNumber();
}

PLXUInt32 PLXGlueGetPageID(Info* info_i) { return PLXHostCall(info_i, kPLXSupport_GetPageID).AskNumber(); }

// ---- Announcement ----

bool PLXGlueRegisterModuleName(Info* info_i, PLXString const& name_i) {
  return Tell(info_i, kPLXSupport_RegisterModuleName, name_i);
}

bool PLXGlueRegisterModuleVersion(Info* info_i, PLXString const& version_i) {
  return Tell(info_i, kPLXSupport_RegisterModuleVersion, version_i);
}

bool PLXGlueRegisterModuleAuthor(Info* info_i, PLXString const& author_i) {
  return Tell(info_i, kPLXSupport_RegisterModuleAuthor, author_i);
}

bool PLXGlueRegisterModuleDeveloperID(Info* info_i, PLXString const& id_i) {
  return Tell(info_i, kPLXSupport_RegisterModuleDeveloperID, id_i);
}

bool PLXGlueRegisterModuleVersionTrackerURL(Info* info_i, PLXString const& url_i) {
  return Tell(info_i, kPLXSupport_RegisterModuleVersionTrackerURL, url_i);
}

bool PLXGlueRegisterForTag(Info* info_i, PLXTag const& tag_i, PLXUInt32 flags_i) {
  return PLXHostCall(info_i, kPLXSupport_RegisterForTag).In(tag_i.GetName()).Word(flags_i).Send();
}

bool PLXGlueUnregisterForTag(Info* info_i, PLXTag const& tag_i) {
  return Tell(info_i, kPLXSupport_UnregisterForTag, tag_i.GetName());
}

bool PLXGlueRegisterForAction(Info* info_i, PLXString const& name_i, PLXStringID& id_o) {
  PLXString name;
  if (!Rewrite(info_i, kPLXSupport_RegisterForAction, name_i, PLXHostCall::kTextCapacity, name)) return false;
  id_o = PLXStringID(name, PLXStringID::kIgnoreCase);
  return true;
}

bool PLXGlueUnregisterForAction(Info* info_i, PLXString const& name_i) {
  return Tell(info_i, kPLXSupport_UnregisterForAction, name_i);
}

// ---- Response ----

bool PLXGlueSetHTTPResponseStatus(Info* info_i, PLXHTTPStatus status_i, PLXString const& text_i) {
  PLXString const status(GetStatusText(status_i));
  return PLXHostCall(info_i, kPLXSupport_SetHTTPResponseStatus)
      .In(status, ourStatusCapacity)
      .In(text_i)
      .Send();
}

bool PLXGlueSetHTTPResponseHeader(Info* info_i, PLXString const& name_i, PLXString const& value_i) {
  return Tell(info_i, kPLXSupport_SetHTTPResponseHeader, name_i, value_i);
}

bool PLXGlueSetHTTPResponseURI(Info* info_i, PLXString const& uri_i) {
  return Tell(info_i, kPLXSupport_SetHTTPResponseURI, uri_i);
}

// ---- Administration, region and paths ----

PLXString PLXGlueGetAdminDomainName(Info* info_i) { return AskText(info_i, kPLXSupport_GetAdminDomainName); }

PLXString PLXGlueGetAdminRegionPath(Info* info_i) { return AskText(info_i, kPLXSupport_GetAdminRegionPath); }

PLXString PLXGlueGetVirtualHost(Info* info_i) { return AskText(info_i, kPLXSupport_GetVirtualHost); }

PLXString PLXGlueGetVirtualRootPath(Info* info_i) { return AskText(info_i, kPLXSupport_GetVirtualRootPath); }

PLXString PLXGlueGetURLPath(Info* info_i) { return AskText(info_i, kPLXSupport_GetURLPath); }

PLXString PLXGlueGetURLParentFolderPath(Info* info_i) {
  return AskText(info_i, kPLXSupport_GetURLParentFolderPath);
}

PLXString PLXGlueGetRegionDataFolderPath(Info* info_i, PLXString const& name_i) {
  return GetRewritten(info_i, kPLXSupport_GetRegionDataFolderPath, name_i);
}

PLXString PLXGlueMapURLToPhysicalPath(Info* info_i, PLXString const& url_i) {
  return GetRewritten(info_i, kPLXSupport_MapURLToPhysicalPath, url_i);
}

bool PLXGlueVerifyRegionContainsFile(Info* info_i, PLXString& path_io) {
  return Rewrite(info_i, kPLXSupport_VerifyRegionContainsFile, path_io, PLXHostCall::kTextCapacity, path_io);
}

// ---- Logins and preferences ----

bool PLXGlueValidateServerLogin(Info* info_i, PLXString const& user_i, PLXString const& password_i) {
  return Tell(info_i, kPLXSupport_ValidateServerLogin, user_i, password_i);
}

bool PLXGlueValidateDomainLogin(Info* info_i, PLXString const& user_i, PLXString const& password_i) {
  return Tell(info_i, kPLXSupport_ValidateDomainLogin, user_i, password_i);
}

bool PLXGlueSetPreference(Info* info_i, PLXString const& name_i, PLXString const& value_i) {
  return Tell(info_i, kPLXSupport_SetPreference, name_i, value_i);
}

bool PLXGlueGetPreference(Info* info_i, PLXString const& name_i, PLXString& value_o,
                          PLXString const& default_i) {
  if (PLXHostCall(info_i, kPLXSupport_GetPreference).In(name_i).Out().Ask(value_o, 1)) return true;
  value_o = default_i;
  return false;
}

bool PLXGlueRemovePreference(Info* info_i, PLXString const& name_i) {
  return Tell(info_i, kPLXSupport_RemovePreference, name_i);
}
