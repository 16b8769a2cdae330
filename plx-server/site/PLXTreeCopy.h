#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <set>
#include <stdexcept>
#include <string>

// A file that cannot be read or written; the sentence names it.
class PLXCopyError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A copy of files that others may change, replace and delete meanwhile: a backup, or what is kept before an
// upgrade.
//
// Nothing follows a link, so that whoever may write below a folder that root copies cannot hand out other
// files; links are counted and left out. A file that is gone when its turn comes is left out, too. An outbox
// is copied before all else of its folder and an index (".idx") before the messages beside it, under its
// lock: what is on its way from one to the other is then in the first or in both. Files half written
// (".plx-...") are nobody's and are left out. Every file is synced and keeps its time; nobody else may read
// it. One thread. Throws PLXCopyError.
class PLXTreeCopy {
 public:
  struct File {
    std::uint64_t size = 0;  // bytes
    std::string digest;      // SHA-256, hexadecimal
  };
  using Files = std::map<std::string, File>;  // by path in the copy, with slashes

  // Copies go below `target_i`, which exists. `progress_i` is told how much has been copied since it was told
  // last, in bytes.
  explicit PLXTreeCopy(std::filesystem::path target_i,
                       std::function<void(std::uint64_t bytes_i)> progress_i = {});

  // The folder and all below it, as the path `as_i` of the copy; nothing when it is not there. A second time
  // it takes what is new or has changed since; what has gone since stays in the copy.
  void AddFolder(std::filesystem::path const& source_i, std::string const& as_i);
  // Nothing when it is not there.
  void AddFile(std::filesystem::path const& source_i, std::string const& as_i);
  // What the descriptor, which stays the caller's, gives from its beginning on.
  void AddOpenFile(int source_i, std::string const& as_i);
  // A SQLite file as it is at one moment, whoever writes to it. Nothing when it is not there. Throws
  // PLXSQLError as well.
  void AddDatabase(std::filesystem::path const& source_i, std::string const& as_i);

  Files const& All() const { return myFiles; }
  std::uint64_t LinksLeftOut() const { return myLinks.size(); }
  // Brings the folders of the copy to the disk, after the files.
  void Synchronize() const;

  // Size and digest of a file. Throws PLXCopyError.
  static File Read(std::filesystem::path const& file_i,
                   std::function<void(std::uint64_t bytes_i)> const& progress_i = {});

 private:
  void AddFolderAt(int folder_i, std::string const& as_i);
  void AddEntry(int folder_i, std::string const& name_i, std::string const& as_i);
  void MakeParents(std::filesystem::path const& file_i) const;

  std::filesystem::path const myTarget;
  std::function<void(std::uint64_t)> const myProgress;
  Files myFiles;
  std::map<std::string, std::string> mySeen;  // what a file was like when it was copied, by path in the copy
  std::set<std::string> myLinks;              // paths that they would have in the copy
};
