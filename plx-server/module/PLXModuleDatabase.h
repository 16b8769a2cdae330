#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "PLXModuleAPI.h"
#include "PLXModuleTrace.h"
#include "PLXRecordSession.h"

// What the server answers a database request with when it did not succeed; 'MDEI' has the sentence.
inline constexpr PLXUInt32 kPLXResult_DatabaseReference = PLXCode("DRef");  // closed, or never given
inline constexpr PLXUInt32 kPLXResult_DatabaseName = PLXCode("DNam");       // no name for a database or field
inline constexpr PLXUInt32 kPLXResult_DatabaseExists = PLXCode("DExs");  // a database or field of that name
inline constexpr PLXUInt32 kPLXResult_DatabaseNotFound =
    PLXCode("DNFd");  // no such database, field or record
inline constexpr PLXUInt32 kPLXResult_DatabaseValue =
    PLXCode("DVal");  // the field cannot hold it; no such type
inline constexpr PLXUInt32 kPLXResult_DatabaseNotUnique = PLXCode("DUnq");  // a unique value is there already
inline constexpr PLXUInt32 kPLXResult_DatabaseInUse =
    PLXCode("DUse");                                                  // open elsewhere, or busy for too long
inline constexpr PLXUInt32 kPLXResult_DatabaseEnd = PLXCode("DEnd");  // no record that way
inline constexpr PLXUInt32 kPLXResult_DatabaseSearch = PLXCode("DSrc");  // the expression does not parse
inline constexpr PLXUInt32 kPLXResult_DatabaseFile = PLXCode("DFil");    // a file to export to or import from
inline constexpr PLXUInt32 kPLXResult_DatabaseEngine =
    PLXCode("DEng");  // the engine refused: a full disk, a right
inline constexpr PLXUInt32 kPLXResult_DatabaseNotReachable = PLXCode("DNRc");  // the data source is down

// The database requests of one event. One thread; what the event opened is closed with it.
class PLXModuleDatabase {
 public:
  explicit PLXModuleDatabase(PLXRecordEngine& engine_i) : mySession(engine_i) {}

  // Answers one request. With an entry, adds to it what a trace tells: texts and numbers of both directions,
  // none that may be a password. Throws std::bad_alloc alone.
  PLXUInt32 Answer(PLXUInt32 code_i, void* const (&words_i)[6], PLXTraceEntry* entry_io);

 private:
  struct Call;
  struct Request;
  static Request const* FindRequest(PLXUInt32 code_i);
  PLXUInt32 Run(Request const& request_i, Call& call_io);
  static void Trace(Request const& request_i, Call const& call_i, PLXTraceEntry& entry_io);

  // The answers; each leaves its outputs in the call and throws PLXRecordError.
  void Initialize(Call& call_io);
  void Terminate(Call& call_io);
  void GetSupportFlags(Call& call_io);
  void GetCursorFlags(Call& call_io);
  void GetFieldType(Call& call_io);
  void GetFieldTypeByIndex(Call& call_io);
  void GetFieldTypeByName(Call& call_io);
  void GetFieldTypeCount(Call& call_io);
  void GetError(Call& call_io);

  void CreateDatabase(Call& call_io);
  void OpenDatabase(Call& call_io);
  void CloseDatabase(Call& call_io);
  void DeleteDatabase(Call& call_io);
  void GetDatabaseName(Call& call_io);
  void GetDatabaseNameByIndex(Call& call_io);
  void GetDatabaseCount(Call& call_io);
  void SetLocking(Call& call_io);

  void AddField(Call& call_io);
  void DeleteField(Call& call_io);
  void GetField(Call& call_io);
  void GetFieldByIndex(Call& call_io);
  void GetFieldCount(Call& call_io);

  void CreateRecord(Call& call_io);
  void AddRecord(Call& call_io);
  void UpdateRecord(Call& call_io);
  void DeleteRecord(Call& call_io);
  void DeleteAllRecords(Call& call_io);
  void SetValue(Call& call_io);
  void GetValue(Call& call_io);
  void GetRecordCount(Call& call_io);

  void Search(Call& call_io);
  void GetResultCount(Call& call_io);
  void ClearSearch(Call& call_io);
  void MoveFirst(Call& call_io);
  void MoveLast(Call& call_io);
  void MovePrevious(Call& call_io);
  void MoveNext(Call& call_io);
  void MoveTo(Call& call_io);
  void Jump(Call& call_io);

  void Export(Call& call_io);
  void Import(Call& call_io);

  PLXRecordSession mySession;
};
