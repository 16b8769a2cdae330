#pragma once

#include "PLXObject.h"

// Random numbers that nobody can foretell, good enough for keys and for names that must not collide.
//
// Every number comes from the system's own generator, which seeds itself. There is no state in the object:
// any number of threads, and processes that came from one by fork, may use the same one at once.
class PLXRandomNumber : public PLXObject {
 public:
  // Each of the 2^32 values is equally likely. Aborts when the system has no source of random numbers at all.
  PLXUInt32 GetNext() const noexcept;
  // Fills `size_i` bytes, which cost the system one call up to 256. Aborts like GetNext.
  void Fill(void* bytes_o, PLXUInt32 size_i) const noexcept;
};
