#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "PLXPreferenceTable.h"

// The connection of a server to the preferences that it shares with others.
//
// Whoever wants to read asks by Refresh, and at most once a second a thread of this object looks at the
// version: a table that others have changed is read anew and handed over whole. While nobody asks, nothing
// is looked at. A data source that does not answer keeps a reader waiting once, for two seconds; then
// everybody goes on with what is known until it answers again. Any thread.
class PLXSharedPreferences {
 public:
  using Rows = std::vector<PLXPreferenceTable::Row>;
  using Maker = std::function<std::unique_ptr<PLXSQLConnection>()>;
  // Gets the whole table, in the order in which it changed, one call at a time and together with no change
  // of Set and Remove. Must not throw.
  using Install = std::function<void(Rows const&)>;

  PLXSharedPreferences(Maker maker_i, Install install_i);
  // Waits some seconds for an answer that is still outstanding; `install_i` is not called afterwards.
  ~PLXSharedPreferences();
  PLXSharedPreferences(PLXSharedPreferences const&) = delete;
  PLXSharedPreferences& operator=(PLXSharedPreferences const&) = delete;

  // Reads them the first time. Where nobody has ever kept one there, `first_i` are put in before; true when
  // they were. Throws PLXSQLError; then they are read as soon as the source answers.
  bool Load(Rows first_i);

  // What was handed over is at most a second old when this returns, or the source does not answer.
  void Refresh();
  // What was committed before the call has been handed over when this returns, or the source does not answer.
  void RefreshNow();

  // `apply_i` is called once the change is kept, on the thread. Throw PLXSQLError, after a quarter of a
  // minute at most; a change that took longer may still be kept.
  void Set(PLXPreferenceTable::Row const& row_i, std::function<void()> apply_i);
  void Remove(PLXPreferenceTable::Row const& row_i, std::function<void()> apply_i);

 private:
  struct State;
  using Change = std::int64_t(PLXSQLConnection&, PLXPreferenceTable::Row const&);
  void Make(Change* change_i, PLXPreferenceTable::Row const& row_i, std::function<void()> apply_i);

  std::shared_ptr<State> const myState;  // the thread's as well, which may outlast this
};
