#include "PLXRecordSession.h"

#include <atomic>

namespace {

// Counts through the whole process: a reference that was kept beyond its event finds nothing.
std::atomic<std::uint32_t> ourNextReference{1};

// The text up to the next comma, which is taken away with it.
std::string_view TakePart(std::string_view& text_io) {
  std::size_t const comma = text_io.find(',');
  std::string_view const part = text_io.substr(0, comma);
  text_io.remove_prefix(comma == std::string_view::npos ? text_io.size() : comma + 1);
  return part;
}

}  // namespace

void PLXRecordSession::Initialize(std::string_view text_i) {
  std::string_view const source = TakePart(text_i);
  std::string_view const user = TakePart(text_i);
  myStore = myEngine.Store(source, user, text_i);
}

void PLXRecordSession::Terminate() {
  myOpened.clear();
  myStore.reset();
}

PLXRecordStore& PLXRecordSession::Store() {
  if (!myStore) myStore = myEngine.Store();
  return *myStore;
}

std::uint32_t PLXRecordSession::Open(std::string_view name_i, PLXRecordAccess access_i) {
  Store();
  auto cursor = std::make_unique<PLXRecordCursor>(myStore, name_i, access_i, this);
  std::uint32_t reference = 0;
  while (reference == 0 || myOpened.contains(reference)) reference = ourNextReference++;
  myOpened[reference].cursor = std::move(cursor);
  return reference;
}

void PLXRecordSession::Close(std::uint32_t reference_i) {
  Find(reference_i);
  myOpened.erase(reference_i);
}

PLXRecordCursor& PLXRecordSession::Find(std::uint32_t reference_i) {
  auto const found = myOpened.find(reference_i);
  if (found != myOpened.end()) return *found->second.cursor;
  throw PLXRecordError(PLXRecordError::Kind::kReference,
                       "The database reference " + std::to_string(reference_i) + " is not open.");
}

std::string const& PLXRecordSession::Error(std::uint32_t reference_i) const {
  auto const found = myOpened.find(reference_i);
  return found != myOpened.end() && !found->second.error.empty() ? found->second.error : myError;
}

void PLXRecordSession::SetError(std::uint32_t reference_i, std::string const& sentence_i) {
  myError = sentence_i;
  auto const found = myOpened.find(reference_i);
  if (found != myOpened.end()) found->second.error = sentence_i;
}
