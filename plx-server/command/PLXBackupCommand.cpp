#include "PLXBackupCommand.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <fstream>
#include <iostream>
#include <sys/stat.h>
#include <unistd.h>

#include "PLXBackupManifest.h"
#include "PLXCommandLine.h"
#include "PLXJSONText.h"
#include "PLXSQLConnection.h"
#include "PLXSite.h"
#include "PLXStateVersion.h"
#include "PLXWholeFile.h"

// The order makes a backup of a running server whole. Mail is in the outbox before it is in the folder of
// failed mail and then in the list, so outboxes are copied first and the databases last: whatever moves on
// meanwhile is found again where it goes. A record may name a file that came after its folder's turn, so the
// folders get a second look when the databases are done.

namespace fs = std::filesystem;

namespace {

std::string Now() {
  std::time_t const now = std::time(nullptr);
  tm broken{};
  ::gmtime_r(&now, &broken);
  char text[32];
  return {text, std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &broken)};
}

class Backup {
 public:
  Backup(PLXConfiguration const& configuration_i, fs::path const& folder_i)
      : myConfiguration(configuration_i),
        mySites(configuration_i),
        myFolder(folder_i),
        myCopy(folder_i, [this](std::uint64_t bytes) { myProgress.Add(bytes); }) {
    FindPlaces();
  }

  PLXBackupManifest Make() {
    fs::path const& state = myConfiguration.state;
    if (!myConfiguration.file.empty()) myCopy.AddFile(myConfiguration.file, "reference/plxserver.conf");
    AddFolders();
    myCopy.AddFolder(myConfiguration.SharedFolder() / "logins", "state/logins");
    for (char const* const name : {"preferences.sqlite", "records.sqlite"}) {
      myCopy.AddDatabase(state / name, std::string("state/") + name);
    }
    AddFolders();
    myCopy.AddFile(state / "version", "state/version");
    myManifest.made = Now();
    myManifest.server = PLX_SERVER_VERSION;
    myManifest.stateVersion = PLXReadStateMark(state);
    myManifest.hasRecords = myConfiguration.recordsSource.empty();
    myManifest.files = myCopy.All();
    WriteManifest();
    myCopy.Synchronize();
    return myManifest;
  }
  std::uint64_t LinksLeftOut() const { return myCopy.LinksLeftOut(); }

 private:
  void FindPlaces() {
    for (auto const& site : mySites.All()) {
      for (fs::path const& folder : site->KeptFolders()) {
        std::string const name = "sites/" + std::to_string(myManifest.places.size() + 1);
        myManifest.places[name] = {site->Name(), folder.lexically_relative(site->Root()).string()};
        myFolders.emplace_back(folder, name);
      }
    }
  }
  void AddFolders() {
    myCopy.AddFolder(myConfiguration.SharedFolder() / "regions", "state/regions");
    for (auto const& [folder, name] : myFolders) myCopy.AddFolder(folder, name);
  }
  void WriteManifest() const {
    fs::path const file = myFolder / PLXBackupManifest::kName;
    if (PLXReplaceFile(file, myManifest.Text())) return;
    throw PLXCopyError(file.string() + ": the file cannot be written (" + std::strerror(errno) + ").");
  }

  PLXConfiguration const& myConfiguration;
  PLXSites const mySites;
  fs::path const myFolder;
  PLXProgress myProgress{"Copied"};
  PLXTreeCopy myCopy;
  PLXBackupManifest myManifest;
  std::vector<std::pair<fs::path, std::string>> myFolders;  // of the sites, and their names in the backup
};

// Where the backup is put together until it is whole.
class UnfinishedFolder {
 public:
  explicit UnfinishedFolder(fs::path const& target_i) : myPath(target_i.string() + ".unfinished-XXXXXX") {
    myIsMade = ::mkdtemp(myPath.data()) != nullptr;
    myReason = std::strerror(errno);
  }
  ~UnfinishedFolder() {
    std::error_code ignored;
    if (myIsMade) fs::remove_all(myPath, ignored);
  }
  UnfinishedFolder(UnfinishedFolder const&) = delete;
  UnfinishedFolder& operator=(UnfinishedFolder const&) = delete;

  bool IsMade() const { return myIsMade; }
  std::string const& Reason() const { return myReason; }
  fs::path Path() const { return myPath; }
  // Nothing that has come under the name meanwhile is replaced.
  bool Rename(fs::path const& target_i) {
    if (::renameat2(AT_FDCWD, myPath.c_str(), AT_FDCWD, target_i.c_str(), RENAME_NOREPLACE) != 0) {
      std::error_code ignored;
      bool const isUnknown = errno == EINVAL || errno == ENOSYS;  // to the file system
      if (!isUnknown || fs::exists(target_i, ignored) || ::rename(myPath.c_str(), target_i.c_str()) != 0) {
        myReason = std::strerror(errno);
        return false;
      }
    }
    myIsMade = false;
    PLXSyncFolder(target_i.parent_path());
    return true;
  }

 private:
  std::string myPath;
  std::string myReason;
  bool myIsMade;
};

void Tell(PLXConfiguration const& configuration_i, PLXBackupManifest const& manifest_i,
          std::uint64_t linksLeftOut_i, fs::path const& target_i, bool isJSON_i) {
  if (!manifest_i.hasRecords) {
    std::cerr << "The record databases and preferences are not in this backup: they are in the data source "
                 "of the key "
                 "\"records-source\". Back that up with its own means, after this command."
              << std::endl;
  }
  if (linksLeftOut_i > 0) {
    std::cerr << linksLeftOut_i << (linksLeftOut_i == 1 ? " link was" : " links were")
              << " left out, and what is behind." << std::endl;
  }
  if (isJSON_i) {
    std::cout << "{\"backup\": " << PLXJSONText(target_i.string())
              << ", \"made\": " << PLXJSONText(manifest_i.made)
              << ", \"state\": " << PLXJSONText(configuration_i.state.string())
              << ", \"files\": " << manifest_i.files.size() << ", \"bytes\": " << manifest_i.Bytes()
              << ", \"records\": " << (manifest_i.hasRecords ? "true" : "false")
              << ", \"linksLeftOut\": " << linksLeftOut_i << "}\n"
              << std::flush;
    return;
  }
  std::cout << target_i.string() << ": " << manifest_i.files.size() << " files, "
            << PLXSizeText(manifest_i.Bytes()) << "\n"
            << std::flush;
}

// Empty when a backup may be made there.
std::string ProblemOf(PLXConfiguration const& configuration_i, fs::path const& target_i) {
  std::error_code error;
  if (fs::exists(fs::symlink_status(target_i, error))) {
    return target_i.string() + " is there already. Name a new folder; a backup never replaces another.";
  }
  if (!fs::is_directory(target_i.parent_path(), error)) {
    return target_i.parent_path().string() + ": there is no such folder to make the backup in.";
  }
  std::string const target = fs::weakly_canonical(target_i, error).string();
  for (char const* const name : {"regions", "logins"}) {
    std::string const folder = fs::weakly_canonical(configuration_i.SharedFolder() / name, error).string();
    if (target.starts_with(folder + "/")) {
      return target_i.string() + " lies in what is to be copied. Name a folder outside the state.";
    }
  }
  return {};
}

}  // namespace

std::string PLXSizeText(std::uint64_t bytes_i) {
  if (bytes_i < 1024) return std::to_string(bytes_i) + (bytes_i == 1 ? " byte" : " bytes");
  double size = static_cast<double>(bytes_i);
  char const* const units[] = {"bytes", "kB", "MB", "GB", "TB"};
  std::size_t unit = 0;
  for (; size >= 1024 && unit + 1 < std::size(units); ++unit) size /= 1024;
  char text[32];
  std::snprintf(text, sizeof text, "%.1f %s", size, units[unit]);
  return text;
}

PLXProgress::PLXProgress(char const* doing_i) : myDoing(doing_i), myIsShown(::isatty(STDERR_FILENO) != 0) {}

PLXProgress::~PLXProgress() {
  if (myHasWritten) std::cerr << "\r\033[K" << std::flush;
}

void PLXProgress::Add(std::uint64_t bytes_i) {
  myBytes += bytes_i;
  auto const now = std::chrono::steady_clock::now();
  if (!myIsShown || now < myNext) return;
  myNext = now + std::chrono::milliseconds(200);
  myHasWritten = true;
  std::cerr << "\r\033[K" << myDoing << " " << PLXSizeText(myBytes) << std::flush;
}

int PLXBackup(PLXConfiguration const& configuration_i, PLXBackupRequest const& request_i) {
  std::error_code error;
  fs::path target = fs::absolute(request_i.folder, error).lexically_normal();
  if (!target.has_filename()) target = target.parent_path();
  if (!fs::is_directory(configuration_i.state, error)) {
    return PLXFail(kExitUnavailable, configuration_i.state.string() +
                                         ": there is no state folder yet, so there is nothing to copy.");
  }
  if (::access(configuration_i.state.c_str(), R_OK | X_OK) != 0) {
    return PLXFail(kExitUnavailable,
                   configuration_i.state.string() +
                       ": the state folder is another user's. Call this command as that user or as root.");
  }
  std::string const problem = ProblemOf(configuration_i, target);
  if (!problem.empty()) return PLXFail(kExitCannotCreate, problem);
  UnfinishedFolder folder(target);
  if (!folder.IsMade()) {
    return PLXFail(kExitCannotCreate, target.parent_path().string() + ": the backup cannot be made here (" +
                                          folder.Reason() + ").");
  }
  try {
    PLXCheckState(configuration_i.state);
    PLXBackupManifest manifest;
    std::uint64_t links = 0;
    {
      Backup backup(configuration_i, folder.Path());
      manifest = backup.Make();
      links = backup.LinksLeftOut();
    }
    if (!folder.Rename(target)) {
      return PLXFail(kExitCannotCreate,
                     target.string() + ": the backup cannot get its name (" + folder.Reason() + ").");
    }
    Tell(configuration_i, manifest, links, target, request_i.isJSON);
  } catch (PLXStateVersionError const& failure) {
    return PLXFail(kExitConfiguration, failure.what());
  } catch (PLXCopyError const& failure) {
    return PLXFail(kExitInputOutput, std::string(failure.what()) + " There is no backup.");
  } catch (PLXSQLError const& failure) {
    return PLXFail(kExitInputOutput, std::string(failure.what()) + " There is no backup.");
  }
  return kExitGood;
}
