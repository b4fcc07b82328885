// A site as its hub tells it: fed with messages and the time, it says how every device is and how many spaces are free
// in every zone.
#pragma once

#include <json/value.h>

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "site/plan.h"

namespace site {

enum class State { kOffline, kSilent, kImplausible, kPlanUnreadable, kNoPlan, kOk };
const char* StateName(State state);  // "offline", "plan unreadable"

struct Counts {
  uint32_t spaces = 0;
  uint32_t free = 0;
};

struct DeviceRow {
  std::string device;
  std::string name;  // what people call it; its own name without a plan
  std::string zone;  // empty: none
  State state = State::kOffline;
  std::optional<Counts> last;  // what it said last; nothing: never
  bool counts = false;         // it counts in its zone now
  std::vector<std::string> notes;
};

struct ZoneRow {
  size_t devices = 0;  // that count
  Counts sum;
};

class View {
 public:
  using Clock = std::chrono::steady_clock;

  explicit View(std::string site) : site_(std::move(site)) {}

  static std::vector<std::string> Filters(const std::string& site);

  // Anything of the site's topics; other and malformed messages change nothing and are counted.
  void Take(std::string_view topic, const std::string& payload, bool kept, Clock::time_point now);

  // All devices by name.
  std::vector<DeviceRow> Devices(Clock::time_point now) const;
  // Every zone that a device belongs to and what holds it, with the sums as the relays form them.
  std::map<std::string, ZoneRow> Zones(Clock::time_point now) const;

  const std::string& site() const { return site_; }
  const Json::Value& Health(const std::string& device) const;  // null: never heard
  const std::map<std::string, std::string>& plans() const { return plans_; }
  size_t dropped() const { return dropped_; }

 private:
  struct Heard {
    std::string zone;
    Counts counts;
    Clock::time_point good_until;
  };
  struct Device {
    Plan plan;
    bool has_plan = false;
    Json::Value health;  // the last one; null: none
    Clock::time_point health_at;
    std::optional<Heard> counts;
  };

  void TakeCounts(std::string_view device, std::string_view zone, const std::string& payload, bool kept,
                  Clock::time_point now);
  State StateOf(const Device& device, Clock::time_point now) const;
  bool CountsNow(const Device& device, Clock::time_point now) const;

  const std::string site_;
  std::map<std::string, Device, std::less<>> devices_;
  std::map<std::string, std::string> plans_;
  size_t dropped_ = 0;
};

// A health document in one line: "ok, 1 of 3 free; left 4 of 36 free", "offline".
std::string HealthWords(const Json::Value& health);

// How many devices are in each state, e.g. "6 devices: 1 offline, 5 ok".
std::string Summary(const std::vector<DeviceRow>& rows);

// One line a device, what is wrong first; then the zones.
std::string StatusText(const View& view, View::Clock::time_point now);
Json::Value StatusJson(const View& view, View::Clock::time_point now);
std::string OpenMetrics(const View& view, View::Clock::time_point now);

}  // namespace site
