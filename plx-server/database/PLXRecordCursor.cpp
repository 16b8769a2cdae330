#include "PLXRecordCursor.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <functional>
#include <limits>

#include "PLXRecordQuery.h"

namespace {

using Kind = PLXRecordError::Kind;

constexpr std::int64_t kBeforeAll = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t kAfterAll = std::numeric_limits<std::int64_t>::max();

constexpr std::size_t kMostAhead = 256;             // records
constexpr std::size_t kMostAheadBytes = 256 << 10;  // a batch that takes more is followed by a smaller one
constexpr auto kAheadIsFresh = std::chrono::milliseconds(5);

// How often the databases of this process were changed, by a hash of the name; that two share one does no
// harm.
std::array<std::atomic<std::uint64_t>, 1024> ourChanges;

std::atomic<std::uint64_t>& ChangesOf(std::string const& key_i) {
  return ourChanges[std::hash<std::string>()(key_i) % ourChanges.size()];
}

PLXSQLParameter ParameterOf(PLXSQLValue const& value_i) {
  if (auto const* const text = std::get_if<std::string>(&value_i)) return std::string_view(*text);
  if (auto const* const integer = std::get_if<std::int64_t>(&value_i)) return *integer;
  if (auto const* const number = std::get_if<double>(&value_i)) return *number;
  return {};
}

[[noreturn]] void ThrowNoRecord() { throw PLXRecordError(Kind::kEnd, "There is no current record."); }

}  // namespace

// ---- Opening and fields

PLXRecordCursor::PLXRecordCursor(std::shared_ptr<PLXRecordStore> store_i, std::string_view name_i,
                                 PLXRecordAccess access_i, void const* owner_i, WhenMissing whenMissing_i)
    : myStore(std::move(store_i)),
      myAccess(access_i),
      myOwner(owner_i),
      myKey(PLXRecordNameKey(name_i)),
      myChangeCount(ChangesOf(myKey)),
      myIdentifier(kBeforeAll) {
  PLXRecordCatalogue::CheckDatabaseName(name_i);
  myStore->Locks().Take(myKey, myAccess, myOwner);
  try {
    auto const find = [&](PLXSQLConnection& connection_io) {
      return PLXRecordCatalogue::Find(connection_io, name_i);
    };
    std::optional<PLXRecordDefinition> definition = myStore->Read(find);
    if (!definition && whenMissing_i == WhenMissing::kFail) {
      throw PLXRecordError(Kind::kNotFound, "There is no database \"" + std::string(name_i) + "\".");
    }
    if (!definition) {
      myStore->Write(
          [&](PLXSQLConnection& connection_io) { PLXRecordCatalogue::Create(connection_io, name_i); });
      definition = myStore->Read(find);
    }
    if (!definition) throw PLXRecordError(Kind::kNotFound, "The database was deleted just now.");
    myDefinition = std::move(*definition);
    BuildColumns();
  } catch (...) {
    myStore->Locks().Release(myKey, myAccess, myOwner);
    throw;
  }
}

PLXRecordCursor::~PLXRecordCursor() { myStore->Locks().Release(myKey, myAccess, myOwner); }

void PLXRecordCursor::Reload() {
  auto definition = myStore->Read([this](PLXSQLConnection& connection_io) {
    return PLXRecordCatalogue::Find(connection_io, myDefinition.name);
  });
  if (!definition) throw PLXRecordError(Kind::kNotFound, "The database was deleted.");
  myDefinition = std::move(*definition);
  BuildColumns();
}

void PLXRecordCursor::BuildColumns() {
  myShort.clear();
  myColumns = "id";
  for (std::size_t index = 0; index < myDefinition.fields.size(); ++index) {
    if (myDefinition.fields[index].IsLongText()) continue;
    myShort.push_back(index);
    myColumns += ", " + PLXRecordQuery::Selected(myStore->GetDialect(), myDefinition.fields[index]);
  }
  myValues.assign(myDefinition.fields.size(), std::nullopt);
  myAhead = {};
}

PLXRecordField const& PLXRecordCursor::Field(std::string_view name_i) {
  PLXRecordField const* field = myDefinition.Find(name_i);
  if (field == nullptr) {
    Reload();  // somebody else may have added it
    field = myDefinition.Find(name_i);
  }
  if (field != nullptr) return *field;
  throw PLXRecordError(Kind::kNotFound, "The database \"" + myDefinition.name + "\" has no field \"" +
                                            std::string(name_i) + "\".");
}

PLXRecordField const& PLXRecordCursor::FieldAt(std::int64_t position_i) const {
  for (PLXRecordField const& field : myDefinition.fields) {
    if (field.position == position_i) return field;
  }
  throw PLXRecordError(Kind::kNotFound, "A field that was changed was deleted meanwhile.");
}

void PLXRecordCursor::AddFields(std::span<PLXRecordCatalogue::NewField const> fields_i) {
  Reload();
  Change([&](PLXSQLConnection& connection_io) {
    PLXRecordCatalogue::AddFields(connection_io, myDefinition, fields_i);
  });
  Reload();
}

void PLXRecordCursor::DeleteField(std::string_view name_i) {
  Reload();
  PLXRecordField const field = Field(name_i);
  if (field.position == 0) throw PLXRecordError(Kind::kName, "The field PLXIDFIELD cannot be deleted.");
  Change([&](PLXSQLConnection& connection_io) {
    PLXRecordCatalogue::DeleteField(connection_io, myDefinition, field);
  });
  std::erase_if(myChanges, [&](FieldChange const& change) { return change.first == field.position; });
  Reload();
}

// ---- Searching

void PLXRecordCursor::Search(std::string_view expression_i) {
  DropChanges();
  myFound.emplace();
  myPlaces.clear();
  myAhead = {};
  myIndex = -1;
  myStand = Stand::kNone;
  PLXSearchExpression const expression = PLXRecordQuery::Parse(expression_i);
  PLXRecordQuery query;
  try {
    query = PLXRecordQuery(expression, myDefinition, myStore->GetDialect());
  } catch (PLXRecordError const& error) {
    if (error.GetKind() != Kind::kSearch) throw;
    Reload();  // somebody else may have added the field
    query = PLXRecordQuery(expression, myDefinition, myStore->GetDialect());
  }
  std::vector<PLXSQLParameter> values;
  for (PLXSQLValue const& value : query.Values()) values.push_back(ParameterOf(value));
  if (query.IsForOne()) {
    for (Row& row : ReadRows(query.Condition(), values)) {
      myFound->push_back(row.identifier);
      if (!IsAhead(0, 1)) BeginAhead(0, 1);
      myAhead.rows.emplace_back(std::move(row));
    }
    myStand = Stand::kOpen;
    return;
  }
  std::string const sql = "SELECT id FROM " + myDefinition.table +
                          (query.Condition().empty() ? "" : " WHERE ") + query.Condition() + " ORDER BY " +
                          query.Order();
  myStore->Read([&](PLXSQLConnection& connection_io) {
    std::vector<std::int64_t> found;
    connection_io.Run(sql, values,
                      [&found](PLXSQLRow& row_io) { found.push_back(std::get<std::int64_t>(row_io.at(0))); });
    myFound = std::move(found);
  });
  myStand = Stand::kOpen;
}

void PLXRecordCursor::ClearSearch() {
  DropChanges();
  myFound.reset();
  myPlaces.clear();
  myAhead = {};
  myIdentifier = kBeforeAll;
  myStand = Stand::kOpen;
}

std::uint64_t PLXRecordCursor::ResultCount() { return myFound ? myFound->size() : RecordCount(); }

std::uint64_t PLXRecordCursor::RecordCount() {
  return myStore->Read([this](PLXSQLConnection& connection_io) {
    std::int64_t count = 0;
    connection_io.Run("SELECT COUNT(*) FROM " + myDefinition.table, {},
                      [&count](PLXSQLRow& row_io) { count = std::get<std::int64_t>(row_io.at(0)); });
    return static_cast<std::uint64_t>(count);
  });
}

// ---- Moving

PLXRecordCursor::Row PLXRecordCursor::AdoptRow(PLXSQLRow& row_io) const {
  Row row{std::get<std::int64_t>(row_io.at(0)), {}};
  row.values.resize(myDefinition.fields.size());
  for (std::size_t index = 0; index < myShort.size(); ++index) {
    PLXSQLValue& value = row_io.at(index + 1);
    myDefinition.fields[myShort[index]].Adopt(value);
    row.values[myShort[index]] = std::move(value);
  }
  return row;
}

std::vector<PLXRecordCursor::Row> PLXRecordCursor::ReadRows(std::string const& condition_i,
                                                            std::span<PLXSQLParameter const> values_i) {
  std::string const sql = "SELECT " + myColumns + " FROM " + myDefinition.table + " WHERE " + condition_i;
  return myStore->Read([&](PLXSQLConnection& connection_io) {
    std::vector<Row> rows;
    connection_io.Run(sql, values_i, [&](PLXSQLRow& row_io) { rows.push_back(AdoptRow(row_io)); });
    return rows;
  });
}

// What was not saved is gone when another record becomes current.
void PLXRecordCursor::DropChanges() {
  myChanges.clear();
  myValues.assign(myDefinition.fields.size(), std::nullopt);
  if (myStand == Stand::kNew) myStand = Stand::kNone;
}

void PLXRecordCursor::StandOn(Row row_i) {
  myChanges.clear();
  myIdentifier = row_i.identifier;
  myValues = std::move(row_i.values);
  myStand = Stand::kRecord;
}

// Whether the record of this place was read ahead and still counts.
bool PLXRecordCursor::IsAhead(std::int64_t place_i, std::int64_t step_i) const {
  return myAhead.step == step_i && myAhead.next < myAhead.rows.size() && myAhead.place == place_i &&
         myAhead.changes == myChangeCount && std::chrono::steady_clock::now() < myAhead.until;
}

// Twice as many as last time when those were used up, one when the walk begins or something was changed.
void PLXRecordCursor::BeginAhead(std::int64_t place_i, std::int64_t step_i) {
  std::uint64_t const changes = myChangeCount;
  bool const goesOn = myAhead.step == step_i && myAhead.place == place_i &&
                      myAhead.next == myAhead.rows.size() && myAhead.changes == changes;
  std::size_t const batch = goesOn ? std::min(myAhead.batch * 2, kMostAhead) : 1;
  myAhead = {place_i, step_i, 0, {}, batch, changes, std::chrono::steady_clock::now() + kAheadIsFresh};
}

void PLXRecordCursor::LimitAhead() {
  std::size_t bytes = 0;
  for (auto const& row : myAhead.rows) {
    if (!row) continue;
    for (auto const& value : row->values) {
      auto const* const text = value ? std::get_if<std::string>(&*value) : nullptr;
      bytes += text != nullptr ? text->size() : 0;
    }
  }
  auto const now = std::chrono::steady_clock::now();
  bool const tookLong = now >= myAhead.until;
  // Counted from here, or what takes long to read would be worthless before its first record was used.
  myAhead.until = now + kAheadIsFresh;
  if (bytes > kMostAheadBytes || tookLong) myAhead.batch = std::max<std::size_t>(1, myAhead.batch / 4);
}

void PLXRecordCursor::ReadAhead(std::int64_t index_i, std::int64_t step_i) {
  BeginAhead(index_i, step_i);
  std::vector<std::int64_t> identifiers;
  auto const count = static_cast<std::int64_t>(myFound->size());
  for (std::int64_t index = index_i; index >= 0 && index < count && identifiers.size() < myAhead.batch;
       index += step_i) {
    identifiers.push_back((*myFound)[static_cast<std::size_t>(index)]);
  }
  std::vector<Row> rows = ReadRecords(identifiers);
  auto const isLess = [](Row const& a, Row const& b) { return a.identifier < b.identifier; };
  if (!std::is_sorted(rows.begin(), rows.end(), isLess)) std::sort(rows.begin(), rows.end(), isLess);
  myAhead.rows.reserve(identifiers.size());
  for (std::int64_t const identifier : identifiers) {
    auto const found =
        std::lower_bound(rows.begin(), rows.end(), identifier,
                         [](Row const& row, std::int64_t sought) { return row.identifier < sought; });
    bool const isThere = found != rows.end() && found->identifier == identifier;
    myAhead.rows.push_back(isThere ? std::optional(std::move(*found)) : std::nullopt);
  }
  LimitAhead();
}

// The records of these identifiers, in any order, and perhaps some that lie between them: where they lie
// close together, one way through all is shorter than a search for each.
std::vector<PLXRecordCursor::Row> PLXRecordCursor::ReadRecords(
    std::vector<std::int64_t> const& identifiers_i) {
  auto const [first, last] = std::minmax_element(identifiers_i.begin(), identifiers_i.end());
  auto const distance = static_cast<std::uint64_t>(*last) - static_cast<std::uint64_t>(*first);
  if (distance < 2 * identifiers_i.size()) {
    PLXSQLParameter const ends[] = {*first, *last};
    return ReadRows("id BETWEEN ? AND ?", ends);
  }
  std::string condition = "id IN (";
  for (std::size_t index = 0; index < identifiers_i.size(); ++index) condition += index == 0 ? "?" : ", ?";
  return ReadRows(condition + ")", std::vector<PLXSQLParameter>(identifiers_i.begin(), identifiers_i.end()));
}

void PLXRecordCursor::ReadAheadLive(std::int64_t from_i, std::int64_t step_i) {
  BeginAhead(from_i, step_i);
  PLXSQLParameter const values[] = {from_i, static_cast<std::int64_t>(myAhead.batch)};
  std::vector<Row> rows =
      ReadRows(step_i > 0 ? "id > ? ORDER BY id LIMIT ?" : "id < ? ORDER BY id DESC LIMIT ?", values);
  for (Row& row : rows) myAhead.rows.emplace_back(std::move(row));
  LimitAhead();
}

// Goes through the found set from a place to the next record that is still there.
bool PLXRecordCursor::Walk(std::int64_t index_i, std::int64_t step_i) {
  auto const count = static_cast<std::int64_t>(myFound->size());
  for (std::int64_t index = index_i; index >= 0 && index < count; index += step_i) {
    if (!IsAhead(index, step_i)) ReadAhead(index, step_i);
    std::optional<Row>& row = myAhead.rows[myAhead.next++];
    myAhead.place = index + step_i;
    if (!row) continue;
    myIndex = index;
    StandOn(std::move(*row));
    return true;
  }
  return false;
}

// Goes on from an identifier when all records are found, passing over as many as are told.
bool PLXRecordCursor::WalkLive(std::int64_t from_i, bool isForward_i, std::int64_t skipped_i) {
  std::int64_t const step = isForward_i ? 1 : -1;
  if (skipped_i > 0) {
    PLXSQLParameter const values[] = {from_i, skipped_i};
    std::vector<Row> rows = ReadRows(
        isForward_i ? "id > ? ORDER BY id LIMIT 1 OFFSET ?" : "id < ? ORDER BY id DESC LIMIT 1 OFFSET ?",
        values);
    if (!rows.empty()) StandOn(std::move(rows.front()));
    return !rows.empty();
  }
  if (!IsAhead(from_i, step)) ReadAheadLive(from_i, step);
  if (myAhead.next == myAhead.rows.size()) return false;
  StandOn(std::move(*myAhead.rows[myAhead.next++]));
  myAhead.place = myIdentifier;
  return true;
}

// Stands on the first record when nobody has asked for it yet. False when there is no current record.
bool PLXRecordCursor::Settle() {
  if (myStand == Stand::kOpen && !(myFound ? Walk(0, 1) : WalkLive(kBeforeAll, true))) {
    myStand = Stand::kNone;
    myIndex = -1;
  }
  return myStand == Stand::kRecord || myStand == Stand::kNew;
}

void PLXRecordCursor::NeedRecord() {
  if (!Settle()) ThrowNoRecord();
}

void PLXRecordCursor::Move(bool isMoved_i) {
  if (!isMoved_i) throw PLXRecordError(Kind::kEnd, "There is no record that way.");
}

void PLXRecordCursor::MoveFirst() { Move(myFound ? Walk(0, 1) : WalkLive(kBeforeAll, true)); }

void PLXRecordCursor::MoveLast() {
  Move(myFound ? Walk(static_cast<std::int64_t>(myFound->size()) - 1, -1) : WalkLive(kAfterAll, false));
}

void PLXRecordCursor::MovePrevious() { Jump(-1); }

void PLXRecordCursor::MoveNext() { Jump(1); }

void PLXRecordCursor::Jump(std::int64_t count_i) {
  bool const isOnRecord = Settle();
  if (count_i == 0) return Move(isOnRecord);
  bool const isForward = count_i > 0;
  if (!myFound) return Move(WalkLive(myIdentifier, isForward, isForward ? count_i - 1 : -(count_i + 1)));
  auto const size = static_cast<std::int64_t>(myFound->size());
  // Compared before it is added: the sum could leave the range.
  Move(count_i <= size && count_i >= -size - 1 && Walk(myIndex + count_i, isForward ? 1 : -1));
}

void PLXRecordCursor::MoveTo(std::int64_t identifier_i) {
  PLXSQLParameter const identifier[] = {identifier_i};
  std::vector<Row> rows = ReadRows("id = ?", identifier);
  if (rows.empty()) {
    throw PLXRecordError(Kind::kNotFound, "There is no record " + std::to_string(identifier_i) + ".");
  }
  if (myFound && myPlaces.empty()) {
    for (std::size_t index = 0; index < myFound->size(); ++index)
      myPlaces.emplace_back((*myFound)[index], index);
    std::sort(myPlaces.begin(), myPlaces.end());
  }
  auto const place =
      std::lower_bound(myPlaces.begin(), myPlaces.end(), std::pair(identifier_i, std::size_t{0}));
  if (place != myPlaces.end() && place->first == identifier_i)
    myIndex = static_cast<std::int64_t>(place->second);
  StandOn(std::move(rows.front()));
}

// ---- Records and values

struct PLXRecordCursor::Values {
  PLXSQLDialect dialect;
  std::vector<std::string> columns;
  std::vector<PLXSQLParameter> parameters;
  std::vector<std::string_view> places;            // what stands for them in the statement
  std::vector<std::unique_ptr<std::string>> keys;  // texts made here, at addresses that stay
};

void PLXRecordCursor::NewRecord() {
  Settle();
  DropChanges();
  myStand = Stand::kNew;
}

void PLXRecordCursor::Assign(std::vector<FieldChange> const& changes_i, Values& values_io) const {
  auto const add = [&values_io](std::string const& column, PLXRecordField const& field,
                                PLXSQLParameter const& value) {
    values_io.columns.push_back(column);
    values_io.parameters.push_back(value);
    values_io.places.push_back(PLXRecordQuery::Place(values_io.dialect, field, value));
  };
  for (auto const& [position, value] : changes_i) {
    PLXRecordField const& field = FieldAt(position);
    add(field.column, field, ParameterOf(value));
    if (field.keyColumn.empty()) continue;
    auto const* const text = std::get_if<std::string>(&value);
    if (text != nullptr) values_io.keys.push_back(std::make_unique<std::string>(PLXRecordKeyText(*text)));
    add(field.keyColumn, field,
        text != nullptr ? PLXSQLParameter(std::string_view(*values_io.keys.back())) : PLXSQLParameter());
  }
}

std::int64_t PLXRecordCursor::Insert(PLXSQLConnection& connection_io,
                                     std::vector<FieldChange> const& changes_i) const {
  PLXSQLDialect const dialect = connection_io.GetDialect();
  Values values{dialect, {}, {}, {}, {}};
  std::int64_t identifier = 0;
  if (dialect == PLXSQLDialect::kOther) {
    identifier = PLXRecordCatalogue::NextIdentifier(connection_io, myDefinition);
    values = {dialect, {"id"}, {identifier}, {"?"}, {}};
  }
  Assign(changes_i, values);
  std::string sql = "INSERT INTO " + myDefinition.table;
  if (values.columns.empty()) {
    sql += " DEFAULT VALUES";
  } else {
    std::string places;
    char const* before = " (";
    for (std::size_t index = 0; index < values.columns.size(); ++index) {
      sql.append(before).append(values.columns[index]);
      places.append(before).append(values.places[index]);
      before = ", ";
    }
    sql += ") VALUES" + places + ")";
  }
  auto const read = [&identifier](PLXSQLRow& row_io) { identifier = std::get<std::int64_t>(row_io.at(0)); };
  bool const isReturned = dialect == PLXSQLDialect::kSQLite || dialect == PLXSQLDialect::kPostgreSQL;
  connection_io.Run(isReturned ? sql + " RETURNING id" : sql, values.parameters, read);
  if (dialect == PLXSQLDialect::kSQLiteODBC) connection_io.Run("SELECT last_insert_rowid()", {}, read);
  return identifier;
}

std::string PLXRecordCursor::NotUniqueText(std::vector<FieldChange> const& changes_i) const {
  std::string sentence = "Another record has the same value in a field that takes no value twice";
  char const* before = ": ";
  for (auto const& [position, value] : changes_i) {
    PLXRecordField const& field = FieldAt(position);
    if (!field.IsUnique()) continue;
    std::string const text = PLXRecordText(value);
    sentence += before + field.name + " = \"" + (text.size() > 80 ? text.substr(0, 80) + "..." : text) + "\"";
    before = ", ";
  }
  return sentence + ".";
}

std::int64_t PLXRecordCursor::Add() {
  if (myStand != Stand::kNew) throw PLXRecordError(Kind::kEnd, "There is no new record to add.");
  Row row{0, {}};
  try {
    row.identifier = Change([this](PLXSQLConnection& connection_io) {
      if (connection_io.GetDialect() != PLXSQLDialect::kOther) return Insert(connection_io, myChanges);
      PLXSQLTransaction transaction(connection_io);
      std::int64_t const identifier = Insert(connection_io, myChanges);
      transaction.Commit();
      return identifier;
    });
  } catch (PLXRecordError const& error) {
    if (error.GetKind() != Kind::kNotUnique) throw;
    throw PLXRecordError(Kind::kNotUnique, NotUniqueText(myChanges));
  }
  row.values.resize(myDefinition.fields.size());
  StandOn(std::move(row));
  return myIdentifier;
}

void PLXRecordCursor::Set(std::string_view field_i, PLXRecordValue const& value_i) {
  NeedRecord();
  PLXRecordField const& field = Field(field_i);
  if (field.position == 0) throw PLXRecordError(Kind::kValue, "The field PLXIDFIELD is given by the server.");
  PLXSQLValue value = field.Convert(value_i);
  auto const change = std::find_if(myChanges.begin(), myChanges.end(),
                                   [&field](FieldChange const& old) { return old.first == field.position; });
  if (change != myChanges.end()) {
    change->second = std::move(value);
  } else {
    myChanges.emplace_back(field.position, std::move(value));
  }
}

void PLXRecordCursor::Update() {
  NeedRecord();
  if (myStand == Stand::kNew)
    throw PLXRecordError(Kind::kEnd, "The current record is new: it is added, not updated.");
  if (myChanges.empty()) return;
  Values values{myStore->GetDialect(), {}, {}, {}, {}};
  Assign(myChanges, values);
  std::string sql = "UPDATE " + myDefinition.table + " SET ";
  for (std::size_t index = 0; index < values.columns.size(); ++index) {
    sql.append(index == 0 ? "" : ", ")
        .append(values.columns[index])
        .append(" = ")
        .append(values.places[index]);
  }
  sql += " WHERE id = ?";
  values.parameters.emplace_back(myIdentifier);
  std::int64_t count = 0;
  try {
    count =
        Change([&](PLXSQLConnection& connection_io) { return connection_io.Run(sql, values.parameters); });
  } catch (PLXRecordError const& error) {
    if (error.GetKind() != Kind::kNotUnique) throw;
    throw PLXRecordError(Kind::kNotUnique, NotUniqueText(myChanges));
  }
  if (count == 0) throw PLXRecordError(Kind::kNotFound, "The current record was deleted meanwhile.");
  DropChanges();  // read again when they are asked for
}

PLXSQLValue const& PLXRecordCursor::Get(std::string_view field_i) {
  NeedRecord();
  PLXRecordField const& field = Field(field_i);
  static PLXSQLValue const ourUnset;
  for (auto const& [position, value] : myChanges) {
    if (position == field.position) return value;
  }
  if (myStand == Stand::kNew) return ourUnset;
  if (field.position == 0) return myIdentifierValue = myIdentifier;
  auto const index = static_cast<std::size_t>(&field - myDefinition.fields.data());
  std::optional<PLXSQLValue>& value = myValues[index];
  if (value) return *value;
  PLXSQLParameter const identifier[] = {myIdentifier};
  bool isThere = false;
  myStore->Read([&](PLXSQLConnection& connection_io) {
    connection_io.Run("SELECT " + PLXRecordQuery::Selected(myStore->GetDialect(), field) + " FROM " +
                          myDefinition.table + " WHERE id = ?",
                      identifier, [&](PLXSQLRow& row_io) {
                        field.Adopt(row_io.at(0));
                        value = std::move(row_io.at(0));
                        isThere = true;
                      });
  });
  if (!isThere) throw PLXRecordError(Kind::kNotFound, "The current record was deleted meanwhile.");
  return *value;
}

void PLXRecordCursor::Delete(std::int64_t identifier_i) {
  PLXSQLParameter const identifier[] = {identifier_i};
  std::int64_t const count = Change([&](PLXSQLConnection& connection_io) {
    return connection_io.Run("DELETE FROM " + myDefinition.table + " WHERE id = ?", identifier);
  });
  if (count == 0) {
    throw PLXRecordError(Kind::kNotFound, "There is no record " + std::to_string(identifier_i) + ".");
  }
  if (myStand == Stand::kRecord && myIdentifier == identifier_i) {
    DropChanges();
    myStand = Stand::kNone;
  }
}

void PLXRecordCursor::DeleteAll() {
  Change([this](PLXSQLConnection& connection_io) { connection_io.Run("DELETE FROM " + myDefinition.table); });
  DropChanges();
  if (myStand == Stand::kRecord) myStand = Stand::kNone;
}
