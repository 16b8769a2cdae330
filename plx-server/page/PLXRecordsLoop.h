#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "PLXRecordCursor.h"
#include "PLXTagProcessor.h"

// One run of <plxRecords database= search= order= limit= offset=>: the records that its body is repeated for.
//
// Opens the database shared, in the configured data source, for as long as it lives; a database that there is
// not is an error here, because a page that shows records makes none. One thread. Throws PLXRecordError, and
// PLXRecordsLoop::Fault for parameters that cannot be read.
class PLXRecordsLoop {
 public:
  struct Fault {
    std::string problem;
    std::string remedy;
  };

  // `outer_i` is the loop that this one stands in, if any; it must outlive this one.
  PLXRecordsLoop(PLXTagOccurrence const& tag_i, PLXPageContext& context_i, PLXRecordsLoop* outer_i);

  // How many records the search found, whatever limit and offset say.
  std::uint64_t Count() const { return myCount; }
  // Stands on the next record that the body is for; false after the last.
  bool Next();
  // A field of the current record; of the outer loop's, when this database has no such field. Empty when none
  // has. What has to be made a text first is made in `kept_o`.
  std::string_view Field(std::string_view name_i, std::string& kept_o);

 private:
  std::string Expression(PLXTagOccurrence const& tag_i) const;

  PLXRecordsLoop* const myOuter;
  std::optional<PLXRecordCursor> myCursor;
  std::uint64_t myCount = 0;
  std::uint64_t myOffset = 0;
  std::uint64_t myLeft = 0;  // how many more the limit lets pass
  bool isBegun = false;
};
