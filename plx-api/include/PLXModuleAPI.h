#pragma once

#include <cstdint>

// The contract between the server and a module, and the only header that both know.
//
// The server loads the module as a shared library and calls ProcessPLXRequest once per event, on whatever
// thread serves the request. The module answers through the two callbacks of the record, on that same thread,
// and keeps nothing of the record once the event has returned. Ownership never crosses: every buffer belongs
// to whoever made it. No exception leaves either side. docs/host-api.md tells the meaning of every call.

typedef std::uint8_t PLXUInt8;
typedef std::int8_t PLXSInt8;
typedef std::uint16_t PLXUInt16;
typedef std::int16_t PLXSInt16;
typedef std::uint32_t PLXUInt32;
typedef std::int32_t PLXSInt32;

// Names the request (or the page in flight) to the server; opaque to the module, never null.
typedef void* PLXConnectionID;

typedef PLXUInt32 (*PLXServerSupportFunctionPtr)(PLXConnectionID connID_i, PLXUInt32 code_i, void* a1,
                                                 void* a2, void* a3, void* a4, void* a5);
typedef PLXUInt32 (*PLXServerDatabaseFunctionPtr)(PLXConnectionID connID_i, PLXUInt32 code_i, void* a1,
                                                  void* a2, void* a3, void* a4, void* a5, void* a6);

// What the server hands over with each event. The module reads it and never writes it.
struct _PLXAPI_ModuleProcessingInfo {
  PLXConnectionID connID_i;
  PLXUInt32 eventCode_i;
  PLXServerSupportFunctionPtr PLXServerSupportFunction;
  PLXServerDatabaseFunctionPtr PLXServerDatabaseFunction;
};

extern "C" {
// The module's entry: 0, a result of the tag or action, 'MUnF' (event not handled) or 'MUnk' (announcement
// failed). Safe on many threads at once, except that the announcement comes first and alone.
typedef PLXUInt32 (*PLXModuleEntryPtr)(_PLXAPI_ModuleProcessingInfo* processingInfo);
}

inline constexpr char kPLXModuleEntryName[] = "ProcessPLXRequest";

// Four characters as one integer, the first most significant: PLXCode("MTag") is 0x4D546167.
consteval PLXUInt32 PLXCode(char const (&text_i)[5]) {
  PLXUInt32 code = 0;
  for (int index = 0; index < 4; ++index) {
    code = code << 8 | static_cast<unsigned char>(text_i[index]);
  }
  return code;
}

// ---- Events ----------------------------------------------------------------------------------------------
inline constexpr PLXUInt32 kPLXEvent_Initialize = PLXCode("MIni");
inline constexpr PLXUInt32 kPLXEvent_Tag = PLXCode("MTag");
inline constexpr PLXUInt32 kPLXEvent_Action = PLXCode("MAct");
inline constexpr PLXUInt32 kPLXEvent_GetPreferences = PLXCode("MGPr");
inline constexpr PLXUInt32 kPLXEvent_SetPreferences = PLXCode("MSPr");
inline constexpr PLXUInt32 kPLXEvent_Terminate = PLXCode("MTrm");
// Once, after 'MIni' and before any other: offers a service handle, which is the connection of this event. A
// module that answers 0 keeps the record and may use it on any thread until its 'MTrm' has returned, for
// kPLXSupport_WriteToLog and kPLXSupport_ChangeFigure alone. Servers without it never send the event.
inline constexpr PLXUInt32 kPLXEvent_Service = PLXCode("MSvH");

// ---- Results ---------------------------------------------------------------------------------------------
inline constexpr PLXUInt32 kPLXResult_Success = 0;
inline constexpr PLXUInt32 kPLXResult_BufferTooSmall = PLXCode("MBtS");
inline constexpr PLXUInt32 kPLXResult_EventNotHandled = PLXCode("MUnF");
inline constexpr PLXUInt32 kPLXResult_Unknown = PLXCode("MUnk");
inline constexpr PLXUInt32 kPLXResult_GeneralError = PLXCode("MGen");
inline constexpr PLXUInt32 kPLXResult_MissingRequiredParameter = PLXCode("MMRP");
inline constexpr PLXUInt32 kPLXResult_InvalidParameterValue = PLXCode("MIPV");
inline constexpr PLXUInt32 kPLXResult_NotAuthorized = PLXCode("MNAu");
inline constexpr PLXUInt32 kPLXResult_FileNotFound = PLXCode("MFnF");

// ---- Tag flags of 'MRfT' ---------------------------------------------------------------------------------
inline constexpr PLXUInt32 kPLXTagFlag_EnclosesBody = 16;
inline constexpr PLXUInt32 kPLXTagFlag_StandsAlone = 32;

// ---- Log levels of 'MWtL' --------------------------------------------------------------------------------
inline constexpr PLXUInt32 kPLXLogLevel_Note = PLXCode("MLgN");
inline constexpr PLXUInt32 kPLXLogLevel_Warning = PLXCode("MLgW");
inline constexpr PLXUInt32 kPLXLogLevel_Error = PLXCode("MLgE");
inline constexpr PLXUInt32 kPLXLogLevel_Failure = PLXCode("MLgF");

// ---- What 'MFig' does with a figure ----------------------------------------------------------------------
inline constexpr PLXUInt32 kPLXFigure_Add = PLXCode("FAdd");
inline constexpr PLXUInt32 kPLXFigure_Set = PLXCode("FSet");
inline constexpr PLXUInt32 kPLXFigure_Describe = PLXCode("FDsc");

// ---- Support requests ------------------------------------------------------------------------------------
// Server, module and log
inline constexpr PLXUInt32 kPLXSupport_GetModulePath = PLXCode("MMdP");
inline constexpr PLXUInt32 kPLXSupport_GetModuleParentFolderPath = PLXCode("MMPP");
inline constexpr PLXUInt32 kPLXSupport_WriteToServer = PLXCode("MWtS");
inline constexpr PLXUInt32 kPLXSupport_WriteToLog = PLXCode("MWtL");
inline constexpr PLXUInt32 kPLXSupport_SetErrorInformation = PLXCode("MSEI");
inline constexpr PLXUInt32 kPLXSupport_NormalizeString = PLXCode("MNmS");
inline constexpr PLXUInt32 kPLXSupport_GetDefaultLanguage = PLXCode("MGDL");
inline constexpr PLXUInt32 kPLXSupport_GetPageID = PLXCode("PLXD");
// Through a service handle alone
inline constexpr PLXUInt32 kPLXSupport_ChangeFigure = PLXCode("MFig");
// Announcement
inline constexpr PLXUInt32 kPLXSupport_RegisterModuleName = PLXCode("MRMN");
inline constexpr PLXUInt32 kPLXSupport_RegisterModuleVersion = PLXCode("MRMV");
inline constexpr PLXUInt32 kPLXSupport_RegisterModuleAuthor = PLXCode("MRMA");
inline constexpr PLXUInt32 kPLXSupport_RegisterModuleDeveloperID = PLXCode("MRMD");
inline constexpr PLXUInt32 kPLXSupport_RegisterModuleVersionTrackerURL = PLXCode("MRVt");
inline constexpr PLXUInt32 kPLXSupport_RegisterForTag = PLXCode("MRfT");
inline constexpr PLXUInt32 kPLXSupport_UnregisterForTag = PLXCode("MUfT");
inline constexpr PLXUInt32 kPLXSupport_RegisterForAction = PLXCode("MRfA");
inline constexpr PLXUInt32 kPLXSupport_UnregisterForAction = PLXCode("MUfA");
// Tag, arguments, variables and cookies
inline constexpr PLXUInt32 kPLXSupport_GetTag = PLXCode("MTag");
inline constexpr PLXUInt32 kPLXSupport_GetTagParameter = PLXCode("MTPm");
inline constexpr PLXUInt32 kPLXSupport_GetTagParameterByIndex = PLXCode("MTPI");
inline constexpr PLXUInt32 kPLXSupport_GetTagParameterCount = PLXCode("MTPC");
inline constexpr PLXUInt32 kPLXSupport_GetTagBody = PLXCode("MTBd");
inline constexpr PLXUInt32 kPLXSupport_GetActionName = PLXCode("MAct");
inline constexpr PLXUInt32 kPLXSupport_GetPathArgument = PLXCode("MPAr");
inline constexpr PLXUInt32 kPLXSupport_GetPathArgumentByIndex = PLXCode("MPAI");
inline constexpr PLXUInt32 kPLXSupport_GetPathArgumentCount = PLXCode("MPAC");
inline constexpr PLXUInt32 kPLXSupport_GetPostArgument = PLXCode("MFAr");
inline constexpr PLXUInt32 kPLXSupport_GetPostArgumentByIndex = PLXCode("MFAI");
inline constexpr PLXUInt32 kPLXSupport_GetPostArgumentCount = PLXCode("MFAC");
inline constexpr PLXUInt32 kPLXSupport_GetCGIEnvironmentVariable = PLXCode("MCGI");
inline constexpr PLXUInt32 kPLXSupport_SetPageVariable = PLXCode("MSPV");
inline constexpr PLXUInt32 kPLXSupport_GetPageVariable = PLXCode("MGPV");
inline constexpr PLXUInt32 kPLXSupport_GetPageVariableByIndex = PLXCode("MGPI");
inline constexpr PLXUInt32 kPLXSupport_GetPageVariableCount = PLXCode("MGPC");
inline constexpr PLXUInt32 kPLXSupport_GetCookie = PLXCode("MGCk");
// HTTP response
inline constexpr PLXUInt32 kPLXSupport_SetHTTPResponseStatus = PLXCode("MHRS");
inline constexpr PLXUInt32 kPLXSupport_SetHTTPResponseHeader = PLXCode("MSRH");
inline constexpr PLXUInt32 kPLXSupport_SetHTTPResponseURI = PLXCode("MHRU");
// Administration, region and paths
inline constexpr PLXUInt32 kPLXSupport_GetAdminDomainName = PLXCode("MADN");
inline constexpr PLXUInt32 kPLXSupport_GetAdminRegionPath = PLXCode("MARP");
inline constexpr PLXUInt32 kPLXSupport_GetVirtualHost = PLXCode("MVrH");
inline constexpr PLXUInt32 kPLXSupport_GetVirtualRootPath = PLXCode("MVrP");
inline constexpr PLXUInt32 kPLXSupport_GetURLPath = PLXCode("MUPa");
inline constexpr PLXUInt32 kPLXSupport_GetURLParentFolderPath = PLXCode("MUPF");
inline constexpr PLXUInt32 kPLXSupport_GetRegionDataFolderPath = PLXCode("MRDF");
inline constexpr PLXUInt32 kPLXSupport_MapURLToPhysicalPath = PLXCode("MUPh");
inline constexpr PLXUInt32 kPLXSupport_VerifyRegionContainsFile = PLXCode("MRCP");
// Logins and preferences
inline constexpr PLXUInt32 kPLXSupport_ValidateServerLogin = PLXCode("MVSL");
inline constexpr PLXUInt32 kPLXSupport_ValidateDomainLogin = PLXCode("MVDL");
inline constexpr PLXUInt32 kPLXSupport_SetPreference = PLXCode("MSPr");
inline constexpr PLXUInt32 kPLXSupport_GetPreference = PLXCode("MGPr");
inline constexpr PLXUInt32 kPLXSupport_RemovePreference = PLXCode("MRPr");

// ---- Database requests -----------------------------------------------------------------------------------
// Engine
inline constexpr PLXUInt32 kPLXDatabase_Initialize = PLXCode("MIni");
inline constexpr PLXUInt32 kPLXDatabase_Terminate = PLXCode("MTrm");
inline constexpr PLXUInt32 kPLXDatabase_GetODBCSupportFlags = PLXCode("MOSF");
inline constexpr PLXUInt32 kPLXDatabase_GetODBCCursorFlags = PLXCode("MOCF");
inline constexpr PLXUInt32 kPLXDatabase_GetODBCFieldTypeInfo = PLXCode("MOFT");
inline constexpr PLXUInt32 kPLXDatabase_GetODBCFieldTypeInfoByIndex = PLXCode("MOFI");
inline constexpr PLXUInt32 kPLXDatabase_GetODBCFieldTypeInfoByName = PLXCode("MDFN");
inline constexpr PLXUInt32 kPLXDatabase_GetODBCFieldTypeCount = PLXCode("MOFC");
inline constexpr PLXUInt32 kPLXDatabase_GetErrorInfo = PLXCode("MDEI");
// Databases
inline constexpr PLXUInt32 kPLXDatabase_CreateDatabase = PLXCode("MDCr");
inline constexpr PLXUInt32 kPLXDatabase_OpenDatabase = PLXCode("MDOp");
inline constexpr PLXUInt32 kPLXDatabase_CloseDatabase = PLXCode("MDCl");
inline constexpr PLXUInt32 kPLXDatabase_DeleteDatabase = PLXCode("MDDl");
inline constexpr PLXUInt32 kPLXDatabase_GetDatabaseName = PLXCode("MDNm");
inline constexpr PLXUInt32 kPLXDatabase_GetDatabaseNameByIndex = PLXCode("MDNI");
inline constexpr PLXUInt32 kPLXDatabase_GetDatabaseCount = PLXCode("MDCt");
inline constexpr PLXUInt32 kPLXDatabase_SetLocking = PLXCode("MLck");
// Fields
inline constexpr PLXUInt32 kPLXDatabase_AddField = PLXCode("MFAd");
inline constexpr PLXUInt32 kPLXDatabase_DeleteField = PLXCode("MFDl");
inline constexpr PLXUInt32 kPLXDatabase_GetFieldInfo = PLXCode("MFFI");
inline constexpr PLXUInt32 kPLXDatabase_GetFieldInfoByIndex = PLXCode("MFII");
inline constexpr PLXUInt32 kPLXDatabase_GetFieldCount = PLXCode("MFCt");
// Records and values
inline constexpr PLXUInt32 kPLXDatabase_CreateRecord = PLXCode("MRCr");
inline constexpr PLXUInt32 kPLXDatabase_AddRecord = PLXCode("MRAd");
inline constexpr PLXUInt32 kPLXDatabase_UpdateRecord = PLXCode("MRUp");
inline constexpr PLXUInt32 kPLXDatabase_DeleteRecord = PLXCode("MRDl");
inline constexpr PLXUInt32 kPLXDatabase_DeleteAllRecords = PLXCode("MRDA");
inline constexpr PLXUInt32 kPLXDatabase_SetFieldValue = PLXCode("MFSV");
inline constexpr PLXUInt32 kPLXDatabase_GetFieldValue = PLXCode("MFGV");
inline constexpr PLXUInt32 kPLXDatabase_GetRecordCount = PLXCode("MRCt");
// Searching and moving
inline constexpr PLXUInt32 kPLXDatabase_ExecuteSearch = PLXCode("MSEc");
inline constexpr PLXUInt32 kPLXDatabase_GetResultCount = PLXCode("MSRC");
inline constexpr PLXUInt32 kPLXDatabase_ClearSearchResults = PLXCode("MSCl");
inline constexpr PLXUInt32 kPLXDatabase_MoveFirstRecord = PLXCode("MMFR");
inline constexpr PLXUInt32 kPLXDatabase_MoveLastRecord = PLXCode("MMLR");
inline constexpr PLXUInt32 kPLXDatabase_MovePrevRecord = PLXCode("MMPR");
inline constexpr PLXUInt32 kPLXDatabase_MoveNextRecord = PLXCode("MMNR");
inline constexpr PLXUInt32 kPLXDatabase_MoveToRecord = PLXCode("MMTR");
inline constexpr PLXUInt32 kPLXDatabase_Jump = PLXCode("MMJp");
// Exchange
inline constexpr PLXUInt32 kPLXDatabase_Export = PLXCode("MExp");
inline constexpr PLXUInt32 kPLXDatabase_Import = PLXCode("MImp");

// ---- Open modes of 'MDOp' --------------------------------------------------------------------------------
// An exclusive open fails while another reference to the database is open, and others fail while it lasts.
inline constexpr PLXUInt32 kPLXOpenMode_Shared = 2;
inline constexpr PLXUInt32 kPLXOpenMode_Exclusive = 3;

// ---- Field-type words: attributes, type and size ---------------------------------------------------------
inline constexpr PLXUInt32 kPLXFieldSizeMask = 0x0000FFFF;
inline constexpr PLXUInt32 kPLXFieldTypeMask = 0x00FF0000;
inline constexpr PLXUInt32 kPLXFieldType_Boolean = 0x00010000;
inline constexpr PLXUInt32 kPLXFieldType_Integer = 0x00020000;
inline constexpr PLXUInt32 kPLXFieldType_UInteger = 0x00030000;
inline constexpr PLXUInt32 kPLXFieldType_Float = 0x00040000;
inline constexpr PLXUInt32 kPLXFieldType_Number = 0x00050000;  // whole with up to 63 bits, or a double
inline constexpr PLXUInt32 kPLXFieldType_Text = 0x00060000;    // the size is advice; nothing is cut
inline constexpr PLXUInt32 kPLXFieldType_LongText = 0x00070000;
inline constexpr PLXUInt32 kPLXFieldAttribute_Indexed = 0x02000000;
inline constexpr PLXUInt32 kPLXFieldAttribute_Unique =
    0x04000000;  // a record that repeats a value is refused

// The record identifier: an integer field of every database, given by the server and never reused; the key of
// 'MRDl' and 'MMTR', not counted by 'MFCt'.
inline constexpr char kPLXRecordIDFieldName[] = "PLXIDFIELD";

// ---- Value types: each value travels with its type word and its size in bytes ----------------------------
inline constexpr PLXUInt32 kPLXValueType_Text = 0x20000000;      // length + 1 bytes
inline constexpr PLXUInt32 kPLXValueType_Unsigned = 0x30000000;  // 4 bytes; a boolean travels as 0 or 1
inline constexpr PLXUInt32 kPLXValueType_Signed = 0x40000000;    // 4 bytes
inline constexpr PLXUInt32 kPLXValueType_Double = 0x50000000;    // 8 bytes
