#include "NetworkModuleConstants.h"
#include "PLXEmailSendThread.h"
#include "PLXModuleAPIGlue.h"

// The module's entry: announces it, sends each tag and action to its processor, shows and stores the
// preferences.
//
// Events come on many threads at once and share nothing but constants. The tags are sources of their own that
// this one includes, so that the entry is the only symbol that needs to be seen.

static constexpr char ourSourceFile[] = "network/NetworkModule.cpp";

#include "EmailClient.tag"
#include "FTP.tag"
#include "HTTP.tag"
#include "Journal.tag"
#include "POP.tag"
#include "SendMail.tag"

namespace {

typedef _PLXAPI_ModuleProcessingInfo Info;
typedef PLXUInt32 (*TagProcessor)(Info* info_i, PLXString& output_o);

// ---- Announcement ----

// An action that keeps its name, as it almost always does, leaves the constant in place.
bool RegisterSendMailAction(Info* info_i) {
  PLXStringID action;
  if (!PLXGlueRegisterForAction(info_i, ourSendMailAction.GetString(), action)) return false;
  if (!(action.GetString() == ourSendMailAction.GetString())) ourSendMailAction = action;
  return true;
}

// Every call is made, even after one that failed, so that the server's log shows all that is wrong at once.
PLXUInt32 Announce(Info* info_i) {
  bool isDone = PLXGlueRegisterModuleName(info_i, kPLXNetworkModuleName);
  isDone &= PLXGlueRegisterModuleVersion(info_i, kPLXNetworkModuleVersion);
  isDone &= PLXGlueRegisterModuleAuthor(info_i, kPLXNetworkModuleAuthor);
  isDone &= PLXGlueRegisterModuleVersionTrackerURL(info_i, kPLXNetworkModuleVersionTrackerURL);
  isDone &= PLXGlueRegisterForTag(info_i, kPLXTagEmailClient, kPLXTagFlag_StandsAlone);
  isDone &= PLXGlueRegisterForTag(info_i, kPLXTagIncludeHTTP, kPLXTagFlag_StandsAlone);
  isDone &= PLXGlueRegisterForTag(info_i, kPLXTagPOP, kPLXTagFlag_StandsAlone);
  isDone &= PLXGlueRegisterForTag(info_i, kPLXTagSendMail, kPLXTagFlag_EnclosesBody);
  isDone &= RegisterSendMailAction(info_i);
  return isDone ? kPLXResult_Success : kPLXResult_Unknown;
}

// ---- Tags and actions ----

// What the region's administrator chose for a tag: "yes" unless something else is stored.
PLXString GetTagSwitch(Info* info_i, PLXString const& tagName_i) {
  PLXString value;
  PLXGlueGetPreference(info_i, tagName_i, value, kNetworkPreference_Yes);
  return value;
}

struct TagEntry {
  PLXTag const& tag;
  TagProcessor processor;
};

// The entry of a tag. One that is not ours has none of our processors.
TagEntry FindTag(PLXTag const& tag_i) {
  TagEntry const entries[] = {{kPLXTagEmailClient, ProcessEmailClient},
                              {kPLXTagFTP, ProcessFTP},
                              {kPLXTagIncludeHTTP, ProcessIncludeHTTP},
                              {kPLXTagPOP, ProcessPOP},
                              {kPLXTagSendMail, ProcessSendMail}};
  for (TagEntry const& entry : entries) {
    if (entry.tag == tag_i) return entry;
  }
  return {tag_i, nullptr};
}

// Only "no" itself disables a tag. A tag that is disabled or not ours produces nothing and is no error. The
// switch is looked up by our own spelling of the name, so that no page gets round it by writing the tag in
// other letters.
PLXUInt32 ProcessTag(Info* info_i, PLXString& output_o) {
  PLXTag const tag = PLXGlueGetTag(info_i);
  TagEntry const entry = FindTag(tag);
  if (GetTagSwitch(info_i, entry.tag.GetName()) == kNetworkPreference_No) return kPLXResult_Success;
  return entry.processor != nullptr ? entry.processor(info_i, output_o) : kPLXResult_Success;
}

PLXUInt32 ProcessAction(Info* info_i) {
  if (!(PLXGlueGetActionName(info_i) == ourSendMailAction)) return kPLXResult_Success;
  return ProcessSendMailAction(info_i);
}

// ---- Preferences ----

constexpr unsigned ourCellsPerRow = 3;

// The box is checked for "yes" alone.
void AppendTagCell(Info* info_i, char const* tagName_i, PLXString& html_io) {
  html_io.Append("<input type=\"checkbox\" name=\"").Append(tagName_i).Append("\" value=\"yes\"");
  if (GetTagSwitch(info_i, tagName_i) == kNetworkPreference_Yes) html_io.Append(" CHECKED");
  html_io.Append(">").Append(tagName_i);
}

void AppendTagTable(Info* info_i, PLXString& html_io) {
  html_io.Append(
      "\r\n<table width=\"95%\" border=\"0\" cellspacing=\"0\" cellpadding=\"1\" align=\"center\">");
  html_io.Append(
      "\r\n<tr><td colspan=\"3\">Deselect any PLX tags that should be disabled for this "
      "region.<br><br></td></tr>");
  char const* const* tag = kNetworkTagList;
  while (*tag != nullptr) {
    html_io.Append("\r\n<tr>");
    for (unsigned cell = 0; cell < ourCellsPerRow; ++cell) {
      html_io.Append("<td width=\"33%\">");
      if (*tag != nullptr) {
        AppendTagCell(info_i, *tag++, html_io);
      } else {
        html_io.Append("&nbsp;");
      }
      html_io.Append("</td>");
    }
    html_io.Append("</tr>");
  }
  html_io.Append("\r\n</table>");
}

PLXString GetPreferencesHTML(Info* info_i) {
  static constexpr char kSectionStart[] = "\r\n<tr>\r\n<td>";
  static constexpr char kSectionEnd[] = "\r\n</td>\r\n</tr>";
  PLXString html("<table width=\"100%\" border=\"2\" cellspacing=\"1\" cellpadding=\"4\" align=\"center\">");
  html.ReserveToAppend(4096);
  html.Append(kSectionStart);
  AppendTagTable(info_i, html);
  html.Append(kSectionEnd);
  html.Append(kSectionStart).Append(EmailClient_GetPreferencesHTML(info_i)).Append(kSectionEnd);
  html.Append(kSectionStart).Append(GetSendMailPreferencesHTML(info_i, 1)).Append(kSectionEnd);
  html.Append(kSectionStart).Append(GetSendMailPreferencesHTML(info_i, 2)).Append(kSectionEnd);
  return html.Append("\r\n</table>");
}

// A checked box posts "yes", an unchecked one posts nothing. "Yes" is the default and so needs no record.
void SetPreferencesFromPostArguments(Info* info_i) {
  for (char const* const* tag = kNetworkTagList; *tag != nullptr; ++tag) {
    PLXString const name(*tag);
    PLXString value;
    PLXGlueGetPostArgument(info_i, name, 0, value, PLXString());
    if (value.IsEmpty() || value == kNetworkPreference_No) {
      PLXGlueSetPreference(info_i, name, kNetworkPreference_No);
    } else {
      PLXGlueRemovePreference(info_i, name);
    }
  }
  EmailClient_SetPreferences(info_i);
  SetSendMailPreferences(info_i);
}

// ---- Events ----

// Mail that is on its way gets the time to arrive or to be stored; the library cannot be closed before.
constexpr PLXUInt32 kPatienceWithMail = 20000;  // milliseconds

void Leave(Info* info_i) {
  if (PLXEmailSendThread::WaitUntilAllSent(kPatienceWithMail)) return;
  PLXGlueAddErrorToServerLog(info_i, "Network Module: mail was still on its way and may be lost.");
}

PLXUInt32 ProcessEvent(Info* info_i) {
  PLXString output;
  PLXUInt32 result = kPLXResult_Success;
  switch (info_i->eventCode_i) {
    case kPLXEvent_Initialize:
      Journal_Close();  // what another server once offered
      return Announce(info_i);
    case kPLXEvent_Service:
      return Journal_Open(info_i);
    case kPLXEvent_Tag:
      result = ProcessTag(info_i, output);
      break;
    case kPLXEvent_Action:
      result = ProcessAction(info_i);
      break;
    case kPLXEvent_GetPreferences:
      output = GetPreferencesHTML(info_i);
      break;
    case kPLXEvent_SetPreferences:
      SetPreferencesFromPostArguments(info_i);
      break;
    case kPLXEvent_Terminate:
      Leave(info_i);
      Journal_Close();
      return kPLXResult_Success;
    default:
      return kPLXResult_EventNotHandled;
  }
  PLXGlueWriteToServer(info_i, output);
  return result;
}

// Says in the server's log what ended an event. Called while memory may be short, so a second failure is
// swallowed.
PLXUInt32 ReportException(Info* info_i, char const* what_i) noexcept {
  try {
    PLXGlueAddErrorToServerLog(info_i, PLXString("Network Module: the event ended early: ") + what_i);
  } catch (...) {
  }
  return kPLXResult_GeneralError;
}

}  // namespace

// Nothing is thrown across the border of the library: whatever ends an event early is 'MGen' to the server.
extern "C" __attribute__((visibility("default"))) PLXUInt32 ProcessPLXRequest(
    _PLXAPI_ModuleProcessingInfo* processingInfo) {
  PLX_ASSERT_NOT_NULL(processingInfo);
  PLX_ASSERT_NOT_NULL(processingInfo->connID_i);
  PLX_ASSERT_NOT_NULL(processingInfo->PLXServerSupportFunction);
  try {
    return ProcessEvent(processingInfo);
  } catch (std::exception const& exception) {
    return ReportException(processingInfo, exception.what());
  } catch (...) {
    return ReportException(processingInfo, "unknown exception");
  }
}
