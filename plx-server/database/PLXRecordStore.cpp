#include "PLXRecordStore.h"

#include "PLXODBC.h"
#include "PLXSQLite.h"

namespace {

std::string HexadecimalDigest(std::string const& text_i) {
  // A key text beyond the limit of short ones is a digest.
  return PLXRecordKeyText(text_i + std::string(512, '\n')).substr(1, 32);
}

}  // namespace

PLXRecordStore::PLXRecordStore(PLXSQLPool::Maker maker_i, std::filesystem::path const& lockFile_i)
    : myMaker(maker_i), myLockFile(lockFile_i), myPool(std::move(maker_i)) {}

void PLXRecordStore::Connect() {
  Converted([this] { Prepare(); });
}

void PLXRecordStore::Prepare() {
  if (isPrepared) return;
  std::lock_guard const lock(myMutex);
  if (isPrepared) return;
  myDialect = myPool.Write([](PLXSQLConnection& connection_io) {
    PLXRecordCatalogue::Prepare(connection_io);
    return connection_io.GetDialect();
  });
  std::unique_ptr<PLXServerLocks> servers;
  if (myDialect == PLXSQLDialect::kPostgreSQL) {
    servers = std::make_unique<PLXAdvisoryLocks>(myMaker);
  } else {
    servers = std::make_unique<PLXFileLocks>(myLockFile);
  }
  myLocks = std::make_unique<PLXRecordLocks>(std::move(servers));
  isPrepared = true;
}

PLXRecordLocks& PLXRecordStore::Locks() {
  Connect();
  return *myLocks;
}

std::vector<std::string> PLXRecordStore::Names() {
  return Read([](PLXSQLConnection& connection_io) { return PLXRecordCatalogue::Names(connection_io); });
}

void PLXRecordStore::Create(std::string_view name_i) {
  bool const isNew = Write(
      [&](PLXSQLConnection& connection_io) { return PLXRecordCatalogue::Create(connection_io, name_i); });
  if (isNew) return;
  throw PLXRecordError(PLXRecordError::Kind::kExists,
                       "There is a database \"" + std::string(name_i) + "\" already.");
}

void PLXRecordStore::Delete(std::string_view name_i) {
  PLXRecordCatalogue::CheckDatabaseName(name_i);
  std::string const key = PLXRecordNameKey(name_i);
  // Nobody else is this owner, so the lock waits for everybody.
  Locks().Take(key, PLXRecordAccess::kExclusive, &key);
  struct Release {
    PLXRecordLocks& locks;
    std::string const& key;
    ~Release() { locks.Release(key, PLXRecordAccess::kExclusive, &key); }
  } const release{*myLocks, key};
  Write([&](PLXSQLConnection& connection_io) {
    auto const definition = PLXRecordCatalogue::Find(connection_io, name_i);
    if (!definition) {
      throw PLXRecordError(PLXRecordError::Kind::kNotFound,
                           "There is no database \"" + std::string(name_i) + "\".");
    }
    PLXRecordCatalogue::Delete(connection_io, *definition);
  });
}

std::shared_ptr<PLXRecordStore> PLXRecordEngine::Make(std::string const& source_i, std::string const& user_i,
                                                      std::string const& password_i) const {
  if (source_i.empty()) {
    std::filesystem::path const file = mySettings.folder / "records.sqlite";
    return std::make_shared<PLXRecordStore>([file] { return std::make_unique<PLXSQLite>(file); },
                                            mySettings.folder / "records.locks");
  }
  return std::make_shared<PLXRecordStore>(
      [source_i, user_i, password_i] { return std::make_unique<PLXODBC>(source_i, user_i, password_i); },
      mySettings.folder / ("records-" + HexadecimalDigest(source_i) + ".locks"));
}

std::shared_ptr<PLXRecordStore> PLXRecordEngine::Store(std::string_view source_i, std::string_view user_i,
                                                       std::string_view password_i) {
  bool const isDefault = source_i.empty();
  std::string const source(isDefault ? std::string_view(mySettings.source) : source_i);
  std::string const user(isDefault ? std::string_view(mySettings.user) : user_i);
  std::string const password(isDefault ? std::string_view(mySettings.password) : password_i);
  std::string key = source;
  key.append(1, '\0').append(user).append(1, '\0').append(password);
  {
    std::lock_guard const lock(myMutex);
    if (auto const found = myStores.find(key); found != myStores.end()) return found->second;
  }
  // Reached before it is kept: what a page names wrongly leaves nothing behind. Two pages may come here at
  // once; the first store that is kept serves both.
  std::shared_ptr<PLXRecordStore> store = Make(source, user, password);
  store->Connect();
  std::lock_guard const lock(myMutex);
  return myStores.emplace(std::move(key), std::move(store)).first->second;
}
