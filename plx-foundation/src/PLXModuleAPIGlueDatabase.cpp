#include "PLXModuleAPIGlueDatabase.h"

#include "PLXHostCall.h"

namespace {

typedef _PLXAPI_ModuleProcessingInfo Info;

// Of a text value at the first try; most addresses and subjects fit.
constexpr PLXUInt32 ourValueCapacity = 64;

// A request of the database family, with the reference where it concerns one database.
class Call : public PLXHostCall {
 public:
  Call(Info const* info_i, PLXUInt32 code_i) noexcept : PLXHostCall(info_i, code_i, kDatabase) {}
  Call(Info const* info_i, PLXUInt32 code_i, PLXUInt32 database_i) noexcept : Call(info_i, code_i) {
    WordIn(database_i);
  }
};

template <typename T>
constexpr PLXUInt32 ourValueType = kPLXValueType_Unsigned;
template <>
constexpr PLXUInt32 ourValueType<PLXSInt32> = kPLXValueType_Signed;
template <>
constexpr PLXUInt32 ourValueType<double> = kPLXValueType_Double;

// A text of the database; empty on failure.
PLXString AskText(Info* info_i, PLXUInt32 code_i, PLXUInt32 database_i) {
  PLXString text;
  Call(info_i, code_i, database_i).Out().Ask(text);
  return text;
}

template <typename T>
PLXUInt32 SendValue(PLXHostCall& call_io, T value_i) {
  return call_io.Value(ourValueType<T>, &value_i, sizeof value_i).SendForResult();
}

// A text of any length goes over from where it lies: the slot has no const, but the server reads it only.
PLXUInt32 SendValue(PLXHostCall& call_io, PLXString const& value_i) {
  void* const text = const_cast<char*>(value_i.GetCStringAccess());
  return call_io.Value(kPLXValueType_Text, text, value_i.GetLength() + 1).SendForResult();
}

template <typename T>
PLXUInt32 SendKey(Info* info_i, PLXUInt32 code_i, PLXUInt32 database_i, T const& key_i) {
  Call call(info_i, code_i, database_i);
  return SendValue(call, key_i);
}

template <typename T>
PLXUInt32 SetValue(Info* info_i, PLXUInt32 database_i, PLXString const& field_i, T const& value_i) {
  return SendValue(Call(info_i, kPLXDatabase_SetFieldValue, database_i).In(field_i), value_i);
}

template <typename T>
T GetValue(Info* info_i, PLXUInt32 database_i, PLXString const& field_i) {
  T value{};
  Call call(info_i, kPLXDatabase_GetFieldValue, database_i);
  return call.In(field_i).Value(ourValueType<T>, &value, sizeof value).Send() ? value : T{};
}

PLXString GetTextValue(Info* info_i, PLXUInt32 database_i, PLXString const& field_i) {
  PLXString value;
  Call(info_i, kPLXDatabase_GetFieldValue, database_i)
      .In(field_i)
      .OutTextValue(ourValueCapacity)
      .Ask(value, 1);
  return value;
}

}  // namespace

PLXUInt32 RealType(PLXUInt32 type_i) noexcept {
  PLXUInt32 const type = type_i & kPLXFieldTypeMask;
  switch (type >> 16) {
    case 0x41:
    case 0x49:
    case 0x4A:
    case 0x4B:
    case 0x4C:
      return kPLXFieldType_Text;
    case 0x42:
    case 0x85:
      return kPLXFieldType_Number;
    case 0x43:
    case 0x46:
    case 0x47:
    case 0x48:
      return kPLXFieldType_Float;
    case 0x44:
    case 0x45:
    case 0x86:
      return kPLXFieldType_Integer;
    case 0x87:
      return kPLXFieldType_Boolean;
    case 0x81:
    case 0x82:
    case 0x83:
    case 0x84:
    case 0x88:
    case 0x89:
    case 0x8A:
      return kPLXFieldType_LongText;
    default:
      return type;
  }
}

// ---- Engine ----

PLXUInt32 PLXGlueDBInitialize(Info* info_i, PLXString const& source_i, PLXString const& user_i,
                              PLXString const& password_i) {
  PLXString const connection = source_i + "," + user_i + "," + password_i;
  return Call(info_i, kPLXDatabase_Initialize).In(connection).SendForResult();
}

PLXUInt32 PLXGlueDBTerminate(Info* info_i) { return Call(info_i, kPLXDatabase_Terminate).SendForResult(); }

PLXUInt32 PLXGlueDBGetODBCSupportFlags(Info* info_i) {
  return Call(info_i, kPLXDatabase_GetODBCSupportFlags).AskNumber();
}

PLXUInt32 PLXGlueDBGetODBCCursorFlags(Info* info_i) {
  return Call(info_i, kPLXDatabase_GetODBCCursorFlags).AskNumber();
}

PLXUInt32 PLXGlueDBGetODBCFieldTypeInfo(Info* info_i, PLXUInt32 type_i, PLXString& name_o,
                                        PLXUInt32& size_o) {
  return Call(info_i, kPLXDatabase_GetODBCFieldTypeInfo)
      .WordIn(type_i)
      .Out()
      .WordOut(size_o)
      .AskForResult(name_o);
}

PLXUInt32 PLXGlueDBGetODBCFieldTypeInfoByIndex(Info* info_i, PLXUInt32 index_i, PLXString& name_o,
                                               PLXUInt32& type_o) {
  return Call(info_i, kPLXDatabase_GetODBCFieldTypeInfoByIndex)
      .Out()
      .WordOut(type_o)
      .Word(index_i)
      .AskForResult(name_o);
}

PLXUInt32 PLXGlueDBGetODBCFieldTypeInfoByName(Info* info_i, PLXString const& name_i, PLXUInt32& type_o) {
  return Call(info_i, kPLXDatabase_GetODBCFieldTypeInfoByName).In(name_i).WordOut(type_o).SendForResult();
}

PLXUInt32 PLXGlueDBGetODBCFieldTypeCount(Info* info_i) {
  return Call(info_i, kPLXDatabase_GetODBCFieldTypeCount).AskNumber();
}

PLXString PLXGlueDBGetErrorInfo(Info* info_i, PLXUInt32 database_i) {
  return AskText(info_i, kPLXDatabase_GetErrorInfo, database_i);
}

// ---- Databases ----

PLXUInt32 PLXGlueDBCreateDatabase(Info* info_i, PLXString const& name_i) {
  return Call(info_i, kPLXDatabase_CreateDatabase).In(name_i).SendForResult();
}

PLXUInt32 PLXGlueDBOpenDatabase(Info* info_i, PLXString const& name_i, PLXUInt32 mode_i,
                                PLXUInt32& database_o, PLXString const& password_i) {
  return Call(info_i, kPLXDatabase_OpenDatabase)
      .In(name_i)
      .WordIn(mode_i)
      .WordOut(database_o)
      .In(password_i)
      .SendForResult();
}

PLXUInt32 PLXGlueDBCloseDatabase(Info* info_i, PLXUInt32 database_i) {
  return Call(info_i, kPLXDatabase_CloseDatabase, database_i).SendForResult();
}

PLXUInt32 PLXGlueDBDeleteDatabase(Info* info_i, PLXString const& name_i) {
  return Call(info_i, kPLXDatabase_DeleteDatabase).In(name_i).SendForResult();
}

PLXString PLXGlueDBGetDatabaseName(Info* info_i, PLXUInt32 database_i) {
  return AskText(info_i, kPLXDatabase_GetDatabaseName, database_i);
}

PLXUInt32 PLXGlueDBGetDatabaseNameByIndex(Info* info_i, PLXUInt32 index_i, PLXString& name_o) {
  return Call(info_i, kPLXDatabase_GetDatabaseNameByIndex).Out().Word(index_i).AskForResult(name_o);
}

PLXUInt32 PLXGlueDBGetDatabaseCount(Info* info_i) {
  return Call(info_i, kPLXDatabase_GetDatabaseCount).AskNumber();
}

PLXUInt32 PLXGlueDBSetLocking(Info* info_i, PLXUInt32 database_i, PLXUInt32 locking_i) {
  return Call(info_i, kPLXDatabase_SetLocking, database_i).WordIn(locking_i).SendForResult();
}

// ---- Fields ----

PLXUInt32 PLXGlueDBAddField(Info* info_i, PLXUInt32 database_i, PLXString const& field_i, PLXUInt32 type_i) {
  return Call(info_i, kPLXDatabase_AddField, database_i).In(field_i).WordIn(type_i).SendForResult();
}

PLXUInt32 PLXGlueDBAddBooleanField(Info* info_i, PLXUInt32 database_i, PLXString const& field_i) {
  return PLXGlueDBAddField(info_i, database_i, field_i, kPLXFieldType_Boolean);
}

PLXUInt32 PLXGlueDBAddIntegerField(Info* info_i, PLXUInt32 database_i, PLXString const& field_i) {
  return PLXGlueDBAddField(info_i, database_i, field_i, kPLXFieldType_Integer);
}

PLXUInt32 PLXGlueDBAddUIntegerField(Info* info_i, PLXUInt32 database_i, PLXString const& field_i) {
  return PLXGlueDBAddField(info_i, database_i, field_i, kPLXFieldType_UInteger);
}

PLXUInt32 PLXGlueDBAddFloatField(Info* info_i, PLXUInt32 database_i, PLXString const& field_i) {
  return PLXGlueDBAddField(info_i, database_i, field_i, kPLXFieldType_Float);
}

PLXUInt32 PLXGlueDBAddTextField(Info* info_i, PLXUInt32 database_i, PLXString const& field_i,
                                PLXUInt32 size_i) {
  return PLXGlueDBAddField(info_i, database_i, field_i, kPLXFieldType_Text | (size_i & kPLXFieldSizeMask));
}

PLXUInt32 PLXGlueDBAddLongTextField(Info* info_i, PLXUInt32 database_i, PLXString const& field_i) {
  return PLXGlueDBAddField(info_i, database_i, field_i, kPLXFieldType_LongText);
}

PLXUInt32 PLXGlueDBDeleteField(Info* info_i, PLXUInt32 database_i, PLXString const& field_i) {
  return Call(info_i, kPLXDatabase_DeleteField, database_i).In(field_i).SendForResult();
}

PLXUInt32 PLXGlueDBGetFieldInfo(Info* info_i, PLXUInt32 database_i, PLXString const& field_i,
                                PLXUInt32& type_o) {
  return Call(info_i, kPLXDatabase_GetFieldInfo, database_i).In(field_i).WordOut(type_o).SendForResult();
}

PLXUInt32 PLXGlueDBGetFieldInfo(Info* info_i, PLXUInt32 database_i, PLXUInt32 index_i, PLXString& field_o,
                                PLXUInt32& type_o) {
  return Call(info_i, kPLXDatabase_GetFieldInfoByIndex, database_i)
      .Out()
      .WordOut(type_o)
      .Word(index_i)
      .AskForResult(field_o);
}

PLXUInt32 PLXGlueDBGetFieldCount(Info* info_i, PLXUInt32 database_i) {
  return Call(info_i, kPLXDatabase_GetFieldCount, database_i).AskNumber();
}

// ---- Records ----

PLXUInt32 PLXGlueDBCreateRecord(Info* info_i, PLXUInt32 database_i) {
  return Call(info_i, kPLXDatabase_CreateRecord, database_i).SendForResult();
}

PLXUInt32 PLXGlueDBAddRecord(Info* info_i, PLXUInt32 database_i) {
  return Call(info_i, kPLXDatabase_AddRecord, database_i).SendForResult();
}

PLXUInt32 PLXGlueDBUpdateRecord(Info* info_i, PLXUInt32 database_i) {
  return Call(info_i, kPLXDatabase_UpdateRecord, database_i).SendForResult();
}

PLXUInt32 PLXGlueDBDeleteAllRecords(Info* info_i, PLXUInt32 database_i) {
  return Call(info_i, kPLXDatabase_DeleteAllRecords, database_i).SendForResult();
}

PLXUInt32 PLXGlueDBDeleteRecord(Info* info_i, PLXUInt32 database_i, PLXString const& key_i) {
  return SendKey(info_i, kPLXDatabase_DeleteRecord, database_i, key_i);
}

PLXUInt32 PLXGlueDBDeleteRecord(Info* info_i, PLXUInt32 database_i, PLXUInt32 key_i) {
  return SendKey(info_i, kPLXDatabase_DeleteRecord, database_i, key_i);
}

PLXUInt32 PLXGlueDBDeleteRecord(Info* info_i, PLXUInt32 database_i, PLXSInt32 key_i) {
  return SendKey(info_i, kPLXDatabase_DeleteRecord, database_i, key_i);
}

PLXUInt32 PLXGlueDBDeleteRecord(Info* info_i, PLXUInt32 database_i, double key_i) {
  return SendKey(info_i, kPLXDatabase_DeleteRecord, database_i, key_i);
}

PLXUInt32 PLXGlueDBGetRecordCount(Info* info_i, PLXUInt32 database_i) {
  return Call(info_i, kPLXDatabase_GetRecordCount, database_i).AskNumber();
}

// ---- Values of the current record ----

PLXUInt32 PLXGlueDBSetBooleanFieldValue(Info* info_i, PLXUInt32 database_i, PLXString const& field_i,
                                        bool value_i) {
  return SetValue(info_i, database_i, field_i, PLXUInt32{value_i});
}

PLXUInt32 PLXGlueDBSetIntegerFieldValue(Info* info_i, PLXUInt32 database_i, PLXString const& field_i,
                                        PLXSInt32 value_i) {
  return SetValue(info_i, database_i, field_i, value_i);
}

PLXUInt32 PLXGlueDBSetIntegerFieldValue(Info* info_i, PLXUInt32 database_i, PLXString const& field_i,
                                        double value_i) {
  return PLXGlueDBSetFloatFieldValue(info_i, database_i, field_i, value_i);
}

PLXUInt32 PLXGlueDBSetIntegerFieldValue(Info* info_i, PLXUInt32 database_i, PLXString const& field_i,
                                        PLXUInt32 value_i) {
  return PLXGlueDBSetUIntegerFieldValue(info_i, database_i, field_i, value_i);
}

PLXUInt32 PLXGlueDBSetIntegerFieldValue(Info* info_i, PLXUInt32 database_i, PLXString const& field_i,
                                        PLXNumber const& value_i) {
  return PLXGlueDBSetNumberFieldValue(info_i, database_i, field_i, value_i);
}

PLXUInt32 PLXGlueDBSetUIntegerFieldValue(Info* info_i, PLXUInt32 database_i, PLXString const& field_i,
                                         PLXUInt32 value_i) {
  return SetValue(info_i, database_i, field_i, value_i);
}

PLXUInt32 PLXGlueDBSetFloatFieldValue(Info* info_i, PLXUInt32 database_i, PLXString const& field_i,
                                      double value_i) {
  return SetValue(info_i, database_i, field_i, value_i);
}

PLXUInt32 PLXGlueDBSetNumberFieldValue(Info* info_i, PLXUInt32 database_i, PLXString const& field_i,
                                       PLXNumber const& value_i) {
  return SetValue(info_i, database_i, field_i, value_i.GetStringRepresentation());
}

PLXUInt32 PLXGlueDBSetTextFieldValue(Info* info_i, PLXUInt32 database_i, PLXString const& field_i,
                                     PLXString const& value_i) {
  return SetValue(info_i, database_i, field_i, value_i);
}

PLXUInt32 PLXGlueDBSetLongTextFieldValue(Info* info_i, PLXUInt32 database_i, PLXString const& field_i,
                                         PLXString const& value_i) {
  return SetValue(info_i, database_i, field_i, value_i);
}

bool PLXGlueDBGetBooleanFieldValue(Info* info_i, PLXUInt32 database_i, PLXString const& field_i) {
  return GetValue<PLXUInt32>(info_i, database_i, field_i) != 0;
}

PLXSInt32 PLXGlueDBGetIntegerFieldValue(Info* info_i, PLXUInt32 database_i, PLXString const& field_i) {
  return GetValue<PLXSInt32>(info_i, database_i, field_i);
}

PLXUInt32 PLXGlueDBGetUIntegerFieldValue(Info* info_i, PLXUInt32 database_i, PLXString const& field_i) {
  return GetValue<PLXUInt32>(info_i, database_i, field_i);
}

double PLXGlueDBGetFloatFieldValue(Info* info_i, PLXUInt32 database_i, PLXString const& field_i) {
  return GetValue<double>(info_i, database_i, field_i);
}

PLXNumber PLXGlueDBGetNumberFieldValue(Info* info_i, PLXUInt32 database_i, PLXString const& field_i) {
  return PLXNumber(GetValue<double>(info_i, database_i, field_i));
}

PLXString PLXGlueDBGetTextFieldValue(Info* info_i, PLXUInt32 database_i, PLXString const& field_i) {
  return GetTextValue(info_i, database_i, field_i);
}

PLXString PLXGlueDBGetLongTextFieldValue(Info* info_i, PLXUInt32 database_i, PLXString const& field_i) {
  return GetTextValue(info_i, database_i, field_i);
}

// ---- Searching and moving ----

PLXUInt32 PLXGlueDBExecuteSearch(Info* info_i, PLXUInt32 database_i, PLXString const& expression_i) {
  return Call(info_i, kPLXDatabase_ExecuteSearch, database_i).In(expression_i).SendForResult();
}

PLXUInt32 PLXGlueDBGetResultCount(Info* info_i, PLXUInt32 database_i) {
  return Call(info_i, kPLXDatabase_GetResultCount, database_i).AskNumber();
}

PLXUInt32 PLXGlueDBClearSearchResults(Info* info_i, PLXUInt32 database_i) {
  return Call(info_i, kPLXDatabase_ClearSearchResults, database_i).SendForResult();
}

PLXUInt32 PLXGlueDBMoveFirstRecord(Info* info_i, PLXUInt32 database_i) {
  return Call(info_i, kPLXDatabase_MoveFirstRecord, database_i).SendForResult();
}

PLXUInt32 PLXGlueDBMoveLastRecord(Info* info_i, PLXUInt32 database_i) {
  return Call(info_i, kPLXDatabase_MoveLastRecord, database_i).SendForResult();
}

PLXUInt32 PLXGlueDBMovePrevRecord(Info* info_i, PLXUInt32 database_i) {
  return Call(info_i, kPLXDatabase_MovePrevRecord, database_i).SendForResult();
}

PLXUInt32 PLXGlueDBMoveNextRecord(Info* info_i, PLXUInt32 database_i) {
  return Call(info_i, kPLXDatabase_MoveNextRecord, database_i).SendForResult();
}

PLXUInt32 PLXGlueDBMoveToRecord(Info* info_i, PLXUInt32 database_i, PLXString const& key_i) {
  return SendKey(info_i, kPLXDatabase_MoveToRecord, database_i, key_i);
}

PLXUInt32 PLXGlueDBMoveToRecord(Info* info_i, PLXUInt32 database_i, PLXUInt32 key_i) {
  return SendKey(info_i, kPLXDatabase_MoveToRecord, database_i, key_i);
}

PLXUInt32 PLXGlueDBMoveToRecord(Info* info_i, PLXUInt32 database_i, PLXSInt32 key_i) {
  return SendKey(info_i, kPLXDatabase_MoveToRecord, database_i, key_i);
}

PLXUInt32 PLXGlueDBMoveToRecord(Info* info_i, PLXUInt32 database_i, double key_i) {
  return SendKey(info_i, kPLXDatabase_MoveToRecord, database_i, key_i);
}

PLXUInt32 PLXGlueDBJump(Info* info_i, PLXUInt32 database_i, PLXSInt32 count_i) {
  return Call(info_i, kPLXDatabase_Jump, database_i).WordIn(static_cast<PLXUInt32>(count_i)).SendForResult();
}

// ---- Exchange ----

PLXUInt32 PLXGlueDBExport(Info* info_i, PLXUInt32 database_i, PLXString const& path_i, PLXUInt32& count_o,
                          PLXString const& options_i) {
  return Call(info_i, kPLXDatabase_Export, database_i)
      .In(path_i)
      .WordOut(count_o)
      .In(options_i)
      .SendForResult();
}

PLXUInt32 PLXGlueDBImport(Info* info_i, PLXUInt32 database_i, PLXString const& path_i, PLXUInt32& count_o) {
  return Call(info_i, kPLXDatabase_Import, database_i).In(path_i).WordOut(count_o).SendForResult();
}
