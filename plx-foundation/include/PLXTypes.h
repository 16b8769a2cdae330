#pragma once

#include <cstddef>
#include <cstdint>

// The fixed-width integers of every interface, as the host's header spells them too.
typedef std::uint8_t PLXUInt8;
typedef std::int8_t PLXSInt8;
typedef std::uint16_t PLXUInt16;
typedef std::int16_t PLXSInt16;
typedef std::uint32_t PLXUInt32;
typedef std::int32_t PLXSInt32;

// A four-character code: a 32-bit integer whose bytes, most significant first, spell four characters.
// FourCC("MTag") is 0x4D546167 on every machine.
consteval PLXUInt32 FourCC(char const (&text_i)[5]) {
  PLXUInt32 code = 0;
  for (int index = 0; index < 4; ++index) {
    code = code << 8 | static_cast<unsigned char>(text_i[index]);
  }
  return code;
}

// Options of searching, comparing and replacing.
inline constexpr unsigned kPLXOption_IgnoreCase = 1;
inline constexpr unsigned kPLXOption_Backward = 2;
inline constexpr unsigned kPLXOption_SearchInserted =
    4;  // of ReplaceAll: the inserted text is searched again

// "As far as there is": a count that every operation clamps.
inline constexpr PLXUInt32 kPLXWholeLength = 0xFFFFFFFF;
