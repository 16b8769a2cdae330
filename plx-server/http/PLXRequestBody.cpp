#include "PLXRequestBody.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "PLXUninterrupted.h"

PLXRequestBody::~PLXRequestBody() {
  if (myMapping) ::munmap(myMapping, mySize);
  if (myFile >= 0) ::close(myFile);
}

bool PLXRequestBody::Append(std::string_view bytes_i) {
  mySize += bytes_i.size();
  if (myFile < 0 && mySize <= myBytesInMemory) {
    myMemory += bytes_i;
    return true;
  }
  if (myFile < 0) {
    if (!OpenFile() || !WriteOut(myMemory)) return false;
    std::string().swap(myMemory);
  }
  return WriteOut(bytes_i);
}

bool PLXRequestBody::View(std::string_view& bytes_o) {
  if (myFile < 0) {
    bytes_o = myMemory;
    return true;
  }
  if (!myMapping) {
    void* const mapping = ::mmap(nullptr, mySize, PROT_READ, MAP_PRIVATE, myFile, 0);
    if (mapping == MAP_FAILED) return false;
    ::madvise(mapping, mySize, MADV_SEQUENTIAL);
    myMapping = mapping;
  }
  bytes_o = std::string_view(static_cast<char const*>(myMapping), mySize);
  return true;
}

bool PLXRequestBody::OpenFile() {
  myFile = PLXUninterrupted([&] { return ::open(myFolder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600); });
  if (myFile >= 0) return true;
  // Some file systems (overlays, NFS) know no file without a name: make one and take its name off at once.
  std::string name = (myFolder / "body-XXXXXX").string();
  myFile = ::mkostemp(name.data(), O_CLOEXEC);
  if (myFile < 0) return false;
  ::unlink(name.c_str());
  return true;
}

bool PLXRequestBody::WriteOut(std::string_view bytes_i) {
  while (!bytes_i.empty()) {
    ssize_t const written = PLXUninterrupted([&] { return ::write(myFile, bytes_i.data(), bytes_i.size()); });
    if (written <= 0) return false;
    bytes_i.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}
