#include "PLXEnvironment.h"

PLXUInt32 PLXEnvironment::GetOperatingSystem() noexcept {
#if defined(__linux__)
  return FourCC("Linx");
#elif defined(__APPLE__)
  return FourCC("MaXS");
#else
  return 0;
#endif
}
