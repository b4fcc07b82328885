// Numbers and codes as people say them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace words {

std::string GbkToUtf8(std::string_view gbk);  // what cannot be converted becomes "?"

// Returns false when a character has no GBK form; gbk is then left alone.
bool Utf8ToGbk(std::string_view utf8, std::string& gbk);

// Text from a stranger, safe on a terminal: control characters and bytes that are not valid UTF-8 become \xNN, so
// the result is one line and moves no cursor.
std::string Printable(std::string_view text);

std::string AddressText(uint32_t ip);                      // 0x0100007F -> "127.0.0.1"
bool ParseAddress(const std::string& text, uint32_t& ip);  // the way back
std::string TimeText(uint32_t seconds);                    // since 1970 -> "2026-03-01 12:34:56", local time
const char* SpaceStateName(int state);                     // 0 free, 1 occupied, 2 reserved, 3 alarm, else "unknown"
std::string LedColorText(int color);                       // 6 -> "6 (lines 1+3)"
std::string LedRegisterText(uint32_t data_register);       // 0x14 -> "lines 1+3", 0 -> "off", 255 -> "all lines"
// Where a device stands, seen from another: "own", "left", "right", "front", or a number as it is. False for other
// words.
bool ParsePosition(const std::string& word, uint32_t& position);
std::string PositionName(uint32_t position);  // 1 -> "left", 4 -> "position 4"

std::string HexText(const void* bytes, size_t size);         // "AA 01 17"
bool ParseHex(const std::string& text, std::string& bytes);  // blanks and 0x allowed; false on anything else

}  // namespace words
