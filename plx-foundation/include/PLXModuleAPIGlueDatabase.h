#pragma once

#include "PLXModuleAPI.h"
#include "PLXNumber.h"
#include "PLXString.h"

// The record databases that the server lends to its modules, one function per request.
//
// A database is known by the reference that opening it gave; operations on values act on its current record.
// Each function takes the record of the event first and is called on that event's thread; none holds a state
// or reports anything itself. Unless it returns what it is named for, a function returns the server's result:
// 0 is success, and outputs then hold the answer; at any other they stay as they were, and
// PLXGlueDBGetErrorInfo tells people why. A text that does not fit is asked for once more with a larger
// buffer. A text returned is empty on failure, a count whatever the server left, which is 0 where it answers
// nothing. The constants of types, values and modes stand in PLXModuleAPI.h.

// The type of a field from the server's type word, without attributes and size: an engine's own code becomes
// the one of ours that its values have; a code that is none of these stays as it is.
PLXUInt32 RealType(PLXUInt32 type_i) noexcept;

// ---- Engine ----
// Opens the engine for an ODBC data source; an empty source is the server's own choice.
PLXUInt32 PLXGlueDBInitialize(_PLXAPI_ModuleProcessingInfo* info_i, PLXString const& source_i,
                              PLXString const& user_i, PLXString const& password_i);
PLXUInt32 PLXGlueDBTerminate(_PLXAPI_ModuleProcessingInfo* info_i);
PLXUInt32 PLXGlueDBGetODBCSupportFlags(_PLXAPI_ModuleProcessingInfo* info_i);
PLXUInt32 PLXGlueDBGetODBCCursorFlags(_PLXAPI_ModuleProcessingInfo* info_i);
PLXUInt32 PLXGlueDBGetODBCFieldTypeInfo(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 type_i,
                                        PLXString& name_o, PLXUInt32& size_o);
PLXUInt32 PLXGlueDBGetODBCFieldTypeInfoByIndex(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 index_i,
                                               PLXString& name_o, PLXUInt32& type_o);
PLXUInt32 PLXGlueDBGetODBCFieldTypeInfoByName(_PLXAPI_ModuleProcessingInfo* info_i, PLXString const& name_i,
                                              PLXUInt32& type_o);
PLXUInt32 PLXGlueDBGetODBCFieldTypeCount(_PLXAPI_ModuleProcessingInfo* info_i);
// What the server says of the last call that failed, for people.
PLXString PLXGlueDBGetErrorInfo(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i);

// ---- Databases ----
PLXUInt32 PLXGlueDBCreateDatabase(_PLXAPI_ModuleProcessingInfo* info_i, PLXString const& name_i);
// The mode is kPLXOpenMode_Shared or kPLXOpenMode_Exclusive. A database that does not exist is made, without
// fields.
PLXUInt32 PLXGlueDBOpenDatabase(_PLXAPI_ModuleProcessingInfo* info_i, PLXString const& name_i,
                                PLXUInt32 mode_i, PLXUInt32& database_o,
                                PLXString const& password_i = PLXString());
PLXUInt32 PLXGlueDBCloseDatabase(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i);
PLXUInt32 PLXGlueDBDeleteDatabase(_PLXAPI_ModuleProcessingInfo* info_i, PLXString const& name_i);
PLXString PLXGlueDBGetDatabaseName(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i);
PLXUInt32 PLXGlueDBGetDatabaseNameByIndex(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 index_i,
                                          PLXString& name_o);
PLXUInt32 PLXGlueDBGetDatabaseCount(_PLXAPI_ModuleProcessingInfo* info_i);
PLXUInt32 PLXGlueDBSetLocking(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i,
                              PLXUInt32 locking_i);

// ---- Fields ----
// The type word holds a type, a size for a text, and kPLXFieldAttribute_... bits; the others add a field
// without attributes.
PLXUInt32 PLXGlueDBAddField(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i,
                            PLXString const& field_i, PLXUInt32 type_i);
PLXUInt32 PLXGlueDBAddBooleanField(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i,
                                   PLXString const& field_i);
PLXUInt32 PLXGlueDBAddIntegerField(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i,
                                   PLXString const& field_i);
PLXUInt32 PLXGlueDBAddUIntegerField(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i,
                                    PLXString const& field_i);
PLXUInt32 PLXGlueDBAddFloatField(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i,
                                 PLXString const& field_i);
PLXUInt32 PLXGlueDBAddTextField(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i,
                                PLXString const& field_i, PLXUInt32 size_i);
PLXUInt32 PLXGlueDBAddLongTextField(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i,
                                    PLXString const& field_i);
PLXUInt32 PLXGlueDBDeleteField(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i,
                               PLXString const& field_i);
// The type word as the server has it; RealType makes a type of it.
PLXUInt32 PLXGlueDBGetFieldInfo(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i,
                                PLXString const& field_i, PLXUInt32& type_o);
PLXUInt32 PLXGlueDBGetFieldInfo(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i, PLXUInt32 index_i,
                                PLXString& field_o, PLXUInt32& type_o);
PLXUInt32 PLXGlueDBGetFieldCount(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i);

// ---- Records ----
// Starts a new record, which the setters fill and PLXGlueDBAddRecord saves.
PLXUInt32 PLXGlueDBCreateRecord(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i);
PLXUInt32 PLXGlueDBAddRecord(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i);
// Saves what the setters changed in the current record.
PLXUInt32 PLXGlueDBUpdateRecord(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i);
PLXUInt32 PLXGlueDBDeleteAllRecords(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i);
// The key is the record's kPLXRecordIDFieldName.
PLXUInt32 PLXGlueDBDeleteRecord(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i,
                                PLXString const& key_i);
PLXUInt32 PLXGlueDBDeleteRecord(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i, PLXUInt32 key_i);
PLXUInt32 PLXGlueDBDeleteRecord(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i, PLXSInt32 key_i);
PLXUInt32 PLXGlueDBDeleteRecord(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i, double key_i);
PLXUInt32 PLXGlueDBGetRecordCount(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i);

// ---- Values of the current record ----
// A boolean travels as the unsigned number 0 or 1.
PLXUInt32 PLXGlueDBSetBooleanFieldValue(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i,
                                        PLXString const& field_i, bool value_i);
PLXUInt32 PLXGlueDBSetIntegerFieldValue(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i,
                                        PLXString const& field_i, PLXSInt32 value_i);
// The same as the setters of floats, unsigned numbers and numbers.
PLXUInt32 PLXGlueDBSetIntegerFieldValue(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i,
                                        PLXString const& field_i, double value_i);
PLXUInt32 PLXGlueDBSetIntegerFieldValue(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i,
                                        PLXString const& field_i, PLXUInt32 value_i);
PLXUInt32 PLXGlueDBSetIntegerFieldValue(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i,
                                        PLXString const& field_i, PLXNumber const& value_i);
PLXUInt32 PLXGlueDBSetUIntegerFieldValue(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i,
                                         PLXString const& field_i, PLXUInt32 value_i);
PLXUInt32 PLXGlueDBSetFloatFieldValue(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i,
                                      PLXString const& field_i, double value_i);
// A number travels as its text, so that no digit is lost on the way; null is the empty text.
PLXUInt32 PLXGlueDBSetNumberFieldValue(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i,
                                       PLXString const& field_i, PLXNumber const& value_i);
// Texts are passed over where they lie, without a copy.
PLXUInt32 PLXGlueDBSetTextFieldValue(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i,
                                     PLXString const& field_i, PLXString const& value_i);
PLXUInt32 PLXGlueDBSetLongTextFieldValue(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i,
                                         PLXString const& field_i, PLXString const& value_i);
// False, 0 or empty when the call fails, which is not told from a field that holds just that.
bool PLXGlueDBGetBooleanFieldValue(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i,
                                   PLXString const& field_i);
PLXSInt32 PLXGlueDBGetIntegerFieldValue(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i,
                                        PLXString const& field_i);
PLXUInt32 PLXGlueDBGetUIntegerFieldValue(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i,
                                         PLXString const& field_i);
double PLXGlueDBGetFloatFieldValue(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i,
                                   PLXString const& field_i);
// Read back through a double: exact to 15 digits.
PLXNumber PLXGlueDBGetNumberFieldValue(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i,
                                       PLXString const& field_i);
PLXString PLXGlueDBGetTextFieldValue(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i,
                                     PLXString const& field_i);
PLXString PLXGlueDBGetLongTextFieldValue(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i,
                                         PLXString const& field_i);

// ---- Searching and moving ----
// Makes the found set and stands on its first record.
PLXUInt32 PLXGlueDBExecuteSearch(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i,
                                 PLXString const& expression_i);
PLXUInt32 PLXGlueDBGetResultCount(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i);
// All records are the found set again.
PLXUInt32 PLXGlueDBClearSearchResults(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i);
// Each answers non-zero, and stays where it is, at either end of the found set.
PLXUInt32 PLXGlueDBMoveFirstRecord(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i);
PLXUInt32 PLXGlueDBMoveLastRecord(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i);
PLXUInt32 PLXGlueDBMovePrevRecord(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i);
PLXUInt32 PLXGlueDBMoveNextRecord(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i);
PLXUInt32 PLXGlueDBMoveToRecord(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i,
                                PLXString const& key_i);
PLXUInt32 PLXGlueDBMoveToRecord(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i, PLXUInt32 key_i);
PLXUInt32 PLXGlueDBMoveToRecord(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i, PLXSInt32 key_i);
PLXUInt32 PLXGlueDBMoveToRecord(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i, double key_i);
// So many records on, or back when negative.
PLXUInt32 PLXGlueDBJump(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i, PLXSInt32 count_i);

// ---- Exchange ----
// Tell how many records were written, or read.
PLXUInt32 PLXGlueDBExport(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i, PLXString const& path_i,
                          PLXUInt32& count_o, PLXString const& options_i);
PLXUInt32 PLXGlueDBImport(_PLXAPI_ModuleProcessingInfo* info_i, PLXUInt32 database_i, PLXString const& path_i,
                          PLXUInt32& count_o);
