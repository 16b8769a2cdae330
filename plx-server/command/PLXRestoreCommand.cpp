#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <grp.h>
#include <iostream>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "PLXBackupCommand.h"
#include "PLXBackupManifest.h"
#include "PLXCommandLine.h"
#include "PLXFileSwap.h"
#include "PLXJSONText.h"
#include "PLXServer.h"
#include "PLXSite.h"
#include "PLXStateLock.h"
#include "PLXStateVersion.h"
#include "PLXUninterrupted.h"

namespace fs = std::filesystem;

namespace {

constexpr char const* kStateFiles[] = {"preferences.sqlite",
                                       "preferences.sqlite-wal",
                                       "preferences.sqlite-shm",
                                       "preferences-shared.sqlite",
                                       "preferences-shared.sqlite-wal",
                                       "preferences-shared.sqlite-shm",
                                       "records.sqlite",
                                       "records.sqlite-wal",
                                       "records.sqlite-shm",
                                       "version"};
constexpr char const* kSharedFolders[] = {"logins", "regions"};

bool Exists(fs::path const& path_i) {
  std::error_code ignored;
  return fs::exists(fs::symlink_status(path_i, ignored));
}

// What is written becomes the state owner's even when root restores, and is written with no more rights than
// the owner has, who could have put links in the way. What is read may be root's alone.
class OwnersRights {
 public:
  explicit OwnersRights(fs::path const& state_i) {
    struct stat status {};
    if (::geteuid() != 0 || ::stat(state_i.c_str(), &status) != 0 || status.st_uid == 0) return;
    myOwner = status.st_uid;
    if (::setgroups(0, nullptr) != 0 || ::setegid(status.st_gid) != 0 || ::seteuid(myOwner) != 0) {
      throw PLXCopyError(state_i.string() + ": this process cannot work as the owner of the state folder.");
    }
  }
  int OpenSource(fs::path const& file_i) const {
    if (myOwner != 0 && ::seteuid(0) != 0) return -1;
    int const file = PLXUninterrupted(
        [&] { return ::open(file_i.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW); });
    int const error = errno;
    if (myOwner != 0 && ::seteuid(myOwner) != 0) throw PLXCopyError("The rights of the owner are lost.");
    errno = error;
    return file;
  }

 private:
  uid_t myOwner = 0;
};

class Restore {
 public:
  Restore(PLXConfiguration const& configuration_i, PLXBackupRequest const& request_i,
          PLXBackupManifest manifest_i)
      : myState(fs::absolute(configuration_i.state).lexically_normal()),
        myShared(fs::absolute(configuration_i.SharedFolder()).lexically_normal()),
        myBackup(request_i.folder),
        myManifest(std::move(manifest_i)),
        mySites(configuration_i),
        myIsStateOnly(request_i.isStateOnly) {
    myFormer = PLXDatedPath(myState, "before-restore-").filename().string();
  }

  // Names of sites that the configuration lacks, with a comma between them.
  std::string MissingSites() const {
    std::string missing;
    for (auto const& entry : myManifest.places) {
      std::string const& name = entry.second.site;
      bool const isThere =
          std::ranges::any_of(mySites.All(), [&](auto const& site) { return site->Name() == name; });
      if (isThere || myIsStateOnly || missing.find(name) != std::string::npos) continue;
      missing += (missing.empty() ? "" : ", ") + name;
    }
    return missing;
  }

  // Throws PLXBackupError when a file is not what the manifest says.
  void Verify() const {
    PLXProgress progress("Compared");
    for (auto const& [path, file] : myManifest.files) {
      PLXTreeCopy::File const found =
          PLXTreeCopy::Read(myBackup / path, [&](std::uint64_t bytes) { progress.Add(bytes); });
      Compare(path, found);
    }
  }

  // Makes everything ready beside its place, then swaps. Throws PLXCopyError, PLXBackupError, PLXSwapError,
  // and as PrepareFolders does.
  void Run(PLXConfiguration const& configuration_i) {
    OwnersRights const rights(myState);
    PrepareFolders(configuration_i);
    PLXStateLock const lock(myState);
    PLXFinishSwaps(myState);
    Plan();
    PLXPrepareSwaps(myState, mySwaps);
    try {
      Stage(rights);
    } catch (...) {
      PLXFinishSwaps(myState);
      throw;
    }
    PLXCommitSwaps(myState);
    PLXFinishSwaps(myState);
    std::error_code ignored;
    fs::remove(PLXSwapFolder(myShared), ignored);
  }

  PLXBackupManifest const& Manifest() const { return myManifest; }
  // The names under which is kept what was there.
  std::vector<fs::path> Former() const {
    std::vector<fs::path> former;
    for (fs::path const& folder : {myState / myFormer, myShared / myFormer}) {
      if (Exists(folder) && std::ranges::find(former, folder) == former.end()) former.push_back(folder);
    }
    for (PLXFileSwap const& swap : mySwaps) {
      if (swap.former.parent_path() == swap.place.parent_path() && Exists(swap.former))
        former.push_back(swap.former);
    }
    return former;
  }

 private:
  // Where the files of a part of the backup are put together: the folder, by the beginning of their paths.
  struct Part {
    std::string prefix;
    fs::path ready;
  };

  static std::string Sentence(std::string const& path_i) {
    return path_i +
           ": this file of the backup is not what it was when the backup was made. Use another backup.";
  }
  void Compare(std::string const& path_i, PLXTreeCopy::File const& found_i) const {
    PLXTreeCopy::File const& file = myManifest.files.at(path_i);
    if (found_i.size != file.size || found_i.digest != file.digest) throw PLXBackupError(Sentence(path_i));
  }
  bool HasFiles(std::string const& prefix_i) const {
    auto const next = myManifest.files.lower_bound(prefix_i);
    return next != myManifest.files.end() && next->first.starts_with(prefix_i);
  }

  void Plan() {
    for (char const* const name : kStateFiles) {
      Add(std::string("state/") + name, PLXSwapFolder(myState) / name, myState / name,
          myState / myFormer / name);
    }
    for (char const* const name : kSharedFolders) {
      Add(std::string("state/") + name + "/", PLXSwapFolder(myShared) / name, myShared / name,
          myShared / myFormer / name);
    }
    if (!myIsStateOnly) PlanSites();
  }
  void Add(std::string const& prefix_i, fs::path const& ready_i, fs::path const& place_i,
           fs::path const& former_i) {
    bool const isReady = HasFiles(prefix_i) || prefix_i.starts_with("sites/");
    if (!isReady && !Exists(place_i)) return;
    mySwaps.push_back({isReady ? ready_i : fs::path(), place_i, former_i});
    if (isReady) myParts.push_back({prefix_i, ready_i});
  }
  // Hidden names beside the folder's own, so that nothing is copied between file systems and nobody is served
  // what is kept.
  void PlanSites() {
    for (auto const& site : mySites.All()) {
      std::vector<fs::path> leaving = site->KeptFolders();
      for (auto const& [folder, place] : myManifest.places) {
        if (place.site != site->Name()) continue;
        fs::path const path = (site->Root() / place.path / "").parent_path();
        std::erase(leaving, path);
        AddFolder(folder + "/", path);
      }
      for (fs::path const& path : leaving) AddFolder("", path);
    }
  }
  void AddFolder(std::string const& prefix_i, fs::path const& path_i) {
    std::string const name = path_i.filename().string();
    fs::path const parent = path_i.parent_path();
    Add(prefix_i.empty() ? "none" : prefix_i, parent / (".plx-restoring-" + name), path_i,
        parent / ("." + name + "." + myFormer));
  }

  void Stage(OwnersRights const& rights_i) {
    PLXProgress progress("Copied");
    for (Part const& part : myParts) {
      bool const isFolder = part.prefix.ends_with('/');
      fs::path const target = isFolder ? part.ready : part.ready.parent_path();
      std::error_code error;
      fs::remove_all(part.ready, error);
      fs::create_directories(target, error);
      if (error)
        throw PLXCopyError(target.string() + ": the folder cannot be made (" + error.message() + ").");
      PLXTreeCopy copy(target, [&](std::uint64_t bytes) { progress.Add(bytes); });
      auto at = myManifest.files.lower_bound(part.prefix);
      for (; at != myManifest.files.end() && at->first.starts_with(part.prefix); ++at) {
        if (!isFolder && at->first != part.prefix) continue;
        StageFile(rights_i, at->first,
                  isFolder ? at->first.substr(part.prefix.size()) : part.ready.filename().string(), copy);
      }
      copy.Synchronize();
    }
  }
  void StageFile(OwnersRights const& rights_i, std::string const& path_i, std::string const& as_i,
                 PLXTreeCopy& copy_io) const {
    int const source = rights_i.OpenSource(myBackup / path_i);
    if (source < 0)
      throw PLXCopyError((myBackup / path_i).string() + ": cannot be read (" + std::strerror(errno) + ").");
    try {
      copy_io.AddOpenFile(source, as_i);
    } catch (...) {
      ::close(source);
      throw;
    }
    ::close(source);
    Compare(path_i, copy_io.All().at(as_i));
  }

  fs::path const myState;
  fs::path const myShared;
  fs::path const myBackup;
  PLXBackupManifest const myManifest;
  PLXSites const mySites;
  bool const myIsStateOnly;
  std::string myFormer;
  std::vector<PLXFileSwap> mySwaps;
  std::vector<Part> myParts;
};

void Tell(Restore const& restore_i, PLXConfiguration const& configuration_i, bool isJSON_i) {
  PLXBackupManifest const& manifest = restore_i.Manifest();
  if (manifest.hasRecords != configuration_i.recordsSource.empty()) {
    std::cerr
        << (manifest.hasRecords
                ? "The backup's record databases are in the state now, but the key \"records-source\" names "
                  "others, which were left as they are."
                : "The record databases and preferences are not in this backup: they were in a data source "
                  "of their own. "
                  "Restore that with its own means and name it with the key \"records-source\".")
        << std::endl;
  } else if (!manifest.hasRecords) {
    std::cerr
        << "The record databases and preferences are not in this backup; their data source was left as it is."
        << std::endl;
  }
  std::vector<fs::path> const former = restore_i.Former();
  if (isJSON_i) {
    std::cout << "{\"state\": " << PLXJSONText(configuration_i.state.string())
              << ", \"made\": " << PLXJSONText(manifest.made) << ", \"files\": " << manifest.files.size()
              << ", \"bytes\": " << manifest.Bytes() << ", \"kept\": [";
    for (std::size_t index = 0; index < former.size(); ++index) {
      std::cout << (index > 0 ? ", " : "") << PLXJSONText(former[index].string());
    }
    std::cout << "]}\n" << std::flush;
    return;
  }
  std::cout << configuration_i.state.string() << " is as it was in the backup of " << manifest.made << ": "
            << manifest.files.size() << " files, " << PLXSizeText(manifest.Bytes()) << ".\n";
  for (fs::path const& path : former)
    std::cout << "What was there before is kept in " << path.string() << "\n";
  std::cout << std::flush;
}

// Exit code and sentence for a backup that does not fit; good when it does.
int Refuse(Restore const& restore_i, fs::path const& folder_i) {
  std::string const problem = PLXSchemaProblem(restore_i.Manifest().stateVersion, folder_i.string());
  if (restore_i.Manifest().stateVersion > kPLXSchemaVersion) return PLXFail(kExitConfiguration, problem);
  std::string const missing = restore_i.MissingSites();
  if (missing.empty()) return kExitGood;
  return PLXFail(kExitConfiguration,
                 "the backup holds files of sites that the configuration lacks: " + missing +
                     ". Configure them first, or leave all sites' folders as they are with --state-only.");
}

}  // namespace

int PLXRestore(PLXConfiguration const& configuration_i, PLXBackupRequest const& request_i) {
  fs::path const& state = configuration_i.state;
  if (auto const user = StateUser(state)) {
    return PLXFail(kExitUnavailable, state.string() + ": a server uses this folder (process " + *user +
                                         "). Stop it first; nothing was changed.");
  }
  try {
    Restore restore(configuration_i, request_i, PLXBackupManifest::Read(request_i.folder));
    int const code = Refuse(restore, request_i.folder);
    if (code != kExitGood) return code;
    restore.Verify();
    restore.Run(configuration_i);
    Tell(restore, configuration_i, request_i.isJSON);
  } catch (PLXUnavailable const& error) {
    return PLXFail(kExitUnavailable, error.what());
  } catch (PLXBackupError const& error) {
    return PLXFail(kExitInputOutput, std::string(error.what()) + " Nothing was changed.");
  } catch (PLXCopyError const& error) {
    return PLXFail(kExitInputOutput, std::string(error.what()) + " Nothing was changed.");
  } catch (PLXSwapError const& error) {
    return PLXFail(kExitInputOutput,
                   std::string(error.what()) +
                       " Mend that, then start the server or restore again: either finishes it.");
  } catch (std::runtime_error const& error) {
    return PLXFail(kExitCannotCreate, error.what());
  }
  return kExitGood;
}
