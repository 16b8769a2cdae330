#include "PLXModuleDatabase.h"

#include <algorithm>
#include <array>
#include <limits>

#include "PLXASCII.h"
#include "PLXCodeText.h"
#include "PLXLog.h"
#include "PLXModuleConnection.h"
#include "PLXModuleWords.h"

// As with the support requests, each request is a row of a table that says which words it takes; they are
// checked and read before its answer runs and written after it.

namespace {

using Kind = PLXRecordError::Kind;

PLXUInt32 ResultOf(Kind kind_i) {
  switch (kind_i) {
    case Kind::kReference:
      return kPLXResult_DatabaseReference;
    case Kind::kName:
      return kPLXResult_DatabaseName;
    case Kind::kExists:
      return kPLXResult_DatabaseExists;
    case Kind::kNotFound:
      return kPLXResult_DatabaseNotFound;
    case Kind::kValue:
      return kPLXResult_DatabaseValue;
    case Kind::kNotUnique:
      return kPLXResult_DatabaseNotUnique;
    case Kind::kInUse:
      return kPLXResult_DatabaseInUse;
    case Kind::kEnd:
      return kPLXResult_DatabaseEnd;
    case Kind::kSearch:
      return kPLXResult_DatabaseSearch;
    case Kind::kFile:
      return kPLXResult_DatabaseFile;
    case Kind::kEngine:
      return kPLXResult_DatabaseEngine;
    case Kind::kNotReachable:
      return kPLXResult_DatabaseNotReachable;
  }
  return kPLXResult_GeneralError;
}

PLXUInt32 CountWord(std::uint64_t count_i) {
  return static_cast<PLXUInt32>(std::min<std::uint64_t>(count_i, std::numeric_limits<PLXUInt32>::max()));
}

// The field types that there are, as a module may list them.
struct FieldType {
  std::string_view name;
  PLXUInt32 word;
  PLXUInt32 size;  // of a value in bytes; of a text the largest that a type word can advise
};
constexpr FieldType kFieldTypes[] = {{"boolean", kPLXFieldType_Boolean, 4},
                                     {"integer", kPLXFieldType_Integer, 4},
                                     {"unsigned integer", kPLXFieldType_UInteger, 4},
                                     {"float", kPLXFieldType_Float, 8},
                                     {"number", kPLXFieldType_Number, 8},
                                     {"text", kPLXFieldType_Text, 0xFFFF},
                                     {"long text", kPLXFieldType_LongText, 0xFFFFFFFF}};

FieldType const& TypeAt(std::size_t index_i) {
  if (index_i < std::size(kFieldTypes)) return kFieldTypes[index_i];
  throw PLXRecordError(Kind::kNotFound, "There is no such field type.");
}

// A value of the words type, size and address. Texts are terminated, numbers have the size of their type. A
// text may be what strangers sent, in a form or a mail, and no database keeps zero bytes: they become blanks,
// or a message would be lost for one. `kept_o` holds such a text.
PLXRecordValue ReadValue(void const* bytes_i, PLXUInt32 type_i, PLXUInt32 size_i, std::string& kept_o) {
  auto const* const text = static_cast<char const*>(bytes_i);
  if (type_i == kPLXValueType_Text) {
    if (text != nullptr && size_i > 0 && text[size_i - 1] == '\0') {
      std::string_view const value(text, size_i - 1);
      if (value.find('\0') == value.npos) return value;
      kept_o = value;
      std::replace(kept_o.begin(), kept_o.end(), '\0', ' ');
      return std::string_view(kept_o);
    }
  } else if (bytes_i != nullptr && type_i == kPLXValueType_Unsigned && size_i == sizeof(PLXUInt32)) {
    return std::int64_t{LoadWord(bytes_i)};
  } else if (bytes_i != nullptr && type_i == kPLXValueType_Signed && size_i == sizeof(PLXSInt32)) {
    return std::int64_t{static_cast<PLXSInt32>(LoadWord(bytes_i))};
  } else if (bytes_i != nullptr && type_i == kPLXValueType_Double && size_i == sizeof(double)) {
    double number;
    std::memcpy(&number, bytes_i, sizeof number);
    return number;
  }
  throw PLXRecordError(Kind::kValue, "No value of a known type: type " + std::to_string(type_i) + ", " +
                                         std::to_string(size_i) + " bytes.");
}

std::int64_t KeyOf(PLXRecordValue const& value_i) {
  std::int64_t key = 0;
  bool isKey = false;
  if (auto const* const text = std::get_if<std::string_view>(&value_i)) {
    isKey = PLXRecordInteger(std::string(*text), key);
  } else if (auto const* const number = std::get_if<double>(&value_i)) {
    isKey = PLXRecordInteger(*number, key);
  } else {
    key = std::get<std::int64_t>(value_i);
    isKey = true;
  }
  if (isKey) return key;
  throw PLXRecordError(Kind::kValue, "The key of a record is a whole number.");
}

template <typename Number>
std::string BytesOf(Number number_i) {
  std::string bytes(sizeof number_i, '\0');
  std::memcpy(bytes.data(), &number_i, sizeof number_i);
  return bytes;
}

// A field's value in the type that the module wants, as the bytes of it.
std::string WantedValue(PLXSQLValue const& value_i, PLXUInt32 type_i) {
  if (type_i == kPLXValueType_Text) return PLXRecordText(value_i);
  double number = 0;
  if (type_i == kPLXValueType_Double && PLXRecordDouble(value_i, number)) return BytesOf(number);
  std::int64_t integer = 0;
  bool const isInteger = PLXRecordInteger(value_i, integer);
  if (type_i == kPLXValueType_Unsigned && isInteger && std::in_range<PLXUInt32>(integer)) {
    return BytesOf(static_cast<PLXUInt32>(integer));
  }
  if (type_i == kPLXValueType_Signed && isInteger && std::in_range<PLXSInt32>(integer)) {
    return BytesOf(static_cast<PLXSInt32>(integer));
  }
  throw PLXRecordError(Kind::kValue,
                       "The field's value is not of the type that is wanted, or beyond its range.");
}

bool IsSecret(std::string_view name_i) {
  for (std::size_t offset = 0; offset < name_i.size(); ++offset) {
    if (BeginsIgnoringCase(name_i.substr(offset), "passw")) return true;
  }
  return false;
}

}  // namespace

// One request while it is answered.
struct PLXModuleDatabase::Call {
  PLXUInt32 reference = 0;
  std::string_view in[2];
  PLXUInt32 word = 0;     // the type, mode, locking word or count that came in
  PLXUInt32 number = 0;   // &i in, &n out
  PLXUInt32 outWord = 0;  // the type, reference, size or count that goes out
  // A value from the module.
  void const* bytes = nullptr;
  PLXUInt32 type = 0;
  PLXUInt32 size = 0;
  // A text or value for the module: in `kept`, or a view of what outlives the call.
  std::string kept;
  std::string_view out;

  PLXOutText outText;
  void* outWordAddress = nullptr;
  void* numberAddress = nullptr;

  PLXRecordValue Value() { return ReadValue(bytes, type, size, kept); }
  void Answer(std::string text_i) {
    kept = std::move(text_i);
    out = kept;
  }
  bool Read(char const* slots_i, void* const (&words_i)[6]);
  bool ReadItem(char slot_i, void* const* words_i, unsigned& ins_io);
};

// What a request takes, a letter for each item in slot order:
//   r  the address of a reference
//   i  in s
//   o  out s
//   w  the address of a number from the module
//   W  the address of a number for the module
//   v  a value: its address, and those of its type and size
//   u  a value for the module: its buffer, and the addresses of the type wanted and of the buffer's capacity
//   x  &i, last slot
//   n  &n, last slot
struct PLXModuleDatabase::Request {
  PLXUInt32 code;
  char const* name;
  char const* slots;
  void (PLXModuleDatabase::*answer)(Call&);
};

bool PLXModuleDatabase::Call::ReadItem(char slot_i, void* const* words_i, unsigned& ins_io) {
  switch (slot_i) {
    case 'i':
      return words_i[1] != nullptr &&
             ReadInText(static_cast<char const*>(words_i[0]), LoadWord(words_i[1]), true, in[ins_io++]);
    case 'o':
      return outText.Read(words_i[0], words_i[1]);
    case 'v':
      if (words_i[1] == nullptr || words_i[2] == nullptr) return false;
      bytes = words_i[0];
      type = LoadWord(words_i[1]);
      size = LoadWord(words_i[2]);
      return true;
    case 'u':
      if (words_i[1] == nullptr) return false;
      type = LoadWord(words_i[1]);
      return outText.Read(words_i[0], words_i[2]);
    default:
      break;
  }
  if (words_i[0] == nullptr) return false;
  if (slot_i == 'r') reference = LoadWord(words_i[0]);
  if (slot_i == 'w') word = LoadWord(words_i[0]);
  if (slot_i == 'W') outWordAddress = words_i[0];
  if (slot_i == 'x') number = LoadWord(words_i[0]);
  if (slot_i == 'n') numberAddress = words_i[0];
  return true;
}

bool PLXModuleDatabase::Call::Read(char const* slots_i, void* const (&words_i)[6]) {
  unsigned next = 0;
  unsigned ins = 0;
  for (char const* slot = slots_i; *slot != '\0'; ++slot) {
    bool const isLast = *slot == 'x' || *slot == 'n';
    if (!ReadItem(*slot, words_i + (isLast ? 5 : next), ins)) return false;
    bool const isText = *slot == 'i' || *slot == 'o';
    next += isText ? 2 : (*slot == 'v' || *slot == 'u' ? 3 : 1);
  }
  return true;
}

PLXModuleDatabase::Request const* PLXModuleDatabase::FindRequest(PLXUInt32 code_i) {
  using D = PLXModuleDatabase;
  using R = Request;
  static constexpr auto ourRequests = [] {
    std::array requests{
        R{kPLXDatabase_Initialize, "Initialize", "i", &D::Initialize},
        R{kPLXDatabase_Terminate, "Terminate", "", &D::Terminate},
        R{kPLXDatabase_GetODBCSupportFlags, "GetODBCSupportFlags", "n", &D::GetSupportFlags},
        R{kPLXDatabase_GetODBCCursorFlags, "GetODBCCursorFlags", "n", &D::GetCursorFlags},
        R{kPLXDatabase_GetODBCFieldTypeInfo, "GetODBCFieldTypeInfo", "woW", &D::GetFieldType},
        R{kPLXDatabase_GetODBCFieldTypeInfoByIndex, "GetODBCFieldTypeInfoByIndex", "oWx",
          &D::GetFieldTypeByIndex},
        R{kPLXDatabase_GetODBCFieldTypeInfoByName, "GetODBCFieldTypeInfoByName", "iW",
          &D::GetFieldTypeByName},
        R{kPLXDatabase_GetODBCFieldTypeCount, "GetODBCFieldTypeCount", "n", &D::GetFieldTypeCount},
        R{kPLXDatabase_GetErrorInfo, "GetErrorInfo", "ro", &D::GetError},

        R{kPLXDatabase_CreateDatabase, "CreateDatabase", "i", &D::CreateDatabase},
        R{kPLXDatabase_OpenDatabase, "OpenDatabase", "iwWi", &D::OpenDatabase},
        R{kPLXDatabase_CloseDatabase, "CloseDatabase", "r", &D::CloseDatabase},
        R{kPLXDatabase_DeleteDatabase, "DeleteDatabase", "i", &D::DeleteDatabase},
        R{kPLXDatabase_GetDatabaseName, "GetDatabaseName", "ro", &D::GetDatabaseName},
        R{kPLXDatabase_GetDatabaseNameByIndex, "GetDatabaseNameByIndex", "ox", &D::GetDatabaseNameByIndex},
        R{kPLXDatabase_GetDatabaseCount, "GetDatabaseCount", "n", &D::GetDatabaseCount},
        R{kPLXDatabase_SetLocking, "SetLocking", "rw", &D::SetLocking},

        R{kPLXDatabase_AddField, "AddField", "riw", &D::AddField},
        R{kPLXDatabase_DeleteField, "DeleteField", "ri", &D::DeleteField},
        R{kPLXDatabase_GetFieldInfo, "GetFieldInfo", "riW", &D::GetField},
        R{kPLXDatabase_GetFieldInfoByIndex, "GetFieldInfoByIndex", "roWx", &D::GetFieldByIndex},
        R{kPLXDatabase_GetFieldCount, "GetFieldCount", "rn", &D::GetFieldCount},

        R{kPLXDatabase_CreateRecord, "CreateRecord", "r", &D::CreateRecord},
        R{kPLXDatabase_AddRecord, "AddRecord", "r", &D::AddRecord},
        R{kPLXDatabase_UpdateRecord, "UpdateRecord", "r", &D::UpdateRecord},
        R{kPLXDatabase_DeleteRecord, "DeleteRecord", "rv", &D::DeleteRecord},
        R{kPLXDatabase_DeleteAllRecords, "DeleteAllRecords", "r", &D::DeleteAllRecords},
        R{kPLXDatabase_SetFieldValue, "SetFieldValue", "riv", &D::SetValue},
        R{kPLXDatabase_GetFieldValue, "GetFieldValue", "riu", &D::GetValue},
        R{kPLXDatabase_GetRecordCount, "GetRecordCount", "rn", &D::GetRecordCount},

        R{kPLXDatabase_ExecuteSearch, "ExecuteSearch", "ri", &D::Search},
        R{kPLXDatabase_GetResultCount, "GetResultCount", "rn", &D::GetResultCount},
        R{kPLXDatabase_ClearSearchResults, "ClearSearchResults", "r", &D::ClearSearch},
        R{kPLXDatabase_MoveFirstRecord, "MoveFirstRecord", "r", &D::MoveFirst},
        R{kPLXDatabase_MoveLastRecord, "MoveLastRecord", "r", &D::MoveLast},
        R{kPLXDatabase_MovePrevRecord, "MovePrevRecord", "r", &D::MovePrevious},
        R{kPLXDatabase_MoveNextRecord, "MoveNextRecord", "r", &D::MoveNext},
        R{kPLXDatabase_MoveToRecord, "MoveToRecord", "rv", &D::MoveTo},
        R{kPLXDatabase_Jump, "Jump", "rw", &D::Jump},

        R{kPLXDatabase_Export, "Export", "riWi", &D::Export},
        R{kPLXDatabase_Import, "Import", "riW", &D::Import},
    };
    std::sort(requests.begin(), requests.end(), [](R const& a, R const& b) { return a.code < b.code; });
    return requests;
  }();
  auto const found = std::lower_bound(ourRequests.begin(), ourRequests.end(), code_i,
                                      [](R const& request, PLXUInt32 code) { return request.code < code; });
  return found != ourRequests.end() && found->code == code_i ? &*found : nullptr;
}

PLXUInt32 PLXModuleDatabase::Run(Request const& request_i, Call& call_io) {
  try {
    (this->*request_i.answer)(call_io);
  } catch (PLXRecordError const& error) {
    mySession.SetError(call_io.reference, error.what());
    PLXUInt32 const result = ResultOf(error.GetKind());
    // A full disk concerns whoever runs the server; modules may keep it to themselves.
    if (result == kPLXResult_DatabaseEngine) PLXLog::Error(std::string("Record databases: ") + error.what());
    return result;
  } catch (PLXSQLError const& error) {
    mySession.SetError(call_io.reference, error.what());
    PLXLog::Error(std::string("Record databases: ") + error.what());
    return kPLXResult_DatabaseEngine;
  }
  if (call_io.outText.size == nullptr) return kPLXResult_Success;
  if (call_io.out.size() >= 0xFFFFFFFF) return kPLXResult_GeneralError;
  return call_io.outText.IsTooSmall(call_io.out) ? kPLXResult_BufferTooSmall : kPLXResult_Success;
}

PLXUInt32 PLXModuleDatabase::Answer(PLXUInt32 code_i, void* const (&words_i)[6], PLXTraceEntry* entry_io) {
  Request const* const request = FindRequest(code_i);
  Call call;
  PLXUInt32 result = request != nullptr ? kPLXResult_InvalidCall : kPLXResult_UnknownRequest;
  if (request != nullptr && call.Read(request->slots, words_i)) {
    result = Run(*request, call);
  } else if (request != nullptr) {
    mySession.SetError(0, "The call breaks the conventions of " + PLXCodeText(code_i) +
                              ": an address is missing, or a text is not as long as it says.");
  }
  if (entry_io != nullptr && request != nullptr) {
    entry_io->result = PLXCodeText(result);
    Trace(*request, call, *entry_io);
  }
  if (result == kPLXResult_BufferTooSmall) call.outText.WriteNeed(call.out);
  if (result != kPLXResult_Success) return result;
  if (call.outText.size != nullptr) call.outText.Write(call.out);
  if (call.outWordAddress != nullptr) StoreWord(call.outWordAddress, call.outWord);
  if (call.numberAddress != nullptr) StoreWord(call.numberAddress, call.number);
  return result;
}

void PLXModuleDatabase::Trace(Request const& request_i, Call const& call_i, PLXTraceEntry& entry_io) {
  entry_io.name = request_i.name;
  auto& arguments = entry_io.arguments;
  auto& answers = entry_io.answers;
  if (request_i.code == kPLXDatabase_Initialize) {
    PLXTraceEntry::AddText(arguments, call_i.in[0].substr(0, call_i.in[0].find(',')));
    return;
  }
  std::string_view const slots = request_i.slots;
  bool const isSecret = IsSecret(call_i.in[0]);
  if (slots.starts_with('r')) PLXTraceEntry::AddNumber(arguments, call_i.reference);
  if (!call_i.in[0].empty()) PLXTraceEntry::AddText(arguments, call_i.in[0]);
  if (slots.find('w') != slots.npos) PLXTraceEntry::AddNumber(arguments, call_i.word);
  if (slots.find('x') != slots.npos) PLXTraceEntry::AddNumber(arguments, call_i.number);
  bool const isText = slots.ends_with('v') && call_i.type == kPLXValueType_Text && call_i.bytes != nullptr;
  std::string_view text;
  if (isText && ReadInText(static_cast<char const*>(call_i.bytes), call_i.size, true, text)) {
    PLXTraceEntry::AddText(arguments, isSecret ? "(blanked)" : text);
  }
  bool const isGood = entry_io.result == PLXCodeText(kPLXResult_Success);
  if (call_i.outText.size != nullptr && isGood) {
    bool const isWanted = slots.ends_with('u');
    if (!isWanted) PLXTraceEntry::AddText(answers, call_i.out);
    if (isWanted && call_i.type == kPLXValueType_Text) {
      PLXTraceEntry::AddText(answers, isSecret ? "(blanked)" : call_i.out);
    }
  }
  if (call_i.numberAddress != nullptr) PLXTraceEntry::AddNumber(answers, call_i.number);
  if (call_i.outWordAddress != nullptr) PLXTraceEntry::AddNumber(answers, call_i.outWord);
}

// ---- Engine

void PLXModuleDatabase::Initialize(Call& call_io) { mySession.Initialize(call_io.in[0]); }

void PLXModuleDatabase::Terminate(Call&) { mySession.Terminate(); }

void PLXModuleDatabase::GetSupportFlags(Call& call_io) {
  call_io.number = mySession.Store().GetDialect() == PLXSQLDialect::kSQLite ? 0 : 1;  // 1: through ODBC
}

void PLXModuleDatabase::GetCursorFlags(Call& call_io) { call_io.number = 3; }  // 1 forward, 2 backward

void PLXModuleDatabase::GetFieldType(Call& call_io) {
  for (FieldType const& type : kFieldTypes) {
    if (type.word != (call_io.word & kPLXFieldTypeMask)) continue;
    call_io.out = type.name;
    call_io.outWord = type.size;
    return;
  }
  TypeAt(std::size(kFieldTypes));
}

void PLXModuleDatabase::GetFieldTypeByIndex(Call& call_io) {
  FieldType const& type = TypeAt(call_io.number);
  call_io.out = type.name;
  call_io.outWord = type.word;
}

void PLXModuleDatabase::GetFieldTypeByName(Call& call_io) {
  auto const* const found =
      std::find_if(std::begin(kFieldTypes), std::end(kFieldTypes),
                   [&](FieldType const& type) { return EqualIgnoringCase(type.name, call_io.in[0]); });
  call_io.outWord = TypeAt(static_cast<std::size_t>(found - kFieldTypes)).word;
}

void PLXModuleDatabase::GetFieldTypeCount(Call& call_io) {
  call_io.number = static_cast<PLXUInt32>(std::size(kFieldTypes));
}

void PLXModuleDatabase::GetError(Call& call_io) { call_io.Answer(mySession.Error(call_io.reference)); }

// ---- Databases

void PLXModuleDatabase::CreateDatabase(Call& call_io) { mySession.Store().Create(call_io.in[0]); }

void PLXModuleDatabase::OpenDatabase(Call& call_io) {
  if (call_io.word != kPLXOpenMode_Shared && call_io.word != kPLXOpenMode_Exclusive) {
    throw PLXRecordError(Kind::kValue, "A database is opened with mode 2 (shared) or 3 (exclusive), not " +
                                           std::to_string(call_io.word) + ".");
  }
  call_io.outWord = mySession.Open(call_io.in[0], static_cast<PLXRecordAccess>(call_io.word));
}

void PLXModuleDatabase::CloseDatabase(Call& call_io) { mySession.Close(call_io.reference); }

void PLXModuleDatabase::DeleteDatabase(Call& call_io) { mySession.Store().Delete(call_io.in[0]); }

void PLXModuleDatabase::GetDatabaseName(Call& call_io) {
  call_io.out = mySession.Find(call_io.reference).Name();
}

void PLXModuleDatabase::GetDatabaseNameByIndex(Call& call_io) {
  std::vector<std::string> names = mySession.Store().Names();
  if (call_io.number >= names.size()) {
    throw PLXRecordError(Kind::kNotFound, "There are " + std::to_string(names.size()) + " databases.");
  }
  call_io.Answer(std::move(names[call_io.number]));
}

void PLXModuleDatabase::GetDatabaseCount(Call& call_io) {
  call_io.number = CountWord(mySession.Store().Names().size());
}

// Every operation is a transaction of its own whatever the word says, so there is nothing that it would
// change.
void PLXModuleDatabase::SetLocking(Call& call_io) { mySession.Find(call_io.reference); }

// ---- Fields

void PLXModuleDatabase::AddField(Call& call_io) {
  mySession.Find(call_io.reference).AddField(call_io.in[0], call_io.word);
}

void PLXModuleDatabase::DeleteField(Call& call_io) {
  mySession.Find(call_io.reference).DeleteField(call_io.in[0]);
}

void PLXModuleDatabase::GetField(Call& call_io) {
  call_io.outWord = mySession.Find(call_io.reference).Field(call_io.in[0]).word;
}

void PLXModuleDatabase::GetFieldByIndex(Call& call_io) {
  auto const& fields = mySession.Find(call_io.reference).Fields();
  if (call_io.number >= fields.size()) {
    throw PLXRecordError(Kind::kNotFound, "The database has " + std::to_string(fields.size()) + " fields.");
  }
  call_io.out = fields[call_io.number].name;
  call_io.outWord = fields[call_io.number].word;
}

void PLXModuleDatabase::GetFieldCount(Call& call_io) {
  call_io.number = CountWord(mySession.Find(call_io.reference).Fields().size());
}

// ---- Records and values

void PLXModuleDatabase::CreateRecord(Call& call_io) { mySession.Find(call_io.reference).NewRecord(); }

void PLXModuleDatabase::AddRecord(Call& call_io) { mySession.Find(call_io.reference).Add(); }

void PLXModuleDatabase::UpdateRecord(Call& call_io) { mySession.Find(call_io.reference).Update(); }

void PLXModuleDatabase::DeleteRecord(Call& call_io) {
  mySession.Find(call_io.reference).Delete(KeyOf(call_io.Value()));
}

void PLXModuleDatabase::DeleteAllRecords(Call& call_io) { mySession.Find(call_io.reference).DeleteAll(); }

void PLXModuleDatabase::SetValue(Call& call_io) {
  mySession.Find(call_io.reference).Set(call_io.in[0], call_io.Value());
}

void PLXModuleDatabase::GetValue(Call& call_io) {
  PLXSQLValue const& value = mySession.Find(call_io.reference).Get(call_io.in[0]);
  // A text may be large: the record keeps it until the next call.
  auto const* const text = std::get_if<std::string>(&value);
  if (text != nullptr && call_io.type == kPLXValueType_Text) {
    call_io.out = *text;
  } else {
    call_io.Answer(WantedValue(value, call_io.type));
  }
}

void PLXModuleDatabase::GetRecordCount(Call& call_io) {
  call_io.number = CountWord(mySession.Find(call_io.reference).RecordCount());
}

// ---- Searching and moving

void PLXModuleDatabase::Search(Call& call_io) { mySession.Find(call_io.reference).Search(call_io.in[0]); }

void PLXModuleDatabase::GetResultCount(Call& call_io) {
  call_io.number = CountWord(mySession.Find(call_io.reference).ResultCount());
}

void PLXModuleDatabase::ClearSearch(Call& call_io) { mySession.Find(call_io.reference).ClearSearch(); }

void PLXModuleDatabase::MoveFirst(Call& call_io) { mySession.Find(call_io.reference).MoveFirst(); }

void PLXModuleDatabase::MoveLast(Call& call_io) { mySession.Find(call_io.reference).MoveLast(); }

void PLXModuleDatabase::MovePrevious(Call& call_io) { mySession.Find(call_io.reference).MovePrevious(); }

void PLXModuleDatabase::MoveNext(Call& call_io) { mySession.Find(call_io.reference).MoveNext(); }

void PLXModuleDatabase::MoveTo(Call& call_io) {
  mySession.Find(call_io.reference).MoveTo(KeyOf(call_io.Value()));
}

void PLXModuleDatabase::Jump(Call& call_io) {
  mySession.Find(call_io.reference).Jump(static_cast<PLXSInt32>(call_io.word));
}

// ---- Exchange

void PLXModuleDatabase::Export(Call& call_io) {
  call_io.outWord = CountWord(mySession.Find(call_io.reference).Export(call_io.in[0], call_io.in[1]));
}

void PLXModuleDatabase::Import(Call& call_io) {
  call_io.outWord = CountWord(mySession.Find(call_io.reference).Import(call_io.in[0]));
}
