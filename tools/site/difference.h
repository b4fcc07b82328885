// What applying a site file would change on a hub.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "site/plan.h"

namespace site {

struct Change {
  enum class Kind { kNew, kChanged, kGone };  // gone: on the hub, and not in the file
  Kind kind;
  std::string device;
  std::vector<std::string> lines;  // "~ zone: L2/A -> L2/B", "+ shows.left: L2/C", "- shows.right: L3"
};

// kept: the hub's plans as texts, by device. In the order of the devices' names. A plan on the hub that cannot be read
// is changed whole; the order of zones in a direction does not matter.
std::vector<Change> Difference(const Site& site, const std::map<std::string, std::string>& kept);

}  // namespace site
