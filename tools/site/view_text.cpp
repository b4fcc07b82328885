// A site's state as text, as JSON, and for a scraper.
#include <algorithm>
#include <ctime>

#include "plain_words.h"
#include "protocol/names.h"
#include "site/tree.h"
#include "site/view.h"

namespace site {

namespace bs = businessserver;

namespace {

constexpr State kStates[] = {State::kOffline,        State::kSilent, State::kImplausible,
                             State::kPlanUnreadable, State::kNoPlan, State::kOk};

std::string FreeOf(const Counts& counts) {
  return std::to_string(counts.free) + " of " + std::to_string(counts.spaces) + " free";
}

// The worst first.
std::vector<DeviceRow> Sorted(std::vector<DeviceRow> rows) {
  std::stable_sort(rows.begin(), rows.end(), [](const DeviceRow& a, const DeviceRow& b) {
    if ((a.state == State::kOk) != (b.state == State::kOk)) return b.state == State::kOk;
    if (a.state != b.state) return a.state < b.state;
    return !a.notes.empty() && b.notes.empty();
  });
  return rows;
}

std::string Cell(std::string text, size_t width) {
  return text.append(width - std::min(width, text.size()), ' ') + "  ";
}

// A label's value in the exposition format.
std::string Label(const char* name, const std::string& value) {
  std::string text = std::string(name) + "=\"";
  for (const char c : words::Printable(value)) {
    if (c == '"' || c == '\\') text += '\\';
    text += c;
  }
  return text + "\"";
}

class Metrics {
 public:
  void Family(const char* name, const char* type, const char* help) {
    name_ = name;
    text_ += "# TYPE " + name_ + " " + type + "\n# HELP " + name_ + " " + help + "\n";
  }
  void Sample(const std::string& labels, uint64_t value, const char* suffix = "") {
    text_ += name_ + suffix + "{" + labels + "} " + std::to_string(value) + "\n";
  }
  std::string Text() const { return text_ + "# EOF\n"; }

 private:
  std::string name_;
  std::string text_;
};

}  // namespace

std::string Summary(const std::vector<DeviceRow>& rows) {
  std::string text;
  for (const State state : kStates) {
    const auto count =
        std::count_if(rows.begin(), rows.end(), [&](const DeviceRow& row) { return row.state == state; });
    if (count > 0) text += (text.empty() ? ": " : ", ") + std::to_string(count) + " " + StateName(state);
  }
  return Counted(rows.size(), "device") + text;
}

std::string StatusText(const View& view, View::Clock::time_point now) {
  const std::vector<DeviceRow> rows = Sorted(view.Devices(now));
  size_t state_width = 0, device_width = 0, zone_width = 0;
  for (const DeviceRow& row : rows) {
    state_width = std::max(state_width, std::string(StateName(row.state)).size());
    device_width = std::max(device_width, row.device.size());
    zone_width = std::max(zone_width, std::max<size_t>(row.zone.size(), 1));
  }
  std::string text = view.site() + ", " + Summary(rows) + "\n";
  for (const DeviceRow& row : rows) {
    std::string line = Cell(StateName(row.state), state_width) + Cell(row.device, device_width) +
                       Cell(row.zone.empty() ? "-" : row.zone, zone_width);
    // Numbers that count nowhere any more are the last that were heard.
    if (row.last) line += row.counts ? FreeOf(*row.last) : "(" + FreeOf(*row.last) + ")";
    if (row.name != row.device) line += "  " + words::Printable(row.name);
    for (const std::string& note : row.notes) line += "; " + note;
    text += line.erase(line.find_last_not_of(' ') + 1) + "\n";
  }
  const auto zones = view.Zones(now);
  size_t width = 0;
  for (const auto& [zone, row] : zones) width = std::max(width, zone.size());
  if (!zones.empty()) text += "\n";
  for (const auto& [zone, row] : zones) {
    text += Cell(zone, width) + FreeOf(row.sum) + ", " + Counted(row.devices, "device") + "\n";
  }
  return text;
}

Json::Value StatusJson(const View& view, View::Clock::time_point now) {
  Json::Value document;
  document[bs::kSite] = view.site();
  document[bs::kTime] = static_cast<Json::Int64>(time(nullptr));
  Json::Value& devices = document[bs::kDevices] = Json::objectValue;
  for (const DeviceRow& row : view.Devices(now)) {
    Json::Value& device = devices[row.device];
    device[bs::kName] = row.name;
    device["state"] = StateName(row.state);
    if (!row.zone.empty()) device[bs::kZone] = row.zone;
    if (row.last) device[bs::kSpacesCount] = row.last->spaces;
    if (row.last) device[bs::kFree] = row.last->free;
    device["counts"] = row.counts;
    device["health"] = view.Health(row.device);
  }
  Json::Value& zones = document["zones"] = Json::objectValue;
  for (const auto& [zone, row] : view.Zones(now)) {
    zones[zone][bs::kDevices] = static_cast<Json::UInt64>(row.devices);
    zones[zone][bs::kSpacesCount] = row.sum.spaces;
    zones[zone][bs::kFree] = row.sum.free;
  }
  return document;
}

std::string OpenMetrics(const View& view, View::Clock::time_point now) {
  const std::vector<DeviceRow> rows = view.Devices(now);
  const auto zones = view.Zones(now);
  const std::string site = Label("site", view.site());
  const auto of_device = [&](const DeviceRow& row) { return site + "," + Label("device", row.device); };
  const auto of_zone = [&](const std::string& zone) { return site + "," + Label("zone", zone); };
  const auto with_zone = [&](const DeviceRow& row) { return of_device(row) + "," + Label("zone", row.zone); };
  Metrics metrics;
  metrics.Family("park_device_state", "stateset", "How a device is.");
  for (const DeviceRow& row : rows) {
    for (const State state : kStates) {
      metrics.Sample(of_device(row) + "," + Label("park_device_state", StateName(state)), row.state == state ? 1 : 0);
    }
  }
  metrics.Family("park_device_spaces", "gauge", "Spaces that a device sees and that count now.");
  for (const DeviceRow& row : rows) {
    if (row.counts) metrics.Sample(with_zone(row), row.last->spaces);
  }
  metrics.Family("park_device_free_spaces", "gauge", "How many of them are free.");
  for (const DeviceRow& row : rows) {
    if (row.counts) metrics.Sample(with_zone(row), row.last->free);
  }
  const auto number = [&](const DeviceRow& row, const char* member) -> const Json::Value& {
    const Json::Value& health = view.Health(row.device);
    return health.isObject() ? health[member] : Json::Value::nullSingleton();
  };
  metrics.Family("park_device_rejected_messages", "counter", "Messages of the hub that a relay dropped as malformed.");
  for (const DeviceRow& row : rows) {
    const Json::Value& rejected = number(row, "rejected");
    if (rejected.isUInt64()) metrics.Sample(of_device(row), rejected.asUInt64(), "_total");
  }
  metrics.Family("park_device_missing_sources", "gauge", "Devices that were counted and have fallen silent.");
  for (const DeviceRow& row : rows) {
    const Json::Value& shows = number(row, bs::kShows);
    for (const char* direction : bs::kDirectionNames) {
      if (!shows.isObject() || !shows[direction].isObject() || !shows[direction]["missing_count"].isUInt64()) continue;
      metrics.Sample(of_device(row) + "," + Label("direction", direction),
                     shows[direction]["missing_count"].asUInt64());
    }
  }
  metrics.Family("park_zone_devices", "gauge", "Devices that count in a zone.");
  for (const auto& [zone, row] : zones) metrics.Sample(of_zone(zone), row.devices);
  metrics.Family("park_zone_spaces", "gauge", "Spaces in a zone and below it.");
  for (const auto& [zone, row] : zones) metrics.Sample(of_zone(zone), row.sum.spaces);
  metrics.Family("park_zone_free_spaces", "gauge", "Free spaces in a zone and below it.");
  for (const auto& [zone, row] : zones) metrics.Sample(of_zone(zone), row.sum.free);
  return metrics.Text();
}

}  // namespace site
