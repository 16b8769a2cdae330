#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "PLXSQLConnection.h"

// The preferences that several servers share, in the tables plx_preferences and plx_preferences_version of a
// data source.
//
// The version is a number that every change raises, in the same transaction and as its first step: whoever
// changes something has all others wait at that row, so changes are one after the other on any engine, and a
// server whose version is the current one has seen them all. One thread at a time; what it throws is
// PLXSQLError, and nothing has changed then unless the connection was lost (kLost).
namespace PLXPreferenceTable {

struct Row {
  std::string region;
  std::string owner;
  std::string name;
  std::string value;
};

// Makes the tables when they are missing. Any number of servers may do so at once.
void Prepare(PLXSQLConnection& connection_io);

// 0 as long as nobody has changed anything.
std::int64_t Version(PLXSQLConnection& connection_io);
// All of them, with changes up to the version that it returns and perhaps later ones.
std::int64_t Read(PLXSQLConnection& connection_io, std::vector<Row>& rows_o);

// These return the version that the change made.
std::int64_t Set(PLXSQLConnection& connection_io, Row const& row_i);
std::int64_t Remove(PLXSQLConnection& connection_io, Row const& row_i);  // its value does not matter
// Puts them in when nobody has ever changed anything. False, with nothing done, otherwise.
bool Adopt(PLXSQLConnection& connection_io, std::vector<Row> const& rows_i);

}  // namespace PLXPreferenceTable
