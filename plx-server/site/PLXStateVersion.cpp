#include "PLXStateVersion.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <fstream>
#include <unistd.h>

#include "PLXFileSwap.h"
#include "PLXSQLite.h"
#include "PLXTreeCopy.h"
#include "PLXWholeFile.h"

namespace fs = std::filesystem;

namespace {

constexpr char kMarkName[] = "version";

struct Part {
  char const* file;
  std::function<void(PLXSQLConnection&)> PLXStateStep::*change;
};
constexpr Part kParts[] = {{"preferences.sqlite", &PLXStateStep::preferences},
                           {"records.sqlite", &PLXStateStep::records}};

bool Exists(fs::path const& path_i) {
  std::error_code ignored;
  return fs::exists(path_i, ignored);
}

void RefuseNewer(std::int64_t version_i, std::int64_t newest_i, fs::path const& what_i) {
  if (version_i <= newest_i) return;
  throw PLXStateVersionError(PLXSchemaProblem(version_i, what_i.string()));
}

// A copy of all that a step may change, whole under its name or not there.
fs::path KeepCopy(fs::path const& state_i, fs::path const& shared_i, std::int64_t version_i) {
  fs::path kept = PLXDatedPath(state_i, "before-upgrade-" + std::to_string(version_i) + "-");
  std::string unfinished = kept.string() + ".unfinished-XXXXXX";
  if (::mkdtemp(unfinished.data()) == nullptr) {
    throw PLXStateVersionError(unfinished + ": the folder for a copy of the old state cannot be made (" +
                               std::strerror(errno) + "). Nothing was changed.");
  }
  try {
    PLXTreeCopy copy(unfinished);
    for (Part const& part : kParts) copy.AddDatabase(state_i / part.file, part.file);
    for (char const* const name : {"logins", "regions"}) copy.AddFolder(shared_i / name, name);
    copy.AddFile(state_i / kMarkName, kMarkName);
    copy.Synchronize();
    fs::rename(unfinished, kept);
  } catch (...) {
    std::error_code ignored;
    fs::remove_all(unfinished, ignored);
    throw;
  }
  PLXSyncFolder(state_i);
  return kept;
}

void ChangePart(fs::path const& file_i, Part const& part_i, std::span<PLXStateStep const> steps_i) {
  PLXSQLite connection(file_i);
  std::int64_t const version = PLXReadSchema(connection);
  for (PLXStateStep const& step : steps_i) {
    if (step.to <= version) continue;
    PLXSQLTransaction transaction(connection);
    if (auto const& change = step.*part_i.change) change(connection);
    PLXMarkSchema(connection, step.to);
    transaction.Commit();
    connection.ForgetStatements();
  }
}

}  // namespace

fs::path PLXDatedPath(fs::path const& folder_i, std::string const& prefix_i) {
  std::time_t const now = std::time(nullptr);
  tm broken{};
  ::localtime_r(&now, &broken);
  char text[32];
  std::string const name =
      prefix_i + std::string(text, std::strftime(text, sizeof text, "%Y-%m-%d-%H%M%S", &broken));
  fs::path path = folder_i / name;
  for (int number = 2; Exists(path); ++number) path = folder_i / (name + "-" + std::to_string(number));
  return path;
}

std::int64_t PLXReadStateMark(fs::path const& state_i) {
  std::ifstream stream(state_i / kMarkName);
  std::int64_t version = 0;
  if (!stream) return 1;
  if (!(stream >> version) || version < 1) {
    throw PLXStateVersionError(
        (state_i / kMarkName).string() +
        ": the file holds no version of a state folder. It should be a number, today " +
        std::to_string(kPLXSchemaVersion) + ".");
  }
  return version;
}

void PLXWriteStateMark(fs::path const& state_i, std::int64_t version_i) {
  fs::path const file = state_i / kMarkName;
  if (PLXReplaceFile(file, std::to_string(version_i) + "\n")) return;
  throw PLXStateVersionError(file.string() + ": the file cannot be written (" + std::strerror(errno) + ").");
}

fs::path PLXUpgradeState(fs::path const& state_i, fs::path const& shared_i,
                         std::span<PLXStateStep const> steps_i) {
  std::int64_t const newest = steps_i.empty() ? kPLXSchemaVersion : steps_i.back().to;
  std::int64_t const mark = PLXReadStateMark(state_i);
  RefuseNewer(mark, newest, state_i);
  std::int64_t oldest = mark;
  for (Part const& part : kParts) {
    if (!Exists(state_i / part.file)) continue;
    PLXSQLite connection(state_i / part.file);
    std::int64_t const version = PLXReadSchema(connection);
    RefuseNewer(version, newest, state_i / part.file);
    oldest = std::min(oldest, version);
  }
  fs::path kept;
  // A folder without databases is a new one.
  bool const isNew = !Exists(state_i / kParts[0].file) && !Exists(state_i / kParts[1].file);
  if (oldest < newest && !isNew) {
    kept = KeepCopy(state_i, shared_i, oldest);
    for (Part const& part : kParts) {
      if (Exists(state_i / part.file)) ChangePart(state_i / part.file, part, steps_i);
    }
    for (PLXStateStep const& step : steps_i) {
      if (step.to > mark && step.folder) step.folder(state_i);
    }
  }
  if (mark != newest || !Exists(state_i / kMarkName)) PLXWriteStateMark(state_i, newest);
  return kept;
}

// Version 1 is where it began.
std::span<PLXStateStep const> PLXStateSteps() { return {}; }

void PLXCheckState(fs::path const& state_i) {
  if (PLXHasUnfinishedSwaps(state_i)) {
    throw PLXStateVersionError(
        state_i.string() +
        ": a restore was interrupted. Start the server, which finishes it, or restore again.");
  }
  std::string const problem = PLXSchemaProblem(PLXReadStateMark(state_i), state_i.string());
  if (!problem.empty()) throw PLXStateVersionError(problem);
}
