#pragma once

#include <memory>
#include <string>

#include "PLXSQLConnection.h"

// One connection to an ODBC data source.
//
// Tried with PostgreSQL and with the driver of SQLite; other sources get the common ground of the standard.
// Texts travel as PLXTextEscape writes them, so an engine that insists on UTF-8 keeps any bytes. A double is
// written with seventeen digits and needs CAST(? AS DOUBLE PRECISION) in the statement, because drivers print
// fewer.
class PLXODBC : public PLXSQLConnection {
 public:
  // The source is the name of a data source, or a whole connection string when it has a "=". User and
  // password are added when they are not empty. Gives up after ten seconds; a source that took so long is
  // then refused at once for a while, since one connection is made at a time. Throws PLXSQLError (kLost),
  // whose sentence has no password.
  PLXODBC(std::string const& source_i, std::string const& user_i, std::string const& password_i);
  ~PLXODBC() override;

  std::int64_t Run(std::string const& sql_i, std::span<PLXSQLParameter const> values_i = {},
                   RowReader const& reader_i = {}) override;
  void ForgetStatements() override;
  void Begin() override;
  void Commit() override;
  void Rollback() override;

 private:
  class Link;       // the handle of the connection
  class Statement;  // a prepared one
  PLXODBC(std::unique_ptr<Link> link_i);
  void End(bool isKept_i);

  std::unique_ptr<Link> myLink;
};
