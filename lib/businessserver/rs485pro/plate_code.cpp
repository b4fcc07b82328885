#include "rs485pro/plate_code.h"

#include <cstring>

#include "protocol/parking_result.h"

namespace businessserver {

namespace {

constexpr uint8_t kLastPlainFirstByte = 0x7A;  // a plate that begins above this begins with a character

// In the order of their codes, eight a row from code 0, 8, 16, 24, 32 and 40.
// clang-format off
constexpr PlateCharacter kPlateCharacters[] = {
    {"京", 0xBEA9}, {"津", 0xBDF2}, {"冀", 0xBCBD}, {"晋", 0xBDFA}, {"蒙", 0xC3C9}, {"辽", 0xC1C9}, {"吉", 0xBCAA}, {"黑", 0xBADA},
    {"沪", 0xBBA6}, {"苏", 0xCBD5}, {"浙", 0xD5E3}, {"皖", 0xCDEE}, {"闽", 0xC3F6}, {"赣", 0xB8D3}, {"鲁", 0xC2B3}, {"豫", 0xD4A5},
    {"鄂", 0xB6F5}, {"湘", 0xCFE6}, {"粤", 0xD4C1}, {"桂", 0xB9F0}, {"琼", 0xC7ED}, {"渝", 0xD3E5}, {"川", 0xB4A8}, {"贵", 0xB9F3},
    {"云", 0xD4C6}, {"藏", 0xB2D8}, {"陕", 0xC9C2}, {"甘", 0xB8CA}, {"青", 0xC7E0}, {"宁", 0xC4FE}, {"新", 0xD0C2}, {"港", 0xB8DB},
    {"澳", 0xB0C4}, {"台", 0xCCA8}, {"警", 0xBEAF}, {"使", 0xCAB9}, {"WJ", 0x574A}, {"领", 0xC1EC}, {"学", 0xD1A7}, {"民", 0xC3F1},
    {"航", 0xBABD},
};
// clang-format on
static_assert(sizeof kPlateCharacters / sizeof kPlateCharacters[0] == kPlateCharacterCount);

constexpr bool AllDistinct() {
  for (size_t i = 0; i < kPlateCharacterCount; ++i) {
    for (size_t k = 0; k < i; ++k) {
      if (kPlateCharacters[i].gbk == kPlateCharacters[k].gbk) return false;
    }
  }
  return true;
}
static_assert(AllDistinct());

// A byte of the plate; 0, its terminator, beyond its end.
uint8_t ByteAt(std::string_view plate, size_t index) {
  return index < plate.size() ? static_cast<uint8_t>(plate[index]) : 0;
}

uint8_t CodeAt(std::string_view plate, size_t index) {
  return iGetCharatorCode(GbkCharacter(ByteAt(plate, index), ByteAt(plate, index + 1)));
}

uint8_t LongPlateCode(uint8_t code) {
  return code == kUnknownCharacter ? kUnknownOfLongPlate : static_cast<uint8_t>(kLongPlateOffset + code);
}

}  // namespace

uint8_t iGetCharatorCode(uint16_t character) {
  for (uint8_t code = 0; code < kPlateCharacterCount; ++code) {
    if (kPlateCharacters[code].gbk == character) return code;
  }
  return kUnknownCharacter;
}

const PlateCharacter* PlateCharacterOf(uint8_t code) {
  return code < kPlateCharacterCount ? &kPlateCharacters[code] : nullptr;
}

void EncodePlateField(std::string_view plate, bool long_plate, ByteWriter& out) {
  const bool begins_with_character = ByteAt(plate, 0) > kLastPlainFirstByte;
  uint8_t field[kPlateFieldMax] = {};
  ByteWriter text(field, long_plate && begins_with_character ? kPlateFieldMax : kPlateField);

  size_t in = 0;
  if (plate.substr(0, strlen(kNoPlate)) == kNoPlate) {
    in = plate.size();
  } else if (begins_with_character) {
    text.Byte(long_plate ? LongPlateCode(CodeAt(plate, 0)) : CodeAt(plate, 0));
    in = 2;
  } else if (plate.substr(0, 2) == "WJ" && ByteAt(plate, 2) > kLastPlainFirstByte) {
    text.Byte(kArmedPolice);
    text.Byte(CodeAt(plate, 2));
    in = 4;
  }
  while (in < plate.size() && text.size() < text.room()) {
    const bool plain = ByteAt(plate, in) <= kLastPlainByte;
    text.Byte(plain ? ByteAt(plate, in) : CodeAt(plate, in));
    in += plain ? 1 : 2;
  }
  out.Bytes(field, text.room());
}

}  // namespace businessserver
