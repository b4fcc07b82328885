// What of a stranger's text people may see as it is: the one test for log, tools and screen.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

// Length in bytes of the character at the head of a text that is not empty, 0 where it must be shown as an escape
// instead. That is a control character (those of U+0080 to U+009F steer terminals too), a mark that has the words
// around it read in another order or on another line, or a byte that is not valid UTF-8: a stray or missing
// continuation byte, an overlong form, a surrogate, a value past U+10FFFF.
inline size_t ShownLength(std::string_view text) {
  struct Range {
    uint32_t first, last;
  };
  constexpr Range kSteering[] = {{0x061C, 0x061C}, {0x200E, 0x200F}, {0x2028, 0x202E}, {0x2066, 0x2069}};
  constexpr uint32_t kFirstOfLength[] = {0, 0, 0xA0, 0x800, 0x10000};

  const auto byte = [&](size_t i) { return static_cast<uint8_t>(text[i]); };
  const uint8_t lead = byte(0);
  if (lead < 0x80) return lead >= 0x20 && lead != 0x7F ? 1 : 0;
  const size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
  if (lead < 0xC2 || lead > 0xF4 || text.size() < length) return 0;
  uint32_t code = lead & (0xFFu >> (length + 1));
  for (size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return 0;
    code = code << 6 | (byte(i) & 0x3F);
  }
  if (code < kFirstOfLength[length] || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) return 0;
  for (const Range& range : kSteering) {
    if (code >= range.first && code <= range.last) return 0;
  }
  return length;
}
