#pragma once

#include "PLXObject.h"

// What the program runs on.
class PLXEnvironment : public PLXObject {
 public:
  // The operating system this was built for: 'Linx' for Linux, 'MaXS' for Darwin, 0 for any other.
  static PLXUInt32 GetOperatingSystem() noexcept;
};
