#pragma once

#include <string>

#include "PLXRecordCursor.h"
#include "PLXRequest.h"

// The record databases as the administration shows them: all of them, the fields and records of one, one
// record in full, and the question before a record is deleted. Any thread.
class PLXRecordsAdministration {
 public:
  static constexpr std::string_view kPath = "/plx-admin/databases";

  explicit PLXRecordsAdministration(PLXRecordEngine& engine_i) : myEngine(engine_i) {}

  // The title and body of the page that the request's arguments ask for. A POST deletes the record that they
  // name and leaves the address to go to. What cannot be done is told on the page.
  struct Page {
    std::string title;
    std::string body;      // HTML
    std::string redirect;  // not empty: go there instead
  };
  Page Answer(PLXRequest const& request_i);

 private:
  struct View;
  Page All();
  Page Database(View const& view_i);
  Page Record(View const& view_i);
  Page Delete(View const& view_i, PLXRequest const& request_i);
  std::unique_ptr<PLXRecordCursor> Open(std::string const& name_i);

  PLXRecordEngine& myEngine;
};
