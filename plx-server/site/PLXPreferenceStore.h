#pragma once

#include <filesystem>
#include <functional>
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
class PLXSharedPreferences;
class PLXSQLConnection;
struct PLXConfiguration;

// What modules keep per region: names and texts of any bytes but zero, names compared exactly.
//
// Kept in memory and either in an SQLite file or, with the other servers of a farm, in a data source. A read
// costs a look-up, a write returns when it is on a disk. Another server's changes are seen within a second,
// or after Refresh. While the data source does not answer, what was known last is read and nothing can be
// changed. Any thread.
class PLXPreferenceStore {
 public:
  // Throws PLXSQLError when the file cannot be used, or is of another version.
  explicit PLXPreferenceStore(std::filesystem::path const& file_i);
  // Shares them by the data source to which `maker_i` connects. What `file_i`, if there is one, holds is put
  // there once, by the first server that has something; the file is left as it is. `copy_i` is a file that
  // follows the data source, for a start while that is not there. Throws PLXSQLError when it is not and there
  // is no copy either.
  PLXPreferenceStore(std::filesystem::path const& file_i, std::filesystem::path const& copy_i,
                     std::function<std::unique_ptr<PLXSQLConnection>()> maker_i);
  ~PLXPreferenceStore();

  // Where the configuration has them.
  static std::unique_ptr<PLXPreferenceStore> Open(PLXConfiguration const& configuration_i);

  // `owner_i` is the module's name, `region_i` PLXRegion::Key.
  std::optional<std::string> Get(std::string_view region_i, std::string_view owner_i,
                                 std::string_view name_i) const;
  // False when the disk refused; then nothing has changed, and the log says why.
  bool Set(std::string_view region_i, std::string_view owner_i, std::string_view name_i,
           std::string_view value_i);
  // True when the preference is gone, whether or not it was there.
  bool Remove(std::string_view region_i, std::string_view owner_i, std::string_view name_i);
  // What any server has kept until now is read from here on.
  void Refresh();

 private:
  using Key = std::string;  // region, owner and name, each followed by a zero byte
  using Values = std::map<Key, std::string, std::less<>>;
  struct Change;  // of one preference

  void Prepare(std::string const& file_i);
  bool Keep(Change const& change_i);
  void Store(Change const& change_i);
  void Install(Values values_i);

  std::mutex myWriting;                   // one write at a time; taken before myMutex
  mutable std::shared_mutex myMutex;      // held for look-ups and never while the disk works
  Values myValues;                        // guarded by myMutex, changed under both
  std::unique_ptr<PLXSQLite> myDatabase;  // the file, or the copy of what is shared; guarded by myWriting
  std::unique_ptr<PLXSharedPreferences> myShared;
};
