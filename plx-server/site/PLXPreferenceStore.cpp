#include "PLXPreferenceStore.h"

#include <mutex>

#include "PLXConfiguration.h"
#include "PLXLog.h"
#include "PLXODBC.h"
#include "PLXSQLite.h"
#include "PLXSchemaVersion.h"
#include "PLXSharedPreferences.h"

namespace {

constexpr char kCreate[] =
    "CREATE TABLE IF NOT EXISTS preference (region TEXT NOT NULL, owner TEXT NOT NULL, name TEXT NOT NULL,"
    " value TEXT NOT NULL, PRIMARY KEY (region, owner, name)) WITHOUT ROWID";
constexpr char kSet[] =
    "INSERT INTO preference (region, owner, name, value) VALUES (?, ?, ?, ?)"
    " ON CONFLICT (region, owner, name) DO UPDATE SET value = excluded.value";
constexpr char kSelect[] = "SELECT region, owner, name, value FROM preference";
constexpr char kRemove[] = "DELETE FROM preference WHERE region = ? AND owner = ? AND name = ?";

bool HasZero(std::string_view text_i) { return text_i.find('\0') != std::string_view::npos; }

std::string KeyOf(std::string_view region_i, std::string_view owner_i, std::string_view name_i) {
  std::string key;
  key.reserve(region_i.size() + owner_i.size() + name_i.size() + 3);
  for (std::string_view const part : {region_i, owner_i, name_i}) key.append(part).push_back('\0');
  return key;
}

using Row = PLXPreferenceTable::Row;

// All of a file; none where there is no file.
std::vector<Row> RowsOf(PLXSQLite& database_io) {
  std::vector<Row> rows;
  database_io.Run(kSelect, {}, [&rows](PLXSQLRow& row_io) {
    auto const text = [&row_io](std::size_t index) {
      return std::move(std::get<std::string>(row_io[index]));
    };
    rows.push_back({text(0), text(1), text(2), text(3)});
  });
  return rows;
}
std::vector<Row> RowsOf(std::filesystem::path const& file_i) {
  std::error_code none;
  if (!std::filesystem::exists(file_i, none)) return {};
  PLXSQLite database(file_i);
  database.Run(kCreate);
  return RowsOf(database);
}

std::map<std::string, std::string, std::less<>> ValuesOf(std::vector<Row> const& rows_i) {
  std::map<std::string, std::string, std::less<>> values;
  for (Row const& row : rows_i) {
    values.insert_or_assign(KeyOf(row.region, row.owner, row.name), row.value);
  }
  return values;
}

// A copy is complete once it has been written the first time.
bool IsComplete(PLXSQLite& copy_io) {
  bool isComplete = false;
  copy_io.Run("PRAGMA user_version", {},
              [&](PLXSQLRow& row_io) { isComplete = row_io.at(0) == PLXSQLValue(std::int64_t{1}); });
  return isComplete;
}

}  // namespace

struct PLXPreferenceStore::Change {
  Row row;
  bool isRemoval;
};

PLXPreferenceStore::PLXPreferenceStore(std::filesystem::path const& file_i)
    : myDatabase(std::make_unique<PLXSQLite>(file_i)) {
  Prepare(file_i.string());
  myValues = ValuesOf(RowsOf(*myDatabase));
}

PLXPreferenceStore::PLXPreferenceStore(std::filesystem::path const& file_i,
                                       std::filesystem::path const& copy_i,
                                       std::function<std::unique_ptr<PLXSQLConnection>()> maker_i)
    : PLXPreferenceStore(copy_i) {
  myShared = std::make_unique<PLXSharedPreferences>(
      std::move(maker_i), [this](std::vector<Row> const& rows_i) { Install(ValuesOf(rows_i)); });
  try {
    if (myShared->Load(RowsOf(file_i))) {
      PLXLog::Note("The preferences of " + file_i.string() + " are now shared by all servers.");
    }
  } catch (PLXSQLError const& error) {
    if (!IsComplete(*myDatabase)) throw;
    PLXLog::Error(std::string("The shared preferences cannot be read: ") + error.what() +
                  " Pages begin with what was known last, and changes are refused.");
  }
}

PLXPreferenceStore::~PLXPreferenceStore() = default;

std::unique_ptr<PLXPreferenceStore> PLXPreferenceStore::Open(PLXConfiguration const& configuration_i) {
  std::filesystem::path const file = configuration_i.state / "preferences.sqlite";
  if (configuration_i.recordsSource.empty()) return std::make_unique<PLXPreferenceStore>(file);
  return std::make_unique<PLXPreferenceStore>(
      file, configuration_i.state / "preferences-shared.sqlite",
      [source = configuration_i.recordsSource, user = configuration_i.recordsUser,
       password = configuration_i.recordsPassword] {
        return std::make_unique<PLXODBC>(source, user, password);
      });
}

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
  if (myShared) myShared->Refresh();
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
  return Keep(
      {{std::string(region_i), std::string(owner_i), std::string(name_i), std::string(value_i)}, false});
}

bool PLXPreferenceStore::Remove(std::string_view region_i, std::string_view owner_i,
                                std::string_view name_i) {
  if (HasZero(region_i) || HasZero(owner_i) || HasZero(name_i)) return true;  // never there
  return Keep({{std::string(region_i), std::string(owner_i), std::string(name_i), {}}, true});
}

bool PLXPreferenceStore::Keep(Change const& change_i) {
  Row const& row = change_i.row;
  try {
    if (!myShared) {
      Store(change_i);
      return true;
    }
    auto const apply = [this, change_i] {
      try {
        Store(change_i);
      } catch (PLXSQLError const& error) {  // of the copy, which the next whole one puts right
        PLXLog::Warning(std::string("The copy of the shared preferences was not written: ") + error.what());
      }
    };
    if (change_i.isRemoval) {
      myShared->Remove(row, apply);
    } else {
      myShared->Set(row, apply);
    }
    return true;
  } catch (PLXSQLError const& error) {
    PLXLog::Error("The preference " + row.name + " of " + row.region + " was not " +
                  (change_i.isRemoval ? "removed: " : "kept: ") + error.what());
    return false;
  }
}

// What is shared counts as soon as the data source has it, whatever becomes of the copy.
void PLXPreferenceStore::Store(Change const& change_i) {
  Row const& row = change_i.row;
  std::string key = KeyOf(row.region, row.owner, row.name);
  std::lock_guard const writing(myWriting);
  auto const take = [&] {
    std::unique_lock const lock(myMutex);
    if (change_i.isRemoval) {
      myValues.erase(key);
    } else {
      myValues.insert_or_assign(key, row.value);
    }
  };
  {
    std::shared_lock const lock(myMutex);
    auto const found = myValues.find(key);
    bool const isThere = found != myValues.end();
    if (change_i.isRemoval ? !isThere : isThere && found->second == row.value) return;  // on the disk already
  }
  if (myShared) take();
  PLXSQLParameter const values[] = {std::string_view(row.region), std::string_view(row.owner),
                                    std::string_view(row.name), std::string_view(row.value)};
  if (change_i.isRemoval) {
    myDatabase->Run(kRemove, std::span(values).first(3));
  } else {
    myDatabase->Run(kSet, values);
  }
  if (!myShared) take();
}

void PLXPreferenceStore::Install(Values values_i) {
  std::lock_guard const writing(myWriting);
  {
    std::unique_lock const lock(myMutex);
    myValues.swap(values_i);
  }
  try {
    PLXSQLTransaction transaction(*myDatabase);
    myDatabase->Run("DELETE FROM preference");
    for (auto const& [key, value] : myValues) {
      std::string_view const text = key;
      std::size_t const owner = text.find('\0') + 1;
      std::size_t const name = text.find('\0', owner) + 1;
      PLXSQLParameter const row[] = {text.substr(0, owner - 1), text.substr(owner, name - 1 - owner),
                                     text.substr(name, text.size() - 1 - name), std::string_view(value)};
      myDatabase->Run(kSet, row);
    }
    myDatabase->Run("PRAGMA user_version = 1");
    transaction.Commit();
  } catch (PLXSQLError const& error) {
    PLXLog::Warning(std::string("The copy of the shared preferences was not written: ") + error.what());
  }
}

void PLXPreferenceStore::Refresh() {
  if (myShared) myShared->RefreshNow();
}
