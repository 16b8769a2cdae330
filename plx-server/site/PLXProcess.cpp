#include "PLXProcess.h"

#include <grp.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "PLXConfiguration.h"

namespace {

rlim_t ourCoreLimit = 0;  // that the process was started with

bool MayOthers(std::filesystem::path const& path_i, mode_t bits_i) {
  struct stat status {};
  return !path_i.empty() && ::stat(path_i.c_str(), &status) == 0 && (status.st_mode & bits_i) != 0;
}

void AddSharingWarnings(PLXConfiguration const& configuration_i, std::vector<std::string>& warnings_io) {
  std::string const shared = configuration_i.shared.string();
  if (MayOthers(configuration_i.shared, S_IRWXO)) {
    warnings_io.push_back(shared +
                          ": everybody may enter the shared folder, which holds mail and logins. Take that "
                          "right away: chmod o-rwx.");
  }
  if (configuration_i.recordsSource.empty()) {
    warnings_io.push_back(
        shared +
        " is shared with other servers, but records and preferences are not: each server has its own, and "
        "its own list of the failed mail. Name a database for all of them with the key \"records-source\".");
  }
  for (char const* const name : {"regions", "logins"}) {
    std::filesystem::path const own = configuration_i.state / name;
    std::error_code none;
    if (!std::filesystem::exists(own, none) || std::filesystem::is_empty(own, none) || none) continue;
    warnings_io.push_back(own.string() +
                          " is left from before the key \"shared\" and no longer used. Stop the "
                          "server and move what is in it to " +
                          shared + "/" + name + ".");
  }
}

}  // namespace

void KeepProcessToItself() {
  ::umask(077);
  rlimit limit{};
  if (::getrlimit(RLIMIT_CORE, &limit) == 0) {
    ourCoreLimit = limit.rlim_cur;
    limit.rlim_cur = 0;
    ::setrlimit(RLIMIT_CORE, &limit);
  }
  // The limit does not count where the kernel hands core dumps to a program; this does, and it keeps other
  // processes of the same user from reading the memory.
#ifndef __SANITIZE_ADDRESS__  // which attaches to the process at its end, to look for leaks
  ::prctl(PR_SET_DUMPABLE, 0, 0, 0, 0);
#endif
  // A module that is made to start a program gains nothing by one that runs as another user.
  ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
}

void AllowCoreDumps() {
  rlimit limit{};
  if (::getrlimit(RLIMIT_CORE, &limit) == 0) {
    limit.rlim_cur = ourCoreLimit;
    ::setrlimit(RLIMIT_CORE, &limit);
  }
  ::prctl(PR_SET_DUMPABLE, 1, 0, 0, 0);
}

bool BecomeOwnerOf(std::filesystem::path const& folder_i) {
  struct stat status {};
  if (::stat(folder_i.c_str(), &status) != 0) return false;
  if (::geteuid() != 0 || status.st_uid == 0) return status.st_uid == ::geteuid();
  return ::setgroups(0, nullptr) == 0 && ::setgid(status.st_gid) == 0 && ::setuid(status.st_uid) == 0;
}

std::vector<std::string> InstallationWarnings(PLXConfiguration const& configuration_i) {
  std::vector<std::string> warnings;
  if (::geteuid() == 0) {
    warnings.emplace_back(
        "This user is root. Serve as a user that owns nothing but the state folder, for a fault of the "
        "server or a module would otherwise have the whole machine; packaging/plxserver.service does.");
  }
  if (MayOthers(configuration_i.state, S_IRWXG | S_IRWXO)) {
    warnings.push_back(
        configuration_i.state.string() +
        ": others than its user may enter the state folder, which holds mail and logins. Take that "
        "right away: chmod 700.");
  }
  if (!configuration_i.shared.empty()) AddSharingWarnings(configuration_i, warnings);
  if (!configuration_i.recordsPassword.empty() && MayOthers(configuration_i.file, S_IROTH)) {
    warnings.push_back(
        configuration_i.file.string() +
        ": everybody may read this file, which holds a password. Take that right away: chmod o-r.");
  }
  return warnings;
}
