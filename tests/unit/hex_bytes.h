// Bytes as tests compare and print them: "AA 01 17".
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

inline std::string HexBytes(const uint8_t* bytes, size_t size) {
  static const char kDigits[] = "0123456789ABCDEF";
  std::string text;
  for (size_t i = 0; i < size; ++i) {
    if (i != 0) text += ' ';
    text += kDigits[bytes[i] >> 4];
    text += kDigits[bytes[i] & 15];
  }
  return text;
}
