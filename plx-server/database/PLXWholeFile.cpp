#include "PLXWholeFile.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <unistd.h>

#include "PLXDescriptor.h"
#include "PLXUninterrupted.h"

bool PLXWriteAll(int file_i, std::string_view bytes_i) {
  while (!bytes_i.empty()) {
    ssize_t const count = PLXUninterrupted([&] { return ::write(file_i, bytes_i.data(), bytes_i.size()); });
    if (count < 0) return false;
    bytes_i.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

bool PLXSyncFolder(std::filesystem::path const& folder_i) {
  char const* const path = folder_i.empty() ? "." : folder_i.c_str();
  PLXDescriptor const folder(
      PLXUninterrupted([&] { return ::open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
  return folder.IsOpen() && PLXUninterrupted([&] { return ::fsync(folder.Get()); }) == 0;
}

bool PLXReplaceFile(std::filesystem::path const& file_i, std::string_view text_i) {
  std::string temporary = file_i.string().append(kPLXTemporarySuffix);
  PLXDescriptor const file(::mkostemp(temporary.data(), O_CLOEXEC));  // mode 0600
  if (!file.IsOpen()) return false;
  if (PLXWriteAll(file.Get(), text_i) && PLXUninterrupted([&] { return ::fsync(file.Get()); }) == 0 &&
      ::rename(temporary.c_str(), file_i.c_str()) == 0) {
    return PLXSyncFolder(file_i.parent_path());
  }
  int const error = errno;
  ::unlink(temporary.c_str());
  errno = error;
  return false;
}
