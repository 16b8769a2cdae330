#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "PLXRecordCursor.h"

// What one event of a module has open: its databases by reference, and the data source that it chose. One
// thread; what is open is closed with it. Throws PLXRecordError.
class PLXRecordSession {
 public:
  explicit PLXRecordSession(PLXRecordEngine& engine_i) : myEngine(engine_i) {}

  // Chooses the data source of what is opened from now on: "source,user,password". An empty source is the
  // configured one. The source and the user hold no comma; whatever follows the second is the password.
  void Initialize(std::string_view text_i);
  // Closes everything and returns to the configured source.
  void Terminate();
  PLXRecordStore& Store();

  // Returns a reference that is good until it is closed and was never given before. Throws as PLXRecordCursor
  // does.
  std::uint32_t Open(std::string_view name_i, PLXRecordAccess access_i);
  void Close(std::uint32_t reference_i);
  // kReference.
  PLXRecordCursor& Find(std::uint32_t reference_i);

  // The sentence of what failed last on a reference; of what failed last at all when the reference is none of
  // these.
  std::string const& Error(std::uint32_t reference_i) const;
  void SetError(std::uint32_t reference_i, std::string const& sentence_i);

 private:
  struct Opened {
    std::unique_ptr<PLXRecordCursor> cursor;
    std::string error;
  };
  PLXRecordEngine& myEngine;
  std::shared_ptr<PLXRecordStore> myStore;  // null until it is needed
  std::map<std::uint32_t, Opened> myOpened;
  std::string myError;
};
