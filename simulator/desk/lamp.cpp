#include "desk/lamp.h"

#include "plain_words.h"

namespace desk {
namespace {

constexpr uint32_t kFirstLineBit = 2;
constexpr uint32_t kLines = 3;
constexpr int kColors = 8;

}  // namespace

int LedColor(uint32_t data) {
  const std::string lit = " (" + words::LedRegisterText(data) + ")";
  for (int color = 0; color < kColors; ++color) {
    if (words::LedColorText(color) == std::to_string(color) + lit) return color;
  }
  return -1;
}

std::string LedLines(uint32_t data) {
  std::string lines;
  for (uint32_t line = 0; line < kLines; ++line) {
    if ((data >> (kFirstLineBit + line) & 1) == 0) continue;
    if (!lines.empty()) lines += '+';
    lines += static_cast<char>('1' + line);
  }
  return lines.empty() ? "none" : lines;
}

}  // namespace desk
