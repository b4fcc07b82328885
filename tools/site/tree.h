// A site's plan for people: the tree of its zones and who shows what.
#pragma once

#include <string>

#include "site/plan.h"

namespace site {

// Zones with their devices, what those show, and who shows the zone.
std::string TreeText(const Site& site);

// The same as a graph for graphviz: zones as boxes, the devices that show something, and an arrow for each direction.
std::string DotText(const Site& site);

std::string Counted(size_t count, const std::string& what);  // "1 device", "2 devices"

}  // namespace site
