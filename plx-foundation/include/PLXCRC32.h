#pragma once

#include "PLXObject.h"
#include "PLXTypes.h"

// The checksum behind string identifiers: the reflected polynomial 0xEDB88320 with a register that starts at
// 0 and is complemented at the end, over a table in which three entries differ from the polynomial's own and
// stay so, because stored identifiers depend on them.
class PLXCRC32 : public PLXObject {
 public:
  void Update(void const* data_i, std::size_t length_i) noexcept;
  // The checksum of all bytes so far; 0xFFFFFFFF for none.
  PLXUInt32 GetValue() const noexcept { return ~myRegister; }

 private:
  PLXUInt32 myRegister = 0;
};
