#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "PLXRecordField.h"
#include "PLXSQLConnection.h"

// A database as it is defined now: its table and its fields.
struct PLXRecordDefinition {
  std::int64_t number = 0;
  std::string name;  // as it was given
  std::string table;
  std::vector<PLXRecordField> fields;  // in the order of adding; without the identifier

  // The field of this name, ignoring letter case, the identifier's included; null when there is none.
  PLXRecordField const* Find(std::string_view name_i) const;
};

// Which databases and fields there are on a data source, and under which names the engine knows them: two
// tables beside the records, "plx_databases" and "plx_fields".
//
// Engines cut or refuse names that are long or strange, so tables and columns are named by what is plain in a
// name and a number ("customer_log_3", "gr_e_7"). Names compare ignoring letter case. Each function takes the
// connection that it works on; definitions change in one transaction or not at all, and only one server at a
// time changes any. Throw PLXSQLError and PLXRecordError.
namespace PLXRecordCatalogue {

inline constexpr std::size_t kLongestName = 255;  // bytes, of databases and fields

// Makes the two tables where they are not there yet.
void Prepare(PLXSQLConnection& connection_io);

// Throws PLXRecordError (kName) for what cannot name a database: nothing, more than 255 bytes, control
// characters, "/",
// "\" and quotes.
void CheckDatabaseName(std::string_view name_i);

std::optional<PLXRecordDefinition> Find(PLXSQLConnection& connection_io, std::string_view name_i);
// Every database's name, sorted without regard to letter case.
std::vector<std::string> Names(PLXSQLConnection& connection_io);

// Makes a database without fields. False when one of that name is there, be it that another server made it
// just now.
bool Create(PLXSQLConnection& connection_io, std::string_view name_i);
void Delete(PLXSQLConnection& connection_io, PLXRecordDefinition const& definition_i);
// Adds fields, each with its type word: all or none. Existing records have them unset.
using NewField = std::pair<std::string_view, std::uint32_t>;
void AddFields(PLXSQLConnection& connection_io, PLXRecordDefinition const& definition_i,
               std::span<NewField const> fields_i);
void DeleteField(PLXSQLConnection& connection_io, PLXRecordDefinition const& definition_i,
                 PLXRecordField const& field_i);

// For engines that give no identifiers of their own: the next one of a database. Inside a transaction.
std::int64_t NextIdentifier(PLXSQLConnection& connection_io, PLXRecordDefinition const& definition_i);

}  // namespace PLXRecordCatalogue

// What stands in the key column of a text: short texts themselves, long ones a digest (SHA-256), so that
// equal keys mean equal texts and every key fits into an index.
std::string PLXRecordKeyText(std::string_view text_i);
