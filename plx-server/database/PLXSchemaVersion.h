#pragma once

#include "PLXSQLConnection.h"

// The version of what the state holds: of the tables of preferences.sqlite and records.sqlite or of an ODBC
// source, kept there in the table plx_version, and of the state folder. What bears none was made before there
// were versions, which is version 1.
inline constexpr std::int64_t kPLXSchemaVersion = 1;

// Marks tables that were just made or changed, in the transaction that did it.
void PLXMarkSchema(PLXSQLConnection& connection_io, std::int64_t version_i = kPLXSchemaVersion);
// The version of tables that are there.
std::int64_t PLXReadSchema(PLXSQLConnection& connection_io);
// Throws PLXSQLError with a sentence when this program does not know the tables: they are newer, or older and
// no server has been started since this program was installed.
void PLXCheckSchema(PLXSQLConnection& connection_io, std::string const& what_i);
// The sentences of PLXCheckSchema; empty when the version is today's.
std::string PLXSchemaProblem(std::int64_t version_i, std::string const& what_i);
