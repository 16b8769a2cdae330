// plxEmailClient: a whole web mail client in one tag, its administration, and accounts handled from pages.
// Each subject has a source of its own; this one opens the user database and sends each mode to its subject.

#include "EmailClient/Accounts.tag"
#include "EmailClient/Administration.tag"
#include "EmailClient/Common.tag"
#include "EmailClient/Mailboxes.tag"
#include "EmailClient/Personalities.tag"
#include "EmailClient/Screens.tag"

static constexpr char kEmailClientContactRemedy[] = "Please contact the webmaster to report this problem.";
// The page's own text: the server does not look for tags in it.
static constexpr char kEmailClientTextStart[] = "<plxDoNotProcess>";
static constexpr char kEmailClientTextEnd[] = "</plxDoNotProcess>";
struct EmailClient_Field {
  PLXString const& name;
  PLXUInt32 type;
};

static constexpr PLXUInt32 kEmailClientFieldCount = 14;

// Adds the fields that are not there yet, up to the first that cannot be added. True when all are there.
static bool EmailClient_BuildEmailClientDatabase(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i) {
  constexpr PLXUInt32 kUsernameType =
      kPLXFieldAttribute_Unique | kPLXFieldAttribute_Indexed | kPLXFieldType_Text | 50;
  EmailClient_Field const fields[kEmailClientFieldCount] = {
      {kEmailClientField_Username, kUsernameType},
      {kEmailClientField_Password, kPLXFieldType_LongText},
      {kEmailClientField_Names, kPLXFieldType_LongText},
      {kEmailClientField_EmailAddresses, kPLXFieldType_LongText},
      {kEmailClientField_POPUsernames, kPLXFieldType_LongText},
      {kEmailClientField_POPPasswords, kPLXFieldType_LongText},
      {kEmailClientField_POPServers, kPLXFieldType_LongText},
      {kEmailClientField_SMTPServers, kPLXFieldType_LongText},
      {kEmailClientField_AssignedSignatures, kPLXFieldType_LongText},
      {kEmailClientField_ActivePersonality, kPLXFieldType_Integer},
      {kEmailClientField_SignatureNames, kPLXFieldType_LongText},
      {kEmailClientField_Signatures, kPLXFieldType_LongText},
      {kEmailClientField_SkinNumber, kPLXFieldType_Integer},
      {kEmailClientField_CustomSkin, kPLXFieldType_LongText}};
  for (EmailClient_Field const& field : fields) {
    PLXUInt32 type = 0;
    if (PLXGlueDBGetFieldInfo(info_i, database_i, field.name, type) != 0 &&
        PLXGlueDBAddField(info_i, database_i, field.name, field.type) != 0) {
      return false;
    }
  }
  return true;
}

// The user database, open for as long as this lives.
class EmailClient_Database {
 public:
  explicit EmailClient_Database(_PLXAPI_ModuleProcessingInfo* info_i) : myInfo(info_i) {}
  EmailClient_Database(EmailClient_Database const&) = delete;
  EmailClient_Database& operator=(EmailClient_Database const&) = delete;
  ~EmailClient_Database() {
    if (myIsOpen) PLXGlueDBCloseDatabase(myInfo, myDatabase);
    if (myIsInitialized) PLXGlueDBTerminate(myInfo);
  }

  // False when it cannot be had, which has then been reported.
  bool Open() {
    PLXString source;
    PLXString username;
    PLXString password;
    PLXGlueGetTagParameter(myInfo, kEmailClientParameter_ODBCDataSource, 0, source, PLXString());
    PLXGlueGetTagParameter(myInfo, kEmailClientParameter_ODBCUsername, 0, username, PLXString());
    PLXGlueGetTagParameter(myInfo, kEmailClientParameter_ODBCPassword, 0, password, PLXString());
    myIsInitialized = PLXGlueDBInitialize(myInfo, source, username, password) == 0;
    if (!myIsInitialized) return Report("The database system could not be initialized.");
    if (!Open(kPLXOpenMode_Shared)) return Report("The database could not be opened.");
    // One of fewer fields is new, or what a server left that died while it built it.
    if (PLXGlueDBGetFieldCount(myInfo, myDatabase) >= kEmailClientFieldCount) return true;
    return Build() || Report("The database could not be created.");
  }
  PLXUInt32 GetDatabase() const noexcept { return myDatabase; }

 private:
  bool Open(PLXUInt32 mode_i) {
    myIsOpen = PLXGlueDBOpenDatabase(myInfo, kEmailClient_DatabaseName, mode_i, myDatabase) == 0;
    return myIsOpen;
  }
  // Alone with the database; another server may have built it meanwhile.
  bool Build() {
    PLXGlueDBCloseDatabase(myInfo, myDatabase);
    myIsOpen = false;
    return Open(kPLXOpenMode_Exclusive) && EmailClient_BuildEmailClientDatabase(myInfo, myDatabase);
  }
  bool Report(char const* problem_i) {
    PLXString const reason = PLXGlueDBGetErrorInfo(myInfo, myDatabase);
    PLXGlueSetErrorInformation(myInfo, problem_i, kEmailClientContactRemedy);
    if (reason.IsNotEmpty()) PLXGlueAddErrorToServerLog(myInfo, reason);
    return false;
  }

  _PLXAPI_ModuleProcessingInfo* const myInfo;
  bool myIsInitialized = false;
  bool myIsOpen = false;
  PLXUInt32 myDatabase = 0;
};

static PLXUInt32 EmailClient_RunMode(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i,
                                     PLXStringID const& mode_i, PLXString& output_io) {
  if (mode_i == kEmailClientMode_Client) return EmailClient_RunClient(info_i, database_i, output_io);
  if (mode_i == kEmailClientMode_Admin) return EmailClient_RunAdmin(info_i, database_i, output_io);
  if (mode_i == kEmailClientMode_AddUser) return EmailClient_RunAddUser(info_i, database_i);
  if (mode_i == kEmailClientMode_DeleteUser) return EmailClient_RunDeleteUser(info_i, database_i);
  if (mode_i == kEmailClientMode_QueryUser) return EmailClient_RunQueryUser(info_i, database_i, output_io);
  if (mode_i == kEmailClientMode_ChangePassword) return EmailClient_RunChangePassword(info_i, database_i);
  return ReportProblem(
      info_i, kPLXResult_InvalidParameterValue,
      "The value &quot;" + PLXStringUtility::GetHTMLEncodedString(mode_i.GetString()) +
          "&quot; is an invalid plxEmailClient mode value.",
      "Please set the <b>mode</b> parameter equal to a valid mode value.  Valid modes include "
      "&quot;client&quot;, &quot;admin&quot;, &quot;addUser&quot;, &quot;deleteUser&quot;, "
      "&quot;queryUser&quot;,  and &quot;changePassword&quot;.  The default mode is &quot;client&quot;.");
}

// 0; 'MGen' without the user database; 'MIPV', 'MMRP' and 'MNAu' of the mode; else what the database
// answered.
static PLXUInt32 ProcessEmailClient(_PLXAPI_ModuleProcessingInfo* info_i, PLXString& output_o) {
  PLXStringID mode;
  PLXGlueGetTagParameter(info_i, kEmailClientParameter_Mode, 0, mode, kEmailClientMode_Client);
  output_o = kEmailClientTextStart;
  EmailClient_Database database(info_i);
  PLXUInt32 const result = database.Open()
                               ? EmailClient_RunMode(info_i, database.GetDatabase(), mode, output_o)
                               : kPLXResult_GeneralError;
  output_o.Append(kEmailClientTextEnd);
  return result;
}
