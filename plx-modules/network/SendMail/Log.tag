#pragma once

// The log of failed mail: its database, the action by which send threads report outcomes, and the outcomes
// that nobody lived to report.

#include <functional>
#include <string_view>

#include "PLXOutbox.h"
#include "PLXStringUtility.h"
#include "PLXTokenizedString.h"

static constexpr char kSendMailSourceFile[] = "network/SendMail.tag";

PLX_STRING_CONSTANT(kSendMailDatabaseName, "__PLXDB__SendMail_Log__");
PLX_STRING_CONSTANT(kSendMailDatabaseField_MessageID, "Message ID");
PLX_STRING_CONSTANT(kSendMailDatabaseField_Status, "Status");
PLX_STRING_CONSTANT(kSendMailDatabaseField_Attempts, "Attempts");
PLX_STRING_CONSTANT(kSendMailDatabaseField_SMTPServer, "SMTP Server");
PLX_STRING_CONSTANT(kSendMailDatabaseField_From, "From");
PLX_STRING_CONSTANT(kSendMailDatabaseField_ReplyTo, "ReplyTo");
PLX_STRING_CONSTANT(kSendMailDatabaseField_To, "To");
PLX_STRING_CONSTANT(kSendMailDatabaseField_CC, "CC");
PLX_STRING_CONSTANT(kSendMailDatabaseField_BCC, "BCC");
PLX_STRING_CONSTANT(kSendMailDatabaseField_Subject, "Subject");
PLX_STRING_CONSTANT(kSendMailDatabaseField_Info, "Info");

static constexpr char kSendMailContactRemedy[] = "Contact the system administrator and report this problem.";
static constexpr char kSendMailLockedRemedy[] =
    "The database may be locked for exclusive use.  Try again in a few moments.";
static constexpr char kSendMailStoredNamePrefix[] = "msg";
static constexpr char kSendMailStatus_Sent[] = "S";
static constexpr char kSendMailStatus_Failed[] = "F";

struct SendMail_Field {
  PLXString const& name;
  PLXUInt32 type;
};

// In the order of their making.
static constexpr PLXUInt32 kSendMailFieldCount = 11;
static SendMail_Field const* SendMail_GetFields() {
  static constexpr PLXUInt32 kUnique = kPLXFieldAttribute_Unique;
  static constexpr PLXUInt32 kIndexed = kPLXFieldAttribute_Indexed;
  static SendMail_Field const ourFields[kSendMailFieldCount] = {
      {kSendMailDatabaseField_MessageID, kUnique | kPLXFieldType_Number},
      {kSendMailDatabaseField_Status, kIndexed | kPLXFieldType_Text | 1},
      {kSendMailDatabaseField_Attempts, kIndexed | kPLXFieldType_Integer},
      {kSendMailDatabaseField_SMTPServer, kPLXFieldType_LongText},
      {kSendMailDatabaseField_From, kPLXFieldType_LongText},
      {kSendMailDatabaseField_ReplyTo, kPLXFieldType_LongText},
      {kSendMailDatabaseField_To, kPLXFieldType_LongText},
      {kSendMailDatabaseField_CC, kPLXFieldType_LongText},
      {kSendMailDatabaseField_BCC, kPLXFieldType_LongText},
      {kSendMailDatabaseField_Subject, kPLXFieldType_LongText},
      {kSendMailDatabaseField_Info, kPLXFieldType_LongText}};
  return ourFields;
}

// Where failed mail lies and where outcomes are reported to.
struct SendMail_Places {
  PLXString failedMailFolder;
  PLXString callbackURL;
  PLXString page;  // its path on the site
};

// False for a page whose path says nothing of where it is.
static bool SendMail_GetPlaces(_PLXAPI_ModuleProcessingInfo* info_i, SendMail_Places& places_o) {
  PLXString page = PLXGlueGetCGIEnvironmentVariable(info_i, "SCRIPT_NAME");
  PLXUInt32 slash = 0;
  if (!page.Find('/', kPLXWholeLength, kPLXWholeLength, kPLXOption_Backward, slash)) return false;
  places_o.page = page;
  places_o.failedMailFolder = PLXGlueGetRegionDataFolderPath(info_i, "FM");
  places_o.callbackURL = "http://" + PLXGlueGetVirtualHost(info_i) + page.GetSubstring(0, slash + 1) +
                         ourSendMailAction.GetCStringAccess();
  return true;
}

// Tells the page's author and the server's log what the database would not do. Always false.
static bool SendMail_ReportDatabaseProblem(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i,
                                           char const* action_i, char const* suffix_i = "&quot; database.",
                                           char const* remedy_i = kSendMailContactRemedy) {
  PLXString const reason = PLXGlueDBGetErrorInfo(info_i, database_i);
  PLXString const problem =
      PLXString("The database system was unable to ") + action_i + kSendMailDatabaseName + suffix_i;
  PLXGlueSetErrorInformation(info_i, problem, remedy_i);
  PLXGlueAddErrorToServerLog(info_i, problem);
  if (reason.IsNotEmpty()) PLXGlueAddErrorToServerLog(info_i, reason);
  return false;
}

// Gives the database the fields that it lacks, alone with it. Several servers may do so at once: who comes
// second finds nothing to do. False, reported, with the database closed, when it cannot be done.
static bool SendMail_BuildDatabase(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32& database_io) {
  PLXGlueDBCloseDatabase(info_i, database_io);
  if (PLXGlueDBOpenDatabase(info_i, kSendMailDatabaseName, kPLXOpenMode_Exclusive, database_io) != 0) {
    return SendMail_ReportDatabaseProblem(info_i, 0, "open the &quot;",
                                          "&quot; database for exclusive access.");
  }
  bool isBuilt = true;
  for (PLXUInt32 index = 0; isBuilt && index < kSendMailFieldCount; ++index) {
    SendMail_Field const& field = SendMail_GetFields()[index];
    PLXUInt32 type = 0;
    isBuilt = PLXGlueDBGetFieldInfo(info_i, database_io, field.name, type) == 0 ||
              PLXGlueDBAddField(info_i, database_io, field.name, field.type) == 0 ||
              SendMail_ReportDatabaseProblem(info_i, database_io, "create a record in the &quot;");
  }
  PLXGlueDBCloseDatabase(info_i, database_io);
  if (!isBuilt) return false;
  if (PLXGlueDBOpenDatabase(info_i, kSendMailDatabaseName, kPLXOpenMode_Shared, database_io) != 0) {
    return SendMail_ReportDatabaseProblem(info_i, 0, "open the &quot;", "&quot; database for shared access.");
  }
  return true;
}

// The log database, open for as long as this lives.
class SendMail_Log {
 public:
  explicit SendMail_Log(_PLXAPI_ModuleProcessingInfo* info_i) : myInfo(info_i) {}
  SendMail_Log(SendMail_Log const&) = delete;
  SendMail_Log& operator=(SendMail_Log const&) = delete;
  ~SendMail_Log() {
    if (myIsOpen) PLXGlueDBCloseDatabase(myInfo, myDatabase);
    if (myIsInitialized) PLXGlueDBTerminate(myInfo);
  }

  // False when it cannot be had, which has then been reported.
  bool Open() {
    myIsInitialized = PLXGlueDBInitialize(myInfo, PLXString(), PLXString(), PLXString()) == 0;
    if (!myIsInitialized) {
      PLXString const problem("The database system failed to initialize.");
      PLXGlueSetErrorInformation(myInfo, problem, kSendMailContactRemedy);
      PLXGlueAddErrorToServerLog(myInfo, problem);
      return false;
    }
    if (PLXGlueDBOpenDatabase(myInfo, kSendMailDatabaseName, kPLXOpenMode_Shared, myDatabase) != 0) {
      return SendMail_ReportDatabaseProblem(myInfo, 0, "open the &quot;", "&quot; database.",
                                            kSendMailLockedRemedy);
    }
    myIsOpen = PLXGlueDBGetFieldCount(myInfo, myDatabase) >= kSendMailFieldCount ||
               SendMail_BuildDatabase(myInfo, myDatabase);
    return myIsOpen;
  }
  PLXUInt32 GetDatabase() const noexcept { return myDatabase; }

 private:
  _PLXAPI_ModuleProcessingInfo* const myInfo;
  bool myIsInitialized = false;
  bool myIsOpen = false;
  PLXUInt32 myDatabase = 0;
};

// ---- Outcomes ----

// Where the arguments of a report come from. False for one that is not there.
using SendMail_Report = std::function<bool(char const* name_i, PLXString& value_o)>;

// A field of the log and the argument that reports it.
struct SendMail_ReportedField {
  char const* argument;
  PLXString const& field;
};

static bool SendMail_SetReportedFields(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i,
                                       SendMail_Report const& report_i) {
  SendMail_ReportedField const fields[] = {
      {"Status", kSendMailDatabaseField_Status}, {"SMTPServer", kSendMailDatabaseField_SMTPServer},
      {"From", kSendMailDatabaseField_From},     {"ReplyTo", kSendMailDatabaseField_ReplyTo},
      {"To", kSendMailDatabaseField_To},         {"CC", kSendMailDatabaseField_CC},
      {"BCC", kSendMailDatabaseField_BCC},       {"Subject", kSendMailDatabaseField_Subject},
      {"Info", kSendMailDatabaseField_Info}};
  for (SendMail_ReportedField const& row : fields) {
    PLXString value;
    report_i(row.argument, value);
    if (PLXGlueDBSetLongTextFieldValue(info_i, database_i, row.field, value) != 0) return false;
  }
  return true;
}

// The stored message's number: its name without the prefix. Null for what is none.
static PLXNumber SendMail_GetMessageNumber(PLXString const& name_i) {
  PLXString digits(name_i);
  if (digits.BeginsWith(kSendMailStoredNamePrefix, kPLXOption_IgnoreCase)) {
    digits.TrimLeft(static_cast<PLXUInt32>(sizeof kSendMailStoredNamePrefix - 1));
  }
  return PLXNumber(digits);
}

static bool SendMail_UpdateRecord(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i,
                                  SendMail_Report const& report_i) {
  if (PLXGlueDBMoveFirstRecord(info_i, database_i) != 0) {
    return SendMail_ReportDatabaseProblem(info_i, database_i, "move to the requested record in the &quot;");
  }
  PLXSInt32 const attempts =
      PLXGlueDBGetIntegerFieldValue(info_i, database_i, kSendMailDatabaseField_Attempts);
  if (PLXGlueDBSetIntegerFieldValue(info_i, database_i, kSendMailDatabaseField_Attempts, attempts + 1) != 0 ||
      !SendMail_SetReportedFields(info_i, database_i, report_i)) {
    return SendMail_ReportDatabaseProblem(info_i, database_i, "set the field values in the &quot;");
  }
  return PLXGlueDBUpdateRecord(info_i, database_i) == 0 ||
         SendMail_ReportDatabaseProblem(info_i, database_i, "update a record to the &quot;");
}

static bool SendMail_DeleteRecord(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i) {
  if (PLXGlueDBMoveFirstRecord(info_i, database_i) != 0) {
    return SendMail_ReportDatabaseProblem(info_i, database_i, "move to the requested record in the &quot;");
  }
  PLXString const key = PLXGlueDBGetTextFieldValue(info_i, database_i, kPLXRecordIDFieldName);
  return PLXGlueDBDeleteRecord(info_i, database_i, key) == 0 ||
         SendMail_ReportDatabaseProblem(info_i, database_i, "delete a record from the &quot;");
}

static bool SendMail_AddRecord(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i,
                               PLXNumber const& number_i, SendMail_Report const& report_i) {
  if (PLXGlueDBCreateRecord(info_i, database_i) != 0) {
    return SendMail_ReportDatabaseProblem(info_i, database_i, "create a record in the &quot;");
  }
  if (PLXGlueDBSetNumberFieldValue(info_i, database_i, kSendMailDatabaseField_MessageID, number_i) != 0 ||
      PLXGlueDBSetIntegerFieldValue(info_i, database_i, kSendMailDatabaseField_Attempts, 1) != 0 ||
      !SendMail_SetReportedFields(info_i, database_i, report_i)) {
    return SendMail_ReportDatabaseProblem(info_i, database_i, "set the field values in the &quot;");
  }
  return PLXGlueDBAddRecord(info_i, database_i) == 0 ||
         SendMail_ReportDatabaseProblem(info_i, database_i, "add a record to the &quot;");
}

static bool SendMail_RecordOutcome(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i,
                                   SendMail_Report const& report_i) {
  PLXString name;
  PLXString status;
  if (!report_i("MessageID", name)) return true;
  PLXNumber const number = SendMail_GetMessageNumber(name);
  if (number.IsNull() || !report_i("Status", status)) return true;
  PLXString const condition =
      kSendMailDatabaseField_MessageID + " = '" + number.GetStringRepresentation() + "'";
  if (PLXGlueDBExecuteSearch(info_i, database_i, condition) != 0) {
    return SendMail_ReportDatabaseProblem(info_i, database_i, "search the &quot;");
  }
  PLXUInt32 const resultsCount = PLXGlueDBGetResultCount(info_i, database_i);
  PLX_ASSERT_STATE_IN(kSendMailSourceFile, resultsCount <= 1);
  if (resultsCount == 1) {
    return status == kSendMailStatus_Sent ? SendMail_DeleteRecord(info_i, database_i)
                                          : SendMail_UpdateRecord(info_i, database_i, report_i);
  }
  return !(status == kSendMailStatus_Failed) || SendMail_AddRecord(info_i, database_i, number, report_i);
}

// What a line of the outbox says of an argument: "name=value&...", both encoded as in a form.
static bool SendMail_FindInOutcome(PLXTokenizedString const& outcome_i, char const* name_i,
                                   PLXString& value_o) {
  PLXString const start = PLXString(name_i) + "=";
  for (PLXUInt32 index = 0; index < outcome_i.GetTokenCount(); ++index) {
    PLXString const argument = outcome_i[index];
    if (!argument.BeginsWith(start)) continue;
    value_o =
        PLXStringUtility::GetURLDecodedString(argument.GetSubstring(start.GetLength(), kPLXWholeLength));
    return true;
  }
  return false;
}

// Messages whose server process ended before their outcome was recorded: puts them into the list, or takes
// them off it when they are known to be sent.
static void SendMail_SettleAbandoned(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i,
                                     PLXString const& failedMailFolder_i) {
  PLXFolderSpecification folder(failedMailFolder_i);
  PLXOutbox(failedMailFolder_i).SettleAbandoned([&](PLXOutbox::Entry const& entry) {
    PLXTokenizedString const outcome(entry.outcome, "&");
    PLXFileSpecification file(folder, entry.name);
    SendMail_Report const report = [&](char const* name, PLXString& value) {
      if (std::string_view(name) != "MessageID") return SendMail_FindInOutcome(outcome, name, value);
      value = entry.name;
      return true;
    };
    PLXString status;
    if (!report("Status", status)) return false;
    if (status == kSendMailStatus_Failed && !file.Exists()) {
      // The message itself was deleted by somebody who saw it in the list.
      if (entry.message.IsEmpty()) return true;
      // The first failure of a region has no folder yet.
      if (!folder.CreateIfMissing()) return false;
      if (!PLXFile::WriteWhole(file, entry.message, PLXFile::kKeepExistingFile)) return false;
    }
    if (!SendMail_RecordOutcome(info_i, database_i, report)) return false;
    return !(status == kSendMailStatus_Sent) || file.Delete() || !file.Exists();
  });
}

// What a send thread tells of a message: the log keeps those that failed, and forgets one that was sent.
static PLXUInt32 ProcessSendMailAction(_PLXAPI_ModuleProcessingInfo* info_i) {
  SendMail_Log log(info_i);
  SendMail_Report const report = [&](char const* name, PLXString& value) {
    return PLXGlueGetPostArgument(info_i, name, 0, value, PLXString());
  };
  return log.Open() && SendMail_RecordOutcome(info_i, log.GetDatabase(), report)
             ? kPLXResult_Success
             : kNetworkResult_OperationFailed;
}
