#pragma once

#include <ostream>
#include <string>

#include "PLXString.h"
#include "PLXStringID.h"

// How failures show the foundation's types.
inline void PrintTo(PLXString const& string_i, std::ostream* stream_io) {
  stream_io->put('"').write(string_i.GetCStringAccess(), string_i.GetLength()).put('"');
}
inline void PrintTo(PLXStringID const& id_i, std::ostream* stream_io) {
  *stream_io << id_i.GetCStringAccess() << " (" << id_i.GetID() << ")";
}

// The bridge between strings of the house and of the standard library.
inline std::string Std(PLXString const& string_i) {
  return {string_i.GetCStringAccess(), string_i.GetLength()};
}
inline std::string Std(PLXBuffer const& buffer_i) {
  return {static_cast<char const*>(buffer_i.GetAddress()), buffer_i.GetSize()};
}
inline PLXString Plx(std::string const& text_i) {
  return PLXString(text_i.data(), static_cast<PLXUInt32>(text_i.size()));
}
