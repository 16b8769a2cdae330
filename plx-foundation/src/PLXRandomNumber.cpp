#include "PLXRandomNumber.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/random.h>
#include <unistd.h>

#include "PLXAssert.h"

namespace {

char const ourSourceFile[] = "src/PLXRandomNumber.cpp";

// For systems that keep the call from a process, but not the device.
ssize_t ReadDevice(void* buffer_o, std::size_t count_i) noexcept {
  int const device = open("/dev/urandom", O_RDONLY | O_CLOEXEC);
  if (device < 0) return -1;
  ssize_t const count = read(device, buffer_o, count_i);
  close(device);
  return count;
}

}  // namespace

PLXUInt32 PLXRandomNumber::GetNext() const noexcept {
  PLXUInt32 number;
  Fill(&number, sizeof number);
  return number;
}

void PLXRandomNumber::Fill(void* bytes_o, PLXUInt32 size_i) const noexcept {
  auto* bytes = static_cast<PLXUInt8*>(bytes_o);
  while (size_i > 0) {
    ssize_t count = getrandom(bytes, size_i, 0);
    if (count < 0 && errno != EINTR) count = ReadDevice(bytes, size_i);
    if (count > 0) {
      bytes += count;
      size_i -= static_cast<PLXUInt32>(count);
    } else if (count == 0 || errno != EINTR) {
      PLXFailUnexpectedState(ourSourceFile, "No source of random numbers");
    }
  }
}
