#pragma once

#include <ostream>

#include "PLXString.h"
#include "PLXStringID.h"

// How failures show the foundation's types.
inline void PrintTo(PLXString const& string_i, std::ostream* stream_io) {
  stream_io->put('"').write(string_i.GetCStringAccess(), string_i.GetLength()).put('"');
}
inline void PrintTo(PLXStringID const& id_i, std::ostream* stream_io) {
  *stream_io << id_i.GetCStringAccess() << " (" << id_i.GetID() << ")";
}
