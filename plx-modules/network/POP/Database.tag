// The database that plxPOP collects mail into, one record a message.

PLX_STRING_CONSTANT(kPOPDatabaseField_Header, "Header");
PLX_STRING_CONSTANT(kPOPDatabaseField_Message, "Message");
PLX_STRING_CONSTANT(kPOPDatabaseField_Read, "Read");
PLX_STRING_CONSTANT(kPOPDatabaseField_UniqueID, "Unique ID");
PLX_STRING_CONSTANT(kPOPDatabaseField_To, "To");
PLX_STRING_CONSTANT(kPOPDatabaseField_From, "From");
PLX_STRING_CONSTANT(kPOPDatabaseField_FromName, "From Name");
PLX_STRING_CONSTANT(kPOPDatabaseField_FromEmail, "From Email");
PLX_STRING_CONSTANT(kPOPDatabaseField_Date, "Date");
PLX_STRING_CONSTANT(kPOPDatabaseField_Subject, "Subject");
PLX_STRING_CONSTANT(kPOPDatabaseField_Size, "Size");
PLX_STRING_CONSTANT(kPOPDatabaseField_ReturnPath, "Return-Path");
PLX_STRING_CONSTANT(kPOPDatabaseField_Received, "Received");
PLX_STRING_CONSTANT(kPOPDatabaseField_XSender, "X-Sender");
PLX_STRING_CONSTANT(kPOPDatabaseField_MessageID, "Message-ID");
PLX_STRING_CONSTANT(kPOPDatabaseField_MimeVersion, "Mime-Version");
PLX_STRING_CONSTANT(kPOPDatabaseField_ContentType, "Content-Type");
PLX_STRING_CONSTANT(kPOPDatabaseField_Status, "Status");
PLX_STRING_CONSTANT(kPOPDatabaseField_AttachmentFileNames, "AttachmentFileNames");

static constexpr char kPOPContactRemedy[] = "Please contact the webmaster to report this problem.";

struct POP_Field {
  PLXString const& name;
  PLXUInt32 type;
};

// In the order of their making.
static constexpr PLXUInt32 kPOPFieldCount = 19;
static constexpr PLXUInt32 kPOPFewestFields = 2;  // of a database that is not new
static POP_Field const* POP_GetFields() {
  static constexpr PLXUInt32 kUniqueText =
      kPLXFieldAttribute_Unique | kPLXFieldAttribute_Indexed | kPLXFieldType_Text | 50;
  static constexpr PLXUInt32 kLongText = kPLXFieldType_LongText;
  static POP_Field const ourFields[kPOPFieldCount] = {{kPOPDatabaseField_Header, kLongText},
                                                      {kPOPDatabaseField_Message, kLongText},
                                                      {kPOPDatabaseField_Read, kPLXFieldType_Boolean},
                                                      {kPOPDatabaseField_UniqueID, kUniqueText},
                                                      {kPOPDatabaseField_To, kLongText},
                                                      {kPOPDatabaseField_From, kLongText},
                                                      {kPOPDatabaseField_FromName, kLongText},
                                                      {kPOPDatabaseField_FromEmail, kLongText},
                                                      {kPOPDatabaseField_Date, kLongText},
                                                      {kPOPDatabaseField_Subject, kLongText},
                                                      {kPOPDatabaseField_Size, kLongText},
                                                      {kPOPDatabaseField_ReturnPath, kLongText},
                                                      {kPOPDatabaseField_Received, kLongText},
                                                      {kPOPDatabaseField_XSender, kLongText},
                                                      {kPOPDatabaseField_MessageID, kLongText},
                                                      {kPOPDatabaseField_MimeVersion, kLongText},
                                                      {kPOPDatabaseField_ContentType, kLongText},
                                                      {kPOPDatabaseField_Status, kLongText},
                                                      {kPOPDatabaseField_AttachmentFileNames, kLongText}};
  return ourFields;
}

// Always false.
static bool POP_Report(_PLXAPI_ModuleProcessingInfo* info_i, char const* problem_i, char const* remedy_i) {
  PLXGlueSetErrorInformation(info_i, problem_i, remedy_i);
  return false;
}

// The same, and tells the server's log what the database says. Asked for before the database is closed.
static bool POP_ReportDatabaseProblem(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i,
                                      char const* problem_i) {
  PLXString const reason = PLXGlueDBGetErrorInfo(info_i, database_i);
  PLXGlueAddErrorToServerLog(info_i, PLXString("plxPOP: ") + problem_i + " " + reason);
  return POP_Report(info_i, problem_i, kPOPContactRemedy);
}

static bool POP_HasField(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i,
                         PLXString const& field_i) {
  PLXUInt32 type = 0;
  return PLXGlueDBGetFieldInfo(info_i, database_i, field_i, type) == 0;
}

// Adds the fields that are not there yet, up to the first that cannot be added. True when all are there.
static bool POP_BuildPOPDatabase(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i) {
  return std::all_of(POP_GetFields(), POP_GetFields() + kPOPFieldCount, [=](POP_Field const& field_i) {
    return POP_HasField(info_i, database_i, field_i.name) ||
           PLXGlueDBAddField(info_i, database_i, field_i.name, field_i.type) == 0;
  });
}

// The mail database, open for as long as this lives.
class POP_Database {
 public:
  explicit POP_Database(_PLXAPI_ModuleProcessingInfo* info_i) : myInfo(info_i) {}
  POP_Database(POP_Database const&) = delete;
  POP_Database& operator=(POP_Database const&) = delete;
  ~POP_Database() {
    Close();
    if (myIsInitialized) PLXGlueDBTerminate(myInfo);
  }

  // False when it cannot be had, which has then been reported.
  bool Open() {
    PLXString name;
    PLXString source;
    PLXString user;
    PLXString password;
    PLXGlueGetTagParameter(myInfo, kPOPParameter_DatabaseName, 0, name, PLXString());
    PLXGlueGetTagParameter(myInfo, kPOPParameter_ODBCDataSource, 0, source, PLXString());
    PLXGlueGetTagParameter(myInfo, kPOPParameter_ODBCUsername, 0, user, PLXString());
    PLXGlueGetTagParameter(myInfo, kPOPParameter_ODBCPassword, 0, password, PLXString());
    myIsInitialized = PLXGlueDBInitialize(myInfo, source, user, password) == 0;
    if (!myIsInitialized) {
      return POP_ReportDatabaseProblem(myInfo, 0, "The database system could not be initialized.");
    }
    if (!OpenAs(name, kPLXOpenMode_Shared)) return ReportOpening();
    if (IsToBeBuilt() && !Build(name)) return false;
    return POP_HasField(myInfo, myDatabase, kPOPDatabaseField_UniqueID) || ReportOpening();
  }
  PLXUInt32 GetDatabase() const noexcept { return myDatabase; }

 private:
  bool OpenAs(PLXString const& name_i, PLXUInt32 mode_i) {
    myIsOpen = PLXGlueDBOpenDatabase(myInfo, name_i, mode_i, myDatabase) == 0;
    return myIsOpen;
  }
  void Close() {
    if (myIsOpen) PLXGlueDBCloseDatabase(myInfo, myDatabase);
    myIsOpen = false;
  }
  bool ReportOpening() { return POP_ReportDatabaseProblem(myInfo, 0, "The database could not be opened."); }

  // A database of few fields is new; one that begins like ours is what an interrupted run left. What somebody
  // uses for something else is left as it is.
  bool IsToBeBuilt() {
    PLXUInt32 const count = PLXGlueDBGetFieldCount(myInfo, myDatabase);
    return count < kPOPFewestFields ||
           (count < kPOPFieldCount && POP_HasField(myInfo, myDatabase, kPOPDatabaseField_Header));
  }

  // Alone with the database; of several that come at once the second finds nothing to do.
  bool Build(PLXString const& name_i) {
    Close();
    if (!OpenAs(name_i, kPLXOpenMode_Exclusive)) return ReportOpening();
    if (!POP_BuildPOPDatabase(myInfo, myDatabase)) {
      return POP_ReportDatabaseProblem(myInfo, myDatabase, "The database could not be created.");
    }
    Close();
    return OpenAs(name_i, kPLXOpenMode_Shared) || ReportOpening();
  }

  _PLXAPI_ModuleProcessingInfo* const myInfo;
  bool myIsInitialized = false;
  bool myIsOpen = false;
  PLXUInt32 myDatabase = 0;
};
