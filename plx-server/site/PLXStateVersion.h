#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <span>
#include <stdexcept>
#include <string>

#include "PLXSchemaVersion.h"

// A state folder that this program does not know, or whose change failed; the sentence tells what to do.
class PLXStateVersionError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// One change of what a state holds, from the version before `to` to it. Each part is changed on its own and
// marked with the version as soon as it is, so a step that was interrupted goes on at the next start; what is
// missing here does not change. A change of tables runs in a transaction that ends with the mark; the one of
// the folder may meet its own traces.
struct PLXStateStep {
  std::int64_t to;
  std::function<void(PLXSQLConnection&)> preferences;
  std::function<void(PLXSQLConnection&)> records;
  std::function<void(std::filesystem::path const& state_i)> folder;
};

// Brings the state folder from whatever older version it has to today's, which is that of the last step, and
// marks it. What a step is about to change is copied to STATE/before-upgrade-VERSION-DATE/ first. Returns
// that folder, an empty path when nothing was to be done. A newer state is refused before anything is
// touched. Record tables on an ODBC source are changed by PLXRecordCatalogue::Prepare instead.
//
// `shared_i` is the folder of "logins" and "regions". Requires: the state's lock. Throws
// PLXStateVersionError, PLXSQLError and PLXCopyError.
std::filesystem::path PLXUpgradeState(std::filesystem::path const& state_i,
                                      std::filesystem::path const& shared_i,
                                      std::span<PLXStateStep const> steps_i);
// The steps that there have been.
std::span<PLXStateStep const> PLXStateSteps();

// For whoever works beside a server: throws PLXStateVersionError when the folder's mark is not today's, or a
// restore of it was interrupted.
void PLXCheckState(std::filesystem::path const& state_i);

// What the mark of the folder says; 1 without one.
std::int64_t PLXReadStateMark(std::filesystem::path const& state_i);
void PLXWriteStateMark(std::filesystem::path const& state_i, std::int64_t version_i);

// A path in the folder that nothing has yet, for what is kept: the prefix and the date,
// "before-restore-2026-11-24-031500".
std::filesystem::path PLXDatedPath(std::filesystem::path const& folder_i, std::string const& prefix_i);
