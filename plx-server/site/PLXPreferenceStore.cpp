#include "PLXPreferenceStore.h"

#include <mutex>

#include "PLXLog.h"
#include "PLXSQLite.h"
#include "PLXSchemaVersion.h"

namespace {

constexpr char kCreate[] =
    "CREATE TABLE IF NOT EXISTS preference (region TEXT NOT NULL, owner TEXT NOT NULL, name TEXT NOT NULL,"
    " value TEXT NOT NULL, PRIMARY KEY (region, owner, name)) WITHOUT ROWID";
constexpr char kSet[] =
    "INSERT INTO preference (region, owner, name, value) VALUES (?, ?, ?, ?)"
    " ON CONFLICT (region, owner, name) DO UPDATE SET value = excluded.value";
constexpr char kRemove[] = "DELETE FROM preference WHERE region = ? AND owner = ? AND name = ?";

bool HasZero(std::string_view text_i) { return text_i.find('\0') != std::string_view::npos; }

std::string KeyOf(std::string_view region_i, std::string_view owner_i, std::string_view name_i) {
  std::string key;
  key.reserve(region_i.size() + owner_i.size() + name_i.size() + 3);
  for (std::string_view const part : {region_i, owner_i, name_i}) key.append(part).push_back('\0');
  return key;
}

}  // namespace

PLXPreferenceStore::PLXPreferenceStore(std::filesystem::path const& file_i)
    : myDatabase(std::make_unique<PLXSQLite>(file_i)) {
  Prepare(file_i.string());
  myDatabase->Run("SELECT region, owner, name, value FROM preference", {}, [this](PLXSQLRow& row_io) {
    auto const text = [&row_io](std::size_t index) -> std::string& {
      return std::get<std::string>(row_io[index]);
    };
    myValues.insert_or_assign(KeyOf(text(0), text(1), text(2)), std::move(text(3)));
  });
}

PLXPreferenceStore::~PLXPreferenceStore() = default;

void PLXPreferenceStore::Prepare(std::string const& file_i) {
  bool isNew = true;
  myDatabase->Run("SELECT 1 FROM sqlite_schema", {}, [&isNew](PLXSQLRow&) { isNew = false; });
  if (!isNew) return PLXCheckSchema(*myDatabase, file_i);
  PLXSQLTransaction transaction(*myDatabase);
  myDatabase->Run(kCreate);
  PLXMarkSchema(*myDatabase);
  transaction.Commit();
}

std::optional<std::string> PLXPreferenceStore::Get(std::string_view region_i, std::string_view owner_i,
                                                   std::string_view name_i) const {
  std::string const key = KeyOf(region_i, owner_i, name_i);
  std::shared_lock const lock(myMutex);
  auto const found = myValues.find(key);
  if (found == myValues.end()) return std::nullopt;
  return found->second;
}

bool PLXPreferenceStore::Set(std::string_view region_i, std::string_view owner_i, std::string_view name_i,
                             std::string_view value_i) {
  if (HasZero(region_i) || HasZero(owner_i) || HasZero(name_i) || HasZero(value_i)) {
    PLXLog::Warning("A preference with a zero byte was not kept: " + std::string(name_i));
    return false;
  }
  std::string key = KeyOf(region_i, owner_i, name_i);
  std::lock_guard const writing(myWriting);
  {
    std::shared_lock const lock(myMutex);
    auto const found = myValues.find(key);
    if (found != myValues.end() && found->second == value_i) return true;  // on the disk already
  }
  PLXSQLParameter const values[] = {region_i, owner_i, name_i, value_i};
  try {
    myDatabase->Run(kSet, values);
  } catch (PLXSQLError const& error) {
    PLXLog::Error("The preference " + std::string(name_i) + " of " + std::string(region_i) +
                  " was not kept: " + error.what());
    return false;
  }
  std::unique_lock const lock(myMutex);
  myValues.insert_or_assign(std::move(key), std::string(value_i));
  return true;
}

bool PLXPreferenceStore::Remove(std::string_view region_i, std::string_view owner_i,
                                std::string_view name_i) {
  if (HasZero(region_i) || HasZero(owner_i) || HasZero(name_i)) return true;  // never there
  std::string const key = KeyOf(region_i, owner_i, name_i);
  PLXSQLParameter const values[] = {region_i, owner_i, name_i};
  std::lock_guard const writing(myWriting);
  try {
    myDatabase->Run(kRemove, values);
  } catch (PLXSQLError const& error) {
    PLXLog::Error("The preference " + std::string(name_i) + " of " + std::string(region_i) +
                  " was not removed: " + error.what());
    return false;
  }
  std::unique_lock const lock(myMutex);
  myValues.erase(key);
  return true;
}
