#include "site/difference.h"

#include <algorithm>

#include "plain_words.h"
#include "protocol/names.h"

namespace site {

namespace bs = businessserver;

namespace {

void AddText(const char* field, const std::string& before, const std::string& after, std::vector<std::string>& lines) {
  if (before == after) return;
  const std::string name = std::string(field) + ": ";
  if (before.empty()) {
    lines.push_back("+ " + name + words::Printable(after));
  } else if (after.empty()) {
    lines.push_back("- " + name + words::Printable(before));
  } else {
    lines.push_back("~ " + name + words::Printable(before) + " -> " + words::Printable(after));
  }
}

void AddZones(const std::string& field, std::vector<std::string> before, std::vector<std::string> after,
              std::vector<std::string>& lines) {
  std::sort(before.begin(), before.end());
  std::sort(after.begin(), after.end());
  const auto add = [&](const char* sign, const std::vector<std::string>& from, const std::vector<std::string>& other) {
    std::vector<std::string> only;
    std::set_difference(from.begin(), from.end(), other.begin(), other.end(), std::back_inserter(only));
    for (const std::string& zone : only) lines.push_back(sign + field + ": " + zone);
  };
  add("- ", before, after);
  add("+ ", after, before);
}

std::vector<std::string> Lines(const Plan& before, const Plan& after) {
  std::vector<std::string> lines;
  AddText(bs::kName, before.name, after.name, lines);
  AddText(bs::kZone, before.zone, after.zone, lines);
  for (size_t i = 0; i < kDirections; ++i) {
    AddZones(std::string("shows.") + bs::kDirectionNames[i], before.shows[i], after.shows[i], lines);
  }
  return lines;
}

}  // namespace

std::vector<Change> Difference(const Site& site, const std::map<std::string, std::string>& kept) {
  std::vector<Change> changes;
  for (const auto& [device, plan] : site.devices) {
    const auto found = kept.find(device);
    Plan before;
    if (found == kept.end()) {
      changes.push_back({Change::Kind::kNew, device, Lines(before, plan)});
    } else if (!ReadPlan(found->second, before)) {
      changes.push_back({Change::Kind::kChanged, device, {"~ the plan on the hub cannot be read"}});
    } else if (const std::vector<std::string> lines = Lines(before, plan); !lines.empty()) {
      changes.push_back({Change::Kind::kChanged, device, lines});
    }
  }
  for (const auto& [device, text] : kept) {
    if (site.devices.count(device) == 0) changes.push_back({Change::Kind::kGone, device, {}});
  }
  std::sort(changes.begin(), changes.end(), [](const Change& a, const Change& b) { return a.device < b.device; });
  return changes;
}

}  // namespace site
