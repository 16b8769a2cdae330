#include "PLXPreferenceTable.h"

#include <optional>

#include "PLXRecordField.h"

namespace {

constexpr char kSet[] = "UPDATE plx_preferences SET value = ? WHERE region = ? AND owner = ? AND name = ?";
constexpr char kAdd[] = "INSERT INTO plx_preferences (value, region, owner, name) VALUES (?, ?, ?, ?)";
constexpr char kRemove[] = "DELETE FROM plx_preferences WHERE region = ? AND owner = ? AND name = ?";

// Bytes decide equality.
std::string TextType(PLXSQLDialect dialect_i) {
  return dialect_i == PLXSQLDialect::kPostgreSQL ? "TEXT COLLATE \"C\" NOT NULL" : "TEXT NOT NULL";
}
std::string KeyType(PLXSQLDialect dialect_i) {
  return dialect_i == PLXSQLDialect::kOther ? "VARCHAR(200) NOT NULL" : TextType(dialect_i);
}

std::optional<std::int64_t> FindVersion(PLXSQLConnection& connection_io) {
  std::optional<std::int64_t> version;
  connection_io.Run("SELECT version FROM plx_preferences_version WHERE number = 1", {},
                    [&version](PLXSQLRow& row_io) {
                      std::int64_t integer = 0;
                      if (PLXRecordInteger(row_io.at(0), integer)) version = integer;
                    });
  return version;
}

bool HasTables(PLXSQLConnection& connection_io) {
  try {
    connection_io.Run("SELECT COUNT(*) FROM plx_preferences");
    return FindVersion(connection_io).has_value();
  } catch (PLXSQLError const& error) {
    if (error.GetKind() != PLXSQLError::Kind::kOther) throw;
    return false;
  }
}

// Waits for whoever is changing something, and keeps others waiting until the transaction ends.
std::int64_t RaiseVersion(PLXSQLConnection& connection_io) {
  connection_io.Run("UPDATE plx_preferences_version SET version = version + 1 WHERE number = 1");
  return PLXPreferenceTable::Version(connection_io);
}

void Put(PLXSQLConnection& connection_io, PLXPreferenceTable::Row const& row_i) {
  PLXSQLParameter const values[] = {std::string_view(row_i.value), std::string_view(row_i.region),
                                    std::string_view(row_i.owner), std::string_view(row_i.name)};
  if (connection_io.Run(kSet, values) == 0) connection_io.Run(kAdd, values);
}

}  // namespace

namespace PLXPreferenceTable {

// Each statement by itself: one that fails because another server was quicker undoes none of the others.
void Prepare(PLXSQLConnection& connection_io) {
  if (HasTables(connection_io)) return;
  PLXSQLDialect const dialect = connection_io.GetDialect();
  std::string const key = " " + KeyType(dialect) + ", ";
  std::string const statements[] = {
      "CREATE TABLE plx_preferences (region" + key + "owner" + key + "name" + key + "value " +
          TextType(dialect) + ", PRIMARY KEY (region, owner, name))",
      "CREATE TABLE plx_preferences_version (number BIGINT NOT NULL PRIMARY KEY, version BIGINT NOT NULL)",
      "INSERT INTO plx_preferences_version (number, version) VALUES (1, 0)"};
  std::string reason;
  for (std::string const& statement : statements) {
    try {
      connection_io.Run(statement);
    } catch (PLXSQLError const& error) {
      if (error.GetKind() == PLXSQLError::Kind::kLost) throw;
      if (reason.empty()) reason = error.what();
    }
  }
  connection_io.ForgetStatements();
  if (HasTables(connection_io)) return;
  throw PLXSQLError(PLXSQLError::Kind::kOther, "The tables of the preferences cannot be made: " + reason);
}

std::int64_t Version(PLXSQLConnection& connection_io) {
  auto const version = FindVersion(connection_io);
  if (version) return *version;
  throw PLXSQLError(PLXSQLError::Kind::kOther, "The table plx_preferences_version has lost its row.");
}

std::int64_t Read(PLXSQLConnection& connection_io, std::vector<Row>& rows_o) {
  rows_o.clear();
  std::int64_t const version = Version(connection_io);
  connection_io.Run("SELECT region, owner, name, value FROM plx_preferences", {}, [&](PLXSQLRow& row_io) {
    rows_o.push_back({PLXRecordText(row_io.at(0)), PLXRecordText(row_io.at(1)), PLXRecordText(row_io.at(2)),
                      PLXRecordText(row_io.at(3))});
  });
  return version;
}

std::int64_t Set(PLXSQLConnection& connection_io, Row const& row_i) {
  PLXSQLTransaction transaction(connection_io);
  std::int64_t const version = RaiseVersion(connection_io);
  Put(connection_io, row_i);
  transaction.Commit();
  return version;
}

std::int64_t Remove(PLXSQLConnection& connection_io, Row const& row_i) {
  PLXSQLParameter const values[] = {std::string_view(row_i.region), std::string_view(row_i.owner),
                                    std::string_view(row_i.name)};
  PLXSQLTransaction transaction(connection_io);
  std::int64_t const version = RaiseVersion(connection_io);
  connection_io.Run(kRemove, values);
  transaction.Commit();
  return version;
}

bool Adopt(PLXSQLConnection& connection_io, std::vector<Row> const& rows_i) {
  PLXSQLTransaction transaction(connection_io);
  if (RaiseVersion(connection_io) != 1) return false;
  for (Row const& row : rows_i) Put(connection_io, row);
  transaction.Commit();
  return true;
}

}  // namespace PLXPreferenceTable
