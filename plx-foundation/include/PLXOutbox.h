#pragma once

#include <functional>

#include "PLXFile.h"
#include "PLXFolderSpecification.h"
#include "PLXString.h"

// The outbox of a folder for failed mail: one entry for each message that was handed over and whose outcome
// nobody has taken note of yet, in the folder beside it with ".outbox" behind its name. Whatever becomes of
// the process, a message is in the outbox, in the folder or at its mail server.
//
// An object holds one entry. It keeps the entry's file open and locked, so that an entry without a holder is
// one whose process is gone: those are found by SettleAbandoned, in whatever process and on whatever machine
// shares the folder. One thread at a time; it may be handed to another one.
class PLXOutbox {
 public:
  struct Entry {
    PLXString name;     // of the message in the folder
    PLXString outcome;  // what its holder knew last, as it would have been reported
    PLXString message;  // as it is stored; empty when it lies in the folder
  };

  explicit PLXOutbox(PLXString const& failedMailFolder_i);

  // Takes a new message in, with the outcome to be assumed, one line, until something better is known. On
  // true it survives even the loss of power, under a name that no message in the folder has.
  bool Add(PLXString const& outcome_i, PLXString const& message_i);
  // What became of the message `name_i`, which lies in the folder if anywhere.
  bool SetOutcome(PLXString const& name_i, PLXString const& outcome_i);
  // The outcome has been taken note of.
  void Remove();
  // Of the entry; empty without one.
  PLXString const& GetName() const noexcept { return myName; }

  // Has `settle_i` take note of each entry that nobody holds. One for which it returns true goes.
  void SettleAbandoned(std::function<bool(Entry const&)> const& settle_i) const;

  // The name for a message of this moment: "msg" and the digits of the Julian day, of at most 25 characters.
  // The first one for which `isTaken_i` is false.
  static PLXString ChooseName(std::function<bool(PLXString const&)> const& isTaken_i);

 private:
  bool Store(PLXString const& name_i, PLXString const& outcome_i, PLXString const& message_i,
             PLXFile::ExistingFile existing_i);
  bool MakeFolder();
  bool HasMessage(PLXString const& name_i) const;

  PLXFolderSpecification myFailedMail;
  PLXFolderSpecification myFolder;
  PLXString myName;
  PLXFile myFile;
};
