#include "PLXSchemaVersion.h"

#include <algorithm>

void PLXMarkSchema(PLXSQLConnection& connection_io, std::int64_t version_i) {
  char const* const ifMissing = connection_io.GetDialect() == PLXSQLDialect::kOther ? "" : "IF NOT EXISTS ";
  connection_io.Run(std::string("CREATE TABLE ") + ifMissing +
                    "plx_version (number BIGINT NOT NULL PRIMARY KEY)");
  connection_io.Run("DELETE FROM plx_version");
  PLXSQLParameter const values[] = {version_i};
  connection_io.Run("INSERT INTO plx_version (number) VALUES (?)", values);
}

std::int64_t PLXReadSchema(PLXSQLConnection& connection_io) {
  std::int64_t version = 1;
  try {
    connection_io.Run("SELECT number FROM plx_version", {}, [&version](PLXSQLRow& row_io) {
      if (auto const* const number = std::get_if<std::int64_t>(&row_io.at(0)))
        version = std::max(version, *number);
    });
  } catch (PLXSQLError const& error) {
    if (error.GetKind() != PLXSQLError::Kind::kOther) throw;
  }
  return version;
}

std::string PLXSchemaProblem(std::int64_t version_i, std::string const& what_i) {
  if (version_i > kPLXSchemaVersion) {
    return what_i + " was written by a newer PLX Server (version " + std::to_string(version_i) +
           " of the state; this one knows " + std::to_string(kPLXSchemaVersion) +
           "). Install that server again, or restore a backup from before: plxserver restore.";
  }
  if (version_i < kPLXSchemaVersion) {
    return what_i + " was written by an older PLX Server (version " + std::to_string(version_i) +
           " of the state; this one needs " + std::to_string(kPLXSchemaVersion) +
           "). Start the server once, which changes it.";
  }
  return {};
}

void PLXCheckSchema(PLXSQLConnection& connection_io, std::string const& what_i) {
  std::string const problem = PLXSchemaProblem(PLXReadSchema(connection_io), what_i);
  if (!problem.empty()) throw PLXSQLError(PLXSQLError::Kind::kOther, problem);
}
