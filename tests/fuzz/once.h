// Checks of texts that come again and again.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace fuzz {

// Makes a check that ends the process where it does not hold, unless the text has passed it not long ago.
template <typename Check>
void OnceFor(const std::string& text, std::vector<size_t>& passed, Check check) {
  if (passed.empty()) passed.resize(1 << 14);
  const size_t hash = std::hash<std::string>()(text);
  size_t& place = passed[hash % passed.size()];
  if (place == hash) return;
  check();
  place = hash;
}

}  // namespace fuzz
