// Licence plates on the serial line: a Chinese character travels as one byte, its index in a fixed table. No state,
// no I/O.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "byte_writer.h"

namespace businessserver {

constexpr size_t kPlateCharacterCount = 41;
constexpr uint8_t kUnknownCharacter = 255;  // what the line carries for a character outside the table

struct PlateCharacter {
  const char* text;  // UTF-8, for people
  uint16_t gbk;      // as GbkCharacter makes it
};

// A two-byte character as a number: the byte that comes first in the text is the high one.
constexpr uint16_t GbkCharacter(uint8_t first, uint8_t second) { return static_cast<uint16_t>(first << 8 | second); }

// The code of a character (see GbkCharacter), or kUnknownCharacter.
uint8_t iGetCharatorCode(uint16_t character);

// The way back: the table's entry, or null when no character has this code.
const PlateCharacter* PlateCharacterOf(uint8_t code);

constexpr size_t kPlateField = 7;
constexpr size_t kPlateFieldMax = 8;           // of a plate of the long type that begins with a character,
constexpr uint8_t kLongPlateOffset = 0x80;     // whose first byte is its code and this,
constexpr uint8_t kUnknownOfLongPlate = 0x7F;  // or this for a character outside the table
constexpr uint8_t kArmedPolice = '$';          // stands for the letters "WJ" before a character
constexpr uint8_t kLastPlainByte = 0x79;       // Kept: behind a plate's first byte 'z' counts as half a character

// Writes a plate field of kPlateField or kPlateFieldMax bytes. plate is GBK, of any length; long_plate: it is of type
// 19. What the field has no room for is left out; what the plate leaves is 0.
void EncodePlateField(std::string_view plate, bool long_plate, ByteWriter& out);

}  // namespace businessserver
