// The plans of a site's devices as one file of the integrator's: read and checked whole, every mistake at once.
#pragma once

#include <json/value.h>

#include <array>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "protocol/site_names.h"

namespace site {

inline constexpr size_t kDirections = businessserver::kDirectionNames.size();

struct Plan {
  std::string name;                                         // what people call the device; empty: its own name
  std::string zone;                                         // empty where it could not be read
  std::array<std::vector<std::string>, kDirections> shows;  // zones by DevicePosition
};

struct Site {
  std::string name;
  std::map<std::string, Plan> devices;  // by name
};

// What is wrong: where, and why.
struct Mistake {
  std::string device;  // empty: the file itself
  std::string field;   // "zone", "shows.left"; empty: the whole
  std::string reason;

  std::string Text() const;  // "L2-B-014 shows.left: ...", safe on a terminal
};

// {"site": "garage", "devices": {"L2-B-014": {"name": ..., "zone": "L2/B", "shows": {"left": ["L2/C"]}}}}. What is not
// mentioned there is a mistake, and so is a member that stands there twice. The site holds what could be read.
Site ReadSite(std::string_view text, std::vector<Mistake>& mistakes);
Site SiteOf(const Json::Value& document, std::vector<Mistake>& mistakes);

// What is well written and makes no sense: zones without devices, zones that hold each other in one direction, a
// direction in which a device shows nobody but itself, more than a device can count.
void CheckSite(const Site& site, std::vector<Mistake>& mistakes);

// A plan as the hub keeps it, and as it stands in the file: without what is empty.
Json::Value PlanDocument(const Plan& plan);
Json::Value SiteDocument(const Site& site);

// A plan of the hub, which may come from another planner: false for what a relay does not take.
bool ReadPlan(std::string_view text, Plan& plan);

// How many devices a zone and what is below it hold.
std::map<std::string, size_t> DevicesByZone(const Site& site);

}  // namespace site
