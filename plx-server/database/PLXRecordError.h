#pragma once

#include <stdexcept>
#include <string>

#include "PLXSQLConnection.h"

// Why an operation on records did not happen; nothing has changed then. The sentence is for the page's
// author: it names what was asked for and what is wrong with it, and carries no password.
class PLXRecordError : public std::runtime_error {
 public:
  enum class Kind {
    kReference,  // a database reference that is closed or was never given
    kName,       // no name for a database or a field
    kExists,     // a database or field of that name is there already
    kNotFound,   // no such database, field or record
    kValue,      // a value that its field cannot hold, or a type that there is not
    kNotUnique,  // the value of a unique field is there already
    kInUse,      // somebody else has the database open, or its engine is busy for longer than patience lasts
    kEnd,        // no record that way: the move ended at either end of the found set
    kSearch,     // a search expression that does not parse, or names what is not there
    kFile,       // a file of an exchange
    kEngine,     // the engine refused: a full disk, a missing right, a damaged file
    kNotReachable,  // the data source cannot be reached
  };
  PLXRecordError(Kind kind_i, std::string const& sentence_i)
      : std::runtime_error(sentence_i), myKind(kind_i) {}
  // What an engine said.
  explicit PLXRecordError(PLXSQLError const& error_i)
      : std::runtime_error(error_i.what()), myKind(KindOf(error_i.GetKind())) {}

  Kind GetKind() const { return myKind; }

 private:
  static Kind KindOf(PLXSQLError::Kind kind_i) {
    switch (kind_i) {
      case PLXSQLError::Kind::kNotUnique:
        return Kind::kNotUnique;
      case PLXSQLError::Kind::kBusy:
        return Kind::kInUse;
      case PLXSQLError::Kind::kLost:
        return Kind::kNotReachable;
      case PLXSQLError::Kind::kOther:
        break;
    }
    return Kind::kEngine;
  }

  Kind myKind;
};
