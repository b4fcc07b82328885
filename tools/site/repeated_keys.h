// Members that stand in an object twice: readers of JSON keep one of them and say nothing.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace site {

struct RepeatedKey {
  std::vector<std::string> path;  // of names, from the outermost object
  size_t line;                    // where it stands again, from 1
};

// In the order of the text. A text that is no JSON may give any answer.
std::vector<RepeatedKey> RepeatedKeys(std::string_view text);

}  // namespace site
