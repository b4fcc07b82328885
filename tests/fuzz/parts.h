// Inputs of several parts, split at the line "--"; what comes first in a part may be a letter that chooses.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

namespace fuzz {

inline std::vector<std::string_view> Parts(std::string_view input, std::string_view mark = "\n--\n") {
  std::vector<std::string_view> parts;
  for (size_t end; (end = input.find(mark)) != std::string_view::npos; input.remove_prefix(end + mark.size())) {
    parts.push_back(input.substr(0, end));
  }
  parts.push_back(input);
  return parts;
}

// Cuts the first byte off and chooses by it: 'a' is the first of count.
inline size_t Choose(std::string_view& text, size_t count) {
  if (text.empty()) return 0;
  const size_t choice = static_cast<uint8_t>(text[0] - 'a') % count;
  text.remove_prefix(1);
  return choice;
}

}  // namespace fuzz
