#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <iosfwd>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "PLXRecordStore.h"

class PLXDelimitedReader;

// The delimiter of a file of records: the first of comma, semicolon and tab in its header line, outside
// quotation marks; what follows the identifier's name where that comes first. Goes back to the beginning.
char PLXFindDelimiter(std::istream& stream_io);

// An open database: its definition, the records that a search found, and the one that is current.
//
// One thread. The found set is all records until a search fixes it; then it is a list of identifiers (eight
// bytes for each record found), records that are deleted meanwhile are passed over, and what is in a record
// is read when it becomes current. A long text is read when it is asked for. Opening, searching and clearing
// stand on the first record.
//
// What it throws is PLXRecordError, and then nothing has changed: a move that ends nowhere (kEnd) stays where
// it was.
class PLXRecordCursor {
 public:
  // Opens the database of this name and closes it at the
  // end. The owner is whoever may not wait for itself: a second cursor of one owner that is in the way of the
  // first fails at once (kInUse). A database that there is not is made, without fields, or is an error
  // (kNotFound).
  enum class WhenMissing { kCreate, kFail };
  PLXRecordCursor(std::shared_ptr<PLXRecordStore> store_i, std::string_view name_i, PLXRecordAccess access_i,
                  void const* owner_i, WhenMissing whenMissing_i = WhenMissing::kCreate);
  ~PLXRecordCursor();
  PLXRecordCursor(PLXRecordCursor const&) = delete;
  PLXRecordCursor& operator=(PLXRecordCursor const&) = delete;

  std::string const& Name() const { return myDefinition.name; }

  // The fields in the order of adding, as they were defined when the database was opened or last looked at.
  // PLXIDFIELD is none of them.
  std::vector<PLXRecordField> const& Fields() const { return myDefinition.fields; }
  // The field of this name, PLXIDFIELD's included. kNotFound. Valid until a field is added or deleted here.
  PLXRecordField const& Field(std::string_view name_i);
  // Whether there is one, as far as was looked.
  bool HasField(std::string_view name_i) const { return myDefinition.Find(name_i) != nullptr; }
  // All of them or none.
  void AddFields(std::span<PLXRecordCatalogue::NewField const> fields_i);
  void AddField(std::string_view name_i, std::uint32_t word_i) {
    PLXRecordCatalogue::NewField const fields[] = {{name_i, word_i}};
    AddFields(fields);
  }
  void DeleteField(std::string_view name_i);

  // Finds the records that an expression (PLXSearchExpression) describes. kSearch; the found set is empty
  // then.
  void Search(std::string_view expression_i);
  void ClearSearch();
  // How many records the search found; without a search, how many there are.
  std::uint64_t ResultCount();
  std::uint64_t RecordCount();

  void MoveFirst();
  void MoveLast();
  void MovePrevious();
  void MoveNext();
  // Moves by as many places. Where a deleted record was, goes on in the direction.
  void Jump(std::int64_t count_i);
  // Makes any record of the database current; in a found set that has it, its place becomes the position.
  // kNotFound.
  void MoveTo(std::int64_t identifier_i);

  // Starts a record, which Add saves.
  void NewRecord();
  // Saves the new record; it becomes the current one. Returns its identifier. kNotUnique: it is still new
  // then.
  std::int64_t Add();
  // Changes a field of the new or the current record; Add or Update saves it.
  void Set(std::string_view field_i, PLXRecordValue const& value_i);
  // Saves what was changed in the current record. kNotFound when somebody deleted it; kNotUnique.
  void Update();
  // A field of the new or the current record, changes included. Valid until the next call. kEnd without a
  // record.
  PLXSQLValue const& Get(std::string_view field_i);

  void Delete(std::int64_t identifier_i);  // kNotFound
  void DeleteAll();

  // Writes the found set to a file as comma-separated values (RFC 4180) with a header line. The options are
  // empty or "delimiter=" and one character, "tab", "comma" or "semicolon". Returns the number of records.
  // The file is there whole or not at all. kFile, kValue.
  std::uint64_t Export(std::filesystem::path const& file_i, std::string_view options_i);
  // Adds the records of such a file, all or none. Its delimiter is found in its header line; fields are found
  // by name, and PLXIDFIELD is passed over: identifiers are given anew. An empty value leaves a field unset.
  // Returns the number of records. kFile, kNotFound, kValue, kNotUnique, each with the line.
  std::uint64_t Import(std::filesystem::path const& file_i);

 private:
  enum class Stand {
    kOpen,    // on the first record, which nobody asked for yet
    kRecord,  // on myIdentifier
    kNone,    // where a record was, or there are none
    kNew,
  };
  using FieldChange = std::pair<std::int64_t, PLXSQLValue>;  // a field's position and its new value
  // Parameters and the texts that they look into.
  struct Values;
  struct Row {
    std::int64_t identifier;
    std::vector<std::optional<PLXSQLValue>> values;
  };

  // Records read before a move gets to them, so that walking through many costs one statement for up to 256
  // of them. Any change through this process makes them worthless at once, one by another server within
  // milliseconds.
  struct Ahead {
    std::int64_t place =
        0;                  // of the first: its index in the found set; without one, the identifier before it
    std::int64_t step = 0;  // in which direction they follow; 0: there are none
    std::size_t next = 0;
    std::vector<std::optional<Row>> rows;  // none where a record was deleted
    std::size_t batch = 1;                 // how many to read next time
    std::uint64_t changes = 0;
    std::chrono::steady_clock::time_point until;
  };

  void Reload();
  void BuildColumns();
  std::vector<Row> ReadRows(std::string const& condition_i, std::span<PLXSQLParameter const> values_i);
  Row AdoptRow(PLXSQLRow& row_io) const;
  void StandOn(Row row_i);
  bool IsAhead(std::int64_t place_i, std::int64_t step_i) const;
  void BeginAhead(std::int64_t place_i, std::int64_t step_i);
  void LimitAhead();
  void ReadAhead(std::int64_t index_i, std::int64_t step_i);
  std::vector<Row> ReadRecords(std::vector<std::int64_t> const& identifiers_i);
  void ReadAheadLive(std::int64_t from_i, std::int64_t step_i);
  bool Walk(std::int64_t index_i, std::int64_t step_i);
  bool WalkLive(std::int64_t from_i, bool isForward_i, std::int64_t skipped_i = 0);
  bool Settle();
  void NeedRecord();
  void Move(bool isMoved_i);
  std::int64_t Insert(PLXSQLConnection& connection_io, std::vector<FieldChange> const& changes_i) const;
  void Assign(std::vector<FieldChange> const& changes_i, Values& values_io) const;
  PLXRecordField const& FieldAt(std::int64_t position_i) const;
  // Ends with the word to every cursor of this process that what it read ahead is worthless.
  class ChangeMark {
   public:
    explicit ChangeMark(std::atomic<std::uint64_t>& count_io) : myCount(count_io) {}
    ~ChangeMark() { ++myCount; }
    ChangeMark(ChangeMark const&) = delete;
    ChangeMark& operator=(ChangeMark const&) = delete;

   private:
    std::atomic<std::uint64_t>& myCount;
  };
  template <typename Work>
  auto Change(Work const& work_i) {
    ChangeMark const mark(myChangeCount);
    return myStore->Write(work_i);
  }
  void DropChanges();
  std::string NotUniqueText(std::vector<FieldChange> const& changes_i) const;
  std::uint64_t Insert(PLXDelimitedReader& reader_io, std::vector<FieldChange>& changes_o);
  std::uint64_t WriteRecords(std::string const& columns_i, PLXSQLConnection::RowReader const& writer_i);

  std::shared_ptr<PLXRecordStore> const myStore;
  PLXRecordAccess const myAccess;
  void const* const myOwner;
  std::string const myKey;                    // of the name
  std::atomic<std::uint64_t>& myChangeCount;  // of the databases with the name's hash, in this process
  PLXRecordDefinition myDefinition;
  std::vector<std::size_t> myShort;  // the fields that are read with a record: all but long texts
  std::string myColumns;             // "id, " and theirs

  std::optional<std::vector<std::int64_t>> myFound;
  std::vector<std::pair<std::int64_t, std::size_t>>
      myPlaces;               // of identifiers in myFound, sorted; made for MoveTo
  std::int64_t myIndex = -1;  // in myFound
  Stand myStand = Stand::kOpen;
  std::int64_t myIdentifier;                         // of the record that is or was current
  std::vector<std::optional<PLXSQLValue>> myValues;  // of the current record, as far as they were read
  std::vector<FieldChange> myChanges;                // not saved
  Ahead myAhead;
  PLXSQLValue myIdentifierValue;  // for Get
};
