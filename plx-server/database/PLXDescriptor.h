#pragma once

#include <unistd.h>

// Owns what `open` returned, -1 included, and closes it.
class PLXDescriptor {
 public:
  explicit PLXDescriptor(int descriptor_i) noexcept : myDescriptor(descriptor_i) {}
  ~PLXDescriptor() {
    if (myDescriptor >= 0) ::close(myDescriptor);
  }
  PLXDescriptor(PLXDescriptor const&) = delete;
  PLXDescriptor& operator=(PLXDescriptor const&) = delete;

  int Get() const noexcept { return myDescriptor; }
  bool IsOpen() const noexcept { return myDescriptor >= 0; }

 private:
  int const myDescriptor;
};
