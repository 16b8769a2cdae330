#pragma once

#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <shared_mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

class PLXSQLite;

// What modules keep per region: names and texts of any bytes but zero, names compared exactly.
//
// Kept in SQLite and in memory: a read costs a look-up, a write returns when it is on the disk. Any thread.
class PLXPreferenceStore {
 public:
  // Throws PLXSQLError when the file cannot be used, or is of another version.
  explicit PLXPreferenceStore(std::filesystem::path const& file_i);
  ~PLXPreferenceStore();

  // `owner_i` is the module's name, `region_i` PLXRegion::Key.
  std::optional<std::string> Get(std::string_view region_i, std::string_view owner_i,
                                 std::string_view name_i) const;
  // False when the disk refused; then nothing has changed, and the log says why.
  bool Set(std::string_view region_i, std::string_view owner_i, std::string_view name_i,
           std::string_view value_i);
  // True when the preference is gone, whether or not it was there.
  bool Remove(std::string_view region_i, std::string_view owner_i, std::string_view name_i);

 private:
  void Prepare(std::string const& file_i);

  using Key = std::string;                           // region, owner and name, each followed by a zero byte
  std::mutex myWriting;                              // one write at a time; taken before myMutex
  mutable std::shared_mutex myMutex;                 // held for look-ups and never while the disk works
  std::map<Key, std::string, std::less<>> myValues;  // guarded by myMutex, changed under both
  std::unique_ptr<PLXSQLite> myDatabase;             // guarded by myWriting
};
